#include "boundary/export_request.h"

#include <stdexcept>

#include "boundary/display_settings_json.h"

namespace zeph {
namespace {

std::uint32_t readPictureSize(const Json& request) {
  const auto pixels = readInteger(request, "pixel_size", usualPicture);
  if (pixels < smallestPicture || pixels > largestPicture)
    throw std::invalid_argument("PNG size must be 1 through 8192.");
  return static_cast<std::uint32_t>(pixels);
}

void readFiles(const Json& request, FrameFiles& files) {
  files.fields = readPath(request, "fields");
  files.png = readPath(request, "png");
  if (files.png) files.pixels = readPictureSize(request);
}

void readSettings(const Json& request, FrameFiles& files) {
  if (!files.png) return;
  files.settings = readDisplaySettings(request, DisplaySettings{});
  readBoolean(request, "flow", false);  // unlike a view, an engine refuses a null here
}

template <class Read>
FrameFiles readUntilRefused(Read read) {
  FrameFiles files;
  try {
    read(files);
  } catch (...) {
    files.refusal = std::current_exception();
  }
  return files;
}

}  // namespace

FrameFiles readViewExport(const Json& request) {
  return readUntilRefused([&](FrameFiles& files) { readFiles(request, files); });
}

FrameFiles readEngineExport(const Json& request) {
  return readUntilRefused([&](FrameFiles& files) {
    readFiles(request, files);
    readSettings(request, files);
  });
}

}  // namespace zeph
