// Runs with limits: where they start and end, and the files that they write.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>

#include "device/runtime.h"
#include "solver/endpoint.h"
#include "tests/controller/driven_clock.h"
#include "tests/controller/flows.h"
#include "tests/support/bits.h"
#include "tests/support/flows.h"

namespace zeph {
namespace {

using test::DrivenClock;

// Each test has its own folder.
class RunTest : public testing::Test {
 protected:
  RunTest() {
    const auto* info = testing::UnitTest::GetInstance()->current_test_info();
    folder_ = std::filesystem::temp_directory_path() /
              ("zephane-run-" + std::string(info->name()) + "-" + std::to_string(moment()));
    std::filesystem::create_directories(folder_);
  }
  ~RunTest() override { std::filesystem::remove_all(folder_); }

  std::string path(const std::string& name) const { return (folder_ / name).string(); }

  void write(const std::string& name, const std::vector<float>& samples) const {
    std::ofstream file(path(name), std::ios::binary);
    file.write(reinterpret_cast<const char*>(samples.data()),
               static_cast<std::streamsize>(samples.size() * sizeof(float)));
  }

  template <class Element>
  std::vector<Element> read(const std::string& name) const {
    std::vector<Element> elements(std::filesystem::file_size(path(name)) / sizeof(Element));
    std::ifstream file(path(name), std::ios::binary);
    file.read(reinterpret_cast<char*>(elements.data()),
              static_cast<std::streamsize>(elements.size() * sizeof(Element)));
    return elements;
  }

