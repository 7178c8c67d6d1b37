"""The pictures of the pages: packed for the web, and compared with those that the pages show."""

from __future__ import annotations

import io
from pathlib import Path

import numpy as np
from PIL import Image, ImageSequence

QUALITY = 86
# The names of plots begin so. Compressed with loss, their letters would blur.
PLOT = "plot-"

# The mean difference, in units of 1/255, that compression and other versions of the libraries make.
TOLERANCE = 4.0


def packed(made: Path) -> bytes:
    """A picture that a page made, as WebP. One that is WebP already, a film, stays as it is."""
    if made.suffix == ".webp":
        return made.read_bytes()
    picture = Image.open(made).convert("RGB")
    result = io.BytesIO()
    picture.save(result, "webp", lossless=made.name.startswith(PLOT), quality=QUALITY)
    return result.getvalue()


def difference(shown: Path, given: bytes) -> str | None:
    """How a picture differs from the one that the page shows, or None if it does not."""
    if not shown.exists():
        return "is not in docs/pictures"
    expected, actual = Image.open(shown), Image.open(io.BytesIO(given))
    ours = [np.asarray(frame.convert("RGB"), np.float32) for frame in _frames(expected)]
    theirs = [np.asarray(frame.convert("RGB"), np.float32) for frame in _frames(actual)]
    if len(ours) != len(theirs) or ours[0].shape != theirs[0].shape:
        return "has another size or length than the one in docs/pictures"
    mean = max(float(np.abs(a - b).mean()) for a, b in zip(ours, theirs))
    return f"differs from the one in docs/pictures by {mean:.1f}" if mean > TOLERANCE else None


def _frames(picture: Image.Image) -> list[Image.Image]:
    return [frame.copy() for frame in ImageSequence.Iterator(picture)]
