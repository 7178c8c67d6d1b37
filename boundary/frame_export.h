// How a frame leaves: as a picture, and as raw planes.
#pragma once

#include <memory>
#include <string>

#include "boundary/json_reading.h"
#include "render/renderer.h"

namespace zeph {

// Writes what the request names on the render thread: the planes under "fields", then a picture
// under "png". Raises for what is refused; what was written before stays.
void exportFrame(Renderer& renderer, const std::shared_ptr<const Frame>& frame,
                 const DisplaySettings& settings, const Json& request);

}  // namespace zeph
