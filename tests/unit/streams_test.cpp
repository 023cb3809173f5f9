// The Zstandard reader, the compressing stream buffers and OutBuffer, checked
// with the compression libraries' own decoders.
#include "strix/streams.h"

#include <algorithm>    // std::min
#include <cstdint>      // fixed-width integers
#include <cstdio>       // std::tmpfile
#include <cstring>      // std::memcpy
#include <iterator>     // std::size
#include <memory>       // std::unique_ptr
#include <sstream>      // std::stringbuf
#include <streambuf>    // std::streambuf
#include <string>       // std::string
#include <string_view>  // std::string_view

#include <gtest/gtest.h>
#include <unistd.h>  // pipe
#include <zlib.h>    // inflate
#include <zstd.h>    // ZSTD_compress, ZSTD_decompress

#include "strix/compress.h"
#include "strix/errors.h"
#include "strix/outbuffer.h"
#include "test_util.h"

namespace {

using namespace std::string_literals;
using strix_test::StringReader;

// Text-like filler (random decimal numbers) that compresses somewhat but not
// trivially.
std::string sample_bytes(std::size_t n, std::uint32_t x) {
  std::string s;
  while (s.size() < n) s += std::to_string((x = x * 1664525u + 1013904223u) >> 20) + ' ';
  s.resize(n);
  return s;
}

std::string zstd_frame(std::string_view data, int level = 3) {
  std::string out(ZSTD_compressBound(data.size()), '\0');
  const std::size_t n = ZSTD_compress(out.data(), out.size(), data.data(), data.size(), level);
  EXPECT_FALSE(ZSTD_isError(n));
  out.resize(n);
  return out;
}

// Decompresses every frame in `z` with the library's one-shot decoder, which
// fails on a truncated frame or on more than `size` bytes.
std::string unzstd(std::string_view z, std::size_t size) {
  std::string out(size + 1, '\0');
  const std::size_t n = ZSTD_decompress(out.data(), out.size(), z.data(), z.size());
  EXPECT_FALSE(ZSTD_isError(n)) << ZSTD_getErrorName(n);
  out.resize(ZSTD_isError(n) ? 0 : n);
  return out;
}

// Inflates one gzip member (window bits 31: the gzip wrapper is required) and
// fails the test unless it ends exactly at the end of `gz`.
std::string gunzip(std::string_view gz, std::size_t size) {
  std::string out(size + 1, '\0');
  z_stream zs{};
  EXPECT_EQ(inflateInit2(&zs, 31), Z_OK);
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gz.data()));
  zs.avail_in = static_cast<uInt>(gz.size());
  zs.next_out = reinterpret_cast<Bytef*>(out.data());
  zs.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(inflate(&zs, Z_FINISH), Z_STREAM_END);
  EXPECT_EQ(zs.avail_in, 0u) << "bytes after the gzip member";
  out.resize(zs.total_out);
  inflateEnd(&zs);
  return out;
}

// What a gzip buffer passes on of `written`: its put area takes 65536 bytes,
// and the byte that arrives when it is full triggers the compression and is
// itself lost.
std::string gzip_kept(std::string_view written) {
  std::string kept;
  std::size_t fill = 0;
  for (const char c : written) {
    if (fill == 65536) {
      fill = 0;  // dropped; the put area starts empty again
    } else {
      kept.push_back(c);
      ++fill;
    }
  }
  return kept;
}

// Hands `data` over byte by byte, or in odd-sized pieces.
void put(std::streambuf& buf, std::string_view data, bool by_sputn = true) {
  static constexpr std::size_t kPieces[] = {1, 7, 4093, 65535, 3, 65537, 100001};
  for (std::size_t pos = 0, i = 0, k; pos < data.size(); pos += k, ++i) {
    k = by_sputn ? std::min(kPieces[i % std::size(kPieces)], data.size() - pos) : 1;
    if (by_sputn)
      buf.sputn(data.data() + pos, static_cast<std::streamsize>(k));
    else
      buf.sputc(data[pos]);
  }
}

