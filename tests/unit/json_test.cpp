// The JSON string escapes: the document's own keys never need them, so only
// this reaches every byte.
#include "strix/json.h"

#include <sstream>      // std::ostringstream
#include <string_view>  // std::string_view

#include <gtest/gtest.h>

namespace {

using namespace std::string_view_literals;

TEST(JsonString, Escapes) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {""sv, R"("")"},
      {"plain / text ~\x7f"sv, "\"plain / text ~\x7f\""},  // 0x7F and "/" are copied
      {"\"\\"sv, R"("\"\\")"},
      {"\b\t\n\f\r"sv, R"("\b\t\n\f\r")"},
      {"\0\x01\x0b\x1f "sv, R"("\u0000\u0001\u000b\u001f ")"},
      {"\x80\xc3\xa9\xff"sv, R"("\u0080\u00c3\u00a9\u00ff")"},  // one escape per byte, as Latin-1
  };
  for (const auto& [input, expected] : cases) {
    std::ostringstream out;
    strix::write_json_string(out, input);
    EXPECT_EQ(out.str(), expected) << "input bytes: " << input.size();
  }
}

}  // namespace
