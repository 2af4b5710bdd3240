// Font metrics services on real fonts and fonts built byte by byte: the
// FONT_METRICS record, line spacing from VDMX, OS/2 and hhea, VDMX ratio
// matching with its remainders, hdmx widths with the remembered record, the
// size that fits a height, design-unit glyph metrics and header records.
#include <gtest/gtest.h>

#include <string.h>

#include <array>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/sfnt_builder.h"
#include "support/typeset_font.h"

namespace {

const char* const kDejaVuSans = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
// Has both VDMX and hdmx; 1000 units per em, 259 glyphs.
const char* const kBlankenburg =
    "/usr/share/fonts/truetype/blankenburg/Blankenburg_UNZ1A.ttf";

TEST(FontMetrics, RecordOfARealFont) {
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open(kDejaVuSans), 0);
  FONT_METRICS fm;
  memset(&fm, 0x55, sizeof fm);
  ASSERT_EQ(FSS_font_metrics(&f.st, &fm), 0);
  EXPECT_EQ(fm.unitsPerEm, 2048);
  EXPECT_EQ(fm.metricsResolution, 2048);
  EXPECT_EQ(fm.head_macStyle, 0);
  EXPECT_EQ(fm.font_bbox.xMin, -2090);
  EXPECT_EQ(fm.font_bbox.yMin, -948);
  EXPECT_EQ(fm.font_bbox.xMax, 3673);
  EXPECT_EQ(fm.font_bbox.yMax, 2524);
  EXPECT_EQ(fm.os2_win_ascent, 1901);
  EXPECT_EQ(fm.os2_win_descent, 483);
  EXPECT_EQ(fm.os2_ascent, 1556);
  EXPECT_EQ(fm.os2_descent, -492);
  EXPECT_EQ(fm.os2_leading, 410);
  EXPECT_EQ(fm.os2_fsSelection, 64);  // REGULAR
  EXPECT_EQ(fm.hhea_ascent, 1901);
  EXPECT_EQ(fm.hhea_descent, -483);
  EXPECT_EQ(fm.hhea_leading, 0);
  EXPECT_EQ(fm.embedding_bits, 0);
  EXPECT_EQ(fm.font_type, FONT_TYPE_TTF);
  EXPECT_EQ(fm.numGlyphs, 6253u);
  EXPECT_EQ(fm.numIcons, 0u);
  EXPECT_EQ(fm.numFontsInTTC, 0u);
  // The cmap directory as the file lists it.
  ASSERT_EQ(fm.num_cmap_tables, 5);
  EXPECT_EQ(fm.mappings[0].platform, 0);
  EXPECT_EQ(fm.mappings[0].encoding, 3);
  EXPECT_EQ(fm.mappings[0].offset, 44u);
  EXPECT_EQ(fm.mappings[4].platform, 3);
  EXPECT_EQ(fm.mappings[4].encoding, 10);
  EXPECT_EQ(fm.mappings[4].offset, 3146u);
  EXPECT_STREQ(fm.font_name, "DejaVu Sans");
  EXPECT_STREQ(fm.font_family_name, "DejaVu Sans");
  EXPECT_EQ(strncmp(fm.copyright, "Copyright (c) 2003 by Bitstream", 31), 0);
  EXPECT_LE(strlen(fm.copyright), 2047u);
}

