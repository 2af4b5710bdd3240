// Size, width and grey metrics on pictures drawn here and written as real PNG
// files, and heights and string widths of the fixture fonts.
#include "image_operations/size_metrics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "support/test_support.h"

using testsupport::kWhite;
using testsupport::measureDrawn;
using testsupport::Picture;
using testsupport::savePicture;
using testsupport::TempDir;

namespace {

using Measure = std::function<double(const char*)>;

// A not-a-number expectation matches a not-a-number result.
void expectValue(double got, double want, const std::string& why) {
  if (std::isnan(want))
    EXPECT_TRUE(std::isnan(got)) << why << ": " << got;
  else
    EXPECT_DOUBLE_EQ(got, want) << why;
}

// A solid black 10 x 20 box at x 3..12, y 2..21.
Picture solidBox() {
  Picture p(16, 26);
  p.fillRect(3, 2, 12, 21);
  return p;
}

// An L in a 3 x 4 box at (2, 2): stem of 4, foot of 3.
Picture letterL() {
  Picture p(8, 9);
  p.fillRect(2, 2, 2, 5);
  p.fillRect(2, 5, 4, 5);
  return p;
}

// 10 x 10 black with a 4 x 4 hole: 84 ink pixels, 6 rows of one run.
Picture holedBox() {
  Picture p(14, 14);
  p.fillRect(2, 2, 11, 11);
  p.fillRect(5, 5, 8, 8, kWhite);
  return p;
}

// Row 0 X.X.X (three runs), rows 1 and 2 solid, in a 5 x 3 box.
Picture comb() {
  Picture p(9, 7);
  p.fillRect(2, 2, 6, 4);
  p.set(3, 2, kWhite);
  p.set(5, 2, kWhite);
  return p;
}

// Box 3 x 1: black, 0x808080 (darkness 127/255) and the palest grey.
Picture greys() {
  Picture p(7, 5);
  p.set(2, 2, 0x000000);
  p.set(3, 2, 0x808080);
  p.set(4, 2, 0xFEFEFE);
  return p;
}

// Runs at x 5..9 and 20..29; with `edgeDot` a dot at x 0 and a run 10..19.
Picture twoRuns(bool edgeDot) {
  Picture p(40, 10);
  if (edgeDot) {
    p.set(0, 4, 0);
    p.fillRect(10, 3, 19, 6);
  } else {
    p.fillRect(5, 3, 9, 6);
    p.fillRect(20, 3, 29, 6);
  }
  return p;
}

}  // namespace

TEST(SizeMetrics, HandWorkedValuesOfDrawnShapes) {
  struct Row {
    const char* why;
    Picture pic;
    Measure measure;
    double expected;
  } rows[] = {
      {"box height", solidBox(), getHeight, 20},
      {"box aspect H / (H + W)", solidBox(), getAspectRatio, 20.0 / 30},
      {"box grey", solidBox(), getAvgGrey, 1},
      {"box ink", solidBox(), pixelCount, 200},
      {"box fill: every row one run", solidBox(), getfillFactor, 1},
      // Columns of 20 against 200 / H = 10: sqrt(10 * 100 / 10) / 10.
      {"box width histogram", solidBox(), getWidthHistogramNumber, 1},
      // Rows of 10 against 200 / W = 20: sqrt(20 * 100 / 20) / 20.
      {"box height histogram", solidBox(), getHeightHistogramNumber, 0.5},
      // Columns 4, 1, 1 against 6 / 4: sqrt(6.75 / 3) / 3.
      {"L width histogram", letterL(), getWidthHistogramNumber, 0.5},
      // Rows 1, 1, 1, 3 against 6 / 3: sqrt(4 / 4) / 4.
      {"L height histogram", letterL(), getHeightHistogramNumber, 0.25},
      {"L fill: a run ending in white counts", letterL(), getfillFactor, 1},
      {"holed fill: two-run rows left out", holedBox(), getfillFactor, 0.36},
      {"holed ink", holedBox(), pixelCount, 84},
      {"holed grey", holedBox(), getAvgGrey, 0.84},
      {"comb: a second run rules the row out", comb(), getfillFactor, 4.0 / 9},
      {"pale greys are ink", greys(), pixelCount, 3},
      {"greys by darkness", greys(), getAvgGrey, (1 + 127.0 / 255 + 1.0 / 255) / 3},
      {"string width 29 - 5 + 1", twoRuns(false), getStringWidth, 25},
      {"square string width", twoRuns(false), getSquareStringWidth, 625},
      // The dot sets xmin to 0, which reads as unset: 19 - 10 + 1.
      {"ink in column 0 is passed over", twoRuns(true), getStringWidth, 10},
      // A blank picture has the 1 1 0 0 box: 2 x 2 for the height, 0 / 0
      // for the aspect, and xmax - xmin + 1 = 1 for the string.
      {"blank height", Picture(12, 12), getHeight, 2},
      {"blank aspect", Picture(12, 12), getAspectRatio, NAN},
      {"blank grey", Picture(12, 12), getAvgGrey, 0},
      {"blank ink", Picture(12, 12), pixelCount, 0},
      {"blank fill", Picture(12, 12), getfillFactor, 0},
      {"blank string", Picture(12, 12), getStringWidth, 1},
      {"1 x 1 blank: the box reads white", Picture(1, 1), getHeight, 2},
      {"1 x 1 blank grey", Picture(1, 1), getAvgGrey, 0},
      {"1 x 1 blank histogram", Picture(1, 1), getWidthHistogramNumber, 0},
  };
  for (const Row& r : rows) expectValue(measureDrawn(r.pic, r.measure), r.expected, r.why);
}

