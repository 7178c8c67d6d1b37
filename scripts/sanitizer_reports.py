"""Reads what the sanitizers wrote while a host used the library: sanitizer_reports.py FOLDER.

A host that is not ours has leaks of its own, so only what names the library counts. Prints that,
and fails if there is any.
"""

import re
import sys
from pathlib import Path

LIBRARY = "libzephane.so"
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
        ours += [part for part in paragraphs(report) if LIBRARY in part]
    for part in ours[:20]:
        print(part)
    print(f"{len(ours)} reports name {LIBRARY}")
    return 1 if ours else 0


if __name__ == "__main__":
    sys.exit(main())
