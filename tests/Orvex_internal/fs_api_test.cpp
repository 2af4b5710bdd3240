// Starting and ending engine clients: the root client's defaults and budget,
// child clients on the shared budget, ending order, budget changes, and the
// server's end freeing what it holds.
#include "Orvex_internal/fs_api.h"

#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_xmalloc.h"

using namespace enginetest;

namespace {
typedef std::vector<long> V;
}  // namespace

TEST(EngineStart, RootClientStartsWithItsDefaultsAndOnlyTheScratchCharged) {
  FS_STATE st;
  ASSERT_EQ(0, FSS_init(&st, 100000));
  // Heap used (the 3000-byte scratch, the 8-byte renderer instance, their
  // headers), budget, version, no
  // error; stroke 0.05, no cmap (0xFFFF), contrast 0.4 and -0.56 in 16.16.
  EXPECT_EQ((V{3024, 100000, 327983, 0, 3277, 0xFFFF, 26214, -36700}),
            (V{FS_get_heap_used(&st), st.server->heap_size, FS_get_version(&st), FS_error(&st),
               st.stroke_pct, st.platform, st.insideCutoff, st.outsideCutoff}));
  EXPECT_EQ(0, FSS_exit(&st));
  EXPECT_EQ(nullptr, st.server);
  EXPECT_EQ(ERR_BAD_ARGUMENT, FSS_exit(&st));  // a second end finds no server
  // 3007 has no room for the scratch's 8-byte header; 3008 holds the
  // scratch but not the renderer instance; 3024 is exactly enough.
  EXPECT_EQ(ERR_MALLOC_FAIL, FSS_init(&st, 3007));
  EXPECT_EQ(ERR_MALLOC_FAIL, FSS_init(&st, 3008));
  ASSERT_EQ(0, FSS_init(&st, 3024));
  EXPECT_EQ(nullptr, FSS_malloc(&st, 1));
  EXPECT_EQ(0, FSS_exit(&st));
}

TEST(EngineClients, AChildLivesOnTheSharedBudgetAndGivesEverythingBack) {
  Engine root(10000);
  // {budget, heap used} before, with and after a child; its 192-byte record
  // and 8-byte renderer instance, with headers, are charged to the server.
  auto state = [&] { return V{root.server()->heap_size, root.used()}; };
  FS_STATE* child = FSS_new_client(&root.st, 5000);
  ASSERT_NE(nullptr, child);
  EXPECT_EQ((V{15000, kInitCharge + 216}), state());
  FSS_free(child, FSS_malloc(child, 100));
  EXPECT_EQ(0u, FSS_end_client(child));
  EXPECT_EQ((V{10000, kInitCharge}), state());
  EXPECT_EQ((FS_ULONG)ERR_BAD_ARGUMENT, FSS_end_client(&root.st));  // root: FSS_exit
  // A client with a child of its own ends with 508 and stays usable.
  child = FSS_new_client(&root.st, 1000);
  FS_STATE* grandchild = FSS_new_client(child, 1000);
  ASSERT_NE(nullptr, grandchild);
  EXPECT_EQ((FS_ULONG)ERR_CLIENT_HAS_CHILDREN, FSS_end_client(child));
  EXPECT_EQ(0u, FSS_end_client(grandchild));
  EXPECT_EQ(0u, FSS_end_client(child));
  EXPECT_EQ((V{10000, kInitCharge}), state());
}

TEST(EngineClients, ABudgetThatCannotBeTakenBackKeepsTheChildUntilItCan) {
  // 3100 - 3024 = 76 left: no room for a 200-byte client record (201); with
  // 200 of its own heap it fits. Ending takes the budget back first, and
  // 3100 can't hold the 3208 still allocated then: 206.
  Engine e(3100);
  EXPECT_EQ(nullptr, FSS_new_client(&e.st, 0));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  FS_STATE* child = FSS_new_client(&e.st, 200);
  ASSERT_NE(nullptr, child);
  EXPECT_EQ((FS_ULONG)ERR_RESIZE_FAIL, FSS_end_client(child));
  EXPECT_EQ(0, FSS_resize(&e.st, 3500));
  EXPECT_EQ(0u, FSS_end_client(child));
  EXPECT_EQ(3300u, e.server()->heap_size);
  // The root's budget shrinks only to what is allocated.
  EXPECT_EQ(ERR_RESIZE_FAIL, FSS_resize(&e.st, e.used() - 1));
  EXPECT_EQ(0, FSS_resize(&e.st, e.used()));
}

namespace {
// Makes `client`'s typeset hold `set` and, in its last slot, `sfnt`.
void hold(FS_STATE* client, FNTSET* set, SFNT* sfnt, int capacity) {
  client->cur_typeset.fntset = set;
  client->cur_typeset.capacity = capacity;
  client->cur_typeset.tfntarray = (TFNT*)FSS_calloc(client, capacity * sizeof(TFNT));
  client->cur_typeset.tfntarray[capacity - 1].sfnt = sfnt;
  set->ref_count = sfnt->ref_count = 1;
}
}  // namespace

TEST(EngineStop, ServerAndChildEndsFreeEverythingTheyHold) {
  // A child's end drops its typeset's holds and gives back its record.
  Engine root(100000);
  FS_STATE* child = FSS_new_client(&root.st, 0);
  LFNT* lfnt = makeLfnt(&root.st);
  FNTSET* set = makeFntset(&root.st, lfnt);
  SFNT* sfnt = makeSfnt(&root.st, lfnt);
  FS_ULONG before = root.used();
  hold(child, set, sfnt, 2);
  EXPECT_EQ(0u, FSS_end_client(child));
  EXPECT_EQ((V{0, 0, before - 216}), (V{set->ref_count, sfnt->ref_count, root.used()}));

  // The server's end, under the leak checker, proves nothing it holds
  // outlives it, here an orphan scaled font and held cache entries.
  FS_STATE st;
  ASSERT_EQ(0, FSS_init(&st, 1000000));
  lfnt = makeLfnt(&st, 0);
  set = makeFntset(&st, lfnt);
  sfnt = makeSfnt(&st, lfnt, true);
  makeSfnt(&st, nullptr, true);
  for (int i = 0; i < 4; i++) addCacheEntry(&st, i % 2, sfnt, 50, i % 2);
  hold(&st, set, sfnt, 1);
  EXPECT_EQ(0, FSS_exit(&st));
  EXPECT_EQ(nullptr, st.server);
  EXPECT_EQ(nullptr, st.cur_typeset.tfntarray);
}
