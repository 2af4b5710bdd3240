// Letterform detectors on letter-like shapes drawn here and on the fixture
// fonts' a, g and i.
#include "image_operations/letterform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
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

struct Row { const char* why; Picture pic; Measure measure; double expected; };

void expectRows(const std::vector<Row>& rows) {
  for (const Row& r : rows)
    EXPECT_DOUBLE_EQ(measureDrawn(r.pic, r.measure), r.expected) << r.why;
}

// A ring like an o: every column crosses at most two strokes.
Picture ring() {
  Picture p(30, 30);
  p.fillEllipse(14.5, 14.5, 12, 12);
  p.fillEllipse(14.5, 14.5, 7, 7, kWhite);
  return p;
}

// Bars over columns 3..12 of a 20 x 24 picture on the given rows, joined on
// the right by a stem at 13..14 (which crosses one stroke).
Picture bars(std::initializer_list<std::pair<int, int>> rows, bool stem = true) {
  Picture p(20, 24);
  int top = 23, bottom = 0;
  for (auto r : rows) {
    p.fillRect(3, r.first, 12, r.second);
    top = std::min(top, r.first);
    bottom = std::max(bottom, r.second);
  }
  if (stem) p.fillRect(13, top, 14, bottom);
  return p;
}

// An i `width` wide: dot rows 2..5, `gap` drawn into rows 6..8, stem 9..27.
Picture letterI(uint32_t gap, int width = 4) {
  Picture p(width + 8, 30);
  p.fillRect(3, 2, 2 + width, 5);
  p.fillRect(3, 6, 2 + width, 8, gap);
  p.fillRect(3, 9, 2 + width, 27);
  return p;
}

// A stem at x 3..4 and dots at rows 2, 6, 10 in the columns given.
Picture dottedColumns(std::initializer_list<int> columns) {
  Picture p(20, 18);
  p.fillRect(3, 2, 4, 14);
  for (int x : columns)
    for (int y : {2, 6, 10}) p.set(x, y, 0);
  return p;
}

// Black rectangles {x0, y0, x1, y1} on a white w x h picture.
Picture rects(int w, int h, std::initializer_list<std::array<int, 4>> list) {
  Picture p(w, h);
  for (auto r : list) p.fillRect(r[0], r[1], r[2], r[3]);
  return p;
}

// A c: bars rows 2..4 and 17..19 over x 3..16 joined by a stem at x 3..5.
Picture letterC() { return rects(20, 24, {{3, 2, 16, 4}, {3, 17, 16, 19}, {3, 2, 5, 19}}); }

Measure twoStorey(int isG) { return [=](const char* f) { return isTowStoryag(f, isG); }; }
Measure closeness(int isA) { return [=](const char* f) { return getCounterCloseness(f, isA); }; }

}  // namespace

TEST(AllCaps, SameCentreOfInkMeansCapitalLike) {
  TempDir dir;
  std::string b = savePicture(dir, "box.png", rects(16, 26, {{3, 2, 12, 21}}));
  std::string w = savePicture(dir, "wider.png", rects(17, 26, {{3, 2, 13, 21}}));
  std::string n = savePicture(dir, "narrow.png", rects(10, 26, {{3, 2, 6, 21}}));
  std::string none = dir.file("absent.png");  // its centre stays (0, 0)
  struct {
    const std::string &a, &b;
    double expected;
    const char* why;
  } rows[] = {// Centres (0.45, 0.475) and (5 / 11, 0.475): 0.0045^2 < 0.0015.
              {b, w, 1, "one column wider"},
              // Centre x 0.45 against 3 / 8: 0.075^2 = 0.0056 is not below.
              {b, n, 0, "4 columns against 10"},
              {none, none, 1, "both unreadable"},
              {b, none, 0, "one unreadable"}};
  for (const auto& r : rows)
    EXPECT_EQ(getAllCaps(r.a.c_str(), r.b.c_str()), r.expected) << r.why;
}

