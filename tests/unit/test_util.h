// Helpers shared by the unit tests.
#pragma once

#include <algorithm>         // std::min
#include <cstdint>           // std::uint64_t
#include <cstring>           // std::memcpy
#include <initializer_list>  // std::initializer_list
#include <string>            // std::string
#include <string_view>       // std::string_view

#include "strix/solution.h"
#include "strix/streams.h"

namespace strix_test {

// A Reader over a byte string: short counts only at the end; counts its calls.
class StringReader : public strix::Reader {
 public:
  explicit StringReader(std::string_view data) : data_(data) {}

  std::uint64_t read(void* dst, std::uint64_t n) override {
    ++calls;
    const std::uint64_t k = std::min<std::uint64_t>(n, data_.size() - pos_);
    if (k > 0) std::memcpy(dst, data_.data() + pos_, k);
    pos_ += k;
    return k;
  }

  int getc() override {
    ++calls;
    return pos_ == data_.size() ? -1 : static_cast<unsigned char>(data_[pos_++]);
  }

  std::uint64_t position() const { return pos_; }
  int calls = 0;

 private:
  std::string data_;
  std::uint64_t pos_ = 0;
};

// Fills the buffer first, then cuts the views, so no view is invalidated.
inline void set_names(strix::NameList& list, std::initializer_list<std::string_view> names) {
  std::string all;
  for (std::string_view n : names) all += n;
  list.buffer.assign(all.begin(), all.end());
  std::size_t at = 0;
  for (std::string_view n : names) {
    list.names.emplace_back(list.buffer.data() + at, n.size());
    at += n.size();
  }
}

}  // namespace strix_test
