// Slant, stress and stroke-width measurements on synthetic glyph pictures
// written as real PNG files, and on the fixture fonts' pictures.
#include "image_operations/slant_stroke.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::Picture;
using testsupport::savePicture;
using testsupport::measureDrawn;
using testsupport::TempDir;
using testsupport::writePicture;

namespace {

// A bowl: the disc of radius 40 about (44, 44) in a 90 x 90 picture, less a
// lens-shaped counter (the overlap of two discs of radius 39 whose centres
// lie 15 either side of the middle). The lens is 2 * 24 wide across its
// axis and 2 * 36 long, with pointed ends, so the bowl is 16 thick across the
// lens and 4 thick at its points, the thickness falling off sharply from the
// points. `thickDegrees` is the direction of the thick part, counter-clockwise
// from the right (y up, as on the page).
Picture lensBowl(double thickDegrees) {
  Picture p(90, 90);
  const double phi = thickDegrees * M_PI / 180.0;
  const double c = cos(phi), s = sin(phi);
  for (int y = 0; y < 90; y++)
    for (int x = 0; x < 90; x++) {
      double dx = x - 44.0, dyUp = 44.0 - y;
      if (dx * dx + dyUp * dyUp > 40.0 * 40.0) continue;
      double u = dx * c + dyUp * s;   // along the thick direction
      double v = -dx * s + dyUp * c;  // along the lens
      bool inLens = (u - 15) * (u - 15) + v * v <= 39.0 * 39.0 &&
                    (u + 15) * (u + 15) + v * v <= 39.0 * 39.0;
      if (!inLens) p.set(x, y, testsupport::kBlack);
    }
  return p;
}

// A bowl of even thickness 8: disc of radius 40 less a disc of radius 32.
Picture evenBowl() {
  Picture p(90, 90);
  p.fillEllipse(44, 44, 40, 40);
  p.fillEllipse(44, 44, 32, 32, testsupport::kWhite);
  return p;
}

// A boxy e: top, left and bottom strokes, a right stroke down to the bar, the
// bottom stroke stopping short on the right (the aperture), and a bar of
// three rows from column 6 to 27 whose underside lies on row
// 20 - floor((x - 6) / 4): it rises one row every four columns.
Picture boxyE() {
  Picture p(36, 38);
  p.fillRect(2, 2, 31, 5);    // top
  p.fillRect(2, 2, 5, 33);    // left
  p.fillRect(2, 30, 25, 33);  // bottom, open from column 26
  p.fillRect(28, 2, 31, 15);  // right side of the eye
  for (int x = 6; x <= 27; x++) {
    int underside = 20 - (x - 6) / 4;
    p.fillRect(x, underside - 2, x, underside);
  }
  return p;
}

}  // namespace

// --- skewImage ------------------------------------------------------------

TEST(SkewImage, ZeroDegreesCopiesEveryRowShiftedByRefY) {
  // tan(180 degrees) with pi to 8 places is about -3.6e-9: no row's offset
  // reaches the 0.0001 threshold, so each pixel lands whole at x + refY.
  Picture src(3, 2);
  src.set(0, 0, 0x123456);
  src.set(1, 0, 0x000000);
  src.set(2, 1, 0x808080);
  std::vector<uint32> dst(2 * 5, 0xDEADBEEF);
  skewImage(src.pixels.data(), dst.data(), 3, 2, 1, 0.0);
  const std::vector<uint32> expected = {
      0xFFFFFF, 0x123456, 0x000000, 0xFFFFFF, 0xFFFFFF,
      0xFFFFFF, 0xFFFFFF, 0xFFFFFF, 0x808080, 0xFFFFFF};
  EXPECT_EQ(dst, expected);
}

TEST(SkewImage, FortyFiveDegreesMovesEachRowByItsDistanceFromRefY) {
  // A vertical line in column 2 of a 5 x 5 picture, refY 2: rows 0..4 are
  // shifted by -2..+2 (whole pixels; the error of tan 135 degrees, 2.3e-7 per
  // row, stays under the threshold) and by refY, so into columns 2..6.
  Picture src(5, 5);
  src.fillRect(2, 0, 2, 4);
  std::vector<uint32> dst(5 * 9);
  skewImage(src.pixels.data(), dst.data(), 5, 5, 2, 45.0);
  for (int y = 0; y < 5; y++)
    for (int x = 0; x < 9; x++)
      EXPECT_EQ(dst[y * 9 + x], x == 2 + y ? 0x000000u : 0xFFFFFFu)
          << "x " << x << " y " << y;
}

