// Readers and buffers where the command line does not reach: what is left
// of a regular file or a pipe and what the record reader reserves from that,
// compression levels, a target that fails every write.
#include "strix/streams.h"

#include <isa-l/igzip_lib.h>  // isal_inflate
#include <zstd.h>             // ZSTD_compress, ZSTD_decompress

#include <cstdio>   // std::tmpfile, fmemopen
#include <memory>   // std::make_unique
#include <sstream>  // std::stringbuf
#include <string>   // std::string
#include <thread>   // std::thread

#include <unistd.h>  // pipe, write, lseek
#ifdef _WIN32
#include <fcntl.h>  // _O_BINARY
#include <io.h>     // _pipe
#endif

#include <gtest/gtest.h>

#include "strix/array.h"
#include "strix/compress.h"
#include "strix/errors.h"
#include "strix/record.h"

namespace {

using namespace std::string_literals;

#ifdef _WIN32
// The C runtime's pipe, binary as POSIX's is.
int pipe(int fds[2]) {
  return _pipe(fds, 1 << 16, _O_BINARY);
}
#endif

std::string zstd_frame(const std::string& data, int level) {
  std::string out(ZSTD_compressBound(data.size()), '\0');
  out.resize(ZSTD_compress(out.data(), out.size(), data.data(), data.size(), level));
  return out;
}

// What is left of a regular file is known, also after reads, and an array
// that it can hold is reserved whole before its data is read: one
// allocation, no moves. In memory, the size is unknown.
TEST(FileReader, ReservationFromWhatIsLeft) {
  constexpr std::uint64_t n = 2500000;  // 20,000,000 bytes: past the first reservation
  std::string data = "\xE9\x61\x31\x2D\x00"s;
  for (std::uint64_t i = 0; i < n; ++i) {
    const auto d = static_cast<double>(i);
    data.append(reinterpret_cast<const char*>(&d), sizeof d);
  }
  std::FILE* file = std::tmpfile();
  std::fwrite(data.data(), 1, data.size(), file);
  std::fflush(file);
  for (const bool sized : {true, false}) {
    // Unsized: the same bytes through a pipe.
    int fds[2] = {fileno(file), -1};
    ASSERT_TRUE(sized || pipe(fds) == 0);
    std::thread feed([&] {
      if (sized) return;
      EXPECT_EQ(write(fds[1], data.data(), data.size()), std::ssize(data));
      close(fds[1]);
    });
    lseek(fds[0], 0, SEEK_SET);
    strix::FDescReader in(fds[0]);
    EXPECT_EQ(in.remaining_bound(), sized ? data.size() : strix::Reader::kUnknownRemaining);
    unsigned char first = 0;
    EXPECT_EQ(in.read(&first, 1), 1u);
    EXPECT_EQ(first, 0xE9);
    EXPECT_EQ(in.remaining_bound(), sized ? data.size() - 1 : strix::Reader::kUnknownRemaining);
    strix::Array<double> out;
    strix::read_f64_array(in, out, n);
    feed.join();
    if (!sized) close(fds[0]);
    ASSERT_EQ(out.size(), n);
    for (std::uint64_t i = 0; i < n; ++i) ASSERT_EQ(out[i], static_cast<double>(i));
    EXPECT_TRUE(!sized || out.capacity() == n);
  }
}

// Levels below 1 and above 22 are clamped (unclamped, 0 would be the
// library's default level 3 and -5 a faster level than 1). A target that
// takes nothing fails a write with IOError, and destroying the buffer then is
// quiet: it does not try the rest of the stream a second time.
TEST(CompressingBuffers, LevelsAndAFailedTarget) {
  std::string data;
  for (int i = 0; data.size() < (1 << 20); ++i) data += std::to_string(i * 7919 % 10007) + ' ';
  const std::string part = data.substr(0, 30000);
  ASSERT_TRUE(zstd_frame(part, 1) != zstd_frame(part, 3) &&
              zstd_frame(part, 1) != zstd_frame(part, -5));
  const auto frame = [&](int level) {
    std::stringbuf sink;
    strix::zstd::outstreambuf(&sink, level).sputn(part.data(), 30000);
    return sink.str();
  };
  EXPECT_TRUE(frame(1) != frame(2) && frame(1) != frame(22));
  EXPECT_TRUE(frame(0) == frame(1) && frame(-5) == frame(1) && frame(30) == frame(22));

  struct : std::streambuf {
    std::streamsize xsputn(const char*, std::streamsize) override { return 0; }
  } refusing;
  auto z = std::make_unique<strix::zstd::outstreambuf>(&refusing, 1);
  auto g = std::make_unique<strix::gzip::streambuf>(&refusing, 1);
  EXPECT_THROW(z->sputn(data.data(), static_cast<std::streamsize>(data.size())), strix::IOError);
  EXPECT_THROW(g->sputn(data.data(), static_cast<std::streamsize>(data.size())), strix::IOError);
  EXPECT_NO_THROW((z.reset(), g.reset()));
}

// The library's buffers write every byte they are given, at any worker
// count (the command's gzip output, which drops a byte at every full put
// area, and its Zstandard frames are checked end to end).
TEST(CompressingBuffers, EveryByteAtAnyWorkerCount) {
  std::string data;
  for (long i = 0; data.size() < (3 << 20); ++i) data += std::to_string(i * 7919 % 100003) + ',';
  for (const unsigned workers : {0u, 1u, 3u}) {
    std::stringbuf z, g;
    {
      strix::zstd::outstreambuf zb(&z, 3, workers);
      strix::gzip::streambuf gb(&g, 3, workers);
      zb.sputn(data.data(), static_cast<std::streamsize>(data.size()));
      gb.sputn(data.data(), static_cast<std::streamsize>(data.size()));
    }
    const std::string frame = z.str(), member = g.str();
    std::string unzstd(data.size(), '\0'), gunzip(data.size() + 1, '\0');
    unzstd.resize(ZSTD_decompress(unzstd.data(), unzstd.size(), frame.data(), frame.size()));
    inflate_state state;
    isal_inflate_init(&state);
    state.crc_flag = ISAL_GZIP;
    state.next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(member.data()));
    state.avail_in = static_cast<std::uint32_t>(member.size());
    state.next_out = reinterpret_cast<std::uint8_t*>(gunzip.data());
    state.avail_out = static_cast<std::uint32_t>(gunzip.size());
    EXPECT_EQ(isal_inflate(&state), ISAL_DECOMP_OK);
    EXPECT_EQ(state.block_state, ISAL_BLOCK_FINISH);
    gunzip.resize(gunzip.size() - state.avail_out);
    EXPECT_TRUE(unzstd == data && gunzip == data) << workers;
  }
}

}  // namespace
