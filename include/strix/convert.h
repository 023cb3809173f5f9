// The conversion the command runs, as library calls: read a solution file
// named as on the command line, write it in the form its output name asks
// for. Failures are exceptions (errors.h); nothing is printed.
#pragma once

#include <memory>       // std::unique_ptr
#include <string>       // std::string
#include <string_view>  // std::string_view

namespace strix {

// How a conversion ended without an exception: status 0 when done, or the
// command's status for a fault in the names, with the line the command
// prints for it: 2 for a compression the input (".gz") or output cannot
// have, 4 for a compression no buffer exists for (cannot occur), 7 for an
// unknown output form (found after the whole input was read).
struct Outcome {
  int status = 0;
  std::string message;
};

// One conversion of INFILE to OUTFILE. The forms come from the names'
// suffixes: ".zst" input is Zstandard; the output's last suffix may be
// ".zst" or ".gz", the one before it (or the last) picks ".json"/".jtask",
// ".task", ".b" or ".txt"; a name made of "-" and suffixes is standard input
// or output. The output file is created before the input is read.
//
// run() opens and converts and leaves the outputs open, so that a caller can
// report a failure before they are closed; close() finishes them.
class Conversion {
 public:
  Conversion(std::string_view in_name, std::string_view out_name);
  // Closes what is still open; a failure to finish the output is dropped.
  ~Conversion();

  Conversion(const Conversion&) = delete;
  Conversion& operator=(const Conversion&) = delete;

  // Converts once. Throws IOError when the input cannot be opened, the
  // reader's and the compressing buffers' errors, and std::bad_alloc.
  Outcome run();
  // Ends the compressed stream into its target, then closes the output file
  // and the input; throws when the target takes no bytes. Does nothing the
  // second time.
  void close();

 private:
  struct Owned;

  std::string in_name_;
  std::string out_name_;
  std::unique_ptr<Owned> owned_;
};

// run() and close() in one call. When the conversion fails, the outputs are
// still finished and closed, and the conversion's failure is thrown.
Outcome convert(std::string_view in_name, std::string_view out_name);

}  // namespace strix
