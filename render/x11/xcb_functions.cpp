#include "render/x11/xcb_functions.h"

#include <optional>

#include "platform/dynamic_library.h"
#include "platform/fork.h"

namespace zeph::x11 {
namespace {

std::optional<Xcb>* findXcb() {
  void* library = platform::openLibrary("libxcb.so.1");
  if (library == nullptr) return new std::optional<Xcb>;
  Xcb functions{};
#define ZEPH_FIND(name) \
  if (!platform::find(library, #name, functions.name)) return new std::optional<Xcb>;
  ZEPH_XCB_FUNCTIONS(ZEPH_FIND)
#undef ZEPH_FIND
  return new std::optional<Xcb>(functions);
}

platform::MadeOnce<std::optional<Xcb>> functionsOfProcess;

}  // namespace

const Xcb* xcb() {
  const std::optional<Xcb>& found = functionsOfProcess.get(findXcb);
  return found ? &*found : nullptr;
}

}  // namespace zeph::x11
