// The threads a conversion or a read works on.
//
// `threads`, wherever strix takes it (here, the writers, gzip::streambuf,
// read_solution_files, ConvertOptions, the C and Python interfaces): the
// most threads the call's work runs on at once, the calling thread's among
// them; 0 is as many as the machine gives the process (its processors and
// CPU quota), capped by STRIX_THREADS=N where that is a positive integer.
// The results are the same for every count.
#pragma once

#include <memory>  // std::unique_ptr

namespace strix {

class JobQueue;

// One set of threads that every parallel job of a conversion or a read
// shares: a writer's pieces, gzip's deflate chunks, the files of a read of
// many. Whatever job is oldest runs next, so the share between formatting
// and compression follows the work. The threads start with the first job
// that would otherwise wait, so a small document starts none; the calling
// thread works too while it waits for a result. A pool outlives the writers,
// stream buffers and reads given it, and is used from one thread at a time.
class Pool {
 public:
  explicit Pool(unsigned threads = 0);
  ~Pool();

  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  // The count the pool was sized to, the caller's thread among them.
  unsigned threads() const noexcept;

 private:
  friend class JobQueue;
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace strix
