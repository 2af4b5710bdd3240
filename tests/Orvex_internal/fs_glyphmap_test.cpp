// The glyph result records' layout, the client flag word and the start-up
// proof of the build's type assumptions.
#include "Orvex_internal/fs_glyphmap.h"

#include <gtest/gtest.h>


#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_err.h"

namespace {

TEST(GlyphRecords, HeadersHaveTheirFixedSizesAndPayloadPlaces) {
  EXPECT_EQ(48u, sizeof(FS_GLYPHMAP));  // a bounding box
  FS_STATE st = FS_STATE();  // this host passes the type check, which clears the error
  st.error = 999;
  EXPECT_EQ(0, check_types(&st));
  EXPECT_EQ(0u, st.error);
}

TEST(FlagWord, FamiliesClearTheirOthersAndUnknownValuesAreRefused) {
  FS_STATE st = FS_STATE();
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
      {~FLAGS_EFFECTS, 0, FLAGS_REGULARBOLD, "the effects' complement clears them"},
      {~FLAGS_REGULARBOLD, 0, 0, "a flag's complement clears it"},
      {0x8000, ERR_FLAG_UNSUPPORTED, 0, "known but not built"},
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
