#include <signal.h>    // sigaction, pthread_sigmask, raise
#include <sys/stat.h>  // stat, lstat, fstat
#include <unistd.h>    // unlink

#include <atomic>  // std::atomic
#include <cerrno>  // errno, ENOENT
#include <string>  // std::string

#include "strix/platform/outputs.h"

namespace strix::platform {
namespace {

std::optional<FileIdentity> identity(int status, const struct stat& st) {
  if (status != 0) return std::nullopt;
  return FileIdentity{static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
}

// The handler touches only these two, set before it can run.
constexpr int kInterruptions[] = {SIGINT, SIGTERM, SIGHUP};
std::string output_name;
std::atomic<bool> remove_output{false};
static_assert(std::atomic<bool>::is_always_lock_free);
sigset_t held, saved;
bool holding = false;

void on_interruption(int signal) {
  if (remove_output.load()) unlink(output_name.c_str());
  // The default action is back (SA_RESETHAND): the signal raised again ends
  // the process once the handler returns.
  raise(signal);
}

}  // namespace

std::optional<FileIdentity> identity_of(const std::filesystem::path& name) {
  struct stat st;
  return identity(stat(name.c_str(), &st), st);
}

std::optional<FileIdentity> identity_of(int fd) {
  struct stat st;
  return identity(fstat(fd, &st), st);
}

// A signal that was ignored when the command started stays ignored, so a
// background job of a script keeps running through Ctrl-C.
InterruptedOutputRemoval::InterruptedOutputRemoval(const std::filesystem::path& output) {
  output_name = output.native();
  sigemptyset(&held);
  struct sigaction action {};
  action.sa_handler = on_interruption;
  action.sa_flags = SA_RESETHAND;
  sigemptyset(&action.sa_mask);
  for (const int signal : kInterruptions) {
    sigaddset(&held, signal);
    struct sigaction before {};
    if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
      sigaction(signal, &action, nullptr);
    }
  }
}

// Only a regular file is removed, never a link, a device or a FIFO. A FIFO
// can keep the open waiting for its reader, so signals are held back only
// for a regular file or a new one.
void InterruptedOutputRemoval::opening() {
  struct stat st;
  holding = lstat(output_name.c_str(), &st) == 0 ? S_ISREG(st.st_mode) : errno == ENOENT;
  if (holding) pthread_sigmask(SIG_BLOCK, &held, &saved);
}

void InterruptedOutputRemoval::opened(bool opened) {
  if (!holding) return;
  struct stat st;
  remove_output = opened && lstat(output_name.c_str(), &st) == 0 && S_ISREG(st.st_mode);
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  holding = false;
}

void InterruptedOutputRemoval::disarm() {
  remove_output = false;
}

}  // namespace strix::platform
