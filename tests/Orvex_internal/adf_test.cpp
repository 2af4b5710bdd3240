// The distance-field glue: contrast values and edge hints from a hand-built
// `adfh` in DejaVu Sans, map types, cache, heap and malformed input.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <map>
#include <numeric>

#include "Orvex_internal/adf.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/sbit_builder.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

namespace {

const char kFont[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const FS_ULONG kA = 36;  // DejaVu Sans 'A'
#if defined(__SANITIZE_ADDRESS__)
const int kStep = 7;
#else
const int kStep = 1;
#endif

// An `adfh`: ranges (end glyph, records), no-centre list, zones and (v2) zone records.
typedef std::array<uint32_t, 4> Rec;
typedef std::array<uint16_t, 3> Three;
sfnt::Bytes adfh(uint32_t version, const std::vector<std::pair<uint16_t, std::vector<Rec>>>& ranges,
                 const std::vector<uint16_t>& noCenter = {}, const std::vector<Three>& zones = {},
                 const std::vector<Three>& records = {}) {
  sfnt::Bytes e, b;
  sfnt::u32(b, version), sfnt::u16(b, (uint32_t)ranges.size()), sfnt::u16(b, 0);
  for (const auto& r : ranges) {
    sfnt::u16(b, r.first), sfnt::u16(b, (uint32_t)e.size()), sfnt::u16(e, (uint32_t)r.second.size());
    for (const Rec& c : r.second) sfnt::u16(e, c[0]), sfnt::u32(e, c[1]), sfnt::u32(e, c[2]), sfnt::u32(e, c[3]);
  }
  sfnt::putU16(b, 6, (uint32_t)e.size());
  b.insert(b.end(), e.begin(), e.end());
  sfnt::u16(b, (uint32_t)noCenter.size());
  for (uint16_t g : noCenter) sfnt::u16(b, g);
  sfnt::u16(b, (uint32_t)zones.size());
  for (const Three& z : zones) sfnt::u16(b, z[0]), sfnt::u16(b, z[1]), sfnt::u16(b, z[2]);
  if (version == 0x00020000) sfnt::u16(b, (uint32_t)records.size());
  for (const Three& r : records) sfnt::u16(b, r[0]), sfnt::u16(b, r[1]), sfnt::u16(b, r[2]), sfnt::u16(b, 0);
  return b;
}

sfnt::Font dejaVu() { std::string f = testsupport::readBytes(kFont); return sfnt::read(sfnt::Bytes(f.begin(), f.end())); }

// DejaVu Sans with `table` as its ADFH (none when empty) at 24 ppem, unhinted, by glyph index.
struct AdfFont : testsupport::TypesetFont {
  explicit AdfFont(const sfnt::Bytes& table) {
    EXPECT_EQ(open("", sfnt::build(table.empty() ? dejaVu() : dejaVu().set("ADFH", table))) | setPpem(24), 0);
    FS_set_flags(&st, FLAGS_CMAP_OFF), FS_set_flags(&st, FLAGS_NO_HINTS);
  }
};

const Rec kR12 = {12, 65536, (uint32_t)-65536, 65536}, kR24a = {24, 19661, (uint32_t)-19661, 65536},
          kR24b = {24, 13107, (uint32_t)-13107, 131072}, kR30 = {30, 98304, (uint32_t)-98304, 65536};

TEST(AdfCsm, RecordOfLargestSizeAtOrBelowLpm) {
  struct Row { uint32_t version; FS_ULONG glyph; std::vector<ADF_F32> csm; FS_ULONG error; const char* why; };
  const Row rows[] = {
      {0x00015000, 5, {13107, -13107, 131072}, 0, "two records of size 24: the later wins"},
      {0x00015000, 50, {26214, -36700, 65536}, 0, "first record above lpm: client's values"},
      {0x00015000, 200, {26214, -36700, 65536}, 0, "past the last range: client's values"},
      {0x00030000, 5, {26214, -36700, 65536}, 441, "unknown version: 441, client's values"},
  };
  for (const Row& r : rows) {
    AdfFont f(adfh(r.version, {{10, {kR12, kR24a, kR24b, kR30}}, {100, {kR30}}}));
    std::vector<ADF_F32> v(3);
    EXPECT_EQ(FS_get_csm(&f.st, r.glyph, &v[0], &v[1], &v[2]) + f.st.error, r.error) << r.why;
    EXPECT_EQ(v, r.csm) << r.why;
    // In a glyph request an unreadable table is no error: the map renders.
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
    EXPECT_TRUE(g != nullptr && f.st.error == 0) << r.why;
    FSS_free_char(&f.st, g);
  }
}

long ink(FS_STATE* st) {
  FS_GLYPHMAP* g = FSS_get_glyphmap(st, kA, FS_MAP_EDGE_GRAYMAP8);
  long sum = g ? std::accumulate(g->bits, g->bits + g->height * g->bpl, 0L) : -1;
  return FSS_free_char(st, g), sum;
}

TEST(AdfCsm, AdjustmentsFollowLpmByHand) {
  AdfFont f({});
  FS_set_csm_adjustments(&f.st, 6554, 655, 3277, 131);  // S = 0.1 + lpm 0.01, T = 0.05 + lpm 0.002
  for (int lpm : {24, 48}) {  // a new scale derives them again
    if (lpm == 48) { ASSERT_EQ(f.setPpem(48), 0); }
    const ADF_F32 s = 6554 + lpm * 655, t = 3277 + lpm * 131;
    EXPECT_EQ(std::vector<ADF_F32>({f.st.insideCutoffAdj, f.st.outsideCutoffAdj}), std::vector<ADF_F32>({-(t + s), s - t}));
  }
  long plain = (FS_set_csm_adjustments(&f.st, 0, 0, 0, 0), ink(&f.st));
  EXPECT_GT((FS_set_csm_adjustments(&f.st, 0, 0, 6554, 0), ink(&f.st)), plain) << "thickness 0.1 grows the ink";
}

TEST(AdfCsm, TableSelectsAdfAndRecordChangesMapAndCacheKeepsThemApart) {
  for (bool table : {false, true}) {
    AdfFont f(table ? adfh(0x00015000, {{100, {{20, 98304, (uint32_t)-98304, 65536}}}}) : sfnt::Bytes());
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8 | FS_MAP_GRAYMAP8);
    EXPECT_EQ(g ? g->type : 0, table ? FS_MAP_EDGE_GRAYMAP8 : FS_MAP_GRAYMAP8) << "render behaviour bit 4";
    FSS_free_char(&f.st, g);
    if (!table) continue;
    FS_GLYPHMAP* rec = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
    FS_GLYPHMAP* def = (FS_set_flags(&f.st, FLAGS_DEFAULT_CSM_ON), FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8));
    ASSERT_TRUE(rec && def && rec != def);
    EXPECT_FALSE(rec->size == def->size && memcmp(rec->bits, def->bits, rec->size - 40) == 0);
    FS_GLYPHMAP* again = (FS_set_flags(&f.st, ~FLAGS_DEFAULT_CSM_ON), FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8));
    EXPECT_EQ(again, rec) << "switching back is a cache hit";
    for (FS_GLYPHMAP* m : {rec, def, again}) FSS_free_char(&f.st, m);
  }
}

