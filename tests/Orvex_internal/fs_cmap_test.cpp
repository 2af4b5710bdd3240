// Character mapping: the subtable readers over hand-built subtables (formats
// 0, 6, 12 and 14 only at their bounds: their mapping is the oracle's), and
// the client calls on real fonts: choice, cache, masks and the inverse.
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

Bytes words(std::vector<uint32_t> format16, std::vector<uint32_t> tail32 = {}) {
  Bytes b;
  for (uint32_t w : format16) sfnt::u16(b, w);
  for (uint32_t w : tail32) sfnt::u32(b, w);
  return b;
}
Bytes with(Bytes b, size_t at, uint32_t v, bool wide = false) {
  wide ? sfnt::putU32(b, at, v) : sfnt::putU16(b, at, v);
  return b;
}

struct Segment { uint32_t start, end, delta, rangeOffset; };

// A format 4 subtable of `segs`, with `glyphs` behind the idRangeOffsets.
Bytes format4(const std::vector<Segment>& segs, const std::vector<uint32_t>& glyphs,
              uint32_t selector) {
  uint32_t n = (uint32_t)segs.size();
  // searchRange and rangeShift are not read
  Bytes b = words({4, 16 + 8 * n + 2 * (uint32_t)glyphs.size(), 0, 2 * n, 0, selector, 0});
  for (auto& s : segs) sfnt::u16(b, s.end);
  sfnt::u16(b, 0);
  for (auto& s : segs) sfnt::u16(b, s.start);
  for (auto& s : segs) sfnt::u16(b, s.delta);
  for (auto& s : segs) sfnt::u16(b, s.rangeOffset);
  for (uint32_t g : glyphs) sfnt::u16(b, g);
  return b;
}

// Bytes 14 ends, 24 starts, 32 deltas, 40 idRangeOffsets, 48 glyph words.
// 0x41..0x43: idRangeOffset 6 from byte 42 reaches 48: 0x41 -> 20 + delta 5.
Bytes sampleFormat4() {
  return format4({{0x20, 0x22, 0xFFF0, 0}, {0x41, 0x43, 5, 6}, {0x50, 0x50, 7, 1},
                  {0xFFFF, 0xFFFF, 1, 0}},
                 {20, 0, 22}, 2);
}

// Eight one-code segments 0x10, 0x20, ... 0x80, each with delta 100.
Bytes eightSegments(uint32_t selector) {
  std::vector<Segment> segs;
  for (uint32_t i = 1; i <= 8; i++) segs.push_back({i * 16, i * 16, 100, 0});
  return format4(segs, {}, selector);
}

Bytes format12(const std::vector<std::vector<uint32_t>>& groups) {
  Bytes b = words({12, 0}, {16 + 12 * (uint32_t)groups.size(), 0, (uint32_t)groups.size()});
  for (auto& g : groups)
    for (uint32_t v : g) sfnt::u32(b, v);
  return b;
}

// The format readers by the format in the subtable's first word.
FS_USHORT mapAny(const Bytes& b, size_t avail, FS_ULONG id, FS_ULONG selector) {
  const FS_BYTE* p = b.data();
  FS_ULONG n = (FS_ULONG)(avail ? avail : b.size());
  switch (sfnt::getU16(b, 0)) {
    case 0: return map_char_0(p, n, id);
    case 2: return map_char_2(p, n, id);
    case 4: return map_char_4(p, n, id);
    case 5: return map_char_5(p, n, id);
    case 6: return map_char_6(p, n, id);
    case 12: return map_char_12(p, n, id);
    case 14: return map_char_14(p, n, id, selector);
  }
  return 0xDEAD;
}

