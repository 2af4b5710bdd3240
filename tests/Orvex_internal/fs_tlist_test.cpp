// Transition lists: crossings sorted per row with ties in arrival order, and
// rows outside the list dropped.
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

}  // namespace
