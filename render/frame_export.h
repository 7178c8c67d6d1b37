// Writes the files of a frame that an export asks for.
#pragma once

#include <memory>

#include "controller/export_task.h"
#include "render/renderer.h"

namespace zeph {

// Writes the picture that is asked for, with a renderer for this one picture, for the frames of a
// device. Raises the refusal of the request, if there is one, once there is a renderer.
void drawPictureFile(int device, const std::shared_ptr<const Frame>& frame,
                     const FrameFiles& files);

// Writes the planes, draws the picture and leaves compressing and writing it to the waiting thread,
// which also receives any failure: the view goes on meanwhile.
void runExport(Renderer& renderer, const ExportTask& task);

}  // namespace zeph
