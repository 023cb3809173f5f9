#include <fcntl.h>     // open, O_*
#include <sys/stat.h>  // fstat, S_ISDIR, S_ISREG
#include <unistd.h>    // read, write, lseek, close

#include <algorithm>  // std::min
#include <cerrno>     // errno, EINTR, EISDIR
#include <climits>    // SSIZE_MAX

#include "strix/errors.h"
#include "strix/names.h"
#include "strix/platform/files.h"

#ifndef O_CLOEXEC
#define O_CLOEXEC 0
#endif

namespace strix::platform {

int open_for_reading(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  int error = fd < 0 ? errno : 0;
  struct stat st;
  if (fd >= 0 && fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) error = EISDIR;
  if (error != 0) {
    if (fd >= 0) ::close(fd);
    throw IOError(error, path_text(path), error == EISDIR ? "cannot read" : "cannot open");
  }
  return fd;
}

int create_for_writing(const std::filesystem::path& path) {
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

void close_file(int fd) noexcept {
  ::close(fd);
}

std::uint64_t read_fully(int fd, void* dst, std::uint64_t n) noexcept {
  auto* out = static_cast<char*>(dst);
  std::uint64_t count = 0;
  while (count < n) {
    const ssize_t got = ::read(fd, out + count, std::min<std::uint64_t>(n - count, SSIZE_MAX));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    count += static_cast<std::uint64_t>(got);
  }
  return count;
}

bool write_fully(int fd, const void* src, std::size_t n) noexcept {
  const auto* in = static_cast<const char*>(src);
  while (n > 0) {
    const ssize_t put = ::write(fd, in, std::min<std::size_t>(n, SSIZE_MAX));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    in += put;
    n -= static_cast<std::size_t>(put);
  }
  return true;
}

std::optional<std::uint64_t> position(int fd) noexcept {
  const off_t pos = lseek(fd, 0, SEEK_CUR);
  if (pos < 0) return std::nullopt;
  return static_cast<std::uint64_t>(pos);
}

bool seek_to(int fd, std::uint64_t offset) noexcept {
  return lseek(fd, static_cast<off_t>(offset), SEEK_SET) >= 0;
}

std::optional<std::uint64_t> regular_file_size(int fd) noexcept {
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
  return static_cast<std::uint64_t>(st.st_size);
}

std::string message_text(const std::filesystem::path& name) {
  return name.native();
}

// No line ends are translated here.
int binary_standard_input() noexcept {
  return STDIN_FILENO;
}
void binary_standard_output() noexcept {}

}  // namespace strix::platform
