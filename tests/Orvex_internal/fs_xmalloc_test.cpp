// The budgeted heap and the thing allocator: what each block costs, the
// budget's edges, reallocation, and lumps of cache entries.
#include "Orvex_internal/fs_xmalloc.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_string.h"

using enginetest::Engine;
using enginetest::kInitCharge;

TEST(EngineHeap, EachBlockCostsItsSizePlusAnEightByteHeader) {
  Engine e(100000);
  ASSERT_TRUE(e.started);
  ASSERT_EQ(kInitCharge, e.used());
  void* p = FSS_malloc(&e.st, 100);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(0u, (uintptr_t)p % 8);
  EXPECT_EQ(kInitCharge + 108, e.used());
  void* q = FSS_malloc(&e.st, 1);
  EXPECT_EQ(kInitCharge + 108 + 9, e.used());
  EXPECT_EQ(0, FSS_free(&e.st, p));
  EXPECT_EQ(0, FSS_free(&e.st, q));
  EXPECT_EQ(kInitCharge, e.used());
  EXPECT_EQ(0, FSS_free(&e.st, nullptr));
}

TEST(EngineHeap, ZeroBytesGiveNullAndLeaveTheError) {
  Engine e(100000);
  e.st.error = ERR_FILE_SEEK;
  EXPECT_EQ(nullptr, FSS_malloc(&e.st, 0));
  EXPECT_EQ((FS_ULONG)ERR_FILE_SEEK, e.st.error);
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineHeap, BudgetIsUsableToTheLastByteAndNoFurther) {
  Engine e(10000);
  // 10000 - 3008 = 6992 left: a block of 6984 and its header fill it.
  void* p = FSS_malloc(&e.st, 6984);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(0u, e.st.error);
  EXPECT_EQ(10000u, e.used());
  EXPECT_EQ(nullptr, FSS_malloc(&e.st, 1));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  FSS_free(&e.st, p);
}

TEST(EngineHeap, RequestAtTheWholeBudgetFailsEvenWhenNothingIsAllocated) {
  Engine e(10000);
  EXPECT_EQ(nullptr, FSS_malloc(&e.st, 10000));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  EXPECT_EQ(nullptr, FSS_malloc(&e.st, 0xFFFFFFFFu));
  EXPECT_EQ(kInitCharge, e.used());
  // A successful call clears the error again.
  void* p = FSS_malloc(&e.st, 16);
  EXPECT_EQ(0u, e.st.error);
  FSS_free(&e.st, p);
}

TEST(EngineHeap, CallocGivesZeroedBlocks) {
  Engine e(100000);
  FS_BYTE* p = (FS_BYTE*)FSS_malloc(&e.st, 64);
  memset(p, 0xAB, 64);
  FSS_free(&e.st, p);
  FS_BYTE* q = (FS_BYTE*)FSS_calloc(&e.st, 64);
  ASSERT_NE(nullptr, q);
  for (int i = 0; i < 64; i++) ASSERT_EQ(0, q[i]);
  FSS_free(&e.st, q);
}

TEST(EngineHeap, ReallocOfNullIsMallocAndReportsItsError) {
  Engine e(10000);
  // 8000 bytes are below the budget but above what is left: FSS_malloc's
  // 201, not the reallocation's 202.
  EXPECT_EQ(nullptr, FSS_realloc(&e.st, nullptr, 8000));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  void* p = FSS_realloc(&e.st, nullptr, 40);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(kInitCharge + 48, e.used());
  FSS_free(&e.st, p);
}

