// Curviness, direction, symmetry and edginess measurements on synthetic glyph
// pictures written as real PNG files, and on the fixture fonts' pictures.
#include "image_operations/curviness_direction.h"

#include <gtest/gtest.h>
#include <math.h>

#include <map>
#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::kBlack;
using testsupport::kWhite;
using testsupport::Picture;
using testsupport::savePicture;
using testsupport::TempDir;
using testsupport::writePicture;

namespace {

// The four census shares of a file, in the order dir0, dir45, dir90, dir135.
struct Shares {
  double dir0 = 7, dir45 = 7, dir90 = 7, dir135 = 7;
};

Shares sharesOf(const std::string& path) {
  Shares s;
  dirAttributes(path.c_str(), &s.dir0, &s.dir45, &s.dir90, &s.dir135);
  return s;
}

// A solid 20 by 20 square, pixels 2..21 both ways, in a 26 by 26 picture. Its
// 76 border pixels are its outline, 19 steps a side.
Picture square() {
  Picture p(26, 26);
  p.fillRect(2, 2, 21, 21);
  return p;
}

// A disc of radius 20 about (24, 24) in a 50 by 50 picture.
Picture disc() {
  Picture p(50, 50);
  p.fillEllipse(24, 24, 20, 20);
  return p;
}

// A square ring: outside 2..12, hole 5..9, strokes 3 thick. Its outer
// outline has 40 pixels, the outline of the hole 24 (the ring 4..10 round
// it); the pixels between are inside the strokes.
Picture squareRing() {
  Picture p(16, 16);
  p.fillRect(2, 2, 12, 12);
  p.fillRect(5, 5, 9, 9, kWhite);
  return p;
}

// A "/" bar three pixels across, rows 2..9, ink where x + y is 11, 12 or 13.
// Every one of its 24 pixels touches white, so all are border pixels.
Picture risingBar() {
  Picture p(14, 14);
  for (int y = 2; y <= 9; y++)
    for (int x = 11 - y; x <= 13 - y; x++) p.set(x, y, kBlack);
  return p;
}

// A horizontal bar three pixels high: rows 3..5, columns 2..17. Border
// pixels: rows 3 and 5 whole (16 each) and the two ends of row 4: 34.
Picture horizontalBar() {
  Picture p(20, 9);
  p.fillRect(2, 3, 17, 5);
  return p;
}

}  // namespace

// ----- direction census -----------------------------------------------------

TEST(DirectionCensus, HorizontalBarCountsItsLongSidesHorizontal) {
  TempDir dir;
  Shares s = sharesOf(savePicture(dir, horizontalBar()));
  // Rows 3 and 5 without their ends pass W-E: 14 + 14 = 28 dir0. The two ends
  // of row 4 pass N-S: dir90, leaving code 3. Ends fitting no test count in
  // the class of the code left last: (2,3) with the starting code 2 and
  // (17,3) and (17,5) after W-E (code 2) are dir90; (2,5) follows the N-S of
  // (17,4), code 3, and is dir135. dir0 28, dir90 5, dir135 1, of 34.
  EXPECT_DOUBLE_EQ(s.dir0, 28.0 / 34);
  EXPECT_DOUBLE_EQ(s.dir45, 0.0);
  EXPECT_DOUBLE_EQ(s.dir90, 5.0 / 34);
  EXPECT_DOUBLE_EQ(s.dir135, 1.0 / 34);
}

TEST(DirectionCensus, RisingDiagonalBarCountsMostlyNeSw) {
  TempDir dir;
  Shares s = sharesOf(savePicture(dir, risingBar()));
  // Rows 3..8: each pixel has ink of the same x + y at upper right and lower
  // left, so NE-SW takes all 18. Row 2: (10,2) passes W-E; its ends fit no
  // test and count in class 2 (the starting code, then W-E's code): dir90.
  // Row 9: (2,9) follows NE-SW's code 0 and counts dir0, (3,9) passes W-E,
  // (4,9) follows code 2: dir90. dir45 18, dir0 3, dir90 3, of 24.
  EXPECT_DOUBLE_EQ(s.dir0, 3.0 / 24);
  EXPECT_DOUBLE_EQ(s.dir45, 18.0 / 24);
  EXPECT_DOUBLE_EQ(s.dir90, 3.0 / 24);
  EXPECT_DOUBLE_EQ(s.dir135, 0.0);
}

