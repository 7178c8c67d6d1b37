// Roots of unity and discrete Fourier transforms in double precision, from which the tables of the
// single-precision transforms are made.
#pragma once

#include <complex>
#include <cstdint>
#include <vector>

namespace zeph::cpu {

// exp(-2 pi i numerator / denominator), for any numerator that is not negative. The angle is first
// brought into the first octant in integers, so that symmetric roots have the same digits.
std::complex<double> rootOfUnity(std::int64_t numerator, std::int64_t denominator);

// The prime factors of n in ascending order.
std::vector<int> primeFactors(int n);

// The forward transform of `signal`, fast where the length has small prime factors.
std::vector<std::complex<double>> transformOf(const std::vector<std::complex<double>>& signal);

}  // namespace zeph::cpu
