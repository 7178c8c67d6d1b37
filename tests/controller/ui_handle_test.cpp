// How the host's thread and a render thread interact; the tests act as the render thread.
#include "controller/ui_handle.h"

#include <gtest/gtest.h>

#include <future>
#include <semaphore>

#include "tests/boundary/failure_text.h"
#include "tests/controller/flows.h"

namespace zeph {
namespace {

class UIHandleTest : public testing::Test {
 protected:
  // A flow paused at its start, in a view without a render thread.
  void startFlow() {
    {
      const auto lock = ui_.lock();
      ui_.applyConfig(test::configOf(16));
      ui_.setRunning(false);
      ui_.start(test::processor);
    }
    waitForGeneration(1);
  }

  void waitForGeneration(std::uint64_t generation) {
    const auto deadline = std::chrono::steady_clock::now() + test::patience;
    const auto isReady = [&] {
      const Status status = ui_.report().status;
      return status.generation == generation && status.ready;
    };
    while (!isReady() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    ASSERT_TRUE(isReady());
  }

  void attach() {
    const auto lock = ui_.lock();
    ui_.beginRendering([this] { woken_.release(); });
  }

  std::string exportFailure() {
    FrameFiles files;
    files.png = "picture";
    return failureText([&] { ui_.exportFrame(files); });
  }

  std::future<std::string> exportInBackground() {
    return std::async(std::launch::async, [this] { return exportFailure(); });
  }

  std::vector<ExportTask> awaitExports() {
    EXPECT_TRUE(woken_.try_acquire_for(test::patience));
    return ui_.takeTurn().value().exports;
  }

  std::counting_semaphore<> woken_{0};
  UIHandle ui_;
};

TEST_F(UIHandleTest, RefusesAnExportFirstForAMissingFrameThenForAMissingRenderThread) {
  EXPECT_EQ(exportFailure(), "No completed frame.");
  ui_.reportError("lost");
  EXPECT_EQ(exportFailure(), "No completed frame.");
  startFlow();
  EXPECT_EQ(exportFailure(), "lost");
  {
    const auto lock = ui_.lock();
    ui_.dismissErrors();
  }
  EXPECT_EQ(exportFailure(), "No native renderer.");
  attach();
  ui_.endRendering("broken");
  EXPECT_EQ(exportFailure(), "broken");
}

TEST_F(UIHandleTest, PassesAnExportOnWithTheFrameAndSettingsOfItsRequest) {
  startFlow();
  attach();
  auto failure = exportInBackground();
  const std::vector<ExportTask> exports = awaitExports();
  ASSERT_EQ(exports.size(), 1u);
  EXPECT_EQ(exports[0].frame, ui_.report().status.frame);
  EXPECT_EQ(exports[0].files.png, "picture");
  EXPECT_EQ(exports[0].files.settings, ui_.report().look.settings);
  EXPECT_TRUE(ui_.takeTurn()->exports.empty());
  exports[0].done->set_exception(std::make_exception_ptr(std::runtime_error("full")));
  EXPECT_EQ(failure.get(), "full");
}

TEST_F(UIHandleTest, FailsAnExportWhoseRenderThreadEnds) {
  startFlow();
  attach();
  auto failure = exportInBackground();
  EXPECT_TRUE(woken_.try_acquire_for(test::patience));
  ui_.endRendering("broken");
  EXPECT_EQ(failure.get(), "broken");
  EXPECT_FALSE(ui_.takeTurn());
}

TEST_F(UIHandleTest, FailsAnExportInProgressWhenTheRenderThreadIsStopped) {
  startFlow();
  attach();
  auto failure = exportInBackground();
  const std::vector<ExportTask> taken = awaitExports();
  ui_.stopRendering();
  EXPECT_EQ(failure.get(), "Renderer stopped.");
}

TEST_F(UIHandleTest, WakesTheRenderThreadForWhatItHasToSee) {
  startFlow();
  attach();
  {
    const auto lock = ui_.lock();
    ui_.setVisible(false);
  }
  EXPECT_TRUE(woken_.try_acquire());
  EXPECT_FALSE(woken_.try_acquire());
  ui_.stopRendering();
  EXPECT_TRUE(woken_.try_acquire());
}

TEST_F(UIHandleTest, CountsPresentationsFromZeroForEachFlow) {
  startFlow();
  attach();
  ui_.takeTurn();
  ui_.countPresentation();
  ui_.countPresentation();
  ui_.takeTurn();
  EXPECT_EQ(ui_.report().presentations, 2u);
  {
    const auto lock = ui_.lock();
    ui_.reset();
  }
  EXPECT_EQ(ui_.report().presentations, 0u);
  ui_.countPresentation();  // of the old flow, from a turn under way
  EXPECT_EQ(ui_.report().presentations, 0u);
  EXPECT_EQ(ui_.takeTurn()->status.generation, 2u);
  EXPECT_EQ(ui_.report().presentations, 0u);
}

}  // namespace
}  // namespace zeph