TEST(CmapSubtables, EachFormatMapsItsCodesAndReadsNothingPastItsEnd) {
  Bytes f4 = sampleFormat4();
  Bytes f0 = words({0, 262, 0});  // glyph 255 - c for byte c
  for (int c = 0; c < 256; c++) sfnt::u8(f0, 255 - c);
  // Format 2, words from byte 518: w0..w9 = 0x20, 3, 0, 2, 5, 6, 7, 8, 0, 40.
  // High byte 0 reads the subheader w0..w3 (first 0x20, count 3, delta 0,
  // offset 2): 0x21 -> w5 = 6. High byte 2 reads w2..w5 (first 0, count 2,
  // delta 5, offset 6): 0x0201 -> w9 = 40, + 5. subHeaderKeys aren't read.
  Bytes f2 = words({2, 538, 0});
  for (int i = 0; i < 256; i++) sfnt::u16(f2, 0x10);
  for (uint32_t w : {0x20, 3, 0, 2, 5, 6, 7, 8, 0, 40}) sfnt::u16(f2, w);
  // Format 5: ends 0x41, 0x62; lengths 3, -2; words 100, 2; glyphs 70, 71.
  // Length 3: 0x3F..0x41 -> id + 100. Length -2: 0x61.. through the glyphs.
  Bytes f5 = words({5, 28, 0, 4, 4, 1, 0, 0x41, 0x62, 0x03FE, 100, 2, 70, 71});
  Bytes f6 = words({6, 16, 0, 0x30, 5, 9, 8, 7});  // five entries, three present
  // Glyph starts out of glyph order on purpose (3, 2500, 900).
  Bytes f12 = format12({{0x20, 0x7E, 3}, {0x10000, 0x1000F, 2500}, {0x1F600, 0x1F64F, 900}});
  // Format 14: U+FE00 with defaults at 32 and own glyphs at 40; U+FE01.
  Bytes f14;  // (size in bytes, value) fields
  for (auto f : std::vector<std::pair<int, uint32_t>>{
           {2, 14}, {4, 54}, {4, 2}, {3, 0xFE00}, {4, 32}, {4, 40}, {3, 0xFE01}, {4, 32},
           {4, 0}, {4, 1}, {3, 0x30}, {1, 9}, {4, 2}, {3, 0x41}, {2, 7}, {3, 0x100}, {2, 8}})
    for (int i = f.first - 1; i >= 0; i--) f14.push_back((uint8_t)(f.second >> (8 * i)));
  ASSERT_EQ(f14.size(), 54u);

  struct Row {
    const char* why;
    Bytes table;
    size_t avail;  // 0: the whole table
    FS_ULONG code, selector;
    FS_USHORT glyph;
  } rows[] = {
      {"0: beyond a 100-byte table", f0, 100, 200, 0, 0},
      {"2: high byte 0, index 1", f2, 0, 0x21, 0, 6},
      {"2: index 3 is not below count 3", f2, 0, 0x23, 0, 0},
      {"2: high byte 2 through its range offset, plus delta", f2, 0, 0x0201, 0, 45},
      {"2: w3..w6, count 5, word w12 absent", f2, 0, 0x0300, 0, 0},
      {"2: subheader cut off", f2, 520, 0x21, 0, 0},
      {"4: delta wraps at 16 bits", f4, 0, 0x20, 0, 16},
      {"4: segment end", f4, 0, 0x22, 0, 18},
      {"4: glyph word plus delta", f4, 0, 0x41, 0, 25},
      {"4: a zero glyph word stays 0", f4, 0, 0x42, 0, 0},
      {"4: range offset 1 counts as 0", f4, 0, 0x50, 0, 0x57},
      {"4: 0xFFFF through the sentinel", f4, 0, 0xFFFF, 0, 0},
      {"4: 46 bytes can't hold the offsets ending at 48", f4, 46, 0x20, 0, 0},
      {"4: 50 bytes can't hold the third glyph word", f4, 50, 0x43, 0, 0},
      {"4: 10 bytes", f4, 10, 0x20, 0, 0},
      {"4: segment count far past the table", with(f4, 6, 0xFFFE), 0, 0x20, 0, 0},
      {"4: range offset past the table", with(f4, 42, 0xFFF0), 0, 0x41, 0, 0},
      // Selector 3 (range 8 = segCount) finds every code. Selector 0 (range 1)
      // starts the scan at 8 - 1 - 1 = 6, past 0x40. Selector 15: linear scan.
      {"4: selector 3, first", eightSegments(3), 0, 0x10, 0, 0x10 + 100},
      {"4: selector 3, last", eightSegments(3), 0, 0x80, 0, 0x80 + 100},
      {"4: selector 0 misses 0x40", eightSegments(0), 0, 0x40, 0, 0},
      {"4: selector 15 scans", eightSegments(15), 0, 0x40, 0, 0x40 + 100},
      {"5: positive length, first", f5, 0, 0x3F, 0, 0x3F + 100},
      {"5: negative length, glyph array", f5, 0, 0x61, 0, 70},
      {"5: after", f5, 0, 0x63, 0, 0},
      {"5: its glyph word cut off", f5, 26, 0x62, 0, 0},
      {"5: the words cut off: empty", f5, 22, 0x3F, 0, 0},
      {"6: five entries declared, three present", f6, 0, 0x33, 0, 0},
      {"12: the last code of the last group", f12, 0, 0x1F64F, 0, 900 + 0x4F},
      {"12: group count past the table", with(f12, 12, 0x20000000, true), 0, 0x41, 0, 0},
      {"14: mappings cut off", f14, 50, 0x100, 0xFE00, 0},
      {"14: records past the table", with(f14, 6, 0x10000000, true), 0, 0x41, 0xFE00, 0},
  };
  for (const Row& r : rows)
    EXPECT_EQ(mapAny(r.table, r.avail, r.code, r.selector), r.glyph) << r.why;

  // The inverse: the first code of a glyph, 0xFFFF for none.
  Bytes big4 = with(f4, 6, 0xFFFE), big12 = with(f12, 12, 0x20000000, true);
  const struct {
    const char* why;
    const Bytes* table;
    FS_ULONG glyph, code;
  } inverse[] = {
      {"4: 16 + 16, wrapped", &f4, 16, 0x20},  {"4: word 20 + delta 5", &f4, 25, 0x41},
      {"4: a raw word is no glyph", &f4, 20, 0xFFFF}, {"4: glyph 0", &f4, 0, 0},
      {"4: segment count past the table", &big4, 16, 0xFFFF},
      {"12: first group", &f12, 36, 0x41},      {"12: later group", &f12, 916, 0x1F610},
      {"12: unmapped", &f12, 2, 0xFFFF}, {"12: group count past the table", &big12, 36, 0xFFFF},
  };
  for (const auto& r : inverse) {
    const FS_BYTE* p = r.table->data();
    FS_ULONG n = (FS_ULONG)r.table->size();
    EXPECT_EQ(sfnt::getU16(*r.table, 0) == 4 ? inverse_map_char_4(p, n, r.glyph)
                                             : inverse_map_char_12(p, n, r.glyph),
              r.code) << r.why;
  }
  EXPECT_EQ(inverse_map_char_4(nullptr, 0, 5), 0u);
}

