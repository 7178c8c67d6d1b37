// Cairo and Pango, looked up at run time: their functions under their own names.
#pragma once

#include <pango/pangocairo.h>

namespace zeph::cairo {

#define ZEPH_CAIRO_FUNCTIONS(USE)           \
  USE(cairo_arc);                           \
  USE(cairo_clip);                          \
  USE(cairo_close_path);                    \
  USE(cairo_create);                        \
  USE(cairo_destroy);                       \
  USE(cairo_fill);                          \
  USE(cairo_image_surface_create_for_data); \
  USE(cairo_move_to);                       \
  USE(cairo_new_sub_path);                  \
  USE(cairo_paint);                         \
  USE(cairo_rectangle);                     \
  USE(cairo_restore);                       \
  USE(cairo_save);                          \
  USE(cairo_scale);                         \
  USE(cairo_set_operator);                  \
  USE(cairo_set_source_rgba);               \
  USE(cairo_status);                        \
  USE(cairo_surface_destroy);               \
  USE(cairo_surface_flush);

#define ZEPH_PANGO_FUNCTIONS(USE)                \
  USE(pango_font_description_free);              \
  USE(pango_font_description_new);               \
  USE(pango_font_description_set_absolute_size); \
  USE(pango_font_description_set_family);        \
  USE(pango_layout_get_pixel_size);              \
  USE(pango_layout_set_font_description);        \
  USE(pango_layout_set_single_paragraph_mode);   \
  USE(pango_layout_set_text);

#define ZEPH_PANGOCAIRO_FUNCTIONS(USE) \
  USE(pango_cairo_create_layout);      \
  USE(pango_cairo_show_layout);

#define ZEPH_MEMBER(name) decltype(&::name) name
struct Library {
  ZEPH_CAIRO_FUNCTIONS(ZEPH_MEMBER)
  ZEPH_PANGO_FUNCTIONS(ZEPH_MEMBER)
  ZEPH_PANGOCAIRO_FUNCTIONS(ZEPH_MEMBER)
  ZEPH_MEMBER(g_object_unref);
};
#undef ZEPH_MEMBER

// Raises std::runtime_error if one of them is missing.
const Library& library();

}  // namespace zeph::cairo
