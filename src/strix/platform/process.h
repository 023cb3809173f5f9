// What the process may use and how it ends: the processors it may run on,
// memory aligned for huge pages, and the abnormal end.
#pragma once

#include <cstddef>  // std::size_t

namespace strix::platform {

// The processors this process may run on (its affinity mask), capped by a
// CPU quota set on it (a cgroup's on Linux, a job object's rate on Windows);
// at least 1.
unsigned processor_count();

// A block of `bytes` aligned to `alignment` (a power of two; 0 for the
// ordinary alignment), or null. Blocks come back through free_aligned.
void* allocate_aligned(std::size_t alignment, std::size_t bytes) noexcept;
void free_aligned(void* p) noexcept;
// Only advice, where the system takes it: back the block by huge pages.
void advise_huge_pages(void* p, std::size_t bytes) noexcept;

// Ends the process abnormally without a word of the runtime's: by SIGABRT
// on POSIX, with status 3 (what an aborted program gets) on Windows.
// Standard output is flushed first.
[[noreturn]] void end_abnormally() noexcept;

}  // namespace strix::platform
