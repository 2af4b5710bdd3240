// Size, width and grey metrics on pictures drawn here and written as real PNG
// files, and heights and string widths of the fixture fonts.
#include "image_operations/size_metrics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/test_support.h"

using testsupport::Picture;
using testsupport::savePicture;
using testsupport::TempDir;
using testsupport::writePicture;

namespace {

// A solid black 10 x 20 box at x 3..12, y 2..21 of a 16 x 26 picture.
Picture solidBox() {
  Picture p(16, 26);
  p.fillRect(3, 2, 12, 21);
  return p;
}

// An L: a stem of 4 pixels and a foot of 3, box 3 wide and 4 tall at (2, 2).
//   X..
//   X..
//   X..
//   XXX
Picture letterL() {
  Picture p(8, 9);
  p.fillRect(2, 2, 2, 5);
  p.fillRect(2, 5, 4, 5);
  return p;
}

const double kGrey80 = 127.0 / 255.0;  // darkness of 0x808080

}  // namespace

TEST(SizeMetrics, SolidBoxGivesItsSizeFullGreyAndCentre) {
  TempDir dir;
  std::string f = savePicture(dir, "box.png", solidBox());
  EXPECT_DOUBLE_EQ(getHeight(f.c_str()), 20.0);
  EXPECT_DOUBLE_EQ(getAspectRatio(f.c_str()), 20.0 / 30.0);
  EXPECT_DOUBLE_EQ(getAvgGrey(f.c_str()), 1.0);
  EXPECT_DOUBLE_EQ(pixelCount(f.c_str()), 200.0);
  // Every row is one run that reaches the box's last column.
  EXPECT_DOUBLE_EQ(getfillFactor(f.c_str()), 1.0);

  double cx = 0, cy = 0, ax = 0, ay = 0;
  GetCenterOfGravity(f.c_str(), &cx, &cy, &ax, &ay);
  EXPECT_DOUBLE_EQ(cx, 4.5 / 10);
  EXPECT_DOUBLE_EQ(cy, 9.5 / 20);
  // Per row |x - 4.5| over x 0..9 sums to 25, times 20 rows = 500, over
  // (200 ink * W 10). Per column |y - 9.5| over 0..19 sums to 100, times 10
  // columns = 1000, over (200 * H 20).
  EXPECT_DOUBLE_EQ(ax, 0.25);
  EXPECT_DOUBLE_EQ(ay, 0.25);
  // Histograms: columns against 200 / H = 10, each column 20:
  // sqrt(10 * 100 / 10) / 10 = 1. Rows against 200 / W = 20, each row 10:
  // sqrt(20 * 100 / 20) / 20 = 0.5.
  EXPECT_DOUBLE_EQ(getWidthHistogramNumber(f.c_str()), 1.0);
  EXPECT_DOUBLE_EQ(getHeightHistogramNumber(f.c_str()), 0.5);
}

TEST(SizeMetrics, LShapeCentreAndHistogramsFollowTheLineMeans) {
  TempDir dir;
  std::string l = savePicture(dir, "l.png", letterL());
  double cx = 0, cy = 0, ax = 0, ay = 0;
  GetCenterOfGravity(l.c_str(), &cx, &cy, &ax, &ay);
  // Row means 0, 0, 0, 1: gravX = 1 / 4 = 0.25, then / W 3.
  EXPECT_DOUBLE_EQ(cx, 0.25 / 3);
  // Column means 1.5, 3, 3: gravY = 7.5 / 3 = 2.5, then / H 4.
  EXPECT_DOUBLE_EQ(cy, 2.5 / 4);
  // |x - 0.25|: 0.25 * 3 + (0.25 + 0.75 + 1.75) = 3.5, over 6 * 3.
  EXPECT_DOUBLE_EQ(ax, 3.5 / 18);
  // |y - 2.5|: 2.5 + 1.5 + 0.5 + 0.5 + 0.5 + 0.5 = 6, over 6 * 4.
  EXPECT_DOUBLE_EQ(ay, 0.25);
  // Columns 4, 1, 1 against 6 / H 4 = 1.5: 6.25 + 0.25 + 0.25 = 6.75,
  // sqrt(6.75 / 3) / 3 = 0.5. Rows 1, 1, 1, 3 against 6 / W 3 = 2: 4 in
  // all, sqrt(4 / 4) / 4 = 0.25.
  EXPECT_DOUBLE_EQ(getWidthHistogramNumber(l.c_str()), 0.5);
  EXPECT_DOUBLE_EQ(getHeightHistogramNumber(l.c_str()), 0.25);
}

