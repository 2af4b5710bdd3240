// Starting and ending engine clients: the root client's defaults and budget,
// child clients on the shared budget, ending order, budget changes, and the
// server's end freeing what it holds.
#include "Orvex_internal/fs_api.h"

#include <gtest/gtest.h>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_string.h"
#include "Orvex_internal/fs_tableptr.h"
#include "Orvex_internal/fs_tlist.h"
#include "Orvex_internal/fs_xmalloc.h"

using namespace enginetest;

TEST(EngineStart, RootClientStartsWithItsDefaultsAndOnlyTheScratchCharged) {
  FS_STATE st;
  ASSERT_EQ(0, FSS_init(&st, 100000));
  struct {
    long got, want;
    const char* what;
  } rows[] = {
      {(long)FS_get_heap_used(&st), 3008, "the 3000-byte scratch and its header"},
      {(long)st.server->heap_size, 100000, "the budget asked for"},
      {(long)FS_get_version(&st), 327983, "the engine's version"},
      {(long)FS_error(&st), 0, "no error"},
      {(long)st.heap_size, 0, "a root client adds no heap of its own"},
      {st.stroke_pct, 3277, "stroke 0.05"},
      {st.bold_pct, 0, "no emboldening"},
      {st.platform, 0xFFFF, "no cmap chosen"},
      {st.encoding, 0xFFFF, "no cmap chosen"},
      {st.varPlatform, 0, "variation selectors: Unicode"},
      {st.varEncoding, 5, "variation selectors: Unicode"},
      {st.outline_width, 1, "outline width"},
      {st.outline_opacity, 65536, "outline opacity 1.0"},
      {st.insideCutoff, 26214, "0.4 in 16.16"},
      {st.outsideCutoff, -36700, "-0.56 in 16.16"},
      {st.gamma, 65536, "1.0 in 16.16"},
      {(long)((const SSUnion*)st.server->scratch.buffer)->size, 2992, "one free block of 3000 - 8"},
      {st.server->scratch.beyond - st.server->scratch.buffer, 3000, "the scratch's end"},
  };
  for (auto& r : rows) EXPECT_EQ(r.want, r.got) << r.what;
  EXPECT_EQ(nullptr, st.parent);
  EXPECT_EQ(0, FSS_exit(&st));
  EXPECT_EQ(nullptr, st.server);
  EXPECT_EQ(0u, FS_get_heap_used(&st));
  EXPECT_EQ(0u, FS_get_version(&st));
  EXPECT_EQ(ERR_BAD_ARGUMENT, FSS_exit(&st));  // a second end finds no server
  EXPECT_EQ(ERR_BAD_ARGUMENT, FSS_exit(nullptr));
}

TEST(EngineStart, BudgetTooSmallForTheScratchBufferFailsAndReleasesTheServer) {
  FS_STATE st;
  // 3000: the scratch request is the whole budget; 3007: no room for its
  // 8-byte header.
  for (FS_ULONG heap : {0u, 3000u, 3007u}) {
    EXPECT_EQ(ERR_MALLOC_FAIL, FSS_init(&st, heap)) << heap;
    EXPECT_EQ(nullptr, st.server) << heap;
    EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, st.error) << heap;
  }
  ASSERT_EQ(0, FSS_init(&st, 3008));  // exactly enough, and nothing else fits
  EXPECT_EQ(nullptr, FSS_malloc(&st, 1));
  EXPECT_EQ(0, FSS_exit(&st));
}

