// Shared by the CUDA functions: the machine, the objects on it, and how a call begins and ends.
#pragma once

#include <cuda_runtime_api.h>

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tests/emulation/emulated_gpu.h"
#include "tests/emulation/kernel_function.h"
#include "tests/emulation/ledger.h"

namespace zeph::emulation {

// A piece of work on a stream. An error is a fault of its GPU.
using Work = std::function<::cudaError_t()>;

struct Stream {
  int gpu = 0;
  bool isBlocking = true;  // keeps the order with the default stream
  std::deque<Work> pending = {};
  bool isCapturing = false;
  bool isCaptureBroken = false;
  std::vector<Work> captured = {};
};

struct Event {
  int gpu = 0;
  bool isRecorded = false;
  int pending = 0;  // records queued
  std::chrono::steady_clock::time_point time = {};
};

struct Graph {
  std::vector<Work> work;
};

struct GraphExec {
  std::vector<Work> work;
};

// Memory of another interface: a file whose pages both map.
struct ExternalMemory {
  int gpu = 0;
  std::shared_ptr<const int> descriptor;
  std::size_t bytes = 0;
};

// A buffer of Direct3D, whose memory has another address each time that it is mapped.
struct GraphicsResource {
  GraphicsBuffer* buffer = nullptr;
  unsigned mapFlags = 0;
  void* mapped = nullptr;
};

// Objects behind handles.
template <class T, class Handle>
class Registry {
 public:
  Handle add(T object) {
    const auto made = std::make_shared<T>(std::move(object));
    objects_.emplace(made.get(), made);
    return reinterpret_cast<Handle>(made.get());
  }

  // Null for an invalid handle.
  std::shared_ptr<T> find(Handle handle) const {
    const auto found = objects_.find(reinterpret_cast<T*>(handle));
    return found != objects_.end() ? found->second : nullptr;
  }

  bool remove(Handle handle) { return objects_.erase(reinterpret_cast<T*>(handle)) > 0; }
  std::size_t size() const { return objects_.size(); }
  void clear() { objects_.clear(); }

  template <class Visit>
  void forEach(Visit visit) {
    for (auto& [address, object] : objects_) visit(*object);
  }

 private:
  std::map<T*, std::shared_ptr<T>> objects_;
};

struct PlannedFailure {
  ::cudaError_t error;
  int passes;
};

struct State {
  std::mutex mutex;
  Machine machine;
  std::vector<::cudaError_t> faults = {::cudaSuccess, ::cudaSuccess};
  std::vector<Stream> defaultStreams = {{.gpu = 0}, {.gpu = 1}};
  Ledger ledger;
  Registry<Stream, ::cudaStream_t> streams;
  Registry<Event, ::cudaEvent_t> events;
  Registry<Graph, ::cudaGraph_t> graphs;
  Registry<GraphExec, ::cudaGraphExec_t> graphExecs;
  Registry<ExternalMemory, ::cudaExternalMemory_t> imports;
  Registry<GraphicsResource, ::cudaGraphicsResource_t> graphics;
  std::set<const KernelFunction*> kernels;
  std::size_t modules = 0;
  std::map<std::string, PlannedFailure> failures;
  std::map<std::string, long> calls;

  int gpus() const { return static_cast<int>(machine.gpus.size()); }
};

State& state();
int& currentGpu();           // of the thread
::cudaError_t& lastError();  // of the thread

// Counts the call; returns the failure planned for it, or cudaSuccess. The state is locked.
::cudaError_t beginCall(const char* function);
// The error that prevents the thread from using its GPU: no driver, no such GPU, a fault.
::cudaError_t obstacle();

// A call of CUDA's runtime that does not use the GPU, with the state locked.
template <class Body>
::cudaError_t query(const char* function, Body body) {
  const std::lock_guard lock(state().mutex);
  ::cudaError_t result = beginCall(function);
  if (result == ::cudaSuccess) result = body();
  if (result != ::cudaSuccess) lastError() = result;
  return result;
}

// One that uses it.
template <class Body>
::cudaError_t call(const char* function, Body body) {
  return query(function, [&] {
    const ::cudaError_t hindrance = obstacle();
    return hindrance != ::cudaSuccess ? hindrance : body();
  });
}

}  // namespace zeph::emulation
