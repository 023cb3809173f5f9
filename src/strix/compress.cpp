#include "strix/compress.h"

#include <algorithm>  // std::clamp, std::min
#include <cstddef>    // std::size_t
#include <cstdint>    // std::uint8_t, std::uint32_t, std::uint64_t
#include <cstring>    // std::memcpy
#include <iterator>   // std::begin, std::end
#include <mutex>      // std::mutex
#include <new>        // std::bad_alloc
#include <vector>     // std::vector

#include <isa-l/crc.h>        // crc32_gzip_refl
#include <isa-l/igzip_lib.h>  // isal_deflate
// ZSTD_createCCtx_advanced, to give the compressor memory that suits
// buffers of megabytes.
#define ZSTD_STATIC_LINKING_ONLY
#include <zstd.h>  // ZSTD_compressStream2

#include "strix/bulk.h"
#include "strix/errors.h"
#include "strix/jobs.h"
#include "strix/limits.h"

namespace strix {

namespace {

// Writes all n bytes to the target, retrying short writes; a target that
// takes nothing has failed. The one place where a target's failure is found.
void write_or_throw(std::streambuf* target, const void* data, std::size_t n) {
  auto* bytes = static_cast<const char*>(data);
  while (n > 0) {
    const std::streamsize put = target->sputn(bytes, static_cast<std::streamsize>(n));
    if (put <= 0) throw IOError{};
    bytes += put;
    n -= static_cast<std::size_t>(put);
  }
}

}  // namespace

// ------------------------------------------------------------- the shape

CompressingBuffer::CompressingBuffer(std::unique_ptr<Engine> engine, bool drop_overflow_byte)
    : engine_(std::move(engine)), drop_overflow_byte_(drop_overflow_byte) {
  setp(put_area_.data(), put_area_.data() + put_area_.size());
}

CompressingBuffer::~CompressingBuffer() {
  try {
    close();
  } catch (...) {
    // close() is where failures are reported; here the stream is lost.
  }
}

// A failed engine is released, which closes the buffer: a broken target
// would refuse the stream's tail as well, and destruction must not try again.
void CompressingBuffer::feed(const char* data, std::size_t n) {
  try {
    engine_->feed(data, n);
  } catch (...) {
    engine_.reset();
    throw;
  }
  setp(put_area_.data(), put_area_.data() + put_area_.size());
}

CompressingBuffer::int_type CompressingBuffer::overflow(int_type c) {
  if (!engine_) return traits_type::eof();
  const auto n = static_cast<std::size_t>(pptr() - pbase());
  if (n > 0) feed(put_area_.data(), n);
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  if (drop_overflow_byte_) return traits_type::not_eof(c);
  return sputc(traits_type::to_char_type(c));
}

// Large writes (the writers hand on pieces of 256 KiB and more) reach the
// engine in the very pieces that filling the put area byte by byte would
// make, with the same byte dropped after each where the format drops it;
// a piece that starts on an empty put area is fed from where it lies,
// saving a copy of nearly all the text.
std::streamsize CompressingBuffer::xsputn(const char* s, std::streamsize n) {
  std::streamsize done = 0;
  // More than the put area's room: a byte arrives when the area is full.
  while (engine_ && n - done > epptr() - pptr()) {
    if (pptr() == pbase()) {
      feed(s + done, kPutArea);
      done += kPutArea;
    } else {
      const auto room = epptr() - pptr();
      std::memcpy(pptr(), s + done, static_cast<std::size_t>(room));
      done += room;
      feed(put_area_.data(), kPutArea);
    }
    if (drop_overflow_byte_) ++done;
  }
  return done + std::streambuf::xsputn(s + done, n - done);
}

void CompressingBuffer::close() {
  if (!engine_) return;
  const std::unique_ptr<Engine> engine = std::move(engine_);
  const auto n = static_cast<std::size_t>(pptr() - pbase());
  setp(put_area_.data(), put_area_.data());  // nothing more is taken
  engine->finish(put_area_.data(), n);
}

// ------------------------------------------------------ Zstandard output

namespace zstd {

namespace {

struct FreeContext {
  void operator()(ZSTD_CCtx* context) const { ZSTD_freeCCtx(context); }
};

// The workers' input and output buffers are megabytes each, taken afresh
// for every frame: in huge pages they fault in some dozen times instead of
// thousands.
void* allocate_for_zstd(void*, std::size_t size) noexcept {
  try {
    return allocate_bulk(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void free_for_zstd(void*, void* p) noexcept {
  free_bulk(p);
}
constexpr ZSTD_customMem kBulkMemory{allocate_for_zstd, free_for_zstd, nullptr};

std::size_t checked(std::size_t rc) {
  if (ZSTD_isError(rc)) throw CompressionError{};
  return rc;
}

// The workers start with the first full put area. A stream that ends before
// one is compressed in the one call that ends the frame, which the library
// runs on the calling thread for so little input: a small document starts
// no thread, and its frame is the same whatever the worker count.
struct Encoder final : CompressingBuffer::Engine {
  Encoder(std::streambuf* target_buf, int level, unsigned workers)
      : context(ZSTD_createCCtx_advanced(kBulkMemory)),
        out(ZSTD_CStreamOutSize()),
        target(target_buf) {
    if (!context) throw std::bad_alloc();
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_compressionLevel,
                           std::clamp(level, 1, ZSTD_maxCLevel()));
    // A library built without threads refuses the parameter and compresses
    // on the calling thread.
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_nbWorkers, static_cast<int>(workers));
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_jobSize, kZstdJobSize);
  }

  void feed(const char* data, std::size_t n) override {
    if (fed == 0) start();
    compress(data, n, ZSTD_e_continue);
    const bool first_flush = fed < kZstdFirstFlushAt && fed + n >= kZstdFirstFlushAt;
    fed += n;
    if (first_flush) compress(nullptr, 0, ZSTD_e_flush);
  }
  void finish(const char* data, std::size_t n) override { compress(data, n, ZSTD_e_end); }

  // Workers that cannot be started leave the compression to the calling
  // thread: the frame's bytes differ, not what it holds.
  void start() {
    ZSTD_inBuffer in{nullptr, 0, 0};
    ZSTD_outBuffer o{out.data(), out.size(), 0};
    if (!ZSTD_isError(ZSTD_compressStream2(context.get(), &o, &in, ZSTD_e_continue))) {
      write_or_throw(target, o.dst, o.pos);
      return;
    }
    ZSTD_CCtx_reset(context.get(), ZSTD_reset_session_only);
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_nbWorkers, 0);
  }

