// Tests of the PNG pages: glyph maps made by hand drawn onto real pages that
// are written and read back, and the picture names.
#include <gtest/gtest.h>
#include <png.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "Orvex_internal/display_png.h"
#include "Orvex_internal/fs_api.h"
#include "support/test_support.h"

namespace {

// A page file as stored (raw bytes) and whether it states gamma 1.0.
struct RawPage {
  int width = 0, height = 0, color_type = -1, channels = 0;
  bool linear = false;
  std::vector<unsigned char> bytes;
  int at(int x, int y, int ch = 0) const {
    return bytes[((size_t)y * width + x) * channels + ch];
  }
  int inked() const {  // gray pages: pixels that are not white
    int n = 0;
    for (unsigned char b : bytes) n += b != 255;
    return n;
  }
};

// Reads an open file; an empty page when libpng rejects it.
RawPage readRawFrom(FILE* f) {
  RawPage p;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    return RawPage();
  }
  png_init_io(png, f);
  png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  p.width = (int)png_get_image_width(png, info);
  p.height = (int)png_get_image_height(png, info);
  p.color_type = png_get_color_type(png, info);
  p.channels = png_get_channels(png, info);
  double gamma = 0;
  p.linear = png_get_gAMA(png, info, &gamma) && gamma == 1.0;
  png_bytepp rows = png_get_rows(png, info);
  for (int y = 0; y < p.height; y++)
    p.bytes.insert(p.bytes.end(), rows[y], rows[y] + p.width * p.channels);
  png_destroy_read_struct(&png, &info, nullptr);
  return p;
}

RawPage readRaw(const std::string& path) {
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) return RawPage();
  RawPage p = readRawFrom(f);
  fclose(f);
  return p;
}

// A glyph map with `bpl` bytes a row (its sign kept) and the given bits.
struct Map {
  std::vector<unsigned char> block;
  FS_GLYPHMAP* g() { return reinterpret_cast<FS_GLYPHMAP*>(block.data()); }
  Map(int width, int height, int bpl, int bitsPerPixel,
      std::vector<unsigned char> bits, int lo_x = 0, int hi_y = 0) {
    block.assign(sizeof(FS_GLYPHMAP) + bits.size(), 0);
    FS_GLYPHMAP* m = g();
    m->width = (FS_SHORT)width;
    m->height = (FS_SHORT)height;
    m->bpl = (FS_SHORT)bpl;
    m->bitsPerPixel = (FS_SHORT)bitsPerPixel;
    m->lo_x = (FS_SHORT)lo_x;
    m->hi_y = (FS_SHORT)hi_y;
    memcpy(m->bits, bits.data(), bits.size());
  }
};

unsigned char kBg[3] = {200, 40, 255};
unsigned char kFg[3] = {10, 250, 128};
enum { kRgb = 0, kGray = 1, kRgba = 2 };  // the script's colour types

// A w by h page of the script's colour type, drawn on by `draw`, read back.
RawPage page(int w, int h, int type, const std::function<void(TsImagePNG*)>& draw) {
  testsupport::TempDir dir;
  std::string path = dir.file("p.png");
  std::vector<char> name(path.begin(), path.end());
  name.push_back(0);
  TsImagePNG pD;
  new_PNG_image(name.data(), w, h, 8, type, kBg, &pD);
  draw(&pD);
  TsImagePNG_writeImage(&pD);
  TsImagePNG_doneImage(&pD);
  TsImagePNG_finiPNG(&pD);
  fclose(pD.fp);
  return readRaw(path);
}

// One graymap drawn with the pen at (x, y) on a w by h page.
RawPage drawOne(int type, Map& map, int w = 10, int h = 5, int x = 2, int y = 2) {
  return page(w, h, type, [&](TsImagePNG* pD) {
    dump_graymap_to_memory(pD, x, y, map.g()->lo_x, map.g()->hi_y, map.g(), kFg);
  });
}

TEST(GraymapBlend, ChannelsMoveTowardTheForegroundByTheRoundedShare) {
  Map m(3, 1, 3, 8, {0, 128, 255});
  // c + ((v * (fg - c) + 128) >> 8), shifts of negatives rounding down, by 128:
  // red 200 -> 10: -24192 >> 8 = -95; green 40 -> 250: 27008 >> 8 = 105;
  // blue 255 -> 128: -16128 >> 8 = -63 (-64 without the rounding term).
  const int want[3][3] = {{200, 40, 255}, {105, 145, 192}, {10, 250, 128}};
  for (int type : {kRgb, kRgba}) {
    RawPage p = drawOne(type, m);
    ASSERT_EQ(p.color_type, type == kRgb ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGB_ALPHA);
    EXPECT_TRUE(p.linear);
    for (int i = 0; i < 3; i++) {
      for (int ch = 0; ch < 3; ch++)
        EXPECT_EQ(p.at(2 + i, 2, ch), want[i][ch]) << type << " v#" << i << " ch" << ch;
      if (type == kRgba) { EXPECT_EQ(p.at(2 + i, 2, 3), 255); }  // alpha opaque
    }
  }
  // Gray pages are white, whatever the background, and store 255 - v.
  RawPage g = drawOne(kGray, m);
  ASSERT_EQ(g.color_type, PNG_COLOR_TYPE_GRAY);
  const int gray[3] = {255, 127, 0};
  for (int i = 0; i < 3; i++) EXPECT_EQ(g.at(2 + i, 2), gray[i]);
  // On gray a later glyph wins where it is not white, with no blend.
  Map first(2, 1, 2, 8, {255, 255}), second(2, 1, 2, 8, {0, 100});
  RawPage two = page(6, 3, kGray, [&](TsImagePNG* pD) {
    dump_graymap_to_memory(pD, 1, 1, 0, 0, first.g(), kFg);
    dump_graymap_to_memory(pD, 1, 1, 0, 0, second.g(), kFg);
  });
  EXPECT_EQ(two.at(1, 1), 0);    // coverage 0 leaves the earlier ink
  EXPECT_EQ(two.at(2, 1), 155);  // 255 - 100
}

