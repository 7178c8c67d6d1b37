// Feeds arbitrary texts to the exported functions. Each line of an input is a request to one small
// engine if it is an object with the member "op", else a configuration. Every input starts from the
// same flow, so that a finding can be repeated.
//
// Requests that would take long, or use files outside a scratch folder, are skipped.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "boundary/config.h"
#include "boundary/zephane.h"
#include "tests/fuzz/fuzzing.h"

namespace {

using zeph::Json;
using namespace zeph::fuzz;

constexpr int mostSteps = 32;

bool isShort(const Json& request) {
  const Json* steps = zeph::findValue(request, "steps");
  return !steps || !(steps->is_number() || steps->is_boolean()) ||
         zeph::toInt32(*steps) <= mostSteps;
}

bool isSmall(const Json& configuration) {
  try {
    return zeph::parseConfig(configuration, {}).resolution <= largestGrid;
  } catch (const std::exception&) {
    return true;  // it will be refused
  }
}

zp_engine* longLivedEngine() {
  static zp_engine* const engine = zp_engine_create(R"({"resolution": 16, "k0": 2})", nullptr);
  require(engine != nullptr, "a small engine can be created");
  return engine;
}

void callEngine(const char* request) {
  expectReply(zp_engine_call(longLivedEngine(), request));
}

void restartEngine() {
  for (const char* request : {R"({"op": "set", "reynolds": 1000, "cfl": 1})", R"({"op": "reset"})"})
    expectReply(zp_engine_call(longLivedEngine(), request), false);
}

void createEngine(const char* configuration) {
  char* error = nullptr;
  zp_engine* engine = zp_engine_create(configuration, &error);
  require((engine == nullptr) != (error == nullptr), "an engine or the reason why there is none");
  if (error) static_cast<void>(Json(error).dump());  // raises unless it is UTF-8
  zp_string_free(error);
  if (engine) expectReply(zp_engine_call(engine, R"({"op": "advance"})"));
  zp_engine_destroy(engine);
}

void take(const std::string& line) {
  const Json value = Json::parse(line.c_str(), nullptr, false);
  if (!value.is_object()) {
    createEngine(line.c_str());
    return callEngine(line.c_str());
  }
  if (!staysInScratchFolder(value)) return;
  if (value.contains("op")) {
    if (isShort(value)) callEngine(line.c_str());
  } else if (isSmall(value)) {
    createEngine(line.c_str());
  }
}

}  // namespace

// No driver, so nothing is drawn: a picture takes the time of many requests, and memory that
// drivers keep would count as leaks. Newer and older loaders of Vulkan read these names.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
  setenv("VK_DRIVER_FILES", "/nonexistent", 1);
  setenv("VK_ICD_FILENAMES", "/nonexistent", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const InScratchFolder scratch;
  restartEngine();
  std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
  std::string line;
  for (int i = 0; i < mostLines && std::getline(text, line); ++i) take(line);
  return 0;
}
