// String helpers of the font engine: heap copies on the budgeted heap and
// null-aware equality.
#ifndef ORVEX_INTERNAL_FS_STRING_H
#define ORVEX_INTERNAL_FS_STRING_H

#include "Orvex_internal/fs_state.h"

// A copy of s on the engine heap. A null or empty s gives null (with `error`
// unchanged); an exhausted heap gives null with 201.
FILECHAR* FS_strdup(FS_STATE* state, const FILECHAR* s);

// Equality of two strings where two nulls are equal and a null never equals
// a string.
FS_BOOLEAN FS_streq(const FILECHAR* a, const FILECHAR* b);

#endif
