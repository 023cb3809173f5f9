// Compressing output stream buffers: Zstandard and gzip streams written into
// a target stream buffer.
#pragma once

#include <array>      // std::array
#include <memory>     // std::unique_ptr
#include <streambuf>  // std::streambuf

namespace strix {

namespace zstd {

// Compresses everything put into it into one Zstandard frame in a target
// stream buffer (not owned). close() ends the frame and reports failures;
// destruction ends it if close() was not called, swallowing a failure.
// A failing target throws IOError and closes the buffer (see errors.h), a
// failure of the library throws zstd::CompressionError. Worker threads
// compress the frame; its bytes do not depend on their timing.
class outstreambuf : public std::streambuf {
 public:
  // The level is clamped to the library's range, 1 to its maximum.
  outstreambuf(std::streambuf* target, int level);
  ~outstreambuf() override;
  // Ends the frame and writes its tail; afterwards does nothing.
  void close();

  outstreambuf(const outstreambuf&) = delete;
  outstreambuf& operator=(const outstreambuf&) = delete;

 protected:
  int_type overflow(int_type c) override;

 private:
  struct Engine;

  std::array<char, 65536> put_area_;
  std::unique_ptr<Engine> engine_;  // null once closed
};

}  // namespace zstd

namespace gzip {

// Deflates everything put into it into one gzip member in a target stream
// buffer (not owned). The byte that triggers an overflow is not stored: at
// every 65536-byte boundary of the text one byte is dropped. Readers of these
// files expect exactly that, so it stays. close(), destruction and a failing
// target as for the Zstandard buffer; a failure of the deflate engine throws
// gzip::GZipError with the engine's code.
class streambuf : public std::streambuf {
 public:
  // Levels are the engine's, 0 to 3; others throw GZipError.
  streambuf(std::streambuf* target, int level);
  ~streambuf() override;
  // Ends the member and writes its tail; afterwards does nothing.
  void close();

  streambuf(const streambuf&) = delete;
  streambuf& operator=(const streambuf&) = delete;

 protected:
  int_type overflow(int_type c) override;

 private:
  struct Engine;

  std::array<char, 65536> put_area_;
  std::unique_ptr<Engine> engine_;  // null once closed
};

}  // namespace gzip

}  // namespace strix
