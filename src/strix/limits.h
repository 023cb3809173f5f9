// Sizes that protect against hostile input or set the pieces data moves in,
// each with the reason for its number.
#pragma once

#include <cstddef>  // std::size_t
#include <cstdint>  // std::uint64_t

namespace strix {

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

// The writers gather this much formatted text before they hand it on, and a
// pool thread formats a range of about this much into a piece of its own:
// large enough that handing over (to the file or a compressing buffer) costs
// nothing beside formatting, small enough to stay in cache.
inline constexpr std::size_t kOutputPiece = std::size_t{1} << 18;

// A pipeline of jobs (threads.h) keeps at most this many in flight per
// thread that runs them, the submitting thread counted: enough that a thread
// finds its next job queued while the submitter hands one on, few enough to
// hold little memory (a gzip chunk is 1 MiB of text and its output).
inline constexpr std::size_t kJobsPerThread = 2;

// The JSON writer formats this many values into one reservation of room.
inline constexpr std::size_t kJsonValueBatch = 1024;

// Array members of a task archive are written in pieces of at most this
// size: single writes of many megabytes into the page cache were at times
// three to four times slower than the same bytes in 1 MiB pieces.
inline constexpr std::uint64_t kArchiveWritePiece = std::uint64_t{1} << 20;

}  // namespace strix
