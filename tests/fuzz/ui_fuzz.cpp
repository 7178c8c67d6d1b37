// Feeds arbitrary texts to a view: each line of an input is a request to one view of a small flow.
//
// Requests that would take long, ask the user, or use files outside a scratch folder, are skipped.
#include <chrono>
#include <cstdint>
#include <sstream>
#include <string>
#include <thread>

#include "boundary/config.h"
#include "boundary/zephane.h"
#include "tests/fuzz/fuzzing.h"

namespace {

using zeph::Json;
using namespace zeph::fuzz;

bool isSmall(const Json& request) {
  zeph::Config base;
  base.resolution = 16;
  try {
    return zeph::parseConfig(request, base).resolution <= largestGrid;
  } catch (const std::exception&) {
    return true;  // it will be refused
  }
}

bool isFit(const std::string& line) {
  const Json request = Json::parse(line.c_str(), nullptr, false);
  if (!request.is_object()) return true;
  const Json* op = zeph::findValue(request, "op");
  const bool asksTheUser = op && op->is_string() && op->get_ref<const std::string&>() == "save";
  return !asksTheUser && staysInScratchFolder(request) && isSmall(request);
}

class View {
 public:
  View() {
    expectReply(zp_initialize(), false);
    ui_ = zp_ui_create();
    require(ui_ != nullptr, "a view can be made");
  }
  ~View() { zp_ui_destroy(ui_); }
  View(const View&) = delete;
  View& operator=(const View&) = delete;

  void call(const char* request, bool mayFail = true) {
    expectReply(zp_ui_call(ui_, request), mayFail);
  }

 private:
  zp_ui* ui_ = nullptr;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const InScratchFolder scratch;
  View view;
  view.call(R"({"op": "configure", "resolution": 16, "k0": 2, "reynolds": 1000})", false);
  std::istringstream text(std::string(reinterpret_cast<const char*>(data), size));
  std::string line;
  for (int i = 0; i < mostLines && std::getline(text, line); ++i) {
    if (isFit(line)) view.call(line.c_str());
  }
  // A started flow has begun to act on the request.
  std::this_thread::sleep_for(std::chrono::milliseconds(1));
  view.call(R"({"op": "get"})", false);
  return 0;
}
