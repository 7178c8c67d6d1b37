"""Pictures of engines on Windows: the tests of those on Linux that the unit tests do not cover."""

from abi.test_pictures import (  # noqa: F401
    moved,
    test_a_picture_is_seamless_across_its_edges,
    test_columns_run_to_the_right,
    test_drawing_does_not_change_the_flow,
    test_row_zero_lies_at_the_bottom,
    test_the_default_picture_is_the_vorticity_in_ember,
    test_the_same_request_gives_the_same_bytes,
    test_without_a_velocity_there_are_no_flow_lines,
)
