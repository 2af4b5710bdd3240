// The reclaim ladder: a full budget gives way by freeing what the engine can
// rebuild, one step per rung in a fixed order, and fails with the heap's code
// when nothing more can go. Records are built by hand as the font and cache
// units will build them.
#include <gtest/gtest.h>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_tlist.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

using namespace enginetest;

namespace {

// A budget filled exactly with `n` cache entries of 1000 bytes each in one
// bucket, all on one scaled font. The first entry added is the least
// recently used.
struct FullCache {
  explicit FullCache(int n, FS_ULONG held = 0) : e(1000000) {
    lfnt = makeLfnt(&e.st);
    sfnt = makeSfnt(&e.st, lfnt);
    for (int i = 0; i < n; i++)
      entries.push_back(addCacheEntry(&e.st, 5, sfnt, 1000, held));
    e.fillBudget();
  }
  Engine e;
  LFNT* lfnt;
  SFNT* sfnt;
  std::vector<CACHE_ENTRY*> entries;
};

bool inBucket(FS_STATE* st, int bucket, CACHE_ENTRY* x) {
  for (CACHE_ENTRY* c = st->server->cache[bucket]; c; c = c->next)
    if (c == x) return true;
  return false;
}

}  // namespace

TEST(ReclaimLadder, AFullBudgetGivesWayByDroppingTheOldestCachedGlyphs) {
  FullCache f(20);
  FS_ULONG full = f.e.used();
  // 3000 bytes need 3008: three entries' data of 1008 each must go. The
  // entries themselves stay charged in their lump.
  void* p = FSS_malloc(&f.e.st, 3000);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(0u, f.e.st.error);
  EXPECT_EQ(17, bucketLength(&f.e.st, 5));
  EXPECT_EQ(17u, f.sfnt->cache_count);
  for (int i = 0; i < 3; i++) EXPECT_FALSE(inBucket(&f.e.st, 5, f.entries[i]));
  for (int i = 3; i < 20; i++) EXPECT_TRUE(inBucket(&f.e.st, 5, f.entries[i]));
  EXPECT_EQ(full - 3 * 1008 + 3008, f.e.used());
  // The bucket's tail link still closes the list.
  EXPECT_EQ(f.entries[3], f.e.server()->cache[5]->prev);
  FSS_free(&f.e.st, p);
}

TEST(ReclaimLadder, HeldGlyphsAreSkippedOnTheWayBackFromTheTail) {
  FullCache f(5);
  f.entries[0]->ref_counter = 1;  // the oldest is held by a caller
  void* p = FSS_malloc(&f.e.st, 1000);
  ASSERT_NE(nullptr, p);
  EXPECT_TRUE(inBucket(&f.e.st, 5, f.entries[0]));
  EXPECT_FALSE(inBucket(&f.e.st, 5, f.entries[1]));
  EXPECT_EQ(4, bucketLength(&f.e.st, 5));
  // The tail is unchanged: entries[0] is still the least recently used.
  EXPECT_EQ(f.entries[0], f.e.server()->cache[5]->prev);
  FSS_free(&f.e.st, p);
}

TEST(ReclaimLadder, NothingReclaimableFailsWith201And202) {
  FullCache f(20, 1);  // every glyph held
  FS_ULONG full = f.e.used();
  EXPECT_EQ(nullptr, FSS_malloc(&f.e.st, 100));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, f.e.st.error);
  EXPECT_EQ(20, bucketLength(&f.e.st, 5));
  EXPECT_EQ(full, f.e.used());
  // Growing a block runs the same ladder and reports 202.
  FS_BYTE* data = f.entries[0]->data;
  EXPECT_EQ(nullptr, FSS_realloc(&f.e.st, data, 2000));
  EXPECT_EQ((FS_ULONG)ERR_REALLOC_FAIL, f.e.st.error);
  EXPECT_EQ(data, f.entries[0]->data);
  EXPECT_EQ(full, f.e.used());
  EXPECT_EQ(0, get_some_back(&f.e.st));
}

TEST(ReclaimLadder, ARequestAtTheWholeBudgetEmptiesNoCache) {
  FullCache f(20);
  EXPECT_EQ(nullptr, FSS_malloc(&f.e.st, f.e.server()->heap_size));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, f.e.st.error);
  EXPECT_EQ(20, bucketLength(&f.e.st, 5));
}

TEST(ReclaimLadder, ShrinkingTheBudgetReclaimsUntilItFits) {
  FullCache f(20);
  FS_ULONG full = f.e.used();
  EXPECT_EQ(0, FSS_resize(&f.e.st, full - 5000));
  // Five entries' data (5 * 1008 = 5040) had to go.
  EXPECT_EQ(15, bucketLength(&f.e.st, 5));
  EXPECT_EQ(full - 5040, f.e.used());
  EXPECT_EQ(full - 5000, f.e.server()->heap_size);
}

