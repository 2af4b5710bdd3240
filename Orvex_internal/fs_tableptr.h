// Table access: raw sfnt tables lent to the engine's callers. A font set
// that carries its own tables (a linked font) lends those; otherwise the
// table comes from a component font. One record per owner and tag on the
// server's list counts the loans; a released table stays cached until its
// font set is squeezed or the server ends. Called by clients, the metrics
// services, font deletion and the reclaim ladder; calls the container
// loader and font loading.
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

// FSS_get_table modes.
const FS_BYTE TABLE_ASK = 1;   // only ask: does the table exist, how long
const FS_BYTE TABLE_LEND = 2;  // lend the table

// A table of the current font set, in file byte order. `mode` TABLE_ASK
// returns the value 1 (not a pointer to use) when the table exists, with its
// length in *len; TABLE_LEND lends it: the same pointer to every caller until
// each has given it back through FSS_free_table, and the client's
// `ref_count` counts it meanwhile. Tables a linked font holds itself report
// fixed lengths (`head` 56, `maxp` and `post` 32, `hhea` and `vhea` 36,
// `OS/2` 100). Null with `error`: 303 no current font set; 405 the font has
// no such table; 441 the font's type has no sfnt tables; 701 `loca`, `hmtx`
// or `glyf` of a `ccc` or `ddd` font; 201 heap; a load error. Another mode:
// null with no error. `len` may be null.
FS_BYTE* FSS_get_table(FS_STATE* state, FS_ULONG tag, FS_BYTE mode,
                       FS_ULONG* len);

// Gives back one loan of a table of the current font set. The table stays
// cached at count 0. Returns 0 (also for null), 204 when `ptr` is no lent
// table of the set, 702 when it was given back as often as lent.
FS_LONG FSS_free_table(FS_STATE* state, void* ptr);

// The loan itself: the record of (`lfnt`, `tag`) when one holds a table
// (its count grows, nothing is read), else the `size` bytes at `offset`,
// read from the font set's file or the component's font (a heap block), or
// in place in the memory image `real_memptr` (at `offset` for a font set, at
// the component's `data_offset` plus `offset`), and a new record of count 1.
// Null with `error` 701 (see FSS_get_table), 201, or a read error; null with
// no error for a table of length 0.
FS_BYTE* get_table_ptr(FS_STATE* state, LFNT* lfnt, FS_BOOLEAN lfntIsFntset,
                       FS_BYTE* real_memptr, FS_ULONG tag, FS_ULONG offset,
                       FS_ULONG size);

// Pushes a record of count 1 for `ptr` on the server's list. Returns 0, or
// 201 with nothing added.
FS_LONG add_table_ptr(FS_STATE* state, LFNT* lfnt, FS_BOOLEAN lfntIsFntset,
                      FS_BYTE* real_memptr, FS_ULONG tag, FS_BYTE* ptr,
                      FS_BOOLEAN ext);

// `size` bytes at the absolute `offset` of a font set's file, opened for this
// one read, in a new heap block; what lies beyond the file reads as zeros.
// Null with 102 (not opened), 104 (seek), 201; null with no error for size 0.
FS_BYTE* fntset_read(FS_STATE* state, FNTSET* fntset, FS_ULONG offset,
                     FS_ULONG size);

// The owner a record of this tag would have in `fntset` now: the set itself
// (with *lfntIsFntset 1) when the set holds the tag's table, else the
// component font the table comes from.
LFNT* rec_get_source_lfnt(TABLE_PTR_REC* rec, FNTSET* fntset,
                          FS_BOOLEAN* lfntIsFntset);

// Frees the records of `fntset` (by rec_get_source_lfnt) that no one holds,
// with their tables when `external`, and returns how many.
int squeeze_table_ptrs(FS_STATE* state, FNTSET* fntset);

// True when a lent record of `fntset` is held at font-set level, or its
// LFNT is used by fewer than two sets.
FS_BOOLEAN any_used_fntset_or_unshared_lfnt_table_ptrs(FS_STATE* state,
                                                       FNTSET* fntset);

// True when a lent component-level record of `fntset` has exactly
// `lfntOfInterest` as its source.
FS_BOOLEAN any_used_lfnt_table_ptrs(FS_STATE* state, FNTSET* fntset,
                                    LFNT* lfntOfInterest);

// Frees every record whatever its count, with its table when `external`.
void kill_table_ptrs(FS_STATE* state);

#endif
