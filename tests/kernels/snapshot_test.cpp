// The physical fields of a snapshot and their moments.
#include <gtest/gtest.h>

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

constexpr float untouched = -777.0f;

struct Extracted {
  std::vector<float> fields;
  std::vector<float4> partials;
};

struct Lanes {
  float maxima[256] = {};
  float speeds[256] = {};
  float sums[256] = {};
  float squares[256] = {};
  unsigned invalid[256] = {};

  void reduce() {
    for (std::size_t stride = 128; stride > 0; stride /= 2) {
      for (std::size_t t = 0; t < stride; ++t) {
        maxima[t] = std::fmax(maxima[t], maxima[t + stride]);
        speeds[t] = std::fmax(speeds[t], speeds[t + stride]);
        sums[t] = sums[t] + sums[t + stride];
        squares[t] = squares[t] + squares[t + stride];
        invalid[t] |= invalid[t + stride];
      }
    }
  }
};

// The elements of the three planes, N rows of N + 2 floats each.
std::size_t planeSize(const Sizes& z) {
  return (z.n + 2) * z.n;
}

void addSample(Extracted& result, Lanes& lanes, std::size_t t, const std::vector<float>& planes,
               std::size_t k, const Params& p) {
  const Sizes z(static_cast<int>(p.resolution));
  const std::size_t at = k / z.n * (z.n + 2) + k % z.n;
  const float w = p.scale * planes[at];
  const float u = p.stage == 3 ? p.scale * planes[planeSize(z) + at] : 0.0f;
  const float v = p.stage == 3 ? p.scale * planes[2 * planeSize(z) + at] : 0.0f;
  result.fields[k] = w;
  result.fields[z.n * z.n + k] = u;
  result.fields[2 * z.n * z.n + k] = v;
  lanes.maxima[t] = std::fmax(lanes.maxima[t], std::fabs(w));
  lanes.speeds[t] = std::fmax(lanes.speeds[t], std::sqrt((u * u) + (v * v)));
  lanes.sums[t] += w;
  lanes.squares[t] += w * w;
  if (!std::isfinite(w) || !std::isfinite(u) || !std::isfinite(v)) lanes.invalid[t] = 1;
}

Extracted expectedExtraction(const std::vector<float>& planes, const Params& p) {
  const Sizes z(static_cast<int>(p.resolution));
  Extracted result = {std::vector<float>(3 * z.n * z.n), std::vector<float4>(128)};
  for (std::size_t block = 0; block < 64; ++block) {
    Lanes lanes;
    for (std::size_t t = 0; t < 256; ++t) {
      for (std::size_t k = block * 256 + t; k < z.n * z.n; k += 64 * 256) {
        addSample(result, lanes, t, planes, k, p);
      }
    }
    lanes.reduce();
    result.partials[block] = {lanes.maxima[0], lanes.speeds[0],
                              static_cast<float>(lanes.invalid[0]), 0.0f};
    result.partials[64 + block] = {lanes.sums[0], lanes.squares[0], 0.0f, 0.0f};
  }
  return result;
}

Params paramsOf(int n, std::uint32_t planes) {
  Params p = test::paramsOf(n);
  p.stage = planes;
  return p;
}

void expectExtraction(const std::vector<float>& planes, const Params& p) {
  const Extracted expected = expectedExtraction(planes, p);
  test::onEveryProcessor([&] {
    const Guarded<float> given(planes);
    Guarded<float> fields(expected.fields.size(), untouched);
    Guarded<float4> partials(128, float4{-1.0f, -1.0f, -1.0f, -1.0f});
    extractSnapshot(nullptr, given.data(), fields.data(), partials.data(), p);
    EXPECT_TRUE(given.holds(planes));
    EXPECT_TRUE(fields.holds(expected.fields));
    ASSERT_TRUE(partials.holds(expected.partials));
  });
}

