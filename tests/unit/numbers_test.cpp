// The writers' number formatting against two independent references: the
// formatting library's run-time path for the same format string, and the C
// library's printf for the report's "%24.16g". Inputs are chosen where
// digit generation goes wrong: every decade boundary and its neighbours,
// rounding that carries into a new decade, exact halves, the ends of the
// exact-arithmetic range, subnormals, and random bit patterns.
#include "strix/numbers.h"

#include <cfloat>   // DBL_MIN, DBL_MAX, DBL_TRUE_MIN
#include <cmath>    // std::nextafter, std::ldexp, std::pow
#include <cstdint>  // fixed-width integers
#include <cstdio>   // std::snprintf
#include <cstdlib>  // std::strtod
#include <cstring>  // std::memcpy
#include <limits>   // infinities, NaN
#include <memory>   // std::unique_ptr
#include <random>   // std::mt19937_64
#include <string>   // std::string
#include <vector>   // std::vector

#include <fmt/compile.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

namespace {

double from_bits(std::uint64_t bits) {
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

// strtod, not stod: subnormal results set ERANGE, which stod throws on.
double parse(const std::string& text) {
  return std::strtod(text.c_str(), nullptr);
}

void add_with_neighbours(std::vector<double>& values, double v) {
  for (const double x : {v, std::nextafter(v, 0.0), std::nextafter(v, DBL_MAX)}) {
    values.push_back(x);
    values.push_back(-x);
  }
}

std::vector<double> hard_values() {
  constexpr double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> values = {0.0,          -0.0,          inf,
                                -inf,         nan,           -nan,
                                DBL_TRUE_MIN, -DBL_TRUE_MIN, from_bits(0x000FFFFFFFFFFFFF),
                                DBL_MIN,      DBL_MAX,       -DBL_MAX};
  // Decade boundaries and their neighbours over the whole range; values
  // just below 10^k round up to it at 16 digits, or stay below at 17.
  for (int k = -323; k <= 308; ++k) add_with_neighbours(values, parse("1e" + std::to_string(k)));
  for (int k = -308; k <= 307; ++k) {
    add_with_neighbours(values, parse("9.9999999999999995e" + std::to_string(k)));
    add_with_neighbours(values, parse("9.999999999999999e" + std::to_string(k)));
  }
  // Powers of two: short binary values with long decimal expansions.
  for (int e = -1074; e <= 1023; ++e) add_with_neighbours(values, std::ldexp(1.0, e));
  // Exact halves at the 17th digit: n + 0.5 and n + 0.25 for 16-digit n are
  // doubles below 2^52, and so are their quarters.
  std::mt19937_64 rng(7);
  for (int i = 0; i < 2000; ++i) {
    const auto n = static_cast<double>(1000000000000000 + rng() % 3500000000000000);
    for (const double x : {n + 0.5, n + 0.25, n + 0.75, (n + 0.5) / 4, (n + 0.5) * 1024}) {
      add_with_neighbours(values, x);
    }
  }
  // Small round values, as solvers report bounds and counts.
  for (int i = -4000; i <= 4000; ++i) values.push_back(i / 8.0);
  for (int i = 0; i <= 1000; ++i) values.push_back(i / 1000.0);
  // Any bit pattern (NaN payloads included), and real-looking values.
  std::uniform_real_distribution<double> uniform(-1e6, 1e6);
  for (int i = 0; i < 200000; ++i) {
    values.push_back(from_bits(rng()));
    values.push_back(uniform(rng) * std::pow(10.0, static_cast<int>(rng() % 41) - 20));
  }
  return values;
}

// Each call writes into a heap block of exactly the room it is promised, so
// the address sanitizer sees a write past it.
TEST(Numbers, ShortestMatchesTheLibrary) {
  for (const double v : hard_values()) {
    const auto room = std::make_unique<char[]>(strix::kShortestRoom);
    char* end = strix::format_shortest(room.get(), v);
    const std::string expected = fmt::format(fmt::runtime("{}"), v);
    ASSERT_EQ(std::string(room.get(), end), expected) << fmt::format("{:a}", v);
    ASSERT_LE(expected.size(), strix::kMaxShortestSize);
  }
}

TEST(Numbers, ValueColumnMatchesTheLibraryAndPrintf) {
  for (const double v : hard_values()) {
    const auto room = std::make_unique<char[]>(strix::kValueColumnWidth);
    char* end = strix::format_value_column(room.get(), v);
    const std::string got(room.get(), end);
    ASSERT_EQ(got, fmt::format(fmt::runtime("{:24.16g}"), v)) << fmt::format("{:a}", v);
    if (std::isfinite(v)) {
      // printf right-aligns "inf" and "nan"; the library left-aligns them.
      char text[64];
      std::snprintf(text, sizeof text, "%24.16g", v);
      ASSERT_EQ(got, text) << fmt::format("{:a}", v);
    }
  }
}

// The objectives and the information items still use compiled formats;
// they must give the bytes of the same strings parsed at run time.
TEST(Numbers, CompiledFormatsMatchRuntime) {
  for (const double v : hard_values()) {
    ASSERT_EQ(fmt::format(FMT_COMPILE("{:.16g}"), v), fmt::format(fmt::runtime("{:.16g}"), v))
        << fmt::format("{:a}", v);
    ASSERT_EQ(fmt::format(FMT_COMPILE("{}"), v), fmt::format(fmt::runtime("{}"), v))
        << fmt::format("{:a}", v);
  }
}

}  // namespace
