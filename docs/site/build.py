"""Builds the site of the documentation: build.py [--update] [SITE]

Runs the code of the pages that show its output, compares what it prints and draws with what they
show, and makes the site with Sphinx, without a warning. The library is that of build/release. With
--update, the outputs and pictures of the pages are replaced instead, in docs/.
"""

from __future__ import annotations

import argparse
import json
import os
import queue
import shutil
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import blocks
import pictures
from pages import ROOT, Stage
from reference import write_reference

# Pages whose code is run, the longest first.
RUN = ("gallery", "spectra", "long-runs", "first-flow", "from-c")
PICTURES = ROOT / "docs" / "pictures"
BUILD = ROOT / "build" / "release"


def main() -> int:
    parser = argparse.ArgumentParser(description="Build the site of the documentation.")
    parser.add_argument("--update", action="store_true", help="replace outputs and pictures")
    parser.add_argument("site", type=Path, nargs="?", default=ROOT / "build" / "site")
    options = parser.parse_args()
    work = ROOT / "build" / "site-work"
    environment = prepared(work)
    # Each page on a processor of its own: the library shares out the threads that it sees.
    free: queue.SimpleQueue[int] = queue.SimpleQueue()
    for processor in sorted(os.sched_getaffinity(0)):
        free.put(processor)
    with ThreadPoolExecutor(free.qsize()) as pool:
        pages = pool.map(lambda name: checked(name, work, environment, free, options.update), RUN)
        failures = [text for page in pages for text in page]
    for text in failures:
        print(text, file=sys.stderr)
    if failures:
        print("If the pages are out of date: docs/site/build.py --update", file=sys.stderr)
        return 1
    return make_site(work, options.site)


def prepared(work: Path) -> dict[str, str]:
    """The environment of the pages: the library installed in ~/zephane, and the command."""
    home, programs = work / "home", work / "bin"
    for folder in (home, work / "pages", programs):
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
    command = ["cmake", "--install", str(BUILD), "--prefix", str(home / "zephane")]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    script = programs / "zephane"
    script.write_text(f'#!/bin/sh\nexec "{sys.executable}" -m zephane "$@"\n', "utf-8")
    script.chmod(0o755)
    return {
        **os.environ,
        "HOME": str(home),
        "PATH": f"{programs}{os.pathsep}{os.environ['PATH']}",
        "PYTHONPATH": str(ROOT / "python"),
        "PYTHONDONTWRITEBYTECODE": "1",
        "MPLBACKEND": "agg",
        "MPLCONFIGDIR": str(work / "matplotlib"),
        # On the processor the pictures are the same on every machine.
        "CUDA_VISIBLE_DEVICES": "",
    }


def checked(
    name: str,
    work: Path,
    environment: dict[str, str],
    free: queue.SimpleQueue[int],
    update: bool,
) -> list[str]:
    """Runs a page; what is wrong with it, as sentences."""
    page = ROOT / "docs" / f"{name}.md"
    folder = work / "pages" / name
    folder.mkdir()
    results = folder.with_suffix(".json")
    began = time.monotonic()
    processor = free.get()
    runner = str(Path(__file__).parent / "run_page.py")
    done = subprocess.run(
        ["taskset", "-c", str(processor), sys.executable, runner, str(page), str(results)],
        cwd=folder, env=environment, capture_output=True, text=True,
    )  # fmt: skip
    free.put(processor)
    print(f"docs/{name}.md ran in {time.monotonic() - began:.1f} s", flush=True)
    if done.returncode != 0:
        return [done.stdout + done.stderr]
    text = page.read_text("utf-8")
    found, outputs = blocks.blocks_of(text), json.loads(results.read_text("utf-8"))
    if update:
        page.write_text(blocks.with_outputs(text, found, outputs), "utf-8")
    failures = [] if update else wrong_outputs(name, found, outputs)
    return failures + wrong_pictures(name, text, folder, update)


def wrong_outputs(name: str, found: list[blocks.Block], outputs: list[str]) -> list[str]:
    failures = []
    for block, output in zip(found, outputs):
        what = None if block.shows_picture else blocks.difference(block.shown, output)
        if what:
            failures.append(f"docs/{name}.md, line {block.line + 1}: {what}")
    return failures


def wrong_pictures(name: str, text: str, folder: Path, update: bool) -> list[str]:
    """Compares the pictures of a page with those that its code has made."""
    failures = []
    for picture in blocks.pictures_of(text):
        made = [path for path in sorted(folder.glob(f"{Path(picture).stem}.*"))
                if path.suffix in (".png", ".webp")]  # fmt: skip
        if not made:
            failures.append(f"docs/{name}.md: no code makes {picture}")
            continue
        content = pictures.packed(made[0])
        what = pictures.difference(PICTURES / picture, content)
        if what and update:
            PICTURES.mkdir(exist_ok=True)
            (PICTURES / picture).write_bytes(content)
        elif what:
            failures.append(f"docs/{name}.md: {made[0].name} {what}")
    return failures


def make_site(work: Path, site: Path) -> int:
    stage = Stage(work / "stage")
    stage.add_pages()
    write_reference(work / "stage" / "reference")
    shutil.rmtree(site, ignore_errors=True)
    settings = str(Path(__file__).parent)
    command = [sys.executable, "-m", "sphinx", "-b", "html", "-W", "--keep-going", "-q", "-E",
               "-c", settings, "-d", str(work / "doctrees"), str(work / "stage"),
               str(site)]  # fmt: skip
    status = subprocess.run(command).returncode
    if status == 0:
        print(f"The site is in {site}/index.html")
    return status


if __name__ == "__main__":
    sys.path.insert(0, str(ROOT / "python"))
    sys.exit(main())
