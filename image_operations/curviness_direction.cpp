// Curviness, direction, symmetry and edginess of glyph outlines: the direction
// census of border pixels, the contour walks that count diagonal steps and
// abrupt turns, stroke crossing counts and the symmetry score. Each file
// measurement reads its own picture through ReadPngFile, deskews it with the
// shear of slant_stroke where asked, and frees it on every way out.
#include "image_operations/curviness_direction.h"

#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "image_operations/slant_stroke.h"

const int dirAttr[8][2] = {{-1, 0}, {-1, 1}, {0, 1},  {1, 1},
                           {1, 0},  {1, -1}, {0, -1}, {-1, -1}};

int getScanStartIndex(int direction) { return (direction + 6) % 8; }

namespace {

// One picture read for the span of a measurement, released on every way
// out. `width` follows a deskew, which widens the rows.
struct OwnedPicture : PictureRead {
  explicit OwnedPicture(const char* path) : PictureRead(path) {}

  // Takes the slant out of the picture; nothing happens for an angle of 0.
  void deskew(double angle) { deskewPicture(this, angle); }
  // Darkness at flat index `index`, white outside the picture: the crossing
  // and edginess scans compute their rows as flat indices.
  double flatDarkness(long long index) const {
    if (index < 0 || index >= (long long)width * height) return 0.0;
    return pixelDarkness(pixels[index]);
  }
};

// Box of the ink with its sides |max - min| + 1.
struct InkBox {
  int minX, minY, maxX, maxY;
  int W() const { return abs(maxX - minX) + 1; }
  int H() const { return abs(maxY - minY) + 1; }
};

InkBox countedBox(const OwnedPicture& pic) {
  InkBox b;
  getBoundingBox_count(pic.pixels, &b.minX, &b.minY, &b.maxX, &b.maxY,
                       pic.width, pic.height);
  return b;
}

// ----- census ---------------------------------------------------------------

// Step classes as the counts are kept: index = class.
enum { kClass0 = 0, kClass45 = 1, kClass90 = 2, kClass135 = 3 };

// The four neighbour tests of the census.
enum CensusTest { kNeSw, kNwSe, kNorthSouth, kWestEast };

// The two test orders: wide strokes try the diagonals first, narrow ones
// horizontal and vertical first.
const CensusTest kWideOrder[4] = {kNeSw, kNwSe, kNorthSouth, kWestEast};
const CensusTest kNarrowOrder[4] = {kWestEast, kNorthSouth, kNeSw, kNwSe};

// Whether border pixel p at (x, y) passes `test`; on success gives the class
// it counts in and the code the test leaves in lastDir.
bool passesCensusTest(uint32* buf, int p, int x, int y, int width, int height,
                      CensusTest test, int* countClass, int* lastDirCode) {
  const bool innerRow = y != 0 && y != height - 1;
  const bool innerColumn = x != 0 && x != width - 1;
  switch (test) {
    case kNeSw:
      if (!innerRow || !innerColumn) return false;
      if (!isBorderPixel(buf, p - width + 1, width, height) ||
          !isBorderPixel(buf, p + width - 1, width, height))
        return false;
      *countClass = kClass45;
      *lastDirCode = 0;
      return true;
    case kNwSe:
      if (!innerRow || !innerColumn) return false;
      if (!isBorderPixel(buf, p - width - 1, width, height) ||
          !isBorderPixel(buf, p + width + 1, width, height))
        return false;
      *countClass = kClass135;
      *lastDirCode = 1;
      return true;
    case kNorthSouth:
      if (!innerRow) return false;
      if (!isBorderPixel(buf, p - width, width, height) ||
          !isBorderPixel(buf, p + width, width, height))
        return false;
      *countClass = kClass90;
      *lastDirCode = 3;
      return true;
    case kWestEast:
      if (!innerColumn) return false;
      if (!isBorderPixel(buf, p - 1, width, height) ||
          !isBorderPixel(buf, p + 1, width, height))
        return false;
      *countClass = kClass0;
      *lastDirCode = 2;
      return true;
  }
  return false;
}

void setAllShares(double* dir0, double* dir45, double* dir90, double* dir135,
                  double value) {
  *dir0 = *dir45 = *dir90 = *dir135 = value;
}

// The census shared by both entry points. `pixelMap` null: nothing recorded.
int directionCensus(uint32* buf, double* dir0, double* dir45, double* dir90,
                    double* dir135, int width, double height,
                    const CensusTest* order, std::map<int, int>* pixelMap) {
  if (buf == NULL) {
    setAllShares(dir0, dir45, dir90, dir135, -1.0);
    return 0;
  }
  const int height1 = (int)height;
  int counts[4] = {0, 0, 0, 0};
  int totalCount = 0;
  int lastDir = 2;
  const long long size = (long long)width * height1;
  // The border pixels' keys, entered into the map in key order at the end:
  // an in-order run of hinted insertions instead of a search per pixel.
  std::vector<int> borderKeys;
  for (long long i = 0; i < size; i++) {
    const int p = (int)i;
    if (!hasInk(buf[p]) || !isBorderPixel(buf, p, width, height1)) continue;
    const int x = p % width, y = p / width;
    int countClass = -1;
    for (int t = 0; t < 4 && countClass < 0; t++)
      passesCensusTest(buf, p, x, y, width, height1, order[t], &countClass,
                       &lastDir);
    // No test fits: the class whose index is the code the last test left.
    if (countClass < 0) countClass = lastDir;
    counts[countClass]++;
    totalCount++;
    if (pixelMap != NULL) borderKeys.push_back(combine((short)x, (short)y));
  }
  if (pixelMap != NULL) {
    std::sort(borderKeys.begin(), borderKeys.end());
    for (int key : borderKeys)
      pixelMap->insert_or_assign(pixelMap->end(), key, 1);
  }
  *dir0 = (double)counts[kClass0] / totalCount;
  *dir45 = (double)counts[kClass45] / totalCount;
  *dir90 = (double)counts[kClass90] / totalCount;
  *dir135 = (double)counts[kClass135] / totalCount;
  return totalCount;
}

// ----- walks ----------------------------------------------------------------

// A walker's position and last direction.
struct WalkPosition {
  int x, y;
  int direction;
};

// The neighbour a walk would step to: the first direction from the scan start
// of the last direction whose pixel lies before the picture's end and is a
// border pixel. Gives the direction and the pixel (a step past a side edge
// lands on the adjacent row, as the flat index says); -1 if none qualifies.
int findNextBorderStep(uint32* buf, int width, int height,
                       const WalkPosition& at, int* nextX, int* nextY) {
  if (buf == NULL) return -1;
  const long long size = (long long)width * height;
  const int scanIndex = getScanStartIndex(at.direction);
  for (int i = 0; i < 8; i++) {
    const int tempDir = (scanIndex + i) % 8;
    const long long loc = (long long)(at.y + dirAttr[tempDir][1]) * width +
                          at.x + dirAttr[tempDir][0];
    if (loc >= size || loc < 0) continue;
    if (!isBorderPixel(buf, (int)loc, width, height)) continue;
    *nextX = (int)(loc % width);
    *nextY = (int)(loc / width);
    return tempDir;
  }
  return -1;
}

int keyOf(int x, int y) { return combine((short)x, (short)y); }

// The walked and the unwalked border pixels of the contour walks, kept in
// the two maps of the measurement's interface: `pixelMap` holds every pixel
// a walk looked at (1 once walked), `borderMap` the border pixels not yet
// walked, keyed so that the lowest key is the lowest x, then y.
struct MapWalkState {
  std::map<int, int>& pixelMap;
  std::map<int, int>& borderMap;

