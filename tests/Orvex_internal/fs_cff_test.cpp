// The CFF loader and charstring interpreter: hand-worked glyphs and
// refusals on tables written byte by byte, packaged fonts, damaged tables.
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/cff_builder.h"
#include "support/scaled_font.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

namespace {

FS_LONG fetch(testsupport::ScaledFont& sf, unsigned g) {
  sf.key()->glyphIndex = (FS_USHORT)g;
  return cff_GridFit(&sf.st, sf.key(), 0);
}

// The loader's answer to `sf`'s font: 0 or its error; -1 if it keeps heap.
FS_LONG loadCode(testsupport::ScaledFont& sf) {
  FS_ULONG before = sf.st.server->allocated;
  TTF* ttf = load_ttf(&sf.st, nullptr, sf.data.data(), 0, 0, (FS_ULONG)sf.data.size(), 0, 7);
  FS_LONG code = ttf ? 0 : (FS_LONG)sf.st.error;
  unload_ttf(&sf.st, ttf);
  return sf.st.server->allocated == before ? code : -1;
}

// Glyphs drawn by `cs`, glyph 0 first, with the SIDs `charset` of glyphs 1
// on (none: the predefined charset); widths over 200.
cffw::Table glyphs(const std::vector<std::string>& cs, std::vector<uint16_t> charset = {}) {
  cffw::Table t;
  for (const std::string& c : cs) t.glyphs.push_back(cffw::charstring(c));
  t.charset = charset;
  t.priv.nominalWidth = 200;
  return t;
}

cffw::Table oneGlyph(const std::string& cs) { return glyphs({"endchar", cs}); }

// Local subroutine i calls i + 1; the last of `depth` draws a line.
cffw::Table nested(int depth) {
  cffw::Table t = oneGlyph("0 0 rmoveto -107 callsubr endchar");
  for (int i = 0; i + 1 < depth; i++)
    t.priv.subrs.push_back(cffw::charstring(std::to_string(i - 106) + " callsubr return"));
  t.priv.subrs.push_back(cffw::charstring("0 100 rlineto return"));
  return t;
}

// A CID font of `n` glyphs: glyph g gives a width of g, draws a line and
// calls the one subroutine of its font dict, g % `fds`, whose nominalWidthX
// is 100 + 300 x its number.
cffw::Table cid(int n, int fds) {
  cffw::Table t;
  t.fds.resize(fds);
  for (int k = 0; k < fds; k++) {
    t.fds[k].nominalWidth = 100 + 300 * k;
    t.fds[k].subrs = {cffw::charstring("0 10 rlineto return")};
  }
  for (int g = 0; g < n; g++) {
    t.glyphs.push_back(
        cffw::charstring(std::to_string(g) + " 0 0 rmoveto 10 0 rlineto -107 callsubr endchar"));
    if (g > 0) t.charset.push_back((uint16_t)g);
    t.fdSelect.push_back((uint8_t)(g % fds));
  }
  return t;
}

// 1400 rlinetos of 24 steps: 33601 points, past the element's cap of 32759.
std::string pastThePointCap(std::string cs = "0 0 rmoveto") {
  for (int i = 0; i < 1400 * 24; i++) cs += i % 24 == 23 ? " 1 1 rlineto" : " 1 1";
  return cs + " endchar";
}

cffw::Table with(int offSize, std::vector<cffw::DictEntry> top, bool twoNames) {
  cffw::Table t = oneGlyph("endchar");
  t.charstringsOffSize = offSize;
  t.topExtra = top;
  if (twoNames) t.names.push_back({'U'});
  return t;
}

// Each row's table in a font (hmtx advances 600) at 1000 ppem, 64 x units:
// glyph 0 is drawn first (a CID font's other dict), then the last glyph:
// its error, else its points (contours reversed) and its advance.
TEST(CffCharstring, HandWorkedGlyphsAndRefusals) {
  const struct {
    cffw::Table table;
    FS_LONG code;
    std::vector<std::pair<long, long>> points;
    long advance;
    const char* why;
  } rows[] = {
      {oneGlyph("100 0 rmoveto 100 0 rlineto 0 10 20 30 40 50 rrcurveto endchar"), 0,
       {{100, 0}, {260, 90}, {220, 40}, {200, 10}, {200, 0}, {100, 0}}, 600, "closed on its start"},
      {oneGlyph("10.5 -0.25 rmoveto 0 100 rlineto endchar"), 0,
       {{11, 0}, {11, 100}, {11, 0}}, 600, "255-coded 16.16: 10.5 rounds to 11, -0.25 to 0"},
      {glyphs({"endchar", "0 0 rmoveto 0 100 rlineto endchar", "0 0 rmoveto 10 10 rlineto endchar",
               "52 167 199 65 194 endchar"}, {34, 125, 3}), 0,
       {{0, 0}, {0, 100}, {0, 0}, {167, 199}, {177, 209}, {167, 199}}, 252,
       "a width of 200 + 52, then A (65) and acute (194) 167 right and 199 up"},
      {oneGlyph(""), 0, {}, 600, "an empty charstring takes the hmtx advance"},
      {cid(2, 2), 0, {{0, 0}, {10, 10}, {10, 0}, {0, 0}}, 401,
       "after glyph 0 in font dict 0, glyph 1's own dict 1 and its subroutine: 400 + 1"},
      {nested(10), 0, {{0, 0}, {0, 100}, {0, 0}}, 600, "ten open calls draw"},
      {oneGlyph("0 0 rmoveto -107 callsubr 0 10 rlineto endchar"), 0,
       {{0, 0}, {0, 10}, {0, 0}}, 600, "index = count (0) runs as an empty subroutine"},
      {nested(11), 456, {}, 0, "the eleventh open call is a bad charstring"},
      {oneGlyph("-106 callsubr endchar"), 460, {}, 0, "index = count + 1 is out of range"},
      {oneGlyph("0 0 32 32 endchar"), 467, {}, 0, "a seac of itself (space) nests past 10"},
      {oneGlyph(pastThePointCap()), 418, {}, 0, "33601 points are past the element's cap"},
      {with(0, {}, true), 458, {}, 0, "a name INDEX of two names"},
      {with(0, {{{1}, 1206}}, false), 459, {}, 0, "charstring type 1"},
      {with(5, {}, false), 461, {}, 0, "an INDEX offset size of 5"},
  };
  for (const auto& r : rows) {
    sfnt::Font font = sfnt::minimalCffFont((uint32_t)r.table.glyphs.size());
    font.set("CFF ", cffw::build(r.table));
    testsupport::ScaledFont sf;
    sf.setFont("", sfnt::build(font));
    FS_LONG code = loadCode(sf);
    if (code == 0) code = sf.setPpem(1000);
    if (code == 0) code = fetch(sf, 0);
    if (code == 0) code = fetch(sf, (unsigned)r.table.glyphs.size() - 1);
    ASSERT_EQ(code, r.code) << r.why;
    if (code != 0) continue;
    fnt_ElementType* el = sf.element();
    decltype(r.points) p;
    for (int i = 0; i < el->np; i++) p.push_back({el->x[i] / 64, el->y[i] / 64});
    EXPECT_EQ(p, r.points) << r.why;
    EXPECT_EQ((el->x[el->np + 1] - el->x[el->np]) / 64, r.advance) << r.why;
  }
}

/* ---- Packaged fonts ---- */

const char* kPagella = "/usr/share/texmf/fonts/opentype/public/tex-gyre/texgyrepagella-regular.otf";

// Pagella's H has four flexes 3 units deep (1000 units per em): lines up
// to 150 ppem (0.45 pixel, under the depth of half a pixel); from 200 ppem
// (0.6 pixel) two curves each, 5 points more.
TEST(CffPackagedFonts, PagellaHFlexesCurveFromHalfAPixelDeep) {
  for (auto r : std::vector<std::pair<int, long>>{{24, 65}, {150, 65}, {200, 85}}) {
    testsupport::ToolRun run = testsupport::runFontvec(std::string("glyph ") + kPagella +
                                                       " --char U+0048 --points --no-hints --ppem " +
                                                       std::to_string(r.first));
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n') - 1, r.second) << r.first;
  }
}

// EB Garamond has 13 glyphs over the 256 points of the synthesised maxp,
// the largest 545: the element grows to 1024 once, and later glyphs keep it.
TEST(CffPackagedFonts, GlyphsOverTheSynthesisedLimitGrowItOnceForLaterGlyphs) {
  testsupport::ScaledFont sf;
  sf.setFont("/usr/share/fonts/opentype/ebgaramond/EBGaramond12-Regular.otf");
  ASSERT_EQ(sf.setPpem(24), 0) << "EB Garamond";
  int over = 0, largest = 0;
  for (unsigned g = 0; g < sf.key()->maxp->numGlyphs; g++) {
    ASSERT_EQ(fetch(sf, g), 0) << "glyph " << g;
    over += sf.element()->np > 256;
    largest = std::max(largest, (int)sf.element()->np);
  }
  EXPECT_EQ(over, 13);
  EXPECT_EQ(largest, 545);
  EXPECT_EQ(sf.key()->max_points, 1024);
  EXPECT_EQ(sf.key()->maxp->maxPoints, 1024);
}

// The Private dict's fields come from the top dict, or in a CID font from
// font dict 0.
TEST(CffPackagedFonts, InfoShowsEachSourceOfTheDictFields) {
  for (auto r : std::vector<std::pair<const char*, const char*>>{
           {kPagella,
            "cid: no\nfont_dicts: 0\nglobal_subrs: 0\nlocal_subrs: 423\n"
            "default_width: 500\nnominal_width: 683\n"},
           {"/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc",
            "cid: yes\nfont_dicts: 18\nglobal_subrs: 1246\nlocal_subrs: 3\n"
            "default_width: 1000\nnominal_width: 0\n"}}) {
    testsupport::ToolRun run = testsupport::runFontvec(std::string("info --cff ") + r.first);
    EXPECT_EQ(run.out, r.second) << r.first;
  }
}

/* ---- Damaged tables ---- */

typedef std::pair<size_t, size_t> Range;

// A `CFF ` table's parts by kind, as the loader finds them: INDEX heads,
// offset arrays, name to strings, Private, charstrings, FDSelect (or all).
std::vector<std::vector<Range>> parts(sfnt::Bytes font, size_t tableSize) {
  testsupport::ScaledFont sf;
  TTF* ttf = load_ttf(&sf.st, nullptr, font.data(), 0, 0, (FS_ULONG)font.size(), 0, 7);
  std::vector<std::vector<Range>> kinds(6);
  CFF_TAB* c = ttf ? ttf->cff : nullptr;
  if (c == nullptr) return kinds;
  FS_ULONG off = ttf->cff_offset;
  CFFTOPDICT* t = c->topdict;
  for (FS_ULONG at : {c->nameINDEXoffset, c->topdictINDEXoffset, c->stringINDEXoffset})
    kinds[0].push_back({at - off, at - off + 3});
  for (const CFF_INDEX* x : {&c->globalsubrs, &t->charstrings, &t->privatedict.subrs}) {
    kinds[0].push_back({x->pos, x->pos + 3});
    kinds[1].push_back({x->pos + 3, x->base + 1});
  }
  kinds[2].push_back({c->nameINDEXoffset - off, c->globalsubrINDEXoffset - off});
  kinds[3].push_back({t->privatedictoffset, t->privatedictoffset + t->privatedictsize});
  kinds[4].push_back({t->charstrings.base + 1, t->charstrings.end});
  size_t fds = t->FDselectoffset ? t->FDselectoffset - off : 0;
  kinds[5].push_back(fds ? Range{fds, fds + 8} : Range{0, tableSize});
  unload_ttf(&sf.st, ttf);
  return kinds;
}

// 250 damaged tables of each of four fonts (one a built CID font), 1 to 3
// bytes of one kind of part changed: the load answers 0 or 458 to 461 and
// gives its heap back; every glyph at 24 ppem draws or fails alone with an
// allowed code, in under a second, and leaves nothing on the heap.
TEST(CffDamagedTables, LoadAndEveryGlyphAnswerWithTheirCodes) {
  std::vector<sfnt::Font> fonts;
  for (const char* path : {"/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf",
                           kPagella, "/usr/share/fonts/opentype/cantarell/Cantarell-Regular.otf"}) {
    std::string bytes = testsupport::readBytes(path);
    ASSERT_FALSE(bytes.empty()) << path;
    fonts.push_back(sfnt::read(sfnt::asBytes(bytes)));
  }
  fonts.push_back(sfnt::minimalCffFont(40));
  fonts.back().set("CFF ", cffw::build(cid(40, 3)));

  std::mt19937 rng(24);
  const std::vector<FS_LONG> allowed = {0, 456, 460, 467, 418, 419};
  long refused = 0, failedGlyphs = 0, glyphs = 0;
  for (sfnt::Font& f : fonts) {
    const cffw::Bytes original = *f.find("CFF ");
    auto kinds = parts(sfnt::build(f), original.size());
    ASSERT_FALSE(kinds[4].empty()) << "font " << &f - &fonts[0] << " loads undamaged";
    for (int m = 0; m < 250; m++) {
      cffw::Bytes b = original;
      for (int k = 0, n = 1 + rng() % 3; k < n; k++) {
        auto& ranges = kinds[rng() % kinds.size()];
        Range r = ranges.empty() ? Range{b.size(), 0} : ranges[rng() % ranges.size()];
        size_t at = r.first + (r.second > r.first ? rng() % (r.second - r.first) : 0);
        const int change[] = {0, 0xFF, b[at % b.size()] + 1, b[at % b.size()] - 1, (int)rng()};
        if (at < b.size()) b[at] = (uint8_t)change[rng() % 5];
      }
      std::string at = "font " + std::to_string(&f - &fonts[0]) + ", damage " + std::to_string(m);
      testsupport::ScaledFont sf;
      sf.setFont("", sfnt::build(f.set("CFF ", b)));
      FS_LONG loadError = loadCode(sf);
      ASSERT_NE(loadError, -1) << at << ": the load keeps heap";
      if (loadError) {
        refused++;
        ASSERT_TRUE(loadError >= 458 && loadError <= 461) << at << ": " << loadError;
        continue;
      }
      ASSERT_EQ(sf.setPpem(24), 0) << at;
      FS_ULONG steady = sf.st.server->allocated - (FS_ULONG)sf.st.server->workspaceSize;
      for (unsigned g = 0; g < sf.key()->maxp->numGlyphs; g++, glyphs++) {
        clock_t start = clock();
        FS_LONG err = fetch(sf, g);
        ASSERT_LT(clock() - start, CLOCKS_PER_SEC) << at << " glyph " << g;
        ASSERT_NE(std::count(allowed.begin(), allowed.end(), err), 0) << at << " glyph " << g;
        failedGlyphs += err != 0;
      }
      ASSERT_EQ(sf.st.server->allocated - (FS_ULONG)sf.st.server->workspaceSize, steady) << at;
    }
  }
  printf("1000 damaged tables: %ld refused; %ld of %ld glyphs failed alone\n", refused,
         failedGlyphs, glyphs);
}

}  // namespace