 private:
  static std::size_t moment() {
    return static_cast<std::size_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  }
  std::filesystem::path folder_;
};

// A flow whose step count follows from its time.
Config steady() {
  Config config = test::configOf(16);
  config.fixed_dt = 0.0078125f;  // 2^-7
  return config;
}

TEST_F(RunTest, EndsAtItsTimeAndNoLater) {
  RunSettings run = test::freeRun();
  run.until = 0.75;
  Controller controller(run, test::processor);
  const Status status = test::whenFinished(controller);
  EXPECT_GE(status.stats.time, reachedFrom(0.75));
  EXPECT_FLOAT_EQ(static_cast<float>(status.stats.time), 0.75f);
  EXPECT_FALSE(status.running);
  EXPECT_FALSE(controller.control().running);
  EXPECT_EQ(status.error_message, "");
  Solver solver(run.config);
  EXPECT_EQ(status.stats.steps, solver.advance(100000, 0.75).steps);
  EXPECT_EQ(status.stats.energy, solver.inspect().energy);
  EXPECT_EQ(status.frame->sequence, status.stats.steps);
}

TEST_F(RunTest, CanEndExactlyAtItsLastStep) {
  RunSettings run = test::freeRun(steady());
  run.until = 10 * 0.0078125;
  Controller controller(run, test::processor);
  EXPECT_EQ(test::whenFinished(controller).stats.steps, 10u);
}

TEST_F(RunTest, OfZeroLengthEndsBeforeItsFirstStep) {
  RunSettings run = test::freeRun();
  run.until = 0;
  Controller controller(run, test::processor);
  const Status status = test::whenFinished(controller);
  EXPECT_EQ(status.stats.steps, 0u);
  EXPECT_EQ(status.batchCount, 1u);
}

TEST_F(RunTest, IsMeasuredInInitialTurnoverTimes) {
  RunSettings run = test::freeRun();
  run.until = 0.01;
  run.untilTurnovers = 0.5;
  Controller controller(run, test::processor);
  const Status status = test::whenFinished(controller);
  EXPECT_GT(status.firstStats.initialTurnoverTime, 0.1);
  EXPECT_NEAR(status.stats.time, status.firstStats.initialTurnoverTime * 0.5, 1e-6);
}

TEST_F(RunTest, EndsAfterItsWallTimeWhateverTheStepLimit) {
  RunSettings run = test::pausedRun();
  DrivenClock clock(0.01);
  Controller controller(run, test::processor, clock.clock());
  test::whenSettled(controller);
  run.wallSeconds = 2;
  run.stepLimited = true;
  run.stepLimit = 3;
  controller.setRun(run);
  controller.reset();
  controller.setRunning(true);
  const Status status = test::whenFinished(controller);
  EXPECT_GE(status.elapsedSeconds, 2);
  EXPECT_LT(status.elapsedSeconds, 2.1);  // ten readings
  EXPECT_GT(status.stats.steps, 3u);
}

TEST_F(RunTest, TakesExactlyItsStepsWithALaterTimeLimit) {
  RunSettings run = test::pausedRun();
  Controller controller(run, test::processor);
  test::whenSettled(controller);
  run.stepLimited = true;
  run.stepLimit = 57;
  controller.setRun(run);
  controller.reset();
  controller.setRunning(true);
  EXPECT_EQ(test::whenFinished(controller).stats.steps, 57u);
}

TEST_F(RunTest, IgnoresAStepLimitGivenAtCreation) {
  RunSettings run = test::freeRun(steady());
  run.stepLimited = true;
  run.stepLimit = 5;
  run.until = 0.01;
  run.wallSeconds = 0.01;
  Controller controller(run, test::processor);
  test::afterSteps(controller, 200);
  EXPECT_TRUE(controller.status().running);
  controller.setRun(run);
  controller.reset();
  test::afterSteps(controller, 200);
  EXPECT_FALSE(controller.status().finished);
}

TEST_F(RunTest, EndsAtItsTimeWhateverTheStepLimit) {
  RunSettings run = test::pausedRun(steady());
  Controller controller(run, test::processor);
  test::whenSettled(controller);
  run.stepLimited = true;
  run.stepLimit = 3;
  run.until = 0.5;
  controller.setRun(run);
  controller.reset();
  controller.setRunning(true);
  EXPECT_EQ(test::whenFinished(controller).stats.steps, 64u);
}

TEST_F(RunTest, AppliesNewLimitsAtTheNextGeneration) {
  RunSettings run = test::freeRun(steady());
  Controller controller(run, test::processor);
  test::afterSteps(controller, 10);
  run.until = 0.125;
  controller.setRun(run);
  test::afterSteps(controller, controller.status().stats.steps + 200);
  EXPECT_TRUE(controller.status().running);
  controller.reset();
  EXPECT_EQ(test::whenFinished(controller).stats.steps, 16u);
  // The next generation drops the limits again.
  run.until.reset();
  controller.setRun(run);
  controller.reset();
  controller.setRunning(true);
  test::afterSteps(controller, 100);
}

TEST_F(RunTest, ChecksItsLimitsAgainOneBatchAfterItIsContinued) {
  RunSettings run = test::freeRun(steady());
  run.until = 0.125;
  Controller controller(run, test::processor);
  const Status first = test::whenFinished(controller);
  controller.setRunning(true);
  const Status again = test::whenFinished(controller);
  EXPECT_EQ(again.batchCount, first.batchCount + 1);
  EXPECT_EQ(again.stats.steps, first.stats.steps);
}

TEST_F(RunTest, KeepsAStepPendingAfterItsEndUntilItRunsAgain) {
  RunSettings run = test::freeRun(steady());
  run.until = 0.125;
  DrivenClock clock(1);  // counts its readings
  Controller controller(run, test::processor, clock.clock());
  test::whenFinished(controller);
  controller.step();
  const double before = clock.time();
  const auto begin = std::chrono::steady_clock::now();
  test::waitForSomePasses();
  const double readings = clock.time() - before;
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begin;
  EXPECT_LT(readings / spent.count(), 750);  // it sleeps between its checks
  EXPECT_EQ(controller.status().stats.steps, 16u);
  EXPECT_EQ(controller.control().pendingSteps, 1);
  controller.setRunning(true);
  // The single step passes the limit; the batch after it notices.
  EXPECT_EQ(test::whenFinished(controller).stats.steps, 17u);
  controller.step();
  controller.setRunning(false);
  EXPECT_EQ(controller.control().pendingSteps, 0);
}

TEST_F(RunTest, DoesNotEndAfterASingleStep) {
  RunSettings run = test::freeRun(steady());
  run.wallSeconds = 0.1;
  run.fixedBatch = true;
  run.batch = 4;
  Controller controller(run, test::processor);
  const std::uint64_t steps = test::whenFinished(controller).stats.steps;
  controller.step();
  controller.setRunning(true);
  EXPECT_EQ(test::whenFinished(controller).stats.steps, steps + 1 + 4);
}

TEST_F(RunTest, MayPassItsLimitBySingleSteps) {
  RunSettings run = test::pausedRun(steady());
  run.until = 0.0078125 * 2;
  Controller controller(run, test::processor);
  for (std::uint64_t k = 1; k <= 4; ++k) {
    controller.step();
    test::afterSteps(controller, k);
  }
  EXPECT_FALSE(controller.status().finished);
}

TEST_F(RunTest, WritesItsSpectrumAndItsFields) {
  RunSettings run = test::freeRun();
  run.until = 0.5;
  run.spectrum = path("spectrum");
  run.field = path("field");
  Controller controller(run, test::processor);
  test::whenFinished(controller);
  Solver solver(run.config);
  solver.advance(100000, 0.5);
  EXPECT_TRUE(test::sameBits(read<V2>("spectrum"), solver.spectrum()));
  EXPECT_TRUE(test::sameBits(read<float>("field"), solver.copyFields(*solver.snapshot(true))));
}

TEST_F(RunTest, FailsIfItsFileCannotBeWrittenAndCanBeRepeated) {
  for (const bool spectrum : {true, false}) {
    RunSettings run = test::freeRun();
    run.until = 0.1;
    (spectrum ? run.spectrum : run.field) = path("nowhere/file");
    Controller controller(run, test::processor);
    Status status =
        test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
    EXPECT_EQ(status.error_message, "Cannot write export file.");
    EXPECT_FALSE(status.running);
    EXPECT_TRUE(test::whenSettled(controller).settled);
    (spectrum ? run.spectrum : run.field) = path("file");
    controller.setRun(run);
    controller.reset();
    controller.setRunning(true);
    status.frame.reset();  // the run needs a block for its fields
    status = test::whenFinished(controller);
    EXPECT_EQ(status.error_message, "");
    EXPECT_TRUE(std::filesystem::exists(path("file")));
  }
}

TEST_F(RunTest, CannotWriteItsFieldsWithoutAFreeBlock) {
  RunSettings run = test::pausedRun(steady());
  run.until = 0.0078125 * 3;
  run.field = path("field");
  Controller controller(run, test::processor);
  const auto held = test::holdEveryBlock(controller);
  controller.setRunning(true);
  const Status status =
      test::waitFor(controller, [](const Status& now) { return !now.error_message.empty(); });
  EXPECT_EQ(status.error_message, "No snapshot slot.");
}

TEST_F(RunTest, StartsFromItsFileOnceTheFileIsValid) {
  RunSettings run = test::pausedRun();
  run.initial = path("start");
  write("start", std::vector<float>(255));
  Controller controller(run, test::processor);
  Status status = test::whenSettled(controller);
  EXPECT_EQ(status.error_message, "Initial file must contain exactly N² Float32 samples.");
  EXPECT_FALSE(status.ready);
  EXPECT_TRUE(status.history.empty());

  const std::vector<float> wave = test::wave(16, 1, 2, 3.0);
  write("start", wave);
  test::waitForSomePasses();
  EXPECT_FALSE(controller.status().ready);
  controller.reset();
  status = test::whenSettled(controller);
  EXPECT_EQ(status.error_message, "");
  EXPECT_TRUE(status.ready);
  EXPECT_EQ(status.stats.energy, Solver(test::configOf(16), wave).inspect().energy);

  std::filesystem::remove(path("start"));
  controller.reset();
  status = test::whenSettled(controller);
  EXPECT_EQ(status.error_message.find("file_size"), 0u);
  write("start", std::vector<float>(256, std::numeric_limits<float>::infinity()));
  controller.reset();
  EXPECT_EQ(test::whenSettled(controller).error_message,
            "Initial vorticity must contain exactly N² finite Float32 samples.");
  run.initial.clear();
  controller.setRun(run);
  controller.reset();
  status = test::whenSettled(controller);
  EXPECT_EQ(status.stats.energy, Solver(test::configOf(16)).inspect().energy);
}

// Occupies all but a little of the device's memory while it exists.
class FullDevice {
 public:
  explicit FullDevice(std::size_t left) {
    std::size_t available = 0, total = 0;
    cudaMemGetInfo(&available, &total);
    if (available > left) cudaMalloc(&block_, available - left);
  }
  ~FullDevice() { cudaFree(block_); }
  FullDevice(const FullDevice&) = delete;
  FullDevice& operator=(const FullDevice&) = delete;

