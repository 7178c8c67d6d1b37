#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "device/cpu/instruction_set.h"
#include "device/cpu/transforms/line_plan.h"
#include "device/cpu/transforms/plane_passes.h"
#include "tests/device/exact_transform.h"

namespace zeph::test {
namespace {

using cpu::InstructionSet;

struct VectorSet {
  const char* name;
  const cpu::PlanePasses* passes;
};

std::vector<VectorSet> setsOfThisMachine() {
  std::vector<VectorSet> sets = {{"SSE2", &cpu::sse2::planePasses}};
  if (cpu::instructionSet() >= InstructionSet::avx2)
    sets.push_back({"AVX2", &cpu::avx2::planePasses});
  if (cpu::instructionSet() >= InstructionSet::avx512) {
    sets.push_back({"AVX-512", &cpu::avx512::planePasses});
  }
  return sets;
}

constexpr int columns = 3;

// Transforms `columns` neighbouring columns of complex elements in place.
void transformLines(const cpu::PlanePasses& passes, int length, std::vector<float>& lines,
                    bool inverse) {
  const auto plan = cpu::LinePlan::forLength(length);
  const cpu::LineTables& tables = plan->tables();
  const int tile = (tables.inner != nullptr ? 2 * tables.inner->length : length) + length;
  std::vector<float> memory(static_cast<std::size_t>(2 * passes.linesPerTile * tile) + 16);
  cpu::PlanePass pass;
  pass.line = &tables;
  pass.planes = lines.data();
  pass.rowStride = 2 * columns;
  pass.inverse = inverse;
  pass.columns = columns;
  pass.scratch = memory.data() + (64 - reinterpret_cast<std::uintptr_t>(memory.data()) % 64) / 4;
  passes.columns(pass, 0, 0);
}

std::complex<double> element(const std::vector<float>& lines, int column, int j) {
  const auto at = static_cast<std::size_t>(2 * (columns * j + column));
  return {lines[at], lines[at + 1]};
}

ExactValues column(const std::vector<float>& lines, int index) {
  ExactValues values(lines.size() / (2 * columns));
  for (std::size_t j = 0; j < values.size(); ++j) {
    values[j] = element(lines, index, static_cast<int>(j));
  }
  return values;
}

double energy(const ExactValues& values) {
  double sum = 0;
  for (const std::complex<double>& value : values) sum += std::norm(value);
  return sum;
}

// The error at all frequencies of a short line, and at about a hundred of a long one.
double errorOf(const cpu::PlanePasses& passes, int length, bool inverse) {
  const std::vector<float> before = noise(static_cast<std::size_t>(2 * columns * length), 7);
  std::vector<float> lines = before;
  transformLines(passes, length, lines, inverse);
  const ExactValues roots = exactRoots(length, inverse ? 1 : -1);
  const int step = std::max(1, length / 101);
  RelativeError error;
  for (const int c : {0, columns - 1}) {
    const ExactValues line = column(before, c);
    for (int k = 0; k < length; k += step) {
      error.add(element(lines, c, k), exactElement(line, roots, k));
    }
    // The frequencies that are not compared must have the remaining energy.
    EXPECT_NEAR(energy(column(lines, c)) / (length * energy(line)), 1, 3e-6) << length;
  }
  return error.value();
}

// Rounding errors add up like a random walk over the stages. Sums over a large prime are longer,
// and Bluestein's algorithm passes through two longer lines.
double boundOf(int length) {
  const auto plan = cpu::LinePlan::forLength(length);
  double steps = 1;
  const cpu::LineTables& tables = plan->tables();
  const cpu::LineTables& stages = tables.inner != nullptr ? *tables.inner : tables;
  for (int s = 0; s < stages.stageCount; ++s) {
    const int radix = stages.stages[s].radix;
    steps += radix > 8 ? radix : std::log2(radix);
  }
  return (tables.inner != nullptr ? 1.2e-7 : 6e-8) * std::sqrt(steps);
}

void expectExact(int length) {
  for (const VectorSet& set : setsOfThisMachine()) {
    for (const bool inverse : {false, true}) {
      EXPECT_LT(errorOf(*set.passes, length, inverse), boundOf(length))
          << set.name << (inverse ? " inverse " : " forward ") << length;
    }
  }
}

TEST(LineTransforms, EveryButterflyAloneIsExactToRounding) {
  for (const int radix :
       {1, 2, 3, 4, 5, 7, 8, 11, 13, 17, 19, 23, 29, 31, 37, 41, 43, 47, 53, 59, 61}) {
    ASSERT_EQ(cpu::LinePlan(radix).tables().stageCount, 1) << radix;
    expectExact(radix);
  }
}

TEST(LineTransforms, EveryLengthUpToThreeHundredIsExactToRounding) {
  for (int length = 1; length <= 300; ++length) expectExact(length);
}

TEST(LineTransforms, LongLinesOfSmallFactorsAreExactToRounding) {
  for (const int length : {512,  768,  1024, 1331,  1500,  1536,  2048,  2187,  2401,  3072, 3125,
                           4095, 6144, 6561, 10000, 11163, 12288, 15015, 16384, 19683, 24576}) {
    expectExact(length);
  }
}

TEST(LineTransforms, LongLinesOfLargePrimeFactorsAreExactToRounding) {
  for (const int length : {307, 397, 509, 1021, 1527, 2045, 3 * 509, 4093, 6141, 8191, 12281,
                           3 * 8179, 24571, 3 * 8191}) {
    expectExact(length);
  }
}

TEST(LineTransforms, LinesWithALargePrimeFactorUseALongerConvolution) {
  EXPECT_EQ(cpu::LinePlan(3 * 61).tables().inner, nullptr);
  const cpu::LinePlan plan(3 * 67);
  ASSERT_NE(plan.tables().inner, nullptr);
  EXPECT_GE(plan.tables().inner->length, 2 * 3 * 67 - 1);
}

TEST(LineTransforms, BackAndForthGivesTheLineTimesItsLength) {
  for (const int length : {16, 27, 45, 67, 201, 1536, 3069}) {
    const std::vector<float> before = noise(static_cast<std::size_t>(2 * columns * length), 3);
    std::vector<float> lines = before;
    transformLines(cpu::sse2::planePasses, length, lines, false);
    transformLines(cpu::sse2::planePasses, length, lines, true);
    RelativeError error;
    for (std::size_t k = 0; k < lines.size(); ++k) error.add(double{lines[k]} / length, before[k]);
    EXPECT_LT(error.value(), 2 * boundOf(length)) << length;
  }
}

TEST(LineTransforms, EveryVectorWidthGivesTheSameBits) {
  for (const int length : {1, 2, 9, 24, 35, 61, 67, 143, 210, 768, 1536, 4095, 24576}) {
    const std::vector<float> before = noise(static_cast<std::size_t>(2 * columns * length), 5);
    std::vector<float> narrow = before;
    transformLines(cpu::sse2::planePasses, length, narrow, false);
    for (const VectorSet& set : setsOfThisMachine()) {
      std::vector<float> lines = before;
      transformLines(*set.passes, length, lines, false);
      EXPECT_EQ(std::memcmp(lines.data(), narrow.data(), lines.size() * sizeof(float)), 0)
          << set.name << " " << length;
    }
  }
}

TEST(LineTransforms, PlansOfOneLengthShareTheirTables) {
  const auto plan = cpu::LinePlan::forLength(480);
  EXPECT_EQ(cpu::LinePlan::forLength(480), plan);
  EXPECT_NE(cpu::LinePlan::forLength(482), plan);
}

}  // namespace
}  // namespace zeph::test
