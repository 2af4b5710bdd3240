// The TrueType container loader: fonts built byte by byte and DejaVu Sans,
// from file and memory, collections, one table of loads and refusals with
// their codes, and malformed input refused without reading outside the data.
#include <gtest/gtest.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_sbit.h"
#include "Orvex_internal/fs_ttf.h"
#include "engine_fixture.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

using sfnt::Bytes;

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const FS_ULONG kLoads = 0xFFFFFFFF;  // a table's "expected": the font loads

// A decoded field against its hand-read value, named by its expression.
struct Field { const char* name; long long got, want; };
#define F(got, want) Field{#got, (long long)(got), (long long)(want)}
void expectFields(std::initializer_list<Field> fields) {
  for (const Field& f : fields) EXPECT_EQ(f.got, f.want) << f.name;
}

// The minimal glyf font after `edit`, built.
Bytes edited(const std::function<void(sfnt::Font&)>& edit) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  edit(f);
  return sfnt::build(f);
}
uint32_t offsetOf(const Bytes& b, const char* tag) {
  return sfnt::getU32(b, sfnt::entryOf(b, tag) + 8);
}

// An EBLC of `numSizes` strike records, the first at 12 ppem with one index
// subtable for glyph 1 (ascender 10, subtable 8 bytes on).
Bytes oneStrikeEblc(uint32_t numSizes = 1) {
  Bytes t;
  for (uint32_t v : {0x00020000u, numSizes, 56u, 8u, 1u, 0u}) sfnt::u32(t, v);
  for (int i = 0; i < 24; i++) sfnt::u8(t, i == 0 ? 10 : 0);  // hori, vert
  for (uint32_t v : {1u, 1u}) sfnt::u16(t, v);  // glyphs 1..1
  for (uint32_t v : {12u, 12u, 1u, 1u}) sfnt::u8(t, v);  // ppem, depth, flags
  for (uint32_t v : {1u, 1u}) sfnt::u16(t, v);
  sfnt::u32(t, 8);
  return t;
}

// A root engine client with room for any font; every test must give back
// all it loaded, which TearDown checks.
class TtfLoad : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(engine.started);
    st = &engine.st;
    baseline = engine.used();
  }
  void TearDown() override { EXPECT_EQ(engine.used(), baseline); }
  TTF* loadMemory(const Bytes& b, FS_ULONG index = 0, FS_BOOLEAN validate = 0,
                  FS_BYTE type = 0) {
    return load_ttf(st, nullptr, (FS_BYTE*)b.data(), index, 0, (FS_ULONG)b.size(), validate,
                    type);
  }
  TTF* loadFile(const std::string& path, FS_ULONG index = 0, FS_BOOLEAN validate = 0,
                FS_BYTE type = 0) {
    return load_ttf(st, (FILECHAR*)path.c_str(), nullptr, index, 0, 0, validate, type);
  }
  std::string writeFont(const Bytes& b, const std::string& name = "f.ttf") {
    testsupport::writeBytes(dir.file(name), sfnt::asString(b));
    return dir.file(name);
  }
  // Loads from memory and from a file: both load (kLoads) or are refused
  // with `code`.
  void expectOutcome(const Bytes& b, FS_ULONG code, FS_BOOLEAN validate = 0,
                     FS_BYTE type = 0) {
    for (int fromFile = 0; fromFile < 2; fromFile++) {
      st->error = 0;
      TTF* t = fromFile ? loadFile(writeFont(b), 0, validate, type)
                        : loadMemory(b, 0, validate, type);
      const char* from = fromFile ? "from a file" : "from memory";
      EXPECT_EQ(t != nullptr, code == kLoads) << from << ": " << st->error;
      EXPECT_EQ(code == kLoads ? code : st->error, code) << from;
      unload_ttf(st, t);
    }
  }
  Bytes dejaVuSans() {
    Bytes b = sfnt::asBytes(testsupport::readBytes(kDejaVuSans));
    EXPECT_EQ(b.size(), 759720u) << "missing font " << kDejaVuSans;
    return b;
  }

  enginetest::Engine engine{64u << 20};
  FS_STATE* st = nullptr;
  FS_ULONG baseline = 0;
  testsupport::TempDir dir;
};

}  // namespace