TEST(DirectionCensus, PixelFittingNoTestCountsInTheClassNumberedByTheLastCode) {
  // A one-pixel "\" line (k, k), k = 2..9. (2,2) fits nothing and counts in
  // class 2 (dir90); (3,3)..(8,8) pass NW-SE (dir135, code 1); (9,9) fits
  // nothing and counts in class 1, dir45, not in the dir135 that left code 1.
  Picture p(12, 12);
  for (int k = 2; k <= 9; k++) p.set(k, k, kBlack);
  TempDir dir;
  Shares s = sharesOf(savePicture(dir, p));
  EXPECT_DOUBLE_EQ(s.dir0, 0.0);
  EXPECT_DOUBLE_EQ(s.dir45, 1.0 / 8);
  EXPECT_DOUBLE_EQ(s.dir90, 1.0 / 8);
  EXPECT_DOUBLE_EQ(s.dir135, 6.0 / 8);
}

TEST(DirectionCensus, SquareOutlineSplitsBetweenHorizontalAndVertical) {
  TempDir dir;
  Shares s = sharesOf(savePicture(dir, square()));
  // Top and bottom rows without corners: 18 + 18 dir0. Side columns without
  // corners pass N-S: 36 dir90. Corners fit nothing: (2,2), (21,2) and
  // (21,21) follow code 2 (dir90), (2,21) follows the N-S of (21,20) (dir135).
  EXPECT_DOUBLE_EQ(s.dir0, 36.0 / 76);
  EXPECT_DOUBLE_EQ(s.dir45, 0.0);
  EXPECT_DOUBLE_EQ(s.dir90, 39.0 / 76);
  EXPECT_DOUBLE_EQ(s.dir135, 1.0 / 76);
}

TEST(DirectionCensus, BufferFormsReturnTheBorderCountAndFillTheMapInMode1) {
  Picture p = square();
  std::map<int, int> pixels;
  double d0, d45, d90, d135;
  EXPECT_EQ(dirAttributes_FromBuff(p.pixels.data(), &d0, &d45, &d90, &d135,
                                   p.width, p.height),
            76);
  EXPECT_EQ(dirAttributes_FromBuff_curv(p.pixels.data(), &d0, &d45, &d90,
                                        &d135, p.width, p.height, 10.0, pixels,
                                        0),
            76);
  EXPECT_TRUE(pixels.empty());
  EXPECT_EQ(dirAttributes_FromBuff_curv(p.pixels.data(), &d0, &d45, &d90,
                                        &d135, p.width, p.height, 10.0, pixels,
                                        1),
            76);
  EXPECT_EQ(pixels.size(), 76u);
  EXPECT_EQ(pixels.count(combine(2, 2)), 1u);
  EXPECT_EQ(pixels.count(combine(21, 13)), 1u);
  EXPECT_EQ(pixels.count(combine(3, 3)), 0u);  // inside the square
  EXPECT_EQ(pixels[combine(21, 21)], 1);
  // The height is truncated: 2.9 rows of a 3-row picture are 2, whose both
  // rows are first or last, so every ink pixel is a border pixel.
  Picture solid(4, 3, kBlack);
  EXPECT_EQ(dirAttributes_FromBuff(solid.pixels.data(), &d0, &d45, &d90,
                                   &d135, 4, 2.9),
            8);
}

TEST(DirectionCensus, NullBufferGivesMinusOneAndNoCount) {
  std::map<int, int> pixels;
  double d0 = 0, d45 = 0, d90 = 0, d135 = 0;
  EXPECT_EQ(dirAttributes_FromBuff(NULL, &d0, &d45, &d90, &d135, 10, 10.0), 0);
  EXPECT_EQ(d0, -1.0);
  EXPECT_EQ(d45, -1.0);
  EXPECT_EQ(d90, -1.0);
  EXPECT_EQ(d135, -1.0);
  d0 = d45 = d90 = d135 = 0;
  EXPECT_EQ(dirAttributes_FromBuff_curv(NULL, &d0, &d45, &d90, &d135, 10, 10.0,
                                        1.0, pixels, 1),
            0);
  EXPECT_EQ(d0 + d45 + d90 + d135, -4.0);
  EXPECT_TRUE(pixels.empty());
}

