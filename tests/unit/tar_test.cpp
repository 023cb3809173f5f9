#include "strix/tar.h"

#include <algorithm>         // std::all_of, std::find_if
#include <array>             // std::array
#include <cstdint>           // fixed-width integers
#include <cstdio>            // std::snprintf
#include <cstring>           // std::memcpy, std::memset
#include <initializer_list>  // std::initializer_list
#include <ostream>           // std::ostream
#include <sstream>           // std::ostringstream
#include <streambuf>         // std::streambuf
#include <string>            // std::string
#include <string_view>       // std::string_view
#include <vector>            // std::vector

#include <gtest/gtest.h>

#include "strix/solution.h"

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

constexpr std::size_t kBlock = 512;

// ------------------------------------------------------------- helpers

// Non-zero bytes expected at one offset of a header.
struct FieldBytes {
  std::size_t offset;
  std::string bytes;
};

// The checksum field expected for a header whose other bytes are `fields`:
// the signed sum of bytes 0..499 with blanks in the checksum field, as eight
// octal digits of its low 24 bits ("0000000" and a zero byte for 0).
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

// Checks each expected field and zeroes it, then the checksum, then proves
// that no other byte of the header is set.
void expect_header(std::string header, const std::vector<FieldBytes>& fields,
                   const std::string* checksum = nullptr) {
  ASSERT_EQ(header.size(), kBlock);
  for (const FieldBytes& f : fields) {
    EXPECT_EQ(header.substr(f.offset, f.bytes.size()), f.bytes) << "field at " << f.offset;
    header.replace(f.offset, f.bytes.size(), f.bytes.size(), '\0');
  }
  const std::string sum = checksum != nullptr ? *checksum : expected_checksum(fields);
  EXPECT_EQ(header.substr(148, 8), sum) << "checksum";
  header.replace(148, 8, 8, '\0');
  const auto stray = std::find_if(header.begin(), header.end(), [](char c) { return c != 0; });
  EXPECT_TRUE(stray == header.end()) << "unexpected byte at " << (stray - header.begin());
}

// Size field of a member below 2^29 bytes: twelve octal digits, or eleven
// "0" and a zero byte for an empty member.
std::string size_field(std::uint64_t size) {
  if (size == 0) return "00000000000\0"s;
  char digits[32];
  std::snprintf(digits, sizeof digits, "%012llo", static_cast<unsigned long long>(size));
  return std::string(digits, 12);
}

// Fields every header has whatever its arguments.
void add_fixed_fields(std::vector<FieldBytes>& fields) {
  fields.push_back({136, "00000000000\0"s});  // mtime 0
  fields.push_back({156, "0"});               // regular file
  fields.push_back({257, "ustar 00"});        // blank between "ustar" and "00"
  fields.push_back({329, "0000000\0"s});      // devmajor
  fields.push_back({337, "0000000\0"s});      // devminor
}

// Every header of a task archive: mode 0600 is "00000600", uid and gid 1001
// (octal 1751) "00001751", the user name "nollo" with its first byte zeroed.
std::vector<FieldBytes> task_member_fields(const std::string& name, std::uint64_t size) {
  std::vector<FieldBytes> fields{{0, name},         {100, "00000600"},       {108, "00001751"},
                                 {116, "00001751"}, {124, size_field(size)}, {265, "\0ollo"s},
                                 {297, "nollo"}};
  add_fixed_fields(fields);
  return fields;
}

std::string all_zero(std::size_t n) {
  return std::string(n, '\0');
}

// Discards what it is given, keeping the first 512 bytes and a count.
class CountingBuf : public std::streambuf {
 public:
  std::uint64_t count = 0;
  std::string head;

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    const auto keep = std::min<std::uint64_t>(
        static_cast<std::uint64_t>(n), kBlock - std::min<std::uint64_t>(head.size(), kBlock));
    head.append(s, keep);
    count += static_cast<std::uint64_t>(n);
    return n;
  }
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char ch = traits_type::to_char_type(c);
    xsputn(&ch, 1);
    return c;
  }
};

struct SinkFailure {};

// Fails every write with an exception of its own, as a compressing buffer does.
class FailingBuf : public std::streambuf {
 protected:
  std::streamsize xsputn(const char*, std::streamsize) override { throw SinkFailure{}; }
  int_type overflow(int_type) override { throw SinkFailure{}; }
};

