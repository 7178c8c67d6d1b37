#include "boundary/export_request.h"

#include <gtest/gtest.h>

#include "tests/boundary/failure_text.h"

namespace zeph {
namespace {

std::string refusalOf(const FrameFiles& files) {
  return failureText([&] { files.raiseRefusal(); });
}

constexpr const char* accepted = "(nothing raised)";
constexpr const char* badSize = "PNG size must be 1 through 8192.";
constexpr const char* badType =
    "[json.exception.type_error.302] type must be string, but is number";

TEST(ExportRequest, NamesItsFilesAndThePicturesSize) {
  const FrameFiles none = readViewExport({{"fields", nullptr}});
  EXPECT_FALSE(none.fields || none.png);
  EXPECT_EQ(none.pixels, 1800u);
  const FrameFiles both = readViewExport({{"fields", "f"}, {"png", ""}, {"pixel_size", 8192}});
  EXPECT_EQ(both.fields, "f");
  EXPECT_EQ(both.png, "");
  EXPECT_EQ(both.pixels, 8192u);
  EXPECT_EQ(refusalOf(both), accepted);
}

TEST(ExportRequest, KeepsWhatWasReadBeforeTheRefusal) {
  const FrameFiles fields = readViewExport({{"fields", 1}, {"png", "p"}});
  EXPECT_FALSE(fields.fields || fields.png);
  EXPECT_EQ(refusalOf(fields), badType);
  const FrameFiles png = readViewExport({{"fields", "f"}, {"png", 1}, {"pixel_size", 0}});
  EXPECT_EQ(png.fields, "f");
  EXPECT_FALSE(png.png);
  EXPECT_EQ(refusalOf(png), badType);
  const FrameFiles size = readViewExport({{"fields", "f"}, {"png", "p"}, {"pixel_size", 0}});
  EXPECT_EQ(size.fields, "f");
  EXPECT_EQ(size.png, "p");
  EXPECT_EQ(refusalOf(size), badSize);
}

TEST(ExportRequest, IsNotReadFurtherWithoutAPicture) {
  const Json request = {{"pixel_size", 0}, {"display", "none"}, {"flow", nullptr}};
  EXPECT_EQ(refusalOf(readViewExport(request)), accepted);
  EXPECT_EQ(refusalOf(readEngineExport(request)), accepted);
}

TEST(ExportRequest, HasTheSettingsOfAnEnginesPictureAfterItsSize) {
  Json request = {{"png", "p"}, {"pixel_size", 8193}, {"display", "none"}, {"flow", nullptr}};
  EXPECT_EQ(refusalOf(readEngineExport(request)), badSize);
  request["pixel_size"] = 1;
  EXPECT_EQ(refusalOf(readEngineExport(request)), "Unknown display: none");
  EXPECT_EQ(refusalOf(readViewExport(request)), accepted);
  request["display"] = "speed";
  EXPECT_EQ(readEngineExport(request).settings.display, Display::speed);
  EXPECT_EQ(refusalOf(readEngineExport(request)),
            "[json.exception.type_error.302] type must be boolean, but is null");
}

}  // namespace
}  // namespace zeph