TEST(Curviness, NarrowStrokeOrderPrefersHorizontalOverDiagonal) {
  TempDir dir;
  std::string bar = savePicture(dir, risingBar());
  // Wide order: 18 of 24 border pixels diagonal (see the census above).
  EXPECT_DOUBLE_EQ(getCurviness(bar.c_str(), 0.0, 5.0), 0.75);
  EXPECT_DOUBLE_EQ(getCurviness(bar.c_str(), 0.0, 3.0), 0.75);
  // Below 3.0 W-E is tried first and takes the middle pixel of rows 3..8;
  // their outer pixels (x + y = 11, 13) still pass only NE-SW: 12 of 24.
  EXPECT_DOUBLE_EQ(getCurviness(bar.c_str(), 0.0, 2.9), 0.5);
}

TEST(Curviness, SquareIsNearlyStraightAndDiscIsCurved) {
  TempDir dir;
  // The square's census, in either order: only the corner (2,21) diagonal.
  std::string sq = savePicture(dir, "square.png", square());
  EXPECT_DOUBLE_EQ(getCurviness(sq.c_str(), 0.0, 0.0), 1.0 / 76);
  EXPECT_DOUBLE_EQ(getCurviness(sq.c_str(), 0.0, 5.0), 1.0 / 76);
  // A circle's outline runs diagonal over a good part of its length: in each
  // eighth of a turn about 0.29 r of its 0.71 r pixels step diagonally, and
  // on a disc diagonal neighbours line up along the rim from about 22.5 to
  // 67.5 degrees, half the turn.
  std::string round = savePicture(dir, "disc.png", disc());
  EXPECT_GT(getCurviness(round.c_str(), 0.0, 0.0), 0.25);
  EXPECT_LT(getCurviness(round.c_str(), 0.0, 0.0), 0.75);
  EXPECT_GT(getCurviness(round.c_str(), 0.0, 5.0), 0.25);
}

// ----- contour walks --------------------------------------------------------

TEST(BorderPathCurviness, SquareWalksWithoutDiagonalStepsAndTurnsThreeTimes) {
  TempDir dir;
  std::string sq = savePicture(dir, square());
  EXPECT_DOUBLE_EQ(curviness_borderPath(sq.c_str(), 0.0, 1), 0.0);
  // The walk starts at (2,2) going down; the corners at (2,21), (21,21) and
  // (21,2) turn by 2, 2 and 6 direction indices; the closing step onto (2,2)
  // is not a turn. 3 sharp turns over 76 walked pixels.
  EXPECT_DOUBLE_EQ(curviness_borderPath(sq.c_str(), 0.0, 2), 300.0 / 76);
  EXPECT_EQ(curviness_borderPath(sq.c_str(), 0.0, 3), -1.0);
  EXPECT_EQ(curviness_borderPath(sq.c_str(), 0.0, 0), -1.0);
}

TEST(BorderPathCurviness, DiscStepsDiagonallyAlongAboutATenthToAHalf) {
  TempDir dir;
  std::string round = savePicture(dir, disc());
  // The outline of a digital circle steps diagonally on sqrt(2) - 1 = 0.41 of
  // its steps; dividing by all border pixels, a few more than steps where the
  // rim is two pixels thick diagonally, lowers that somewhat.
  double value = curviness_borderPath(round.c_str(), 0.0, 1);
  EXPECT_GT(value, 0.3);
  EXPECT_LT(value, 0.42);
}

