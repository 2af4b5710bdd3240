// Table access on real fonts: loans shared and counted, lent in place from a
// memory image and as blocks from a file, released down to count 0 without
// being freed, squeezed when the font goes, and the refusals with their
// codes.
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_tableptr.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_typeset.h"
#include "engine_fixture.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

using sfnt::Bytes;

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
constexpr FS_ULONG TAG_GSUB = FS_MAKE_TAG('G', 'S', 'U', 'B');
constexpr FS_ULONG TAG_zzzz = FS_MAKE_TAG('z', 'z', 'z', 'z');

int records(FS_STATE* st) {
  int n = 0;
  for (TABLE_PTR_REC* r = st->server->table_ptrs; r; r = r->next) n++;
  return n;
}

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
  void addFont(const char* path, const FS_BYTE* memptr = nullptr) {
    ASSERT_EQ(FSS_load_font(st, memptr ? nullptr : path, (FS_BYTE*)memptr, 0,
                            sizeof name, name),
              0);
    ASSERT_EQ(FSS_set_font(st, name), 0);
  }
  FNTSET* set() { return st->cur_typeset.fntset; }
  TTF* ttf() { return (TTF*)set()->metric_font->fnt; }

  enginetest::Engine engine{64u << 20};
  FS_STATE* st = nullptr;
  FS_ULONG baseline = 0;
  FILECHAR name[64] = {0};
};

TEST_F(TableAccess, TwoLoansShareOneBlockAndNeedTwoReleases) {
  addFont(kDejaVuSans);
  FS_ULONG len = 0;
  FS_BYTE* a = FSS_get_table(st, TAG_head, TABLE_LEND, &len);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(len, 54u);
  EXPECT_EQ(get_u32(a + 12), TTF_HEAD_MAGIC);  // file byte order
  FS_BYTE* b = FSS_get_table(st, TAG_head, TABLE_LEND, nullptr);
  EXPECT_EQ(a, b);
  EXPECT_EQ(records(st), 1);
  EXPECT_EQ(st->server->table_ptrs->ref_count, 2u);
  EXPECT_TRUE(st->server->table_ptrs->external);  // a file font's copy
  EXPECT_EQ(st->ref_count, 2u);
  EXPECT_EQ(FSS_free_table(st, a), 0);
  EXPECT_EQ(FSS_free_table(st, b), 0);
  EXPECT_EQ(st->ref_count, 0u);
  // Released is not freed: the record waits at count 0.
  EXPECT_EQ(records(st), 1);
  EXPECT_EQ(FSS_free_table(st, a), ERR_TABLE_PTR_COUNT);
  EXPECT_EQ(st->server->table_ptrs->ref_count, 0u);
  // A new loan takes the cached block again.
  EXPECT_EQ(FSS_get_table(st, TAG_head, TABLE_LEND, nullptr), a);
  EXPECT_EQ(FSS_free_table(st, a), 0);
  // Deleting the font squeezes the record and its block.
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(records(st), 0);
}

TEST_F(TableAccess, AMemoryFontLendsInPlace) {
  Bytes font = sfnt::asBytes(testsupport::readBytes(kDejaVuSans));
  addFont(nullptr, font.data());
  FS_ULONG off = 0, len = 0, got = 0;
  ASSERT_TRUE(get_ttf_table_info(st, ttf(), TAG_cmap, &off, &len));
  FS_BYTE* p = FSS_get_table(st, TAG_cmap, TABLE_LEND, &got);
  EXPECT_EQ(p, font.data() + off);
  EXPECT_EQ(got, len);
  EXPECT_FALSE(st->server->table_ptrs->external);
  EXPECT_EQ(FSS_free_table(st, p), 0);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(records(st), 0);
}

TEST_F(TableAccess, AskingReportsTheLengthWithoutALoan) {
  addFont(kDejaVuSans);
  FS_ULONG off = 0, len = 0, got = 0;
  ASSERT_TRUE(get_ttf_table_info(st, ttf(), TAG_GSUB, &off, &len));
  EXPECT_EQ(FSS_get_table(st, TAG_GSUB, TABLE_ASK, &got), (FS_BYTE*)1);
  EXPECT_EQ(got, len);
  EXPECT_EQ(records(st), 0);
  EXPECT_EQ(st->ref_count, 0u);
  EXPECT_EQ(FSS_get_table(st, TAG_zzzz, TABLE_ASK, &got), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_TABLE_NOT_FOUND);
  EXPECT_EQ(FSS_get_table(st, TAG_zzzz, TABLE_LEND, &got), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_TABLE_NOT_FOUND);
  st->error = 0;
  EXPECT_EQ(FSS_get_table(st, TAG_head, 3, &got), nullptr);  // no such mode
  EXPECT_EQ(st->error, 0u);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
}

