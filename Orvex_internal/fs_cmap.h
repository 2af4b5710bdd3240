// Character mapping: character codes to glyph indices through the font's
// `cmap` table, which stays in file byte order and is read on the fly. The
// subtable readers (one per format, the engine's own format 5 among them)
// work on the raw bytes and never read outside them; the state-level calls
// walk the components of the current font set. Called by the glyph request
// pipeline, the metrics, kerning and the script interpreter; calls the
// container loader.
#ifndef ORVEX_INTERNAL_FS_CMAP_H
#define ORVEX_INTERNAL_FS_CMAP_H

#include "Orvex_internal/fs_state.h"

struct TTF;

/* ---- Subtable readers ----
   Each takes `sub`, the first byte of the subtable, and `avail`, the bytes
   from there to the end of the `cmap` table. A subtable whose arrays do not
   fit in `avail` reads as empty: every code gives 0. Results wrap at 16
   bits. */

// Format 0: a byte per code; codes above 255 give 0.
FS_USHORT map_char_0(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id);

// Format 2, read the engine's way: the subheader is taken at byte 518 plus
// two bytes per unit of the code's high byte (`subHeaderKeys` is not
// consulted), then the low byte less `firstCode` must lie below
// `entryCount`; a non-zero glyph word gets `idDelta` added.
FS_USHORT map_char_2(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id);

// Format 4: the segment found by a search on `endCode` guided by the stored
// `entrySelector`. `idRangeOffset` 0 or 1 means `id + idDelta`; otherwise
// the glyph word at `idRangeOffset / 2 + (id - start)` words from the
// offset's own place, with `idDelta` added when non-zero. 0xFFFF in the
// closing 0xFFFF..0xFFFF segment gives 0.
FS_USHORT map_char_4(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id);

// Format 5, the engine's own compact segments: the header words of format 4,
// `endCode` words from byte 14, then one signed byte per segment, then one
// word per segment. A byte v of 1 or more makes the segment `end - v + 1` to
// `end`, mapped by `id + word`; a byte below 1 makes it `end + v + 1` to
// `end`, and the word is a byte offset from its own place to the segment's
// glyph words.
FS_USHORT map_char_5(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id);

// Format 6: a trimmed array from `firstCode`; outside it 0.
FS_USHORT map_char_6(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id);

// Formats 8 and 12: 12-byte groups of `startCharCode`, `endCharCode`,
// `startGlyphID`; format 8's behind its 8192-byte `is32` array.
FS_USHORT map_char_8(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id);
FS_USHORT map_char_12(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id);

// Format 14: the glyph of `id` followed by `varSelector` from the selector's
// non-default table; 0 when the pair has no glyph of its own there (the
// default table is not read: the caller falls back to the plain mapping).
FS_USHORT map_char_14(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG id,
                      FS_ULONG varSelector);

// The glyph of `id` in the subtable at `offset` of the `cmap` table `cmap`,
// `length` bytes. *bad_code (when given) is set to 1, with result 0, for an
// `id` of 0x10000 or above in a format below 8, else to 0. An unknown
// format, or a subtable beyond the table, gives 0.
FS_USHORT cmap_map_subtable(const FS_BYTE* cmap, FS_ULONG length,
                            FS_ULONG offset, FS_ULONG id, FS_ULONG varSelector,
                            FS_BOOLEAN* bad_code);

// The format of the subtable at `offset`, or 0xFFFF when it lies beyond the
// table.
FS_USHORT cmap_subtable_format(const FS_BYTE* cmap, FS_ULONG length,
                               FS_ULONG offset);

// Inverse mapping of a format 4 subtable: the first code, segment by
// segment, that map_char_4 maps to `gi`. A segment mapped by `idDelta`
// answers `gi - idDelta` when that lies in it; one with glyph words is
// scanned. The closing segment (start 0xFFFF) ends the search. 0 for a `gi`
// of 0 or a null table, 0xFFFF when no code maps there.
FS_ULONG inverse_map_char_4(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG gi);

// Inverse mapping of a format 12 subtable: `gi + startCharCode -
// startGlyphID` of the group whose glyph range holds `gi`. Groups are sought
// by a search on `startGlyphID` and a forward scan, then, when groups are
// not in glyph order, from the first. 0xFFFF when none holds it.
FS_ULONG inverse_map_char_12(const FS_BYTE* sub, FS_ULONG avail, FS_ULONG gi);

/* ---- The subtable directory ---- */

// Offset inside `cmap` of the subtable for exactly (platform, encoding), by
// a linear search of the directory: 0 when there is none, or when its
// offset is 0 or leaves no room for a format word inside the table.
FS_ULONG offset_to_cmap(const FS_BYTE* cmap, FS_ULONG length,
                        FS_USHORT platform, FS_USHORT encoding);

// The stand-in for a missing Unicode subtable. Only when (platform,
// encoding) is one of the seven Unicode pairs (3,10), (0,6), (0,4), (3,1),
// (0,3), (0,1), (0,0): the offset of the first of them, in that order, that
// the table holds, with its pair in *used_platform, *used_encoding (when
// given). 0 otherwise.
FS_ULONG GetEncodingSubstitution(const FS_BYTE* cmap, FS_ULONG length,
                                 FS_USHORT platform, FS_USHORT encoding,
                                 FS_USHORT* used_platform,
                                 FS_USHORT* used_encoding);

// Calls visit(ctx, first, last) for each range of codes the subtable at
// `offset` may map, in the subtable's order (ascending for sorted tables):
// format 0 all bytes, 2 each subheader's codes as the lookup reads them, 4
// and 5 each segment, 6 its array, 8 and 12 each group. Codes inside a
// range may still map to 0. Other formats visit nothing.
void cmap_code_ranges(const FS_BYTE* cmap, FS_ULONG length, FS_ULONG offset,
                      void (*visit)(void* ctx, FS_ULONG first, FS_ULONG last),
                      void* ctx);

