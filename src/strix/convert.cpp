#include "strix/convert.h"

#include <cstdio>      // std::setvbuf, stdin
#include <filesystem>  // std::filesystem::path
#include <fstream>     // std::filebuf
#include <iostream>    // std::cout
#include <memory>      // std::unique_ptr
#include <mutex>       // std::once_flag
#include <optional>    // std::optional
#include <ostream>     // std::ostream
#include <sstream>     // std::ostringstream
#include <vector>      // copy buffer

#include "strix/compress.h"
#include "strix/errors.h"
#include "strix/limits.h"
#include "strix/solution.h"
#include "strix/streams.h"
#include "strix/writers.h"

namespace strix {
namespace {

namespace fs = std::filesystem;

// What the two names ask for. Suffixes follow the path rules: the last "."
// of the last component, not a leading one; comparisons are case-sensitive.
struct Names {
  fs::path in_path;
  fs::path out_path;
  fs::path in_compression;   // ".zst", ".gz" or empty
  fs::path out_compression;  // ".zst", ".gz" or empty
  fs::path out_format;       // ".json", ".task", ... or anything else
  fs::path out_base;         // "-" for standard output
};

Names parse_names(std::string_view in_name, std::string_view out_name) {
  Names n{fs::path(in_name), fs::path(out_name), {}, {}, {}, {}};
  n.in_compression = n.in_path.extension();
  n.out_format = n.out_path.extension();
  n.out_base = fs::path(n.out_path).replace_extension();
  if (n.in_compression != ".zst" && n.in_compression != ".gz") n.in_compression.clear();
  if (n.out_format == ".zst" || n.out_format == ".gz") {
    // Only one compression suffix is peeled: x.json.zst.gz is ".zst" text.
    n.out_compression = n.out_format;
    n.out_format = n.out_base.extension();
    n.out_base.replace_extension();
  }
  return n;
}

// A path as the standard path stream insertion writes it: double quotes
// around, quotes and backslashes inside escaped.
std::string quoted(const fs::path& p) {
  std::ostringstream os;
  os << p;
  return os.str();
}

std::string refused_input(const Names& n) {
  return "Compression type '" + quoted(n.in_compression) + "' not supported for input";
}

// The input: a reader of standard input or of a named file.
struct Input {
  std::unique_ptr<Reader> reader;
};

Input open_input(const fs::path& in_path) {
  Input input;
  if (in_path == "-.b" || in_path == "-.b.gz" || in_path == "-.b.zst") {
    // Standard input gets a buffer of its own once, before it is first read;
    // no line ends are translated on this platform.
    static char stdin_buffer[kInputBuffer];
    static std::once_flag buffered;
    std::call_once(buffered, [] { std::setvbuf(stdin, stdin_buffer, _IOFBF, kInputBuffer); });
    input.reader = std::make_unique<FDescReader>(stdin);
    return input;
  }
  input.reader = std::make_unique<FileReader>(in_path);
  return input;
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

}  // namespace

// Everything a running conversion owns, in order of creation, so that the
// members are destroyed in reverse: stream, solution, compressing buffer,
// decompressing reader, output file, input. The compressed stream is thereby
// finished before its file is closed.
struct Conversion::Owned {
  Input input;
  std::optional<std::filebuf> out_file;
  std::optional<zstd::Reader> decompressor;
  std::optional<zstd::outstreambuf> zstd_out;
  std::optional<gzip::streambuf> gzip_out;
  std::unique_ptr<Solution> solution;
  std::optional<std::ostream> stream;
};

Conversion::Conversion(std::string_view in_name, std::string_view out_name)
    : in_name_(in_name), out_name_(out_name) {}

Conversion::~Conversion() {
  try {
    close();
  } catch (...) {
    // The output's target is broken; what could be written is written.
  }
}

Outcome Conversion::run() {
  const Names n = parse_names(in_name_, out_name_);
  if (!n.in_compression.empty() && n.in_compression != ".zst") return {2, refused_input(n)};
  if (!n.out_compression.empty() && n.out_compression != ".zst" && n.out_compression != ".gz") {
    return {2, "Compression type '" + quoted(n.out_compression) + "' not supported for output"};
  }

  close();
  owned_ = std::make_unique<Owned>();
  Owned& o = *owned_;
  // The input is opened before the output is created, so a missing input
  // leaves no output file behind.
  o.input = open_input(n.in_path);

  std::streambuf* sink;
  if (n.out_base == "-") {
    sink = std::cout.rdbuf();
  } else {
    // Whether the open worked is deliberately not tested: a closed file
    // buffer loses every write and the conversion still succeeds.
    o.out_file.emplace();
    o.out_file->open(n.out_path, std::ios::out | std::ios::binary | std::ios::trunc);
    sink = &*o.out_file;
  }

  // Never true: no extension equals "b" without its dot. A ".b.zst" to
  // ".b.zst" conversion therefore decompresses and compresses again, as it
  // always has.
  if (n.out_format == "b" && n.in_compression == n.out_compression) {
    copy_bytes(*o.input.reader, *sink);
    return {};
  }

  Reader* source = o.input.reader.get();
  if (n.in_compression == ".zst") source = &o.decompressor.emplace(source);

  std::streambuf* final_buf = sink;
  if (n.out_compression == ".zst") {
    final_buf = &o.zstd_out.emplace(sink, 3);
  } else if (n.out_compression == ".gz") {
    final_buf = &o.gzip_out.emplace(sink, 3);
  } else if (!n.out_compression.empty()) {
    return {4, "Compression type '" + quoted(n.out_compression) + "' not supported"};
  }

  if (n.out_format == ".b") {
    copy_bytes(*source, *final_buf);
    return {};
  }

  o.solution = read_solution(*source);
  std::ostream& out = o.stream.emplace(final_buf);
  if (n.out_format == ".json" || n.out_format == ".jtask") {
    write_json(out, *o.solution);  // ".jtask" is the same document
  } else if (n.out_format == ".task") {
    write_task(out, *o.solution);
  } else if (n.out_format == ".txt") {
    write_text_report(out, *o.solution);
  } else {
    return {7, "ERROR: Unknown output format '" + quoted(n.out_format) + "'"};
  }
  return {};
}

void Conversion::close() {
  if (!owned_) return;
  const std::unique_ptr<Owned> o = std::move(owned_);
  o->stream.reset();
  o->solution.reset();
  // Only finishing the compressed stream can fail; the file and the input
  // are closed whether it does or not.
  if (o->zstd_out) o->zstd_out->close();
  if (o->gzip_out) o->gzip_out->close();
}

Outcome convert(std::string_view in_name, std::string_view out_name) {
  Conversion conversion(in_name, out_name);
  Outcome outcome = conversion.run();
  conversion.close();
  return outcome;
}

}  // namespace strix
