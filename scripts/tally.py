"""Sums up the results in folders: NAME.status (the exit status), NAME.log and NAME.xml (JUnit).

Of each failure it tells where it was, and the end of what was said of it. The closing line is
"N passed, N failed", with ", N skipped" where any were. A command without JUnit's file is one test
of its own. One that failed without saying there what failed counts as one failure, and so does one
that passed no test.
"""

import sys
import xml.etree.ElementTree as xml
from collections import Counter
from pathlib import Path

LINES_TOLD = 40


def outcome(case: xml.Element) -> str:
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
        return "skipped"
    return "passed"


def words_of(case: xml.Element) -> str:
    said = [node for tag in ("failure", "error", "system-out") for node in case.findall(tag)]
    return "\n".join(filter(None, (node.text or node.get("message") for node in said)))


def tell(place: str, words: str) -> None:
    print(place)
    for line in words.strip().splitlines()[-LINES_TOLD:]:
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
                tell(f"{place}: {case.get('classname', '')}.{case.get('name')}", words_of(case))
        counts = Counter(map(outcome, cases))
    else:
        counts = Counter(passed=int(succeeded))
    if counts["failed"] == 0 and not (succeeded and counts["passed"]):
        counts["failed"] = 1
        tell(place, log.read_text(errors="replace") if log.exists() else "")
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
