#include "strix/array.h"

#include <algorithm>  // std::max
#include <cstdint>    // fixed-width integers
#include <cstring>    // std::memcpy
#include <limits>     // overflow guard
#include <new>        // std::bad_alloc

#include "strix/bulk.h"
#include "strix/limits.h"
#include "strix/platform/process.h"

namespace strix {

void* allocate_bulk(std::size_t bytes) {
  if (bytes > std::numeric_limits<std::size_t>::max() - kHugePage) throw std::bad_alloc();
  const std::size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
  void* p;
  if (rounded - bytes <= bytes / kHugePageWasteShare) {
    p = platform::allocate_aligned(kHugePage, rounded);
    if (p != nullptr) platform::advise_huge_pages(p, rounded);
  } else {
    p = platform::allocate_aligned(0, bytes);
  }
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

void free_bulk(void* p) noexcept {
  platform::free_aligned(p);
}

template <typename T>
Array<T>::~Array() {
  free_bulk(data_);
}

template <typename T>
void Array<T>::reserve(std::size_t n) {
  if (n <= capacity_) return;
  if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_alloc();
  T* block = static_cast<T*>(allocate_bulk(n * sizeof(T)));
  if (size_ != 0) std::memcpy(block, data_, size_ * sizeof(T));
  free_bulk(data_);
  data_ = block;
  capacity_ = n;
}

template <typename T>
void Array<T>::resize(std::size_t n) {
  // Growing past the room doubles it, so that arrays grown piece by piece
  // cost a logarithmic number of moves.
  if (n > capacity_) reserve(std::max(n, 2 * capacity_));
  size_ = n;
}

template class Array<char>;
template class Array<std::uint8_t>;
template class Array<std::uint32_t>;
template class Array<std::int32_t>;
template class Array<std::int64_t>;
template class Array<std::uint64_t>;
template class Array<double>;

}  // namespace strix
