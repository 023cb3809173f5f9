// Byte streams: the pull interface the solution reader takes its bytes from,
// its file, standard-input and Zstandard implementations, the compressing
// output stream buffers, and the buffered formatter the writers print with.
#pragma once

#include <array>        // std::array
#include <cstddef>      // std::size_t
#include <cstdint>      // std::uint64_t
#include <cstdio>       // FILE
#include <exception>    // std::exception_ptr
#include <memory>       // std::unique_ptr
#include <streambuf>    // std::streambuf
#include <string_view>  // std::string_view
#include <vector>       // std::vector

#include <fmt/format.h>  // fmt::memory_buffer
#include <zlib.h>        // z_stream
#include <zstd.h>        // ZSTD_DStream, ZSTD_CStream

namespace strix {

// Pull interface over a byte source.
class Reader {
 public:
  // Stores up to n bytes at dst; fewer than n only at the end of the data.
  virtual std::uint64_t read(void* dst, std::uint64_t n) = 0;
  // The next byte, or -1 at the end of the data.
  virtual int getc() = 0;
  // At most how many more bytes read() can deliver, or kUnknownRemaining.
  // Only a sizing hint: nothing relies on the data being there.
  static constexpr std::uint64_t kUnknownRemaining = ~std::uint64_t{0};
  virtual std::uint64_t remaining_bound() { return kUnknownRemaining; }
  virtual ~Reader() = default;
};

// Reads an already open C stream (standard input); never closes it.
class FDescReader : public Reader {
 public:
  explicit FDescReader(std::FILE* file) : file_(file) {}
  std::uint64_t read(void* dst, std::uint64_t n) override;
  int getc() override;
  // Known for a regular file (also one given as standard input).
  std::uint64_t remaining_bound() override;

  FDescReader(const FDescReader&) = delete;
  FDescReader& operator=(const FDescReader&) = delete;

 protected:
  std::FILE* file_;
};

// Reads a file it owns and closes.
class FileReader : public FDescReader {
 public:
  explicit FileReader(std::FILE* file) : FDescReader(file) {}
  ~FileReader() override;
};

namespace zstd {

// Decompresses Zstandard frames from an inner reader (not owned) on the fly.
class Reader : public strix::Reader {
 public:
  explicit Reader(strix::Reader* inner);
  ~Reader() override;
  std::uint64_t read(void* dst, std::uint64_t n) override;
  // Returns the byte as a signed 8-bit value: 0x80..0xFF come back as
  // -128..-1, so 0xFF cannot be told from the end of data.
  int getc() override;

  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

 private:
  void refill();

  ZSTD_DStream* context_;
  ZSTD_outBuffer out_desc_;
  ZSTD_inBuffer in_desc_;
  std::vector<char> in_buf_;
  std::vector<char> out_buf_;
  std::uint64_t read_pos_ = 0;
  bool more_ = true;
  bool input_open_ = true;
  strix::Reader* inner_;
};

// Compresses everything put into it into a target stream buffer (not owned).
// Destruction finishes the frame.
class outstreambuf : public std::streambuf {
 public:
  outstreambuf(std::streambuf* target, int level);
  ~outstreambuf() override;
  // Ends the frame and writes its tail; afterwards does nothing.
  void close();

  outstreambuf(const outstreambuf&) = delete;
  outstreambuf& operator=(const outstreambuf&) = delete;

 protected:
  int_type overflow(int_type c) override;

 private:
  void write_out(std::size_t n);

  ZSTD_CStream* context_;
  ZSTD_outBuffer out_desc_;
  ZSTD_inBuffer in_desc_;
  std::array<char, 65536> put_area_;
  std::vector<char> out_buf_;
  std::streambuf* target_;
  bool open_ = true;
};

}  // namespace zstd

namespace gzip {

// Deflates everything put into it, with a gzip header and trailer, into a
// target stream buffer (not owned). The byte that triggers an overflow is not
// stored: at every 65536-byte boundary of the text one byte is dropped.
// Readers of these files expect exactly that, so it stays.
class streambuf : public std::streambuf {
 public:
  streambuf(std::streambuf* target, int level);
  ~streambuf() override;
  void close();

  streambuf(const streambuf&) = delete;
  streambuf& operator=(const streambuf&) = delete;

 protected:
  int_type overflow(int_type c) override;

 private:
  void write_out();

  z_stream zs_{};
  std::array<char, 65536> put_area_;
  std::vector<unsigned char> out_buf_;
  std::streambuf* target_;
  bool open_ = true;
  bool initialised_ = false;
};

}  // namespace gzip

// Output in large pieces: writers format into a memory buffer, which is
// handed to the stream buffer whenever it passes kFlushAt bytes. Bytes go
// through sputn directly, so a compressing buffer's failure reaches the
// driver as its own exception.
//
// Once the first full piece is handed over, a second thread does the
// handing: the writer formats the next piece while the last one is written
// to the file or compressed. The pieces reach the stream buffer in order and
// from one thread at a time; when flush() returns, that thread is done with
// it. A failure of the stream buffer is rethrown to the writer at its next
// hand-over or flush, and nothing more is offered to it after that. A
// document smaller than one piece is written without a thread.
class OutBuffer {
 public:
  static constexpr std::size_t kFlushAt = 1 << 18;

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
    if (buf_->size() >= kFlushAt) hand_over();
  }
  // Hands over what is pending and waits until the stream buffer has it.
  void flush();

 private:
  struct Pipe;

  bool start_pipe();
  void hand_over();
  void wait_idle();
  void write_here();
  void rethrow_failure();

  std::streambuf* sink_;
  fmt::memory_buffer pieces_[2];
  fmt::memory_buffer* buf_ = &pieces_[0];  // the piece being formatted
  std::unique_ptr<Pipe> pipe_;             // started by the first hand-over
  bool no_thread_ = false;
  std::exception_ptr failure_;  // the stream buffer's, once it has failed
};

}  // namespace strix