// The hint values in the key after the outline of `glyph` is fetched, and a failed fetch's error.
std::vector<FS_LONG> fetchedHints(FS_STATE* st, FS_ULONG glyph) {
  FS_OUTLINE* o = make_outline_ttf(st, st->cur_sfnt, glyph);
  const fnt_MAZData& m = ((fsg_SplineKey*)st->cur_sfnt->senv->ttkey)->globalGS.maz_data;
  std::vector<FS_LONG> v = {m.gridFitType, m.alignment[0], m.alignment[1], m.alignment[2], m.alignment[3]};
  return v.resize(o && st->error == 0 ? 5 : 6, (FS_LONG)st->error), FSS_free(st, o), v;
}

TEST(AdfEdgeHints, NoCenterSearchAndBothVersions) {
  for (int n : {10, 100}) {
    std::vector<uint16_t> ids;
    sfnt::Bytes list;  // the same in file order
    for (int i = 0; i < n; i++) ids.push_back((uint16_t)(3 * i + i % 3)), sfnt::u16(list, ids.back());
    for (FS_ULONG id = 0; id < 3u * n + 5; id++)
      ASSERT_EQ(searchNoCenterList(list.data(), n, id), std::binary_search(ids.begin(), ids.end(), id)) << n << " " << id;
  }
  struct Row { uint32_t version; FS_ULONG glyph; std::vector<FS_LONG> out; const char* why; };
  const Row rows[] = {
      {0x00015000, 40, {0, 0, 0, 0, 0}, "v1 zone glyph: nothing more"},
      {0x00015000, 7, {3, 1, 0, 0, 0}, "v1 before the zone, on the no-centre list"},
      {0x00020000, 40, {4, 0, 11, 2, 1}, "v2 zone glyph: its record"},
      {0x00020000, 60, {4, 0, 5, 6, 0}, "v2 zone index past the count: record 0"},
      {0x00020000, 7, {3, 1, 0, 0, 0}, "v2 before the zone"},
      {0x00040000, 40, {0, 0, 0, 0, 0}, "unknown version: 441"},
  };
  for (const Row& r : rows) {
    AdfFont f(adfh(r.version, {}, {3, 7}, {{30, 50, 1}, {55, 65, 9}}, {{5, 6, 0}, {11, 2, 1}}));
    std::vector<FS_LONG> v(5);
    adfGetEdgeHintData(&f.st, (TTF*)f.st.cur_lfnt->fnt, r.glyph, &v[0], &v[1], &v[2], &v[3], &v[4]);
    EXPECT_EQ(v, r.out) << r.why;
    EXPECT_EQ(f.st.error, r.version == 0x00040000 ? 441u : 0u) << r.why;
    EXPECT_EQ(fetchedHints(&f.st, r.glyph), r.out) << "kept by the glyph fetch: " << r.why;
  }
  AdfFont none({});  // no table: all 0; the client's MAZ flag forces type 3
  EXPECT_TRUE(fetchedHints(&none.st, 40) == std::vector<FS_LONG>(5) &&
              fetchedHints((FS_set_flags(&none.st, FLAGS_MAZ_ON), &none.st), 40) == std::vector<FS_LONG>({3, 0, 0, 0, 0}));
}