/* ---- Collections ---- */

TEST_F(TtfLoad, CollectionMembersAreFoundThroughTheOffsetTableAndIndexChecked) {
  sfnt::Font a = sfnt::minimalGlyfFont(), b = sfnt::minimalGlyfFont();
  b.set("head", sfnt::head(2048, -1, -2, 3, 4));
  Bytes ttc = sfnt::buildCollection({a, b});
  std::string path = writeFont(ttc, "c.ttc");
  for (int fromFile = 0; fromFile < 2; fromFile++) {
    for (FS_ULONG index : {1, 0}) {
      TTF* t = fromFile ? loadFile(path, index) : loadMemory(ttc, index);
      ASSERT_NE(t, nullptr) << st->error;
      EXPECT_EQ(t->head->unitsPerEm, index ? 2048 : 1000);
      unload_ttf(st, t);
    }
    // An index equal to the face count is 404.
    EXPECT_EQ(fromFile ? loadFile(path, 2) : loadMemory(ttc, 2), nullptr);
    EXPECT_EQ(st->error, (FS_ULONG)ERR_TTC_BAD_INDEX);
  }
}

/* ---- Loads and refusals, from memory and from a file ---- */

TEST_F(TtfLoad, StructuralChecksLoadOrRefuseWithTheirCodes) {
  auto version = [](uint32_t v) { return edited([v](sfnt::Font& f) { f.version = v; }); };
  auto without = [](std::vector<const char*> tags) {
    return edited([tags](sfnt::Font& f) { for (auto t : tags) f.remove(t); });
  };
  auto adding = [](std::vector<std::pair<const char*, Bytes>> tables) {
    return edited([tables](sfnt::Font& f) { for (auto& t : tables) f.set(t.first, t.second); });
  };
  // The minimal font with `zzzz`, then the directory fields of `tag` (8:
  // offset, 12: length) set to values.
  auto entry = [](const char* tag, std::vector<std::pair<size_t, uint32_t>> fields) {
    Bytes b = edited([](sfnt::Font& f) { f.set("zzzz", Bytes(4, 0)); });
    for (auto& f : fields) sfnt::putU32(b, sfnt::entryOf(b, tag) + f.first, f.second);
    return b;
  };
  const uint32_t cmapAt = offsetOf(entry("zzzz", {}), "cmap");
  auto entries = [](size_t n) {  // the minimal font padded to n tables
    return edited([n](sfnt::Font& f) {
      for (int i = 0; f.tables.size() < n; i++) f.set("x" + std::to_string(100 + i), Bytes(4, 0));
    });
  };
  // 21 cmap records, all at an odd offset (173): too many to realign.
  Bytes oddCmap;
  for (uint32_t v : {0, 21}) sfnt::u16(oddCmap, v);
  for (int i = 0; i < 21; i++)
    for (uint32_t v : {3u, 1u, 0u, 4u + 8 * 21 + 1}) sfnt::u16(oddCmap, v);
  Bytes sub = sfnt::cmap(12);
  oddCmap.push_back(0);
  oddCmap.insert(oddCmap.end(), sub.begin() + 12, sub.end());
  sfnt::Font cffWrongMaxp = sfnt::minimalCffFont(5);
  cffWrongMaxp.set("maxp", sfnt::maxp10(5));

  struct Row { const char* why; Bytes font; FS_ULONG want; FS_BOOLEAN validate = 0;
               FS_BYTE type = 0; } rows[] = {
      {"sfnt version 'true'", version(sfnt::tagOf("true")), kLoads},
      {"sfnt version 'wOFF'", version(sfnt::tagOf("wOFF")), ERR_NOT_A_TTF},
      {"head magic one off", adding({{"head", sfnt::head(1000, 0, 0, 1, 1, 0, 0x5F0F3CF4)}}),
       ERR_NOT_A_TTF},
      // each required table by its own reader: header, metrics, cmap, name
      {"no head", without({"head"}), ERR_TABLE_NOT_FOUND},
      {"no hmtx", without({"hmtx"}), ERR_TABLE_NOT_FOUND},
      {"no cmap", without({"cmap"}), ERR_TABLE_NOT_FOUND},
      {"no name", without({"name"}), ERR_TABLE_NOT_FOUND},
      {"glyf font with maxp 0.5", adding({{"maxp", sfnt::maxp05(2)}}), ERR_MAXP_VERSION_TT},
      {"no outlines nor bitmaps: error 0", without({"glyf", "loca"}), 0},
      {"EBLC without EBDT, even with glyf", adding({{"EBLC", Bytes(8, 0)}}), ERR_TABLE_NOT_FOUND},
      {"CBLC without CBDT", adding({{"CBLC", Bytes(8, 0)}}), ERR_TABLE_NOT_FOUND},
      {"EBLC of 2 sizes, 1 present", adding({{"EBLC", oneStrikeEblc(2)}, {"EBDT", Bytes(4, 0)}}),
       ERR_EBLC},
      {"vmtx without vhea", adding({{"vmtx", Bytes(8, 0)}}), ERR_TABLE_NOT_FOUND},
      {"CFF type without a CFF table", entry("zzzz", {}), ERR_TABLE_NOT_FOUND, 0, FNT_TYPE_OTT},
      {"CFF font with maxp 1.0: forgiven", sfnt::build(cffWrongMaxp), kLoads, 0, FNT_TYPE_OTT},
      {"glyf length past the end", entry("glyf", {{12, 0x7FFFFFF0}}), ERR_TABLE_DIR},
      {"glyf offset + length wraps 32 bits", entry("glyf", {{8, 0xFFFFFFF0}, {12, 0x20}}),
       ERR_TABLE_DIR},
      {"no tables, validated", sfnt::build(sfnt::Font()), ERR_TABLE_DIR, 1},
      {"no tables", sfnt::build(sfnt::Font()), ERR_TABLE_NOT_FOUND},
      // `zzzz` 2 bytes into `cmap`; then at its start with length 0, which
      // fails too when the other entry, taken as the container, has a length.
      {"overlapping tables, validated", entry("zzzz", {{8, cmapAt + 2}}), ERR_TABLE_DIR, 1},
      {"empty entry at a table's start, validated", entry("zzzz", {{8, cmapAt}, {12, 0}}),
       ERR_TABLE_DIR, 1},
      {"two empty entries at one place, validated",
       adding({{"yyyy", Bytes()}, {"zzzz", Bytes()}}), kLoads, 1},
      // Past 50 entries the directory stays unconverted: nothing is found.
      {"51 entries", entries(51), ERR_TABLE_NOT_FOUND},
      {"51 entries, validated", entries(51), ERR_TABLE_DIR, 1},
      {"50 entries", entries(50), kLoads},
      {"21 odd cmap subtables", adding({{"cmap", oddCmap}}), ERR_UNICODE_CMAP_NEEDED},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.why);
    expectOutcome(r.font, r.want, r.validate, r.type);
  }
}

