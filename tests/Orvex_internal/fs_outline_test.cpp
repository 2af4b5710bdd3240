// Outline extraction: TrueType on/off-curve points to elements, the box,
// phase shifts, the outline and advance of a real glyph, and emboldening.
#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/scaled_font.h"
#include "support/test_support.h"

namespace {

const FS_FIXED ONE = 65536;

// A glyph element built by hand: points in 26.6 and their on-curve flags.
struct Element {
  std::vector<F26DOT6> x, y;
  std::vector<FS_BYTE> on;
  std::vector<FS_SHORT> sp, ep;
  fnt_ElementType el;
  Element(const std::vector<std::vector<std::vector<int>>>& contours) {
    for (const auto& c : contours) {
      sp.push_back((FS_SHORT)x.size());
      for (const auto& p : c) {
        x.push_back(p[0]);
        y.push_back(p[1]);
        on.push_back((FS_BYTE)p[2]);
      }
      ep.push_back((FS_SHORT)(x.size() - 1));
    }
    el = fnt_ElementType();
    el.x = x.data();
    el.y = y.data();
    el.onCurve = on.data();
    el.sp = sp.data();
    el.ep = ep.data();
    el.nc = (FS_SHORT)sp.size();
    el.np = (FS_SHORT)x.size();
  }
};

class Outline : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, FSS_init(&st, 8u << 20)); }
  void TearDown() override { FSS_exit(&st); }
  FS_OUTLINE* fill(Element& e, bool filled) {
    FS_LONG nt, np;
    count_points(&e.el, filled, &nt, &np);
    FS_OUTLINE* o = setup_outline(&st, e.el.nc, nt, np);
    fill_outline(&e.el, filled, o);
    EXPECT_EQ(nt, o->num);
    EXPECT_EQ(np, o->np);
    set_bbox(o->np, o);
    return o;
  }
  FS_STATE st;
};

TEST_F(Outline, OnAndOffCurvePointsBecomeLinesAndQuadratics) {
  // 26.6: 64 is one pixel. on (0,0), off (64,128), on (128,0), off (64,-64),
  // off (0,-64): a quadratic, then two off points give a quadratic to their
  // midpoint (32,-64) and the closing quadratic back to the start.
  Element e({{{0, 0, 1}, {64, 128, 0}, {128, 0, 1}, {64, -64, 0}, {0, -64, 0}}});
  FS_OUTLINE* o = fill(e, true);
  ASSERT_EQ(4, o->num);
  EXPECT_EQ(0x80 | FS_MOVETO, o->type[0]);
  EXPECT_EQ(FS_QUADTO, o->type[1]);
  EXPECT_EQ(FS_QUADTO, o->type[2]);
  EXPECT_EQ(FS_QUADTO, o->type[3]);
  ASSERT_EQ(7, o->np);
  // 26.6 << 10 is 16.16: (64,128) is (1, 2) pixels; the midpoint is
  // (64 + 0) << 9 = half a pixel, y -1.
  EXPECT_EQ(ONE, o->x[1]);
  EXPECT_EQ(2 * ONE, o->y[1]);
  EXPECT_EQ(ONE / 2, o->x[4]);
  EXPECT_EQ(-ONE, o->y[4]);
  EXPECT_EQ(0, o->x[6]);  // closed exactly on the first point
  EXPECT_EQ(0, o->y[6]);
  // The box takes the control points too.
  EXPECT_EQ(0, o->lo_x);
  EXPECT_EQ(2 * ONE, o->hi_x);
  EXPECT_EQ(-ONE, o->lo_y);
  EXPECT_EQ(2 * ONE, o->hi_y);
  FSS_free(&st, o);
}

TEST_F(Outline, AllOffCurveContourStartsAtTheMidpointOfItsFirstTwo) {
  // Four off points of a diamond: starts at the midpoint of (0,64) and
  // (64,128), i.e. (32,96) -> (0.5, 1.5) pixels; four quadratics, the last
  // with the first point as its control.
  Element e({{{0, 64, 0}, {64, 128, 0}, {128, 64, 0}, {64, 0, 0}}});
  FS_OUTLINE* o = fill(e, true);
  ASSERT_EQ(5, o->num);
  EXPECT_EQ(ONE / 2, o->x[0]);
  EXPECT_EQ(3 * ONE / 2, o->y[0]);
  EXPECT_EQ(0, o->x[7]);  // the closing control: the first point
  EXPECT_EQ(ONE, o->y[7]);
  EXPECT_EQ(ONE / 2, o->x[8]);
  EXPECT_EQ(3 * ONE / 2, o->y[8]);
  FSS_free(&st, o);
}

TEST_F(Outline, SinglePointContourLeavesNoElementAndOpenStrokesStayOpen) {
  Element e({{{5, 5, 1}}, {{0, 0, 1}, {64, 0, 1}, {64, 64, 1}}});
  FS_OUTLINE* o = fill(e, true);
  EXPECT_EQ(4, o->num);  // move, two lines, closing line
  FSS_free(&st, o);
  // Not filled (a stroke skeleton) and ending on curve: no closing line,
  // no fill mark.
  o = fill(e, false);
  EXPECT_EQ(3, o->num);
  EXPECT_EQ(FS_MOVETO, o->type[0]);
  FSS_free(&st, o);
}

