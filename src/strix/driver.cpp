#include "strix/driver.h"

#include <signal.h>    // sigaction, pthread_sigmask, raise
#include <sys/stat.h>  // lstat
#include <unistd.h>    // unlink

#include <atomic>     // std::atomic
#include <cerrno>     // errno, ENOENT
#include <cstdio>     // std::fflush, stdout
#include <cstdlib>    // std::abort
#include <exception>  // std::set_terminate, std::current_exception
#include <iostream>   // std::cerr, std::cout
#include <string>     // std::string

#include "strix/convert.h"
#include "strix/failure.h"

namespace strix {
namespace {

void error_line(const std::string& text) {
  if (!text.empty()) std::cerr << text << std::endl;
}

void usage() {
  // The text is kept as users know it: it names neither ".txt", ".jtask"
  // nor gzip under "Compression supported:", though all three work, and the
  // third line ends with a blank.
  static constexpr const char* kLines[] = {
      "Syntax: strix INFILE OUTFILE",
      ("  INFILE input solution file in .b or .b.zst format, '-.b' or '-.b.zst' to read from "
       "stdin"),
      "  OUTFILE is the output file to write to, '-' plus extension meaning stdout. ",
      "      Supported formats are:",
      "          -.json, -.json.zst, -.json.gz,",
      "          -.task, -.task.zst, -.task.gz,",
      "          -.b, -.b.zst, -.b.gz",
      "Compression supported:",
      "  ZSTD (input and output)",
  };
  for (const char* line : kLines) error_line(line);
}

// An interrupted run leaves no cut-off output that could pass for a result:
// on SIGINT, SIGTERM or SIGHUP the output file that this run created or
// truncated is removed, and the process ends by the signal as it would have
// without the handler. The handler touches only these two, set before it
// can run.
constexpr int kInterrupts[] = {SIGINT, SIGTERM, SIGHUP};
const char* output_name = nullptr;
std::atomic<bool> remove_output{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void on_interrupt(int signal) {
  if (remove_output.load()) unlink(output_name);
  // The default action is back (SA_RESETHAND): the signal raised again ends
  // the process once the handler returns.
  raise(signal);
}

// Arms the removal when the conversion has opened its output file, and not
// before: a file of the user's that this run has not truncated yet stays.
// Signals are held back during the open, so that an interrupted run either
// has not opened the file or knows that it has.
class Interrupts final : public OutputWatch {
 public:
  // A signal that was ignored when the command started stays ignored, so a
  // background job of a script keeps running through Ctrl-C.
  explicit Interrupts(const char* out_name) {
    output_name = out_name;
    sigemptyset(&held_);
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    action.sa_flags = SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    for (const int signal : kInterrupts) {
      sigaddset(&held_, signal);
      struct sigaction before {};
      if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
        sigaction(signal, &action, nullptr);
      }
    }
  }

  // Only a regular file is removed, never a link, a device or a FIFO. A
  // FIFO can keep the open waiting for its reader, so signals are held back
  // only for a regular file or a new one.
  void opening() override {
    struct stat st;
    holding_ = lstat(output_name, &st) == 0 ? S_ISREG(st.st_mode) : errno == ENOENT;
    if (holding_) pthread_sigmask(SIG_BLOCK, &held_, &saved_);
  }
  void opened(bool opened) override {
    if (!holding_) return;
    struct stat st;
    remove_output = opened && lstat(output_name, &st) == 0 && S_ISREG(st.st_mode);
    pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
    holding_ = false;
  }

 private:
  sigset_t held_, saved_;
  bool holding_ = false;
};

// The process ends by SIGABRT without the C++ runtime's own text. Standard
// output is not an owned object, so what was written to it is flushed here.
[[noreturn]] void abort_quietly() {
  std::cout.flush();
  std::fflush(stdout);
  std::abort();
}

// A compressed stream that cannot be finished ends the process at once,
// with no further line: what was written stays as it is. A closed output is
// all there will be, and a signal no longer removes it.
void close_or_abort(Conversion& conversion) {
  try {
    conversion.close();
  } catch (...) {
    abort_quietly();
  }
  remove_output = false;
}

}  // namespace

int run_command(int argc, char** argv) {
  std::set_terminate(abort_quietly);
  try {
    if (argc < 3) {
      usage();
      return 1;
    }
    // The command keeps its habit with uncompressed output files and folders
    // (ConvertOptions): a library caller is told, a user of the command is not.
    Interrupts interrupts(argv[2]);
    Conversion conversion(argv[1], argv[2], {.unchecked_files = true, .watch = &interrupts});
    Outcome outcome;
    try {
      outcome = conversion.run();
    } catch (...) {
      // A malformed section is described while the outputs are still open.
      error_line(failure_lines(std::current_exception()).at_once);
      close_or_abort(conversion);
      throw;
    }
    error_line(outcome.message);
    close_or_abort(conversion);
    return outcome.status;
  } catch (...) {
    // One line, then the exception goes on: the process ends by SIGABRT.
    error_line(failure_lines(std::current_exception()).after);
    throw;
  }
}

}  // namespace strix
