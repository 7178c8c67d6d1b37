// What stands behind the host's handle of a view: the controller once the flow has been started,
// and before that what it will start from, so that the two agree.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "controller/controller.h"

namespace zeph {

// The mutex guards everything but `parent`, `canvas` and the reading of `controller`. It is taken
// before the controller's own. Operations are called with it held, unless they say otherwise.
struct UIHandle {
  // The controller's status, or one of a flow that has not begun.
  Status status() const;

  // Nothing where there is a controller already. Raises std::system_error.
  void start(int device);
  void setRunning(bool value);
  void toggle();
  void step();
  void reset();
  void nextSeed();
  void setVisible(bool value);
  void setRegulated(bool value);
  void setLive(float cfl, double reynolds);
  void setDisplay(const DisplaySettings& settings);
  void setLimits(const RunSettings& limits);
  void dismissErrors();

  // A flow of another configuration; one that is in force already goes on undisturbed.
  void applyConfig(Config config);

  // Writes the newest frame as `png` and `fields` say, on the render thread, and waits for it.
  // Called without the mutex. Raises std::runtime_error.
  void exportFrame();

  mutable std::mutex mutex;
  std::condition_variable wake;  // the render thread's
  RunSettings run;
  std::shared_ptr<Controller> controller;
  void* parent = nullptr;  // the host's window
  void* canvas = nullptr;  // the view's own
  bool stopped = false;    // the render thread is to end, or has ended
  bool visible = true;
  bool focused = false;
  bool exporting = false;
  double exposure = 1.2;
  double sigma = 2.5;
  std::string error;  // of the render side
  std::uint64_t presentations = 0;
};

}  // namespace zeph
