// Exception types of strix. They are plain structures, thrown by value where
// a fault is found and caught only by the driver, which prints one line for
// each and lets the process end abnormally.
#pragma once

#include <cstdint>      // std::int32_t
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

// A malformed section in a solution file. The constructor reports the fault
// on standard error at once ("file:line:message"); the location is then
// deliberately not kept, so `file` stays null and `line` 0.
struct FormatError {
  FormatError(std::string_view message, SourceLocation location);

  std::string message;
  const char* file = nullptr;
  std::int32_t line = 0;
};

// The input does not start with the solution file mark.
struct IncompatibleFileError {
  const char* file;
  std::int32_t line;
};

// An array's length disagrees with the problem sizes.
struct InconsistentSolution {
  explicit InconsistentSolution(std::string_view text) : message(text) {}
  std::string message;
};

// The input could not be opened, or an output target took no bytes.
struct IOError {};

namespace zstd {
// The decompression library rejected the input.
struct CompressionError {};
}  // namespace zstd

namespace gzip {
// deflate reported a failure; `code` is its return value.
struct GZipError {
  std::int32_t code;
};
}  // namespace gzip

}  // namespace strix
