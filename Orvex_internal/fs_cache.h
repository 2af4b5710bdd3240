// The glyph cache: finished glyph records per scaled font in the server's
// 1021 buckets, found again by a product hash of prime type codes, glyph
// index and scaled font, most recent first in each bucket. Entries are
// served in lumps by new_thing; the heap's reclaim ladder takes the least
// recently used unheld ones first. Called by the rasterisers and metrics.
#ifndef ORVEX_INTERNAL_FS_CACHE_H
#define ORVEX_INTERNAL_FS_CACHE_H

#include "Orvex_internal/fs_state.h"

struct FS_BITMAP;

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

// Cache type codes: primes, so that the product hash spreads. Codes below
// CACHE_ADF_LIMIT belong to distance-field records, whose key includes
// their contrast values.
const FS_USHORT CACHE_BITMAP = 32707;
const FS_USHORT CACHE_RASTER_ICON = 32693;
const FS_USHORT CACHE_GRAYMAP2 = 32717;
const FS_USHORT CACHE_GRAYMAP4 = 32719;
const FS_USHORT CACHE_GRAYMAP8 = 32713;
const FS_USHORT CACHE_OUTLINE = 32749;
const FS_USHORT CACHE_ADF_LIMIT = 32538;

// Key flags of an entry: the client's flags under this mask.
const FS_ULONG CACHE_FLAG_MASK = 0x03DF9FFF;

// Records above this size are not kept (the larger one for the sub-pixel
// distance-field codes 32507, 32503, 32497, 32491).
const FS_LONG CACHE_MAX_RECORD = 5120;
const FS_LONG CACHE_MAX_RECORD_ADF = 20480;

// The bucket of a key: type x low 32 bits of the sfnt address x index,
// unsigned 32-bit, modulo 1021.
FS_ULONG cache_bucket(FS_USHORT type, const SFNT* sfnt, FS_USHORT index);

// The cached record of glyph `index` under `type` and `phase` for the
// client's current scaled font and style, or null (`error` unchanged). A
// hit moves to its bucket's head, counts one more hold (the first raising
// the scaled font's active_count) and gives its any_hints to the client.
// 302 and null without a current scaled font.
void* find_in_cache(FS_STATE* state, FS_USHORT type, FS_USHORT index,
                    FS_SHORT phase);

// Keeps `data` (a glyph record whose second word is its size) under the
// key of the client's current style. The caller holds the first reference.
// Returns 1 when kept; 0 for null data, a record too large (no error), or
// a failed entry allocation (the heap's error); the record is then the
// caller's alone, with a null cache_ptr.
FS_LONG save_to_cache(FS_STATE* state, FS_USHORT type, FS_USHORT index,
                      FS_SHORT phase, void* data);

// Removes every cached glyph of `sfnt` and zeroes its cache and active
// counts. An entry still held stops the walk with 610, the entries removed
// before it staying removed.
void delete_fs_cache(FS_STATE* state, SFNT* sfnt);

// Typed look-ups and saves. Graymaps take the type bit (2, 4, 8) and
// quarter-pixel phases; the raster icon ones run with flags 0 so that one
// icon serves every style.
// The cache kind of a graymap type bit: 2, 4, else 8 bits.
FS_USHORT graymap_code(FS_USHORT cache_type);
FS_BITMAP* find_bitmap_in_cache(FS_STATE* state, FS_USHORT index);
FS_LONG save_bitmap_to_cache(FS_STATE* state, FS_USHORT index, FS_BITMAP* p);
FS_BITMAP* find_graymap_in_cache(FS_STATE* state, FS_USHORT index,
                                 FS_USHORT cache_type, FS_SHORT phasex,
                                 FS_SHORT phasey);
FS_LONG save_graymap_to_cache(FS_STATE* state, FS_USHORT index, FS_BITMAP* p,
                              FS_USHORT cache_type, FS_SHORT phasex,
                              FS_SHORT phasey);
FS_BITMAP* find_raster_icon_in_cache(FS_STATE* state, FS_USHORT index);
FS_LONG save_raster_icon_to_cache(FS_STATE* state, FS_USHORT index,
                                  FS_BITMAP* p);

// Advances and bounding boxes, keyed on a neutral style so that all effects
// of one size share them: 0x400000 set; 0x200, the effects, 0x1000 and
// 0x80000 cleared; all flags 0 for `type & 32`, 0x400000 cleared for type 1.
// The client's flags are put back afterwards. The cache code follows the
// type bit; a type with none of the known bits is neither found nor kept.
// For distance-field boxes the contrast values are those the glyph will
// have. Without a loaded current font: null, or 0 from the saves.
struct FS_ADVANCE;
FS_ADVANCE* find_advance_in_cache(FS_STATE* state, FS_USHORT index,
                                  FS_USHORT type);
FS_LONG save_advance_to_cache(FS_STATE* state, FS_USHORT index, FS_USHORT type,
                              FS_ADVANCE* p);
FS_BITMAP* find_bbox_in_cache(FS_STATE* state, FS_USHORT index, FS_USHORT type);
FS_LONG save_bbox_to_cache(FS_STATE* state, FS_USHORT index, FS_USHORT type,
                           FS_BITMAP* p);

// The cache codes of an advance and a bounding box of glyphmap type
// `type`, testing its bits in a fixed order; 0 for none.
FS_USHORT advance_cache_code(FS_USHORT type);
FS_USHORT bbox_cache_code(FS_USHORT type);

// Gives back a glyph record: an uncached one (or null) is freed; a cached
// one stays in the cache with one hold fewer, the scaled font's
// active_count coming down when the last hold goes. Returns 0.
FS_LONG FSS_free_char(FS_STATE* state, void* p);

// Debug listings on standard output: every bucket, or one.
void dump_cache(FS_STATE* state);
void dump_cache_bucket(FS_STATE* state, int bucket);

#endif