TEST(SkewImage, FractionGoesToTheFloorPixelAndComplementToTheCeiling) {
  // 30 degrees, refY 1: ts = tan(150 degrees) = -0.57735027. Black pixels
  // at x = 1 of rows 0 and 2 (target column 2 before the shift).
  // Row 0: quantAdd -0.57735, floor -1, ceiling 0. Row 2: +0.57735, floor 0,
  // ceiling +1. The floor pixel loses floor(16777215 * 0.57735027) = 9686329
  // and becomes 0x6C32C6; the ceiling pixel loses
  // ceil(16777215 * 0.42264973) = 7090886 and becomes 0x93CD39.
  Picture src(3, 3);
  src.set(1, 0, testsupport::kBlack);
  src.set(1, 2, testsupport::kBlack);
  std::vector<uint32> dst(3 * 5);
  skewImage(src.pixels.data(), dst.data(), 3, 3, 1, 30.0);
  const std::vector<uint32> expected = {
      0xFFFFFF, 0x6C32C6, 0x93CD39, 0xFFFFFF, 0xFFFFFF,   // row 0
      0xFFFFFF, 0xFFFFFF, 0xFFFFFF, 0xFFFFFF, 0xFFFFFF,   // row 1: no ink
      0xFFFFFF, 0xFFFFFF, 0x6C32C6, 0x93CD39, 0xFFFFFF};  // row 2
  EXPECT_EQ(dst, expected);
}

TEST(DeskewPicture, ZeroAngleKeepsThePictureAndOtherAnglesWidenIt) {
  uint32* pic = (uint32*)xmalloc(4 * 3 * sizeof(uint32));
  for (int i = 0; i < 12; i++) pic[i] = 0xFFFFFF;
  pic[5] = 0;  // (1, 1)
  int width = 4;
  EXPECT_EQ(deskewPicture(pic, &width, 3, 0.0), pic);
  EXPECT_EQ(width, 4);
  // 45 degrees, refY 1: the new rows are 4 + 2 = 6 wide and row 1 does not
  // move, so the ink sits at column 1 + refY = 2.
  uint32* sheared = deskewPicture(pic, &width, 3, 45.0);
  EXPECT_EQ(width, 6);
  for (int i = 0; i < 18; i++)
    EXPECT_EQ(sheared[i], i == 6 + 2 ? 0u : 0xFFFFFFu) << i;
  free(sheared);
}

// --- calculateSkew --------------------------------------------------------

TEST(CalculateSkew, UprightBarOfWholePixelsIsZero) {
  // Any shear but 0 spreads some row over a further pixel (every row but
  // refY gets a fraction above 0.0001), so only 0 keeps the width of 6.
  Picture p(20, 46);
  p.fillRect(5, 3, 10, 42);
  EXPECT_EQ(measureDrawn(p, calculateSkew), 0.0);
}

TEST(CalculateSkew, BarLeaningFortyFiveDegreesGivesTheLimits) {
  // One pixel right per row going up: the 45 degree shear puts every row
  // back in one column range of whole pixels, which no smaller angle does.
  Picture right(120, 70);
  right.fillSheared(10, 15, 5, 64, 1.0);
  EXPECT_EQ(measureDrawn(right, calculateSkew), 45.0);
  Picture left(120, 70);
  left.fillSheared(70, 75, 5, 64, -1.0);
  EXPECT_EQ(measureDrawn(left, calculateSkew), -45.0);
}

TEST(CalculateSkew, ShearedBarsRecoverTheirAngleWithinOneDegree) {
  // Bars 8 wide and 120 high, rows rounded to whole pixels: one degree of
  // shear moves the ends of the bar about 2 pixels apart, while the rounding
  // of the drawing and the resampling of the shear each blur the box by up to
  // a pixel, so neighbouring angles can tie; ties go to the higher angle.
  // Precision: +-1 degree.
  const double angles[] = {12.0, -8.0, 20.0};
  for (double angle : angles) {
    Picture p(200, 130);
    p.fillSheared(60, 67, 5, 124, tan(angle * M_PI / 180.0));
    EXPECT_NEAR(measureDrawn(p, calculateSkew), angle, 1.0) << angle;
  }
}

