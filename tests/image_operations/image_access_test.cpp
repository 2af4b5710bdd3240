// Reading and writing glyph pictures, and the pixel primitives, on real PNG
// files written through libpng.
#include "image_operations/image_access.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>

#include "support/test_support.h"

using testsupport::Picture;
using testsupport::PngKind;
using testsupport::TempDir;
using testsupport::writePicture;

namespace {

struct FreeDeleter {
  void operator()(void* p) const { free(p); }
};
using PicturePtr = std::unique_ptr<uint32, FreeDeleter>;

PicturePtr read(const std::string& path, unsigned* w, unsigned* h,
                bufferFormatId format = boBGRA) {
  return PicturePtr(ReadPngFile(path.c_str(), w, h, format));
}

// A 3 x 2 picture of distinct colours.
Picture colourSwatch() {
  Picture p(3, 2);
  p.set(0, 0, 0x112233);
  p.set(1, 0, 0xFF0000);
  p.set(2, 0, 0x00FF00);
  p.set(0, 1, 0x0000FF);
  p.set(1, 1, 0x000000);
  p.set(2, 1, 0xFFFFFF);
  return p;
}

void expectSamePixels(const Picture& expected, const uint32* got) {
  for (int i = 0; i < expected.width * expected.height; i++)
    EXPECT_EQ(got[i], expected.pixels[i]) << "pixel " << i;
}

}  // namespace

TEST(ReadPngFile, RgbAndOpaqueRgbaGiveZeroTopByteRgbIntegers) {
  TempDir dir;
  Picture swatch = colourSwatch();
  for (PngKind kind : {PngKind::kRgb8, PngKind::kRgba8, PngKind::kRgb16,
                       PngKind::kRgb8Interlaced, PngKind::kPalette8}) {
    std::string path = dir.file("swatch.png");
    writePicture(path, swatch, kind);
    unsigned w = 0, h = 0;
    PicturePtr pic = read(path, &w, &h);
    ASSERT_NE(pic, nullptr) << "kind " << (int)kind;
    EXPECT_EQ(w, 3u);
    EXPECT_EQ(h, 2u);
    expectSamePixels(swatch, pic.get());
  }
}

TEST(ReadPngFile, TranslucentAlphaLandsInvertedInTheTopByte) {
  TempDir dir;
  Picture p(2, 1, 0x000000);
  writePicture(dir.file("a.png"), p, PngKind::kRgba8, {255, 55});
  unsigned w, h;
  PicturePtr pic = read(dir.file("a.png"), &w, &h);
  ASSERT_NE(pic, nullptr);
  EXPECT_EQ(pic.get()[0], 0x00000000u);
  EXPECT_EQ(pic.get()[1], 0xC8000000u);  // 255 - 55 = 200 = 0xC8
}

TEST(ReadPngFile, ByteOrdersFollowTheRequestedFormat) {
  TempDir dir;
  Picture p(1, 1, 0x112233);
  writePicture(dir.file("p.png"), p);
  unsigned w, h;
  // Read as integers on a little-endian machine: byte 0 is the low byte.
  EXPECT_EQ(*read(dir.file("p.png"), &w, &h, boBGRA), 0x00112233u);
  EXPECT_EQ(*read(dir.file("p.png"), &w, &h, boRGBA), 0x00332211u);
  EXPECT_EQ(*read(dir.file("p.png"), &w, &h, boARGB), 0x33221100u);
  EXPECT_EQ(*read(dir.file("p.png"), &w, &h, boABGR), 0x11223300u);
}

TEST(ReadPngFile, GreyFileReadsWithoutCrashing) {
  // The reader always takes the palette path, so grey is not expanded: the
  // bytes land two to a pixel and the picture is not meaningful, but the read
  // succeeds with the right size.
  TempDir dir;
  Picture p(5, 4, 0x808080);
  writePicture(dir.file("g.png"), p, PngKind::kGrey8);
  unsigned w = 0, h = 0;
  PicturePtr pic = read(dir.file("g.png"), &w, &h);
  ASSERT_NE(pic, nullptr);
  EXPECT_EQ(w, 5u);
  EXPECT_EQ(h, 4u);
}

