// Letterform detectors on letter-like shapes drawn here (bars, rings, i with
// and without a dot, c and e forms) and on the fixture fonts' a, g and i.
#include "image_operations/letterform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/test_support.h"

using testsupport::kWhite;
using testsupport::Picture;
using testsupport::savePicture;
using testsupport::TempDir;
using testsupport::writePicture;

namespace {

// A ring like an o: every column crosses at most two strokes.
Picture ring() {
  Picture p(30, 30);
  p.fillEllipse(14.5, 14.5, 12, 12);
  p.fillEllipse(14.5, 14.5, 7, 7, kWhite);
  return p;
}

// Horizontal bars over columns 3..12 of a 20 x 24 picture, joined on the
// right by a stem at column 13..14 that crosses one stroke.
Picture stackedBars(std::initializer_list<std::pair<int, int>> rows) {
  Picture p(20, 24);
  int top = 23, bottom = 0;
  for (auto r : rows) {
    p.fillRect(3, r.first, 12, r.second);
    top = std::min(top, r.first);
    bottom = std::max(bottom, r.second);
  }
  p.fillRect(13, top, 14, bottom);
  return p;
}

}  // namespace

TEST(AllCaps, SameCentreOfInkMeansCapitalLikeAndMissingMeansOrigin) {
  TempDir dir;
  Picture box(16, 26), wider(17, 26), l(8, 9);
  box.fillRect(3, 2, 12, 21);
  wider.fillRect(3, 2, 13, 21);
  l.fillRect(2, 2, 2, 5);
  l.fillRect(2, 5, 4, 5);
  std::string b = savePicture(dir, "box.png", box);
  std::string w = savePicture(dir, "wider.png", wider);
  std::string el = savePicture(dir, "l.png", l);
  EXPECT_EQ(getAllCaps(b.c_str(), b.c_str()), 1.0);
  // Centres (0.45, 0.475) and (5 / 11, 0.475): 0.0045^2 is far below 0.0015.
  EXPECT_EQ(getAllCaps(b.c_str(), w.c_str()), 1.0);
  // The L's centre is (1 / 12, 0.625): 0.367^2 + 0.15^2 is not.
  EXPECT_EQ(getAllCaps(b.c_str(), el.c_str()), 0.0);
  // An unreadable file leaves its centre at (0, 0).
  std::string missing = dir.file("absent.png");
  EXPECT_EQ(getAllCaps(missing.c_str(), missing.c_str()), 1.0);
  EXPECT_EQ(getAllCaps(b.c_str(), missing.c_str()), 0.0);
}

namespace {

// An i 4 pixels wide: a dot in rows 2..5 and a stem in rows 9..27 of a
// 12 x 30 picture, with `gap` drawn into rows 6..8. Box H 26: the band
// runs over box rows (int)1.32 = 1 while below (int)24.72 = 24.
Picture letterI(uint32_t gap) {
  Picture p(12, 30);
  p.fillRect(3, 2, 6, 5);
  p.fillRect(3, 6, 6, 8, gap);
  p.fillRect(3, 9, 6, 27);
  return p;
}

}  // namespace

TEST(SmallI, AWhiteOrFaintRowBetweenDotAndStemIsAGap) {
  TempDir dir;
  std::string dotted = savePicture(dir, "dotted.png", letterI(kWhite));
  EXPECT_EQ(getsmalliFontVal(dotted.c_str()), 1.0);
  // Dotless: every row of the band carries the same ink.
  std::string dotless = savePicture(dir, "dotless.png", letterI(0x000000));
  EXPECT_EQ(getsmalliFontVal(dotless.c_str()), 0.0);
  EXPECT_EQ(getsmalliFontVal(dir.file("absent.png").c_str()), 0.0);

  // Link of one pixel of 0xF0F0F0 (darkness 15/255) per row: 0.059 against
  // the peak row's 4.0 is under 5 per cent, and no pixel is darker than 0.5.
  Picture faint = letterI(kWhite);
  faint.fillRect(4, 6, 4, 8, 0xF0F0F0);
  std::string f = savePicture(dir, "faint.png", faint);
  EXPECT_EQ(getsmalliFontVal(f.c_str()), 1.0);
  // Four such pixels make 0.235 per row, 5.9 per cent of the peak: no gap.
  std::string full = savePicture(dir, "full.png", letterI(0xF0F0F0));
  EXPECT_EQ(getsmalliFontVal(full.c_str()), 0.0);
}

