// The distance-field glue: contrast values from the client and the font's
// `adfh` table (DejaVu Sans with a hand-built table in both versions), the
// edge-hint selector, the no-centre search, the size adjustments, the map
// types against the 8-bit map, the cache, the heap, and malformed tables
// and glyphs.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string.h>

#include <algorithm>
#include <array>
#include <map>

#include "Orvex_internal/adf.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

namespace {

const char kFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const FS_ULONG kA = 36;  // DejaVu Sans 'A'

#if defined(__SANITIZE_ADDRESS__)
const int kSweepStep = 7;
#else
const int kSweepStep = 1;
#endif

// An `adfh` table: ranges (end glyph, entry), entries of records (size, in,
// out, gamma in 16.16), no-centre list, zone ranges (start, end, index) and,
// for version 2, zone records (cvtstart, numylines, isrighttoleft).
struct Rec { uint16_t size; int32_t in, out, gamma; };
sfnt::Bytes adfh(uint32_t version, const std::vector<uint16_t>& ends,
                 const std::vector<std::vector<Rec>>& entries,
                 const std::vector<uint16_t>& noCenter = {},
                 const std::vector<std::array<uint16_t, 3>>& zones = {},
                 const std::vector<std::array<uint16_t, 3>>& records = {}) {
  sfnt::Bytes e, b;
  std::vector<uint16_t> offs;
  for (const auto& recs : entries) {
    offs.push_back((uint16_t)e.size());
    sfnt::u16(e, (uint32_t)recs.size());
    for (const Rec& r : recs)
      sfnt::u16(e, r.size), sfnt::u32(e, (uint32_t)r.in), sfnt::u32(e, (uint32_t)r.out), sfnt::u32(e, (uint32_t)r.gamma);
  }
  sfnt::u32(b, version), sfnt::u16(b, (uint32_t)ends.size()), sfnt::u16(b, (uint32_t)e.size());
  for (size_t i = 0; i < ends.size(); i++) sfnt::u16(b, ends[i]), sfnt::u16(b, offs[i]);
  b.insert(b.end(), e.begin(), e.end());
  sfnt::u16(b, (uint32_t)noCenter.size());
  for (uint16_t g : noCenter) sfnt::u16(b, g);
  sfnt::u16(b, (uint32_t)zones.size());
  for (const auto& z : zones) sfnt::u16(b, z[0]), sfnt::u16(b, z[1]), sfnt::u16(b, z[2]);
  if (version == 0x00020000) {
    sfnt::u16(b, (uint32_t)records.size());
    for (const auto& r : records) sfnt::u16(b, r[0]), sfnt::u16(b, r[1]), sfnt::u16(b, r[2]), sfnt::u16(b, 0);
  }
  return b;
}

// DejaVu Sans with `table` as its ADFH (none when empty), at `ppem`.
struct AdfFont : testsupport::TypesetFont {
  AdfFont(const sfnt::Bytes& table, int ppem = 24) {
    std::string file = testsupport::readBytes(kFont);
    sfnt::Font f = sfnt::read(sfnt::Bytes(file.begin(), file.end()));
    if (!table.empty()) f.set("ADFH", table);
    EXPECT_EQ(open("", sfnt::build(f)), 0);
    EXPECT_EQ(setPpem(ppem), 0);
    FS_set_flags(&st, FLAGS_CMAP_OFF);
    FS_set_flags(&st, FLAGS_NO_HINTS);
  }
  TTF* ttf() { return (TTF*)st.cur_lfnt->fnt; }
};

const Rec kR12 = {12, 65536, -65536, 65536}, kR24a = {24, 19661, -19661, 65536},
          kR24b = {24, 13107, -13107, 2 * 65536}, kR30 = {30, 98304, -98304, 65536};

TEST(AdfCsm, RecordOfLargestSizeAtOrBelowLpm) {
  struct Row { uint32_t version; FS_ULONG glyph; ADF_F32 in, out, gamma; FS_ULONG error; const char* why; };
  const Row rows[] = {
      {0x00015000, 5, 13107, -13107, 131072, 0, "two records of size 24: the later wins"},
      {0x00020000, 5, 13107, -13107, 131072, 0, "version 2 reads the same"},
      {0x00015000, 50, 26214, -36700, 65536, 0, "first record above lpm: client's values"},
      {0x00015000, 200, 26214, -36700, 65536, 0, "past the last range: client's values"},
      {0x00030000, 5, 26214, -36700, 65536, 441, "unknown version: 441, client's values"},
  };
  for (const Row& r : rows) {
    AdfFont f(adfh(r.version, {10, 100}, {{kR12, kR24a, kR24b, kR30}, {kR30}}));
    ADF_F32 in, out, gamma;
    EXPECT_EQ(FS_get_csm(&f.st, r.glyph, &in, &out, &gamma), 0) << r.why;
    EXPECT_EQ(f.st.error, r.error) << r.why;
    EXPECT_EQ(std::vector<ADF_F32>({in, out, gamma}), std::vector<ADF_F32>({r.in, r.out, r.gamma})) << r.why;
    // In a glyph request an unreadable table is no error: the map renders.
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
    EXPECT_TRUE(g != nullptr && f.st.error == 0) << r.why;
    FSS_free_char(&f.st, g);
  }
}

TEST(AdfCsm, AdjustmentsFollowLpmByHand) {
  AdfFont f({});
  // S = 0.1 + 24 * 0.01, T = 0.05 + 24 * 0.002 (16.16 raw).
  FS_set_csm_adjustments(&f.st, 6554, 655, 3277, 131);
  const ADF_F32 s = 6554 + 24 * 655, t = 3277 + 24 * 131;
  EXPECT_EQ(f.st.insideCutoffAdj, -(t + s));
  EXPECT_EQ(f.st.outsideCutoffAdj, s - t);
  ASSERT_EQ(f.setPpem(48), 0);  // a new scale derives them again
  EXPECT_EQ(f.st.insideCutoffAdj, -(3277 + 48 * 131 + 6554 + 48 * 655));
  EXPECT_EQ(f.st.outsideCutoffAdj, 6554 + 48 * 655 - (3277 + 48 * 131));
  // Thickness 0.1 grows the ink.
  auto ink = [&](ADF_F32 thick) {
    FS_set_csm_adjustments(&f.st, 0, 0, thick, 0);
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
    long sum = 0;
    for (int i = 0; g && i < g->height * g->bpl; i++) sum += g->bits[i];
    FSS_free_char(&f.st, g);
    return sum;
  };
  EXPECT_GT(ink(6554), ink(0));
}

TEST(AdfCsm, TableSelectsAdfAndRecordChangesMapAndCacheKeepsThemApart) {
  for (bool table : {false, true}) {
    AdfFont f(table ? adfh(0x00015000, {100}, {{{20, 98304, -98304, 65536}}}) : sfnt::Bytes());
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8 | FS_MAP_GRAYMAP8);
    ASSERT_TRUE(g != nullptr);
    EXPECT_EQ(g->type, table ? FS_MAP_EDGE_GRAYMAP8 : FS_MAP_GRAYMAP8) << "render behaviour bit 4";
    FSS_free_char(&f.st, g);
    if (!table) continue;
    FS_GLYPHMAP* rec = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
    FS_set_flags(&f.st, FLAGS_DEFAULT_CSM_ON);
    FS_GLYPHMAP* def = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
    ASSERT_TRUE(rec && def);
    EXPECT_NE(rec, def);
    EXPECT_FALSE(rec->size == def->size && memcmp(rec->bits, def->bits, rec->size - 40) == 0);
    FS_set_flags(&f.st, ~FLAGS_DEFAULT_CSM_ON);
    FS_GLYPHMAP* again = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
    EXPECT_EQ(again, rec) << "switching back is a cache hit";
    for (FS_GLYPHMAP* m : {rec, def, again}) FSS_free_char(&f.st, m);
  }
}

