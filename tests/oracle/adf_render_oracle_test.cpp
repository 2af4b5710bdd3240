// The distance-field renderer against libfreetype on the same unhinted
// outlines, as pen-command paths in pixels (26.6 << 10, an em of ppem): its
// gray map for winding, masks and ink; its sdf map for distances e (from
// pixel centres, 128 + 128 e / spread, positive inside). Winding on every
// DejaVu Sans glyph; distance mode (rectangle style, cut-offs +-c with
// c = 0.16 ppem + 1) and ADF mode (the default CSM, and (0.5, -0.5)) on the
// Latin letters and digits of DejaVu Sans and Serif and Liberation Sans and
// Serif; all at 24 and 48 ppem; the same with the engine's distance maps
// (type 0x80, unhinted). Each bound is named where it is checked.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_MODULE_H
#include FT_OUTLINE_H
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "Orvex_internal/adfimplicitfixed.h"
#include "Orvex_internal/engine_fixture.h"
#include "support/typeset_font.h"

namespace {

int addPenCmd(void* cmds, ADF_U32 op, const FT_Vector* to, const FT_Vector* c, const FT_Vector* c2) {
  ((std::vector<ADFPenCmd>*)cmds)->push_back({op, (ADF_F32)(to->x * 1024), (ADF_F32)(to->y * 1024), (ADF_F32)(c->x * 1024),
                                              (ADF_F32)(c->y * 1024), (ADF_F32)(c2->x * 1024), (ADF_F32)(c2->y * 1024)});
  return 0;
}
const FT_Outline_Funcs kDecompose = {
    [](const FT_Vector* to, void* u) { return addPenCmd(u, 0, to, to, to); },
    [](const FT_Vector* to, void* u) { return addPenCmd(u, 1, to, to, to); },
    [](const FT_Vector* c, const FT_Vector* to, void* u) { return addPenCmd(u, 2, to, c, c); },
    [](const FT_Vector* c, const FT_Vector* c2, const FT_Vector* to, void* u) { return addPenCmd(u, 3, to, c, c2); },
    0, 0};

// A map by pixel column and the pixel row whose bottom edge is at y; -1 off
// the map. Its sample s lies at column col(s), row y(s).
struct Map {
  std::vector<uint8_t> px;
  int left, top, w, h;
  int col(int s) const { return left + s % w; }
  int y(int s) const { return top - 1 - s / w; }
  int at(int c, int y) const { return c >= left && c < left + w && y < top && y >= top - h ? px[(top - 1 - y) * w + c - left] : -1; }
};

struct Oracle {
  FT_Library lib;
  FT_Face face;
  enginetest::Engine eng{16 << 20};
  void* inst = ADFInitSystem(&eng.st);
  Oracle() { FT_Init_FreeType(&lib); }
  ~Oracle() { ADFTermSystem(inst), FT_Done_FreeType(lib); EXPECT_EQ(eng.used(), enginetest::kInitCharge); }
  // libfreetype's map of glyph `gid` in `mode`.
  Map ft(FT_UInt gid, FT_Render_Mode mode, FT_Int spread = 2) {
    FT_Property_Set(lib, "sdf", "spread", &spread);
    EXPECT_EQ(FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) | FT_Render_Glyph(face->glyph, mode), 0);
    const FT_Bitmap& bm = face->glyph->bitmap;
    Map m = {{}, face->glyph->bitmap_left, face->glyph->bitmap_top, (int)bm.width, (int)bm.rows};
    for (int r = 0; r < m.h; r++) m.px.insert(m.px.end(), bm.buffer + r * bm.pitch, bm.buffer + r * bm.pitch + m.w);
    return m;
  }
  // Our render set-up of glyph `gid` at cut-offs (in, out); the path's
  // extent is that of the end points, as the glue takes it.
  ADFGlyph* setup(FT_UInt gid, int ppem, double in, double out, ADFRenderGlyphData* rgd, ADFRenderImageAttrs* ria) {
    FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP);
    std::vector<ADFPenCmd> cmds;
    FT_Outline_Decompose(&face->glyph->outline, &kDecompose, &cmds);
    ADFPath p = {0, 0, 0, 0, 0, 0, ppem << 16, gid, 0, (ADF_U32)cmds.size(), cmds.data(), nullptr};
    if (!cmds.empty()) p.glyphMinX = p.glyphMaxX = cmds[0].x, p.glyphMinY = p.glyphMaxY = cmds[0].y;
    for (const ADFPenCmd& m : cmds) {
      p.glyphMinX = std::min(p.glyphMinX, m.x), p.glyphMaxX = std::max(p.glyphMaxX, m.x);
      p.glyphMinY = std::min(p.glyphMinY, m.y), p.glyphMaxY = std::max(p.glyphMaxY, m.y);
    }
    ADFGlyph* adf = ADFGenerateADF(inst, &p);
    ADFRenderAttrs a = {};
    a.pointSize = ppem << 16, a.dpi = 72, a.scaleX = a.scaleY = a.gamma = 0x10000;
    a.insideCutoff = (ADF_I32)lround(in * 65536), a.outsideCutoff = (ADF_I32)lround(out * 65536);
    ADFTypesetAttrs ta;
    ADFRenderSetup(cmds.empty() ? nullptr : adf, &a, rgd, ria, &ta);
    return adf;
  }
  // Our grey render at cut-offs (in, out), placed like libfreetype's maps.
  Map ours(FT_UInt gid, int ppem, double in, double out) {
    ADFRenderGlyphData rgd; ADFRenderImageAttrs ria;
    ADFGlyph* adf = setup(gid, ppem, in, out, &rgd, &ria);
    ADFImage* image = ADFCreateImage(inst, 0, ria.imageW, ria.imageH, 0);
    ADFRenderGlyph(inst, adf, &rgd, image);
    Map m = {{}, ria.imageOriginX, ria.imageOriginY + 1 + ria.imageH, ria.imageW, ria.imageH};
    for (int r = m.h - 1; r >= 0; r--) m.px.insert(m.px.end(), image->base + r * m.w, image->base + (r + 1) * m.w);
    ADFDestroyImage(inst, image), ADFDestroyADF(inst, adf);
    return m;
  }
  // The engine's distance map of glyph `gid`, placed by lo_x and hi_y.
  Map engine(FS_STATE* st, FT_UInt gid) {
    FS_GLYPHMAP* g = FSS_get_glyphmap(st, gid, FS_MAP_DISTANCEFIELD);
    EXPECT_TRUE(g != nullptr) << "glyph " << gid << " error " << st->error;
    Map m = g ? Map{{g->bits, g->bits + g->bpl * g->height}, g->lo_x, g->hi_y + 1, g->width, g->height} : Map{{}, 0, 0, 0, 0};
    return FSS_free_char(st, g), m;
  }
};

