#include "strix/share.h"

#include <algorithm>  // std::max, std::min
#include <charconv>   // std::from_chars
#include <cstdlib>    // std::getenv
#include <cstring>    // std::strlen

#include "strix/platform/process.h"

namespace strix {

unsigned machine_threads() {
  unsigned n = platform::processor_count();
  if (const char* cap = std::getenv("STRIX_THREADS")) {
    unsigned value = 0;
    const char* end = cap + std::strlen(cap);
    const auto [ptr, ec] = std::from_chars(cap, end, value);
    if (ec == std::errc() && ptr == end && value > 0) n = std::min(n, value);
  }
  return n;
}

unsigned thread_budget(unsigned requested) {
  return requested == 0 ? machine_threads() : requested;
}

unsigned zstd_workers(unsigned threads) {
  return std::max(thread_budget(threads), 2u);
}

}  // namespace strix
