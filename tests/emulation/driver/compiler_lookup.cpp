// NVRTC's functions, found in the library of the emulated driver.
#include <stdexcept>

#include "device/cuda/nvrtc_library.h"
#include "platform/dynamic_library.h"
#include "tests/emulation/emulated_gpu.h"

namespace zeph::cuda {

void requireNvrtc() {
  if (!emulation::machine().hasCompiler) throw std::runtime_error("NVRTC is missing.");
}

void* nvrtcFunction(const char* name) {
  return platform::findFunction(platform::openLibrary("libcuda.so.1"), name);
}

}  // namespace zeph::cuda
