// Tar archives with this program's header layout.
#pragma once

#include <array>        // std::array
#include <cstddef>      // std::size_t
#include <cstdint>      // fixed-width integers
#include <ostream>      // std::ostream
#include <string_view>  // std::string_view

namespace strix {

// Tar's unit: a header is one block, and data is padded to whole blocks.
inline constexpr std::size_t kTarBlock = 512;

// Permissions and owner, the same for every member of an archive.
struct TarOwner {
  std::uint32_t mode;
  std::uint32_t uid;
  std::uint32_t gid;
  std::string_view uname;
  std::string_view gname;
};

// Streams tar members one after another: header, data, and the zero padding
// of a member written only when the next header or the end marker follows.
class TarWriter {
 public:
  TarWriter(std::ostream& stream, const TarOwner& owner);

  // A member of `size` data bytes, which the following write_data calls give.
  void write_header(std::string_view name, std::uint64_t size);
  // Data of the current member; bytes beyond its declared size are dropped.
  void write_data(const void* data, std::uint64_t n);
  // Pads the last member and writes two zero blocks; no record padding.
  void finish();

 private:
  // Bytes go to the stream buffer directly: a compressing buffer's
  // exception must reach the caller, which ostream::write would swallow
  // into badbit. What sputn returns is not looked at; the stream's owner
  // checks its own writes.
  void put(const void* data, std::uint64_t n);
  void put_zeros(std::uint64_t n);

  std::array<unsigned char, kTarBlock> template_{};  // every field but name, size, checksum
  std::array<unsigned char, kTarBlock> block_{};     // the header being written
  std::ostream& stream_;
  std::uint64_t remaining_ = 0;
  std::uint64_t pending_padding_ = 0;
};

}  // namespace strix
