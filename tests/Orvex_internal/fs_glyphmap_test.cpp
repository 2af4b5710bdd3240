// The glyph result records' layout, the client flag word and the start-up
// proof of the build's type assumptions.
#include "Orvex_internal/fs_glyphmap.h"

#include <gtest/gtest.h>
#include <string.h>


#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_err.h"

namespace {

TEST(GlyphRecords, HeadersHaveTheirFixedSizesAndPayloadPlaces) {
  // A bounding box is 48 bytes; an advance 24.
  EXPECT_EQ(48u, sizeof(FS_GLYPHMAP));
  EXPECT_EQ(24u, sizeof(FS_ADVANCE));
  FS_STATE st;  // this host passes the type check, which clears the error
  memset(&st, 0, sizeof st);
  st.error = 999;
  EXPECT_EQ(0, check_types(&st));
  EXPECT_EQ(0u, st.error);
}

TEST(FlagWord, FamiliesClearTheirOthersAndUnknownValuesAreRefused) {
  FS_STATE st;
  memset(&st, 0, sizeof st);
  // Each row sets one value on the flags left by the rows before it.
  struct {
    FS_ULONG value;
    FS_LONG err;
    FS_ULONG flags;
    const char* why;
  } rows[] = {
      {0, ERR_UNKNOWN_FLAG, 0, "zero is no flag"},
      {FLAGS_ADD_WEIGHT, 0, FLAGS_ADD_WEIGHT, "a weight"},
      {FLAGS_REGULARBOLD, 0, FLAGS_REGULARBOLD, "another weight replaces it"},
      {FLAGS_EMBOSSED, 0, FLAGS_REGULARBOLD | FLAGS_EMBOSSED, "an effect beside it"},
      {FLAGS_OUTLINED_SOFT, 0, FLAGS_REGULARBOLD | FLAGS_OUTLINED_SOFT,
       "another effect replaces it"},
      {~FLAGS_EFFECTS, 0, FLAGS_REGULARBOLD, "the effects' complement clears them"},
      {~FLAGS_REGULARBOLD, 0, 0, "a flag's complement clears it"},
      {FLAGS_VERTICAL_ROTATE_LEFT_ON, 0, FLAGS_VERTICAL_ROTATE_LEFT_ON, "a vertical layout"},
      {~FLAGS_VERTICAL_ON, 0, 0, "any vertical complement drops whichever is up"},
      {0x8000, ERR_FLAG_UNSUPPORTED, 0, "known but not built"},
      {~0x8000u, ERR_FLAG_UNSUPPORTED, 0, "its complement too"},
      {0x2000, ERR_UNKNOWN_FLAG, 0, "unknown"},
      {FLAGS_NO_HINTS, 0, FLAGS_NO_HINTS, "and the error clears"},
  };
  for (auto& r : rows) {
    EXPECT_EQ(r.err, FS_set_flags(&st, r.value)) << r.why;
    EXPECT_EQ(r.flags, FS_get_flags(&st)) << r.why;
  }
  EXPECT_EQ(0u, st.error);
}

}  // namespace