// Winding: non-zero at every full gray pixel (which the image box holds), zero at every empty one.
TEST(AdfWindingOracle, DejaVuSansInsideWhereFreetypeIsFull) {
  Oracle o;
  ASSERT_EQ(FT_New_Face(o.lib, enginetest::kDejaVuSansFile, 0, &o.face), 0) << enginetest::kDejaVuSansFile;
  long glyphs = 0;
  for (int ppem : {24, 48}) {
    FT_Set_Pixel_Sizes(o.face, 0, ppem);
    for (FT_UInt gid = 0; gid < (FT_UInt)o.face->num_glyphs; gid++) {
      const Map gray = o.ft(gid, FT_RENDER_MODE_NORMAL);
      if (o.face->glyph->outline.n_points == 0) continue;
      ADFRenderGlyphData rgd; ADFRenderImageAttrs ria;
      ADFGlyph* adf = o.setup(gid, ppem, 0, 0, &rgd, &ria);
      ADFImage image = {0, ria.imageW, ria.imageH, 0, nullptr, nullptr};
      DistBuffer* dist = CreateDistBuffer(o.inst, &image, 0);
      InternPath* path = CreateInternPath(o.inst, adf, &rgd);
      ADF_I8* wnb = CreateWindingNumberBuffer(o.inst, dist);
      ASSERT_TRUE(dist && path && wnb) << gid;
      SetWindingNumberBuffer(path, dist, wnb);
      long full = 0;
      for (ADF_U32 s = 0; s < dist->w * dist->h; s++) {
        // Sample (i, j) is the centre of pixel column imageOriginX + i and of
        // the pixel row whose bottom edge is imageOriginY + 1 + j.
        const int cover = std::max(0, gray.at(ria.imageOriginX + (int)(s % dist->w), ria.imageOriginY + 1 + (int)(s / dist->w)));
        ASSERT_TRUE(cover == 255 ? wnb[s] != 0 : cover != 0 || wnb[s] == 0) << "glyph " << gid << " at " << ppem << ": coverage " << cover;
        full += cover == 255;
      }
      ASSERT_EQ(full, std::count(gray.px.begin(), gray.px.end(), 255)) << "the image box holds every full pixel, glyph " << gid;
      DestroyWindingNumberBuffer(o.inst, wnb), DestroyInternPath(o.inst, path), DestroyDistBuffer(o.inst, dist), ADFDestroyADF(o.inst, adf);
      glyphs++;
    }
  }
  EXPECT_GT(glyphs, 12000);
  FT_Done_Face(o.face);
}

