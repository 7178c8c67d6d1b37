// GPUs that the processor plays, so that everything the system does on a GPU runs where there is
// none: the functions of CUDA's runtime, of its driver and of NVRTC stand here, and kernels run
// thread by thread, compiled for the host. Linked into a test program in place of CUDA.
//
// What CUDA leaves open is chosen so that mistakes show. Work waits on its stream until something
// waits for it. Blocks, and the threads of a block between two barriers, run in a scrambled order.
// Fresh memory, shared memory too, is full of NaN. Device memory can be touched by kernels and
// copies alone; a host that follows a device pointer dies, and so does a kernel that leaves its
// device's memory.
//
// Not kept from a real GPU: its speed, its rounding in transforms (there the compiler may fuse
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
  std::size_t sharedMemory = 0;  // the most that a block may have; 0 for that of the capability
  std::array<char, 16> uuid = {};
};

struct Machine {
  std::vector<Gpu> gpus = {{}, {}};
  int driverVersion = 13000;  // 0 where there is no driver
  bool hasCompiler = true;    // whether NVRTC is found
  bool deferred = true;       // whether queued work waits until it is waited for
};

// Replaces the machine by a new one, on which nothing lives and that has no fault. What has been
// counted of GPUs before stays counted: a process asks only once.
void setMachine(const Machine& machine);
const Machine& machine();

// The machine of a test, and the usual one after it.
class MachineScope {
 public:
  explicit MachineScope(const Machine& machine) { setMachine(machine); }
  ~MachineScope();
  MachineScope(const MachineScope&) = delete;
  MachineScope& operator=(const MachineScope&) = delete;
};

// Lets a function of CUDA, by its name, fail once after `passes` calls that do not.
void failNext(const std::string& function, ::cudaError_t error, int passes = 0);

// How often a function of CUDA has been called by this process.
long callsOf(const std::string& function);

// What the process holds on all GPUs together.
struct Holdings {
  std::size_t bytes = 0;        // device memory
  std::size_t allocations = 0;  // what must be given to cudaFree, imported memory too
  std::size_t hostBlocks = 0;   // page-locked
  std::size_t streams = 0;
  std::size_t events = 0;
  std::size_t graphs = 0;
  std::size_t modules = 0;
  std::size_t imports = 0;  // memory of other interfaces

  bool operator==(const Holdings&) const = default;
};
Holdings holdings();

// Whether a kernel has been stopped by a fault, after which every call on its GPU fails.
bool hasFault(int gpu);

}  // namespace zeph::emulation
