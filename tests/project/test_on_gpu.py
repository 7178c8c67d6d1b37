"""scripts/on_gpu as far as a machine without a GPU can try it: which steps it takes, and what it
makes of their ends."""

from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
STEPS = "machine build tests pictures bench peers memcheck racecheck initcheck synccheck".split()


@pytest.fixture
def tree(tmp_path):
    """A project with nothing but the script, and a folder for stand-ins of the tools."""
    (tmp_path / "scripts").mkdir()
    (tmp_path / "tools").mkdir()
    shutil.copy(ROOT / "scripts" / "on_gpu", tmp_path / "scripts")
    shutil.copy(ROOT / "VERSION", tmp_path)
    return tmp_path


def stand_in(tree: Path, tool: str, script: str) -> None:
    path = tree / "tools" / tool
    path.write_text(f"#!/bin/sh\n{script}\n")
    path.chmod(0o755)


def on_gpu(tree: Path, *words: str) -> tuple[int, list[list[str]], str]:
    """The exit status, the lines of the steps, and the report."""
    environment = {
        **os.environ,
        "ZEPHANE_DEVICE": "0",
        "PATH": f"{tree / 'tools'}:{os.environ['PATH']}",
    }
    environment.pop("ZEPHANE_ON_GPU_STEP", None)
    done = subprocess.run(
        [tree / "scripts" / "on_gpu", "--report", tree / "report", *words],
        env=environment,
        capture_output=True,
        text=True,
        timeout=60,
    )
    lines = [line.split("\t") for line in done.stdout.splitlines()]
    report = tree / "report" / "report.md"
    return done.returncode, lines, report.read_text() if report.exists() else ""


def test_a_dry_run_names_every_step_and_leaves_nothing(tree):
    status, lines, report = on_gpu(tree, "--dry")
    assert status == 0
    assert [line[0].partition(":")[0] for line in lines] == STEPS
    assert not report and not (tree / "report").exists()


def test_a_step_that_it_does_not_know_is_refused(tree):
    assert on_gpu(tree, "everything")[0] == 2


def test_a_build_that_fails_is_the_last_step(tree):
    stand_in(tree, "cmake", "echo no generator; exit 3")
    status, lines, report = on_gpu(tree)
    assert status == 1
    assert [line[:2] for line in lines[:2]] == [["machine", "passed"], ["build", "FAILED (3)"]]
    assert len(lines) == 3  # and the place of the report
    assert "| build | FAILED (3) |" in report and "    no generator" in report


def test_a_step_without_a_build_fails_and_the_next_is_taken(tree):
    status, lines, _ = on_gpu(tree, "tests", "machine")
    assert status == 1
    assert [line[:2] for line in lines[:2]] == [["tests", "no build"], ["machine", "passed"]]


def test_steps_go_on_after_a_failure_and_the_report_has_those_of_all_calls(tree):
    (tree / "build" / "gpu" / "tests").mkdir(parents=True)
    (tree / "build" / "gpu" / "libzephane.so").touch()
    tests = tree / "build" / "gpu" / "tests" / "zephane_tests"
    tests.write_text("#!/bin/sh\necho one of the tests; exit 1\n")
    tests.chmod(0o755)
    stand_in(tree, "compute-sanitizer", 'echo "$2"; test "$2" != racecheck || exit 9')
    assert on_gpu(tree, "machine")[0] == 0
    status, lines, report = on_gpu(tree, "tests", "memcheck", "racecheck", "synccheck")
    assert status == 1
    words = ["FAILED (1)", "passed", "FAILED (9)", "passed"]
    assert [line[1] for line in lines[:4]] == words
    for step in ("machine", "tests", "memcheck", "racecheck", "synccheck"):
        assert f"| {step} | " in report


def test_no_step_begins_after_the_last_minute(tree):
    status, lines, _ = on_gpu(tree, "--minutes", "0", "machine")
    assert status == 1 and lines[0][1] == "no time left"


def test_a_step_that_takes_too_long_is_ended_with_all_that_it_has_started(tree):
    script = tree / "scripts" / "on_gpu"
    script.write_text(script.read_text().replace("limit=$((60 * limit_of[$1]))", "limit=1"))
    stand_in(tree, "cmake", f"sleep 30; touch {tree / 'late'}")
    status, lines, _ = on_gpu(tree, "build")
    assert status == 1 and lines[0][:2] == ["build", "took too long"]
