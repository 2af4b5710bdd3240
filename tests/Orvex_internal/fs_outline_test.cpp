// Outline extraction: TrueType on/off-curve points to elements, the box, and
// a glyph index past the font.
#include "Orvex_internal/fs_outline.h"

#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/engine_fixture.h"
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

TEST(Outline, OnAndOffCurvePointsBecomeLinesAndQuadratics) {
  // In pixels: on (0,0), off (1,2), on (2,0), off (1,-1), off (0,-1): a
  // quadratic, then two off points give one to their midpoint (0.5,-1) and
  // the closing one back to the start. The box takes the control points.
  enginetest::Engine e(8u << 20);
  F26DOT6 x[] = {0, 64, 128, 64, 0}, y[] = {0, 128, 0, -64, -64};
  FS_BYTE on[] = {1, 0, 1, 0, 0};
  FS_SHORT sp[] = {0}, ep[] = {4};
  fnt_ElementType el = fnt_ElementType();
  el.x = x;
  el.y = y;
  el.onCurve = on;
  el.sp = sp;
  el.ep = ep;
  el.nc = 1;
  el.np = 5;
  FS_LONG nt, np;
  count_points(&el, true, &nt, &np);
  FS_OUTLINE* o = setup_outline(&e.st, 1, nt, np);
  fill_outline(&el, true, o);
  set_bbox(o->np, o);
  ASSERT_EQ(4, o->num);
  EXPECT_EQ((V{0x80 | FS_MOVETO, FS_QUADTO, FS_QUADTO, FS_QUADTO}),
            (V{o->type[0], o->type[1], o->type[2], o->type[3]}));
  EXPECT_EQ("0,0 1,2 2,0 1,-1 0.5,-1 0,-1 0,0", points(o));
  EXPECT_EQ((V{0, 2 * ONE, -ONE, 2 * ONE}), (V{o->lo_x, o->hi_x, o->lo_y, o->hi_y}));
  FSS_free(&e.st, o);
}

TEST(OutlineOfFont, AGlyphPastTheFontIsGlyph0) {
  testsupport::ScaledFont f;
  f.setFont(enginetest::kDejaVuSansFile);
  ASSERT_EQ(0, f.setPpem(64)) << "cannot scale " << enginetest::kDejaVuSansFile;
  f.st.cur_lfnt = f.lfnt;
  f.st.flags |= FLAGS_NO_HINTS;
  FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, 60000);
  ASSERT_NE(nullptr, o);
  EXPECT_GT(o->num, 0);  // glyph 0 has a box drawn
  FSS_free(&f.st, o);
}

}  // namespace
