"""The frame around every call: exports, strings, handles, replies, threads."""

from __future__ import annotations

import ctypes
import subprocess
import threading

import pytest

from .fresh_process import in_fresh_process, on_another_thread
from .harness import FUNCTIONS, Engine, Library, decode, error_of
from .systems import posix_only
from .words import BAD_CONFIGURATION, NOT_AN_OBJECT, PARSE_ERROR, UNKNOWN_OPERATION, type_error

NOT_OBJECTS = ["[]", "[1]", "7", "-1.5", '"inspect"', "true", "null"]


def test_the_library_exports_its_nine_functions_and_nothing_else(dynamic_symbols):
    exported = {name for kind, name in dynamic_symbols if kind not in "UwA"}
    assert exported == set(FUNCTIONS)


@posix_only
def test_the_library_needs_no_gpu_no_driver_and_no_display_to_load(library_path):
    listing = subprocess.run(
        ["readelf", "--dynamic", str(library_path)], check=True, capture_output=True, text=True
    )
    needed = [line for line in listing.stdout.splitlines() if "(NEEDED)" in line]
    assert needed
    for name in ("cuda", "nvrtc", "vulkan", "xcb", "X11", "cairo", "pango"):
        assert not any(name in line for line in needed)


def test_freeing_a_null_string_does_nothing(library):
    library.c.zp_string_free(None)


def test_destroying_a_null_engine_does_nothing(library):
    library.c.zp_engine_destroy(None)


def test_a_call_on_a_null_engine_reports_that_it_is_closed(library):
    assert library.engine_call(None, b'{"op":"inspect"}') == b'{"error":"Closed engine."}'


def test_a_null_engine_is_reported_before_a_bad_request(library):
    assert error_of(library.engine_call(None, None)) == "Closed engine."
    assert error_of(library.engine_call(None, b"{")) == "Closed engine."


def test_a_null_request_is_not_an_object(engine):
    assert engine.refusal(None) == NOT_AN_OBJECT


@pytest.mark.parametrize("text", NOT_OBJECTS)
def test_a_request_that_is_not_an_object_is_refused(engine, text):
    assert engine.raw(text) == b'{"error":"Expected a JSON object."}'


@pytest.mark.parametrize("text", NOT_OBJECTS)
def test_a_configuration_that_is_not_an_object_is_refused(library, text):
    assert library.creation_refusal(text) == NOT_AN_OBJECT


def test_a_null_configuration_is_not_an_object(library):
    assert library.creation_refusal(None) == NOT_AN_OBJECT


@pytest.mark.parametrize(
    "text",
    [
        "",
        " ",
        "{",
        "}",
        '{"op"}',
        '{"op":}',
        '{"op":"inspect"',
        '{"op":"inspect",}',
        '{"op":"inspect"} x',
        '{"op":"inspect"}{}',
        '{op:"inspect"}',
        "{'op':'inspect'}",
        '{"op":"inspect"/* why */}',
        '{"op":"inspect"} // why',
        '{"op":NaN}',
        '{"op":Infinity}',
        '{"op":01}',
        '{"op":+1}',
        '{"op":1.}',
        '{"op":.5}',
        '{"op":"\t"}',
        '{"op":"\\x41"}',
        '{"op":nul}',
    ],
)
def test_a_syntax_error_has_the_text_of_the_json_library(library, engine, text):
    assert engine.refusal(text).startswith(PARSE_ERROR)
    assert library.creation_refusal(text).startswith(PARSE_ERROR)


def test_a_syntax_error_gives_its_position(engine):
    assert engine.refusal('{"op":"inspect"').startswith(
        "[json.exception.parse_error.101] parse error at line 1, column 16: "
    )


def test_blanks_around_a_request_do_not_matter(engine):
    assert engine.call(' \t\r\n{ "op" : "inspect" }\n')["steps"] == 0


def test_a_request_ends_at_its_first_nul(engine):
    assert engine.call(b'{"op":"inspect"}\0}garbage')["steps"] == 0


def test_the_last_of_two_equal_keys_counts(engine):
    assert engine.refusal('{"op":"inspect","op":"nothing"}') == UNKNOWN_OPERATION


@pytest.mark.parametrize(
    "request_text",
    [
        None,
        "[]",
        "{",
        "{}",
        '{"op":1}',
        '{"op":"nothing"}',
        '{"op":"advance","steps":-1}',
        '{"op":"set","cfl":0}',
        '{"op":"reset","initial":"/nowhere/at/all"}',
        '{"op":"export","spectrum":"/nowhere/at/all"}',
    ],
)
def test_a_failed_call_replies_with_an_error_alone_and_leaves_the_engine_usable(
    engine, request_text
):
    before = engine.raw({"op": "inspect"})
    reply = decode(engine.raw(request_text))
    assert list(reply) == ["error"] and reply["error"]
    assert engine.raw({"op": "inspect"}) == before


def test_a_failed_call_does_not_block_other_threads(engine):
    engine.refusal("{")
    engine.refusal({"op": "nothing"})
    finished = threading.Event()
    threading.Thread(target=lambda: (engine.inspect(), finished.set()), daemon=True).start()
    assert finished.wait(30)


