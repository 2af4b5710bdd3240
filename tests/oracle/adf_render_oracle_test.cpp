// Differential checks of distance-field renders against libfreetype on the
// same unhinted outlines (fed as pen-command paths in pixels): its gray
// rasteriser for the inside mask and the ink, its signed-distance renderer
// for distances (Euclidean from pixel centres, 128 + 128 d / spread).
// Latin letters and digits of DejaVu Sans and Serif and Liberation Sans and
// Serif at 24 and 48 pixels per em; the mask also on every DejaVu Sans glyph.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_MODULE_H
#include FT_OUTLINE_H
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "Orvex_internal/adfimplicitfixed.h"
#include "Orvex_internal/engine_fixture.h"

namespace {

const char* kFonts[] = {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                        "/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf",
                        "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf",
                        "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"};
const std::string kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

int add(void* cmds, ADF_U32 op, const FT_Vector* to, const FT_Vector* c, const FT_Vector* c2) {
  ((std::vector<ADFPenCmd>*)cmds)->push_back(
      {op, (ADF_F32)(to->x * 1024), (ADF_F32)(to->y * 1024), (ADF_F32)(c->x * 1024),
       (ADF_F32)(c->y * 1024), (ADF_F32)(c2->x * 1024), (ADF_F32)(c2->y * 1024)});
  return 0;
}
const FT_Outline_Funcs kDecompose = {
    [](const FT_Vector* to, void* u) { return add(u, 0, to, to, to); },
    [](const FT_Vector* to, void* u) { return add(u, 1, to, to, to); },
    [](const FT_Vector* c, const FT_Vector* to, void* u) { return add(u, 2, to, c, c); },
    [](const FT_Vector* c, const FT_Vector* c2, const FT_Vector* to, void* u) {
      return add(u, 3, to, c, c2);
    },
    0, 0};

// A libfreetype map of the glyph in `mode` (the slot reloaded each time),
// read by pixel column and the pixel row whose bottom edge is at y; `off`
// outside it.
struct FtMap {
  std::vector<uint8_t> px;
  int left, top, w, h;
  int at(int col, int y, int off) const {
    const int c = col - left, r = top - y - 1;
    return c >= 0 && r >= 0 && c < w && r < h ? px[r * w + c] : off;
  }
};
FtMap ftMap(FT_Face face, FT_UInt gid, FT_Render_Mode mode) {
  EXPECT_EQ(FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP), 0);
  EXPECT_EQ(FT_Render_Glyph(face->glyph, mode), 0);
  const FT_Bitmap& bm = face->glyph->bitmap;
  FtMap m = {{}, face->glyph->bitmap_left, face->glyph->bitmap_top, (int)bm.width, (int)bm.rows};
  for (int r = 0; r < m.h; r++) m.px.insert(m.px.end(), bm.buffer + r * bm.pitch, bm.buffer + r * bm.pitch + m.w);
  return m;
}

// Our grey render of the glyph's outline at cut-offs (in, out); sample s is
// pixel column col(s), in the pixel row with bottom edge y(s).
struct Ours {
  std::vector<ADF_U8> v;
  ADFRenderImageAttrs ria;
  std::vector<FT_Vector> points;  // the outline's points, 26.6
  bool curved = false;
  double in, out;
  int col(size_t s) const { return ria.imageOriginX + (int)(s % ria.imageW); }
  int y(size_t s) const { return ria.imageOriginY + 1 + (int)(s / ria.imageW); }
  double d(size_t s) const { return out + (v[s] + 0.5) * (in - out) / 255; }
  int ramp(double d) const { return (int)std::max(0.0, std::min(255.0, std::floor(255 * (d - out) / (in - out)))); }
};
Ours ours(void* inst, FT_Face face, FT_UInt gid, int ppem, double in, double out) {
  EXPECT_EQ(FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP), 0);
  const FT_Outline& o = face->glyph->outline;
  Ours r = {{}, {}, std::vector<FT_Vector>(o.points, o.points + o.n_points), false, in, out};
  for (int k = 0; k < o.n_points; k++) r.curved = r.curved || !(o.tags[k] & 1);
  std::vector<ADFPenCmd> cmds;
  FT_Outline_Decompose(&face->glyph->outline, &kDecompose, &cmds);
  if (cmds.empty()) return r;
  ADFPath p = {0, 0, cmds[0].x, cmds[0].y, cmds[0].x, cmds[0].y, ppem << 16, gid, 0, (ADF_U32)cmds.size(), cmds.data(), nullptr};
  for (const ADFPenCmd& m : cmds) {
    p.glyphMinX = std::min(p.glyphMinX, m.x), p.glyphMaxX = std::max(p.glyphMaxX, m.x);
    p.glyphMinY = std::min(p.glyphMinY, m.y), p.glyphMaxY = std::max(p.glyphMaxY, m.y);
  }
  ADFGlyph* adf = ADFGenerateADF(inst, &p);
  ADFRenderAttrs a = {};
  a.pointSize = ppem << 16, a.dpi = 72, a.scaleX = a.scaleY = a.gamma = 0x10000;
  a.insideCutoff = (ADF_I32)lround(in * 65536), a.outsideCutoff = (ADF_I32)lround(out * 65536);
  ADFRenderGlyphData rgd; ADFTypesetAttrs ta;
  ADFRenderSetup(adf, &a, &rgd, &r.ria, &ta);
  ADFImage* image = ADFCreateImage(inst, 0, r.ria.imageW, r.ria.imageH, 0);
  ADFRenderGlyph(inst, adf, &rgd, image);
  r.v.assign(image->base, image->base + (size_t)image->w * image->h);
  ADFDestroyImage(inst, image), ADFDestroyADF(inst, adf);
  return r;
}

