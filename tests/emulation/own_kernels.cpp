// The library's kernels, compiled for the host, in place of their machine code.
#include "tests/emulation/own_kernels.h"

#include <iterator>

#include "tests/emulation/cuda_language.h"
// The kernels, with the built-in names above.
#include "device/cuda/kernel_image.h"
#include "kernels/cuda/kernels.cu"

namespace zeph::emulation {
namespace {

constexpr KernelFunction kernels[] = {
    functionOf<&zeph::projectState>("projectState"),
    functionOf<&zeph::velocityToPadded>("velocityToPadded"),
    functionOf<&zeph::reduceCFLAndProducts>("reduceCFLAndProducts"),
    functionOf<&zeph::selectTimeStep>("selectTimeStep"),
    functionOf<&zeph::nonlinearProducts>("nonlinearProducts"),
    functionOf<&zeph::advanceStage>("advanceStage"),
    functionOf<&zeph::commitStep>("commitStep"),
    functionOf<&zeph::spectralStatistics>("spectralStatistics"),
    functionOf<&zeph::prepareSnapshot>("prepareSnapshot"),
    functionOf<&zeph::extractSnapshot>("extractSnapshot"),
};

constexpr KernelImage image = {kernels, std::size(kernels)};

}  // namespace
}  // namespace zeph::emulation

namespace zeph::cuda {

const void* kernelImage() {
  return &emulation::image;
}

}  // namespace zeph::cuda