TEST(SizeMetrics, CentreOfGravityAndMeanDistances) {
  struct Row {
    const char* why;
    Picture pic;
    double cx, cy, ax, ay;
  } rows[] = {
      // Per row |x - 4.5| sums to 25, times 20 rows, over (200 ink * W 10);
      // per column |y - 9.5| sums to 100, times 10, over (200 * H 20).
      {"box", solidBox(), 4.5 / 10, 9.5 / 20, 0.25, 0.25},
      // Row means 0, 0, 0, 1: 0.25 / W 3. Column means 1.5, 3, 3: 2.5 / H 4.
      // |x - 0.25| sums 3.5 over 6 * 3; |y - 2.5| sums 6 over 6 * 4.
      {"L", letterL(), 0.25 / 3, 2.5 / 4, 3.5 / 18, 0.25},
      // Empty lines sit at (2 - 1) / 2 = 0.5, over the blank box's 2.
      {"blank", Picture(12, 12), 0.25, 0.25, 0, 0},
  };
  for (const Row& r : rows) {
    double cx = 9, cy = 9, ax = 9, ay = 9;
    measureDrawn(r.pic, [&](const char* f) {
      GetCenterOfGravity(f, &cx, &cy, &ax, &ay);
      return 0.0;
    });
    EXPECT_DOUBLE_EQ(cx, r.cx) << r.why;
    EXPECT_DOUBLE_EQ(cy, r.cy) << r.why;
    EXPECT_DOUBLE_EQ(ax, r.ax) << r.why;
    EXPECT_DOUBLE_EQ(ay, r.ay) << r.why;
  }
}

TEST(SizeMetrics, UnreadableFilesGiveZeroAndLeaveTheCentreAlone) {
  TempDir dir;
  testsupport::writeBytes(dir.file("text.png"), "not a picture");
  const Measure measures[] = {
      getHeight, getStringWidth, getSquareStringWidth, getAspectRatio,
      getWidthHistogramNumber, getHeightHistogramNumber, pixelCount,
      getAvgGrey, getfillFactor,
      [](const char* f) { return getAvgGreyUsingHistogram(f, 10.0); }};
  for (const std::string& f : {dir.file("absent.png"), dir.file("text.png")}) {
    for (size_t i = 0; i < sizeof measures / sizeof *measures; i++)
      EXPECT_EQ(measures[i](f.c_str()), 0.0) << f << " measure " << i;
    double cx = 7, cy = 7, ax = 7, ay = 7;
    GetCenterOfGravity(f.c_str(), &cx, &cy, &ax, &ay);
    EXPECT_EQ(cx + cy + ax + ay, 28.0) << f;
  }
  EXPECT_EQ(getHeight(nullptr), 0.0);
}

