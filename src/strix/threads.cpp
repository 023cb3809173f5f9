#include "strix/threads.h"

#include <algorithm>  // std::max
#include <charconv>   // std::from_chars
#include <cstdlib>    // std::getenv
#include <cstring>    // std::strlen
#include <exception>  // std::exception

#include "strix/limits.h"
#include "strix/platform/process.h"

namespace strix {

unsigned machine_threads() {
  unsigned n = platform::processor_count();
  if (const char* cap = std::getenv("STRIX_THREADS")) {
    unsigned value = 0;
    const char* end = cap + std::strlen(cap);
    const auto [ptr, ec] = std::from_chars(cap, end, value);
    if (ec == std::errc() && ptr == end && value > 0) n = std::min(n, value);
  }
  return n;
}

unsigned thread_budget(unsigned requested) {
  return requested == 0 ? machine_threads() : requested;
}

ThreadShare share_threads(unsigned threads, Compression compression) {
  threads = std::max(threads, 1u);
  if (compression == Compression::none) return {threads, 0};
  // CPU time of compressing the text against formatting it, in tenths, as
  // measured on one core on 17-digit documents (docs/benchmark.md): level 3
  // Zstandard costs 4.3 times the JSON's formatting, the gzip engine 2.0
  // times the JSON's and 3.1 times the report's; the JSON's ratio serves
  // for both forms. The share that finishes both soonest wins.
  //
  // Zstandard's workers compress alone, so every thread besides the
  // writer's may be one. Zstandard keeps two workers on a single thread
  // too: with one, the library waits for its worker between jobs, and a
  // conversion on one core took longer.
  //
  // gzip's writer formats and deflates, whichever it would otherwise wait
  // for, so it joins the stage that lags: every stage may count it, and all
  // the threads together bound the time. A tie goes to formatting, whose
  // share of the work grows as the text compresses better (on round values
  // the gzip engine costs less than formatting).
  const bool gzip = compression == Compression::gzip;
  const unsigned ratio = gzip ? 20 : 43;
  const unsigned others = gzip ? threads : std::max(threads, 2u);
  ThreadShare best{1, others};
  unsigned best_time = ~0u;
  for (unsigned format = 1; format <= others; ++format) {
    const unsigned compress = others - (format - 1);
    unsigned time = std::max(10 * 1000 / format, ratio * 1000 / (gzip ? compress + 1 : compress));
    if (gzip) time = std::max(time, (10 + ratio) * 1000 / (format + compress));
    if (time < best_time || (gzip && time == best_time))
      best = {format, compress}, best_time = time;
  }
  return best;
}

Pipeline::~Pipeline() {
  drop();
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  queued_.notify_all();
  for (std::thread& t : threads_) t.join();
}

void Pipeline::start() {
  started_ = true;
  try {
    for (unsigned i = 0; i < wanted_; ++i) threads_.emplace_back([this] { work(); });
  } catch (const std::exception&) {
    // No thread or no memory for one: fewer threads, or none, and the
    // caller runs what they cannot.
  }
  depth_ = kJobsPerThread * (threads_.size() + 1);
}

void Pipeline::work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    queued_.wait(lock, [&] { return stopping_ || next_ < entries_.size(); });
    if (stopping_) return;
    run_next(lock);
  }
}

// Runs the oldest entry not yet taken, with the lock released meanwhile.
void Pipeline::run_next(std::unique_lock<std::mutex>& lock) {
  Entry& entry = entries_[next_++];
  if (entry.done) return;  // submitted ready
  lock.unlock();
  try {
    entry.job->run();
  } catch (...) {
    entry.failure = std::current_exception();
  }
  lock.lock();
  entry.done = true;
  done_.notify_one();
}

void Pipeline::submit(std::unique_ptr<Job> job, bool ready) {
  if (failed_) std::rethrow_exception(failed_);
  if (!started_ && (wanted_ == 0 || !entries_.empty())) start();
  if (started_ && threads_.empty()) {
    finish();  // a job queued before it was known that no thread would come
    try {
      if (!ready) job->run();
      job->hand_on();
    } catch (...) {
      fail(std::current_exception());
    }
    return;
  }
  while (started_ && entries_.size() >= depth_) hand_on_oldest();
  {
    const std::lock_guard lock(mutex_);
    entries_.push_back(Entry{std::move(job), {}, ready});
  }
  if (!ready) queued_.notify_one();
}

void Pipeline::finish() {
  if (failed_) std::rethrow_exception(failed_);
  while (!entries_.empty()) hand_on_oldest();
}

void Pipeline::hand_on_oldest() {
  std::unique_lock lock(mutex_);
  while (!entries_.front().done) {
    if (next_ < entries_.size()) {
      run_next(lock);
    } else {
      done_.wait(lock);
    }
  }
  Entry entry = std::move(entries_.front());
  entries_.pop_front();
  if (next_ > 0) --next_;  // else it was submitted ready and never taken
  lock.unlock();
  try {
    if (entry.failure) std::rethrow_exception(entry.failure);
    entry.job->hand_on();
  } catch (...) {
    fail(std::current_exception());
  }
}

// Records the first failure, drops what is in flight and throws.
void Pipeline::fail(std::exception_ptr failure) {
  failed_ = failure;
  drop();
  std::rethrow_exception(failure);
}

// Waits for the jobs that are running; drops them and every queued one.
void Pipeline::drop() noexcept {
  std::unique_lock lock(mutex_);
  entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(next_), entries_.end());
  done_.wait(lock, [&] {
    for (const Entry& entry : entries_) {
      if (!entry.done) return false;
    }
    return true;
  });
  entries_.clear();
  next_ = 0;
}

}  // namespace strix