TEST(BorderPathCurviness, WalksEveryContourOfARing) {
  TempDir dir;
  std::string ring = savePicture(dir, squareRing());
  EXPECT_DOUBLE_EQ(curviness_borderPath(ring.c_str(), 0.0, 1), 0.0);
  // The outer outline (40 pixels, 3 sharp turns), then from the lowest
  // unwalked key (4,4) the hole's outline (24 pixels): down, right at (4,10),
  // up at (10,10), left at (10,4): 3 more. 6 * 100 / 64.
  EXPECT_DOUBLE_EQ(curviness_borderPath(ring.c_str(), 0.0, 2), 600.0 / 64);
}

TEST(BorderPathCurviness, DeskewingALeaningShapeStraightensItsWalk) {
  // A parallelogram of 10 by 20 leaning one pixel per row: the shear by 45
  // degrees moves each row by a whole pixel and gives an upright rectangle.
  Picture p(44, 26);
  p.fillSheared(4, 13, 3, 22, 1.0);
  TempDir dir;
  std::string path = savePicture(dir, p);
  EXPECT_DOUBLE_EQ(curviness_borderPath(path.c_str(), 45.0, 1), 0.0);
  // Upright rectangle census: only its lower left corner counts diagonal,
  // of 2 * 10 + 2 * 18 = 56 border pixels.
  EXPECT_DOUBLE_EQ(getCurviness(path.c_str(), 45.0, 5.0), 1.0 / 56);
  // As drawn it has 92 border pixels: 10 in the top and bottom rows, and in
  // each of the 18 rows between the end pixels and their inner neighbours,
  // which touch white diagonally. The outer walk steps diagonally 19 times
  // down each long side: at least 38 / 92 = 0.41.
  EXPECT_GT(curviness_borderPath(path.c_str(), 0.0, 1), 0.41);
}

TEST(BorderPathCurviness, GetCurviRatioEmptiesTheBorderMap) {
  Picture p = square();
  std::map<int, int> border, walked;
  double d0, d45, d90, d135;
  dirAttributes_FromBuff_curv(p.pixels.data(), &d0, &d45, &d90, &d135, p.width,
                              p.height, 10.0, border, 1);
  int sharp = -1;
  EXPECT_DOUBLE_EQ(getCurviRatio(p.pixels.data(), walked, border, p.width,
                                 p.height, 2, 2, sharp),
                   0.0);
  EXPECT_TRUE(border.empty());
  EXPECT_EQ(walked.size(), 76u);
  EXPECT_EQ(sharp, 3);
  // Nothing to walk: 0 / 0.
  EXPECT_TRUE(std::isnan(getCurviRatio(p.pixels.data(), walked, border,
                                       p.width, p.height, 2, 2, sharp)));
  EXPECT_EQ(sharp, 0);
}

TEST(OuterBorderMap, HoldsTheOutermostPixelsOfEachRowOnly) {
  Picture p = squareRing();
  std::map<int, int> outer;
  outer[combine(0, 0)] = 1;  // entries already there stay
  // Rows 2 and 12: 11 pixels each from the left scan. Rows 3..11: the left
  // scan takes column 2 and stops on the inner pixel at 3, the right scan
  // takes 12 and stops at 11: 2 each. 22 + 18.
  EXPECT_EQ(getOuterBorderMap(p.pixels.data(), p.width, p.height, outer), 40);
  EXPECT_EQ(outer.size(), 41u);
  EXPECT_EQ(outer.count(combine(7, 2)), 1u);
  EXPECT_EQ(outer.count(combine(12, 7)), 1u);
  EXPECT_EQ(outer.count(combine(4, 4)), 0u);  // on the hole's outline
  EXPECT_EQ(outer.count(combine(7, 4)), 0u);
  EXPECT_EQ(getOuterBorderMap(NULL, p.width, p.height, outer), 0);
}

