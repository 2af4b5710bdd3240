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
#include "support/sfnt_builder.h"
#include "support/test_support.h"

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const char kDejaVuSerif[] = "/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf";
const char kDejaVuBold[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans-Bold.ttf";
const char kDejaVuOblique[] =
    "/usr/share/fonts/truetype/dejavu/DejaVuSans-Oblique.ttf";
const char kDejaVuMono[] = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf";
const char kFreeSerifBoldItalic[] =
    "/usr/share/fonts/truetype/freefont/FreeSerifBoldItalic.ttf";
const FS_ULONG kHeap = 16 * 1024 * 1024;

std::vector<FS_BYTE> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<FS_BYTE>(std::istreambuf_iterator<char>(in),
                              std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const std::vector<FS_BYTE>& bytes) {
  std::ofstream out(path, std::ios::binary);
  out.write((const char*)bytes.data(), (std::streamsize)bytes.size());
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

// The set a client knows under `name`.
FNTSET* setNamed(FS_STATE* st, const char* name) {
  for (ADDEDFNT* a = st->name_map; a; a = a->next)
    if (strcmp(a->name, name) == 0) return a->set;
  return nullptr;
}

ADDEDFNT* addedNamed(FS_STATE* st, const char* name) {
  for (ADDEDFNT* a = st->name_map; a; a = a->next)
    if (strcmp(a->name, name) == 0) return a;
  return nullptr;
}

/* ---- Sharing between clients ---- */

TEST_F(FontLoad, TwoClientsShareOneSetAndOneLoadedFontWithPrivateNames) {
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  FS_ULONG withChild = engine.used();

  char rootName[64], childName[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof rootName, rootName), 0);
  ASSERT_EQ(FSS_add_font(child, "body", kDejaVuSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_load_font(child, kDejaVuSans, nullptr, 0, sizeof childName, childName), 0);
  EXPECT_STREQ(rootName, "DejaVu Sans");
  EXPECT_STREQ(childName, "body");  // the child's own name, counted twice
  EXPECT_EQ(addedNamed(child, "body")->add_count, 2u);

  ASSERT_EQ(countSets(st), 1);
  ASSERT_EQ(countLfnts(st), 1);
  FNTSET* set = st->server->font_sets;
  LFNT* lfnt = st->server->loaded_fonts;
  EXPECT_EQ(setNamed(st, "DejaVu Sans"), set);
  EXPECT_EQ(setNamed(child, "body"), set);
  EXPECT_EQ(set->count_added, 2u);  // one record per client
  EXPECT_EQ(lfnt->fntset_refs, 1u);
  EXPECT_EQ(set->cfnt[0].lfnt, lfnt);

  // Names are private: the root has no "body", the child no "DejaVu Sans"
  // of its own (it may still set its parent's font by that name).
  EXPECT_EQ(FSS_set_font(st, "body"), ERR_FONT_NOT_FOUND);
  EXPECT_EQ(FSS_delete_font(child, "DejaVu Sans"), ERR_FONT_NOT_FOUND);
  ASSERT_EQ(FSS_set_font(st, "DejaVu Sans"), 0);
  ASSERT_EQ(FSS_set_font(child, "body"), 0);
  EXPECT_EQ(set->ref_count, 2u);

  // The child gives its font back: two adds, two deletes.
  EXPECT_EQ(FSS_delete_font(child, "body"), 0);
  EXPECT_EQ(child->cur_typeset.fntset, set);  // one add remains
  EXPECT_EQ(FSS_delete_font(child, "body"), 0);
  EXPECT_EQ(child->cur_typeset.fntset, nullptr);
  EXPECT_EQ(FSS_delete_font(child, "body"), ERR_FONT_NOT_FOUND);

  // The root's font still works: same set, its data loaded, current.
  ASSERT_EQ(countSets(st), 1);
  EXPECT_EQ(set->count_added, 1u);
  EXPECT_EQ(set->ref_count, 1u);
  EXPECT_EQ(st->cur_typeset.fntset, set);
  ASSERT_NE(lfnt->fnt, nullptr);
  EXPECT_EQ(((TTF*)lfnt->fnt)->maxp->numGlyphs, 6253);
  EXPECT_EQ(FSS_set_font(child, "DejaVu Sans"), 0);  // through the parent
  EXPECT_EQ(set->ref_count, 2u);

  EXPECT_EQ(FSS_delete_font(st, "DejaVu Sans"), 0);
  // The child still has it current: the set stays, without names.
  ASSERT_EQ(countSets(st), 1);
  EXPECT_EQ(set->count_added, 0u);
  EXPECT_EQ(set->ref_count, 1u);
  EXPECT_EQ(FSS_end_client(child), 0u);
  EXPECT_EQ(set->ref_count, 0u);
  // Nobody holds it: the ladder's first step takes it, with its font.
  EXPECT_EQ(get_some_back(st), 1);
  EXPECT_EQ(countSets(st), 0);
  EXPECT_EQ(countLfnts(st), 0);
  // Left over: the root's typeset array, kept for reuse until the client
  // ends: one 24-byte TFNT and its 8-byte header. The child's block went.
  EXPECT_EQ(engine.used(), withChild - (sizeof(FS_STATE) + 8) + 32);
}

TEST_F(FontLoad, HeapReturnsToItsStartWhenEveryFontIsDeleted) {
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  FS_ULONG before = engine.used();
  char a[64], b[64], c[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof a, a), 0);
  ASSERT_EQ(FSS_load_font(st, kDejaVuSerif, nullptr, 0, sizeof b, b), 0);
  ASSERT_EQ(FSS_load_font(child, kDejaVuSans, nullptr, 0, sizeof c, c), 0);
  ASSERT_EQ(FSS_load_font(child, kDejaVuSans, nullptr, 0, sizeof c, c), 0);
  EXPECT_EQ(countSets(st), 2);
  EXPECT_EQ(countLfnts(st), 2);
  EXPECT_GT(engine.used(), before);

  EXPECT_EQ(FSS_delete_font(st, a), 0);
  EXPECT_EQ(countSets(st), 2);  // the child still has DejaVu Sans
  EXPECT_EQ(FSS_delete_font(child, c), 0);
  EXPECT_EQ(FSS_delete_font(child, c), 0);
  EXPECT_EQ(FSS_delete_font(st, b), 0);
  EXPECT_EQ(countSets(st), 0);
  EXPECT_EQ(countLfnts(st), 0);
  EXPECT_EQ(st->name_map, nullptr);
  EXPECT_EQ(child->name_map, nullptr);
  EXPECT_EQ(engine.used(), before);
  EXPECT_EQ(FSS_end_client(child), 0u);
  EXPECT_EQ(engine.used(), start);
}

TEST_F(FontLoad, EndingAClientTakesBackAllItsAdds) {
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  char a[64];
  ASSERT_EQ(FSS_add_font(child, "x", kDejaVuSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(child, nullptr, kDejaVuSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_load_font(child, kDejaVuSerif, nullptr, 0, sizeof a, a), 0);
  ASSERT_EQ(FSS_set_font(child, "x"), 0);
  EXPECT_EQ(FSS_end_client(child), 0u);
  // Its names are deleted, the current one's hold first: nothing stays.
  EXPECT_EQ(countSets(st), 0);
  EXPECT_EQ(countLfnts(st), 0);
  EXPECT_EQ(engine.used(), start);
}

/* ---- Memory and path ---- */

TEST_F(FontLoad, MemoryAndPathGiveTheSameFontData) {
  std::vector<FS_BYTE> image = readFile(kDejaVuSans);
  ASSERT_EQ(image.size(), 759720u);
  char fromPath[64], fromMemory[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof fromPath, fromPath), 0);
  ASSERT_EQ(FSS_load_font(st, nullptr, image.data(), 0, sizeof fromMemory, fromMemory), 0);
  // A path on one side only is another file: two sets, two loaded fonts,
  // and the same full name made unique on this client.
  EXPECT_STREQ(fromPath, "DejaVu Sans");
  EXPECT_STREQ(fromMemory, "A DejaVu Sans");
  ASSERT_EQ(countSets(st), 2);
  FNTSET* p = setNamed(st, fromPath);
  FNTSET* m = setNamed(st, fromMemory);
  EXPECT_NE(p->cfnt[0].lfnt, m->cfnt[0].lfnt);
  EXPECT_EQ(m->cfnt[0].lfnt->memptr, image.data());
  EXPECT_EQ(m->cfnt[0].lfnt->path, nullptr);
  EXPECT_STREQ(p->cfnt[0].lfnt->path, kDejaVuSans);

  // Values read off the file by hand (head at its directory offset:
  // unitsPerEm at 18, bbox at 36; hhea ascender and descender at 4).
  for (FNTSET* set : {p, m}) {
    TTF* ttf = ttfOf(set);
    EXPECT_EQ(ttf->head->unitsPerEm, 2048);
    EXPECT_EQ(ttf->maxp->numGlyphs, 6253);
    EXPECT_EQ(ttf->head->xMin, -2090);
    EXPECT_EQ(ttf->head->yMin, -948);
    EXPECT_EQ(ttf->head->xMax, 3673);
    EXPECT_EQ(ttf->head->yMax, 2524);
    EXPECT_EQ(ttf->hhea->yAscender, 1901);
    EXPECT_EQ(ttf->hhea->yDescender, -483);
    EXPECT_EQ(set->cfnt[0].lfnt->fnt_type, FNT_TYPE_TTF);
  }
  EXPECT_EQ(FSS_delete_font(st, fromMemory), 0);
  EXPECT_EQ(FSS_delete_font(st, fromPath), 0);
  EXPECT_EQ(engine.used(), start);
}

TEST_F(FontLoad, ChecksumSumsTheFirst200WordsInHostOrder) {
  std::vector<FS_BYTE> bytes(500, 0);
  bytes[0] = 1;      // word 0 = 0x0001 on a little-endian host
  bytes[3] = 2;      // word 1 = 0x0200
  bytes[399] = 1;    // word 199 = 0x0100
  bytes[400] = 0xFF; // word 200: beyond the 200
  EXPECT_EQ(FNTSET_checksum(bytes.data(), 0), 0x0001u + 0x0200u + 0x0100u);
  EXPECT_EQ(FNTSET_checksum(bytes.data(), 4), 0x0201u);  // a short image
  EXPECT_EQ(FNTSET_checksum(nullptr, 0), 0u);
}

TEST_F(FontLoad, AFontInsideALargerFileOrImageLoadsAtItsOffset) {
  testsupport::TempDir dir;
  std::vector<FS_BYTE> font = readFile(kDejaVuSerif);
  std::vector<FS_BYTE> wrapped(1000, 0xAB);
  wrapped.insert(wrapped.end(), font.begin(), font.end());
  std::string path = dir.file("wrapped.bin");
  writeFile(path, wrapped);
  char inFile[64], inMemory[64];
  ASSERT_EQ(FSS_load_font_with_offset(st, path.c_str(), nullptr, 0, 1000,
                                      (FS_ULONG)font.size(), sizeof inFile, inFile), 0);
  ASSERT_EQ(FSS_load_font_with_offset(st, nullptr, wrapped.data(), 0, 1000,
                                      (FS_ULONG)font.size(), sizeof inMemory, inMemory), 0);
  EXPECT_STREQ(inFile, "DejaVu Serif");
  EXPECT_STREQ(inMemory, "A DejaVu Serif");
  for (const char* n : {inFile, inMemory}) {
    TTF* ttf = ttfOf(setNamed(st, n));
    EXPECT_EQ(ttf->maxp->numGlyphs, 3528);
    EXPECT_EQ(ttf->head->xMax, 4312);
    EXPECT_EQ(ttf->hhea->yAscender, 1901);
  }
  // The same file at offset 0 is another font (and no font at all).
  char whole[64];
  EXPECT_EQ(FSS_load_font(st, path.c_str(), nullptr, 0, sizeof whole, whole),
            ERR_NOT_A_TTF);
  EXPECT_EQ(countSets(st), 2);
  EXPECT_EQ(FSS_delete_font(st, inFile), 0);
  EXPECT_EQ(FSS_delete_font(st, inMemory), 0);
  EXPECT_EQ(engine.used(), start);
}

/* ---- Refusals ---- */

TEST_F(FontLoad, UnusableFilesAreRefusedAndTheClientStaysUsable) {
  testsupport::TempDir dir;
  std::vector<FS_BYTE> font = readFile(kDejaVuSans);
  std::string text = dir.file("notes.txt");
  writeFile(text, sfnt::asBytes("Hello, this is not a font at all.\n"));
  std::string cut = dir.file("cut.ttf");
  writeFile(cut, std::vector<FS_BYTE>(font.begin(), font.begin() + 2000));
  std::string tiny = dir.file("tiny.ttf");
  writeFile(tiny, std::vector<FS_BYTE>(font.begin(), font.begin() + 2));
  std::string empty = dir.file("empty.ttf");
  writeFile(empty, {});
  std::string headerOnly = dir.file("header.ttf");
  writeFile(headerOnly, std::vector<FS_BYTE>(font.begin(), font.begin() + 12));

  struct Case {
    std::string path;
    FS_LONG error;
  } cases[] = {
      {dir.file("absent.ttf"), ERR_FILE_OPEN},
      {dir.path(), ERR_FILE_READ},  // a folder opens but can't be read
      {text, ERR_NOT_A_TTF},
      {cut, ERR_TABLE_DIR},          // tables lie beyond the 2000 bytes
      {tiny, ERR_FILE_READ},         // not even the 3 bytes of the type
      {empty, ERR_FILE_READ},
      // The 22 directory entries lie beyond the 12 bytes and read as zeros:
      // no table is found.
      {headerOnly, ERR_TABLE_NOT_FOUND},
  };
  char name[64];
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    strcpy(name, "untouched");
    EXPECT_EQ(FSS_load_font(st, c.path.c_str(), nullptr, 0, sizeof name, name),
              c.error);
    EXPECT_EQ(st->error, (FS_ULONG)c.error);
    EXPECT_STREQ(name, "untouched");
    EXPECT_EQ(FSS_add_font(st, "named", c.path.c_str(), nullptr, 0), c.error);
    EXPECT_EQ(countSets(st), 0);
    EXPECT_EQ(countLfnts(st), 0);
    EXPECT_EQ(st->name_map, nullptr);
    EXPECT_EQ(engine.used(), start);
  }
  // The truncated font from memory with its true length is refused too.
  EXPECT_EQ(FSS_load_font_with_offset(st, nullptr, font.data(), 0, 0, 2000,
                                      sizeof name, name),
            ERR_TABLE_DIR);
  // Neither path nor memory.
  EXPECT_EQ(FSS_load_font(st, nullptr, nullptr, 0, sizeof name, name),
            ERR_FONT_NOT_FOUND);
  EXPECT_EQ(FSS_load_font(st, "", nullptr, 0, sizeof name, name),
            ERR_FONT_NOT_FOUND);
  EXPECT_EQ(engine.used(), start);

  // Still usable.
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  ASSERT_EQ(FSS_set_font(st, name), 0);
  EXPECT_EQ(st->error, 0u);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
}

TEST_F(FontLoad, TypesWithoutAScalerAreRefusedAtAdding) {
  testsupport::TempDir dir;
  std::string p = dir.file("p.fnt");
  writeFile(p, sfnt::asBytes("PFR0 and the rest of a font of another kind"));
  std::string ltt = dir.file("l.ltt");
  writeFile(ltt, sfnt::asBytes("LTT linked font header would follow"));
  char name[64];
  EXPECT_EQ(FSS_load_font(st, p.c_str(), nullptr, 0, sizeof name, name),
            ERR_FONT_TYPE_UNSUPPORTED);
  EXPECT_EQ(FSS_load_font(st, ltt.c_str(), nullptr, 0, sizeof name, name),
            ERR_LINK_INFO);
  EXPECT_EQ(FSS_get_link_info(st, ltt.c_str(), nullptr, nullptr), ERR_LINK_INFO);
  EXPECT_EQ(FSS_get_link_info(st, kDejaVuSans, nullptr, nullptr), ERR_LINK_INFO);
  EXPECT_EQ(countSets(st), 0);
  EXPECT_EQ(countLfnts(st), 0);
  EXPECT_EQ(engine.used(), start);
}

TEST_F(FontLoad, FileTypeComesFromTheFirstThreeBytes) {
  const FS_BYTE ttf[] = {0, 1, 0, 0}, otto[] = {'O', 'T', 'T', 'O'},
                ltt[] = {'L', 'T', 'T', 0}, pfr[] = {'P', 'F', 'R', '0'},
                ttcf[] = {'t', 't', 'c', 'f'};
  EXPECT_EQ(fontfile_type(st, nullptr, ttf, 0), FNT_TYPE_TTF);
  EXPECT_EQ(fontfile_type(st, nullptr, otto, 0), FNT_TYPE_CFF);
  EXPECT_EQ(fontfile_type(st, nullptr, ltt, 0), FNT_TYPE_LINKED);
  EXPECT_EQ(fontfile_type(st, nullptr, pfr, 0), FNT_TYPE_NO_SCALER);
  EXPECT_EQ(fontfile_type(st, nullptr, ttcf, 0), FNT_TYPE_TTF);  // until loaded
  EXPECT_EQ(fontfile_type(st, nullptr, otto, 1), FNT_TYPE_TTF);  // "TTO"
  EXPECT_EQ(fontfile_type(st, "/nonexistent/font.ttf", nullptr, 0),
            FNT_TYPE_UNREADABLE);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_FILE_OPEN);
}

