// Pair kerning of loaded fonts. Only the removal that font-object removal
// calls is here until kerning is built.
#ifndef ORVEX_INTERNAL_FS_KERN_H
#define ORVEX_INTERNAL_FS_KERN_H

#include "Orvex_internal/fs_state.h"

// Frees the font's kerning data. Stand-in until kerning: none is loaded, so
// it does nothing.
void delete_kern(FS_STATE* state, LFNT* lfnt);

#endif
