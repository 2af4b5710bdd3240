// Style-class detectors: blackletter bowls and crossings, stencil gaps,
// segmented strokes, outline letters, symbol pairs and the share of solid
// ink. Each function reads its own picture, measures the full picture or its
// ink box and frees it; getDigitalFont falls back on curviness_borderPath.
#include "image_operations/style_classes.h"

#include <math.h>
#include <stdlib.h>

#include <algorithm>

#include "image_operations/curviness_direction.h"

namespace {

// A picture read for one measurement, with its ink box; released on every way
// out. Box positions (x, y) count from minX, minY; reads outside the picture
// (the box of a blank picture, the line just past the box) see white.
struct StylePicture : PictureRead {
  int minX = 0, minY = 0, maxX = 0, maxY = 0;

  explicit StylePicture(const char* path) : PictureRead(path) {
    if (pixels == NULL) return;
    getBoundingBox(pixels, &minX, &minY, &maxX, &maxY, width, height);
  }

  bool ok() const { return pixels != NULL; }
  int boxWidth() const { return abs(maxX - minX) + 1; }
  int boxHeight() const { return abs(maxY - minY) + 1; }
  // Darkness at picture position (x, y).
  double darkness(int x, int y) const {
    return darknessAt(pixels, width, height, x, y);
  }
  // Darkness at box position (x, y).
  double boxDarkness(int x, int y) const {
    return darknessAt(pixels, width, height, minX + x, minY + y);
  }
};

// ---- getBlackletterness --------------------------------------------------

// One direction of the bowl check: four lines, each crossing counted as 2
// when the stroke is more than one pixel thick along the line. Reports
// whether the lines fail to look like two strokes each: a mean of crossings
// outside 3.5 to 4.5, or one line with more than 4.
bool bowlLinesFail(const StylePicture& pic, bool columns) {
  const int length = columns ? pic.height : pic.width;
  const int middle = (columns ? pic.width : pic.height) / 2;
  float intersections = 0, lastIntersections = 0, max_intersections = 0;
  int lastY = 100;
  for (int line = middle - 2; line < middle + 2; line++) {
    lastIntersections = intersections;
    bool searchWhite = false;
    for (int pos = 0; pos < length; pos++) {
      double value =
          columns ? pic.darkness(line, pos) : pic.darkness(pos, line);
      if ((!searchWhite && value > 0) || (searchWhite && value == 0)) {
        if (!searchWhite)
          lastY = pos;
        else if (abs(lastY - pos) > 1)
          intersections += 2.0f;
        searchWhite = !searchWhite;
      }
    }
    if (intersections - lastIntersections > max_intersections)
      max_intersections = intersections - lastIntersections;
  }
  intersections /= 4.0f;
  return intersections < 3.5f || intersections > 4.5f ||
         max_intersections > 4.0f;
}

// The cropped copy of the ink box that the V search works on, W by H.
// Positions (x, y) are read through the flat index y * W + x, so a position
// one past a row's end is the next row's first pixel, as the flank climb
// expects; an index outside the copy reads as white.
struct BoxCopy {
  uint32* buf = NULL;
  int W = 0, H = 0;

  BoxCopy(const StylePicture& pic) : W(pic.boxWidth()), H(pic.boxHeight()) {
    buf = (uint32*)xmalloc((size_t)W * H * sizeof(uint32));
    for (int y = 0; y < H; y++)
      for (int x = 0; x < W; x++) {
        int px = pic.minX + x, py = pic.minY + y;
        uint32 p = WHITE_PIXEL;
        if (px >= 0 && py >= 0 && px < pic.width && py < pic.height)
          p = pic.pixels[(size_t)py * pic.width + px];
        buf[(size_t)y * W + x] = p;
      }
  }
  ~BoxCopy() { free(buf); }
  BoxCopy(const BoxCopy&) = delete;
  BoxCopy& operator=(const BoxCopy&) = delete;

