"""The widget's part in the kernel, driven as a browser would."""

from __future__ import annotations

import asyncio
import io
import sys
import threading
import time
from collections.abc import Awaitable, Iterator
from pathlib import Path
from typing import Any, Callable

import jupyter
import numpy as np
import pytest
from PIL import Image

import zephane

LIMIT_SECONDS = 30.0


@pytest.fixture(scope="module")
def anywidget() -> Iterator[Any]:
    jupyter.program("python")
    sys.path.append(jupyter.modules())
    try:
        import anywidget as module

        yield module
    finally:
        sys.path.remove(jupyter.modules())


class Browser:
    """What the other end of a widget gets and sends."""

    def __init__(self, widget: Any) -> None:
        self.widget = widget
        self.pictures: list[bytes] = []
        self.numbers: list[int] = []
        widget.send = self._take
        self.confirms = False

    def _take(self, content: dict[str, int], buffers: list[bytes]) -> None:
        self.pictures += buffers
        self.numbers.append(content["picture"])
        if self.confirms:
            self.say(seen=content["picture"])

    def say(self, **content: Any) -> None:
        self.widget._receive(self.widget, content, [])

    @property
    def figures(self) -> dict[str, Any]:
        return dict(self.widget.figures)

    def image(self) -> Any:
        return np.asarray(Image.open(io.BytesIO(self.pictures[-1])).convert("RGB")).astype(int)

    async def until(self, condition: Callable[[], Any]) -> None:
        end = time.monotonic() + LIMIT_SECONDS
        while not condition():
            assert time.monotonic() < end, self.figures
            await asyncio.sleep(0.01)


@pytest.fixture
def in_notebook(anywidget, library_path: Path, system) -> Callable[..., None]:
    """Runs a test in an event loop with a view of 64 x 64 points and its widget."""

    def run(work: Callable[[zephane.View, Browser], Awaitable[None]], **settings: Any) -> None:
        async def whole() -> None:
            pixels = settings.pop("pixels", 512)
            paused = settings.pop("paused", True)
            flow = {"resolution": 64, "fixed_dt": 1e-3, **settings}
            with zephane.View(library=library_path, **flow) as view:
                if paused:
                    view.pause()
                browser = Browser(zephane.widget(view, pixels=pixels))
                await browser.until(lambda: view.status().ready)
                await work(view, browser)
                browser.widget.close()
                await asyncio.wait_for(browser.widget._task, LIMIT_SECONDS)

        asyncio.run(whole())

    return run


def test_the_controls_steer_the_flow(in_notebook) -> None:
    async def work(view: zephane.View, browser: Browser) -> None:
        await browser.until(lambda: browser.figures["word"] == "paused")
        assert browser.figures["title"].startswith("64 x 64, k0 4, seed 2")
        browser.say(do="step")
        await browser.until(lambda: view.status().stats.steps == 1)
        browser.say(do="toggle")
        await browser.until(lambda: browser.figures["running"])
        browser.say(do="toggle")
        await browser.until(lambda: browser.figures["word"] == "paused")
        assert view.status().stats.steps > 1
        browser.say(do="reset")
        await browser.until(lambda: view.status().ready and view.status().stats.steps == 0)
        browser.say(do="next_seed")
        await browser.until(lambda: browser.figures["seed"] == "3")
        browser.say(seed=str(2**64 - 1))
        await browser.until(lambda: view.status().config.seed == 2**64 - 1)
        browser.say(set={"log_reynolds": 3.5})
        await browser.until(lambda: browser.figures["log_reynolds"] == 3.5)
        browser.say(set={"palette": "aurora"})
        browser.say(set={"display": "speed"})
        await browser.until(lambda: browser.figures["display"] == "speed")
        assert browser.figures["palette"] == "aurora"
        browser.say(do="adapt")
        await browser.until(lambda: browser.figures["adapted"] == "adapted")

    in_notebook(work)