  // Whether (x, y) was walked. Like the maps' index operator, a pixel never
  // looked at is entered as not walked, which the count below sees.
  bool lookWalked(int x, int y) { return pixelMap[keyOf(x, y)] == 1; }
  size_t lookedAt() const { return pixelMap.size(); }
  void markWalked(int x, int y) {
    const int key = keyOf(x, y);
    pixelMap[key] = 1;
    borderMap.erase(key);
  }
  bool isUnwalkedBorder(int x, int y) const {
    return borderMap.find(keyOf(x, y)) != borderMap.end();
  }
  size_t unwalked() const { return borderMap.size(); }
  // The unwalked border pixel of the lowest key.
  void lowestUnwalked(int* x, int* y) const {
    const int key = borderMap.begin()->first;
    *y = getShort(key);
    *x = key >> 16;
  }
};

// The same two sets as flags per pixel of one picture, for a measurement
// that owns its walk: the same answers as the maps for any pixel of a
// picture under 32768 pixels a side (keys stay distinct and ordered), in
// constant time. The lowest unwalked key is found by a cursor that moves
// down the columns, since pixels only ever leave that set.
class DenseWalkState {
 public:
  DenseWalkState(int width, int height)
      : width_(width), height_(height),
        looked_((size_t)width * height, kNotLooked),
        border_((size_t)width * height, 0) {}

