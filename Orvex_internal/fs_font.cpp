// Font objects and font loading: finding or making the server's font sets
// and loaded fonts for a file or memory image, loading and classifying a
// font's data, the client's private names, and setting and deleting fonts.
// A linked font becomes a set of several components (create_linked_FNTSET).
#include "Orvex_internal/fs_font.h"

#include <stdio.h>
#include <string.h>

#include <string>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_fio.h"
#include "Orvex_internal/fs_ltt.h"
#include "Orvex_internal/fs_string.h"
#include "Orvex_internal/fs_tableptr.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_typeset.h"
#include "Orvex_internal/fs_xmalloc.h"

MY_FONT my_font_list[] = {{nullptr, nullptr, nullptr, 0}};
int my_font_count = 0;

namespace {

const FS_ULONG kUniqueNameBuffer = 50;
const FS_ULONG kAllOnes = 0xFFFFFFFF;

bool has_ttf_type(FS_BYTE fnt_type) {
  return fnt_type == FNT_TYPE_TTF || fnt_type == FNT_TYPE_TTC ||
         fnt_type == FNT_TYPE_CFF;
}

FS_LONG fail(FS_STATE* state, FS_ULONG code) {
  state->error = code;
  return (FS_LONG)code;
}

// Copies `src` into a buffer of `len` bytes with its terminator; false when
// it doesn't fit (nothing written).
bool copy_name(const FILECHAR* src, FILECHAR* dst, FS_ULONG len) {
  size_t n = strlen(src);
  if (dst == nullptr || n + 1 > len) return false;
  memcpy(dst, src, n + 1);
  return true;
}

ADDEDFNT* find_added_by_set(FS_STATE* state, const FNTSET* set) {
  for (ADDEDFNT* a = state->name_map; a; a = a->next)
    if (a->set == set) return a;
  return nullptr;
}

ADDEDFNT* find_added_by_name(FS_STATE* state, const FILECHAR* name) {
  for (ADDEDFNT* a = state->name_map; a; a = a->next)
    if (FS_streq(a->name, name)) return a;
  return nullptr;
}

// Keeps a font set from the reclaim ladder's first step while a client call
// allocates around it: a set with both counts 0 is otherwise fair game.
struct SetHold {
  explicit SetHold(FNTSET* s) : set(s) {
    if (set) set->ref_count++;
  }
  ~SetHold() {
    if (set) set->ref_count--;
  }
  FNTSET* set;
};

// A set that a failed client call made and nobody holds is of no use: it
// goes at once rather than waiting for the ladder.
void drop_if_orphan(FS_STATE* state, FNTSET* set, bool was_new) {
  if (was_new && set != nullptr && set->ref_count == 0 &&
      set->count_added == 0) {
    FS_ULONG err = state->error;
    kill_fntset(state, set);
    state->error = err;
  }
}

// Frees a set that never reached the server's list, with its components.
void unwind_new_fntset(FS_STATE* state, FNTSET* set) {
  FS_ULONG err = state->error;
  if (set->cfnt != nullptr) {
    for (FS_USHORT i = 0; i < set->num_fonts; i++) CFNT_delete(state, &set->cfnt[i]);
    FSS_free(state, set->cfnt);
  }
  FSS_free(state, set->name);
  FSS_free(state, set->path);
  FSS_free(state, set->cmap);
  FSS_free(state, set->gdef);
  FSS_free(state, set->gsub);
  FSS_free(state, set->gpos);
  FSS_free(state, set->kern);
  FSS_free(state, set);
  state->error = err ? err : (FS_ULONG)ERR_BAD_ARGUMENT;
}

// A linked font's component `i` on the set: its font's place, its LFNT
// (found, or made and not loaded: a component that can't be opened doesn't
// stop the set), coverage, size adjustments and synthetic style.
FS_LONG init_linked_component(FS_STATE* state, FNTSET* set, FsLtt* ltt,
                              FS_USHORT i, const FILECHAR* lttPath) {
  const FsLttComponent* c = &ltt->components[i];
  CFNT* cfnt = &set->cfnt[i];
  FsLttPlace place;
  FS_LONG err = FsLttComponent_place(state, c, lttPath, set->memptr,
                                     set->data_offset, &place);
  if (err != 0) return err;
  const FILECHAR* path = place.memptr ? nullptr : place.path;
  // A component inside a linked font in memory of known length must lie
  // within it (a length of 0 takes the rest); one that doesn't can't be
  // loaded, like a file that can't be opened.
  bool outside = false;
  if (place.memptr != nullptr && place.memptr == set->memptr && set->data_length != 0) {
    FS_UINT64 end = (FS_UINT64)set->data_offset + set->data_length;
    if (place.length == 0 && place.offset < end) place.length = (FS_ULONG)(end - place.offset);
    outside = (FS_UINT64)place.offset + place.length > end || place.length < 3;
  }
  FS_BYTE type = outside ? FNT_TYPE_UNREADABLE
                         : fontfile_type(state, path, place.memptr, place.offset);
  err = FS_SERVER_init_CFNT(state, cfnt, type, path, place.memptr, c->ttcIndex,
                            place.offset, place.length);
  if (err != 0) return err;
  if (i == ltt->mtrxComponent) set->metric_font = cfnt->lfnt;
  cfnt->bmp = {c->bmp.range1, c->bmp.range2};
  cfnt->smp = {c->smp.range1, c->smp.range2};
  cfnt->sip = {c->sip.range1, c->sip.range2};
  cfnt->ssp = {c->ssp.range1, c->ssp.range2};
  cfnt->adjOffset = c->adjustmentsOffset;
  cfnt->numAdjust = c->numAdjustments;
  if (c->bold) {
    cfnt->embolden = 1;
    cfnt->bold_pct = varmul_64(c->boldPercent, 655, 16);  // percent to 16.16
  }
  if (c->italic) {
    // Degrees to radians, then the tangent's first two terms a + a^3 / 3.
    cfnt->italicize = 1;
    FS_FIXED a = varmul_64(c->italicAngle, 1144, 16);
    FS_FIXED cube = varmul_64(varmul_64(a, a, 16), a, 16);
    cfnt->italic_angle = a + vardiv_64(cube, 196608, 16);
  }
  if (i > 0) {
    const FsLttComponent* prev = &ltt->components[i - 1];
    cfnt->start_index = (FS_USHORT)(set->cfnt[i - 1].start_index +
                                    prev->numGlyphs + prev->numIcons);
  }
  LFNT* lfnt = cfnt->lfnt;
  if (lfnt->name == nullptr) {
    lfnt->name = FS_strdup(state, c->fontName ? c->fontName : "");
    if (lfnt->name == nullptr) return fail(state, ERR_MALLOC_FAIL);
  }
  cfnt->name = lfnt->name;
  return 0;
}

// A linked font's table record, or null for a table it doesn't hold. False
// when the heap refuses.
bool set_ot_table(FS_STATE* state, const FsLttOtTable& t,
                  FNTSET_OT_TABLE** out) {
  *out = nullptr;
  if (t.offset == 0) return true;
  *out = (FNTSET_OT_TABLE*)FSS_malloc(state, sizeof(FNTSET_OT_TABLE));
  if (*out == nullptr) return false;
  (*out)->offset = t.offset;
  (*out)->size = t.size;
  return true;
}

// Builds a linked font's set: reads its header, then one component per
// entry, each on its font's LFNT, numbered on from the one before. Any
// failure unwinds the components already made and the set, and returns null
// with the error (521 when none is given).
FNTSET* create_linked_FNTSET(FS_STATE* state, FNTSET* set,
                             const FILECHAR* lttPath) {
  FsLtt ltt;
  FsLtt_init(&ltt, state);
  FS_LONG err;
  if (set->memptr != nullptr) {
    err = FsLtt_load(&ltt, set->memptr + set->data_offset, set->data_length, 0);
  } else {
    FS_FILE* fp = FS_open(state, set->path);
    err = fp == nullptr ? (FS_LONG)state->error : FsLtt_read(&ltt, fp, 0);
    if (fp != nullptr) {
      FS_ULONG keep = state->error;
      FS_close(state, fp);
      state->error = keep;
    }
  }
  if (err == 0) {
    set->name = FS_strdup(state, ltt.name ? ltt.name : "");
    if (set->name == nullptr) err = ERR_MALLOC_FAIL;
  }
  if (err == 0) {
    set->name_offset = ltt.ttf_name.offset;
    set->name_size = ltt.ttf_name.size;
    set->maxp_offset = ltt.maxp_off;
    set->os_2_offset = ltt.os_2_off;
    set->head_offset = ltt.head_off;
    set->hhea_offset = ltt.hhea_off;
    set->vhea_offset = ltt.vhea_off;
    set->post_offset = ltt.post_off;
    if (!set_ot_table(state, ltt.cmap, &set->cmap) ||
        !set_ot_table(state, ltt.gdef, &set->gdef) ||
        !set_ot_table(state, ltt.gsub, &set->gsub) ||
        !set_ot_table(state, ltt.gpos, &set->gpos) ||
        !set_ot_table(state, ltt.kern, &set->kern))
      err = ERR_MALLOC_FAIL;
  }
  if (err == 0) {
    set->cfnt = (CFNT*)FSS_calloc(state, (FS_ULONG)ltt.numComponents * sizeof(CFNT));
    if (set->cfnt == nullptr) err = ERR_MALLOC_FAIL;
  }
  for (FS_USHORT i = 0; err == 0 && i < ltt.numComponents; i++) {
    set->num_fonts = (FS_USHORT)(i + 1);  // what the unwinding undoes
    err = init_linked_component(state, set, &ltt, i, lttPath);
  }
  FsLtt_done(&ltt);
  if (err != 0) {
    state->error = (FS_ULONG)err;
    unwind_new_fntset(state, set);
    return nullptr;
  }
  // A metric component beyond the list: the first one speaks for the set.
  if (set->metric_font == nullptr) set->metric_font = set->cfnt[0].lfnt;
  set->ref_count = 0;
  set->count_added = 0;
  set->next = state->server->font_sets;
  state->server->font_sets = set;
  state->error = SUCCESS;
  return set;
}

// The component named `name` of a set of several fonts (a linked font);
// null for a set of one font, which is found by its own name instead.
CFNT* FNTSET_find_named_CFNT(FNTSET* set, const FILECHAR* name) {
  if (set == nullptr || set->num_fonts < 2 || set->cfnt == nullptr)
    return nullptr;
  for (FS_USHORT i = 0; i < set->num_fonts; i++)
    if (FS_streq(set->cfnt[i].name, name)) return &set->cfnt[i];
  return nullptr;
}

// A set of the component's own file, found or made: what setting a
// component by name makes current.
FNTSET* FS_STATE_create_temp_FNTSET(FS_STATE* state, CFNT* cfnt) {
  LFNT* lfnt = cfnt->lfnt;
  if (lfnt == nullptr) {
    state->error = ERR_FONT_NOT_FOUND;
    return nullptr;
  }
  return FS_SERVER_get_FNTSET(state, lfnt->memptr ? nullptr : lfnt->path,
                              lfnt->memptr, lfnt->index, lfnt->data_offset,
                              lfnt->data_length, lfnt->path);
}

// The set a name stands for, as FSS_set_font resolves it; null with 301.
// `made` tells whether a temporary set had to be found or made.
FNTSET* resolve_font_name(FS_STATE* state, const FILECHAR* name, bool* made) {
  *made = false;
  for (FS_STATE* s = state; s; s = s->parent) {
    for (ADDEDFNT* a = s->name_map; a; a = a->next)
      if (FS_streq(a->name, name)) return a->set;
  }
  CFNT* cfnt = FNTSET_find_named_CFNT(state->cur_typeset.fntset, name);
  for (ADDEDFNT* a = state->name_map; a && cfnt == nullptr; a = a->next)
    cfnt = FNTSET_find_named_CFNT(a->set, name);
  if (cfnt == nullptr) {
    state->error = ERR_FONT_NOT_FOUND;
    return nullptr;
  }
  *made = true;
  return FS_STATE_create_temp_FNTSET(state, cfnt);
}

}  // namespace

