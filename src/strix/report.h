// Status names of the text report.
#pragma once

#include <string_view>  // std::string_view

namespace strix {

struct StatusNamePair {
  const char* primal;
  const char* dual;
};

StatusNamePair solution_status_names(std::string_view solsta);
StatusNamePair problem_status_names(std::string_view prosta);

}  // namespace strix
