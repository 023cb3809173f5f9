// The record stream's length prefixes, chunked and truncated arrays, and
// section headers.
#include "strix/record.h"

#include <bit>          // std::bit_cast
#include <cstdint>      // fixed-width integers
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <utility>      // std::pair
#include <vector>       // std::vector

#include <gtest/gtest.h>

#include "strix/solution.h"  // Array
#include "strix/streams.h"
#include "test_util.h"

namespace {

using namespace std::string_literals;
using strix_test::StringReader;

TEST(ArrayLength, PrefixForms) {
  const std::pair<std::string, std::uint64_t> cases[] = {
      {"\x00"s, 0},
      {"\x1F", 31},
      {"\x20\x05", 5},                       // 0b001: one further byte
      {"\x41\x00\x00"s, 65536},              // 0b010: two further bytes; 1 << 16
      {"\x40\x00\x05"s, 5},                  // longer than needed: the value is the same
      {"\xC0\x00\x00\x00\x00\x00\x05"s, 5},  // six further bytes
      // Seven further bytes after 0xE1 (0xE0 alone is the chunked mark): the
      // low five bits 1 end up above the 56 bits the further bytes give.
      {"\xE1\x00\x00\x00\x00\x00\x00\x05"s, (std::uint64_t{1} << 56) + 5},
  };
  for (const auto& [bytes, length] : cases) {
    StringReader in(bytes + "Z");
    const strix::ArrayLength l = strix::read_array_length(in);
    EXPECT_FALSE(l.chunked);
    EXPECT_EQ(l.bytes, length);
    EXPECT_EQ(in.getc(), 'Z') << "prefix bytes consumed";
  }
  StringReader in("\xE0\x00\x00"s);
  EXPECT_TRUE(strix::read_array_length(in).chunked);
  EXPECT_EQ(in.position(), 1u);  // the chunks are the caller's
}

// Chunks: 16-bit big-endian lengths, each followed by its bytes, until a zero
// length. Only read_bytes keeps them; every other reader drops them.
TEST(ChunkedArrays, OnlyReadBytesKeepsTheData) {
  const std::string abc =
      "\xE0\x00\x02"
      "ab\x00\x01"
      "c\x00\x00Z"s;
  StringReader bytes_in(abc);
  std::string text;
  strix::read_bytes(bytes_in, text);
  EXPECT_EQ(text, "abc");
  EXPECT_EQ(bytes_in.getc(), 'Z');

  StringReader f64_in(abc);
  strix::Array<double> values;
  strix::read_f64_array(f64_in, values, 10);
  EXPECT_TRUE(values.empty());
  EXPECT_EQ(f64_in.getc(), 'Z');

  StringReader byte_in(abc);
  strix::Array<std::uint8_t> keys;
  strix::read_byte_array(byte_in, keys);
  EXPECT_TRUE(keys.empty());
  EXPECT_EQ(byte_in.getc(), 'Z');

  // Data ends inside a chunk, or before a chunk length: no endless loop.
  for (const std::string& cut : {"\xE0\x00\x09"
                                 "abc"s,
                                 "\xE0\x05"s}) {
    StringReader in(cut);
    std::string out;
    strix::read_bytes(in, out);
    EXPECT_EQ(out, cut.size() > 3 ? "abc" : "");
  }
}

TEST(TypedArrays, PartialAndTruncatedData) {
  // Every byte 0x3F: each element is the double with the bits 0x3F3F3F3F3F3F3F3F.
  const double d = std::bit_cast<double>(std::uint64_t{0x3F3F3F3F3F3F3F3F});
  const std::string data(100, '\x3F');
  {
    // 12 bytes: one double; the 4 left over are consumed with the array.
    StringReader in("\x0C"s + data.substr(0, 12) + "Z");
    strix::Array<double> out;
    strix::read_f64_array(in, out, 1);
    EXPECT_EQ(std::vector<double>(out.begin(), out.end()), std::vector<double>{d});
    EXPECT_EQ(in.getc(), 'Z');
  }
  {
    // The prefix promises 100 bytes (0x20 0x64), 20 arrive: two elements.
    StringReader in("\x20\x64"s + data.substr(0, 20));
    strix::Array<double> out;
    strix::read_f64_array(in, out, 12);
    EXPECT_EQ(std::vector<double>(out.begin(), out.end()), std::vector<double>(2, d));
    strix::Array<double> again;
    strix::read_f64_array(in, again, 12);  // nothing left at all
    EXPECT_TRUE(again.empty());
  }
  {
    // A prefix of 2^50 bytes (0xC4: six further bytes, low bits 4 << 48) over
    // 100 bytes: what arrives is kept, and no 2^50-byte allocation is made.
    const std::string huge = "\xC4\x00\x00\x00\x00\x00\x00"s;
    StringReader in(huge + data);
    strix::Array<double> out;
    strix::read_f64_array(in, out, UINT64_MAX);
    EXPECT_EQ(std::vector<double>(out.begin(), out.end()),
              std::vector<double>(12, d));  // 12 doubles, 4 bytes over
    EXPECT_LT(out.capacity(), (std::size_t{64} << 20) / sizeof(double));

    StringReader in2(huge + "abc");
    std::string s;
    strix::read_bytes(in2, s);
    EXPECT_EQ(s, "abc");
    EXPECT_LT(s.capacity(), std::size_t{64} << 20);
  }
}

// A reader that knows how much is left, as a plain input file does.
class SizedReader : public StringReader {
 public:
  explicit SizedReader(const std::string& data) : StringReader(data), size_(data.size()) {}
  std::uint64_t remaining_bound() override { return size_ - position(); }