TEST(AdfEdgeHints, NoCenterSearchAndBothVersions) {
  for (int n : {10, 100}) {
    std::vector<uint16_t> ids;
    sfnt::Bytes list;
    for (int i = 0; i < n; i++) ids.push_back((uint16_t)(3 * i + (i % 3))), sfnt::u16(list, ids.back());
    for (FS_ULONG id = 0; id < 3u * n + 5; id++)
      ASSERT_EQ(searchNoCenterList(list.data(), n, id), std::binary_search(ids.begin(), ids.end(), id) ? 1 : 0)
          << n << " entries, id " << id;
  }
  struct Row { uint32_t version; FS_ULONG glyph; FS_LONG type, noCenter, cvt, ylines, rtl; const char* why; };
  const Row rows[] = {
      {0x00015000, 40, 0, 0, 0, 0, 0, "v1 zone glyph: nothing more"},
      {0x00015000, 7, 3, 1, 0, 0, 0, "v1 before the zone, on the no-centre list"},
      {0x00015000, 8, 3, 0, 0, 0, 0, "v1 before the zone, off the list"},
      {0x00020000, 40, 4, 0, 11, 2, 1, "v2 zone glyph: its record"},
      {0x00020000, 60, 4, 0, 5, 6, 0, "v2 zone index past the count: record 0"},
      {0x00020000, 7, 3, 1, 0, 0, 0, "v2 before the zone"},
      {0x00040000, 40, 0, 0, 0, 0, 0, "unknown version"},
  };
  for (const Row& r : rows) {
    AdfFont f(adfh(r.version, {}, {}, {3, 7}, {{30, 50, 1}, {55, 65, 9}}, {{5, 6, 0}, {11, 2, 1}}));
    FS_LONG v[5];
    f.st.error = 0;
    adfGetEdgeHintData(&f.st, f.ttf(), r.glyph, &v[0], &v[1], &v[2], &v[3], &v[4]);
    EXPECT_EQ(std::vector<FS_LONG>(v, v + 5), std::vector<FS_LONG>({r.type, r.noCenter, r.cvt, r.ylines, r.rtl})) << r.why;
    EXPECT_EQ(f.st.error, r.version == 0x00040000 ? 441u : 0u) << r.why;
  }
}