TEST(SmallI, OnePixelDarkerThanHalfClosesTheGap) {
  TempDir dir;
  // A 40-pixel wide i, so that a single link pixel is 2.5 per cent of the
  // peak row. 0x808080 has darkness 127/255 = 0.498: still a gap.
  // 0x7F7F7F has 128/255 = 0.502: the row is ink.
  Picture pale(48, 30), dark(48, 30);
  for (Picture* p : {&pale, &dark}) {
    p->fillRect(3, 2, 42, 5);
    p->fillRect(3, 9, 42, 27);
  }
  pale.fillRect(20, 6, 20, 8, 0x808080);
  dark.fillRect(20, 6, 20, 8, 0x7F7F7F);
  EXPECT_EQ(getsmalliFontVal(savePicture(dir, "pale.png", pale).c_str()), 1.0);
  EXPECT_EQ(getsmalliFontVal(savePicture(dir, "dark.png", dark).c_str()), 0.0);
}

TEST(TwoStorey, ColumnsCrossingMoreStrokesThanTheLimitCount) {
  TempDir dir;
  // Three bars: columns 3..12 cross 3 strokes, the stem ends the run.
  // Box x 3..14: 10 / 12.
  std::string a = savePicture(dir, "a.png", stackedBars({{2, 4}, {10, 12}, {18, 20}}));
  EXPECT_DOUBLE_EQ(isTowStoryag(a.c_str(), 0), 10.0 / 12.0);
  // For a g the limit is 3: three strokes are a one-storey g.
  EXPECT_DOUBLE_EQ(isTowStoryag(a.c_str(), 1), 0.0);
  // Four bars pass the g limit.
  std::string g = savePicture(dir, "g.png",
                       stackedBars({{2, 3}, {7, 8}, {12, 13}, {17, 18}}));
  EXPECT_DOUBLE_EQ(isTowStoryag(g.c_str(), 1), 10.0 / 12.0);
  // An o crosses two strokes at most.
  std::string o = savePicture(dir, "o.png", ring());
  EXPECT_DOUBLE_EQ(isTowStoryag(o.c_str(), 0), 0.0);
}

TEST(TwoStorey, RunsNeedTwoColumnsAndAClosingColumnAndStrokesAnEnd) {
  TempDir dir;
  // A stem at x 3..4 and three one-pixel dots per busy column at rows 2, 6
  // and 10.
  Picture one(20, 18), two(20, 18);
  for (Picture* p : {&one, &two}) p->fillRect(3, 2, 4, 14);
  for (int y : {2, 6, 10}) {
    one.set(10, y, 0);
    two.set(10, y, 0);
    two.set(11, y, 0);
  }
  EXPECT_DOUBLE_EQ(isTowStoryag(savePicture(dir, "one.png", one).c_str(), 0), 0.0);
  // Box x 3..11: a run of 2 over a width of 9.
  EXPECT_DOUBLE_EQ(isTowStoryag(savePicture(dir, "two.png", two).c_str(), 0),
                   2.0 / 9.0);

  // Bars running into the picture's right edge: the run is never closed.
  Picture edge(16, 24);
  for (int y : {2, 10, 18}) edge.fillRect(3, y, 15, y + 2);
  EXPECT_DOUBLE_EQ(isTowStoryag(savePicture(dir, "edge.png", edge).c_str(), 0), 0.0);

  // A stroke counts where it ends: with the lowest bar on the picture's last
  // row the columns count two strokes.
  std::string f =
      savePicture(dir, "low.png", stackedBars({{2, 4}, {10, 12}, {19, 23}}));
  EXPECT_DOUBLE_EQ(isTowStoryag(f.c_str(), 0), 0.0);
  EXPECT_DOUBLE_EQ(isTowStoryag(dir.file("absent.png").c_str(), 0), 0.0);
}

namespace {

// A c in a 20 x 24 picture: top bar rows 2..4 and bottom bar rows 17..19
// over x 3..16, joined by a stem at x 3..5.
Picture letterC() {
  Picture p(20, 24);
  p.fillRect(3, 2, 16, 4);
  p.fillRect(3, 17, 16, 19);
  p.fillRect(3, 2, 5, 19);
  return p;
}

}  // namespace

