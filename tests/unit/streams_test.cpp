#include "strix/streams.h"

#include <algorithm>    // std::min
#include <cstdint>      // fixed-width integers
#include <cstdio>       // std::FILE, std::tmpfile
#include <memory>       // std::unique_ptr
#include <sstream>      // std::stringbuf
#include <streambuf>    // std::streambuf
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <vector>       // std::vector

#include <fmt/format.h>  // fmt::format_to
#include <gtest/gtest.h>
#include <zlib.h>  // inflate
// The frame header query lives in the library's advanced section.
#define ZSTD_STATIC_LINKING_ONLY
#include <zstd.h>  // ZSTD_compress, ZSTD_decompressStream, ZSTD_getFrameHeader

#include "strix/errors.h"
#include "test_util.h"

namespace {

using namespace std::string_literals;
using strix_test::sample_bytes;
using strix_test::StringReader;

// ------------------------------------------------------------- helpers

std::string zstd_frame(std::string_view data, int level = 3) {
  std::string out(ZSTD_compressBound(data.size()), '\0');
  const std::size_t n = ZSTD_compress(out.data(), out.size(), data.data(), data.size(), level);
  EXPECT_FALSE(ZSTD_isError(n));
  out.resize(n);
  return out;
}

// Decompresses every frame in `z` with the library's own streaming decoder;
// fails the test unless the input ends exactly at the end of a frame.
std::string unzstd(std::string_view z) {
  std::unique_ptr<ZSTD_DCtx, decltype(&ZSTD_freeDCtx)> ctx(ZSTD_createDCtx(), ZSTD_freeDCtx);
  std::string out;
  std::vector<char> block(ZSTD_DStreamOutSize());
  ZSTD_inBuffer in{z.data(), z.size(), 0};
  std::size_t rc = 1;
  while (in.pos < in.size || rc != 0) {
    ZSTD_outBuffer o{block.data(), block.size(), 0};
    rc = ZSTD_decompressStream(ctx.get(), &o, &in);
    if (ZSTD_isError(rc)) {
      ADD_FAILURE() << ZSTD_getErrorName(rc);
      break;
    }
    out.append(block.data(), o.pos);
    if (in.pos == in.size && o.pos == 0 && rc != 0) {
      ADD_FAILURE() << "truncated frame";
      break;
    }
  }
  return out;
}

// Inflates one gzip member (window bits 31: the gzip wrapper is required) and
// fails the test unless it ends exactly at the end of `gz`.
std::string gunzip(std::string_view gz) {
  z_stream zs{};
  EXPECT_EQ(inflateInit2(&zs, 31), Z_OK);
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gz.data()));
  zs.avail_in = static_cast<uInt>(gz.size());
  std::string out;
  unsigned char block[16384];
  int rc;
  do {
    zs.next_out = block;
    zs.avail_out = sizeof block;
    rc = inflate(&zs, Z_NO_FLUSH);
    out.append(reinterpret_cast<char*>(block), sizeof block - zs.avail_out);
  } while (rc == Z_OK);
  EXPECT_EQ(rc, Z_STREAM_END);
  EXPECT_EQ(zs.avail_in, 0u) << "bytes after the gzip member";
  inflateEnd(&zs);
  return out;
}

// What a gzip buffer's output holds for `written`: its put area takes 65536
// bytes, and the byte that arrives when it is full triggers the compression
// and is itself lost.
std::string gzip_kept(std::string_view written) {
  std::string kept;
  std::size_t fill = 0;
  for (const char c : written) {
    if (fill == 65536) {
      fill = 0;  // dropped; the put area starts empty again
      continue;
    }
    kept.push_back(c);
    ++fill;
  }
  return kept;
}

void put_by_sputc(std::streambuf& buf, std::string_view data) {
  for (const char c : data) buf.sputc(c);
}

