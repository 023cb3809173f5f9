// The thread budget and the pipeline the command line cannot pin down:
// shares that stay within the count, STRIX_THREADS as a cap, jobs handed on
// in order with their exceptions.
#include "strix/threads.h"

#include <algorithm>  // std::max
#include <cstdlib>    // setenv
#include <memory>     // std::make_unique
#include <stdexcept>  // std::runtime_error
#include <string>     // std::to_string
#include <vector>     // std::vector

#include <gtest/gtest.h>

namespace {

using strix::Compression;

TEST(Threads, SharesStayWithinTheCount) {
  for (unsigned n = 1; n <= 64; ++n) {
    for (const Compression c : {Compression::none, Compression::zstd, Compression::gzip}) {
      const strix::ThreadShare s = strix::share_threads(n, c);
      EXPECT_LE(s.format - 1 + s.compress, std::max(n, 2u)) << n;  // besides the writer's
      EXPECT_GE(s.format, 1u) << n;
      EXPECT_EQ(s.compress == 0, c == Compression::none) << n;
    }
  }
  // Plain text: every thread formats; compressed, most compress.
  EXPECT_EQ(strix::share_threads(8, Compression::none).format, 8u);
  EXPECT_EQ(strix::share_threads(2, Compression::zstd).compress, 2u);
  EXPECT_EQ(strix::share_threads(16, Compression::zstd).format, 4u);
  EXPECT_EQ(strix::share_threads(16, Compression::gzip).format, 5u);
}

TEST(Threads, EnvironmentCapsTheMachine) {
  unsetenv("STRIX_THREADS");
  const unsigned machine = strix::machine_threads();
  ASSERT_GE(machine, 1u);
  for (const auto& [value, want] :
       std::vector<std::pair<std::string, unsigned>>{{"1", 1},
                                                     {"1000000", machine},
                                                     {"0", machine},
                                                     {"-1", machine},
                                                     {"2x", machine},
                                                     {" 1", machine},
                                                     {"", machine}}) {
    setenv("STRIX_THREADS", value.c_str(), 1);
    EXPECT_EQ(strix::machine_threads(), want) << value;
  }
  unsetenv("STRIX_THREADS");
}

TEST(Threads, PipelineHandsOnInOrder) {
  struct Job : strix::Pipeline::Job {
    Job(std::vector<int>* out_, int i_) : out(out_), i(i_) {}
    void run() override { ran = i == 37 ? throw std::runtime_error("37") : true; }
    void hand_on() override { out->push_back(ran ? i : -1); }  // after it ran
    std::vector<int>* out;
    int i;
    bool ran = false;
  };
  for (const unsigned threads : {0u, 1u, 3u}) {
    std::vector<int> out, want;
    strix::Pipeline pipeline(threads);
    for (int i = 0; i < 37; ++i) pipeline.submit(std::make_unique<Job>(&out, want.emplace_back(i)));
    // The failure in its turn, then from every later call; nothing after it.
    EXPECT_THROW(for (int i = 37; i < 50; ++i) pipeline.submit(std::make_unique<Job>(&out, i));
                 pipeline.finish(), std::runtime_error);
    EXPECT_THROW(pipeline.finish(), std::runtime_error);
    EXPECT_EQ(out, want) << threads;
  }
}

}  // namespace
