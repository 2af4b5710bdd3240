// Embedded strikes against libfreetype: packaged strikes glyph for glyph, and strikes
// built in every index and image format reading back as the original.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "support/ltt_builder.h"
#include "support/sbit_builder.h"
#include "support/typeset_font.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const unsigned kStride = 13;  // every 13th glyph
#else
const unsigned kStride = 1;
#endif

using namespace testsupport;

#define TERMINUS "/usr/share/fonts/opentype/terminus/terminus-"
const char kWqy[] = "/usr/share/fonts/truetype/wqy/wqy-zenhei.ttc";
const char kEmoji[] = "/usr/share/fonts/truetype/noto/NotoColorEmoji.ttf";
const char kSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// libfreetype's loaded glyph `g`, levels cut to `depth` bits.
SbitGlyph oracleGlyph(FT_Face face, unsigned g, int depth) {
  const FT_Bitmap& bm = face->glyph->bitmap;
  SbitGlyph s{(uint16_t)g, (int)bm.width, (int)bm.rows, face->glyph->bitmap_left,
              face->glyph->bitmap_top, (int)(face->glyph->advance.x >> 6), {}};
  for (unsigned y = 0; y < bm.rows; y++)
    for (unsigned x = 0; x < bm.width; x++) {
      const uint8_t* row = bm.buffer + (int)y * bm.pitch;
      s.pix.push_back(bm.pixel_mode == FT_PIXEL_MODE_MONO ? (row[x >> 3] >> (7 - (x & 7))) & 1 : row[x] >> (8 - depth));
    }
  return s;
}

// The engine's embedded map of `g` in the same form; id 0xFFFF when none.
SbitGlyph engineGlyph(TypesetFont& c, unsigned g, FS_USHORT type) {
  FS_GLYPHMAP* m = FSS_get_glyphmap(&c.st, g, type);
  if (m == nullptr || !m->embedded) return FSS_free_char(&c.st, m), SbitGlyph{0xFFFF, 0, 0, 0, 0, 0, {}};
  SbitGlyph s{(uint16_t)g, m->width, m->height, m->lo_x, m->hi_y, m->i_dx, {}};
  int d = m->bitsPerPixel;
  if (d == 32) s.pix.assign(m->bits, m->bits + m->size - 40);
  for (int y = 0; d < 32 && y < m->height; y++)
    for (int x = 0; x < m->width; x++)
      s.pix.push_back((m->bits[y * m->bpl + x * d / 8] >> (8 - d - x * d % 8)) & ((1 << d) - 1));
  FSS_free_char(&c.st, m);
  return s;
}

TEST(EmbeddedStrikeOracle, RealStrikesEqualLibfreetypeGlyphForGlyph) {
  FT_Library lib;
  ASSERT_EQ(FT_Init_FreeType(&lib), 0);
  const struct { const char* path; int index; size_t glyphs; } faces[] = {  // glyphs over all strikes
      {TERMINUS "normal.otb", 0, 9 * 1326}, {TERMINUS "bold.otb", 0, 9 * 1326},  // 9 strikes, 12 to 32 ppem
      {TERMINUS "oblique.otb", 0, 9 * 1326}, {TERMINUS "bold-oblique.otb", 0, 9 * 1326},
      {kWqy, 2, 130000}};  // 5 strikes, 12 to 16 ppem, of 22,446 to 29,456 glyphs
  for (const auto& f : faces) {
    FT_Face face;
    TypesetFont c;  // missing fonts: scripts/install-deps.sh installs them
    ASSERT_TRUE(!FT_New_Face(lib, f.path, f.index, &face) && !c.open(f.path, {}, f.index)) << f.path;
    c.st.flags |= FLAGS_CMAP_OFF;
    size_t differ = 0, n = 0;
    for (int s = 0; s < face->num_fixed_sizes; s++) {
      FT_Select_Size(face, s);
      c.setPpem((int)(face->available_sizes[s].y_ppem >> 6));
      for (unsigned g = 0; g < (unsigned)face->num_glyphs; g += kStride)
        if (FT_Load_Glyph(face, g, FT_LOAD_DEFAULT) == 0 && face->glyph->format == FT_GLYPH_FORMAT_BITMAP)
          differ += !(engineGlyph(c, g, FS_MAP_BITMAP) == oracleGlyph(face, g, 1)), n++;
    }
    c.setPpem(17);  // no strike of either font
    EXPECT_TRUE(differ == 0 && n >= f.glyphs / kStride && engineGlyph(c, 1, FS_MAP_BITMAP).id == 0xFFFF)
        << f.path << ": " << differ << " of " << n << " differ";
  }
  FT_Done_FreeType(lib);
  // The colour strike at 24 ppem: U+1F600's 136 x 128, top 101, advance 136
  // at 109 ppem, times 24/109 and rounded: 29.9, 28.2, 22.2, 29.9.
  TypesetFont emoji;
  ASSERT_EQ(emoji.open(kEmoji), 0);
  FSS_set_cmap(&emoji.st, 3, 10);
  emoji.setPpem(24);
  EXPECT_TRUE(engineGlyph(emoji, 0x1F600, FS_MAP_GRAYMAP8 | FS_MAP_RASTER_ICON).same({0, 30, 28, 0, 22, 30, {}}));
}

