// The glyph cache: look-up, saving and per-font removal of finished glyph
// records in the server's 1021 buckets. The reclaim ladder's trim_cache
// (fs_xmalloc) takes unheld entries from the tails of the same lists.
#include "Orvex_internal/fs_cache.h"

#include <stdio.h>

#include "Orvex_internal/adf.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

// The record's header: its owner entry and its whole size.
struct CACHED_RECORD {
  CACHE_ENTRY* cache_ptr;
  FS_LONG size;
};

FS_LONG current_lpm(FS_STATE* state) {
  if (state->lpm != 0) return state->lpm;
  SFNT* sfnt = state->cur_sfnt;
  return sfnt && sfnt->senv ? sfnt->senv->yppm : 0;
}

CFNT* current_cfnt(FS_STATE* state) {
  TYPESET* ts = &state->cur_typeset;
  if (ts->tfntarray == nullptr || state->cur_font >= ts->capacity) return nullptr;
  return ts->tfntarray[state->cur_font].cfnt;
}

bool is_stroke_font(FS_STATE* state) {
  LFNT* lfnt = state->cur_sfnt ? state->cur_sfnt->lfnt : nullptr;
  return lfnt != nullptr && (lfnt->fontflags & 2) != 0;
}

// The key values of the client's current style.
struct Key {
  FS_ULONG flags;
  FS_SHORT bold_width;
  FS_SHORT stroke_width;
  ADF_F32 inside, outside, gamma;
};

Key current_key(FS_STATE* state, FS_USHORT type) {
  Key k;
  FS_ULONG flags = state->flags;
  bool outline = type == CACHE_OUTLINE;
  bool no_bold = false;
  if (outline) {
    // The outline is style independent: drop the style flags.
    no_bold = (flags & FLAGS_ADD_WEIGHT) != 0;
    flags &= ~(FLAGS_ADD_WEIGHT | FLAGS_EFFECTS | FLAGS_SOFTENED |
               FLAGS_DEFAULT_CSM_ON);
  }
  k.flags = flags & CACHE_FLAG_MASK;
  CFNT* cfnt = current_cfnt(state);
  FS_LONG lpm = current_lpm(state);
  FS_FIXED pct = (cfnt ? cfnt->bold_pct : 0) + state->bold_pct;
  k.bold_width = no_bold ? 0 : (FS_SHORT)(((FS_INT64)pct * lpm + 32768) >> 16);
  k.stroke_width = 0;
  if (is_stroke_font(state) && !outline) {
    FS_LONG s = (FS_LONG)(((FS_INT64)state->stroke_pct * lpm + 32768) >> 16);
    k.stroke_width = (FS_SHORT)(s > 1 ? s : 1);
  }
  // Distance-field contrast values in force: under the default contrast
  // flag the client's plus its adjustments, otherwise those the glue chose
  // for the current component.
  TYPESET* ts = &state->cur_typeset;
  if (!(state->flags & FLAGS_DEFAULT_CSM_ON) && ts->tfntarray != nullptr &&
      state->cur_font < ts->capacity) {
    const ADFRenderAttrs& a = ts->tfntarray[state->cur_font].adfRenderAttrs;
    k.inside = a.insideCutoff;
    k.outside = a.outsideCutoff;
    k.gamma = a.gamma;
  } else {
    k.inside = state->insideCutoff + state->insideCutoffAdj;
    k.outside = state->outsideCutoff + state->outsideCutoffAdj;
    k.gamma = state->gamma;
  }
  return k;
}

bool matches(FS_STATE* state, CACHE_ENTRY* e, FS_USHORT type, FS_USHORT index,
             FS_SHORT phase, const Key& k) {
  if (e->sfnt != state->cur_sfnt || e->type != type || e->index != index)
    return false;
  if (e->flags != k.flags || e->bold_width != k.bold_width || e->phase != phase)
    return false;
  if (is_stroke_font(state) && type != CACHE_OUTLINE &&
      e->stroke_width != k.stroke_width)
    return false;
  if (type < CACHE_ADF_LIMIT &&
      (e->insideCutoff != k.inside || e->outsideCutoff != k.outside ||
       e->gamma != k.gamma))
    return false;
  if ((state->flags & 448) && type != CACHE_OUTLINE) {
    bool gray = type == CACHE_GRAYMAP2 || type == CACHE_GRAYMAP4 ||
                type == CACHE_GRAYMAP8 || type < CACHE_ADF_LIMIT;
    if (type == CACHE_BITMAP) return e->outline_width == state->outline_width;
    if (gray)
      return e->outline_width == state->outline_width &&
             e->outline_opacity == state->outline_opacity;
    return false;  // effects on other records are never served from here
  }
  return true;
}

}  // namespace

