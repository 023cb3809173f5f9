#include "strix/numbers.h"

#include <array>    // powers of five
#include <bit>      // std::bit_cast
#include <cmath>    // std::signbit
#include <cstdint>  // fixed-width integers
#include <cstring>  // std::memcpy

#include <fmt/compile.h>  // FMT_COMPILE
#include <fmt/format.h>   // the library's shortest digits

namespace strix {
namespace {

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

void put_pair(char* out, unsigned x) {
  std::memcpy(out, kDigitPairs + 2 * x, 2);
}

// The eight decimal digits of x < 10^8.
void put_eight_digits(char* out, std::uint32_t x) {
  const std::uint32_t hi = x / 10000;
  const std::uint32_t lo = x % 10000;
  put_pair(out, hi / 100);
  put_pair(out + 2, hi % 100);
  put_pair(out + 4, lo / 100);
  put_pair(out + 6, lo % 100);
}

// Significant digits as the layout takes them: the digits, then '0's, in
// all kDigitsRead bytes from the first digit. The layout copies pieces of a
// fixed size (a few moves, where a copy of variable size is a library
// call), and the '0's after the digits complete a whole number.
constexpr std::size_t kDigitsRead = 32;
// What the layout may write from its start: the text (at most 24 bytes)
// plus scratch bytes of its fixed-size copies past the text's end.
constexpr std::size_t kLayoutRoom = 40;
static_assert(1 + kLayoutRoom <= kShortestRoom, "a sign, then the layout");

// Lays out n significant digits (the value digits * 10^(exp - n + 1)) the
// way the library's general format does, trailing zeros of the digits
// already removed: exponent notation below 1e-4 and from 1e16 up, plain
// notation between, no point after a whole number.
char* lay_out(char* out, const char* digits, int n, int exp) {
  if (exp < -4 || exp >= 16) {
    *out++ = digits[0];
    if (n > 1) {
      *out = '.';
      std::memcpy(out + 1, digits + 1, 16);
      out += n;
    }
    *out++ = 'e';
    *out++ = exp < 0 ? '-' : '+';
    const int a = exp < 0 ? -exp : exp;
    if (a >= 100) *out++ = static_cast<char>('0' + a / 100);
    put_pair(out, static_cast<unsigned>(a % 100));
    return out + 2;
  }
  if (exp < 0) {
    std::memcpy(out, "0.000", 5);
    out += 1 - exp;
    std::memcpy(out, digits, 24);
    return out + n;
  }
  const int whole = exp + 1;     // 1..16 digits before the point
  std::memcpy(out, digits, 16);  // the '0's after the digits fill a whole number
  if (n <= whole) return out + whole;
  out += whole;
  *out = '.';
  std::memcpy(out + 1, digits + whole, 16);
  return out + 1 + (n - whole);
}

bool is_finite(double value) {
  return (std::bit_cast<std::uint64_t>(value) & 0x7FF0000000000000) != 0x7FF0000000000000;
}

// floor(e * log10(2)), the decimal exponent of 2^e: 315653 / 2^20 is
// log10(2) closely enough for every |e| <= 2620, beyond a double's range.
constexpr int floor_log10_pow2(int e) {
  return (e * 315653) >> 20;
}

// The number of decimal digits of x > 0.
int count_digits(std::uint64_t x) {
  static constexpr std::array<std::uint64_t, 20> kPow10 = [] {
    std::array<std::uint64_t, 20> table{};
    table[0] = 1;
    for (std::size_t i = 1; i < table.size(); ++i) table[i] = table[i - 1] * 10;
    return table;
  }();
  const int guess = floor_log10_pow2(static_cast<int>(std::bit_width(x)));
  return guess + (x >= kPow10[static_cast<std::size_t>(guess)] ? 1 : 0);
}

}  // namespace

// ------------------------------------------------------- shortest form
//
// The library's own shortest-digits routine, the one its "{}" runs, gives
// the digits; only the layout around them is done here, where the library's
// general writer spends most of its time. The routine is exported by the
// library but outside its documented interface, so this is the one place
// that calls it, written against {fmt} 9 (the build refuses another major
// version), and the tests hold every byte against the library's run-time
// "{}".

static_assert(FMT_VERSION / 10000 == 9, "shortest_digits() is written against {fmt} 9");

namespace {

struct ShortestDigits {
  std::uint64_t significand;  // the shortest digits that read back exactly
  int exponent;               // of the last digit
};

ShortestDigits shortest_digits(double value) {
  const auto decimal = fmt::detail::dragonbox::to_decimal(value);
  return {decimal.significand, decimal.exponent};
}

}  // namespace

char* format_shortest(char* out, double value) {
  if (!is_finite(value)) return fmt::format_to(out, FMT_COMPILE("{}"), value);
  char* text = out;
  if (std::signbit(value)) {
    *text++ = '-';
    value = -value;
  }
  if (value == 0) {
    *text++ = '0';
    return text;
  }
  const ShortestDigits decimal = shortest_digits(value);
  // At most 17 digits, right-aligned in a 17-digit field; only as many
  // groups are written as the significand has (round values have few).
  const std::uint64_t s = decimal.significand;
  const int n = count_digits(s);
  char field[17 + kDigitsRead];
  std::memset(field + 17, '0', kDigitsRead);
  if (n <= 4) {
    put_pair(field + 13, static_cast<unsigned>(s / 100));
    put_pair(field + 15, static_cast<unsigned>(s % 100));
  } else if (n <= 8) {
    put_eight_digits(field + 9, static_cast<std::uint32_t>(s));
  } else {
    const std::uint64_t high = s / 100000000;
    put_eight_digits(field + 9, static_cast<std::uint32_t>(s % 100000000));
    put_eight_digits(field + 1, static_cast<std::uint32_t>(high % 100000000));
    field[0] = static_cast<char>('0' + high / 100000000);
  }
  return lay_out(text, field + 17 - n, n, decimal.exponent + n - 1);
}

// ------------------------------------------------------- value columns
//
// The value columns are "{:24.16g}": sixteen significant digits, correctly
// rounded, in a field of 24. The library's path for a given precision costs
// several times its shortest conversion and was the report's bottleneck, so
// the common case is done here in exact integer arithmetic: a double m * 2^e
// scaled by 10^p is m * 5^p shifted by e + p bits, and the bits shifted out
// decide the rounding. What this cannot do exactly is left to the library:
// subnormals, infinities and NaN, magnitudes outside about 1e-40 to 1e43,
// and exact ties, which round by the library's own rule. Zero is written
// here.

namespace {

__extension__ typedef unsigned __int128 uint128;

constexpr int kMaxPow5 = 55;  // 5^55 < 2^128

constexpr std::array<uint128, kMaxPow5 + 1> kPow5 = [] {
  std::array<uint128, kMaxPow5 + 1> table{};
  table[0] = 1;
  for (std::size_t i = 1; i < table.size(); ++i) table[i] = table[i - 1] * 5;
  return table;
}();

constexpr std::uint64_t kPow10_15 = 1000000000000000;
constexpr std::uint64_t kPow10_16 = 10000000000000000;

// What the digits cut off after the integer part amount to.
enum class Rest { kZero, kBelowHalf, kHalf, kAboveHalf };

struct Scaled {
  std::uint64_t q;  // integer part of v * 10^p
  Rest rest;
};

Rest rest_of(bool half_bit, bool below_half_bits) {
  if (half_bit) return below_half_bits ? Rest::kAboveHalf : Rest::kHalf;
  return below_half_bits ? Rest::kBelowHalf : Rest::kZero;
}

// v * 10^p for v = m * 2^e, or false where 128 bits do not hold it exactly.
// The caller picks p so that the integer part has 16 or 17 digits.
bool scale(std::uint64_t m, int e, int p, Scaled& out) {
  if (p >= 0) {
    if (p > kMaxPow5) return false;
    // m * 5^p as three 64-bit words, least significant first.
    const uint128 lo = uint128{m} * static_cast<std::uint64_t>(kPow5[p]);
    const uint128 hi = uint128{m} * static_cast<std::uint64_t>(kPow5[p] >> 64);
    const uint128 mid = (lo >> 64) + static_cast<std::uint64_t>(hi);
    const std::uint64_t w[3] = {static_cast<std::uint64_t>(lo), static_cast<std::uint64_t>(mid),
                                static_cast<std::uint64_t>((hi >> 64) + (mid >> 64))};
    const int shift = e + p;
    if (shift >= 0) {
      // An integer already: only small products get here.
      if (w[1] != 0 || w[2] != 0 || shift >= 64 || (w[0] >> (63 - shift)) > 1) return false;
      out = {w[0] << shift, Rest::kZero};
      return true;
    }
    const int cut = -shift;  // bits below the point
    if (cut > 190) return false;
    const int word = cut / 64;
    const int bit = cut % 64;
    std::uint64_t q = w[word] >> bit;
    if (bit != 0 && word < 2) q |= w[word + 1] << (64 - bit);
    const int half = cut - 1;
    const bool half_bit = (w[half / 64] >> (half % 64)) & 1;
    bool below = (w[half / 64] & ((std::uint64_t{1} << (half % 64)) - 1)) != 0;
    for (int i = 0; i < half / 64; ++i) below = below || w[i] != 0;
    out = {q, rest_of(half_bit, below)};
    return true;
  }
  // v >= 1e16: v * 10^p = (m * 2^(e + p)) / 5^-p, with e + p >= 0 here.
  const int k = -p;
  const int shift = e + p;
  if (k > 27 || shift < 0 || shift > 127 - 53) return false;
  const uint128 n = uint128{m} << shift;
  const auto d = static_cast<std::uint64_t>(kPow5[k]);  // odd: no exact halves
  const uint128 q = n / d;
  const auto r = static_cast<std::uint64_t>(n % d);
  if (q >= uint128{kPow10_16} * 10) return false;
  out = {static_cast<std::uint64_t>(q),
         r == 0 ? Rest::kZero : (r > d / 2 ? Rest::kAboveHalf : Rest::kBelowHalf)};
  return true;
}

// The sixteen correctly rounded digits of a finite non-zero normal double,
// or false to leave it to the library.
bool round_to_16_digits(double value, std::uint64_t& q, int& exp) {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  const auto biased = static_cast<int>((bits >> 52) & 0x7FF);
  if (biased == 0 || biased == 0x7FF) return false;
  const std::uint64_t m = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
  const int e = biased - 1075;
  // 2^(e+52) <= v < 2^(e+53): the decimal exponent is this floor or one more.
  exp = floor_log10_pow2(e + 52);
  Scaled s;
  if (!scale(m, e, 15 - exp, s)) return false;
  if (s.q >= kPow10_16) {
    // Seventeen digits: the last one joins the rest.
    const auto last = static_cast<unsigned>(s.q % 10);
    s.q /= 10;
    ++exp;
    if (last > 5) {
      s.rest = Rest::kAboveHalf;
    } else if (last == 5) {
      s.rest = s.rest == Rest::kZero ? Rest::kHalf : Rest::kAboveHalf;
    } else if (last > 0 || s.rest != Rest::kZero) {
      s.rest = Rest::kBelowHalf;
    }
  }
  if (s.rest == Rest::kHalf) return false;  // a tie: the library's rounding rule
  if (s.rest == Rest::kAboveHalf && ++s.q == kPow10_16) {
    s.q = kPow10_15;
    ++exp;
  }
  q = s.q;
  return true;
}

}  // namespace

char* format_value_column(char* out, double value) {
  // The text is laid out after 24 blanks, and the 24 bytes that end with it
  // are the right-aligned column.
  char text[kValueColumnWidth + 1 + kLayoutRoom];
  std::memset(text, ' ', kValueColumnWidth);
  char* end = text + kValueColumnWidth;
  if (std::signbit(value)) *end++ = '-';
  std::uint64_t q;
  int exp;
  if (round_to_16_digits(value, q, exp)) {
    char digits[kDigitsRead];
    put_eight_digits(digits, static_cast<std::uint32_t>(q / 100000000));
    put_eight_digits(digits + 8, static_cast<std::uint32_t>(q % 100000000));
    std::memset(digits + 16, '0', kDigitsRead - 16);
    int n = 16;
    while (digits[n - 1] == '0') --n;  // the first digit is never 0
    end = lay_out(end, digits, n, exp);
  } else if (value == 0) {
    *end++ = '0';
  } else {
    return fmt::format_to(out, FMT_COMPILE("{:24.16g}"), value);
  }
  std::memcpy(out, end - kValueColumnWidth, kValueColumnWidth);
  return out + kValueColumnWidth;
}

}  // namespace strix