TEST_F(TtfLoad, FileOnlyRefusals) {
  EXPECT_EQ(loadFile(writeFont(Bytes())), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_NOT_A_TTF);
  EXPECT_EQ(loadFile(dir.file("absent.ttf")), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_FILE_OPEN);
  // A compressed font: refused from a file; in memory, a `zrp3` table too
  // short for its own header is damaged data.
  Bytes packed = edited([](sfnt::Font& f) { f.set("zrp3", Bytes(8, 0)); });
  EXPECT_EQ(loadFile(writeFont(packed)), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_COMPRESSED_FROM_FILE);
  EXPECT_EQ(loadMemory(packed), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_DECOMP_STREAM);
}

TEST_F(TtfLoad, TruncatedFontsAreRefusedUntilTheirLastTableIsWhole) {
  // DejaVu Sans cut at every 64th: its directory ends at 332, before the
  // first cut (11870), and `prep` ends at the file's end, so every cut
  // leaves a table beyond the data: 448.
  Bytes whole = dejaVuSans();
  for (size_t k = 1; k < 64; k++) {
    SCOPED_TRACE(whole.size() * k / 64);
    expectOutcome(Bytes(whole.begin(), whole.begin() + whole.size() * k / 64),
                  ERR_TABLE_DIR);
  }
  // The built font cut at every byte (a copy of exactly that length, so the
  // sanitizer sees any read beyond it); from memory a length of 0 would mean
  // "unknown", so cuts start at 1.
  Bytes built = sfnt::build(sfnt::minimalGlyfFont());
  size_t lastEnd = 0;
  for (size_t i = 0; i < sfnt::getU16(built, 4); i++)
    lastEnd = std::max<size_t>(lastEnd, sfnt::getU32(built, 20 + 16 * i) +
                                            sfnt::getU32(built, 24 + 16 * i));
  for (size_t cut = 1; cut < built.size(); cut++) {
    Bytes part(built.begin(), built.begin() + cut);
    TTF* t = loadMemory(part);
    EXPECT_EQ(t != nullptr, cut >= lastEnd) << cut;
    FS_ULONG e = cut < lastEnd ? st->error : (FS_ULONG)ERR_TABLE_DIR;
    EXPECT_TRUE(e == ERR_NOT_A_TTF || e == ERR_TABLE_NOT_FOUND || e == ERR_TABLE_DIR)
        << cut << ": " << e;
    unload_ttf(st, t);
  }
  for (size_t cut = 0; cut < lastEnd; cut += 8)
    EXPECT_EQ(loadFile(writeFont(Bytes(built.begin(), built.begin() + cut))), nullptr)
        << cut;
}

