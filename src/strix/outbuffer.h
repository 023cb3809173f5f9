// The writers' output: text is formatted into memory and handed to a stream
// buffer in large pieces; long runs of output are cut into ranges, formatted
// on the conversion's pool into a piece each, and handed on in order.
#pragma once

#include <cstddef>      // std::size_t
#include <cstdint>      // std::uint64_t
#include <functional>   // std::function
#include <memory>       // std::unique_ptr
#include <streambuf>    // std::streambuf
#include <string_view>  // std::string_view
#include <vector>       // std::vector

#include <fmt/format.h>  // fmt::memory_buffer

#include "strix/jobs.h"
#include "strix/limits.h"

namespace strix {

// Text being formatted in memory.
class TextBuffer {
 public:
  auto out() { return fmt::appender(buf_); }
  void append(std::string_view s) { buf_.append(s.data(), s.data() + s.size()); }
  void put(char c) { buf_.push_back(c); }
  // Room for n more bytes at the end, to be written directly and then
  // committed with the end of what was written.
  char* room(std::size_t n) {
    buf_.reserve(buf_.size() + n);
    return buf_.data() + buf_.size();
  }
  void commit(const char* end) { buf_.resize(static_cast<std::size_t>(end - buf_.data())); }
  std::size_t size() const { return buf_.size(); }
  std::string_view text() const { return {buf_.data(), buf_.size()}; }
  void clear() { buf_.clear(); }
  void swap(TextBuffer& other) { std::swap(buf_, other.buf_); }

 protected:
  fmt::memory_buffer buf_;
};

// A run of output: `blocks` blocks, block b holding items(b) items of about
// `item_bytes` bytes of text each (a plain run of items is one block). It is
// cut into ranges of about kOutputPiece bytes, counting a block's opening as
// one item more; a range ends where that much is reached, between blocks or
// inside one, so a block of any size is spread over ranges alike.
// format(block, first, last, piece) appends items [first, last) of a block
// to a piece: with first == 0 the block opens there, with last == items(block)
// it closes there. Both are called on any thread, possibly after
// format_run() has returned (until flush()): what they use must be their own
// or outlive the writer's last flush().
struct BlockRun {
  std::size_t blocks = 1;
  std::function<std::uint64_t(std::size_t block)> items;
  std::size_t item_bytes = 1;
  std::function<void(std::size_t block, std::uint64_t first, std::uint64_t last, TextBuffer& piece)>
      format;
};

// Output in large pieces: writers format into this buffer, whose text goes
// to the stream buffer, after the pieces before it, whenever it passes
// kOutputPiece bytes. Bytes go through sputn directly, so a compressing
// buffer's failure reaches the writer's caller as its own exception (what a
// failing sink means: errors.h, IOError); after it nothing more is offered.
//
// format_run() formats a run of one range here; a longer run goes to one
// queue of the pool's (jobs.h) for the whole document, a piece per range,
// formatted on the pool's threads and this one. The pieces go to the stream
// buffer in order, from this thread only.
class OutBuffer : public TextBuffer {
 public:
  OutBuffer(std::streambuf* sink, Pool& pool);
  // Hands over what is pending, swallowing failures: a writer calls flush()
  // itself at its end so that they reach its caller.
  ~OutBuffer();

  OutBuffer(const OutBuffer&) = delete;
  OutBuffer& operator=(const OutBuffer&) = delete;

  // Call between pieces of output: passes the text on once enough has
  // gathered.
  void maybe_flush() {
    if (buf_.size() >= kOutputPiece) pass_on();
  }
  // Hands over everything pending, in order.
  void flush();

  void format_run(BlockRun run);

 private:
  class Piece;
  void pass_on();
  std::unique_ptr<TextBuffer> spare_piece();

  // Both the writer's thread's alone: pieces are handed on there.
  std::streambuf* sink_;
  std::vector<std::unique_ptr<TextBuffer>> spare_;  // handed-on pieces, to format into again
  JobQueue pieces_;  // declared last: its jobs end before the rest is destroyed
};

}  // namespace strix
