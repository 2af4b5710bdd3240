// Pair kerning. Stand-in until it is built.
#include "Orvex_internal/fs_kern.h"

// Stand-in: no kerning data is loaded yet.
void delete_kern(FS_STATE* state, LFNT* lfnt) {
  (void)state;
  (void)lfnt;
}