// libfreetype's signed distance in pixels at spread S, positive inside;
// false where it is clamped or off its map.
bool ftDistance(const FtMap& sdf, int S, int col, int y, double* d) {
  const int b = sdf.at(col, y, 0);
  *d = (b - 128) * S / 128.0;
  return b > 0 && b < 255;
}

struct Oracle {
  FT_Library lib;
  FT_Face face = nullptr;
  enginetest::Engine eng{16 << 20};
  void* inst;
  Oracle() {
    EXPECT_EQ(FT_Init_FreeType(&lib), 0);
    inst = ADFInitSystem(&eng.st);
  }
  void open(const char* file) {
    if (face) FT_Done_Face(face);
    ASSERT_EQ(FT_New_Face(lib, file, 0, &face), 0) << file;
  }
  void spread(FT_Int s) { FT_Property_Set(lib, "sdf", "spread", &s); }
  ~Oracle() {
    ADFTermSystem(inst);
    EXPECT_EQ(eng.used(), enginetest::kInitCharge);
    if (face) FT_Done_Face(face);
    FT_Done_FreeType(lib);
  }
};

// Distance mode: cut-offs +-(0.16 ppem + 1), rectangle style.
TEST(AdfRenderOracle, DistanceModeAgainstGrayAndSdf) {
  Oracle o;
  long glyphs = 0, maskOff = 0, signOff = 0, insideN = 0, outsideOff = 0, steps = 0, stepOff = 0;
  double insideMax = 0, outsideLow = 1e9, outsideHigh = -1e9, rowMax = 0;
  for (const char* file : kFonts) {
    o.open(file);
    for (int ppem : {24, 48}) {
      FT_Set_Pixel_Sizes(o.face, 0, ppem);
      const double c = 0.16 * ppem + 1;
      for (char ch : kLetters) {
        const FT_UInt gid = FT_Get_Char_Index(o.face, (FT_ULong)ch);
        const Ours r = ours(o.inst, o.face, gid, ppem, c, -c);
        const FtMap gray = ftMap(o.face, gid, FT_RENDER_MODE_NORMAL);
        o.spread(2);
        const FtMap sdf = ftMap(o.face, gid, FT_RENDER_MODE_SDF);
        for (size_t s = 0; s < r.v.size(); s++) {
          const int g = gray.at(r.col(s), r.y(s), 0);
          maskOff += (g == 0 && r.v[s] >= 127) || (g == 255 && r.v[s] < 127);
          double e;
          const bool free = ftDistance(sdf, 2, r.col(s), r.y(s), &e);
          if (std::fabs(e) >= 0.25 && sdf.at(r.col(s), r.y(s), -1) >= 0) signOff += (e > 0) != (r.v[s] >= 127);
          if (!free || r.v[s] == 0 || r.v[s] == 255) continue;
          const double d = r.d(s);
          if (e > 0 && d > 0) insideMax = std::max(insideMax, std::fabs(d - e)), insideN++;
          if (e < 0 && d < 0) {
            outsideLow = std::min(outsideLow, -d - (0.7 * -e - 0.1));
            outsideHigh = std::max(outsideHigh, -d - (-e + 0.2));
            outsideOff += -d < 0.7 * -e - 0.1 || -d > -e + 0.2;
          }
        }
        if (ch == 'l' || ch == 'I') {
          // The mid-height row of the stem: steps of 255 / 2c outside, and
          // distances as libfreetype's at spread 8.
          o.spread(8);
          const FtMap wide = ftMap(o.face, gid, FT_RENDER_MODE_SDF);
          const size_t j = r.ria.imageH / 2, w = r.ria.imageW;
          for (size_t i = j * w; i + 1 < (j + 1) * w; i++) {
            const int a = r.v[i], b = r.v[i + 1], step = std::abs(a - b);
            if (a > 0 && b > 0 && a < 127 && b < 127)
              steps++, stepOff += step != (int)(255 / (2 * c)) && step != (int)(255 / (2 * c)) + 1;
            double e;
            if (ftDistance(wide, 8, r.col(i), r.y(i), &e) && a > 0 && a < 255)
              rowMax = std::max(rowMax, std::fabs(r.d(i) - e));
          }
        }
        glyphs++;
      }
    }
  }
  printf("distance mode, %ld glyph renders: %ld mask and %ld sign exceptions; inside |d - sdf| up to %.3f px over %ld "
         "pixels; outside %ld beyond [0.7|e| - 0.1, |e| + 0.2] (margins %.3f, %.3f); %ld stem steps, %ld off; stem rows "
         "within %.3f px of sdf at spread 8\n",
         glyphs, maskOff, signOff, insideMax, insideN, outsideOff, outsideLow, -outsideHigh, steps, stepOff, rowMax);
  EXPECT_EQ(glyphs, 496);
  EXPECT_EQ(maskOff, 0);
  EXPECT_EQ(signOff, 0);
  EXPECT_LE(insideMax, 0.2);
  EXPECT_EQ(outsideOff, 0);
  EXPECT_GT(steps, 100);
  EXPECT_EQ(stepOff, 0);
  EXPECT_LE(rowMax, 0.1);
}