// ------------------------------------------------- independent tar reader

struct Member {
  std::string name;
  std::string header;
  std::string data;
};

std::uint64_t parse_octal(std::string_view field) {
  std::uint64_t value = 0;
  for (char c : field) {
    if (c == '\0' || c == ' ') break;
    EXPECT_TRUE(c >= '0' && c <= '7') << "bad octal digit";
    value = value * 8 + static_cast<std::uint64_t>(c - '0');
  }
  return value;
}

// Splits an archive into members, checking checksums, zero padding and that
// the archive ends with exactly two zero blocks.
std::vector<Member> parse_archive(const std::string& archive) {
  std::vector<Member> members;
  std::size_t pos = 0;
  for (;;) {
    if (pos + kBlock > archive.size()) {
      ADD_FAILURE() << "archive ends without an end marker at " << pos;
      return members;
    }
    const std::string header = archive.substr(pos, kBlock);
    if (header == all_zero(kBlock)) {
      EXPECT_EQ(archive.size(), pos + 2 * kBlock) << "end marker is not exactly two zero blocks";
      EXPECT_EQ(archive.substr(pos), all_zero(archive.size() - pos));
      return members;
    }
    int sum = 0;
    for (std::size_t i = 0; i < 500; ++i) {
      sum += (i >= 148 && i < 156) ? ' ' : static_cast<signed char>(header[i]);
    }
    EXPECT_EQ(parse_octal(std::string_view(header).substr(148, 8)),
              static_cast<unsigned>(sum) & 0xFFFFFFu)
        << "checksum of member at " << pos;
    std::uint64_t size = 0;
    if (static_cast<unsigned char>(header[124]) == 0x80) {
      for (std::size_t i = 128; i < 136; ++i)
        size = size * 256 + static_cast<unsigned char>(header[i]);
    } else {
      size = parse_octal(std::string_view(header).substr(124, 12));
    }
    Member m;
    m.name = header.substr(0, std::min<std::size_t>(header.find('\0'), 100));
    m.header = header;
    pos += kBlock;
    if (pos + size > archive.size()) {
      ADD_FAILURE() << "member " << m.name << " runs past the end";
      return members;
    }
    m.data = archive.substr(pos, size);
    pos += size;
    const std::size_t padded = (pos + kBlock - 1) / kBlock * kBlock;
    EXPECT_EQ(archive.substr(pos, padded - pos), all_zero(padded - pos)) << "padding of " << m.name;
    pos = padded;
    members.push_back(std::move(m));
  }
}

// The 40-byte array member header: "NLOM", flag, reserved, element type,
// kind, u64 1, count twice (little-endian), eight zero bytes.
std::string nlom(unsigned char flag, unsigned char type, unsigned char kind, std::uint64_t count) {
  std::string h = "NLOM"s;
  h += static_cast<char>(flag);
  h += '\0';
  h += static_cast<char>(type);
  h += static_cast<char>(kind);
  h += "\x01\0\0\0\0\0\0\0"s;
  for (int copy = 0; copy < 2; ++copy) {
    for (int i = 0; i < 8; ++i) h += static_cast<char>((count >> (8 * i)) & 0xFF);
  }
  h += all_zero(8);
  return h;
}

template <typename T>
std::string raw_bytes(const strix::Array<T>& values) {
  return std::string(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T));
}

void set_names(strix::NameList& list, std::initializer_list<std::string_view> names) {
  for (std::string_view n : names) list.buffer.insert(list.buffer.end(), n.begin(), n.end());
  std::size_t pos = 0;
  for (std::string_view n : names) {
    list.names.emplace_back(list.buffer.data() + pos, n.size());
    pos += n.size();
  }
}

std::vector<std::string> names_of(const std::vector<Member>& members) {
  std::vector<std::string> names;
  for (const Member& m : members) names.push_back(m.name);
  return names;
}

// ---------------------------------------------------------- tar headers