  // Feeds data, or with no data flushes or ends the frame, until done.
  void compress(const char* data, std::size_t n, ZSTD_EndDirective how) {
    ZSTD_inBuffer in{data, n, 0};
    for (;;) {
      ZSTD_outBuffer o{out.data(), out.size(), 0};
      const std::size_t left = checked(ZSTD_compressStream2(context.get(), &o, &in, how));
      write_or_throw(target, o.dst, o.pos);
      if (how == ZSTD_e_continue ? in.pos == in.size : left == 0) return;
    }
  }

  std::unique_ptr<ZSTD_CCtx, FreeContext> context;
  std::vector<char> out;
  std::streambuf* target;
  std::uint64_t fed = 0;
};

}  // namespace

outstreambuf::outstreambuf(std::streambuf* target, int level, unsigned workers)
    : CompressingBuffer(std::make_unique<Encoder>(target, level, workers), false) {}

}  // namespace zstd

// ----------------------------------------------------------- gzip output
//
// The member is deflated in chunks, in a queue of jobs on a pool (jobs.h): each
// chunk is a run of raw deflate blocks, primed with the 32 KiB of text
// before it, that ends on a byte boundary (a sync flush), and the last ends
// with the final block. The chunks are handed on in order between the header
// and the trailer, whose CRC is taken as they go. Chunk boundaries depend on
// the text only, so the member's bytes do not depend on the threads.

