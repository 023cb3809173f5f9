// The JSON writer's pieces that whole documents through the binary do not
// reach: the escape table, block arrays whose patterns and values disagree,
// information groups of odd shapes, and the compiled number format.
#include "strix/escape.h"

#include <bit>          // std::bit_cast
#include <cstdint>      // fixed-width integers
#include <limits>       // extremes
#include <random>       // std::mt19937_64
#include <sstream>      // std::ostringstream
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <utility>      // std::pair
#include <vector>       // std::vector

#include <fmt/compile.h>  // FMT_COMPILE
#include <fmt/format.h>   // fmt::format
#include <gtest/gtest.h>

#include "strix/solution.h"
#include "strix/writers.h"
#include "test_util.h"

namespace strix {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using strix_test::set_names;

std::string json_of(const Solution& s) {
  std::ostringstream out;
  write_json(out, s);
  return out.str();
}

// The document of a Solution with zero counts and version, around the given
// "Task/solutions" members and "Task/information" groups.
std::string doc(const std::string& items,
                const std::string& info = R"("int32":{},"int64":{},"double":{})") {
  return R"({"$schema" : "https://strix.example.org/json/solution/schema#","Task/INFO":{)"
         R"("numvar" : 0, "numcon" : 0, "numcone" : 0, "numbarvar" : 0, "numacc" : 0, )"
         R"("nollover":[0,0,0]},"Task/solutions":{)" +
         items + R"(},"Task/information":{)" + info + "}}";
}

TEST(JsonString, Escapes) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {""sv, R"("")"},
      {"plain / text ~\x7f"sv, "\"plain / text ~\x7f\""},  // 0x7F and "/" are copied
      {"\""sv, R"("\"")"},
      {"\\"sv, R"("\\")"},
      {"\b\t\n\f\r"sv, R"("\b\t\n\f\r")"},
      {"\0\x01\x0b\x1f"sv, R"("\u0000\u0001\u000b\u001f")"},
      {"\x80\xe9\xff"sv, R"("\u0080\u00e9\u00ff")"},
      {"\xc3\xa9"sv, R"("\u00c3\u00a9")"},  // UTF-8 "e acute": one escape per byte
  };
  for (const auto& [input, expected] : cases) {
    std::string out = "\"";
    append_escaped(out, input, kJsonEscapes);
    EXPECT_EQ(out + '"', expected) << "input bytes: " << input.size();
  }
}

// Patterns and values are not checked against each other by the reader.
TEST(JsonDocument, BlockArraysWherePatternAndValuesDisagree) {
  struct Case {
    std::vector<std::uint64_t> barvar_pattern;
    std::vector<double> barx;
    std::vector<std::uint64_t> acc_pattern;
    std::vector<double> doty;
    std::string barx_text, doty_text;
  };
  constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();
  const Case cases[] = {
      // An empty pattern gives an empty array though values are present.
      {{}, {1, 2}, {}, {3}, "[]", "[]"},
      // A short flat vector: the block where values run out is cut short,
      // later blocks are "[]".
      {{2, 3, 1}, {1, 2, 3}, {1, 1}, {9}, "[[1,2],[3],[]]", "[[9],[]]"},
      // Entries near the top of the 64-bit range are bounded by the values.
      {{kMax, 5}, {1, 2}, {std::uint64_t{1} << 63}, {7}, "[[1,2],[]]", "[[7]]"},
  };
  for (const Case& c : cases) {
    Solution s;
    s.barvar_pattern.assign(c.barvar_pattern.begin(), c.barvar_pattern.end());
    s.acc_pattern.assign(c.acc_pattern.begin(), c.acc_pattern.end());
    SolutionItem& item = s.solutions.emplace_back();
    item.kind = "i"s;
    item.barx.assign(c.barx.begin(), c.barx.end());
    item.doty.assign(c.doty.begin(), c.doty.end());
    EXPECT_EQ(json_of(s), doc(R"("i":{"prosta":"","solsta":"","skx" : [],"skc" : [],"barx" : )" +
                              c.barx_text + R"(,"doty" : )" + c.doty_text + "}"))
        << c.barx_text;
  }
}

TEST(JsonDocument, InformationGroups) {
  Solution empty;
  EXPECT_EQ(json_of(empty), doc(""));

  // Only the middle group filled; the other two give empty objects.
  Solution middle;
  set_names(middle.info_i64.names, {"n"});
  middle.info_i64.values = {-5};
  EXPECT_EQ(json_of(middle), doc("", R"("int32":{},"int64":{"n":-5},"double":{})"));

  // Names and values of different lengths are paired only as far as both go.
  Solution uneven;
  set_names(uneven.info_i32.names, {"x", "y"});
  uneven.info_i32.values = {7};
  set_names(uneven.info_f64.names, {"d"});
  uneven.info_f64.values = {1.5, 2.5};
  EXPECT_EQ(json_of(uneven), doc("", R"("int32":{"x":7},"int64":{},"double":{"d":1.5})"));
}

// The writer formats with the compiled "{}"; it must give the bytes of the
// runtime "{}" for every double, not only for the values the documents use.
TEST(JsonNumbers, CompiledFormatEqualsRuntimeFormat) {
  std::mt19937_64 rng(20240601);
  std::uniform_int_distribution<int> exponent(1023 - 30, 1023 + 60);  // around the fixed range
  fmt::memory_buffer compiled;
  for (int i = 0; i < 200000; ++i) {
    std::uint64_t bits = rng();
    // Every other value with its exponent near the fixed/exponent boundary.
    if (i % 2 == 1) bits = (bits & 0x800FFFFFFFFFFFFFULL) | (std::uint64_t(exponent(rng)) << 52);
    const double d = std::bit_cast<double>(bits);
    compiled.clear();
    fmt::format_to(fmt::appender(compiled), FMT_COMPILE(",{}"), d);
    ASSERT_EQ(fmt::to_string(compiled), fmt::format(fmt::runtime(",{}"), d)) << "bits " << bits;
  }
}

}  // namespace
}  // namespace strix
