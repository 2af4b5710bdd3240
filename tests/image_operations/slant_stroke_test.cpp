// Slant, stress and stroke-width measurements of drawn pictures as PNG files.
#include "image_operations/slant_stroke.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <functional>
#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::expectMeasured;
using testsupport::kBlack;
using testsupport::kWhite;
using testsupport::measureDrawn;
using testsupport::Picture;

namespace {

using Measure = std::function<double(const char*)>;

// Rectangles {x0, y0, x1, y1[, colour]} drawn in order, black by default.
Picture rects(int w, int h, std::initializer_list<std::vector<int>> list) {
  Picture p(w, h);
  for (auto r : list) p.fillRect(r[0], r[1], r[2], r[3], r.size() > 4 ? r[4] : kBlack);
  return p;
}

// A bowl 16 thick at `thickDegrees` counter-clockwise from the right, 4 across.
Picture lensBowl(double thickDegrees) {
  Picture p(90, 90);
  const double c = cos(thickDegrees * M_PI / 180), s = sin(thickDegrees * M_PI / 180);
  for (int y = 0; y < 90; y++)
    for (int x = 0; x < 90; x++) {
      double dx = x - 44.0, dyUp = 44.0 - y;
      if (dx * dx + dyUp * dyUp > 1600) continue;
      double u = dx * c + dyUp * s, v = -dx * s + dyUp * c;
      bool inLens = (u - 15) * (u - 15) + v * v <= 1521 && (u + 15) * (u + 15) + v * v <= 1521;
      if (!inLens) p.set(x, y, kBlack);
    }
  return p;
}

// A boxy e whose bar's underside lies on row 20 - floor((x - 6) / 4).
Picture boxyE() {
  Picture p = rects(36, 38, {{2, 2, 31, 5}, {2, 2, 5, 33}, {2, 30, 25, 33}, {28, 2, 31, 15}});
  for (int x = 6; x <= 27; x++) p.fillRect(x, 18 - (x - 6) / 4, x, 20 - (x - 6) / 4);
  return p;
}

// A T with a top row of `top` colour; `lean` shifts each row right by 42 - y.
Picture paleTopT(uint32_t top, bool lean = false) {
  Picture upright = rects(40, 48, {{2, 2, 32, 2, (int)top}, {2, 3, 32, 7}, {15, 8, 19, 42}});
  if (!lean) return upright;
  Picture p(90, 48);
  for (int y = 2; y <= 42; y++)
    for (int x = 0; x < 40; x++)
      if (upright.at(x, y) != kWhite) p.set(x + 42 - y, y, upright.at(x, y));
  return p;
}

Measure vertical(double skew) {
  return [=](const char* f) { return getVerticalStrokeWidth(f, 0.37, skew); };
}

}  // namespace

TEST(SkewImage, RowsMoveByTheirDistanceFromRefYSplittingFractions) {
  // 0 degrees: tan(180) with pi as 3.14159265 is under 0.0001: x + refY whole.
  Picture src(3, 2);
  src.set(0, 0, 0x123456);
  src.set(1, 0, 0x000000);
  src.set(2, 1, 0x808080);
  std::vector<uint32> dst(10, 0xDEADBEEF);
  skewImage(src.pixels.data(), dst.data(), 3, 2, 1, 0.0);
  const uint32 W = 0xFFFFFF;
  EXPECT_EQ(dst, (std::vector<uint32>{W, 0x123456, 0, W, W, W, W, W, 0x808080, W}));
  // 30 degrees, refY 1: 16777215 splits floor(* 0.57735027) = 0x6C32C6 off
  // the floor pixel and ceil(* 0.42264973) = 0x93CD39 off the ceiling one.
  Picture two = rects(3, 3, {{1, 0, 1, 0}, {1, 2, 1, 2}});
  dst.assign(15, 0);
  skewImage(two.pixels.data(), dst.data(), 3, 3, 1, 30.0);
  EXPECT_EQ(dst, (std::vector<uint32>{W, 0x6C32C6, 0x93CD39, W, W, W, W, W, W, W, W, W,
                                      0x6C32C6, 0x93CD39, W}));
  // deskewPicture: 0 gives the picture back; 45 widens rows by 2, keeps row 1.
  uint32* pic = (uint32*)xmalloc(12 * sizeof(uint32));
  for (int i = 0; i < 12; i++) pic[i] = i == 5 ? 0 : W;
  int width = 4;
  EXPECT_EQ(deskewPicture(pic, &width, 3, 0.0), pic);
  EXPECT_EQ(width, 4);
  uint32* sheared = deskewPicture(pic, &width, 3, 45.0);
  EXPECT_EQ(width, 6);
  for (int i = 0; i < 18; i++) EXPECT_EQ(sheared[i], i == 8 ? 0u : W) << i;
  free(sheared);
}

