#include "strix/compress.h"

#include <algorithm>  // std::clamp
#include <cstddef>    // std::size_t
#include <cstdint>    // std::uint8_t, std::uint32_t, std::uint64_t
#include <new>        // std::bad_alloc
#include <vector>     // std::vector

#include <isa-l/igzip_lib.h>  // isal_deflate
#include <zstd.h>             // ZSTD_compressStream2

#include "strix/errors.h"

// Both buffers have one shape. An Engine owns the compression state and its
// output block; feed() compresses a full put area, finish() flushes or ends
// the stream, and each hands what came out to drain(), which writes it to
// the target through write_or_throw(). Every engine step runs through
// step(), which closes the buffer when the step throws.

namespace strix {

namespace {

// Writes all n bytes to the target, retrying short writes; a target that
// takes nothing has failed.
void write_or_throw(std::streambuf* target, const void* data, std::size_t n) {
  auto* bytes = static_cast<const char*>(data);
  while (n > 0) {
    const std::streamsize put = target->sputn(bytes, static_cast<std::streamsize>(n));
    if (put <= 0) throw IOError{};
    bytes += put;
    n -= static_cast<std::size_t>(put);
  }
}

// A failed engine is released, which closes the buffer: a broken target
// would refuse the stream's tail as well, and destruction must not try again.
template <typename Engine, typename Step>
void step(std::unique_ptr<Engine>& engine, Step&& run) {
  try {
    run(*engine);
  } catch (...) {
    engine.reset();
    throw;
  }
}

enum class Finish { flush, end };

}  // namespace

// ------------------------------------------------------ Zstandard output

namespace zstd {

namespace {

// Workers compressing the frame while the output thread feeds it; with the
// writer formatting on the other core, one keeps both cores busy (two more
// only contend with the formatting: measured in bench/).
constexpr int kWorkers = 1;

// The frame is flushed once, after its first 128 KiB: with workers, when the
// first bytes reach the target would otherwise depend on their timing. A
// target that takes no bytes thereby fails while the output is written, as
// it did when a single thread wrote 128 KiB blocks, not only at the close.
constexpr std::uint64_t kFirstFlushAt = 128 * 1024;

struct FreeContext {
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
};

std::size_t checked(std::size_t rc) {
  if (ZSTD_isError(rc)) throw CompressionError{};
  return rc;
}

}  // namespace

struct outstreambuf::Engine {
  Engine(std::streambuf* target, int level);
  void feed(const char* data, std::size_t n);
  void finish(Finish how);
  void drain(const ZSTD_outBuffer& o) { write_or_throw(target, o.dst, o.pos); }
  // The first call of a frame, which starts the workers; false if it fails.
  bool start();

  std::unique_ptr<ZSTD_CCtx, FreeContext> context;
  std::vector<char> out;
  std::streambuf* target;
  std::uint64_t fed = 0;
};

outstreambuf::Engine::Engine(std::streambuf* target_buf, int level)
    : context(ZSTD_createCCtx()), out(ZSTD_CStreamOutSize()), target(target_buf) {
  if (!context) throw std::bad_alloc();
  ZSTD_CCtx_setParameter(context.get(), ZSTD_c_compressionLevel,
                         std::clamp(level, 1, ZSTD_maxCLevel()));
  // A library built without threads refuses the parameter and compresses on
  // the calling thread.
  ZSTD_CCtx_setParameter(context.get(), ZSTD_c_nbWorkers, kWorkers);
  if (start()) return;
  // Workers that cannot be started leave the compression to the calling
  // thread: the frame's bytes differ, not what it holds.
  ZSTD_CCtx_reset(context.get(), ZSTD_reset_session_only);
  ZSTD_CCtx_setParameter(context.get(), ZSTD_c_nbWorkers, 0);
  if (!start()) throw std::bad_alloc();
}

bool outstreambuf::Engine::start() {
  ZSTD_inBuffer in{nullptr, 0, 0};
  ZSTD_outBuffer o{out.data(), out.size(), 0};
  if (ZSTD_isError(ZSTD_compressStream2(context.get(), &o, &in, ZSTD_e_continue))) return false;
  drain(o);
  return true;
}

void outstreambuf::Engine::feed(const char* data, std::size_t n) {
  ZSTD_inBuffer in{data, n, 0};
  while (in.pos < in.size) {
    ZSTD_outBuffer o{out.data(), out.size(), 0};
    checked(ZSTD_compressStream2(context.get(), &o, &in, ZSTD_e_continue));
    drain(o);
  }
  const bool first_flush = fed < kFirstFlushAt && fed + n >= kFirstFlushAt;
  fed += n;
  if (first_flush) finish(Finish::flush);
}

void outstreambuf::Engine::finish(Finish how) {
  ZSTD_inBuffer in{nullptr, 0, 0};
  const ZSTD_EndDirective directive = how == Finish::end ? ZSTD_e_end : ZSTD_e_flush;
  for (;;) {
    ZSTD_outBuffer o{out.data(), out.size(), 0};
    const std::size_t left = checked(ZSTD_compressStream2(context.get(), &o, &in, directive));
    drain(o);
    if (left == 0) return;
  }
}

outstreambuf::outstreambuf(std::streambuf* target, int level)
    : engine_(std::make_unique<Engine>(target, level)) {
  setp(put_area_.data(), put_area_.data() + put_area_.size());
}

outstreambuf::~outstreambuf() {
  try {
    close();
  } catch (...) {
    // close() is where failures are reported; here the frame is lost.
  }
}

outstreambuf::int_type outstreambuf::overflow(int_type c) {
  if (!engine_) return traits_type::eof();
  const auto n = static_cast<std::size_t>(pptr() - pbase());
  step(engine_, [&](Engine& e) { e.feed(put_area_.data(), n); });
  setp(put_area_.data(), put_area_.data() + put_area_.size());
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  return sputc(traits_type::to_char_type(c));
}

void outstreambuf::close() {
  overflow(traits_type::eof());
  if (!engine_) return;
  step(engine_, [](Engine& e) { e.finish(Finish::end); });
  engine_.reset();
}

}  // namespace zstd

// ----------------------------------------------------------- gzip output

namespace gzip {

namespace {

constexpr std::size_t kOutSize = 65536;

// The first put area is flushed as soon as it is compressed, for the reason
// the Zstandard frame is flushed early: the engine holds back its output,
// and the point where a target that takes no bytes fails should be fixed
// and early.
constexpr std::uint64_t kFirstFlushAt = 65536;

void checked(int rc) {
  if (rc != COMP_OK) throw GZipError{rc};
}

// The work area each level of the engine needs, at the engine's suggested
// size.
std::size_t level_buffer_size(int level) {
  switch (level) {
    case 0:
      return ISAL_DEF_LVL0_DEFAULT;
    case 1:
      return ISAL_DEF_LVL1_DEFAULT;
    case 2:
      return ISAL_DEF_LVL2_DEFAULT;
    case 3:
      return ISAL_DEF_LVL3_DEFAULT;
    default:
      throw GZipError{ISAL_INVALID_LEVEL};
  }
}

}  // namespace

struct streambuf::Engine {
  Engine(std::streambuf* target, int level);
  void feed(char* data, std::size_t n);
  void finish(Finish how);
  void drain() {
    write_or_throw(target, out.data(), out.size() - stream.avail_out);
    stream.next_out = out.data();
    stream.avail_out = static_cast<std::uint32_t>(out.size());
  }