def test_nonsense_is_answered_in_a_sentence(in_notebook) -> None:
    async def work(view: zephane.View, browser: Browser) -> None:
        for content, words in (
            ({"seed": "-1"}, "seed -1 is negative"),
            ({"seed": "two"}, 'seed "two" is no whole number'),
            ({"set": {"palette": "grey"}}, "grey"),
            ({"set": {"colour": "red"}}, "colour"),
        ):
            browser.say(**content)
            await browser.until(lambda: words in browser.figures["error"])
        browser.say(do="explode")
        await browser.until(lambda: browser.figures["error"] == "")
        assert view.status().config.seed == 2

    in_notebook(work)


def test_no_picture_is_made_unless_one_is_seen(in_notebook, monkeypatch) -> None:
    async def work(view: zephane.View, browser: Browser) -> None:
        saved: list[str] = []
        export = view.export
        monkeypatch.setattr(view, "export", lambda **to: (saved.append(to["state"]), export(**to)))
        await asyncio.sleep(0.3)
        assert saved == []

        browser.say(seen=0)
        await browser.until(lambda: len(browser.pictures) >= 8)
        await asyncio.sleep(0.3)  # It is not confirmed.
        most = len(saved)
        assert most <= 10 and browser.numbers == list(range(1, len(browser.numbers) + 1))
        await asyncio.sleep(0.5)
        assert len(saved) == most

        browser.confirms = True
        browser.say(seen=8)
        await browser.until(lambda: len(browser.pictures) > 20)
        browser.say(do="toggle")
        await browser.until(lambda: browser.figures["word"] == "paused")
        await asyncio.sleep(0.2)
        most = len(saved)  # A flow that is paused is drawn once.
        await asyncio.sleep(0.5)
        assert len(saved) == most
        browser.say(set={"palette": "glacier"})
        await browser.until(lambda: len(saved) == most + 1)
        browser.say(seen=0)  # Another browser, which has no picture yet.
        await browser.until(lambda: len(saved) == most + 2)

    in_notebook(work, paused=False)


def test_a_hidden_widget_of_a_paused_flow_takes_no_time(in_notebook) -> None:
    async def work(view: zephane.View, browser: Browser) -> None:
        await asyncio.sleep(0.2)
        began = time.process_time()
        await asyncio.sleep(1.0)
        assert time.process_time() - began < 0.03

    in_notebook(work)


@pytest.mark.parametrize("display", zephane.DISPLAYS)
def test_the_picture_is_that_of_the_fields(
    in_notebook, library_path: Path, tmp_path: Path, display: str
) -> None:
    from zephane.shading import picture_png

    async def work(view: zephane.View, browser: Browser) -> None:
        view.set(display=display)
        browser.say(seen=0)
        await browser.until(lambda: browser.pictures and view.status().settled)
        view.export(state=tmp_path / "flow")
        settings = zephane.PictureSettings(display=display, color_range="exposure", exposure=0.7)
        with zephane.Engine.load(tmp_path / "flow", library=library_path) as engine:
            fields = engine.fields()
        seen, count = browser.image(), browser.widget.side // 64
        browser.pictures.append(picture_png(settings, *(plane[::2, ::2] for plane in fields)))
        expected = browser.image()
        # Of the finer grid there are all waves that the picture holds.
        assert seen.shape == (64, 64, 3) and count == 1
        assert np.abs(seen - expected).max() <= 12 and np.abs(seen - expected).mean() < 0.5

    # Waves beyond a wavenumber of 20 have no energy at the start, so that nothing is cut off.
    in_notebook(work, pixels=64, resolution=128)


def test_the_picture_is_saved_by_the_library(in_notebook, tmp_path: Path, monkeypatch) -> None:
    monkeypatch.chdir(tmp_path)
    monkeypatch.setattr("zephane.notebook_widget.SAVED_PIXELS", 90)

    async def work(view: zephane.View, browser: Browser) -> None:
        for name in ("zephane-seed-2-time-0.000.png", "zephane-seed-2-time-0.000-2.png"):
            browser.say(do="save")
            await browser.until(lambda: browser.figures["news"] == f"Saved {name}")
            assert Image.open(tmp_path / name).size == (90, 90)
        assert browser.widget.save("own.png", pixels=40) == "own.png"
        assert Image.open("own.png").size == (40, 40)
        with pytest.raises(zephane.ZephaneError, match="own.gif ends in .gif"):
            browser.widget.save("own.gif")
        monkeypatch.setattr("zephane.notebook_widget._free_name", lambda *of: "/nowhere/a.png")
        browser.say(do="save")
        await browser.until(lambda: "/nowhere/a.png" in browser.figures["error"])

    in_notebook(work)


