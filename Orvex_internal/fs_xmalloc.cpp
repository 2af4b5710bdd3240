// The budgeted heap, the thing allocator and the reclaim ladder. The budget
// is a counter: blocks come from the system allocator, and `allocated`
// follows their sizes with headers against `heap_size`.
#include "Orvex_internal/fs_xmalloc.h"

#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_tableptr.h"
#include "Orvex_internal/fs_tlist.h"

namespace {

inline SIZE_THING* header_of(void* p) {
  return (SIZE_THING*)((FS_BYTE*)p - FS_HEAP_HEADER);
}

// Whether `need` more bytes fit the budget, without wrapping.
inline bool fits(const FS_SERVER* server, FS_ULONG need) {
  return need <= server->heap_size &&
         server->allocated <= server->heap_size - need;
}

}  // namespace

/* ---- The heap without reclaiming ---- */

void* fs__malloc(FS_STATE* state, FS_ULONG n) {
  FS_SERVER* server = state->server;
  if (server == nullptr || n > 0xFFFFFFFFu - FS_HEAP_HEADER) return nullptr;
  FS_ULONG need = n + FS_HEAP_HEADER;
  if (!fits(server, need)) return nullptr;
  SIZE_THING* block = (SIZE_THING*)malloc(need);
  if (block == nullptr) return nullptr;
  block->size = need;
  server->allocated += need;
  return (FS_BYTE*)block + FS_HEAP_HEADER;
}

void* fs__realloc(FS_STATE* state, void* p, FS_ULONG n) {
  FS_SERVER* server = state->server;
  if (server == nullptr || n > 0xFFFFFFFFu - FS_HEAP_HEADER) return nullptr;
  if (p == nullptr) return fs__malloc(state, n);
  SIZE_THING* block = header_of(p);
  FS_ULONG old = block->size;
  FS_ULONG need = n + FS_HEAP_HEADER;
  // allocated + need - old must stay within the budget; `allocated` already
  // includes `old`.
  if (need > old && !fits(server, need - old)) return nullptr;
  SIZE_THING* grown = (SIZE_THING*)realloc(block, need);
  if (grown == nullptr) return nullptr;
  grown->size = need;
  server->allocated = server->allocated - old + need;
  return (FS_BYTE*)grown + FS_HEAP_HEADER;
}

void fs__free(FS_STATE* state, void* p) {
  if (p == nullptr) return;
  SIZE_THING* block = header_of(p);
  FS_SERVER* server = state->server;
  if (server != nullptr) server->allocated -= block->size;
  free(block);
}

/* ---- The heap with the reclaim ladder ---- */

void* FSS_malloc(FS_STATE* state, FS_ULONG n) {
  FS_SERVER* server = state->server;
  if (server == nullptr || n >= server->heap_size) {
    // No reclaiming can make room for a block as large as the whole budget.
    state->error = ERR_MALLOC_FAIL;
    return nullptr;
  }
  if (n == 0) return nullptr;
  for (;;) {
    state->error = SUCCESS;
    void* p = fs__malloc(state, n);
    if (p != nullptr) return p;
    if (get_some_back(state) == 0) break;
  }
  state->error = ERR_MALLOC_FAIL;
  return nullptr;
}

void* FSS_calloc(FS_STATE* state, FS_ULONG n) {
  void* p = FSS_malloc(state, n);
  if (p != nullptr) memset(p, 0, n);
  return p;
}

void* FSS_realloc(FS_STATE* state, void* p, FS_ULONG n) {
  FS_SERVER* server = state->server;
  if (server == nullptr || n >= server->heap_size) {
    state->error = ERR_REALLOC_FAIL;
    return nullptr;
  }
  if (n == 0) {
    FSS_free(state, p);
    return nullptr;
  }
  if (p == nullptr) return FSS_malloc(state, n);
  for (;;) {
    state->error = SUCCESS;
    void* q = fs__realloc(state, p, n);
    if (q != nullptr) return q;
    if (get_some_back(state) == 0) break;
  }
  state->error = ERR_REALLOC_FAIL;
  return nullptr;
}

