// Font objects and font loading on real Debian fonts: adding fonts by path
// and from memory, sharing between clients, private names, setting and
// deleting, collections, what loading records, and the refusals of files
// that aren't usable fonts.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_typeset.h"
#include "engine_fixture.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

using sfnt::Bytes;

namespace {

#define DEJAVU "/usr/share/fonts/truetype/dejavu/"
const char kSans[] = DEJAVU "DejaVuSans.ttf";
const char kSerif[] = DEJAVU "DejaVuSerif.ttf";
const char kBold[] = DEJAVU "DejaVuSans-Bold.ttf";
const char kOblique[] = DEJAVU "DejaVuSans-Oblique.ttf";
const char kMono[] = DEJAVU "DejaVuSansMono.ttf";
const char kFreeSerifBoldItalic[] = "/usr/share/fonts/truetype/freefont/FreeSerifBoldItalic.ttf";

// A value against its hand-read value, named by its expression.
struct Field {
  const char* name;
  long long got, want;
};
#define F(got, want) Field{#got, (long long)(got), (long long)(want)}
void expectFields(std::initializer_list<Field> fields) {
  for (const Field& f : fields) EXPECT_EQ(f.got, f.want) << f.name;
}

Bytes readFont(const char* path) {
  Bytes b = sfnt::asBytes(testsupport::readBytes(path));
  EXPECT_FALSE(b.empty()) << "missing font " << path;
  return b;
}
TTF* ttfOf(FNTSET* set) { return (TTF*)set->cfnt[0].lfnt->fnt; }

class FontLoad : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(engine.started);
    st = &engine.st;
    start = engine.used();
  }
  int sets() {
    int n = 0;
    for (FNTSET* s = st->server->font_sets; s; s = s->next) n++;
    return n;
  }
  int lfnts() {
    int n = 0;
    for (LFNT* l = st->server->loaded_fonts; l; l = l->next) n++;
    return n;
  }
  // The record and the set a client knows under `name`.
  static ADDEDFNT* added(FS_STATE* s, const char* name) {
    for (ADDEDFNT* a = s->name_map; a; a = a->next)
      if (strcmp(a->name, name) == 0) return a;
    return nullptr;
  }
  static FNTSET* setNamed(FS_STATE* s, const char* name) {
    ADDEDFNT* a = added(s, name);
    return a ? a->set : nullptr;
  }
  FS_LONG load(FS_STATE* s, const char* path, char* name, FS_ULONG size = 64,
               FS_ULONG index = 0) {
    return FSS_load_font(s, path, nullptr, index, size, name);
  }

  enginetest::Engine engine{16u << 20};
  FS_STATE* st = nullptr;
  FS_ULONG start = 0;
  testsupport::TempDir dir;
};

/* ---- Sharing between clients ---- */

TEST_F(FontLoad, TwoClientsShareOneSetAndOneLoadedFontWithPrivateNames) {
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  FS_ULONG withChild = engine.used();
  char rootName[64], childName[64];
  ASSERT_EQ(load(st, kSans, rootName), 0);
  ASSERT_EQ(FSS_add_font(child, "body", kSans, nullptr, 0), 0);
  ASSERT_EQ(load(child, kSans, childName), 0);
  EXPECT_STREQ(rootName, "DejaVu Sans");
  EXPECT_STREQ(childName, "body");  // the child's own name, counted twice
  ASSERT_EQ(sets() * 10 + lfnts(), 11);
  FNTSET* set = st->server->font_sets;
  LFNT* lfnt = st->server->loaded_fonts;
  expectFields({F(added(child, "body")->add_count, 2), F(setNamed(st, "DejaVu Sans"), set),
                F(setNamed(child, "body"), set), F(set->count_added, 2),  // one per client
                F(lfnt->fntset_refs, 1), F(set->cfnt[0].lfnt, lfnt)});
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
  ASSERT_EQ(sets(), 1);
  expectFields({F(set->count_added, 1), F(set->ref_count, 1),
                F(st->cur_typeset.fntset, set), F(((TTF*)lfnt->fnt)->maxp->numGlyphs, 6253),
                F(FSS_set_font(child, "DejaVu Sans"), 0),  // through the parent
                F(set->ref_count, 2), F(FSS_delete_font(st, "DejaVu Sans"), 0),
                // the child still has it current: the set stays, without names
                F(sets(), 1), F(set->count_added, 0), F(set->ref_count, 1),
                F(FSS_end_client(child), 0), F(set->ref_count, 0),
                // nobody holds it: the ladder's first step takes it, with its font
                F(get_some_back(st), 1), F(sets() + lfnts(), 0)});
  // Left over: the root's typeset array, kept for reuse until the client
  // ends: one 24-byte TFNT and its 8-byte header. The child's block went.
  EXPECT_EQ(engine.used(), withChild - (sizeof(FS_STATE) + 8) + 32);
}

