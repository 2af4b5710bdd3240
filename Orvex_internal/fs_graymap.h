// The graymap scan converter's area raster, one per server, kept between
// glyphs. Only the fields the server's end and the reclaim ladder use are
// here; the rest of the record arrives with the graymap scan converter.
#ifndef ORVEX_INTERNAL_FS_GRAYMAP_H
#define ORVEX_INTERNAL_FS_GRAYMAP_H

#include "Orvex_internal/fs_state.h"

struct RASTER {
  FS_FIXED* areas;  // one row's areas, `nexts` directly behind in one block
  FS_FIXED* nexts;
  FS_LONG areasize;
  FS_LONG ref_count;  // above 0 while busy: the ladder spares it
};

#endif
