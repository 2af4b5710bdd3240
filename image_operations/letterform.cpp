// Letterform detectors: column and row scans of single glyph pictures that
// tell apart particular letter designs, and the comparison of a lower-case
// letter's centre of ink with its capital's.
#include "image_operations/letterform.h"

#include <stdlib.h>

#include "image_operations/size_metrics.h"
#include "image_operations/style_classes.h"

namespace {

// Scans picture column x from the bottom up and counts the changes between
// white and ink, starting in white. The rows of changes `firstMark` and
// `secondMark` (counted from 1) are written to *y1 and *y2; the scan stops at
// change `lastChange`. Returns the number of changes seen.
int climbColumn(const uint32* pixels, int width, int height, int x,
                int firstMark, int secondMark, int lastChange, int* y1,
                int* y2) {
  *y1 = height - 1;
  *y2 = 0;
  int exitCounter = 0;
  bool searchForGrey = true;
  for (int y = height - 1; y >= 0; y--) {
    bool ink = darknessAt(pixels, width, height, x, y) != 0.0;
    if (ink != searchForGrey) continue;
    searchForGrey = !searchForGrey;
    exitCounter++;
    if (exitCounter == firstMark) *y1 = y;
    if (exitCounter == secondMark) *y2 = y;
    if (exitCounter == lastChange) break;
  }
  return exitCounter;
}

}  // namespace

double getAllCaps(const char* file1, const char* file2) {
  double gravX1 = 0, grayY1 = 0, avgX1 = 0, avgY1 = 0;
  double gravX2 = 0, grayY2 = 0, avgX2 = 0, avgY2 = 0;
  GetCenterOfGravity(file1, &gravX1, &grayY1, &avgX1, &avgY1);
  GetCenterOfGravity(file2, &gravX2, &grayY2, &avgX2, &avgY2);
  double isallCap = (gravX1 - gravX2) * (gravX1 - gravX2) +
                    (grayY1 - grayY2) * (grayY1 - grayY2);
  return 0.0015 > isallCap ? 1.0 : 0.0;
}

double getsmalliFontVal(const char* filePath) {
  PictureRead pic(filePath);
  uint32* pixels = pic.pixels;
  const int width = pic.width, height = pic.height;
  if (pixels == NULL) return 0.0;
  int minX, minY, maxX, maxY;
  getBoundingBox(pixels, &minX, &minY, &maxX, &maxY, width, height);
  double W = abs(maxX - minX) + 1;
  double H = abs(maxY - minY) + 1;

  // The row pass of the stencil gap test: a row is a gap when it has no ink,
  // or when it lies on a falling slope far below the darkest row and holds
  // only pale pixels (a dot joined to the stem by antialiasing).
  int whiteline =
      stencilGapLines(pixels, width, height, minX, minY, W, H, false);
  return whiteline != 0 ? 1.0 : 0.0;
}

double isTowStoryag(const char* filePath, int isgchar) {
  PictureRead pic(filePath);
  uint32* pixels = pic.pixels;
  const int width = pic.width, height = pic.height;
  if (pixels == NULL) return 0.0;
  int minX, minY, maxX, maxY;
  getBoundingBox(pixels, &minX, &minY, &maxX, &maxY, width, height);
  double o_BB_width = abs(maxX - minX) + 1;

  const int limit = isgchar ? 3 : 2;
  int repCount = 0, isTwostoryag = 0;
  for (int x = 0; x < width; x++) {
    int strokesCnt = 0;
    bool lookForBlack = true;
    for (int y = 0; y < height; y++) {
      double value = pixelDarkness(pixels[(size_t)y * width + x]);
      if (value > 0 && lookForBlack) {
        lookForBlack = false;
      } else if (value == 0 && !lookForBlack) {
        lookForBlack = true;
        strokesCnt++;  // a stroke counts when it ends
      }
    }
    // Runs of busy columns are added when a quiet column ends them, and only
    // if at least two columns long.
    if (strokesCnt > limit) {
      repCount += 1;
    } else {
      if (repCount > 1) isTwostoryag += repCount;
      repCount = 0;
    }
  }
  return o_BB_width > 0 ? isTwostoryag / o_BB_width : 0.0;
}

int getCounterOpenness(const char* file) {
  PictureRead pic(file);
  uint32* pixels = pic.pixels;
  const int width = pic.width, height = pic.height;
  if (pixels == NULL) return -1;
  int openHeight = height;
  for (int x = width / 2; x < width - 1; x++) {
    int y1, y2;
    // Changes going up: 1 enters the lowest stroke, 2 leaves it, 3 enters
    // the next one.
    if (climbColumn(pixels, width, height, x, 2, 3, 3, &y1, &y2) == 3 &&
        y1 - y2 + 1 < openHeight)
      openHeight = y1 - y2 + 1;
  }
  return openHeight;
}

double getCounterCloseness(const char* file, int isSmallA) {
  PictureRead pic(file);
  uint32* pixels = pic.pixels;
  const int width = pic.width, height = pic.height;
  if (pixels == NULL) return -1.0;
  // The bowl of an a lies between changes 2 and 3 going up, the eye of an e
  // between changes 4 and 5; either way the column must cross three strokes.
  int firstMark = isSmallA ? 2 : 4;
  int secondMark = isSmallA ? 3 : 5;
  double CloseArea = 0.0;
  int NumColumns = 0;
  for (int x = 0; x < width - 1; x++) {
    int y1, y2;
    if (climbColumn(pixels, width, height, x, firstMark, secondMark, 6, &y1,
                    &y2) == 6) {
      CloseArea += y1 - y2 + 1;
      NumColumns += 1;
    }
  }
  if (NumColumns == 0 || height == 0) return 0.0;
  return CloseArea / ((double)height * NumColumns);
}
