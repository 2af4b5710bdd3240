// A client's current font set in its per-client form: one TFNT per component
// with the scaled font in use. Setting a font makes one; clearing drops the
// holds, and the client's end destroys it.
#ifndef ORVEX_INTERNAL_FS_TYPESET_H
#define ORVEX_INTERNAL_FS_TYPESET_H

#include "Orvex_internal/fs_state.h"

// Makes `fntset` the typeset's set: the array grows to `num_fonts` entries
// when it is smaller (it never shrinks), the set's `ref_count` grows, and
// each entry points at its component with no scaled font and no cmap yet.
// Returns 0; 316 for a null set (the array is freed, `capacity` 0); 201 when
// the array can't be had (the typeset is then empty).
FS_LONG TYPESET_init(FS_STATE* state, TYPESET* typeset, FNTSET* fntset);

// Drops the typeset's hold on its font set and on each scaled font, and
// nulls the set. The array stays for reuse.
void TYPESET_clear(FS_STATE* state, TYPESET* typeset);

// TYPESET_clear, then frees the array and sets `capacity` to 0.
void TYPESET_destroy(FS_STATE* state, TYPESET* typeset);

#endif