// Hands `data` over in odd-sized pieces.
void put_by_sputn(std::streambuf& buf, std::string_view data) {
  static constexpr std::size_t kPieces[] = {1, 7, 4093, 65535, 3, 65537, 100001};
  for (std::size_t pos = 0, i = 0; pos < data.size(); ++i) {
    const std::size_t k = std::min(kPieces[i % std::size(kPieces)], data.size() - pos);
    EXPECT_EQ(buf.sputn(data.data() + pos, static_cast<std::streamsize>(k)),
              static_cast<std::streamsize>(k));
    pos += k;
  }
}

// A target that takes at most 7 bytes per call.
class ChoppyBuf : public std::streambuf {
 public:
  std::string data;

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    const std::streamsize k = std::min<std::streamsize>(n, 7);
    data.append(s, static_cast<std::size_t>(k));
    return k;
  }
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    data.push_back(traits_type::to_char_type(c));
    return c;
  }
};

// A target that takes nothing, counting the attempts.
class RefusingBuf : public std::streambuf {
 public:
  int attempts = 0;

 protected:
  std::streamsize xsputn(const char*, std::streamsize) override {
    ++attempts;
    return 0;
  }
  int_type overflow(int_type) override {
    ++attempts;
    return traits_type::eof();
  }
};

std::string zstd_output(std::string_view data, int level) {
  std::stringbuf sink;
  {
    strix::zstd::outstreambuf z(&sink, level);
    put_by_sputn(z, data);
  }
  return sink.str();
}

// ------------------------------------------------------------- file readers

std::FILE* temp_file_with(std::string_view bytes) {
  std::FILE* f = std::tmpfile();
  EXPECT_NE(f, nullptr);
  EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), f), bytes.size());
  std::rewind(f);
  return f;
}

TEST(FDescReader, ReadsCountsAndUnsignedBytesAndLeavesTheStreamOpen) {
  const std::string bytes = "abc\xE9\xFF\x00xyz"s;
  std::FILE* f = temp_file_with(bytes);
  {
    strix::FDescReader r(f);
    char buf[16] = {};
    EXPECT_EQ(r.read(buf, 0), 0u);
    EXPECT_EQ(r.read(buf, 2), 2u);
    EXPECT_EQ(std::string(buf, 2), "ab");
    EXPECT_EQ(r.getc(), 'c');
    EXPECT_EQ(r.getc(), 233);  // 0xE9 as 0..255
    EXPECT_EQ(r.getc(), 255);
    EXPECT_EQ(r.getc(), 0);
    EXPECT_EQ(r.read(buf, 16), 3u);  // short count at the end of the data
    EXPECT_EQ(std::string(buf, 3), "xyz");
    EXPECT_EQ(r.getc(), -1);
    EXPECT_EQ(r.read(buf, 16), 0u);
  }
  // Standard input belongs to the program, not to the reader.
  std::rewind(f);
  EXPECT_EQ(std::fgetc(f), 'a');
  std::fclose(f);
}

TEST(FileReader, ReadsEveryByteValue) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
  strix::FileReader r(temp_file_with(bytes + bytes));  // closed by the reader
  for (int i = 0; i < 256; ++i) ASSERT_EQ(r.getc(), i);
  std::string back(300, '\0');
  EXPECT_EQ(r.read(back.data(), back.size()), 256u);
  EXPECT_EQ(back.substr(0, 256), bytes);
  EXPECT_EQ(r.getc(), -1);
  EXPECT_EQ(r.read(back.data(), 1), 0u);
}

// ------------------------------------------------------------- zstd::Reader

TEST(ZstdReader, EmptyInputIsEndOfDataAtOnce) {
  StringReader inner("");
  strix::zstd::Reader r(&inner);
  char buf[8];
  EXPECT_EQ(r.read(buf, sizeof buf), 0u);
  EXPECT_EQ(r.getc(), -1);
  EXPECT_EQ(r.read(buf, sizeof buf), 0u);

  StringReader inner2("");
  strix::zstd::Reader r2(&inner2);
  EXPECT_EQ(r2.getc(), -1);
  EXPECT_EQ(r2.read(buf, 1), 0u);
}

