// Differential checks of the font metrics record and pair kerning against
// libfreetype, an independent engine used here as a test-only oracle: on
// every DejaVu and Liberation font, the raw `head`, `hhea` and `OS/2` fields
// and the glyph count of FONT_METRICS, every kerning pair unscaled, and the
// kerning at 24 pixels per em within 1/64 pixel.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H
#include FT_SFNT_NAMES_H
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_kern.h"
#include "Orvex_internal/fs_metrics.h"
#include "oracle/oracle_fonts.h"
#include "support/typeset_font.h"

namespace {

// Name `id` of the Windows English record, its UTF-16 units cut to bytes.
std::string windowsName(FT_Face face, FT_UShort id) {
  FT_UInt n = FT_Get_Sfnt_Name_Count(face);
  for (FT_UInt i = 0; i < n; i++) {
    FT_SfntName name;
    if (FT_Get_Sfnt_Name(face, i, &name) != 0) continue;
    if (name.platform_id != 3 || name.language_id != 0x409 || name.name_id != id)
      continue;
    std::string text;
    for (FT_UInt k = 1; k < name.string_len; k += 2) text += (char)name.string[k];
    return text;
  }
  return "";
}

class MetricsOracle : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(FT_Init_FreeType(&lib), 0);
    files = oracle::fontsIn({PACKAGED "dejavu", PACKAGED "liberation2"});
    ASSERT_FALSE(files.empty()) << "no DejaVu or Liberation fonts: install fonts-dejavu-core and fonts-liberation2";
  }
  void TearDown() override { FT_Done_FreeType(lib); }
  FT_Library lib = nullptr;
  std::vector<std::string> files;
};

TEST_F(MetricsOracle, FontMetricsRecordHoldsTheRawHeaderFields) {
  for (const std::string& path : files) {
    SCOPED_TRACE(path);
    FT_Face face;
    ASSERT_EQ(FT_New_Face(lib, path.c_str(), 0, &face), 0);
    TT_Header* head = (TT_Header*)FT_Get_Sfnt_Table(face, FT_SFNT_HEAD);
    TT_HoriHeader* hhea = (TT_HoriHeader*)FT_Get_Sfnt_Table(face, FT_SFNT_HHEA);
    TT_OS2* os2 = (TT_OS2*)FT_Get_Sfnt_Table(face, FT_SFNT_OS2);
    ASSERT_TRUE(head && hhea && os2);

    testsupport::TypesetFont f;
    ASSERT_EQ(f.open(path), 0);
    FONT_METRICS fm;
    ASSERT_EQ(FSS_font_metrics(&f.st, &fm), 0);
    // Each field as the record holds it and as the oracle reads it.
    const struct { const char* field; long ours, oracle; } fields[] = {
        {"unitsPerEm", fm.unitsPerEm, head->Units_Per_EM},
        {"metricsResolution", fm.metricsResolution, head->Units_Per_EM},
        {"head_macStyle", fm.head_macStyle, head->Mac_Style},
        {"xMin", fm.font_bbox.xMin, head->xMin}, {"yMin", fm.font_bbox.yMin, head->yMin},
        {"xMax", fm.font_bbox.xMax, head->xMax}, {"yMax", fm.font_bbox.yMax, head->yMax},
        {"hhea_ascent", fm.hhea_ascent, hhea->Ascender},
        {"hhea_descent", fm.hhea_descent, hhea->Descender},
        {"hhea_leading", fm.hhea_leading, (FS_USHORT)hhea->Line_Gap},
        {"os2_win_ascent", (FS_USHORT)fm.os2_win_ascent, os2->usWinAscent},
        {"os2_win_descent", (FS_USHORT)fm.os2_win_descent, os2->usWinDescent},
        {"os2_ascent", fm.os2_ascent, os2->sTypoAscender},
        {"os2_descent", fm.os2_descent, os2->sTypoDescender},
        {"os2_leading", fm.os2_leading, (FS_USHORT)os2->sTypoLineGap},
        {"os2_fsSelection", fm.os2_fsSelection, os2->fsSelection},
        {"embedding_bits", fm.embedding_bits, os2->fsType},
        {"numGlyphs", (long)fm.numGlyphs, face->num_glyphs},
        {"num_cmap_tables", fm.num_cmap_tables, std::min(face->num_charmaps, 20)}};
    for (const auto& x : fields) EXPECT_EQ(x.ours, x.oracle) << x.field;
    EXPECT_EQ(std::string(fm.font_family_name), windowsName(face, 1));
    EXPECT_EQ(std::string(fm.font_name), windowsName(face, 4));
    FT_Done_Face(face);
  }
}

TEST_F(MetricsOracle, KerningPairsEqualTheOraclesRawAndScaledValues) {
  long pairsSeen = 0;
  for (const std::string& path : files) {
    SCOPED_TRACE(path);
    FT_Face face;
    ASSERT_EQ(FT_New_Face(lib, path.c_str(), 0, &face), 0);
    ASSERT_EQ(FT_Set_Pixel_Sizes(face, 24, 24), 0);

    testsupport::TypesetFont f;
    ASSERT_EQ(f.open(path), 0);
    ASSERT_EQ(f.setPpem(24), 0);
    FS_ULONG count = kern_pair_count(&f.st, f.lfnt());
    EXPECT_EQ(count != 0, FT_HAS_KERNING(face) != 0);

    std::vector<FS_USHORT> lefts;
    for (FS_ULONG i = 0; i < count; i++) {
      FS_USHORT l, r;
      FS_SHORT v;
      kern_pair(f.lfnt(), i, &l, &r, &v);
      lefts.push_back(l);
      FT_Vector raw, fine;
      ASSERT_EQ(FT_Get_Kerning(face, l, r, FT_KERNING_UNSCALED, &raw), 0);
      ASSERT_EQ(FT_Get_Kerning(face, l, r, FT_KERNING_UNFITTED, &fine), 0);
      FS_FIXED dx, dy;
      f.st.flags |= FLAGS_KERN_UNSCALED;
      ASSERT_EQ(FSS_get_kerning(&f.st, l, r, &dx, &dy), 0);
      EXPECT_EQ(dx, raw.x) << l << " " << r;
      EXPECT_EQ(v, raw.x);
      f.st.flags &= ~FLAGS_KERN_UNSCALED;
      ASSERT_EQ(FSS_get_kerning(&f.st, l, r, &dx, &dy), 0);
      // 16.16 against 26.6: within 1/64 pixel, 1024 in 16.16.
      EXPECT_LE(std::abs(dx - fine.x * 1024), 1024) << l << " " << r;
      EXPECT_EQ(dy, 0);
      pairsSeen++;
    }
    // Pairs the table lacks: each left glyph against the first 64 glyphs.
    lefts.erase(std::unique(lefts.begin(), lefts.end()), lefts.end());
    f.st.flags |= FLAGS_KERN_UNSCALED;
    for (FS_USHORT l : lefts)
      for (FS_USHORT r = 0; r < 64 && r < face->num_glyphs; r++) {
        FT_Vector raw;
        ASSERT_EQ(FT_Get_Kerning(face, l, r, FT_KERNING_UNSCALED, &raw), 0);
        FS_FIXED dx, dy;
        ASSERT_EQ(FSS_get_kerning(&f.st, l, r, &dx, &dy), 0);
        EXPECT_EQ(dx, raw.x) << l << " " << r;
      }
    FT_Done_Face(face);
  }
  EXPECT_GT(pairsSeen, 20000);
}

}  // namespace
