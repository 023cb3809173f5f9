#include "strix/json.h"

#include <bit>               // std::bit_cast
#include <cmath>             // std::copysign
#include <cstddef>           // std::size_t
#include <cstdint>           // fixed-width integers
#include <initializer_list>  // std::initializer_list
#include <limits>            // infinities, NaN, extremes
#include <random>            // std::mt19937_64
#include <sstream>           // std::ostringstream
#include <streambuf>         // std::streambuf
#include <string>            // std::string
#include <string_view>       // std::string_view
#include <utility>           // std::pair, std::move
#include <vector>            // std::vector

#include <fmt/compile.h>  // FMT_COMPILE
#include <fmt/format.h>   // fmt::format
#include <gtest/gtest.h>

#include "strix/solution.h"
#include "strix/streams.h"  // OutBuffer::kFlushAt

namespace strix {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

constexpr double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();

// Fills the buffer first, then cuts the views, so they stay valid.
void set_names(NameList& list, std::initializer_list<std::string_view> names) {
  for (const std::string_view n : names) list.buffer.insert(list.buffer.end(), n.begin(), n.end());
  const char* p = list.buffer.data();
  for (const std::string_view n : names) {
    list.names.emplace_back(p, n.size());
    p += n.size();
  }
}

SolutionItem& add_item(Solution& s, std::string kind, std::string prosta = "",
                       std::string solsta = "") {
  SolutionItem& item = s.solutions.emplace_back();
  item.kind = std::move(kind);
  item.prosta = std::move(prosta);
  item.solsta = std::move(solsta);
  return item;
}

std::string json_of(const Solution& s) {
  std::ostringstream out;
  write_json(out, s);
  return out.str();
}

std::string json_string_of(std::string_view s) {
  std::ostringstream out;
  write_json_string(out, s);
  return out.str();
}

// The document of a Solution whose counts, version and information groups
// are all zero or empty, around the given "Task/solutions" members.
std::string doc(const std::string& items) {
  return R"({"$schema" : "https://strix.example.org/json/solution/schema#","Task/INFO":{)"
         R"("numvar" : 0, "numcon" : 0, "numcone" : 0, "numbarvar" : 0, "numacc" : 0, )"
         R"("nollover":[0,0,0]},"Task/solutions":{)" +
         items + R"(},"Task/information":{"int32":{},"int64":{},"double":{}}})";
}

// One item "i" with empty statuses and status arrays, holding only xx.
std::string xx_doc(const std::string& values) {
  return doc(R"("i":{"prosta":"","solsta":"","skx" : [],"skc" : [],"xx" : [)" + values + "]}");
}

TEST(JsonDocument, NoItemsWithCountsVersionAndInformation) {
  Solution s;
  s.numvar = 3;
  s.numcon = std::numeric_limits<std::int32_t>::min();
  s.numcone = 0;
  s.numbarvar = 2147483647;
  s.numacc = std::numeric_limits<std::int64_t>::min();
  s.version = {10, 1, -2};
  set_names(s.info_i32.names, {"a", "bb"});
  s.info_i32.values = {1, -2147483647 - 1};
  set_names(s.info_i64.names, {"big"});
  s.info_i64.values = {9223372036854775807};
  set_names(s.info_f64.names, {"t", "u", "v"});
  s.info_f64.values = {0.5, -kInf, 1e-7};
  EXPECT_EQ(json_of(s),
            R"({"$schema" : "https://strix.example.org/json/solution/schema#","Task/INFO":{)"
            R"("numvar" : 3, "numcon" : -2147483648, "numcone" : 0, "numbarvar" : 2147483647, )"
            R"("numacc" : -9223372036854775808, "nollover":[10,1,-2]},"Task/solutions":{},)"
            R"("Task/information":{"int32":{"a":1,"bb":-2147483648},)"
            R"("int64":{"big":9223372036854775807},"double":{"t":0.5,"u":-inf,"v":1e-07}}})");
}

// The document from the "Task/information" key to its end.
std::string information_of(const Solution& s) {
  const std::string out = json_of(s);
  const std::size_t at = out.find(R"(,"Task/information")");
  return at == std::string::npos ? out : out.substr(at + 1);
}

TEST(JsonDocument, EmptyAndUnevenInformationGroups) {
  Solution s;
  EXPECT_EQ(json_of(s), doc(""));

  // Only the middle group filled; the other two give empty objects.
  Solution one;
  set_names(one.info_i64.names, {"n"});
  one.info_i64.values = {-5};
  EXPECT_EQ(information_of(one),
            R"("Task/information":{"int32":{},"int64":{"n":-5},"double":{}}})");

  // Names and values of different lengths are paired only as far as both go.
  Solution uneven;
  set_names(uneven.info_i32.names, {"x", "y"});
  uneven.info_i32.values = {7};
  set_names(uneven.info_f64.names, {"d"});
  uneven.info_f64.values = {1.5, 2.5};
  EXPECT_EQ(information_of(uneven),
            R"("Task/information":{"int32":{"x":7},"int64":{},"double":{"d":1.5}}})");
}

TEST(JsonDocument, ItemsWithEveryArrayInOrder) {
  Solution s;
  s.barvar_pattern = {2};
  s.acc_pattern = {1};
  SolutionItem& a = add_item(s, "interior", "PRIM_AND_DUAL_FEAS", "OPTIMAL");
  a.skx = {'b', 'l'};
  a.skc = {'u'};
  a.skn = {'x'};
  a.xx = {1};
  a.xc = {2};
  a.slx = {3};
  a.sux = {4};
  a.snx = {5};
  a.slc = {6};
  a.suc = {7};
  a.y = {8, 9};
  a.barx = {10, 11};
  a.bars = {12, 13};
  a.doty = {14};
  a.pobj = 99;  // never written
  a.dobj = 98;
  add_item(s, "basic", "UNKNOWN", "UNKNOWN");  // empty skx and skc
  SolutionItem& c = add_item(s, "integer", "PRIM_FEAS", "INTEGER_OPTIMAL");
  c.skc = {'s'};
  c.y = {-1};
  EXPECT_EQ(json_of(s),
            doc(R"("interior":{"prosta":"prim_and_dual_feas","solsta":"optimal",)"
                R"("skx" : ["bas","low"],"skc" : ["upr"],"skn" : ["fix"],"xx" : [1],"xc" : [2],)"
                R"("slx" : [3],"sux" : [4],"snx" : [5],"slc" : [6],"suc" : [7],"y" : [8,9],)"
                R"("barx" : [[10,11]],"bars" : [[12,13]],"doty" : [[14]]},)"
                R"("basic":{"prosta":"unknown","solsta":"unknown","skx" : [],"skc" : []},)"
                R"("integer":{"prosta":"prim_feas","solsta":"integer_optimal",)"
                R"("skx" : [],"skc" : ["supbas"],"y" : [-1]})"));
}

TEST(JsonDocument, StatusKeyNames) {
  Solution s;
  SolutionItem& item = add_item(s, "i");
  item.skx = {'b', 's', 'l', 'u', 'x', '*'};
  item.skc = {'k', 0, 'B', 0xFF, ' '};
  EXPECT_EQ(json_of(s), doc(R"("i":{"prosta":"","solsta":"",)"
                            R"("skx" : ["bas","supbas","low","upr","fix","inf"],)"
                            R"("skc" : ["unk","unk","unk","unk","unk"]})"));
}

// One item "i" with barx under barvar_pattern and doty under acc_pattern.
std::string blocks_doc(strix::Array<std::uint64_t> barvar_pattern, strix::Array<double> barx,
                       strix::Array<std::uint64_t> acc_pattern, strix::Array<double> doty) {
  Solution s;
  s.barvar_pattern = std::move(barvar_pattern);
  s.acc_pattern = std::move(acc_pattern);
  SolutionItem& item = add_item(s, "i");
  item.barx = std::move(barx);
  item.doty = std::move(doty);
  return json_of(s);
}

std::string blocks_expected(const std::string& barx, const std::string& doty) {
  return doc(R"("i":{"prosta":"","solsta":"","skx" : [],"skc" : [],"barx" : )" + barx +
             R"(,"doty" : )" + doty + "}");
}

TEST(JsonDocument, BlockArraysFollowThePatterns) {
  // 3 and 1 over four values; doty's own pattern, with an empty block first.
  EXPECT_EQ(blocks_doc({3, 1}, {1, 2, 3, 4}, {0, 2}, {5, 6}),
            blocks_expected("[[1,2,3],[4]]", "[[],[5,6]]"));
  // Values beyond the pattern's sum are not written.
  EXPECT_EQ(blocks_doc({1}, {1, 2, 3}, {2}, {4, 5, 6}), blocks_expected("[[1]]", "[[4,5]]"));
  // An empty pattern gives an empty array though values are present.
  EXPECT_EQ(blocks_doc({}, {1, 2}, {}, {3}), blocks_expected("[]", "[]"));
  // A short flat vector: the block where values run out is cut, later ones are "[]".
  EXPECT_EQ(blocks_doc({2, 3, 1}, {1, 2, 3}, {1, 1}, {9}),
            blocks_expected("[[1,2],[3],[]]", "[[9],[]]"));
  // Entries near the top of the unsigned 64-bit range are only bounded by the values.
  EXPECT_EQ(blocks_doc({std::numeric_limits<std::uint64_t>::max(), 5}, {1, 2}, {1ULL << 63}, {7}),
            blocks_expected("[[1,2],[]]", "[[7]]"));
}

TEST(JsonString, Escapes) {
  const std::pair<std::string_view, std::string> cases[] = {
      {""sv, R"("")"},
      {"plain / text ~\x7f"sv, "\"plain / text ~\x7f\""},  // 0x7F and "/" are copied
      {"\""sv, R"("\"")"},
      {"\\"sv, R"("\\")"},
      {"\b\t\n\f\r"sv, R"("\b\t\n\f\r")"},
      {"\0\x01\x0b\x1f"sv, R"("\u0000\u0001\u000b\u001f")"},
      {"\x80\xe9\xff"sv, R"("\u0080\u00e9\u00ff")"},
      {"\xc3\xa9"sv, R"("\u00c3\u00a9")"},  // UTF-8 "e acute": one escape per byte
      {"a\"b\\c\x1a"
       "d \xab"sv,
       R"("a\"b\\c\u001ad \u00ab")"},
  };
  for (const auto& [input, expected] : cases) {
    EXPECT_EQ(json_string_of(input), expected) << "input bytes: " << input.size();
  }
}

TEST(JsonDocument, KeysEscapedStatusesAndInfoNamesRaw) {
  Solution s;
  // Kind is a key: escaped. prosta/solsta: only A-Z lowered, nothing escaped,
  // bytes from 0x80 not lowered.
  add_item(s, "in\"t\xe9r\n",
           "PRIM_\"A\\Z\x01\xc9"
           "R9",
           "\xC0OPT\tx");
  set_names(s.info_i32.names, {"q\"x\xe9\\"});
  s.info_i32.values = {1};
  const std::string expected =
      R"({"$schema" : "https://strix.example.org/json/solution/schema#","Task/INFO":{)"
      R"("numvar" : 0, "numcon" : 0, "numcone" : 0, "numbarvar" : 0, "numacc" : 0, )"
      R"("nollover":[0,0,0]},"Task/solutions":{)"
      R"("in\"t\u00e9r\n":{"prosta":"prim_"a\z)"
      "\x01\xc9r9"
      R"(","solsta":")"
      "\xC0opt\tx"
      R"(","skx" : [],"skc" : []}},"Task/information":{"int32":{"q"x)"
      "\xe9\\"
      R"(":1},"int64":{},"double":{}}})";
  EXPECT_EQ(json_of(s), expected);
}

