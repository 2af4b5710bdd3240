// The budgeted heap and the thing allocator: what each block costs, the
// budget's edges, reallocation, and lumps of cache entries. Every test ends
// with the heap back at what FSS_init charged.
#include "Orvex_internal/fs_xmalloc.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_string.h"

using enginetest::Engine;
using enginetest::kInitCharge;

TEST(EngineHeap, BlocksCostTheirSizePlusEightAndTheBudgetHoldsToTheLastByte) {
  Engine e(10000);
  ASSERT_TRUE(e.started);
  void* p = FSS_malloc(&e.st, 100);
  EXPECT_EQ(0u, (uintptr_t)p % 8);
  EXPECT_EQ(kInitCharge + 108, e.used());
  void* q = FSS_malloc(&e.st, 1);
  EXPECT_EQ(kInitCharge + 108 + 9, e.used());
  EXPECT_EQ(0, FSS_free(&e.st, p));
  EXPECT_EQ(0, FSS_free(&e.st, q));
  EXPECT_EQ(0, FSS_free(&e.st, nullptr));
  // Zero bytes: null, and the error stays as it was.
  e.st.error = ERR_FILE_SEEK;
  EXPECT_EQ(nullptr, FSS_malloc(&e.st, 0));
  EXPECT_EQ((FS_ULONG)ERR_FILE_SEEK, e.st.error);
  // A request at the whole budget, or past it, fails even on an empty heap.
  EXPECT_EQ(nullptr, FSS_malloc(&e.st, 10000));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  EXPECT_EQ(nullptr, FSS_malloc(&e.st, 0xFFFFFFFFu));
  // 10000 - 3008 = 6992 left: 6984 and its header fill it exactly, and a
  // success clears the error.
  p = FSS_malloc(&e.st, 6984);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(0u, e.st.error);
  EXPECT_EQ(10000u, e.used());
  EXPECT_EQ(nullptr, FSS_malloc(&e.st, 1));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  FSS_free(&e.st, p);
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineHeap, CallocZeroesAndReallocKeepsContentsAndRechargesTheDifference) {
  Engine e(10000);
  FS_BYTE* dirty = (FS_BYTE*)FSS_malloc(&e.st, 64);
  memset(dirty, 0xAB, 64);
  FSS_free(&e.st, dirty);
  FS_BYTE* z = (FS_BYTE*)FSS_calloc(&e.st, 64);
  for (int i = 0; i < 64; i++) ASSERT_EQ(0, z[i]) << i;
  FSS_free(&e.st, z);

  // Realloc of null is malloc, with malloc's 201 for 8000 bytes (below the
  // budget, above what is left).
  EXPECT_EQ(nullptr, FSS_realloc(&e.st, nullptr, 8000));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  char* p = (char*)FSS_realloc(&e.st, nullptr, 16);
  strcpy(p, "fifteen chars..");
  p = (char*)FSS_realloc(&e.st, p, 1000);
  ASSERT_NE(nullptr, p);
  EXPECT_STREQ("fifteen chars..", p);
  EXPECT_EQ(kInitCharge + 1008, e.used());
  p = (char*)FSS_realloc(&e.st, p, 16);
  EXPECT_STREQ("fifteen chars..", p);
  EXPECT_EQ(kInitCharge + 24, e.used());
  // Too large for what is left, or the whole budget: 202, block unchanged.
  for (FS_ULONG n : {7000u, 10000u}) {
    EXPECT_EQ(nullptr, FSS_realloc(&e.st, p, n)) << n;
    EXPECT_EQ((FS_ULONG)ERR_REALLOC_FAIL, e.st.error) << n;
    EXPECT_STREQ("fifteen chars..", p);
    EXPECT_EQ(kInitCharge + 24, e.used());
  }
  EXPECT_EQ(nullptr, FSS_realloc(&e.st, p, 0));  // zero bytes free it
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineHeap, StringCopiesLiveOnTheHeapAndCompareNullSafely) {
  Engine e(10000);
  FILECHAR* s = FS_strdup(&e.st, "Arial");
  EXPECT_STREQ("Arial", s);
  EXPECT_EQ(kInitCharge + 6 + 8, e.used());
  FSS_free(&e.st, s);
  EXPECT_EQ(nullptr, FS_strdup(&e.st, ""));
  EXPECT_EQ(nullptr, FS_strdup(&e.st, nullptr));
  EXPECT_EQ(kInitCharge, e.used());
  struct {
    const char *a, *b;
    bool same;
  } rows[] = {{nullptr, nullptr, true}, {"a", nullptr, false}, {nullptr, "a", false},
              {"abc", "abc", true},     {"abc", "abd", false}};
  for (auto& r : rows) EXPECT_EQ(r.same, (bool)FS_streq(r.a, r.b)) << r.a << " " << r.b;
}

