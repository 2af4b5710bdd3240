// fontvec sheet read back: each font's own sample line, a missing font's error in its row while
// the others are drawn, and the nearest fonts of a vectors CSV after their query.
#include <gtest/gtest.h>

#include <png.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::runFontvec;
namespace {

#define DEJAVU "/usr/share/fonts/truetype/dejavu/"
#define ITALIC "/usr/share/fonts/truetype/liberation2/LiberationSerif-Italic.ttf"

// A sheet's row is 82 pixels (label 22, sample line 48, gap 12) below a
// 12-pixel margin; bands[r] is the sample line of row r.
std::vector<std::vector<png_byte>> sampleBands(const std::string& png) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  std::vector<png_byte> px;
  if (png_image_begin_read_from_file(&image, png.c_str())) {
    image.format = PNG_FORMAT_GRAY;
    px.resize((size_t)image.width * image.height);
    png_image_finish_read(&image, nullptr, px.data(), 0, nullptr);
  }
  EXPECT_EQ(((int)image.height - 12) % 82, 0) << png;
  std::vector<std::vector<png_byte>> bands(px.empty() ? 0 : (image.height - 12) / 82);
  for (size_t r = 0; r < bands.size(); r++)  // the first 600 columns: every sheet here is wider
    for (size_t y = 12 + 82 * r + 22; y < 12 + 82 * r + 70; y++)
      bands[r].insert(bands[r].end(), px.begin() + (long)(y * image.width), px.begin() + (long)(y * image.width + 600));
  return bands;
}

TEST(FontvecSheet, RowsShowEachFontsOwnSampleLine) {
  testsupport::TempDir dir;
  std::string png = dir.file("s.png"), err = dir.file("err.txt");
  // Alone, each font's band; then together with a missing font between.
  ASSERT_EQ(runFontvec("sheet --out " + png + " " DEJAVU "DejaVuSans.ttf", err).status, 0);
  std::vector<png_byte> sans = sampleBands(png).at(0);
  ASSERT_EQ(runFontvec("sheet --out " + png + " " ITALIC, err).status, 0);
  std::vector<png_byte> italic = sampleBands(png).at(0);
  EXPECT_NE(sans, italic);  // two fonts, two rows
  EXPECT_EQ(runFontvec("sheet --out " + png + " " DEJAVU "DejaVuSans.ttf /no/such.ttf " ITALIC, err).status, 1);
  EXPECT_NE(testsupport::readBytes(err).find("/no/such.ttf: error 102"), std::string::npos);
  auto bands = sampleBands(png);
  ASSERT_EQ(bands.size(), 3u);
  EXPECT_EQ(bands[2], italic);
  EXPECT_EQ(bands[0], sans);
  EXPECT_NE(bands[1], sans);  // the error text drawn in its place

  // The query first, then its nearest (found by `similar`), each its own line.
  std::string csv = dir.file("v.csv"), one = dir.file("one.png");
  testsupport::writeBytes(csv, runFontvec("--format csv " DEJAVU "DejaVuSans.ttf " DEJAVU "DejaVuSans-Bold.ttf " DEJAVU "DejaVuSerif.ttf " DEJAVU "DejaVuSansMono-Bold.ttf").out);
  ASSERT_EQ(runFontvec("sheet --out " + png + " --from " + csv + " --to DejaVuSans-Bold.ttf --k 2 " DEJAVU, err).status, 0);
  bands = sampleBands(png);
  ASSERT_EQ(bands.size(), 3u);
  char nearest[256] = "";
  sscanf(runFontvec("similar --k 1 --to DejaVuSans-Bold.ttf " + csv).out.c_str(), "1 %*f %255s", nearest);
  for (std::string font : {std::string("DejaVuSans-Bold.ttf"), std::string(nearest)}) {
    ASSERT_EQ(runFontvec("sheet --out " + one + " " DEJAVU + font).status, 0);
    EXPECT_EQ(bands[font == nearest], sampleBands(one).at(0)) << font;
  }
  for (const char* bad : {"sheet " DEJAVU "DejaVuSans.ttf", "sheet --out x.png", "sheet --out x.png --to a.ttf a.csv"})
    EXPECT_EQ(runFontvec(bad).status, 2) << bad;
}

}  // namespace
