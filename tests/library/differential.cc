// Differential test of the library's two builds: the gate-shut build (trunk
// fix-ups through the chain indexes) and the gate-open build (the full chain
// scans, traced) convert the same random stores, on every move of the ladder,
// and must leave the same store, make the same kvs_store and kvs_delete calls
// in the same order and return the same status.
//   cnv_differential [--stores=N] [--seed=S] [gtest options]
// Stores: few targets with long chains, groups sharing slot and source pair,
// any mix of the flag bits, interfaces whose lookup fails or gives 255, RW
// entries of types 56 and 57 (saved under 55 by the fix-up) sharing hash
// keys with type 55, 82- and 84-byte and odd values, and now and then a
// kvs_store or kvs_delete that fails.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>

#include "cnv_env.h"
#include "store_gen.h"
#include "test_support.h"

using namespace cnv;

namespace {

unsigned g_stores = 300;
uint64_t g_seed = 1;

TEST(Differential, GateShutAndGateOpenBuildsConvertAlike) {
  CNV_REQUIRE();
  void *loaded = Env::get().handle, *shut = load_library(false), *open = load_library(true);
  ASSERT_TRUE(shut && open) << Env::get().why_not;
  std::string table = Env::get().root + "/portmap";
  testsupport::write_file(table, kPortmap);
  testsupport::ScopedEnv env("PLAT_PORTMAP_TABLE", table.c_str());
  Gen g{std::mt19937_64(g_seed)};
  auto on = [](void *lib, const Records &in, const Move &m, const std::string &faults) {
    Env::get().handle = lib;
    return convert(in, m.from, m.to, faults);
  };
  for (const Move &m : kLadder)  // warm-up: the stand-ins' lasting state
    for (void *lib : {shut, open}) on(lib, g.store(m.era32), m, "");
  for (unsigned n = 0; n < g_stores && !HasFailure(); n++) {
    const Move &m = kLadder[n % std::size(kLadder)];
    Records in = g.store(m.era32);
    std::string faults = g.faults();
    SCOPED_TRACE("store " + std::to_string(n) + " of seed " + std::to_string(g_seed) + ", " + m.from + " -> " +
                 m.to + (faults.empty() ? "" : ", faults " + faults) + "\n" + dump(in));
    Outcome a = on(shut, in, m, faults), b = on(open, in, m, faults);
    EXPECT_EQ(a.rc, b.rc);
    EXPECT_EQ(dump(a.store), dump(b.store));
    EXPECT_EQ(a.calls, b.calls);
  }
  Env::get().handle = loaded;
  dlclose(shut);
  dlclose(open);
}

}  // namespace

int main(int argc, char **argv) {
  for (int i = 1; i < argc; i++) {
    if (std::strncmp(argv[i], "--stores=", 9) == 0) g_stores = static_cast<unsigned>(std::strtoul(argv[i] + 9, nullptr, 0));
    if (std::strncmp(argv[i], "--seed=", 7) == 0) g_seed = std::strtoull(argv[i] + 7, nullptr, 0);
  }
  ::testing::InitGoogleTest(&argc, argv);
  cnv::setup(false);
  int rc = RUN_ALL_TESTS();
  cnv::teardown();
  return rc;
}
