// Style-class detectors on synthetic letters written as real PNG files (a
// stem and a T, angular and round o's, C's whole, cut and segmented, outline
// and solid I's, E, F and symbol pairs), and the class examples set against
// the fixture fonts. Glyph draws in ink-box positions: box (x, y) is picture
// (x + 2, y + 2).
#include "image_operations/style_classes.h"

#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "feature_vector_core.h"
#include "image_operations/curviness_direction.h"
#include "image_operations/slant_stroke.h"
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

// An angular o 41 wide, symmetric about column 20: a foot and a head coming
// to a V (half-width tip + j at j rows from the point) and ten rows of
// straight sides; strokes 8 thick along every row.
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

// A round o: a ring of stroke 8, outer radius 20.
Picture roundO() {
  Picture p(46, 46);
  p.fillEllipse(22, 22, 20, 20);
  p.fillEllipse(22, 22, 12, 12, kWhite);
  return p;
}

// A round C: an elliptical ring (radii 20 by 30, stroke 8 across the middle)
// opened on the right over the rows within 27 of the centre; `cut` clears
// picture columns 11..13 through the top and bottom arcs.
Picture roundC(bool cut = false) {
  Picture p(46, 66);
  p.fillEllipse(22, 32, 20, 30);
  p.fillEllipse(22, 32, 12, 22, kWhite);
  p.fillRect(23, 5, 45, 59, kWhite);
  if (cut) p.fillRect(11, 0, 13, 65, kWhite);
  return p;
}

// A segmented C, box 30 by 61: bars on rows 0..7 and 53..60, and a left side
// of two segments 8 wide tapering by a pixel each side per row (6, 4, 2)
// towards a blank row 30.
Picture segmentedC(bool closed = false) {
  Glyph g = glyph(30, 61, {{10, 0, 29, 7}, {10, 53, 29, 60}, {0, 9, 7, 26}, {1, 27, 6, 27},
                           {2, 28, 5, 28}, {3, 29, 4, 29}, {3, 31, 4, 31}, {2, 32, 5, 32},
                           {1, 33, 6, 33}, {0, 34, 7, 51}});
  if (closed) g.rect(22, 9, 29, 51);
  return g.pic;
}

// An I drawn as its outline, box 20 by 40, walls `wall` thick.
Picture outlineI(int wall) {
  return glyph(20, 40, {{0, 0, 19, 39}, {wall, wall, 19 - wall, 39 - wall, 0}}).pic;
}

