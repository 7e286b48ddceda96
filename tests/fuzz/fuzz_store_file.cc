// libFuzzer harness of the tool's store reading: each input turns one of the
// real stores in tests/fuzz/stores (made with 'wayshunt-convert gen') into a
// damaged data file: cut to a length, with bytes overwritten. The tool then
// reads it as 'dump' and 'info' do (read_store, profile_store and their
// output). A damaged store must end in the records it holds or a ToolError,
// never a crash, a leak or a sanitizer report.
//
// Input: store index (1 byte), length to keep (2 bytes, little-endian; at
// least the file's size keeps all of it), then edits until the end: offset
// (2 bytes, little-endian, taken modulo the length kept) and the new byte.
#include <stdio.h>
#include <stdlib.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "compare/store_profile.h"
#include "fuzz_folder.h"
#include "records/json_codec.h"
#include "store/json_store.h"
#include "store/store_io.h"
#include "tool_error.h"

namespace {

// The seed stores, by index: 30 records of each era, and 100 of 4.2, which
// need a branch page above the leaves.
const char *const kSeedStores[] = {"3.2.mdb", "4.1.mdb", "4.2.mdb", "4.2-100.mdb"};

std::vector<std::string> g_seeds;
wsc::StoreRef g_store;

std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    fprintf(stderr, "fuzz_store_file: cannot read %s\n", path.c_str());
    abort();
  }
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void write_file(const std::string &path, const std::string &bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out.flush()) abort();
}

// What 'dump', 'dump --json' and 'info' make of the records.
void render(const wsc::Records &records) {
  wsc::StoreProfile p = wsc::profile_store(records);
  std::ostringstream out;
  wsc::print_profile(p, g_store.file, out);
  out << wsc::profile_to_json(p, g_store.file).dump() << wsc::store_to_json(records).dump();
  for (const wsc::Record &r : records)
    for (const auto &[name, value] : wsc::record_fields(r, true)) out << name << value;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  unsetenv("PLAT_KVS_ROOT");
  g_store = wsc::resolve_store(fuzz_folder("fuzzstore"));
  for (const char *name : kSeedStores) {
    g_seeds.push_back(read_file(std::string(FUZZ_STORES_DIR "/") + name));
    // Offsets and lengths are 16 bits: a seed must fit them.
    if (g_seeds.back().size() > 0xffff) abort();
    // Each seed, undamaged, reads whole: otherwise every input says nothing.
    write_file(g_store.file, g_seeds.back());
    if (wsc::read_store(g_store).empty()) abort();
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 3) return 0;
  std::string file = g_seeds[data[0] % g_seeds.size()];
  size_t keep = data[1] | data[2] << 8;
  if (keep < file.size()) file.resize(keep);
  for (size_t i = 3; i + 3 <= size && !file.empty(); i += 3)
    file[(data[i] | data[i + 1] << 8) % file.size()] = static_cast<char>(data[i + 2]);
  write_file(g_store.file, file);
  try {
    render(wsc::read_store(g_store));
  } catch (const wsc::ToolError &) {
    // A clean refusal: the store is damaged or no store.
  }
  return 0;
}
