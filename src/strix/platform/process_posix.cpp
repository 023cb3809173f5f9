#include <stdlib.h>  // posix_memalign
#include <unistd.h>  // sysconf

#if STRIX_HAVE_SCHED_GETAFFINITY
#include <sched.h>  // sched_getaffinity
#endif
#if STRIX_HAVE_HW_ACTIVECPU
#include <sys/sysctl.h>  // sysctlbyname
#endif
#if STRIX_HAVE_CPUSET_GETAFFINITY
#include <sys/cpuset.h>  // cpuset_getaffinity
#include <sys/param.h>
#endif
#if STRIX_HAVE_MADV_HUGEPAGE
#include <sys/mman.h>  // madvise
#endif

#include <algorithm>  // std::max, std::min
#include <cstdio>     // std::fflush
#include <cstdlib>    // std::abort, std::malloc, std::free
#include <iostream>   // std::cout

#include "strix/platform/process.h"
#if STRIX_HAVE_CGROUP
#include "strix/cgroup.h"
#endif

namespace strix::platform {
namespace {

// The processors of the affinity mask where the system tells them, else
// those online.
unsigned affinity_count() {
#if STRIX_HAVE_SCHED_GETAFFINITY
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) == 0) return static_cast<unsigned>(CPU_COUNT(&set));
#elif STRIX_HAVE_CPUSET_GETAFFINITY
  cpuset_t set;
  CPU_ZERO(&set);
  if (cpuset_getaffinity(CPU_LEVEL_WHICH, CPU_WHICH_PID, -1, sizeof set, &set) == 0) {
    return static_cast<unsigned>(CPU_COUNT(&set));
  }
#elif STRIX_HAVE_HW_ACTIVECPU
  int active = 0;
  std::size_t size = sizeof active;
  if (sysctlbyname("hw.activecpu", &active, &size, nullptr, 0) == 0 && active > 0) {
    return static_cast<unsigned>(active);
  }
#endif
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<unsigned>(online) : 1;
}

}  // namespace

unsigned processor_count() {
  unsigned n = std::max(1u, affinity_count());
#if STRIX_HAVE_CGROUP
  if (const unsigned quota = cgroup_cpu_quota()) n = std::min(n, quota);
#endif
  return n;
}

void* allocate_aligned(std::size_t alignment, std::size_t bytes) noexcept {
  if (bytes == 0) bytes = 1;
  if (alignment == 0) return std::malloc(bytes);
  void* p = nullptr;
  return posix_memalign(&p, alignment, bytes) == 0 ? p : nullptr;
}

void free_aligned(void* p) noexcept {
  std::free(p);
}

void advise_huge_pages([[maybe_unused]] void* p, [[maybe_unused]] std::size_t bytes) noexcept {
#if STRIX_HAVE_MADV_HUGEPAGE
  madvise(p, bytes, MADV_HUGEPAGE);
#endif
}

void end_abnormally() noexcept {
  std::cout.flush();
  std::fflush(stdout);
  std::abort();
}

}  // namespace strix::platform
