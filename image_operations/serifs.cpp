// Serif measurements: stem-end widening, bracket evenness, head wedges,
// ascender unevenness, diagonal feet and flared stems. Each function reads its
// own picture, deskews it with deskewPicture where it takes a skew angle,
// measures over the ink box and frees it.
#include "image_operations/serifs.h"

#include <math.h>
#include <stdlib.h>

#include <vector>

#include "image_operations/slant_stroke.h"

namespace {

// A picture read for one measurement, with its ink box; released on every way
// out. Positions (x, y) of the box count from minX, minY.
struct SerifPicture : PictureRead {
  int minX = 0, minY = 0, maxX = 0, maxY = 0;

  // Reads `path`; with a SkewAngle other than 0 the picture is sheared
  // upright about its middle row and is newWidth = width + 2 * refY wide.
  SerifPicture(const char* path, double SkewAngle) : PictureRead(path) {
    if (pixels == NULL) return;
    deskewPicture(this, SkewAngle);
    getBoundingBox(pixels, &minX, &minY, &maxX, &maxY, width, height);
  }

  bool ok() const { return pixels != NULL; }
  int boxWidth() const { return abs(maxX - minX) + 1; }
  int boxHeight() const { return abs(maxY - minY) + 1; }

  // Raw pixel at box position (x, y); white outside the picture, which the
  // box of a blank picture (1, 1, 0, 0) and the row below the box reach.
  uint32 boxPixel(int x, int y) const {
    int px = minX + x, py = minY + y;
    if (px < 0 || py < 0 || px >= width || py >= height) return WHITE_PIXEL;
    return pixels[(size_t)py * width + px];
  }
  double boxDarkness(int x, int y) const {
    return darknessAt(pixels, width, height, minX + x, minY + y);
  }
};

// ---- getFontSerifInfo ----------------------------------------------------

// Darkness above which a pixel belongs to a run of the stem-end scan.
const double kRunDarkness = 0.1;

// Appends one value to the end of a GreyMapList whose last node is *tail.
void appendRun(struct GreyMapList** head, struct GreyMapList** tail,
               double value) {
  struct GreyMapList* node =
      (struct GreyMapList*)xmalloc(sizeof(struct GreyMapList));
  node->value = value;
  node->next = NULL;
  if (*tail == NULL)
    *head = node;
  else
    (*tail)->next = node;
  *tail = node;
}

void freeRuns(struct GreyMapList* head) {
  while (head != NULL) {
    struct GreyMapList* next = head->next;
    free(head);
    head = next;
  }
}

// Stem zone: every run of dark pixels in rows [firstRow, endRow) goes into
// the list, its length a pixel count; returns how many were listed.
int listStemRuns(const SerifPicture& pic, int W, int firstRow, int endRow,
                 struct GreyMapList** head) {
  struct GreyMapList* tail = NULL;
  int strwidLength = 0;
  for (int y = firstRow; y < endRow; y++) {
    int pixCount = 0;
    for (int x = 0; x < W; x++) {
      if (pic.boxDarkness(x, y) > kRunDarkness) {
        pixCount += 1;
      } else if (pixCount > 0) {
        appendRun(head, &tail, pixCount);
        strwidLength += 1;
        pixCount = 0;
      }
    }
    if (pixCount > 0) {
      appendRun(head, &tail, pixCount);
      strwidLength += 1;
    }
  }
  return strwidLength;
}

// Serif zone: the widest run of rows [firstRow, endRow). A run that fails to
// beat the record is not cleared, so the next run of the row adds to it; the
// row's last count is taken only when the row ends on a non-white pixel.
double widestSerifRun(const SerifPicture& pic, int W, int firstRow,
                      int endRow) {
  double MaxWidthval = 0.0;
  for (int y = firstRow; y < endRow; y++) {
    int pixCount = 0;
    for (int x = 0; x < W; x++) {
      if (pic.boxDarkness(x, y) > kRunDarkness) {
        pixCount += 1;
      } else if (pixCount > MaxWidthval) {
        MaxWidthval = pixCount;
        pixCount = 0;
      }
    }
    if (pixCount > MaxWidthval && pic.boxPixel(W - 1, y) != WHITE_PIXEL)
      MaxWidthval = pixCount;
  }
  return MaxWidthval;
}

// ---- subSerifType and AscenderStdDvSerifness ------------------------------

// Columns of a bracket: from startRange (the first solid column) up to, not
// including, endRange (the stem), with the summed ink of each column.
struct BracketRange {
  int startRange = -1;
  int endRange = 0;
  double totalGrey = 0.0;
};

// Whether a column is passed over as the faint left edge of a bracket:
// empty while nothing has been summed yet, or of mean darkness below 0.3.
// The mean of an empty column (0 / 0) passes no test, so an empty column
// after the bracket has begun is kept.
bool isFaintEdgeColumn(double totalGrey, int numActive, double greyVal) {
  if (totalGrey == 0 && numActive == 0) return true;
  return numActive > 0 && greyVal / numActive < 0.3;
}

// Mean of the column sums over the range and the mean absolute deviation
// from it (steps shared by both halves of the bracket): the mean is kept
// only when the range is not empty and `heightOk`; the deviation is divided
// by the width of a range of at least one column, else 0.
void bracketSpread(const double* greyVal, const BracketRange& r, bool heightOk,
                   double* meanGrey, double* stdDev) {
  *meanGrey = r.totalGrey;
  *stdDev = 0.0;
  if (r.endRange > r.startRange && heightOk) {
    *meanGrey /= (r.endRange - r.startRange);
    for (int x = r.startRange; x < r.endRange; x++)
      *stdDev += fabs(*meanGrey - greyVal[x]);
  } else {
    *meanGrey = 0.0;
  }
  if (r.endRange - r.startRange >= 1 && r.startRange >= 0 && r.endRange >= 0)
    *stdDev /= (r.endRange - r.startRange);
  else
    *stdDev = 0.0;
}

// Number of column sums subSerifType keeps; its scan stops before this.
const int kBracketColumns = 256;

// One half of subSerifType: the foot serif's bracket (`foot`, the bottom
// half of the box) or the head serif's (the top half). Columns from 1 sum
// their ink in that half until the stem, a column with more than H / 8 ink
// pixels. The bracket's height runs between its outer edge and its inner
// edge, which each half finds the other way round:
// - foot: the inner edge is where a column's ink starts, taken from the
//   column before the stem; the outer edge is the box's bottom, H.
// - head: the outer edge is where the first inked column's ink starts; the
//   inner edge is where a column's ink ends (its first white pixel after
//   ink), taken from the column before the stem.
void bracket(const SerifPicture& pic, int H, int MaximumWidth, bool foot,
             double* greyVal, double* totalGrey, double* stdDev) {
  BracketRange r;
  int inkStart = -1, inkEnd = -1, innerBefore = -1;
  const int yFrom = foot ? H / 2 : 0, yTo = foot ? H : H / 2;
  for (int x = 1; x < MaximumWidth; x++) {
    int numActive = 0;
    greyVal[x] = 0.0;
    if (!foot) inkEnd = -1;
    int y;
    for (y = yFrom; y < yTo; y++) {
      double value = pic.boxDarkness(x, y);
      if (value == 0.0) {
        if (!foot && numActive > 0 && inkEnd == -1) inkEnd = y;
        continue;
      }
      if (numActive == 0) inkStart = y;
      numActive += 1;
      greyVal[x] += value;
    }
    if (isFaintEdgeColumn(r.totalGrey, numActive, greyVal[x])) {
      r.startRange = x + 1;
      continue;
    }
    if (numActive > H / 8) {  // the stem
      if (r.startRange == -1) r.startRange = x;
      if (foot) {
        inkStart = innerBefore;
      } else {
        if (inkStart == -1) inkStart = y;
        inkEnd = innerBefore;
      }
      r.endRange = x;
      break;
    }
    if (r.startRange == -1) r.startRange = x;
    if (foot && inkEnd == -1) inkEnd = y;  // y is H here: the box's bottom
    innerBefore = foot ? inkStart : inkEnd;
    r.totalGrey += greyVal[x];
  }
  bracketSpread(greyVal, r, inkEnd > inkStart, totalGrey, stdDev);
  int height = abs(inkEnd - inkStart);
  if (height != 0) *totalGrey /= height;
}

// ---- WedgeSerifType ------------------------------------------------------

// A run of equal darkness values: the count grows while values repeat and
// starts again at 1 on a new value.
void countSameValue(double value, double* prevValue, int* sameCount) {
  if (value == *prevValue) {
    *sameCount += 1;
  } else {
    *prevValue = value;
    *sameCount = 1;
  }
}

// The points traced over the wedge, in picture positions (-1 unset).
struct WedgeTrace {
  int xleft = -1, yleft = -1;                // first top-edge point
  int xRight = -1, yRight = -1;              // last top-edge point
  int xbottomleft = -1, ybottomleft = -1;    // first under-edge point
  int xRightbottom = -1, yRightbottom = -1;  // last under-edge point
  int startRange = -1, endRange = -1;
  int pxvalSameTop = 0, pxvalSameBottom = 0;
  double PrevPxvalTop = 0.0, PrevPxValBottom = 0.0;
  double totalGreyTop = 0.0, totalGreyBottom = 0.0;
};

// Traces the top and under edges column by column over the left third of
// the top quarter until the stem (a column of ink down to the zone's last
// row) is met after the wedge has begun.
void traceWedge(const SerifPicture& pic, int W, int H, WedgeTrace* t) {
  for (int x = 0; x < W / 3; x++) {
    bool FirstGreyPx = false;
    double PrevGreyVal = 0.0;
    int PrevX = 0, PrevY = 0, yRightPrev = 0, xRightPrev = 0;
    int ActivePxCount = 0;
    bool runEnded = false;
    for (int y = 0; y < H / 4; y++) {
      double value = pic.boxDarkness(x, y);
      const int px = pic.minX + x, py = pic.minY + y;
      if (value == 0.0) {
        if (FirstGreyPx) {
          runEnded = true;
          break;
        }
        continue;
      }
      ActivePxCount += 1;
      if (!FirstGreyPx) {
        countSameValue(value, &t->PrevPxvalTop, &t->pxvalSameTop);
        t->totalGreyTop += value;
        if (t->yleft == -1) {
          t->xleft = px;
          t->yleft = py;
        } else {
          xRightPrev = px;
          yRightPrev = py;
        }
        if (t->startRange == -1) t->startRange = px;
        FirstGreyPx = true;
      }
      PrevGreyVal = value;
      PrevX = px;
      PrevY = py;
      // Ink to the zone's last row: the stem. It ends the wedge at the last
      // under-edge point found so far (still -1 if there is none).
      if (y == H / 4 - 1 && t->endRange == -1 && ActivePxCount > H / 8)
        t->endRange = t->xRightbottom;
    }
    if (runEnded) {
      countSameValue(PrevGreyVal, &t->PrevPxValBottom, &t->pxvalSameBottom);
      t->totalGreyBottom += PrevGreyVal;
      if (t->ybottomleft == -1) {
        t->xbottomleft = PrevX;
        t->ybottomleft = PrevY;
      } else {
        t->xRightbottom = PrevX;
        t->yRightbottom = PrevY;
        t->xRight = xRightPrev;
        t->yRight = yRightPrev;
      }
    }
    if (t->startRange != -1 && t->endRange != -1) break;
  }
}

// Distance of (x1, y1) from the line through (xa, ya) and (xb, yb) whose
// length is `length`; the cross product is taken in ints.
double lineDistance(int x1, int y1, int xa, int ya, int xb, int yb,
                    double length) {
  int cross = (y1 - ya) * (xb - xa) - (x1 - xa) * (yb - ya);
  return abs(cross) / length;
}

// ---- getDiagonalSerifs ---------------------------------------------------

// The ink box copied into a picture of its own, W by H.
struct BoxCopy {
  std::vector<uint32> pixels;
  int W = 0, H = 0;
  double darkness(int x, int y) const {
    return darknessAt(pixels.data(), W, H, x, y);
  }
  int isBorder(int x, int y) {
    return isBorderPixel(pixels.data(), y * W + x, W, H);
  }
};

}  // namespace

