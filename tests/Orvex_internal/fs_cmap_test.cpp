// Character mapping: the subtable readers on hand-built tables (the values
// worked out from the format rules in the comments), malformed tables that
// must read as empty without leaving their bytes (also run under the
// sanitizers), and the client calls on real Debian fonts: cmap choice and
// substitution, the cache, coverage masks, glyph-index mode, a set of two
// components, variation selectors and the inverse mapping.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_typeset.h"
#include "engine_fixture.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

using sfnt::Bytes;

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const char kNotoHebrew[] =
    "/usr/share/fonts/truetype/noto/NotoSansHebrew-Regular.ttf";

struct Segment {
  uint32_t start, end, delta, rangeOffset;
};

// A format 4 subtable of the given segments, with `glyphs` behind the
// idRangeOffset array (byte 16 + 8 * segCount).
Bytes format4(const std::vector<Segment>& segs,
              const std::vector<uint32_t>& glyphs, uint32_t selector) {
  Bytes b;
  uint32_t n = (uint32_t)segs.size();
  sfnt::u16(b, 4);
  sfnt::u16(b, 16 + 8 * n + 2 * (uint32_t)glyphs.size());
  sfnt::u16(b, 0);
  sfnt::u16(b, 2 * n);
  sfnt::u16(b, 0);  // searchRange and rangeShift are not read
  sfnt::u16(b, selector);
  sfnt::u16(b, 0);
  for (auto& s : segs) sfnt::u16(b, s.end);
  sfnt::u16(b, 0);
  for (auto& s : segs) sfnt::u16(b, s.start);
  for (auto& s : segs) sfnt::u16(b, s.delta);
  for (auto& s : segs) sfnt::u16(b, s.rangeOffset);
  for (uint32_t g : glyphs) sfnt::u16(b, g);
  return b;
}

// Four segments: bytes 14 ends, 24 starts, 32 deltas, 40 idRangeOffsets,
// 48 glyph words.
// - 0x20..0x22 with delta 0xFFF0 (-16): 0x20 -> 16, wrapping at 16 bits.
// - 0x41..0x43 with delta 5 and idRangeOffset 6: from its place at byte 42
//   the words start at 48: 0x41 -> 20 + 5, 0x42 -> 0 (a zero word stays 0),
//   0x43 -> 22 + 5.
// - 0x50 with delta 7 and idRangeOffset 1, which counts as 0: 0x57.
// - the closing 0xFFFF segment with delta 1.
Bytes sampleFormat4() {
  return format4({{0x20, 0x22, 0xFFF0, 0},
                  {0x41, 0x43, 5, 6},
                  {0x50, 0x50, 7, 1},
                  {0xFFFF, 0xFFFF, 1, 0}},
                 {20, 0, 22}, 2);
}

FS_USHORT map4(const Bytes& b, FS_ULONG id, size_t avail = 0) {
  return map_char_4(b.data(), (FS_ULONG)(avail ? avail : b.size()), id);
}

TEST(CmapFormat4, SegmentsMapByDeltaOrGlyphWords) {
  Bytes b = sampleFormat4();
  EXPECT_EQ(map4(b, 0x20), 16);
  EXPECT_EQ(map4(b, 0x22), 18);
  EXPECT_EQ(map4(b, 0x41), 25);
  EXPECT_EQ(map4(b, 0x42), 0);
  EXPECT_EQ(map4(b, 0x43), 27);
  EXPECT_EQ(map4(b, 0x50), 0x57);
  // Codes before a segment's start, and 0xFFFF through the sentinel.
  EXPECT_EQ(map4(b, 0x1F), 0);
  EXPECT_EQ(map4(b, 0x30), 0);
  EXPECT_EQ(map4(b, 0xFFFF), 0);
}

TEST(CmapFormat4, StoredEntrySelectorDrivesTheSearch) {
  // Eight one-code segments 0x10, 0x20, ... 0x80. With the right selector
  // (3: range 8 = segCount, halved to 4) every code is found. A selector of
  // 0 gives range 1: endCode[1] = 0x20 is below 0x40, so the search starts
  // at 8 - 1 - 1 = 6 and the scan from there lands on 0x70, which starts
  // above 0x40: 0.
  std::vector<Segment> segs;
  for (uint32_t i = 1; i <= 8; i++) segs.push_back({i * 16, i * 16, 100, 0});
  for (uint32_t i = 1; i <= 8; i++)
    EXPECT_EQ(map4(format4(segs, {}, 3), i * 16), i * 16 + 100);
  EXPECT_EQ(map4(format4(segs, {}, 0), 0x40), 0);
  EXPECT_EQ(map4(format4(segs, {}, 0), 0x10), 0x10 + 100);
  // A selector beyond the unrolled steps goes to the linear scan.
  EXPECT_EQ(map4(format4(segs, {}, 15), 0x40), 0x40 + 100);
}

