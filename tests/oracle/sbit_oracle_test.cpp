// Embedded strikes against libfreetype, a test-only oracle: at each strike's
// size every glyph libfreetype gives as a bitmap must come from the engine
// as the same embedded map, pixel for pixel, with the same box and advance.
// Fonts: the four Terminus bitmap-only files (index 1 with image 2, index 2
// with image 5), the third face of WenQuanYi Zen Hei (index 1 with image 7,
// index 2 with image 5), and Noto Color Emoji's PNG strike, whose payload
// decoded by libpng and premultiplied as libfreetype does must equal its
// BGRA pixels. Under a sanitizer every seventh glyph.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>
#include <png.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "Orvex_internal/fs_err.h"
#include "support/ltt_builder.h"
#include "support/sbit_builder.h"
#include "support/strike_client.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const unsigned kStride = 7;
#else
const unsigned kStride = 1;
#endif

using testsupport::StrikeClient;

#define TERMINUS "/usr/share/fonts/opentype/terminus/"
const char kWqy[] = "/usr/share/fonts/truetype/wqy/wqy-zenhei.ttc";
const char kEmoji[] = "/usr/share/fonts/truetype/noto/NotoColorEmoji.ttf";

// libfreetype's monochrome or gray bitmap of the glyph, at depth `depth`,
// as the engine's row layout (leftmost pixel in the high bits).
std::vector<uint8_t> oracleRows(const FT_Bitmap& bm, int depth) {
  int bpl = ((int)bm.width * depth + 7) / 8;
  std::vector<uint8_t> rows((size_t)(bpl * (int)bm.rows), 0);
  for (unsigned y = 0; y < bm.rows; y++)
    for (unsigned x = 0; x < bm.width; x++) {
      const uint8_t* src = bm.buffer + (int)y * bm.pitch;
      unsigned v = bm.pixel_mode == FT_PIXEL_MODE_MONO ? (src[x >> 3] >> (7 - (x & 7))) & 1
                                                        : src[x] * ((1u << depth) - 1) / 255;
      unsigned bit = x * depth;
      rows[y * bpl + (bit >> 3)] |= (uint8_t)(v << (8 - depth - (bit & 7)));
    }
  return rows;
}

// Compares every bitmap glyph of every strike of face `index`; returns the
// number compared. Each mismatch is one failure naming the glyph.
size_t sweepStrikes(const std::string& path, int index, FS_USHORT type, int depth) {
  FT_Library lib;
  FT_Face face;
  EXPECT_EQ(FT_Init_FreeType(&lib), 0);
  if (FT_New_Face(lib, path.c_str(), index, &face) != 0) {
    ADD_FAILURE() << path << ": missing (scripts/install-deps.sh installs it)";
    FT_Done_FreeType(lib);
    return 0;
  }
  size_t compared = 0;
  StrikeClient c;
  EXPECT_EQ(c.load(path, index), 0) << path;
  c.glyphIndexMode();
  for (int s = 0; s < face->num_fixed_sizes; s++) {
    FT_Select_Size(face, s);
    int ppem = (int)(face->available_sizes[s].y_ppem >> 6);
    EXPECT_EQ(c.setPpem(ppem), 0);
    for (long g = 0; g < face->num_glyphs; g += kStride) {
      if (FT_Load_Glyph(face, (FT_UInt)g, FT_LOAD_DEFAULT) != 0 ||
          face->glyph->format != FT_GLYPH_FORMAT_BITMAP)
        continue;
      const FT_GlyphSlot slot = face->glyph;
      FS_GLYPHMAP* m = FSS_get_glyphmap(&c.st, (FS_ULONG)g, type);
      if (m == nullptr) {
        ADD_FAILURE() << path << " ppem " << ppem << " glyph " << g << " error "
                      << c.st.error;
        continue;
      }
      compared++;
      std::vector<uint8_t> want = oracleRows(slot->bitmap, depth);
      std::vector<uint8_t> got(m->bits, m->bits + m->bpl * m->height);
      EXPECT_TRUE(m->embedded && m->lo_x == slot->bitmap_left &&
                  m->hi_y == slot->bitmap_top && m->width == (int)slot->bitmap.width &&
                  m->height == (int)slot->bitmap.rows &&
                  m->i_dx == slot->advance.x >> 6 && got == want)
          << path << " ppem " << ppem << " glyph " << g << ": box " << m->lo_x << ","
          << m->hi_y << " " << m->width << "x" << m->height << " advance " << m->i_dx
          << " against " << slot->bitmap_left << "," << slot->bitmap_top << " "
          << slot->bitmap.width << "x" << slot->bitmap.rows << " " << (slot->advance.x >> 6);
      FSS_free_char(&c.st, m);
    }
  }
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
  return compared;
}

