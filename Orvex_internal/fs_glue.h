// The TrueType glyph reader and grid fit: reads a glyph's `glyf` data and
// metrics through bounds-checked readers, adds the 8 phantom places, scales
// to 26.6, joins composites, and leaves the result in the key's glyph
// element for outline extraction. The font's programs run here through the
// instruction interpreter: each simple glyph's after scaling, a composite's
// over its joined points.
// Called by the scaler and the glyph request pipeline.
#ifndef ORVEX_INTERNAL_FS_GLUE_H
#define ORVEX_INTERNAL_FS_GLUE_H

#include "Orvex_internal/fs_scale.h"

struct TTF;

// 418 reports both a GPOS point out of range and a glyph with more points
// than `maxp` allows.
const FS_ULONG ERR_TOO_MANY_POINTS = 418;

// Deepest composite nesting: a component at a deeper level is 407.
const int FSG_MAX_COMPONENT_LEVEL = 10;

// Composite flags of the `glyf` table.
const FS_USHORT ARG_1_AND_2_ARE_WORDS = 0x0001;
const FS_USHORT ARGS_ARE_XY_VALUES = 0x0002;
const FS_USHORT ROUND_XY_TO_GRID = 0x0004;
const FS_USHORT WE_HAVE_A_SCALE = 0x0008;
const FS_USHORT MORE_COMPONENTS = 0x0020;
const FS_USHORT WE_HAVE_AN_X_AND_Y_SCALE = 0x0040;
const FS_USHORT WE_HAVE_A_TWO_BY_TWO = 0x0080;
const FS_USHORT WE_HAVE_INSTRUCTIONS = 0x0100;
const FS_USHORT USE_MY_METRICS = 0x0200;

// One component of a composite as the file gives it.
struct fsg_Component {
  FS_USHORT flags;
  FS_USHORT index;
  FS_LONG arg1, arg2;  // offsets (signed) or point numbers (unsigned)
  FS_FIXED xx, xy, yx, yy;  // 16.16; x' = xx x + xy y, y' = yx x + yy y
};

// Where glyph `index` lies: its offset from the font's start and length.
// Length 0 means no outline: also for `loca` entries out of order or past
// `glyf`, and for an index with no `loca` entry. 406 for an index not below
// numGlyphs. The compact `ccc`/`ddd` formats keep `loca` as a bit array of
// `numBits_LOCA`-wide offsets.
FS_LONG get_glyph_parms(FS_STATE* state, fsg_SplineKey* key, FS_ULONG index,
                        FS_ULONG* offset, FS_ULONG* length);

// A glyph's horizontal and vertical metrics in font units (lsb, aw, tsb,
// ah; the others 0). Reads beyond `hmtx` or `vmtx` give 0. The compact
// formats read their packed tables (`ddd` stores no bearings). Returns 0.
FS_LONG get_glyph_metrics(FS_STATE* state, fsg_SplineKey* key, FS_ULONG index,
                          fsg_Metrics* m);

// The advance of glyph `index` scaled alone: 16.16 pixels in dx and dy, and
// rounded to whole pixels in i_dx and i_dy (both 0 under a rotation or a
// shear, where the advance is no whole quantity). With FLAGS_VERTICAL_ON
// the vertical advance. Returns 0 or the error.
FS_LONG get_glyph_advance(FS_STATE* state, fsg_SplineKey* key, FS_ULONG index,
                          FS_FIXED* dx, FS_FIXED* dy, FS_SHORT* i_dx,
                          FS_SHORT* i_dy);

// Reads one component record at the cursor-like position `*pos` of the
// glyph data `data` of `length` bytes. 407 when the bytes run out, 406 for
// an index not below `numGlyphs`.
FS_LONG read_comp_parms_ttf(const FS_BYTE* data, FS_ULONG length,
                            FS_ULONG* pos, FS_USHORT numGlyphs,
                            fsg_Component* comp);

// Points the two element records of the key into the server's workspace,
// which may have moved or grown since the key was made; both come out
// empty. 412 when the key is not ready or the workspace is too small.
FS_LONG fs_SetUpKey(FS_STATE* state, fsg_SplineKey* key);

// The published defaults of the key's graphic state, no compensation, no
// instruction definitions.
void fsg_SetDefaults(fsg_SplineKey* key);

// Runs the font's `fpgm` over the key's elements, from empty function and
// instruction definitions. Returns 0, 412 for a key not ready, or 416 when
// the program panics.
FS_LONG fsg_RunFontProgram(FS_STATE* state, fsg_SplineKey* key);

// Runs the control-value program for the key: scales the control values
// into the private font space, clears the twilight zone and runs `prep`
// (not below 2 pixels per em), whose graphic state becomes the glyphs'
// default unless it sets INSTCTRL bit 1. Fonts with a `FLNT` table skip all
// of it. Returns 0 or the error: 412, 416 when `prep` panics.
FS_LONG fsg_RunPreProgram(FS_STATE* state, fsg_SplineKey* key);

// Runs a glyph program of `length` bytes over the key's elements as they
// stand, from the default graphic state; with `unitScale` the points' font
// units are pixels (a composite's program over its joined points). The
// caller makes sure the workspace holds this key's control-value results.
// Returns 0 or 416.
FS_LONG fsg_RunGlyphProgram(FS_STATE* state, fsg_SplineKey* key,
                            const FS_BYTE* pgm, FS_ULONG length,
                            FS_BOOLEAN unitScale = 0);

// Runs the real-time autohinter over the whole glyph element (a CFF
// glyph's): its script and Unicode value from which_script, any_hints 16,
// the left phantom x rounded (the right one too under a vanilla scale).
// Returns 0 or 416.
FS_LONG fsg_autohint_element(FS_STATE* state, fsg_SplineKey* key);

// Clears what one glyph fit leaves on the state and the key (error, hint
// reports, nesting level, counts, metrics choice), before a fit of either
// outline format.
void fsg_reset_fit(FS_STATE* state, fsg_SplineKey* key);

// Fetches glyph key->glyphIndex into the glyph element (element 1): np
// points, nc contours, the 8 phantom places at np..np+7, x/y after the
// matrix. `useHints` asks for hints, which the client's FLAGS_NO_HINTS
// and the control-value program's INSTCTRL bit 0 refuse. Returns 0 or
// 406, 407, 412, 416 (a glyph program panicked), 418, 419, 1030 (a damaged
// compressed font) and the heap's errors.
FS_LONG fsg_GridFit(FS_STATE* state, fsg_SplineKey* key, FS_BOOLEAN useHints);

// Merges a scan control word that a glyph's program left into the key's
// word for this glyph: the high 16 bits ORed, the low byte the larger.
void update_scanControl(fsg_SplineKey* key, FS_ULONG scanControl);

// Whether the glyph just fetched asks for dropout control, from the key's
// merged scan control word: never with bit 0x20000; with 0x100 at or below
// the threshold in the low byte (255 meaning every size); with 0x200 under
// a rotation (both off-diagonal entries non-zero); with 0x400 under unequal
// diagonal entries. 1 or 0.
FS_LONG get_dropout_control(fsg_SplineKey* key);

// The key's glyph element after a fetch.
inline fnt_ElementType* fsg_glyph_element(fsg_SplineKey* key) {
  return &key->elementInfoRec.interpreterElements[1];
}

#endif
