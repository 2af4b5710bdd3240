// Slant, stress and stroke width measurements on glyph pictures: the shear
// that other families use to deskew, the slant search, stroke widths of
// stems and bars, the stress axis of an o and the bar slope of an e.
// Each measurement reads its own picture through ReadPngFile and frees it.
#include "image_operations/slant_stroke.h"

#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>


namespace {

// One picture read for the span of a measurement, released on every way
// out.
struct OwnedPicture : PictureRead {
  explicit OwnedPicture(const char* path) : PictureRead(path) {}

  // Pixel (x, y), white outside the picture. Box-relative scans of a blank
  // picture (box 1, 1, 0, 0) may reach past a tiny picture's edge.
  uint32 at(int x, int y) const {
    if (x < 0 || y < 0 || x >= width || y >= height) return WHITE_PIXEL;
    return pixels[(size_t)y * width + x];
  }
  double darkness(int x, int y) const { return pixelDarkness(at(x, y)); }
};

// Subtracts `ink` from the target pixel at column `col` of row `rowStart`,
// dropping ink that would leave the row.
void takeInk(uint32* d_buf, size_t rowStart, long long col, int newWidth,
             long long ink) {
  if (col < 0 || col >= newWidth) return;
  d_buf[rowStart + (size_t)col] -= (uint32)ink;
}

// Width of the ink box of a picture, |maxX - minX| + 1 (2 for a blank one).
int inkBoxWidth(uint32* buf, int width, int height) {
  int minX, minY, maxX, maxY;
  getBoundingBox(buf, &minX, &minY, &maxX, &maxY, width, height);
  return abs(maxX - minX) + 1;
}

// The run scan of the stroke widths: for box rows firstRow..lastRow inclusive,
// sums the darkness of each horizontal run of ink; a run is taken into the
// total only if it is wider than all runs taken before it in its row.
void sumWideningRuns(const OwnedPicture& pic, int minX, int minY, int W,
                     int firstRow, int lastRow, double* avgStrokeWidth,
                     int* count) {
  for (int y = firstRow; y <= lastRow; y++) {
    double blackpixvalue = 0.0, strkwidthval = 0.0;
    bool isBlackstrk = false;
    // x == W stands for the end of the row, which closes an open run.
    for (int x = 0; x <= W; x++) {
      double value = x < W ? pic.darkness(minX + x, minY + y) : 0.0;
      if (value != 0.0) {
        blackpixvalue += value;
        isBlackstrk = true;
        continue;
      }
      if (!isBlackstrk) continue;
      if (blackpixvalue > strkwidthval) {
        strkwidthval = blackpixvalue;
        *avgStrokeWidth += strkwidthval;
        *count += 1;
      }
      blackpixvalue = 0.0;
      isBlackstrk = false;
    }
  }
}

// Ceiling, floor and the two weights of a fractional ray offset.
struct RayStep {
  double portion1, portion2;
  int c_pix, f_pix;
};

RayStep rayStep(double quantAdd) {
  RayStep s;
  s.portion1 = fabs(quantAdd - trunc(quantAdd));
  s.portion2 = 1.0 - s.portion1;
  s.c_pix = (int)ceil(quantAdd);
  s.f_pix = (int)floor(quantAdd);
  return s;
}

// Darkness at a flat index of the cropped bowl picture; indices outside it
// count as white. The ray tests let some positions past the picture's last
// row or before its first pixel; inside it, a column past a row's edge reads
// the neighbouring row, as the flat index says.
double flatDarkness(const std::vector<uint32>& bb, long long index) {
  if (index < 0 || index >= (long long)bb.size()) return 0.0;
  return pixelDarkness(bb[(size_t)index]);
}

// Angles of the stress rays in sweep order: 0, 1, -1, 2, -2, ... 45, -45.
std::vector<int> stressSweepOrder() {
  std::vector<int> order(1, 0);
  for (int a = 1; a <= 45; a++) {
    order.push_back(a);
    order.push_back(-a);
  }
  return order;
}

// The state the two sweeps share: the ray thicknesses by index, the last
// thickness recorded, and whether rays are counted in pixels.
struct StressRays {
  double angleList[181];
  double lastMinPix = 100.0;
  bool mode = false;
};

// Closes one ray: with `checkMode` (first sweep only) a first ray of at most
// 2.0 ink switches to counting pixels for good; then the ray's thickness is
// recorded if it reaches `minInk` and lies below 100.
void recordRay(StressRays* rays, int index, double tempPix, int strokeWidth,
               bool checkMode, double minInk) {
  const double minPix = 100.0;
  if (checkMode && rays->lastMinPix == 100.0 && tempPix <= 2.0)
    rays->mode = true;
  if (rays->mode) tempPix = strokeWidth;
  if (tempPix >= minInk && minPix > tempPix) {
    rays->angleList[index] = tempPix;
    rays->lastMinPix = tempPix;
  }
}

// First sweep: rays from the left edge to the centre, entries 0 to 90.
void sweepFromLeft(const std::vector<uint32>& bb, int W, int H,
                   StressRays* rays) {
  const int refX = (int)(W - 1.0) / 2;
  const int refY = (int)(H - 1.0) / 2;
  for (int a : stressSweepOrder()) {
    double ts = tan(a * 3.14159265 / 180.0);
    double tempPix = 0.0;
    int strokeWidth = 0;
    rays->angleList[a + 45] = -1.0;
    for (int x = 0; refX > x; x++) {
      double quantAdd = (refX - x) * ts;
      RayStep s = rayStep(quantAdd);
      // The downward test adds the floor where the position subtracts it.
      if (quantAdd < 0 && (refY + s.f_pix < 0 || refY + s.f_pix >= H))
        continue;
      if (quantAdd > 0 && refY - s.c_pix < 0) continue;
      double pixelValue =
          flatDarkness(bb, (long long)(refY - s.f_pix) * W + x) * s.portion1 +
          flatDarkness(bb, (long long)(refY - s.c_pix) * W + x) * s.portion2;
      if (pixelValue > 0) {
        strokeWidth += 1;
        tempPix += pixelValue;
      }
    }
    recordRay(rays, a + 45, tempPix, strokeWidth, true, 1.0);
  }
}

// Second sweep: rays from the top edge to the centre, entries 90 to 180.
void sweepFromTop(const std::vector<uint32>& bb, int W, int H,
                  StressRays* rays) {
  for (int a : stressSweepOrder()) {
    int refX, refY;
    if (a >= 0) {
      refX = (int)((W - 1.0) / 2.0 + 0.02);
      refY = (int)((H - 1.0) / 2.0 + 0.02);
    } else {
      refX = (int)(W / 2.0 + 0.02);
      refY = (int)(H / 2.0 + 0.02);
    }
    double ts = tan(a * 3.14159265 / 180.0);
    double tempPix = 0.0;
    int strokeWidth = 0;
    rays->angleList[a + 135] = -1.0;
    for (int y = 0; H / 2.0 > y; y++) {
      double quantAdd = (refY - y) * ts;
      RayStep s = rayStep(quantAdd);
      if (quantAdd > 0 && (refX + s.c_pix < 0 || refX + s.c_pix >= W))
        continue;
      // The leftward test subtracts the floor where the position adds it.
      if (quantAdd < 0 && (refX - s.f_pix < 0 || refX - s.f_pix >= W))
        continue;
      long long row = (long long)y * W + refX;
      double pixelValue = flatDarkness(bb, row + s.f_pix) * s.portion1 +
                          flatDarkness(bb, row + s.c_pix) * s.portion2;
      if (pixelValue > 0) {
        strokeWidth += 1;
        tempPix += pixelValue;
      }
    }
    recordRay(rays, a + 135, tempPix, strokeWidth, false, 0.0);
  }
}

// One pass of the three-tap smoothing over the 181 ray entries.
void smoothAngles(const double* in, double* out) {
  out[0] = in[1] / 3 + 2 * in[0] / 3;
  out[180] = in[179] / 3 + 2 * in[180] / 3;
  for (int i = 1; i < 180; i++)
    out[i] = in[i - 1] / 3 + in[i] / 3 + in[i + 1] / 3;
}

}  // namespace

