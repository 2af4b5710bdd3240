// The TrueType container loader: real Debian fonts from file and memory,
// collections, CFF containers and the compact formats built byte by byte,
// the refusals with their codes, and malformed input that must be refused
// without reading outside the data (also run under the sanitizers).
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_sbit.h"
#include "Orvex_internal/fs_ttf.h"
#include "engine_fixture.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

using sfnt::Bytes;

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// A root client with room for any font; every test must give back all it
// loaded, which TearDown checks.
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
    return load_ttf(st, nullptr, (FS_BYTE*)b.data(), index, 0,
                    (FS_ULONG)b.size(), validate, type);
  }
  TTF* loadFile(const std::string& path, FS_ULONG index = 0,
                FS_BOOLEAN validate = 0, FS_BYTE type = 0) {
    return load_ttf(st, (FILECHAR*)path.c_str(), nullptr, index, 0, 0,
                    validate, type);
  }
  std::string writeFont(const Bytes& b, const std::string& name = "f.ttf") {
    std::string path = dir.file(name);
    testsupport::writeBytes(path, sfnt::asString(b));
    return path;
  }
  // Loads from memory and from a file; both must be refused with `code`.
  void expectRefused(const Bytes& b, FS_ULONG code, FS_BOOLEAN validate = 0,
                     FS_BYTE type = 0) {
    st->error = 0;
    TTF* m = loadMemory(b, 0, validate, type);
    EXPECT_EQ(m, nullptr);
    EXPECT_EQ(st->error, code) << "from memory";
    unload_ttf(st, m);
    st->error = 0;
    TTF* f = loadFile(writeFont(b), 0, validate, type);
    EXPECT_EQ(f, nullptr);
    EXPECT_EQ(st->error, code) << "from a file";
    unload_ttf(st, f);
  }
  Bytes realFont(const char* path) {
    return sfnt::asBytes(testsupport::readBytes(path));
  }

  enginetest::Engine engine{64u << 20};
  FS_STATE* st = nullptr;
  FS_ULONG baseline = 0;
  testsupport::TempDir dir;
};

}  // namespace

/* ---- Real fonts ---- */

TEST_F(TtfLoad, DejaVuSansFromFileKeepsHeadersResidentAndOffsetsOnDemand) {
  TTF* ttf = loadFile(kDejaVuSans);
  ASSERT_NE(ttf, nullptr) << st->error;
  EXPECT_EQ(st->error, 0u);
  EXPECT_EQ(ttf->ttc_header, nullptr);
  EXPECT_EQ(ttf->ttf_offset, 0u);
  EXPECT_EQ(ttf->ttf_header->numTables, 20);
  EXPECT_EQ(ttf->maxp->numGlyphs, 6253);
  EXPECT_EQ(ttf->maxp->maxFunctionDefs, 8);
  EXPECT_EQ(ttf->head->unitsPerEm, 2048);
  EXPECT_EQ(ttf->head->xMin, -2090);
  EXPECT_EQ(ttf->head->yMin, -948);
  EXPECT_EQ(ttf->head->xMax, 3673);
  EXPECT_EQ(ttf->head->yMax, 2524);
  EXPECT_EQ(ttf->hhea->yAscender, 1901);
  EXPECT_EQ(ttf->hhea->yDescender, -483);
  // On-demand tables by offset, from the directory.
  EXPECT_EQ(ttf->glyf_offset, 56648u);
  EXPECT_EQ(ttf->glyf_size, 557508u);
  EXPECT_EQ(ttf->hmtx_offset, 614248u);
  EXPECT_EQ(ttf->kern_offset, 639232u);
  EXPECT_EQ(ttf->vmtx_offset, 0u);
  EXPECT_EQ(ttf->vhea, nullptr);
  EXPECT_EQ(ttf->eblc_offset, 0u);
  EXPECT_EQ(ttf->loca_offset, 0u);  // declared, left 0
  // Whole tables: heap copies for a file font, in file byte order.
  ASSERT_NE(ttf->cmap, nullptr);
  EXPECT_EQ(ttf->own_cmap, 1u);
  EXPECT_EQ(ttf->num_cvt, 255);   // 510 bytes
  EXPECT_EQ(ttf->num_fpgm, 171);
  EXPECT_EQ(ttf->num_prep, 1384);
  ASSERT_NE(ttf->gasp, nullptr);
  EXPECT_EQ(get_u16(ttf->gasp + 2), 2);  // two ranges, still big-endian
  ASSERT_NE(ttf->loca, nullptr);
  EXPECT_NE(ttf->functionDefs, nullptr);
  EXPECT_EQ(ttf->instructionDefs, nullptr);  // maxInstructionDefs 0
  EXPECT_EQ(ttf->cff, nullptr);
  ASSERT_NE(ttf->os2, nullptr);
  EXPECT_EQ(ttf->os2->version, 1);  // 86 bytes
  ASSERT_NE(ttf->name, nullptr);
  EXPECT_STREQ(ttf->name->font_name, "DejaVu Sans");
  EXPECT_STREQ(ttf->name->font_family_name, "DejaVu Sans");
  EXPECT_NE(ttf->fp, nullptr);
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, MemoryFontLendsLocaAndCmapInPlace) {
  Bytes b = realFont(kDejaVuSans);
  ASSERT_EQ(b.size(), 759720u);
  TTF* ttf = loadMemory(b);
  ASSERT_NE(ttf, nullptr) << st->error;
  EXPECT_EQ(ttf->fp, nullptr);
  EXPECT_EQ(ttf->path, nullptr);
  EXPECT_EQ((FS_BYTE*)ttf->loca, b.data() + 655612);
  EXPECT_EQ((FS_BYTE*)ttf->cmap, b.data() + 48896);
  EXPECT_EQ(ttf->own_cmap, 0u);
  EXPECT_EQ(ttf->maxp->numGlyphs, 6253);
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, FontInsideALargerFileIsReadFromItsOffset) {
  Bytes font = sfnt::build(sfnt::minimalGlyfFont());
  Bytes file(100, 0xAA);
  file.insert(file.end(), font.begin(), font.end());
  std::string path = writeFont(file);
  TTF* ttf = load_ttf(st, (FILECHAR*)path.c_str(), nullptr, 0, 100,
                      (FS_ULONG)font.size(), 0, 0);
  ASSERT_NE(ttf, nullptr) << st->error;
  EXPECT_EQ(ttf->head->unitsPerEm, 1000);
  EXPECT_EQ(ttf->data_offset, 100u);
  unload_ttf(st, ttf);
  TTF* m = load_ttf(st, nullptr, file.data(), 0, 100, (FS_ULONG)font.size(),
                    0, 0);
  ASSERT_NE(m, nullptr) << st->error;
  EXPECT_EQ(m->maxp->numGlyphs, 2);
  unload_ttf(st, m);
}

