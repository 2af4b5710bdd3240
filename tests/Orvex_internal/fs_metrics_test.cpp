// Font metrics services: the FONT_METRICS record, line spacing, VDMX ratios,
// hdmx widths, the size that fits a height and design-unit glyph metrics.
#include <gtest/gtest.h>
#include <string.h>

#include <array>
#include <vector>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/sfnt_builder.h"
#include "support/typeset_font.h"

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
// Has both VDMX and hdmx; 1000 units per em, 259 glyphs.
const char kBlankenburg[] = "/usr/share/fonts/truetype/blankenburg/Blankenburg_UNZ1A.ttf";

// A value against its hand-read value, named by its expression.
struct Field { const char* name; long long got, want; };
#define F(got, want) Field{#got, (long long)(got), (long long)(want)}
void expectFields(std::initializer_list<Field> fields) {
  for (const Field& f : fields) EXPECT_EQ(f.got, f.want) << f.name;
}

TEST(FontMetrics, RecordsOfARealABuiltACffAndACollectionFont) {
  testsupport::TypesetFont none;
  FONT_METRICS fm;
  EXPECT_EQ(FSS_font_metrics(&none.st, &fm), ERR_NO_CURRENT_FONT);
  EXPECT_EQ(FSS_font_metrics(&none.st, nullptr), ERR_BAD_ARGUMENT);

  // The minimal font has no OS/2: its values are zeros, without an error.
  testsupport::TypesetFont b;
  ASSERT_EQ(b.open("", sfnt::build(sfnt::minimalGlyfFont())), 0);
  memset(&fm, 0x55, sizeof fm);
  ASSERT_EQ(FSS_font_metrics(&b.st, &fm), 0);
  expectFields({F(b.st.error, 0), F(fm.hhea_ascent, 800), F(fm.os2_win_ascent, 0),
                F(fm.os2_ascent, 0), F(fm.os2_fsSelection, 0), F(fm.embedding_bits, 0),
                F(fm.font_type, FONT_TYPE_TTF), F(fm.numFontsInTTC, 0)});
  EXPECT_STREQ(fm.copyright, "(c) nobody");

  testsupport::TypesetFont c;
  ASSERT_EQ(c.open("", sfnt::build(sfnt::minimalCffFont(7))), 0);
  ASSERT_EQ(FSS_font_metrics(&c.st, &fm), 0);
  expectFields({F(fm.font_type, FONT_TYPE_CFF), F(fm.numGlyphs, 7)});

  // Member 1 of a collection with 21 encoding records, of which 20 are kept.
  sfnt::Bytes cmap;
  for (uint32_t w : {0, 21}) sfnt::u16(cmap, w);
  for (uint32_t i = 0; i < 21; i++)
    for (uint32_t w : {3u, i, 0u, 4u + 8 * 21}) sfnt::u16(cmap, w);
  sfnt::Bytes sub = sfnt::cmap(12);
  cmap.insert(cmap.end(), sub.begin() + 12, sub.end());
  testsupport::TypesetFont t;
  ASSERT_EQ(t.open("", sfnt::buildCollection({sfnt::minimalGlyfFont(),
                                              sfnt::minimalGlyfFont().set("cmap", cmap)}), 1), 0);
  ASSERT_EQ(FSS_font_metrics(&t.st, &fm), 0);
  expectFields({F(fm.num_cmap_tables, 20), F(fm.mappings[19].platform, 3),
                F(fm.mappings[19].encoding, 19), F(fm.mappings[19].offset, 4 + 8 * 21),
                F(fm.font_type, FONT_TYPE_TTF | FONT_TYPE_TTC), F(fm.numFontsInTTC, 2),
                F(fm.indexInTTC, 1)});
}

