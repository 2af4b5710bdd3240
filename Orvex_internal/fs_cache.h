// The glyph cache's entry record, kept in the server's 1021 buckets and
// served in lumps by new_thing. The look-up, saving and per-font removal
// arrive with the glyph cache; for now only removal has a stand-in.
#ifndef ORVEX_INTERNAL_FS_CACHE_H
#define ORVEX_INTERNAL_FS_CACHE_H

#include "Orvex_internal/fs_state.h"

// A bucket is a list with its most recent entry at the head; the head's
// `prev` is the tail, and the tail's `next` is null.
struct CACHE_ENTRY {
  FS_MASTER_LUMP* master;  // the thing allocator's first word
  FS_USHORT type;
  FS_USHORT index;
  FS_ULONG flags;
  FS_BYTE* data;  // the cached record, a heap block the entry owns
  SFNT* sfnt;
  FS_FIXED outline_opacity;
  FS_USHORT outline_width;
  FS_SHORT stroke_width;
  FS_SHORT bold_width;
  FS_SHORT phase;
  ADF_F32 outsideCutoff, insideCutoff, gamma;
  CACHE_ENTRY* prev;
  CACHE_ENTRY* next;
  FS_ULONG ref_counter;  // callers holding the record
  FS_BYTE any_hints;
};

static_assert(sizeof(CACHE_ENTRY) == 80, "a cache entry takes 80 bytes");

// Removes every cached glyph of `sfnt` and zeroes its cache and active
// counts. Stand-in until the glyph cache exists: nothing can be cached yet,
// so it only zeroes the counts.
void delete_fs_cache(FS_STATE* state, SFNT* sfnt);

#endif
