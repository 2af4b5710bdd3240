// Font objects and font loading: the server's loaded fonts (LFNT) and font
// sets (FNTSET) with their components (CFNT), the client's names for them
// (ADDEDFNT), and the client calls that add, name, set and delete fonts.
// Called by the renderer and the table, cmap and metrics units; calls the
// TrueType loader, the heap, the typeset and the linked-font reader.
#ifndef ORVEX_INTERNAL_FS_FONT_H
#define ORVEX_INTERNAL_FS_FONT_H

#include "Orvex_internal/fs_state.h"

struct FsLtt;

// fontfile_type results.
const FS_BYTE FNT_TYPE_TTF = 0;       // TrueType / OpenType with `glyf`
const FS_BYTE FNT_TYPE_TTC = 1;       // a member of a collection
const FS_BYTE FNT_TYPE_LINKED = 2;    // linked font ("LTT")
const FS_BYTE FNT_TYPE_NO_SCALER = 6; // "P": no scaler in this build
const FS_BYTE FNT_TYPE_CFF = 7;       // CFF OpenType ("OTT")
const FS_BYTE FNT_TYPE_UNREADABLE = 127;

// LFNT.fontflags bits set by load_fnt.
const FS_ULONG FONTFLAG_STROKE = 2;
const FS_ULONG FONTFLAG_COMPRESSED = 4;
const FS_ULONG FONTFLAG_CCC = 8;
const FS_ULONG FONTFLAG_DDD = 16;
const FS_ULONG FONTFLAG_CFF = 32;
const FS_ULONG FONTFLAG_STIK_64 = 64;
const FS_ULONG FONTFLAG_STIK_128 = 128;
const FS_ULONG FONTFLAG_ADFH = 256;
const FS_ULONG FONTFLAG_SLANTED_CARET = 512;

// A row of a built-in font table; a table ends at a null `name`.
struct MY_FONT {
  const FILECHAR* name;
  const FILECHAR* path;
  FS_BYTE* memptr;
  FS_ULONG index;
};

// The deployment's built-in fonts: this build ships the table empty.
extern MY_FONT my_font_list[];
extern int my_font_count;

/* ---- Client calls ---- */

// Adds the font in the file `path`, or in the memory image `memptr` (which
// the caller keeps alive while the font is added; then `path`, if given,
// only names the folder of a linked font's components), face `index` of a
// collection, and writes the name chosen for it into `name` (`name_len`
// bytes with the terminator). A font this client added before keeps its name
// and counts one more add. Returns 0 or the error: 301 neither path nor
// memory; 102 file not opened; 106 unreadable (a directory, a file under 3
// bytes); 403 not an sfnt; 404 face beyond the collection; 405 a required
// table missing; 448 tables beyond the data (a truncated font); 436 a type
// with no scaler; for a linked font its reader's codes (443, 445, 446, 505)
// and 521 for a component its embedding can't place; 310 name buffer too
// small; 201 heap. On failure nothing is added.
FS_LONG FSS_load_font(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr,
                      FS_ULONG index, FS_ULONG name_len, FILECHAR* name);

// FSS_load_font for a font lying at `data_offset` in the file or image,
// `data_length` bytes long (0, 0: all of it).
FS_LONG FSS_load_font_with_offset(FS_STATE* state, const FILECHAR* path,
                                  FS_BYTE* memptr, FS_ULONG index,
                                  FS_ULONG data_offset, FS_ULONG data_length,
                                  FS_ULONG name_len, FILECHAR* name);

// Adds a font under the caller's `name` (null: a unique name built from the
// font's own). Adding a font again under its name, or under null, counts one
// more add. Errors as FSS_load_font, and 311 when this client added the font
// under another name, 314 when `name` names another font here, 521 for an
// empty name.
FS_LONG FSS_add_font(FS_STATE* state, const FILECHAR* name,
                     const FILECHAR* path, FS_BYTE* memptr, FS_ULONG index);
FS_LONG FSS_add_font_with_offset(FS_STATE* state, const FILECHAR* name,
                                 const FILECHAR* path, FS_BYTE* memptr,
                                 FS_ULONG index, FS_ULONG data_offset,
                                 FS_ULONG data_length);

// Makes the font of that name current: a name of this client or of one of
// its parents, else a component of the current or of a named linked font.
// Setting the current font again changes nothing; otherwise the scale must
// be set again before glyphs are asked for. Returns 0, 301 for an unknown
// name, 201 heap.
FS_LONG FSS_set_font(FS_STATE* state, const FILECHAR* name);

