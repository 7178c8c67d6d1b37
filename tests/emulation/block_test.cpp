// Threads, barriers and shared memory of the emulated GPU.
#include "tests/emulation/block.h"

#include <algorithm>
#include <numeric>
#include <set>

#include "tests/emulation/launching.h"
// The built-in names, after CUDA's own headers.
#include "tests/emulation/cuda_language.h"

extern unsigned shared[];

namespace zeph::emulation {
namespace {

constexpr unsigned threads = 96;

__global__ void reverseBlocks(unsigned* values) {
  __shared__ unsigned mine[threads];
  const unsigned t = threadIdx.x;
  mine[t] = values[blockIdx.x * threads + t];
  __syncthreads();
  values[blockIdx.x * threads + t] = mine[threads - 1 - t];
}

__global__ void reverseWithoutBarrier(unsigned* values) {
  __shared__ unsigned mine[threads];
  const unsigned t = threadIdx.x;
  mine[t] = values[blockIdx.x * threads + t];
  values[blockIdx.x * threads + t] = mine[threads - 1 - t];
}

__global__ void sumOfBlock(unsigned* sums) {
  __shared__ unsigned partial[64];
  const unsigned t = threadIdx.x + 8 * threadIdx.y + 32 * threadIdx.z;
  partial[t] = t + gridDim.x * blockIdx.y + blockIdx.x;
  __syncthreads();
  for (unsigned stride = 32; stride > 0; stride /= 2) {
    if (t < stride) partial[t] += partial[t + stride];
    __syncthreads();
  }
  if (t == 0) sums[gridDim.x * blockIdx.y + blockIdx.x] = partial[0];
}

__global__ void waitInPart(unsigned some) {
  if (threadIdx.x < some) __syncthreads();
}

__global__ void leftInSharedMemory(unsigned* found) {
  __shared__ unsigned left;
  if (threadIdx.x == 0) {
    found[2 * blockIdx.x] = left;
    found[2 * blockIdx.x + 1] = shared[0];
    left = 7;
    shared[0] = 8;
  }
}

__global__ void writeShared(unsigned at) {
  shared[at] = 1;
}

__global__ void recordOrder(unsigned* visits, unsigned* count) {
  visits[(*count)++] = blockIdx.x * blockDim.x + threadIdx.x;
}

DeviceArray<unsigned> counting(std::size_t count) {
  return DeviceArray<unsigned>(count);
}

void fill(const DeviceArray<unsigned>& array, std::size_t count) {
  std::vector<unsigned> values(count);
  std::iota(values.begin(), values.end(), 0u);
  ASSERT_EQ(::cudaMemcpy(array.begin(), values.data(), count * sizeof(unsigned),
                         ::cudaMemcpyHostToDevice),
            ::cudaSuccess);
}

std::vector<unsigned> reversed(std::size_t blocks) {
  std::vector<unsigned> values(blocks * threads);
  for (std::size_t k = 0; k < values.size(); ++k) {
    values[k] = static_cast<unsigned>(k / threads * threads + threads - 1 - k % threads);
  }
  return values;
}

// The order in which the threads of 8 blocks of 8 run.
std::vector<unsigned> visits() {
  DeviceArray<unsigned> order(64);
  DeviceArray<unsigned> count(1);
  EXPECT_EQ(::cudaMemsetAsync(count.begin(), 0, sizeof(unsigned), nullptr), ::cudaSuccess);
  EXPECT_EQ(launch<&recordOrder>(8, 8, 0, nullptr, order.begin(), count.begin()), ::cudaSuccess);
  return order.content();
}

TEST(EmulatedBlock, AfterABarrierAThreadSeesTheWritesOfOthers) {
  const auto values = counting(3 * threads);
  fill(values, 3 * threads);
  ASSERT_EQ(launch<&reverseBlocks>(3, threads, 0, nullptr, values.begin()), ::cudaSuccess);
  EXPECT_EQ(values.content(), reversed(3));
}

TEST(EmulatedBlock, WithoutABarrierAThreadDoesNotSeeTheWritesOfOthers) {
  const auto values = counting(threads);
  fill(values, threads);
  ASSERT_EQ(launch<&reverseWithoutBarrier>(1, threads, 0, nullptr, values.begin()), ::cudaSuccess);
  const std::vector<unsigned> found = values.content();
  EXPECT_NE(found, reversed(1));
  EXPECT_GT(std::count(found.begin(), found.end(), 0xFFFFFFFFu), 0);
}

TEST(EmulatedBlock, ReducesOverThreeAxesOfThreadsAndTwoOfBlocks) {
  const auto sums = counting(6);
  ASSERT_EQ(launch<&sumOfBlock>({3, 2}, {8, 4, 2}, 0, nullptr, sums.begin()), ::cudaSuccess);
  const std::vector<unsigned> found = sums.content();
  for (unsigned block = 0; block < 6; ++block) EXPECT_EQ(found[block], 63 * 32 + 64 * block);
}

TEST(EmulatedBlock, ABarrierThatSomeThreadsSkipIsAFault) {
  const MachineScope scope({});
  ASSERT_EQ(launch<&waitInPart>(1, 40, 0, nullptr, 40u), ::cudaSuccess);
  ASSERT_EQ(::cudaDeviceSynchronize(), ::cudaSuccess);
  ASSERT_EQ(launch<&waitInPart>(1, 40, 0, nullptr, 39u), ::cudaSuccess);
  EXPECT_EQ(::cudaDeviceSynchronize(), ::cudaErrorLaunchFailure);
  EXPECT_TRUE(hasFault(0));
  EXPECT_FALSE(hasFault(1));
}

TEST(EmulatedBlock, StartsWithFreshSharedMemory) {
  const auto found = counting(8);
  ASSERT_EQ(launch<&leftInSharedMemory>(4, 32, 16, nullptr, found.begin()), ::cudaSuccess);
  EXPECT_EQ(found.content(), std::vector<unsigned>(8, 0xFFFFFFFFu));
}

TEST(EmulatedBlock, AWritePastTheEndOfSharedMemoryIsAFault) {
  const MachineScope scope({});
  ASSERT_EQ(launch<&writeShared>(1, 1, 64, nullptr, 15u), ::cudaSuccess);
  ASSERT_EQ(::cudaDeviceSynchronize(), ::cudaSuccess);
  ASSERT_EQ(launch<&writeShared>(1, 1, 64, nullptr, 16u), ::cudaSuccess);
  EXPECT_EQ(::cudaDeviceSynchronize(), ::cudaErrorLaunchFailure);
}

TEST(EmulatedBlock, EveryThreadRunsOnceInADifferentOrderEachTime) {
  const std::vector<unsigned> first = visits();
  const std::vector<unsigned> second = visits();
  EXPECT_EQ(std::set(first.begin(), first.end()).size(), 64u);
  EXPECT_EQ(std::set(second.begin(), second.end()).size(), 64u);
  EXPECT_NE(first, second);
  EXPECT_FALSE(std::is_sorted(first.begin(), first.end()));
}

TEST(EmulatedBlock, AShapeThatNoGpuRunsIsRefused) {
  const auto refused = [](::dim3 blocks, ::dim3 size, std::size_t sharedBytes) {
    return launch<&waitInPart>(blocks, size, sharedBytes, nullptr, 0u) ==
           ::cudaErrorInvalidConfiguration;
  };
  EXPECT_FALSE(refused(1, 1024, 49152));
  EXPECT_TRUE(refused(1, 1025, 0));
  EXPECT_TRUE(refused(1, {32, 33}, 0));
  EXPECT_TRUE(refused(1, {1, 1, 65}, 0));
  EXPECT_TRUE(refused(0, 1, 0));
  EXPECT_TRUE(refused({1, 65536}, 1, 0));
  EXPECT_TRUE(refused(1, 1, 49153));
  EXPECT_EQ(::cudaGetLastError(), ::cudaErrorInvalidConfiguration);
}

}  // namespace
}  // namespace zeph::emulation
