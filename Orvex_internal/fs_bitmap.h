// The bitmap scan converter: turns an FS_OUTLINE into a 1-bit FS_BITMAP.
// Curves become lines, each line leaves its crossings of the row centres on
// the server's transition list, and runs are filled by the non-zero winding
// rule, with optional dropout control along rows and columns; the result is
// trimmed to its ink. Called by the glyph request pipeline and the
// renderer; calls line drawing (fs_line), outline extraction and the cache.
#ifndef ORVEX_INTERNAL_FS_BITMAP_H
#define ORVEX_INTERNAL_FS_BITMAP_H

#include "Orvex_internal/fs_glyphmap.h"

// The bytes of a bitmap record before its pixels.
const FS_LONG BITMAP_HEADER = 40;

// A zeroed 1-bit map over the outline's box: columns from the floor of
// lo_x to the ceiling of hi_x, rows from the ceiling of hi_y (`hi_y`, the
// top row) down to the floor of lo_y, both ends included, so one spare
// column and row are always there. Null with no error when either side is
// at or above 16384 or at or below 0, or the box leaves 16-bit pixels;
// null with 201 on allocation failure. An outline with no elements gives a
// record of the advance with no bits.
FS_BITMAP* new_bitmap(FS_STATE* state, FS_OUTLINE* outl);

// Scan-converts `outl` (kept by the caller). Dropout control runs when
// state->flags has FLAGS_THIN_STROKE. Null with the error (201, or none for
// a box too large); an open contour gives the partial map with 505.
FS_BITMAP* make_bitmap(FS_STATE* state, FS_OUTLINE* outl);

// Fills the runs of non-zero winding of each list row into `bmap`: a pixel
// whose centre lies in a run is set (a centre on the run's left end is
// out, on its right end in). A run between two centres sets the pixel of
// its middle when dropout control is on. A row whose winding doesn't close
// sets 505 and the next row goes on.
void nzw_runs(FS_STATE* state, FS_BITMAP* bmap, TLIST* list);

// The column list's runs of at most one pixel set the pixel holding their
// middle, inside the map. Unclosed columns are passed over.
void y_dropouts(FS_BITMAP* bmap, TLIST* list);

// The map cut to its ink: `hi_y` falls and `lo_x` rises by what goes, in an
// exact new record (the old one freed); an all-blank map keeps its advance
// with height and width 0. A failed allocation returns the map untrimmed.
FS_BITMAP* trim_bitmap(FS_STATE* state, FS_BITMAP* bmap);

// make_bitmap, then frees `outl`; then the effects, the flipped-scale
// shift (each negative s11, s10 of `scale` moves `hi_y` up one, each
// negative s01, s00 moves `lo_x` right one, for a non-vanilla scale) and
// trim_bitmap. Any error but 505 gives null.
FS_BITMAP* construct_bitmap(FS_STATE* state, FS_FIXED* scale, FS_BOOLEAN vanilla,
                            FS_OUTLINE* outl);

// The 1-bit map of glyph `index` (character `id`) of the current scaled
// font, through the glyph cache: a repeat gives the same record. The
// caller gives it back by FSS_free_char. Null with the error; with 505 the
// partial map of an open contour, not cached.
FS_BITMAP* get_bitmap(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                      FS_USHORT type);

// Prints a bitmap as rows of '#' and '.' (debugging).
void dump_bitmap(FS_BITMAP* bmap);

#endif
