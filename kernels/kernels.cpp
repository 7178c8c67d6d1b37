#include "kernels/kernels.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "device/cpu/instruction_set.h"
#include "kernels/processor/processor_kernels.h"

namespace zeph {
namespace {

// A kernel as the processor has it.
template <class Arrays>
using Body = void (*)(const Arrays& arrays, const Params& p);

// A kernel together with the type of its arrays.
template <class Arrays>
struct KernelOn {
  Kernel kernel;
};

// Calls the processor's kernel with the arguments whose addresses a launch has passed on.
template <class Arrays, Body<Arrays> body>
void callWith(void** addresses) {
  Arrays arrays;
  auto* pointers = reinterpret_cast<std::byte*>(&arrays);
  for (std::size_t k = 0; k < arrayCount<Arrays>; ++k) {
    std::memcpy(pointers + k * sizeof(void*), addresses[k], sizeof(void*));
  }
  body(arrays, *static_cast<const Params*>(addresses[arrayCount<Arrays>]));
}

// The record's type is deduced from the second argument, one of the three kernels.
template <auto sse2, auto avx2, auto avx512, class Arrays>
KernelOn<Arrays> kernelOf(const char* name, Body<Arrays>) {
  return {{name, cpu::forInstructionSet(&callWith<Arrays, sse2>, &callWith<Arrays, avx2>,
                                        &callWith<Arrays, avx512>)}};
}

#define ZEPH_KERNEL(name) \
  kernelOf<&cpu::sse2::name, &cpu::avx2::name, &cpu::avx512::name>(#name, &cpu::sse2::name)

template <class Arrays>
void launch(const KernelOn<Arrays>& typed, dim3 grid, dim3 block, cudaStream_t stream,
            std::type_identity_t<Arrays> arrays, Params p) {
  void* addresses[arrayCount<Arrays> + 1];
  auto* pointers = reinterpret_cast<std::byte*>(&arrays);
  for (std::size_t k = 0; k < arrayCount<Arrays>; ++k) addresses[k] = pointers + k * sizeof(void*);
  addresses[arrayCount<Arrays>] = &p;
  cudaLaunchKernel(typed.kernel, grid, block, addresses, 0, stream);
}

constexpr dim3 tile = {16, 16};
constexpr dim3 one = {1};
constexpr dim3 reductionGrid = {reductionBlocks};
constexpr dim3 reductionBlock = {reductionLanes};

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
  launch(ZEPH_KERNEL(projectState), spectrumGrid(p), tile, stream,
         {.spectrum = spectrum, .omega = omega}, p);
}

void velocityToPadded(cudaStream_t stream, const V2* omega, V2* padded, const Params& p) {
  launch(ZEPH_KERNEL(velocityToPadded), paddedSpectrumGrid(p), tile, stream,
         {.omega = omega, .padded = padded}, p);
}

void reduceCFLAndProducts(cudaStream_t stream, float* padded, V2* cflPartials, const Params& p) {
  launch(ZEPH_KERNEL(reduceCFLAndProducts), reductionGrid, reductionBlock, stream,
         {.padded = padded, .cflPartials = cflPartials}, p);
}

void selectTimeStep(cudaStream_t stream, const V2* cflPartials, ClockState* clock,
                    const Params& p) {
  launch(ZEPH_KERNEL(selectTimeStep), one, one, stream,
         {.cflPartials = cflPartials, .clock = clock}, p);
}

void nonlinearProducts(cudaStream_t stream, float* padded, const Params& p) {
  launch(ZEPH_KERNEL(nonlinearProducts), paddedGrid(p), tile, stream, {.padded = padded}, p);
}

void advanceStage(cudaStream_t stream, const StageArrays& arrays, const Params& p) {
  launch(ZEPH_KERNEL(advanceStage), spectrumGrid(p), tile, stream, arrays, p);
}

void commitStep(cudaStream_t stream, ClockState* clock, const Params& p) {
  launch(ZEPH_KERNEL(commitStep), one, one, stream, {.clock = clock}, p);
}

void spectralStatistics(cudaStream_t stream, const V2* omega, float4* statPartials,
                        const Params& p) {
  launch(ZEPH_KERNEL(spectralStatistics), reductionGrid, reductionBlock, stream,
         {.omega = omega, .statPartials = statPartials}, p);
}

void prepareSnapshot(cudaStream_t stream, const V2* omega, V2* snapshotSpectra, const Params& p) {
  launch(ZEPH_KERNEL(prepareSnapshot), spectrumGrid(p), tile, stream,
         {.omega = omega, .snapshotSpectra = snapshotSpectra}, p);
}

void extractSnapshot(cudaStream_t stream, const float* snapshotPlanes, float* fields,
                     float4* snapshotPartials, const Params& p) {
  launch(ZEPH_KERNEL(extractSnapshot), reductionGrid, reductionBlock, stream,
         {.snapshotPlanes = snapshotPlanes, .fields = fields, .snapshotPartials = snapshotPartials},
         p);
}

}  // namespace zeph
