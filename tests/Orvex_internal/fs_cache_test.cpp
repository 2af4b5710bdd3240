// The glyph cache through get_graymap on a real font: holds and releases,
// the key's phase and depth, the size limit, removal of a held font, and
// the reclaim ladder emptying it back to the heap.
#include "Orvex_internal/fs_cache.h"

#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/scaled_font.h"

namespace {

const FS_USHORT kGlyphA = 36;  // 'A' in DejaVu Sans
typedef std::vector<long> V;

// DejaVu Sans unhinted at `ppem`, its font current.
class Cache : public ::testing::Test {
 protected:
  void SetUp() override {
    f.setFont(enginetest::kDejaVuSansFile);
    ready(24);
  }
  void ready(int ppem) {
    ASSERT_EQ(0, f.setPpem(ppem)) << "cannot scale " << enginetest::kDejaVuSansFile;
    f.st.cur_lfnt = f.lfnt;
    f.st.flags |= FLAGS_NO_HINTS;
  }
  FS_GRAYMAP* gray(FS_USHORT index, FS_SHORT px = 0, FS_SHORT py = 0, FS_USHORT type = 8) {
    return get_graymap(&f.st, index, index, type, px, py);
  }
  SFNT* sfnt() { return f.st.cur_sfnt; }
  int entries() {
    int n = 0;
    for (int b = 0; b < FS_CACHE_BUCKETS; b++)
      for (CACHE_ENTRY* e = f.st.server->cache[b]; e; e = e->next) n++;
    return n;
  }
  testsupport::ScaledFont f;
};

TEST_F(Cache, RepeatedRequestGivesTheSameRecordAndCountsFollowTheHolds) {
  FS_GRAYMAP* a = gray(kGlyphA);
  ASSERT_TRUE(a && a->cache_ptr);
  CACHE_ENTRY* entry = a->cache_ptr;
  // {holds of the record, entries held on the font, entries cached on it}
  auto counts = [&] { return V{entry->ref_counter, sfnt()->active_count, sfnt()->cache_count}; };
  EXPECT_EQ((V{1, 1, 1}), counts()) << "first request";
  EXPECT_EQ(a, gray(kGlyphA));
  EXPECT_EQ((V{2, 1, 1}), counts()) << "second request: one entry held twice";
  FSS_free_char(&f.st, a);
  FSS_free_char(&f.st, a);
  EXPECT_EQ((V{0, 0, 1}), counts()) << "both given back: still cached";
  EXPECT_EQ(a, gray(kGlyphA));  // served again, held once
  // Removing the font's cache while a record is held stops with 610.
  delete_fs_cache(&f.st, sfnt());
  EXPECT_EQ((V{ERR_FONT_IN_USE, 1}), (V{f.st.error, entries()}));
  FSS_free_char(&f.st, a);
  f.st.error = 0;
  delete_fs_cache(&f.st, sfnt());
  EXPECT_EQ((V{0, 0, 0}), (V{f.st.error, entries(), sfnt()->cache_count}));
}

TEST_F(Cache, PhaseAndDepthArePartOfTheKey) {
  FS_GRAYMAP* p0 = gray(kGlyphA, 0, 0);
  FS_GRAYMAP* p1 = gray(kGlyphA, 1, 0);
  FS_GRAYMAP* g4 = gray(kGlyphA, 0, 0, FS_MAP_GRAYMAP4);
  ASSERT_TRUE(p0 && p1 && g4);
  EXPECT_TRUE(p0 != p1 && p0 != g4);
  EXPECT_EQ((V{CACHE_GRAYMAP4, 3}), (V{g4->cache_ptr->type, entries()}));
}

TEST_F(Cache, RecordsAboveTheSizeLimitAreNotKept) {
  // A kept record of exactly 5120 bytes and a refused one of 5121, which
  // stays the caller's with a null cache_ptr, freed when given back.
  FS_GRAYMAP* a = (FS_GRAYMAP*)FSS_calloc(&f.st, 5120);
  FS_GRAYMAP* b = (FS_GRAYMAP*)FSS_calloc(&f.st, 5121);
  a->size = 5120;
  b->size = 5121;
  EXPECT_EQ(1, save_to_cache(&f.st, CACHE_GRAYMAP8, 7, 0, a));
  EXPECT_EQ(0, save_to_cache(&f.st, CACHE_GRAYMAP8, 8, 0, b));
  EXPECT_TRUE(a->cache_ptr != nullptr && b->cache_ptr == nullptr);
  FSS_free_char(&f.st, b);
  EXPECT_EQ(nullptr, find_in_cache(&f.st, CACHE_GRAYMAP8, 8, 0));
  EXPECT_EQ(a, find_in_cache(&f.st, CACHE_GRAYMAP8, 7, 0));
  FSS_free_char(&f.st, a);
  FSS_free_char(&f.st, a);
}

TEST_F(Cache, ReclaimLadderEmptiesItBackToTheHeapSparingHeldRecords) {
  // Warm up: the raster record and the key exist after one glyph; the
  // ladder's cache step then takes that glyph and its lump.
  FSS_free_char(&f.st, gray(kGlyphA));
  EXPECT_EQ(1, trim_cache(&f.st));
  FS_ULONG before = f.st.server->allocated;
  for (FS_USHORT i : {36, 37, 38, 68, 69, 70}) FSS_free_char(&f.st, gray(i));
  FS_GRAYMAP* held = gray(36);
  int taken = 0, n;
  while ((n = trim_cache(&f.st)) != 0) taken += n;
  EXPECT_EQ((V{5, 1}), (V{taken, entries()}));
  FSS_free_char(&f.st, held);
  EXPECT_EQ(1, trim_cache(&f.st));
  EXPECT_EQ((V{0, 0, 0, before}),
            (V{entries(), sfnt()->cache_count, sfnt()->active_count, f.st.server->allocated}));
}

TEST_F(Cache, QuarterPixelPhasesMoveTheGlyphRightAndDown) {
  // 'l' (glyph 79) at 64 ppem: x 6.03125 .. 11.78125, y 0 .. 48.625. Phase x
  // 1 moves it to 6.28125: the left column keeps 0.71875 (184), column 11
  // takes 1 (255) and column 12 0.03125 (8). Phase y 1 moves it down to
  // -0.25: a row below the baseline covered 0.25 (64).
  ready(64);
  FS_GRAYMAP* g = gray(79, 1, 0);
  ASSERT_NE(nullptr, g);
  const FS_BYTE* mid = g->bits + 20 * g->bpl;
  EXPECT_EQ((V{6, 7, 184, 255, 8}), (V{g->lo_x, g->width, mid[0], mid[5], mid[6]}));
  g = gray(79, 0, 1);
  ASSERT_NE(nullptr, g);
  EXPECT_EQ((V{50, 64}), (V{g->height, g->bits[49 * g->bpl + 2]}));
}

}  // namespace
