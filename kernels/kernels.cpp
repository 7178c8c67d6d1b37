#include "kernels/kernels.h"

#include "device/cpu/instruction_set.h"
#include "kernels/processor/processor_kernels.h"

namespace zeph {
namespace {

// A kernel by its name, with its body for the instruction set in use.
#define ZEPH_KERNEL(name)                                                                 \
  Kernel {                                                                                \
#name, cpu::forInstructionSet(&cpu::sse2::name, &cpu::avx2::name, &cpu::avx512::name) \
  }

template <class... Arguments>
void launch(const Kernel& kernel, dim3 grid, dim3 block, cudaStream_t stream,
            Arguments... arguments) {
  void* addresses[] = {const_cast<void*>(static_cast<const void*>(&arguments))...};
  cudaLaunchKernel(kernel, grid, block, addresses, 0, stream);
}

constexpr dim3 tile = {16, 16};
constexpr dim3 one = {1};
constexpr dim3 reductionGrid = {reductionBlocks};
constexpr dim3 reductionBlock = {reductionThreads};

dim3 spectrumGrid(const Params& p) {
  return {(p.resolution / 2 + 1 + 15) / 16, (p.resolution + 15) / 16};
}
dim3 paddedSpectrumGrid(const Params& p) {
  return {(p.padded / 2 + 16) / 16, (p.padded + 15) / 16};
}
dim3 paddedGrid(const Params& p) {
  return {(p.padded + 15) / 16, (p.padded + 15) / 16};
}

}  // namespace

void projectState(cudaStream_t stream, const V2* spectrum, V2* omega, const Params& p) {
  launch(ZEPH_KERNEL(projectState), spectrumGrid(p), tile, stream, spectrum, omega, p);
}

void velocityToPadded(cudaStream_t stream, const V2* omega, V2* padded, const Params& p) {
  launch(ZEPH_KERNEL(velocityToPadded), paddedSpectrumGrid(p), tile, stream, omega, padded, p);
}

void reduceCFLAndProducts(cudaStream_t stream, float* padded, V2* cflPartials, const Params& p) {
  launch(ZEPH_KERNEL(reduceCFLAndProducts), reductionGrid, reductionBlock, stream, padded,
         cflPartials, p);
}

void selectTimeStep(cudaStream_t stream, const V2* cflPartials, ClockState* clock,
                    const Params& p) {
  launch(ZEPH_KERNEL(selectTimeStep), one, one, stream, cflPartials, clock, p);
}

void nonlinearProducts(cudaStream_t stream, float* padded, const Params& p) {
  launch(ZEPH_KERNEL(nonlinearProducts), paddedGrid(p), tile, stream, padded, p);
}

void advanceStage(cudaStream_t stream, const StageArrays& a, const Params& p) {
  launch(ZEPH_KERNEL(advanceStage), spectrumGrid(p), tile, stream, a.omega, a.padded, a.base,
         a.first, a.middle, a.predictor, a.coefficients, a.clock, a.correction, p);
}

void commitStep(cudaStream_t stream, ClockState* clock, const Params& p) {
  launch(ZEPH_KERNEL(commitStep), one, one, stream, clock, p);
}

void spectralStatistics(cudaStream_t stream, const V2* omega, float4* statPartials,
                        const Params& p) {
  launch(ZEPH_KERNEL(spectralStatistics), reductionGrid, reductionBlock, stream, omega,
         statPartials, p);
}

void prepareSnapshot(cudaStream_t stream, const V2* omega, V2* snapshotSpectra, const Params& p) {
  launch(ZEPH_KERNEL(prepareSnapshot), spectrumGrid(p), tile, stream, omega, snapshotSpectra, p);
}

void extractSnapshot(cudaStream_t stream, const float* snapshotPlanes, float* fields,
                     float4* snapshotPartials, const Params& p) {
  launch(ZEPH_KERNEL(extractSnapshot), reductionGrid, reductionBlock, stream, snapshotPlanes,
         fields, snapshotPartials, p);
}

}  // namespace zeph
