#include "device/cuda/nvrtc_library.h"

#include <mutex>
#include <stdexcept>

#include "device/cuda/devices.h"
#include "device/cuda/nvrtc_files.h"
#include "platform/dynamic_library.h"

namespace zeph::cuda {
namespace {

namespace fs = std::filesystem;

void* openCompiler(const fs::path& candidate) {
  void* library = platform::openLibrary(candidate);
  if (library == nullptr) return nullptr;
  // Once they are loaded, NVRTC finds them by their names.
  for (const fs::path& file : nvrtcNeighbours(nvrtcOfThisSystem(), candidate))
    platform::openLibrary(file);
  return library;
}

void* findLibrary() {
  int driver = 0;
  if (driverVersion(&driver) != cudaSuccess) driver = 1000 * nvrtcMajors.front();
  for (const fs::path& candidate : nvrtcCandidates(nvrtcOfThisSystem(), driver / 1000,
                                                   toolkitFolders(), platform::loadedFiles())) {
    if (void* library = openCompiler(candidate)) return library;
  }
  return nullptr;
}

// Search again while it is missing: the host may have installed or loaded it since the last time.
void* library() {
  static std::mutex mutex;
  static void* found = nullptr;
  const std::lock_guard lock(mutex);
  if (found == nullptr) found = findLibrary();
  return found;
}

}  // namespace

void requireNvrtc() {
  if (library() != nullptr) return;
  const NvrtcNaming& naming = nvrtcOfThisSystem();
  throw std::runtime_error("NVRTC, the run-time compiler of CUDA, is missing: neither " +
                           naming.library(nvrtcMajors[0]) + " nor " +
                           naming.library(nvrtcMajors[1]) +
                           " was found. Install the CUDA toolkit or the Python package "
                           "nvidia-cuda-nvrtc.");
}

void* nvrtcFunction(const char* name) {
  void* found = library();
  return found != nullptr ? platform::findFunction(found, name) : nullptr;
}

}  // namespace zeph::cuda
