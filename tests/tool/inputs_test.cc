// The tool's readers of operator input, called in-process on inputs the
// fuzzing harnesses (tests/fuzz) found or cannot reach: each ends in its
// value or one ToolError, never in another exception or a stack overrun.
#include <gtest/gtest.h>

#include <string>

#include "store/json_store.h"
#include "tool_error.h"

namespace {

std::string refusal(const std::string &json) {
  try {
    wsc::store_from_json_text(json, "store.json");
  } catch (const wsc::ToolError &e) {
    return e.what();
  }
  return "";
}

TEST(StoreJson, NumbersTooLargeForAnyTypeAreRefused) {
  EXPECT_EQ(refusal("22222222222E222222222"),
            "store.json: not valid JSON: number overflow parsing '22222222222E222222222'; fix it, or write it anew with "
            "'dump --json'");
}

}  // namespace