/* ---- Collections ---- */

TEST_F(TtfLoad, CollectionMemberIsFoundThroughTheOffsetTable) {
  sfnt::Font a = sfnt::minimalGlyfFont();
  sfnt::Font b = sfnt::minimalGlyfFont();
  b.set("head", sfnt::head(2048, -1, -2, 3, 4));
  Bytes ttc = sfnt::buildCollection({a, b});
  std::string path = writeFont(ttc, "c.ttc");
  for (int fromFile = 0; fromFile < 2; fromFile++) {
    TTF* t1 = fromFile ? loadFile(path, 1) : loadMemory(ttc, 1);
    ASSERT_NE(t1, nullptr) << st->error;
    ASSERT_NE(t1->ttc_header, nullptr);
    EXPECT_EQ(t1->ttc_header->tag, TAG_ttcf);
    EXPECT_EQ(t1->ttc_header->numFonts, 2u);
    // Header 12 + 2 offsets = 20 for member 0; its 8-table directory takes
    // 12 + 128 bytes, so member 1 stands at 160.
    EXPECT_EQ(t1->ttc_header->offsets[0], 20u);
    EXPECT_EQ(t1->ttf_offset, 160u);
    EXPECT_EQ(t1->head->unitsPerEm, 2048);
    EXPECT_EQ(t1->head->yMax, 4);
    unload_ttf(st, t1);
    TTF* t0 = fromFile ? loadFile(path, 0) : loadMemory(ttc, 0);
    ASSERT_NE(t0, nullptr);
    EXPECT_EQ(t0->ttf_offset, 20u);
    EXPECT_EQ(t0->head->unitsPerEm, 1000);
    unload_ttf(st, t0);
  }
}

TEST_F(TtfLoad, CollectionIndexAtOrPastTheFaceCountIs404) {
  Bytes ttc = sfnt::buildCollection(
      {sfnt::minimalGlyfFont(), sfnt::minimalGlyfFont()});
  std::string path = writeFont(ttc, "c.ttc");
  for (FS_ULONG index : {2u, 3u, 0xFFFFFFFFu}) {
    EXPECT_EQ(loadMemory(ttc, index), nullptr);
    EXPECT_EQ(st->error, (FS_ULONG)ERR_TTC_BAD_INDEX);
    EXPECT_EQ(loadFile(path, index), nullptr);
    EXPECT_EQ(st->error, (FS_ULONG)ERR_TTC_BAD_INDEX);
  }
}

TEST_F(TtfLoad, CollectionCompressionIsJudgedByTheFirstMemberOnly) {
  sfnt::Font plain = sfnt::minimalGlyfFont();
  sfnt::Font packed = sfnt::minimalGlyfFont();
  packed.set("zrp3", Bytes(8, 0));
  // Member 1 compressed, member 0 plain: member 1 loads from a file.
  std::string ok = writeFont(sfnt::buildCollection({plain, packed}), "a.ttc");
  TTF* t = loadFile(ok, 1);
  EXPECT_NE(t, nullptr) << st->error;
  unload_ttf(st, t);
  // Member 0 compressed: even member 1 is refused as a compressed file.
  std::string no = writeFont(sfnt::buildCollection({packed, plain}), "b.ttc");
  EXPECT_EQ(loadFile(no, 1), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_COMPRESSED_FROM_FILE);
}

/* ---- CFF containers ---- */

TEST_F(TtfLoad, CffFontIsHeldWithASynthesisedMaxp) {
  Bytes b = sfnt::build(sfnt::minimalCffFont(3));
  TTF* ttf = loadMemory(b, 0, 0, FNT_TYPE_OTT);
  ASSERT_NE(ttf, nullptr) << st->error;
  ASSERT_NE(ttf->cff, nullptr);
  size_t entry = sfnt::entryOf(b, "CFF ");
  EXPECT_EQ(ttf->cff_offset, sfnt::getU32(b, entry + 8));
  EXPECT_EQ(ttf->maxp->numGlyphs, 3);
  EXPECT_EQ(ttf->maxp->maxContours, 64);
  EXPECT_EQ(ttf->maxp->maxPoints, 256);
  EXPECT_EQ(ttf->maxp->maxSizeOfInstructions, 3);
  EXPECT_EQ(ttf->maxp->version, 0);  // all else stays 0
  EXPECT_EQ(ttf->maxp->maxFunctionDefs, 0);
  EXPECT_EQ(ttf->glyf_size, 0u);
  EXPECT_EQ(ttf->loca, nullptr);
  EXPECT_EQ(st->error, 0u);
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, CffFontToleratesAWrongMaxpVersion) {
  sfnt::Font f = sfnt::minimalCffFont(5);
  f.set("maxp", sfnt::maxp10(5));  // 1.0 where 0.5 belongs: 453, forgiven
  TTF* ttf = loadMemory(sfnt::build(f), 0, 0, FNT_TYPE_OTT);
  ASSERT_NE(ttf, nullptr) << st->error;
  EXPECT_EQ(ttf->maxp->numGlyphs, 5);
  EXPECT_EQ(st->error, 0u);
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, CffTypeWithoutACffTableIs405) {
  expectRefused(sfnt::build(sfnt::minimalGlyfFont()), ERR_TABLE_NOT_FOUND, 0,
                FNT_TYPE_OTT);
}

