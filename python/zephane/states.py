"""State files: what one says about its flow, and why one cannot be used."""

from __future__ import annotations

import dataclasses
import json
import math
import os
from dataclasses import dataclass
from typing import Any

from .errors import InvalidValueError, ZephaneError
from .outputs import PathLike
from .records import Config
from .refusals import checked_config, memory_refusal

LENGTH_BYTES = 8
LONGEST_HEADER = 1 << 20
# The header, and the two arrays of N x (N/2 + 1) complex numbers.
HEADER_BYTES = 2048

UNREADABLE = "Cannot read state file: "
OTHER_CONFIGURATION = "State of another configuration: "


@dataclass(frozen=True)
class SavedState:
    """What a state file says about its flow, from its header alone.

    Only ``Engine.load`` reads the rest of the file, and finds out whether it is whole.
    """

    config: Config
    """The configuration with which the flow was made."""
    reynolds: float
    """The Reynolds number in force."""
    cfl: float
    """The Courant number in force."""
    simulation_time: float
    """Time of the flow."""
    steps: int
    """Steps taken since time 0."""
    initial_turnover_time: float
    """Turnover time of the eddies at the start; 0 for a fluid at rest."""
    library: str
    """The version of the library that saved it."""
    device: str
    """The name of the device that computed it."""

    @property
    def config_in_force(self) -> Config:
        """The configuration with the Reynolds and the Courant number in force."""
        return dataclasses.replace(self.config, reynolds=self.reynolds, cfl=self.cfl)


def read_state(path: PathLike) -> SavedState:
    """Read what a state file says about its flow: its configuration, its time, its device.

    The arrays are not read, so this takes no time however large the flow is. Raises
    ``ZephaneError`` if the file cannot be read or is no state.
    """
    try:
        with open(path, "rb") as file:
            length = int.from_bytes(file.read(LENGTH_BYTES), "little")
            header = file.read(min(length, LONGEST_HEADER))
    except (OSError, ValueError) as failure:
        raise ZephaneError(f"Cannot read {os.fspath(path)}: {_reason(failure)}") from failure
    try:
        return _described(json.loads(header)["__metadata__"])
    except (KeyError, TypeError, ValueError, RecursionError) as failure:
        raise ZephaneError(f"{os.fspath(path)} is no state of a flow") from failure


def state_config(path: PathLike, changes: dict[str, Any]) -> Config:
    """The configuration with which a flow goes on from a state. ``changes`` may replace the
    Reynolds and the Courant number in force; of the other members they are refused.
    """
    saved = read_state(path).config_in_force
    config = checked_config(dataclasses.replace(saved, **changes))
    for key in changes.keys() - {"reynolds", "cfl"}:
        before, now = getattr(saved, key), getattr(config, key)
        if now != before:
            raise InvalidValueError(
                f"{os.fspath(path)} is of another configuration: {key} is {before}, not {now}"
            )
    return config


def state_bytes(resolution: int) -> int:
    """The size of a state file, or a little more."""
    return HEADER_BYTES + 2 * 8 * resolution * (resolution // 2 + 1)


def explain_state(failure: ZephaneError, path: str, available: int) -> ZephaneError:
    """Why a flow cannot go on from a state file, with the name of the file."""
    text = str(failure)
    if text.startswith(UNREADABLE):
        reason = text[len(UNREADABLE) :].removesuffix(f': "{path}"')
        return ZephaneError(f"Cannot read {path}: {reason}")
    if text.startswith(OTHER_CONFIGURATION):
        difference = text[len(OTHER_CONFIGURATION) :]
        return InvalidValueError(f"{path} is of another configuration: {difference}")
    if text.endswith("out of memory") or text == "std::bad_alloc":
        return ZephaneError(f"{text}. {memory_refusal(read_state(path).config, available)}")
    return ZephaneError(f"Cannot go on from {path}: {text}")


def _reason(failure: Exception) -> str:
    return getattr(failure, "strerror", None) or str(failure)


def _described(metadata: Any) -> SavedState:
    if metadata["format"] != "zephane state":
        raise ValueError("another format")
    clock = json.loads(metadata["clock"])
    settings = json.loads(metadata["settings"])
    time = clock["time_low"] + clock["time_high"]
    if not math.isfinite(time):
        raise ValueError("no time")
    return SavedState(
        config=Config.from_json(json.loads(metadata["configuration"])),
        reynolds=float(settings["reynolds"]),
        cfl=float(settings["cfl"]),
        simulation_time=time,
        steps=int(clock["steps"]),
        initial_turnover_time=float(clock["initial_turnover_time"]),
        library=metadata["library"],
        device=metadata["device"],
    )