TEST(ZstdReader, NothingIsFetchedBeforeTheFirstNonEmptyRequest) {
  StringReader inner(zstd_frame("abc"));
  strix::zstd::Reader r(&inner);
  char buf[8];
  EXPECT_EQ(r.read(buf, 0), 0u);
  EXPECT_EQ(inner.calls(), 0);
  EXPECT_EQ(r.read(buf, sizeof buf), 3u);
  EXPECT_EQ(std::string(buf, 3), "abc");
  EXPECT_GT(inner.read_calls, 0);
  // Input is fetched a whole decoder input buffer at a time.
  EXPECT_EQ(inner.bytes_asked, inner.read_calls * ZSTD_DStreamInSize());
}

TEST(ZstdReader, ADecodingStepWithoutOutputEndsTheStream) {
  // A skippable frame (magic 0x184D2A50, 4-byte size, data) yields nothing,
  // so the frame after it is never looked at.
  const std::string skippable = "\x50\x2A\x4D\x18\x02\x00\x00\x00zz"s;
  const std::string input = skippable + zstd_frame("abc");
  ASSERT_EQ(unzstd(input), "abc");  // a decoder that goes on finds the data
  StringReader inner(input);
  strix::zstd::Reader r(&inner);
  char buf[8];
  EXPECT_EQ(r.read(buf, sizeof buf), 0u);
  EXPECT_EQ(r.getc(), -1);
}

TEST(ZstdReader, CorruptFrameThrowsOnceThenEnds) {
  char buf[8];
  {
    StringReader inner("this is not a Zstandard frame");
    strix::zstd::Reader r(&inner);
    EXPECT_THROW(r.read(buf, sizeof buf), strix::zstd::CompressionError);
    EXPECT_EQ(r.read(buf, sizeof buf), 0u);
    EXPECT_EQ(r.getc(), -1);
  }
  {
    StringReader inner("this is not a Zstandard frame");
    strix::zstd::Reader r(&inner);
    EXPECT_THROW(r.getc(), strix::zstd::CompressionError);
    EXPECT_EQ(r.getc(), -1);
    EXPECT_EQ(r.read(buf, sizeof buf), 0u);
  }
  {
    // Good data first: the error comes with the call that reaches the junk.
    StringReader inner(zstd_frame("hello") + "junk after the frame");
    strix::zstd::Reader r(&inner);
    EXPECT_EQ(r.read(buf, 5), 5u);
    EXPECT_EQ(std::string(buf, 5), "hello");
    EXPECT_THROW(r.read(buf, 1), strix::zstd::CompressionError);
    EXPECT_EQ(r.read(buf, 1), 0u);
    EXPECT_EQ(r.getc(), -1);
  }
}

TEST(ZstdReader, ConcatenatedFramesReadAsOneStream) {
  StringReader inner(zstd_frame("abc") + zstd_frame("defgh", 19));
  strix::zstd::Reader r(&inner);
  char buf[32];
  EXPECT_EQ(r.read(buf, sizeof buf), 8u);
  EXPECT_EQ(std::string(buf, 8), "abcdefgh");
  EXPECT_EQ(r.read(buf, sizeof buf), 0u);

  // Frames larger than one output buffer of the decoder.
  const std::string a = sample_bytes(200000, 1), b = sample_bytes(150001, 2);
  StringReader inner2(zstd_frame(a, 1) + zstd_frame(b, 5));
  strix::zstd::Reader r2(&inner2);
  std::string back(a.size() + b.size() + 10, '\0');
  EXPECT_EQ(r2.read(back.data(), back.size()), a.size() + b.size());
  back.resize(a.size() + b.size());
  EXPECT_TRUE(back == a + b);
}

