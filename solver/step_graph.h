// The work of a step, recorded once and replayed as one launch. On small grids separate launches of
// its kernels take longer than the kernels.
#pragma once

#include <functional>

#include "device/runtime.h"
#include "kernels/params.h"

namespace zeph {

class StepGraph {
 public:
  StepGraph() = default;
  ~StepGraph();
  StepGraph(const StepGraph&) = delete;
  StepGraph& operator=(const StepGraph&) = delete;

  // Whether a step with these parameters (those of its stage 0) is recorded.
  bool holds(const Params& step) const;

  // Records what `queue` queues on the stream, without doing it, in place of the last recording. If
  // the device cannot record, nothing is held and it is not asked again.
  void record(cudaStream_t stream, const Params& step, const std::function<void()>& queue);

  void launch(cudaStream_t stream) const;

 private:
  void clear();

  cudaGraphExec_t graph_ = nullptr;
  Params step_ = {};
  bool refused_ = false;
};

}  // namespace zeph