  long index(int x, int y) const { return (long)y * W + x; }
  double darkness(int x, int y) const {
    long loc = index(x, y);
    if (loc < 0 || loc >= (long)W * H) return 0.0;
    return pixelDarkness(buf[loc]);
  }
  bool border(int x, int y) const {
    long loc = index(x, y);
    if (loc >= (long)W * H) return false;
    return isBorderPixel(buf, (int)loc, W, H) != 0;
  }
};

// Share of ink outside the V whose point is (pivotX, pivotY) and whose
// flanks end at (startX, endY) and (endX, endY).
double inkOutsideV(const BoxCopy& box, int startX, int endX, int endY,
                   int pivotX, int pivotY) {
  // The slopes are quotients of whole pixel distances, truncated toward 0:
  // a flank rising less than it runs has slope 0 and counts as flat, so
  // only feet of 45 degrees or steeper are measured as a V.
  const int rise = pivotY - endY;
  double m1 = (pivotX - startX) != 0 ? rise / (pivotX - startX) : 0.0;
  double m2 = (pivotX - endX) != 0 ? rise / (pivotX - endX) : 0.0;
  if (fabs(m1) <= 0.1 || fabs(m2) <= 0.1) return 1.0;
  double c1 = endY - startX * m1;
  double c2 = endY - endX * m2;
  double totalCount = 0, faultCount = 0, totalDist = 0;
  for (int y = endY; y <= pivotY; y++)
    for (int x = startX; x < pivotX; x++) {
      if (box.darkness(x, y) > 0.15) {
        totalCount += 1;
        double dist = (y - x * m1 - c1) / sqrt(1.0 + m1 * m1);
        if (dist > 0) {
          faultCount += 1;
          totalDist += dist;
        }
      }
    }
  for (int y = endY; y <= pivotY; y++)
    for (int x = pivotX; x <= endX; x++) {
      if (box.darkness(x, y) > 0.15) {
        totalCount += 1;
        double dist = (y - x * m2 - c2) / sqrt(1.0 + m2 * m2);
        if (dist > 0) {
          faultCount += 1;
          totalDist += dist;
        }
      }
    }
  (void)totalDist;  // kept up as the measurement always has; not returned
  if (faultCount == 0) return 0.0;
  return faultCount / totalCount;
}

// ---- getStencilsFont -----------------------------------------------------

// ---- getHollowFont -------------------------------------------------------

// Counts one line for the hollow test: `darknessOf(i)` for i from 0 while
// i < `length` reads the line's pixels, `lastIndex` is the box's last column
// (or row). Returns 1 when the line shows ink, white, ink again (at most once
// a line). Adds the line's ink to *blackpxval.
template <typename Read>
int hollowLine(Read darknessOf, int length, int lastIndex, double* blackpxval) {
  int isBlackpx = 0, isWhitepx = 1, hollow = 0;
  for (int i = 0; i < length; i++) {
    double value = darknessOf(i);
    bool ink = value > 0;
    if (ink) *blackpxval += value;
    if (ink && isBlackpx != 1 && isWhitepx == 1) {
      isBlackpx = 1;
    } else if (!ink && isBlackpx == 1 && isWhitepx == 1) {
      isWhitepx = 0;
    } else if (!ink) {
      // white inside or outside the strokes: nothing to note
    } else if (isBlackpx == 1 && isWhitepx == 0) {
      hollow += 1;
      isBlackpx = 0;
    } else if (i == lastIndex) {
      isWhitepx = 0;
    }
  }
  return hollow;
}

}  // namespace

double testTforBlackletter(const char* filePath, int isToph) {
  StylePicture pic(filePath);
  if (!pic.ok()) return 0.0;
  int startY, endY;
  if (isToph != 0) {
    startY = 3;
    endY = pic.height / 4;
  } else {
    startY = pic.height / 2 + 3;
    endY = pic.height - 3;
  }
  float intersections = 0;
  for (int y = startY; y < endY; y++) {
    bool searchWhite = false;
    for (int x = 0; x < pic.width; x++) {
      double value = pic.darkness(x, y);
      if ((!searchWhite && value > 0) || (searchWhite && value == 0)) {
        intersections += 1;
        searchWhite = !searchWhite;
      }
    }
  }
  return intersections / (float)(endY - startY);
}

