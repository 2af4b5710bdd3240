// Differential check of the distance-field renderer's inside/outside against
// libfreetype's gray rasteriser on the same unhinted outlines: every glyph of
// DejaVu Sans at 24 and 48 pixels per em, fed as a pen-command path in
// pixels (26.6 << 10, an em of ppem). Wherever libfreetype's pixel is fully
// covered the winding number at its centre is non-zero (and the image box
// holds it); wherever it has no coverage at all, zero.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/adfimplicitfixed.h"
#include "Orvex_internal/engine_fixture.h"
#include "adf_outline_path.h"

namespace {

TEST(AdfWindingOracle, DejaVuSansInsideWhereFreetypeIsFull) {
  FT_Library lib;
  FT_Face face;
  ASSERT_EQ(FT_Init_FreeType(&lib), 0);
  ASSERT_EQ(FT_New_Face(lib, enginetest::kDejaVuSansFile, 0, &face), 0) << enginetest::kDejaVuSansFile;
  enginetest::Engine eng(8 << 20);
  void* inst = ADFInitSystem(&eng.st);
  long glyphs = 0, full = 0, empty = 0;
  for (int ppem : {24, 48}) {
    FT_Set_Pixel_Sizes(face, 0, ppem);
    for (FT_UInt gid = 0; gid < (FT_UInt)face->num_glyphs; gid++) {
      ASSERT_EQ(FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP), 0);
      if (face->glyph->outline.n_points == 0) continue;
      std::vector<ADFPenCmd> cmds;
      const ADFPath p = oracle::outlinePath(face->glyph->outline, ppem, gid, cmds);
      ADFGlyph* adf = ADFGenerateADF(inst, &p);
      ADFRenderAttrs a = {};
      a.pointSize = ppem << 16, a.dpi = 72, a.scaleX = a.scaleY = 0x10000;
      ADFRenderGlyphData rgd; ADFRenderImageAttrs ria; ADFTypesetAttrs ta;
      ADFRenderSetup(adf, &a, &rgd, &ria, &ta);
      ADFImage image = {0, ria.imageW, ria.imageH, 0, nullptr, nullptr};
      DistBuffer* dist = CreateDistBuffer(inst, &image, 0);
      InternPath* path = CreateInternPath(inst, adf, &rgd);
      ADF_I8* wnb = CreateWindingNumberBuffer(inst, dist);
      ASSERT_TRUE(dist && path && wnb) << gid;
      SetWindingNumberBuffer(path, dist, wnb);

      ASSERT_EQ(FT_Render_Glyph(face->glyph, FT_RENDER_MODE_NORMAL), 0);
      const FT_Bitmap& bm = face->glyph->bitmap;
      int fullFt = 0, fullOurs = 0;
      for (unsigned s = 0; s < bm.rows * bm.width; s++)
        fullFt += bm.buffer[s / bm.width * bm.pitch + s % bm.width] == 255;
      for (ADF_U32 s = 0; s < dist->w * dist->h; s++) {
        // Sample (i, j) is the centre of pixel column imageOriginX + i and of
        // the pixel row whose bottom edge is imageOriginY + 1 + j.
        const int c = ria.imageOriginX + (int)(s % dist->w) - face->glyph->bitmap_left;
        const int r = face->glyph->bitmap_top - 2 - ria.imageOriginY - (int)(s / dist->w);
        const int cover = c >= 0 && r >= 0 && c < (int)bm.width && r < (int)bm.rows
                              ? bm.buffer[r * bm.pitch + c] : 0;
        ASSERT_TRUE(cover == 255 ? wnb[s] != 0 : cover != 0 || wnb[s] == 0)
            << "glyph " << gid << " at " << ppem << ": coverage " << cover;
        fullOurs += cover == 255;
        empty += cover == 0;
      }
      ASSERT_EQ(fullOurs, fullFt) << "the image box holds every full pixel, glyph " << gid;
      full += fullOurs;
      DestroyWindingNumberBuffer(inst, wnb), DestroyInternPath(inst, path);
      DestroyDistBuffer(inst, dist), ADFDestroyADF(inst, adf);
      glyphs++;
    }
  }
  ADFTermSystem(inst);
  EXPECT_EQ(eng.used(), enginetest::kInitCharge);
  EXPECT_GT(glyphs, 12000);
  printf("winding against libfreetype: %ld glyph renders, %ld full and %ld empty pixels agree\n", glyphs, full, empty);
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}

}  // namespace
