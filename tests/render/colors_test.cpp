// The colours of a picture: three displays, four palettes, two ranges, two kinds of target.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/render/reference.h"

namespace zeph {
namespace {

constexpr int grid = 18;
constexpr int pixels = 97;

constexpr Display displays[] = {Display::vorticity, Display::speed, Display::enstrophy};
constexpr Palette palettes[] = {Palette::aurora, Palette::ember, Palette::glacier,
                                Palette::inferno};
constexpr ColorRange ranges[] = {ColorRange::sigma, ColorRange::exposure};

// Linear light is not rounded to steps; the error is from 32-bit arithmetic, the device's powers,
// and the 11 bits of a half float.
bool isAsBright(double found, double expected) {
  return std::fabs(found - expected) <= 1e-4 + 0.005 * expected;
}

class Colors : public test::OnRenderer {
 protected:
  void expectDisplayValues(const Frame& frame, const test::Picture& picture,
                           const DisplaySettings& settings) {
    SCOPED_TRACE(testing::Message() << "display " << static_cast<int>(settings.display)
                                    << ", palette " << static_cast<int>(settings.palette)
                                    << ", range " << static_cast<int>(settings.colorRange));
    test::expectReference(picture, frame, settings);
  }
};

// Each choice of quantity, palette and range.
template <class Body>
void forEachChoice(Body body) {
  for (const Display display : displays)
    for (const Palette palette : palettes)
      for (const ColorRange range : ranges)
        body(DisplaySettings{.display = display, .palette = palette, .colorRange = range});
}

TEST_F(Colors, AreThoseOfTheFormulasForEveryChoice) {
  const auto frame = test::noise(grid);
  forEachChoice([&](const DisplaySettings& settings) {
    if (HasFatalFailure()) return;
    expectDisplayValues(*frame, draw(frame, settings, pixels), settings);
  });
}

TEST_F(Colors, AreLightInHighDynamicRangeForEveryChoice) {
  const auto frame = test::noise(grid);
  double brightest = 0;
  forEachChoice([&](const DisplaySettings& settings) {
    if (HasFatalFailure()) return;
    const test::Picture picture = draw(frame, settings, pixels, TexelFormat::rgba16);
    for (int row = 0; row < pixels; ++row) {
      for (int column = 0; column < pixels; ++column) {
        const test::Color found = picture.at(column, row);
        const test::Color expected =
            test::lightReference(test::pixelReference(*frame, settings, pixels, column, row));
        ASSERT_TRUE(isAsBright(found.red, expected.red) &&
                    isAsBright(found.green, expected.green) &&
                    isAsBright(found.blue, expected.blue))
            << "column " << column << ", row " << row << ", display "
            << static_cast<int>(settings.display) << ", palette "
            << static_cast<int>(settings.palette);
        ASSERT_EQ(picture.alphaAt(column, row), 1.0);
        brightest = std::max({brightest, found.red, found.green, found.blue});
      }
    }
  });
  EXPECT_GT(brightest, 1.8);
  EXPECT_LE(brightest, 2.0);
}

TEST_F(Colors, FollowExposureWithAFloorAndSigma) {
  const auto frame = test::noise(grid);
  for (const float exposure : {0.001f, 0.25f, 3.0f}) {
    for (const Display display : displays) {
      const DisplaySettings settings = {
          .display = display, .colorRange = ColorRange::exposure, .exposure = exposure};
      expectDisplayValues(*frame, draw(frame, settings, pixels), settings);
    }
  }
  for (const float sigma : {1.5f, 3.5f}) {
    const DisplaySettings settings = {.sigma = sigma};
    expectDisplayValues(*frame, draw(frame, settings, pixels), settings);
  }
}

TEST_F(Colors, OfVorticityUseExposureOrTheMeanButNotBoth) {
  const auto frame = test::noise(grid);
  const auto shifted = std::make_shared<Frame>(*frame);
  shifted->meanVorticity += 0.5f;
  DisplaySettings settings;
  DisplaySettings brighter = {.exposure = 3.0f};
  EXPECT_EQ(draw(frame, settings, pixels), draw(frame, brighter, pixels));
  EXPECT_FALSE(draw(frame, settings, pixels) == draw(shifted, settings, pixels));
  settings.colorRange = brighter.colorRange = ColorRange::exposure;
  EXPECT_FALSE(draw(frame, settings, pixels) == draw(frame, brighter, pixels));
  EXPECT_EQ(draw(frame, settings, pixels), draw(shifted, settings, pixels));
}

TEST_F(Colors, OfAFlowAtRestSaturateWithTheSmallestDeviation) {
  const auto frame = test::frameOf(16, [](double x, double) { return x < 0.5 ? 1e-9 : -1e-9; });
  frame->stdVorticity = 0;
  frame->meanVorticity = 0;
  const DisplaySettings settings = {.palette = Palette::inferno};
  const test::Picture picture = draw(frame, settings, 64);
  EXPECT_LE(test::largestDifference(picture.at(16, 32), {0.988, 0.998, 0.645}),
            test::displayTolerance);
  EXPECT_LE(test::largestDifference(picture.at(44, 32), {0.001, 0, 0.014}), test::displayTolerance);
}

TEST_F(Colors, OfAZeroFieldAreTheBase) {
  const auto frame = test::frameOf(16, test::zero);
  for (const Display display : displays) {
    const test::Color base = display == Display::vorticity ? test::Color{0.017, 0.026, 0.055}
                                                           : test::Color{0.019, 0.028, 0.063};
    for (const Palette palette : {Palette::aurora, Palette::ember, Palette::glacier}) {
      const test::Picture picture = draw(frame, {.display = display, .palette = palette}, 5);
      EXPECT_LE(test::largestDifference(picture.at(2, 2), base), 0.5001 / 255);
    }
  }
}

}  // namespace
}  // namespace zeph
