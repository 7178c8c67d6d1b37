#include "kernels/params.h"

#include <gtest/gtest.h>

#include <cstddef>

namespace zeph {
namespace {

TEST(KernelRecords, ParametersHaveNoPadding) {
  EXPECT_EQ(sizeof(Params), 52u);
  EXPECT_EQ(offsetof(Params, resolution), 0u);
  EXPECT_EQ(offsetof(Params, padded), 4u);
  EXPECT_EQ(offsetof(Params, method), 8u);
  EXPECT_EQ(offsetof(Params, stage), 12u);
  EXPECT_EQ(offsetof(Params, viscosity), 16u);
  EXPECT_EQ(offsetof(Params, cfl), 20u);
  EXPECT_EQ(offsetof(Params, fixedDt), 24u);
  EXPECT_EQ(offsetof(Params, scale), 28u);
  EXPECT_EQ(offsetof(Params, endHigh), 32u);
  EXPECT_EQ(offsetof(Params, endLow), 36u);
  EXPECT_EQ(offsetof(Params, hasEnd), 40u);
  EXPECT_EQ(offsetof(Params, blocks), 44u);
  EXPECT_EQ(offsetof(Params, operatorKind), 48u);
}

TEST(KernelRecords, TheClockHasFortyBytesOnAnEightByteBoundary) {
  EXPECT_EQ(sizeof(ClockState), 40u);
  EXPECT_EQ(alignof(ClockState), 8u);
  EXPECT_EQ(offsetof(ClockState, timeHigh), 0u);
  EXPECT_EQ(offsetof(ClockState, timeLow), 4u);
  EXPECT_EQ(offsetof(ClockState, dt), 8u);
  EXPECT_EQ(offsetof(ClockState, rawDt), 12u);
  EXPECT_EQ(offsetof(ClockState, steps), 16u);
  EXPECT_EQ(offsetof(ClockState, maxSpeed), 24u);
  EXPECT_EQ(offsetof(ClockState, healthy), 28u);
  EXPECT_EQ(offsetof(ClockState, stepState), 32u);
}

TEST(KernelRecords, ComplexNumbersAndPartialsArePlainFloats) {
  EXPECT_EQ(sizeof(V2), 8u);
  EXPECT_EQ(offsetof(V2, im), 4u);
  EXPECT_EQ(sizeof(float4), 16u);
  EXPECT_EQ(offsetof(float4, w), 12u);
}

TEST(GridSizes, FollowFromTheResolution) {
  struct Row {
    int n, m, w, s;
  };
  for (const Row& row : {Row{16, 24, 9, 16}, Row{18, 27, 10, 16}, Row{34, 51, 18, 32},
                         Row{1024, 1536, 513, 776}, Row{16384, 24576, 8193, 12296}}) {
    EXPECT_EQ(paddedResolution(row.n), row.m);
    EXPECT_EQ(halfWidth(row.n), row.w);
    EXPECT_EQ(paddedStride(row.m), row.s);
  }
}

TEST(GridSizes, APaddedRowHoldsItsSpectrumOnAnAlignedBoundary) {
  for (int n = 16; n <= 16384; n += 2) {
    const int m = paddedResolution(n);
    ASSERT_GE(paddedStride(m), m / 2 + 1);
    ASSERT_EQ(paddedStride(m) % 8, 0);
    ASSERT_LE(paddedStride(m) - 8, m / 2);
  }
}

}  // namespace
}  // namespace zeph
