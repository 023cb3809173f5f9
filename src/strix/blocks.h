// How a pattern cuts a flat vector (barx, bars, doty) into blocks.
#pragma once

#include <algorithm>  // std::min
#include <cstddef>    // std::size_t
#include <cstdint>    // std::uint64_t
#include <vector>     // the bounds

#include "strix/array.h"

namespace strix {

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
