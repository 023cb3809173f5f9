// Byte sources: the pull interface the solution reader takes its bytes from,
// and its file, standard-input, memory and Zstandard implementations.
#pragma once

#include <cstddef>     // std::size_t
#include <cstdint>     // std::uint64_t
#include <filesystem>  // std::filesystem::path
#include <memory>      // std::unique_ptr
#include <optional>    // std::optional

namespace strix {

// Pull interface over a byte source: an implementer gives read(), and may
// give skip() and remaining_bound().
class Reader {
 public:
  // Stores up to n bytes at dst; fewer than n only at the end of the data.
  virtual std::uint64_t read(void* dst, std::uint64_t n) = 0;
  // Passes over up to n bytes and says how many there were: fewer than n
  // only at the end of the data, exactly as read() would have delivered.
  // By default the bytes are read and dropped through a small buffer; a
  // source that can seek overrides it.
  virtual std::uint64_t skip(std::uint64_t n);
  // At most how many more bytes read() can deliver, or kUnknownRemaining.
  // Only a sizing hint: nothing relies on the data being there.
  static constexpr std::uint64_t kUnknownRemaining = ~std::uint64_t{0};
  virtual std::uint64_t remaining_bound() { return kUnknownRemaining; }
  virtual ~Reader() = default;
};

// Reads a file descriptor it does not own (standard input), through a
// buffer of its own. A regular file skips by seeking.
class FDescReader : public Reader {
 public:
  explicit FDescReader(int fd);
  ~FDescReader() override;
  std::uint64_t read(void* dst, std::uint64_t n) override;
  std::uint64_t skip(std::uint64_t n) override;
  // Known for a regular file (also one given as standard input).
  std::uint64_t remaining_bound() override;

  FDescReader(const FDescReader&) = delete;
  FDescReader& operator=(const FDescReader&) = delete;

 protected:
  int fd_;

 private:
  bool refill();
  std::uint64_t file_size();  // of a regular file; kUnknownRemaining otherwise

  char* buffer_;
  std::uint64_t begin_ = 0;  // buffer_[begin_, end_) is read and not handed out
  std::uint64_t end_ = 0;
  std::uint64_t fill_;                 // the next refill asks for this much (grows after a seek)
  std::optional<std::uint64_t> size_;  // once asked for
};

// Reads a file it opens, owns and closes.
class FileReader : public FDescReader {
 public:
  // Throws IOError naming the path when it cannot be opened or is a folder.
  explicit FileReader(const std::filesystem::path& path);
  ~FileReader() override;
};

// Reads bytes in memory that the caller keeps alive.
class MemoryReader : public Reader {
 public:
  MemoryReader(const void* data, std::size_t size)
      : data_(static_cast<const unsigned char*>(data)), size_(size) {}
  std::uint64_t read(void* dst, std::uint64_t n) override;
  std::uint64_t skip(std::uint64_t n) override;
  std::uint64_t remaining_bound() override { return size_ - pos_; }

 private:
  const unsigned char* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

namespace zstd {

// Decompresses Zstandard frames from an inner reader (not owned) on the fly.
class Reader : public strix::Reader {
 public:
  explicit Reader(strix::Reader* inner);
  ~Reader() override;
  std::uint64_t read(void* dst, std::uint64_t n) override;
  // Decodes and drops, in the decoder's own buffer.
  std::uint64_t skip(std::uint64_t n) override;

  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

 private:
  struct Decoder;
  void refill();

  std::unique_ptr<Decoder> decoder_;
  std::uint64_t read_pos_ = 0;  // bytes of the decoded block handed out
  bool more_ = true;            // the decoder may still yield output
  bool input_open_ = true;      // the inner reader has not reported its end
  strix::Reader* inner_;
};

}  // namespace zstd
}  // namespace strix
