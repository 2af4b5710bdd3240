// The glyph cache. Stand-in until the cache itself is built: the reclaim
// ladder and font removal already call delete_fs_cache in their order.
#include "Orvex_internal/fs_cache.h"

// Stand-in: no entry can exist yet, so there is nothing to walk.
void delete_fs_cache(FS_STATE* state, SFNT* sfnt) {
  (void)state;
  if (sfnt == nullptr) return;
  sfnt->cache_count = 0;
  sfnt->active_count = 0;
}
