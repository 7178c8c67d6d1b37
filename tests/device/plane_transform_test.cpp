#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include "device/cpu/instruction_set.h"
#include "device/cpu/thread_pool.h"
#include "device/cpu/transforms/plane_transform.h"
#include "tests/device/exact_transform.h"
#include "tests/device/requests.h"

namespace zeph::test {
namespace {

using cpu::InstructionSet;
using cpu::ThreadPool;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr double rounding = 4e-7;
constexpr float guard = 12345;
constexpr std::size_t guardFloats = 64;

// Restores all threads and instruction sets at the end of a test.
struct WholeMachine {
  ~WholeMachine() {
    cpu::limitInstructionSet(InstructionSet::avx512);
    ThreadPool::shared().limit(ThreadPool::shared().participants());
  }
};

// Planes in memory as a transform takes them, with a guard behind the last.
struct Planes {
  TransformRequest request;
  std::vector<float> memory;

  explicit Planes(const TransformRequest& of) : request(of) {
    memory.assign(fieldFloats(of) * static_cast<std::size_t>(of.batch) + guardFloats, guard);
  }
  std::size_t at(int plane, int row, int column) const {  // of a float
    return fieldFloats(request) * static_cast<std::size_t>(plane) +
           2 * static_cast<std::size_t>(request.rowStride) * static_cast<std::size_t>(row) +
           static_cast<std::size_t>(column);
  }
  float& real(int plane, int row, int x) { return memory[at(plane, row, x)]; }
  std::complex<double> mode(int plane, int row, int k) const {
    return {memory[at(plane, row, 2 * k)], memory[at(plane, row, 2 * k + 1)]};
  }
  void setMode(int plane, int row, int k, std::complex<double> value) {
    memory[at(plane, row, 2 * k)] = static_cast<float>(value.real());
    memory[at(plane, row, 2 * k + 1)] = static_cast<float>(value.imag());
  }
  int columns() const { return request.realToComplex ? request.size / 2 + 1 : request.size; }
  bool isCut(int row, int k) const {
    const int side = request.size, cutoff = request.cutoff;
    const auto inBand = [&](int j) { return cutoff > 0 && j >= cutoff && j <= side - cutoff; };
    return inBand(row) || inBand(k);
  }

  void transform(bool inverse) {
    Transform* made = nullptr;
    ASSERT_EQ(cpu::createTransform(request, &made), 0);
    EXPECT_EQ(cpu::appendTransform(made, memory.data(), inverse), 0);
    cpu::destroyTransform(made);
    for (std::size_t k = memory.size() - guardFloats; k < memory.size(); ++k) {
      ASSERT_EQ(memory[k], guard) << "written past the end";
    }
  }
};

std::string name(const TransformRequest& request) {
  return "size " + std::to_string(request.size) + " stride " + std::to_string(request.rowStride) +
         " cutoff " + std::to_string(request.cutoff) + " batch " + std::to_string(request.batch);
}

// Row-major n x n planes of real or complex noise.
ExactValues noisePlane(int n, bool real, unsigned seed) {
  const auto count = static_cast<std::size_t>(n) * static_cast<std::size_t>(n);
  const std::vector<float> values = noise(2 * count, seed);
  ExactValues plane(count);
  for (std::size_t k = 0; k < count; ++k) plane[k] = {values[2 * k], real ? 0 : values[2 * k + 1]};
  return plane;
}

std::size_t index(int n, int row, int column) {
  return static_cast<std::size_t>(row) * static_cast<std::size_t>(n) +
         static_cast<std::size_t>(column);
}

// The result of a forward transform of real planes, in the modes that it defines.
void expectForward(const TransformRequest& request) {
  SCOPED_TRACE("forward " + name(request));
  const int n = request.size;
  Planes planes(request);
  std::vector<ExactValues> exact;
  for (int p = 0; p < request.batch; ++p) {
    const ExactValues plane = noisePlane(n, true, static_cast<unsigned>(p + 1));
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        planes.real(p, y, x) = static_cast<float>(plane[index(n, y, x)].real());
      }
    }
    exact.push_back(exactPlane(plane, n, -1));
  }
  planes.transform(false);
  RelativeError error;
  for (int p = 0; p < request.batch; ++p) {
    for (int j = 0; j < n; ++j) {
      for (int k = 0; k < planes.columns(); ++k) {
        if (planes.isCut(j, k)) continue;
        error.add(planes.mode(p, j, k), exact[static_cast<std::size_t>(p)][index(n, j, k)]);
      }
    }
  }
  EXPECT_LT(error.value(), rounding);
}