FS_LONG FSS_free(FS_STATE* state, void* p) {
  if (p == nullptr) return 0;
  fs__free(state, p);
  return 0;
}

/* ---- Things in lumps ---- */

void* new_thing(FS_STATE* state, void** list, FS_ULONG size, FS_ULONG count) {
  FS_SERVER* server = state->server;
  if (size == 0 || list == nullptr || server == nullptr) return nullptr;
  FS_ULONG item = (size + 7) & ~(FS_ULONG)7;
  // A free thing holds the lump pointer and the chain link.
  if (item < sizeof(FS_LUMP)) item = sizeof(FS_LUMP);
  const FS_ULONG lump_header = sizeof(FS_MASTER_LUMP);

  if (*list == nullptr) {
    if (item + lump_header >= server->heap_size) {
      state->error = ERR_MALLOC_FAIL;
      return nullptr;
    }
    FS_ULONG n = count;
    FS_ULONG largest = (0xFFFFFFFFu - FS_HEAP_HEADER - lump_header) / item;
    if (n > largest) n = largest;
    while (n > 0) {
      state->error = SUCCESS;
      FS_MASTER_LUMP* lump =
          (FS_MASTER_LUMP*)fs__malloc(state, n * item + lump_header);
      if (lump != nullptr) {
        lump->ref_count = 0;
        lump->prev = nullptr;
        lump->next = server->list_of_lumps;
        if (lump->next != nullptr) lump->next->prev = lump;
        server->list_of_lumps = lump;
        FS_BYTE* first = (FS_BYTE*)lump + lump_header;
        for (FS_ULONG i = 0; i < n; i++) {
          FS_LUMP* thing = (FS_LUMP*)(first + i * item);
          thing->master = lump;
          thing->next = i + 1 < n ? (FS_LUMP*)(first + (i + 1) * item) : nullptr;
        }
        *list = first;
        break;
      }
      if (get_some_back(state) == 0) {
        n >>= 1;
      } else if (*list != nullptr) {
        // Reclaiming returned things of this kind to the chain: use them.
        state->error = SUCCESS;
        break;
      }
    }
    if (n == 0) {
      state->error = ERR_MALLOC_FAIL;
      return nullptr;
    }
  }

  FS_LUMP* thing = (FS_LUMP*)*list;
  *list = thing->next;
  FS_MASTER_LUMP* master = thing->master;
  master->ref_count++;
  memset(thing, 0, item);
  thing->master = master;
  return thing;
}

void del_thing(FS_STATE* state, void** list, void* ptr) {
  if (ptr == nullptr || list == nullptr) return;
  FS_LUMP* thing = (FS_LUMP*)ptr;
  FS_MASTER_LUMP* lump = thing->master;
  if (lump->ref_count > 1) {
    lump->ref_count--;
    // Keep the chain in ascending address order, so that a lump's free
    // things stay together for the case below.
    FS_LUMP** link = (FS_LUMP**)list;
    while (*link != nullptr && *link < thing) link = &(*link)->next;
    thing->next = *link;
    *link = thing;
    return;
  }
  // The lump's last thing in use: cut its free things out of the chain and
  // give the lump back.
  FS_LUMP** link = (FS_LUMP**)list;
  while (*link != nullptr && (FS_BYTE*)*link < (FS_BYTE*)lump) link = &(*link)->next;
  FS_LUMP* after = *link;
  while (after != nullptr && after->master == lump) after = after->next;
  *link = after;
  FS_SERVER* server = state->server;
  if (lump->prev != nullptr) lump->prev->next = lump->next;
  if (lump->next != nullptr) lump->next->prev = lump->prev;
  // The head's `prev` is null, so freeing the head lump empties the list
  // and hides older lumps from the server's end: settled behaviour.
  if (server->list_of_lumps == lump) server->list_of_lumps = lump->prev;
  FSS_free(state, lump);
}

