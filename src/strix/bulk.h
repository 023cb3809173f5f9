// Memory for blocks of many megabytes: the arrays of a solution and the
// compressor's buffers.
#pragma once

#include <cstddef>  // std::size_t

namespace strix {

// A block of at least `bytes` bytes, never null (std::bad_alloc instead).
// Large blocks are aligned to huge pages and marked for them (limits.h):
// their page faults can otherwise cost more than reading the file.
void* allocate_bulk(std::size_t bytes);
void free_bulk(void* p) noexcept;

}  // namespace strix
