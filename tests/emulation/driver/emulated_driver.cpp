// The emulated GPUs behind the functions of CUDA's driver, as a library of the driver's name. The
// functions do what those of the emulated runtime do, but only in a context.
#include <cuda.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "device/cuda/direct3d_functions.h"
#include "tests/emulation/state.h"

using namespace zeph::emulation;

namespace {

thread_local CUcontext current = nullptr;

// A primary context is the address of its GPU's place here.
std::array<char, 16> primaryContexts;

CUresult code(cudaError_t error) {
  return static_cast<CUresult>(error);
}

template <class Body>
CUresult inContext(Body body) {
  return current != nullptr ? code(body()) : CUDA_ERROR_INVALID_CONTEXT;
}

CUresult setCurrent(CUcontext context) {
  current = context;
  if (context != nullptr)
    currentGpu() = static_cast<int>(reinterpret_cast<char*>(context) - primaryContexts.data());
  return CUDA_SUCCESS;
}

void* pointer(CUdeviceptr address) {
  return reinterpret_cast<void*>(address);
}
cudaGraphicsResource_t runtimes(CUgraphicsResource resource) {
  return reinterpret_cast<cudaGraphicsResource_t>(resource);
}
cudaExternalMemory_t runtimes(CUexternalMemory memory) {
  return reinterpret_cast<cudaExternalMemory_t>(memory);
}

CUresult describe(CUdevice device, cudaDeviceProp& properties) {
  return code(cudaGetDeviceProperties(&properties, device));
}

CUresult attribute(int* value, CUdevice_attribute which, CUdevice device) {
  const bool isCapability = which == CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MAJOR ||
                            which == CU_DEVICE_ATTRIBUTE_COMPUTE_CAPABILITY_MINOR;
  return isCapability
             ? code(cudaDeviceGetAttribute(value, static_cast<cudaDeviceAttr>(which), device))
             : cuDeviceGetAttribute(value, which, device);
}

// Variables of modules are memory of the program.
CUresult copyToDevice(CUdeviceptr to, const void* from, std::size_t bytes) {
  if (!state().ledger.isDevicePointer(pointer(to))) return cuMemcpyHtoD(to, from, bytes);
  return inContext([=] { return cudaMemcpy(pointer(to), from, bytes, cudaMemcpyHostToDevice); });
}

CUresult importMemory(CUexternalMemory* memory, const CUDA_EXTERNAL_MEMORY_HANDLE_DESC* handle) {
  cudaExternalMemoryHandleDesc description = {};
  description.type = static_cast<cudaExternalMemoryHandleType>(handle->type);
  description.handle.fd = handle->handle.fd;
  description.size = handle->size;
  return inContext([&] {
    return cudaImportExternalMemory(reinterpret_cast<cudaExternalMemory_t*>(memory), &description);
  });
}

CUresult mapMemory(CUdeviceptr* mapped, CUexternalMemory memory,
                   const CUDA_EXTERNAL_MEMORY_BUFFER_DESC* range) {
  cudaExternalMemoryBufferDesc part = {};
  part.offset = range->offset;
  part.size = range->size;
  part.flags = range->flags;
  return inContext([&] {
    return cudaExternalMemoryGetMappedBuffer(reinterpret_cast<void**>(mapped), runtimes(memory),
                                             &part);
  });
}

// A kernel of a library, or a function of a module.
CUresult launch(CUfunction function, unsigned gridX, unsigned gridY, unsigned gridZ,
                unsigned blockX, unsigned blockY, unsigned blockZ, unsigned sharedBytes,
                CUstream stream, void** arguments, void** extra) {
  if (!state().kernels.contains(reinterpret_cast<const KernelFunction*>(function)))
    return cuLaunchKernel(function, gridX, gridY, gridZ, blockX, blockY, blockZ, sharedBytes,
                          stream, arguments, extra);
  return inContext([=] {
    return cudaLaunchKernel(function, {gridX, gridY, gridZ}, {blockX, blockY, blockZ}, arguments,
                            sharedBytes, stream);
  });
}

struct Entry {
  const char* name;
  void* function;
};

// The name as it is written, and a function of the declared type.
#define ENTRY(name, ...) \
  { #name, reinterpret_cast < void*>(static_cast <decltype(&::name)>(__VA_ARGS__)) }

const Entry deviceEntries[] = {
    ENTRY(cuInit,
          [](unsigned) {
            int count = 0;
            return code(cudaGetDeviceCount(&count));
          }),
    ENTRY(cuGetErrorString,
          [](CUresult error, const char** text) {
            *text = cudaGetErrorString(static_cast<cudaError_t>(error));
            return CUDA_SUCCESS;
          }),
    ENTRY(cuDeviceGet, cuDeviceGet),
    ENTRY(cuDeviceGetAttribute, attribute),
    ENTRY(cuDeviceGetCount, [](int* count) { return code(cudaGetDeviceCount(count)); }),
    ENTRY(cuDeviceGetName,
          [](char* name, int bytes, CUdevice device) {
            cudaDeviceProp properties;
            const CUresult result = describe(device, properties);
            std::snprintf(name, static_cast<std::size_t>(bytes), "%s", properties.name);
            return result;
          }),
    ENTRY(cuDeviceGetUuid,
          [](CUuuid* uuid, CUdevice device) {
            cudaDeviceProp properties;
            const CUresult result = describe(device, properties);
            std::memcpy(uuid, &properties.uuid, sizeof(*uuid));
            return result;
          }),
    ENTRY(cuDeviceTotalMem,
          [](std::size_t* bytes, CUdevice device) {
            cudaDeviceProp properties;
            const CUresult result = describe(device, properties);
            *bytes = properties.totalGlobalMem;
            return result;
          }),
    ENTRY(cuDevicePrimaryCtxRetain,
          [](CUcontext* context, CUdevice device) {
            auto* place = &primaryContexts[static_cast<std::size_t>(device)];
            *context = reinterpret_cast<CUcontext>(place);
            return CUDA_SUCCESS;
          }),
    ENTRY(cuCtxSetCurrent, setCurrent),
    ENTRY(cuCtxSynchronize, [] { return inContext(cudaDeviceSynchronize); }),
    ENTRY(cuD3D11GetDevice, [](CUdevice* device, IDXGIAdapter* adapter) {
      return code(cudaD3D11GetDevice(device, adapter));
    })};

const Entry memoryEntries[] = {
    ENTRY(cuMemGetInfo,
          [](std::size_t* available, std::size_t* total) {
            return inContext([=] { return cudaMemGetInfo(available, total); });
          }),
    ENTRY(cuMemAlloc,
          [](CUdeviceptr* made, std::size_t bytes) {
            if (bytes == 0) return CUDA_ERROR_INVALID_VALUE;
            return inContext([=] { return cudaMalloc(reinterpret_cast<void**>(made), bytes); });
          }),
    ENTRY(cuMemFree,
          [](CUdeviceptr block) { return inContext([=] { return cudaFree(pointer(block)); }); }),
    ENTRY(cuMemHostAlloc,
          [](void** made, std::size_t bytes, unsigned) {
            return inContext([=] { return cudaMallocHost(made, bytes); });
          }),
    ENTRY(cuMemFreeHost,
          [](void* block) { return inContext([=] { return cudaFreeHost(block); }); }),
    ENTRY(cuMemcpyHtoD, copyToDevice),
    ENTRY(cuMemcpyDtoH,
          [](void* to, CUdeviceptr from, std::size_t bytes) {
            return inContext(
                [=] { return cudaMemcpy(to, pointer(from), bytes, cudaMemcpyDeviceToHost); });
          }),
    ENTRY(cuMemcpyDtoD,
          [](CUdeviceptr to, CUdeviceptr from, std::size_t bytes) {
            return inContext([=] {
              return cudaMemcpy(pointer(to), pointer(from), bytes, cudaMemcpyDeviceToDevice);
            });
          }),
    ENTRY(cuMemcpyHtoDAsync,
          [](CUdeviceptr to, const void* from, std::size_t bytes, CUstream stream) {
            return inContext([=] {
              return cudaMemcpyAsync(pointer(to), from, bytes, cudaMemcpyHostToDevice, stream);
            });
          }),
    ENTRY(cuMemcpyDtoHAsync,
          [](void* to, CUdeviceptr from, std::size_t bytes, CUstream stream) {
            return inContext([=] {
              return cudaMemcpyAsync(to, pointer(from), bytes, cudaMemcpyDeviceToHost, stream);
            });
          }),
    ENTRY(cuMemcpyDtoDAsync,
          [](CUdeviceptr to, CUdeviceptr from, std::size_t bytes, CUstream stream) {
            return inContext([=] {
              return cudaMemcpyAsync(pointer(to), pointer(from), bytes, cudaMemcpyDeviceToDevice,
                                     stream);
            });
          }),
    ENTRY(cuMemsetD8Async,
          [](CUdeviceptr to, unsigned char value, std::size_t bytes, CUstream stream) {
            return inContext([=] { return cudaMemsetAsync(pointer(to), value, bytes, stream); });
          }),
    ENTRY(cuImportExternalMemory, importMemory),
    ENTRY(cuExternalMemoryGetMappedBuffer, mapMemory),
    ENTRY(cuDestroyExternalMemory,
          [](CUexternalMemory memory) {
            return inContext([=] { return cudaDestroyExternalMemory(runtimes(memory)); });
          }),
    ENTRY(cuGraphicsD3D11RegisterResource,
          [](CUgraphicsResource* resource, ID3D11Resource* buffer, unsigned flags) {
            return inContext([=] {
              return cudaGraphicsD3D11RegisterResource(
                  reinterpret_cast<cudaGraphicsResource_t*>(resource), buffer, flags);
            });
          }),
    ENTRY(cuGraphicsResourceSetMapFlags,
          [](CUgraphicsResource resource, unsigned flags) {
            return inContext(
                [=] { return cudaGraphicsResourceSetMapFlags(runtimes(resource), flags); });
          }),
    ENTRY(cuGraphicsMapResources,
          [](unsigned count, CUgraphicsResource* resources, CUstream stream) {
            return inContext([=] {
              return cudaGraphicsMapResources(static_cast<int>(count),
                                              reinterpret_cast<cudaGraphicsResource_t*>(resources),
                                              stream);
            });
          }),
    ENTRY(cuGraphicsResourceGetMappedPointer,
          [](CUdeviceptr* mapped, std::size_t* bytes, CUgraphicsResource resource) {
            return inContext([=] {
              return cudaGraphicsResourceGetMappedPointer(reinterpret_cast<void**>(mapped), bytes,
                                                          runtimes(resource));
            });
          }),
    ENTRY(cuGraphicsUnmapResources,
          [](unsigned count, CUgraphicsResource* resources, CUstream stream) {
            return inContext([=] {
              return cudaGraphicsUnmapResources(
                  static_cast<int>(count), reinterpret_cast<cudaGraphicsResource_t*>(resources),
                  stream);
            });
          }),
    ENTRY(cuGraphicsUnregisterResource, [](CUgraphicsResource resource) {
      return inContext([=] { return cudaGraphicsUnregisterResource(runtimes(resource)); });
    })};

const Entry workEntries[] = {
    ENTRY(cuStreamCreate,
          [](CUstream* stream, unsigned flags) {
            return inContext([=] { return cudaStreamCreateWithFlags(stream, flags); });
          }),
    ENTRY(cuStreamSynchronize,
          [](CUstream stream) { return inContext([=] { return cudaStreamSynchronize(stream); }); }),
    ENTRY(cuStreamDestroy,
          [](CUstream stream) { return inContext([=] { return cudaStreamDestroy(stream); }); }),
    ENTRY(cuStreamBeginCapture,
          [](CUstream stream, CUstreamCaptureMode mode) {
            return inContext([=] {
              return cudaStreamBeginCapture(stream, static_cast<cudaStreamCaptureMode>(mode));
            });
          }),
    ENTRY(cuStreamEndCapture,
          [](CUstream stream, CUgraph* graph) {
            return inContext([=] { return cudaStreamEndCapture(stream, graph); });
          }),
    ENTRY(
        cuEventCreate,
        [](CUevent* event, unsigned) { return inContext([=] { return cudaEventCreate(event); }); }),
    ENTRY(cuEventRecord,
          [](CUevent event, CUstream stream) {
            return inContext([=] { return cudaEventRecord(event, stream); });
          }),
    ENTRY(cuEventSynchronize,
          [](CUevent event) { return inContext([=] { return cudaEventSynchronize(event); }); }),
    ENTRY(cuEventElapsedTime,
          [](float* milliseconds, CUevent begin, CUevent end) {
            return inContext([=] { return cudaEventElapsedTime(milliseconds, begin, end); });
          }),
    ENTRY(cuEventDestroy,
          [](CUevent event) { return inContext([=] { return cudaEventDestroy(event); }); }),
    ENTRY(cuGraphInstantiateWithFlags,
          [](CUgraphExec* made, CUgraph graph, unsigned long long flags) {
            return inContext([=] { return cudaGraphInstantiate(made, graph, flags); });
          }),
    ENTRY(cuGraphDestroy,
          [](CUgraph graph) { return inContext([=] { return cudaGraphDestroy(graph); }); }),
    ENTRY(cuGraphLaunch,
          [](CUgraphExec graph, CUstream stream) {
            return inContext([=] { return cudaGraphLaunch(graph, stream); });
          }),
    ENTRY(cuGraphExecDestroy,
          [](CUgraphExec graph) { return inContext([=] { return cudaGraphExecDestroy(graph); }); }),
    ENTRY(cuLibraryLoadData,
          [](CUlibrary* library, const void* image, CUjit_option*, void**, unsigned,
             CUlibraryOption*, void**, unsigned) {
            return code(cudaLibraryLoadData(reinterpret_cast<cudaLibrary_t*>(library), image,
                                            nullptr, nullptr, 0, nullptr, nullptr, 0));
          }),
    ENTRY(cuLibraryGetKernel,
          [](CUkernel* kernel, CUlibrary library, const char* name) {
            return code(cudaLibraryGetKernel(reinterpret_cast<cudaKernel_t*>(kernel),
                                             reinterpret_cast<cudaLibrary_t>(library), name));
          }),
    ENTRY(cuLaunchKernel, launch),
    ENTRY(cuModuleLoadDataEx, cuModuleLoadDataEx),
    ENTRY(cuModuleUnload, cuModuleUnload),
    ENTRY(cuModuleGetFunction, cuModuleGetFunction),
    ENTRY(cuModuleGetGlobal, cuModuleGetGlobal),
    ENTRY(cuFuncSetAttribute, cuFuncSetAttribute)};

template <std::size_t count>
void* findIn(const Entry (&entries)[count], std::string_view name) {
  for (const Entry& entry : entries) {
    if (entry.name == name) return entry.function;
  }
  return nullptr;
}

void* entryOf(std::string_view name) {
  void* found = findIn(deviceEntries, name);
  if (found == nullptr) found = findIn(memoryEntries, name);
  return found != nullptr ? found : findIn(workEntries, name);
}

}  // namespace

extern "C" {

CUresult cuDriverGetVersion(int* version) {
  *version = machine().driverVersion;
  return CUDA_SUCCESS;
}

CUresult cuGetProcAddress(const char* name, void** function, int version, cuuint64_t,
                          CUdriverProcAddressQueryResult* result) {
  *function = machine().missing != name ? entryOf(name) : nullptr;
  *result = *function == nullptr                ? CU_GET_PROC_ADDRESS_SYMBOL_NOT_FOUND
            : version > machine().driverVersion ? CU_GET_PROC_ADDRESS_VERSION_NOT_SUFFICIENT
                                                : CU_GET_PROC_ADDRESS_SUCCESS;
  return *function != nullptr ? CUDA_SUCCESS : CUDA_ERROR_NOT_FOUND;
}

}  // extern "C"