/* ---- Identity ---- */

FS_ULONG FNTSET_checksum(const FS_BYTE* memptr, FS_ULONG length) {
  if (memptr == nullptr) return 0;
  FS_ULONG words = 200;
  if (length != 0 && length / 2 < words) words = length / 2;
  FS_ULONG sum = 0;
  for (FS_ULONG i = 0; i < words; i++) {
    FS_USHORT w;
    memcpy(&w, memptr + 2 * i, 2);  // host order, unaligned safe
    sum += w;
  }
  return sum;
}

namespace {

// Whether record `r` (a loaded font or a font set) was made from the same
// source: the same path and offsets, or for fonts in memory the same image,
// offsets and checksum. A path on one side only is another font.
template <typename Record>
bool same_source(const Record* r, const FILECHAR* path, const FS_BYTE* memptr,
                 FS_ULONG data_offset, FS_ULONG data_length,
                 FS_ULONG checksum) {
  if (r->path != nullptr && path != nullptr)
    return strcmp(r->path, path) == 0 && r->data_offset == data_offset &&
           r->data_length == data_length;
  if (r->path == nullptr && path == nullptr)
    return r->memptr == memptr && r->data_offset == data_offset &&
           r->data_length == data_length && r->checksum == checksum;
  return false;  // a path on one side only
}

}  // namespace