double getBlackletterness(const char* filePath, int mode) {
  StylePicture pic(filePath);
  if (!pic.ok()) return 0.0;

  // Stage 1: does the picture look like a bowl at all?
  if (mode == 1) {
    int numIssues = 0;
    if (bowlLinesFail(pic, true)) numIssues += 1;
    if (bowlLinesFail(pic, false)) numIssues += 1;
    if (numIssues == 2) return 1.0;
  }

  // Stage 2: the V at the foot of the bowl, in a copy of the ink box.
  BoxCopy box(pic);
  const int W = box.W, H = box.H;
  const int tempHeight = H / 2;
  const int tempWidth = (mode == 0) ? (W * 2) / 3 : W;

  // The lowest row holding ink: its first run gives the bottom of the V.
  int startX = 0, endX = tempWidth - 1, pivotY = 0;
  for (int y = H - 1; y >= tempHeight; y--) {
    bool shouldSearchGrey = true;
    bool found = false;
    int x;
    for (x = 0; x < tempWidth; x++) {
      bool ink = box.darkness(x, y) > 0;
      if (shouldSearchGrey && ink) {
        startX = x;
        shouldSearchGrey = false;
      } else if (!shouldSearchGrey && !ink) {
        pivotY = y;
        endX = x - 1;
        found = true;
        break;
      }
    }
    if (!found && !shouldSearchGrey) {
      // ink ran to tempWidth: endX is one past it, as the climb expects
      pivotY = y;
      endX = x;
      found = true;
    }
    if (found) break;
  }
  if (pivotY == 0) pivotY = H - 1;

  int endY = pivotY;
  const int pivotX = (startX + endX) / 2;
  int oldEndX = endX, oldStartX = startX;
  int endXRep = 0, startXRep = 0;

  // Climb both flanks along the outer border pixels.
  for (;;) {
    if (endY < 2) break;
    if (box.darkness(startX, endY - 1) == 0 ||
        box.darkness(endX, endY - 1) == 0)
      break;
    endY -= 1;

    // Each flank follows the border outward and then steps back off a white
    // pixel. A flank that ends where it started (its pixel in the new row is
    // no border pixel, or the border rises straight up) ends the climb one
    // row lower. So every round that goes on has moved both flanks, and the
    // repeat counts below stay at 0; they are kept as the climb has them.
    const int fromStartX = startX;
    while (box.border(startX, endY) && startX > 0) startX -= 1;
    if (startX != fromStartX && !box.border(startX, endY)) startX += 1;
    if (startX == fromStartX) {
      endY += 1;
      break;
    }

    const int fromEndX = endX;
    while (box.border(endX, endY) && endX < W - 1) endX += 1;
    if (endX != fromEndX && !box.border(endX, endY)) endX -= 1;
    if (endX == fromEndX) {
      endY += 1;
      break;
    }

    if (endX == oldEndX) {
      endXRep += 1;
      if (endXRep > 9) break;
    } else {
      oldEndX = endX;
      endXRep = 0;
    }
    if (startX != oldStartX) {
      oldStartX = startX;
      startXRep = 0;
    } else {
      startXRep += 1;
      if (startXRep > 9) break;
    }
  }
  endY += std::max(endXRep, startXRep);

  // The row reached gives the ends of the two flank lines.
  startX = -1;
  endX = -1;
  for (int x = 0; x < W; x++) {
    if (box.darkness(x, endY) > 0) {
      if (startX == -1) startX = x;
      endX = x;
    }
  }

  if ((endX - startX) * (pivotY - endY) <= 4) return 1.0;
  if (pivotY - endY < 2 && (pivotX - startX < 2 || endX - pivotX < 2))
    return 1.0;
  return inkOutsideV(box, startX, endX, endY, pivotX, pivotY);
}

int stencilGapLines(const uint32* pixels, int width, int height, int minX,
                    int minY, double W, double H, bool columns) {
  const double along = columns ? W : H, across = columns ? H : W;
  double MinGreyvalue = 9999.0, darkestLine = 0, prevgreyval = 0;
  int whiteline = 0;
  for (int i = (int)(0.05 * along + 0.02); i < (int)(0.95 * along + 0.02);
       i++) {
    double TotalGreyVal = 0, blackpix = 0;
    int blackpixcount = 0;
    for (int j = 0; j < (int)(0.02 + across); j++) {
      int x = columns ? i : j, y = columns ? j : i;
      double value = darknessAt(pixels, width, height, minX + x, minY + y);
      if (value > 0) {
        TotalGreyVal += value;
        blackpixcount += 1;
        if (value > 0.5) blackpix = 1.0;
      }
    }
    // A minimum is taken only on a falling slope, when the previous line
    // was heavier.
    if (MinGreyvalue > TotalGreyVal && prevgreyval > TotalGreyVal)
      MinGreyvalue = TotalGreyVal;
    if (TotalGreyVal > darkestLine) darkestLine = TotalGreyVal;
    prevgreyval = TotalGreyVal;
    if (blackpixcount == 0)
      whiteline += 1;
    else if (MinGreyvalue / darkestLine < 0.05 && blackpix == 0)
      whiteline += 1;
  }
  return whiteline;
}

double getStencilsFont(const char* filepath) {
  StylePicture pic(filepath);
  if (!pic.ok()) return 0.0;
  const double W = pic.boxWidth();
  const double H = pic.boxHeight();
  // The columns first; the rows only when no column is a gap.
  int gaps = stencilGapLines(pic.pixels, pic.width, pic.height, pic.minX,
                             pic.minY, W, H, true);
  if (gaps == 0)
    gaps = stencilGapLines(pic.pixels, pic.width, pic.height, pic.minX,
                           pic.minY, W, H, false);
  return gaps != 0 ? 1.0 : 0.0;
}

