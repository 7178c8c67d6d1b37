"""The widget of a flow: what runs in the kernel. notebook_widget.js runs in the browser.

The view belongs to the kernel's main thread, and so all its operations run in the event loop there.
A picture is coded on another thread meanwhile. Pictures are sent as long as the browser confirms
those before: it does where the widget is visible, so that a hidden one costs nothing.
"""

from __future__ import annotations

import asyncio
import base64
import math
import os
import time
from pathlib import Path
from typing import Any

import anywidget
import traitlets

from .engine import Engine
from .errors import ZephaneError
from .figures import (
    config_facts,
    eddy_facts,
    energy_facts,
    notes,
    reynolds_facts,
    speed_facts,
    state,
    state_style,
    time_facts,
)
from .keeper import Keeper
from .live_pictures import Spectrum, live_png, memory_file, spectrum_of
from .outputs import PathLike, checked_picture
from .records import DISPLAYS, PALETTES, PictureSettings, ViewStatus
from .states import state_bytes
from .view import View

FOLDER = Path(__file__).parent

PICTURE_SECONDS = 1.0 / 30.0
FIGURE_SECONDS = 0.25
# Where nobody looks, the flow is still paused when it comes to rest.
UNSEEN_SECONDS = 1.0
# A new flow is awaited so long when its widget is displayed.
READY_SECONDS = 2.0
# In which the kernel comes to its other work.
LEAST_REST_SECONDS = 0.001
# Pictures on their way to the browser. It confirms every fourth.
MOST_UNSEEN = 8

SAVED_PIXELS = 1800

OPERATIONS = {
    "toggle": Keeper.toggle,
    "step": Keeper.step,
    "reset": Keeper.reset,
    "next_seed": Keeper.next_seed,
    "adapt": Keeper.toggle_adapted,
}


