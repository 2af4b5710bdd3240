// The graymap scan converter on shapes whose areas are known by hand:
// squares at fractional offsets, a right triangle, holes and overlaps of
// either winding, a glyph taller than one band, and the cut to 4 and 2 bits.
#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_FIXED ONE = 65536;

struct Pt {
  double x, y;
};
typedef std::vector<Pt> Contour;

FS_FIXED fx(double v) { return (FS_FIXED)(v * ONE); }

// A filled outline of closed polygons (each closed back to its start).
FS_OUTLINE* polygons(FS_STATE* st, const std::vector<Contour>& cs) {
  FS_LONG nt = 0;
  for (const Contour& c : cs) nt += (FS_LONG)c.size() + 1;
  FS_OUTLINE* o = setup_outline(st, (FS_SHORT)cs.size(), nt, nt);
  FS_LONG k = 0;
  for (const Contour& c : cs) {
    for (size_t i = 0; i <= c.size(); i++, k++) {
      const Pt& p = c[i % c.size()];
      o->type[k] = i == 0 ? FS_MOVETO : FS_LINETO;
      o->x[k] = fx(p.x);
      o->y[k] = fx(p.y);
    }
  }
  o->type[0] |= 0x80;
  set_bbox(o->np, o);
  return o;
}

Contour rect(double x0, double y0, double x1, double y1, bool clockwise) {
  if (clockwise) return {{x0, y0}, {x0, y1}, {x1, y1}, {x1, y0}};
  return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

std::vector<std::vector<int>> rows(const FS_GRAYMAP* g) {
  std::vector<std::vector<int>> r(g->height, std::vector<int>(g->width));
  for (int y = 0; y < g->height; y++)
    for (int x = 0; x < g->width; x++) r[y][x] = g->bits[y * g->bpl + x];
  return r;
}

class Graymap : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, FSS_init(&st, 8u << 20)); }
  void TearDown() override { FSS_exit(&st); }
  FS_GRAYMAP* render(const std::vector<Contour>& cs, FS_USHORT type = 8) {
    FS_OUTLINE* o = polygons(&st, cs);
    FS_GRAYMAP* g = make_graymap(&st, o, type);
    FSS_free(&st, o);
    return g;
  }
  FS_STATE st;
};

TEST_F(Graymap, SquareAtFractionalOffsetsCoversByArea) {
  // x 0.25..2.25, y 0.5..2.5: columns covered 0.75, 1, 0.25; rows 0.5, 1,
  // 0.5. A level is coverage x 256, full coverage clamped to 255.
  const std::vector<std::vector<int>> want = {
      {96, 128, 32}, {192, 255, 64}, {96, 128, 32}};
  for (bool cw : {true, false}) {
    FS_GRAYMAP* g = render({rect(0.25, 0.5, 2.25, 2.5, cw)});
    ASSERT_NE(nullptr, g);
    EXPECT_EQ(0, g->lo_x);
    EXPECT_EQ(2, g->hi_y);  // the top row spans y 2..3
    EXPECT_EQ(8, g->bitsPerPixel);
    EXPECT_EQ(want, rows(g)) << "clockwise " << cw;
    FSS_free(&st, g);
  }
}

TEST_F(Graymap, SquareOnPixelEdgesIsSolidAndNegativeCoordinatesWork) {
  FS_GRAYMAP* g = render({rect(-2, -1, 1, 1, true)});
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(-2, g->lo_x);
  EXPECT_EQ(0, g->hi_y);
  EXPECT_EQ((std::vector<std::vector<int>>{{255, 255, 255}, {255, 255, 255}}),
            rows(g));
  FSS_free(&st, g);
}

TEST_F(Graymap, RightTriangleHalvesTheCellsOnItsHypotenuse) {
  // Legs of 4 on the axes, hypotenuse x + y = 4: cells with i + j <= 2 are
  // inside, i + j = 3 cut corner to corner (half), the rest outside. Area 8
  // = 6 full cells + 4 halves.
  FS_GRAYMAP* g = render({{{0, 0}, {0, 4}, {4, 0}}});
  ASSERT_NE(nullptr, g);
  EXPECT_EQ((std::vector<std::vector<int>>{{128, 0, 0, 0},
                                           {255, 128, 0, 0},
                                           {255, 255, 128, 0},
                                           {255, 255, 255, 128}}),
            rows(g));
  FSS_free(&st, g);
}

TEST_F(Graymap, SlopedEdgeInsideOneCellTakesTheTrapezoidRightOfIt) {
  // A triangle (0,0) (1,1) (1,0) inside one cell: area 0.5 -> 128. And the
  // quarter-height triangle (0,0) (1,0.25) (1,0): area 0.125 -> 32.
  FS_GRAYMAP* g = render({{{0, 0}, {1, 1}, {1, 0}}});
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(128, g->bits[0]);
  FSS_free(&st, g);
  g = render({{{0, 0}, {1, 0.25}, {1, 0}}});
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(32, g->bits[0]);
  FSS_free(&st, g);
}

