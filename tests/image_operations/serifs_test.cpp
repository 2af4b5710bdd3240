// Serif measurements on synthetic letters written as real PNG files (an L, T
// and I with and without serifs, h with and without brackets and wedges,
// diagonal feet, stems with and without a flare), and on the fixture fonts.
// Letters are drawn with their ink box's top-left corner at (2, 2), so box
// position (x, y) is picture position (x + 2, y + 2).
#include "image_operations/serifs.h"

#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <string>

#include "support/test_support.h"

using testsupport::kBlack;
using testsupport::Picture;
using testsupport::measureDrawn;
using testsupport::Glyph;
using testsupport::greyPixel;
using testsupport::TempDir;
using testsupport::writePicture;

namespace {

// The same letter leaning right by one pixel per row, so that a shear of 45
// degrees about the middle row (refY = height / 2) stands it upright again:
// that shear moves each row by exactly y - refY pixels.
Picture leaning(const Picture& upright) {
  const int h = upright.height;
  const int refY = h / 2;
  Picture out(upright.width + 2 * h, h);
  for (int y = 0; y < h; y++)
    for (int x = 0; x < upright.width; x++)
      out.set(x + (refY - y) + h, y, upright.at(x, y));
  return out;
}

// --- letters for the stem-end widening --------------------------------

// T: bar 30 wide on rows 0..5, stem of 8 (columns 11..18) down to row 39.
Glyph sansT() {
  Glyph g(30, 40);
  g.rect(0, 0, 29, 5);
  g.rect(11, 6, 18, 39);
  return g;
}

// I of box width 20: a stem of 8 (columns 6..13), with slabs of 20 on rows
// 0..3 and 36..39 when `slabs`.
Glyph slabI(bool slabs) {
  Glyph g(20, 40);
  g.rect(6, 0, 13, 39);
  if (slabs) {
    g.rect(0, 0, 19, 3);
    g.rect(0, 36, 19, 39);
  }
  return g;
}

// I of a stem of `stem` columns whose bottom four rows widen to `foot`
// columns (centred as far as the sizes allow).
Glyph footedI(int stem, int foot) {
  Glyph g(foot, 40);
  const int left = (foot - stem) / 2;
  g.rect(left, 0, left + stem - 1, 39);
  g.rect(0, 36, foot - 1, 39);
  return g;
}

// --- h for brackets, wedges and ascenders ------------------------------

// h of box 64 x 64: left stem columns 6..13, a bar for the arch on rows
// 24..31, right stem columns 50..57 from row 24, foot serifs of 4 rows
// (columns 0..19 and 44..63) and a head serif of 4 rows left of the stem.
// With `brackets`, fillets of 3, 2 and 1 pixels (columns 5, 4, 3) join the
// stem to the foot serif above it and to the head serif below it.
Picture serifH(bool brackets) {
  Glyph g(64, 64);
  g.rect(6, 0, 13, 63);
  g.rect(14, 24, 57, 31);
  g.rect(50, 24, 57, 63);
  g.rect(0, 60, 19, 63);
  g.rect(44, 60, 63, 63);
  g.rect(0, 0, 13, 3);
  if (brackets) {
    g.rect(5, 57, 5, 59);
    g.rect(4, 58, 4, 59);
    g.rect(3, 59, 3, 59);
    g.rect(5, 4, 5, 6);
    g.rect(4, 4, 4, 5);
    g.rect(3, 4, 3, 4);
  }
  return g.pic;
}

// The same h without serifs, its left stem in box columns 0..7.
Picture sansH() {
  Glyph g(58, 64);
  g.rect(0, 0, 7, 63);
  g.rect(8, 24, 51, 31);
  g.rect(44, 24, 51, 63);
  return g.pic;
}

// h of box 48 x 64 with a wedge left of its stem (columns 8..15): column x
// of 0..7 has ink from row top(x) to row 12 - x / 2. The top edge runs
// 8 - x, from (0, 8) to (7, 1), but for a dent at column 3 (row 6 instead
// of 5). With `smooth` the first and last pixel of each wedge column are
// greys all different from each other (an anti-aliased edge); otherwise
// everything is black.
Picture wedgeH(bool smooth) {
  Glyph g(48, 64);
  g.rect(8, 0, 15, 63);
  g.rect(16, 24, 45, 31);
  g.rect(40, 24, 47, 63);
  for (int x = 0; x <= 7; x++) {
    int top = x == 3 ? 6 : 8 - x;
    int bottom = 12 - x / 2;
    g.rect(x, top, x, bottom);
    if (smooth) {
      g.set(x, top, greyPixel(40 + 10 * x));
      g.set(x, bottom, greyPixel(100 + 10 * x));
    }
  }
  return g.pic;
}

// Ascender of box height 60 (top third rows 0..19, stem above H / 8 = 7
// ink pixels) with its stem in columns 6..13; `heights[x]` for x of 0..5 is
// the number of ink rows from row 0 in column x (0 for none).
Picture ascender(const int heights[6], uint32_t colour1 = kBlack) {
  Glyph g(14, 60);
  g.rect(6, 0, 13, 59);
  for (int x = 0; x <= 5; x++)
    if (heights[x] > 0)
      g.rect(x, 0, x, heights[x] - 1, x == 1 ? colour1 : kBlack);
  return g.pic;
}

// --- feet for the diagonal measure --------------------------------------

// A stroke 6 wide and 20 rows high rising to the right by `dxPerRow` per
// row: its bottom row in box columns 0..5. With `footSerif` a slab on the
// bottom three rows reaches to column 9.
Picture risingStroke(int dxPerRow, bool footSerif) {
  const int rows = 20;
  Glyph g(6 + (rows - 1) * dxPerRow, rows);
  g.pic.fillSheared(2, 7, 2, rows + 1, dxPerRow);
  if (footSerif) g.rect(0, 17, 9, 19);
  return g.pic;
}

// A foot of box 12 x 12 swelling out to the lower right: row y has ink in
// columns 0..r(y), r = 3 on rows 0..5 and 11, 10, 9, 8, 6, 4 on rows 6..11.
Picture swellingFoot() {
  Glyph g(12, 12);
  const int r[12] = {3, 3, 3, 3, 3, 3, 11, 10, 9, 8, 6, 4};
  for (int y = 0; y < 12; y++) g.rect(0, y, r[y], y);
  return g.pic;
}

// --- the a for the flare -------------------------------------------------

// An a of box height 40: a bowl block in columns 0..15 of rows 20..39, a
// stem in columns 26..33 over the full height and, with `flare`, a tail
// right of the stem of 6, 4, 3 and 2 rows (columns 34..37) on the baseline.
Picture stemA(bool flare) {
  Glyph g(flare ? 38 : 34, 40);
  g.rect(0, 20, 15, 39);
  g.rect(26, 0, 33, 39);
  if (flare) {
    g.rect(34, 34, 34, 39);
    g.rect(35, 36, 35, 39);
    g.rect(36, 37, 36, 39);
    g.rect(37, 38, 37, 39);
  }
  return g.pic;
}

double serifInfo(const Picture& p, int isupperRemove) {
  return measureDrawn(
      p, [&](const char* f) { return getFontSerifInfo(f, isupperRemove); });
}

}  // namespace

