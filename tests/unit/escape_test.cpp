// The three escaping styles over every kind of byte, side by side: the JSON
// document's own keys and the example's names never need most of these.
#include "strix/escape.h"

#include <string>       // std::string
#include <string_view>  // std::string_view

#include <gtest/gtest.h>

namespace {

using namespace std::string_view_literals;

TEST(Escapes, ThreeStyles) {
  struct Case {
    std::string_view input, json, report, item_name;
  };
  // clang-format off
  const Case cases[] = {
      {""sv, ""sv, ""sv, ""sv},
      {"plain / text ~\x7f"sv, "plain / text ~\x7f"sv, "plain / text ~\x7f"sv, "plain / text ~\x7f"sv},
      {"\"\\"sv, R"(\"\\)"sv, R"(\"\\)"sv, R"("\\)"sv},
      {"\b\t\n\f\r"sv, R"(\b\t\n\f\r)"sv, R"(\b\t\n\x0c\r)"sv, R"(\x08\t\n\x0c\r)"sv},
      {"\0\x01\x0b\x1f "sv, R"(\u0000\u0001\u000b\u001f )"sv, R"(\x00\x01\x0b\x1f )"sv,
       R"(\x00\x01\x0b\x1f )"sv},
      {"\x80\xc3\xa9\xff"sv, R"(\u0080\u00c3\u00a9\u00ff)"sv, R"(\x80\xc3\xa9\xff)"sv,
       R"(\x80\xc3\xa9\xff)"sv},
  };
  // clang-format on
  for (const Case& c : cases) {
    std::string json, report, item_name;
    strix::append_escaped(json, c.input, strix::kJsonEscapes);
    strix::append_escaped(report, c.input, strix::kReportEscapes);
    strix::append_escaped(item_name, c.input, strix::kItemNameEscapes);
    EXPECT_EQ(json, c.json) << "input bytes: " << c.input.size();
    EXPECT_EQ(report, c.report) << "input bytes: " << c.input.size();
    EXPECT_EQ(item_name, c.item_name) << "input bytes: " << c.input.size();
  }
}

}  // namespace
