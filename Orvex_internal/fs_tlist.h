// Transition lists of the bitmap scan converter: the sorted x crossings of
// each scan row. The server keeps two between glyphs; the reclaim ladder
// frees them when no glyph is using them. Building and filling the lists
// arrive with the bitmap scan converter.
#ifndef ORVEX_INTERNAL_FS_TLIST_H
#define ORVEX_INTERNAL_FS_TLIST_H

#include "Orvex_internal/fs_state.h"

struct TNODE {
  FS_FIXED value;  // a crossing
  FS_LONG next;    // next node of the row, -1 at the end
};

struct TLIST {
  FS_SHORT max;  // y of row 0
  FS_SHORT num;  // rows
  FS_LONG stop_index;
  FS_LONG next_index;
  FS_LONG* indices;  // first node of each row, -1 when empty
  FS_LONG hph_flag;
  FS_SHORT hph_loopstartz, hph_prevz, hph_loopstarty, hph_prevy;
  FS_SHORT ref_count;  // in use: the ladder leaves it alone
  TNODE* nodes;
  FS_LONG numIndices;
  FS_LONG numNodes;
};

// Frees the list's rows, nodes and the record. A null list is ignored.
void delete_tlist(FS_STATE* state, TLIST* list);

#endif
