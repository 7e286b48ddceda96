// What a move changed in a store, in brief: records per key type before and
// after, removed, added and changed; key and value sizes that changed; how
// often each field and acl_flags bit changed; a few example records. Built
// on the store comparison; 'demo' prints it after each move.
#ifndef TOOLS_WAYSHUNT_CONVERT_CHANGE_SUMMARY_H
#define TOOLS_WAYSHUNT_CONVERT_CHANGE_SUMMARY_H

#include <iosfwd>

#include "records/record.h"

namespace wsc {

void print_change_summary(const Records &before, const Records &after, std::ostream &out);

}  // namespace wsc

#endif