// Each pixel of a map as 8-bit grey keyed by position; `comp` picks a
// component of four-component maps (1 green, 3 the largest).
std::map<std::pair<int, int>, int> pixels(const FS_GLYPHMAP* g, int comp = 0) {
  std::map<std::pair<int, int>, int> p;
  int comps = g->bitsPerPixel >= 16 ? 4 : 1, bits = g->bitsPerPixel / comps;
  for (int r = 0; r < g->height; r++)
    for (int c = 0; c < g->width; c++) {
      int s = c * comps + (comps == 4 ? comp : 0), bit = s * bits;
      int v = (g->bits[r * g->bpl + bit / 8] >> (8 - bits - bit % 8)) & ((1 << bits) - 1);
      if (v) p[{g->lo_x + c, g->hi_y - r}] = v;
    }
  return p;
}

int at(const std::map<std::pair<int, int>, int>& p, std::pair<int, int> k) {
  auto it = p.find(k);
  return it == p.end() ? 0 : it->second;
}

TEST(AdfMaps, TypesAgainstTheEightBitMap) {
  AdfFont f({});
  FS_GLYPHMAP* g8 = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
  ASSERT_TRUE(g8 != nullptr);
  auto ref = pixels(g8);
  for (int bits : {4, 2}) {
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, kA, bits == 4 ? FS_MAP_EDGE_GRAYMAP4 : FS_MAP_EDGE_GRAYMAP2);
    ASSERT_TRUE(g != nullptr);
    std::map<std::pair<int, int>, int> cut;
    for (const auto& kv : ref)
      if (kv.second >> (8 - bits)) cut[kv.first] = kv.second >> (8 - bits);
    EXPECT_EQ(pixels(g), cut) << bits << " bits";
    FSS_free_char(&f.st, g);
  }
  for (FS_USHORT type : {FS_MAP_ADF_8, FS_MAP_ADF_8B, FS_MAP_ADF_4}) {
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, kA, type);
    ASSERT_TRUE(g != nullptr);
    EXPECT_EQ(g->bitsPerPixel, type == FS_MAP_ADF_4 ? 16 : 32);
    auto green = pixels(g, 1), top = pixels(g, 3);
    for (int comp : {0, 2})
      for (const auto& kv : pixels(g, comp)) EXPECT_GE(at(top, kv.first), kv.second);
    for (int r : {0, g->height - 1}) {  // trimmed: no blank first or last row
      int sum = 0;
      for (int i = 0; i < g->bpl; i++) sum += g->bits[r * g->bpl + i];
      EXPECT_GT(sum, 0) << "type " << type << " row " << r;
    }
    if (type != FS_MAP_ADF_4) {
      auto all = ref;
      all.insert(green.begin(), green.end());
      for (const auto& kv : all)
        EXPECT_NEAR(at(green, kv.first), at(ref, kv.first), 1) << "type " << type;
    }
    FSS_free_char(&f.st, g);
  }
  FSS_free_char(&f.st, g8);
  FS_set_flags(&f.st, FLAGS_EMBOSSED);
  EXPECT_EQ(FSS_get_glyphmap(&f.st, kA, FS_MAP_ADF_8), nullptr);
  EXPECT_EQ(f.st.error, 462u);
}

