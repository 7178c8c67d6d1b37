"""Vulkan's validation layer reports nothing about the renderer."""

from __future__ import annotations

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

LAYER = "VK_LAYER_KHRONOS_validation"
# At least one test of each use of Vulkan: shapes, pieces, threads, transfers, lines, failures.
SUITES = (
    "Renderers.*:FieldTransfer.*:FlowLines.RunAlong*:Colors.AreLight*:GpuPictures*"
    "-Renderers.LeaveNothing*"
)
PROGRAMS = ["zephane_tests", "emulation/zephane_emulation_tests"]

REPORT = re.compile(r"Validation (Error|Warning|Performance)|VUID-|UNASSIGNED-|SYNC-HAZARD")

# A flag of instances that Vulkan does not know.
MISUSE = """
import ctypes

vulkan = ctypes.CDLL("libvulkan.so.1")


class InstanceCreateInfo(ctypes.Structure):
    _fields_ = [
        ("type", ctypes.c_int),
        ("next", ctypes.c_void_p),
        ("flags", ctypes.c_uint32),
        ("application", ctypes.c_void_p),
        ("layer_count", ctypes.c_uint32),
        ("layers", ctypes.c_void_p),
        ("extension_count", ctypes.c_uint32),
        ("extensions", ctypes.c_void_p),
    ]


info = InstanceCreateInfo(type=1, flags=1 << 20)
instance = ctypes.c_void_p()
vulkan.vkCreateInstance(ctypes.byref(info), None, ctypes.byref(instance))
"""


@pytest.fixture
def validated(tmp_path: Path):
    """Runs a command under the layer; returns its result and the messages of the layer."""

    def run(*command: str | Path) -> tuple[subprocess.CompletedProcess[str], list[str]]:
        settings = tmp_path / "vk_layer_settings.txt"
        settings.write_text(
            "khronos_validation.debug_action = VK_DBG_LAYER_ACTION_LOG_MSG\n"
            "khronos_validation.report_flags = error,warn,perf\n"
            "khronos_validation.enables = "
            "VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT\n"
        )
        environment = dict(
            os.environ,
            VK_INSTANCE_LAYERS=LAYER,
            VK_LAYER_SETTINGS_PATH=str(settings),
            VK_LOADER_DEBUG="layer",
        )
        done = subprocess.run(
            [str(word) for word in command], env=environment, capture_output=True, text=True
        )
        reports = [line for line in done.stdout.splitlines() if REPORT.search(line)]
        return done, reports

    return run


@pytest.fixture(autouse=True)
def layer_is_installed(validated) -> None:
    listing = "import ctypes; ctypes.CDLL('libvulkan.so.1')"
    if subprocess.run([sys.executable, "-c", listing], capture_output=True).returncode:
        pytest.skip("there is no Vulkan")
    done, _ = validated(sys.executable, "-c", MISUSE)
    if f'Insert instance layer "{LAYER}"' not in done.stderr:
        pytest.skip("Vulkan's validation layer is not installed")


def test_the_layer_reports_a_wrong_call(validated) -> None:
    _, reports = validated(sys.executable, "-c", MISUSE)
    assert any("VUID-VkInstanceCreateInfo-flags-parameter" in report for report in reports)


@pytest.mark.parametrize("program", PROGRAMS)
def test_nothing_is_reported_about_the_renderer(
    validated, library_path: Path, program: str
) -> None:
    path = library_path.parent / "tests" / program
    if not path.is_file():
        pytest.skip(f"this build has no {program}")
    done, reports = validated(path, "--gtest_brief=1", f"--gtest_filter={SUITES}")
    if "This build cannot draw pictures." in done.stdout:
        pytest.skip("this build cannot draw pictures")
    assert done.returncode == 0, done.stdout[-4000:]
    assert f'Inserted device layer "{LAYER}"' in done.stderr
    assert reports == []
