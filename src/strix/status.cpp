#include "strix/status.h"

#include <array>    // name tables
#include <cstddef>  // std::size_t

namespace strix {
namespace {

struct StatusRow {
  std::string_view raw;
  StatusNamePair names;
};

constexpr StatusNamePair kUnknownPair{"unknown", "unknown"};

// The spellings are the ones solution files carry, mixed as they are
// ("PRIMAL_FEASIBLE" beside "PRIM_INFEAS_CER"); no aliases.
constexpr std::array<StatusRow, 9> kSolutionStatus{{
    {"OPTIMAL", {"optimal", "optimal"}},
    {"PRIMAL_FEASIBLE", {"feasible", "unknown"}},
    {"DUAL_FEASIBLE", {"unknown", "feasible"}},
    {"PRIMAL_AND_DUAL_FEAS", {"feasible", "feasible"}},
    {"PRIM_INFEAS_CER", {"unknown", "infeas_cert"}},
    {"DUAL_INFEAS_CER", {"infeas_cert", "unknown"}},
    {"PRIM_ILLPOSED_CER", {"unknown", "illposed_cert"}},
    {"DUAL_ILLPOSED_CER", {"illposed_cert", "unknown"}},
    {"INTEGER_OPTIMAL", {"optimal", "unknown"}},
}};

// An infeasible primal is recognised only as "PRIMAL_INFEAS", beside
// "PRIM_FEAS" and "PRIM_AND_DUAL_INFEAS": that is what the files hold.
constexpr std::array<StatusRow, 8> kProblemStatus{{
    {"PRIM_FEAS", {"feasible", "unknown"}},
    {"DUAL_FEAS", {"unknown", "feasible"}},
    {"PRIM_AND_DUAL_FEAS", {"feasible", "feasible"}},
    {"PRIMAL_INFEAS", {"infeasible", "unknown"}},
    {"DUAL_INFEAS", {"unknown", "infeasible"}},
    {"PRIM_AND_DUAL_INFEAS", {"infeasible", "infeasible"}},
    {"ILL_POSED", {"illposed", "illposed"}},
    {"PRIM_INFEAS_OR_UNBOUNDED", {"infeasible_or_unbounded", "infeasible_or_unbounded"}},
}};

template <std::size_t N>
StatusNamePair lookup(const std::array<StatusRow, N>& table, std::string_view raw) {
  for (const StatusRow& row : table) {
    if (row.raw == raw) return row.names;  // whole-string, case-sensitive match
  }
  return kUnknownPair;
}

}  // namespace

const char* status_key_name(std::uint8_t key) {
  switch (key) {
    case 'b':
      return "bas";
    case 's':
      return "supbas";
    case 'l':
      return "low";
    case 'u':
      return "upr";
    case 'x':
      return "fix";
    case '*':
      return "inf";
    default:
      return kUnknownKeyName;
  }
}

StatusNamePair solution_status_names(std::string_view solsta) {
  return lookup(kSolutionStatus, solsta);
}

StatusNamePair problem_status_names(std::string_view prosta) {
  return lookup(kProblemStatus, prosta);
}

}  // namespace strix
