"""The canvas on Windows: the tests of the one on Linux, as far as they fit."""

from abi.test_ui_canvas import (  # noqa: F401
    test_a_canvas_deep_in_a_minimised_window_is_not_seen,
    test_a_canvas_in_a_hidden_window_follows_once_it_is_shown,
    test_a_destroyed_window_is_refused,
    test_a_number_that_is_not_a_window_is_refused_and_a_window_is_accepted_after_it,
    test_a_second_canvas_is_refused_and_the_first_stays,
    test_a_view_is_destroyed_with_its_canvas_in_every_state,
    test_a_window_destroyed_before_the_first_frame_is_reported,
    test_a_window_may_be_destroyed_before_its_view,
    test_a_window_may_be_destroyed_during_a_frame,
    test_a_window_may_get_a_canvas_again_once_the_first_is_gone,
    test_attaching_is_answered_with_an_empty_object,
    test_the_canvas_fills_the_window_and_follows_its_size,
    test_the_last_of_many_sizes_is_kept,
    test_the_visibility_of_the_canvas_is_reported,
    test_two_views_may_lie_in_one_window,
    test_two_views_show_in_two_windows_at_once,
)
from abi.test_ui_presentations import (  # noqa: F401
    test_a_hidden_canvas_is_not_presented,
    test_a_window_without_a_size_is_not_presented,
    test_each_flow_is_counted_separately,
    test_presentations_are_counted_while_nothing_changes,
    test_presentations_are_counted_while_the_flow_runs,
    test_presentations_without_a_frame_are_not_counted,
)
