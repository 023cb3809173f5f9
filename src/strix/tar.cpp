#include "strix/tar.h"

#include <algorithm>  // std::min, std::fill
#include <bit>        // std::endian
#include <cstring>    // std::memcpy
#include <ios>        // std::streamsize
#include <iterator>   // std::back_inserter
#include <limits>     // std::numeric_limits

#include <fmt/compile.h>  // FMT_COMPILE
#include <fmt/format.h>   // fmt::format_to

#include "strix/escape.h"
#include "strix/limits.h"
#include "strix/solution.h"
#include "strix/writers.h"

namespace strix {

namespace {

// The order of a solution's members in the archive.
constexpr Vector kTaskOrder[] = {Vector::skx, Vector::skc,  Vector::skn,  Vector::xx,  Vector::xc,
                                 Vector::y,   Vector::slc,  Vector::suc,  Vector::slx, Vector::sux,
                                 Vector::snx, Vector::doty, Vector::barx, Vector::bars};

// ------------------------------------------------------------ tar header

// One field of a binary header (the tar header, the array member header):
// where it starts and how many bytes it has.
struct Field {
  std::size_t offset;
  std::size_t size;
};

constexpr Field kName{0, 100};
constexpr Field kMode{100, 8};
constexpr Field kUid{108, 8};
constexpr Field kGid{116, 8};
constexpr Field kSize{124, 12};
constexpr Field kMtime{136, 12};
constexpr Field kChecksum{148, 8};
constexpr Field kTypeflag{156, 1};
constexpr Field kMagic{257, 8};
constexpr Field kUname{265, 32};
constexpr Field kGname{297, 32};
constexpr Field kDevmajor{329, 8};
constexpr Field kDevminor{337, 8};
// The checksum covers the header up to the start of the unused tail.
constexpr std::size_t kChecksummedBytes = 500;

// Sizes from here on take the base-256 form although twelve octal digits
// would still hold them; readers of task archives expect this threshold.
constexpr std::uint64_t kBase256SizeFrom = std::uint64_t{1} << 29;
// The base-256 size: a marker byte, three zero bytes, then 64 bits.
constexpr unsigned char kBase256Marker = 0x80;
constexpr std::size_t kBase256ValueOffset = kSize.offset + 4;

using Block = std::array<unsigned char, kTarBlock>;

static_assert(kMagic.offset + kMagic.size == kUname.offset);
static_assert(kDevminor.offset + kDevminor.size <= kChecksummedBytes);

void put_bytes(Block& block, Field field, std::string_view bytes) {
  // Callers keep names within their fields; cutting is only a guard.
  const std::size_t n = std::min(bytes.size(), field.size);
  if (n != 0) std::memcpy(block.data() + field.offset, bytes.data(), n);
}

// Writes `digits` octal digits of value, most significant first.
void put_octal_digits(Block& block, std::size_t offset, std::size_t digits, std::uint64_t value) {
  for (std::size_t i = digits; i-- > 0;) {
    block[offset + i] = static_cast<unsigned char>('0' + (value & 7));
    value >>= 3;
  }
}

// An 8-byte octal field: mode, ids and checksum. Zero is "0000000" and a
// terminator while any other value is eight digits without one: the task
// archive's header image has this asymmetry.
void put_octal_field(Block& block, Field field, std::uint32_t value) {
  if (value == 0) {
    put_bytes(block, field, std::string_view("0000000\0", 8));
    return;
  }
  put_octal_digits(block, field.offset, field.size, value & 0xFFFFFF);
}

void put_size(Block& block, std::uint64_t size) {
  if (size == 0) {
    put_bytes(block, kSize, std::string_view("00000000000\0", 12));
  } else if (size < kBase256SizeFrom) {
    put_octal_digits(block, kSize.offset, kSize.size, size);
  } else {
    block[kSize.offset] = kBase256Marker;
    for (std::size_t i = 8; i-- > 0;) {
      block[kBase256ValueOffset + i] = static_cast<unsigned char>(size & 0xFF);
      size >>= 8;
    }
  }
}

// --------------------------------------------------- array member header

// Header of an array member ("NLOM"), followed directly by the values; its
// fields are little-endian, and bytes 32..39 stay zero.
constexpr std::size_t kArrayHeaderSize = 40;
constexpr Field kArrayMagic{0, 4};
constexpr Field kArrayFlag{4, 1};
constexpr Field kArrayElementType{6, 1};
constexpr Field kArrayKind{7, 1};
constexpr Field kArrayDimensions{8, 8};  // 1: every member is a flat vector
constexpr Field kArrayLength{16, 8};     // the element count along it
constexpr Field kArrayElements{24, 8};   // the element count in all

constexpr unsigned char kFlagDefault = 8;
constexpr unsigned char kFlagMatrix = 0;  // barx and bars
constexpr unsigned char kKindDefault = 3;
constexpr unsigned char kKindDoty = 4;

template <typename T>
struct ElementType;
template <>
struct ElementType<std::uint8_t> {
  static constexpr unsigned char value = 1;
};
template <>
struct ElementType<std::int32_t> {
  static constexpr unsigned char value = 3;
};
template <>
struct ElementType<std::int64_t> {
  static constexpr unsigned char value = 4;
};
template <>
struct ElementType<double> {
  static constexpr unsigned char value = 9;
};

// Values go to the archive straight from memory; the archive is little-endian.
static_assert(std::endian::native == std::endian::little,
              "array members are written from memory and must be little-endian");
static_assert(sizeof(double) == 8 && std::numeric_limits<double>::is_iec559);

using ArrayHeader = std::array<unsigned char, kArrayHeaderSize>;

void put_u64_le(ArrayHeader& header, Field field, std::uint64_t value) {
  for (std::size_t i = 0; i < field.size; ++i) {
    header[field.offset + i] = static_cast<unsigned char>(value & 0xFF);
    value >>= 8;
  }
}

// ------------------------------------------------------- task archive

// Every member: mode 0600, user and group 1001, both named "nollo".
constexpr TarOwner kMemberOwner{0600, 1001, 1001, "nollo", "nollo"};

void write_text_member(TarWriter& tar, std::string_view name, const std::string& text) {
  tar.write_header(name, text.size());
  tar.write_data(text.data(), text.size());
}

template <typename T>
void write_array_member(TarWriter& tar, std::string_view name, const Array<T>& values,
                        unsigned char flag = kFlagDefault, unsigned char kind = kKindDefault) {
  ArrayHeader header{};
  std::memcpy(header.data() + kArrayMagic.offset, "NLOM", kArrayMagic.size);
  header[kArrayFlag.offset] = flag;
  header[kArrayElementType.offset] = ElementType<T>::value;
  header[kArrayKind.offset] = kind;
  put_u64_le(header, kArrayDimensions, 1);
  put_u64_le(header, kArrayLength, values.size());
  put_u64_le(header, kArrayElements, values.size());

  const std::uint64_t bytes = std::uint64_t{values.size()} * sizeof(T);
  tar.write_header(name, kArrayHeaderSize + bytes);
  tar.write_data(header.data(), header.size());
  tar.write_data(values.data(), bytes);
}

void write_names_member(TarWriter& tar, std::string_view member, const NameList& names,
                        std::string& text) {
  text.clear();
  for (std::string_view name : names.names) {
    append_escaped(text, name, kItemNameEscapes);
    text.push_back('\n');
  }
  write_text_member(tar, member, text);
}

}  // namespace

// ------------------------------------------------------------- TarWriter

TarWriter::TarWriter(std::ostream& stream, const TarOwner& owner) : stream_(stream) {
  put_octal_field(template_, kMode, owner.mode);
  put_octal_field(template_, kUid, owner.uid);
  put_octal_field(template_, kGid, owner.gid);
  put_bytes(template_, kUname, owner.uname);
  put_bytes(template_, kGname, owner.gname);
  put_bytes(template_, kMtime, std::string_view("00000000000\0", 12));
  template_[kTypeflag.offset] = '0';
  put_bytes(template_, kDevmajor, std::string_view("0000000\0", 8));
  put_bytes(template_, kDevminor, std::string_view("0000000\0", 8));
  // A blank and "00", not the POSIX zero byte: the archive's readers expect it.
  put_bytes(template_, kMagic, "ustar 00");
  // The user name's first byte is zeroed after the copy, so readers see an
  // empty user name while the rest of it stays in the field. Required bytes.
  template_[kUname.offset] = 0;
  std::fill_n(template_.begin() + kChecksum.offset, kChecksum.size, ' ');
}

void TarWriter::put(const void* data, std::uint64_t n) {
  stream_.rdbuf()->sputn(static_cast<const char*>(data), static_cast<std::streamsize>(n));
}

void TarWriter::put_zeros(std::uint64_t n) {
  static constexpr Block kZeros{};
  while (n > 0) {
    const std::uint64_t k = std::min<std::uint64_t>(n, kZeros.size());
    put(kZeros.data(), k);
    n -= k;
  }
}

void TarWriter::write_header(std::string_view name, std::uint64_t size) {
  put_zeros(pending_padding_);
  pending_padding_ = 0;

  block_ = template_;
  put_bytes(block_, kName, name);
  put_size(block_, size);
  // Bytes are summed as signed values: 0x80..0xFF count negative.
  std::int32_t sum = 0;
  for (std::size_t i = 0; i < kChecksummedBytes; ++i) {
    sum += static_cast<signed char>(block_[i]);
  }
  put_octal_field(block_, kChecksum, static_cast<std::uint32_t>(sum));

  put(block_.data(), block_.size());
  remaining_ = size;
  pending_padding_ = (kTarBlock - size % kTarBlock) % kTarBlock;
}

void TarWriter::write_data(const void* data, std::uint64_t n) {
  const auto* bytes = static_cast<const char*>(data);
  // Bytes beyond the declared size are dropped: the header is already out.
  while (remaining_ != 0 && n != 0) {
    const std::uint64_t piece = std::min({n, remaining_, kArchiveWritePiece});
    put(bytes, piece);
    bytes += piece;
    n -= piece;
    remaining_ -= piece;
  }
}

void TarWriter::finish() {
  put_zeros(pending_padding_);
  pending_padding_ = 0;
  // Two zero blocks end the archive; it is not padded to a record size.
  put_zeros(2 * kTarBlock);
}

// ---------------------------------------------------------- task archive

void write_task(std::ostream& out, const Solution& solution) {
  TarWriter tar(out, kMemberOwner);
  std::string text;

  // Four version parts where the solution has three, the third always 0.
  fmt::format_to(std::back_inserter(text), FMT_COMPILE("nollover={}.{}.{}.{}\n"),
                 solution.version[0], solution.version[1], 0, solution.version[2]);
  fmt::format_to(std::back_inserter(text),
                 FMT_COMPILE("numvar={}\nnumcon={}\nnumcone={}\nnumbarvar={}\nnumacc={}\n"),
                 solution.numvar, solution.numcon, solution.numcone, solution.numbarvar,
                 solution.numacc);
  write_text_member(tar, "Task/INFO", text);

  // The information members are written also when a group is empty.
  write_names_member(tar, "Task/information/doubleitems", solution.info_f64.names, text);
  write_array_member(tar, "Task/information/double", solution.info_f64.values);
  write_names_member(tar, "Task/information/intitems", solution.info_i32.names, text);
  write_array_member(tar, "Task/information/int", solution.info_i32.values);
  write_names_member(tar, "Task/information/longitems", solution.info_i64.names, text);
  write_array_member(tar, "Task/information/long", solution.info_i64.values);

  std::string name;
  for (const SolutionItem& item : solution.solutions) {
    const std::string prefix = "Task/solution/" + item.kind + "/";
    const auto member = [&](std::string_view suffix) -> std::string_view {
      name.assign(prefix).append(suffix);
      return name;
    };

    // Status names exactly as stored: this archive does not lower them.
    text.clear();
    fmt::format_to(std::back_inserter(text), FMT_COMPILE("prosta={}\nsolsta={}\n"), item.prosta,
                   item.solsta);
    write_text_member(tar, member("status"), text);

    // The status keys of variables and constraints are always written, also
    // empty; every other vector only when present. doty and the matrix values
    // carry their own marker bytes; the patterns that shape them are not
    // recorded, the values are stored flat.
    for (const Vector v : kTaskOrder) {
      const VectorInfo& info = vector_info(v);
      if (info.keys != nullptr) {
        const Array<std::uint8_t>& keys = item.*info.keys;
        if (!keys.empty() || v != Vector::skn) write_array_member(tar, member(info.key), keys);
        continue;
      }
      const Array<double>& values = item.*info.values;
      if (values.empty()) continue;
      if (v == Vector::doty) {
        write_array_member(tar, member(info.key), values, kFlagDefault, kKindDoty);
      } else if (info.axis == Axis::barvar_blocks) {
        write_array_member(tar, member(info.key), values, kFlagMatrix);
      } else {
        write_array_member(tar, member(info.key), values);
      }
    }
  }

  tar.finish();
}

}  // namespace strix
