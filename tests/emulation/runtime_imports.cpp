// Memory of other interfaces in CUDA's runtime: what Mesa's software driver of Vulkan exports.
//
// It is a memory file that starts with a header, two words of which are the total length and the
// offset of the memory itself.
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "tests/emulation/work.h"

using namespace zeph::emulation;

namespace {

struct Header {
  std::size_t length = 0;
  std::size_t begin = 0;
};

// Empty if the file is not such memory.
Header headerOf(int file) {
  Header header;
  struct stat status = {};
  const bool isRead = pread(file, &header, sizeof(header), 0) == sizeof(header);
  if (!isRead || fstat(file, &status) != 0) return {};
  const auto length = static_cast<std::size_t>(status.st_size);
  return header.length <= length && header.begin <= header.length ? header : Header{};
}

std::shared_ptr<const int> owned(int file) {
  return {new int(file), [](const int* descriptor) {
            close(*descriptor);
            delete descriptor;
          }};
}

}  // namespace

extern "C" {

// If the import fails, the caller still owns the file.
cudaError_t cudaImportExternalMemory(cudaExternalMemory_t* memory,
                                     const cudaExternalMemoryHandleDesc* description) {
  return call("cudaImportExternalMemory", [=] {
    *memory = nullptr;
    if (description->type != cudaExternalMemoryHandleTypeOpaqueFd) return cudaErrorInvalidValue;
    const Header header = headerOf(description->handle.fd);
    if (description->size == 0 || description->size > header.length - header.begin)
      return cudaErrorInvalidValue;
    *memory = state().imports.add(
        {currentGpu(), owned(description->handle.fd), static_cast<std::size_t>(description->size)});
    return cudaSuccess;
  });
}

cudaError_t cudaExternalMemoryGetMappedBuffer(void** pointer, cudaExternalMemory_t handle,
                                              const cudaExternalMemoryBufferDesc* range) {
  return call("cudaExternalMemoryGetMappedBuffer", [=] {
    *pointer = nullptr;
    const auto memory = state().imports.find(handle);
    if (memory == nullptr) return cudaErrorInvalidResourceHandle;
    if (range->flags != 0 || range->offset != 0 || range->size == 0 || range->size > memory->bytes)
      return cudaErrorInvalidValue;
    const int file = *memory->descriptor;
    *pointer = state().ledger.adopt(memory->gpu, file, headerOf(file).begin,
                                    static_cast<std::size_t>(range->size));
    return *pointer != nullptr ? cudaSuccess : cudaErrorMemoryAllocation;
  });
}

// Mapped buffers stay mapped until they are freed.
cudaError_t cudaDestroyExternalMemory(cudaExternalMemory_t memory) {
  return call("cudaDestroyExternalMemory", [=] {
    return state().imports.remove(memory) ? cudaSuccess : cudaErrorInvalidResourceHandle;
  });
}

}  // extern "C"