def test_a_refused_configuration_gives_null_and_plain_text(library):
    error = ctypes.c_void_p()
    handle = library.c.zp_engine_create(b'{"resolution":17}', ctypes.byref(error))
    assert not handle
    assert library.take(error.value) == BAD_CONFIGURATION.encode()


def test_a_refused_configuration_without_an_error_pointer_gives_null(library):
    for configuration in (b'{"resolution":17}', b"{", None):
        assert not library.c.zp_engine_create(configuration, None)


def test_a_success_leaves_the_error_pointer_untouched(library):
    sentinel = 0x5A5A5A5A
    error = ctypes.c_void_p(sentinel)
    handle = library.c.zp_engine_create(b'{"resolution":16}', ctypes.byref(error))
    library.c.zp_engine_destroy(handle)
    assert handle and error.value == sentinel


def test_a_success_needs_no_error_pointer(library):
    handle = library.c.zp_engine_create(b'{"resolution":16}', None)
    assert handle
    library.c.zp_engine_destroy(handle)


def test_a_refusal_overwrites_the_error_pointer(library):
    error = ctypes.c_void_p(0x5A5A5A5A)
    assert not library.c.zp_engine_create(b"[]", ctypes.byref(error))
    assert library.take(error.value) == NOT_AN_OBJECT.encode()


def test_every_reply_is_a_separate_string(library, engine):
    request = b'{"op":"inspect"}'
    texts = [library.c.zp_engine_call(engine.handle, request) for _ in range(8)]
    assert len(set(texts)) == 8
    assert len({library.take(text) for text in texts}) == 1


def test_text_from_a_request_comes_back_as_plain_utf8(library):
    name = "渦度 ÉTDRK4 🌀"
    assert library.creation_refusal({"integrator": name}) == f"Unknown integrator: {name}"


def test_an_escaped_name_comes_back_unescaped(library):
    text = '{"integrator":"\\u6e26\\ud83c\\udf00\\n"}'
    assert library.creation_refusal(text) == "Unknown integrator: 渦🌀\n"


def test_a_reply_escapes_only_what_json_requires(engine):
    reply = engine.raw({"op": "export", "snapshot": True, "png": "x", "pixel_size": "é"})
    assert reply == b'{"error":"%s"}' % type_error("number", "string").encode()


def test_a_call_may_come_from_any_thread(engine):
    here = engine.raw({"op": "inspect"})
    assert on_another_thread(lambda: engine.raw({"op": "inspect"})) == here


def test_an_engine_may_be_created_and_destroyed_on_any_thread(library):
    def live() -> int:
        with Engine(library, {"resolution": 16}) as engine:
            return engine.advance(steps=2)["steps"]

    assert on_another_thread(live) == 2


def engine_without_initialize(library: Library):
    with Engine(library, {"resolution": 16}) as engine:
        return [engine.advance(steps=3), engine.inspect()["energy"]]


def test_an_engine_needs_no_zp_initialize(library_path, make_engine):
    report, energy = in_fresh_process(library_path, engine_without_initialize)
    assert report["steps"] == 3
    other = make_engine()
    other.advance(steps=3)
    assert other.inspect()["energy"] == energy


def test_four_threads_share_one_engine_and_no_step_is_lost(make_engine):
    engine = make_engine(fixed_dt=0.001)
    replies: list[dict] = []

    def work() -> None:
        for _ in range(25):
            replies.append(engine.advance(steps=4))
            engine.inspect()
            engine.set(reynolds=2000, cfl=1.0)
            engine.export(snapshot=True)
            assert engine.refusal({"op": "advance", "steps": -1})

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert sorted(reply["steps"] for reply in replies) == list(range(4, 404, 4))
    assert engine.inspect()["steps"] == 400


def test_engines_on_several_threads_do_not_affect_each_other(library):
    def live(seed: int) -> bytes:
        with Engine(library, {"resolution": 32, "seed": seed, "fixed_dt": 0.01}) as engine:
            engine.advance(steps=40)
            return engine.spectrum()

    alone = [live(seed) for seed in range(4)]
    together: list[bytes | None] = [None] * 4

    def run(seed: int) -> None:
        together[seed] = live(seed)

    threads = [threading.Thread(target=run, args=(seed,)) for seed in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert together == alone
    assert len(set(alone)) == 4


def test_forty_engines_can_exist_at_once(make_engine):
    engines = [make_engine(seed=seed, fixed_dt=0.01) for seed in range(40)]
    for count, engine in enumerate(engines):
        engine.advance(steps=count)
    reports = [engine.inspect() for engine in engines]
    assert [report["steps"] for report in reports] == list(range(40))
    assert len({report["energy"] for report in reports}) == 40


def refusals_of_a_short_run(library: Library):
    library.initialize()
    with Engine(library, {"resolution": 16, "fixed_dt": 1e30, "reynolds": 1e30}) as engine:
        words = [engine.refusal({"op": "advance"}), engine.refusal("{"), engine.refusal(None)]
    return words + [library.creation_refusal("{}}")]


def test_nothing_is_written_to_the_console(library_path):
    # in_fresh_process fails on any output other than the answer.
    assert all(in_fresh_process(library_path, refusals_of_a_short_run))
