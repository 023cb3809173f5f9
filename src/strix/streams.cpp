#include "strix/streams.h"

#include <algorithm>  // std::min
#include <cstring>    // std::memcpy
#include <new>        // std::bad_alloc, std::align_val_t
#include <string>     // the decoder's error text
#include <vector>     // the decoder's buffers

#include <zstd.h>  // ZSTD_decompressStream

#include "strix/errors.h"
#include "strix/limits.h"
#include "strix/platform/files.h"

namespace strix {

// ---------------------------------------------------------------- readers

std::uint64_t Reader::skip(std::uint64_t n) {
  char scratch[kSkipScratch];
  std::uint64_t count = 0;
  while (count < n) {
    const std::uint64_t want = std::min<std::uint64_t>(n - count, sizeof scratch);
    const std::uint64_t got = read(scratch, want);
    count += got;
    if (got < want) break;
  }
  return count;
}

using platform::read_fully;

FDescReader::FDescReader(int fd)
    : fd_(fd), buffer_(new (kInputBufferAlignment) char[kInputBuffer]), fill_(kFirstFill) {}

FDescReader::~FDescReader() {
  ::operator delete[](buffer_, kInputBufferAlignment);
}

bool FDescReader::refill() {
  begin_ = 0;
  end_ = read_fully(fd_, buffer_, fill_);
  // Reads after a seek start small, where a header or two is all that is
  // wanted before the next seek, and grow while the reading goes on.
  fill_ = std::min<std::uint64_t>(fill_ * 2, kInputBuffer);
  return end_ > 0;
}

std::uint64_t FDescReader::read(void* dst, std::uint64_t n) {
  auto* out = static_cast<char*>(dst);
  std::uint64_t count = 0;
  while (count < n) {
    if (begin_ == end_) {
      // Large requests go straight into the caller's memory.
      if (n - count >= kInputBuffer) return count + read_fully(fd_, out + count, n - count);
      if (!refill()) break;
    }
    const std::uint64_t k = std::min(n - count, end_ - begin_);
    std::memcpy(out + count, buffer_ + begin_, k);
    begin_ += k;
    count += k;
  }
  return count;
}

std::uint64_t FDescReader::file_size() {
  if (!size_) size_ = platform::regular_file_size(fd_).value_or(kUnknownRemaining);
  return *size_;
}

std::uint64_t FDescReader::skip(std::uint64_t n) {
  const std::uint64_t buffered = std::min(n, end_ - begin_);
  begin_ += buffered;
  const std::uint64_t rest = n - buffered;
  if (rest == 0) return n;
  const std::uint64_t size = file_size();
  const std::optional<std::uint64_t> pos =
      size == kUnknownRemaining ? std::nullopt : platform::position(fd_);
  const std::uint64_t at = pos.value_or(0);
  const std::uint64_t target = at + std::min(rest, size - std::min(size, at));
  if (!pos || !platform::seek_to(fd_, target)) return buffered + Reader::skip(rest);
  fill_ = kFirstFill;
  return buffered + (target - at);
}

std::uint64_t FDescReader::remaining_bound() {
  const std::uint64_t size = file_size();
  const std::optional<std::uint64_t> pos =
      size == kUnknownRemaining ? std::nullopt : platform::position(fd_);
  if (!pos || *pos > size) return kUnknownRemaining;
  return size - *pos + (end_ - begin_);
}

FileReader::FileReader(const std::filesystem::path& path)
    : FDescReader(platform::open_for_reading(path)) {}

FileReader::~FileReader() {
  platform::close_file(fd_);
}

std::uint64_t MemoryReader::read(void* dst, std::uint64_t n) {
  const std::uint64_t k = std::min<std::uint64_t>(n, size_ - pos_);
  if (k > 0) std::memcpy(dst, data_ + pos_, k);
  pos_ += k;
  return k;
}

std::uint64_t MemoryReader::skip(std::uint64_t n) {
  const std::uint64_t k = std::min<std::uint64_t>(n, size_ - pos_);
  pos_ += k;
  return k;
}

namespace zstd {

// The decoder and its two buffers, at the sizes the library recommends.
struct Reader::Decoder {
  Decoder() : context(ZSTD_createDStream()), in(ZSTD_DStreamInSize()), out(ZSTD_DStreamOutSize()) {
    if (context == nullptr) throw std::bad_alloc();
    ZSTD_initDStream(context);
    out_desc = {out.data(), out.size(), 0};
    in_desc = {in.data(), 0, 0};
  }
  ~Decoder() { ZSTD_freeDStream(context); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  ZSTD_DStream* context;
  std::vector<char> in;
  std::vector<char> out;
  ZSTD_outBuffer out_desc;  // out.data(), out.size(), decoded bytes
  ZSTD_inBuffer in_desc;    // in.data(), bytes fetched, bytes consumed
};

Reader::Reader(strix::Reader* inner) : decoder_(std::make_unique<Decoder>()), inner_(inner) {}

Reader::~Reader() = default;

void Reader::refill() {
  Decoder& d = *decoder_;
  if (read_pos_ < d.out_desc.pos || !more_) return;
  if (d.in_desc.pos == d.in_desc.size) {
    if (!input_open_) {
      more_ = false;
      return;
    }
    d.in_desc.pos = 0;
    d.in_desc.size = inner_->read(d.in.data(), d.in.size());
    if (d.in_desc.size == 0) {
      input_open_ = more_ = false;
      return;
    }
  }
  d.out_desc.pos = 0;
  read_pos_ = 0;
  const std::size_t result = ZSTD_decompressStream(d.context, &d.out_desc, &d.in_desc);
  if (!ZSTD_isError(result) && d.out_desc.pos > 0) return;
  // A call that yields nothing ends the stream, even if input is left (for
  // example a chunk that held only a frame header): solution files are
  // written so that this never cuts one short.
  input_open_ = more_ = false;
  if (ZSTD_isError(result)) {
    throw CompressionError(std::string("corrupt Zstandard input (") + ZSTD_getErrorName(result) +
                           ")");
  }
}

std::uint64_t Reader::read(void* dst, std::uint64_t n) {
  if (n == 0) return 0;
  auto* out = static_cast<char*>(dst);
  std::uint64_t count = 0;
  do {
    refill();
    const std::uint64_t available = decoder_->out_desc.pos - read_pos_;
    if (available == 0) break;
    const std::uint64_t k = std::min(available, n - count);
    std::memcpy(out + count, decoder_->out.data() + read_pos_, k);
    count += k;
    read_pos_ += k;
  } while (count < n);
  return count;
}

std::uint64_t Reader::skip(std::uint64_t n) {
  std::uint64_t count = 0;
  while (count < n) {
    refill();
    const std::uint64_t available = decoder_->out_desc.pos - read_pos_;
    if (available == 0) break;
    const std::uint64_t k = std::min(available, n - count);
    count += k;
    read_pos_ += k;
  }
  return count;
}

}  // namespace zstd
}  // namespace strix
