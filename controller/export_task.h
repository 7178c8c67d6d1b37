// An export on its way from the host's thread, which asks for it, to the render thread, which
// draws it.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>

#include "render/display_settings.h"
#include "solver/statistics.h"

namespace zeph {

// The side of an exported picture in pixels.
constexpr std::int32_t smallestPicture = 1;
constexpr std::int32_t usualPicture = 1800;
constexpr std::int32_t largestPicture = 8192;

// The files to write of a frame, the planes before the picture. Paths are UTF-8 text.
struct FrameFiles {
  std::optional<std::string> fields;    // the raw planes
  std::optional<std::string> png;       // the picture
  std::uint32_t pixels = usualPicture;  // its side
  DisplaySettings settings;

  // Why reading the request stopped, if it did. It is raised only after everything read before it
  // has been done, so that a bad picture size is refused when the planes are already written.
  std::exception_ptr refusal;

  void raiseRefusal() const {
    if (refusal) std::rethrow_exception(refusal);
  }
};

// What the render thread leaves to the thread that waits for the export; may be empty.
using RestOfExport = std::function<void()>;

struct ExportTask {
  std::shared_ptr<const Frame> frame;
  FrameFiles files;
  // Shared with the thread that waits, so that a dropped task does not raise broken_promise.
  std::shared_ptr<std::promise<RestOfExport>> done;
};

}  // namespace zeph
