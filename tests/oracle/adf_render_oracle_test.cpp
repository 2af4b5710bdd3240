// Differential checks of distance-field renders against libfreetype on the
// same unhinted outlines: its gray rasteriser for the inside mask and the
// ink, its signed-distance renderer for distances e (Euclidean from pixel
// centres, 128 + 128 e / spread, positive inside). Latin letters and digits
// of DejaVu Sans and Serif and Liberation Sans and Serif at 24 and 48 pixels
// per em; the mask also on every DejaVu Sans glyph.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_MODULE_H
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "Orvex_internal/adfimplicitfixed.h"
#include "Orvex_internal/engine_fixture.h"
#include "adf_outline_path.h"

namespace {

// A map by pixel column and the pixel row whose bottom edge is at y; -1 off
// the map.
struct Map {
  std::vector<uint8_t> px;
  int left, top, w, h;
  int at(int col, int y) const {
    const int c = col - left, r = top - y - 1;
    return c >= 0 && r >= 0 && c < w && r < h ? px[r * w + c] : -1;
  }
};

struct Oracle {
  FT_Library lib;
  FT_Face face;
  enginetest::Engine eng{16 << 20};
  void* inst = ADFInitSystem(&eng.st);
  Oracle() { FT_Init_FreeType(&lib); }
  ~Oracle() {
    ADFTermSystem(inst), FT_Done_FreeType(lib);
    EXPECT_EQ(eng.used(), enginetest::kInitCharge);
  }
  // libfreetype's map of glyph `gid` in `mode`.
  Map ft(FT_UInt gid, FT_Render_Mode mode, FT_Int spread = 2) {
    FT_Property_Set(lib, "sdf", "spread", &spread);
    EXPECT_EQ(FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) | FT_Render_Glyph(face->glyph, mode), 0);
    const FT_Bitmap& bm = face->glyph->bitmap;
    Map m = {{}, face->glyph->bitmap_left, face->glyph->bitmap_top, (int)bm.width, (int)bm.rows};
    for (int r = 0; r < m.h; r++) m.px.insert(m.px.end(), bm.buffer + r * bm.pitch, bm.buffer + r * bm.pitch + m.w);
    return m;
  }
  // Our grey render at cut-offs (in, out), placed like libfreetype's maps.
  Map ours(FT_UInt gid, int ppem, double in, double out) {
    FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP);
    std::vector<ADFPenCmd> cmds;
    const ADFPath p = oracle::outlinePath(face->glyph->outline, ppem, gid, cmds);
    ADFGlyph* adf = ADFGenerateADF(inst, &p);
    ADFRenderAttrs a = {};
    a.pointSize = ppem << 16, a.dpi = 72, a.scaleX = a.scaleY = a.gamma = 0x10000;
    a.insideCutoff = (ADF_I32)lround(in * 65536), a.outsideCutoff = (ADF_I32)lround(out * 65536);
    ADFRenderGlyphData rgd; ADFRenderImageAttrs ria; ADFTypesetAttrs ta;
    ADFRenderSetup(cmds.empty() ? nullptr : adf, &a, &rgd, &ria, &ta);
    ADFImage* image = ADFCreateImage(inst, 0, ria.imageW, ria.imageH, 0);
    ADFRenderGlyph(inst, adf, &rgd, image);
    Map m = {{}, ria.imageOriginX, ria.imageOriginY + 1 + ria.imageH, ria.imageW, ria.imageH};
    for (int r = m.h - 1; r >= 0; r--) m.px.insert(m.px.end(), image->base + r * m.w, image->base + (r + 1) * m.w);
    ADFDestroyImage(inst, image), ADFDestroyADF(inst, adf);
    return m;
  }
};

