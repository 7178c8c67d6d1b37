// What stands behind the host's handle of a view, and where the host's thread meets the render
// thread. It holds the controller once the flow has been started, until then the settings from
// which it will start, and the exports that wait for the render thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "controller/controller.h"
#include "controller/export_task.h"

namespace zeph {

// What the render thread needs for one turn of its loop.
struct RenderTurn {
  ShownStatus status;
  DisplaySettings settings;
  bool isVisible = true;
  std::vector<ExportTask> exports;
};

// The display settings and, in double precision and apart from them, the two numbers that the
// report shows.
struct Look {
  DisplaySettings settings;
  double exposure = 1.2;
  double sigma = 2.5;
};

// What the status report says of a view.
struct ViewReport {
  Status status;
  Look look;
  bool isVisible = true;
  bool isFocused = false;
  std::string error;                // of the render thread
  std::uint64_t presentations = 0;  // of frames, in this generation
};

// One mutex guards everything; it is taken before the controller's own.
class UIHandle {
 public:
  // The operations down to beginRendering() expect their caller to hold this lock, so that several
  // of them can act as one. All others take the mutex themselves.
  [[nodiscard]] std::unique_lock<std::mutex> lock() const { return std::unique_lock(mutex_); }

  // The controller's status, or that of a flow that has not been started.
  Status status() const;
  bool isReady() const { return shown().ready; }
  const RunSettings& run() const { return run_; }
  Look look() const { return {run_.settings, exposure_, sigma_}; }

  // Does nothing if there is a controller already. Raises std::system_error.
  void start(int device);
  void setRunning(bool value);
  void toggle();
  void step();
  void reset();
  void nextSeed();
  void setVisible(bool value);
  void setFocused(bool value) { isFocused_ = value; }
  void setRegulated(bool value);
  void setLive(float cfl, double reynolds);
  void setLook(const Look& look);
  void setLimits(const RunSettings& limits);
  void dismissErrors();

  // Starts a flow of another configuration. Does nothing if it is the one in force.
  void applyConfig(Config config);

  // From here on a render thread takes turns. `wake` makes it take one at once, wherever it waits;
  // it may be called from any thread and under the lock.
  void beginRendering(std::function<void()> wake);

  ViewReport report() const;

  // Has the render thread draw the newest frame for the files and waits until it has, or until it
  // is clear that it never will; then does the rest itself. Raises what the writing raises, and
  // std::runtime_error if there is no frame or no render thread.
  void exportFrame(FrameFiles files);

  // Waits for the state of the flow. Raises std::runtime_error if there is none.
  StateRecord state();

  void stopRendering();

  // For the render thread. No turn means that it is to end.
  std::optional<RenderTurn> takeTurn();
  void countPresentation();
  void reportError(const char* text);
  void waitForStop();
  // Exports that still wait are dropped; exportFrame() notices that the thread has ended.
  void endRendering(const char* error);

 private:
  ShownStatus shown() const;
  void wakeRenderThread();
  std::string errorOr(const char* text) const;

  mutable std::mutex mutex_;
  std::function<void()> wake_;        // wakes the render thread
  std::condition_variable hasEnded_;  // isRendering_ has become false
  RunSettings run_;
  std::unique_ptr<Controller> controller_;
  bool isRendering_ = false;
  bool isVisible_ = true;
  bool isFocused_ = false;
  double exposure_ = Look().exposure;
  double sigma_ = Look().sigma;
  std::string error_;
  std::uint64_t presentations_ = 0;
  std::uint64_t presentedGeneration_ = 0;  // the one that `presentations_` counts
  std::vector<ExportTask> exports_;
};

}  // namespace zeph
