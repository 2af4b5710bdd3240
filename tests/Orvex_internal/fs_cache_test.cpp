// The glyph cache through get_graymap on a real font: one record for a
// repeated request, the counts that follow holds and releases, the key's
// phase and style, the size limit, removal of a held font, and the reclaim
// ladder emptying it back to the heap.
#include <gtest/gtest.h>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/scaled_font.h"

namespace {

const char* kDejaVu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const FS_USHORT kGlyphA = 36;  // 'A' in DejaVu Sans

class Cache : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(f.started);
    f.setFont(kDejaVu);
    ASSERT_EQ(0, f.setPpem(24));
    f.st.cur_lfnt = f.lfnt;
    f.st.flags |= FLAGS_NO_HINTS;
  }
  FS_GRAYMAP* gray(FS_USHORT index, FS_SHORT px = 0, FS_SHORT py = 0) {
    return get_graymap(&f.st, index, index, FS_MAP_GRAYMAP8, px, py);
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
  ASSERT_NE(nullptr, a);
  ASSERT_NE(nullptr, a->cache_ptr);
  EXPECT_EQ(1u, a->cache_ptr->ref_counter);
  EXPECT_EQ(1u, sfnt()->cache_count);
  EXPECT_EQ(1u, sfnt()->active_count);
  FS_GRAYMAP* b = gray(kGlyphA);
  EXPECT_EQ(a, b);
  EXPECT_EQ(2u, a->cache_ptr->ref_counter);
  EXPECT_EQ(1u, sfnt()->cache_count);
  EXPECT_EQ(1u, sfnt()->active_count);  // one entry held, twice
  EXPECT_EQ(1, entries());
  FSS_free_char(&f.st, a);
  EXPECT_EQ(1u, sfnt()->active_count);
  FSS_free_char(&f.st, b);
  EXPECT_EQ(0u, a->cache_ptr->ref_counter);
  EXPECT_EQ(0u, sfnt()->active_count);
  EXPECT_EQ(1u, sfnt()->cache_count);  // still cached
  FS_GRAYMAP* c = gray(kGlyphA);
  EXPECT_EQ(a, c);
  EXPECT_EQ(1u, sfnt()->active_count);
  FSS_free_char(&f.st, c);
}

TEST_F(Cache, PhaseStyleAndDepthAreAllPartOfTheKey) {
  FS_GRAYMAP* p0 = gray(kGlyphA, 0, 0);
  FS_GRAYMAP* p1 = gray(kGlyphA, 1, 0);
  ASSERT_NE(nullptr, p1);
  EXPECT_NE(p0, p1);
  FS_GRAYMAP* g4 = get_graymap(&f.st, kGlyphA, kGlyphA, FS_MAP_GRAYMAP4, 0, 0);
  ASSERT_NE(nullptr, g4);
  EXPECT_NE(p0, g4);
  EXPECT_EQ(CACHE_GRAYMAP4, g4->cache_ptr->type);
  EXPECT_EQ(3, entries());
  EXPECT_EQ(3u, sfnt()->cache_count);
  // An outline effect on: graymaps key on outline opacity too.
  f.st.flags |= FLAGS_OUTLINED_FILLED;
  f.st.outline_width = 1;
  f.st.outline_opacity = 0x8000;
  void* e1 = find_graymap_in_cache(&f.st, kGlyphA, 8, 0, 0);
  EXPECT_EQ(nullptr, e1);  // flags differ from the plain entry's
  for (FS_GRAYMAP* g : {p0, p1, g4}) FSS_free_char(&f.st, g);
}

TEST_F(Cache, RecordsAboveTheSizeLimitAreNotKept) {
  // Hand-made records: a kept one of exactly 5120 bytes and a refused one
  // of 5121, which stays the caller's with a null cache_ptr.
  FS_GRAYMAP* a = (FS_GRAYMAP*)FSS_calloc(&f.st, 5120);
  a->size = 5120;
  EXPECT_EQ(1, save_to_cache(&f.st, CACHE_GRAYMAP8, 7, 0, a));
  EXPECT_NE(nullptr, a->cache_ptr);
  FS_GRAYMAP* b = (FS_GRAYMAP*)FSS_calloc(&f.st, 5121);
  b->size = 5121;
  EXPECT_EQ(0, save_to_cache(&f.st, CACHE_GRAYMAP8, 8, 0, b));
  EXPECT_EQ(0u, f.st.error);
  EXPECT_EQ(nullptr, b->cache_ptr);
  FSS_free_char(&f.st, b);  // frees it
  FSS_free_char(&f.st, a);  // stays cached
  EXPECT_EQ(1u, sfnt()->cache_count);
  EXPECT_EQ(nullptr, find_in_cache(&f.st, CACHE_GRAYMAP8, 8, 0));
  // Two types of one glyph don't meet.
  EXPECT_EQ(nullptr, find_in_cache(&f.st, CACHE_GRAYMAP4, 7, 0));
  EXPECT_EQ(a, find_in_cache(&f.st, CACHE_GRAYMAP8, 7, 0));
  FSS_free_char(&f.st, a);
}

