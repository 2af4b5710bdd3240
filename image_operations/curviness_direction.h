// Curviness, direction, symmetry and edginess of glyph outlines.
// Two ways of looking at an outline: a census that classes each border pixel
// by which of its neighbours are border pixels too, and walks that follow the
// border pixel by pixel. Also the stroke crossing counts and the symmetry
// score. Called by the measurement sequence and the style-class detectors;
// builds on image_access and the shear of slant_stroke.
#ifndef IMAGE_OPERATIONS_CURVINESS_DIRECTION_H
#define IMAGE_OPERATIONS_CURVINESS_DIRECTION_H

#include <map>

#include "image_operations/image_access.h"

// Pixel sets of the walks and the census: ordered maps from the position key
// combine(x, y) to 1. They sort by x, then y. Reading a set with operator[]
// inserts a 0 entry for an absent key, and such entries count in its size;
// the walks read them that way on purpose, and curviness_borderPath's second
// value type depends on it.

// The eight step directions of the walks as {x, y}, y growing downward,
// counter-clockwise on the screen from the left: index 0 (-1, 0) left,
// 1 (-1, 1), 2 (0, 1) down, 3 (1, 1), 4 (1, 0) right, 5 (1, -1), 6 (0, -1) up,
// 7 (-1, -1). Index modulo 4 is the class a step is counted in: 0 horizontal
// (dir0), 1 one diagonal (dir45), 2 vertical (dir90), 3 the other diagonal
// (dir135).
extern const int dirAttr[8][2];

// Where the search for the next border pixel starts: (direction + 6) % 8, two
// steps clockwise of the last direction, so a walk hugs the outside of the ink.
int getScanStartIndex(int direction);

// ---------------------------------------------------------------------------
// Direction census. Runs over the whole picture of `width` * (int)`height`
// pixels, not the ink box. Every border pixel (isBorderPixel) is counted once,
// in the first of four tests whose two neighbours across it are border pixels
// too:
//   NE-SW: p - width + 1 and p + width - 1   -> dir45   (needs an inner pixel)
//   NW-SE: p - width - 1 and p + width + 1   -> dir135  (needs an inner pixel)
//   N-S:   p - width and p + width           -> dir90   (not first/last row)
//   W-E:   p - 1 and p + 1                   -> dir0    (not first/last column)
// The tests leave a code in lastDir (0, 1, 3, 2 in that order; 2 at the
// start). A pixel that fits no test is counted in the class whose index
// equals lastDir (0 dir0, 1 dir45, 2 dir90, 3 dir135), which is not the class
// that set the code: after a dir45 pixel an unfit one counts as dir0.

// Writes the four counts divided by the number of border pixels into the
// outputs and returns that number. They add up to 1; a picture without ink
// gives 0 / 0 (not a number) in all four and returns 0. A null buffer sets
// all four to -1.0 and returns 0.
int dirAttributes_FromBuff(uint32* pngBuffer1, double* dir0_1, double* dir45_1,
                           double* dir90_1, double* dir135_1, int width,
                           double height);

// The same census with two choices. A `strokewidth` below 3.0 reverses the
// order of the tests to W-E, N-S, NE-SW, NW-SE, which favours horizontal and
// vertical at narrow strokes; at 3.0 and above the order is the one above.
// With `mode` 1, every border pixel counted is entered in `pixelMap` under
// combine(x, y) with value 1 (the map is not cleared first); any other mode
// leaves the map alone. Results, return value and the null buffer as for
// dirAttributes_FromBuff.
int dirAttributes_FromBuff_curv(uint32* pngBuffer1, double* dir0_1,
                                double* dir45_1, double* dir90_1,
                                double* dir135_1, int width, double height,
                                double strokewidth,
                                std::map<int, int>& pixelMap, int mode);

// Census of a file's picture, unsheared, as dirAttributes_FromBuff. All four
// outputs -1.0 when the file cannot be read; 0 / 0 (not a number) in all four
// for a picture without ink.
void dirAttributes(const char* file, double* dir0, double* dir45,
                   double* dir90, double* dir135);

// Share of diagonal border pixels, (dir45 + dir135) over the sum of the four
// shares, by the census with `Strokewidth` choosing the test order. The
// picture is deskewed by `SkewAngle` first (not for 0). Not a number for a
// picture without ink; 0.0 when the file cannot be read.
double getCurviness(const char* file, double SkewAngle, double Strokewidth);

// ---------------------------------------------------------------------------
// Contour walks. A walk moves from border pixel to border pixel, searching the
// eight neighbours from getScanStartIndex(direction) round counter-clockwise
// and taking the first that passes isBorderPixel and lies before the end of
// the picture. A step past the left or right edge lands, by index arithmetic,
// on the adjacent row's pixel at the other edge, and the walk goes on from
// that pixel. Each pixel walked onto is marked 1 in pixelMap and erased from
// borderMap; the walk ends at a pixel without a qualifying neighbour, or on
// reaching a pixel already marked, so every walk ends.

