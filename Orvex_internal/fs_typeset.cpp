// Per-client typesets: releasing the holds a client keeps on a font set and
// its scaled fonts.
#include "Orvex_internal/fs_typeset.h"

#include "Orvex_internal/fs_xmalloc.h"

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
