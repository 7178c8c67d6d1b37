#include "bench/copy_bandwidth.h"

#include <algorithm>
#include <cstring>

#include "bench/device_time.h"
#include "device/cpu/parallel.h"

namespace zeph::bench {
namespace {

constexpr std::size_t largestBlock = std::size_t{1} << 30;
constexpr std::size_t granule = std::size_t{1} << 20;
constexpr int copies = 20;

std::size_t blockSize() {
  std::size_t available = 0;
  std::size_t total = 0;
  check(cudaMemGetInfo(&available, &total), "cudaMemGetInfo");
  return std::min(largestBlock, std::max(available / 8 / granule, std::size_t{1}) * granule);
}

struct SharedCopy {
  char* to;
  const char* from;
  std::size_t bytes;
  std::size_t parts;
};

void copyPart(void* context, int index, int) {
  const auto& copy = *static_cast<const SharedCopy*>(context);
  const std::size_t part = static_cast<std::size_t>(index);
  const std::size_t begin = copy.bytes * part / copy.parts;
  const std::size_t end = copy.bytes * (part + 1) / copy.parts;
  std::memcpy(copy.to + begin, copy.from + begin, end - begin);
}

}  // namespace

LargeCopy::LargeCopy() {
  const std::size_t bytes = blockSize();
  for (DeviceBuffer* block : {&from_, &to_}) {
    block->allocate(bytes);
    check(cudaMemsetAsync(block->ptr, 1, bytes, queue_.value), "cudaMemsetAsync");
  }
  finish(queue_.value);
}

void LargeCopy::run() const {
  if (!deviceIsSynchronous()) {
    check(cudaMemcpyAsync(to_.ptr, from_.ptr, from_.bytes, cudaMemcpyDeviceToDevice, queue_.value),
          "cudaMemcpyAsync");
    return;
  }
  const int parts = cpu::participants();
  SharedCopy copy = {.to = to_.as<char>(),
                     .from = from_.as<const char>(),
                     .bytes = from_.bytes,
                     .parts = static_cast<std::size_t>(parts)};
  cpu::runTasks(parts, copyPart, &copy);
}

double copyBandwidth() {
  static const double measured = [] {
    const LargeCopy copy;
    const TimingEvents events;
    double best = 0;
    for (int i = 0; i < copies; ++i) {
      check(cudaEventRecord(events.begin, copy.stream()), "cudaEventRecord");
      copy.run();
      check(cudaEventRecord(events.end, copy.stream()), "cudaEventRecord");
      finish(copy.stream());
      best = std::max(best, static_cast<double>(copy.bytesMoved()) / secondsBetween(events));
    }
    return best;
  }();
  return measured;
}

namespace {

void copyBlock(benchmark::State& state) {
  orSkip(state, [&] {
    const LargeCopy copy;
    timeOnDevice(state, copy.stream(), [&] { copy.run(); });
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(copy.bytesMoved()));
  });
}
BENCHMARK(copyBlock)->Unit(benchmark::kMillisecond)->UseManualTime();

}  // namespace
}  // namespace zeph::bench
