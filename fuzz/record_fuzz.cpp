// Arbitrary bytes through the record-stream primitives: section headers,
// length prefixes in every form, and arrays of every element type.
#include <cstdint>  // std::uint8_t
#include <string>   // std::string

#include "fuzz_util.h"
#include "strix/array.h"
#include "strix/record.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  strix::MemoryReader in(data, size);
  strix::HeaderScratch scratch;
  std::string bytes;
  strix::Array<std::uint8_t> keys;
  strix::Array<std::uint32_t> u32;
  strix::Array<std::int64_t> i64;
  strix::Array<double> f64;
  // Cycle through the primitives until the input runs out; each call must
  // return, whatever the bytes.
  for (int round = 0; round < 64; ++round) {
    const strix::SectionHeader h = strix::read_section_header(in, scratch);
    if (h.name.size() > 255 || h.format.size() > 255) __builtin_trap();
    switch (round % 5) {
      case 0:
        strix::read_bytes(in, bytes);
        break;
      case 1:
        strix::read_byte_array(in, keys);
        break;
      case 2:
        strix::read_u32_array(in, u32, UINT64_MAX);
        break;
      case 3:
        strix::read_i64_array(in, i64, 3);
        break;
      default:
        strix::read_f64_array(in, f64, 1 << 30);
        break;
    }
    if (h.name.empty() && h.format.empty() && in.remaining_bound() == 0) break;
  }
  return 0;
}
