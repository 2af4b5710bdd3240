// Distance-field glyphs through the glyph request calls, unhinted, against
// libfreetype's unhinted gray rendering of the same font (a test-only
// oracle), maps aligned by their boxes: at the default contrast the ink
// mask v >= 148 differs from libfreetype's >= 128 only where libfreetype's
// pixel is partial, for every DejaVu Sans glyph at 24 and 48 pixels per
// em; at the contrast (0.5, -0.5, 1) total ink is within 3% of
// libfreetype's on the Latin letters and digits.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>
#include <math.h>

#include <map>

#include "Orvex_internal/adf.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_request.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const unsigned kStride = 13;
#else
const unsigned kStride = 1;
#endif
const char kFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// A pixel map keyed by (x, y) of its pixel's lower left corner.
typedef std::map<std::pair<int, int>, int> Pixels;

struct Pair {
  FS_STATE st;
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  Pair(int ppem) {
    FILECHAR name[256];
    EXPECT_EQ(FSS_init(&st, 64u << 20), 0);
    EXPECT_EQ(FSS_load_font(&st, kFont, nullptr, 0, sizeof name, name), 0) << kFont;
    EXPECT_EQ(FSS_set_font(&st, name), 0);
    EXPECT_EQ(FSS_set_scale(&st, ppem << 16, 0, 0, ppem << 16), 0);
    FS_set_flags(&st, FLAGS_CMAP_OFF);
    FS_set_flags(&st, FLAGS_NO_HINTS);
    EXPECT_EQ(FT_Init_FreeType(&lib), 0);
    EXPECT_EQ(FT_New_Face(lib, kFont, 0, &face), 0);
    FT_Set_Pixel_Sizes(face, 0, (FT_UInt)ppem);
  }
  ~Pair() {
    FSS_exit(&st);
    FT_Done_Face(face);
    FT_Done_FreeType(lib);
  }
  Pixels ours(FS_ULONG gid, FS_USHORT type) {
    Pixels p;
    FS_GLYPHMAP* g = FSS_get_glyphmap(&st, gid, type);
    EXPECT_TRUE(g != nullptr) << "glyph " << gid << " error " << st.error;
    if (g == nullptr) return p;
    for (int r = 0; r < g->height; r++)
      for (int c = 0; c < g->width; c++)
        if (int v = g->bits[r * g->bpl + c]) p[{g->lo_x + c, g->hi_y - r}] = v;
    FSS_free_char(&st, g);
    return p;
  }
  Pixels ft(FS_ULONG gid) {
    Pixels p;
    EXPECT_EQ(FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP | FT_LOAD_RENDER), 0);
    const FT_Bitmap& b = face->glyph->bitmap;
    for (unsigned r = 0; r < b.rows; r++)
      for (unsigned c = 0; c < b.width; c++)
        if (int v = b.buffer[r * b.pitch + c])
          p[{face->glyph->bitmap_left + (int)c, face->glyph->bitmap_top - 1 - (int)r}] = v;
    return p;
  }
};

int at(const Pixels& p, std::pair<int, int> k) {
  auto it = p.find(k);
  return it == p.end() ? 0 : it->second;
}

TEST(AdfGlyphOracle, DefaultContrastMaskDiffersOnlyAtPartialPixels) {
  for (int ppem : {24, 48}) {
    Pair o(ppem);
    long exceptions = 0, glyphs = 0;
    for (FS_ULONG gid = 0; gid < (FS_ULONG)o.face->num_glyphs; gid += kStride, glyphs++) {
      Pixels a = o.ours(gid, FS_MAP_EDGE_GRAYMAP8), f = o.ft(gid);
      Pixels all = a;
      all.insert(f.begin(), f.end());
      for (const auto& kv : all) {
        int v = at(a, kv.first), w = at(f, kv.first);
        if ((v >= 148) != (w >= 128) && (w == 0 || w == 255)) {
          if (exceptions++ < 5)
            ADD_FAILURE() << "ppem " << ppem << " glyph " << gid << " pixel " << kv.first.first
                          << "," << kv.first.second << ": ours " << v << " freetype " << w;
        }
      }
    }
    EXPECT_EQ(exceptions, 0) << glyphs << " glyphs at " << ppem;
  }
}

TEST(AdfGlyphOracle, ContrastHalfPixelInkWithinThreePercent) {
  Pair o(24);
  FS_set_csm(&o.st, 32768, -32768, 65536);
  FS_set_flags(&o.st, FLAGS_DEFAULT_CSM_ON);
  const char* latin = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  for (const char* c = latin; *c; c++) {
    FS_ULONG gid = FT_Get_Char_Index(o.face, (FT_ULong)*c);
    double inkA = 0, inkF = 0;
    for (const auto& kv : o.ours(gid, FS_MAP_EDGE_GRAYMAP8)) inkA += kv.second;
    for (const auto& kv : o.ft(gid)) inkF += kv.second;
    EXPECT_NEAR(inkA / inkF, 1.0, 0.03) << "'" << *c << "'";
  }
}

}  // namespace