TEST(EngineHeap, ReallocKeepsContentsAndRechargesTheDifference) {
  Engine e(10000);
  char* p = (char*)FSS_malloc(&e.st, 16);
  strcpy(p, "fifteen chars..");
  p = (char*)FSS_realloc(&e.st, p, 1000);
  ASSERT_NE(nullptr, p);
  EXPECT_STREQ("fifteen chars..", p);
  EXPECT_EQ(kInitCharge + 1008, e.used());
  p = (char*)FSS_realloc(&e.st, p, 16);
  EXPECT_STREQ("fifteen chars..", p);
  EXPECT_EQ(kInitCharge + 24, e.used());

  // Too large for what is left: 202, and the block stays as it was.
  EXPECT_EQ(nullptr, FSS_realloc(&e.st, p, 7000));
  EXPECT_EQ((FS_ULONG)ERR_REALLOC_FAIL, e.st.error);
  EXPECT_STREQ("fifteen chars..", p);
  EXPECT_EQ(kInitCharge + 24, e.used());
  // At the whole budget: 202 at once.
  EXPECT_EQ(nullptr, FSS_realloc(&e.st, p, 10000));
  EXPECT_EQ((FS_ULONG)ERR_REALLOC_FAIL, e.st.error);

  // Zero bytes free the block.
  EXPECT_EQ(nullptr, FSS_realloc(&e.st, p, 0));
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineHeap, StringCopiesLiveOnTheHeap) {
  Engine e(10000);
  FILECHAR* s = FS_strdup(&e.st, "Arial");
  ASSERT_NE(nullptr, s);
  EXPECT_STREQ("Arial", s);
  EXPECT_EQ(kInitCharge + 6 + 8, e.used());
  FSS_free(&e.st, s);
  EXPECT_EQ(nullptr, FS_strdup(&e.st, ""));
  EXPECT_EQ(nullptr, FS_strdup(&e.st, nullptr));
  EXPECT_EQ(kInitCharge, e.used());

  EXPECT_TRUE(FS_streq(nullptr, nullptr));
  EXPECT_FALSE(FS_streq("a", nullptr));
  EXPECT_FALSE(FS_streq(nullptr, "a"));
  EXPECT_TRUE(FS_streq("abc", "abc"));
  EXPECT_FALSE(FS_streq("abc", "abd"));
}

TEST(EngineThings, CacheEntriesComeInLumpsOf127) {
  Engine e(100000);
  CACHE_ENTRY* a = CACHE_ENTRY_calloc(&e.st);
  ASSERT_NE(nullptr, a);
  // One lump: 24-byte header, 127 entries of 80 bytes, the heap header.
  EXPECT_EQ(kInitCharge + 127 * 80 + 24 + 8, e.used());
  EXPECT_EQ(e.server()->list_of_lumps, a->master);
  EXPECT_EQ(1u, a->master->ref_count);
  EXPECT_EQ(nullptr, a->data);
  EXPECT_EQ(0u, a->ref_counter);

  CACHE_ENTRY* b = CACHE_ENTRY_calloc(&e.st);
  EXPECT_EQ(kInitCharge + 127 * 80 + 32, e.used());
  EXPECT_EQ(a->master, b->master);
  EXPECT_EQ((FS_BYTE*)a + 80, (FS_BYTE*)b);

  // The last one in use takes the whole lump back: n * item + 32 bytes.
  CACHE_ENTRY_free(&e.st, a);
  EXPECT_EQ(kInitCharge + 127 * 80 + 32, e.used());
  CACHE_ENTRY_free(&e.st, b);
  EXPECT_EQ(kInitCharge, e.used());
  EXPECT_EQ(nullptr, e.server()->list_of_lumps);
  EXPECT_EQ(nullptr, e.server()->CACHE_ENTRY_chain);
}

