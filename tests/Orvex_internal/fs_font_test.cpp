// Font objects on real Debian fonts: adding, sharing, naming, setting and
// deleting fonts, what loading records, and the refusals of unusable files.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_ltt.h"
#include "Orvex_internal/fs_ttf.h"
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

// A value against its hand-read value, named by its expression.
struct Field { const char* name; long long got, want; };
#define F(got, want) Field{#got, (long long)(got), (long long)(want)}
void expectFields(std::initializer_list<Field> fields) {
  for (const Field& f : fields) EXPECT_EQ(f.got, f.want) << f.name;
}

Bytes readFont(const char* path) {
  Bytes b = sfnt::asBytes(testsupport::readBytes(path));
  EXPECT_FALSE(b.empty()) << "missing font " << path;
  return b;
}

class FontLoad : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(engine.started);
    st = &engine.st;
    start = engine.used();
  }
  // Sets * 10 + loaded fonts on the server.
  int fonts() {
    int n = 0;
    for (FNTSET* s = st->server->font_sets; s; s = s->next) n += 10;
    for (LFNT* l = st->server->loaded_fonts; l; l = l->next) n++;
    return n;
  }
  // The set a client knows under `name`.
  static FNTSET* setNamed(FS_STATE* s, const char* name) {
    for (ADDEDFNT* a = s->name_map; a; a = a->next)
      if (strcmp(a->name, name) == 0) return a->set;
    return nullptr;
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
  ASSERT_EQ(fonts(), 11);
  // Names are private: the root has no "body", the child no "DejaVu Sans"
  // of its own (it may still set its parent's font by that name).
  EXPECT_EQ(FSS_set_font(st, "body"), ERR_FONT_NOT_FOUND);
  EXPECT_EQ(FSS_delete_font(child, "DejaVu Sans"), ERR_FONT_NOT_FOUND);
  ASSERT_EQ(FSS_set_font(st, "DejaVu Sans"), 0);
  ASSERT_EQ(FSS_set_font(child, "body"), 0);
  // The child gives its font back: two adds, two deletes.
  EXPECT_EQ(FSS_delete_font(child, "body"), 0);
  EXPECT_EQ(FSS_delete_font(child, "body"), 0);
  EXPECT_EQ(FSS_delete_font(child, "body"), ERR_FONT_NOT_FOUND);
  expectFields({F(FSS_set_font(child, "DejaVu Sans"), 0),  // through the parent
                F(FSS_delete_font(st, "DejaVu Sans"), 0),
                // the child still has it current: the set stays, without names
                F(fonts(), 11), F(FSS_end_client(child), 0),
                // nobody holds it: the ladder's first step takes it, with its font
                F(get_some_back(st), 1), F(fonts(), 0)});
  // Left over: the root's typeset array (one TFNT + 8-byte header); the
  // child's record and its 16-byte renderer instance are gone.
  EXPECT_EQ(engine.used(), withChild - (sizeof(FS_STATE) + 8 + 16) + sizeof(TFNT) + 8);
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
  EXPECT_EQ(fonts(), 22);
  EXPECT_EQ(FSS_delete_font(st, a), 0);
  EXPECT_EQ(fonts(), 22);  // the child still has DejaVu Sans
  for (const char* n : {c, c}) EXPECT_EQ(FSS_delete_font(child, n), 0);
  EXPECT_EQ(FSS_delete_font(st, b), 0);
  expectFields({F(fonts(), 0), F(st->name_map, 0), F(child->name_map, 0),
                F(engine.used(), before)});
  // Ending a client takes back all its adds, the current one's hold first.
  ASSERT_EQ(FSS_add_font(child, "x", kSans, nullptr, 0), 0);
  ASSERT_EQ(FSS_add_font(child, nullptr, kSans, nullptr, 0), 0);
  ASSERT_EQ(load(child, kSerif, a), 0);
  ASSERT_EQ(FSS_set_font(child, "x"), 0);
  EXPECT_EQ(FSS_end_client(child), 0u);
  EXPECT_EQ(fonts(), 0);
  EXPECT_EQ(engine.used(), start);
}

/* ---- Memory, path and offset ---- */

