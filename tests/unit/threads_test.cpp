// The thread budget and the pool the command line cannot pin down: shares
// that stay within the count, STRIX_THREADS as a cap, jobs handed back in
// order with their exceptions.
#include "strix/threads.h"

#include <cstdlib>    // setenv
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
      EXPECT_LE(s.format + s.compress, n) << n;
      EXPECT_NE(s.format, 1u) << n;  // one pool thread gains nothing over the writer
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

TEST(Threads, PoolHandsBackInOrder) {
  for (const unsigned threads : {0u, 1u, 3u}) {
    strix::OrderedPool pool(threads);
    std::vector<int> done(50, -1);
    for (int i = 0; i < 50; ++i) {
      pool.submit([&done, i] {
        if (i == 7) throw std::runtime_error("seven");
        done[i] = i;
      });
    }
    for (int i = 0; i < 50; ++i) {
      if (i == 7) {
        EXPECT_THROW(pool.finish_oldest(), std::runtime_error);
      } else {
        EXPECT_NO_THROW(pool.finish_oldest());
        EXPECT_EQ(done[i], i);  // finished when handed back
      }
    }
    EXPECT_EQ(pool.in_flight(), 0u);
    EXPECT_EQ(pool.threads(), threads);
  }
}

}  // namespace