TEST(ZstdReader, GetcIsSignedAndThe0xFFByteLooksLikeTheEnd) {
  StringReader inner(zstd_frame("\xE9\xFF\x41\x00"s));
  strix::zstd::Reader r(&inner);
  EXPECT_EQ(r.getc(), -23);  // 0xE9 as a signed byte
  EXPECT_EQ(r.getc(), -1);   // 0xFF
  EXPECT_EQ(r.getc(), 0x41);
  EXPECT_EQ(r.getc(), 0);
  EXPECT_EQ(r.getc(), -1);  // the real end
}

TEST(ZstdReader, LargeInputReadsBackExactlyInOddPieces) {
  // Several MB, partly incompressible so the compressed input spans several
  // of the decoder's input buffers as well.
  std::string data = sample_bytes(3000000, 7);
  std::uint32_t x = 12345;
  for (std::size_t i = 0; i < data.size(); i += 3) {
    x = x * 1103515245u + 12345u;
    data[i] = static_cast<char>(x >> 16);
  }
  const std::string z = zstd_frame(data, 1);
  ASSERT_GT(z.size(), 3 * ZSTD_DStreamInSize());
  StringReader inner(z);
  strix::zstd::Reader r(&inner);

  static constexpr std::size_t kSizes[] = {1, 7, 4093, 131071, 131073, 300001, 13};
  std::string back;
  std::vector<char> buf(300001);
  for (std::size_t i = 0;; ++i) {
    const std::size_t want = kSizes[i % std::size(kSizes)];
    const std::uint64_t got = r.read(buf.data(), want);
    back.append(buf.data(), got);
    if (got < want) break;
    const int c = r.getc();  // interleave single bytes
    if (c == -1 && back.size() == data.size()) break;
    back.push_back(static_cast<char>(c));
  }
  ASSERT_EQ(back.size(), data.size());
  EXPECT_TRUE(back == data);
  EXPECT_EQ(r.read(buf.data(), 1), 0u);
  EXPECT_EQ(r.getc(), -1);
}

// ------------------------------------------------------------- zstd output

TEST(ZstdOutstreambuf, OutputIsOneFrameOfExactlyWhatWasWritten) {
  for (const std::size_t n : {0, 1, 65535, 65536, 65537, 131072, 131073, 300000}) {
    const std::string data = sample_bytes(n, static_cast<std::uint32_t>(n));
    for (const bool by_sputn : {false, true}) {
      SCOPED_TRACE(testing::Message() << n << " bytes, " << (by_sputn ? "sputn" : "sputc"));
      std::stringbuf sink;
      {
        strix::zstd::outstreambuf z(&sink, 3);
        if (by_sputn) {
          put_by_sputn(z, data);
        } else {
          put_by_sputc(z, data);
        }
      }
      const std::string out = sink.str();
      ASSERT_FALSE(out.empty());  // even no data gives a frame
      EXPECT_EQ(ZSTD_findFrameCompressedSize(out.data(), out.size()), out.size());
      EXPECT_TRUE(unzstd(out) == data);
    }
  }
}

TEST(ZstdOutstreambuf, NothingReachesTheTargetBeforeCloseAndCloseIsFinal) {
  std::stringbuf sink;
  strix::zstd::outstreambuf z(&sink, 3);
  put_by_sputn(z, "0123456789");
  EXPECT_EQ(z.pubsync(), 0);  // flushing the stream compresses nothing
  EXPECT_EQ(sink.str(), "");
  z.close();
  const std::string frame = sink.str();
  EXPECT_EQ(unzstd(frame), "0123456789");
  z.close();
  const std::string more(200000, 'x');
  EXPECT_LT(z.sputn(more.data(), static_cast<std::streamsize>(more.size())),
            static_cast<std::streamsize>(more.size()));
  EXPECT_EQ(sink.str(), frame);
}

TEST(ZstdOutstreambuf, ShortWritesToTheTargetAreRetried) {
  const std::string data = sample_bytes(300000, 3);
  ChoppyBuf sink;
  {
    strix::zstd::outstreambuf z(&sink, 1);
    put_by_sputn(z, data);
  }
  EXPECT_TRUE(unzstd(sink.data) == data);
}