TEST_F(FontLoad, AnExhaustedBudgetRefusesTheFontAndLeavesNothing) {
  // Room for the scratch buffer and a few small records, not for a font's
  // resident tables.
  enginetest::Engine small(8000);
  ASSERT_TRUE(small.started);
  FS_ULONG used = small.used();
  char name[64];
  EXPECT_EQ(FSS_load_font(&small.st, kDejaVuSans, nullptr, 0, sizeof name, name),
            ERR_MALLOC_FAIL);
  EXPECT_EQ(small.server()->font_sets, nullptr);
  EXPECT_EQ(small.server()->loaded_fonts, nullptr);
  EXPECT_EQ(small.used(), used);
}

/* ---- Names ---- */

TEST_F(FontLoad, AddingTwiceWithoutANameCountsTwoAddsOnOneRecord) {
  ASSERT_EQ(FSS_add_font(st, nullptr, kDejaVuSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(st, nullptr, kDejaVuSans, nullptr, 0), 0);
  ASSERT_NE(st->name_map, nullptr);
  EXPECT_EQ(st->name_map->next, nullptr);
  EXPECT_STREQ(st->name_map->name, "DejaVu Sans");
  EXPECT_EQ(st->name_map->add_count, 2u);
  EXPECT_EQ(st->name_map->set->count_added, 1u);  // one record
  EXPECT_EQ(FSS_delete_font(st, "DejaVu Sans"), 0);
  EXPECT_EQ(countSets(st), 1);
  EXPECT_EQ(FSS_delete_font(st, "DejaVu Sans"), 0);
  EXPECT_EQ(countSets(st), 0);
}

TEST_F(FontLoad, ASecondNameOrATakenNameIsRefused) {
  ASSERT_EQ(FSS_add_font(st, "text", kDejaVuSans, nullptr, 0), 0);
  EXPECT_EQ(FSS_add_font(st, "other", kDejaVuSans, nullptr, 0),
            ERR_FONT_NAME_IN_USE);
  EXPECT_EQ(FSS_add_font(st, "text", kDejaVuSans, nullptr, 0), 0);  // again
  EXPECT_EQ(addedNamed(st, "text")->add_count, 2u);
  EXPECT_EQ(FSS_add_font(st, "text", kDejaVuSerif, nullptr, 0),
            ERR_FONT_NAME_NOT_UNIQUE);
  EXPECT_EQ(FSS_add_font(st, "", kDejaVuSerif, nullptr, 0), ERR_BAD_ARGUMENT);
  // The refused font's set, which nobody holds, is gone at once.
  EXPECT_EQ(countSets(st), 1);
  EXPECT_EQ(countLfnts(st), 1);
  // Another client may use the name for another font.
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(FSS_add_font(child, "text", kDejaVuSerif, nullptr, 0), 0);
  EXPECT_NE(setNamed(child, "text"), setNamed(st, "text"));
  EXPECT_EQ(FSS_end_client(child), 0u);
  EXPECT_EQ(countSets(st), 1);
}

TEST_F(FontLoad, LoadingTwiceGivesTheSameNameAndASmallBufferGives310) {
  char a[64], b[64], small[11];
  ASSERT_EQ(FSS_load_font(st, kDejaVuMono, nullptr, 0, sizeof a, a), 0);
  ASSERT_EQ(FSS_load_font(st, kDejaVuMono, nullptr, 0, sizeof b, b), 0);
  EXPECT_STREQ(a, "DejaVu Sans Mono");
  EXPECT_STREQ(b, a);
  EXPECT_EQ(addedNamed(st, a)->add_count, 2u);
  // "DejaVu Sans Mono" needs 17 bytes: an existing name isn't cut.
  EXPECT_EQ(FSS_load_font(st, kDejaVuMono, nullptr, 0, sizeof small, small),
            ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(addedNamed(st, a)->add_count, 2u);
  // A new font's name is cut to the buffer: 10 characters and the NUL.
  ASSERT_EQ(FSS_load_font(st, kDejaVuSerif, nullptr, 0, sizeof small, small), 0);
  EXPECT_STREQ(small, "DejaVu Ser");
  EXPECT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, 1, small),
            ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(countSets(st), 2);  // the refused one went at once
}

TEST_F(FontLoad, UniqueNamesCountInBase52LeastSignificantFirst) {
  char name[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  FNTSET* set = st->server->font_sets;
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, sizeof name), 0);
  EXPECT_STREQ(name, "Seed");
  // Taking the names one after the other: i = 0 is "A", 25 "Z", 26 "a",
  // 51 "z", 52 = 0 + 1 * 52 is "AB" (least significant digit first).
  ASSERT_EQ(FS_STATE_add_named_FNTSET(st, "Seed", set), 0);
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, sizeof name), 0);
  EXPECT_STREQ(name, "A Seed");
  for (int i = 0; i < 52; i++) {
    ASSERT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, sizeof name), 0);
    if (i == 25) {
      EXPECT_STREQ(name, "Z Seed");
    } else if (i == 26) {
      EXPECT_STREQ(name, "a Seed");
    } else if (i == 51) {
      EXPECT_STREQ(name, "z Seed");
    }
    ASSERT_EQ(FS_STATE_add_named_FNTSET(st, name, set), 0);
  }
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, sizeof name), 0);
  EXPECT_STREQ(name, "AB Seed");
  // Cut to a buffer of 4: the seed "Seed" becomes "See", which is free.
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, 4), 0);
  EXPECT_STREQ(name, "See");
  // With "Se" taken in a buffer of 3: "A" and a blank leave no room for
  // the seed... "A " is the whole name.
  ASSERT_EQ(FS_STATE_add_named_FNTSET(st, "Se", set), 0);
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, 3), 0);
  EXPECT_STREQ(name, "A ");
  // A buffer of 2 has room for a digit only, so no blank: "A".
  ASSERT_EQ(FS_STATE_add_named_FNTSET(st, "S", set), 0);
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, 2), 0);
  EXPECT_STREQ(name, "A");
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, 1),
            ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", nullptr, 10),
            ERR_FONT_NAME_TOO_LONG);
  // Every name goes with the client's end (FS_STATE_done deletes them).
}

