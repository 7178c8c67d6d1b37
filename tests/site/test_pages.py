"""How the code of the pages is run, and what counts as another output."""

from __future__ import annotations

import io
import json
import subprocess
import sys
from pathlib import Path

import numpy as np
import pages
import pictures
import pytest
from blocks import blocks_of, difference, pictures_of, with_outputs
from PIL import Image

PAGE = """\
Words.

```python
print(1.0 / 3.0)
```
```text
0.3333
```

```c flow.c
int main(void) {}
```

```sh
ls
cat flow.c
```

![Drawn](pictures/drawn.webp)

```json
{"not": "run"}
```
"""


def test_the_blocks_of_a_page_are_found_with_the_outputs_it_shows() -> None:
    blocks = blocks_of(PAGE)
    assert [(one.language, one.name, one.shown) for one in blocks] == [
        ("python", None, "0.3333\n"),
        ("c", "flow.c", ""),
        ("sh", None, ""),
    ]
    assert [one.shows_picture for one in blocks] == [False, False, True]
    assert pictures_of(PAGE) == ["drawn.webp"]


def test_a_page_is_run_and_its_outputs_are_replaced(tmp_path: Path) -> None:
    page, results = tmp_path / "page.md", tmp_path / "outputs.json"
    page.write_text(PAGE, "utf-8")
    runner = Path(pictures.__file__).with_name("run_page.py")
    subprocess.run([sys.executable, str(runner), str(page), str(results)], cwd=tmp_path, check=True)
    outputs = json.loads(results.read_text("utf-8"))
    assert outputs[2].splitlines()[-1] == "int main(void) {}"
    replaced = with_outputs(PAGE, blocks_of(PAGE), outputs)
    assert replaced == PAGE.replace("0.3333\n", "0.3333333333333333\n")


def test_a_block_that_fails_ends_the_page_and_is_named(tmp_path: Path) -> None:
    page = tmp_path / "page.md"
    page.write_text("Words.\n\n```python\n\nraise ValueError('no')\n```\n", "utf-8")
    runner = Path(pictures.__file__).with_name("run_page.py")
    command = [sys.executable, str(runner), str(page), str(tmp_path / "outputs.json")]
    done = subprocess.run(command, cwd=tmp_path, capture_output=True, text=True)
    assert done.returncode == 1
    assert f"{page}, line 4" in done.stdout and 'page.md", line 5' in done.stderr


@pytest.mark.parametrize(
    "shown, given, agrees",
    [
        ("energy 0.47", "energy 0.4702", True),
        ("energy 0.47", "energy 0.48", False),
        ("energy 0.47", "enstrophy 0.47", False),
        ("steps 10", "steps 10\nsteps 20", False),
        ("a  1", "a 1", False),
        ("  wall time  3.1 s, 10 steps/s", "  wall time  12 s", True),
        ('{"gpu_milliseconds":1.5,"steps":2}', '{"gpu_milliseconds":7.25,"steps":2}', True),
        ('{"gpu_milliseconds":1.5,"steps":2}', '{"gpu_milliseconds":1.5,"steps":3}', False),
        ("k^-3.62", "k^-3.91", False),
        ("flow.state", "flow.state", True),
    ],
)
def test_outputs_agree_up_to_rounding_and_the_machine(
    shown: str, given: str, agrees: bool
) -> None:
    assert (difference(shown, given) is None) == agrees


def picture(size: int, brightness: int) -> bytes:
    values = np.full((size, size, 3), brightness, np.uint8)
    values[:, ::2] = 0
    result = io.BytesIO()
    Image.fromarray(values).save(result, "webp", lossless=True)
    return result.getvalue()


def test_pictures_agree_up_to_compression(tmp_path: Path) -> None:
    shown = tmp_path / "shown.webp"
    assert pictures.difference(shown, picture(32, 200)) == "is not in docs/pictures"
    shown.write_bytes(picture(32, 200))
    assert pictures.difference(shown, picture(32, 200)) is None
    assert pictures.difference(shown, picture(32, 196)) is None
    assert "differs" in pictures.difference(shown, picture(32, 150))
    assert "size" in pictures.difference(shown, picture(64, 200))


def test_a_notebook_becomes_a_page_with_its_outputs(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    printed = {"output_type": "stream", "name": "stdout", "text": ["0.5\n", "0.4\n"]}
    drawn = {"output_type": "display_data", "data": {"image/png": "aGVs\nbG8=", "text/plain": ["x"]}}
    cells = [
        {"cell_type": "markdown", "source": ["# Decay\n", "Words."]},
        {"cell_type": "code", "source": ["import zephane"], "outputs": [printed, drawn]},
        {"cell_type": "code", "source": [], "outputs": []},
    ]
    (tmp_path / "decay.ipynb").write_text(json.dumps({"cells": cells}), "utf-8")
    monkeypatch.setattr(pages, "ROOT", tmp_path)
    parts = pages.notebook_page("decay.ipynb").split("\n\n")
    fence = pages.FENCE
    assert parts == [
        "# Decay\nWords.",
        f"{fence}python\nimport zephane\n{fence}",
        f"{fence}text\n0.5\n0.4\n{fence}",
        "![](data:image/png;base64,aGVsbG8=)\n",
    ]
