"""Why a GPU does not compute the flow: what the machine description says beside the library."""

from __future__ import annotations

import ctypes
import dataclasses
from pathlib import Path
from typing import Any

import pytest

import zephane
from zephane.gpus import Driver, ask_driver, count_installed, passed_over
from zephane.report import describe_system

OLD, NEW = ("GeForce GTX 1080", 6, 1), ("T4", 7, 5)
WORKING = Driver(present=True, gpus=(OLD,))
TOO_OLD = "GeForce GTX 1080 has compute capability 6.1; the kernels need 7.5 or later."


@pytest.fixture
def processor(system: zephane.SystemInfo) -> zephane.SystemInfo:
    return dataclasses.replace(
        system, backend="CPU / built-in FFT", device_index=1, cuda_runtime_version=13000
    )


@pytest.mark.parametrize(
    "driver, installed, reasons",
    [
        (WORKING, 1, [TOO_OLD]),
        (Driver(present=False), 0, []),
        (Driver(present=True), 0, []),
        (
            Driver(present=False),
            1,
            ["There is an NVIDIA GPU, and no NVIDIA driver (libcuda.so.1) is installed."],
        ),
        (
            Driver(present=True, error="no CUDA-capable device is detected (100)"),
            1,
            [
                "There is an NVIDIA GPU, and its driver does not work: no CUDA-capable device is "
                "detected (100)"
            ],
        ),
        (
            Driver(present=True, gpus=(NEW,)),
            1,
            ["There is an NVIDIA GPU, and its driver is too old for this library or hides it."],
        ),
    ],
)
def test_the_reason_is_told_where_there_is_a_gpu(
    processor: zephane.SystemInfo, driver: Driver, installed: int, reasons: list[str]
) -> None:
    assert passed_over(processor, driver, installed, {}) == reasons


def test_a_choice_is_a_reason(processor: zephane.SystemInfo) -> None:
    chosen = {"ZEPHANE_DEVICE": "1"}
    words = ["ZEPHANE_DEVICE is 1, which chooses the processor."]
    assert passed_over(processor, WORKING, 1, chosen) == words
    assert passed_over(processor, Driver(present=False), 0, chosen) == []


def test_a_library_without_its_part_for_gpus_says_so(processor: zephane.SystemInfo) -> None:
    without = dataclasses.replace(processor, cuda_runtime_version=None, device_index=0)
    words = ["This library was built without its part for GPUs."]
    assert passed_over(without, Driver(present=True, gpus=(NEW,)), 1, {}) == words


def test_an_older_gpu_before_the_one_that_computes_is_told(processor: zephane.SystemInfo) -> None:
    on_gpu = dataclasses.replace(processor, backend="CUDA / VkFFT", device_index=1)
    assert passed_over(on_gpu, Driver(present=True, gpus=(OLD, NEW)), 2, {}) == [TOO_OLD]
    first = dataclasses.replace(on_gpu, device_index=0)
    assert passed_over(first, Driver(present=True, gpus=(NEW, OLD)), 2, {}) == []


def test_the_description_has_a_line_for_it(system: zephane.SystemInfo) -> None:
    assert f"  GPU not used        {TOO_OLD}\n" in describe_system(system, [TOO_OLD])
    assert "GPU not used" not in describe_system(system)


class FakeDriver:
    """The driver's functions, for two GPUs, or one that fails to start."""

    def __init__(self, failure: int = 0) -> None:
        self._failure = failure

    def cuInit(self, flags: int) -> int:
        return self._failure

    def cuGetErrorString(self, failure: int, text: Any) -> int:
        text._obj.value = b"no CUDA-capable device is detected"
        return 0

    def cuDeviceGetCount(self, count: Any) -> int:
        count._obj.value = 2
        return 0

    def cuDeviceGet(self, device: Any, number: int) -> int:
        device._obj.value = number
        return 0

    def cuDeviceGetName(self, name: Any, size: int, device: ctypes.c_int) -> int:
        name.value = (OLD, NEW)[device.value][0].encode()
        return 0

    def cuDeviceGetAttribute(self, value: Any, attribute: int, device: ctypes.c_int) -> int:
        value._obj.value = (OLD, NEW)[device.value][attribute - 74]
        return 0


def test_the_driver_is_asked_for_its_gpus() -> None:
    assert ask_driver(FakeDriver()) == Driver(present=True, gpus=(OLD, NEW))
    broken = ask_driver(FakeDriver(failure=100))
    assert broken == Driver(present=True, error="no CUDA-capable device is detected (100)")


def test_the_bus_is_searched_for_gpus(tmp_path: Path) -> None:
    for name, vendor, kind in (
        ("0", "0x10de", "0x030000"),
        ("1", "0x10de", "0x030200"),
        ("2", "0x10de", "0x040300"),  # The sound of a GPU.
        ("3", "0x1002", "0x030000"),
    ):
        (tmp_path / name).mkdir()
        (tmp_path / name / "vendor").write_text(f"{vendor}\n")
        (tmp_path / name / "class").write_text(f"{kind}\n")
    (tmp_path / "4").mkdir()
    assert count_installed(tmp_path) == 2
    assert count_installed(tmp_path / "missing") == 0