TEST(ReadPngFile, UnreadableFilesGiveNull) {
  TempDir dir;
  unsigned w, h;
  EXPECT_EQ(read(dir.file("absent.png"), &w, &h), nullptr);

  testsupport::writeBytes(dir.file("text.png"), "this is not a picture\n");
  EXPECT_EQ(read(dir.file("text.png"), &w, &h), nullptr);

  testsupport::writeBytes(dir.file("empty.png"), "");
  EXPECT_EQ(read(dir.file("empty.png"), &w, &h), nullptr);

  // Fewer than 8 bytes, all of them a correct signature start: the short
  // check passes and the header read then fails.
  testsupport::writeBytes(dir.file("short.png"), "\x89PNG");
  EXPECT_EQ(read(dir.file("short.png"), &w, &h), nullptr);

  // A real file cut in the middle of its image data.
  Picture big(60, 60);
  for (int i = 0; i < 60; i++) big.set(i, (i * 7) % 60, 0x000000 + i * 997);
  writePicture(dir.file("whole.png"), big);
  std::string bytes = testsupport::readBytes(dir.file("whole.png"));
  testsupport::writeBytes(dir.file("cut.png"), bytes.substr(0, bytes.size() / 2));
  EXPECT_EQ(read(dir.file("cut.png"), &w, &h), nullptr);

  // Cut inside the header chunk.
  testsupport::writeBytes(dir.file("cuthead.png"), bytes.substr(0, 20));
  EXPECT_EQ(read(dir.file("cuthead.png"), &w, &h), nullptr);
}

TEST(WritePng, WritesRowsFourBytesAPixelApartAsRgb) {
  TempDir dir;
  // Two rows of width 2: each row 8 bytes apart; the writer takes the first
  // 6 bytes of each as RGB triples.
  unsigned char image[16] = {0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0xAA, 0xAA,
                             0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0xAA, 0xAA};
  std::string out = dir.file("w.png");
  ASSERT_EQ(writePng(2, 2, image, (unsigned char*)out.c_str()), 0);
  unsigned w, h;
  PicturePtr pic = read(out, &w, &h);
  ASSERT_NE(pic, nullptr);
  ASSERT_EQ(w, 2u);
  ASSERT_EQ(h, 2u);
  EXPECT_EQ(pic.get()[0], 0x102030u);
  EXPECT_EQ(pic.get()[1], 0x405060u);
  EXPECT_EQ(pic.get()[2], 0x010203u);
  EXPECT_EQ(pic.get()[3], 0x040506u);
}

TEST(WritePng, RefusesZeroHeightAndUnwritablePaths) {
  TempDir dir;
  unsigned char image[4] = {0, 0, 0, 0};
  std::string out = dir.file("zero.png");
  EXPECT_EQ(writePng(1, 0, image, (unsigned char*)out.c_str()), 2);
  std::string bad = dir.file("no/such/folder/x.png");
  EXPECT_EQ(writePng(1, 1, image, (unsigned char*)bad.c_str()), 1);
}

TEST(PremultiplyData, ScalesColourByAlphaWithRounding) {
  png_structp png =
      png_create_read_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
  png_row_info info = {};
  info.width = 2;
  info.channels = 4;
  info.bit_depth = 8;
  // (200 * 128 + 127) / 255 = 100; alpha 0 clears; alpha 255 keeps.
  png_byte data[8] = {200, 255, 0, 128, 200, 255, 7, 0};
  premultiply_data(png, &info, data);
  EXPECT_EQ(data[0], 100);
  EXPECT_EQ(data[1], 128);
  EXPECT_EQ(data[2], 0);
  EXPECT_EQ(data[3], 128);
  EXPECT_EQ(data[4], 0);
  EXPECT_EQ(data[5], 0);
  EXPECT_EQ(data[6], 0);
  png_destroy_read_struct(&png, NULL, NULL);
}

