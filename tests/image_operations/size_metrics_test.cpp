// Size, width and grey metrics on drawn pictures written as real PNG files.
#include "image_operations/size_metrics.h"

#include <gtest/gtest.h>

#include <array>
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

const uint32_t B = testsupport::kBlack, W = kWhite;

// Rectangles {x0, y0, x1, y1, colour} drawn in order on a white picture.
Picture rects(int w, int h, std::initializer_list<std::array<uint32_t, 5>> list) {
  Picture p(w, h);
  for (auto r : list) p.fillRect(r[0], r[1], r[2], r[3], r[4]);
  return p;
}

// Box 10 x 20, L 3 x 4, a box with a hole, three greys, runs 5..9 and 20..29.
const Picture kBox = rects(16, 26, {{3, 2, 12, 21, B}});
const Picture kL = rects(8, 9, {{2, 2, 2, 5, B}, {2, 5, 4, 5, B}});
const Picture kHoled = rects(14, 14, {{2, 2, 11, 11, B}, {5, 5, 8, 8, W}});
const Picture kGreys =
    rects(7, 5, {{2, 2, 2, 2, B}, {3, 2, 3, 2, 0x808080}, {4, 2, 4, 2, 0xFEFEFE}});
const Picture kRuns = rects(40, 10, {{5, 3, 9, 6, B}, {20, 3, 29, 6, B}});
// A box 4 wide and 6 tall on the picture's last row: row sums 1, 1, 4, 4, 1, 1.
const Picture kBand = rects(8, 8, {{2, 2, 2, 7, B}, {2, 4, 5, 5, B}});

// Component i of the centre of gravity: centre x, y, mean distance x, y.
Measure cog(int i) {
  return [=](const char* f) {
    double v[4] = {7, 7, 7, 7};
    GetCenterOfGravity(f, v, v + 1, v + 2, v + 3);
    return v[i];
  };
}
Measure window(double rows) {
  return [=](const char* f) { return getAvgGreyUsingHistogram(f, rows); };
}

}  // namespace

TEST(SizeMetrics, HandWorkedValuesOfDrawnShapes) {
  struct Row { const char* why; Picture pic; Measure measure; double expected; } rows[] = {
      {"box height", kBox, getHeight, 20},
      {"box aspect H / (H + W)", kBox, getAspectRatio, 20.0 / 30},
      {"box fill: every row one run", kBox, getfillFactor, 1},
      // Columns of 20 against 200 / H = 10: sqrt(10 * 100 / 10) / 10.
      {"box width histogram", kBox, getWidthHistogramNumber, 1},
      {"L fill: a run ending in white counts", kL, getfillFactor, 1},
      {"holed fill: two-run rows left out", kHoled, getfillFactor, 0.36},
      {"pale greys are ink", kGreys, pixelCount, 3},
      {"greys by darkness", kGreys, getAvgGrey, (1 + 127.0 / 255 + 1.0 / 255) / 3},
      {"string width 29 - 5 + 1", kRuns, getStringWidth, 25},
      {"square string width", kRuns, getSquareStringWidth, 625},
      // A blank picture has the 1 1 0 0 box (past the edge of a 1 x 1 one).
      {"1 x 1 blank grey", Picture(1, 1), getAvgGrey, 0},
      // L: row means 0, 0, 0, 1: 0.25 / W 3; |y - 2.5| sums 6 over 6 * 4.
      {"L centre x", kL, cog(0), 0.25 / 3},
      {"L mean distance y", kL, cog(3), 0.25},
      // Empty lines sit at (2 - 1) / 2 = 0.5, over the blank box's 2.
      {"blank centre x", Picture(12, 12), cog(0), 0.25},
      // Darkest window of rows over (window * W 4).
      {"window 3: sums 6, 9, 9, 6", kBand, window(3), 9.0 / 12},
      {"window of the box's height: no slide", kBand, window(6), 12.0 / 24},
      // The slide starts at (int)2.5 = 2, so row 2 enters twice: 12 / (2.5 * 4).
      {"fractional window", kBand, window(2.5), 1.2},
      {"rows past the picture read white: 12 / (8 * 4)", kBand, window(8), 0.375},
  };
  for (const Row& r : rows) EXPECT_DOUBLE_EQ(measureDrawn(r.pic, r.measure), r.expected) << r.why;
}

TEST(SizeMetrics, UnreadableFilesGiveZeroAndLeaveTheCentreAlone) {
  TempDir dir;
  const Measure measures[] = {getHeight,     getStringWidth, getSquareStringWidth,
                              getAspectRatio, getWidthHistogramNumber, getHeightHistogramNumber,
                              pixelCount,    getAvgGrey,    getfillFactor, window(10)};
  const std::string f = dir.file("absent.png");
  for (size_t i = 0; i < sizeof measures / sizeof *measures; i++)
    EXPECT_EQ(measures[i](f.c_str()), 0.0) << "measure " << i;
  for (int i = 0; i < 4; i++) EXPECT_EQ(cog(i)(f.c_str()), 7.0) << "centre " << i;
  EXPECT_EQ(getHeight(nullptr), 0.0);
}

TEST(MonoSpacedAndSpread, WidthRatioToTheFourthAndGreyVariance) {
  TempDir dir;
  std::string n = savePicture(dir, "n.png", rects(40, 8, {{5, 2, 29, 5, B}}));  // 25 wide
  std::string w = savePicture(dir, "w.png", rects(70, 8, {{5, 2, 54, 5, B}}));  // 50 wide
  std::string none = dir.file("absent.png");
  struct Row {
    const std::string &big, &small;
    double expected;
    const char* why;
  } rows[] = {{w, n, 0.0625, "0.5^4"},
              {n, w, 0.0625, "2^4 folded below one"},
              {w, none, 0, "missing small string: 0 / 50"}};
  for (const Row& r : rows)
    EXPECT_DOUBLE_EQ(isMonoSpaced(r.big.c_str(), r.small.c_str()), r.expected) << r.why;

  double values[4] = {1, 2, 3, 4};
  // Mean 2.5; squared deviations sum 5; 5 / 4 * 100.
  EXPECT_DOUBLE_EQ(getStdDev_Avggrey(values, 4), 125.0);
  EXPECT_TRUE(std::isnan(getStdDev_Avggrey(values, 0)));
  EXPECT_EQ(getStdDev_Avggrey(nullptr, 4), 0.0);
}