TEST(GraymapDepths, TwoAndFourBitCoveragesScaleTo255AndRowsFollowBpl) {
  Map two(4, 1, 1, 2, {0x1B});            // 00 01 10 11 -> 0, 85, 170, 255
  Map four(3, 1, 2, 4, {0x0F, 0x80});     // nibbles 0, 15, 8 -> 0, 255, 136
  Map negative(2, 2, -3, 8, {255, 0, 9, 0, 255, 9});  // rows |bpl| = 3 apart
  // Each row: a map drawn at (2, 2) on gray, its first row of pixels.
  const struct { Map* map; std::vector<int> want; } rows[] = {
      {&two, {255, 170, 85, 0}}, {&four, {255, 0, 119}}, {&negative, {0, 255}}};
  for (const auto& row : rows) {
    RawPage p = drawOne(kGray, *row.map);
    for (size_t i = 0; i < row.want.size(); i++)
      EXPECT_EQ(p.at(2 + (int)i, 2), row.want[i]) << row.map->g()->bitsPerPixel << " " << i;
  }
  RawPage p = drawOne(kGray, negative);  // the second row, 3 bytes on
  EXPECT_EQ(p.at(2, 3), 255);
  EXPECT_EQ(p.at(3, 3), 0);
}

TEST(GlyphFit, AGlyphNotStrictlyInsideThePageIsDroppedWhole) {
  Map m(5, 1, 5, 8, {255, 255, 255, 255, 255});
  Map corner(1, 1, 1, 8, {255}, 3, 4);  // lo_x 3, hi_y 4
  const struct { int x, y, inked; const char* why; } rows[] = {
      {4, 2, 5, "4 + 5 = 9 < 10"},
      {5, 2, 0, "width exactly xSize - xx"},
      {-1, 2, 0, "negative xx"},
      {0, 3, 5, "3 + 1 = 4 < 5"},
      {0, 4, 0, "the bottom row can't hold ink"},
      {0, -1, 0, "negative yy"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(drawOne(kGray, m, 10, 5, row.x, row.y).inked(), row.inked) << row.why;
  RawPage q = drawOne(kGray, corner, 10, 8, 1, 6);
  EXPECT_EQ(q.inked(), 1);
  EXPECT_EQ(q.at(4, 2), 0);  // at pen + lo_x, pen - hi_y
  Map space(0, 0, 0, 8, {0});  // a space of width 0 draws nothing, no error
  EXPECT_EQ(drawOne(kGray, space).inked(), 0);
}

TEST(BitmapWriter, SetBitsTakeTheForegroundOnEachColourType) {
  // 10 pixels: 0xA0 0x40 -> columns 0, 2 and 9 set.
  Map bits(10, 1, 2, 1, {0xA0, 0x40});
  for (int type : {kRgb, kRgba, kGray}) {
    RawPage p = page(12, 3, type, [&](TsImagePNG* pD) {
      dump_bitmap_to_memory(pD, 1, 1, 0, 0, bits.g(), kFg);
    });
    for (int c = 0; c < 10; c++) {
      bool set = c == 0 || c == 2 || c == 9;
      if (type == kGray) {
        EXPECT_EQ(p.at(1 + c, 1), set ? 0 : 255) << c;
        continue;
      }
      EXPECT_EQ(p.at(1 + c, 1, 1), set ? 250 : 40) << c;
      if (type == kRgba) { EXPECT_EQ(p.at(1 + c, 1, 3), 255); }
    }
  }
}

// Picture names: ImagePath set, counter from 0.
TEST(PictureNames, TheCounterWalksTheTableAndWrapsAfter58) {
  snprintf(ImagePath, sizeof ImagePath, "%s", "/fonts/x");
  ImageCount = 0;
  std::vector<std::string> names;
  char buf[IMAGE_PATH_SIZE];
  for (int i = 0; i < 60; i++) {
    new_image_page(buf);
    names.push_back(buf);
  }
  const struct { int index; const char* name; } rows[] = {
      {0, "font_b"}, {2, "65-A"}, {28, "97-a"}, {57, "111-olar"}, {58, "font_b"}};
  for (const auto& row : rows)
    EXPECT_EQ(names[row.index], std::string("/fonts/x/Images/") + row.name + ".png");
  // A folder too long for the buffer is cut, never overrun.
  snprintf(ImagePath, sizeof ImagePath, "%s", std::string(400, 'd').c_str());
  new_image_page(buf);
  EXPECT_EQ(strlen(buf), (size_t)IMAGE_PATH_SIZE - 1);
  ImagePath[0] = 0;
  ImageCount = 0;
}

TEST(PageDeathTest, AnUnopenableFileEndsTheProcess) {
  char name[] = "/nonexistent-folder/Images/font.png";
  TsImagePNG pD;
  EXPECT_EXIT(new_PNG_image(name, 4, 4, 8, 0, kBg, &pD),
              testing::ExitedWithCode(255),
              "^Error: Cannot open output png file: "
              "/nonexistent-folder/Images/font.png\n$");
}

}  // namespace
