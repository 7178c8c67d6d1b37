// A flow in double precision by sums instead of fast transforms, with the third-order scheme
// "imexRK3" and a fixed step: slow, independent, and exact enough to measure the error of others.
#pragma once

#include <complex>
#include <cstddef>
#include <numbers>
#include <vector>

#include "kernels/params.h"

namespace zeph::test {

class Flow64 {
 public:
  using Complex = std::complex<double>;

  // `spectrum` holds the Fourier coefficients, element j * n + i.
  Flow64(int n, const std::vector<V2>& spectrum, double viscosity)
      : n_(n), m_(3 * n / 2), viscosity_(viscosity), first_(spectrum.size()) {
    for (const V2& value : spectrum) omega_.emplace_back(value.re, value.im);
    for (int k = 0; k < m_; ++k) roots_.push_back(std::polar(1.0, 2 * std::numbers::pi * k / m_));
  }

  void step(double dt) {
    constexpr double gammas[] = {8.0 / 15, 5.0 / 12, 3.0 / 4};
    constexpr double zetas[] = {0, -17.0 / 60, -5.0 / 12};
    constexpr double betas[] = {4.0 / 15, 1.0 / 15, 1.0 / 6};
    for (int stage = 0; stage < 3; ++stage) {
      const std::vector<Complex> now = term();
      for (std::size_t at = 0; at < now.size(); ++at) {
        const double kx = wave(static_cast<int>(at) % n_), ky = wave(static_cast<int>(at) / n_);
        const double a = viscosity_ * betas[stage] * dt * (kx * kx + ky * ky);
        const Complex r = gammas[stage] * now[at] + zetas[stage] * first_[at];
        omega_[at] += (dt * r - 2 * a * omega_[at]) / (1 + a);
        first_[at] = now[at];
      }
    }
  }

  const std::vector<Complex>& spectrum() const { return omega_; }

 private:
  int wave(int k) const { return k > n_ / 2 ? k - n_ : k; }
  bool isActive(int kx, int ky) const { return std::abs(kx) < n_ / 2 && std::abs(ky) < n_ / 2; }
  const Complex& root(int k, int x, bool forward) const {
    const int turns = (forward ? -1 : 1) * k * x % m_;
    return roots_[static_cast<std::size_t>(turns < 0 ? turns + m_ : turns)];
  }

  // The field at the m * m points of the padded grid whose coefficients factor(kx, ky) gives.
  template <class Factor>
  std::vector<double> field(Factor factor) const {
    const std::size_t m = static_cast<std::size_t>(m_);
    std::vector<double> samples(m * m);
    std::vector<Complex> column(m);
    for (int kx = -n_ / 2 + 1; kx < n_ / 2; ++kx) {
      column.assign(m, 0);
      for (int ky = -n_ / 2 + 1; ky < n_ / 2; ++ky) {
        const Complex value = factor(kx, ky) * omega_[index(kx, ky)];
        for (int y = 0; y < m_; ++y)
          column[static_cast<std::size_t>(y)] += value * root(ky, y, false);
      }
      for (std::size_t y = 0; y < m; ++y)
        for (std::size_t x = 0; x < m; ++x)
          samples[y * m + x] += (column[y] * root(kx, static_cast<int>(x), false)).real();
    }
    return samples;
  }

  std::vector<Complex> term() const {
    const Complex i(0, 1);
    const auto inverseSquare = [](int kx, int ky) {
      const int square = kx * kx + ky * ky;
      return square == 0 ? 0.0 : 1.0 / square;
    };
    const auto u = field([&](int kx, int ky) { return i * (ky * inverseSquare(kx, ky)); });
    const auto v = field([&](int kx, int ky) { return -i * (kx * inverseSquare(kx, ky)); });
    const auto gx = field([&](int kx, int) { return i * double(kx); });
    const auto gy = field([&](int, int ky) { return i * double(ky); });
    const std::size_t m = static_cast<std::size_t>(m_);
    std::vector<Complex> result(omega_.size());
    std::vector<Complex> column(m);
    for (int kx = -n_ / 2 + 1; kx < n_ / 2; ++kx) {
      column.assign(m, 0);
      for (std::size_t y = 0; y < m; ++y)
        for (std::size_t x = 0; x < m; ++x) {
          const std::size_t at = y * m + x;
          column[y] -= (u[at] * gx[at] + v[at] * gy[at]) * root(kx, static_cast<int>(x), true);
        }
      for (int ky = -n_ / 2 + 1; ky < n_ / 2; ++ky) {
        Complex sum = 0;
        for (int y = 0; y < m_; ++y) sum += column[static_cast<std::size_t>(y)] * root(ky, y, true);
        if (kx != 0 || ky != 0) result[index(kx, ky)] = sum / double(m_ * m_);
      }
    }
    return result;
  }

  std::size_t index(int kx, int ky) const {
    return static_cast<std::size_t>((ky < 0 ? ky + n_ : ky) * n_ + (kx < 0 ? kx + n_ : kx));
  }

  int n_, m_;
  double viscosity_;
  std::vector<Complex> omega_, first_, roots_;
};

}  // namespace zeph::test