// F in a 20 by 30 box: stem columns 0..3, top bar rows 0..3, middle bar to
// column 15 on rows 13..16. E adds a bottom bar on rows 26..29.
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
      // T crossings: rows 24 up to 39 of the lower half (isToph 0), rows 3
      // up to 10 (isToph 1), mean colour changes a row in floats.
      {"a stem: 2 a row", stem.pic, tCrossings(0), 2},
      // (15 * 2 + 3 * 2) / 15 = 2.4 in floats: just above 2.4, which the
      // sequence's threshold lets through.
      {"a stroke beside the stem", crossed.pic, tCrossings(0), (double)2.4f},
      {"two stems above", forked.pic, tCrossings(1), 4},
      {"one stem below", forked.pic, tCrossings(0), 2},
      {"blank T", Picture(20, 20), tCrossings(0), 0},
      // Blackletter bowl: the share of ink below the lines from the foot's
      // point along its flanks. Tip 0: the flanks run along the outer edge.
      {"pointed foot: no ink outside the V", angularO(0), blackletter, 0},
      // At or above the lines: left half 8 a row for 13 rows then 20 - j'
      // for 7 (132), the right half its mirror plus column 20 (140).
      {"a stray mark below the flank: 4 of 276", strayMark, blackletter, 4.0 / 276},
      // Tip 2: a rise of 18 over a run of 20 truncates to slope 0: flat.
      {"foot flatter than 45 degrees", angularO(2), blackletter, 1},
      // The ring's flanks rise 8 over a run of 16: slope 0.
      {"round bowl", roundO(), blackletter, 1},
      // Middle lines cross one stroke (mean 2 < 3.5): two issues.
      {"solid block", glyph(30, 30, {{0, 0, 29, 29}}).pic, blackletter, 1},
      {"blank bowl", Picture(20, 20), blackletter, 1},
      // Stencil: a column or row with no ink across the strokes.
      {"whole C", roundC(), getStencilsFont, 0},
      {"C cut through both arcs", roundC(true), getStencilsFont, 1},
      {"stem cut across: the row pass", glyph(8, 40, {{0, 0, 7, 17}, {0, 21, 7, 39}}).pic,
       getStencilsFont, 1},
      // Column 10 sums 0.0196 after columns of 20: 0.0196 / 20 < 0.05 with
      // nothing above 0.5. Dark: no gap, and the rows' minimum (20 after
      // 20.61) is no fall below 5 %.
      {"faint bridge still a gap", faintBridge, getStencilsFont, 1},
      {"dark bridge", darkBridge, getStencilsFont, 0},
      {"blank: one white column", Picture(20, 20), getStencilsFont, 1},
      // Digital: middle rows 18..41 cross the left side only in runs 8, 6,
      // 4, 2, blank, 2, 4, 6, 8: 2 / 8 narrowing and widening again.
      {"segmented C", segmentedC(), digital, 1},
      {"a bar: no diagonal step on its outline", glyph(8, 40, {{0, 0, 7, 39}}).pic, digital, 0},
      {"blank digital: 0 / 0", Picture(20, 20), digital, NAN},
      // Hollow: rows and columns showing ink, white, ink with at most half
      // their length inked count, lines more than half inked count against.
      // Walls 2: rows 36 - 4, columns 16 - 4, over 20 + 40.
      {"outline I", outlineI(2), getHollowFont, 44.0 / 60},
      {"solid I: below 0 becomes 0", glyph(20, 40, {{0, 0, 19, 39}}).pic, getHollowFont, 0},
      // Walls 6: inner rows carry 12 > 10 and cancel; columns 8 - 12.
      {"heavy walls", outlineI(6), getHollowFont, 0},
      {"blank hollow", Picture(20, 20), getHollowFont, 0},
      {"dark share: all black", Picture(10, 10, kBlack), percentDarkPixels, 1},
      {"dark share above 0.7: 4 of 6", mixed, percentDarkPixels, 4.0 / 6},
      {"blank dark share: 0 / 0", Picture(10, 10), percentDarkPixels, NAN},
  };
  for (const Row& r : rows) {
    double got = measureDrawn(r.pic, r.measure);
    if (std::isnan(r.expected))
      EXPECT_TRUE(std::isnan(got)) << r.why << ": " << got;
    else
      EXPECT_DOUBLE_EQ(got, r.expected) << r.why;
  }
  int i = 0;
  for (const Measure& m : {tCrossings(0), Measure(blackletter), Measure(getStencilsFont),
                           Measure(digital), Measure(getHollowFont), Measure(percentDarkPixels)})
    EXPECT_EQ(m("/nonexistent/absent.png"), 0.0) << "missing file, measure " << i++;
}

TEST(StyleClasses, DigitalFallsBackOnTheContourWalk) {
  TempDir dir;
  // The round C keeps 8 or 9 pixels through the middle rows; the C closed
  // by a right side has a second run there: both are no segments.
  for (const Picture& p : {roundC(), segmentedC(true)}) {
    std::string f = savePicture(dir, p);
    double v = getDigitalFont(f.c_str(), 0.0);
    EXPECT_EQ(v, curviness_borderPath(f.c_str(), 0.0, 1));
    EXPECT_GT(v, 0.0);
    EXPECT_LT(v, 1.0);
  }
}

