// Arbitrary bytes as Zstandard input, pulled through read in varying piece
// sizes. A decompression error is a designed end.
#include <cstdint>  // std::uint8_t
#include <vector>   // std::vector

#include <zstd.h>  // ZSTD_DStreamOutSize

#include "fuzz_util.h"
#include "strix/errors.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  // The first byte picks the piece sizes, the rest is the compressed input.
  const unsigned pattern = data[0];
  strix::MemoryReader inner(data + 1, size - 1);
  strix::zstd::Reader reader(&inner);
  std::vector<char> piece(1 << 18);
  static constexpr std::uint64_t kSizes[] = {0, 1, 7, 4096, 131072, 131073, 262144, 3};
  std::uint64_t total = 0;
  try {
    for (unsigned i = 0;; ++i) {
      const std::uint64_t want = kSizes[(pattern + i) % 8];
      const std::uint64_t got = reader.read(piece.data(), want);
      if (got > want) __builtin_trap();
      total += got;
      if (want > 0 && got < want) break;
      if (total > (std::uint64_t{64} << 20)) break;  // bombs: enough is enough
    }
  } catch (const strix::zstd::CompressionError&) {
    // After an error the reader hands out at most what the failing call had
    // decoded (one output buffer), then reports the end of the data.
    std::uint64_t rest = 0;
    for (std::uint64_t got; (got = reader.read(piece.data(), piece.size())) != 0;) rest += got;
    if (rest > ZSTD_DStreamOutSize() || reader.read(piece.data(), 1) != 0) __builtin_trap();
  }
  return 0;
}
