// Flows with known solutions.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "tests/support/flows.h"

namespace zeph {
namespace {

double largestDifference(const std::vector<V2>& a, const std::vector<V2>& b) {
  double largest = 0;
  for (std::size_t k = 0; k < a.size(); ++k) {
    largest = std::max(largest, std::hypot(static_cast<double>(a[k].re - b[k].re),
                                           static_cast<double>(a[k].im - b[k].im)));
  }
  return largest;
}

std::vector<V2> spectrumAt(Config config, float step, double time) {
  config.fixed_dt = step;
  Solver solver(config);
  solver.advance(100000, time);
  return solver.spectrum();
}

TEST(Flows, AWaveDecaysAtItsOwnRate) {
  for (const int n : {16, 18}) {
    for (const Integrator integrator : test::integrators) {
      for (const OperatorKind operatorKind : test::operators) {
        Config config = test::configOf(n, integrator, operatorKind);
        config.reynolds = 50;
        config.fixed_dt = 0.01f;
        Solver solver(config, test::wave(n, 2, -3, 1.0));
        const double energy = solver.lastStats().energy;
        EXPECT_NEAR(energy, 0.25 / 13, 1e-7);
        solver.advance(1000, 1.0);
        const double exact = energy * std::exp(-2 * 13 * 1.0 / 50);
        EXPECT_NEAR(solver.inspect().energy, exact, exact * 1e-5);
      }
    }
  }
}

TEST(Flows, WithoutViscosityEnergyAndEnstrophyAreConserved) {
  for (const OperatorKind operatorKind : test::operators) {
    Config config = test::configOf(32, Integrator::etdrk4, operatorKind);
    config.reynolds = std::numeric_limits<double>::infinity();
    config.fixed_dt = 0.01f;
    Solver solver(config);
    const Statistics start = solver.lastStats();
    solver.advance(100);
    const Statistics end = solver.inspect();
    EXPECT_NEAR(end.energy, start.energy, start.energy * 1e-5);
    EXPECT_NEAR(end.enstrophy, start.enstrophy, start.enstrophy * 1e-5);
    EXPECT_NE(end.palinstrophy, start.palinstrophy);
  }
}

TEST(Flows, TheTwoFormsOfTheNonlinearTermAgree) {
  for (const int n : {16, 18, 64}) {
    for (const Integrator integrator : test::integrators) {
      Config config = test::configOf(n, integrator, OperatorKind::stress);
      const std::vector<V2> stress = spectrumAt(config, 0.02f, 0.2);
      config.operatorKind = OperatorKind::advective;
      EXPECT_LT(largestDifference(spectrumAt(config, 0.02f, 0.2), stress), 2e-6);
    }
  }
}

TEST(Flows, TheIntegratorsConvergeToTheSameFlowAtTheirOrders) {
  Config config = test::configOf(32);
  config.reynolds = 100;
  const std::vector<V2> exact = spectrumAt(config, 0.00390625f, 1.0);
  for (const Integrator integrator : test::integrators) {
    config.integrator = integrator;
    const bool isFourth = integrator == Integrator::etdrk4;
    const double coarse = largestDifference(spectrumAt(config, 0.0625f, 1.0), exact);
    const double fine = largestDifference(spectrumAt(config, 0.03125f, 1.0), exact);
    // The viscous term of the implicit scheme is of second order.
    const double order = isFourth ? 4 : integrator == Integrator::imexRK3 ? 2 : 3;
    EXPECT_GT(std::log2(coarse / fine), order - 0.7) << static_cast<int>(integrator);
    EXPECT_LT(fine, 1e-3);
  }
}

TEST(Flows, DecayFreely) {
  for (const Integrator integrator : test::integrators) {
    Solver solver(test::configOf(64, integrator));
    Statistics before = solver.lastStats();
    for (int k = 0; k < 10; ++k) {
      solver.advance(10);
      const Statistics now = solver.inspect();
      EXPECT_LT(now.energy, before.energy);
      EXPECT_LT(now.enstrophy, before.enstrophy);
      before = now;
    }
  }
}

}  // namespace
}  // namespace zeph
