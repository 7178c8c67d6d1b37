"""How a host may end while the library draws without a crash, without hanging, and without stopping
what goes on.

ZEPHANE_ENDS=1000 runs so many rounds of each end, for a person with half an hour. It adds those of
exit() on a thread that has never called the library, amid the first picture: what the driver's
compiler registers for the end of the process just before that is destroyed first, and 1 or 2 of
1,000 such ends crash, more on a machine with too much to do."""

from __future__ import annotations

import os
import random
import subprocess
from concurrent.futures import ThreadPoolExecutor

import pytest

ROUNDS = int(os.environ.get("ZEPHANE_ENDS", "10"))
AT_ONCE = int(os.environ.get("ZEPHANE_ENDS_AT_ONCE", "5"))
LIMIT_SECONDS = 60

# The longest time from the beginning to the end, in microseconds: an end meets the first use of the
# graphics system, the compilation of its shaders, and pictures.
ENDS = {
    "return": 400_000,
    "frame": 40_000,
    "frame-exit": 40_000,
    "window": 400_000,
    "attach": 400_000,
    "png": 300_000,
    "png-thread": 300_000,
}
AMID_THE_FIRST_PICTURE = {"exit": 400_000, "thread": 400_000, "png-exit": 300_000}
if "ZEPHANE_ENDS" in os.environ:
    ENDS |= AMID_THE_FIRST_PICTURE


@pytest.fixture(scope="module")
def ends(library_path, sanitized):
    program = library_path.parent / "tests" / "zephane_ends"
    if sanitized or not program.exists():
        pytest.skip("the program that ends was not built")
    return program


@pytest.mark.usefixtures("drawing")
@pytest.mark.parametrize("end", ENDS)
def test_a_process_ends_while_the_library_draws(ends, library_path, display, end):
    def one(_):
        delay = random.randrange(ENDS[end])
        command = [ends, library_path, end, str(delay)]
        try:
            done = subprocess.run(command, capture_output=True, text=True, timeout=LIMIT_SECONDS)
        except subprocess.TimeoutExpired:
            return f"hung after {delay} µs"
        if done.returncode or done.stderr or done.stdout:
            return f"{done.returncode} after {delay} µs {done.stderr}{done.stdout}"
        return None

    with ThreadPoolExecutor(AT_ONCE) as pool:
        failures = [failure for failure in pool.map(one, range(ROUNDS)) if failure]
    assert not failures, f"{len(failures)} of {ROUNDS}: {failures[:10]}"
