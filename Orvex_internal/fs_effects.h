// Image effects on finished glyph maps: relief (emboss, engrave), outlines
// grown from the glyph's own pixels, softening, and emboldening done on
// pixels. The bitmap scan converter, the graymap scan converter and the
// embedded strikes call them at the end of a glyph; they know nothing of
// outlines and work in integers. 1-bit maps are worked a byte at a time;
// graymaps read their depth (2, 4 or 8 bits) from `bitsPerPixel`, each
// depth with its own path. In packed rows the leftmost pixel of a byte lies
// in its highest bits.
//
// Ownership: routines marked "in place" change the map they are given and
// return it. Routines that "take over" their source free it when they
// succeed; when they fail (null, `error` 201 from the heap) the source is
// still the caller's, who frees it.
#ifndef ORVEX_INTERNAL_FS_EFFECTS_H
#define ORVEX_INTERNAL_FS_EFFECTS_H

#include "Orvex_internal/fs_glyphmap.h"

/* ---- 1-bit maps ---- */

// In place: clears each pixel whose upper-left neighbour is set (the first
// row stays), leaving the lit edges on the top and left.
FS_BITMAP* engrave_bitmap(FS_BITMAP* bmap);
// In place: clears each pixel whose lower-right neighbour is set (the last
// row stays), leaving the lit edges on the bottom and right.
FS_BITMAP* emboss_bitmap(FS_BITMAP* bmap);

// A new zeroed map `nRows` taller and `nCols` wider on every side, the
// source's pixels copied in at (nCols, nRows); `lo_x` falls by `nCols`,
// `hi_y` rises by `nRows`. The source stays. Null with 201.
FS_BITMAP* grow_bitmap(FS_STATE* state, FS_BITMAP* src, int nRows, int nCols);

// A new map of `src` grown by `n` pixels in rounds that alternate the four
// edge neighbours and all eight, starting with the parity of `n` (an
// octagon). Its margin is n + 1 rows and n + 8 columns, the extra blank.
// The source stays. Null with 201 (nothing left allocated).
FS_BITMAP* dilate_bitmap(FS_STATE* state, FS_BITMAP* src, int n);

// Clears each pixel of `a` where `b`, placed by `lo_x` and `hi_y`, has one.
void remove_bitmap(FS_BITMAP* a, FS_BITMAP* b);

// Takes over `src`: the glyph grown by `n` pixels, hollow (the glyph's own
// pixels removed) unless `filled`. An empty map comes back itself with
// `lo_x` n and `hi_y` -n.
FS_BITMAP* outline_bitmap(FS_STATE* state, FS_BITMAP* src, FS_USHORT n,
                          FS_USHORT filled);

// A copy in a fresh heap block, not cached. Null with 201.
FS_BITMAP* copy_bitmap(FS_STATE* state, FS_BITMAP* p);

// In place, same size: every run of each row grows one pixel to the left
// unless that would close a one-pixel gap; with a `bold_width` of 2 or more
// also one pixel to the right, by the same rule. `bold_width` 0 does
// nothing.
FS_BITMAP* pixelbold_bitmap(FS_STATE* state, FS_BITMAP* bmap);

// Takes over `bmap` (an embedded strike's glyph): a map one column wider
// (two for a `bold_width` above 1), `lo_x` one less, the rows moved one
// pixel right, then pixelbold_bitmap. `bold_width` 0 returns the map.
FS_BITMAP* pixelbold_embedded_bitmap(FS_STATE* state, FS_BITMAP* bmap);

/* ---- graymaps of 2, 4 or 8 bits ---- */

// In place: each pixel less its upper-left neighbour, floored at 0; the
// first row and column stay. Null gives null; a map under 2 rows or 2
// columns stays as it is.
FS_GRAYMAP* engrave_graymap(FS_GRAYMAP* gmap);
// In place: the mirror, with the lower-right neighbour; the last row and
// column stay.
FS_GRAYMAP* emboss_graymap(FS_GRAYMAP* gmap);

// A zeroed byte image (one byte a pixel holding its level at the source's
// depth) `cols` wider and `rows` taller on every side, with the source
// unpacked at (cols, rows). Null with 201.
FS_BYTE* GrowImage(FS_STATE* state, FS_GRAYMAP* src, FS_LONG rows, FS_LONG cols);

// Subtracts each source level from the image byte at its place, unfloored.
void RemoveSourceImage(FS_BYTE* dst, FS_GRAYMAP* src, FS_LONG rows, FS_LONG cols);

// Packs a w by h byte image into a new map of the source's depth, placed
// n + 1 left of and above the source. Null with 201.
FS_GRAYMAP* ImageToGraymap(FS_STATE* state, FS_BYTE* image, FS_GRAYMAP* src,
                           FS_ULONG w, FS_ULONG h, FS_USHORT n);

// Takes over `src`: the glyph grown by `n` pixels, the rim keeping the
// softness of the edge it grew from, hollow when the client's flags hold
// any of 0xB0, then scaled by `opacity` (16.16) when that is below 1.
FS_GRAYMAP* outline_graymap(FS_STATE* state, FS_GRAYMAP* src, FS_USHORT n,
                            FS_FIXED opacity);

// Takes over `gmap`: a filled outline of `width`, softened by filter 0 both
// ways, then scaled by the client's `outline_opacity` (capped at the top
// level) when that is not 1. The `opacity` argument is not read.
FS_GRAYMAP* soft_outline_graymap(FS_STATE* state, FS_GRAYMAP* gmap,
                                 FS_USHORT width, FS_FIXED opacity);

// Takes over `old`: the map filtered by filter `fx` across and `fy` down
// (table f0 to f4), grown by half of each filter's taps. An index below 0
// or above 4 returns `old` itself, nothing allocated.
FS_GRAYMAP* Soften(FS_STATE* state, int fx, int fy, FS_GRAYMAP* old);

// In place, same size: each run gets a pixel of full black at its left
// edge and its gray slope moves out one place; with a `bold_width` of 2 or
// more the same on the right. One routine per depth.
FS_GRAYMAP* pixelbold_graymap2(FS_STATE* state, FS_GRAYMAP* gmap);
FS_GRAYMAP* pixelbold_graymap4(FS_STATE* state, FS_GRAYMAP* gmap);
FS_GRAYMAP* pixelbold_graymap8(FS_STATE* state, FS_GRAYMAP* gmap);

// Takes over `gmap` (an embedded strike's glyph): as
// pixelbold_embedded_bitmap, at the map's depth.
FS_GRAYMAP* pixelbold_embedded_graymap(FS_STATE* state, FS_GRAYMAP* gmap);

#endif