TEST(CmapFormat4, TruncatedTablesReadAsEmptyOrStopAtTheirEnd) {
  Bytes b = sampleFormat4();
  // The idRangeOffset array ends at byte 48: 46 bytes cannot hold it.
  EXPECT_EQ(map4(b, 0x20, 46), 0);
  // 50 bytes hold the first glyph word only.
  EXPECT_EQ(map4(b, 0x41, 50), 25);
  EXPECT_EQ(map4(b, 0x43, 50), 0);
  // A segment count pointing far past the table.
  Bytes big = b;
  sfnt::putU16(big, 6, 0xFFFE);
  EXPECT_EQ(map4(big, 0x20), 0);
  EXPECT_EQ(inverse_map_char_4(big.data(), (FS_ULONG)big.size(), 16), 0xFFFFu);
  // An idRangeOffset pointing past the table.
  Bytes far = b;
  sfnt::putU16(far, 42, 0xFFF0);
  EXPECT_EQ(map4(far, 0x41), 0);
  EXPECT_EQ(map_char_4(b.data(), 10, 0x20), 0);
}

TEST(CmapFormat4, InverseFindsTheFirstCodeOfAGlyph) {
  Bytes b = sampleFormat4();
  const FS_BYTE* p = b.data();
  FS_ULONG n = (FS_ULONG)b.size();
  EXPECT_EQ(inverse_map_char_4(p, n, 16), 0x20u);   // 16 + 16, wrapped
  EXPECT_EQ(inverse_map_char_4(p, n, 25), 0x41u);   // word 20 + delta 5
  EXPECT_EQ(inverse_map_char_4(p, n, 27), 0x43u);
  EXPECT_EQ(inverse_map_char_4(p, n, 0x57), 0x50u);
  EXPECT_EQ(inverse_map_char_4(p, n, 20), 0xFFFFu); // a raw word is no glyph
  EXPECT_EQ(inverse_map_char_4(p, n, 0), 0u);
  EXPECT_EQ(inverse_map_char_4(nullptr, 0, 5), 0u);
}

Bytes format12(const std::vector<std::vector<uint32_t>>& groups) {
  Bytes b;
  sfnt::u16(b, 12);
  sfnt::u16(b, 0);
  sfnt::u32(b, 16 + 12 * (uint32_t)groups.size());
  sfnt::u32(b, 0);
  sfnt::u32(b, (uint32_t)groups.size());
  for (auto& g : groups)
    for (uint32_t v : g) sfnt::u32(b, v);
  return b;
}

TEST(CmapFormat12, GroupsMapInsideTheirRangeInAnyPlane) {
  // Glyph starts out of glyph order on purpose (3, 2500, 900).
  Bytes b = format12({{0x20, 0x7E, 3}, {0x10000, 0x1000F, 2500},
                      {0x1F600, 0x1F64F, 900}});
  const FS_BYTE* p = b.data();
  FS_ULONG n = (FS_ULONG)b.size();
  EXPECT_EQ(map_char_12(p, n, 0x41), 3 + 0x21);
  EXPECT_EQ(map_char_12(p, n, 0x7F), 0);
  EXPECT_EQ(map_char_12(p, n, 0x10005), 2505);
  EXPECT_EQ(map_char_12(p, n, 0x1F610), 916);
  EXPECT_EQ(map_char_12(p, n, 0x1F650), 0);  // past the last group
  EXPECT_EQ(map_char_12(p, n, 0x1F), 0);
  EXPECT_EQ(inverse_map_char_12(p, n, 36), 0x41u);
  EXPECT_EQ(inverse_map_char_12(p, n, 916), 0x1F610u);
  EXPECT_EQ(inverse_map_char_12(p, n, 2505), 0x10005u);
  EXPECT_EQ(inverse_map_char_12(p, n, 2), 0xFFFFu);
  // A group count that the table can't hold reads as empty.
  Bytes big = b;
  sfnt::putU32(big, 12, 0x20000000);
  EXPECT_EQ(map_char_12(big.data(), n, 0x41), 0);
  EXPECT_EQ(inverse_map_char_12(big.data(), n, 36), 0xFFFFu);
}

