"""How the viewer is laid out at any scale and size, its figures and its plots."""

from __future__ import annotations

import math
import os
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

pytest.importorskip("tkinter")
pytest.importorskip("Xlib")

from viewer_driver import Maker, click, live_on, texts_of, wait, wait_until
from xwindow import Host

import zephane
from zephane import View
from zephane.figures import ADAPTED, FIXED, FOLLOWS
from zephane.viewer import Viewer
from zephane.viewer_plots import Trace, scale_texts


def inside(widget: Any) -> Iterator[Any]:
    for child in widget.winfo_children():
        if child.winfo_ismapped():
            yield child
            yield from inside(child)


@pytest.mark.parametrize("scale", [1.0, 1.5, 2.0])
def test_nothing_is_cut_off_at_any_scale(open_viewer: Maker, host: Host, scale: float) -> None:
    host.set_resolution(96 * scale)
    viewer = open_viewer()
    assert viewer.style.scale == scale
    viewer.show_message("A failure with a few more words than there is room for.")
    for page in (viewer.panel.live, viewer.panel.configuration):
        viewer.panel.tabs.select(page)
        live_on(viewer)
        for widget in inside(viewer.panel):
            if widget in (viewer.panel.plots, viewer.panel._bar):
                continue
            assert widget.winfo_width() >= widget.winfo_reqwidth(), widget
            assert widget.winfo_height() >= widget.winfo_reqheight(), widget
            bottom = widget.winfo_rooty() + widget.winfo_height()
            if not viewer.panel.scrolls:
                assert bottom <= viewer.root.winfo_rooty() + viewer.root.winfo_height(), widget


# A second viewer of one process may get fonts of the first one's scale, so each scale has a process.
PANEL_WIDTH = """
import sys, zephane
from zephane.viewer import Viewer, open_root
viewer = Viewer(open_root(), zephane.View(library=sys.argv[1], resolution=32), side=400)
viewer.root.update()
print(viewer.panel.winfo_width())
viewer.close()
"""


def test_the_panel_grows_with_the_scale(library_path: Path, python_path: Path, host: Host) -> None:
    widths = []
    for scale in (1.0, 2.0):
        host.set_resolution(96 * scale)
        done = subprocess.run(
            [sys.executable, "-c", PANEL_WIDTH, str(library_path)],
            env={**os.environ, "PYTHONPATH": str(python_path)},
            capture_output=True,
            text=True,
            check=True,
        )
        widths.append(int(done.stdout))
    assert widths[1] == pytest.approx(2 * widths[0], rel=0.05)


