"""Filters the sanitizer reports of a host that used the library: sanitizer_reports.py FOLDER.

Python leaks by itself, so only a report with a frame of the library counts. Prints those, and fails
if there are any.
"""

import re
import sys
from pathlib import Path

LIBRARY = "libzephane.so"
# Every address of the library has a symbol. An address without one belongs to a library that was
# unloaded before the report, such as a driver, and is wrongly given as an offset from this one.
FRAME = re.compile(rf"#\d+ 0x[0-9a-f]+ in .*{re.escape(LIBRARY)}")
# A leak report is a list of leaks, each with the stack that allocated it.
LEAK = re.compile(r"^(?=Direct leak of |Indirect leak of )", re.MULTILINE)


def paragraphs(report: str) -> list[str]:
    if "ERROR: LeakSanitizer" in report:
        return LEAK.split(report)
    return [report]


def main() -> int:
    ours = []
    for file in sorted(Path(sys.argv[1]).iterdir()):
        report = file.read_text(errors="replace")
        ours += [part for part in paragraphs(report) if FRAME.search(part)]
    for part in ours[:20]:
        print(part)
    print(f"{len(ours)} reports name {LIBRARY}")
    return 1 if ours else 0


if __name__ == "__main__":
    sys.exit(main())