TEST(CmapFormat2, TakesTheSubheaderByTheHighByteNotTheKeys) {
  // Words from byte 518: w0..w9 = 0x20, 3, 0, 2, 5, 6, 7, 8, 0, 40. The
  // high byte 0 reads w0..w3: codes 0x20..0x22, delta 0, glyph words from
  // w3's place + 2 bytes = w4: 0x21 -> w5 = 6. The high byte 2 reads
  // w2..w5: first 0, count 2, delta 5, idRangeOffset 6: 0x0201 -> the word
  // 6 / 2 + 3 + 1 = 7 words after w2, w9 = 40, plus 5. subHeaderKeys (all
  // 0x10 here) are not consulted.
  Bytes b;
  sfnt::u16(b, 2);
  sfnt::u16(b, 538);
  sfnt::u16(b, 0);
  for (int i = 0; i < 256; i++) sfnt::u16(b, 0x10);
  for (uint32_t w : {0x20, 3, 0, 2, 5, 6, 7, 8, 0, 40}) sfnt::u16(b, w);
  const FS_BYTE* p = b.data();
  FS_ULONG n = (FS_ULONG)b.size();
  EXPECT_EQ(map_char_2(p, n, 0x21), 6);
  EXPECT_EQ(map_char_2(p, n, 0x22), 7);
  EXPECT_EQ(map_char_2(p, n, 0x23), 0);  // index 3 is not below count 3
  EXPECT_EQ(map_char_2(p, n, 0x0201), 45);
  EXPECT_EQ(map_char_2(p, n, 0x0202), 0);  // count 2
  EXPECT_EQ(map_char_2(p, n, 0x0300), 0);  // w3..w6: count 5, word w12 absent
  EXPECT_EQ(map_char_2(p, 520, 0x21), 0);  // subheader cut off
}

TEST(CmapFormat5, SignedLengthsChooseDeltaOrGlyphArray) {
  // Two segments: ends 0x41 and 0x62 at 14, the signed bytes 3 and -2 at
  // 18, the words 100 and 2 at 20, glyph words 70, 71 at 24.
  // 3: codes 0x3F..0x41 map to id + 100. -2: start 0x62 - 2 + 1 = 0x61; the
  // word at byte 22 points 2 bytes on: 0x61 -> 70, 0x62 -> 71.
  Bytes b;
  sfnt::u16(b, 5);
  sfnt::u16(b, 28);
  sfnt::u16(b, 0);
  sfnt::u16(b, 4);  // two segments
  sfnt::u16(b, 4);
  sfnt::u16(b, 1);  // entrySelector
  sfnt::u16(b, 0);
  sfnt::u16(b, 0x41);
  sfnt::u16(b, 0x62);
  sfnt::u8(b, 3);
  sfnt::u8(b, 0xFE);
  sfnt::u16(b, 100);
  sfnt::u16(b, 2);
  sfnt::u16(b, 70);
  sfnt::u16(b, 71);
  const FS_BYTE* p = b.data();
  FS_ULONG n = (FS_ULONG)b.size();
  EXPECT_EQ(map_char_5(p, n, 0x3F), 0x3F + 100);
  EXPECT_EQ(map_char_5(p, n, 0x41), 0x41 + 100);
  EXPECT_EQ(map_char_5(p, n, 0x3E), 0);
  EXPECT_EQ(map_char_5(p, n, 0x61), 70);
  EXPECT_EQ(map_char_5(p, n, 0x62), 71);
  EXPECT_EQ(map_char_5(p, n, 0x60), 0);
  EXPECT_EQ(map_char_5(p, n, 0x63), 0);
  EXPECT_EQ(map_char_5(p, 26, 0x62), 0);   // its glyph word cut off
  EXPECT_EQ(map_char_5(p, 22, 0x3F), 0);   // the words cut off: empty
}