TEST(TarHeader, HandWorkedChecksum) {
  std::ostringstream out;
  strix::TarWriter tar(out);
  tar.write_header("a", 0, 0, 0, "", "", 0);
  // 'a' 97 + three "0000000" ids 3*336 + size and mtime 2*528 + blanks 256
  // + typeflag 48 + "ustar 00" 687 + devmajor/devminor 2*336 = 3824 = 07360.
  std::vector<FieldBytes> fields{{0, "a"},
                                 {100, "0000000\0"s},
                                 {108, "0000000\0"s},
                                 {116, "0000000\0"s},
                                 {124, "00000000000\0"s}};
  add_fixed_fields(fields);
  const std::string checksum = "00007360";
  expect_header(out.str(), fields, &checksum);
  EXPECT_EQ(expected_checksum(fields), checksum);
}

TEST(TarHeader, TaskMember) {
  std::ostringstream out;
  strix::TarWriter tar(out);
  tar.write_header("Task/INFO", 0600, 1001, 1001, "nollo", "nollo", 70);
  // 70 = octal 106.
  std::vector<FieldBytes> fields{{0, "Task/INFO"},  {100, "00000600"},     {108, "00001751"},
                                 {116, "00001751"}, {124, "000000000106"}, {265, "\0ollo"s},
                                 {297, "nollo"}};
  add_fixed_fields(fields);
  expect_header(out.str(), fields);
}

TEST(TarHeader, OctalFormA) {
  std::ostringstream out;
  strix::TarWriter tar(out);
  // uid 8 is "00000010"; gid 0 is "0000000" and a zero byte; mode 2^24 is
  // non-zero with zero low 24 bits, so eight "0" and no terminator; all ones
  // keep the low 24 bits, "77777777".
  tar.write_header("x", 0x1000000, 8, 0, "u", "g", 1);
  tar.write_data("D", 1);
  tar.write_header("y", 0xFFFFFFFF, 0, 0777, std::string_view{}, std::string_view{}, 0);
  const std::string archive = out.str();
  ASSERT_EQ(archive.size(), 2 * kBlock + 1 + 511);

  std::vector<FieldBytes> x{
      {0, "x"},  {100, "00000000"}, {108, "00000010"}, {116, "0000000\0"s}, {124, "000000000001"},
      {297, "g"}};
  add_fixed_fields(x);
  expect_header(archive.substr(0, kBlock), x);

  EXPECT_EQ(archive.substr(kBlock, 512), "D" + all_zero(511));
  std::vector<FieldBytes> y{
      {0, "y"}, {100, "77777777"}, {108, "0000000\0"s}, {116, "00000777"}, {124, "00000000000\0"s}};
  add_fixed_fields(y);
  expect_header(archive.substr(2 * kBlock), y);
}

TEST(TarHeader, FullWidthAndOverlongNames) {
  const std::string name(100, 'n');
  const std::string uname(32, 'u');
  const std::string gname(32, 'g');
  std::ostringstream out;
  strix::TarWriter tar(out);
  tar.write_header(name, 0600, 1, 2, uname, gname, 0);
  // Names filling their fields are copied whole without a terminator; the
  // first user name byte is still zeroed.
  std::vector<FieldBytes> fields{
      {0, name},         {100, "00000600"},    {108, "00000001"},
      {116, "00000002"}, {124, size_field(0)}, {265, "\0"s + std::string(31, 'u')},
      {297, gname}};
  add_fixed_fields(fields);
  expect_header(out.str(), fields);

  // Longer names are cut at the field width and spill into nothing.
  std::ostringstream out2;
  strix::TarWriter tar2(out2);
  tar2.write_header(name + "OVER", 0600, 1, 2, uname + "OVER", gname + "OVER", 0);
  EXPECT_EQ(out2.str(), out.str());
}

TEST(TarHeader, HighBytesCountNegative) {
  // 0x80..0xFF enter the checksum as negative values; here the whole sum is
  // negative and its low 24 bits are written.
  const std::string high(100, '\x80');
  std::ostringstream out;
  strix::TarWriter tar(out);
  tar.write_header(high, 0600, 1001, 1001, high.substr(0, 32), high.substr(0, 32), 0);
  std::vector<FieldBytes> fields{{0, high},
                                 {100, "00000600"},
                                 {108, "00001751"},
                                 {116, "00001751"},
                                 {124, size_field(0)},
                                 {265, "\0"s + high.substr(0, 31)},
                                 {297, high.substr(0, 32)}};
  add_fixed_fields(fields);
  const std::string checksum = expected_checksum(fields);
  // The sum is below zero (163 bytes of -128 outweigh the digits), so the
  // field holds a large 24-bit value: its first digit is 7.
  EXPECT_EQ(checksum[0], '7');
  expect_header(out.str(), fields);
}

