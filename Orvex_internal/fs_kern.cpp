// Pair kerning: finds and keeps the first version-0 `kern` subtable, and
// answers pair questions by a binary search on (left, right). Every read
// stays within the `kern` table, whatever its counts and lengths say.
#include "Orvex_internal/fs_kern.h"

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_ULONG kSubtableHead = 6;  // version, length, coverage
const FS_ULONG kPairsAt = 8;       // nPairs and the search words
const FS_ULONG kPairSize = 6;      // left, right, value

FS_LONG fail(FS_STATE* state, FS_LONG error) {
  state->error = (FS_ULONG)error;
  return error;
}

const FS_BYTE* body(const LFNT* lfnt) { return (const FS_BYTE*)lfnt->kerning; }

// The pair count the kept subtable allows: nPairs, limited by the length.
FS_ULONG pair_count(const LFNT* lfnt) {
  if (lfnt->kerning == nullptr || lfnt->kern_subtable_length < 14) return 0;
  FS_ULONG n = get_u16(body(lfnt));
  FS_ULONG room = ((FS_ULONG)lfnt->kern_subtable_length - 14) / kPairSize;
  return n < room ? n : room;
}

}  // namespace

FS_LONG load_kerning(FS_STATE* state, LFNT* lfnt) {
  if (lfnt->kerning != nullptr) return 0;
  TTF* ttf = (TTF*)lfnt->fnt;
  if (ttf == nullptr || ttf->kern_offset == 0) return 0;
  FS_ULONG off = 0, len = 0;
  if (!get_ttf_table_info(state, ttf, TAG_kern, &off, &len)) {
    state->error = SUCCESS;
    return 0;
  }
  FS_BYTE head[4];
  if (len < 4) return 0;
  ttf_read_buf(state, ttf, off, 4, head);
  if (state->error != SUCCESS) return (FS_LONG)state->error;
  FS_ULONG count = get_u16(head + 2);
  FS_ULONG at = 4;  // from the table's start
  for (FS_ULONG i = 0; i < count && at + kSubtableHead <= len; i++) {
    FS_BYTE sub[kSubtableHead];
    ttf_read_buf(state, ttf, off + at, kSubtableHead, sub);
    if (state->error != SUCCESS) return (FS_LONG)state->error;
    FS_ULONG length = get_u16(sub + 2);
    if (get_u16(sub) == 0) {
      // The body, no further than the table's end.
      FS_ULONG room = len - at;
      if (length > room) length = room;
      FS_ULONG size = length > kSubtableHead ? length - kSubtableHead : 0;
      if (size == 0) return 0;
      FS_ULONG from = off + at + kSubtableHead;
      if (ttf->memptr != nullptr) {
        lfnt->kerning = (KSTf0_data*)(ttf->memptr + ttf->data_offset + from);
      } else {
        FS_BYTE* copy = (FS_BYTE*)ttf_read(state, ttf, from, size);
        if (copy == nullptr)
          return state->error ? (FS_LONG)state->error : fail(state, ERR_MALLOC_FAIL);
        lfnt->kerning = (KSTf0_data*)copy;
      }
      lfnt->kern_subtable_length = (FS_USHORT)length;
      return 0;
    }
    if (length < kSubtableHead) break;  // a zero length would never move
    at += length;
  }
  return 0;
}

void delete_kern(FS_STATE* state, LFNT* lfnt) {
  if (lfnt == nullptr || lfnt->kerning == nullptr) return;
  if (lfnt->memptr == nullptr) FSS_free(state, lfnt->kerning);
  lfnt->kerning = nullptr;
  lfnt->kern_subtable_length = 0;
}

FS_ULONG kern_pair_count(FS_STATE* state, LFNT* lfnt) {
  if (lfnt == nullptr || scaler_load_font(state, lfnt) != 0) return 0;
  if (load_kerning(state, lfnt) != 0) return 0;
  return pair_count(lfnt);
}

void kern_pair(const LFNT* lfnt, FS_ULONG i, FS_USHORT* left,
               FS_USHORT* right, FS_SHORT* value) {
  const FS_BYTE* p = body(lfnt) + kPairsAt + kPairSize * i;
  *left = get_u16(p);
  *right = get_u16(p + 2);
  *value = get_s16(p + 4);
}

FS_LONG FSS_get_kerning(FS_STATE* state, FS_ULONG id1, FS_ULONG id2,
                        FS_FIXED* _dx, FS_FIXED* _dy) {
  *_dx = *_dy = 0;
  FS_USHORT left = map_char(state, id1, 0);
  if (state->error != SUCCESS) return (FS_LONG)state->error;
  SFNT* sfnt = state->cur_sfnt;
  if (sfnt == nullptr) return fail(state, ERR_NO_CURRENT_SFNT);
  LFNT* lfnt = sfnt->lfnt;
  if (lfnt == nullptr) return fail(state, ERR_NO_CURRENT_LFNT);
  if (lfnt->fnt_type == FNT_TYPE_NO_SCALER || scaler_load_font(state, lfnt) != 0 ||
      load_kerning(state, lfnt) != 0) {
    state->error = ERR_FORMAT_NOT_SUPPORTED;
    return 0;
  }
  if (((TTF*)lfnt->fnt)->kern_offset == 0) return 0;

  FS_USHORT right = map_char(state, id2, 0);
  if (state->error != SUCCESS) return (FS_LONG)state->error;
  if (state->cur_sfnt != sfnt) return 0;

  // Glyph numbers within the component.
  TYPESET* ts = &state->cur_typeset;
  if (ts->tfntarray != nullptr && state->cur_font < ts->capacity &&
      ts->tfntarray[state->cur_font].cfnt != nullptr) {
    FS_USHORT start = ts->tfntarray[state->cur_font].cfnt->start_index;
    left = (FS_USHORT)(left - start);
    right = (FS_USHORT)(right - start);
  }
  FS_ULONG key = ((FS_ULONG)left << 16) | right;
  FS_ULONG lo = 0, hi = pair_count(lfnt);
  while (lo < hi) {
    FS_ULONG mid = lo + (hi - lo) / 2;
    FS_USHORT l, r;
    FS_SHORT v;
    kern_pair(lfnt, mid, &l, &r, &v);
    FS_ULONG k = ((FS_ULONG)l << 16) | r;
    if (k == key) {
      if (state->flags & FLAGS_KERN_UNSCALED) {
        *_dx = *_dy = v;
      } else {
        FS_LONG upem = ((TTF*)lfnt->fnt)->head->unitsPerEm;
        *_dx = muldiv_64(sfnt->user_scale[0], v, upem);
        *_dy = muldiv_64(sfnt->user_scale[2], v, upem);
      }
      return 0;
    }
    if (k < key) lo = mid + 1;
    else hi = mid;
  }
  return 0;
}
