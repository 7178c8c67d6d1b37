// Memory of other interfaces on the emulated GPU.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "tests/emulation/emulated_gpu.h"

namespace zeph::emulation {
namespace {

constexpr std::size_t headerBytes = 4096;

// A file as the driver exports it.
int exported(std::size_t bytes) {
  const int file = memfd_create("exported", 0);
  const std::size_t header[2] = {headerBytes + bytes, headerBytes};
  EXPECT_EQ(ftruncate(file, static_cast<off_t>(header[0])), 0);
  EXPECT_EQ(pwrite(file, header, sizeof(header), 0), static_cast<ssize_t>(sizeof(header)));
  return file;
}

::cudaError_t import(::cudaExternalMemory_t* memory, int file, std::size_t bytes) {
  ::cudaExternalMemoryHandleDesc description = {};
  description.type = cudaExternalMemoryHandleTypeOpaqueFd;
  description.handle.fd = file;
  description.size = bytes;
  return ::cudaImportExternalMemory(memory, &description);
}

::cudaError_t map(void** pointer, ::cudaExternalMemory_t memory, std::size_t bytes) {
  ::cudaExternalMemoryBufferDesc range = {};
  range.size = bytes;
  return ::cudaExternalMemoryGetMappedBuffer(pointer, memory, &range);
}

TEST(EmulatedImport, CopiesReachTheFile) {
  const MachineScope scope({});
  const int file = exported(5000);
  const int seen = dup(file);
  ::cudaExternalMemory_t memory = nullptr;
  void* pointer = nullptr;
  ASSERT_EQ(import(&memory, file, 5000), ::cudaSuccess);
  ASSERT_EQ(map(&pointer, memory, 4999), ::cudaSuccess);
  const std::vector<char> values(4999, 'z');
  EXPECT_EQ(::cudaMemcpy(pointer, values.data(), 5000, ::cudaMemcpyHostToDevice),
            ::cudaErrorInvalidValue);
  ASSERT_EQ(::cudaMemcpy(pointer, values.data(), 4999, ::cudaMemcpyHostToDevice), ::cudaSuccess);
  std::vector<char> found(5000);
  EXPECT_EQ(pread(seen, found.data(), 5000, headerBytes), 5000);
  EXPECT_EQ(std::memcmp(found.data(), values.data(), 4999), 0);
  EXPECT_EQ(found[4999], 0);
  EXPECT_EQ(holdings().bytes, 0u);
  EXPECT_EQ(::cudaFree(pointer), ::cudaSuccess);
  EXPECT_EQ(::cudaDestroyExternalMemory(memory), ::cudaSuccess);
  EXPECT_EQ(holdings(), Holdings());
  close(seen);
}

TEST(EmulatedImport, OwnsTheFileOnceImported) {
  const MachineScope scope({});
  const int file = exported(100);
  ::cudaExternalMemory_t memory = nullptr;
  EXPECT_EQ(import(&memory, file, 101), ::cudaErrorInvalidValue);
  EXPECT_EQ(import(&memory, -1, 100), ::cudaErrorInvalidValue);
  EXPECT_EQ(fcntl(file, F_GETFD), 0);
  ASSERT_EQ(import(&memory, file, 100), ::cudaSuccess);
  EXPECT_EQ(fcntl(file, F_GETFD), 0);
  EXPECT_EQ(::cudaDestroyExternalMemory(memory), ::cudaSuccess);
  EXPECT_EQ(fcntl(file, F_GETFD), -1);
  EXPECT_EQ(::cudaDestroyExternalMemory(memory), ::cudaErrorInvalidResourceHandle);
  ::cudaGetLastError();
}

TEST(EmulatedImport, KeepsMappedMemoryUntilItIsFreed) {
  const MachineScope scope({});
  ::cudaExternalMemory_t memory = nullptr;
  void* pointer = nullptr;
  ASSERT_EQ(import(&memory, exported(100), 100), ::cudaSuccess);
  EXPECT_EQ(map(&pointer, memory, 101), ::cudaErrorInvalidValue);
  ASSERT_EQ(map(&pointer, memory, 100), ::cudaSuccess);
  ASSERT_EQ(::cudaDestroyExternalMemory(memory), ::cudaSuccess);
  EXPECT_EQ(holdings().imports, 0u);
  EXPECT_EQ(holdings().allocations, 1u);
  EXPECT_EQ(::cudaFree(pointer), ::cudaSuccess);
  EXPECT_EQ(holdings(), Holdings());
  ::cudaGetLastError();
}

}  // namespace
}  // namespace zeph::emulation