@pytest.mark.parametrize(("width", "height"), [(1500, 700), (800, 1200), (620, 300)])
def test_the_picture_is_a_square_in_every_window(viewer: Viewer, width: int, height: int) -> None:
    viewer.root.geometry(f"{width}x{height}")
    wait_until(viewer, lambda: viewer.panel.winfo_height() == height)
    live_on(viewer)
    picture, panel = viewer.picture, viewer.panel
    room = width - panel.winfo_width()
    side = min(room, height)
    assert (picture.winfo_width(), picture.winfo_height()) == (side, side)
    assert (picture.winfo_x(), picture.winfo_y()) == ((room - side) // 2, (height - side) // 2)
    assert (panel.winfo_x(), panel.winfo_height()) == (room, height)
    wait(viewer, lambda status: status.canvas and status.canvas.width_points == side)
    canvas = viewer.status.canvas
    assert canvas is not None and canvas.height_points == side


def test_the_panel_scrolls_where_the_window_is_small(viewer: Viewer, host: Host) -> None:
    panel, plots = viewer.panel, viewer.panel.plots
    for height in (1300, 660, 400):
        viewer.root.geometry(f"1000x{height}")
        wait_until(viewer, lambda height=height: panel.winfo_height() == height)
        live_on(viewer)
        assert plots.shown == ["Energy", "Eddies", "Reynolds"]
        assert panel.scrolls is (panel.body.winfo_reqheight() > height)
    assert panel.scrolls

    def is_seen(widget: Any) -> bool:
        top = widget.winfo_rooty() - panel.winfo_rooty()
        return bool(0 <= top and top + widget.winfo_height() <= panel.winfo_height())

    assert is_seen(panel.head) and not is_seen(plots)
    x, y = panel.winfo_rootx() + 100, panel.winfo_rooty() + 200
    for button, sought in ((5, plots), (4, panel.head)):
        for _ in range(20):
            click(host, x, y, button)
        wait_until(viewer, lambda sought=sought: is_seen(sought))
    panel.see(plots)
    wait_until(viewer, lambda: is_seen(plots))
    viewer.root.geometry("1000x1300")
    wait_until(viewer, lambda: not panel.scrolls and is_seen(panel.head))


def test_a_new_flow_clears_the_plots(open_viewer: Maker) -> None:
    viewer = open_viewer(paused=False)
    wait(viewer, lambda status: len(viewer.panel.plots.trace.points()) > 3)
    viewer.do(View.pause)
    viewer.do(View.reset)
    wait(viewer, lambda status: status.ready and status.generation == 2)
    (point,) = viewer.panel.plots.trace.points()
    stats = viewer.status.stats
    assert stats is not None and point[:2] == (0.0, stats.energy)


def test_a_dashed_line_marks_the_target_of_the_reynolds_mode(viewer: Viewer) -> None:

    def dashed() -> list[int]:
        return [item for item in viewer.panel.plots.find_all() if _is_dashed(viewer, item)]

    viewer.root.geometry("1000x1300")
    live_on(viewer)
    assert not dashed()
    for mode, count in ((ADAPTED, 1), (FOLLOWS, 1), (FIXED, 0)):
        viewer.do(lambda view, mode=mode: viewer.keeper.choose(mode))
        wait_until(viewer, lambda count=count: len(dashed()) == count)


def _is_dashed(viewer: Viewer, item: int) -> bool:
    plots = viewer.panel.plots
    return plots.type(item) == "line" and bool(plots.itemcget(item, "dash"))


def test_a_trace_covers_the_whole_history_with_few_points() -> None:
    trace = Trace(limit=64)
    for n in range(10_000):
        assert trace.add((float(n), 2.0 * n))
    points = trace.points()
    assert len(points) <= 65
    assert points[0] == (0.0, 0.0) and points[-1] == (9999.0, 19998.0)
    gaps = [b[0] - a[0] for a, b in zip(points[:-1], points[1:-1])]
    assert max(gaps) < 4 * min(gaps)
    assert not trace.add((1e4, math.nan))


def test_the_color_scale_shows_the_values_of_its_ends() -> None:
    frame = zephane.Snapshot(1, 0.0, 32, 8.0, 0.5, 2.0, 3.0)
    sigma = zephane.PictureSettings(sigma=2.5)
    assert scale_texts(sigma, frame) == ("-4.5", "vorticity", "5.5")
    exposure = zephane.PictureSettings(color_range="exposure")
    assert scale_texts(exposure, frame) == ("-8", "vorticity", "8")
    assert scale_texts(zephane.PictureSettings("speed"), frame) == ("0", "speed", "3")
    assert scale_texts(zephane.PictureSettings("enstrophy"), frame) == ("0", "enstrophy", "32")
    assert scale_texts(sigma, None) == ("", "vorticity", "")


def test_the_figures_match_the_status(open_viewer: Maker) -> None:
    viewer = open_viewer(paused=False, until=0.05)
    status = wait(viewer, lambda status: status.settled and not status.running)
    live_on(viewer)
    assert "Finished" in texts_of(viewer.panel.head)
    texts = texts_of(viewer.panel.figures)
    assert status.stats is not None
    assert "0.0500 of 0.05" in texts and f"step {status.stats.steps}" in texts
    assert any(text.endswith(f"on {status.gpu}") for text in texts)
    assert "32 x 32, k0 4, seed 2, etdrk4, stress, PAO" in texts_of(viewer.panel.head)
    assert viewer.root.title() == "Zephane, 32 x 32, k0 4, seed 2"


def test_pictures_are_counted_per_second(viewer: Viewer) -> None:
    live_on(viewer, 2.0)
    (text,) = (text for text in texts_of(viewer.panel.figures) if text.endswith("pictures/s"))
    # At most the target of 60; a busy machine may draw fewer.
    assert 1 <= int(text.split()[0]) <= 70