double getFontSerifInfo(const char* filepath, int isupperRemove) {
  SerifPicture pic(filepath, 0.0);
  if (!pic.ok()) return 0.0;
  const int W = pic.boxWidth();
  const int H = pic.boxHeight();

  int stemFirst, stemEnd, serifFirst, serifEnd;
  if (isupperRemove != 0) {
    stemFirst = (int)(H / 4 + 0.02);
    stemEnd = (int)(0.02 + H);
    serifFirst = 0;
    serifEnd = (int)(H / 4 + 0.02);
  } else {
    stemFirst = 0;
    stemEnd = (int)(3 * H / 4 + 0.02);
    serifFirst = (int)(3 * H / 4 + 0.02);
    serifEnd = (int)(0.02 + H);
  }

  struct GreyMapList* runs = NULL;
  const int strwidLength = listStemRuns(pic, W, stemFirst, stemEnd, &runs);
  const double MaxWidthval = widestSerifRun(pic, W, serifFirst, serifEnd);
  // The median of no runs is undefined: a blank or stemless zone gives 0.
  if (strwidLength == 0) return 0.0;
  const double MedStrkwidth = GetMedianWidth(runs, strwidLength);
  freeRuns(runs);

  if (MaxWidthval <= 5.0 && MaxWidthval - MedStrkwidth < 3.0) return 0.0;
  if (MaxWidthval - MedStrkwidth == 1.0) return 0.0;
  double result = MaxWidthval / MedStrkwidth - 1.0;
  // A serif zone narrower than the stem gives the top value.
  if (result < 0) return 4.0;
  return result;
}

