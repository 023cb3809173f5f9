// The conversion the strix command runs, as library calls: read a solution
// file named as on the command line, write it in the form its output name
// asks for. Failures are exceptions (errors.h); nothing is printed.
#pragma once

#include <filesystem>  // std::filesystem::path
#include <memory>      // std::unique_ptr
#include <string>      // std::string

namespace strix {

class OutputWatch;
class CommandConversion;

// How a conversion ended without an exception: status 0 when done, or the
// command's status for a fault in the names, with the line the command
// prints for it: 2 for ".gz" input, 7 for an unknown output form (found
// after the whole input was read).
struct Outcome {
  int status = 0;
  std::string message;
};

// Choices of the caller.
struct ConvertOptions {
  // As the strix command runs: an uncompressed output file that cannot be
  // created or written loses its bytes without a word, and a folder given as
  // input reads as empty. Left false, each of these throws IOError naming
  // the file.
  bool unchecked_files = false;
  // The conversion's threads (pool.h: what the count means); the output's
  // bytes are the same for every count.
  unsigned threads = 0;
};

// One conversion of INFILE to OUTFILE. The forms come from the names'
// suffixes: ".zst" input is Zstandard; the output's last suffix may be
// ".zst" or ".gz", the one before it (or the last) picks ".json"/".jtask",
// ".task", ".b" or ".txt"; "-.b" and "-.b.zst" are standard input, an output
// name made of "-" and suffixes standard output. The input is opened first;
// an output that names the input file throws SameFileError before anything
// is created; then the output file is created, and then the input read.
//
// run() opens and converts and leaves the outputs open, so that a caller can
// report a failure before they are closed; close() finishes them.
class Conversion {
 public:
  // Names are paths: on Windows wide, so that every name the system holds
  // can be given.
  Conversion(std::filesystem::path in_name, std::filesystem::path out_name,
             ConvertOptions options = {});
  // Closes what is still open; a failure to finish the output is dropped.
  ~Conversion();

  Conversion(const Conversion&) = delete;
  Conversion& operator=(const Conversion&) = delete;

  // Converts once. Throws IOError for an input that cannot be opened (or an
  // output, see ConvertOptions), SameFileError, the reader's, the writers'
  // and the compressing buffers' errors, and std::bad_alloc.
  Outcome run();
  // Ends the compressed stream into its target, then closes the output file
  // and the input; throws when the output cannot take the rest. Does nothing
  // the second time.
  void close();

 private:
  friend class CommandConversion;  // the command's, which watches the output's opening
  struct Resources;

  std::filesystem::path in_name_;
  std::filesystem::path out_name_;
  ConvertOptions options_;
  std::unique_ptr<Resources> held_;
  OutputWatch* watch_ = nullptr;
};

// run() and close() in one call. When the conversion fails, the outputs are
// still finished and closed, and the conversion's failure is thrown.
Outcome convert(const std::filesystem::path& in_name, const std::filesystem::path& out_name,
                ConvertOptions options = {});

}  // namespace strix
