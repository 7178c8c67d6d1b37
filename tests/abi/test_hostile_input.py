"""Malicious input: every reply must be valid, and the engine must keep working."""

from __future__ import annotations

import json
import random
import threading

import pytest

from .fresh_process import in_fresh_process, on_another_thread
from .harness import Engine, Library, decode, error_of
from .words import (
    BAD_SEED,
    FLOW_LOST,
    NOT_AN_OBJECT,
    PARSE_ERROR,
    UNKNOWN_OPERATION,
    UNWRITABLE,
    type_error,
)

MEGABYTE = 1 << 20
DEPTH = 100000

ILL_FORMED = [
    b"\xff",
    b"\xc3",
    b"\xc0\x80",
    b"\xe0\x80\x80",
    b"\xed\xa0\x80",
    b"\xf0\x9f\x8c",
    b"\xf4\x90\x80\x80",
    b"\xf8\x88\x80\x80\x80",
    b"\x80",
    b"\xe6\xb8",
]

LONE_SURROGATES = ["\\ud800", "\\udfff", "\\udc00\\ud800", "\\ud800x", "\\ud800\\u0041", "\\uD83C"]


@pytest.fixture(autouse=True)
def engine_works_afterwards(request):
    """Checks after each test that its engine, if it has one, still works."""
    engine = request.getfixturevalue("engine") if "engine" in request.fixturenames else None
    yield
    if engine:
        steps = engine.inspect()["steps"]
        assert engine.advance()["steps"] == steps + 1


# Length


def test_a_request_of_a_megabyte_of_members_is_read(engine):
    members = {f"key{number}": "x" * 90 for number in range(10000)}
    request = json.dumps({**members, "op": "inspect"})
    assert len(request) > MEGABYTE
    assert engine.call(request)["steps"] == 0


def test_an_operation_of_a_megabyte_is_unknown(engine):
    assert engine.refusal({"op": "x" * MEGABYTE}) == UNKNOWN_OPERATION


def test_a_megabyte_of_blanks_is_skipped(engine):
    assert engine.call(" " * MEGABYTE + '{"op":"inspect"}' + "\n" * MEGABYTE)["steps"] == 0


