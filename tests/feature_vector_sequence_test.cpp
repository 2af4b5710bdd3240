// The arithmetic of the measurement sequence: how single results are
// trimmed, stepped, capped and combined into the record's judgements.
#include <gtest/gtest.h>
#include <math.h>

#include "feature_vector_core.h"

TEST(SkewFromStems, DropsTheExtremesAndRoundsHalfAwayFromZero) {
  // One outlier of 40 among zeros is trimmed away.
  double outlier[9] = {0, 0, 0, 40, 0, 0, 0, 0, 0};
  EXPECT_EQ(skewFromStems(outlier), 0.0);

  // Mean of the middle seven -0.4: -0.4 - 0.5 = -0.9 truncates to 0.
  double small[9] = {-9, -0.4, -0.4, -0.4, -0.4, -0.4, -0.4, -0.4, 9};
  EXPECT_EQ(skewFromStems(small), 0.0);

  // Mean 0.5: 0.5 + 0.5 = 1.0 gives 1.
  double half[9] = {0.5, 0.5, 0.5, 0.5, 0.5, 0.5, 0.5, -20, 20};
  EXPECT_EQ(skewFromStems(half), 1.0);

  // An oblique font: 13 13 13 11 11 12 12 11 11 -> middle seven sum 84,
  // mean 12, +0.5 -> 12.
  double oblique[9] = {13, 13, 13, 11, 11, 12, 12, 11, 11};
  EXPECT_EQ(skewFromStems(oblique), 12.0);

  // Negative means round away from zero too: mean -1.5 - 0.5 = -2.
  double left[9] = {-1.5, -1.5, -1.5, -1.5, -1.5, -1.5, -1.5, -1.5, -1.5};
  EXPECT_EQ(skewFromStems(left), -2.0);
}

TEST(SerifClass, KeepsLowValuesAndCoarsensHighOnes) {
  EXPECT_EQ(serifClass(-0.5), 0.0);
  EXPECT_EQ(serifClass(0.0), 0.0);
  EXPECT_EQ(serifClass(1.25), 1.25);
  EXPECT_EQ(serifClass(2.0), 2.0);
  EXPECT_EQ(serifClass(2.01), 2.0);
  EXPECT_EQ(serifClass(3.0), 2.0);
  EXPECT_EQ(serifClass(3.5), 3.0);
  EXPECT_EQ(serifClass(4.0), 3.0);
  EXPECT_EQ(serifClass(4.01), 4.0);
}

TEST(AllCapsClass, DistinguishesTheFourKindsOfLowerCase) {
  EXPECT_EQ(allCapsClass(0.49, 1.0, 1.0), 1.0);   // distinct lower case
  EXPECT_EQ(allCapsClass(0.5, 0.7, 0.0), 2.0);    // capital forms, smaller
  EXPECT_EQ(allCapsClass(0.8, 1.0, 0.0), 3.0);    // capital forms, full size
  EXPECT_EQ(allCapsClass(0.8, 0.96, 0.0), 2.0);   // bounds are exclusive
  EXPECT_EQ(allCapsClass(0.8, 1.04, 0.0), 2.0);
  EXPECT_EQ(allCapsClass(0.8, 1.0, 0.3), 0.0);    // a dotted i remains
}

TEST(SymbolFontValue, SameCentresOrAlikeLettersMeanSymbols) {
  EXPECT_EQ(symbolFontValue(0.05, 0.2, 3, 0.9, 10), 10.0);
  EXPECT_EQ(symbolFontValue(5.0, 0.0, 3, 0.9, 10), 10.0);
  // 0.2 * 2 * 0.5^4 * 8 / 2 = 0.2 * 2 * 0.0625 * 4 = 0.1
  EXPECT_DOUBLE_EQ(symbolFontValue(5.0, 0.2, 2, 0.5, 8), 0.1);
  // 1 * 4 * 1 * 20 / 2 = 40, capped.
  EXPECT_EQ(symbolFontValue(5.0, 1.0, 4, 1.0, 20), 10.0);
}

