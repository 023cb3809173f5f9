// Exception types of strix. They are plain structures, thrown by value where
// a fault is found. The library prints nothing: failure_lines() gives the
// text the command prints for each, and the command then ends by SIGABRT.
#pragma once

#include <cstdint>      // fixed-width integers
#include <exception>    // std::exception_ptr
#include <string>       // std::string
#include <string_view>  // std::string_view

namespace strix {

// Where a FormatError was raised: the source name every message carries and
// the number of the check that failed.
struct SourceLocation {
  const char* file;
  std::int32_t line;
};

// Source name carried by every malformed-input message.
inline constexpr const char* kSourceFile = "src\\strix\\strix";

// A malformed section in a solution file.
struct FormatError {
  FormatError(std::string_view text, SourceLocation location)
      : message(text), file(location.file), line(location.line) {}

  std::string message;
  const char* file = nullptr;
  std::int32_t line = 0;
};

// The input does not start with the solution file mark; `mark` is the
// 32-bit value it starts with instead.
struct IncompatibleFileError {
  const char* file;
  std::int32_t line;
  std::uint32_t mark;
};

// An array's length disagrees with the problem sizes.
struct InconsistentSolution {
  explicit InconsistentSolution(std::string_view text) : message(text) {}
  std::string message;
};

// The input could not be opened, or an output target took no bytes.
//
// What happens when a sink fails, in one place:
// - Writes to an uncompressed output are not checked: a file that could not
//   be created or written loses the bytes silently, and the conversion
//   succeeds.
// - A compressing buffer checks every write to its target. A target that
//   takes no bytes makes it throw IOError (an engine failure: GZipError);
//   from then on the buffer is closed and takes nothing more, and close()
//   does nothing.
// - The writers' output thread hands such a failure to the writer at its
//   next hand-over or flush, and offers nothing more after it.
// - The command prints "?:?: Unknown error" and ends by SIGABRT; a library
//   caller gets the exception (OSError in Python).
// `code` is the system's error number where one is known (an input that
// cannot be opened), else 0.
struct IOError {
  int code = 0;
};

namespace zstd {
// The decompression library rejected the input.
struct CompressionError {};
}  // namespace zstd

namespace gzip {
// The deflate engine reported a failure; `code` is its return value.
struct GZipError {
  std::int32_t code;
};
}  // namespace gzip

// What the command prints for a failure, one line each, without line ends:
// `at_once` while the outputs are still open (a malformed section's
// description, the mark a file was refused for), `after` once they are
// closed ("?:?: Unknown error" for anything but the reader's own errors).
// Either may be empty.
struct FailureLines {
  std::string at_once;
  std::string after;
};
FailureLines failure_lines(std::exception_ptr failure);

}  // namespace strix