FS_USHORT graymap_code(FS_USHORT cache_type) {
  if (cache_type & 2) return CACHE_GRAYMAP2;
  if (cache_type & 4) return CACHE_GRAYMAP4;
  return CACHE_GRAYMAP8;
}

FS_ULONG cache_bucket(FS_USHORT type, const SFNT* sfnt, FS_USHORT index) {
  uint32_t addr = (uint32_t)(uintptr_t)sfnt;
  return (FS_ULONG)(((uint32_t)type * addr * (uint32_t)index) % FS_CACHE_BUCKETS);
}

void* find_in_cache(FS_STATE* state, FS_USHORT type, FS_USHORT index,
                    FS_SHORT phase) {
  SFNT* sfnt = state->cur_sfnt;
  if (sfnt == nullptr) {
    state->error = ERR_NO_CURRENT_SFNT;
    return nullptr;
  }
  FS_SERVER* server = state->server;
  FS_ULONG b = cache_bucket(type, sfnt, index);
  Key k = current_key(state, type);
  CACHE_ENTRY* head = server->cache[b];
  for (CACHE_ENTRY* e = head; e != nullptr; e = e->next) {
    if (!matches(state, e, type, index, phase, k)) continue;
    if (e != head) {
      // Unlink and put at the head.
      e->prev->next = e->next;
      if (e->next != nullptr)
        e->next->prev = e->prev;
      else
        head->prev = e->prev;  // e was the tail
      e->next = head;
      e->prev = head->prev;
      head->prev = e;
      server->cache[b] = e;
    }
    if (e->ref_counter++ == 0) sfnt->active_count++;
    state->any_hints = e->any_hints;  // the same trace as a fresh glyph
    return e->data;
  }
  return nullptr;
}

FS_LONG save_to_cache(FS_STATE* state, FS_USHORT type, FS_USHORT index,
                      FS_SHORT phase, void* data) {
  if (data == nullptr) return 0;
  SFNT* sfnt = state->cur_sfnt;
  if (sfnt == nullptr) return 0;
  CACHED_RECORD* rec = (CACHED_RECORD*)data;
  bool big = type == 32507 || type == 32503 || type == 32497 || type == 32491;
  if (rec->size > (big ? CACHE_MAX_RECORD_ADF : CACHE_MAX_RECORD)) {
    state->error = 0;
    return 0;
  }
  CACHE_ENTRY* e = CACHE_ENTRY_calloc(state);
  if (e == nullptr) return 0;
  Key k = current_key(state, type);
  e->type = type;
  e->index = index;
  e->flags = k.flags;
  e->data = (FS_BYTE*)data;
  e->sfnt = sfnt;
  e->outline_opacity = state->outline_opacity;
  e->outline_width = state->outline_width;
  e->stroke_width = k.stroke_width;
  e->bold_width = k.bold_width;
  e->phase = phase;
  e->insideCutoff = k.inside;
  e->outsideCutoff = k.outside;
  e->gamma = k.gamma;
  e->ref_counter = 1;
  e->any_hints = state->any_hints;
  FS_ULONG b = cache_bucket(type, sfnt, index);
  CACHE_ENTRY* head = state->server->cache[b];
  e->next = head;
  e->prev = head ? head->prev : e;
  if (head != nullptr) head->prev = e;
  state->server->cache[b] = e;
  rec->cache_ptr = e;
  sfnt->cache_count++;
  sfnt->active_count++;
  return 1;
}

