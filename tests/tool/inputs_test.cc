// The tool's readers of operator input, called in-process on inputs too
// large for the fuzzing harnesses (tests/fuzz): each ends in its value or
// one ToolError, never in a stack overrun.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <filesystem>
#include <string>

#include "device/device_image.h"
#include "device/history.h"
#include "device/log_reader.h"
#include "rehearse/junit.h"
#include "store/json_store.h"
#include "store/store_io.h"
#include "tool_error.h"

namespace {

bool accepted(const std::string &version) {
  try {
    wsc::check_version("--from", version);
    return true;
  } catch (const wsc::ToolError &) {
    return false;
  }
}

TEST(CheckVersion, TakesMajorMinorAndPatchOnly) {
  for (const char *v : {"4.2(1)", "3.2(1a)", "10.99(123abc)", "0.0(0)", "4.1(3c)", "4.2(1A9z)"}) EXPECT_TRUE(accepted(v)) << v;
  for (const char *v : {"", "4.2", "4.2()", "4.2(a)", "4.2(1a", "4.2(1-a)", " 4.2(1)", "4.2(1) ", "4..2(1)", ".2(1)",
                        "4.(1)", "4.2(1))", "4.2(1)x", "4,2(1)", "4.2(1\xe9)", "\xd9\xa4.2(1)"})
    EXPECT_FALSE(accepted(v)) << v;
}

// std::regex overran the stack at some 26000 characters.
TEST(CheckVersion, LongTextsEndInAnAnswer) {
  EXPECT_FALSE(accepted(std::string(1 << 20, '1')));
  EXPECT_TRUE(accepted("4.2(" + std::string(1 << 20, '1') + ")"));
  EXPECT_TRUE(accepted("4.2(1" + std::string(1 << 20, 'a') + ")"));
}

std::string refusal(const std::string &json) {
  try {
    wsc::store_from_json_text(json, "store.json");
  } catch (const wsc::ToolError &e) {
    return e.what();
  }
  return "";
}

// The checks of a record and the copy of a document recurse per level: a
// document nested 100000 deep overran the stack.
TEST(StoreJson, DeepNestingIsRefused) {
  const std::string open(100000, '['), close(100000, ']');
  std::string deep_object;
  for (int i = 0; i < 100000; ++i) deep_object += R"({"a":)";
  deep_object += "1" + std::string(100000, '}');
  for (const std::string &json :
       {open + close, R"({"records": [{"type": )" + open + close + R"(, "key": {}, "value": {}}]})",
        R"({"records": [{"type": 1, "key": {"form": "raw", "hex": "01", "a": )" + deep_object +
            R"(}, "value": {"form": "raw", "hex": ""}}]})"})
    EXPECT_NE(refusal(json).find("store.json: nested deeper than 64 levels"), std::string::npos) << json.substr(0, 80);
}

TEST(StoreJson, NumbersTooLargeForAnyTypeAreRefused) {
  EXPECT_EQ(refusal("22222222222E222222222"),
            "store.json: not valid JSON: number overflow parsing '22222222222E222222222'; fix it, or write it anew with "
            "'dump --json'");
}

// Brackets in strings are no nesting, and 64 levels are read.
TEST(StoreJson, NestingIsCountedOutsideStringsUpTo64) {
  std::string in_string = R"({"records": [], "format": "\")" + std::string(100, '[') + R"("})";
  EXPECT_NE(refusal(in_string).find("store.json: format: "), std::string::npos) << refusal(in_string);
  std::string at_limit = std::string(64, '[') + std::string(64, ']');
  EXPECT_NE(refusal(at_limit).find("store.json: top level: expected an object"), std::string::npos) << refusal(at_limit);
  EXPECT_NE(refusal("[" + at_limit + "]").find("store.json: nested deeper than 64 levels"), std::string::npos);
}

// One byte of a real store's leaf page overwritten (the input datum-of-4g
// of fuzz_store_file) gives a record of some 4 GB in a 24 KB file: it was
// copied, reading past the file (SIGBUS); the store is now refused.
TEST(ReadStore, ARecordLargerThanTheFileIsRefused) {
  namespace fs = std::filesystem;
  wsc::TempFolder dir("inputs-test");
  std::string file = dir.path() + "/damaged.mdb";
  fs::copy_file(FUZZ_STORES_DIR "/4.2-100.mdb", file);
  FILE *f = std::fopen(file.c_str(), "r+b");
  ASSERT_NE(f, nullptr);
  std::fseek(f, 0x5026, SEEK_SET);
  std::fputc(0x7e, f);
  std::fclose(f);
  try {
    wsc::read_store(wsc::resolve_store(file));
    ADD_FAILURE() << "the damaged store was read";
  } catch (const wsc::ToolError &e) {
    EXPECT_NE(std::string(e.what()).find("damaged or not a store"), std::string::npos) << e.what();
  }
}

// A log record of 200,000 characters and a history line nested 100,000 deep
// overran the stack (std::regex recursing per character, the JSON parser per
// level): the first is a trace, the second an unreadable line.
TEST(LogAndHistory, HugeRecordsAndDeepLinesEndCleanly) {
  std::string text = "wayshunt_cnv_log_cleanup():71 file Closed at " + std::string(200000, 'x');
  std::vector<wsc::LogRecord> records = wsc::split_log(text, "big.log");
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(wsc::error_kind(records[0]), nullptr);
  wsc::TempFolder dir("inputs-test");
  std::string file = dir.path() + "/history.jsonl";
  std::FILE *f = std::fopen(file.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fputs((std::string(100000, '[') + std::string(100000, ']') + "\n{\"from\": \"4.2(1)\"}\n").c_str(), f);
  std::fclose(f);
  std::vector<wsc::Json> lines = wsc::read_history(file);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(lines[0].contains("unreadable"));
  EXPECT_EQ(lines[1]["from"], "4.2(1)");
}

}  // namespace

namespace {

// Texts of a rehearsal that came from the field (an image's name, a
// failure quoting a record) reach the JUnit file as XML that validates,
// markup and control characters included, and come back as they were but
// for the controls.
TEST(JunitXml, FieldTextsStayWellFormed) {
  const std::string odd = "a<b>&\"c'\x01\x1f\x7f\tz";
  wsc::Json doc = {{"images", {{{"name", odd}, {"path", "/x"}, {"era", "4.2"}, {"records", 1}, {"error", odd}}}},
                   {"cells",
                    {{{"image", odd}, {"move", "4.2(1)->3.2(1)"}, {"outcome", "failed"}, {"failure", odd}, {"seconds", 0.5},
                      {"legs", wsc::Json::array()}, {"damaged", {odd}}}}}};
  std::string path = std::filesystem::temp_directory_path() / ("junit-" + std::to_string(getpid()) + ".xml");
  FILE *f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fputs(wsc::junit_xml(doc).c_str(), f);
  std::fclose(f);
  std::string check = "xmllint --noout --schema " + std::string(TOOL_TEST_DIR) + "/junit.xsd " + path + " 2>/dev/null";
  EXPECT_EQ(std::system(check.c_str()), 0) << wsc::junit_xml(doc);
  std::string attr = "xmllint --xpath 'string(//failure/@message)' " + path;
  FILE *p = popen(attr.c_str(), "r");
  char back[128] = {};
  size_t n = std::fread(back, 1, sizeof back - 1, p);
  pclose(p);
  EXPECT_EQ(std::string(back, n), "a<b>&\"c'???\tz\n");  // xmllint ends it with a line
  std::remove(path.c_str());
}

}  // namespace
