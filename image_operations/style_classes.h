// Style-class detectors: blackletter, stencil, digital (segmented), hollow
// (outline) and symbol fonts, and the share of solidly black ink. Each reads
// its own picture through image_access, measures and frees it; the digital
// test falls back on the contour walk of curviness_direction. The
// measurement sequence averages the scores or sets them against thresholds.
#ifndef IMAGE_OPERATIONS_STYLE_CLASSES_H
#define IMAGE_OPERATIONS_STYLE_CLASSES_H

#include "image_operations/image_access.h"

// Mean number of ink/white changes per row of the full picture: rows 3 up to
// height / 4 for `isToph` not 0, rows height / 2 + 3 up to height - 3 for
// `isToph` 0 (the lower half of a T, as the library uses it). A change is
// the first ink pixel after white, or the first white pixel after ink, with
// each row starting on white, so a plain stem gives 2.0 a row. Counted and
// divided in single precision: a fifth of the rows crossing a second stroke
// gives 2.4f (2.4000000953674316 as a double). 0.0 when the file cannot be
// read; 0 / 0 (not a number) when the range of rows is empty.
double testTforBlackletter(const char* filePath, int isToph);

// Whether the foot of a bowl comes to a point like a V, as the o of a
// blackletter design does. Lower means more blackletter.
// With `mode` 1 (a large o, the library's use) the picture must first look
// like a bowl: four middle columns and four middle rows of the full picture
// should each cross two strokes (crossings of a single pixel do not count);
// when both the columns and the rows fail that, 1.0 comes back.
// Then, in the ink box, the lowest ink row gives the point of the V, and
// both flanks are climbed along the outer border pixels for as long as each
// moves outward in every row; two lines are drawn from the point to the ends
// of the row reached. The result is the share of ink (darkness above 0.15)
// lying below those lines, outside the V: 0.0 for a perfect V. The slopes
// are whole-pixel quotients truncated toward 0, so a foot flatter than 45
// degrees has slope 0 and counts as flat: 1.0, as for the round bowl of most
// designs. 1.0 also when the V is too small (width times depth of at most 4,
// or a depth below 2 with a flank shorter than 2).
// `mode` 0 looks for the bottom only in the left two thirds of the box.
// 0.0 when the file cannot be read.
double getBlackletterness(const char* filePath, int mode);

// 1.0 when a gap cuts the glyph through all its strokes, else 0.0. The gap
// is a column of the ink box (5 % of the width kept off either side) with no
// ink, or with only faint ink (nothing darker than 0.5) summing to less than
// 5 % of the heaviest column so far, counted only once the column sums have
// fallen from a previous column; failing any column, the same test on the
// rows. A blank picture counts as cut (1.0). 0.0 when the file cannot be
// read.
double getStencilsFont(const char* filepath);

// 1.0 for a segmented stroke: in the middle rows of the ink box (30 % to
// 70 % of the height) no row holds a second run of ink, the first run of the
// rows narrows and then widens again, its narrowest width is more than 0.1
// and less than 0.5 of its widest, and the last of those rows holds ink.
// Otherwise the contour-walk curviness
// curviness_borderPath(filepath, SkewAngle, 1), the diagonal steps per
// border pixel of the outline (0.0 for straight edges, not a number for a
// blank picture). The sequence averages the two kinds of value together on
// purpose. 0.0 when the file cannot be read.
double getDigitalFont(const char* filepath, double SkewAngle);

// Share of hollow lines in an outline letter: rows and columns of the ink
// box that show ink, white, ink again count 1 each (the rows go on to the
// row just below the box, the columns to the pixel just below it). Every
// line whose ink sums to more than half the box's width (rows) or height
// (columns), halved by integer division, takes 1 off its direction's count,
// whether or not it counted. Counts below 0 become 0. Result: (column count
// + row count) / (W + H) of the box. A solid bar gives 0.0; 0.0 also when
// the file cannot be read.
double getHollowFont(const char* file);

// Share of pixel positions whose darkness differs (compared exactly) between
// two glyph pictures laid over each other by the top-left corners of their
// ink boxes, over the area both boxes share. With `isReverse` 1 the second
// picture is read mirrored, from the right edge of its box. Used on letter
// pairs a real alphabet keeps alike (F with E, Q with O): near 0 for a real
// pair, high in a symbol font. 0.0 when either file cannot be read.
double getSymbolFont(const char* file1, const char* file2, int isReverse);

// Share of the ink pixels of the full picture that are darker than 0.7 (the
// single-precision constant, 0.699999988079071). Not a number for a blank
// picture; 0.0 when the file cannot be read.
double percentDarkPixels(const char* file);

// The gap test of the stencil detector over one direction of an ink box of
// W by H pixels at (minX, minY): the columns from 5% to 95% of W
// (`columns`), else the rows from 5% to 95% of H, each summed across the
// whole box. A line is a gap when it has no ink, or when it lies on a
// falling slope whose least line is below 5% of the darkest line and holds
// no pixel darker than 0.5. Returns the number of gap lines. Also the
// i-without-dot test of the letterform detectors (getsmalliFontVal).
int stencilGapLines(const uint32* pixels, int width, int height, int minX,
                    int minY, double W, double H, bool columns);

#endif
