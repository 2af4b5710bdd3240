// Embedded bitmaps: the resident bitmap location records, read once at load.
#include "Orvex_internal/fs_sbit.h"

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_ULONG kSizeTableBytes = 48;
const FS_ULONG kIndexEntryBytes = 8;

void read_line_metrics(FS_CURSOR* c, SBIT_LINE_METRICS* m) {
  m->ascender = cursor_s8(c);
  m->descender = cursor_s8(c);
  m->widthMax = cursor_u8(c);
  m->caretSlopeNumerator = cursor_s8(c);
  m->caretSlopeDenominator = cursor_s8(c);
  m->caretOffset = cursor_s8(c);
  m->minOriginSB = cursor_s8(c);
  m->minAdvanceSB = cursor_s8(c);
  m->maxBeforeBL = cursor_s8(c);
  m->minAfterBL = cursor_s8(c);
  m->pad1 = cursor_s8(c);
  m->pad2 = cursor_s8(c);
}

void read_size_table(FS_CURSOR* c, BITMAP_SIZE_TABLE* t) {
  t->indexSubTableArrayOffset = cursor_u32(c);
  t->indexTablesSize = cursor_u32(c);
  t->numberOfIndexSubTables = cursor_u32(c);
  t->colorRef = cursor_u32(c);
  read_line_metrics(c, &t->hori);
  read_line_metrics(c, &t->vert);
  t->startGlyphIndex = cursor_u16(c);
  t->endGlyphIndex = cursor_u16(c);
  t->ppemX = cursor_u8(c);
  t->ppemY = cursor_u8(c);
  t->bitDepth = cursor_u8(c);
  t->flags = cursor_s8(c);
}

// The strike's index subtable array, read whole from the table's bytes.
bool read_index_array(FS_STATE* state, const FS_BYTE* table, FS_ULONG len,
                      BITMAP_SIZE_TABLE_ARRAY* a) {
  FS_ULONG n = a->bst.numberOfIndexSubTables;
  FS_ULONG at = a->bst.indexSubTableArrayOffset;
  if (n == 0) return true;
  if (at > len || n > (len - at) / kIndexEntryBytes) {
    state->error = ERR_EBLC;
    return false;
  }
  a->ist = (INDEX_SUB_TABLE*)FSS_calloc(state, n * sizeof(INDEX_SUB_TABLE));
  if (a->ist == nullptr) return false;
  FS_CURSOR c = cursor_at(table, len, at);
  for (FS_ULONG i = 0; i < n; i++) {
    a->ist[i].firstGlyphIndex = cursor_u16(&c);
    a->ist[i].lastGlyphIndex = cursor_u16(&c);
    a->ist[i].additionalOffsetToIndexSubtable = cursor_u32(&c);
  }
  return true;
}

}  // namespace

TTF_EBLC_PARTIAL* get_EBLC_partial(FS_STATE* state, TTF* ttf) {
  FS_ULONG len = 0;
  FS_ULONG tag = ttf->isCBLC ? TAG_CBLC : TAG_EBLC;
  if (!get_ttf_table_info(state, ttf, tag, nullptr, &len)) return nullptr;
  FS_BYTE* table = (FS_BYTE*)ttf_read(state, ttf, ttf->eblc_offset, len);
  if (table == nullptr) {
    if (state->error == 0) state->error = ERR_EBLC;
    return nullptr;
  }
  FS_CURSOR c = cursor_at(table, len);
  FS_FIXED version = cursor_s32(&c);
  FS_ULONG numSizes = cursor_u32(&c);
  if (numSizes == 0 || len < 8 || numSizes > (len - 8) / kSizeTableBytes) {
    FSS_free(state, table);
    state->error = ERR_EBLC;
    return nullptr;
  }
  TTF_EBLC_PARTIAL* p =
      (TTF_EBLC_PARTIAL*)FSS_calloc(state, sizeof(TTF_EBLC_PARTIAL));
  if (p != nullptr) {
    p->version = version;
    p->bsta = (BITMAP_SIZE_TABLE_ARRAY*)FSS_calloc(
        state, numSizes * sizeof(BITMAP_SIZE_TABLE_ARRAY));
  }
  if (p == nullptr || p->bsta == nullptr) {
    FS_ULONG error = state->error;
    FSS_free(state, p);
    FSS_free(state, table);
    state->error = error;
    return nullptr;
  }
  p->numSizes = numSizes;
  for (FS_ULONG i = 0; i < numSizes; i++) {
    FS_CURSOR s = cursor_at(table, len, 8 + kSizeTableBytes * i);
    read_size_table(&s, &p->bsta[i].bst);
    if (!read_index_array(state, table, len, &p->bsta[i])) {
      FS_ULONG error = state->error;
      delete_EBLC_partial(state, p);
      FSS_free(state, table);
      state->error = error;
      return nullptr;
    }
  }
  FSS_free(state, table);
  state->error = SUCCESS;
  return p;
}

void delete_EBLC_partial(FS_STATE* state, TTF_EBLC_PARTIAL* p) {
  if (p == nullptr) return;
  if (p->bsta != nullptr)
    for (FS_ULONG i = 0; i < p->numSizes; i++) FSS_free(state, p->bsta[i].ist);
  FSS_free(state, p->bsta);
  FSS_free(state, p);
}
