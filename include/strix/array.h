// Array<T>: the block of memory each array of a solution is held in.
#pragma once

#include <algorithm>         // std::copy
#include <cstddef>           // std::size_t
#include <cstdint>           // fixed-width integers
#include <initializer_list>  // std::initializer_list
#include <iterator>          // std::distance
#include <type_traits>       // std::is_trivially_copyable_v
#include <utility>           // std::exchange, std::move

namespace strix {

// One array of a solution: the values in one block of memory, in file order.
// The blocks come from an allocator that suits arrays of many megabytes
// (array.cpp); the element types are those of the file's arrays.
template <typename T>
class Array {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  using value_type = T;
  using iterator = T*;
  using const_iterator = const T*;

  Array() noexcept = default;
  Array(std::initializer_list<T> values) { assign(values.begin(), values.end()); }
  Array(Array&& other) noexcept
      : data_(std::exchange(other.data_, nullptr)),
        size_(std::exchange(other.size_, 0)),
        capacity_(std::exchange(other.capacity_, 0)) {}
  Array& operator=(Array&& other) noexcept {
    Array old(std::move(*this));
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
    capacity_ = std::exchange(other.capacity_, 0);
    return *this;
  }
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  ~Array();

  T* data() noexcept { return data_; }
  const T* data() const noexcept { return data_; }
  std::size_t size() const noexcept { return size_; }
  std::size_t capacity() const noexcept { return capacity_; }
  bool empty() const noexcept { return size_ == 0; }
  T& operator[](std::size_t i) noexcept { return data_[i]; }
  const T& operator[](std::size_t i) const noexcept { return data_[i]; }
  T* begin() noexcept { return data_; }
  T* end() noexcept { return data_ + size_; }
  const T* begin() const noexcept { return data_; }
  const T* end() const noexcept { return data_ + size_; }

  // Room for n elements in all, in one block; never shrinks.
  void reserve(std::size_t n);
  // n elements. Added elements are left uninitialised: they are there to be
  // overwritten (the reader reads straight into them).
  void resize(std::size_t n);
  void clear() noexcept { size_ = 0; }
  template <typename It>
  void assign(It first, It last) {
    resize(static_cast<std::size_t>(std::distance(first, last)));
    std::copy(first, last, data_);
  }

 private:
  T* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

extern template class Array<char>;
extern template class Array<std::uint8_t>;
extern template class Array<std::uint32_t>;
extern template class Array<std::int32_t>;
extern template class Array<std::int64_t>;
extern template class Array<std::uint64_t>;
extern template class Array<double>;

}  // namespace strix
