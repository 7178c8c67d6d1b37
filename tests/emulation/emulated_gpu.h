// GPUs emulated on the processor, so that all GPU code of the library can run on a machine without
// a GPU: implements the functions of CUDA's runtime, of its driver and of NVRTC, and runs kernels
// thread by thread, compiled for the host. Linked into a test program in place of CUDA, or into a
// library that the program opens in place of the driver (tests/emulation/driver).
//
// Where CUDA leaves a behaviour open, it is chosen so that mistakes show. Work runs only when
// something synchronizes with its stream. Blocks, and the threads of a block between two barriers,
// run in a scrambled order. Fresh memory, shared memory too, is full of NaN. Only kernels and
// copies can access device memory; a host that follows a device pointer crashes, and so does a
// kernel that leaves its device's memory.
//
// Not emulated: the speed, the rounding in transforms (there the compiler may fuse
// operations), warps.
#pragma once

#include <cuda_runtime_api.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace zeph::emulation {

struct Gpu {
  int major = 8;  // compute capability
  int minor = 9;
  std::size_t memory = std::size_t{1} << 30;  // bytes
  std::size_t sharedMemory =
      0;  // the most that a block may have; 0 for the default of the capability
  std::array<char, 16> uuid = {};
};

struct Machine {
  std::vector<Gpu> gpus = {{}, {}};
  int driverVersion = 13000;  // 0 without a driver
  std::string missing = {};   // a function that the driver does not have
  bool hasCompiler = true;    // whether NVRTC is found
  bool deferred = true;       // whether queued work runs only at a synchronization
};

// Replaces the machine by a new one without objects or faults. The number of GPUs that the library
// has already counted stays the same, since it counts only once per process.
void setMachine(const Machine& machine);
const Machine& machine();

// Sets the machine of a test, and restores the default one afterwards.
class MachineScope {
 public:
  explicit MachineScope(const Machine& machine) { setMachine(machine); }
  ~MachineScope();
  MachineScope(const MachineScope&) = delete;
  MachineScope& operator=(const MachineScope&) = delete;
};

// What Direct3D's interfaces point to here. An adapter that is no GPU of CUDA's has -1.
struct Adapter {
  int gpu = -1;
};

// A buffer that a GPU can share. The contents change when an unmap has run on its stream.
struct GraphicsBuffer {
  int gpu = 0;
  std::vector<std::byte> contents;
};

// Lets a function of CUDA, by its name, fail once after `passes` calls that do not.
void failNext(const std::string& function, ::cudaError_t error, int passes = 0);

// How often a function of CUDA has been called by this process.
long callsOf(const std::string& function);

// The resources of the process on all GPUs together.
struct Holdings {
  std::size_t bytes = 0;        // device memory
  std::size_t allocations = 0;  // blocks to be freed by cudaFree, including imported memory
  std::size_t hostBlocks = 0;   // page-locked
  std::size_t streams = 0;
  std::size_t events = 0;
  std::size_t graphs = 0;
  std::size_t modules = 0;
  std::size_t imports = 0;     // memory imported from other interfaces
  std::size_t registered = 0;  // buffers of Direct3D
  std::size_t mapped = 0;      // of these

  bool operator==(const Holdings&) const = default;
};
Holdings holdings();

// Whether a kernel has been stopped by a fault, after which every call on its GPU fails.
bool hasFault(int gpu);

}  // namespace zeph::emulation
