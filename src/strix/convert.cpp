#include "strix/convert.h"

#include <algorithm>   // std::max, std::min
#include <cerrno>      // errno, EISDIR, EIO
#include <cstring>     // std::memcpy
#include <filesystem>  // std::filesystem::path
#include <iostream>    // std::cout
#include <memory>      // std::unique_ptr
#include <optional>    // std::optional
#include <ostream>     // std::ostream
#include <streambuf>   // std::streambuf
#include <utility>     // std::exchange
#include <vector>      // copy buffer

#include "strix/compress.h"
#include "strix/errors.h"
#include "strix/limits.h"
#include "strix/names.h"
#include "strix/platform/files.h"
#include "strix/platform/outputs.h"
#include "strix/share.h"
#include "strix/solution.h"
#include "strix/streams.h"
#include "strix/watch.h"
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

Names parse_names(const fs::path& in_name, const fs::path& out_name) {
  Names names{in_name, out_name, {}, {}, {}, {}};
  names.in_compression = names.in_path.extension();
  names.out_format = names.out_path.extension();
  names.out_base = fs::path(names.out_path).replace_extension();
  if (names.in_compression != ".zst" && names.in_compression != ".gz") names.in_compression.clear();
  if (names.out_format == ".zst" || names.out_format == ".gz") {
    // Only one compression suffix is peeled: x.json.zst.gz is ".zst" text.
    names.out_compression = names.out_format;
    names.out_format = names.out_base.extension();
    names.out_base.replace_extension();
  }
  return names;
}

// The input's reader, and which file it reads where it reads one.
struct Input {
  std::unique_ptr<Reader> reader;
  std::optional<platform::FileIdentity> file;
};

