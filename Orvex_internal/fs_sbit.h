// Embedded bitmaps: the resident part of a font's bitmap location table
// (`EBLC` or `CBLC`), read by the container loader. The per-glyph lookups
// that serve bitmaps from it build on these records.
#ifndef ORVEX_INTERNAL_FS_SBIT_H
#define ORVEX_INTERNAL_FS_SBIT_H

#include "Orvex_internal/fs_state.h"

struct TTF;

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
};

// Reads the head, the size tables and their index subtable arrays of the
// location table at ttf->eblc_offset. Null on failure with the error: 466 for
// no sizes, or for sizes or arrays that don't fit in the table; 405 when the
// table is gone; 201 from the heap. Nothing is left behind on failure.
TTF_EBLC_PARTIAL* get_EBLC_partial(FS_STATE* state, TTF* ttf);

// Frees the record with every strike's index subtable array. Accepts null.
void delete_EBLC_partial(FS_STATE* state, TTF_EBLC_PARTIAL* p);

#endif
