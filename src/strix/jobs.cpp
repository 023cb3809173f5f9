#include "strix/jobs.h"

#include <algorithm>  // std::all_of
#include <exception>  // std::exception

#include "strix/limits.h"
#include "strix/share.h"

namespace strix {

Pool::Pool(unsigned threads) : state_(std::make_unique<State>(thread_budget(threads))) {}

Pool::~Pool() = default;

unsigned Pool::threads() const noexcept {
  return state_->threads;
}

Pool::State::~State() {
  {
    const std::lock_guard lock(mutex);
    stopping = true;
  }
  queued.notify_all();
  for (std::thread& t : workers) t.join();
}

void Pool::State::start() {
  started = true;
  try {
    for (unsigned i = 1; i < threads; ++i) workers.emplace_back([this] { work(); });
  } catch (const std::exception&) {
    // No thread or no memory for one: fewer threads, or none, and the
    // owners run what they cannot.
  }
}

void Pool::State::work() {
  std::unique_lock lock(mutex);
  for (;;) {
    queued.wait(lock, [&] { return stopping || !untaken.empty(); });
    if (stopping) return;
    run_oldest(lock);
  }
}

bool Pool::State::run_oldest(std::unique_lock<std::mutex>& lock) {
  if (untaken.empty()) return false;
  JobQueue::Entry& entry = *untaken.front();
  untaken.pop_front();
  entry.taken = true;
  lock.unlock();
  try {
    entry.job->run();
  } catch (...) {
    entry.failure = std::current_exception();
  }
  lock.lock();
  entry.done = true;
  --entry.queue->unfinished_;
  finished.notify_all();
  return true;
}

JobQueue::~JobQueue() {
  drop();
}

void JobQueue::submit(std::unique_ptr<Job> job, bool ready) {
  if (failed_) std::rethrow_exception(failed_);
  std::unique_lock lock(pool_.mutex);
  if (!pool_.started && pool_.in_flight > 0) pool_.start();
  if (pool_.started && pool_.workers.empty()) {
    lock.unlock();
    finish();  // jobs queued before it was known that no thread would come
    try {
      if (!ready) job->run();
      job->hand_on();
    } catch (...) {
      fail(std::current_exception());
    }
    return;
  }
  // Done jobs behind a slow oldest one count only towards the hard bound:
  // while the owner waits for it with nothing left to run, a core would idle
  // that could run the jobs the owner submits next.
  const std::size_t depth = kJobsPerThread * (pool_.workers.size() + 1) + kJobsAhead;
  while (pool_.started && (unfinished_ >= depth || entries_.size() >= depth + kJobsAhead)) {
    lock.unlock();
    hand_on_oldest();
    lock.lock();
  }
  Entry& entry = entries_.emplace_back(Entry{std::move(job), this, {}, false, ready});
  ++pool_.in_flight;
  if (ready) return;
  ++unfinished_;
  pool_.untaken.push_back(&entry);
  lock.unlock();
  pool_.queued.notify_one();
}

void JobQueue::finish() {
  if (failed_) std::rethrow_exception(failed_);
  while (!entries_.empty()) hand_on_oldest();
}

void JobQueue::hand_on_oldest() {
  std::unique_lock lock(pool_.mutex);
  while (!entries_.front().done) {
    if (!pool_.run_oldest(lock)) pool_.finished.wait(lock);
  }
  Entry entry = std::move(entries_.front());
  entries_.pop_front();
  --pool_.in_flight;
  lock.unlock();
  try {
    if (entry.failure) std::rethrow_exception(entry.failure);
    entry.job->hand_on();
  } catch (...) {
    fail(std::current_exception());
  }
}

// Records the first failure, drops what is in flight and throws.
void JobQueue::fail(std::exception_ptr failure) {
  failed_ = failure;
  drop();
  std::rethrow_exception(failure);
}

// Takes this queue's untaken jobs back, waits for those that are running,
// and drops them all.
void JobQueue::drop() noexcept {
  std::unique_lock lock(pool_.mutex);
  std::erase_if(pool_.untaken, [&](const Entry* e) { return e->queue == this; });
  pool_.finished.wait(lock, [&] {
    return std::all_of(entries_.begin(), entries_.end(),
                       [](const Entry& e) { return e.done || !e.taken; });
  });
  pool_.in_flight -= entries_.size();
  entries_.clear();
  unfinished_ = 0;
}

}  // namespace strix
