// Byte sources: the pull interface the solution reader takes its bytes from,
// and its file, standard-input, memory and Zstandard implementations.
#pragma once

#include <cstddef>     // std::size_t
#include <cstdint>     // std::uint64_t
#include <cstdio>      // std::FILE
#include <filesystem>  // std::filesystem::path
#include <memory>      // std::unique_ptr

namespace strix {

// Pull interface over a byte source: an implementer gives read(), and may
// give remaining_bound().
class Reader {
 public:
  // Stores up to n bytes at dst; fewer than n only at the end of the data.
  virtual std::uint64_t read(void* dst, std::uint64_t n) = 0;
  // At most how many more bytes read() can deliver, or kUnknownRemaining.
  // Only a sizing hint: nothing relies on the data being there.
  static constexpr std::uint64_t kUnknownRemaining = ~std::uint64_t{0};
  virtual std::uint64_t remaining_bound() { return kUnknownRemaining; }
  virtual ~Reader() = default;
};

// Reads an already open C stream (standard input); never closes it.
class FDescReader : public Reader {
 public:
  explicit FDescReader(std::FILE* file) : file_(file) {}
  std::uint64_t read(void* dst, std::uint64_t n) override;
  // Known for a regular file (also one given as standard input).
  std::uint64_t remaining_bound() override;

  FDescReader(const FDescReader&) = delete;
  FDescReader& operator=(const FDescReader&) = delete;

 protected:
  std::FILE* file_;
};

// Reads a file it owns and closes.
class FileReader : public FDescReader {
 public:
  explicit FileReader(std::FILE* file) : FDescReader(file) {}
  // Opens `path` for reading through a large buffer of its own; throws
  // IOError naming the path when it cannot be opened or is a folder.
  explicit FileReader(const std::filesystem::path& path);
  ~FileReader() override;

 private:
  char* buffer_ = nullptr;
};

// Reads bytes in memory that the caller keeps alive.
class MemoryReader : public Reader {
 public:
  MemoryReader(const void* data, std::size_t size)
      : data_(static_cast<const unsigned char*>(data)), size_(size) {}
  std::uint64_t read(void* dst, std::uint64_t n) override;
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
