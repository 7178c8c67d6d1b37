// The kernels that form products in physical space and bound the speed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "kernels/kernels.h"
#include "tests/support/arrays.h"
#include "tests/support/guarded.h"
#include "tests/support/processors.h"

namespace zeph {
namespace {

using test::Guarded;
using test::Numbers;
using test::Sizes;

std::size_t planeCount(const Params& p) {
  return p.operatorKind == OperatorKind::stress ? 2 : 4;
}

// The place of sample `index` of the padded grid in its plane.
std::size_t placeOf(std::size_t index, const Sizes& z) {
  return index / z.m * 2 * z.s + index % z.m;
}

void formProducts(std::vector<float>& planes, std::size_t at, std::size_t plane, const Params& p) {
  float* sample = planes.data() + at;
  const float u = p.scale * sample[0];
  const float v = p.scale * sample[plane];
  if (p.operatorKind == OperatorKind::stress) {
    sample[0] = (u * u) - (v * v);
    sample[plane] = u * v;
  } else {
    const float gx = p.scale * sample[2 * plane];
    const float gy = p.scale * sample[3 * plane];
    sample[0] = -((u * gx) + (v * gy));
  }
}

struct Reduced {
  std::vector<float> planes;
  std::vector<V2> partials;
};

// Thread by thread, as in a launch of 64 blocks of 256 threads.
Reduced expectedReduction(const std::vector<float>& planes, int n, const Params& p) {
  const Sizes z(n);
  const std::size_t plane = 2 * z.plane;
  Reduced result = {planes, std::vector<V2>(64)};
  for (std::size_t block = 0; block < 64; ++block) {
    float largest = 0.0f;
    bool invalid = false;
    for (std::size_t thread = 0; thread < 256; ++thread) {
      for (std::size_t k = block * 256 + thread; k < z.m * z.m; k += 64 * 256) {
        const std::size_t at = placeOf(k, z);
        for (std::size_t q = 0; q < planeCount(p); ++q) {
          invalid = invalid || !std::isfinite(p.scale * planes[q * plane + at]);
        }
        const float u = p.scale * planes[at];
        const float v = p.scale * planes[plane + at];
        largest = std::fmax(largest, std::fabs(u) + std::fabs(v));
        formProducts(result.planes, at, plane, p);
      }
    }
    result.partials[block] = {largest, invalid ? 1.0f : 0.0f};
  }
  return result;
}

void expectReduction(const std::vector<float>& planes, int n, const Params& p) {
  const Reduced expected = expectedReduction(planes, n, p);
  test::onEveryProcessor([&] {
    Guarded<float> work(planes);
    Guarded<V2> partials(64, V2{-1.0f, -1.0f});
    reduceCFLAndProducts(nullptr, work.data(), partials.data(), p);
    EXPECT_TRUE(work.holds(expected.planes));
    ASSERT_TRUE(partials.holds(expected.partials));
  });
}

TEST(ReduceCFLAndProducts, FormsProductsAndBoundsTheSpeedOfEachBlock) {
  for (const int n : test::resolutions) {
    for (const std::uint32_t operatorKind : {0u, 1u}) {
      SCOPED_TRACE(testing::Message() << "N = " << n << ", operator " << operatorKind);
      const Params p = test::paramsOf(n, operatorKind);
      expectReduction(Numbers(21).floats(planeCount(p) * 2 * Sizes(n).plane), n, p);
    }
  }
}

TEST(ReduceCFLAndProducts, AValueThatIsNotFiniteFlagsOnlyItsBlock) {
  const int n = 64;
  const Sizes z(n);
  for (const std::uint32_t operatorKind : {0u, 1u}) {
    const Params p = test::paramsOf(n, operatorKind);
    const std::vector<float> clean = Numbers(22).floats(planeCount(p) * 2 * z.plane);
    for (std::size_t plane = 0; plane < planeCount(p); ++plane) {
      for (const float value :
           {test::notANumber, -test::notANumber, test::infinity, -test::infinity}) {
        // The first, an inner and the last lane of a block, and the last sample of all.
        for (const std::size_t k :
             {std::size_t{512}, std::size_t{700}, std::size_t{1023}, z.m * z.m - 1}) {
          SCOPED_TRACE(testing::Message() << "operator " << operatorKind << ", plane " << plane
                                          << ", value " << value << ", sample " << k);
          std::vector<float> planes = clean;
          planes[plane * 2 * z.plane + placeOf(k, z)] = value;
          const Reduced expected = expectedReduction(planes, n, p);
          for (std::size_t b = 0; b < 64; ++b) {
            ASSERT_EQ(expected.partials[b].im, b == k / 256 % 64 ? 1.0f : 0.0f);
          }
          expectReduction(planes, n, p);
        }
      }
    }
  }
}

TEST(ReduceCFLAndProducts, ABlockOfNothingButNaNHasTheBoundZero) {
  const int n = 16;
  const Params p = test::paramsOf(n);
  const std::vector<float> planes(4 * Sizes(n).plane, test::notANumber);
  expectReduction(planes, n, p);
  EXPECT_EQ(expectedReduction(planes, n, p).partials[0].re, 0.0f);
}

TEST(ReduceCFLAndProducts, AnOverflowOfTheSumIsInfinityWithACleanFlag) {
  const int n = 16;
  const Sizes z(n);
  Params p = test::paramsOf(n);
  p.scale = 1.0f;
  std::vector<float> planes(4 * z.plane, 0.0f);
  planes[placeOf(300, z)] = 3e38f;
  planes[2 * z.plane + placeOf(300, z)] = -3e38f;
  expectReduction(planes, n, p);
  EXPECT_EQ(expectedReduction(planes, n, p).partials[1].re, test::infinity);
  EXPECT_EQ(expectedReduction(planes, n, p).partials[1].im, 0.0f);
}

TEST(ReduceCFLAndProducts, AFlowAtRestGivesZerosAndCleanFlags) {
  for (const int n : {16, 18}) {
    for (const float zero : {0.0f, -0.0f}) {
      Guarded<float> work(4 * Sizes(n).plane, zero);
      Guarded<V2> partials(64, V2{-1.0f, -1.0f});
      reduceCFLAndProducts(nullptr, work.data(), partials.data(), test::paramsOf(n));
      EXPECT_TRUE(partials.holds(std::vector<V2>(64, V2{0.0f, 0.0f})));
    }
  }
}

TEST(ReduceCFLAndProducts, BlocksWithoutSamplesAreZero) {
  const int n = 18;  // 27 * 27 samples reach into the third block
  const Params p = test::paramsOf(n);
  Guarded<float> work(Numbers(4).floats(4 * Sizes(n).plane));
  Guarded<V2> partials(64, V2{-1.0f, -1.0f});
  reduceCFLAndProducts(nullptr, work.data(), partials.data(), p);
  EXPECT_GT(partials[2].re, 0.0f);
  for (std::size_t b = 3; b < 64; ++b) EXPECT_TRUE(test::sameBits(partials[b], V2{0.0f, 0.0f}));
}

TEST(NonlinearProducts, MatchThoseOfTheFirstStage) {
  for (const int n : test::resolutions) {
    for (const std::uint32_t operatorKind : {0u, 1u}) {
      SCOPED_TRACE(testing::Message() << "N = " << n << ", operator " << operatorKind);
      const Sizes z(n);
      const Params p = test::paramsOf(n, operatorKind);
      std::vector<float> planes = Numbers(23).floats(planeCount(p) * 2 * z.plane);
      planes[placeOf(77, z)] = test::notANumber;
      const std::vector<float> expected = expectedReduction(planes, n, p).planes;
      test::onEveryProcessor([&] {
        Guarded<float> work(planes);
        nonlinearProducts(nullptr, work.data(), p);
        ASSERT_TRUE(work.holds(expected));
      });
    }
  }
}

}  // namespace
}  // namespace zeph