/* ---- Refusals ---- */

TEST_F(TtfLoad, ZeroLengthFileIsNotATrueTypeFont) {
  EXPECT_EQ(loadFile(writeFont(Bytes())), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_NOT_A_TTF);
}

TEST_F(TtfLoad, MissingFileIs102) {
  EXPECT_EQ(loadFile(dir.file("absent.ttf")), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_FILE_OPEN);
}

TEST_F(TtfLoad, WrongSfntVersionOrHeadMagicIs403) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.version = sfnt::tagOf("wOFF");
  expectRefused(sfnt::build(f), ERR_NOT_A_TTF);
  sfnt::Font g = sfnt::minimalGlyfFont();
  g.set("head", sfnt::head(1000, 0, 0, 1, 1, 0, 0x5F0F3CF4));
  expectRefused(sfnt::build(g), ERR_NOT_A_TTF);
}

TEST_F(TtfLoad, AcceptedSfntVersions) {
  for (uint32_t v : {0x00010000u, sfnt::tagOf("true"), sfnt::tagOf("OTTO")}) {
    sfnt::Font f = sfnt::minimalGlyfFont();
    f.version = v;
    Bytes b = sfnt::build(f);
    TTF* m = loadMemory(b);
    EXPECT_NE(m, nullptr) << std::hex << v;
    unload_ttf(st, m);
    TTF* t = loadFile(writeFont(b));
    EXPECT_NE(t, nullptr) << std::hex << v;
    unload_ttf(st, t);
  }
}

TEST_F(TtfLoad, RequiredTablesMissingAre405) {
  for (const char* tag : {"maxp", "head", "hhea", "hmtx", "cmap", "name"}) {
    sfnt::Font f = sfnt::minimalGlyfFont();
    f.remove(tag);
    SCOPED_TRACE(tag);
    expectRefused(sfnt::build(f), ERR_TABLE_NOT_FOUND);
  }
}

TEST_F(TtfLoad, GlyfFontMaxpVersionOtherThanOneIs616) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("maxp", sfnt::maxp05(2));
  expectRefused(sfnt::build(f), ERR_MAXP_VERSION_TT);
}

TEST_F(TtfLoad, FontWithoutOutlinesOrBitmapsIsRefusedWithErrorZero) {
  sfnt::Font none = sfnt::minimalGlyfFont();
  none.remove("glyf").remove("loca");
  expectRefused(sfnt::build(none), 0);
  sfnt::Font noLoca = sfnt::minimalGlyfFont();
  noLoca.remove("loca");
  expectRefused(sfnt::build(noLoca), 0);
}

TEST_F(TtfLoad, BitmapLocationWithoutItsDataIs405EvenWithWholeGlyf) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("EBLC", Bytes(8, 0));
  expectRefused(sfnt::build(f), ERR_TABLE_NOT_FOUND);
  sfnt::Font c = sfnt::minimalGlyfFont();
  c.set("CBLC", Bytes(8, 0));
  expectRefused(sfnt::build(c), ERR_TABLE_NOT_FOUND);
}

TEST_F(TtfLoad, VerticalMetricsNeedTheirHeader) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("vmtx", Bytes(8, 0));
  expectRefused(sfnt::build(f), ERR_TABLE_NOT_FOUND);
  f.set("vhea", sfnt::vhea(500, -500));
  TTF* ttf = loadMemory(sfnt::build(f));
  ASSERT_NE(ttf, nullptr) << st->error;
  ASSERT_NE(ttf->vhea, nullptr);
  EXPECT_EQ(ttf->vhea->ascent, 500);
  EXPECT_EQ(ttf->vhea->descent, -500);
  EXPECT_NE(ttf->vmtx_offset, 0u);
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, CompressedFontIsRefusedFromFileAndUntilTheDecoderInMemory) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("zrp3", Bytes(8, 0));
  Bytes b = sfnt::build(f);
  EXPECT_EQ(loadFile(writeFont(b)), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_COMPRESSED_FROM_FILE);
  EXPECT_EQ(loadMemory(b), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_FORMAT_NOT_SUPPORTED);
}

/* ---- Malformed input ---- */

TEST_F(TtfLoad, TableDirectoryPointingPastTheEndIs448) {
  Bytes good = sfnt::build(sfnt::minimalGlyfFont());
  Bytes longer = good;
  size_t glyf = sfnt::entryOf(longer, "glyf");
  sfnt::putU32(longer, glyf + 12, 0x7FFFFFF0);  // length
  expectRefused(longer, ERR_TABLE_DIR);
  Bytes later = good;
  sfnt::putU32(later, glyf + 8, (uint32_t)good.size() + 4);  // offset
  expectRefused(later, ERR_TABLE_DIR);
  Bytes wrapping = good;  // offset + length wraps around 32 bits
  sfnt::putU32(wrapping, glyf + 8, 0xFFFFFFF0);
  sfnt::putU32(wrapping, glyf + 12, 0x20);
  expectRefused(wrapping, ERR_TABLE_DIR);
}

TEST_F(TtfLoad, RealFontTruncatedAtEverySixtyFourthIs448) {
  Bytes whole = realFont(kDejaVuSans);
  ASSERT_EQ(whole.size(), 759720u);
  // The directory ends at 332, before the first cut (11870); `prep` ends at
  // the very end of the file, so every cut leaves a table beyond the data.
  for (size_t k = 1; k < 64; k++) {
    size_t cut = whole.size() * k / 64;
    Bytes part(whole.begin(), whole.begin() + cut);
    SCOPED_TRACE(cut);
    expectRefused(part, ERR_TABLE_DIR);
  }
}

