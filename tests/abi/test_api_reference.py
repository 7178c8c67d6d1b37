"""docs/api.md against the library: every default, range, type, key, refusal and example."""

from __future__ import annotations

import json
import math
import os
import re
import zlib
from pathlib import Path
from typing import Any, Callable

import pytest

from .fresh_process import in_fresh_process, on_another_thread
from .harness import Engine, Library, Refused, decode, error_of, single
from .reference_page import (
    NONE,
    ROOT,
    Row,
    range_of,
    refusals,
    replies,
    requests,
    rows,
    section,
    sections,
)
from .view import View

TYPES = {
    "integer": int,
    "number": float,
    "string": str,
    "boolean": bool,
    "array": list,
    "object": dict,
    "null": type(None),
}
SOURCES = ("boundary", "controller", "render", "solver", "kernels", "device", "platform")


def parameters(found: list[Row]) -> Any:
    assert found
    return pytest.mark.parametrize("row", found, ids=[row.name for row in found])


def operations(kind: str) -> list[str]:
    """The operations that the headings name, as "View: get, flush"."""
    titles = [one.title for one in sections() if one.title.startswith(f"{kind}: ")]
    return [name for title in titles for name in title.partition(": ")[2].split(", ")]


def source_files(*folders: str) -> list[str]:
    paths = [path for folder in folders for path in (ROOT / folder).rglob("*")]
    return [path.read_text("utf-8") for path in paths if path.suffix in (".cpp", ".h")]


