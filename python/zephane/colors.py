"""Palettes: the colour of a point on a scale, as three sRGB numbers from 0 to 1.

Signed scales run from -1 to 1, with a dark middle; the others run from 0, which is dark, to 1.
"inferno" has the same sequence of colours in both cases.
"""

from __future__ import annotations

from collections.abc import Sequence

Color = tuple[float, float, float]

DIVERGING_BASE: Color = (0.017, 0.026, 0.055)
# Middle and end of the scale, for t >= 0 and for t < 0.
DIVERGING = {
    "aurora": (
        ((0.025, 0.60, 0.58), (0.48, 1.0, 0.84)),
        ((0.48, 0.20, 0.79), (0.94, 0.67, 1.0)),
    ),
    "ember": (
        ((0.92, 0.19, 0.065), (1.0, 0.88, 0.43)),
        ((0.28, 0.17, 0.69), (0.76, 0.64, 1.0)),
    ),
    "glacier": (
        ((0.01, 0.46, 0.78), (0.70, 1.0, 0.99)),
        ((0.14, 0.24, 0.68), (0.70, 0.79, 1.0)),
    ),
}

SEQUENTIAL_BASE: Color = (0.019, 0.028, 0.063)
SEQUENTIAL = {
    "aurora": ((0.30, 0.17, 0.63), (0.36, 1.0, 0.80)),
    "ember": ((0.67, 0.10, 0.17), (1.0, 0.86, 0.41)),
    "glacier": ((0.02, 0.33, 0.72), (0.73, 0.97, 1.0)),
}

INFERNO: Sequence[Color] = (
    (0.001, 0.0, 0.014),
    (0.258, 0.039, 0.406),
    (0.578, 0.148, 0.404),
    (0.865, 0.317, 0.226),
    (0.988, 0.645, 0.04),
    (0.988, 0.998, 0.645),
)


def color(t: float, palette: str, signed: bool) -> Color:
    """The colour of the point ``t`` on the scale."""
    if palette == "inferno":
        return _inferno(0.5 * t + 0.5 if signed else t)
    if signed:
        middle, end = DIVERGING[palette][0 if t >= 0.0 else 1]
        a = abs(t)
        first = _smooth(min(a * 1.6666666, 1.0))
        second = _smooth(max((a - 0.34) * 1.5151516, 0.0))
        return _lerp(_lerp(DIVERGING_BASE, middle, first), end, second)
    middle, end = SEQUENTIAL[palette]
    first = _smooth(min(2.0 * t, 1.0))
    second = _smooth(max((t - 0.32) * 1.4705882, 0.0))
    return _lerp(_lerp(SEQUENTIAL_BASE, middle, first), end, second)


def color_table(palette: str, signed: bool, steps: int) -> list[bytes]:
    """8-bit colours at ``steps + 1`` evenly spaced points of the scale, both ends included."""
    low = -1.0 if signed else 0.0
    points = (low + (1.0 - low) * i / steps for i in range(steps + 1))
    return [_eight_bits(color(t, palette, signed)) for t in points]


def _inferno(t: float) -> Color:
    s = 5.0 * t
    k = min(int(s), 4)
    return _lerp(INFERNO[k], INFERNO[k + 1], s - k)


def _smooth(x: float) -> float:
    return x * x * (3.0 - 2.0 * x)


def _lerp(a: Color, b: Color, s: float) -> Color:
    return (a[0] + (b[0] - a[0]) * s, a[1] + (b[1] - a[1]) * s, a[2] + (b[2] - a[2]) * s)


def _eight_bits(c: Color) -> bytes:
    # Rounding of the palettes' constants can make a channel slightly larger than 1.
    return bytes(min(int(channel * 255.0 + 0.5), 255) for channel in c)