double subSerifType(const char* file, double SkewAngle, double* BrackStdDev,
                    double* BracketGreyVal) {
  SerifPicture pic(file, SkewAngle);
  if (!pic.ok()) return 0.0;
  const int W = pic.boxWidth();
  const int H = pic.boxHeight();
  const int MaximumWidth = W < 1024 ? W / 4 : kBracketColumns - 1;

  double greyVal[kBracketColumns] = {0.0};
  double totalGreyBottom = 0.0, stdDevBottom = 0.0;
  double totalGreyTop = 0.0, stdDevTop = 0.0;
  bracket(pic, H, MaximumWidth, true, greyVal, &totalGreyBottom,
          &stdDevBottom);
  bracket(pic, H, MaximumWidth, false, greyVal, &totalGreyTop, &stdDevTop);

  *BrackStdDev += stdDevBottom + stdDevTop;
  *BracketGreyVal += totalGreyBottom + totalGreyTop;
  return 0.0;
}

double WedgeSerifType(const char* file, double* wedgeAngleTop,
                      double* wedgeAngleBottom, double* stdDevWedgeValueTop,
                      double* stdDevWedgeValueBottom) {
  const double WedgeVal = 0.0;
  SerifPicture pic(file, 0.0);
  if (!pic.ok()) return WedgeVal;
  const int W = pic.boxWidth();
  const int H = pic.boxHeight();

  WedgeTrace t;
  traceWedge(pic, W, H, &t);
  // No wedge leading into a stem, or a top edge falling towards the stem.
  if (t.startRange == -1 || t.endRange == -1 || t.yleft < t.yRight)
    return WedgeVal;

  const double sqrtTop =
      sqrt((double)(t.xRight - t.xleft) * (t.xRight - t.xleft) +
           (double)(t.yRight - t.yleft) * (t.yRight - t.yleft));
  const double sqrtBottom = sqrt((double)(t.xRightbottom - t.xbottomleft) *
                                     (t.xRightbottom - t.xbottomleft) +
                                 (double)(t.yRightbottom - t.ybottomleft) *
                                     (t.yRightbottom - t.ybottomleft));

  // Fit: box columns from the left, as many as the wedge spans.
  double stdDevTop = 0.0, stdDevBottom = 0.0;
  for (int x = 0; x < t.endRange - t.startRange + 1; x++) {
    bool inInk = false;
    for (int y = 0; y < H / 4; y++) {
      const int x1 = pic.minX + x, y1 = pic.minY + y;
      const bool ink = pic.boxDarkness(x, y) != 0.0;
      if (ink && !inInk) {
        stdDevTop +=
            lineDistance(x1, y1, t.xleft, t.yleft, t.xRight, t.yRight, sqrtTop);
        inInk = true;
      } else if (!ink && inInk) {
        stdDevBottom +=
            lineDistance(x1, y1 - 1, t.xbottomleft, t.ybottomleft,
                         t.xRightbottom, t.yRightbottom, sqrtBottom);
        break;
      }
    }
  }

  const int xWidthTop = abs(t.xRight - t.xleft);
  const int xWidthBottom = abs(t.xRightbottom - t.xbottomleft);
  const int WedgeHeight = abs(t.yRightbottom - t.yRight + 1);
  // Many edge pixels of one darkness mean a flat, unsmoothed edge.
  const bool flatTop = t.pxvalSameTop > xWidthTop * 0.8;
  const bool flatBottom = t.pxvalSameBottom > xWidthBottom * 0.8;

  if (flatTop)
    *wedgeAngleTop = 0;
  else if (t.xRight != t.xleft)
    *wedgeAngleTop = fabs((double)(t.yRight - t.yleft) / (t.xRight - t.xleft));
  if (flatBottom)
    *wedgeAngleBottom = 0;
  else if (t.xRightbottom != t.xbottomleft)
    *wedgeAngleBottom = fabs((double)(t.yRightbottom - t.ybottomleft) /
                             (t.xRightbottom - t.xbottomleft));

  if (t.endRange > t.startRange) {
    const int n = (t.endRange - t.startRange + 1) * WedgeHeight;
    *stdDevWedgeValueTop = flatTop ? 0 : stdDevTop / n;
    *stdDevWedgeValueBottom = flatBottom ? 0 : stdDevBottom / n;
  } else {
    *stdDevWedgeValueTop = 0;
    *stdDevWedgeValueBottom = 0;
  }
  return WedgeVal;
}