TEST(ReclaimLadder, ANewCacheEntryReusesOneTheLadderFreed) {
  // 127 entries fill one lump, each in its own bucket, every other one held
  // by a caller; the budget then has no room for a second lump.
  Engine e(1000000);
  LFNT* lfnt = makeLfnt(&e.st);
  SFNT* sfnt = makeSfnt(&e.st, lfnt);
  for (int i = 0; i < 127; i++) addCacheEntry(&e.st, i, sfnt, 0, i % 2 == 0);
  e.fillBudget();
  FS_ULONG full = e.used();
  FS_MASTER_LUMP* lump = e.server()->list_of_lumps;
  // The trim frees the 63 unheld entries, one per bucket, which go back on
  // the chain of the lump that the 64 held ones keep alive; the new entry
  // is taken from there without a new lump.
  CACHE_ENTRY* c = CACHE_ENTRY_calloc(&e.st);
  ASSERT_NE(nullptr, c);
  EXPECT_EQ(0u, e.st.error);
  EXPECT_EQ(lump, c->master);
  EXPECT_EQ(65u, lump->ref_count);
  EXPECT_EQ(full, e.used());
  EXPECT_EQ(64u, sfnt->cache_count);
  CACHE_ENTRY_free(&e.st, c);
}

TEST(ReclaimLadder, EachRungRunsOneStepInItsOrder) {
  Engine e(1000000);
  // An unused font set on its own font; a cached glyph of a scaled font
  // that nothing else holds; a scaled font with an environment that a
  // client holds; a graymap raster and a transition list between glyphs.
  LFNT* spare = makeLfnt(&e.st);
  makeFntset(&e.st, spare);
  LFNT* body = makeLfnt(&e.st, 2);  // a linked font: no TrueType data
  FNTSET* bodySet = makeFntset(&e.st, body);
  bodySet->count_added = 1;
  body->cmap_cache = (FS_CMAP_CACHE*)FSS_calloc(&e.st, 1024);
  SFNT* cached = makeSfnt(&e.st, body);
  addCacheEntry(&e.st, 0, cached, 100);
  SFNT* held = makeSfnt(&e.st, body, true);
  held->ref_count = 1;
  e.server()->raster = (RASTER*)FSS_calloc(&e.st, sizeof(RASTER));
  e.server()->tlist = (TLIST*)FSS_calloc(&e.st, sizeof(TLIST));
  e.server()->drop = (TLIST*)FSS_calloc(&e.st, sizeof(TLIST));
  e.server()->drop->ref_count = 1;  // in use: spared

  // 1: the unused font set, with its font and nothing else.
  EXPECT_EQ(1, get_some_back(&e.st));
  EXPECT_EQ(bodySet, e.server()->font_sets);
  EXPECT_EQ(nullptr, bodySet->next);
  EXPECT_EQ(body, e.server()->loaded_fonts);
  EXPECT_EQ(nullptr, body->next);
  EXPECT_NE(nullptr, e.server()->cache[0]);
  // 2: the cached glyph.
  EXPECT_EQ(1, get_some_back(&e.st));
  EXPECT_EQ(nullptr, e.server()->cache[0]);
  EXPECT_EQ(0u, cached->cache_count);
  // 3: the scaled font now without glyphs or holders.
  EXPECT_EQ(1, get_some_back(&e.st));
  EXPECT_EQ(held, e.server()->scaled_fonts);
  EXPECT_EQ(nullptr, held->next);
  // 4 finds no font data loaded; 5: the raster.
  EXPECT_EQ(1, get_some_back(&e.st));
  EXPECT_EQ(nullptr, e.server()->raster);
  // 6: the idle transition list only.
  EXPECT_EQ(1, get_some_back(&e.st));
  EXPECT_EQ(nullptr, e.server()->tlist);
  EXPECT_NE(nullptr, e.server()->drop);
  // 7: the font's character map cache.
  EXPECT_EQ(1, get_some_back(&e.st));
  EXPECT_EQ(nullptr, body->cmap_cache);
  // 9 spares the held scaled font; 10 takes its environment.
  EXPECT_NE(nullptr, held->senv);
  EXPECT_EQ(1, get_some_back(&e.st));
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
  lfnt->fnt = load_ttf(&e.st,
                       (FILECHAR*)"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                       nullptr, 0, 0, 0, 0, 0);
  ASSERT_NE(nullptr, lfnt->fnt);
  lfnt->cmap_cache = (FS_CMAP_CACHE*)FSS_calloc(&e.st, 1024);
  SFNT* sfnt = makeSfnt(&e.st, lfnt, true);
  sfnt->ref_count = 1;
  fsg_SplineKey* key = (fsg_SplineKey*)sfnt->senv->ttkey;

  lfnt->loading = 1;
  e.st.cur_lfnt = nullptr;
  // 4 and 8 spare a font being loaded, and the client's current font.
  EXPECT_EQ(0, gut_unused_fntsets(&e.st, 1));
  EXPECT_EQ(0, gut_unused_fntsets(&e.st, 0));
  lfnt->loading = 0;
  e.st.cur_lfnt = lfnt;
  EXPECT_EQ(0, gut_unused_fntsets(&e.st, 0));
  e.st.cur_lfnt = nullptr;

  // A current set keeps its font through step 4, not through step 8.
  set->ref_count = 1;
  EXPECT_EQ(0, gut_unused_fntsets(&e.st, 1));
  EXPECT_EQ(1, gut_unused_fntsets(&e.st, 0));
  EXPECT_EQ(nullptr, lfnt->fnt);
  EXPECT_EQ(nullptr, lfnt->cmap_cache);
  // The key is told to rebuild; the environment stays.
  EXPECT_EQ(nullptr, key->maxp);
  EXPECT_EQ(key, sfnt->senv->ttkey);
  set->ref_count = 0;
}
