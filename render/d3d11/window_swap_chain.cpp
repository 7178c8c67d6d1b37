#include "render/d3d11/window_swap_chain.h"

#include <cmath>
#include <stdexcept>

#include "render/d3d11/picture_target.h"

namespace zeph::d3d11 {
namespace {

constexpr UINT bufferCount = 2;
constexpr UINT chainFlags = DXGI_SWAP_CHAIN_FLAG_FRAME_LATENCY_WAITABLE_OBJECT;

bool isInHighDynamicRange(const ComPtr<IDXGIOutput>& output) {
  ComPtr<IDXGIOutput6> output6;
  DXGI_OUTPUT_DESC1 description = {};
  if (FAILED(output.As(&output6)) || FAILED(output6->GetDesc1(&description))) return false;
  return description.ColorSpace == DXGI_COLOR_SPACE_RGB_FULL_G2084_NONE_P2020;
}

// Standard range for a monitor of another adapter, too.
TexelFormat formatFor(IDXGIAdapter1& adapter, HWND window) {
  HMONITOR monitor = MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST);
  ComPtr<IDXGIOutput> output;
  for (UINT index = 0; SUCCEEDED(adapter.EnumOutputs(index, &output)); ++index) {
    DXGI_OUTPUT_DESC description = {};
    if (FAILED(output->GetDesc(&description)) || description.Monitor != monitor) continue;
    return isInHighDynamicRange(output) ? TexelFormat::rgba16 : TexelFormat::bgra8;
  }
  return TexelFormat::bgra8;
}

ComPtr<IDXGISwapChain1> makeChain(const GraphicsDevice& device, HWND window, TexelFormat format) {
  const DXGI_SWAP_CHAIN_DESC1 description = {.Width = 0,  // the window's size
                                             .Height = 0,
                                             .Format = dxgiFormat(format),
                                             .Stereo = FALSE,
                                             .SampleDesc = {.Count = 1, .Quality = 0},
                                             .BufferUsage = DXGI_USAGE_RENDER_TARGET_OUTPUT,
                                             .BufferCount = bufferCount,
                                             .Scaling = DXGI_SCALING_STRETCH,
                                             .SwapEffect = DXGI_SWAP_EFFECT_FLIP_SEQUENTIAL,
                                             .AlphaMode = DXGI_ALPHA_MODE_IGNORE,
                                             .Flags = chainFlags};
  ComPtr<IDXGISwapChain1> chain;
  check(device.factory().CreateSwapChainForHwnd(device.device().Get(), window, &description,
                                                nullptr, nullptr, &chain),
        "Create swap chain");
  return chain;
}

HANDLE frameLatencyOf(const ComPtr<IDXGISwapChain1>& chain) {
  const auto paced = query<IDXGISwapChain2>(chain, "Get frame pacing interface");
  check(paced->SetMaximumFrameLatency(1), "Set frame latency");
  HANDLE signal = paced->GetFrameLatencyWaitableObject();
  if (signal == nullptr) throw std::runtime_error("No DXGI frame pacing signal.");
  return signal;
}

}  // namespace

WindowSwapChain::WindowSwapChain(const GraphicsDevice& device, HWND window)
    : device_(device),
      format_(formatFor(device.adapter(), window)),
      chain_(makeChain(device, window, format_)),
      frameLatency_(frameLatencyOf(chain_)) {
  device.factory().MakeWindowAssociation(window, DXGI_MWA_NO_ALT_ENTER);
  if (format_ != TexelFormat::rgba16) return;
  try {
    const auto colored = query<IDXGISwapChain3>(chain_, "HDR swap chain");
    check(colored->SetColorSpace1(DXGI_COLOR_SPACE_RGB_FULL_G10_NONE_P709),
          "Set scRGB color space");
  } catch (...) {
    CloseHandle(frameLatency_);
    throw;
  }
}

WindowSwapChain::~WindowSwapChain() {
  CloseHandle(frameLatency_);
}

void WindowSwapChain::createTargets(ID2D1DeviceContext& overlay) {
  check(chain_->GetBuffer(0, __uuidof(ID3D11Texture2D),
                          reinterpret_cast<void**>(backBuffer_.ReleaseAndGetAddressOf())),
        "Get swap buffer");
  D3D11_TEXTURE2D_DESC description = {};
  backBuffer_->GetDesc(&description);
  width_ = description.Width;
  height_ = description.Height;
  check(device_.device()->CreateRenderTargetView(backBuffer_.Get(), nullptr, &target_),
        "Create backbuffer target");
  const auto surface = query<IDXGISurface>(backBuffer_, "Get DXGI surface");
  const D2D1_BITMAP_PROPERTIES1 properties = {
      .pixelFormat = {.format = description.Format, .alphaMode = D2D1_ALPHA_MODE_IGNORE},
      .dpiX = 96,
      .dpiY = 96,
      .bitmapOptions = D2D1_BITMAP_OPTIONS_TARGET | D2D1_BITMAP_OPTIONS_CANNOT_DRAW,
      .colorContext = nullptr};
  check(overlay.CreateBitmapFromDxgiSurface(surface.Get(), &properties, &interfaceTarget_),
        "Create D2D surface");
  overlay.SetTarget(interfaceTarget_.Get());
}

void WindowSwapChain::resize(std::uint32_t width, std::uint32_t height,
                             ID2D1DeviceContext& overlay) {
  if (width == 0 || height == 0 || (width == width_ && height == height_)) return;
  device_.context().ClearState();
  overlay.SetTarget(nullptr);
  interfaceTarget_.Reset();
  target_.Reset();
  backBuffer_.Reset();
  device_.context().Flush();
  check(chain_->ResizeBuffers(0, width, height, DXGI_FORMAT_UNKNOWN, chainFlags),
        "Resize swap chain");
  createTargets(overlay);
}

void WindowSwapChain::present() {
  check(chain_->Present(1, 0), "Present frame");
}

void WindowSwapChain::waitForFrame(double seconds) const {
  WaitForSingleObject(frameLatency_, static_cast<DWORD>(std::ceil(seconds * 1000)));
}

}  // namespace zeph::d3d11