// What `data` becomes through a fresh Buf, whose destruction ends the stream.
template <typename Buf>
std::string through(std::string_view data, int level, bool by_sputn = true) {
  std::stringbuf sink;
  {
    Buf buf(&sink, level);
    put(buf, data, by_sputn);
  }
  return sink.str();
}

// A target that takes nothing, counting the attempts (overflow refuses too).
class RefusingBuf : public std::streambuf {
 public:
  int attempts = 0;

 protected:
  std::streamsize xsputn(const char*, std::streamsize) override {
    ++attempts;
    return 0;
  }
};

// What is left of a regular file is known, also after reads; a pipe's is not.
TEST(FDescReader, RemainingBound) {
  std::FILE* file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  const std::string data = sample_bytes(100000, 1);
  ASSERT_EQ(std::fwrite(data.data(), 1, data.size(), file), data.size());
  std::rewind(file);
  strix::FileReader in(file);
  EXPECT_EQ(in.remaining_bound(), data.size());
  char buf[1000];
  ASSERT_EQ(in.read(buf, 10), 10u);
  ASSERT_EQ(in.getc(), static_cast<unsigned char>(data[10]));
  EXPECT_EQ(in.remaining_bound(), data.size() - 11);

  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  std::FILE* end = fdopen(fds[0], "rb");
  ASSERT_NE(end, nullptr);
  close(fds[1]);
  strix::FileReader from_pipe(end);
  EXPECT_EQ(from_pipe.remaining_bound(), strix::Reader::kUnknownRemaining);
}

TEST(ZstdReader, EmptyInputAndEmptyRequests) {
  char buf[8];
  StringReader empty("");
  strix::zstd::Reader r(&empty);
  EXPECT_EQ(r.read(buf, sizeof buf), 0u);
  EXPECT_EQ(r.getc(), -1);

  StringReader inner(zstd_frame("abc"));
  strix::zstd::Reader r2(&inner);
  EXPECT_EQ(r2.read(buf, 0), 0u);
  EXPECT_EQ(inner.calls, 0);  // nothing fetched for a 0-byte request
  EXPECT_EQ(r2.read(buf, sizeof buf), 3u);
  EXPECT_EQ(std::string(buf, 3), "abc");
}

TEST(ZstdReader, CorruptFrameThrowsOnceThenEnds) {
  char buf[8];
  for (const bool by_getc : {false, true}) {
    StringReader inner("this is not a Zstandard frame");
    strix::zstd::Reader r(&inner);
    if (by_getc) {
      EXPECT_THROW(r.getc(), strix::zstd::CompressionError);
    } else {
      EXPECT_THROW(r.read(buf, sizeof buf), strix::zstd::CompressionError);
    }
    EXPECT_EQ(r.read(buf, sizeof buf), 0u);
    EXPECT_EQ(r.getc(), -1);
  }
  // Good data first: the error comes with the call that reaches the junk.
  StringReader inner(zstd_frame("hello") + "junk after the frame");
  strix::zstd::Reader r(&inner);
  EXPECT_EQ(r.read(buf, 5), 5u);
  EXPECT_EQ(std::string(buf, 5), "hello");
  EXPECT_THROW(r.read(buf, 1), strix::zstd::CompressionError);
  EXPECT_EQ(r.read(buf, 1), 0u);
  EXPECT_EQ(r.getc(), -1);
}

TEST(ZstdReader, TwoFramesAndSignedGetc) {
  StringReader inner(zstd_frame("abc") + zstd_frame("\xE9\xFF\x41\x00"s, 19));
  strix::zstd::Reader r(&inner);
  char buf[3];
  EXPECT_EQ(r.read(buf, 3), 3u);
  EXPECT_EQ(std::string(buf, 3), "abc");
  EXPECT_EQ(r.getc(), -23);  // 0xE9 as a signed byte
  EXPECT_EQ(r.getc(), -1);   // 0xFF looks like the end
  EXPECT_EQ(r.getc(), 0x41);
  EXPECT_EQ(r.getc(), 0);
  EXPECT_EQ(r.getc(), -1);  // the real end
}

