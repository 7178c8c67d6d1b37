// The ten kernels on the processor, one set for each vector instruction set. Each takes the
// addresses of its arguments, as a launch does.
#pragma once

#define ZEPH_DECLARE_PROCESSOR_KERNELS(set)    \
  namespace zeph::cpu::set {                   \
  void projectState(void** arguments);         \
  void velocityToPadded(void** arguments);     \
  void reduceCFLAndProducts(void** arguments); \
  void selectTimeStep(void** arguments);       \
  void nonlinearProducts(void** arguments);    \
  void advanceStage(void** arguments);         \
  void commitStep(void** arguments);           \
  void spectralStatistics(void** arguments);   \
  void prepareSnapshot(void** arguments);      \
  void extractSnapshot(void** arguments);      \
  }

ZEPH_DECLARE_PROCESSOR_KERNELS(sse2)
ZEPH_DECLARE_PROCESSOR_KERNELS(avx2)
ZEPH_DECLARE_PROCESSOR_KERNELS(avx512)