TEST(ZstdOutstreambuf, LevelsAreClampedToTheLibraryRange) {
  const std::string data = sample_bytes(100000, 11);
  // Unclamped, these levels would give different frames: 0 is the library's
  // default level 3, and -5 a faster level than 1.
  EXPECT_NE(zstd_frame(data, 1), zstd_frame(data, 3));
  EXPECT_NE(zstd_frame(data, 1), zstd_frame(data, -5));

  const std::string l1 = zstd_output(data, 1), l22 = zstd_output(data, 22);
  EXPECT_TRUE(zstd_output(data, 0) == l1);
  EXPECT_TRUE(zstd_output(data, -5) == l1);
  EXPECT_TRUE(zstd_output(data, 30) == l22);
  EXPECT_NE(l1, l22);
  EXPECT_TRUE(unzstd(l1) == data);
  EXPECT_TRUE(unzstd(l22) == data);
  // The level shows in the frame header: level 22 asks for a larger window.
  ZSTD_frameHeader h1{}, h22{};
  ASSERT_EQ(ZSTD_getFrameHeader(&h1, l1.data(), l1.size()), 0u);
  ASSERT_EQ(ZSTD_getFrameHeader(&h22, l22.data(), l22.size()), 0u);
  EXPECT_GT(h22.windowSize, h1.windowSize);
}

TEST(ZstdOutstreambuf, RefusingTargetThrowsIOErrorAndDestructionIsQuiet) {
  RefusingBuf target;
  const std::string data = sample_bytes(1 << 20, 5);
  {
    auto z = std::make_unique<strix::zstd::outstreambuf>(&target, 1);
    EXPECT_THROW(put_by_sputn(*z, data), strix::IOError);
    EXPECT_NO_THROW(z.reset());
  }
  {
    auto z = std::make_unique<strix::zstd::outstreambuf>(&target, 1);
    put_by_sputn(*z, "tiny");
    EXPECT_THROW(z->close(), strix::IOError);
    EXPECT_NO_THROW(z->close());
    EXPECT_NO_THROW(z.reset());
  }
}

// ------------------------------------------------------------- gzip output

TEST(GzipStreambuf, ModelOfTheDroppedBytes) {
  // Byte 65536 goes, then every 65537th byte after it.
  std::string s(65536 + 65537 + 2, 'a');
  s[65536] = 'X';
  s[65536 + 65537] = 'Y';
  const std::string kept = gzip_kept(s);
  EXPECT_EQ(kept.size(), s.size() - 2);
  EXPECT_EQ(kept.find_first_not_of('a'), std::string::npos);
}

TEST(GzipStreambuf, OutputInflatesToTheTextLessOneByteAtEachBoundary) {
  for (const std::size_t n : {0, 1, 65535, 65536, 65537, 65538, 131073, 131074, 300000}) {
    const std::string data = sample_bytes(n, static_cast<std::uint32_t>(n) + 1);
    for (const bool by_sputn : {false, true}) {
      SCOPED_TRACE(testing::Message() << n << " bytes, " << (by_sputn ? "sputn" : "sputc"));
      std::stringbuf sink;
      {
        strix::gzip::streambuf gz(&sink, 3);
        if (by_sputn) {
          put_by_sputn(gz, data);
        } else {
          put_by_sputc(gz, data);
        }
      }
      const std::string out = sink.str();
      ASSERT_GE(out.size(), 18u);  // a gzip header and trailer at least
      EXPECT_EQ(out.substr(0, 3), "\x1F\x8B\x08");
      EXPECT_TRUE(gunzip(out) == gzip_kept(data));
    }
  }
}

