// The text report's layout, which the Python module's tables follow too:
// the names of items that have none of their own, and the tables of the
// variables and the constraints.
#pragma once

#include <array>        // the value columns
#include <cstddef>      // std::size_t
#include <cstdint>      // fixed-width integers
#include <string_view>  // std::string_view

#include <fmt/compile.h>  // FMT_COMPILE
#include <fmt/format.h>   // fmt::format_to

#include "strix/solution.h"

namespace strix {

// Room for a default name: a prefix of at most 11 bytes and a 64-bit index.
inline constexpr std::size_t kDefaultNameSize = 32;

// The name of item `index` of a kind where the file gives it none: the
// prefix and the index in at least four digits ("var0007", "con12345"),
// written into `buffer`. The prefix is at most 11 bytes.
inline std::string_view default_name(std::string_view prefix, std::int64_t index,
                                     char (&buffer)[kDefaultNameSize]) {
  const char* end = fmt::format_to(buffer, FMT_COMPILE("{}{:04d}"), prefix, index);
  return {buffer, static_cast<std::size_t>(end - buffer)};
}

// One table of items, one row each: its name, its status key and four
// value columns.
struct ReportTable {
  std::string_view prefix;       // of the default names
  NameList Solution::*names;     // the names of the rows
  std::int32_t Solution::*rows;  // how many rows
  Vector keys;                   // the status column
  std::array<Vector, 4> values;  // the value columns, in order
};

inline constexpr ReportTable kVariableTable{"var",
                                            &Solution::var_names,
                                            &Solution::numvar,
                                            Vector::skx,
                                            {Vector::xx, Vector::slx, Vector::sux, Vector::snx}};
inline constexpr ReportTable kConstraintTable{"con",
                                              &Solution::con_names,
                                              &Solution::numcon,
                                              Vector::skc,
                                              {Vector::xc, Vector::slc, Vector::suc, Vector::y}};

}  // namespace strix
