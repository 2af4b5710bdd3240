// A linked font of three packaged fonts against its component files: every
// code of each file's Unicode map goes, through the set, to the first
// component that covers it and whose file maps it (libfreetype reads the
// files' maps), in the set's numbering; the unhinted points of each glyph
// through the set equal the engine's on that file alone, which the scaler's
// oracle ties to libfreetype; glyph indices reach each component through its
// range.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "support/linked_font.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

using namespace testsupport;

namespace {

class LinkedSet : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(FT_Init_FreeType(&ft), 0);
    for (int i = 0; i < 3; i++)
      ASSERT_EQ(FT_New_Face(ft, linkedPath(i).c_str(), 0, &faces[i]), 0) << linkedPath(i);
    writeFileBytes(dir.file("three.ltt"), linkedSet().build());
    ASSERT_EQ(set.open(dir.file("three.ltt")), 0);
    ASSERT_EQ(FSS_set_cmap(&set.st, 3, 10), 0);
    FS_set_flags(&set.st, FLAGS_NO_HINTS);
  }
  void TearDown() override {
    for (FT_Face f : faces)
      if (f) FT_Done_Face(f);
    FT_Done_FreeType(ft);
  }
  // Every code some component's file maps, ascending.
  std::set<FT_ULong> allCodes() {
    std::set<FT_ULong> codes;
    for (FT_Face f : faces) {
      FT_UInt g;
      for (FT_ULong c = FT_Get_First_Char(f, &g); g != 0; c = FT_Get_Next_Char(f, c, &g))
        codes.insert(c);
    }
    return codes;
  }
  // The component that should render `code`: the first whose coverage
  // holds it (Liberation Serif only U+0000 to U+03FF) and whose file maps
  // it; -1 for none.
  int owner(FT_ULong code, FT_UInt* glyph) {
    for (int i = 0; i < 3; i++) {
      if (i == 0 && code >= 0x400) continue;
      *glyph = FT_Get_Char_Index(faces[i], code);
      if (*glyph != 0) return i;
    }
    *glyph = 0;
    return -1;
  }

  FT_Library ft = nullptr;
  FT_Face faces[3] = {nullptr, nullptr, nullptr};
  TempDir dir;
  TypesetFont set;
};

TEST_F(LinkedSet, EachCodeGoesToTheFirstComponentThatCoversAndMapsIt) {
  FNTSET* fs = set.st.cur_typeset.fntset;
  ASSERT_EQ(fs->num_fonts, 3);
  for (int i = 0; i < 3; i++) EXPECT_EQ(fs->cfnt[i].start_index, kLinkedStart[i]);
  unsigned counts[3] = {0, 0, 0};
  for (FT_ULong code : allCodes()) {
    FT_UInt glyph;
    int k = owner(code, &glyph);
    FS_USHORT got = FSS_map_char(&set.st, code);
    ASSERT_EQ(set.st.error, 0u) << std::hex << code;
    ASSERT_EQ(got, k < 0 ? 0 : glyph + kLinkedStart[k]) << "U+" << std::hex << code;
    if (k >= 0) counts[k]++;
  }
  // Each component serves some codes: Liberation Serif below U+0400, DejaVu
  // Sans the rest of its map, Noto Sans Armenian what DejaVu Sans lacks.
  for (unsigned n : counts) EXPECT_GT(n, 0u);
}

TEST_F(LinkedSet, PointsThroughTheSetAreTheFilesOwn) {
  TypesetFont alone[3];
  for (int i = 0; i < 3; i++) {
    ASSERT_EQ(alone[i].open(linkedPath(i)), 0);
    ASSERT_EQ(FSS_set_cmap(&alone[i].st, 3, 10), 0);
    FS_set_flags(&alone[i].st, FLAGS_NO_HINTS);
  }
  std::set<FT_ULong> codes = allCodes();
  for (int ppem : {12, 24}) {
    ASSERT_EQ(set.setPpem(ppem), 0);
    for (TypesetFont& a : alone) ASSERT_EQ(a.setPpem(ppem), 0);
    unsigned compared = 0;
    for (FT_ULong code : codes) {
      FT_UInt glyph;
      int k = owner(code, &glyph);
      if (k < 0) continue;
      std::vector<long> want = glyphPoints(&alone[k].st, code);
      ASSERT_EQ(alone[k].st.error, 0u);
      ASSERT_EQ(glyphPoints(&set.st, code), want) << "U+" << std::hex << code << " at " << ppem;
      compared++;
    }
    EXPECT_GT(compared, codes.size() / 2);
  }
}

TEST_F(LinkedSet, GlyphIndicesReachEachComponentThroughItsRange) {
  FS_set_flags(&set.st, FLAGS_CMAP_OFF);
  ASSERT_EQ(set.setPpem(24), 0);
  for (int i = 0; i < 3; i++) {
    TypesetFont alone;
    ASSERT_EQ(alone.open(linkedPath(i)), 0);
    FS_set_flags(&alone.st, FLAGS_CMAP_OFF);
    FS_set_flags(&alone.st, FLAGS_NO_HINTS);
    ASSERT_EQ(alone.setPpem(24), 0);
    unsigned drawn = 0;
    for (unsigned g : {1u, 3u, kLinkedGlyphs[i] / 2, kLinkedGlyphs[i] - 1}) {
      std::vector<long> want = glyphPoints(&alone.st, g);
      ASSERT_EQ(alone.st.error, 0u) << i << " " << g;
      EXPECT_EQ(glyphPoints(&set.st, kLinkedStart[i] + g), want) << i << " " << g;
      EXPECT_EQ(set.st.error, 0u);
      EXPECT_EQ(set.st.cur_font, i);
      drawn += !want.empty();
    }
    EXPECT_GE(drawn, 2u) << "glyphs with outlines in component " << i;
  }
  EXPECT_TRUE(glyphPoints(&set.st, kLinkedStart[2] + kLinkedGlyphs[2]).empty());
  EXPECT_EQ(set.st.error, (FS_ULONG)ERR_BAD_GLYF_INDEX);  // past the last range
}

}  // namespace