TEST_F(FontLoad, PathMemoryAndOffsetsGiveTheSameFontData) {
  Bytes sans = readFont(kSans), serif = readFont(kSerif), wrapped(1000, 0xAB);
  wrapped.insert(wrapped.end(), serif.begin(), serif.end());
  std::string path = dir.file("wrapped.bin");
  testsupport::writeBytes(path, sfnt::asString(wrapped));
  // A path on one side only is another file: its own set, its name made unique.
  char n[4][64];
  ASSERT_EQ(load(st, kSans, n[0]), 0);
  ASSERT_EQ(FSS_load_font(st, nullptr, sans.data(), 0, 64, n[1]), 0);
  ASSERT_EQ(FSS_load_font_with_offset(st, path.c_str(), nullptr, 0, 1000,
                                      (FS_ULONG)serif.size(), 64, n[2]), 0);
  ASSERT_EQ(FSS_load_font_with_offset(st, nullptr, wrapped.data(), 0, 1000,
                                      (FS_ULONG)serif.size(), 64, n[3]), 0);
  const char* want[] = {"DejaVu Sans", "A DejaVu Sans", "DejaVu Serif", "A DejaVu Serif"};
  for (int i = 0; i < 4; i++) EXPECT_STREQ(n[i], want[i]);
  EXPECT_EQ(setNamed(st, n[1])->cfnt[0].lfnt->memptr, sans.data());
  // The wrapped file at offset 0 is no font at all.
  EXPECT_EQ(load(st, path.c_str(), n[0]), ERR_NOT_A_TTF);
  EXPECT_EQ(fonts(), 44);
  for (int i = 3; i >= 0; i--) EXPECT_EQ(FSS_delete_font(st, want[i]), 0);
  EXPECT_EQ(engine.used(), start);
}

TEST(FontChecksum, SumsTheFirst200WordsInHostOrder) {
  std::vector<FS_BYTE> bytes(500, 0);
  bytes[0] = 1;       // word 0 = 0x0001 on a little-endian host
  bytes[399] = 1;     // word 199 = 0x0100
  bytes[400] = 0xFF;  // word 200: beyond the 200
  EXPECT_EQ(FNTSET_checksum(bytes.data(), 0), 0x0101u);
  EXPECT_EQ(FNTSET_checksum(bytes.data(), 2), 0x0001u);  // a short image
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
      {file("header.ttf", head(12)), ERR_TABLE_NOT_FOUND},  // the directory reads as zeros
      {file("p.fnt", sfnt::asBytes("PFR0 and the rest of a font of another kind")),
       ERR_FONT_TYPE_UNSUPPORTED},
      // A linked font shorter than its head block.
      {file("l.ltt", sfnt::asBytes("LTT\n6\n1\nheader cut short\n")), ERR_FILE_READ},
  };
  char name[64];
  for (const auto& r : rows) {
    SCOPED_TRACE(r.path);
    strcpy(name, "untouched");
    EXPECT_EQ(load(st, r.path.c_str(), name), r.error);
    EXPECT_EQ(st->error, (FS_ULONG)r.error);
    EXPECT_STREQ(name, "untouched");
    EXPECT_EQ(FSS_add_font(st, "named", r.path.c_str(), nullptr, 0), r.error);
    expectFields({F(fonts(), 0), F(st->name_map, 0), F(engine.used(), start)});
  }
  FsLtt info;
  EXPECT_EQ(FSS_get_link_info(st, kSans, nullptr, &info), ERR_LINK_INFO);  // no linked font
  // Neither path nor memory.
  EXPECT_EQ(FSS_load_font(st, nullptr, nullptr, 0, 64, name), ERR_FONT_NOT_FOUND);
  EXPECT_EQ(load(st, "", name), ERR_FONT_NOT_FOUND);
  ASSERT_EQ(load(st, kSans, name), 0);  // still usable
  EXPECT_EQ(FSS_delete_font(st, name), 0);

  // A budget with no room for a font's resident tables refuses it, leaving nothing.
  enginetest::Engine small(8000);
  ASSERT_TRUE(small.started);
  FS_ULONG used = small.used();
  EXPECT_EQ(load(&small.st, kSans, name), ERR_MALLOC_FAIL);
  expectFields({F(small.server()->font_sets, 0), F(small.used(), used)});
}

