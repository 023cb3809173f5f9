// Helpers shared by the unit tests of the byte streams and the record stream.
#pragma once

#include <algorithm>    // std::min
#include <cstdint>      // std::uint64_t
#include <cstring>      // std::memcpy
#include <iterator>     // std::size
#include <string>       // std::string
#include <string_view>  // std::string_view

#include "strix/streams.h"

namespace strix_test {

// A Reader over a byte string: delivers fewer bytes than asked only at the
// end, and counts how it is used.
class StringReader : public strix::Reader {
 public:
  explicit StringReader(std::string_view data) : data_(data) {}

  std::uint64_t read(void* dst, std::uint64_t n) override {
    ++read_calls;
    bytes_asked += n;
    const std::uint64_t k = std::min<std::uint64_t>(n, data_.size() - pos_);
    if (k > 0) std::memcpy(dst, data_.data() + pos_, k);
    pos_ += k;
    return k;
  }

  int getc() override {
    ++getc_calls;
    if (pos_ == data_.size()) return -1;
    return static_cast<unsigned char>(data_[pos_++]);
  }

  std::uint64_t position() const { return pos_; }
  int calls() const { return read_calls + getc_calls; }

  int read_calls = 0;
  int getc_calls = 0;
  std::uint64_t bytes_asked = 0;

 private:
  std::string data_;
  std::uint64_t pos_ = 0;
};

// Deterministic filler: text-like bytes that compress somewhat but not
// trivially, with every byte value present.
inline std::string sample_bytes(std::size_t n, std::uint32_t seed = 1) {
  using namespace std::string_view_literals;
  static constexpr std::string_view kWords[] = {
      "primal "sv, "dual "sv, "cone "sv, "basis "sv, "0.125 "sv, "-3e-07 "sv, "\xE9\xFF\x00 "sv};
  std::string s;
  s.reserve(n + 16);
  std::uint32_t x = seed;
  while (s.size() < n) {
    x = x * 1664525u + 1013904223u;
    if ((x >> 28) == 0) {
      s.push_back(static_cast<char>(x >> 16));
    } else {
      const std::string_view w = kWords[(x >> 24) % std::size(kWords)];
      s.append(w.data(), w.size());
    }
  }
  s.resize(n);
  return s;
}

}  // namespace strix_test
