"""Malicious requests to a view: every reply must be valid, and the flow must go on."""

from __future__ import annotations

import random

import pytest

from .fresh_process import in_fresh_process
from .harness import Library, decode, error_of
from .test_hostile_input import DEPTH, ILL_FORMED, LONE_SURROGATES, MEGABYTE, mangled
from .view import View
from .words import BAD_SEED, NOT_AN_OBJECT, PARSE_ERROR, UNKNOWN_UI_OPERATION, type_error


@pytest.fixture(autouse=True)
def view_works_afterwards(request):
    """Checks after each test that its view, if it has one, still works."""
    view = request.getfixturevalue("paused") if "paused" in request.fixturenames else None
    yield
    if view:
        view.call("benchmark", until=None, wall_seconds=None, batch=None, initial=None)
        view.call("configure", resolution=18, reynolds=1000, fixed_dt=None)
        view.call("visible")
        view.call("reset")
        view.call("step")
        view.steps(1)


def test_a_request_of_a_megabyte_is_read(paused):
    members = {f"key{number}": "x" * 90 for number in range(10000)}
    assert paused.call("get", **members)["generation"] == 1


def test_texts_of_a_megabyte_are_refused(paused):
    long = "渦" * (MEGABYTE // 3)
    assert paused.refusal({"op": long}) == UNKNOWN_UI_OPERATION
    assert paused.refusal({"op": "set", "palette": long}) == f"Unknown palette: {long}"
    assert paused.refusal({"op": "configure", "operator": long}) == f"Unknown operator: {long}"
    digits = {"op": "configure", "seed": "9" * MEGABYTE}
    assert paused.refusal(digits) == "stoull argument out of range"
    assert paused.refusal('{"op":"' + "x" * MEGABYTE).startswith(PARSE_ERROR)


def test_a_path_of_a_megabyte_is_quoted_in_the_failure(paused):
    paused.call("benchmark", initial="x" * MEGABYTE, spectrum="x" * MEGABYTE)
    paused.call("reset")
    report = paused.settled()
    assert report["error_message"].startswith("file_size")
    assert len(report["error_message"]) > MEGABYTE


def deep_requests(library: Library, depth: int):
    library.initialize()
    answers = {}
    with View(library) as view:
        arrays, objects = "[" * depth + "]" * depth, '{"a":' * depth + "1" + "}" * depth
        for name, value in (("arrays", arrays), ("objects", objects)):
            for text in (
                '{"op":%s}',
                '{"op":"get","x":%s}',
                '{"op":"running","value":%s}',
                '{"op":"configure","seed":%s}',
                '{"op":"configure","reynolds":%s}',
                '{"op":"set","cfl":%s}',
                '{"op":"set","display":%s}',
                '{"op":"set","flow":%s}',
                '{"op":"benchmark","batch":%s}',
                '{"op":"benchmark","spectrum":%s}',
                '{"op":"export","png":%s}',
            ):
                answers[f"{name} {text}"] = decode(view.raw(text % value)).get("error")
        answers["array"] = view.refusal("[" * depth + "]" * depth)
        answers["open"] = view.refusal("[" * depth)
    return answers


def test_deep_nesting_is_reported_as_a_type_error(library_path):
    answers = in_fresh_process(library_path, deep_requests, DEPTH)
    assert answers.pop("array") == NOT_AN_OBJECT
    assert answers.pop("open").startswith(PARSE_ERROR)
    for name, kind in (("arrays", "array"), ("objects", "object")):
        expected = {
            '{"op":%s}': type_error("string", kind),
            '{"op":"get","x":%s}': None,
            '{"op":"running","value":%s}': type_error("boolean", kind),
            '{"op":"configure","seed":%s}': BAD_SEED,
            '{"op":"configure","reynolds":%s}': type_error("number", kind),
            '{"op":"set","cfl":%s}': type_error("number", kind),
            '{"op":"set","display":%s}': type_error("string", kind),
            '{"op":"set","flow":%s}': type_error("boolean", kind),
            '{"op":"benchmark","batch":%s}': type_error("number", kind),
            '{"op":"benchmark","spectrum":%s}': type_error("string", kind),
            '{"op":"export","png":%s}': "No completed frame.",
        }
        for text, words in expected.items():
            assert answers.pop(f"{name} {text}") == words
    assert not answers


@pytest.mark.parametrize("octets", ILL_FORMED)
def test_ill_formed_utf8_is_a_syntax_error_reported_in_utf8(paused, octets):
    for request in (
        b'{"op":"' + octets + b'"}',
        b'{"op":"get","' + octets + b'":1}',
        b'{"op":"set","palette":"' + octets + b'"}',
        b'{"op":"benchmark","initial":"' + octets + b'"}',
        b'{"op":"get"}' + octets,
    ):
        assert paused.refusal(request).startswith(PARSE_ERROR)


@pytest.mark.parametrize("escape", LONE_SURROGATES)
def test_a_lone_surrogate_is_a_syntax_error(paused, escape):
    assert paused.refusal(f'{{"op":"{escape}"}}').startswith(PARSE_ERROR)
    words = paused.refusal(f'{{"op":"benchmark","initial":"{escape}"}}')
    assert words.startswith(PARSE_ERROR)


def test_mangled_requests_get_a_reply_each(paused, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    requests = [
        b'{"op":"get"}',
        b'{"op":"running","value":true}',
        b'{"op":"configure","k0":3,"reynolds":1000.5,"integrator":"imexRK3","cap_cfl":true}',
        b'{"op":"set","cfl":1.5,"log_reynolds":3.5,"display":"speed","flow":true,"sigma":2}',
        b'{"op":"benchmark","until":2.5,"wall_seconds":1,"batch":4,"initial":"x","spectrum":null}',
        b'{"op":"visible","value":false}',
        b'{"op":"step"}',
    ]
    for request in mangled(requests, 3000, seed=4):
        reply = decode(paused.raw(request))
        if "error" not in reply:
            View.check(reply)


def test_random_bytes_are_syntax_errors(paused):
    source = random.Random(5)
    for _ in range(500):
        octets = bytes(source.randrange(1, 256) for _ in range(source.randint(1, 60)))
        assert error_of(paused.raw(octets))
