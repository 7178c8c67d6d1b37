#include "platform/elementary_functions.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>

namespace zeph {
namespace {

__extension__ using Int128 = __int128;
__extension__ using Uint128 = unsigned __int128;

// a + b without loss (Knuth 1969), and with |a| >= |b| (Dekker 1971).
DoubleSum twoSum(double a, double b) {
  const double s = a + b;
  const double t = s - a;
  return {s, (a - (s - t)) + (b - t)};
}
DoubleSum fastTwoSum(double a, double b) {
  const double s = a + b;
  return {s, b - (s - a)};
}

// a b without loss, from halves of 26 bits (Dekker 1971).
DoubleSum twoProduct(double a, double b) {
  constexpr double splitter = 0x1p27 + 1;
  const auto split = [](double x) -> DoubleSum {
    const double c = splitter * x;
    const double high = c - (c - x);
    return {high, x - high};
  };
  const DoubleSum x = split(a);
  const DoubleSum y = split(b);
  const double p = a * b;
  return {p, ((x.hi * y.hi - p) + x.hi * y.lo + x.lo * y.hi) + x.lo * y.lo};
}

// c[0] + c[1] x + c[2] x^2 + ...
template <std::size_t count>
double polynomial(const std::array<double, count>& c, double x) {
  double sum = c[count - 1];
  for (std::size_t k = count - 1; k-- > 0;) sum = sum * x + c[k];
  return sum;
}

// An angle less a whole number of quarter turns: from -pi/4 to pi/4 but for rounding.
struct Reduced {
  DoubleSum rest;
  unsigned quarters;  // modulo 4
};

// pi/2 as 33 + 33 + 33 + 53 bits: the multiples of the first three are exact below 2^20 (Cody &
// Waite 1980).
Reduced reduceSmall(double x) {
  constexpr double quarter[] = {0x1.921fb544p+0, 0x1.0b4611a6p-34, 0x1.3198a2ep-69,
                                0x1.b839a252049c1p-104};
  constexpr double perQuarter = 0x1.45f306dc9c883p-1;
  constexpr double roundToInteger = 0x1.8p52;
  const double k = (x * perQuarter + roundToInteger) - roundToInteger;
  const double first = x - k * quarter[0];  // exact, as the two are close
  const DoubleSum second = twoSum(first, -(k * quarter[1]));
  const DoubleSum third = twoSum(second.hi, -(k * quarter[2]));
  const double lost = (second.lo + third.lo) - k * quarter[3];
  return {fastTwoSum(third.hi, lost), static_cast<unsigned>(static_cast<std::int64_t>(k)) & 3u};
}

// The fraction of x / (pi/2) from 256 bits of 2/pi, in integers (Payne & Hanek 1983).
Reduced reduceLarge(double x) {
  constexpr std::uint64_t twoOverPi[] = {0xfe5163abdebbc561, 0xdb6295993c439041, 0xfc2757d1f534ddc0,
                                         0xa2f9836e4e441529};  // the lowest bits first
  const auto bits = std::bit_cast<std::uint64_t>(x);
  const int exponent = static_cast<int>(bits >> 52 & 0x7ff) - 1075;
  const std::uint64_t mantissa = (bits & 0xfffffffffffff) | 0x10000000000000;
  std::uint64_t product[6] = {};  // mantissa * 2/pi * 2^256
  Uint128 carry = 0;
  for (int k = 0; k < 4; ++k) {
    carry += static_cast<Uint128>(mantissa) * twoOverPi[k];
    product[k] = static_cast<std::uint64_t>(carry);
    carry >>= 64;
  }
  product[4] = static_cast<std::uint64_t>(carry);

  const auto wordAt = [&product](int bit) {
    const int word = bit / 64;
    const int shift = bit % 64;
    const std::uint64_t low = product[word] >> shift;
    return shift == 0 ? low : low | product[word + 1] << (64 - shift);
  };
  const int point = 256 - exponent;  // the bit of the product that counts one
  auto quarters = static_cast<unsigned>(wordAt(point) & 3);
  const Uint128 fraction = static_cast<Uint128>(wordAt(point - 64)) << 64 | wordAt(point - 128);
  auto rest = static_cast<Int128>(fraction);  // from half on, what is missing to the next quarter
  if (rest < 0) quarters += 1;
  const bool isNegative = rest < 0;
  if (isNegative) rest = -rest;
  const double hi = static_cast<double>(static_cast<std::int64_t>(rest >> 75)) * 0x1p-53;
  const Int128 below = rest & ((static_cast<Int128>(1) << 75) - 1);
  const double lo = static_cast<double>(static_cast<std::int64_t>(below >> 22)) * 0x1p-106;

  constexpr DoubleSum quarter = {0x1.921fb54442d18p+0, 0x1.1a62633145c07p-54};
  const DoubleSum turned = fastTwoSum(hi, lo);
  const DoubleSum p = twoProduct(turned.hi, quarter.hi);
  const DoubleSum angle =
      fastTwoSum(p.hi, p.lo + (turned.hi * quarter.lo + turned.lo * quarter.hi));
  const double sign = isNegative ? -1 : 1;
  return {{sign * angle.hi, sign * angle.lo}, quarters & 3};
}

// Taylor series for |r| <= pi/4; what they leave out is below 2^-62 of the sum.
DoubleSum sineOf(DoubleSum r) {
  constexpr std::array c = {
      -1.0 / 6,        1.0 / 120,        -1.0 / 5040,          1.0 / 362880,
      -1.0 / 39916800, 1.0 / 6227020800, -1.0 / 1307674368000, 1.0 / 355687428096000};
  const double square = r.hi * r.hi;
  const double cubic = r.hi * (square * polynomial(c, square));
  return fastTwoSum(r.hi, r.lo * (1 - 0.5 * square) + cubic);
}

DoubleSum cosineOf(DoubleSum r) {
  constexpr std::array c = {
      1.0 / 24,        -1.0 / 720,         1.0 / 40320,          -1.0 / 3628800,
      1.0 / 479001600, -1.0 / 87178291200, 1.0 / 20922789888000, -1.0 / 6402373705728000};
  const DoubleSum square = twoProduct(r.hi, r.hi);
  const DoubleSum parabola = fastTwoSum(1, -0.5 * square.hi);
  const double quartic = (square.hi * square.hi) * polynomial(c, square.hi);
  return fastTwoSum(parabola.hi, parabola.lo + (quartic - (0.5 * square.lo + r.hi * r.lo)));
}

DoubleSum negated(DoubleSum sum) {
  return {-sum.hi, -sum.lo};
}

}  // namespace

SineCosine sineCosine(double x) {
  const double size = std::fabs(x);
  const Reduced angle = size < 0x1p20 ? reduceSmall(size) : reduceLarge(size);
  const DoubleSum s = sineOf(angle.rest);
  const DoubleSum c = cosineOf(angle.rest);
  SineCosine result = {s, c};
  if (angle.quarters == 1) result = {c, negated(s)};
  if (angle.quarters == 2) result = {negated(s), negated(c)};
  if (angle.quarters == 3) result = {negated(c), s};
  if (x < 0) result.sine = negated(result.sine);
  return result;
}

DoubleSum exponentialOf(double x) {
  constexpr double ln2[] = {0x1.62e42feep-1, 0x1.a39ef35793c76p-33};  // the first of 32 bits
  constexpr double perLn2 = 0x1.71547652b82fep+0;
  constexpr double roundToInteger = 0x1.8p52;
  constexpr std::array c = {1.0 / 2,          1.0 / 6,        1.0 / 24,        1.0 / 120,
                            1.0 / 720,        1.0 / 5040,     1.0 / 40320,     1.0 / 362880,
                            1.0 / 3628800,    1.0 / 39916800, 1.0 / 479001600, 1.0 / 6227020800,
                            1.0 / 87178291200};
  const double k = (x * perLn2 + roundToInteger) - roundToInteger;
  const DoubleSum r = twoSum(x - k * ln2[0], -(k * ln2[1]));
  const double tail = (r.hi * r.hi) * polynomial(c, r.hi);
  const DoubleSum line = fastTwoSum(1, r.hi);
  const DoubleSum sum = fastTwoSum(line.hi, line.lo + (r.lo * (1 + r.hi) + tail));
  const double power =
      std::bit_cast<double>(static_cast<std::uint64_t>(1023 + static_cast<int>(k)) << 52);
  return {sum.hi * power, sum.lo * power};
}

// The sum is first rounded to a double to odd, which keeps on which side of a midpoint between two
// floats it lies (Boldo & Melquiond 2008).
float roundToFloat(DoubleSum sum) {
  const DoubleSum s = twoSum(sum.hi, sum.lo);
  auto bits = std::bit_cast<std::uint64_t>(s.hi);
  if (s.lo != 0 && (bits & 1) == 0) {
    const bool isOutward = (s.lo > 0) == (s.hi > 0);
    bits = isOutward ? bits + 1 : bits - 1;
  }
  return static_cast<float>(std::bit_cast<double>(bits));
}

}  // namespace zeph
