// Reads arbitrary bytes as a solution file and runs every writer over what
// was read. The reader's exceptions and the report's ReportError are
// designed ends, not findings. Reads that keep only part of the file, on a
// source that skips by seeking and on one that reads and drops, must end as
// the full read does and keep the same values.
#include <cstdint>    // std::uint8_t
#include <cstdlib>    // std::abort
#include <cstring>    // std::memcmp
#include <exception>  // std::exception_ptr
#include <ostream>    // std::ostream
#include <string>     // std::string
#include <typeinfo>   // typeid

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

template <typename T>
bool same(const strix::Array<T>& a, const strix::Array<T>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}
bool same(const strix::NameList& a, const strix::NameList& b) {
  return a.names == b.names;
}

// What `part` kept equals the full read; what it did not keep is empty.
bool kept_the_same(const strix::Solution& full, const strix::Solution& part) {
  const strix::ReadOptions& o = part.kept;
  bool ok =
      full.version == part.version && full.numvar == part.numvar && full.numcon == part.numcon &&
      full.numcone == part.numcone && full.numbarvar == part.numbarvar &&
      full.numacc == part.numacc && same(full.barvar_pattern, part.barvar_pattern) &&
      same(full.acc_pattern, part.acc_pattern) && same(full.info_i32.names, part.info_i32.names) &&
      same(full.info_i32.values, part.info_i32.values) &&
      same(full.info_i64.values, part.info_i64.values) &&
      same(full.info_f64.names, part.info_f64.names) &&
      same(full.info_f64.values, part.info_f64.values);
  for (const strix::NameList strix::Solution::*names :
       {&strix::Solution::var_names, &strix::Solution::barvar_names, &strix::Solution::con_names,
        &strix::Solution::cone_names, &strix::Solution::acc_names}) {
    ok = ok && (o.names ? same(full.*names, part.*names) : (part.*names).names.empty());
  }
  auto p = part.solutions.begin();
  for (const strix::SolutionItem& f : full.solutions) {
    if (!o.keeps(*strix::solution_kind_named(f.kind))) continue;
    if (p == part.solutions.end()) return false;
    const strix::SolutionItem& k = *p;
    ok = ok && p->kind == f.kind && p->prosta == f.prosta && p->solsta == f.solsta &&
         std::memcmp(&p->pobj, &f.pobj, sizeof f.pobj) == 0 &&
         std::memcmp(&p->dobj, &f.dobj, sizeof f.dobj) == 0;
    for (const strix::VectorInfo& v : strix::kVectors) {
      const bool keep = o.keeps(v.id);
      if (v.keys != nullptr) ok = ok && (keep ? same(f.*v.keys, k.*v.keys) : (k.*v.keys).empty());
      if (v.values != nullptr) {
        ok = ok && (keep ? same(f.*v.values, k.*v.values) : (k.*v.values).empty());
      }
    }
    ++p;
  }
  return ok && p == part.solutions.end();
}

// Selections drawn from the input's own bytes, so that each input tries
// its own.
strix::ReadOptions selection(const std::uint8_t* data, std::size_t size, unsigned salt) {
  std::uint64_t h = 1469598103934665603u + salt;
  for (std::size_t i = 0; i < size; ++i) h = (h ^ data[i]) * 1099511628211u;
  strix::ReadOptions o;
  o.kinds = h & 7;
  o.vectors = (h >> 3) & ((1u << strix::kVectorCount) - 1);
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
