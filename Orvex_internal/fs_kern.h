// Pair kerning from a font's `kern` table: the first subtable of version 0
// (pairs sorted by left and right glyph) is kept in file byte order, read to
// the heap from a file or pointed at in a memory image, and searched per
// pair. Called by the renderer, font removal and the fontvec tool; calls the
// container, font loading and the cmap unit.
#ifndef ORVEX_INTERNAL_FS_KERN_H
#define ORVEX_INTERNAL_FS_KERN_H

#include "Orvex_internal/fs_state.h"

// The body of a kept subtable, from its `nPairs` word on, file byte order;
// read through get_u16 at byte offsets, never as a record.
struct KSTf0_data;

// Keeps the first version-0 subtable of the loaded font's `kern` table in
// `kerning`, with its stated length in `kern_subtable_length` cut to what
// the table holds. Nothing is done when `kerning` is set or the font has no
// `kern`; a table without such a subtable leaves `kerning` null. Returns 0,
// 201 heap, or a read error.
FS_LONG load_kerning(FS_STATE* state, LFNT* lfnt);

// Frees the font's kerning data (a heap copy; a pointer into a memory image
// is just dropped). Accepts a font without kerning.
void delete_kern(FS_STATE* state, LFNT* lfnt);

// The kerning of the pair of characters (glyph indices with no cmap chosen
// or flag 0x4000) `id1`, `id2` of the current set, in 16.16 pixels along
// the user scale's first column: dx = s00 v / unitsPerEm, dy = s10 v /
// unitsPerEm; with FLAGS_KERN_UNSCALED the raw font units v in both. No pair,
// no `kern`, or two characters of different components: 0, 0. Returns 0;
// the errors of map_char; 302 no scaled font; 303 no loaded font; a font
// type without `kern` or a load failure leaves 441 in `error` and returns 0.
FS_LONG FSS_get_kerning(FS_STATE* state, FS_ULONG id1, FS_ULONG id2,
                        FS_FIXED* _dx, FS_FIXED* _dy);

// Pairs a search may reach in the loaded font's kept subtable: the smaller
// of `nPairs` and what the subtable's length holds. Loads the kerning. 0
// without one.
FS_ULONG kern_pair_count(FS_STATE* state, LFNT* lfnt);

// Pair `i` (below kern_pair_count) of the kept subtable, in file order.
void kern_pair(const LFNT* lfnt, FS_ULONG i, FS_USHORT* left,
               FS_USHORT* right, FS_SHORT* value);

#endif
