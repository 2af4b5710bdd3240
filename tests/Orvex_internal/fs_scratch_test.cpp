// The scratch space: first fit with cutting and merging inside its buffer,
// the fall-back to the heap, and the release faults.
#include "Orvex_internal/fs_scratch.h"

#include <gtest/gtest.h>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"

using namespace enginetest;

namespace {

const SSUnion* headerOf(const void* payload) {
  return (const SSUnion*)((const FS_BYTE*)payload - 8);
}

}  // namespace

TEST(ScratchSpace, ReservationsAreCutFromTheFrontOfTheFreeBlock) {
  Engine e(100000);
  FsScratchSpace* ss = &e.server()->scratch;
  FS_BYTE* a = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 100);
  // 100 rounds up to 104; the 2992-byte block is cut, the rest, 2992 - 104
  // - 8 = 2880, follows as a free block.
  EXPECT_EQ(ss->buffer + 8, a);
  EXPECT_EQ(104u, headerOf(a)->size);
  EXPECT_EQ(SS_IN_USE, headerOf(a)->flag);
  const SSUnion* rest = (const SSUnion*)(a + 104);
  EXPECT_EQ(2880u, rest->size);
  EXPECT_EQ(SS_FREE, rest->flag);
  FS_BYTE* b = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 1);
  EXPECT_EQ(a + 104 + 8, b);
  EXPECT_EQ(8u, headerOf(b)->size);
  EXPECT_EQ(0u, e.st.error);
  // Nothing of this touches the heap.
  EXPECT_EQ(kInitCharge, e.used());
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, a));
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, b));
  // All merged back into one block.
  EXPECT_EQ(2992u, ((const SSUnion*)ss->buffer)->size);
}

TEST(ScratchSpace, AFreeBlockOfExactlyNeedPlusEightIsTakenWhole) {
  Engine e(100000);
  // A buffer of 120 bytes: one free block of 112.
  FsScratchSpace* ss = FsScratchSpace_new(&e.st, 120);
  ASSERT_NE(nullptr, ss);
  // The record (16 + 8) and the buffer (120 + 8) are both charged.
  EXPECT_EQ(kInitCharge + 24 + 128, e.used());
  void* a = FsScratchSpace_reserve(ss, &e.st, 104);
  EXPECT_EQ(ss->buffer + 8, a);
  // The surplus of 8 is below 9: no cut, the block keeps all 112.
  EXPECT_EQ(112u, headerOf(a)->size);

  // Nothing is free any more: the next reservation comes from the heap.
  FS_ULONG before = e.used();
  FS_BYTE* b = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 10);
  ASSERT_NE(nullptr, b);
  EXPECT_TRUE(b < ss->buffer || b >= ss->beyond);
  EXPECT_EQ(before + 18, e.used());
  // Its release goes to the heap.
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, b));
  EXPECT_EQ(before, e.used());
  EXPECT_EQ(0u, e.st.error);

  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, a));
  FsScratchSpace_delete(ss, &e.st);
  EXPECT_EQ(kInitCharge, e.used());
}

TEST(ScratchSpace, ASurplusOfSixteenIsCutIntoAnEightByteBlock) {
  Engine e(100000);
  FsScratchSpace* ss = FsScratchSpace_new(&e.st, 128);  // 120 free
  void* a = FsScratchSpace_reserve(ss, &e.st, 104);
  EXPECT_EQ(104u, headerOf(a)->size);
  FS_BYTE* b = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 8);
  EXPECT_EQ((FS_BYTE*)a + 104 + 8, b);
  EXPECT_EQ(ss->beyond, b + 8);
  FsScratchSpace_release(ss, &e.st, a);
  FsScratchSpace_release(ss, &e.st, b);
  EXPECT_EQ(120u, ((const SSUnion*)ss->buffer)->size);
  FsScratchSpace_delete(ss, &e.st);
}

TEST(ScratchSpace, ReleaseMergesWithFreeNeighboursOnBothSides) {
  Engine e(100000);
  FsScratchSpace* ss = &e.server()->scratch;
  FS_BYTE* a = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 16);
  FS_BYTE* b = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 16);
  FS_BYTE* c = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 16);
  FS_BYTE* d = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 16);
  FsScratchSpace_release(ss, &e.st, a);
  FsScratchSpace_release(ss, &e.st, c);
  // b joins a before it and c after it: 16 + 8 + 16 + 8 + 16 = 64.
  FsScratchSpace_release(ss, &e.st, b);
  EXPECT_EQ(64u, headerOf(a)->size);
  EXPECT_EQ(SS_FREE, headerOf(a)->flag);
  // A request of 64 now fits there, first fit.
  EXPECT_EQ(a, FsScratchSpace_reserve(ss, &e.st, 64));
  EXPECT_EQ(kInitCharge, e.used());
  FsScratchSpace_release(ss, &e.st, a);
  FsScratchSpace_release(ss, &e.st, d);
  EXPECT_EQ(2992u, ((const SSUnion*)ss->buffer)->size);
}

TEST(ScratchSpace, ReleaseOfAnUnknownOrFreeBlockGives204) {
  Engine e(100000);
  FsScratchSpace* ss = &e.server()->scratch;
  FS_BYTE* a = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 32);
  FsScratchSpace_reserve(ss, &e.st, 32);
  EXPECT_EQ(ERR_BAD_SCRATCH_ADDR, FsScratchSpace_release(ss, &e.st, a + 4));
  EXPECT_EQ((FS_ULONG)ERR_BAD_SCRATCH_ADDR, e.st.error);
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, a));
  EXPECT_EQ(ERR_BAD_SCRATCH_ADDR, FsScratchSpace_release(ss, &e.st, a));
  // Null lies outside the buffer: handed to FSS_free, which accepts it.
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, nullptr));
  EXPECT_EQ(0u, e.st.error);
}

TEST(ScratchSpace, TheLadderTakesNoScratchBack) {
  Engine e(100000);
  int gotSome = 7;
  e.st.error = ERR_MALLOC_FAIL;
  EXPECT_EQ(0, FsScratchSpace_shrink(&e.server()->scratch, &e.st, &gotSome));
  EXPECT_EQ(0, gotSome);
  EXPECT_EQ(0u, e.st.error);
}

TEST(ScratchSpace, AScratchSpaceWithoutBufferFallsBackForEverything) {
  Engine e(10000);
  // 8000 bytes don't fit the 6992 left: init fails, `beyond` is null.
  FsScratchSpace ss;
  EXPECT_EQ(ERR_MALLOC_FAIL, FsScratchSpace_init(&ss, &e.st, 8000));
  EXPECT_EQ(nullptr, ss.beyond);
  void* p = FsScratchSpace_reserve(&ss, &e.st, 50);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(kInitCharge + 58, e.used());
  EXPECT_EQ(0, FsScratchSpace_release(&ss, &e.st, p));
  EXPECT_EQ(kInitCharge, e.used());
  EXPECT_EQ(nullptr, FsScratchSpace_new(&e.st, 8000));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  EXPECT_EQ(kInitCharge, e.used());
}
