// Size, width and grey metrics: each function reads one glyph or string
// picture, measures it over the ink box (or the full picture where it says
// so) and returns a double.
#include "image_operations/size_metrics.h"

#include <math.h>
#include <stdlib.h>


namespace {

// A picture read for one measurement, with its ink box; released on every
// way out.
struct BoxedPicture : PictureRead {
  int minX = 0, minY = 0, maxX = 0, maxY = 0;
};

// Reads `path` in the measurement byte order and finds its ink box. Returns
// false when the file cannot be read.
bool readBoxed(const char* path, BoxedPicture* pic) {
  if (!pic->read(path)) return false;
  getBoundingBox(pic->pixels, &pic->minX, &pic->minY, &pic->maxX, &pic->maxY,
                 pic->width, pic->height);
  return true;
}

// Box width and height by |max - min| + 1.
int boxWidth(const BoxedPicture& p) { return abs(p.maxX - p.minX) + 1; }
int boxHeight(const BoxedPicture& p) { return abs(p.maxY - p.minY) + 1; }

// Darkness at (x, y) counted from the box's top-left corner.
double boxDarkness(const BoxedPicture& p, int x, int y) {
  return darknessAt(p.pixels, p.width, p.height, p.minX + x, p.minY + y);
}

// Whether (x, y) counted from the box's top-left corner has ink: exactly
// boxDarkness(...) != 0.0.
bool boxInk(const BoxedPicture& p, int x, int y) {
  return inkAt(p.pixels, p.width, p.height, p.minX + x, p.minY + y);
}

// Darkness summed along one line of the box from its start while below
// `length`: column `line` (y ascending) when `columns`, else row `line`
// (x ascending).
double boxLineSum(const BoxedPicture& p, bool columns, int line, int length) {
  double sum = 0.0;
  for (int i = 0; i < length; i++)
    sum += columns ? boxDarkness(p, line, i) : boxDarkness(p, i, line);
  return sum;
}

// Mean position of the ink pixels along one line of the box: column `line`
// (positions y) when `columns`, else row `line` (positions x); `empty` for a
// line without ink.
double lineInkCentre(const BoxedPicture& p, bool columns, int line,
                     int length, double empty) {
  double sum = 0.0;
  int count = 0;
  for (int i = 0; i < length; i++)
    if (columns ? boxInk(p, line, i) : boxInk(p, i, line)) {
      sum += i;
      count++;
    }
  return count ? sum / count : empty;
}

// Darkness summed over box row y, x from 0 while below W.
double boxRowSum(const BoxedPicture& p, int y, int W) {
  return boxLineSum(p, false, y, W);
}

// Appends the darkness sum of box row y (x below W) to the list from
// *head to *tail and returns it.
double appendRowSum(const BoxedPicture& p, int y, int W,
                    struct GreyMapList** head, struct GreyMapList** tail) {
  struct GreyMapList* node =
      (struct GreyMapList*)xmalloc(sizeof(struct GreyMapList));
  node->value = boxRowSum(p, y, W);
  node->next = NULL;
  if (*tail) (*tail)->next = node; else *head = node;
  *tail = node;
  return node->value;
}

// Darkness summed over the whole box, rows ascending.
double boxTotal(const BoxedPicture& p, int W, int H) {
  double total = 0.0;
  for (int y = 0; y < H; y++)
    for (int x = 0; x < W; x++) total += boxDarkness(p, x, y);
  return total;
}

// The spread of the box's column sums (`columns`) or row sums: their root
// mean square deviation from a mean, divided by the number of lines. The
// mean divides the box's whole darkness by the line's length, not by the
// number of lines: the value is meant to depend on the glyph's proportions.
double lineHistogramNumber(const char* file1, bool columns) {
  BoxedPicture p;
  if (!readBoxed(file1, &p)) return 0.0;
  int W = boxWidth(p), H = boxHeight(p);
  int lines = columns ? W : H, length = columns ? H : W;
  double avg = boxTotal(p, W, H) / length;
  double std_dev = 0.0;
  for (int line = 0; line < lines; line++) {
    double sum = boxLineSum(p, columns, line, length);
    std_dev += (sum - avg) * (sum - avg);
  }
  return sqrt(std_dev / lines) / lines;
}

}  // namespace

