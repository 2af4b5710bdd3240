// Differential check of the distance-field renderer's inside/outside against
// libfreetype's gray rasteriser on the same unhinted outlines: every glyph of
// DejaVu Sans at 24 and 48 pixels per em, fed as a pen-command path in
// pixels (26.6 << 10, an em of ppem). Wherever libfreetype's pixel is fully
// covered the winding number at its centre is non-zero; wherever it has no
// coverage at all, zero.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/adfimplicitfixed.h"
#include "Orvex_internal/engine_fixture.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const int kGlyphStride = 7;  // a seventh of the glyphs under the sanitizer
#else
const int kGlyphStride = 1;
#endif

struct PathBuilder {
  std::vector<ADFPenCmd> cmds;
  ADFPath path = {};
  void add(ADF_U32 op, const FT_Vector* to, const FT_Vector* c = nullptr,
           const FT_Vector* c2 = nullptr) {
    ADFPenCmd p = {op, (ADF_F32)(to->x << 10), (ADF_F32)(to->y << 10), 0, 0, 0, 0};
    if (c) p.cx = (ADF_F32)(c->x << 10), p.cy = (ADF_F32)(c->y << 10);
    if (c2) p.cx2 = (ADF_F32)(c2->x << 10), p.cy2 = (ADF_F32)(c2->y << 10);
    if (cmds.empty()) {
      path.glyphMinX = path.glyphMaxX = p.x;
      path.glyphMinY = path.glyphMaxY = p.y;
    }
    path.glyphMinX = std::min(path.glyphMinX, p.x);
    path.glyphMaxX = std::max(path.glyphMaxX, p.x);
    path.glyphMinY = std::min(path.glyphMinY, p.y);
    path.glyphMaxY = std::max(path.glyphMaxY, p.y);
    path.numContours += op == ADF_MOVETO;
    cmds.push_back(p);
  }
  static PathBuilder* of(void* user) { return (PathBuilder*)user; }
};

const FT_Outline_Funcs kDecompose = {
    [](const FT_Vector* to, void* u) { PathBuilder::of(u)->add(0, to); return 0; },
    [](const FT_Vector* to, void* u) { PathBuilder::of(u)->add(1, to); return 0; },
    [](const FT_Vector* c, const FT_Vector* to, void* u) {
      PathBuilder::of(u)->add(2, to, c);
      return 0;
    },
    [](const FT_Vector* c, const FT_Vector* c2, const FT_Vector* to, void* u) {
      PathBuilder::of(u)->add(3, to, c, c2);
      return 0;
    },
    0, 0};

TEST(AdfWindingOracle, DejaVuSansInsideWhereFreetypeIsFull) {
  FT_Library lib;
  FT_Face face;
  ASSERT_EQ(FT_Init_FreeType(&lib), 0);
  ASSERT_EQ(FT_New_Face(lib, enginetest::kDejaVuSansFile, 0, &face), 0)
      << enginetest::kDejaVuSansFile;
  enginetest::Engine eng(8 << 20);
  void* inst = ADFInitSystem(&eng.st);
  int glyphs = 0;
  long full = 0, empty = 0;
  for (int ppem : {24, 48}) {
    FT_Set_Pixel_Sizes(face, 0, ppem);
    for (FT_UInt gid = 0; gid < (FT_UInt)face->num_glyphs; gid += kGlyphStride) {
      ASSERT_EQ(FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP), 0);
      if (face->glyph->outline.n_points == 0) continue;
      PathBuilder pb;
      ASSERT_EQ(FT_Outline_Decompose(&face->glyph->outline, &kDecompose, &pb), 0);
      pb.path.fontUnitsPerEM = ppem << 16;
      pb.path.numPenCmds = (ADF_U32)pb.cmds.size();
      pb.path.penCmds = pb.cmds.data();
      ADFGlyph* adf = ADFGenerateADF(inst, &pb.path);
      ADFRenderAttrs a = {};
      a.pointSize = ppem << 16, a.dpi = 72, a.scaleX = a.scaleY = 0x10000;
      ADFRenderGlyphData rgd;
      ADFRenderImageAttrs ria;
      ADFTypesetAttrs ta;
      ADFRenderSetup(adf, &a, &rgd, &ria, &ta);
      ADFImage image = {0, ria.imageW, ria.imageH, 0, nullptr, nullptr};
      DistBuffer* dist = CreateDistBuffer(inst, &image, 0);
      InternPath* path = CreateInternPath(inst, adf, &rgd);
      ADF_I8* wnb = CreateWindingNumberBuffer(inst, dist);
      ASSERT_TRUE(dist && path && wnb) << gid;
      SetWindingNumberBuffer(path, dist, wnb);

      ASSERT_EQ(FT_Render_Glyph(face->glyph, FT_RENDER_MODE_NORMAL), 0);
      const FT_Bitmap& bm = face->glyph->bitmap;
      const int left = face->glyph->bitmap_left, top = face->glyph->bitmap_top;
      int fullFt = 0, fullOurs = 0;
      for (unsigned r = 0; r < bm.rows; r++)
        for (unsigned c = 0; c < bm.width; c++) fullFt += bm.buffer[r * bm.pitch + c] == 255;
      for (ADF_U32 j = 0; j < dist->h; j++)
        for (ADF_U32 i = 0; i < dist->w; i++) {
          // Sample (i, j) is the centre of pixel column imageOriginX + i and
          // of the pixel row whose bottom edge is imageOriginY + 1 + j.
          const int c = ria.imageOriginX + (int)i - left;
          const int r = top - 1 - (ria.imageOriginY + 1 + (int)j);
          const int cover = c >= 0 && r >= 0 && c < (int)bm.width && r < (int)bm.rows
                                ? bm.buffer[r * bm.pitch + c] : 0;
          const bool inside = wnb[j * dist->w + i] != 0;
          if (cover == 255) {
            ASSERT_TRUE(inside) << "glyph " << gid << " at " << ppem;
          } else if (cover == 0) {
            ASSERT_FALSE(inside) << "glyph " << gid << " at " << ppem;
          }
          fullOurs += cover == 255;
          empty += cover == 0;
        }
      ASSERT_EQ(fullOurs, fullFt) << "the image box holds every full pixel, glyph " << gid;
      full += fullOurs;
      DestroyWindingNumberBuffer(inst, wnb);
      DestroyInternPath(inst, path);
      DestroyDistBuffer(inst, dist);
      ADFDestroyADF(inst, adf);
      glyphs++;
    }
  }
  ADFTermSystem(inst);
  EXPECT_EQ(eng.used(), enginetest::kInitCharge);
  EXPECT_GT(glyphs, 12000 / kGlyphStride);
  printf("winding against libfreetype: %d glyph renders, %ld full and %ld empty "
         "pixels agree\n", glyphs, full, empty);
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}

}  // namespace