  void addBorder(int x, int y) {
    uint8_t& b = border_[column(x, y)];
    if (!b) unwalked_++;
    b = 1;
  }
  bool lookWalked(int x, int y) {
    uint8_t& state = looked_[(size_t)y * width_ + x];
    if (state == kNotLooked) {
      state = kLookedAt;
      lookedAt_++;
    }
    return state == kWalked;
  }
  size_t lookedAt() const { return lookedAt_; }
  void markWalked(int x, int y) {
    uint8_t& state = looked_[(size_t)y * width_ + x];
    if (state == kNotLooked) lookedAt_++;
    state = kWalked;
    uint8_t& b = border_[column(x, y)];
    if (b) unwalked_--;
    b = 0;
  }
  bool isUnwalkedBorder(int x, int y) const {
    return x >= 0 && y >= 0 && x < width_ && y < height_ &&
           border_[column(x, y)] != 0;
  }
  size_t unwalked() const { return unwalked_; }
  void lowestUnwalked(int* x, int* y) {
    while (!border_[cursor_]) cursor_++;
    *x = (int)(cursor_ / height_);
    *y = (int)(cursor_ % height_);
  }

 private:
  enum : uint8_t { kNotLooked, kLookedAt, kWalked };
  size_t column(int x, int y) const { return (size_t)x * height_ + y; }
  int width_, height_;
  std::vector<uint8_t> looked_;  // row by row
  std::vector<uint8_t> border_;  // column by column, in key order
  size_t lookedAt_ = 0, unwalked_ = 0, cursor_ = 0;
};

// The start of a walk: marked only if it is an unwalked border pixel.
template <class WalkState>
void takeStart(WalkState& state, int x, int y) {
  if (state.isUnwalkedBorder(x, y)) state.markWalked(x, y);
}

// Difference of two direction indices counted as a sharp turn.
bool isSharpTurnDelta(int a, int b) {
  const int d = abs(a - b);
  return d >= 2 && d <= 6;
}

// Steps per class of one or more walks, and the turn counters.
struct StepCounts {
  int byClass[4] = {0, 0, 0, 0};
  int repCount = 0;  // kept up, never read
  int dirBeforeTurn = 2;
  int numSharpTurns = 0;
};

// One walk of getCurviRatio from `at`, which must already be the current
// pixel; counts every step, the closing one onto a walked pixel included.
template <class WalkState>
void walkContour(uint32* buf, WalkState& state, int width, int height,
                 WalkPosition at, StepCounts* steps) {
  for (;;) {
    int nx = 0, ny = 0;
    const int tempDir = findNextBorderStep(buf, width, height, at, &nx, &ny);
    if (tempDir < 0) return;
    // Looking enters an unwalked pixel as looked at; the count of the sharp
    // turns below sees that entry.
    if (state.lookWalked(nx, ny)) {
      steps->dirBeforeTurn = at.direction;
      at.direction = tempDir;
      steps->byClass[tempDir % 4]++;
      return;
    }
    if (at.direction == tempDir) steps->repCount++;
    if (state.lookedAt() != 1 && isSharpTurnDelta(at.direction, tempDir) &&
        isSharpTurnDelta(steps->dirBeforeTurn, tempDir))
      steps->numSharpTurns++;
    if (at.direction != tempDir) steps->repCount = 0;
    state.markWalked(nx, ny);
    at.x = nx;
    at.y = ny;
    steps->dirBeforeTurn = at.direction;
    at.direction = tempDir;
    steps->byClass[tempDir % 4]++;
  }
}

// Walks every contour of the unwalked border pixels, as getCurviRatio says.
template <class WalkState>
double walkAllContours(uint32* buf, WalkState& state, int width, int height,
                       int curX, int curY, int& numSharpTurns) {
  const size_t maxRemovals = state.unwalked();
  StepCounts steps;
  numSharpTurns = 0;
  while (state.unwalked() != 0) {
    takeStart(state, curX, curY);
    WalkPosition at = {curX, curY, 2};
    walkContour(buf, state, width, height, at, &steps);
    if (state.unwalked() != 0) {
      state.lowestUnwalked(&curX, &curY);
      state.markWalked(curX, curY);
    }
  }
  numSharpTurns = steps.numSharpTurns;
  return (double)(steps.byClass[kClass45] + steps.byClass[kClass135]) /
         (double)maxRemovals;
}

// Folded compass angle, in degrees from 0 to 180, of the move from the pivot.
// The edginess threshold of 45 degrees is set against this angle, worked out
// with this value of pi: exact 45-degree changes come out just above 45.
double foldedAngle(int dx, int dy) {
  return fabs(180.0 * atan2((double)dy, (double)dx) / 3.14159265);
}

}  // namespace

