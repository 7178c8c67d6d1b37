// XCB, looked up at run time: its functions under their own names. Unlike Xlib, XCB shares no error
// handlers with the host's own connection.
#pragma once

#include <xcb/xcb.h>
#include <xcb/xcbext.h>

#include <cstdlib>
#include <memory>

namespace zeph::x11 {

#define ZEPH_XCB_FUNCTIONS(USE)       \
  USE(xcb_change_window_attributes);  \
  USE(xcb_configure_window);          \
  USE(xcb_connect);                   \
  USE(xcb_connection_has_error);      \
  USE(xcb_create_window_checked);     \
  USE(xcb_destroy_window);            \
  USE(xcb_discard_reply);             \
  USE(xcb_disconnect);                \
  USE(xcb_flush);                     \
  USE(xcb_generate_id);               \
  USE(xcb_get_file_descriptor);       \
  USE(xcb_get_geometry);              \
  USE(xcb_get_input_focus);           \
  USE(xcb_get_property);              \
  USE(xcb_get_property_value);        \
  USE(xcb_get_property_value_length); \
  USE(xcb_get_setup);                 \
  USE(xcb_get_window_attributes);     \
  USE(xcb_grab_button);               \
  USE(xcb_intern_atom);               \
  USE(xcb_map_window);                \
  USE(xcb_poll_for_event);            \
  USE(xcb_poll_for_queued_event);     \
  USE(xcb_poll_for_reply);            \
  USE(xcb_query_tree);                \
  USE(xcb_request_check);             \
  USE(xcb_set_input_focus);           \
  USE(xcb_setup_roots_iterator);      \
  USE(xcb_wait_for_reply);

#define ZEPH_MEMBER(name) decltype(&::name) name
struct Xcb {
  ZEPH_XCB_FUNCTIONS(ZEPH_MEMBER)
};
#undef ZEPH_MEMBER

// Null if XCB is missing.
const Xcb* xcb();

// Replies and errors of XCB belong to the caller.
struct Free {
  void operator()(void* block) const { std::free(block); }
};
template <class Reply>
using Owned = std::unique_ptr<Reply, Free>;

}  // namespace zeph::x11
