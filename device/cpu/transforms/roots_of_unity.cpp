#include "device/cpu/transforms/roots_of_unity.h"

#include <numbers>
#include <utility>

#include "platform/elementary_functions.h"

namespace zeph::cpu {
namespace {

using Values = std::vector<std::complex<double>>;

// Transforms count = factors[depth] * factors[depth + 1] * ... values that lie `stride` apart into
// `out`, by decimation in time.
void transformInto(std::complex<double>* out, const std::complex<double>* in, std::size_t count,
                   std::size_t stride, const std::vector<int>& factors, std::size_t depth,
                   const Values& roots) {
  if (count == 1) {
    *out = *in;
    return;
  }
  const auto radix = static_cast<std::size_t>(factors[depth]);
  const std::size_t span = count / radix;
  for (std::size_t r = 0; r < radix; ++r) {
    transformInto(out + r * span, in + r * stride, span, stride * radix, factors, depth + 1, roots);
  }
  const std::size_t step = roots.size() / count;
  Values column(radix);
  for (std::size_t k = 0; k < span; ++k) {
    for (std::size_t r = 0; r < radix; ++r) column[r] = out[r * span + k];
    for (std::size_t q = 0; q < radix; ++q) {
      std::complex<double> sum = 0;
      const std::size_t to = q * span + k;
      for (std::size_t r = 0; r < radix; ++r) sum += column[r] * roots[to * r % count * step];
      out[to] = sum;
    }
  }
}

}  // namespace

std::complex<double> rootOfUnity(std::int64_t numerator, std::int64_t denominator) {
  const std::int64_t eighths = numerator % denominator * 8;
  const std::int64_t octant = eighths / denominator;
  const std::int64_t inOctant = eighths % denominator;
  const bool descending = octant % 2 == 1;
  const double angle = std::numbers::pi / 4 *
                       static_cast<double>(descending ? denominator - inOctant : inOctant) /
                       static_cast<double>(denominator);
  const SineCosine found = sineCosine(angle);
  double along = found.cosine.hi;
  double across = found.sine.hi;
  if (descending) std::swap(along, across);
  switch (octant / 2) {
    case 0:
      return {along, -across};
    case 1:
      return {-across, -along};
    case 2:
      return {-along, across};
    default:
      return {across, along};
  }
}

std::vector<int> primeFactors(int n) {
  std::vector<int> factors;
  for (int p = 2; p * p <= n; ++p) {
    for (; n % p == 0; n /= p) factors.push_back(p);
  }
  if (n > 1) factors.push_back(n);
  return factors;
}

Values transformOf(const Values& signal) {
  const std::size_t count = signal.size();
  Values roots(count);
  for (std::size_t k = 0; k < count; ++k) {
    roots[k] = rootOfUnity(static_cast<std::int64_t>(k), static_cast<std::int64_t>(count));
  }
  Values result(count);
  transformInto(result.data(), signal.data(), count, 1, primeFactors(static_cast<int>(count)), 0,
                roots);
  return result;
}

}  // namespace zeph::cpu
