// Outline extraction: turns the points the scaler leaves in a key's glyph
// element (26.6, with on-curve flags) into an FS_OUTLINE of typed elements
// in 16.16 pixels with its advance and box, applies vertical and rotated
// layout and emboldens. Called by the glyph request pipeline and the scan
// converters; calls the scaler and grid fit (fs_scale, fs_glue).
#ifndef ORVEX_INTERNAL_FS_OUTLINE_H
#define ORVEX_INTERNAL_FS_OUTLINE_H

#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_scale.h"

// An empty outline header: the record of a glyph with too few points.
const FS_LONG FS_OUTLINE_HEADER = 80;

// A zeroed outline of `nc` contours with room for `n_types` element codes
// and `n_points` points, in one heap block: header, codes (padded to 4),
// x, y. `num` and `np` are set to the counts. Null with 201.
FS_OUTLINE* setup_outline(FS_STATE* state, FS_SHORT nc, FS_LONG n_types,
                          FS_LONG n_points);

// A copy of `o` in one block: from the engine heap, or with `user_mem`
// from the system allocator (the caller frees it with free()). The copy's
// cache_ptr is null. Null with 201 (or a null `o`).
FS_OUTLINE* copy_outline(FS_STATE* state, FS_OUTLINE* o, FS_BOOLEAN user_mem);

// Moves the outline by quarter pixels: x by cspx x 0x4000, y by minus
// cspy x 0x4000, points and box alike. A null outline is ignored.
void shift_outline(FS_OUTLINE* o, FS_SHORT cspx, FS_SHORT cspy);

// Element codes and points the TrueType points of `el` give under
// fill_outline (`filled` as fill_outline decides it).
void count_points(fnt_ElementType* el, FS_BOOLEAN filled, FS_LONG* n_types,
                  FS_LONG* n_points);
// The same for cubic (CFF) points: on curve, or off curve in threes.
void count_points_cff(fnt_ElementType* el, FS_LONG* n_types,
                      FS_LONG* n_points);

// Writes the elements of `el` into `o`, which has room by count_points.
// Points go from 26.6 to 16.16 by a shift of 10; an implied on-curve point
// between two off-curve ones is their sum shifted by 9. A one-point contour
// leaves nothing. A contour is closed when `filled`, or when its last point
// is off curve; the first code gets 0x80 when `filled` and anything was
// written. Sets `num`, `np`, `nc`.
void fill_outline(fnt_ElementType* el, FS_BOOLEAN filled, FS_OUTLINE* o);
void fill_outline_cff(fnt_ElementType* el, FS_OUTLINE* o);

// The box of all points, control points included, into lo_x..hi_y. With no
// points the box is all 0.
void set_bbox(int n_points, FS_OUTLINE* o);

// The outline of the key's current glyph element, with advance, layout by
// the client's vertical and rotation flags, and boldness. Null with the
// error (201), or, for a glyph with too few points, an 80-byte record that
// has only the advance.
FS_OUTLINE* extract_outline(FS_STATE* state, fsg_SplineKey* key);

// Replaces nothing: builds an emboldened copy of `o` by shifting the part
// of each contour that faces one way along the bold vector. Returns the new
// outline (the caller frees `o`), `o` itself when the rounded bold width is
// 0, or null: 201, or no error for an outline whose elements are out of
// order. *n_types and *n_points get the new counts.
FS_OUTLINE* embolden_outline(FS_STATE* state, FS_OUTLINE* o, FS_LONG* n_types,
                             FS_LONG* n_points);

// Fetches glyph `gIndex` of the scaled font (rebuilding its key when the
// reclaim ladder took it), grid fits it unless FLAGS_NO_HINTS, and extracts
// its outline. An index beyond the font is glyph 0. Null with the error.
FS_OUTLINE* make_outline_ttf(FS_STATE* state, SFNT* sfnt, FS_ULONG gIndex);

// The outline of glyph `index` (character `id`) of the current scaled font.
// Null with the error; 436 for a font whose outlines are not TrueType.
FS_OUTLINE* find_or_make_outline(FS_STATE* state, LFNT* lfnt, SFNT* sfnt,
                                 FS_ULONG id, FS_ULONG index);

// Maps `id` and returns its outline in the current scaled font. A font with
// no outline tables prints "Error: cannot generate outline. No glyf, loca or
// cff table found!" and gives null.
FS_OUTLINE* internal_get_outline(FS_STATE* state, FS_ULONG id);

// Prints the outline's header and elements on standard output (debugging).
void dump_outline(FS_OUTLINE* o);

#endif