  isal_zstream stream{};
  std::vector<std::uint8_t> level_buf;
  std::vector<std::uint8_t> out;
  std::streambuf* target;
  std::uint64_t fed = 0;
};

streambuf::Engine::Engine(std::streambuf* target_buf, int level)
    : level_buf(level_buffer_size(level)), out(kOutSize), target(target_buf) {
  isal_deflate_init(&stream);
  stream.level = static_cast<std::uint32_t>(level);
  stream.level_buf = level_buf.data();
  stream.level_buf_size = static_cast<std::uint32_t>(level_buf.size());
  stream.gzip_flag = IGZIP_GZIP;  // a gzip header and trailer around the deflate stream
  stream.next_out = out.data();
  stream.avail_out = static_cast<std::uint32_t>(out.size());
}

void streambuf::Engine::feed(char* data, std::size_t n) {
  stream.next_in = reinterpret_cast<std::uint8_t*>(data);
  stream.avail_in = static_cast<std::uint32_t>(n);
  while (stream.avail_in > 0) {
    checked(isal_deflate(&stream));
    drain();
  }
  const bool first_flush = fed < kFirstFlushAt && fed + n >= kFirstFlushAt;
  fed += n;
  if (first_flush) finish(Finish::flush);
}

// A sync flush is done when the engine leaves room in the output block, the
// member when the engine has written the trailer.
void streambuf::Engine::finish(Finish how) {
  stream.next_in = nullptr;
  stream.avail_in = 0;
  stream.flush = how == Finish::end ? NO_FLUSH : SYNC_FLUSH;
  stream.end_of_stream = how == Finish::end ? 1 : 0;
  for (;;) {
    checked(isal_deflate(&stream));
    const bool full = stream.avail_out == 0;
    drain();
    if (how == Finish::end ? stream.internal_state.state == ZSTATE_END : !full) break;
    if (!full) throw GZipError{ISAL_INVALID_STATE};  // no progress: never loop forever
  }
  stream.flush = NO_FLUSH;
}

streambuf::streambuf(std::streambuf* target, int level)
    : engine_(std::make_unique<Engine>(target, level)) {
  setp(put_area_.data(), put_area_.data() + put_area_.size());
}

streambuf::~streambuf() {
  try {
    close();
  } catch (...) {
    // close() is where failures are reported; here the member is lost.
  }
}

// `c` is deliberately not stored: the byte that overflows the put area is
// dropped from the stream.
streambuf::int_type streambuf::overflow(int_type /*c*/) {
  if (!engine_) return traits_type::eof();
  const auto n = static_cast<std::size_t>(pptr() - pbase());
  step(engine_, [&](Engine& e) { e.feed(put_area_.data(), n); });
  setp(put_area_.data(), put_area_.data() + put_area_.size());
  return 0;
}

void streambuf::close() {
  overflow(traits_type::eof());
  if (!engine_) return;
  step(engine_, [](Engine& e) { e.finish(Finish::end); });
  engine_.reset();
}

}  // namespace gzip

}  // namespace strix