TEST(CmapDirectory, ExactPairsDispatchAndBounds) {
  // (3,1) -> the format 4 sample at 20, (0,5) -> an unknown format 10.
  Bytes sub = sampleFormat4();
  Bytes c = words({0, 2, 3, 1, 0, 20, 0, 5, 0, 20 + (uint32_t)sub.size()});
  c.insert(c.end(), sub.begin(), sub.end());
  for (uint32_t w : {10, 0}) sfnt::u16(c, w);
  FS_ULONG n = (FS_ULONG)c.size();
  EXPECT_EQ(offset_to_cmap(c.data(), n, 3, 1), 20u);
  EXPECT_EQ(offset_to_cmap(c.data(), n, 3, 10), 0u);
  FS_BOOLEAN bad = 0;
  EXPECT_EQ(cmap_map_subtable(c.data(), n, 20, 0x41, 0, &bad), 25);
  EXPECT_EQ(bad, 0);
  EXPECT_EQ(cmap_map_subtable(c.data(), n, 20, 0x10041, 0, &bad), 0);
  EXPECT_EQ(bad, 1);  // above 0xFFFF in a format 4
  FS_ULONG unknown = offset_to_cmap(c.data(), n, 0, 5);
  EXPECT_EQ(cmap_subtable_format(c.data(), n, unknown), 10);
  EXPECT_EQ(cmap_map_subtable(c.data(), n, unknown, 0x41, 0, &bad), 0);
  // A subtable offset past the table is no subtable.
  Bytes far = with(c, 8, 5000, true);
  EXPECT_EQ(offset_to_cmap(far.data(), n, 3, 1), 0u);
  EXPECT_EQ(cmap_map_subtable(far.data(), n, 5000, 0x41, 0, &bad), 0);
  // A record count past the table: the records that stand are read.
  Bytes many = with(c, 2, 0xFFFF);
  EXPECT_EQ(offset_to_cmap(many.data(), n, 3, 1), 20u);
  EXPECT_EQ(offset_to_cmap(many.data(), n, 7, 7), 0u);
}