// A bar 8 wide sheared by `degrees`, or 6 wide leaning a pixel per row.
Picture shearedBar(double degrees) {
  Picture p(200, 130);
  p.fillSheared(60, 67, 5, 124, tan(degrees * M_PI / 180.0));
  return p;
}
Picture leaningBar() {
  Picture p(120, 70);
  p.fillSheared(10, 15, 5, 64, 1);
  return p;
}

// Skew, stroke widths, stress and e slant within a tolerance (1e-12 for 0).
TEST(SlantAndStroke, HandWorkedValuesOfDrawnStrokes) {
  // Stroke band box rows 4..6 (the ratio's 4..5): stems 2, 2, 4 wide.
  Picture band = rects(14, 16, {{2, 2, 9, 5}, {2, 9, 9, 11}, {4, 6, 5, 7}, {4, 8, 7, 8}});
  Picture gap = rects(12, 14, {{2, 2, 8, 4}, {2, 10, 8, 11}});  // no ink in the band
  // A stem 4 wide, mid-grey above row 30, on a foot: no column sums over 0.7.
  Picture greyStem =
      rects(26, 46, {{10, 2, 13, 31, 0x808080}, {10, 32, 13, 41}, {2, 41, 21, 41}});
  Picture pushed = boxyE(), three = boxyE(), four = boxyE();
  pushed.fillRect(6, 21, 6, 24);   // column 6's underside pushed to row 24
  three.fillRect(10, 25, 12, 26);  // a fourth stroke in three columns
  four.fillRect(10, 25, 13, 26);   // and in four
  expectMeasured({
      // Skew: the shear that gives the narrowest box.
      {"a pixel per row: the upper limit", leaningBar(), calculateSkew, 45, 0},
      // Drawing and resampling blur the box by a pixel: within a degree.
      {"sheared 12", shearedBar(12), calculateSkew, 12, 1},
      {"grey edge by darkness", rects(20, 44, {{5, 2, 8, 41}, {9, 2, 9, 41, 0x808080}}),
       getStrokeWidth, 4 + 127.0 / 255, 0},
      {"runs 3 then 5: each wider than before",
       rects(30, 44, {{2, 2, 4, 41}, {10, 2, 14, 41}}), getStrokeWidth, 4, 0},
      {"runs 5 then 3: the 3 is not", rects(30, 44, {{2, 2, 6, 41}, {12, 2, 14, 41}}),
       getStrokeWidth, 5, 0},
      {"band rows: (2 + 2 + 4) / 3", band, getStrokeWidth, 8.0 / 3, 0},
      {"ratio: rows 4, 5 only, mean 2 over width 8", band, getStrokeWidthToWidthRatio, 0.25, 0},
      {"no ink in the band", gap, getStrokeWidth, 0, 0},
      // The pale top pixel (0.2, under 0.3) is skipped: the cluster is 5.
      {"bar beside the stem, pale edge left out", paleTopT(0xCCCCCC), vertical(0), 5, 0},
      {"mid-grey edge counted", paleTopT(0x808080), vertical(0), 5 + 127.0 / 255, 0},
      {"leaning T deskewed first", paleTopT(0xCCCCCC, true), vertical(45), 5, 0},
      {"no dark column: the stem's width", greyStem, vertical(0), 4, 0},
      // Stress: the angle of the greatest left-to-top thickness ratio wins.
      // Left ray at a = -20 across the thick part, the top ray thin: i = 25.
      {"turned 20 counter-clockwise", lensBowl(20), getStressAngle, -20, 2},
      // The top ray at a = -15 is the thick one: i = 30, 90 - 30 = 60, 15.
      {"near the vertical, from the top rays", lensBowl(105), getStressAngle, 15, 2},
      // E slant: three-stroke columns run (6, 20) to (25, 16): atan(-4 / 19).
      {"boxy e", boxyE(), getESlant, -11.888658, 1e-6},
      // Column 7 is 4 rows off: the line restarts at (7, 20): atan(-4 / 18).
      {"a step right after the start", pushed, getESlant, -12.528808, 1e-6},
      {"three columns of more strokes leave the line", three, getESlant, -11.888658, 1e-6},
      {"four such columns void the slope", four, getESlant, 0, 0},
  });
  const char* none = "/nonexistent.png";
  for (const Measure& m : {Measure(calculateSkew), Measure(getStrokeWidth),
                           Measure(getStrokeWidthToWidthRatio), vertical(0),
                           Measure(getStressAngle)})
    EXPECT_EQ(m(none), 0.0) << "missing file";
  EXPECT_EQ(getESlant(none), -1.0);
}
