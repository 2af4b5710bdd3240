// The scaler. Stand-in until it is built: keys are single heap blocks.
#include "Orvex_internal/fs_scale.h"

#include "Orvex_internal/fs_xmalloc.h"

// Stand-in: a key owns nothing beyond its own block yet.
void delete_key(FS_STATE* state, void* key) { FSS_free(state, key); }
