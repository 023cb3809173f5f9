#include <fcntl.h>  // _O_BINARY, _O_RDONLY, _O_WRONLY
#include <io.h>     // _wopen, _read, _lseeki64, _close, _open_osfhandle, _setmode
#include <sys/stat.h>
#include <windows.h>

#include <algorithm>  // std::min
#include <cerrno>     // errno, EISDIR
#include <climits>    // INT_MAX
#include <cstdio>     // _fileno, stdout

#include "strix/errors.h"
#include "strix/names.h"
#include "strix/platform/files.h"

namespace strix::platform {
namespace {

// The system's reason as the C library's error number, as _wopen gives it.
int errno_of(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
      return ENOENT;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
      return EACCES;
    case ERROR_FILENAME_EXCED_RANGE:
      return ENAMETOOLONG;
    case ERROR_INVALID_NAME:
      return EINVAL;
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return ENOSPC;
    case ERROR_TOO_MANY_OPEN_FILES:
      return EMFILE;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
      return ENOMEM;
    default:
      return EIO;
  }
}

}  // namespace

int open_for_reading(const std::filesystem::path& path) {
  const int fd = _wopen(path.c_str(), _O_RDONLY | _O_BINARY | _O_NOINHERIT);
  if (fd >= 0) return fd;
  int error = errno;
  // A folder cannot be opened at all here; it is told apart as elsewhere.
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
    error = EISDIR;
  }
  throw IOError(error, path_text(path), error == EISDIR ? "cannot read" : "cannot open");
}

// Deleting is shared too, so that an interrupted run can remove the file
// it is still writing (outputs.h).
int create_for_writing(const std::filesystem::path& path) {
  const HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                               CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) {
    errno = errno_of(GetLastError());
    return -1;
  }
  const int fd = _open_osfhandle(reinterpret_cast<intptr_t>(h), _O_WRONLY | _O_BINARY);
  if (fd < 0) CloseHandle(h);
  return fd;
}

void close_file(int fd) noexcept {
  _close(fd);
}

std::uint64_t read_fully(int fd, void* dst, std::uint64_t n) noexcept {
  auto* out = static_cast<char*>(dst);
  std::uint64_t count = 0;
  while (count < n) {
    const int got =
        _read(fd, out + count, static_cast<unsigned>(std::min<std::uint64_t>(n - count, INT_MAX)));
    if (got <= 0) break;
    count += static_cast<std::uint64_t>(got);
  }
  return count;
}

bool write_fully(int fd, const void* src, std::size_t n) noexcept {
  const auto* in = static_cast<const char*>(src);
  while (n > 0) {
    const int put = _write(fd, in, static_cast<unsigned>(std::min<std::size_t>(n, INT_MAX)));
    if (put <= 0) return false;
    in += put;
    n -= static_cast<std::size_t>(put);
  }
  return true;
}

std::optional<std::uint64_t> position(int fd) noexcept {
  const __int64 pos = _lseeki64(fd, 0, SEEK_CUR);
  if (pos < 0) return std::nullopt;
  return static_cast<std::uint64_t>(pos);
}

bool seek_to(int fd, std::uint64_t offset) noexcept {
  return _lseeki64(fd, static_cast<__int64>(offset), SEEK_SET) >= 0;
}

std::optional<std::uint64_t> regular_file_size(int fd) noexcept {
  struct _stat64 st;
  if (_fstat64(fd, &st) != 0 || (st.st_mode & _S_IFMT) != _S_IFREG) return std::nullopt;
  return static_cast<std::uint64_t>(st.st_size);
}

std::string message_text(const std::filesystem::path& name) {
  const std::wstring& wide = name.native();
  if (wide.empty()) return {};
  const int size = static_cast<int>(wide.size());
  std::string text(static_cast<std::size_t>(WideCharToMultiByte(CP_ACP, 0, wide.data(), size,
                                                                nullptr, 0, nullptr, nullptr)),
                   '\0');
  WideCharToMultiByte(CP_ACP, 0, wide.data(), size, text.data(), static_cast<int>(text.size()),
                      nullptr, nullptr);
  return text;
}

int binary_standard_input() noexcept {
  _setmode(0, _O_BINARY);
  return 0;
}

void binary_standard_output() noexcept {
  std::fflush(stdout);
  _setmode(_fileno(stdout), _O_BINARY);
}

}  // namespace strix::platform