// Masks against gray >= 128 where gray is 0 or 255; distances against sdf where neither is clamped.
void distanceAndAdfModes(bool engine) {
  Oracle o;
  long glyphs = 0, maskDist = 0, sign = 0, outside = 0, steps = 0, stepOff = 0, rampN = 0, maskAdf = 0;
  double inMax = 0, rowMax = 0, ink = 0, inkFt = 0;
  int rampMax = 0;
  for (const char* file : {"dejavu/DejaVuSans.ttf", "dejavu/DejaVuSerif.ttf", "liberation2/LiberationSans-Regular.ttf",
                           "liberation2/LiberationSerif-Regular.ttf"}) {
    ASSERT_EQ(FT_New_Face(o.lib, (std::string("/usr/share/fonts/truetype/") + file).c_str(), 0, &o.face), 0) << file;
    const int all = !engine && std::string(file) == "dejavu/DejaVuSans.ttf" ? (int)o.face->num_glyphs : 0;  // mask glyphs first
    for (int ppem : {24, 48}) {
      testsupport::TypesetFont f;
      ASSERT_EQ(f.open(std::string("/usr/share/fonts/truetype/") + file) | f.setPpem(ppem), 0) << file;
      FS_set_flags(&f.st, FLAGS_CMAP_OFF), FS_set_flags(&f.st, FLAGS_NO_HINTS), FT_Set_Pixel_Sizes(o.face, 0, ppem);
      const double c = 0.16 * ppem + 1;
      for (int k = 0; k < all + 62; k++) {
        const char ch = k < all ? 0 : "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"[k - all];
        const FT_UInt gid = ch ? FT_Get_Char_Index(o.face, (FT_ULong)ch) : (FT_UInt)k;
        const Map gray = o.ft(gid, FT_RENDER_MODE_NORMAL), adf = o.ours(gid, ppem, 0.4, -0.56);
        for (int s = 0, g, v; s < adf.w * adf.h; s++)
          g = gray.at(adf.col(s), adf.y(s)), v = adf.px[s], maskAdf += (g <= 0 && v >= 148) || (g == 255 && v < 148);
        glyphs += !ch;
        if (!ch) continue;
        const FT_Outline& outline = o.face->glyph->outline;  // its points only where none is off the curve
        const bool curved = std::any_of(outline.tags, outline.tags + outline.n_points, [](char t) { return !(t & 1); });
        const std::vector<FT_Vector> points(outline.points, outline.points + (curved ? 0 : outline.n_points));
        const Map sdf = o.ft(gid, FT_RENDER_MODE_SDF), dist = engine ? o.engine(&f.st, gid) : o.ours(gid, ppem, c, -c), half = o.ours(gid, ppem, 0.5, -0.5);
        for (uint8_t g : gray.px) inkFt += g;
        for (uint8_t v : half.px) ink += v;
        for (int s = 0; s < dist.w * dist.h; s++) {
          const int col = dist.col(s), y = dist.y(s), v = dist.px[s], b = sdf.at(col, y), g = gray.at(col, y);
          const double d = -c + (v + 0.5) * 2 * c / 255, e = (b - 128) / 64.0;
          maskDist += (g <= 0 && v >= 127) || (g == 255 && v < 127);
          sign += b >= 0 && std::fabs(e) >= 0.25 && (e > 0) != (v >= 127);
          if (b <= 0 || b == 255) continue;
          if (e > 0 && d > 0 && v < 255) inMax = std::max(inMax, std::fabs(d - e));
          if (e < 0 && d < 0 && v > 0) outside += -d < 0.7 * -e - 0.1 || -d > -e + 0.2;
          double far = curved ? 0 : 1e9;
          for (const FT_Vector& p : points) far = std::min(far, std::hypot(p.x / 64.0 - col - 0.5, p.y / 64.0 - y - 0.5));
          for (const auto& [m, in, out] : {std::make_tuple(&adf, 0.4, -0.56), std::make_tuple(&half, 0.5, -0.5)}) {
            const int u = m->at(col, y), ramp = (int)std::max(0.0, std::min(255.0, std::floor(255 * (e - out) / (in - out))));
            if (far > 2 && u >= 0) rampMax = std::max(rampMax, std::abs(u - ramp)), rampN++;
          }
        }
        if (ch != 'l' && ch != 'I') continue;
        const Map wide = o.ft(gid, FT_RENDER_MODE_SDF, 8);
        const int row = dist.h / 2, k1 = (int)(255 / (2 * c));
        for (int i = row * dist.w; i + 1 < (row + 1) * dist.w; i++) {
          const int a = dist.px[i], b = dist.px[i + 1], f = wide.at(dist.col(i), dist.y(i));
          if (a > 0 && b > 0 && a < 127 && b < 127) steps++, stepOff += std::abs(a - b) != k1 && std::abs(a - b) != k1 + 1;
          if (f > 0 && f < 255 && a > 0 && a < 255) rowMax = std::max(rowMax, std::fabs(-c + (a + 0.5) * 2 * c / 255 - (f - 128) / 16.0));
        }
      }
    }
    FT_Done_Face(o.face);
  }
  EXPECT_TRUE(maskDist == 0 && sign == 0 && outside == 0 && stepOff == 0 && maskAdf == 0)
      << "distance mode: " << maskDist << " mask, " << sign << " sign, " << outside << " outside-bound, " << stepOff
      << " step exceptions; ADF mode: " << maskAdf << " mask exceptions";
  EXPECT_TRUE((engine || glyphs > 12000) && steps > 100 && rampN > 5000) << glyphs << " glyphs, " << steps << " steps, " << rampN;
  EXPECT_TRUE(inMax <= 0.2 && rowMax <= 0.1 && rampMax <= 8) << inMax << " px inside, " << rowMax << " px on stems, levels " << rampMax;
  EXPECT_NEAR(ink / inkFt, 1, 0.03);
}
TEST(AdfRenderOracle, DistanceAndAdfModesAgainstGrayAndSdf) { distanceAndAdfModes(false); }
TEST(AdfRenderOracle, EngineDistanceMapsAgainstGrayAndSdf) { distanceAndAdfModes(true); }

}  // namespace
