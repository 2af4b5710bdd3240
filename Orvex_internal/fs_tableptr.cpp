// Lent font tables: where a tag's table comes from in the current font set,
// the loan through one counted record per owner and tag, the release, and
// the squeeze that frees what no one holds when a font set goes.
#include "Orvex_internal/fs_tableptr.h"

#include <string.h>

#include "Orvex_internal/fs_decomp.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_fio.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

constexpr FS_ULONG TAG_post = FS_MAKE_TAG('p', 'o', 's', 't');
constexpr FS_ULONG TAG_GSUB = FS_MAKE_TAG('G', 'S', 'U', 'B');
constexpr FS_ULONG TAG_GDEF = FS_MAKE_TAG('G', 'D', 'E', 'F');
constexpr FS_ULONG TAG_GPOS = FS_MAKE_TAG('G', 'P', 'O', 'S');

// Where a tag's table comes from in a font set: the set itself, with the
// place and the length it reports, or a component font.
struct TableSource {
  bool setLevel;
  FS_ULONG offset;
  FS_ULONG size;
  LFNT* owner;  // the component font when not set level
};

TableSource set_level(FS_ULONG offset, FS_ULONG size) {
  return {offset != 0, offset, size, nullptr};
}
TableSource set_level(const FNTSET_OT_TABLE* t) {
  return t ? TableSource{true, t->offset, t->size, nullptr}
           : TableSource{false, 0, 0, nullptr};
}

TableSource table_source(FNTSET* set, FS_ULONG tag) {
  TableSource s = {false, 0, 0, nullptr};
  bool firstComponent = false;
  switch (tag) {
    case TAG_head: s = set_level(set->head_offset, 56); break;
    case TAG_maxp: s = set_level(set->maxp_offset, 32); break;
    case TAG_post: s = set_level(set->post_offset, 32); break;
    case TAG_hhea: s = set_level(set->hhea_offset, 36); break;
    case TAG_vhea: s = set_level(set->vhea_offset, 36); break;
    case TAG_OS2: s = set_level(set->os_2_offset, 100); break;
    case TAG_name: s = set_level(set->name_offset, set->name_size); break;
    case TAG_cmap: s = set_level(set->cmap); break;
    case TAG_kern: s = set_level(set->kern); firstComponent = true; break;
    case TAG_GSUB: s = set_level(set->gsub); firstComponent = true; break;
    case TAG_GDEF: s = set_level(set->gdef); firstComponent = true; break;
    case TAG_GPOS: s = set_level(set->gpos); firstComponent = true; break;
    default: break;
  }
  if (s.setLevel) return s;
  s.owner = set->metric_font;
  if (firstComponent && set->num_fonts != 0 && set->cfnt != nullptr)
    s.owner = set->cfnt[0].lfnt;
  return s;
}

bool is_standard_only(FS_ULONG tag) {
  return tag == TAG_loca || tag == TAG_hmtx || tag == TAG_glyf;
}

FS_BYTE* fail(FS_STATE* state, FS_ULONG code) {
  state->error = code;
  return nullptr;
}

// True when `rec` belongs to `set` and someone holds it.
bool lent_in(TABLE_PTR_REC* rec, FNTSET* set, FS_BOOLEAN* setLevel) {
  return rec->ptr != nullptr && rec->ref_count > 0 &&
         rec->lfnt == rec_get_source_lfnt(rec, set, setLevel);
}

}  // namespace

LFNT* rec_get_source_lfnt(TABLE_PTR_REC* rec, FNTSET* fntset,
                          FS_BOOLEAN* lfntIsFntset) {
  TableSource s = table_source(fntset, rec->tag);
  if (lfntIsFntset) *lfntIsFntset = s.setLevel ? 1 : 0;
  return s.setLevel ? (LFNT*)fntset : s.owner;
}