FS_BOOLEAN FNTSET_same_file(const FNTSET* set, const FILECHAR* path,
                            const FS_BYTE* memptr, FS_ULONG data_offset,
                            FS_ULONG data_length, FS_ULONG checksum) {
  return same_source(set, path, memptr, data_offset, data_length, checksum);
}

FS_BOOLEAN FNTSET_same_font(const FNTSET* set, const FILECHAR* path,
                            const FS_BYTE* memptr, FS_ULONG index,
                            FS_ULONG data_offset, FS_ULONG data_length,
                            FS_ULONG checksum) {
  if (!FNTSET_same_file(set, path, memptr, data_offset, data_length, checksum))
    return 0;
  if (set->num_fonts == 1 && set->cfnt != nullptr &&
      set->cfnt[0].lfnt != nullptr && set->cfnt[0].lfnt->fnt_type == FNT_TYPE_TTC)
    return set->cfnt[0].lfnt->index == index;
  return 1;
}

FS_BOOLEAN LFNT_same_file(const LFNT* lfnt, const FILECHAR* path,
                          const FS_BYTE* memptr, FS_ULONG data_offset,
                          FS_ULONG data_length, FS_ULONG checksum) {
  return same_source(lfnt, path, memptr, data_offset, data_length, checksum);
}

FS_BOOLEAN LFNT_same_font(const LFNT* lfnt, const FILECHAR* path,
                          const FS_BYTE* memptr, FS_ULONG index,
                          FS_ULONG data_offset, FS_ULONG data_length,
                          FS_ULONG checksum) {
  if (!LFNT_same_file(lfnt, path, memptr, data_offset, data_length, checksum))
    return 0;
  // A collection's members share the file; a plain font ignores the index,
  // as its loader does.
  if (lfnt->fnt_type == FNT_TYPE_TTC) return lfnt->index == index;
  return 1;
}

/* ---- Loading ---- */

FS_BYTE fontfile_type(FS_STATE* state, const FILECHAR* path,
                      const FS_BYTE* memptr, FS_ULONG data_offset) {
  FS_BYTE head[3];
  if (memptr != nullptr) {
    memcpy(head, memptr + data_offset, 3);
  } else {
    FS_FILE* fp = FS_open(state, path);
    if (fp == nullptr) return FNT_TYPE_UNREADABLE;
    bool ok = FS_seek(state, fp, (FS_LONG)data_offset, SEEK_SET) == 0 &&
              FS_read(state, fp, head, 3) == 3;
    FS_ULONG err = state->error;
    FS_close(state, fp);
    if (!ok) {
      state->error = err ? err : (FS_ULONG)ERR_FILE_READ;
      return FNT_TYPE_UNREADABLE;
    }
  }
  state->error = SUCCESS;
  if (head[0] == 'P') return FNT_TYPE_NO_SCALER;
  if (memcmp(head, "OTT", 3) == 0) return FNT_TYPE_CFF;
  if (memcmp(head, "LTT", 3) == 0) return FNT_TYPE_LINKED;
  return FNT_TYPE_TTF;
}

void load_cmap_cache(FS_STATE* state, LFNT* lfnt) {
  TTF* ttf = (TTF*)lfnt->fnt;
  if (lfnt->cmap_cache != nullptr || ttf == nullptr || ttf->maxp == nullptr)
    return;
  FS_ULONG n = ttf->maxp->numGlyphs / 10;
  if (n < 256) n = 256;
  FS_ULONG lower = 256;
  while (lower * 2 <= n) lower *= 2;
  FS_ULONG size = (n - lower < lower * 2 - n) ? lower : lower * 2;
  FS_ULONG err = state->error;
  lfnt->cmap_cache =
      (FS_CMAP_CACHE*)FSS_calloc(state, size * sizeof(FS_CMAP_CACHE));
  lfnt->cmap_cache_mod = lfnt->cmap_cache ? (FS_USHORT)(size - 1) : 0;
  state->error = err;  // no cache is no failure
}

