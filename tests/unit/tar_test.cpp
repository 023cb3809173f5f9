// The tar writer where a task archive never goes: zero modes and ids, sizes
// from 2^29 on, data beyond the declared size.
#include "strix/tar.h"

#include <cstdint>  // std::uint64_t
#include <sstream>  // std::ostringstream
#include <string>   // std::string
#include <utility>  // std::pair
#include <vector>   // std::vector

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

// Checks each field (with those every header has, and the checksum of them
// all: bytes read as signed, the field itself as blanks) and zeroes it, then
// proves that no other byte is set.
void expect_header(std::string header, std::vector<std::pair<std::size_t, std::string>> fields) {
  // clang-format off
  fields.insert(fields.end(), {{136, "00000000000\0"s}, {156, "0"}, {257, "ustar 00"},
                               {329, "0000000\0"s}, {337, "0000000\0"s}});
  // clang-format on
  int sum = 8 * ' ';
  for (const auto& field : fields) {
    for (const char c : field.second) sum += static_cast<signed char>(c);
  }
  fields.emplace_back(148, fmt::format("{:08o}", sum & 0xFFFFFF));
  ASSERT_EQ(header.size(), 512u);
  for (const auto& [offset, bytes] : fields) {
    EXPECT_EQ(header.substr(offset, bytes.size()), bytes) << "field at " << offset;
    header.replace(offset, bytes.size(), bytes.size(), '\0');
  }
  EXPECT_EQ(header, std::string(512, '\0'));
}

TEST(TarWriter, HeaderFieldsAndSizes) {
  std::ostringstream out;
  strix::TarWriter(out, {0, 8, 0, "", ""}).write_header("a", 0);
  // Zero is "0000000" and a zero byte, others eight digits. By hand: 'a' 97
  // + mode and gid 2 * 336 + uid 385 + size and mtime 2 * 528 + blanks 256 +
  // typeflag 48 + "ustar 00" 687 + devices 2 * 336 = 3873 = 07441.
  EXPECT_EQ(out.str().substr(148, 8), "00007441");
  // clang-format off
  expect_header(out.str(), {{0, "a"}, {100, "0000000\0"s}, {108, "00000010"}, {116, "0000000\0"s},
                            {124, "00000000000\0"s}});
  // clang-format on
  const std::pair<std::uint64_t, std::string> cases[] = {
      {513, "000000001001"},
      {536870911, "003777777777"},  // 2^29 - 1, the largest octal size
      // From 2^29: 0x80, three zero bytes, the size as 64 bits big-endian.
      {536870912, "\x80\0\0\0\0\0\0\0\x20\0\0\0"s},
      {0x0102030405060708, "\x80\0\0\0\x01\x02\x03\x04\x05\x06\x07\x08"s},  // header only
  };
  for (const auto& [size, field] : cases) {
    std::ostringstream stream;
    strix::TarWriter tar(stream, {0600, 1001, 1001, "nollo", "nollo"});
    tar.write_header("big", size);
    // clang-format off
    expect_header(stream.str(), {{0, "big"}, {100, "00000600"}, {108, "00001751"}, {116, "00001751"},
                                 {124, field}, {265, "\0ollo"s}, {297, "nollo"}});
    // clang-format on
    if (size != 513) continue;
    tar.write_data(std::string(520, 'd').data(), 520);  // seven bytes past the declared size
    tar.write_data("x", 1);
    EXPECT_EQ(stream.str().size(), 512 + 513u);  // padding waits for the next header or the end
    tar.finish();
    EXPECT_EQ(stream.str().substr(512), std::string(513, 'd') + std::string(511 + 1024, '\0'));
  }
}

}  // namespace