// --- getFontSerifInfo ------------------------------------------------------

TEST(StemEndWidening, SansLettersGiveZero) {
  // T: stem zone rows 0..29 holds 6 runs of 30 and 24 of 8, median 8; the
  // serif zone's widest run is the stem's 8. 8 / 8 - 1 = 0.
  EXPECT_EQ(serifInfo(sansT().pic, 0), 0.0);
  // I: every row one run of 8 touching the box's right edge.
  EXPECT_EQ(serifInfo(slabI(false).pic, 0), 0.0);
  // L: serif zone (top quarter, rows 0..9) runs of 8; stem zone rows 10..39
  // holds 24 runs of 8 and 6 of the foot's 30, median 8.
  Glyph l(30, 40);
  l.rect(0, 0, 7, 39);
  l.rect(0, 34, 29, 39);
  EXPECT_EQ(serifInfo(l.pic, 1), 0.0);
}

TEST(StemEndWidening, SlabSerifsGiveTheirWidthOverTheStemsLessOne) {
  // T with a foot serif of 16 on rows 36..39: 16 / 8 - 1.
  Glyph t = sansT();
  t.rect(7, 36, 22, 39);
  EXPECT_DOUBLE_EQ(serifInfo(t.pic, 0), 1.0);
  // I with slabs of 20: the top slab's 4 runs of 20 stay above the median.
  EXPECT_DOUBLE_EQ(serifInfo(slabI(true).pic, 0), 1.5);
  // L measured at its top: a head serif of 18 over a stem of 8.
  Glyph l(30, 40);
  l.rect(4, 0, 11, 39);
  l.rect(0, 0, 17, 3);
  l.rect(0, 34, 29, 39);
  EXPECT_DOUBLE_EQ(serifInfo(l.pic, 1), 1.25);
}

