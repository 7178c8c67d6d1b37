// Streams, events and graphs of CUDA's runtime.
#include "tests/emulation/work.h"

using namespace zeph::emulation;

extern "C" {

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned flags) {
  return call("cudaStreamCreateWithFlags", [=] {
    const bool isBlocking = (flags & cudaStreamNonBlocking) == 0;
    *stream = state().streams.add({.gpu = currentGpu(), .isBlocking = isBlocking});
    return cudaSuccess;
  });
}

cudaError_t cudaStreamSynchronize(cudaStream_t handle) {
  return call("cudaStreamSynchronize", [=] {
    Stream* stream = streamOf(handle);
    if (stream == nullptr) return cudaErrorInvalidResourceHandle;
    if (breaksCapture(*stream)) return cudaErrorStreamCaptureUnsupported;
    return finish(*stream);
  });
}

cudaError_t cudaStreamDestroy(cudaStream_t handle) {
  return call("cudaStreamDestroy", [=] {
    const auto stream = state().streams.find(handle);
    if (stream == nullptr) return cudaErrorInvalidResourceHandle;
    const cudaError_t result = finish(*stream);
    state().streams.remove(handle);
    return result;
  });
}

cudaError_t cudaDeviceSynchronize() {
  return call("cudaDeviceSynchronize", [] { return finishGpu(currentGpu()); });
}

cudaError_t cudaEventCreate(cudaEvent_t* event) {
  return call("cudaEventCreate", [=] {
    *event = state().events.add({.gpu = currentGpu()});
    return cudaSuccess;
  });
}

cudaError_t cudaEventDestroy(cudaEvent_t event) {
  return call("cudaEventDestroy", [=] {
    return state().events.remove(event) ? cudaSuccess : cudaErrorInvalidResourceHandle;
  });
}

cudaError_t cudaEventRecord(cudaEvent_t handle, cudaStream_t streamHandle) {
  return call("cudaEventRecord", [=] {
    const auto event = state().events.find(handle);
    Stream* stream = streamOf(streamHandle);
    if (event == nullptr || stream == nullptr || event->gpu != stream->gpu)
      return cudaErrorInvalidResourceHandle;
    // In a capture it would only mark a position.
    if (stream->isCapturing) return cudaSuccess;
    event->isRecorded = true;
    ++event->pending;
    queue(*stream, [event] {
      --event->pending;
      event->time = std::chrono::steady_clock::now();
      return cudaSuccess;
    });
    return cudaSuccess;
  });
}

cudaError_t cudaEventSynchronize(cudaEvent_t handle) {
  return call("cudaEventSynchronize", [=] {
    const auto event = state().events.find(handle);
    if (event == nullptr) return cudaErrorInvalidResourceHandle;
    return event->pending > 0 ? finishGpu(event->gpu) : cudaSuccess;
  });
}

cudaError_t cudaEventElapsedTime(float* milliseconds, cudaEvent_t beginHandle,
                                 cudaEvent_t endHandle) {
  return call("cudaEventElapsedTime", [=] {
    const auto begin = state().events.find(beginHandle);
    const auto end = state().events.find(endHandle);
    if (begin == nullptr || end == nullptr || begin->gpu != end->gpu || !begin->isRecorded ||
        !end->isRecorded)
      return cudaErrorInvalidResourceHandle;
    if (begin->pending + end->pending > 0) return cudaErrorNotReady;
    *milliseconds = std::chrono::duration<float, std::milli>(end->time - begin->time).count();
    return cudaSuccess;
  });
}

cudaError_t cudaStreamBeginCapture(cudaStream_t handle, cudaStreamCaptureMode) {
  return call("cudaStreamBeginCapture", [=] {
    // The default stream cannot be captured.
    const auto stream = state().streams.find(handle);
    if (stream == nullptr) return cudaErrorStreamCaptureUnsupported;
    if (stream->isCapturing) return cudaErrorIllegalState;
    stream->isCapturing = true;
    stream->isCaptureBroken = false;
    stream->captured.clear();
    return cudaSuccess;
  });
}

cudaError_t cudaStreamEndCapture(cudaStream_t handle, cudaGraph_t* graph) {
  return call("cudaStreamEndCapture", [=] {
    *graph = nullptr;
    const auto stream = state().streams.find(handle);
    if (stream == nullptr || !stream->isCapturing) return cudaErrorIllegalState;
    stream->isCapturing = false;
    if (stream->isCaptureBroken) return cudaErrorStreamCaptureInvalidated;
    *graph = state().graphs.add({std::move(stream->captured)});
    return cudaSuccess;
  });
}

cudaError_t cudaGraphInstantiate(cudaGraphExec_t* exec, cudaGraph_t handle, unsigned long long) {
  return call("cudaGraphInstantiate", [=] {
    const auto graph = state().graphs.find(handle);
    if (graph == nullptr) return cudaErrorInvalidValue;
    *exec = state().graphExecs.add({graph->work});
    return cudaSuccess;
  });
}

cudaError_t cudaGraphDestroy(cudaGraph_t graph) {
  return call("cudaGraphDestroy",
              [=] { return state().graphs.remove(graph) ? cudaSuccess : cudaErrorInvalidValue; });
}

cudaError_t cudaGraphLaunch(cudaGraphExec_t handle, cudaStream_t streamHandle) {
  return call("cudaGraphLaunch", [=] {
    const auto exec = state().graphExecs.find(handle);
    Stream* stream = streamOf(streamHandle);
    if (exec == nullptr) return cudaErrorInvalidValue;
    if (stream == nullptr) return cudaErrorInvalidResourceHandle;
    queue(*stream, [exec] {
      for (const Work& work : exec->work) {
        const cudaError_t result = work();
        if (result != cudaSuccess) return result;
      }
      return cudaSuccess;
    });
    return cudaSuccess;
  });
}

cudaError_t cudaGraphExecDestroy(cudaGraphExec_t exec) {
  return call("cudaGraphExecDestroy", [=] {
    return state().graphExecs.remove(exec) ? cudaSuccess : cudaErrorInvalidValue;
  });
}

}  // extern "C"
