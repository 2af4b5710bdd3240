// Style-class detectors on synthetic letters written as real PNG files (a
// stem and a T, angular and round o's, C's whole, cut and segmented, outline
// and solid I's, E, F and symbol pairs), and the class examples set against
// the fixture fonts. Letters are drawn with their ink box's top-left corner
// at (2, 2), so box position (x, y) is picture position (x + 2, y + 2).
#include "image_operations/style_classes.h"

#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <string>
#include <vector>

#include "image_operations/curviness_direction.h"
#include "image_operations/slant_stroke.h"
#include "support/test_support.h"

using testsupport::kBlack;
using testsupport::kWhite;
using testsupport::Picture;
using testsupport::Glyph;
using testsupport::greyPixel;
using testsupport::TempDir;
using testsupport::writePicture;

namespace {

// Pictures written into one temporary folder.
struct Files {
  TempDir dir;
  std::string write(const std::string& name, const Picture& picture) {
    std::string path = dir.file(name + ".png");
    writePicture(path, picture);
    return path;
  }
  std::string missing() const { return dir.file("absent.png"); }
};

// --- o's ------------------------------------------------------------------

// An angular o 41 wide, symmetric about column 20: a foot and a head that
// come to a V, rows of half-width tip + j at j rows from the point, until
// they span the box (at j = 20 - tip), and ten rows of straight sides
// between. The counter keeps the strokes 8 pixels thick along every row.
Glyph angularO(int tip) {
  const int depth = 21 - tip;  // rows of each V
  const int H = 2 * depth + 10;
  Glyph g(41, H);
  for (int y = 0; y < H; y++) {
    int j = std::min(std::min(y, H - 1 - y), depth - 1);
    if (y >= depth && y < H - depth) j = 20 - tip;  // the straight sides
    int left = 20 - tip - j, right = 20 + tip + j;
    g.rect(left, y, right, y);
    if (left + 8 <= right - 8) g.rect(left + 8, y, right - 8, y, kWhite);
  }
  return g;
}

// A round o: a ring of even stroke 8, outer radius 20.
Picture roundO() {
  Picture p(46, 46);
  p.fillEllipse(22, 22, 20, 20);
  p.fillEllipse(22, 22, 12, 12, kWhite);
  return p;
}

// --- C's ------------------------------------------------------------------

// A round C: an elliptical ring (radii 20 by 30, stroke 8 across the middle)
// opened on the right over the rows within 27 of the centre. Ink box 21 by
// 61, picture columns 2..22.
Picture roundC() {
  Picture p(46, 66);
  p.fillEllipse(22, 32, 20, 30);
  p.fillEllipse(22, 32, 12, 22, kWhite);
  p.fillRect(23, 5, 45, 59, kWhite);
  return p;
}

// A segmented C, box 30 by 61: top and bottom bars on rows 0..7 and 53..60,
// and the left side of two vertical segments 8 wide whose ends taper by a
// pixel each side per row (6, 4, 2) towards a blank row 30 between them.
Glyph segmentedC() {
  Glyph g(30, 61);
  g.rect(10, 0, 29, 7);
  g.rect(10, 53, 29, 60);
  g.rect(0, 9, 7, 26);
  g.rect(1, 27, 6, 27);
  g.rect(2, 28, 5, 28);
  g.rect(3, 29, 4, 29);
  g.rect(3, 31, 4, 31);
  g.rect(2, 32, 5, 32);
  g.rect(1, 33, 6, 33);
  g.rect(0, 34, 7, 51);
  return g;
}

// --- E and F --------------------------------------------------------------

// F in a 20 by 30 box: stem columns 0..3, top bar rows 0..3, middle bar
// columns 0..15 on rows 13..16. E adds a bottom bar on rows 26..29.
Glyph letterF() {
  Glyph g(20, 30);
  g.rect(0, 0, 3, 29);
  g.rect(0, 0, 19, 3);
  g.rect(0, 13, 15, 16);
  return g;
}

Glyph letterE() {
  Glyph g = letterF();
  g.rect(0, 26, 19, 29);
  return g;
}

// --- the T crossing count -------------------------------------------------

TEST(StyleClassesTest, TCrossingsCountTwoPerStemRowAndSinglePrecisionMeans) {
  Files files;
  // Picture 30 by 42 (box 25 by 37 plus the margins): rows 24 up to 39 of
  // the lower half are scanned for isToph 0, rows 3 up to 10 for isToph 1.
  Glyph stem(25, 37);
  stem.rect(8, 0, 15, 36);
  EXPECT_EQ(2.0, testTforBlackletter(files.write("stem", stem.pic).c_str(), 0));

  // A second stroke beside the stem on picture rows 24..26, three of the 15
  // rows: (15 * 2 + 3 * 2) / 15 = 2.4, in floats.
  Glyph crossed = stem;
  crossed.rect(19, 22, 22, 24);
  double v =
      testTforBlackletter(files.write("crossed", crossed.pic).c_str(), 0);
  EXPECT_EQ((double)2.4f, v);
  EXPECT_GE(v, 2.4);  // the sequence's threshold lets exactly 2.4 through

  // Two stems in the upper rows only: isToph 1 sees 4 changes a row, isToph
  // 0 the single stem below.
  Glyph forked = stem;
  forked.rect(19, 0, 22, 10);
  std::string path = files.write("forked", forked.pic);
  EXPECT_EQ(4.0, testTforBlackletter(path.c_str(), 1));
  EXPECT_EQ(2.0, testTforBlackletter(path.c_str(), 0));
}

TEST(StyleClassesTest, TCrossingsOfBlankOrMissingPictureAreZero) {
  Files files;
  EXPECT_EQ(0.0, testTforBlackletter(
                     files.write("blank", Picture(20, 20)).c_str(), 0));
  EXPECT_EQ(0.0, testTforBlackletter(files.missing().c_str(), 0));
}

// --- blackletter bowl -----------------------------------------------------

TEST(StyleClassesTest, PointedBowlFootHasNoInkOutsideItsV) {
  // Tip 0, box height 52: foot rows 51 - j span 20 - j..20 + j, so the
  // flank lines from the point (20, 51) to (0, 31) and (40, 31) run along
  // the outer edge and all ink lies on or above them: no fault, 0.0.
  Files files;
  EXPECT_EQ(0.0,
            getBlackletterness(files.write("o", angularO(0).pic).c_str(), 1));
}

TEST(StyleClassesTest, InkBelowTheFlankLinesIsCountedAsFault) {
  // The pointed o with a stray 2 by 2 mark at (3..4, 45..46), below the left
  // flank line y = 31 + x. Ink at or above the lines: left half (x 0..19,
  // rows y = 31 + j') 8 a row for j' 0..12, then 20 - j' for j' 13..19: 132;
  // right half (x 20..40) its mirror plus column 20 on j' 13..20: 140. With
  // the mark, 4 faults of 276.
  Files files;
  Glyph o = angularO(0);
  o.rect(3, 45, 4, 46);
  EXPECT_DOUBLE_EQ(4.0 / 276.0,
                   getBlackletterness(files.write("o", o.pic).c_str(), 1));
}

TEST(StyleClassesTest, FootFlatterThanFortyFiveDegreesIsNoV) {
  // Tip 2: the foot's bottom run is 18..22 (point (20, 47)) and the climb
  // reaches row 29, spanning 0..40: a rise of 18 over a run of 20 truncates
  // to a slope of 0, a flat bottom: 1.0.
  Files files;
  EXPECT_EQ(1.0,
            getBlackletterness(files.write("o", angularO(2).pic).c_str(), 1));
}

TEST(StyleClassesTest, RoundBowlIsNoBlackletterAndAngularScoresLower) {
  // The ring's foot is a single pixel at (20, 40); the flanks move outward
  // in every row up to row 32 (4..36), above which the left edge stays put.
  // A rise of 8 over a run of 16 truncates to slope 0: 1.0.
  Files files;
  double round = getBlackletterness(files.write("round", roundO()).c_str(), 1);
  double angular =
      getBlackletterness(files.write("angular", angularO(0).pic).c_str(), 1);
  EXPECT_EQ(1.0, round);
  EXPECT_LT(angular, round);
}

TEST(StyleClassesTest, BlackletterFailureValues) {
  Files files;
  // A solid block: the middle columns and rows each cross one stroke (2
  // crossings a line, mean 2 < 3.5), two issues, 1.0 before the V search.
  Glyph block(30, 30);
  block.rect(0, 0, 29, 29);
  EXPECT_EQ(1.0,
            getBlackletterness(files.write("block", block.pic).c_str(), 1));
  // Blank: no crossings either way, 1.0 as well.
  EXPECT_EQ(1.0, getBlackletterness(
                     files.write("blank", Picture(20, 20)).c_str(), 1));
  EXPECT_EQ(0.0, getBlackletterness(files.missing().c_str(), 1));
}

// --- stencil --------------------------------------------------------------

TEST(StyleClassesTest, StencilGapThroughAllStrokesIsFound) {
  Files files;
  EXPECT_EQ(0.0, getStencilsFont(files.write("whole", roundC()).c_str()));
  // Picture columns 11..13 (box 9..11) cleared cut the top and bottom arcs:
  // those columns hold no ink.
  Picture cut = roundC();
  cut.fillRect(11, 0, 13, 65, kWhite);
  EXPECT_EQ(1.0, getStencilsFont(files.write("cut", cut).c_str()));

  // A stem 8 by 40 cut across on rows 18..20: every column has ink, the
  // row pass finds the gap.
  Glyph stem(8, 40);
  stem.rect(0, 0, 7, 17);
  stem.rect(0, 21, 7, 39);
  EXPECT_EQ(1.0, getStencilsFont(files.write("stem", stem.pic).c_str()));
}

TEST(StyleClassesTest, StencilBridgeOfFaintInkStillCountsAsGap) {
  // Two 10 by 20 blocks (box columns 0..9 and 11..20) joined by one pixel
  // at (10, 10). Faint (darkness 5/255): column 10 sums 0.0196 after
  // columns of 20, a falling slope, so the minimum is 0.0196 and 0.0196 / 20
  // < 0.05 with nothing above 0.5: a gap. Dark (darkness 155/255): not a
  // gap; the rows then all have ink, and their only minimum (20 after the
  // 20.61 of row 10) is no fall below 5 %.
  Files files;
  Glyph g(21, 20);
  g.rect(0, 0, 9, 19);
  g.rect(11, 0, 20, 19);
  g.set(10, 10, greyPixel(250));
  EXPECT_EQ(1.0, getStencilsFont(files.write("faint", g.pic).c_str()));
  g.set(10, 10, greyPixel(100));
  EXPECT_EQ(0.0, getStencilsFont(files.write("dark", g.pic).c_str()));
}

TEST(StyleClassesTest, StencilFailureValues) {
  Files files;
  // A blank picture's 2 by 2 box is one white column: counted as cut.
  EXPECT_EQ(1.0,
            getStencilsFont(files.write("blank", Picture(20, 20)).c_str()));
  EXPECT_EQ(0.0, getStencilsFont(files.missing().c_str()));
}

// --- digital --------------------------------------------------------------

TEST(StyleClassesTest, SegmentedStrokeIsDigital) {
  // Middle rows 18..41 of the 61-high box cross only the left side: runs of
  // 8, then 6, 4, 2 (narrowing), a blank row, 2, 4, 6, 8 (widening); 2 / 8
  // = 0.25, and row 41 ends its run at column 8.
  Files files;
  EXPECT_EQ(1.0,
            getDigitalFont(files.write("c", segmentedC().pic).c_str(), 0.0));
}

TEST(StyleClassesTest, SmoothOrClosedStrokeFallsBackOnContourCurviness) {
  Files files;
  // The round C's left stroke keeps 8 or 9 pixels through the middle rows:
  // no narrowing to below half, so the contour walk's ratio comes back.
  std::string round = files.write("round", roundC());
  double v = getDigitalFont(round.c_str(), 0.0);
  EXPECT_EQ(curviness_borderPath(round.c_str(), 0.0, 1), v);
  EXPECT_GT(v, 0.0);
  EXPECT_LT(v, 1.0);

  // A plain bar has no diagonal step on its outline: 0.0.
  Glyph bar(8, 40);
  bar.rect(0, 0, 7, 39);
  EXPECT_EQ(0.0, getDigitalFont(files.write("bar", bar.pic).c_str(), 0.0));

  // The segmented C closed by a right side: a second run in the middle rows
  // closes a loop, so it is no longer taken as digital.
  Glyph o = segmentedC();
  o.rect(22, 9, 29, 51);
  std::string closed = files.write("closed", o.pic);
  EXPECT_EQ(curviness_borderPath(closed.c_str(), 0.0, 1),
            getDigitalFont(closed.c_str(), 0.0));
  EXPECT_NE(1.0, getDigitalFont(closed.c_str(), 0.0));
}

TEST(StyleClassesTest, DigitalFailureValues) {
  Files files;
  EXPECT_TRUE(isnan(
      getDigitalFont(files.write("blank", Picture(20, 20)).c_str(), 0.0)));
  EXPECT_EQ(0.0, getDigitalFont(files.missing().c_str(), 0.0));
}

// --- hollow ---------------------------------------------------------------

TEST(StyleClassesTest, OutlineLetterShowsHollowLines) {
  // An I drawn as its outline, box 20 by 40, walls 2 thick. Rows 2..37 show
  // ink, white, ink with 4 of ink (not above 20 / 2): 36; rows 0, 1, 38, 39
  // carry 20 > 10: -4. Columns 2..17 count with 4 of ink (not above 40 / 2):
  // 16; columns 0, 1, 18, 19 carry 40 > 20: -4. (32 + 12) / (20 + 40).
  Files files;
  Glyph outline(20, 40);
  outline.rect(0, 0, 19, 39);
  outline.rect(2, 2, 17, 37, kWhite);
  EXPECT_DOUBLE_EQ(44.0 / 60.0,
                   getHollowFont(files.write("outline", outline.pic).c_str()));

  // Solid, every line carries more than half its length: counts below 0
  // become 0.
  Glyph solid(20, 40);
  solid.rect(0, 0, 19, 39);
  EXPECT_EQ(0.0, getHollowFont(files.write("solid", solid.pic).c_str()));

  // Walls 6 thick: the inner rows show ink, white, ink but carry 12 > 10 and
  // cancel themselves; columns 6..13 count 8 but the 12 full columns take 12
  // off. 0.0.
  Glyph heavy(20, 40);
  heavy.rect(0, 0, 19, 39);
  heavy.rect(6, 6, 13, 33, kWhite);
  EXPECT_EQ(0.0, getHollowFont(files.write("heavy", heavy.pic).c_str()));
}

TEST(StyleClassesTest, HollowFailureValues) {
  Files files;
  EXPECT_EQ(0.0, getHollowFont(files.write("blank", Picture(20, 20)).c_str()));
  EXPECT_EQ(0.0, getHollowFont(files.missing().c_str()));
}

// --- symbol pairs ---------------------------------------------------------

TEST(StyleClassesTest, LetterPairDiffersLittleAndSymbolPairMuch) {
  Files files;
  std::string f = files.write("F", letterF().pic);
  std::string e = files.write("E", letterE().pic);
  // Only the bottom bar right of the stem differs: 16 * 4 of 20 * 30.
  EXPECT_DOUBLE_EQ(64.0 / 600.0, getSymbolFont(f.c_str(), e.c_str(), 0));
  EXPECT_EQ(0.0, getSymbolFont(f.c_str(), f.c_str(), 0));

  // A plus sign in the same box: bar columns 8..11, bar rows 13..16. F has
  // 232 ink pixels, the plus 184, they share 80: 232 + 184 - 2 * 80 = 256
  // differ.
  Glyph plus(20, 30);
  plus.rect(8, 0, 11, 29);
  plus.rect(0, 13, 19, 16);
  std::string p = files.write("plus", plus.pic);
  EXPECT_DOUBLE_EQ(256.0 / 600.0, getSymbolFont(f.c_str(), p.c_str(), 0));
}

TEST(StyleClassesTest, ReversedComparisonReadsSecondPictureMirrored) {
  // F mirrored in its box: stem on columns 16..19, middle bar on 4..19.
  // Read mirrored it is F again; read as it is, rows 13..16 differ on 8
  // columns (32) and the other 22 rows below the top bar on 8 (176): 208.
  Files files;
  Glyph m(20, 30);
  m.rect(16, 0, 19, 29);
  m.rect(0, 0, 19, 3);
  m.rect(4, 13, 19, 16);
  std::string f = files.write("F", letterF().pic);
  std::string mirrored = files.write("mirrored", m.pic);
  EXPECT_EQ(0.0, getSymbolFont(f.c_str(), mirrored.c_str(), 1));
  EXPECT_DOUBLE_EQ(208.0 / 600.0,
                   getSymbolFont(f.c_str(), mirrored.c_str(), 0));
}

TEST(StyleClassesTest, SymbolFailureValues) {
  Files files;
  std::string f = files.write("F", letterF().pic);
  std::string blank = files.write("blank", Picture(20, 20));
  EXPECT_EQ(0.0, getSymbolFont(blank.c_str(), blank.c_str(), 0));
  EXPECT_EQ(0.0, getSymbolFont(files.missing().c_str(), f.c_str(), 0));
  EXPECT_EQ(0.0, getSymbolFont(f.c_str(), files.missing().c_str(), 0));
}

// --- solid ink ------------------------------------------------------------

TEST(StyleClassesTest, DarkPixelShareCountsInkAboveSevenTenths) {
  Files files;
  EXPECT_EQ(1.0, percentDarkPixels(
                     files.write("black", Picture(10, 10, kBlack)).c_str()));
  // Three black pixels, grey 76 (darkness 179/255 = 0.702, dark), grey 77
  // (178/255 = 0.698, not) and grey 254 (ink, faint): 4 of 6.
  Picture mixed(10, 10);
  mixed.set(1, 1, kBlack);
  mixed.set(2, 1, kBlack);
  mixed.set(3, 1, kBlack);
  mixed.set(1, 2, greyPixel(76));
  mixed.set(2, 2, greyPixel(77));
  mixed.set(3, 2, greyPixel(254));
  EXPECT_DOUBLE_EQ(4.0 / 6.0,
                   percentDarkPixels(files.write("mixed", mixed).c_str()));
  EXPECT_TRUE(
      isnan(percentDarkPixels(files.write("blank", Picture(10, 10)).c_str())));
  EXPECT_EQ(0.0, percentDarkPixels(files.missing().c_str()));
}

// --- class examples against the fixture fonts -----------------------------

const char* const kFixtureFonts[] = {"DejaVuSans", "DejaVuSans-Oblique",
                                     "LiberationSerif", "LiberationMono"};

// Mean of a measurement over the named images of one fixture folder, as the
// measurement sequence averages it.
template <typename Measure>
double fixtureMean(const std::string& images, std::vector<const char*> names,
                   Measure measure) {
  double sum = 0;
  for (const char* name : names)
    sum += measure((images + name + ".png").c_str());
  return sum / names.size();
}

// The font's slant as the sequence takes it: calculateSkew on nine
// straight-stemmed letters, the lowest and highest dropped, the mean rounded
// away from 0.
double fixtureSkew(const std::string& images) {
  std::vector<double> s;
  for (const char* name : {"72-H", "73-I", "77-M", "78-N", "104-h", "105-i",
                           "108-l", "109-m", "110-n"})
    s.push_back(calculateSkew((images + name + ".png").c_str()));
  std::sort(s.begin(), s.end());
  double mean = 0;
  for (int i = 1; i <= 7; i++) mean += s[i];
  mean /= 7.0;
  return mean > 0 ? (int)(mean + 0.5) : (int)(mean - 0.5);
}

TEST(StyleClassesTest, ClassExamplesScoreOnTheClassSideOfTextFonts) {
  REQUIRE_FIXTURES();
  Files files;
  Picture cut = roundC();
  cut.fillRect(11, 0, 13, 65, kWhite);
  const double stencil = getStencilsFont(files.write("cut", cut).c_str());
  const double digital =
      getDigitalFont(files.write("segmented", segmentedC().pic).c_str(), 0.0);
  Glyph outline(20, 40);
  outline.rect(0, 0, 19, 39);
  outline.rect(2, 2, 17, 37, kWhite);
  const double hollow =
      getHollowFont(files.write("outline", outline.pic).c_str());
  const double angular =
      getBlackletterness(files.write("angular", angularO(0).pic).c_str(), 1);

  for (const char* font : kFixtureFonts) {
    SCOPED_TRACE(font);
    const std::string images =
        testsupport::fixturesDir() + "/" + font + "/Images/";
    const double skew = fixtureSkew(images);
    EXPECT_GT(stencil, fixtureMean(images,
                                   {"66-B", "67-C", "68-D", "69-E", "70-F",
                                    "79-O", "111-o", "80-P", "99-c", "98-b",
                                    "100-d", "112-p", "113-q"},
                                   getStencilsFont));
    EXPECT_GT(
        digital,
        fixtureMean(images, {"67-C", "99-c", "79-O", "111-o", "68-D", "69-E"},
                    [skew](const char* f) { return getDigitalFont(f, skew); }));
    EXPECT_GT(hollow,
              fixtureMean(images, {"73-I", "105-i", "108-l", "69-E", "70-F"},
                          getHollowFont));
    EXPECT_LT(angular,
              getBlackletterness((images + "111-olar.png").c_str(), 1));
    // Text fonts are no T of blackletter crossings.
    EXPECT_LT(testTforBlackletter((images + "84-T.png").c_str(), 0), 2.4);
  }
}

}  // namespace
