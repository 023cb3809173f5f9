#include "strix/compress.h"

#include <algorithm>           // std::clamp, std::min
#include <condition_variable>  // std::condition_variable
#include <cstddef>             // std::size_t
#include <cstdint>             // std::uint8_t, std::uint32_t, std::uint64_t
#include <deque>               // std::deque
#include <exception>           // std::exception_ptr
#include <iterator>            // std::begin, std::end
#include <mutex>               // std::mutex
#include <new>                 // std::bad_alloc
#include <system_error>        // std::system_error
#include <thread>              // std::thread
#include <vector>              // std::vector

#include <isa-l/crc.h>        // crc32_gzip_refl
#include <isa-l/igzip_lib.h>  // isal_deflate
#include <zstd.h>             // ZSTD_compressStream2

#include "strix/errors.h"

// Both buffers have one shape. An Engine behind the buffer owns the
// compression state: feed() takes a full put area, finish() ends the stream,
// and drain() hands what is compressed to the target through
// write_or_throw(), the one place where a target's failure is found. Every
// engine step runs through step(), which closes the buffer when it throws.

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

}  // namespace

// ------------------------------------------------------ Zstandard output

namespace zstd {

namespace {

// Workers compressing the frame while the output thread feeds it. Two, with
// the writer formatting beside them: one alone is the bottleneck (bench/).
constexpr int kWorkers = 2;
// Input per job. The library's default for level 3 (four windows, 8 MiB)
// held some 35 MB more at the peak and was no faster.
constexpr int kJobSize = 2 << 20;

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
  // Flushes (ZSTD_e_flush) or ends (ZSTD_e_end) the frame.
  void finish(ZSTD_EndDirective how);
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
  ZSTD_CCtx_setParameter(context.get(), ZSTD_c_jobSize, kJobSize);
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
  if (first_flush) finish(ZSTD_e_flush);
}

void outstreambuf::Engine::finish(ZSTD_EndDirective how) {
  ZSTD_inBuffer in{nullptr, 0, 0};
  for (;;) {
    ZSTD_outBuffer o{out.data(), out.size(), 0};
    const std::size_t left = checked(ZSTD_compressStream2(context.get(), &o, &in, how));
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
  step(engine_, [](Engine& e) { e.finish(ZSTD_e_end); });
  engine_.reset();
}

}  // namespace zstd

// ----------------------------------------------------------- gzip output
//
// The member is deflated in chunks on worker threads: each chunk is a run of
// raw deflate blocks, primed with the 32 KiB of text before it, that ends on
// a byte boundary (a sync flush), and the last ends with the final block.
// The chunks are handed on in order between the header and the trailer,
// whose CRC is taken as they go. Chunk boundaries depend on the text only,
// so the member's bytes do not depend on the threads.

namespace gzip {

namespace {

// The first chunk is the first put area, deflated and handed on at once, so
// that a target that takes no bytes fails early and at a fixed point; then
// 1 MiB chunks, a few milliseconds of work each.
constexpr std::size_t kChunk = 1 << 20;
constexpr std::size_t kWindow = 32768;  // deflate's reach: the dictionary of a chunk
constexpr int kWorkers = 2;
constexpr std::size_t kInFlight = 2 * kWorkers;  // chunks queued or deflated, not yet handed on

// Deflate, no name or time, made on Unix: the header strix has always written.
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
  int rc = COMP_OK;
  std::exception_ptr failure;  // no memory for `out`
  bool done = false;
};

// One deflate state and work area per thread that deflates.
struct Deflater {
  explicit Deflater(int level) : level(level), level_buf(level_buffer_size(level)) {}

  void run(Chunk& c) {
    try {
      c.rc = deflate(c);
    } catch (...) {
      c.failure = std::current_exception();
    }
  }

  int deflate(Chunk& c) {
    isal_deflate_init(&stream);
    stream.level = static_cast<std::uint32_t>(level);
    stream.level_buf = level_buf.data();
    stream.level_buf_size = static_cast<std::uint32_t>(level_buf.size());
    if (!c.dictionary.empty()) {
      const int rc = isal_deflate_set_dict(&stream, c.dictionary.data(),
                                           static_cast<std::uint32_t>(c.dictionary.size()));
      if (rc != COMP_OK) return rc;
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
      const int rc = isal_deflate(&stream);
      if (rc != COMP_OK) return rc;
      used = static_cast<std::size_t>(stream.next_out - c.out.data());
      // Ended, or flushed with room to spare: all of the chunk is out.
      if (c.last ? stream.internal_state.state == ZSTATE_END : stream.avail_out > 0) break;
      c.out.resize(c.out.size() + c.out.size() / 2);
    }
    c.out.resize(used);
    return COMP_OK;
  }

