// The images of a window: a flip-model swap chain with a signal for its pace.
#pragma once

#include <windows.h>

#include <cstdint>

#include "render/d3d11/graphics_device.h"
#include "render/texels.h"

namespace zeph::d3d11 {

class WindowSwapChain {
 public:
  // In high dynamic range if the window is on a monitor of the adapter that is in that mode. There
  // are no targets yet. Raises std::runtime_error.
  WindowSwapChain(const GraphicsDevice& device, HWND window);
  ~WindowSwapChain();
  WindowSwapChain(const WindowSwapChain&) = delete;
  WindowSwapChain& operator=(const WindowSwapChain&) = delete;

  // The back buffer as a target of Direct3D and of the interface.
  void createTargets(ID2D1DeviceContext& overlay);
  // Does nothing if the size is the same or a side is 0.
  void resize(std::uint32_t width, std::uint32_t height, ID2D1DeviceContext& overlay);

  ID3D11RenderTargetView* target() const { return target_.Get(); }
  TexelFormat format() const { return format_; }

  void present();
  // Until the swap chain takes another frame, at most so long. For once after each present().
  void waitForFrame(double seconds) const;

 private:
  const GraphicsDevice& device_;
  const TexelFormat format_;
  ComPtr<IDXGISwapChain1> chain_;
  HANDLE frameLatency_ = nullptr;
  ComPtr<ID3D11Texture2D> backBuffer_;
  ComPtr<ID3D11RenderTargetView> target_;
  ComPtr<ID2D1Bitmap1> interfaceTarget_;
  std::uint32_t width_ = 0;
  std::uint32_t height_ = 0;
};

}  // namespace zeph::d3d11