TEST_F(TtfLoad, BuiltFontCutAtAnyByteIsRefusedUntilItsLastTableIsWhole) {
  Bytes whole = sfnt::build(sfnt::minimalGlyfFont());
  size_t lastEnd = 0;
  for (size_t i = 0; i < sfnt::getU16(whole, 4); i++) {
    size_t e = 12 + 16 * i;
    lastEnd = std::max<size_t>(lastEnd,
                               sfnt::getU32(whole, e + 8) + sfnt::getU32(whole, e + 12));
  }
  // From memory, a length of 0 would mean "unknown": start at 1 byte.
  for (size_t cut = 1; cut < whole.size(); cut++) {
    // A copy of exactly `cut` bytes, so that the sanitizer sees any read
    // beyond it.
    Bytes part(whole.begin(), whole.begin() + cut);
    TTF* ttf = loadMemory(part);
    if (cut < lastEnd) {
      EXPECT_EQ(ttf, nullptr) << cut;
      FS_ULONG e = st->error;
      EXPECT_TRUE(e == ERR_NOT_A_TTF || e == ERR_TABLE_NOT_FOUND ||
                  e == ERR_TABLE_DIR)
          << cut << ": " << e;
    } else {
      EXPECT_NE(ttf, nullptr) << cut;
    }
    unload_ttf(st, ttf);
  }
  // The same by file, at every eighth byte.
  for (size_t cut = 0; cut < lastEnd; cut += 8) {
    Bytes part(whole.begin(), whole.begin() + cut);
    EXPECT_EQ(loadFile(writeFont(part)), nullptr) << cut;
  }
}

TEST_F(TtfLoad, ValidationRefusesABadTableCountAndOverlaps) {
  sfnt::Font empty;
  expectRefused(sfnt::build(empty), ERR_TABLE_DIR, 1);
  expectRefused(sfnt::build(empty), ERR_TABLE_NOT_FOUND, 0);

  // A 4-byte table laid over the start of `cmap`.
  Bytes b = sfnt::build(sfnt::minimalGlyfFont().set("zzzz", Bytes(4, 0)));
  size_t cmap = sfnt::entryOf(b, "cmap"), zzzz = sfnt::entryOf(b, "zzzz");
  sfnt::putU32(b, zzzz + 8, sfnt::getU32(b, cmap + 8) + 2);
  expectRefused(b, ERR_TABLE_DIR, 1);
  TTF* unvalidated = loadMemory(b);
  EXPECT_NE(unvalidated, nullptr) << st->error;
  unload_ttf(st, unvalidated);

  // Sharing a start fails even at length 0, when the other entry, taken as
  // the container, has a length...
  sfnt::putU32(b, zzzz + 8, sfnt::getU32(b, cmap + 8));
  sfnt::putU32(b, zzzz + 12, 0);
  expectRefused(b, ERR_TABLE_DIR, 1);
  // ...but two empty entries at one place pass.
  Bytes two = sfnt::build(
      sfnt::minimalGlyfFont().set("yyyy", Bytes()).set("zzzz", Bytes()));
  TTF* ok = loadMemory(two, 0, 1);
  EXPECT_NE(ok, nullptr) << st->error;
  unload_ttf(st, ok);
}

TEST_F(TtfLoad, MoreThanFiftyEntriesStayUnconvertedSoNothingIsFound) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  for (int i = 0; f.tables.size() < 51; i++)
    f.set("x" + std::to_string(100 + i), Bytes(4, 0));
  Bytes b = sfnt::build(f);
  expectRefused(b, ERR_TABLE_NOT_FOUND, 0);
  expectRefused(b, ERR_TABLE_DIR, 1);
  // Fifty are converted, and the font loads.
  f.remove("x100");
  TTF* ttf = loadMemory(sfnt::build(f));
  EXPECT_NE(ttf, nullptr) << st->error;
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, HeaderOfMoreThanFiftyIsLeftInFileOrder) {
  Bytes raw(12 + 16, 0);
  sfnt::putU32(raw, 0, 0x00010000);
  sfnt::putU16(raw, 4, 51);
  sfnt::putU32(raw, 12, sfnt::tagOf("cmap"));
  sfnt::putU32(raw, 20, 0x100);
  unsigned char block[sizeof(TTF_HEADER) + sizeof(TTF_DIR)] = {};
  TTF_HEADER* h = (TTF_HEADER*)block;
  h->tables = (TTF_DIR*)(h + 1);
  EXPECT_EQ(swap_ttf_header(raw.data(), (FS_ULONG)raw.size(), h, 1), 1u);
  // Bytes 00 33 read in host (little-endian) order: 0x3300.
  EXPECT_EQ(h->numTables, 0x3300);
  EXPECT_EQ(h->tables[0].tag, 0x70616D63u);  // "cmap" backwards
  EXPECT_EQ(h->tables[0].offset, 0x10000u);

  sfnt::putU16(raw, 4, 50);
  EXPECT_EQ(swap_ttf_header(raw.data(), (FS_ULONG)raw.size(), h, 1), 1u);
  EXPECT_EQ(h->numTables, 50);
  EXPECT_EQ(h->tables[0].tag, TAG_cmap);
  EXPECT_EQ(h->tables[0].offset, 0x100u);
}

/* ---- The read path and the directory ---- */

