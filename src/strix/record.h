// The record stream of a solution file: section headers and the arrays that
// make up their payloads. These primitives judge nothing; the solution reader
// decides what is acceptable.
#pragma once

#include <array>        // std::array
#include <cstddef>      // std::size_t
#include <cstdint>      // fixed-width integers
#include <string>       // std::string
#include <string_view>  // std::string_view

#include "strix/limits.h"  // kHeaderFieldRoom

namespace strix {

class Reader;
template <typename T>
class Array;

// Mark at the start of every solution file: "NLOB" read as a little-endian
// 32-bit number.
inline constexpr std::uint32_t kSolutionMark = 0x424F4C4E;

// A section header as read: views into the caller's scratch buffer, valid
// until the next header is read into it.
struct SectionHeader {
  std::string_view name;
  std::string_view format;
};

using HeaderScratch = std::array<char, 2 * kHeaderFieldRoom>;

SectionHeader read_section_header(Reader& in, HeaderScratch& scratch);

// Reads exactly n bytes where possible; missing bytes stay zero.
void read_exact_or_zero(Reader& in, void* dst, std::size_t n);

// A "[B" array appended to a string. The only reader that keeps the data of
// the chunked form.
void read_bytes(Reader& in, std::string& out);

// "[B" arrays appended to byte arrays. Chunked data is read and dropped.
void read_byte_array(Reader& in, Array<std::uint8_t>& out);
void read_byte_array(Reader& in, Array<char>& out);

// Typed arrays; `expected` is the element count the caller expects, used only
// to size the first allocation. Chunked data is read and dropped; bytes that
// do not fill a whole element are dropped.
void read_u32_array(Reader& in, Array<std::uint32_t>& out, std::uint64_t expected);  // "[I"
void read_i32_array(Reader& in, Array<std::int32_t>& out, std::uint64_t expected);   // "[i"
void read_i64_array(Reader& in, Array<std::int64_t>& out, std::uint64_t expected);   // "[l"
void read_u64_array(Reader& in, Array<std::uint64_t>& out, std::uint64_t expected);  // "[L"
void read_f64_array(Reader& in, Array<double>& out, std::uint64_t expected);         // "[d"

// Passes over an array of any type without keeping it, and says how many
// whole elements of `element_size` bytes a read would have kept: those the
// length prefix announces and the data holds, 0 for the chunked form.
std::uint64_t skip_array(Reader& in, std::size_t element_size);

}  // namespace strix
