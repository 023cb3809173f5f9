#include "strix/record.h"

#include <cstdint>      // fixed-width integers
#include <cstring>      // std::memcpy
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <vector>       // std::vector

#include <gtest/gtest.h>

#include "test_util.h"

namespace {

using namespace std::string_literals;
using strix_test::StringReader;

// ------------------------------------------------------------- helpers

// Little-endian image of a sequence of values.
template <typename T>
std::string le_bytes(const std::vector<T>& values) {
  std::string s;
  for (T v : values) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &v, sizeof v);
    for (std::size_t i = 0; i < sizeof v; ++i) s.push_back(static_cast<char>(bits >> (8 * i)));
  }
  return s;
}

std::vector<double> f64_values(std::size_t n) {
  std::vector<double> v;
  for (std::size_t i = 0; i < n; ++i) v.push_back(0.5 * static_cast<double>(i) - 3.25);
  return v;
}

// A minimal length prefix, built by hand: lengths below 32 are the byte
// itself; up to 8191 take 0b001 in the top bits, the high five bits of the
// length, then its low byte; up to 2^21 - 1, 0b010 and two further bytes.
std::string prefix(std::size_t n) {
  if (n < 32) return std::string(1, static_cast<char>(n));
  if (n < 8192) return {static_cast<char>(0x20 | (n >> 8)), static_cast<char>(n & 0xFF)};
  EXPECT_LT(n, std::size_t{1} << 21);
  return {static_cast<char>(0x40 | (n >> 16)), static_cast<char>((n >> 8) & 0xFF),
          static_cast<char>(n & 0xFF)};
}

std::uint64_t length_of(std::string_view bytes) {
  StringReader in(bytes);
  const strix::ArrayLength l = strix::read_array_length(in);
  EXPECT_FALSE(l.chunked);
  EXPECT_EQ(in.position(), bytes.size()) << "prefix bytes consumed";
  return l.bytes;
}

// ------------------------------------------------------------- length prefixes

TEST(ArrayLength, PrefixForms) {
  EXPECT_EQ(length_of("\x00"s), 0u);
  EXPECT_EQ(length_of("\x1F"), 31u);
  EXPECT_EQ(length_of("\x20\x05"), 5u);
  EXPECT_EQ(length_of("\x41\x00\x00"s), 65536u);  // 1, then two bytes: 1 << 16
  EXPECT_EQ(length_of("\x3F\xFF"), 8191u);
  EXPECT_EQ(length_of("\x40\x27\x10"), 10000u);
  // Longer than needed: the value is the same.
  EXPECT_EQ(length_of("\x40\x00\x05"s), 5u);
  EXPECT_EQ(length_of("\xC0\x00\x00\x00\x00\x00\x05"s), 5u);  // six further bytes
  // Seven further bytes after 0xE1 (0xE0 itself is the chunked mark): the
  // low five bits 1 end up above the 56 bits the further bytes give.
  EXPECT_EQ(length_of("\xE1\x00\x00\x00\x00\x00\x00\x05"s), (std::uint64_t{1} << 56) + 5);
  EXPECT_EQ(length_of("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"), (std::uint64_t{1} << 61) - 1);

  StringReader in("\xE0\x00\x00"s);
  EXPECT_TRUE(strix::read_array_length(in).chunked);
  EXPECT_EQ(in.position(), 1u);  // the chunks are the caller's
}

TEST(ReadBytes, PlainArraysOfEachPrefixForm) {
  const std::string text = strix_test::sample_bytes(65536 + 10, 3);
  struct Case {
    std::string head;
    std::size_t n;
  };
  for (const Case& c :
       {Case{"\x00"s, 0}, Case{"\x1F", 31}, Case{"\x20\x05", 5}, Case{"\x41\x00\x00"s, 65536},
        Case{"\x40\x00\x05"s, 5}, Case{"\xC0\x00\x00\x00\x00\x00\x05"s, 5}}) {
    SCOPED_TRACE(c.n);
    StringReader in(c.head + text.substr(0, c.n) + "Z");
    std::string out = "kept:";
    strix::read_bytes(in, out);
    EXPECT_TRUE(out == "kept:" + text.substr(0, c.n));  // appended
    EXPECT_EQ(in.getc(), 'Z');
  }
}

// ------------------------------------------------------------- chunked arrays

