// Linked fonts as font sets on real Debian fonts: the places a component's
// font may lie, a component that can't be found, size adjustments, synthetic
// bold and italic, the tables the set lends of its own, and mutated files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "Orvex_internal/fs_bytes.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_ltt.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_tableptr.h"
#include "support/glyf_font.h"
#include "support/ltt_builder.h"
#include "support/test_support.h"

using namespace testsupport;

namespace {

// The outline of `id`: element codes, then x and y, 16.16.
std::vector<long> outlineOf(FS_STATE* st, FS_ULONG id) {
  FS_OUTLINE* o = FSS_get_outline(st, id);
  if (o == nullptr) return {};
  std::vector<long> v(o->type, o->type + o->num);
  for (int i = 0; i < o->np; i++) v.push_back(o->x[i]), v.push_back(o->y[i]);
  FSS_free_char(st, o);
  return v;
}

// Every place a component may lie gives the same glyphs; a missing one is
// passed over; a component by identifier is refused.
TEST(LinkedFont, PlacesMissingComponentsAndHooks) {
  TempDir dir;
  Bytes serif = fileBytes(linkedPath(0)), sans = fileBytes(linkedPath(1));
  for (const std::string& folder : {dir.path(), dir.mkdir("sub")})
    for (int i : {0, 1})
      ASSERT_EQ(symlink(linkedPath(i).c_str(), (folder + "/" + kLinkedFile[i]).c_str()), 0);
  dir.mkdir("deep");
  UnhintedFont alone[2];
  for (int i : {0, 1}) ASSERT_EQ(alone[i].start(linkedPath(i)), 0);
  auto at = [](const Bytes& b) { return "targetmemptr=" + std::to_string((uintptr_t)b.data()); };
  const std::string dirKey = "targetdirectory=";
  const struct { const char* ltt; std::string serif, sans; } rows[] = {
      {"dot.ltt", dirKey + ".", dirKey + "."},
      {"sub.ltt", dirKey + "./sub/", dirKey + "./sub"},
      {"deep/up.ltt", dirKey + "../", dirKey + "../"},
      {"abs.ltt", dirKey + kLinkedDir[0], dirKey + kLinkedDir[1]},  // no closing "/"
      {"mem.ltt", at(serif), at(sans)},
      {"embedded.ltt", "", ""},  // both inside the linked file
      {"", "", ""},              // and the linked font itself in memory
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.ltt);
    LttSpec s = linkedSet({0, 1});
    s.components[0].keys = {r.serif};
    s.components[1].keys = {r.sans};
    if (r.serif.empty()) {
      s.components[0].keys = s.components[1].keys = {};
      s.components[0].embedded = serif, s.components[1].embedded = sans;
    }
    UnhintedFont set;
    ASSERT_EQ(*r.ltt ? set.start(s.write(dir.file(r.ltt))) : set.start("", s.build()), 0);
    for (FS_ULONG code : {0x41, 0x67, 0x416, 0x2200}) {  // two of each component
      int k = code >= 0x400;
      EXPECT_EQ(FSS_map_char(&set.st, code), FSS_map_char(&alone[k].st, code) + kLinkedStart[k]);
      std::vector<long> want = glyphPoints(&alone[k].st, code);
      ASSERT_FALSE(want.empty());
      EXPECT_EQ(glyphPoints(&set.st, code), want) << code;
    }
  }
  // A component missing from its place (no fonts in deep/): its codes fall
  // to the next one, numbered past its glyphs and icons.
  LttSpec s = linkedSet({0, 1, 1});
  s.components[1].keys = {"targetdirectory=."};
  s.components[1].numIcons = 4;
  UnhintedFont set;
  ASSERT_EQ(set.start(s.write(dir.file("deep/gap.ltt"))), 0);
  const unsigned third = kLinkedGlyphs[0] + kLinkedGlyphs[1] + 4;
  for (FS_ULONG code : {0x416, 0x2200})
    EXPECT_TRUE(FSS_map_char(&set.st, code) == FSS_map_char(&alone[1].st, code) + third &&
                glyphPoints(&set.st, code) == glyphPoints(&alone[1].st, code)) << code;
  // Its own index range can't be drawn.
  FS_set_flags(&set.st, FLAGS_CMAP_OFF);
  EXPECT_TRUE(glyphPoints(&set.st, kLinkedGlyphs[0] + 5).empty());
  EXPECT_EQ(set.st.error, (FS_ULONG)ERR_FONT_NOT_LOADED);

