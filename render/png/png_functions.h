// libpng, looked up at run time: its functions under their own names.
#pragma once

#include <png.h>

namespace zeph {

#define ZEPH_PNG_FUNCTIONS(USE)      \
  USE(png_create_info_struct);       \
  USE(png_create_write_struct);      \
  USE(png_destroy_write_struct);     \
  USE(png_get_error_ptr);            \
  USE(png_get_io_ptr);               \
  USE(png_longjmp);                  \
  USE(png_set_bgr);                  \
  USE(png_set_compression_level);    \
  USE(png_set_compression_strategy); \
  USE(png_set_filter);               \
  USE(png_set_IHDR);                 \
  USE(png_set_longjmp_fn);           \
  USE(png_set_write_fn);             \
  USE(png_write_end);                \
  USE(png_write_info);               \
  USE(png_write_row);

#define ZEPH_MEMBER(name) decltype(&::name) name
struct PngLibrary {
  ZEPH_PNG_FUNCTIONS(ZEPH_MEMBER)
};
#undef ZEPH_MEMBER

// Raises std::runtime_error if there is none.
const PngLibrary& pngLibrary();

}  // namespace zeph
