// Transition lists of the bitmap scan converter; for now only their
// removal, which the server's end and the reclaim ladder need.
#include "Orvex_internal/fs_tlist.h"

#include "Orvex_internal/fs_xmalloc.h"

void delete_tlist(FS_STATE* state, TLIST* list) {
  if (list == nullptr) return;
  FSS_free(state, list->indices);
  FSS_free(state, list->nodes);
  FSS_free(state, list);
}
