// Font metrics services: the whole-font record FONT_METRICS (how the renderer
// learns a font's name), line spacing at a size from `VDMX`, `OS/2` or
// `hhea`, the largest size that fits a height, `hdmx` widths, design-unit
// glyph metrics and the swapped header tables of the current font. Called by
// the renderer, the glyph request pipeline and the autohinters; calls font
// loading, the container, the cmap unit and the scaler.
#ifndef ORVEX_INTERNAL_FS_METRICS_H
#define ORVEX_INTERNAL_FS_METRICS_H

#include "Orvex_internal/fs_state.h"

struct TTF_OS2;
struct TTF_HHEA;
struct TTF_HEAD;

struct FS_BBOX {
  FS_SHORT xMin, yMin, xMax, yMax;
};

// One subtable of the font's `cmap` directory.
struct CMAP_TAB {
  FS_USHORT platform;
  FS_USHORT encoding;
  FS_ULONG offset;
};

const int FM_MAX_CMAP_TABLES = 20;

// FONT_METRICS.font_type bits.
const FS_USHORT FONT_TYPE_TTF = 1;
const FS_USHORT FONT_TYPE_STIK = 2;
const FS_USHORT FONT_TYPE_PRIVATE_ENCODING = 4;  // `ccc` or `ddd`
const FS_USHORT FONT_TYPE_COMPRESSED = 8;
const FS_USHORT FONT_TYPE_TTC = 16;
const FS_USHORT FONT_TYPE_CFF = 128;

struct FONT_METRICS {
  FS_USHORT unitsPerEm;
  FS_USHORT head_macStyle;
  FS_SHORT os2_win_ascent, os2_win_descent;  // usWinAscent, usWinDescent
  FS_SHORT os2_ascent, os2_descent;          // sTypoAscender, sTypoDescender
  FS_USHORT os2_fsSelection;
  FS_USHORT os2_leading;  // sTypoLineGap
  FS_SHORT hhea_ascent, hhea_descent;
  FS_USHORT hhea_leading;  // yLineGap
  FS_USHORT embedding_bits;  // fsType
  FS_BBOX font_bbox;         // from `head`
  FS_USHORT font_type;
  FS_USHORT num_cmap_tables;  // at most 20
  CMAP_TAB mappings[FM_MAX_CMAP_TABLES];
  FS_ULONG numFontsInTTC, indexInTTC;
  FILECHAR font_name[50];
  FILECHAR font_family_name[50];
  FILECHAR copyright[2048];
  FS_USHORT metricsResolution;  // unitsPerEm
  FS_ULONG numGlyphs;
  FS_ULONG numIcons;  // always 0
};

// Where line spacing came from.
enum FsAscDescLeadSource {
  FsAscDescLeadSource_UNKNOWN = 0,
  FsAscDescLeadSource_WIN_MAC_COMPAT = 1,
  FsAscDescLeadSource_TTF_HHEA = 2,
  FsAscDescLeadSource_MS_COMPAT = 3,
  FsAscDescLeadSource_FONTSET_MIXED = 4,
  FsAscDescLeadSource_VDMX_TABLE = 5
};

/* ---- The whole-font record ---- */

// Fills `fm` (zeroed first) from the current set's metric font, loading it
// when unloaded. Returns 0; 305 no current font; 436 a font type without
// sfnt tables; 521 null `fm`; a load error; errors of ttf_font_metrics.
FS_LONG FSS_font_metrics(FS_STATE* state, FONT_METRICS* fm);

// Fills `fm` from a loaded TrueType or CFF font `lfnt`, face `ttcIndex`. A
// missing `OS/2` leaves its fields 0; a missing `maxp`, `head` or `hhea`
// ends the call with 405. Names are cut to 49 characters, the copyright to
// 2047; when the names can't be read they stay empty without error.
FS_LONG ttf_font_metrics(FS_STATE* state, LFNT* lfnt, FONT_METRICS* fm,
                         FS_ULONG ttcIndex);

/* ---- Header tables as records ---- */

// Copies the native-order record of a header table of the current set's
// metric font into `structure`: `head` (TTF_HEAD), `hhea` (TTF_HHEA),
// `vhea` (TTF_VHEA), `maxp` (TTF_MAXP), `OS/2` (TTF_OS2). Returns 0; 305 no
// current font; 405 the font lacks the table; 521 null `structure` or a tag
// that has no record; a load error.
FS_LONG FSS_get_table_structure(FS_STATE* state, FS_ULONG tag, void* structure);
// The same from the metric font of `fntset` (this build's sets keep their
// header tables in their component fonts).
FS_LONG FNTSET_get_table_structure(FS_STATE* state, FNTSET* fntset,
                                   FS_ULONG tag, void* structure);
// The same from a loaded font, loading it when unloaded; 441 for type 6.
FS_LONG LFNT_get_table_structure(FS_STATE* state, LFNT* lfnt, FS_ULONG tag,
                                 void* structure);

/* ---- Line spacing ---- */

// Ascender, descender (positive below the baseline) and leading of a font at
// `emSize` (16.16 pixels per em), in 16.16: from `usWinAscent` and
// `usWinDescent` when `os2` is given and either is non-zero (source 1, the
// leading being what `hhea` spacing exceeds them by, at least 0), else from
// `hhea` (source 2). `os2` may be null.
void TTF_calc_ascender_descender_leading(const TTF_OS2* os2,
                                         const TTF_HHEA* hhea,
                                         const TTF_HEAD* head, FS_FIXED emSize,
                                         FS_FIXED* ascender,
                                         FS_FIXED* descender,
                                         FS_FIXED* leading,
                                         FS_USHORT* source);

