"""Pictures of engines on Windows, against the formulas: the same tests as on Linux."""

from abi.test_pictures import (  # noqa: F401
    moved,
    test_a_fluid_at_rest_has_the_base_colour,
    test_a_picture_is_seamless_across_its_edges,
    test_columns_run_to_the_right,
    test_drawing_does_not_change_the_flow,
    test_flow_lines_lie_over_the_picture_in_their_own_colour,
    test_grids_of_any_size_are_sampled,
    test_pixels_follow_the_formulas,
    test_row_zero_lies_at_the_bottom,
    test_samples_lie_between_the_points_of_the_grid,
    test_the_same_request_gives_the_same_bytes,
    test_without_a_velocity_there_are_no_flow_lines,
)