TEST_F(Graymap, HoleOfOppositeWindingIsEmpty) {
  FS_GRAYMAP* g = render({rect(0, 0, 4, 4, true), rect(1.5, 1, 2.5, 3, false)});
  ASSERT_NE(nullptr, g);
  // The hole spans x 1.5..2.5 over rows 1 and 2 (from the top): columns 1
  // and 2 lose half.
  EXPECT_EQ((std::vector<std::vector<int>>{{255, 255, 255, 255},
                                           {255, 128, 128, 255},
                                           {255, 128, 128, 255},
                                           {255, 255, 255, 255}}),
            rows(g));
  FSS_free(&st, g);
}

TEST_F(Graymap, OverlapsOfLikeWindingStayFullUnderTheNonZeroRule) {
  // [0,3]^2 and [1,4]^2 both clockwise: their union, the overlap not
  // doubled past 255; the corners (3..4, 0..1) and (0..1, 3..4) are empty.
  FS_GRAYMAP* g = render({rect(0, 0, 3, 3, true), rect(1, 1, 4, 4, true)});
  ASSERT_NE(nullptr, g);
  EXPECT_EQ((std::vector<std::vector<int>>{{0, 255, 255, 255},
                                           {255, 255, 255, 255},
                                           {255, 255, 255, 255},
                                           {255, 255, 255, 0}}),
            rows(g));
  FSS_free(&st, g);
  // Half-covered overlap: [0,2] x [0,1] twice, shifted by half a pixel:
  // x 0.5..1.5 is covered twice and stays 255; the ends are 128.
  g = render({rect(0, 0, 1.5, 1, true), rect(0.5, 0, 2, 1, true)});
  ASSERT_NE(nullptr, g);
  EXPECT_EQ((std::vector<std::vector<int>>{{255, 255}}), rows(g));
  FSS_free(&st, g);
}

TEST_F(Graymap, TallGlyphIsDrawnInBandsWithoutSeams) {
  // A parallelogram 600 rows tall leaning one pixel right every 4 rows, its
  // left edge from x 0.3: row r (from the bottom) is row r - 4 moved one
  // column right, so any seam between bands would break the pattern. The
  // same shape 8 rows tall fits one band and gives the first rows.
  auto shape = [](double h) {
    return Contour{{0.3, 0}, {0.3 + h / 4, h}, {5.3 + h / 4, h}, {5.3, 0}};
  };
  FS_GRAYMAP* tall = render({shape(600)});
  FS_GRAYMAP* small = render({shape(8)});
  ASSERT_NE(nullptr, tall);
  ASSERT_NE(nullptr, small);
  EXPECT_EQ(600, tall->height);
  auto at = [](FS_GRAYMAP* g, int rowFromBottom, int x) {
    int y = g->height - 1 - rowFromBottom;
    return (int)g->bits[y * g->bpl + x];
  };
  for (int r = 0; r < 8; r++)
    for (int x = 0; x < small->width; x++)
      ASSERT_EQ(at(small, r, x), at(tall, r, x)) << "row " << r << " x " << x;
  for (int r = 4; r < 600; r++)
    for (int x = 1; x < tall->width; x++)
      ASSERT_EQ(at(tall, r - 4, x - 1), at(tall, r, x)) << "row " << r << " x " << x;
  // The row's coverage sums to the width 5 at every height: 5 x 256 less
  // what the clamp of full cells takes (1 per full cell).
  for (int r = 0; r < 600; r++) {
    int sum = 0;
    for (int x = 0; x < tall->width; x++) sum += at(tall, r, x);
    ASSERT_NEAR(1280, sum, 6) << "row " << r;
  }
  FSS_free(&st, tall);
  FSS_free(&st, small);
}

TEST_F(Graymap, FullCellStoreDoublesTheBandsAndStillGivesTheSameImage) {
  // A bar x 0..1 over 600 rows and, in its top row, a comb of 200 teeth
  // each half a pixel wide: 400 cell records in that one row. The control
  // polygon (with the jumps between contours) is about 2600 pixels, so 6
  // bands of 100 rows to start; the top one needs 400 + 2 x 100 records,
  // more than the 512 of the store, so the bands double to 12, where it
  // takes about 500. Each tooth covers half of its column.
  std::vector<Contour> cs = {rect(0, 0, 1, 600, true)};
  for (int i = 0; i < 200; i++) cs.push_back(rect(i + 2.25, 599, i + 2.75, 600, true));
  FS_GRAYMAP* g = render(cs);
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(12, st.server->raster->num_bands);
  ASSERT_EQ(202, g->width);
  ASSERT_EQ(600, g->height);
  for (int y = 0; y < 600; y++)
    for (int x = 0; x < 202; x++) {
      int want = x == 0 ? 255 : (y == 0 && x >= 2) ? 128 : 0;
      ASSERT_EQ(want, g->bits[y * g->bpl + x]) << "row " << y << " x " << x;
    }
  FSS_free(&st, g);
}

