// A host that ends in a given way after a given time, while the library draws:
//
//   zephane_ends LIBRARY END MICROSECONDS
//
// It exits with 0, or with 2 and a line on the error stream if something failed before its end.
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "boundary/zephane.h"

namespace {

struct Functions {
  decltype(&zp_initialize) initialize;
  decltype(&zp_string_free) freeString;
  decltype(&zp_engine_create) createEngine;
  decltype(&zp_engine_call) callEngine;
  decltype(&zp_ui_create) createUi;
  decltype(&zp_ui_attach) attachUi;
  decltype(&zp_ui_call) callUi;
  decltype(&zp_ui_destroy) destroyUi;
};

Functions zp;

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  _exit(2);
}

void load(const char* path) {
  void* library = dlopen(path, RTLD_NOW);
  if (library == nullptr) fail(dlerror());
  const auto find = [library](auto& function, const char* name) {
    function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
    if (function == nullptr) fail(name);
  };
  find(zp.initialize, "zp_initialize");
  find(zp.freeString, "zp_string_free");
  find(zp.createEngine, "zp_engine_create");
  find(zp.callEngine, "zp_engine_call");
  find(zp.createUi, "zp_ui_create");
  find(zp.attachUi, "zp_ui_attach");
  find(zp.callUi, "zp_ui_call");
  find(zp.destroyUi, "zp_ui_destroy");
}

[[noreturn]] void pauseForEver() {
  for (;;) pause();
}

std::string take(char* reply) {
  std::string text = reply;
  zp.freeString(reply);
  if (text == R"({"error":"The process is ending."})") pauseForEver();
  if (text.starts_with("{\"error\"")) fail(text);
  return text;
}

// A connection of its own, as a toolkit has it, and one window of it.
struct Window {
  xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
  xcb_window_t id = 0;

  Window() {
    if (xcb_connection_has_error(connection) != 0) fail("no X server");
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    id = xcb_generate_id(connection);
    const std::uint32_t unmanaged = 1;
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, id, screen->root, 0, 0, 200, 200, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual, XCB_CW_OVERRIDE_REDIRECT,
                      &unmanaged);
    xcb_map_window(connection, id);
    finish();
  }

  void destroy() const {
    xcb_destroy_window(connection, id);
    finish();
  }

  void finish() const {
    std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
  }

  void* handle() const { return reinterpret_cast<void*>(static_cast<std::uintptr_t>(id)); }
};

std::chrono::microseconds delay;

void wait() {
  std::this_thread::sleep_for(delay);
}

void exitOnAnotherThread() {
  std::thread([] {
    wait();
    std::exit(0);
  }).detach();
}

zp_ui* attachedView(const Window& window) {
  zp_ui* view = zp.createUi();
  take(zp.callUi(view, R"({"op":"configure","resolution":64})"));
  take(zp.attachUi(view, window.handle()));
  return view;
}

zp_ui* runningView(const Window& window) {
  zp_ui* view = attachedView(window);
  take(zp.callUi(view, R"({"op":"start"})"));
  return view;
}

void waitForPicture(zp_ui* view) {
  for (;;) {
    if (take(zp.callUi(view, R"({"op":"get"})")).find("\"presentations\":0,") == std::string::npos)
      return;
    usleep(1000);
  }
}

void draw(zp_engine* engine) {
  take(zp.callEngine(engine, R"({"op":"export","png":"/dev/null","pixel_size":200,"flow":true})"));
}

zp_engine* makeEngine() {
  zp_engine* engine = zp.createEngine(R"({"resolution":32})", nullptr);
  if (engine == nullptr) fail("no engine");
  return engine;
}

void drawOnAnotherThread() {
  std::thread([] {
    for (zp_engine* engine = makeEngine();;) draw(engine);
  }).detach();
}

// Everything that is to be drawn while the first thread is gone.
void* drawAndExit(void*) {
  zp_engine* engine = makeEngine();
  const auto end = std::chrono::steady_clock::now() + 2 * delay;
  do {
    draw(engine);
  } while (std::chrono::steady_clock::now() < end);
  std::exit(0);
}

bool is(const char* end, const char* name) {
  return std::strcmp(end, name) == 0;
}

void endAmidPictures(const char* end) {
  if (is(end, "png-thread")) {
    pthread_t thread{};
    pthread_create(&thread, nullptr, drawAndExit, nullptr);
    wait();
    pthread_exit(nullptr);
  }
  drawOnAnotherThread();
  if (is(end, "png-exit")) {
    exitOnAnotherThread();
    pauseForEver();
  }
  wait();
}

void endAmidAttach() {
  const Window window;
  exitOnAnotherThread();
  for (;;) zp.destroyUi(attachedView(window));
}

void endWithView(const char* end) {
  const Window window;
  zp_ui* view = runningView(window);
  if (is(end, "exit")) {
    exitOnAnotherThread();
    pauseForEver();
  }
  if (is(end, "frame") || is(end, "frame-exit")) waitForPicture(view);
  if (is(end, "frame-exit")) {
    exitOnAnotherThread();
    pauseForEver();
  }
  if (is(end, "thread")) {
    exitOnAnotherThread();
    pthread_exit(nullptr);
  }
  wait();
  if (is(end, "window")) window.destroy();
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) fail("LIBRARY END MICROSECONDS");
  const char* end = arguments[2];
  delay = std::chrono::microseconds(std::atol(arguments[3]));
  load(arguments[1]);
  take(zp.initialize());
  if (std::strncmp(end, "png", 3) == 0) {
    endAmidPictures(end);
  } else if (is(end, "attach")) {
    endAmidAttach();
  } else {
    endWithView(end);
  }
  return 0;
}
