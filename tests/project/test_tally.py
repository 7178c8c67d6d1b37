"""The last line of the test suites counts all outcomes, and never hides a failure."""

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


def output(*folders: Path) -> tuple[int, list[str]]:
    command = [sys.executable, str(TALLY), *map(str, folders)]
    done = subprocess.run(command, capture_output=True, text=True)
    return done.returncode, done.stdout.splitlines()


def tally(*folders: Path) -> tuple[int, str]:
    status, lines = output(*folders)
    return status, lines[-1]


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


def test_a_failure_is_printed_with_the_end_of_its_output(record, tmp_path: Path) -> None:
    long = "\n".join(f"line {number}" for number in range(1000))
    record("two", 1, PASS + f'<testcase classname="x" name="y"><failure>{long}</failure></testcase>')
    lines = output(tmp_path)[1]
    assert lines[0] == f"{tmp_path.name}/two: x.y"
    assert lines[1].strip() != "line 0"
    assert lines[-3:] == ["    line 999", f"{tmp_path.name}/two: 1 failed", "1 passed, 1 failed"]


def test_the_output_is_printed_when_the_failure_has_no_text(record, tmp_path: Path) -> None:
    printed = '<failure message=""/><system-out>it broke</system-out>'
    record("one", 1, f'<testcase name="y">{printed}</testcase>')
    assert "    it broke" in output(tmp_path)[1]


def test_a_failed_command_without_a_file_is_printed_with_the_end_of_its_log(
    record, tmp_path: Path
) -> None:
    record("one", 1)
    (tmp_path / "one.log").write_text("it began\nit broke\n")
    lines = output(tmp_path)[1]
    assert lines[:3] == [f"{tmp_path.name}/one", "    it began", "    it broke"]


def test_several_folders_are_summed(tmp_path: Path) -> None:
    for name in ("first", "second"):
        (tmp_path / name).mkdir()
        (tmp_path / name / "one.status").write_text("0\n")
    assert tally(tmp_path / "first", tmp_path / "second") == (0, "2 passed, 0 failed")


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
def test_a_command_that_passed_no_test_is_a_failure(record, tmp_path: Path, cases: str) -> None:
    record("one", 0, cases)
    assert tally(tmp_path)[0] == 1


def test_an_empty_folder_is_a_failure(tmp_path: Path) -> None:
    assert tally(tmp_path) == (1, "0 passed, 0 failed")
