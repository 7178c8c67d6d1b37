#include <mkl_dfti.h>
#include <mkl_service.h>

#include <stdexcept>

#include "exports.h"

namespace expert {
namespace {

void check(MKL_LONG status) {
  if (status != DFTI_NO_ERROR) throw std::runtime_error(DftiErrorMessage(status));
}

// Transforms of one shape, both ways, in place.
class Descriptor {
 public:
  Descriptor() = default;
  ~Descriptor() {
    if (handle_ != nullptr) DftiFreeDescriptor(&handle_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  void complexColumns(const Layout& at, int columns, int threads) {
    const MKL_LONG length = at.m, strides[] = {0, at.stride};
    check(DftiCreateDescriptor(&handle_, DFTI_SINGLE, DFTI_COMPLEX, 1, length));
    commit(strides, strides, columns, 1, 1, threads);
  }
  void realRows(const Layout& at, int rows, int threads) {
    const MKL_LONG length = at.m, strides[] = {0, 1};
    check(DftiCreateDescriptor(&handle_, DFTI_SINGLE, DFTI_REAL, 1, length));
    commit(strides, strides, rows, 2 * at.stride, at.stride, threads);
  }
  void realPlanes(const Layout& at, int threads) {
    const MKL_LONG sides[] = {at.m, at.m};
    const MKL_LONG grid[] = {0, 2 * at.stride, 1}, spectrum[] = {0, at.stride, 1};
    const auto apart = static_cast<MKL_LONG>(at.plane);
    check(DftiCreateDescriptor(&handle_, DFTI_SINGLE, DFTI_REAL, 2, sides));
    commit(grid, spectrum, 2, 2 * apart, apart, threads);
  }

  void inverse(Complex* at) { DftiComputeBackward(handle_, at); }
  void forward(Complex* at) { DftiComputeForward(handle_, at); }

 private:
  void commit(const MKL_LONG* gridStrides, const MKL_LONG* spectrumStrides, MKL_LONG count,
              MKL_LONG gridsApart, MKL_LONG spectraApart, int threads) {
    check(DftiSetValue(handle_, DFTI_PLACEMENT, DFTI_INPLACE));
    check(DftiSetValue(handle_, DFTI_FWD_STRIDES, gridStrides));
    check(DftiSetValue(handle_, DFTI_BWD_STRIDES, spectrumStrides));
    check(DftiSetValue(handle_, DFTI_NUMBER_OF_TRANSFORMS, count));
    check(DftiSetValue(handle_, DFTI_FWD_DISTANCE, gridsApart));
    check(DftiSetValue(handle_, DFTI_BWD_DISTANCE, spectraApart));
    check(DftiSetValue(handle_, DFTI_THREAD_LIMIT, static_cast<MKL_LONG>(threads)));
    check(DftiCommitDescriptor(handle_));
  }

  DFTI_DESCRIPTOR_HANDLE handle_ = nullptr;
};

// Whole planes and pruned ones share a transform out to threads; tiles do not.
class Mkl {
 public:
  Mkl(const Layout& at, Form form, Complex* planes, int threads)
      : form_(form), planes_(planes), plane_(at.plane) {
    mkl_set_threading_layer(MKL_THREADING_GNU);
    mkl_set_num_threads(threads);
    if (form == Form::plain) {
      rows_.realPlanes(at, threads);
      return;
    }
    const bool tiles = form == Form::fused;
    const int inside = tiles ? 1 : threads;
    columns_.complexColumns(at, tiles ? tileColumns : at.h, inside);
    rows_.realRows(at, tiles ? tileRows : 2 * at.m, inside);
  }

  // Two planes.
  void inverse() {
    if (form_ == Form::pruned) {
      columns_.inverse(planes_);
      columns_.inverse(planes_ + plane_);
    }
    rows_.inverse(planes_);
  }
  void forward() {
    rows_.forward(planes_);
    if (form_ == Form::pruned) {
      columns_.forward(planes_);
      columns_.forward(planes_ + plane_);
    }
  }

  void inverseColumns(Complex* at) { columns_.inverse(at); }
  void forwardColumns(Complex* at) { columns_.forward(at); }
  void inverseRows(Complex* at) { rows_.inverse(at); }
  void forwardRows(Complex* at) { rows_.forward(at); }

 private:
  Form form_;
  Complex* planes_;
  std::size_t plane_;
  // The whole transform takes the place of the rows.
  Descriptor columns_, rows_;
};

}  // namespace
}  // namespace expert

EXPERT_EXPORTS(expert::Mkl)
