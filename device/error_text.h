// The texts of CUDA for the errors of device calls, for where CUDA itself cannot be asked.
#pragma once

#include "device/runtime.h"

namespace zeph {

inline const char* errorText(cudaError_t error) {
  switch (error) {
    case cudaSuccess:
      return "no error";
    case cudaErrorInvalidValue:
      return "invalid argument";
    case cudaErrorMemoryAllocation:
      return "out of memory";
    case cudaErrorInsufficientDriver:
      return "CUDA driver version is insufficient for CUDA runtime version";
    case cudaErrorNoDevice:
      return "no CUDA-capable device is detected";
    case cudaErrorInvalidDevice:
      return "invalid device ordinal";
    case cudaErrorInvalidResourceHandle:
      return "invalid resource handle";
    case cudaErrorLaunchFailure:
      return "unspecified launch failure";
    case cudaErrorNotSupported:
      return "operation not supported";
  }
  return "unrecognized error code";
}

}  // namespace zeph
