// Reading and writing glyph pictures as real PNG files, and the border test.
#include "image_operations/image_access.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <zlib.h>

#include <memory>
#include <vector>

#include "support/test_support.h"

using testsupport::Picture;
using testsupport::PngKind;
using testsupport::TempDir;
using testsupport::writePicture;

namespace {

struct FreeDeleter { void operator()(void* p) const { free(p); } };
using PicturePtr = std::unique_ptr<uint32, FreeDeleter>;

PicturePtr read(const std::string& path, unsigned* w, unsigned* h,
                bufferFormatId format = boBGRA) {
  return PicturePtr(ReadPngFile(path.c_str(), w, h, format));
}

}  // namespace

TEST(ReadPngFile, EveryEncodingReadsAsZeroTopByteRgbOfTheRightSize) {
  TempDir dir;
  Picture swatch(3, 2);
  const uint32_t colours[6] = {0x112233, 0xFF0000, 0x00FF00,
                               0x0000FF, 0x000000, 0xFFFFFF};
  for (int i = 0; i < 6; i++) swatch.set(i % 3, i / 3, colours[i]);
  // Grey is read on the palette path unexpanded: only its size is right.
  for (PngKind kind : {PngKind::kRgb8, PngKind::kRgba8, PngKind::kRgb16,
                       PngKind::kRgb8Interlaced, PngKind::kPalette8,
                       PngKind::kGrey8}) {
    writePicture(dir.file("swatch.png"), swatch, kind);
    unsigned w = 0, h = 0;
    PicturePtr pic = read(dir.file("swatch.png"), &w, &h);
    ASSERT_NE(pic, nullptr) << "kind " << (int)kind;
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(3u, 2u)) << "kind " << (int)kind;
    for (int i = 0; i < 6 && kind != PngKind::kGrey8; i++)
      EXPECT_EQ(pic.get()[i], colours[i]) << "kind " << (int)kind << " " << i;
  }
}

TEST(ReadPngFile, ByteOrderFollowsTheFormatAndAlphaLandsInvertedOnTop) {
  struct Row {
    uint32_t colour;
    uint8_t alpha;
    bufferFormatId format;
    uint32 expected;  // read as an integer on a little-endian machine
  } rows[] = {{0x112233, 255, boBGRA, 0x00112233u},
              {0x112233, 255, boARGB, 0x33221100u},
              {0x000000, 55, boBGRA, 0xC8000000u}};  // 255 - 55 = 0xC8
  TempDir dir;
  for (const Row& r : rows) {
    if (r.alpha == 255)
      writePicture(dir.file("p.png"), Picture(1, 1, r.colour));
    else
      writePicture(dir.file("p.png"), Picture(1, 1, r.colour), PngKind::kRgba8,
                   {r.alpha});
    unsigned w, h;
    PicturePtr pic = read(dir.file("p.png"), &w, &h, r.format);
    ASSERT_NE(pic, nullptr);
    EXPECT_EQ(*pic, r.expected) << std::hex << r.colour << " format " << r.format;
  }
}

TEST(ReadPngFile, UnreadableFilesGiveNull) {
  TempDir dir;
  Picture big(60, 60);
  for (int i = 0; i < 60; i++) big.set(i, (i * 7) % 60, i * 997);
  writePicture(dir.file("whole.png"), big);
  const std::string whole = testsupport::readBytes(dir.file("whole.png"));
  // The header claiming sides of `side` pixels, its checksum made right:
  // refused at the header, before the picture's buffer is asked for.
  auto claiming = [&](uint32_t side) {
    std::string b = whole;
    for (int k = 0; k < 8; k++) b[16 + k] = (char)(side >> (24 - 8 * (k % 4)));
    uLong crc = crc32(0, (const Bytef*)b.data() + 12, 17);
    for (int k = 0; k < 4; k++) b[29 + k] = (char)(crc >> (24 - 8 * k));
    return b;
  };
  struct Row { const char* why; std::string bytes; } rows[] = {
      {"text: the signature check fails", "this is not a picture\n"},
      {"cut in the image data", whole.substr(0, whole.size() / 2)},
      {"16385 pixels a side: one over the limit (a 1 GiB picture)", claiming(16385)},
      {"2^31-1 pixels a side", claiming(0x7FFFFFFF)}};
  unsigned w, h;
  EXPECT_EQ(read(dir.file("absent.png"), &w, &h), nullptr);
  for (const Row& r : rows) {
    testsupport::writeBytes(dir.file("bad.png"), r.bytes);
    EXPECT_EQ(read(dir.file("bad.png"), &w, &h), nullptr) << r.why;
  }
}