 private:
  void* block_ = nullptr;
};

TEST_F(RunTest, CanFollowARunWhoseGridDoesNotFit) {
  constexpr const char* words = "cudaMalloc(&ptr,bytes): out of memory";
  Controller controller(test::freeRun(), test::processor);
  const auto frame = test::waitFor(controller, [](const Status& now) { return now.ready; }).frame;
  {
    // A grid of 8192 points needs some 7 GB; other programs may allocate and free memory.
    const FullDevice full(std::size_t{1} << 30);
    controller.applyConfig(test::configOf(8192));
    const Status status = test::whenSettled(controller);
    EXPECT_EQ(status.error_message, words);
    EXPECT_FALSE(status.running);
    EXPECT_FALSE(status.ready);
    EXPECT_FALSE(test::solverExists(frame));
    // The missing solver is not used.
    controller.setLive(1.0f, 300);
    controller.setRegulated(true);
    controller.setVisible(false);
    controller.setVisible(true);
    controller.step();
    test::waitForSomePasses();
    EXPECT_EQ(controller.status().error_message, words);
    controller.reset();
    EXPECT_EQ(test::whenSettled(controller).error_message, words);
  }
  controller.applyConfig(test::configOf(16));
  const Status status = test::whenSettled(controller);
  EXPECT_EQ(status.error_message, "");
  EXPECT_TRUE(status.ready);
  EXPECT_EQ(status.generation, 4u);
}

}  // namespace
}  // namespace zeph
