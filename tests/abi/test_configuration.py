"""The configuration of an engine: every field's default, type, limits and refusal texts.

An engine does not report its configuration. Its memory reveals the grid, integrator and operator,
its first time step the Courant number or the fixed step, its start spectrum k0, seed and shape.
"""

from __future__ import annotations

import math

import pytest

from .fresh_process import in_fresh_process
from .harness import INTEGRATORS, OPERATORS, Engine, Library, single
from .words import BAD_CONFIGURATION, BAD_SEED, PARSE_ERROR, UNHEALTHY, type_error

DEFAULT_REYNOLDS = 27898.36614974335
OVERFLOW = "[json.exception.out_of_range.406] number overflow parsing '1e400'"


def buffer_bytes(n: int, integrator: str = "etdrk4", operator: str = "stress") -> int:
    """The device memory of an engine: thirteen buffers and three field blocks."""
    width = n // 2 + 1
    m = 3 * n // 2
    stride = (m // 2 + 8) // 8 * 8
    half = n * width * 8
    omega = correction = first = half
    padded = stride * m * (16 if operator == "stress" else 32)
    base = 8 if integrator == "imexRK3" else half
    middle = predictor = half if integrator == "etdrk4" else 8
    tables = {"imexRK3": 0, "ifHeunRK3": 3, "etdrk4": 6}[integrator]
    coefficients = max(4, tables * n * width * 4)
    clock, cfl_partials, statistics_partials = 40, 64 * 8, 64 * 16
    snapshot_spectra, snapshot_partials = 3 * half, 128 * 16
    fields = 3 * 3 * n * n * 4
    spectra = omega + correction + first + base + middle + predictor
    partials = cfl_partials + statistics_partials + snapshot_partials
    return spectra + padded + coefficients + clock + partials + snapshot_spectra + fields


def start(make_engine, **configuration) -> dict:
    return make_engine(**configuration).inspect()


@pytest.mark.parametrize("operator", OPERATORS)
@pytest.mark.parametrize("integrator", INTEGRATORS)
@pytest.mark.parametrize("n", [16, 18, 22, 64])
def test_the_memory_follows_from_grid_integrator_and_operator(make_engine, n, integrator, operator):
    report = start(make_engine, resolution=n, integrator=integrator, operator=operator)
    assert report["allocated_bytes"] == buffer_bytes(n, integrator, operator)


def test_the_memory_stays_constant(engine):
    at_start = engine.inspect()["allocated_bytes"]
    engine.advance(steps=3)
    engine.export(snapshot=True)
    engine.reset()
    assert engine.inspect()["allocated_bytes"] == at_start


def test_an_empty_configuration_gives_the_defaults(library):
    with Engine(library, "{}") as engine:
        report = engine.inspect()
        assert report["allocated_bytes"] == buffer_bytes(1024, "etdrk4", "stress")
        assert report["reynolds"] == pytest.approx(DEFAULT_REYNOLDS, rel=1e-14)
        assert engine.export(snapshot=True)["grid_size"] == 1024
        assert report["energy"] == pytest.approx(0.5, rel=0.2)
        assert report["enstrophy"] == pytest.approx(4 * 4 / 2, rel=0.2)
        defaults = {
            "k0": 4,
            "seed": "2",
            "reynolds": report["reynolds"],
            "cfl": 3.0,
            "fixed_dt": None,
            "integrator": "etdrk4",
            "operator": "stress",
            "start_spectrum": "PAO",
        }
        with Engine(library, {"resolution": 1024, **defaults}) as explicit:
            assert explicit.inspect() == report


def test_a_null_member_leaves_its_default(make_engine):
    keys = ["k0", "seed", "reynolds", "cfl", "integrator", "operator", "start_spectrum"]
    nulls = dict.fromkeys([*keys, "fixed_dt", "initial"])
    assert start(make_engine, **nulls) == start(make_engine)


def test_a_null_resolution_means_1024(library):
    with Engine(library, {"resolution": None, "integrator": "imexRK3"}) as engine:
        assert engine.export(snapshot=True)["grid_size"] == 1024


def test_an_unknown_key_is_ignored(make_engine):
    odd = {"forcing": 1, "Resolution": 3, "padded_resolution": 7, "viscosity": "x", "": []}
    assert start(make_engine, **odd) == start(make_engine)


def test_the_default_reynolds_number_does_not_follow_the_grid(make_engine):
    for n in (16, 64):
        report = start(make_engine, resolution=n)
        assert report["reynolds"] == pytest.approx(DEFAULT_REYNOLDS, rel=1e-14)
    assert start(make_engine, k0=2)["reynolds"] == pytest.approx(DEFAULT_REYNOLDS, rel=1e-14)


# The grid


@pytest.mark.parametrize("n", [16, 18, 20, 22, 26, 30, 34, 38, 46, 62, 94, 100, 254])
def test_any_even_resolution_makes_an_engine(make_engine, n):
    engine = make_engine(resolution=n)
    assert engine.export(snapshot=True)["grid_size"] == n
    assert engine.advance(steps=2)["steps"] == 2


@pytest.mark.parametrize(
    "value", ["14", "15", "17", "0", "-16", "1023", "16385", "16386", "32768", "true", "false"]
)
def test_a_resolution_out_of_range_or_odd_is_refused(library, value):
    assert library.creation_refusal(f'{{"resolution":{value}}}') == BAD_CONFIGURATION


@pytest.mark.parametrize("value", ["16.0", "16.999", "1.6e1", "4294967312", "-4294967280"])
def test_a_resolution_is_truncated_to_a_32_bit_integer(library, value):
    with Engine(library, f'{{"resolution":{value}}}') as engine:
        assert engine.export(snapshot=True)["grid_size"] == 16


@pytest.mark.parametrize(
    "value",
    [
        "2147483647",
        "2147483648",
        "-2147483648",
        "4294967296",
        "9223372036854775807",
        "-9223372036854775808",
        "18446744073709551615",
        "18446744073709551616",
        "1e10",
        "-1e10",
        "1.7976931348623157e308",
        "5e-324",
        "-0.0",
    ],
)
def test_a_resolution_at_a_limit_of_the_number_types_is_refused(library, value):
    assert library.creation_refusal(f'{{"resolution":{value}}}') == BAD_CONFIGURATION


@pytest.mark.parametrize("key", ["resolution", "k0"])
@pytest.mark.parametrize(
    ("value", "name"), [('"16"', "string"), ("[16]", "array"), ('{"a":16}', "object")]
)
def test_an_integer_of_another_type_is_refused(library, key, value, name):
    assert library.creation_refusal(f'{{"{key}":{value}}}') == type_error("number", name)


def largest_grid(library: Library):
    import resource

    resource.setrlimit(resource.RLIMIT_AS, (2 << 30, 2 << 30))
    return library.creation_refusal({"resolution": 16384})


def test_the_largest_grid_is_accepted_and_then_needs_its_memory(library_path, sanitized):
    if sanitized:
        pytest.skip("a sanitizer needs more address space than the test leaves")
    words = in_fresh_process(library_path, largest_grid)
    assert words.startswith("cudaMalloc(&ptr,bytes): out of memory")


# The start


def test_k0_may_be_a_million(make_engine):
    assert start(make_engine, k0=1000000)["energy"] >= 0


@pytest.mark.parametrize("value", ["1000001", "2147483647", "1000001.5"])
def test_k0_above_a_million_is_too_large(library, value):
    text = f'{{"resolution":16,"k0":{value}}}'
    assert library.creation_refusal(text) == "Initial wavenumber is too large."


@pytest.mark.parametrize("value", ["0", "-1", "0.9", "false", "2147483648", "-2147483648", "1e10"])
def test_k0_below_one_is_refused(library, value):
    text = f'{{"resolution":16,"k0":{value}}}'
    assert library.creation_refusal(text) == BAD_CONFIGURATION


@pytest.mark.parametrize("value", ["4.9", "4294967300", "-4294967292", "4e0"])
def test_k0_is_truncated_to_a_32_bit_integer(library, make_engine, value):
    with Engine(library, f'{{"resolution":16,"k0":{value}}}') as engine:
        assert engine.inspect() == start(make_engine, k0=4)


def test_k0_true_is_one(make_engine):
    assert start(make_engine, k0=True) == start(make_engine, k0=1)


def test_k0_sets_the_start(make_engine):
    assert start(make_engine, k0=3) != start(make_engine, k0=4)


def test_a_seed_determines_the_flow(make_engine):
    assert make_engine(seed=5).spectrum() == make_engine(seed=5).spectrum()
    assert make_engine(seed=5).spectrum() != make_engine(seed=6).spectrum()


@pytest.mark.parametrize(
    ("one", "same"),
    [
        (7, "7"),
        (7, "007"),
        pytest.param(7, "0" * 1000 + "7", id="7-zeros"),
        (0, "0"),
        (2, None),
        (9223372036854775808, "9223372036854775808"),
        (18446744073709551615, "18446744073709551615"),
    ],
)
def test_a_seed_is_the_same_as_number_and_as_text(make_engine, one, same):
    assert make_engine(seed=one).spectrum() == make_engine(seed=same).spectrum()


def test_all_64_bits_of_a_seed_count(make_engine):
    seeds = [2, 2 + 2**32, 2 + 2**53, 2**63 + 2, 2**64 - 1]
    assert len({make_engine(seed=seed).spectrum() for seed in seeds}) == len(seeds)


@pytest.mark.parametrize(
    "value",
    [
        '""',
        '"-1"',
        '"+7"',
        '" 7"',
        '"7 "',
        '"7\\n"',
        '"7\\u0000"',
        '"\\u0000"',
        '"0x7"',
        '"1e3"',
        '"７"',
        '"٧"',
        '"seven"',
        "-1",
        "-9223372036854775808",
        "1.5",
        "7.0",
        "1e3",
        "18446744073709551616",
        "true",
        "false",
        "[]",
        "[7]",
        "{}",
        '{"seed":7}',
    ],
)
def test_a_seed_of_anything_but_digits_is_refused(library, value):
    assert library.creation_refusal(f'{{"resolution":16,"seed":{value}}}') == BAD_SEED


@pytest.mark.parametrize(
    "text", ["18446744073709551616", "9" * 40, "1" + "0" * 5000], ids=["just", "far", "out"]
)
def test_a_seed_above_64_bits_is_out_of_range(library, text):
    assert library.creation_refusal({"seed": text}) == "stoull argument out of range"


def test_the_start_spectra_differ_and_hold_the_same_energy(make_engine):
    pao = start(make_engine, resolution=64, start_spectrum="PAO")
    km3 = start(make_engine, resolution=64, start_spectrum="KM3")
    assert pao["enstrophy"] != km3["enstrophy"]
    assert km3["energy"] == pytest.approx(pao["energy"], rel=1e-3)


# The numbers


@pytest.mark.parametrize(
    "value", ["0", "-0.0", "-1", "1e-40", "1e-39", "5e-324", "-1e308", "-9223372036854775808"]
)
def test_a_reynolds_number_without_a_finite_viscosity_is_refused(library, value):
    text = f'{{"resolution":16,"reynolds":{value}}}'
    assert library.creation_refusal(text) == BAD_CONFIGURATION


@pytest.mark.parametrize(
    "value",
    ["1", "1000", "0.5", "1e-38", "1e40", "1.7976931348623157e308", "18446744073709551615"],
)
def test_a_reynolds_number_is_kept_in_64_bits(library, value):
    with Engine(library, f'{{"resolution":16,"reynolds":{value}}}') as engine:
        assert engine.inspect()["reynolds"] == float(value)


@pytest.mark.parametrize("key", ["reynolds", "cfl", "fixed_dt"])
@pytest.mark.parametrize(
    ("value", "name"),
    [
        ("true", "boolean"),
        ("false", "boolean"),
        ('"1"', "string"),
        ("[1]", "array"),
        ("{}", "object"),
    ],
)
def test_a_number_of_another_type_is_refused(library, key, value, name):
    text = f'{{"resolution":16,"{key}":{value}}}'
    assert library.creation_refusal(text) == type_error("number", name)


@pytest.mark.parametrize(
    "key", ["resolution", "k0", "seed", "reynolds", "cfl", "fixed_dt", "initial"]
)
def test_a_number_beyond_64_bits_of_float_is_a_parse_failure(library, key):
    assert library.creation_refusal(f'{{"{key}":1e400}}') == OVERFLOW


def test_the_first_time_step_is_proportional_to_the_courant_number(make_engine):
    at_three = start(make_engine)["dt"]
    assert start(make_engine, cfl=3.0)["dt"] == at_three
    assert start(make_engine, cfl=1.5)["dt"] == at_three / 2
    assert start(make_engine, cfl=0.1)["dt"] == pytest.approx(at_three / 30, rel=1e-6)


@pytest.mark.parametrize("value", ["0", "-0.0", "-3", "1e39", "1e-46", "5e-324", "-1e308", "1e308"])
def test_a_courant_number_that_is_not_positive_and_finite_in_32_bits_is_refused(library, value):
    text = f'{{"resolution":16,"cfl":{value}}}'
    assert library.creation_refusal(text) == BAD_CONFIGURATION


def test_a_courant_number_too_small_for_any_step_fails_the_start(library):
    assert library.creation_refusal({"resolution": 16, "cfl": 1e-45}) == UNHEALTHY


@pytest.mark.parametrize("value", [0.1, 0.001, 1, 1e-45, 3e38])
def test_a_fixed_step_is_the_time_step_in_32_bits(make_engine, value):
    assert start(make_engine, fixed_dt=value)["dt"] == single(value)


def test_a_null_fixed_step_leaves_the_step_to_the_courant_number(make_engine):
    assert start(make_engine, fixed_dt=None) == start(make_engine)


@pytest.mark.parametrize("value", ["0", "0.0", "-0.0", "-1", "-1e39", "1e-46", "5e-324"])
def test_a_fixed_step_that_is_not_positive_is_refused(library, value):
    text = f'{{"resolution":16,"fixed_dt":{value}}}'
    assert library.creation_refusal(text) == "Fixed timestep must be positive."


@pytest.mark.parametrize("value", ["1e39", "3.5e38", "1.7976931348623157e308"])
def test_a_fixed_step_that_is_infinite_in_32_bits_is_refused(library, value):
    text = f'{{"resolution":16,"fixed_dt":{value}}}'
    assert library.creation_refusal(text) == BAD_CONFIGURATION


# The names


def test_the_integrator_does_not_change_the_courant_number(make_engine):
    steps = {start(make_engine, integrator=name)["dt"] for name in INTEGRATORS}
    assert len(steps) == 1


@pytest.mark.parametrize(
    ("key", "names"),
    [
        ("integrator", INTEGRATORS),
        ("operator", OPERATORS),
        ("start_spectrum", ("PAO", "KM3")),
    ],
)
def test_a_name_is_compared_exactly(library, make_engine, key, names):
    for name in names:
        assert start(make_engine, **{key: name})["steps"] == 0
        for wrong in (name.swapcase(), f" {name}", f"{name} ", name[:-1], ""):
            words = library.creation_refusal({"resolution": 16, key: wrong})
            assert words == f"Unknown {key}: {wrong}"
        # The text of a failure is a C string, and ends at the NUL.
        words = library.creation_refusal({"resolution": 16, key: f"{name}\0x"})
        assert words == f"Unknown {key}: {name}"


@pytest.mark.parametrize("key", ["integrator", "operator", "start_spectrum"])
@pytest.mark.parametrize(
    ("value", "name"),
    [("0", "number"), ("true", "boolean"), ('["etdrk4"]', "array"), ("{}", "object")],
)
def test_a_name_of_another_type_is_refused(library, key, value, name):
    text = f'{{"resolution":16,"{key}":{value}}}'
    assert library.creation_refusal(text) == type_error("string", name)


# The order of the checks


@pytest.mark.parametrize(
    ("configuration", "words"),
    [
        ({"resolution": "a", "k0": []}, type_error("number", "string")),
        ({"k0": [], "seed": "x"}, type_error("number", "array")),
        ({"seed": "x", "reynolds": "y"}, BAD_SEED),
        ({"reynolds": {}, "cfl": "y"}, type_error("number", "object")),
        ({"cfl": "y", "integrator": "z"}, type_error("number", "string")),
        ({"integrator": "i", "operator": "o"}, "Unknown integrator: i"),
        ({"operator": "o", "start_spectrum": "s"}, "Unknown operator: o"),
        ({"start_spectrum": "s", "fixed_dt": 0}, "Unknown start_spectrum: s"),
        ({"fixed_dt": 0, "resolution": 15}, "Fixed timestep must be positive."),
        ({"resolution": 15, "k0": 1000001}, BAD_CONFIGURATION),
        ({"resolution": 16, "k0": 1000001, "cfl": -1}, BAD_CONFIGURATION),
        ({"k0": 1000001, "initial": 5}, "Initial wavenumber is too large."),
        ({"resolution": 15, "initial": 5}, BAD_CONFIGURATION),
        ({"resolution": 15, "initial": "/nowhere/at/all"}, BAD_CONFIGURATION),
    ],
)
def test_only_the_first_failure_is_reported(library, configuration, words):
    assert library.creation_refusal(configuration) == words


def test_a_configuration_is_parsed_before_it_is_checked(library):
    assert library.creation_refusal('{"resolution":15,').startswith(PARSE_ERROR)


def test_a_refused_configuration_does_not_affect_the_next(library, make_engine):
    before = start(make_engine)
    library.creation_refusal({"resolution": 16, "k0": 7, "seed": 9, "cfl": 1.0, "reynolds": 0})
    assert start(make_engine) == before


def test_the_viscosity_is_the_rounded_reciprocal(make_engine):
    # A single mode decays by exp(-nu k^2 t); its energy by twice that. Here nu = 1/3 in 32 bits.
    engine = make_engine(reynolds=3, fixed_dt=0.01, start_spectrum="PAO", k0=1, resolution=32)
    before = engine.inspect()
    engine.advance(steps=1)
    after = engine.inspect()
    rate = -math.log(after["energy"] / before["energy"]) / 0.01
    assert rate == pytest.approx(2 / 3 * before["enstrophy"] / before["energy"], rel=0.05)