double AscenderStdDvSerifness(const char* file) {
  SerifPicture pic(file, 0.0);
  if (!pic.ok()) return 0.0;
  const int H = pic.boxHeight();

  double greyVal[10] = {0.0};
  BracketRange r;
  for (int x = 1; x <= 9; x++) {
    int numActive = 0;
    greyVal[x] = 0.0;
    for (int y = 1; y < H / 3; y++) {
      double value = pic.boxDarkness(x, y);
      if (value == 0.0) continue;
      numActive += 1;
      greyVal[x] += value;
    }
    if (isFaintEdgeColumn(r.totalGrey, numActive, greyVal[x])) {
      r.startRange = x + 1;
      continue;
    }
    if (numActive > H / 8) {  // the stem
      if (r.startRange == -1) r.startRange = x;
      r.endRange = x;
      break;
    }
    if (r.startRange == -1) r.startRange = x;
    r.totalGrey += greyVal[x];
  }

  double totalGreyAsc = r.totalGrey;
  if (r.endRange != r.startRange)
    totalGreyAsc /= (r.endRange - r.startRange);
  else
    totalGreyAsc = 0.0;
  double stdDevAsc = 0.0;
  for (int x = r.startRange; x < r.endRange; x++)
    stdDevAsc += fabs(totalGreyAsc - greyVal[x]);
  if (r.endRange - r.startRange > 0)
    stdDevAsc /= (r.endRange - r.startRange);
  else
    stdDevAsc = 0.0;
  return stdDevAsc;
}

