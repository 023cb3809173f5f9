// The tar writer's header bytes, size forms, padding and end marker, the item
// name escapes and the array member header's exceptions.
#include "strix/tar.h"
#include "strix/escape.h"

#include <algorithm>    // std::find_if, std::min
#include <array>        // std::array
#include <cstdint>      // fixed-width integers
#include <cstdio>       // std::snprintf
#include <cstring>      // std::memcpy, std::memset
#include <ostream>      // std::ostream
#include <sstream>      // std::ostringstream
#include <streambuf>    // std::streambuf
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <utility>      // std::pair
#include <vector>       // std::vector

#include <gtest/gtest.h>

#include "strix/solution.h"
#include "strix/writers.h"

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

constexpr std::size_t kBlock = 512;

std::string zeros(std::size_t n) {
  return std::string(n, '\0');
}

// Non-zero bytes expected at one offset of a header.
struct FieldBytes {
  std::size_t offset;
  std::string bytes;
};

// Fields every header has: mtime 0, regular file, "ustar 00" with its blank,
// devmajor and devminor.
std::vector<FieldBytes> with_fixed_fields(std::vector<FieldBytes> fields) {
  fields.insert(fields.end(), {{136, "00000000000\0"s},
                               {156, "0"},
                               {257, "ustar 00"},
                               {329, "0000000\0"s},
                               {337, "0000000\0"s}});
  return fields;
}

// The checksum of a header holding `fields`: the sum of bytes 0..499 read as
// signed, with blanks in the checksum field, as eight octal digits of its low
// 24 bits ("0000000" and a zero byte for 0).
std::string expected_checksum(const std::vector<FieldBytes>& fields) {
  std::array<unsigned char, kBlock> image{};
  for (const FieldBytes& f : fields)
    std::memcpy(image.data() + f.offset, f.bytes.data(), f.bytes.size());
  std::memset(image.data() + 148, ' ', 8);
  int sum = 0;
  for (std::size_t i = 0; i < 500; ++i) sum += static_cast<signed char>(image[i]);
  if (sum == 0) return "0000000\0"s;
  char digits[16];
  std::snprintf(digits, sizeof digits, "%08o", static_cast<unsigned>(sum) & 0xFFFFFFu);
  return std::string(digits, 8);
}

// Checks each field and zeroes it, then the checksum, then proves that no
// other byte of the header is set.
void expect_header(std::string header, const std::vector<FieldBytes>& fields,
                   const std::string& checksum) {
  ASSERT_EQ(header.size(), kBlock);
  for (const FieldBytes& f : fields) {
    EXPECT_EQ(header.substr(f.offset, f.bytes.size()), f.bytes) << "field at " << f.offset;
    header.replace(f.offset, f.bytes.size(), zeros(f.bytes.size()));
  }
  EXPECT_EQ(header.substr(148, 8), checksum) << "checksum";
  header.replace(148, 8, zeros(8));
  const auto stray = std::find_if(header.begin(), header.end(), [](char c) { return c != 0; });
  EXPECT_TRUE(stray == header.end()) << "unexpected byte at " << (stray - header.begin());
}

// A task member's header: mode 0600 "00000600", ids 1001 (octal 1751), the
// user name "nollo" with its first byte zeroed.
std::vector<FieldBytes> member_fields(const std::string& name, const std::string& size) {
  return with_fixed_fields({{0, name},
                            {100, "00000600"},
                            {108, "00001751"},
                            {116, "00001751"},
                            {124, size},
                            {265, "\0ollo"s},
                            {297, "nollo"}});
}

constexpr strix::TarOwner kOwner{0600, 1001, 1001, "nollo", "nollo"};

void write_member_header(strix::TarWriter& tar, std::string_view name, std::uint64_t size) {
  tar.write_header(name, size);
}