namespace {

bool has_table(FS_STATE* state, TTF* ttf, FS_ULONG tag) {
  FS_ULONG err = state->error;
  bool found = get_ttf_table_info(state, ttf, tag, nullptr, nullptr) != 0;
  state->error = err;
  return found;
}

// The font's properties from its tables and `head.glyphDataFormat`.
void classify_font(FS_STATE* state, LFNT* lfnt, TTF* ttf) {
  FS_LONG format = (FS_SHORT)ttf->head->glyphDataFormat;
  bool adfh = has_table(state, ttf, TAG_ADFH);
  if (adfh) lfnt->fontflags = FONTFLAG_ADFH;  // replaces all else so far
  if (has_table(state, ttf, TAG_CFF)) lfnt->fontflags |= FONTFLAG_CFF;
  if (ttf->hhea->horizontalCaretSlopeDenominator != 0)
    lfnt->fontflags |= FONTFLAG_SLANTED_CARET;
  else
    lfnt->fontflags &= ~FONTFLAG_SLANTED_CARET;
  if ((format >= 0x0200 && format <= 0x02FF) ||
      (format >= 0x0602 && format <= 0x06FF)) {
    lfnt->fontflags |= FONTFLAG_STROKE | FONTFLAG_CCC;
  } else if (format == (FS_SHORT)0x9654 || format == (FS_SHORT)0x9655) {
    lfnt->fontflags |= FONTFLAG_STROKE;
  } else if (format >= 0x0400 && format <= 0x04FF) {
    lfnt->fontflags |= FONTFLAG_CCC;
  } else if (format >= 0x0500 && format <= 0x05FF) {
    lfnt->fontflags |= FONTFLAG_DDD;
    if (!adfh) state->error = ERR_BAD_TYPE;
  } else if (format >= 0x0700 && format <= 0x07FF) {
    lfnt->fontflags |= FONTFLAG_STROKE | FONTFLAG_DDD;
    if (!adfh) state->error = ERR_BAD_TYPE;
  }
  if (format == (FS_SHORT)0x9655 || format == 0x0602)
    lfnt->fontflags |= FONTFLAG_STIK_64 | FONTFLAG_STIK_128;
  if (ttf->decomp != nullptr) lfnt->fontflags |= FONTFLAG_COMPRESSED;
}

}  // namespace

FS_LONG load_fnt(FS_STATE* state, LFNT* lfnt) {
  if (lfnt->fnt != nullptr) return fail(state, SUCCESS);  // already loaded
  lfnt->fontflags &= ~(FS_ULONG)(2 | 4 | 8 | 16 | 32 | 256);
  lfnt->loading = 1;
  if (!has_ttf_type(lfnt->fnt_type)) {
    lfnt->fnt = nullptr;
    lfnt->loading = 0;
    return fail(state, lfnt->fnt_type == FNT_TYPE_NO_SCALER
                           ? ERR_FONT_TYPE_UNSUPPORTED
                           : ERR_FONT_NOT_LOADED);
  }
  FILECHAR* path = lfnt->memptr ? nullptr : lfnt->path;
  state->error = SUCCESS;
  TTF* ttf = load_ttf(state, path, lfnt->memptr, lfnt->index,
                      lfnt->data_offset, lfnt->data_length, 0, lfnt->fnt_type);
  lfnt->fnt = ttf;
  if (ttf == nullptr) {
    lfnt->loading = 0;
    // A font without outlines or bitmaps is refused with no cause given:
    // it has no data to use.
    return fail(state, state->error ? state->error : (FS_ULONG)ERR_FONT_NOT_LOADED);
  }
  state->error = SUCCESS;
  load_cmap_cache(state, lfnt);
  classify_font(state, lfnt, ttf);
  lfnt->loading = 0;
  return (FS_LONG)state->error;
}

/* ---- Server level ---- */

// Checksum of a font image in memory, over its bytes up to the end of the
// font's data (the whole image when no length is known); 0 for a file font.
static FS_ULONG image_checksum(const FS_BYTE* memptr, FS_ULONG data_offset,
                               FS_ULONG data_length) {
  return FNTSET_checksum(memptr, data_length ? data_offset + data_length : 0);
}

// The first record of `list` (loaded fonts or font sets, linked by `next`)
// that `same` finds to be the font at `path` or `memptr` with its index and
// offsets; null when there is none.
template <typename Record>
static Record* find_font_record(
    Record* list,
    FS_BOOLEAN (*same)(const Record*, const FILECHAR*, const FS_BYTE*,
                       FS_ULONG, FS_ULONG, FS_ULONG, FS_ULONG),
    const FILECHAR* path, FS_BYTE* memptr, FS_ULONG index,
    FS_ULONG data_offset, FS_ULONG data_length) {
  FS_ULONG sum = image_checksum(memptr, data_offset, data_length);
  for (Record* r = list; r; r = r->next)
    if (same(r, path, memptr, index, data_offset, data_length, sum)) return r;
  return nullptr;
}

// A zeroed loaded font or font set that knows its font: its own copy of
// `path` (when there is one), the memory image, the offsets and the
// checksum. Null when out of memory; when the path cannot be copied the
// record goes again and the error is `path_error`.
template <typename Record>
static Record* new_font_record(FS_STATE* state, const FILECHAR* path,
                               FS_BYTE* memptr, FS_ULONG data_offset,
                               FS_ULONG data_length, FS_ULONG path_error) {
  Record* r = (Record*)FSS_calloc(state, sizeof(Record));
  if (r == nullptr) return nullptr;
  if (path != nullptr && path[0] != 0) {
    r->path = FS_strdup(state, path);
    if (r->path == nullptr) {
      FSS_free(state, r);
      state->error = path_error;
      return nullptr;
    }
  }
  r->memptr = memptr;
  r->data_offset = data_offset;
  r->data_length = data_length;
  r->checksum = image_checksum(memptr, data_offset, data_length);
  return r;
}

LFNT* FS_SERVER_find_LFNT(FS_STATE* state, const FILECHAR* path,
                          FS_BYTE* memptr, FS_ULONG index,
                          FS_ULONG data_offset, FS_ULONG data_length) {
  return find_font_record(state->server->loaded_fonts, LFNT_same_font, path,
                          memptr, index, data_offset, data_length);
}

