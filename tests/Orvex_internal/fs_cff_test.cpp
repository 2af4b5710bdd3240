// The CFF loader and charstring interpreter on tables written byte by byte:
// hand-worked points and widths, subroutine and seac limits, and the
// loader's refusals. Glyphs are fetched at ppem = unitsPerEm (1000), where
// 26.6 pixels are 64 x font units exactly.
#include <gtest/gtest.h>
#include <time.h>

#include <random>
#include <string>
#include <vector>

#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/cff_builder.h"
#include "support/scaled_font.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

namespace {

typedef std::vector<std::pair<long, long>> Points;

// An OpenType font around `t` (hmtx: glyph 0 500 wide, the rest 600),
// scaled to 1000 ppem. `err` receives the scaler's error.
struct CffFont {
  testsupport::ScaledFont sf;
  FS_LONG err = 0;
  explicit CffFont(const cffw::Table& t, int ppem = 1000) {
    sfnt::Font f = sfnt::minimalCffFont((uint32_t)t.glyphs.size());
    f.set("CFF ", cffw::build(t));
    sf.setFont("", sfnt::build(f));
    err = sf.setPpem(ppem);
  }
  FS_LONG fetch(unsigned g) {
    sf.key()->glyphIndex = (FS_USHORT)g;
    return cff_GridFit(&sf.st, sf.key(), 0);
  }
  // The glyph's points in whole pixels (font units at 1000 ppem), contour
  // after contour, as drawn.
  Points points() {
    fnt_ElementType* el = sf.element();
    Points p;
    for (int i = 0; i < el->np; i++)
      p.push_back({el->x[i] / 64, el->y[i] / 64});
    return p;
  }
  long advance() {
    fnt_ElementType* el = sf.element();
    return (el->x[el->np + 1] - el->x[el->np]) / 64;
  }
};

cffw::Table oneGlyph(const std::string& cs) {
  cffw::Table t;
  t.glyphs = {cffw::charstring("endchar"), cffw::charstring(cs)};
  t.priv.nominalWidth = 200;
  t.priv.defaultWidth = 300;
  return t;
}

const char* kFlex = "0 0 rmoveto 50 0 50 -3 50 0 50 0 50 3 50 0 50 flex endchar";

TEST(CffCharstring, HandWorkedPointsInTrueTypeOrder) {
  const struct {
    const char* cs;
    int ppem;
    Points expected;
    const char* why;
  } rows[] = {
      {"100 0 rmoveto 100 0 rlineto 0 100 rlineto endchar", 1000,
       {{100, 0}, {200, 100}, {200, 0}, {100, 0}},
       "an open contour closes on an added start point; reversed"},
      {"10.5 -0.25 rmoveto 0 100 rlineto endchar", 1000,
       {{11, 0}, {11, 100}, {11, 0}},
       "16.16 operands: 10.5 is 672/64, rounded to 11; -0.25 and 99.75 to 0, 100"},
      {"0 0 rmoveto 0 10 20 30 40 50 rrcurveto endchar", 1000,
       {{0, 0}, {60, 90}, {20, 40}, {0, 10}, {0, 0}},
       "a cubic: two off-curve controls, reversed with its end"},
      {"0 0 rmoveto 10 20 rlineto 5 5 rmoveto 0 10 rlineto endchar", 1000,
       {{0, 0}, {10, 20}, {0, 0}, {15, 25}, {15, 35}, {15, 25}},
       "a second moveto closes the first contour"},
      {"50 50 rmoveto 0 0 rmoveto endchar", 1000, {},
       "a contour of its start alone leaves nothing"},
      {kFlex, 1000,
       {{0, 0}, {300, 0}, {250, 0}, {200, -3}, {150, -3}, {100, -3}, {50, 0}, {0, 0}},
       "a flex 3 pixels deep curves"},
      {kFlex, 100, {{0, 0}, {30, 0}, {0, 0}},
       "at 100 ppem it is 0.3 pixel deep, under its depth of 50/100: a line"},
  };
  for (const auto& r : rows) {
    CffFont f(oneGlyph(r.cs), r.ppem);
    ASSERT_EQ(f.err, 0);
    ASSERT_EQ(f.fetch(1), 0) << r.cs;
    EXPECT_EQ(f.points(), r.expected) << r.why;
  }
}

TEST(CffCharstring, WidthFromTheFirstStackClearingOperatorElseHmtx) {
  const struct {
    const char* cs;
    long advance;
    const char* why;
  } rows[] = {
      {"52 endchar", 252, "one operand at endchar: nominal 200 + 52"},
      {"52 0 0 0 0 endchar", 252, "five at endchar: the width, then a seac of glyph 0 twice"},
      {"-20 10 20 hstem 0 0 rmoveto endchar", 180, "odd stem operands: the first is the width"},
      {"7 0 0 rmoveto endchar", 207, "three at rmoveto"},
      {"0 0 rmoveto 5 endchar", 600, "no width at the first clearing operator: hmtx"},
      {"", 600, "an empty charstring takes the hmtx advance"},
  };
  for (const auto& r : rows) {
    CffFont f(oneGlyph(r.cs));
    ASSERT_EQ(f.fetch(1), 0) << r.cs;
    EXPECT_EQ(f.advance(), r.advance) << r.why;
  }
}

TEST(CffCharstring, FontDictsOfACidFontGiveTheirOwnNominalWidth) {
  cffw::Table t;
  t.glyphs = {cffw::charstring("10 endchar"), cffw::charstring("10 endchar")};
  t.charset = {1};
  t.fds = {cffw::Private(), cffw::Private()};
  t.fds[0].nominalWidth = 100;
  t.fds[1].nominalWidth = 400;
  t.fdSelect = {1, 0};
  CffFont f(t);
  ASSERT_EQ(f.fetch(0), 0);
  EXPECT_EQ(f.advance(), 410);
  ASSERT_EQ(f.fetch(1), 0);
  EXPECT_EQ(f.advance(), 110);
  ASSERT_EQ(f.fetch(0), 0);
  EXPECT_EQ(f.advance(), 410);
}

// Local subroutine i (of n) calls i + 1; the last draws a line.
cffw::Table nested(int depth, int count) {
  cffw::Table t = oneGlyph("0 0 rmoveto -107 callsubr endchar");
  for (int i = 0; i < count; i++)
    t.priv.subrs.push_back(cffw::charstring(
        i + 1 < depth ? std::to_string(i + 1 - 107) + " callsubr return"
                      : "0 100 rlineto return"));
  return t;
}

TEST(CffCharstring, SubroutineAndSeacLimits) {
  const struct {
    cffw::Table table;
    FS_LONG expected;
    const char* why;
  } rows[] = {
      {nested(10, 10), 0, "ten open calls draw"},
      {nested(11, 11), 456, "the eleventh is a bad charstring"},
      {oneGlyph("0 0 rmoveto -107 callsubr 0 10 rlineto endchar"), 0,
       "index = count (0) passes as an empty subroutine"},
      {oneGlyph("-106 callsubr endchar"), 460, "count + 1 is out of range"},
      {oneGlyph("0 0 rmoveto 1 2 add endchar"), 0, "arithmetic leaves the path alone"},
      {oneGlyph("add endchar"), 456, "stack underflow"},
      {oneGlyph("0 10 hstem 0 0 rmoveto 0 100 rlineto x:13"), 456,
       "a hintmask's byte past the end"},
      {oneGlyph("0 0 rmoveto 0 x:1c"), 456, "an operand cut by the end"},
  };
  for (const auto& r : rows) {
    CffFont f(r.table);
    EXPECT_EQ(f.fetch(1), r.expected) << r.why;
  }
  // seac whose base is itself (glyph 1 is SID 1, space: code 32).
  cffw::Table self = oneGlyph("0 0 32 32 endchar");
  CffFont f(self);
  EXPECT_EQ(f.fetch(1), 467) << "seac nesting past 10";
  EXPECT_EQ(f.fetch(0), 0) << "the font stays usable";
}

TEST(CffCharstring, AGlyphPastTheElementGrowsItAndLaterGlyphsKeepTheRoom) {
  std::string cs = "0 0 rmoveto";
  for (int k = 0; k < 13; k++) {  // 13 x 24 lines: 313 points with the start
    for (int i = 0; i < 24; i++) cs += i % 2 ? " 0 1" : " 1 0";
    cs += " rlineto";
  }
  CffFont f(oneGlyph(cs + " endchar"));
  ASSERT_EQ(f.fetch(1), 0);
  EXPECT_EQ(f.sf.element()->np, 314);  // and the closing point
  EXPECT_EQ(f.sf.key()->maxp->maxPoints, 512);
  ASSERT_EQ(f.fetch(0), 0);
  EXPECT_EQ(f.sf.key()->max_points, 512);
}

TEST(CffLoad, RefusedTablesGiveTheirOwnCode) {
  cffw::Table twoNames = oneGlyph("endchar");
  twoNames.names.push_back({'U'});
  cffw::Table type1 = oneGlyph("endchar");
  type1.topExtra = {{{1}, 1206}};
  cffw::Table wideOffsets = oneGlyph("endchar");
  wideOffsets.charstringsOffSize = 5;
  const struct {
    cffw::Table table;
    FS_ULONG expected;
    const char* why;
  } rows[] = {
      {twoNames, ERR_CFF_HEADER, "a name INDEX of 2 names is 458"},
      {type1, ERR_CFF_HEADER_2, "charstring type 1 is 459"},
      {wideOffsets, ERR_CFF_INDEX_2, "an INDEX offset size of 5 is 461"},
  };
  for (const auto& r : rows) {
    sfnt::Font font = sfnt::minimalCffFont(2);
    font.set("CFF ", cffw::build(r.table));
    testsupport::ScaledFont sf;
    sf.setFont("", sfnt::build(font));
    EXPECT_NE(sf.setPpem(1000), 0) << r.why;
    TTF* ttf = load_ttf(&sf.st, nullptr, sf.data.data(), 0, 0,
                        (FS_ULONG)sf.data.size(), 0, 7);
    EXPECT_EQ(ttf, nullptr);
    EXPECT_EQ(sf.st.error, r.expected) << r.why;
  }
}


/* ---- Packaged fonts ---- */

const char* kPagella = "/usr/share/texmf/fonts/opentype/public/tex-gyre/texgyrepagella-regular.otf";
const char* kGaramond = "/usr/share/fonts/opentype/ebgaramond/EBGaramond12-Regular.otf";

TEST(CffPackagedFonts, PagellaHFlexesCurveFromHalfAPixelDeep) {
  // Four flexes 3 units deep (1000 units per em): lines up to 150 ppem
  // (0.45 pixel), two curves each from 200 ppem (0.6 pixel), 5 points more.
  const struct {
    int ppem;
    int points;
  } rows[] = {{24, 65}, {150, 65}, {200, 85}};
  for (const auto& r : rows) {
    testsupport::ToolRun run = testsupport::runFontvec(
        std::string("glyph ") + kPagella + " --char U+0048 --ppem " +
        std::to_string(r.ppem) + " --points");
    ASSERT_EQ(run.status, 0) << kPagella;
    int n = 0;
    for (size_t at = 0; (at = run.out.find(" o", at)) != std::string::npos; at++) n++;
    EXPECT_EQ(n, r.points) << r.ppem << " ppem";
  }
}

TEST(CffPackagedFonts, GlyphsOverTheSynthesisedLimitGrowItOnceForLaterGlyphs) {
  testsupport::ScaledFont sf;
  sf.setFont(kGaramond);
  ASSERT_EQ(sf.setPpem(24), 0) << kGaramond;
  int over = 0, largest = 0;
  for (unsigned g = 0; g < sf.key()->maxp->numGlyphs; g++) {
    sf.key()->glyphIndex = (FS_USHORT)g;
    ASSERT_EQ(cff_GridFit(&sf.st, sf.key(), 0), 0) << "glyph " << g;
    int np = sf.element()->np;
    if (np > 256) over++;
    if (np > largest) largest = np;
  }
  EXPECT_EQ(over, 13);
  EXPECT_EQ(largest, 545);
  EXPECT_EQ(sf.key()->max_points, 1024);
  EXPECT_EQ(sf.key()->maxp->maxPoints, 1024);
}

TEST(CffPackagedFonts, InfoShowsTheDictsAndSubroutinesAndRefusesGlyfFonts) {
  testsupport::ToolRun cff = testsupport::runFontvec(std::string("info --cff ") + kPagella);
  EXPECT_EQ(cff.status, 0);
  EXPECT_EQ(cff.out, "cid: no\nfont_dicts: 0\nglobal_subrs: 0\nlocal_subrs: 423\n"
                     "default_width: 500\nnominal_width: 683\n");
  testsupport::ToolRun glyf = testsupport::runFontvec(
      "info --cff /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
  EXPECT_EQ(glyf.status, 1);
}

/* ---- Damaged tables ---- */

// A damaged copy of `cff`: one to three bytes of one part set to a value
// that breaks it (0, 0xFF, off by one, or anything).
cffw::Bytes damage(const cffw::Bytes& cff, const cffw::Layout& l, std::mt19937* rng) {
  cffw::Bytes b = cff;
  auto pick = [&](size_t from, size_t to) {
    return to > from ? from + (*rng)() % (to - from) : from;
  };
  for (int k = 0, n = 1 + (*rng)() % 3; k < n; k++) {
    size_t at;
    switch ((*rng)() % 6) {
      case 0: at = l.indexes[(*rng)() % l.indexes.size()] + (*rng)() % 3; break;  // count, offSize
      case 1: at = pick(l.indexes[(*rng)() % l.indexes.size()] + 3, l.charstringData); break;
      case 2: at = pick(l.topDict, l.topDictEnd); break;
      case 3: at = pick(l.privateDict, l.privateEnd); break;
      case 4: at = pick(l.charstringData, l.charstringEnd); break;
      default: at = l.fdSelect ? pick(l.fdSelect, l.fdSelect + 8) : pick(0, b.size()); break;
    }
    if (at >= b.size()) continue;
    switch ((*rng)() % 4) {
      case 0: b[at] = 0; break;
      case 1: b[at] = 0xFF; break;
      case 2: b[at] = (uint8_t)(b[at] + ((*rng)() % 2 ? 1 : -1)); break;
      default: b[at] = (uint8_t)(*rng)(); break;
    }
  }
  return b;
}

bool oneOf(FS_LONG v, std::initializer_list<FS_LONG> set) {
  for (FS_LONG s : set)
    if (v == s) return true;
  return false;
}

// 250 damaged tables of each of four fonts (a CID font among them): the
// load answers 0 or 458 to 461 and gives its heap back; every glyph at 24
// ppem draws or fails alone with 456, 460, 467, 418 or 419, in under a
// second, and leaves nothing behind on the heap.
TEST(CffDamagedTables, LoadAndEveryGlyphAnswerWithTheirCodes) {
  std::vector<std::pair<std::string, sfnt::Bytes>> fonts;
  for (const char* path : {"/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf",
                           kPagella, "/usr/share/fonts/opentype/cantarell/Cantarell-Regular.otf"}) {
    std::string bytes = testsupport::readBytes(path);
    ASSERT_FALSE(bytes.empty()) << path;
    fonts.push_back({path, sfnt::asBytes(bytes)});
  }
  cffw::Table cid;
  for (int g = 0; g < 40; g++)
    cid.glyphs.push_back(cffw::charstring(std::to_string(g) +
                                          " 0 0 rmoveto 10 0 rlineto 0 -107 callsubr endchar"));
  for (int g = 1; g < 40; g++) cid.charset.push_back((uint16_t)g);
  cid.fds = {cffw::Private(), cffw::Private(), cffw::Private()};
  for (auto& fd : cid.fds) fd.subrs = {cffw::charstring("0 10 rlineto return")};
  for (int g = 0; g < 40; g++) cid.fdSelect.push_back((uint8_t)(g % 3));
  sfnt::Font cidFont = sfnt::minimalCffFont(40);
  cidFont.set("CFF ", cffw::build(cid));
  fonts.push_back({"a built CID font", sfnt::build(cidFont)});

  std::mt19937 rng(24);
  long refused = 0, failedGlyphs = 0, glyphs = 0;
  for (auto& font : fonts) {
    sfnt::Font f = sfnt::read(font.second);
    size_t which = 0;
    while (f.tables[which].tag != "CFF ") which++;
    const cffw::Bytes original = f.tables[which].data;
    cffw::Layout l = cffw::layout(original);
    for (int m = 0; m < 250; m++) {
      f.tables[which].data = damage(original, l, &rng);
      sfnt::Bytes bytes = sfnt::build(f);
      std::string at = font.first + ", damage " + std::to_string(m);
      testsupport::ScaledFont sf;
      FS_ULONG before = sf.st.server->allocated;
      TTF* ttf = load_ttf(&sf.st, nullptr, bytes.data(), 0, 0, (FS_ULONG)bytes.size(), 0, 7);
      FS_ULONG loadError = sf.st.error;
      unload_ttf(&sf.st, ttf);
      ASSERT_EQ(sf.st.server->allocated, before) << at;
      if (ttf == nullptr) {
        refused++;
        ASSERT_TRUE(oneOf((FS_LONG)loadError, {458, 459, 460, 461})) << at << ": " << loadError;
        continue;
      }
      sf.setFont("", bytes);
      ASSERT_EQ(sf.setPpem(24), 0) << at;
      fsg_SplineKey* key = sf.key();
      FS_ULONG steady = sf.st.server->allocated - (FS_ULONG)sf.st.server->workspaceSize;
      for (unsigned g = 0; g < key->maxp->numGlyphs; g++) {
        key->glyphIndex = (FS_USHORT)g;
        clock_t start = clock();
        FS_LONG err = cff_GridFit(&sf.st, key, 0);
        ASSERT_LT(clock() - start, CLOCKS_PER_SEC) << at << " glyph " << g;
        ASSERT_TRUE(oneOf(err, {0, 456, 460, 467, 418, 419})) << at << " glyph " << g << ": " << err;
        glyphs++;
        if (err) failedGlyphs++;
      }
      ASSERT_EQ(sf.st.server->allocated - (FS_ULONG)sf.st.server->workspaceSize, steady) << at;
    }
  }
  printf("1000 damaged tables: %ld refused; %ld of %ld glyphs failed alone\n", refused,
         failedGlyphs, glyphs);
}

}  // namespace
