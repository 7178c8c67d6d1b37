"""What ``watch`` and the viewer do for a running flow: adapt its viscosity, pause it at rest, start
it again; and the keys that steer it.
"""

from __future__ import annotations

from typing import Any

from .errors import LOST_FLOW
from .figures import ADAPTED, FIXED, FOLLOWS, Standing
from .records import ViewStatus
from .states import OTHER_CONFIGURATION
from .view import View
from .viscosity import AdaptedViscosity


class Keeper:
    """Looks after the flow of a view. Call ``update`` ten times a second, in the place of
    ``View.status``, and start flows by the methods here.
    """

    def __init__(self, view: View, adapts: bool = False) -> None:
        self._view = view
        self._viscosity = AdaptedViscosity(view)
        self._adapts = adapts
        # The flow that was paused because it came to rest. One that is run on is left alone.
        self._rested: int | None = None

    def standing(self, status: ViewStatus) -> Standing:
        view = self._view
        mode = FOLLOWS if status.regulated else ADAPTED if self._adapts else FIXED
        return Standing(mode, view.at_rest, view.grows, view.failed)

    def update(self) -> ViewStatus:
        status = self._viscosity.update() if self._adapts else self._view.status()
        if (status.error_message or "").startswith(OTHER_CONFIGURATION):
            # A new flow, of another seed say, does not begin from the state that the first did.
            self._view.benchmark(state=None)
            self._view.dismiss()
            status = self._viscosity.reset()
        if self._view.at_rest and self._rested != status.generation:
            self._rested = status.generation
            status = self._view.pause()
        if self._view.at_rest and status.error_message == LOST_FLOW:
            status = self._view.dismiss()
        return status

    def choose(self, mode: str) -> ViewStatus:
        """Choose what moves the Reynolds number: one of ``REYNOLDS_MODES``."""
        self._adapts = mode == ADAPTED
        return self._view.set(regulated=mode == FOLLOWS)

    def toggle_adapted(self) -> ViewStatus:
        return self.choose(FIXED if self._adapts else ADAPTED)

    def toggle(self) -> ViewStatus:
        return self._view.status() if self._view.failed else self._view.toggle()

    def step(self) -> ViewStatus:
        return self._view.status() if self._view.failed else self._view.step()

    def reset(self) -> ViewStatus:
        return self._viscosity.reset()

    def next_seed(self) -> ViewStatus:
        return self._viscosity.next_seed()

    def configure(self, **changes: Any) -> ViewStatus:
        return self._viscosity.configure(**changes)


# The keys that steer a flow, the same on a terminal and in a window.
FLOW_KEYS = (
    ("space", "pause or run the flow"),
    ("s", "take one step and pause"),
    ("r", "the same flow again from its start"),
    ("n", "a new flow from the next seed"),
    ("a", "adapt the viscosity to what the grid resolves, or leave it"),
)

FLOW_OPERATIONS = {
    "space": Keeper.toggle,
    "s": Keeper.step,
    "r": Keeper.reset,
    "n": Keeper.next_seed,
    "a": Keeper.toggle_adapted,
}