TEST_F(TtfLoad, ReadsBeyondTheDataGiveZerosWithoutError) {
  Bytes b = sfnt::build(sfnt::minimalGlyfFont());
  FS_ULONG n = (FS_ULONG)b.size();
  std::string path = writeFont(b);
  for (int fromFile = 0; fromFile < 2; fromFile++) {
    TTF* ttf = fromFile ? loadFile(path) : loadMemory(b);
    ASSERT_NE(ttf, nullptr);
    // Size 0: null, size 0, and the error state untouched.
    st->error = 777;
    FS_LONG size = -1;
    EXPECT_EQ(ttf_read_ex(st, ttf, 0, 0, &size), nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(st->error, 777u);
    // Four bytes inside and four beyond: the whole copy is zeroed...
    FS_BYTE* p = (FS_BYTE*)ttf_read_ex(st, ttf, n - 4, 8, &size);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(size, 8);
    EXPECT_EQ(st->error, 0u);
    for (int i = 0; i < 8; i++) EXPECT_EQ(p[i], 0) << i;
    FSS_free(st, p);
    // ...while the caller's buffer keeps what was read and zeros the tail.
    FS_BYTE buf[8];
    memset(buf, 0x55, sizeof buf);
    ttf_read_buf(st, ttf, 0, 8, buf);
    EXPECT_EQ(sfnt::getU32(Bytes(buf, buf + 4), 0), 0x00010000u);
    memset(buf, 0x55, sizeof buf);
    ttf_read_buf(st, ttf, n - 4, 8, buf);
    for (int i = 0; i < 4; i++) EXPECT_EQ(buf[i], b[n - 4 + i]) << i;
    for (int i = 4; i < 8; i++) EXPECT_EQ(buf[i], 0) << i;
    EXPECT_EQ(st->error, 0u);
    // Far beyond: zeros.
    p = (FS_BYTE*)ttf_read(st, ttf, 0x7FFFFF00, 4);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(get_u32(p), 0u);
    FSS_free(st, p);
    unload_ttf(st, ttf);
  }
}

TEST_F(TtfLoad, TableLookupFindsTheFirstEntryAndMissesWith405) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("zzzz", Bytes(6, 1)).set("yyyy", Bytes(2, 2));
  // The second becomes another entry of the same tag, 2 bytes long.
  Bytes b = sfnt::build(f);
  sfnt::putU32(b, sfnt::entryOf(b, "yyyy"), sfnt::tagOf("zzzz"));
  TTF* ttf = loadMemory(b);
  ASSERT_NE(ttf, nullptr) << st->error;
  FS_ULONG off = 1, len = 1;
  st->error = 123;  // a hit leaves the error state alone
  EXPECT_EQ(get_ttf_table_info(st, ttf, sfnt::tagOf("zzzz"), &off, &len), 1);
  EXPECT_EQ(len, 6u);
  EXPECT_EQ(st->error, 123u);
  EXPECT_EQ(get_ttf_table_info(st, ttf, TAG_head, nullptr, nullptr), 1);
  EXPECT_EQ(get_ttf_table_info(st, ttf, TAG_kern, &off, &len), 0);
  EXPECT_EQ(off, 0u);
  EXPECT_EQ(len, 0u);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_TABLE_NOT_FOUND);
  FS_BYTE* copy = (FS_BYTE*)get_ttf_table(st, ttf, sfnt::tagOf("zzzz"));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(memcmp(copy, Bytes(6, 1).data(), 6), 0);
  FSS_free(st, copy);
  EXPECT_EQ(get_ttf_table(st, ttf, TAG_kern), nullptr);
  EXPECT_EQ(st->error, (FS_ULONG)ERR_TABLE_NOT_FOUND);
  unload_ttf(st, ttf);
}

TEST(TtfNumbers, NumBitsNeededCountsShiftsToZero) {
  EXPECT_EQ(numBitsNeeded(0), 0);
  EXPECT_EQ(numBitsNeeded(1), 1);
  EXPECT_EQ(numBitsNeeded(255), 8);
  EXPECT_EQ(numBitsNeeded(256), 9);
  EXPECT_EQ(numBitsNeeded(0xFFFFFFFF), 32);
}

/* ---- Tables decoded at load ---- */

TEST(TtfOs2, LengthOverridesTheStoredVersion) {
  Bytes t(96, 0);
  sfnt::putU16(t, 0, 2);           // stored version 2
  sfnt::putU16(t, 4, 700);         // usWeightClass
  sfnt::putU16(t, 74, 1900);       // usWinAscent
  sfnt::putU32(t, 78, 0x11223344); // ulCodePageRange1
  sfnt::putU16(t, 86, 1062);       // sxHeight
  TTF_OS2 o;
  memset(&o, 0, sizeof o);
  get_os2(t.data(), 86, &o);  // 86 bytes: version 1, no sxHeight
  EXPECT_EQ(o.version, 1);
  EXPECT_EQ(o.usWeightClass, 700);
  EXPECT_EQ(o.usWinAscent, 1900);
  EXPECT_EQ(o.ulCodePageRange1, 0x11223344u);
  EXPECT_EQ(o.sxHeight, 0);
  memset(&o, 0, sizeof o);
  get_os2(t.data(), 78, &o);  // 78 bytes: version 0, no code pages
  EXPECT_EQ(o.version, 0);
  EXPECT_EQ(o.usWinAscent, 1900);
  EXPECT_EQ(o.ulCodePageRange1, 0u);
  memset(&o, 0, sizeof o);
  get_os2(t.data(), 96, &o);
  EXPECT_EQ(o.version, 2);
  EXPECT_EQ(o.sxHeight, 1062);
  memset(&o, 0xFF, sizeof o);
  get_os2(t.data(), 10, &o);  // a short table decodes to zeros past its end
  EXPECT_EQ(o.usWinAscent, 0);
}