TEST(IsValidImage, ReportsEachKindOfBadFile) {
  TempDir dir;
  EXPECT_EQ(isValidImage(dir.file("absent.png").c_str()), INVALID_PATH);
  testsupport::writeBytes(dir.file("text.png"), "GIF89a not a png");
  EXPECT_EQ(isValidImage(dir.file("text.png").c_str()), INVALID_GLYPH);
  writePicture(dir.file("blank.png"), Picture(10, 10));
  EXPECT_EQ(isValidImage(dir.file("blank.png").c_str()), MISSING_GLYPH);
  Picture inked(10, 10);
  inked.set(4, 4, 0xFFFFFE);  // the palest grey is ink too
  writePicture(dir.file("ink.png"), inked);
  EXPECT_EQ(isValidImage(dir.file("ink.png").c_str()), NO_ERROR_FD);
}

TEST(GetBoundingBox, BlankPictureGivesTheOneOneZeroZeroBox) {
  Picture p(7, 9);
  int minX, minY, maxX, maxY;
  EXPECT_EQ(getBoundingBox(p.pixels.data(), &minX, &minY, &maxX, &maxY, 7, 9), 1);
  EXPECT_EQ(minX, 1);
  EXPECT_EQ(minY, 1);
  EXPECT_EQ(maxX, 0);
  EXPECT_EQ(maxY, 0);
  EXPECT_EQ(getBoundingBox_count(p.pixels.data(), &minX, &minY, &maxX, &maxY, 7, 9), 0);
  EXPECT_EQ(minX, 1);
  EXPECT_EQ(minY, 1);
  EXPECT_EQ(maxX, 0);
  EXPECT_EQ(maxY, 0);
}

TEST(GetBoundingBox, NullBufferKeepsThePresets) {
  int minX, minY, maxX, maxY;
  EXPECT_EQ(getBoundingBox(nullptr, &minX, &minY, &maxX, &maxY, 7, 9), 1);
  EXPECT_EQ(minX, 16);
  EXPECT_EQ(minY, 16);
  EXPECT_EQ(maxX, 0);
  EXPECT_EQ(maxY, 0);
  EXPECT_EQ(getBoundingBox_count(nullptr, &minX, &minY, &maxX, &maxY, 7, 9), 1);
  EXPECT_EQ(minX, 16);
}

TEST(GetBoundingBox, SinglePixelAndShapes) {
  Picture p(10, 10);
  p.set(3, 5, 0x7F7F7F);
  int minX, minY, maxX, maxY;
  EXPECT_EQ(getBoundingBox(p.pixels.data(), &minX, &minY, &maxX, &maxY, 10, 10), 0);
  EXPECT_EQ(minX, 3);
  EXPECT_EQ(minY, 5);
  EXPECT_EQ(maxX, 3);
  EXPECT_EQ(maxY, 5);
  EXPECT_EQ(getBoundingBox_count(p.pixels.data(), &minX, &minY, &maxX, &maxY, 10, 10), 1);
  EXPECT_EQ(minX, 3);
  EXPECT_EQ(maxY, 5);

  // An L touching the first column and the last row.
  Picture l(10, 8);
  l.fillRect(0, 2, 1, 7);
  l.fillRect(0, 6, 6, 7);
  EXPECT_EQ(getBoundingBox(l.pixels.data(), &minX, &minY, &maxX, &maxY, 10, 8), 0);
  EXPECT_EQ(minX, 0);
  EXPECT_EQ(minY, 2);
  EXPECT_EQ(maxX, 6);
  EXPECT_EQ(maxY, 7);
  // 2 * 6 stem + 2 * 7 foot - 2 * 2 overlap = 22 ink pixels.
  EXPECT_EQ(getBoundingBox_count(l.pixels.data(), &minX, &minY, &maxX, &maxY, 10, 8), 22);
  EXPECT_EQ(maxX, 6);
}

