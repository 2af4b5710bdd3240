// Pair kerning on built fonts: which subtable is kept, scaling and raw values,
// and counts and lengths past the `kern` table, never read beyond it.
#include <gtest/gtest.h>

#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_kern.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

namespace {

struct Pair {
  uint32_t left, right;
  int value;
};
const std::vector<Pair> kPairs = {{0, 1, -50}, {1, 0, 30}, {1, 1, 120}};

// A subtable: version, stated length (0: the true one), horizontal coverage,
// nPairs (-1: the true count), search words (unused), its pairs.
sfnt::Bytes subtable(uint32_t version, const std::vector<Pair>& pairs = kPairs,
                     uint32_t length = 0, int nPairs = -1) {
  sfnt::Bytes b;
  uint32_t n = (uint32_t)pairs.size();
  for (uint32_t w : {version, length ? length : 14 + 6 * n, 1u,
                     nPairs < 0 ? n : (uint32_t)nPairs, 6u, 0u, 0u})
    sfnt::u16(b, w);
  for (const Pair& p : pairs)
    for (uint32_t w : {p.left, p.right, (uint32_t)p.value & 0xFFFF}) sfnt::u16(b, w);
  return b;
}

// The two-glyph font (1000 units per em) with a `kern` of `subtables` (count
// `count` when given).
sfnt::Bytes fontWithKern(const std::vector<sfnt::Bytes>& subtables, int count = -1) {
  sfnt::Bytes k;
  sfnt::u16(k, 0);
  sfnt::u16(k, count < 0 ? (uint32_t)subtables.size() : (uint32_t)count);
  for (const sfnt::Bytes& s : subtables) k.insert(k.end(), s.begin(), s.end());
  return sfnt::build(sfnt::minimalGlyfFont().set("kern", k));
}

TEST(Kerning, PairsAreFoundInTheFirstVersionZeroSubtableByGlyphOrCodeAndScaled) {
  // A subtable of another version first is stepped over by its length.
  sfnt::Bytes font = fontWithKern({subtable(2, {{0, 1, 999}}), subtable(0)});
  // At 20 pixels per em -50 units are -1 pixel; 120 units 2.4 pixels (157286.4
  // in 16.16), and with s10 5, 0.6 pixel in y (39321.6). Unscaled: raw units.
  const struct { int s00, s10; bool raw; FS_ULONG l, r; FS_FIXED dx, dy; } rows[] = {
      {20, 0, false, 0, 1, -65536, 0}, {20, 0, false, 0, 0, 0, 0},  // no such pair
      {20, 5, false, 1, 1, 157286, 39322}, {20, 0, true, 1, 1, 120, 120}};
  for (const auto& r : rows) {
    testsupport::TypesetFont f;
    ASSERT_EQ(f.open("", font), 0);
    ASSERT_EQ(f.setScale(r.s00 << 16, 0, r.s10 << 16, 20 << 16), 0);
    if (r.raw) f.st.flags |= FLAGS_KERN_UNSCALED;
    FS_FIXED dx = 7, dy = 7;
    ASSERT_EQ(FSS_get_kerning(&f.st, r.l, r.r, &dx, &dy), 0);
    EXPECT_EQ(dx, r.dx) << r.l << "," << r.r << " s10 " << r.s10;
    EXPECT_EQ(dy, r.dy) << r.l << "," << r.r << " s10 " << r.s10;
  }
  // With a cmap chosen, codes are mapped first: 'b' is glyph 0, 'a' glyph 1.
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open("", font), 0);
  ASSERT_EQ(f.setPpem(20), 0);
  ASSERT_EQ(FSS_set_cmap(&f.st, 3, 1), 0);
  f.st.flags |= FLAGS_KERN_UNSCALED;
  FS_FIXED dx, dy;
  ASSERT_EQ(FSS_get_kerning(&f.st, 'b', 'a', &dx, &dy), 0);
  EXPECT_EQ(dx, -50);
}