TEST(CmapCoverage, PlaneMasksAdmitBlocksOf1024Codes) {
  UniRange all = {0xFFFFFFFF, 0xFFFFFFFE}, some = {0x2, 0x1};  // blocks 1 and 32
  const struct { UniRange mask; FS_ULONG code; bool in; } rows[] = {
      {all, 0x1234, true}, {some, 0x3FF, false}, {some, 0x400, true}, {some, 0x800, false},
      {some, 0x8000, true},    // 0x8000 >> 10 = 32
      {some, 0x18000, true}};  // the same block of plane 1
  for (const auto& r : rows) EXPECT_EQ(CFNT_charInRange(r.mask, r.code), r.in) << r.code;
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
  void setFont(const char* path, const Bytes& font = {}) {
    FILECHAR name[64];
    ASSERT_EQ(FSS_load_font(st, font.empty() ? path : nullptr,
                            font.empty() ? nullptr : (FS_BYTE*)font.data(), 0,
                            sizeof name, name), 0) << path;
    names.push_back(name);
    ASSERT_EQ(FSS_set_font(st, name), 0);
  }
  // DejaVu Sans with `cmap` for its own.
  void setDejaVuWithCmap(const Bytes& cmap) {
    sfnt::Font f = sfnt::read(sfnt::asBytes(testsupport::readBytes(kDejaVuSans)));
    font = sfnt::build(f.set("cmap", cmap));
    setFont("", font);
  }
  LFNT* lfnt0() { return st->cur_typeset.tfntarray[0].cfnt->lfnt; }

  enginetest::Engine engine{64u << 20};
  FS_STATE* st = nullptr;
  FS_ULONG baseline = 0;
  std::vector<std::string> names;
  Bytes font;
};

TEST_F(CmapClient, MapsThroughTheChosenCmapAndKeepsAFailedChoice) {
  EXPECT_EQ(FSS_map_char(st, 0x41), 0);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_NO_CURRENT_FONT);
  setFont(kDejaVuSans);
  ASSERT_EQ(FSS_set_cmap(st, 3, 1), 0);
  EXPECT_EQ(FSS_map_char(st, 0x41), 36);
  EXPECT_EQ(FSS_map_char(st, 0x10300), 0);  // format 4 has no plane 1
  ASSERT_EQ(FSS_set_cmap(st, 3, 10), 0);
  EXPECT_EQ(FSS_map_char(st, 0x10300), 5373);
  // No (7,7): 402, kept as chosen: asking again returns 0, mapping fails on.
  EXPECT_EQ(FSS_set_cmap(st, 7, 7), ERR_CMAP_NOT_FOUND);
  EXPECT_EQ(FSS_set_cmap(st, 7, 7), 0);
  EXPECT_EQ(FSS_map_char(st, 0x41), 0);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_CMAP_NOT_FOUND);
}

