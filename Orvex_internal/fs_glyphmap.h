// The engine's glyph result records (bitmap, graymap, bounding box, outline,
// advance), the glyphmap type word that says what a caller asks for, and the
// client flag word with its setter. All rasterisers write these records, the
// cache keeps them, and the renderer reads them.
#ifndef ORVEX_INTERNAL_FS_GLYPHMAP_H
#define ORVEX_INTERNAL_FS_GLYPHMAP_H

#include "Orvex_internal/fs_state.h"

// A map of pixels; the bitmap, graymap and bounding box share this layout
// (FS_GLYPHMAP names it in general). One heap block, header and pixels
// together; `size` is the whole block.
struct FS_BITMAP {
  CACHE_ENTRY* cache_ptr;  // owning cache entry, null when the caller owns it
  FS_LONG size;
  FS_SHORT lo_x;  // left edge, pixels right of the origin
  FS_SHORT hi_y;  // top edge, pixels above the baseline
  FS_SHORT i_dx, i_dy;  // whole-pixel advance, 0 when not an integer
  FS_FIXED dx, dy;      // 16.16 advance
  FS_SHORT width, height;
  FS_SHORT bpl;  // bytes per row; readers take the magnitude
  FS_BOOLEAN embedded;
  FS_SHORT bitsPerPixel;
  FS_USHORT type;  // the resolved type bit that made this map
  FS_BYTE bits[1];  // rows top to bottom, leftmost pixel in the high bits
};
typedef FS_BITMAP FS_GLYPHMAP;
typedef FS_BITMAP FS_GRAYMAP;
typedef FS_GLYPHMAP FS_BOUNDINGBOX;

static_assert(sizeof(FS_GLYPHMAP) == 48, "a bounding box takes 48 bytes");

// An outline: an 80-byte header, then `num` element codes, then x and y.
struct FS_OUTLINE {
  CACHE_ENTRY* cache_ptr;
  FS_LONG size;
  FS_FIXED lo_x, hi_x, lo_y, hi_y;  // extent of the points, 16.16 pixels
  FS_SHORT i_dx, i_dy;
  FS_FIXED dx, dy;
  FS_SHORT nc;  // contours
  FS_SHORT np;  // points in x and y
  FS_SHORT num; // element codes in `type`
  FS_SHORT polarity;
  FS_BYTE outl_flag;
  FS_BYTE* type;
  FS_FIXED* x;
  FS_FIXED* y;
};
static_assert(sizeof(FS_OUTLINE) == 80, "an outline header takes 80 bytes");

// Element codes of an outline, the low 7 bits of a `type` byte; bit 7 of the
// first byte marks a filled outline (a stroke font's skeleton has it clear).
const FS_BYTE FS_MOVETO = 0;
const FS_BYTE FS_LINETO = 1;
const FS_BYTE FS_QUADTO = 2;
const FS_BYTE FS_CUBETO = 3;
const FS_BYTE FS_OUTLINE_FILLED = 0x80;

// A glyph's scaled points as the scaler leaves them, for inspection tools:
// `nc` contours, contour c running from point sp[c] to ep[c]; `np` points
// in 26.6 pixels counted from the glyph's left phantom point, each on or off
// the curve. One block on the engine heap, given back by FSS_free.
struct FS_GLYPH_POINTS {
  FS_SHORT nc, np;
  F26DOT6* x;
  F26DOT6* y;
  FS_SHORT* sp;
  FS_SHORT* ep;
  FS_BYTE* onCurve;
};

// The cached advance, 24 bytes.
struct FS_ADVANCE {
  CACHE_ENTRY* cache_ptr;
  FS_LONG size;
  FS_SHORT i_dx, i_dy;
  FS_FIXED dx, dy;
};
static_assert(sizeof(FS_ADVANCE) == 24, "an advance takes 24 bytes");

