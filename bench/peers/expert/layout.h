#pragma once
#include <complex>
#include <cstddef>

namespace expert {

// Single precision, as in Zephane; FFTW in double precision makes the reference solutions.
#ifdef EXPERT_DOUBLE
using Real = double;
#else
using Real = float;
#endif
using Complex = std::complex<Real>;

enum class Form {
  plain,   // whole 2D transforms, one pass over memory for everything between them
  pruned,  // by axes; columns that dealiasing discards are not transformed
  fused,   // pruned, with the velocity made by the column pass and the products by the row pass
};

// The state has n rows (ky in the order of the FFT) of h columns (kx = 0 to h - 1). The work area
// has two planes of m rows with the modes, or in place of them the samples, of the finer grid.
struct Layout {
  int n, h, m;
  int stride;         // from a row of a plane to the next, in complex numbers
  std::size_t plane;  // from a plane to the next, in complex numbers

  Layout(int resolution, Form form)
      : n(resolution), h(n / 2), m(3 * n / 2), stride(m / 2 + 1), plane(0) {
    // 8 numbers are whole cache lines.
    if (form != Form::plain) stride = (stride + 7) / 8 * 8;
    plane = static_cast<std::size_t>(m) * static_cast<std::size_t>(stride);
  }

  std::size_t modes() const { return static_cast<std::size_t>(n) * static_cast<std::size_t>(h); }
  std::size_t paddedRow(int ky) const {
    return static_cast<std::size_t>(ky < 0 ? ky + m : ky) * static_cast<std::size_t>(stride);
  }
  std::size_t stateRow(int ky) const {
    return static_cast<std::size_t>(ky < 0 ? ky + n : ky) * static_cast<std::size_t>(h);
  }
};

// What the column pass and the row pass work on at a time.
constexpr int tileColumns = 16;
constexpr int tileRows = 4;

}  // namespace expert