double getDiagonalSerifs(const char* filePath, int mode) {
  BoxCopy bb;
  {
    SerifPicture pic(filePath, 0.0);
    if (!pic.ok()) return 0.0;
    const double boxW = abs(pic.maxX - pic.minX) + 1;
    const double boxH = abs(pic.maxY - pic.minY) + 1;
    bb.W = (int)(boxW + 0.02);
    bb.H = (int)(boxH + 0.02);
    bb.pixels.assign((size_t)bb.W * bb.H, WHITE_PIXEL);
    for (int y = 0; y < bb.H; y++)
      for (int x = 0; x < bb.W; x++) {
        uint32 p = pic.boxPixel(x, y);
        if (p != WHITE_PIXEL) bb.pixels[(size_t)y * bb.W + x] = p;
      }
  }
  const int W = bb.W, H = bb.H;

  // The pivot: the lowest, then rightmost, ink of the lower half (right of
  // tempWidth).
  const int tempHeight = H / 2;
  const int tempWidth = mode == 0 ? W / 2 + 4 : 0;
  int endX = tempWidth - 1, pivotX = 0, pivotY = 0;
  bool found = false;
  for (int y = H - 1; y >= tempHeight && !found; y--)
    for (int x = W - 1; x >= tempWidth; x--)
      if (bb.darkness(x, y) > 0) {
        pivotX = endX = x;
        pivotY = y;
        found = true;
        break;
      }
  if (pivotY == 0) pivotY = H - 1;

  // Climb the right edge while it rises straight or to the right. endXRep
  // counts the rows climbed since the edge last stepped right.
  int endY = pivotY, oldEndX = endX, endXRep = 0;
  while (endY >= 2) {
    if (bb.darkness(endX, endY - 1) == 0.0) break;
    endY -= 1;
    const int rowStartX = endX;
    while (bb.isBorder(endX, endY) && endX < W - 1) endX += 1;
    if (endX != rowStartX) {
      if (!bb.isBorder(endX, endY)) endX -= 1;
    } else {
      // Solid ink above: the edge jumps away to the right.
      endY += 1;
      break;
    }
    if (endX != oldEndX) {
      oldEndX = endX;
      endXRep = 0;
    } else {
      endXRep += 1;
    }
  }
  // Rows climbed straight up at the end do not belong to the diagonal.
  endY += endXRep;

  const double dx = endX - pivotX, dy = endY - pivotY;
  if (sqrt(dx * dx + dy * dy) > 3.0) {
    const double m2 =
        pivotX == endX ? 0.0 : (double)(pivotY - endY) / (pivotX - endX);
    if (fabs(m2) > 0.45) {
      const double c2 = endY - endX * m2;
      int totalCount = 0, faultCount = 0;
      double totalDist = 0.0;
      for (int y = endY; y <= pivotY; y++)
        for (int x = pivotX; x <= endX; x++) {
          if (bb.darkness(x, y) <= 0.15) continue;
          totalCount += 1;
          const double dist = (y - x * m2 - c2) / sqrt(1.0 + m2 * m2);
          if (dist > 0) {
            faultCount += 1;
            totalDist += dist;
          }
        }
      (void)totalCount;
      return faultCount == 0 ? 0.0 : totalDist / faultCount;
    }
  }
  return 1.5;  // no usable diagonal
}

double getFlaredStems(const char* file, double SkewAngle) {
  SerifPicture pic(file, SkewAngle);
  if (!pic.ok()) return 0.0;
  const int W = pic.boxWidth();
  const int H = pic.boxHeight();

  int startRange = -1, endRange = 0;
  bool isRightPart = false;
  double totalGreyStem = 0.0;
  for (int x = W / 2; x < W - 1; x++) {
    int numActive = 0;
    double totalGreycolumn = 0.0;
    // The first run of ink up from one row below the box, row 0 excluded.
    for (int y = H; y >= 1; y--) {
      double value = pic.boxDarkness(x, y);
      if (value == 0.0) {
        if (numActive == 0) continue;
        break;
      }
      numActive += 1;
      totalGreycolumn += value;
    }
    if (numActive > H / 2 && !isRightPart) {
      isRightPart = true;  // the stem
    } else if (numActive < H / 3 && isRightPart) {
      if (startRange == -1) startRange = x;
      endRange = x;
      totalGreyStem += totalGreycolumn;
    }
  }

  const int d = endRange - startRange;
  if (d > 0) return d * totalGreyStem / (H * W);
  return 0.0;
}
