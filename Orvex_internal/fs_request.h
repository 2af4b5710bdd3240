// The glyph request pipeline: the client calls that set the scale and the
// style and ask for a glyph's map, outline, advance or box. Each request
// maps the code (fs_cmap), readies the scaled font (fs_scale), measures the
// reference lines once (fs_metrics), reduces the type to one rasteriser and
// lets that rasteriser's getter answer through the glyph cache (fs_cache).
#ifndef ORVEX_INTERNAL_FS_REQUEST_H
#define ORVEX_INTERNAL_FS_REQUEST_H

#include "Orvex_internal/fs_glyphmap.h"

/* ---- Scale ---- */

// A component's size adjustment in force at a size: whole-pixel growth in
// 8.8 (`scale`) and a vertical shift in pixels.
struct FS_PPEM_ADJUST {
  FS_USHORT ppem;
  FS_SHORT scale;
  FS_SHORT shift;
};

// The adjustment record of the largest `ppem` not above `yppm` (16.16),
// read as 6-byte big-endian records (ppem, scale, shift) from the set's
// memory image or file at the component's `adjOffset`; all zero for a
// component without records. Returns 0 or the file's error.
FS_LONG CFNT_get_adjustments(FS_STATE* state, FNTSET* fntset, CFNT* cfnt,
                             FS_FIXED yppm, FS_PPEM_ADJUST* a);

// The factor that makes a component `scale` (8.8 pixels) larger at `yppm`:
// (yppm + scale << 8) / yppm in 16.16.
FS_FIXED adjustment_scale_factor(FS_SHORT scale, FS_FIXED yppm);

// Sets the client's 16.16 matrix, pixels per em on the diagonal, and gives
// each component of the current font a scaled font at it (found again when
// one with the same font, scale, shift and weights exists, else made). No
// scaling work is done here. Returns 0; 305 no font; 502 an entry of
// 0x40000000 or more; 503 a collapsing matrix; 315 no component array; 201.
FS_LONG FSS_set_scale(FS_STATE* state, FS_FIXED s00, FS_FIXED s01,
                      FS_FIXED s10, FS_FIXED s11);

// The current component's scaled font's matrix. 305 with no font, 302 with
// no scale set; the outputs are untouched then.
FS_LONG FSS_get_scale(FS_STATE* state, FS_FIXED* s00, FS_FIXED* s01,
                      FS_FIXED* s10, FS_FIXED* s11);

// unitsPerEm of the current component, or of the set's metric font. 0 with
// 305 (no font) or 304 (not loadable).
FS_USHORT FSS_get_design_units(FS_STATE* state);

// Design units, the scale of the component that renders `id`, its pixels
// per em and its range of glyph ids in the set's numbering (start
// inclusive, end exclusive). Returns 0 or the error of the mapping or the
// scaler; 521 for a null output.
FS_LONG FSS_get_gpos_scale(FS_STATE* state, FS_ULONG id, FS_USHORT* du,
                           FS_FIXED* s00, FS_FIXED* s01, FS_FIXED* s10,
                           FS_FIXED* s11, FS_USHORT* xppm, FS_USHORT* yppm,
                           FS_ULONG* idRangeStart, FS_ULONG* idRangeEnd);

/* ---- Style ---- */

// Emboldening in 16.16 of the em: 0 to 65536, else 613.
FS_LONG FS_set_bold_pct(FS_STATE* state, FS_FIXED pct);
// Stroke weight of stroke fonts in 16.16 of the em: 0 to 32768, else 613.
FS_LONG FS_set_stroke_pct(FS_STATE* state, FS_FIXED pct);
// Outline effect width in pixels: 1 to 10, else 614.
FS_LONG FS_set_outline_width(FS_STATE* state, FS_USHORT width);
// Outline effect opacity in 16.16: 0 to 10.0, else 615.
FS_LONG FS_set_outline_opacity(FS_STATE* state, FS_FIXED opacity);
// The distance-field contrast setters (FS_set_csm, FS_get_csm and the
// adjustments) are the distance-field glue's (adf.h).

/* ---- Glyphs ---- */