TEST_F(TableAccess, RefusalsWithTheirCodes) {
  EXPECT_EQ(FSS_get_table(st, TAG_head, TABLE_LEND, nullptr), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_NO_CURRENT_LFNT);
  addFont(kDejaVuSans);
  FS_BYTE stray[4];
  EXPECT_EQ(FSS_free_table(st, stray), ERR_BAD_SCRATCH_ADDR);
  EXPECT_EQ(FSS_free_table(st, nullptr), 0);
  // The compact glyph formats have no standard `glyf`, `loca`, `hmtx`.
  LFNT* lfnt = set()->metric_font;
  lfnt->fontflags |= FONTFLAG_CCC;
  EXPECT_EQ(FSS_get_table(st, TAG_glyf, TABLE_LEND, nullptr), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_TABLE_NOT_STANDARD);
  EXPECT_EQ(FSS_get_table(st, TAG_hmtx, TABLE_ASK, nullptr), (FS_BYTE*)1);
  lfnt->fontflags &= ~FONTFLAG_CCC;
  lfnt->fnt_type = FNT_TYPE_NO_SCALER;
  EXPECT_EQ(FSS_get_table(st, TAG_head, TABLE_LEND, nullptr), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_FORMAT_NOT_SUPPORTED);
  lfnt->fnt_type = FNT_TYPE_TTF;
  EXPECT_EQ(records(st), 0);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
}

TEST_F(TableAccess, AnUnreleasedTableKeepsTheFontFromGoing) {
  addFont(kDejaVuSans);
  FS_BYTE* p = FSS_get_table(st, TAG_OS2, TABLE_LEND, nullptr);
  ASSERT_NE(p, nullptr);
  EXPECT_TRUE(any_used_fntset_or_unshared_lfnt_table_ptrs(st, set()));
  EXPECT_TRUE(any_used_lfnt_table_ptrs(st, set(), set()->metric_font));
  EXPECT_EQ(FSS_delete_font(st, name), ERR_FONT_IN_USE);
  EXPECT_EQ(squeeze_table_ptrs(st, set()), 0);  // held: stays
  EXPECT_EQ(FSS_free_table(st, p), 0);
  EXPECT_FALSE(any_used_lfnt_table_ptrs(st, set(), set()->metric_font));
  EXPECT_EQ(FSS_delete_font(st, name), 0);
}

TEST_F(TableAccess, FontSetTablesReportFixedLengths) {
  // A linked font stores its own `head`; here the set of a memory font is
  // told that its `head` lies at the file's `head`.
  Bytes font = sfnt::asBytes(testsupport::readBytes(kDejaVuSans));
  addFont(nullptr, font.data());
  FS_ULONG off = 0;
  ASSERT_TRUE(get_ttf_table_info(st, ttf(), TAG_head, &off, nullptr));
  set()->head_offset = off;
  FS_ULONG len = 0;
  EXPECT_EQ(FSS_get_table(st, TAG_head, TABLE_ASK, &len), (FS_BYTE*)1);
  EXPECT_EQ(len, 56u);  // fixed, though the table has 54 bytes
  FS_BYTE* p = FSS_get_table(st, TAG_head, TABLE_LEND, &len);
  EXPECT_EQ(p, font.data() + off);
  EXPECT_EQ(st->server->table_ptrs->lfnt, (LFNT*)set());
  FS_BOOLEAN setLevel = 0;
  EXPECT_EQ(rec_get_source_lfnt(st->server->table_ptrs, set(), &setLevel),
            (LFNT*)set());
  EXPECT_EQ(setLevel, 1);
  EXPECT_TRUE(any_used_fntset_or_unshared_lfnt_table_ptrs(st, set()));
  EXPECT_EQ(FSS_free_table(st, p), 0);
  EXPECT_EQ(squeeze_table_ptrs(st, set()), 1);
  set()->head_offset = 0;
  EXPECT_EQ(FSS_delete_font(st, name), 0);
}

TEST_F(TableAccess, FontSetReadOpensItsFileForOneRead) {
  addFont(kDejaVuSans);
  FNTSET* s = set();
  FS_BYTE* p = fntset_read(st, s, 0, 4);  // the sfnt version
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(get_u32(p), 0x00010000u);
  FSS_free(st, p);
  FS_ULONG size = 0;
  FILE* f = fopen(kDejaVuSans, "rb");
  fseek(f, 0, SEEK_END);
  size = (FS_ULONG)ftell(f);
  fclose(f);
  p = fntset_read(st, s, size - 2, 4);  // beyond the end: zeros
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p[2], 0);
  EXPECT_EQ(p[3], 0);
  FSS_free(st, p);
  EXPECT_EQ(fntset_read(st, s, 0, 0), nullptr);
  EXPECT_EQ(st->error, 0u);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
}

}  // namespace
