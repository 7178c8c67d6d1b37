"""What the window shows on Windows: the same tests as on Linux."""

from abi.test_ui_pictures import (  # noqa: F401
    test_a_flow_that_cannot_be_created_is_shown_as_failed,
    test_a_tiny_window_shows_what_it_can,
    test_changes_while_hidden_are_shown_afterwards,
    test_only_the_lower_corners_of_the_picture_are_round,
    test_panels_darken_the_picture_where_they_have_no_text,
    test_texts_are_at_their_places,
    test_the_clock_follows_the_flow,
    test_the_first_glyph_shows_whether_the_flow_runs,
    test_the_first_row_of_the_field_lies_at_the_bottom,
    test_the_picture_follows_the_flow,
    test_the_picture_follows_the_settings,
    test_the_rest_of_the_window_is_clear,
    test_the_window_shows_the_picture_that_is_exported,
)
