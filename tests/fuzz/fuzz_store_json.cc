// libFuzzer harness of the JSON that 'load' reads: each input is the text of
// a store's JSON. It must end in records or a ToolError, never in another
// exception, a crash or a sanitizer report. Records it gives are then taken
// on as 'load' and 'dump --json' take them: their JSON read again gives the
// same records, and a store written with them and read back holds exactly
// them, in key order, or the write fails with a ToolError.
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "fuzz_folder.h"
#include "records/json_codec.h"
#include "store/json_store.h"
#include "store/store_io.h"
#include "tool_error.h"

namespace {

wsc::StoreRef g_store;

void fail(const char *what) {
  fprintf(stderr, "fuzz_store_json: %s\n", what);
  abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  unsetenv("PLAT_KVS_ROOT");
  setenv("PLAT_KVS_MAP_SIZE", "1048576", 1);  // small stores: a small map is quicker to make
  g_store = wsc::resolve_store(fuzz_folder("fuzzjson"));
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  wsc::Records records;
  try {
    records = wsc::store_from_json_text(std::string(reinterpret_cast<const char *>(data), size), "fuzz.json");
  } catch (const wsc::ToolError &) {
    return 0;  // refused with one line naming what is wrong
  }
  wsc::Records again = wsc::store_from_json_text(wsc::store_to_json(records).dump(), "dumped.json");
  if (again != records) fail("records read from their own JSON differ");

  try {
    wsc::write_store(g_store, records, true);
  } catch (const wsc::ToolError &) {
    return 0;  // a record the store cannot hold, such as a key longer than it takes
  }
  std::sort(records.begin(), records.end(), [](const wsc::Record &a, const wsc::Record &b) { return a.key < b.key; });
  if (wsc::read_store(g_store) != records) fail("the store written holds other records than the JSON");
  return 0;
}