TEST(CmapSmallFormats, ByteArrayAndTrimmedArray) {
  Bytes f0;
  sfnt::u16(f0, 0);
  sfnt::u16(f0, 262);
  sfnt::u16(f0, 0);
  for (int c = 0; c < 256; c++) sfnt::u8(f0, 255 - c);
  EXPECT_EQ(map_char_0(f0.data(), 262, 0), 255);
  EXPECT_EQ(map_char_0(f0.data(), 262, 255), 0);
  EXPECT_EQ(map_char_0(f0.data(), 262, 0x41), 255 - 0x41);
  EXPECT_EQ(map_char_0(f0.data(), 262, 256), 0);
  EXPECT_EQ(map_char_0(f0.data(), 100, 200), 0);  // beyond the table
  Bytes f6;
  sfnt::u16(f6, 6);
  sfnt::u16(f6, 16);
  sfnt::u16(f6, 0);
  sfnt::u16(f6, 0x30);
  sfnt::u16(f6, 5);  // five entries declared, three present
  for (uint32_t g : {9, 8, 7}) sfnt::u16(f6, g);
  EXPECT_EQ(map_char_6(f6.data(), 16, 0x30), 9);
  EXPECT_EQ(map_char_6(f6.data(), 16, 0x32), 7);
  EXPECT_EQ(map_char_6(f6.data(), 16, 0x33), 0);  // declared, not present
  EXPECT_EQ(map_char_6(f6.data(), 16, 0x2F), 0);
  EXPECT_EQ(map_char_6(f6.data(), 16, 0x35), 0);
}

TEST(CmapFormat14, ReadsOnlyTheSelectorsOwnGlyphs) {
  // Records at 10 and 21. Selector U+FE00: default table at 32 (U+0030..
  // U+0039, never read), own glyphs at 40: U+0041 -> 7, U+0100 -> 8.
  // Selector U+FE01: the default table only.
  Bytes b;
  auto u24 = [&](uint32_t v) {
    sfnt::u8(b, v >> 16);
    sfnt::u16(b, v & 0xFFFF);
  };
  sfnt::u16(b, 14);
  sfnt::u32(b, 54);
  sfnt::u32(b, 2);
  u24(0xFE00);
  sfnt::u32(b, 32);
  sfnt::u32(b, 40);
  u24(0xFE01);
  sfnt::u32(b, 32);
  sfnt::u32(b, 0);
  sfnt::u32(b, 1);
  u24(0x30);
  sfnt::u8(b, 9);
  sfnt::u32(b, 2);
  u24(0x41);
  sfnt::u16(b, 7);
  u24(0x100);
  sfnt::u16(b, 8);
  ASSERT_EQ(b.size(), 54u);
  const FS_BYTE* p = b.data();
  FS_ULONG n = (FS_ULONG)b.size();
  EXPECT_EQ(map_char_14(p, n, 0x41, 0xFE00), 7);
  EXPECT_EQ(map_char_14(p, n, 0x100, 0xFE00), 8);
  EXPECT_EQ(map_char_14(p, n, 0x42, 0xFE00), 0);  // 0x100 above: ends
  EXPECT_EQ(map_char_14(p, n, 0x31, 0xFE00), 0);  // default: caller's part
  EXPECT_EQ(map_char_14(p, n, 0x41, 0xFE01), 0);
  EXPECT_EQ(map_char_14(p, n, 0x41, 0xFE02), 0);
  EXPECT_EQ(map_char_14(p, 50, 0x100, 0xFE00), 0);  // mappings cut off
  Bytes big = b;
  sfnt::putU32(big, 6, 0x10000000);  // selector records past the table
  EXPECT_EQ(map_char_14(big.data(), n, 0x41, 0xFE00), 0);
}

// A cmap of (3,1) -> format 4 sample and (0,5) -> unknown format 10.
Bytes sampleCmap() {
  Bytes sub = sampleFormat4();
  Bytes b;
  sfnt::u16(b, 0);
  sfnt::u16(b, 2);
  sfnt::u16(b, 3);
  sfnt::u16(b, 1);
  sfnt::u32(b, 20);
  sfnt::u16(b, 0);
  sfnt::u16(b, 5);
  sfnt::u32(b, 20 + (uint32_t)sub.size());
  b.insert(b.end(), sub.begin(), sub.end());
  sfnt::u16(b, 10);
  sfnt::u16(b, 0);
  return b;
}