TEST(TarHeader, ZeroAndNonZeroOctalWithHandWorkedChecksum) {
  std::ostringstream out;
  strix::TarWriter tar(out, {0, 8, 0, "", ""});
  tar.write_header("a", 0);
  // Zero values are "0000000" and a zero byte, uid 8 is "00000010". Sum:
  // 'a' 97 + mode and gid 2*336 + uid 385 + size and mtime 2*528 + blanks 256
  // + typeflag 48 + "ustar 00" 687 + devmajor/devminor 2*336 = 3873 = 07441.
  const auto fields = with_fixed_fields({{0, "a"},
                                         {100, "0000000\0"s},
                                         {108, "00000010"},
                                         {116, "0000000\0"s},
                                         {124, "00000000000\0"s}});
  expect_header(out.str(), fields, "00007441");
  EXPECT_EQ(expected_checksum(fields), "00007441");  // the helper agrees with the hand sum
}

// Discards what it is given, keeping the first 512 bytes and a count. The
// writer hands over pieces (sputn); a single sputc would meet the default
// overflow, which refuses, and the counts would show it.
class CountingBuf : public std::streambuf {
 public:
  std::uint64_t count = 0;
  std::string head;

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    head.append(s, std::min<std::size_t>(static_cast<std::size_t>(n), kBlock - head.size()));
    count += static_cast<std::uint64_t>(n);
    return n;
  }
};

TEST(TarHeader, SizeFormsAndWholeLargeMembers) {
  struct Case {
    std::uint64_t size;
    std::string field;
  };
  const Case cases[] = {
      {0, "00000000000\0"s},
      {536870911, "003777777777"},  // 2^29 - 1: the largest octal size
      // 2^29: base-256, marker 0x80, three zero bytes, 64-bit big-endian.
      {536870912, "\x80\0\0\0\0\0\0\0\x20\0\0\0"s},
      {0x0102030405060708, "\x80\0\0\0\x01\x02\x03\x04\x05\x06\x07\x08"s},  // header only
  };
  const std::vector<char> chunk(1 << 16);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.size);
    CountingBuf sink;
    std::ostream out(&sink);
    strix::TarWriter tar(out, kOwner);
    write_member_header(tar, "big", c.size);
    const auto fields = member_fields("big", c.field);
    expect_header(sink.head, fields, expected_checksum(fields));
    if (c.size > (std::uint64_t{1} << 30)) continue;
    for (std::uint64_t left = c.size; left > 0;) {
      const std::uint64_t n = std::min<std::uint64_t>(left, chunk.size());
      tar.write_data(chunk.data(), n);
      left -= n;
    }
    tar.write_data(chunk.data(), chunk.size());  // past the declared size: dropped
    EXPECT_EQ(sink.count, kBlock + c.size);
    tar.finish();
    EXPECT_EQ(sink.count, kBlock + (c.size + 511) / 512 * 512 + 1024);
  }
}

TEST(TarArchive, EmptyArchiveIsTwoZeroBlocks) {
  std::ostringstream out;
  strix::TarWriter(out, kOwner).finish();
  EXPECT_EQ(out.str(), zeros(1024));
}

TEST(TarArchive, PaddingIsWrittenLate) {
  for (const std::size_t size : {0, 1, 511, 512, 513}) {
    SCOPED_TRACE(size);
    const std::size_t padding = (512 - size % 512) % 512;
    const std::string data(size, 'd');
    std::ostringstream out;
    strix::TarWriter tar(out, kOwner);
    write_member_header(tar, "m", size);
    tar.write_data(data.data(), data.size());
    EXPECT_EQ(out.str().size(), kBlock + size);  // the padding waits for what follows
    write_member_header(tar, "n", 0);
    EXPECT_EQ(out.str().substr(kBlock + size, padding + 1), zeros(padding) + "n");
    write_member_header(tar, "o", size);
    tar.write_data(data.data(), data.size());
    tar.finish();
    const std::string archive = out.str();
    ASSERT_EQ(archive.size(), 3 * kBlock + 2 * (size + padding) + 1024);
    EXPECT_EQ(archive.substr(archive.size() - padding - 1024), zeros(padding + 1024));
  }
}

