// What stands behind the host's handle of a view: the controller once the flow has been started,
// and before that what it will start from, so that the two agree.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "controller/controller.h"

namespace zeph {

class Canvas;
class Renderer;

// Work for the renderer, done by the render thread between two presentations.
using RendererTask = std::function<void(Renderer&)>;

// What an export does with the frame and the picture that were current when it was asked for.
using FrameExport =
    std::function<void(Renderer&, const std::shared_ptr<const Frame>&, const DisplaySettings&)>;

// The mutex guards everything but `parent`, `canvas` and the reading of `controller`. It is taken
// before the controller's own. Operations are called with it held, unless they say otherwise.
struct UIHandle {
  UIHandle() = default;
  // Ends both threads, the renderer's first.
  ~UIHandle();
  UIHandle(const UIHandle&) = delete;
  UIHandle& operator=(const UIHandle&) = delete;

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

  // Does the work with the newest frame on the render thread; returns when it is over, or will
  // never be done. Called without the mutex. Raises what the work raises, and std::runtime_error
  // where it cannot be done.
  void exportFrame(FrameExport work);

  mutable std::mutex mutex;
  std::condition_variable wake;  // the render thread's
  RunSettings run;
  std::shared_ptr<Controller> controller;
  void* parent = nullptr;          // the host's window
  std::shared_ptr<Canvas> canvas;  // the view's own
  std::thread renderThread;
  bool stopped = false;  // the render thread is to end, or has ended
  bool visible = true;
  bool focused = false;
  bool exporting = false;
  double exposure = 1.2;
  double sigma = 2.5;
  std::string error;                // of the render side
  std::uint64_t presentations = 0;  // of frames, in this generation
  std::vector<RendererTask> tasks;

 private:
  std::string errorOr(const char* text) const;
};

}  // namespace zeph
