#include "strix/solution.h"

#include <atomic>        // the files' shared counters
#include <cstring>       // std::memcpy
#include <numeric>       // std::accumulate
#include <system_error>  // std::system_error
#include <thread>        // std::jthread
#include <type_traits>   // std::is_same_v

#include "strix/errors.h"
#include "strix/names.h"
#include "strix/platform/files.h"
#include "strix/record.h"
#include "strix/streams.h"
#include "strix/threads.h"  // thread_budget

namespace strix {

namespace {

// A solution's sections are named "sol/" and its kind, then the part.
constexpr std::string_view kSolutionPrefix = "sol/";

// Section names of the name lists, in file order.
struct NamesSection {
  std::string_view name;
  NameList Solution::*list;
};
constexpr NamesSection kNamesSections[] = {
    {"name/var", &Solution::var_names}, {"name/barvar", &Solution::barvar_names},
    {"name/con", &Solution::con_names}, {"name/cone", &Solution::cone_names},
    {"name/acc", &Solution::acc_names},
};

[[noreturn]] void fail(std::int32_t line, std::string_view message) {
  throw FormatError(message, CheckNumber{kSourceFile, line});
}

// Cuts one view per length from the buffer, name k following name k-1. The
// lengths are not checked against the buffer: a name that runs past its end
// is cut short there.
template <typename Len>
void cut_names(NameList& list, const Len& lengths) {
  const std::uint64_t size = list.buffer.size();
  std::uint64_t pos = 0;
  list.names.reserve(lengths.size());
  for (const auto length : lengths) {
    const std::uint64_t start = std::min<std::uint64_t>(pos, size);
    const std::uint64_t n = std::min<std::uint64_t>(length, size - start);
    list.names.emplace_back(list.buffer.data() + start, n);
    pos += length;
  }
}

template <typename T>
T read_scalar(Reader& in) {
  unsigned char bytes[sizeof(T)];
  read_exact_or_zero(in, bytes, sizeof bytes);
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

std::uint64_t sum(const Array<std::uint64_t>& values) {
  // Wraps like the 64-bit counts it stands for; only used to size reads.
  return std::accumulate(values.begin(), values.end(), std::uint64_t{0});
}

class SolutionFileReader {
 public:
  SolutionFileReader(Reader& in, const ReadOptions& options) : in_(in), options_(options) {
    sol_->kept = options;
  }

  std::unique_ptr<Solution> read();

 private:
  void next() { header_ = read_section_header(in_, scratch_); }
  bool at(std::string_view name) const { return header_.name == name; }
  // Whether the header in hand is s followed by suffix.
  bool at(std::string_view s, std::string_view suffix) const {
    return header_.name.size() == s.size() + suffix.size() && header_.name.starts_with(s) &&
           header_.name.ends_with(suffix);
  }
  bool format_is(std::string_view format) const { return header_.format == format; }
  void require(std::string_view name, std::string_view format, std::int32_t line,
               std::string_view message) {
    next();
    if (!at(name) || !format_is(format)) fail(line, message);
  }
  std::int32_t read_i32_scalar(std::string_view name, std::int32_t line, std::string_view message) {
    require(name, "I", line, message);
    return read_scalar<std::int32_t>(in_);
  }
  void read_item(SolutionKind kind);
  // A typed array of the item into `out` where it is kept, passed over where
  // not; either way the count a read keeps, for the length checks.
  template <typename T>
  std::uint64_t take(Array<T>& out, Vector v, std::uint64_t expected);
  // A string payload that is read and not kept.
  void pass_bytes() { skip_array(in_, 1); }
  // One information group: a byte of length per name, the names, the values.
  template <typename T>
  void read_info(InfoGroup<T>& group, Array<std::uint8_t>& lengths, std::int32_t line,
                 std::string_view message) {
    read_byte_array(in_, lengths);
    read_byte_array(in_, group.names.buffer);
    if constexpr (std::is_same_v<T, double>) read_f64_array(in_, group.values, lengths.size());
    if constexpr (std::is_same_v<T, std::int32_t>)
      read_i32_array(in_, group.values, lengths.size());
    if constexpr (std::is_same_v<T, std::int64_t>)
      read_i64_array(in_, group.values, lengths.size());
    if (group.values.size() != lengths.size()) fail(line, message);
  }

  // Counts as the file's checks compare them: unsigned 32-bit sizes.
  std::uint32_t numvar() const { return static_cast<std::uint32_t>(sol_->numvar); }
  std::uint32_t numcon() const { return static_cast<std::uint32_t>(sol_->numcon); }

  Reader& in_;
  const ReadOptions& options_;
  bool keep_item_ = true;  // the solution being read is kept
  HeaderScratch scratch_;
  SectionHeader header_;
  std::unique_ptr<Solution> sol_ = std::make_unique<Solution>();
  std::uint64_t barvar_total_ = 0;
  std::uint64_t acc_total_ = 0;
};

[[noreturn]] void inconsistent(std::string_view s, std::string_view suffix) {
  std::string text(s);
  text += suffix;
  throw InconsistentSolution(text);
}

template <typename T>
std::uint64_t SolutionFileReader::take(Array<T>& out, Vector v, std::uint64_t expected) {
  if (!keep_item_ || !options_.keeps(v)) return skip_array(in_, sizeof(T));
  if constexpr (std::is_same_v<T, double>) read_f64_array(in_, out, expected);
  if constexpr (std::is_same_v<T, std::uint8_t>) read_byte_array(in_, out);
  return out.size();
}

void SolutionFileReader::read_item(SolutionKind kind) {
  if (!format_is("[B[B")) fail(1116, "Expected section 'sol/xxx'");
  // A kind that is not kept is read into an item of its own and dropped.
  keep_item_ = options_.keeps(kind);
  SolutionItem dropped;
  SolutionItem& item = keep_item_ ? sol_->solutions.emplace_back() : dropped;
  item.kind = kSolutionKindNames[static_cast<std::size_t>(kind)];
  const std::string s = std::string(kSolutionPrefix) + item.kind;
  read_bytes(in_, item.prosta);
  read_bytes(in_, item.solsta);
  next();

  if (at(s, "/pobj")) {
    if (!format_is("d")) fail(1144, "Invalid section 'sol/xxx/pobj'");
    item.pobj = read_scalar<double>(in_);
    next();
  }
  if (at(s, "/dobj")) {
    if (!format_is("d")) fail(1150, "Invalid section 'sol/xxx/dobj'");
    item.dobj = read_scalar<double>(in_);
    next();
  }
  // Variable statuses are required, constraint statuses are not. Their count
  // is not compared with numvar: files with short status arrays exist, and
  // the writers cope with them.
  if (!at(s, "/var/sta") || !format_is("[B")) fail(1156, "Expected section 'sol/xxx/var/sta'");
  take(item.skx, Vector::skx, UINT64_MAX);
  next();

  if (at(s, "/var/primal")) {
    if (!format_is("[d")) fail(1162, "Invalid format in 'sol/xxx/var/primal'");
    if (take(item.xx, Vector::xx, numvar()) != numvar()) inconsistent(s, "/var/primal");
    next();
  }
  if (at(s, "/var/dual")) {
    const bool with_snx = format_is("[d[d[d");
    if (!with_snx && !format_is("[d[d")) fail(1172, "Invalid format in 'sol/xxx/var/dual'");
    const std::uint64_t slx = take(item.slx, Vector::slx, numvar());
    const std::uint64_t sux = take(item.sux, Vector::sux, numvar());
    const std::uint64_t snx = with_snx ? take(item.snx, Vector::snx, numvar()) : 0;
    // The texts name var/primal for the duals too; users match on them.
    if (slx != numvar()) inconsistent(s, "/var/primal - slx");
    if (sux != slx) inconsistent(s, "/var/primal - sux");
    if (with_snx && snx != numvar()) inconsistent(s, "/var/primal - snx");
    next();
  }
  // Bar-variable values are as many as the pattern's sum; never checked.
  if (at(s, "/barvar/primal")) {
    if (!format_is("[d")) fail(1191, "Invalid format in 'sol/xxx/barvar/primal'");
    take(item.barx, Vector::barx, barvar_total_);
    next();
  }
  if (at(s, "/barvar/dual")) {
    if (!format_is("[d")) fail(1198, "Invalid format in 'sol/xxx/barvar/dual'");
    take(item.bars, Vector::bars, barvar_total_);
    next();
  }
  // Without constraint statuses the constraint values are skipped too: the
  // header in hand is next tried as the cone statuses.
  std::uint64_t skc = 0;
  if (at(s, "/con/sta")) {
    if (!format_is("[B")) fail(1207, "Expected section 'sol/xxx/con/sta'");
    skc = take(item.skc, Vector::skc, UINT64_MAX);
    if (skc != numcon()) inconsistent(s, "/con/sta");
    next();
    if (at(s, "/con/primal")) {
      if (!format_is("[d")) fail(1215, "Invalid format in 'sol/xxx/con/primal'");
      if (take(item.xc, Vector::xc, numcon()) != numcon()) inconsistent(s, "/con/primal");
      next();
    }
    if (at(s, "/con/dual")) {
      if (!format_is("[d[d[d")) fail(1224, "Invalid format in 'sol/xxx/con/dual'");
      // Sized by numvar, as solution files are read; it only affects the
      // first allocation.
      const std::uint64_t y = take(item.y, Vector::y, numvar());
      const std::uint64_t slc = take(item.slc, Vector::slc, numvar());
      const std::uint64_t suc = take(item.suc, Vector::suc, numvar());
      if (y != numcon()) inconsistent(s, "/con/dual - y");
      if (slc != y) inconsistent(s, "/con/dual - slc");
      if (suc != y) inconsistent(s, "/con/dual - sxc");  // sic: "sxc"
      next();
    }
  }
  if (at(s, "/cone/sta")) {
    // The constraint-status message and check are reused here on purpose:
    // the cone statuses themselves are never counted.
    if (!format_is("[B")) fail(1241, "Expected section 'sol/xxx/con/sta'");
    take(item.skn, Vector::skn, UINT64_MAX);
    if (skc != numcon()) inconsistent(s, "/con/sta");
    next();
  }
  if (at(s, "/acc/dual")) {
    if (!format_is("[d")) fail(1250, "Invalid format in 'sol/xxx/acc/dual'");
    take(item.doty, Vector::doty, acc_total_);
    next();
  }
}

std::unique_ptr<Solution> SolutionFileReader::read() {
  Solution& sol = *sol_;
  unsigned char head[4] = {};  // missing bytes read as zero
  const std::uint64_t length = in_.read(head, sizeof head);
  std::uint32_t mark;
  std::memcpy(&mark, head, sizeof mark);
  if (mark != kSolutionMark) throw IncompatibleFileError(kSourceFile, 1036, mark, length);
  require("NLOSOLN", "[B", 1041, "Expected section 'NLOSOLN'");
  pass_bytes();
  require("version", "III", 1046, "Expected section 'version'");
  for (std::int32_t& v : sol.version) v = read_scalar<std::int32_t>(in_);
  sol.numvar = read_i32_scalar("numvar", 1051, "Expected section 'numvar'");
  sol.numbarvar = read_i32_scalar("numbarvar", 1055, "Expected section 'numbarvar'");
  sol.numcon = read_i32_scalar("numcon", 1060, "Expected section 'numcon'");
  sol.numcone = read_i32_scalar("numcone", 1065, "Expected section 'numcone'");
  require("numacc", "L", 1070, "Expected section 'numacc'");
  sol.numacc = read_scalar<std::int64_t>(in_);
  next();

  // The two pattern messages differ in wording ("Invalid format" against
  // "Expected section"); both are what users know.
  if (at("barvar/pattern")) {
    if (!format_is("[L")) fail(1092, "Invalid format in 'sol/xxx/barvar/pattern'");
    read_u64_array(in_, sol.barvar_pattern, static_cast<std::uint32_t>(sol.numbarvar));
    barvar_total_ = sum(sol.barvar_pattern);
    next();
  }
  if (at("acc/pattern")) {
    if (!format_is("[L")) fail(1102, "Expected section 'sol/xxx/acc/pattern'");
    read_u64_array(in_, sol.acc_pattern, static_cast<std::uint64_t>(sol.numacc));
    acc_total_ = sum(sol.acc_pattern);
    next();
  }

  // Solutions come in table order, each at most once; a name not found among
  // the kinds after the last one read ends the solution part.
  for (std::size_t from = 0; from < kSolutionKindNames.size();) {
    std::size_t kind = from;
    while (kind < kSolutionKindNames.size() && !at(kSolutionPrefix, kSolutionKindNames[kind])) {
      ++kind;
    }
    if (kind == kSolutionKindNames.size()) break;
    read_item(static_cast<SolutionKind>(kind));
    from = kind + 1;
  }

  for (const NamesSection& section : kNamesSections) {
    if (!at(section.name)) continue;
    if (!format_is("[I[B")) fail(1270, "Expected names section to have format '[I[B'");
    if (!options_.names) {
      skip_array(in_, sizeof(std::uint32_t));
      pass_bytes();
      next();
      continue;
    }
    Array<std::uint32_t> lengths;
    read_u32_array(in_, lengths, UINT64_MAX);
    NameList& list = sol.*section.list;
    read_byte_array(in_, list.buffer);
    cut_names(list, lengths);
    next();
  }
  // The problem and objective names are read and not kept. Any other header
  // here, whatever its length, fails as "Expected 'inf/f64'" below.
  if (at("name/problem")) {
    if (!format_is("[B")) fail(1291, "Expected problem name to have format '[B'");
    pass_bytes();
    next();
  }
  if (at("name/objective")) {
    if (!format_is("[B")) fail(1300, "Expected objective name to have format '[B'");
    pass_bytes();
    next();
  }

  Array<std::uint8_t> f64_lengths, i32_lengths, i64_lengths;
  if (!at("inf/f64") || !format_is("[B[B[d")) fail(1315, "Expected 'inf/f64'");
  read_info(sol.info_f64, f64_lengths, 1323, "Invalid 'inf/f64' entry");
  require("inf/i32", "[B[B[i", 1329, "Expected 'inf/i32'");
  read_info(sol.info_i32, i32_lengths, 1335, "Invalid 'inf/i32' entry");
  require("inf/i64", "[B[B[l", 1341, "Expected 'inf/i64'");
  read_info(sol.info_i64, i64_lengths, 1347, "Invalid 'inf/i64' entry");

  next();  // the closing section: read, not examined
  cut_names(sol.info_f64.names, f64_lengths);
  cut_names(sol.info_i32.names, i32_lengths);
  cut_names(sol.info_i64.names, i64_lengths);
  return std::move(sol_);
}

}  // namespace

std::optional<SolutionKind> solution_kind_named(std::string_view name) {
  for (std::size_t k = 0; k < kSolutionKindNames.size(); ++k) {
    if (kSolutionKindNames[k] == name) return static_cast<SolutionKind>(k);
  }
  return std::nullopt;
}

std::optional<Vector> vector_named(std::string_view name) {
  for (const VectorInfo& v : kVectors) {
    if (v.key == name) return v.id;
  }
  return std::nullopt;
}

std::unique_ptr<Solution> read_solution(Reader& reader, const ReadOptions& options) {
  return SolutionFileReader(reader, options).read();
}

std::unique_ptr<Solution> read_solution_file(const std::filesystem::path& path,
                                             const ReadOptions& options) {
  try {
    FileReader file(path);
    if (path.extension() != ".zst") return read_solution(file, options);
    zstd::Reader decompressor(&file);
    return read_solution(decompressor, options);
  } catch (Error& e) {
    e.set_path(path_text(path));
    throw;
  }
}

std::unique_ptr<Solution> read_solution_named(const std::filesystem::path& name,
                                              const ReadOptions& options) {
  if (is_gzip_input(name)) throw UnsupportedInput(quoted(name.extension()));
  if (!names_standard_input(name)) return read_solution_file(name, options);
  FDescReader in(platform::binary_standard_input());
  if (!is_zstd_input(name)) return read_solution(in, options);
  zstd::Reader decompressor(&in);
  return read_solution(decompressor, options);
}

std::vector<FileRead> read_solution_files(const std::vector<std::filesystem::path>& paths,
                                          const ReadOptions& options, unsigned threads,
                                          bool stop_at_failure) {
  std::vector<FileRead> reads(paths.size());
  // Each thread takes the next file not yet taken; with stop_at_failure a
  // file after the first failed one is left unread.
  std::atomic<std::size_t> next{0};
  std::atomic<std::size_t> first_failure{paths.size()};
  auto work = [&] {
    for (std::size_t i; (i = next.fetch_add(1)) < paths.size();) {
      if (stop_at_failure && i > first_failure.load()) break;
      try {
        try {
          reads[i].solution = read_solution_named(paths[i], options);
        } catch (Error& e) {
          e.set_path(path_text(paths[i]));
          throw;
        }
      } catch (...) {
        reads[i].failure = std::current_exception();
        for (std::size_t f = first_failure.load(); i < f;) {
          if (first_failure.compare_exchange_weak(f, i)) break;
        }
      }
    }
  };
  const std::size_t n = std::min<std::size_t>(thread_budget(threads), paths.size());
  std::vector<std::jthread> pool;
  try {
    for (std::size_t t = 1; t < n; ++t) pool.emplace_back(work);
  } catch (const std::system_error&) {
    // No more threads to be had: those running and this one read the rest.
  }
  work();
  return reads;
}

}  // namespace strix
