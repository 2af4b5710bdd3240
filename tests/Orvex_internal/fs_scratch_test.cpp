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

TEST(ScratchSpace, ReservationsAreCutFromTheFrontAndMergeBackOnRelease) {
  Engine e(100000);
  FsScratchSpace* ss = &e.server()->scratch;
  auto reserve = [&](FS_ULONG n) { return (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, n); };
  // 100 rounds up to 104: the 2992-byte block is cut, and 2992 - 104 - 8 =
  // 2880 follow as a free block; 1 byte takes 8.
  FS_BYTE* r[4] = {reserve(100), reserve(1), reserve(16), reserve(16)};
  EXPECT_EQ(ss->buffer + 8, r[0]);
  EXPECT_EQ(r[0] + 104 + 8, r[1]);
  EXPECT_EQ(8u, headerOf(r[1])->size);
  EXPECT_EQ(2880u - 16 - 2 * 24, headerOf(r[3] + 16 + 8)->size);  // what follows
  EXPECT_EQ(kInitCharge, e.used());  // nothing of this touches the heap
  // r1 joins the free r0 before it and r2 after it: 104 + 8 + 8 + 8 + 16 =
  // 144, where a request of 144 then fits, first fit.
  for (int i : {0, 2, 1}) FsScratchSpace_release(ss, &e.st, r[i]);
  EXPECT_EQ(r[0], reserve(144));
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, r[0]) + FsScratchSpace_release(ss, &e.st, r[3]));
  EXPECT_EQ(2992u, headerOf(ss->buffer + 8)->size);  // all one block again

  // Releasing inside a block or twice: 204. Null lies outside the buffer and
  // goes to FSS_free, which accepts it.
  FS_BYTE* a = reserve(32);
  EXPECT_EQ(ERR_BAD_SCRATCH_ADDR, FsScratchSpace_release(ss, &e.st, a + 4));
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, a));
  EXPECT_EQ(ERR_BAD_SCRATCH_ADDR, FsScratchSpace_release(ss, &e.st, a));
  EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, nullptr));
}

TEST(ScratchSpace, ASurplusBelowNineStaysWithTheBlockAndWhatDoesNotFitComesFromTheHeap) {
  Engine e(10000);
  // Buffers of 120 and 128: one free block of 112 or 120. 104 bytes leave a
  // surplus of 8 (kept: the block keeps 112, and 8 more come from the heap)
  // or 16 (cut into an 8-byte block, which takes the next 8).
  for (FS_ULONG size : {120u, 128u}) {
    FsScratchSpace* ss = FsScratchSpace_new(&e.st, size);
    void* a = FsScratchSpace_reserve(ss, &e.st, 104);
    EXPECT_EQ(size == 120 ? 112u : 104u, headerOf(a)->size);
    FS_ULONG before = e.used();
    FS_BYTE* b = (FS_BYTE*)FsScratchSpace_reserve(ss, &e.st, 8);
    EXPECT_EQ(size == 120 ? before + 16 : before, e.used());
    EXPECT_EQ(0, FsScratchSpace_release(ss, &e.st, b) + FsScratchSpace_release(ss, &e.st, a));
    EXPECT_EQ(size - 8, headerOf(ss->buffer + 8)->size);
    FsScratchSpace_delete(ss, &e.st);
    EXPECT_EQ(kInitCharge, e.used());
  }
  // 8000 bytes don't fit the 6992 left: no buffer (`beyond` null), and every
  // reservation comes from the heap.
  FsScratchSpace ss;
  EXPECT_EQ(ERR_MALLOC_FAIL, FsScratchSpace_init(&ss, &e.st, 8000));
  EXPECT_EQ(nullptr, ss.beyond);
  void* p = FsScratchSpace_reserve(&ss, &e.st, 50);
  EXPECT_EQ(kInitCharge + 58, e.used());
  EXPECT_EQ(0, FsScratchSpace_release(&ss, &e.st, p));
  EXPECT_EQ(nullptr, FsScratchSpace_new(&e.st, 8000));
  EXPECT_EQ(kInitCharge, e.used());
}
