// The TrueType glyph reader on fonts built byte by byte: a simple glyph's
// scaled points and phantom places, composites with offsets, scales and
// anchor points, the depth limit, a glyph in itself, and the refusal or
// empty reading of bad `loca` entries and contour ends.
#include <gtest/gtest.h>

#include "Orvex_internal/fs_err.h"
#include "support/glyf_font.h"
#include "support/scaled_font.h"

namespace {

using glyffont::Comp;

const FS_FIXED ONE = 65536;
const uint32_t XY = 0x2;       // args are offsets
const uint32_t SCALE = 0x8;    // one scale
const uint32_t MY_METRICS = 0x200;

// Glyphs: 0 empty, 1 the triangle, 2 itself and the triangle moved,
// 3 -> 4 -> 3 (a cycle below the top), 5 -> 3, 6 the triangle at half
// size moved, 7 two triangles joined at anchor points, 8 a component
// index past the end, 9 contour ends out of order, 10 more points than
// maxp allows, 11 a truncated header.
std::vector<sfnt::Bytes> glyphs() {
  std::vector<sfnt::Bytes> g(12);
  g[1] = glyffont::triangle();
  g[2] = glyffont::composite({{XY, 2, 0, 0}, {XY, 1, 10, 20}});
  g[3] = glyffont::composite({{XY, 4, 0, 0}});
  g[4] = glyffont::composite({{XY, 3, 0, 0}});
  g[5] = glyffont::composite({{XY, 3, 0, 0}});
  g[6] = glyffont::composite({{XY | SCALE, 1, 100, 0, 0x2000}});
  // Second triangle's point 0 lands on the first's point 2 (50, 100).
  g[7] = glyffont::composite({{XY, 1, 0, 0}, {MY_METRICS, 1, 2, 0}});
  g[8] = glyffont::composite({{XY, 99, 0, 0}});
  g[9] = glyffont::simple({3, 1}, {{0, 0, true}, {1, 1, true}, {2, 2, true},
                                   {3, 3, true}});
  std::vector<glyffont::Pt> many(12, {5, 5, true});
  g[10] = glyffont::simple({11}, many);
  g[11] = sfnt::Bytes{0, 1, 0, 0, 0, 0};
  return g;
}

struct Fixture {
  testsupport::ScaledFont f;
  explicit Fixture(const sfnt::Font& font, int ppem = 10) {
    f.setFont("", sfnt::build(font));
    ok = f.setPpem(ppem) == 0;
  }
  bool ok;
  // "x,y" of point i of the glyph element.
  std::string at(int i) {
    fnt_ElementType* e = f.element();
    return std::to_string(e->x[i]) + "," + std::to_string(e->y[i]);
  }
};

TEST(GlyphFetch, SimpleGlyphScaledWithItsPhantomPlaces) {
  Fixture t(glyffont::font(glyphs()));
  ASSERT_TRUE(t.ok);
  ASSERT_EQ(0, t.f.fetch(1));
  fnt_ElementType* e = t.f.element();
  // 10 ppem at 1000 units: 0.64 26.6 units per font unit.
  EXPECT_EQ(3, e->np);
  EXPECT_EQ(1, e->nc);
  EXPECT_EQ(0, e->sp[0]);
  EXPECT_EQ(2, e->ep[0]);
  EXPECT_EQ("0,0", t.at(0));
  EXPECT_EQ("64,0", t.at(1));
  EXPECT_EQ("32,64", t.at(2));
  EXPECT_EQ(1, e->onCurve[0]);
  EXPECT_EQ(0, e->onCurve[2]);
  // Places: 0 and 4 at xMin - lsb = 0, 1 at the advance (500 -> 320),
  // 2 and 3 in the middle (160); y: 2 and 6 at ah = 800 + 200 (no OS/2:
  // hhea) -> 640, 3 at twice that, 7 at yMax 100 -> 64.
  EXPECT_EQ("0,0", t.at(3));
  EXPECT_EQ("320,0", t.at(4));
  EXPECT_EQ("160,640", t.at(5));
  EXPECT_EQ("160,1280", t.at(6));
  EXPECT_EQ("0,0", t.at(7));
  EXPECT_EQ("0,0", t.at(8));
  EXPECT_EQ("0,640", t.at(9));
  EXPECT_EQ("0,64", t.at(10));
}

TEST(GlyphFetch, EmptyGlyphHasOnlyPhantomPlaces) {
  Fixture t(glyffont::font(glyphs()));
  ASSERT_EQ(0, t.f.fetch(0));
  EXPECT_EQ(0, t.f.element()->np);
  EXPECT_EQ(0, t.f.element()->nc);
  EXPECT_EQ("320,0", t.at(1));
}

TEST(GlyphFetch, CompositesMoveScaleAndAnchorTheirComponents) {
  Fixture t(glyffont::font(glyphs()));
  // The glyph's own reference is dropped; the triangle moves by
  // (10, 20) units = (6.4, 12.8) -> (6, 13).
  ASSERT_EQ(0, t.f.fetch(2));
  EXPECT_EQ(3, t.f.element()->np);
  EXPECT_EQ("6,13", t.at(0));
  EXPECT_EQ("38,77", t.at(2));

  // Half size, then 100 units right: (0,0) (32,0) (16,32) + 64.
  ASSERT_EQ(0, t.f.fetch(6));
  EXPECT_EQ("64,0", t.at(0));
  EXPECT_EQ("96,0", t.at(1));
  EXPECT_EQ("80,32", t.at(2));

  // Anchors: the second copy's point 0 (0,0) goes onto point 2 (32,64).
  ASSERT_EQ(0, t.f.fetch(7));
  fnt_ElementType* e = t.f.element();
  EXPECT_EQ(6, e->np);
  EXPECT_EQ(2, e->nc);
  EXPECT_EQ(3, e->sp[1]);
  EXPECT_EQ(5, e->ep[1]);
  EXPECT_EQ("32,64", t.at(3));
  EXPECT_EQ("96,64", t.at(4));
  EXPECT_EQ(1, t.f.key()->useMyMetrics);
}

TEST(GlyphFetch, ACycleBelowTheTopEndsAtTheDepthLimit) {
  Fixture t(glyffont::font(glyphs()));
  // 5 -> 3 -> 4 -> 3 ...: level 11 is refused.
  EXPECT_EQ(ERR_BAD_GLYF_FORMAT, t.f.fetch(5));
  // With 3 on top, 4's reference back to 3 is the top glyph: dropped.
  EXPECT_EQ(0, t.f.fetch(3));
  EXPECT_EQ(0, t.f.element()->np);
}

TEST(GlyphFetch, BadGlyphsAreRefusedWithTheirCodes) {
  Fixture t(glyffont::font(glyphs()));
  EXPECT_EQ(ERR_BAD_GLYF_INDEX, t.f.fetch(8));
  EXPECT_EQ(ERR_BAD_GLYF_FORMAT, t.f.fetch(9));
  EXPECT_EQ(ERR_TOO_MANY_POINTS, (FS_ULONG)t.f.fetch(10));
  EXPECT_EQ(ERR_BAD_GLYF_FORMAT, t.f.fetch(11));
  EXPECT_EQ(ERR_BAD_GLYF_INDEX, t.f.fetch(12));
  // After all that the font still reads.
  EXPECT_EQ(0, t.f.fetch(1));
  EXPECT_EQ("64,0", t.at(1));

  // Three contours where maxp allows two.
  std::vector<sfnt::Bytes> g = {glyffont::simple(
      {0, 1, 2}, {{0, 0, true}, {1, 1, true}, {2, 2, true}})};
  Fixture u(glyffont::font(g));
  EXPECT_EQ(ERR_TOO_MANY_CONTOURS, u.f.fetch(0));
}

TEST(GlyphFetch, LocaOutOfOrderOrPastGlyfReadsAsEmpty) {
  std::vector<sfnt::Bytes> g = {glyffont::triangle(), glyffont::triangle(),
                                glyffont::triangle()};
  uint32_t len = (uint32_t)g[0].size();
  // Glyph 0 is fine, glyph 1 ends past `glyf`, glyph 2 runs backwards.
  Fixture t(glyffont::font(g, {0, len, 10 * len, 2 * len}));
  ASSERT_TRUE(t.ok);
  EXPECT_EQ(0, t.f.fetch(0));
  EXPECT_EQ(3, t.f.element()->np);
  EXPECT_EQ(0, t.f.fetch(1));
  EXPECT_EQ(0, t.f.element()->np);
  EXPECT_EQ(0, t.f.fetch(2));
  EXPECT_EQ(0, t.f.element()->np);

  // A `loca` too short for the last glyph: that glyph is empty.
  Fixture u(glyffont::font(g, {0, len}));
  EXPECT_EQ(0, u.f.fetch(0));
  EXPECT_EQ(3, u.f.element()->np);
  EXPECT_EQ(0, u.f.fetch(2));
  EXPECT_EQ(0, u.f.element()->np);
}

TEST(GlyphFetch, MatrixAppliesAfterScalingAndAdvancesScaleAlone) {
  Fixture t(glyffont::font(glyphs()));
  // A quarter turn left at 10 ppem: (x, y) -> (-y, x).
  ASSERT_EQ(0, t.f.setScale(0, -10 * ONE, 10 * ONE, 0));
  ASSERT_EQ(0, t.f.fetch(1));
  EXPECT_EQ("0,64", t.at(1));
  EXPECT_EQ("-64,32", t.at(2));
  FS_FIXED dx, dy;
  FS_SHORT idx, idy;
  ASSERT_EQ(0, get_glyph_advance(&t.f.st, t.f.key(), 1, &dx, &dy, &idx, &idy));
  EXPECT_EQ(0, dx);
  EXPECT_EQ(5 * ONE, dy);  // 500 units at 10 per 1000
  EXPECT_EQ(0, idx);
  EXPECT_EQ(0, idy);  // no whole-pixel advance under rotation

  ASSERT_EQ(0, t.f.setPpem(13));
  ASSERT_EQ(0, get_glyph_advance(&t.f.st, t.f.key(), 1, &dx, &dy, &idx, &idy));
  EXPECT_EQ(425984, dx);  // 500 x 13 / 1000 = 6.5 pixels
  EXPECT_EQ(7, idx);
}

}  // namespace