TEST(EmbeddedStrikeOracle, TerminusStrikesEqualLibfreetypeGlyphForGlyph) {
  for (const char* name : {"terminus-normal.otb", "terminus-bold.otb",
                           "terminus-oblique.otb", "terminus-bold-oblique.otb"}) {
    // 9 strikes of 1326 glyphs, each one a bitmap.
    EXPECT_EQ(sweepStrikes(std::string(TERMINUS) + name, 0, FS_MAP_BITMAP, 1),
              9 * ((1326 + kStride - 1) / kStride))
        << name;
  }
}

TEST(EmbeddedStrikeOracle, ZenHeiStrikesEqualLibfreetypeGlyphForGlyph) {
  // Five strikes, 12 to 16 ppem, holding 22,446 to 29,456 glyphs each.
  size_t n = sweepStrikes(kWqy, 2, FS_MAP_BITMAP, 1);
  RecordProperty("glyphs", (int)n);
  EXPECT_GT(n, 5 * 22446u / kStride);
}

TEST(EmbeddedStrikeOracle, OutsideTheStrikeSizesNothingIsEmbedded) {
  StrikeClient c;
  ASSERT_EQ(c.load(std::string(TERMINUS) + "terminus-normal.otb", 0), 0);
  ASSERT_EQ(c.setPpem(17), 0);
  c.glyphIndexMode();
  // Terminus has no outlines: no map, and no error.
  EXPECT_EQ(FSS_get_glyphmap(&c.st, 36, FS_MAP_BITMAP), nullptr);
  EXPECT_EQ(c.st.error, 0u);
}

// The PNG stream of an icon decoded to RGBA by libpng.
std::vector<uint8_t> decodePng(const FS_GLYPHMAP* m, int* w, int* h) {
  png_image img;
  memset(&img, 0, sizeof img);
  img.version = PNG_IMAGE_VERSION;
  std::vector<uint8_t> out;
  if (!png_image_begin_read_from_memory(&img, m->bits, (size_t)(m->size - 40)))
    return out;
  img.format = PNG_FORMAT_RGBA;
  out.resize(PNG_IMAGE_SIZE(img));
  if (!png_image_finish_read(&img, nullptr, out.data(), 0, nullptr)) out.clear();
  *w = (int)img.width;
  *h = (int)img.height;
  return out;
}

TEST(EmbeddedStrikeOracle, EmojiIconsDecodeToLibfreetypeColourPixels) {
  FT_Library lib;
  FT_Face face;
  ASSERT_EQ(FT_Init_FreeType(&lib), 0);
  ASSERT_EQ(FT_New_Face(lib, kEmoji, 0, &face), 0) << kEmoji << ": missing";
  ASSERT_EQ(face->num_fixed_sizes, 1);
  FT_Select_Size(face, 0);
  StrikeClient c;
  ASSERT_EQ(c.load(kEmoji, 0), 0);
  ASSERT_EQ(c.setPpem(109), 0);
  c.glyphIndexMode();
  size_t compared = 0, differences = 0;
  for (long g = 0; g < face->num_glyphs; g += kStride * 3) {
    if (FT_Load_Glyph(face, (FT_UInt)g, FT_LOAD_COLOR) != 0 ||
        face->glyph->bitmap.pixel_mode != FT_PIXEL_MODE_BGRA)
      continue;
    const FT_Bitmap& bm = face->glyph->bitmap;
    FS_GLYPHMAP* m = FSS_get_glyphmap(&c.st, (FS_ULONG)g,
                                      FS_MAP_GRAYMAP8 | FS_MAP_RASTER_ICON);
    ASSERT_NE(m, nullptr) << "glyph " << g << " error " << c.st.error;
    compared++;
    int w = 0, h = 0;
    std::vector<uint8_t> rgba = decodePng(m, &w, &h);
    EXPECT_TRUE(m->embedded && m->bitsPerPixel == 32 && w == (int)bm.width &&
                h == (int)bm.rows && m->width == w && m->height == h &&
                m->lo_x == face->glyph->bitmap_left && m->hi_y == face->glyph->bitmap_top &&
                m->i_dx == face->glyph->advance.x >> 6)
        << "glyph " << g;
    for (int y = 0; y < h && !rgba.empty(); y++)
      for (int x = 0; x < w; x++) {
        const uint8_t* p = &rgba[(size_t)(y * w + x) * 4];
        const uint8_t* q = bm.buffer + y * bm.pitch + x * 4;
        unsigned a = p[3];
        auto pre = [a](unsigned c) {
          unsigned t = a * c + 128;
          return (t + (t >> 8)) >> 8;
        };
        differences += pre(p[2]) != q[0] || pre(p[1]) != q[1] || pre(p[0]) != q[2] || a != q[3];
      }
    FSS_free_char(&c.st, m);
  }
  EXPECT_GT(compared, 3926u / (kStride * 3) - 2);
  EXPECT_EQ(differences, 0u);
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}

