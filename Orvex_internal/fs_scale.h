// The scaled environment of a scaled font and its scaler key. The reclaim
// ladder frees environments and marks keys for rebuilding; making them
// arrives with the scaler, which will complete the key record.
#ifndef ORVEX_INTERNAL_FS_SCALE_H
#define ORVEX_INTERNAL_FS_SCALE_H

#include "Orvex_internal/fs_state.h"

struct TTF_MAXP;

struct SENV {
  FS_USHORT xppm, yppm;  // rounded
  FS_BOOLEAN vanilla;
  FS_ULONG hdmx_group_offset;
  FS_BYTE render_behavior;
  FS_SHORT stroke_width;
  FS_SHORT language;
  FS_FIXED cap_round, cap_square, x_round, x_square, base_round, base_square;
  FS_FIXED lsb, rsb;
  FS_SHORT bold_width;
  void* ttkey;  // the fsg_SplineKey
};

// The scaler's per-scaled-font key; its leading fields. A null `maxp` tells
// the scaler to rebuild the key from the scaled font's matrix.
struct fsg_SplineKey {
  SFNT* sfnt;
  TTF_MAXP* maxp;
};

// Frees a key of a TrueType or CFF font with whatever it owns. Stand-in until
// the scaler: the key is one heap block.
void delete_key(FS_STATE* state, void* key);

#endif
