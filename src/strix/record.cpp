#include "strix/record.h"

#include <algorithm>  // std::min
#include <bit>        // std::endian
#include <cstring>    // std::memset

#include "strix/array.h"
#include "strix/limits.h"
#include "strix/streams.h"

namespace strix {
namespace {

// Array values are stored in the file's little-endian layout and copied
// as they are: no byte swapping is ever done.
static_assert(std::endian::native == std::endian::little, "strix needs a little-endian host");

// Array length prefix: the first byte's top three bits count the further
// bytes (big-endian continuation), its low five bits start the value. The
// byte 0xE0 alone announces the chunked form instead.
struct ArrayLength {
  bool chunked;
  std::uint64_t bytes;  // meaningful when not chunked
};
constexpr unsigned char kChunkedMark = 0xE0;

unsigned char read_u8(Reader& in) {
  unsigned char b = 0;
  in.read(&b, 1);
  return b;
}

ArrayLength read_array_length(Reader& in) {
  const unsigned char head = read_u8(in);
  if (head == kChunkedMark) return {true, 0};
  std::uint64_t bytes = head & 0x1F;
  for (int extra = head >> 5; extra > 0; --extra) bytes = (bytes << 8) | read_u8(in);
  return {false, bytes};
}

// The length of the next chunk after the chunked mark; 0 (also at the end
// of the data) ends the array.
std::uint64_t read_chunk_size(Reader& in) {
  std::uint64_t size = std::uint64_t{read_u8(in)} << 8;
  return size | read_u8(in);
}

// Passes over the chunks after the chunked mark.
void skip_chunks(Reader& in) {
  for (std::uint64_t size; (size = read_chunk_size(in)) > 0;) {
    if (in.skip(size) < size) return;
  }
}

// Appends the whole elements of a plain array of `bytes` bytes to out.
template <typename Vec>
void read_plain(Reader& in, Vec& out, std::uint64_t bytes, std::uint64_t expected) {
  using T = typename Vec::value_type;
  // Where the input's size is known, a length the rest of the input can
  // hold is reserved whole; the array is then filled without moving.
  const std::uint64_t remaining = in.remaining_bound();
  const std::uint64_t cap = remaining == Reader::kUnknownRemaining
                                ? kFirstReserveBytes
                                : std::max(kFirstReserveBytes, remaining);
  const std::uint64_t first = std::min({expected, bytes / sizeof(T), cap / sizeof(T)});
  out.reserve(out.size() + first);
  while (bytes > 0) {
    const std::uint64_t want = std::min(bytes, kArrayReadPiece);
    const std::size_t old = out.size();
    out.resize(old + (want + sizeof(T) - 1) / sizeof(T));
    const std::uint64_t got = in.read(out.data() + old, want);
    // Bytes that do not fill a whole element are dropped; a short read is
    // the end of the data and ends the array.
    out.resize(old + got / sizeof(T));
    if (got < want) return;
    bytes -= got;
  }
}

template <typename Vec>
void read_typed(Reader& in, Vec& out, std::uint64_t expected) {
  const ArrayLength length = read_array_length(in);
  if (length.chunked) {
    // Only string payloads keep chunked data; typed arrays come back empty.
    skip_chunks(in);
    return;
  }
  read_plain(in, out, length.bytes, expected);
}

}  // namespace

SectionHeader read_section_header(Reader& in, HeaderScratch& scratch) {
  char* name = scratch.data();
  char* format = scratch.data() + kHeaderFieldRoom;
  const std::uint64_t name_size = in.read(name, read_u8(in));
  const std::uint64_t format_size = in.read(format, read_u8(in));
  return {{name, name_size}, {format, format_size}};
}

void read_exact_or_zero(Reader& in, void* dst, std::size_t n) {
  const std::uint64_t got = in.read(dst, n);
  if (got < n) std::memset(static_cast<char*>(dst) + got, 0, n - got);
}

void read_bytes(Reader& in, std::string& out) {
  const ArrayLength length = read_array_length(in);
  if (length.chunked) {
    // A chunk is at most 65535 bytes: it is appended whole, then cut to
    // what arrived.
    for (std::uint64_t size; (size = read_chunk_size(in)) > 0;) {
      const std::size_t old = out.size();
      out.resize(old + size);
      const std::uint64_t got = in.read(out.data() + old, size);
      out.resize(old + got);
      if (got < size) return;
    }
    return;
  }
  read_plain(in, out, length.bytes, length.bytes);
}

std::uint64_t skip_array(Reader& in, std::size_t element_size) {
  const ArrayLength length = read_array_length(in);
  if (length.chunked) {
    skip_chunks(in);
    return 0;
  }
  return in.skip(length.bytes) / element_size;
}

void read_byte_array(Reader& in, Array<std::uint8_t>& out) {
  read_typed(in, out, UINT64_MAX);
}
void read_byte_array(Reader& in, Array<char>& out) {
  read_typed(in, out, UINT64_MAX);
}
void read_u32_array(Reader& in, Array<std::uint32_t>& out, std::uint64_t expected) {
  read_typed(in, out, expected);
}
void read_i32_array(Reader& in, Array<std::int32_t>& out, std::uint64_t expected) {
  read_typed(in, out, expected);
}
void read_i64_array(Reader& in, Array<std::int64_t>& out, std::uint64_t expected) {
  read_typed(in, out, expected);
}
void read_u64_array(Reader& in, Array<std::uint64_t>& out, std::uint64_t expected) {
  read_typed(in, out, expected);
}
void read_f64_array(Reader& in, Array<double>& out, std::uint64_t expected) {
  read_typed(in, out, expected);
}

}  // namespace strix
