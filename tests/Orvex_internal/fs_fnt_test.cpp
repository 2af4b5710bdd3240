// The interpreter's readings worked by hand, each a glyph program over a
// built font with the case's programs, its answer in point 0's y by SCFS;
// glyph programs fetched and worked by hand the same way; then the
// refusals of panicking and mutated programs.
#include <gtest/gtest.h>
#include <math.h>

#include <chrono>
#include <map>
#include <random>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/glyf_font.h"
#include "support/scaled_font.h"
#include "support/test_support.h"

namespace {

using sfnt::Bytes;

const char* const kPackaged[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/dejavu/DejaVuSans-Oblique.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationMono-Regular.ttf"};

// What a case reads after its program.
enum Read { Y0, CONTROL, DEFAULT_MIN_DISTANCE, CVT1 };

struct Case {
  const char* why;
  Bytes fpgm, prep, program;
  int ppem;  // 0: a 30 degree rotation of 12 by 24 pixels
  FS_LONG status;
  long value;
  Read read = Y0;
};

// 1000 units per em; control values 1000 and -500 (768 and -384 at 12
// ppem); 4 functions, 4 instructions, 4 storage slots, 64 stack values.
Bytes caseFont(const Case& c) {
  sfnt::Font f = glyffont::font({glyffont::triangle()});
  Bytes maxp = sfnt::maxp10(1, 4, 4);
  sfnt::putU16(maxp, 16, 4);  // maxTwilightPoints
  sfnt::putU16(maxp, 18, 4);  // maxStorage
  Bytes cvt;
  sfnt::u16(cvt, 1000);
  sfnt::u16(cvt, (uint32_t)-500);
  glyffont::setPrograms(f, c.fpgm, c.prep, cvt, maxp, 10, 0);
  return sfnt::build(f);
}

// NPUSHB of n zeros.
Bytes npush(int n) {
  Bytes b = {0x40, (uint8_t)n};
  b.resize(2 + (size_t)n, 0);
  return b;
}

TEST(Interpreter, DecidedReadingsWorkedByHand) {
  const Case cases[] = {
      {"GETINFO 1 answers version 1", {}, {}, {0xB0, 1, 0x88}, 12, 0, 1},
      {"GETINFO 6 upright and square: neither bit", {}, {}, {0xB0, 6, 0x88}, 12, 0, 0},
      {"GETINFO 6 rotated with unequal axes: 256 + 512", {}, {}, {0xB0, 6, 0x88}, 0, 0, 768},
      {"EVEN rounds 96 (1.5) to the grid, 2, under RDTG too", {}, {}, {0x7D, 0xB0, 96, 0x57}, 12, 0, 1},
      {"ODD of the same is 0", {}, {}, {0x7D, 0xB0, 96, 0x56}, 12, 0, 0},
      // 0xC8: period 999, phase 0, threshold ((8-4) 999 + 4) >> 3 = 500;
      // (600 + 500) & ~998 = 0x44C & ~0x3E6 = 0x408.
      {"SROUND period bits 3 keep period 999", {}, {}, {0xB0, 0xC8, 0x76, 0xB8, 0x02, 0x58, 0x68}, 12, 0, 1032},
      // Period (0x800000 + 379625062) >> 24 = 23, threshold 22: (30 + 22) / 23 x 23.
      {"S45ROUND 0 has period 23", {}, {}, {0xB0, 0, 0x77, 0xB0, 30, 0x68}, 12, 0, 46},
      {"INSTCTRL in a glyph program is ignored", {}, {}, {0xB1, 1, 1, 0x8E, 0xB0, 5}, 12, 0, 0, CONTROL},
      {"INSTCTRL 1 in prep sets bit 0 of the default", {}, {0xB1, 1, 1, 0x8E}, {0xB0, 5}, 12, 0, 1, CONTROL},
      {"INSTCTRL 2 in prep keeps the published defaults", {}, {0xB0, 100, 0x1A, 0xB1, 2, 2, 0x8E}, {0xB0, 5}, 12, 0, 64, DEFAULT_MIN_DISTANCE},
      {"without it prep's state is the default", {}, {0xB0, 100, 0x1A}, {0xB0, 5}, 12, 0, 100, DEFAULT_MIN_DISTANCE},
      {"RCVT 0 reads the scaled value", {}, {}, {0xB0, 0, 0x45}, 12, 0, 768},
      {"CVT cvtCount reads 0 after a write there", {}, {}, {0xB0, 2, 0xB8, 0x02, 0x80, 0x44, 0xB0, 2, 0x45}, 12, 0, 0},
      {"a negative CVT index reads 0", {}, {}, {0xB8, 0xFF, 0xFF, 0x45}, 12, 0, 0},
      {"prep's writes hold at 12 ppem", {}, {0xB0, 1, 0xB8, 0x02, 0x80, 0x44}, {}, 12, 0, 640, CVT1},
      {"below 2 ppem no prep: the CVT as scaled", {}, {0xB0, 1, 0xB8, 0x02, 0x80, 0x44}, {}, 1, 0, -32, CVT1},
      {"a defined function runs", {0xB0, 0, 0x2C, 0xB0, 7, 0x2D}, {}, {0xB0, 0, 0x2B}, 12, 0, 7},
      {"CALL of an undefined number in range does nothing", {0xB0, 0, 0x2C, 0xB0, 7, 0x2D}, {}, {0xB0, 3, 0x2B, 0xB0, 5}, 12, 0, 5},
      {"CALL out of range stops the program silently", {}, {}, {0xB0, 9, 0x2B, 0xB0, 5}, 12, 0, 999},
      {"FDEF out of range stops the font program", {0xB0, 9, 0x2C, 0x2D, 0xB0, 0, 0x2C, 0xB0, 7, 0x2D}, {}, {0xB0, 0, 0x2B, 0xB0, 5}, 12, 0, 5},
      {"ENDF met by execution panics", {}, {}, {0x2D}, 12, ERR_ILLEGAL_INSTRUCTION, 999},
      {"MD on a one-element stack panics", {}, {}, {0x49}, 12, ERR_ILLEGAL_INSTRUCTION, 999},
      {"an undefined opcode panics", {}, {}, {0x92}, 12, ERR_ILLEGAL_INSTRUCTION, 999},
      {"an IDEF defines it", {0xB0, 0x92, 0x89, 0xB0, 9, 0x2D}, {}, {0x92}, 12, 0, 9},
      {"FDEF without ENDF fails the scale", {0xB0, 0, 0x2C, 0xB0, 1}, {}, {}, 12, ERR_ILLEGAL_INSTRUCTION, 0},
      {"a self-calling function panics past 64 calls", {0xB0, 1, 0x2C, 0xB0, 1, 0x2B, 0x2D}, {}, {0xB0, 1, 0x2B}, 12, ERR_ILLEGAL_INSTRUCTION, 999},
      {"an endless JMPR panics after a million instructions", {}, {}, {0xB0, 0, 0x1C}, 12, ERR_ILLEGAL_INSTRUCTION, 999},
      {"a jump before the program start panics", {}, {}, {0xB8, 0xFF, 0x00, 0x1C}, 12, ERR_ILLEGAL_INSTRUCTION, 999},
      {"pushing past maxStackElements + 32 panics", {}, {}, npush(100), 12, ERR_ILLEGAL_INSTRUCTION, 999},
      {"push data cut off by the end panics", {}, {}, {0xB9, 0x01}, 12, ERR_ILLEGAL_INSTRUCTION, 999},
      // Pairs (spec, cvt) deepest first: (0x2F, 0) for 11 ppem, (0x3F, 1)
      // for 12: (15 - 7) x 64 >> 3 = 64 onto -384.
      {"DELTAC applies the pair of this size", {}, {}, {0xB4, 0x2F, 0, 0x3F, 1, 2, 0x73, 0xB0, 1, 0x45}, 12, 0, -320},
      {"DELTAC loses a pair of an unsorted list", {}, {}, {0xB4, 0x3F, 1, 0x2F, 0, 2, 0x73, 0xB0, 1, 0x45}, 12, 0, -384},
      {"MPS pushes pixels per em", {}, {}, {0x4C}, 12, 0, 12},
      {"MUL rounds -0.5 away from zero", {}, {}, {0xB8, 0xFF, 0xE0, 0xB0, 1, 0x63}, 12, 0, -1},
      {"DIV truncates: 100 / 192 x 64 = 33.3", {}, {}, {0xB0, 100, 0xB0, 192, 0x62}, 12, 0, 33},
      {"DIV by 0 gives 0", {}, {}, {0xB0, 64, 0xB0, 0, 0x62}, 12, 0, 0},
      {"missing stack values read 0", {}, {}, {0x21, 0x21, 0xB0, 0, 0xB0, 7, 0x60}, 12, 0, 7},
  };
  for (const Case& c : cases) {
    testsupport::ScaledFont sf;
    sf.setFont("", caseFont(c));
    // Ppem 0: rows (12 cos, 12 sin) and (-24 sin, 24 cos) of 30 degrees.
    FS_FIXED cs = (FS_FIXED)lround(65536 * cos(M_PI / 6)), sn = 32768;
    FS_LONG err = c.ppem ? sf.setPpem(c.ppem) : sf.setScale(12 * cs, -24 * sn, 12 * sn, 24 * cs);
    if (err != 0 || c.program.empty()) { EXPECT_EQ(c.status, err) << c.why; }
    if (err != 0) continue;
    fsg_SplineKey* key = sf.key();
    fnt_ElementType* el = sf.element();
    el->np = 1, el->y[0] = 999;
    Bytes program = {0x00, 0xB0, 0};  // SVTCA[y], point 0
    program.insert(program.end(), c.program.begin(), c.program.end());
    program.push_back(0x48);  // SCFS
    EXPECT_EQ(c.status, fsg_RunGlyphProgram(&sf.st, key, program.data(), (FS_ULONG)program.size()))
        << c.why;
    const F26DOT6* cvt = (const F26DOT6*)(key->memoryBases[3] + key->offset_controlValues);
    long got = c.read == Y0        ? el->y[0]
               : c.read == CONTROL ? key->globalGS.localParBlock.instructControl
               : c.read == CVT1    ? cvt[1]
                                   : key->globalGS.defaultParBlock.minimumDistance;
    EXPECT_EQ(c.value, got) << c.why;
  }
}

// Glyph 0 (the triangle, advance 510: place 1 at 326.4 = 326 scaled) and
// glyph 2 (no contours) run the case's program at 10 ppem, 64 units to
// 100; glyph 1 has none. What the program leaves on the stack goes into
// point 0's y by SCFS (on glyph 2 that is the left phantom place).
struct GlyphCase {
  const char* why;
  Bytes program;
  long want;
  int glyph = 0, read = 0;  // read 1: MAZmethodVert; 2: 100 x nVcollapse + Vcollapse[0]
  FS_LONG status = 0;
};

TEST(Interpreter, GlyphProgramsWorkedByHand) {
  const GlyphCase cases[] = {
      {"GC of place 1 current: rounded to the grid before the program", {0x01, 0xB0, 4, 0x46}, 320},
      {"GC of place 1 original: as scaled", {0x01, 0xB0, 4, 0x47}, 326},
      {"place 2 lies midway between places 0 and 1: 255 units", {0x01, 0xB0, 5, 0x46}, 163},
      {"place 2's y is the advance height, 1000 units", {0x00, 0xB0, 5, 0x46}, 640},
      // SHPIX point 0 one pixel right, SRP1 0, SHZ[1] of the glyph zone.
      {"SHZ moves the glyph's points by rp1's move", {0x01, 0xB1, 0, 64, 0x38, 0xB0, 0, 0x11, 0xB0, 1, 0x37, 0xB0, 1, 0x46}, 128},
      {"SHZ keeps the advance", {0x01, 0xB1, 0, 64, 0x38, 0xB0, 0, 0x11, 0xB0, 1, 0x37, 0xB0, 4, 0x46}, 320},
      // SZP1 0, projection x, freedom y, MIRP point 1 by control value 0
      // (640) from rp0 = glyph point 0 at the origin; GC of twilight 1.
      {"a twilight point of MIRP is made along the projection", {0xB0, 0, 0x14, 0x03, 0x04, 0xB1, 1, 0, 0xE0, 0xB0, 0, 0x15, 0xB0, 1, 0x46}, 640},
      {"a glyph without contours runs its program", {0xB0, 77}, 77, 2},
      {"MIRP on a glyph without contours stops its program", {0xB1, 0, 0, 0xE0, 0xB0, 77}, 0, 2},
      // Pairs (spec, point) deepest first; 0x1F is 10 ppem, +8 steps of 1/8.
      {"DELTAP1 moves the point of this size's pair", {0x01, 0xB4, 0x0F, 1, 0x1F, 0, 2, 0x5D, 0xB0, 0, 0x46}, 64},
      {"DELTAP1 loses a pair of a list not ascending", {0x01, 0xB4, 0x1F, 0, 0x0F, 1, 2, 0x5D, 0xB0, 0, 0x46}, 0},
      // MAZMODE and MAZSTROKE pop the value, ppem low, ppem high.
      {"MAZMODE in range sets the method of the freedom axis", {0xB2, 20, 5, 2, 0xA5}, 2, 0, 1},
      {"MAZSTROKE in range appends the point", {0xB2, 20, 5, 7, 0xA6}, 107, 0, 2},
      {"MAZSTROKE out of range appends nothing", {0xB2, 20, 11, 7, 0xA6}, 0, 0, 2},
      {"ENDF executed fails that glyph's fetch", {0x2D}, 0, 0, 0, ERR_ILLEGAL_INSTRUCTION},
  };
  set_UD_functions(1);
  for (const GlyphCase& c : cases) {
    Bytes program = c.program, hmtx, maxp = sfnt::maxp10(3, 4, 4), cvt = {0x03, 0xE8};  // 1000
    for (uint8_t b : {0xB0, 1, 0x16, 0x00, 0xB0, 0, 0x23, 0x48}) program.push_back(b);  // SZPS 1, SCFS
    sfnt::Font f = glyffont::font({glyffont::triangle(program), glyffont::triangle(),
                                   glyffont::simple({}, {}, program)});
    sfnt::putU16(hmtx = *f.find("hmtx"), 0, 510), sfnt::putU16(maxp, 16, 4);  // advance; maxTwilightPoints
    f.set("hmtx", hmtx);
    glyffont::setPrograms(f, {}, {}, cvt, maxp, 10, (uint32_t)program.size());
    testsupport::ScaledFont sf;
    sf.setFont("", sfnt::build(f));
    ASSERT_EQ(0, sf.setPpem(10)) << c.why;
    fsg_SplineKey* key = sf.key();
    EXPECT_EQ(c.status, (key->glyphIndex = (FS_USHORT)c.glyph, fsg_GridFit(&sf.st, key, 1))) << c.why;
    fnt_MAZData& m = key->globalGS.maz_data;
    long got = c.read == 1 ? m.MAZmethodVert : c.read == 2 ? 100 * m.nVcollapse + m.Vcollapse[0] : sf.element()->y[0];
    if (c.status == 0) { EXPECT_EQ(c.want, got) << c.why; }
    key->glyphIndex = 1;  // the next glyph draws
    EXPECT_TRUE(fsg_GridFit(&sf.st, key, 1) == 0 && sf.element()->np == 3) << c.why;
  }
  set_UD_functions(0);
  // Liberation Serif's control-value program switches hints off below 8
  // ppem (INSTCTRL bit 0): every glyph at 7 ppem is its unhinted self.
  testsupport::ScaledFont sf;
  sf.setFont("/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf");
  ASSERT_EQ(0, sf.setPpem(7));
  int differ = 0;
  for (unsigned g = 0; g < sf.key()->maxp->numGlyphs; g++) {
    std::vector<F26DOT6> pts[2];
    for (int hints = 0; hints < 2; hints++) {
      sf.key()->glyphIndex = (FS_USHORT)g;
      fnt_ElementType* el = fsg_GridFit(&sf.st, sf.key(), (FS_BOOLEAN)hints) == 0 ? sf.element() : nullptr;
      if (el) pts[hints].assign(el->x, el->x + el->np + 2), pts[hints].insert(pts[hints].end(), el->y, el->y + el->np);
    }
    differ += pts[0] != pts[1] || pts[0].empty();
  }
  EXPECT_EQ(0, differ);
}

TEST(Interpreter, APanickingControlValueProgramFailsOnlyItsSize) {
  // MPPEM 12 EQ IF ENDF EIF: ENDF is executed at 12 ppem only.
  Case c = {"", {}, {0x4B, 0xB0, 12, 0x54, 0x58, 0x2D, 0x59}, {}, 12, 0, 0};
  testsupport::ScaledFont sf;
  sf.setFont("", caseFont(c));
  EXPECT_EQ(ERR_ILLEGAL_INSTRUCTION, sf.setPpem(12));
  EXPECT_EQ(nullptr, sf.key());
  // Trying again leaves nothing more allocated than the scaled font record.
  FS_ULONG before = sf.st.server->allocated;
  EXPECT_EQ(ERR_ILLEGAL_INSTRUCTION, check_sfnt(&sf.st));
  EXPECT_EQ(before, sf.st.server->allocated);
  // Another size of the same font works, glyphs and all.
  EXPECT_TRUE(sf.setPpem(13) == 0 && sf.fetch(0) == 0 && sf.element()->np == 3);
}

// Mutated hinting data of packaged fonts: byte flips and truncations of
// `fpgm`, `prep` and `cvt `, and `maxp` counts of 0 and 65535. Each scales
// to 0 or 416 within a second, and deleting the fonts gives back every byte
// but the shared workspace's growth.
TEST(Interpreter, MutatedProgramsScaleToZeroOr416AndFreeEverything) {
  const size_t kCountFields[] = {16, 18, 20, 22, 24};  // twilight .. stack
  FS_STATE st;
  ASSERT_EQ(0, FSS_init(&st, 64u << 20));
  // The workspace is the server's, shared by all scaled fonts, and only
  // grows: the figure compared leaves it out. So does what the first scale
  // sets up for good, measured after one unmutated font.
  auto inUse = [&st] { return st.server->allocated - (FS_ULONG)st.server->workspaceSize; };
  auto scale = [&st](Bytes& font, FS_LONG* err) {
    FILECHAR name[64];
    FS_LONG loaded = FSS_load_font_with_offset(&st, nullptr, font.data(), 0, 0,
                                               (FS_ULONG)font.size(), sizeof name, name);
    if (loaded != 0 || FSS_set_font(&st, name) != 0) return false;
    *err = FSS_set_scale(&st, 12 << 16, 0, 0, 12 << 16);
    if (*err == 0) *err = check_sfnt(&st);
    return FSS_delete_font(&st, name) == 0;
  };
  FS_ULONG start = 0;
  std::mt19937 rng(26);
  int panics = 0;
  for (const char* path : kPackaged) {
    std::string file = testsupport::readBytes(path);
    ASSERT_FALSE(file.empty()) << "missing packaged font " << path;
    sfnt::Font real = sfnt::read(Bytes(file.begin(), file.end()));
    Bytes warm = sfnt::build(real);
    FS_LONG err = 1;
    ASSERT_TRUE(scale(warm, &err) && err == 0) << path;
    if (start == 0) start = inUse();
    for (int m = 0; m < 100; m++) {
      sfnt::Font f = real;
      const char* tags[] = {"fpgm", "prep", "cvt ", "maxp"};
      std::string tag = tags[rng() % 4];
      Bytes t = *f.find(tag);
      if (tag == "maxp") {
        sfnt::putU16(t, kCountFields[rng() % 5], rng() % 2 ? 0xFFFF : 0);
      } else if (rng() % 4 == 0) {
        t.resize(rng() % t.size());
      } else {
        for (int flips = 1 + rng() % 8; flips > 0; flips--) t[rng() % t.size()] = (uint8_t)rng();
      }
      Bytes font = sfnt::build(f.set(tag, t));
      auto t0 = std::chrono::steady_clock::now();
      std::string at = std::string(path) + " mutation " + std::to_string(m) + " of " + tag;
      EXPECT_TRUE(scale(font, &err)) << at;
      double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
      EXPECT_TRUE(err == 0 || err == ERR_ILLEGAL_INSTRUCTION) << at << ": " << err;
      EXPECT_LT(seconds, 1.0) << at;
      panics += err == ERR_ILLEGAL_INSTRUCTION;
    }
  }
  EXPECT_EQ(start, inUse());
  EXPECT_GT(panics, 50);  // the sweep reaches the panics
  FSS_exit(&st);
}

// Each simple glyph with a program in a font file, and the offset of the
// program's 2-byte length.
std::vector<std::pair<FS_USHORT, size_t>> glyphPrograms(const Bytes& file) {
  auto at = [&](const char* tag) { return sfnt::getU32(file, sfnt::entryOf(file, tag) + 8); };
  bool longLoca = sfnt::getU16(file, at("head") + 50) == 1;
  std::vector<std::pair<FS_USHORT, size_t>> found;
  for (uint32_t g = 0; g < sfnt::getU16(file, at("maxp") + 4); g++) {
    size_t o = at("glyf") + (longLoca ? sfnt::getU32(file, at("loca") + 4 * g) : 2 * sfnt::getU16(file, at("loca") + 2 * g));
    size_t len = o + 10 + 2 * (size_t)(int16_t)sfnt::getU16(file, o);
    if ((int16_t)sfnt::getU16(file, o) > 0 && sfnt::getU16(file, len) > 0) found.push_back({(FS_USHORT)g, len});
  }
  return found;
}

// 1000 mutated glyph programs of the five packaged fonts, bytes flipped or
// lengths changed in place: each hinted fetch at 12 ppem ends in 0, 416 or
// a bad glyph's own error within a second, and deleting each font gives
// back every byte but the shared workspace's growth.
TEST(Interpreter, MutatedGlyphProgramsFailOnlyTheirGlyph) {
  FS_STATE st;
  ASSERT_EQ(0, FSS_init(&st, 64u << 20));
  auto inUse = [&st] { return st.server->allocated - (FS_ULONG)st.server->workspaceSize; };
  FS_ULONG start = 0;
  std::mt19937 rng(27);
  std::map<FS_LONG, int> outcomes;  // error: fetches
  for (const char* path : kPackaged) {
    Bytes file = sfnt::asBytes(testsupport::readBytes(path));
    ASSERT_FALSE(file.empty()) << "missing packaged font " << path;
    auto programs = glyphPrograms(file);
    for (int m = 0; m <= 200; m++) {
      Bytes font = file;
      auto [glyph, len] = programs[rng() % programs.size()];
      if (m > 0 && rng() % 4 == 0) sfnt::putU16(font, len, (uint32_t)rng() % 0x10000 >> (rng() % 16));
      else for (int flips = m > 0 ? 1 + rng() % 6 : 0; flips > 0; flips--)
        font[len + 2 + rng() % sfnt::getU16(font, len)] = (uint8_t)rng();
      FILECHAR name[64];
      ASSERT_EQ(0, FSS_load_font_with_offset(&st, nullptr, font.data(), 0, 0, (FS_ULONG)font.size(), sizeof name, name));
      ASSERT_TRUE(FSS_set_font(&st, name) == 0 && FSS_set_scale(&st, 12 << 16, 0, 0, 12 << 16) == 0 && check_sfnt(&st) == 0);
      fsg_SplineKey* key = (fsg_SplineKey*)st.cur_sfnt->senv->ttkey;
      for (FS_USHORT g : {glyph, (FS_USHORT)(glyph + 1)}) {
        auto t0 = std::chrono::steady_clock::now();
        FS_LONG err = (key->glyphIndex = g, fsg_GridFit(&st, key, 1));
        EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 1.0);
        EXPECT_TRUE(err == 0 || err == ERR_ILLEGAL_INSTRUCTION || err == ERR_BAD_GLYF_FORMAT || err == ERR_TOO_MANY_POINTS)
            << path << " mutation " << m << " glyph " << g << ": " << err;
        outcomes[err]++;
      }
      EXPECT_EQ(0, FSS_delete_font(&st, name));
      if (start == 0) start = inUse();
    }
  }
  EXPECT_EQ(start, inUse());
  EXPECT_TRUE(outcomes[ERR_ILLEGAL_INSTRUCTION] > 10 && outcomes[ERR_BAD_GLYF_FORMAT] > 10);  // reached
  FSS_exit(&st);
}

}  // namespace
