"""Why a GPU of this machine does not compute the flow, as far as Python can find out.

The library takes the first GPU that can run its kernels, else the processor, and does not say what
it has passed over. The driver is asked here directly.
"""

from __future__ import annotations

import ctypes
import os
import sys
from collections.abc import Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from .records import SystemInfo

OLDEST_CAPABILITY = (7, 5)

DRIVER = "nvcuda.dll" if sys.platform == "win32" else "libcuda.so.1"

# Numbers of the driver's interface.
CAPABILITY_MAJOR = 75
CAPABILITY_MINOR = 76

PCI_DEVICES = Path("/sys/bus/pci/devices")
NVIDIA = "0x10de"
DISPLAY_CLASS = "0x03"


@dataclass(frozen=True)
class Driver:
    """What the NVIDIA driver answers."""

    present: bool
    """Whether there is one."""
    error: str | None = None
    """Why it does not work, or None."""
    gpus: tuple[tuple[str, int, int], ...] = ()
    """Name and compute capability of each GPU."""


def passed_over(
    system: SystemInfo,
    driver: Driver | None = None,
    installed: int | None = None,
    environment: Mapping[str, str] = os.environ,
) -> list[str]:
    """A sentence for each reason why a GPU does not compute the flow; none if there is no GPU.

    The driver's answer and the number of NVIDIA GPUs that are installed are found out unless they
    are given.
    """
    driver = ask_driver() if driver is None else driver
    installed = count_installed() if installed is None else installed
    chosen = environment.get("ZEPHANE_DEVICE")
    on_gpu = system.backend.startswith("CUDA")
    if chosen is not None and not on_gpu and (driver.gpus or installed):
        return [f"ZEPHANE_DEVICE is {chosen}, which chooses the processor."]
    if chosen is not None:
        return []
    old = [_too_old(gpu) for gpu in driver.gpus[: system.device_index] if _is_old(gpu)]
    if on_gpu or old:
        return old
    if not driver.gpus and not installed:
        return []
    if system.cuda_runtime_version is None:
        return ["This library was built without its part for GPUs."]
    if not driver.present:
        return [f"There is an NVIDIA GPU, and no NVIDIA driver ({DRIVER}) is installed."]
    if driver.error is not None:
        return [f"There is an NVIDIA GPU, and its driver does not work: {driver.error}"]
    return ["There is an NVIDIA GPU, and its driver is too old for this library or hides it."]


def ask_driver(library: Any = None) -> Driver:
    """What the driver says, or another loaded library in its place."""
    if library is None:
        try:
            library = ctypes.CDLL(DRIVER)
        except OSError:
            return Driver(present=False)
    failure = library.cuInit(0)
    if failure:
        return Driver(present=True, error=_error(library, failure))
    count = ctypes.c_int()
    library.cuDeviceGetCount(ctypes.byref(count))
    return Driver(True, gpus=tuple(_describe(library, n) for n in range(count.value)))


def count_installed(devices: Path = PCI_DEVICES) -> int:
    """The number of NVIDIA GPUs on the PCI bus."""
    return sum(
        _word(device / "vendor") == NVIDIA and _word(device / "class").startswith(DISPLAY_CLASS)
        for device in (devices.iterdir() if devices.is_dir() else ())
    )


def _is_old(gpu: tuple[str, int, int]) -> bool:
    return gpu[1:] < OLDEST_CAPABILITY


def _too_old(gpu: tuple[str, int, int]) -> str:
    name, major, minor = gpu
    oldest = ".".join(map(str, OLDEST_CAPABILITY))
    return f"{name} has compute capability {major}.{minor}; the kernels need {oldest} or later."


def _describe(library: Any, number: int) -> tuple[str, int, int]:
    device = ctypes.c_int()
    library.cuDeviceGet(ctypes.byref(device), number)
    name = ctypes.create_string_buffer(256)
    library.cuDeviceGetName(name, len(name), device)
    capability = [ctypes.c_int(), ctypes.c_int()]
    for value, attribute in zip(capability, (CAPABILITY_MAJOR, CAPABILITY_MINOR)):
        library.cuDeviceGetAttribute(ctypes.byref(value), attribute, device)
    return (name.value.decode(errors="replace"), capability[0].value, capability[1].value)


def _error(library: Any, failure: int) -> str:
    text = ctypes.c_char_p()
    library.cuGetErrorString(failure, ctypes.byref(text))
    return f"{(text.value or b'unknown error').decode(errors='replace')} ({failure})"


def _word(path: Path) -> str:
    try:
        return path.read_text(encoding="ascii").strip()
    except (OSError, UnicodeDecodeError):
        return ""