class FlowWidget(anywidget.AnyWidget):
    """A view's flow in a notebook, as ``zephane.widget`` makes it."""

    _esm = (FOLDER / "notebook_widget.js").read_text(encoding="utf-8")
    _css = (FOLDER / "notebook_widget.css").read_text(encoding="utf-8")

    side = traitlets.Int(read_only=True).tag(sync=True)
    choices = traitlets.Dict({"display": list(DISPLAYS), "palette": list(PALETTES)}).tag(sync=True)
    figures = traitlets.Dict(read_only=True).tag(sync=True)

    def __init__(
        self, view: View, loop: asyncio.AbstractEventLoop, side: int, adapts: bool
    ) -> None:
        self.view = view
        self._loop = loop
        super().__init__()
        self.set_trait("side", side)
        self.pictures = 0
        """Pictures that were sent to the browser."""
        self._keeper = Keeper(view, adapts)
        self._confirmed = -MOST_UNSEEN  # Nothing is sent before a browser has asked.
        self._shown: tuple[Any, ...] | None = None
        self._news: str | None = None
        self._refusal: str | None = None
        self._trouble: str | None = None
        self._told = 0.0
        self._has_frames = True
        self._coding: asyncio.Task[None] | None = None
        self._saving: asyncio.Task[None] | None = None
        self._wakened = asyncio.Event()
        self.on_msg(self._receive)
        self._show_figures(self._keeper.update())
        self._task = loop.create_task(self._run())

    def save(self, path: PathLike | None = None, pixels: int = SAVED_PIXELS) -> str:
        """Let the library draw the flow into a PNG file, and return its path. Without ``path`` the
        file gets a new name in the working folder, of the seed and the time.
        """
        status = self.view.status()
        with memory_file(state_bytes(status.config.resolution)) as saved:
            self.view.export(state=saved)
            return _draw(saved, path, pixels, _settings(status))

    def close(self) -> None:
        """End the widget. The view goes on."""
        super().close()
        if not self._loop.is_closed():
            self._loop.call_soon_threadsafe(self._wakened.set)

    def _repr_mimebundle_(self, **kwargs: Any) -> Any:
        """With a picture, which remains where the notebook is read without a kernel."""
        bundle = super()._repr_mimebundle_(**kwargs)
        if bundle is None:
            return None
        try:
            status = self.view.wait(lambda status: status.ready, READY_SECONDS)
            size = status.config.resolution
            png = live_png(spectrum_of(self._save_state, size, self.side), _settings(status))
            bundle[0]["image/png"] = base64.b64encode(png).decode("ascii")
        except (ZephaneError, TimeoutError):
            pass
        return bundle

    def _save_state(self, path: str) -> None:
        """Save the flow as it is, after the steps under way."""
        self.view.export(state=path)

    # The event loop

    async def _run(self) -> None:
        while self.comm is not None and not self.view.closed:
            began = time.monotonic()
            try:
                rest, self._trouble = await self._turn(), None
            except (ZephaneError, OSError) as failure:
                rest, self._trouble = UNSEEN_SECONDS, f"No picture: {failure}"
            wait = max(rest - (time.monotonic() - began), LEAST_REST_SECONDS)
            try:
                await asyncio.wait_for(self._wakened.wait(), wait)
            except asyncio.TimeoutError:
                pass
        if not self.view.closed:
            self.view.visible(True)
        elif self.comm is not None:
            self.set_trait("figures", {**self.figures, "word": "closed", "error": "", "notes": []})

    async def _turn(self) -> float:
        """Show what is new. Returns the time until there may be more, unless a message comes."""
        self._wakened.clear()
        status = self._look()
        is_seen = self.pictures - self._confirmed < MOST_UNSEEN
        self._show_figures(status)
        if is_seen:
            await self._show_picture(status)
        if status.error_message is None and not (status.ready and status.settled):
            return PICTURE_SECONDS if is_seen or not status.ready else UNSEEN_SECONDS
        return FIGURE_SECONDS if is_seen else UNSEEN_SECONDS

    def _look(self) -> ViewStatus:
        """The view's status. A flow is ready with its first frame; without a window none is needed
        after that.
        """
        status = self._keeper.update()
        wanted = status.canvas is not None or not status.ready
        if wanted != self._has_frames:
            self._has_frames = wanted
            status = self.view.visible(wanted)
        return status

    async def _show_picture(self, status: ViewStatus) -> None:
        settings, stats = _settings(status), status.stats
        if not status.ready or stats is None or self._keeper.standing(status).failed:
            return
        shown = (status.generation, stats.steps, settings, status.settled)
        if shown == self._shown and not status.running:
            return
        spectrum = spectrum_of(self._save_state, status.config.resolution, self.side)
        self._shown = shown
        if self._coding is not None:
            await self._coding
        self._coding = self._loop.create_task(self._send_picture(spectrum, settings))

    async def _send_picture(self, spectrum: Spectrum, settings: PictureSettings) -> None:
        """Code a picture, while the next state is being saved, and send it."""
        png = await asyncio.to_thread(live_png, spectrum, settings)
        self.pictures += 1
        self.send({"picture": self.pictures}, [png])

    def _show_figures(self, status: ViewStatus) -> None:
        now = time.monotonic()
        told = self._described(status)
        before = self.figures
        is_urgent = any(told[key] != before.get(key) for key in told if key != "lines")
        if is_urgent or (told != before and now - self._told >= FIGURE_SECONDS):
            self._told = now
            self.set_trait("figures", told)

    def _described(self, status: ViewStatus) -> dict[str, Any]:
        standing = self._keeper.standing(status)
        word = state(status, None, standing)
        eddies = [fact if isinstance(fact, str) else fact[0] for fact in eddy_facts(status)]
        lines = {
            "time": time_facts(status, None),
            "speed": speed_facts(status)[:3],
            "Reynolds": reynolds_facts(status, standing),
            "eddies": eddies,
            "energy": energy_facts(status),
        }
        return {
            "word": word,
            "style": state_style(word),
            "title": ", ".join(config_facts(status.config)),
            "lines": [[name, "   ".join(facts)] for name, facts in lines.items() if facts],
            "notes": [sentence for sentence, _ in notes(status, standing)],
            "error": self._refusal or status.error_message or self._trouble or "",
            "news": self._news or "",
            "running": status.running,
            "failed": standing.failed,
            "adapted": standing.reynolds_mode,
            "display": status.display,
            "palette": status.palette,
            "seed": str(status.config.seed),
            "log_reynolds": round(math.log10(status.effective_reynolds), 3),
        }

    # Messages of the browser

    def _receive(self, _: Any, content: Any, buffers: Any) -> None:
        """A message of the browser, on whichever thread the kernel reads it."""
        self._loop.call_soon_threadsafe(self._handle, content)

    def _handle(self, content: Any) -> None:
        if self.view.closed:
            return
        if "seen" in content:
            self._confirm(content["seen"])
            return
        self._refusal = self._news = None
        try:
            self._carry_out(content)
        except (ZephaneError, TypeError) as refusal:
            self._refuse(refusal)
        self._wakened.set()

    def _confirm(self, number: int) -> None:
        """Picture ``number`` was seen; 0 comes from a browser that has none yet."""
        if number == 0:
            self._shown = None
        was_unseen = self.pictures - self._confirmed >= MOST_UNSEEN
        # What has been sent to a browser that was reloaded is lost.
        self._confirmed = self.pictures if number == 0 or was_unseen else number
        if was_unseen:
            self._wakened.set()

    def _carry_out(self, content: dict[str, Any]) -> None:
        if content.get("do") == "save":
            self._saving = self._loop.create_task(self._save())
        elif content.get("do") in OPERATIONS:
            OPERATIONS[content["do"]](self._keeper)
        elif "set" in content:
            self.view.set(**content["set"])
        elif "seed" in content:
            self._keeper.configure(seed=content["seed"])

    async def _save(self) -> None:
        try:
            status = self.view.status()
            with memory_file(state_bytes(status.config.resolution)) as saved:
                self.view.export(state=saved)
                settings = _settings(status)
                path = await asyncio.to_thread(_draw, saved, None, SAVED_PIXELS, settings)
        except ZephaneError as failure:
            self._refuse(failure)
        else:
            self._news = f"Saved {path}"
        self._wakened.set()

    def _refuse(self, failure: Exception) -> None:
        self._refusal = str(failure)
        if not self.view.closed:
            self._show_figures(self.view.status())


