#include "render/overlay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "tests/render/overlay_items.h"

namespace zeph {
namespace {

constexpr const char* preparing = "Preparing the flow";
constexpr const char* failed = "Flow initialization failed - see error below";

ShownStatus statusOf(bool ready, bool running = true) {
  ShownStatus status;
  status.ready = ready;
  status.running = running;
  return status;
}

std::vector<std::string> textsOf(const ShownStatus& status, float side = 512) {
  std::vector<std::string> texts;
  for (const OverlayItem& item : overlayOf(status, side))
    if (!item.isPanel()) texts.push_back(item.text);
  return texts;
}

// Of an overlay without a message: badge, three glyphs, time.
std::string badgeOf(const ShownStatus& status) {
  return textsOf(status).front();
}

std::string timeOf(double time) {
  ShownStatus status = statusOf(true);
  status.time = time;
  return textsOf(status).back();
}

TEST(Overlay, HasItsItemsAtTheirPlacesInTheirOrder) {
  ShownStatus status = statusOf(false);
  status.seed = 42;
  status.time = 1.5;
  const std::vector<OverlayItem> items = overlayOf(status, 600);
  const std::vector<OverlayItem> wanted = {
      test::textAt({20, 285, 580, 330}, preparing, 12, false),
      test::panelAt({14, 14, 204, 40}, 13),
      test::textAt({24, 14, 204, 40}, "UNFORCED · SEED 42", 8, true),
      test::panelAt({14, 551, 128, 586}, 18),
      test::textAt({26, 551, 52, 586}, "Ⅱ", 14, false),
      test::textAt({64, 551, 90, 586}, "▸Ⅰ", 14, false),
      test::textAt({102, 551, 128, 586}, "↶", 14, false),
      test::panelAt({486, 554, 586, 583}, 15),
      test::textAt({496, 554, 576, 583}, "t  1.500", 10, true),
  };
  ASSERT_EQ(items.size(), wanted.size());
  for (std::size_t k = 0; k < wanted.size(); ++k) EXPECT_TRUE(items[k] == wanted[k]) << k;
}

TEST(Overlay, HangsOnTheSideOfThePicture) {
  const std::vector<OverlayItem> items = overlayOf(statusOf(false), 333.25f);
  ASSERT_EQ(items.size(), 9u);
  EXPECT_EQ(items[0].place, (Rectangle{20, 151.625f, 313.25f, 196.625f}));
  EXPECT_EQ(items[1].place, (Rectangle{14, 14, 204, 40}));
  EXPECT_EQ(items[3].place, (Rectangle{14, 284.25f, 128, 319.25f}));
  EXPECT_EQ(items[7].place, (Rectangle{219.25f, 287.25f, 319.25f, 316.25f}));
}

TEST(Overlay, IsAlsoDrawnOnASmallSide) {
  for (const float side : {0.5f, 1.0f, 20.0f, 100.0f}) {
    const std::vector<OverlayItem> items = overlayOf(statusOf(false), side);
    ASSERT_EQ(items.size(), 9u) << side;
    EXPECT_EQ(items[0].place, (Rectangle{20, side / 2 - 15, side - 20, side / 2 + 30}));
    EXPECT_EQ(items[1].place, (Rectangle{14, 14, 204, 40}));
    EXPECT_EQ(items[3].place, (Rectangle{14, side - 49, 128, side - 14}));
    EXPECT_EQ(items[8].place, (Rectangle{side - 104, side - 46, side - 24, side - 17}));
    EXPECT_EQ(items[8].size, 10);
  }
}

TEST(Overlay, ShowsBeforeTheFirstFrameThatTheFlowIsPrepared) {
  EXPECT_EQ(textsOf(statusOf(false)).front(), preparing);
  EXPECT_EQ(textsOf(statusOf(false)).size(), 6u);
}

TEST(Overlay, ShowsThatTheFlowCouldNotBeCreated) {
  ShownStatus status = statusOf(false);
  status.failed = true;
  EXPECT_EQ(textsOf(status).front(), failed);
}

TEST(Overlay, HasNoMessageOnceAFrameIsReadyWhateverFailsLater) {
  ShownStatus status = statusOf(true);
  EXPECT_EQ(textsOf(status).size(), 5u);
  status.failed = true;
  EXPECT_EQ(textsOf(status).size(), 5u);
  EXPECT_EQ(textsOf(status).front(), badgeOf(status));
  EXPECT_TRUE(badgeOf(status).starts_with("UNFORCED"));
}

TEST(Overlay, ShowsTheSeedAsAnUnsignedDecimalNumber) {
  ShownStatus status = statusOf(true);
  for (const std::uint64_t seed : {std::uint64_t{0}, std::uint64_t{7}, std::uint64_t{1} << 63,
                                   std::numeric_limits<std::uint64_t>::max()}) {
    status.seed = seed;
    EXPECT_EQ(badgeOf(status), "UNFORCED · SEED " + std::to_string(seed));
  }
  EXPECT_EQ(badgeOf(status), "UNFORCED · SEED 18446744073709551615");
}

TEST(Overlay, ShowsTheTimeWithThreeDecimals) {
  EXPECT_EQ(timeOf(0), "t  0.000");
  EXPECT_EQ(timeOf(0.0004), "t  0.000");
  EXPECT_EQ(timeOf(0.0006), "t  0.001");
  EXPECT_EQ(timeOf(1234.5678), "t  1234.568");
  EXPECT_EQ(timeOf(1e300).size(), 3u + 301u + 4u);
}

TEST(Overlay, OffersPauseWhileTheFlowRunsAndElsePlay) {
  EXPECT_EQ(textsOf(statusOf(true, true))[1], "\u2161");
  EXPECT_EQ(textsOf(statusOf(true, false))[1], "\u25b6");
  for (const bool running : {true, false}) {
    EXPECT_EQ(textsOf(statusOf(true, running))[2], "\u25b8\u2160");
    EXPECT_EQ(textsOf(statusOf(true, running))[3], "\u21b6");
  }
}

TEST(Overlay, HasItsColours) {
  EXPECT_EQ(ink, (Color{0.9f, 0.92f, 0.95f, 1.0f}));
  EXPECT_EQ(panel, (Color{0, 0, 0, 0.35f}));
  EXPECT_EQ(clearColour, (Color{0.035f, 0.047f, 0.073f, 1.0f}));
}

TEST(Colours, InLinearLightKeepTheirAlpha) {
  EXPECT_EQ(linearized(panel), panel);
  const Color light = linearized({1, 0, 0.5f, 0.25f});
  EXPECT_FLOAT_EQ(light.red, 1);
  EXPECT_EQ(light.green, 0);
  EXPECT_NEAR(light.blue, 0.21404114, 1e-6);
  EXPECT_EQ(light.alpha, 0.25f);
}

TEST(Colours, NearBlackAreProportionalInLinearLight) {
  EXPECT_FLOAT_EQ(linearized({0.04045f, 0, 0, 1}).red, 0.04045f / 12.92f);
  EXPECT_FLOAT_EQ(linearized({0, 0.02f, 0, 1}).green, 0.02f / 12.92f);
  EXPECT_NEAR(linearized(clearColour).blue, 0.0063314, 1e-6);
}

TEST(Buttons, LieInARowOnTheBar) {
  const float y = 600 - 30;
  EXPECT_EQ(buttonAt(14, y, 600), Button::toggle);
  EXPECT_EQ(buttonAt(51.9f, y, 600), Button::toggle);
  EXPECT_EQ(buttonAt(52, y, 600), Button::step);
  EXPECT_EQ(buttonAt(89.9f, y, 600), Button::step);
  EXPECT_EQ(buttonAt(90, y, 600), Button::reset);
  EXPECT_EQ(buttonAt(127.9f, y, 600), Button::reset);
}

TEST(Buttons, EndWithTheBar) {
  const float y = 600 - 30;
  EXPECT_FALSE(buttonAt(13.9f, y, 600));
  EXPECT_FALSE(buttonAt(128, y, 600));
  EXPECT_FALSE(buttonAt(-20, y, 600));
  EXPECT_TRUE(buttonAt(20, 551, 600));
  EXPECT_FALSE(buttonAt(20, 550.9f, 600));
  EXPECT_TRUE(buttonAt(20, 586, 600));
  EXPECT_FALSE(buttonAt(20, 586.1f, 600));
}

TEST(Buttons, CoverTheGlyphsOfASquareCanvas) {
  const std::vector<OverlayItem> items = overlayOf(statusOf(true), 600);
  for (int k = 0; k < 3; ++k) {
    const Rectangle& place = items[static_cast<std::size_t>(3 + k)].place;
    const auto found =
        buttonAt((place.left + place.right) / 2, (place.top + place.bottom) / 2, 600);
    ASSERT_TRUE(found);
    EXPECT_EQ(static_cast<int>(*found), k);
  }
}

// The bar is drawn from the smaller side and sought from the height.
TEST(Buttons, LieBelowTheBarOfACanvasThatIsHigherThanWide) {
  const float height = 1000;
  const Rectangle bar = overlayOf(statusOf(true), 600)[2].place;
  EXPECT_FALSE(buttonAt(20, (bar.top + bar.bottom) / 2, height));
  EXPECT_EQ(buttonAt(20, height - 49, height), Button::toggle);
  EXPECT_EQ(buttonAt(20, height - 14, height), Button::toggle);
}

TEST(Buttons, AreFoundInDeviceIndependentUnits) {
  const float scale = 1.5f;
  const float height = 900 / scale;
  const float y = (900 - 45) / scale;
  EXPECT_EQ(buttonAt(21 / scale, y, height), Button::toggle);
  EXPECT_FALSE(buttonAt(20 / scale, y, height));
  EXPECT_EQ(buttonAt(191 / scale, y, height), Button::reset);
  EXPECT_FALSE(buttonAt(192 / scale, y, height));
}

}  // namespace
}  // namespace zeph