TEST_F(Outline, PhaseShiftsMoveAQuarterPixelRightAndDown) {
  Element e({{{0, 0, 1}, {64, 0, 1}, {64, 64, 1}}});
  FS_OUTLINE* o = fill(e, true);
  shift_outline(o, 1, 1);
  EXPECT_EQ(ONE / 4, o->x[0]);
  EXPECT_EQ(-ONE / 4, o->y[0]);
  EXPECT_EQ(ONE / 4, o->lo_x);
  EXPECT_EQ(ONE - ONE / 4, o->hi_y);
  FSS_free(&st, o);
}

// DejaVu Sans 'l' (glyph 79): a rectangle from x 193 to 377 and y 0 to
// 1556 font units, advance 569, 2048 units per em.
TEST(OutlineOfFont, RealGlyphHasItsBoxAndAdvanceInPixels) {
  std::string path = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  testsupport::ScaledFont f;
  ASSERT_TRUE(f.started);
  f.setFont(path);
  ASSERT_EQ(0, f.setPpem(64));  // 1 unit = 1/32 pixel
  f.st.flags |= FLAGS_NO_HINTS;
  FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, 79);
  ASSERT_NE(nullptr, o);
  // 193 / 32 = 6.03125 px; 26.6 of that rounds to 386 -> 6.03125 exactly.
  EXPECT_EQ((FS_FIXED)(6.03125 * ONE), o->lo_x);
  EXPECT_EQ((FS_FIXED)(377 / 32.0 * ONE), o->hi_x);
  EXPECT_EQ(0, o->lo_y);
  EXPECT_EQ((FS_FIXED)(1556 / 32.0 * ONE), o->hi_y);
  // 569 / 32 = 17.78125 px; whole pixels 18; no vertical advance.
  EXPECT_EQ((FS_FIXED)(17.78125 * ONE), o->dx);
  EXPECT_EQ(0, o->dy);
  EXPECT_EQ(18, o->i_dx);
  EXPECT_EQ(1, o->nc);
  EXPECT_EQ(0x80, o->type[0] & 0x80);
  FSS_free(&f.st, o);
  // An index beyond the font shows glyph 0.
  o = make_outline_ttf(&f.st, f.st.cur_sfnt, 60000);
  ASSERT_NE(nullptr, o);
  EXPECT_GT(o->num, 0);
  FSS_free(&f.st, o);
}

TEST(OutlineOfFont, RotatedLayoutTurnsTheGlyphAboutTheMidLine) {
  std::string path = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  testsupport::ScaledFont f;
  f.setFont(path);
  ASSERT_EQ(0, f.setPpem(64));
  f.st.flags |= FLAGS_NO_HINTS | FLAGS_VERTICAL_ROTATE_LEFT_ON;
  f.st.cur_lfnt = f.lfnt;
  FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, 79);
  ASSERT_NE(nullptr, o);
  // hhea ascender 1901, descender -483: 950 + -241 = 709 units = 22.156
  // px, whole 22. Left: (x, y) -> (y - 22, -x): x spans -22 .. 1556/32 - 22
  // = 26.625, y spans -377/32 .. -193/32.
  EXPECT_EQ(-22 * ONE, o->lo_x);
  EXPECT_EQ((FS_FIXED)(26.625 * ONE), o->hi_x);
  EXPECT_EQ((FS_FIXED)(-377 / 32.0 * ONE), o->lo_y);
  EXPECT_EQ((FS_FIXED)(-6.03125 * ONE), o->hi_y);
  EXPECT_EQ(0, o->dx);  // advance goes down the column: y of phantom 1 - 0
  FSS_free(&f.st, o);
}

TEST_F(Outline, EmboldeningWidensBySidesThatFaceTheBoldVector) {
  // A 4 x 4 square drawn clockwise (TrueType's outer direction) with a
  // bold vector of one whole pixel along x: the right side moves by one,
  // giving a 5 x 4 solid square, its advance one pixel wider.
  testsupport::ScaledFont f;
  f.st.lpm = 10;
  f.st.bold_pct = 0x1999;  // 0.1 x 10 = 0.99998 px -> 1 whole pixel
  SFNT sfnt = SFNT();
  sfnt.user_scale[0] = sfnt.user_scale[3] = 10 * ONE;
  f.st.cur_sfnt = &sfnt;
  Element e({{{0, 0, 1}, {0, 256, 1}, {256, 256, 1}, {256, 0, 1}}});
  FS_LONG nt, np;
  count_points(&e.el, true, &nt, &np);
  FS_OUTLINE* o = setup_outline(&f.st, 1, nt, np);
  fill_outline(&e.el, true, o);
  set_bbox(o->np, o);
  o->dx = 4 * ONE;
  o->i_dx = 4;
  FS_OUTLINE* b = embolden_outline(&f.st, o, &nt, &np);
  ASSERT_NE(nullptr, b);
  ASSERT_NE(o, b);
  EXPECT_EQ(0, b->lo_x);
  EXPECT_EQ(5 * ONE, b->hi_x);
  EXPECT_EQ(0, b->lo_y);
  EXPECT_EQ(4 * ONE, b->hi_y);
  EXPECT_EQ(5 * ONE, b->dx);
  EXPECT_EQ(5, b->i_dx);
  FS_GRAYMAP* g = make_graymap(&f.st, b, 8);
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(5, g->width);
  EXPECT_EQ(4, g->height);
  for (int i = 0; i < 20; i++) EXPECT_EQ(255, g->bits[i]) << i;
  FSS_free(&f.st, g);
  FSS_free(&f.st, b);
  // Under half a pixel of boldness the outline comes back untouched.
  f.st.bold_pct = 0x0400;
  EXPECT_EQ(o, embolden_outline(&f.st, o, &nt, &np));
  FSS_free(&f.st, o);
  f.st.cur_sfnt = nullptr;
}

}  // namespace
