#include "strix/threads.h"

#include <sched.h>  // sched_getaffinity

#include <algorithm>  // std::max
#include <charconv>   // std::from_chars
#include <cstdlib>    // std::getenv
#include <cstring>    // std::strlen
#include <exception>  // std::exception

#include "strix/cgroup.h"

namespace strix {

unsigned machine_threads() {
  unsigned n = std::max(1u, std::thread::hardware_concurrency());
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) == 0) n = std::max(1, CPU_COUNT(&set));
  if (const unsigned quota = cgroup_cpu_quota()) n = std::min(n, quota);
  if (const char* cap = std::getenv("STRIX_THREADS")) {
    unsigned value = 0;
    const char* end = cap + std::strlen(cap);
    const auto [ptr, ec] = std::from_chars(cap, end, value);
    if (ec == std::errc() && ptr == end && value > 0) n = std::min(n, value);
  }
  return n;
}

ThreadShare share_threads(unsigned threads, Compression compression) {
  threads = std::max(threads, 1u);
  if (compression == Compression::none) return {threads >= 2 ? threads : 0, 0};
  // CPU time of compressing the text against formatting it, in tenths, as
  // measured on 17-digit documents (bench/): level 3 Zstandard costs some
  // 3.7 times the formatting, the gzip engine some twice. The share that
  // finishes both soonest wins. A single formatting thread gains nothing
  // over the writer formatting on its own, so that share is 0.
  const unsigned ratio = compression == Compression::zstd ? 37 : 20;
  ThreadShare best{0, threads};
  unsigned best_time = ~0u;
  for (unsigned f = 0; f < threads; ++f) {
    if (f == 1) continue;
    const unsigned c = threads - f;
    const unsigned format_time = 10 * 1000 / std::max(f, 1u);
    const unsigned compress_time = ratio * 1000 / c;
    const unsigned time = std::max(format_time, compress_time);
    if (time < best_time) best = {f, c}, best_time = time;
  }
  return best;
}

OrderedPool::~OrderedPool() {
  drain();
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  queued_.notify_all();
  for (std::thread& t : workers_) t.join();
}

void OrderedPool::start() {
  started_ = true;
  try {
    for (unsigned i = 0; i < wanted_; ++i) workers_.emplace_back([this] { run(); });
  } catch (const std::exception&) {
    // No thread or no memory for one: fewer threads, or none: the caller's thread runs what they
    // cannot.
  }
}

void OrderedPool::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    queued_.wait(lock, [&] { return stopping_ || next_ < jobs_.size(); });
    if (stopping_) return;
    Job& job = jobs_[next_++];
    lock.unlock();
    try {
      job.work();
    } catch (...) {
      job.failure = std::current_exception();
    }
    lock.lock();
    job.done = true;
    finished_.notify_all();
  }
}

void OrderedPool::submit(std::function<void()> work) {
  if (!started_) start();
  if (workers_.empty()) {
    Job& job = jobs_.emplace_back(Job{std::move(work), {}, true});
    ++next_;
    try {
      job.work();
    } catch (...) {
      job.failure = std::current_exception();
    }
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(Job{std::move(work), {}, false});
  }
  queued_.notify_one();
}

void OrderedPool::finish_oldest() {
  std::exception_ptr failure;
  {
    std::unique_lock lock(mutex_);
    finished_.wait(lock, [&] { return jobs_.front().done; });
    failure = jobs_.front().failure;
    jobs_.pop_front();
    --next_;
  }
  if (failure) std::rethrow_exception(failure);
}

void OrderedPool::drain() noexcept {
  while (!jobs_.empty()) {
    try {
      finish_oldest();
    } catch (...) {
    }
  }
}

}  // namespace strix

namespace strix {

unsigned thread_budget(unsigned requested) {
  return requested == 0 ? machine_threads() : requested;
}

}  // namespace strix
