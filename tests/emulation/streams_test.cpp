// Streams, events and captures of the emulated GPU.
#include <gtest/gtest.h>

#include <vector>

#include "tests/emulation/launching.h"
// The built-in names, after CUDA's own headers.
#include "tests/emulation/cuda_language.h"

namespace zeph::emulation {
namespace {

__global__ void add(int* sum, int value) {
  *sum += value;
}

class Stream {
 public:
  explicit Stream(unsigned flags = cudaStreamNonBlocking) {
    EXPECT_EQ(::cudaStreamCreateWithFlags(&handle, flags), ::cudaSuccess);
  }
  ~Stream() { ::cudaStreamDestroy(handle); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  ::cudaStream_t handle = nullptr;
};

// Page-locked, so that copies to it are asynchronous.
class Awaited {
 public:
  Awaited() {
    void* block = nullptr;
    EXPECT_EQ(::cudaMallocHost(&block, sizeof(int)), ::cudaSuccess);
    value = static_cast<int*>(block);
    *value = -1;
  }
  ~Awaited() { ::cudaFreeHost(value); }
  Awaited(const Awaited&) = delete;
  Awaited& operator=(const Awaited&) = delete;

  int* value = nullptr;
};

::cudaError_t queueZero(int* sum, ::cudaStream_t stream) {
  return ::cudaMemsetAsync(sum, 0, sizeof(int), stream);
}
::cudaError_t queueRead(int* to, const int* sum, ::cudaStream_t stream) {
  return ::cudaMemcpyAsync(to, sum, sizeof(int), ::cudaMemcpyDeviceToHost, stream);
}

TEST(EmulatedStream, DefersWorkUntilItIsSynchronized) {
  for (const bool deferred : {true, false}) {
    const MachineScope scope({.deferred = deferred});
    const Stream stream;
    const DeviceArray<int> sum(1);
    const Awaited result;
    ASSERT_EQ(queueZero(sum.begin(), stream.handle), ::cudaSuccess);
    ASSERT_EQ(launch<&add>(1, 1, 0, stream.handle, sum.begin(), 5), ::cudaSuccess);
    ASSERT_EQ(queueRead(result.value, sum.begin(), stream.handle), ::cudaSuccess);
    EXPECT_EQ(*result.value, deferred ? -1 : 5);
    ASSERT_EQ(::cudaStreamSynchronize(stream.handle), ::cudaSuccess);
    EXPECT_EQ(*result.value, 5);
  }
}

TEST(EmulatedStream, ACopyFromPageableMemoryReadsItAtTheCall) {
  const Stream stream;
  const DeviceArray<int> on(1);
  const Awaited locked;
  int plain = 1;
  const auto copied = [&](const int* from) {
    EXPECT_EQ(
        ::cudaMemcpyAsync(on.begin(), from, sizeof(int), ::cudaMemcpyHostToDevice, stream.handle),
        ::cudaSuccess);
    plain = 2;
    *locked.value = 2;
    EXPECT_EQ(::cudaStreamSynchronize(stream.handle), ::cudaSuccess);
    return on.content()[0];
  };
  EXPECT_EQ(copied(&plain), 1);
  *locked.value = 1;
  EXPECT_EQ(copied(locked.value), 2);
}

TEST(EmulatedStream, TheDefaultStreamWaitsOnlyForBlockingStreams) {
  for (const bool blocking : {true, false}) {
    const Stream stream(blocking ? cudaStreamDefault : cudaStreamNonBlocking);
    const DeviceArray<int> sum(1);
    ASSERT_EQ(::cudaMemset(sum.begin(), 0, sizeof(int)), ::cudaSuccess);
    ASSERT_EQ(launch<&add>(1, 1, 0, stream.handle, sum.begin(), 5), ::cudaSuccess);
    EXPECT_EQ(sum.content()[0], blocking ? 5 : 0);
    ASSERT_EQ(::cudaStreamSynchronize(stream.handle), ::cudaSuccess);
    EXPECT_EQ(sum.content()[0], 5);
  }
}

TEST(EmulatedStream, AKernelRunsOnTheGpuOfItsStream) {
  const Stream stream;
  const DeviceArray<int> sum(1);
  ASSERT_EQ(::cudaSetDevice(1), ::cudaSuccess);
  EXPECT_EQ(launch<&add>(1, 1, 0, stream.handle, sum.begin(), 5), ::cudaErrorInvalidResourceHandle);
  ASSERT_EQ(::cudaSetDevice(0), ::cudaSuccess);
  EXPECT_EQ(::cudaStreamDestroy(reinterpret_cast<::cudaStream_t>(sum.begin())),
            ::cudaErrorInvalidResourceHandle);
  ::cudaGetLastError();
}

TEST(EmulatedEvent, MeasuresTheTimeBetweenTwoRecordsOnceReached) {
  const MachineScope scope({});
  const Stream stream;
  ::cudaEvent_t begin = nullptr;
  ::cudaEvent_t end = nullptr;
  ASSERT_EQ(::cudaEventCreate(&begin), ::cudaSuccess);
  ASSERT_EQ(::cudaEventCreate(&end), ::cudaSuccess);
  float milliseconds = -1;
  EXPECT_EQ(::cudaEventElapsedTime(&milliseconds, begin, end), ::cudaErrorInvalidResourceHandle);
  ASSERT_EQ(::cudaEventRecord(begin, stream.handle), ::cudaSuccess);
  ASSERT_EQ(::cudaEventRecord(end, stream.handle), ::cudaSuccess);
  EXPECT_EQ(::cudaEventElapsedTime(&milliseconds, begin, end), ::cudaErrorNotReady);
  ASSERT_EQ(::cudaEventSynchronize(end), ::cudaSuccess);
  ASSERT_EQ(::cudaEventElapsedTime(&milliseconds, begin, end), ::cudaSuccess);
  EXPECT_GE(milliseconds, 0);
  EXPECT_EQ(::cudaEventDestroy(begin), ::cudaSuccess);
  EXPECT_EQ(::cudaEventDestroy(begin), ::cudaErrorInvalidResourceHandle);
  EXPECT_EQ(::cudaEventDestroy(end), ::cudaSuccess);
}

class EmulatedCapture : public testing::Test {
 protected:
  void begin() {
    ASSERT_EQ(::cudaStreamBeginCapture(stream.handle, ::cudaStreamCaptureModeRelaxed),
              ::cudaSuccess);
  }
  void queueAdd(int value) {
    ASSERT_EQ(launch<&add>(1, 1, 0, stream.handle, sum.begin(), value), ::cudaSuccess);
  }
  ::cudaError_t end() { return ::cudaStreamEndCapture(stream.handle, &graph); }
  int awaitSum() {
    EXPECT_EQ(::cudaStreamSynchronize(stream.handle), ::cudaSuccess);
    return sum.content()[0];
  }

