// Transition lists: crossings sorted per row with ties in arrival order,
// rows outside the list dropped, growth past the first 8 a row, removal,
// and resizing that keeps capacity and empties every row.
#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_tlist.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

class Tlist : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, FSS_init(&st, 1u << 20)); }
  void TearDown() override { FSS_exit(&st); }
  // The row's crossings with the node index of each, in list order.
  std::vector<FS_FIXED> row(TLIST* l, FS_SHORT y, std::vector<FS_LONG>* idx = nullptr) {
    std::vector<FS_FIXED> v;
    for (FS_LONG k = l->indices[l->max - y]; k != -1; k = l->nodes[k].next) {
      v.push_back(l->nodes[k].value);
      if (idx) idx->push_back(k);
    }
    return v;
  }
  FS_STATE st;
};

TEST_F(Tlist, CrossingsSortAscendingAndTiesKeepArrivalOrder) {
  TLIST* l = new_tlist(&st, nullptr, 10, 4);  // rows y 10, 9, 8, 7
  ASSERT_NE(nullptr, l);
  EXPECT_EQ(32, l->stop_index);
  EXPECT_EQ(32, l->numNodes);
  for (FS_FIXED x : {5, -3, 5, 2}) EXPECT_EQ(0, append_tlist(&st, x, 9, l));
  std::vector<FS_LONG> idx;
  EXPECT_EQ((std::vector<FS_FIXED>{-3, 2, 5, 5}), row(l, 9, &idx));
  EXPECT_EQ((std::vector<FS_LONG>{1, 3, 0, 2}), idx);  // the first 5 first
  // y above max and below the last row are dropped without a node.
  append_tlist(&st, 1, 11, l);
  append_tlist(&st, 1, 6, l);
  EXPECT_EQ(4, l->next_index);
  EXPECT_EQ(-1, l->indices[0]);
  delete_tlist(&st, l);
}

TEST_F(Tlist, StoreGrowsByOneNodeARowWhenFull) {
  TLIST* l = new_tlist(&st, nullptr, 0, 2);  // 16 nodes
  for (int i = 0; i < 20; i++) append_tlist(&st, 20 - i, 0, l);
  // 16 usable, then 2 more at a time: 18, 20.
  EXPECT_EQ(20, l->stop_index);
  EXPECT_EQ(20, l->numNodes);
  std::vector<FS_FIXED> r = row(l, 0);
  ASSERT_EQ(20u, r.size());
  for (int i = 0; i < 20; i++) EXPECT_EQ(i + 1, r[i]);
  delete_tlist(&st, l);
}

TEST_F(Tlist, RemoveUnlinksTheFirstCrossingOfAValue) {
  TLIST* l = new_tlist(&st, nullptr, 3, 1);
  for (FS_FIXED x : {4, 1, 4, 9}) append_tlist(&st, x, 3, l);
  remove_tran(1, 3, l);  // the head
  EXPECT_EQ((std::vector<FS_FIXED>{4, 4, 9}), row(l, 3));
  remove_tran(4, 3, l);
  EXPECT_EQ((std::vector<FS_FIXED>{4, 9}), row(l, 3));
  remove_tran(7, 3, l);  // absent: nothing
  remove_tran(9, 3, l);
  EXPECT_EQ((std::vector<FS_FIXED>{4}), row(l, 3));
  EXPECT_EQ(4, l->next_index);  // nodes are not reused
  delete_tlist(&st, l);
}

TEST_F(Tlist, ResizingToFewerRowsKeepsCapacityAndEmptiesAllRows) {
  TLIST* l = new_tlist(&st, nullptr, 20, 10);
  append_tlist(&st, 1, 20, l);
  append_tlist(&st, 1, 15, l);
  TLIST* same = new_tlist(&st, l, 5, 3);
  ASSERT_EQ(l, same);
  EXPECT_EQ(5, l->max);
  EXPECT_EQ(3, l->num);
  EXPECT_EQ(10, l->numIndices);
  EXPECT_EQ(80, l->numNodes);
  EXPECT_EQ(24, l->stop_index);
  EXPECT_EQ(0, l->next_index);
  for (int r = 0; r < 3; r++) EXPECT_EQ(-1, l->indices[r]);
  EXPECT_EQ(0, l->ref_count);
  // Growing replaces the short arrays.
  size_tlist(&st, l, 40, 30);
  EXPECT_EQ(30, l->numIndices);
  EXPECT_EQ(240, l->numNodes);
  for (int r = 0; r < 30; r++) EXPECT_EQ(-1, l->indices[r]);
  delete_tlist(&st, l);
}

}  // namespace
