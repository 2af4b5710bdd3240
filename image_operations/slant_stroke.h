// Slant, stress and stroke width of a design, measured on glyph pictures.
// The shear skewImage takes a slant out of a picture and is shared by every
// measurement that accepts a skew angle; the stroke widths feed the contrast
// and class measurements. Reads pictures through image_access only.
#ifndef IMAGE_OPERATIONS_SLANT_STROKE_H
#define IMAGE_OPERATIONS_SLANT_STROKE_H

#include "image_operations/image_access.h"

// Shears the width * height picture `o_buf` by `degrees` about row `refY`
// into `d_buf`, which must hold height * (width + 2 * refY) pixels; the
// result has rows of newWidth = width + 2 * refY pixels, the source shifted
// right by refY, so row refY keeps its place. Positive degrees move the rows
// above refY to the left and those below to the right: a glyph whose top
// leans right by `degrees` comes out upright. Each source pixel's ink is
// shared between two neighbouring target pixels (the fractional weight goes
// to the floor position, its complement to the ceiling one) and subtracted
// from white on the whole 24-bit pixel number, so overlapping ink can wrap a
// target pixel below black; measurements are tuned to exactly this.
// Meant for angles from -45 to 45 with refY = height / 2; a shifted pixel
// that would leave its target row is dropped.
void skewImage(uint32* o_buf, uint32* d_buf, int width, int height, int refY,
               double degrees);

// The standard deskew of a picture that a measurement has read: for a
// SkewAngle of 0 returns `picture` untouched; otherwise shears it by SkewAngle
// about refY = height / 2 into a new picture from xmalloc, frees `picture`,
// sets *width to the new row length width + 2 * refY and returns the new
// picture. The caller frees what comes back.
uint32* deskewPicture(uint32* picture, int* width, int height,
                      double SkewAngle);

// The same for a picture read with PictureRead: the sheared picture, a new
// one of its own, takes the read one's place (which stays as it was when it
// is the run's kept decoding). Nothing happens for a SkewAngle of 0 or a
// picture that could not be read.
void deskewPicture(PictureRead* picture, double SkewAngle);

// Slant of the stems in whole degrees, from -45 to 45: the shear that makes
// the ink box narrowest, the later (more positive) angle winning ties.
// Positive means the top of the glyph leans right. 0.0 if the file cannot be
// read. A blank picture gives 45.0 (every shear ties).
double calculateSkew(const char* file);

// Mean ink width, in pixels at 72 px per em, of the vertical strokes crossing
// the rows from 40 % to 60 % of the ink box's height; within each row a run
// counts only if it is wider than every run before it in that row. Run widths
// are darkness sums, so anti-aliased edges count in part. 0.0 when the file
// cannot be read or no stroke crosses the band.
double getStrokeWidth(const char* filepath);

// The same mean run width over the rows from 40 % up to, not including, 60 %
// of the height, divided by the ink box's width. 0.0 when the file cannot be
// read or no stroke crosses the band.
double getStrokeWidthToWidthRatio(const char* filepath);

// Thickness, in pixels at 72 px per em, of the horizontal bar of a T: the ink
// of the columns beside the stem (found at three quarters of the height)
// above that row, the lowest cluster of column sums winning. The picture is
// deskewed by SkewAngle first. `avg` has no effect. Falls back to the stem's
// width in pixels when no column qualifies (a blank picture gives 1.0).
// 0.0 when the file cannot be read.
double getVerticalStrokeWidth(const char* filepath, double avg,
                              double SkewAngle);

// Axis of stress of a bowl (an o) in whole degrees, from -45 to 45: stroke
// thicknesses along rays from the centre, from the left edge and from the top
// edge, are compared at right angles, and the pair of greatest ratio gives
// the angle. An o thickest at left and right gives about 0; its thick parts
// turned counter-clockwise on the page by a small angle give about minus
// that angle, and thick parts near the top and bottom turned
// counter-clockwise from the vertical give about plus the angle. 0.0 when
// the file cannot be read or the ratio stays at or below 1.6 (2.0 for
// designs so thin that rays are counted in pixels). A blank picture gives
// 44.0: its unrecorded rays (-1) divided by smoothed ones near 0 make a
// large ratio.
double getStressAngle(const char* file);

// Slope in degrees of the underside of the middle bar of an e, from the first
// to the last column that crosses three strokes; negative when the bar rises
// to the right (pixel rows grow downward). 0.0 when no such line is found, when
// more than three columns cross more than three strokes, or when the slope
// passes 50 degrees. -1.0 when the file cannot be read.
double getESlant(const char* file);

#endif