TEST(ZstdOutstreambuf, OneFrameOfExactlyWhatWasWritten) {
  for (const std::size_t n : {0, 1, 65535, 65536, 65537, 300000}) {
    const std::string data = sample_bytes(n, static_cast<std::uint32_t>(n));
    for (const bool by_sputn : {false, true}) {
      SCOPED_TRACE(testing::Message() << n << " bytes, " << (by_sputn ? "sputn" : "sputc"));
      const std::string out = through<strix::zstd::outstreambuf>(data, 3, by_sputn);
      EXPECT_EQ(ZSTD_findFrameCompressedSize(out.data(), out.size()), out.size());
      EXPECT_TRUE(unzstd(out, n) == data);
    }
  }
}

TEST(ZstdOutstreambuf, LevelsAreClampedToTheLibraryRange) {
  const std::string data = sample_bytes(30000, 11);
  // Unclamped, these levels would give other frames: 0 is the library's
  // default level 3, and -5 a faster level than 1.
  ASSERT_NE(zstd_frame(data, 1), zstd_frame(data, 3));
  ASSERT_NE(zstd_frame(data, 1), zstd_frame(data, -5));
  const auto output = [&](int level) { return through<strix::zstd::outstreambuf>(data, level); };
  const std::string l1 = output(1), l22 = output(22);
  EXPECT_NE(l1, l22);
  EXPECT_TRUE(output(0) == l1);
  EXPECT_TRUE(output(-5) == l1);
  EXPECT_TRUE(output(30) == l22);
  EXPECT_TRUE(unzstd(l22, data.size()) == data);
}

TEST(GzipStreambuf, OutputInflatesToTheTextLessOneByteAtEachBoundary) {
  // The model by hand: byte 65536 goes, then every 65537th byte after it.
  std::string s(65536 + 65537 + 2, 'a');
  s[65536] = 'X';
  s[65536 + 65537] = 'Y';
  EXPECT_EQ(gzip_kept(s), std::string(s.size() - 2, 'a'));

  for (const std::size_t n : {0, 65535, 65536, 65537, 131074}) {
    const std::string data = sample_bytes(n, static_cast<std::uint32_t>(n) + 1);
    for (const bool by_sputn : {false, true}) {
      SCOPED_TRACE(testing::Message() << n << " bytes, " << (by_sputn ? "sputn" : "sputc"));
      const std::string gz = through<strix::gzip::streambuf>(data, 3, by_sputn);
      EXPECT_TRUE(gunzip(gz, n) == gzip_kept(data));
    }
  }
}

// A target that refuses bytes gives IOError, from a write or from close, and
// destroying the buffer afterwards is quiet.
template <typename Buf>
void expect_io_error_then_quiet(RefusingBuf& target) {
  auto big = std::make_unique<Buf>(&target, 1);
  EXPECT_THROW(put(*big, sample_bytes(1 << 20, 5)), strix::IOError);
  EXPECT_NO_THROW(big.reset());
  auto small = std::make_unique<Buf>(&target, 1);
  put(*small, "tiny");
  EXPECT_THROW(small->close(), strix::IOError);
  EXPECT_NO_THROW(small.reset());
}

TEST(CompressingBuffers, RefusingTargetThrowsIOErrorAndDestructionIsQuiet) {
  RefusingBuf target;
  expect_io_error_then_quiet<strix::zstd::outstreambuf>(target);
  expect_io_error_then_quiet<strix::gzip::streambuf>(target);
}