TEST(Kerning, FileFontKeepsAHeapCopyFreedWithTheFont) {
  testsupport::TempDir dir;
  testsupport::writeBytes(dir.file("k.ttf"), sfnt::asString(fontWithKern({subtable(0)})));
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open(dir.file("k.ttf")), 0);
  ASSERT_EQ(f.setPpem(20), 0);
  FS_ULONG before = FS_get_heap_used(&f.st);
  FS_FIXED dx, dy;
  f.st.flags |= FLAGS_KERN_UNSCALED;
  ASSERT_EQ(FSS_get_kerning(&f.st, 0, 1, &dx, &dy), 0);
  EXPECT_EQ(dx, -50);
  EXPECT_EQ(f.lfnt()->kern_subtable_length, 32);  // 14 + 3 pairs of 6
  EXPECT_GT(FS_get_heap_used(&f.st), before);
  delete_kern(&f.st, f.lfnt());
  EXPECT_EQ(f.lfnt()->kerning, nullptr);
  EXPECT_EQ(FS_get_heap_used(&f.st), before);
  ASSERT_EQ(FSS_get_kerning(&f.st, 1, 0, &dx, &dy), 0);  // loaded again
  EXPECT_EQ(dx, 30);
}

TEST(Kerning, CountsAndLengthsPastTheTableAreReadOnlyWithinIt) {
  testsupport::TempDir dir;
  sfnt::Bytes stuck = fontWithKern({subtable(1), subtable(0)});
  sfnt::putU16(stuck, sfnt::getU32(stuck, sfnt::entryOf(stuck, "kern") + 8) + 6, 0);
  // nPairs 1000 and length 60000 in a table of 3 pairs: the length is cut to
  // the 32 bytes after the table's head, the count to (32 - 14) / 6 = 3.
  sfnt::Bytes overlong = fontWithKern({subtable(0, kPairs, 60000, 1000)});
  const struct { const char* why; sfnt::Bytes font; bool file; FS_ULONG pairs; } rows[] = {
      {"overlong length and count", overlong, false, 3},
      {"overlong length and count, file", overlong, true, 3},
      {"true length, false count", fontWithKern({subtable(0, kPairs, 0, 900)}), false, 3},
      {"500 subtables in a table of one", fontWithKern({subtable(1)}, 500), false, 0},
      {"only other versions", fontWithKern({subtable(1, kPairs, 0), subtable(1)}), false, 0},
      {"a first subtable of length 0", stuck, false, 0},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.why);
    testsupport::writeBytes(dir.file("k.ttf"), sfnt::asString(r.font));
    testsupport::TypesetFont f;
    ASSERT_EQ(r.file ? f.open(dir.file("k.ttf")) : f.open("", r.font), 0);
    ASSERT_EQ(f.setPpem(20), 0);
    f.st.flags |= FLAGS_KERN_UNSCALED;
    FS_FIXED dx = 7, dy;
    for (int l = 0; l < 2; l++)
      for (int g = 0; g < 2; g++) ASSERT_EQ(FSS_get_kerning(&f.st, l, g, &dx, &dy), 0);
    EXPECT_EQ(dx, r.pairs ? 120 : 0);  // the pair (1, 1)
    EXPECT_EQ(kern_pair_count(&f.st, f.lfnt()), r.pairs);
  }
}

TEST(Kerning, RefusalsWithTheirCodes) {
  FS_FIXED dx = 7, dy = 7;
  testsupport::TypesetFont none, plain, kerned;
  EXPECT_EQ(FSS_get_kerning(&none.st, 0, 1, &dx, &dy), ERR_NO_CURRENT_FONT);
  EXPECT_EQ(dx, 0);
  ASSERT_EQ(plain.open("", sfnt::build(sfnt::minimalGlyfFont())), 0);
  EXPECT_EQ(FSS_get_kerning(&plain.st, 0, 1, &dx, &dy), ERR_NO_CURRENT_SFNT);
  ASSERT_EQ(plain.setPpem(20), 0);
  EXPECT_EQ(FSS_get_kerning(&plain.st, 0, 1, &dx, &dy), 0);  // no table: 0
  EXPECT_EQ(dx, 0);
  EXPECT_EQ(plain.st.error, 0u);
  // A glyph past the font: 406 with a `kern` table, 0 without one.
  ASSERT_EQ(kerned.open("", fontWithKern({subtable(1)})), 0);
  ASSERT_EQ(kerned.setPpem(20), 0);
  EXPECT_EQ(FSS_get_kerning(&kerned.st, 0, 2, &dx, &dy), ERR_BAD_GLYF_INDEX);
  EXPECT_EQ(FSS_get_kerning(&plain.st, 0, 2, &dx, &dy), 0);
}

}  // namespace
