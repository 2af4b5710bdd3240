// Differential check of the advance call against libfreetype, used here as
// a test-only oracle: every glyph of DejaVu Sans and Liberation Serif at
// 12, 24 and 72 pixels per em, unhinted, through the client calls (scale
// setter, glyph-index input, FSS_get_advance). Both fonts say hints may
// move advances, so the advance comes from the scaled outline's phantom
// places in 26.6, as libfreetype's unhinted advance does.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>
#include <stdio.h>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_request.h"

namespace {

const char* const kFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"};
const int kSizes[] = {12, 24, 72};

TEST(AdvanceOracle, EveryGlyphsAdvanceMatchesLibfreetypeUnhinted) {
  for (const char* font : kFonts) {
    FT_Library lib;
    ASSERT_EQ(0, FT_Init_FreeType(&lib));
    FT_Face face;
    ASSERT_EQ(0, FT_New_Face(lib, font, 0, &face)) << font;
    FS_STATE st;
    ASSERT_EQ(0, FSS_init(&st, 64u << 20));
    FILECHAR name[256];
    ASSERT_EQ(0, FSS_load_font(&st, font, nullptr, 0, sizeof name, name));
    ASSERT_EQ(0, FSS_set_font(&st, name));
    ASSERT_EQ(0, FSS_set_cmap(&st, 3, 1));
    st.flags |= FLAGS_NO_HINTS | FLAGS_CMAP_OFF;
    long exactDiffs = 0, roundedDiffs = 0, linearFar = 0, glyphs = 0;
    for (int ppem : kSizes) {
      ASSERT_EQ(0, FSS_set_scale(&st, ppem << 16, 0, 0, ppem << 16));
      FT_Set_Pixel_Sizes(face, ppem, ppem);
      for (FT_Long g = 0; g < face->num_glyphs; g++) {
        FS_SHORT idx, idy;
        FS_FIXED dx, dy;
        ASSERT_EQ(0, FSS_get_advance(&st, (FS_ULONG)g, FS_MAP_GRAYMAP8, &idx,
                                     &idy, &dx, &dy))
            << font << " glyph " << g;
        ASSERT_EQ(0, FT_Load_Glyph(face, (FT_UInt)g,
                                   FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP));
        FT_Pos adv = face->glyph->advance.x;  // 26.6, unhinted
        FT_Fixed linear = face->glyph->linearHoriAdvance;  // 16.16
        glyphs++;
        if (dx != (FS_FIXED)(adv * 1024)) exactDiffs++;
        if (idx != (FS_SHORT)((adv + 32) >> 6)) roundedDiffs++;
        // The 26.6 advance is the linear one to the nearest 1/64 pixel.
        if (labs((long)dx - (long)linear) > 512) linearFar++;
        EXPECT_EQ(0, dy);
        EXPECT_EQ(0, idy);
      }
    }
    EXPECT_EQ(0, exactDiffs) << font;
    EXPECT_EQ(0, roundedDiffs) << font;
    EXPECT_EQ(0, linearFar) << font;
    printf("%s: %ld advances\n", font, glyphs);
    FSS_exit(&st);
    FT_Done_Face(face);
    FT_Done_FreeType(lib);
  }
}

}  // namespace