// ----- census entry points --------------------------------------------------

int dirAttributes_FromBuff(uint32* pngBuffer1, double* dir0_1, double* dir45_1,
                           double* dir90_1, double* dir135_1, int width,
                           double height) {
  return directionCensus(pngBuffer1, dir0_1, dir45_1, dir90_1, dir135_1, width,
                         height, kWideOrder, NULL);
}

int dirAttributes_FromBuff_curv(uint32* pngBuffer1, double* dir0_1,
                                double* dir45_1, double* dir90_1,
                                double* dir135_1, int width, double height,
                                double strokewidth,
                                std::map<int, int>& pixelMap, int mode) {
  const CensusTest* order = strokewidth < 3.0 ? kNarrowOrder : kWideOrder;
  return directionCensus(pngBuffer1, dir0_1, dir45_1, dir90_1, dir135_1, width,
                         height, order, mode == 1 ? &pixelMap : NULL);
}

void dirAttributes(const char* file, double* dir0, double* dir45,
                   double* dir90, double* dir135) {
  OwnedPicture pic(file);
  // A null picture goes on as well and gives -1.0 in all four.
  dirAttributes_FromBuff(pic.pixels, dir0, dir45, dir90, dir135, pic.width,
                         pic.height);
}

double getCurviness(const char* file, double SkewAngle, double Strokewidth) {
  OwnedPicture pic(file);
  if (pic.pixels == NULL) return 0.0;
  pic.deskew(SkewAngle);
  std::map<int, int> borderMap;  // filled by nobody: mode 0
  double dir0 = 0, dir45 = 0, dir90 = 0, dir135 = 0;
  dirAttributes_FromBuff_curv(pic.pixels, &dir0, &dir45, &dir90, &dir135,
                              pic.width, pic.height, Strokewidth, borderMap, 0);
  return (dir135 + dir45) / (dir45 + dir0 + dir90 + dir135);
}

// ----- contour walks --------------------------------------------------------

double getCurviRatio(uint32* buf, std::map<int, int>& pixelMap,
                     std::map<int, int>& borderMap, int width, int height,
                     int curX, int curY, int& numSharpTurns) {
  MapWalkState state{pixelMap, borderMap};
  return walkAllContours(buf, state, width, height, curX, curY,
                         numSharpTurns);
}

namespace {

double measureBorderPath(const char* file, double SkewAngle, int valueType);

}  // namespace

double curviness_borderPath(const char* file, double SkewAngle,
                            int valueType) {
  // The same file, angle and value type give the same walk: within a run it
  // is walked once (the glyph loop, the straight letters and the digital
  // class ask for some of the same glyphs).
  std::string key;
  if (file != NULL) {
    try {
      key = std::string("curviness_borderPath") + '\0' + file + '\0';
      key.append((const char*)&SkewAngle, sizeof SkewAngle);
      key.append((const char*)&valueType, sizeof valueType);
    } catch (const std::bad_alloc&) {
      key.clear();
    }
  }
  double value = 0.0;
  if (!key.empty() && findRunResult(key, &value)) return value;
  value = measureBorderPath(file, SkewAngle, valueType);
  if (!key.empty()) keepRunResult(key, value);
  return value;
}