// A stroke font's dot, a line back to its move, becomes a vertical bar of one stroke width: at
// stroke 0.1 and 24 ppem half of it is ((24 * 6554 + 512) >> 10) / 2 * 1024 = 78848, by the boldness decision.
TEST(AdfPath, StrokeDotsStretchByTheBoldDecision) {
  const struct { FS_ULONG fontflags, flags; FS_FIXED bold, e; const char* why; } rows[] = {
      {0, 0, 0, 78848, "no boldness: stretched"}, {FONTFLAG_STIK_64, 0, 0, 0, "a 64-unit stroke font without boldness: not"},
      {0, FLAGS_ADD_WEIGHT, 3277, 78848, "added weight: stretched"}, {0, FLAGS_ADD_WEIGHT | FLAGS_EMBOSSED, 3277, 0, "an outline effect: not"}};
  for (const auto& r : rows) {
    AdfFont f({});
    FS_set_stroke_pct(&f.st, 6554), FS_set_bold_pct(&f.st, r.bold), f.st.flags |= r.flags, f.st.cur_lfnt->fontflags |= FONTFLAG_STROKE | r.fontflags;
    FS_OUTLINE* o = setup_outline(&f.st, 1, 2, 2);
    o->type[0] = FS_MOVETO, o->type[1] = FS_LINETO, o->x[0] = o->x[1] = o->y[0] = o->y[1] = 10 << 16;
    FS_GRAYMAP* g = nullptr;
    ADFPath* p = make_ADF_path(&f.st, o, 'i', &g, &o->dx, &o->dy);
    EXPECT_TRUE(p && p->pathType == ADF_PATH_STROKE && p->penCmds[0].y == p->glyphMinY && p->glyphMinY == 655360 - r.e &&
                p->penCmds[1].y == p->glyphMaxY && p->glyphMaxY == 655360 + r.e) << r.why;
    ADFFree(f.st.libInst, p), FSS_free(&f.st, o);
  }
}

// A map's pixels by position; `comp` picks a component of a four-component map.
std::map<std::pair<int, int>, int> pixels(const FS_GLYPHMAP* g, int comp = 0) {
  std::map<std::pair<int, int>, int> p;
  int comps = g->bitsPerPixel >= 16 ? 4 : 1, bits = g->bitsPerPixel / comps;
  for (int r = 0; r < g->height; r++)
    for (int c = 0, bit = (c * comps + comp % comps) * bits; c < g->width; c++, bit = (c * comps + comp % comps) * bits)
      if (int v = (g->bits[r * g->bpl + bit / 8] >> (8 - bits - bit % 8)) & ((1 << bits) - 1)) p[{g->lo_x + c, g->hi_y - r}] = v;
  return p;
}

