// PNG files by the Windows Imaging Component.
#include <wincodec.h>

#include "platform/system.h"
#include "render/d3d11/com.h"
#include "render/png/png_file.h"

namespace zeph {
namespace {

using d3d11::check;
using d3d11::ComPtr;
using d3d11::ComUse;

ComPtr<IWICImagingFactory> createFactory() {
  ComPtr<IWICImagingFactory> factory;
  check(CoCreateInstance(CLSID_WICImagingFactory2, nullptr, CLSCTX_INPROC_SERVER,
                         __uuidof(IWICImagingFactory),
                         reinterpret_cast<void**>(factory.GetAddressOf())),
        "Create PNG encoder factory");
  return factory;
}

ComPtr<IWICStream> openStream(IWICImagingFactory& factory, const std::string& path) {
  ComPtr<IWICStream> stream;
  check(factory.CreateStream(&stream), "Create PNG stream");
  check(stream->InitializeFromFilename(platform::pathFromUtf8(path).c_str(), GENERIC_WRITE),
        "Open PNG");
  return stream;
}

void writeFrame(IWICBitmapFrameEncode& frame, UINT width, UINT height,
                std::span<const std::byte> pixels) {
  check(frame.Initialize(nullptr), "Initialize PNG frame");
  check(frame.SetSize(width, height), "PNG size");
  WICPixelFormatGUID format = GUID_WICPixelFormat32bppBGRA;
  check(frame.SetPixelFormat(&format), "PNG format");
  auto* bytes = reinterpret_cast<BYTE*>(const_cast<std::byte*>(pixels.data()));
  check(frame.WritePixels(height, width * 4, static_cast<UINT>(pixels.size()), bytes),
        "Write PNG pixels");
  check(frame.Commit(), "Commit PNG frame");
}

}  // namespace

void writePng(const std::string& path, std::uint32_t width, std::uint32_t height,
              std::span<const std::byte> pixels) {
  const ComUse com;
  const ComPtr<IWICImagingFactory> factory = createFactory();
  const ComPtr<IWICStream> stream = openStream(*factory.Get(), path);
  ComPtr<IWICBitmapEncoder> encoder;
  check(factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, &encoder), "Create PNG encoder");
  check(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache), "Initialize PNG encoder");
  ComPtr<IWICBitmapFrameEncode> frame;
  check(encoder->CreateNewFrame(&frame, nullptr), "Create PNG frame");
  writeFrame(*frame.Get(), width, height, pixels);
  check(encoder->Commit(), "Commit PNG file");
}

}  // namespace zeph
