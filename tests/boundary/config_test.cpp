// Configurations as JSON. tests/abi/test_configuration.py checks the refusals and their
// texts.
#include "boundary/config.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

Config parsed(const std::string& text, const Config& base = {}) {
  return parseConfig(Json::parse(text), base);
}

std::string failure(const std::string& text, const Config& base = {}) {
  return failureText([&] { parsed(text, base); });
}

TEST(Config, TheDefaultsMatchTheirJson) {
  const Json json = configToJson(Config{});
  EXPECT_EQ(json.size(), 11u);
  EXPECT_EQ(json["resolution"], 1024);
  EXPECT_EQ(json["padded_resolution"], 1536);
  EXPECT_EQ(json["k0"], 4);
  EXPECT_EQ(json["seed"], "2");
  EXPECT_EQ(json["reynolds"], 27898.36614974335);
  EXPECT_EQ(json["viscosity"], static_cast<double>(static_cast<float>(1 / 27898.36614974335)));
  EXPECT_EQ(json["cfl"], 3.0);
  EXPECT_TRUE(json["fixed_dt"].is_null());
  EXPECT_EQ(json["integrator"], "etdrk4");
  EXPECT_EQ(json["operator"], "stress");
  EXPECT_EQ(json["start_spectrum"], "PAO");
}

TEST(Config, EveryMemberIsReadAndWritten) {
  const Json json = configToJson(parsed(R"({
    "resolution": 26, "k0": 3, "seed": "18446744073709551615", "reynolds": 1e4, "cfl": 0.1,
    "integrator": "ifHeunRK3", "operator": "advective", "start_spectrum": "KM3",
    "fixed_dt": 0.001, "colour": [1]})"));
  EXPECT_EQ(json["resolution"], 26);
  EXPECT_EQ(json["padded_resolution"], 39);
  EXPECT_EQ(json["k0"], 3);
  EXPECT_EQ(json["seed"], "18446744073709551615");
  EXPECT_EQ(json["reynolds"], 1e4);
  EXPECT_EQ(json["viscosity"], 9.999999747378752e-05);
  EXPECT_EQ(json["cfl"], 0.10000000149011612);
  EXPECT_EQ(json["integrator"], "ifHeunRK3");
  EXPECT_EQ(json["operator"], "advective");
  EXPECT_EQ(json["start_spectrum"], "KM3");
  EXPECT_EQ(json["fixed_dt"], 0.0010000000474974513);
  EXPECT_FALSE(json.contains("colour"));
}

TEST(Config, NullKeepsTheBaseExceptThatItSelectsTheAdaptiveStep) {
  Config base;
  base.resolution = 64;
  base.k0 = 5;
  base.seed = 6;
  base.reynolds = 700;
  base.cfl = 0.8f;
  base.integrator = Integrator::imexRK3;
  base.operatorKind = OperatorKind::advective;
  base.start_spectrum = StartSpectrum::KM3;
  base.fixed_dt = 0.5f;
  const Config config = parsed(R"({"resolution": null, "k0": null, "seed": null, "reynolds": null,
    "cfl": null, "integrator": null, "operator": null, "start_spectrum": null})",
                               base);
  EXPECT_EQ(configToJson(config), configToJson(base));
  EXPECT_EQ(parsed(R"({"fixed_dt": null})", base).fixed_dt, 0.0f);
}

TEST(Config, ADeeplyNestedSeedIsRefusedLikeAnyOther) {
  const std::size_t depth = 200000;
  const std::string nested = std::string(depth, '[') + std::string(depth, ']');
  EXPECT_EQ(failure(R"({"seed": )" + nested + "}"), "Seed must be UInt64.");
  EXPECT_EQ(parsed(R"({"note": )" + nested + "}").seed, 2u);
}

TEST(Config, ABaseThatIsNotFiniteIsNamed) {
  Config base;
  base.reynolds = std::numeric_limits<double>::infinity();
  EXPECT_EQ(failure("{}", base), "Non-finite reynolds");
  base = {};
  base.cfl = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(failure("{}", base), "Non-finite cfl");
}

}  // namespace
}  // namespace zeph
