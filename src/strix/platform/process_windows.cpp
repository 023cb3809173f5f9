#include <malloc.h>  // _aligned_malloc, _aligned_free
#include <windows.h>

#include <algorithm>  // std::max, std::min
#include <bit>        // std::popcount
#include <cstdio>     // std::fflush
#include <cstdlib>    // _exit
#include <iostream>   // std::cout
#include <vector>     // processor groups

#include "strix/platform/process.h"

namespace strix::platform {
namespace {

// The process's processors: its affinity mask in its group, or every
// processor of the groups it spans when there are more than one (machines
// past 64 processors).
unsigned affinity_count() {
  USHORT count = 0;
  GetProcessGroupAffinity(GetCurrentProcess(), &count, nullptr);
  std::vector<USHORT> groups(std::max<USHORT>(count, 1));
  if (count > 1 && GetProcessGroupAffinity(GetCurrentProcess(), &count, groups.data())) {
    unsigned n = 0;
    for (USHORT i = 0; i < count; ++i) n += GetActiveProcessorCount(groups[i]);
    return n;
  }
  DWORD_PTR process = 0, system = 0;
  if (GetProcessAffinityMask(GetCurrentProcess(), &process, &system) && process != 0) {
    return static_cast<unsigned>(std::popcount(static_cast<std::uint64_t>(process)));
  }
  return GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
}

// A job's rate given as a minimum and a maximum: the two share the field
// of the rate, the maximum in its upper half. Older headers lack both.
constexpr DWORD kCpuRateMinMax = 0x10;

// The processors a job object's hard cap of the CPU rate allows, rounded
// up; 0 when the process is in no such job. The rate is in hundredths of a
// percent of all the machine's processors.
unsigned job_rate_cap() {
  JOBOBJECT_CPU_RATE_CONTROL_INFORMATION rate{};
  if (!QueryInformationJobObject(nullptr, JobObjectCpuRateControlInformation, &rate, sizeof rate,
                                 nullptr) ||
      !(rate.ControlFlags & JOB_OBJECT_CPU_RATE_CONTROL_ENABLE)) {
    return 0;
  }
  DWORD share = 0;
  if (rate.ControlFlags & kCpuRateMinMax) {
    share = rate.CpuRate >> 16;
  } else if (rate.ControlFlags & JOB_OBJECT_CPU_RATE_CONTROL_HARD_CAP) {
    share = rate.CpuRate;
  } else {
    return 0;  // weights share the machine, they cap nothing
  }
  const std::uint64_t all = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
  return static_cast<unsigned>(std::max<std::uint64_t>(1, (all * share + 9999) / 10000));
}

}  // namespace

unsigned processor_count() {
  unsigned n = std::max(1u, affinity_count());
  if (const unsigned cap = job_rate_cap()) n = std::min(n, cap);
  return n;
}

void* allocate_aligned(std::size_t alignment, std::size_t bytes) noexcept {
  return _aligned_malloc(bytes == 0 ? 1 : bytes, alignment == 0 ? 16 : alignment);
}

void free_aligned(void* p) noexcept {
  _aligned_free(p);
}

void advise_huge_pages(void*, std::size_t) noexcept {}

// abort() would print the runtime's own message and ask about a debugger.
void end_abnormally() noexcept {
  std::cout.flush();
  std::fflush(stdout);
  std::fflush(stderr);
  _exit(3);
}

}  // namespace strix::platform
