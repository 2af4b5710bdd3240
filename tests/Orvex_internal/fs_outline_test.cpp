// Outline extraction: TrueType on/off-curve points to elements, the box,
// phase shifts, the outline and advance of a real glyph, and emboldening.
#include "Orvex_internal/fs_outline.h"

#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/scaled_font.h"

namespace {

const FS_FIXED ONE = 65536;
typedef std::vector<long> V;

// A glyph element built by hand: contours of (x, y, on) in 26.6.
struct Element {
  std::vector<F26DOT6> x, y;
  std::vector<FS_BYTE> on;
  std::vector<FS_SHORT> sp, ep;
  fnt_ElementType el = fnt_ElementType();
  explicit Element(const std::vector<std::vector<std::vector<int>>>& contours) {
    for (const auto& c : contours) {
      sp.push_back((FS_SHORT)x.size());
      for (const auto& p : c) {
        x.push_back(p[0]);
        y.push_back(p[1]);
        on.push_back((FS_BYTE)p[2]);
      }
      ep.push_back((FS_SHORT)(x.size() - 1));
    }
    el.x = x.data();
    el.y = y.data();
    el.onCurve = on.data();
    el.sp = sp.data();
    el.ep = ep.data();
    el.nc = (FS_SHORT)sp.size();
    el.np = (FS_SHORT)x.size();
  }
};

// An outline's points in pixels, "x,y x,y ...".
std::string points(const FS_OUTLINE* o) {
  std::string s;
  char buf[48];
  for (int i = 0; i < o->np; i++) {
    snprintf(buf, sizeof buf, "%s%g,%g", i ? " " : "", o->x[i] / 65536.0, o->y[i] / 65536.0);
    s += buf;
  }
  return s;
}

class Outline : public ::testing::Test {
 protected:
  FS_OUTLINE* fill(FS_STATE* s, Element& e, bool filled) {
    FS_LONG nt, np;
    count_points(&e.el, filled, &nt, &np);
    FS_OUTLINE* o = setup_outline(s, e.el.nc, nt, np);
    fill_outline(&e.el, filled, o);
    EXPECT_EQ(nt, o->num);
    EXPECT_EQ(np, o->np);
    set_bbox(o->np, o);
    return o;
  }
  FS_OUTLINE* fill(Element& e, bool filled) { return fill(&st, e, filled); }
  enginetest::Engine engine{8u << 20};
  FS_STATE& st = engine.st;
};

TEST_F(Outline, OnAndOffCurvePointsBecomeLinesAndQuadratics) {
  // In pixels: on (0,0), off (1,2), on (2,0), off (1,-1), off (0,-1): a
  // quadratic, then two off points give one to their midpoint (0.5,-1) and
  // the closing one back to the start. The box takes the control points.
  Element e({{{0, 0, 1}, {64, 128, 0}, {128, 0, 1}, {64, -64, 0}, {0, -64, 0}}});
  FS_OUTLINE* o = fill(e, true);
  ASSERT_EQ(4, o->num);
  EXPECT_EQ((V{0x80 | FS_MOVETO, FS_QUADTO, FS_QUADTO, FS_QUADTO}),
            (V{o->type[0], o->type[1], o->type[2], o->type[3]}));
  EXPECT_EQ("0,0 1,2 2,0 1,-1 0.5,-1 0,-1 0,0", points(o));
  EXPECT_EQ((V{0, 2 * ONE, -ONE, 2 * ONE}), (V{o->lo_x, o->hi_x, o->lo_y, o->hi_y}));
  // A phase shift moves it a quarter pixel right and down, box and all.
  shift_outline(o, 1, 1);
  EXPECT_EQ((V{ONE / 4, -ONE / 4, ONE / 4, 2 * ONE - ONE / 4}),
            (V{o->x[0], o->y[0], o->lo_x, o->hi_y}));
  FSS_free(&st, o);
}

TEST_F(Outline, SinglePointContourLeavesNoElementAndOpenStrokesStayOpen) {
  Element e({{{5, 5, 1}}, {{0, 0, 1}, {64, 0, 1}, {64, 64, 1}}});
  for (bool filled : {true, false}) {
    // Filled: move, two lines, closing line; a stroke skeleton stays open.
    FS_OUTLINE* o = fill(e, filled);
    EXPECT_EQ(filled ? 4 : 3, o->num);
    FSS_free(&st, o);
  }
}

TEST(OutlineOfFont, ATurnedGlyphLiesAlongTheColumnAndAGlyphPastTheFontIsGlyph0) {
  testsupport::ScaledFont f;
  f.setFont(enginetest::kDejaVuSansFile);
  ASSERT_EQ(0, f.setPpem(64)) << "cannot scale " << enginetest::kDejaVuSansFile;
  f.st.cur_lfnt = f.lfnt;
  f.st.flags |= FLAGS_NO_HINTS;
  // DejaVu Sans 'l' (glyph 79): x 193..377, y 0..1556 units, a unit 1/32
  // pixel at 64 ppem. Turned left about the mid-line: hhea ascender 1901 and
  // descender -483 give 950 - 241 = 709 units = 22.156 px, 22 whole; (x, y)
  // -> (y - 22, -x), and the advance goes down the column.
  const long U = 2048, PX = 65536;
  f.st.flags |= FLAGS_VERTICAL_ROTATE_LEFT_ON;
  FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, 79);
  ASSERT_NE(nullptr, o);
  EXPECT_EQ((V{-22 * PX, 1556 * U - 22 * PX, -377 * U, -193 * U, 0}),
            (V{o->lo_x, o->hi_x, o->lo_y, o->hi_y, o->dx}));
  FSS_free(&f.st, o);
  o = make_outline_ttf(&f.st, f.st.cur_sfnt, 60000);  // past the font: glyph 0
  ASSERT_NE(nullptr, o);
  EXPECT_GT(o->num, 0);
  FSS_free(&f.st, o);
}

TEST_F(Outline, EmboldeningWidensBySidesThatFaceTheBoldVector) {
  // A 4 x 4 square drawn clockwise (TrueType's outer direction) with a bold
  // vector of one whole pixel along x: the right side moves by one, the
  // advance one pixel wider.
  testsupport::ScaledFont f;
  f.st.lpm = 10;
  f.st.bold_pct = 0x1999;  // 0.1 x 10 = 0.99998 px -> 1 whole pixel
  SFNT sfnt = SFNT();
  sfnt.user_scale[0] = sfnt.user_scale[3] = 10 * ONE;
  f.st.cur_sfnt = &sfnt;
  Element e({{{0, 0, 1}, {0, 256, 1}, {256, 256, 1}, {256, 0, 1}}});
  FS_OUTLINE* o = fill(&f.st, e, true);
  o->dx = 4 * ONE;
  o->i_dx = 4;
  FS_LONG nt, np;
  FS_OUTLINE* b = embolden_outline(&f.st, o, &nt, &np);
  ASSERT_NE(nullptr, b);
  ASSERT_NE(o, b);
  EXPECT_EQ((V{0, 5 * ONE, 0, 4 * ONE, 5 * ONE, 5}),
            (V{b->lo_x, b->hi_x, b->lo_y, b->hi_y, b->dx, b->i_dx}));
  FSS_free(&f.st, b);
  f.st.bold_pct = 0x0400;  // under half a pixel: the outline comes back untouched
  EXPECT_EQ(o, embolden_outline(&f.st, o, &nt, &np));
  FSS_free(&f.st, o);
  f.st.cur_sfnt = nullptr;
}

}  // namespace
