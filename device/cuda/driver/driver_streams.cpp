// The runtime's functions for streams, events, graphs and kernels.
#include "device/cuda/driver/runtime_call.h"

using namespace zeph::cuda;

extern "C" {

cudaError_t cudaStreamCreateWithFlags(cudaStream_t* stream, unsigned flags) {
  return call([=](const Driver& found) { return found.cuStreamCreate(stream, flags); });
}

cudaError_t cudaStreamSynchronize(cudaStream_t stream) {
  return call([=](const Driver& found) { return found.cuStreamSynchronize(stream); });
}

cudaError_t cudaStreamDestroy(cudaStream_t stream) {
  return call([=](const Driver& found) { return found.cuStreamDestroy(stream); });
}

cudaError_t cudaEventCreate(cudaEvent_t* event) {
  return call([=](const Driver& found) { return found.cuEventCreate(event, CU_EVENT_DEFAULT); });
}

cudaError_t cudaEventRecord(cudaEvent_t event, cudaStream_t stream) {
  return call([=](const Driver& found) { return found.cuEventRecord(event, stream); });
}

cudaError_t cudaEventSynchronize(cudaEvent_t event) {
  return call([=](const Driver& found) { return found.cuEventSynchronize(event); });
}

cudaError_t cudaEventElapsedTime(float* milliseconds, cudaEvent_t begin, cudaEvent_t end) {
  return call(
      [=](const Driver& found) { return found.cuEventElapsedTime(milliseconds, begin, end); });
}

cudaError_t cudaEventDestroy(cudaEvent_t event) {
  return call([=](const Driver& found) { return found.cuEventDestroy(event); });
}

cudaError_t cudaStreamBeginCapture(cudaStream_t stream, cudaStreamCaptureMode mode) {
  return call([=](const Driver& found) {
    return found.cuStreamBeginCapture(stream, static_cast<CUstreamCaptureMode>(mode));
  });
}

cudaError_t cudaStreamEndCapture(cudaStream_t stream, cudaGraph_t* graph) {
  return call([=](const Driver& found) { return found.cuStreamEndCapture(stream, graph); });
}

cudaError_t cudaGraphInstantiate(cudaGraphExec_t* made, cudaGraph_t graph,
                                 unsigned long long flags) {
  return call(
      [=](const Driver& found) { return found.cuGraphInstantiateWithFlags(made, graph, flags); });
}

cudaError_t cudaGraphDestroy(cudaGraph_t graph) {
  return call([=](const Driver& found) { return found.cuGraphDestroy(graph); });
}

cudaError_t cudaGraphLaunch(cudaGraphExec_t graph, cudaStream_t stream) {
  return call([=](const Driver& found) { return found.cuGraphLaunch(graph, stream); });
}

cudaError_t cudaGraphExecDestroy(cudaGraphExec_t graph) {
  return call([=](const Driver& found) { return found.cuGraphExecDestroy(graph); });
}

// Without options, as the library calls it.
cudaError_t cudaLibraryLoadData(cudaLibrary_t* library, const void* code, cudaJitOption*, void**,
                                unsigned, cudaLibraryOption*, void**, unsigned) {
  return call([=](const Driver& found) {
    return found.cuLibraryLoadData(reinterpret_cast<CUlibrary*>(library), code, nullptr, nullptr, 0,
                                   nullptr, nullptr, 0);
  });
}

cudaError_t cudaLibraryGetKernel(cudaKernel_t* kernel, cudaLibrary_t library, const char* name) {
  return call([=](const Driver& found) {
    return found.cuLibraryGetKernel(reinterpret_cast<CUkernel*>(kernel),
                                    reinterpret_cast<CUlibrary>(library), name);
  });
}

// The driver takes a kernel in place of a function, and finds its code for the current device.
cudaError_t cudaLaunchKernel(const void* kernel, dim3 grid, dim3 block, void** arguments,
                             std::size_t sharedBytes, cudaStream_t stream) {
  return call([=](const Driver& found) {
    return found.cuLaunchKernel(reinterpret_cast<CUfunction>(const_cast<void*>(kernel)), grid.x,
                                grid.y, grid.z, block.x, block.y, block.z,
                                static_cast<unsigned>(sharedBytes), stream, arguments, nullptr);
  });
}

}  // extern "C"
