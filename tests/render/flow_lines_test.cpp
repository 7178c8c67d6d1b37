// Flow lines: 32 x 32 of them over a picture, each a short piece of a streamline.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "tests/render/reference.h"

namespace zeph {
namespace {

constexpr int lines = 32;  // on a side
constexpr int pixels = 1024;
constexpr int cell = pixels / lines;
constexpr double pi = std::numbers::pi;

// How much of the line's colour lies over each pixel: 0 for none, 1 for nothing else.
class Cover {
 public:
  Cover(const test::Picture& without, const test::Picture& with, double lineRed)
      : width_(without.width()), height_(without.height()) {
    for (int row = 0; row < height_; ++row) {
      for (int column = 0; column < width_; ++column) {
        const double before = without.at(column, row).red;
        values_.push_back((with.at(column, row).red - before) / (lineRed - before));
      }
    }
  }

  double at(int column, int row) const {
    return values_[static_cast<std::size_t>(row * width_ + column)];
  }
  double largest() const { return *std::max_element(values_.begin(), values_.end()); }

  double sum(int left, int top, int right, int bottom) const {
    double sum = 0;
    for (int row = top; row < bottom; ++row)
      for (int column = left; column < right; ++column) sum += at(column, row);
    return sum;
  }

  // The correlation of the cover with itself, shifted.
  double likeness(int right, int down) const {
    double sum = 0;
    for (int row = std::max(0, -down); row < height_ - std::max(0, down); ++row)
      for (int column = 0; column < width_ - right; ++column)
        sum += at(column, row) * at(column + right, row + down);
    return sum;
  }

 private:
  int width_;
  int height_;
  std::vector<double> values_;
};

// Over a dark field, whose red is 0.017, in half floats: fine steps.
class FlowLines : public test::OnRenderer {
 protected:
  static constexpr TexelFormat format = TexelFormat::rgba16;

  static std::shared_ptr<Frame> uniform(double u, double v, float fastest) {
    auto frame = test::frameOf(
        16, test::zero, [=](double, double) { return u; }, [=](double, double) { return v; });
    frame->maxSpeed = fastest;
    return frame;
  }