TEST(EmbeddedStrikeOracle, EmojiNearSizeRescalesTheStrikeNumbers) {
  // U+1F600 at 109 ppem: 136 x 128, top 101, advance 136; at 24 ppem every
  // number times 24/109, rounded: 29.9 -> 30, 28.2 -> 28, 22.2 -> 22.
  StrikeClient c;
  ASSERT_EQ(c.load(kEmoji, 0), 0);
  ASSERT_EQ(c.setPpem(24), 0);
  FS_GLYPHMAP* m = FSS_get_glyphmap(&c.st, 0x1F600, FS_MAP_GRAYMAP8 | FS_MAP_RASTER_ICON);
  ASSERT_NE(m, nullptr) << c.st.error;
  EXPECT_EQ(m->width, 30);
  EXPECT_EQ(m->height, 28);
  EXPECT_EQ(m->hi_y, 22);
  EXPECT_EQ(m->lo_x, 0);
  EXPECT_EQ(m->i_dx, 30);
  FSS_free_char(&c.st, m);
}

// libfreetype's glyph `g` of the selected size as a strike glyph.
testsupport::SbitGlyph oracleGlyph(FT_Face face, unsigned g, int depth) {
  const FT_Bitmap& bm = face->glyph->bitmap;
  testsupport::SbitGlyph s{(uint16_t)g, (int)bm.width, (int)bm.rows, face->glyph->bitmap_left,
                           face->glyph->bitmap_top, (int)(face->glyph->advance.x >> 6), {}};
  for (unsigned y = 0; y < bm.rows; y++)
    for (unsigned x = 0; x < bm.width; x++) {
      const uint8_t* row = bm.buffer + (int)y * bm.pitch;
      s.pix.push_back(bm.pixel_mode == FT_PIXEL_MODE_MONO ? (row[x >> 3] >> (7 - (x & 7))) & 1
                                                          : row[x] >> (8 - depth));
    }
  return s;
}

// The font at `path` with one strike of `glyphs` in index format `ix` and
// image format `im` in place of its own.
std::vector<uint8_t> withStrike(const char* path, const std::vector<testsupport::SbitGlyph>& glyphs,
                                int ppem, int depth, int ix, int im) {
  sfnt::Font f = sfnt::read(testsupport::fileBytes(path));
  sfnt::Bytes eblc, ebdt;
  testsupport::buildStrike(glyphs, ppem, depth, ix, im, &eblc, &ebdt);
  f.remove("EBLC").remove("EBDT").remove("EBSC");
  f.set(depth == 32 ? "CBLC" : "EBLC", eblc).set(depth == 32 ? "CBDT" : "EBDT", ebdt);
  return sfnt::build(f);
}