void delete_fs_cache(FS_STATE* state, SFNT* sfnt) {
  if (sfnt == nullptr) return;
  FS_SERVER* server = state->server;
  for (int b = 0; b < FS_CACHE_BUCKETS && server != nullptr; b++) {
    CACHE_ENTRY* e = server->cache[b];
    while (e != nullptr) {
      CACHE_ENTRY* next = e->next;
      if (e->sfnt == sfnt) {
        if (e->ref_counter != 0) {
          state->error = ERR_FONT_IN_USE;
          b = FS_CACHE_BUCKETS;
          break;
        }
        CACHE_ENTRY* head = server->cache[b];
        if (e == head) {
          if (next != nullptr) next->prev = e->prev;
          server->cache[b] = next;
        } else {
          e->prev->next = next;
          if (next != nullptr)
            next->prev = e->prev;
          else
            head->prev = e->prev;
        }
        FSS_free(state, e->data);
        CACHE_ENTRY_free(state, e);
      }
      e = next;
    }
  }
  sfnt->cache_count = 0;
  sfnt->active_count = 0;
}

FS_BITMAP* find_bitmap_in_cache(FS_STATE* state, FS_USHORT index) {
  return (FS_BITMAP*)find_in_cache(state, CACHE_BITMAP, index, 0);
}

FS_LONG save_bitmap_to_cache(FS_STATE* state, FS_USHORT index, FS_BITMAP* p) {
  return save_to_cache(state, CACHE_BITMAP, index, 0, p);
}

FS_BITMAP* find_graymap_in_cache(FS_STATE* state, FS_USHORT index,
                                 FS_USHORT cache_type, FS_SHORT phasex,
                                 FS_SHORT phasey) {
  return (FS_BITMAP*)find_in_cache(state, graymap_code(cache_type), index,
                                   (FS_SHORT)((phasey << 4) | phasex));
}

FS_LONG save_graymap_to_cache(FS_STATE* state, FS_USHORT index, FS_BITMAP* p,
                              FS_USHORT cache_type, FS_SHORT phasex,
                              FS_SHORT phasey) {
  return save_to_cache(state, graymap_code(cache_type), index,
                       (FS_SHORT)((phasey << 4) | phasex), p);
}

FS_BITMAP* find_raster_icon_in_cache(FS_STATE* state, FS_USHORT index) {
  FS_ULONG flags = state->flags;
  state->flags = 0;
  FS_BITMAP* p = (FS_BITMAP*)find_in_cache(state, CACHE_RASTER_ICON, index, 0);
  state->flags = flags;
  return p;
}

FS_LONG save_raster_icon_to_cache(FS_STATE* state, FS_USHORT index,
                                  FS_BITMAP* p) {
  FS_ULONG flags = state->flags;
  state->flags = 0;
  FS_LONG r = save_to_cache(state, CACHE_RASTER_ICON, index, 0, p);
  state->flags = flags;
  return r;
}

FS_USHORT advance_cache_code(FS_USHORT type) {
  if (type & 32) return 32579;
  if (type & (1024 | 4096 | 16384)) return 32401;
  if (type & (2048 | 8192 | 32768)) return 32381;
  if (type & 512) return 32411;
  if (type & 4) return 32609;
  if (type & 8) return 32603;
  if (type & 2) return 32611;
  if (type & 1) return 32587;
  return 0;
}

FS_USHORT bbox_cache_code(FS_USHORT type) {
  if (type & 32) return 32621;
  if (type & 4) return 32653;
  if (type & 8) return 32647;
  if (type & 2) return 32687;
  if (type & 1024) return 32467;
  if (type & (128 | 2048)) return 32443;
  if (type & 512) return 32479;
  if (type & 4096) return 32441;
  if (type & 8192) return 32429;
  if (type & 16384) return 32423;
  if (type & 32768) return 32413;
  if (type & 1) return 32633;
  return 0;
}

