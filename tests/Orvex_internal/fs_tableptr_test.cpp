// Table access on DejaVu Sans: loans shared, counted and kept until the font
// goes, lent in place from memory, and the refusals with their codes.
#include <gtest/gtest.h>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_tableptr.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_typeset.h"
#include "engine_fixture.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
constexpr FS_ULONG TAG_GSUB = FS_MAKE_TAG('G', 'S', 'U', 'B');
constexpr FS_ULONG TAG_zzzz = FS_MAKE_TAG('z', 'z', 'z', 'z');

// DejaVu Sans made current, from its file or from `image`; the heap goes
// back to its start figure.
class TableAccess : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(engine.started);
    st = &engine.st;
    baseline = engine.used();
  }
  void TearDown() override {
    TYPESET_destroy(st, &st->cur_typeset);
    EXPECT_EQ(engine.used(), baseline);
  }
  void addFont(bool fromMemory = false) {
    if (fromMemory) image = sfnt::asBytes(testsupport::readBytes(kDejaVuSans));
    ASSERT_EQ(FSS_load_font(st, fromMemory ? nullptr : kDejaVuSans,
                            fromMemory ? image.data() : nullptr, 0, sizeof name, name), 0)
        << "missing font " << kDejaVuSans;
    ASSERT_EQ(FSS_set_font(st, name), 0);
  }
  FNTSET* set() { return st->cur_typeset.fntset; }
  FS_ULONG offsetOf(FS_ULONG tag, FS_ULONG* len) {
    FS_ULONG off = 0;
    EXPECT_TRUE(get_ttf_table_info(st, (TTF*)set()->metric_font->fnt, tag, &off, len));
    return off;
  }

  enginetest::Engine engine{64u << 20};
  FS_STATE* st = nullptr;
  FS_ULONG baseline = 0;
  FILECHAR name[64] = {0};
  std::vector<uint8_t> image;
};

TEST_F(TableAccess, LoansAreSharedCountedAndKeptAtCountZeroUntilTheFontGoes) {
  addFont();
  FS_ULONG len = 0;
  FS_BYTE* a = FSS_get_table(st, TAG_head, TABLE_LEND, &len);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(len, 54u);
  EXPECT_EQ(get_u32(a + 12), TTF_HEAD_MAGIC);  // file byte order
  EXPECT_EQ(FSS_get_table(st, TAG_head, TABLE_LEND, nullptr), a);
  EXPECT_TRUE(st->server->table_ptrs->external);  // a file font's copy
  EXPECT_EQ(FSS_free_table(st, a), 0);
  EXPECT_EQ(FSS_free_table(st, a), 0);
  // Released is not freed: a third release is refused, a new loan takes the
  // cached block again.
  EXPECT_EQ(FSS_free_table(st, a), ERR_TABLE_PTR_COUNT);
  EXPECT_EQ(FSS_get_table(st, TAG_head, TABLE_LEND, nullptr), a);
  // The set's own reads zero what lies past the file's last byte.
  FS_BYTE* p = fntset_read(st, set(), 759720 - 2, 4);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p[2] | p[3], 0);
  FSS_free(st, p);
  // While lent, the font can't go and squeezing keeps the record.
  EXPECT_EQ(FSS_delete_font(st, name), ERR_FONT_IN_USE);
  EXPECT_EQ(squeeze_table_ptrs(st, set()), 0);
  EXPECT_EQ(FSS_free_table(st, a), 0);
  EXPECT_EQ(FSS_delete_font(st, name), 0);  // squeezes the record and block
  EXPECT_EQ(st->server->table_ptrs, nullptr);
}

TEST_F(TableAccess, AMemoryFontLendsInPlaceAndAskingReportsTheLength) {
  addFont(true);
  FS_ULONG len = 0, got = 0;
  FS_ULONG off = offsetOf(TAG_cmap, &len);
  FS_BYTE* p = FSS_get_table(st, TAG_cmap, TABLE_LEND, &got);
  EXPECT_EQ(p, image.data() + off);
  EXPECT_EQ(got, len);
  EXPECT_EQ(FSS_free_table(st, p), 0);
  // Asking gives the length and no loan.
  offsetOf(TAG_GSUB, &len);
  EXPECT_EQ(FSS_get_table(st, TAG_GSUB, TABLE_ASK, &got), (FS_BYTE*)1);
  EXPECT_EQ(got, len);
  EXPECT_EQ(st->ref_count, 0u);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
}

TEST_F(TableAccess, RefusalsWithTheirCodes) {
  EXPECT_EQ(FSS_get_table(st, TAG_head, TABLE_LEND, nullptr), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_NO_CURRENT_LFNT);
  addFont();
  LFNT* lfnt = set()->metric_font;
  // (font flags, type, tag, mode, result, error): a missing table in either
  // mode; a mode that isn't one (no error); the compact glyph formats have
  // no standard `glyf`, yet may be asked for `hmtx`; a type without a scaler.
  FS_BYTE* const kAsked = (FS_BYTE*)1;
  const struct { FS_ULONG flags; FS_BYTE type; FS_ULONG tag; int mode; FS_BYTE* result;
                 FS_ULONG error; } rows[] = {
      {0, FNT_TYPE_TTF, TAG_zzzz, TABLE_ASK, nullptr, ERR_TABLE_NOT_FOUND},
      {0, FNT_TYPE_TTF, TAG_zzzz, TABLE_LEND, nullptr, ERR_TABLE_NOT_FOUND},
      {0, FNT_TYPE_TTF, TAG_head, 3, nullptr, 0},
      {FONTFLAG_CCC, FNT_TYPE_TTF, TAG_glyf, TABLE_LEND, nullptr, ERR_TABLE_NOT_STANDARD},
      {FONTFLAG_CCC, FNT_TYPE_TTF, TAG_hmtx, TABLE_ASK, kAsked, 0},
      {0, FNT_TYPE_NO_SCALER, TAG_head, TABLE_LEND, nullptr, ERR_FORMAT_NOT_SUPPORTED},
  };
  FS_ULONG flags = lfnt->fontflags;
  for (const auto& r : rows) {
    lfnt->fontflags = flags | r.flags;
    lfnt->fnt_type = r.type;
    st->error = 0;
    EXPECT_EQ(FSS_get_table(st, r.tag, r.mode, nullptr), r.result) << r.tag;
    EXPECT_EQ(st->error, r.error) << r.tag;
  }
  lfnt->fontflags = flags;
  lfnt->fnt_type = FNT_TYPE_TTF;
  FS_BYTE stray[4];
  EXPECT_EQ(FSS_free_table(st, stray), ERR_BAD_SCRATCH_ADDR);
  EXPECT_EQ(FSS_free_table(st, nullptr), 0);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
}

}  // namespace
