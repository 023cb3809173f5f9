// Status names and the human-readable text report.
#pragma once

#include <cstdint>      // std::uint8_t
#include <ostream>      // std::ostream
#include <string>       // std::string
#include <string_view>  // std::string_view

namespace strix {

struct StatusNamePair {
  const char* primal;
  const char* dual;
};

StatusNamePair solution_status_names(std::string_view solsta);
StatusNamePair problem_status_names(std::string_view prosta);

// Appends a model name quoted, in the report's own escape style
// ("\x0c", "\xe9"), which differs from the JSON writer's on purpose.
void quote_name(std::string& out, std::string_view name);

}  // namespace strix
