// Style-class detectors of drawn letters as PNG files; Glyph draws in box positions.
#include "image_operations/style_classes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "image_operations/curviness_direction.h"
#include "support/test_support.h"

using testsupport::Glyph;
using testsupport::greyPixel;
using testsupport::kBlack;
using testsupport::kWhite;
using testsupport::measureDrawn;
using testsupport::Picture;
using testsupport::savePicture;
using testsupport::TempDir;

namespace {

using Measure = std::function<double(const char*)>;

// A glyph of box w x h from rectangles {x0, y0, x1, y1[, ink 0/1]}.
Glyph glyph(int w, int h, std::initializer_list<std::vector<int>> list) {
  Glyph g(w, h);
  for (auto r : list) g.rect(r[0], r[1], r[2], r[3], r.size() > 4 && !r[4] ? kWhite : kBlack);
  return g;
}

// An angular o: strokes 8 thick, V-shaped foot and head (half-width tip + j).
Picture angularO(int tip) {
  const int depth = 21 - tip, H = 2 * depth + 10;
  Glyph g(41, H);
  for (int y = 0; y < H; y++) {
    int j = std::min(std::min(y, H - 1 - y), depth - 1);
    if (y >= depth && y < H - depth) j = 20 - tip;
    int left = 20 - tip - j, right = 20 + tip + j;
    g.rect(left, y, right, y);
    if (left + 8 <= right - 8) g.rect(left + 8, y, right - 8, y, kWhite);
  }
  return g.pic;
}

// A round C open on the right; `cut` clears columns 11..13 through both arcs.
Picture roundC(bool cut = false) {
  Picture p(46, 66);
  p.fillEllipse(22, 32, 20, 30);
  p.fillEllipse(22, 32, 12, 22, kWhite);
  p.fillRect(23, 5, 45, 59, kWhite);
  if (cut) p.fillRect(11, 0, 13, 65, kWhite);
  return p;
}

// A segmented C: its left side tapers 8, 6, 4, 2 towards a blank row 30.
Picture segmentedC() {
  Glyph g = glyph(30, 61, {{10, 0, 29, 7}, {10, 53, 29, 60}, {0, 9, 7, 26}, {1, 27, 6, 27},
                           {2, 28, 5, 28}, {3, 29, 4, 29}, {3, 31, 4, 31}, {2, 32, 5, 32},
                           {1, 33, 6, 33}, {0, 34, 7, 51}});
  return g.pic;
}

// An I drawn as its outline, box 20 by 40, walls `wall` thick.
Picture outlineI(int wall) {
  return glyph(20, 40, {{0, 0, 19, 39}, {wall, wall, 19 - wall, 39 - wall, 0}}).pic;
}

// F in a 20 by 30 box: stem 0..3, top bar rows 0..3, middle bar rows 13..16.
const std::initializer_list<std::vector<int>> kF = {{0, 0, 3, 29}, {0, 0, 19, 3}, {0, 13, 15, 16}};

Measure tCrossings(int top) { return [=](const char* f) { return testTforBlackletter(f, top); }; }
double blackletter(const char* f) { return getBlackletterness(f, 1); }
double digital(const char* f) { return getDigitalFont(f, 0.0); }

}  // namespace

