"""The results of measure.py as tables in Markdown."""

from __future__ import annotations

from typing import Any

STAGES = 4  # of etdrk4
BUSY = (
    " **Other work was running**: the figures are rough. On several processors those of OpenMP and "
    "MPI are far too long then, as their threads wait for each other by spinning."
)
GROUPS = ("expert", "arrays", "packages")


def all_of(results: dict[str, Any]) -> str:
    parts = [
        origin(results),
        step(results["steps"]),
        stage(results["steps"]),
        expert(results["steps"]),
        gains(results),
        precision(results["precision"]),
        left_out(results),
        methods(results),
    ]
    return "\n".join(part for part in parts if part)


def origin(results: dict[str, Any]) -> str:
    of = results["machine"]
    busy = of["load_at_start"] > 0.25 * of["processors"]
    count = "One processor" if of["processors"] == 1 else f"{of['processors']} processors"
    return (
        f"{count} of an {of['processor']} with {of['instructions']}, "
        f"{of['compiler']}; load at the start {of['load_at_start']:.1f}."
        + (BUSY if busy else "")
        + f" Made by `{results['command']}` in {results['minutes']:.0f} minutes.\n"
    )


def step(results: list[dict[str, Any]]) -> str:
    """A line for each peer: time of a step and, in brackets, over ours."""
    measured = [r for r in results if "seconds" in r and r["group"] in ("Zephane", *GROUPS)]
    sizes = _sizes(measured)
    if not sizes:
        return ""
    fixed = [
        milliseconds(min(r["zephane_seconds"] for r in measured if r["resolution"] == size))
        for size in sizes
    ]
    rows = [["Zephane", *fixed]]
    for name in _names(measured):
        cells = []
        for size in sizes:
            found = _one(measured, name, size)
            cells.append(
                milliseconds(found["seconds"]) + over(found["seconds"], found["zephane_seconds"])
                if found
                else ""
            )
        rows.append([name, *cells])
    return "A step, ms, and its ratio to Zephane's in the same rounds:\n\n" + table(
        ["N", *map(str, sizes)], rows
    )


def stage(results: list[dict[str, Any]]) -> str:
    measured = [r for r in results if "seconds" in r and r["group"] == "bare"]
    sizes = _sizes(measured)
    if not sizes:
        return ""
    rows = []
    for name in _names(measured):
        cells = [_one(measured, name, size) for size in sizes]
        rows.append(
            [
                name,
                *(
                    ratio(cell["zephane_seconds"] / STAGES, cell["seconds"]) if cell else ""
                    for cell in cells
                ),
            ]
        )
    return "Zephane's stage, a quarter of its step, over its four transforms alone:\n\n" + table(
        ["N", *map(str, sizes)], rows
    )


def expert(results: list[dict[str, Any]]) -> str:
    measured = [r for r in results if "seconds" in r and r["group"] == "expert"]
    sizes = _sizes(measured)
    if not sizes:
        return ""
    row, forms = [], []
    for size in sizes:
        best = min(
            (r for r in measured if r["resolution"] == size),
            key=lambda r: r["seconds"] / r["zephane_seconds"],
        )
        row.append(ratio(best["seconds"], best["zephane_seconds"]))
        forms.append(best["peer"].removeprefix("expert, "))
    return "The best of the expert's forms over Zephane:\n\n" + table(
        ["N", *map(str, sizes)], [["ratio", *row], ["form", *forms]]
    )


def gains(results: dict[str, Any]) -> str:
    """Threads, sizes, adaptive steps."""
    lines = []
    for found in results["threads"]:
        gain = found["seconds_of_one"] / found["seconds"]
        lines.append(
            [f"{found['threads']} threads against 1, N = {found['resolution']}", f"{gain:.2f}"]
        )
    measured = [r for r in results["steps"] if "seconds" in r]
    cost = {
        size: min(r["zephane_seconds"] for r in measured if r["resolution"] == size)
        for size in _sizes(measured)
    }
    if 256 in cost and 4096 in cost:
        growth = (cost[4096] / cost[256]) ** (1 / 4)
        lines.append(["4 times the points, mean from 256 to 4096", f"{growth:.2f}"])
    for found in measured:
        if found["peer"] == "Zephane, adaptive":
            gain = found["seconds"] / found["zephane_seconds"]
            lines.append([f"adaptive against fixed step, N = {found['resolution']}", f"{gain:.3f}"])
    return "" if not lines else "Zephane against itself:\n\n" + table(["", "time ratio"], lines)


def precision(results: list[dict[str, Any]]) -> str:
    sizes = _sizes(results)
    if not sizes:
        return ""
    targets = list(results[0]["seconds_to"])
    ours = {
        (size, target): min(
            filter(
                None,
                (
                    r["seconds_to"][target]
                    for r in results
                    if r["group"] == "Zephane" and r["resolution"] == size
                ),
            ),
            default=None,
        )
        for size in sizes
        for target in targets
    }
    rows = []
    for name in _names(results):
        cells = []
        for size in sizes:
            found = _one(results, name, size)
            for target in targets:
                seconds, best = found and found["seconds_to"][target], ours[size, target]
                cells.append(_time(seconds, best))
        rows.append([name, *cells])
    head = ["", *(f"N = {size}, {target}" for size in sizes for target in targets)]
    return (
        "Seconds to t = 1 with an error below the given, and in brackets over Zephane's best:\n\n"
        + table(head, rows)
    )


def _time(seconds: float | None, best: float | None) -> str:
    if not seconds:
        return "–"
    return f"{seconds:.3g}" + (over(seconds, best) if best else "")


def left_out(results: dict[str, Any]) -> str:
    lines = [f"- {name}: {_brief(why)}" for name, why in results["missing"].items()]
    for part in ("steps", "precision"):
        for found in results[part]:
            if "failure" in found:
                where = "a step" if part == "steps" else "precision"
                lines.append(
                    f"- {found['peer']}, {where} at N = {found['resolution']}: "
                    f"{_brief(found['failure'])}"
                )
    return "" if not lines else "Not measured, or not to the end:\n\n" + "\n".join(lines) + "\n"


def _brief(why: str) -> str:
    return why.splitlines()[0][:160] if why else "no reason given"


def methods(results: dict[str, Any]) -> str:
    if not results["methods"]:
        return ""
    rows = []
    for name, method in results["methods"].items():
        found = [
            version
            for versions in results["versions"].values()
            for package, version in versions.items()
            if package.lower().replace("_", "-") == name.lower()
        ]
        rows.append([name, found[0] if found else "", method])
    return "The packages and what they compute with:\n\n" + table(["", "version", ""], rows)


def milliseconds(seconds: float) -> str:
    value = 1e3 * seconds
    return f"{value:.2f}" if value < 10 else f"{value:.1f}" if value < 100 else f"{value:.0f}"


def ratio(a: float, b: float) -> str:
    value = a / b
    return f"{value:.2f}" if value < 10 else f"{value:.0f}"


def over(theirs: float, ours: float) -> str:
    return f" ({ratio(theirs, ours)})"


def table(head: list[str], rows: list[list[str]]) -> str:
    lines = [head, ["---"] * len(head), *rows]
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def _sizes(results: list[dict[str, Any]]) -> list[int]:
    return sorted({r["resolution"] for r in results})


def _names(results: list[dict[str, Any]]) -> list[str]:
    return list(dict.fromkeys(r["peer"] for r in results))


def _one(results: list[dict[str, Any]], name: str, size: int) -> dict[str, Any] | None:
    found = [r for r in results if r["peer"] == name and r["resolution"] == size]
    return found[0] if found else None
