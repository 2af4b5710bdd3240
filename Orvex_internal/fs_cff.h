// CFF outlines of OpenType fonts: reads the `CFF ` table's top level and
// dicts at load, and interprets a glyph's Type 2 charstring into the same
// glyph element the TrueType reader fills, so that outline extraction and
// everything after it stay the same. Called by the container loader (load,
// unload) and by outline extraction (cff_GridFit); calls the scaler's key
// and workspace, the container's read path and the heap.
#ifndef ORVEX_INTERNAL_FS_CFF_H
#define ORVEX_INTERNAL_FS_CFF_H

#include "Orvex_internal/fs_state.h"

struct TTF;
struct fsg_SplineKey;

// An INDEX as it lies in the table: `pos` where it starts, counted from the
// table's start; `base` the byte before its data, which the 1-based offsets
// count from; `end` one past its last data byte. A count of 0 has no
// offset size and ends 2 bytes in.
struct CFF_INDEX {
  FS_ULONG pos;
  FS_ULONG count;
  FS_BYTE offSize;
  FS_ULONG base;
  FS_ULONG end;
};

// The Private dict of the font, or of the font dict now loaded.
struct PRIVATEDICT {
  FS_LONG subrsoff;       // from the Private dict's start; 0 none
  FS_LONG defaultwidthX;  // font units
  FS_LONG nominalwidthX;
  CFF_INDEX subrs;        // the local subroutines; count 0 when unusable
};

struct CFFTOPDICT {
  FS_SHORT registry;  // non-zero marks a CID font
  FS_LONG CIDcount;
  FS_ULONG FDarrayoffset;   // from the font's start
  FS_ULONG FDselectoffset;  // from the font's start
  FS_LONG FDselect;         // font dict now loaded; -1 none
  FS_LONG underlineposition;
  FS_LONG underlinethickness;
  FS_LONG charstringtype;
  FRACT fontmatrix[6];  // normalised: [0] is 1.0, the rest divided by it
  FS_LONG fontbbox[4];
  FS_ULONG charsetoffset;  // the next four from the table's start
  FS_ULONG encodingoffset;
  FS_ULONG charstringsoffset;
  FS_BYTE* charstringsINDEXptr;  // left null: charstrings are read on demand
  FS_ULONG privatedictoffset;
  FS_ULONG privatedictsize;
  FS_ULONG numglyphs;
  FS_USHORT* charset;  // SID (or CID) per glyph; null for a predefined one
  PRIVATEDICT privatedict;
  CFF_INDEX charstrings;
  CFF_INDEX fdarray;  // count 0 outside a CID font
};

// The parsed top level of a `CFF ` table, owned by its TTF record.
struct CFF_TAB {
  FS_ULONG max_points;  // the element limits its glyphs have grown to
  FS_ULONG max_contours;
  FS_ULONG nameINDEXoffset;
  FS_BYTE* topdictINDEXptr;  // the whole top dict INDEX
  FS_ULONG topdictINDEXoffset;
  FS_ULONG stringINDEXoffset;
  FS_BYTE* globalsubrINDEXptr;  // the whole global subroutine INDEX
  FS_ULONG globalsubrINDEXoffset;
  FS_BYTE* charstringINDEXptr;
  FS_ULONG charstringINDEXoffset;
  CFFTOPDICT* topdict;
  FS_ULONG tablelength;  // every read stays inside these bytes
  CFF_INDEX globalsubrs; // positions inside the resident copy
};

// The charstring interpreter's state, kept in the scaler's key. Operands
// are 16.16; positions 26.6 font units.
struct CFF_DATA {
  FS_SHORT numcontours;
  FS_LONG numtypes;
  FS_LONG numpoints;
  FS_LONG args[48];
  FS_LONG numargs;
  F26DOT6 prevx, prevy;  // the current point, before the font matrix
  FS_BOOLEAN hasadvwidth;
  F26DOT6 loopstartx, loopstarty;  // the open contour's first point
  FS_LONG numhstems, numvstems;
  FS_FIXED dx;  // the width the charstring gives, over nominalwidthX
  FS_LONG transient[32];
  fsg_SplineKey* key;
  FS_BOOLEAN widthseen;  // past the first stack-clearing operator
  FS_BOOLEAN incontour;
  FS_BOOLEAN ended;  // endchar met
  FS_SHORT depth;    // subroutine calls now open
  FS_SHORT level;    // seac components now open
};

// The Type 2 limit of open subroutine calls; one more is 456.
const int CFF_MAX_SUBR_DEPTH = 10;
// Deepest seac nesting; one more is 467.
const int CFF_MAX_SEAC_LEVEL = 10;

// Finds the font's `CFF ` table, stores its offset in ttf->cff_offset and
// returns its parsed record. No table: null with 405 pending. A table that
// doesn't parse: null with 458 (name INDEX not of one name), 459
// (charstring type not 2) or 461 (an INDEX with an offset size above 4, or
// one that doesn't fit the table), or the heap's or a read's error.
CFF_TAB* load_cff(FS_STATE* state, TTF* ttf);

// Frees a record made by load_cff. Accepts null.
void unload_cff(FS_STATE* state, CFF_TAB* cff);

// Fetches glyph key->glyphIndex of a CFF font into the glyph element:
// points in 26.6 pixels with the TrueType contour direction, the 8 phantom
// places behind them. Returns 0, or 456 (bad charstring), 460 (subroutine
// index out of range), 467 (seac nesting), 418/419 (more points or
// contours than the element can hold) and the heap's errors; also in
// `error`. A bad glyph fails alone.
FS_LONG cff_GridFit(FS_STATE* state, fsg_SplineKey* key, FS_BOOLEAN useHints);

// Interprets glyph `index` into the glyph element in whole font units (oox,
// ooy; x and y hold the same in 26.6 units) with its phantom places.
// Returns 0 or the error.
FS_LONG loadGlyph(FS_STATE* state, TTF* ttf, fsg_SplineKey* key, int index);

// What `fontvec info --cff` shows of a loaded CFF font: the dicts that
// glyph 0 sees are those of the top Private dict, or of font dict 0.
struct CFF_SUMMARY {
  FS_BOOLEAN cid;
  FS_ULONG font_dicts;
  FS_ULONG global_subrs;
  FS_ULONG local_subrs;
  FS_LONG default_width;
  FS_LONG nominal_width;
};

// Fills `out` for the font; loads font dict 0 of a CID font. Returns 0 or
// the error.
FS_LONG cff_summary(FS_STATE* state, TTF* ttf, CFF_SUMMARY* out);

#endif