TEST_F(Cache, RemovingAFontWithAHeldRecordStopsWith610) {
  FS_GRAYMAP* held = gray(kGlyphA);
  ASSERT_NE(nullptr, held);
  delete_fs_cache(&f.st, sfnt());
  EXPECT_EQ(ERR_FONT_IN_USE, f.st.error);
  EXPECT_EQ(1, entries());
  FSS_free_char(&f.st, held);
  f.st.error = 0;
  delete_fs_cache(&f.st, sfnt());
  EXPECT_EQ(0u, f.st.error);
  EXPECT_EQ(0, entries());
  EXPECT_EQ(0u, sfnt()->cache_count);
}

TEST_F(Cache, NoScaledFontIs302) {
  SFNT* keep = f.st.cur_sfnt;
  f.st.cur_sfnt = nullptr;
  EXPECT_EQ(nullptr, find_in_cache(&f.st, CACHE_GRAYMAP8, 1, 0));
  EXPECT_EQ(ERR_NO_CURRENT_SFNT, f.st.error);
  f.st.cur_sfnt = keep;
}

TEST_F(Cache, ReclaimLadderEmptiesItBackToTheHeap) {
  // Warm up: the raster record and the scaled font's key exist after one
  // glyph; the ladder's cache step then takes that glyph and its lump.
  FS_GRAYMAP* g = gray(kGlyphA);
  FSS_free_char(&f.st, g);
  EXPECT_EQ(1, trim_cache(&f.st));
  FS_ULONG before = f.st.server->allocated;
  FS_USHORT glyphs[] = {36, 37, 38, 68, 69, 70};
  for (FS_USHORT i : glyphs) {
    g = gray(i);
    ASSERT_NE(nullptr, g);
    FSS_free_char(&f.st, g);
  }
  EXPECT_EQ(6u, sfnt()->cache_count);
  EXPECT_GT(f.st.server->allocated, before);
  // A held record is spared.
  FS_GRAYMAP* held = gray(36);
  int taken = 0, n;
  while ((n = trim_cache(&f.st)) != 0) taken += n;
  EXPECT_EQ(5, taken);
  EXPECT_EQ(1, entries());
  FSS_free_char(&f.st, held);
  EXPECT_EQ(1, trim_cache(&f.st));
  EXPECT_EQ(0, entries());
  EXPECT_EQ(0u, sfnt()->cache_count);
  EXPECT_EQ(0u, sfnt()->active_count);
  EXPECT_EQ(before, f.st.server->allocated);
}

}  // namespace

namespace {

TEST_F(Cache, AdvancesAreSharedByAllEffectsOfOneSize) {
  FS_ADVANCE* adv = (FS_ADVANCE*)FSS_calloc(&f.st, sizeof(FS_ADVANCE));
  adv->size = sizeof(FS_ADVANCE);
  adv->i_dx = 16;
  ASSERT_EQ(1, save_advance_to_cache(&f.st, kGlyphA, FS_MAP_GRAYMAP8, adv));
  EXPECT_EQ(32603, adv->cache_ptr->type);  // the 8-bit graymap's advance code
  FSS_free_char(&f.st, adv);
  // Embossed and with added weight: the same advance comes back, and the
  // client's flags are its own afterwards.
  f.st.flags |= FLAGS_EMBOSSED | FLAGS_ADD_WEIGHT;
  FS_ULONG flags = f.st.flags;
  EXPECT_EQ(adv, find_advance_in_cache(&f.st, kGlyphA, FS_MAP_GRAYMAP8));
  EXPECT_EQ(flags, f.st.flags);
  FSS_free_char(&f.st, adv);
  // Another type's advance is another entry; the box codes are their own.
  EXPECT_EQ(nullptr, find_advance_in_cache(&f.st, kGlyphA, FS_MAP_GRAYMAP4));
  EXPECT_EQ(nullptr, find_bbox_in_cache(&f.st, kGlyphA, FS_MAP_GRAYMAP8));
}

TEST_F(Cache, AdvanceAndBoxCodesFollowTheTypeBitsInOrder) {
  EXPECT_EQ(32579, advance_cache_code(32 | 8));  // 32 is tested first
  EXPECT_EQ(32401, advance_cache_code(4096));
  EXPECT_EQ(32381, advance_cache_code(32768));
  EXPECT_EQ(32587, advance_cache_code(1));
  EXPECT_EQ(0, advance_cache_code(0));
  EXPECT_EQ(32443, bbox_cache_code(128));
  EXPECT_EQ(32443, bbox_cache_code(2048));
  EXPECT_EQ(32687, bbox_cache_code(2));
  EXPECT_EQ(32413, bbox_cache_code(32768));
  EXPECT_EQ(32633, bbox_cache_code(1));
}

}  // namespace