 private:
  std::uint64_t size_;
};

// Where the input's size is known, an array the rest of the input can hold
// is reserved whole before its data is read: one allocation, no moves. A
// length the input cannot hold reserves no more than without a size.
TEST(TypedArrays, ReservationFollowsTheKnownInputSize) {
  constexpr std::uint64_t n = 2500000;             // 20,000,000 bytes: past the first reservation
  const std::string prefix = "\x61\x31\x2D\x00"s;  // 0b011: three further bytes
  std::string data = prefix;
  for (std::uint64_t i = 0; i < n; ++i) {
    const auto d = static_cast<double>(i);
    data.append(reinterpret_cast<const char*>(&d), sizeof d);
  }
  const auto expect_counting = [&](const strix::Array<double>& out) {
    ASSERT_EQ(out.size(), n);
    for (std::uint64_t i = 0; i < n; ++i) ASSERT_EQ(out[i], static_cast<double>(i)) << i;
  };
  {
    SizedReader in(data);
    strix::Array<double> out;
    strix::read_f64_array(in, out, n);
    expect_counting(out);
    EXPECT_EQ(out.capacity(), n);
  }
  {
    StringReader in(data);  // size unknown: grows with the data, same elements
    strix::Array<double> out;
    strix::read_f64_array(in, out, n);
    expect_counting(out);
  }
  {
    SizedReader in(prefix + std::string(100, '\x3F'));
    strix::Array<double> out;
    strix::read_f64_array(in, out, n);
    EXPECT_EQ(out.size(), 12u);
    EXPECT_LE(out.capacity(), (std::size_t{8} << 20) / sizeof(double));
  }
}

TEST(SectionHeader, NameFormatAndTruncation) {
  strix::HeaderScratch scratch;
  struct Case {
    std::string bytes, name, format;
    std::uint64_t consumed;
  };
  const Case cases[] = {
      {"\x06numvar\x01I\x07"s, "numvar", "I", 9},  // the payload byte 7 stays
      {"\x00\x00X"s, "", "", 2},
      {"", "", "", 0},
      {"\x06num", "num", "", 4},
      {"\x06numvar", "numvar", "", 7},
      {"\x03"
       "abc\x05[d",
       "abc", "[d", 7},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    StringReader in(c.bytes);
    const strix::SectionHeader h = strix::read_section_header(in, scratch);
    EXPECT_EQ(h.name, c.name);
    EXPECT_EQ(h.format, c.format);
    EXPECT_EQ(in.position(), c.consumed);
  }
}

}  // namespace
