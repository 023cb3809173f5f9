// Status names and the text report. Every expected text below is written out
// by hand from the report's layout; blank runs are spelled B(n) with n
// counted from the field widths, as the comments show.
#include <cmath>             // std::nan
#include <cstdint>           // fixed-width integers
#include <cstring>           // std::memcpy
#include <initializer_list>  // name lists
#include <limits>            // infinities, denormals
#include <random>            // std::mt19937_64
#include <sstream>           // std::ostringstream
#include <string>            // std::string
#include <string_view>       // std::string_view
#include <vector>            // std::vector

#include <fmt/compile.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "strix/report.h"
#include "strix/solution.h"

namespace strix {
namespace {

using namespace std::string_literals;

constexpr double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::nan("");

std::string B(int n) {
  return std::string(static_cast<std::size_t>(n), ' ');
}

// Fills the buffer first, then cuts the views, so no view is invalidated.
void set_names(NameList& list, std::initializer_list<std::string_view> names) {
  for (std::string_view n : names) list.buffer.insert(list.buffer.end(), n.begin(), n.end());
  std::size_t at = 0;
  for (std::string_view n : names) {
    list.names.emplace_back(list.buffer.data() + at, n.size());
    at += n.size();
  }
}

SolutionItem& add_item(Solution& s, const std::string& kind = "interior") {
  SolutionItem& item = s.solutions.emplace_back();
  item.kind = kind;
  item.solsta = "OPTIMAL";
  item.prosta = "PRIM_AND_DUAL_FEAS";
  item.pobj = 2.5;
  item.dobj = 2.5;
  return item;
}

std::string report(const Solution& s) {
  std::ostringstream out;
  write_text_report(out, s);
  return out.str();
}

std::string quote_of(std::string_view name) {
  std::string out = "prefix:";
  quote_name(out, name);
  return out;
}

// The lines before the variable header of an item made by add_item.
const std::string kItemHead =
    "  Solution interior\n"
    "    SolutionStatus optimal optimal\n"
    "    ProblemStatus feasible feasible\n"
    "    Objective 2.5 2.5\n";

// "    # " + "name" left in 20 (16 blanks) + "  " -> 18 blanks; "sta" in 6
// (3 blanks) + " " + "xx" right in 24 (22 blanks) -> 26 blanks; each later
// name right in 24 after one separator: 3 letters -> 22 blanks, "y" -> 24.
const std::string kVarHeader =
    "    # name" + B(18) + "sta" + B(26) + "xx" + B(22) + "slx" + B(22) + "sux" + B(22) + "snx\n";
const std::string kConHeader =
    "    # name" + B(18) + "sta" + B(26) + "xc" + B(22) + "slc" + B(22) + "suc" + B(24) + "y\n";
const std::string kVariables = "    Variables\n" + kVarHeader;
const std::string kConstraints = "    Constraints\n" + kConHeader;

// ------------------------------------------------------------ status names

TEST(StatusKeyName, Table) {
  EXPECT_STREQ(status_key_name('b'), "bas");
  EXPECT_STREQ(status_key_name('s'), "supbas");
  EXPECT_STREQ(status_key_name('l'), "low");
  EXPECT_STREQ(status_key_name('u'), "upr");
  EXPECT_STREQ(status_key_name('x'), "fix");
  EXPECT_STREQ(status_key_name('*'), "inf");
  for (int c : {int{'B'}, 0, int{'k'}, int{'0'}, int{' '}, 0x80, 0xE9, 0xFF}) {
    EXPECT_STREQ(status_key_name(static_cast<std::uint8_t>(c)), "unk") << c;
  }
}

void expect_pair(StatusNamePair p, const char* primal, const char* dual) {
  EXPECT_STREQ(p.primal, primal);
  EXPECT_STREQ(p.dual, dual);
}

TEST(StatusNames, SolutionStatus) {
  expect_pair(solution_status_names("OPTIMAL"), "optimal", "optimal");
  expect_pair(solution_status_names("PRIMAL_FEASIBLE"), "feasible", "unknown");
  expect_pair(solution_status_names("DUAL_FEASIBLE"), "unknown", "feasible");
  expect_pair(solution_status_names("PRIMAL_AND_DUAL_FEAS"), "feasible", "feasible");
  expect_pair(solution_status_names("PRIM_INFEAS_CER"), "unknown", "infeas_cert");
  expect_pair(solution_status_names("DUAL_INFEAS_CER"), "infeas_cert", "unknown");
  expect_pair(solution_status_names("PRIM_ILLPOSED_CER"), "unknown", "illposed_cert");
  expect_pair(solution_status_names("DUAL_ILLPOSED_CER"), "illposed_cert", "unknown");
  expect_pair(solution_status_names("INTEGER_OPTIMAL"), "optimal", "unknown");
  // Whole-string, case-sensitive, no aliases.
  expect_pair(solution_status_names("OPTIMAL "), "unknown", "unknown");
  expect_pair(solution_status_names("optimal"), "unknown", "unknown");
  expect_pair(solution_status_names("OPTIMA"), "unknown", "unknown");
  expect_pair(solution_status_names(""), "unknown", "unknown");
  expect_pair(solution_status_names("PRIM_AND_DUAL_FEAS"), "unknown", "unknown");
  expect_pair(solution_status_names("OPTIMAL\0"s), "unknown", "unknown");
}

TEST(StatusNames, ProblemStatus) {
  expect_pair(problem_status_names("PRIM_FEAS"), "feasible", "unknown");
  expect_pair(problem_status_names("DUAL_FEAS"), "unknown", "feasible");
  expect_pair(problem_status_names("PRIM_AND_DUAL_FEAS"), "feasible", "feasible");
  expect_pair(problem_status_names("PRIMAL_INFEAS"), "infeasible", "unknown");
  expect_pair(problem_status_names("DUAL_INFEAS"), "unknown", "infeasible");
  expect_pair(problem_status_names("PRIM_AND_DUAL_INFEAS"), "infeasible", "infeasible");
  expect_pair(problem_status_names("ILL_POSED"), "illposed", "illposed");
  expect_pair(problem_status_names("PRIM_INFEAS_OR_UNBOUNDED"), "infeasible_or_unbounded",
              "infeasible_or_unbounded");
  expect_pair(problem_status_names("PRIM_INFEAS"), "unknown", "unknown");
  expect_pair(problem_status_names("PRIMAL_AND_DUAL_FEAS"), "unknown", "unknown");
  expect_pair(problem_status_names("prim_feas"), "unknown", "unknown");
  expect_pair(problem_status_names(""), "unknown", "unknown");
  expect_pair(problem_status_names("ILL\0POSED"s), "unknown", "unknown");
  expect_pair(problem_status_names("ILL_POSED\0"s), "unknown", "unknown");
}

// ------------------------------------------------------------ quote_name

TEST(QuoteName, EscapesInTheReportsOwnStyle) {
  EXPECT_EQ(quote_of(""), "prefix:\"\"");  // appends, never replaces
  EXPECT_EQ(quote_of("x1"), "prefix:\"x1\"");
  EXPECT_EQ(quote_of("a\"b"), "prefix:\"a\\\"b\"");  // " a \ " b "
  EXPECT_EQ(quote_of("a\\b"), "prefix:\"a\\\\b\"");
  EXPECT_EQ(quote_of("\b\t\n\r"), "prefix:\"\\b\\t\\n\\r\"");
  // Other control bytes and every byte from 0x80 up as \x + two lower-case
  // hexadecimal digits; DEL (0x7F) and printable ASCII unchanged.
  EXPECT_EQ(quote_of("\x0c\x0b"s + '\0' + "\x1f"), "prefix:\"\\x0c\\x0b\\x00\\x1f\"");
  EXPECT_EQ(quote_of("caf\xe9"), "prefix:\"caf\\xe9\"");
  EXPECT_EQ(quote_of("\x80\xff\x7f ~"), "prefix:\"\\x80\\xff\x7f ~\"");
}

// ------------------------------------------------------------ number formats

// The report formats numbers with compiled format strings; they must give the
// bytes of the same strings parsed at run time.
TEST(NumberFormat, CompiledMatchesRuntime) {
  std::vector<double> values = {0.0,
                                -0.0,
                                kInf,
                                -kInf,
                                kNaN,
                                -kNaN,
                                std::numeric_limits<double>::denorm_min(),
                                -std::numeric_limits<double>::denorm_min(),
                                2.2250738585072009e-308,  // largest subnormal
                                std::numeric_limits<double>::min(),
                                std::numeric_limits<double>::max(),
                                std::numeric_limits<double>::lowest(),
                                1e20,
                                1.5e-05,
                                2.5,
                                1e15,
                                1e16,
                                1e-4,
                                1e-5,
                                0.1,
                                123456789012345678.0};
  std::mt19937_64 rng(20240521);
  std::uniform_real_distribution<double> uniform(-1e6, 1e6);
  for (int i = 0; i < 100000; ++i) {
    const std::uint64_t bits = rng();
    double d;
    std::memcpy(&d, &bits, sizeof d);  // any bit pattern, NaN payloads included
    values.push_back(d);
    values.push_back(uniform(rng));
  }
  for (double v : values) {
    ASSERT_EQ(fmt::format(FMT_COMPILE("{:24.16g}"), v), fmt::format(fmt::runtime("{:24.16g}"), v))
        << fmt::format("{:a}", v);
    ASSERT_EQ(fmt::format(FMT_COMPILE("{:.16g}"), v), fmt::format(fmt::runtime("{:.16g}"), v))
        << fmt::format("{:a}", v);
  }
}

// ------------------------------------------------------------ report

TEST(TextReport, NoSolutions) {
  Solution s;
  EXPECT_EQ(report(s), "Solutions\n");
  // Counts alone print nothing and allocate nothing per item.
  s.numvar = s.numcon = s.numcone = s.numbarvar = 2147483647;
  s.numacc = std::int64_t{1} << 40;
  EXPECT_EQ(report(s), "Solutions\n");
}

// The worked example of the layout. The status field is "{:6s}" (six
// columns): "bas" + 3 blanks, then each value as " {:24.16g}", so between
// "bas" and a one-character value there are 3 + 1 + 23 = 27 blanks and between
// two one-character values 1 + 23 = 24. Names left-aligned in 20: "\"x1\""
// (4 characters) + 16 blanks; "var0001" (7) + 13. The header is laid out in
// the same six columns: 18 blanks after "name", 26 after "sta".
TEST(TextReport, WorkedExample) {
  Solution s;
  s.numvar = 2;
  s.numcon = 1;
  set_names(s.var_names, {"x1", ""});
  SolutionItem& it = add_item(s);
  it.skx = {'b', 'l'};
  it.xx = {1, 0};
  it.slx = {0, 2.5};
  it.sux = {0, 0};
  it.skc = {'u'};
  it.xc = {1};
  it.slc = {0};
  it.suc = {2.5};
  it.y = {-2.5};
  const std::string expected =
      "Solutions\n"
      "  Solution interior\n"
      "    SolutionStatus optimal optimal\n"
      "    ProblemStatus feasible feasible\n"
      "    Objective 2.5 2.5\n"
      "    Variables\n"
      "    # name                  sta                          xx                      slx        "
      "              sux                      snx\n"
      "      \"x1\"                : bas                           1                        0    "
      "                    0                        .\n"
      "      var0001             : low                           0                      2.5      "
      "                  0                        .\n"
      "    Constraints\n"
      "    # name                  sta                          xc                      slc        "
      "              suc                        y\n"
      "      con0000             : upr                           1                        0      "
      "                2.5                     -2.5\n";
  EXPECT_EQ(report(s), expected);
  // The same rows with the blank runs spelled out.
  EXPECT_NE(expected.find("      \"x1\"" + B(16) + ": bas" + B(27) + "1" + B(24) + "0" + B(24) +
                          "0" + B(24) + ".\n"),
            std::string::npos);
  EXPECT_NE(expected.find("      con0000" + B(13) + ": upr" + B(27) + "1" + B(24) + "0" + B(22) +
                          "2.5" + B(21) + "-2.5\n"),
            std::string::npos);
  EXPECT_NE(expected.find(kVarHeader), std::string::npos);
  EXPECT_NE(expected.find(kConHeader), std::string::npos);
}

TEST(TextReport, EmptyCountsStillPrintHeaders) {
  Solution s;
  add_item(s);
  add_item(s, "basic").solsta = "PRIMAL_FEASIBLE";
  EXPECT_EQ(report(s), "Solutions\n" + kItemHead + kVariables + kConstraints +
                           "  Solution basic\n"
                           "    SolutionStatus feasible unknown\n"
                           "    ProblemStatus feasible feasible\n"
                           "    Objective 2.5 2.5\n" +
                           kVariables + kConstraints);
}

TEST(TextReport, Objectives) {
  const auto objective_line = [](double pobj, double dobj) {
    Solution s;
    SolutionItem& it = add_item(s);
    it.pobj = pobj;
    it.dobj = dobj;
    const std::string text = report(s);
    const auto from = text.find("    Objective");
    return text.substr(from, text.find('\n', from) + 1 - from);
  };
  EXPECT_EQ(objective_line(kNaN, 3), "    Objective . 3\n");
  EXPECT_EQ(objective_line(kNaN, kNaN), "    Objective . . \n");  // trailing blank kept
  EXPECT_EQ(objective_line(3, kNaN), "    Objective 3 . \n");
  EXPECT_EQ(objective_line(-kNaN, 0.1), "    Objective . 0.1\n");
  // Infinities are not dots; 16 significant digits, shortest of those.
  EXPECT_EQ(objective_line(kInf, -kInf), "    Objective inf -inf\n");
  EXPECT_EQ(objective_line(1e20, -0.0), "    Objective 1e+20 -0\n");
  EXPECT_EQ(objective_line(1.0 / 3, 1234.5), "    Objective 0.3333333333333333 1234.5\n");
}

// Display names: a quoted model name, else the default; a present list with
// an empty name, or too short a list, gives the default for that index only.
TEST(TextReport, Names) {
  Solution s;
  s.numvar = 5;
  s.numcon = 3;
  set_names(s.var_names, {"a\"b", "", "back\\slash",
                          "f\x0c"
                          "e\xe9"});  // no name for 4
  set_names(s.con_names, {"", "c"});
  add_item(s);
  // Variable names, each left-aligned in 20: "a\"b" shows as 6 characters
  // (+14 blanks), "back\\slash" as 13 (+7), "f\x0ce\xe9" as 12 (+8);
  // status byte missing -> "unk" (+3 blanks), values absent -> 24 blanks + ".".
  const std::string dots = B(24) + "." + B(24) + "." + B(24) + "." + B(24) + ".\n";
  const std::string expected = "Solutions\n" + kItemHead + kVariables +  //
                               "      \"a\\\"b\"" + B(14) + ": unk   " + dots + "      var0001" +
                               B(13) + ": unk   " + dots + "      \"back\\\\slash\"" + B(7) +
                               ": unk   " + dots + "      \"f\\x0ce\\xe9\"" + B(8) + ": unk   " +
                               dots + "      var0004" + B(13) + ": unk   " + dots + kConstraints +
                               "      con0000" + B(13) + ": unk   " + dots + "      \"c\"" + B(17) +
                               ": unk   " + dots + "      con0002" + B(13) + ": unk   " + dots;
  EXPECT_EQ(report(s), expected);
}

TEST(TextReport, LongNameIsNotCut) {
  Solution s;
  s.numvar = 1;
  set_names(s.var_names, {"abcdefghijklmnopqrstuvwxyz"});
  SolutionItem& it = add_item(s);
  it.skx = {'s'};
  it.xx = {1};
  // 28 characters quoted: wider than 20, written in full, no padding;
  // "supbas" fills the six columns exactly.
  EXPECT_EQ(report(s), "Solutions\n" + kItemHead + kVariables +
                           "      \"abcdefghijklmnopqrstuvwxyz\": supbas" + B(24) + "1" + B(24) +
                           "." + B(24) + "." + B(24) + ".\n" + kConstraints);
}

// Numbers under " {:24.16g}": right-aligned in 24. The formatting library
// (fmt 9.1, checked with a separate fmt::format experiment) left-aligns the
// non-finite texts when the field has a width but no alignment:
// fmt::format("{:24.16g}", inf) == "inf" + 21 blanks. That is the library's
// behaviour and the report keeps whatever the format string gives.
TEST(TextReport, NumbersStatusKeysAndAbsentVectors) {
  Solution s;
  s.numvar = 4;
  s.numcon = 2;
  SolutionItem& it = add_item(s);
  it.skx = {'x', 'k', '*'};  // no byte for variable 3
  it.xx = {1e20, 1.5e-05, 2.5, -0.0};
  // slx absent
  it.sux = {kInf, -kInf, kNaN, -kNaN};
  it.snx = {0.1, 12345678901234567.0};  // short: missing elements are dots
  it.skc = {'u', 'B'};
  it.xc = {-1e-300, 1e15};
  it.y = {1e16, 100};
  const std::string dot = B(24) + ".";
  const std::string expected =
      "Solutions\n" + kItemHead + kVariables +
      // 1e+20: 5 characters -> 1 + 19 blanks; 1.5e-05: 7 -> 1 + 17.
      "      var0000" + B(13) + ": fix   " + B(20) + "1e+20" + dot + " inf" + B(21) + B(22) +
      "0.1\n" +
      // 12345678901234567 to 16 digits: 1.234567890123457e+16 (21 -> 1 + 3).
      "      var0001" + B(13) + ": unk   " + B(18) + "1.5e-05" + dot + " -inf" + B(20) + B(4) +
      "1.234567890123457e+16\n" +  //
      "      var0002" + B(13) + ": inf   " + B(22) + "2.5" + dot + " nan" + B(21) + dot + "\n" +
      "      var0003" + B(13) + ": unk   " + B(23) + "-0" + dot + " -nan" + B(20) + dot + "\n" +
      kConstraints +
      // slc and suc absent; 1e16 has 17 digits -> scientific, 1e15 fixed.
      "      con0000" + B(13) + ": upr   " + B(18) + "-1e-300" + dot + dot + B(20) + "1e+16\n" +
      "      con0001" + B(13) + ": unk   " + B(9) + "1000000000000000" + dot + dot + B(22) +
      "100\n";
  EXPECT_EQ(report(s), expected);
}

// One ACC of dimension 3 over one constraint named c
// with status 'l': three identical rows "    " + "\"c\"" + ": " + "low" in six
// columns + " " + doty[0] right-aligned in 24. No column header.
TEST(TextReport, AffineConicRows) {
  Solution s;
  s.numcon = 1;
  s.numacc = 1;
  s.acc_pattern = {3};
  set_names(s.con_names, {"c"});
  set_names(s.acc_names, {"never shown"});
  SolutionItem& it = add_item(s);
  it.skc = {'l'};
  it.doty = {1, 2, 3};
  const std::string row = "    \"c\": low    " + B(23) + "1\n";
  EXPECT_EQ(report(s), "Solutions\n" + kItemHead + kVariables + kConstraints + "      \"c\"" +
                           B(17) + ": low   " + B(24) + "." + B(24) + "." + B(24) + "." + B(24) +
                           ".\n" + "    AffineConicConstraints\n" + row + row + row);
}

// ACC indexes past numcon take the default constraint name and "unk"; an
// absent or short doty gives a dot left-aligned in 24; a zero or missing
// pattern entry prints nothing.
TEST(TextReport, AffineConicPastConstraints) {
  Solution s;
  s.numcon = 0;
  s.numacc = 5;  // entries for 0..3 only
  s.acc_pattern = {1, 0, 2, 1};
  set_names(s.con_names, {"c0", "c1", "c2", "c3"});  // more names than numcon
  SolutionItem& it = add_item(s);
  it.skc = {'b', 'b', 'b'};  // ACC 3 has no byte
  it.doty = {0.5, 7, -3};    // ACC 3 has no value
  const std::string acc2 = "    con0002: bas    " + B(22) + "-3\n";
  EXPECT_EQ(report(s), "Solutions\n" + kItemHead + kVariables + kConstraints +
                           "    AffineConicConstraints\n" +  //
                           "    con0000: bas    " + B(21) + "0.5\n" + acc2 + acc2 +
                           "    con0003: unk    ." + B(23) + "\n");

  it.doty.clear();
  s.numacc = std::int64_t{1} << 40;  // the pattern bounds the rows
  s.acc_pattern = {1};
  EXPECT_EQ(report(s), "Solutions\n" + kItemHead + kVariables + kConstraints +
                           "    AffineConicConstraints\n" + "    con0000: bas    ." + B(23) + "\n");

  s.acc_pattern.clear();
  EXPECT_EQ(report(s),
            "Solutions\n" + kItemHead + kVariables + kConstraints + "    AffineConicConstraints\n");
}

// With bar variables the report ends on the first bar variable's line: the
// formatting library rejects the matrix header, and its exception leaves the
// writer with everything before it already in the stream.
TEST(TextReport, BarVariablesEndTheReport) {
  const auto expect_end = [](Solution& s, const std::string& line) {
    add_item(s);
    add_item(s, "basic");  // never reached
    std::ostringstream out;
    EXPECT_THROW(write_text_report(out, s), fmt::format_error);
    EXPECT_EQ(out.str(), "Solutions\n" + kItemHead + kVariables + "    BarVariables\n" + line);
  };
  {
    // L = 3: sqrt(8*3 + 1) + 1 = 6, n = 3.
    Solution s;
    s.numbarvar = 2;
    s.barvar_pattern = {3, 6};
    expect_end(s, "      barvar0000(3):\n");
  }
  {
    // Named; L = 6: sqrt(49) + 1 = 8, n = 4.
    Solution s;
    s.numbarvar = 1;
    s.barvar_pattern = {6};
    set_names(s.barvar_names, {"X\"0"});
    expect_end(s, "      \"X\\\"0\"(4):\n");
  }
  {
    // Pattern absent: L = 0, sqrt(1) + 1 = 2, n = 1.
    Solution s;
    s.numbarvar = 1;
    expect_end(s, "      barvar0000(1):\n");
  }
  {
    // 8L + 1 is taken modulo 2^64: L = 2^61 gives 1, so n = 1.
    Solution s;
    s.numbarvar = 1;
    s.barvar_pattern = {std::uint64_t{1} << 61};
    expect_end(s, "      barvar0000(1):\n");
  }
  {
    // The exception carries the library's own message.
    Solution s;
    s.numbarvar = 1;
    add_item(s);
    std::ostringstream out;
    try {
      write_text_report(out, s);
      ADD_FAILURE() << "no exception";
    } catch (const fmt::format_error& e) {
      EXPECT_STREQ(e.what(), "argument not found");
    }
  }
}

// More than one buffer's worth of rows arrives complete and in order. Each
// row: 6 + 20 + ": " + 6 + 4 * 25 + "\n" = 135 bytes.
TEST(TextReport, LargeOutput) {
  Solution s;
  s.numvar = 3000;
  SolutionItem& it = add_item(s);
  it.xx.assign(3000, 1);
  const std::string text = report(s);
  const std::string head = "Solutions\n" + kItemHead + kVariables;
  ASSERT_EQ(text.size(), head.size() + 3000 * 135 + kConstraints.size());
  EXPECT_EQ(text.substr(0, head.size()), head);
  EXPECT_EQ(text.substr(head.size() + 2999 * 135, 135), "      var2999" + B(13) + ": unk   " +
                                                            B(24) + "1" + B(24) + "." + B(24) +
                                                            "." + B(24) + ".\n");
  EXPECT_EQ(text.substr(text.size() - kConstraints.size()), kConstraints);
}

}  // namespace
}  // namespace strix