TEST_F(Graymap, EmptyOutlineGivesAHeaderWithTheAdvanceAndDepth) {
  FS_OUTLINE* o = setup_outline(&st, 0, 0, 0);
  o->dx = 5 * ONE;
  o->i_dx = 5;
  FS_GRAYMAP* g = make_graymap(&st, o, 2);
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(40, g->size);
  EXPECT_EQ(5, g->i_dx);
  EXPECT_EQ(2, g->bitsPerPixel);
  FSS_free(&st, g);
  g = make_graymap(&st, o, 0x20);  // no depth bit: 4
  EXPECT_EQ(4, g->bitsPerPixel);
  FSS_free(&st, g);
  FSS_free(&st, o);
}

TEST_F(Graymap, TrimCutsToFourAndTwoBitsByTheirBlankLevels) {
  // Square x 0.25..2.25, y 0.5..2.5 as above: levels 96 128 32 / 192 255
  // 64. Four bits: high nibbles 6 8 2 / 12 15 4, two per byte, the odd
  // last one high; 32 is above 15 so nothing is trimmed.
  FS_GRAYMAP* g = render({rect(0.25, 0.5, 2.25, 2.5, true)}, 4);
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(4, g->bitsPerPixel);
  EXPECT_EQ(3, g->width);
  EXPECT_EQ(2, g->bpl);
  EXPECT_EQ(40 + 2 * 3, g->size);
  EXPECT_EQ(0x68, g->bits[0]);
  EXPECT_EQ(0x20, g->bits[1]);
  EXPECT_EQ(0xCF, g->bits[2]);
  EXPECT_EQ(0x40, g->bits[3]);
  FSS_free(&st, g);
  // Two bits: 32 is blank (up to 63), so column 2 goes only where it holds
  // 32, but its 64 in the middle row keeps it: top bits 1 2 0 / 3 3 1, four
  // pixels a byte, leftmost highest.
  g = render({rect(0.25, 0.5, 2.25, 2.5, true)}, 2);
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(2, g->bitsPerPixel);
  EXPECT_EQ(3, g->width);
  EXPECT_EQ(1, g->bpl);
  EXPECT_EQ(0x60, g->bits[0]);  // 01 10 00
  EXPECT_EQ(0xF4, g->bits[1]);  // 11 11 01
  FSS_free(&st, g);
  // Two bits on a square whose right column only holds 32: trimmed away,
  // and the top row of 32s with it.
  g = render({rect(0, 0, 2.125, 2.125, true)}, 2);
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(2, g->width);
  EXPECT_EQ(2, g->height);
  EXPECT_EQ(1, g->hi_y);
  EXPECT_EQ(0xF0, g->bits[0]);
  FSS_free(&st, g);
}

TEST_F(Graymap, InvertedContourGivesTheSameImageAsItsReverse) {
  Contour a = {{0.1, 0.2}, {1.7, 3.9}, {3.3, 0.6}};
  Contour b(a.rbegin(), a.rend());
  FS_GRAYMAP* g1 = render({a});
  FS_GRAYMAP* g2 = render({b});
  ASSERT_NE(nullptr, g1);
  ASSERT_NE(nullptr, g2);
  EXPECT_EQ(rows(g1), rows(g2));
  FSS_free(&st, g1);
  FSS_free(&st, g2);
}

TEST_F(Graymap, QuadraticCurveCoversItsAreaWithinFlattening) {
  // The region under the parabola from (0,0) via control (2,4) to (4,0),
  // closed by the base: area 2/3 x 4 x 2 = 16/3 pixels.
  FS_OUTLINE* o = setup_outline(&st, 1, 3, 4);
  o->type[0] = 0x80 | FS_MOVETO;
  o->type[1] = FS_QUADTO;
  o->type[2] = FS_LINETO;
  FS_FIXED xs[] = {0, 2 * ONE, 4 * ONE, 0}, ys[] = {0, 4 * ONE, 0, 0};
  for (int i = 0; i < 4; i++) {
    o->x[i] = xs[i];
    o->y[i] = ys[i];
  }
  set_bbox(4, o);
  FS_GRAYMAP* g = make_graymap(&st, o, 8);
  ASSERT_NE(nullptr, g);
  long sum = 0;
  for (int i = 0; i < g->height * g->bpl; i++) sum += g->bits[i];
  EXPECT_NEAR(16.0 / 3 * 256, (double)sum, 16.0 / 3 * 256 * 0.02);
  FSS_free(&st, g);
  FSS_free(&st, o);
}

}  // namespace