/* ---- On a loaded font ---- */

// The glyph of `id` in the subtable at `cmap_offset` of a loaded font's
// `cmap`. Sets `error` to 406 (result 0) for an `id` of 0x10000 or above in
// a format below 8, else clears it.
FS_USHORT ttf_map_char(FS_STATE* state, TTF* ttf, FS_ULONG cmap_offset,
                       FS_ULONG id, FS_ULONG varSelector);

// Offset of the subtable for (platform, encoding) in the loaded font `lfnt`,
// loading it when unloaded. Both 0xFFFF: 0 with no error (no cmap: codes
// are glyph indices). No such subtable: 0 with 402; a load failure: 0 with
// its error.
FS_ULONG LFNT_get_cmap_offset(FS_STATE* state, LFNT* lfnt, FS_USHORT platform,
                              FS_USHORT encoding);

// The glyph of `id` in the subtable at `cmap_offset` of `lfnt` (0: the
// offset is looked up again for the client's cmap), loading the font when
// unloaded. 406 for an `id` of 0x10000 or above in a format below 8; an
// unknown format gives 0 with no error.
FS_USHORT LFNT_map_char(FS_STATE* state, LFNT* lfnt, FS_ULONG cmap_offset,
                        FS_ULONG id, FS_ULONG varSelector);

// Resolves the subtable of component `tfnt` for (platform, encoding) into
// `tfnt->cmap_offset`, and makes the pair the client's cmap. A missing
// Unicode subtable is replaced by GetEncodingSubstitution unless the pair
// shares its platform or its encoding with the variation cmap. In a set of
// several components a failure is forgiven (another may serve). Returns 0,
// 305 with no font set, 402 no such subtable, or a load error.
FS_LONG map_font(FS_STATE* state, TFNT* tfnt, FS_USHORT platform,
                 FS_USHORT encoding);

// The glyph index of character `id` (with `varSelector` when the client's
// cmap is a variation subtable) within the first component of the current
// set that has it, and that component becomes the current one (`cur_font`,
// `cur_lfnt`, `cur_sfnt`). With no cmap chosen, or the glyph-index flag
// 0x4000 set, `id` is a glyph index in the set's numbering. A character no
// component has gives 0 with no error, and component 0 becomes current.
// Errors: 305 no font set; 406 a glyph index out of range; 402 or a load
// error from resolving the subtable of a single-component set.
FS_USHORT map_char(FS_STATE* state, FS_ULONG id, FS_ULONG varSelector);

/* ---- Client calls ---- */

// Chooses the client's cmap. The pair already chosen: 0 and nothing done.
// Otherwise every component's subtable is resolved afresh (the first now,
// the others when first used) and the pair is kept even when it failed, so
// that repeating it returns 0. Returns 0 or map_font's error.
FS_LONG FSS_set_cmap(FS_STATE* state, FS_USHORT platform, FS_USHORT encoding);

// The client's cmap; 0xFFFF, 0xFFFF when none is chosen. Returns 0, 521 for
// a null out pointer.
FS_LONG FSS_get_cmap(FS_STATE* state, FS_USHORT* platform,
                     FS_USHORT* encoding);

// Sets or reads the cmap consulted for variation selectors (0, 5 at start).
FS_LONG FS_set_cmap_variant(FS_STATE* state, FS_USHORT platform,
                            FS_USHORT encoding);
FS_LONG FS_get_cmap_variant(FS_STATE* state, FS_USHORT* platform,
                            FS_USHORT* encoding);

// The glyph index of `id` in the set's numbering (component start added),
// through the client's cmap whatever the glyph-index flag says. 0 for a
// character no component has; errors as map_char.
FS_USHORT FSS_map_char(FS_STATE* state, FS_ULONG id);

// The glyph of `id` followed by variation selector `varSelector`, from the
// variation cmap's own glyphs, in the set's numbering. 0 when the pair has
// no glyph of its own (the caller then maps `id` alone) or when the font
// has no variation subtable (no error); other failures give 0 with their
// error. A `varSelector` of 0 is FSS_map_char. The client's cmap is the same
// afterwards.
FS_USHORT FSS_map_char_variant(FS_STATE* state, FS_ULONG id,
                               FS_ULONG varSelector);

// The character code of glyph `gi` (set numbering) through the client's
// Unicode cmap: inverse_map_char over all components.
FS_ULONG FSS_inverse_map_char(FS_STATE* state, FS_ULONG gi);

/* ---- Inverse mapping on the current set ---- */

// The code whose glyph is `gi`, for a client cmap of (3,1) or (3,10) only,
// else 0xFFFF. With `current_tfnt` null each component is asked in turn
// until one answers; any error gives 0xFFFF (the code stays in `error`).
FS_ULONG inverse_map_char(FS_STATE* state, FS_ULONG gi, TFNT* current_tfnt);

// The code of glyph `gi` in component `tfnt`: `gi` must lie above the
// component's `start_index` (else 406), and `gi - start_index` is sought in
// its format 4 or 12 subtable; other formats give 0xFFFF. 520 when the
// component has no subtable for the client's cmap.
FS_ULONG inverse_map_char_tfnt(FS_STATE* state, FS_ULONG gi, TFNT* tfnt);

// True when the plane's coverage mask admits `id`: both words at 0xFFFFFFFE
// or above admit everything; otherwise bit (code within plane >> 10) of
// `range1` (blocks 0 to 31) or `range2` (32 to 63).
FS_BOOLEAN CFNT_charInRange(UniRange upc, FS_ULONG id);

#endif
