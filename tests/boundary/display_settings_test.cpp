#include "boundary/display_settings_json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

DisplaySettings read(const std::string& text, const DisplaySettings& present = {}) {
  return readDisplaySettings(Json::parse(text), present);
}

template <class Failure = std::exception>
std::string failure(const std::string& text) {
  return failureText<Failure>([&] { read(text); });
}

TEST(DisplaySettings, AnEmptyObjectLeavesThem) {
  EXPECT_EQ(displaySettingsToJson(read("{}")), displaySettingsToJson({}));
  const DisplaySettings other{
      Display::speed, Palette::glacier, ColorRange::exposure, 0.5f, 3.0f, true};
  EXPECT_EQ(displaySettingsToJson(read("{}", other)), displaySettingsToJson(other));
}

TEST(DisplaySettings, StartAsAnEmberPictureOfVorticity) {
  const Json json = displaySettingsToJson({});
  EXPECT_EQ(json["display"], "vorticity");
  EXPECT_EQ(json["palette"], "ember");
  EXPECT_EQ(json["color_range"], "sigma");
  EXPECT_EQ(json["exposure"], static_cast<double>(1.2f));
  EXPECT_EQ(json["sigma"], 2.5);
  EXPECT_EQ(json["flow"], false);
}

TEST(DisplaySettings, EveryNameIsReadAndWritten) {
  const auto expectNames = [](const char* key, std::initializer_list<const char*> names) {
    for (const char* name : names)
      EXPECT_EQ(displaySettingsToJson(readDisplaySettings(Json{{key, name}}, {}))[key], name);
  };
  expectNames("display", {"vorticity", "speed", "enstrophy"});
  expectNames("palette", {"aurora", "ember", "glacier", "inferno"});
  expectNames("color_range", {"sigma", "exposure"});
  EXPECT_EQ(read(R"({"display": "enstrophy"})").display, Display::enstrophy);
  EXPECT_EQ(read(R"({"palette": "inferno"})").palette, Palette::inferno);
  EXPECT_EQ(read(R"({"color_range": "exposure"})").colorRange, ColorRange::exposure);
  EXPECT_TRUE(read(R"({"flow": true})").flow);
}

TEST(DisplaySettings, AnUnknownNameIsRefused) {
  EXPECT_EQ(failure<std::invalid_argument>(R"({"palette": "Ember"})"), "Unknown palette: Ember");
  EXPECT_EQ(failure<std::invalid_argument>(R"({"display": ""})"), "Unknown display: ");
  EXPECT_EQ(failure<std::invalid_argument>(R"({"color_range": "max"})"),
            "Unknown color_range: max");
}

TEST(DisplaySettings, NumbersOutOfRangeAreClamped) {
  EXPECT_EQ(read(R"({"exposure": 10})").exposure, 3.0f);
  EXPECT_EQ(read(R"({"exposure": 0})").exposure, 0.25f);
  EXPECT_EQ(read(R"({"exposure": 0.3})").exposure, 0.3f);
  EXPECT_EQ(read(R"({"sigma": 1})").sigma, 1.5f);
  EXPECT_EQ(read(R"({"sigma": 9})").sigma, 3.5f);
  EXPECT_EQ(read(R"({"sigma": 1e300})").sigma, 3.5f);
}

TEST(DisplaySettings, ValuesOfAnotherTypeAreRefused) {
  EXPECT_EQ(failure(R"({"exposure": true})"),
            "[json.exception.type_error.302] type must be number, but is boolean");
  EXPECT_EQ(failure(R"({"sigma": "2"})"),
            "[json.exception.type_error.302] type must be number, but is string");
  EXPECT_EQ(failure(R"({"flow": 1})"),
            "[json.exception.type_error.302] type must be boolean, but is number");
  EXPECT_EQ(failure(R"({"display": 1})"),
            "[json.exception.type_error.302] type must be string, but is number");
}

TEST(DisplaySettings, ANumberThatIsNotFiniteIsNamed) {
  const auto words = failureText<std::invalid_argument>([] {
    readDisplaySettings(Json{{"sigma", HUGE_VAL}}, {});
  });
  EXPECT_EQ(words, "Non-finite sigma");
}

}  // namespace
}  // namespace zeph
