// Pictures that are not the whole of their target, and their corners.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/render/reference.h"

namespace zeph {
namespace {

constexpr DisplaySettings below = {.palette = Palette::glacier};
constexpr DisplaySettings above = {.palette = Palette::ember, .colorRange = ColorRange::exposure};

class Places : public test::OnRenderer {
 protected:
  void SetUp() override {
    OnRenderer::SetUp();
    if (IsSkipped()) return;
    frame_ = test::noise(18);
  }

  // A target that a first picture covers.
  std::shared_ptr<Renderer::Target> covered(std::uint32_t width, std::uint32_t height,
                                            TexelFormat format = TexelFormat::bgra8) {
    auto target = renderer().makeTarget(width, height, format);
    renderer().drawPicture(*target, frame_, below,
                           {.size = static_cast<float>(std::max(width, height))});
    return target;
  }
  test::Picture read(const Renderer::Target& target) {
    return test::Picture(renderer().readTarget(target));
  }
  const std::shared_ptr<Frame>& frame() const { return frame_; }

 private:
  std::shared_ptr<Frame> frame_;
};

TEST_F(Places, NothingIsDrawnBesideThePicture) {
  const auto target = covered(100, 80);
  const test::Picture before = read(*target);
  renderer().drawPicture(*target, frame(), above, {.x = 30, .y = 20, .size = 50});
  const test::Picture after = read(*target);
  for (int row = 0; row < 80; ++row) {
    for (int column = 0; column < 100; ++column) {
      const bool isInside = column >= 30 && column < 80 && row >= 20 && row < 70;
      const test::Color expected =
          isInside ? test::pixelReference(*frame(), above, 50, column - 30, row - 20)
                   : before.at(column, row);
      ASSERT_LE(test::largestDifference(after.at(column, row), expected),
                isInside ? test::displayTolerance : 0.0)
          << "column " << column << ", row " << row;
    }
  }
}

TEST_F(Places, WhatReachesBeyondTheTargetIsCutOff) {
  const auto target = covered(40, 40);
  renderer().drawPicture(*target, frame(), above, {.x = -10, .y = 15, .size = 90});
  const test::Picture picture = read(*target);
  for (int row = 15; row < 40; ++row) {
    for (int column = 0; column < 40; ++column) {
      const test::Color expected = test::pixelReference(*frame(), above, 90, column + 10, row - 15);
      ASSERT_LE(test::largestDifference(picture.at(column, row), expected), test::displayTolerance)
          << "column " << column << ", row " << row;
    }
  }
}

struct Corner {
  int column;  // of the pixel that is the target's corner
  int row;
  bool isRounded;
};

TEST_F(Places, OnlyTheTwoLowerCornersAreRounded) {
  constexpr int side = 64;
  constexpr float radius = 15;
  for (const TexelFormat format : {TexelFormat::bgra8, TexelFormat::rgba16}) {
    const auto target = covered(side, side, format);
    const test::Picture before = read(*target);
    const test::Picture whole = draw(frame(), above, side, format);
    renderer().drawPicture(*target, frame(), above, {.size = side, .rounded = radius});
    const test::Picture after = read(*target);
    int kept = 0;
    for (int row = 0; row < side; ++row) {
      for (int column = 0; column < side; ++column) {
        const double x = std::min(column + 0.5, side - column - 0.5);
        const double y = side - row - 0.5;
        const double beyond = std::hypot(x - radius, y - radius) - radius;
        const bool isInSquare = x < radius && y < radius;
        if (isInSquare && std::fabs(beyond) < 1e-3) continue;
        const bool isKept = isInSquare && beyond > 0;
        kept += isKept ? 1 : 0;
        const test::Picture& expected = isKept ? before : whole;
        ASSERT_EQ(test::largestDifference(after.at(column, row), expected.at(column, row)), 0.0)
            << "column " << column << ", row " << row;
      }
    }
    // Two corners, each a square without its quarter of a disc.
    EXPECT_NEAR(kept, 2 * (1 - std::acos(-1.0) / 4) * radius * radius, 10);
  }
}

TEST_F(Places, CornersBelongToThePictureAndNotToTheTarget) {
  const auto target = covered(100, 80);
  const test::Picture before = read(*target);
  renderer().drawPicture(*target, frame(), above, {.x = 30, .y = 20, .size = 50, .rounded = 20});
  const test::Picture after = read(*target);
  const auto isKept = [&](int column, int row) {
    return test::largestDifference(after.at(column, row), before.at(column, row)) == 0.0;
  };
  for (const Corner& corner :
       {Corner{30, 69, true}, {79, 69, true}, {30, 20, false}, {79, 20, false}}) {
    const test::Color drawn =
        test::pixelReference(*frame(), above, 50, corner.column - 30, corner.row - 20);
    EXPECT_EQ(isKept(corner.column, corner.row), corner.isRounded);
    if (!corner.isRounded) {
      EXPECT_LE(test::largestDifference(after.at(corner.column, corner.row), drawn),
                test::displayTolerance);
    }
  }
}

}  // namespace
}  // namespace zeph
