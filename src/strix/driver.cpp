#include "strix/driver.h"

#include <cstdio>      // std::fopen, stdin, stdout
#include <exception>   // std::set_terminate
#include <filesystem>  // std::filesystem::path
#include <fstream>     // std::filebuf
#include <iostream>    // std::cerr, std::cout
#include <memory>      // std::unique_ptr
#include <optional>    // std::optional
#include <sstream>     // std::ostringstream
#include <string>      // std::string
#include <vector>      // copy buffer

#include "strix/compress.h"
#include "strix/errors.h"
#include "strix/json.h"
#include "strix/report.h"
#include "strix/solution.h"
#include "strix/streams.h"
#include "strix/tar.h"

namespace strix {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kCopyPiece = 4096;  // ".b" copies in constant memory
// The pieces are gathered into blocks of this size before they are handed
// on, and the input is buffered as much: a 4096-byte system call per piece
// would make copying a large file several times slower than cp.
constexpr std::size_t kCopyBlock = std::size_t{1} << 18;
constexpr std::size_t kInputBuffer = std::size_t{1} << 18;

// The input stream's buffer; static so that it outlives the stream, also
// standard input, which is never closed.
char input_buffer[kInputBuffer];

void error_line(const std::string& text) {
  std::cerr << text << std::endl;
}

// A path as the standard path stream insertion writes it: double quotes
// around, quotes and backslashes inside escaped.
std::string quoted(const fs::path& p) {
  std::ostringstream os;
  os << p;
  return os.str();
}

void usage() {
  // The text is kept as users know it: it names neither ".txt", ".jtask"
  // nor gzip under "Compression supported:", though all three work, and the
  // third line ends with a blank.
  static constexpr const char* kLines[] = {
      "Syntax: strix INFILE OUTFILE",
      "  INFILE input solution file in .b or .b.zst format, '-.b' or '-.b.zst' to read from "
      "stdin",
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

// Copies the source to the final buffer in fixed pieces; the bytes are never
// parsed, so any input at all is copied. The result of each bulk put is
// ignored: a plain file that takes no bytes loses them silently.
void copy_bytes(Reader& source, std::streambuf& final_buf) {
  std::vector<char> copy_buffer(kCopyBlock);
  std::size_t filled = 0;
  std::uint64_t n;
  do {
    try {
      n = source.read(copy_buffer.data() + filled, kCopyPiece);
    } catch (...) {
      // Pieces read before a decompression error belong in the output, as
      // if each had been handed on as soon as it was read.
      final_buf.sputn(copy_buffer.data(), static_cast<std::streamsize>(filled));
      throw;
    }
    filled += n;
    if (filled + kCopyPiece > copy_buffer.size() || n == 0) {
      final_buf.sputn(copy_buffer.data(), static_cast<std::streamsize>(filled));
      filled = 0;
    }
  } while (n != 0);
}

// Everything a run owns, in order of creation, so that members are destroyed
// in reverse: stream, solution, compressing buffer, decompressing reader,
// output file, input reader. The compressed stream is thereby finished before
// its file is closed, on success and when an exception leaves the run alike.
struct Run {
  std::unique_ptr<Reader> input;
  std::optional<std::filebuf> out_file;
  std::optional<zstd::Reader> decompressor;
  std::unique_ptr<std::streambuf> compressor;
  std::unique_ptr<Solution> solution;
  std::optional<std::ostream> stream;
};

int convert(int argc, char** argv) {
  if (argc < 3) {
    usage();
    return 1;
  }
  const fs::path in_path(argv[1]);
  const fs::path out_path(argv[2]);
  fs::path in_compression = in_path.extension();
  fs::path out_format = out_path.extension();
  fs::path out_base = fs::path(out_path).replace_extension();
  fs::path out_compression;

  if (in_compression != ".zst" && in_compression != ".gz") in_compression.clear();
  if (out_format == ".zst" || out_format == ".gz") {
    // Only one compression suffix is peeled: x.json.zst.gz is ".zst" text.
    out_compression = out_format;
    out_format = out_base.extension();
    out_base.replace_extension();
  }
  if (!in_compression.empty() && in_compression != ".zst") {
    error_line("Compression type '" + quoted(in_compression) + "' not supported for input");
    return 2;
  }
  if (!out_compression.empty() && out_compression != ".zst" && out_compression != ".gz") {
    error_line("Compression type '" + quoted(out_compression) + "' not supported for output");
    return 2;
  }

  Run run;
  // The input is opened before the output is created, so a missing input
  // leaves no output file behind.
  if (in_path == "-.b" || in_path == "-.b.gz" || in_path == "-.b.zst") {
    std::setvbuf(stdin, input_buffer, _IOFBF, kInputBuffer);  // no line-end translation here
    run.input = std::make_unique<FDescReader>(stdin);
  } else {
    std::FILE* file = std::fopen(in_path.c_str(), "rb");
    if (file == nullptr) throw IOError{};
    std::setvbuf(file, input_buffer, _IOFBF, kInputBuffer);
    run.input = std::make_unique<FileReader>(file);
  }

  std::streambuf* sink;
  if (out_base == "-") {
    sink = std::cout.rdbuf();
  } else {
    // Whether the open worked is deliberately not tested: a closed file
    // buffer loses every write and the run still succeeds.
    run.out_file.emplace();
    run.out_file->open(out_path, std::ios::out | std::ios::binary | std::ios::trunc);
    sink = &*run.out_file;
  }

  // Never true: no extension equals "b" without its dot. A ".b.zst" to
  // ".b.zst" run therefore decompresses and compresses again, as it always has.
  if (out_format == "b" && in_compression == out_compression) {
    copy_bytes(*run.input, *sink);
    return 0;
  }

  Reader* source = run.input.get();
  if (in_compression == ".zst") source = &run.decompressor.emplace(run.input.get());

  std::streambuf* final_buf = sink;
  if (out_compression == ".zst") {
    run.compressor = std::make_unique<zstd::outstreambuf>(sink, 3);
    final_buf = run.compressor.get();
  } else if (out_compression == ".gz") {
    run.compressor = std::make_unique<gzip::streambuf>(sink, 3);
    final_buf = run.compressor.get();
  } else if (!out_compression.empty()) {
    error_line("Compression type '" + quoted(out_compression) + "' not supported");
    return 4;
  }

  if (out_format == ".b") {
    copy_bytes(*source, *final_buf);
    return 0;
  }

  run.solution = read_solution(*source);
  std::ostream& out = run.stream.emplace(final_buf);
  if (out_format == ".json" || out_format == ".jtask") {
    write_json(out, *run.solution);  // ".jtask" is the same document
  } else if (out_format == ".task") {
    write_task(out, *run.solution);
  } else if (out_format == ".txt") {
    write_text_report(out, *run.solution);
  } else {
    error_line("ERROR: Unknown output format '" + quoted(out_format) + "'");
    return 7;
  }
  return 0;
}

// The process ends by SIGABRT after the handler's line, without the C++
// runtime's own text. Standard output is not an owned object, so what was
// written to it is flushed here.
[[noreturn]] void abort_quietly() {
  std::cout.flush();
  std::fflush(stdout);
  std::abort();
}

}  // namespace

int run(int argc, char** argv) {
  std::set_terminate(abort_quietly);
  try {
    return convert(argc, argv);
  } catch (const FormatError&) {
    // The constructor has already printed the full description; the object
    // holds no location, so this handler adds nothing and only ends the run.
    throw;
  } catch (const IncompatibleFileError& e) {
    error_line(std::string(e.file) + ":" + std::to_string(e.line) + ":IncompatibleFileError");
    throw;
  } catch (const InconsistentSolution& e) {
    error_line("InconsistentSolution: " + e.message);
    throw;
  } catch (...) {
    error_line("?:?: Unknown error");
    throw;
  }
}

}  // namespace strix