LFNT* FS_SERVER_create_LFNT(FS_STATE* state, FS_BYTE fnt_type,
                            const FILECHAR* path, FS_BYTE* memptr,
                            FS_ULONG index, FS_ULONG data_offset,
                            FS_ULONG data_length) {
  LFNT* lfnt = new_font_record<LFNT>(state, path, memptr, data_offset,
                                     data_length, ERR_MALLOC_FAIL);
  if (lfnt == nullptr) return nullptr;
  lfnt->index = index;
  lfnt->fnt_type = fnt_type;
  lfnt->fntset_refs = 0;
  lfnt->loading = 0;
  lfnt->next = state->server->loaded_fonts;
  state->server->loaded_fonts = lfnt;
  if (has_ttf_type(fnt_type)) load_cmap_cache(state, lfnt);  // none yet
  state->error = SUCCESS;
  return lfnt;
}

LFNT* FS_SERVER_get_LFNT(FS_STATE* state, FS_BYTE fnt_type,
                         const FILECHAR* path, FS_BYTE* memptr, FS_ULONG index,
                         FS_ULONG data_offset, FS_ULONG data_length) {
  LFNT* lfnt =
      FS_SERVER_find_LFNT(state, path, memptr, index, data_offset, data_length);
  if (lfnt != nullptr) return lfnt;
  return FS_SERVER_create_LFNT(state, fnt_type, path, memptr, index,
                               data_offset, data_length);
}

FS_LONG FS_SERVER_load_LFNT(FS_STATE* state, LFNT* lfnt) {
  FS_LONG err = load_fnt(state, lfnt);
  if (err != 0) {
    delete_lfnt(state, lfnt);
    return fail(state, (FS_ULONG)err);
  }
  TTF* ttf = (TTF*)lfnt->fnt;
  if (lfnt->fnt_type == FNT_TYPE_TTF && ttf->ttc_header != nullptr)
    lfnt->fnt_type = FNT_TYPE_TTC;
  if (lfnt->name == nullptr) {
    lfnt->name = FS_strdup(state, ttf->name ? ttf->name->font_name : nullptr);
    if (lfnt->name == nullptr) {
      FS_ULONG code = state->error ? state->error : (FS_ULONG)ERR_FONT_NOT_LOADED;
      delete_lfnt(state, lfnt);
      return fail(state, code);
    }
  }
  return fail(state, SUCCESS);
}

FS_LONG FS_SERVER_init_CFNT(FS_STATE* state, CFNT* cfnt, FS_BYTE fnt_type,
                            const FILECHAR* path, FS_BYTE* memptr,
                            FS_ULONG index, FS_ULONG data_offset,
                            FS_ULONG data_length) {
  LFNT* lfnt = FS_SERVER_get_LFNT(state, fnt_type, path, memptr, index,
                                  data_offset, data_length);
  if (lfnt == nullptr) return (FS_LONG)state->error;
  cfnt->lfnt = lfnt;
  cfnt->name = lfnt->name;
  lfnt->fntset_refs++;
  return 0;
}

FS_LONG FS_SERVER_create_CFNT(FS_STATE* state, CFNT* cfnt, FS_BYTE fnt_type,
                              const FILECHAR* path, FS_BYTE* memptr,
                              FS_ULONG index, FS_ULONG data_offset,
                              FS_ULONG data_length) {
  FS_LONG err = FS_SERVER_init_CFNT(state, cfnt, fnt_type, path, memptr, index,
                                    data_offset, data_length);
  if (err != 0) return err;
  cfnt->bmp.range1 = cfnt->bmp.range2 = kAllOnes;
  cfnt->smp.range1 = cfnt->smp.range2 = kAllOnes;
  cfnt->sip.range1 = cfnt->sip.range2 = kAllOnes;
  cfnt->ssp.range1 = cfnt->ssp.range2 = kAllOnes;
  return 0;
}

void CFNT_delete(FS_STATE* state, CFNT* cfnt) {
  LFNT* lfnt = cfnt->lfnt;
  if (lfnt != nullptr) {
    if (lfnt->fntset_refs > 0) lfnt->fntset_refs--;
    if (lfnt->fntset_refs == 0) delete_lfnt(state, lfnt);
  }
  cfnt->lfnt = nullptr;
  cfnt->name = nullptr;
}

FNTSET* FS_SERVER_find_FNTSET(FS_STATE* state, const FILECHAR* path,
                              FS_BYTE* memptr, FS_ULONG index,
                              FS_ULONG data_offset, FS_ULONG data_length) {
  return find_font_record(state->server->font_sets, FNTSET_same_font, path,
                          memptr, index, data_offset, data_length);
}

FNTSET* FS_SERVER_create_FNTSET(FS_STATE* state, const FILECHAR* path,
                                FS_BYTE* memptr, FS_ULONG index,
                                FS_ULONG data_offset, FS_ULONG data_length,
                                const FILECHAR* lttPath) {
  if ((path == nullptr || path[0] == 0) && memptr == nullptr) {
    state->error = ERR_FONT_NOT_FOUND;
    return nullptr;
  }
  // Memory shorter than the 3 bytes that tell the type holds no font.
  if (memptr != nullptr && data_length != 0 && data_length < 3) {
    state->error = ERR_NOT_A_TTF;
    return nullptr;
  }
  FNTSET* set = new_font_record<FNTSET>(state, path, memptr, data_offset,
                                        data_length, ERR_FONT_NOT_FOUND);
  if (set == nullptr) return nullptr;

  FS_BYTE type = fontfile_type(state, path, memptr, data_offset);
  if (type == FNT_TYPE_UNREADABLE) {
    unwind_new_fntset(state, set);
    return nullptr;
  }
  if (type == FNT_TYPE_LINKED) return create_linked_FNTSET(state, set, lttPath);

  set->cfnt = (CFNT*)FSS_calloc(state, sizeof(CFNT));
  if (set->cfnt == nullptr) {
    unwind_new_fntset(state, set);
    return nullptr;
  }
  if (FS_SERVER_create_CFNT(state, set->cfnt, type, path, memptr, index,
                            data_offset, data_length) != 0) {
    unwind_new_fntset(state, set);
    return nullptr;
  }
  set->num_fonts = 1;
  LFNT* lfnt = set->cfnt->lfnt;
  if (set->cfnt->name == nullptr) {
    // A new loaded font: open it now, so that a bad file fails at adding.
    if (FS_SERVER_load_LFNT(state, lfnt) != 0) {
      set->cfnt->lfnt = nullptr;  // already deleted
      unwind_new_fntset(state, set);
      return nullptr;
    }
    set->cfnt->name = lfnt->name;
  }
  set->name = FS_strdup(state, set->cfnt->name);
  if (set->name == nullptr) {
    state->error = ERR_MALLOC_FAIL;
    unwind_new_fntset(state, set);
    return nullptr;
  }
  set->metric_font = lfnt;
  set->ref_count = 0;
  set->count_added = 0;
  set->next = state->server->font_sets;
  state->server->font_sets = set;
  state->error = SUCCESS;
  return set;
}