TEST(FontMetrics, FontWithoutOs2AndCffFontAndNoFont) {
  testsupport::TypesetFont none;
  FONT_METRICS fm;
  EXPECT_EQ(FSS_font_metrics(&none.st, &fm), ERR_NO_CURRENT_FONT);
  EXPECT_EQ(FSS_font_metrics(&none.st, nullptr), ERR_BAD_ARGUMENT);

  testsupport::TypesetFont f;
  ASSERT_EQ(f.open("", sfnt::build(sfnt::minimalGlyfFont())), 0);
  memset(&fm, 0x55, sizeof fm);
  ASSERT_EQ(FSS_font_metrics(&f.st, &fm), 0);
  EXPECT_EQ(f.st.error, 0u);
  EXPECT_EQ(fm.unitsPerEm, 1000);
  EXPECT_EQ(fm.hhea_ascent, 800);
  EXPECT_EQ(fm.hhea_descent, -200);
  EXPECT_EQ(fm.os2_win_ascent, 0);
  EXPECT_EQ(fm.os2_win_descent, 0);
  EXPECT_EQ(fm.os2_ascent, 0);
  EXPECT_EQ(fm.os2_fsSelection, 0);
  EXPECT_EQ(fm.embedding_bits, 0);
  EXPECT_EQ(fm.numGlyphs, 2u);
  EXPECT_EQ(fm.num_cmap_tables, 1);
  EXPECT_STREQ(fm.font_name, "Test Sans");
  EXPECT_STREQ(fm.font_family_name, "Test");
  EXPECT_STREQ(fm.copyright, "(c) nobody");

  testsupport::TypesetFont c;
  ASSERT_EQ(c.open("", sfnt::build(sfnt::minimalCffFont(7))), 0);
  ASSERT_EQ(FSS_font_metrics(&c.st, &fm), 0);
  EXPECT_EQ(fm.font_type, FONT_TYPE_CFF);
  EXPECT_EQ(fm.numGlyphs, 7u);
}

TEST(FontMetrics, CollectionMemberAndMoreThanTwentyCmapSubtables) {
  // 21 encoding records, all at one format-0 subtable.
  sfnt::Bytes cmap;
  sfnt::u16(cmap, 0);
  sfnt::u16(cmap, 21);
  for (int i = 0; i < 21; i++) {
    sfnt::u16(cmap, 3);
    sfnt::u16(cmap, (uint32_t)i);
    sfnt::u32(cmap, 4 + 8 * 21);
  }
  sfnt::u16(cmap, 0);
  sfnt::u16(cmap, 262);
  sfnt::u16(cmap, 0);
  for (int c = 0; c < 256; c++) sfnt::u8(cmap, c & 1);
  sfnt::Font a = sfnt::minimalGlyfFont();
  a.set("cmap", cmap);
  sfnt::Font b = sfnt::minimalGlyfFont();
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open("", sfnt::buildCollection({b, a}), 1), 0);
  FONT_METRICS fm;
  ASSERT_EQ(FSS_font_metrics(&f.st, &fm), 0);
  EXPECT_EQ(fm.num_cmap_tables, 20);
  EXPECT_EQ(fm.mappings[19].encoding, 19);
  EXPECT_EQ(fm.font_type, FONT_TYPE_TTF | FONT_TYPE_TTC);
  EXPECT_EQ(fm.numFontsInTTC, 2u);
  EXPECT_EQ(fm.indexInTTC, 1u);
}

TEST(FontMetrics, HeaderRecordsOfTheCurrentFont) {
  testsupport::TypesetFont f;
  TTF_HEAD head;
  EXPECT_EQ(FSS_get_table_structure(&f.st, TAG_head, &head), ERR_NO_CURRENT_FONT);
  ASSERT_EQ(f.open("", sfnt::build(sfnt::minimalGlyfFont())), 0);
  ASSERT_EQ(FSS_get_table_structure(&f.st, TAG_head, &head), 0);
  EXPECT_EQ(head.unitsPerEm, 1000);
  EXPECT_EQ(head.yMin, -200);
  TTF_MAXP maxp;
  ASSERT_EQ(FSS_get_table_structure(&f.st, TAG_maxp, &maxp), 0);
  EXPECT_EQ(maxp.numGlyphs, 2);
  TTF_OS2 os2;
  EXPECT_EQ(FSS_get_table_structure(&f.st, TAG_OS2, &os2), ERR_TABLE_NOT_FOUND);
  EXPECT_EQ(FSS_get_table_structure(&f.st, TAG_glyf, &os2), ERR_BAD_ARGUMENT);
  EXPECT_EQ(FSS_get_table_structure(&f.st, TAG_head, nullptr), ERR_BAD_ARGUMENT);
}