  int level;
  std::vector<std::uint8_t> level_buf;
  isal_zstream stream{};
};

}  // namespace

struct streambuf::Engine {
  Engine(std::streambuf* target, int level);
  ~Engine();
  void feed(const char* data, std::size_t n);
  // Ends the member: the last chunk, then the trailer.
  void finish();
  // Deflates the pending text as the next chunk: the first here and handed
  // on at once, the others by the workers (or here, without workers).
  void submit(bool last);
  // Hands on the oldest chunk, waiting until it is deflated.
  void drain();
  // A worker: deflates queued chunks until the engine stops.
  void work();

  std::streambuf* target;
  const int level;
  Deflater here;  // the first chunk's, and every chunk's without workers
  std::vector<std::uint8_t> pending;
  std::vector<std::uint8_t> window;           // the last kWindow bytes submitted
  std::deque<std::unique_ptr<Chunk>> chunks;  // in order, not yet handed on
  std::uint32_t crc = 0;
  std::uint64_t size = 0;  // of the text handed on
  bool header_written = false;

  std::mutex mutex;
  std::condition_variable wake_workers, chunk_done;
  std::deque<Chunk*> queue;  // for the workers
  bool stopping = false;
  std::vector<std::thread> workers;
};

streambuf::Engine::Engine(std::streambuf* target_buf, int level_)
    : target(target_buf), level(level_), here(level_) {
  pending.reserve(kChunk);
  try {
    for (int i = 0; i < kWorkers; ++i) workers.emplace_back([this] { work(); });
  } catch (const std::exception&) {
    // No thread or no memory for one: fewer workers, or none, and this
    // thread deflates what they cannot take.
  }
}

streambuf::Engine::~Engine() {
  {
    const std::lock_guard lock(mutex);
    stopping = true;
  }
  wake_workers.notify_all();
  for (std::thread& t : workers) t.join();
}

void streambuf::Engine::work() {
  std::unique_ptr<Deflater> deflater;
  std::unique_lock lock(mutex);
  for (;;) {
    wake_workers.wait(lock, [&] { return stopping || !queue.empty(); });
    if (stopping) return;
    Chunk* c = queue.front();
    queue.pop_front();
    lock.unlock();
    try {
      if (!deflater) deflater = std::make_unique<Deflater>(level);
      deflater->run(*c);
    } catch (...) {
      c->failure = std::current_exception();  // no memory for a work area
    }
    lock.lock();
    c->done = true;
    chunk_done.notify_all();
  }
}

void streambuf::Engine::feed(const char* data, std::size_t n) {
  pending.insert(pending.end(), data, data + n);
  if (!header_written || pending.size() >= kChunk) submit(false);
}

void streambuf::Engine::submit(bool last) {
  auto c = std::make_unique<Chunk>();
  c->dictionary = window;
  c->last = last;
  window.insert(window.end(), pending.end() - std::min(pending.size(), kWindow), pending.end());
  if (window.size() > kWindow) window.erase(window.begin(), window.end() - kWindow);
  c->in.swap(pending);
  pending.reserve(kChunk);
  Chunk& chunk = *chunks.emplace_back(std::move(c));
  if (!header_written || workers.empty()) {
    here.run(chunk);
    chunk.done = true;
  } else {
    {
      const std::lock_guard lock(mutex);
      queue.push_back(&chunk);
    }
    wake_workers.notify_one();
  }
  // The first chunk goes out at once; later ones as they are done, with at
  // most kInFlight waiting.
  while (!chunks.empty() && (!header_written || chunks.size() > kInFlight)) drain();
}

void streambuf::Engine::drain() {
  {
    std::unique_lock lock(mutex);
    chunk_done.wait(lock, [&] { return chunks.front()->done; });
  }
  const std::unique_ptr<Chunk> c = std::move(chunks.front());
  chunks.pop_front();
  if (c->failure) std::rethrow_exception(c->failure);
  if (c->rc != COMP_OK) throw GZipError{c->rc};
  // The header goes out with the first chunk, in one write: once a write
  // has fit in its buffer, standard output reports a full device only as
  // short writes, which are retried, never as a failure.
  if (!header_written) c->out.insert(c->out.begin(), std::begin(kHeader), std::end(kHeader));
  header_written = true;
  write_or_throw(target, c->out.data(), c->out.size());
  crc = crc32_gzip_refl(crc, c->in.data(), c->in.size());
  size += c->in.size();
}

void streambuf::Engine::finish() {
  submit(true);
  while (!chunks.empty()) drain();
  std::uint8_t trailer[8];
  for (int i = 0; i < 4; ++i) {
    trailer[i] = static_cast<std::uint8_t>(crc >> (8 * i));
    trailer[4 + i] = static_cast<std::uint8_t>(size >> (8 * i));  // the size modulo 2^32
  }
  write_or_throw(target, trailer, sizeof trailer);
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
  if (n > 0) step(engine_, [&](Engine& e) { e.feed(put_area_.data(), n); });
  setp(put_area_.data(), put_area_.data() + put_area_.size());
  return 0;
}

void streambuf::close() {
  overflow(traits_type::eof());
  if (!engine_) return;
  step(engine_, [](Engine& e) { e.finish(); });
  engine_.reset();
}

}  // namespace gzip

}  // namespace strix
