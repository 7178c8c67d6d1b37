"""Runs GoogleTest programs, several processes at a time: run_gtest.py OUT.xml PROGRAM[:FILTER]...

Splits the tests of a program into parts, one process each. A test that ends its process, or runs
for too long, has failed; the remaining tests of its part run in a new process. Writes a JUnit
file, prints the failures, and exits with 1 if there are any.
"""

from __future__ import annotations

import os
import re
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as xml
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from threading import Timer

PATIENCE_SECONDS = float(os.environ.get("ZEPHANE_TEST_SECONDS", 300))
PARTS_PER_PROCESSOR = 4
# The line may begin with an unfinished line printed by the test.
ENDED = re.compile(r"\[ +(OK|FAILED|SKIPPED) +\] (\S+?)(?:, where .*)? \((\d+) ms\)$")
BEGAN = re.compile(r"\[ RUN +\] (\S+)$")


class Result:
    def __init__(self, name: str, outcome: str, seconds: float, words: str) -> None:
        self.name = name
        self.outcome = outcome
        self.seconds = seconds
        self.words = words


def command_of(program: str) -> list[str]:
    """How a program is started: one for Windows in Wine."""
    wine = [str(Path(__file__).with_name("run_in_wine"))] if program.endswith(".exe") else []
    return [*wine, program]


def tests_of(program: str, only: str) -> list[str]:
    listing = subprocess.run(
        [*command_of(program), "--gtest_list_tests", f"--gtest_filter={only}"],
        check=True,
        capture_output=True,
        text=True,
    )
    names, suite = [], ""
    for line in listing.stdout.splitlines():
        name = line.split("#")[0].rstrip()
        if name.startswith("  "):
            names.append(suite + name.strip())
        elif name.endswith("."):
            suite = name
    return [name for name in names if ".DISABLED_" not in name and not name.startswith("DISABLED_")]


def run_part(program: str, names: list[str]) -> list[Result]:
    """The results of the named tests, with a new process after each one that ended early."""
    results: list[Result] = []
    while names:
        found, words, status = run_process(program, names)
        seen = {result.name for result in found}
        left = [name for name in names if name not in seen]
        results += found
        if left == names or (left and status == 0):
            lost = f"{program} ended with {status} and did not run it.\n{words}"
            return results + [Result(name, "failed", 0.0, lost) for name in left]
        if not left and status != 0 and all(result.outcome != "failed" for result in found):
            # Errors found at process exit, such as leaks, cannot be assigned to a test.
            end = f"exit status {status} of a process of {len(found)} tests\n{words}"
            results.append(Result(f"{Path(program).name}.end_of_process", "failed", 0.0, end))
        names = left
    return results


def run_process(program: str, names: list[str]) -> tuple[list[Result], str, int]:
    """The results of one process, its output after the last test, and its exit status."""
    with tempfile.NamedTemporaryFile("w", suffix=".flags") as flags:
        flags.write(f"--gtest_filter={':'.join(names)}\n--gtest_color=no\n")
        flags.flush()
        process = subprocess.Popen(
            [*command_of(program), f"--gtest_flagfile={flags.name}"],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            errors="replace",
        )
        assert process.stdout
        results: list[Result] = []
        running, began, said = "", time.monotonic(), []
        watch = start_watch(process)
        for line in process.stdout:
            start, end = BEGAN.search(line), ENDED.search(line)
            if start:
                running, began, said = start[1], time.monotonic(), []
                watch.cancel()
                watch = start_watch(process)
            elif end and end[2] == running:
                outcome = {"OK": "passed", "FAILED": "failed", "SKIPPED": "skipped"}[end[1]]
                results.append(Result(running, outcome, int(end[3]) / 1000, "".join(said)))
                running, said = "", []
            else:
                said.append(line)
        status = process.wait()
        watch.cancel()
        if running:
            said.append(f"The process ended with {status} while this test ran.\n")
            seconds = time.monotonic() - began
            results.append(Result(running, "failed", seconds, "".join(said)))
        return results, "".join(said), status


def start_watch(process: subprocess.Popen[str]) -> Timer:
    watch = Timer(PATIENCE_SECONDS, process.kill)
    watch.daemon = True
    watch.start()
    return watch


def write(path: str, results: list[Result]) -> None:
    suite = xml.Element("testsuite", name=Path(path).stem, tests=str(len(results)))
    for result in results:
        group, _, name = result.name.rpartition(".")
        case = xml.SubElement(
            suite, "testcase", classname=group, name=name, time=f"{result.seconds:.3f}"
        )
        if result.outcome == "failed":
            xml.SubElement(case, "failure").text = printable(result.words)
        elif result.outcome == "skipped":
            xml.SubElement(case, "skipped", message=printable(result.words.strip()))
    xml.ElementTree(suite).write(path, encoding="utf-8", xml_declaration=True)


def printable(words: str) -> str:
    """The text with characters that XML cannot hold replaced."""
    return re.sub(r"[^\t\n\x20-\ud7ff\ue000-\ufffd]", "?", words)


def main() -> int:
    path, *programs = sys.argv[1:]
    processors = len(os.sched_getaffinity(0))
    parts = []
    for argument in programs:
        program, _, only = argument.partition(":")
        names = tests_of(program, only or "*")
        count = max(1, min(len(names) // 8, PARTS_PER_PROCESSOR * processors))
        parts += [(program, names[k::count]) for k in range(count)]
    with ThreadPoolExecutor(processors) as pool:
        results = [r for part in pool.map(lambda part: run_part(*part), parts) for r in part]
    write(path, results)
    outcomes = [result.outcome for result in results]
    for result in results:
        if result.outcome == "failed":
            print(f"{result.name} failed\n{result.words}")
    print(", ".join(f"{outcomes.count(kind)} {kind}" for kind in ("passed", "failed", "skipped")))
    return 1 if "failed" in outcomes or "passed" not in outcomes else 0


if __name__ == "__main__":
    sys.exit(main())