  // A component by identifier needs the embedding's hook; refused, it
  // leaves nothing behind.
  s = linkedSet();
  s.components[1].keys.push_back("targetcallbackID=sans");
  TypesetFont client;
  FS_ULONG start = FS_get_heap_used(&client.st);
  EXPECT_EQ(client.open(s.write(dir.file("hook.ltt"))), ERR_BAD_ARGUMENT);
  EXPECT_TRUE(FS_get_heap_used(&client.st) == start && client.st.server->font_sets == nullptr);
}

// DejaVu Sans alone in a set, with `keys` and `adjustments` on its component.
std::string sansWith(const TempDir& dir, const char* name, const std::vector<std::string>& keys,
                     const std::vector<std::vector<int>>& adjustments = {}) {
  LttSpec s = linkedSet({1});
  s.components[0].keys.insert(s.components[0].keys.end(), keys.begin(), keys.end());
  s.components[0].adjustments = adjustments;
  return s.write(dir.file(name));
}

TEST(LinkedFont, SizeAdjustmentsAndSyntheticStyle) {
  TempDir dir;
  std::string adj = sansWith(dir, "adj.ltt", {}, {{10, 256, 1}, {20, 0, 0}});
  // From 10 ppem one pixel larger and one row higher; from 20 itself again.
  for (int ppem : {12, 24}) {
    int size = ppem == 12 ? 13 : ppem, shift = ppem == 12 ? 1 : 0;
    UnhintedFont set, alone;
    ASSERT_EQ(set.start(adj, {}, ppem), 0);
    ASSERT_EQ(alone.start(linkedPath(1), {}, size), 0);
    for (FS_ULONG code : {0x48, 0x67, 0x416}) {
      std::vector<long> got = glyphPoints(&set.st, code), want = glyphPoints(&alone.st, code);
      ASSERT_EQ(got.size(), want.size());
      for (size_t i = 0; i < got.size(); i++) EXPECT_NEAR(got[i], want[i], 1) << code << " " << i;
      FS_GLYPHMAP* g = FSS_get_glyphmap(&set.st, code, FS_MAP_GRAYMAP8);
      FS_GLYPHMAP* h = FSS_get_glyphmap(&alone.st, code, FS_MAP_GRAYMAP8);
      ASSERT_TRUE(g && h);
      EXPECT_TRUE(g->hi_y - h->hi_y == shift && g->height == h->height) << code << ": one row higher, as tall";
      FSS_free_char(&set.st, g);
      FSS_free_char(&alone.st, h);
    }
    FS_LONG a[2], d[2];
    FNTSET *sf = set.st.cur_typeset.fntset, *af = alone.st.cur_typeset.fntset;
    ASSERT_EQ(CFNT_get_font_height(&set.st, sf, sf->cfnt, (FS_USHORT)ppem, &a[0], &d[0]), 0);
    ASSERT_EQ(CFNT_get_font_height(&alone.st, af, af->cfnt, (FS_USHORT)size, &a[1], &d[1]), 0);
    EXPECT_TRUE(a[0] - a[1] == shift && d[0] - d[1] == -shift) << ppem;
  }

  // Synthetic style is the component's own: its outlines are DejaVu Sans's
  // drawn with that boldness, or under the scale slanted by that angle.
  const struct { const char* ltt; std::vector<std::string> keys; FS_FIXED bold, tan; } styles[] = {
      {"bold.ltt", {"bold=1", "boldpercent=5"}, 3275, 0},  // 5 << 16 times 655, >> 16
      // 12 degrees: a = 12 * 1144 = 13728 (radians, 16.16), a + a^3 / 3 =
      // 13728 + 201; tan 12 degrees is 13930.
      {"italic.ltt", {"italic=1", "italicangle=12"}, 0, 13929}};
  for (const auto& r : styles) {
    UnhintedFont set, plain;
    ASSERT_EQ(set.start(sansWith(dir, r.ltt, r.keys)), 0);
    const CFNT* c = set.st.cur_typeset.fntset->cfnt;
    EXPECT_EQ(std::vector<long>({c->embolden, c->bold_pct, c->italicize, c->italic_angle}),
              std::vector<long>({r.bold != 0, r.bold, r.tan != 0, r.tan}));
    FS_FIXED m[4] = {20 << 16, 0, 0, 20 << 16};
    ASSERT_EQ(plain.start(linkedPath(1)), 0);
    ASSERT_EQ(FS_set_bold_pct(&plain.st, r.bold) + modify_scale(m, r.tan), 0);
    ASSERT_EQ(plain.setScale(m[0], m[1], m[2], m[3]), 0);
    for (FS_ULONG code : {0x48, 0x6F, 0x416}) {
      std::vector<long> got = outlineOf(&set.st, code);
      ASSERT_FALSE(got.empty());
      EXPECT_EQ(got, outlineOf(&plain.st, code)) << r.ltt << " " << code;
    }
  }
}

