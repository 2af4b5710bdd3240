// Starting and ending engine clients and their server, the budget, the
// small accessors, and the removal of font objects. The order of the
// server's end matters: later steps still use the heap counters.
#include "Orvex_internal/fs_api.h"

#include <stdlib.h>
#include <string.h>

#include "Orvex_internal/adf.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_kern.h"
#include "Orvex_internal/fs_scratch.h"
#include "Orvex_internal/fs_tableptr.h"
#include "Orvex_internal/fs_tlist.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_typeset.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_ULONG SCRATCH_SIZE = 3000;

void set_client_defaults(FS_STATE* state) {
  state->stroke_pct = 3277;  // 0.05 of the em
  state->platform = 0xFFFF;
  state->encoding = 0xFFFF;
  state->varPlatform = 0;
  state->varEncoding = 5;
  state->outline_width = 1;
  state->outline_opacity = FIXED_ONE;
}

bool has_ttf(const LFNT* lfnt) {
  return lfnt->fnt_type == 0 || lfnt->fnt_type == 1 || lfnt->fnt_type == 7;
}

// Frees a font set's own records: names, component array, linked tables.
void free_fntset_records(FS_STATE* state, FNTSET* set) {
  FSS_free(state, set->name);
  FSS_free(state, set->path);
  if (set->cfnt != nullptr) {
    for (FS_USHORT i = 0; i < set->num_fonts; i++) set->cfnt[i].name = nullptr;
    FSS_free(state, set->cfnt);
  }
  FSS_free(state, set->cmap);
  FSS_free(state, set->gdef);
  FSS_free(state, set->gsub);
  FSS_free(state, set->gpos);
  FSS_free(state, set->kern);
}

}  // namespace

/* ---- Type checks: stand-in ---- */

/* ---- Font object removal ---- */

void unload_cmap_cache(FS_STATE* state, LFNT* lfnt) {
  FSS_free(state, lfnt->cmap_cache);
  lfnt->cmap_cache = nullptr;
  lfnt->cmap_cache_mod = 0;
}

void unload_fnt(FS_STATE* state, LFNT* lfnt) {
  if (has_ttf(lfnt)) {
    unload_ttf(state, (TTF*)lfnt->fnt);
    unload_cmap_cache(state, lfnt);
  }
  lfnt->fnt = nullptr;
}

void delete_lfnt(FS_STATE* state, LFNT* lfnt) {
  FS_SERVER* server = state->server;
  for (LFNT** link = &server->loaded_fonts; *link; link = &(*link)->next) {
    if (*link == lfnt) {
      *link = lfnt->next;
      break;
    }
  }
  delete_kern(state, lfnt);
  unload_fnt(state, lfnt);
  FSS_free(state, lfnt->name);
  FSS_free(state, lfnt->path);
  for (SFNT* sfnt = server->scaled_fonts; sfnt; sfnt = sfnt->next)
    if (sfnt->lfnt == lfnt) sfnt->lfnt = nullptr;
  FSS_free(state, lfnt->cmap_cache);
  if (state->cur_lfnt == lfnt) state->cur_lfnt = nullptr;
  FSS_free(state, lfnt);
}

void kill_fntset(FS_STATE* state, FNTSET* fntset) {
  FS_SERVER* server = state->server;
  for (FS_USHORT i = 0; fntset->cfnt != nullptr && i < fntset->num_fonts; i++) {
    CFNT* cfnt = &fntset->cfnt[i];
    LFNT* lfnt = cfnt->lfnt;
    if (lfnt != nullptr) {
      if (lfnt->fntset_refs > 0) lfnt->fntset_refs--;
      if (lfnt->fntset_refs == 0) {
        // The font's last set: its scaled fonts go with it.
        SFNT** link = &server->scaled_fonts;
        while (*link != nullptr) {
          SFNT* sfnt = *link;
          if (sfnt->lfnt != lfnt) {
            link = &sfnt->next;
            continue;
          }
          *link = sfnt->next;
          delete_fs_cache(state, sfnt);
          free_sfnt_senv(state, sfnt);
          if (server->workspace_sfnt == sfnt) server->workspace_sfnt = nullptr;
          if (state->cur_sfnt == sfnt) state->cur_sfnt = nullptr;
          FSS_free(state, sfnt);
        }
        delete_lfnt(state, lfnt);
        cfnt->lfnt = nullptr;
      }
    }
    cfnt->name = nullptr;
  }
  for (FNTSET** link = &server->font_sets; *link; link = &(*link)->next) {
    if (*link == fntset) {
      *link = fntset->next;
      break;
    }
  }
  free_fntset_records(state, fntset);
  FSS_free(state, fntset);
}