FNTSET* FS_SERVER_get_FNTSET(FS_STATE* state, const FILECHAR* path,
                             FS_BYTE* memptr, FS_ULONG index,
                             FS_ULONG data_offset, FS_ULONG data_length,
                             const FILECHAR* lttPath) {
  FNTSET* set =
      FS_SERVER_find_FNTSET(state, path, memptr, index, data_offset, data_length);
  if (set != nullptr) {
    state->error = SUCCESS;
    return set;
  }
  return FS_SERVER_create_FNTSET(state, path, memptr, index, data_offset,
                                 data_length, lttPath);
}

/* ---- Client names ---- */

FS_LONG FS_STATE_unique_fntset_name(FS_STATE* state, const FILECHAR* seed,
                                    FILECHAR* name, FS_ULONG name_len) {
  if (name == nullptr || name_len < 2) return fail(state, ERR_FONT_NAME_TOO_LONG);
  if (seed == nullptr) seed = "";
  static const char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  std::string candidate = std::string(seed).substr(0, name_len - 1);
  for (FS_ULONG i = 0;
       find_added_by_name(state, candidate.c_str()) != nullptr && i < 0x7FFFFFFF;
       i++) {
    std::string prefix;
    FS_ULONG v = i;
    do {
      prefix += kDigits[v % 52];
      v /= 52;
    } while (v != 0);
    if (prefix.size() < name_len - 1) prefix += ' ';
    candidate = (prefix + seed).substr(0, name_len - 1);
  }
  memcpy(name, candidate.c_str(), candidate.size() + 1);
  return fail(state, SUCCESS);
}

FS_LONG FS_STATE_add_named_FNTSET(FS_STATE* state, const FILECHAR* name,
                                  FNTSET* set) {
  ADDEDFNT* added = (ADDEDFNT*)FSS_calloc(state, sizeof(ADDEDFNT));
  if (added == nullptr) return fail(state, ERR_MALLOC_FAIL);
  added->name = FS_strdup(state, name);
  if (added->name == nullptr) {
    FSS_free(state, added);
    return fail(state, ERR_MALLOC_FAIL);
  }
  added->set = set;
  added->add_count = 1;
  added->next = state->name_map;
  state->name_map = added;
  set->count_added++;
  return fail(state, SUCCESS);
}

/* ---- Client calls ---- */

namespace {

// Shared by loading and naming: the set for the font, and whether this call
// made it.
FNTSET* get_set_for_client(FS_STATE* state, const FILECHAR* path,
                           FS_BYTE* memptr, FS_ULONG index,
                           FS_ULONG data_offset, FS_ULONG data_length,
                           bool* was_new) {
  // With memory the path only names the folder of a linked font's parts.
  const FILECHAR* file_path = memptr ? nullptr : path;
  FNTSET* set = FS_SERVER_find_FNTSET(state, file_path, memptr, index,
                                      data_offset, data_length);
  *was_new = set == nullptr;
  if (set != nullptr) return set;
  return FS_SERVER_create_FNTSET(state, file_path, memptr, index, data_offset,
                                 data_length, path);
}

}  // namespace

FS_LONG FSS_load_font_with_offset(FS_STATE* state, const FILECHAR* path,
                                  FS_BYTE* memptr, FS_ULONG index,
                                  FS_ULONG data_offset, FS_ULONG data_length,
                                  FS_ULONG name_len, FILECHAR* name) {
  if (state == nullptr || state->server == nullptr) return ERR_BAD_ARGUMENT;
  bool was_new = false;
  FNTSET* set = get_set_for_client(state, path, memptr, index, data_offset,
                                   data_length, &was_new);
  if (set == nullptr) return (FS_LONG)state->error;
  ADDEDFNT* added = find_added_by_set(state, set);
  if (added != nullptr) {
    if (!copy_name(added->name, name, name_len))
      return fail(state, ERR_FONT_NAME_TOO_LONG);
    added->add_count++;
    return fail(state, SUCCESS);
  }
  FS_LONG err = FS_STATE_unique_fntset_name(state, set->name, name, name_len);
  if (err == 0) {
    SetHold hold(set);
    err = FS_STATE_add_named_FNTSET(state, name, set);
  }
  if (err != 0) drop_if_orphan(state, set, was_new);
  return err;
}

FS_LONG FSS_load_font(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr,
                      FS_ULONG index, FS_ULONG name_len, FILECHAR* name) {
  return FSS_load_font_with_offset(state, path, memptr, index, 0, 0, name_len,
                                   name);
}