TEST(OuterBorderMap, RightScanStopsAtTheFirstWhiteAfterInk) {
  // Row 1 of a 10 by 3 picture: ink at 1..2 and 5..8. The left scan enters 1
  // and 2 (first row: border by position) and stops on the white at 3; the
  // right scan passes 9, enters 8, 7, 6, 5 and stops on the white at 4.
  Picture p(10, 3);
  p.fillRect(1, 1, 2, 1);
  p.fillRect(5, 1, 8, 1);
  std::map<int, int> outer;
  EXPECT_EQ(getOuterBorderMap(p.pixels.data(), p.width, p.height, outer), 6);
  // A row of three runs: the middle one is reached by neither scan.
  Picture q(12, 3);
  q.fillRect(1, 1, 2, 1);
  q.fillRect(5, 1, 6, 1);
  q.fillRect(9, 1, 10, 1);
  outer.clear();
  EXPECT_EQ(getOuterBorderMap(q.pixels.data(), q.width, q.height, outer), 4);
  EXPECT_EQ(outer.count(combine(5, 1)), 0u);
}

// ----- edginess -------------------------------------------------------------

TEST(Edginess, SquareCornersTurnAndDiscDoesNot) {
  TempDir dir;
  // minY is 2, so walks start at (2, r) for rows r = 4..8, each going down,
  // round the square and back up to (2, r - 1): 75 steps. Angles are taken
  // with 3.14159265, a little below pi, so they come out 1.1e-9 times too
  // large, and a change of exactly 45 degrees passes the test "> 45.0".
  // A corner reached after s steps: with s % 4 == 2 the window across it
  // goes 2 + 2 steps at 45 degrees, which differs by 45 from the windows
  // before and after: 2 counts; otherwise the change is 90 or 71.6 on one
  // side only: 1 count. Corners at steps 21 - r, 40 - r and 59 - r; the
  // last one, at 78 - r, counts only for r = 8 (2 + 2 steps in window 72).
  // r = 4: 17, 36, 55: 3. r = 5: 16, 35, 54: 4. r = 6: 15, 34, 53: 4.
  // r = 7: 14, 33, 52: 4. r = 8: 13, 32, 51, 70: 4. 19 / 5.
  std::string sq = savePicture(dir, "square.png", square());
  EXPECT_DOUBLE_EQ(getEdginess(sq.c_str(), 0.0), 3.8);
  // Along a disc of radius 20 the direction turns by 4 / 20 rad, about 11
  // degrees, per window; the pixel staircase adds at most about 27 degrees
  // (between windows of 4 straight and 3 + 1 steps and back), never past 45.
  std::string round = savePicture(dir, "disc.png", disc());
  EXPECT_DOUBLE_EQ(getEdginess(round.c_str(), 0.0), 0.0);
}

TEST(Edginess, WalkCountsTurnsOfTheFoldedAngle) {
  // One walk round the square from (2,4): corners at steps 17, 36 and 55.
  Picture p = square();
  std::map<int, int> outer, walked;
  getOuterBorderMap(p.pixels.data(), p.width, p.height, outer);
  EXPECT_DOUBLE_EQ(
      getEdignessCurv(p.pixels.data(), walked, outer, p.width, p.height, 2, 4),
      3.0);
  EXPECT_EQ(walked[combine(2, 4)], 1);  // the start, taken from the outer map
  EXPECT_TRUE(outer.empty());           // the walk went all round
}

// ----- stroke crossings -----------------------------------------------------

TEST(Intersections, PlusSignCarriesTheInkStateFromLineToLine) {
  // Box 3..20 both ways: W = H = 18, steps 18 / 6 - 1 = 2, so columns and
  // rows 5, 7, 9, 11, 13. Arms 4 thick: columns 10..13, rows 10..13.
  Picture p(24, 24);
  p.fillRect(10, 3, 13, 20);
  p.fillRect(3, 10, 20, 13);
  TempDir dir;
  int int_x = -1, int_y = -1;
  getIntersections(savePicture(dir, p).c_str(), &int_x, &int_y);
  // Lines 5, 7 and 9 cross one arm: 2 each, 6 on either side. Column 11 lies
  // in the vertical arm: ink from its start (7) and never white, so the
  // state stays "looking for white" through row 11, column 13 and row 13,
  // which lie in the arms, all ink: no more changes.
  EXPECT_EQ(int_x, 6);
  EXPECT_EQ(int_y, 7);
}

