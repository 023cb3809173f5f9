// Compressing output stream buffers: Zstandard and gzip streams written into
// a target stream buffer.
#pragma once

#include <array>      // std::array
#include <cstddef>    // std::size_t
#include <memory>     // std::unique_ptr
#include <streambuf>  // std::streambuf

#include "strix/pool.h"

namespace strix {

// The one shape of both compressing buffers: text put into it gathers in a
// put area and goes to an engine a full area at a time; close() ends the
// compressed stream and reports failures, destruction ends it if close()
// was not called, swallowing a failure. A failing target throws IOError and
// closes the buffer (see errors.h); a failure of the engine throws the
// engine's error. Flushing the stream (sync) compresses nothing.
class CompressingBuffer : public std::streambuf {
 public:
  static constexpr std::size_t kPutArea = 65536;

  ~CompressingBuffer() override;
  // Ends the compressed stream and writes its tail; afterwards does nothing.
  void close();

  CompressingBuffer(const CompressingBuffer&) = delete;
  CompressingBuffer& operator=(const CompressingBuffer&) = delete;

  // What differs between the formats: compressing full put areas, and the
  // last one with the end of the stream, into the target.
  struct Engine {
    virtual ~Engine() = default;
    virtual void feed(const char* data, std::size_t n) = 0;
    virtual void finish(const char* data, std::size_t n) = 0;
  };

 protected:
  // `drop_overflow_byte`: the byte that arrives when the put area is full is
  // consumed and not compressed, one at every kPutArea bytes of text.
  CompressingBuffer(std::unique_ptr<Engine> engine, bool drop_overflow_byte);
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* s, std::streamsize n) override;

 private:
  // Hands text to the engine (a full put area's worth, wherever it lies,
  // but from overflow()) and empties the put area.
  void feed(const char* data, std::size_t n);

  std::array<char, kPutArea> put_area_;
  std::unique_ptr<Engine> engine_;  // null once closed or failed
  bool drop_overflow_byte_;
};

namespace zstd {

// One Zstandard frame. The level is clamped to the library's range, 1 to
// its maximum. `workers` threads compress it (0: the calling thread); the
// frame's bytes are the same for every count of one or more.
class outstreambuf : public CompressingBuffer {
 public:
  outstreambuf(std::streambuf* target, int level, unsigned workers = 2);
};

}  // namespace zstd

namespace gzip {

// Whether the byte that overflows a full put area is compressed (keep) or
// dropped from the member, one at every 65536 bytes of text: the strix
// command's ".gz" output drops it, because readers of its files expect that.
enum class Overflow { keep, drop };

// One gzip member. Levels are the deflate engine's, 0 to 3; others throw
// GZipError. Its chunks are deflated on a pool (pool.h), the calling thread
// among its threads while it waits for them: on the pool given, which a
// writer into this buffer may share, or on one of `threads`. The member's
// bytes do not depend on the count.
class streambuf : public CompressingBuffer {
 public:
  streambuf(std::streambuf* target, int level, unsigned threads = 0,
            Overflow overflow = Overflow::keep);
  streambuf(std::streambuf* target, int level, Pool& pool, Overflow overflow = Overflow::keep);
};

}  // namespace gzip

}  // namespace strix