TEST(CounterOpenness, SmallestOpeningAboveTheLowestStrokeOnTheRight) {
  TempDir dir;
  // Columns 10..16 going up: ink at 19, white at 16 (y1), ink at 4 (y2):
  // 16 - 4 + 1 = 13. Columns 17 and 18 are white.
  EXPECT_EQ(getCounterOpenness(savePicture(dir, "c.png", letterC()).c_str()), 13);

  // An e: a bar at rows 10..11 and the eye closed at x 14..16. Its terminal
  // rises to rows 15..19 at x 15..16, so the opening there is 14 - 11 + 1.
  Picture e = letterC();
  e.fillRect(3, 10, 16, 11);
  e.fillRect(14, 2, 16, 11);
  e.fillRect(15, 15, 16, 19);
  EXPECT_EQ(getCounterOpenness(savePicture(dir, "e.png", e).c_str()), 4);
}

TEST(CounterOpenness, LeftHalfIsNotLookedAt) {
  TempDir dir;
  // Only x 0..9 hold strokes, with a one-row opening: the right half of the
  // 20-pixel picture has no column, and the result stays the height.
  Picture p(20, 24);
  p.fillRect(2, 10, 8, 12);
  p.fillRect(2, 14, 8, 16);
  EXPECT_EQ(getCounterOpenness(savePicture(dir, "left.png", p).c_str()), 24);
  EXPECT_EQ(getCounterOpenness(dir.file("absent.png").c_str()), -1);
}

namespace {

// Three bars over x 3..12 of a 20 x 24 picture: rows 2..3, 9..10, 17..19.
// Going up a column: ink at 19, white at 16, ink at 10, white at 8, ink at 3,
// white at 1.
Picture threeBars() {
  Picture p(20, 24);
  p.fillRect(3, 2, 12, 3);
  p.fillRect(3, 9, 12, 10);
  p.fillRect(3, 17, 12, 19);
  return p;
}

}  // namespace

TEST(CounterCloseness, MeasuresTheBowlOfAAndTheEyeOfE) {
  TempDir dir;
  std::string f = savePicture(dir, "bars.png", threeBars());
  // a: changes 2 and 3, 16 - 10 + 1 = 7 in each of 10 columns: 70 / (24 * 10).
  EXPECT_DOUBLE_EQ(getCounterCloseness(f.c_str(), 1), 7.0 / 24.0);
  // e: changes 4 and 5, 8 - 3 + 1 = 6.
  EXPECT_DOUBLE_EQ(getCounterCloseness(f.c_str(), 0), 6.0 / 24.0);
}

TEST(CounterCloseness, OnlyColumnsCrossingThreeStrokesBeforeTheLastCount) {
  TempDir dir;
  // A ring crosses two strokes per column: no column, 0.0.
  EXPECT_DOUBLE_EQ(getCounterCloseness(savePicture(dir, "o.png", ring()).c_str(), 1),
                   0.0);
  // The last column would give a bowl of 16 - 6 + 1 = 11, but is not
  // scanned: the mean stays 7 / 24.
  Picture p = threeBars();
  p.fillRect(19, 2, 19, 3);
  p.fillRect(19, 5, 19, 6);
  p.fillRect(19, 17, 19, 19);
  EXPECT_DOUBLE_EQ(getCounterCloseness(savePicture(dir, "last.png", p).c_str(), 1),
                   7.0 / 24.0);
  EXPECT_DOUBLE_EQ(getCounterCloseness(dir.file("absent.png").c_str(), 1),
                   -1.0);
}

// The fixtures' letterforms, as seen in their pictures: all four fonts have a
// two-storey a; Liberation Serif has a two-storey (looped) g, while DejaVu
// Sans, its oblique and Liberation Mono have a one-storey g.
TEST(LetterformsOnFixtures, TwoStoreyFlagsMatchTheFonts) {
  REQUIRE_FIXTURES();
  struct Case {
    const char* font;
    bool twoStoreyG;
  } cases[] = {{"DejaVuSans", false},
               {"DejaVuSans-Oblique", false},
               {"LiberationSerif", true},
               {"LiberationMono", false}};
  for (const Case& c : cases) {
    std::string images = testsupport::fixturesDir() + "/" + c.font + "/Images";
    EXPECT_GT(isTowStoryag((images + "/97-a.png").c_str(), 0), 0.0) << c.font;
    double g = isTowStoryag((images + "/103-g.png").c_str(), 1);
    if (c.twoStoreyG)
      EXPECT_GT(g, 0.0) << c.font;
    else
      EXPECT_EQ(g, 0.0) << c.font;
    // The o never shows more than two strokes.
    EXPECT_EQ(isTowStoryag((images + "/111-o.png").c_str(), 0), 0.0) << c.font;
    // Every one of them dots its i.
    EXPECT_EQ(getsmalliFontVal((images + "/105-i.png").c_str()), 1.0) << c.font;
  }
}
