// Names of the statuses a solution file stores: the status-key bytes, and
// the solution and problem statuses as a primal and a dual name each.
#pragma once

#include <cstdint>      // std::uint8_t
#include <string_view>  // std::string_view

namespace strix {

// The name of a byte that is no status key, and of a status key that a
// table's row lacks (the file's keys are not checked against the counts).
inline constexpr const char kUnknownKeyName[] = "unk";

// The name of a status key: "bas", "supbas", "low", "upr", "fix", "inf",
// or kUnknownKeyName for any other byte.
const char* status_key_name(std::uint8_t key);

struct StatusNamePair {
  const char* primal;
  const char* dual;
};

// A status matches only as a whole, case-sensitive, in the solver's own
// spelling; anything else is "unknown" twice.
StatusNamePair solution_status_names(std::string_view solsta);
StatusNamePair problem_status_names(std::string_view prosta);

}  // namespace strix