TEST(LinkedFont, TheSetLendsItsOwnTablesAndTheMetricFontsOthers) {
  TempDir dir;
  Bytes source = fileBytes(linkedPath(0));
  sfnt::Font own = sfnt::read(source), metric = sfnt::read(fileBytes(linkedPath(1)));
  LttSpec s = linkedSet({0, 1});
  s.version = 7;
  s.metric = 1;
  s.setTablesFrom = source;
  UnhintedFont set;
  ASSERT_EQ(set.start(s.write(dir.file("tables.ltt"))), 0);
  const struct { const char* tag; FS_ULONG fixed; const sfnt::Font& from; } rows[] = {
      {"head", 56, own}, {"maxp", 32, own}, {"hhea", 36, own}, {"OS/2", 100, own},
      {"post", 32, own}, {"name", 0, own}, {"cmap", 0, own}, {"kern", 0, own},
      {"GSUB", 0, own},  // 0: the table's own size
      {"hmtx", 0, metric}, {"glyf", 0, metric},
      {"GPOS", 0, own}};  // none in the set: the first component's
  for (const auto& r : rows) {
    const Bytes* want = r.from.find(r.tag);
    ASSERT_NE(want, nullptr) << r.tag;
    FS_ULONG len = 0;
    FS_BYTE* p = FSS_get_table(&set.st, FS_MAKE_TAG(r.tag[0], r.tag[1], r.tag[2], r.tag[3]),
                               TABLE_LEND, &len);
    ASSERT_NE(p, nullptr) << r.tag << " " << set.st.error;
    size_t n = std::min((size_t)len, want->size());
    EXPECT_TRUE(len == (r.fixed ? r.fixed : want->size()) && Bytes(p, p + n) == Bytes(want->begin(), want->begin() + n))
        << r.tag << " " << len;
    EXPECT_EQ(FSS_free_table(&set.st, p), 0);
  }
}

// One mutation of a linked file (its magic kept): bytes changed, a cut, a run
// of digits in the text replaced by another number, a newline taken out or
// put in.
Bytes mutate(Bytes b, std::mt19937& rng) {
  auto pick = [&](size_t lo, size_t hi) { return std::uniform_int_distribution<size_t>(lo, hi - 1)(rng); };
  size_t text = std::min(b.size(), (size_t)(1024 + 3 * 512)), kind = pick(0, 5);
  std::vector<size_t> at;  // the text's digit runs, or its newlines
  for (size_t i = 5; i < text; i++)
    if (kind == 2 ? isdigit(b[i]) && !isdigit(b[i - 1]) : b[i] == '\n') at.push_back(i);
  static const char* const kNumbers[] = {"0", "1", "2", "9", "10", "255", "65535", "0xFFFFFFFF", "4294967295",
                                         "99999999999", "2147483647", "0x7FFFFFF0", "1536"};
  if (kind == 0) {
    for (size_t n = pick(1, 5); n > 0; n--) b[pick(4, b.size())] = (uint8_t)pick(0, 256);
  } else if (kind == 1) {
    b.resize(pick(4, b.size()));
  } else if (kind == 2) {
    size_t from = at[pick(0, at.size())], end = from;
    while (end < b.size() && isalnum(b[end])) end++;
    std::string v = pick(0, 2) ? kNumbers[pick(0, 13)] : std::to_string(pick(0, 5000));
    b.erase(b.begin() + from, b.begin() + end);
    b.insert(b.begin() + from, v.begin(), v.end());
  } else {
    b[kind == 3 ? at[pick(0, at.size())] : pick(4, text)] =
        kind == 3 ? (uint8_t)"x=\0 "[pick(0, 4)] : '\n';
  }
  return b;
}

