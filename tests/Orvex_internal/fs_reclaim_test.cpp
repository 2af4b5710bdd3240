// The reclaim ladder: a full budget gives way by freeing what the engine can
// rebuild, one step per rung in a fixed order, and fails with the heap's code
// when nothing more can go.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_tlist.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

using namespace enginetest;

namespace {

typedef std::vector<long> V;

// A budget filled exactly with `n` cache entries of 1000 bytes in bucket 5,
// all on one scaled font; the first added is the least recently used.
struct FullCache {
  explicit FullCache(int n, FS_ULONG held = 0) : e(1000000) {
    sfnt = makeSfnt(&e.st, makeLfnt(&e.st));
    for (int i = 0; i < n; i++) entries.push_back(addCacheEntry(&e.st, 5, sfnt, 1000, held));
    e.fillBudget();
    full = e.used();
  }
  // {error, entries in the bucket, entries counted on the font, heap used}
  V state() { return V{e.st.error, bucketLength(&e.st, 5), sfnt->cache_count, e.used()}; }
  Engine e;
  SFNT* sfnt;
  std::vector<CACHE_ENTRY*> entries;
  long full;
};

}  // namespace

TEST(ReclaimLadder, AFullBudgetGivesWayByDroppingTheOldestUnheldGlyphs) {
  FullCache f(20);
  f.entries[0]->ref_counter = 1;  // the oldest is held by a caller: skipped
  // 3000 bytes need 3008: entries 1 to 3 lose their data (3 x 1008); the
  // entries themselves stay charged in their lump.
  void* p = FSS_malloc(&f.e.st, 3000);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ((V{0, 17, 17, f.full - 3 * 1008 + 3008}), f.state());
  FSS_free(&f.e.st, p);
  // Shrinking the budget reclaims until it fits: 5000 less takes five more.
  long now = f.e.used();
  EXPECT_EQ(0, FSS_resize(&f.e.st, now - 5000));
  EXPECT_EQ((V{0, 12, 12, now - 5 * 1008}), f.state());
}

TEST(ReclaimLadder, NothingReclaimableFailsWith201And202AndTheWholeBudgetEmptiesNothing) {
  FullCache held(20, 1);  // every glyph held
  EXPECT_EQ(nullptr, FSS_malloc(&held.e.st, 100));
  EXPECT_EQ((V{ERR_MALLOC_FAIL, 20, 20, held.full}), held.state());
  // Growing a block runs the same ladder and reports 202.
  EXPECT_EQ(nullptr, FSS_realloc(&held.e.st, held.entries[0]->data, 2000));
  EXPECT_EQ((V{ERR_REALLOC_FAIL, 20, 20, held.full}), held.state());
  FullCache f(20);  // nothing held, but a request that can never fit
  EXPECT_EQ(nullptr, FSS_malloc(&f.e.st, f.e.server()->heap_size));
  EXPECT_EQ((V{ERR_MALLOC_FAIL, 20, 20, f.full}), f.state());
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

  // What each call of the ladder has taken, in order, once it returns 1.
  struct {
    const char* why;
    std::function<bool()> done;
  } rungs[] = {
      {"1: the unused set and its font, nothing else",
       [&] {
         return e.server()->font_sets == bodySet && !bodySet->next &&
                e.server()->loaded_fonts == body && !body->next && e.server()->cache[0];
       }},
      {"2: the cached glyph", [&] { return !e.server()->cache[0] && cached->cache_count == 0; }},
      {"3: the scaled font left bare",
       [&] { return e.server()->scaled_fonts == held && !held->next; }},
      {"4 finds no font data; 5: the raster", [&] { return !e.server()->raster; }},
      {"6: the idle transition list only", [&] { return !e.server()->tlist && e.server()->drop; }},
      {"7: the character map cache", [&] { return !body->cmap_cache && held->senv; }},
      {"9 spares the held scaled font; 10 takes its environment",
       [&] { return !held->senv && e.server()->scaled_fonts == held; }},
  };
  for (auto& r : rungs) {
    EXPECT_EQ(1, get_some_back(&e.st)) << r.why;
    EXPECT_TRUE(r.done()) << r.why;
  }
  EXPECT_EQ(0, get_some_back(&e.st));
}

TEST(ReclaimLadder, TheCurrentScaledFontKeepsItsEnvironment) {
  Engine e(1000000);
  LFNT* lfnt = makeLfnt(&e.st);
  SFNT* current = makeSfnt(&e.st, lfnt, true);
  SFNT* other = makeSfnt(&e.st, lfnt, true);
  current->ref_count = other->ref_count = 1;
  e.st.cur_sfnt = current;
  EXPECT_EQ(1, get_some_back(&e.st));
  EXPECT_EQ(nullptr, other->senv);
  EXPECT_EQ(0, get_some_back(&e.st));
  EXPECT_NE(nullptr, current->senv);
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
  typedef std::vector<const void*> P;
  EXPECT_EQ((P{nullptr, nullptr, nullptr, key}),
            (P{lfnt->fnt, lfnt->cmap_cache, key->maxp, sfnt->senv->ttkey}));
  set->ref_count = 0;
}
