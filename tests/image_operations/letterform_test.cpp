// Letterform detectors on letter-like shapes written as real PNG files.
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

// Bars over columns 3..12 on the given rows, joined by a stem at 13..14.
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
  } rows[] = {
      // Centres (0.45, 0.475) and (5 / 11, 0.475): 0.0045^2 < 0.0015.
      {b, w, 1, "one column wider"},
      // Centre x 0.45 against 3 / 8: 0.075^2 = 0.0056 is not below.
      {b, n, 0, "4 columns against 10"},
      {b, none, 0, "one unreadable"}};
  for (const auto& r : rows)
    EXPECT_EQ(getAllCaps(r.a.c_str(), r.b.c_str()), r.expected) << r.why;
}

TEST(SmallI, AWhiteOrFaintRowBetweenDotAndStemIsAGap) {
  Picture pale = letterI(kWhite, 40), dark = letterI(kWhite, 40);
  pale.fillRect(20, 6, 20, 8, 0x808080);
  dark.fillRect(20, 6, 20, 8, 0x7F7F7F);
  expectRows({
      {"dotted", letterI(kWhite), getsmalliFontVal, 1},
      {"dotless: every band row the same ink", letterI(0), getsmalliFontVal, 0},
      // Four pixels of darkness 15/255 against the peak row's 4: 5.9 per cent.
      {"a faint link row", letterI(0xF0F0F0), getsmalliFontVal, 0},
      // 40 wide: one link pixel is 2.5 per cent, of darkness 0.498 or 0.502.
      {"link pixel just under half dark", pale, getsmalliFontVal, 1},
      {"link pixel just over half dark", dark, getsmalliFontVal, 0},
  });
  EXPECT_EQ(getsmalliFontVal("/nonexistent.png"), 0.0);
}

TEST(TwoStorey, ShareOfColumnsCrossingMoreStrokesThanTheLimit) {
  expectRows({
      // Columns 3..12 cross 3 strokes, the stem closes the run: 10 / box 12.
      {"three bars, a", bars({{2, 4}, {10, 12}, {18, 20}}), twoStorey(0), 10.0 / 12},
      {"three bars are a one-storey g", bars({{2, 4}, {10, 12}, {18, 20}}), twoStorey(1), 0},
      {"four bars, g", bars({{2, 3}, {7, 8}, {12, 13}, {17, 18}}), twoStorey(1), 10.0 / 12},
      {"a run of two over box width 9", dottedColumns({10, 11}), twoStorey(0), 2.0 / 9},
  });
  EXPECT_EQ(isTowStoryag("/nonexistent.png", 0), 0.0);
}

TEST(Counters, OpennessOfCAndEAndClosenessOfAAndE) {
  Picture left = rects(20, 24, {{2, 10, 8, 12}, {2, 14, 8, 16}});  // the left half only
  // Up a column of three bars: ink at 19, white 16, ink 10, white 8, ink 3.
  Picture three = bars({{2, 3}, {9, 10}, {17, 19}}, false);
  expectRows({
      {"c: 16 - 4 + 1", rects(20, 24, {{3, 2, 16, 4}, {3, 17, 16, 19}, {3, 2, 5, 19}}),
       getCounterOpenness, 13},
      {"left half only: the height", left, getCounterOpenness, 24},
      {"a: 16 - 10 + 1 in 10 columns, over 24 * 10", three, closeness(1), 7.0 / 24},
      {"e: 8 - 3 + 1", three, closeness(0), 6.0 / 24},
      {"o: no column crosses three strokes", bars({{2, 4}, {18, 20}}), closeness(1), 0},
  });
  EXPECT_EQ(getCounterOpenness("/nonexistent.png"), -1);
  EXPECT_EQ(getCounterCloseness("/nonexistent.png", 1), -1.0);
}
