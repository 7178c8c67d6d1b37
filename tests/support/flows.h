// Flows for tests of the solver.
#pragma once

#include <cmath>
#include <cstddef>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

#include "solver/solver.h"

namespace zeph::test {

inline Config configOf(int n, Integrator integrator = Integrator::etdrk4,
                       OperatorKind operatorKind = OperatorKind::stress) {
  Config config;
  config.resolution = n;
  config.k0 = 3;
  config.reynolds = 1000;
  config.integrator = integrator;
  config.operatorKind = operatorKind;
  return config;
}

constexpr Integrator integrators[] = {Integrator::imexRK3, Integrator::ifHeunRK3,
                                      Integrator::etdrk4};
constexpr OperatorKind operators[] = {OperatorKind::stress, OperatorKind::advective};

// amplitude cos(kx x + ky y): a flow that only decays.
inline std::vector<float> wave(int n, int kx, int ky, double amplitude) {
  std::vector<float> samples;
  const double unit = 2 * std::numbers::pi / n;
  for (int y = 0; y < n; ++y) {
    for (int x = 0; x < n; ++x) {
      samples.push_back(static_cast<float>(amplitude * std::cos(unit * (kx * x + ky * y))));
    }
  }
  return samples;
}

inline std::vector<float> still(int n) {
  return std::vector<float>(static_cast<std::size_t>(n) * static_cast<std::size_t>(n), 2.5f);
}

inline Config fixedStep(float step, Integrator integrator = Integrator::etdrk4) {
  Config config = configOf(16, integrator);
  config.fixed_dt = step;
  return config;
}

// The time that a clock of two floats holds for an endpoint.
inline double asPair(double end) {
  const float high = static_cast<float>(end);
  const float low = static_cast<float>(end - static_cast<double>(high));
  return static_cast<double>(low) + static_cast<double>(high);
}

// A flow that overflows in its first step.
inline Config explosive(int n) {
  Config config = configOf(n);
  config.fixed_dt = 1e30f;
  config.reynolds = 1e30;
  return config;
}

// The text of the failure of `action`, or "nothing failed".
template <class Failure, class Action>
std::string failureOf(Action action) {
  try {
    action();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "nothing failed";
}

template <class Action>
std::string runtimeFailure(Action action) {
  return failureOf<std::runtime_error>(action);
}
template <class Action>
std::string badArgument(Action action) {
  return failureOf<std::invalid_argument>(action);
}

}  // namespace zeph::test
