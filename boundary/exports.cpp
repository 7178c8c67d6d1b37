#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "boundary/call_frame.h"
#include "boundary/engine.h"
#include "boundary/system_description.h"
#include "boundary/ui_operations.h"
#include "boundary/zephane.h"
#include "device/check.h"
#include "platform/system.h"
#include "platform/thread_environment.h"

struct zp_engine {
  explicit zp_engine(const zeph::Json& configuration) : handle(configuration) {}
  zeph::EngineHandle handle;
};

struct zp_ui {
  zeph::View view;
  std::uint32_t mainThread = zeph::mainThreadId;  // a forked child has another
};

namespace {

using zeph::Json;

void selectDevice() {
  zeph::check(zeph::cudaSetDevice(zeph::deviceId), "cudaSetDevice(deviceId)");
}

void storeError(char** error, const char* what) noexcept {
  if (!error) return;
  try {
    *error = zeph::hostText(zeph::validUtf8(what));
  } catch (...) {
    *error = nullptr;
  }
}

Json callEngine(zp_engine* engine, const char* request) {
  if (!engine) throw std::invalid_argument("Closed engine.");
  const std::scoped_lock lock(engine->handle.mutex);
  selectDevice();
  return zeph::runOperation(engine->handle.solver, zeph::parseObject(request));
}

bool onMainThread() {
  return zeph::platform::threadId() == zeph::mainThreadId;
}

// A view that a forked child has from its parent lacks its threads and stays the parent's.
bool belongsToParent(const zp_ui* ui) {
  return ui->mainThread != zeph::mainThreadId;
}

void requireUi(const zp_ui* ui) {
  if (!onMainThread() || (ui && belongsToParent(ui)))
    throw std::runtime_error("UI calls require the main thread.");
  if (!ui) throw std::invalid_argument("Closed UI.");
}

Json attachUi(zp_ui* ui, void* parent) {
  requireUi(ui);
  ui->view.attach(parent, zeph::deviceId);
  return Json::object();
}

Json callUi(zp_ui* ui, const char* request) {
  requireUi(ui);
  return zeph::runUiOperation(ui->view, zeph::parseObject(request));
}

}  // namespace

extern "C" {

char* zp_initialize(void) {
  return zeph::reply(zeph::initialize);
}

void zp_string_free(char* text) {
  std::free(text);
}

zp_engine* zp_engine_create(const char* configuration, char** error) {
  const zeph::platform::CallEnvironment environment;
  try {
    selectDevice();
    return std::make_unique<zp_engine>(zeph::parseObject(configuration)).release();
  } catch (const std::exception& failure) {
    storeError(error, failure.what());
  } catch (...) {
    storeError(error, "Unknown native failure");
  }
  return nullptr;
}

char* zp_engine_call(zp_engine* engine, const char* request) {
  return zeph::reply([=] { return callEngine(engine, request); });
}

void zp_engine_destroy(zp_engine* engine) {
  if (!engine) return;
  zeph::cudaSetDevice(zeph::deviceId);
  delete engine;
}

zp_ui* zp_ui_create(void) {
  if (!onMainThread()) return nullptr;
  const zeph::platform::CallEnvironment environment;
  try {
    return std::make_unique<zp_ui>().release();
  } catch (...) {
    return nullptr;
  }
}

char* zp_ui_attach(zp_ui* ui, void* parent) {
  return zeph::reply([=] { return attachUi(ui, parent); });
}

char* zp_ui_call(zp_ui* ui, const char* request) {
  return zeph::reply([=] { return callUi(ui, request); });
}

void zp_ui_destroy(zp_ui* ui) {
  if (ui && onMainThread() && !belongsToParent(ui)) delete ui;
}

}  // extern "C"
