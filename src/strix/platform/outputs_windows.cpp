#include <io.h>  // _get_osfhandle
#include <windows.h>

#include <atomic>  // std::atomic
#include <mutex>   // std::mutex
#include <string>  // std::wstring

#include "strix/platform/outputs.h"

namespace strix::platform {
namespace {

std::optional<FileIdentity> identity(HANDLE h) {
  BY_HANDLE_FILE_INFORMATION info;
  if (h == INVALID_HANDLE_VALUE || !GetFileInformationByHandle(h, &info)) return std::nullopt;
  return FileIdentity{info.dwVolumeSerialNumber,
                      (std::uint64_t{info.nFileIndexHigh} << 32) | info.nFileIndexLow};
}

// The console's events come on a thread of their own. The lock makes one
// that comes while the output is being created wait until it is known
// whether the file was opened.
std::wstring output_name;
std::mutex opening_lock;
bool remove_output = false;

BOOL WINAPI on_interruption(DWORD event) {
  switch (event) {
    case CTRL_C_EVENT:
    case CTRL_BREAK_EVENT:
    case CTRL_CLOSE_EVENT:
    case CTRL_LOGOFF_EVENT:
    case CTRL_SHUTDOWN_EVENT: {
      const std::lock_guard lock(opening_lock);
      // The file is open for deleting too (files.h): it goes when the
      // process ends, which the next handler, the system's, brings about.
      if (remove_output) DeleteFileW(output_name.c_str());
      remove_output = false;
      return FALSE;
    }
    default:
      return FALSE;
  }
}

}  // namespace

std::optional<FileIdentity> identity_of(const std::filesystem::path& name) {
  // Opened for no access at all, which any file allows, and folders too.
  const HANDLE h =
      CreateFileW(name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  const std::optional<FileIdentity> id = identity(h);
  if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
  return id;
}

std::optional<FileIdentity> identity_of(int fd) {
  const HANDLE h = reinterpret_cast<HANDLE>(_get_osfhandle(fd));
  if (GetFileType(h) != FILE_TYPE_DISK) return std::nullopt;
  return identity(h);
}

// A process started with Ctrl-C ignored is not told of it, so a background
// job keeps running through Ctrl-C as on POSIX.
InterruptedOutputRemoval::InterruptedOutputRemoval(const std::filesystem::path& output) {
  output_name = std::filesystem::absolute(output).native();
  SetConsoleCtrlHandler(on_interruption, TRUE);
}

void InterruptedOutputRemoval::opening() {
  opening_lock.lock();
}

// Only a file is removed, never a device such as NUL or CON.
void InterruptedOutputRemoval::opened(bool opened) {
  const DWORD attributes = GetFileAttributesW(output_name.c_str());
  remove_output = opened && attributes != INVALID_FILE_ATTRIBUTES &&
                  !(attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE));
  opening_lock.unlock();
}

void InterruptedOutputRemoval::disarm() {
  const std::lock_guard lock(opening_lock);
  remove_output = false;
}

}  // namespace strix::platform
