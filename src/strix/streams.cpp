#include "strix/streams.h"

#include <algorithm>           // std::min
#include <condition_variable>  // std::condition_variable
#include <cstring>             // std::memcpy
#include <exception>           // std::exception_ptr
#include <mutex>               // std::mutex
#include <new>                 // std::bad_alloc
#include <system_error>        // std::system_error
#include <thread>              // std::thread

#include <sys/stat.h>  // fstat

#include "strix/errors.h"

namespace strix {

namespace {
// Hands n bytes to a target, retrying short writes; a target that takes
// nothing has failed.
void put_all(std::streambuf* target, const char* data, std::size_t n) {
  while (n > 0) {
    const std::streamsize put = target->sputn(data, static_cast<std::streamsize>(n));
    if (put <= 0) throw IOError{};
    data += put;
    n -= static_cast<std::size_t>(put);
  }
}
}  // namespace

// ---------------------------------------------------------------- readers

std::uint64_t FDescReader::read(void* dst, std::uint64_t n) {
  return std::fread(dst, 1, n, file_);
}

int FDescReader::getc() {
  return std::fgetc(file_);
}

std::uint64_t FDescReader::remaining_bound() {
  struct stat st;
  if (fstat(fileno(file_), &st) != 0 || !S_ISREG(st.st_mode)) return kUnknownRemaining;
  const off_t pos = ftello(file_);
  if (pos < 0 || pos > st.st_size) return kUnknownRemaining;
  return static_cast<std::uint64_t>(st.st_size - pos);
}

FileReader::~FileReader() {
  if (file_ != nullptr) std::fclose(file_);
}

namespace zstd {

Reader::Reader(strix::Reader* inner)
    : context_(ZSTD_createDStream()),
      in_buf_(ZSTD_DStreamInSize()),
      out_buf_(ZSTD_DStreamOutSize()),
      inner_(inner) {
  ZSTD_initDStream(context_);
  out_desc_ = {out_buf_.data(), out_buf_.size(), 0};
  in_desc_ = {in_buf_.data(), 0, 0};
}

Reader::~Reader() {
  ZSTD_freeDStream(context_);
}

void Reader::refill() {
  if (read_pos_ < out_desc_.pos || !more_) return;
  if (in_desc_.pos == in_desc_.size) {
    if (!input_open_) {
      more_ = false;
      return;
    }
    in_desc_.pos = 0;
    in_desc_.size = inner_->read(in_buf_.data(), in_buf_.size());
    if (in_desc_.size == 0) {
      input_open_ = more_ = false;
      return;
    }
  }
  out_desc_.pos = 0;
  read_pos_ = 0;
  const std::size_t result = ZSTD_decompressStream(context_, &out_desc_, &in_desc_);
  if (!ZSTD_isError(result) && out_desc_.pos > 0) return;
  // A call that yields nothing ends the stream, even if input is left (for
  // example a chunk that held only a frame header): solution files are
  // written so that this never cuts one short.
  input_open_ = more_ = false;
  if (ZSTD_isError(result)) throw CompressionError{};
}

std::uint64_t Reader::read(void* dst, std::uint64_t n) {
  if (n == 0) return 0;
  auto* out = static_cast<char*>(dst);
  std::uint64_t count = 0;
  do {
    refill();
    const std::uint64_t available = out_desc_.pos - read_pos_;
    if (available == 0) break;
    const std::uint64_t k = std::min(available, n - count);
    std::memcpy(out + count, out_buf_.data() + read_pos_, k);
    count += k;
    read_pos_ += k;
  } while (count < n);
  return count;
}

int Reader::getc() {
  refill();
  if (read_pos_ == out_desc_.pos) return -1;
  return static_cast<signed char>(out_buf_[read_pos_++]);
}

// ---------------------------------------------------------- zstd output

outstreambuf::outstreambuf(std::streambuf* target, int level)
    : context_(ZSTD_createCStream()), out_buf_(ZSTD_CStreamOutSize()), target_(target) {
  level = std::clamp(level, 1, ZSTD_maxCLevel());
  ZSTD_initCStream(context_, level);
  out_desc_ = {out_buf_.data(), out_buf_.size(), 0};
  in_desc_ = {nullptr, 0, 0};
  setp(put_area_.data(), put_area_.data() + put_area_.size());
}

outstreambuf::~outstreambuf() {
  close();
  ZSTD_freeCStream(context_);
}

void outstreambuf::write_out(std::size_t n) {
  try {
    put_all(target_, out_buf_.data(), n);
  } catch (...) {
    // The target is broken: it would refuse the frame's tail as well, so
    // destruction must not try again and fail a second time.
    open_ = false;
    throw;
  }
}

outstreambuf::int_type outstreambuf::overflow(int_type c) {
  if (!open_) return traits_type::eof();
  in_desc_ = {put_area_.data(), static_cast<std::size_t>(pptr() - pbase()), 0};
  while (in_desc_.pos < in_desc_.size) {
    out_desc_.pos = 0;
    const std::size_t rc = ZSTD_compressStream(context_, &out_desc_, &in_desc_);
    if (out_desc_.pos > 0) write_out(out_desc_.pos);
    // The library fails only when it is out of memory; stop rather than
    // spin on input it will not take.
    if (ZSTD_isError(rc)) break;
  }
  setp(put_area_.data(), put_area_.data() + put_area_.size());
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  return sputc(traits_type::to_char_type(c));
}

void outstreambuf::close() {
  overflow(traits_type::eof());
  if (!open_) return;
  std::size_t left;
  do {
    out_desc_.pos = 0;
    left = ZSTD_flushStream(context_, &out_desc_);
    if (out_desc_.pos > 0) write_out(out_desc_.pos);
  } while (left > 0 && !ZSTD_isError(left));
  do {
    out_desc_.pos = 0;
    left = ZSTD_endStream(context_, &out_desc_);
    if (out_desc_.pos > 0) write_out(out_desc_.pos);
  } while (left > 0 && !ZSTD_isError(left));
  open_ = false;
}

}  // namespace zstd

// ---------------------------------------------------------- gzip output

namespace gzip {

namespace {
constexpr int kWindowBitsGzip = 31;  // 32 KiB window, gzip header and trailer
constexpr int kMemLevel = 8;
}  // namespace

streambuf::streambuf(std::streambuf* target, int level) : out_buf_(65536), target_(target) {
  const int rc =
      deflateInit2(&zs_, level, Z_DEFLATED, kWindowBitsGzip, kMemLevel, Z_DEFAULT_STRATEGY);
  if (rc == Z_MEM_ERROR) throw std::bad_alloc();
  if (rc != Z_OK) throw GZipError{rc};
  initialised_ = true;
  zs_.next_out = out_buf_.data();
  zs_.avail_out = static_cast<uInt>(out_buf_.size());
  setp(put_area_.data(), put_area_.data() + put_area_.size());
}

streambuf::~streambuf() {
  close();
  if (initialised_) deflateEnd(&zs_);
}

void streambuf::write_out() {
  const std::size_t produced = out_buf_.size() - zs_.avail_out;
  try {
    put_all(target_, reinterpret_cast<const char*>(out_buf_.data()), produced);
  } catch (...) {
    open_ = false;  // as for the Zstandard buffer: no second failure on close
    throw;
  }
  zs_.next_out = out_buf_.data();
  zs_.avail_out = static_cast<uInt>(out_buf_.size());
}

// `c` is deliberately not stored: the byte that overflows the put area is
// dropped from the stream.
streambuf::int_type streambuf::overflow(int_type /*c*/) {
  if (!open_) return traits_type::eof();
  zs_.next_in = reinterpret_cast<Bytef*>(put_area_.data());
  zs_.avail_in = static_cast<uInt>(pptr() - pbase());
  while (zs_.avail_in > 0) {
    const int rc = deflate(&zs_, Z_NO_FLUSH);
    if (rc != Z_OK && rc != Z_BUF_ERROR) {
      open_ = false;
      throw GZipError{rc};
    }
    write_out();
  }
  setp(put_area_.data(), put_area_.data() + put_area_.size());
  return 0;
}

void streambuf::close() {
  overflow(traits_type::eof());
  if (!open_) return;
  zs_.next_in = nullptr;
  zs_.avail_in = 0;
  int rc;
  do {
    zs_.next_out = out_buf_.data();
    zs_.avail_out = static_cast<uInt>(out_buf_.size());
    rc = deflate(&zs_, Z_FINISH);
    if (rc != Z_OK && rc != Z_STREAM_END && rc != Z_BUF_ERROR) {
      open_ = false;
      throw GZipError{rc};
    }
    write_out();
  } while (rc != Z_STREAM_END);
  open_ = false;
}

}  // namespace gzip

// ------------------------------------------------------- buffered output

namespace {
// The result is deliberately ignored: a plain file that cannot be written
// loses the bytes silently; compressing buffers throw on their own.
void put_piece(std::streambuf* sink, fmt::memory_buffer& piece) {
  sink->sputn(piece.data(), static_cast<std::streamsize>(piece.size()));
}
}  // namespace

// The hand-over between the writer and the thread that passes pieces on.
struct OutBuffer::Pipe {
  std::mutex mutex;
  std::condition_variable changed;
  fmt::memory_buffer* piece = nullptr;  // handed over, not yet passed on
  bool stop = false;
  std::exception_ptr failure;
  std::thread thread;