TEST(CmapDirectory, ExactPairsSubstitutesAndDispatch) {
  Bytes c = sampleCmap();
  FS_ULONG n = (FS_ULONG)c.size();
  EXPECT_EQ(offset_to_cmap(c.data(), n, 3, 1), 20u);
  EXPECT_EQ(offset_to_cmap(c.data(), n, 3, 10), 0u);
  FS_USHORT p = 0, e = 0;
  // (3,10) and (0,3) are Unicode pairs: the first of the seven held is (3,1).
  EXPECT_EQ(GetEncodingSubstitution(c.data(), n, 3, 10, &p, &e), 20u);
  EXPECT_EQ(p, 3);
  EXPECT_EQ(e, 1);
  EXPECT_EQ(GetEncodingSubstitution(c.data(), n, 0, 3, nullptr, nullptr), 20u);
  EXPECT_EQ(GetEncodingSubstitution(c.data(), n, 1, 0, nullptr, nullptr), 0u);
  FS_BOOLEAN bad = 0;
  EXPECT_EQ(cmap_map_subtable(c.data(), n, 20, 0x41, 0, &bad), 25);
  EXPECT_EQ(bad, 0);
  EXPECT_EQ(cmap_map_subtable(c.data(), n, 20, 0x10041, 0, &bad), 0);
  EXPECT_EQ(bad, 1);
  FS_ULONG unknown = offset_to_cmap(c.data(), n, 0, 5);
  EXPECT_EQ(cmap_subtable_format(c.data(), n, unknown), 10);
  EXPECT_EQ(cmap_map_subtable(c.data(), n, unknown, 0x41, 0, &bad), 0);
  EXPECT_EQ(bad, 0);
  // A subtable offset past the table is no subtable.
  Bytes far = c;
  sfnt::putU32(far, 8, 5000);
  EXPECT_EQ(offset_to_cmap(far.data(), n, 3, 1), 0u);
  EXPECT_EQ(cmap_map_subtable(far.data(), n, 5000, 0x41, 0, &bad), 0);
  // A directory count past the table: the records that stand are read.
  Bytes many = c;
  sfnt::putU16(many, 2, 0xFFFF);
  EXPECT_EQ(offset_to_cmap(many.data(), n, 3, 1), 20u);
  EXPECT_EQ(offset_to_cmap(many.data(), n, 7, 7), 0u);
}

TEST(CmapCoverage, PlaneMasksAdmitBlocksOf1024Codes) {
  UniRange all = {0xFFFFFFFF, 0xFFFFFFFE};
  EXPECT_TRUE(CFNT_charInRange(all, 0x1234));
  UniRange some = {0x2, 0x1};  // block 1 (U+0400..U+07FF), block 32
  EXPECT_FALSE(CFNT_charInRange(some, 0x3FF));
  EXPECT_TRUE(CFNT_charInRange(some, 0x400));
  EXPECT_TRUE(CFNT_charInRange(some, 0x7FF));
  EXPECT_FALSE(CFNT_charInRange(some, 0x800));
  EXPECT_TRUE(CFNT_charInRange(some, 0x8000));   // 0x8000 >> 10 = 32
  EXPECT_TRUE(CFNT_charInRange(some, 0x18000));  // the same block of plane 1
  EXPECT_FALSE(CFNT_charInRange(some, 0x8400));
}

/* ---- Client calls on real fonts ---- */

class CmapClient : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(engine.started);
    st = &engine.st;
    baseline = engine.used();
  }
  void TearDown() override {
    for (auto& n : names) EXPECT_EQ(FSS_delete_font(st, n.c_str()), 0);
    TYPESET_destroy(st, &st->cur_typeset);  // the array outlives the font
    EXPECT_EQ(engine.used(), baseline);
  }
  void setFont(const char* path) {
    FILECHAR name[64];
    ASSERT_EQ(FSS_load_font(st, path, nullptr, 0, sizeof name, name), 0);
    names.push_back(name);
    ASSERT_EQ(FSS_set_font(st, name), 0);
  }
  void setFont(const Bytes& font) {
    FILECHAR name[64];
    ASSERT_EQ(FSS_load_font(st, nullptr, (FS_BYTE*)font.data(), 0, sizeof name,
                            name),
              0);
    names.push_back(name);
    ASSERT_EQ(FSS_set_font(st, name), 0);
  }
  LFNT* lfnt0() { return st->cur_typeset.tfntarray[0].cfnt->lfnt; }

  enginetest::Engine engine{64u << 20};
  FS_STATE* st = nullptr;
  FS_ULONG baseline = 0;
  std::vector<std::string> names;
};

