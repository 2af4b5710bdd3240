// CFF outlines: the table's record as the container loader holds it. The
// charstring reader builds on this record.
#include "Orvex_internal/fs_cff.h"

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

CFF_TAB* load_cff(FS_STATE* state, TTF* ttf) {
  FS_ULONG off = 0, len = 0;
  if (!get_ttf_table_info(state, ttf, TAG_CFF, &off, &len)) return nullptr;
  ttf->cff_offset = off;
  CFF_TAB* cff = (CFF_TAB*)FSS_calloc(state, sizeof(CFF_TAB));
  if (cff == nullptr) return nullptr;
  FS_BYTE header[4];
  ttf_read_buf(state, ttf, off, 4, header);
  if (state->error) {
    unload_cff(state, cff);
    return nullptr;
  }
  // The third byte is the header's size; the name INDEX follows it.
  cff->nameINDEXoffset = off + header[2];
  return cff;
}

void unload_cff(FS_STATE* state, CFF_TAB* cff) {
  if (cff == nullptr) return;
  FSS_free(state, cff->topdictINDEXptr);
  FSS_free(state, cff->globalsubrINDEXptr);
  FSS_free(state, cff->charstringINDEXptr);
  FSS_free(state, cff);
}
