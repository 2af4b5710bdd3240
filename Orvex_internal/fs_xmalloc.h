// The engine's budgeted heap. Every block comes from the system allocator
// behind an 8-byte header that holds its total size, and the server counts
// the sum against its budget. When the budget runs out the reclaim ladder
// frees what the engine can rebuild (cached glyphs, unused font sets, scaled
// environments, unloaded font data) before a request fails. Also the thing
// allocator that serves fixed-size records from lumps. Used by every engine
// unit; calls the font-object, cache, table and raster units to reclaim.
#ifndef ORVEX_INTERNAL_FS_XMALLOC_H
#define ORVEX_INTERNAL_FS_XMALLOC_H

#include "Orvex_internal/fs_state.h"

// The block header: its first 4 bytes hold the block's size with the header.
typedef union {
  FS_ULONG size;
  FS_BYTE pad[8];
} SIZE_THING;

const FS_ULONG FS_HEAP_HEADER = sizeof(SIZE_THING);  // 8

// Without reclaiming: a block of n bytes costs n + 8 of the budget. Null when
// the budget or the system allocator can't give it (or there is no server);
// they leave `error` alone.
void* fs__malloc(FS_STATE* state, FS_ULONG n);
void* fs__realloc(FS_STATE* state, void* p, FS_ULONG n);
void fs__free(FS_STATE* state, void* p);

// A block of n bytes. Null with error 201 when n is at or above the whole
// budget (at once, without reclaiming), or when the ladder has run empty.
// n of 0 gives null with `error` unchanged. Clears `error` at each attempt.
void* FSS_malloc(FS_STATE* state, FS_ULONG n);

// FSS_malloc with the block zeroed.
void* FSS_calloc(FS_STATE* state, FS_ULONG n);

// Resizes p to n bytes, keeping its contents. n at or above the budget, or a
// ladder run empty, gives 202 and null with p untouched. n of 0 frees p and
// gives null. A null p is FSS_malloc(n), with its 201.
void* FSS_realloc(FS_STATE* state, void* p, FS_ULONG n);

// Returns a block to the heap. A null p is accepted. Returns 0; `error` is
// left alone.
FS_LONG FSS_free(FS_STATE* state, void* p);

// One fixed-size record of `size` bytes (at least 16, rounded up to 8) from
// the lumps chained on *list, making a lump of up to `count` records when the
// chain is empty (halving the count while the heap refuses). The record is
// zeroed apart from its first word, the lump pointer, which the caller must
// leave in place. Null with 201 on failure; size 0 gives null.
void* new_thing(FS_STATE* state, void** list, FS_ULONG size, FS_ULONG count);

// Gives a record back to its chain, kept in ascending address order; the
// lump's last record in use returns the whole lump to the heap.
void del_thing(FS_STATE* state, void** list, void* ptr);

// Cache entries: 80-byte things in lumps of 127 on the server's chain.
struct CACHE_ENTRY* CACHE_ENTRY_calloc(FS_STATE* state);
void CACHE_ENTRY_free(FS_STATE* state, struct CACHE_ENTRY* c);

// One rung of the reclaim ladder: runs the steps below in order and stops at
// the first that freed anything, returning its count. 0 means nothing more
// can be had.
int get_some_back(FS_STATE* state);

// The ladder's steps, cheapest to rebuild first. Each returns how many
// records it freed.
int kill_unused_fntsets(FS_STATE* state);
int trim_cache(FS_STATE* state);
int kill_unused_sfnts(FS_STATE* state);
int gut_unused_fntsets(FS_STATE* state, FS_BOOLEAN saveCurrentFntsets);
int gut_raster_area(FS_STATE* state);
int kill_tlists(FS_STATE* state);
int gut_cmap_caches(FS_STATE* state);
int gut_other_sfnts(FS_STATE* state, FS_BOOLEAN saveCurrentSFNTs);

// Frees a scaled font's key (through the scaler for TrueType and CFF fonts)
// and its scaled environment, and nulls `senv`. Shared by the ladder, font
// removal and the server's end.
void free_sfnt_senv(FS_STATE* state, SFNT* sfnt);

#endif