TEST(TtfName, PlatformOneFillsBlanksAndOverwritesThePassBefore) {
  Bytes t = sfnt::name({{3, 1, 1033, 4, "Full Three"},
                        {3, 1, 1031, 1, "Deutsch"},  // another language
                        {3, 1, 1033, 0, "C3"},
                        {3, 1, 1033, 3, "Unique"},
                        {1, 0, 0, 1, "Fam One"},
                        {1, 0, 0, 4, "Full One"}});
  TTF_NAME n;
  memset(&n, 0, sizeof n);
  get_abbreviated_name(t.data(), (FS_ULONG)t.size(), &n);
  EXPECT_STREQ(n.font_family_name, "Fam One");
  EXPECT_STREQ(n.font_name, "Full One");
  EXPECT_STREQ(n.copyright, "C3");
  EXPECT_STREQ(n.unique_name, "Unique");
}

TEST(TtfName, PassOneStopsOnceFullFamilyAndCopyrightAreFilled) {
  Bytes t = sfnt::name({{3, 1, 1033, 4, "Full"},
                        {3, 1, 1033, 1, "Family"},
                        {3, 1, 1033, 0, "C"},
                        {3, 1, 1033, 4, "Later"},
                        {1, 0, 0, 4, "Mac"}});
  TTF_NAME n;
  memset(&n, 0, sizeof n);
  get_abbreviated_name(t.data(), (FS_ULONG)t.size(), &n);
  EXPECT_STREQ(n.font_name, "Full");
  EXPECT_EQ(n.unique_name[0], '\0');  // no part in the test, not filled
}

TEST(TtfName, LongNamesAreCutAndFlaggedMissingOnesNotFound) {
  std::string fifty(50, 'n'), fortyNine(49, 'n');
  Bytes t = sfnt::name({{3, 1, 1033, 4, fifty},
                        {3, 1, 1033, 1, fortyNine},
                        {3, 1, 1033, 0, std::string(2048, 'c')}});
  TTF_NAME n;
  memset(&n, 0, sizeof n);
  get_abbreviated_name(t.data(), (FS_ULONG)t.size(), &n);
  EXPECT_EQ(strlen(n.font_name), 49u);
  EXPECT_EQ(n.font_name_too_long, 1);
  EXPECT_EQ(strlen(n.font_family_name), 49u);
  EXPECT_EQ(n.font_family_name_too_long, 0);
  EXPECT_EQ(strlen(n.copyright), 2047u);
  EXPECT_EQ(n.copyright_too_long, 1);

  memset(&n, 0, sizeof n);
  Bytes none = sfnt::name({});
  get_abbreviated_name(none.data(), (FS_ULONG)none.size(), &n);
  EXPECT_STREQ(n.font_name, "NOT FOUND");
  EXPECT_STREQ(n.font_family_name, "NOT FOUND");
  EXPECT_STREQ(n.copyright, "NOT FOUND");
  EXPECT_STREQ(n.unique_name, "");

  // A record pointing beyond the table is taken as far as the table goes.
  Bytes cut = sfnt::name({{1, 0, 0, 4, "Truncated"}});
  cut.resize(cut.size() - 4);
  memset(&n, 0, sizeof n);
  get_abbreviated_name(cut.data(), (FS_ULONG)cut.size(), &n);
  EXPECT_STREQ(n.font_name, "Trunc");
}

TEST_F(TtfLoad, OddCmapSubtableInMemoryGetsAPrivateAlignedCopy) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("cmap", sfnt::cmap(13));
  Bytes b = sfnt::build(f);
  TTF* ttf = loadMemory(b);
  ASSERT_NE(ttf, nullptr) << st->error;
  EXPECT_EQ(ttf->own_cmap, 1u);
  const FS_BYTE* c = (const FS_BYTE*)ttf->cmap;
  // One subtable at 13 of size 275 - 13 = 262 (even); no earlier odd size,
  // and 0 + 13 is odd, so it moves by 1 to 14.
  EXPECT_EQ(get_u32(c + 8), 14u);
  EXPECT_EQ(get_u16(c + 14), 0);    // format
  EXPECT_EQ(get_u16(c + 16), 262);  // length
  EXPECT_EQ(c[14 + 6 + 'a'], 1);    // 'a' (97) maps to glyph 1
  EXPECT_EQ(cmap_offsets_odd(c, 276), 0);
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, UnalignableCmapOfMoreThanTwentySubtablesIs520) {
  Bytes cmap;
  sfnt::u16(cmap, 0);
  sfnt::u16(cmap, 21);
  for (int i = 0; i < 21; i++) {
    sfnt::u16(cmap, 3);
    sfnt::u16(cmap, 1);
    sfnt::u32(cmap, 4 + 8 * 21 + 1);  // 173, odd
  }
  Bytes sub = sfnt::cmap(12);
  cmap.push_back(0);
  cmap.insert(cmap.end(), sub.begin() + 12, sub.end());
  sfnt::Font f = sfnt::minimalGlyfFont();
  expectRefused(sfnt::build(f.set("cmap", cmap)), ERR_UNICODE_CMAP_NEEDED);
}