TEST(JsonDocument, NumberFormatting) {
  const double negative_nan = std::copysign(kNaN, -1.0);
  Solution s;
  add_item(s, "i").xx = {1e15,
                         1e16,
                         0.0001,
                         0.00001,
                         -0.0,
                         5e-324,
                         0.1,
                         1.0 / 3,
                         kInf,
                         -kInf,
                         kNaN,
                         negative_nan,
                         1.5,
                         -2.5e-7,
                         1e100,
                         0.00012,
                         1.5e16,
                         9007199254740992.0,
                         std::numeric_limits<double>::max(),
                         3};
  EXPECT_EQ(json_of(s), xx_doc("1000000000000000,1e+16,0.0001,1e-05,-0,5e-324,0.1,"
                               "0.3333333333333333,inf,-inf,nan,-nan,1.5,-2.5e-07,1e+100,0.00012,"
                               "1.5e+16,9007199254740992,1.7976931348623157e+308,3"));
}

// The writer formats with the compiled "{}"; it must give the bytes of the
// runtime "{}" for every double, not only for the hand-picked ones above.
TEST(JsonNumbers, CompiledFormatEqualsRuntimeFormat) {
  std::mt19937_64 rng(20240601);
  std::uniform_int_distribution<int> exponent(1023 - 30, 1023 + 60);  // around the fixed range
  fmt::memory_buffer compiled;
  for (int i = 0; i < 200000; ++i) {
    std::uint64_t bits = rng();
    // Every other value with its exponent near the fixed/exponent boundary.
    if (i % 2 == 1) {
      bits = (bits & 0x800FFFFFFFFFFFFFULL) | (std::uint64_t(exponent(rng)) << 52);
    }
    const double d = std::bit_cast<double>(bits);
    compiled.clear();
    fmt::format_to(fmt::appender(compiled), FMT_COMPILE(",{}"), d);
    const std::string runtime = fmt::format(fmt::runtime(",{}"), d);
    ASSERT_EQ(fmt::to_string(compiled), runtime) << "bits " << bits;
  }
}