TEST(ChunkedArrays, OnlyReadBytesKeepsTheData) {
  const std::string abc =
      "\xE0\x00\x03"
      "abc\x00\x00"s +
      "Z";
  {
    StringReader in(abc);
    std::string out;
    strix::read_bytes(in, out);
    EXPECT_EQ(out, "abc");
    EXPECT_EQ(in.getc(), 'Z');
  }
  {
    StringReader in(abc);
    std::vector<double> out;
    strix::read_f64_array(in, out, 10);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(in.getc(), 'Z');
  }
  {
    StringReader in(abc);
    std::vector<std::uint8_t> out;
    strix::read_byte_array(in, out);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(in.getc(), 'Z');
  }
  // Several chunks, one longer than the 4096-byte block (0x20 0x01 is 8193
  // bytes, high byte first).
  const std::string big = strix_test::sample_bytes(8193, 4);
  const std::string chunks =
      "\xE0\x00\x02"
      "ab\x00\x01"
      "c\x20\x01"s +
      big + "\x00\x00Z"s;
  {
    StringReader in(chunks);
    std::string out;
    strix::read_bytes(in, out);
    EXPECT_TRUE(out == "abc" + big);
    EXPECT_EQ(in.getc(), 'Z');
  }
  {
    StringReader in(chunks);
    std::vector<char> out;
    strix::read_byte_array(in, out);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(in.getc(), 'Z');
  }
  {
    // Data ends inside a chunk, or before a chunk length: no endless loop.
    for (const std::string& cut : {"\xE0\x00\x09"
                                   "abc"s,
                                   "\xE0\x00\x03"
                                   "abc"s,
                                   "\xE0\x05"s}) {
      StringReader in(cut);
      std::string out;
      strix::read_bytes(in, out);
      EXPECT_EQ(out, cut.size() > 3 ? "abc" : "");
      std::vector<std::int64_t> typed;
      StringReader in2(cut);
      strix::read_i64_array(in2, typed, 4);
      EXPECT_TRUE(typed.empty());
    }
  }
}

// ------------------------------------------------------------- typed arrays

TEST(TypedArrays, LittleEndianElements) {
  {
    StringReader in(prefix(8) + "\x01\x00\x00\x00\xFF\xFF\xFF\xFF"s);
    std::vector<std::uint32_t> out;
    strix::read_u32_array(in, out, 2);
    EXPECT_EQ(out, (std::vector<std::uint32_t>{1, 0xFFFFFFFFu}));
  }
  {
    StringReader in(prefix(8) + "\x02\x01\x00\x00\xFE\xFF\xFF\xFF"s);
    std::vector<std::int32_t> out;
    strix::read_i32_array(in, out, 2);
    EXPECT_EQ(out, (std::vector<std::int32_t>{0x102, -2}));
  }
  {
    StringReader in(prefix(16) + "\x08\x07\x06\x05\x04\x03\x02\x01" + std::string(8, '\xFF'));
    std::vector<std::int64_t> out;
    strix::read_i64_array(in, out, 2);
    EXPECT_EQ(out, (std::vector<std::int64_t>{0x0102030405060708, -1}));
  }
  {
    StringReader in(prefix(8) + std::string(7, '\0') + "\x80"s);
    std::vector<std::uint64_t> out{9};
    strix::read_u64_array(in, out, 1);
    EXPECT_EQ(out, (std::vector<std::uint64_t>{9, std::uint64_t{1} << 63}));  // appended
  }
  {
    // 1.0 is 0x3FF0000000000000; -2.5 is 0xC004000000000000.
    StringReader in(prefix(16) + "\0\0\0\0\0\0\xF0\x3F\0\0\0\0\0\0\x04\xC0"s);
    std::vector<double> out;
    strix::read_f64_array(in, out, 2);
    EXPECT_EQ(out, (std::vector<double>{1.0, -2.5}));
  }
  {
    StringReader in(prefix(3) + "\x01\x02\x03Z");
    std::vector<std::uint8_t> bytes;
    strix::read_byte_array(in, bytes);
    EXPECT_EQ(bytes, (std::vector<std::uint8_t>{1, 2, 3}));
    EXPECT_EQ(in.getc(), 'Z');
  }
}

TEST(TypedArrays, PartialElementsAreDroppedAndBlocksJoined) {
  const std::vector<double> v = f64_values(1250);
  const std::string data = le_bytes(v);
  {
    // 12 bytes: one double, and the 4 left over are consumed with the array.
    StringReader in(prefix(12) + data.substr(0, 12) + "Z");
    std::vector<double> out;
    strix::read_f64_array(in, out, 1);
    EXPECT_EQ(out, std::vector<double>{v[0]});
    EXPECT_EQ(in.getc(), 'Z');
  }
  {
    // 10000 bytes span three 4096-byte blocks.
    ASSERT_EQ(data.size(), 10000u);
    ASSERT_EQ(prefix(10000), "\x40\x27\x10");
    StringReader in(prefix(10000) + data + "Z");
    std::vector<double> out;
    strix::read_f64_array(in, out, 1250);
    EXPECT_EQ(out, v);
    EXPECT_EQ(in.getc(), 'Z');
  }
}

