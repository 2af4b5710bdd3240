// Tests of the PNG pages: glyph maps made by hand blended onto real pages
// that are written and read back, picture names and their one-step lag, and
// scripts that draw DejaVu Sans glyphs through show_fake and show_gray_8bit
// into an Images folder, read back with the measurement code's reader.
#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Orvex_internal/display_png.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/orvextxt.h"
#include "image_operations/image_access.h"
#include "support/test_support.h"

namespace {

// A page file as stored: colour type, channels, raw bytes (no transforms,
// so a gray page gives its gray bytes), and whether it states gamma 1.0.
struct RawPage {
  int width = 0, height = 0, color_type = -1, channels = 0;
  bool linear = false;
  std::vector<unsigned char> bytes;
  int at(int x, int y, int ch = 0) const {
    return bytes[((size_t)y * width + x) * channels + ch];
  }
};

// Reads an open file; an empty page when libpng rejects it.
RawPage readRawFrom(FILE* f) {
  RawPage p;
  png_structp png =
      png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
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

// A glyph map of width by height with `bpl` bytes a row (its sign kept) and
// the given rows of bits.
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

// The caller's closing sequence.
void closePage(TsImagePNG* pD) {
  TsImagePNG_writeImage(pD);
  TsImagePNG_doneImage(pD);
  TsImagePNG_finiPNG(pD);
  fclose(pD->fp);
}

unsigned char kBg[3] = {200, 40, 255};
unsigned char kFg[3] = {10, 250, 128};

// A page of the script's colour type (0 RGB, 2 RGBA, 1 gray) with one
// graymap drawn with its corner at (2, 2), read back raw.
RawPage drawOne(int scriptColorType, Map& map, int w = 10, int h = 5) {
  testsupport::TempDir dir;
  std::string path = dir.file("p.png");
  TsImagePNG pD;
  std::vector<char> name(path.begin(), path.end());
  name.push_back(0);
  new_PNG_image(name.data(), w, h, 8, scriptColorType, kBg, &pD);
  dump_graymap_to_memory(&pD, 2, 2, map.g()->lo_x, map.g()->hi_y, map.g(),
                         kFg);
  closePage(&pD);
  return readRaw(path);
}

// Coverages 0, 1, 128, 254, 255 in an 8-bit map.
Map coverages() { return Map(5, 1, 5, 8, {0, 1, 128, 254, 255}); }

TEST(GraymapBlend, RgbChannelsMoveTowardTheForegroundByTheRoundedShare) {
  Map m = coverages();
  RawPage p = drawOne(0, m);
  ASSERT_EQ(p.color_type, PNG_COLOR_TYPE_RGB);
  EXPECT_TRUE(p.linear);
  // c + ((v * (fg - c) + 128) >> 8), shifts of negatives rounding down:
  // red 200 -> 10: v 1: -62 >> 8 = -1; v 128: -24192 >> 8 = -95;
  //   v 254: -48132 >> 8 = -189.
  // green 40 -> 250: v 1: 338 >> 8 = 1; v 128: 27008 >> 8 = 105;
  //   v 254: 53468 >> 8 = 208.
  // blue 255 -> 128: v 1: 1 >> 8 = 0; v 128: -16128 >> 8 = -63;
  //   v 254: -32130 >> 8 = -126.
  const int want[5][3] = {
      {200, 40, 255}, {199, 41, 255}, {105, 145, 192}, {11, 248, 129},
      {10, 250, 128}};
  for (int i = 0; i < 5; i++)
    for (int ch = 0; ch < 3; ch++)
      EXPECT_EQ(p.at(2 + i, 2, ch), want[i][ch]) << "v#" << i << " ch" << ch;
  // The rest of the page keeps the background.
  EXPECT_EQ(p.at(0, 0, 0), 200);
  EXPECT_EQ(p.at(9, 4, 2), 255);
}

TEST(GraymapBlend, RgbaBlendsTheSameAndKeepsAlphaOpaque) {
  Map m = coverages();
  RawPage p = drawOne(2, m);
  ASSERT_EQ(p.color_type, PNG_COLOR_TYPE_RGB_ALPHA);
  const int want[5][3] = {
      {200, 40, 255}, {199, 41, 255}, {105, 145, 192}, {11, 248, 129},
      {10, 250, 128}};
  for (int i = 0; i < 5; i++) {
    for (int ch = 0; ch < 3; ch++)
      EXPECT_EQ(p.at(2 + i, 2, ch), want[i][ch]) << "v#" << i << " ch" << ch;
    EXPECT_EQ(p.at(2 + i, 2, 3), 255);
  }
  EXPECT_EQ(p.at(0, 0, 3), 255);  // the background is opaque too
}

TEST(GraymapBlend, GrayPagesAreWhiteAndStoreTheInverseCoverage) {
  Map m = coverages();
  RawPage p = drawOne(1, m);
  ASSERT_EQ(p.color_type, PNG_COLOR_TYPE_GRAY);
  ASSERT_EQ(p.channels, 1);
  // The background colour plays no part: 255 everywhere but the ink.
  EXPECT_EQ(p.at(0, 0), 255);
  EXPECT_EQ(p.at(9, 4), 255);
  const int want[5] = {255, 254, 127, 1, 0};
  for (int i = 0; i < 5; i++) EXPECT_EQ(p.at(2 + i, 2), want[i]);
}

TEST(GraymapBlend, GrayLaterGlyphWinsWhereItIsNotWhite) {
  testsupport::TempDir dir;
  std::string path = dir.file("p.png");
  std::vector<char> name(path.begin(), path.end());
  name.push_back(0);
  TsImagePNG pD;
  new_PNG_image(name.data(), 6, 3, 8, 1, kBg, &pD);
  Map first(3, 1, 3, 8, {255, 255, 255});
  Map second(3, 1, 3, 8, {0, 100, 10});
  dump_graymap_to_memory(&pD, 1, 1, 0, 0, first.g(), kFg);
  dump_graymap_to_memory(&pD, 1, 1, 0, 0, second.g(), kFg);
  closePage(&pD);
  RawPage p = readRaw(path);
  EXPECT_EQ(p.at(1, 1), 0);    // coverage 0 leaves the earlier ink
  EXPECT_EQ(p.at(2, 1), 155);  // 255 - 100, no blend with the 0 under it
  EXPECT_EQ(p.at(3, 1), 245);
}

TEST(GraymapDepths, TwoAndFourBitCoveragesScaleTo255) {
  // 2 bits: 0x1B = 00 01 10 11 -> 0, 85, 170, 255.
  Map two(4, 1, 1, 2, {0x1B});
  RawPage g2 = drawOne(1, two);
  const int want2[4] = {255, 170, 85, 0};
  for (int i = 0; i < 4; i++) EXPECT_EQ(g2.at(2 + i, 2), want2[i]);
  // 4 bits: 0x0F 0x80 -> nibbles 0, 15, 8 -> 0, 255, 136.
  Map four(3, 1, 2, 4, {0x0F, 0x80});
  RawPage g4 = drawOne(1, four);
  EXPECT_EQ(g4.at(2, 2), 255);
  EXPECT_EQ(g4.at(3, 2), 0);
  EXPECT_EQ(g4.at(4, 2), 119);
  // On RGB, value 3 and nibble 15 take the solid path; red 200 -> 10 by
  // 85: (-16150 + 128) >> 8 = -63 -> 137; by 170: -32172 >> 8 = -126 -> 74;
  // by 136: -25712 >> 8 = -101 -> 99.
  RawPage c2 = drawOne(0, two);
  const int red2[4] = {200, 137, 74, 10};
  for (int i = 0; i < 4; i++) EXPECT_EQ(c2.at(2 + i, 2, 0), red2[i]);
  EXPECT_EQ(c2.at(5, 2, 1), 250);
  RawPage c4 = drawOne(0, four);
  EXPECT_EQ(c4.at(3, 2, 0), 10);
  EXPECT_EQ(c4.at(4, 2, 0), 99);
}

TEST(GraymapDepths, RowsAreTheMagnitudeOfANegativeBplApart) {
  // Two rows of 2 pixels, bpl -3: the second row starts 3 bytes on.
  Map m(2, 2, -3, 8, {255, 0, 9, 0, 255, 9});
  RawPage p = drawOne(1, m);
  EXPECT_EQ(p.at(2, 2), 0);
  EXPECT_EQ(p.at(3, 2), 255);
  EXPECT_EQ(p.at(2, 3), 255);
  EXPECT_EQ(p.at(3, 3), 0);
}

TEST(GlyphFit, AGlyphNotStrictlyInsideThePageIsDroppedWhole) {
  Map m(5, 1, 5, 8, {255, 255, 255, 255, 255});
  struct Case {
    int x, y;
    bool drawn;
  } cases[] = {
      {4, 2, true},    // 4 + 5 = 9 < 10
      {5, 2, false},   // width exactly xSize - xx
      {-1, 2, false},  // negative xx
      {0, 3, true},    // 3 + 1 = 4 < 5
      {0, 4, false},   // the bottom row can't hold ink
      {0, -1, false},
  };
  for (const Case& c : cases) {
    testsupport::TempDir dir;
    std::string path = dir.file("p.png");
    std::vector<char> name(path.begin(), path.end());
    name.push_back(0);
    TsImagePNG pD;
    new_PNG_image(name.data(), 10, 5, 8, 1, kBg, &pD);
    dump_graymap_to_memory(&pD, c.x, c.y, 0, 0, m.g(), kFg);
    closePage(&pD);
    RawPage p = readRaw(path);
    int dark = 0;
    for (unsigned char b : p.bytes) dark += b != 255;
    EXPECT_EQ(dark, c.drawn ? 5 : 0) << c.x << "," << c.y;
  }
  // A space of width 0 draws nothing and is no error.
  Map space(0, 0, 0, 8, {0});
  RawPage p = drawOne(1, space);
  for (unsigned char b : p.bytes) EXPECT_EQ(b, 255);
}

TEST(GlyphPlacement, TheCornerLandsAtPenPlusLeftAndPenMinusTop) {
  // Pen (1, 6), lo_x 3, hi_y 4: the corner goes to (4, 2).
  Map m(1, 1, 1, 8, {255}, 3, 4);
  RawPage p = drawOne(1, m);  // drawn at pen (2, 2): corner (5, -2) dropped
  for (unsigned char b : p.bytes) EXPECT_EQ(b, 255);
  testsupport::TempDir dir;
  std::string path = dir.file("p.png");
  std::vector<char> name(path.begin(), path.end());
  name.push_back(0);
  TsImagePNG pD;
  new_PNG_image(name.data(), 10, 8, 8, 1, kBg, &pD);
  dump_graymap_to_memory(&pD, 1, 6, 3, 4, m.g(), kFg);
  closePage(&pD);
  RawPage q = readRaw(path);
  EXPECT_EQ(q.at(4, 2), 0);
}

TEST(BitmapWriter, SetBitsStoreInkAndClearBitsLeaveThePage) {
  // 10 pixels: 0xA0 0x40 -> columns 0, 2 and 9 set.
  Map m(10, 1, 2, 1, {0xA0, 0x40});
  for (int type : {0, 2, 1}) {
    testsupport::TempDir dir;
    std::string path = dir.file("p.png");
    std::vector<char> name(path.begin(), path.end());
    name.push_back(0);
    TsImagePNG pD;
    new_PNG_image(name.data(), 12, 3, 8, type, kBg, &pD);
    dump_bitmap_to_memory(&pD, 1, 1, 0, 0, m.g(), kFg);
    closePage(&pD);
    RawPage p = readRaw(path);
    for (int c = 0; c < 10; c++) {
      bool set = c == 0 || c == 2 || c == 9;
      if (type == 1) {
        EXPECT_EQ(p.at(1 + c, 1), set ? 0 : 255);
      } else {
        EXPECT_EQ(p.at(1 + c, 1, 0), set ? 10 : 200);
        EXPECT_EQ(p.at(1 + c, 1, 1), set ? 250 : 40);
        if (type == 2) {
          EXPECT_EQ(p.at(1 + c, 1, 3), 255);
        }
      }
    }
  }
}

TEST(SubpixelWriter, SixteenAndEightBitPixelsUnpackFourCoverages) {
  // 16 bits 0xF0 0x08: nibbles 15, 0, 0, 8 -> gray coverage 136 -> 119.
  // 8 bits 0xC6 = 11 00 01 10: gray value 2 -> 170 -> 85; red 3 solid.
  Map sixteen(1, 1, 2, 16, {0xF0, 0x08});
  Map eight(1, 1, 1, 8, {0xC6});
  for (int type : {1, 0}) {
    testsupport::TempDir dir;
    std::string path = dir.file("p.png");
    std::vector<char> name(path.begin(), path.end());
    name.push_back(0);
    TsImagePNG pD;
    new_PNG_image(name.data(), 4, 3, 8, type, kBg, &pD);
    dump_subpixelmap_to_memory(&pD, 0, 1, 0, 0, sixteen.g(), kFg);
    dump_subpixelmap_to_memory(&pD, 1, 1, 0, 0, eight.g(), kFg);
    closePage(&pD);
    RawPage p = readRaw(path);
    if (type == 1) {
      EXPECT_EQ(p.at(0, 1), 119);
      EXPECT_EQ(p.at(1, 1), 85);
    } else {
      EXPECT_EQ(p.at(0, 1, 0), 10);
      EXPECT_EQ(p.at(0, 1, 2), 255);  // blue coverage 0
      EXPECT_EQ(p.at(1, 1, 0), 10);
      // blue 255 -> 128 by 85: (-10795 + 128) >> 8 = -42 -> 213.
      EXPECT_EQ(p.at(1, 1, 2), 213);
    }
  }
}

TEST(SubpixelWriter, EachChannelTakesItsOwnCoverageAndGrayTheFourth) {
  // One pixel of four 8-bit coverages: red 255, green 0, blue 128, gray 64.
  Map m(1, 1, 4, 32, {255, 0, 128, 64});
  for (int type : {0, 1}) {
    testsupport::TempDir dir;
    std::string path = dir.file("p.png");
    std::vector<char> name(path.begin(), path.end());
    name.push_back(0);
    TsImagePNG pD;
    new_PNG_image(name.data(), 3, 3, 8, type, kBg, &pD);
    dump_subpixelmap_to_memory(&pD, 1, 1, 0, 0, m.g(), kFg);
    closePage(&pD);
    RawPage p = readRaw(path);
    if (type == 1) {
      EXPECT_EQ(p.at(1, 1), 191);  // 255 - 64
    } else {
      EXPECT_EQ(p.at(1, 1, 0), 10);   // solid
      EXPECT_EQ(p.at(1, 1, 1), 40);   // coverage 0 leaves it
      EXPECT_EQ(p.at(1, 1, 2), 192);  // 255 -> 128 by 128, as above
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
  EXPECT_EQ(names[0], "/fonts/x/Images/font_b.png");
  EXPECT_EQ(names[1], "/fonts/x/Images/font_s.png");
  EXPECT_EQ(names[2], "/fonts/x/Images/65-A.png");
  EXPECT_EQ(names[27], "/fonts/x/Images/90-Z.png");
  EXPECT_EQ(names[28], "/fonts/x/Images/97-a.png");
  EXPECT_EQ(names[53], "/fonts/x/Images/122-z.png");
  EXPECT_EQ(names[54], "/fonts/x/Images/46-..png");
  EXPECT_EQ(names[55], "/fonts/x/Images/48-0.png");
  EXPECT_EQ(names[56], "/fonts/x/Images/104-hlar.png");
  EXPECT_EQ(names[57], "/fonts/x/Images/111-olar.png");
  EXPECT_EQ(names[58], "/fonts/x/Images/font_b.png");
  EXPECT_EQ(ImageCount, 2);
  // A folder too long for the buffer is cut, never overrun.
  std::string longPath(400, 'd');
  snprintf(ImagePath, sizeof ImagePath, "%s", longPath.c_str());
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

const char* kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// A PNG run as the driver makes it: ImagePath is the font folder, the
// counter at 0, the first page "Images/font.png" under it.
struct PngRun {
  testsupport::TempDir dir;
  NAMED_STATE* states = nullptr;
  NAMED_STATE* currns = nullptr;
  FS_STATE* sp = nullptr;
  std::string images;

  PngRun() {
    images = dir.mkdir("Images");
    snprintf(ImagePath, sizeof ImagePath, "%s", dir.path().c_str());
    ImageCount = 0;
    states = new_named_state("NONE", nullptr, 0);
    currns = states;
    init_and_set_DEFAULT_client(&sp, states, &currns, 5290000, 0,
                                DISPLAY_NONE, nullptr);
  }
  void script(const std::string& text) {
    std::string path = dir.file("main.scr");
    FILE* f = fopen(path.c_str(), "w");
    fputs(text.c_str(), f);
    fclose(f);
    f = fopen(path.c_str(), "r");
    std::string first = images + "/font.png";
    err_FD = 0;
    OrvexTxt(f, path.c_str(), 0, DISPLAY_PNG, first.c_str(), nullptr, sp,
             states, currns, dir.path().c_str(), 0, 0, kDejaVu, 0);
    fclose(f);
  }
  std::string file(const std::string& name) { return images + "/" + name; }
  bool exists(const std::string& name) {
    struct stat st;
    return stat(file(name).c_str(), &st) == 0;
  }
  ~PngRun() {
    for (NAMED_STATE* e = states; e != nullptr; e = e->next)
      if (e->ismaster && e->state != nullptr) FSS_exit(e->state);
    remove_named_states(&states, &currns);
    ImagePath[0] = 0;
    ImageCount = 0;
  }
};

// A page read with the measurement code's reader, with its ink box.
struct Measured {
  unsigned int w = 0, h = 0;
  int minX = 0, minY = 0, maxX = 0, maxY = 0;
  int ink = 1;
};

Measured measure(const std::string& path) {
  Measured m;
  unsigned int* px = ReadPngFile(path.c_str(), &m.w, &m.h, boBGRA);
  if (px == nullptr) return m;
  m.ink = getBoundingBox(px, &m.minX, &m.minY, &m.maxX, &m.maxY, (int)m.w,
                         (int)m.h);
  free(px);
  return m;
}

TEST(ScriptPages, ASingleGlyphSitsAtTwoTwoOnItsInkBoxPlusFive) {
  PngRun r;
  r.script("path\nppm 72\nglyphset \"41\"\nshow_fake\nshow_gray_8bit\n");
  ASSERT_EQ(err_FD, 0);
  ASSERT_TRUE(r.exists("font.png"));
  EXPECT_FALSE(r.exists("font_b.png"));  // named, not yet opened
  Measured m = measure(r.file("font.png"));
  ASSERT_EQ(m.ink, 0);
  EXPECT_EQ(m.minX, 2);
  EXPECT_EQ(m.minY, 2);
  EXPECT_EQ((int)m.w, m.maxX - m.minX + 1 + 5);
  EXPECT_EQ((int)m.h, m.maxY - m.minY + 1 + 5);
}

TEST(ScriptPages, AStringHasItsLeadInBaselineAndMargins) {
  PngRun r;
  // "pHi": 'H' is the tallest ink, 'p' the lowest. The moveto after the
  // measuring pass takes the baseline it found.
  r.script("path\nppm 72\nglyphset \"70 48 69\"\nshow_fake\nmoveto 0 0\n"
           "show_gray_8bit\n");
  ASSERT_EQ(err_FD, 0);
  Measured m = measure(r.file("font.png"));
  ASSERT_EQ(m.ink, 0);
  EXPECT_EQ(m.minX, 50);                  // the lead-in
  EXPECT_EQ(m.minY, 5);                   // the tallest ink 5 below the top
  EXPECT_EQ((int)m.h - 1 - m.maxY, 25);   // 25 rows under the lowest ink
  EXPECT_EQ((int)m.w - 1 - m.maxX, 105);  // 105 columns after the last
}

TEST(ScriptPages, ADescenderAfterTheTallestGlyphDoesNotDeepenThePage) {
  PngRun r;
  // "Hip": 'H' sets the bottom 25 below the baseline. 'p' (426 units of
  // descent, 15 rows at 72 ppem) ends above that bottom, which is only
  // moved when a glyph's ink reaches it: 25 - 15 = 10 rows stay under 'p'.
  r.script("path\nppm 72\nglyphset \"48 69 70\"\nshow_fake\nmoveto 0 0\n"
           "show_gray_8bit\n");
  ASSERT_EQ(err_FD, 0);
  Measured m = measure(r.file("font.png"));
  ASSERT_EQ(m.ink, 0);
  EXPECT_EQ(m.minY, 5);
  EXPECT_EQ((int)m.h - 1 - m.maxY, 10);
}

TEST(ScriptPages, FilesFollowTheOneStepLag) {
  PngRun r;
  // Every page gets one glyph, the pen put back to the top each time (a
  // pen low on the page would overflow into extra pages): 60 pages.
  std::string text = "path\nppm 20\nglyphset \"41\"\n";
  for (int i = 0; i < 60; i++) text += "page\nmoveto 0 0\nshow_gray_8bit\n";
  r.script(text);
  ASSERT_EQ(err_FD, 0);
  EXPECT_TRUE(r.exists("font.png"));
  EXPECT_TRUE(r.exists("font_b.png"));
  EXPECT_TRUE(r.exists("font_s.png"));
  EXPECT_TRUE(r.exists("65-A.png"));
  EXPECT_TRUE(r.exists("122-z.png"));
  EXPECT_TRUE(r.exists("46-..png"));
  EXPECT_TRUE(r.exists("111-olar.png"));
  for (const char* n : {"font.png", "font_b.png", "111-olar.png"}) {
    Measured m = measure(r.file(n));
    EXPECT_EQ(m.w, 594u) << n;
    EXPECT_EQ(m.h, 764u) << n;
    EXPECT_EQ(m.ink, 0) << n;
  }
  EXPECT_EQ(ImageCount, 2);  // the 60th page took "font_b" again
}

TEST(ScriptPages, ImageSizeReopensTheSameName) {
  PngRun r;
  r.script("path\nppm 20\nglyphset \"41\"\npage\nshow_gray_8bit\npage\n"
           "image_size 40 30\nmoveto 0 0\nshow_gray_8bit\n");
  ASSERT_EQ(err_FD, 0);
  // The second "page" opened font_b and named font_s next; image_size
  // wrote font_b and opened font_s at 40 by 30 without naming another, so
  // the page after it would take font_s again.
  Measured b = measure(r.file("font_b.png"));
  EXPECT_EQ(b.w, 594u);
  EXPECT_EQ(b.ink, 1);  // blank: closed before anything was drawn
  Measured s = measure(r.file("font_s.png"));
  EXPECT_EQ(s.w, 40u);
  EXPECT_EQ(s.h, 30u);
  EXPECT_EQ(s.ink, 0);
  EXPECT_FALSE(r.exists("65-A.png"));
  EXPECT_EQ(ImageCount, 2);
}

TEST(ScriptPages, AnEngineErrorLeavesTheOpenPageUnwritten) {
  PngRun r;
  // The unknown font ends the run with font.png open: the file holds at
  // most its header, no picture a reader takes.
  testing::internal::CaptureStderr();
  r.script("path\nppm 20\nglyphset \"41\"\nshow_gray_8bit\nfont \"nope\"\n");
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(err_FD, 301);
  EXPECT_TRUE(r.exists("font.png"));
  unsigned int w = 0, h = 0;
  EXPECT_EQ(ReadPngFile(r.file("font.png").c_str(), &w, &h, boBGRA), nullptr);
}

TEST(ScriptPages, TheAdvanceSpreadOfTenTwelveFourteen) {
  PngRun r;
  stdDevAdv = -1;
  // Hinted at 20 ppem DejaVu Sans gives s 10, a 12, A 14 pixels
  // (1067, 1255, 1401 units, rounded). Mean 12; |10 - 12| + |12 - 12| = 2,
  // the last left out; 2 / (3 * 12).
  r.script("path\nppm 20\nget_advance ON\nglyphset \"73 61 41\"\nshow_fake\n");
  EXPECT_EQ(err_FD, 0);
  EXPECT_EQ(stdDevAdv, 2.0 / 36.0);
  // The pass ends the command: no page is opened after it.
  EXPECT_FALSE(r.exists("font.png"));
}

TEST(ScriptPages, TwelveTrailingIdenticalIndicesRaiseGlyphCreationError) {
  PngRun r;
  GlyphCreationError = 0;
  r.script("path\nppm 20\nglyphset \"41 E000-E00B\"\nshow_fake\n"
           "show_gray_8bit\n");
  EXPECT_EQ(GlyphCreationError, 2);
  GlyphCreationError = 0;
  r.script("path\nppm 20\nglyphset \"E000-E00A 41\"\nshow_gray_8bit\n");
  EXPECT_EQ(GlyphCreationError, 0);  // the trailing run is one glyph long
}

}  // namespace