TEST(EngineThings, FreedThingsAreReusedLowestAddressFirst) {
  Engine e(100000);
  CACHE_ENTRY* t1 = CACHE_ENTRY_calloc(&e.st);
  CACHE_ENTRY* t2 = CACHE_ENTRY_calloc(&e.st);
  CACHE_ENTRY* t3 = CACHE_ENTRY_calloc(&e.st);
  ASSERT_TRUE(t1 < t2 && t2 < t3);
  t1->ref_counter = 77;  // user data is zeroed on reuse
  CACHE_ENTRY_free(&e.st, t3);
  CACHE_ENTRY_free(&e.st, t1);
  CACHE_ENTRY* r1 = CACHE_ENTRY_calloc(&e.st);
  CACHE_ENTRY* r2 = CACHE_ENTRY_calloc(&e.st);
  CACHE_ENTRY* r3 = CACHE_ENTRY_calloc(&e.st);
  EXPECT_EQ(t1, r1);
  EXPECT_EQ(t3, r2);
  EXPECT_EQ((FS_BYTE*)t3 + 80, (FS_BYTE*)r3);
  EXPECT_EQ(0u, r1->ref_counter);
  EXPECT_EQ(t2->master, r1->master);
  CACHE_ENTRY_free(&e.st, r1);
  CACHE_ENTRY_free(&e.st, r2);
  CACHE_ENTRY_free(&e.st, r3);
  CACHE_ENTRY_free(&e.st, t2);
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineThings, ALumpShrinksByHalvesToWhatTheBudgetAllows) {
  // 3000 bytes left: lumps of 127 (10192 bytes) and 63 (5072) don't fit,
  // 31 (31 * 80 + 32 = 2512) does.
  Engine e(kInitCharge + 3000);
  CACHE_ENTRY* first = CACHE_ENTRY_calloc(&e.st);
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(kInitCharge + 2512, e.used());
  CACHE_ENTRY* held[31];
  held[0] = first;
  for (int i = 1; i < 31; i++) held[i] = CACHE_ENTRY_calloc(&e.st);
  EXPECT_EQ(kInitCharge + 2512, e.used());
  // 488 bytes left: 15 (1232) and 7 (592) don't fit, 3 (272) does.
  CACHE_ENTRY* extra = CACHE_ENTRY_calloc(&e.st);
  ASSERT_NE(nullptr, extra);
  EXPECT_EQ(kInitCharge + 2512 + 272, e.used());
  EXPECT_NE(first->master, extra->master);
  // Two more fill the lump of 3; with 216 left the next takes a lump of one
  // (80 + 32 = 112), and the 104 then left hold no further lump: 201.
  CACHE_ENTRY* more[3];
  for (int i = 0; i < 2; i++) more[i] = CACHE_ENTRY_calloc(&e.st);
  more[2] = CACHE_ENTRY_calloc(&e.st);
  ASSERT_NE(nullptr, more[2]);
  EXPECT_EQ(kInitCharge + 2512 + 272 + 112, e.used());
  EXPECT_EQ(nullptr, CACHE_ENTRY_calloc(&e.st));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);

  for (CACHE_ENTRY* c : held) CACHE_ENTRY_free(&e.st, c);
  CACHE_ENTRY_free(&e.st, extra);
  for (CACHE_ENTRY* c : more) CACHE_ENTRY_free(&e.st, c);
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineThings, FreeingTheHeadLumpHidesTheOlderLumps) {
  Engine e(100000);
  CACHE_ENTRY* old[127];
  for (CACHE_ENTRY*& c : old) c = CACHE_ENTRY_calloc(&e.st);
  CACHE_ENTRY* newer = CACHE_ENTRY_calloc(&e.st);
  ASSERT_NE(old[0]->master, newer->master);
  EXPECT_EQ(newer->master, e.server()->list_of_lumps);
  EXPECT_EQ(old[0]->master, newer->master->next);

  // The newest lump is the head; its `prev` is null, so the list empties
  // although the older lump is still charged and in use.
  CACHE_ENTRY_free(&e.st, newer);
  EXPECT_EQ(nullptr, e.server()->list_of_lumps);
  EXPECT_EQ(kInitCharge + 127 * 80 + 32, e.used());

  // The older lump still goes back when its own things are all returned.
  for (CACHE_ENTRY* c : old) CACHE_ENTRY_free(&e.st, c);
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineThings, SizesRoundUpToEightWithRoomForTheChainLink) {
  Engine e(100000);
  void* list = nullptr;
  EXPECT_EQ(nullptr, new_thing(&e.st, &list, 0, 10));
  // 4 bytes round to 8, raised to the 16 a free thing needs.
  void* a = new_thing(&e.st, &list, 4, 10);
  ASSERT_NE(nullptr, a);
  EXPECT_EQ(kInitCharge + 10 * 16 + 32, e.used());
  void* b = new_thing(&e.st, &list, 4, 10);
  EXPECT_EQ((FS_BYTE*)a + 16, (FS_BYTE*)b);
  del_thing(&e.st, &list, b);
  del_thing(&e.st, &list, a);
  // 20 bytes round to 24.
  void* c = new_thing(&e.st, &list, 20, 2);
  EXPECT_EQ(kInitCharge + 2 * 24 + 32, e.used());
  del_thing(&e.st, &list, c);
  EXPECT_EQ(kInitCharge, e.used());
  EXPECT_EQ(nullptr, list);
}

TEST(EngineThings, AThingLargerThanTheBudgetFailsAtOnce) {
  Engine e(10000);
  void* list = nullptr;
  // 9976 + 24 reaches the budget.
  EXPECT_EQ(nullptr, new_thing(&e.st, &list, 9976, 1));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  EXPECT_EQ(kInitCharge, e.used());
}
