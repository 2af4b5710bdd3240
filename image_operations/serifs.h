// Serif measurements on glyph pictures: how much the end of a stem widens,
// the evenness and weight of a serif's bracket, the wedge at an ascender's
// head, the unevenness left of an ascender, the diagonal cut of a foot and the
// flare of a stem. Reads pictures through image_access and deskews them with
// the shear of slant_stroke; the measurement sequence combines the results.
#ifndef IMAGE_OPERATIONS_SERIFS_H
#define IMAGE_OPERATIONS_SERIFS_H

#include "image_operations/image_access.h"

// Widening of a stem's end: the widest run of ink (pixels darker than 0.1) in
// the serif zone over the median run in the stem zone, minus 1. The box rows
// divide at a quarter:
//   isupperRemove != 0 (an L): serif zone rows [0, H/4), stem zone [H/4, H);
//   isupperRemove == 0 (a T, an I): stem zone [0, 3H/4), serif zone
//   [3H/4, H).
// In the serif zone the count of a row carries on across a gap until it beats
// the record, so several short runs in one row add up. Returns 0.0 for a
// stem without a real serif (widest run at most 5 pixels and less than 3
// wider than the median, or exactly 1 wider), 4.0 when the serif zone is
// narrower than the stem, and 0.0 when the file cannot be read or the stem
// zone holds no ink.
double getFontSerifInfo(const char* filepath, int isupperRemove);

// Evenness and weight of the brackets left of the stem of a large h: in the
// bottom half (the foot serif) and the top half (the head serif), the ink of
// each column from the serif's first dense column up to the stem (the first
// column with more than H / 8 ink pixels in that half) is averaged; the mean
// absolute deviation of the columns from it goes to *BrackStdDev, the mean
// per column divided by the bracket's height to *BracketGreyVal. Both are
// added to, so the caller presets them; a foot that meets the stem at once
// adds 0. The picture is deskewed by SkewAngle first. Always returns 0.0;
// when the file cannot be read the outputs are left untouched.
double subSerifType(const char* file, double SkewAngle, double* BrackStdDev,
                    double* BracketGreyVal);

// Wedge at the head of the stem of a large h, in the top quarter and left
// third of the box: the first ink of each column traces the wedge's top
// edge, the end of the column's first run its under edge. Writes the slopes
// (|dy / dx|) of the lines through the first and last points of each edge to
// *wedgeAngleTop and *wedgeAngleBottom, and the mean distance of the edge
// pixels from those lines to *stdDevWedgeValueTop and
// *stdDevWedgeValueBottom; an edge whose pixels mostly share one darkness
// counts as flat and gives 0 for its slope and fit. The outputs are left
// untouched when no wedge leading into a stem is found, when the top edge
// falls towards the stem, or when the file cannot be read. Always returns
// 0.0.
double WedgeSerifType(const char* file, double* wedgeAngleTop,
                      double* wedgeAngleBottom, double* stdDevWedgeValueTop,
                      double* stdDevWedgeValueBottom);

// Unevenness of the ink standing left of an ascender's stem: over box
// columns 1 to 9 of the top third (rows 1 up to H / 3), from the first
// column of solid ink to the stem (more than H / 8 ink pixels), the mean
// absolute deviation of the column sums from their mean. 0.0 when no stem
// is met, when nothing stands left of it, or when the file cannot be read.
double AscenderStdDvSerifness(const char* file);

// Departure of a foot's right end from a straight diagonal: from the lowest,
// then rightmost, ink of the lower half (right of W / 2 + 4 for `mode` 0,
// anywhere for `mode` 1) the right edge is climbed while it rises to the
// right; if that edge is longer than 3 pixels and steeper than 0.45, the
// mean distance of the ink on the far side of the line through its ends is
// returned (0.0 if none is). 1.5 when there is no such diagonal, 0.0 when
// the file cannot be read.
double getDiagonalSerifs(const char* filePath, int mode);

// Flare of the stem of an a: in the right half of the box, once a column
// whose first run from the bottom is taller than H / 2 has been met, the ink
// of the later columns whose run is shorter than H / 3, times the span of
// those columns, over H * W. The picture is deskewed by SkewAngle first.
// 0.0 when no such stem or no later short column exists, or when the file
// cannot be read.
double getFlaredStems(const char* file, double SkewAngle);

#endif