TEST(GetBoundryBoxDimension, GivesTheInkWidthOfTheFile) {
  TempDir dir;
  Picture p(20, 10);
  p.fillRect(4, 2, 12, 8);
  writePicture(dir.file("box.png"), p);
  int width = -1;
  getBoundryBoxDimension(dir.file("box.png").c_str(), &width);
  EXPECT_EQ(width, 9);
  int untouched = -1;
  getBoundryBoxDimension(dir.file("absent.png").c_str(), &untouched);
  EXPECT_EQ(untouched, -1);
}

TEST(IsBorderPixel, EdgesAndWhiteNeighboursMakeBorders) {
  Picture p(5, 5);
  p.fillRect(0, 0, 4, 4);
  const int w = 5, h = 5;
  EXPECT_EQ(isBorderPixel(p.pixels.data(), 2 * w + 2, w, h), 0);  // interior
  EXPECT_EQ(isBorderPixel(p.pixels.data(), 2, w, h), 1);          // first row
  EXPECT_EQ(isBorderPixel(p.pixels.data(), 4 * w + 2, w, h), 1);  // last row
  EXPECT_EQ(isBorderPixel(p.pixels.data(), 2 * w, w, h), 1);      // first column
  EXPECT_EQ(isBorderPixel(p.pixels.data(), 2 * w + 4, w, h), 1);  // last column
  EXPECT_EQ(isBorderPixel(p.pixels.data(), -1, w, h), 0);
  p.set(3, 3, testsupport::kWhite);  // a white diagonal neighbour of (2, 2)
  EXPECT_EQ(isBorderPixel(p.pixels.data(), 2 * w + 2, w, h), 1);
  EXPECT_EQ(isBorderPixel(p.pixels.data(), 3 * w + 3, w, h), 0);  // white itself
}

namespace {

// Builds a GreyMapList in the given order; frees it on destruction.
struct List {
  GreyMapList* head = nullptr;
  explicit List(std::initializer_list<double> values) {
    GreyMapList** tail = &head;
    for (double v : values) {
      *tail = (GreyMapList*)malloc(sizeof(GreyMapList));
      (*tail)->value = v;
      (*tail)->next = nullptr;
      tail = &(*tail)->next;
    }
  }
  ~List() {
    while (head) {
      GreyMapList* n = head->next;
      free(head);
      head = n;
    }
  }
};

}  // namespace

TEST(GetMedianWidth, TakesTheUpperMiddleOfTheSortedValues) {
  EXPECT_EQ(GetMedianWidth(List({5, 1, 3, 2}).head, 4), 3.0);
  EXPECT_EQ(GetMedianWidth(List({9, -2, 4}).head, 3), 4.0);
  EXPECT_EQ(GetMedianWidth(List({7}).head, 1), 7.0);
}

TEST(PositionKeys, CombinePacksXHighAndYLowAndSortsByXThenY) {
  EXPECT_EQ(combine(3, 5), 0x30005);
  EXPECT_EQ(combine(0, 0), 0);
  EXPECT_LT(combine(1, 1000), combine(2, 0));
  EXPECT_LT(combine(2, 3), combine(2, 4));
  EXPECT_EQ(getShort(0x12345), 0x2345);
  EXPECT_EQ(getShort(0xFFFF), -1);
}

TEST(PixelDarkness, RunsFromWhiteToBlack) {
  EXPECT_EQ(pixelDarkness(0xFFFFFF), 0.0);
  EXPECT_EQ(pixelDarkness(0x000000), 1.0);
  EXPECT_DOUBLE_EQ(pixelDarkness(0x7F7F7F), 128.0 / 255.0);
  EXPECT_FALSE(hasInk(0xFFFFFF));
  EXPECT_TRUE(hasInk(0xFFFFFE));
}
