"""The closing line of the test suites counts what happened, and never makes it better."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import pytest

TALLY = Path(__file__).resolve().parents[2] / "scripts" / "tally.py"

PASS = '<testcase name="a"/>'
FAIL = '<testcase name="b"><failure message="no"/></testcase>'
ERROR = '<testcase name="c"><error message="no"/></testcase>'
SKIP = '<testcase name="d"><skipped/></testcase>'
NOT_RUN = '<testcase name="e" status="notrun"/>'


def tally(folder: Path) -> tuple[int, str]:
    command = [sys.executable, str(TALLY), str(folder)]
    done = subprocess.run(command, capture_output=True, text=True)
    return done.returncode, done.stdout.splitlines()[-1]


@pytest.fixture
def record(tmp_path: Path):
    def write(name: str, status: int, cases: str | None = None) -> None:
        (tmp_path / f"{name}.status").write_text(f"{status}\n")
        if cases is not None:
            (tmp_path / f"{name}.xml").write_text(f"<testsuites>{cases}</testsuites>")

    return write


def test_outcomes_are_summed_over_all_files(record, tmp_path: Path) -> None:
    record("one", 0, PASS + PASS + SKIP)
    record("two", 1, PASS + FAIL + ERROR + NOT_RUN)
    assert tally(tmp_path) == (1, "3 passed, 2 failed, 2 skipped")


def test_success_needs_every_command_to_have_succeeded(record, tmp_path: Path) -> None:
    record("one", 0, PASS)
    assert tally(tmp_path) == (0, "1 passed, 0 failed")
    record("two", 3, PASS)
    assert tally(tmp_path) == (1, "2 passed, 1 failed")


def test_a_command_without_a_file_is_one_test(record, tmp_path: Path) -> None:
    record("one", 0)
    record("two", 1)
    assert tally(tmp_path) == (1, "1 passed, 1 failed")


@pytest.mark.parametrize("cases", ["", SKIP, "<broken"])
def test_a_command_that_passed_no_test_has_failed(record, tmp_path: Path, cases: str) -> None:
    record("one", 0, cases)
    assert tally(tmp_path)[0] == 1


def test_nothing_recorded_is_a_failure(tmp_path: Path) -> None:
    assert tally(tmp_path) == (1, "0 passed, 0 failed")