TEST_F(FontLoad, HeapReturnsToItsStartWhenEveryFontIsDeletedOrItsClientEnds) {
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  FS_ULONG before = engine.used();
  char a[64], b[64], c[64];
  ASSERT_EQ(load(st, kSans, a), 0);
  ASSERT_EQ(load(st, kSerif, b), 0);
  ASSERT_EQ(load(child, kSans, c), 0);
  ASSERT_EQ(load(child, kSans, c), 0);
  EXPECT_EQ(sets() * 10 + lfnts(), 22);
  EXPECT_EQ(FSS_delete_font(st, a), 0);
  EXPECT_EQ(sets(), 2);  // the child still has DejaVu Sans
  for (const char* n : {c, c}) EXPECT_EQ(FSS_delete_font(child, n), 0);
  EXPECT_EQ(FSS_delete_font(st, b), 0);
  expectFields({F(sets() + lfnts(), 0), F(st->name_map, 0), F(child->name_map, 0),
                F(engine.used(), before)});
  // Ending a client takes back all its adds, the current one's hold first.
  ASSERT_EQ(FSS_add_font(child, "x", kSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(child, nullptr, kSans, nullptr, 0), 0);
  ASSERT_EQ(load(child, kSerif, a), 0);
  ASSERT_EQ(FSS_set_font(child, "x"), 0);
  EXPECT_EQ(FSS_end_client(child), 0u);
  EXPECT_EQ(sets() + lfnts(), 0);
  EXPECT_EQ(engine.used(), start);
}

/* ---- Memory, path and offset ---- */

TEST_F(FontLoad, PathMemoryAndOffsetsGiveTheSameFontData) {
  Bytes sans = readFont(kSans), serif = readFont(kSerif);
  ASSERT_EQ(sans.size(), 759720u);
  Bytes wrapped(1000, 0xAB);
  wrapped.insert(wrapped.end(), serif.begin(), serif.end());
  std::string path = dir.file("wrapped.bin");
  testsupport::writeBytes(path, sfnt::asString(wrapped));
  // A path on one side only is another file: its own set and loaded font,
  // the same full name made unique on this client. Values read off the
  // files by hand: numGlyphs, head xMax, hhea ascender.
  char n[4][64];
  ASSERT_EQ(load(st, kSans, n[0]), 0);
  ASSERT_EQ(FSS_load_font(st, nullptr, sans.data(), 0, 64, n[1]), 0);
  ASSERT_EQ(FSS_load_font_with_offset(st, path.c_str(), nullptr, 0, 1000,
                                      (FS_ULONG)serif.size(), 64, n[2]), 0);
  ASSERT_EQ(FSS_load_font_with_offset(st, nullptr, wrapped.data(), 0, 1000,
                                      (FS_ULONG)serif.size(), 64, n[3]), 0);
  const struct { const char* name; const FS_BYTE* mem; int glyphs, xMax; } rows[] = {
      {"DejaVu Sans", nullptr, 6253, 3673}, {"A DejaVu Sans", sans.data(), 6253, 3673},
      {"DejaVu Serif", nullptr, 3528, 4312}, {"A DejaVu Serif", wrapped.data(), 3528, 4312}};
  for (int i = 0; i < 4; i++) {
    EXPECT_STREQ(n[i], rows[i].name);
    FNTSET* set = setNamed(st, n[i]);
    ASSERT_NE(set, nullptr) << n[i];
    TTF* ttf = ttfOf(set);
    EXPECT_EQ(set->cfnt[0].lfnt->memptr, rows[i].mem) << n[i];
    expectFields({F(ttf->maxp->numGlyphs, rows[i].glyphs), F(ttf->head->xMax, rows[i].xMax),
                  F(ttf->hhea->yAscender, 1901), F(set->cfnt[0].lfnt->fnt_type, FNT_TYPE_TTF)});
  }
  EXPECT_STREQ(setNamed(st, n[0])->cfnt[0].lfnt->path, kSans);
  EXPECT_EQ(setNamed(st, n[1])->cfnt[0].lfnt->path, nullptr);
  // The wrapped file at offset 0 is no font at all.
  EXPECT_EQ(load(st, path.c_str(), n[0]), ERR_NOT_A_TTF);
  EXPECT_EQ(sets(), 4);
  for (int i = 3; i >= 0; i--) EXPECT_EQ(FSS_delete_font(st, rows[i].name), 0);
  EXPECT_EQ(engine.used(), start);
}

TEST(FontChecksum, SumsTheFirst200WordsInHostOrder) {
  std::vector<FS_BYTE> bytes(500, 0);
  bytes[0] = 1;       // word 0 = 0x0001 on a little-endian host
  bytes[3] = 2;       // word 1 = 0x0200
  bytes[399] = 1;     // word 199 = 0x0100
  bytes[400] = 0xFF;  // word 200: beyond the 200
  EXPECT_EQ(FNTSET_checksum(bytes.data(), 0), 0x0001u + 0x0200u + 0x0100u);
  EXPECT_EQ(FNTSET_checksum(bytes.data(), 4), 0x0201u);  // a short image
  EXPECT_EQ(FNTSET_checksum(nullptr, 0), 0u);
}

/* ---- Refusals ---- */

TEST_F(FontLoad, UnusableFilesAreRefusedAndTheClientStaysUsable) {
  Bytes font = readFont(kSans);
  auto file = [this](const char* name, const Bytes& b) {
    testsupport::writeBytes(dir.file(name), sfnt::asString(b));
    return dir.file(name);
  };
  auto head = [&font](size_t n) { return Bytes(font.begin(), font.begin() + n); };
  const struct { std::string path; FS_LONG error; } rows[] = {
      {dir.file("absent.ttf"), ERR_FILE_OPEN},
      {dir.path(), ERR_FILE_READ},  // a folder opens but can't be read
      {file("notes.txt", sfnt::asBytes("Hello, this is not a font at all.\n")), ERR_NOT_A_TTF},
      {file("cut.ttf", head(2000)), ERR_TABLE_DIR},  // tables beyond the 2000 bytes
      {file("tiny.ttf", head(2)), ERR_FILE_READ},    // not even the 3 bytes of the type
      {file("empty.ttf", {}), ERR_FILE_READ},
      // The 22 directory entries lie beyond the 12 bytes and read as zeros:
      // no table is found.
      {file("header.ttf", head(12)), ERR_TABLE_NOT_FOUND},
      {file("p.fnt", sfnt::asBytes("PFR0 and the rest of a font of another kind")),
       ERR_FONT_TYPE_UNSUPPORTED},
      {file("l.ltt", sfnt::asBytes("LTT linked font header would follow")), ERR_LINK_INFO},
  };
  char name[64];
  for (const auto& r : rows) {
    SCOPED_TRACE(r.path);
    strcpy(name, "untouched");
    EXPECT_EQ(load(st, r.path.c_str(), name), r.error);
    EXPECT_EQ(st->error, (FS_ULONG)r.error);
    EXPECT_STREQ(name, "untouched");
    EXPECT_EQ(FSS_add_font(st, "named", r.path.c_str(), nullptr, 0), r.error);
    expectFields({F(sets() + lfnts(), 0), F(st->name_map, 0), F(engine.used(), start)});
  }
  EXPECT_EQ(FSS_get_link_info(st, dir.file("l.ltt").c_str(), nullptr, nullptr), ERR_LINK_INFO);
  EXPECT_EQ(FSS_get_link_info(st, kSans, nullptr, nullptr), ERR_LINK_INFO);
  // The truncated font from memory with its true length; neither path nor
  // memory.
  EXPECT_EQ(FSS_load_font_with_offset(st, nullptr, font.data(), 0, 0, 2000, 64, name),
            ERR_TABLE_DIR);
  EXPECT_EQ(FSS_load_font(st, nullptr, nullptr, 0, 64, name), ERR_FONT_NOT_FOUND);
  EXPECT_EQ(load(st, "", name), ERR_FONT_NOT_FOUND);
  EXPECT_EQ(engine.used(), start);
  // Still usable.
  ASSERT_EQ(load(st, kSans, name), 0);
  ASSERT_EQ(FSS_set_font(st, name), 0);
  EXPECT_EQ(st->error, 0u);
  EXPECT_EQ(FSS_delete_font(st, name), 0);

  // An exhausted budget (room for the scratch buffer and a few records, not
  // a font's resident tables) refuses the font and leaves nothing.
  enginetest::Engine small(8000);
  ASSERT_TRUE(small.started);
  FS_ULONG used = small.used();
  EXPECT_EQ(load(&small.st, kSans, name), ERR_MALLOC_FAIL);
  expectFields({F(small.server()->font_sets, 0), F(small.server()->loaded_fonts, 0),
                F(small.used(), used)});
}

TEST_F(FontLoad, FileTypeComesFromTheFirstThreeBytes) {
  const struct { const char* bytes; FS_ULONG index; int type; } rows[] = {
      {"\0\1\0\0", 0, FNT_TYPE_TTF},     {"OTTO", 0, FNT_TYPE_CFF},
      {"LTT", 0, FNT_TYPE_LINKED},       {"PFR0", 0, FNT_TYPE_NO_SCALER},
      {"ttcf", 0, FNT_TYPE_TTF},         // until loaded
      {"OTTO", 1, FNT_TYPE_TTF}};        // "TTO" at offset 1
  for (const auto& r : rows)
    EXPECT_EQ(fontfile_type(st, nullptr, (const FS_BYTE*)r.bytes, r.index), r.type)
        << r.bytes + r.index;
  EXPECT_EQ(fontfile_type(st, "/nonexistent/font.ttf", nullptr, 0), FNT_TYPE_UNREADABLE);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_FILE_OPEN);
}

