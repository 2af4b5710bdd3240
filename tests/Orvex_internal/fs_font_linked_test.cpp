// Linked fonts as font sets on real Debian fonts: the places a component's
// font may lie, a component that can't be found, size adjustments, synthetic
// bold and italic, and the tables the set lends of its own.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <ctype.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_ltt.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_tableptr.h"
#include "support/glyf_font.h"
#include "support/linked_font.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

using namespace testsupport;

namespace {

const int kSerif = 0, kSans = 1;

// A client on a font (a file, or bytes kept by the client), with the
// Unicode map, no hints, at `ppem`.
struct Client : TypesetFont {
  FS_LONG start(const std::string& path, const Bytes& bytes = {}, int ppem = 20) {
    FS_LONG err = open(path, bytes);
    if (err == 0) err = FSS_set_cmap(&st, 3, 10);
    FS_set_flags(&st, FLAGS_NO_HINTS);
    return err ? err : setPpem(ppem);
  }
  CFNT* cfnt(int i) { return &st.cur_typeset.fntset->cfnt[i]; }
};

// The outline of `id`: element codes, then x and y, 16.16.
std::vector<long> outlineOf(FS_STATE* st, FS_ULONG id) {
  std::vector<long> v;
  FS_OUTLINE* o = FSS_get_outline(st, id);
  if (o == nullptr) return v;
  for (int i = 0; i < o->num; i++) v.push_back(o->type[i]);
  for (int i = 0; i < o->np; i++) v.push_back(o->x[i]), v.push_back(o->y[i]);
  FSS_free_char(st, o);
  return v;
}

// Liberation Serif for U+0000 to U+03FF, DejaVu Sans for the rest, each
// component's place given by `keys`.
LttSpec serifAndSans(const std::vector<std::string>& serifKeys,
                     const std::vector<std::string>& sansKeys) {
  LttSpec s;
  s.components = {linkedComponent(kSerif), linkedComponent(kSans)};
  s.components[0].keys = serifKeys;
  s.components[1].keys = sansKeys;
  s.components[1].keys.push_back("plane1range1=0xFFFFFFFF");
  return s;
}

const FS_ULONG kCodes[] = {'A', 'g', 0x416, 0x2200};  // two of each component

TEST(LinkedFontPlaces, EveryPlaceGivesTheSameGlyphs) {
  TempDir dir;
  Bytes serif = fileBytes(linkedPath(kSerif)), sans = fileBytes(linkedPath(kSans));
  ASSERT_FALSE(serif.empty() || sans.empty());
  for (const std::string& folder : {dir.path(), dir.mkdir("sub")})
    for (int i : {kSerif, kSans})
      ASSERT_EQ(symlink(linkedPath(i).c_str(), (folder + "/" + kLinkedFile[i]).c_str()), 0);
  dir.mkdir("deep");

  // What each code gives on its own file.
  Client serifAlone, sansAlone;
  ASSERT_EQ(serifAlone.start(linkedPath(kSerif)), 0);
  ASSERT_EQ(sansAlone.start(linkedPath(kSans)), 0);

  auto absolute = [](int i) { return std::string("targetdirectory=") + kLinkedDir[i]; };
  char address[2][40];
  snprintf(address[0], sizeof address[0], "targetmemptr=%p", (void*)serif.data());
  snprintf(address[1], sizeof address[1], "targetmemptr=%p", (void*)sans.data());
  LttSpec embedded = serifAndSans({}, {});
  embedded.components[0].embedded = serif;
  embedded.components[1].embedded = sans;
  const struct {
    const char* why;
    std::string ltt;
    LttSpec spec;
    bool inMemory;
  } rows[] = {
      {"the linked font's folder", "dot.ltt",
       serifAndSans({"targetdirectory=."}, {"targetdirectory=."}), false},
      {"a folder under it", "sub.ltt",
       serifAndSans({"targetdirectory=./sub/"}, {"targetdirectory=./sub"}), false},
      {"the folder above it", "deep/up.ltt",
       serifAndSans({"targetdirectory=../"}, {"targetdirectory=.."  "/"}), false},
      {"absolute folders without a closing slash", "abs.ltt",
       serifAndSans({absolute(kSerif)}, {absolute(kSans)}), false},
      {"inside the linked file", "embedded.ltt", embedded, false},
      {"memory at an address", "mem.ltt", serifAndSans({address[0]}, {address[1]}), false},
      {"the linked font itself in memory", "", embedded, true},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.why);
    Bytes bytes = r.spec.build();
    Client set;
    if (r.inMemory) {
      ASSERT_EQ(set.start("", bytes), 0);
    } else {
      writeFileBytes(dir.file(r.ltt), bytes);
      ASSERT_EQ(set.start(dir.file(r.ltt)), 0);
    }
    for (FS_ULONG code : kCodes) {
      Client& alone = code < 0x400 ? serifAlone : sansAlone;
      unsigned start = code < 0x400 ? 0 : kLinkedGlyphs[kSerif];
      EXPECT_EQ(FSS_map_char(&set.st, code), FSS_map_char(&alone.st, code) + start) << code;
      std::vector<long> want = glyphPoints(&alone.st, code);
      ASSERT_FALSE(want.empty());
      EXPECT_EQ(glyphPoints(&set.st, code), want) << code;
    }
  }
}