// ADF mode with the default CSM (0.4, -0.56): the mask on every DejaVu Sans
// glyph; on the letters without off-curve points, away from their points,
// the ramp of libfreetype's distance, also at (0.5, -0.5); and the ink at
// (0.5, -0.5) against libfreetype's gray.
TEST(AdfRenderOracle, AdfModeAgainstGrayAndSdf) {
  Oracle o;
  long glyphs = 0, maskOff = 0, rampN = 0;
  int rampMax = 0;
  double ink = 0, inkFt = 0;
  o.open(kFonts[0]);
  for (int ppem : {24, 48}) {
    FT_Set_Pixel_Sizes(o.face, 0, ppem);
    for (FT_UInt gid = 0; gid < (FT_UInt)o.face->num_glyphs; gid++) {
      const Ours r = ours(o.inst, o.face, gid, ppem, 0.4, -0.56);
      if (r.v.empty()) continue;
      const FtMap gray = ftMap(o.face, gid, FT_RENDER_MODE_NORMAL);
      for (size_t s = 0; s < r.v.size(); s++) {
        const int g = gray.at(r.col(s), r.y(s), 0);
        maskOff += (g == 0 && r.v[s] >= 148) || (g == 255 && r.v[s] < 148);
      }
      glyphs++;
    }
  }
  o.spread(2);
  for (const char* file : kFonts) {
    o.open(file);
    for (int ppem : {24, 48}) {
      FT_Set_Pixel_Sizes(o.face, 0, ppem);
      for (char ch : kLetters) {
        const FT_UInt gid = FT_Get_Char_Index(o.face, (FT_ULong)ch);
        const FtMap gray = ftMap(o.face, gid, FT_RENDER_MODE_NORMAL), sdf = ftMap(o.face, gid, FT_RENDER_MODE_SDF);
        for (double cut : {0.4, 0.5}) {
          const Ours r = ours(o.inst, o.face, gid, ppem, cut, cut == 0.4 ? -0.56 : -0.5);
          for (size_t s = 0; cut == 0.5 && s < r.v.size(); s++) ink += r.v[s];
          if (r.curved) continue;
          for (size_t s = 0; s < r.v.size(); s++) {
            double e, far = 1e9;
            for (const FT_Vector& p : r.points)
              far = std::min(far, std::hypot(p.x / 64.0 - r.col(s) - 0.5, p.y / 64.0 - r.y(s) - 0.5));
            if (far <= 2 || !ftDistance(sdf, 2, r.col(s), r.y(s), &e)) continue;
            rampMax = std::max(rampMax, std::abs(r.v[s] - r.ramp(e))), rampN++;
          }
        }
        for (uint8_t g : gray.px) inkFt += g;
      }
    }
  }
  printf("ADF mode: %ld DejaVu Sans glyph renders, %ld mask exceptions; ramp of libfreetype's distance within %d levels "
         "over %ld pixels; ink at (0.5, -0.5) %.2f%% of libfreetype's gray\n",
         glyphs, maskOff, rampMax, rampN, 100 * ink / inkFt);
  EXPECT_GT(glyphs, 12000);
  EXPECT_EQ(maskOff, 0);
  EXPECT_GT(rampN, 5000);
  EXPECT_LE(rampMax, 8);
  EXPECT_NEAR(ink / inkFt, 1, 0.03);
}

}  // namespace