  MachineScope scope{{}};
  Stream stream;
  DeviceArray<int> sum{1};
  ::cudaGraph_t graph = nullptr;
};

TEST_F(EmulatedCapture, RunsAtEachLaunchAndNotBefore) {
  ASSERT_EQ(queueZero(sum.begin(), stream.handle), ::cudaSuccess);
  begin();
  queueAdd(3);
  queueAdd(4);
  ASSERT_EQ(end(), ::cudaSuccess);
  ::cudaGraphExec_t exec = nullptr;
  ASSERT_EQ(::cudaGraphInstantiate(&exec, graph, 0), ::cudaSuccess);
  ASSERT_EQ(::cudaGraphDestroy(graph), ::cudaSuccess);
  EXPECT_EQ(awaitSum(), 0);
  for (int time = 1; time <= 3; ++time) {
    ASSERT_EQ(::cudaGraphLaunch(exec, stream.handle), ::cudaSuccess);
    EXPECT_EQ(awaitSum(), 7 * time);
  }
  EXPECT_EQ(holdings().graphs, 1u);
  ASSERT_EQ(::cudaGraphExecDestroy(exec), ::cudaSuccess);
  EXPECT_EQ(holdings().graphs, 0u);
  EXPECT_EQ(::cudaGraphLaunch(exec, stream.handle), ::cudaErrorInvalidValue);
}

TEST_F(EmulatedCapture, WaitingForTheStreamBreaksIt) {
  begin();
  queueAdd(3);
  EXPECT_EQ(::cudaStreamSynchronize(stream.handle), ::cudaErrorStreamCaptureUnsupported);
  EXPECT_EQ(end(), ::cudaErrorStreamCaptureInvalidated);
  EXPECT_EQ(graph, nullptr);
  EXPECT_EQ(::cudaStreamSynchronize(stream.handle), ::cudaSuccess);
}

}  // namespace
}  // namespace zeph::emulation
