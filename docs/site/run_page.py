"""Runs the blocks of one page in the present folder: run_page.py PAGE OUTPUTS.json

Outputs are written as a list of texts, one for each block. A block that fails ends the page; its
failure is printed, and the exit status is 1.
"""

from __future__ import annotations

import contextlib
import io
import json
import subprocess
import sys
import traceback
from pathlib import Path
from typing import Any

from blocks import Block, blocks_of

LIMIT_SECONDS = 120


def run(block: Block, names: dict[str, Any], page: str) -> str:
    if block.name is not None:
        Path(block.name).write_text(block.text, "utf-8")
        return ""
    if block.language == "sh":
        done = subprocess.run(
            ["bash", "-euo", "pipefail", "-c", block.text],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
            timeout=LIMIT_SECONDS,
        )
        if done.returncode != 0:
            raise RuntimeError(f"exit status {done.returncode}:\n{done.stdout}")
        return done.stdout
    printed = io.StringIO()
    with contextlib.redirect_stdout(printed):
        # Empty lines, so that a traceback has the line numbers of the page.
        exec(compile("\n" * block.line + block.text, page, "exec"), names)
    return printed.getvalue()


def main() -> int:
    page, results = sys.argv[1:]
    names: dict[str, Any] = {"__name__": "__main__"}
    outputs: list[str] = []
    for block in blocks_of(Path(page).read_text("utf-8")):
        try:
            outputs.append(run(block, names, page))
        except Exception:
            print(f"{page}, line {block.line + 1}:", flush=True)
            traceback.print_exc()
            return 1
    Path(results).write_text(json.dumps(outputs), "utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())
