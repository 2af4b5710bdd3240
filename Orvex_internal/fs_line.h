// Line and curve drawing of the bitmap scan converter: each line leaves its
// crossings of the pixel-row centres on the server's transition list (and,
// for dropout control, of the column centres on the second list); curves
// are flattened into lines by recursive halving to a depth worked out in
// advance. Called by the bitmap scan converter (fs_bitmap); calls the
// transition lists (fs_tlist).
#ifndef ORVEX_INTERNAL_FS_LINE_H
#define ORVEX_INTERNAL_FS_LINE_H

#include "Orvex_internal/fs_state.h"

// A crossing as a list keeps it: x in 16.16 times 2, plus 1 for a line
// going up (0 down), computed without shifting a negative and compared as
// a signed 32-bit value.
inline FS_FIXED pack_crossing(FS_FIXED x, FS_LONG up) {
  return (FS_FIXED)((FS_ULONG)x * 2u + (up ? 1u : 0u));
}
inline FS_FIXED crossing_x(FS_FIXED v) { return v >> 1; }
inline FS_LONG crossing_up(FS_FIXED v) { return v & 1; }

// Adds the crossings of the line (x0, y0)-(x1, y1) with the row centres
// y + 0.5 to server->tlist: a centre counts when the lower end is at or
// below it and the upper end above it. A horizontal line, or one between
// two centres, leaves nothing and doesn't touch the turn state. Then the
// turn-back test: a line whose first crossing meets the previous line's
// last one on the same row, in the same rounded pixel column and in the
// opposite direction takes both off the list. A failed node allocation
// leaves the heap's error in state->error; later lines then do nothing.
void line_simple(FS_STATE* state, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1,
                 FS_FIXED y1);

// line_simple on server->tlist, then with x and y exchanged on
// server->drop: the column scan of dropout control.
void line_dropout(FS_STATE* state, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1,
                  FS_FIXED y1);

// The turn-back test of a closed contour: its first crossing against the
// last line's last one. Leaves the turn state as it was.
void close_contour_turn(TLIST* list);

// A quadratic from (x0, y0) through control (x1, y1) to (x2, y2), drawn by
// server->line. With the control's distance from the chord's middle at or
// below lpm / 1024 pixels, one line; otherwise 2^levels lines, levels
// counting the quarterings that bring that distance below the bound.
void FS_quad(FS_STATE* state, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1,
             FS_FIXED y1, FS_FIXED x2, FS_FIXED y2);

// A cubic, alike: the larger distance of the controls from the points a
// third and two thirds along the chord against the same bound (above it
// subdivides, where FS_quad subdivides at it too).
void FS_cube(FS_STATE* state, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1,
             FS_FIXED y1, FS_FIXED x2, FS_FIXED y2, FS_FIXED x3, FS_FIXED y3);

// Halves the curve by de Casteljau `levels` times (midpoints by an
// arithmetic shift) and draws the 2^levels lines; level 1 or below draws
// two lines through the middle.
void quad_divide(FS_STATE* state, FS_SHORT levels, FS_FIXED x0, FS_FIXED y0,
                 FS_FIXED x1, FS_FIXED y1, FS_FIXED x2, FS_FIXED y2);
void cube_divide(FS_STATE* state, FS_SHORT levels, FS_FIXED x0, FS_FIXED y0,
                 FS_FIXED x1, FS_FIXED y1, FS_FIXED x2, FS_FIXED y2,
                 FS_FIXED x3, FS_FIXED y3);

#endif
