// Reference lines measured once per scaled font from letters' outlines, the
// digits standing in for a missing alphabet, and fonts that are not measured.
#include <gtest/gtest.h>

#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_metrics.h"
#include "support/glyf_font.h"
#include "support/typeset_font.h"

namespace {

// Glyph extents times ppem * 64 / unitsPerEm, a negative half rounded up.
// DejaVu Sans (2048 units): BEHTZ 0..1493, "O" -29..1520, "wxyz" and "o"
// up to 1120 and 1147. Liberation Serif: BEHTZ 0..1341, "O" -20..1356,
// "wxyz" to 940, "o" to 964. Slots 6, 7 are the side-bearing steps the
// autohinter takes from "l" (-1: not pinned); U+062A's bottom is its dots'.
TEST(RefLines, PinnedForRealFonts) {
  const char* sans = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  const char* serif = "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf";
  const struct { const char* path; int ppem; F26DOT6 slot[8]; F26DOT6 arabic; } rows[] = {
      {sans, 12, {560, 570, 420, 430, 0, -11, 64, 64}, -7},
      {sans, 24, {1120, 1140, 840, 860, 0, -22, 128, 192}, -15},
      {sans, 72, {3359, 3420, 2520, 2581, 0, -65, -1, -1}, -45},
      {serif, 12, {503, 509, 353, 362, 0, -7, -1, -1}, 0},
      {serif, 24, {1006, 1017, 705, 724, 0, -15, -1, -1}, 0},
      {serif, 72, {3017, 3051, 2115, 2171, 0, -45, -1, -1}, 0},
  };
  const FS_ULONG flags = FLAGS_GRAYSCALE | FLAGS_CMAP_OFF | FLAGS_VERTICAL_ON;
  for (const auto& r : rows) {
    SCOPED_TRACE(std::string(r.path) + " at " + std::to_string(r.ppem));
    testsupport::TypesetFont f;
    f.st.flags = flags;
    ASSERT_EQ(f.open(r.path), 0) << "missing font " << r.path;
    ASSERT_EQ(f.setPpem(r.ppem), 0);
    SFNT* sfnt = f.st.cur_sfnt;
    sfnt->rtgah_suitable = 1;
    get_ref_lines(&f.st);
    for (int i = 0; i < 8; i++) {
      if (r.slot[i] >= 0 || i < 6) {
        EXPECT_EQ(sfnt->ref_lines[i], r.slot[i]) << i;
      }
    }
    EXPECT_GE(sfnt->ref_lines[7], 64);
    EXPECT_EQ(sfnt->ref_lines[52], 1);
    // A Latin order, and the autohinter took hold of "l".
    EXPECT_EQ(sfnt->rtgah_suitable, 1);
    // Of the other scripts only Arabic: slot 51, the bottom of U+062A.
    for (int i = 8; i < 52; i++) EXPECT_EQ(sfnt->ref_lines[i], i == 51 ? r.arabic : 0) << i;
    EXPECT_EQ(f.st.flags, flags);
    EXPECT_EQ(f.st.platform, 0xFFFF);
    EXPECT_EQ(f.st.encoding, 0xFFFF);
  }
}

// Only the digits 0, 1 and 7 (glyphs 1-3), with or without an OS/2 of Basic
// Latin and the given panose family (2: Latin text, 5: pictorial).
sfnt::Bytes digitFont(bool withOs2, int panoseFamily) {
  using glyffont::Pt;
  sfnt::Font f = glyffont::font(
      {{},
       glyffont::simple({3}, {Pt{0, -10, true}, Pt{400, -10, true}, Pt{400, 710, true},
                              Pt{0, 710, true}}),
       glyffont::simple({2}, {Pt{100, 0, true}, Pt{200, 0, true}, Pt{150, 700, true}}),
       glyffont::simple({2}, {Pt{0, 700, true}, Pt{400, 700, true}, Pt{100, -20, true}})});
  sfnt::Bytes cmap;
  for (uint32_t w : {0, 1, 3, 1, 0, 12, 0, 262, 0}) sfnt::u16(cmap, w);
  for (int c = 0; c < 256; c++) sfnt::u8(cmap, c == '0' ? 1 : c == '1' ? 2 : c == '7' ? 3 : 0);
  f.set("cmap", cmap);
  if (withOs2) {
    sfnt::Bytes os2(78, 0);
    os2[32] = (uint8_t)panoseFamily;
    sfnt::putU32(os2, 42, 1);
    f.set("OS/2", os2);
  }
  return sfnt::build(f);
}

TEST(RefLines, DigitsStandInForAMissingAlphabetOnlyInALatinTextFont) {
  // A unit is 6.4 in 26.6 at 100 pixels: "7" tops at 700 (4480), "1"
  // bottoms at 0, "0" spans -10..710 (-64, 4544); slots 2, 3 copy 0, 1.
  const struct { bool os2; int panose; bool measured; } rows[] = {
      {true, 2, true}, {false, 2, false}, {true, 5, false}};
  const F26DOT6 digits[8] = {4480, 4544, 4480, 4544, 0, -64, 0, 64};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.os2 ? r.panose : 0);
    testsupport::TypesetFont f;
    ASSERT_EQ(f.open("", digitFont(r.os2, r.panose)), 0);
    ASSERT_EQ(f.setPpem(100), 0);
    if (!r.measured) {
      ASSERT_EQ(FSS_set_cmap(&f.st, 3, 1), 0);
      f.st.flags = FLAGS_CMAP_OFF;
    }
    SFNT* sfnt = f.st.cur_sfnt;
    sfnt->rtgah_suitable = 1;
    get_ref_lines(&f.st);
    for (int i = 0; i < 8; i++) EXPECT_EQ(sfnt->ref_lines[i], r.measured ? digits[i] : 0) << i;
    EXPECT_EQ(sfnt->ref_lines[52], 1);
    EXPECT_EQ(sfnt->rtgah_suitable, 0);
    EXPECT_EQ(f.st.platform, r.measured ? 0xFFFF : 3);
    EXPECT_EQ(f.st.encoding, r.measured ? 0xFFFF : 1);
    EXPECT_EQ(f.st.flags, r.measured ? 0u : (FS_ULONG)FLAGS_CMAP_OFF);
    // Once per scaled font: a second call measures nothing.
    sfnt->ref_lines[0] = 5;
    get_ref_lines(&f.st);
    EXPECT_EQ(sfnt->ref_lines[0], 5);
  }
}

}  // namespace
