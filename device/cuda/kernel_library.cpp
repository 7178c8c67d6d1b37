#include "device/cuda/kernel_library.h"

#include <map>
#include <mutex>
#include <string_view>

#include "device/cuda/kernel_image.h"

namespace zeph::cuda {
namespace {

// Loaded once per process and never unloaded: a solver may outlive the library's static objects.
struct KernelLibrary {
  std::mutex mutex;
  cudaLibrary_t library = nullptr;
  std::map<std::string_view, cudaKernel_t> kernels;
};

KernelLibrary& shared() {
  static auto* library = new KernelLibrary;
  return *library;
}

}  // namespace

::cudaError_t findKernel(const char* name, const void** function) {
  KernelLibrary& loaded = shared();
  const std::lock_guard lock(loaded.mutex);
  if (loaded.library == nullptr) {
    const ::cudaError_t result = ::cudaLibraryLoadData(&loaded.library, kernelImage(), nullptr,
                                                       nullptr, 0, nullptr, nullptr, 0);
    if (result != ::cudaSuccess) {
      loaded.library = nullptr;
      return result;
    }
  }
  cudaKernel_t& kernel = loaded.kernels[name];
  if (kernel == nullptr) {
    const ::cudaError_t result = ::cudaLibraryGetKernel(&kernel, loaded.library, name);
    if (result != ::cudaSuccess) {
      kernel = nullptr;
      return result;
    }
  }
  *function = reinterpret_cast<const void*>(kernel);
  return ::cudaSuccess;
}

}  // namespace zeph::cuda