// The engine's map of `g` as a strike glyph.
testsupport::SbitGlyph engineGlyph(const FS_GLYPHMAP* m, unsigned g) {
  testsupport::SbitGlyph s{(uint16_t)g, m->width, m->height, m->lo_x, m->hi_y, m->i_dx, {}};
  int d = m->bitsPerPixel;
  if (d == 32) s.pix.assign(m->bits, m->bits + m->size - 40);
  for (int y = 0; d < 32 && y < m->height; y++)
    for (int x = 0; x < m->width; x++)
      s.pix.push_back((m->bits[y * m->bpl + x * d / 8] >> (8 - d - x * d % 8)) & ((1 << d) - 1));
  return s;
}

bool operator==(const testsupport::SbitGlyph& a, const testsupport::SbitGlyph& b) {
  return a.same(b) && a.pix == b.pix;
}

TEST(EmbeddedStrikeOracle, BuiltStrikesOfEveryFormatReadAsTheOriginal) {
  FT_Library lib;
  FT_Face terminus, dejavu;
  ASSERT_EQ(FT_Init_FreeType(&lib), 0);
  const char* term = TERMINUS "terminus-normal.otb";
  const char* sans = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  ASSERT_EQ(FT_New_Face(lib, term, 0, &terminus), 0);
  ASSERT_EQ(FT_New_Face(lib, sans, 0, &dejavu), 0);
  FT_Select_Size(terminus, 2);  // 16 ppem
  FT_Set_Pixel_Sizes(dejavu, 0, 16);
  struct Case { const char* path; int depth; FS_USHORT type; std::vector<int> ix, im; } cases[] = {
      {term, 1, FS_MAP_BITMAP, {1, 2, 3, 4, 5}, {1, 2, 5, 6, 7, 8, 9}},
      {sans, 2, FS_MAP_GRAYMAP2, {1, 5}, {1, 6}},
      {sans, 4, FS_MAP_GRAYMAP4, {1, 5}, {2, 7}},
      {sans, 8, FS_MAP_GRAYMAP8, {3, 4}, {1, 6}},
      {kEmoji, 32, FS_MAP_GRAYMAP8 | FS_MAP_RASTER_ICON, {1, 2, 5}, {17, 18, 19}}};
  for (const Case& k : cases) {
    std::vector<testsupport::SbitGlyph> glyphs;
    StrikeClient original;  // the emoji's own strike gives the PNG payloads
    ASSERT_EQ(original.load(k.path), 0);
    original.setPpem(k.depth == 32 ? 109 : 16);
    original.glyphIndexMode();
    for (unsigned g = 0; g < (k.depth == 1 ? 1326u : 600u); g += kStride) {
      if (k.depth == 32) {
        FS_GLYPHMAP* m = FSS_get_glyphmap(&original.st, g + 4, k.type);
        if (m != nullptr) glyphs.push_back(engineGlyph(m, g + 4)), FSS_free_char(&original.st, m);
        continue;
      }
      FT_Face face = k.depth == 1 ? terminus : dejavu;
      ASSERT_EQ(FT_Load_Glyph(face, g, k.depth == 1 ? FT_LOAD_DEFAULT : FT_LOAD_RENDER), 0);
      glyphs.push_back(oracleGlyph(face, g, k.depth));
    }
    for (int ix : k.ix)
      for (int im : k.im) {
        SCOPED_TRACE(testing::Message() << k.path << " index " << ix << " image " << im);
        StrikeClient c;
        ASSERT_EQ(c.load("", 0, withStrike(k.path, glyphs, k.depth == 32 ? 109 : 16, k.depth, ix, im)), 0);
        c.setPpem(k.depth == 32 ? 109 : 16);
        c.glyphIndexMode();
        size_t differ = 0;
        for (const testsupport::SbitGlyph& want : glyphs) {
          FS_GLYPHMAP* m = FSS_get_glyphmap(&c.st, want.id, k.type);
          if ((im == 5 || im == 19) && ix != 2 && ix != 5) {  // no metrics anywhere
            EXPECT_TRUE(m == nullptr && c.st.error == ERR_SBIT_METRICS) << want.id;
            break;
          }
          ASSERT_NE(m, nullptr) << want.id << " error " << c.st.error;
          differ += !(m->embedded && engineGlyph(m, want.id) == want);
          FSS_free_char(&c.st, m);
        }
        EXPECT_EQ(differ, 0u);
      }
  }
  FT_Done_Face(terminus);
  FT_Done_Face(dejavu);
  FT_Done_FreeType(lib);
}

}  // namespace