TEST(GzipStreambuf, LevelIsPassedToDeflate) {
  // Level 0 stores the text as it is.
  const std::string text = "solution status: optimal, optimal, optimal";
  std::stringbuf sink;
  {
    strix::gzip::streambuf gz(&sink, 0);
    put_by_sputn(gz, text);
    EXPECT_EQ(gz.pubsync(), 0);
    EXPECT_EQ(sink.str(), "");  // nothing before close
  }
  EXPECT_NE(sink.str().find(text), std::string::npos);
  EXPECT_EQ(gunzip(sink.str()), text);

  try {
    strix::gzip::streambuf bad(&sink, 10);
    ADD_FAILURE() << "level 10 accepted";
  } catch (const strix::gzip::GZipError& e) {
    EXPECT_EQ(e.code, Z_STREAM_ERROR);
  }
}

TEST(GzipStreambuf, RefusingTargetThrowsIOErrorAndDestructionIsQuiet) {
  RefusingBuf target;
  const std::string data = sample_bytes(1 << 20, 9);
  {
    auto gz = std::make_unique<strix::gzip::streambuf>(&target, 3);
    EXPECT_THROW(put_by_sputn(*gz, data), strix::IOError);
    EXPECT_NO_THROW(gz.reset());
  }
  {
    auto gz = std::make_unique<strix::gzip::streambuf>(&target, 3);
    put_by_sputn(*gz, "tiny");
    EXPECT_THROW(gz->close(), strix::IOError);
    EXPECT_NO_THROW(gz.reset());
  }
}

TEST(GzipStreambuf, ShortWritesToTheTargetAreRetried) {
  const std::string data = sample_bytes(200000, 4);
  ChoppyBuf sink;
  {
    strix::gzip::streambuf gz(&sink, 6);
    put_by_sputn(gz, data);
  }
  EXPECT_TRUE(gunzip(sink.data) == gzip_kept(data));
}

// ------------------------------------------------------------- OutBuffer

TEST(OutBuffer, BytesArriveInOrder) {
  const std::string big = sample_bytes(200000, 8);
  std::stringbuf sink;
  strix::OutBuffer ob(&sink);
  ob.append("ab");
  ob.put('c');
  fmt::format_to(ob.out(), "{}|{}", 42, 0.5);
  ob.write_raw("xyz", 3);
  ob.maybe_flush();
  EXPECT_EQ(sink.str(), "");  // small pieces gather in memory
  ob.write_raw(big.data(), big.size());
  ob.append("end");
  const std::string half(strix::OutBuffer::kFlushAt, 'h');
  ob.append(half);
  ob.maybe_flush();
  const std::string expected = "abc42|0.5xyz" + big + "end" + half;
  EXPECT_TRUE(sink.str() == expected);
  ob.append("!");
  ob.flush();
  EXPECT_TRUE(sink.str() == expected + "!");
}

TEST(OutBuffer, CompressingTargetFailureLeavesFlush) {
  RefusingBuf target;
  strix::zstd::outstreambuf z(&target, 1);
  strix::OutBuffer ob(&z);
  const std::string data = sample_bytes(1 << 20, 6);
  EXPECT_THROW(
      {
        ob.append(data);
        ob.flush();
      },
      strix::IOError);
}

TEST(OutBuffer, DestructorFlushesAlsoWhileUnwinding) {
  std::stringbuf sink;
  {
    strix::OutBuffer ob(&sink);
    ob.append("pending");
  }
  EXPECT_EQ(sink.str(), "pending");

  try {
    strix::OutBuffer ob(&sink);
    ob.append(", partial");
    throw 7;
  } catch (int) {
  }
  EXPECT_EQ(sink.str(), "pending, partial");

  // A flush that fails while another exception is already on its way does
  // not replace it.
  RefusingBuf target;
  strix::zstd::outstreambuf z(&target, 1);
  int caught = 0;
  try {
    strix::OutBuffer ob(&z);
    ob.append(sample_bytes(1 << 20, 10));
    throw 7;
  } catch (int e) {
    caught = e;
  }
  EXPECT_EQ(caught, 7);
  EXPECT_GT(target.attempts, 0);  // the pending bytes were offered
}

}  // namespace