/* ---- Clients ---- */

void FS_STATE_init(FS_STATE* state) {
  memset(state, 0, sizeof(FS_STATE));
  set_client_defaults(state);
}

void FS_STATE_done(FS_STATE* state) {
  stopADF(state);
  ADDEDFNT* added = state->name_map;
  while (added != nullptr) {
    // The delete may free the record: take its successor first.
    ADDEDFNT* next = added->next;
    if (added->add_count > 1) added->add_count = 1;
    FSS_delete_font(state, added->name);
    added = next;
  }
  state->cur_lfnt = nullptr;
  state->cur_sfnt = nullptr;
  TYPESET_destroy(state, &state->cur_typeset);
  state->error = SUCCESS;
}

FS_LONG FSS_init(FS_STATE* state, FS_ULONG heap_size) {
  if (state == nullptr) return ERR_BAD_ARGUMENT;
  FS_LONG err = check_types(state);
  if (err != 0) return err;

  memset(state, 0, sizeof(FS_STATE));
  FS_SERVER* server = (FS_SERVER*)calloc(1, sizeof(FS_SERVER));
  if (server == nullptr) {
    state->error = ERR_MALLOC_FAIL;
    return ERR_MALLOC_FAIL;
  }
  state->server = server;
  server->heap_size = heap_size;
  if (FsScratchSpace_init(&server->scratch, state, SCRATCH_SIZE) != 0 ||
      server->scratch.buffer == nullptr) {
    free(server);
    state->server = nullptr;
    state->error = ERR_MALLOC_FAIL;
    return ERR_MALLOC_FAIL;
  }
  set_client_defaults(state);
  server->version = FS_SERVER_VERSION;

  err = startADF(state);
  if (err != 0) {
    // The scratch buffer is given back too, so that no system memory
    // outlives the server.
    FsScratchSpace_done(&server->scratch, state);
    free(server);
    state->server = nullptr;
    state->error = (FS_ULONG)err;
    return err;
  }
  state->error = SUCCESS;
  return 0;
}

FS_LONG FSS_exit(FS_STATE* state) {
  if (state == nullptr) return ERR_BAD_ARGUMENT;
  FS_SERVER* server = state->server;
  if (server == nullptr) {
    state->error = ERR_BAD_ARGUMENT;
    return ERR_BAD_ARGUMENT;
  }

  FS_STATE_done(state);
  // A glyph the host still holds stops its font's deletion above; the
  // server ends all the same, so the names the client kept go with it.
  for (ADDEDFNT* added = state->name_map; added != nullptr;) {
    ADDEDFNT* next = added->next;
    FSS_free(state, added->name);
    FSS_free(state, added);
    added = next;
  }
  state->name_map = nullptr;

  for (int b = 0; b < FS_CACHE_BUCKETS; b++) {
    CACHE_ENTRY* e = server->cache[b];
    while (e != nullptr) {
      CACHE_ENTRY* next = e->next;
      FSS_free(state, e->data);
      CACHE_ENTRY_free(state, e);
      e = next;
    }
    server->cache[b] = nullptr;
  }

  for (SFNT* sfnt = server->scaled_fonts; sfnt != nullptr;) {
    SFNT* next = sfnt->next;
    // A scaled font whose loaded font has gone still frees its environment
    // (plainly, its font type being unknown), so that nothing is left over.
    free_sfnt_senv(state, sfnt);
    FSS_free(state, sfnt);
    sfnt = next;
  }
  server->scaled_fonts = nullptr;
  server->workspace_sfnt = nullptr;

  kill_table_ptrs(state);

  for (LFNT* lfnt = server->loaded_fonts; lfnt != nullptr;) {
    LFNT* next = lfnt->next;
    delete_kern(state, lfnt);
    unload_fnt(state, lfnt);
    FSS_free(state, lfnt->cmap_cache);
    FSS_free(state, lfnt->name);
    FSS_free(state, lfnt->path);
    FSS_free(state, lfnt);
    lfnt = next;
  }
  server->loaded_fonts = nullptr;

  for (FNTSET* set = server->font_sets; set != nullptr;) {
    FNTSET* next = set->next;
    free_fntset_records(state, set);
    FSS_free(state, set);
    set = next;
  }
  server->font_sets = nullptr;

  if (server->workspaceSize > 0) FSS_free(state, server->workspace);
  server->workspace = nullptr;
  server->workspaceSize = 0;
  delete_tlist(state, server->tlist);
  delete_tlist(state, server->drop);
  server->tlist = nullptr;
  server->drop = nullptr;

  for (FS_MASTER_LUMP* lump = server->list_of_lumps; lump != nullptr;) {
    FS_MASTER_LUMP* next = lump->next;
    FSS_free(state, lump);
    lump = next;
  }
  server->list_of_lumps = nullptr;
  server->CACHE_ENTRY_chain = nullptr;

  if (server->raster != nullptr) {
    if (server->raster->areasize != 0) FSS_free(state, server->raster->areas);
    FSS_free(state, server->raster);
    server->raster = nullptr;
  }

  FsScratchSpace_done(&server->scratch, state);
  free(server);
  state->server = nullptr;
  state->error = SUCCESS;
  return 0;
}

