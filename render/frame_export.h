// Writes the files of a frame that an export asks for.
#pragma once

#include <memory>

#include "controller/export_task.h"
#include "render/renderer.h"

namespace zeph {

// The picture, if one is asked for. Raises the refusal of the request first.
void writePicture(Renderer& renderer, const std::shared_ptr<const Frame>& frame,
                  const FrameFiles& files);

// All files of an export, for the thread that waits for it. A failure goes to that thread alone.
void runExport(Renderer& renderer, const ExportTask& task);

}  // namespace zeph
