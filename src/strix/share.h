// How many threads a call works on, and how a compressed conversion shares
// them between formatting and compression.
#pragma once

namespace strix {

// The processors this process may run on, capped by its CPU quota (both as
// the system tells them: platform/process.h) and by STRIX_THREADS=N when
// that is a positive integer; any other value is ignored. At least 1.
unsigned machine_threads();

// The threads a call may work on: `requested`, or where that is 0, all that
// machine_threads() gives.
unsigned thread_budget(unsigned requested);

enum class Compression { none, zstd, gzip };

// The workers of a Zstandard frame written on `threads` threads.
//
// Formatting and gzip's deflating share one pool (pool.h), oldest job first,
// so there the share follows the work by itself. A Zstandard frame is
// compressed by the library's own workers, outside the pool. Each side gets
// the whole count, and the work decides which one runs: while compression
// lags, the writer waits in the compressor and the pool's threads stop at
// their bound of formatted pieces; while formatting lags, the workers wait
// for text. So 17-digit values, whose text costs more to compress than to
// format, leave the processors to the workers, and round values, whose text
// is short and compresses fast, to the formatting.
//
// At least two: the frame's bytes are then the same on every machine (they
// would differ without workers), and with a single worker the library waits
// for it between jobs, which took longer on one core.
unsigned zstd_workers(unsigned threads);

}  // namespace strix
