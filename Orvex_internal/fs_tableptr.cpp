// Lent font tables. Until table access exists no record is made; the server's
// end already frees whatever the list holds.
#include "Orvex_internal/fs_tableptr.h"

#include "Orvex_internal/fs_xmalloc.h"

// Stand-in until table access: no record exists to squeeze.
int squeeze_table_ptrs(FS_STATE* state, FNTSET* fntset) {
  (void)state;
  (void)fntset;
  return 0;
}

// Stand-in until table access: nothing is lent.
FS_BOOLEAN any_used_fntset_or_unshared_lfnt_table_ptrs(FS_STATE* state,
                                                       FNTSET* fntset) {
  (void)state;
  (void)fntset;
  return 0;
}

// Stand-in until table access: nothing is lent.
FS_BOOLEAN any_used_lfnt_table_ptrs(FS_STATE* state, FNTSET* fntset,
                                    LFNT* lfntOfInterest) {
  (void)state;
  (void)fntset;
  (void)lfntOfInterest;
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
