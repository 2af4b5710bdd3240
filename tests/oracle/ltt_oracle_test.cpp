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

#include <map>

#include "Orvex_internal/fs_err.h"
#include "support/ltt_builder.h"
#include "support/test_support.h"

using namespace testsupport;

namespace {

TEST(LinkedSet, CodesPointsAndIndicesAreTheComponentFilesOwn) {
  TempDir dir;
  UnhintedFont set, alone[3];
  ASSERT_EQ(set.start(linkedSet().write(dir.file("three.ltt"))), 0);
  FNTSET* fs = set.st.cur_typeset.fntset;
  ASSERT_EQ(fs->num_fonts, 3);
  // Each code some file maps, with the component that should render it:
  // the first whose coverage holds it (Liberation Serif only below U+0400)
  // and whose file maps it, and its glyph there; -1 for none.
  std::map<FT_ULong, std::pair<int, FT_UInt>> owner;
  FT_Library ft;
  ASSERT_EQ(FT_Init_FreeType(&ft), 0);
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(fs->cfnt[i].start_index, kLinkedStart[i]);
    ASSERT_EQ(alone[i].start(linkedPath(i)), 0);
    FT_Face f;
    ASSERT_EQ(FT_New_Face(ft, linkedPath(i).c_str(), 0, &f), 0) << linkedPath(i);
    FT_UInt g;
    for (FT_ULong c = FT_Get_First_Char(f, &g); g != 0; c = FT_Get_Next_Char(f, c, &g))
      if (!owner.count(c) || owner[c].first < 0)
        owner[c] = {i > 0 || c < 0x400 ? i : -1, g};
    FT_Done_Face(f);
  }
  FT_Done_FreeType(ft);
  unsigned served[3] = {0, 0, 0};
  for (int ppem : {12, 24}) {
    ASSERT_EQ(set.setPpem(ppem), 0);
    for (UnhintedFont& a : alone) ASSERT_EQ(a.setPpem(ppem), 0);
    for (const auto& o : owner) {
      int k = o.second.first;
      ASSERT_EQ(FSS_map_char(&set.st, o.first), k < 0 ? 0 : o.second.second + kLinkedStart[k])
          << "U+" << std::hex << o.first;
      ASSERT_EQ(set.st.error, 0u);
      if (k < 0) continue;
      served[k]++;
      std::vector<long> want = glyphPoints(&alone[k].st, o.first);
      ASSERT_EQ(alone[k].st.error, 0u);
      ASSERT_EQ(glyphPoints(&set.st, o.first), want) << "U+" << std::hex << o.first << " " << ppem;
    }
  }
  for (unsigned n : served) EXPECT_GT(n, 0u);
  // Glyph indices, at 24 ppem.
  FS_set_flags(&set.st, FLAGS_CMAP_OFF);
  for (int i = 0; i < 3; i++) {
    FS_set_flags(&alone[i].st, FLAGS_CMAP_OFF);
    unsigned drawn = 0;
    for (unsigned g : {1u, 3u, kLinkedGlyphs[i] / 2, kLinkedGlyphs[i] - 1}) {
      std::vector<long> want = glyphPoints(&alone[i].st, g);
      ASSERT_EQ(alone[i].st.error, 0u) << i << " " << g;
      EXPECT_EQ(glyphPoints(&set.st, kLinkedStart[i] + g), want) << i << " " << g;
      EXPECT_EQ(set.st.cur_font, i);
      drawn += !want.empty();
    }
    EXPECT_GE(drawn, 2u) << "glyphs with outlines in component " << i;
  }
  EXPECT_TRUE(glyphPoints(&set.st, kLinkedStart[2] + kLinkedGlyphs[2]).empty());
  EXPECT_EQ(set.st.error, (FS_ULONG)ERR_BAD_GLYF_INDEX);  // past the last range
}

}  // namespace
