// Distance-field set-up worked by hand on a 20x20 pixel square at
// (10.25, 10.25), pixels as font units (em 24.0) at 24 pt and 72 dpi, and
// where its samples land in the winding buffer.
#include "Orvex_internal/adfrender.h"

#include <gtest/gtest.h>

#include "Orvex_internal/adfimplicitfixed.h"
#include "Orvex_internal/engine_fixture.h"

namespace {

const ADF_I32 F = 65536;

struct Square {
  ADFPenCmd cmds[5];
  ADFPath path = {};
  // Corners (x0, y0) and (x1, y1), clockwise with y up (the positive way).
  Square(ADF_I32 x0, ADF_I32 y0, ADF_I32 x1, ADF_I32 y1) {
    const ADF_I32 pts[5][2] = {{x0, y0}, {x0, y1}, {x1, y1}, {x1, y0}, {x0, y0}};
    for (int k = 0; k < 5; k++) cmds[k] = {k ? 1u : 0u, pts[k][0], pts[k][1], 0, 0, 0, 0};
    path.glyphMinX = std::min(x0, x1), path.glyphMaxX = std::max(x0, x1);
    path.glyphMinY = std::min(y0, y1), path.glyphMaxY = std::max(y0, y1);
    path.fontUnitsPerEM = 24 * F;
    path.numContours = 1;
    path.numPenCmds = 5;
    path.penCmds = cmds;
  }
};

ADFRenderAttrs attrs(ADF_U32 mode) {
  ADFRenderAttrs a = {};
  a.pointSize = 24 * F;
  a.dpi = 72;
  a.scaleX = a.scaleY = F;
  a.displayMode = mode;
  return a;
}

TEST(AdfRenderSetup, SquareWorkedByHand) {
  enginetest::Engine eng(1 << 20);
  void* inst = ADFInitSystem(&eng.st);
  Square sq(41 * F / 4, 41 * F / 4, 121 * F / 4, 121 * F / 4);
  Square dot(5 * F, 5 * F, 5 * F, 5 * F);
  struct Row {
    const char* why;
    Square* shape;
    ADF_U32 mode;
    ADF_I32 scaleX, w, h, ox, oy;
  } rows[] = {
      // extent 20 * 1.4 = 28.0 (1835000 raw): scale 1/28 = 2340 raw; em
      // 24 * 2340 = 56160; ppem 24 * 910 * 72 = 1572480; a00 = ppem / em just
      // under 28.0; tx = 6.249 - 0.5 puts the origin at floor(6.249) = 6.
      {"grey", &sq, 0, F, 28, 28, 6, 5},
      {"horizontal stripes: 28 + 5/3 wide, origin floor(5.75 + 1/6)", &sq, 1, F, 29, 28, 5, 5},
      {"vertical stripes", &sq, 3, F, 28, 29, 6, 4},
      {"no extent counts as 1.0: 1.4 pixels", &dot, 0, F, 2, 2, 4, 3},
      {"scaleX 0", &sq, 0, 0, 0, 28, 0, 5}};
  for (const Row& r : rows) {
    ADFGlyph* adf = ADFGenerateADF(inst, &r.shape->path);
    ASSERT_NE(adf, nullptr);
    ADFRenderAttrs a = attrs(r.mode);
    a.scaleX = r.scaleX;
    ADFRenderGlyphData rgd;
    ADFRenderImageAttrs ria;
    ADFTypesetAttrs ta;
    ADFRenderSetup(adf, &a, &rgd, &ria, &ta);
    EXPECT_EQ(ria.imageW, r.w) << r.why;
    EXPECT_EQ(ria.imageH, r.h) << r.why;
    if (r.w != 0) {
      EXPECT_EQ(ria.imageOriginX, r.ox) << r.why;
    }
    EXPECT_EQ(ria.imageOriginY, r.oy) << r.why;
    EXPECT_EQ(rgd.ppem, 1572480) << r.why;
    if (r.shape == &sq) {
      EXPECT_EQ(adf->FUToADFScale, 2340);
      EXPECT_EQ(adf->ADFUnitsPerEM, 56160);
    }
    ADFDestroyADF(inst, adf);
  }
  ADFTermSystem(inst);
  EXPECT_EQ(eng.used(), enginetest::kInitCharge);
}

// Image row j is the pixel row with bottom edge imageOriginY + 1 + j, column
// i pixel column imageOriginX + i, sampled at its centre: the square's 20x20
// pixel centres (10.5 .. 29.5) are samples 4..23 both ways.
TEST(AdfRenderSetup, SquareSamplesAtPixelCentres) {
  enginetest::Engine eng(1 << 20);
  void* inst = ADFInitSystem(&eng.st);
  Square sq(41 * F / 4, 41 * F / 4, 121 * F / 4, 121 * F / 4);
  ADFGlyph* adf = ADFGenerateADF(inst, &sq.path);
  ADFRenderAttrs a = attrs(0);
  a.insideCutoff = 0x10000, a.outsideCutoff = -0x10000;
  ADFRenderGlyphData rgd;
  ADFRenderImageAttrs ria;
  ADFTypesetAttrs ta;
  ADFRenderSetup(adf, &a, &rgd, &ria, &ta);
  ADFImage image = {0, ria.imageW, ria.imageH, 0, nullptr, nullptr};
  DistBuffer* dist = CreateDistBuffer(inst, &image, 0);
  InternPath* path = CreateInternPath(inst, adf, &rgd);
  ADF_I8* wnb = CreateWindingNumberBuffer(inst, dist);
  EXPECT_EQ(SetWindingNumberBuffer(path, dist, wnb), 0);
  for (ADF_U32 j = 0; j < dist->h; j++)
    for (ADF_U32 i = 0; i < dist->w; i++) {
      const int col = ria.imageOriginX + i, bottom = ria.imageOriginY + 1 + j;
      const bool in = col >= 10 && col <= 29 && bottom >= 10 && bottom <= 29;
      ASSERT_EQ(wnb[j * dist->w + i], in ? 1 : 0) << i << "," << j;
      ASSERT_EQ(dist->base[j * dist->w + i], in ? 128 * F : -128 * F);
    }
  EXPECT_EQ(path->penCmds[1].x, path->penCmds[0].x) << "not rewound";
  DestroyWindingNumberBuffer(inst, wnb);
  DestroyInternPath(inst, path);
  DestroyDistBuffer(inst, dist);
  // An empty image returns before anything is made.
  ADFImage none = {0, 0, 28, 0, nullptr, nullptr};
  ADFRenderGlyph(inst, adf, &rgd, &none);
  ADFDestroyADF(inst, adf);
  ADFTermSystem(inst);
  EXPECT_EQ(eng.used(), enginetest::kInitCharge);
}

}  // namespace