TEST(ExtractSnapshot, PacksThePlanesAndReducesThemBitForBit) {
  for (const int n : test::resolutions) {
    for (const std::uint32_t planes : {1u, 3u}) {
      SCOPED_TRACE(testing::Message() << "N = " << n << ", planes " << planes);
      expectExtraction(Numbers(91).floats(3 * planeSize(Sizes(n))), paramsOf(n, planes));
    }
  }
}

TEST(ExtractSnapshot, NeverReadsThePaddingOfARow) {
  const int n = 18;
  const Sizes z(n);
  std::vector<float> planes = Numbers(92).floats(3 * planeSize(z));
  for (std::size_t k = 0; k < planes.size(); ++k) {
    if (k % (z.n + 2) >= z.n) planes[k] = test::notANumber;
  }
  Guarded<float> fields(3 * z.n * z.n, untouched);
  Guarded<float4> partials(128, float4{});
  extractSnapshot(nullptr, planes.data(), fields.data(), partials.data(), paramsOf(n, 3));
  for (const float value : fields.content()) ASSERT_TRUE(std::isfinite(value));
  for (const float4& partial : partials.content()) EXPECT_EQ(partial.z, 0.0f);
}

TEST(ExtractSnapshot, WithOnePlaneTheVelocityIsZeroWhateverItsPlanesHold) {
  const int n = 16;
  const Sizes z(n);
  std::vector<float> planes = Numbers(93).floats(3 * planeSize(z));
  for (std::size_t k = planeSize(z); k < planes.size(); ++k) planes[k] = test::notANumber;
  Guarded<float> fields(3 * z.n * z.n, untouched);
  Guarded<float4> partials(128, float4{});
  extractSnapshot(nullptr, planes.data(), fields.data(), partials.data(), paramsOf(n, 1));
  for (std::size_t k = z.n * z.n; k < 3 * z.n * z.n; ++k) {
    EXPECT_TRUE(test::sameBits(fields[k], 0.0f));
  }
  for (std::size_t b = 0; b < 64; ++b) {
    EXPECT_EQ(partials[b].y, 0.0f);
    EXPECT_EQ(partials[b].z, 0.0f);
  }
}

TEST(ExtractSnapshot, AValueThatIsNotFiniteFlagsItsBlockAndIsLeftOutOfTheMaxima) {
  const int n = 34;
  const Sizes z(n);
  const std::vector<float> clean = Numbers(94).floats(3 * planeSize(z));
  for (std::size_t plane = 0; plane < 3; ++plane) {
    for (const float value : {test::notANumber, test::infinity, -test::infinity}) {
      for (const std::size_t k : {std::size_t{256}, std::size_t{511}, z.n * z.n - 1}) {
        SCOPED_TRACE(testing::Message() << plane << " " << value << " " << k);
        std::vector<float> planes = clean;
        planes[plane * planeSize(z) + k / z.n * (z.n + 2) + k % z.n] = value;
        const Extracted expected = expectedExtraction(planes, paramsOf(n, 3));
        for (std::size_t b = 0; b < 64; ++b) {
          ASSERT_EQ(expected.partials[b].z, b == k / 256 ? 1.0f : 0.0f);
          ASSERT_FALSE(std::isnan(expected.partials[b].x) || std::isnan(expected.partials[b].y));
        }
        expectExtraction(planes, paramsOf(n, 3));
      }
    }
  }
}

TEST(ExtractSnapshot, TheSpeedIsEuclidean) {
  const int n = 16;
  const Sizes z(n);
  std::vector<float> planes(3 * planeSize(z), 0.0f);
  planes[planeSize(z) + 5] = 3.0f * 256.0f;
  planes[2 * planeSize(z) + 5] = -4.0f * 256.0f;
  const Params p = paramsOf(n, 3);
  expectExtraction(planes, p);
  EXPECT_EQ(expectedExtraction(planes, p).partials[0].y, 5.0f);
}

}  // namespace
}  // namespace zeph
