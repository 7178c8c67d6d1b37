#include "tests/emulation/work.h"

#include <cstring>

namespace zeph::emulation {
namespace {

// A copy of a launch's arguments, which outlives the caller's.
class Arguments {
 public:
  Arguments(const KernelFunction& kernel, void** arguments) {
    values_.reserve(kernel.count);
    for (std::size_t k = 0; k < kernel.count; ++k) {
      values_.emplace_back((kernel.sizes[k] + sizeof(Unit) - 1) / sizeof(Unit));
      std::memcpy(values_[k].data(), arguments[k], kernel.sizes[k]);
    }
  }

  std::vector<void*> addresses() {
    std::vector<void*> found;
    for (auto& value : values_) found.push_back(value.data());
    return found;
  }

 private:
  using Unit = std::max_align_t;
  std::vector<std::vector<Unit>> values_;
};

::cudaError_t& faultOf(const Stream& stream) {
  return state().faults[static_cast<std::size_t>(stream.gpu)];
}

bool isWithin(const ::dim3& size, unsigned x, unsigned y, unsigned z) {
  return size.x >= 1 && size.y >= 1 && size.z >= 1 && size.x <= x && size.y <= y && size.z <= z;
}

bool isAllowed(const Grid& grid, std::size_t sharedLimit) {
  return isWithin(grid.blocks, 0x7fffffff, 65535, 65535) &&
         isWithin(grid.threads, 1024, 1024, 64) &&
         grid.threads.x * grid.threads.y * grid.threads.z <= 1024 &&
         grid.sharedBytes <= sharedLimit;
}

// The default stream waits for the blocking ones, and they for it.
void keepOrder(Stream& stream) {
  State& s = state();
  Stream& usual = s.defaultStreams[static_cast<std::size_t>(stream.gpu)];
  if (&stream != &usual) {
    if (stream.isBlocking) finish(usual);
    return;
  }
  s.streams.forEach([&](Stream& other) {
    if (other.isBlocking && other.gpu == stream.gpu) finish(other);
  });
}

}  // namespace

Stream* streamOf(::cudaStream_t handle) {
  State& s = state();
  if (handle == nullptr) return &s.defaultStreams[static_cast<std::size_t>(currentGpu())];
  return s.streams.find(handle).get();
}

void queue(Stream& stream, Work work) {
  if (stream.isCapturing) {
    stream.captured.push_back(std::move(work));
    return;
  }
  keepOrder(stream);
  stream.pending.push_back(std::move(work));
  if (!state().machine.deferred) finish(stream);
}

::cudaError_t finish(Stream& stream) {
  ::cudaError_t& fault = faultOf(stream);
  if (stream.pending.empty()) return fault;
  const Ledger& ledger = state().ledger;
  const OpenMemory open(ledger, stream.gpu);
  while (!stream.pending.empty()) {
    const Work work = std::move(stream.pending.front());
    stream.pending.pop_front();
    if (fault == ::cudaSuccess) fault = work();
  }
  if (fault == ::cudaSuccess && !ledger.isIntact(stream.gpu)) fault = ::cudaErrorIllegalAddress;
  return fault;
}

::cudaError_t finishGpu(int gpu) {
  State& s = state();
  s.streams.forEach([&](Stream& stream) {
    if (stream.gpu == gpu) finish(stream);
  });
  return finish(s.defaultStreams[static_cast<std::size_t>(gpu)]);
}

bool breaksCapture(Stream& stream) {
  if (stream.isCapturing) stream.isCaptureBroken = true;
  return stream.isCapturing;
}

::cudaError_t queueLaunch(::cudaStream_t handle, const Launch& launch, void** arguments) {
  Stream* stream = streamOf(handle);
  if (stream == nullptr || stream->gpu != currentGpu()) return ::cudaErrorInvalidResourceHandle;
  if (!isAllowed(launch.grid, launch.sharedLimit)) return ::cudaErrorInvalidConfiguration;
  queue(*stream, [launch, copies = Arguments(launch.kernel, arguments)]() mutable {
    if (!*launch.isLoaded) return ::cudaErrorInvalidResourceHandle;
    return runGrid(launch.grid, launch.kernel.call, copies.addresses().data());
  });
  return ::cudaSuccess;
}

}  // namespace zeph::emulation
