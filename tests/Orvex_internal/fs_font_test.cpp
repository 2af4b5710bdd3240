// Font objects and font loading on real Debian fonts: adding fonts by path
// and from memory, sharing between clients, private names, setting and
// deleting, and the refusals of files that aren't usable fonts.
#include <gtest/gtest.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_typeset.h"
#include "engine_fixture.h"
#include "support/test_support.h"

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const char kDejaVuSerif[] = "/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf";
const FS_ULONG kHeap = 16 * 1024 * 1024;

std::vector<FS_BYTE> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<FS_BYTE>(std::istreambuf_iterator<char>(in),
                              std::istreambuf_iterator<char>());
}

int countSets(FS_STATE* st) {
  int n = 0;
  for (FNTSET* s = st->server->font_sets; s; s = s->next) n++;
  return n;
}

int countLfnts(FS_STATE* st) {
  int n = 0;
  for (LFNT* l = st->server->loaded_fonts; l; l = l->next) n++;
  return n;
}

TTF* ttfOf(FNTSET* set) { return (TTF*)set->cfnt[0].lfnt->fnt; }

class FontLoad : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(engine.started);
    st = &engine.st;
    start = engine.used();
  }
  enginetest::Engine engine{kHeap};
  FS_STATE* st = nullptr;
  FS_ULONG start = 0;
};

TEST_F(FontLoad, LoadingByPathNamesTheFontAfterItsFullName) {
  char name[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  EXPECT_STREQ(name, "DejaVu Sans");
  ASSERT_EQ(countSets(st), 1);
  FNTSET* set = st->server->font_sets;
  EXPECT_EQ(set->count_added, 1u);
  EXPECT_EQ(set->num_fonts, 1);
  EXPECT_EQ(set->metric_font, set->cfnt[0].lfnt);
  EXPECT_EQ(set->cfnt[0].lfnt->fntset_refs, 1u);
  EXPECT_EQ(ttfOf(set)->head->unitsPerEm, 2048);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(countSets(st), 0);
  EXPECT_EQ(countLfnts(st), 0);
  EXPECT_EQ(engine.used(), start);
}

TEST_F(FontLoad, SettingAFontMakesItCurrent) {
  char name[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  ASSERT_EQ(FSS_set_font(st, name), 0);
  FNTSET* set = st->server->font_sets;
  EXPECT_EQ(st->cur_typeset.fntset, set);
  EXPECT_EQ(set->ref_count, 1u);
  ASSERT_EQ(st->cur_typeset.capacity, 1);
  EXPECT_EQ(st->cur_typeset.tfntarray[0].cfnt, &set->cfnt[0]);
  EXPECT_EQ(FSS_set_font(st, "no such font"), ERR_FONT_NOT_FOUND);
  EXPECT_EQ(st->cur_typeset.fntset, set);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(st->cur_typeset.fntset, nullptr);
  EXPECT_EQ(countSets(st), 0);
}

TEST_F(FontLoad, MemoryFontLoads) {
  std::vector<FS_BYTE> image = readFile(kDejaVuSerif);
  ASSERT_FALSE(image.empty());
  char name[64];
  ASSERT_EQ(FSS_load_font(st, nullptr, image.data(), 0, sizeof name, name), 0);
  EXPECT_STREQ(name, "DejaVu Serif");
  EXPECT_EQ(st->server->font_sets->path, nullptr);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(engine.used(), start);
}

}  // namespace