TEST(SmallI, AWhiteOrFaintRowBetweenDotAndStemIsAGap) {
  Picture faint = letterI(kWhite);
  faint.fillRect(4, 6, 4, 8, 0xF0F0F0);
  Picture pale = letterI(kWhite, 40), dark = letterI(kWhite, 40);
  pale.fillRect(20, 6, 20, 8, 0x808080);
  dark.fillRect(20, 6, 20, 8, 0x7F7F7F);
  expectRows({
      {"dotted", letterI(kWhite), getsmalliFontVal, 1},
      {"dotless: every band row the same ink", letterI(0), getsmalliFontVal, 0},
      // Darkness 15/255 = 0.059 against the peak row's 4: under 5 per cent.
      {"one faint link pixel", faint, getsmalliFontVal, 1},
      {"four faint pixels: 5.9 per cent", letterI(0xF0F0F0), getsmalliFontVal, 0},
      // 40 wide: one link pixel is 2.5 per cent, of darkness 0.498 or 0.502.
      {"link pixel just under half dark", pale, getsmalliFontVal, 1},
      {"link pixel just over half dark", dark, getsmalliFontVal, 0},
  });
  EXPECT_EQ(getsmalliFontVal("/nonexistent.png"), 0.0);
}

TEST(TwoStorey, ShareOfColumnsCrossingMoreStrokesThanTheLimit) {
  Picture edge(16, 24);  // bars running into the right edge
  for (int y : {2, 10, 18}) edge.fillRect(3, y, 15, y + 2);
  expectRows({
      // Columns 3..12 cross 3 strokes, the stem closes the run: 10 / box 12.
      {"three bars, a", bars({{2, 4}, {10, 12}, {18, 20}}), twoStorey(0), 10.0 / 12},
      {"three bars are a one-storey g", bars({{2, 4}, {10, 12}, {18, 20}}), twoStorey(1), 0},
      {"four bars, g", bars({{2, 3}, {7, 8}, {12, 13}, {17, 18}}), twoStorey(1), 10.0 / 12},
      {"a run of one column", dottedColumns({10}), twoStorey(0), 0},
      {"a run of two over box width 9", dottedColumns({10, 11}), twoStorey(0), 2.0 / 9},
      {"a run never closed by a column", edge, twoStorey(0), 0},
      // A stroke counts where it ends: the lowest bar on the last row does not.
      {"a bar on the last row", bars({{2, 4}, {10, 12}, {19, 23}}), twoStorey(0), 0},
  });
  EXPECT_EQ(isTowStoryag("/nonexistent.png", 0), 0.0);
}

TEST(Counters, OpennessOfCAndEAndClosenessOfAAndE) {
  Picture left = rects(20, 24, {{2, 10, 8, 12}, {2, 14, 8, 16}});  // the left half only
  // Up a column of three bars: ink at 19, white 16, ink 10, white 8, ink 3.
  Picture three = bars({{2, 3}, {9, 10}, {17, 19}}, false);
  Picture last = three;  // the last column would give 16 - 6 + 1, unscanned
  last.fillRect(19, 2, 19, 3);
  last.fillRect(19, 5, 19, 6);
  last.fillRect(19, 17, 19, 19);
  expectRows({
      {"c: 16 - 4 + 1", letterC(), getCounterOpenness, 13},
      {"left half only: the height", left, getCounterOpenness, 24},
      {"a: 16 - 10 + 1 in 10 columns, over 24 * 10", three, closeness(1), 7.0 / 24},
      {"e: 8 - 3 + 1", three, closeness(0), 6.0 / 24},
      {"o: no column crosses three strokes", ring(), closeness(1), 0},
      {"last column not scanned", last, closeness(1), 7.0 / 24},
  });
  EXPECT_EQ(getCounterOpenness("/nonexistent.png"), -1);
  EXPECT_EQ(getCounterCloseness("/nonexistent.png", 1), -1.0);
}

// The fixture fonts have a two-storey a and a dotted i; only Liberation Serif
// has a two-storey (looped) g.
TEST(LetterformsOnFixtures, TwoStoreyFlagsMatchTheFonts) {
  REQUIRE_FIXTURES();
  struct { const char* font; bool twoStoreyG; } rows[] = {
      {"DejaVuSans", false},
      {"LiberationSerif", true},
      {"LiberationMono", false}};
  for (const auto& r : rows) {
    std::string images = testsupport::fixturesDir() + "/" + r.font + "/Images/";
    EXPECT_GT(isTowStoryag((images + "97-a.png").c_str(), 0), 0.0) << r.font;
    EXPECT_EQ(isTowStoryag((images + "103-g.png").c_str(), 1) > 0.0, r.twoStoreyG)
        << r.font;
    EXPECT_EQ(getsmalliFontVal((images + "105-i.png").c_str()), 1.0) << r.font;
  }
}