TEST(TypedArrays, TruncatedDataEndsTheArray) {
  const std::vector<double> v = f64_values(20);
  const std::string data = le_bytes(v);
  {
    // The prefix promises 100 bytes, 20 arrive: two whole elements.
    StringReader in(prefix(100) + data.substr(0, 20));
    std::vector<double> out;
    strix::read_f64_array(in, out, 12);
    EXPECT_EQ(out, (std::vector<double>{v[0], v[1]}));
    std::vector<double> again;
    strix::read_f64_array(in, again, 12);  // nothing left at all
    EXPECT_TRUE(again.empty());
  }
  {
    // A prefix of 2^50 bytes (0xC4: six further bytes, low bits 4 << 48) over
    // 100 bytes of data.
    const std::string huge = "\xC4\x00\x00\x00\x00\x00\x00"s;
    ASSERT_EQ(length_of(huge), std::uint64_t{1} << 50);
    StringReader in(huge + le_bytes(f64_values(12)) + "tail");
    std::vector<double> out;
    strix::read_f64_array(in, out, UINT64_MAX);
    EXPECT_EQ(out, f64_values(12));  // 100 bytes: 12 doubles, 4 bytes over
    EXPECT_LT(out.capacity(), (std::size_t{64} << 20) / sizeof(double));

    StringReader in2(huge + "abc");
    std::string s;
    strix::read_bytes(in2, s);
    EXPECT_EQ(s, "abc");
    EXPECT_LT(s.capacity(), std::size_t{64} << 20);
  }
}

// ------------------------------------------------------------- section headers

TEST(SectionHeader, NameAndFormat) {
  StringReader in(
      "\x06numvar\x01I\x07\x00\x00\x00\x0A"
      "[d"s);
  strix::HeaderScratch scratch;
  strix::SectionHeader h = strix::read_section_header(in, scratch);
  EXPECT_EQ(h.name, "numvar");
  EXPECT_EQ(h.format, "I");
  EXPECT_EQ(in.getc(), 7);  // the payload follows at once

  StringReader empty_parts("\x00\x00X"s);
  h = strix::read_section_header(empty_parts, scratch);
  EXPECT_EQ(h.name, "");
  EXPECT_EQ(h.format, "");
  EXPECT_EQ(empty_parts.getc(), 'X');
}

TEST(SectionHeader, TruncatedInputGivesShortViews) {
  strix::HeaderScratch scratch;
  struct Case {
    std::string bytes, name, format;
  };
  for (const Case& c :
       {Case{"", "", ""}, Case{"\x06num", "num", ""}, Case{"\x06numvar", "numvar", ""},
        Case{"\x03"
             "abc\x05[d",
             "abc", "[d"}}) {
    SCOPED_TRACE(c.bytes);
    StringReader in(c.bytes);
    const strix::SectionHeader h = strix::read_section_header(in, scratch);
    EXPECT_EQ(h.name, c.name);
    EXPECT_EQ(h.format, c.format);
    EXPECT_EQ(in.position(), c.bytes.size());
  }
}

TEST(SectionHeader, LongestNameAndFormat) {
  std::string name, format;
  for (int i = 0; i < 255; ++i) {
    name.push_back(static_cast<char>('a' + i % 26));
    format.push_back("[dBIiLl"[i % 7]);
  }
  StringReader in("\xFF" + name + "\xFF" + format + "Q");
  strix::HeaderScratch scratch;
  const strix::SectionHeader h = strix::read_section_header(in, scratch);
  EXPECT_EQ(h.name, name);
  EXPECT_EQ(h.format, format);
  EXPECT_EQ(in.getc(), 'Q');
  // Both views lie inside the caller's scratch.
  for (const std::string_view v : {h.name, h.format}) {
    EXPECT_GE(v.data(), scratch.data());
    EXPECT_LE(v.data() + v.size(), scratch.data() + scratch.size());
  }
}

TEST(ReadExactOrZero, MissingBytesAreZero) {
  StringReader in("\x01\x02");
  unsigned char buf[4] = {9, 9, 9, 9};
  strix::read_exact_or_zero(in, buf, sizeof buf);
  EXPECT_EQ(std::vector<unsigned char>(buf, buf + 4), (std::vector<unsigned char>{1, 2, 0, 0}));
}

}  // namespace
