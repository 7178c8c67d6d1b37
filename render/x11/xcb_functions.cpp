#include "render/x11/xcb_functions.h"

#include <optional>

#include "platform/dynamic_library.h"

namespace zeph::x11 {
namespace {

std::optional<Xcb> findXcb() {
  void* library = platform::openLibrary("libxcb.so.1");
  if (library == nullptr) return std::nullopt;
  Xcb functions{};
#define ZEPH_FIND(name) \
  if (!platform::find(library, #name, functions.name)) return std::nullopt;
  ZEPH_XCB_FUNCTIONS(ZEPH_FIND)
#undef ZEPH_FIND
  return functions;
}

}  // namespace

const Xcb* xcb() {
  static const std::optional<Xcb> found = findXcb();
  return found ? &*found : nullptr;
}

}  // namespace zeph::x11
