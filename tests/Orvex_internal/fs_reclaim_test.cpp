// The reclaim ladder: a full budget gives way by freeing what the engine can
// rebuild, one step per rung in a fixed order, and fails with the heap's code
// when nothing more can go. Records are built by hand as the font and cache
// units build them.
#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_tlist.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

using namespace enginetest;

namespace {

// A budget filled exactly with `n` cache entries of 1000 bytes in bucket 5,
// all on one scaled font; the first added is the least recently used.
struct FullCache {
  explicit FullCache(int n, FS_ULONG held = 0) : e(1000000) {
    sfnt = makeSfnt(&e.st, makeLfnt(&e.st));
    for (int i = 0; i < n; i++) entries.push_back(addCacheEntry(&e.st, 5, sfnt, 1000, held));
    e.fillBudget();
    full = e.used();
  }
  bool cached(int i) {
    for (CACHE_ENTRY* c = e.server()->cache[5]; c; c = c->next)
      if (c == entries[i]) return true;
    return false;
  }
  Engine e;
  SFNT* sfnt;
  std::vector<CACHE_ENTRY*> entries;
  FS_ULONG full;
};

}  // namespace

TEST(ReclaimLadder, AFullBudgetGivesWayByDroppingTheOldestUnheldGlyphs) {
  FullCache f(20);
  f.entries[0]->ref_counter = 1;  // the oldest is held by a caller: skipped
  // 3000 bytes need 3008: three entries' data of 1008 must go; the entries
  // themselves stay charged in their lump.
  void* p = FSS_malloc(&f.e.st, 3000);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(0u, f.e.st.error);
  EXPECT_EQ(17, bucketLength(&f.e.st, 5));
  EXPECT_EQ(17u, f.sfnt->cache_count);
  for (int i = 0; i < 20; i++) EXPECT_EQ(i == 0 || i > 3, f.cached(i)) << i;
  EXPECT_EQ(f.full - 3 * 1008 + 3008, f.e.used());
  EXPECT_EQ(f.entries[0], f.e.server()->cache[5]->prev);  // the tail link holds
  FSS_free(&f.e.st, p);
  // Shrinking the budget reclaims until it fits: 5000 less takes five more
  // (5 x 1008 = 5040).
  FS_ULONG now = f.e.used();
  EXPECT_EQ(0, FSS_resize(&f.e.st, now - 5000));
  EXPECT_EQ(12, bucketLength(&f.e.st, 5));
  EXPECT_EQ(now - 5040, f.e.used());
}

TEST(ReclaimLadder, NothingReclaimableFailsWith201And202AndTheWholeBudgetEmptiesNothing) {
  FullCache held(20, 1);  // every glyph held
  EXPECT_EQ(nullptr, FSS_malloc(&held.e.st, 100));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, held.e.st.error);
  EXPECT_EQ(20, bucketLength(&held.e.st, 5));
  EXPECT_EQ(held.full, held.e.used());
  // Growing a block runs the same ladder and reports 202.
  FS_BYTE* data = held.entries[0]->data;
  EXPECT_EQ(nullptr, FSS_realloc(&held.e.st, data, 2000));
  EXPECT_EQ((FS_ULONG)ERR_REALLOC_FAIL, held.e.st.error);
  EXPECT_EQ(data, held.entries[0]->data);
  EXPECT_EQ(held.full, held.e.used());
  EXPECT_EQ(0, get_some_back(&held.e.st));

  FullCache f(20);  // nothing held, but a request that can never fit
  EXPECT_EQ(nullptr, FSS_malloc(&f.e.st, f.e.server()->heap_size));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, f.e.st.error);
  EXPECT_EQ(20, bucketLength(&f.e.st, 5));
}

TEST(ReclaimLadder, ANewCacheEntryReusesOneTheLadderFreed) {
  // 127 entries fill one lump, one a bucket, every other one held; the
  // budget has no room for a second lump. The trim frees the 63 unheld,
  // which go back on the chain of the lump the 64 held keep alive.
  Engine e(1000000);
  SFNT* sfnt = makeSfnt(&e.st, makeLfnt(&e.st));
  for (int i = 0; i < 127; i++) addCacheEntry(&e.st, i, sfnt, 0, i % 2 == 0);
  e.fillBudget();
  FS_ULONG full = e.used();
  FS_MASTER_LUMP* lump = e.server()->list_of_lumps;
  CACHE_ENTRY* c = CACHE_ENTRY_calloc(&e.st);
  ASSERT_NE(nullptr, c);
  EXPECT_EQ(lump, c->master);
  EXPECT_EQ(65u, lump->ref_count);
  EXPECT_EQ(full, e.used());
  EXPECT_EQ(64u, sfnt->cache_count);
  CACHE_ENTRY_free(&e.st, c);
}