TEST(LineSpacing, WindowsMetricsWhenPresentElseHhea) {
  TTF_HEAD head = {};
  head.unitsPerEm = 2048;
  TTF_HHEA hhea = {};
  hhea.yAscender = 1901;
  hhea.yDescender = -483;
  hhea.yLineGap = 67;
  TTF_OS2 os2 = {};
  os2.usWinAscent = 1901;
  os2.usWinDescent = 483;
  FS_FIXED a, d, l;
  FS_USHORT src;
  // At 24 pixels a font unit is 24 / 2048 pixel, 768 in 16.16.
  TTF_calc_ascender_descender_leading(&os2, &hhea, &head, 24 << 16, &a, &d, &l,
                                      &src);
  EXPECT_EQ(a, 1901 * 768);
  EXPECT_EQ(d, 483 * 768);
  EXPECT_EQ(l, 67 * 768);  // 1901 + 483 + 67 - (1901 + 483)
  EXPECT_EQ(src, FsAscDescLeadSource_WIN_MAC_COMPAT);

  os2.usWinAscent = 2000;  // beyond the hhea spacing: leading floored at 0
  TTF_calc_ascender_descender_leading(&os2, &hhea, &head, 24 << 16, &a, &d, &l,
                                      &src);
  EXPECT_EQ(a, 2000 * 768);
  EXPECT_EQ(l, 0);

  os2.usWinAscent = os2.usWinDescent = 0;  // both zero: hhea
  TTF_calc_ascender_descender_leading(&os2, &hhea, &head, 24 << 16, &a, &d, &l,
                                      &src);
  EXPECT_EQ(src, FsAscDescLeadSource_TTF_HHEA);
  EXPECT_EQ(a, 1901 * 768);
  EXPECT_EQ(d, 483 * 768);
  EXPECT_EQ(l, 67 * 768);
  TTF_calc_ascender_descender_leading(nullptr, &hhea, &head, 24 << 16, &a, &d,
                                      &l, &src);
  EXPECT_EQ(src, FsAscDescLeadSource_TTF_HHEA);
}

TEST(LineSpacing, VdmxPairFirstThenOs2) {
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open(kBlankenburg), 0);
  FS_FIXED a, d, l;
  FS_USHORT src;
  // 12 pixels: the VDMX record (12, 10, -3); leading sTypoLineGap 44 scaled:
  // 44 * 12 / 1000 pixels = 34603.008 in 16.16, rounded 34603.
  ASSERT_EQ(LFNT_get_ascender_descender_leading(&f.st, f.lfnt(), 12 << 16, &a,
                                                &d, &l, &src), 0);
  EXPECT_EQ(a, 10 << 16);
  EXPECT_EQ(d, 3 << 16);
  EXPECT_EQ(l, 34603);
  EXPECT_EQ(src, FsAscDescLeadSource_VDMX_TABLE);
  // 7 pixels lies below the group's sizes (8 to 255): usWinAscent 839,
  // usWinDescent 257, leading 839 + 257 + 22 - 1096 = 22, each times
  // 7 / 1000 pixel: 384892.928, 117899.264, 10092.544 in 16.16.
  ASSERT_EQ(LFNT_get_ascender_descender_leading(&f.st, f.lfnt(), 7 << 16, &a,
                                                &d, &l, &src), 0);
  EXPECT_EQ(f.st.error, 0u);
  EXPECT_EQ(a, 384893);
  EXPECT_EQ(d, 117899);
  EXPECT_EQ(l, 10093);
  EXPECT_EQ(src, FsAscDescLeadSource_WIN_MAC_COMPAT);
}

