// The glyph result records' layout, the client flag word and the start-up
// proof of the build's type assumptions.
#include <gtest/gtest.h>
#include <string.h>

#include <cstddef>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"

namespace {

TEST(GlyphRecords, HeadersHaveTheirFixedSizesAndPayloadPlaces) {
  // A bounding box is 48 bytes whose first 40 are a glyphmap's header.
  EXPECT_EQ(48u, sizeof(FS_GLYPHMAP));
  EXPECT_LE(offsetof(FS_GLYPHMAP, type) + sizeof(FS_USHORT), 44u);
  EXPECT_EQ(80u, sizeof(FS_OUTLINE));
  EXPECT_EQ(24u, sizeof(FS_ADVANCE));
}

TEST(FlagWord, FamiliesClearTheirOthersAndUnknownValuesAreRefused) {
  FS_STATE st;
  memset(&st, 0, sizeof st);
  EXPECT_EQ(ERR_UNKNOWN_FLAG, FS_set_flags(&st, 0));
  EXPECT_EQ(0u, st.flags);
  EXPECT_EQ(0, FS_set_flags(&st, FLAGS_ADD_WEIGHT));
  EXPECT_EQ(0, FS_set_flags(&st, FLAGS_REGULARBOLD));
  EXPECT_EQ(FLAGS_REGULARBOLD, st.flags);
  EXPECT_EQ(0, FS_set_flags(&st, FLAGS_EMBOSSED));
  EXPECT_EQ(0, FS_set_flags(&st, FLAGS_OUTLINED_SOFT));
  EXPECT_EQ(FLAGS_REGULARBOLD | FLAGS_OUTLINED_SOFT, st.flags);
  EXPECT_EQ(0, FS_set_flags(&st, ~FLAGS_EFFECTS));
  EXPECT_EQ(FLAGS_REGULARBOLD, st.flags);
  EXPECT_EQ(0, FS_set_flags(&st, ~FLAGS_REGULARBOLD));

  // Any vertical complement drops whichever vertical flag is up.
  EXPECT_EQ(0, FS_set_flags(&st, FLAGS_VERTICAL_ROTATE_LEFT_ON));
  EXPECT_EQ(0, FS_set_flags(&st, ~FLAGS_VERTICAL_ON));
  EXPECT_EQ(0u, st.flags);

  EXPECT_EQ(ERR_FLAG_UNSUPPORTED, FS_set_flags(&st, 0x8000));
  EXPECT_EQ(ERR_FLAG_UNSUPPORTED, FS_set_flags(&st, ~0x8000u));
  EXPECT_EQ(ERR_UNKNOWN_FLAG, FS_set_flags(&st, 0x2000));
  EXPECT_EQ(ERR_UNKNOWN_FLAG, FS_set_flags(&st, 0x200000));
  EXPECT_EQ(0u, FS_get_flags(&st));
  EXPECT_EQ(0, FS_set_flags(&st, FLAGS_NO_HINTS));
  EXPECT_EQ(0u, st.error);
  EXPECT_EQ(FLAGS_NO_HINTS, FS_get_flags(&st));
}

TEST(CheckTypes, ThisHostPassesAndTheErrorIsCleared) {
  FS_STATE st;
  memset(&st, 0, sizeof st);
  st.error = 999;
  EXPECT_EQ(0, check_types(&st));
  EXPECT_EQ(0u, st.error);
}

}  // namespace
