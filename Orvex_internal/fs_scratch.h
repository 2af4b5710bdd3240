// The server's scratch space: one heap block cut into a chain of blocks for
// short-lived work buffers of the glyph path, so that deep code needs no
// heap call and no reclaiming. A request that doesn't fit falls back to the
// budgeted heap. Built on fs_xmalloc.
#ifndef ORVEX_INTERNAL_FS_SCRATCH_H
#define ORVEX_INTERNAL_FS_SCRATCH_H

#include "Orvex_internal/fs_fixed.h"

struct FS_STATE;

// Header of each block in the chain; the payload follows it, and the next
// header lies `size` + 8 bytes further on.
typedef struct {
  FS_ULONG size;  // payload bytes
  FS_BYTE flag;   // SS_IN_USE or SS_FREE
  FS_BYTE pad[3];
} SSUnion;

const FS_BYTE SS_IN_USE = 16;
const FS_BYTE SS_FREE = 0;

typedef struct {
  FS_BYTE* buffer;  // the chain's first header
  FS_BYTE* beyond;  // one past the buffer's end
} FsScratchSpace;

// Allocates a buffer of `size` rounded up to 8 bytes from the heap as one free
// block of that size less 8. Returns 0, or the heap's error (201), in which
// case `beyond` is null and every reservation falls back to the heap.
FS_LONG FsScratchSpace_init(FsScratchSpace* ss, FS_STATE* state, FS_ULONG size);

// Frees the buffer and nulls both pointers. Blocks still reserved from the
// buffer go with it; fall-back blocks stay the caller's.
void FsScratchSpace_done(FsScratchSpace* ss, FS_STATE* state);

// A heap-allocated scratch space of its own, initialised with `size`; null
// with the heap's error when either allocation fails.
FsScratchSpace* FsScratchSpace_new(FS_STATE* state, FS_ULONG size);

// _done, then frees the record itself. A null ss is ignored.
void FsScratchSpace_delete(FsScratchSpace* ss, FS_STATE* state);

// First fit of `nbytes` rounded up to 8 over the free blocks; a surplus below
// 9 bytes goes with the block, a larger one is cut off as a new free block.
// Clears `error`. When nothing fits, the block comes from FSS_malloc(nbytes),
// with its error and null on failure.
void* FsScratchSpace_reserve(FsScratchSpace* ss, FS_STATE* state,
                             FS_ULONG nbytes);

// Gives back a block from _reserve. An address outside the buffer goes to
// FSS_free (a fall-back block). Inside, an address that is not the payload of
// a block in use gives 204; otherwise the block is freed and merged with free
// neighbours. Returns 0 or 204, and stores it in `error`.
FS_LONG FsScratchSpace_release(FsScratchSpace* ss, FS_STATE* state,
                               void* addr);

// The reclaim ladder does not take scratch space back: sets *gotSome to 0 and
// clears `error`. Returns 0.
FS_LONG FsScratchSpace_shrink(FsScratchSpace* ss, FS_STATE* state,
                              int* gotSome);

#endif