TEST(LineSpacing, OverTheSetAtTheClientsSize) {
  testsupport::TypesetFont f;
  FS_FIXED a, d, l;
  FS_USHORT src;
  EXPECT_EQ(FSS_get_ascender_descender_leading(&f.st, &a, &d, &l, &src),
            ERR_NO_CURRENT_FONT);
  ASSERT_EQ(f.open(kDejaVuSans), 0);
  // No scale yet: all zero, no error.
  EXPECT_EQ(FSS_get_ascender_descender_leading(&f.st, &a, &d, &l, &src), 0);
  EXPECT_EQ(a, 0);
  EXPECT_EQ(src, 0);
  ASSERT_EQ(f.setPpem(24), 0);
  ASSERT_EQ(FSS_get_ascender_descender_leading(&f.st, &a, &d, &l, &src), 0);
  EXPECT_EQ(a, 1901 * 768);
  EXPECT_EQ(d, 483 * 768);
  EXPECT_EQ(l, 0);
  EXPECT_EQ(src, FsAscDescLeadSource_WIN_MAC_COMPAT);
  // A shift of 2 pixels raises the ascender and lowers the descender.
  f.st.cur_typeset.tfntarray[0].sfnt->vertical_shift = 2;
  ASSERT_EQ(FSS_get_ascender_descender_leading(&f.st, &a, &d, &l, &src), 0);
  EXPECT_EQ(a, 1901 * 768 + (2 << 16));
  EXPECT_EQ(d, 483 * 768 - (2 << 16));
}

// A memory font whose VDMX has the given ratio records (charset, x, start,
// end), each pointing at one group of sizes 8 to 40, yMax = size and
// yMin = -ratio number.
sfnt::Bytes fontWithVdmx(const std::vector<std::array<int, 4>>& ratios) {
  sfnt::Bytes v;
  sfnt::u16(v, 1);
  sfnt::u16(v, (uint32_t)ratios.size());
  sfnt::u16(v, (uint32_t)ratios.size());
  for (const auto& r : ratios)
    for (int x : r) sfnt::u8(v, (uint32_t)x);
  size_t groups = 6 + 6 * ratios.size();
  for (size_t i = 0; i < ratios.size(); i++)
    sfnt::u16(v, (uint32_t)(groups + i * (4 + 6 * 33)));
  for (size_t i = 0; i < ratios.size(); i++) {
    sfnt::u16(v, 33);
    sfnt::u8(v, 8);
    sfnt::u8(v, 40);
    for (int s = 8; s <= 40; s++) {
      sfnt::u16(v, (uint32_t)s);
      sfnt::u16(v, (uint32_t)s);
      sfnt::u16(v, (uint32_t)(-(int)i) & 0xFFFF);
    }
  }
  sfnt::Font font = sfnt::minimalGlyfFont();
  font.set("VDMX", v);
  return sfnt::build(font);
}

TEST(Vdmx, RatioMatchingWithRemainders) {
  testsupport::TypesetFont f;
  // Ratio 0: 2 : 1..3 (y from half x to one and a half x); ratio 1: 0:0:0.
  ASSERT_EQ(f.open("", fontWithVdmx({{{1, 2, 1, 3}}, {{1, 0, 0, 0}}})), 0);
  FS_SHORT yMax = 0, yMin = 0;
  // x 10, y 15: 15 * 2 = 30 against 1 * 10 + 30 mod 1 = 10 and
  // 3 * 10 + 30 mod 3 = 30: inside, ratio 0.
  ASSERT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 10, 15, &yMax, &yMin), 0);
  EXPECT_EQ(yMax, 15);
  EXPECT_EQ(yMin, 0);
  // x 10, y 16: 32 against 3 * 10 + 32 mod 3 = 32: the remainder admits it.
  ASSERT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 10, 16, &yMax, &yMin), 0);
  EXPECT_EQ(yMin, 0);
  // x 10, y 17: 34 against 30 + 34 mod 3 = 31: outside; 0:0:0 takes it.
  ASSERT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 10, 17, &yMax, &yMin), 0);
  EXPECT_EQ(yMax, 17);
  EXPECT_EQ(yMin, -1);
  // x 20, y 9: 18 against 1 * 20 + 18 mod 1 = 20: below; 0:0:0 again.
  ASSERT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 20, 9, &yMax, &yMin), 0);
  EXPECT_EQ(yMin, -1);
  // Sizes outside the group's 8..40.
  EXPECT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 41, 41, &yMax, &yMin),
            ERR_VDMX_RECORD);
  EXPECT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 7, 7, &yMax, &yMin),
            ERR_VDMX_RECORD);
}

