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

using enginetest::Engine;
using enginetest::kInitCharge;

TEST(EngineHeap, BlocksCostTheirSizePlusEightAndTheBudgetHoldsToTheLastByte) {
  Engine e(10000);
  auto charged = [&] { return e.used() - kInitCharge; };
  void* p = FSS_malloc(&e.st, 100);
  EXPECT_EQ(0u, (uintptr_t)p % 8);
  EXPECT_EQ(108u, charged());
  EXPECT_EQ(0, FSS_free(&e.st, p) + FSS_free(&e.st, nullptr));
  EXPECT_EQ(nullptr, FSS_malloc(&e.st, 0));
  // The whole budget or more fails even on an empty heap; 10000 - 3024 =
  // 6976 left, which 6968 and its header fill exactly.
  for (FS_ULONG n : {0xFFFFFFFFu, 6969u}) {
    EXPECT_EQ(nullptr, FSS_malloc(&e.st, n)) << n;
    EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error) << n;
  }
  p = FSS_malloc(&e.st, 6968);
  EXPECT_EQ(0u, e.st.error);  // a success clears the error
  EXPECT_EQ(10000u, e.used());
  FSS_free(&e.st, p);
  EXPECT_EQ(0u, charged());
}

TEST(EngineHeap, ReallocKeepsContentsAndRechargesTheDifference) {
  Engine e(10000);
  // Null is malloc, with malloc's 201 for 8000 bytes (below the budget,
  // above what is left); then each size is charged in place of the last.
  EXPECT_EQ(nullptr, FSS_realloc(&e.st, nullptr, 8000));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  char* p = (char*)FSS_realloc(&e.st, nullptr, 16);
  strcpy(p, "fifteen chars..");
  for (FS_ULONG n : {1000u, 16u}) {
    p = (char*)FSS_realloc(&e.st, p, n);
    EXPECT_STREQ("fifteen chars..", p) << n;
    EXPECT_EQ(kInitCharge + n + 8, e.used()) << n;
  }
  // Too large for what is left: 202, block unchanged.
  EXPECT_EQ(nullptr, FSS_realloc(&e.st, p, 7000));
  EXPECT_EQ((FS_ULONG)ERR_REALLOC_FAIL, e.st.error);
  EXPECT_STREQ("fifteen chars..", p);
  EXPECT_EQ(kInitCharge + 24, e.used());
  EXPECT_EQ(nullptr, FSS_realloc(&e.st, p, 0));  // zero bytes free it
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(EngineThings, CacheEntriesComeInLumpsOf127ReusedLowestAddressFirst) {
  Engine e(100000);
  CACHE_ENTRY* t[3];
  for (CACHE_ENTRY*& c : t) c = CACHE_ENTRY_calloc(&e.st);
  // One lump: a 24-byte header, 127 entries of 80 bytes, the heap's 8.
  EXPECT_EQ(kInitCharge + 127 * 80 + 32, e.used());
  t[0]->ref_counter = 77;
  CACHE_ENTRY_free(&e.st, t[2]);
  CACHE_ENTRY_free(&e.st, t[0]);
  CACHE_ENTRY* r[3];
  for (CACHE_ENTRY*& c : r) c = CACHE_ENTRY_calloc(&e.st);
  // The lower freed address first, zeroed; then the next free one; then new.
  EXPECT_EQ((std::vector<void*>{t[0], t[2], (FS_BYTE*)t[2] + 80}),
            (std::vector<void*>{r[0], r[1], r[2]}));
  EXPECT_EQ(0u, r[0]->ref_counter);
  for (CACHE_ENTRY* c : r) CACHE_ENTRY_free(&e.st, c);
  CACHE_ENTRY_free(&e.st, t[1]);  // the last one in use takes the lump back
  EXPECT_EQ(kInitCharge, e.used());
}