TEST(Intersections, BoxyOCountsBothStrokesOfEachLine) {
  // Outside 3..20, hole 7..16: strokes 4 thick. Column 5 and row 5 lie in the
  // strokes: column 5 enters ink at once (1) and ends on it, so row 5 finds
  // nothing. Columns and rows 7..13 then leave the first stroke into the hole
  // and enter the second: 2 each, 4 lines.
  Picture p(24, 24);
  p.fillRect(3, 3, 20, 20);
  p.fillRect(7, 7, 16, 16, kWhite);
  TempDir dir;
  int int_x = -1, int_y = -1;
  getIntersections(savePicture(dir, p).c_str(), &int_x, &int_y);
  EXPECT_EQ(int_x, 8);
  EXPECT_EQ(int_y, 9);
}

TEST(Intersections, RowScansStartAtMinYInsteadOfMinX) {
  // The plus sign moved down: box x 3..20, y 9..26; vertical arm columns
  // 10..13, horizontal arm rows 16..19. Rows 11, 13, 15 are read at x 9..26
  // and cross the vertical arm: 2 each. Column 11 ends on ink; row 17, in
  // the horizontal arm, is read from x 9 and meets white at 21, past the
  // arm's end (1); column 13 re-enters (1) and row 19 leaves at 21 again
  // (1). Read from minX (x 3..20) rows 17 and 19 would be all ink.
  Picture p(30, 30);
  p.fillRect(10, 9, 13, 26);
  p.fillRect(3, 16, 20, 19);
  TempDir dir;
  int int_x = -1, int_y = -1;
  getIntersections(savePicture(dir, p).c_str(), &int_x, &int_y);
  EXPECT_EQ(int_x, 8);
  EXPECT_EQ(int_y, 8);
}

TEST(Intersections, FractionalRowShiftsTheScanSideways) {
  // A vertical stem, columns 13..16, rows 4..25, in a 30-wide picture: box
  // W = 4, H = 22. Columns truncate(13 + (4 / 6 - 1) m + 0.02) are 12, 12,
  // 12, 11, 11: all white. Rows minY + (22 / 6 - 1) m = 6.67, 9.33, 12,
  // 14.67, 17.33, times 30, give flat starts 200, 280, 360, 440, 520; with
  // minY + x, x = 0..3, the scans read columns 24..27 of row 6, 14..17 of row
  // 9, 4..7 of row 12, 24..27 of row 14 and 14..17 of row 17. Rows 9 and 17
  // cross the stem (enter at 14, leave at 17): 2 each. Read from the rows'
  // starts at minY, columns 4..7, they would all be white.
  Picture p(30, 30);
  p.fillRect(13, 4, 16, 25);
  TempDir dir;
  int int_x = -1, int_y = -1;
  getIntersections(savePicture(dir, p).c_str(), &int_x, &int_y);
  EXPECT_EQ(int_x, 4);
  EXPECT_EQ(int_y, 0);
}

// ----- symmetry -------------------------------------------------------------

namespace {

// An L in a 10 by 10 box at (2, 2): stem columns 0..2, foot rows 7..9.
Picture letterL() {
  Picture p(14, 14);
  p.fillRect(2, 2, 4, 11);
  p.fillRect(2, 9, 11, 11);
  return p;
}

// A T in a 10 by 10 box at (2, 2): bar rows 0..2, stem columns 3..6.
Picture letterT() {
  Picture p(14, 14);
  p.fillRect(2, 2, 11, 4);
  p.fillRect(5, 5, 8, 11);
  return p;
}

// The 10 by 10 box of a picture as its own picture.
std::vector<uint32_t> boxOf(const Picture& p) {
  std::vector<uint32_t> box;
  for (int y = 2; y < 12; y++)
    for (int x = 2; x < 12; x++) box.push_back(p.at(x, y));
  return box;
}

}  // namespace