TEST(TarHeader, SizeForms) {
  struct Case {
    std::uint64_t size;
    std::string field;
  };
  const Case cases[] = {
      {0, "00000000000\0"s},
      {1, "000000000001"},
      {512, "000000001000"},
      // 2^29 - 1: the largest octal size.
      {536870911, "003777777777"},
      // 2^29: base-256, marker 0x80, three zero bytes, 64-bit big-endian.
      {536870912, "\x80\0\0\0\0\0\0\0\x20\0\0\0"s},
      {0x0102030405060708, "\x80\0\0\0\x01\x02\x03\x04\x05\x06\x07\x08"s},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.size);
    CountingBuf sink;
    std::ostream out(&sink);
    strix::TarWriter tar(out);
    tar.write_header("big", 0600, 1001, 1001, "nollo", "nollo", c.size);
    std::vector<FieldBytes> fields = task_member_fields("big", 0);
    fields[4].bytes = c.field;
    expect_header(sink.head, fields);
  }
}

TEST(TarHeader, LargeMembersStreamed) {
  // Whole members around the size switch, fed from a small zero buffer into
  // a sink that only counts.
  const std::vector<char> zeros(1 << 16);
  for (const std::uint64_t size : {std::uint64_t{536870911}, std::uint64_t{536870912}}) {
    SCOPED_TRACE(size);
    CountingBuf sink;
    std::ostream out(&sink);
    strix::TarWriter tar(out);
    tar.write_header("big", 0600, 1001, 1001, "nollo", "nollo", size);
    for (std::uint64_t left = size; left > 0;) {
      const std::uint64_t n = std::min<std::uint64_t>(left, zeros.size());
      tar.write_data(zeros.data(), n);
      left -= n;
    }
    tar.write_data(zeros.data(), zeros.size());  // past the declared size: dropped
    EXPECT_EQ(sink.count, kBlock + size);
    tar.finish();
    const std::uint64_t padding = size == 536870911 ? 1 : 0;
    EXPECT_EQ(sink.count, kBlock + size + padding + 2 * kBlock);
  }
}

// ------------------------------------------------- data, padding, end

TEST(TarArchive, EmptyArchiveIsTwoZeroBlocks) {
  std::ostringstream out;
  strix::TarWriter tar(out);
  tar.finish();
  EXPECT_EQ(out.str(), all_zero(1024));
}

TEST(TarArchive, PaddingIsWrittenLate) {
  struct Case {
    std::uint64_t size;
    std::size_t padding;
  };
  for (const Case c : {Case{0, 0}, Case{1, 511}, Case{511, 1}, Case{512, 0}, Case{513, 511}}) {
    SCOPED_TRACE(c.size);
    const std::string data(c.size, 'd');
    std::ostringstream out;
    strix::TarWriter tar(out);
    tar.write_header("m", 0600, 1001, 1001, "nollo", "nollo", c.size);
    tar.write_data(data.data(), data.size());
    // Nothing beyond the data yet: the padding waits for the next header.
    EXPECT_EQ(out.str().size(), kBlock + c.size);
    tar.write_header("n", 0600, 1001, 1001, "nollo", "nollo", 0);
    const std::string archive = out.str();
    ASSERT_EQ(archive.size(), kBlock + c.size + c.padding + kBlock);
    EXPECT_EQ(archive.substr(kBlock, c.size), data);
    EXPECT_EQ(archive.substr(kBlock + c.size, c.padding), all_zero(c.padding));
    expect_header(archive.substr(kBlock + c.size + c.padding), task_member_fields("n", 0));

    // finish pads the last member too.
    std::ostringstream out2;
    strix::TarWriter tar2(out2);
    tar2.write_header("m", 0600, 1001, 1001, "nollo", "nollo", c.size);
    tar2.write_data(data.data(), data.size());
    tar2.finish();
    const std::string archive2 = out2.str();
    ASSERT_EQ(archive2.size(), kBlock + c.size + c.padding + 1024);
    EXPECT_EQ(archive2.substr(kBlock, c.size), data);
    EXPECT_EQ(archive2.substr(kBlock + c.size), all_zero(c.padding + 1024));
  }
}

