// The graymap scan converter on shapes whose areas are known by hand:
// squares at fractional offsets, overlaps, a glyph drawn in bands
// that overflow the cell store, and the cut to 4 and 2 bits.
#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_FIXED ONE = 65536;

struct Pt {
  double x, y;
};
typedef std::vector<Pt> Contour;
typedef std::vector<std::vector<int>> Rows;

Contour rect(double x0, double y0, double x1, double y1, bool clockwise = true) {
  if (clockwise) return {{x0, y0}, {x0, y1}, {x1, y1}, {x1, y0}};
  return {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
}

// The map's bytes, a row of whole bytes per pixel row, top row first.
Rows bytes(const FS_GRAYMAP* g) {
  int n = (g->width * g->bitsPerPixel + 7) / 8;
  Rows r(g->height, std::vector<int>(n));
  for (int y = 0; y < g->height; y++)
    for (int x = 0; x < n; x++) r[y][x] = g->bits[y * g->bpl + x];
  return r;
}

class Graymap : public ::testing::Test {
 protected:
  // A filled outline of closed polygons, each closed back to its start.
  FS_GRAYMAP* render(const std::vector<Contour>& cs, FS_USHORT type = 8) {
    FS_LONG nt = 0, k = 0;
    for (const Contour& c : cs) nt += (FS_LONG)c.size() + 1;
    FS_OUTLINE* o = setup_outline(&st, (FS_SHORT)cs.size(), nt, nt);
    for (const Contour& c : cs)
      for (size_t i = 0; i <= c.size(); i++, k++) {
        o->type[k] = i == 0 ? FS_MOVETO : FS_LINETO;
        o->x[k] = (FS_FIXED)(c[i % c.size()].x * ONE);
        o->y[k] = (FS_FIXED)(c[i % c.size()].y * ONE);
      }
    o->type[0] |= 0x80;
    set_bbox(o->np, o);
    FS_GRAYMAP* g = make_graymap(&st, o, type);
    FSS_free(&st, o);
    return g;
  }
  enginetest::Engine engine{8u << 20};
  FS_STATE& st = engine.st;
};

TEST_F(Graymap, ExactAreasOfHandWorkedShapes) {
  // A level is coverage x 256, full coverage clamped to 255. The square x
  // 0.25..2.25, y 0.5..2.5 covers its columns 0.75, 1, 0.25 and its rows
  // 0.5, 1, 0.5; 4 bits keep the high nibbles two a byte, the odd last one
  // high; at 2 bits 32 is blank (up to 63) and trimmed.
  struct {
    std::vector<Contour> shape;
    FS_USHORT type;
    int lo_x, hi_y, width;
    Rows want;
    const char* why;
  } rows[] = {
      {{rect(0.25, 0.5, 2.25, 2.5)}, 8, 0, 2, 3,
       {{96, 128, 32}, {192, 255, 64}, {96, 128, 32}}, "fractional square, clockwise"},
      {{rect(0, 0, 3, 3), rect(1, 1, 4, 4)}, 8, 0, 3, 4,
       {{0, 255, 255, 255}, {255, 255, 255, 255}, {255, 255, 255, 255}, {255, 255, 255, 0}},
       "like windings overlap: the union, not doubled (non-zero rule)"},
      {{rect(0.25, 0.5, 2.25, 2.5)}, 4, 0, 2, 3, {{0x68, 0x20}, {0xCF, 0x40}, {0x68, 0x20}},
       "4 bits: 32 is above 15, nothing trimmed"},
      {{rect(0, 0, 2.125, 2.125)}, 2, 0, 1, 2, {{0xF0}, {0xF0}},
       "2 bits: the right column and top row of 32s are trimmed"},
  };
  for (auto& r : rows) {
    FS_GRAYMAP* g = render(r.shape, r.type);
    ASSERT_NE(nullptr, g) << r.why;
    EXPECT_EQ((std::vector<int>{r.type, r.lo_x, r.hi_y, r.width, 40 + g->bpl * g->height}),
              (std::vector<int>{g->bitsPerPixel, g->lo_x, g->hi_y, g->width, g->size}))
        << r.why << ": depth, left, top, width, record size";
    EXPECT_EQ(r.want, bytes(g)) << r.why;
    FSS_free(&st, g);
  }
}

TEST_F(Graymap, FullCellStoreDoublesTheBandsAndStillGivesTheSameImage) {
  // A bar x 0..1 over 600 rows and, in its top row, 200 teeth half a pixel
  // wide: 400 cell records in one row. 6 bands of 100 rows to start; the top
  // one needs 400 + 2 x 100 records, more than the store's 512, so the bands
  // double to 12. Each tooth covers half of its column.
  std::vector<Contour> cs = {rect(0, 0, 1, 600)};
  for (int i = 0; i < 200; i++) cs.push_back(rect(i + 2.25, 599, i + 2.75, 600));
  FS_GRAYMAP* g = render(cs);
  ASSERT_NE(nullptr, g);
  EXPECT_EQ(12, st.server->raster->num_bands);
  ASSERT_EQ(202, g->width);
  ASSERT_EQ(600, g->height);
  for (int y = 0; y < 600; y++)
    for (int x = 0; x < 202; x++)
      ASSERT_EQ(x == 0 ? 255 : (y == 0 && x >= 2) ? 128 : 0, g->bits[y * g->bpl + x])
          << y << " " << x;
  FSS_free(&st, g);
}

TEST_F(Graymap, RunsBetweenEdgesAndTheTrimKeepEveryPixel) {
  // Bars on whole pixels leave 255 inside, 0 outside: their insides are the
  // runs between two edges, of every length from 0 to 40 (short, 8 to 16,
  // long fills) and, 5000 wide, past the widest map swept by occupied
  // columns. A sliver 1/1000 of a pixel wide covers nothing (level 0), so
  // its columns or rows are trimmed; the bytes behind a record smaller than
  // 48 stay 0 as in a fresh one.
  struct {
    std::vector<Contour> shape;
    int lo_x, hi_y, width, height;
    const char* why;
  } rows[] = {
      {{}, 0, 0, 1641, 1, "bars 1 to 41 wide, gaps of 0 to 40"},
      {{rect(0, 0, 5000, 1)}, 0, 0, 5000, 1, "a bar wider than 4096"},
      {{rect(0, 0, 1, 2), rect(3, 0, 3.001, 2)}, 0, 1, 1, 2, "sliver right: columns trimmed"},
      {{rect(0, 0, 2, 1), rect(0, 3, 2, 3.001)}, 0, 0, 2, 1, "sliver above: rows move up"},
  };
  for (int i = 0, x = 0; i <= 40; x += 2 * i + 1, i++)
    rows[0].shape.push_back(rect(x, 0, x + i + 1, 1));
  for (auto& r : rows) {
    FS_GRAYMAP* g = render(r.shape);
    ASSERT_NE(nullptr, g) << r.why;
    EXPECT_EQ((std::vector<int>{r.lo_x, r.hi_y, r.width, r.height}),
              (std::vector<int>{g->lo_x, g->hi_y, g->width, g->height}))
        << r.why << ": left, top, width, height";
    for (int y = 0; y < g->height; y++)
      for (int x = 0; x < g->width; x++) {
        bool inside = false;
        for (const Contour& c : r.shape)
          inside |= x + g->lo_x >= c[0].x && x + g->lo_x + 1 <= c[2].x &&
                    g->hi_y - y >= c[0].y && g->hi_y - y + 1 <= c[2].y;
        ASSERT_EQ(inside ? 255 : 0, g->bits[y * g->bpl + x]) << r.why << " " << y << " " << x;
      }
    for (int k = g->size; k < 48; k++) EXPECT_EQ(0, ((FS_BYTE*)g)[k]) << r.why << " byte " << k;
    FSS_free(&st, g);
  }
}

TEST_F(Graymap, AnEmptyOutlineGivesABareHeaderWithItsAdvance) {
  FS_OUTLINE* o = setup_outline(&st, 0, 0, 0);
  o->i_dx = 5;
  FS_GRAYMAP* g = make_graymap(&st, o, 0x20);
  ASSERT_NE(nullptr, g);
  // 0x20 has no depth bit: 4.
  EXPECT_EQ((Rows{{40, 5, 4}}), (Rows{{g->size, g->i_dx, g->bitsPerPixel}}));
  FSS_free(&st, g);
  FSS_free(&st, o);
}

}  // namespace