  void run(std::streambuf* sink) {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [&] { return piece != nullptr || stop; });
      if (piece == nullptr) return;
      if (!failure) {
        lock.unlock();
        std::exception_ptr caught;
        try {
          put_piece(sink, *piece);
        } catch (...) {
          caught = std::current_exception();
        }
        lock.lock();
        failure = caught;
      }
      piece->clear();
      piece = nullptr;
      changed.notify_all();
    }
  }
};

OutBuffer::OutBuffer(std::streambuf* sink) : sink_(sink) {}

OutBuffer::~OutBuffer() {
  // Writers flush at their end, where a failure can still reach the driver;
  // this one covers a writer that is left by an exception (what it formatted
  // belongs in the output) and must not throw a second time.
  try {
    flush();
  } catch (...) {
  }
  if (pipe_) {
    {
      const std::lock_guard lock(pipe_->mutex);
      pipe_->stop = true;
    }
    pipe_->changed.notify_all();
    pipe_->thread.join();
  }
}

// After a failure of the stream buffer nothing more is offered to it: what
// is pending is dropped and the failure is thrown again.
void OutBuffer::rethrow_failure() {
  if (!failure_) return;
  buf_->clear();
  std::rethrow_exception(failure_);
}

void OutBuffer::write_here() {
  try {
    put_piece(sink_, *buf_);
  } catch (...) {
    failure_ = std::current_exception();
  }
  buf_->clear();
  rethrow_failure();
}