TEST(AvgGreyUsingHistogram, DarkestWindowOfRows) {
  // Box 4 wide and 6 tall at the picture's bottom: row sums 1, 1, 4, 4, 1, 1.
  Picture band(8, 8);
  band.fillRect(2, 2, 2, 7);
  band.fillRect(2, 4, 5, 5);
  struct Row {
    double window, expected;
    const char* why;
  } rows[] = {
      {3, 0.75, "windows 6, 9, 9, 6: 9 / (3 * 4)"},
      {6, 0.5, "the box's height: no slide, 12 / (6 * 4)"},
      // Rows 0..2 first (y < 2.5), then the slide starts at (int)2.52 = 2,
      // so row 2 enters twice: windows 6, 9, 12, 9, 6.
      {2.5, 1.2, "fractional window: 12 / (2.5 * 4)"},
      {8, 0.375, "rows past the picture read white: 12 / (8 * 4)"},
  };
  for (const Row& r : rows)
    EXPECT_DOUBLE_EQ(measureDrawn(band, [&](const char* f) {
                       return getAvgGreyUsingHistogram(f, r.window);
                     }),
                     r.expected)
        << r.why;
}

TEST(MonoSpacedAndSpread, WidthRatioToTheFourthAndGreyVariance) {
  TempDir dir;
  Picture narrow(40, 8), wide(70, 8);
  narrow.fillRect(5, 2, 29, 5);  // 25 wide
  wide.fillRect(5, 2, 54, 5);    // 50 wide
  std::string n = savePicture(dir, "n.png", narrow);
  std::string w = savePicture(dir, "w.png", wide);
  std::string none = dir.file("absent.png");
  struct Row {
    const std::string &big, &small;
    double expected;
    const char* why;
  } rows[] = {{w, n, 0.0625, "0.5^4"},
              {n, w, 0.0625, "2^4 folded below one"},
              {w, w, 1, "equal"},
              {w, none, 0, "missing small string: 0 / 50"},
              {none, n, 0, "missing big string: 1 / infinity"},
              {none, none, NAN, "both missing: 0 / 0"}};
  for (const Row& r : rows)
    expectValue(isMonoSpaced(r.big.c_str(), r.small.c_str()), r.expected, r.why);

  double values[4] = {1, 2, 3, 4};
  // Mean 2.5; squared deviations sum 5; 5 / 4 * 100.
  EXPECT_DOUBLE_EQ(getStdDev_Avggrey(values, 4), 125.0);
  EXPECT_TRUE(std::isnan(getStdDev_Avggrey(values, 0)));
  EXPECT_EQ(getStdDev_Avggrey(nullptr, 4), 0.0);
}

// Fixture pictures put the ink at (2, 2) with 3 white rows below, so the ink
// height is the picture's height less 5 (U and X of DejaVu 58 and 57 pixels,
// of Liberation 53 and 52). The narrow string of a proportional font is about
// a third of the wide one: a fourth power near 0.015.
TEST(SizeMetricsOnFixtures, CapitalHeightsAndMonospacing) {
  REQUIRE_FIXTURES();
  struct Row {
    const char* font;
    double u, x;
    bool mono;
  } rows[] = {{"DejaVuSans", 53, 52, false},
              {"DejaVuSans-Oblique", 53, 52, false},
              {"LiberationSerif", 48, 47, false},
              {"LiberationMono", 48, 47, true}};
  for (const Row& r : rows) {
    std::string images = testsupport::fixturesDir() + "/" + r.font + "/Images/";
    EXPECT_NEAR(getHeight((images + "85-U.png").c_str()), r.u, 2.0) << r.font;
    EXPECT_NEAR(getHeight((images + "88-X.png").c_str()), r.x, 2.0) << r.font;
    double mono = isMonoSpaced((images + "font_b.png").c_str(),
                               (images + "font_s.png").c_str());
    if (r.mono)
      EXPECT_DOUBLE_EQ(mono, 1.0) << r.font;
    else
      EXPECT_LT(mono, 0.05) << r.font;
  }
}
