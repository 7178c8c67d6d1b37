#include "solver/step_graph.h"

#include <cstring>
#include <exception>

#include "device/check.h"

namespace zeph {

StepGraph::~StepGraph() {
  clear();
}

void StepGraph::clear() {
  if (graph_ != nullptr) cudaGraphExecDestroy(graph_);
  graph_ = nullptr;
}

bool StepGraph::holds(const Params& step) const {
  // Compare bits, not values: the record has no padding.
  // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
  return graph_ != nullptr && std::memcmp(&step, &step_, sizeof(step)) == 0;
}

void StepGraph::record(cudaStream_t stream, const Params& step,
                       const std::function<void()>& queue) {
  clear();
  if (refused_ || cudaStreamBeginCapture(stream) != cudaSuccess) {
    refused_ = true;
    return;
  }
  bool queued = true;
  try {
    queue();
  } catch (const std::exception&) {
    // Do without a recording. If the work itself fails, it fails again when it is queued directly.
    queued = false;
  }
  const cudaError_t result = cudaStreamEndCapture(stream, &graph_);
  if (queued && result == cudaSuccess) {
    step_ = step;
    return;
  }
  cudaGetLastError(stream);
  clear();
  refused_ = true;
}

void StepGraph::launch(cudaStream_t stream) const {
  check(cudaGraphLaunch(graph_, stream), "cudaGraphLaunch(graph,stream())");
}

}  // namespace zeph