TEST(StemEndWidening, BracketsAndWedgesCountByTheirWidestRow) {
  // Slab I with fillets of 3, 2, 1 pixels each side under the top slab and
  // above the foot: the stem zone adds runs of 14, 12, 10, the median stays
  // 8, and the widest run is still the slab's 20.
  Glyph bracketed = slabI(true);
  for (int k = 1; k <= 3; k++) {
    bracketed.rect(6 - (4 - k), 3 + k, 13 + (4 - k), 3 + k);
    bracketed.rect(6 - k, 32 + k, 13 + k, 32 + k);
  }
  EXPECT_DOUBLE_EQ(serifInfo(bracketed.pic, 0), 1.5);
  // A wedge foot: rows 35..39 widen by one column each side per row to 18
  // columns on row 39. 18 / 8 - 1.
  Glyph wedge(18, 40);
  wedge.rect(5, 0, 12, 39);
  for (int y = 35; y <= 39; y++) wedge.rect(5 - (y - 34), y, 12 + (y - 34), y);
  EXPECT_DOUBLE_EQ(serifInfo(wedge.pic, 0), 1.25);
}

TEST(StemEndWidening, SmallDifferencesFollowTheThresholds) {
  // Wide stem, foot 2 wider: 10 / 8 - 1 = 2 / 8.
  EXPECT_DOUBLE_EQ(serifInfo(footedI(8, 10).pic, 0), 0.25);
  // Foot exactly 1 wider: 0.
  EXPECT_EQ(serifInfo(footedI(8, 9).pic, 0), 0.0);
  // Narrow stem of 3: a foot of 5 is at most 5 and less than 3 wider: 0.
  EXPECT_EQ(serifInfo(footedI(3, 5).pic, 0), 0.0);
  // A foot of 6 is 3 wider: 6 / 3 - 1.
  EXPECT_DOUBLE_EQ(serifInfo(footedI(3, 6).pic, 0), 1.0);
}

TEST(StemEndWidening, SerifZoneNarrowerThanTheStemGivesTheTopValue) {
  // Stem of 10 on rows 0..29, narrowing to 7 on rows 30..39: 7 > 5 and
  // 7 / 10 - 1 < 0.
  Glyph g(10, 40);
  g.rect(0, 0, 9, 29);
  g.rect(1, 30, 7, 39);
  EXPECT_EQ(serifInfo(g.pic, 0), 4.0);
}

TEST(StemEndWidening, ShortRunsOfOneSerifRowAddUpUntilTheyBeatTheRecord) {
  // Stem of 8 (columns 10..17) on rows 0..29, then a comb of three runs of
  // 4 (columns 0..3, 12..15, 24..27) on rows 30..39. Row 30: the first run
  // sets the record to 4, the second does not beat it and keeps counting,
  // and at the row's end (on ink) 8 becomes the record. Row 31: 4, 8, then
  // 12 at the row's end. Later rows reach 12 again and do not beat it.
  // 12 / 8 - 1.
  Glyph g(28, 40);
  g.rect(10, 0, 17, 29);
  for (int x0 : {0, 12, 24}) g.rect(x0, 30, x0 + 3, 39);
  EXPECT_DOUBLE_EQ(serifInfo(g.pic, 0), 0.5);
}

TEST(StemEndWidening, FailuresGiveZero) {
  EXPECT_EQ(serifInfo(Picture(20, 20), 0), 0.0);
  EXPECT_EQ(serifInfo(Picture(20, 20), 1), 0.0);
  TempDir dir;
  EXPECT_EQ(getFontSerifInfo(dir.file("absent.png").c_str(), 0), 0.0);
}