FS_BYTE* FSS_get_table(FS_STATE* state, FS_ULONG tag, FS_BYTE mode,
                       FS_ULONG* len) {
  FNTSET* set = state->cur_typeset.fntset;
  if (set == nullptr) return fail(state, ERR_NO_CURRENT_LFNT);
  if (mode != TABLE_ASK && mode != TABLE_LEND) return nullptr;
  TableSource s = table_source(set, tag);
  FS_BYTE* ptr = nullptr;
  if (s.setLevel) {
    if (len) *len = s.size;
    state->error = SUCCESS;
    if (mode == TABLE_ASK) return (FS_BYTE*)1;
    ptr = get_table_ptr(state, (LFNT*)set, 1, set->memptr, tag, s.offset,
                        s.size);
  } else {
    LFNT* lfnt = s.owner;
    if (lfnt == nullptr) return fail(state, ERR_NO_CURRENT_LFNT);
    if (lfnt->fnt_type == FNT_TYPE_NO_SCALER)
      return fail(state, ERR_FORMAT_NOT_SUPPORTED);
    if (lfnt->fnt == nullptr && load_fnt(state, lfnt) != 0) return nullptr;
    if (lfnt->fnt == nullptr) return fail(state, ERR_FONT_NOT_LOADED);
    state->cur_lfnt = lfnt;
    FS_ULONG offset = 0, length = 0;
    if (!get_ttf_table_info(state, (TTF*)lfnt->fnt, tag, &offset, &length))
      return nullptr;  // 405
    if (len) *len = length;
    state->error = SUCCESS;
    if (mode == TABLE_ASK) return (FS_BYTE*)1;
    ptr = get_table_ptr(state, lfnt, 0, lfnt->memptr, tag, offset, length);
  }
  if (ptr != nullptr) state->ref_count++;
  return ptr;
}

FS_BYTE* get_table_ptr(FS_STATE* state, LFNT* lfnt, FS_BOOLEAN lfntIsFntset,
                       FS_BYTE* real_memptr, FS_ULONG tag, FS_ULONG offset,
                       FS_ULONG size) {
  state->error = SUCCESS;
  for (TABLE_PTR_REC* rec = state->server->table_ptrs; rec; rec = rec->next) {
    if (rec->lfnt == lfnt && rec->tag == tag && rec->ptr != nullptr) {
      rec->ref_count++;
      return rec->ptr;
    }
  }
  FS_BOOLEAN compressed = 0;
  if (!lfntIsFntset) {
    if ((lfnt->fontflags & (FONTFLAG_CCC | FONTFLAG_DDD)) &&
        is_standard_only(tag))
      return fail(state, ERR_TABLE_NOT_STANDARD);
    compressed = (lfnt->fontflags & FONTFLAG_COMPRESSED) != 0;
  }
  FS_BYTE* ptr = nullptr;
  FS_BOOLEAN external = 1;
  if (lfntIsFntset) {
    if (real_memptr != nullptr) {
      // A linked font's own table, where its file says, inside the image
      // when the image's length is known.
      const FNTSET* set = (const FNTSET*)lfnt;
      if (set->data_length != 0 && (FS_UINT64)offset + size > set->data_length)
        return fail(state, ERR_FILE_READ);
      ptr = real_memptr + set->data_offset + offset;
      external = 0;
    } else {
      ptr = fntset_read(state, (FNTSET*)lfnt, offset, size);
    }
  } else if (compressed) {
    // A table stored raw is lent in place; one decoded from tokens is a
    // block of the loan's own.
    QSX_RA_TT_Decomp* decomp = (QSX_RA_TT_Decomp*)((TTF*)lfnt->fnt)->decomp;
    FS_ULONG got = size;
    ptr = (FS_BYTE*)QSX_RA_Get_TTF_FragmentPtr(
        state, decomp, offset, &got);
    external = !QSX_RA_TT_InImage(decomp, ptr);
  } else if (real_memptr == nullptr) {
    // A file font's table: a block of the loan's own.
    ptr = (FS_BYTE*)ttf_read(state, (TTF*)lfnt->fnt, offset, size);
  } else {
    ptr = real_memptr + lfnt->data_offset + offset;
    external = 0;
  }
  if (ptr == nullptr) return nullptr;
  add_table_ptr(state, lfnt, lfntIsFntset, real_memptr, tag, ptr, external);
  if (state->error != SUCCESS) {
    if (external) FSS_free(state, ptr);
    return nullptr;
  }
  return ptr;
}