// Line spacing of a loaded font at `emSize` (16.16): the `VDMX` pair for the
// rounded size when there is one (source 5), else TTF_calc_... A stroke font
// adds half its stroke to ascender and descender. Returns 0, 436 for a type
// other than 0, 1, 7, or a load error.
FS_LONG LFNT_get_ascender_descender_leading(FS_STATE* state, LFNT* lfnt,
                                            FS_FIXED emSize,
                                            FS_FIXED* ascender,
                                            FS_FIXED* descender,
                                            FS_FIXED* leading,
                                            FS_USHORT* source);

// Line spacing of the current set at the client's size: over all
// components the largest ascender, descender and leading (16.16), with the
// component's `vertical_shift` added to the ascender and taken from the
// descender. Returns 0 (all zero for an all-zero scale); 305 no font; 315
// no component array; 302 a component without its scaled font; 317 no
// scaled environment; a component's error.
FS_LONG FSS_get_ascender_descender_leading(FS_STATE* state,
                                           FS_FIXED* ascender,
                                           FS_FIXED* descender,
                                           FS_FIXED* leading,
                                           FS_USHORT* source);

// The `VDMX` pair (yMax, yMin in pixels) of a loaded font for `xppm` by
// `yppm`. Returns 0; 441 type 6; 405 no `VDMX`; 517 no ratio matches, or a
// ratio with some but not all of its three values 0; 518 no record for
// `yppm`; a load error. Reads stay inside the table.
FS_LONG LFNT_get_vdmx_pair(FS_STATE* state, LFNT* lfnt, FS_USHORT xppm,
                           FS_USHORT yppm, FS_SHORT* yMax, FS_SHORT* yMin);

// The `VDMX` pair of the current scaled font at its size, `vertical_shift`
// added to both. Errors as check_sfnt and LFNT_get_vdmx_pair.
FS_LONG FSS_get_vdmx_pair(FS_STATE* state, FS_SHORT* yMax, FS_SHORT* yMin);

/* ---- Widths and sizes ---- */

// The `hdmx` width in whole pixels of glyph `index` at the scaled font's
// `xppm`. *width is 0 first. The record found is remembered in the
// environment's `hdmx_group_offset`; a size with no record marks it
// 0xFFFFFFFF and gives 522, now and on every later call without a read.
// Errors: 302 null `sfnt`, 303 no font, 441 type 6, 317 no environment,
// 405 no `hdmx`, 406 index not below the glyph count (checked on the
// search only), 522.
FS_LONG SFNT_get_hdmx_width(FS_STATE* state, SFNT* sfnt, FS_ULONG index,
                            FS_BYTE* width);

// Design-unit metrics of glyph `index` (the set's numbering) of the current
// scaled font: left side bearing, advance width, top side bearing, advance
// height. An index beyond the component's glyphs leaves all four 0 without
// error. Returns 0; 302 no current scaled font; check_sfnt's errors.
FS_LONG FSS_get_glyph_metrics(FS_STATE* state, FS_ULONG index, FS_SHORT* lsb,
                              FS_USHORT* aw, FS_SHORT* tsb, FS_USHORT* ah);

// A component's ascent and descent in whole pixels at `ppem` (odd sizes one
// down for fonts of `fontflags` 64). A component of a plain font has no size
// adjustments. On failure both are 0 and the result is 405.
FS_LONG CFNT_get_font_height(FS_STATE* state, FNTSET* fntset, CFNT* cfnt,
                             FS_USHORT ppem, FS_LONG* ascent,
                             FS_LONG* descent);

// The largest size from `max_ppem` down at which the set's largest ascent
// plus largest descent fit `pixel_height`; 1 when none above 1 does. No
// font: 305 and `max_ppem`; no component array: 315 and 0; any other error
// gives 0.
FS_USHORT FSS_get_ppem_size(FS_STATE* state, FS_USHORT pixel_height,
                            FS_USHORT max_ppem);

/* ---- Reference lines ---- */

// Measures the reference lines of the current scaled font once (while
// `ref_lines[52]` is 0, which it then becomes 1), through the Unicode cmap,
// for the scripts the font's `OS/2` ranges name. The alphabet's test letter
// ("l", U+0418 or U+0399) goes through the autohinter first, which sets
// the side-bearing steps, slots 6 and 7 (7 is at least 64); then, from
// plain outlines in 26.6 pixels: slot 0 the lowest top of the flat
// capitals, 1 the round capital's top, 2 the lowest top of "wxyz", 3 the
// round small letter's top, 4 the flat capitals' highest bottom, 5 the
// round capital's bottom. Lacking those, the digits stand in (0 the top of
// "7", 4 the bottom of "1", 1 and 5 the top and bottom of "0"). CJK takes
// slots 8 to 11 from the autohinter's hinted extremes; the other scripts
// their letters' plain tops and bottoms. A font without `OS/2`, a non-text
// font, one the autohinter takes no hold of, one whose alphabet fails the
// order 1 >= 0 >= 3 >= 2 >= 4 >= 5, and one measured only by its digits
// lose `rtgah_suitable`. The client's cmap and flags and the font's
// `fontflags` are as before on every way out. Letters the font lacks leave
// 0.
void get_ref_lines(FS_STATE* state);

#endif
