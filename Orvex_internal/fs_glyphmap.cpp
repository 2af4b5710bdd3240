// The client flag word: FS_set_flags acts on the exact value it is given, so
// that each flag family keeps its own rule of what a new flag clears. Also
// the start-up proof of the build's type assumptions.
#include "Orvex_internal/fs_glyphmap.h"

#include <initializer_list>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_fixed.h"
#include "Orvex_internal/fs_scale.h"

namespace {

// Flags that are set and cleared on their own, with no family rule.
const FS_ULONG kPlainFlags[] = {
    FLAGS_RESERVED_BIT0,  FLAGS_NO_HINTS,        FLAGS_SOFTENED,
    FLAGS_CMAP_OFF,       FLAGS_DEFAULT_CSM_ON,  FLAGS_MAZ_ON,
    FLAGS_GRAYSCALE,      FLAGS_NO_AUTOHINT,     FLAGS_FORCE_AUTOHINT,
    FLAGS_AUTOHINT_YONLY, FLAGS_LARGE_SCALE,     FLAGS_THIN_STROKE,
    FLAGS_REF_LINE_PASS,  FLAGS_KERN_UNSCALED,   FLAGS_TOP_BIT};

const FS_ULONG kEffects[] = {FLAGS_EMBOSSED,          FLAGS_ENGRAVED,
                             FLAGS_OUTLINED_1PIXEL,   FLAGS_OUTLINED_2PIXEL,
                             FLAGS_OUTLINED_FILLED,   FLAGS_OUTLINED_UNFILLED,
                             FLAGS_OUTLINED_SOFT};

const FS_ULONG kBolds = FLAGS_ADD_WEIGHT | FLAGS_REGULARBOLD | FLAGS_FRACTBOLD;
const FS_ULONG kVerticals = FLAGS_VERTICAL_ON | FLAGS_VERTICAL_ROTATE_RIGHT_ON |
                            FLAGS_VERTICAL_ROTATE_LEFT_ON;

}  // namespace

FS_LONG FS_set_flags(FS_STATE* state, FS_ULONG effect) {
  state->error = SUCCESS;
  FS_ULONG& flags = state->flags;

  if (effect == FLAGS_UNSUPPORTED || effect == ~FLAGS_UNSUPPORTED) {
    state->error = ERR_FLAG_UNSUPPORTED;
    return (FS_LONG)state->error;
  }
  for (FS_ULONG f : kPlainFlags) {
    if (effect == f) {
      flags |= f;
      return 0;
    }
    if (effect == ~f) {
      flags &= ~f;
      return 0;
    }
  }
  for (FS_ULONG f : kEffects) {
    if (effect == f) {
      flags = (flags & ~FLAGS_EFFECTS) | f;
      return 0;
    }
    if (effect == ~f) {
      flags &= ~f;
      return 0;
    }
  }
  if (effect == ~FLAGS_EFFECTS) {
    flags &= ~FLAGS_EFFECTS;
    return 0;
  }
  for (FS_ULONG f : {FLAGS_ADD_WEIGHT, FLAGS_REGULARBOLD, FLAGS_FRACTBOLD}) {
    if (effect == f) {
      flags = (flags & ~kBolds) | f;
      return 0;
    }
    if (effect == ~f) {
      flags &= ~f;
      return 0;
    }
  }
  for (FS_ULONG f : {FLAGS_VERTICAL_ON, FLAGS_VERTICAL_ROTATE_RIGHT_ON,
                     FLAGS_VERTICAL_ROTATE_LEFT_ON}) {
    if (effect == f) {
      flags = (flags & ~kVerticals) | f;
      return 0;
    }
    if (effect == ~f) {
      // Only one of the three can be up, so any complement drops them all.
      flags &= ~kVerticals;
      return 0;
    }
  }
  state->error = ERR_UNKNOWN_FLAG;
  return (FS_LONG)state->error;
}

FS_ULONG FS_get_flags(FS_STATE* state) { return state->flags; }

FS_LONG check_types(FS_STATE* state) {
  FS_LONG err = 0;
  // Volatile, so that the checks run on the host rather than in the
  // compiler's head.
  volatile FS_USHORT one = 1;
  const volatile FS_BYTE* bytes = (const volatile FS_BYTE*)&one;
  volatile FS_BYTE cell = 255;
  volatile FS_TINY tiny = (FS_TINY)cell;
  volatile FS_TINY tmax = 127;
  volatile FS_USHORT us = 65535;
  volatile FS_SHORT smax = 32767;
  volatile FS_SHORT szero = 0;
  volatile FS_ULONG ul = 0xFFFFFFFFu;
  volatile FS_ULONG lmax = 0x7FFFFFFF;
  volatile FS_INT64 a = 12345678, b = 87654321;
  if (bytes[1] == 1) {
    err = ERR_TYPE_ENDIAN;  // big-endian host
  } else if (sizeof(FS_TINY) != 1 || sizeof(FS_BYTE) != 1 || tiny >= 0 ||
             (FS_TINY)(tmax + 1) > 0 || (FS_TINY)(tiny - tiny - 1) > 0) {
    err = ERR_TYPE_TINY;
  } else if (!(cell >= 255) || (FS_BYTE)(cell + 1) != 0) {
    err = ERR_TYPE_BYTE;
  } else if (us != 65535 || (FS_SHORT)(smax + 1) >= 0 ||
             (FS_SHORT)(szero - 1) >= 0) {
    err = ERR_TYPE_SHORT;
  } else if (ul != 0xFFFFFFFFu || (FS_LONG)(lmax + 1u) >= 0 ||
             (FS_LONG)(ul) >= 0) {
    err = ERR_TYPE_LONG;
  } else if ((a + b) * b / b != 12345678 + 87654321) {
    err = ERR_TYPE_INT64;
  }
  if (state != nullptr) state->error = (FS_ULONG)err;
  return err;
}

void shift_map_vertically(const SFNT* sfnt, FS_GLYPHMAP* map) {
  if (sfnt == nullptr || sfnt->vertical_shift == 0) return;
  if (sfnt->senv && sfnt->senv->vanilla) {
    map->hi_y = (FS_SHORT)(map->hi_y + sfnt->vertical_shift);
    return;
  }
  FIXED_VECTOR n = {map->dx, map->dy};
  fixed_norm(&n);
  map->lo_x = (FS_SHORT)(map->lo_x + varmul_64(-n.y, sfnt->vertical_shift, 16));
  map->hi_y = (FS_SHORT)(map->hi_y + varmul_64(n.x, sfnt->vertical_shift, 16));
}
