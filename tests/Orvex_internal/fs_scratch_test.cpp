// The scratch space: first fit with cutting and merging inside its buffer,
// the fall-back to the heap, and the release faults.
#include "Orvex_internal/fs_scratch.h"

#include <gtest/gtest.h>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"

using namespace enginetest;

namespace {

const SSUnion* headerOf(const void* payload) { return (const SSUnion*)((const FS_BYTE*)payload - 8); }
FS_ULONG firstBlock(FsScratchSpace* ss) { return ((const SSUnion*)ss->buffer)->size; }

}  // namespace

TEST(ScratchSpace, ReservationsAreCutFromTheFrontAndMergeBackOnRelease) {
  Engine e(100000);
  FsScratchSpace* ss = &e.server()->scratch;
  FS_BYTE* r[4];
  // 100 rounds up to 104: the 2992-byte block is cut, and 2992 - 104 - 8 =
  // 2880 follow as a free block; 1 byte takes 8, then 16s.
  r[0] = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 100);
  EXPECT_EQ(ss->buffer + 8, r[0]);
  EXPECT_EQ(104u, headerOf(r[0])->size);
  EXPECT_EQ(SS_IN_USE, headerOf(r[0])->flag);
  EXPECT_EQ(2880u, headerOf(r[0] + 104 + 8)->size);
  EXPECT_EQ(SS_FREE, headerOf(r[0] + 104 + 8)->flag);
  r[1] = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 1);
  EXPECT_EQ(r[0] + 104 + 8, r[1]);
  EXPECT_EQ(8u, headerOf(r[1])->size);
  r[2] = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 16);
  r[3] = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 16);
  EXPECT_EQ(kInitCharge, e.used());  // nothing of this touches the heap
  // r1 joins the free r0 before it and r2 after it: 104 + 8 + 8 + 8 + 16 =
  // 144, and a request of 144 fits there, first fit.
  FsScratchSpace_release(ss, &e.st, r[0]);
  FsScratchSpace_release(ss, &e.st, r[2]);
  FsScratchSpace_release(ss, &e.st, r[1]);
  EXPECT_EQ(144u, headerOf(r[0])->size);
  EXPECT_EQ(SS_FREE, headerOf(r[0])->flag);
  EXPECT_EQ(r[0], FsScratchSpace_reserve(ss, &e.st, 144));
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, r[0]));
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, r[3]));
  EXPECT_EQ(0u, e.st.error);
  EXPECT_EQ(2992u, firstBlock(ss));  // all one block again
}

TEST(ScratchSpace, ASurplusBelowNineStaysWithTheBlockAndAFullBufferFallsBackToTheHeap) {
  Engine e(100000);
  // Buffers of 120 and 128: one free block of 112 or 120. 104 bytes leave
  // a surplus of 8 (not cut: the block keeps 112) or 16 (cut into an 8).
  for (FS_ULONG size : {120u, 128u}) {
    FsScratchSpace* ss = FsScratchSpace_new(&e.st, size);
    EXPECT_EQ(kInitCharge + 24 + size + 8, e.used());  // record and buffer
    void* a = FsScratchSpace_reserve(ss, &e.st, 104);
    EXPECT_EQ(ss->buffer + 8, a);
    EXPECT_EQ(size == 120 ? 112u : 104u, headerOf(a)->size);
    FS_ULONG before = e.used();
    FS_BYTE* b = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 8);
    if (size == 120) {  // nothing free: from the heap, and back to it
      EXPECT_TRUE(b < ss->buffer || b >= ss->beyond);
      EXPECT_EQ(before + 16, e.used());
    } else {
      EXPECT_EQ(ss->beyond, b + 8);
    }
    EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, b));
    EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, a));
    EXPECT_EQ(size - 8, firstBlock(ss));
    FsScratchSpace_delete(ss, &e.st);
    EXPECT_EQ(kInitCharge, e.used());
  }
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
  // The reclaim ladder takes no scratch back, and clears the error.
  int gotSome = 7;
  e.st.error = ERR_MALLOC_FAIL;
  EXPECT_EQ(0, FsScratchSpace_shrink(ss, &e.st, &gotSome));
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
  EXPECT_EQ(kInitCharge + 58, e.used());
  EXPECT_EQ(0, FsScratchSpace_release(&ss, &e.st, p));
  EXPECT_EQ(nullptr, FsScratchSpace_new(&e.st, 8000));
  EXPECT_EQ((FS_ULONG)ERR_MALLOC_FAIL, e.st.error);
  EXPECT_EQ(kInitCharge, e.used());
}