TEST(ReclaimLadder, EachRungRunsOneStepInItsOrder) {
  Engine e(1000000);
  LFNT* spare = makeLfnt(&e.st);  // an unused set on its own font
  makeFntset(&e.st, spare);
  LFNT* body = makeLfnt(&e.st, 2);  // a linked font: no TrueType data
  FNTSET* bodySet = makeFntset(&e.st, body);
  bodySet->count_added = 1;
  body->cmap_cache = (FS_CMAP_CACHE*)FSS_calloc(&e.st, 1024);
  SFNT* cached = makeSfnt(&e.st, body);  // held by nothing but its glyph
  addCacheEntry(&e.st, 0, cached, 100);
  SFNT* held = makeSfnt(&e.st, body, true);  // held by a client
  held->ref_count = 1;
  e.server()->raster = (RASTER*)FSS_calloc(&e.st, sizeof(RASTER));
  e.server()->tlist = (TLIST*)FSS_calloc(&e.st, sizeof(TLIST));
  e.server()->drop = (TLIST*)FSS_calloc(&e.st, sizeof(TLIST));
  e.server()->drop->ref_count = 1;  // in use: spared

  EXPECT_EQ(1, get_some_back(&e.st));  // 1: the unused set and its font only
  EXPECT_EQ(bodySet, e.server()->font_sets);
  EXPECT_EQ(nullptr, bodySet->next);
  EXPECT_EQ(body, e.server()->loaded_fonts);
  EXPECT_EQ(nullptr, body->next);
  EXPECT_NE(nullptr, e.server()->cache[0]);
  EXPECT_EQ(1, get_some_back(&e.st));  // 2: the cached glyph
  EXPECT_EQ(nullptr, e.server()->cache[0]);
  EXPECT_EQ(0u, cached->cache_count);
  EXPECT_EQ(1, get_some_back(&e.st));  // 3: the scaled font left bare
  EXPECT_EQ(held, e.server()->scaled_fonts);
  EXPECT_EQ(nullptr, held->next);
  EXPECT_EQ(1, get_some_back(&e.st));  // 4 finds no font data; 5: the raster
  EXPECT_EQ(nullptr, e.server()->raster);
  EXPECT_EQ(1, get_some_back(&e.st));  // 6: the idle transition list only
  EXPECT_EQ(nullptr, e.server()->tlist);
  EXPECT_NE(nullptr, e.server()->drop);
  EXPECT_EQ(1, get_some_back(&e.st));  // 7: the character map cache
  EXPECT_EQ(nullptr, body->cmap_cache);
  EXPECT_NE(nullptr, held->senv);
  EXPECT_EQ(1, get_some_back(&e.st));  // 9 spares the held font; 10 guts it
  EXPECT_EQ(nullptr, held->senv);
  EXPECT_EQ(held, e.server()->scaled_fonts);
  EXPECT_EQ(0, get_some_back(&e.st));
}

TEST(ReclaimLadder, TheCurrentScaledFontKeepsItsEnvironment) {
  Engine e(1000000);
  LFNT* lfnt = makeLfnt(&e.st);
  SFNT* current = makeSfnt(&e.st, lfnt, true);
  SFNT* other = makeSfnt(&e.st, lfnt, true);
  SFNT* unheld = makeSfnt(&e.st, lfnt, true);
  current->ref_count = 1;
  other->ref_count = 1;
  unheld->active_count = 1;  // a caller holds one of its glyphs
  e.st.cur_sfnt = current;
  // 9: the scaled font no client holds; 10: the other one; never current.
  EXPECT_EQ(1, gut_other_sfnts(&e.st, 1));
  EXPECT_EQ(nullptr, unheld->senv);
  EXPECT_NE(nullptr, other->senv);
  EXPECT_EQ(1, get_some_back(&e.st));
  EXPECT_EQ(nullptr, other->senv);
  EXPECT_NE(nullptr, current->senv);
  EXPECT_EQ(0, get_some_back(&e.st));
  unheld->active_count = 0;
}

TEST(ReclaimLadder, FontDataIsUnloadedButNeverWhileLoadingOrCurrent) {
  Engine e(1000000);
  LFNT* lfnt = makeLfnt(&e.st, 0);
  FNTSET* set = makeFntset(&e.st, lfnt);
  set->count_added = 1;
  lfnt->fnt = load_ttf(&e.st, (FILECHAR*)kDejaVuSansFile, nullptr, 0, 0, 0, 0, 0);
  ASSERT_NE(nullptr, lfnt->fnt) << "cannot load " << kDejaVuSansFile;
  lfnt->cmap_cache = (FS_CMAP_CACHE*)FSS_calloc(&e.st, 1024);
  SFNT* sfnt = makeSfnt(&e.st, lfnt, true);
  sfnt->ref_count = 1;
  fsg_SplineKey* key = (fsg_SplineKey*)sfnt->senv->ttkey;
  // Steps 4 and 8 spare a font being loaded, and the client's current font.
  lfnt->loading = 1;
  EXPECT_EQ(0, gut_unused_fntsets(&e.st, 1));
  EXPECT_EQ(0, gut_unused_fntsets(&e.st, 0));
  lfnt->loading = 0;
  e.st.cur_lfnt = lfnt;
  EXPECT_EQ(0, gut_unused_fntsets(&e.st, 0));
  e.st.cur_lfnt = nullptr;
  // A current set keeps its font through step 4, not through step 8; the
  // key is told to rebuild and the environment stays.
  set->ref_count = 1;
  EXPECT_EQ(0, gut_unused_fntsets(&e.st, 1));
  EXPECT_EQ(1, gut_unused_fntsets(&e.st, 0));
  EXPECT_EQ(nullptr, lfnt->fnt);
  EXPECT_EQ(nullptr, lfnt->cmap_cache);
  EXPECT_EQ(nullptr, key->maxp);
  EXPECT_EQ(key, sfnt->senv->ttkey);
  set->ref_count = 0;
}
