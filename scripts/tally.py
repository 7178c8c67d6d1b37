"""Sums up the results in a folder: NAME.xml (JUnit) beside NAME.status (the exit status).

The closing line is "N passed, N failed", with ", N skipped" where any were. A command without a
file is one test of its own. One that failed without saying in its file what failed counts as one
failure, and so does one that passed no test.
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
    succeeded = int(status_file.read_text()) == 0
    listing = status_file.with_suffix(".xml")
    if not listing.exists():
        return Counter(passed=int(succeeded), failed=int(not succeeded))
    try:
        counts = Counter(outcome(case) for case in xml.parse(listing).iter("testcase"))
    except xml.ParseError:
        counts = Counter()
    if counts["failed"] == 0 and not (succeeded and counts["passed"]):
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