TEST_F(FontLoad, FontNameTellsTheNameWithoutAdding) {
  char name[64];
  ASSERT_EQ(FSS_font_name(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  EXPECT_STREQ(name, "DejaVu Sans");
  EXPECT_EQ(st->name_map, nullptr);
  ASSERT_EQ(countSets(st), 1);  // kept on the server for the load
  FNTSET* set = st->server->font_sets;
  EXPECT_EQ(set->count_added, 0u);
  ASSERT_EQ(FSS_add_font(st, "mine", kDejaVuSans, nullptr, 0), 0);
  EXPECT_EQ(st->server->font_sets, set);  // reused
  ASSERT_EQ(FSS_font_name(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  EXPECT_STREQ(name, "mine");
  EXPECT_EQ(FSS_font_name(st, kDejaVuSans, nullptr, 0, 4, name),
            ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(FSS_delete_font(st, "mine"), 0);
  // An unused set is what the ladder takes first.
  ASSERT_EQ(FSS_font_name(st, kDejaVuSerif, nullptr, 0, sizeof name, name), 0);
  EXPECT_EQ(get_some_back(st), 1);
  EXPECT_EQ(countSets(st), 0);
  EXPECT_EQ(engine.used(), start);
}

/* ---- Setting and deleting ---- */

TEST_F(FontLoad, SettingTheCurrentFontAgainKeepsItsScaledFont) {
  char name[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  ASSERT_EQ(FSS_set_font(st, name), 0);
  LFNT* lfnt = st->server->loaded_fonts;
  SFNT* sfnt = enginetest::makeSfnt(st, lfnt);
  st->cur_sfnt = sfnt;
  st->cur_lfnt = lfnt;
  st->cur_typeset.tfntarray[0].sfnt = sfnt;
  sfnt->ref_count = 1;
  ASSERT_EQ(FSS_set_font(st, name), 0);
  EXPECT_EQ(st->cur_sfnt, sfnt);
  EXPECT_EQ(st->cur_lfnt, lfnt);
  EXPECT_EQ(st->cur_typeset.tfntarray[0].sfnt, sfnt);
  EXPECT_EQ(st->server->font_sets->ref_count, 1u);

  // Another font drops the hold on the scaled font, which stays on the
  // server for later use.
  char other[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSerif, nullptr, 0, sizeof other, other), 0);
  ASSERT_EQ(FSS_set_font(st, other), 0);
  EXPECT_EQ(st->cur_sfnt, nullptr);
  EXPECT_EQ(st->cur_lfnt, nullptr);
  EXPECT_EQ(sfnt->ref_count, 0u);
  EXPECT_EQ(st->server->scaled_fonts, sfnt);
  EXPECT_EQ(setNamed(st, name)->ref_count, 0u);
  EXPECT_EQ(setNamed(st, other)->ref_count, 1u);
  // Deleting a font takes its scaled fonts with it.
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(st->server->scaled_fonts, nullptr);
  EXPECT_EQ(FSS_delete_font(st, other), 0);
  EXPECT_EQ(engine.used(), start + 32);  // the kept one-entry typeset array
}

TEST_F(FontLoad, DeletingTheCurrentFontForgetsTheCmapChoice) {
  char name[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  ASSERT_EQ(FSS_set_font(st, name), 0);
  st->platform = 3;
  st->encoding = 1;
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(st->platform, 0xFFFF);
  EXPECT_EQ(st->encoding, 0xFFFF);
  EXPECT_EQ(st->cur_typeset.fntset, nullptr);
  EXPECT_EQ(FSS_set_font(st, name), ERR_FONT_NOT_FOUND);
}

TEST_F(FontLoad, AHeldGlyphOfAnUnsharedFontKeepsItFromGoing) {
  char name[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  LFNT* lfnt = st->server->loaded_fonts;
  SFNT* sfnt = enginetest::makeSfnt(st, lfnt);
  sfnt->active_count = 1;
  EXPECT_EQ(FSS_delete_font(st, name), ERR_FONT_IN_USE);
  EXPECT_NE(setNamed(st, name), nullptr);
  // Only the last add is checked: a second one comes off freely.
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(FSS_delete_font(st, name), ERR_FONT_IN_USE);
  sfnt->active_count = 0;
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(countSets(st), 0);
  EXPECT_EQ(st->server->scaled_fonts, nullptr);
  EXPECT_EQ(engine.used(), start);
}

TEST_F(FontLoad, AnUnheldSetSurvivesTheLadderWhileItIsBeingAdded) {
  // FSS_font_name leaves a set nobody holds; with the budget full, naming
  // it runs the ladder, whose first step would kill exactly that set. The
  // call holds it, so the ladder gives up the set's cmap cache instead.
  char name[64];
  ASSERT_EQ(FSS_font_name(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  FNTSET* set = st->server->font_sets;
  LFNT* lfnt = set->cfnt[0].lfnt;
  ASSERT_NE(lfnt->cmap_cache, nullptr);
  engine.fillBudget();
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof name, name), 0);
  EXPECT_EQ(st->server->font_sets, set);
  EXPECT_EQ(setNamed(st, "DejaVu Sans"), set);
  EXPECT_EQ(lfnt->cmap_cache, nullptr);
  EXPECT_EQ(set->ref_count, 0u);  // the hold was only for the call
  // The same for a typeset made on a set nobody holds.
  ASSERT_EQ(FSS_font_name(st, kDejaVuSerif, nullptr, 0, sizeof name, name), 0);
  engine.fillBudget();
  FNTSET* serif = st->server->font_sets;
  TYPESET ts = {};
  ASSERT_EQ(TYPESET_init(st, &ts, serif), 0);
  EXPECT_EQ(st->server->font_sets, serif);
  EXPECT_EQ(ts.tfntarray[0].cfnt, &serif->cfnt[0]);
  EXPECT_EQ(serif->ref_count, 1u);
  TYPESET_destroy(st, &ts);
  EXPECT_EQ(serif->ref_count, 0u);
  EXPECT_EQ(TYPESET_init(st, &ts, nullptr), ERR_NO_FNTSET);
}

/* ---- Collections ---- */

TEST_F(FontLoad, CollectionMembersAreFontsOfTheirOwn) {
  testsupport::TempDir dir;
  sfnt::Bytes sans = readFile(kDejaVuSans), serif = readFile(kDejaVuSerif);
  std::string path = dir.file("pair.ttc");
  writeFile(path, sfnt::buildCollection({sfnt::read(sans), sfnt::read(serif)}));
  char first[64], second[64], again[64];
  ASSERT_EQ(FSS_load_font(st, path.c_str(), nullptr, 0, sizeof first, first), 0);
  ASSERT_EQ(FSS_load_font(st, path.c_str(), nullptr, 1, sizeof second, second), 0);
  EXPECT_STREQ(first, "DejaVu Sans");
  EXPECT_STREQ(second, "DejaVu Serif");
  EXPECT_EQ(countSets(st), 2);
  EXPECT_EQ(countLfnts(st), 2);
  FNTSET* a = setNamed(st, first);
  FNTSET* b = setNamed(st, second);
  EXPECT_EQ(a->cfnt[0].lfnt->fnt_type, FNT_TYPE_TTC);
  EXPECT_EQ(b->cfnt[0].lfnt->index, 1u);
  EXPECT_EQ(ttfOf(b)->maxp->numGlyphs, 3528);
  ASSERT_EQ(FSS_load_font(st, path.c_str(), nullptr, 1, sizeof again, again), 0);
  EXPECT_STREQ(again, second);
  EXPECT_EQ(countSets(st), 2);
  // Face 2 of 2 is beyond the collection.
  EXPECT_EQ(FSS_load_font(st, path.c_str(), nullptr, 2, sizeof again, again),
            ERR_TTC_BAD_INDEX);
  EXPECT_EQ(countSets(st), 2);
  EXPECT_EQ(countLfnts(st), 2);
  EXPECT_EQ(FSS_delete_font(st, first), 0);
  EXPECT_EQ(FSS_delete_font(st, second), 0);
  EXPECT_EQ(FSS_delete_font(st, second), 0);
  EXPECT_EQ(engine.used(), start);
}

/* ---- What loading records ---- */

TEST_F(FontLoad, LoadingClassifiesTheFontAndSizesItsCmapCache) {
  char sans[64], oblique[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSans, nullptr, 0, sizeof sans, sans), 0);
  ASSERT_EQ(FSS_load_font(st, kDejaVuOblique, nullptr, 0, sizeof oblique, oblique), 0);
  LFNT* upright = setNamed(st, sans)->cfnt[0].lfnt;
  LFNT* slanted = setNamed(st, oblique)->cfnt[0].lfnt;
  // hhea caret run: 0 upright, 19 in the oblique (rise 100).
  EXPECT_EQ(upright->fontflags, 0u);
  EXPECT_EQ(slanted->fontflags, FONTFLAG_SLANTED_CARET);
  // Cache sizes: 6253 glyphs / 10 = 625, nearer 512 than 1024; 5355 / 10 =
  // 535, nearer 512 too.
  ASSERT_NE(upright->cmap_cache, nullptr);
  EXPECT_EQ(upright->cmap_cache_mod, 511);
  EXPECT_EQ(slanted->cmap_cache_mod, 511);
  // Every component covers all of Unicode.
  CFNT* c = &setNamed(st, sans)->cfnt[0];
  EXPECT_EQ(c->bmp.range1, 0xFFFFFFFFu);
  EXPECT_EQ(c->ssp.range2, 0xFFFFFFFFu);
  EXPECT_EQ(c->start_index, 0);
  EXPECT_STREQ(c->name, "DejaVu Sans");
  EXPECT_EQ(c->name, upright->name);  // borrowed

  // Dropping the data keeps the record; loading brings it back.
  unload_fnt(st, upright);
  EXPECT_EQ(upright->fnt, nullptr);
  EXPECT_EQ(upright->cmap_cache, nullptr);
  EXPECT_EQ(load_fnt(st, upright), 0);
  ASSERT_NE(upright->fnt, nullptr);
  EXPECT_EQ(upright->cmap_cache_mod, 511);
  EXPECT_EQ(((TTF*)upright->fnt)->head->unitsPerEm, 2048);
}

TEST_F(FontLoad, SmallCachesAre256AndSerifIsNearer256) {
  // DejaVu Serif: 3528 / 10 = 352, 96 above 256 and 160 below 512.
  char name[64];
  ASSERT_EQ(FSS_load_font(st, kDejaVuSerif, nullptr, 0, sizeof name, name), 0);
  EXPECT_EQ(st->server->loaded_fonts->cmap_cache_mod, 255);
  // A two-glyph font: 0 / 10 is raised to 256.
  sfnt::Bytes tiny = sfnt::build(sfnt::minimalGlyfFont());
  ASSERT_EQ(FSS_load_font(st, nullptr, tiny.data(), 0, sizeof name, name), 0);
  EXPECT_STREQ(name, "Test Sans");
  EXPECT_EQ(st->server->loaded_fonts->cmap_cache_mod, 255);
}

TEST_F(FontLoad, GlyphDataFormatsSetTheFontFlags) {
  struct Case {
    uint32_t format;
    bool adfh;
    FS_LONG error;
    FS_ULONG flags;
  } cases[] = {
      {0x9654, false, 0, 2},               // stroke
      {0x9655, false, 0, 2 | 64 | 128},    // stroke with special handling
      {0x0500, true, 0, 256 | 16},         // ddd with its ADFH
      {0x0500, false, ERR_BAD_TYPE, 0},    // ddd without: refused
      {0x0700, false, ERR_BAD_TYPE, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.format);
    sfnt::Font f = sfnt::minimalGlyfFont();
    f.set("head", sfnt::head(1000, -10, -200, 600, 800, c.format));
    if (c.adfh) f.set("ADFH", sfnt::Bytes(16, 0));
    sfnt::Bytes image = sfnt::build(f);
    char name[64];
    EXPECT_EQ(FSS_load_font(st, nullptr, image.data(), 0, sizeof name, name),
              c.error);
    if (c.error == 0) {
      EXPECT_EQ(st->server->loaded_fonts->fontflags, c.flags);
      EXPECT_EQ(FSS_delete_font(st, name), 0);
    }
    EXPECT_EQ(countSets(st), 0);
    EXPECT_EQ(engine.used(), start);
  }
}

/* ---- Questions about fonts ---- */

TEST_F(FontLoad, AvailableFontsFilterByStyleAndFace) {
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  ASSERT_EQ(FSS_add_font(st, "sans", kDejaVuSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(st, "mono", kDejaVuMono, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(child, "bold", kDejaVuBold, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(child, "oblique", kDejaVuOblique, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(child, "bi", kFreeSerifBoldItalic, nullptr, 0), 0);
  struct Case {
    FS_BYTE style, face;
    const char* list;
  } cases[] = {
      // The child's names first, each list newest first.
      {4, 2, "bi,oblique,bold,mono,sans"},
      {0, 2, "mono,sans"},   // macStyle 0
      {2, 2, "bold"},        // macStyle 1
      {1, 2, "oblique"},     // macStyle 2
      {3, 2, "bi"},          // macStyle 3
      {4, 1, "mono"},        // panose family 2, proportion 9
      {4, 0, "bi,oblique,bold,sans"},
      {2, 1, ""},
  };
  for (const Case& c : cases) {
    FILECHAR* list = nullptr;
    FS_ULONG length = 99;
    ASSERT_EQ(FSS_get_available_fonts(child, c.style, c.face, &list, &length), 0);
    EXPECT_STREQ(list, c.list);
    EXPECT_EQ(length, strlen(c.list));
    FSS_free(child, list);
  }
  FILECHAR* list = nullptr;
  FS_ULONG length = 0;
  ASSERT_EQ(FSS_get_available_fonts(st, 4, 2, &list, &length), 0);
  EXPECT_STREQ(list, "mono,sans");  // a parent doesn't see its child's
  FSS_free(st, list);
  EXPECT_EQ(FSS_get_available_fonts(st, 4, 2, nullptr, &length), ERR_BAD_ARGUMENT);
  EXPECT_EQ(FSS_end_client(child), 0u);
}

TEST_F(FontLoad, ManyNamesGrowTheListBuffer) {
  ASSERT_EQ(FSS_add_font(st, "a", kDejaVuSans, nullptr, 0), 0);
  FNTSET* set = setNamed(st, "a");
  // 40 names of 9 characters: 400 bytes with their separators, beyond 256.
  for (int i = 0; i < 40; i++) {
    char name[16];
    snprintf(name, sizeof name, "name-%04d", i);
    ASSERT_EQ(FS_STATE_add_named_FNTSET(st, name, set), 0);
  }
  FILECHAR* list = nullptr;
  FS_ULONG length = 0;
  ASSERT_EQ(FSS_get_available_fonts(st, 4, 2, &list, &length), 0);
  EXPECT_EQ(length, 40u * 10 + 1);  // "name-0039,...,name-0000,a"
  EXPECT_EQ(strncmp(list, "name-0039,name-0038,", 20), 0);
  EXPECT_STREQ(list + length - 11, "name-0000,a");
  FSS_free(st, list);
}

TEST_F(FontLoad, FontPathAndComponentName) {
  std::vector<FS_BYTE> image = readFile(kDejaVuSerif);
  ASSERT_EQ(FSS_add_font(st, "file", kDejaVuSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(st, "memory", nullptr, image.data(), 0), 0);
  char path[256];
  FS_BYTE* mem = (FS_BYTE*)1;
  FS_ULONG index = 7;
  ASSERT_EQ(FSS_get_font_path(st, "file", &mem, path, sizeof path, &index), 0);
  EXPECT_STREQ(path, kDejaVuSans);
  EXPECT_EQ(mem, nullptr);
  EXPECT_EQ(index, 0u);
  ASSERT_EQ(FSS_get_font_path(st, "memory", &mem, path, sizeof path, nullptr), 0);
  EXPECT_STREQ(path, "");
  EXPECT_EQ(mem, image.data());
  // 47 characters need 48 bytes.
  ASSERT_EQ(strlen(kDejaVuSans), 47u);
  EXPECT_EQ(FSS_get_font_path(st, "file", &mem, path, 47, nullptr),
            ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(FSS_get_font_path(st, "file", &mem, path, 48, nullptr), 0);
  EXPECT_EQ(FSS_get_font_path(st, "none", &mem, path, sizeof path, nullptr),
            ERR_FONT_NOT_FOUND);

  char name[64];
  EXPECT_EQ(FSS_get_name(st, 'A', sizeof name, name), ERR_NO_CURRENT_FONT);
  ASSERT_EQ(FSS_set_font(st, "memory"), 0);
  ASSERT_EQ(FSS_get_name(st, 'A', sizeof name, name), 0);
  EXPECT_STREQ(name, "DejaVu Serif");
  EXPECT_EQ(FSS_get_name(st, 'A', 12, name), ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(FSS_get_name(st, 'A', 13, name), 0);
}

}  // namespace
