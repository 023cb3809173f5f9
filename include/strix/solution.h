// The in-memory solution and the reader that fills it from a solution file.
#pragma once

#include <array>        // std::array
#include <cstdint>      // fixed-width integers
#include <filesystem>   // std::filesystem::path
#include <limits>       // quiet NaN
#include <list>         // std::list
#include <memory>       // std::unique_ptr
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <vector>       // std::vector

#include "strix/array.h"

namespace strix {

class Reader;

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

// Reads a whole solution file from a reader (streams.h). Throws
// IncompatibleFileError, FormatError or InconsistentSolution (errors.h) on a
// bad file; the reader's own failures pass through.
std::unique_ptr<Solution> read_solution(Reader& reader);

// Reads the solution file at `path`, Zstandard-compressed when the name ends
// in ".zst", plain otherwise. A path is only a path: "-.b" is a file of that
// name (standard input is read_solution over an FDescReader of stdin). The
// errors above, and IOError and zstd::CompressionError, name the file.
std::unique_ptr<Solution> read_solution_file(const std::filesystem::path& path);

}  // namespace strix