FS_LONG FSS_add_font_with_offset(FS_STATE* state, const FILECHAR* name,
                                 const FILECHAR* path, FS_BYTE* memptr,
                                 FS_ULONG index, FS_ULONG data_offset,
                                 FS_ULONG data_length) {
  if (state == nullptr || state->server == nullptr) return ERR_BAD_ARGUMENT;
  if (name != nullptr && name[0] == 0) return fail(state, ERR_BAD_ARGUMENT);
  bool was_new = false;
  FNTSET* set = get_set_for_client(state, path, memptr, index, data_offset,
                                   data_length, &was_new);
  if (set == nullptr) return (FS_LONG)state->error;
  ADDEDFNT* added = find_added_by_set(state, set);
  if (added != nullptr) {
    if (name != nullptr && !FS_streq(name, added->name))
      return fail(state, ERR_FONT_NAME_IN_USE);
    added->add_count++;
    return fail(state, SUCCESS);
  }
  FS_LONG err;
  if (name != nullptr && find_added_by_name(state, name) != nullptr) {
    err = fail(state, ERR_FONT_NAME_NOT_UNIQUE);
  } else {
    SetHold hold(set);
    FILECHAR unique[kUniqueNameBuffer];
    if (name == nullptr) {
      err = FS_STATE_unique_fntset_name(state, set->name, unique,
                                        kUniqueNameBuffer);
      name = unique;
    } else {
      err = 0;
    }
    if (err == 0) err = FS_STATE_add_named_FNTSET(state, name, set);
  }
  if (err != 0) drop_if_orphan(state, set, was_new);
  return err;
}

FS_LONG FSS_add_font(FS_STATE* state, const FILECHAR* name,
                     const FILECHAR* path, FS_BYTE* memptr, FS_ULONG index) {
  return FSS_add_font_with_offset(state, name, path, memptr, index, 0, 0);
}

FS_LONG FSS_set_font(FS_STATE* state, const FILECHAR* name) {
  if (state == nullptr || state->server == nullptr) return ERR_BAD_ARGUMENT;
  bool made = false;
  FNTSET* set = resolve_font_name(state, name, &made);
  if (set == nullptr) return (FS_LONG)state->error;
  if (set == state->cur_typeset.fntset) return fail(state, SUCCESS);
  TYPESET_clear(state, &state->cur_typeset);
  state->cur_lfnt = nullptr;
  state->cur_sfnt = nullptr;
  FS_LONG err = TYPESET_init(state, &state->cur_typeset, set);
  if (err != 0) return fail(state, (FS_ULONG)err);
  return fail(state, SUCCESS);
}

FS_BOOLEAN any_sfnts_dependent_on_unshared_lfnts(FS_STATE* state,
                                                 FNTSET* set) {
  for (FS_USHORT i = 0; set->cfnt != nullptr && i < set->num_fonts; i++) {
    LFNT* lfnt = set->cfnt[i].lfnt;
    if (lfnt == nullptr || lfnt->fntset_refs >= 2) continue;
    for (SFNT* sfnt = state->server->scaled_fonts; sfnt; sfnt = sfnt->next)
      if (sfnt->lfnt == lfnt && sfnt->active_count > 0) return 1;
  }
  return 0;
}

FS_LONG FSS_delete_font(FS_STATE* state, const FILECHAR* name) {
  if (state == nullptr || state->server == nullptr) return ERR_BAD_ARGUMENT;
  ADDEDFNT** link = &state->name_map;
  while (*link != nullptr && !FS_streq((*link)->name, name)) link = &(*link)->next;
  ADDEDFNT* added = *link;
  if (added == nullptr) return fail(state, ERR_FONT_NOT_FOUND);
  FNTSET* set = added->set;
  if (added->add_count > 1) {
    added->add_count--;
    return fail(state, SUCCESS);
  }
  if (added->add_count == 0 || set->count_added == 0)
    return fail(state, ERR_DELETE_FONT);
  if (set->count_added == 1 &&
      (any_sfnts_dependent_on_unshared_lfnts(state, set) ||
       any_used_fntset_or_unshared_lfnt_table_ptrs(state, set)))
    return fail(state, ERR_FONT_IN_USE);
  if (state->cur_typeset.fntset == set) {
    TYPESET_clear(state, &state->cur_typeset);
    state->cur_lfnt = nullptr;
    state->cur_sfnt = nullptr;
    state->platform = 0xFFFF;
    state->encoding = 0xFFFF;
  }
  set->count_added--;
  added->add_count--;
  *link = added->next;
  FSS_free(state, added->name);
  FSS_free(state, added);
  squeeze_table_ptrs(state, set);
  if (set->ref_count == 0 && set->count_added == 0) kill_fntset(state, set);
  return fail(state, SUCCESS);
}

FS_LONG FSS_font_name_with_offset(FS_STATE* state, const FILECHAR* path,
                                  FS_BYTE* memptr, FS_ULONG index,
                                  FS_ULONG data_offset, FS_ULONG data_length,
                                  FS_ULONG name_len, FILECHAR* name) {
  if (state == nullptr || state->server == nullptr) return ERR_BAD_ARGUMENT;
  bool was_new = false;
  FNTSET* set = get_set_for_client(state, path, memptr, index, data_offset,
                                   data_length, &was_new);
  if (set == nullptr) return (FS_LONG)state->error;
  ADDEDFNT* added = find_added_by_set(state, set);
  if (added != nullptr) {
    if (!copy_name(added->name, name, name_len))
      return fail(state, ERR_FONT_NAME_TOO_LONG);
    return fail(state, SUCCESS);
  }
  return FS_STATE_unique_fntset_name(state, set->name, name, name_len);
}

FS_LONG FSS_font_name(FS_STATE* state, const FILECHAR* path, FS_BYTE* memptr,
                      FS_ULONG index, FS_ULONG name_len, FILECHAR* name) {
  return FSS_font_name_with_offset(state, path, memptr, index, 0, 0, name_len,
                                   name);
}

FS_LONG FSS_get_name(FS_STATE* state, FS_ULONG id, FS_ULONG name_len,
                     FILECHAR* name) {
  if (state == nullptr || state->server == nullptr) return ERR_BAD_ARGUMENT;
  FNTSET* set = state->cur_typeset.fntset;
  if (set == nullptr) return fail(state, ERR_NO_CURRENT_FONT);
  FS_USHORT component = 0;
  if (set->num_fonts > 1) {
    // The character mapping chooses the component that renders `id`.
    map_char(state, id, 0);
    if (state->error != SUCCESS) return (FS_LONG)state->error;
    component = state->cur_font;
  }
  if (set->cfnt == nullptr || component >= set->num_fonts ||
      set->cfnt[component].name == nullptr)
    return fail(state, ERR_FONT_NOT_LOADED);
  if (!copy_name(set->cfnt[component].name, name, name_len))
    return fail(state, ERR_FONT_NAME_TOO_LONG);
  return fail(state, SUCCESS);
}

