// The TrueType container loader. Stand-in until it is built.
#include "Orvex_internal/fs_ttf.h"

// Stand-in: nothing loads yet, so nothing is held.
void unload_ttf(FS_STATE* state, TTF* ttf) {
  (void)state;
  (void)ttf;
}