TEST(Symmetry, LetterLMatchesPartlyUnderEitherSymmetry) {
  // Width 10: pairs of columns (5,4), (6,3), (7,2), (8,1), (9,0) in 10 rows.
  // Mirror: rows 0..6 match at (5,4) and (6,3) only (7 * 2), the foot rows
  // 7..9 everywhere (3 * 5): 29 of 50. Half turn, row y against row 9 - y:
  // rows 0..2 against the foot match nowhere, rows 3..6 against stem rows at
  // (5,4) and (6,3) (4 * 2), foot rows against rows 2..0 at (7,2), (8,1) and
  // (9,0) (3 * 3): 17 of 50.
  Picture l = letterL();
  std::vector<uint32_t> box = boxOf(l);
  EXPECT_DOUBLE_EQ(symmetryValue(box.data(), 10, 10, 0), 29.0 / 50);
  EXPECT_DOUBLE_EQ(symmetryValue(box.data(), 10, 10, 1), 17.0 / 50);
  TempDir dir;
  EXPECT_DOUBLE_EQ(getSymmetry(savePicture(dir, l).c_str(), 0.0), 29.0 / 50);
}

TEST(Symmetry, SymmetricShapesScoreOne) {
  TempDir dir;
  // A T mirrors onto itself.
  Picture t = letterT();
  std::vector<uint32_t> box = boxOf(t);
  EXPECT_DOUBLE_EQ(symmetryValue(box.data(), 10, 10, 0), 1.0);
  EXPECT_DOUBLE_EQ(getSymmetry(savePicture(dir, "t.png", t).c_str(), 0.0), 1.0);
  // Two squares at opposite corners map onto each other under a half turn,
  // and not at all in the mirror: the larger, 1.0, is taken.
  Picture z(14, 14);
  z.fillRect(2, 2, 6, 6);
  z.fillRect(7, 7, 11, 11);
  box = boxOf(z);
  EXPECT_DOUBLE_EQ(symmetryValue(box.data(), 10, 10, 1), 1.0);
  EXPECT_DOUBLE_EQ(symmetryValue(box.data(), 10, 10, 0), 0.0);
  EXPECT_DOUBLE_EQ(getSymmetry(savePicture(dir, "z.png", z).c_str(), 0.0), 1.0);
}

TEST(Symmetry, OddWidthLeavesTheOutermostColumnsUncompared) {
  // Width 5: refX 2, corr 0, x from 1 while x < 2: only columns 3 and 1.
  std::vector<uint32_t> row = {0x000000, 0xFFFFFF, 0xFFFFFF, 0xFFFFFF,
                               0xFFFFFF};
  EXPECT_DOUBLE_EQ(symmetryValue(row.data(), 5, 1, 0), 1.0);
  // Darkness 0.2 against white is still a match; 0.3 is not.
  row = {0xFFFFFF, 0xCCCCCC, 0xFFFFFF, 0xFFFFFF, 0xFFFFFF};
  EXPECT_DOUBLE_EQ(symmetryValue(row.data(), 5, 1, 0), 1.0);
  row = {0xFFFFFF, 0xB3B3B3, 0xFFFFFF, 0xFFFFFF, 0xFFFFFF};
  EXPECT_DOUBLE_EQ(symmetryValue(row.data(), 5, 1, 0), 0.0);
  // Width 1 compares nothing.
  uint32_t one = 0x000000;
  EXPECT_TRUE(std::isnan(symmetryValue(&one, 1, 1, 0)));
  EXPECT_TRUE(std::isnan(symmetryValue(NULL, 4, 4, 0)));
}

// ----- failure values -------------------------------------------------------

TEST(FailureValues, BlankPictureGivesNotANumberForTheRatios) {
  TempDir dir;
  std::string blank = savePicture(dir, Picture(20, 20));
  EXPECT_TRUE(std::isnan(getCurviness(blank.c_str(), 0.0, 0.0)));
  EXPECT_TRUE(std::isnan(curviness_borderPath(blank.c_str(), 0.0, 1)));
  Shares s = sharesOf(blank);
  EXPECT_TRUE(std::isnan(s.dir0) && std::isnan(s.dir45) &&
              std::isnan(s.dir90) && std::isnan(s.dir135));
  EXPECT_EQ(getEdginess(blank.c_str(), 0.0), 0.0);
  // The 2 by 2 box of a blank picture is white, all alike.
  EXPECT_EQ(getSymmetry(blank.c_str(), 0.0), 1.0);
  int int_x = 7, int_y = 9;
  getIntersections(blank.c_str(), &int_x, &int_y);
  EXPECT_EQ(int_x, 0);
  EXPECT_EQ(int_y, 0);
  // Tiny pictures: the blank box 1..0 reaches past their edge.
  std::string tiny = savePicture(dir, "tiny.png", Picture(1, 1));
  EXPECT_EQ(getEdginess(tiny.c_str(), 0.0), 0.0);
  EXPECT_EQ(getSymmetry(tiny.c_str(), 0.0), 1.0);
  getIntersections(tiny.c_str(), &int_x, &int_y);
  EXPECT_EQ(int_x + int_y, 0);
}