  Cover coverOf(const std::shared_ptr<const Frame>& frame) {
    return coverIn(frame, {.size = pixels});
  }
  Cover coverIn(const std::shared_ptr<const Frame>& frame, const PicturePlace& place) {
    const test::Picture without = drawIn(frame, DisplaySettings(), pixels, place, format);
    return {without, drawIn(frame, {.flow = true}, pixels, place, format), 1.0764712};
  }
};

// Few cells, much enlarged, so that no pixel holds more than a piece of one line.
constexpr int closeCells = 4;  // on a side
constexpr int closeCell = pixels / closeCells;
constexpr float closeSide = closeCell * lines;
constexpr PicturePlace close = {.x = -12 * closeCell, .y = -12 * closeCell, .size = closeSide};

TEST_F(FlowLines, AreDrawnOnlyWhereAskedForAndOnlyWithVelocity) {
  const auto frame = uniform(1, 0, 1);
  DisplaySettings settings;
  const test::Picture without = draw(frame, settings, 200);
  settings.flow = true;
  EXPECT_FALSE(draw(frame, settings, 200) == without);
  const auto plain = std::make_shared<Frame>(*frame);
  plain->hasVelocity = false;
  EXPECT_EQ(draw(plain, settings, 200), without);
}

TEST_F(FlowLines, LeaveTheTargetOpaque) {
  const auto frame = uniform(1, 0.5, 1.2f);
  for (const TexelFormat kind : {TexelFormat::bgra8, TexelFormat::rgba16}) {
    const test::Picture picture = draw(frame, {.flow = true}, 200, kind);
    for (int row = 0; row < 200; ++row)
      for (int column = 0; column < 200; ++column)
        ASSERT_NEAR(picture.alphaAt(column, row), 1.0, kind == TexelFormat::bgra8 ? 0.0 : 0.001);
  }
}

TEST_F(FlowLines, AreNotDrawnInStillWater) {
  const DisplaySettings settings = {.flow = true};
  for (const double share : {0.0, 0.004}) {
    const auto frame = uniform(share, 0, 1);
    EXPECT_EQ(draw(frame, settings, 300), draw(frame, DisplaySettings(), 300)) << share;
  }
  const auto faint = uniform(0.02, 0, 1);
  EXPECT_FALSE(draw(faint, settings, 300, format) == draw(faint, DisplaySettings(), 300, format));
}

// A flow at rest: nothing that its least scale makes visible.
TEST_F(FlowLines, OfAFlowAtRestAreNotDrawn) {
  const auto frame = uniform(1e-7, 1e-7, 0);
  EXPECT_EQ(draw(frame, {.flow = true}, 300), draw(frame, DisplaySettings(), 300));
}

TEST_F(FlowLines, RunAlongTheVelocity) {
  constexpr int step = 24;
  // Downward in the picture is against v.
  const auto along = [&](double u, double v) { return coverOf(uniform(u, v, 1)); };
  const Cover right = along(1, 0);
  EXPECT_GT(right.likeness(step, 0), 5 * right.likeness(0, step));
  const Cover up = along(0, 1);
  EXPECT_GT(up.likeness(0, step), 5 * up.likeness(step, 0));
  const Cover rising = along(0.7, 0.7);
  EXPECT_GT(rising.likeness(step, -step), 5 * rising.likeness(step, step));
  const Cover falling = along(0.7, -0.7);
  EXPECT_GT(falling.likeness(step, step), 5 * falling.likeness(step, -step));
}

// Lines of a slow flow are short, so that none leaves its cell.
constexpr double slow = 0.05;
double lengthOf(double speed) {
  return 0.18 * speed * pixels;
}
double opacityOf(double speed) {
  return 0.25 * test::eased((speed - 0.005) / 0.145);
}

// The middle of a line is at its seed, in the middle half of its cell.
TEST_F(FlowLines, EachCellOfTheLatticeHasOneOfTheLengthOfItsSpeed) {
  const Cover cover = coverOf(uniform(slow, 0, 1));
  const double length = lengthOf(slow);
  for (int y = 0; y < lines; ++y) {
    for (int x = 0; x < lines; ++x) {
      double sum = 0;
      double mean = 0;
      double square = 0;
      int first = cell;
      int last = -1;
      for (int column = 0; column < cell; ++column) {
        const double there =
            cover.sum(x * cell + column, y * cell, x * cell + column + 1, (y + 1) * cell);
        if (there < 0.002) continue;
        first = std::min(first, column);
        last = column;
        sum += there;
        mean += there * (column + 0.5);
        square += there * (column + 0.5) * (column + 0.5);
      }
      SCOPED_TRACE(testing::Message() << "cell " << x << ", " << y);
      ASSERT_GT(sum, 0);
      mean /= sum;
      const double spread = std::sqrt(square / sum - mean * mean);
      ASSERT_GT(mean, cell * 0.25 - 0.5);
      ASSERT_LT(mean, cell * 0.75 + 0.5);
      ASSERT_LE(last - first + 1, length + 2);
      ASSERT_GE(last - first + 1, length - 3);
      // Of a sine to the power 0.7 over its half wave.
      ASSERT_NEAR(spread / length, 0.2367, 0.03);
    }
  }
}

TEST_F(FlowLines, StayInTheMiddleHalfOfTheRowsOfTheirLattice) {
  const Cover cover = coverOf(uniform(1, 0, 1));
  for (int row = 0; row < pixels; ++row) {
    const double within = (row + 0.5) / cell - row / cell;
    const double there = cover.sum(0, row, pixels, row + 1);
    const double margin = 1.5 / cell;
    if (within < 0.25 - margin || within > 0.75 + margin) {
      EXPECT_EQ(there, 0.0) << row;
    }
  }
  for (int y = 0; y < lines; ++y)
    EXPECT_GT(cover.sum(0, y * cell, pixels, (y + 1) * cell), 0.0) << y;
}

// How much of its opacity a line of one pixel has across it depends on how the driver softens it.
TEST_F(FlowLines, AreOpaqueByTheirSpeedAndFadeToNothingAtBothEnds) {
  double taper = 0;  // the mean over a line
  for (int k = 0; k < 1800; ++k) taper += std::pow(std::sin(pi * (k + 0.5) / 1800), 0.7) / 1800;
  std::vector<double> shares;
  for (const double speed : {0.03, 0.05, 0.08}) {
    const Cover cover = coverIn(uniform(speed, 0, 1), close);
    const double mean = cover.sum(0, 0, pixels, pixels) / (closeCells * closeCells);
    shares.push_back(mean / (taper * opacityOf(speed) * 0.18 * speed * closeSide));
    EXPECT_LE(cover.largest(), 1.05 * opacityOf(speed));
  }
  EXPECT_GT(shares[1], 0.7);
  EXPECT_LT(shares[1], 1.3);
  EXPECT_NEAR(shares[0], shares[1], 0.06 * shares[1]);
  EXPECT_NEAR(shares[2], shares[1], 0.06 * shares[1]);
}

TEST_F(FlowLines, FadeLikeASineToThePowerOfSevenTenths) {
  double weight = 0;
  double square = 0;
  for (int k = 0; k < 1800; ++k) {
    const double at = (k + 0.5) / 1800 - 0.5;
    const double taper = std::pow(std::cos(pi * at), 0.7);
    weight += taper;
    square += taper * at * at;
  }
  const Cover cover = coverIn(uniform(slow, 0, 1), close);
  for (int y = 0; y < closeCells; ++y) {
    for (int x = 0; x < closeCells; ++x) {
      double sum = 0;
      double mean = 0;
      double second = 0;
      for (int column = x * closeCell; column < (x + 1) * closeCell; ++column) {
        const double there = cover.sum(column, y * closeCell, column + 1, (y + 1) * closeCell);
        sum += there;
        mean += there * column;
        second += there * column * column;
      }
      mean /= sum;
      const double spread = std::sqrt(second / sum - mean * mean);
      EXPECT_NEAR(spread / (0.18 * slow * closeSide), std::sqrt(square / weight), 0.008);
    }
  }
}

// In a flow that turns as a whole they are arcs of circles, so that few radii have any.
TEST_F(FlowLines, FollowTheirStreamline) {
  const auto frame = test::frameOf(
      64, test::zero, [](double, double y) { return 0.5 - y; },
      [](double x, double) { return x - 0.5; });
  frame->maxSpeed = 0.04f;  // a quarter of a radian in each of the steps
  const float corner = pixels / 2.0f - closeSide / 2;
  const Cover cover = coverIn(frame, {.x = corner, .y = corner, .size = closeSide});
  std::vector<double> radii(240);
  for (int row = 0; row < pixels; ++row) {
    for (int column = 0; column < pixels; ++column) {
      const double radius = std::hypot(column + 0.5 - pixels / 2, row + 0.5 - pixels / 2);
      if (radius < 240) radii[static_cast<std::size_t>(radius)] += cover.at(column, row);
    }
  }
  const auto covered = std::count_if(radii.begin(), radii.end(), [](double c) { return c > 1; });
  EXPECT_GT(covered, 0);
  EXPECT_LT(covered, 40);
}

// Lines may lie over one another, two or three in a place.
TEST_F(FlowLines, OfAnyFastFlowCoverAQuarter) {
  for (const double speed : {0.16, 1.0}) {
    const Cover cover = coverIn(uniform(speed, 0, 1), close);
    EXPECT_GE(cover.largest(), 0.2) << speed;
    EXPECT_LE(cover.largest(), 1 - std::pow(0.75, 3)) << speed;
  }
}

TEST_F(FlowLines, AreCutOffAtTheEdgeAndDoNotComeBackOnTheOtherSide) {
  const Cover cover = coverOf(uniform(1, 0, 1));
  const int strip = pixels / 128;
  const double middle = cover.sum(pixels / 4, 0, 3 * pixels / 4, pixels) * strip / (pixels / 2);
  // Those that come from one side alone.
  EXPECT_NEAR(cover.sum(0, 0, strip, pixels), middle / 2, 0.2 * middle);
  EXPECT_NEAR(cover.sum(pixels - strip, 0, pixels, pixels), middle / 2, 0.2 * middle);
}

TEST_F(FlowLines, DoNotLeaveThePlaceOfTheirPicture) {
  const auto frame = uniform(0.7, 0.7, 1);
  const auto target = renderer().makeTarget(300, 300, TexelFormat::bgra8);
  renderer().drawPicture(*target, frame, {.palette = Palette::inferno}, {.size = 300});
  const test::Picture before(renderer().readTarget(*target));
  renderer().drawPicture(*target, frame, {.flow = true}, {.x = 50, .y = 60, .size = 200});
  const test::Picture after(renderer().readTarget(*target));
  for (int row = 0; row < 300; ++row) {
    for (int column = 0; column < 300; ++column) {
      if (column >= 50 && column < 250 && row >= 60 && row < 260) continue;
      ASSERT_EQ(test::largestDifference(before.at(column, row), after.at(column, row)), 0.0)
          << "column " << column << ", row " << row;
    }
  }
}

TEST_F(FlowLines, BendWithTheFlow) {
  const auto u = [](double, double y) { return -std::sin(2 * pi * (y - 0.5)); };
  const auto v = [](double x, double) { return std::sin(2 * pi * (x - 0.5)); };
  const Cover cover = coverOf(test::frameOf(64, test::zero, u, v));
  constexpr double step = 14;
  double along = 0;
  double across = 0;
  for (int row = 20; row < pixels - 20; ++row) {
    for (int column = 20; column < pixels - 20; ++column) {
      const double x = (column + 0.5) / pixels;
      const double y = 1 - (row + 0.5) / pixels;
      const double speed = std::hypot(u(x, y), v(x, y));
      if (speed < 0.5) continue;
      const int right = static_cast<int>(std::lround(step * u(x, y) / speed));
      const int up = static_cast<int>(std::lround(step * v(x, y) / speed));
      along += cover.at(column, row) * cover.at(column + right, row - up);
      across += cover.at(column, row) * cover.at(column - up, row - right);
    }
  }
  EXPECT_GT(along, 2 * across);
}

// One colour in display values, twice its light in high dynamic range.
TEST_F(FlowLines, HaveOneColorOfTheirOwn) {
  const auto frame = uniform(0.15, 0, 1);
  const auto expectToward = [&](TexelFormat kind, const test::Color& line) {
    const test::Picture without = drawIn(frame, DisplaySettings(), pixels, close, kind);
    const test::Picture with = drawIn(frame, {.flow = true}, pixels, close, kind);
    int seen = 0;
    for (int row = 0; row < pixels; ++row) {
      for (int column = 0; column < pixels; ++column) {
        const test::Color from = without.at(column, row);
        const test::Color to = with.at(column, row);
        const double share = (to.green - from.green) / (line.green - from.green);
        if (share < 0.1) continue;
        ++seen;
        ASSERT_LE(test::largestDifference(to, test::mix(from, line, share)), 2.5 / 255)
            << "column " << column << ", row " << row;
      }
    }
    EXPECT_GT(seen, 1000);
  };
  expectToward(TexelFormat::bgra8, {0.76, 0.93, 1.0});
  expectToward(TexelFormat::rgba16, {1.0764712, 1.6961768, 2.0});
}

}  // namespace
}  // namespace zeph