// The modes of a plane as all n x n of them, from the half that is kept of a real field.
ExactValues wholeSpectrum(const Planes& planes, int plane) {
  const int n = planes.request.size;
  ExactValues whole(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
  for (int j = 0; j < n; ++j) {
    for (int k = 0; k < planes.columns(); ++k) {
      if (planes.isCut(j, k)) continue;
      const std::complex<double> mode = planes.mode(plane, j, k);
      whole[index(n, j, k)] += mode / (2 * k == n || k == 0 ? 2.0 : 1.0);
      whole[index(n, (n - j) % n, (n - k) % n)] +=
          std::conj(mode) / (2 * k == n || k == 0 ? 2.0 : 1.0);
    }
  }
  return whole;
}

// The inverse transform of noise in every mode, with NaN in modes that must not be read.
void expectInverse(const TransformRequest& request) {
  SCOPED_TRACE("inverse " + name(request));
  const int n = request.size;
  Planes planes(request);
  std::vector<ExactValues> exact;
  for (int p = 0; p < request.batch; ++p) {
    const ExactValues modes = noisePlane(n, false, static_cast<unsigned>(p + 11));
    for (int j = 0; j < n; ++j) {
      for (int k = 0; k < planes.columns(); ++k) {
        planes.setMode(p, j, k, planes.isCut(j, k) ? nan : modes[index(n, j, k)]);
      }
    }
    exact.push_back(exactPlane(wholeSpectrum(planes, p), n, 1));
  }
  planes.transform(true);
  RelativeError error;
  for (int p = 0; p < request.batch; ++p) {
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        error.add(planes.real(p, y, x), exact[static_cast<std::size_t>(p)][index(n, y, x)]);
      }
    }
  }
  EXPECT_LT(error.value(), rounding);
}

void expectComplex(int n, int rowStride, int batch, bool inverse) {
  const TransformRequest request = requestOf(n, rowStride, 0, batch, false);
  SCOPED_TRACE((inverse ? "complex inverse " : "complex forward ") + name(request));
  Planes planes(request);
  std::vector<ExactValues> exact;
  for (int p = 0; p < batch; ++p) {
    const ExactValues plane = noisePlane(n, false, static_cast<unsigned>(p + 21));
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) planes.setMode(p, y, x, plane[index(n, y, x)]);
    }
    exact.push_back(exactPlane(plane, n, inverse ? 1 : -1));
  }
  planes.transform(inverse);
  RelativeError error;
  for (int p = 0; p < batch; ++p) {
    for (int y = 0; y < n; ++y) {
      for (int x = 0; x < n; ++x) {
        error.add(planes.mode(p, y, x), exact[static_cast<std::size_t>(p)][index(n, y, x)]);
      }
    }
  }
  EXPECT_LT(error.value(), rounding);
}

TEST(PlaneTransforms, RealPlanesGoForwardAndBackAsDefined) {
  for (const int size : {1,  2,  3,  4,  5,  7,  8,  9,  15, 16, 17, 18, 24, 27,
                         30, 31, 32, 33, 35, 48, 61, 63, 64, 67, 81, 96, 134}) {
    for (const int stride : {size / 2 + 1, paddedStride(size)}) {
      expectForward(requestOf(size, stride, 0, 1));
      expectInverse(requestOf(size, stride, 0, 1));
    }
  }
}

TEST(PlaneTransforms, BatchesAreTransformedPlaneByPlane) {
  for (const int batch : {2, 3, 4}) {
    for (const int size : {24, 27}) {
      expectForward(requestOf(size, paddedStride(size), 0, batch));
      expectInverse(requestOf(size, size / 2 + 1, 0, batch));
    }
  }
}

TEST(PlaneTransforms, TheRemovedBandIsNotRead) {
  for (const int resolution : {16, 18, 22, 30, 32, 46, 64, 86}) {
    const int size = 3 * resolution / 2;
    expectForward(requestOf(size, paddedStride(size), resolution / 2, 2));
    expectInverse(requestOf(size, paddedStride(size), resolution / 2, 2));
  }
}

TEST(PlaneTransforms, ACutoffBeyondAllFrequenciesRemovesNothing) {
  expectForward(requestOf(24, 16, 20, 1));
  expectInverse(requestOf(24, 16, 20, 1));
}

TEST(PlaneTransforms, ComplexPlanesGoForwardAndBackAsDefined) {
  for (const int size : {1, 2, 3, 8, 15, 16, 18, 33, 48, 50, 67}) {
    for (const bool inverse : {false, true}) {
      expectComplex(size, size, 1, inverse);
      expectComplex(size, size + 3, 2, inverse);
    }
  }
}

TEST(PlaneTransforms, EveryInstructionSetTransformsPlanesAsDefined) {
  const WholeMachine restored;
  for (const auto set : {InstructionSet::sse2, InstructionSet::avx2, InstructionSet::avx512}) {
    cpu::limitInstructionSet(set);
    for (const int size : {7, 16, 24, 27, 45, 48, 69}) {
      expectForward(requestOf(size, paddedStride(size), size / 3, 2));
      expectInverse(requestOf(size, paddedStride(size), size / 3, 2));
      expectForward(requestOf(size, size / 2 + 1, 0, 1));
      expectInverse(requestOf(size, size / 2 + 1, 0, 1));
      expectComplex(size, size, 1, false);
    }
  }
}

