#include "strix/cgroup.h"

#include <algorithm>    // std::min
#include <charconv>     // std::from_chars
#include <cstdint>      // std::int64_t
#include <fstream>      // std::ifstream
#include <limits>       // std::numeric_limits
#include <sstream>      // std::istringstream
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <utility>      // std::pair
#include <vector>       // std::vector

namespace strix {
namespace {

namespace fs = std::filesystem;

// The file's first two blank-separated words ("" when they are missing).
std::pair<std::string, std::string> first_words(const fs::path& file) {
  std::ifstream in(file);
  std::string a, b;
  in >> a >> b;
  return {a, b};
}

bool has_item(std::string_view list, std::string_view item) {
  for (std::size_t start = 0; start <= list.size();) {
    const std::size_t end = std::min(list.find(',', start), list.size());
    if (list.substr(start, end - start) == item) return true;
    start = end + 1;
  }
  return false;
}

// Processors for `quota` microseconds in every `period`, rounded up; 0 for
// no quota: "max" (v2), -1 (v1), or anything that is not a number.
unsigned processors(std::string_view quota, std::string_view period) {
  std::int64_t q = 0, p = 0;
  const auto whole = [](std::string_view s, std::int64_t& v) {
    const auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    return ec == std::errc() && ptr == s.data() + s.size() && v > 0;
  };
  if (!whole(quota, q) || !whole(period, p)) return 0;
  const std::int64_t n = q / p + (q % p != 0);
  return static_cast<unsigned>(std::min<std::int64_t>(n, std::numeric_limits<unsigned>::max()));
}

unsigned quota_in(const fs::path& dir, bool v2) {
  if (v2) {
    const auto [quota, period] = first_words(dir / "cpu.max");
    return processors(quota, period);
  }
  return processors(first_words(dir / "cpu.cfs_quota_us").first,
                    first_words(dir / "cpu.cfs_period_us").first);
}

// mountinfo writes a blank, tab, newline or backslash in a path as "\ooo".
std::string unescape(std::string_view s) {
  const auto octal = [s](std::size_t i) { return i < s.size() && s[i] >= '0' && s[i] <= '7'; };
  std::string out;
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && octal(i + 1) && octal(i + 2) && octal(i + 3)) {
      out += static_cast<char>((s[i + 1] - '0') * 64 + (s[i + 2] - '0') * 8 + (s[i + 3] - '0'));
      i += 3;
    } else {
      out += s[i];
    }
  }
  return out;
}

struct Membership {
  bool v2;           // the unified hierarchy, or a v1 hierarchy with the cpu controller
  std::string path;  // the cgroup, from the hierarchy's root
};

}  // namespace

unsigned cgroup_cpu_quota(const fs::path& root) {
  // One line per hierarchy, "ID:CONTROLLERS:PATH"; the v2 line is "0::PATH".
  std::vector<Membership> groups;
  std::ifstream cgroup(root / "proc/self/cgroup");
  for (std::string line; std::getline(cgroup, line);) {
    const std::size_t a = line.find(':'), b = line.find(':', a + 1);
    if (a == std::string::npos || b == std::string::npos) continue;
    const std::string_view controllers = std::string_view(line).substr(a + 1, b - a - 1);
    if (line.compare(0, a, "0") == 0 && controllers.empty()) {
      groups.push_back({true, line.substr(b + 1)});
    } else if (has_item(controllers, "cpu")) {
      groups.push_back({false, line.substr(b + 1)});
    }
  }

  // "ID PARENT DEV ROOT MOUNTPOINT OPTIONS [TAGS...] - TYPE SOURCE SUPEROPTIONS": the
  // hierarchy's cgroup ROOT is seen at MOUNTPOINT.
  unsigned least = 0;
  std::ifstream mounts(root / "proc/self/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    std::istringstream fields(line);
    std::string skip, shown, point, word, type, options;
    fields >> skip >> skip >> skip >> shown >> point;
    while (fields >> word && word != "-") {
    }
    fields >> type >> skip >> options;
    const bool v2 = type == "cgroup2";
    if (!v2 && !(type == "cgroup" && has_item(options, "cpu"))) continue;
    shown = unescape(shown);
    for (const Membership& group : groups) {
      // The cgroup must lie within what the mount shows: a container sees
      // its own cgroup and those below it, not its ancestors.
      if (group.v2 != v2) continue;
      std::string_view below = group.path;
      if (shown != "/") {
        if (!below.starts_with(shown) ||
            (below.size() > shown.size() && below[shown.size()] != '/')) {
          continue;
        }
        below.remove_prefix(shown.size());
      }
      const fs::path rel = fs::path(below).relative_path();
      if (std::find(rel.begin(), rel.end(), "..") != rel.end()) continue;
      // The quota of the mounted top and of every cgroup down to the process's own.
      fs::path dir = root / fs::path(unescape(point)).relative_path();
      for (auto part = rel.begin();; ++part) {
        const unsigned n = quota_in(dir, v2);
        if (n != 0 && (least == 0 || n < least)) least = n;
        if (part == rel.end()) break;
        dir /= *part;
      }
    }
  }
  return least;
}

}  // namespace strix
