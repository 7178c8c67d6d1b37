"""Sums up the results in a folder: NAME.xml (JUnit) beside NAME.status (the exit status).

The closing line is "N passed, N failed", with ", N skipped" where any were. A command that failed
without saying in its file what failed counts as one failure.
"""

import sys
import xml.etree.ElementTree as xml
from collections import Counter
from pathlib import Path


def outcome(case: xml.Element) -> str:
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
        return "skipped"
    return "passed"


def count(status_file: Path) -> Counter:
    try:
        cases = xml.parse(status_file.with_suffix(".xml")).iter("testcase")
        counts = Counter(outcome(case) for case in cases)
    except (OSError, xml.ParseError):
        counts = Counter()
    succeeded = int(status_file.read_text()) == 0 and counts["passed"] > 0
    if not succeeded and counts["failed"] == 0:
        counts["failed"] = 1
    return counts


def main() -> int:
    total: Counter = Counter()
    for status_file in sorted(Path(sys.argv[1]).glob("*.status")):
        counts = count(status_file)
        if counts["failed"]:
            print(f"{status_file.stem}: {counts['failed']} failed")
        total += counts
    line = f"{total['passed']} passed, {total['failed']} failed"
    print(line + (f", {total['skipped']} skipped" if total["skipped"] else ""))
    return 1 if total["failed"] or not total["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