TEST_F(TtfLoad, RefusalsUnderAShortBudgetAre201AndGiveBackEverything) {
  Bytes b = dejaVuSans();
  for (FS_ULONG budget = 4000; budget < 120000; budget += 2500) {
    engine.server()->heap_size = engine.used() + budget;
    TTF* ttf = loadMemory(b);
    EXPECT_EQ(ttf ? (FS_ULONG)ERR_MALLOC_FAIL : st->error, (FS_ULONG)ERR_MALLOC_FAIL)
        << budget;
    unload_ttf(st, ttf);
    EXPECT_EQ(engine.used(), baseline) << budget;
  }
  engine.server()->heap_size = 64u << 20;
}

TEST_F(TtfLoad, MutatedFontsAreLoadedOrRefusedWithoutStrayReads) {
  // Bytes of a small font overwritten at fixed pseudo-random places (a
  // linear congruential sequence, the same fonts every run); each copy is
  // exactly as long as the font, so the sanitizer build catches any read
  // beyond it. Whatever the outcome, nothing stays charged.
  const Bytes whole = edited([](sfnt::Font& f) {
    f.set("OS/2", Bytes(78, 0)).set("vmtx", Bytes(8, 0)).set("vhea", sfnt::vhea(1, -1));
    f.set("EBLC", oneStrikeEblc()).set("EBDT", Bytes(4, 0));
  });
  uint32_t seed = 12345;
  auto next = [&seed]() { return seed = seed * 1103515245u + 12345u; };
  int loaded = 0;
  for (int round = 0; round < 3000; round++) {
    Bytes b = whole;
    for (int k = 0; k < 1 + round % 4; k++)
      b[(next() >> 8) % b.size()] = (uint8_t)(next() >> 16);
    TTF* ttf = loadMemory(b, 0, (FS_BOOLEAN)(round & 1));
    loaded += ttf != nullptr;
    unload_ttf(st, ttf);
    ASSERT_EQ(engine.used(), baseline) << round;
  }
  EXPECT_GT(loaded, 100);  // most changes land in data the loader tolerates
}

