// Pair kerning on fonts built byte by byte and on DejaVu Sans: which
// subtable is kept, the search, scaling along the user scale's first column,
// raw values under FLAGS_KERN_UNSCALED, and counts and lengths that point
// past the `kern` table, which must never be read beyond it.
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

// A subtable: version, stated length (0: the true one), coverage, nPairs
// (-1: the true count), and its pairs.
sfnt::Bytes subtable(uint32_t version, const std::vector<Pair>& pairs,
                     uint32_t length = 0, int nPairs = -1) {
  sfnt::Bytes b;
  sfnt::u16(b, version);
  sfnt::u16(b, length ? length : 14 + 6 * (uint32_t)pairs.size());
  sfnt::u16(b, 1);  // horizontal
  sfnt::u16(b, nPairs < 0 ? (uint32_t)pairs.size() : (uint32_t)nPairs);
  sfnt::u16(b, 6);  // search words, unused by the lookup
  sfnt::u16(b, 0);
  sfnt::u16(b, 0);
  for (const Pair& p : pairs) {
    sfnt::u16(b, p.left);
    sfnt::u16(b, p.right);
    sfnt::u16(b, (uint32_t)p.value & 0xFFFF);
  }
  return b;
}

sfnt::Bytes kernTable(const std::vector<sfnt::Bytes>& subtables) {
  sfnt::Bytes b;
  sfnt::u16(b, 0);
  sfnt::u16(b, (uint32_t)subtables.size());
  for (const sfnt::Bytes& s : subtables) b.insert(b.end(), s.begin(), s.end());
  return b;
}

// The two-glyph test font (1000 units per em) with `kern` as its last table.
sfnt::Bytes fontWithKern(const sfnt::Bytes& kern) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("kern", kern);
  return sfnt::build(f);
}

const std::vector<Pair> kPairs = {{0, 1, -50}, {1, 0, 30}, {1, 1, 120}};

TEST(Kerning, FirstVersionZeroSubtableIsKeptAndSearched) {
  // A subtable of another version first: stepped over by its length.
  sfnt::Bytes other = subtable(2, {{0, 1, 999}});
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open("", fontWithKern(kernTable({other, subtable(0, kPairs)}))), 0);
  ASSERT_EQ(f.setPpem(20), 0);
  FS_FIXED dx = 7, dy = 7;
  // 20 pixels per em over 1000 units: -50 units are -1 pixel.
  ASSERT_EQ(FSS_get_kerning(&f.st, 0, 1, &dx, &dy), 0);
  EXPECT_EQ(dx, -65536);
  EXPECT_EQ(dy, 0);
  // 120 * 20 / 1000 = 2.4 pixels: 157286.4, rounded.
  ASSERT_EQ(FSS_get_kerning(&f.st, 1, 1, &dx, &dy), 0);
  EXPECT_EQ(dx, 157286);
  ASSERT_EQ(FSS_get_kerning(&f.st, 1, 0, &dx, &dy), 0);
  EXPECT_EQ(dx, 39322);  // 30 * 20 / 1000 = 0.6 pixel: 39321.6
  // A pair the table lacks.
  dx = dy = 7;
  ASSERT_EQ(FSS_get_kerning(&f.st, 0, 0, &dx, &dy), 0);
  EXPECT_EQ(dx, 0);
  EXPECT_EQ(dy, 0);

  // Raw font units in both under the unscaled flag.
  f.st.flags |= FLAGS_KERN_UNSCALED;
  ASSERT_EQ(FSS_get_kerning(&f.st, 1, 1, &dx, &dy), 0);
  EXPECT_EQ(dx, 120);
  EXPECT_EQ(dy, 120);
  EXPECT_EQ(kern_pair_count(&f.st, f.lfnt()), 3u);
}


TEST(Kerning, KernRunsAlongTheScalesFirstColumn) {
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open("", fontWithKern(kernTable({subtable(0, kPairs)}))), 0);
  // s00 20, s10 5 pixels: 120 units give 2.4 and 0.6 pixels.
  ASSERT_EQ(f.setScale(20 << 16, 0, 5 << 16, 20 << 16), 0);
  FS_FIXED dx, dy;
  ASSERT_EQ(FSS_get_kerning(&f.st, 1, 1, &dx, &dy), 0);
  EXPECT_EQ(dx, 157286);
  EXPECT_EQ(dy, 39322);
}

TEST(Kerning, FileFontKeepsAHeapCopyFreedWithTheFont) {
  testsupport::TempDir dir;
  std::string path = dir.file("kern.ttf");
  testsupport::writeBytes(path, sfnt::asString(fontWithKern(kernTable({subtable(0, kPairs)}))));
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open(path), 0);
  ASSERT_EQ(f.setPpem(20), 0);
  FS_ULONG before = FS_get_heap_used(&f.st);
  FS_FIXED dx, dy;
  f.st.flags |= FLAGS_KERN_UNSCALED;
  ASSERT_EQ(FSS_get_kerning(&f.st, 0, 1, &dx, &dy), 0);
  EXPECT_EQ(dx, -50);
  EXPECT_NE(f.lfnt()->kerning, nullptr);
  EXPECT_EQ(f.lfnt()->kern_subtable_length, 32);  // 14 + 3 pairs of 6
  EXPECT_GT(FS_get_heap_used(&f.st), before);
  delete_kern(&f.st, f.lfnt());
  EXPECT_EQ(f.lfnt()->kerning, nullptr);
  EXPECT_EQ(FS_get_heap_used(&f.st), before);
  // Loaded again on the next question.
  ASSERT_EQ(FSS_get_kerning(&f.st, 1, 0, &dx, &dy), 0);
  EXPECT_EQ(dx, 30);
}

