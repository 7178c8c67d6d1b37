// A window that is never shown, for a renderer that draws no view: a swap chain must belong to one.
#pragma once

#include <windows.h>

#include "render/d3d11/com.h"

namespace zeph::d3d11 {

class ExportSurface {
 public:
  // Raises std::runtime_error.
  ExportSurface();
  ~ExportSurface();
  ExportSurface(const ExportSurface&) = delete;
  ExportSurface& operator=(const ExportSurface&) = delete;

  HWND window() const { return window_; }

 private:
  ComUse com_;
  HWND window_;
};

}  // namespace zeph::d3d11
