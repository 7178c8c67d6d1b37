// The constants of a draw.
#include "render/uniforms.h"

#include <gtest/gtest.h>

namespace zeph {
namespace {

Frame frame() {
  Frame frame;
  frame.gridSize = 54;
  frame.maxVorticity = 8.0f;
  frame.meanVorticity = 0.25f;
  frame.stdVorticity = 2.0f;
  frame.maxSpeed = 3.0f;
  return frame;
}

Uniforms uniforms(const Frame& frame, const DisplaySettings& settings = {}) {
  return uniformsOf(frame, settings, {}, false);
}

TEST(Uniforms, DescribeTheFrameItsSettingsItsPlaceAndItsTarget) {
  const DisplaySettings settings = {.display = Display::enstrophy,
                                    .palette = Palette::inferno,
                                    .colorRange = ColorRange::exposure,
                                    .exposure = 0.75f,
                                    .sigma = 1.5f,
                                    .flow = true};
  const PicturePlace place = {.x = 5, .y = 6, .size = 700, .rounded = 15};
  const Uniforms all = uniformsOf(frame(), settings, place, true);
  EXPECT_EQ(all.gridSize, 54u);
  EXPECT_EQ(all.palette, 3u);
  EXPECT_EQ(all.display, 2u);
  EXPECT_EQ(all.showFlowLines, 1u);
  EXPECT_EQ(all.exposure, 0.75f);
  EXPECT_EQ(all.vorticityScale, 8.0f);
  EXPECT_EQ(all.speedScale, 3.0f);
  EXPECT_EQ(all.vorticityMean, 0.25f);
  EXPECT_EQ(all.vorticityColorRange, 1u);
  EXPECT_EQ(all.outputHDR, 1u);
  EXPECT_EQ(all.canvasPixels, 700.0f);
  EXPECT_EQ(all.rounded, 15.0f);
}

TEST(Uniforms, OfTheUsualSettingsAreAnEmberPictureOfVorticityInStandardRange) {
  const Uniforms usual = uniforms(frame());
  EXPECT_EQ(usual.palette, 1u);
  EXPECT_EQ(usual.display, 0u);
  EXPECT_EQ(usual.showFlowLines, 0u);
  EXPECT_EQ(usual.exposure, 1.2f);
  EXPECT_EQ(usual.vorticityColorRange, 0u);
  EXPECT_EQ(usual.outputHDR, 0u);
  EXPECT_EQ(usual.rounded, 0.0f);
}

// What the shaders find at each offset.
TEST(Uniforms, AreInTheOrderThatTheShadersRead) {
  EXPECT_EQ(offsetof(Uniforms, gridSize), 0u);
  EXPECT_EQ(offsetof(Uniforms, palette), 4u);
  EXPECT_EQ(offsetof(Uniforms, display), 8u);
  EXPECT_EQ(offsetof(Uniforms, showFlowLines), 12u);
  EXPECT_EQ(offsetof(Uniforms, exposure), 16u);
  EXPECT_EQ(offsetof(Uniforms, vorticityScale), 20u);
  EXPECT_EQ(offsetof(Uniforms, speedScale), 24u);
  EXPECT_EQ(offsetof(Uniforms, vorticityMean), 28u);
  EXPECT_EQ(offsetof(Uniforms, vorticityColorRange), 32u);
  EXPECT_EQ(offsetof(Uniforms, outputHDR), 36u);
  EXPECT_EQ(offsetof(Uniforms, canvasPixels), 40u);
  EXPECT_EQ(offsetof(Uniforms, rounded), 44u);
}

TEST(Uniforms, TheVorticityIsScaledByItsDeviationOnlyIfItIsShownLinearly) {
  for (const Display display : {Display::vorticity, Display::speed, Display::enstrophy}) {
    for (const ColorRange range : {ColorRange::sigma, ColorRange::exposure}) {
      const DisplaySettings settings = {.display = display, .colorRange = range, .sigma = 3.0f};
      const bool isLinear = display == Display::vorticity && range == ColorRange::sigma;
      EXPECT_EQ(uniforms(frame(), settings).vorticityScale, isLinear ? 6.0f : 8.0f);
    }
  }
}

TEST(Uniforms, NoScaleIsZeroForAFlowAtRest) {
  const Frame still;
  EXPECT_EQ(uniforms(still).vorticityScale, 1e-12f);
  EXPECT_EQ(uniforms(still, {.colorRange = ColorRange::exposure}).vorticityScale, 0.0001f);
  EXPECT_EQ(uniforms(still, {.display = Display::enstrophy}).vorticityScale, 0.0001f);
  EXPECT_EQ(uniforms(still).speedScale, 0.0001f);
}

TEST(Uniforms, TheLeastScalesGiveWayToLargerOnes) {
  Frame slow;
  slow.stdVorticity = 1e-12f;
  slow.maxVorticity = 0.00011f;
  slow.maxSpeed = 0.00012f;
  EXPECT_EQ(uniforms(slow, {.sigma = 2.0f}).vorticityScale, 2e-12f);
  EXPECT_EQ(uniforms(slow, {.colorRange = ColorRange::exposure}).vorticityScale, 0.00011f);
  EXPECT_EQ(uniforms(slow).speedScale, 0.00012f);
}

}  // namespace
}  // namespace zeph
