// Compressed fonts: sfnt files whose directory holds a `zrp3` table, read
// with random access from memory. The container loader and its read path
// call the four functions below. Until the decoder arrives they recognise a
// compressed font and refuse it; a plain font passes through untouched.
#ifndef ORVEX_INTERNAL_FS_DECOMP_H
#define ORVEX_INTERNAL_FS_DECOMP_H

#include "Orvex_internal/fs_state.h"

struct QSX_RA_TT_Decomp;

// Looks at the font image at `compressedData`, `length` bytes long (0: the
// caller vouches for the image). The version must be 0x00010000, 0x00020000,
// `true`, `OTTO`, or `ttcf` followed by one of those, else null with 403. A
// font without a `zrp3` table gives null with `error` 0: it is a plain font.
// A compressed one gives null with 441 until the decoder is built.
QSX_RA_TT_Decomp* QSX_RA_TT_Create(FS_STATE* state, FS_BYTE* compressedData,
                                   FS_ULONG length);

// Frees a decoder. Accepts null.
void QSX_RA_TT_Destroy(FS_STATE* state, QSX_RA_TT_Decomp* decomp);

// The uncompressed bytes from `position`, *byteCountPtr of them asked; the
// count given back may differ. Null when there is no such fragment.
void* QSX_RA_Get_TTF_FragmentPtr(FS_STATE* state, QSX_RA_TT_Decomp* decomp,
                                 FS_ULONG position, FS_ULONG* byteCountPtr);

// Gives a fragment back.
void QSX_RA_ReleaseTTF_Fragment(FS_STATE* state, QSX_RA_TT_Decomp* decomp,
                                void* fragment);

#endif