TEST(FailureValues, MissingFileGivesTheFixedValues) {
  TempDir dir;
  std::string missing = dir.file("missing.png");
  EXPECT_EQ(getCurviness(missing.c_str(), 0.0, 0.0), 0.0);
  EXPECT_EQ(curviness_borderPath(missing.c_str(), 0.0, 1), 0.0);
  EXPECT_EQ(curviness_borderPath(missing.c_str(), 5.0, 2), 0.0);
  Shares s = sharesOf(missing);
  EXPECT_EQ(s.dir0, -1.0);
  EXPECT_EQ(s.dir45, -1.0);
  EXPECT_EQ(s.dir90, -1.0);
  EXPECT_EQ(s.dir135, -1.0);
  EXPECT_EQ(getSymmetry(missing.c_str(), 0.0), 0.0);
  EXPECT_EQ(getEdginess(missing.c_str(), 3.0), 0.0);
  int int_x = 7, int_y = 9;
  getIntersections(missing.c_str(), &int_x, &int_y);
  EXPECT_EQ(int_x, 7);
  EXPECT_EQ(int_y, 9);
}

TEST(FailureValues, InkToEveryEdgeEndsEveryWalk) {
  // A solid picture: all edge pixels are border pixels by position, and
  // steps past the side edges wrap to the neighbouring row.
  Picture solid(12, 10, kBlack);
  TempDir dir;
  std::string path = savePicture(dir, solid);
  Shares s = sharesOf(path);
  EXPECT_DOUBLE_EQ(s.dir0 + s.dir45 + s.dir90 + s.dir135, 1.0);
  EXPECT_GE(curviness_borderPath(path.c_str(), 0.0, 1), 0.0);
  EXPECT_GE(getEdginess(path.c_str(), 0.0), 0.0);
}

// ----- fixtures -------------------------------------------------------------

namespace {

std::string fixture(const std::string& font, const std::string& name) {
  return testsupport::fixturesDir() + "/" + font + "/Images/" + name + ".png";
}

double meanBorderPath(const std::string& font,
                      const std::vector<std::string>& names) {
  double sum = 0.0;
  for (const std::string& name : names)
    sum += curviness_borderPath(fixture(font, name).c_str(), 0.0, 1);
  return sum / names.size();
}

}  // namespace

TEST(FixtureFonts, StraightLettersWalkLessDiagonallyThanRoundOnes) {
  REQUIRE_FIXTURES();
  for (const char* font : {"DejaVuSans", "DejaVuSans-Oblique",
                           "LiberationSerif", "LiberationMono"}) {
    double straight = meanBorderPath(font, {"70-F", "73-I", "76-L", "84-T"});
    double round =
        meanBorderPath(font, {"79-O", "111-o", "99-c", "101-e", "115-s"});
    EXPECT_LT(straight, round) << font;
    EXPECT_GT(straight, 0.0) << font;  // anti-aliased edges step now and then
  }
}

TEST(FixtureFonts, LeaningStemWalksDiagonally) {
  REQUIRE_FIXTURES();
  // The upright I is a rectangle of whole pixels: its walk never steps
  // diagonally. The oblique's stem edges move one pixel every five rows or
  // so (11 degrees), and each move is a diagonal step on both sides.
  EXPECT_EQ(curviness_borderPath(fixture("DejaVuSans", "73-I").c_str(), 0.0, 1),
            0.0);
  EXPECT_GT(curviness_borderPath(
                fixture("DejaVuSans-Oblique", "73-I").c_str(), 0.0, 1),
            0.1);
}
