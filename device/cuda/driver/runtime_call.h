// How a function of CUDA's runtime is done by the driver: on the current device of the thread, with
// the error kept for cudaGetLastError().
#pragma once

#include "device/cuda/driver/driver_functions.h"

namespace zeph::cuda {

// Of the thread: the ordinal that it has selected, at first 0, and its last error.
int& currentDevice();
::cudaError_t& lastError();

// Makes the primary context of a device the thread's current one. The runtimes of CUDA that other
// libraries of the process use share it.
::cudaError_t enterDevice(int ordinal);

// Enters the current device, unless this thread has entered one already.
::cudaError_t enterCurrentDevice();

// The errors have the same numbers.
inline ::cudaError_t asRuntimes(CUresult result) {
  return static_cast<::cudaError_t>(result);
}

// A call that uses no device. `body` takes the driver and returns a CUresult.
template <class Body>
::cudaError_t query(Body body) {
  const Driver& found = driver();
  const ::cudaError_t result = found.state == ::cudaSuccess ? asRuntimes(body(found)) : found.state;
  if (result != ::cudaSuccess) lastError() = result;
  return result;
}

// One that uses the thread's device.
template <class Body>
::cudaError_t call(Body body) {
  return query([&](const Driver& found) {
    const ::cudaError_t entered = enterCurrentDevice();
    return entered == ::cudaSuccess ? body(found) : static_cast<CUresult>(entered);
  });
}

}  // namespace zeph::cuda
