// Files and the standard streams as the system has them: opening a name for
// reading or writing, the descriptor calls the readers and the output file
// make, and binary mode. With the command's entry (main.cpp, or wmain.cpp
// where names are UTF-16) it is the one place that knows whether names are
// narrow or wide and whether ends of lines are translated.
#pragma once

#include <cstddef>     // std::size_t
#include <cstdint>     // std::uint64_t
#include <filesystem>  // std::filesystem::path
#include <optional>    // std::optional
#include <string>      // std::string

namespace strix::platform {

// A descriptor open for binary reading; throws IOError naming the path
// ("cannot open", or "cannot read" with EISDIR for a folder).
int open_for_reading(const std::filesystem::path& path);
// A descriptor of the file created or truncated for binary writing, open to
// other readers and writers meanwhile; -1 with errno set when it fails.
int create_for_writing(const std::filesystem::path& path);
void close_file(int fd) noexcept;

// Up to n bytes, fewer only at the end of the data or on an error (which
// ends the data, as a failed read of a stream does).
std::uint64_t read_fully(int fd, void* dst, std::uint64_t n) noexcept;
// All n bytes, or false with errno set.
bool write_fully(int fd, const void* src, std::size_t n) noexcept;
// The offset, or nothing where the descriptor cannot seek.
std::optional<std::uint64_t> position(int fd) noexcept;
bool seek_to(int fd, std::uint64_t offset) noexcept;
// The size of a regular file; nothing for a pipe, a terminal or a device.
std::optional<std::uint64_t> regular_file_size(int fd) noexcept;

// The name as the command writes it in its messages: its bytes on POSIX,
// its text in the ANSI code page on Windows, as the system's narrow calls
// have it.
std::string message_text(const std::filesystem::path& name);

// Standard input's descriptor, switched to binary mode.
int binary_standard_input() noexcept;
// Standard output switched to binary mode: no byte of an archive or a
// compressed stream becomes two.
void binary_standard_output() noexcept;

}  // namespace strix::platform