void OutBuffer::wait_idle() {
  {
    std::unique_lock lock(pipe_->mutex);
    pipe_->changed.wait(lock, [&] { return pipe_->piece == nullptr; });
    failure_ = pipe_->failure;
  }
  rethrow_failure();
}

bool OutBuffer::start_pipe() {
  if (no_thread_) return false;
  auto pipe = std::make_unique<Pipe>();
  try {
    pipe->thread = std::thread([p = pipe.get(), sink = sink_] { p->run(sink); });
  } catch (const std::system_error&) {
    // No thread to be had: the pieces are written in turn, as they come.
    no_thread_ = true;
    return false;
  }
  pipe_ = std::move(pipe);
  return true;
}

void OutBuffer::hand_over() {
  rethrow_failure();
  if (buf_->size() == 0) return;
  if (!pipe_ && !start_pipe()) {
    write_here();
    return;
  }
  wait_idle();
  {
    const std::lock_guard lock(pipe_->mutex);
    pipe_->piece = buf_;
  }
  pipe_->changed.notify_all();
  buf_ = buf_ == &pieces_[0] ? &pieces_[1] : &pieces_[0];
}

void OutBuffer::flush() {
  rethrow_failure();
  if (!pipe_) {
    // No thread: for what fits in one piece, or when none could be started.
    if (buf_->size() != 0) write_here();
    return;
  }
  hand_over();
  wait_idle();
}

}  // namespace strix
