"""Shows a running flow in a Tk window.

    python3 window_tk.py

Space pauses. Needs an X11 display, tkinter and a Vulkan driver.
"""

from __future__ import annotations

import sys
import tkinter as tk

import zephane

STATUS_MILLISECONDS = 100


class Window:
    def __init__(self, view: zephane.View) -> None:
        self.view = view
        self.failure: str | None = None
        self.root = tk.Tk()
        self.root.title("Zephane in Tk")
        self.label = tk.Label(self.root, anchor="w", font="TkFixedFont")
        self.label.pack(side="bottom", fill="x", padx=6, pady=4)
        # The library draws into this frame, and nothing else may.
        self.picture = tk.Frame(self.root, width=600, height=600)
        self.picture.pack(fill="both", expand=True)
        self.root.bind("<space>", lambda event: self.view.toggle())
        self.root.protocol("WM_DELETE_WINDOW", self.close)
        self.root.update()  # attach() needs a window that the X server knows.
        view.attach(self.picture.winfo_id())
        view.start()
        self.show_status()

    def show_status(self) -> None:
        status = self.view.status()
        if status.error_message is not None:
            self.failure = status.error_message
            self.close()
            return
        if status.stats is not None:
            self.label["text"] = (
                f"time {status.stats.simulation_time:8.3f}   energy {status.stats.energy:.5f}   "
                f"{status.performance.steps_per_s:6.0f} steps/s"
            )
        self.root.after(STATUS_MILLISECONDS, self.show_status)

    def close(self) -> None:
        """Close the view first, which draws into the window until then."""
        status = self.view.status()
        steps = status.stats.steps if status.stats is not None else 0
        print(f"{steps} steps, {status.presentations} pictures")
        self.view.close()
        self.root.destroy()


def main() -> None:
    # Views belong to one thread, the one that initializes the library: here, the main thread.
    window = Window(zephane.View(resolution=256, regulated=False))
    window.root.mainloop()
    if window.failure is not None:
        sys.exit(f"window_tk.py: {window.failure}")


if __name__ == "__main__":
    try:
        main()
    except (zephane.ZephaneError, tk.TclError) as failure:
        sys.exit(f"window_tk.py: {failure}")
