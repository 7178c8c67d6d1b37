// What a shown view costs: presentations a second, and processor time beside the flow's own. Needs
// an X server (DISPLAY; Xvfb will do).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <thread>

#include "render/view.h"
#include "render/x11/xcb_functions.h"

namespace zeph::bench {
namespace {

using Seconds = std::chrono::duration<double>;

constexpr int firstDevice = 0;
constexpr int resolution = 256;
constexpr Seconds watched(4);

// A window such as a host has.
class HostWindow {
 public:
  explicit HostWindow(std::uint16_t side) : x_(*x11::xcb()), c_(x_.xcb_connect(nullptr, nullptr)) {
    const xcb_screen_t* screen = x_.xcb_setup_roots_iterator(x_.xcb_get_setup(c_)).data;
    id_ = x_.xcb_generate_id(c_);
    const auto made = x_.xcb_create_window_checked(c_, XCB_COPY_FROM_PARENT, id_, screen->root, 0,
                                                   0, side, side, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                                                   XCB_COPY_FROM_PARENT, 0, nullptr);
    const x11::Owned<xcb_generic_error_t> error(x_.xcb_request_check(c_, made));
    if (error) throw std::runtime_error("no window");
    x_.xcb_map_window(c_, id_);
    x_.xcb_flush(c_);
  }
  ~HostWindow() { x_.xcb_disconnect(c_); }
  HostWindow(const HostWindow&) = delete;
  HostWindow& operator=(const HostWindow&) = delete;

  void* handle() const { return reinterpret_cast<void*>(static_cast<std::uintptr_t>(id_)); }

 private:
  const x11::Xcb& x_;
  xcb_connection_t* c_;
  xcb_window_t id_ = 0;
};

struct Seen {
  std::uint64_t presentations = 0;
  std::uint64_t steps = 0;
};

Seen look(const View& view) {
  const ViewReport now = view.handle().report();
  if (!now.error.empty()) throw std::runtime_error(now.error);
  return {now.presentations, now.status.stats.steps};
}

void waitForPictures(const View& view) {
  while (look(view).presentations < 3) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void shownView(benchmark::State& state, bool isRunning) {
  if (std::getenv("DISPLAY") == nullptr || x11::xcb() == nullptr) {
    state.SkipWithError("no X server");
    return;
  }
  const HostWindow window(static_cast<std::uint16_t>(state.range(0)));
  View view;
  view.attach(window.handle(), firstDevice);
  {
    UIHandle& ui = view.handle();
    const auto lock = ui.lock();
    Config config;
    config.resolution = resolution;
    ui.applyConfig(config);
    ui.setRunning(isRunning);
    ui.start(firstDevice);
  }
  waitForPictures(view);
  for (auto _ : state) {
    const Seen before = look(view);
    const std::clock_t busy = std::clock();
    std::this_thread::sleep_for(watched);
    const double cores = static_cast<double>(std::clock() - busy) / CLOCKS_PER_SEC;
    const Seen after = look(view);
    const auto perSecond = [](std::uint64_t count) {
      return static_cast<double>(count) / watched.count();
    };
    state.counters["presentations_per_s"] = perSecond(after.presentations - before.presentations);
    state.counters["steps_per_s"] = perSecond(after.steps - before.steps);
    state.counters["cores"] = cores / watched.count();
  }
}

void pausedCanvas(benchmark::State& state) {
  shownView(state, false);
}

void runningCanvas(benchmark::State& state) {
  shownView(state, true);
}

#define SIZES ->Arg(512)->Arg(1024)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime()
BENCHMARK(pausedCanvas) SIZES;
BENCHMARK(runningCanvas) SIZES;

}  // namespace
}  // namespace zeph::bench