namespace {

double measureBorderPath(const char* file, double SkewAngle, int valueType) {
  OwnedPicture pic(file);
  if (pic.pixels == NULL) return 0.0;
  pic.deskew(SkewAngle);
  const InkBox box = countedBox(pic);
  const int W = box.W(), H = box.H();

  // Every border pixel of the picture, the set the census gathers. Pictures
  // are under 32768 pixels a side even deskewed (the reader's limit is
  // 16384), so the flags answer as the maps of getCurviRatio would.
  DenseWalkState state(pic.width, pic.height);
  for (int y = 0; y < pic.height; y++)
    for (int x = 0; x < pic.width; x++)
      if (isBorderPixel(pic.pixels, y * pic.width + x, pic.width, pic.height))
        state.addBorder(x, y);

  // The walk starts at the first ink pixel of the box's top row with ink.
  int curX = -1, curY = -1;
  for (int y = 0; H > y && curX < 0; y++)
    for (int x = 0; x < W; x++)
      if (darknessAt(pic.pixels, pic.width, pic.height, x + box.minX,
                     y + box.minY) != 0.0) {
        curX = x + box.minX;
        curY = y + box.minY;
        break;
      }

  int numSharpTurns = 0;
  const double ratio = walkAllContours(pic.pixels, state, pic.width,
                                       pic.height, curX, curY, numSharpTurns);
  if (valueType == 1) return ratio;
  if (valueType == 2) return numSharpTurns * 100.0 / (double)state.lookedAt();
  return -1.0;
}

}  // namespace

int getOuterBorderMap(uint32* pngBuffer1, int width, int height,
                      std::map<int, int>& pixelMap) {
  if (pngBuffer1 == NULL) return 0;
  int totalCount = 0;
  for (int y = 0; y < height; y++) {
    const int row = y * width;
    // From the left: white is passed over until ink is met; then the run of
    // border pixels is entered up to the first white or inner pixel.
    bool mode = false;
    int stopX = 0;
    for (stopX = 0; stopX < width; stopX++) {
      const uint32 pixel = pngBuffer1[row + stopX];
      if (pixel == WHITE_PIXEL) {
        if (mode) break;
        continue;
      }
      mode = true;
      if (!isBorderPixel(pngBuffer1, row + stopX, width, height)) break;
      totalCount++;
      pixelMap[combine((short)stopX, (short)y)] = 1;
    }
    // The same from the right, down to just right of where the left scan
    // stopped.
    mode = false;
    for (int x = width - 1; x > stopX; x--) {
      const uint32 pixel = pngBuffer1[row + x];
      if (pixel == WHITE_PIXEL) {
        if (mode) break;
        continue;
      }
      mode = true;
      if (!isBorderPixel(pngBuffer1, row + x, width, height)) break;
      totalCount++;
      pixelMap[combine((short)x, (short)y)] = 1;
    }
  }
  return totalCount;
}

namespace {

// The walk of getEdignessCurv over either kind of walk state.
template <class WalkState>
double edgyTurns(uint32* buf, WalkState& state, int width, int height,
                 int curX, int curY) {
  WalkPosition at = {curX, curY, 2};
  int windowSize = 0;
  int pivot_x = curX, pivot_y = curY;
  double prevAngle = 5000.0, currAngle = 5000.0;  // 5000: none yet
  double deltaAngle = 0.0;
  takeStart(state, curX, curY);
  for (;;) {
    int nx = 0, ny = 0;
    const int tempDir = findNextBorderStep(buf, width, height, at, &nx, &ny);
    if (tempDir < 0) break;
    if (state.lookWalked(nx, ny)) break;  // back on a walked pixel
    state.markWalked(nx, ny);
    at.x = nx;
    at.y = ny;
    at.direction = tempDir;
    windowSize++;
    if (windowSize % 4 == 0) {
      prevAngle = currAngle;
      currAngle = foldedAngle(at.x - pivot_x, at.y - pivot_y);
      if (prevAngle != 5000.0 && fabs(currAngle - prevAngle) > 45.0)
        deltaAngle += 1.0;
      pivot_x = at.x;
      pivot_y = at.y;
      windowSize = 0;
    }
  }
  return deltaAngle;
}

}  // namespace

double getEdignessCurv(uint32* buf, std::map<int, int>& pixelMap,
                       std::map<int, int>& borderMap, int width, int height,
                       int curX, int curY) {
  MapWalkState state{pixelMap, borderMap};
  return edgyTurns(buf, state, width, height, curX, curY);
}

