#include "strix/compress.h"

#include <algorithm>  // std::clamp
#include <new>        // std::bad_alloc

#include "strix/errors.h"

namespace strix {

namespace {
// Hands n bytes to a target, retrying short writes; a target that takes
// nothing has failed.
void put_all(std::streambuf* target, const char* data, std::size_t n) {
  while (n > 0) {
    const std::streamsize put = target->sputn(data, static_cast<std::streamsize>(n));
    if (put <= 0) throw IOError{};
    data += put;
    n -= static_cast<std::size_t>(put);
  }
}
}  // namespace

namespace zstd {

outstreambuf::outstreambuf(std::streambuf* target, int level)
    : context_(ZSTD_createCStream()), out_buf_(ZSTD_CStreamOutSize()), target_(target) {
  level = std::clamp(level, 1, ZSTD_maxCLevel());
  ZSTD_initCStream(context_, level);
  out_desc_ = {out_buf_.data(), out_buf_.size(), 0};
  in_desc_ = {nullptr, 0, 0};
  setp(put_area_.data(), put_area_.data() + put_area_.size());
}

outstreambuf::~outstreambuf() {
  close();
  ZSTD_freeCStream(context_);
}

void outstreambuf::write_out(std::size_t n) {
  try {
    put_all(target_, out_buf_.data(), n);
  } catch (...) {
    // The target is broken: it would refuse the frame's tail as well, so
    // destruction must not try again and fail a second time.
    open_ = false;
    throw;
  }
}

outstreambuf::int_type outstreambuf::overflow(int_type c) {
  if (!open_) return traits_type::eof();
  in_desc_ = {put_area_.data(), static_cast<std::size_t>(pptr() - pbase()), 0};
  while (in_desc_.pos < in_desc_.size) {
    out_desc_.pos = 0;
    const std::size_t rc = ZSTD_compressStream(context_, &out_desc_, &in_desc_);
    if (out_desc_.pos > 0) write_out(out_desc_.pos);
    // The library fails only when it is out of memory; stop rather than
    // spin on input it will not take.
    if (ZSTD_isError(rc)) break;
  }
  setp(put_area_.data(), put_area_.data() + put_area_.size());
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  return sputc(traits_type::to_char_type(c));
}

void outstreambuf::close() {
  overflow(traits_type::eof());
  if (!open_) return;
  std::size_t left;
  do {
    out_desc_.pos = 0;
    left = ZSTD_flushStream(context_, &out_desc_);
    if (out_desc_.pos > 0) write_out(out_desc_.pos);
  } while (left > 0 && !ZSTD_isError(left));
  do {
    out_desc_.pos = 0;
    left = ZSTD_endStream(context_, &out_desc_);
    if (out_desc_.pos > 0) write_out(out_desc_.pos);
  } while (left > 0 && !ZSTD_isError(left));
  open_ = false;
}

}  // namespace zstd

// ---------------------------------------------------------- gzip output

namespace gzip {

namespace {
constexpr int kWindowBitsGzip = 31;  // 32 KiB window, gzip header and trailer
constexpr int kMemLevel = 8;
}  // namespace

streambuf::streambuf(std::streambuf* target, int level) : out_buf_(65536), target_(target) {
  const int rc =
      deflateInit2(&zs_, level, Z_DEFLATED, kWindowBitsGzip, kMemLevel, Z_DEFAULT_STRATEGY);
  if (rc == Z_MEM_ERROR) throw std::bad_alloc();
  if (rc != Z_OK) throw GZipError{rc};
  initialised_ = true;
  zs_.next_out = out_buf_.data();
  zs_.avail_out = static_cast<uInt>(out_buf_.size());
  setp(put_area_.data(), put_area_.data() + put_area_.size());
}

streambuf::~streambuf() {
  close();
  if (initialised_) deflateEnd(&zs_);
}

void streambuf::write_out() {
  const std::size_t produced = out_buf_.size() - zs_.avail_out;
  try {
    put_all(target_, reinterpret_cast<const char*>(out_buf_.data()), produced);
  } catch (...) {
    open_ = false;  // as for the Zstandard buffer: no second failure on close
    throw;
  }
  zs_.next_out = out_buf_.data();
  zs_.avail_out = static_cast<uInt>(out_buf_.size());
}

// `c` is deliberately not stored: the byte that overflows the put area is
// dropped from the stream.
streambuf::int_type streambuf::overflow(int_type /*c*/) {
  if (!open_) return traits_type::eof();
  zs_.next_in = reinterpret_cast<Bytef*>(put_area_.data());
  zs_.avail_in = static_cast<uInt>(pptr() - pbase());
  while (zs_.avail_in > 0) {
    const int rc = deflate(&zs_, Z_NO_FLUSH);
    if (rc != Z_OK && rc != Z_BUF_ERROR) {
      open_ = false;
      throw GZipError{rc};
    }
    write_out();
  }
  setp(put_area_.data(), put_area_.data() + put_area_.size());
  return 0;
}

void streambuf::close() {
  overflow(traits_type::eof());
  if (!open_) return;
  zs_.next_in = nullptr;
  zs_.avail_in = 0;
  int rc;
  do {
    zs_.next_out = out_buf_.data();
    zs_.avail_out = static_cast<uInt>(out_buf_.size());
    rc = deflate(&zs_, Z_FINISH);
    if (rc != Z_OK && rc != Z_STREAM_END && rc != Z_BUF_ERROR) {
      open_ = false;
      throw GZipError{rc};
    }
    write_out();
  } while (rc != Z_STREAM_END);
  open_ = false;
}

}  // namespace gzip

}  // namespace strix
