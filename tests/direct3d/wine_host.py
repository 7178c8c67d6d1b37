"""A host program in Wine, its windows and the library in it, operated from outside."""

from __future__ import annotations

import json
import os
import subprocess
from pathlib import Path
from typing import Any

import numpy as np
from Xlib import X, display
from Xlib.ext import xtest
from xwindow import Shot

ROOT = Path(__file__).resolve().parents[2]
WINE = str(ROOT / "scripts" / "run_in_wine")
BUILD = Path(os.environ.get("ZEPHANE_WINDOWS_BUILD", ROOT / "build" / "windows"))
HOST = BUILD / "tests" / "zephane_windows_host.exe"

SW_HIDE, SW_SHOWNOACTIVATE, SW_MINIMIZE, SW_RESTORE = 0, 4, 6, 9


def path_inside(path: Path) -> str:
    """The path of a file as Wine's programs see it."""
    return "Z:" + str(path).replace("/", "\\")


def run_wine(*command: str) -> None:
    subprocess.run([WINE, *command], check=True, stdout=subprocess.DEVNULL)


class HostProgram:
    """The running program, with the library. It ends with its input."""

    def __init__(self, **environment: str) -> None:
        self._process = subprocess.Popen(
            [WINE, path_inside(HOST), path_inside(BUILD / "zephane.dll")],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            text=True,
            env={**os.environ, **environment},
        )

    def ask(self, *request: Any) -> Any:
        assert self._process.stdin and self._process.stdout
        self._process.stdin.write(json.dumps(request) + "\n")
        self._process.stdin.flush()
        reply = self._process.stdout.readline()
        assert reply, f"the host has ended: {self._process.wait()}"
        return json.loads(reply)

    def end(self) -> int:
        assert self._process.stdin
        self._process.stdin.close()
        return self._process.wait(timeout=60)


class WineLibrary:
    """What tests call of ``abi.harness.Library``, in the host program."""

    def __init__(self, program: HostProgram) -> None:
        self.program = program
        self.c = self

    def __getattr__(self, name: str) -> Any:
        return lambda *arguments: self.program.ask(name, *arguments)

    def ui_call(self, handle: int | None, request: bytes | None) -> bytes:
        return self._reply("zp_ui_call", handle, (request or b"").decode())

    def engine_call(self, handle: int | None, request: bytes | None) -> bytes:
        return self._reply("zp_engine_call", handle, (request or b"").decode())

    def ui_attach(self, handle: int | None, window: int | None) -> bytes:
        return self._reply("zp_ui_attach", handle, window)

    def engine_create(self, configuration: bytes | None) -> int:
        made = self.program.ask("zp_engine_create", (configuration or b"").decode())
        assert isinstance(made, int), made
        return made

    def _reply(self, *request: Any) -> bytes:
        reply = self.program.ask(*request)
        assert reply, "a reply is never null"
        return str(reply).encode()


class WineWindow:
    """A window of the program at the upper left corner of the screen, like ``xwindow.Window``."""

    def __init__(self, host: WineHost, width: int, height: int) -> None:
        self.host = host
        self.id: int = host.ask("window", width, height)
        self._size = (width, height)

    @property
    def handle(self) -> WineWindow:
        """What operates the window itself; of ``xwindow.Window`` it is the X server's."""
        return self

    def raise_window(self) -> None:
        self.host.ask("raise", self.id)

    def reparent(self, parent: WineWindow, x: int, y: int) -> None:
        self.host.ask("reparent", self.id, parent.id, x, y)

    def show(self) -> None:
        self.host.ask("show", self.id, SW_SHOWNOACTIVATE)

    def hide(self) -> None:
        self.host.ask("show", self.id, SW_HIDE)

    def resize(self, width: int, height: int) -> None:
        self.host.ask("resize", self.id, width, height)
        self._size = (width, height)

    def set_state(self, state: int) -> None:
        self.host.ask("show", self.id, SW_MINIMIZE if state == 3 else SW_RESTORE)

    def destroy(self) -> None:
        self.host.ask("destroy", self.id)

    def size(self) -> tuple[int, int]:
        return self._size

    def children(self) -> list[tuple[int, ...]]:
        return [tuple(place) for place in self.host.ask("children", self.id)]

    def canvas(self) -> int:
        """The view's window."""
        child = self.host.ask("child", self.id)
        assert child
        return int(child)

    def shot(self) -> Shot:
        return self.host.shot(*self._size)

    def click(self, x: int, y: int, button: int = 1) -> None:
        self.raise_window()
        xtest.fake_input(self.host.display, X.MotionNotify, x=x, y=y)
        xtest.fake_input(self.host.display, X.ButtonPress, button)
        xtest.fake_input(self.host.display, X.ButtonRelease, button)
        self.host.display.sync()


class WineHost:
    """The program's windows and the screen that they are on, like ``xwindow.Host``."""

    def __init__(self, program: HostProgram, resolution: float) -> None:
        self.ask = program.ask
        self.resolution = resolution
        self.display = display.Display()
        self.root = self.display.screen().root
        self.windows: list[WineWindow] = []

    def window(self, width: int = 300, height: int = 300, shown: bool = True) -> WineWindow:
        made = WineWindow(self, width, height)
        self.windows.append(made)
        if shown:
            made.show()
        return made

    def set_resolution(self, dots: float | None) -> None:
        """Windows tells a program its resolution at its start."""
        assert (dots or 96) == self.resolution

    def shot(self, width: int, height: int) -> Shot:
        image = self.root.get_image(0, 0, width, height, X.ZPixmap, 0xFFFFFFFF)
        texels = np.frombuffer(image.data, np.uint8).reshape(height, width, 4)
        return texels[:, :, 2::-1].copy()

    def focus(self) -> int:
        return int(self.ask("focus"))

    def close(self) -> None:
        for window in self.windows:
            if self.ask("exists", window.id):
                window.destroy()
        self.display.close()
