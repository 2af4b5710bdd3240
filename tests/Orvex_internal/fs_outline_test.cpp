// Outline extraction: TrueType on/off-curve points to elements, the box, a
// real glyph upright and turned, a glyph index past the font, emboldening.
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

// One closed contour of (x, y, on) in 26.6 as an outline with its box.
FS_OUTLINE* outlineOf(FS_STATE* st, std::vector<F26DOT6> x, std::vector<F26DOT6> y,
                      std::vector<FS_BYTE> on) {
  FS_SHORT sp[] = {0}, ep[] = {(FS_SHORT)(x.size() - 1)};
  fnt_ElementType el = fnt_ElementType();
  el.x = x.data();
  el.y = y.data();
  el.onCurve = on.data();
  el.sp = sp;
  el.ep = ep;
  el.nc = 1;
  el.np = (FS_SHORT)x.size();
  FS_LONG nt, np;
  count_points(&el, true, &nt, &np);
  FS_OUTLINE* o = setup_outline(st, 1, nt, np);
  fill_outline(&el, true, o);
  set_bbox(o->np, o);
  return o;
}

TEST(Outline, OnAndOffCurvePointsBecomeLinesAndQuadratics) {
  // In pixels: on (0,0), off (1,2), on (2,0), off (1,-1), off (0,-1): a
  // quadratic, then two off points give one to their midpoint (0.5,-1) and
  // the closing one back to the start. The box takes the control points.
  enginetest::Engine e(8u << 20);
  FS_OUTLINE* o = outlineOf(&e.st, {0, 64, 128, 64, 0}, {0, 128, 0, -64, -64}, {1, 0, 1, 0, 0});
  ASSERT_EQ(4, o->num);
  EXPECT_EQ((V{0x80 | FS_MOVETO, FS_QUADTO, FS_QUADTO, FS_QUADTO}),
            (V{o->type[0], o->type[1], o->type[2], o->type[3]}));
  EXPECT_EQ("0,0 1,2 2,0 1,-1 0.5,-1 0,-1 0,0", points(o));
  EXPECT_EQ((V{0, 2 * ONE, -ONE, 2 * ONE}), (V{o->lo_x, o->hi_x, o->lo_y, o->hi_y}));
  FSS_free(&e.st, o);
}

TEST(OutlineOfFont, RealGlyphHasItsBoxAndAdvanceInPixelsUprightOrTurned) {
  testsupport::ScaledFont f;
  f.setFont(enginetest::kDejaVuSansFile);
  ASSERT_EQ(0, f.setPpem(64)) << "cannot scale " << enginetest::kDejaVuSansFile;
  f.st.cur_lfnt = f.lfnt;
  f.st.flags |= FLAGS_NO_HINTS;
  // DejaVu Sans 'l' (glyph 79): a rectangle x 193..377, y 0..1556 units,
  // advance 569, 2048 per em; at 64 ppem a unit is 1/32 pixel, 2048 in
  // 16.16; the advance 17.78 pixels, 18 whole.
  const long U = 2048, PX = 65536;
  FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, 79);
  ASSERT_NE(nullptr, o);
  EXPECT_EQ(
      (V{193 * U, 377 * U, 0, 1556 * U, 569 * U, 0, 18, 1, 0x80}),
      (V{o->lo_x, o->hi_x, o->lo_y, o->hi_y, o->dx, o->dy, o->i_dx, o->nc, o->type[0] & 0x80}));
  FSS_free(&f.st, o);
  // Turned left about the mid-line: hhea ascender 1901 and descender -483
  // give 950 - 241 = 709 units = 22.156 px, 22 whole; (x, y) -> (y - 22, -x).
  f.st.flags |= FLAGS_VERTICAL_ROTATE_LEFT_ON;
  o = make_outline_ttf(&f.st, f.st.cur_sfnt, 79);
  ASSERT_NE(nullptr, o);
  EXPECT_EQ((V{-22 * PX, 1556 * U - 22 * PX, -377 * U, -193 * U, 0}),
            (V{o->lo_x, o->hi_x, o->lo_y, o->hi_y, o->dx}));
  FSS_free(&f.st, o);
  o = make_outline_ttf(&f.st, f.st.cur_sfnt, 60000);  // past the font: glyph 0
  ASSERT_NE(nullptr, o);
  EXPECT_GT(o->num, 0);
  FSS_free(&f.st, o);
}

TEST(Outline, EmboldeningWidensBySidesThatFaceTheBoldVector) {
  // A 4 x 4 pixel square drawn clockwise with a bold vector of one whole
  // pixel along x: the right side moves by one, giving a solid 5 x 4
  // square, its advance one pixel wider.
  testsupport::ScaledFont f;
  f.st.lpm = 10;
  f.st.bold_pct = 0x1999;  // 0.1 x 10 = 0.99998 px -> 1 whole pixel
  SFNT sfnt = SFNT();
  sfnt.user_scale[0] = sfnt.user_scale[3] = 10 * ONE;
  f.st.cur_sfnt = &sfnt;
  FS_OUTLINE* o = outlineOf(&f.st, {0, 0, 256, 256}, {0, 256, 256, 0}, {1, 1, 1, 1});
  o->dx = 4 * ONE;
  o->i_dx = 4;
  FS_LONG nt, np;
  FS_OUTLINE* b = embolden_outline(&f.st, o, &nt, &np);
  ASSERT_NE(nullptr, b);
  ASSERT_NE(o, b);
  EXPECT_EQ((V{0, 5 * ONE, 0, 4 * ONE, 5 * ONE, 5}),
            (V{b->lo_x, b->hi_x, b->lo_y, b->hi_y, b->dx, b->i_dx}));
  FS_GRAYMAP* g = make_graymap(&f.st, b, 8);
  ASSERT_NE(nullptr, g);
  EXPECT_EQ((V{5, 4, 5}), (V{g->width, g->height, g->bpl}));
  EXPECT_EQ(std::vector<FS_BYTE>(20, 255), std::vector<FS_BYTE>(g->bits, g->bits + 20));
  FSS_free(&f.st, g);
  FSS_free(&f.st, b);
  f.st.bold_pct = 0x0400;  // under half a pixel: the outline comes back untouched
  EXPECT_EQ(o, embolden_outline(&f.st, o, &nt, &np));
  FSS_free(&f.st, o);
  f.st.cur_sfnt = nullptr;
}

}  // namespace