namespace {

// The tangent and angle in radians of a shear by `degrees`.
struct ShearAngle {
  double ts, rads;
  explicit ShearAngle(double degrees)
      : ts(tan((180.0 - degrees) * 3.14159265 / 180.0)),
        rads((180.0 - degrees) * 0.01745329) {}
};

// Target columns of one sheared row that may have taken ink: every column
// outside lo..hi stayed white (lo > hi when none can have).
struct TouchedColumns {
  int lo, hi;
};

// Shift of the floor and ceiling targets of row y in a shear, and the
// weights of the two: the same arithmetic as shearRow.
struct RowShift {
  int f_pix, c_pix;
  double portion1, portion2;
};

RowShift rowShift(int refY, const ShearAngle& angle, int y) {
  RowShift r;
  double quantAdd = (refY - y) * angle.ts;
  r.portion1 = fabs(quantAdd - trunc(quantAdd));
  if (r.portion1 > 0.0001) {
    r.portion2 = 1.0 - r.portion1;
    r.c_pix = (int)ceil(quantAdd);
    r.f_pix = (int)floor(quantAdd);
  } else {
    r.portion1 = 0.0;
    r.portion2 = 1.0;
    r.c_pix = r.f_pix = (int)quantAdd;
  }
  return r;
}

// Row y of the shear of skewImage into a target row that is white: shares
// out the ink of source row y, whose pixels outside xFrom..xTo must be
// white. A target row takes ink from its own source row only, so rows may
// be sheared alone and in any order. Gives the columns that may have taken
// ink.
TouchedColumns shearRow(const uint32* o_buf, uint32* d_buf, int width,
                        int refY, const ShearAngle& angle, int y, int xFrom,
                        int xTo) {
  const int newWidth = width + 2 * refY;
  const size_t rowStart = (size_t)y * newWidth;

  const RowShift shift = rowShift(refY, angle, y);
  const double portion1 = shift.portion1, portion2 = shift.portion2;
  int c_pix = shift.c_pix, f_pix = shift.f_pix;
  // Backward shifts only for angles beyond the range in use.
  if (angle.rads < 0) {
    c_pix = -c_pix;
    f_pix = -f_pix;
  }
  const uint32* src = o_buf + (size_t)y * width;
  // A white source pixel gives no ink to either target when both weights
  // are finite (0 times a finite weight is 0): it is skipped.
  const bool finiteWeights =
      std::isfinite(portion1) && std::isfinite(portion2);
  if (!finiteWeights) {
    xFrom = 0;
    xTo = width - 1;
  }
  long long lo = newWidth, hi = -1;
  for (int x = xFrom; x <= xTo; x++) {
    if (finiteWeights && src[x] == WHITE_PIXEL) continue;
    double s = (double)(uint32)(WHITE_PIXEL - src[x]);
    long long k = (long long)x + refY;
    // Weights cross over on purpose: the fraction to the floor pixel.
    takeInk(d_buf, rowStart, k + f_pix, newWidth,
            (long long)floor(s * portion1));
    takeInk(d_buf, rowStart, k + c_pix, newWidth,
            (long long)ceil(s * portion2));
    lo = std::min(lo, std::min(k + f_pix, k + c_pix));
    hi = std::max(hi, std::max(k + f_pix, k + c_pix));
  }
  TouchedColumns touched;
  touched.lo = (int)std::max(lo, 0LL);
  touched.hi = (int)std::min(hi, (long long)newWidth - 1);
  return touched;
}

// The first and last target columns that shearRow would leave not white in
// row y, found without drawing: for a row whose ink pixels are all plain
// (at most white below white, so that no sum of two shares can wrap round
// to white), a target column takes ink exactly when one of the shares it
// receives is above 0, and the shares of source x land on k + f_pix and
// k + c_pix, k = x + refY, which only grow with x. So the first source
// from the left with a share above 0 inside the row gives the first
// column, and likewise from the right. Needs f_pix <= c_pix <= f_pix + 1
// and finite weights (checked by the caller). lo > hi when no column
// takes ink.
TouchedColumns shearedInkEnds(const uint32* src, int newWidth, int refY,
                              const RowShift& shift, int xFrom, int xTo) {
  TouchedColumns ends{newWidth, -1};
  auto floorShare = [&](int x) {
    double s = (double)(uint32)(WHITE_PIXEL - src[x]);
    return (long long)floor(s * shift.portion1) > 0;
  };
  auto inRow = [&](long long col) { return col >= 0 && col < newWidth; };
  for (int x = xFrom; x <= xTo; x++) {
    if (src[x] == WHITE_PIXEL) continue;
    long long k = (long long)x + refY;
    if (floorShare(x) && inRow(k + shift.f_pix)) {
      ends.lo = (int)(k + shift.f_pix);
      break;
    }
    if (inRow(k + shift.c_pix)) {
      ends.lo = (int)(k + shift.c_pix);
      break;
    }
  }
  for (int x = xTo; x >= xFrom; x--) {
    if (src[x] == WHITE_PIXEL) continue;
    long long k = (long long)x + refY;
    if (inRow(k + shift.c_pix)) {
      ends.hi = (int)(k + shift.c_pix);
      break;
    }
    if (floorShare(x) && inRow(k + shift.f_pix)) {
      ends.hi = (int)(k + shift.f_pix);
      break;
    }
  }
  return ends;
}

// |maxX - minX| + 1 of the ink in rows firstRow..lastRow of a picture whose
// other rows are white, and whose row y is white outside the columns
// touched[y - firstRow]: the ink box width getBoundingBox gives (2 when
// there is no ink), each row scanned only where it could widen the span.
int inkSpanWidth(const uint32* buf, int width, int firstRow, int lastRow,
                 const TouchedColumns* touched) {
  int left = width, right = -1;
  for (int y = firstRow; y <= lastRow; y++) {
    const uint32* row = buf + (size_t)y * width;
    const TouchedColumns& t = touched[y - firstRow];
    for (int x = t.lo; x < left && x <= t.hi; x++)
      if (hasInk(row[x])) {
        left = x;
        break;
      }
    for (int x = t.hi; x > right && x >= t.lo; x--)
      if (hasInk(row[x])) {
        right = x;
        break;
      }
  }
  if (left > right) return 2;
  return right - left + 1;
}

}  // namespace

