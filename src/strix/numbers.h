// Number formatting for the writers: the JSON document's shortest form and
// the report's value columns. Both give exactly the bytes of the formatting
// library's "{}" and "{:24.16g}"; they exist because they are several times
// faster than the library's general paths, and the writers print millions.
#pragma once

#include <cstddef>  // std::size_t

namespace strix {

// The longest shortest form: "-2.2250738585072014e-308".
inline constexpr std::size_t kMaxShortestSize = 24;
// What format_shortest may write from out: beyond the text's end it leaves
// scratch bytes, which the next text overwrites.
inline constexpr std::size_t kShortestRoom = 48;
// Writes value as "{}" does, into out, which has room for kShortestRoom
// bytes; returns the end of the text.
char* format_shortest(char* out, double value);

// The report's value columns are "{:24.16g}".
inline constexpr std::size_t kValueColumnWidth = 24;
// Writes value as "{:24.16g}" does, into out, which has room for
// kValueColumnWidth bytes; returns the end.
char* format_value_column(char* out, double value);

}  // namespace strix
