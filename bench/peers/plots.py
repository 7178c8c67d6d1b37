"""Two plots of the results of measure.py: cost against N, and work against precision."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
from matplotlib.axes import Axes  # noqa: E402
from matplotlib.ticker import LogLocator  # noqa: E402

# A family of colours for each group; lines of a group differ by colour and marker.
COLORS = {
    "Zephane": ["#000000", "#555555", "#999999"],
    "expert": ["#9ecae1", "#6baed6", "#4292c6", "#2171b5", "#08519c", "#08306b"],
    "arrays": ["#006d2c", "#31a354", "#74c476"],
    "packages": ["#a50f15", "#e6550d", "#fd8d3c", "#dd1c77", "#756bb1", "#b15928", "#e7ba52"],
}
MARKERS = "osD^vP*X"
STYLE = {
    "svg.fonttype": "none",
    "svg.hashsalt": "zephane",
    "font.family": "sans-serif",
    "font.size": 9,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "axes.grid": True,
    "grid.color": "#dddddd",
    "grid.linewidth": 0.6,
}

Lines = dict[str, tuple[str, list[tuple[float, float]]]]


def draw(results: dict[str, Any], folder: Path, kinds: tuple[str, ...] = ("svg",)) -> None:
    with plt.rc_context(STYLE):
        if lines := _costs(results["steps"]):
            _save(_cost(lines), folder / "cost", kinds)
        if results["precision"]:
            _save(_precision(results["precision"]), folder / "precision", kinds)


def _save(figure: plt.Figure, path: Path, kinds: tuple[str, ...]) -> None:
    for kind in kinds:
        metadata = {"Date": None} if kind == "svg" else None
        figure.savefig(path.with_suffix(f".{kind}"), metadata=metadata, dpi=110)
    plt.close(figure)


def _costs(results: list[dict[str, Any]]) -> Lines:
    lines: Lines = {}
    measured = [r for r in results if "seconds" in r and r["group"] in COLORS]
    for size in sorted({r["resolution"] for r in measured}):
        best = min(r["zephane_seconds"] for r in measured if r["resolution"] == size)
        lines.setdefault("Zephane", ("Zephane", []))[1].append((size, best))
    for r in measured:
        if r["group"] != "Zephane":
            lines.setdefault(r["peer"], (r["group"], []))[1].append((r["resolution"], r["seconds"]))
    return lines


def _cost(lines: Lines) -> plt.Figure:
    """Time of a step divided by the points, so that what is far from the others can be seen."""
    figure, axes = plt.subplots(figsize=(8.4, 5.6), layout="constrained")
    per_point = {
        name: (group, [(n, 1e9 * seconds / n**2) for n, seconds in points])
        for name, (group, points) in lines.items()
    }
    _plot(axes, per_point)
    sizes = sorted({n for _, points in lines.values() for n, _ in points})
    axes.set_xscale("log", base=2)
    axes.set_xticks(sizes, [f"{int(n)}" for n in sizes])
    axes.set_yscale("log")
    axes.yaxis.set_major_locator(LogLocator(subs=(1, 2, 5)))
    axes.yaxis.set_major_formatter("{x:g}")
    axes.yaxis.set_minor_formatter("")
    axes.set_xlabel("N")
    axes.set_ylabel("a step, ns for each of N² points")
    axes.set_title("Cost of a step (lower is better)", loc="left")
    # As the lines are from top to bottom.
    last = {name: points[-1][1] for name, (_, points) in per_point.items()}
    drawn = sorted(axes.lines, key=lambda line: -last[str(line.get_label())])
    axes.legend(handles=drawn, loc="center left", bbox_to_anchor=(1, 0.5), frameon=False)
    return figure


def _precision(results: list[dict[str, Any]]) -> plt.Figure:
    sizes = sorted({r["resolution"] for r in results})
    figure, panels = plt.subplots(
        1, len(sizes), figsize=(2.6 + 4.2 * len(sizes), 5.0), sharey=True, layout="constrained"
    )
    names = list(dict.fromkeys((r["peer"], r["group"]) for r in results))
    for axes, size in zip([panels] if len(sizes) == 1 else list(panels), sizes, strict=True):
        lines: Lines = {name: (group, []) for name, group in names}
        for r in results:
            if r["resolution"] == size:
                runs = [(run["seconds"], run["error"]) for run in r["runs"]]
                lines[r["peer"]][1].extend(p for p in runs if p[1] < 0.3)
        _plot(axes, lines)
        axes.set_xscale("log")
        axes.set_yscale("log")
        for target in (1e-3, 1e-4):
            axes.axhline(target, color="#888888", linewidth=0.8, linestyle=":")
        axes.set_xlabel("seconds to t = 1")
        axes.set_title(f"N = {size} (left and below is better)", loc="left")
    axes.legend(loc="center left", bbox_to_anchor=(1, 0.5), frameon=False)
    figure.axes[0].set_ylabel("relative error of the vorticity")
    return figure


def _plot(axes: Axes, lines: Lines) -> None:
    taken = dict.fromkeys(COLORS, 0)
    for name, (group, points) in lines.items():
        across, up = zip(*points, strict=True) if points else ((), ())
        index = taken[group]
        taken[group] += 1
        ours = name == "Zephane"
        axes.plot(
            across,
            up,
            label=name,
            color=COLORS[group][index % len(COLORS[group])],
            marker=MARKERS[index % len(MARKERS)],
            markersize=5 if ours else 4,
            linewidth=2.6 if ours else 1.2,
            zorder=3 if ours else 2,
        )
