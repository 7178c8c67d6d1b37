#include "device/cpu/transforms/line_plan.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <new>

#include "device/cpu/processor_memory.h"
#include "device/cpu/transforms/roots_of_unity.h"
#include "platform/fork.h"

namespace zeph::cpu {
namespace {

// Twos are gathered into eights and fours. The largest radix comes first, where the stage also
// reads the memory of the plane, and the smallest last, where it writes it.
std::vector<int> radicesOf(int length) {
  std::vector<int> radices = primeFactors(length);
  auto twos = std::count(radices.begin(), radices.end(), 2);
  std::erase(radices, 2);
  for (; twos > 4 || twos == 3; twos -= 3) radices.push_back(8);
  for (; twos > 1; twos -= 2) radices.push_back(4);
  if (twos == 1) radices.push_back(2);
  std::sort(radices.rbegin(), radices.rend());
  if (radices.empty()) radices.push_back(1);
  return radices;
}

bool hasOnlyRadices(int length) {
  const std::vector<int> factors = primeFactors(length);
  return factors.empty() || factors.back() <= largestRadix;
}

// The smallest length 2^a 3^b 5^c that is long enough for a convolution of lines of `length`.
int convolutionLength(int length) {
  const int least = 2 * length - 1;
  int best = 1;
  while (best < least) best *= 2;
  for (int fives = 1; fives < best; fives *= 5) {
    for (int threes = fives; threes < best; threes *= 3) {
      int candidate = threes;
      while (candidate < least) candidate *= 2;
      best = std::min(best, candidate);
    }
  }
  return best;
}

struct PlansInUse {
  platform::ProcessMutex mutex;
  std::map<int, std::weak_ptr<const LinePlan>> ofLength;
};

platform::MadeOnce<PlansInUse> plansOfProcess;

void store(float* pair, std::complex<double> value) {
  pair[0] = static_cast<float>(value.real());
  pair[1] = static_cast<float>(value.imag());
}

}  // namespace

std::shared_ptr<const LinePlan> LinePlan::forLength(int length) {
  PlansInUse& inUse = plansOfProcess.get([] { return new PlansInUse; });
  {
    const std::lock_guard lock(inUse.mutex);
    if (auto plan = inUse.ofLength[length].lock()) return plan;
  }
  auto made = std::make_shared<const LinePlan>(length);
  const std::lock_guard lock(inUse.mutex);
  std::weak_ptr<const LinePlan>& kept = inUse.ofLength[length];
  if (auto plan = kept.lock()) return plan;
  kept = made;
  return made;
}

LinePlan::LinePlan(int length) {
  tables_.length = length;
  if (hasOnlyRadices(length)) {
    makeStages(radicesOf(length));
  } else {
    makeChirp();
  }
  makeOrder();
}

std::vector<TransformAllocation> LinePlan::allocations() const {
  std::vector<TransformAllocation> all = sizes_;
  if (inner_) {
    for (const TransformAllocation& of : inner_->allocations()) all.push_back(of);
  }
  return all;
}

template <class T>
T* LinePlan::table(std::size_t count) {
  const std::size_t bytes = std::max<std::size_t>(count, 1) * sizeof(T);
  void* pointer = DeviceMemory::shared().allocate(bytes);
  if (pointer == nullptr) throw std::bad_alloc();
  memory_.emplace_back(pointer, [](void* block) { DeviceMemory::shared().release(block); });
  sizes_.push_back({pointer, bytes});
  return static_cast<T*>(pointer);
}

void LinePlan::makeStages(const std::vector<int>& radices) {
  std::size_t floats = 0;
  for (int block = tables_.length; const int radix : radices) {
    block /= radix;
    floats += 2 * static_cast<std::size_t>((radix - 1) * block + radix);
  }
  float* next = table<float>(floats);
  for (int block = tables_.length; const int radix : radices) {
    LineStage& stage = tables_.stages[tables_.stageCount++];
    stage = {.radix = radix, .span = block / radix, .twiddles = next, .roots = nullptr};
    for (std::int64_t j = 0; j < stage.span; ++j) {
      for (std::int64_t k = 1; k < radix; ++k, next += 2) store(next, rootOfUnity(j * k, block));
    }
    stage.roots = next;
    for (int q = 0; q < radix; ++q, next += 2) store(next, std::conj(rootOfUnity(q, radix)));
    block = stage.span;
  }
}

// Element k = k0 + r0 (k1 + r1 (k2 + ...)) ends in block k0 of the first stage, in that in block k1
// of the second, and so on.
void LinePlan::makeOrder() {
  int* position = table<int>(2 * static_cast<std::size_t>(tables_.length));
  int* wavenumber = position + tables_.length;
  for (int k = 0; k < tables_.length; ++k) {
    int place = tables_.stageCount == 0 ? k : 0;
    int digits = k;
    for (int s = 0; s < tables_.stageCount; ++s) {
      place += digits % tables_.stages[s].radix * tables_.stages[s].span;
      digits /= tables_.stages[s].radix;
    }
    position[k] = place;
    wavenumber[place] = k;
  }
  tables_.position = position;
  tables_.wavenumber = wavenumber;
}

void LinePlan::makeChirp() {
  const int length = tables_.length;
  inner_ = forLength(convolutionLength(length));
  tables_.inner = &inner_->tables();
  const int innerLength = tables_.inner->length;
  float* chirp = table<float>(2 * static_cast<std::size_t>(length));
  std::vector<std::complex<double>> kernel(static_cast<std::size_t>(innerLength));
  for (std::int64_t j = 0; j < length; ++j) {
    const std::complex<double> value = rootOfUnity(j * j % (2 * length), 2 * length);
    store(chirp + 2 * j, value);
    const std::complex<double> tap = std::conj(value) / static_cast<double>(innerLength);
    kernel[static_cast<std::size_t>(j)] = tap;
    if (j > 0) kernel[static_cast<std::size_t>(innerLength - j)] = tap;
  }
  tables_.chirp = chirp;
  const std::vector<std::complex<double>> spectrum = transformOf(kernel);
  float* filter = table<float>(2 * spectrum.size());
  for (std::size_t k = 0; k < spectrum.size(); ++k) store(filter + 2 * k, spectrum[k]);
  tables_.filter = filter;
}

}  // namespace zeph::cpu
