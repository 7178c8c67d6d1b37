"""Shows a running flow in a Qt window.

    python3 window_qt.py

Space pauses. Needs an X11 display, PyQt6 and a Vulkan driver.
"""

from __future__ import annotations

import os
import sys

from PyQt6.QtCore import Qt, QTimer
from PyQt6.QtGui import QCloseEvent, QKeyEvent
from PyQt6.QtWidgets import QApplication, QLabel, QVBoxLayout, QWidget

import zephane

STATUS_MILLISECONDS = 100


class Window(QWidget):
    def __init__(self, view: zephane.View) -> None:
        super().__init__()
        self.view = view
        self.failure: str | None = None
        self.setWindowTitle("Zephane in Qt")
        # The library draws into this widget, which therefore is an X11 window of its own.
        self.picture = QWidget()
        self.picture.setAttribute(Qt.WidgetAttribute.WA_NativeWindow)
        self.picture.setMinimumSize(200, 200)
        self.label = QLabel()
        layout = QVBoxLayout(self)
        layout.setContentsMargins(0, 0, 0, 6)
        layout.addWidget(self.picture, stretch=1)
        layout.addWidget(self.label)
        self.resize(600, 640)
        self.show()
        view.attach(int(self.picture.winId()))
        view.start()
        self.timer = QTimer(self)
        self.timer.timeout.connect(self.show_status)
        self.timer.start(STATUS_MILLISECONDS)

    def show_status(self) -> None:
        status = self.view.status()
        if status.error_message is not None:
            self.failure = status.error_message
            self.close()
        elif status.stats is not None:
            self.label.setText(
                f"  time {status.stats.simulation_time:.3f}   energy {status.stats.energy:.5f}   "
                f"{status.performance.steps_per_s:.0f} steps/s"
            )

    def keyPressEvent(self, event: QKeyEvent) -> None:
        if event.key() == Qt.Key.Key_Space:
            self.view.toggle()

    def closeEvent(self, event: QCloseEvent) -> None:
        """Close the view first, which draws into the window until then."""
        if not self.view.closed:
            self.timer.stop()
            status = self.view.status()
            steps = status.stats.steps if status.stats is not None else 0
            print(f"{steps} steps, {status.presentations} pictures")
            self.view.close()


def main() -> None:
    os.environ["QT_QPA_PLATFORM"] = "xcb"  # X11, on a Wayland desktop too.
    application = QApplication(sys.argv[:1])
    # Views belong to one thread, the one that initializes the library: here, the main thread.
    window = Window(zephane.View(resolution=256, regulated=False))
    application.exec()
    if window.failure is not None:
        sys.exit(f"window_qt.py: {window.failure}")


if __name__ == "__main__":
    try:
        main()
    except zephane.ZephaneError as failure:
        sys.exit(f"window_qt.py: {failure}")