TEST_F(CmapClient, MissingUnicodeSubtableIsSubstitutedUnlessItSharesTheVariationPair) {
  // The only subtable is (3,1): A..Z with delta -29.
  Bytes c = words({0, 1, 3, 1, 0, 12});
  Bytes sub = format4({{0x41, 0x5A, 0xFFE3, 0}, {0xFFFF, 0xFFFF, 1, 0}}, {}, 1);
  c.insert(c.end(), sub.begin(), sub.end());
  setDejaVuWithCmap(c);
  // (3,10) is missing and differs from the variation pair (0,5) in both.
  EXPECT_EQ(FSS_set_cmap(st, 3, 10), 0);
  EXPECT_EQ(FSS_map_char(st, 0x42), 0x42 - 0x1D);
  EXPECT_EQ(FSS_set_cmap(st, 0, 3), ERR_CMAP_NOT_FOUND);  // shares platform 0
  EXPECT_EQ(FSS_set_cmap(st, 1, 0), ERR_CMAP_NOT_FOUND);  // not Unicode
}

TEST_F(CmapClient, MalformedCmapsAreRefusedOrReadAsEmpty) {
  // (1,0) pointing past the table; (3,10) a format 12 claiming 2^28 groups.
  Bytes c = words({0, 2, 1, 0, 0x7FFF, 0xFFF0, 3, 10, 0, 20});
  Bytes g = with(format12({{0x20, 0x7E, 3}}), 12, 0x10000000, true);
  c.insert(c.end(), g.begin(), g.end());
  setDejaVuWithCmap(c);
  EXPECT_EQ(FSS_set_cmap(st, 1, 0), ERR_CMAP_NOT_FOUND);
  EXPECT_EQ(FSS_set_cmap(st, 3, 10), 0);
  EXPECT_EQ(FSS_map_char(st, 0x41), 0);
  EXPECT_EQ(st->error, 0u);
}

TEST_F(CmapClient, TheGroupOfTheCodeBeforeAnswersOnlyWhenGroupsAscend) {
  // A (3,10) format 12 of two groups, codes asked in turn. Overlapping or
  // unsorted groups must go through the search every time: 0x70 is found
  // in the second group, after which 0x55 (overlap) lies in it too but the
  // search finds the first; in the unsorted table 0x7F leaves the search at
  // the second group, which holds 0x45 though the search does not reach it.
  struct {
    std::vector<std::vector<uint32_t>> groups;
    std::vector<std::pair<FS_ULONG, FS_USHORT>> codes;
    const char* why;
  } rows[] = {
      {{{0x41, 0x4F, 100}, {0x61, 0x6F, 200}},
       {{0x42, 101}, {0x43, 102}, {0x62, 201}, {0x44, 103}, {0x50, 0}, {0x6F, 214},
        {0x70, 0}, {0x41, 100}},
       "ascending: within, across and between groups"},
      {{{0x41, 0x60, 100}, {0x50, 0x7F, 300}}, {{0x70, 332}, {0x55, 120}},
       "overlapping: the search's first group"},
      {{{0x60, 0x70, 1}, {0x41, 0x50, 100}}, {{0x7F, 0}, {0x45, 0}},
       "unsorted: the search's answer, 0"},
  };
  for (auto& r : rows) {
    Bytes c = words({0, 1, 3, 10, 0, 12});
    Bytes sub = format12(r.groups);
    c.insert(c.end(), sub.begin(), sub.end());
    setDejaVuWithCmap(c);
    ASSERT_EQ(FSS_set_cmap(st, 3, 10), 0) << r.why;
    for (auto& code : r.codes)
      EXPECT_EQ(FSS_map_char(st, code.first), code.second) << r.why << " " << code.first;
  }
}