TEST(LinkedFontPlaces, AMissingComponentIsPassedOver) {
  TempDir dir;
  LttSpec s = linkedSet();
  s.components[1].keys = {"targetdirectory=."};  // no DejaVuSans.ttf there
  s.components[1].numIcons = 4;                   // numbered after its glyphs
  s.components[2] = linkedComponent(kSans);
  s.components[2].numGlyphs = kLinkedGlyphs[kSans];
  writeFileBytes(dir.file("gap.ltt"), s.build());
  Client set, sansAlone;
  ASSERT_EQ(set.start(dir.file("gap.ltt")), 0);
  ASSERT_EQ(sansAlone.start(linkedPath(kSans)), 0);
  // Codes of the missing component fall to the next one, numbered past it.
  const unsigned third = kLinkedGlyphs[kSerif] + kLinkedGlyphs[kSans] + 4;
  for (FS_ULONG code : {0x416ul, 0x2200ul}) {
    EXPECT_EQ(FSS_map_char(&set.st, code), FSS_map_char(&sansAlone.st, code) + third);
    EXPECT_EQ(set.st.cur_font, 2);
    EXPECT_EQ(glyphPoints(&set.st, code), glyphPoints(&sansAlone.st, code));
  }
  EXPECT_NE(FSS_map_char(&set.st, 'A'), 0);  // Liberation Serif's
  EXPECT_EQ(set.st.cur_font, 0);
  // Its own index range can't be drawn; the ranges around it can.
  FS_set_flags(&set.st, FLAGS_CMAP_OFF);
  EXPECT_TRUE(glyphPoints(&set.st, kLinkedGlyphs[kSerif] + 5).empty());
  EXPECT_EQ(set.st.error, (FS_ULONG)ERR_FONT_NOT_LOADED);
  EXPECT_FALSE(glyphPoints(&set.st, third + 36).empty());
  EXPECT_EQ(set.st.cur_font, 2);
  EXPECT_FALSE(glyphPoints(&set.st, 36).empty());
}

TEST(LinkedFontPlaces, AComponentByIdentifierNeedsTheEmbeddingsHook) {
  TempDir dir;
  LttSpec s = linkedSet();
  s.components[1].keys.push_back("targetcallbackID=sans");
  writeFileBytes(dir.file("hook.ltt"), s.build());
  TypesetFont client;
  FS_ULONG start = FS_get_heap_used(&client.st);
  EXPECT_EQ(client.open(dir.file("hook.ltt")), ERR_BAD_ARGUMENT);
  EXPECT_EQ(FS_get_heap_used(&client.st), start);
  EXPECT_EQ(client.st.server->font_sets, nullptr);
  EXPECT_EQ(client.st.server->loaded_fonts, nullptr);
}

// DejaVu Sans alone in a set, with `keys` on its component.
Bytes sansWith(const std::vector<std::string>& keys,
               const std::vector<std::vector<int>>& adjustments = {}) {
  LttSpec s;
  s.components = {linkedComponent(kSans)};
  for (const std::string& k : keys) s.components[0].keys.push_back(k);
  s.components[0].adjustments = adjustments;
  return s.build();
}