namespace {

// A record and signs that pass every test against blackletter, so that one
// changed input at a time shows which tests trip.
struct BlackLetterCase {
  FONT_DATA fd = {};
  BlackLetterSigns signs = {};
  BlackLetterCase() {
    fd.Contrast = 5.0;
    fd.isSerifFont = 1.0;
    fd.SelCurviness = 0.3;
    fd.stressAngle = -10.0;
    fd.isDarkPix = 0.8;
    fd.isSymbolFont = 1.0;
    fd.isAllCaps = 1.0;
    signs.blackness = 0.05;
    signs.edginess = 5.0;
    signs.diagonalnessX = 0.5;
    signs.skew = 1.0;
    signs.isConnected = 1.0;
    signs.freeHand = 0.1;
    signs.avggrey = 0.4;
  }
  double value() const { return blackLetterValue(&fd, signs); }
};

}  // namespace

TEST(BlackLetterValue, BlacknessStandsWhenNoSignHolds) {
  BlackLetterCase c;
  EXPECT_EQ(c.value(), 0.05);
  // Boundaries that do not trip: connected exactly 0.97, skew exactly 13.
  c.signs.isConnected = 0.97;
  c.signs.skew = 13.0;
  EXPECT_EQ(c.value(), 0.05);
}

TEST(BlackLetterValue, EachSignOnItsOwnRulesBlackletterOut) {
  struct Trip {
    const char* what;
    void (*apply)(BlackLetterCase&);
  };
  const Trip trips[] = {
      {"edgy and black", [](BlackLetterCase& c) { c.signs.edginess = 9.5; c.signs.blackness = 0.11; c.signs.freeHand = 0.1; }},
      {"very edgy", [](BlackLetterCase& c) { c.signs.edginess = 12.5; }},
      {"very black", [](BlackLetterCase& c) { c.signs.blackness = 0.51; }},
      {"diagonal feet", [](BlackLetterCase& c) { c.signs.diagonalnessX = 0.73; }},
      {"high contrast", [](BlackLetterCase& c) { c.fd.Contrast = 12.5; }},
      {"no serifs", [](BlackLetterCase& c) { c.fd.isSerifFont = 0.4; }},
      {"too straight", [](BlackLetterCase& c) { c.fd.SelCurviness = 0.19; }},
      {"too curvy", [](BlackLetterCase& c) { c.fd.SelCurviness = 0.41; }},
      {"glyphs touch", [](BlackLetterCase& c) { c.signs.isConnected = 0.96; }},
      {"upright stress", [](BlackLetterCase& c) { c.fd.stressAngle = -3.0; }},
      {"slanted", [](BlackLetterCase& c) { c.signs.skew = 13.5; }},
      {"light", [](BlackLetterCase& c) { c.fd.isDarkPix = 0.59; }},
      {"pale free hand", [](BlackLetterCase& c) { c.signs.avggrey = 0.29; c.signs.freeHand = 0.18; }},
      {"black free hand", [](BlackLetterCase& c) { c.signs.blackness = 0.11; c.signs.freeHand = 0.18; }},
      {"symbol", [](BlackLetterCase& c) { c.fd.isSymbolFont = 1.6; }},
      {"capitals", [](BlackLetterCase& c) { c.fd.isAllCaps = 2.0; }},
      {"full capitals", [](BlackLetterCase& c) { c.fd.isAllCaps = 3.0; }},
  };
  for (const Trip& t : trips) {
    BlackLetterCase c;
    t.apply(c);
    EXPECT_EQ(c.value(), 1.0) << t.what;
  }
  // The paired signs need both halves.
  BlackLetterCase edgyOnly;
  edgyOnly.signs.edginess = 9.5;
  EXPECT_EQ(edgyOnly.value(), 0.05);
  BlackLetterCase freeOnly;
  freeOnly.signs.freeHand = 0.18;
  EXPECT_EQ(freeOnly.value(), 0.05);
}