TEST(EmbeddedStrikeOracle, BuiltStrikesOfEveryFormatReadBackAsTheOriginal) {
  FT_Library lib;
  FT_Face terminus, sans;
  TypesetFont emoji;
  ASSERT_TRUE(!FT_Init_FreeType(&lib) && !FT_New_Face(lib, TERMINUS "normal.otb", 0, &terminus) &&
              !FT_New_Face(lib, kSans, 0, &sans) && !emoji.open(kEmoji));
  FT_Select_Size(terminus, 2);  // 16 ppem
  FT_Set_Pixel_Sizes(sans, 0, 16);
  emoji.setPpem(109), emoji.st.flags |= FLAGS_CMAP_OFF;
  const struct { const char* path; int depth; FS_USHORT type; std::vector<int> ix, im; } cases[] = {
      {TERMINUS "normal.otb", 1, FS_MAP_BITMAP, {1, 2, 3, 4, 5}, {1, 2, 5, 6, 7, 8, 9}},
      {kSans, 2, FS_MAP_GRAYMAP2, {1, 5}, {1, 6}},
      {kSans, 4, FS_MAP_GRAYMAP4, {2, 3}, {2, 7}},
      {kSans, 8, FS_MAP_GRAYMAP8, {3, 4}, {1, 6}},
      {kEmoji, 32, FS_MAP_GRAYMAP8 | FS_MAP_RASTER_ICON, {1, 2, 5}, {17, 18, 19}}};
  for (const auto& k : cases) {
    std::vector<SbitGlyph> glyphs;  // libfreetype's, or the emoji strike's own PNGs
    for (unsigned g = 0; g < (k.depth == 1 ? 1326u : 600u); g += kStride) {
      SbitGlyph e = k.depth == 32 ? engineGlyph(emoji, g + 4, k.type) : SbitGlyph{0xFFFF, 0, 0, 0, 0, 0, {}};
      if (k.depth < 32 && !FT_Load_Glyph(k.depth == 1 ? terminus : sans, g, FT_LOAD_RENDER))
        e = oracleGlyph(k.depth == 1 ? terminus : sans, g, k.depth);
      if (e.id != 0xFFFF) glyphs.push_back(e);
    }
    int ppem = k.depth == 32 ? 109 : 16;
    for (int ix : k.ix)
      for (int im : k.im) {
        SCOPED_TRACE(testing::Message() << k.path << " index " << ix << " image " << im);
        sfnt::Font f = sfnt::read(fileBytes(k.path));
        sfnt::Bytes eblc, ebdt;
        buildStrike(glyphs, ppem, k.depth, ix, im, &eblc, &ebdt);
        f.set(k.depth == 32 ? "CBLC" : "EBLC", eblc).set(k.depth == 32 ? "CBDT" : "EBDT", ebdt);
        TypesetFont c;
        ASSERT_EQ(c.open("", sfnt::build(f)), 0);
        c.setPpem(ppem), c.st.flags |= FLAGS_CMAP_OFF;
        bool noMetrics = (im == 5 || im == 19) && ix != 2 && ix != 5;  // every glyph refused
        size_t differ = 0;
        for (const SbitGlyph& want : glyphs) differ += !(engineGlyph(c, want.id, k.type) == want);
        EXPECT_TRUE(noMetrics ? differ == glyphs.size() && c.st.error == ERR_SBIT_METRICS : differ == 0) << differ;
      }
  }
  FT_Done_FreeType(lib);
}

}  // namespace
