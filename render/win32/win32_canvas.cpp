// The canvas on Windows. Its messages are handled by the host's thread, which has made it; the
// render thread asks for the state of the host's window at every turn.
#include "render/canvas.h"

#include <windows.h>
#include <windowsx.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "platform/thread_environment.h"

namespace zeph {
namespace {

constexpr const wchar_t* className = L"ZephanePythonCanvas";
const auto* const arrow = MAKEINTRESOURCEW(32512);  // IDC_ARROW
constexpr double longestSleep = 0.016;  // seconds until the host's window is looked at again
constexpr double usualResolution = 96;

double scaleOf(HWND window) {
  const UINT resolution = GetDpiForWindow(window);
  return resolution != 0 ? resolution / usualResolution : 1;
}

WindowState stateOf(HWND parent) {
  RECT area = {};
  if (GetClientRect(parent, &area) == FALSE) return {};
  return {.width = area.right,
          .height = area.bottom,
          .scale = scaleOf(parent),
          .isVisible =
              IsWindowVisible(parent) != FALSE && IsIconic(GetAncestor(parent, GA_ROOT)) == FALSE};
}

}  // namespace

struct Canvas::Impl {
  Impl(HWND hostWindow, std::function<void(const Click&)> onClick);

  static LRESULT CALLBACK handle(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  static void registerClass();
  LRESULT click(LPARAM place);

  HWND parent;
  HWND window = nullptr;
  std::function<void(const Click&)> act;
  WindowState state;  // for the render thread

  std::mutex mutex;
  std::condition_variable awoken;
  bool isAwake = false;
};

Canvas::Impl::Impl(HWND hostWindow, std::function<void(const Click&)> onClick)
    : parent(hostWindow), act(std::move(onClick)) {
  registerClass();
  RECT area = {};
  GetClientRect(parent, &area);
  window = CreateWindowExW(WS_EX_NOPARENTNOTIFY, className, L"",
                           WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, area.right, area.bottom,
                           parent, nullptr, GetModuleHandleW(nullptr), this);
  if (window == nullptr) throw std::runtime_error("Cannot create native canvas.");
}

// Once for the process; the class is never taken back.
void Canvas::Impl::registerClass() {
  WNDCLASSW canvas = {};
  canvas.lpfnWndProc = handle;
  canvas.hInstance = GetModuleHandleW(nullptr);
  canvas.hCursor = LoadCursorW(nullptr, arrow);
  canvas.lpszClassName = className;
  if (RegisterClassW(&canvas) == 0 && GetLastError() != ERROR_CLASS_ALREADY_EXISTS)
    throw std::runtime_error("Cannot register canvas window.");
}

LRESULT CALLBACK Canvas::Impl::handle(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  auto* canvas = reinterpret_cast<Impl*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  switch (message) {
    case WM_NCCREATE: {
      const auto* creation = reinterpret_cast<const CREATESTRUCTW*>(lParam);
      SetWindowLongPtrW(window, GWLP_USERDATA,
                        reinterpret_cast<LONG_PTR>(creation->lpCreateParams));
      break;
    }
    case WM_ERASEBKGND:
      return 1;  // the swap chain owns the surface
    case WM_PAINT: {
      PAINTSTRUCT paint;
      BeginPaint(window, &paint);
      EndPaint(window, &paint);
      return 0;
    }
    case WM_LBUTTONUP:
      if (canvas != nullptr) return canvas->click(lParam);
      break;
    case WM_KEYDOWN:
    case WM_KEYUP:
    case WM_CHAR:
      if (canvas != nullptr) return SendMessageW(GetParent(window), message, wParam, lParam);
      break;
    default:
      break;
  }
  return DefWindowProcW(window, message, wParam, lParam);
}

LRESULT Canvas::Impl::click(LPARAM place) {
  const platform::CallEnvironment environment;
  RECT area = {};
  GetClientRect(window, &area);
  act({.x = GET_X_LPARAM(place),
       .y = GET_Y_LPARAM(place),
       .height = area.bottom,
       .scale = scaleOf(window)});
  SetFocus(GetParent(window));
  return 0;
}

Canvas::Canvas(void* parent, std::function<void(const Click&)> act) {
  HWND window = static_cast<HWND>(parent);
  if (IsWindow(window) == FALSE) throw std::runtime_error(invalidParent);
  impl_ = std::make_unique<Impl>(window, std::move(act));
}

Canvas::~Canvas() {
  DestroyWindow(impl_->window);
}

NativeWindow Canvas::native() const {
  return {.window = reinterpret_cast<std::uintptr_t>(impl_->window)};
}

WindowState Canvas::askWindow() {
  return stateOf(impl_->parent);
}

// What is uncovered is presented again with the next picture.
bool Canvas::takeEvents() {
  impl_->state = stateOf(impl_->parent);
  return false;
}

const WindowState& Canvas::window() const {
  return impl_->state;
}

bool Canvas::isParentGone() const {
  return IsWindow(impl_->parent) == FALSE;
}

void Canvas::wait(std::optional<double> seconds) {
  const std::chrono::duration<double> longest(
      std::min(seconds.value_or(longestSleep), longestSleep));
  std::unique_lock lock(impl_->mutex);
  impl_->awoken.wait_for(lock, longest, [this] { return impl_->isAwake; });
  impl_->isAwake = false;
}

void Canvas::wake() const {
  const std::lock_guard lock(impl_->mutex);
  impl_->isAwake = true;
  impl_->awoken.notify_one();
}

// Asynchronously: the host's thread may be waiting for the render thread.
void Canvas::resize(int width, int height) {
  SetWindowPos(impl_->window, nullptr, 0, 0, width, height,
               SWP_NOZORDER | SWP_NOACTIVATE | SWP_ASYNCWINDOWPOS);
}

}  // namespace zeph
