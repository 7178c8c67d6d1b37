#include "solver/config_record.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/flows.h"

namespace zeph {
namespace {

constexpr const char* refusal =
    "Invalid resolution, Reynolds number, k0, CFL, fixed timestep, method or start spectrum.";
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

template <class Change>
std::string checkWith(Change change) {
  Config config;
  change(config);
  return test::badArgument([&] { checkConfig(config); });
}

TEST(SolverConfig, HasValidDefaults) {
  EXPECT_NO_THROW(checkConfig(Config()));
  const Config config;
  EXPECT_EQ(config.resolution, 1024);
  EXPECT_EQ(config.k0, 4);
  EXPECT_EQ(config.seed, 2u);
  EXPECT_EQ(config.cfl, 3.0f);
  EXPECT_EQ(config.fixed_dt, 0.0f);
  EXPECT_EQ(config.integrator, Integrator::etdrk4);
  EXPECT_EQ(config.operatorKind, OperatorKind::stress);
  EXPECT_EQ(config.start_spectrum, StartSpectrum::PAO);
  EXPECT_DOUBLE_EQ(config.reynolds, 27898.36614974335);
}

TEST(SolverConfig, TheDefaultReynoldsNumberGrowsWithTheGridAndFallsWithThePeak) {
  EXPECT_DOUBLE_EQ(DefaultReynolds(1024, 4), 27898.36614974335);
  EXPECT_NEAR(DefaultReynolds(2048, 4) / DefaultReynolds(1024, 4), std::pow(2.0, 1.06624), 1e-12);
  EXPECT_NEAR(DefaultReynolds(1024, 40) / DefaultReynolds(1024, 4), std::pow(10.0, -0.083911),
              1e-12);
}

TEST(SolverConfig, ReynoldsNumbersArePositiveWithAFiniteViscosity) {
  for (const double reynolds : {1e-38, 1.0, 1e300, infinity}) {
    EXPECT_EQ(checkWith([&](Config& c) { c.reynolds = reynolds; }), "nothing failed") << reynolds;
  }
  for (const double reynolds : {0.0, -0.0, -1.0, 1e-39, notANumber, -infinity}) {
    EXPECT_EQ(checkWith([&](Config& c) { c.reynolds = reynolds; }), refusal) << reynolds;
  }
}

TEST(SolverConfig, CourantNumbersAndFixedStepsAreFinite) {
  for (const double value : {0.0, -1.0, notANumber, infinity}) {
    EXPECT_EQ(checkWith([&](Config& c) { c.cfl = static_cast<float>(value); }), refusal) << value;
  }
  for (const double value : {-1.0, -1e-45, notANumber, infinity}) {
    EXPECT_EQ(checkWith([&](Config& c) { c.fixed_dt = static_cast<float>(value); }), refusal)
        << value;
  }
  EXPECT_EQ(checkWith([](Config& c) { c.fixed_dt = 0.5f; }), "nothing failed");
  EXPECT_EQ(checkWith([](Config& c) { c.cfl = 1e-45f; }), "nothing failed");
}

TEST(SolverConfig, ThePeakIsAtLeastOneAndChoicesAreKnown) {
  EXPECT_EQ(checkWith([](Config& c) { c.k0 = 0; }), refusal);
  EXPECT_EQ(checkWith([](Config& c) { c.k0 = -4; }), refusal);
  EXPECT_EQ(checkWith([](Config& c) { c.k0 = 1; }), "nothing failed");
  EXPECT_EQ(checkWith([](Config& c) { c.integrator = Integrator{3}; }), refusal);
  EXPECT_EQ(checkWith([](Config& c) { c.operatorKind = OperatorKind{2}; }), refusal);
  EXPECT_EQ(checkWith([](Config& c) { c.start_spectrum = StartSpectrum{2}; }), refusal);
}

TEST(SolverConfig, TheViscosityIsTheRoundedReciprocal) {
  EXPECT_EQ(viscosityOf(3.0), static_cast<float>(1.0 / 3.0));
  EXPECT_EQ(viscosityOf(infinity), 0.0f);
  EXPECT_TRUE(std::isinf(viscosityOf(1e-39)));
}

TEST(SolverConfig, ALiveReynoldsNumberMustBeFinite) {
  EXPECT_TRUE(isReynolds(1e300));
  for (const double reynolds : {0.0, -1.0, infinity, notANumber, 1e-39}) {
    EXPECT_FALSE(isReynolds(reynolds)) << reynolds;
  }
  EXPECT_FALSE(isCfl(0.0f));
  EXPECT_FALSE(isCfl(std::numeric_limits<float>::infinity()));
  EXPECT_TRUE(isCfl(0.1f));
}

TEST(SolverConfig, ASolverChecksTheSameRules) {
  Config config = test::configOf(15);
  EXPECT_EQ(test::badArgument([&] { Solver solver(config); }), refusal);
}

}  // namespace
}  // namespace zeph
