// The scratch space: first-fit blocks inside one heap buffer, each behind an
// 8-byte header, with a fall-back to the budgeted heap when none fits.
#include "Orvex_internal/fs_scratch.h"

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_state.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_ULONG SS_HEADER = sizeof(SSUnion);  // 8

inline FS_ULONG round_up_8(FS_ULONG n) { return (n + 7) & ~(FS_ULONG)7; }

inline SSUnion* next_block(SSUnion* block) {
  return (SSUnion*)((FS_BYTE*)block + SS_HEADER + block->size);
}

}  // namespace

FS_LONG FsScratchSpace_init(FsScratchSpace* ss, FS_STATE* state,
                            FS_ULONG size) {
  if (size > 0xFFFFFFF0u) size = 0xFFFFFFF0u;
  size = round_up_8(size);
  ss->buffer = nullptr;
  ss->beyond = nullptr;
  if (size < SS_HEADER) {
    // No room even for one header: every reservation falls back.
    return (FS_LONG)state->error;
  }
  FS_BYTE* buffer = (FS_BYTE*)FSS_malloc(state, size);
  if (buffer == nullptr) return (FS_LONG)state->error;
  SSUnion* first = (SSUnion*)buffer;
  first->size = size - SS_HEADER;
  first->flag = SS_FREE;
  ss->buffer = buffer;
  ss->beyond = buffer + size;
  return 0;
}

void FsScratchSpace_done(FsScratchSpace* ss, FS_STATE* state) {
  if (ss == nullptr) return;
  FSS_free(state, ss->buffer);
  ss->buffer = nullptr;
  ss->beyond = nullptr;
}

FsScratchSpace* FsScratchSpace_new(FS_STATE* state, FS_ULONG size) {
  FsScratchSpace* ss =
      (FsScratchSpace*)FSS_malloc(state, sizeof(FsScratchSpace));
  if (ss == nullptr) return nullptr;
  if (FsScratchSpace_init(ss, state, size) != 0) {
    FSS_free(state, ss);  // keeps the init's error
    return nullptr;
  }
  return ss;
}

void FsScratchSpace_delete(FsScratchSpace* ss, FS_STATE* state) {
  if (ss == nullptr) return;
  FsScratchSpace_done(ss, state);
  FSS_free(state, ss);
}

void* FsScratchSpace_reserve(FsScratchSpace* ss, FS_STATE* state,
                             FS_ULONG nbytes) {
  if (nbytes > 0xFFFFFFF0u) return FSS_malloc(state, nbytes);
  FS_ULONG need = round_up_8(nbytes);
  if (ss != nullptr && ss->buffer != nullptr) {
    for (SSUnion* block = (SSUnion*)ss->buffer; (FS_BYTE*)block < ss->beyond;
         block = next_block(block)) {
      if (block->flag != SS_FREE || block->size < need) continue;
      FS_ULONG surplus = block->size - need;
      if (surplus >= 9) {
        // Cut: the rest becomes a free block right after the payload.
        block->size = need;
        SSUnion* rest = next_block(block);
        rest->size = surplus - SS_HEADER;
        rest->flag = SS_FREE;
      }
      block->flag = SS_IN_USE;
      state->error = SUCCESS;
      return (FS_BYTE*)block + SS_HEADER;
    }
  }
  return FSS_malloc(state, nbytes);
}

FS_LONG FsScratchSpace_release(FsScratchSpace* ss, FS_STATE* state,
                               void* addr) {
  FS_BYTE* a = (FS_BYTE*)addr;
  if (ss == nullptr || ss->buffer == nullptr || a < ss->buffer ||
      a >= ss->beyond) {
    FSS_free(state, addr);
    state->error = SUCCESS;
    return 0;
  }
  SSUnion* prev = nullptr;
  SSUnion* block = (SSUnion*)ss->buffer;
  while ((FS_BYTE*)block < ss->beyond && (FS_BYTE*)block + SS_HEADER != a) {
    prev = block;
    block = next_block(block);
  }
  if ((FS_BYTE*)block >= ss->beyond || block->flag != SS_IN_USE) {
    state->error = ERR_BAD_SCRATCH_ADDR;
    return ERR_BAD_SCRATCH_ADDR;
  }
  block->flag = SS_FREE;
  if (prev != nullptr && prev->flag == SS_FREE) {
    prev->size += SS_HEADER + block->size;
    block = prev;
  }
  SSUnion* next = next_block(block);
  if ((FS_BYTE*)next < ss->beyond && next->flag == SS_FREE)
    block->size += SS_HEADER + next->size;
  state->error = SUCCESS;
  return 0;
}

FS_LONG FsScratchSpace_shrink(FsScratchSpace* ss, FS_STATE* state,
                              int* gotSome) {
  (void)ss;
  if (gotSome != nullptr) *gotSome = 0;
  state->error = SUCCESS;
  return 0;
}
