// The graymap scan converter: renders an FS_OUTLINE to an anti-aliased
// FS_GRAYMAP by exact area coverage, in horizontal bands so that its work
// record stays one fixed size, then cuts the map to 8, 4 or 2 bits. Its
// area raster is one per server, kept between glyphs. Called by the glyph
// request pipeline and the renderer; calls outline extraction and the cache.
#ifndef ORVEX_INTERNAL_FS_GRAYMAP_H
#define ORVEX_INTERNAL_FS_GRAYMAP_H

#include "Orvex_internal/fs_glyphmap.h"

// One cell's contribution: the signed area right of a line piece inside
// the cell, and its signed height, which carries to all cells to its right.
struct THANG {
  FS_SHORT x, y;  // pixel column and row
  FS_FIXED a;     // 16.16 of a pixel
  FS_FIXED f;
  THANG* next;
};

const int RASTER_THANGS = 512;
const int RASTER_ROWS = 256;
const int RASTER_STACK = 48;

struct RASTER {
  THANG thangs[RASTER_THANGS];
  THANG* rows[RASTER_ROWS];  // row 0 is unused
  FS_LONG next_thang;
  FS_FIXED* areas;  // one row's areas, `nexts` directly behind in one block
  FS_FIXED* nexts;
  FS_LONG areasize;
  FS_LONG num_bands;
  FS_FIXED band_ymin, band_ymax;
  FS_LONG top;  // band_ymax in whole pixels
  FS_LONG dir;  // +1 while the current segment rises
  FS_LONG ref_count;  // above 0 while busy: the ladder spares it
  FS_GRAYMAP* gmap;
  FS_FIXED stack_base[RASTER_STACK];
  FS_FIXED* stack;
};

// An 8-bit map covering the outline's box, floors and ceilings, zeroed:
// `hi_y` the top row's pixel (ceiling - 1), `bpl` the width. Null with 201.
FS_GRAYMAP* new_graymap_8(FS_STATE* state, FS_OUTLINE* outl);

// The length of the outline's control polygon, |dx| + |dy| summed, in whole
// pixels.
FS_LONG arc_length(FS_OUTLINE* outl);

// Cuts the segment into pieces inside single cells and records each.
// Returns 0 when the store of 512 cell records is full, 1 otherwise.
int do_line(RASTER* r, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1, FS_FIXED y1);

// Records one piece inside one cell, (x1, y1) above (x0, y0). 0 when the
// store is full; 1 also for a piece outside the band's rows (ignored).
int add_thang(RASTER* r, FS_FIXED x0, FS_FIXED y0, FS_FIXED x1, FS_FIXED y1);

// Sums the band's rows into gray levels of r->gmap.
void do_band(RASTER* r);

// The 8-bit graymap of `outl` for the type word `gmaptype` (2, 4 or 8 bit
// depths, trimmed). An empty outline gives a 40-byte record with only the
// advance. Null with 201, or 524 when a curve overflows the subdivision
// stack or the glyph can't fit the cell store at any flatness.
FS_GRAYMAP* make_graymap(FS_STATE* state, FS_OUTLINE* outl, FS_USHORT gmaptype);

// Cuts an 8-bit map to the depth of `type` (4 bits for 0x404, 2 bits for
// 0x202, else 8), dropping the rows and columns with nothing above the
// depth's blank level, and returns the new exact record; the old one is
// freed. Null with 201 (the old map is freed too). A map that is not of 8
// bits comes back as it is.
FS_GRAYMAP* trim_convert(FS_STATE* state, FS_GRAYMAP* gmap, FS_USHORT type);

// The client's image effects on a finished 8- or 2-bit map, as the gray
// path applies them; null with the heap's error (the map is freed then).
FS_GRAYMAP* apply_graymap_effects(FS_STATE* state, FS_GRAYMAP* g);
// The same without pixel boldness (emboss or engrave, outline, soften), for
// maps emboldened on their own terms.
FS_GRAYMAP* apply_image_effects(FS_STATE* state, FS_GRAYMAP* g);

// A copy of a graymap in a fresh heap block, not cached. Null with 201.
FS_GRAYMAP* copy_graymap(FS_STATE* state, FS_GRAYMAP* gmap);

// The graymap of glyph `index` (character `id`) of the current scaled font
// at quarter-pixel phases 0 to 3, through the glyph cache: a repeated
// request gives the same record. The caller gives it back by
// FSS_free_char. Null with the error.
FS_GRAYMAP* get_graymap(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                        FS_USHORT type, FS_SHORT phasex, FS_SHORT phasey);

// What a graymap getter does its own way: its cache kind; the font's own
// glyph for the type (null: strikes don't serve this getter), which keeps
// what it makes as it sees fit; how an outline is drawn; whether the map is
// placed by the font's vertical shift.
struct GraymapSteps {
  FS_USHORT kind;
  FS_GRAYMAP* (*strike)(FS_STATE* state, FS_USHORT index, FS_USHORT type,
                        FS_USHORT kind, FS_SHORT phase);
  FS_GRAYMAP* (*draw)(FS_STATE* state, FS_OUTLINE* outl, FS_ULONG id,
                      FS_USHORT type);
  bool place;
};

// The steps the graymap getters share: the icon cache (type bit 0x20) and
// the cache first; then, for a font of the TrueType family, the strike
// step; then, unless strikes serve and the font has nothing else, the
// glyph's outline moved by the phases, drawn, placed and kept. Error 0
// with a map; null with the failing step's error (0 for a font of strikes
// with none that serves, and as the step left it).
FS_GRAYMAP* get_cached_graymap(FS_STATE* state, FS_ULONG id, FS_USHORT index,
                               FS_USHORT type, FS_SHORT phasex, FS_SHORT phasey,
                               const GraymapSteps& steps);

// Prints a graymap as rows of hexadecimal levels (debugging).
void dump_graymap(FS_GRAYMAP* gmap);

#endif