TEST(TarArchive, DataBeyondDeclaredSizeIsDropped) {
  std::ostringstream out;
  strix::TarWriter tar(out, kOwner);
  write_member_header(tar, "m", 5);
  tar.write_data("ab", 2);
  tar.write_data("cdefgh", 6);  // only "cde" fits
  tar.write_data("ij", 2);      // nothing left: nothing written
  tar.finish();
  EXPECT_EQ(out.str().substr(kBlock), "abcde" + zeros(507 + 1024));
}

// Fails every write with an exception of its own, as a compressing buffer does.
struct SinkFailure {};
class FailingBuf : public std::streambuf {
 protected:
  std::streamsize xsputn(const char*, std::streamsize) override { throw SinkFailure{}; }
  int_type overflow(int_type) override { throw SinkFailure{}; }
};

// Writes go to the stream buffer: an ostream write would turn the buffer's
// exception into badbit and the failure would pass unnoticed.
TEST(TarArchive, StreamBufferExceptionsComeThrough) {
  FailingBuf failing;
  std::ostream out(&failing);
  strix::TarWriter tar(out, kOwner);
  EXPECT_THROW(write_member_header(tar, "m", 1), SinkFailure);
  EXPECT_THROW(tar.finish(), SinkFailure);
}

TEST(EscapeItemName, Bytes) {
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"\t\n\r\\", "\\t\\n\\r\\\\"},
      {"\0\x0c\x1f"sv, "\\x00\\x0c\\x1f"},
      {"\x80\xc3\xff", "\\x80\\xc3\\xff"},
      {" \"~\x7f", " \"~\x7f"},          // copied: 127 is above 31 also as a signed byte
      {"caf\xc3\xa9", "caf\\xc3\\xa9"},  // UTF-8: one escape per byte
      {"", ""},
  };
  for (const auto& [name, escaped] : cases) {
    std::string out = "kept|";
    strix::append_escaped(out, name, strix::kItemNameEscapes);
    EXPECT_EQ(out, "kept|" + std::string(escaped)) << testing::PrintToString(std::string(name));
  }
}

// The 40-byte array member header: "NLOM", flag, reserved, element type 9
// (double), kind, u64 1, the count twice (little-endian), eight zero bytes.
std::string nlom(char flag, char kind, char count) {
  return "NLOM"s + flag + '\0' + '\x09' + kind + "\x01" + zeros(7) + count + zeros(7) + count +
         zeros(7) + zeros(8);
}

TEST(TaskArchive, ArrayMemberHeaderExceptions) {
  strix::Solution solution;
  strix::SolutionItem& item = solution.solutions.emplace_back();
  item.kind = "basic";
  item.xx = {1.0};
  item.doty = {1.0, -2.0};
  item.barx = {-2.0};
  item.bars = {1.0};
  std::ostringstream out;
  strix::write_task(out, solution);
  const std::string archive = out.str();
  // The first n bytes after the header that starts with the member's name.
  const auto data = [&](const std::string& name, std::size_t n) {
    const std::size_t at = archive.find("Task/solution/basic/" + name + '\0');
    return at == std::string::npos ? "missing" : archive.substr(at + kBlock, n);
  };
  const std::string one = "\0\0\0\0\0\0\xf0\x3f"s;      // 1.0 = 0x3FF0000000000000
  const std::string minus_two = "\0\0\0\0\0\0\0\xc0"s;  // -2.0 = 0xC000000000000000
  // Flag 8 and kind byte 3, but doty's kind byte is 4 and barx and bars have flag 0.
  EXPECT_EQ(data("xx", 48), nlom(8, 3, 1) + one);
  EXPECT_EQ(data("doty", 56), nlom(8, 4, 2) + one + minus_two);
  EXPECT_EQ(data("barx", 48), nlom(0, 3, 1) + minus_two);
  EXPECT_EQ(data("bars", 48), nlom(0, 3, 1) + one);
}

}  // namespace
