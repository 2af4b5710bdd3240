// Serif measurements of drawn letters as PNG files; Glyph draws in box positions.
#include "image_operations/serifs.h"

#include <gtest/gtest.h>
#include <math.h>

#include <array>
#include <functional>
#include <string>

#include "support/test_support.h"

using testsupport::expectMeasured;
using testsupport::Glyph;
using testsupport::greyPixel;
using testsupport::kBlack;
using testsupport::measureDrawn;
using testsupport::Picture;
using testsupport::TempDir;

namespace {

using Measure = std::function<double(const char*)>;


// A glyph of box w x h from rectangles {x0, y0, x1, y1} in box positions.
Glyph glyph(int w, int h, std::initializer_list<std::array<int, 4>> list) {
  Glyph g(w, h);
  for (auto r : list) g.rect(r[0], r[1], r[2], r[3]);
  return g;
}

// An I of a stem of `stem` whose bottom four rows widen to `foot`.
Picture footedI(int stem, int foot) {
  const int left = (foot - stem) / 2;
  return glyph(foot, 40, {{left, 0, left + stem - 1, 39}, {0, 36, foot - 1, 39}}).pic;
}

// h with serifs of 4 rows and fillets of 3, 2, 1 pixels beside the left stem.
Picture serifH() {
  Glyph g = glyph(64, 64, {{6, 0, 13, 63}, {14, 24, 57, 31}, {50, 24, 57, 63}, {0, 60, 19, 63},
                           {44, 60, 63, 63}, {0, 0, 13, 3}});
  for (int k = 1; k <= 3; k++) {
    g.rect(6 - k, 56 + k, 6 - k, 59);
    g.rect(6 - k, 4, 6 - k, 7 - k);
  }
  return g.pic;
}
Picture sansH() { return glyph(58, 64, {{0, 0, 7, 63}, {8, 24, 51, 31}, {44, 24, 51, 63}}).pic; }

// h whose wedge column x is inked from 8 - x (a dent at 3) to 12 - x / 2.
Picture wedgeH(bool smooth) {
  Glyph g = glyph(48, 64, {{8, 0, 15, 63}, {16, 24, 45, 31}, {40, 24, 47, 63}});
  for (int x = 0; x <= 7; x++) {
    int top = x == 3 ? 6 : 8 - x, bottom = 12 - x / 2;
    g.rect(x, top, x, bottom);
    if (smooth) g.set(x, top, greyPixel(40 + 10 * x));
    if (smooth) g.set(x, bottom, greyPixel(100 + 10 * x));
  }
  return g.pic;
}

// Ascender with a stem at 6..13; column x of 0..5 has `heights[x]` ink rows.
Picture ascender(std::array<int, 6> heights, uint32_t colour1 = kBlack) {
  Glyph g = glyph(14, 60, {{6, 0, 13, 59}});
  for (int x = 0; x <= 5; x++)
    if (heights[x] > 0) g.rect(x, 0, x, heights[x] - 1, x == 1 ? colour1 : kBlack);
  return g.pic;
}

// A stroke 6 wide rising a pixel a row; `foot` adds a slab on its bottom rows.
Picture risingStroke(bool foot) {
  Glyph g(25, 20);
  g.pic.fillSheared(2, 7, 2, 21, 1);
  if (foot) g.rect(0, 17, 9, 19);
  return g.pic;
}

// A foot swelling to the lower right: rows of 3, then 11, 10, 9, 8, 6, 4.
Picture swellingFoot() {
  Glyph g(12, 12);
  const int r[12] = {3, 3, 3, 3, 3, 3, 11, 10, 9, 8, 6, 4};
  for (int y = 0; y < 12; y++) g.rect(0, y, r[y], y);
  return g.pic;
}

// An a: a bowl block, a stem 26..33 and a tail of 6, 4, 3, 2 rows after it.
Picture flaredA() {
  Glyph g = glyph(38, 40, {{0, 20, 15, 39}, {26, 0, 33, 39}});
  const int tail[4] = {6, 4, 3, 2};
  for (int k = 0; k < 4; k++) g.rect(34 + k, 40 - tail[k], 34 + k, 39);
  return g.pic;
}

Measure widening(int top) { return [=](const char* f) { return getFontSerifInfo(f, top); }; }
Measure diagonal(int mode) { return [=](const char* f) { return getDiagonalSerifs(f, mode); }; }
Measure flare(double skew) { return [=](const char* f) { return getFlaredStems(f, skew); }; }

}  // namespace

