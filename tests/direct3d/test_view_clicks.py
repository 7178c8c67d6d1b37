"""Clicks on the canvas on Windows: the same tests as on Linux."""

from abi.test_ui_clicks import (  # noqa: F401
    test_a_click_beside_the_buttons_does_nothing,
    test_a_click_on_a_buttons_edge_counts,
    test_buttons_act_on_release,
    test_buttons_follow_the_height_of_the_window,
    test_buttons_lie_where_they_are_drawn_at_every_scale,
    test_buttons_work_on_a_canvas_that_has_not_been_drawn,
    test_clicks_are_handled_in_order,
    test_on_a_window_higher_than_wide_the_buttons_lie_below_the_bar,
    test_other_buttons_of_the_mouse_do_nothing,
    test_the_first_button_pauses_and_runs,
    test_the_outer_edges_of_the_bar_count,
    test_the_second_button_pauses_a_running_flow,
    test_the_second_button_takes_a_step_each,
    test_the_third_button_resets_the_flow,
)
