// Threads: how many a conversion may keep busy, how formatting and
// compression share them, and the pool that runs jobs and gives them back
// in the order they were queued.
#pragma once

#include <condition_variable>  // std::condition_variable
#include <cstddef>             // std::size_t
#include <deque>               // std::deque
#include <exception>           // std::exception_ptr
#include <functional>          // std::function
#include <mutex>               // std::mutex
#include <thread>              // std::thread
#include <vector>              // std::vector

namespace strix {

// The processors this process may run on (its affinity mask, which taskset,
// cgroup cpusets and batch schedulers set), capped by the CPU quota of its
// cgroups (containers; cgroup.h) and by STRIX_THREADS=N when that is a
// positive integer; any other value is ignored. At least 1.
unsigned machine_threads();

// What a conversion's threads do besides the one that hands finished pieces
// to the file: `format` pool threads format (0: the writer formats on its own
// thread), `compress` threads compress (at least one when there is a
// compression). Together they never exceed the count they share.
enum class Compression { none, zstd, gzip };
struct ThreadShare {
  unsigned format;
  unsigned compress;
};
ThreadShare share_threads(unsigned threads, Compression compression);

// A fixed set of threads running queued jobs. Jobs are handed back strictly
// in the order they were queued: finish_oldest() waits for the oldest and
// rethrows what it threw. With no threads (none wanted, or none to be had)
// a job runs at once on the caller's thread, so callers need no second path.
class OrderedPool {
 public:
  // Starts the threads at the first job, not before.
  explicit OrderedPool(unsigned threads) : wanted_(threads) {}
  // Waits for the jobs still running; what they threw is dropped.
  ~OrderedPool();

  OrderedPool(const OrderedPool&) = delete;
  OrderedPool& operator=(const OrderedPool&) = delete;

  // Threads running jobs (0 before the first job, or where none could start).
  unsigned threads() const { return static_cast<unsigned>(workers_.size()); }
  std::size_t in_flight() const { return jobs_.size(); }
  void submit(std::function<void()> work);
  // Waits for the oldest job, removes it, and rethrows its exception.
  void finish_oldest();
  // Waits for every job; exceptions are dropped (for unwinding).
  void drain() noexcept;

 private:
  struct Job {
    std::function<void()> work;
    std::exception_ptr failure;
    bool done = false;
  };
  void start();
  void run();

  unsigned wanted_;
  bool started_ = false;
  std::mutex mutex_;
  std::condition_variable queued_, finished_;
  std::deque<Job> jobs_;  // in order of submission, until finished_oldest()
  std::size_t next_ = 0;  // index into jobs_ of the first job not yet taken
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

}  // namespace strix

namespace strix {

// The threads a caller may use: `requested`, or where that is 0, all that
// machine_threads() gives.
unsigned thread_budget(unsigned requested);

}  // namespace strix