TEST(TarArchive, DataBeyondDeclaredSizeIsDropped) {
  std::ostringstream out;
  strix::TarWriter tar(out);
  tar.write_header("m", 0600, 1001, 1001, "nollo", "nollo", 5);
  tar.write_data("ab", 2);
  tar.write_data("cdefgh", 6);  // only "cde" fits
  tar.write_data("ij", 2);      // nothing left: nothing written
  EXPECT_EQ(out.str().substr(kBlock), "abcde");
  tar.finish();
  EXPECT_EQ(out.str().size(), kBlock + 512 + 1024);
  EXPECT_EQ(out.str().substr(kBlock + 5), all_zero(507 + 1024));
}

TEST(TarArchive, WritesThroughTheStreamBuffer) {
  // A failing buffer's own exception comes through (an ostream write would
  // turn it into badbit).
  FailingBuf failing;
  std::ostream failing_out(&failing);
  strix::TarWriter tar(failing_out);
  EXPECT_THROW(tar.write_header("m", 0600, 1001, 1001, "nollo", "nollo", 1), SinkFailure);
  EXPECT_THROW(tar.finish(), SinkFailure);

  // The stream's state is not consulted: bytes still reach the buffer.
  std::ostringstream out;
  out.setstate(std::ios::badbit);
  strix::TarWriter tar2(out);
  tar2.finish();
  EXPECT_EQ(out.str(), all_zero(1024));
}

// ---------------------------------------------------------- item names

TEST(EscapeItemName, Bytes) {
  struct Case {
    std::string_view name;
    std::string_view escaped;
  };
  const Case cases[] = {
      {"\t", "\\t"},
      {"\n", "\\n"},
      {"\r", "\\r"},
      {"\\", "\\\\"},
      {"\x0c", "\\x0c"},
      {"\xc3", "\\xc3"},
      {"\"", "\""},      // copied
      {"\x7f", "\x7f"},  // copied: 127 is above 31 also as a signed byte
      {"\0"sv, "\\x00"},
      {"\x1f", "\\x1f"},
      {" ", " "},
      {"\x80", "\\x80"},
      {"\xff", "\\xff"},
      {"caf\xc3\xa9", "caf\\xc3\\xa9"},  // UTF-8: one escape per byte
      {"a b\tc~", "a b\\tc~"},
      {"", ""},
  };
  for (const Case& c : cases) {
    std::string out = "kept|";
    strix::escape_item_name(out, c.name);
    EXPECT_EQ(out, "kept|" + std::string(c.escaped))
        << "name " << testing::PrintToString(std::string(c.name));
  }
}

// ---------------------------------------------------------- task archive

TEST(TaskArchive, NoSolutions) {
  strix::Solution solution;
  std::ostringstream out;
  strix::write_task(out, solution);
  const std::vector<Member> members = parse_archive(out.str());
  ASSERT_EQ(names_of(members),
            (std::vector<std::string>{"Task/INFO", "Task/information/doubleitems",
                                      "Task/information/double", "Task/information/intitems",
                                      "Task/information/int", "Task/information/longitems",
                                      "Task/information/long"}));
  EXPECT_EQ(members[0].data,
            "nollover=0.0.0.0\nnumvar=0\nnumcon=0\nnumcone=0\nnumbarvar=0\nnumacc=0\n");
  EXPECT_EQ(members[1].data, "");
  // Empty double array: "NLOM", flag 8, reserved, type 9, 3, u64 1, two zero
  // counts, eight zero bytes.
  EXPECT_EQ(members[2].data,
            "NLOM\x08\x00\x09\x03"
            "\x01\0\0\0\0\0\0\0"
            "\0\0\0\0\0\0\0\0"
            "\0\0\0\0\0\0\0\0"
            "\0\0\0\0\0\0\0\0"s);
  EXPECT_EQ(members[3].data, "");
  EXPECT_EQ(members[4].data, nlom(8, 3, 3, 0));
  EXPECT_EQ(members[5].data, "");
  EXPECT_EQ(members[6].data, nlom(8, 4, 3, 0));
  for (const Member& m : members) {
    SCOPED_TRACE(m.name);
    expect_header(m.header, task_member_fields(m.name, m.data.size()));
  }
}