TEST(PlaneTransforms, ForwardAfterInverseGivesTheModesTimesTheNumberOfPoints) {
  const int resolution = 256, size = 384;
  Planes planes(requestOf(size, paddedStride(size), resolution / 2, 2));
  for (int p = 0; p < 2; ++p) {
    const ExactValues modes = noisePlane(size, false, static_cast<unsigned>(p + 31));
    for (int j = 0; j < size; ++j) {
      // Column 0 of a real field is conjugate to itself; it is left empty here.
      for (int k = 1; k < resolution / 2; ++k) planes.setMode(p, j, k, modes[index(size, j, k)]);
      planes.setMode(p, j, 0, 0);
    }
  }
  const Planes before = planes;
  planes.transform(true);
  planes.transform(false);
  RelativeError error;
  for (int p = 0; p < 2; ++p) {
    for (int j = 0; j < size; ++j) {
      for (int k = 1; k < resolution / 2; ++k) {
        if (planes.isCut(j, k)) continue;
        error.add(planes.mode(p, j, k) / double(size * size), before.mode(p, j, k));
      }
    }
  }
  EXPECT_LT(error.value(), 2 * rounding);
}

TEST(PlaneTransforms, BitsDependNeitherOnTheInstructionSetNorOnTheThreads) {
  const WholeMachine restored;
  const int all = ThreadPool::shared().participants();
  for (const TransformRequest& request :
       {requestOf(96, 56, 32, 2), requestOf(135, 72, 45, 3), requestOf(64, 33, 0, 1),
        requestOf(201, 104, 67, 2), requestOf(40, 40, 0, 2, false)}) {
    for (const bool inverse : {false, true}) {
      std::vector<float> first;
      for (const auto set : {InstructionSet::sse2, InstructionSet::avx2, InstructionSet::avx512}) {
        for (const int threads : {1, all}) {
          cpu::limitInstructionSet(set);
          ThreadPool::shared().limit(threads);
          Planes planes(request);
          const std::vector<float> values = noise(planes.memory.size() - guardFloats, 41);
          std::copy(values.begin(), values.end(), planes.memory.begin());
          planes.transform(inverse);
          if (first.empty()) first = planes.memory;
          // If a band is undefined after a forward transform, only the rest can be compared.
          for (int p = 0; p < request.batch; ++p) {
            for (int j = 0; j < request.size; ++j) {
              for (int k = 0; k < planes.columns(); ++k) {
                if (!inverse && planes.isCut(j, k)) continue;
                const std::size_t at = planes.at(p, j, 2 * k);
                ASSERT_EQ(std::memcmp(&planes.memory[at], &first[at], 2 * sizeof(float)), 0)
                    << name(request) << " mode " << j << ", " << k;
              }
            }
          }
        }
      }
    }
  }
}

TEST(PlaneTransforms, EqualSizesShareTheirTables) {
  Transform *one = nullptr, *two = nullptr;
  ASSERT_EQ(cpu::createTransform(requestOf(96, 56, 0, 1), &one), 0);
  ASSERT_EQ(cpu::createTransform(requestOf(96, 56, 32, 2), &two), 0);
  const std::vector<TransformAllocation> ofOne = cpu::transformAllocations(one);
  const std::vector<TransformAllocation> ofTwo = cpu::transformAllocations(two);
  ASSERT_EQ(ofOne.size(), ofTwo.size());
  ASSERT_GT(ofOne.size(), 1U);
  std::size_t shared = 0;
  for (std::size_t k = 0; k < ofOne.size(); ++k) {
    EXPECT_GT(ofOne[k].bytes, 0U);
    shared += ofOne[k].pointer == ofTwo[k].pointer ? 1 : 0;
  }
  EXPECT_EQ(shared, ofOne.size() - 1);  // all but the scratch memory of each
  cpu::destroyTransform(one);
  cpu::destroyTransform(two);
}

TEST(PlaneTransforms, ImpossibleRequestsAreRefused) {
  for (const TransformRequest& request :
       {requestOf(0, 8, 0, 1), requestOf(16, 8, 0, 1), requestOf(16, 9, 0, 0),
        requestOf(16, 9, -1, 1), requestOf(16, 15, 0, 1, false)}) {
    Transform* made = nullptr;
    EXPECT_EQ(cpu::createTransform(request, &made), cudaErrorInvalidValue) << name(request);
    EXPECT_EQ(made, nullptr);
  }
}

}  // namespace
}  // namespace zeph::test