void skewImage(uint32* o_buf, uint32* d_buf, int width, int height, int refY,
               double degrees) {
  const int newWidth = width + 2 * refY;
  for (size_t i = 0; i < (size_t)height * newWidth; i++)
    d_buf[i] = WHITE_PIXEL;
  const ShearAngle angle(degrees);
  for (int y = 0; y < height; y++)
    shearRow(o_buf, d_buf, width, refY, angle, y, 0, width - 1);
}

namespace {

// A new picture from xmalloc: `picture` sheared by SkewAngle about
// refY = height / 2, width + 2 * refY wide.
uint32* shearedUpright(uint32* picture, int width, int height,
                       double SkewAngle) {
  const int refY = height / 2;
  const int newWidth = width + 2 * refY;
  uint32* sheared =
      (uint32*)xmalloc((size_t)height * newWidth * sizeof(uint32));
  skewImage(picture, sheared, width, height, refY, SkewAngle);
  return sheared;
}

}  // namespace

uint32* deskewPicture(uint32* picture, int* width, int height,
                      double SkewAngle) {
  if (SkewAngle == 0) return picture;
  uint32* sheared = shearedUpright(picture, *width, height, SkewAngle);
  free(picture);
  *width += 2 * (height / 2);
  return sheared;
}

void deskewPicture(PictureRead* picture, double SkewAngle) {
  if (SkewAngle == 0 || picture->pixels == NULL) return;
  uint32* sheared = shearedUpright(picture->pixels, picture->width,
                                   picture->height, SkewAngle);
  picture->adopt(sheared, picture->width + 2 * (picture->height / 2),
                 picture->height);
}

