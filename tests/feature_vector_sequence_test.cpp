// How the measurement sequence trims, steps, caps and combines single results.
#include <gtest/gtest.h>
#include <math.h>

#include <vector>

#include "feature_vector_core.h"

TEST(SequenceArithmetic, SkewDropsTheExtremesAndRoundsHalfAwayFromZero) {
  struct { std::vector<double> skews; double expected; const char* why; } rows[] = {
      {{-9, -0.4, -0.4, -0.4, -0.4, -0.4, -0.4, -0.4, 9}, 0, "-0.4 - 0.5 truncates to 0"},
      {{0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, -20, 20}, 1, "extremes dropped, 0.5 + 0.5"},
      {{-1.5, -1.5, -1.5, -1.5, -1.5, -1.5, -1.5, -1.5, -1.5}, -2, "-1.5 - 0.5"},
  };
  for (auto& r : rows) EXPECT_EQ(skewFromStems(r.skews.data()), r.expected) << r.why;
}

TEST(SequenceArithmetic, SerifAllCapsAndSymbolClasses) {
  // Serif: low values kept, high ones coarsened in steps.
  const double serif[][2] = {{-0.5, 0}, {0, 0},   {1.25, 1.25}, {2, 2},  {2.01, 2},
                             {3, 2},    {3.5, 3}, {4, 3},       {4.01, 4}};
  for (auto& s : serif) EXPECT_EQ(serifClass(s[0]), s[1]) << s[0];

  struct {
    double meanAllCaps, corpusRatio, smalli, expected;
    const char* why;
  } caps[] = {{0.49, 1.0, 1.0, 1, "distinct lower case"},
              {0.5, 0.7, 0.0, 2, "capital forms, smaller"},
              {0.8, 1.0, 0.0, 3, "capital forms, full size"},
              {0.8, 0.96, 0.0, 2, "size bounds are exclusive"},
              {0.8, 1.04, 0.0, 2, "upper bound"},
              {0.8, 1.0, 0.3, 0, "a dotted i remains"}};
  for (auto& c : caps)
    EXPECT_EQ(allCapsClass(c.meanAllCaps, c.corpusRatio, c.smalli), c.expected) << c.why;

  struct {
    double boxes, diff, intersections, ratio, avgX, expected;
    const char* why;
  } symbols[] = {{0.05, 0.2, 3, 0.9, 10, 10, "same centres"},
                 {5.0, 0.0, 3, 0.9, 10, 10, "alike letters"},
                 {5.0, 0.2, 2, 0.5, 8, 0.1, "0.2 * 2 * 0.5^4 * 8 / 2"},
                 {5.0, 1.0, 4, 1.0, 20, 10, "1 * 4 * 1 * 20 / 2 = 40, capped"}};
  for (auto& s : symbols)
    EXPECT_DOUBLE_EQ(symbolFontValue(s.boxes, s.diff, s.intersections, s.ratio, s.avgX),
                     s.expected)
        << s.why;
}

namespace {

// A record and signs that pass every test against blackletter.
struct BlackLetterCase {
  FONT_DATA fd = {};
  BlackLetterSigns signs = {0.05, 5.0, 0.5, 1.0, 1.0, 0.1, 0.4};
  BlackLetterCase() {
    fd.Contrast = 5.0;
    fd.isSerifFont = 1.0;
    fd.SelCurviness = 0.3;
    fd.stressAngle = -10.0;
    fd.isDarkPix = 0.8;
    fd.isSymbolFont = 1.0;
    fd.isAllCaps = 1.0;
  }
};

}  // namespace

// The blackness stands unless one sign (or both halves of a pair) gives 1.0.
TEST(SequenceArithmetic, EachSignOnItsOwnRulesBlackletterOut) {
  using C = BlackLetterCase&;
  struct { const char* what; void (*apply)(C); double expected; } rows[] = {
      {"no sign", [](C) {}, 0.05},
      {"boundaries: connected 0.97, skew 13",
       [](C c) { c.signs.isConnected = 0.97; c.signs.skew = 13.0; }, 0.05},
      {"edgy alone", [](C c) { c.signs.edginess = 9.5; }, 0.05},
      {"free hand alone", [](C c) { c.signs.freeHand = 0.18; }, 0.05},
      {"edgy and black", [](C c) { c.signs.edginess = 9.5; c.signs.blackness = 0.11; }, 1},
      {"very edgy", [](C c) { c.signs.edginess = 12.5; }, 1},
      {"very black", [](C c) { c.signs.blackness = 0.51; }, 1},
      {"diagonal feet", [](C c) { c.signs.diagonalnessX = 0.73; }, 1},
      {"high contrast", [](C c) { c.fd.Contrast = 12.5; }, 1},
      {"no serifs", [](C c) { c.fd.isSerifFont = 0.4; }, 1},
      {"too straight", [](C c) { c.fd.SelCurviness = 0.19; }, 1},
      {"too curvy", [](C c) { c.fd.SelCurviness = 0.41; }, 1},
      {"glyphs touch", [](C c) { c.signs.isConnected = 0.96; }, 1},
      {"upright stress", [](C c) { c.fd.stressAngle = -3.0; }, 1},
      {"slanted", [](C c) { c.signs.skew = 13.5; }, 1},
      {"light", [](C c) { c.fd.isDarkPix = 0.59; }, 1},
      {"pale free hand", [](C c) { c.signs.avggrey = 0.29; c.signs.freeHand = 0.18; }, 1},
      {"black free hand", [](C c) { c.signs.blackness = 0.11; c.signs.freeHand = 0.18; }, 1},
      {"symbol", [](C c) { c.fd.isSymbolFont = 1.6; }, 1},
      {"capitals", [](C c) { c.fd.isAllCaps = 2.0; }, 1},
      {"full capitals", [](C c) { c.fd.isAllCaps = 3.0; }, 1},
  };
  for (auto& r : rows) {
    BlackLetterCase c;
    r.apply(c);
    EXPECT_EQ(blackLetterValue(&c.fd, c.signs), r.expected) << r.what;
  }
}