TEST_F(TtfLoad, HintingTablesAreReadWholeAndOptionalOffsetsKept) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("maxp", sfnt::maxp10(2, 4, 2));
  f.set("cvt ", {0x00, 0x10, 0xFF, 0xF0, 0x01, 0x00});
  f.set("prep", {0xB0, 0x01, 0x5D});
  f.set("fpgm", {0xB0, 0x00, 0x2C, 0x2D});
  f.set("gasp", {0, 1, 0, 0});
  f.set("ADFH", {1, 2, 3, 4, 5, 6, 7, 8});
  f.set("kern", Bytes(4, 0));
  f.set("Icon", Bytes(4, 0));
  f.set("VDMX", Bytes(6, 0));
  f.set("hdmx", Bytes(8, 0));
  f.set("FLNT", Bytes(4, 0));
  Bytes b = sfnt::build(f);
  TTF* ttf = loadFile(writeFont(b));
  ASSERT_NE(ttf, nullptr) << st->error;
  EXPECT_EQ(ttf->num_cvt, 3);
  EXPECT_EQ(get_s16((FS_BYTE*)ttf->cvt + 2), -16);  // file order kept
  EXPECT_EQ(ttf->num_prep, 3);
  EXPECT_EQ(ttf->prep[2], 0x5D);
  EXPECT_EQ(ttf->num_fpgm, 4);
  EXPECT_NE(ttf->functionDefs, nullptr);
  EXPECT_NE(ttf->instructionDefs, nullptr);
  ASSERT_NE(ttf->adfh, nullptr);
  EXPECT_EQ(ttf->adfh[7], 8);
  EXPECT_NE(ttf->gasp, nullptr);
  EXPECT_EQ(ttf->kern_offset, sfnt::getU32(b, sfnt::entryOf(b, "kern") + 8));
  EXPECT_EQ(ttf->icon_offset, sfnt::getU32(b, sfnt::entryOf(b, "Icon") + 8));
  EXPECT_EQ(ttf->vdmx_offset, sfnt::getU32(b, sfnt::entryOf(b, "VDMX") + 8));
  EXPECT_EQ(ttf->hdmx_offset, sfnt::getU32(b, sfnt::entryOf(b, "hdmx") + 8));
  EXPECT_EQ(ttf->isFlintTablePresent, 1);
  EXPECT_EQ(ttf->os2, nullptr);  // the minimal font has none: tolerated
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, NstkCountAndCountedWordsTurnNative) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("nstk", {0x00, 0x02, 0x12, 0x34, 0xAB, 0xCD, 0x11, 0x22});
  TTF* ttf = loadMemory(sfnt::build(f));
  ASSERT_NE(ttf, nullptr) << st->error;
  ASSERT_NE(ttf->nstk, nullptr);
  EXPECT_EQ(ttf->nstk[0], 2);
  EXPECT_EQ(ttf->nstk[1], 0x1234);
  EXPECT_EQ(ttf->nstk[2], 0xABCD);
  EXPECT_EQ(ttf->nstk[3], 0x2211);  // beyond the count: left in file order
  unload_ttf(st, ttf);
}

namespace {

// An EBLC of one strike at 12 ppem with one index subtable for glyph 1.
Bytes oneStrikeEblc(uint32_t numSizes = 1) {
  Bytes t;
  sfnt::u32(t, 0x00020000);
  sfnt::u32(t, numSizes);
  sfnt::u32(t, 56);  // indexSubTableArrayOffset: 8 + 48
  sfnt::u32(t, 8);   // indexTablesSize
  sfnt::u32(t, 1);   // numberOfIndexSubTables
  sfnt::u32(t, 0);   // colorRef
  for (int i = 0; i < 24; i++) sfnt::u8(t, i == 0 ? 10 : 0);  // hori, vert
  sfnt::u16(t, 1);  // startGlyphIndex
  sfnt::u16(t, 1);  // endGlyphIndex
  sfnt::u8(t, 12);
  sfnt::u8(t, 12);
  sfnt::u8(t, 1);  // bitDepth
  sfnt::u8(t, 1);  // flags
  sfnt::u16(t, 1);
  sfnt::u16(t, 1);
  sfnt::u32(t, 8);
  return t;
}

}  // namespace

TEST_F(TtfLoad, BitmapOnlyFontKeepsItsStrikeRecords) {
  for (const char* kind : {"EBLC", "CBLC"}) {
    sfnt::Font f = sfnt::minimalGlyfFont();
    f.remove("glyf").remove("loca");
    f.set(kind, oneStrikeEblc());
    f.set(std::string(kind) == "EBLC" ? "EBDT" : "CBDT", Bytes(12, 0));
    Bytes b = sfnt::build(f);
    TTF* ttf = loadMemory(b);
    ASSERT_NE(ttf, nullptr) << kind << ": " << st->error;
    EXPECT_EQ(ttf->isCBLC, std::string(kind) == "CBLC");
    EXPECT_EQ(ttf->eblc_offset, sfnt::getU32(b, sfnt::entryOf(b, kind) + 8));
    TTF_EBLC_PARTIAL* p = ttf->ttf_EBLC_partial;
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->numSizes, 1u);
    EXPECT_EQ(p->bsta[0].bst.ppemY, 12);
    EXPECT_EQ(p->bsta[0].bst.hori.ascender, 10);
    ASSERT_NE(p->bsta[0].ist, nullptr);
    EXPECT_EQ(p->bsta[0].ist[0].lastGlyphIndex, 1);
    EXPECT_EQ(p->bsta[0].ist[0].additionalOffsetToIndexSubtable, 8u);
    unload_ttf(st, ttf);
  }
}

TEST_F(TtfLoad, BitmapLocationWithoutSizesOrWithSizesBeyondItIs466) {
  for (uint32_t sizes : {0u, 2u}) {
    sfnt::Font f = sfnt::minimalGlyfFont();
    f.set("EBLC", oneStrikeEblc(sizes)).set("EBDT", Bytes(4, 0));
    SCOPED_TRACE(sizes);
    expectRefused(sfnt::build(f), ERR_EBLC);
  }
}

/* ---- The compact formats ---- */

namespace {

sfnt::Font compactFont(uint32_t format, const Bytes& hmtx) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("head", sfnt::head(1000, 0, 0, 1, 1, format));
  f.set("maxp", sfnt::maxp10(2, 0, 0, 3));
  f.set("hmtx", hmtx);
  return f;
}

}  // namespace

