// Transition lists of the bitmap scan converter: the sorted x crossings of
// each scan row, as linked nodes in one growing store. The server keeps two
// between glyphs and resizes them for each; the reclaim ladder frees them
// when no glyph is using them.
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
  // Contour-turn state of the line being drawn: the loop's first crossing
  // and the previous line's last one, each a packed crossing and its row.
  FS_LONG hph_flag;
  FS_FIXED hph_loopstartz, hph_prevz;
  FS_SHORT hph_loopstarty, hph_prevy;
  FS_SHORT ref_count;  // in use: the ladder leaves it alone
  TNODE* nodes;
  FS_LONG numIndices;
  FS_LONG numNodes;
};

// A list of `num` rows whose row 0 is at y `max`, all rows empty, with room
// for 8 crossings a row. With `olist` that list is resized by size_tlist
// instead. Null on allocation failure (the heap's error), the list deleted.
TLIST* new_tlist(FS_STATE* state, TLIST* olist, FS_SHORT max, FS_SHORT num);

// Makes `list` ready for `num` rows from y `max`, all empty, 8 crossings a
// row usable; the arrays grow when short and never shrink. Null on
// allocation failure, the list deleted.
TLIST* size_tlist(FS_STATE* state, TLIST* list, FS_SHORT max, FS_SHORT num);

// Frees the list's rows, nodes and the record. A null list is ignored.
void delete_tlist(FS_STATE* state, TLIST* list);

// Adds the crossing x in row `max - y`, after the crossings at or below x.
// A row outside the list is dropped silently. When the usable nodes run
// out, room for `num` more is made; a failure drops the crossing with the
// heap's error. Returns 0 or that error.
FS_LONG append_tlist(FS_STATE* state, FS_FIXED x, FS_SHORT y, TLIST* list);

// Unlinks the first crossing of value x from row `max - y`; nothing when
// there is none. The node is not reused.
void remove_tran(FS_FIXED x, FS_SHORT y, TLIST* list);

// Prints each non-empty row's crossings on standard output (debugging).
void dump_tlist(TLIST* list);

#endif