TEST(Vdmx, HalfGivenRatioNoMatchAndNoTable) {
  FS_SHORT yMax, yMin;
  testsupport::TypesetFont half;
  ASSERT_EQ(half.open("", fontWithVdmx({{{1, 1, 0, 1}}, {{1, 0, 0, 0}}})), 0);
  EXPECT_EQ(LFNT_get_vdmx_pair(&half.st, half.lfnt(), 12, 12, &yMax, &yMin),
            ERR_VDMX_RATIO);
  testsupport::TypesetFont square;
  ASSERT_EQ(square.open("", fontWithVdmx({{{1, 1, 1, 1}}})), 0);
  EXPECT_EQ(LFNT_get_vdmx_pair(&square.st, square.lfnt(), 12, 12, &yMax, &yMin), 0);
  EXPECT_EQ(LFNT_get_vdmx_pair(&square.st, square.lfnt(), 12, 30, &yMax, &yMin),
            ERR_VDMX_RATIO);
  testsupport::TypesetFont none;
  ASSERT_EQ(none.open("", sfnt::build(sfnt::minimalGlyfFont())), 0);
  EXPECT_EQ(LFNT_get_vdmx_pair(&none.st, none.lfnt(), 12, 12, &yMax, &yMin),
            ERR_TABLE_NOT_FOUND);
}

TEST(Vdmx, RealFontSquareAndAnyRatio) {
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open(kBlankenburg), 0);
  FS_SHORT yMax, yMin;
  // Ratio 1:1:1 for square sizes, group at 18; 1:0:0:0 for all others.
  ASSERT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 24, 24, &yMax, &yMin), 0);
  EXPECT_EQ(yMax, 20);
  EXPECT_EQ(yMin, -6);
  ASSERT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 72, 72, &yMax, &yMin), 0);
  EXPECT_EQ(yMax, 60);
  EXPECT_EQ(yMin, -18);
  ASSERT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 10, 20, &yMax, &yMin), 0);
  EXPECT_EQ(yMax, 17);
  EXPECT_EQ(yMin, -5);
  EXPECT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), 300, 300, &yMax, &yMin),
            ERR_VDMX_RECORD);
  // Through the scaled font, with its vertical shift added to both.
  ASSERT_EQ(f.setPpem(12), 0);
  f.st.cur_sfnt->vertical_shift = 1;
  ASSERT_EQ(FSS_get_vdmx_pair(&f.st, &yMax, &yMin), 0);
  EXPECT_EQ(yMax, 11);
  EXPECT_EQ(yMin, -2);
}

TEST(Hdmx, WidthsFromTheRecordOfTheSizeThenRemembered) {
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open(kBlankenburg), 0);
  ASSERT_EQ(f.setPpem(12), 0);
  SFNT* sfnt = f.st.cur_sfnt;
  FS_BYTE w = 99;
  // The 12-pixel record: widths 10, 0, 12, 4 for glyphs 0 to 3.
  ASSERT_EQ(SFNT_get_hdmx_width(&f.st, sfnt, 2, &w), 0);
  EXPECT_EQ(w, 12);
  FS_ULONG remembered = sfnt->senv->hdmx_group_offset;
  EXPECT_NE(remembered, 0u);
  EXPECT_NE(remembered, 0xFFFFFFFFu);
  ASSERT_EQ(SFNT_get_hdmx_width(&f.st, sfnt, 0, &w), 0);
  EXPECT_EQ(w, 10);
  ASSERT_EQ(SFNT_get_hdmx_width(&f.st, sfnt, 3, &w), 0);
  EXPECT_EQ(w, 4);
  EXPECT_EQ(sfnt->senv->hdmx_group_offset, remembered);

  testsupport::TypesetFont g;
  ASSERT_EQ(g.open(kBlankenburg), 0);
  ASSERT_EQ(g.setPpem(24), 0);
  EXPECT_EQ(SFNT_get_hdmx_width(&g.st, g.st.cur_sfnt, 259, &w),
            ERR_BAD_GLYF_INDEX);
  ASSERT_EQ(SFNT_get_hdmx_width(&g.st, g.st.cur_sfnt, 5, &w), 0);
  EXPECT_EQ(w, 14);  // 24-pixel record: 19, 0, 24, 8, 10, 14
}

