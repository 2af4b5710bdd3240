// Embedded bitmaps: the resident part of a font's bitmap location table
// (`EBLC` or `CBLC`), read by the container loader. The per-glyph lookups
// that serve bitmaps from it build on these records.
#ifndef ORVEX_INTERNAL_FS_SBIT_H
#define ORVEX_INTERNAL_FS_SBIT_H

#include "Orvex_internal/fs_state.h"

struct TTF;
struct SFNT;
struct FS_BITMAP;

// Line metrics of one strike, published layout.
struct SBIT_LINE_METRICS {
  FS_TINY ascender;
  FS_TINY descender;
  FS_BYTE widthMax;
  FS_TINY caretSlopeNumerator;
  FS_TINY caretSlopeDenominator;
  FS_TINY caretOffset;
  FS_TINY minOriginSB;
  FS_TINY minAdvanceSB;
  FS_TINY maxBeforeBL;
  FS_TINY minAfterBL;
  FS_TINY pad1;
  FS_TINY pad2;
};

// One strike's size table, in native order.
struct BITMAP_SIZE_TABLE {
  FS_ULONG indexSubTableArrayOffset;
  FS_ULONG indexTablesSize;
  FS_ULONG numberOfIndexSubTables;
  FS_ULONG colorRef;
  SBIT_LINE_METRICS hori;
  SBIT_LINE_METRICS vert;
  FS_USHORT startGlyphIndex;
  FS_USHORT endGlyphIndex;
  FS_BYTE ppemX;
  FS_BYTE ppemY;
  FS_BYTE bitDepth;
  FS_TINY flags;
};

// One entry of a strike's index subtable array, in native order.
struct INDEX_SUB_TABLE {
  FS_USHORT firstGlyphIndex;
  FS_USHORT lastGlyphIndex;
  FS_ULONG additionalOffsetToIndexSubtable;
};

struct BITMAP_SIZE_TABLE_ARRAY {
  BITMAP_SIZE_TABLE bst;
  INDEX_SUB_TABLE* ist;  // bst.numberOfIndexSubTables entries, owned
};

struct TTF_EBLC_PARTIAL {
  FS_FIXED version;
  FS_ULONG numSizes;
  BITMAP_SIZE_TABLE_ARRAY* bsta;  // numSizes entries, owned
  // Where the location and data tables lie in the font, so that every
  // per-glyph read is bounded by its table.
  FS_ULONG eblc_length;
  FS_ULONG ebdt_offset, ebdt_length;
};

// Reads the head, the size tables and their index subtable arrays of the
// location table at ttf->eblc_offset. Null on failure with the error: 466 for
// no sizes, or for sizes or arrays that don't fit in the table; 405 when the
// table is gone; 201 from the heap. Nothing is left behind on failure.
TTF_EBLC_PARTIAL* get_EBLC_partial(FS_STATE* state, TTF* ttf);

// Frees the record with every strike's index subtable array. Accepts null.
void delete_EBLC_partial(FS_STATE* state, TTF_EBLC_PARTIAL* p);

// The depth requests of the strike lookups: 1, 2, 4, 8 ask for a strike of
// that depth, 16 a colour strike at the very size; 5 more (6, 7, 9, 13, 21)
// add the raster-icon bit and let a colour strike serve at any size.
const FS_SHORT SBIT_BPP_ICON = 5;

// The font's own 1-bit glyph (bpp 1, or 6 with the icon bit of `type`) at
// the scaled font's size, or null: none (error 0) or a refused strike glyph
// (error 407, 427, 428, 429, 464).
FS_BITMAP* get_embedded_bitmap(FS_STATE* state, SFNT* sfnt, FS_USHORT gindex,
                               FS_USHORT type);

// The font's own gray glyph for a graymap `type` (bits 4 or 1024 ask for
// depth 4, 8 or 2048 for 8, 2 or 512 for 2, 0xF000 for a colour strike;
// the icon bit adds 5), or null as get_embedded_bitmap.
FS_BITMAP* get_embedded_graymap(FS_STATE* state, SFNT* sfnt, FS_USHORT gindex,
                                FS_USHORT type);

// A strike glyph of depth request `bpp` when the scaled font's scale lets a
// strike serve: a stroke font's upright or sheared scale; otherwise an
// unsheared one, at lpm below 27 under FLAGS_ADD_WEIGHT, else without
// boldness. The map comes back with `embedded` 1.
FS_BITMAP* get_embedded_thing(FS_STATE* state, SFNT* sfnt, FS_USHORT gIndex,
                              FS_SHORT bpp);

// The strike glyph of `gIndex` at xppm by yppm for request `bpp`, walking
// every strike; a colour strike near the size is read and rescaled when the
// last strike visited is a colour one.
FS_BITMAP* get_sbitmap(FS_STATE* state, TTF* ttf, FS_SHORT xppm, FS_SHORT yppm,
                       FS_USHORT gIndex, FS_SHORT bpp);

// Rescales a colour map's numbers (not its pixels) from the strike's size
// ppemX by ppemY to xppm by yppm.
void scale_sbitmap(FS_BITMAP* b, FS_SHORT ppemX, FS_SHORT ppemY, FS_SHORT xppm,
                   FS_SHORT yppm);

#endif