// --- subSerifType ------------------------------------------------------

namespace {

struct Bracket {
  double stdDev, grey;
};

Bracket bracketOf(const Picture& p, double skew, double preStd = 0.0,
                  double preGrey = 0.0) {
  Bracket b = {preStd, preGrey};
  double ret = measureDrawn(p, [&](const char* f) {
    return subSerifType(f, skew, &b.stdDev, &b.grey);
  });
  EXPECT_EQ(ret, 0.0);
  return b;
}

}  // namespace

TEST(Brackets, SlabSerifsAreEvenWithOneInkPerRow) {
  // W = 64, so columns 1..15 are scanned; H / 8 = 8. Bottom half: columns
  // 1..5 hold the foot's 4 rows (60..63), column 6 is the stem. Mean 20 / 5
  // = 4, no deviation; the bracket runs from row 60 to the box's bottom, 64,
  // so 4 / 4 = 1. Top half likewise: 4 rows (0..3) ending at row 4, 4 / 4.
  Bracket b = bracketOf(serifH(false), 0.0);
  EXPECT_DOUBLE_EQ(b.stdDev, 0.0);
  EXPECT_DOUBLE_EQ(b.grey, 2.0);
}

TEST(Brackets, FilletsGiveUnevenColumnsOverTheBracketsHeight) {
  // Columns 1..5 of either half hold 4, 4, 5, 6, 7 ink pixels: mean 5.2,
  // mean deviation (1.2 + 1.2 + 0.2 + 0.8 + 1.8) / 5 = 1.04. The bottom
  // bracket rises from row 57 (column 5's top) to 64, the top one from row 0
  // to 7 (column 5's first white): 5.2 / 7 each.
  Bracket b = bracketOf(serifH(true), 0.0);
  EXPECT_NEAR(b.stdDev, 2.08, 1e-12);
  EXPECT_NEAR(b.grey, 2 * 5.2 / 7, 1e-12);
}

TEST(Brackets, OutputsAreAddedToTheirPresets) {
  Bracket b = bracketOf(serifH(true), 0.0, 1.0, 0.5);
  EXPECT_NEAR(b.stdDev, 3.08, 1e-12);
  EXPECT_NEAR(b.grey, 0.5 + 2 * 5.2 / 7, 1e-12);
}

TEST(Brackets, AStemWithoutSerifsAddsNothing) {
  // Column 1 is already the stem: the range is empty in both halves.
  Bracket b = bracketOf(sansH(), 0.0, 0.25, 0.75);
  EXPECT_EQ(b.stdDev, 0.25);
  EXPECT_EQ(b.grey, 0.75);
}

TEST(Brackets, ALeaningLetterIsMeasuredUpright) {
  Bracket b = bracketOf(leaning(serifH(true)), 45.0);
  EXPECT_NEAR(b.stdDev, 2.08, 1e-12);
  EXPECT_NEAR(b.grey, 2 * 5.2 / 7, 1e-12);
}

TEST(Brackets, FailuresLeaveTheOutputsAlone) {
  Bracket blank = bracketOf(Picture(20, 20), 0.0, 0.25, 0.75);
  EXPECT_EQ(blank.stdDev, 0.25);
  EXPECT_EQ(blank.grey, 0.75);
  TempDir dir;
  double s = 0.25, g = 0.75;
  EXPECT_EQ(subSerifType(dir.file("absent.png").c_str(), 3.0, &s, &g), 0.0);
  EXPECT_EQ(s, 0.25);
  EXPECT_EQ(g, 0.75);
}

// --- WedgeSerifType --------------------------------------------------------

namespace {

struct Wedge {
  double angleTop, angleBottom, fitTop, fitBottom;
};

const Wedge kPreset = {7.0, 7.0, 7.0, 7.0};

Wedge wedgeOf(const Picture& p) {
  Wedge w = kPreset;
  double ret = measureDrawn(p, [&](const char* f) {
    return WedgeSerifType(f, &w.angleTop, &w.angleBottom, &w.fitTop,
                          &w.fitBottom);
  });
  EXPECT_EQ(ret, 0.0);
  return w;
}

void expectPreset(const Wedge& w) {
  EXPECT_EQ(w.angleTop, 7.0);
  EXPECT_EQ(w.angleBottom, 7.0);
  EXPECT_EQ(w.fitTop, 7.0);
  EXPECT_EQ(w.fitBottom, 7.0);
}

}  // namespace