TEST_F(CmapClient, MapsThroughTheChosenCmapAndKeepsAFailedChoice) {
  EXPECT_EQ(FSS_map_char(st, 0x41), 0);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_NO_CURRENT_FONT);
  setFont(kDejaVuSans);
  ASSERT_EQ(FSS_set_cmap(st, 3, 1), 0);
  EXPECT_EQ(FSS_map_char(st, 0x41), 36);
  EXPECT_EQ(FSS_map_char(st, 0x416), 939);
  EXPECT_EQ(FSS_map_char(st, 0x10300), 0);  // format 4 has no plane 1
  EXPECT_EQ(st->error, 0u);
  ASSERT_EQ(FSS_set_cmap(st, 3, 10), 0);
  EXPECT_EQ(FSS_map_char(st, 0x10300), 5373);
  FS_USHORT p = 0, e = 0;
  EXPECT_EQ(FSS_get_cmap(st, &p, &e), 0);
  EXPECT_EQ(p, 3);
  EXPECT_EQ(e, 10);
  // No (7,7): 402, kept as chosen, so asking again returns 0 and mapping
  // fails on.
  EXPECT_EQ(FSS_set_cmap(st, 7, 7), ERR_CMAP_NOT_FOUND);
  EXPECT_EQ(FSS_set_cmap(st, 7, 7), 0);
  EXPECT_EQ(FSS_map_char(st, 0x41), 0);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_CMAP_NOT_FOUND);
}

TEST_F(CmapClient, MissingUnicodeSubtableIsSubstitutedUnlessItSharesTheVariationPair) {
  // A font whose only subtable is (3,1).
  sfnt::Font f = sfnt::read(sfnt::asBytes(testsupport::readBytes(kDejaVuSans)));
  Bytes c;
  Bytes sub = format4({{0x41, 0x5A, 0xFFE3, 0}, {0xFFFF, 0xFFFF, 1, 0}}, {}, 1);
  sfnt::u16(c, 0);
  sfnt::u16(c, 1);
  sfnt::u16(c, 3);
  sfnt::u16(c, 1);
  sfnt::u32(c, 12);
  c.insert(c.end(), sub.begin(), sub.end());
  Bytes font = sfnt::build(f.set("cmap", c));
  setFont(font);
  // (3,10) is missing and differs from the variation pair (0,5) in both.
  EXPECT_EQ(FSS_set_cmap(st, 3, 10), 0);
  EXPECT_EQ(FSS_map_char(st, 0x42), 0x42 - 0x1D);  // delta -29
  // (0,3) shares the platform of (0,5): no substitute.
  EXPECT_EQ(FSS_set_cmap(st, 0, 3), ERR_CMAP_NOT_FOUND);
  // A non-Unicode pair has none either.
  EXPECT_EQ(FSS_set_cmap(st, 1, 0), ERR_CMAP_NOT_FOUND);
}

TEST_F(CmapClient, CacheRecordsHitsAndMissesOfBmpCodesOnly) {
  setFont(kDejaVuSans);
  ASSERT_EQ(FSS_set_cmap(st, 3, 10), 0);
  LFNT* lfnt = lfnt0();
  ASSERT_NE(lfnt->cmap_cache, nullptr);
  // 6253 glyphs / 10 = 625, nearer to 512 than to 1024: mask 511.
  ASSERT_EQ(lfnt->cmap_cache_mod, 511);
  EXPECT_EQ(FSS_map_char(st, 0x41), 36);
  // Slot of 0x41: 65 * 16807 = 1092455, 16 bits 43879, & 511 = 359.
  EXPECT_EQ(lfnt->cmap_cache[359].unicode, 0x41);
  EXPECT_EQ(lfnt->cmap_cache[359].index, 36);
  // A recorded miss is believed: 'B' (37) is then not looked up.
  // Slot of 0x42: 66 * 16807 = 1109262, 16 bits 60686, & 511 = 270.
  lfnt->cmap_cache[270] = {0x42, 0};
  EXPECT_EQ(FSS_map_char(st, 0x42), 0);
  EXPECT_EQ(st->error, 0u);
  // A code above 0xFFFF goes to the subtable every time.
  EXPECT_EQ(FSS_map_char(st, 0x10301), 5374);
  for (FS_ULONG i = 0; i <= 511; i++)
    EXPECT_NE(lfnt->cmap_cache[i].index, 5374) << i;
}