TEST(EngineClients, AChildLivesOnTheSharedBudgetAndGivesEverythingBack) {
  Engine root(10000);
  for (FS_ULONG heap : {5000u, 0u}) {
    FS_STATE* child = FSS_new_client(&root.st, heap);
    ASSERT_NE(nullptr, child);
    EXPECT_EQ(10000 + heap, root.server()->heap_size);
    EXPECT_EQ(kInitCharge + 200, root.used());  // its 192-byte record
    EXPECT_EQ(&root.st, child->parent);
    EXPECT_EQ(root.server(), child->server);
    EXPECT_EQ(1u, root.st.ref_count);
    EXPECT_EQ(1u, root.server()->client_count);
    EXPECT_EQ(3277, child->stroke_pct);  // the root's defaults
    EXPECT_EQ(26214, child->insideCutoff);
    void* p = FSS_malloc(child, 100);  // from the same counter
    EXPECT_EQ(kInitCharge + 200 + 108, root.used());
    FSS_free(child, p);
    EXPECT_EQ(0u, FSS_end_client(child));
    EXPECT_EQ(10000u, root.server()->heap_size);
    EXPECT_EQ(kInitCharge, root.used());
    EXPECT_EQ(0u, root.st.ref_count);
    EXPECT_EQ(0u, root.server()->client_count);
  }
  EXPECT_EQ((FS_ULONG)ERR_BAD_ARGUMENT, FSS_end_client(nullptr));
  EXPECT_EQ((FS_ULONG)ERR_BAD_ARGUMENT, FSS_end_client(&root.st));  // root: FSS_exit
  EXPECT_NE(nullptr, root.server());
  EXPECT_EQ(nullptr, FSS_new_client(nullptr, 0));
}

TEST(EngineClients, EndingAClientWithAChildGives508AndKeepsItUsable) {
  Engine root(20000);
  FS_STATE* child = FSS_new_client(&root.st, 1000);
  FS_STATE* grandchild = FSS_new_client(child, 1000);
  ASSERT_NE(nullptr, grandchild);
  EXPECT_EQ(22000u, root.server()->heap_size);
  EXPECT_EQ(2u, root.server()->client_count);
  EXPECT_EQ((FS_ULONG)ERR_CLIENT_HAS_CHILDREN, FSS_end_client(child));
  EXPECT_EQ((FS_ULONG)ERR_CLIENT_HAS_CHILDREN, child->error);
  EXPECT_EQ(22000u, root.server()->heap_size);
  void* p = FSS_malloc(child, 64);
  EXPECT_EQ(0u, child->error);
  FSS_free(child, p);
  EXPECT_EQ(0u, FSS_end_client(grandchild));
  EXPECT_EQ(0u, FSS_end_client(child));
  EXPECT_EQ(kInitCharge, root.used());
  EXPECT_EQ(20000u, root.server()->heap_size);
}

TEST(EngineClients, ABudgetThatCannotBeTakenBackKeepsTheChildUntilItCan) {
  // 3100 - 3008 = 92 left: no room for a 200-byte client record (201, the
  // server as it was); with 200 of its own heap it fits. Ending takes the
  // budget back before freeing the record, and 3100 can't hold the 3208
  // still allocated then: 206, the child stays.
  Engine small(3100);
  EXPECT_EQ(nullptr, FSS_new_client(&small.st, 0));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, small.st.error);
  EXPECT_EQ(0u, small.server()->client_count);
  FS_STATE* child = FSS_new_client(&small.st, 200);
  ASSERT_NE(nullptr, child);
  EXPECT_EQ((FS_ULONG)ERR_RESIZE_FAIL, FSS_end_client(child));
  EXPECT_EQ(1u, small.st.ref_count);
  EXPECT_EQ(0, FSS_resize(&small.st, 3500));
  EXPECT_EQ(0u, FSS_end_client(child));
  EXPECT_EQ(3300u, small.server()->heap_size);

  // 4000 + 5000 with 3208 + 5008 allocated cannot shrink back to 4000.
  Engine root(4000);
  child = FSS_new_client(&root.st, 5000);
  void* p = FSS_malloc(&root.st, 5000);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ((FS_ULONG)ERR_RESIZE_FAIL, FSS_end_client(child));
  EXPECT_EQ(9000u, root.server()->heap_size);
  FSS_free(&root.st, p);
  EXPECT_EQ(0u, FSS_end_client(child));
  EXPECT_EQ(4000u, root.server()->heap_size);
}

TEST(EngineBudget, GrowsAtOnceAndShrinksOnlyToWhatIsAllocated) {
  Engine e(10000);
  EXPECT_EQ(0, FSS_resize(&e.st, 20000));
  EXPECT_EQ(20000u, e.server()->heap_size);
  void* p = FSS_malloc(&e.st, 992);  // 4008 allocated
  EXPECT_EQ(ERR_RESIZE_FAIL, FSS_resize(&e.st, 4007));
  EXPECT_EQ((FS_ULONG)ERR_RESIZE_FAIL, e.st.error);
  EXPECT_EQ(20000u, e.server()->heap_size);
  EXPECT_EQ(0, FSS_resize(&e.st, 4008));
  EXPECT_EQ(4008u, e.server()->heap_size);
  EXPECT_EQ(0u, e.st.error);
  FSS_free(&e.st, p);
}