/* ---- The read path and table look-up ---- */

TEST_F(TtfLoad, ReadsBeyondTheDataGiveZerosWithoutError) {
  Bytes b = sfnt::build(sfnt::minimalGlyfFont());
  FS_ULONG n = (FS_ULONG)b.size();
  std::string path = writeFont(b);
  for (int fromFile = 0; fromFile < 2; fromFile++) {
    TTF* ttf = fromFile ? loadFile(path) : loadMemory(b);
    ASSERT_NE(ttf, nullptr);
    // Size 0: null, size 0, the error state untouched.
    st->error = 777;
    FS_LONG size = -1;
    EXPECT_EQ(ttf_read_ex(st, ttf, 0, 0, &size), nullptr);
    expectFields({F(size, 0), F(st->error, 777)});
    // Four bytes inside and four beyond: the whole copy is zeroed...
    FS_BYTE* p = (FS_BYTE*)ttf_read_ex(st, ttf, n - 4, 8, &size);
    ASSERT_NE(p, nullptr);
    expectFields({F(size, 8), F(st->error, 0), F(get_u32(p), 0), F(get_u32(p + 4), 0)});
    FSS_free(st, p);
    // ...while the caller's buffer keeps what was read and zeros the tail.
    FS_BYTE buf[8];
    memset(buf, 0x55, sizeof buf);
    ttf_read_buf(st, ttf, n - 4, 8, buf);
    expectFields({F(get_u32(buf), sfnt::getU32(b, n - 4)), F(get_u32(buf + 4), 0),
                  F(st->error, 0)});
    unload_ttf(st, ttf);
  }
}

TEST_F(TtfLoad, TableLookupFindsTheFirstEntryAndMissesWith405) {
  // `yyyy` retagged as a second, 2-byte `zzzz`.
  Bytes b = edited([](sfnt::Font& f) { f.set("zzzz", Bytes(6, 1)).set("yyyy", Bytes(2, 2)); });
  sfnt::putU32(b, sfnt::entryOf(b, "yyyy"), sfnt::tagOf("zzzz"));
  TTF* ttf = loadMemory(b);
  ASSERT_NE(ttf, nullptr) << st->error;
  FS_ULONG off = 1, len = 1;
  st->error = 123;  // a hit leaves the error state alone
  EXPECT_EQ(get_ttf_table_info(st, ttf, sfnt::tagOf("zzzz"), &off, &len), 1);
  expectFields({F(len, 6), F(st->error, 123)});
  EXPECT_EQ(get_ttf_table_info(st, ttf, TAG_kern, &off, &len), 0);
  expectFields({F(off, 0), F(len, 0), F(st->error, ERR_TABLE_NOT_FOUND)});
  FS_BYTE* copy = (FS_BYTE*)get_ttf_table(st, ttf, sfnt::tagOf("zzzz"));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(memcmp(copy, Bytes(6, 1).data(), 6), 0);
  FSS_free(st, copy);
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, CmapIsLentInPlaceFromMemoryUnlessASubtableStandsAtAnOddOffset) {
  Bytes b = sfnt::build(sfnt::minimalGlyfFont());
  TTF* ttf = loadMemory(b);
  ASSERT_NE(ttf, nullptr) << st->error;
  expectFields({F(ttf->own_cmap, 0), F((FS_BYTE*)ttf->cmap - b.data(), offsetOf(b, "cmap")),
                F((FS_BYTE*)ttf->loca - b.data(), offsetOf(b, "loca"))});
  unload_ttf(st, ttf);
  ttf = loadMemory(edited([](sfnt::Font& f) { f.set("cmap", sfnt::cmap(13)); }));
  ASSERT_NE(ttf, nullptr) << st->error;
  const FS_BYTE* c = (const FS_BYTE*)ttf->cmap;
  // One subtable at 13 of size 275 - 13 = 262 (even); no earlier odd size,
  // and 0 + 13 is odd, so it moves by 1 to 14. 'a' (97) maps to glyph 1.
  expectFields({F(ttf->own_cmap, 1), F(get_u32(c + 8), 14), F(get_u16(c + 16), 262),
                F(c[14 + 6 + 'a'], 1)});
  unload_ttf(st, ttf);
}