Input open_input(const fs::path& in_path, bool unchecked_files) {
  Input input;
  if (names_standard_input(in_path)) {
    const int fd = platform::binary_standard_input();
    input.reader = std::make_unique<FDescReader>(fd);
    input.file = platform::identity_of(fd);
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
  input.file = platform::identity_of(in_path);
  return input;
}

// Refuses an output that names the input file, under any of its names,
// before the output is created: truncating it would lose the input.
void refuse_same_file(const Input& input, const Names& names) {
  if (!input.file || names.out_base == "-") return;
  if (platform::identity_of(names.out_path) == input.file) {
    throw SameFileError(path_text(names.in_path), path_text(names.out_path));
  }
}

// The output file. Checked, a file that cannot be created or written throws
// IOError with the system's reason. Unchecked, as the command has it, it
// takes every byte and loses those that cannot be written, as a closed file
// buffer does: puts then report nothing taken.
class OutputFile : public std::streambuf {
 public:
  OutputFile(const fs::path& path, bool checked)
      : path_(path), checked_(checked), fd_(platform::create_for_writing(path)) {
    if (fd_ < 0) failed("cannot create");
    if (fd_ >= 0) buffer_.resize(kOutputFileBuffer);
    setp(buffer_.data(), buffer_.data() + buffer_.size());
  }
  // What an earlier failure left gathered is still written.
  ~OutputFile() override {
    if (fd_ >= 0) drain(), platform::close_file(fd_);
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool is_open() const { return fd_ >= 0; }
  // Writes what is gathered and closes the file.
  void finish() {
    if (fd_ < 0) return;
    const bool written = drain();
    platform::close_file(std::exchange(fd_, -1));
    if (!written) failed("cannot write");
  }

 protected:
  std::streamsize xsputn(const char* s, std::streamsize n) override {
    if (fd_ < 0) return 0;
    const auto size = static_cast<std::size_t>(n);
    if (size < kOutputFileDirect && size <= static_cast<std::size_t>(epptr() - pptr())) {
      std::memcpy(pptr(), s, size);
      pbump(static_cast<int>(size));
      return n;
    }
    // Other pieces go to the file from where they lie.
    if (drain() && platform::write_fully(fd_, s, size)) return n;
    failed("cannot write");
    return 0;
  }
  int_type overflow(int_type c) override {
    if (fd_ < 0 || !drain()) {
      if (fd_ >= 0) failed("cannot write");
      return traits_type::eof();
    }
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    *pptr() = traits_type::to_char_type(c);
    pbump(1);
    return c;
  }
  int sync() override { return fd_ >= 0 && drain() ? 0 : -1; }

 private:
  // Hands the gathered bytes to the file; false when it takes them not all.
  bool drain() {
    const auto size = static_cast<std::size_t>(pptr() - pbase());
    setp(buffer_.data(), buffer_.data() + buffer_.size());
    return size == 0 || platform::write_fully(fd_, buffer_.data(), size);
  }
  void failed(std::string_view action) const {
    if (checked_) throw IOError(errno != 0 ? errno : EIO, path_text(path_), action);
  }

  fs::path path_;
  bool checked_;
  int fd_;
  std::vector<char> buffer_;
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
      e.set_path(path_text(in_path));
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
Compression output_compression(const Names& names) {
  if (names.out_compression == ".zst") return Compression::zstd;
  if (names.out_compression == ".gz") return Compression::gzip;
  return Compression::none;
}

// The whole solution, all input consumed and checked before any output is
// formatted. Its failures name the input file.
std::unique_ptr<Solution> read_input(Reader& source, const fs::path& in_path) {
  try {
    return read_solution(source);
  } catch (Error& e) {
    e.set_path(path_text(in_path));
    throw;
  }
}

// Runs the one writer the output form asks for; an unknown form is the
// command's status 7.
Outcome write_form(std::ostream& out, const Solution& solution, const fs::path& format,
                   Pool& pool) {
  if (format == ".json" || format == ".jtask") {
    write_json(out, solution, pool);  // ".jtask" is the same document
  } else if (format == ".task") {
    write_task(out, solution);
  } else if (format == ".txt") {
    write_text_report(out, solution, pool);
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
struct Conversion::Resources {
  explicit Resources(unsigned threads) : pool(threads) {}

  Pool pool;  // first: it outlives the compressing buffers and writers that use it
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
  std::streambuf* create_output(const Names& names, bool checked, OutputWatch* watch) {
    if (names.out_base == "-") {
      platform::binary_standard_output();
      return std::cout.rdbuf();
    }
    if (watch) watch->opening();
    try {
      out_file.emplace(names.out_path, checked);
    } catch (...) {
      if (watch) watch->opened(false);
      throw;
    }
    if (watch) watch->opened(out_file->is_open());
    return &*out_file;
  }
  // The input's bytes as the solution file has them.
  Reader* decompress(const Names& names) {
    if (!is_zstd_input(names.in_path)) return input.reader.get();
    return &decompressor.emplace(input.reader.get());
  }
  // The buffer the output form is written to: the sink itself, or a
  // compressing buffer over it (share.h: how it shares the threads).
  std::streambuf* compress(std::streambuf* sink, Compression compression) {
    switch (compression) {
      case Compression::zstd:
        return &zstd_out.emplace(sink, kCompressionLevel, zstd_workers(pool.threads()));
      case Compression::gzip:
        // The command's gzip output drops the byte at every 65536-byte
        // boundary of the text: readers of these files expect it.
        return &gzip_out.emplace(sink, kCompressionLevel, pool, gzip::Overflow::drop);
      case Compression::none:
        break;
    }
    return sink;
  }
};

Conversion::Conversion(std::filesystem::path in_name, std::filesystem::path out_name,
                       ConvertOptions options)
    : in_name_(in_name), out_name_(out_name), options_(options) {}

Conversion::~Conversion() {
  try {
    close();
  } catch (...) {
    // The output's target is broken; what could be written is written.
  }
}

Outcome Conversion::run() {
  const Names names = parse_names(in_name_, out_name_);
  if (is_gzip_input(names.in_path))
    return {2, UnsupportedInput(quoted(names.in_compression)).what()};

  close();
  held_ = std::make_unique<Resources>(options_.threads);
  Resources& held = *held_;
  // The input is opened before the output is created, so a missing input
  // leaves no output file behind.
  held.input = open_input(names.in_path, options_.unchecked_files);
  refuse_same_file(held.input, names);
  std::streambuf* sink = held.create_output(names, !options_.unchecked_files, watch_);

  // ".b.zst" to ".b.zst" too is decompressed and then compressed again.
  Reader* source = held.decompress(names);
  std::streambuf* final_buf = held.compress(sink, output_compression(names));

  if (names.out_format == ".b") {
    copy_bytes(*source, *final_buf, names.in_path);
    return {};
  }
  held.solution = read_input(*source, names.in_path);
  return write_form(held.stream.emplace(final_buf), *held.solution, names.out_format, held.pool);
}

void Conversion::close() {
  if (!held_) return;
  const std::unique_ptr<Resources> held = std::move(held_);
  held->stream.reset();
  held->solution.reset();
  // Finishing the compressed stream can fail, and closing a checked file;
  // the file and the input are closed whether they do or not.
  if (held->zstd_out) held->zstd_out->close();
  if (held->gzip_out) held->gzip_out->close();
  if (held->out_file) held->out_file->finish();
}

Outcome convert(const std::filesystem::path& in_name, const std::filesystem::path& out_name,
                ConvertOptions options) {
  Conversion conversion(in_name, out_name, options);
  Outcome outcome = conversion.run();
  conversion.close();
  return outcome;
}

}  // namespace strix
