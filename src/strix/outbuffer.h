// The writers' output buffer: text is formatted into memory and handed to a
// stream buffer in large pieces, by a second thread once there is more than one.
#pragma once

#include <cstddef>      // std::size_t
#include <exception>    // std::exception_ptr
#include <memory>       // std::unique_ptr
#include <streambuf>    // std::streambuf
#include <string_view>  // std::string_view

#include <fmt/format.h>  // fmt::memory_buffer

#include "strix/limits.h"

namespace strix {

// Output in large pieces: writers format into a memory buffer, which is
// handed to the stream buffer whenever it passes kOutputPiece bytes. Bytes go
// through sputn directly, so a compressing buffer's failure reaches the
// caller as its own exception (what a failing sink means: errors.h, IOError).
//
// Once the first full piece is handed over, a second thread does the
// handing: the writer formats the next piece while the last one is written
// to the file or compressed. The pieces reach the stream buffer in order and
// from one thread at a time; when flush() returns, that thread is done with
// it. A document smaller than one piece, or a run where no thread could be
// started, is written without one.
class OutBuffer {
 public:
  explicit OutBuffer(std::streambuf* sink);
  // Hands over what is pending, swallowing failures: a writer calls flush()
  // itself at its end so that they reach the driver.
  ~OutBuffer();

  OutBuffer(const OutBuffer&) = delete;
  OutBuffer& operator=(const OutBuffer&) = delete;

  auto out() { return fmt::appender(*buf_); }
  void append(std::string_view s) { buf_->append(s.data(), s.data() + s.size()); }
  void put(char c) { buf_->push_back(c); }
  // Room for n more bytes at the end, to be written directly and then
  // committed with the end of what was written.
  char* room(std::size_t n) {
    buf_->reserve(buf_->size() + n);
    return buf_->data() + buf_->size();
  }
  void commit(const char* end) { buf_->resize(static_cast<std::size_t>(end - buf_->data())); }
  // Call between pieces of output: hands over once enough has gathered.
  void maybe_flush() {
    if (buf_->size() >= kOutputPiece) hand_over();
  }
  // Hands over what is pending and waits until the stream buffer has it.
  void flush();

 private:
  struct OutputThread;

  bool start_thread();
  void hand_over();
  void wait_idle();
  void write_here();
  void rethrow_failure();

  std::streambuf* sink_;
  fmt::memory_buffer pieces_[2];
  fmt::memory_buffer* buf_ = &pieces_[0];  // the piece being formatted
  std::unique_ptr<OutputThread> thread_;   // started by the first hand-over
  bool no_thread_ = false;
  std::exception_ptr failure_;  // the stream buffer's, once it has failed
};

}  // namespace strix