double calculateSkew(const char* file) {
  OwnedPicture pic(file);
  if (pic.pixels == NULL) return 0.0;

  int minX, minY, maxX, maxY;
  const bool blank = getBoundingBox(pic.pixels, &minX, &minY, &maxX, &maxY,
                                    pic.width, pic.height) != 0;
  const int o_BB_width = abs(maxX - minX) + 1;
  const int refY = pic.height / 2;
  const int newWidth = pic.width + 2 * refY;
  std::vector<uint32> target((size_t)pic.height * newWidth, WHITE_PIXEL);

  int BB_width = o_BB_width;
  int opt_deg = 0;
  // Without ink every shear is white: the box of the whole white shear.
  int blankWidth = 0;
  if (blank) {
    skewImage(pic.pixels, target.data(), pic.width, pic.height, refY, 0.0);
    blankWidth = inkBoxWidth(target.data(), newWidth, pic.height);
  }
  // Only the rows holding ink (minY..maxY) can take ink in a shear, so only
  // they are sheared and searched: the other rows of the full shear are
  // white and leave its ink box as it is. Within a row only the source
  // columns from its first to its last ink pixel give ink.
  const int inkRows = blank ? 0 : maxY - minY + 1;
  std::vector<int> rowFrom(inkRows), rowTo(inkRows);
  for (int r = 0; r < inkRows; r++) {
    const uint32* row = pic.pixels + (size_t)(minY + r) * pic.width;
    int from = 0, to = pic.width - 1;
    while (from <= to && !hasInk(row[from])) from++;
    while (to >= from && !hasInk(row[to])) to--;
    rowFrom[r] = from;
    rowTo[r] = to;
  }
  // Rows of plain pixels (none above white) let each shear's ink ends be
  // found without drawing it; other pictures are sheared pixel by pixel.
  bool plain = true;
  for (int r = 0; r < inkRows && plain; r++) {
    const uint32* row = pic.pixels + (size_t)(minY + r) * pic.width;
    for (int x = rowFrom[r]; x <= rowTo[r]; x++)
      if (row[x] > WHITE_PIXEL) {
        plain = false;
        break;
      }
  }
  // Each shear whitens again only the columns the last one touched.
  std::vector<TouchedColumns> touched(inkRows, TouchedColumns{0, -1});
  for (int i = -45; i <= 45; i++) {
    int temp_BB_width = blankWidth;
    const ShearAngle angle(i);
    if (!blank && plain && angle.rads >= 0) {
      int left = newWidth, right = -1;
      for (int r = 0; r < inkRows; r++) {
        const RowShift shift = rowShift(refY, angle, minY + r);
        const TouchedColumns ends = shearedInkEnds(
            pic.pixels + (size_t)(minY + r) * pic.width, newWidth, refY,
            shift, rowFrom[r], rowTo[r]);
        left = std::min(left, ends.lo);
        right = std::max(right, ends.hi);
      }
      temp_BB_width = left > right ? 2 : right - left + 1;
    } else if (!blank) {
      for (int r = 0; r < inkRows; r++) {
        uint32* row = target.data() + (size_t)(minY + r) * newWidth;
        for (int x = touched[r].lo; x <= touched[r].hi; x++)
          row[x] = WHITE_PIXEL;
        touched[r] = shearRow(pic.pixels, target.data(), pic.width, refY,
                              angle, minY + r, rowFrom[r], rowTo[r]);
      }
      temp_BB_width =
          inkSpanWidth(target.data(), newWidth, minY, maxY, touched.data());
    }
    // Greater-or-equal: ties go to the later, more positive angle.
    if (BB_width >= temp_BB_width) {
      opt_deg = i;
      BB_width = temp_BB_width;
    }
  }
  return opt_deg;
}