double getHeight(const char* file1) {
  BoxedPicture p;
  if (!readBoxed(file1, &p)) return 0.0;
  int H = boxHeight(p);
  return 72.0 * H / FontSizePx;
}

double getStringWidth(const char* file1) {
  PictureRead pic(file1);
  if (pic.pixels == NULL) return 0.0;
  const uint32* pixels = pic.pixels;
  const int width = pic.width, height = pic.height;
  // Read column by column, the first ink pixel outside column 0 sets xmin
  // and every later one xmax: xmin doubles as its own "not yet found" mark,
  // so ink in column 0 leaves it unset (the string pictures always start
  // with a margin). That makes xmin the first inked column after 0, and
  // xmax the last inked column when a second ink pixel follows the one that
  // set xmin, else 0. The rows are read in memory order for the same two
  // columns, each only as far as it could move them.
  int first = width, last = 0, rowsInFirst = 0;
  for (int y = 0; y < height; y++) {
    const uint32* row = pixels + (size_t)y * width;
    int x = 1;
    while (x < width && x <= first && !hasInk(row[x])) x++;
    if (x >= width) continue;  // no ink after column 0 in this row
    if (x < first) {
      first = x;
      rowsInFirst = 0;
    }
    if (x == first && hasInk(row[x])) rowsInFirst++;
    int r = width - 1;
    while (r > last && !hasInk(row[r])) r--;
    if (r > last) last = r;
  }
  int xmin = 0, xmax = 0;
  if (first < width) {
    xmin = first;
    if (last > first || rowsInFirst > 1) xmax = last;
  }
  return (double)((xmax - xmin + 1) * 72 / FontSizePx);
}

double getSquareStringWidth(const char* file1) {
  double width = getStringWidth(file1);
  return width * width;
}

double isMonoSpaced(const char* fileB, const char* fileS) {
  double narrowWidth = getStringWidth(fileS);
  double wideWidth = getStringWidth(fileB);
  double value = pow(narrowWidth / wideWidth, 4.0);
  if (value > 1.0) return 1.0 / value;
  return value;
}

double getAspectRatio(const char* file1) {
  BoxedPicture p;
  if (!readBoxed(file1, &p)) return 0.0;
  // Without the absolute value a blank picture's box (1, 1, 0, 0) is 0 by 0
  // and the ratio 0 / 0: the not-a-number that refuses a font missing a
  // letter.
  double H = p.maxY - p.minY + 1;
  double W = p.maxX - p.minX + 1;
  return H / (H + W);
}

double getWidthHistogramNumber(const char* file1) {
  return lineHistogramNumber(file1, true);
}

double getHeightHistogramNumber(const char* file1) {
  return lineHistogramNumber(file1, false);
}

double pixelCount(const char* file1) {
  BoxedPicture p;
  if (!readBoxed(file1, &p)) return 0.0;
  int W = boxWidth(p), H = boxHeight(p);
  int count = 0;
  for (int y = 0; y < H; y++)
    for (int x = 0; x < W; x++)
      if (boxInk(p, x, y)) count++;
  return count;
}

double getAvgGrey(const char* file1) {
  BoxedPicture p;
  if (!readBoxed(file1, &p)) return 0.0;
  int W = boxWidth(p), H = boxHeight(p);
  double total = boxTotal(p, W, H);
  return total / ((double)W * H);
}