/* ---- Names ---- */

TEST_F(FontLoad, AddsCountOnOneRecordAndNamesAreCheckedAndCut) {
  // Adding twice without a name: two adds on one record.
  ASSERT_EQ(FSS_add_font(st, nullptr, kSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(st, nullptr, kSans, nullptr, 0), 0);
  ASSERT_NE(st->name_map, nullptr);
  EXPECT_EQ(st->name_map->next, nullptr);
  EXPECT_STREQ(st->name_map->name, "DejaVu Sans");
  expectFields({F(st->name_map->add_count, 2), F(st->name_map->set->count_added, 1),
                F(FSS_delete_font(st, "DejaVu Sans"), 0), F(sets(), 1),
                F(FSS_delete_font(st, "DejaVu Sans"), 0), F(sets(), 0)});
  // (name, font, result): a second name for a font, the name again, the
  // name for another font, an empty name.
  const struct { const char* name; const char* path; FS_LONG error; } adds[] = {
      {"text", kSans, 0}, {"other", kSans, ERR_FONT_NAME_IN_USE}, {"text", kSans, 0},
      {"text", kSerif, ERR_FONT_NAME_NOT_UNIQUE}, {"", kSerif, ERR_BAD_ARGUMENT}};
  for (const auto& a : adds)
    EXPECT_EQ(FSS_add_font(st, a.name, a.path, nullptr, 0), a.error) << a.name;
  EXPECT_EQ(added(st, "text")->add_count, 2u);
  EXPECT_EQ(sets() * 10 + lfnts(), 11);  // a refused font's unheld set went at once
  // Another client may use the name for another font.
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(FSS_add_font(child, "text", kSerif, nullptr, 0), 0);
  EXPECT_NE(setNamed(child, "text"), setNamed(st, "text"));
  EXPECT_EQ(FSS_end_client(child), 0u);
  EXPECT_EQ(FSS_delete_font(st, "text"), 0);
  EXPECT_EQ(FSS_delete_font(st, "text"), 0);

  // Loading twice gives the same name; an existing name isn't cut
  // ("DejaVu Sans Mono" needs 17 bytes), a new font's is: 10 characters.
  char a[64], b[64], small[11];
  ASSERT_EQ(load(st, kMono, a), 0);
  ASSERT_EQ(load(st, kMono, b), 0);
  EXPECT_STREQ(a, "DejaVu Sans Mono");
  EXPECT_STREQ(b, a);
  EXPECT_EQ(load(st, kMono, small, sizeof small), ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(added(st, a)->add_count, 2u);
  ASSERT_EQ(load(st, kSerif, small, sizeof small), 0);
  EXPECT_STREQ(small, "DejaVu Ser");
  EXPECT_EQ(load(st, kSans, small, 1), ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(sets(), 2);  // the refused one went at once
}

TEST_F(FontLoad, UniqueNamesCountInBase52LeastSignificantFirst) {
  char name[64];
  ASSERT_EQ(load(st, kSans, name), 0);
  FNTSET* set = st->server->font_sets;
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, sizeof name), 0);
  EXPECT_STREQ(name, "Seed");
  // Taking the names one after the other: the 1st is "A", the 26th "Z",
  // the 27th "a", the 52nd "z", the 53rd, 0 + 1 * 52, "AB".
  ASSERT_EQ(FS_STATE_add_named_FNTSET(st, "Seed", set), 0);
  std::vector<std::string> taken;
  for (int i = 0; i < 53; i++) {
    ASSERT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, sizeof name), 0);
    taken.push_back(name);
    ASSERT_EQ(FS_STATE_add_named_FNTSET(st, name, set), 0);
  }
  for (auto r : {std::pair<int, const char*>{0, "A Seed"}, {25, "Z Seed"}, {26, "a Seed"},
                 {51, "z Seed"}, {52, "AB Seed"}})
    EXPECT_EQ(taken[r.first], r.second);
  // Cut to the buffer: 4 makes the seed "See", which is free; with "Se"
  // taken, 3 leaves "A " (no room for the seed); with "S" taken, 2 has room
  // for a digit only; 1 has none.
  const struct { const char* take; FS_ULONG size; const char* want; } cuts[] = {
      {nullptr, 4, "See"}, {"Se", 3, "A "}, {"S", 2, "A"}};
  for (const auto& c : cuts) {
    ASSERT_EQ(c.take ? FS_STATE_add_named_FNTSET(st, c.take, set) : 0, 0);
    EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, c.size), 0);
    EXPECT_STREQ(name, c.want);
  }
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, 1), ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", nullptr, 10), ERR_FONT_NAME_TOO_LONG);
  // Every name goes with the client's end (FS_STATE_done deletes them).
}