FS_STATE* FSS_new_client(FS_STATE* sp, FS_ULONG heap_size) {
  if (sp == nullptr) return nullptr;
  FS_SERVER* server = sp->server;
  if (server == nullptr) {
    sp->error = ERR_BAD_ARGUMENT;
    return nullptr;
  }
  FS_ULONG old_budget = server->heap_size;
  if (heap_size > 0) {
    if (old_budget + heap_size < old_budget) {
      sp->error = ERR_RESIZE_FAIL;
      return nullptr;
    }
    if (FSS_resize(sp, old_budget + heap_size) != 0) return nullptr;
  }
  FS_STATE* client = (FS_STATE*)FSS_malloc(sp, sizeof(FS_STATE));
  if (client == nullptr) {
    // Take the child's extra budget back: a failed call leaves the server
    // as it was. Nothing was allocated, so the old budget still holds.
    server->heap_size = old_budget;
    return nullptr;
  }
  FS_STATE_init(client);
  client->parent = sp;
  sp->ref_count++;
  client->heap_size = heap_size;
  client->server = server;
  server->client_count++;
  FS_LONG err = startADF(client);
  if (err != 0) {
    sp->ref_count--;
    server->client_count--;
    FSS_free(sp, client);
    server->heap_size = old_budget;
    sp->error = (FS_ULONG)err;
    return nullptr;
  }
  return client;
}

FS_ULONG FSS_end_client(FS_STATE* sp) {
  if (sp == nullptr) return ERR_BAD_ARGUMENT;
  if (sp->parent == nullptr || sp->server == nullptr) {
    sp->error = ERR_BAD_ARGUMENT;
    return ERR_BAD_ARGUMENT;
  }
  if (sp->ref_count > 0) {
    sp->error = ERR_CLIENT_HAS_CHILDREN;
    return ERR_CLIENT_HAS_CHILDREN;
  }
  FS_STATE_done(sp);
  if (sp->error != 0) return sp->error;
  FS_SERVER* server = sp->server;
  if (sp->heap_size != 0) {
    FS_ULONG nsize = server->heap_size > sp->heap_size
                         ? server->heap_size - sp->heap_size
                         : 0;
    FS_LONG err = FSS_resize(sp, nsize);
    if (err != 0) return (FS_ULONG)err;
  }
  FS_STATE* parent = sp->parent;
  if (parent->ref_count > 0) parent->ref_count--;
  if (server->client_count > 0) server->client_count--;
  FSS_free(parent, sp);
  return 0;
}

FS_LONG FSS_resize(FS_STATE* state, FS_ULONG nsize) {
  FS_SERVER* server = state->server;
  if (server == nullptr) {
    state->error = ERR_BAD_ARGUMENT;
    return ERR_BAD_ARGUMENT;
  }
  if (nsize >= server->heap_size) {
    server->heap_size = nsize;
    state->error = SUCCESS;
    return 0;
  }
  while (server->allocated > nsize) {
    if (get_some_back(state) == 0) {
      state->error = ERR_RESIZE_FAIL;
      return ERR_RESIZE_FAIL;
    }
  }
  server->heap_size = nsize;
  state->error = SUCCESS;
  return 0;
}

FS_ULONG FS_error(FS_STATE* state) {
  return state != nullptr ? state->error : (FS_ULONG)ERR_BAD_ARGUMENT;
}

FS_ULONG FS_get_version(FS_STATE* state) {
  return state != nullptr && state->server != nullptr ? state->server->version
                                                      : 0;
}

FS_ULONG FS_get_heap_used(FS_STATE* state) {
  return state != nullptr && state->server != nullptr
             ? state->server->allocated
             : 0;
}