TEST(EngineThings, CacheEntriesComeInLumpsOf127ReusedLowestAddressFirst) {
  Engine e(100000);
  CACHE_ENTRY* t[3];
  for (CACHE_ENTRY*& c : t) c = CACHE_ENTRY_calloc(&e.st);
  // One lump: a 24-byte header, 127 entries of 80 bytes, the heap's 8.
  EXPECT_EQ(kInitCharge + 127 * 80 + 32, e.used());
  EXPECT_EQ(e.server()->list_of_lumps, t[0]->master);
  EXPECT_EQ(3u, t[0]->master->ref_count);
  EXPECT_EQ((FS_BYTE*)t[0] + 80, (FS_BYTE*)t[1]);
  t[0]->ref_counter = 77;
  CACHE_ENTRY_free(&e.st, t[2]);
  CACHE_ENTRY_free(&e.st, t[0]);
  CACHE_ENTRY* r[3];
  for (CACHE_ENTRY*& c : r) c = CACHE_ENTRY_calloc(&e.st);
  EXPECT_EQ(t[0], r[0]);  // the lower freed address first, zeroed
  EXPECT_EQ(0u, r[0]->ref_counter);
  EXPECT_EQ(t[2], r[1]);
  EXPECT_EQ((FS_BYTE*)t[2] + 80, (FS_BYTE*)r[2]);
  // The last one in use takes the whole lump back.
  for (CACHE_ENTRY* c : r) CACHE_ENTRY_free(&e.st, c);
  EXPECT_EQ(kInitCharge + 127 * 80 + 32, e.used());
  CACHE_ENTRY_free(&e.st, t[1]);
  EXPECT_EQ(kInitCharge, e.used());
  EXPECT_EQ(nullptr, e.server()->list_of_lumps);
  EXPECT_EQ(nullptr, e.server()->CACHE_ENTRY_chain);
}

TEST(EngineThings, ALumpShrinksByHalvesToWhatTheBudgetAllows) {
  // 3000 bytes left: lumps of 127 (10192 bytes) and 63 (5072) don't fit,
  // 31 (31 x 80 + 32 = 2512) does.
  Engine e(kInitCharge + 3000);
  std::vector<CACHE_ENTRY*> held;
  for (int i = 0; i < 31; i++) held.push_back(CACHE_ENTRY_calloc(&e.st));
  EXPECT_EQ(kInitCharge + 2512, e.used());
  // 488 left: 15 (1232) and 7 (592) don't fit, 3 (272) does.
  held.push_back(CACHE_ENTRY_calloc(&e.st));
  EXPECT_EQ(kInitCharge + 2512 + 272, e.used());
  EXPECT_NE(held[0]->master, held[31]->master);
  // Two more fill it; with 216 left the next takes a lump of one (112), and
  // the 104 then left hold no further lump: 201.
  for (int i = 0; i < 3; i++) held.push_back(CACHE_ENTRY_calloc(&e.st));
  ASSERT_NE(nullptr, held.back());
  EXPECT_EQ(kInitCharge + 2512 + 272 + 112, e.used());
  EXPECT_EQ(nullptr, CACHE_ENTRY_calloc(&e.st));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  for (CACHE_ENTRY* c : held) CACHE_ENTRY_free(&e.st, c);
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineThings, FreeingTheHeadLumpHidesTheOlderLumpsUntilTheirThingsReturn) {
  Engine e(100000);
  CACHE_ENTRY* old[127];
  for (CACHE_ENTRY*& c : old) c = CACHE_ENTRY_calloc(&e.st);
  CACHE_ENTRY* newer = CACHE_ENTRY_calloc(&e.st);
  ASSERT_NE(old[0]->master, newer->master);
  EXPECT_EQ(old[0]->master, newer->master->next);
  // The head's `prev` is null, so the list empties although the older lump
  // is still charged and in use; it still goes back with its own things.
  CACHE_ENTRY_free(&e.st, newer);
  EXPECT_EQ(nullptr, e.server()->list_of_lumps);
  EXPECT_EQ(kInitCharge + 127 * 80 + 32, e.used());
  for (CACHE_ENTRY* c : old) CACHE_ENTRY_free(&e.st, c);
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineThings, SizesRoundUpToEightWithRoomForTheChainLink) {
  Engine e(10000);
  void* list = nullptr;
  EXPECT_EQ(nullptr, new_thing(&e.st, &list, 0, 10));
  // 4 bytes round to 8, raised to the 16 a free thing needs.
  void* a = new_thing(&e.st, &list, 4, 10);
  EXPECT_EQ(kInitCharge + 10 * 16 + 32, e.used());
  void* b = new_thing(&e.st, &list, 4, 10);
  EXPECT_EQ((FS_BYTE*)a + 16, (FS_BYTE*)b);
  del_thing(&e.st, &list, b);
  del_thing(&e.st, &list, a);
  void* c = new_thing(&e.st, &list, 20, 2);  // 20 rounds to 24
  EXPECT_EQ(kInitCharge + 2 * 24 + 32, e.used());
  del_thing(&e.st, &list, c);
  EXPECT_EQ(kInitCharge, e.used());
  EXPECT_EQ(nullptr, list);
  // 9976 + 24 reaches the budget: refused at once.
  EXPECT_EQ(nullptr, new_thing(&e.st, &list, 9976, 1));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  EXPECT_EQ(kInitCharge, e.used());
}