TEST(TaskArchive, InfoAndInformation) {
  strix::Solution solution;
  solution.version = {10, 1, 28};
  solution.numvar = 3;
  solution.numcon = 1;
  solution.numcone = 2;
  solution.numbarvar = -4;
  solution.numacc = 5000000000;
  set_names(solution.info_f64.names, {"primal\tobj", "x"});
  solution.info_f64.values = {1.5, -2.0};
  set_names(solution.info_i32.names, {"iter", "a\\b"});
  solution.info_i32.values = {-1, 258};
  set_names(solution.info_i64.names, {"caf\xc3\xa9"});
  solution.info_i64.values = {5000000000};
  std::ostringstream out;
  strix::write_task(out, solution);
  const std::vector<Member> members = parse_archive(out.str());
  ASSERT_EQ(members.size(), 7u);
  EXPECT_EQ(members[0].data,
            "nollover=10.1.0.28\nnumvar=3\nnumcon=1\nnumcone=2\nnumbarvar=-4\n"
            "numacc=5000000000\n");
  EXPECT_EQ(members[1].data, "primal\\tobj\nx\n");
  // 1.5 = 0x3FF8000000000000, -2.0 = 0xC000000000000000, little-endian.
  EXPECT_EQ(members[2].data, nlom(8, 9, 3, 2) +
                                 "\0\0\0\0\0\0\xf8\x3f"
                                 "\0\0\0\0\0\0\0\xc0"s);
  EXPECT_EQ(members[3].data, "iter\na\\\\b\n");
  EXPECT_EQ(members[4].data, nlom(8, 3, 3, 2) + "\xff\xff\xff\xff\x02\x01\0\0"s);
  EXPECT_EQ(members[5].data, "caf\\xc3\\xa9\n");
  // 5000000000 = 0x12A05F200.
  EXPECT_EQ(members[6].data, nlom(8, 4, 3, 1) + "\x00\xf2\x05\x2a\x01\0\0\0"s);
  EXPECT_EQ(members[2].data.size(), 56u);
  for (const Member& m : members) {
    SCOPED_TRACE(m.name);
    expect_header(m.header, task_member_fields(m.name, m.data.size()));
  }
}