TEST(SizeMetrics, RowsWithTwoRunsAreLeftOutOfTheFillFactor) {
  TempDir dir;
  // 10 x 10 black with a 4 x 4 hole in rows 3..6: 6 rows of one run.
  Picture p(14, 14);
  p.fillRect(2, 2, 11, 11);
  p.fillRect(5, 5, 8, 8, testsupport::kWhite);
  std::string f = savePicture(dir, "holed.png", p);
  EXPECT_DOUBLE_EQ(getfillFactor(f.c_str()), 0.36);
  EXPECT_DOUBLE_EQ(pixelCount(f.c_str()), 84.0);
  EXPECT_DOUBLE_EQ(getAvgGrey(f.c_str()), 0.84);

  // A run ending in white counts as well: every row of the L is one run.
  std::string l = savePicture(dir, "l.png", letterL());
  EXPECT_DOUBLE_EQ(getfillFactor(l.c_str()), 1.0);

  // Three runs in a row: the second run rules the row out for good.
  // Row 0: X.X.X (out); rows 1, 2: XXXXX (in): (2 / 3)^2.
  Picture comb(9, 7);
  comb.fillRect(2, 2, 6, 4);
  comb.set(3, 2, testsupport::kWhite);
  comb.set(5, 2, testsupport::kWhite);
  std::string c = savePicture(dir, "comb.png", comb);
  EXPECT_DOUBLE_EQ(getfillFactor(c.c_str()), (2.0 / 3.0) * (2.0 / 3.0));
}

TEST(SizeMetrics, PaleAndGreyPixelsAreInkWithTheirDarkness) {
  TempDir dir;
  // Box 3 x 1: black, 0x808080 and the palest grey 0xFEFEFE.
  Picture p(7, 5);
  p.set(2, 2, 0x000000);
  p.set(3, 2, 0x808080);
  p.set(4, 2, 0xFEFEFE);
  std::string f = savePicture(dir, "greys.png", p);
  EXPECT_DOUBLE_EQ(pixelCount(f.c_str()), 3.0);
  // (1 + 127/255 + 1/255) / 3 = (383/255) / 3.
  EXPECT_DOUBLE_EQ(getAvgGrey(f.c_str()), (1.0 + kGrey80 + 1.0 / 255.0) / 3);
}

TEST(SizeMetrics, BlankPictureGivesTheTwoByTwoBoxAndNoAspect) {
  TempDir dir;
  std::string f = savePicture(dir, "blank.png", Picture(12, 12));
  EXPECT_DOUBLE_EQ(getHeight(f.c_str()), 2.0);
  EXPECT_DOUBLE_EQ(getAvgGrey(f.c_str()), 0.0);
  EXPECT_DOUBLE_EQ(pixelCount(f.c_str()), 0.0);
  EXPECT_DOUBLE_EQ(getfillFactor(f.c_str()), 0.0);
  // maxY - minY + 1 = 0 and the same for W: 0 / 0.
  EXPECT_TRUE(std::isnan(getAspectRatio(f.c_str())));
  // Empty lines sit at (2 - 1) / 2 = 0.5, over W 2.
  double cx = 0, cy = 0, ax = 9, ay = 9;
  GetCenterOfGravity(f.c_str(), &cx, &cy, &ax, &ay);
  EXPECT_DOUBLE_EQ(cx, 0.25);
  EXPECT_DOUBLE_EQ(cy, 0.25);
  EXPECT_DOUBLE_EQ(ax, 0.0);
  EXPECT_DOUBLE_EQ(ay, 0.0);
  // Width: xmax - xmin + 1 with both still 0.
  EXPECT_DOUBLE_EQ(getStringWidth(f.c_str()), 1.0);

  // A 1 x 1 blank picture: the 2 x 2 box lies mostly outside and reads white.
  std::string tiny = savePicture(dir, "tiny.png", Picture(1, 1));
  EXPECT_DOUBLE_EQ(getHeight(tiny.c_str()), 2.0);
  EXPECT_DOUBLE_EQ(getAvgGrey(tiny.c_str()), 0.0);
  EXPECT_DOUBLE_EQ(getWidthHistogramNumber(tiny.c_str()), 0.0);
}