TEST(LinkedFont, MutatedLinkedFontsGiveASetOrTheirCode) {
  TempDir dir;
  ASSERT_EQ(symlink(linkedPath(0).c_str(), dir.file(kLinkedFile[0]).c_str()), 0);
  // Something of everything the reader follows: an embedded font with
  // adjustments and synthetic style, one by an absolute folder, one in the
  // linked font's own folder, group types and font-set tables.
  LttSpec s = linkedSet({2, 1, 0});
  s.version = 7;
  s.components[0] = {"Small", "small.ttf", "1", "0", 2, 0,
                     {"bold=1", "boldpercent=3.5", "italic=1", "italicangle=-8.25"},
                     {{8, 128, 1}, {16, -64, -1}},
                     sfnt::build(glyffont::font({glyffont::triangle(), glyffont::triangle()}))};
  s.components[2].keys = {"targetdirectory=.", "ttcindex=0"};
  s.groups = {1, 2, 4, 8};
  s.setTablesFrom = s.components[0].embedded;
  Bytes base = s.build();
  const FS_LONG kAllowed[] = {0, ERR_FILE_OPEN, ERR_FILE_READ, ERR_MALLOC_FAIL, ERR_FONT_NOT_LOADED, ERR_LTT_NO_COMPONENTS,
                              ERR_LTT_LEGAL, (FS_LONG)LTT_ERR_VERSION, (FS_LONG)LTT_ERR_MAGIC, ERR_BAD_ARGUMENT};
  std::mt19937 rng(36);
  TypesetFont client(8u << 20);
  FS_STATE* st = &client.st;
  // The heap in use less the scaler's workspace, which grows to the largest
  // glyph drawn and stays for the next.
  auto held = [st] { return FS_get_heap_used(st) - (FS_ULONG)st->server->workspaceSize; };
  FS_ULONG start = held();
  int sets = 0;
  std::string path = dir.file("m.ltt");
  for (int i = 0; i < 1000; i++) {  // under a second, about 70% of them sets
    Bytes b = i == 0 ? base : mutate(base, rng);
    unlink(path.c_str());  // a new file: rewriting one in place waits on the disk
    writeBytes(path, sfnt::asString(b));
    FILECHAR name[256];
    // Every third from memory, its length known.
    FS_LONG err = i % 3 == 2 ? FSS_load_font_with_offset(st, nullptr, b.data(), 0, 0, (FS_ULONG)b.size(), sizeof name, name)
                             : FSS_load_font(st, path.c_str(), nullptr, 0, sizeof name, name);
    ASSERT_NE(std::find(std::begin(kAllowed), std::end(kAllowed), err), std::end(kAllowed))
        << "mutation " << i << " gave " << err;
    if (err == 0 && ++sets && FSS_set_font(st, name) == 0 &&
        FSS_set_scale(st, 12 << 16, 0, 0, 12 << 16) == 0) {
      FS_set_flags(st, FLAGS_NO_HINTS);
      FSS_set_cmap(st, 3, 10);
      for (FS_ULONG code : {1, 0x41, 0x416, 0x10400}) glyphPoints(st, code);
      FS_LONG a, d;
      FNTSET* fs = st->cur_typeset.fntset;
      for (FS_USHORT k = 0; k < fs->num_fonts && k < 4; k++)
        CFNT_get_font_height(st, fs, &fs->cfnt[k], 12, &a, &d);
      FS_set_flags(st, FLAGS_CMAP_OFF);
      for (FS_ULONG g : {1, 3, 2700}) glyphPoints(st, g);
      st->flags &= ~FLAGS_CMAP_OFF;
      FS_ULONG len;
      for (const char* t : {"head", "cmap", "name", "OS/2", "kern"})
        if (FS_BYTE* p = FSS_get_table(st, FS_MAKE_TAG(t[0], t[1], t[2], t[3]), TABLE_LEND, &len))
          FSS_free_table(st, p);
    }
    ASSERT_TRUE(err || FSS_delete_font(st, name) == 0) << "mutation " << i;
    // The unmutated font leaves the client's work records (its typeset's
    // array, the scaler's workspace) made: the start figure of the rest.
    if (i == 0) start = held();
    ASSERT_EQ(held(), start) << "mutation " << i;
  }
  EXPECT_GT(sets, 100);  // many mutations still make a set
}

}  // namespace
