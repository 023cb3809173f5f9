#include "strix/convert.h"

#include <sys/stat.h>  // stat, fstat
#include <unistd.h>    // STDIN_FILENO

#include <algorithm>   // std::max
#include <cerrno>      // errno, EISDIR, EIO
#include <filesystem>  // std::filesystem::path
#include <fstream>     // std::filebuf
#include <iostream>    // std::cout
#include <memory>      // std::unique_ptr
#include <optional>    // std::optional
#include <ostream>     // std::ostream
#include <sstream>     // std::ostringstream
#include <utility>     // std::pair
#include <vector>      // copy buffer

#include "strix/compress.h"
#include "strix/errors.h"
#include "strix/limits.h"
#include "strix/solution.h"
#include "strix/streams.h"
#include "strix/threads.h"
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

// The input's reader, and the device and inode of the file it reads where
// it reads one.
struct Input {
  std::unique_ptr<Reader> reader;
  std::optional<std::pair<dev_t, ino_t>> file;
};

Input open_input(const fs::path& in_path, bool unchecked_files) {
  Input input;
  struct stat st;
  if (in_path == "-.b" || in_path == "-.b.zst") {
    input.reader = std::make_unique<FDescReader>(STDIN_FILENO);
    if (fstat(STDIN_FILENO, &st) == 0) input.file.emplace(st.st_dev, st.st_ino);
    return input;
  }
  try {
    input.reader = std::make_unique<FileReader>(in_path);
  } catch (const IOError& e) {
    // Unchecked (the command), a folder reads as an empty file.
    if (!unchecked_files || e.code != EISDIR) throw;
    input.reader = std::make_unique<MemoryReader>(nullptr, 0);
    return input;
  }
  if (stat(in_path.c_str(), &st) == 0) input.file.emplace(st.st_dev, st.st_ino);
  return input;
}

// Refuses an output that names the input file, under any of its names,
// before the output is created: truncating it would lose the input.
void refuse_same_file(const Input& input, const Names& n) {
  struct stat st;
  if (!input.file || n.out_base == "-" || stat(n.out_path.c_str(), &st) != 0) return;
  if (*input.file == std::pair(st.st_dev, st.st_ino)) {
    throw SameFileError(n.in_path.string(), n.out_path.string());
  }
}

// The output file. Checked, a file that cannot be created or written throws
// IOError with the system's reason. Unchecked, as the command has it, it
// takes every byte and loses those that cannot be written.
class OutputFile : public std::filebuf {
 public:
  OutputFile(const fs::path& path, bool checked) : path_(path), checked_(checked) {
    if (open(path, std::ios::out | std::ios::binary | std::ios::trunc) == nullptr) {
      failed("cannot create");
    }
  }
  // Flushes and closes the file.
  void finish() {
    if (is_open() && close() == nullptr) failed("cannot write");
  }

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    const std::streamsize put = std::filebuf::xsputn(s, n);
    if (put < n) failed("cannot write");
    return put;
  }
  int_type overflow(int_type c) override {
    const int_type result = std::filebuf::overflow(c);
    if (traits_type::eq_int_type(result, traits_type::eof()) &&
        !traits_type::eq_int_type(c, traits_type::eof())) {
      failed("cannot write");
    }
    return result;
  }

 private:
  void failed(std::string_view action) const {
    if (checked_) throw IOError(errno != 0 ? errno : EIO, path_.string(), action);
  }

  fs::path path_;
  bool checked_;
};