double getStrokeWidth(const char* filepath) {
  OwnedPicture pic(filepath);
  if (pic.pixels == NULL) return 0.0;
  int minX, minY, maxX, maxY;
  if (getBoundingBox(pic.pixels, &minX, &minY, &maxX, &maxY, pic.width,
                     pic.height) != 0)
    return 0.0;  // no ink, so no run in the band
  const int W = abs(maxX - minX) + 1;
  const int H = abs(maxY - minY) + 1;

  double avgStrokeWidth = 0.0;
  int count = 0;
  sumWideningRuns(pic, minX, minY, W, (int)(0.4 * H + 0.02),
                  (int)(0.6 * H + 0.02), &avgStrokeWidth, &count);
  if (count == 0 || FontSizePx == 0) return 0.0;
  return 72.0 * avgStrokeWidth / (FontSizePx * count);
}

double getStrokeWidthToWidthRatio(const char* filepath) {
  OwnedPicture pic(filepath);
  if (pic.pixels == NULL) return 0.0;
  int minX, minY, maxX, maxY;
  if (getBoundingBox(pic.pixels, &minX, &minY, &maxX, &maxY, pic.width,
                     pic.height) != 0)
    return 0.0;
  const int W = abs(maxX - minX) + 1;
  const int H = abs(maxY - minY) + 1;

  double avgStrokeWidth = 0.0;
  int count = 0;
  // The band stops one row short of the one getStrokeWidth ends on.
  sumWideningRuns(pic, minX, minY, W, (int)(0.4 * H + 0.02),
                  (int)(0.6 * H + 0.02) - 1, &avgStrokeWidth, &count);
  if (count == 0 || W == 0) return 0.0;
  return avgStrokeWidth / (count * W);
}