double getDigitalFont(const char* filepath, double SkewAngle) {
  bool segmented = false;
  {
    StylePicture pic(filepath);
    if (!pic.ok()) return 0.0;
    const int W = pic.boxWidth();
    const double H = pic.boxHeight();
    int MinStrkwidth = 999, MaxStrkwidth = 0, count = 0;
    int decresingpixel = 0, increasingpix = 0, Prevblackpixcount = 0;
    int isCloseloop = 0;
    int isBlackpx = 0, isWhitepx = 1;
    double Totgreyvalue = 0;
    for (int y = (int)(0.3 * H + 0.02); y < (int)(0.7 * H + 0.02); y++) {
      int blackpixcount = 0, isBlackstrk = 0;
      isBlackpx = 0;
      isWhitepx = 1;
      for (int x = 0; W > x; x++) {
        double value = pic.boxDarkness(x, y);
        bool ink = value > 0;
        if (ink && isWhitepx == 1) {
          isBlackpx = 1;
          blackpixcount += 1;
          isBlackstrk = 1;
          count += 1;
          Totgreyvalue += value;
        } else if (!ink && isBlackstrk == 1 && isBlackpx == 1 &&
                   isWhitepx == 1) {
          // the first run of the row is over
          isWhitepx = 0;
          MinStrkwidth = std::min(MinStrkwidth, blackpixcount);
          MaxStrkwidth = std::max(MaxStrkwidth, blackpixcount);
          if (blackpixcount < Prevblackpixcount && increasingpix == 0)
            decresingpixel = 1;
          else if (blackpixcount > Prevblackpixcount && decresingpixel == 1)
            increasingpix = 1;
          Prevblackpixcount = blackpixcount;
        } else if (ink && isBlackpx == 1 && isWhitepx == 0) {
          // a second run in the row: the stroke closes a loop
          isBlackpx = 0;
          isCloseloop = 1;
        }
        if (x == W - 1 && ink) isWhitepx = 0;
      }
    }
    (void)count;
    (void)Totgreyvalue;
    double ratio = (double)MinStrkwidth / (double)MaxStrkwidth;
    segmented = decresingpixel == 1 && increasingpix == 1 && isBlackpx == 1 &&
                isWhitepx == 0 && isCloseloop == 0 && 0.1 < ratio &&
                ratio < 0.5;
  }
  if (segmented) return 1.0;
  return curviness_borderPath(filepath, SkewAngle, 1);
}

double getHollowFont(const char* file) {
  StylePicture pic(file);
  if (!pic.ok()) return 0.0;
  const int W = pic.boxWidth();
  const int H = pic.boxHeight();
  const int lastLine = (int)(H + 0.02);  // one past the box, inclusive

  int Hollowcnthorz = 0;
  for (int y = 0; y <= lastLine; y++) {
    double blackpxval = 0;
    Hollowcnthorz += hollowLine([&](int x) { return pic.boxDarkness(x, y); }, W,
                                W - 1, &blackpxval);
    if (blackpxval > W / 2) Hollowcnthorz -= 1;
  }

  int Hollowcntvert = 0;
  for (int x = 0; x < W; x++) {
    double blackpxval = 0;
    Hollowcntvert += hollowLine([&](int y) { return pic.boxDarkness(x, y); },
                                lastLine + 1, H - 1, &blackpxval);
    if (blackpxval > H / 2) Hollowcntvert -= 1;
  }

  if (Hollowcnthorz < 0) Hollowcnthorz = 0;
  if (Hollowcntvert < 0) Hollowcntvert = 0;
  return (double)(Hollowcntvert + Hollowcnthorz) / (double)(W + H);
}

double getSymbolFont(const char* file1, const char* file2, int isReverse) {
  StylePicture first(file1);
  if (!first.ok()) return 0.0;
  // The second file is a precondition of the comparison; without it there
  // is nothing to compare and the read failure value comes back.
  StylePicture second(file2);
  if (!second.ok()) return 0.0;

  const double width1 = first.boxWidth(), height1 = first.boxHeight();
  const double width2 = second.boxWidth(), height2 = second.boxHeight();
  double totalCnt = 0, count = 0;
  for (int y = 0; y < height1 && y < height2; y++)
    for (int x = 0; x < width1 && x < width2; x++) {
      totalCnt += 1;
      double value1 = first.darkness(first.minX + x, first.minY + y);
      double value2 = isReverse == 1
                          ? second.darkness(second.maxX - x, second.minY + y)
                          : second.darkness(second.minX + x, second.minY + y);
      if (value1 != value2) count += 1;
    }
  return count / totalCnt;
}

double percentDarkPixels(const char* file) {
  StylePicture pic(file);
  if (!pic.ok()) return 0.0;
  const double threshold = 0.7f;
  double totalCount = 0, darkCount = 0;
  for (int y = 0; y < pic.height; y++)
    for (int x = 0; x < pic.width; x++) {
      double value = pic.darkness(x, y);
      if (value > 0) {
        totalCount += 1;
        if (value > threshold) darkCount += 1;
      }
    }
  return darkCount / totalCount;
}
