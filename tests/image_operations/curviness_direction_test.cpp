// Curviness, direction, symmetry and edginess of drawn pictures as PNG files.
#include "image_operations/curviness_direction.h"

#include <gtest/gtest.h>
#include <math.h>

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::expectMeasured;
using testsupport::expectNear;
using testsupport::kBlack;
using testsupport::measureDrawn;
using testsupport::Picture;

namespace {

using Measure = std::function<double(const char*)>;

// A picture w x h inked where ink(x, y) holds.
Picture shape(int w, int h, bool (*ink)(int, int)) {
  Picture p(w, h);
  for (int y = 0; y < h; y++)
    for (int x = 0; x < w; x++)
      if (ink(x, y)) p.set(x, y, kBlack);
  return p;
}

// Rectangles {x0, y0, x1, y1, ink 1 or white 0}, drawn in order.
Picture rects(int w, int h, std::initializer_list<std::array<int, 5>> list) {
  Picture p(w, h);
  for (auto r : list) p.fillRect(r[0], r[1], r[2], r[3], r[4] ? kBlack : testsupport::kWhite);
  return p;
}

bool in(int v, int lo, int hi) { return v >= lo && v <= hi; }

// Border pixels: square 76, ring 40 + 24, "/" bar 24, flat bar 34, "\" 8.
const Picture kSquare = rects(26, 26, {{2, 2, 21, 21, 1}});
const Picture kRing = rects(16, 16, {{2, 2, 12, 12, 1}, {5, 5, 9, 9, 0}});
const Picture kRisingBar =
    shape(14, 14, [](int x, int y) { return in(y, 2, 9) && in(x + y, 11, 13); });
const Picture kFlatBar = rects(20, 9, {{2, 3, 17, 5, 1}});
const Picture kBackslash = shape(12, 12, [](int x, int y) { return x == y && in(x, 2, 9); });
const Picture kDisc = [] {
  Picture p(50, 50);
  p.fillEllipse(24, 24, 20, 20);
  return p;
}();

}  // namespace

// A pixel no direction fits counts in the class the last passing test left.
TEST(DirectionCensus, SharesOfTheFourDirections) {
  struct Row {
    const char* why;
    Picture pic;
    std::array<double, 4> shares;  // dir0, dir45, dir90, dir135
  } rows[] = {
      // Rows 3 and 5 less their ends W-E; row 4's ends N-S; (2,5) follows N-S.
      {"flat bar", kFlatBar, {28.0 / 34, 0, 5.0 / 34, 1.0 / 34}},
      // Rows 3..8 NE-SW: 18. (10,2) and (3,9) W-E; (2,9) follows code 0.
      {"rising bar", kRisingBar, {3.0 / 24, 18.0 / 24, 3.0 / 24, 0}},
      // (3,3)..(8,8) NW-SE; (2,2) code 2; (9,9) follows code 1: dir45.
      {"backslash", kBackslash, {0, 1.0 / 8, 1.0 / 8, 6.0 / 8}},
  };
  for (const Row& r : rows) {
    double d[4] = {7, 7, 7, 7};
    measureDrawn(r.pic,
                 [&](const char* f) { return dirAttributes(f, d, d + 1, d + 2, d + 3), 0.; });
    for (int i = 0; i < 4; i++) expectNear(d[i], r.shares[i], 0, r.why + std::to_string(i));
  }
  double d[4] = {0, 0, 0, 0};
  dirAttributes("/nonexistent.png", d, d + 1, d + 2, d + 3);
  EXPECT_EQ(d[0] + d[1] + d[2] + d[3], -4.0);  // -1 each
  // The buffer form's height truncates: 2.9 rows are 2, all border: 8 pixels.
  Picture solid(4, 3, kBlack);
  EXPECT_EQ(dirAttributes_FromBuff(solid.pixels.data(), d, d + 1, d + 2, d + 3, 4, 2.9), 8);
  EXPECT_EQ(dirAttributes_FromBuff(NULL, d, d + 1, d + 2, d + 3, 10, 10), 0);
}