namespace {

// The scaled control values in the key's private font space.
F26DOT6 controlValue(testsupport::ScaledFont& f, int i) {
  fsg_SplineKey* k = f.key();
  return ((F26DOT6*)(k->memoryBases[3] + k->offset_controlValues))[i];
}

TEST(PreProgram, ControlValuesAreScaledUnlessTheFontHasFLNT) {
  sfnt::Font font = glyffont::font({glyffont::triangle()});
  sfnt::Bytes cvt;
  sfnt::u16(cvt, 100);
  sfnt::u16(cvt, (uint32_t)-50);
  font.set("cvt ", cvt);
  Fixture plain(font);
  ASSERT_TRUE(plain.ok);
  EXPECT_EQ(2, plain.f.key()->cvtCount);
  EXPECT_EQ(64, controlValue(plain.f, 0));   // 100 x 0.64
  EXPECT_EQ(-32, controlValue(plain.f, 1));  // -50 x 0.64

  font.set("FLNT", sfnt::Bytes(4, 0));
  Fixture flint(font);
  ASSERT_TRUE(flint.ok);
  EXPECT_EQ(0, controlValue(flint.f, 0));
  EXPECT_EQ(0, controlValue(flint.f, 1));
  ASSERT_EQ(0, flint.f.fetch(0));  // glyphs still come
  EXPECT_EQ(3, flint.f.element()->np);
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
  // Only the new scaled font record was added.
  EXPECT_EQ(used + 8 + ((sizeof(SFNT) + 7) & ~7u), FS_get_heap_used(&f.st));
  EXPECT_EQ(0, f.st.server->workspaceSize);
}

}  // namespace