TEST(CalculateSkew, MissingFileGivesZeroAndBlankPictureFortyFive) {
  TempDir dir;
  EXPECT_EQ(calculateSkew(dir.file("absent.png").c_str()), 0.0);
  // Every shear of a blank picture has the same box, and the last tie wins.
  EXPECT_EQ(measureDrawn(Picture(10, 10), calculateSkew), 45.0);
}

// --- getStrokeWidth and getStrokeWidthToWidthRatio ------------------------

TEST(StrokeWidth, SolidBarGivesItsWidthAndGreyEdgesCountByDarkness) {
  Picture bar(20, 44);
  bar.fillRect(5, 2, 10, 41);
  EXPECT_DOUBLE_EQ(measureDrawn(bar, getStrokeWidth), 6.0);

  // Four black columns and one of grey byte 0x80: 4 + 127 / 255.
  Picture soft(20, 44);
  soft.fillRect(5, 2, 8, 41);
  soft.fillRect(9, 2, 9, 41, 0x808080);
  EXPECT_DOUBLE_EQ(measureDrawn(soft, getStrokeWidth), 4.0 + 127.0 / 255.0);
}

TEST(StrokeWidth, RunCountsOnlyWhenWiderThanTheRowsEarlierRuns) {
  // Runs 3 then 5 in each row: both are taken, mean 4.
  Picture narrowFirst(30, 44);
  narrowFirst.fillRect(2, 2, 4, 41);
  narrowFirst.fillRect(10, 2, 14, 41);
  EXPECT_DOUBLE_EQ(measureDrawn(narrowFirst, getStrokeWidth), 4.0);
  // Runs 5 then 3: the 3 is not wider than the 5, so only 5 counts.
  Picture wideFirst(30, 44);
  wideFirst.fillRect(2, 2, 6, 41);
  wideFirst.fillRect(12, 2, 14, 41);
  EXPECT_DOUBLE_EQ(measureDrawn(wideFirst, getStrokeWidth), 5.0);
}

TEST(StrokeWidth, BandRowsAndTheRatiosShorterBand) {
  // Box 8 wide and 10 high (rows 2..11). The band of getStrokeWidth is box
  // rows (int)(4.02) = 4 to (int)(6.02) = 6; the ratio's stops before 6.
  // Stem 2 wide, wide blocks of 8 in box rows 0..3 and 7..9 (just outside the
  // band), and the stem 4 wide in box row 6.
  Picture p(14, 16);
  p.fillRect(2, 2, 9, 5);    // box rows 0..3
  p.fillRect(2, 9, 9, 11);   // box rows 7..9
  p.fillRect(4, 6, 5, 7);    // box rows 4, 5: 2 wide
  p.fillRect(4, 8, 7, 8);    // box row 6: 4 wide
  // (2 + 2 + 4) / 3 rows.
  EXPECT_DOUBLE_EQ(measureDrawn(p, getStrokeWidth), 8.0 / 3.0);
  // Rows 4 and 5 only: mean 2, over the box width 8.
  EXPECT_DOUBLE_EQ(measureDrawn(p, getStrokeWidthToWidthRatio), 0.25);
}

TEST(StrokeWidth, NoInkInTheBandOrNoFileGivesZero) {
  TempDir dir;
  EXPECT_EQ(getStrokeWidth(dir.file("absent.png").c_str()), 0.0);
  EXPECT_EQ(getStrokeWidthToWidthRatio(dir.file("absent.png").c_str()), 0.0);
  EXPECT_EQ(measureDrawn(Picture(10, 10), getStrokeWidth), 0.0);
  EXPECT_EQ(measureDrawn(Picture(10, 10), getStrokeWidthToWidthRatio), 0.0);
  // Two blocks with a gap across the whole middle band (box rows 3..7 of 10).
  Picture gap(12, 14);
  gap.fillRect(2, 2, 8, 4);
  gap.fillRect(2, 10, 8, 11);
  EXPECT_EQ(measureDrawn(gap, getStrokeWidth), 0.0);
  EXPECT_EQ(measureDrawn(gap, getStrokeWidthToWidthRatio), 0.0);
}

// --- getVerticalStrokeWidth -----------------------------------------------