TEST(TaskArchive, Solutions) {
  strix::Solution solution;
  strix::SolutionItem& interior = solution.solutions.emplace_back();
  interior.kind = "interior";
  interior.prosta = "PRIMAL_AND_DUAL_FEASIBLE";
  interior.solsta = "OPTIMAL";
  interior.skx = {1, 2, 3};
  interior.skc = {4};
  interior.skn = {5, 6};
  interior.xx = {1.0, 2.0, 3.0};
  interior.xc = {0.5};
  interior.y = {-1.0, 7.25};
  interior.slc = {0.25};
  interior.suc = {0.125};
  interior.slx = {1e300};
  interior.sux = {-0.0};
  interior.snx = {4.0, 5.0};
  interior.doty = {8.0, 9.0};
  interior.barx = {1, 2, 3, 4, 5, 6};
  interior.bars = {6, 5, 4};

  strix::SolutionItem& basic = solution.solutions.emplace_back();
  basic.kind = "basic";
  basic.prosta = "Unknown";
  basic.solsta = "unknown";
  basic.skc = {1};
  basic.xx = {7.0};

  strix::SolutionItem& integer = solution.solutions.emplace_back();
  integer.kind = "integer";

  std::ostringstream out;
  strix::write_task(out, solution);
  const std::vector<Member> all = parse_archive(out.str());
  ASSERT_GE(all.size(), 7u);
  const std::vector<Member> members(all.begin() + 7, all.end());

  const std::string i = "Task/solution/interior/";
  const std::string b = "Task/solution/basic/";
  const std::string n = "Task/solution/integer/";
  ASSERT_EQ(names_of(members),
            (std::vector<std::string>{i + "status", i + "skx", i + "skc",  i + "skn",  i + "xx",
                                      i + "xc",     i + "y",   i + "slc",  i + "suc",  i + "slx",
                                      i + "sux",    i + "snx", i + "doty", i + "barx", i + "bars",
                                      b + "status", b + "skx", b + "skc",  b + "xx",   n + "status",
                                      n + "skx",    n + "skc"}));

  // Status names as stored, upper case included.
  EXPECT_EQ(members[0].data, "prosta=PRIMAL_AND_DUAL_FEASIBLE\nsolsta=OPTIMAL\n");
  EXPECT_EQ(members[1].data, nlom(8, 1, 3, 3) + "\x01\x02\x03");
  EXPECT_EQ(members[2].data, nlom(8, 1, 3, 1) + "\x04");
  EXPECT_EQ(members[3].data, nlom(8, 1, 3, 2) + "\x05\x06");
  // 1.0, 2.0, 3.0 = 0x3FF0..., 0x4000..., 0x4008... little-endian.
  EXPECT_EQ(members[4].data, nlom(8, 9, 3, 3) +
                                 "\0\0\0\0\0\0\xf0\x3f"
                                 "\0\0\0\0\0\0\0\x40"
                                 "\0\0\0\0\0\0\x08\x40"s);
  EXPECT_EQ(members[5].data, nlom(8, 9, 3, 1) + raw_bytes(interior.xc));
  EXPECT_EQ(members[6].data, nlom(8, 9, 3, 2) + raw_bytes(interior.y));
  EXPECT_EQ(members[7].data, nlom(8, 9, 3, 1) + raw_bytes(interior.slc));
  EXPECT_EQ(members[8].data, nlom(8, 9, 3, 1) + raw_bytes(interior.suc));
  EXPECT_EQ(members[9].data, nlom(8, 9, 3, 1) + raw_bytes(interior.slx));
  // -0.0 keeps its sign bit.
  EXPECT_EQ(members[10].data, nlom(8, 9, 3, 1) + "\0\0\0\0\0\0\0\x80"s);
  EXPECT_EQ(members[11].data, nlom(8, 9, 3, 2) + raw_bytes(interior.snx));
  // doty: byte 7 is 4.
  EXPECT_EQ(members[12].data, nlom(8, 9, 4, 2) + raw_bytes(interior.doty));
  EXPECT_EQ(members[12].data[7], '\x04');
  // barx and bars: flag byte 0; barx with 6 values is 40 + 48 = 88 bytes.
  EXPECT_EQ(members[13].data.size(), 88u);
  EXPECT_EQ(members[13].data, nlom(0, 9, 3, 6) + raw_bytes(interior.barx));
  EXPECT_EQ(members[14].data, nlom(0, 9, 3, 3) + raw_bytes(interior.bars));

  EXPECT_EQ(members[15].data, "prosta=Unknown\nsolsta=unknown\n");
  // Empty skx still gets a 40-byte member; empty skn gets none.
  EXPECT_EQ(members[16].data, nlom(8, 1, 3, 0));
  EXPECT_EQ(members[16].data.size(), 40u);
  EXPECT_EQ(members[17].data, nlom(8, 1, 3, 1) + "\x01");
  EXPECT_EQ(members[18].data, nlom(8, 9, 3, 1) + raw_bytes(basic.xx));

  EXPECT_EQ(members[19].data, "prosta=\nsolsta=\n");
  EXPECT_EQ(members[20].data, nlom(8, 1, 3, 0));
  EXPECT_EQ(members[21].data, nlom(8, 1, 3, 0));

  for (const Member& m : all) {
    SCOPED_TRACE(m.name);
    expect_header(m.header, task_member_fields(m.name, m.data.size()));
  }
}

TEST(TaskArchive, SolutionsInListOrder) {
  strix::Solution solution;
  for (const char* kind : {"integer", "basic", "interior"}) {
    solution.solutions.emplace_back().kind = kind;
  }
  std::ostringstream out;
  strix::write_task(out, solution);
  const std::vector<Member> members = parse_archive(out.str());
  ASSERT_EQ(members.size(), 7u + 9u);
  EXPECT_EQ(members[7].name, "Task/solution/integer/status");
  EXPECT_EQ(members[10].name, "Task/solution/basic/status");
  EXPECT_EQ(members[13].name, "Task/solution/interior/status");
}

}  // namespace
