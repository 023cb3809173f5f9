// Tar archives with this program's header layout.
#pragma once

#include <array>        // std::array
#include <cstddef>      // std::size_t
#include <cstdint>      // fixed-width integers
#include <ostream>      // std::ostream
#include <string_view>  // std::string_view

namespace strix {

// Streams tar members one after another: header, data, and the zero padding
// of a member written only when the next header or the end marker follows.
class TarWriter {
 public:
  explicit TarWriter(std::ostream& stream) : stream_(stream) {}

  void write_header(std::string_view name, std::uint32_t mode, std::uint32_t uid, std::uint32_t gid,
                    std::string_view uname, std::string_view gname, std::uint64_t size);
  // Data of the current member; bytes beyond its declared size are dropped.
  void write_data(const void* data, std::uint64_t n);
  // Pads the last member and writes two zero blocks; no record padding.
  void finish();

 private:
  std::array<unsigned char, 512> block_{};
  std::ostream& stream_;
  std::uint64_t remaining_ = 0;
  std::uint64_t pending_padding_ = 0;
};

}  // namespace strix