namespace {

// A T in a 40 x 48 picture: box 31 wide (columns 2..32) and 41 high (rows
// 2..42); a pale row (byte 0xCC, darkness 0.2) on top, a black bar 5 rows
// thick under it, a stem 5 wide in columns 15..19.
Picture paleTopT() {
  Picture p(40, 48);
  p.fillRect(2, 2, 32, 2, 0xCCCCCC);
  p.fillRect(2, 3, 32, 7);
  p.fillRect(15, 8, 19, 42);
  return p;
}

}  // namespace

TEST(VerticalStrokeWidth, BarThicknessBesideTheStemLeavingPaleEdgesOut) {
  // Stem row (int)(3 * 41 / 4 + 0.02) = 30: stem at box columns 13..17,
  // width 5; D = 26 / 3 = 8.67, so box columns 4..25 are summed above row 30.
  // Bar columns: the pale pixel is a border pixel under 0.3 and is skipped,
  // 5 black ones remain. Stem columns sum 29. The lowest cluster is 5.
  double avg = 0.37;  // has no effect
  TempDir dir;
  std::string path = savePicture(dir, paleTopT());
  EXPECT_DOUBLE_EQ(getVerticalStrokeWidth(path.c_str(), avg, 0.0), 5.0);

  // A mid-grey top row (127 / 255, not under 0.3) is counted.
  Picture grey = paleTopT();
  grey.fillRect(2, 2, 32, 2, 0x808080);
  EXPECT_DOUBLE_EQ(
      getVerticalStrokeWidth(savePicture(dir, "g.png", grey).c_str(), avg, 0.0),
      5.0 + 127.0 / 255.0);
}

TEST(VerticalStrokeWidth, DeskewsByTheGivenAngleFirst) {
  // The same T drawn leaning 45 degrees (one pixel right per row going up):
  // the 45 degree shear makes it upright again in whole pixels.
  const Picture upright = paleTopT();
  Picture leaning(90, 48);
  for (int y = 2; y <= 42; y++)
    for (int x = 0; x < 40; x++)
      if (upright.at(x, y) != testsupport::kWhite)
        leaning.set(x + 42 - y, y, upright.at(x, y));
  TempDir dir;
  std::string path = savePicture(dir, leaning);
  EXPECT_DOUBLE_EQ(getVerticalStrokeWidth(path.c_str(), 0.0, 45.0), 5.0);
  EXPECT_NE(getVerticalStrokeWidth(path.c_str(), 0.0, 0.0), 5.0);
}

TEST(VerticalStrokeWidth, FallsBackToTheStemWidthWhenNoColumnIsDark) {
  // Box 20 x 40 (columns 2..21, rows 2..41): stem 4 wide at box columns
  // 8..11, mid-grey above the stem row 30 and black from it down, on a
  // black foot in the last row. No summed column has a pixel above 0.7.
  Picture p(26, 46);
  p.fillRect(10, 2, 13, 31, 0x808080);
  p.fillRect(10, 32, 13, 41);
  p.fillRect(2, 41, 21, 41);
  EXPECT_DOUBLE_EQ(measureDrawn(p, [](const char* f) {
                     return getVerticalStrokeWidth(f, 0.0, 0.0);
                   }),
                   4.0);
}

TEST(VerticalStrokeWidth, MissingFileGivesZeroAndBlankPictureOne) {
  TempDir dir;
  EXPECT_EQ(getVerticalStrokeWidth(dir.file("absent.png").c_str(), 0.0, 0.0),
            0.0);
  // Blank: box 1, 1, 0, 0 (2 x 2), no stem found, so startX = endX = 0 and
  // the stem width is 1; the widened span 1..0 is empty, and 1 comes back.
  EXPECT_EQ(measureDrawn(Picture(10, 10),
                     [](const char* f) {
                       return getVerticalStrokeWidth(f, 0.0, 12.0);
                     }),
            1.0);
}

// --- getStressAngle -------------------------------------------------------

TEST(StressAngle, EvenBowlHasNoAxis) {
  // Thickness 8 all round: the ratios stay near 1.
  EXPECT_EQ(measureDrawn(evenBowl(), getStressAngle), 0.0);
}

// Precision of the stress angle on these bowls: +-2 degrees. Each ray sums
// whole-pixel samples whose two weights are not mirror images for rays above
// and below the centre, so the thickness profile carries noise of a few
// hundredths of a pixel; near the greatest ratio that is enough to move the
// winning pair by a degree or two.