TEST(AdfMaps, TypesAgainstTheEightBitMap) {
  AdfFont f({});
  FS_GLYPHMAP* g8 = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
  auto ref = g8 ? pixels(g8) : decltype(pixels(g8))();
  for (FS_USHORT type : {FS_MAP_EDGE_GRAYMAP4, FS_MAP_EDGE_GRAYMAP2, FS_MAP_ADF_8, FS_MAP_ADF_8B, FS_MAP_ADF_4}) {
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, kA, type);
    ASSERT_TRUE(g != nullptr);
    if (type < FS_MAP_ADF_4) {  // the 8-bit map cut to 4 and 2 bits, trimmed alike
      int bits = type == FS_MAP_EDGE_GRAYMAP4 ? 4 : 2;
      std::map<std::pair<int, int>, int> cut;
      for (const auto& kv : ref)
        if (kv.second >> (8 - bits)) cut[kv.first] = kv.second >> (8 - bits);
      EXPECT_EQ(pixels(g), cut) << bits << " bits";
    } else {
      EXPECT_EQ(g->bitsPerPixel, type == FS_MAP_ADF_4 ? 16 : 32);
      auto green = pixels(g, 1), top = pixels(g, 3);
      for (int comp : {0, 1, 2})
        for (const auto& kv : pixels(g, comp)) EXPECT_GE(top[kv.first], kv.second) << "byte 3 is the largest";
      for (int r : {0, g->height - 1})  // trimmed: no blank first or last row
        EXPECT_TRUE(std::any_of(g->bits + r * g->bpl, g->bits + (r + 1) * g->bpl, [](FS_BYTE b) { return b != 0; }));
      if (type != FS_MAP_ADF_4) {
        auto all = ref;
        all.insert(green.begin(), green.end());
        for (const auto& kv : all) EXPECT_NEAR(green[kv.first], ref[kv.first], 1) << "green, type " << type;
      }
    }
    FSS_free_char(&f.st, g);
  }
  FSS_free_char(&f.st, g8), FS_set_flags(&f.st, FLAGS_EMBOSSED);
  EXPECT_TRUE(FSS_get_glyphmap(&f.st, kA, FS_MAP_ADF_8) == nullptr && f.st.error == 462u);
}

// The space and A as ADF and distance maps, freed with their cache entries:
// the heap is back where a gray request readying the scaled font left it.
TEST(AdfMaps, SpaceDistanceFieldAndHeap) {
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open(kFont) | f.setPpem(24) | FSS_set_cmap(&f.st, 3, 1), 0);
  FSS_free_char(&f.st, FSS_get_glyphmap(&f.st, 'A', FS_MAP_GRAYMAP8)), delete_fs_cache(&f.st, f.st.cur_sfnt);
  FS_ULONG start = f.st.server->allocated;
  FS_GLYPHMAP* space = FSS_get_glyphmap(&f.st, 0x20, FS_MAP_EDGE_GRAYMAP8);
  ASSERT_TRUE(space && f.st.error == 0 && space->width * space->height == 0 && space->i_dx == 8);  // 651/2048 em
  FS_GLYPHMAP* field = (FS_set_csm(&f.st, 111, -222, 65536), FSS_get_glyphmap(&f.st, 'A', FS_MAP_DISTANCEFIELD));
  ASSERT_TRUE(field != nullptr);
  EXPECT_EQ(std::vector<int>({field->type, field->bitsPerPixel, field->bpl}), std::vector<int>({8, 8, field->width}));
  auto range = std::minmax_element(field->bits, field->bits + field->height * field->bpl);
  EXPECT_TRUE(*range.first == 0 && *range.second > 140 && *range.second < 200) << "0 far out, inside past 128";
  EXPECT_EQ(std::vector<ADF_F32>({f.st.insideCutoff, f.st.outsideCutoff}), std::vector<ADF_F32>({111, -222}));
  FSS_free_char(&f.st, space), FSS_free_char(&f.st, field), delete_fs_cache(&f.st, f.st.cur_sfnt);
  EXPECT_EQ(f.st.server->allocated, start);
}

