// Status names and the text report's rules that whole reports through the
// binary do not reach. Blank runs are spelled B(n), with n counted from the
// field widths as the comments show.
#include <cstdint>      // fixed-width integers
#include <sstream>      // std::ostringstream
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <utility>      // std::pair
#include <vector>       // std::vector

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "strix/escape.h"
#include "strix/report.h"
#include "strix/solution.h"
#include "strix/writers.h"
#include "test_util.h"

namespace strix {
namespace {

using namespace std::string_literals;
using strix_test::set_names;

std::string B(int n) {
  return std::string(static_cast<std::size_t>(n), ' ');
}

SolutionItem& add_item(Solution& s, const std::string& kind = "interior") {
  SolutionItem& item = s.solutions.emplace_back();
  item.kind = kind;
  item.solsta = "OPTIMAL";
  item.prosta = "PRIM_AND_DUAL_FEAS";
  item.pobj = item.dobj = 2.5;
  return item;
}

std::string report(const Solution& s) {
  std::ostringstream out;
  write_text_report(out, s);
  return out.str();
}

// "Solutions" and the lines of an item made by add_item up to its variables.
// Header: "    # " + "name" left in 20 (16 blanks) + "  " -> 18 blanks; "sta"
// in 6 (3 blanks) + " " + "xx" right in 24 (22 blanks) -> 26 blanks; each
// later name right in 24 after one separator: 3 letters -> 22 blanks, "y" 24.
const std::string kHead =
    "Solutions\n"
    "  Solution interior\n"
    "    SolutionStatus optimal optimal\n"
    "    ProblemStatus feasible feasible\n"
    "    Objective 2.5 2.5\n"
    "    Variables\n"
    "    # name" +
    B(18) + "sta" + B(26) + "xx" + B(22) + "slx" + B(22) + "sux" + B(22) + "snx\n";
const std::string kConstraints = "    Constraints\n    # name" + B(18) + "sta" + B(26) + "xc" +
                                 B(22) + "slc" + B(22) + "suc" + B(24) + "y\n";
// An absent vector's element: " {:>24s}" with ".".
const std::string kDot = B(24) + ".";

TEST(StatusNames, WholeStringMatchesOnly) {
  struct Case {
    std::string text;
    const char* primal;
    const char* dual;
  };
  const Case solution_cases[] = {
      {"OPTIMAL", "optimal", "optimal"},
      {"PRIMAL_FEASIBLE", "feasible", "unknown"},
      {"DUAL_FEASIBLE", "unknown", "feasible"},
      {"PRIMAL_AND_DUAL_FEAS", "feasible", "feasible"},
      {"PRIM_INFEAS_CER", "unknown", "infeas_cert"},
      {"DUAL_INFEAS_CER", "infeas_cert", "unknown"},
      {"PRIM_ILLPOSED_CER", "unknown", "illposed_cert"},
      {"DUAL_ILLPOSED_CER", "illposed_cert", "unknown"},
      {"INTEGER_OPTIMAL", "optimal", "unknown"},
  };
  const Case problem_cases[] = {
      {"PRIM_FEAS", "feasible", "unknown"},
      {"DUAL_FEAS", "unknown", "feasible"},
      {"PRIM_AND_DUAL_FEAS", "feasible", "feasible"},
      {"PRIMAL_INFEAS", "infeasible", "unknown"},
      {"DUAL_INFEAS", "unknown", "infeasible"},
      {"PRIM_AND_DUAL_INFEAS", "infeasible", "infeasible"},
      {"ILL_POSED", "illposed", "illposed"},
      {"PRIM_INFEAS_OR_UNBOUNDED", "infeasible_or_unbounded", "infeasible_or_unbounded"},
  };
  const auto expect = [](StatusNamePair p, const char* primal, const char* dual) {
    EXPECT_STREQ(p.primal, primal);
    EXPECT_STREQ(p.dual, dual);
  };
  for (const Case& c : solution_cases) expect(solution_status_names(c.text), c.primal, c.dual);
  for (const Case& c : problem_cases) expect(problem_status_names(c.text), c.primal, c.dual);
  // Case-sensitive, whole string, no aliases: the two tables spell "feasible"
  // and "infeasible" differently, and neither knows the other's spelling.
  for (const std::string& text :
       {"OPTIMAL "s, "optimal"s, "OPTIMA"s, ""s, "PRIM_AND_DUAL_FEAS"s, "OPTIMAL\0"s}) {
    expect(solution_status_names(text), "unknown", "unknown");
  }
  for (const std::string& text :
       {"PRIM_INFEAS"s, "PRIMAL_AND_DUAL_FEAS"s, "prim_feas"s, "ILL\0POSED"s, "ILL_POSED\0"s}) {
    expect(problem_status_names(text), "unknown", "unknown");
  }
}

TEST(QuoteName, EscapesInTheReportsOwnStyle) {
  const std::pair<std::string, std::string> cases[] = {
      {"", R"("")"},
      {"a\"b", R"("a\"b")"},
      {"a\\b", R"("a\\b")"},
      {"\b\t\n\r", R"("\b\t\n\r")"},
      // Other control bytes and every byte from 0x80 up as \x and two
      // lower-case hexadecimal digits; DEL and printable ASCII unchanged.
      {"\x0c\x0b\0\x1f"s, R"("\x0c\x0b\x00\x1f")"},
      {"caf\xe9", R"("caf\xe9")"},
      {"\x80\xff\x7f ~", "\"\\x80\\xff\x7f ~\""},
  };
  for (const auto& [name, quoted] : cases) {
    std::string out = "prefix:";  // appends, never replaces
    out += '"';
    append_escaped(out, name, kReportEscapes);
    out += '"';
    EXPECT_EQ(out, "prefix:" + quoted);
  }
}

TEST(TextReport, HugeCountsWithoutSolutions) {
  Solution s;
  s.numvar = s.numcon = s.numcone = s.numbarvar = 2147483647;
  s.numacc = std::int64_t{1} << 40;
  s.acc_pattern = {1};
  EXPECT_EQ(report(s), "Solutions\n");
}

// Status bytes, names and doty are not checked against the counts: what is
// missing takes "unk", the default name or ".". ACC a shows the name, status
// and doty element of constraint a, whatever the ACC's own rows.
TEST(TextReport, MissingElementsTakeDefaults) {
  Solution s;
  s.numvar = 2;
  s.numcon = 1;
  s.numacc = 3;  // the pattern has entries for ACCs 0 and 1 only
  s.acc_pattern = {1, 2};
  set_names(s.var_names, {"a"});  // no name for variable 1
  SolutionItem& it = add_item(s);
  it.skx = {'l'};   // no byte for variable 1
  it.xx = {1};      // no value for variable 1
  it.skc = {'u'};   // no byte for ACC 1
  it.doty = {0.5};  // no value for ACC 1
  // Names left in 20: "\"a\"" + 17 blanks, "var0001" + 13; status in 6:
  // "low" + 3 blanks; " {:24.16g}" of 1: 24 blanks and "1"; a missing value is
  // a dot like an absent vector. ACC rows: "{:6s} " then 0.5 in 24 (21
  // blanks), or a dot left in 24 (23 blanks after it).
  const std::string acc1 = "    con0001: unk    ." + B(23) + "\n";
  EXPECT_EQ(report(s), kHead + "      \"a\"" + B(17) + ": low   " + B(24) + "1" + kDot + kDot +
                           kDot + "\n" + "      var0001" + B(13) + ": unk   " + kDot + kDot + kDot +
                           kDot + "\n" + kConstraints + "      con0000" + B(13) + ": upr   " +
                           kDot + kDot + kDot + kDot + "\n" + "    AffineConicConstraints\n" +
                           "    con0000: upr    " + B(21) + "0.5\n" + acc1 + acc1);
}

// With bar variables the report ends on the first bar variable's line: the
// formatting library rejects the matrix header, whose four fields get three
// arguments, and everything before it is already in the stream.
TEST(TextReport, BarVariablesEndTheReport) {
  struct Case {
    std::vector<std::uint64_t> pattern;
    std::string name;
    std::string line;
  };
  // n = trunc(sqrt(8L + 1) + 1) / 2 for the first entry L.
  const Case cases[] = {
      {{3, 6}, "", "      barvar0000(3):\n"},                    // sqrt(25) + 1 = 6
      {{1}, "", "      barvar0000(2):\n"},                       // sqrt(9) + 1 = 4
      {{6}, "X\"0", "      \"X\\\"0\"(4):\n"},                   // sqrt(49) + 1 = 8; quoted name
      {{}, "", "      barvar0000(1):\n"},                        // no entry: L = 0, sqrt(1) + 1 = 2
      {{std::uint64_t{1} << 61}, "", "      barvar0000(1):\n"},  // 8L + 1 wraps to 1
  };
  for (const Case& c : cases) {
    Solution s;
    s.numbarvar = 2;
    s.barvar_pattern.assign(c.pattern.begin(), c.pattern.end());
    if (!c.name.empty()) set_names(s.barvar_names, {c.name});
    add_item(s);
    add_item(s, "basic");  // never reached
    std::ostringstream out;
    EXPECT_THROW(write_text_report(out, s), fmt::format_error);
    EXPECT_EQ(out.str(), kHead + "    BarVariables\n" + c.line);
  }
}

}  // namespace
}  // namespace strix
