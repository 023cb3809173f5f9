// Sizes that protect against hostile input or set the pieces data moves in,
// each with the reason for its number.
#pragma once

#include <cstddef>  // std::size_t
#include <cstdint>  // std::uint64_t
#include <new>      // std::align_val_t

namespace strix {

// A section header's name and its format are each at most 255 bytes (one
// length byte each): the reader reads both into one scratch buffer, the
// name into its first half and the format into its second.
inline constexpr std::size_t kHeaderFieldRoom = 256;

// A count or length prefix in a file reserves at most this much before its
// data has arrived (or what the rest of a file of known size can hold):
// a small file that claims 2^56 bytes must not reserve them.
inline constexpr std::uint64_t kFirstReserveBytes = std::uint64_t{8} << 20;

// Plain arrays are read straight into their memory in pieces of this size:
// a multiple of every element size, so whole elements come out exactly.
inline constexpr std::uint64_t kArrayReadPiece = std::uint64_t{1} << 20;

// A ".b" copy reads 4096 bytes at a time and so holds constant memory ...
inline constexpr std::size_t kCopyPiece = 4096;
// ... and hands the pieces on gathered into blocks of this size: a system
// call per 4096 bytes made copying a large file several times slower than cp.
inline constexpr std::size_t kCopyBlock = std::size_t{1} << 18;

// The input file's buffer, for the same reason.
inline constexpr std::size_t kInputBuffer = std::size_t{1} << 18;
// ... aligned to a page: the kernel fills it measurably faster than at a
// plain allocation's offset.
inline constexpr std::align_val_t kInputBufferAlignment{4096};
// After a seek past an array the file is read again in pieces of this size,
// doubling up to the buffer's: what follows a skipped array is mostly a
// header or two and the next array to skip, and a summary of a file of
// millions of variables reads some kilobytes of it.
inline constexpr std::size_t kFirstFill = 4096;

// Bytes skipped where the source cannot seek (a pipe, a decompressor) are
// read and dropped through a buffer of this size on the stack.
inline constexpr std::size_t kSkipScratch = std::size_t{1} << 14;

// Value arrays are aligned to huge pages and marked for transparent huge
// pages where rounding them up to whole huge pages wastes at most this
// share of them (an eighth): filling a 100 MB solution then takes a few
// dozen page faults instead of tens of thousands, and an array of 500,000
// doubles (rounded from 4.0 to 4.2 MB) is one of them.
inline constexpr std::size_t kHugePageWasteShare = 8;
// The huge page size of x86-64 and of arm64 with 4 KiB pages.
inline constexpr std::size_t kHugePage = std::size_t{2} << 20;

// The writers gather this much formatted text before they hand it on, and a
// pool thread formats a range of about this much into a piece of its own:
// large enough that handing over (to the file or a compressing buffer) costs
// nothing beside formatting, small enough to stay in cache.
inline constexpr std::size_t kOutputPiece = std::size_t{1} << 18;
// An output file gathers puts smaller than kOutputFileDirect (an archive's
// headers) into writes of kOutputFileBuffer; larger pieces go to the file
// at once, so that a failing write is seen while the output is written.
inline constexpr std::size_t kOutputFileBuffer = 8192;
inline constexpr std::size_t kOutputFileDirect = 1024;

// A queue of jobs (jobs.h) lets this many per thread of its pool, the
// submitting thread counted, and kJobsAhead more wait or run at once, and
// kJobsAhead more again be in flight, done ones counted: enough that a
// thread finds its next job queued while the submitter hands one on, and
// that the submitter, waiting for a slow oldest job with the rest done,
// may queue more work for an idle core; few enough to hold little memory (a
// gzip chunk is 1 MiB of text and its output).
inline constexpr std::size_t kJobsPerThread = 2;
inline constexpr std::size_t kJobsAhead = 4;

// The JSON writer formats this many values into one reservation of room.
inline constexpr std::size_t kJsonValueBatch = 1024;

// Input per Zstandard job. The library's default for level 3 (four windows,
// 8 MiB) held several jobs' worth more memory at the peak and was no faster.
inline constexpr int kZstdJobSize = 2 << 20;
// A Zstandard frame is flushed once, after this much input: with workers,
// when the first bytes reach the target would otherwise depend on their
// timing, and a target that takes no bytes fails while the output is
// written, not only at the close.
inline constexpr std::uint64_t kZstdFirstFlushAt = 128 * 1024;
// gzip output is deflated in chunks of this size after the first: a few
// milliseconds of work each. The chunks decide the member's bytes.
inline constexpr std::size_t kGzipChunk = std::size_t{1} << 20;

// Array members of a task archive are written in pieces of at most this
// size: single writes of many megabytes into the page cache were at times
// several times slower than the same bytes in 1 MiB pieces.
inline constexpr std::uint64_t kArchiveWritePiece = std::uint64_t{1} << 20;

}  // namespace strix