def test_a_name_of_a_megabyte_comes_back_whole(library):
    name = "渦" * (MEGABYTE // 3)
    assert library.creation_refusal({"operator": name}) == f"Unknown operator: {name}"


def test_a_megabyte_of_digits_is_a_seed_out_of_range(library):
    assert library.creation_refusal({"seed": "9" * MEGABYTE}) == "stoull argument out of range"


def test_a_number_of_a_megabyte_is_out_of_range(library):
    words = library.creation_refusal('{"seed":' + "9" * MEGABYTE + "}")
    assert words.startswith("[json.exception.out_of_range.406] number overflow parsing '999")


def test_an_unfinished_string_of_a_megabyte_is_a_syntax_error(engine):
    assert engine.refusal('{"op":"' + "x" * MEGABYTE).startswith(PARSE_ERROR)


def test_a_path_of_a_megabyte_cannot_be_opened(engine):
    assert engine.refusal({"op": "export", "spectrum": "x" * MEGABYTE}) == UNWRITABLE
    assert engine.refusal({"op": "reset", "initial": "x" * MEGABYTE}).startswith("file_size")


# Depth. Each in a separate process, because a failure would crash it.


def deep_requests(library: Library, depth: int):
    arrays = "[" * depth + "]" * depth
    objects = '{"a":' * depth + "1" + "}" * depth
    answers = {}
    with Engine(library, {"resolution": 16}) as engine:
        for name, value in (("arrays", arrays), ("objects", objects)):
            for text in (
                '{"op":%s}',
                '{"op":"inspect","x":%s}',
                '{"op":"advance","steps":%s}',
                '{"op":"advance","until":%s}',
                '{"op":"set","reynolds":%s}',
                '{"op":"reset","initial":%s}',
                '{"op":"export","spectrum":%s}',
                '{"op":"export","snapshot":%s}',
            ):
                reply = decode(engine.raw(text % value))
                answers[f"{name} {text}"] = reply.get("error", "")
        answers["array"] = engine.refusal(arrays)
        answers["object"] = engine.refusal(objects)
        answers["open arrays"] = engine.refusal("[" * depth)
        answers["open objects"] = engine.refusal('{"a":' * depth)
    return answers


def test_deep_nesting_in_a_request_is_reported_as_a_type_error(library_path):
    answers = in_fresh_process(library_path, deep_requests, DEPTH)
    expected = {
        '{"op":%s}': "string",
        '{"op":"inspect","x":%s}': None,
        '{"op":"advance","steps":%s}': "number",
        '{"op":"advance","until":%s}': "number",
        '{"op":"set","reynolds":%s}': "number",
        '{"op":"reset","initial":%s}': "string",
        '{"op":"export","spectrum":%s}': "string",
        '{"op":"export","snapshot":%s}': "boolean",
    }
    for text, wanted in expected.items():
        for name, kind in (("arrays", "array"), ("objects", "object")):
            words = type_error(wanted, kind) if wanted else ""
            assert answers[f"{name} {text}"] == words
    assert answers["array"] == NOT_AN_OBJECT
    assert answers["object"] == UNKNOWN_OPERATION
    assert answers["open arrays"].startswith(PARSE_ERROR)
    assert answers["open objects"].startswith(PARSE_ERROR)


def deep_configurations(library: Library, depth: int):
    def refusals(value: str):
        keys = ["resolution", "seed", "reynolds", "fixed_dt", "integrator", "operator", "initial"]
        texts = [f'{{"resolution":16,"{key}":{value}}}' for key in keys]
        return [library.creation_refusal(text) for text in texts]

    arrays = "[" * depth + "]" * depth
    objects = '{"a":' * depth + "1" + "}" * depth
    bare = [library.creation_refusal(text) for text in (arrays, "[" * depth)]
    return [refusals(arrays), refusals(objects), bare]


def test_deep_nesting_in_a_configuration_is_reported_as_a_type_error(library_path):
    arrays, objects, bare = in_fresh_process(library_path, deep_configurations, DEPTH)
    for answers, kind in ((arrays, "array"), (objects, "object")):
        number, text = type_error("number", kind), type_error("string", kind)
        assert answers == [number, BAD_SEED, number, number, text, text, text]
    assert bare[0] == NOT_AN_OBJECT
    assert bare[1].startswith(PARSE_ERROR)


def deep_on_a_small_stack(library: Library, depth: int):
    threading.stack_size(512 << 10)
    text = '{"resolution":16,"seed":' + "[" * depth + "]" * depth + "}"
    return on_another_thread(lambda: library.creation_refusal(text))


def test_deep_nesting_needs_no_deep_stack(library_path):
    assert in_fresh_process(library_path, deep_on_a_small_stack, DEPTH) == BAD_SEED


# UTF-8


@pytest.mark.parametrize("octets", ILL_FORMED)
def test_ill_formed_utf8_in_a_request_is_a_syntax_error_reported_in_utf8(engine, octets):
    for request in (
        b'{"op":"' + octets + b'"}',
        b'{"op":"' + octets,
        b'{"' + octets + b'":1}',
        b'{"op":"export","spectrum":"' + octets + b'"}',
        octets,
        b'{"op":"inspect"}' + octets,
    ):
        assert engine.refusal(request).startswith(PARSE_ERROR)


@pytest.mark.parametrize("octets", ILL_FORMED)
def test_ill_formed_utf8_in_a_configuration_is_a_syntax_error_reported_in_utf8(library, octets):
    for configuration in (b'{"integrator":"' + octets + b'"}', octets, b'{"seed":"' + octets):
        assert library.creation_refusal(configuration).startswith(PARSE_ERROR)


@pytest.mark.parametrize("escape", LONE_SURROGATES)
def test_a_lone_surrogate_is_a_syntax_error(library, engine, escape):
    for text in (f'{{"op":"{escape}"}}', f'{{"op":"reset","initial":"{escape}"}}'):
        assert engine.refusal(text).startswith(PARSE_ERROR)
    assert library.creation_refusal(f'{{"seed":"{escape}"}}').startswith(PARSE_ERROR)


def test_a_pair_of_surrogates_is_one_character(library):
    words = library.creation_refusal('{"operator":"\\ud83c\\udf00"}')
    assert words == "Unknown operator: 🌀"


def test_a_byte_order_mark_in_front_is_skipped(engine):
    assert engine.call(b'\xef\xbb\xbf{"op":"inspect"}')["steps"] == 0


@pytest.mark.parametrize("character", ["\0", "\x01", "\x1f", "\x7f", "\u2028", "\ufffe", "\ufeff"])
def test_an_unusual_character_comes_back_unchanged(library, character):
    name = f"a{character}b"
    words = library.creation_refusal(json.dumps({"operator": name}))
    assert words == f"Unknown operator: {name}".split("\0")[0]


def test_a_nul_in_an_operation_does_not_end_it(engine):
    assert engine.refusal('{"op":"inspect\\u0000"}') == UNKNOWN_OPERATION


def test_a_nul_in_a_name_ends_the_text_of_its_refusal(engine, tmp_path):
    request = {"op": "export", "png": str(tmp_path / "p"), "pixel_size": 16, "palette": "a\0b"}
    assert engine.refusal(request) == "Unknown palette: a"


# Random input


def mangled(texts: list[bytes], count: int, seed: int) -> list[bytes]:
    """Texts with bytes overwritten, dropped, doubled and moved about."""
    source = random.Random(seed)
    results = []
    for _ in range(count):
        octets = bytearray(source.choice(texts))
        for _ in range(source.randint(1, 4)):
            at = source.randrange(len(octets) + 1)
            end = min(len(octets), at + source.randint(1, 4))
            change = source.randrange(4)
            if change == 0 and at < len(octets):
                octets[at] = source.randrange(1, 256)
            elif change == 1:
                del octets[at:end]
            elif change == 2:
                octets[at:at] = octets[at:end]
            else:
                octets[at:at] = source.choice([b'"', b"{", b"}", b"[", b",", b"\\", b"-", b"9"])
        results.append(bytes(octets).replace(b"/", b"_"))
    return results


def test_mangled_requests_get_a_reply_each(engine, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    requests = [
        b'{"op":"inspect"}',
        b'{"op":"advance","steps":2}',
        b'{"op":"advance","steps":2,"until":1e-3}',
        b'{"op":"set","reynolds":1000.5,"cfl":0.5}',
        b'{"op":"reset","initial":"none"}',
        b'{"op":"export","snapshot":true,"include_velocity":false}',
    ]
    for request in mangled(requests, 3000, seed=1):
        # A few more digits in "steps" would make a run of minutes.
        if request.count(b"2") + request.count(b"9") < 4:
            decode(engine.raw(request))
    if engine.raw({"op": "inspect"}) == json.dumps({"error": FLOW_LOST}).encode():
        engine.reset()


def test_mangled_configurations_are_refused_or_make_an_engine(library):
    configurations = [
        b'{"resolution":16,"k0":4,"seed":"2","reynolds":1000.5,"cfl":3.0,"fixed_dt":null}',
        b'{"resolution":16,"integrator":"imexRK3","operator":"stress","start_spectrum":"KM3"}',
    ]
    for configuration in mangled(configurations, 600, seed=2):
        try:
            resolution = json.loads(configuration).get("resolution", 1024)
        except (ValueError, AttributeError):
            resolution = 16
        if isinstance(resolution, (int, float)) and resolution <= 64:
            handle = library.c.zp_engine_create(configuration, None)
            library.c.zp_engine_destroy(handle)


def test_random_bytes_are_syntax_errors(engine):
    source = random.Random(3)
    for _ in range(500):
        octets = bytes(source.randrange(1, 256) for _ in range(source.randint(1, 60)))
        assert error_of(engine.raw(octets))