TEST(LinkedFontStyle, SizeAdjustmentsDrawALargerSizeHigher) {
  TempDir dir;
  writeFileBytes(dir.file("adj.ltt"), sansWith({}, {{10, 256, 1}, {20, 0, 0}}));
  for (int ppem : {12, 24}) {
    SCOPED_TRACE(ppem);
    // From 10 ppem the component is one pixel larger and one row higher;
    // from 20 ppem it is itself again.
    int size = ppem == 12 ? 13 : ppem, shift = ppem == 12 ? 1 : 0;
    Client set, alone;
    ASSERT_EQ(set.start(dir.file("adj.ltt"), {}, ppem), 0);
    ASSERT_EQ(alone.start(linkedPath(kSans), {}, size), 0);
    for (FS_ULONG code : {0x48ul, 0x67ul, 0x416ul}) {
      std::vector<long> got = glyphPoints(&set.st, code), want = glyphPoints(&alone.st, code);
      ASSERT_EQ(got.size(), want.size());
      for (size_t i = 0; i < got.size(); i++) EXPECT_NEAR(got[i], want[i], 1) << code << " " << i;
      FS_GLYPHMAP* g = FSS_get_glyphmap(&set.st, code, FS_MAP_GRAYMAP8);
      FS_GLYPHMAP* h = FSS_get_glyphmap(&alone.st, code, FS_MAP_GRAYMAP8);
      ASSERT_TRUE(g && h);
      EXPECT_EQ(g->hi_y, h->hi_y + shift) << code;
      EXPECT_EQ(g->height, h->height) << code;
      FSS_free_char(&set.st, g);
      FSS_free_char(&alone.st, h);
    }
    FS_LONG a, d, a0, d0;
    FNTSET* fs = set.st.cur_typeset.fntset;
    ASSERT_EQ(CFNT_get_font_height(&set.st, fs, &fs->cfnt[0], (FS_USHORT)ppem, &a, &d), 0);
    FNTSET* fa = alone.st.cur_typeset.fntset;
    ASSERT_EQ(CFNT_get_font_height(&alone.st, fa, &fa->cfnt[0], (FS_USHORT)size, &a0, &d0), 0);
    EXPECT_EQ(a, a0 + shift);
    EXPECT_EQ(d, d0 - shift);
  }
}

TEST(LinkedFontStyle, SyntheticBoldAndItalicAreTheComponentsOwn) {
  TempDir dir;
  writeFileBytes(dir.file("bold.ltt"), sansWith({"bold=1", "boldpercent=5"}));
  writeFileBytes(dir.file("italic.ltt"), sansWith({"italic=1", "italicangle=12"}));
  Client bold, italic, plainBold, plainItalic;
  ASSERT_EQ(bold.start(dir.file("bold.ltt")), 0);
  ASSERT_EQ(italic.start(dir.file("italic.ltt")), 0);
  // 5 percent: 5 << 16 times 655, >> 16.
  EXPECT_EQ(bold.cfnt(0)->bold_pct, 3275);
  EXPECT_TRUE(bold.cfnt(0)->embolden);
  // 12 degrees: a = 12 * 1144 = 13728 (radians, 16.16); a^3 = 602 and a +
  // a^3 / 3 = 13728 + 201, tan 12 degrees being 13930 in 16.16.
  EXPECT_EQ(italic.cfnt(0)->italic_angle, 13929);
  EXPECT_TRUE(italic.cfnt(0)->italicize);

  ASSERT_EQ(plainBold.open(linkedPath(kSans)), 0);
  ASSERT_EQ(FS_set_bold_pct(&plainBold.st, 3275), 0);
  ASSERT_EQ(plainBold.setPpem(20), 0);
  ASSERT_EQ(plainItalic.open(linkedPath(kSans)), 0);
  FS_FIXED s[4] = {20 << 16, 0, 0, 20 << 16};
  ASSERT_EQ(modify_scale(s, 13929), 0);
  ASSERT_EQ(plainItalic.setScale(s[0], s[1], s[2], s[3]), 0);
  for (Client* c : {&plainBold, &plainItalic}) {
    FSS_set_cmap(&c->st, 3, 10);
    FS_set_flags(&c->st, FLAGS_NO_HINTS);
  }
  for (FS_ULONG code : {0x48ul, 0x6Ful, 0x416ul}) {
    std::vector<long> b = outlineOf(&bold.st, code), i = outlineOf(&italic.st, code);
    ASSERT_FALSE(b.empty() || i.empty());
    EXPECT_EQ(b, outlineOf(&plainBold.st, code)) << code;
    EXPECT_EQ(i, outlineOf(&plainItalic.st, code)) << code;
  }
}