FS_LONG add_table_ptr(FS_STATE* state, LFNT* lfnt, FS_BOOLEAN lfntIsFntset,
                      FS_BYTE* real_memptr, FS_ULONG tag, FS_BYTE* ptr,
                      FS_BOOLEAN ext) {
  (void)lfntIsFntset;  // the owner pointer already says which
  (void)real_memptr;
  TABLE_PTR_REC* rec =
      (TABLE_PTR_REC*)FSS_calloc(state, sizeof(TABLE_PTR_REC));
  if (rec == nullptr) {
    state->error = ERR_MALLOC_FAIL;
    return ERR_MALLOC_FAIL;
  }
  rec->lfnt = lfnt;
  rec->ptr = ptr;
  rec->tag = tag;
  rec->ref_count = 1;
  rec->external = ext;
  rec->next = state->server->table_ptrs;
  state->server->table_ptrs = rec;
  state->error = SUCCESS;
  return 0;
}

FS_BYTE* fntset_read(FS_STATE* state, FNTSET* fntset, FS_ULONG offset,
                     FS_ULONG size) {
  state->error = SUCCESS;
  if (size == 0) return nullptr;
  FS_FILE* fp = FS_open(state, fntset->path);
  if (fp == nullptr) return nullptr;
  FS_BYTE* p = nullptr;
  if (offset > 0x7FFFFFFF || FS_seek(state, fp, (FS_LONG)offset, SEEK_SET) != 0) {
    state->error = ERR_FILE_SEEK;
  } else if ((p = (FS_BYTE*)FSS_malloc(state, size)) != nullptr) {
    FS_LONG got = FS_read(state, fp, p, size);
    FS_ULONG have = got > 0 ? (FS_ULONG)got : 0;
    memset(p + have, 0, size - have);  // beyond the file: zeros
    state->error = SUCCESS;
  }
  FS_ULONG error = state->error;
  FS_close(state, fp);
  state->error = error;
  return p;
}

FS_LONG FSS_free_table(FS_STATE* state, void* ptr) {
  state->error = SUCCESS;
  if (ptr == nullptr) return 0;
  FNTSET* set = state->cur_typeset.fntset;
  for (TABLE_PTR_REC* rec = state->server->table_ptrs; set && rec;
       rec = rec->next) {
    if (rec->ptr == nullptr || rec->ptr != ptr ||
        rec->lfnt != rec_get_source_lfnt(rec, set, nullptr))
      continue;
    if (rec->ref_count == 0) {
      state->error = ERR_TABLE_PTR_COUNT;
      return ERR_TABLE_PTR_COUNT;
    }
    rec->ref_count--;
    if (state->ref_count > 0) state->ref_count--;
    return 0;
  }
  state->error = ERR_BAD_SCRATCH_ADDR;
  return ERR_BAD_SCRATCH_ADDR;
}

int squeeze_table_ptrs(FS_STATE* state, FNTSET* fntset) {
  int freed = 0;
  TABLE_PTR_REC** link = &state->server->table_ptrs;
  while (*link != nullptr) {
    TABLE_PTR_REC* rec = *link;
    if (rec->ref_count != 0 ||
        rec->lfnt != rec_get_source_lfnt(rec, fntset, nullptr)) {
      link = &rec->next;
      continue;
    }
    if (rec->external) FSS_free(state, rec->ptr);
    *link = rec->next;
    FSS_free(state, rec);
    freed++;
  }
  return freed;
}

FS_BOOLEAN any_used_fntset_or_unshared_lfnt_table_ptrs(FS_STATE* state,
                                                       FNTSET* fntset) {
  for (TABLE_PTR_REC* rec = state->server->table_ptrs; rec; rec = rec->next) {
    FS_BOOLEAN setLevel = 0;
    if (!lent_in(rec, fntset, &setLevel)) continue;
    if (setLevel || rec->lfnt->fntset_refs < 2) return 1;
  }
  return 0;
}

FS_BOOLEAN any_used_lfnt_table_ptrs(FS_STATE* state, FNTSET* fntset,
                                    LFNT* lfntOfInterest) {
  for (TABLE_PTR_REC* rec = state->server->table_ptrs; rec; rec = rec->next) {
    FS_BOOLEAN setLevel = 0;
    if (lent_in(rec, fntset, &setLevel) && !setLevel &&
        rec->lfnt == lfntOfInterest)
      return 1;
  }
  return 0;
}

void kill_table_ptrs(FS_STATE* state) {
  FS_SERVER* server = state->server;
  TABLE_PTR_REC* rec = server->table_ptrs;
  while (rec != nullptr) {
    TABLE_PTR_REC* next = rec->next;
    if (rec->external) FSS_free(state, rec->ptr);
    FSS_free(state, rec);
    rec = next;
  }
  server->table_ptrs = nullptr;
}