// Copies the source to the final buffer in fixed pieces; the bytes are never
// parsed, so any input at all is copied. The result of each bulk put is
// not looked at: a compressing buffer and a checked file throw, an
// unchecked file loses what it cannot take.
void copy_bytes(Reader& source, std::streambuf& final_buf, const fs::path& in_path) {
  std::vector<char> copy_buffer(kCopyBlock);
  std::size_t filled = 0;
  std::uint64_t n;
  do {
    try {
      n = source.read(copy_buffer.data() + filled, kCopyPiece);
    } catch (Error& e) {
      // Pieces read before a decompression error belong in the output, as
      // if each had been handed on as soon as it was read.
      e.set_path(in_path.string());
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

// The compression the output's last suffix asks for; the names give no other.
Compression output_compression(const Names& n) {
  if (n.out_compression == ".zst") return Compression::zstd;
  if (n.out_compression == ".gz") return Compression::gzip;
  return Compression::none;
}

// The whole solution, all input consumed and checked before any output is
// formatted. Its failures name the input file.
std::unique_ptr<Solution> read_input(Reader& source, const fs::path& in_path) {
  try {
    return read_solution(source);
  } catch (Error& e) {
    e.set_path(in_path.string());
    throw;
  }
}

// Runs the one writer the output form asks for; an unknown form is the
// command's status 7.
Outcome write_form(std::ostream& out, const Solution& solution, const fs::path& format,
                   unsigned threads) {
  if (format == ".json" || format == ".jtask") {
    write_json(out, solution, threads);  // ".jtask" is the same document
  } else if (format == ".task") {
    write_task(out, solution);
  } else if (format == ".txt") {
    write_text_report(out, solution, threads);
  } else {
    return {7, "ERROR: Unknown output format '" + quoted(format) + "'"};
  }
  return {};
}

// Both compressed forms are written at this level.
constexpr int kCompressionLevel = 3;

}  // namespace

// Everything a running conversion owns, in order of creation, so that the
// members are destroyed in reverse: stream, solution, compressing buffer,
// decompressing reader, output file, input. The compressed stream is thereby
// finished before its file is closed.
struct Conversion::Owned {
  Input input;
  std::optional<OutputFile> out_file;
  std::optional<zstd::Reader> decompressor;
  std::optional<zstd::outstreambuf> zstd_out;
  std::optional<gzip::streambuf> gzip_out;
  std::unique_ptr<Solution> solution;
  std::optional<std::ostream> stream;

  // Standard output's buffer, or the output file, created. Unchecked (the
  // command), an output that cannot be created is a closed file buffer: it
  // loses every write, and the conversion still succeeds. The watch, if any, hears of the file's
  // opening on either side of it.
  std::streambuf* create_output(const Names& n, bool checked, OutputWatch* watch) {
    if (n.out_base == "-") return std::cout.rdbuf();
    if (watch) watch->opening();
    try {
      out_file.emplace(n.out_path, checked);
    } catch (...) {
      if (watch) watch->opened(false);
      throw;
    }
    if (watch) watch->opened(out_file->is_open());
    return &*out_file;
  }
  // The input's bytes as the solution file has them.
  Reader* decompress(const Names& n) {
    if (n.in_compression != ".zst") return input.reader.get();
    return &decompressor.emplace(input.reader.get());
  }
  // The buffer the output form is written to: the sink itself, or a
  // compressing buffer over it run by `workers` threads.
  std::streambuf* compress(std::streambuf* sink, Compression compression, unsigned workers) {
    switch (compression) {
      case Compression::zstd:
        return &zstd_out.emplace(sink, kCompressionLevel, workers);
      case Compression::gzip:
        // The command's gzip output drops the byte at every 65536-byte
        // boundary of the text: readers of these files expect it.
        return &gzip_out.emplace(sink, kCompressionLevel, workers, gzip::Overflow::drop);
      case Compression::none:
        break;
    }
    return sink;
  }
};

Conversion::Conversion(std::string_view in_name, std::string_view out_name, ConvertOptions options)
    : in_name_(in_name), out_name_(out_name), options_(options) {}

Conversion::~Conversion() {
  try {
    close();
  } catch (...) {
    // The output's target is broken; what could be written is written.
  }
}

Outcome Conversion::run() {
  const Names n = parse_names(in_name_, out_name_);
  if (n.in_compression == ".gz") return {2, UnsupportedInput(quoted(n.in_compression)).what()};

  close();
  owned_ = std::make_unique<Owned>();
  Owned& o = *owned_;
  // The input is opened before the output is created, so a missing input
  // leaves no output file behind.
  o.input = open_input(n.in_path, options_.unchecked_files);
  refuse_same_file(o.input, n);
  std::streambuf* sink = o.create_output(n, !options_.unchecked_files, options_.watch);

  // ".b.zst" to ".b.zst" too is decompressed and then compressed again.
  Reader* source = o.decompress(n);
  // Formatting and compression share the threads. A compressed output gets
  // at least one worker, so a Zstandard frame is the same bytes on any
  // machine.
  const Compression compression = output_compression(n);
  const ThreadShare share = share_threads(thread_budget(options_.threads), compression);
  std::streambuf* final_buf = o.compress(sink, compression, share.compress);

  if (n.out_format == ".b") {
    copy_bytes(*source, *final_buf, n.in_path);
    return {};
  }
  o.solution = read_input(*source, n.in_path);
  return write_form(o.stream.emplace(final_buf), *o.solution, n.out_format,
                    std::max(share.format, 1u));
}

void Conversion::close() {
  if (!owned_) return;
  const std::unique_ptr<Owned> o = std::move(owned_);
  o->stream.reset();
  o->solution.reset();
  // Finishing the compressed stream can fail, and closing a checked file;
  // the file and the input are closed whether they do or not.
  if (o->zstd_out) o->zstd_out->close();
  if (o->gzip_out) o->gzip_out->close();
  if (o->out_file) o->out_file->finish();
}

Outcome convert(std::string_view in_name, std::string_view out_name, ConvertOptions options) {
  Conversion conversion(in_name, out_name, options);
  Outcome outcome = conversion.run();
  conversion.close();
  return outcome;
}

}  // namespace strix