TEST_F(CmapClient, CoverageMaskSkipsAComponentWithoutReadingIt) {
  setFont(kDejaVuSans);
  ASSERT_EQ(FSS_set_cmap(st, 3, 1), 0);
  CFNT* cfnt = st->cur_typeset.tfntarray[0].cfnt;
  cfnt->bmp = {0x1, 0x0};  // block 0 only: U+0000..U+03FF
  EXPECT_EQ(FSS_map_char(st, 0x41), 36);
  EXPECT_EQ(FSS_map_char(st, 0x416), 0);  // block 1: skipped
  cfnt->bmp = {0xFFFFFFFF, 0xFFFFFFFF};
  EXPECT_EQ(FSS_map_char(st, 0x416), 939);
}

TEST_F(CmapClient, GlyphIndexModeWithoutACmap) {
  setFont(kDejaVuSans);
  // No cmap chosen: codes are glyph indices.
  EXPECT_EQ(FSS_map_char(st, 36), 36);
  EXPECT_EQ(FSS_map_char(st, 6252), 6252);
  EXPECT_EQ(FSS_map_char(st, 6253), 0);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_BAD_GLYF_INDEX);
  // With a cmap, the glyph-index flag makes map_char take indices;
  // FSS_map_char clears it for its call and restores it.
  ASSERT_EQ(FSS_set_cmap(st, 3, 1), 0);
  st->flags |= 0x4000;
  EXPECT_EQ(map_char(st, 0x41, 0), 0x41);
  EXPECT_EQ(FSS_map_char(st, 0x41), 36);
  EXPECT_EQ(st->flags & 0x4000, 0x4000u);
  st->flags = 0;
}

TEST_F(CmapClient, InverseMappingGivesBackTheCodeOfEachGlyph) {
  setFont(kDejaVuSans);
  EXPECT_EQ(FSS_inverse_map_char(st, 36), 0xFFFFu);  // no Unicode cmap
  ASSERT_EQ(FSS_set_cmap(st, 3, 1), 0);
  EXPECT_EQ(FSS_inverse_map_char(st, 36), 0x41u);
  EXPECT_EQ(FSS_inverse_map_char(st, 939), 0x416u);
  EXPECT_EQ(FSS_inverse_map_char(st, 0), 0xFFFFu);  // not above start 0
  EXPECT_EQ(st->error, (FS_ULONG)ERR_BAD_GLYF_INDEX);
  ASSERT_EQ(FSS_set_cmap(st, 3, 10), 0);
  EXPECT_EQ(FSS_inverse_map_char(st, 5373), 0x10300u);
  // Every glyph that some code reaches comes back to a code of that glyph.
  int checked = 0;
  for (FS_ULONG g = 1; g < 6253; g++) {
    FS_ULONG code = FSS_inverse_map_char(st, g);
    if (code == 0xFFFF) continue;
    EXPECT_EQ(FSS_map_char(st, code), g) << g;
    checked++;
  }
  EXPECT_GT(checked, 5000);
}

TEST_F(CmapClient, VariantFallsBackToZeroWithoutAVariationSubtable) {
  setFont(kDejaVuSans);
  ASSERT_EQ(FSS_set_cmap(st, 3, 1), 0);
  EXPECT_EQ(FSS_map_char_variant(st, 0x41, 0xFE00), 0);
  EXPECT_EQ(st->error, 0u);
  EXPECT_EQ(FSS_map_char_variant(st, 0x41, 0), 36);  // selector 0: plain
  FS_USHORT p = 0, e = 0;
  FSS_get_cmap(st, &p, &e);
  EXPECT_EQ(p, 3);  // the client's cmap is back
  EXPECT_EQ(e, 1);
  EXPECT_EQ(FS_set_cmap_variant(st, 3, 1), 0);  // any pair may serve
  FS_get_cmap_variant(st, &p, &e);
  EXPECT_EQ(p, 3);
  EXPECT_EQ(e, 1);
}