// Glyphmap type word: the request bits. Values above 511 all ask for a
// distance-field (ADF) map.
const FS_USHORT FS_MAP_BITMAP = 0x0001;
const FS_USHORT FS_MAP_GRAYMAP2 = 0x0002;
const FS_USHORT FS_MAP_GRAYMAP4 = 0x0004;
const FS_USHORT FS_MAP_GRAYMAP8 = 0x0008;
const FS_USHORT FS_MAP_RASTER_ICON = 0x0020;
const FS_USHORT FS_MAP_DISTANCEFIELD = 0x0080;
const FS_USHORT FS_MAP_EDGE_GRAYMAP2 = 0x0200;
const FS_USHORT FS_MAP_EDGE_GRAYMAP4 = 0x0400;
const FS_USHORT FS_MAP_EDGE_GRAYMAP8 = 0x0800;
const FS_USHORT FS_MAP_ADF_4 = 0x1000;
const FS_USHORT FS_MAP_ADF_8 = 0x2000;
const FS_USHORT FS_MAP_ADF_4B = 0x4000;
const FS_USHORT FS_MAP_ADF_8B = 0x8000;

// Client flag word, FS_STATE.flags.
const FS_ULONG FLAGS_RESERVED_BIT0 = 0x00000001;
const FS_ULONG FLAGS_NO_HINTS = 0x00000002;
const FS_ULONG FLAGS_EMBOSSED = 0x00000004;
const FS_ULONG FLAGS_ENGRAVED = 0x00000008;
const FS_ULONG FLAGS_OUTLINED_1PIXEL = 0x00000010;
const FS_ULONG FLAGS_OUTLINED_2PIXEL = 0x00000020;
const FS_ULONG FLAGS_OUTLINED_FILLED = 0x00000040;
const FS_ULONG FLAGS_OUTLINED_UNFILLED = 0x00000080;
const FS_ULONG FLAGS_OUTLINED_SOFT = 0x00000100;
const FS_ULONG FLAGS_EFFECTS = 508;  // the seven effects above
const FS_ULONG FLAGS_ADD_WEIGHT = 0x00000200;
const FS_ULONG FLAGS_REGULARBOLD = 0x00000400;
const FS_ULONG FLAGS_FRACTBOLD = 0x00000800;
const FS_ULONG FLAGS_SOFTENED = 0x00001000;
const FS_ULONG FLAGS_CMAP_OFF = 0x00004000;
const FS_ULONG FLAGS_UNSUPPORTED = 0x00008000;
const FS_ULONG FLAGS_VERTICAL_ON = 0x00010000;
const FS_ULONG FLAGS_VERTICAL_ROTATE_RIGHT_ON = 0x00020000;
const FS_ULONG FLAGS_VERTICAL_ROTATE_LEFT_ON = 0x00040000;
const FS_ULONG FLAGS_DEFAULT_CSM_ON = 0x00080000;
const FS_ULONG FLAGS_MAZ_ON = 0x00100000;
const FS_ULONG FLAGS_GRAYSCALE = 0x00400000;
const FS_ULONG FLAGS_NO_AUTOHINT = 0x00800000;
const FS_ULONG FLAGS_FORCE_AUTOHINT = 0x01000000;
const FS_ULONG FLAGS_AUTOHINT_YONLY = 0x02000000;
const FS_ULONG FLAGS_LARGE_SCALE = 0x08000000;  // engine only
const FS_ULONG FLAGS_THIN_STROKE = 0x10000000;  // engine only
const FS_ULONG FLAGS_REF_LINE_PASS = 0x20000000;  // engine only
const FS_ULONG FLAGS_KERN_UNSCALED = 0x40000000;
const FS_ULONG FLAGS_TOP_BIT = 0x80000000;

// Changes the client's flag word by the exact value of `effect` (a flag to
// set, or the complement of one to clear). An effect flag clears the other
// effects, a bold flag the other bolds, a vertical flag the other verticals;
// any vertical complement clears all three; ~508 clears every effect.
// 0x8000 and its complement give 438; any other value, 0 included, gives
// 612. The word is unchanged on error. Returns `error` (0 on success).
FS_LONG FS_set_flags(FS_STATE* state, FS_ULONG effect);

// The client's flag word.
FS_ULONG FS_get_flags(FS_STATE* state);

// Moves a fresh glyph map by its font's vertical shift, when it has one:
// straight up under a plain scale, else along the perpendicular of the
// map's advance direction. Every map getter (1-bit, gray, distance-field)
// places its maps so.
void shift_map_vertically(const SFNT* sfnt, FS_GLYPHMAP* map);

#endif
