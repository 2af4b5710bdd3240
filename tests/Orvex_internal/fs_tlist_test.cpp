// Transition lists: crossings sorted per row with ties in arrival order,
// rows outside the list dropped, growth past the first 8 a row, removal,
// and resizing that keeps capacity and empties every row.
#include "Orvex_internal/fs_tlist.h"

#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/engine_fixture.h"

namespace {

typedef std::vector<FS_FIXED> Row;

class Tlist : public ::testing::Test {
 protected:
  // The row's crossings in list order, and the node index of each.
  Row row(TLIST* l, FS_SHORT y, std::vector<FS_LONG>* idx = nullptr) {
    Row v;
    for (FS_LONG k = l->indices[l->max - y]; k != -1; k = l->nodes[k].next) {
      v.push_back(l->nodes[k].value);
      if (idx) idx->push_back(k);
    }
    return v;
  }
  enginetest::Engine e{1u << 20};
  FS_STATE* st = &e.st;
};

TEST_F(Tlist, CrossingsSortAscendingTiesKeepArrivalOrderAndOutsideRowsAreDropped) {
  TLIST* l = new_tlist(st, nullptr, 10, 4);  // rows y 10, 9, 8, 7
  for (FS_FIXED x : {5, -3, 5, 2}) EXPECT_EQ(0, append_tlist(st, x, 9, l));
  std::vector<FS_LONG> idx;
  EXPECT_EQ((Row{-3, 2, 5, 5}), row(l, 9, &idx));
  EXPECT_EQ((std::vector<FS_LONG>{1, 3, 0, 2}), idx);  // the first 5 first
  append_tlist(st, 1, 11, l);                          // above max
  append_tlist(st, 1, 6, l);                           // below the last row
  EXPECT_EQ((Row{4, -1}), (Row{l->next_index, l->indices[0]}));
  delete_tlist(st, l);
}

TEST_F(Tlist, StoreGrowsByOneNodeARowWhenFull) {
  TLIST* l = new_tlist(st, nullptr, 0, 2);  // 16 nodes, then 2 more at a time
  for (int i = 0; i < 20; i++) append_tlist(st, 20 - i, 0, l);
  EXPECT_EQ((Row{20, 20}), (Row{l->stop_index, l->numNodes}));
  Row want;
  for (int i = 1; i <= 20; i++) want.push_back(i);
  EXPECT_EQ(want, row(l, 0));
  delete_tlist(st, l);
}

TEST_F(Tlist, RemoveUnlinksTheFirstCrossingOfAValue) {
  TLIST* l = new_tlist(st, nullptr, 3, 1);
  for (FS_FIXED x : {4, 1, 4, 9}) append_tlist(st, x, 3, l);
  remove_tran(1, 3, l);  // the head
  EXPECT_EQ((Row{4, 4, 9}), row(l, 3));
  remove_tran(4, 3, l);
  remove_tran(7, 3, l);  // absent: nothing
  remove_tran(9, 3, l);
  EXPECT_EQ((Row{4}), row(l, 3));
  delete_tlist(st, l);
}

TEST_F(Tlist, ResizingKeepsTheStoreAndEmptiesAllRows) {
  TLIST* l = new_tlist(st, nullptr, 20, 10);
  append_tlist(st, 1, 20, l);
  append_tlist(st, 1, 15, l);
  ASSERT_EQ(l, new_tlist(st, l, 5, 3));  // fewer rows: the same arrays
  EXPECT_EQ(Row(3, -1), Row(l->indices, l->indices + 3));
  size_tlist(st, l, 40, 30);  // growing replaces the short arrays
  EXPECT_EQ(Row(30, -1), Row(l->indices, l->indices + 30));
  delete_tlist(st, l);
}

}  // namespace
