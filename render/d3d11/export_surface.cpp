#include "render/d3d11/export_surface.h"

#include <stdexcept>

namespace zeph::d3d11 {

ExportSurface::ExportSurface()
    : window_(CreateWindowExW(0, L"STATIC", L"Zephane export", WS_POPUP, 0, 0, 64, 64, nullptr,
                              nullptr, nullptr, nullptr)) {
  if (window_ == nullptr) throw std::runtime_error("Cannot create export surface.");
}

ExportSurface::~ExportSurface() {
  DestroyWindow(window_);
}

}  // namespace zeph::d3d11
