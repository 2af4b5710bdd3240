// Reference lines measured once per scaled font from letters' outlines, the
// digits standing in for a missing alphabet, and fonts that are not measured.
#include <gtest/gtest.h>

#include <filesystem>

#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_rtgah.h"
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
    for (int i = 0; i < 8; i++)
      EXPECT_TRUE((i >= 6 && r.slot[i] < 0) || sfnt->ref_lines[i] == r.slot[i]) << i;
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

// Only the digits 0, 1 and 7 (glyphs 1-3, a format 0 cmap), with or without
// an OS/2 of the given panose family (2: Latin text, 5: pictorial) and
// first Unicode range (Basic Latin).
sfnt::Bytes digitFont(bool withOs2, int panoseFamily, uint32_t range1 = 1) {
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
    sfnt::putU32(os2, 42, range1);
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

// Each block's ends give its script, the codes beside them another or 0;
// the OS/2 fallback names a script only when its bits name exactly one.
TEST(RefLines, ScriptsByCodeAndByRanges) {
  const struct { FS_ULONG first, last; FS_USHORT script; } blocks[] = {
      {0x20, 0x2AF, 1},     {0x1D00, 0x1D7F, 1},  {0x1E00, 0x1EFF, 1},  {0x2C60, 0x2C7F, 1},
      {0xA720, 0xA7FF, 1},  {0xFB00, 0xFB06, 1},  {0x370, 0x3FF, 2},    {0x1F00, 0x1FFF, 2},
      {0x2C80, 0x2CFF, 2},  {0x400, 0x52F, 3},    {0x2DE0, 0x2DFF, 3},  {0xA640, 0xA69F, 3},
      {0x590, 0x5FF, 4},    {0xFB1D, 0xFB4F, 4},  {0x600, 0x6FF, 5},    {0x750, 0x77F, 5},
      {0xFB50, 0xFDFF, 5},  {0xFE70, 0xFEFF, 5},  {0xAC00, 0xD7AF, 6},  {0x2E80, 0x2FD5, 7},
      {0x31C0, 0x31EF, 7},  {0x3400, 0x4DBF, 7},  {0x4E00, 0x9FFF, 7},  {0xF900, 0xF9FF, 7},
      {0x900, 0x97F, 8},    {0x980, 0x9FF, 9},    {0xA00, 0xA7F, 10},   {0xA80, 0xAFF, 19},
      {0xB00, 0xB7F, 15},   {0xB80, 0xBFF, 14},   {0xC00, 0xC7F, 11},   {0xC80, 0xCFF, 12},
      {0xD00, 0xD7F, 13},   {0xD80, 0xDFF, 16},   {0xE00, 0xE7F, 17},   {0x1780, 0x17FF, 18},
  };
  for (const auto& b : blocks) {
    EXPECT_EQ(script_of_code(b.first), b.script) << std::hex << b.first;
    EXPECT_EQ(script_of_code(b.last), b.script) << std::hex << b.last;
  }
  for (FS_ULONG gap : {0x1Fu, 0x2B0u, 0x530u, 0xE80u, 0x1D80u, 0x2FD6u, 0xFB07u, 0xFF00u})
    EXPECT_EQ(script_of_code(gap), 0) << std::hex << gap;
  const struct { FS_ULONG r1, r2, r3; FS_USHORT script; const char* why; } ranges[] = {
      {1u << 24, 0, 0, 17, "Thai alone"}, {(1u << 24) | 1, 0, 0, 17, "Latin bits count for nothing"},
      {1u << 24, 0, 8, 0, "Thai and Arabic"}, {1u << 13, 1u << 31, 8, 5, "three Arabic bits"},
      {0, 0x100000, 0, 6, "Hangul"}, {0, 0x8000000, 0, 7, "CJK"}, {1u << 22, 0, 0, 12, "Kannada"},
      {0, 0, 0x10000, 18, "Khmer"}, {1, 0, 0, 0, "none named"},
  };
  for (const auto& r : ranges) EXPECT_EQ(script_of_ranges(r.r1, r.r2, r.r3), r.script) << r.why;
  // Glyphs no Unicode maps: a built font takes its ranges (none without
  // OS/2), the first unmapped glyph of a Thai font Thai (of the scripts
  // that count, its ranges name Thai alone).
  const struct { sfnt::Bytes font; FS_USHORT script; } built[] = {
      {digitFont(true, 2, (1u << 24) | (1u << 13)), 0}, {digitFont(false, 2), 0},
      {digitFont(true, 2, 1u << 24), 17}};
  for (const auto& b : built) {
    testsupport::TypesetFont f;
    ASSERT_EQ(f.open("", b.font), 0);
    FS_ULONG code;
    EXPECT_EQ(which_script(&f.st, f.st.cur_typeset.tfntarray[0].cfnt->lfnt, 1, &code), b.script);
    EXPECT_EQ(code, 0xFFFFu);
  }
  testsupport::TypesetFont thai;
  ASSERT_EQ(thai.open("/usr/share/fonts/truetype/noto/NotoSansThai-Regular.ttf"), 0)
      << "missing font NotoSansThai-Regular.ttf";
  FS_ULONG code = 0;
  FS_USHORT script = 0;
  LFNT* lfnt = thai.st.cur_typeset.tfntarray[0].cfnt->lfnt;
  for (FS_ULONG g = 1; g < 1000 && code != 0xFFFF; g++) script = which_script(&thai.st, lfnt, g, &code);
  EXPECT_EQ(code, 0xFFFFu);
  EXPECT_EQ(script, 17);
}

// Every text face of the Debian families the feature vectors are drawn
// from keeps the autohinter (its letters in order, its "l" held) at 9, 12,
// 24 and 72 ppem; the symbol face (panose family 5) does not.
TEST(RefLines, TextFacesStaySuitable) {
  for (const char* dir : {"truetype/dejavu", "truetype/liberation2", "truetype/freefont",
                          "opentype/urw-base35", "opentype/cantarell", "opentype/ebgaramond"})
    for (const auto& e : std::filesystem::directory_iterator(std::string("/usr/share/fonts/") + dir)) {
      std::string path = e.path().string(), ext = e.path().extension().string();
      if (ext != ".ttf" && ext != ".otf") continue;
      bool symbol = path.find("StandardSymbolsPS") != std::string::npos;
      for (int ppem : {9, 12, 24, 72}) {
        testsupport::TypesetFont f;
        ASSERT_TRUE(f.open(path) == 0 && f.setPpem(ppem) == 0) << path;
        get_ref_lines(&f.st);
        EXPECT_EQ(f.st.cur_sfnt->rtgah_suitable, symbol ? 0 : 1) << path << " at " << ppem;
      }
    }
}

}  // namespace