TEST(Kerning, CountsAndLengthsPastTheTableAreReadOnlyWithinIt) {
  // nPairs 1000 and a stated length of 60000 in a table that holds 3 pairs:
  // the length is cut to the 32 bytes the table has behind its 4-byte head,
  // and the count to (32 - 14) / 6 = 3.
  for (bool inFile : {false, true}) {
    SCOPED_TRACE(inFile ? "file" : "memory");
    sfnt::Bytes font = fontWithKern(kernTable({subtable(0, kPairs, 60000, 1000)}));
    testsupport::TempDir dir;
    std::string path = dir.file("k.ttf");
    testsupport::writeBytes(path, sfnt::asString(font));
    testsupport::TypesetFont f;
    ASSERT_EQ(inFile ? f.open(path) : f.open("", font), 0);
    ASSERT_EQ(f.setPpem(20), 0);
    f.st.flags |= FLAGS_KERN_UNSCALED;
    FS_FIXED dx, dy;
    for (int l = 0; l < 2; l++)
      for (int r = 0; r < 2; r++)
        ASSERT_EQ(FSS_get_kerning(&f.st, l, r, &dx, &dy), 0);
    ASSERT_EQ(FSS_get_kerning(&f.st, 1, 1, &dx, &dy), 0);
    EXPECT_EQ(dx, 120);
    EXPECT_EQ(f.lfnt()->kern_subtable_length, 32);
    EXPECT_EQ(kern_pair_count(&f.st, f.lfnt()), 3u);
  }
  // A true length but a false count: the length limits it.
  testsupport::TypesetFont g;
  ASSERT_EQ(g.open("", fontWithKern(kernTable({subtable(0, kPairs, 0, 900)}))), 0);
  EXPECT_EQ(kern_pair_count(&g.st, g.lfnt()), 3u);
  // A subtable count past the table: the walk ends at the table's end.
  sfnt::Bytes many = kernTable({subtable(1, kPairs)});
  sfnt::putU16(many, 2, 500);
  testsupport::TypesetFont h;
  ASSERT_EQ(h.open("", fontWithKern(many)), 0);
  EXPECT_EQ(kern_pair_count(&h.st, h.lfnt()), 0u);
  EXPECT_EQ(h.lfnt()->kerning, nullptr);
}

TEST(Kerning, NoTableNoSubtableAndErrors) {
  FS_FIXED dx = 7, dy = 7;
  testsupport::TypesetFont none;
  EXPECT_EQ(FSS_get_kerning(&none.st, 0, 1, &dx, &dy), ERR_NO_CURRENT_FONT);
  EXPECT_EQ(dx, 0);

  testsupport::TypesetFont plain;
  ASSERT_EQ(plain.open("", sfnt::build(sfnt::minimalGlyfFont())), 0);
  EXPECT_EQ(FSS_get_kerning(&plain.st, 0, 1, &dx, &dy), ERR_NO_CURRENT_SFNT);
  ASSERT_EQ(plain.setPpem(20), 0);
  EXPECT_EQ(FSS_get_kerning(&plain.st, 0, 1, &dx, &dy), 0);
  EXPECT_EQ(dx, 0);
  EXPECT_EQ(plain.st.error, 0u);

  // Only a subtable of another version, and one of length 0 that would
  // never move the walk: no kerning.
  testsupport::TypesetFont other;
  ASSERT_EQ(other.open("", fontWithKern(kernTable({subtable(1, kPairs, 0),
                                                   subtable(1, kPairs, 0)}))), 0);
  ASSERT_EQ(other.setPpem(20), 0);
  EXPECT_EQ(FSS_get_kerning(&other.st, 0, 1, &dx, &dy), 0);
  EXPECT_EQ(dx, 0);
  EXPECT_EQ(other.lfnt()->kerning, nullptr);
  sfnt::Bytes stuck = kernTable({subtable(1, kPairs), subtable(0, kPairs)});
  sfnt::putU16(stuck, 6, 0);  // the first subtable's length
  testsupport::TypesetFont zero;
  ASSERT_EQ(zero.open("", fontWithKern(stuck)), 0);
  EXPECT_EQ(kern_pair_count(&zero.st, zero.lfnt()), 0u);

  // A second glyph index beyond the font: map_char's 406, for a font with a
  // `kern` table; without one the answer is 0 before the second look-up.
  EXPECT_EQ(FSS_get_kerning(&other.st, 0, 2, &dx, &dy), ERR_BAD_GLYF_INDEX);
  EXPECT_EQ(FSS_get_kerning(&plain.st, 0, 2, &dx, &dy), 0);
}

TEST(Kerning, RealFontByCharacterCodes) {
  testsupport::TypesetFont f;
  ASSERT_EQ(f.open("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"), 0);
  ASSERT_EQ(f.setPpem(2048), 0);
  f.st.flags |= FLAGS_KERN_UNSCALED;
  FS_FIXED dx, dy;
  // By glyph index: the table's first pair, hyphen (16) before "A" (36).
  ASSERT_EQ(FSS_get_kerning(&f.st, 16, 36, &dx, &dy), 0);
  EXPECT_EQ(dx, -45);
  // By character code through the Unicode map: the same pair.
  ASSERT_EQ(FSS_set_cmap(&f.st, 3, 1), 0);
  ASSERT_EQ(FSS_get_kerning(&f.st, '-', 'A', &dx, &dy), 0);
  EXPECT_EQ(dx, -45);
  // At 2048 pixels per em a unit is a pixel: -45 pixels.
  f.st.flags &= ~FLAGS_KERN_UNSCALED;
  ASSERT_EQ(FSS_get_kerning(&f.st, '-', 'A', &dx, &dy), 0);
  EXPECT_EQ(dx, -45 * 65536);
}

}  // namespace