// An 8-bit strike of A at 24 ppem serves (the outline's A is 16 wide), kept only with an effect on (the font
// is in memory), a column wider with added weight; a colour glyph is kept in the icon cache.
TEST(AdfMaps, StrikeGlyphsServeAndColourGlyphsGoToTheIconCache) {
  sfnt::Bytes eblc, ebdt;
  testsupport::buildStrike({{(uint16_t)kA, 3, 2, 1, 5, 4, {255, 128, 255, 64, 0, 255}}}, 24, 8, 1, 1, &eblc, &ebdt);
  const struct { FS_ULONG flags; FS_FIXED bold; int width; bool cached; const char* why; } rows[] = {
      {0, 0, 3, false, "as it is, not kept"}, {FLAGS_EMBOSSED, 0, 3, true, "an effect keeps it"},
      {FLAGS_ADD_WEIGHT, 3277, 4, true, "added weight: a column wider, kept"}};
  for (const auto& r : rows) {
    testsupport::TypesetFont f;
    ASSERT_EQ(FS_set_bold_pct(&f.st, r.bold) | f.open("", sfnt::build(dejaVu().set("EBLC", eblc).set("EBDT", ebdt))) | f.setPpem(24), 0);
    FS_set_flags(&f.st, FLAGS_CMAP_OFF), FS_set_flags(&f.st, r.flags);
    FS_GLYPHMAP *a = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8), *b = FSS_get_glyphmap(&f.st, kA, FS_MAP_EDGE_GRAYMAP8);
    EXPECT_TRUE(a && b && a->width == r.width && (a == b) == r.cached) << r.why;
    FSS_free_char(&f.st, a), FSS_free_char(&f.st, b);
  }
  testsupport::TypesetFont e;
  ASSERT_EQ(e.open("/usr/share/fonts/truetype/noto/NotoColorEmoji.ttf") | e.setPpem(24), 0);
  FS_GLYPHMAP *a = (FS_set_flags(&e.st, FLAGS_CMAP_OFF), FSS_get_glyphmap(&e.st, 100, FS_MAP_EDGE_GRAYMAP8 | FS_MAP_RASTER_ICON));
  EXPECT_TRUE(a && a->bitsPerPixel == 32 && a == FSS_get_glyphmap(&e.st, 100, FS_MAP_EDGE_GRAYMAP8 | FS_MAP_RASTER_ICON));
  FSS_free_char(&e.st, a), FSS_free_char(&e.st, a);
}

// The ADFH cut at every length or filled at random, random bytes in glyf:
// for A to Z in three types a map or an error code, never a crash.
TEST(AdfMaps, MalformedTablesAndGlyphsGiveMapsOrErrors) {
  sfnt::Bytes good = adfh(0x00020000, {{40, {kR12, kR24a}}, {100, {kR30}}}, {3, 7}, {{30, 50, 1}}, {{5, 6, 0}});
  std::vector<sfnt::Font> fonts((srand(35), 0));
  for (size_t n = 1; n < good.size() + 12; n += kStep) {
    sfnt::Bytes t(good.begin(), good.begin() + std::min(n, good.size()));
    for (size_t i = 4; n >= good.size() && i < t.size(); i++) t[i] = (uint8_t)rand();
    fonts.push_back(dejaVu().set("ADFH", t));
  }
  for (int k = 0; k < 6; k++)
    for (sfnt::Table& t : (fonts.push_back(dejaVu()), fonts.back().tables))
      for (int i = 0; t.tag == "glyf" && i < 400; i++) t.data[(size_t)rand() % 60000] = (uint8_t)rand();
  for (const sfnt::Font& font : fonts) {
    testsupport::TypesetFont f;
    if (f.open("", sfnt::build(font)) | f.setPpem(24) | FSS_set_cmap(&f.st, 3, 1)) continue;
    for (FS_ULONG c = 'A'; c <= 'Z'; c += kStep)
      for (FS_USHORT type : {FS_MAP_EDGE_GRAYMAP8, FS_MAP_DISTANCEFIELD, FS_MAP_ADF_8}) {
        FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, c, type);
        EXPECT_TRUE(g != nullptr || f.st.error != 0), FSS_free_char(&f.st, g);
      }
  }
}

}  // namespace