// Walks all contours of the glyph: from (curX, curY), then, while `borderMap`
// has entries, from its first one (lowest x, then lowest y). Returns the
// diagonal steps (classes 1 and 3, the closing step onto a walked pixel
// included) per entry that `borderMap` held at the start: not a number when
// it was empty. Empties `borderMap`, fills `pixelMap`, and sets
// `numSharpTurns` to the number of steps that turn by 2 to 6 direction
// indices (in absolute index difference) both from the last direction and
// from the one before it, counted only while `pixelMap` does not hold exactly
// one entry.
double getCurviRatio(uint32* buf, std::map<int, int>& pixelMap,
                     std::map<int, int>& borderMap, int width, int height,
                     int curX, int curY, int& numSharpTurns);

// Curviness of an outline by walking it: the picture is deskewed by
// `SkewAngle` (not for 0), all its border pixels are gathered by the census,
// and getCurviRatio walks them from the first ink pixel of the ink box's top
// row. `valueType` 1: the walk's diagonal steps per border pixel (0.0 for a
// shape of straight horizontal and vertical edges, about 0.4 for a disc).
// `valueType` 2: sharp turns * 100 / pixels walked. Other value types: -1.0.
// Not a number for a picture without ink; 0.0 when the file cannot be read.
double curviness_borderPath(const char* file, double SkewAngle,
                            int valueType);

// Enters into `pixelMap` the outermost border pixels of each row: from the
// left, the run of border pixels that begins at the row's first ink pixel,
// stopping at the first white or inner (non-border) pixel; then the same from
// the right, down to just right of where the left scan stopped. Inner
// contours (counters) stay out. Returns the number of pixels entered; 0 for
// a null buffer.
int getOuterBorderMap(uint32* pngBuffer1, int width, int height,
                      std::map<int, int>& pixelMap);

// One walk from (curX, curY) that every 4 steps takes the direction from the
// previous such point, folded to 0..180 degrees (up and down look alike), and
// counts the times it changes by more than 45 degrees. Returns that count.
// Angles are worked out with pi taken as 3.14159265, a little small, so they
// come out a hair large: a change of exactly 45 degrees, as when a window
// splits a right-angled corner two steps and two, counts, on both sides.
// Marks `pixelMap` and erases from `borderMap` as it goes; the start is marked
// only if `borderMap` holds it.
double getEdignessCurv(uint32* buf, std::map<int, int>& pixelMap,
                       std::map<int, int>& borderMap, int width, int height,
                       int curX, int curY);

// Abrupt turns of the outer contour: getEdignessCurv from the first ink pixel
// of up to five picture rows, found by scanning the ink box's columns in rows
// 2 * minY to 2 * minY + 4 (minY entering twice is kept: the rows tried lie
// minY below the box's top), the turns summed and divided by 5.0 however many
// walks were made. Deskewed by `skew` first (not for 0). 0.0 for a picture
// without ink or when the file cannot be read.
double getEdginess(const char* file, double skew);

// ---------------------------------------------------------------------------
// Stroke crossings and symmetry.

// Counts ink/white changes on five columns and five rows of the ink box (box
// W by H): columns truncate(minX + (W / 6.0 - 1.0) * m + 0.02) and rows
// minY + (H / 6.0 - 1.0) * m for m = 1..5. Each stroke crossed counts twice,
// entering and leaving; the ink/white state is not reset between lines, so a
// line that ends on ink makes the next start looking for white. The rows are
// read from flat index truncate(row * width + 0.02) + minY + x, so a
// fractional row shifts a scan sideways and minY stands where minX would be
// expected; both are kept, results depend on them. Pixels outside the picture
// read as white. `*int_x1` gets the row scans' count, `*int_y1` the column
// scans'. Both outputs are left untouched when the file cannot be read.
void getIntersections(const char* file1, int* int_x1, int* int_y1);

// Share of pixel pairs whose darkness differs by less than 0.25. With
// `crossQuadrant` 0 the pairs mirror about the vertical axis (mirror
// symmetry); with 1, about the centre (symmetry under a half turn). Pairs are
// taken for x from 1 - corr while x < width / 2, comparing column
// (width - 1) / 2 + corr + x with (width - 1) / 2 - x, corr being 1 for an
// even width: for an odd width the outermost pair of columns is never
// compared. A width of 1 compares nothing and gives 0 / 0 (not a number), as
// does a null buffer.
double symmetryValue(uint32* buf, int width, int height, int crossQuadrant);

// The larger of the mirror and the half-turn symmetry of the ink box, after
// deskewing by `SkewAngle` (not for 0). A blank picture gives 1.0 (its
// 2 by 2 box is all white); 0.0 when the file cannot be read.
double getSymmetry(const char* file, double SkewAngle);

#endif