TEST(SizeMetrics, UnreadableFilesGiveTheFailureValues) {
  TempDir dir;
  testsupport::writeBytes(dir.file("text.png"), "not a picture");
  for (const std::string& f : {dir.file("absent.png"), dir.file("text.png")}) {
    const char* p = f.c_str();
    EXPECT_EQ(getHeight(p), 0.0);
    EXPECT_EQ(getStringWidth(p), 0.0);
    EXPECT_EQ(getSquareStringWidth(p), 0.0);
    EXPECT_EQ(getAspectRatio(p), 0.0);
    EXPECT_EQ(getWidthHistogramNumber(p), 0.0);
    EXPECT_EQ(getHeightHistogramNumber(p), 0.0);
    EXPECT_EQ(pixelCount(p), 0.0);
    EXPECT_EQ(getAvgGrey(p), 0.0);
    EXPECT_EQ(getAvgGreyUsingHistogram(p, 10.0), 0.0);
    EXPECT_EQ(getfillFactor(p), 0.0);
    double cx = 7, cy = 7, ax = 7, ay = 7;
    GetCenterOfGravity(p, &cx, &cy, &ax, &ay);
    EXPECT_EQ(cx, 7.0);
    EXPECT_EQ(cy, 7.0);
    EXPECT_EQ(ax, 7.0);
    EXPECT_EQ(ay, 7.0);
  }
  EXPECT_EQ(getHeight(nullptr), 0.0);
}

TEST(StringWidth, SpansFirstToLastInkColumnSkippingColumnZero) {
  TempDir dir;
  Picture p(40, 10);
  p.fillRect(5, 3, 9, 6);
  p.fillRect(20, 3, 29, 6);
  std::string f = savePicture(dir, "string.png", p);
  EXPECT_DOUBLE_EQ(getStringWidth(f.c_str()), 25.0);  // 29 - 5 + 1
  EXPECT_DOUBLE_EQ(getSquareStringWidth(f.c_str()), 625.0);

  // The pixel at x 0 sets xmin to 0, which still reads as unset, so the next
  // ink (x 10) becomes xmin: 19 - 10 + 1 = 10.
  Picture edge(30, 10);
  edge.set(0, 4, 0);
  edge.fillRect(10, 3, 19, 6);
  EXPECT_DOUBLE_EQ(getStringWidth(savePicture(dir, "edge.png", edge).c_str()), 10.0);
}

TEST(MonoSpaced, FourthPowerOfTheWidthRatioFoldedBelowOne) {
  TempDir dir;
  Picture narrow(40, 8), wide(70, 8);
  narrow.fillRect(5, 2, 29, 5);  // 25 wide
  wide.fillRect(5, 2, 54, 5);    // 50 wide
  std::string n = savePicture(dir, "n.png", narrow);
  std::string w = savePicture(dir, "w.png", wide);
  std::string missing = dir.file("absent.png");
  EXPECT_DOUBLE_EQ(isMonoSpaced(w.c_str(), n.c_str()), 0.0625);  // 0.5^4
  EXPECT_DOUBLE_EQ(isMonoSpaced(n.c_str(), w.c_str()), 0.0625);  // 1 / 2^4
  EXPECT_DOUBLE_EQ(isMonoSpaced(w.c_str(), w.c_str()), 1.0);
  // Missing small string: 0 / 50. Missing big string: 25 / 0 is infinite and
  // folds to 1 / infinity. Both: 0 / 0.
  EXPECT_DOUBLE_EQ(isMonoSpaced(w.c_str(), missing.c_str()), 0.0);
  EXPECT_DOUBLE_EQ(isMonoSpaced(missing.c_str(), n.c_str()), 0.0);
  EXPECT_TRUE(std::isnan(isMonoSpaced(missing.c_str(), missing.c_str())));
}

