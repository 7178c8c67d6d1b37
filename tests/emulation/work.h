// Work on streams: the queue, captures and launches.
#pragma once

#include <memory>

#include "tests/emulation/block.h"
#include "tests/emulation/state.h"

namespace zeph::emulation {

// The stream of a handle, the thread's default stream for none; null for an invalid handle. Valid
// while the state is locked.
Stream* streamOf(::cudaStream_t handle);

// Queues work, or records it where the stream is being captured.
void queue(Stream& stream, Work work);

// Runs the work queued on a stream, or on all streams of a GPU, and returns the GPU's fault.
::cudaError_t finish(Stream& stream);
::cudaError_t finishGpu(int gpu);

// A call on this stream would synchronize with it, which is not allowed during a capture.
bool breaksCapture(Stream& stream);

// Queues a kernel with a copy of its arguments. `isLoaded` is whether its module is still loaded.
struct Launch {
  KernelFunction kernel;
  Grid grid;
  std::size_t sharedLimit;
  std::shared_ptr<const bool> isLoaded;
};
::cudaError_t queueLaunch(::cudaStream_t stream, const Launch& launch, void** arguments);

}  // namespace zeph::emulation
