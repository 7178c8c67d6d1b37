#include "render/x11/x_resources.h"

#include <gtest/gtest.h>

#include <string>

namespace zeph::x11 {
namespace {

TEST(ScaleOfResources, IsTheResolutionOver96) {
  EXPECT_EQ(scaleOfResources("Xft.dpi:\t96\n"), 1.0f);
  EXPECT_EQ(scaleOfResources("Xft.dpi:\t144\n"), 1.5f);
  EXPECT_EQ(scaleOfResources("Xft.dpi:\t192\n"), 2.0f);
  EXPECT_EQ(scaleOfResources("Xft.dpi:\t48\n"), 0.5f);
  EXPECT_EQ(scaleOfResources("Xft.dpi:\t120.5\n"), 120.5 / 96);
}

TEST(ScaleOfResources, IsOneWithoutAResolution) {
  for (const char* text : {"", "\n", "\n\n", "Xft.antialias:\t1\n", "Xft.dpi", "*Xft.dpi: 192\n",
                           "! Xft.dpi: 192\n", "Xft.dpix: 192\n", "xft.dpi: 192\n"})
    EXPECT_EQ(scaleOfResources(text), 1.0f) << text;
}

TEST(ScaleOfResources, IsFoundAmongOtherResources) {
  EXPECT_EQ(scaleOfResources("*background:\tgrey\nXft.dpi:\t192\nXft.hinting:\t1\n"), 2.0f);
  EXPECT_EQ(scaleOfResources("\n\nXft.dpi:\t192"), 2.0f);
  EXPECT_EQ(scaleOfResources("Xft.antialias:\t192\nXft.dpi:\t144"), 1.5f);
}

TEST(ScaleOfResources, PassesOverBlanksBeforeTheNumber) {
  for (const char* text :
       {"Xft.dpi:144", "Xft.dpi: 144", "Xft.dpi: \t  144  ", "Xft.dpi:\t144\r\n"})
    EXPECT_EQ(scaleOfResources(text), 1.5f) << text;
}

TEST(ScaleOfResources, IsOneIfTheResolutionIsNotAPositiveNumber) {
  for (const char* text : {"Xft.dpi:", "Xft.dpi:\n", "Xft.dpi:  \t\n192", "Xft.dpi: high",
                           "Xft.dpi: inf", "Xft.dpi: -inf", "Xft.dpi: nan", "Xft.dpi: -96",
                           "Xft.dpi: 0", "Xft.dpi: 1e999", "Xft.dpi: -0", "Xft.dpi: +"})
    EXPECT_EQ(scaleOfResources(text), 1.0f) << text;
}

TEST(ScaleOfResources, ReadsNoFurtherThanTheText) {
  const std::string text = "Xft.dpi:\t1922";
  EXPECT_EQ(scaleOfResources(std::string_view(text).substr(0, text.size() - 1)), 2.0f);
}

}  // namespace
}  // namespace zeph::x11