TEST_F(FontLoad, FontNameTellsTheNameWithoutAdding) {
  char name[64];
  ASSERT_EQ(FSS_font_name(st, kSans, nullptr, 0, sizeof name, name), 0);
  EXPECT_STREQ(name, "DejaVu Sans");
  ASSERT_EQ(sets(), 1);  // kept on the server for the load
  FNTSET* set = st->server->font_sets;
  expectFields({F(st->name_map, 0), F(set->count_added, 0),
                F(FSS_add_font(st, "mine", kSans, nullptr, 0), 0),
                F(st->server->font_sets, set)});  // reused
  ASSERT_EQ(FSS_font_name(st, kSans, nullptr, 0, sizeof name, name), 0);
  EXPECT_STREQ(name, "mine");
  EXPECT_EQ(FSS_font_name(st, kSans, nullptr, 0, 4, name), ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(FSS_delete_font(st, "mine"), 0);
  // An unused set is what the ladder takes first.
  ASSERT_EQ(FSS_font_name(st, kSerif, nullptr, 0, sizeof name, name), 0);
  EXPECT_EQ(get_some_back(st), 1);
  EXPECT_EQ(sets(), 0);
  EXPECT_EQ(engine.used(), start);
}

/* ---- Setting and deleting ---- */

TEST_F(FontLoad, SettingAndDeletingTheCurrentFontKeepOrDropItsState) {
  char name[64], other[64];
  ASSERT_EQ(load(st, kSans, name), 0);
  ASSERT_EQ(FSS_set_font(st, name), 0);
  LFNT* lfnt = st->server->loaded_fonts;
  SFNT* sfnt = enginetest::makeSfnt(st, lfnt);
  st->cur_sfnt = sfnt;
  st->cur_lfnt = lfnt;
  st->cur_typeset.tfntarray[0].sfnt = sfnt;
  sfnt->ref_count = 1;
  // Setting the current font again keeps its scaled font.
  ASSERT_EQ(FSS_set_font(st, name), 0);
  expectFields({F(st->cur_sfnt, sfnt), F(st->cur_lfnt, lfnt),
                F(st->cur_typeset.tfntarray[0].sfnt, sfnt),
                F(st->server->font_sets->ref_count, 1)});
  // Another font drops the hold on the scaled font, which stays on the
  // server for later use; deleting a font takes its scaled fonts with it.
  ASSERT_EQ(load(st, kSerif, other), 0);
  ASSERT_EQ(FSS_set_font(st, other), 0);
  expectFields({F(st->cur_sfnt, 0), F(st->cur_lfnt, 0), F(sfnt->ref_count, 0),
                F(st->server->scaled_fonts, sfnt), F(setNamed(st, name)->ref_count, 0),
                F(setNamed(st, other)->ref_count, 1), F(FSS_delete_font(st, name), 0),
                F(st->server->scaled_fonts, 0)});
  // Deleting the current font forgets the cmap choice.
  st->platform = 3;
  st->encoding = 1;
  EXPECT_EQ(FSS_delete_font(st, other), 0);
  expectFields({F(st->platform, 0xFFFF), F(st->encoding, 0xFFFF),
                F(st->cur_typeset.fntset, 0), F(FSS_set_font(st, other), ERR_FONT_NOT_FOUND)});
  EXPECT_EQ(engine.used(), start + 32);  // the kept one-entry typeset array
}

TEST_F(FontLoad, AHeldGlyphOfAnUnsharedFontKeepsItFromGoing) {
  char name[64];
  ASSERT_EQ(load(st, kSans, name), 0);
  SFNT* sfnt = enginetest::makeSfnt(st, st->server->loaded_fonts);
  sfnt->active_count = 1;
  EXPECT_EQ(FSS_delete_font(st, name), ERR_FONT_IN_USE);
  EXPECT_NE(setNamed(st, name), nullptr);
  // Only the last add is checked: a second one comes off freely.
  ASSERT_EQ(load(st, kSans, name), 0);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(FSS_delete_font(st, name), ERR_FONT_IN_USE);
  sfnt->active_count = 0;
  expectFields({F(FSS_delete_font(st, name), 0), F(sets(), 0),
                F(st->server->scaled_fonts, 0), F(engine.used(), start)});
}

TEST_F(FontLoad, AnUnheldSetSurvivesTheLadderWhileItIsBeingAdded) {
  // FSS_font_name leaves a set nobody holds; with the budget full, naming
  // it runs the ladder, whose first step would kill exactly that set. The
  // call holds it, so the ladder gives up the set's cmap cache instead.
  char name[64];
  ASSERT_EQ(FSS_font_name(st, kSans, nullptr, 0, sizeof name, name), 0);
  FNTSET* set = st->server->font_sets;
  LFNT* lfnt = set->cfnt[0].lfnt;
  ASSERT_NE(lfnt->cmap_cache, nullptr);
  engine.fillBudget();
  ASSERT_EQ(load(st, kSans, name), 0);
  expectFields({F(st->server->font_sets, set), F(setNamed(st, "DejaVu Sans"), set),
                F(lfnt->cmap_cache, 0), F(set->ref_count, 0)});  // held for the call only
  // The same for a typeset made on a set nobody holds.
  ASSERT_EQ(FSS_font_name(st, kSerif, nullptr, 0, sizeof name, name), 0);
  engine.fillBudget();
  FNTSET* serif = st->server->font_sets;
  TYPESET ts = {};
  ASSERT_EQ(TYPESET_init(st, &ts, serif), 0);
  expectFields({F(st->server->font_sets, serif), F(ts.tfntarray[0].cfnt, &serif->cfnt[0]),
                F(serif->ref_count, 1)});
  TYPESET_destroy(st, &ts);
  EXPECT_EQ(serif->ref_count, 0u);
  EXPECT_EQ(TYPESET_init(st, &ts, nullptr), ERR_NO_FNTSET);
}

/* ---- Collections and what loading records ---- */

TEST_F(FontLoad, CollectionMembersAreFontsOfTheirOwn) {
  std::string path = dir.file("pair.ttc");
  testsupport::writeBytes(path, sfnt::asString(sfnt::buildCollection(
                                    {sfnt::read(readFont(kSans)), sfnt::read(readFont(kSerif))})));
  char first[64], second[64], again[64];
  ASSERT_EQ(load(st, path.c_str(), first, 64, 0), 0);
  ASSERT_EQ(load(st, path.c_str(), second, 64, 1), 0);
  EXPECT_STREQ(first, "DejaVu Sans");
  EXPECT_STREQ(second, "DejaVu Serif");
  FNTSET* b = setNamed(st, second);
  expectFields({F(sets() * 10 + lfnts(), 22),
                F(setNamed(st, first)->cfnt[0].lfnt->fnt_type, FNT_TYPE_TTC),
                F(b->cfnt[0].lfnt->index, 1), F(ttfOf(b)->maxp->numGlyphs, 3528)});
  ASSERT_EQ(load(st, path.c_str(), again, 64, 1), 0);
  EXPECT_STREQ(again, second);
  // Face 2 of 2 is beyond the collection.
  EXPECT_EQ(load(st, path.c_str(), again, 64, 2), ERR_TTC_BAD_INDEX);
  EXPECT_EQ(sets() * 10 + lfnts(), 22);
  for (const char* n : {first, second, second}) EXPECT_EQ(FSS_delete_font(st, n), 0);
  EXPECT_EQ(engine.used(), start);
}

TEST_F(FontLoad, LoadingClassifiesTheFontAndSizesItsCmapCache) {
  // Cache masks: glyphs / 10 rounded to the nearer power of two, at least
  // 256: DejaVu Sans 625 and its oblique 535 are nearer 512, DejaVu Serif
  // 352 nearer 256 (96 above, 160 below 512), two glyphs 0, raised to 256.
  // The hhea caret run is 0 upright, 19 in the oblique (rise 100).
  Bytes tiny = sfnt::build(sfnt::minimalGlyfFont());
  const struct { const char* path; const char* name; int mod; FS_ULONG flags; } rows[] = {
      {kSans, "DejaVu Sans", 511, 0}, {kOblique, "DejaVu Sans Oblique", 511,
       FONTFLAG_SLANTED_CARET}, {kSerif, "DejaVu Serif", 255, 0}, {nullptr, "Test Sans", 255, 0}};
  for (const auto& r : rows) {
    char name[64];
    ASSERT_EQ(FSS_load_font(st, r.path, r.path ? nullptr : tiny.data(), 0, 64, name), 0);
    EXPECT_STREQ(name, r.name);
    LFNT* l = setNamed(st, name)->cfnt[0].lfnt;
    expectFields({F(l->cmap_cache_mod, r.mod), F(l->fontflags, r.flags)});
  }
  // Every component covers all of Unicode and borrows its font's name.
  CFNT* c = &setNamed(st, "DejaVu Sans")->cfnt[0];
  LFNT* upright = c->lfnt;
  expectFields({F(c->bmp.range1, 0xFFFFFFFF), F(c->ssp.range2, 0xFFFFFFFF),
                F(c->start_index, 0), F(c->name, upright->name)});
  EXPECT_STREQ(c->name, "DejaVu Sans");
  // Dropping the data keeps the record; loading brings it back.
  unload_fnt(st, upright);
  expectFields({F(upright->fnt, 0), F(upright->cmap_cache, 0), F(load_fnt(st, upright), 0),
                F(upright->cmap_cache_mod, 511), F(((TTF*)upright->fnt)->head->unitsPerEm, 2048)});
}

TEST_F(FontLoad, GlyphDataFormatsSetTheFontFlags) {
  const struct { uint32_t format; bool adfh; FS_LONG error; FS_ULONG flags; } rows[] = {
      {0x9654, false, 0, 2},               // stroke
      {0x9655, false, 0, 2 | 64 | 128},    // stroke with special handling
      {0x0500, true, 0, 256 | 16},         // ddd with its ADFH
      {0x0500, false, ERR_BAD_TYPE, 0},    // ddd without: refused
      {0x0700, false, ERR_BAD_TYPE, 0},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.format);
    sfnt::Font f = sfnt::minimalGlyfFont();
    f.set("head", sfnt::head(1000, -10, -200, 600, 800, r.format));
    if (r.adfh) f.set("ADFH", Bytes(16, 0));
    Bytes image = sfnt::build(f);
    char name[64];
    EXPECT_EQ(FSS_load_font(st, nullptr, image.data(), 0, sizeof name, name), r.error);
    if (r.error == 0) {
      EXPECT_EQ(st->server->loaded_fonts->fontflags, r.flags);
      EXPECT_EQ(FSS_delete_font(st, name), 0);
    }
    EXPECT_EQ(sets(), 0);
    EXPECT_EQ(engine.used(), start);
  }
}

