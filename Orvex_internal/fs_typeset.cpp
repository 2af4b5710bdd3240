// Per-client typesets: taking and releasing the holds a client keeps on a
// font set and its scaled fonts.
#include "Orvex_internal/fs_typeset.h"

#include <string.h>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_xmalloc.h"

FS_LONG TYPESET_init(FS_STATE* state, TYPESET* typeset, FNTSET* fntset) {
  if (fntset == nullptr) {
    FSS_free(state, typeset->tfntarray);
    typeset->tfntarray = nullptr;
    typeset->capacity = 0;
    typeset->fntset = nullptr;
    state->error = ERR_NO_FNTSET;
    return ERR_NO_FNTSET;
  }
  // The hold comes first: the allocation below may run the reclaim ladder,
  // whose first step kills sets that nobody holds.
  fntset->ref_count++;
  if (fntset->num_fonts > typeset->capacity) {
    FSS_free(state, typeset->tfntarray);
    typeset->capacity = 0;
    typeset->tfntarray =
        (TFNT*)FSS_calloc(state, (FS_ULONG)fntset->num_fonts * sizeof(TFNT));
    if (typeset->tfntarray == nullptr) {
      fntset->ref_count--;
      typeset->fntset = nullptr;
      state->error = ERR_MALLOC_FAIL;
      return ERR_MALLOC_FAIL;
    }
    typeset->capacity = fntset->num_fonts;
  }
  typeset->fntset = fntset;
  memset(typeset->tfntarray, 0, typeset->capacity * sizeof(TFNT));
  for (FS_USHORT i = 0; i < fntset->num_fonts; i++)
    typeset->tfntarray[i].cfnt = &fntset->cfnt[i];
  state->error = SUCCESS;
  return 0;
}

void TYPESET_clear(FS_STATE* state, TYPESET* typeset) {
  (void)state;
  if (typeset == nullptr) return;
  if (typeset->fntset != nullptr && typeset->fntset->ref_count > 0)
    typeset->fntset->ref_count--;
  for (FS_USHORT i = 0; i < typeset->capacity && typeset->tfntarray; i++) {
    TFNT* tfnt = &typeset->tfntarray[i];
    if (tfnt->sfnt != nullptr) {
      if (tfnt->sfnt->ref_count > 0) tfnt->sfnt->ref_count--;
      tfnt->sfnt = nullptr;
    }
  }
  typeset->fntset = nullptr;
}

void TYPESET_destroy(FS_STATE* state, TYPESET* typeset) {
  if (typeset == nullptr) return;
  TYPESET_clear(state, typeset);
  FSS_free(state, typeset->tfntarray);
  typeset->tfntarray = nullptr;
  typeset->capacity = 0;
}