double getVerticalStrokeWidth(const char* filepath, double avg,
                              double SkewAngle) {
  OwnedPicture pic(filepath);
  if (pic.pixels == NULL) return 0.0;
  deskewPicture(&pic, SkewAngle);
  int minX, minY, maxX, maxY;
  getBoundingBox(pic.pixels, &minX, &minY, &maxX, &maxY, pic.width,
                 pic.height);
  const int W = abs(maxX - minX) + 1;
  const int H = abs(maxY - minY) + 1;
  avg *= W;  // scaled by the width and then unused
  (void)avg;

  // The stem: the first run of ink in the row at three quarters of the
  // height, scanned across the box.
  const int stemRow = (int)(3 * H / 4 + 0.02);
  int startX = 0, endX = 0;
  bool inStem = false;
  for (int x = 0; x < W; x++) {
    bool ink = pic.darkness(minX + x, minY + stemRow) != 0.0;
    if (!inStem && ink) {
      startX = x;
      inStem = true;
    } else if (inStem && !ink) {
      endX = x - 1;
      break;
    }
  }
  const int stemWidth = endX - startX + 1;
  const int endY = stemRow;

  // Widen the span by a third of the space beside the stem, keeping a column
  // clear of each box edge.
  const double D = (W - stemWidth) / 3.0;
  if (startX - D > 1.0)
    startX = (int)(startX - D);
  else
    startX = 1;
  if (W - 2.0 > endX + D)
    endX = (int)(endX + D);
  else
    endX = (int)(W - 2.0);

  // Ink of each column above the stem row, pale edge pixels left out; a
  // column whose ink is mostly dark pixels is keyed by its ink sum.
  std::map<double, int> columnMap;
  for (int x = startX; x <= endX; x++) {
    double temp_avg = 0.0;
    int repCount = 0;
    for (int y = 0; y < endY; y++) {
      int px = minX + x, py = minY + y;
      double value = pic.darkness(px, py);
      bool inside = px < pic.width && py < pic.height;
      if (value < 0.3 &&
          (!inside ||
           isBorderPixel(pic.pixels, py * pic.width + px, pic.width,
                         pic.height)))
        continue;
      temp_avg += value;
      if (value > 0.7) repCount += 1;
    }
    if (temp_avg > repCount * 0.7 && repCount > 0)
      columnMap[temp_avg] = repCount;
  }
  if (columnMap.empty()) return stemWidth;

  // Climb from the lowest column sum while each next one is within 1 / 0.9.
  double stroke_Y = 100.0;
  for (const auto& column : columnMap) {
    double val = column.first;
    if (stroke_Y > 0.9 * val) stroke_Y = val;
  }
  return 72.0 * stroke_Y / FontSizePx;
}

