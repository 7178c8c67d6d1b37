#include "boundary/frame_export.h"

#include "boundary/display_settings_json.h"
#include "solver/raw_files.h"
#include "solver/solver.h"

namespace zeph {

void exportFrame(Renderer& renderer, const std::shared_ptr<const Frame>& frame,
                 const DisplaySettings& settings, const Json& request) {
  if (const auto path = readPath(request, "fields")) writeRawFile(*path, copyFields(*frame));
  if (const auto path = readPath(request, "png"))
    renderer.renderPng(frame, settings, *path, readPictureSize(request));
}

}  // namespace zeph
