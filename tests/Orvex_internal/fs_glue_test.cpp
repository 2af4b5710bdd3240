// The TrueType glyph reader on fonts built byte by byte: a simple glyph's
// scaled points and phantom places, composites with offsets, scales and
// anchor points, the depth limit, a glyph in itself, and the refusal or
// empty reading of bad `loca` entries and contour ends.
#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/fs_err.h"
#include "support/glyf_font.h"
#include "support/scaled_font.h"

namespace {

const uint32_t XY = 0x2, SCALE = 0x8, MY_METRICS = 0x200;  // component flags

// Glyphs: 0 empty, 1 the triangle (0,0) (100,0) (50,100), 2 itself and the
// triangle moved (10, 20), 3 -> 4 -> 3 (a cycle below the top), 5 -> 3, 6
// the triangle at half size moved 100 right, 7 two triangles joined at
// anchor points (the second's point 0 on the first's point 2), 8 a
// component past the end, 9 contour ends out of order, 10 more points than
// maxp allows, 11 a truncated header, 12 to 22 a chain: each the one
// before it, 12 the triangle.
std::vector<sfnt::Bytes> glyphs() {
  std::vector<sfnt::Bytes> g(23);
  g[1] = glyffont::triangle();
  g[2] = glyffont::composite({{XY, 2, 0, 0}, {XY, 1, 10, 20}});
  g[3] = glyffont::composite({{XY, 4, 0, 0}});
  g[4] = glyffont::composite({{XY, 3, 0, 0}});
  g[5] = glyffont::composite({{XY, 3, 0, 0}});
  g[6] = glyffont::composite({{XY | SCALE, 1, 100, 0, 0x2000}});
  g[7] = glyffont::composite({{XY, 1, 0, 0}, {MY_METRICS, 1, 2, 0}});
  g[8] = glyffont::composite({{XY, 99, 0, 0}});
  g[9] = glyffont::simple({3, 1}, {{0, 0, true}, {1, 1, true}, {2, 2, true}, {3, 3, true}});
  g[10] = glyffont::simple({11}, std::vector<glyffont::Pt>(12, {5, 5, true}));
  g[11] = sfnt::Bytes{0, 1, 0, 0, 0, 0};
  for (uint32_t i = 12; i < 23; i++) g[i] = glyffont::composite({{XY, i == 12 ? 1 : i - 1, 0, 0}});
  return g;
}

// A font scaled at 10 ppem of 1000 units: 0.64 26.6 units per font unit.
struct Fixture {
  testsupport::ScaledFont f;
  bool ok;
  explicit Fixture(const sfnt::Font& font) {
    f.setFont("", sfnt::build(font));
    ok = f.setPpem(10) == 0;
  }
  // Points from..to-1 of the glyph element as "x,y x,y ...".
  std::string points(int from, int to) {
    fnt_ElementType* e = f.element();
    std::string s;
    for (int i = from; i < to; i++)
      s += (i > from ? " " : "") + std::to_string(e->x[i]) + "," + std::to_string(e->y[i]);
    return s;
  }
  int np() { return f.element()->np; }
};

TEST(GlyphFetch, SimpleCompositeAndEmptyGlyphsWithTheirPhantomPlaces) {
  Fixture t(glyffont::font(glyphs()));
  ASSERT_TRUE(t.ok);
  // Simple: the triangle scaled and its phantom places; y: 2 and 6 at ah =
  // 800 + 200 (hhea, no OS/2) -> 640, 3 at twice that, 7 at yMax 100 -> 64.
  // Composites: the reference to itself dropped, the offset (10, 20) =
  // (6.4, 12.8); half size then 100 right; point 0 onto point 2 (32,64).
  struct {
    int glyph, np, nc, shown;  // points and contours; points shown
    const char* points;
    const char* why;
  } rows[] = {
      {1, 3, 1, 11, "0,0 64,0 32,64 0,0 320,0 160,640 160,1280 0,0 0,0 0,640 0,64", "simple"},
      {2, 3, 1, 3, "6,13 70,13 38,77", "moved by (10, 20)"},
      {6, 3, 1, 3, "64,0 96,0 80,32", "at half size, moved by 100"},
      {7, 6, 2, 6, "0,0 64,0 32,64 32,64 96,64 64,128", "anchored by points"},
  };
  for (auto& r : rows) {
    ASSERT_EQ(0, t.f.fetch(r.glyph)) << r.why;
    EXPECT_EQ((std::vector<int>{r.np, r.nc}), (std::vector<int>{t.np(), t.f.element()->nc}))
        << r.why;
    EXPECT_EQ(r.points, t.points(0, r.shown)) << r.why;
  }
}

TEST(GlyphFetch, BadGlyphsAreRefusedWithTheirCodesAndTheFontStillReads) {
  Fixture t(glyffont::font(glyphs()));
  struct {
    int glyph;
    FS_LONG err;
    const char* why;
  } rows[] = {
      {5, ERR_BAD_GLYF_FORMAT, "5 -> 3 -> 4 -> 3 ...: level 11 is refused"},
      {3, 0, "with 3 on top, 4's reference back to it is dropped"},
      {8, ERR_BAD_GLYF_INDEX, "a component past the end"},
      {9, ERR_BAD_GLYF_FORMAT, "contour ends out of order"},
      {10, (FS_LONG)ERR_TOO_MANY_POINTS, "more points than maxp allows"},
      {11, ERR_BAD_GLYF_FORMAT, "a truncated header"},
      {21, 0, "ten composites above the triangle: its level is 10, the limit"},
      {22, ERR_BAD_GLYF_FORMAT, "eleven: level 11 is refused"},
      {23, ERR_BAD_GLYF_INDEX, "an index past the font"},
      {1, 0, "the font still reads"},
  };
  for (auto& r : rows) EXPECT_EQ(r.err, t.f.fetch(r.glyph)) << r.why;

  Fixture u(
      glyffont::font({glyffont::simple({0, 1, 2}, {{0, 0, true}, {1, 1, true}, {2, 2, true}})}));
  EXPECT_EQ(ERR_TOO_MANY_CONTOURS, u.f.fetch(0)) << "three contours where maxp allows two";
}

TEST(GlyphFetch, LocaOutOfOrderPastGlyfOrTooShortReadsAsEmpty) {
  std::vector<sfnt::Bytes> g(3, glyffont::triangle());
  uint32_t len = (uint32_t)g[0].size();
  // Glyph 0 is fine, 1 ends past `glyf`, 2 runs backwards; then a `loca`
  // too short for the last glyph.
  Fixture t(glyffont::font(g, {0, len, 10 * len, 2 * len}));
  Fixture u(glyffont::font(g, {0, len}));
  ASSERT_TRUE(t.ok && u.ok);
  for (auto fetch : {std::make_pair(&t, 0), {&t, 1}, {&t, 2}, {&u, 0}, {&u, 2}}) {
    ASSERT_EQ(0, fetch.first->f.fetch(fetch.second)) << fetch.second;
    EXPECT_EQ(fetch.second == 0 ? 3 : 0, fetch.first->np()) << fetch.second;
  }
}

TEST(ScaleFont, AWorkspaceBeyondTheHeapIs201AndNothingStays) {
  // maxp asks room for 60000 points, which the element records cap at
  // 32759; at about 26 bytes a point that passes a 512 kB heap.
  testsupport::ScaledFont f(1u << 19);
  f.setFont("", sfnt::build(glyffont::font({glyffont::triangle()}, {}, 60000)));
  EXPECT_EQ(ERR_MALLOC_FAIL, f.setPpem(10));
  FS_ULONG used = FS_get_heap_used(&f.st);
  EXPECT_EQ(ERR_MALLOC_FAIL, f.setPpem(12));
  EXPECT_EQ(nullptr, f.st.cur_sfnt->senv);
  EXPECT_EQ(0, f.st.server->workspaceSize);
  EXPECT_EQ(used + 8 + ((sizeof(SFNT) + 7) & ~7u), FS_get_heap_used(&f.st))
      << "only the new scaled font";
}

}  // namespace

