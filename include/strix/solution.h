// The in-memory solution and the reader that fills it from a solution file.
#pragma once

#include <array>        // std::array
#include <bitset>       // std::bitset
#include <cstdint>      // fixed-width integers
#include <exception>    // std::exception_ptr
#include <filesystem>   // std::filesystem::path
#include <limits>       // quiet NaN
#include <list>         // std::list
#include <memory>       // std::unique_ptr
#include <optional>     // std::optional
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <utility>      // std::index_sequence
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

// The kinds of solution a file may hold, in file order.
enum class SolutionKind : std::uint8_t { interior, basic, integer };
inline constexpr std::size_t kSolutionKindCount = 3;
inline constexpr std::array<std::string_view, kSolutionKindCount> kSolutionKindNames{
    "interior", "basic", "integer"};

// The vectors of a solution, each named by its key.
enum class Vector : std::uint8_t {
  skx,
  skc,
  skn,
  xx,
  slx,
  sux,
  snx,
  xc,
  y,
  slc,
  suc,
  barx,
  bars,
  doty
};
inline constexpr std::size_t kVectorCount = 14;

// What a vector's entries stand for: one per variable, constraint or cone,
// or values that the bar variable or ACC pattern cuts into blocks.
enum class Axis : std::uint8_t { variables, constraints, cones, barvar_blocks, acc_blocks };

// One row of the table of vectors: exactly one of `keys` and `values` is set.
struct VectorInfo {
  Vector id;
  std::string_view key;
  Axis axis;
  Array<std::uint8_t> SolutionItem::*keys;
  Array<double> SolutionItem::*values;
};

// Every vector, in the order of Vector.
inline constexpr std::array<VectorInfo, kVectorCount> kVectors{{
    {Vector::skx, "skx", Axis::variables, &SolutionItem::skx, nullptr},
    {Vector::skc, "skc", Axis::constraints, &SolutionItem::skc, nullptr},
    {Vector::skn, "skn", Axis::cones, &SolutionItem::skn, nullptr},
    {Vector::xx, "xx", Axis::variables, nullptr, &SolutionItem::xx},
    {Vector::slx, "slx", Axis::variables, nullptr, &SolutionItem::slx},
    {Vector::sux, "sux", Axis::variables, nullptr, &SolutionItem::sux},
    {Vector::snx, "snx", Axis::variables, nullptr, &SolutionItem::snx},
    {Vector::xc, "xc", Axis::constraints, nullptr, &SolutionItem::xc},
    {Vector::y, "y", Axis::constraints, nullptr, &SolutionItem::y},
    {Vector::slc, "slc", Axis::constraints, nullptr, &SolutionItem::slc},
    {Vector::suc, "suc", Axis::constraints, nullptr, &SolutionItem::suc},
    {Vector::barx, "barx", Axis::barvar_blocks, nullptr, &SolutionItem::barx},
    {Vector::bars, "bars", Axis::barvar_blocks, nullptr, &SolutionItem::bars},
    {Vector::doty, "doty", Axis::acc_blocks, nullptr, &SolutionItem::doty},
}};

// The row of the table for `v`.
constexpr const VectorInfo& vector_info(Vector v) {
  return kVectors[static_cast<std::size_t>(v)];
}

// The kind or vector of that name, if there is one.
std::optional<SolutionKind> solution_kind_named(std::string_view name);
std::optional<Vector> vector_named(std::string_view name);

// What a read keeps; the rest of the file is passed over, and where the
// source can seek, not read. A vector not kept is empty, a solution kind not
// kept is absent, name lists not kept are empty. Whatever is kept, a file
// fails exactly as a full read of it fails. Statuses, objectives, counts,
// patterns and information items are always kept.
struct ReadOptions {
  std::bitset<kSolutionKindCount> kinds{(1u << kSolutionKindCount) - 1};  // by SolutionKind
  std::bitset<kVectorCount> vectors{(1u << kVectorCount) - 1};            // by Vector
  bool names = true;                                                      // var_names ... acc_names

  bool keeps(SolutionKind k) const { return kinds.test(static_cast<std::size_t>(k)); }
  bool keeps(Vector v) const { return vectors.test(static_cast<std::size_t>(v)); }
  void keep(Vector v) { vectors.set(static_cast<std::size_t>(v)); }
  void keep(SolutionKind k) { kinds.set(static_cast<std::size_t>(k)); }
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

  ReadOptions kept;  // what the read that made this solution kept

  Solution() = default;
  Solution(const Solution&) = delete;
  Solution& operator=(const Solution&) = delete;
};

// The name lists of a solution, in file order: the kind of item each names
// (its section in the file is "name/" and the kind) and its field.
struct NameListInfo {
  std::string_view kind;
  std::string_view field;
  NameList Solution::*list;
};
inline constexpr std::array<NameListInfo, 5> kNameLists{{
    {"var", "var_names", &Solution::var_names},
    {"barvar", "barvar_names", &Solution::barvar_names},
    {"con", "con_names", &Solution::con_names},
    {"cone", "cone_names", &Solution::cone_names},
    {"acc", "acc_names", &Solution::acc_names},
}};

