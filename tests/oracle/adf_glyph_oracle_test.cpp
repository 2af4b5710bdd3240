// Unhinted distance-field maps against libfreetype's unhinted gray maps (the
// test-only oracle), aligned by box: masks v >= 148 (distance maps v >= 127)
// and FT >= 128 differ only at FT's partial pixels; at contrast (0.5, -0.5,
// 1) ink is within 3% of FT's.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>

#include <map>

#include "Orvex_internal/adf.h"
#include "Orvex_internal/fs_cache.h"
#include "support/typeset_font.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const unsigned kStride = 13;
#else
const unsigned kStride = 1;
#endif
const char kFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
typedef std::map<std::pair<int, int>, int> Pixels;  // by pixel row and column

struct Pair : testsupport::TypesetFont {
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  explicit Pair(int ppem) {
    EXPECT_EQ(open(kFont) | setPpem(ppem), 0) << kFont;
    FS_set_flags(&st, FLAGS_CMAP_OFF), FS_set_flags(&st, FLAGS_NO_HINTS);
    EXPECT_EQ(FT_Init_FreeType(&lib) | FT_New_Face(lib, kFont, 0, &face) | FT_Set_Pixel_Sizes(face, 0, ppem), 0);
  }
  ~Pair() { FT_Done_Face(face), FT_Done_FreeType(lib); }
  static Pixels pixels(const unsigned char* bits, int pitch, int w, int h, int left, int top) {
    Pixels p;
    for (int r = 0; r < h; r++)
      for (int c = 0; c < w; c++)
        if (int v = bits[r * pitch + c]) p[{left + c, top - r}] = v;
    return p;
  }
  Pixels ours(FS_ULONG gid, FS_USHORT type) {
    FS_GLYPHMAP* g = FSS_get_glyphmap(&st, gid, type);
    EXPECT_TRUE(g != nullptr) << "glyph " << gid << " error " << st.error;
    Pixels p = g ? pixels(g->bits, g->bpl, g->width, g->height, g->lo_x, g->hi_y) : Pixels();
    return FSS_free_char(&st, g), p;
  }
  Pixels ft(FS_ULONG gid) {
    EXPECT_EQ(FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP | FT_LOAD_RENDER), 0);
    const FT_GlyphSlot s = face->glyph;
    return pixels(s->bitmap.buffer, s->bitmap.pitch, s->bitmap.width, s->bitmap.rows, s->bitmap_left, s->bitmap_top - 1);
  }
};

TEST(AdfGlyphOracle, DefaultContrastMaskDiffersOnlyAtPartialPixels) {
  for (int ppem : {24, 48}) {
    Pair o(ppem);
    long exceptions = 0;
    for (FS_ULONG gid = 0; gid < (FS_ULONG)o.face->num_glyphs; gid += kStride) {
      Pixels a = o.ours(gid, FS_MAP_EDGE_GRAYMAP8), f = o.ft(gid), all = a, d = o.ours(gid, FS_MAP_DISTANCEFIELD);
      all.insert(f.begin(), f.end());
      for (const auto& kv : all) {
        int v = a[kv.first], w = f[kv.first], m = d[kv.first];  // the distance map's mask is m >= 127
        if (((v >= 148) != (w >= 128) || (m >= 127) != (w >= 128)) && (w == 0 || w == 255) && exceptions++ < 5)
          ADD_FAILURE() << "ppem " << ppem << " glyph " << gid << " at " << kv.first.first << ","
                        << kv.first.second << ": ours " << v << ", distance " << m << ", freetype " << w;
      }
    }
    EXPECT_EQ(exceptions, 0) << ppem << " ppem";
  }
}

TEST(AdfGlyphOracle, ContrastHalfPixelInkWithinThreePercent) {
  Pair o(24);
  FS_set_csm(&o.st, 32768, -32768, 65536), FS_set_flags(&o.st, FLAGS_DEFAULT_CSM_ON);
  for (const char* c = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"; *c; c++) {
    FS_ULONG gid = FT_Get_Char_Index(o.face, (FT_ULong)*c);
    double ink[2] = {};
    for (const auto& kv : o.ours(gid, FS_MAP_EDGE_GRAYMAP8)) ink[0] += kv.second;
    for (const auto& kv : o.ft(gid)) ink[1] += kv.second;
    EXPECT_NEAR(ink[0] / ink[1], 1.0, 0.03) << "'" << *c << "'";
  }
}

}  // namespace
