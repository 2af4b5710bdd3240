// Font tables lent out to callers, one record per owner and tag on the
// server. The lending itself arrives with table access; the server's end and
// the reclaim ladder already call the three functions below.
#ifndef ORVEX_INTERNAL_FS_TABLEPTR_H
#define ORVEX_INTERNAL_FS_TABLEPTR_H

#include "Orvex_internal/fs_state.h"

struct TABLE_PTR_REC {
  LFNT* lfnt;  // owner: the component font, or the font set cast to it
  FS_BYTE* ptr;
  FS_ULONG tag;
  FS_ULONG ref_count;
  FS_BOOLEAN external;  // ptr is a heap block this record must free
  TABLE_PTR_REC* next;
};

// Frees the unreferenced records of `fntset` and returns how many. Stand-in:
// no record can be lent yet, so 0.
int squeeze_table_ptrs(FS_STATE* state, FNTSET* fntset);

// True when a lent record of `fntset` is held at font-set level, or its
// LFNT is used by fewer than two sets. Stand-in: false.
FS_BOOLEAN any_used_fntset_or_unshared_lfnt_table_ptrs(FS_STATE* state,
                                                       FNTSET* fntset);

// True when a lent component-level record of `fntset` has exactly
// `lfntOfInterest` as its source. Stand-in: false.
FS_BOOLEAN any_used_lfnt_table_ptrs(FS_STATE* state, FNTSET* fntset,
                                    LFNT* lfntOfInterest);

// Frees every record whatever its count, with its table when `external`.
void kill_table_ptrs(FS_STATE* state);

#endif