// Takes back one add of this client's font `name`; the last one removes the
// name, and the font set goes when no client has it added or current.
// Returns 0; 301 not a name of this client; 313 not removable; 610 a held
// glyph or lent table still depends on a font only this set uses.
FS_LONG FSS_delete_font(FS_STATE* state, const FILECHAR* name);

// The name FSS_load_font would give the font, without adding it. Errors as
// FSS_load_font. The font set it finds or makes stays on the server for a
// later load (the reclaim ladder removes it when unused).
FS_LONG FSS_font_name(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr,
                      FS_ULONG index, FS_ULONG name_len, FILECHAR* name);
FS_LONG FSS_font_name_with_offset(FS_STATE* state, const FILECHAR* path,
                                  FS_BYTE* memptr, FS_ULONG index,
                                  FS_ULONG data_offset, FS_ULONG data_length,
                                  FS_ULONG name_len, FILECHAR* name);

// Name of the component of the current set that renders character `id`
// into `name`: a set of one font its only component, a linked font the one
// the character mapping chooses (the first for an unmapped code). Returns
// 0; the mapping's error; 305
// no current font; 304 no name; 310 name longer than `name_len` - 1.
FS_LONG FSS_get_name(FS_STATE* state, FS_ULONG id, FS_ULONG name_len,
                     FILECHAR* name);

// The file of font `name` (resolved as in FSS_set_font): its metric font's
// path into `path_buffer` (empty for a font in memory) and its memory image
// into *memptr_p, with the face index when `index_p` isn't null. Returns 0;
// 301 unknown name; 304 no metric font; 310 path longer than `path_len` - 1.
FS_LONG FSS_get_font_path(FS_STATE* state, const FILECHAR* name,
                          FS_BYTE** memptr_p, FILECHAR* path_buffer,
                          FS_ULONG path_len, FS_ULONG* index_p);

// Names of the fonts of this client and its parents that match `style`
// (0 plain, 1 italic, 2 bold, 3 bold italic, 4 any) and `face` (0
// proportional, 1 monospaced, 2 any), comma-separated in a heap block put in
// *list (the caller frees it with FSS_free), its length in *length. Returns
// 0, 201 heap, 521 a null out pointer.
FS_LONG FSS_get_available_fonts(FS_STATE* state, FS_BYTE style, FS_BYTE face,
                                FILECHAR** list, FS_ULONG* length);

// Reads a linked font's head and component blocks into `info` (initialised
// here; the caller ends it with FsLtt_done). A file of another type gives
// 442; a linked font the reader refuses, the reader's code.
FS_LONG FSS_get_link_info(FS_STATE* state, const FILECHAR* path,
                          FS_BYTE* memptr, FsLtt* info);

// Adds each font of a built-in table through FSS_add_font; a row without
// memory is looked up under "../Orvex/product/fontdata/". Returns 0 or the
// first error.
FS_LONG FSUtil_loadFonts(FS_STATE* state, const MY_FONT* fonts);

/* ---- Server level ---- */

// The set for this font: an existing one (same file and range; same face for
// a collection member), else a new one. Null with the error on failure.
FNTSET* FS_SERVER_get_FNTSET(FS_STATE* state, const FILECHAR* path,
                             FS_BYTE* memptr, FS_ULONG index,
                             FS_ULONG data_offset, FS_ULONG data_length,
                             const FILECHAR* lttPath);
FNTSET* FS_SERVER_find_FNTSET(FS_STATE* state, const FILECHAR* path,
                              FS_BYTE* memptr, FS_ULONG index,
                              FS_ULONG data_offset, FS_ULONG data_length);

// Makes a set and pushes it on `font_sets` with both counts 0. A plain font
// is loaded now, so a bad file fails here. Null with the error (301 neither
// path nor memory); whatever was built is unwound.
FNTSET* FS_SERVER_create_FNTSET(FS_STATE* state, const FILECHAR* path,
                                FS_BYTE* memptr, FS_ULONG index,
                                FS_ULONG data_offset, FS_ULONG data_length,
                                const FILECHAR* lttPath);

LFNT* FS_SERVER_find_LFNT(FS_STATE* state, const FILECHAR* path,
                          FS_BYTE* memptr, FS_ULONG index,
                          FS_ULONG data_offset, FS_ULONG data_length);
// Found, or created (not loaded) with type `fnt_type`.
LFNT* FS_SERVER_get_LFNT(FS_STATE* state, FS_BYTE fnt_type,
                         const FILECHAR* path, FS_BYTE* memptr, FS_ULONG index,
                         FS_ULONG data_offset, FS_ULONG data_length);