// The one walk over the model: visit(name, member) for every field of a
// SolutionItem or a Solution, a pointer to the member with its name, in a
// fixed order. Equality, pickling and the properties of the Python module
// and the fuzzer's comparison all walk the model this way, so that a field
// reaches each of them from here: a visitor that has no case for its type
// does not compile. fields_are_walked below stops the build when a field
// is added to the structs and not here.
//
// An item: the kind, the statuses, the objectives, then the vectors in the
// order of kVectors.
template <typename Visit>
constexpr void walk_item_fields(Visit&& visit) {
  visit(std::string_view("kind"), &SolutionItem::kind);
  visit(std::string_view("prosta"), &SolutionItem::prosta);
  visit(std::string_view("solsta"), &SolutionItem::solsta);
  visit(std::string_view("pobj"), &SolutionItem::pobj);
  visit(std::string_view("dobj"), &SolutionItem::dobj);
  [&]<std::size_t... V>(std::index_sequence<V...>) {
    const auto vector = [&]<std::size_t I>(std::integral_constant<std::size_t, I>) {
      constexpr VectorInfo info = kVectors[I];
      if constexpr (info.keys != nullptr) {
        visit(info.key, info.keys);
      } else {
        visit(info.key, info.values);
      }
    };
    (vector(std::integral_constant<std::size_t, V>{}), ...);
  }
  (std::make_index_sequence<kVectorCount>{});
}

// A solution: the version and the counts, the patterns, the solutions, the
// name lists in the order of kNameLists, the information items, and what
// the read kept.
template <typename Visit>
constexpr void walk_solution_fields(Visit&& visit) {
  visit(std::string_view("version"), &Solution::version);
  visit(std::string_view("numvar"), &Solution::numvar);
  visit(std::string_view("numcon"), &Solution::numcon);
  visit(std::string_view("numcone"), &Solution::numcone);
  visit(std::string_view("numbarvar"), &Solution::numbarvar);
  visit(std::string_view("numacc"), &Solution::numacc);
  visit(std::string_view("barvar_pattern"), &Solution::barvar_pattern);
  visit(std::string_view("acc_pattern"), &Solution::acc_pattern);
  visit(std::string_view("solutions"), &Solution::solutions);
  for (const NameListInfo& names : kNameLists) visit(names.field, names.list);
  visit(std::string_view("info_i32"), &Solution::info_i32);
  visit(std::string_view("info_i64"), &Solution::info_i64);
  visit(std::string_view("info_f64"), &Solution::info_f64);
  visit(std::string_view("kept"), &Solution::kept);
}

// Does not compile once SolutionItem or Solution has a field that is not
// bound here: a field added to the model is added to the walks above and
// here. Never called.
inline void fields_are_walked(SolutionItem& item, Solution& solution) {
  [[maybe_unused]] auto& [kind, prosta, solsta, pobj, dobj, skx, skc, skn, xx, slx, sux, snx, xc, y,
                          slc, suc, barx, bars, doty] = item;
  [[maybe_unused]] auto& [solutions, version, numvar, numcon, numcone, numbarvar, numacc, info_i32,
                          info_i64, info_f64, barvar_pattern, acc_pattern, var_names, barvar_names,
                          con_names, cone_names, acc_names, kept] = solution;
}

// Reads a solution file from a reader (streams.h), keeping what `options`
// asks for. Throws IncompatibleFileError, FormatError or
// InconsistentSolution (errors.h) on a bad file; the reader's own failures
// pass through.
std::unique_ptr<Solution> read_solution(Reader& reader, const ReadOptions& options = {});

// Reads the solution file at `path`, Zstandard-compressed when the name ends
// in ".zst", plain otherwise. A path is only a path: "-.b" is a file of that
// name (standard input is read_solution over an FDescReader of stdin). The
// errors above, and IOError and zstd::CompressionError, name the file.
std::unique_ptr<Solution> read_solution_file(const std::filesystem::path& path,
                                             const ReadOptions& options = {});

// Reads the solution file named as the strix command names its input:
// "-.b" and "-.b.zst" are standard input, plain and Zstandard; any other
// name as read_solution_file reads it, but that a name ending in ".gz" is
// refused with UnsupportedInput.
std::unique_ptr<Solution> read_solution_named(const std::filesystem::path& name,
                                              const ReadOptions& options = {});

// Reads many files on a pool of `threads` (pool.h), each as
// read_solution_named does, and every failure names its file. Entry i is file i's solution or,
// where it failed, its exception and no solution. With `stop_at_failure`,
// files after the first one (in the given order) that failed are not read.
struct FileRead {
  std::unique_ptr<Solution> solution;
  std::exception_ptr failure;
};
std::vector<FileRead> read_solution_files(const std::vector<std::filesystem::path>& paths,
                                          const ReadOptions& options, unsigned threads,
                                          bool stop_at_failure);

}  // namespace strix