TEST(WritePng, WritesRgbTriplesFromRowsFourBytesAPixelApart) {
  TempDir dir;
  unsigned char image[16] = {0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0xAA, 0xAA,
                             0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0xAA, 0xAA};
  std::string out = dir.file("w.png");
  ASSERT_EQ(writePng(2, 2, image, (unsigned char*)out.c_str()), 0);
  unsigned w, h;
  PicturePtr pic = read(out, &w, &h);
  ASSERT_NE(pic, nullptr);
  ASSERT_EQ(std::make_pair(w, h), std::make_pair(2u, 2u));
  const uint32 expected[4] = {0x102030, 0x405060, 0x010203, 0x040506};
  for (int i = 0; i < 4; i++) EXPECT_EQ(pic.get()[i], expected[i]) << i;
  // Refusals: 2 for a height of 0, 1 for a path that cannot be opened.
  EXPECT_EQ(writePng(1, 0, image, (unsigned char*)out.c_str()), 2);
  std::string bad = dir.file("no/such/folder/x.png");
  EXPECT_EQ(writePng(1, 1, image, (unsigned char*)bad.c_str()), 1);
}

TEST(PremultiplyData, ScalesColourByAlphaRoundingToNearest) {
  png_structp png =
      png_create_read_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
  png_row_info info = {};
  info.width = 2;
  info.channels = 4;
  info.bit_depth = 8;
  // Alpha 128: (200 * 128 + 127) / 255 = 100, and 1 stays 1 by the rounding.
  png_byte data[8] = {200, 255, 1, 128, 200, 255, 7, 0};
  premultiply_data(png, &info, data);
  const png_byte expected[8] = {100, 128, 1, 128, 0, 0, 0, 0};
  for (int i = 0; i < 8; i++) EXPECT_EQ(data[i], expected[i]) << i;
  png_destroy_read_struct(&png, NULL, NULL);
}

TEST(IsValidImage, ReportsEachKindOfBadFile) {
  TempDir dir;
  testsupport::writeBytes(dir.file("text.png"), "GIF89a not a png");
  writePicture(dir.file("blank.png"), Picture(10, 10));
  Picture inked(10, 10);
  inked.set(4, 4, 0xFFFFFE);  // the palest grey is ink too
  writePicture(dir.file("ink.png"), inked);
  EXPECT_EQ(isValidImage(dir.file("absent.png").c_str()), INVALID_PATH);
  EXPECT_EQ(isValidImage(dir.file("text.png").c_str()), INVALID_GLYPH);
  EXPECT_EQ(isValidImage(dir.file("blank.png").c_str()), MISSING_GLYPH);
  EXPECT_EQ(isValidImage(dir.file("ink.png").c_str()), NO_ERROR_FD);
}

TEST(GetBoundingBox, BoxAndInkCountOfBlankSinglePixelAndLShapes) {
  Picture blank(7, 9), dot(10, 10), l(10, 8), slash(10, 8);
  dot.set(3, 5, 0x7F7F7F);
  slash.set(8, 1, 0x000000);  // rightmost ink in an upper row,
  slash.set(2, 6, 0x000000);  // leftmost in a lower one
  slash.set(5, 3, 0x000000);
  l.fillRect(0, 2, 1, 7);  // an L touching the first column and last row
  l.fillRect(0, 6, 6, 7);
  struct Row {
    const char* why;
    Picture* pic;  // null: no buffer, the presets stay
    int rc, minX, minY, maxX, maxY, countRc;
  } rows[] = {{"blank: the 1 1 0 0 box", &blank, 1, 1, 1, 0, 0, 0},
              {"null buffer", nullptr, 1, 16, 16, 0, 0, 1},
              {"one pixel: its own box", &dot, 0, 3, 5, 3, 5, 1},
              // 2 * 6 stem + 2 * 7 foot - 2 * 2 overlap = 22 ink pixels.
              {"L", &l, 0, 0, 2, 6, 7, 22},
              {"slash: sides from different rows", &slash, 0, 2, 1, 8, 6, 3}};
  for (const Row& r : rows) {
    uint32* px = r.pic ? r.pic->pixels.data() : nullptr;
    int w = r.pic ? r.pic->width : 7, h = r.pic ? r.pic->height : 9;
    for (int counting = 0; counting < 2; counting++) {
      int minX, minY, maxX, maxY;
      int rc = counting
                   ? getBoundingBox_count(px, &minX, &minY, &maxX, &maxY, w, h)
                   : getBoundingBox(px, &minX, &minY, &maxX, &maxY, w, h);
      EXPECT_EQ(rc, counting ? r.countRc : r.rc) << r.why;
      EXPECT_EQ(std::vector<int>({minX, minY, maxX, maxY}),
                std::vector<int>({r.minX, r.minY, r.maxX, r.maxY})) << r.why;
    }
  }
  TempDir dir;
  Picture p(20, 10);
  p.fillRect(4, 2, 12, 8);
  writePicture(dir.file("box.png"), p);
  int width = -1;
  getBoundryBoxDimension(dir.file("box.png").c_str(), &width);
  EXPECT_EQ(width, 9);
  getBoundryBoxDimension(dir.file("absent.png").c_str(), &width);
  EXPECT_EQ(width, 9);  // a missing file leaves it alone
}

