// The writers' output: text is formatted into memory and handed to a stream
// buffer in large pieces; long runs of output are formatted by a pool of
// threads, a range each, and handed on in order.
#pragma once

#include <cstddef>      // std::size_t
#include <exception>    // std::exception_ptr
#include <functional>   // std::function
#include <memory>       // std::unique_ptr
#include <streambuf>    // std::streambuf
#include <string_view>  // std::string_view
#include <vector>       // std::vector

#include <fmt/format.h>  // fmt::memory_buffer

#include "strix/limits.h"

namespace strix {

class OrderedPool;

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

 protected:
  fmt::memory_buffer buf_;
};

// Output in large pieces: writers format into this buffer, which is handed
// to the stream buffer whenever it passes kOutputPiece bytes. Bytes go
// through sputn directly, so a compressing buffer's failure reaches the
// caller as its own exception (what a failing sink means: errors.h, IOError);
// after it nothing more is offered.
//
// format_ranges() cuts a long run of items into ranges and formats each into
// a piece of its own: on `threads` pool threads when there are two or more
// and more than one range, else here. The pieces reach the stream buffer in
// order, from this thread only; at most two per thread wait at a time. The
// pool starts at the first run of more than one range, so a small document
// starts no thread.
class OutBuffer : public TextBuffer {
 public:
  OutBuffer(std::streambuf* sink, unsigned threads);
  // Hands over what is pending, swallowing failures: a writer calls flush()
  // itself at its end so that they reach the driver.
  ~OutBuffer();

  OutBuffer(const OutBuffer&) = delete;
  OutBuffer& operator=(const OutBuffer&) = delete;

  // Call between pieces of output: hands over once enough has gathered.
  void maybe_flush() {
    if (buf_.size() >= kOutputPiece) flush();
  }
  // Hands over what is pending.
  void flush();

  // Formats items [first, last) of a run into a piece.
  using FormatRange = std::function<void(std::size_t first, std::size_t last, TextBuffer& piece)>;
  // Items [0, count), ranges of about kOutputPiece bytes for items of about
  // `item_bytes` bytes each.
  void format_ranges(std::size_t count, std::size_t item_bytes, const FormatRange& format);
  // Ranges [cuts[k], cuts[k + 1]) for item counts that vary.
  void format_cuts(const std::vector<std::size_t>& cuts, const FormatRange& format);

 private:
  template <typename RangeAt>
  void run_ranges(std::size_t ranges, RangeAt range_at, const FormatRange& format);
  void offer(TextBuffer& piece);
  void rethrow_failure();

  std::streambuf* sink_;
  unsigned threads_;
  std::unique_ptr<OrderedPool> pool_;               // started by the first parallel run
  std::vector<std::unique_ptr<TextBuffer>> spare_;  // pieces to format into again
  std::exception_ptr failure_;                      // the stream buffer's, once it has failed
};

}  // namespace strix