FS_LONG FSS_get_font_path(FS_STATE* state, const FILECHAR* name,
                          FS_BYTE** memptr_p, FILECHAR* path_buffer,
                          FS_ULONG path_len, FS_ULONG* index_p) {
  if (state == nullptr || state->server == nullptr) return ERR_BAD_ARGUMENT;
  bool made = false;
  FNTSET* set = resolve_font_name(state, name, &made);
  if (set == nullptr) return (FS_LONG)state->error;
  LFNT* lfnt = set->metric_font;
  if (lfnt == nullptr && set->cfnt != nullptr) lfnt = set->cfnt[0].lfnt;
  FS_LONG err = 0;
  if (lfnt == nullptr) {
    err = ERR_FONT_NOT_LOADED;
  } else if (!copy_name(lfnt->path ? lfnt->path : "", path_buffer, path_len)) {
    err = ERR_FONT_NAME_TOO_LONG;
  } else {
    if (memptr_p != nullptr) *memptr_p = lfnt->memptr;
    if (index_p != nullptr) *index_p = lfnt->index;
  }
  if (made) drop_if_orphan(state, set, true);
  return fail(state, (FS_ULONG)err);
}

FS_BYTE FNTSET_getStyle(FS_STATE* state, FNTSET* set) {
  LFNT* lfnt = set->metric_font;
  if (lfnt == nullptr ||
      (lfnt->fnt_type != FNT_TYPE_TTF && lfnt->fnt_type != FNT_TYPE_TTC))
    return 4;
  if (lfnt->fnt == nullptr && load_fnt(state, lfnt) != 0) return 4;
  switch (((TTF*)lfnt->fnt)->head->macStyle & 3) {
    case 0: return 0;
    case 1: return 2;
    case 2: return 1;
    default: return 3;
  }
}

FS_BYTE FNTSET_getFace(FS_STATE* state, FNTSET* set) {
  LFNT* lfnt = set->metric_font;
  if (lfnt == nullptr || !has_ttf_type(lfnt->fnt_type)) return 2;
  if (lfnt->fnt == nullptr && load_fnt(state, lfnt) != 0) return 2;
  const TTF_OS2* os2 = ((TTF*)lfnt->fnt)->os2;
  if (os2 == nullptr) return 2;
  FS_BYTE family = os2->panose[0], proportion = os2->panose[3];
  if (family == 2 || family == 4) return proportion == 9 ? 1 : 0;
  if (family == 3 || family == 5) return proportion == 3 ? 1 : 0;
  return 2;
}

FS_LONG FSS_get_available_fonts(FS_STATE* state, FS_BYTE style, FS_BYTE face,
                                FILECHAR** list, FS_ULONG* length) {
  if (state == nullptr || state->server == nullptr || list == nullptr ||
      length == nullptr)
    return state ? fail(state, ERR_BAD_ARGUMENT) : ERR_BAD_ARGUMENT;
  *list = nullptr;
  *length = 0;
  FS_ULONG capacity = 256, used = 0;
  FILECHAR* buf = (FILECHAR*)FSS_malloc(state, capacity);
  if (buf == nullptr) return fail(state, ERR_MALLOC_FAIL);
  for (FS_STATE* s = state; s; s = s->parent) {
    for (ADDEDFNT* a = s->name_map; a; a = a->next) {
      if (style != 4 && FNTSET_getStyle(state, a->set) != style) continue;
      if (face != 2 && FNTSET_getFace(state, a->set) != face) continue;
      FS_ULONG n = (FS_ULONG)strlen(a->name) + 1;
      while (used + n + 1 > capacity) {
        FILECHAR* grown = (FILECHAR*)FSS_realloc(state, buf, capacity + 256);
        if (grown == nullptr) {
          FSS_free(state, buf);
          return fail(state, ERR_MALLOC_FAIL);
        }
        buf = grown;
        capacity += 256;
      }
      memcpy(buf + used, a->name, n);
      used += n;
    }
  }
  // The run of terminated names becomes one comma-separated string.
  if (used == 0) {
    buf[0] = 0;
  } else {
    for (FS_ULONG i = 0; i + 1 < used; i++)
      if (buf[i] == 0) buf[i] = ',';
  }
  *list = buf;
  *length = used ? used - 1 : 0;
  return fail(state, SUCCESS);
}

FS_LONG FSS_get_link_info(FS_STATE* state, const FILECHAR* path,
                          FS_BYTE* memptr, FsLtt* info) {
  if (state == nullptr) return ERR_BAD_ARGUMENT;
  if (info == nullptr) return fail(state, ERR_BAD_ARGUMENT);
  FsLtt_init(info, state);
  const FILECHAR* file = memptr ? nullptr : path;
  if (fontfile_type(state, file, memptr, 0) != FNT_TYPE_LINKED)
    return fail(state, ERR_LINK_INFO);
  if (memptr != nullptr) return FsLtt_load(info, memptr, 0, 0);
  FS_FILE* fp = FS_open(state, file);
  if (fp == nullptr) return (FS_LONG)state->error;
  FS_LONG err = FsLtt_read(info, fp, 0);
  FS_close(state, fp);
  return fail(state, (FS_ULONG)err);
}

FS_LONG FSUtil_loadFonts(FS_STATE* state, const MY_FONT* fonts) {
  if (state == nullptr || fonts == nullptr) return ERR_BAD_ARGUMENT;
  for (const MY_FONT* f = fonts; f->name != nullptr; f++) {
    std::string path;
    if (f->memptr == nullptr && f->path != nullptr)
      path = std::string("../Orvex/product/fontdata/") + f->path;
    FS_LONG err = FSS_add_font(state, f->name,
                               f->memptr ? f->path : path.c_str(), f->memptr,
                               f->index);
    if (err != 0) return err;
  }
  return fail(state, SUCCESS);
}
