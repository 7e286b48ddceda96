// Which stores this process has open.
#ifndef PLAT_KVS_REGISTRY_H
#define PLAT_KVS_REGISTRY_H

#include <string>

namespace kvs {

// True when the data file is open through a handle of this process.
bool is_open(const std::string &file);

}  // namespace kvs

#endif
