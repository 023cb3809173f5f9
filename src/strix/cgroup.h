// The CPU quota a container or batch scheduler sets through cgroups.
#pragma once

#include <filesystem>  // std::filesystem::path

namespace strix {

// The processors the CPU quota of this process's cgroups allows, rounded
// up: the smallest over its own cgroup and the ancestors visible to it, of
// cgroup v2's cpu.max and cgroup v1's cpu.cfs_quota_us / cpu.cfs_period_us.
// 0 when there is no quota ("max", -1) or nothing can be read. The cgroups
// are found through /proc/self/cgroup and /proc/self/mountinfo under
// `root`, which stands for "/".
unsigned cgroup_cpu_quota(const std::filesystem::path& root = "/");

}  // namespace strix
