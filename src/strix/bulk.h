// Memory for the solution's arrays.
#pragma once

#include <cstddef>  // std::size_t

namespace strix {

// A block of at least `bytes` bytes, never null (std::bad_alloc instead).
// Blocks of 4 MiB and more are aligned to 2 MiB and marked for transparent
// huge pages: filling a 100 MB solution then takes a few dozen page faults
// instead of tens of thousands, which on some machines costs more than
// reading the file.
void* allocate_bulk(std::size_t bytes);
void free_bulk(void* p) noexcept;

}  // namespace strix