TEST(StressAngle, BowlThickAtTheSidesGivesAboutZero) {
  // 16 thick left and right, 4 at top and bottom: the horizontal ray from
  // the left against the vertical one from the top (entries 45 and 135) has
  // the greatest ratio, about 4, so stressAng is 45 and the result 45 - 45.
  EXPECT_NEAR(measureDrawn(lensBowl(0), getStressAngle), 0.0, 2.0);
}

TEST(StressAngle, ThickPartsTurnedGiveMinusTheirAngle) {
  // Thick part turned 20 degrees counter-clockwise: the ray from the left
  // at angle a = -20 (pointing 200 degrees, down-left) crosses the thick
  // part, and the ray from the top at a = -20 (pointing 110 degrees) the
  // thin point. That pair, entry i = a + 45 = 25, has the greatest ratio and
  // the left ray is the thicker, so stressAng = 25 and the result is -20.
  // Turned clockwise it is the mirror case, +20.
  EXPECT_NEAR(measureDrawn(lensBowl(20), getStressAngle), -20.0, 2.0);
  EXPECT_NEAR(measureDrawn(lensBowl(-20), getStressAngle), 20.0, 2.0);
}

TEST(StressAngle, ThickPartsNearTheVerticalReadFromTheTopRays) {
  // Thick part at 90 + 15 degrees: the top ray at a = -15 (pointing 105)
  // is the thick one against the left ray at a = -15 (pointing 195, the thin
  // point): i = 30, stressAng = 90 - 30 = 60, result 15.
  EXPECT_NEAR(measureDrawn(lensBowl(105), getStressAngle), 15.0, 2.0);
}

TEST(StressAngle, MissingFileGivesZeroAndBlankPictureFortyFour) {
  TempDir dir;
  EXPECT_EQ(getStressAngle(dir.file("absent.png").c_str()), 0.0);
  // Blank: box 2 x 2. No left ray finds ink, so pixel counting starts and no
  // left entry is recorded (all -1); every top ray records 0. After the
  // smoothing, entries 90, 91 and 92 are -1/3, -1/9 and 0, so i = 1 gives
  // -1 / (-1/9) = 9, the greatest ratio, with the top entry the larger:
  // stressAng = 90 - 1 = 89, and 9 > 2.0 in pixel mode gives 89 - 45.
  EXPECT_EQ(measureDrawn(Picture(10, 10), getStressAngle), 44.0);
}

// --- getESlant ------------------------------------------------------------

TEST(ESlant, SlopeOfTheBarsUndersideFromFirstToLastThreeStrokeColumn) {
  // Columns 6..25 cross bottom, bar and top (6 changes); 26 and 27 lack the
  // bottom. First point (6, 20), last (25, 20 - floor(19 / 4)) = (25, 16):
  // atan(-4 / 19) = -11.8887 degrees (with pi as 3.14159265).
  EXPECT_NEAR(measureDrawn(boxyE(), getESlant), -11.888658, 1e-6);
}

TEST(ESlant, StepRightAfterTheStartRestartsTheLine) {
  // The underside of column 6 pushed down to row 24: column 7 is one column
  // on and 4 rows off, so the line starts again at (7, 20); the last point
  // stays (25, 16): atan(-4 / 18) = -12.5288 degrees.
  Picture e = boxyE();
  e.fillRect(6, 21, 6, 24);
  EXPECT_NEAR(measureDrawn(e, getESlant), -12.528808, 1e-6);
}

TEST(ESlant, FourColumnsCrossingMoreStrokesVoidTheSlope) {
  // A fourth stroke under the bar in three columns (10..12): those columns
  // have 8 changes and leave the line; the slope stands.
  Picture three = boxyE();
  three.fillRect(10, 25, 12, 26);
  EXPECT_NEAR(measureDrawn(three, getESlant), -11.888658, 1e-6);
  // In four columns the count reaches 4 and the result is 0.
  Picture four = boxyE();
  four.fillRect(10, 25, 13, 26);
  EXPECT_EQ(measureDrawn(four, getESlant), 0.0);
}