TEST(LineSpacing, WindowsMetricsWhenPresentElseHhea) {
  // At 24 pixels a unit of 2048 is 768 in 16.16. Leading: hhea's ascender,
  // descender and line gap less the Windows pair, floored at 0.
  TTF_HEAD head = {};
  head.unitsPerEm = 2048;
  TTF_HHEA hhea = {};
  hhea.yAscender = 1901;
  hhea.yDescender = -483;
  hhea.yLineGap = 67;
  const struct { int winAscent, winDescent; bool os2; FS_FIXED a, d, l; FS_USHORT src; } rows[] = {
      {1901, 483, true, 1901 * 768, 483 * 768, 67 * 768, FsAscDescLeadSource_WIN_MAC_COMPAT},
      {2000, 483, true, 2000 * 768, 483 * 768, 0, FsAscDescLeadSource_WIN_MAC_COMPAT},
      {0, 0, true, 1901 * 768, 483 * 768, 67 * 768, FsAscDescLeadSource_TTF_HHEA},  // both 0
      {0, 0, false, 1901 * 768, 483 * 768, 67 * 768, FsAscDescLeadSource_TTF_HHEA},  // no OS/2
  };
  for (const auto& r : rows) {
    TTF_OS2 os2 = {};
    os2.usWinAscent = (FS_USHORT)r.winAscent;
    os2.usWinDescent = (FS_USHORT)r.winDescent;
    FS_FIXED a, d, l;
    FS_USHORT src;
    TTF_calc_ascender_descender_leading(r.os2 ? &os2 : nullptr, &hhea, &head, 24 << 16, &a,
                                        &d, &l, &src);
    SCOPED_TRACE(r.winAscent);
    expectFields({F(a, r.a), F(d, r.d), F(l, r.l), F(src, r.src)});
  }
}

TEST(LineSpacing, VdmxPairFirstThenOs2) {
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open(kBlankenburg), 0) << "missing font " << kBlankenburg;
  FS_FIXED a, d, l;
  FS_USHORT src;
  // 12 pixels: VDMX (10, -3); leading sTypoLineGap 44 * 12 / 1000 = 34603.008.
  ASSERT_EQ(LFNT_get_ascender_descender_leading(&f.st, f.lfnt(), 12 << 16, &a, &d, &l, &src), 0);
  expectFields({F(a, 10 << 16), F(d, 3 << 16), F(l, 34603),
                F(src, FsAscDescLeadSource_VDMX_TABLE)});
  // 7 pixels is below VDMX's 8..255: win 839, 257, leading 839 + 257 + 22 -
  // 1096 = 22, times 7 / 1000 pixel: 384892.928, 117899.264, 10092.544.
  ASSERT_EQ(LFNT_get_ascender_descender_leading(&f.st, f.lfnt(), 7 << 16, &a, &d, &l, &src), 0);
  expectFields({F(f.st.error, 0), F(a, 384893), F(d, 117899), F(l, 10093),
                F(src, FsAscDescLeadSource_WIN_MAC_COMPAT)});
}

// A font whose VDMX has the ratios (charset, x, start, end), each with sizes
// 8 to 40 of yMax = size and yMin = -(the ratio's number).
sfnt::Bytes fontWithVdmx(const std::vector<std::array<int, 4>>& ratios) {
  sfnt::Bytes v;
  uint32_t n = (uint32_t)ratios.size();
  for (uint32_t w : {1u, n, n}) sfnt::u16(v, w);
  for (const auto& r : ratios)
    for (int x : r) sfnt::u8(v, (uint32_t)x);
  for (uint32_t i = 0; i < n; i++) sfnt::u16(v, 6 + 6 * n + i * (4 + 6 * 33));
  for (uint32_t i = 0; i < n; i++) {
    sfnt::u16(v, 33);
    sfnt::u8(v, 8);
    sfnt::u8(v, 40);
    for (uint32_t s = 8; s <= 40; s++)
      for (uint32_t w : {s, s, (uint32_t)(-(int)i) & 0xFFFF}) sfnt::u16(v, w);
  }
  return sfnt::build(sfnt::minimalGlyfFont().set("VDMX", v));
}

