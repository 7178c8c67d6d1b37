"""zp_initialize: the system's description, the main thread and the choice of the device."""

from __future__ import annotations

import os
import re
import sys

import pytest

from .fresh_process import in_fresh_process, on_another_thread
from .harness import Engine, Library, Refused, decode, single
from .systems import posix_only

ALWAYS = {
    "abi_version",
    "available_memory_bytes",
    "backend",
    "capabilities",
    "compute_capability",
    "defaults",
    "device_index",
    "gpu",
    "gpu_memory_bytes",
    "os",
    "physical_memory_bytes",
    "precision",
}
WITH_CUDA = {"cuda_driver_version", "cuda_runtime_version"}
BAD_DEVICE = "ZEPHANE_DEVICE must be a nonnegative device index."
ELSEWHERE = "Initialize on the main thread."


@pytest.fixture(scope="module")
def description(library) -> dict:
    return decode(library.initialize())


def test_the_description_has_its_keys(description):
    assert ALWAYS <= set(description) <= ALWAYS | WITH_CUDA


def test_the_boundary_has_version_one(description):
    assert description["abi_version"] == 1 and isinstance(description["abi_version"], int)


def test_the_precision_is_single(description):
    assert description["precision"] == "float32"


def test_the_operating_system_is_named(description):
    assert description["os"] == ("Windows" if sys.platform == "win32" else "Linux")


def test_the_backend_is_that_of_the_device(description):
    on_processor = description["compute_capability"] == "0.0"
    assert description["backend"] == ("CPU / built-in FFT" if on_processor else "CUDA / VkFFT")


def test_the_compute_capability_is_two_numbers_and_a_point(description):
    assert re.fullmatch(r"[0-9]+\.[0-9]+", description["compute_capability"])


def test_the_device_has_a_name(description):
    assert isinstance(description["gpu"], str) and description["gpu"].strip()


@posix_only
def test_the_physical_memory_is_that_of_the_machine(description):
    pages = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE")
    assert description["physical_memory_bytes"] == pages


def test_the_free_device_memory_is_at_most_the_total(description):
    assert 0 < description["available_memory_bytes"] <= description["gpu_memory_bytes"]


def test_the_capabilities_are_fixed(description):
    assert description["capabilities"] == {
        "drag": False,
        "forcing": False,
        "native_rendering": True,
        "vortex_injection": False,
    }


def test_the_defaults_are_complete(description):
    defaults = dict(description["defaults"])
    reynolds = defaults.pop("reynolds")
    assert reynolds == pytest.approx(27898.36614974335, rel=1e-14)
    assert defaults == {
        "cfl": 3.0,
        "fixed_dt": None,
        "integrator": "etdrk4",
        "k0": 4,
        "operator": "stress",
        "padded_resolution": 1536,
        "resolution": 1024,
        "seed": "2",
        "start_spectrum": "PAO",
        "viscosity": single(1 / reynolds),
    }


def test_the_defaults_have_the_types_of_their_keys(description):
    defaults = description["defaults"]
    assert all(type(defaults[key]) is int for key in ("resolution", "padded_resolution", "k0"))
    assert all(type(defaults[key]) is float for key in ("reynolds", "viscosity", "cfl"))


def test_a_build_with_cuda_reports_its_cuda_version(library_path, description):
    looks_for_the_compiler = b"libnvrtc.so" in library_path.read_bytes()
    assert ("cuda_runtime_version" in description) == looks_for_the_compiler


def test_a_gpu_has_a_driver_with_a_version(description):
    if description["backend"].startswith("CUDA"):
        assert WITH_CUDA <= set(description)
    if "cuda_driver_version" in description:
        assert "cuda_runtime_version" in description


def test_reported_cuda_versions_are_integers(description):
    assert all(type(description[key]) is int for key in WITH_CUDA & set(description))


def test_the_defaults_are_a_valid_configuration(library, description, make_engine):
    explicit = {**description["defaults"], "resolution": 16, "padded_resolution": None}
    assert make_engine(**explicit).inspect() == make_engine().inspect()


def test_a_second_call_on_the_main_thread_gives_the_same_description(library, description):
    again = decode(library.initialize())
    assert {**again, "available_memory_bytes": 0} == {**description, "available_memory_bytes": 0}


def test_a_second_thread_is_refused(library):
    reply = on_another_thread(library.initialize)
    assert reply == b'{"error":"Initialize on the main thread."}'
    assert "error" not in decode(library.initialize())


def first_call_on_a_worker(library: Library):
    def worker():
        return [decode(library.initialize()), decode(library.initialize())]

    return [*on_another_thread(worker), decode(library.initialize())]


def test_the_first_thread_that_calls_is_the_main_thread(library_path):
    first, second, elsewhere = in_fresh_process(library_path, first_call_on_a_worker)
    assert "error" not in first and "error" not in second
    assert elsewhere == {"error": ELSEWHERE}


def initialize_alone(library: Library):
    return decode(library.initialize())


