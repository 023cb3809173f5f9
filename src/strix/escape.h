// The program's three ways of escaping bytes in text, side by side, so that
// their deliberate differences stay visible in one place: JSON strings,
// the report's display names and the task archive's item names.
#pragma once

#include <array>        // std::array
#include <cstddef>      // std::size_t
#include <string_view>  // std::string_view

namespace strix {

// What each byte becomes: copied, a backslash and a letter, or the style's
// hexadecimal form. All three styles escape every byte that reads as at
// most 31 when taken as signed, 0x00..0x1F and 0x80..0xFF: a UTF-8 name
// comes out as one escape per byte, as readers of these files expect.
struct EscapeStyle {
  static constexpr char kHex = 1;  // `hex_prefix`, then two lower-case digits
  std::array<char, 256> how{};     // 0: copied
  std::string_view hex_prefix;
};

constexpr EscapeStyle escape_style(std::string_view bytes, std::string_view letters,
                                   std::string_view hex_prefix) {
  EscapeStyle style{{}, hex_prefix};
  for (std::size_t c = 0; c < 0x20; ++c) style.how[c] = EscapeStyle::kHex;
  for (std::size_t c = 0x80; c < 0x100; ++c) style.how[c] = EscapeStyle::kHex;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    style.how[static_cast<unsigned char>(bytes[i])] = letters[i];
  }
  return style;
}

// JSON strings: "\u00e9", and "\f" for 0x0C.
inline constexpr EscapeStyle kJsonEscapes = escape_style("\b\t\n\f\r\"\\", "btnfr\"\\", "\\u00");
// The report's quoted names: "\xe9", and "\x0c" where JSON has "\f".
inline constexpr EscapeStyle kReportEscapes = escape_style("\b\t\n\r\"\\", "btnr\"\\", "\\x");
// Item names in the archive, one per line: a double quote is copied, 0x08 is
// "\x08".
inline constexpr EscapeStyle kItemNameEscapes = escape_style("\t\n\r\\", "tnr\\", "\\x");

// Appends text to out (anything with append(std::string_view)), escaped in
// the given style. Runs of bytes that need no escape go in one piece.
template <typename Out>
void append_escaped(Out& out, std::string_view text, const EscapeStyle& style) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::size_t plain = 0;  // start of the pending run of copied bytes
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const char how = style.how[byte];
    if (how == 0) continue;
    out.append(text.substr(plain, i - plain));
    plain = i + 1;
    if (how == EscapeStyle::kHex) {
      out.append(style.hex_prefix);
      const char digits[2] = {kDigits[byte >> 4], kDigits[byte & 0xF]};
      out.append(std::string_view(digits, 2));
    } else {
      const char escape[2] = {'\\', how};
      out.append(std::string_view(escape, 2));
    }
  }
  out.append(text.substr(plain));
}

}  // namespace strix
