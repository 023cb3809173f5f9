#include "strix/solution.h"

#include <algorithm>    // std::clamp
#include <cstring>      // std::memcpy
#include <numeric>      // std::accumulate
#include <type_traits>  // std::is_same_v

#include "strix/errors.h"
#include "strix/failure.h"  // kSourceFile
#include "strix/jobs.h"     // Pool, JobQueue
#include "strix/names.h"
#include "strix/platform/files.h"
#include "strix/record.h"
#include "strix/share.h"  // thread_budget
#include "strix/streams.h"

namespace strix {

namespace {

// A solution's sections are named "sol/" and its kind, then the part; the
// name lists' "name/" and their kind.
constexpr std::string_view kSolutionPrefix = "sol/";
constexpr std::string_view kNamesPrefix = "name/";

// A section the reader checks: its name (for a solution's part, what follows
// "sol/KIND"), the format it must have (or its other format, where it has
// two), and the check number and message that a failure reports.
struct Section {
  std::string_view name;
  std::string_view format;
  std::int32_t check;
  std::string_view message;
  std::string_view other_format = {};
};

// The sections in file order. The texts are what users know and match on:
// mixed wording, and a few reused on purpose (noted where they are read).
constexpr Section kNloSoln{"NLOSOLN", "[B", 1041, "Expected section 'NLOSOLN'"};
constexpr Section kVersion{"version", "III", 1046, "Expected section 'version'"};
constexpr Section kNumvar{"numvar", "I", 1051, "Expected section 'numvar'"};
constexpr Section kNumbarvar{"numbarvar", "I", 1055, "Expected section 'numbarvar'"};
constexpr Section kNumcon{"numcon", "I", 1060, "Expected section 'numcon'"};
constexpr Section kNumcone{"numcone", "I", 1065, "Expected section 'numcone'"};
constexpr Section kNumacc{"numacc", "L", 1070, "Expected section 'numacc'"};
constexpr Section kBarvarPattern{"barvar/pattern", "[L", 1092,
                                 "Invalid format in 'sol/xxx/barvar/pattern'"};
constexpr Section kAccPattern{"acc/pattern", "[L", 1102, "Expected section 'sol/xxx/acc/pattern'"};
constexpr Section kSolution{"", "[B[B", 1116, "Expected section 'sol/xxx'"};
constexpr Section kPobj{"/pobj", "d", 1144, "Invalid section 'sol/xxx/pobj'"};
constexpr Section kDobj{"/dobj", "d", 1150, "Invalid section 'sol/xxx/dobj'"};
constexpr Section kVarSta{"/var/sta", "[B", 1156, "Expected section 'sol/xxx/var/sta'"};
constexpr Section kVarPrimal{"/var/primal", "[d", 1162, "Invalid format in 'sol/xxx/var/primal'"};
constexpr Section kVarDual{"/var/dual", "[d[d", 1172, "Invalid format in 'sol/xxx/var/dual'",
                           "[d[d[d"};
constexpr Section kBarvarPrimal{"/barvar/primal", "[d", 1191,
                                "Invalid format in 'sol/xxx/barvar/primal'"};
constexpr Section kBarvarDual{"/barvar/dual", "[d", 1198,
                              "Invalid format in 'sol/xxx/barvar/dual'"};
constexpr Section kConSta{"/con/sta", "[B", 1207, "Expected section 'sol/xxx/con/sta'"};
constexpr Section kConPrimal{"/con/primal", "[d", 1215, "Invalid format in 'sol/xxx/con/primal'"};
constexpr Section kConDual{"/con/dual", "[d[d[d", 1224, "Invalid format in 'sol/xxx/con/dual'"};
constexpr Section kConeSta{"/cone/sta", "[B", 1241, "Expected section 'sol/xxx/con/sta'"};
constexpr Section kAccDual{"/acc/dual", "[d", 1250, "Invalid format in 'sol/xxx/acc/dual'"};
// Any of the name lists (kNameLists): "name/" and the kind.
constexpr Section kNames{"", "[I[B", 1270, "Expected names section to have format '[I[B'"};
constexpr Section kProblemName{"name/problem", "[B", 1291,
                               "Expected problem name to have format '[B'"};
constexpr Section kObjectiveName{"name/objective", "[B", 1300,
                                 "Expected objective name to have format '[B'"};
// An information group's section, and the check that its values are as
// many as its names.
struct InfoSection {
  Section section;
  std::int32_t entry_check;
  std::string_view entry_message;
};
constexpr InfoSection kInfoF64{
    {"inf/f64", "[B[B[d", 1315, "Expected 'inf/f64'"}, 1323, "Invalid 'inf/f64' entry"};
constexpr InfoSection kInfoI32{
    {"inf/i32", "[B[B[i", 1329, "Expected 'inf/i32'"}, 1335, "Invalid 'inf/i32' entry"};
constexpr InfoSection kInfoI64{
    {"inf/i64", "[B[B[l", 1341, "Expected 'inf/i64'"}, 1347, "Invalid 'inf/i64' entry"};
// Not a section: the mark the file starts with.
constexpr std::int32_t kMarkCheck = 1036;

[[noreturn]] void fail(std::int32_t check, std::string_view message) {
  throw FormatError(message, CheckNumber{kSourceFile, check});
}

[[noreturn]] void fail(const Section& section) {
  fail(section.check, section.message);
}

[[noreturn]] void inconsistent(std::string_view s, std::string_view suffix) {
  std::string text(s);
  text += suffix;
  throw InconsistentSolution(text);
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

// Reads a file part by part, in file order: the counts, the patterns, each
// solution (objectives, variables, bar variables, constraints, cones and
// ACCs), the name lists, the information items.
class SolutionFileReader {
 public:
  SolutionFileReader(Reader& in, const ReadOptions& options) : in_(in), options_(options) {
    sol_->kept = options;
  }

  std::unique_ptr<Solution> read();

 private:
  void read_counts();
  void read_patterns();
  void read_solutions();
  void read_item(SolutionKind kind);
  void read_objectives(SolutionItem& item, std::string_view s);
  void read_variables(SolutionItem& item, std::string_view s);
  void read_bar_variables(SolutionItem& item, std::string_view s);
  // The constraint statuses' count, for the cone statuses' check.
  std::uint64_t read_constraints(SolutionItem& item, std::string_view s);
  void read_cones_and_accs(SolutionItem& item, std::string_view s, std::uint64_t skc);
  void read_names();
  void read_information();

  void next() { header_ = read_section_header(in_, scratch_); }
  // Whether the header in hand is named `prefix` followed by `name`.
  bool header_is(std::string_view prefix, std::string_view name) const {
    return header_.name.size() == prefix.size() + name.size() && header_.name.starts_with(prefix) &&
           header_.name.ends_with(name);
  }
  bool format_is(std::string_view format) const { return header_.format == format; }
  bool format_fits(const Section& section) const {
    return format_is(section.format) ||
           (!section.other_format.empty() && format_is(section.other_format));
  }
  // The header in hand must be `section` in its format.
  void expect(const Section& section, std::string_view prefix = {}) {
    if (!header_is(prefix, section.name) || !format_fits(section)) fail(section);
  }
  // The next header must be `section` in its format.
  void require(const Section& section) {
    next();
    expect(section);
  }
  // Whether the header in hand is the optional `section`; it fails where
  // its format is not the section's.
  bool found(const Section& section, std::string_view prefix = {}) {
    if (!header_is(prefix, section.name)) return false;
    if (!format_fits(section)) fail(section);
    return true;
  }
  std::int32_t read_i32_scalar(const Section& section) {
    require(section);
    return read_scalar<std::int32_t>(in_);
  }
  // A typed array of the item into `out` where it is kept, passed over where
  // not; either way the count a read keeps, for the length checks.
  template <typename T>
  std::uint64_t read_vector(Array<T>& out, Vector v, std::uint64_t expected);
  // A string payload that is read and not kept.
  void skip_bytes() { skip_array(in_, 1); }
  // One information group: a byte of length per name, the names, the values.
  template <typename T>
  void read_info(InfoGroup<T>& group, Array<std::uint8_t>& lengths, const InfoSection& section);

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

template <typename T>
std::uint64_t SolutionFileReader::read_vector(Array<T>& out, Vector v, std::uint64_t expected) {
  if (!keep_item_ || !options_.keeps(v)) return skip_array(in_, sizeof(T));
  if constexpr (std::is_same_v<T, double>) read_f64_array(in_, out, expected);
  if constexpr (std::is_same_v<T, std::uint8_t>) read_byte_array(in_, out);
  return out.size();
}

template <typename T>
void SolutionFileReader::read_info(InfoGroup<T>& group, Array<std::uint8_t>& lengths,
                                   const InfoSection& section) {
  read_byte_array(in_, lengths);
  read_byte_array(in_, group.names.buffer);
  if constexpr (std::is_same_v<T, double>) read_f64_array(in_, group.values, lengths.size());
  if constexpr (std::is_same_v<T, std::int32_t>) read_i32_array(in_, group.values, lengths.size());
  if constexpr (std::is_same_v<T, std::int64_t>) read_i64_array(in_, group.values, lengths.size());
  if (group.values.size() != lengths.size()) fail(section.entry_check, section.entry_message);
}

void SolutionFileReader::read_counts() {
  Solution& sol = *sol_;
  unsigned char head[4] = {};  // missing bytes read as zero
  const std::uint64_t length = in_.read(head, sizeof head);
  std::uint32_t mark;
  std::memcpy(&mark, head, sizeof mark);
  if (mark != kSolutionMark) throw IncompatibleFileError(kSourceFile, kMarkCheck, mark, length);
  require(kNloSoln);
  skip_bytes();
  require(kVersion);
  for (std::int32_t& v : sol.version) v = read_scalar<std::int32_t>(in_);
  sol.numvar = read_i32_scalar(kNumvar);
  sol.numbarvar = read_i32_scalar(kNumbarvar);
  sol.numcon = read_i32_scalar(kNumcon);
  sol.numcone = read_i32_scalar(kNumcone);
  require(kNumacc);
  sol.numacc = read_scalar<std::int64_t>(in_);
  next();
}

void SolutionFileReader::read_patterns() {
  Solution& sol = *sol_;
  if (found(kBarvarPattern)) {
    read_u64_array(in_, sol.barvar_pattern, static_cast<std::uint32_t>(sol.numbarvar));
    barvar_total_ = sum(sol.barvar_pattern);
    next();
  }
  if (found(kAccPattern)) {
    read_u64_array(in_, sol.acc_pattern, static_cast<std::uint64_t>(sol.numacc));
    acc_total_ = sum(sol.acc_pattern);
    next();
  }
}

// Solutions come in table order, each at most once; a name not found among
// the kinds after the last one read ends the solution part.
void SolutionFileReader::read_solutions() {
  for (std::size_t from = 0; from < kSolutionKindCount;) {
    std::size_t kind = from;
    while (kind < kSolutionKindCount && !header_is(kSolutionPrefix, kSolutionKindNames[kind])) {
      ++kind;
    }
    if (kind == kSolutionKindCount) break;
    read_item(static_cast<SolutionKind>(kind));
    from = kind + 1;
  }
}

void SolutionFileReader::read_item(SolutionKind kind) {
  if (!format_is(kSolution.format)) fail(kSolution);
  // A kind that is not kept is read into an item of its own and dropped.
  keep_item_ = options_.keeps(kind);
  SolutionItem dropped;
  SolutionItem& item = keep_item_ ? sol_->solutions.emplace_back() : dropped;
  item.kind = kSolutionKindNames[static_cast<std::size_t>(kind)];
  const std::string s = std::string(kSolutionPrefix) + item.kind;
  read_bytes(in_, item.prosta);
  read_bytes(in_, item.solsta);
  next();
  read_objectives(item, s);
  read_variables(item, s);
  read_bar_variables(item, s);
  const std::uint64_t skc = read_constraints(item, s);
  read_cones_and_accs(item, s, skc);
}

void SolutionFileReader::read_objectives(SolutionItem& item, std::string_view s) {
  if (found(kPobj, s)) {
    item.pobj = read_scalar<double>(in_);
    next();
  }
  if (found(kDobj, s)) {
    item.dobj = read_scalar<double>(in_);
    next();
  }
}

void SolutionFileReader::read_variables(SolutionItem& item, std::string_view s) {
  // Variable statuses are required, constraint statuses are not. Their count
  // is not compared with numvar: files with short status arrays exist, and
  // the writers cope with them.
  expect(kVarSta, s);
  read_vector(item.skx, Vector::skx, UINT64_MAX);
  next();
  if (found(kVarPrimal, s)) {
    if (read_vector(item.xx, Vector::xx, numvar()) != numvar()) inconsistent(s, "/var/primal");
    next();
  }
  if (found(kVarDual, s)) {
    const bool with_snx = format_is(kVarDual.other_format);
    const std::uint64_t slx = read_vector(item.slx, Vector::slx, numvar());
    const std::uint64_t sux = read_vector(item.sux, Vector::sux, numvar());
    const std::uint64_t snx = with_snx ? read_vector(item.snx, Vector::snx, numvar()) : 0;
    // The texts name var/primal for the duals too; users match on them.
    if (slx != numvar()) inconsistent(s, "/var/primal - slx");
    if (sux != slx) inconsistent(s, "/var/primal - sux");
    if (with_snx && snx != numvar()) inconsistent(s, "/var/primal - snx");
    next();
  }
}

// Bar-variable values are as many as the pattern's sum; never checked.
void SolutionFileReader::read_bar_variables(SolutionItem& item, std::string_view s) {
  if (found(kBarvarPrimal, s)) {
    read_vector(item.barx, Vector::barx, barvar_total_);
    next();
  }
  if (found(kBarvarDual, s)) {
    read_vector(item.bars, Vector::bars, barvar_total_);
    next();
  }
}

// Without constraint statuses the constraint values are skipped too: the
// header in hand is next tried as the cone statuses.
std::uint64_t SolutionFileReader::read_constraints(SolutionItem& item, std::string_view s) {
  if (!found(kConSta, s)) return 0;
  const std::uint64_t skc = read_vector(item.skc, Vector::skc, UINT64_MAX);
  if (skc != numcon()) inconsistent(s, "/con/sta");
  next();
  if (found(kConPrimal, s)) {
    if (read_vector(item.xc, Vector::xc, numcon()) != numcon()) inconsistent(s, "/con/primal");
    next();
  }
  if (found(kConDual, s)) {
    // Sized by numvar, as solution files are read; it only affects the
    // first allocation.
    const std::uint64_t y = read_vector(item.y, Vector::y, numvar());
    const std::uint64_t slc = read_vector(item.slc, Vector::slc, numvar());
    const std::uint64_t suc = read_vector(item.suc, Vector::suc, numvar());
    if (y != numcon()) inconsistent(s, "/con/dual - y");
    if (slc != y) inconsistent(s, "/con/dual - slc");
    if (suc != y) inconsistent(s, "/con/dual - sxc");  // sic: "sxc"
    next();
  }
  return skc;
}

void SolutionFileReader::read_cones_and_accs(SolutionItem& item, std::string_view s,
                                             std::uint64_t skc) {
  // The constraint-status message and check are kConeSta's on purpose: the
  // cone statuses themselves are never counted.
  if (found(kConeSta, s)) {
    read_vector(item.skn, Vector::skn, UINT64_MAX);
    if (skc != numcon()) inconsistent(s, "/con/sta");
    next();
  }
  if (found(kAccDual, s)) {
    read_vector(item.doty, Vector::doty, acc_total_);
    next();
  }
}

void SolutionFileReader::read_names() {
  for (const NameListInfo& names : kNameLists) {
    if (!found({names.kind, kNames.format, kNames.check, kNames.message}, kNamesPrefix)) continue;
    if (!options_.names) {
      skip_array(in_, sizeof(std::uint32_t));
      skip_bytes();
      next();
      continue;
    }
    Array<std::uint32_t> lengths;
    read_u32_array(in_, lengths, UINT64_MAX);
    NameList& list = (*sol_).*names.list;
    read_byte_array(in_, list.buffer);
    cut_names(list, lengths);
    next();
  }
  // The problem and objective names are read and not kept. Any other header
  // here, whatever its length, fails as "Expected 'inf/f64'" next.
  if (found(kProblemName)) {
    skip_bytes();
    next();
  }
  if (found(kObjectiveName)) {
    skip_bytes();
    next();
  }
}

void SolutionFileReader::read_information() {
  Solution& sol = *sol_;
  Array<std::uint8_t> f64_lengths, i32_lengths, i64_lengths;
  expect(kInfoF64.section);
  read_info(sol.info_f64, f64_lengths, kInfoF64);
  require(kInfoI32.section);
  read_info(sol.info_i32, i32_lengths, kInfoI32);
  require(kInfoI64.section);
  read_info(sol.info_i64, i64_lengths, kInfoI64);
  next();  // the closing section: read, not examined
  cut_names(sol.info_f64.names, f64_lengths);
  cut_names(sol.info_i32.names, i32_lengths);
  cut_names(sol.info_i64.names, i64_lengths);
}

std::unique_ptr<Solution> SolutionFileReader::read() {
  read_counts();
  read_patterns();
  read_solutions();
  read_names();
  read_information();
  return std::move(sol_);
}

}  // namespace

std::optional<SolutionKind> solution_kind_named(std::string_view name) {
  for (std::size_t k = 0; k < kSolutionKindCount; ++k) {
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
    if (!is_zstd_input(path)) return read_solution(file, options);
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
  // A file is read by one of the pool's jobs and its outcome kept in its
  // turn; with stop_at_failure, the jobs after the first failure are
  // dropped, and no file is taken up after it.
  struct Read final : JobQueue::Job {
    Read(const std::filesystem::path& path_, const ReadOptions& options_, FileRead& into_,
         bool stop_)
        : path(path_), options(options_), into(into_), stop(stop_) {}
    void run() override {
      try {
        result.solution = read_solution_named(path, options);
      } catch (Error& e) {
        e.set_path(path_text(path));
        result.failure = std::current_exception();
      } catch (...) {
        result.failure = std::current_exception();
      }
    }
    void hand_on() override {
      into = std::move(result);
      if (into.failure && stop) throw Stop{};
    }
    struct Stop {};
    const std::filesystem::path& path;
    const ReadOptions& options;
    FileRead& into;
    const bool stop;  // at a failure
    FileRead result;
  };
  // No more threads than files.
  Pool pool(
      static_cast<unsigned>(std::clamp<std::size_t>(paths.size(), 1, thread_budget(threads))));
  JobQueue queue(pool);
  try {
    for (std::size_t i = 0; i < paths.size(); ++i)
      queue.submit(std::make_unique<Read>(paths[i], options, reads[i], stop_at_failure));
    queue.finish();
  } catch (const Read::Stop&) {
    // The first failure is in its place; nothing after it is read.
  }
  return reads;
}

}  // namespace strix
