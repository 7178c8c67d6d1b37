#include "render/d3d11/system_functions.h"

#include "platform/dynamic_library.h"

namespace zeph::d3d11 {
namespace {

// From the system's own folder.
template <class Function>
Function* entry(const char* library, const char* name, const char* step) {
  void* opened = platform::openLibrary(library);
  if (opened == nullptr) check(HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), step);
  Function* function = nullptr;
  if (!platform::find(opened, name, function))
    check(HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), step);
  return function;
}

template <class Interface>
void** addressOf(ComPtr<Interface>& pointer) {
  return reinterpret_cast<void**>(pointer.ReleaseAndGetAddressOf());
}

}  // namespace

ComPtr<IDXGIFactory2> createFactory() {
  constexpr const char* step = "Create DXGI factory";
  auto* create = entry<decltype(CreateDXGIFactory1)>("dxgi.dll", "CreateDXGIFactory1", step);
  ComPtr<IDXGIFactory2> factory;
  check(create(__uuidof(IDXGIFactory2), addressOf(factory)), step);
  return factory;
}

void createDevice(IDXGIAdapter* adapter, ComPtr<ID3D11Device>& device,
                  ComPtr<ID3D11DeviceContext>& context) {
  constexpr const char* step = "Create D3D11 device";
  auto* create = entry<decltype(D3D11CreateDevice)>("d3d11.dll", "D3D11CreateDevice", step);
  check(create(adapter, D3D_DRIVER_TYPE_UNKNOWN, nullptr, D3D11_CREATE_DEVICE_BGRA_SUPPORT, nullptr,
               0, D3D11_SDK_VERSION, device.ReleaseAndGetAddressOf(), nullptr,
               context.ReleaseAndGetAddressOf()),
        step);
}

ComPtr<ID2D1Factory1> createDirect2d() {
  using Create =
      HRESULT WINAPI(D2D1_FACTORY_TYPE, REFIID, const D2D1_FACTORY_OPTIONS*, void** factory);
  constexpr const char* step = "Create Direct2D factory";
  auto* create = entry<Create>("d2d1.dll", "D2D1CreateFactory", step);
  const D2D1_FACTORY_OPTIONS options = {.debugLevel = D2D1_DEBUG_LEVEL_NONE};
  ComPtr<ID2D1Factory1> factory;
  check(create(D2D1_FACTORY_TYPE_SINGLE_THREADED, __uuidof(ID2D1Factory1), &options,
               addressOf(factory)),
        step);
  return factory;
}

ComPtr<IDWriteFactory> createDirectWrite() {
  constexpr const char* step = "Create DirectWrite";
  auto* create = entry<decltype(DWriteCreateFactory)>("dwrite.dll", "DWriteCreateFactory", step);
  ComPtr<IDWriteFactory> factory;
  check(create(DWRITE_FACTORY_TYPE_SHARED, __uuidof(IDWriteFactory),
               reinterpret_cast<IUnknown**>(factory.ReleaseAndGetAddressOf())),
        step);
  return factory;
}

}  // namespace zeph::d3d11
