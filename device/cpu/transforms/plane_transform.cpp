#include "device/cpu/transforms/plane_transform.h"

#include <algorithm>
#include <memory>
#include <new>

#include "device/cpu/instruction_set.h"
#include "device/cpu/processor_memory.h"
#include "device/cpu/thread_pool.h"
#include "device/cpu/transforms/line_plan.h"
#include "device/cpu/transforms/plane_passes.h"

namespace zeph::cpu {
namespace {

// What a participant needs: a tile, and for a last tile with too few columns the copy of these.
// A multiple of 64 bytes, so that the vectors of every participant are aligned.
std::size_t scratchOf(const LineTables& line, int linesPerTile) {
  const int elements = (line.inner != nullptr ? 2 * line.inner->length : line.length) + line.length;
  const std::size_t floats =
      2 * static_cast<std::size_t>(linesPerTile) * static_cast<std::size_t>(elements);
  return (floats + 15) / 16 * 16;
}

class PlaneTransform {
 public:
  explicit PlaneTransform(const TransformRequest& request);
  PlaneTransform(const PlaneTransform&) = delete;
  PlaneTransform& operator=(const PlaneTransform&) = delete;

  void run(float* planes, bool inverse);
  std::vector<TransformAllocation> allocations() const;

 private:
  void runTiles(PlanePasses::Task task, int tilesPerPlane);
  void runColumns();
  void runRows();

  TransformRequest request_;
  std::shared_ptr<const LinePlan> plan_;
  PlanePasses passes_;
  PlanePass pass_;
  std::unique_ptr<float, void (*)(float*)> scratch_;  // the zeros, then the participants' tiles
  std::size_t scratchBytes_ = 0;
};

PlaneTransform::PlaneTransform(const TransformRequest& request)
    : request_(request),
      plan_(LinePlan::forLength(request.size)),
      passes_(forInstructionSet(sse2::planePasses, avx2::planePasses, avx512::planePasses)),
      scratch_(nullptr, [](float* block) { DeviceMemory::shared().release(block); }) {
  const int size = request.size;
  pass_.line = &plan_->tables();
  pass_.rowStride = std::ptrdiff_t{2} * request.rowStride;
  pass_.columns = request.realToComplex ? size / 2 + 1 : size;
  if (request.realToComplex && request.cutoff > 0) {
    pass_.columns = std::min(pass_.columns, request.cutoff);
    pass_.bandBegin = request.cutoff;
    pass_.bandEnd = std::max(size - request.cutoff + 1, request.cutoff);
  }
  pass_.scratchFloats = scratchOf(*pass_.line, passes_.linesPerTile);
  const std::size_t zeros = (2 * static_cast<std::size_t>(size) + 2 + 15) / 16 * 16;
  const auto participants = static_cast<std::size_t>(ThreadPool::shared().participants());
  scratchBytes_ = (zeros + participants * pass_.scratchFloats) * sizeof(float);
  scratch_.reset(static_cast<float*>(DeviceMemory::shared().allocate(scratchBytes_)));
  if (!scratch_) throw std::bad_alloc();
  pass_.zeros = scratch_.get();
  pass_.scratch = scratch_.get() + zeros;
}

void PlaneTransform::run(float* planes, bool inverse) {
  pass_.planes = planes;
  pass_.inverse = inverse;
  if (inverse) {
    runColumns();
    runRows();
  } else {
    runRows();
    runColumns();
  }
}

void PlaneTransform::runTiles(PlanePasses::Task task, int tilesPerPlane) {
  struct Context {
    const PlanePass& pass;
    PlanePasses::Task task;
  } context = {pass_, task};
  ThreadPool::shared().run(
      request_.batch * tilesPerPlane,
      [](void* pointer, int index, int participant) {
        const Context& c = *static_cast<const Context*>(pointer);
        c.task(c.pass, index, participant);
      },
      &context);
}

void PlaneTransform::runColumns() {
  runTiles(passes_.columns, tileCount(pass_.columns, passes_.linesPerTile));
}

void PlaneTransform::runRows() {
  if (!request_.realToComplex) {
    runTiles(passes_.complexRows, tileCount(request_.size, passes_.linesPerTile));
    return;
  }
  runTiles(pass_.inverse ? passes_.realRowsInverse : passes_.realRowsForward,
           tileCount(request_.size, 2 * passes_.linesPerTile));
}

std::vector<TransformAllocation> PlaneTransform::allocations() const {
  std::vector<TransformAllocation> all = plan_->allocations();
  all.push_back({scratch_.get(), scratchBytes_});
  return all;
}

bool isPossible(const TransformRequest& request) {
  const int columns = request.realToComplex ? request.size / 2 + 1 : request.size;
  return request.size >= 1 && request.rowStride >= columns && request.batch >= 1 &&
         request.cutoff >= 0;
}

// From the handle of device/transform.h to the object.
PlaneTransform* planeTransform(Transform* transform) {
  return reinterpret_cast<PlaneTransform*>(transform);
}
const PlaneTransform* planeTransform(const Transform* transform) {
  return reinterpret_cast<const PlaneTransform*>(transform);
}

}  // namespace

int createTransform(const TransformRequest& request, Transform** transform) {
  *transform = nullptr;
  if (!isPossible(request)) return cudaErrorInvalidValue;
  try {
    *transform = reinterpret_cast<Transform*>(new PlaneTransform(request));
  } catch (const std::bad_alloc&) {
    return cudaErrorMemoryAllocation;
  }
  return cudaSuccess;
}

int appendTransform(Transform* transform, void* buffer, bool inverse) {
  planeTransform(transform)->run(static_cast<float*>(buffer), inverse);
  return cudaSuccess;
}

void destroyTransform(Transform* transform) {
  delete planeTransform(transform);
}

std::vector<TransformAllocation> transformAllocations(const Transform* transform) {
  return planeTransform(transform)->allocations();
}

}  // namespace zeph::cpu