double getEdginess(const char* file, double skew) {
  OwnedPicture pic(file);
  if (pic.pixels == NULL) return 0.0;
  pic.deskew(skew);
  const InkBox box = countedBox(pic);
  const int W = box.W();

  std::map<int, int> borderMap, pixelMap;
  int counter = 0;
  double borderCount = 0.0;
  // minY enters twice in the row: the rows tried lie minY below the box top.
  for (int y = box.minY; y < box.minY + 5 && counter < 5; y++) {
    const long long rowStart =
        box.minX + (long long)(box.minY + y) * pic.width;
    int x = 0;
    while (W > x && pic.flatDarkness(rowStart + x) == 0.0) x++;
    if (W <= x) continue;
    const int curX = x + box.minX, curY = y + box.minY;
    borderMap.clear();
    pixelMap.clear();
    getOuterBorderMap(pic.pixels, pic.width, pic.height, borderMap);
    borderCount += getEdignessCurv(pic.pixels, pixelMap, borderMap, pic.width,
                                   pic.height, curX, curY);
    counter++;
  }
  return borderCount / 5.0;
}

// ----- crossings and symmetry -----------------------------------------------

void getIntersections(const char* file1, int* int_x1, int* int_y1) {
  OwnedPicture pic(file1);
  if (pic.pixels == NULL) return;
  *int_x1 = 0;
  *int_y1 = 0;
  InkBox box;
  getBoundingBox(pic.pixels, &box.minX, &box.minY, &box.maxX, &box.maxY,
                 pic.width, pic.height);
  const double W = box.W(), H = box.H();
  const double x_stepSize = W / 6.0, y_stepSize = H / 6.0;
  int int_x = 0, int_y = 0;
  bool searchWhite = false;  // carried over from line to line on purpose
  // One ink/white change on the line: entering a stroke or leaving it.
  auto crosses = [&searchWhite](double value) {
    if ((!searchWhite && value > 0.0) || (searchWhite && value == 0.0)) {
      searchWhite = !searchWhite;
      return true;
    }
    return false;
  };
  const int intersections[5] = {1, 2, 3, 4, 5};
  for (int m : intersections) {
    const int column = (int)(box.minX + (x_stepSize - 1.0) * m + 0.02);
    for (int y = 0; H > y; y++)
      if (crosses(darknessAt(pic.pixels, pic.width, pic.height, column,
                             box.minY + y)))
        int_y++;
    const long long k =
        (long long)((box.minY + (y_stepSize - 1.0) * m) * pic.width + 0.02);
    for (int x = 0; W > x; x++)
      if (crosses(pic.flatDarkness(k + x + box.minY))) int_x++;
  }
  *int_x1 = int_x;
  *int_y1 = int_y;
}

double symmetryValue(uint32* buf, int width, int height, int crossQuadrant) {
  if (buf == NULL) return NAN;  // nothing to compare
  const int refX = (width - 1) / 2;
  const int corr = (width + 1) % 2;
  int matches = 0, comparisons = 0;
  for (int y = 0; y < height; y++) {
    const int y2 = crossQuadrant ? height - y - 1 : y;
    for (int x = 1 - corr; width / 2 > x; x++) {
      const double right = pixelDarkness(buf[y * width + x + refX + corr]);
      const double left = pixelDarkness(buf[y2 * width + refX - x]);
      if (fabs(right - left) < 0.25) matches++;
      comparisons++;
    }
  }
  return (double)matches / comparisons;
}

double getSymmetry(const char* file, double SkewAngle) {
  OwnedPicture pic(file);
  if (pic.pixels == NULL) return 0.0;
  pic.deskew(SkewAngle);
  InkBox box;
  getBoundingBox(pic.pixels, &box.minX, &box.minY, &box.maxX, &box.maxY,
                 pic.width, pic.height);
  const double W = box.W(), H = box.H();
  const int bbWidth = (int)(W + 0.02), bbHeight = (int)(H + 0.02);
  std::vector<uint32> bb_buf((size_t)bbWidth * bbHeight, WHITE_PIXEL);
  for (int y = 0; y < (int)H; y++)
    for (int x = 0; x < bbWidth; x++) {
      const int sx = box.minX + x, sy = box.minY + y;
      if (sx >= pic.width || sy >= pic.height) continue;  // blank box
      const uint32 pixel = pic.pixels[(size_t)sy * pic.width + sx];
      if (pixel != WHITE_PIXEL) bb_buf[(size_t)y * bbWidth + x] = pixel;
    }
  const double halfTurn = symmetryValue(bb_buf.data(), bbWidth, bbHeight, 1);
  const double mirror = symmetryValue(bb_buf.data(), bbWidth, bbHeight, 0);
  return halfTurn > mirror ? halfTurn : mirror;
}