/* ---- Names ---- */

TEST_F(FontLoad, AddsCountOnOneRecordAndNamesAreCheckedAndCut) {
  const struct { const char* name; const char* path; FS_LONG error; } adds[] = {
      {"text", kSans, 0}, {"other", kSans, ERR_FONT_NAME_IN_USE}, {"text", kSans, 0},
      {"text", kSerif, ERR_FONT_NAME_NOT_UNIQUE}, {"", kSerif, ERR_BAD_ARGUMENT}};
  for (const auto& a : adds)
    EXPECT_EQ(FSS_add_font(st, a.name, a.path, nullptr, 0), a.error) << a.name;
  EXPECT_EQ(fonts(), 11);  // a refused font's unheld set went at once
  // Another client may use the name for another font.
  FS_STATE* child = FSS_new_client(st, 0);
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(FSS_add_font(child, "text", kSerif, nullptr, 0), 0);
  EXPECT_EQ(FSS_end_client(child), 0u);
  // Two adds on one record: two deletes, then none left.
  EXPECT_EQ(FSS_delete_font(st, "text"), 0);
  EXPECT_EQ(FSS_delete_font(st, "text"), 0);
  EXPECT_EQ(FSS_delete_font(st, "text"), ERR_FONT_NOT_FOUND);
  // An existing name isn't cut ("DejaVu Sans Mono" needs 17 bytes), a new font's is.
  char a[64], small[11];
  ASSERT_EQ(load(st, kMono, a), 0);
  EXPECT_EQ(load(st, kMono, small, sizeof small), ERR_FONT_NAME_TOO_LONG);
  ASSERT_EQ(load(st, kSerif, small, sizeof small), 0);
  EXPECT_STREQ(small, "DejaVu Ser");
}

TEST_F(FontLoad, UniqueNamesCountInBase52LeastSignificantFirst) {
  char name[64];
  ASSERT_EQ(load(st, kSans, name), 0);
  FNTSET* set = st->server->font_sets;
  // Taken one after the other: the 1st is "A", the 27th "a", the 53rd "AB" (0 + 1 * 52).
  ASSERT_EQ(FS_STATE_add_named_FNTSET(st, "Seed", set), 0);
  std::vector<std::string> taken;
  for (int i = 0; i < 53; i++) {
    ASSERT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, sizeof name), 0);
    taken.push_back(name);
    ASSERT_EQ(FS_STATE_add_named_FNTSET(st, name, set), 0);
  }
  for (auto r : {std::pair<int, const char*>{0, "A Seed"}, {26, "a Seed"}, {52, "AB Seed"}})
    EXPECT_EQ(taken[r.first], r.second);
  // Cut to the buffer: with "Se" taken, 3 bytes leave "A " (no room for the seed).
  ASSERT_EQ(FS_STATE_add_named_FNTSET(st, "Se", set), 0);
  ASSERT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, 3), 0);
  EXPECT_STREQ(name, "A ");
  EXPECT_EQ(FS_STATE_unique_fntset_name(st, "Seed", name, 1), ERR_FONT_NAME_TOO_LONG);
}

/* ---- Setting and deleting ---- */