// Rasterisers a type word can resolve to.
const FS_USHORT RASTER_NONE = 0;
const FS_USHORT RASTER_BITMAP = 1;
const FS_USHORT RASTER_GRAYMAP = 2;
const FS_USHORT RASTER_ADF = 4;
const FS_USHORT RASTER_DISTANCE_FIELD = 8;

// Reduces a type word with any number of request bits to one rasteriser
// and one type bit (plus 32 for embedded colour maps of fonts that have
// them), by the scaled font's render behaviour. Where a bitmap competes and
// the size does not grid-fit, FLAGS_NO_HINTS is set on the client and
// stays. *rasterizer 0 when nothing is known in `type`.
void resolve_glyphmap_type(FS_STATE* state, FS_USHORT* type,
                           FS_USHORT* rasterizer);

// The map of character `id` of the current font at the current scale, of
// the resolved `type`: through the glyph cache, so that a repeated request
// gives the same record. Give it back by FSS_free_char. Null with the
// error: 305, 302, the mapper's and the scaler's, 519 for a type with no
// rasteriser in this build (bitmaps, distance fields). An unmapped code
// gives the font's missing-glyph shape (index 0) without error.
FS_GLYPHMAP* FSS_get_glyphmap(FS_STATE* state, FS_ULONG id, FS_USHORT type);

// FSS_get_glyphmap at quarter-pixel phases taken from the low 16 bits of
// the 16.16 positions (0x4000 is phase 1).
FS_GLYPHMAP* FSS_get_phased(FS_STATE* state, FS_ULONG id, FS_USHORT type,
                            FS_FIXED posx, FS_FIXED posy);

// The 4-bit graymap of `id`. Null with the error.
FS_GRAYMAP* FSS_get_graymap(FS_STATE* state, FS_ULONG id);

// The 1-bit map of `id`: null with 519 until the bitmap rasteriser is built.
FS_BITMAP* FSS_get_bitmap(FS_STATE* state, FS_ULONG id);

// The outline of `id` in 16.16 pixels, a private copy. Null with the error.
FS_OUTLINE* FSS_get_outline(FS_STATE* state, FS_ULONG id);

// The scaled points of `id` (a code through the character map, a glyph
// index under FLAGS_CMAP_OFF) at the current size, hinted unless
// FLAGS_NO_HINTS, as the scaler leaves them for the outline, measured from
// the left phantom place (on the grid when hinted under a vanilla scale). Null with the error: the mapper's, 317 for a
// scaled font without TrueType scaler environment, the scaler's.
FS_GLYPH_POINTS* FSS_get_points(FS_STATE* state, FS_ULONG id);

// The box of the map of `id` under `type`: a 48-byte map header without
// pixels, cached. Null with the error.
FS_BOUNDINGBOX* FSS_get_boundingbox(FS_STATE* state, FS_ULONG id,
                                    FS_USHORT type);

// The advance of `id` at the current size and style for `type`: 16.16 in
// dx, dy and whole pixels in i_dx, i_dy (both 0 when both parts are
// non-zero, as under rotation). From the linear metrics when the scale is
// plain and the font's advances don't depend on hints, else from the caches,
// `hdmx` or the outline; the latter is cached. Returns 0 or the error (317
// for a scaled font without its environment).
FS_LONG FSS_get_advance(FS_STATE* state, FS_ULONG id, FS_USHORT type,
                        FS_SHORT* i_dx, FS_SHORT* i_dy, FS_FIXED* dx,
                        FS_FIXED* dy);

// Stroke fonts only: adds the bold width along the baseline direction to an
// advance. Other fonts are left as they are.
void adjust_advance(FS_STATE* state, SENV* senv, FS_BOOLEAN space,
                    FS_FIXED* dx, FS_FIXED* dy);

// The maps of `len` Unicode characters at once, each a private copy, in a
// heap array put in *maparray; Arabic marks of stroke fonts are moved to
// clear the letters under them. The caller frees each map by FSS_free_char
// and the array by FSS_free. Returns 0, 521 null maparray, 519 no known
// type bit, 520 not a Unicode (3,1 or 3,10) cmap, or a glyph's error (all
// maps gotten are freed then).
FS_LONG FS_get_string(FS_STATE* state, FS_ULONG len, const FS_ULONG* unicodes,
                      FS_USHORT type, FS_GLYPHMAP*** maparray);

#endif
