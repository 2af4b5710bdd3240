// Transition lists of the bitmap scan converter: per scan row, the x
// crossings in ascending order, linked through indices into one node store
// that only grows. Kept by the server between glyphs; freed by the ladder.
#include "Orvex_internal/fs_tlist.h"

#include <stdio.h>

#include "Orvex_internal/fs_xmalloc.h"

namespace {

void clear_rows(TLIST* list) {
  for (FS_LONG i = 0; i < list->num; i++) list->indices[i] = -1;
}

}  // namespace

TLIST* new_tlist(FS_STATE* state, TLIST* olist, FS_SHORT max, FS_SHORT num) {
  if (olist != nullptr) return size_tlist(state, olist, max, num);
  TLIST* list = (TLIST*)FSS_calloc(state, sizeof(TLIST));
  if (list == nullptr) return nullptr;
  list->max = max;
  list->num = num;
  list->numIndices = num;
  list->numNodes = list->stop_index = (FS_LONG)num * 8;
  list->next_index = 0;
  list->indices = (FS_LONG*)FSS_malloc(state, (FS_ULONG)(sizeof(FS_LONG) * (num > 0 ? num : 1)));
  list->nodes = (TNODE*)FSS_malloc(state, (FS_ULONG)(sizeof(TNODE) * (num > 0 ? num * 8 : 1)));
  if (list->indices == nullptr || list->nodes == nullptr) {
    delete_tlist(state, list);
    return nullptr;
  }
  clear_rows(list);
  return list;
}

TLIST* size_tlist(FS_STATE* state, TLIST* list, FS_SHORT max, FS_SHORT num) {
  list->max = max;
  list->num = num;
  // An allocation may run the reclaim ladder, which must spare this list.
  list->ref_count++;
  bool ok = true;
  if (list->numIndices < num) {
    FSS_free(state, list->indices);
    list->indices = (FS_LONG*)FSS_malloc(state, (FS_ULONG)(sizeof(FS_LONG) * num));
    list->numIndices = list->indices ? num : 0;
    ok = list->indices != nullptr;
  }
  FS_LONG nodes = (FS_LONG)num * 8;
  if (ok && list->numNodes < nodes) {
    FSS_free(state, list->nodes);
    list->nodes = (TNODE*)FSS_malloc(state, (FS_ULONG)(sizeof(TNODE) * nodes));
    list->numNodes = list->nodes ? nodes : 0;
    ok = list->nodes != nullptr;
  }
  list->ref_count--;
  if (!ok) {
    delete_tlist(state, list);
    return nullptr;
  }
  clear_rows(list);
  list->stop_index = nodes;
  list->next_index = 0;
  return list;
}

void delete_tlist(FS_STATE* state, TLIST* list) {
  if (list == nullptr) return;
  FSS_free(state, list->indices);
  FSS_free(state, list->nodes);
  FSS_free(state, list);
}

FS_LONG append_tlist(FS_STATE* state, FS_FIXED x, FS_SHORT y, TLIST* list) {
  if (list->next_index >= list->stop_index) {
    FS_LONG stop = list->stop_index + (list->num > 0 ? list->num : 1);
    if (list->numNodes < stop) {
      TNODE* n = (TNODE*)FSS_realloc(state, list->nodes, (FS_ULONG)(sizeof(TNODE) * stop));
      if (n == nullptr) return (FS_LONG)state->error;  // the crossing is dropped
      list->nodes = n;
      list->numNodes = stop;
    }
    list->stop_index = stop;
  }
  FS_LONG row = (FS_LONG)list->max - y;
  if (row < 0 || row >= list->num) return 0;
  FS_LONG k = list->next_index++;
  TNODE* nodes = list->nodes;
  nodes[k].value = x;
  FS_LONG* link = &list->indices[row];
  // Past every crossing at or below x: equal values keep their order.
  while (*link != -1 && nodes[*link].value <= x) link = &nodes[*link].next;
  nodes[k].next = *link;
  *link = k;
  return 0;
}

void remove_tran(FS_FIXED x, FS_SHORT y, TLIST* list) {
  FS_LONG row = (FS_LONG)list->max - y;
  if (row < 0 || row >= list->num) return;
  FS_LONG* link = &list->indices[row];
  while (*link != -1) {
    if (list->nodes[*link].value == x) {
      *link = list->nodes[*link].next;
      return;
    }
    link = &list->nodes[*link].next;
  }
}

void dump_tlist(TLIST* list) {
  if (list == nullptr) return;
  printf("tlist: max %d num %d nodes %ld of %ld\n", list->max, list->num,
         (long)list->next_index, (long)list->numNodes);
  for (FS_LONG r = 0; r < list->num; r++) {
    if (list->indices[r] == -1) continue;
    printf("  y %ld:", (long)(list->max - r));
    for (FS_LONG k = list->indices[r]; k != -1; k = list->nodes[k].next)
      printf(" %.4f", list->nodes[k].value / 65536.0);
    printf("\n");
  }
}