namespace gzip {

namespace {

// The first chunk is the first put area, handed on before anything more is
// taken, so that a target that takes no bytes fails early and at a fixed
// point; then chunks of kGzipChunk bytes.
constexpr std::size_t kWindow = 32768;  // deflate's reach: the dictionary of a chunk

// Deflate, no name or time, made on Unix.
constexpr std::uint8_t kHeader[10] = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, 0, 3};

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

struct Chunk {
  std::vector<std::uint8_t> in;
  std::vector<std::uint8_t> dictionary;  // the text before `in`, at most kWindow bytes
  bool last = false;
  std::vector<std::uint8_t> out;
};

// The engine's state and work area, kept for the next chunk: a deflation
// keeps one for each thread that deflates at once.
struct DeflateState {
  explicit DeflateState(int level_) : level(level_), level_buf(level_buffer_size(level_)) {}

  // Throws GZipError with the engine's code.
  void deflate(Chunk& c) {
    isal_deflate_init(&stream);
    stream.level = static_cast<std::uint32_t>(level);
    stream.level_buf = level_buf.data();
    stream.level_buf_size = static_cast<std::uint32_t>(level_buf.size());
    if (!c.dictionary.empty()) {
      check(isal_deflate_set_dict(&stream, c.dictionary.data(),
                                  static_cast<std::uint32_t>(c.dictionary.size())));
    }
    stream.next_in = c.in.data();
    stream.avail_in = static_cast<std::uint32_t>(c.in.size());
    stream.end_of_stream = c.last ? 1 : 0;
    stream.flush = c.last ? NO_FLUSH : SYNC_FLUSH;
    c.out.resize(c.in.size() + c.in.size() / 8 + 1024);
    std::size_t used = 0;
    for (;;) {
      stream.next_out = c.out.data() + used;
      stream.avail_out = static_cast<std::uint32_t>(c.out.size() - used);
      check(isal_deflate(&stream));
      used = static_cast<std::size_t>(stream.next_out - c.out.data());
      // Ended, or flushed with room to spare: all of the chunk is out.
      if (c.last ? stream.internal_state.state == ZSTATE_END : stream.avail_out > 0) break;
      c.out.resize(c.out.size() + c.out.size() / 2);
    }
    c.out.resize(used);
  }
  static void check(int rc) {
    if (rc != COMP_OK) throw GZipError{rc};
  }

  int level;
  std::vector<std::uint8_t> level_buf;
  isal_zstream stream{};
};

struct Deflation final : CompressingBuffer::Engine {
  Deflation(std::streambuf* target_buf, int level_, Pool& pool, std::unique_ptr<Pool> own_pool_)
      : target(target_buf), level(level_), own_pool(std::move(own_pool_)), chunks_queue(pool) {
    level_buffer_size(level);  // an unknown level fails here, not at the first chunk
    pending.reserve(kGzipChunk);
  }

  void feed(const char* data, std::size_t n) override {
    pending.insert(pending.end(), data, data + n);
    if (chunks == 0 || pending.size() >= kGzipChunk) submit(false);
  }

  // The last chunk, then the trailer.
  void finish(const char* data, std::size_t n) override {
    pending.insert(pending.end(), data, data + n);
    submit(true);
    chunks_queue.finish();
    std::uint8_t trailer[8];
    for (int i = 0; i < 4; ++i) {
      trailer[i] = static_cast<std::uint8_t>(crc >> (8 * i));
      trailer[4 + i] = static_cast<std::uint8_t>(size >> (8 * i));  // the size modulo 2^32
    }
    write_or_throw(target, trailer, sizeof trailer);
  }