TEST(LinkedFontTables, TheSetLendsItsOwnTablesAndTheMetricFontsOthers) {
  TempDir dir;
  Bytes source = fileBytes(linkedPath(kSerif)), metric = fileBytes(linkedPath(kSans));
  LttSpec s = serifAndSans({std::string("targetdirectory=") + kLinkedDir[kSerif]},
                           {std::string("targetdirectory=") + kLinkedDir[kSans]});
  s.version = 7;
  s.metric = 1;
  s.setTablesFrom = source;
  bool ok = false;
  writeFileBytes(dir.file("tables.ltt"), s.build(&ok));
  ASSERT_TRUE(ok);
  Client set;
  ASSERT_EQ(set.start(dir.file("tables.ltt")), 0);
  const struct { const char* tag; FS_ULONG fixed; } rows[] = {
      {"head", 56}, {"maxp", 32}, {"hhea", 36}, {"OS/2", 100}, {"post", 32},
      {"name", 0}, {"cmap", 0}, {"kern", 0}, {"GSUB", 0},  // 0: the table's own size
      {"hmtx", 0}, {"glyf", 0},                           // from the metric font
      {"GPOS", 0},  // none in the set: from the first component, Liberation Serif
  };
  int fromSet = 0;
  for (const auto& r : rows) {
    SCOPED_TRACE(r.tag);
    bool fromMetric = !strcmp(r.tag, "hmtx") || !strcmp(r.tag, "glyf");
    bool setLevel = !fromMetric && strcmp(r.tag, "GPOS");
    Bytes want = sfntTable(fromMetric ? metric : source, r.tag);
    if (want.empty()) continue;  // a table the source font lacks
    FS_ULONG len = 0;
    FS_BYTE* p = FSS_get_table(&set.st, FS_MAKE_TAG(r.tag[0], r.tag[1], r.tag[2], r.tag[3]),
                               TABLE_LEND, &len);
    ASSERT_NE(p, nullptr) << set.st.error;
    EXPECT_EQ(len, r.fixed ? r.fixed : (FS_ULONG)want.size());
    size_t n = std::min((size_t)len, want.size());
    EXPECT_EQ(Bytes(p, p + n), Bytes(want.begin(), want.begin() + n));
    EXPECT_EQ(FSS_free_table(&set.st, p), 0);
    fromSet += setLevel;
  }
  EXPECT_GE(fromSet, 8);
}

}  // namespace

