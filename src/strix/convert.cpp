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

#include <fmt/format.h>  // fmt::format_error

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
    // The command reads a folder as an empty file, as it always has.
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
  if (n.in_compression == ".gz") {
    return {2, UnsupportedInput(quoted(n.in_compression)).what()};
  }

  close();
  owned_ = std::make_unique<Owned>();
  Owned& o = *owned_;
  // The input is opened before the output is created, so a missing input
  // leaves no output file behind.
  o.input = open_input(n.in_path, options_.unchecked_files);
  refuse_same_file(o.input, n);

  std::streambuf* sink;
  if (n.out_base == "-") {
    sink = std::cout.rdbuf();
  } else {
    // Unchecked (the command), an output that cannot be created is a closed
    // file buffer: it loses every write, and the conversion still succeeds.
    OutputWatch* const watch = options_.watch;
    if (watch) watch->opening();
    try {
      sink = &o.out_file.emplace(n.out_path, !options_.unchecked_files);
    } catch (...) {
      if (watch) watch->opened(false);
      throw;
    }
    if (watch) watch->opened(o.out_file->is_open());
  }

  // Never true: no extension equals "b" without its dot. A ".b.zst" to
  // ".b.zst" conversion therefore decompresses and compresses again, as it
  // always has.
  if (n.out_format == "b" && n.in_compression == n.out_compression) {
    copy_bytes(*o.input.reader, *sink, n.in_path);
    return {};
  }

  Reader* source = o.input.reader.get();
  if (n.in_compression == ".zst") source = &o.decompressor.emplace(source);

  // Formatting and compression share the threads. A compressed output gets
  // at least one worker, so a Zstandard frame is the same bytes on any
  // machine.
  const Compression compression = n.out_compression == ".zst"  ? Compression::zstd
                                  : n.out_compression == ".gz" ? Compression::gzip
                                                               : Compression::none;
  const ThreadShare share =
      share_threads(options_.threads == 0 ? machine_threads() : options_.threads, compression);
  const unsigned format_threads = std::max(share.format, 1u);
  // The output's compression is ".zst", ".gz" or none: the names give no other.
  std::streambuf* final_buf = sink;
  if (n.out_compression == ".zst") {
    final_buf = &o.zstd_out.emplace(sink, 3, share.compress);
  } else if (n.out_compression == ".gz") {
    // The command's gzip output drops the byte at every 65536-byte boundary
    // of the text: readers of these files expect it.
    final_buf = &o.gzip_out.emplace(sink, 3, share.compress, gzip::Overflow::drop);
  }

  if (n.out_format == ".b") {
    copy_bytes(*source, *final_buf, n.in_path);
    return {};
  }

  try {
    o.solution = read_solution(*source);
  } catch (Error& e) {
    e.set_path(n.in_path.string());
    throw;
  }
  std::ostream& out = o.stream.emplace(final_buf);
  if (n.out_format == ".json" || n.out_format == ".jtask") {
    write_json(out, *o.solution, format_threads);  // ".jtask" is the same document
  } else if (n.out_format == ".task") {
    write_task(out, *o.solution);
  } else if (n.out_format == ".txt") {
    try {
      write_text_report(out, *o.solution, format_threads);
    } catch (const fmt::format_error& e) {
      // A solution with bar variables ends its report this way (writers.h).
      throw Error(std::string("the text report cannot be written (") + e.what() + ")");
    }
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