TEST_F(TtfLoad, CompactCccVersion8ReadsPackingFromHmtx) {
  // -10, 5, 100, 7 as big-endian words.
  Bytes hmtx = {0xFF, 0xF6, 0x00, 0x05, 0x00, 0x64, 0x00, 0x07};
  TTF* ttf = loadMemory(sfnt::build(compactFont(0x0202, hmtx)));
  ASSERT_NE(ttf, nullptr) << st->error;
  const CCC_INFO& c = ttf->ccc_info;
  EXPECT_EQ(c.cccVersion8, 1);
  EXPECT_EQ(c.cccVersion7, 0);
  EXPECT_EQ(c.numBits_SF, 16);
  EXPECT_EQ(c.minVal_LSB, -10);
  EXPECT_EQ(c.numBits_LSB, 5);
  EXPECT_EQ(c.minVal_AW, 100);
  EXPECT_EQ(c.numBits_AW, 7);
  EXPECT_EQ(c.numBits_LOCA, 4);  // glyf of 10 bytes: bits of 11
  EXPECT_EQ(c.numBits_GLYF, 2u); // 3 component elements
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, CompactCccPlainAndVersion7) {
  Bytes hmtx = {0x00, 0x02, 0x00, 0x03, 0x00, 0x04, 0x00, 0x05};
  TTF* plain = loadMemory(sfnt::build(compactFont(0x0400, hmtx)));
  ASSERT_NE(plain, nullptr) << st->error;
  EXPECT_EQ(plain->ccc_info.cccVersion7 | plain->ccc_info.cccVersion8, 0);
  EXPECT_EQ(plain->ccc_info.numBits_SF, 10);
  EXPECT_EQ(plain->ccc_info.minVal_LSB, 2);
  EXPECT_EQ(plain->ccc_info.numBits_LSB, 3);
  EXPECT_EQ(plain->ccc_info.minVal_AW, 0);  // not read without a version
  unload_ttf(st, plain);

  sfnt::Font f = compactFont(0x0201, hmtx);
  f.set("vmtx", {0x00, 0x06, 0x00, 0x07, 0x00, 0x08, 0x00, 0x09});
  f.set("vhea", sfnt::vhea(1, -1));
  TTF* v7 = loadMemory(sfnt::build(f));
  ASSERT_NE(v7, nullptr) << st->error;
  const CCC_INFO& c = v7->ccc_info;
  EXPECT_EQ(c.cccVersion7, 1);
  EXPECT_EQ(c.numBits_SF, 10);
  EXPECT_EQ(c.minVal_AW, 4);
  EXPECT_EQ(c.numBits_AW, 5);
  EXPECT_EQ(c.minVal_TSB, 6);
  EXPECT_EQ(c.numBits_TSB, 7);
  EXPECT_EQ(c.minVal_AH, 8);
  EXPECT_EQ(c.numBits_AH, 9);
  unload_ttf(st, v7);
}

TEST_F(TtfLoad, CompactDddTakesSingleBytes) {
  sfnt::Font f = compactFont(0x0500, {0xF6, 0x05, 0x77, 0x77});
  f.set("vmtx", {0x03, 0x09});
  f.set("vhea", sfnt::vhea(1, -1));
  TTF* ttf = loadMemory(sfnt::build(f));
  ASSERT_NE(ttf, nullptr) << st->error;
  const CCC_INFO& c = ttf->ccc_info;
  EXPECT_EQ(c.minVal_LSB, 246);  // the byte, unsigned
  EXPECT_EQ(c.numBits_AW, 5);
  EXPECT_EQ(c.minVal_TSB, 3);
  EXPECT_EQ(c.numBits_AH, 9);
  EXPECT_EQ(c.numBits_SF, 16);
  EXPECT_EQ(c.cccVersion7, 1);  // every other compact value is version 7
  unload_ttf(st, ttf);
}

TEST_F(TtfLoad, OrdinaryFormatsLeaveThePackingZero) {
  for (uint32_t format : {0x0000u, 0x0601u, 0x0800u, 0x9654u}) {
    TTF* ttf = loadMemory(
        sfnt::build(compactFont(format, {1, 2, 3, 4, 5, 6, 7, 8})));
    ASSERT_NE(ttf, nullptr) << std::hex << format;
    EXPECT_EQ(ttf->ccc_info.numBits_SF, 0) << std::hex << format;
    EXPECT_EQ(ttf->ccc_info.minVal_LSB, 0) << std::hex << format;
    unload_ttf(st, ttf);
  }
}

TEST_F(TtfLoad, RefusalsUnderAShortBudgetGiveBackEverything) {
  Bytes b = realFont(kDejaVuSans);
  // Budgets that run out at every stage of the load: each refusal is 201
  // and leaves nothing charged.
  for (FS_ULONG budget = 4000; budget < 120000; budget += 2500) {
    engine.server()->heap_size = engine.used() + budget;
    TTF* ttf = loadMemory(b);
    if (ttf == nullptr) {
      EXPECT_EQ(st->error, (FS_ULONG)ERR_MALLOC_FAIL) << budget;
    }
    unload_ttf(st, ttf);
    EXPECT_EQ(engine.used(), baseline) << budget;
  }
  engine.server()->heap_size = 64u << 20;
}

TEST_F(TtfLoad, MutatedFontsAreLoadedOrRefusedWithoutStrayReads) {
  // Bytes of a small font overwritten at fixed pseudo-random places (a
  // linear congruential sequence, so every run sees the same fonts); each
  // copy is exactly as long as the font, so the sanitizer build catches any
  // read beyond it. Whatever the outcome, nothing stays charged.
  sfnt::Font f = sfnt::minimalGlyfFont();
  f.set("OS/2", Bytes(78, 0)).set("vmtx", Bytes(8, 0));
  f.set("vhea", sfnt::vhea(1, -1)).set("EBLC", oneStrikeEblc());
  f.set("EBDT", Bytes(4, 0));
  const Bytes whole = sfnt::build(f);
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
  // Most changes land in table data the loader tolerates.
  EXPECT_GT(loaded, 100);
}
