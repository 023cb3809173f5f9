// Compressing output stream buffers: Zstandard and gzip streams written into
// a target stream buffer.
#pragma once

#include <array>      // std::array
#include <cstddef>    // std::size_t
#include <streambuf>  // std::streambuf
#include <vector>     // std::vector

#include <zlib.h>  // z_stream
#include <zstd.h>  // ZSTD_CStream

namespace strix {

namespace zstd {

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

}  // namespace strix