double getStressAngle(const char* file) {
  OwnedPicture pic(file);
  if (pic.pixels == NULL) return 0.0;
  int minX, minY, maxX, maxY;
  getBoundingBox_count(pic.pixels, &minX, &minY, &maxX, &maxY, pic.width,
                       pic.height);
  const double Wd = fabs((double)(maxX - minX)) + 1.0;
  const double Hd = fabs((double)(maxY - minY)) + 1.0;
  const int W = (int)(Wd + 0.02), H = (int)(Hd + 0.02);

  // The bowl's box on its own.
  std::vector<uint32> bb((size_t)W * H);
  for (int y = 0; y < H; y++)
    for (int x = 0; x < W; x++)
      bb[(size_t)y * W + x] = pic.at(minX + x, minY + y);

  StressRays rays;
  sweepFromLeft(bb, W, H, &rays);
  sweepFromTop(bb, W, H, &rays);

  double angleList2[181];
  smoothAngles(rays.angleList, angleList2);
  smoothAngles(angleList2, rays.angleList);
  const double* angleList = rays.angleList;

  // Thickness ratio of each pair of rays at right angles; the greatest wins,
  // the horizontal-and-vertical pair (i = 45) winning a tie.
  double ratioMax = 1.0;
  int stressAng = 0;
  for (int i = 0; i < 90; i++) {
    double tempRatio1 = angleList[i] / angleList[i + 90];
    if (tempRatio1 > 0 && tempRatio1 < 1) tempRatio1 = 1 / tempRatio1;
    if (tempRatio1 > ratioMax || (tempRatio1 == ratioMax && i == 45)) {
      ratioMax = tempRatio1;
      stressAng = angleList[i] > angleList[i + 90] ? i : 90 - i;
    }
  }
  if (ratioMax > 1.6 && !rays.mode) return stressAng - 45;
  if (ratioMax > 2.0 && rays.mode) return stressAng - 45;
  return 0.0;
}

double getESlant(const char* file) {
  OwnedPicture pic(file);
  if (pic.pixels == NULL) return -1.0;
  int minX, minY, maxX, maxY;
  getBoundingBox(pic.pixels, &minX, &minY, &maxX, &maxY, pic.width,
                 pic.height);

  int xmin = 0, ymin = 0, xMax = 0, yMax = 0, xTemp = 0, yTemp = 0;
  int ExitCounterMore6 = 0;
  for (int x = minX; x <= maxX; x++) {
    // Count changes between ink and white up the column; the third is the
    // underside of the middle stroke.
    int exitCounter = 0;
    bool searchForGrey = true;
    for (int y = pic.height - 1; y >= 0; y--) {
      double value = pic.darkness(x, y);
      if ((searchForGrey && value >= 0.05) ||
          (!searchForGrey && value == 0.0)) {
        searchForGrey = !searchForGrey;
        exitCounter += 1;
        if (exitCounter == 3) {
          xTemp = x;
          yTemp = y;
        }
      }
    }
    if (exitCounter == 6) {
      if (xmin == 0 && ymin == 0) {
        xmin = xTemp;
        ymin = yTemp;
      } else if (xTemp - xmin == 1 && abs(ymin - yTemp) > 2) {
        // A whole step right after the start: begin the line again here.
        xmin = xTemp;
        ymin = yTemp;
      } else if (xMax == 0 && yMax == 0) {
        xMax = xTemp;
        yMax = yTemp;
      } else if (xTemp > xMax && yTemp <= yMax) {
        xMax = xTemp;
        yMax = yTemp;
      }
    } else if (exitCounter > 6) {
      ExitCounterMore6 += 1;
    }
  }

  const int deltaX = xMax - xmin;
  const int deltaY = yMax - ymin;
  double degrees = 0.0;
  if (deltaX != 0 && ExitCounterMore6 < 4)
    degrees = 180.0 * atan((double)deltaY / deltaX) / 3.14159265;
  if (fabs(degrees) > 50.0) return 0.0;
  return degrees;
}
