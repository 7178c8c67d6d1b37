"""``widget``: a view's flow in a notebook."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

from ._library import given
from .errors import InvalidValueError, ZephaneError
from .extras import need
from .records import LIVE_PICTURE
from .refusals import check_picture, checked_side
from .view import View

if TYPE_CHECKING:  # It imports anywidget.
    from .notebook_widget import FlowWidget

PURPOSE = "A widget"


def widget(
    view: View,
    *,
    pixels: int = 512,
    adapt_viscosity: bool = False,
    display: str | None = None,
    palette: str | None = None,
    color_range: str = LIVE_PICTURE.color_range,
    exposure: float = LIVE_PICTURE.exposure,
    sigma: float | None = None,
) -> FlowWidget:
    """The live picture of a view's flow, with controls, in JupyterLab, VS Code or Colab.

    Show it as the last line of a cell. A view that has not been started is started. The view stays
    yours: its operations work as ever, and closing it ends the widget.

    ``pixels``, 64 to 2048, is the side of the picture; of a finer grid the picture shows what so
    many points hold. ``adapt_viscosity`` lets the Reynolds number follow the flow. ``display``,
    ``palette`` and the arguments after them are set on the view as by ``View.set``; the default
    range is that of the viewer, "exposure" at 0.7.

    No picture is made while nobody sees one. None needs a window, a display or a Vulkan driver, but
    for those that are saved, which the library draws.

    Raises ``ZephaneError`` where there is no kernel of a notebook, and ``InvalidValueError`` for
    values that are refused. Widgets need anywidget: ``pip install 'zephane[notebook]'``.
    """
    if not isinstance(view, View):
        raise InvalidValueError(f"{view!r} is no View: a widget shows a zephane.View")
    side = checked_side("pixels", pixels) // 2 * 2
    picture: dict[str, Any] = {
        "display": display,
        "palette": palette,
        "color_range": color_range,
        "exposure": exposure,
        "sigma": sigma,
    }
    check_picture(**picture, pixel_size=None)
    need("numpy", "notebook", PURPOSE)
    need("anywidget", "notebook", PURPOSE)
    from .notebook_widget import FlowWidget, running_loop

    loop = running_loop()
    if loop is None:
        raise ZephaneError("A widget needs the kernel of a notebook, and none runs this thread.")
    view.set(**given(**picture))
    if view.status().generation == 0:
        view.start()
    return FlowWidget(view, loop, side, adapt_viscosity)