/* ---- Questions about fonts ---- */

TEST_F(FontLoad, AvailableFontsFilterByStyleAndFace) {
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  ASSERT_EQ(FSS_add_font(st, "sans", kSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(st, "mono", kMono, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(child, "bold", kBold, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(child, "oblique", kOblique, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(child, "bi", kFreeSerifBoldItalic, nullptr, 0), 0);
  // The child's names first, each list newest first; a parent doesn't see
  // its child's.
  const struct { FS_STATE* client; FS_BYTE style, face; const char* list; } rows[] = {
      {child, 4, 2, "bi,oblique,bold,mono,sans"},
      {child, 0, 2, "mono,sans"},   // macStyle 0
      {child, 2, 2, "bold"},        // macStyle 1
      {child, 1, 2, "oblique"},     // macStyle 2
      {child, 3, 2, "bi"},          // macStyle 3
      {child, 4, 1, "mono"},        // panose family 2, proportion 9
      {child, 4, 0, "bi,oblique,bold,sans"},
      {child, 2, 1, ""},
      {st, 4, 2, "mono,sans"},
  };
  for (const auto& r : rows) {
    FILECHAR* list = nullptr;
    FS_ULONG length = 99;
    ASSERT_EQ(FSS_get_available_fonts(r.client, r.style, r.face, &list, &length), 0);
    EXPECT_STREQ(list, r.list);
    EXPECT_EQ(length, strlen(r.list));
    FSS_free(r.client, list);
  }
  FS_ULONG length = 0;
  EXPECT_EQ(FSS_get_available_fonts(st, 4, 2, nullptr, &length), ERR_BAD_ARGUMENT);
  EXPECT_EQ(FSS_end_client(child), 0u);
  // 40 more names of 9 characters: 400 bytes with their separators, beyond
  // the list's first 256.
  FNTSET* set = setNamed(st, "sans");
  for (int i = 0; i < 40; i++) {
    char name[16];
    snprintf(name, sizeof name, "name-%04d", i);
    ASSERT_EQ(FS_STATE_add_named_FNTSET(st, name, set), 0);
  }
  FILECHAR* list = nullptr;
  ASSERT_EQ(FSS_get_available_fonts(st, 4, 2, &list, &length), 0);
  EXPECT_EQ(length, 40u * 10 + 9);  // "name-0039,...,name-0000,mono,sans"
  EXPECT_EQ(strncmp(list, "name-0039,name-0038,", 20), 0);
  EXPECT_STREQ(list + length - 19, "name-0000,mono,sans");
  FSS_free(st, list);
}

TEST_F(FontLoad, FontPathAndComponentName) {
  Bytes image = readFont(kSerif);
  ASSERT_EQ(FSS_add_font(st, "file", kSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(st, "memory", nullptr, image.data(), 0), 0);
  char path[256];
  FS_BYTE* mem = (FS_BYTE*)1;
  FS_ULONG index = 7;
  ASSERT_EQ(FSS_get_font_path(st, "file", &mem, path, sizeof path, &index), 0);
  EXPECT_STREQ(path, kSans);
  expectFields({F(mem, 0), F(index, 0)});
  ASSERT_EQ(FSS_get_font_path(st, "memory", &mem, path, sizeof path, nullptr), 0);
  EXPECT_STREQ(path, "");
  EXPECT_EQ(mem, image.data());
  // 47 characters need 48 bytes.
  ASSERT_EQ(strlen(kSans), 47u);
  expectFields({F(FSS_get_font_path(st, "file", &mem, path, 47, nullptr), ERR_FONT_NAME_TOO_LONG),
                F(FSS_get_font_path(st, "file", &mem, path, 48, nullptr), 0),
                F(FSS_get_font_path(st, "none", &mem, path, 256, nullptr), ERR_FONT_NOT_FOUND)});
  char name[64];
  EXPECT_EQ(FSS_get_name(st, 'A', sizeof name, name), ERR_NO_CURRENT_FONT);
  ASSERT_EQ(FSS_set_font(st, "memory"), 0);
  ASSERT_EQ(FSS_get_name(st, 'A', sizeof name, name), 0);
  EXPECT_STREQ(name, "DejaVu Serif");
  EXPECT_EQ(FSS_get_name(st, 'A', 12, name), ERR_FONT_NAME_TOO_LONG);
  EXPECT_EQ(FSS_get_name(st, 'A', 13, name), 0);
}

}  // namespace
