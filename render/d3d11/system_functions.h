// The entry points of the graphics system. Its libraries are opened when the first picture is asked
// for, so that loading this one stays quick and works where they are missing.
#pragma once

#include <d2d1_1.h>
#include <d3d11.h>
#include <dwrite.h>
#include <dxgi1_6.h>

#include "render/d3d11/com.h"

namespace zeph::d3d11 {

// Each raises std::runtime_error with the text of its step, with the system's code for a missing
// module or function if it could not be found.
ComPtr<IDXGIFactory2> createFactory();
void createDevice(IDXGIAdapter* adapter, ComPtr<ID3D11Device>& device,
                  ComPtr<ID3D11DeviceContext>& context);
ComPtr<ID2D1Factory1> createDirect2d();
ComPtr<IDWriteFactory> createDirectWrite();

}  // namespace zeph::d3d11
