"""The runner of GoogleTest programs fails only the faulty test, and runs the others."""

from __future__ import annotations

import subprocess
import sys
import xml.etree.ElementTree as xml
from pathlib import Path

import pytest

RUNNER = Path(__file__).resolve().parents[2] / "scripts" / "run_gtest.py"

# Prints what a GoogleTest program prints. The name of a test is its behaviour.
PROGRAM = """#!{python}
import os, sys, time
flags = dict(a.split("=", 1) for a in sys.argv[1:] if "=" in a)
if "--gtest_list_tests" in sys.argv:
    print("Suite.")
    for name in {names!r}:
        print("  " + name)
    sys.exit()
status = 0
for name in open(flags["--gtest_flagfile"]).readline().strip().partition("=")[2].split(":"):
    print("[ RUN      ] " + name, flush=True)
    what = name.partition(".")[2]
    if "Crashes" in what:
        print("about to crash", flush=True)
        os.abort()
    if "Hangs" in what:
        time.sleep(600)
    outcome = "  FAILED  " if "Fails" in what else "  SKIPPED " if "Skips" in what else "      OK "
    status = status or "Fails" in what
    print("[" + outcome + "] " + name + " (2 ms)", flush=True)
sys.exit(3 if {names!r} == ["Passes", "Leaks"] else int(status))
"""


@pytest.fixture
def run(tmp_path: Path, monkeypatch: pytest.MonkeyPatch):
    monkeypatch.setenv("ZEPHANE_TEST_SECONDS", "2")

    def outcomes(*names: str) -> tuple[int, dict[str, str], str]:
        program, results = tmp_path / "program", tmp_path / "results.xml"
        program.write_text(PROGRAM.format(python=sys.executable, names=list(names)))
        program.chmod(0o755)
        done = subprocess.run(
            [sys.executable, str(RUNNER), str(results), str(program)],
            capture_output=True,
            text=True,
        )
        found = {}
        for case in xml.parse(results).iter("testcase"):
            found[case.get("name", "")] = case[0].tag if len(case) else "passed"
        return done.returncode, found, done.stdout

    return outcomes


def test_the_run_succeeds_if_every_test_passes(run) -> None:
    status, found, _ = run("One", "Two", "Skips")
    assert status == 0
    assert found == {"One": "passed", "Two": "passed", "Skips": "skipped"}


@pytest.mark.parametrize("fault", ["Fails", "Crashes", "Hangs"])
def test_only_the_faulty_test_fails_and_the_others_run(run, fault: str) -> None:
    status, found, said = run("Before", fault, "After")
    assert status == 1
    assert found == {"Before": "passed", fault: "failure", "After": "passed"}
    assert f"Suite.{fault} failed" in said
    assert ("about to crash" in said) == (fault == "Crashes")


def test_a_process_that_fails_after_its_tests_is_a_failure(run) -> None:
    status, found, _ = run("Passes", "Leaks")
    assert status == 1
    assert found == {"Passes": "passed", "Leaks": "passed", "end_of_process": "failure"}


def test_a_program_without_tests_is_a_failure(run) -> None:
    assert run()[0] == 1
