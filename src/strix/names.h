// What the command's names mean besides a place in the file system: which
// of them read standard input or write standard output, which compression
// a suffix asks for, and how a name is written in a message.
#pragma once

#include <filesystem>  // std::filesystem::path
#include <string>      // std::string

namespace strix {

// "-.b" and "-.b.zst" read standard input; any other name, "-" and
// "./-.b" among them, is a file. Names compare as paths.
inline bool names_standard_input(const std::filesystem::path& name) {
  return name == "-.b" || name == "-.b.zst";
}
// A ".zst" input is Zstandard; ".gz" input is refused.
inline bool is_zstd_input(const std::filesystem::path& name) {
  return name.extension() == ".zst";
}
inline bool is_gzip_input(const std::filesystem::path& name) {
  return name.extension() == ".gz";
}

// The name in messages: its bytes where names are bytes, UTF-8 where they
// are UTF-16.
std::string path_text(const std::filesystem::path& name);
// The name as the path stream insertion writes it: in double quotes, with
// quotes and backslashes inside escaped ("\".gz\""), in the narrow text
// of the system's messages (platform/files.h).
std::string quoted(const std::filesystem::path& name);

}  // namespace strix