// A new, unloaded record on `loaded_fonts`. Null with 201.
LFNT* FS_SERVER_create_LFNT(FS_STATE* state, FS_BYTE fnt_type,
                            const FILECHAR* path, FS_BYTE* memptr,
                            FS_ULONG index, FS_ULONG data_offset,
                            FS_ULONG data_length);
// Loads a new font and takes its name from the file; on failure the LFNT is
// deleted. Returns 0 or the error.
FS_LONG FS_SERVER_load_LFNT(FS_STATE* state, LFNT* lfnt);

// Fills `cfnt` as the one component of a plain font: all of Unicode, on the
// found or created LFNT, whose `fntset_refs` grows. `cfnt->name` stays null
// when the LFNT is new. Returns 0 or the error.
FS_LONG FS_SERVER_create_CFNT(FS_STATE* state, CFNT* cfnt, FS_BYTE fnt_type,
                              const FILECHAR* path, FS_BYTE* memptr,
                              FS_ULONG index, FS_ULONG data_offset,
                              FS_ULONG data_length);
// Points a linked font's component at its LFNT (found or created).
FS_LONG FS_SERVER_init_CFNT(FS_STATE* state, CFNT* cfnt, FS_BYTE fnt_type,
                            const FILECHAR* path, FS_BYTE* memptr,
                            FS_ULONG index, FS_ULONG data_offset,
                            FS_ULONG data_length);
// Drops a component's hold on its LFNT, deleting the LFNT at the last one.
void CFNT_delete(FS_STATE* state, CFNT* cfnt);

/* ---- Identity ---- */

// 32-bit sum of the first 200 16-bit words of the image in host order
// (fewer when `length`, counted from the image's start, is shorter and not
// 0); 0 for null.
FS_ULONG FNTSET_checksum(const FS_BYTE* memptr, FS_ULONG length);
FS_BOOLEAN FNTSET_same_file(const FNTSET* set, const FILECHAR* path,
                            const FS_BYTE* memptr, FS_ULONG data_offset,
                            FS_ULONG data_length, FS_ULONG checksum);
FS_BOOLEAN FNTSET_same_font(const FNTSET* set, const FILECHAR* path,
                            const FS_BYTE* memptr, FS_ULONG index,
                            FS_ULONG data_offset, FS_ULONG data_length,
                            FS_ULONG checksum);
FS_BOOLEAN LFNT_same_file(const LFNT* lfnt, const FILECHAR* path,
                          const FS_BYTE* memptr, FS_ULONG data_offset,
                          FS_ULONG data_length, FS_ULONG checksum);
FS_BOOLEAN LFNT_same_font(const LFNT* lfnt, const FILECHAR* path,
                          const FS_BYTE* memptr, FS_ULONG index,
                          FS_ULONG data_offset, FS_ULONG data_length,
                          FS_ULONG checksum);

/* ---- Client names ---- */

// Writes into `name` a name for the seed not yet used on this client: the
// seed itself, else base-52 digits (A-Z a-z, least significant first), a
// blank and the seed, cut to fit. 310 for a null name or `name_len` below 2.
FS_LONG FS_STATE_unique_fntset_name(FS_STATE* state, const FILECHAR* seed,
                                    FILECHAR* name, FS_ULONG name_len);
// Adds a name for `set` to this client with one add. Returns 0 or 201.
FS_LONG FS_STATE_add_named_FNTSET(FS_STATE* state, const FILECHAR* name,
                                  FNTSET* set);

// Style and face of a set's metric font (see FSS_get_available_fonts).
FS_BYTE FNTSET_getStyle(FS_STATE* state, FNTSET* set);
FS_BYTE FNTSET_getFace(FS_STATE* state, FNTSET* set);

/* ---- Loading ---- */

// The type of the font at `data_offset` from its first 3 bytes (see the
// constants above), 127 with the error when they can't be read.
FS_BYTE fontfile_type(FS_STATE* state, const FILECHAR* path,
                      const FS_BYTE* memptr, FS_ULONG data_offset);

// Loads the font's data into `fnt` and classifies it in `fontflags`.
// Returns 0 or the error: the loader's, 436 for type 6, 304 for a type with
// no sfnt data (and for a font the loader refuses without a cause), 519 for
// a `ddd` font without ADFH.
FS_LONG load_fnt(FS_STATE* state, LFNT* lfnt);

// Makes the code-to-glyph cache of a loaded font that has none; without one
// when the heap refuses (the error is not kept).
void load_cmap_cache(FS_STATE* state, LFNT* lfnt);

// True when a component's LFNT that no other set shares has a scaled font
// with glyphs held by callers.
FS_BOOLEAN any_sfnts_dependent_on_unshared_lfnts(FS_STATE* state,
                                                 FNTSET* set);

#endif