// Distance mode, cut-offs +-c with c = 0.16 ppem + 1 (rectangle style): the
// mask v >= 127 against gray >= 128; the sign against e at spread 2 where
// |e| >= 0.25; where neither is clamped, inside |d - e| <= 0.2 and outside
// 0.7 |e| - 0.1 <= |d| <= |e| + 0.2; the mid-height row of l and I steps by
// 255 / 2c outside and matches spread 8 within 0.1. ADF mode, default CSM
// (0.4, -0.56): the mask v >= 148; on letters without off-curve points, more
// than 2 px from every point, |v - ramp(e)| <= 8, also at (0.5, -0.5); the
// ink at (0.5, -0.5) against gray.
TEST(AdfRenderOracle, DistanceAndAdfModesAgainstGrayAndSdf) {
  Oracle o;
  long glyphs = 0, maskOff = 0, signOff = 0, outOff = 0, steps = 0, stepOff = 0, rampN = 0, maskAdfOff = 0;
  double inMax = 0, outMax = 0, rowMax = 0, ink = 0, inkFt = 0;
  int rampMax = 0;
  for (const char* file : {"dejavu/DejaVuSans.ttf", "dejavu/DejaVuSerif.ttf", "liberation2/LiberationSans-Regular.ttf",
                           "liberation2/LiberationSerif-Regular.ttf"}) {
    ASSERT_EQ(FT_New_Face(o.lib, (std::string("/usr/share/fonts/truetype/") + file).c_str(), 0, &o.face), 0) << file;
    for (int ppem : {24, 48}) {
      FT_Set_Pixel_Sizes(o.face, 0, ppem);
      const double c = 0.16 * ppem + 1;
      const bool all = file == std::string("dejavu/DejaVuSans.ttf");  // every glyph for the mask
      for (FT_UInt k = 0; k < (all ? (FT_UInt)o.face->num_glyphs : 0) + 62; k++) {
        const char ch = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"[std::max<int>(0, k - (all ? o.face->num_glyphs : 0))];
        const bool letter = !all || k >= (FT_UInt)o.face->num_glyphs;
        const FT_UInt gid = letter ? FT_Get_Char_Index(o.face, (FT_ULong)ch) : k;
        const Map gray = o.ft(gid, FT_RENDER_MODE_NORMAL), adf = o.ours(gid, ppem, 0.4, -0.56);
        for (int s = 0; s < adf.w * adf.h; s++) {
          const int g = gray.at(adf.left + s % adf.w, adf.top - 1 - s / adf.w);
          maskAdfOff += (g <= 0 && adf.px[s] >= 148) || (g == 255 && adf.px[s] < 148);
        }
        glyphs += !letter;
        if (!letter) continue;
        const FT_Outline& outline = o.face->glyph->outline;
        const std::vector<FT_Vector> points(outline.points, outline.points + outline.n_points);
        bool curved = false;
        for (int p = 0; p < outline.n_points; p++) curved = curved || !(outline.tags[p] & 1);
        const Map sdf = o.ft(gid, FT_RENDER_MODE_SDF), dist = o.ours(gid, ppem, c, -c), half = o.ours(gid, ppem, 0.5, -0.5);
        for (uint8_t g : gray.px) inkFt += g;
        for (uint8_t v : half.px) ink += v;
        for (int s = 0; s < dist.w * dist.h; s++) {
          const int col = dist.left + s % dist.w, y = dist.top - 1 - s / dist.w, v = dist.px[s], g = gray.at(col, y), b = sdf.at(col, y);
          const double d = -c + (v + 0.5) * 2 * c / 255, e = (b - 128) / 64.0;
          maskOff += (g <= 0 && v >= 127) || (g == 255 && v < 127);
          signOff += b >= 0 && std::fabs(e) >= 0.25 && (e > 0) != (v >= 127);
          if (b <= 0 || b == 255 || v == 0 || v == 255) continue;
          if (e > 0 && d > 0) inMax = std::max(inMax, std::fabs(d - e));
          if (e < 0 && d < 0) outOff += -d < 0.7 * -e - 0.1 || -d > -e + 0.2, outMax = std::max(outMax, std::fabs(d - e));
        }
        for (const Map* m : {&adf, &half}) {
          const double in = m == &adf ? 0.4 : 0.5, out = m == &adf ? -0.56 : -0.5;
          for (int s = 0; !curved && s < m->w * m->h; s++) {
            const int col = m->left + s % m->w, y = m->top - 1 - s / m->w, b = sdf.at(col, y);
            double far = 1e9;
            for (const FT_Vector& p : points) far = std::min(far, std::hypot(p.x / 64.0 - col - 0.5, p.y / 64.0 - y - 0.5));
            if (far <= 2 || b <= 0 || b == 255) continue;
            const int ramp = (int)std::max(0.0, std::min(255.0, std::floor(255 * ((b - 128) / 64.0 - out) / (in - out))));
            rampMax = std::max(rampMax, std::abs(m->px[s] - ramp)), rampN++;
          }
        }
        if (ch != 'l' && ch != 'I') continue;
        const Map wide = o.ft(gid, FT_RENDER_MODE_SDF, 8);
        const int row = dist.h / 2, y = dist.top - 1 - row, k1 = (int)(255 / (2 * c));
        for (int i = 0; i + 1 < dist.w; i++) {
          const int a = dist.px[row * dist.w + i], b = dist.px[row * dist.w + i + 1], f = wide.at(dist.left + i, y);
          if (a > 0 && b > 0 && a < 127 && b < 127) steps++, stepOff += std::abs(a - b) != k1 && std::abs(a - b) != k1 + 1;
          if (f > 0 && f < 255 && a > 0 && a < 255) rowMax = std::max(rowMax, std::fabs(-c + (a + 0.5) * 2 * c / 255 - (f - 128) / 16.0));
        }
      }
    }
    FT_Done_Face(o.face);
  }
  printf("distance mode: %ld mask and %ld sign exceptions; |d - e| up to %.3f px inside, %.3f outside (%ld beyond bounds); "
         "%ld stem steps, %ld off; stem rows within %.3f px of spread 8. ADF mode: %ld DejaVu Sans glyph renders, %ld mask "
         "exceptions; ramp(e) within %d levels over %ld pixels; ink at (0.5, -0.5) %.2f%% of gray\n",
         maskOff, signOff, inMax, outMax, outOff, steps, stepOff, rowMax, glyphs, maskAdfOff, rampMax, rampN, 100 * ink / inkFt);
  EXPECT_TRUE(maskOff == 0 && signOff == 0 && outOff == 0 && steps > 100 && stepOff == 0 && glyphs > 12000 && maskAdfOff == 0);
  EXPECT_TRUE(inMax <= 0.2 && rowMax <= 0.1 && rampN > 5000 && rampMax <= 8);
  EXPECT_NEAR(ink / inkFt, 1, 0.03);
}

}  // namespace
