// The number formatters against the formatting library's run-time path, on
// values where digit generation goes wrong: decade boundaries and their
// neighbours, powers of two, exact halves, subnormals, random bits.
#include "strix/numbers.h"

#include <bit>      // std::bit_cast
#include <cfloat>   // DBL_MAX
#include <cmath>    // std::nextafter, std::ldexp, INFINITY, NAN
#include <cstdlib>  // std::strtod
#include <memory>   // std::make_unique
#include <random>   // std::mt19937_64
#include <string>   // std::string
#include <vector>   // std::vector

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace {

std::vector<double> hard_values() {
  constexpr double inf = INFINITY;
  std::vector<double> values = {inf, -inf, NAN, -NAN, std::bit_cast<double>(0x000FFFFFFFFFFFFFull)};
  const auto add = [&](double v) {
    for (const double x : {v, std::nextafter(v, 0.0), std::nextafter(v, DBL_MAX)}) {
      values.insert(values.end(), {x, -x});
    }
  };
  for (int k = -324; k <= 308; ++k) {
    for (const char* digits : {"1e", "9.9999999999999995e", "9.999999999999999e"}) {
      add(std::strtod((digits + std::to_string(k)).c_str(), nullptr));
    }
  }
  for (int e = -1074; e <= 1023; ++e) add(std::ldexp(1.0, e));
  add(DBL_MAX);
  std::mt19937_64 rng(7);
  for (int i = 0; i < 2000; ++i) {  // ties at the 17th digit, and their quarters
    const auto n = static_cast<double>(1000000000000000 + rng() % 3500000000000000);
    for (const double x : {n + 0.5, n + 0.25, n + 0.75, (n + 0.5) / 4, (n + 0.5) * 1024}) add(x);
  }
  for (int i = -4000; i <= 4000; ++i) values.insert(values.end(), {i / 8.0, i / 1000.0});
  std::uniform_real_distribution<double> uniform(-1e6, 1e6);
  for (int i = 0; i < 200000; ++i) {  // any bits (NaN payloads too), and real-looking values
    values.push_back(std::bit_cast<double>(rng()));
    values.push_back(uniform(rng) * std::pow(10.0, static_cast<int>(rng() % 41) - 20));
  }
  return values;
}

// Each call writes into a heap block of exactly the room it is promised, so
// that the address sanitizer sees a write past it.
TEST(Numbers, FormattersMatchTheLibrary) {
  for (const double v : hard_values()) {
    auto room = std::make_unique<char[]>(strix::kShortestRoom);
    std::string expected = fmt::format(fmt::runtime("{}"), v);
    ASSERT_EQ(std::string(room.get(), strix::format_shortest(room.get(), v)), expected) << v;
    ASSERT_LE(expected.size(), strix::kMaxShortestSize);
    room = std::make_unique<char[]>(strix::kValueColumnWidth);
    ASSERT_EQ(std::string(room.get(), strix::format_value_column(room.get(), v)),
              fmt::format(fmt::runtime("{:24.16g}"), v))
        << v;
  }
}

}  // namespace
