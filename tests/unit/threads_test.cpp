// The thread budget and the pool the command line cannot pin down:
// STRIX_THREADS and cgroup quotas as caps, the queues' jobs handed on in
// order with their exceptions.
#include "strix/jobs.h"
#include "strix/share.h"

#include <algorithm>   // std::max
#include <cstdlib>     // setenv
#include <filesystem>  // std::filesystem
#include <fstream>     // std::ofstream
#include <memory>      // std::make_unique
#include <sstream>     // std::istringstream
#include <stdexcept>   // std::runtime_error
#include <string>      // std::to_string
#include <vector>      // std::vector

#include <gtest/gtest.h>

#include "strix/cgroup.h"

namespace {

#ifdef _WIN32
// The C runtime has one call for both; an empty value unsets.
int setenv(const char* name, const char* value, int) {
  return _putenv_s(name, value);
}
int unsetenv(const char* name) {
  return _putenv_s(name, "");
}
#endif

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
    EXPECT_EQ(strix::Pool(0).threads(), want) << value;
  }
  unsetenv("STRIX_THREADS");
  // A Zstandard frame has workers on one thread too: its bytes are those of
  // every other count.
  EXPECT_EQ(strix::zstd_workers(1), 2u);
  EXPECT_EQ(strix::zstd_workers(5), 5u);
}

// A directory laid out as "/" with /proc/self/{cgroup,mountinfo} and the
// quota files ("name=text|..."): v2 and v1, a container's mount that shows
// only its own cgroup, quotas of ancestors, an escaped blank in a mount point.
TEST(Threads, CgroupQuota) {
  namespace fs = std::filesystem;
  const std::string v2_at = "mountinfo=9 1 0:2 / /sys/fs/cgroup rw - cgroup2 c rw\n|",
                    v2 = "cgroup=0::/a/b\n|" + v2_at, b = "sys/fs/cgroup/a/b/cpu.max=",
                    a = "sys/fs/cgroup/a/cpu.max=", j = "c g/k/j/cpu.cfs_",
                    v1 = "cgroup=3:memory:/x\n5:cpuacct,cpu:/k/j\n|mountinfo=7 1 0:3 / /c\\040g "
                         "rw shared:4 - cgroup c rw,cpuacct,cpu\n8 1 0:4 / /m rw - cgroup c "
                         "rw,memory\n|m/k/j/cpu.cfs_quota_us=1|m/k/j/cpu.cfs_period_us=1|";
  const std::vector<std::pair<std::string, unsigned>> cases{
      {v2 + b + "150000 100000\n", 2},
      {v2 + b + "max 100000", 0},
      {v2 + b + "20000 100000|" + a + "max 1", 1},
      {v2 + b + "800 100|" + a + "300 100", 3},
      {v2 + "sys/fs/cgroup/cpu.max=1 1|" + a + "5 1", 1},
      {"cgroup=0::/a/b|mountinfo=9 1 0:2 /a /sys/fs/cgroup rw - cgroup2 c rw|" + a + "1 1|" +
           "sys/fs/cgroup/b/cpu.max=4 1",
       4},
      {"cgroup=0::/a/bc|mountinfo=9 1 0:2 /a/b /sys/fs/cgroup rw - cgroup2 c rw|" + a + "1 1", 0},
      {"cgroup=0::/a/b|mountinfo=9 1 0:2 /a/b /sys/fs/cgroup rw - cgroup2 c rw|" + a + "2 1|" +
           "sys/fs/cgroup/cpu.max=3 1",
       3},
      {v1 + j + "quota_us=250000|" + j + "period_us=100000", 3},
      {v1 + j + "quota_us=-1|" + j + "period_us=100000", 0},
      {"cgroup=5:cpu:/a/b|" + v2_at + b + "1 1", 0},
      {v2_at + b + "1 1", 0},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const fs::path root = fs::path(testing::TempDir()) / ("strix-root-" + std::to_string(i));
    fs::remove_all(root);
    std::istringstream files(cases[i].first);
    for (std::string entry; std::getline(files, entry, '|');) {
      const std::string name = entry.substr(0, entry.find('='));
      const fs::path file = root / (name.find('/') == std::string::npos ? "proc/self" : "") / name;
      fs::create_directories(file.parent_path());
      std::ofstream(file) << entry.substr(name.size() + 1);
    }
    EXPECT_EQ(strix::cgroup_cpu_quota(root), cases[i].second) << cases[i].first;
    fs::remove_all(root);
  }
  EXPECT_EQ(strix::cgroup_cpu_quota("/nonexistent"), 0u);
}

// Two queues on one pool, as a writer's pieces and the deflate chunks they
// become: a piece handed on submits a chunk to the second queue.
TEST(Threads, QueuesHandOnInOrder) {
  struct Job : strix::JobQueue::Job {
    Job(std::vector<int>* out_, int i_, strix::JobQueue* next_) : out(out_), i(i_), next(next_) {}
    void run() override { ran = i == 37 ? throw std::runtime_error("37") : true; }
    void hand_on() override {  // after it ran
      if (next) return next->submit(std::make_unique<Job>(out, i, nullptr));
      out->push_back(ran ? i : -1);
    }
    std::vector<int>* out;
    int i;
    strix::JobQueue* next;
    bool ran = false;
  };
  for (const unsigned threads : {1u, 2u, 5u}) {
    std::vector<int> out, want;
    strix::Pool pool(threads);
    strix::JobQueue chunks(pool), pieces(pool);
    for (int i = 0; i < 37; ++i)
      pieces.submit(std::make_unique<Job>(&out, want.emplace_back(i), &chunks));
    // The failure in its turn, then from every later call; nothing after it.
    EXPECT_THROW(
        for (int i = 37; i < 50; ++i) pieces.submit(std::make_unique<Job>(&out, i, &chunks));
        pieces.finish(), std::runtime_error);
    EXPECT_THROW(pieces.finish(), std::runtime_error);
    chunks.finish();
    EXPECT_EQ(out, want) << threads;
  }
}

}  // namespace