TEST(Hdmx, NoRecordForTheSizeIsRememberedAndErrorsAreNamed) {
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open(kBlankenburg), 0);
  // Records exist for 9..17, 19, 21, ...: none for 18.
  ASSERT_EQ(f.setPpem(18), 0);
  SFNT* sfnt = f.st.cur_sfnt;
  FS_BYTE w = 99;
  EXPECT_EQ(SFNT_get_hdmx_width(&f.st, sfnt, 3, &w), ERR_HDMX_RECORD);
  EXPECT_EQ(w, 0);
  EXPECT_EQ(sfnt->senv->hdmx_group_offset, 0xFFFFFFFFu);
  EXPECT_EQ(SFNT_get_hdmx_width(&f.st, sfnt, 3, &w), ERR_HDMX_RECORD);

  EXPECT_EQ(SFNT_get_hdmx_width(&f.st, nullptr, 3, &w), ERR_NO_CURRENT_SFNT);
  testsupport::TypesetFont plain;
  ASSERT_EQ(plain.open(kDejaVuSans), 0);
  ASSERT_EQ(plain.setPpem(12), 0);
  EXPECT_EQ(SFNT_get_hdmx_width(&plain.st, plain.st.cur_sfnt, 3, &w),
            ERR_TABLE_NOT_FOUND);
}

TEST(PpemSize, LargestSizeWhoseLineFitsTheHeight) {
  testsupport::TypesetFont f;
  EXPECT_EQ(FSS_get_ppem_size(&f.st, 30, 100), 100);
  EXPECT_EQ(f.st.error, (FS_ULONG)ERR_NO_CURRENT_FONT);
  ASSERT_EQ(f.open(kDejaVuSans), 0);
  // Win ascent 1901, descent 483 of 2048, rounded to pixels: at 27 pixels
  // 25.06 + 6.37 give 25 + 6 = 31; at 26, 24.13 + 6.13 give 24 + 6 = 30.
  EXPECT_EQ(FSS_get_ppem_size(&f.st, 30, 100), 26);
  EXPECT_EQ(FSS_get_ppem_size(&f.st, 30, 20), 20);
  EXPECT_EQ(FSS_get_ppem_size(&f.st, 0, 100), 1);

  FS_LONG a, d;
  CFNT* cfnt = &f.st.cur_typeset.fntset->cfnt[0];
  ASSERT_EQ(CFNT_get_font_height(&f.st, f.st.cur_typeset.fntset, cfnt, 26, &a,
                                 &d), 0);
  EXPECT_EQ(a, 24);
  EXPECT_EQ(d, 6);
}

TEST(GlyphMetrics, DesignUnitsOfAGlyphAndOutOfRange) {
  testsupport::TypesetFont f;
  FS_SHORT lsb, tsb;
  FS_USHORT aw, ah;
  ASSERT_EQ(f.open(kDejaVuSans), 0);
  EXPECT_EQ(FSS_get_glyph_metrics(&f.st, 36, &lsb, &aw, &tsb, &ah),
            ERR_NO_CURRENT_SFNT);
  ASSERT_EQ(f.setPpem(12), 0);
  // "A" (glyph 36): hmtx gives advance 1401, left side bearing 16.
  ASSERT_EQ(FSS_get_glyph_metrics(&f.st, 36, &lsb, &aw, &tsb, &ah), 0);
  EXPECT_EQ(aw, 1401);
  EXPECT_EQ(lsb, 16);
  aw = 7;
  ASSERT_EQ(FSS_get_glyph_metrics(&f.st, 6253, &lsb, &aw, &tsb, &ah), 0);
  EXPECT_EQ(aw, 0);
  EXPECT_EQ(lsb, 0);
  EXPECT_EQ(f.st.error, 0u);
}

}  // namespace