def with_device(library_path, text: str | None) -> dict:
    return in_fresh_process(library_path, initialize_alone, environment={"ZEPHANE_DEVICE": text})


def test_without_the_variable_a_device_is_found(library_path):
    assert with_device(library_path, None)["device_index"] == 0


@pytest.mark.parametrize("text", ["0", "000", "0" * 60])
def test_the_variable_names_the_device(library_path, text):
    assert with_device(library_path, text)["device_index"] == 0


@pytest.mark.parametrize("text", ["0777", "9999", "2147483647"])
def test_a_device_that_does_not_exist_fails_when_it_is_selected(library_path, text):
    assert with_device(library_path, text) == {
        "error": "cudaSetDevice(deviceId): invalid device ordinal"
    }


def refused_texts(library: Library, texts: list[str]):
    answers = []
    for text in texts:
        os.environ["ZEPHANE_DEVICE"] = text
        answers.append(decode(library.initialize()))
    return answers


def test_a_variable_of_anything_but_digits_is_refused(library_path):
    # Python cannot set an empty variable on Windows.
    texts = [] if os.name == "nt" else [""]
    texts += ["-1", "+1", "1x", "x", " 1", "1 ", "0x0", "1.0", "1e0", "０", "\n", "0,1"]
    answers = in_fresh_process(library_path, refused_texts, texts)
    assert answers == [{"error": BAD_DEVICE}] * len(texts)


def test_a_variable_above_32_bits_is_out_of_range(library_path):
    texts = ["99999999999", "2147483648", "4294967296", "18446744073709551616", "9" * 300]
    answers = in_fresh_process(library_path, refused_texts, texts)
    assert answers == [{"error": "stoi argument out of range"}] * len(texts)


def variable_read_again(library: Library):
    answers = []
    for text in ("0", "one", "0"):
        os.environ["ZEPHANE_DEVICE"] = text
        answers.append(decode(library.initialize()).get("error"))
    return answers


def test_the_variable_is_read_at_every_call(library_path):
    assert in_fresh_process(library_path, variable_read_again) == [None, BAD_DEVICE, None]


def failure_keeps_the_main_thread(library: Library):
    os.environ["ZEPHANE_DEVICE"] = "x"
    here = decode(library.initialize())
    os.environ["ZEPHANE_DEVICE"] = "0"
    elsewhere = decode(on_another_thread(library.initialize))
    return [here["error"], elsewhere.get("error"), decode(library.initialize()).get("error")]


def test_a_failed_choice_of_device_still_fixes_the_main_thread(library_path):
    answer = in_fresh_process(library_path, failure_keeps_the_main_thread)
    assert answer == [BAD_DEVICE, ELSEWHERE, None]


def engine_after_a_bad_device(library: Library, text: str):
    library.initialize()
    engine = Engine(library, {"resolution": 16})
    os.environ["ZEPHANE_DEVICE"] = text
    library.initialize()
    answers = [decode(engine.raw({"op": "advance"})).get("error")]
    try:
        Engine(library, {"resolution": 16}).close()
        answers.append(None)
    except Refused as refused:
        answers.append(refused.text)
    engine.close()
    return answers


def test_a_malformed_device_does_not_change_the_chosen_one(library_path):
    assert in_fresh_process(library_path, engine_after_a_bad_device, "x") == [None, None]


def engines_after_a_missing_device(library: Library):
    library.initialize()
    description = decode(library.initialize())
    with Engine(library, {"resolution": 16}) as engine:
        os.environ["ZEPHANE_DEVICE"] = "99"
        words = decode(library.initialize())["error"]
        steps = engine.advance(steps=1)["steps"]
        with Engine(library, {"resolution": 16}) as another:
            steps += another.advance(steps=1)["steps"]
    del os.environ["ZEPHANE_DEVICE"]
    again = decode(library.initialize())
    same = ("device_index", "gpu", "backend")
    return [words, steps, [again[key] == description[key] for key in same]]


def test_after_a_success_a_missing_device_leaves_the_chosen_one(library_path):
    words = "cudaSetDevice(deviceId): invalid device ordinal"
    answer = in_fresh_process(library_path, engines_after_a_missing_device)
    assert answer == [words, 2, [True] * 3]


def engines_before_and_after_a_success(library: Library):
    os.environ["ZEPHANE_DEVICE"] = "9999"
    words = [decode(library.initialize())["error"]]
    try:
        Engine(library, {"resolution": 16}).close()
    except Refused as refused:
        words.append(refused.text)
    del os.environ["ZEPHANE_DEVICE"]
    library.initialize()
    with Engine(library, {"resolution": 16}) as engine:
        return [words, engine.advance(steps=1)["steps"]]


def test_a_missing_device_that_is_the_first_is_met_by_every_engine(library_path):
    words = "cudaSetDevice(deviceId): invalid device ordinal"
    answer = in_fresh_process(library_path, engines_before_and_after_a_success)
    assert answer == [[words, words], 1]