TEST(SerifMeasures, HandWorkedValuesOfDrawnLetters) {
  expectMeasured({
      // Widening: widest run of the serif zone over the stem's median, less 1.
      {"L head serif 18 over 8",
       glyph(30, 40, {{4, 0, 11, 39}, {0, 34, 29, 39}, {0, 0, 17, 3}}).pic, widening(1), 1.25},
      {"foot 2 wider: 10 / 8 - 1", footedI(8, 10), widening(0), 0.25},
      {"foot exactly 1 wider", footedI(8, 9), widening(0), 0},
      {"narrow stem 3, foot 5: not 3 wider", footedI(3, 5), widening(0), 0},
      {"narrow stem 3, foot 6", footedI(3, 6), widening(0), 1},
      // Ascender unevenness: mean deviation of the ink of columns 1..5, rows 1..19.
      {"no serif: column 1 is the stem", glyph(8, 60, {{0, 0, 7, 59}}).pic, AscenderStdDvSerifness,
       0},
      {"2, 3, 4, 5, 6: deviations 6 over 5", ascender({2, 3, 4, 5, 6, 7}),
       AscenderStdDvSerifness, 1.2},
      // Column 1 at darkness 0.2 is passed over: 3, 4, 5, 6 around 4.5.
      {"faint first column left out", ascender({2, 3, 4, 5, 6, 7}, greyPixel(204)),
       AscenderStdDvSerifness, 1.0},
      {"empty column counts 0: 4 * 0.8 + 3.2 over 5", ascender({5, 5, 5, 0, 5, 5}),
       AscenderStdDvSerifness, 1.28},
      // Diagonal feet (1.5 is "no diagonal"): the climb runs along the edge.
      {"straight diagonal: no ink beyond", risingStroke(false), diagonal(1), 0},
      // Line (4,11)-(11,6): five pixels beyond at 2, 4, 1, 6, 3 / sqrt(74).
      {"swelling foot", swellingFoot(), diagonal(1), 16.0 / (5 * sqrt(74.0))},
      {"right of W / 2 + 4 only: climb too short", swellingFoot(), diagonal(0), 1.5},
      {"slab foot: two straight rows given back", risingStroke(true), diagonal(1), 1.5},
      // Flare: columns 34..36 rise 6, 4, 3 rows, under H / 3: 2 * 13 / (40 * 38).
      {"flare", flaredA(), flare(0), 26.0 / 1520},
  });
  const char* none = "/nonexistent.png";
  for (const Measure& m : {widening(0), Measure(AscenderStdDvSerifness), diagonal(0), flare(0)})
    EXPECT_EQ(m(none), 0.0) << "missing file";
}

// Each half adds its bracket columns' ink deviation and mean ink to the outputs.
TEST(SerifMeasures, BracketsAddTheirUnevennessAndGreyToTheOutputs) {
  struct Row {
    const char* why;
    Picture pic;
    double preStd, preGrey, stdDev, grey;
  } rows[] = {
      // Columns hold 4, 4, 5, 6, 7: deviation 1.04 a half, mean 5.2 over 7 rows.
      {"fillets added to the presets", serifH(), 1, 0.5, 3.08, 0.5 + 2 * 5.2 / 7},
      {"no serifs: column 1 is the stem", sansH(), 0.25, 0.75, 0.25, 0.75},
  };
  for (const Row& r : rows) {
    double s = r.preStd, g = r.preGrey;
    EXPECT_EQ(measureDrawn(r.pic, [&](const char* f) { return subSerifType(f, 0, &s, &g); }), 0.0);
    EXPECT_NEAR(s, r.stdDev, 1e-12) << r.why;
    EXPECT_NEAR(g, r.grey, 1e-12) << r.why;
  }
  TempDir dir;
  double s = 0.25, g = 0.75;
  EXPECT_EQ(subSerifType(dir.file("absent.png").c_str(), 3.0, &s, &g), 0.0);
  EXPECT_EQ(s + g, 1.0);
}

TEST(SerifMeasures, HeadWedgeSlopesAndFitsOrThePresets) {
  const double P = 7.0;  // the preset: left alone
  struct Row {
    const char* why;
    Picture pic;
    double want[4];  // angle top, angle bottom, fit top, fit bottom
  } rows[] = {
      // Lines (0,8)-(7,1) and (0,12)-(7,9); fits 1 / sqrt 2 and 12 / sqrt 58 over 72.
      {"smooth wedge", wedgeH(true), {1, 3.0 / 7, 1 / sqrt(2.0) / 72, 12 / sqrt(58.0) / 72}},
      // Edges of one darkness (more than 0.8 * 7 alike) count as flat.
      {"black wedge", wedgeH(false), {0, 0, 0, 0}},
      {"no wedge: no under-edge point", sansH(), {P, P, P, P}},
  };
  for (const Row& r : rows) {
    double w[4] = {P, P, P, P};
    auto wedge = [&](const char* f) { return WedgeSerifType(f, w, w + 1, w + 2, w + 3); };
    EXPECT_EQ(measureDrawn(r.pic, wedge), 0.0);
    for (int i = 0; i < 4; i++) EXPECT_NEAR(w[i], r.want[i], 1e-12) << r.why << " " << i;
  }
  TempDir dir;
  double w[4] = {P, P, P, P};
  EXPECT_EQ(WedgeSerifType(dir.file("absent.png").c_str(), w, w + 1, w + 2, w + 3), 0.0);
  EXPECT_EQ(w[0] + w[1] + w[2] + w[3], 4 * P);
}
