#include "strix/driver.h"

#include <exception>  // std::set_terminate, std::current_exception
#include <iostream>   // std::cerr
#include <string>     // std::string

#include "strix/convert.h"
#include "strix/failure.h"
#include "strix/platform/outputs.h"
#include "strix/platform/process.h"
#include "strix/watch.h"

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

// Tells the removal of an interrupted run's output when the output file is
// opened.
class OutputOpening final : public OutputWatch {
 public:
  explicit OutputOpening(platform::InterruptedOutputRemoval& removal) : removal_(removal) {}
  void opening() override { removal_.opening(); }
  void opened(bool opened) override { removal_.opened(opened); }

 private:
  platform::InterruptedOutputRemoval& removal_;
};

// A compressed stream that cannot be finished ends the process at once,
// with no further line: what was written stays as it is. A closed output is
// all there will be, and a signal no longer removes it.
void close_or_abort(Conversion& conversion, platform::InterruptedOutputRemoval& removal) {
  try {
    conversion.close();
  } catch (...) {
    platform::end_abnormally();
  }
  removal.disarm();
}

}  // namespace

int run_command(const std::vector<std::filesystem::path>& arguments) {
  // An exception that leaves the command ends it without the runtime's text.
  std::set_terminate(platform::end_abnormally);
  try {
    if (arguments.size() < 2) {
      usage();
      return 1;
    }
    // The command keeps its habit with uncompressed output files and folders
    // (ConvertOptions): a library caller is told, a user of the command is not.
    platform::InterruptedOutputRemoval removal(arguments[1]);
    OutputOpening opening(removal);
    Conversion conversion(arguments[0], arguments[1], {.unchecked_files = true});
    CommandConversion::watch(conversion, opening);
    Outcome outcome;
    try {
      outcome = conversion.run();
    } catch (...) {
      // A malformed section is described while the outputs are still open.
      error_line(failure_lines(std::current_exception()).at_once);
      close_or_abort(conversion, removal);
      throw;
    }
    error_line(outcome.message);
    close_or_abort(conversion, removal);
    return outcome.status;
  } catch (...) {
    // One line, then the exception goes on: the process ends abnormally.
    error_line(failure_lines(std::current_exception()).after);
    throw;
  }
}

}  // namespace strix
