// Work on streams: what waits, what is captured, and what a launch is.
#pragma once

#include <memory>

#include "tests/emulation/block.h"
#include "tests/emulation/state.h"

namespace zeph::emulation {

// The stream of a handle, the thread's default stream for none; null for a handle that stands for
// nothing. Valid while the state is locked.
Stream* streamOf(::cudaStream_t handle);

// Queues work, or records it where the stream is being captured.
void queue(Stream& stream, Work work);

// Does what waits on a stream, or on all streams of a GPU, and tells the GPU's fault.
::cudaError_t finish(Stream& stream);
::cudaError_t finishGpu(int gpu);

// A call on this stream would wait for it, which no capture can hold.
bool breaksCapture(Stream& stream);

// Queues a kernel with a copy of its arguments. `isLoaded` tells whether its code is still there.
struct Launch {
  KernelFunction kernel;
  Grid grid;
  std::size_t sharedLimit;
  std::shared_ptr<const bool> isLoaded;
};
::cudaError_t queueLaunch(::cudaStream_t stream, const Launch& launch, void** arguments);

}  // namespace zeph::emulation
