// Owners of what a solver holds on its device.
#pragma once

#include <cstddef>
#include <memory>

#include "device/runtime.h"
#include "kernels/params.h"

namespace zeph {

// The device that the calling thread has selected.
int selectedDevice();

// Selects a device for the calling thread for its lifetime, and then the previous one again.
class DeviceScope {
 public:
  explicit DeviceScope(int device);
  ~DeviceScope();
  DeviceScope(const DeviceScope&) = delete;
  DeviceScope& operator=(const DeviceScope&) = delete;

 private:
  int device_;
  int before_;
};

struct CudaQueue {
  CudaQueue();
  ~CudaQueue();
  CudaQueue(const CudaQueue&) = delete;
  CudaQueue& operator=(const CudaQueue&) = delete;

  cudaStream_t value = nullptr;
};

struct TimingEvents {
  TimingEvents();
  ~TimingEvents();
  TimingEvents(const TimingEvents&) = delete;
  TimingEvents& operator=(const TimingEvents&) = delete;

  cudaEvent_t begin = nullptr;
  cudaEvent_t end = nullptr;
};

struct DeviceBuffer {
  DeviceBuffer() = default;
  ~DeviceBuffer();
  DeviceBuffer(const DeviceBuffer&) = delete;
  DeviceBuffer& operator=(const DeviceBuffer&) = delete;

  // Memory is not cleared.
  void allocate(std::size_t size);

  template <class T>
  T* as() const {
    return static_cast<T*>(ptr);
  }

  void* ptr = nullptr;
  std::size_t bytes = 0;
};

// Device memory for `count` floats, freed when the last owner lets go, on whatever thread that is.
std::shared_ptr<float> allocateBlock(std::size_t count);

// The targets of the small copies from the device.
struct Data {
  ClockState hostClock;
  float4 statistics[reductionBlocks];
  float4 snapshot[2 * reductionBlocks];
};

// One page-locked Data.
struct PinnedData {
  PinnedData();
  ~PinnedData();
  PinnedData(const PinnedData&) = delete;
  PinnedData& operator=(const PinnedData&) = delete;

  Data* data = nullptr;
};

}  // namespace zeph
