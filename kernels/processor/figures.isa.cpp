// Kernels that reduce: the statistics of a spectrum and the moments of a field.
#include "kernels/bodies/figures.h"

#include "kernels/processor/processor_kernels.h"
#include "kernels/processor/processor_loops.h"

namespace zeph::cpu::ZEPH_ISA {
namespace {

struct StatisticsLanes {
  float energies[reductionLanes] = {};
  float enstrophies[reductionLanes] = {};
  float palinstrophies[reductionLanes] = {};
  unsigned invalid[reductionLanes] = {};

  void add(const V2* __restrict w, float scale, int row, int column, int n, int lane, int length) {
    const int ky = foldRow(row, n);
    for (int t = 0; t < length; ++t) {
      const ModeFigures mode = modeFigures(w[t], scale, column + t, ky, n / 2);
      enstrophies[lane + t] += mode.enstrophy;
      palinstrophies[lane + t] += mode.palinstrophy;
      energies[lane + t] += mode.energy;
      invalid[lane + t] |= static_cast<unsigned>(mode.invalid);
    }
  }
};

struct SnapshotLanes {
  float maxima[reductionLanes] = {};
  float speeds[reductionLanes] = {};
  float sums[reductionLanes] = {};
  float squares[reductionLanes] = {};
  unsigned invalid[reductionLanes] = {};

  void addVorticity(const float* __restrict from, float* __restrict to, float scale, int lane,
                    int length) {
    for (int t = 0; t < length; ++t) {
      const float w = scale * from[t];
      to[t] = w;
      maxima[lane + t] = larger(maxima[lane + t], magnitude(w));
      sums[lane + t] += w;
      squares[lane + t] += w * w;
      invalid[lane + t] |= static_cast<unsigned>(nonFinite(w));
    }
  }

  void addVelocity(const float* __restrict fromU, const float* __restrict fromV,
                   float* __restrict toU, float* __restrict toV, float scale, int lane,
                   int length) {
    for (int t = 0; t < length; ++t) {
      const float u = scale * fromU[t];
      const float v = scale * fromV[t];
      toU[t] = u;
      toV[t] = v;
      speeds[lane + t] = larger(speeds[lane + t], euclideanSpeed(u, v));
      invalid[lane + t] |=
          static_cast<unsigned>(nonFinite(u)) | static_cast<unsigned>(nonFinite(v));
    }
  }
};

void clear(float* __restrict to, int length) {
  for (int t = 0; t < length; ++t) to[t] = 0.0f;
}

}  // namespace

void spectralStatistics(const StatisticsArrays& arrays, const Params& p) {
  const V2* omega = arrays.omega;
  float4* partials = arrays.statPartials;
  const int n = static_cast<int>(p.resolution);
  const unsigned width = static_cast<unsigned>(halfWidth(n));
  const float scale = p.scale;
  shareBlocks([=](unsigned b) {
    StatisticsLanes lane;
    forPieces(b, width * static_cast<unsigned>(n), width,
              [&](int row, int column, int t, int length) {
                const std::size_t at =
                    static_cast<std::size_t>(row) * width + static_cast<std::size_t>(column);
                lane.add(omega + at, scale, row, column, n, t, length);
              });
    const unsigned invalid = reduceLanes(lane.invalid, eitherOf);
    partials[b] = {reduceLanes(lane.energies, sumOf), reduceLanes(lane.enstrophies, sumOf),
                   static_cast<float>(invalid), reduceLanes(lane.palinstrophies, sumOf)};
  });
}

void extractSnapshot(const SnapshotFieldArrays& arrays, const Params& p) {
  const float* planes = arrays.snapshotPlanes;
  float* fields = arrays.fields;
  float4* partials = arrays.snapshotPartials;
  const std::size_t n = p.resolution;
  const std::size_t stride = n + 2;
  const float scale = p.scale;
  const bool velocity = p.stage == vorticityAndVelocity;
  shareBlocks([=](unsigned b) {
    SnapshotLanes lane;
    const auto piece = [&](int row, int column, int t, int length) {
      const std::size_t x = static_cast<std::size_t>(column);
      const float* from = planes + static_cast<std::size_t>(row) * stride + x;
      float* to = fields + static_cast<std::size_t>(row) * n + x;
      float* toU = to + n * n;
      float* toV = to + 2 * n * n;
      lane.addVorticity(from, to, scale, t, length);
      if (velocity) {
        lane.addVelocity(from + stride * n, from + 2 * stride * n, toU, toV, scale, t, length);
      } else {
        clear(toU, length);
        clear(toV, length);
      }
    };
    forPieces(b, static_cast<unsigned>(n * n), static_cast<unsigned>(n), piece);
    const unsigned invalid = reduceLanes(lane.invalid, eitherOf);
    partials[b] = {reduceLanes(lane.maxima, largerOf), reduceLanes(lane.speeds, largerOf),
                   static_cast<float>(invalid), 0.0f};
    partials[reductionBlocks + b] = {reduceLanes(lane.sums, sumOf),
                                     reduceLanes(lane.squares, sumOf), 0.0f, 0.0f};
  });
}

}  // namespace zeph::cpu::ZEPH_ISA
