#include "boundary/config.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

constexpr const char* refused =
    "Invalid resolution, Reynolds number, k0, CFL, fixed timestep, method or start spectrum.";

Config parsed(const std::string& text, const Config& base = {}) {
  return parseConfig(Json::parse(text), base);
}

std::string failure(const std::string& text, const Config& base = {}) {
  return failureText([&] { parsed(text, base); });
}

TEST(Config, AnEmptyObjectGivesTheBase) {
  EXPECT_EQ(configToJson(parsed("{}")), configToJson(Config{}));
  Config base;
  base.seed = 99;
  base.integrator = Integrator::imexRK3;
  base.fixed_dt = 0.5f;
  EXPECT_EQ(configToJson(parsed("{}", base)), configToJson(base));
}

TEST(Config, TheDefaultsReadAsTheirJson) {
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

TEST(Config, ItsJsonGivesItBack) {
  Config config;
  config.resolution = 96;
  config.seed = 1ull << 63;
  config.integrator = Integrator::imexRK3;
  config.fixed_dt = 0.25f;
  EXPECT_EQ(configToJson(parseConfig(configToJson(config), Config{})), configToJson(config));
}

TEST(Config, NullLeavesTheBaseButSetsTheAdaptiveStep) {
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

TEST(Config, GridsAreEvenFrom16To16384) {
  EXPECT_EQ(parsed(R"({"resolution": 16})").resolution, 16);
  EXPECT_EQ(parsed(R"({"resolution": 16384})").resolution, 16384);
  EXPECT_EQ(parsed(R"({"resolution": 18.9})").resolution, 18);
  EXPECT_EQ(parsed(R"({"resolution": 4294967360})").resolution, 64);
  for (const char* value : {"14", "17", "16386", "0", "-64", "true", "1e30", "-2147483648"})
    EXPECT_EQ(failure(std::string(R"({"resolution": )") + value + "}"), refused) << value;
  EXPECT_EQ(failure(R"({"resolution": "64"})"),
            "[json.exception.type_error.302] type must be number, but is string");
}

TEST(Config, AChangedGridKeepsTheReynoldsNumber) {
  EXPECT_EQ(parsed(R"({"resolution": 4096})").reynolds, 27898.36614974335);
}

TEST(Config, TheInitialWavenumberIsAtMostAMillion) {
  EXPECT_EQ(parsed(R"({"k0": 1000000})").k0, 1000000);
  EXPECT_EQ(failure(R"({"k0": 1000001})"), "Initial wavenumber is too large.");
  EXPECT_EQ(failure(R"({"k0": 1000001, "resolution": 15})"), refused);
  EXPECT_EQ(failure(R"({"k0": 0})"), refused);
  EXPECT_EQ(failure(R"({"k0": []})"),
            "[json.exception.type_error.302] type must be number, but is array");
}

TEST(Config, SeedsAreUnsignedNumbersOf64Bits) {
  EXPECT_EQ(parsed(R"({"seed": 7})").seed, parsed(R"({"seed": "7"})").seed);
  EXPECT_EQ(parsed(R"({"seed": "0007"})").seed, 7u);
  EXPECT_EQ(parsed(R"({"seed": 18446744073709551615})").seed, ~0ull);
  EXPECT_EQ(failure(R"({"seed": "18446744073709551616"})"), "stoull argument out of range");
  for (const char* value : {R"("")", R"("-1")", R"(" 1")", R"("0x1")", "-1", "1.5", "1e3", "true",
                            "[]", "{}", "18446744073709551616", R"("\u0661")"})
    EXPECT_EQ(failure(std::string(R"({"seed": )") + value + "}"), "Seed must be UInt64.") << value;
}

TEST(Config, ADeeplyNestedSeedIsRefusedLikeAnyOther) {
  const std::size_t depth = 200000;
  const std::string nested = std::string(depth, '[') + std::string(depth, ']');
  EXPECT_EQ(failure(R"({"seed": )" + nested + "}"), "Seed must be UInt64.");
  EXPECT_EQ(parsed(R"({"note": )" + nested + "}").seed, 2u);
}

TEST(Config, ReynoldsNumbersArePositiveWithAFiniteViscosity) {
  EXPECT_EQ(parsed(R"({"reynolds": 1e300})").reynolds, 1e300);
  EXPECT_EQ(viscosityOf(1e300), 0.0f);
  EXPECT_EQ(parsed(R"({"reynolds": 5})").reynolds, 5.0);
  for (const char* value : {"0", "-1", "1e-39", "-0.0"})
    EXPECT_EQ(failure(std::string(R"({"reynolds": )") + value + "}"), refused) << value;
  EXPECT_EQ(failure(R"({"reynolds": true})"),
            "[json.exception.type_error.302] type must be number, but is boolean");
}

TEST(Config, TheCourantNumberIsPositiveAndFiniteAsAFloat) {
  EXPECT_EQ(parsed(R"({"cfl": 0.1})").cfl, 0.1f);
  for (const char* value : {"0", "-1", "1e39", "1e-60"})
    EXPECT_EQ(failure(std::string(R"({"cfl": )") + value + "}"), refused) << value;
  EXPECT_EQ(failure(R"({"cfl": false})"),
            "[json.exception.type_error.302] type must be number, but is boolean");
}

TEST(Config, AFixedStepIsPositive) {
  EXPECT_EQ(parsed(R"({"fixed_dt": 0.5})").fixed_dt, 0.5f);
  for (const char* value : {"0", "-0.1", "1e-60"})
    EXPECT_EQ(failure(std::string(R"({"fixed_dt": )") + value + "}"),
              "Fixed timestep must be positive.");
  EXPECT_EQ(failure(R"({"fixed_dt": 1e39})"), refused);
  EXPECT_EQ(failure(R"({"fixed_dt": "1"})"),
            "[json.exception.type_error.302] type must be number, but is string");
}

TEST(Config, NamesAreExact) {
  EXPECT_EQ(failure(R"({"integrator": "ETDRK4"})"), "Unknown integrator: ETDRK4");
  EXPECT_EQ(failure(R"({"operator": "stres"})"), "Unknown operator: stres");
  EXPECT_EQ(failure(R"({"start_spectrum": "pao"})"), "Unknown start_spectrum: pao");
  EXPECT_EQ(failure(R"({"integrator": 2})"),
            "[json.exception.type_error.302] type must be string, but is number");
}

TEST(Config, AnotherIntegratorLeavesTheCourantNumber) {
  EXPECT_EQ(parsed(R"({"integrator": "imexRK3"})").cfl, 3.0f);
}

TEST(Config, TheFirstFailureInOrderIsReported) {
  EXPECT_EQ(failure(R"({"seed": "x", "cfl": true, "resolution": 15})"), "Seed must be UInt64.");
  EXPECT_EQ(failure(R"({"fixed_dt": 0, "integrator": "x"})"), "Unknown integrator: x");
  EXPECT_EQ(failure(R"({"fixed_dt": 0, "resolution": 15})"), "Fixed timestep must be positive.");
}

TEST(Config, ABaseThatIsNotFiniteIsNamed) {
  Config base;
  base.reynolds = std::numeric_limits<double>::infinity();
  EXPECT_EQ(failure("{}", base), "Non-finite reynolds");
  base = {};
  base.cfl = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(failure("{}", base), "Non-finite cfl");
}

TEST(Config, ARecordMadeWithoutJsonIsHeldToTheSameRule) {
  const auto checked = [](auto&& change) {
    Config config;
    change(config);
    return failureText<std::invalid_argument>([&] { checkConfig(config); });
  };
  EXPECT_EQ(checked([](Config&) {}), "(nothing raised)");
  EXPECT_EQ(checked([](Config& c) { c.k0 = 1000001; }), "(nothing raised)");
  EXPECT_EQ(checked([](Config& c) { c.resolution = 15; }), refused);
  EXPECT_EQ(checked([](Config& c) { c.reynolds = std::nan(""); }), refused);
  EXPECT_EQ(checked([](Config& c) { c.cfl = std::nanf(""); }), refused);
  EXPECT_EQ(checked([](Config& c) { c.fixed_dt = -1; }), refused);
  EXPECT_EQ(checked([](Config& c) { c.fixed_dt = INFINITY; }), refused);
  EXPECT_EQ(checked([](Config& c) { c.integrator = static_cast<Integrator>(3); }), refused);
  EXPECT_EQ(checked([](Config& c) { c.operatorKind = static_cast<OperatorKind>(2); }), refused);
  EXPECT_EQ(checked([](Config& c) { c.start_spectrum = static_cast<StartSpectrum>(2); }), refused);
}

TEST(Config, LiveNumbersArePositiveAndFinite) {
  EXPECT_TRUE(isReynolds(1e-38));
  for (const double value : {0.0, -1.0, 1e-39, double{INFINITY}, std::nan("")})
    EXPECT_FALSE(isReynolds(value)) << value;
  EXPECT_TRUE(isCfl(1e-45f));
  for (const float value : {0.0f, -1.0f, INFINITY, std::nanf("")}) EXPECT_FALSE(isCfl(value));
}

}  // namespace
}  // namespace zeph