def literals(source: str) -> list[str]:
    """The string literals of a source, those side by side joined as the compiler does."""
    pieces = re.findall(r'"(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*', source)
    return ["".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', piece)) for piece in pieces]


# Functions, operations and keys


def test_the_functions_match_the_library(dynamic_symbols):
    prototypes = [row.code("Function") for row in rows("Function", "Result")]
    header = (ROOT / "boundary" / "zephane.h").read_text("utf-8")
    assert all(f"ZEPHANE_EXPORT {prototype};" in header for prototype in prototypes)
    names = {re.search(r"(\w+)\(", prototype).group(1) for prototype in prototypes}
    assert names == {name for kind, name in dynamic_symbols if kind == "T" and "zp_" in name}


def test_the_operations_match_the_library(engine, view):
    named = re.findall(r'(?:Operation\{|name == )"(\w+)"', "".join(source_files("boundary")))
    assert sorted(operations("Engine") + operations("View")) == sorted(named)
    unknown = engine.refusal("{}"), view.refusal("{}")
    for op in operations("Engine"):
        assert decode(engine.raw({"op": op})).get("error") != unknown[0]
    for op in operations("View"):
        if op != "save":
            assert decode(view.raw({"op": op})).get("error") != unknown[1]


def test_the_keys_of_requests_match_those_that_the_library_reads():
    reading = r'\b(?:read|find)\w*\(\w+, "(\w+)"'
    read = {key for source in source_files("boundary") for key in re.findall(reading, source)}
    assert read == {"op", *(row.code("Key") for row in requests())}


# Requests


@pytest.fixture
def send(library, make_engine, tmp_path) -> Any:
    """Sends one key of a section's request; returns the value that the library kept, if visible."""
    made: dict[str, Any] = {}

    def engine(**members: Any) -> None:
        made.setdefault("engine", make_engine()).call(members)

    def view(**members: Any) -> dict[str, Any]:
        if "view" not in made:
            made["view"] = View(library)
            made["view"].call("set", regulated=False)
        return made["view"].call(**members)

    def live(key: str, value: Any) -> Any:
        if key == "log_reynolds":
            return math.log10(view(op="set", **{key: value})["effective_reynolds"])
        report = view(op="set", **{key: value})
        return report[key] if key in report else report["config"][key]

    def one(title: str, key: str, value: Any) -> Any:
        if title == "Configuration":
            if key in ("initial", "state"):
                return library.engine_create(json.dumps({key: value}).encode())
            return view(op="configure", **{key: value})["config"][key]
        if title in ("View: set", "Picture settings"):
            return live(key, value)
        kind, _, op = title.partition(": ")
        members = {"op": op.split(", ")[0], key: value}
        if title == "Engine: advance":
            members = {"steps": 0, "until": 0, **members}
        if key == "pixel_size":
            members["png"] = str(tmp_path / "picture.png")
        if key == "include_velocity":
            members["snapshot"] = True
        return engine(**members) if kind == "Engine" else view(**members) and None

    yield one
    if "view" in made:
        made["view"].close()


def is_kept(row: Row, value: Any, kept: Any) -> bool:
    if kept is None or value is None:
        return True
    if row["Type"].startswith("digits"):
        return kept == str(value)
    return kept == value or kept in (single(value), pytest.approx(value, rel=1e-12))


REQUESTS = [row for row in requests() if row.section != "View: export"]


@parameters(REQUESTS)
def test_a_value_is_accepted_clamped_or_refused_by_its_range(send, row, request):
    if row.code("Key") == "pixel_size":
        request.getfixturevalue("drawing")
    expected = range_of(row)
    if row.code("Key") == "pixel_size":  # the largest picture takes seconds, and has its own test
        expected.accepted.remove(8192)
    for value in expected.accepted:
        assert is_kept(row, value, send(row.section, row.code("Key"), value)), value
    for value, kept in expected.clamped:
        assert is_kept(row, kept, send(row.section, row.code("Key"), value)), value
    for value in expected.refused:
        with pytest.raises(Refused):
            send(row.section, row.code("Key"), value)


@parameters(REQUESTS)
def test_a_value_of_another_type_is_refused_and_null_accepted_only_if_allowed(send, row, request):
    key, (kind, _, null) = row.code("Key"), row["Type"].partition(" or ")
    if key == "pixel_size":
        request.getfixturevalue("drawing")
    wrong, words = {
        "integer": ("1", "must be number"),
        "number": (True, "must be number"),
        "boolean": (1, "must be boolean"),
        "name": (1, "must be string"),
        "path": (1, "must be string"),
        "digits": (True, "Seed must be UInt64."),
    }[kind]
    with pytest.raises(Refused, match=words):
        send(row.section, key, wrong)
    if key in ("initial", "state") and row.section == "Configuration":
        return  # without a file this would create an engine of the default size
    if null:
        send(row.section, key, None)
    else:
        with pytest.raises(Refused, match="but is null"):
            send(row.section, key, None)


def test_a_null_fixed_step_restores_the_adaptive_one(view):
    assert view.call("configure", fixed_dt=0.5)["config"]["fixed_dt"] == 0.5
    assert view.call("configure")["config"]["fixed_dt"] == 0.5
    assert view.call("configure", fixed_dt=None)["config"]["fixed_dt"] is None


# Defaults


def defaults(title: str) -> dict[str, Any]:
    found = [row for row in requests() if row.section == title and row["Default"] != NONE]
    return {row.code("Key"): json.loads(row.code("Default")) for row in found}


def test_the_defaults_of_a_configuration(library):
    shown = defaults("Configuration")
    assert len(shown) == 9
    with View(library) as view:
        for kept in (decode(library.initialize())["defaults"], view.get()["config"]):
            assert {key: kept[key] for key in shown} == shown


def test_the_defaults_of_live_settings_and_pictures(library):
    shown = {**defaults("View: set"), **defaults("Picture settings")}
    assert len(shown) == 9
    with View(library) as view:
        report = view.get()
        kept = {key: report.get(key, report["config"].get(key)) for key in shown}
    assert kept == shown


ARGUMENTS = [
    row
    for row in REQUESTS
    if row["Default"] != NONE and ": " in row.section and row.section != "View: set"
]


@parameters(ARGUMENTS)
def test_a_missing_argument_means_its_default(effect, row):
    default = json.loads(row.code("Default"))
    other = {bool: not default, int: 2 if default != 2 else 3}[type(default)]
    key = row.code("Key")
    without = effect(row.section, key)
    assert effect(row.section, key, default) == without
    assert effect(row.section, key, other) != without


@pytest.fixture
def effect(library, make_engine, request, tmp_path) -> Callable[..., Any]:
    """The effect of a request in a new engine or view."""

    def of_engine(op: str, members: dict[str, Any]) -> Any:
        if "pixel_size" in members or members.pop("draw", False):
            request.getfixturevalue("drawing")
            members["png"] = str(tmp_path / "picture.png")
        reply = make_engine().call({"op": op, **members})
        reply.pop("gpu_milliseconds", None)
        return reply, [path.read_bytes() for path in tmp_path.iterdir()]

    def of_view(op: str, members: dict[str, Any]) -> Any:
        with View(library) as view:
            if op == "visible":
                view.attach(request.getfixturevalue("window").id)
                return view.call(op, **members)["canvas"]["visible"]
            if op == "configure":
                members = {"integrator": "imexRK3", **members}
            report = view.call(op, **members)
            return report["running"], report["config"]

    def run(title: str, key: str, *value: Any) -> Any:
        kind, _, op = title.partition(": ")
        members = {key: value[0]} if value else {}
        if key == "include_velocity":
            members["snapshot"] = True
        if key == "pixel_size":
            members["draw"] = True
        return (of_engine if kind == "Engine" else of_view)(op.split(", ")[0], members)

    return run


def test_an_engine_draws_with_the_default_picture_settings(drawing, engine, tmp_path):
    def picture(**members: Any) -> bytes:
        path = tmp_path / "picture.png"
        engine.export(png=str(path), pixel_size=16, **members)
        return path.read_bytes()

    shown = defaults("Picture settings")
    assert picture(**shown) == picture()
    compressive = {**shown, "color_range": "exposure"}
    assert picture(**compressive) == picture(color_range="exposure") != picture()


# Replies


def is_of(kind: str, value: Any) -> bool:
    return type(value) in [TYPES[name] for name in kind.split(" or ")]


def expect_members(table: list[Row], reply: dict[str, Any], whole: bool = False) -> None:
    kinds = {row.code("Key"): row["Type"] for row in table}
    optional = {key for key, kind in kinds.items() if kind.endswith(" (optional)")}
    assert set(kinds) - (set() if whole else optional) <= set(reply) <= set(kinds)
    for key, value in reply.items():
        assert is_of(kinds[key].removesuffix(" (optional)"), value), (key, value)


def test_the_system_description_has_the_keys_shown(library):
    description = decode(library.initialize())
    (table,) = replies("System description")
    expect_members(table, description)
    (capabilities,) = (row["Meaning"] for row in table if row.code("Key") == "capabilities")
    assert set(re.findall(r"`(\w+)`", capabilities)) == set(description["capabilities"])
    (table,) = replies("Configuration")
    expect_members(table, description["defaults"])


def test_the_reports_of_an_engine_have_the_keys_shown(engine):
    (table,) = replies("Statistics")
    expect_members(table, engine.inspect())
    (table,) = replies("Snapshot")
    expect_members(table, engine.export(snapshot=True))


def test_a_status_report_has_the_keys_shown(library, attached):
    report, performance, canvas = replies("Status report")
    whole = attached.get()
    expect_members(report, whole, whole=True)
    expect_members(performance, whole["performance"])
    expect_members(canvas, whole["canvas"])
    expect_members(next(replies("Statistics")), whole["stats"])
    expect_members(next(replies("Snapshot")), whole["frame"])
    with View(library) as view:
        expect_members(report, view.get())


# Files


def test_the_raw_files_have_the_sizes_shown(engine, make_engine, tmp_path):
    paths = {key: str(tmp_path / key) for key in ("fields", "spectrum")}
    engine.export(**paths)
    Path(tmp_path, "initial").write_bytes(Path(paths["fields"]).read_bytes()[: 4 * 16 * 16])
    make_engine(initial=str(tmp_path / "initial"))
    shown = rows("File", "Bytes", "Contents")
    assert {row.code("File") for row in shown} == {"initial", *paths}
    for row in shown:
        factor = int(row["Bytes"].removesuffix(" N²"))
        assert (tmp_path / row.code("File")).stat().st_size == factor * 16 * 16


# Refusals


def lost(case: Case) -> Engine:
    """An engine whose flow has just overflowed single precision."""
    engine = case.make_engine(fixed_dt=1e30, reynolds=1e30)
    case.first = engine.refusal({"op": "advance"})
    return engine


def advanced_too_far(case: Case) -> str:
    lost(case)
    return case.first


def initialized_with(device: str) -> Callable[[Case], str]:
    def run(case: Case) -> str:
        return in_fresh_process(
            case.library.path, initialize_alone, environment={"ZEPHANE_DEVICE": device}
        )["error"]

    return run


def initialize_alone(library: Library):
    return decode(library.initialize())


def started_from(contents: bytes) -> Callable[[Case], str]:
    def run(case: Case) -> str:
        path = case.folder / "start.raw"
        path.write_bytes(contents)
        return case.library.creation_refusal({"resolution": 16, "initial": str(path)})

    return run


def gone_on_from(change: Callable[[bytes], bytes], **members: Any) -> Callable[[Case], str]:
    """The answer to the state of a small flow, changed."""

    def run(case: Case) -> str:
        path = case.folder / "flow.state"
        case.make_engine().export(state=str(path))
        path.write_bytes(change(path.read_bytes()))
        return case.library.creation_refusal({"state": str(path), **members})

    return run


def resealed(content: bytes) -> bytes:
    """A state without a key of its header, with the right checksum."""
    end = 8 + int.from_bytes(content[:8], "little")
    header = content[8:end].replace(b"raw_dt", b"raw_tt")
    plain = re.sub(rb'(header_checksum":")\w{8}', rb"\g<1>00000000", header)
    sealed = plain.replace(b'"00000000"', b'"%08x"' % zlib.crc32(plain))
    return content[:8] + sealed + content[end:]


def called_on_another_thread(case: Case) -> str:
    view = case.view
    return on_another_thread(lambda: view.refusal({"op": "get"}))


def attach(window: Callable[[Case], int], times: int = 1) -> Callable[[Case], str]:
    def run(case: Case) -> str:
        for _ in range(times - 1):
            case.view.attach(window(case))
        with pytest.raises(Refused) as refused:
            case.view.attach(window(case))
        return refused.value.text

    return run


def attached_without_a_display(case: Case) -> str:
    case.fixture("monkeypatch").setenv("DISPLAY", "")
    return attach(lambda _: 1)(case)


def saved_without_a_dialog(case: Case) -> str:
    patch = case.fixture("monkeypatch")
    patch.setenv("PATH", str(case.folder))
    for name in ("DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"):
        patch.delenv(name, raising=False)
    return case.view.refusal({"op": "save"})


def out_of_memory(case: Case) -> str:
    return in_fresh_process(case.library.path, largest_grid)


def largest_grid(library: Library):
    import resource

    resource.setrlimit(resource.RLIMIT_AS, (2 << 30, 2 << 30))
    return library.creation_refusal({"resolution": 16384})


def exported(**members: Any) -> Callable[[Case], str]:
    return lambda case: case.fixture("attached").refusal({"op": "export", **members})


class Case:
    """The fixtures that provoke a refusal."""

    def __init__(self, request: pytest.FixtureRequest) -> None:
        self.fixture = request.getfixturevalue
        self.library: Library = self.fixture("library")
        self.folder: Path = self.fixture("tmp_path")
        self.make_engine: Callable[..., Engine] = self.fixture("make_engine")
        self.first = ""

    @property
    def view(self) -> View:
        return self.fixture("view")


# By section, where one text has several causes. The others are only searched for in the sources.
PROVOKED: dict[str | tuple[str, str], Callable[[Case], str]] = {
    "Initialize on the main thread.": lambda case: error_of(
        on_another_thread(case.library.initialize)
    ),
    "Closed engine.": lambda case: error_of(case.library.engine_call(None, b"{}")),
    "UI calls require the main thread.": called_on_another_thread,
    "Closed UI.": lambda case: error_of(case.library.ui_call(None, b"{}")),
    "ZEPHANE_DEVICE must be a nonnegative device index.": initialized_with("-1"),
    "stoi argument out of range": initialized_with("2147483648"),
    "cudaSetDevice(deviceId): invalid device ordinal": initialized_with("9999"),
    "Initial file must contain exactly N² Float32 samples.": started_from(b"short"),
    "Initial vorticity must contain exactly N² finite Float32 samples.": started_from(
        b"\xff" * 1024
    ),
    "Not a state file:": gone_on_from(lambda content: b"P6 16 16 255"),
    "State file is truncated:": gone_on_from(lambda content: content[:-1]),
    "State file is too long: it has": gone_on_from(lambda content: content + b"x"),
    "State file is damaged: the checksum of": gone_on_from(lambda content: content[:-1] + b"x"),
    "State file has layout": gone_on_from(lambda content: content.replace(b'"1"', b'"2"')),
    "State file is invalid:": gone_on_from(resealed),
    "State of another configuration:": gone_on_from(lambda content: content, resolution=18),
    "The solver encountered a non-finite field or timestep.": advanced_too_far,
    "The flow became non-finite or a GPU operation failed. Reset to recover.": lambda case: lost(
        case
    ).refusal({"op": "inspect"}),
    "Canvas is already attached.": attach(lambda case: case.fixture("window").id, times=2),
    "Invalid parent HWND.": attach(lambda case: case.fixture("display") and 0xDEAD),
    "Cannot create native canvas.": attached_without_a_display,
    "No completed frame.": lambda case: case.view.refusal({"op": "export"}),
    "No native renderer.": lambda case: case.fixture("paused").refusal({"op": "export"}),
    "Could not open Save PNG dialog.": saved_without_a_dialog,
    ("Refusals of a view", "PNG size must be 1 through 8192."): exported(png="x", pixel_size=0),
    ("Refusals of a view", "Cannot write export file."): exported(fields="missing/fields.raw"),
    "cudaMalloc(&ptr,bytes): out of memory": out_of_memory,
}


def expected_text(row: Row) -> tuple[str, bool]:
    """The text of a refusal, and whether it is complete."""
    return row.code("Refusal"), not row["Refusal"].endswith("...")


def answer(row: Row, case: Case) -> str | None:
    """The refusal that the row's example, or its entry in PROVOKED, gets."""
    text, _ = expected_text(row)
    if row["For example"] == NONE:
        provoke = PROVOKED.get((row.section, text)) or PROVOKED.get(text)
        return provoke(case) if provoke else None
    example = row.code("For example")
    if '"png"' in example:
        case.fixture("drawing")
    if row.section == "Configuration":
        return case.library.creation_refusal(example)
    if row.section == "Refusals of a view":
        return case.view.refusal(example)
    return case.make_engine().refusal(example)


@parameters(refusals())
def test_a_refusal_has_the_text_shown(request, monkeypatch, row, sanitized):
    text, whole = expected_text(row)
    if sanitized and "out of memory" in text:
        pytest.skip("a sanitizer needs more address space than the test leaves")
    case = Case(request)
    monkeypatch.chdir(case.folder)
    given = answer(row, case)
    if given is None:
        beginning = text.partition(" failed (0x")[0]
        assert any(beginning in found for source in source_files(*SOURCES)
                   for found in literals(source)), text  # fmt: skip
    elif whole:
        assert given == text
    else:
        assert given.startswith(text)


def thrown() -> set[str]:
    """The texts thrown in the sources, up to the first part that is known only at run time."""
    found = set()
    for source in source_files(*SOURCES):
        source = re.sub(r"//.*", "", source)
        for raised in re.findall(r"throw std::\w+\(\s*([^;]*);", source):
            if raised.startswith('"') or raised.startswith('std::string("'):
                found.add(literals(raised)[0])
            elif name := re.fullmatch(r"(\w+)\)", raised.strip()):
                found.add(constants()[name.group(1)] if name.group(1) in constants() else "")
    return found - {""}


def constants() -> dict[str, str]:
    pattern = r'constexpr (?:const char\*|std::string_view) (\w+) = "([^"]*)"'
    return {name: text for source in source_files(*SOURCES)
            for name, text in re.findall(pattern, source)}  # fmt: skip


def test_every_refusal_of_the_sources_is_shown():
    shown = [expected_text(row)[0] for row in refusals()]
    missing = [text for text in thrown()
               if not any(one.startswith(text.rstrip()) for one in shown)]  # fmt: skip
    assert len(thrown()) > 30 and missing == []


@pytest.mark.parametrize(
    "system, folders",
    [("", ["render/vulkan", "render/png", "render/cairo"]), (" on Windows", ["render/d3d11"])],
)
def test_the_drawing_steps_match_the_sources(system, folders):
    """In those folders each literal of several words that begins with a capital names a step or
    is a whole refusal. Wide literals are names of fonts and windows."""
    named = {text for source in source_files(*folders)
             for text in literals(re.sub(r'//.*|L"[^"]*"', "", source))}  # fmt: skip
    steps = {text for text in named if re.fullmatch(r"[A-Z]\w*( \w+)+", text)}
    (paragraph,) = re.findall(
        rf"The steps of a drawing{system}: (.*?)\.\n",
        section("Failures of the machine").text,
        re.DOTALL,
    )
    assert set(re.findall(r'"([^"]*)"', paragraph.replace("\n", " "))) == steps


# Examples


def equal_apart_from_rounding(shown: Any, given: Any) -> bool:
    """Whether two replies are equal apart from rounding, the clock and the machine."""
    if isinstance(shown, dict):
        return set(shown) == set(given) and all(
            key in ("gpu_milliseconds", "gpu", "backend")
            or equal_apart_from_rounding(shown[key], given[key])
            for key in shown
        )
    if isinstance(shown, float):
        return type(given) is float and given == pytest.approx(shown, rel=1e-3, abs=1e-5)
    return type(shown) is type(given) and shown == given


def test_the_engine_examples_get_the_replies_shown(library, tmp_path, monkeypatch, request):
    monkeypatch.chdir(tmp_path)
    (configuration,) = section("Configuration").examples
    found = [one for part in sections() for one in part.examples]
    asked = [at for at, one in enumerate(found) if one.words[:2] == ["request", "engine"]]
    assert len(asked) >= 8
    with Engine(library, configuration.text) as engine:
        for at in asked:
            example, reply = found[at], found[at + 1]
            assert reply.words == ["reply"]
            if "picture" in example.words:
                request.getfixturevalue("drawing")
            given = decode(engine.raw(example.text))
            assert equal_apart_from_rounding(json.loads(reply.text), given), (example.text, given)


def test_the_view_examples_are_answered(library, drawing, window, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    offer_a_path(tmp_path, monkeypatch)
    found = [one for part in sections() for one in part.examples]
    asked = [at for at, one in enumerate(found) if one.words[:2] == ["request", "view"]]
    seen = {json.loads(found[at].text)["op"] for at in asked}
    assert seen == set(operations("View"))
    with View(library) as view:
        for at in asked:
            words = found[at].words
            if "window" in words:
                view.attach(window.id)
                view.wait(lambda report: report["presentations"] > 0)
            report = view.ask(found[at].text)
            if found[at + 1 :] and found[at + 1].words == ["reply", "status"]:
                assert equal_apart_from_rounding(json.loads(found[at + 1].text), report)
            assert report["error_message"] is None
        view.call("reset")  # limits apply to flows that start afterwards
        view.call("running", value=True)
        view.wait(lambda report: report["settled"] and not report["running"])
    assert (tmp_path / "view.png").is_file() and (tmp_path / "saved.png").is_file()
    assert (tmp_path / "end.raw").stat().st_size == 8 * 128 * 128


def offer_a_path(folder: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    """A desktop whose user always answers with the same path."""
    program = folder / "programs" / "zenity"
    program.parent.mkdir()
    program.write_text(f"#!/bin/sh\necho '{folder}/saved.png'\n", "utf-8")
    program.chmod(0o755)
    monkeypatch.setenv("PATH", str(program.parent) + os.pathsep + os.environ["PATH"])
    for name in ("DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"):
        monkeypatch.delenv(name, raising=False)


def test_the_example_of_a_system_description_has_its_keys(library):
    (example, *_) = (one for one in section("System description").examples)
    given = decode(library.initialize())
    optional = {"cuda_driver_version", "cuda_runtime_version"}
    shown = json.loads(example.text)
    assert set(shown) | optional == set(given) | optional
    assert shown["defaults"] == given["defaults"]