TEST_F(FontLoad, SettingAndDeletingTheCurrentFontKeepOrDropItsStateAndAHeldGlyphStopsIt) {
  char name[64], other[64];
  ASSERT_EQ(load(st, kSans, name), 0);
  ASSERT_EQ(FSS_set_font(st, name), 0);
  SFNT* sfnt = enginetest::makeSfnt(st, st->server->loaded_fonts);
  st->cur_sfnt = sfnt;
  st->cur_lfnt = st->server->loaded_fonts;
  st->cur_typeset.tfntarray[0].sfnt = sfnt;
  sfnt->ref_count = 1;
  ASSERT_EQ(FSS_set_font(st, name), 0);
  EXPECT_EQ(st->cur_sfnt, sfnt);
  // Another font drops the hold; deleting a font takes its scaled fonts.
  ASSERT_EQ(load(st, kSerif, other), 0);
  ASSERT_EQ(FSS_set_font(st, other), 0);
  expectFields({F(st->cur_sfnt, 0), F(sfnt->ref_count, 0), F(st->server->scaled_fonts, sfnt),
                F(FSS_delete_font(st, name), 0), F(st->server->scaled_fonts, 0)});
  // Deleting the current font forgets the cmap choice.
  st->platform = 3;
  st->encoding = 1;
  EXPECT_EQ(FSS_delete_font(st, other), 0);
  expectFields({F(st->platform, 0xFFFF), F(st->encoding, 0xFFFF),
                F(FSS_set_font(st, other), ERR_FONT_NOT_FOUND)});
  EXPECT_EQ(engine.used(), start + sizeof(TFNT) + 8);  // the kept one-entry typeset array
  // A held glyph of an unshared font keeps it from going.
  ASSERT_EQ(load(st, kSans, name), 0);
  sfnt = enginetest::makeSfnt(st, st->server->loaded_fonts);
  sfnt->active_count = 1;
  EXPECT_EQ(FSS_delete_font(st, name), ERR_FONT_IN_USE);
  // Only the last add is checked: a second one comes off freely.
  ASSERT_EQ(load(st, kSans, name), 0);
  EXPECT_EQ(FSS_delete_font(st, name), 0);
  EXPECT_EQ(FSS_delete_font(st, name), ERR_FONT_IN_USE);
  sfnt->active_count = 0;
  expectFields({F(FSS_delete_font(st, name), 0), F(fonts(), 0), F(engine.used(), start + sizeof(TFNT) + 8)});
}

/* ---- What loading records ---- */

TEST_F(FontLoad, LoadingClassifiesTheFontAndSizesItsCmapCache) {
  // Cache masks: glyphs / 10 to the nearer power of two, at least 256: 625
  // -> 512, 352 -> 256, 0 -> 256. The oblique's hhea caret has a run of 19.
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
  // Dropping the data keeps the record; loading brings it back.
  LFNT* upright = setNamed(st, "DejaVu Sans")->cfnt[0].lfnt;
  unload_fnt(st, upright);
  expectFields({F(upright->fnt, 0), F(load_fnt(st, upright), 0),
                F(upright->cmap_cache_mod, 511), F(((TTF*)upright->fnt)->head->unitsPerEm, 2048)});
}

TEST_F(FontLoad, GlyphDataFormatsSetTheFontFlags) {
  const struct { uint32_t format; bool adfh; FS_LONG error; FS_ULONG flags; } rows[] = {
      {0x9655, false, 0, 2 | 64 | 128},    // stroke with special handling
      {0x0500, true, 0, 256 | 16},         // ddd with its ADFH
      {0x0500, false, ERR_BAD_TYPE, 0},    // ddd without: refused
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
  // The child's names first, newest first; a parent doesn't see its child's.
  const struct { FS_STATE* client; FS_BYTE style, face; const char* list; } rows[] = {
      {child, 4, 2, "oblique,bold,mono,sans"}, {child, 2, 2, "bold"},  // macStyle 1
      {child, 1, 2, "oblique"},                                       // macStyle 2
      {child, 4, 1, "mono"},  // panose family 2, proportion 9
      {child, 4, 0, "oblique,bold,sans"}, {st, 4, 2, "mono,sans"}};
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
  // 40 more names: 400 bytes with their separators, beyond the list's first 256.
  for (int i = 0; i < 40; i++) {
    char name[16];
    snprintf(name, sizeof name, "name-%04d", i);
    ASSERT_EQ(FS_STATE_add_named_FNTSET(st, name, setNamed(st, "sans")), 0);
  }
  FILECHAR* list = nullptr;
  ASSERT_EQ(FSS_get_available_fonts(st, 4, 2, &list, &length), 0);
  EXPECT_EQ(length, 40u * 10 + 9);  // "name-0039,...,name-0000,mono,sans"
  EXPECT_STREQ(list + length - 19, "name-0000,mono,sans");
  FSS_free(st, list);
}

}  // namespace
