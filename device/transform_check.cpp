#include "device/transform_check.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <set>
#include <vector>

#include "device/check.h"

namespace zeph {
namespace {

using Complex = std::complex<float>;
using Exact = std::complex<double>;

// Far above the rounding of a transform, far below a misplaced mode.
constexpr double tolerance = 1e-4;  // of the sum of the amplitudes

struct Mode {
  int kx, ky;
  Exact amplitude;
};

// The field's values are the sum of its modes and, for a real field, of their mirrors.
struct Field {
  std::vector<Mode> modes;
  double sum = 0;  // of the amplitudes
};

std::size_t size(int n) {
  return static_cast<std::size_t>(n);
}

// The first wavenumber that is not part of the transform, or has no independent value.
int bandOf(const TransformRequest& request) {
  return request.cutoff != 0 ? request.cutoff : (request.size + 1) / 2;
}

// Modes at the corners and the edges of the band, different ones for each field of a batch.
Field fieldOf(const TransformRequest& request, int index) {
  const int last = bandOf(request) - 1;
  const double shift = 0.125 * index;
  Field field;
  field.modes = {{1, 1, {1.0 + shift, 0.5}},
                 {last, -last, {0.75, -1.0 - shift}},
                 {last - index % last, last, {-0.5, 0.625 + shift}},
                 {last, 0, {0.25 + shift, 1.0}},
                 {0, 2 + index % 3, {1.125, -0.25 - shift}}};
  if (!request.realToComplex) field.modes.push_back({-last, 3, {0.375, 0.875}});
  for (const Mode& mode : field.modes) field.sum += 2 * std::abs(mode.amplitude);
  return field;
}

class Check {
 public:
  Check(const TransformRequest& request, Complex* buffer) : request_(request), buffer_(buffer) {
    for (int k = 0; k < request.batch; ++k) fields_.push_back(fieldOf(request, k));
  }

  void writeModes() {
    const std::size_t elements = fieldElements() * size(request_.batch);
    check(cudaMemsetAsync(buffer_, 0, elements * sizeof(Complex), request_.stream),
          "cudaMemsetAsync(buffer,0,bytes,stream)");
    for (int k = 0; k < request_.batch; ++k) {
      for (const Mode& mode : fields_[size(k)].modes) {
        write(k, mode.kx, mode.ky, mode.amplitude);
        if (request_.realToComplex && mode.kx == 0)
          write(k, 0, -mode.ky, std::conj(mode.amplitude));
      }
    }
    synchronise();
  }

  bool physicalRowsAreRight() {
    const int last = request_.size - 1;
    for (int k = 0; k < request_.batch; ++k) {
      for (const int y : {0, 1, request_.size / 2, last}) {
        if (!physicalRowIsRight(k, y)) return false;
      }
    }
    return true;
  }

  bool spectralRowsAreRight() {
    for (int k = 0; k < request_.batch; ++k) {
      std::set<int> rows = {0, -1, 3};
      for (const Mode& mode : fields_[size(k)].modes) rows.insert({mode.ky, -mode.ky});
      for (const int ky : rows) {
        if (!spectralRowIsRight(k, ky)) return false;
      }
    }
    return true;
  }

 private:
  std::size_t fieldElements() const { return size(request_.rowStride) * size(request_.size); }

  Complex* row(int field, int j) const {
    return buffer_ + size(field) * fieldElements() + size(j) * size(request_.rowStride);
  }
  int index(int k) const { return k >= 0 ? k : k + request_.size; }

  void write(int field, int kx, int ky, Exact amplitude) {
    const Complex value(amplitude);
    check(cudaMemcpyAsync(row(field, index(ky)) + index(kx), &value, sizeof(value),
                          cudaMemcpyHostToDevice, request_.stream),
          "cudaMemcpyAsync(mode,&value,sizeof(value),cudaMemcpyHostToDevice,stream)");
    synchronise();
  }

  template <class T>
  std::vector<T> read(int field, int j, int count) {
    std::vector<T> values(size(count));
    check(cudaMemcpyAsync(values.data(), row(field, j), values.size() * sizeof(T),
                          cudaMemcpyDeviceToHost, request_.stream),
          "cudaMemcpyAsync(values,row,bytes,cudaMemcpyDeviceToHost,stream)");
    synchronise();
    return values;
  }

  void synchronise() {
    check(cudaStreamSynchronize(request_.stream), "cudaStreamSynchronize(stream)");
  }

  Exact exactAt(const Field& field, int x, int y) const {
    const double angle = 2 * std::numbers::pi / request_.size;
    Exact sum = 0;
    for (const Mode& mode : field.modes) {
      const std::int64_t turns = std::int64_t{mode.kx} * x + std::int64_t{mode.ky} * y;
      sum += mode.amplitude * std::polar(1.0, angle * static_cast<double>(turns % request_.size));
    }
    return request_.realToComplex ? Exact(2 * sum.real()) : sum;
  }

  bool physicalRowIsRight(int k, int y) {
    const Field& field = fields_[size(k)];
    const bool real = request_.realToComplex;
    const std::vector<float> values = read<float>(k, y, real ? request_.size : 2 * request_.size);
    for (int x = 0; x < request_.size; ++x) {
      const Exact found =
          real ? Exact(values[size(x)]) : Exact(values[2 * size(x)], values[2 * size(x) + 1]);
      if (!(std::abs(found - exactAt(field, x, y)) <= tolerance * field.sum)) return false;
    }
    return true;
  }

  bool spectralRowIsRight(int k, int ky) {
    const Field& field = fields_[size(k)];
    const bool real = request_.realToComplex;
    const int columns = real ? bandOf(request_) : request_.size;
    std::vector<Exact> exact(size(columns));
    for (const Mode& mode : field.modes) {
      if (mode.ky == ky) exact[size(index(mode.kx))] += mode.amplitude;
      if (real && mode.kx == 0 && mode.ky == -ky) exact[0] += std::conj(mode.amplitude);
    }
    const double samples = static_cast<double>(request_.size) * request_.size;
    const std::vector<Complex> values = read<Complex>(k, index(ky), columns);
    for (int i = 0; i < columns; ++i) {
      const Exact found = Exact(values[size(i)]) / samples;
      if (!(std::abs(found - exact[size(i)]) <= tolerance * field.sum)) return false;
    }
    return true;
  }

  TransformRequest request_;
  Complex* buffer_;
  std::vector<Field> fields_;
};

// The caller's scratch memory, or memory of its own that it frees again.
struct Scratch {
  explicit Scratch(const TransformRequest& request) : buffer(request.scratch) {
    if (buffer != nullptr) return;
    const std::size_t bytes =
        size(request.rowStride) * size(request.size) * size(request.batch) * sizeof(Complex);
    check(cudaMalloc(&own, bytes), "cudaMalloc(&ptr,bytes)");
    buffer = own;
  }
  ~Scratch() { cudaFree(own); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  void* buffer;
  void* own = nullptr;
};

}  // namespace

TransformTrial tryTransform(Transform* transform, int (*append)(Transform*, void*, bool),
                            const TransformRequest& request) {
  const Scratch scratch(request);
  Check modes(request, static_cast<Complex*>(scratch.buffer));
  modes.writeModes();
  const int inverse = append(transform, scratch.buffer, true);
  if (inverse != 0 || !modes.physicalRowsAreRight()) return {.code = inverse};
  const int forward = append(transform, scratch.buffer, false);
  return {.code = forward, .isRight = forward == 0 && modes.spectralRowsAreRight()};
}

}  // namespace zeph
