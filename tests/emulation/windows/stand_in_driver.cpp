#include <cuda.h>
#include <d3d11.h>
#include <wrl/client.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "device/cuda/direct3d_functions.h"
#include "tests/emulation/windows/stand_in.h"

using Microsoft::WRL::ComPtr;

struct CUgraphicsResource_st {
  ComPtr<ID3D11Buffer> buffer;
  std::vector<std::byte> memory;
  unsigned flags = 0;
  bool isMapped = false;
};

namespace {

constexpr int gpus = 2;
constexpr std::size_t memoryOfGpu = std::size_t{1} << 30;

struct State {
  std::map<std::string, long> calls;
  std::map<std::string, CUresult> failures;
  int gpuOfAdapters = 0;
  std::size_t holdings = 0;
  char contexts[gpus] = {};
};

State& state() {
  static auto* const made = new State;
  return *made;
}

thread_local CUcontext current = nullptr;

template <class Body>
CUresult query(const char* function, Body body) {
  ++state().calls[function];
  const auto failure = state().failures.find(function);
  if (failure == state().failures.end()) return body();
  const CUresult error = failure->second;
  state().failures.erase(failure);
  return error;
}

template <class Body>
CUresult call(const char* function, Body body) {
  return query(function, [&] { return current != nullptr ? body() : CUDA_ERROR_INVALID_CONTEXT; });
}

CUresult copy(const char* function, void* to, const void* from, std::size_t bytes) {
  return call(function, [=] {
    std::memcpy(to, from, bytes);
    return CUDA_SUCCESS;
  });
}

void* pointer(CUdeviceptr address) {
  return reinterpret_cast<void*>(address);
}

CUresult allocate(const char* function, void** made, std::size_t bytes) {
  return call(function, [=] {
    *made = std::malloc(bytes);
    ++state().holdings;
    return CUDA_SUCCESS;
  });
}

CUresult release(const char* function, void* block) {
  return call(function, [=] {
    std::free(block);
    --state().holdings;
    return CUDA_SUCCESS;
  });
}

CUresult describe(const char* function, CUdevice device) {
  return query(function, [=] {
    return device >= 0 && device < gpus ? CUDA_SUCCESS : CUDA_ERROR_INVALID_DEVICE;
  });
}

// What VkFFT and the library ask for, of a GPU of capability 8.9.
int valueOf(CUdevice_attribute attribute) {
  switch (attribute) {
    case CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MAJOR:
      return 8;
    case CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MINOR:
      return 9;
    case CU_DEVICE_ATTRIBUTE_MAX_GRID_DIM_X:
      return 0x7fffffff;
    case CU_DEVICE_ATTRIBUTE_MAX_GRID_DIM_Y:
    case CU_DEVICE_ATTRIBUTE_MAX_GRID_DIM_Z:
      return 65535;
    case CU_DEVICE_ATTRIBUTE_MAX_BLOCK_DIM_Z:
      return 64;
    case CU_DEVICE_ATTRIBUTE_MAX_SHARED_MEMORY_PER_BLOCK:
      return 48 * 1024;
    case CU_DEVICE_ATTRIBUTE_MAX_SHARED_MEMORY_PER_BLOCK_OPTIN:
      return 99 * 1024;
    case CU_DEVICE_ATTRIBUTE_WARP_SIZE:
      return 32;
    default:
      return 1024;
  }
}

CUresult registerBuffer(CUgraphicsResource* made, ID3D11Resource* resource, unsigned flags) {
  return call("cuGraphicsD3D11RegisterResource", [=] {
    ComPtr<ID3D11Buffer> buffer;
    if (flags != 0 || FAILED(resource->QueryInterface(IID_PPV_ARGS(&buffer))))
      return CUDA_ERROR_INVALID_VALUE;
    *made = new CUgraphicsResource_st{buffer, {}};
    ++state().holdings;
    return CUDA_SUCCESS;
  });
}

// Only to be overwritten: then the former contents, which this stand-in does not have, are lost.
CUresult mapBuffer(unsigned count, CUgraphicsResource* resources, CUstream) {
  return call("cuGraphicsMapResources", [=] {
    CUgraphicsResource resource = *resources;
    if (count != 1 || resource->isMapped) return CUDA_ERROR_ALREADY_MAPPED;
    if (resource->flags != CU_GRAPHICS_MAP_RESOURCE_FLAGS_WRITE_DISCARD)
      return CUDA_ERROR_NOT_SUPPORTED;
    D3D11_BUFFER_DESC description = {};
    resource->buffer->GetDesc(&description);
    resource->memory.assign(description.ByteWidth, std::byte{0xff});
    resource->isMapped = true;
    return CUDA_SUCCESS;
  });
}

CUresult unmapBuffer(unsigned count, CUgraphicsResource* resources, CUstream) {
  return call("cuGraphicsUnmapResources", [=] {
    CUgraphicsResource resource = *resources;
    if (count != 1 || !resource->isMapped) return CUDA_ERROR_NOT_MAPPED;
    ComPtr<ID3D11Device> device;
    ComPtr<ID3D11DeviceContext> context;
    resource->buffer->GetDevice(&device);
    device->GetImmediateContext(&context);
    context->UpdateSubresource(resource->buffer.Get(), 0, nullptr, resource->memory.data(), 0, 0);
    resource->isMapped = false;
    return CUDA_SUCCESS;
  });
}

CUresult unregisterBuffer(CUgraphicsResource resource) {
  return call("cuGraphicsUnregisterResource", [=] {
    delete resource;
    --state().holdings;
    return CUDA_SUCCESS;
  });
}

struct Entry {
  const char* name;
  void* function;
};

// The name as it is written, and a function of the declared type.
#define ENTRY(name, ...) \
  { #name, reinterpret_cast < void*>(static_cast <decltype(&::name)>(__VA_ARGS__)) }

const Entry entries[] = {
    ENTRY(cuInit, [](unsigned) { return CUDA_SUCCESS; }),
    ENTRY(cuGetErrorString,
          [](CUresult error, const char** text) {
            *text = error == CUDA_ERROR_OUT_OF_MEMORY     ? "out of memory"
                    : error == CUDA_ERROR_INVALID_VALUE   ? "invalid argument"
                    : error == CUDA_ERROR_INVALID_DEVICE  ? "invalid device ordinal"
                    : error == CUDA_ERROR_INVALID_CONTEXT ? "invalid device context"
                                                          : "another error";
            return CUDA_SUCCESS;
          }),
    ENTRY(cuDeviceGet,
          [](CUdevice* device, int ordinal) {
            *device = ordinal;
            return describe("cuDeviceGet", ordinal);
          }),
    ENTRY(cuDeviceGetCount,
          [](int* count) {
            *count = gpus;
            return CUDA_SUCCESS;
          }),
    ENTRY(cuDeviceGetName,
          [](char* name, int bytes, CUdevice device) {
            std::snprintf(name, static_cast<std::size_t>(bytes), "Stand-in GPU %d", device);
            return describe("cuDeviceGetName", device);
          }),
    ENTRY(cuDeviceGetUuid,
          [](CUuuid*, CUdevice device) { return describe("cuDeviceGetUuid", device); }),
    ENTRY(cuDeviceGetAttribute,
          [](int* value, CUdevice_attribute attribute, CUdevice device) {
            *value = valueOf(attribute);
            return describe("cuDeviceGetAttribute", device);
          }),
    ENTRY(cuDeviceTotalMem,
          [](std::size_t* bytes, CUdevice device) {
            *bytes = memoryOfGpu;
            return describe("cuDeviceTotalMem", device);
          }),
    ENTRY(cuDevicePrimaryCtxRetain,
          [](CUcontext* context, CUdevice device) {
            *context = reinterpret_cast<CUcontext>(&state().contexts[device]);
            return describe("cuDevicePrimaryCtxRetain", device);
          }),
    ENTRY(cuCtxSetCurrent,
          [](CUcontext context) {
            current = context;
            return CUDA_SUCCESS;
          }),
    ENTRY(cuMemGetInfo,
          [](std::size_t* available, std::size_t* total) {
            return call("cuMemGetInfo", [=] {
              *available = *total = memoryOfGpu;
              return CUDA_SUCCESS;
            });
          }),
    ENTRY(cuMemAlloc,
          [](CUdeviceptr* made, std::size_t bytes) {
            return allocate("cuMemAlloc", reinterpret_cast<void**>(made), bytes);
          }),
    ENTRY(cuMemFree, [](CUdeviceptr block) { return release("cuMemFree", pointer(block)); }),
    ENTRY(cuMemHostAlloc, [](void** made, std::size_t bytes,
                             unsigned) { return allocate("cuMemHostAlloc", made, bytes); }),
    ENTRY(cuMemFreeHost, [](void* block) { return release("cuMemFreeHost", block); }),
    ENTRY(cuMemcpyHtoD,
          [](CUdeviceptr to, const void* from, std::size_t bytes) {
            return copy("cuMemcpyHtoD", pointer(to), from, bytes);
          }),
    ENTRY(cuMemcpyDtoDAsync,
          [](CUdeviceptr to, CUdeviceptr from, std::size_t bytes, CUstream) {
            return copy("cuMemcpyDtoDAsync", pointer(to), pointer(from), bytes);
          }),
    ENTRY(cuStreamCreate,
          [](CUstream* made, unsigned) {
            return allocate("cuStreamCreate", reinterpret_cast<void**>(made), 1);
          }),
    ENTRY(cuStreamDestroy, [](CUstream stream) { return release("cuStreamDestroy", stream); }),
    ENTRY(cuStreamSynchronize,
          [](CUstream) { return call("cuStreamSynchronize", [] { return CUDA_SUCCESS; }); }),
    ENTRY(cuEventCreate,
          [](CUevent* made, unsigned) {
            return allocate("cuEventCreate", reinterpret_cast<void**>(made), 1);
          }),
    ENTRY(cuEventDestroy, [](CUevent event) { return release("cuEventDestroy", event); }),
    ENTRY(cuD3D11GetDevice,
          [](CUdevice* device, IDXGIAdapter*) {
            *device = state().gpuOfAdapters;
            return describe("cuD3D11GetDevice", *device);
          }),
    ENTRY(cuGraphicsD3D11RegisterResource, registerBuffer),
    ENTRY(cuGraphicsResourceSetMapFlags,
          [](CUgraphicsResource resource, unsigned flags) {
            return call("cuGraphicsResourceSetMapFlags", [=] {
              resource->flags = flags;
              return CUDA_SUCCESS;
            });
          }),
    ENTRY(cuGraphicsMapResources, mapBuffer),
    ENTRY(cuGraphicsResourceGetMappedPointer,
          [](CUdeviceptr* mapped, std::size_t* bytes, CUgraphicsResource resource) {
            return call("cuGraphicsResourceGetMappedPointer", [=] {
              *mapped = reinterpret_cast<CUdeviceptr>(resource->memory.data());
              *bytes = resource->memory.size();
              return CUDA_SUCCESS;
            });
          }),
    ENTRY(cuGraphicsUnmapResources, unmapBuffer),
    ENTRY(cuGraphicsUnregisterResource, unregisterBuffer)};

CUresult notInTheStandIn() {
  return CUDA_ERROR_NOT_SUPPORTED;
}

}  // namespace

#define EXPORTED extern "C" __declspec(dllexport)

EXPORTED CUresult CUDAAPI cuDriverGetVersion(int* version) {
  *version = CUDA_VERSION;
  return CUDA_SUCCESS;
}

EXPORTED CUresult CUDAAPI cuGetProcAddress_v2(const char* name, void** function, int, cuuint64_t,
                                              CUdriverProcAddressQueryResult* result) {
  *function = reinterpret_cast<void*>(&notInTheStandIn);
  for (const Entry& entry : entries) {
    if (std::string_view(entry.name) == name) *function = entry.function;
  }
  *result = CU_GET_PROC_ADDRESS_SUCCESS;
  return CUDA_SUCCESS;
}

EXPORTED long standInCalls(const char* function) {
  return state().calls[function];
}

EXPORTED void standInFail(const char* function, int error) {
  state().failures[function] = static_cast<CUresult>(error);
}

EXPORTED void standInPlaceAdapters(int gpu) {
  state().gpuOfAdapters = gpu;
}

EXPORTED std::size_t standInHoldings() {
  return state().holdings;
}
