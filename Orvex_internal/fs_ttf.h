// The TrueType container loader. Only the unloading that font-object removal
// calls is here until the loader is built.
#ifndef ORVEX_INTERNAL_FS_TTF_H
#define ORVEX_INTERNAL_FS_TTF_H

#include "Orvex_internal/fs_state.h"

struct TTF;

// Closes and frees a loaded font record. Accepts null. Stand-in until the
// loader: no record can be loaded yet, so it does nothing.
void unload_ttf(FS_STATE* state, TTF* ttf);

#endif
