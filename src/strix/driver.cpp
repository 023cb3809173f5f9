#include "strix/driver.h"

#include <cstdio>     // std::fflush, stdout
#include <cstdlib>    // std::abort
#include <exception>  // std::set_terminate, std::current_exception
#include <iostream>   // std::cerr, std::cout
#include <string>     // std::string

#include "strix/convert.h"
#include "strix/errors.h"

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

// The process ends by SIGABRT without the C++ runtime's own text. Standard
// output is not an owned object, so what was written to it is flushed here.
[[noreturn]] void abort_quietly() {
  std::cout.flush();
  std::fflush(stdout);
  std::abort();
}

// A compressed stream that cannot be finished ends the process at once,
// with no further line: what was written stays as it is.
void close_or_abort(Conversion& conversion) {
  try {
    conversion.close();
  } catch (...) {
    abort_quietly();
  }
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
    Conversion conversion(argv[1], argv[2], {.unchecked_files = true});
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
