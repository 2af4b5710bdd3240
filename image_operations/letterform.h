// Letterform detectors: tests on the shape of particular letters (lower case
// drawn like capitals, the dot of the i, one- or two-storey a and g, how open
// or closed the counters of a and e are). Called by the measurement sequence;
// builds on image_access and the centre of ink of size_metrics.
#ifndef IMAGE_OPERATIONS_LETTERFORM_H
#define IMAGE_OPERATIONS_LETTERFORM_H

#include "image_operations/image_access.h"

// Each function reads its own copy of its picture (ReadPngFile: decoded once
// per measurement run) and frees it. Unless a function names
// the ink box, it scans the full picture, and so depends on the narrow white
// margin the renderer leaves around a glyph.

// 1.0 when the centres of ink of the two pictures (as shares of their boxes,
// see GetCenterOfGravity) lie closer than 0.0015 in squared distance, else
// 0.0. An unreadable file leaves its centre at (0, 0), so two unreadable
// files give 1.0.
double getAllCaps(const char* file1, const char* file2);

// 1.0 when a box row between 5 and 95 per cent of the box height is white or
// nearly so (no ink; or ink under 5 per cent of the darkest row seen so far,
// on a falling slope, with no pixel darker than 0.5): the gap between the
// dot and the stem of an i. 0.0 otherwise and when the file cannot be read.
double getsmalliFontVal(const char* filePath);

// Share of the box width taken by runs of at least two neighbouring picture
// columns that cross more than 2 strokes (more than 3 with `isgchar` not 0).
// A stroke counts where it ends going down, so one running into the bottom
// edge does not, and a run of columns reaching the last column is never
// added. Positive for two-storey forms. 0.0 when the file cannot be read.
double isTowStoryag(const char* filePath, int isgchar);

// Height of the opening of an e: over the columns of the right half of the
// picture (from width / 2 while below width - 1) that show a third change
// going up, the smallest y1 - y2 + 1, with y1 the first white row above the
// lowest stroke and y2 the first ink row of the next stroke. The picture's
// height when no column qualifies; -1 when the file cannot be read.
int getCounterOpenness(const char* file);

// Mean height of a closed counter as a share of the picture's height, over the
// columns (from 0 while below width - 1) that cross three strokes going up.
// With `isSmallA` not 0 the counter between the first and second strokes from
// the bottom (the bowl of an a), else between the second and third (the eye
// of an e). 0.0 when no column crosses three strokes; -1.0 when the file
// cannot be read.
double getCounterCloseness(const char* file, int isSmallA);

#endif