TEST(HeadWedge, SmoothEdgesGiveTheirSlopesAndFits) {
  // Zone: columns 0..15 (W / 3), rows 0..15 (H / 4); the stem (column 8)
  // has ink to row 15 and ends the wedge at the last under-edge column, 7.
  // Top line (0, 8)-(7, 1): slope 7 / 7; the dent at (3, 6) lies
  // |(6 - 8) * 7 - 3 * (1 - 8)| / sqrt(98) = 7 / (7 sqrt 2) from it.
  // Under line (0, 12)-(7, 9): slope 3 / 7; the under edge 12 - x / 2 lies
  // |7 (y - 12) + 3 x| / sqrt(58) from it: 0, 3, 1, 2, 2, 1, 3, 0, sum 12.
  // Both sums over (7 - 0 + 1) columns times a wedge height of
  // |9 - 1 + 1| = 9, 72.
  Wedge w = wedgeOf(wedgeH(true));
  EXPECT_DOUBLE_EQ(w.angleTop, 1.0);
  EXPECT_DOUBLE_EQ(w.angleBottom, 3.0 / 7.0);
  EXPECT_NEAR(w.fitTop, 1.0 / sqrt(2.0) / 72.0, 1e-12);
  EXPECT_NEAR(w.fitBottom, 12.0 / sqrt(58.0) / 72.0, 1e-12);
}

TEST(HeadWedge, EdgesOfOneDarknessCountAsFlat) {
  // All black: the last 9 top-edge pixels (columns 0..8) and 8 under-edge
  // pixels share one value, more than 0.8 * 7: every output becomes 0.
  Wedge w = wedgeOf(wedgeH(false));
  EXPECT_EQ(w.angleTop, 0.0);
  EXPECT_EQ(w.angleBottom, 0.0);
  EXPECT_EQ(w.fitTop, 0.0);
  EXPECT_EQ(w.fitBottom, 0.0);
}

TEST(HeadWedge, NoWedgeOrAFallingTopEdgeLeavesThePresets) {
  // Without serifs the first column is the stem and no under-edge point
  // exists to end the wedge at.
  expectPreset(wedgeOf(sansH()));
  // A top edge 1 + x falling towards the stem: yleft 1 < yRight 8.
  Glyph g(48, 64);
  g.rect(8, 0, 15, 63);
  g.rect(16, 24, 47, 31);
  for (int x = 0; x <= 7; x++) {
    g.rect(x, 1 + x, x, 12);
    g.set(x, 1 + x, greyPixel(40 + 10 * x));
  }
  expectPreset(wedgeOf(g.pic));
}

TEST(HeadWedge, FailuresLeaveThePresets) {
  expectPreset(wedgeOf(Picture(20, 20)));
  TempDir dir;
  Wedge w = kPreset;
  EXPECT_EQ(WedgeSerifType(dir.file("absent.png").c_str(), &w.angleTop,
                           &w.angleBottom, &w.fitTop, &w.fitBottom),
            0.0);
  expectPreset(w);
}

// --- AscenderStdDvSerifness ------------------------------------------------

namespace {

double ascenderOf(const Picture& p) {
  return measureDrawn(p, AscenderStdDvSerifness);
}

}  // namespace

TEST(AscenderUnevenness, AnEvenSlabOrNoSerifGivesZero) {
  // Columns 1..5 each 4 ink rows among rows 1..19: no deviation.
  const int slab[6] = {5, 5, 5, 5, 5, 5};
  EXPECT_EQ(ascenderOf(ascender(slab)), 0.0);
  // Stem from column 0: column 1 is the stem, the range is empty.
  Glyph sans(8, 60);
  sans.rect(0, 0, 7, 59);
  EXPECT_EQ(ascenderOf(sans.pic), 0.0);
}