double getAvgGreyUsingHistogram(const char* file1, const double xheight) {
  BoxedPicture p;
  if (!readBoxed(file1, &p)) return 0.0;
  int W = boxWidth(p);
  double H = boxHeight(p);

  // The window is a queue of row sums: appended at the tail, dropped at the
  // head as it slides down.
  struct GreyMapList* head = NULL;
  struct GreyMapList* tail = NULL;
  double maxGrey = 0.0;
  for (int y = 0; xheight > y; y++) {
    maxGrey += appendRowSum(p, y, W, &head, &tail);
  }

  double pivotGrey = maxGrey;
  for (int y = (int)(0.02 + xheight); y < (int)(0.02 + H); y++) {
    if (head != NULL) {
      struct GreyMapList* dropped = head;
      head = head->next;
      if (head == NULL) tail = NULL;
      maxGrey -= dropped->value;
      free(dropped);
    }
    maxGrey += appendRowSum(p, y, W, &head, &tail);
    if (maxGrey > pivotGrey) pivotGrey = maxGrey;
  }

  while (head != NULL) {
    struct GreyMapList* next = head->next;
    free(head);
    head = next;
  }
  return pivotGrey / (xheight * W);
}

double getStdDev_Avggrey(double* greyArray, int Length) {
  if (greyArray == NULL) return 0.0;
  double sum = 0.0;
  for (int i = 0; i < Length; i++) sum += greyArray[i];
  double mean = sum / Length;
  double deviations = 0.0;
  for (int i = 0; i < Length; i++)
    deviations += (greyArray[i] - mean) * (greyArray[i] - mean);
  return deviations / Length * 100.0;
}

void GetCenterOfGravity(const char* file1, double* COGX, double* COGY,
                        double* avgX1, double* avgY1) {
  BoxedPicture p;
  if (!readBoxed(file1, &p)) return;
  int iW = boxWidth(p), iH = boxHeight(p);
  double W = iW, H = iH;

  // Each line weighs the same whatever its ink; an empty line sits at the
  // middle of the box.
  double gravX = 0.0;
  for (int y = 0; y < iH; y++)
    gravX += lineInkCentre(p, false, y, iW, (W - 1.0) / 2.0);
  gravX /= H;

  double gravY = 0.0;
  for (int x = 0; x < iW; x++)
    gravY += lineInkCentre(p, true, x, iH, (H - 1.0) / 2.0);
  gravY /= W;

  double avgX = 0.0;
  int inkCount = 0;
  for (int y = 0; y < iH; y++)
    for (int x = 0; x < iW; x++)
      if (boxInk(p, x, y)) {
        avgX += fabs(x - gravX);
        inkCount++;
      }
  if (inkCount) avgX /= (inkCount * W);

  double avgY = 0.0;
  inkCount = 0;
  for (int x = 0; x < iW; x++)
    for (int y = 0; y < iH; y++)
      if (boxInk(p, x, y)) {
        avgY += fabs(y - gravY);
        inkCount++;
      }
  if (inkCount) avgY /= (inkCount * H);

  gravY /= H;
  gravX /= W;
  if (COGX) *COGX = gravX;
  if (COGY) *COGY = gravY;
  if (avgX1) *avgX1 = avgX;
  if (avgY1) *avgY1 = avgY;
}

double getfillFactor(const char* filePath) {
  BoxedPicture p;
  if (!readBoxed(filePath, &p)) return 0.0;
  int W = boxWidth(p), H = boxHeight(p);
  int TotalBlackrow = 0;
  for (int y = 0; y < H; y++) {
    int isBlackpx = 0, isWhitepx = 1;
    for (int x = 0; x < W; x++) {
      bool ink = boxInk(p, x, y);
      if (ink && isBlackpx != 1 && isWhitepx == 1) {
        isBlackpx = 1;                    // the first run begins
      } else if (!ink && isBlackpx == 1 && isWhitepx == 1) {
        isWhitepx = 0;                    // the first run has ended
      } else if (ink && isBlackpx == 1 && isWhitepx == 0) {
        isBlackpx = 0;                    // a second run: the row is out
      } else if (x == W - 1 && ink) {
        isWhitepx = 0;                    // the first run reaches the edge
      }
    }
    if (isBlackpx == 1 && isWhitepx == 0) TotalBlackrow += 1;
  }
  double share = (double)TotalBlackrow / H;
  return share * share;
}