def test_a_picture_that_cannot_be_made_is_explained_and_tried_again(
    in_notebook, monkeypatch
) -> None:
    def full(size: int) -> Any:
        raise OSError(28, "No space left on device")

    async def work(view: zephane.View, browser: Browser) -> None:
        with monkeypatch.context() as context:
            context.setattr("zephane.live_pictures.memory_file", full)
            browser.say(seen=0)
            await browser.until(lambda: "No space left on device" in browser.figures["error"])
        await browser.until(lambda: browser.pictures and browser.figures["error"] == "")

    in_notebook(work)


def test_closing_the_view_ends_the_widget(anywidget, library_path: Path, system) -> None:
    async def work() -> None:
        view = zephane.View(library=library_path, resolution=32)
        browser = Browser(zephane.widget(view))
        browser.say(seen=0)
        await browser.until(lambda: browser.pictures)
        view.close()
        await asyncio.wait_for(browser.widget._task, LIMIT_SECONDS)
        assert browser.figures["word"] == "closed"
        browser.say(do="toggle")
        browser.say(seen=0)
        await asyncio.sleep(0.1)
        assert "image/png" not in browser.widget._repr_mimebundle_()[0]

    asyncio.run(work())


def test_a_displayed_widget_leaves_a_picture_in_the_notebook(in_notebook) -> None:
    async def work(view: zephane.View, browser: Browser) -> None:
        bundle, _ = browser.widget._repr_mimebundle_()
        assert {"application/vnd.jupyter.widget-view+json", "image/png"} <= set(bundle)

    in_notebook(work)


def test_a_message_on_another_thread_is_carried_out(in_notebook) -> None:
    async def work(view: zephane.View, browser: Browser) -> None:
        thread = threading.Thread(target=lambda: browser.say(do="step"))
        thread.start()
        thread.join()
        await browser.until(lambda: view.status().stats.steps == 1)

    in_notebook(work)


@pytest.mark.parametrize(
    "arguments, words",
    [
        ({"pixels": 63}, "pixels 63 is too small: whole numbers from 64 to 2048"),
        ({"pixels": "big"}, 'pixels "big" is no whole number'),
        ({"palette": "grey"}, 'palette "grey" is unknown'),
        ({"display": "sound"}, 'display "sound" is unknown'),
        ({"exposure": float("nan")}, "exposure nan"),
        ({"view": 1}, "1 is no View: a widget shows a zephane.View"),
    ],
)
def test_wrong_arguments_are_refused(
    anywidget, library_path: Path, system, arguments: dict[str, Any], words: str
) -> None:
    with zephane.View(library=library_path, resolution=32) as view:
        given = {"view": view, **arguments}
        with pytest.raises(zephane.InvalidValueError, match=words):
            zephane.widget(given.pop("view"), **given)
        assert view.status().generation == 0


def test_outside_a_notebook_a_widget_is_refused(anywidget, library_path: Path, system) -> None:
    with zephane.View(library=library_path, resolution=32) as view:
        with pytest.raises(zephane.ZephaneError, match="needs the kernel of a notebook"):
            zephane.widget(view)


@pytest.mark.parametrize("module", ["anywidget", "numpy"])
def test_a_missing_package_is_named(library_path: Path, system, monkeypatch, module: str) -> None:
    monkeypatch.setitem(sys.modules, module, None)
    with zephane.View(library=library_path, resolution=32) as view:
        with pytest.raises(zephane.ZephaneError) as refusal:
            zephane.widget(view)
    assert str(refusal.value) == (
        f"A widget needs {module}, which is missing: pip install 'zephane[notebook]'"
    )
