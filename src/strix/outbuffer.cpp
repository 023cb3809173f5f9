#include "strix/outbuffer.h"

#include <condition_variable>  // std::condition_variable
#include <mutex>               // std::mutex
#include <new>                 // std::bad_alloc
#include <system_error>        // std::system_error
#include <thread>              // std::thread

namespace strix {

namespace {
// What the sink returns is deliberately not looked at: a plain file that
// cannot be written loses the bytes silently; a compressing buffer throws.
void offer_unchecked(std::streambuf* sink, fmt::memory_buffer& piece) {
  sink->sputn(piece.data(), static_cast<std::streamsize>(piece.size()));
}
}  // namespace

// The hand-over between the writer and the thread that passes pieces on.
struct OutBuffer::OutputThread {
  std::mutex mutex;
  std::condition_variable changed;
  fmt::memory_buffer* piece = nullptr;  // handed over, not yet passed on
  bool stop = false;
  std::exception_ptr failure;
  std::thread worker;

  void run(std::streambuf* sink) {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [&] { return piece != nullptr || stop; });
      if (piece == nullptr) return;
      if (!failure) {
        lock.unlock();
        std::exception_ptr caught;
        try {
          offer_unchecked(sink, *piece);
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
  if (thread_) {
    {
      const std::lock_guard lock(thread_->mutex);
      thread_->stop = true;
    }
    thread_->changed.notify_all();
    thread_->worker.join();
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
    offer_unchecked(sink_, *buf_);
  } catch (...) {
    failure_ = std::current_exception();
  }
  buf_->clear();
  rethrow_failure();
}

void OutBuffer::wait_idle() {
  {
    std::unique_lock lock(thread_->mutex);
    thread_->changed.wait(lock, [&] { return thread_->piece == nullptr; });
    failure_ = thread_->failure;
  }
  rethrow_failure();
}

bool OutBuffer::start_thread() {
  if (no_thread_) return false;
  try {
    auto thread = std::make_unique<OutputThread>();
    thread->worker = std::thread([p = thread.get(), sink = sink_] { p->run(sink); });
    thread_ = std::move(thread);
    return true;
  } catch (const std::system_error&) {
    // No thread to be had: the pieces are written in turn, as they come.
  } catch (const std::bad_alloc&) {
    // Nor memory for one: the same.
  }
  no_thread_ = true;
  return false;
}

void OutBuffer::hand_over() {
  rethrow_failure();
  if (buf_->size() == 0) return;
  if (!thread_ && !start_thread()) {
    write_here();
    return;
  }
  wait_idle();
  {
    const std::lock_guard lock(thread_->mutex);
    thread_->piece = buf_;
  }
  thread_->changed.notify_all();
  buf_ = buf_ == &pieces_[0] ? &pieces_[1] : &pieces_[0];
}

void OutBuffer::flush() {
  rethrow_failure();
  if (!thread_) {
    // No thread: for what fits in one piece, or when none could be started.
    if (buf_->size() != 0) write_here();
    return;
  }
  hand_over();
  wait_idle();
}

}  // namespace strix
