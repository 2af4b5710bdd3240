// Test helpers for the engine core: a root client started and ended around
// each test, and server records (font sets, loaded and scaled fonts, cache
// entries) built on the engine heap by hand.
#ifndef TESTS_ORVEX_INTERNAL_ENGINE_FIXTURE_H
#define TESTS_ORVEX_INTERNAL_ENGINE_FIXTURE_H

#include <gtest/gtest.h>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_state.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace enginetest {

// The Debian font (fonts-dejavu-core) the engine tests read; a test that
// cannot load it fails naming it.
const char kDejaVuSansFile[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// What FSS_init charges: the 3000-byte scratch buffer and the distance-field
// renderer instance, with their headers.
const FS_ULONG kInitCharge = 3024;

// A root client on a server with the given budget, ended on destruction.
class Engine {
 public:
  explicit Engine(FS_ULONG heap) { started = FSS_init(&st, heap) == 0; }
  ~Engine() {
    if (st.server != nullptr) FSS_exit(&st);
  }
  FS_SERVER* server() { return st.server; }
  FS_ULONG used() { return FS_get_heap_used(&st); }
  // Sets the budget to exactly what is allocated now: the next request
  // needs the ladder.
  void fillBudget() { st.server->heap_size = st.server->allocated; }

  FS_STATE st;
  bool started = false;
};

inline LFNT* makeLfnt(FS_STATE* st, FS_BYTE fnt_type = 0) {
  LFNT* lfnt = (LFNT*)FSS_calloc(st, sizeof(LFNT));
  lfnt->fnt_type = fnt_type;
  lfnt->next = st->server->loaded_fonts;
  st->server->loaded_fonts = lfnt;
  return lfnt;
}

// A font set of one component on `lfnt`, with the reference that implies.
inline FNTSET* makeFntset(FS_STATE* st, LFNT* lfnt) {
  FNTSET* set = (FNTSET*)FSS_calloc(st, sizeof(FNTSET));
  set->num_fonts = 1;
  set->cfnt = (CFNT*)FSS_calloc(st, sizeof(CFNT));
  set->cfnt[0].lfnt = lfnt;
  lfnt->fntset_refs++;
  set->next = st->server->font_sets;
  st->server->font_sets = set;
  return set;
}

// A scaled font on `lfnt`, optionally with an environment and a key.
inline SFNT* makeSfnt(FS_STATE* st, LFNT* lfnt, bool withSenv = false) {
  SFNT* sfnt = (SFNT*)FSS_calloc(st, sizeof(SFNT));
  sfnt->lfnt = lfnt;
  if (withSenv) {
    sfnt->senv = (SENV*)FSS_calloc(st, sizeof(SENV));
    fsg_SplineKey* key = (fsg_SplineKey*)FSS_calloc(st, sizeof(fsg_SplineKey));
    key->sfnt = sfnt;
    key->maxp = (TTF_MAXP*)sfnt;  // any non-null value: the key is built
    sfnt->senv->ttkey = key;
  }
  sfnt->next = st->server->scaled_fonts;
  st->server->scaled_fonts = sfnt;
  return sfnt;
}

// A cache entry holding `dataSize` bytes, linked at the head of `bucket` as
// the most recently used, counted on its scaled font.
inline CACHE_ENTRY* addCacheEntry(FS_STATE* st, int bucket, SFNT* sfnt,
                                  FS_ULONG dataSize, FS_ULONG refCounter = 0) {
  CACHE_ENTRY* e = CACHE_ENTRY_calloc(st);
  if (e == nullptr) return nullptr;
  e->data = dataSize ? (FS_BYTE*)FSS_malloc(st, dataSize) : nullptr;
  e->sfnt = sfnt;
  e->ref_counter = refCounter;
  CACHE_ENTRY*& head = st->server->cache[bucket];
  if (head == nullptr) {
    e->prev = e;
  } else {
    e->next = head;
    e->prev = head->prev;
    head->prev = e;
  }
  head = e;
  if (sfnt != nullptr) sfnt->cache_count++;
  return e;
}

inline int bucketLength(FS_STATE* st, int bucket) {
  int n = 0;
  for (CACHE_ENTRY* e = st->server->cache[bucket]; e; e = e->next) n++;
  return n;
}

}  // namespace enginetest

#endif
