#include "render/png/png_file.h"

#include <zlib.h>

#include <csetjmp>
#include <stdexcept>

#include "platform/system.h"
#include "platform/whole_file.h"
#include "render/failure.h"
#include "render/png/png_functions.h"

namespace zeph {
namespace {

// Pictures of flows are smooth: differences between rows are small, and the lowest compression
// level packs them nearly as well as the others in a fraction of the time.
constexpr int compressionLevel = 1;
constexpr int strategy = Z_FILTERED;
constexpr int filter = PNG_FILTER_UP;

// Where the bytes go, and the first error of the system on the way.
struct Sink {
  const PngLibrary* library;
  platform::WholeFile* file;
  int error = 0;
};

void writeBytes(png_structp png, png_bytep bytes, std::size_t count) {
  Sink& sink = *static_cast<Sink*>(pngLibrary().png_get_io_ptr(png));
  sink.error = sink.file->write(std::as_bytes(std::span(bytes, count)));
  if (sink.error != 0) sink.library->png_longjmp(png, 1);
}

void flushBytes(png_structp) {}

void giveUp(png_structp png, png_const_charp) {
  pngLibrary().png_longjmp(png, 1);
}

void ignore(png_structp, png_const_charp) {}

struct Rows {
  const std::byte* pixels;
  std::uint32_t width;
  std::uint32_t height;
};

// False if libpng fails, which leaves this function by longjmp: nothing here may need a destructor.
bool encode(const PngLibrary& library, png_structp png, png_infop info, const Rows& rows) {
  if (setjmp(*library.png_set_longjmp_fn(png, std::longjmp, sizeof(std::jmp_buf))) != 0)
    return false;
  library.png_set_IHDR(png, info, rows.width, rows.height, 8, PNG_COLOR_TYPE_RGB_ALPHA,
                       PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  library.png_set_compression_level(png, compressionLevel);
  library.png_set_compression_strategy(png, strategy);
  library.png_set_filter(png, PNG_FILTER_TYPE_BASE, filter);
  library.png_write_info(png, info);
  library.png_set_bgr(png);
  const std::size_t stride = std::size_t{rows.width} * 4;
  for (std::uint32_t row = 0; row < rows.height; ++row)
    library.png_write_row(png, reinterpret_cast<png_const_bytep>(rows.pixels + row * stride));
  library.png_write_end(png, info);
  return true;
}

void encodeTo(Sink& sink, const Rows& rows) {
  const PngLibrary& library = *sink.library;
  png_structp png = library.png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, giveUp, ignore);
  if (png == nullptr) throw std::runtime_error("Create PNG encoder failed (0xc)");
  png_infop info = library.png_create_info_struct(png);
  bool isComplete = false;
  if (info != nullptr) {
    library.png_set_write_fn(png, &sink, writeBytes, flushBytes);
    isComplete = encode(library, png, info, rows);
  }
  library.png_destroy_write_struct(&png, &info);
  if (!isComplete) failStep(static_cast<std::uint32_t>(sink.error), "Write PNG pixels");
}

}  // namespace

void writePng(const std::string& path, std::uint32_t width, std::uint32_t height,
              std::span<const std::byte> pixels) {
  const PngLibrary& library = pngLibrary();
  platform::WholeFile file;
  if (const int error = file.open(platform::pathFromUtf8(path)))
    failStep(static_cast<std::uint32_t>(error), "Open PNG");
  Sink sink = {.library = &library, .file = &file};
  encodeTo(sink, {pixels.data(), width, height});
  // A full disk may show only here.
  if (const int error = file.commit())
    failStep(static_cast<std::uint32_t>(error), "Commit PNG file");
}

}  // namespace zeph
