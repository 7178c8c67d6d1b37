// Feeds arbitrary texts to the exported functions. Each line of an input is a request to one small
// engine if it is an object with the member "op", else a configuration. Every input starts from the
// same flow, so that a finding can be repeated.
//
// What would take long, or reach files outside a scratch folder, is left out.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

#include "boundary/config.h"
#include "boundary/zephane.h"

namespace {

using zeph::Json;

constexpr int mostLines = 8;
constexpr int mostSteps = 32;
constexpr int largestGrid = 32;
constexpr std::size_t longestName = 2;  // keeps the scratch folder small

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  std::abort();
}

// While it lives, relative paths lead into the scratch folder.
class InScratchFolder {
 public:
  InScratchFolder() : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder());
  }
  ~InScratchFolder() { std::filesystem::current_path(before_); }
  InScratchFolder(const InScratchFolder&) = delete;
  InScratchFolder& operator=(const InScratchFolder&) = delete;

 private:
  static const std::filesystem::path& folder() {
    static const Folder made;
    return made.path;
  }

  struct Folder {
    Folder() {
      std::string pattern = std::filesystem::temp_directory_path() / "zephane-fuzz-XXXXXX";
      require(mkdtemp(pattern.data()) != nullptr, "there is a scratch folder");
      path = pattern;
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::filesystem::path path;
  };

  std::filesystem::path before_;
};

bool staysInScratchFolder(const Json& object) {
  for (const char* key : {"initial", "spectrum", "fields", "png"}) {
    const Json* value = zeph::findValue(object, key);
    if (!value || !value->is_string()) continue;
    const auto& name = value->get_ref<const std::string&>();
    if (name.size() > longestName || name.find('/') != std::string::npos) return false;
  }
  return true;
}

bool isShort(const Json& request) {
  const Json* steps = zeph::findValue(request, "steps");
  return !steps || !(steps->is_number() || steps->is_boolean()) ||
         zeph::toInt32(*steps) <= mostSteps;
}

bool isSmall(const Json& configuration) {
  try {
    return zeph::parseConfig(configuration, {}).resolution <= largestGrid;
  } catch (const std::exception&) {
    return true;  // and refused
  }
}

void expectReply(char* text, bool mayFail = true) {
  require(text != nullptr, "a call has a reply");
  const Json reply = Json::parse(text);
  zp_string_free(text);
  require(reply.is_object(), "a reply is an object");
  const bool failed = reply.contains("error");
  require(mayFail || !failed, "the call succeeds");
  require(!failed || (reply.size() == 1 && reply["error"].is_string()), "an error stands alone");
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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const InScratchFolder scratch;
  restartEngine();
  std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
  std::string line;
  for (int i = 0; i < mostLines && std::getline(text, line); ++i) take(line);
  return 0;
}