  // A chunk deflated by whichever thread runs it and handed on by the
  // writer's.
  struct Job final : JobQueue::Job {
    Job(Deflation& owner_, std::unique_ptr<Chunk> chunk_)
        : owner(owner_), chunk(std::move(chunk_)) {}
    void run() override {
      std::unique_ptr<DeflateState> state = owner.take_state();
      state->deflate(*chunk);
      const std::lock_guard lock(owner.states_mutex);
      owner.states.push_back(std::move(state));
    }
    void hand_on() override {
      owner.hand_on(*chunk);
      owner.spare.push_back(std::move(chunk));
    }
    Deflation& owner;
    std::unique_ptr<Chunk> chunk;
  };

  // Deflates the pending text as the next chunk; the first is handed on
  // before anything more is taken.
  void submit(bool last) {
    std::unique_ptr<Chunk> c;
    if (spare.empty()) {
      c = std::make_unique<Chunk>();
    } else {
      c = std::move(spare.back());
      spare.pop_back();
    }
    c->dictionary.assign(window.begin(), window.end());
    c->last = last;
    window.insert(window.end(), pending.end() - std::min(pending.size(), kWindow), pending.end());
    if (window.size() > kWindow) window.erase(window.begin(), window.end() - kWindow);
    c->in.swap(pending);
    pending.clear();
    pending.reserve(kGzipChunk);
    chunks_queue.submit(std::make_unique<Job>(*this, std::move(c)));
    if (chunks++ == 0) chunks_queue.finish();
  }

  // A state no thread is using, or a new one.
  std::unique_ptr<DeflateState> take_state() {
    {
      const std::lock_guard lock(states_mutex);
      if (!states.empty()) {
        std::unique_ptr<DeflateState> state = std::move(states.back());
        states.pop_back();
        return state;
      }
    }
    return std::make_unique<DeflateState>(level);
  }

  void hand_on(Chunk& c) {
    // The header goes out with the first chunk, in one write: once a write
    // has fit in its buffer, standard output reports a full device only as
    // short writes, which are retried, never as a failure.
    if (!header_written) c.out.insert(c.out.begin(), std::begin(kHeader), std::end(kHeader));
    header_written = true;
    write_or_throw(target, c.out.data(), c.out.size());
    crc = crc32_gzip_refl(crc, c.in.data(), c.in.size());
    size += c.in.size();
  }

  // All but the states the writer's thread's: the pool's threads touch
  // only the chunk of the job they run, the level and the states.
  std::streambuf* target;
  const int level;
  std::vector<std::uint8_t> pending;
  std::vector<std::uint8_t> window;  // the last kWindow bytes submitted
  // Chunks handed on, to fill again: their buffers keep their memory, which
  // fresh ones would take from the system, page by page, at every chunk.
  std::vector<std::unique_ptr<Chunk>> spare;
  std::uint64_t chunks = 0;  // submitted
  std::uint32_t crc = 0;
  std::uint64_t size = 0;  // of the text handed on
  bool header_written = false;
  std::mutex states_mutex;
  std::vector<std::unique_ptr<DeflateState>> states;  // guarded: states not in use
  std::unique_ptr<Pool> own_pool;                     // the pool, when the caller gave none
  JobQueue chunks_queue;  // last: its jobs end before the rest is destroyed
};

}  // namespace

namespace {

std::unique_ptr<Deflation> deflation(std::streambuf* target, int level, unsigned threads) {
  auto pool = std::make_unique<Pool>(threads);
  Pool& shared = *pool;
  return std::make_unique<Deflation>(target, level, shared, std::move(pool));
}

}  // namespace

streambuf::streambuf(std::streambuf* target, int level, unsigned threads, Overflow overflow)
    : CompressingBuffer(deflation(target, level, threads), overflow == Overflow::drop) {}

streambuf::streambuf(std::streambuf* target, int level, Pool& pool, Overflow overflow)
    : CompressingBuffer(std::make_unique<Deflation>(target, level, pool, nullptr),
                        overflow == Overflow::drop) {}

}  // namespace gzip

}  // namespace strix