TEST(AscenderUnevenness, UnevenColumnsGiveTheirMeanDeviation) {
  // Rows 1..19 of columns 1..5 hold 2, 3, 4, 5, 6 ink pixels; mean 4,
  // deviations 2 + 1 + 0 + 1 + 2 over 5.
  const int wedge[6] = {2, 3, 4, 5, 6, 7};
  EXPECT_DOUBLE_EQ(ascenderOf(ascender(wedge)), 1.2);
}

TEST(AscenderUnevenness, AFaintFirstColumnIsLeftOut) {
  // Column 1 at darkness 0.2 (mean below 0.3) is passed over: columns 2..5
  // hold 3, 4, 5, 6, mean 4.5, deviations 1.5 + 0.5 + 0.5 + 1.5 over 4.
  const int wedge[6] = {2, 3, 4, 5, 6, 7};
  EXPECT_DOUBLE_EQ(ascenderOf(ascender(wedge, greyPixel(204))), 1.0);
}

TEST(AscenderUnevenness, AnEmptyColumnInsideTheSerifCountsAsZero) {
  // Columns 1, 2, 4, 5 hold 4 each and column 3 none: mean 16 / 5 = 3.2,
  // deviations 4 * 0.8 + 3.2 = 6.4 over 5.
  const int gap[6] = {5, 5, 5, 0, 5, 5};
  EXPECT_NEAR(ascenderOf(ascender(gap)), 1.28, 1e-12);
}

TEST(AscenderUnevenness, NoStemInTheFirstNineColumnsGivesZero) {
  // A head serif of 12 columns: the stem (columns 12..19) lies beyond
  // column 9, so the range ends at 0 before it starts.
  Glyph g(20, 60);
  g.rect(0, 0, 11, 4);
  g.rect(12, 0, 19, 59);
  EXPECT_EQ(ascenderOf(g.pic), 0.0);
}

TEST(AscenderUnevenness, FailuresGiveZero) {
  EXPECT_EQ(ascenderOf(Picture(20, 20)), 0.0);
  TempDir dir;
  EXPECT_EQ(AscenderStdDvSerifness(dir.file("absent.png").c_str()), 0.0);
}

// --- getDiagonalSerifs -----------------------------------------------------

namespace {

double diagonalOf(const Picture& p, int mode) {
  return measureDrawn(p, [&](const char* f) { return getDiagonalSerifs(f, mode); });
}

}  // namespace

TEST(DiagonalFeet, AStraightDiagonalHasNoInkBeyondIt) {
  // Rising one column per row: the right edge is climbed from the pivot
  // (5, 19) to (23, 1), the line x + y = 24 through both is the edge itself
  // (slope -1), and no ink lies beyond it.
  EXPECT_EQ(diagonalOf(risingStroke(1, false), 1), 0.0);
}

TEST(DiagonalFeet, AFootSwellingOutwardsDepartsFromTheDiagonal) {
  // Pivot (4, 11); the climb steps right on every row up to (11, 6), where
  // the ink above ends. Line slope -5/7 through (11, 6): a pixel lies
  // (7y + 5x - 97) / sqrt(74) beyond it. Beyond are (10, 7): 2, (9, 8): 4,
  // (7, 9): 1, (8, 9): 6, (6, 10): 3; mean 16 / (5 sqrt 74).
  EXPECT_NEAR(diagonalOf(swellingFoot(), 1), 16.0 / (5.0 * sqrt(74.0)), 1e-12);
  // Searching right of W / 2 + 4 = 10 only, the pivot is (10, 7) and the
  // climb reaches (11, 6): too short for a diagonal.
  EXPECT_EQ(diagonalOf(swellingFoot(), 0), 1.5);
}

TEST(DiagonalFeet, StraightEndsAndShallowOrFallingEdgesGiveNoDiagonal) {
  // A slab serif on the foot: its right end rises straight for two rows,
  // which are given back, leaving the climb at the pivot.
  EXPECT_EQ(diagonalOf(risingStroke(1, true), 1), 1.5);
  // Rising three columns per row: slope -1/3, not above 0.45 in size.
  EXPECT_EQ(diagonalOf(risingStroke(3, false), 1), 1.5);
  // A stroke falling to the right, cut flat: nothing above the pivot.
  Glyph fall(25, 20);
  fall.pic.fillSheared(21, 26, 2, 21, -1.0);
  EXPECT_EQ(diagonalOf(fall.pic, 0), 1.5);
  // A rectangle: its right edge is the box's, where the climb cannot step.
  Glyph block(10, 12);
  block.rect(0, 0, 9, 11);
  EXPECT_EQ(diagonalOf(block.pic, 0), 1.5);
}