TEST(StyleClasses, SymbolPairsDifferByTheirInkSymmetricDifference) {
  TempDir dir;
  std::string f = savePicture(dir, "F.png", glyph(20, 30, kF).pic);
  Glyph e = glyph(20, 30, kF);
  e.rect(0, 26, 19, 29);
  std::string E = savePicture(dir, "E.png", e.pic);
  // A plus: F's 232 ink and its 184 share 80: 232 + 184 - 160 = 256 differ.
  std::string plus = savePicture(dir, "plus.png", glyph(20, 30, {{8, 0, 11, 29}, {0, 13, 19, 16}}).pic);
  // F mirrored: read mirrored it is F again; as it is, rows 13..16 differ on
  // 8 columns and the 22 other rows below the bar on 8: 208.
  std::string mirrored = savePicture(dir, "m.png", glyph(20, 30, {{16, 0, 19, 29}, {0, 0, 19, 3}, {4, 13, 19, 16}}).pic);
  std::string blank = savePicture(dir, "blank.png", Picture(20, 20));
  std::string none = dir.file("absent.png");
  struct {
    const std::string &a, &b;
    int reverse;
    double expected;
    const char* why;
  } rows[] = {{f, E, 0, 64.0 / 600, "E's bottom bar right of the stem: 16 * 4"},
              {f, f, 0, 0, "same"},
              {f, plus, 0, 256.0 / 600, "a plus"},
              {f, mirrored, 1, 0, "mirrored, read reversed"},
              {f, mirrored, 0, 208.0 / 600, "mirrored, read as it is"},
              {blank, blank, 0, 0, "blank"},
              {none, f, 0, 0, "first missing"},
              {f, none, 0, 0, "second missing"}};
  for (const auto& r : rows)
    EXPECT_DOUBLE_EQ(getSymbolFont(r.a.c_str(), r.b.c_str(), r.reverse), r.expected) << r.why;
}

// The font's slant and the means of a measure over some letters as the
// measurement sequence forms them.
TEST(StyleClasses, ClassExamplesScoreOnTheClassSideOfTextFonts) {
  REQUIRE_FIXTURES();
  TempDir dir;
  const double stencil = getStencilsFont(savePicture(dir, "c.png", roundC(true)).c_str());
  const double digit = getDigitalFont(savePicture(dir, "s.png", segmentedC()).c_str(), 0.0);
  const double hollow = getHollowFont(savePicture(dir, "i.png", outlineI(2)).c_str());
  const double angular = getBlackletterness(savePicture(dir, "o.png", angularO(0)).c_str(), 1);
  for (const char* font : {"DejaVuSans", "DejaVuSans-Oblique", "LiberationSerif",
                           "LiberationMono"}) {
    SCOPED_TRACE(font);
    const std::string images = testsupport::fixturesDir() + "/" + font + "/Images/";
    auto mean = [&](std::vector<const char*> names, Measure m) {
      double sum = 0;
      for (const char* n : names) sum += m((images + n + ".png").c_str());
      return sum / names.size();
    };
    double s[9], *p = s;
    for (const char* n : {"72-H", "73-I", "77-M", "78-N", "104-h", "105-i", "108-l", "109-m", "110-n"})
      *p++ = calculateSkew((images + n + ".png").c_str());
    const double skew = skewFromStems(s);
    EXPECT_GT(stencil, mean({"66-B", "67-C", "68-D", "69-E", "70-F", "79-O", "111-o", "80-P",
                             "99-c", "98-b", "100-d", "112-p", "113-q"},
                            getStencilsFont));
    EXPECT_GT(digit, mean({"67-C", "99-c", "79-O", "111-o", "68-D", "69-E"},
                          [skew](const char* f) { return getDigitalFont(f, skew); }));
    EXPECT_GT(hollow, mean({"73-I", "105-i", "108-l", "69-E", "70-F"}, getHollowFont));
    EXPECT_LT(angular, getBlackletterness((images + "111-olar.png").c_str(), 1));
    EXPECT_LT(testTforBlackletter((images + "84-T.png").c_str(), 0), 2.4);
  }
}
