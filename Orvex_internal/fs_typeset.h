// A client's current font set in its per-client form: one TFNT per component
// with the scaled font in use. Choosing a set arrives with the font object
// model; clearing and destroying are here for the client's end.
#ifndef ORVEX_INTERNAL_FS_TYPESET_H
#define ORVEX_INTERNAL_FS_TYPESET_H

#include "Orvex_internal/fs_state.h"

// Drops the typeset's hold on its font set and on each scaled font, and
// nulls the set. The array stays for reuse.
void TYPESET_clear(FS_STATE* state, TYPESET* typeset);

// TYPESET_clear, then frees the array and sets `capacity` to 0.
void TYPESET_destroy(FS_STATE* state, TYPESET* typeset);

#endif