TEST(Curviness, CensusBorderWalkEdginessAndSymmetryOfDrawnShapes) {
  auto census = [](double skew, double stroke) -> Measure {
    return [=](const char* f) { return getCurviness(f, skew, stroke); };
  };
  auto walk = [](double skew, int mode) -> Measure {
    return [=](const char* f) { return curviness_borderPath(f, skew, mode); };
  };
  Measure edginess = [](const char* f) { return getEdginess(f, 0); };
  Measure symmetry = [](const char* f) { return getSymmetry(f, 0); };
  expectMeasured({
      {"bar, wide stroke order: 18 of 24 diagonal", kRisingBar, census(0, 5), 0.75, 0},
      // Below 3.0 W-E is tried first and takes the middle of rows 3..8.
      {"bar, narrow stroke order", kRisingBar, census(0, 2.9), 0.5, 0},
      // Three corners turn, the closing step does not: 3 * 100 / 76.
      {"square walk: sharp turns", kSquare, walk(0, 2), 300.0 / 76, 0},
      {"unknown mode 3", kSquare, walk(0, 3), -1, 0},
      // Outer outline (40, 3 turns), then the hole's (24, 3 turns) from (4,4).
      {"ring walks both contours", kRing, walk(0, 2), 600.0 / 64, 0},
      // A digital circle steps diagonally on about sqrt(2) - 1 of its steps.
      {"disc walk", kDisc, walk(0, 1), 0.36, 0.06},
      // Five walks from (2, 4..8): corners count 3, 4, 4, 4, 4: 19 / 5.
      {"square edginess", kSquare, edginess, 3.8, 0},
      {"1 x 1 blank edginess: the box past the edge", Picture(1, 1), edginess, 0, 0},
      {"1 x 1 blank symmetry: a white box is all alike", Picture(1, 1), symmetry, 1, 0},
  });
  const char* none = "/nonexistent.png";
  for (double v : {getCurviness(none, 0, 0), curviness_borderPath(none, 0, 1),
                   curviness_borderPath(none, 5, 2), getSymmetry(none, 0), getEdginess(none, 3)})
    EXPECT_EQ(v, 0.0) << "missing file";
  // Ink to every edge: steps past the sides wrap, yet every walk ends.
  Picture solid(12, 10, kBlack);
  EXPECT_GE(measureDrawn(solid, walk(0, 1)), 0.0);
  EXPECT_GE(measureDrawn(solid, edginess), 0.0);
}

// Ink 1..2 and 5..8: the scans from either end stop on the white at 3 and 4.
TEST(ContourWalks, OuterMapStopsAtTheFirstWhiteFromEachEnd) {
  Picture p = rects(10, 3, {{1, 1, 2, 1, 1}, {5, 1, 8, 1, 1}});
  std::map<int, int> outer;
  EXPECT_EQ(getOuterBorderMap(p.pixels.data(), 10, 3, outer), 6);
  EXPECT_EQ(getOuterBorderMap(NULL, 16, 16, outer), 0);
}

TEST(Intersections, StrokeCrossingsAlongSixColumnsAndRows) {
  struct Row { const char* why; Picture pic; int x, y; } rows[] = {
      // Lines 5..9 cross one arm (2 each); column 11 lies in the arm: no change.
      {"plus sign", rects(24, 24, {{10, 3, 13, 20, 1}, {3, 10, 20, 13, 1}}), 6, 7},
      // Column 5 enters ink at once (1), row 5 none; lines 7..13 cross two.
      {"boxy O", rects(24, 24, {{3, 3, 20, 20, 1}, {7, 7, 16, 16, 0}}), 8, 9},
      // Rows 6.67, 9.33, ... times 30 start mid-row: rows 9, 17 cross the stem.
      {"fractional rows shift sideways", rects(30, 30, {{13, 4, 16, 25, 1}}), 4, 0},
      {"1 x 1 blank: the box past the edge", Picture(1, 1), 0, 0},
  };
  for (const Row& r : rows) {
    int x = 7, y = 9;
    measureDrawn(r.pic, [&](const char* f) { return getIntersections(f, &x, &y), 0.0; });
    EXPECT_EQ(std::make_pair(x, y), std::make_pair(r.x, r.y)) << r.why;
  }
  int x = 7, y = 9;
  getIntersections("/nonexistent.png", &x, &y);
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(7, 9));  // left alone
}

TEST(Symmetry, MirrorAndHalfTurnMatchesOfBoxPixels) {
  Picture l = rects(14, 14, {{2, 2, 4, 11, 1}, {2, 9, 11, 11, 1}});
  Picture z = rects(14, 14, {{2, 2, 6, 6, 1}, {7, 7, 11, 11, 1}});
  const uint32_t W = 0xFFFFFF;
  struct Row {
    const char* why;
    std::vector<uint32_t> buf;
    int w, h, mode;
    double expected;
  } rows[] = {
      {"darkness 0.2 matches white", {W, 0xCCCCCC, W, W, W}, 5, 1, 0, 1},
      {"darkness 0.3 does not", {W, 0xB3B3B3, W, W, W}, 5, 1, 0, 0},
      {"width 1 compares nothing", {0}, 1, 1, 0, NAN},
      {"no buffer", {}, 4, 4, 0, NAN},
  };
  for (Row& r : rows)
    expectNear(symmetryValue(r.buf.empty() ? NULL : r.buf.data(), r.w, r.h, r.mode), r.expected, 0,
               r.why);
  // The file form takes the larger: the L's mirror (14 + 15 of 50 column pairs
  // match, 8 + 9 half turned), the opposite squares' half turn.
  auto sym = [](const char* f) { return getSymmetry(f, 0); };
  EXPECT_DOUBLE_EQ(measureDrawn(l, sym), 29.0 / 50);
  EXPECT_DOUBLE_EQ(measureDrawn(z, sym), 1.0);
}