// Merged scan control words (high bits ORed, the larger threshold) decide dropout control at 12 ppem.
TEST(ScanControl, MergedWordsDecideDropoutControl) {
  const FS_FIXED P = 12 << 16;
  struct { std::vector<FS_ULONG> words; FS_FIXED s00, s01, s10; FS_LONG want; } rows[] = {
      {{}, P, 0, 0, 0},         {{0x100 | 12}, P, 0, 0, 1}, {{0x100 | 11}, P, 0, 0, 0}, {{0x108, 20}, P, 0, 0, 1},
      {{0x1FF}, P, 0, 0, 1},    {{0x114, 0x20000}, P, 0, 0, 0}, {{0x200}, P, 1, 1, 1},  {{0x200}, P, 1, 0, 0},
      {{0x400}, 2 * P, 0, 0, 1}, {{0x400}, P, 0, 0, 0}};
  for (const auto& r : rows) {
    SENV senv{};
    SFNT sfnt{};
    fsg_SplineKey key{};
    senv.yppm = 12, sfnt.senv = &senv, key.sfnt = &sfnt;
    sfnt.user_scale[0] = r.s00, sfnt.user_scale[1] = r.s01, sfnt.user_scale[2] = r.s10, sfnt.user_scale[3] = P;
    for (FS_ULONG w : r.words) update_scanControl(&key, w);
    EXPECT_EQ(r.want, get_dropout_control(&key)) << std::hex << key.scanControl;
  }
}