// The space and A as distance-field and distance maps, checked and freed
// with their cache entries: the heap charge is back where the scaled font
// (readied by a gray request) had it.
TEST(AdfMaps, SpaceDistanceFieldAndHeap) {
  FS_STATE st;
  FILECHAR name[256];
  EXPECT_EQ(FSS_init(&st, 64u << 20), 0);
  EXPECT_EQ(FSS_load_font(&st, kFont, nullptr, 0, sizeof name, name), 0);
  EXPECT_EQ(FSS_set_font(&st, name), 0);
  EXPECT_EQ(FSS_set_scale(&st, 24 << 16, 0, 0, 24 << 16), 0);
  EXPECT_EQ(FSS_set_cmap(&st, 3, 1), 0);
  FSS_free_char(&st, FSS_get_glyphmap(&st, 'A', FS_MAP_GRAYMAP8));
  delete_fs_cache(&st, st.cur_sfnt);
  FS_ULONG start = st.server->allocated;
  {
    FS_GLYPHMAP* space = FSS_get_glyphmap(&st, 0x20, FS_MAP_EDGE_GRAYMAP8);
    ASSERT_TRUE(space != nullptr && st.error == 0);
    EXPECT_EQ(space->width * space->height, 0);
    EXPECT_EQ(space->i_dx, 8);  // 651 units of 2048 at 24 pixels
    FS_set_csm(&st, 111, -222, 65536);
    FS_GLYPHMAP* field = FSS_get_glyphmap(&st, 'A', FS_MAP_DISTANCEFIELD);
    ASSERT_TRUE(field != nullptr);
    EXPECT_EQ(std::vector<int>({field->type, field->bitsPerPixel, field->bpl}),
              std::vector<int>({8, 8, field->width}));
    int lo = 255, hi = 0;  // far outside 0, the shallow inside above 128
    for (int i = 0; i < field->height * field->bpl; i++)
      lo = std::min(lo, (int)field->bits[i]), hi = std::max(hi, (int)field->bits[i]);
    EXPECT_EQ(lo, 0);
    EXPECT_TRUE(hi > 140 && hi < 200) << hi;
    EXPECT_EQ(std::vector<ADF_F32>({st.insideCutoff, st.outsideCutoff}), std::vector<ADF_F32>({111, -222}));
    FSS_free_char(&st, space);
    FSS_free_char(&st, field);
  }
  delete_fs_cache(&st, st.cur_sfnt);
  EXPECT_EQ(st.server->allocated, start);
  EXPECT_EQ(FSS_delete_font(&st, name), 0);
  FSS_exit(&st);
}

// Malformed input: the ADFH cut at every length and filled at random, and
// random bytes written into glyf, with three types for A to Z: a map or an
// error code, never a crash.
TEST(AdfMaps, MalformedTablesAndGlyphsGiveMapsOrErrors) {
  sfnt::Bytes good = adfh(0x00020000, {40, 100}, {{kR12, kR24a}, {kR30}}, {3, 7}, {{30, 50, 1}}, {{5, 6, 0}});
  std::vector<sfnt::Bytes> tables;
  for (size_t n = 1; n < good.size(); n += kSweepStep) tables.emplace_back(good.begin(), good.begin() + n);
  srand(35);
  for (int k = 0; k < 12; k++) {
    sfnt::Bytes t = good;
    for (size_t i = 4; i < t.size(); i++) t[i] = (uint8_t)rand();
    tables.push_back(t);
  }
  auto run = [](FS_STATE* st, const char* why) {
    for (FS_ULONG c = 'A'; c <= 'Z'; c += kSweepStep)
      for (FS_USHORT type : {FS_MAP_EDGE_GRAYMAP8, FS_MAP_DISTANCEFIELD, FS_MAP_ADF_8}) {
        FS_GLYPHMAP* g = FSS_get_glyphmap(st, c, type);
        EXPECT_TRUE(g != nullptr || st->error != 0) << why;
        FSS_free_char(st, g);
      }
  };
  for (const sfnt::Bytes& t : tables) {
    AdfFont f(t);
    FS_set_flags(&f.st, ~FLAGS_CMAP_OFF);
    FSS_set_cmap(&f.st, 3, 1);
    run(&f.st, "adfh");
  }
  std::string file = testsupport::readBytes(kFont);
  sfnt::Font font = sfnt::read(sfnt::Bytes(file.begin(), file.end()));
  for (int k = 0; k < 6; k++) {
    sfnt::Font bad = font;
    for (sfnt::Table& t : bad.tables)
      if (t.tag == "glyf")
        for (int i = 0; i < 400; i++) t.data[(size_t)rand() % 60000] = (uint8_t)rand();
    testsupport::TypesetFont f;
    if (f.open("", sfnt::build(bad)) != 0 || f.setPpem(24) != 0) continue;
    FSS_set_cmap(&f.st, 3, 1);
    run(&f.st, "glyf");
  }
}

}  // namespace
