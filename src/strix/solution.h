// The in-memory solution and the reader that fills it from a solution file.
#pragma once

#include <algorithm>         // std::copy
#include <array>             // std::array
#include <cstddef>           // std::size_t
#include <cstdint>           // fixed-width integers
#include <initializer_list>  // std::initializer_list
#include <iterator>          // std::distance
#include <limits>            // quiet NaN
#include <list>              // std::list
#include <memory>            // std::unique_ptr
#include <string>            // std::string
#include <string_view>       // std::string_view
#include <type_traits>       // std::is_trivially_copyable_v
#include <utility>           // std::exchange
#include <vector>            // std::vector

namespace strix {

class Reader;

// One array of a solution: the values in one block of memory, in file order.
// The blocks come from the library's allocator (bulk.h), which suits arrays
// of many megabytes; the element types are those of the file's arrays.
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

// Names of one kind: all bytes back to back in `buffer`, and one view per
// name into it. The views are cut only after the buffer has stopped growing,
// and moving the list moves the block, so they stay valid.
struct NameList {
  Array<char> buffer;
  std::vector<std::string_view> names;

  NameList() = default;
  NameList(const NameList&) = delete;
  NameList& operator=(const NameList&) = delete;
};

// Information items of one value type: names parallel to values.
template <typename T>
struct InfoGroup {
  NameList names;
  Array<T> values;
};

// One solution. An empty vector means its section was absent from the file.
struct SolutionItem {
  std::string kind;    // "interior", "basic" or "integer"
  std::string prosta;  // kept exactly as stored
  std::string solsta;
  double pobj = std::numeric_limits<double>::quiet_NaN();
  double dobj = std::numeric_limits<double>::quiet_NaN();
  Array<std::uint8_t> skx, skc, skn;  // status key bytes, unchecked
  Array<double> xx, slx, sux, snx;
  Array<double> xc, y, slc, suc;
  Array<double> barx, bars;  // sum(barvar_pattern) values, unchecked
  Array<double> doty;        // sum(acc_pattern) values, unchecked
};

// One solution file. Sizes are only checked where the reader says so: a
// writer must not assume skn, barx, bars, doty, the status keys of the
// variables or the name lists have the lengths the sizes suggest.
struct Solution {
  std::list<SolutionItem> solutions;  // interior, basic, integer; each optional
  std::array<std::int32_t, 3> version{};
  std::int32_t numvar = 0;
  std::int32_t numcon = 0;
  std::int32_t numcone = 0;
  std::int32_t numbarvar = 0;
  std::int64_t numacc = 0;

  InfoGroup<std::int32_t> info_i32;
  InfoGroup<std::int64_t> info_i64;
  InfoGroup<double> info_f64;

  Array<std::uint64_t> barvar_pattern;  // empty when absent
  Array<std::uint64_t> acc_pattern;     // empty when absent

  NameList var_names, barvar_names, con_names, cone_names, acc_names;

  Solution() = default;
  Solution(const Solution&) = delete;
  Solution& operator=(const Solution&) = delete;
};

// Reads a whole solution file. Throws IncompatibleFileError, FormatError or
// InconsistentSolution (errors.h) on a bad file; the reader's own failures
// pass through.
std::unique_ptr<Solution> read_solution(Reader& reader);

// The name of a status key: "bas", "supbas", "low", "upr", "fix", "inf",
// or "unk" for any other byte.
const char* status_key_name(std::uint8_t key);

}  // namespace strix