TEST_F(CmapClient, MalformedCmapsAreRefusedOrReadAsEmpty) {
  sfnt::Font f = sfnt::read(sfnt::asBytes(testsupport::readBytes(kDejaVuSans)));
  // (1,0) pointing past the table; (3,10) a format 12 claiming 2^28 groups.
  Bytes c;
  sfnt::u16(c, 0);
  sfnt::u16(c, 2);
  sfnt::u16(c, 1);
  sfnt::u16(c, 0);
  sfnt::u32(c, 0x7FFFFFF0);
  sfnt::u16(c, 3);
  sfnt::u16(c, 10);
  sfnt::u32(c, 20);
  Bytes g = format12({{0x20, 0x7E, 3}});
  sfnt::putU32(g, 12, 0x10000000);
  c.insert(c.end(), g.begin(), g.end());
  Bytes font = sfnt::build(f.set("cmap", c));
  setFont(font);
  EXPECT_EQ(FSS_set_cmap(st, 1, 0), ERR_CMAP_NOT_FOUND);
  EXPECT_EQ(FSS_set_cmap(st, 3, 10), 0);
  EXPECT_EQ(FSS_map_char(st, 0x41), 0);
  EXPECT_EQ(st->error, 0u);
}

// Two real fonts as the components of one set, the way a linked font joins
// them: Noto Sans Hebrew (149 glyphs, no Latin) first, then DejaVu Sans.
TEST_F(CmapClient, ComponentsAreTriedInOrderInOneNumbering) {
  LFNT* hebrew = FS_SERVER_get_LFNT(st, FNT_TYPE_TTF, kNotoHebrew, nullptr, 0, 0, 0);
  LFNT* dejavu = FS_SERVER_get_LFNT(st, FNT_TYPE_TTF, kDejaVuSans, nullptr, 0, 0, 0);
  ASSERT_NE(hebrew, nullptr);
  ASSERT_NE(dejavu, nullptr);
  FNTSET* set = (FNTSET*)FSS_calloc(st, sizeof(FNTSET));
  set->num_fonts = 2;
  set->cfnt = (CFNT*)FSS_calloc(st, 2 * sizeof(CFNT));
  for (int i = 0; i < 2; i++) {
    set->cfnt[i].lfnt = i == 0 ? hebrew : dejavu;
    set->cfnt[i].lfnt->fntset_refs++;
    set->cfnt[i].bmp = set->cfnt[i].smp = {0xFFFFFFFF, 0xFFFFFFFF};
    set->cfnt[i].sip = set->cfnt[i].ssp = {0xFFFFFFFF, 0xFFFFFFFF};
  }
  set->cfnt[1].start_index = 149;
  set->metric_font = hebrew;
  set->next = st->server->font_sets;
  st->server->font_sets = set;
  ASSERT_EQ(TYPESET_init(st, &st->cur_typeset, set), 0);

  ASSERT_EQ(FSS_set_cmap(st, 3, 1), 0);
  EXPECT_EQ(FSS_map_char(st, 0x5D0), 3);  // alef, in the first
  EXPECT_EQ(st->cur_font, 0);
  EXPECT_EQ(FSS_map_char(st, 0x41), 149 + 36);  // 'A', in the second
  EXPECT_EQ(st->cur_font, 1);
  EXPECT_EQ(st->cur_lfnt, dejavu);
  EXPECT_EQ(FSS_map_char(st, 0xE000), 0);  // in neither: component 0
  EXPECT_EQ(st->error, 0u);
  EXPECT_EQ(st->cur_font, 0);
  EXPECT_EQ(st->cur_lfnt, hebrew);
  EXPECT_EQ(FSS_inverse_map_char(st, 149 + 36), 0x41u);
  // Glyph indices run through both: 148 is the first's last, 149 the
  // second's first.
  ASSERT_EQ(FSS_set_cmap(st, 0xFFFF, 0xFFFF), 0);
  EXPECT_EQ(FSS_map_char(st, 148), 148);
  EXPECT_EQ(st->cur_font, 0);
  EXPECT_EQ(FSS_map_char(st, 149), 149);
  EXPECT_EQ(st->cur_font, 1);
  EXPECT_EQ(FSS_map_char(st, 149 + 6253), 0);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_BAD_GLYF_INDEX);

  TYPESET_clear(st, &st->cur_typeset);
  kill_fntset(st, set);
}

}  // namespace
