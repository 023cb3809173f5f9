// Reads arbitrary bytes as a solution file and runs every writer over what
// was read. The reader's exceptions and the report's ReportError are
// designed ends, not findings. Reads that keep only part of the file, on a
// source that skips by seeking and on one that reads and drops, must end as
// the full read does and keep the same values.
#include <cstdint>      // std::uint8_t
#include <cstdlib>      // std::abort
#include <cstring>      // std::memcmp
#include <exception>    // std::exception_ptr
#include <list>         // the solutions
#include <optional>     // std::optional
#include <ostream>      // std::ostream
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <typeinfo>     // typeid

#include "fuzz_util.h"
#include "strix/errors.h"
#include "strix/solution.h"
#include "strix/writers.h"

namespace {

// The report prints every row the sizes ask for, missing values included; a
// few hundred bytes can ask for billions. Such inputs skip the report.
constexpr std::uint64_t kMaxReportRows = 1 << 16;

std::uint64_t report_rows(const strix::Solution& s) {
  std::uint64_t per_solution = 0;
  if (s.numvar > 0) per_solution += static_cast<std::uint64_t>(s.numvar);
  if (s.numcon > 0) per_solution += static_cast<std::uint64_t>(s.numcon);
  for (const std::uint64_t d : s.acc_pattern) {
    if (d > kMaxReportRows) return UINT64_MAX;
    per_solution += d;
  }
  return per_solution * s.solutions.size();
}

// A source that can only read: skips read and drop.
class ReadOnly : public strix::Reader {
 public:
  ReadOnly(const void* data, std::size_t size) : in_(data, size) {}
  std::uint64_t read(void* dst, std::uint64_t n) override { return in_.read(dst, n); }

 private:
  strix::MemoryReader in_;
};

struct Outcome {
  std::unique_ptr<strix::Solution> solution;
  std::string failure;  // the exception's type and what(), empty after a read
};

Outcome read(strix::Reader& in, const strix::ReadOptions& options) {
  try {
    return {strix::read_solution(in, options), {}};
  } catch (const strix::Error& e) {
    return {nullptr, std::string(typeid(e).name()) + e.what()};
  }
}

// Field by field as the walk (solution.h) visits them, by their bytes.
template <typename T>
bool same(const T& a, const T& b) {
  return a == b;
}
bool same(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}
template <typename T>
bool same(const strix::Array<T>& a, const strix::Array<T>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}
bool same(const strix::NameList& a, const strix::NameList& b) {
  return a.names == b.names;
}
template <typename T>
bool same(const strix::InfoGroup<T>& a, const strix::InfoGroup<T>& b) {
  return same(a.names, b.names) && same(a.values, b.values);
}

// What the part read `o` kept of a field equals the full read's; what it
// did not keep is empty. Only vectors and name lists can be left out.
class KeptTheSame {
 public:
  explicit KeptTheSame(const strix::ReadOptions& o) : o_(o) {}

  template <typename T>
  bool operator()(std::string_view, const T& full, const T& part) const {
    return same(full, part);
  }
  template <typename T>
  bool operator()(std::string_view name, const strix::Array<T>& full,
                  const strix::Array<T>& part) const {
    const std::optional<strix::Vector> v = strix::vector_named(name);
    return v && !o_.keeps(*v) ? part.empty() : same(full, part);
  }
  bool operator()(std::string_view, const strix::NameList& full,
                  const strix::NameList& part) const {
    return o_.names ? same(full, part) : part.names.empty();
  }
  bool operator()(std::string_view, const strix::ReadOptions&, const strix::ReadOptions&) const {
    return true;  // how each was read, not what it holds
  }
  bool operator()(std::string_view, const std::list<strix::SolutionItem>& full,
                  const std::list<strix::SolutionItem>& part) const {
    auto p = part.begin();
    for (const strix::SolutionItem& f : full) {
      if (!o_.keeps(*strix::solution_kind_named(f.kind))) continue;
      if (p == part.end()) return false;
      bool ok = true;
      strix::walk_item_fields([&](std::string_view name, auto field) {
        ok = ok && (*this)(name, f.*field, (*p).*field);
      });
      if (!ok) return false;
      ++p;
    }
    return p == part.end();
  }

 private:
  const strix::ReadOptions& o_;
};

bool kept_the_same(const strix::Solution& full, const strix::Solution& part) {
  const KeptTheSame kept(part.kept);
  bool ok = true;
  strix::walk_solution_fields(
      [&](std::string_view name, auto field) { ok = ok && kept(name, full.*field, part.*field); });
  return ok;
}

// Selections drawn from the input's own bytes, so that each input tries
// its own.
strix::ReadOptions selection(const std::uint8_t* data, std::size_t size, unsigned salt) {
  std::uint64_t h = 1469598103934665603u + salt;
  for (std::size_t i = 0; i < size; ++i) h = (h ^ data[i]) * 1099511628211u;
  strix::ReadOptions o;
  o.kinds = h & ((1u << strix::kSolutionKindCount) - 1);
  o.vectors = (h >> strix::kSolutionKindCount) & ((1u << strix::kVectorCount) - 1);
  o.names = (h >> 20) & 1;
  return o;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  strix::MemoryReader reader(data, size);
  Outcome full = read(reader, {});
  for (unsigned salt = 0; salt < 2; ++salt) {
    strix::MemoryReader seeking(data, size);
    ReadOnly dropping(data, size);
    const strix::ReadOptions o = selection(data, size, salt);
    Outcome part = salt == 0 ? read(seeking, o) : read(dropping, o);
    if (part.failure != full.failure) std::abort();
    if (full.solution && !kept_the_same(*full.solution, *part.solution)) std::abort();
  }
  if (!full.solution) return 0;
  const std::unique_ptr<strix::Solution> solution = std::move(full.solution);
  strix::fuzz::NullBuffer sink;
  std::ostream out(&sink);
  strix::write_json(out, *solution);
  strix::write_task(out, *solution);
  if (report_rows(*solution) <= kMaxReportRows) {
    try {
      strix::write_text_report(out, *solution);
    } catch (const strix::ReportError&) {
      // A solution with bar variables ends its report this way.
    }
  }
  return 0;
}