namespace {

// A string picture whose box is 4 wide and 6 tall, at the bottom of the
// picture: column 0 inked on every row, rows 2 and 3 inked across.
// Row sums 1, 1, 4, 4, 1, 1.
Picture bandedString() {
  Picture p(8, 8);
  p.fillRect(2, 2, 2, 7);
  p.fillRect(2, 4, 5, 5);
  return p;
}

}  // namespace

TEST(AvgGreyUsingHistogram, FindsTheDarkestWindowOfRows) {
  TempDir dir;
  std::string f = savePicture(dir, "band.png", bandedString());
  // Window of 3: 1+1+4 = 6, 1+4+4 = 9, 4+4+1 = 9, 4+1+1 = 6: 9 / (3 * 4).
  EXPECT_DOUBLE_EQ(getAvgGreyUsingHistogram(f.c_str(), 3.0), 0.75);
  // A window of the box's height: the slide does not run, 12 / (6 * 4).
  EXPECT_DOUBLE_EQ(getAvgGreyUsingHistogram(f.c_str(), 6.0), 0.5);
  // The first window takes rows 0, 1, 2 (y < 2.5); the slide starts at row
  // (int)2.52 = 2, so row 2 enters twice: windows 6, 9, 12, 9, 6.
  // 12 / (2.5 * 4) = 1.2.
  EXPECT_DOUBLE_EQ(getAvgGreyUsingHistogram(f.c_str(), 2.5), 1.2);
  // The box ends on the picture's last row; a window of 8 rows reads two
  // rows that do not exist, as white: 12 / (8 * 4).
  EXPECT_DOUBLE_EQ(getAvgGreyUsingHistogram(f.c_str(), 8.0), 0.375);
}

TEST(StdDevAvgGrey, IsAVarianceTimesOneHundred) {
  double values[4] = {1, 2, 3, 4};
  // Mean 2.5; squared deviations 2.25 + 0.25 + 0.25 + 2.25 = 5; 5 / 4 * 100.
  EXPECT_DOUBLE_EQ(getStdDev_Avggrey(values, 4), 125.0);
  double same[52];
  for (double& v : same) v = 0.25;  // sums exactly
  EXPECT_DOUBLE_EQ(getStdDev_Avggrey(same, 52), 0.0);
  EXPECT_TRUE(std::isnan(getStdDev_Avggrey(values, 0)));
  EXPECT_EQ(getStdDev_Avggrey(nullptr, 4), 0.0);
}

// Fixture pictures put the ink's top-left corner at (2, 2) and leave 3 white
// rows below, so the ink height is the picture's height less 5: U and X of
// DejaVu Sans are 58 and 57 pixels tall, of the Liberation fonts 53 and 52.
TEST(SizeMetricsOnFixtures, CapitalHeightsMatchTheInk) {
  REQUIRE_FIXTURES();
  struct Case {
    const char* font;
    double u, x;
  } cases[] = {{"DejaVuSans", 53, 52},
               {"DejaVuSans-Oblique", 53, 52},
               {"LiberationSerif", 48, 47},
               {"LiberationMono", 48, 47}};
  for (const Case& c : cases) {
    std::string images = testsupport::fixturesDir() + "/" + c.font + "/Images";
    EXPECT_NEAR(getHeight((images + "/85-U.png").c_str()), c.u, 2.0) << c.font;
    EXPECT_NEAR(getHeight((images + "/88-X.png").c_str()), c.x, 2.0) << c.font;
  }
}

TEST(SizeMetricsOnFixtures, OnlyTheMonospacedFontHasEqualStringWidths) {
  REQUIRE_FIXTURES();
  auto mono = [](const char* font) {
    std::string images = testsupport::fixturesDir() + "/" + font + "/Images";
    return isMonoSpaced((images + "/font_b.png").c_str(),
                        (images + "/font_s.png").c_str());
  };
  EXPECT_DOUBLE_EQ(mono("LiberationMono"), 1.0);
  // The narrow string of a proportional font is about a third of the wide
  // one, so the fourth power is about 0.015: 0 for practical purposes.
  EXPECT_LT(mono("DejaVuSans"), 0.05);
  EXPECT_LT(mono("DejaVuSans-Oblique"), 0.05);
  EXPECT_LT(mono("LiberationSerif"), 0.05);
}