/* ---- Tables decoded at load ---- */

TEST(TtfName, PassesChooseRecordsCutLongNamesAndMarkMissingOnes) {
  std::string fifty(50, 'n'), fortyNine(49, 'n');
  Bytes cut = sfnt::name({{1, 0, 0, 4, "Truncated"}});
  cut.resize(cut.size() - 4);  // the record points beyond the table
  struct Row { const char* why; Bytes table; std::string full, family, copyright; } rows[] = {
      {"platform 1 fills blanks and overwrites the first pass",
       sfnt::name({{3, 1, 1033, 4, "Full Three"}, {3, 1, 1031, 1, "Deutsch"},
                   {3, 1, 1033, 0, "C3"}, {1, 0, 0, 1, "Fam One"}, {1, 0, 0, 4, "Full One"}}),
       "Full One", "Fam One", "C3"},
      {"long names cut to 49 and 2047", sfnt::name({{3, 1, 1033, 4, fifty},
       {3, 1, 1033, 1, fortyNine}, {3, 1, 1033, 0, std::string(2048, 'c')}}),
       fortyNine, fortyNine, std::string(2047, 'c')},
      {"no records", sfnt::name({}), "NOT FOUND", "NOT FOUND", "NOT FOUND"},
      {"a record beyond the table is read as far as it goes", cut, "Trunc", "NOT FOUND",
       "NOT FOUND"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.why);
    TTF_NAME n;
    memset(&n, 0, sizeof n);
    get_abbreviated_name(r.table.data(), (FS_ULONG)r.table.size(), &n);
    EXPECT_EQ(n.font_name, r.full);
    EXPECT_EQ(n.font_family_name, r.family);
    EXPECT_EQ(n.copyright, r.copyright);
  }
}

TEST_F(TtfLoad, OptionalTablesAreReadWholeOrKeptByOffset) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("prep", {0xB0, 0x01, 0x5D}).set("gasp", {0, 1, 0, 0}).set("FLNT", Bytes(4, 0));
  f.set("vmtx", Bytes(8, 0)).set("vhea", sfnt::vhea(500, -500));
  Bytes b = sfnt::build(f);
  TTF* ttf = loadFile(writeFont(b));
  ASSERT_NE(ttf, nullptr) << st->error;
  expectFields({F(ttf->num_prep, 3), F(ttf->prep[2], 0x5D), F(ttf->gasp != nullptr, 1),
                F(ttf->isFlintTablePresent, 1), F(ttf->vhea->ascent, 500),
                F(ttf->vmtx_offset, offsetOf(b, "vmtx")), F(ttf->os2, 0)});  // no OS/2: tolerated
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, BitmapOnlyFontKeepsItsStrikeRecords) {
  for (std::string kind : {"EBLC", "CBLC"}) {
    TTF* ttf = loadMemory(edited([&kind](sfnt::Font& f) {
      f.remove("glyf").remove("loca").set(kind, oneStrikeEblc());
      f.set(kind == "EBLC" ? "EBDT" : "CBDT", Bytes(12, 0));
    }));
    ASSERT_NE(ttf, nullptr) << kind << ": " << st->error;
    TTF_EBLC_PARTIAL* p = ttf->ttf_EBLC_partial;
    ASSERT_NE(p, nullptr);
    expectFields({F(ttf->isCBLC, kind == "CBLC"), F(p->numSizes, 1),
                  F(p->bsta[0].bst.ppemY, 12), F(p->bsta[0].bst.hori.ascender, 10)});
    unload_ttf(st, ttf);
  }
}