namespace {

// The neutral style of advances and boxes, for the span of one look-up or
// save; the destructor gives the client its own flags and cutoffs back.
struct NeutralStyle {
  FS_STATE* state;
  FS_ULONG flags;
  ADF_F32 inside, outside;
  NeutralStyle(FS_STATE* st, FS_USHORT type, bool box, FS_USHORT index = 0)
      : state(st) {
    flags = st->flags;
    inside = st->insideCutoff;
    outside = st->outsideCutoff;
    st->flags |= FLAGS_GRAYSCALE;
    st->flags &= ~(FLAGS_ADD_WEIGHT | FLAGS_EFFECTS | FLAGS_SOFTENED |
                   FLAGS_DEFAULT_CSM_ON);
    if (type & 32) st->flags = 0;
    if (type == 1) st->flags &= ~FLAGS_GRAYSCALE;
    if (box && (type & 128)) {
      // A distance field's box has the default contrast of its size.
      FS_LONG c = current_lpm(st) * 10486 + 65536;
      st->insideCutoff = c;
      st->outsideCutoff = -c;
      st->gamma = 65536;
      st->flags |= FLAGS_DEFAULT_CSM_ON | FLAGS_GRAYSCALE;
    }
    // Other distance-field boxes take the contrast the glyph will have:
    // the font's values for it, with the client's adjustments.
    TYPESET* ts = &st->cur_typeset;
    if (box && type > 511 && ts->tfntarray != nullptr &&
        st->cur_font < ts->capacity) {
      ADFRenderAttrs* a = &ts->tfntarray[st->cur_font].adfRenderAttrs;
      FS_ULONG error = st->error;
      adfGetCSMValues(st, (TTF*)st->cur_lfnt->fnt, index, a);
      st->error = error;
      a->insideCutoff += st->insideCutoffAdj;
      a->outsideCutoff += st->outsideCutoffAdj;
    }
  }
  ~NeutralStyle() {
    state->flags = flags;
    state->insideCutoff = inside;
    state->outsideCutoff = outside;
  }
};

bool font_loaded(FS_STATE* state) {
  return state->cur_lfnt != nullptr && state->cur_lfnt->fnt != nullptr;
}

}  // namespace

FS_ADVANCE* find_advance_in_cache(FS_STATE* state, FS_USHORT index,
                                  FS_USHORT type) {
  FS_USHORT code = advance_cache_code(type);
  if (code == 0 || !font_loaded(state)) return nullptr;
  NeutralStyle keep(state, type, false);
  return (FS_ADVANCE*)find_in_cache(state, code, index, 0);
}

FS_LONG save_advance_to_cache(FS_STATE* state, FS_USHORT index, FS_USHORT type,
                              FS_ADVANCE* p) {
  FS_USHORT code = advance_cache_code(type);
  if (code == 0 || !font_loaded(state)) return 0;
  NeutralStyle keep(state, type, false);
  return save_to_cache(state, code, index, 0, p);
}

FS_BITMAP* find_bbox_in_cache(FS_STATE* state, FS_USHORT index, FS_USHORT type) {
  FS_USHORT code = bbox_cache_code(type);
  if (code == 0 || !font_loaded(state)) return nullptr;
  NeutralStyle keep(state, type, true, index);
  return (FS_BITMAP*)find_in_cache(state, code, index, 0);
}

FS_LONG save_bbox_to_cache(FS_STATE* state, FS_USHORT index, FS_USHORT type,
                           FS_BITMAP* p) {
  FS_USHORT code = bbox_cache_code(type);
  if (code == 0 || !font_loaded(state)) return 0;
  NeutralStyle keep(state, type, true, index);
  return save_to_cache(state, code, index, 0, p);
}

FS_LONG FSS_free_char(FS_STATE* state, void* p) {
  CACHED_RECORD* rec = (CACHED_RECORD*)p;
  if (rec == nullptr || rec->cache_ptr == nullptr) {
    FSS_free(state, p);
    return 0;
  }
  CACHE_ENTRY* e = rec->cache_ptr;
  if (e->ref_counter > 0) {
    e->ref_counter--;
    if (e->ref_counter == 0 && e->sfnt != nullptr && e->sfnt->active_count > 0)
      e->sfnt->active_count--;
  }
  return 0;
}

void dump_cache_bucket(FS_STATE* state, int bucket) {
  if (bucket < 0 || bucket >= FS_CACHE_BUCKETS) return;
  for (CACHE_ENTRY* e = state->server->cache[bucket]; e != nullptr; e = e->next)
    printf("bucket %d: type %u index %u flags %08lx phase %d refs %lu sfnt %p\n",
           bucket, e->type, e->index, (unsigned long)e->flags, e->phase,
           (unsigned long)e->ref_counter, (void*)e->sfnt);
}

void dump_cache(FS_STATE* state) {
  for (int b = 0; b < FS_CACHE_BUCKETS; b++) dump_cache_bucket(state, b);
}
