// Where the points of a field are in its picture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "tests/render/reference.h"

namespace zeph {
namespace {

class Sampling : public test::OnRenderer {};

constexpr DisplaySettings exposed = {.palette = Palette::aurora,
                                     .colorRange = ColorRange::exposure};

TEST_F(Sampling, TheFirstRowIsAtTheBottomAndTheFirstColumnAtTheLeft) {
  const auto frame =
      test::frameOf(16, [](double x, double y) { return x < 0.4 && y < 0.4 ? 1.0 : 0.0; });
  const test::Picture picture = draw(frame, exposed, 32);
  EXPECT_GT(picture.at(6, 25).green, 0.9);
  EXPECT_LT(picture.at(25, 25).green, 0.1);
  EXPECT_LT(picture.at(6, 6).green, 0.1);
  EXPECT_LT(picture.at(25, 6).green, 0.1);
}

// The middle of pixel c of 9 is (2c + 1) / 18.
TEST_F(Sampling, APixelOnAGridPointShowsItsValue) {
  const auto frame = test::noise(18);
  const test::Picture picture = draw(frame, exposed, 9);
  for (int row = 0; row < 9; ++row) {
    for (int column = 0; column < 9; ++column) {
      const int at = (2 * (8 - row) + 1) * 18 + 2 * column + 1;
      const double w = static_cast<double>(frame->data()[at] / frame->maxVorticity);
      const double t = std::tanh(2.4 * static_cast<double>(exposed.exposure) * w);
      const test::Color expected = test::divergingReference(Palette::aurora, t);
      EXPECT_LE(test::largestDifference(picture.at(column, row), expected), test::displayTolerance);
    }
  }
}

TEST_F(Sampling, IsBilinearForPicturesAndGridsOfAnySize) {
  for (const int n : {16, 18, 34}) {
    const auto frame = test::noise(n);
    for (const int pixels : {1, 7, 64, 300}) {
      SCOPED_TRACE(testing::Message() << "grid " << n << ", picture " << pixels);
      test::expectReference(draw(frame, exposed, pixels), *frame, exposed);
    }
  }
}

// Moves every plane by whole columns and rows, those that leave on one side coming in on the other.
std::shared_ptr<Frame> moved(const Frame& frame, int right, int up) {
  const int n = frame.gridSize;
  std::vector<float> values;
  for (int plane = 0; plane < 3; ++plane)
    for (int j = 0; j < n; ++j)
      for (int i = 0; i < n; ++i)
        values.push_back(frame.data()[(plane * n + (j - up + n) % n) * n + (i - right + n) % n]);
  return test::frameOf(n, values);
}

TEST_F(Sampling, AFieldHasNoSeam) {
  const int n = 18;
  const int pixels = 4 * n;
  const auto frame = test::noise(n);
  const test::Picture still = draw(frame, exposed, pixels);
  const test::Picture there = draw(moved(*frame, 5, 7), exposed, pixels);
  for (int row = 0; row < pixels; ++row) {
    for (int column = 0; column < pixels; ++column) {
      const test::Color before = still.at((column - 4 * 5 + pixels) % pixels,  //
                                          (row + 4 * 7) % pixels);
      ASSERT_LE(test::largestDifference(there.at(column, row), before), 1.01 / 255)
          << "column " << column << ", row " << row;
    }
  }
}

// Between the last column and the first, as everywhere, the field is the mean of its neighbours.
TEST_F(Sampling, TheLastColumnPassesIntoTheFirst) {
  const int n = 16;
  const auto frame = test::frameOf(n, [](double x, double) { return x > 0.9 ? 1.0 : 0.0; });
  const test::Picture picture = draw(frame, exposed, 16 * n);
  const auto brightness = [&](int column) { return picture.at(column, 100).green; };
  for (int column = 16 * (n - 1); column < 16 * n - 1; ++column)
    EXPECT_GE(brightness(column), brightness(column + 1));
  EXPECT_GT(brightness(16 * (n - 1)), 0.9);
  EXPECT_LT(brightness(16 * n - 1), 0.1);
}

}  // namespace
}  // namespace zeph
