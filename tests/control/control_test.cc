// Fault rules (syntax and which calls they hit), the list of calls that
// consult them, call counts, the journal, and status texts.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <regex>
#include <set>

#include "plat_hooks.h"
#include "status.h"
#include "test_support.h"
#include "toolkit.h"

namespace {

// Calls 1..n of func and returns the pattern of hits, e.g. "..x.".
std::string hits(const char *func, int n) {
  std::string s;
  for (int i = 0; i < n; i++) s += plat_fault_hit(func, nullptr) ? 'x' : '.';
  return s;
}

}  // namespace

TEST(FaultRules, WhenSelectsCalls) {
  struct Case {
    const char *rule, *pattern;
  };
  const Case cases[] = {
      {"f", "xxxxx"},       {"f:*", "xxxxx"},   {"f:2", ".x..."},   {"f:2-4", ".xxx."},
      {"f:3+", "..xxx"},    {"g:1", "....."},   {"f:1,f:5", "x...x"}, {"f:1;f:4", "x..x."},
      {" f:2 \t f:3 ", ".xx.."},
  };
  for (const auto &c : cases) {
    testsupport::FaultScope scope;
    scope.add(c.rule);
    EXPECT_EQ(hits("f", 5), c.pattern) << c.rule;
    EXPECT_EQ(plat_call_count("f"), 5u);
  }
}

TEST(FaultRules, BadRulesAreRejectedWholeWithAReason) {
  const char *bad[] = {"f:0", "f:x", "f:3-2", "f=0", "f=EBOGUS", ":2", "f=-1", "f:1-", "ok,f=99999999999"};
  for (const char *rule : bad) {
    testsupport::FaultScope scope;
    errno = 0;
    EXPECT_EQ(plat_fault_add(rule), -1) << rule;
    EXPECT_EQ(errno, EINVAL);
    EXPECT_NE(std::string(plat_fault_error()), "") << rule;
    EXPECT_EQ(hits("ok", 1), ".") << rule << ": nothing of a bad text is added";
  }
}

// The list of fault points is exactly the set of names the stand-ins pass to
// the fault hooks (their sources, platform/ but the hooks' own folder): a
// stand-in that consults a name the list lacks, or a listed name no stand-in
// consults, fails here.
TEST(FaultPoints, AreTheNamesTheStandInsConsult) {
  std::set<std::string> listed, consulted;
  for (const char *const *p = plat_fault_points(); *p; p++) EXPECT_TRUE(listed.insert(*p).second) << "twice: " << *p;
  const std::regex hook(R"re((plat_fault_hit|PLAT_FAULT_SITE|TK_FAULT_HIT)\(\s*"([^"]*)")re");
  for (const auto &e : std::filesystem::recursive_directory_iterator(PLATFORM_SOURCE_DIR)) {
    if (!e.is_regular_file() || e.path().parent_path().filename() == "control") continue;
    std::string text = testsupport::read_file(e.path());
    for (std::sregex_iterator m(text.begin(), text.end(), hook), end; m != end; ++m) consulted.insert((*m)[2]);
  }
  EXPECT_EQ(listed, consulted);
}

TEST(StatusText, EveryPlatformCodeHasItsOwnText) {
  const retcode_t codes[] = {
      0,                   TK_ERR_INVALID,      TK_ERR_NO_MEMORY,       TK_ERR_EMPTY,          TK_HASHTABLE_END,
      TK_ERR_NOT_FOUND,    TK_ERR_EXISTS,       TK_ERR_FULL,            TK_ERR_NOT_EMPTY,      PLAT_ERR_INJECTED,
      PLAT_ERR_NO_MEMORY,  PLAT_ERR_INVALID,    KVS_ERR_NO_STORE,       KVS_ERR_BAD_URL,       KVS_ERR_NO_KEY,
      KVS_ERR_BAD_HANDLE,  KVS_ERR_BAD_ARG,     KVS_ERR_NO_CURSOR,      KVS_ERR_BUSY,          KVS_ERR_KEY_TOO_BIG,
      KVS_ERR_NO_SPACE,    KVS_ERR_IO,          KVS_ERR_CORRUPT,        KVS_ERR_EXISTS,        KVS_ERR_TOO_MANY,
      KVS_ERR_DB,          PORTMAP_ERR_NO_SLOT, PORTMAP_ERR_BAD_IF_INDEX, PORTMAP_ERR_TABLE,   PORTMAP_ERR_DOWN,
      OVERSEER_ERR_NO_STANDBY, OVERSEER_ERR_NO_SOURCE, OVERSEER_ERR_BAD_PATH, OVERSEER_ERR_IO, OVERSEER_ERR_BAD_QUEUE,
  };
  std::set<std::string> texts;
  for (retcode_t rc : codes) {
    std::string t = retcode2str(rc);
    EXPECT_EQ(t.find("unknown"), std::string::npos) << std::hex << rc;
    EXPECT_TRUE(texts.insert(t).second) << "duplicate text " << t;
  }
  EXPECT_EQ(std::string(retcode2str(0x12345678)), "unknown status 0x12345678");
}