TEST_F(CmapClient, CacheAndCoverageMaskShortenTheLookUp) {
  setFont(kDejaVuSans);
  ASSERT_EQ(FSS_set_cmap(st, 3, 10), 0);
  LFNT* lfnt = lfnt0();
  ASSERT_NE(lfnt->cmap_cache, nullptr);
  EXPECT_EQ(FSS_map_char(st, 0x41), 36);
  // Slot of 0x41: 65 * 16807 = 1092455, 16 bits 43879, & mask 511 = 359.
  EXPECT_EQ(lfnt->cmap_cache[359].unicode, 0x41);
  EXPECT_EQ(lfnt->cmap_cache[359].index, 36);
  // A recorded miss is believed. Slot of 0x42: 1109262, 60686 & 511 = 270.
  lfnt->cmap_cache[270] = {0x42, 0};
  EXPECT_EQ(FSS_map_char(st, 0x42), 0);
  EXPECT_EQ(st->error, 0u);
  // A code above 0xFFFF goes to the subtable every time.
  EXPECT_EQ(FSS_map_char(st, 0x10301), 5374);
  for (FS_ULONG i = 0; i <= 511; i++) EXPECT_NE(lfnt->cmap_cache[i].index, 5374) << i;
  // A component's mask of block 0 only (U+0000..U+03FF) skips U+0416.
  CFNT* cfnt = st->cur_typeset.tfntarray[0].cfnt;
  cfnt->bmp = {0x1, 0x0};
  EXPECT_EQ(FSS_map_char(st, 0x41), 36);
  EXPECT_EQ(FSS_map_char(st, 0x416), 0);
  cfnt->bmp = {0xFFFFFFFF, 0xFFFFFFFF};
  EXPECT_EQ(FSS_map_char(st, 0x416), 939);
}

TEST_F(CmapClient, GlyphIndexModeVariantsAndTheInverseMapping) {
  setFont(kDejaVuSans);
  // No cmap chosen: codes are glyph indices.
  EXPECT_EQ(FSS_map_char(st, 36), 36);
  EXPECT_EQ(FSS_map_char(st, 6253), 0);  // one past the last glyph
  EXPECT_EQ(st->error, (FS_ULONG)ERR_BAD_GLYF_INDEX);
  EXPECT_EQ(FSS_inverse_map_char(st, 36), 0xFFFFu);  // no Unicode cmap
  // The glyph-index flag makes map_char take indices; FSS_map_char keeps it.
  ASSERT_EQ(FSS_set_cmap(st, 3, 1), 0);
  st->flags |= 0x4000;
  EXPECT_EQ(map_char(st, 0x41, 0), 0x41);
  EXPECT_EQ(FSS_map_char(st, 0x41), 36);
  EXPECT_EQ(st->flags & 0x4000, 0x4000u);
  st->flags = 0;
  // No variation subtable: a variant is 0, selector 0 the plain glyph.
  EXPECT_EQ(FSS_map_char_variant(st, 0x41, 0xFE00), 0);
  EXPECT_EQ(FSS_map_char_variant(st, 0x41, 0), 36);
  FS_USHORT p = 0, e = 0;
  FSS_get_cmap(st, &p, &e);
  EXPECT_EQ(p * 100 + e, 301);  // the client's cmap is back
  EXPECT_EQ(FSS_inverse_map_char(st, 36), 0x41u);
  EXPECT_EQ(FSS_inverse_map_char(st, 0), 0xFFFFu);  // not above start 0
  EXPECT_EQ(st->error, (FS_ULONG)ERR_BAD_GLYF_INDEX);
  ASSERT_EQ(FSS_set_cmap(st, 3, 10), 0);
  EXPECT_EQ(FSS_inverse_map_char(st, 5373), 0x10300u);
  // Round trip: every glyph some code reaches comes back to a code of it.
  int checked = 0;
  for (FS_ULONG g = 1; g < 6253; g++) {
    FS_ULONG code = FSS_inverse_map_char(st, g);
    if (code == 0xFFFF) continue;
    EXPECT_EQ(FSS_map_char(st, code), g) << g;
    checked++;
  }
  EXPECT_GT(checked, 5000);
}

}  // namespace