TEST(ESlant, NoThreeStrokeColumnGivesZeroAndMissingFileMinusOne) {
  Picture bar(20, 40);
  bar.fillRect(5, 2, 10, 37);
  EXPECT_EQ(measureDrawn(bar, getESlant), 0.0);
  EXPECT_EQ(measureDrawn(Picture(10, 10), getESlant), 0.0);
  TempDir dir;
  EXPECT_EQ(getESlant(dir.file("absent.png").c_str()), -1.0);
}

// --- Fixture fonts --------------------------------------------------------

namespace {

std::string fixtureImage(const std::string& font, const std::string& name) {
  return testsupport::fixturesDir() + "/" + font + "/Images/" + name + ".png";
}

// The skew of a font as the measurement sequence forms it: the nine stem
// letters sorted, lowest and highest dropped, the mean of seven rounded half
// away from zero.
int trimmedSkew(const std::string& font) {
  const char* stems[] = {"72-H",  "73-I",  "77-M",  "78-N", "104-h",
                         "105-i", "108-l", "109-m", "110-n"};
  std::vector<double> skews;
  for (const char* stem : stems)
    skews.push_back(calculateSkew(fixtureImage(font, stem).c_str()));
  std::sort(skews.begin(), skews.end());
  double mean = 0.0;
  for (int i = 1; i <= 7; i++) mean += skews[i];
  mean /= 7.0;
  return (int)(mean > 0 ? mean + 0.5 : mean - 0.5);
}

// Ink per row of a stem, measured independently of the stroke scan: the mean
// darkness sum of whole rows over the middle 30 % to 70 % of the ink's
// height, where the I and l of the fixtures are a bare stem.
double stemInkWidth(const std::string& font, const std::string& name) {
  unsigned w = 0, h = 0;
  uint32* pic = ReadPngFile(fixtureImage(font, name).c_str(), &w, &h, boBGRA);
  EXPECT_NE(pic, nullptr) << font << " " << name;
  if (pic == nullptr) return 0.0;
  int minX, minY, maxX, maxY;
  getBoundingBox(pic, &minX, &minY, &maxX, &maxY, w, h);
  int inkH = maxY - minY + 1;
  double sum = 0.0;
  int rows = 0;
  for (int y = minY + inkH * 3 / 10; y <= minY + inkH * 7 / 10; y++, rows++)
    for (unsigned x = 0; x < w; x++) sum += pixelDarkness(pic[y * w + x]);
  free(pic);
  return sum / rows;
}

const char* const kFixtureFonts[] = {"DejaVuSans", "DejaVuSans-Oblique",
                                     "LiberationSerif", "LiberationMono"};

}  // namespace

TEST(FixtureFonts, ObliqueSkewIsTheItalicAngleLeaningRight) {
  REQUIRE_FIXTURES();
  // The font's italic angle is -11 (post table); leaning right is positive
  // here. Within 2 degrees.
  EXPECT_NEAR(trimmedSkew("DejaVuSans-Oblique"), 11, 2);
}

TEST(FixtureFonts, UprightFontsHaveNoSkew) {
  REQUIRE_FIXTURES();
  for (const char* font : {"DejaVuSans", "LiberationSerif", "LiberationMono"})
    EXPECT_LE(abs(trimmedSkew(font)), 1) << font;
}

TEST(FixtureFonts, StrokeWidthRanksAsTheStemsInk) {
  REQUIRE_FIXTURES();
  // Stems of these fonts lie within a pixel of each other; pairs whose stem
  // ink differs by more than a quarter pixel must be ordered alike, closer
  // pairs are within anti-aliasing noise. At least four pairs are compared
  // for the I (the DejaVu fonts' 7.1 against the Liberation fonts' 6.7).
  for (const char* glyph : {"73-I", "108-l"}) {
    int ordered = 0;
    for (const char* a : kFixtureFonts)
      for (const char* b : kFixtureFonts) {
        double inkA = stemInkWidth(a, glyph), inkB = stemInkWidth(b, glyph);
        if (inkA - inkB <= 0.25) continue;
        ordered++;
        EXPECT_GT(getStrokeWidth(fixtureImage(a, glyph).c_str()),
                  getStrokeWidth(fixtureImage(b, glyph).c_str()))
            << glyph << ": " << a << " " << inkA << " against " << b << " "
            << inkB;
      }
    EXPECT_GE(ordered, glyph == std::string("73-I") ? 4 : 1) << glyph;
  }
}
