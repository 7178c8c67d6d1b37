// The functions of CUDA's driver: attributes of GPUs, and modules of kernels written at run time.
#include <cuda.h>
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <list>

#include "tests/emulation/module_compiler.h"
#include "tests/emulation/work.h"

using namespace zeph::emulation;

struct CUfunc_st {
  KernelFunction kernel;
  std::size_t sharedLimit;
};

struct CUmod_st {
  int gpu;
  void* library;
  std::shared_ptr<bool> isLoaded;
  std::list<CUfunc_st> functions;
};

namespace {

namespace fs = std::filesystem;

constexpr std::size_t usualSharedBytes = 48 * 1024;

// The driver's error codes equal the runtime's, but are not kept as the thread's last error.
template <class Body>
CUresult driverCall(const char* name, Body body) {
  const std::lock_guard lock(state().mutex);
  cudaError_t result = beginCall(name);
  if (result == cudaSuccess) result = obstacle();
  if (result == cudaSuccess) result = body();
  return static_cast<CUresult>(result);
}

int mostShared(const Gpu& gpu) {
  if (gpu.sharedMemory != 0) return static_cast<int>(gpu.sharedMemory);
  switch (10 * gpu.major + gpu.minor) {
    case 75:
      return 64 * 1024;
    case 80:
    case 87:
      return 163 * 1024;
    case 86:
    case 89:
    case 120:
      return 99 * 1024;
    default:
      return static_cast<int>(mostSharedBytes);
  }
}

bool findAttribute(CUdevice_attribute attribute, const Gpu& gpu, int& value) {
  switch (attribute) {
    case CU_DEVICE_ATTRIBUTE_MAX_THREADS_PER_BLOCK:
    case CU_DEVICE_ATTRIBUTE_MAX_BLOCK_DIM_X:
    case CU_DEVICE_ATTRIBUTE_MAX_BLOCK_DIM_Y:
      value = 1024;
      return true;
    case CU_DEVICE_ATTRIBUTE_MAX_BLOCK_DIM_Z:
      value = 64;
      return true;
    case CU_DEVICE_ATTRIBUTE_MAX_GRID_DIM_X:
      value = 0x7fffffff;
      return true;
    case CU_DEVICE_ATTRIBUTE_MAX_GRID_DIM_Y:
    case CU_DEVICE_ATTRIBUTE_MAX_GRID_DIM_Z:
      value = 65535;
      return true;
    case CU_DEVICE_ATTRIBUTE_MAX_SHARED_MEMORY_PER_BLOCK:
      value = std::min(static_cast<int>(usualSharedBytes), mostShared(gpu));
      return true;
    case CU_DEVICE_ATTRIBUTE_MAX_SHARED_MEMORY_PER_BLOCK_OPTIN:
      value = mostShared(gpu);
      return true;
    case CU_DEVICE_ATTRIBUTE_WARP_SIZE:
      value = 32;
      return true;
    default:
      return false;
  }
}

// Every module has separate variables, even if two have the same code.
void* openCopy(const fs::path& library) {
  static int copies = 0;
  const fs::path copy =
      library.string() + "." + std::to_string(getpid()) + "." + std::to_string(++copies);
  std::error_code error;
  fs::copy_file(library, copy, error);
  void* opened = error ? nullptr : dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
  fs::remove(copy, error);
  return opened;
}

const KernelFunction* findKernel(void* library, const char* name) {
  using Kernels = const KernelFunction*();
  const auto kernels = reinterpret_cast<Kernels*>(dlsym(library, moduleKernels));
  if (kernels == nullptr) return nullptr;
  for (const KernelFunction* at = kernels(); at->name != nullptr; ++at) {
    if (std::strcmp(at->name, name) == 0) return at;
  }
  return nullptr;
}

// The module of a function is found among those that are loaded.
std::list<CUmod_st>& modules() {
  static auto* loaded = new std::list<CUmod_st>;
  return *loaded;
}

CUmod_st* moduleOf(CUfunction function) {
  for (CUmod_st& module : modules()) {
    for (const CUfunc_st& own : module.functions) {
      if (&own == function) return &module;
    }
  }
  return nullptr;
}

bool isLoaded(CUmodule module) {
  for (const CUmod_st& loaded : modules()) {
    if (&loaded == module) return true;
  }
  return false;
}

}  // namespace