TEST(IsBorderPixel, EdgesAndWhiteNeighboursMakeBorders) {
  Picture p(5, 5, testsupport::kBlack);
  p.set(3, 3, testsupport::kWhite);
  struct Row {
    int x, y, expected;
    const char* why;
  } rows[] = {{1, 1, 0, "interior"},           {2, 0, 1, "first row"},
              {4, 2, 1, "last column"},        {2, 2, 1, "white diagonal neighbour"},
              {3, 3, 0, "white itself"},       {-1, 0, 0, "before the picture"}};
  for (const Row& r : rows)
    EXPECT_EQ(isBorderPixel(p.pixels.data(), r.y * 5 + r.x, 5, 5), r.expected)
        << r.why;
}

// Within a run a path is decoded once: a later read sees the first decoding
// even after the file changed, as its own copy (a caller's writes do not
// reach the next reader), and per byte order. Outside a run, or with the
// run cache off, every read decodes the file as it now is.
TEST(ReadPngFile, ARunDecodesEachPathOnceAndHandsOutCopies) {
  struct Row {
    bool inRun, cacheOn;
    bufferFormatId secondFormat;
    uint32 expected;  // first pixel of the second read
    const char* why;
  } rows[] = {
      {true, true, boBGRA, 0x00112233u, "kept: the first decoding, unscribbled"},
      {true, true, boARGB, 0x66554400u, "another byte order is its own decoding"},
      {true, false, boBGRA, 0x00445566u, "cache off: the file as it now is"},
      {false, true, boBGRA, 0x00445566u, "outside a run: the file as it now is"},
  };
  TempDir dir;
  for (const Row& r : rows) {
    setPictureRunCache(r.cacheOn);
    if (r.inRun) beginPictureRun();
    Picture first(2, 1, 0x112233), second(2, 1, 0x445566);
    writePicture(dir.file("p.png"), first);
    unsigned w = 0, h = 0;
    PicturePtr a = read(dir.file("p.png"), &w, &h);
    ASSERT_NE(a, nullptr) << r.why;
    a.get()[0] = 0x000000;  // the caller writes into its copy
    writePicture(dir.file("p.png"), second);
    PicturePtr b = read(dir.file("p.png"), &w, &h, r.secondFormat);
    ASSERT_NE(b, nullptr) << r.why;
    EXPECT_EQ(b.get()[0], r.expected) << r.why;
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(2u, 1u)) << r.why;
    if (r.inRun) endPictureRun();
    setPictureRunCache(true);
  }
}

// A PictureRead within a run is the run's decoding itself: a second read of
// the path shares it, sees the first decoding though the file changed, and
// a picture adopted in its place leaves the kept one as it was.
TEST(PictureRead, WithinARunSharesTheKeptDecoding) {
  TempDir dir;
  const std::string path = dir.file("p.png");
  writePicture(path, Picture(2, 1, 0x112233));
  beginPictureRun();
  {
    PictureRead a(path.c_str());
    writePicture(path, Picture(2, 1, 0x445566));
    PictureRead b(path.c_str());
    ASSERT_NE(a.pixels, nullptr);
    EXPECT_EQ(a.pixels, b.pixels);
    uint32* own = (uint32*)malloc(4);
    *own = 0;
    b.adopt(own, 1, 1);
    EXPECT_EQ(a.pixels[0], 0x112233u);
  }
  endPictureRun();
  PictureRead outside(path.c_str());
  ASSERT_NE(outside.pixels, nullptr);
  EXPECT_EQ(outside.pixels[0], 0x445566u);
  EXPECT_EQ(PictureRead(dir.file("absent.png").c_str()).pixels, nullptr);
}

// Results are kept only inside a run with the run cache on, and the
// outermost end of the run drops them.
TEST(RunResults, KeptWithinARunOnly) {
  struct Row {
    bool inRun, cacheOn;
    bool foundInRun;
    const char* why;
  } rows[] = {
      {true, true, true, "kept and found in the run"},
      {true, false, false, "cache off: nothing kept"},
      {false, true, false, "outside a run: nothing kept"},
  };
  for (const Row& r : rows) {
    setPictureRunCache(r.cacheOn);
    if (r.inRun) beginPictureRun();
    keepRunResult("k", 2.5);
    double v = 0.0;
    EXPECT_EQ(findRunResult("k", &v), r.foundInRun) << r.why;
    EXPECT_EQ(v, r.foundInRun ? 2.5 : 0.0) << r.why;
    if (r.inRun) endPictureRun();
    setPictureRunCache(true);
    beginPictureRun();  // a later run starts without it
    EXPECT_FALSE(findRunResult("k", &v)) << r.why;
    endPictureRun();
  }
}
