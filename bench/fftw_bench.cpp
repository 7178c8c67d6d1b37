// The peer that one stage is measured against: its four transforms alone, full length, by FFTW.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <cstring>
#include <vector>

#include "device/cpu/thread_pool.h"
#include "kernels/params.h"

namespace zeph::bench {
namespace {

void bareFftw(benchmark::State& state) {
  const int m = paddedResolution(static_cast<int>(state.range(0)));
  const int sides[] = {m, m};
  const int samples = m * 2 * (m / 2 + 1);
  const int modes = m * (m / 2 + 1);
  fftwf_init_threads();
  fftwf_plan_with_nthreads(cpu::ThreadPool::shared().participants());
  float* planes = fftwf_alloc_real(2 * static_cast<std::size_t>(samples));
  auto* spectra = reinterpret_cast<fftwf_complex*>(planes);
  const int padded[] = {m, 2 * (m / 2 + 1)};
  const int half[] = {m, m / 2 + 1};
  fftwf_plan inverse = fftwf_plan_many_dft_c2r(2, sides, 2, spectra, half, 1, modes, planes, padded,
                                               1, samples, FFTW_MEASURE);
  fftwf_plan forward = fftwf_plan_many_dft_r2c(2, sides, 2, planes, padded, 1, samples, spectra,
                                               half, 1, modes, FFTW_MEASURE);
  std::memset(planes, 0, 2 * static_cast<std::size_t>(samples) * sizeof(float));
  for (auto _ : state) {
    fftwf_execute(inverse);
    fftwf_execute(forward);
  }
  fftwf_destroy_plan(inverse);
  fftwf_destroy_plan(forward);
  fftwf_free(planes);
}
BENCHMARK(bareFftw)
    ->Arg(256)
    ->Arg(512)
    ->Arg(1024)
    ->Arg(2048)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
}  // namespace zeph::bench
