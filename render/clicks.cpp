#include "render/clicks.h"

#include <exception>
#include <optional>

#include "render/overlay.h"

namespace zeph {
namespace {

void press(UIHandle& ui, Button button) {
  const auto lock = ui.lock();
  if (!ui.isReady()) return;
  switch (button) {
    case Button::toggle:
      ui.toggle();
      break;
    case Button::step:
      ui.step();
      break;
    case Button::reset:
      ui.reset();
      break;
  }
}

}  // namespace

void actOnClick(UIHandle& ui, const Click& click) {
  const auto scale = static_cast<float>(click.scale);
  const std::optional<Button> button =
      buttonAt(static_cast<float>(click.x) / scale, static_cast<float>(click.y) / scale,
               static_cast<float>(click.height) / scale);
  if (!button) return;
  try {
    press(ui, *button);
  } catch (const std::exception& failure) {
    ui.reportError(failure.what());
  }
}

}  // namespace zeph
