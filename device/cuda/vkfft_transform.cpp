#include "device/cuda/vkfft_transform.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <span>
#include <stdexcept>
#include <string>

#include "device/cuda/nvrtc_library.h"
#include "device/transform_check.h"
#include "platform/thread_environment.h"

// VkFFT prints its failures, and changes the locale of the whole process while it writes numbers
// into its kernels. A library must do neither to its host: the codes say as much as the output, and
// platform::NeutralLocale sets the locale of this thread alone.
namespace {
template <class... Arguments>
int discardOutput(Arguments&&...) {
  return 0;
}
char* keepLocale(int, const char*) {
  return nullptr;
}
}  // namespace
#define printf discardOutput
#define setlocale keepLocale
#include <vkFFT.h>
#undef printf
#undef setlocale

namespace zeph::cuda {
namespace {

// From this length on, real transforms read their roots of unity from a table.
constexpr int tableFrom = 768;

// VkFFT keeps the addresses of these members, so an Application must not move.
struct Application {
  ~Application() {
    if (initialised) deleteVkFFT(&vkfft);
  }

  CUdevice device = 0;
  ::cudaStream_t stream = nullptr;
  std::uint64_t bytes = 0;
  void* buffer = nullptr;  // of the transform under way
  bool initialised = false;
  VkFFTApplication vkfft = {};
};

std::uint64_t bytesOf(const TransformRequest& request) {
  return static_cast<std::uint64_t>(request.rowStride) * static_cast<std::uint64_t>(request.size) *
         static_cast<std::uint64_t>(request.batch) * 8;
}

VkFFTConfiguration configurationOf(const TransformRequest& request, std::span<const int> paddedAxes,
                                   Application& application) {
  const auto size = static_cast<std::uint64_t>(request.size);
  const auto rowStride = static_cast<std::uint64_t>(request.rowStride);
  VkFFTConfiguration configuration = {};
  configuration.FFTdim = 2;
  configuration.size[0] = size;
  configuration.size[1] = size;
  configuration.device = &application.device;
  configuration.stream = &application.stream;
  configuration.num_streams = 1;
  configuration.numberBatches = static_cast<std::uint64_t>(request.batch);
  configuration.bufferSize = &application.bytes;
  configuration.normalize = 0;
  configuration.performR2C = request.realToComplex ? 1 : 0;
  configuration.bufferStride[0] = rowStride;
  configuration.bufferStride[1] = rowStride * size;
  if (request.realToComplex && request.size >= tableFrom) configuration.useLUT = 1;
  if (request.cutoff != 0) {
    const auto cutoff = static_cast<std::uint64_t>(request.cutoff);
    for (const int axis : paddedAxes) {
      configuration.performZeropadding[axis] = 1;
      configuration.fft_zeropad_left[axis] = cutoff;
      configuration.fft_zeropad_right[axis] = size - cutoff + 1;
    }
    configuration.frequencyZeroPadding = paddedAxes.empty() ? 0 : 1;
  }
  return configuration;
}

CUdevice driverDevice() {
  int ordinal = 0;
  CUdevice device = 0;
  if (::cudaGetDevice(&ordinal) != ::cudaSuccess || cuDeviceGet(&device, ordinal) != CUDA_SUCCESS)
    throw std::runtime_error("Cannot select CUDA driver device.");
  return device;
}

// VkFFT sizes its temporary buffer as if rows were contiguous, and writes past its end where they
// are not.
VkFFTResult widenTemporaryBuffer(Application& application) {
  VkFFTConfiguration& made = application.vkfft.configuration;
  if (made.allocateTempBuffer == 0 || made.tempBufferSize[0] >= application.bytes)
    return VKFFT_SUCCESS;
  ::cudaFree(made.tempBuffer[0]);
  made.tempBuffer[0] = nullptr;
  made.tempBufferSize[0] = application.bytes;
  if (::cudaMalloc(&made.tempBuffer[0], application.bytes) == ::cudaSuccess) return VKFFT_SUCCESS;
  ::cudaGetLastError();
  return VKFFT_ERROR_FAILED_TO_ALLOCATE;
}

// VkFFT's code, 0 for success.
int build(const TransformRequest& request, std::span<const int> paddedAxes,
          std::unique_ptr<Application>& application) {
  static std::mutex oneAtATime;
  application = std::make_unique<Application>();
  application->device = driverDevice();
  application->stream = reinterpret_cast<::cudaStream_t>(request.stream);
  application->bytes = bytesOf(request);
  const std::lock_guard lock(oneAtATime);
  const platform::NeutralLocale numbers;
  const int code =
      initializeVkFFT(&application->vkfft, configurationOf(request, paddedAxes, *application));
  application->initialised = code == VKFFT_SUCCESS;
  return application->initialised ? widenTemporaryBuffer(*application) : code;
}

// Some releases give wrong results at large lengths if the band is left out on both axes. If so,
// build again with the band left out down the columns alone and, if that is wrong too, with nothing
// left out: the kernels write zeros to the band anyway. VkFFT's code, 0 for success.
int buildChecked(const TransformRequest& request, std::unique_ptr<Application>& application) {
  constexpr int rowsAndColumns[] = {0, 1};
  constexpr int columns[] = {1};
  const std::span<const int> ways[] = {rowsAndColumns, columns, {}};
  for (const std::span<const int> paddedAxes : ways) {
    if (request.cutoff == 0 && !paddedAxes.empty()) continue;
    const int built = build(request, paddedAxes, application);
    if (built != VKFFT_SUCCESS) return built;
    const TransformTrial trial =
        tryTransform(reinterpret_cast<Transform*>(application.get()), appendTransform, request);
    if (trial.code != VKFFT_SUCCESS || trial.isRight) return trial.code;
  }
  throw std::runtime_error("VkFFT CUDA plan N=" + std::to_string(request.size) +
                           " batch=" + std::to_string(request.batch) + " has wrong results.");
}

void add(std::vector<TransformAllocation>& found, const void* pointer, std::uint64_t bytes) {
  if (pointer != nullptr) found.push_back({pointer, static_cast<std::size_t>(bytes)});
}

void addTables(std::vector<TransformAllocation>& found, const VkFFTPlan* plan) {
  if (plan == nullptr) return;
  for (int axis = 0; axis < 3; ++axis) {
    for (int upload = 0; upload < 4; ++upload) {
      const VkFFTAxis& table = plan->axes[axis][upload];
      add(found, table.bufferLUT, table.bufferLUTSize);
      const VkFFTAxis& back = plan->inverseBluesteinAxes[axis][upload];
      add(found, back.bufferLUT, back.bufferLUTSize);
    }
  }
  add(found, plan->R2Cdecomposition.bufferLUT, plan->R2Cdecomposition.bufferLUTSize);
}

}  // namespace

int createTransform(const TransformRequest& request, Transform** transform) {
  requireNvrtc();
  std::unique_ptr<Application> application;
  const int code = buildChecked(request, application);
  if (code == VKFFT_SUCCESS) *transform = reinterpret_cast<Transform*>(application.release());
  return code;
}

int appendTransform(Transform* transform, void* buffer, bool inverse) {
  auto* application = reinterpret_cast<Application*>(transform);
  application->buffer = buffer;
  VkFFTLaunchParams launch = {};
  launch.buffer = &application->buffer;
  return VkFFTAppend(&application->vkfft, inverse ? 1 : -1, &launch);
}

void destroyTransform(Transform* transform) {
  delete reinterpret_cast<Application*>(transform);
}

std::vector<TransformAllocation> transformAllocations(const Transform* transform) {
  const VkFFTApplication& vkfft = reinterpret_cast<const Application*>(transform)->vkfft;
  std::vector<TransformAllocation> found;
  if (vkfft.configuration.allocateTempBuffer != 0 && vkfft.configuration.tempBuffer != nullptr)
    add(found, vkfft.configuration.tempBuffer[0], vkfft.configuration.tempBufferSize[0]);
  for (int axis = 0; axis < 3; ++axis) {
    add(found, vkfft.bufferBluestein[axis], vkfft.bufferBluesteinSize[axis]);
    add(found, vkfft.bufferBluesteinFFT[axis], vkfft.bufferBluesteinSize[axis]);
    add(found, vkfft.bufferBluesteinIFFT[axis], vkfft.bufferBluesteinSize[axis]);
  }
  addTables(found, vkfft.localFFTPlan);
  addTables(found, vkfft.localFFTPlan_inverse);
  return found;
}

}  // namespace zeph::cuda