TEST(EngineStop, TheServerEndFreesEverythingItHolds) {
  // Under the leak checker this proves nothing the server holds outlives it.
  FS_STATE st;
  ASSERT_EQ(0, FSS_init(&st, 1000000));
  LFNT* lfnt = makeLfnt(&st, 0);
  lfnt->name = FS_strdup(&st, "Body");
  lfnt->path = FS_strdup(&st, "/fonts/body.ttf");
  lfnt->cmap_cache = (FS_CMAP_CACHE*)FSS_calloc(&st, 256 * 4);
  FNTSET* set = makeFntset(&st, lfnt);
  set->name = FS_strdup(&st, "Body");
  set->path = FS_strdup(&st, "/fonts/body.ttf");
  set->kern = (FNTSET_OT_TABLE*)FSS_calloc(&st, sizeof(FNTSET_OT_TABLE));
  SFNT* sfnt = makeSfnt(&st, lfnt, true);
  makeSfnt(&st, nullptr, true);  // an orphan: its font has gone
  for (int i = 0; i < 200; i++) addCacheEntry(&st, i % 7, sfnt, 50, i % 2);
  TABLE_PTR_REC* rec = (TABLE_PTR_REC*)FSS_calloc(&st, sizeof(TABLE_PTR_REC));
  rec->ptr = (FS_BYTE*)FSS_malloc(&st, 40);
  rec->external = 1;
  st.server->table_ptrs = rec;
  st.server->tlist = (TLIST*)FSS_calloc(&st, sizeof(TLIST));
  st.server->tlist->nodes = (TNODE*)FSS_calloc(&st, 64);
  st.server->drop = (TLIST*)FSS_calloc(&st, sizeof(TLIST));
  st.server->raster = (RASTER*)FSS_calloc(&st, sizeof(RASTER));
  st.server->raster->areas = (FS_FIXED*)FSS_calloc(&st, 400);
  st.server->raster->areasize = 50;
  st.server->workspaceSize = 128;
  st.server->workspace = (FS_BYTE*)FSS_malloc(&st, 128);
  // The client's own typeset holds the set and the scaled font.
  st.cur_typeset.fntset = set;
  set->ref_count = 1;
  st.cur_typeset.capacity = 1;
  st.cur_typeset.tfntarray = (TFNT*)FSS_calloc(&st, sizeof(TFNT));
  st.cur_typeset.tfntarray[0].sfnt = sfnt;
  sfnt->ref_count = 1;
  EXPECT_GT(FS_get_heap_used(&st), 20000u);
  EXPECT_EQ(0, FSS_exit(&st));
  EXPECT_EQ(nullptr, st.server);
  EXPECT_EQ(nullptr, st.cur_typeset.tfntarray);
}

TEST(EngineStop, ChildEndDropsItsTypesetHolds) {
  Engine root(100000);
  FS_STATE* child = FSS_new_client(&root.st, 0);
  LFNT* lfnt = makeLfnt(&root.st);
  FNTSET* set = makeFntset(&root.st, lfnt);
  SFNT* sfnt = makeSfnt(&root.st, lfnt);
  child->cur_typeset.fntset = set;
  set->ref_count = 1;
  child->cur_typeset.capacity = 2;
  child->cur_typeset.tfntarray = (TFNT*)FSS_calloc(child, 2 * sizeof(TFNT));
  child->cur_typeset.tfntarray[1].sfnt = sfnt;
  sfnt->ref_count = 1;
  FS_ULONG before = root.used();
  EXPECT_EQ(0u, FSS_end_client(child));
  EXPECT_EQ(0u, set->ref_count);
  EXPECT_EQ(0u, sfnt->ref_count);
  // The typeset array (2 x 24 + 8) and the client record (200) are back.
  EXPECT_EQ(before - 56 - 200, root.used());
}
