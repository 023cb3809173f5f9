// Reads arbitrary bytes as a solution file and runs every writer over what
// was read. The reader's exceptions and the report's formatting error are
// designed ends, not findings.
#include <cstdint>  // std::uint8_t
#include <ostream>  // std::ostream

#include <fmt/format.h>  // fmt::format_error

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  strix::MemoryReader reader(data, size);
  std::unique_ptr<strix::Solution> solution;
  try {
    solution = strix::read_solution(reader);
  } catch (const strix::FormatError&) {
    return 0;
  } catch (const strix::IncompatibleFileError&) {
    return 0;
  } catch (const strix::InconsistentSolution&) {
    return 0;
  }
  strix::fuzz::NullBuffer sink;
  std::ostream out(&sink);
  strix::write_json(out, *solution);
  strix::write_task(out, *solution);
  if (report_rows(*solution) <= kMaxReportRows) {
    try {
      strix::write_text_report(out, *solution);
    } catch (const fmt::format_error&) {
      // A solution with bar variables ends its report this way.
    }
  }
  return 0;
}
