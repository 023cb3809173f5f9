// Floors for the conversion benchmark: the time the libraries alone need for
// the work a conversion cannot avoid, measured on the same data.
//   strix_floors format-json FILE.b   every double of the file by "{}"
//   strix_floors format-txt FILE.b    every double by "{:24.16g}"
//   strix_floors zstd FILE            compress FILE at level 3 (memory to memory)
//   strix_floors gzip FILE            deflate FILE at level 3 with a gzip wrapper (ISA-L)
//   strix_floors unzstd FILE.zst      decompress FILE
// Prints the seconds the measured part took.
#include <chrono>    // std::chrono::steady_clock
#include <cstdint>   // std::uint8_t, std::uint32_t
#include <cstdio>    // std::printf
#include <fstream>   // std::ifstream
#include <iterator>  // std::istreambuf_iterator
#include <string>    // std::string
#include <vector>    // std::vector

#include <fmt/compile.h>      // FMT_COMPILE
#include <fmt/format.h>       // fmt::memory_buffer
#include <isa-l/igzip_lib.h>  // isal_deflate
#include <zstd.h>             // ZSTD_compressStream2

#include "strix/solution.h"
#include "strix/streams.h"
#include "strix/writers.h"

namespace {

using Clock = std::chrono::steady_clock;

std::vector<char> slurp(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<const strix::Array<double>*> vectors(const strix::Solution& s) {
  std::vector<const strix::Array<double>*> out;
  for (const strix::SolutionItem& it : s.solutions) {
    for (const auto* v : {&it.xx, &it.slx, &it.sux, &it.snx, &it.xc, &it.y, &it.slc, &it.suc,
                          &it.barx, &it.bars, &it.doty}) {
      out.push_back(v);
    }
  }
  return out;
}

// Formats into a buffer that is emptied whenever it passes 64 KiB. The
// writers hand on 256 KiB pieces (kOutputPiece) now, so this floor is not
// measured with quite their cache behaviour.
template <typename Format>
double format_all(const strix::Solution& s, Format format) {
  fmt::memory_buffer buf;
  std::size_t total = 0;
  const auto start = Clock::now();
  for (const auto* v : vectors(s)) {
    for (const double d : *v) {
      format(buf, d);
      if (buf.size() >= (1 << 16)) {
        total += buf.size();
        buf.clear();
      }
    }
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  std::fprintf(stderr, "%zu bytes\n", total + buf.size());
  return seconds;
}

double zstd_compress(const std::vector<char>& in) {
  std::vector<char> out(ZSTD_CStreamOutSize());
  const auto start = Clock::now();
  ZSTD_CCtx* ctx = ZSTD_createCCtx();
  ZSTD_CCtx_setParameter(ctx, ZSTD_c_compressionLevel, 3);
  std::size_t produced = 0;
  for (std::size_t pos = 0; pos < in.size();) {
    const std::size_t n = std::min<std::size_t>(65536, in.size() - pos);
    ZSTD_inBuffer ib{in.data() + pos, n, 0};
    while (ib.pos < ib.size) {
      ZSTD_outBuffer ob{out.data(), out.size(), 0};
      ZSTD_compressStream2(ctx, &ob, &ib, ZSTD_e_continue);
      produced += ob.pos;
    }
    pos += n;
  }
  std::size_t left;
  do {
    ZSTD_inBuffer ib{nullptr, 0, 0};
    ZSTD_outBuffer ob{out.data(), out.size(), 0};
    left = ZSTD_compressStream2(ctx, &ob, &ib, ZSTD_e_end);
    produced += ob.pos;
  } while (left > 0);
  ZSTD_freeCCtx(ctx);
  std::fprintf(stderr, "%zu bytes\n", produced);
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double zstd_decompress(const std::vector<char>& in) {
  std::vector<char> out(ZSTD_DStreamOutSize());
  const auto start = Clock::now();
  ZSTD_DCtx* ctx = ZSTD_createDCtx();
  ZSTD_inBuffer ib{in.data(), in.size(), 0};
  std::size_t produced = 0;
  while (ib.pos < ib.size) {
    ZSTD_outBuffer ob{out.data(), out.size(), 0};
    if (ZSTD_isError(ZSTD_decompressStream(ctx, &ob, &ib))) break;
    produced += ob.pos;
  }
  ZSTD_freeDCtx(ctx);
  std::fprintf(stderr, "%zu bytes\n", produced);
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double gzip_compress(std::vector<char>& in) {
  std::vector<std::uint8_t> level_buf(ISAL_DEF_LVL3_DEFAULT);
  std::vector<std::uint8_t> out(65536);
  const auto start = Clock::now();
  isal_zstream zs{};
  isal_deflate_init(&zs);
  zs.level = 3;
  zs.level_buf = level_buf.data();
  zs.level_buf_size = static_cast<std::uint32_t>(level_buf.size());
  zs.gzip_flag = IGZIP_GZIP;
  zs.end_of_stream = 1;
  zs.next_in = reinterpret_cast<std::uint8_t*>(in.data());
  zs.avail_in = static_cast<std::uint32_t>(in.size());
  std::size_t produced = 0;
  do {
    zs.next_out = out.data();
    zs.avail_out = static_cast<std::uint32_t>(out.size());
    if (isal_deflate(&zs) != COMP_OK) return -1;
    produced += out.size() - zs.avail_out;
  } while (zs.internal_state.state != ZSTATE_END);
  std::fprintf(stderr, "%zu bytes\n", produced);
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::unique_ptr<strix::Solution> load(const char* path) {
  strix::FileReader reader(path);
  return strix::read_solution(reader);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: strix_floors format-json|format-txt|zstd|gzip|unzstd FILE\n");
    return 1;
  }
  const std::string what = argv[1];
  double seconds = -1;
  if (what == "format-json" || what == "format-txt") {
    const auto solution = load(argv[2]);
    if (!solution) return 1;
    if (what == "format-json") {
      seconds = format_all(*solution, [](fmt::memory_buffer& b, double d) {
        fmt::format_to(fmt::appender(b), FMT_COMPILE("{},"), d);
      });
    } else {
      seconds = format_all(*solution, [](fmt::memory_buffer& b, double d) {
        fmt::format_to(fmt::appender(b), FMT_COMPILE(" {:24.16g}"), d);
      });
    }
  } else {
    std::vector<char> data = slurp(argv[2]);
    if (what == "zstd") seconds = zstd_compress(data);
    if (what == "gzip") seconds = gzip_compress(data);
    if (what == "unzstd") seconds = zstd_decompress(data);
  }
  if (seconds < 0) return 1;
  std::printf("%.6f\n", seconds);
  return 0;
}
