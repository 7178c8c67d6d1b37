#include "tests/emulation/block.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

#include "tests/emulation/cuda_language.h"
#include "tests/emulation/fiber.h"

EmulatedIndex threadIdx, blockIdx, blockDim, gridDim;

void __syncthreads() {
  zeph::emulation::Fiber::wait();
}

// The kernels' own shared memory, where the linker gathers it.
extern "C" [[gnu::weak]] std::byte __start_emulated_shared[];
extern "C" [[gnu::weak]] std::byte __stop_emulated_shared[];

namespace zeph::emulation {

constexpr std::size_t guardBytes = 1024;

// The dynamic shared memory of a launch, under the name that kernels use.
extern std::byte launchShared[mostSharedBytes + guardBytes] asm("shared") EMULATION_SHOWN;
alignas(1024) std::byte launchShared[mostSharedBytes + guardBytes];

namespace {

constexpr int nanByte = 0xFF;

// A permutation of the numbers below a count, different each time.
class Scrambled {
 public:
  explicit Scrambled(unsigned count) : count_(count), at_(next() % count) {
    do {
      step_ = 1 + next() % count;
    } while (std::gcd(step_, count) != 1);
  }

  template <class Visit>
  void forEach(Visit visit) {
    for (unsigned k = 0; k < count_; ++k) {
      visit(static_cast<unsigned>(at_));
      at_ += step_;
      if (at_ >= count_) at_ -= count_;
    }
  }

 private:
  static std::uint64_t next() {
    static std::minstd_rand engine;
    return engine();
  }

  std::uint64_t count_;
  std::uint64_t at_;
  std::uint64_t step_;
};

EmulatedIndex unfold(unsigned index, const ::dim3& size) {
  return {index % size.x, index / size.x % size.y, index / size.x / size.y};
}

unsigned countOf(const ::dim3& size) {
  return size.x * size.y * size.z;
}

// The threads of a block. Stacks are kept from block to block; a thread that has ended passes its
// stack on to the next, so that a kernel without barriers needs only one.
class Block {
 public:
  Block(const Grid& grid, void (*kernel)(void**), void** arguments)
      : grid_(grid), kernel_(kernel), arguments_(arguments), threads_(countOf(grid.threads)) {
    for (unsigned t = 0; t < threads_.size(); ++t) indices_.push_back(unfold(t, grid.threads));
  }

  bool run() {
    fillSharedMemory();
    for (auto& thread : threads_) thread.reset();
    std::size_t waiting = runToBarrier(true);
    while (waiting == threads_.size()) waiting = runToBarrier(false);
    return waiting == 0 && staysInSharedMemory();
  }

 private:
  std::size_t runToBarrier(bool isFirst) {
    std::size_t waiting = 0;
    const auto size = static_cast<unsigned>(threads_.size());
    Scrambled(size).forEach([&](unsigned t) {
      if (isFirst) start(t);
      threadIdx = indices_[t];
      if (threads_[t]->resume()) {
        ++waiting;
      } else {
        idle().push_back(std::move(threads_[t]));
      }
    });
    return waiting;
  }

  void start(unsigned t) {
    if (idle().empty()) idle().push_back(std::make_unique<Fiber>());
    threads_[t] = std::move(idle().back());
    idle().pop_back();
    threads_[t]->prepare(
        [](void* block) {
          const Block& b = *static_cast<Block*>(block);
          b.kernel_(b.arguments_);
        },
        this);
  }

  void fillSharedMemory() const {
    if (__start_emulated_shared != nullptr) {
      std::memset(__start_emulated_shared, nanByte,
                  static_cast<std::size_t>(__stop_emulated_shared - __start_emulated_shared));
    }
    std::memset(launchShared, nanByte, grid_.sharedBytes + guardBytes);
  }

  bool staysInSharedMemory() const {
    const std::byte* end = launchShared + grid_.sharedBytes;
    return std::all_of(end, end + guardBytes,
                       [](std::byte b) { return b == static_cast<std::byte>(nanByte); });
  }

  static std::vector<std::unique_ptr<Fiber>>& idle() {
    static std::vector<std::unique_ptr<Fiber>> fibers;
    return fibers;
  }

  const Grid& grid_;
  void (*kernel_)(void**);
  void** arguments_;
  std::vector<std::unique_ptr<Fiber>> threads_;
  std::vector<EmulatedIndex> indices_;
};

}  // namespace

::cudaError_t runGrid(const Grid& grid, void (*kernel)(void**), void** arguments) {
  Block block(grid, kernel, arguments);
  blockDim = {grid.threads.x, grid.threads.y, grid.threads.z};
  gridDim = {grid.blocks.x, grid.blocks.y, grid.blocks.z};
  bool isRight = true;
  Scrambled(countOf(grid.blocks)).forEach([&](unsigned b) {
    blockIdx = unfold(b, grid.blocks);
    isRight = isRight && block.run();
  });
  return isRight ? ::cudaSuccess : ::cudaErrorLaunchFailure;
}

}  // namespace zeph::emulation
