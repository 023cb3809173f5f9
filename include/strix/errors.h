// Exceptions of strix. Every one derives from Error, a std::runtime_error
// whose what() says what failed and, where the caller named a file, which
// one. The library prints nothing; the strix command prints its own lines
// for a failure, built from the fields below, and then ends by SIGABRT.
#pragma once

#include <cstddef>      // std::size_t
#include <cstdint>      // fixed-width integers
#include <stdexcept>    // std::runtime_error
#include <string>       // std::string
#include <string_view>  // std::string_view

namespace strix {

class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& what) : std::runtime_error(what) {}
  // The file the failure concerns as the caller named it; empty if unknown.
  const std::string& path() const noexcept { return path_; }
  // Names the file, once: what() then starts with "PATH: ".
  void set_path(const std::string& path);

 private:
  std::string path_;
};

// The check a FormatError reports, as the command prints it: the source name
// every message carries and the number of the check that failed.
struct CheckNumber {
  const char* file;
  std::int32_t number;
};

// A malformed section in a solution file; `message` is the failed check
// ("Expected section 'NLOSOLN'").
class FormatError : public Error {
 public:
  FormatError(std::string_view text, CheckNumber check);

  std::string message;
  const char* file = nullptr;
  std::int32_t line = 0;
};

// The input does not start with the solution file mark; `mark` is the
// 32-bit value it starts with instead (missing bytes read as zero), `length`
// how many of its 4 bytes the input had.
class IncompatibleFileError : public Error {
 public:
  IncompatibleFileError(const char* file, std::int32_t line, std::uint32_t mark,
                        std::size_t length);

  const char* file;
  std::int32_t line;
  std::uint32_t mark;
};

// An array's length disagrees with the problem sizes; `message` names the
// section ("sol/basic/con/dual - y").
class InconsistentSolution : public Error {
 public:
  explicit InconsistentSolution(std::string_view text);

  std::string message;
};

// A file could not be opened, created, read or written. `code` is the
// system's error number, 0 where none is known.
//
// What a failing output means across the library, which the code of each
// part also says for its own share: a compressing buffer whose target takes
// no bytes throws IOError() and is closed, so that close() then does
// nothing; the writers' output buffer throws such a failure at the writer
// and offers nothing more. An uncompressed output file is checked by the
// library's conversion and not by the command's (ConvertOptions in
// convert.h).
class IOError : public Error {
 public:
  IOError();
  // "PATH: ACTION: the system's message".
  IOError(int code, const std::string& path, std::string_view action);

  int code = 0;
};

// The output names the input file (the same file under another name too):
// nothing was written.
class SameFileError : public Error {
 public:
  SameFileError(const std::string& in_path, const std::string& out_path);
};

// An input name the command refuses: `what()` is the line it prints
// ("Compression type '\".gz\"' not supported for input").
class UnsupportedInput : public Error {
 public:
  // `suffix` as the command quotes it.
  explicit UnsupportedInput(std::string_view quoted_suffix);
};

// The text report stopped where the formatting library refused its layout
// (writers.h): `what()` is "the text report cannot be written (REASON)".
class ReportError : public Error {
 public:
  explicit ReportError(std::string_view reason);
};

namespace zstd {
// The decompression library rejected the input, or the compression library
// failed while writing an output.
class CompressionError : public Error {
 public:
  CompressionError() : Error("Zstandard compression failed") {}
  explicit CompressionError(const std::string& what) : Error(what) {}
};
}  // namespace zstd

namespace gzip {
// The deflate engine reported a failure; `code` is its return value.
class GZipError : public Error {
 public:
  explicit GZipError(std::int32_t code);

  std::int32_t code;
};
}  // namespace gzip

}  // namespace strix
