// How the writers lay a solution out, for code that shows it the same way
// (the Python module's tables and blocks): the names of items that have
// none of their own, the tables of the variables and the constraints, and
// how a pattern cuts a flat vector (barx, bars, doty) into blocks.
#pragma once

#include <algorithm>    // std::min
#include <array>        // the value columns
#include <cstddef>      // std::size_t
#include <cstdint>      // fixed-width integers
#include <string_view>  // std::string_view
#include <vector>       // the bounds

#include "strix/solution.h"

namespace strix {

// Room for a default name: a prefix of at most 11 bytes and a 64-bit index.
inline constexpr std::size_t kDefaultNameSize = 32;

// The name of item `index` of a kind where the file gives it none: the
// prefix and the index in at least four digits ("var0007", "con12345"),
// written into `buffer`. The prefix is at most 11 bytes.
std::string_view default_name(std::string_view prefix, std::int64_t index,
                              char (&buffer)[kDefaultNameSize]);

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

// The bounds of the blocks that `pattern` cuts from `value_count` values:
// block b is [bounds[b], bounds[b + 1]), and there are pattern.size() + 1
// bounds. The pattern alone decides the shape: values beyond its sum belong
// to no block, and an empty pattern gives no blocks. The values are not
// trusted to cover the whole sum: a block is cut short where they run out,
// and every later block is empty.
inline std::vector<std::size_t> block_bounds(std::size_t value_count,
                                             const Array<std::uint64_t>& pattern) {
  std::vector<std::size_t> bounds(pattern.size() + 1);
  std::size_t next = 0;
  for (std::size_t b = 0; b < pattern.size(); ++b) {
    bounds[b] = next;
    next += static_cast<std::size_t>(std::min<std::uint64_t>(pattern[b], value_count - next));
  }
  bounds[pattern.size()] = next;
  return bounds;
}

}  // namespace strix
