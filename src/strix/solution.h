// The in-memory solution and the reader that fills it from a solution file.
#pragma once

#include <array>        // std::array
#include <cstddef>      // std::size_t
#include <cstdint>      // fixed-width integers
#include <limits>       // quiet NaN
#include <list>         // std::list
#include <memory>       // std::unique_ptr
#include <new>          // placement new
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <type_traits>  // std::is_nothrow_default_constructible_v
#include <utility>      // std::forward
#include <vector>       // std::vector

namespace strix {

class Reader;

void* allocate_bulk(std::size_t bytes);
void free_bulk(void* p) noexcept;

// Allocator of the solution's arrays. Blocks of 4 MiB and more are aligned
// to 2 MiB and marked for transparent huge pages: filling a 100 MB solution
// then takes a few dozen page faults instead of tens of thousands, which on
// some machines costs more than reading the file.
template <typename T>
struct BulkAllocator {
  using value_type = T;
  BulkAllocator() = default;
  template <typename U>
  BulkAllocator(const BulkAllocator<U>&) noexcept {}
  T* allocate(std::size_t n) { return static_cast<T*>(allocate_bulk(n * sizeof(T))); }
  void deallocate(T* p, std::size_t) noexcept { free_bulk(p); }
  // Elements added by resize() are left uninitialised: the reader resizes
  // to read into the new room and cuts back to what arrived, so zeroing
  // them first would only cost a pass over every array.
  template <typename U>
  void construct(U* p) noexcept(std::is_nothrow_default_constructible_v<U>) {
    ::new (static_cast<void*>(p)) U;
  }
  template <typename U, typename... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
  template <typename U>
  bool operator==(const BulkAllocator<U>&) const noexcept {
    return true;
  }
};

template <typename T>
using Array = std::vector<T, BulkAllocator<T>>;

// Names of one kind: all bytes back to back in `buffer`, and one view per
// name into it. The views are cut only after the buffer has stopped growing,
// and the buffer is a vector so that moving the list keeps them valid.
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
// InconsistentSolution on a bad file; the reader's own failures pass through.
std::unique_ptr<Solution> read_solution(Reader& reader);

}  // namespace strix