TEST(StyleClasses, HandWorkedValuesOfDrawnLetters) {
  Glyph stem = glyph(25, 37, {{8, 0, 15, 36}});
  Glyph crossed = stem, forked = stem;
  crossed.rect(19, 22, 22, 24);  // beside the stem on 3 of the 15 rows scanned
  forked.rect(19, 0, 22, 10);    // a second stem in the upper rows only
  Picture strayMark = angularO(0);
  strayMark.fillRect(5, 47, 6, 48);  // box (3..4, 45..46), below the flank
  Picture bridged = glyph(21, 20, {{0, 0, 9, 19}, {11, 0, 20, 19}}).pic;
  Picture faintBridge = bridged, darkBridge = bridged;
  faintBridge.set(12, 12, greyPixel(250));  // box (10, 10), darkness 5/255
  darkBridge.set(12, 12, greyPixel(100));   // darkness 155/255
  // Three black pixels, greys 76 (darkness 0.702), 77 (0.698), 254 (faint).
  Picture mixed(10, 10);
  const uint32_t mix[6] = {kBlack, kBlack, kBlack, greyPixel(76), greyPixel(77), greyPixel(254)};
  for (int i = 0; i < 6; i++) mixed.set(1 + i % 3, 1 + i / 3, mix[i]);
  struct Row { const char* why; Picture pic; Measure measure; double expected; } rows[] = {
      // T crossings: mean colour changes a row, lower rows (0) or upper (1).
      {"a stem: 2 a row", stem.pic, tCrossings(0), 2},
      // (15 * 2 + 3 * 2) / 15 = 2.4 in floats, just above the double 2.4.
      {"a stroke beside the stem", crossed.pic, tCrossings(0), (double)2.4f},
      {"two stems above", forked.pic, tCrossings(1), 4},
      // Blackletter bowl: share of ink below the lines along the foot's flanks.
      {"pointed foot: no ink outside the V", angularO(0), blackletter, 0},
      // On or above the lines: 132 in the left half, 140 in the right.
      {"a stray mark below the flank: 4 of 276", strayMark, blackletter, 4.0 / 276},
      // Tip 2: a rise of 18 over a run of 20 truncates to slope 0: flat.
      {"foot flatter than 45 degrees", angularO(2), blackletter, 1},
      // Middle lines cross one stroke (mean 2 < 3.5): two issues.
      {"solid block", glyph(30, 30, {{0, 0, 29, 29}}).pic, blackletter, 1},
      // Stencil: a column or row with no ink across the strokes.
      {"C cut through both arcs", roundC(true), getStencilsFont, 1},
      {"stem cut across: the row pass", glyph(8, 40, {{0, 0, 7, 17}, {0, 21, 7, 39}}).pic,
       getStencilsFont, 1},
      // Column 10 sums 0.0196 after columns of 20: under 5 %, nothing over 0.5.
      {"faint bridge still a gap", faintBridge, getStencilsFont, 1},
      {"dark bridge", darkBridge, getStencilsFont, 0},
      // Digital: middle rows cross the left side in runs narrowing to 2 / 8.
      {"segmented C", segmentedC(), digital, 1},
      // Hollow lines count, fuller ones against: rows 36 - 4, columns 16 - 4.
      {"outline I", outlineI(2), getHollowFont, 44.0 / 60},
      {"solid I: below 0 becomes 0", glyph(20, 40, {{0, 0, 19, 39}}).pic, getHollowFont, 0},
      // Walls 6: inner rows carry 12 > 10 and cancel; columns 8 - 12.
      {"heavy walls", outlineI(6), getHollowFont, 0},
      {"dark share above 0.7: 4 of 6", mixed, percentDarkPixels, 4.0 / 6},
  };
  for (const Row& r : rows) EXPECT_DOUBLE_EQ(measureDrawn(r.pic, r.measure), r.expected) << r.why;
  int i = 0;
  for (const Measure& m : {tCrossings(0), Measure(blackletter), Measure(getStencilsFont),
                           Measure(digital), Measure(getHollowFont), Measure(percentDarkPixels)})
    EXPECT_EQ(m("/nonexistent/absent.png"), 0.0) << "missing file, measure " << i++;
}

// The round C keeps 8 or 9 pixels in its middle rows: no segments.
TEST(StyleClasses, DigitalFallsBackOnTheContourWalk) {
  TempDir dir;
  std::string f = savePicture(dir, roundC());
  double v = getDigitalFont(f.c_str(), 0.0);
  EXPECT_EQ(v, curviness_borderPath(f.c_str(), 0.0, 1));
  EXPECT_GT(v, 0.0);
}

TEST(StyleClasses, SymbolPairsDifferByTheirInkSymmetricDifference) {
  TempDir dir;
  std::string f = savePicture(dir, "F.png", glyph(20, 30, kF).pic);
  Glyph e = glyph(20, 30, kF);
  e.rect(0, 26, 19, 29);
  std::string E = savePicture(dir, "E.png", e.pic);
  // F mirrored: as it is, 26 rows differ on 8 columns: 208.
  Picture m = glyph(20, 30, {{16, 0, 19, 29}, {0, 0, 19, 3}, {4, 13, 19, 16}}).pic;
  std::string mirrored = savePicture(dir, "m.png", m);
  std::string none = dir.file("absent.png");
  struct {
    const std::string &a, &b;
    int reverse;
    double expected;
    const char* why;
  } rows[] = {{f, E, 0, 64.0 / 600, "E's bottom bar right of the stem: 16 * 4"},
              {f, mirrored, 1, 0, "mirrored, read reversed"},
              {f, mirrored, 0, 208.0 / 600, "mirrored, read as it is"},
              {none, f, 0, 0, "first missing"},
              {f, none, 0, 0, "second missing"}};
  for (const auto& r : rows)
    EXPECT_DOUBLE_EQ(getSymbolFont(r.a.c_str(), r.b.c_str(), r.reverse), r.expected) << r.why;
}