extern "C" {

CUresult cuDeviceGet(CUdevice* device, int ordinal) {
  return driverCall("cuDeviceGet", [=] {
    if (ordinal < 0 || ordinal >= state().gpus()) return cudaErrorInvalidDevice;
    *device = ordinal;
    return cudaSuccess;
  });
}

CUresult cuDeviceGetAttribute(int* value, CUdevice_attribute attribute, CUdevice device) {
  return driverCall("cuDeviceGetAttribute", [=] {
    if (device < 0 || device >= state().gpus()) return cudaErrorInvalidDevice;
    const Gpu& gpu = state().machine.gpus[static_cast<std::size_t>(device)];
    return findAttribute(attribute, gpu, *value) ? cudaSuccess : cudaErrorInvalidValue;
  });
}

CUresult cuModuleLoadDataEx(CUmodule* module, const void* image, unsigned, CUjit_option*, void**) {
  return driverCall("cuModuleLoadDataEx", [=] {
    void* library = openCopy(static_cast<const char*>(image));
    if (library == nullptr) return cudaErrorInvalidKernelImage;
    modules().push_back({currentGpu(), library, std::make_shared<bool>(true), {}});
    *module = &modules().back();
    ++state().modules;
    return cudaSuccess;
  });
}

// The code itself stays in the process: queued work may still refer to it.
CUresult cuModuleUnload(CUmodule module) {
  return driverCall("cuModuleUnload", [=] {
    if (!isLoaded(module)) return cudaErrorInvalidResourceHandle;
    const cudaError_t result = finishGpu(module->gpu);
    *module->isLoaded = false;
    modules().remove_if([=](const CUmod_st& loaded) { return &loaded == module; });
    --state().modules;
    return result;
  });
}

CUresult cuModuleGetFunction(CUfunction* function, CUmodule module, const char* name) {
  return driverCall("cuModuleGetFunction", [=] {
    if (!isLoaded(module)) return cudaErrorInvalidResourceHandle;
    const KernelFunction* kernel = findKernel(module->library, name);
    if (kernel == nullptr) return cudaErrorSymbolNotFound;
    module->functions.push_back({*kernel, usualSharedBytes});
    *function = &module->functions.back();
    return cudaSuccess;
  });
}

CUresult cuModuleGetGlobal(CUdeviceptr* address, std::size_t* bytes, CUmodule module,
                           const char* name) {
  return driverCall("cuModuleGetGlobal", [=] {
    if (!isLoaded(module)) return cudaErrorInvalidResourceHandle;
    void* variable = dlsym(module->library, name);
    if (variable == nullptr) return cudaErrorSymbolNotFound;
    Dl_info info = {};
    void* symbol = nullptr;
    if (dladdr1(variable, &info, &symbol, RTLD_DL_SYMENT) == 0 || symbol == nullptr)
      return cudaErrorSymbolNotFound;
    *address = reinterpret_cast<CUdeviceptr>(variable);
    *bytes = static_cast<const ElfW(Sym)*>(symbol)->st_size;
    return cudaSuccess;
  });
}

CUresult cuFuncSetAttribute(CUfunction function, CUfunction_attribute attribute, int value) {
  return driverCall("cuFuncSetAttribute", [=] {
    const CUmod_st* module = moduleOf(function);
    if (module == nullptr) return cudaErrorInvalidResourceHandle;
    const Gpu& gpu = state().machine.gpus[static_cast<std::size_t>(module->gpu)];
    if (attribute != CU_FUNC_ATTRIBUTE_MAX_DYNAMIC_SHARED_SIZE_BYTES || value < 0 ||
        value > mostShared(gpu))
      return cudaErrorInvalidValue;
    function->sharedLimit = static_cast<std::size_t>(value);
    return cudaSuccess;
  });
}

// Variables of modules are memory of the program; they can be written at any time, and queued
// work sees the new value.
CUresult cuMemcpyHtoD(CUdeviceptr to, const void* from, std::size_t bytes) {
  return driverCall("cuMemcpyHtoD", [=] {
    void* address = reinterpret_cast<void*>(to);
    if (!state().ledger.isDevicePointer(address)) {
      std::memcpy(address, from, bytes);
      return cudaSuccess;
    }
    if (!state().ledger.holds(address, bytes)) return cudaErrorInvalidValue;
    const OpenMemory open(state().ledger, currentGpu());
    std::memcpy(address, from, bytes);
    return cudaSuccess;
  });
}

CUresult cuLaunchKernel(CUfunction function, unsigned gridX, unsigned gridY, unsigned gridZ,
                        unsigned blockX, unsigned blockY, unsigned blockZ, unsigned sharedBytes,
                        CUstream stream, void** arguments, void**) {
  return driverCall("cuLaunchKernel", [=] {
    const CUmod_st* module = moduleOf(function);
    if (module == nullptr || module->gpu != currentGpu()) return cudaErrorInvalidResourceHandle;
    const Grid grid = {{gridX, gridY, gridZ}, {blockX, blockY, blockZ}, sharedBytes};
    const Launch launch = {function->kernel, grid, function->sharedLimit, module->isLoaded};
    return queueLaunch(stream, launch, arguments);
  });
}

}  // extern "C"