// Writers flush at their end, so a failure there reaches the driver; the
// destructor flushes too (also while unwinding) but never throws over the
// exception already on its way.
TEST(OutBuffer, FlushFailuresAndUnwinding) {
  std::stringbuf sink;
  try {
    strix::OutBuffer ob(&sink);
    ob.append("partial");
    throw 7;
  } catch (int) {
  }
  EXPECT_EQ(sink.str(), "partial");

  RefusingBuf target;
  strix::zstd::outstreambuf z(&target, 1);
  {
    strix::OutBuffer ob(&z);
    ob.append(sample_bytes(1 << 20, 6));
    EXPECT_THROW(ob.flush(), strix::IOError);
  }
  RefusingBuf target2;
  strix::zstd::outstreambuf z2(&target2, 1);
  int caught = 0;
  try {
    strix::OutBuffer ob(&z2);
    ob.append(sample_bytes(1 << 20, 10));
    throw 7;
  } catch (int e) {
    caught = e;
  }
  EXPECT_EQ(caught, 7);
  EXPECT_GT(target2.attempts, 0);  // the pending bytes were offered
}

// A target that keeps what it is given and throws on its n-th piece, as a
// compressing buffer does when its own target fails.
class FailingOnPieceBuf : public std::stringbuf {
 public:
  explicit FailingOnPieceBuf(int fail_on) : fail_on_(fail_on) {}
  int pieces = 0;

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    if (++pieces == fail_on_) throw strix::IOError{};
    return std::stringbuf::xsputn(s, n);
  }

 private:
  int fail_on_;
};

// Pieces of many sizes, handed over while the previous one is still being
// written: the target gets every byte, in order.
TEST(OutBuffer, PiecesArriveWholeAndInOrder) {
  const std::string data = sample_bytes(5 * strix::kOutputPiece + 12345, 3);
  std::stringbuf sink;
  {
    strix::OutBuffer ob(&sink);
    std::size_t pos = 0;
    for (std::size_t step = 1; pos < data.size(); step = step * 7 % 100003 + 1) {
      const std::size_t n = std::min(step, data.size() - pos);
      if (step % 3 == 0) {
        char* out = ob.room(n);
        std::memcpy(out, data.data() + pos, n);
        ob.commit(out + n);
      } else {
        ob.append(std::string_view(data).substr(pos, n));
      }
      pos += n;
      ob.maybe_flush();
    }
    ob.flush();
    EXPECT_EQ(sink.str(), data);  // complete once flush() returns
  }
  EXPECT_EQ(sink.str(), data);
}

// A failure of the target reaches the writer at a later hand-over or at its
// flush; after it nothing more is offered, also not by the destructor.
TEST(OutBuffer, TargetFailureIsRethrownAndEndsTheOutput) {
  const std::string piece(strix::kOutputPiece, 'x');
  FailingOnPieceBuf sink(2);
  bool thrown = false;
  {
    strix::OutBuffer ob(&sink);
    try {
      for (int i = 0; i < 6; ++i) {
        ob.append(piece);
        ob.maybe_flush();
      }
      ob.flush();
    } catch (const strix::IOError&) {
      thrown = true;
    }
    ob.append("more");
  }
  EXPECT_TRUE(thrown);
  EXPECT_EQ(sink.pieces, 2);
  EXPECT_EQ(sink.str(), piece);

  // The same without the thread: a document smaller than one piece.
  FailingOnPieceBuf small_sink(1);
  {
    strix::OutBuffer ob(&small_sink);
    ob.append("small document");
    EXPECT_THROW(ob.flush(), strix::IOError);
    EXPECT_THROW(ob.flush(), strix::IOError);
  }
  EXPECT_EQ(small_sink.pieces, 1);
}

// A writer left by its own exception after pieces were handed over: what it
// formatted is still written, in order.
TEST(OutBuffer, UnwindingWriterKeepsItsOutput) {
  const std::string data = sample_bytes(3 * strix::kOutputPiece, 5);
  std::stringbuf sink;
  try {
    strix::OutBuffer ob(&sink);
    ob.append(data);
    ob.maybe_flush();
    ob.append("tail");
    throw 7;
  } catch (int) {
  }
  EXPECT_EQ(sink.str(), data + "tail");
}

}  // namespace
