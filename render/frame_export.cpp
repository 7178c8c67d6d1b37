#include "render/frame_export.h"

#include <stdexcept>
#include <utility>

#include "render/graphics_use.h"
#include "solver/raw_files.h"
#include "solver/solver.h"

namespace zeph {
namespace {

// With a renderer for this one picture.
Texels drawAlone(int device, const std::shared_ptr<const Frame>& frame, const FrameFiles& files) {
  const GraphicsUse use;
  if (!use) throw std::runtime_error("The process is ending.");
  const FirstUseGuard guard;
  Renderer renderer(device);
  files.raiseRefusal();
  return renderer.drawSquare(frame, files.settings, files.pixels);
}

}  // namespace

void drawPictureFile(int device, const std::shared_ptr<const Frame>& frame,
                     const FrameFiles& files) {
  guardEndOfFirstThread();
  encodePng(drawAlone(device, frame, files), files.png.value());
}

void runExport(Renderer& renderer, const ExportTask& task) {
  try {
    const FrameFiles& files = task.files;
    if (files.fields) writeRawFile(*files.fields, copyFields(*task.frame));
    files.raiseRefusal();
    RestOfExport rest;
    if (files.png) {
      const auto picture =
          std::make_shared<Texels>(renderer.drawSquare(task.frame, files.settings, files.pixels));
      rest = [picture, path = *files.png] { encodePng(std::move(*picture), path); };
    }
    task.done->set_value(std::move(rest));
  } catch (...) {
    task.done->set_exception(std::current_exception());
  }
}

}  // namespace zeph