CACHE_ENTRY* CACHE_ENTRY_calloc(FS_STATE* state) {
  return (CACHE_ENTRY*)new_thing(state, &state->server->CACHE_ENTRY_chain,
                                 sizeof(CACHE_ENTRY), 127);
}

void CACHE_ENTRY_free(FS_STATE* state, CACHE_ENTRY* c) {
  del_thing(state, &state->server->CACHE_ENTRY_chain, c);
}

/* ---- The reclaim ladder ---- */

void free_sfnt_senv(FS_STATE* state, SFNT* sfnt) {
  SENV* senv = sfnt->senv;
  if (senv == nullptr) return;
  if (senv->ttkey != nullptr) {
    LFNT* lfnt = sfnt->lfnt;
    bool scaler_key = lfnt != nullptr && (lfnt->fnt_type == 0 ||
                                          lfnt->fnt_type == 1 ||
                                          lfnt->fnt_type == 7);
    if (scaler_key)
      delete_key(state, senv->ttkey);
    else
      FSS_free(state, senv->ttkey);
  }
  FSS_free(state, senv);
  sfnt->senv = nullptr;
}

int kill_unused_fntsets(FS_STATE* state) {
  for (FNTSET* set = state->server->font_sets; set; set = set->next) {
    if (set->ref_count == 0 && set->count_added == 0) {
      kill_fntset(state, set);
      return 1;
    }
  }
  return 0;
}

int trim_cache(FS_STATE* state) {
  FS_SERVER* server = state->server;
  int count = 0;
  for (int b = 0; b < FS_CACHE_BUCKETS; b++) {
    CACHE_ENTRY* head = server->cache[b];
    if (head == nullptr) continue;
    // From the least recently used entry back towards the head, past the
    // entries callers still hold.
    CACHE_ENTRY* e = head->prev;
    while (e != head && e->ref_counter != 0) e = e->prev;
    if (e->ref_counter != 0) continue;
    if (e == head) {
      CACHE_ENTRY* second = e->next;
      if (second != nullptr) second->prev = e->prev;
      server->cache[b] = second;
    } else {
      e->prev->next = e->next;
      if (e->next != nullptr)
        e->next->prev = e->prev;
      else
        head->prev = e->prev;  // e was the tail
    }
    if (e->sfnt != nullptr && e->sfnt->cache_count > 0) e->sfnt->cache_count--;
    FSS_free(state, e->data);
    CACHE_ENTRY_free(state, e);
    count++;
  }
  return count;
}

int kill_unused_sfnts(FS_STATE* state) {
  FS_SERVER* server = state->server;
  int count = 0;
  SFNT** link = &server->scaled_fonts;
  while (*link != nullptr) {
    SFNT* sfnt = *link;
    if (sfnt->ref_count == 0 && sfnt->active_count == 0 &&
        sfnt->cache_count == 0) {
      delete_fs_cache(state, sfnt);
      *link = sfnt->next;
      free_sfnt_senv(state, sfnt);
      if (server->workspace_sfnt == sfnt) server->workspace_sfnt = nullptr;
      FSS_free(state, sfnt);
      count++;
    } else {
      link = &sfnt->next;
    }
  }
  return count;
}

namespace {

// Whether a font set that some client has current holds this loaded font.
bool held_by_current_set(FS_SERVER* server, LFNT* lfnt) {
  for (FNTSET* set = server->font_sets; set; set = set->next) {
    if (set->ref_count == 0 || set->cfnt == nullptr) continue;
    for (FS_USHORT i = 0; i < set->num_fonts; i++)
      if (set->cfnt[i].lfnt == lfnt) return true;
  }
  return false;
}

}  // namespace