namespace {

const int kMutations = 1000;  // under a second, about 70% of them sets

// A linked font with something of everything the reader follows: a font
// embedded with size adjustments and synthetic style, one by an absolute
// folder, one in the linked font's own folder, group types and font-set
// tables.
LttSpec mutationBase() {
  LttSpec s;
  s.version = 7;
  LttComponentSpec small;
  small.fontName = "Small";
  small.fileName = "small.ttf";
  small.bmp1 = "1";
  small.bmp2 = "0";
  small.numGlyphs = 2;
  small.embedded = sfnt::build(glyffont::font({glyffont::triangle(), glyffont::triangle()}));
  small.adjustments = {{8, 128, 1}, {16, -64, -1}};
  small.keys = {"bold=1", "boldpercent=3.5", "italic=1", "italicangle=-8.25"};
  s.components = {small, linkedComponent(kSans), linkedComponent(kSerif)};
  s.components[2].keys = {"targetdirectory=.", "ttcindex=0"};
  s.groups = {{1, 2}, {4, 8}};
  s.setTablesFrom = small.embedded;
  return s;
}

// One mutation of the linked file's text and tables (its magic kept, so
// that it stays a linked font): bytes changed, a cut, a number of a count
// or offset line replaced, a newline taken out or put in.
Bytes mutate(const Bytes& base, std::mt19937& rng) {
  Bytes b = base;
  auto pick = [&](size_t lo, size_t hi) {
    return std::uniform_int_distribution<size_t>(lo, hi - 1)(rng);
  };
  size_t text = std::min(b.size(), (size_t)(1024 + 3 * 512));
  switch (pick(0, 5)) {
    case 0:  // bytes
      for (size_t n = pick(1, 5); n > 0; n--) b[pick(4, b.size())] = (uint8_t)pick(0, 256);
      break;
    case 1:  // a cut
      b.resize(pick(4, b.size()));
      break;
    case 2: {  // a count or offset: one run of digits becomes another number
      std::vector<size_t> runs;
      for (size_t i = 5; i < text; i++)
        if (isdigit(b[i]) && !isdigit(b[i - 1])) runs.push_back(i);
      size_t at = runs[pick(0, runs.size())], end = at;
      while (end < b.size() && isalnum(b[end])) end++;
      static const char* const kNumbers[] = {"0", "1", "2", "9", "10", "255", "65535",
                                             "0xFFFFFFFF", "4294967295", "99999999999",
                                             "2147483647", "0x7FFFFFF0", "1536"};
      std::string v = pick(0, 2) ? kNumbers[pick(0, 13)] : std::to_string(pick(0, 5000));
      b.erase(b.begin() + at, b.begin() + end);
      b.insert(b.begin() + at, v.begin(), v.end());
      break;
    }
    case 3: {  // a newline out
      std::vector<size_t> nl;
      for (size_t i = 4; i < text; i++)
        if (b[i] == '\n') nl.push_back(i);
      b[nl[pick(0, nl.size())]] = (uint8_t)"x=\0 "[pick(0, 4)];
      break;
    }
    default:  // a newline in
      b[pick(4, text)] = '\n';
      break;
  }
  return b;
}

TEST(LinkedFontMalformed, MutatedLinkedFontsGiveASetOrTheirCode) {
  TempDir dir;
  ASSERT_EQ(symlink(linkedPath(kSerif).c_str(), dir.file(kLinkedFile[kSerif]).c_str()), 0);
  bool ok = false;
  Bytes base = mutationBase().build(&ok);
  ASSERT_TRUE(ok);
  const FS_LONG kAllowed[] = {0, ERR_FILE_OPEN, ERR_FILE_READ, ERR_MALLOC_FAIL,
                              ERR_FONT_NOT_LOADED, ERR_LTT_NO_COMPONENTS, ERR_LTT_LEGAL,
                              (FS_LONG)LTT_ERR_VERSION, (FS_LONG)LTT_ERR_MAGIC,
                              ERR_BAD_ARGUMENT};
  std::mt19937 rng(36);
  TypesetFont client(8u << 20);
  // The heap in use less the scaler's workspace, which grows to the
  // largest glyph drawn and stays for the next.
  auto heldBeyondWork = [&client] {
    return FS_get_heap_used(&client.st) - (FS_ULONG)client.st.server->workspaceSize;
  };
  FS_ULONG start = heldBeyondWork();
  int sets = 0;
  std::string path = dir.file("m.ltt");
  for (int i = 0; i < kMutations; i++) {
    Bytes b = i == 0 ? base : mutate(base, rng);
    unlink(path.c_str());  // a new file: rewriting one in place waits on the disk
    writeFileBytes(path, b);
    FILECHAR name[256];
    // Every third from memory, its length known.
    FS_LONG err = i % 3 == 2
                      ? FSS_load_font_with_offset(&client.st, nullptr, b.data(), 0, 0,
                                                  (FS_ULONG)b.size(), sizeof name, name)
                      : FSS_load_font(&client.st, path.c_str(), nullptr, 0, sizeof name, name);
    ASSERT_NE(std::find(std::begin(kAllowed), std::end(kAllowed), err), std::end(kAllowed))
        << "mutation " << i << " gave " << err;
    if (err != 0) {
      ASSERT_EQ(heldBeyondWork(), start) << "mutation " << i;
      continue;
    }
    sets++;
    FS_STATE* st = &client.st;
    if (FSS_set_font(st, name) == 0 && FSS_set_scale(st, 12 << 16, 0, 0, 12 << 16) == 0) {
      FS_set_flags(st, FLAGS_NO_HINTS);
      FSS_set_cmap(st, 3, 10);
      for (FS_ULONG code : {1ul, 'A' + 0ul, 0x416ul, 0x10400ul}) glyphPoints(st, code);
      FS_LONG a, d;
      FNTSET* fs = st->cur_typeset.fntset;
      for (FS_USHORT k = 0; k < fs->num_fonts && k < 4; k++)
        CFNT_get_font_height(st, fs, &fs->cfnt[k], 12, &a, &d);
      FS_set_flags(st, FLAGS_CMAP_OFF);
      for (FS_ULONG g : {1ul, 3ul, 2700ul}) glyphPoints(st, g);
      st->flags &= ~FLAGS_CMAP_OFF;  // back to the character map
      for (const char* tag : {"head", "cmap", "name", "OS/2", "kern"}) {
        FS_ULONG len = 0;
        FS_BYTE* p = FSS_get_table(st, FS_MAKE_TAG(tag[0], tag[1], tag[2], tag[3]),
                                   TABLE_LEND, &len);
        if (p != nullptr) FSS_free_table(st, p);
      }
    }
    ASSERT_EQ(FSS_delete_font(st, name), 0) << "mutation " << i;
    // The unmutated font leaves the client's work records (its typeset's
    // array, the scaler's workspace) made: the start figure of the rest.
    if (i == 0) start = heldBeyondWork();
    ASSERT_EQ(heldBeyondWork(), start) << "mutation " << i;
  }
  EXPECT_GT(sets, kMutations / 10);  // many mutations still make a set
}

}  // namespace
