"""Sums up the results in folders: NAME.status (the exit status), NAME.log and NAME.xml (JUnit).

Prints each failure with its place and the end of its output. The last line is "N passed, N failed",
with ", N skipped" if there are any. A command without a JUnit file counts as one test. A command
that failed without a failure in its file counts as one failure, and so does one that passed no
test.
"""

import sys
import xml.etree.ElementTree as xml
from collections import Counter
from pathlib import Path

LINES_SHOWN = 40


def outcome(case: xml.Element) -> str:
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
        return "skipped"
    return "passed"


def output_of(case: xml.Element) -> str:
    nodes = [node for tag in ("failure", "error", "system-out") for node in case.findall(tag)]
    return "\n".join(filter(None, (node.text or node.get("message") for node in nodes)))


def show(place: str, text: str) -> None:
    print(place)
    for line in text.strip().splitlines()[-LINES_SHOWN:]:
        print(f"    {line}")


def place_of(status_file: Path) -> str:
    return f"{status_file.parent.name}/{status_file.stem}"


def count(status_file: Path) -> Counter:
    place = place_of(status_file)
    succeeded = int(status_file.read_text()) == 0
    listing, log = status_file.with_suffix(".xml"), status_file.with_suffix(".log")
    if listing.exists():
        try:
            cases = list(xml.parse(listing).iter("testcase"))
        except xml.ParseError:
            cases = []
        for case in cases:
            if outcome(case) == "failed":
                show(f"{place}: {case.get('classname', '')}.{case.get('name')}", output_of(case))
        counts = Counter(map(outcome, cases))
    else:
        counts = Counter(passed=int(succeeded))
    if counts["failed"] == 0 and not (succeeded and counts["passed"]):
        counts["failed"] = 1
        show(place, log.read_text(errors="replace") if log.exists() else "")
    return counts


def main() -> int:
    total: Counter = Counter()
    folders = [Path(name) for name in sys.argv[1:]]
    for status_file in [file for folder in folders for file in sorted(folder.glob("*.status"))]:
        counts = count(status_file)
        if counts["failed"]:
            print(f"{place_of(status_file)}: {counts['failed']} failed")
        total += counts
    line = f"{total['passed']} passed, {total['failed']} failed"
    print(line + (f", {total['skipped']} skipped" if total["skipped"] else ""))
    return 1 if total["failed"] or not total["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