int gut_unused_fntsets(FS_STATE* state, FS_BOOLEAN saveCurrentFntsets) {
  FS_SERVER* server = state->server;
  int count = 0;
  for (FNTSET* set = server->font_sets; set; set = set->next) {
    count += squeeze_table_ptrs(state, set);
    if (saveCurrentFntsets && set->ref_count != 0) continue;
    if (set->cfnt == nullptr) continue;
    for (FS_USHORT i = 0; i < set->num_fonts; i++) {
      LFNT* lfnt = set->cfnt[i].lfnt;
      if (lfnt == nullptr) continue;
      if (any_used_lfnt_table_ptrs(state, set, lfnt)) continue;
      if (saveCurrentFntsets && held_by_current_set(server, lfnt)) continue;
      if (lfnt->fntset_refs == 0) {
        delete_lfnt(state, lfnt);
        set->cfnt[i].lfnt = nullptr;  // no dangling component
        set->cfnt[i].name = nullptr;
        count++;
      } else if (!lfnt->loading && lfnt != state->cur_lfnt &&
                 lfnt->fnt != nullptr) {
        unload_fnt(state, lfnt);
        // Keys built on the unloaded data must be rebuilt by the scaler.
        for (SFNT* sfnt = server->scaled_fonts; sfnt; sfnt = sfnt->next) {
          if (sfnt->lfnt == lfnt && sfnt->senv != nullptr &&
              sfnt->senv->ttkey != nullptr)
            ((fsg_SplineKey*)sfnt->senv->ttkey)->maxp = nullptr;
        }
        count++;
      }
    }
  }
  return count;
}

int gut_raster_area(FS_STATE* state) {
  FS_SERVER* server = state->server;
  RASTER* raster = server->raster;
  if (raster == nullptr || raster->ref_count != 0) return 0;
  FSS_free(state, raster->areas);
  FSS_free(state, raster);
  server->raster = nullptr;
  return 1;
}

int kill_tlists(FS_STATE* state) {
  FS_SERVER* server = state->server;
  int count = 0;
  if (server->tlist != nullptr && server->tlist->ref_count == 0) {
    delete_tlist(state, server->tlist);
    server->tlist = nullptr;
    count++;
  }
  if (server->drop != nullptr && server->drop->ref_count == 0) {
    delete_tlist(state, server->drop);
    server->drop = nullptr;
    count++;
  }
  return count;
}

int gut_cmap_caches(FS_STATE* state) {
  int count = 0;
  for (LFNT* lfnt = state->server->loaded_fonts; lfnt; lfnt = lfnt->next) {
    if (lfnt->cmap_cache != nullptr) {
      unload_cmap_cache(state, lfnt);
      count++;
    }
  }
  return count;
}

int gut_other_sfnts(FS_STATE* state, FS_BOOLEAN saveCurrentSFNTs) {
  int count = 0;
  for (SFNT* sfnt = state->server->scaled_fonts; sfnt; sfnt = sfnt->next) {
    if (sfnt == state->cur_sfnt) continue;
    if (saveCurrentSFNTs && sfnt->ref_count != 0) continue;
    if (sfnt->senv != nullptr) {
      free_sfnt_senv(state, sfnt);
      count++;
    }
  }
  return count;
}

int get_some_back(FS_STATE* state) {
  if (state->server == nullptr) return 0;
  int n;
  if ((n = kill_unused_fntsets(state)) != 0) return n;
  if ((n = trim_cache(state)) != 0) return n;
  if ((n = kill_unused_sfnts(state)) != 0) return n;
  if ((n = gut_unused_fntsets(state, 1)) != 0) return n;
  if ((n = gut_raster_area(state)) != 0) return n;
  if ((n = kill_tlists(state)) != 0) return n;
  if ((n = gut_cmap_caches(state)) != 0) return n;
  if ((n = gut_unused_fntsets(state, 0)) != 0) return n;
  if ((n = gut_other_sfnts(state, 1)) != 0) return n;
  return gut_other_sfnts(state, 0);
}
