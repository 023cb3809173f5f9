// The pool's threads and the ordered queues of jobs that run on them.
//
// Threading contract:
// - A queue belongs to one thread, its owner, which submits jobs and hands
//   their results on, strictly in the order of submission. Several queues
//   may share a pool, each with its own owner or one owner for all (a
//   writer's pieces and the deflate chunks they become).
// - A job's run() happens once, on a pool thread or on the thread of any
//   queue's owner while that owner waits; its hand_on() happens on its
//   queue's owner, after run() has ended. run() must not wait for other jobs.
// - The pool's threads take the oldest job submitted to any of its queues.
//   An owner that waits for its oldest job runs the pool's oldest untaken job
//   meanwhile, and sleeps only when there is none.
// - Bound: in one queue, at most kJobsPerThread jobs per thread of the pool
//   (the owner's counted) and kJobsAhead more wait to be run or run, and
//   kJobsAhead more again are in flight, done ones counted (limits.h); a
//   submission beyond either first hands on the oldest.
// - No threads (a pool of one, or none could start): a job runs and is
//   handed on at once, on the owner's thread, so callers need no second path.
// - Failure: a job's or a hand-on's exception is thrown to the owner from the
//   submit() or finish() that meets it, and from every later one; the queue's
//   jobs in flight are then dropped, not handed on.
// - Unwinding: a queue's destructor waits for its jobs that threads are
//   running and drops every one in flight, handing none on. Queues end before
//   their pool.
#pragma once

#include <condition_variable>  // std::condition_variable
#include <cstddef>             // std::size_t
#include <deque>               // std::deque
#include <exception>           // std::exception_ptr
#include <memory>              // std::unique_ptr
#include <mutex>               // std::mutex
#include <thread>              // std::thread
#include <vector>              // std::vector

#include "strix/pool.h"

namespace strix {

class JobQueue {
 public:
  struct Job {
    virtual ~Job() = default;
    // Formats, compresses or reads: on any thread, once.
    virtual void run() = 0;
    // Passes the result on: on the queue owner's thread, after run().
    virtual void hand_on() = 0;
  };

  explicit JobQueue(Pool& pool) : pool_(*pool.state_) {}
  ~JobQueue();

  JobQueue(const JobQueue&) = delete;
  JobQueue& operator=(const JobQueue&) = delete;

  // Queues a job; `ready`: it has nothing to run and waits only for its turn
  // to be handed on.
  void submit(std::unique_ptr<Job> job, bool ready = false);
  // Hands on every job in flight, in order.
  void finish();

 private:
  struct Entry {
    std::unique_ptr<Job> job;    // set at submission, then only read
    JobQueue* queue;             // the queue it is in flight in
    std::exception_ptr failure;  // written by whoever runs the job, before `done`
    bool taken = false;          // guarded by the pool's mutex: a thread runs it
    bool done = false;           // guarded: run, or submitted ready
  };
  friend struct Pool::State;
  void hand_on_oldest();
  void fail(std::exception_ptr failure);
  void drop() noexcept;

  Pool::State& pool_;
  std::exception_ptr failed_;  // the first failure, rethrown from then on
  // The owner pushes at the back and pops at the front, so the size changes
  // on the owner's thread only, which may read it without the lock. A job's
  // Entry stays where it is while a thread runs it: a deque's references
  // survive insertion and removal at either end, and the owner removes only
  // entries that are done or not yet taken.
  std::deque<Entry> entries_;
  std::size_t unfinished_ = 0;  // guarded by the pool's mutex: entries not done
};

struct Pool::State {
  explicit State(unsigned threads_) : threads(threads_) {}
  ~State();

  // Starts the threads besides the owner's, if not yet tried; the lock is
  // held.
  void start();
  // Runs the oldest untaken job with the lock released meanwhile; false if
  // there is none.
  bool run_oldest(std::unique_lock<std::mutex>& lock);
  void work();

  const unsigned threads;  // the pool's size, the owner's thread counted
  std::mutex mutex;
  // Guarded by mutex: jobs submitted to any queue and not yet taken, oldest
  // first.
  std::deque<JobQueue::Entry*> untaken;
  std::size_t in_flight = 0;         // guarded: submitted and not handed on, in all queues
  bool started = false;              // guarded: start() was tried
  bool stopping = false;             // guarded: set by the destructor; threads end
  std::condition_variable queued;    // threads wait here for untaken jobs or stopping
  std::condition_variable finished;  // owners wait here for a job's `done`
  std::vector<std::thread> workers;  // filled by start() under the lock, joined by ~State
};

}  // namespace strix
