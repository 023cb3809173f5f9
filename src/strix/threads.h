// Threads: how many a conversion may keep busy, how formatting and
// compression share them, and the pipeline that runs jobs on them and hands
// the results on in the order the jobs were submitted.
#pragma once

#include <condition_variable>  // std::condition_variable
#include <cstddef>             // std::size_t
#include <deque>               // std::deque
#include <exception>           // std::exception_ptr
#include <memory>              // std::unique_ptr
#include <mutex>               // std::mutex
#include <thread>              // std::thread
#include <vector>              // std::vector

namespace strix {

// The processors this process may run on, capped by its CPU quota (both as
// the system tells them: platform/process.h) and by STRIX_THREADS=N when
// that is a positive integer; any other value is ignored. At least 1.
unsigned machine_threads();

// The threads a caller may use: `requested`, or where that is 0, all that
// machine_threads() gives.
unsigned thread_budget(unsigned requested);

enum class Compression { none, zstd, gzip };

// How a conversion's threads are spent. The writer's own thread formats,
// hands finished pieces to the stream buffer in order and, for gzip,
// deflates chunks while it would otherwise wait. `format`: the threads that
// format, the writer's among them (at least 1); `compress`: the threads that
// compress (at least one when there is a compression). The threads started
// besides the writer's, format - 1 + compress, never exceed the count, or two
// for Zstandard.
struct ThreadShare {
  unsigned format;
  unsigned compress;
};
ThreadShare share_threads(unsigned threads, Compression compression);

// A bounded, ordered pipeline of jobs. One thread, the caller, submits jobs;
// each runs once, on one of the pipeline's threads or on the caller's, and
// is then handed on by the caller, strictly in the order of submission.
//
// - Bound: at most kJobsPerThread jobs per thread (the caller's counted) are
//   in flight; a submission beyond that first hands on the oldest.
// - Waiting: while the oldest job is not done, the caller runs the oldest
//   job that no thread has taken yet, and only sleeps when there is none.
// - No threads (none wanted, or none could start): a job runs and is handed
//   on at once, on the caller's thread, so callers need no second path.
//   Threads start when a job is submitted while another is in flight, so a
//   lone job, as in a small document, starts none.
// - Failure: a job's or a hand-on's exception is thrown to the caller from
//   the submit() or finish() that meets it, and from every later one; the
//   jobs in flight are then dropped, not handed on.
// - Unwinding: the destructor waits for the jobs that threads are running
//   and drops every job in flight, handing none on.
class Pipeline {
 public:
  struct Job {
    virtual ~Job() = default;
    // Formats or compresses: on any thread, at most one at a time per job.
    virtual void run() = 0;
    // Passes the result on: on the caller's thread, after run().
    virtual void hand_on() = 0;
  };

  explicit Pipeline(unsigned threads) : wanted_(threads) {}
  ~Pipeline();

  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  // Queues a job; `ready`: it has nothing to run and waits only for its turn
  // to be handed on.
  void submit(std::unique_ptr<Job> job, bool ready = false);
  // Hands on every job in flight, in order.
  void finish();

 private:
  struct Entry {
    std::unique_ptr<Job> job;    // set at submission, then only read
    std::exception_ptr failure;  // written by whoever runs the job, before `done`
    bool done = false;           // written under mutex_
  };
  void start();
  void work();
  void run_next(std::unique_lock<std::mutex>& lock);
  void hand_on_oldest();
  void fail(std::exception_ptr failure);
  void drop() noexcept;

  // The caller's alone, never read by the threads.
  unsigned wanted_;
  bool started_ = false;
  std::size_t depth_ = 0;      // the bound on jobs in flight, once started
  std::exception_ptr failed_;  // the first failure, rethrown from then on

  std::mutex mutex_;
  // Guarded by mutex_: the caller pushes at the back and pops at the front,
  // so its size changes on the caller's thread only, which may read it
  // without the lock. A thread (or the caller) takes entries_[next_] and,
  // with the lock released, runs its job and writes its failure. That
  // reference stays valid meanwhile: a deque's references survive insertion
  // and removal at either end, and the caller removes only entries that are
  // done or not yet taken.
  std::deque<Entry> entries_;
  std::size_t next_ = 0;            // guarded: index of the oldest entry no thread has taken
  bool stopping_ = false;           // guarded: set by the destructor; threads end
  std::condition_variable queued_;  // threads wait here for entries or stopping_
  std::condition_variable done_;    // the caller waits here for an entry's `done`
  // The caller's alone: filled by start(), joined by the destructor.
  std::vector<std::thread> threads_;
};

}  // namespace strix
