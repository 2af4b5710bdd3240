// Size, width and grey metrics of glyph and string pictures: heights, string
// widths, the spread of ink over the box, darkness and the centre of ink.
// Called by the measurement sequence and the letterform detectors; reads its
// pictures through image_access.
#ifndef IMAGE_OPERATIONS_SIZE_METRICS_H
#define IMAGE_OPERATIONS_SIZE_METRICS_H

#include "image_operations/image_access.h"

// Every function below that takes a path reads its own copy of the picture
// (ReadPngFile: decoded once per measurement run), measures it
// and frees it. Unless said otherwise W and H are the ink box's width and
// height by |max - min| + 1 (2 by 2 for a blank picture), positions are counted
// from the box's top-left corner, and a position that falls outside the
// picture (the box of a blank picture in a tiny file, rows below the box) reads
// as white.


// Ink height, 72.0 * H / FontSizePx. 0.0 when the file cannot be read; a blank
// picture gives 2.
double getHeight(const char* file1);

// Ink extent of a string picture, found without the box: the first ink pixel
// (scanning columns, then rows) sets xmin unless xmin is still 0, every later
// one sets xmax; (xmax - xmin + 1) * 72 / FontSizePx in integer division.
// Ink in column 0 is therefore passed over, and a blank picture gives 1.
// 0.0 when the file cannot be read.
double getStringWidth(const char* file1);

// getStringWidth squared; 0.0 when the file cannot be read.
double getSquareStringWidth(const char* file1);

// (width of fileS / width of fileB) to the fourth power, or its inverse when
// above 1: 1.0 for a monospaced font, falling fast for proportional ones.
// Unreadable files give width 0, so a missing fileS gives 0, a missing fileB
// 1.0 / infinity = 0, both missing not a number.
double isMonoSpaced(const char* fileB, const char* fileS);

// H / (H + W) with H = maxY - minY + 1 and W = maxX - minX + 1 (no absolute
// value): not a number for a blank picture, on purpose, so that a font with
// an empty letter is refused. 0.0 when the file cannot be read.
double getAspectRatio(const char* file1);

// Evenness of the ink over the box's columns: sqrt(sum over columns of
// (column darkness - total / H)^2 / W) / W. The mean is taken over H, not W,
// as the vector's tables expect. 0.0 when the file cannot be read.
double getWidthHistogramNumber(const char* file1);

// The same over rows: sqrt(sum over rows of (row darkness - total / W)^2 / H)
// / H. 0.0 when the file cannot be read.
double getHeightHistogramNumber(const char* file1);

// Number of ink pixels in the box; 0.0 when the file cannot be read.
double pixelCount(const char* file1);

// Sum of darkness in the box over the box's area W * H; 0.0 when the file
// cannot be read.
double getAvgGrey(const char* file1);

// Darkest band of `xheight` rows of a string picture, by a window sliding
// down the box's rows: the largest window sum over (xheight * W). The first
// window takes rows 0 while below xheight, the slide starts at row
// (int)(0.02 + xheight) and runs while below (int)(0.02 + H).
// 0.0 when the file cannot be read.
double getAvgGreyUsingHistogram(const char* file1, const double xheight);

// Variance of the `Length` values, scaled by 100 (no square root). Not a
// number for a Length of 0; 0.0 for a null array.
double getStdDev_Avggrey(double* greyArray, int Length);

// Centre of ink and mean distances from it, all as shares of the box.
// COGX: mean over the box's rows of each row's mean ink x (a row without ink
// counts as (W - 1) / 2), divided by H and then by W. COGY likewise over
// columns. avgX1: sum of |x - centre x| over all ink pixels, divided by
// (ink count * W); avgY1 the same in y with H (both 0 without ink).
// When the file cannot be read the outputs are left as they were. Null
// output pointers are skipped.
void GetCenterOfGravity(const char* file1, double* COGX, double* COGY,
                        double* avgX1, double* avgY1);

// Share of the box's rows that hold exactly one run of ink, squared. A run
// that reaches the box's last column counts; a row of a single column never
// does. 0.0 when the file cannot be read.
double getfillFactor(const char* filePath);

#endif