TEST(DiagonalFeet, BlankGivesNoDiagonalAndAMissingFileZero) {
  EXPECT_EQ(diagonalOf(Picture(20, 20), 0), 1.5);
  EXPECT_EQ(diagonalOf(Picture(20, 20), 1), 1.5);
  TempDir dir;
  EXPECT_EQ(getDiagonalSerifs(dir.file("absent.png").c_str(), 0), 0.0);
}

// --- getFlaredStems --------------------------------------------------------

namespace {

double flareOf(const Picture& p, double skew) {
  return measureDrawn(p, [&](const char* f) { return getFlaredStems(f, skew); });
}

}  // namespace

TEST(FlaredStems, AStraightStemGivesZero) {
  // Columns 17..32: the stem (39 rows counted, row 0 excluded) starts the
  // right part; no later column is short.
  EXPECT_EQ(flareOf(stemA(false), 0.0), 0.0);
}

TEST(FlaredStems, AFlareGivesItsInkTimesItsSpanOverTheBox) {
  // W = 38, H = 40: columns 19..36. After the stem, columns 34, 35, 36
  // rise 6, 4, 3 rows (below H / 3 = 13); column 37 is not scanned.
  // (36 - 34) * 13 / (40 * 38).
  EXPECT_DOUBLE_EQ(flareOf(stemA(true), 0.0), 2.0 * 13.0 / 1520.0);
}

TEST(FlaredStems, ALeaningLetterIsMeasuredUpright) {
  EXPECT_DOUBLE_EQ(flareOf(leaning(stemA(true)), 45.0), 2.0 * 13.0 / 1520.0);
}

TEST(FlaredStems, NoTallColumnInTheRightHalfGivesZero) {
  // An L: its right half holds only the foot.
  Glyph l(30, 40);
  l.rect(0, 0, 7, 39);
  l.rect(0, 34, 29, 39);
  EXPECT_EQ(flareOf(l.pic, 0.0), 0.0);
}

TEST(FlaredStems, FailuresGiveZero) {
  EXPECT_EQ(flareOf(Picture(20, 20), 0.0), 0.0);
  TempDir dir;
  EXPECT_EQ(getFlaredStems(dir.file("absent.png").c_str(), 0.0), 0.0);
}

// --- Fixture fonts --------------------------------------------------------

namespace {

std::string fixtureImage(const std::string& font, const std::string& name) {
  return testsupport::fixturesDir() + "/" + font + "/Images/" + name + ".png";
}

// The serif judgement's input: the least widening of the L's top and the
// T's and I's feet.
double minSerif(const std::string& font) {
  double l = getFontSerifInfo(fixtureImage(font, "76-L").c_str(), 1);
  double t = getFontSerifInfo(fixtureImage(font, "84-T").c_str(), 0);
  double i = getFontSerifInfo(fixtureImage(font, "73-I").c_str(), 0);
  return std::min(l, std::min(t, i));
}

}  // namespace

TEST(FixtureFonts, TheSerifFontWidensItsStemEndsMoreThanTheSansFonts) {
  REQUIRE_FIXTURES();
  const double serif = minSerif("LiberationSerif");
  EXPECT_GT(serif, minSerif("DejaVuSans"));
  EXPECT_GT(serif, minSerif("DejaVuSans-Oblique"));
}

TEST(FixtureFonts, OnlyTheSerifFontHasBracketsOnItsH) {
  REQUIRE_FIXTURES();
  for (const char* font : {"DejaVuSans", "LiberationSerif"}) {
    double s = 0.0, g = 0.0;
    subSerifType(fixtureImage(font, "104-hlar").c_str(), 0.0, &s, &g);
    if (std::string(font) == "LiberationSerif")
      EXPECT_GT(g, 0.0) << font;
    else
      EXPECT_EQ(g, 0.0) << font;
  }
}