TEST(Vdmx, RatiosMatchWithRemaindersOrAreRefused) {
  // "ranged": 2 : 1..3, then 0:0:0 for any. "half": 1 : 0..1 (y not given);
  // "square": 1 : 1..1 alone.
  const sfnt::Bytes ranged = fontWithVdmx({{{1, 2, 1, 3}}, {{1, 0, 0, 0}}});
  const sfnt::Bytes half = fontWithVdmx({{{1, 1, 0, 1}}, {{1, 0, 0, 0}}});
  const sfnt::Bytes square = fontWithVdmx({{{1, 1, 1, 1}}});
  const struct { const char* why; const sfnt::Bytes* font; int x, y; FS_LONG error; int yMin; }
      rows[] = {
          // y * 2 = 30 against 1 * 10 + 30 mod 1 = 10 and 3 * 10 + 30 mod 3 = 30
          {"x 10, y 16: 32 against 30 + 32 mod 3 = 32, the remainder admits", &ranged, 10, 16,
           0, 0},
          {"x 10, y 17: 34 against 30 + 34 mod 3 = 31, outside: 0:0:0", &ranged, 10, 17, 0, -1},
          {"above the group's 8..40", &ranged, 41, 41, ERR_VDMX_RECORD, 0},
          {"below the group's 8..40", &ranged, 7, 7, ERR_VDMX_RECORD, 0},
          {"x given, y not", &half, 12, 12, ERR_VDMX_RATIO, 0},
          {"no ratio matches", &square, 12, 30, ERR_VDMX_RATIO, 0},
      };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.why);
    testsupport::TypesetFont f;
    ASSERT_EQ(f.open("", *r.font), 0);
    FS_SHORT yMax = 0, yMin = 0;
    ASSERT_EQ(LFNT_get_vdmx_pair(&f.st, f.lfnt(), r.x, r.y, &yMax, &yMin), r.error);
    if (r.error == 0) expectFields({F(yMax, r.y), F(yMin, r.yMin)});
  }
  testsupport::TypesetFont none;
  ASSERT_EQ(none.open("", sfnt::build(sfnt::minimalGlyfFont())), 0);
  FS_SHORT yMax, yMin;
  EXPECT_EQ(LFNT_get_vdmx_pair(&none.st, none.lfnt(), 12, 12, &yMax, &yMin), ERR_TABLE_NOT_FOUND);
}

TEST(Hdmx, WidthsFromTheRecordOfTheSizeRememberedAndRefused) {
  // Blankenburg's records: 12 pixels 10, 0, 12, 4; 24 pixels 19, 0, 24, 8, 10,
  // 14; none for 18. The first answer's record, or its absence, is kept.
  const struct { int ppem; std::vector<std::array<int, 3>> asks; } sizes[] = {
      {12, {{2, 0, 12}, {3, 0, 4}}},
      // 259 glyphs: index 259 is refused while no record is remembered yet
      {24, {{259, ERR_BAD_GLYF_INDEX, -1}, {5, 0, 14}}},
      {18, {{3, ERR_HDMX_RECORD, 0}, {3, ERR_HDMX_RECORD, 0}}}};
  for (const auto& r : sizes) {
    testsupport::TypesetFont f;
    ASSERT_EQ(f.open(kBlankenburg), 0) << "missing font " << kBlankenburg;
    ASSERT_EQ(f.setPpem(r.ppem), 0);
    for (const auto& ask : r.asks) {
      FS_BYTE w = 99;
      EXPECT_EQ(SFNT_get_hdmx_width(&f.st, f.st.cur_sfnt, ask[0], &w), ask[1])
          << r.ppem << ": " << ask[0];
      EXPECT_TRUE(ask[2] < 0 || w == ask[2]) << r.ppem << ": " << ask[0] << " " << (int)w;
    }
  }
  testsupport::TypesetFont plain;
  FS_BYTE w;
  EXPECT_EQ(SFNT_get_hdmx_width(&plain.st, nullptr, 3, &w), ERR_NO_CURRENT_SFNT);
  ASSERT_EQ(plain.open(kDejaVuSans), 0);
  ASSERT_EQ(plain.setPpem(12), 0);
  EXPECT_EQ(SFNT_get_hdmx_width(&plain.st, plain.st.cur_sfnt, 3, &w), ERR_TABLE_NOT_FOUND);
}

TEST(FontHeight, PpemIsTheLargestWhoseRoundedWindowsHeightFits) {
  testsupport::TypesetFont f;
  EXPECT_EQ(FSS_get_ppem_size(&f.st, 30, 100), 100);
  EXPECT_EQ(f.st.error, (FS_ULONG)ERR_NO_CURRENT_FONT);
  ASSERT_EQ(f.open(kDejaVuSans), 0) << "missing font " << kDejaVuSans;
  // Win 1901 + 483 of 2048, each rounded: 27 pixels give 25 + 6, 26 give 24 + 6.
  EXPECT_EQ(FSS_get_ppem_size(&f.st, 30, 100), 26);
  EXPECT_EQ(FSS_get_ppem_size(&f.st, 30, 20), 20);
  EXPECT_EQ(FSS_get_ppem_size(&f.st, 0, 100), 1);
}

}  // namespace