def running_loop() -> asyncio.AbstractEventLoop | None:
    """The event loop in which this thread runs, or None."""
    try:
        return asyncio.get_running_loop()
    except RuntimeError:
        return None


def _settings(status: ViewStatus) -> PictureSettings:
    return PictureSettings(
        status.display,
        status.palette,
        status.color_range,
        status.exposure,
        status.sigma,
        status.flow,
    )


def _draw(state: str, path: PathLike | None, pixels: int, settings: PictureSettings) -> str:
    """Draw a saved flow into a PNG file."""
    with Engine.load(state) as engine:
        now = engine.advance(steps=0, fresh=False).simulation_time
        text = _free_name(engine.config.seed, now) if path is None else os.fspath(path)
        checked_picture(text)
        engine.export(
            png=text,
            pixel_size=pixels,
            include_velocity=settings.needs_velocity,
            display=settings.display,
            palette=settings.palette,
            color_range=settings.color_range,
            exposure=settings.exposure,
            sigma=settings.sigma,
            flow=settings.flow,
        )
    return text


def _free_name(seed: int, time: float) -> str:
    """A name for a picture in the working folder that no file has."""
    stem, number = f"zephane-seed-{seed}-time-{time:.3f}", 1
    name = f"{stem}.png"
    while os.path.exists(name):
        number += 1
        name = f"{stem}-{number}.png"
    return name