// Output reaches the stream buffer in large pieces, not one call per number.
TEST(JsonDocument, WritesInLargePieces) {
  // No put area: every byte reaches xsputn or overflow, and each call counts.
  class CountingBuf : public std::streambuf {
   public:
    std::string bytes;
    int calls = 0;

   protected:
    std::streamsize xsputn(const char* s, std::streamsize n) override {
      ++calls;
      bytes.append(s, static_cast<std::size_t>(n));
      return n;
    }
    int_type overflow(int_type c) override {
      ++calls;
      if (!traits_type::eq_int_type(c, traits_type::eof())) bytes.push_back(static_cast<char>(c));
      return traits_type::not_eof(c);
    }
  };
  Solution s;
  SolutionItem& item = add_item(s, "i");
  item.xx.assign(200000, 0.5);
  std::string values = "0.5";
  for (int i = 1; i < 200000; ++i) values += ",0.5";
  CountingBuf buf;
  std::ostream out(&buf);
  write_json(out, s);
  EXPECT_EQ(buf.bytes, xx_doc(values));
  // About 800 kB: a dozen pieces of OutBuffer::kFlushAt bytes, not 200000 writes.
  EXPECT_LE(buf.calls, static_cast<int>(buf.bytes.size() / OutBuffer::kFlushAt) + 2);
}

}  // namespace
}  // namespace strix
