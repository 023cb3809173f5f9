// Shared pieces of the fuzz targets: a reader over the fuzzer's bytes and a
// stream buffer that discards what the writers produce.
#pragma once

#include <algorithm>  // std::min
#include <cstdint>    // std::uint8_t
#include <cstring>    // std::memcpy
#include <streambuf>  // std::streambuf

#include "strix/streams.h"

namespace strix::fuzz {

class MemoryReader : public Reader {
 public:
  MemoryReader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  std::uint64_t read(void* dst, std::uint64_t n) override {
    const std::uint64_t k = std::min<std::uint64_t>(n, size_ - pos_);
    if (k > 0) std::memcpy(dst, data_ + pos_, k);
    pos_ += k;
    return k;
  }
  int getc() override { return pos_ < size_ ? data_[pos_++] : -1; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

class NullBuffer : public std::streambuf {
 protected:
  std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
};

}  // namespace strix::fuzz
