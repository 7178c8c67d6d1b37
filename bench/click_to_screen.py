"""How long a click on the canvas takes to show: from the press of the button, through the X server
and the view, until a new picture can be read back from the screen.

    python3 bench/click_to_screen.py [--library PATH] [--size PIXELS] [--clicks COUNT]

Starts an X server without a screen of its own (Xvfb). Needs python-xlib.
"""

from __future__ import annotations

import argparse
import random
import statistics
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests"))

from Xlib import X  # noqa: E402
from Xlib.ext import xtest  # noqa: E402


def latencies(library: Path, size: int, clicks: int) -> list[float]:
    from abi.harness import Library
    from abi.view import View
    from xserver import XServer
    from xwindow import Host

    import os

    with XServer() as server:
        os.environ["DISPLAY"] = server.name
        loaded = Library(library)
        loaded.initialize()
        host = Host(server.name)
        window = host.window(size, size)

        def time_panel() -> bytes:
            image = window.handle.get_image(size - 110, size - 46, 90, 29, X.ZPixmap, 0xFFFFFFFF)
            return image.data

        measured = []
        with View(loaded) as view:
            view.call("running", value=False)
            view.call("configure", resolution=256, fixed_dt=0.001)
            view.show(window.id, 30)
            window.handle.raise_window()
            xtest.fake_input(host.display, X.MotionNotify, x=71, y=size - 31)  # "one step"
            host.display.sync()
            for _ in range(clicks):
                time.sleep(0.1 + random.random() / 60)  # at any phase of the presentations
                before = time_panel()
                begin = time.monotonic()
                xtest.fake_input(host.display, X.ButtonPress, 1)
                xtest.fake_input(host.display, X.ButtonRelease, 1)
                host.display.sync()
                while time_panel() == before:
                    pass
                measured.append(time.monotonic() - begin)
        host.close()
    return measured


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument(
        "--library", type=Path, default=ROOT / "build" / "release" / "libzephane.so"
    )
    parser.add_argument("--size", type=int, default=600, help="of the window, in pixels")
    parser.add_argument("--clicks", type=int, default=100)
    given = parser.parse_args()
    found = sorted(latencies(given.library, given.size, given.clicks))
    middle, late = statistics.median(found), found[int(0.95 * len(found))]
    print(
        f"{len(found)} clicks on {given.size} x {given.size} pixels, in milliseconds: "
        f"fastest {found[0] * 1000:.1f}, median {middle * 1000:.1f}, "
        f"95 % within {late * 1000:.1f}, slowest {found[-1] * 1000:.1f}"
    )


main()
