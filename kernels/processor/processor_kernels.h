// The ten kernels on the processor, one set for each vector instruction set.
#pragma once

#include "kernels/arrays.h"

#define ZEPH_DECLARE_PROCESSOR_KERNELS(set)                                        \
  namespace zeph::cpu::set {                                                       \
  void projectState(const ProjectionArrays& arrays, const Params& p);              \
  void velocityToPadded(const VelocityArrays& arrays, const Params& p);            \
  void reduceCFLAndProducts(const SpeedAndProductArrays& arrays, const Params& p); \
  void selectTimeStep(const TimeStepArrays& arrays, const Params& p);              \
  void nonlinearProducts(const ProductArrays& arrays, const Params& p);            \
  void advanceStage(const StageArrays& arrays, const Params& p);                   \
  void commitStep(const CommitArrays& arrays, const Params& p);                    \
  void spectralStatistics(const StatisticsArrays& arrays, const Params& p);        \
  void prepareSnapshot(const SnapshotSpectraArrays& arrays, const Params& p);      \
  void extractSnapshot(const SnapshotFieldArrays& arrays, const Params& p);        \
  }

ZEPH_DECLARE_PROCESSOR_KERNELS(sse2)
ZEPH_DECLARE_PROCESSOR_KERNELS(avx2)
ZEPH_DECLARE_PROCESSOR_KERNELS(avx512)
