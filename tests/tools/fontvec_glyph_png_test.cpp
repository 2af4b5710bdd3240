// fontvec glyph --png as a person runs it: the real binary renders a glyph
// of a packaged font into a grey PNG, read back through libpng, and prints
// the map's "lo_x hi_y width height".
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <png.h>

#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::runFontvec;
using testsupport::ToolRun;

namespace {

// Reads an 8-bit grey PNG through libpng; empty on failure or another kind.
std::vector<unsigned char> readGrey(const std::string& path, unsigned* w,
                                    unsigned* h) {
  png_image image;
  memset(&image, 0, sizeof image);
  image.version = PNG_IMAGE_VERSION;
  std::vector<unsigned char> px;
  if (!png_image_begin_read_from_file(&image, path.c_str())) return px;
  if (image.format != PNG_FORMAT_GRAY) {
    png_image_free(&image);
    return px;
  }
  px.resize(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, px.data(), 0, nullptr)) px.clear();
  *w = image.width;
  *h = image.height;
  return px;
}

const std::string kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

}  // namespace

TEST(FontvecGlyphPng, WritesTheGraymapInkDarkOnWhiteAndPrintsItsBox) {
  testsupport::TempDir dir;
  std::string out = dir.file("l.png");
  // 'l' of DejaVu Sans at 64 ppem: x 193..377 and y 0..1556 of 2048 units,
  // i.e. 6.03 .. 11.78 and 0 .. 48.625 px: columns 6 to 11, rows 0 to 48
  // (hi_y 48), 6 wide and 49 tall.
  ToolRun r = runFontvec("glyph " + kDejaVu + " --char U+006C --ppem 64 --png " + out);
  ASSERT_EQ(0, r.status);
  EXPECT_EQ("6 48 6 49\n", r.out);
  unsigned w = 0, h = 0;
  std::vector<unsigned char> px = readGrey(out, &w, &h);
  ASSERT_FALSE(px.empty());
  EXPECT_EQ(6u, w);
  EXPECT_EQ(49u, h);
  // Middle rows: column 6 covered 1 - 0.03125 (248 -> grey 7), columns 7
  // to 10 solid (255 -> black), column 11 covered 0.78125 (200 -> 55).
  const unsigned char* row = px.data() + 20 * w;
  EXPECT_EQ(7, row[0]);
  for (int x = 1; x <= 4; x++) EXPECT_EQ(0, row[x]);
  EXPECT_EQ(55, row[5]);
  // The top row is covered 0.625: 255 - 160 on the solid columns.
  EXPECT_EQ(95, px[2]);
}

TEST(FontvecGlyphPng, SpaceGivesAnEmptyMapAndBadArgumentsAreRefused) {
  testsupport::TempDir dir;
  std::string out = dir.file("space.png");
  ToolRun r = runFontvec("glyph " + kDejaVu + " --char U+0020 --ppem 12 --png " + out);
  ASSERT_EQ(0, r.status);
  EXPECT_EQ("0 0 0 0\n", r.out);
  EXPECT_NE(0, runFontvec("glyph " + kDejaVu + " --char U+0041 --ppem 12 --points --png " + out).status);
  EXPECT_EQ(1, runFontvec("glyph " + kDejaVu + " --char U+0041 --ppem 12 --png /no/such/dir/a.png").status);
}
