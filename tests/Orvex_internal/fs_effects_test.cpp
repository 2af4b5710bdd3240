// The image effects: hand-worked maps, every effect against a pixel-by-pixel
// reference on real glyphs at every depth and on built maps across byte
// boundaries, the effects asked through the client's flags and setters, and
// odd sizes and a squeezed heap.
#include "Orvex_internal/fs_effects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_request.h"
#include "engine_fixture.h"  // the engine's heap, cache and scaled-font records
#include "support/typeset_font.h"

namespace {

typedef std::vector<std::vector<int>> Grid;  // levels, rows top down

int getPx(const FS_GLYPHMAP* m, int r, int c) {
  int bpp = m->bitsPerPixel, shift = 8 - bpp - (c * bpp) % 8;
  return (m->bits[r * m->bpl + c * bpp / 8] >> shift) & ((1 << bpp) - 1);
}
Grid levels(const FS_GLYPHMAP* m) {
  Grid g(m->height > 0 ? m->height : 0, std::vector<int>(m->width > 0 ? m->width : 0));
  for (size_t r = 0; r < g.size(); r++)
    for (size_t c = 0; c < g[r].size(); c++) g[r][c] = getPx(m, (int)r, (int)c);
  return g;
}
// A map of `g` at depth `bpp` (1 for a bitmap) on the engine heap.
FS_GLYPHMAP* makeMap(FS_STATE* st, const Grid& g, int bpp, int lo_x = 0, int hi_y = 0) {
  int h = (int)g.size(), w = h ? (int)g[0].size() : 0, bpl = (w * bpp + 7) / 8;
  FS_GLYPHMAP* m = (FS_GLYPHMAP*)FSS_calloc(st, 48 + bpl * h);
  m->size = 40 + bpl * h;
  m->width = (FS_SHORT)w, m->height = (FS_SHORT)h, m->bpl = (FS_SHORT)bpl;
  m->bitsPerPixel = (FS_SHORT)bpp, m->type = (FS_USHORT)bpp;
  m->lo_x = (FS_SHORT)lo_x, m->hi_y = (FS_SHORT)hi_y;
  for (int r = 0; r < h; r++)
    for (int c = 0; c < w; c++)
      m->bits[r * bpl + c * bpp / 8] |= (FS_BYTE)(g[r][c] << (8 - bpp - (c * bpp) % 8));
  return m;
}
// A copy of any depth: the record is copied whole.
FS_GLYPHMAP* copyMap(FS_STATE* st, const FS_GLYPHMAP* m) { return copy_bitmap(st, (FS_GLYPHMAP*)m); }

/* The reference: plain loops over the rules, one pixel at a time. */

// Relief: each pixel less its neighbour at (dr, dc), walking away from it.
Grid refRelief(Grid g, int d) {
  int h = (int)g.size(), w = h ? (int)g[0].size() : 0;
  Grid o = g;
  for (int r = 0; r < h && h >= 2 && w >= 2; r++)
    for (int c = 0; c < w; c++)
      if (r + d >= 0 && r + d < h && c + d >= 0 && c + d < w) o[r][c] = std::max(0, g[r][c] - g[r + d][c + d]);
  return o;
}
// Outline: margins mr, mc; n rounds, lit to `top`, dark to the largest of
// 4 (odd round) or 8 neighbours; hollow takes the source off.
Grid refOutline(const Grid& g, int n, int top, bool hollow, int mr, int mc) {
  int h = (int)g.size(), w = h ? (int)g[0].size() : 0, H = h + 2 * mr, W = w + 2 * mc;
  Grid o(H, std::vector<int>(W));
  for (int r = 0; r < h; r++)
    for (int c = 0; c < w; c++) o[r + mr][c + mc] = g[r][c];
  for (int k = n; k >= 1; k--) {
    Grid b = o;
    for (int r = 1; r + 1 < H; r++)
      for (int c = 1; c + 1 < W; c++) {
        int m = 0;
        for (int dr = -1; dr <= 1; dr++)
          for (int dc = -1; dc <= 1; dc++)
            if ((dr || dc) && (k % 2 == 0 || !dr || !dc)) m = std::max(m, b[r + dr][c + dc]);
        o[r][c] = b[r][c] ? top : m;
      }
  }
  for (int r = 0; r < h * hollow; r++)
      for (int c = 0; c < w; c++) o[r + mr][c + mc] -= g[r][c];
  return o;
}
// 1-bit boldness: runs grow left unless a one-pixel gap would close, then
// with width 2 the mirror.
Grid refBoldBits(Grid g, int bw) {
  for (int pass = 0; pass < (bw >= 2 ? 2 : 1); pass++)
    for (auto& row : g) {
      std::vector<int> o = row;
      int w = (int)row.size(), s = pass ? -1 : 1;
      auto at = [&](int c) { return c >= 0 && c < w ? row[c] : 0; };
      for (int c = 0; c < w; c++)
        if (!row[c] && at(c + s) && !at(c - s)) o[c] = 1;
      row = o;
    }
  return g;
}
// Gray boldness at levels up to `top` (quarter `q`), pass 2 seen from the
// right, its gap case at pass 1's offsets.
Grid refBoldGray(Grid g, int bw, int top, int q) {
  int h = (int)g.size(), w = h ? (int)g[0].size() : 0;
  for (int pass = 0; pass < (bw >= 2 ? 2 : 1); pass++)
    for (int r = 0; r < h; r++) {  // P: the row as this pass walks it
      auto P = [&](int i) -> int& { return g[r][pass ? w - 1 - i : i]; };
      auto at = [&](int rr, int c) { return c >= 0 && c < w ? g[rr][c] : 0; };
      auto endAfter = [&](int c) { int e = c + 1; while (e < w && P(e)) e++; return e; };
      auto pull = [&](int s, int e) {
        int m = s;
        for (int i = s; i < e; i++) if (P(i) > P(m)) m = i;
        if (P(m) <= q) return;
        for (int i = s; i <= m; i++) P(i - 1) = P(i);
        P(m) = top;
      };
      if (w >= 2 && !P(0) && P(1)) pull(1, endAfter(1));
      for (int col = 2; col < w;) {
        if (P(col - 1) || !P(col)) { col++; continue; }
        int end = endAfter(col), c = pass ? w - 1 - col : col;
        if (!P(col - 2)) pull(col, end);
        else if (r >= 1 && r + 2 <= h && P(col - 2) >= 12 && P(col) == top && !at(r - 1, c - 2) &&
                 at(r - 1, c) == top && !at(r + 1, c - 2) && !at(r + 1, c - 1) &&
                 at(r + 1, c) == top && c >= 1)
          g[r][c - 1] = top;
        col = end + 1;
      }
    }
  return g;
}

struct BoldFont {  // a scaled font record carrying only `bold_width`; the client's own put back after
  FS_STATE* st; SFNT* was; SFNT sfnt{}; SENV senv{};
  BoldFont(FS_STATE* s, int bw) : st(s), was(s->cur_sfnt) { sfnt.senv = &senv, senv.bold_width = (FS_SHORT)bw, st->cur_sfnt = &sfnt; }
  ~BoldFont() { st->cur_sfnt = was; }
};

// Effect `ef` at the map's depth; it takes over `m`. `n` is the rounds, the
// filter or the bold width; "hollow" and "filled" set the client's flags.
FS_GLYPHMAP* effect(FS_STATE* st, const std::string& ef, FS_GLYPHMAP* m, int n, FS_FIXED opacity = 65536) {
  bool b = m->bitsPerPixel == 1;
  if (ef == "emboss") return b ? emboss_bitmap(m) : emboss_graymap(m);
  if (ef == "engrave") return b ? engrave_bitmap(m) : engrave_graymap(m);
  if (ef == "hollow" || ef == "filled") {
    st->flags = ef == "hollow" ? FLAGS_OUTLINED_UNFILLED : FLAGS_OUTLINED_FILLED;
    return b ? outline_bitmap(st, m, (FS_USHORT)n, ef == "filled") : outline_graymap(st, m, (FS_USHORT)n, opacity);
  }
  if (ef == "soft") return b ? outline_bitmap(st, m, (FS_USHORT)n, 1) : soft_outline_graymap(st, m, (FS_USHORT)n, 0);
  if (ef == "soften") return b ? m : Soften(st, n, n, m);
  if (ef == "dilate") { FS_GLYPHMAP* d = dilate_bitmap(st, m, n); FSS_free(st, m); return d; }
  BoldFont bf(st, n);
  if (ef == "embedded") return b ? pixelbold_embedded_bitmap(st, m) : pixelbold_embedded_graymap(st, m);
  int bpp = m->bitsPerPixel;
  return b ? pixelbold_bitmap(st, m) : bpp == 2 ? pixelbold_graymap2(st, m)
         : bpp == 4 ? pixelbold_graymap4(st, m) : pixelbold_graymap8(st, m);
}

// Every effect on a copy of `m` against the reference; 1-bit outlines keep
// seven more columns a side.
void checkAllEffects(FS_STATE* st, const FS_GLYPHMAP* m, const std::string& what) {
  static const int quarter[9] = {0, 0, 2, 0, 4, 0, 0, 0, 16};
  int bpp = m->bitsPerPixel, top = (1 << bpp) - 1, mc = bpp == 1 ? 7 : 0;
  Grid g = levels(m);
  struct Case { const char* ef; int n; Grid want; int dx, dy; };
  std::vector<Case> cases = {{"emboss", 1, refRelief(g, 1), 0, 0}, {"engrave", 1, refRelief(g, -1), 0, 0}};
  for (int bw = 1; bw <= 2; bw++)
    cases.push_back({"bold", bw, bpp == 1 ? refBoldBits(g, bw) : refBoldGray(g, bw, top, quarter[bpp]), 0, 0});
  for (int n = 1; n <= 3; n++)
    for (int hollow = 0; hollow < 2; hollow++)
      cases.push_back({hollow ? "hollow" : "filled", n, refOutline(g, n, top, hollow, n + 1, n + 1 + mc), n + 1 + mc, n + 1});
  for (auto& c : cases) {
    FS_GLYPHMAP* got = effect(st, c.ef, copyMap(st, m), c.n);
    std::string e = what + " " + c.ef + " " + std::to_string(c.n);
    ASSERT_NE(nullptr, got) << e;
    EXPECT_TRUE(levels(got) == c.want) << e;
    EXPECT_TRUE(got->lo_x == m->lo_x - c.dx && got->hi_y == m->hi_y + c.dy) << e << " moved to " << got->lo_x << ", " << got->hi_y;
    FSS_free(st, got);
  }
  st->flags = 0;
}

}  // namespace

// Hand-worked maps, each put at (3, 3): the result's levels (or its count of
// set pixels), where it moved, and the heap back where it was.
TEST(ImageEffects, HandWorkedMaps) {
  enginetest::Engine e(8u << 20);
  FS_STATE* st = &e.st;
  Grid dot = {{1}}, sq3(3, std::vector<int>(3, 1)), sq4(4, std::vector<int>(4, 1)), g255(3, std::vector<int>(3, 255));
  // `want`: after trimming a 1-bit grown map; empty: only `count` and the move.
  struct Row { const char* ef; Grid in; int bpp, n; Grid want; int dx, dy, count; const char* why; FS_FIXED opacity = 65536; };
  std::vector<Row> table = {
      {"dilate", dot, 1, 1, {{0, 1, 0}, {1, 1, 1}, {0, 1, 0}}, -1, 1, 0, "n 1: the four edge neighbours"},
      {"dilate", dot, 1, 2, {}, -2, 2, 21, "n 2: square then diamond, 5x5 less corners"},
      {"hollow", sq3, 1, 1, {}, -1, 1, 12, "ring of 12 round a 3x3"},
      {"hollow", sq3, 1, 2, {}, -2, 2, 36, "two rings, 49 - 4 corners - 9"},
      {"hollow", {}, 1, 3, {}, 0, -6, 0, "an empty map is put at n, -n"},
      {"engrave", sq4, 1, 1, {}, 0, 0, 7, "engraved 4x4: top, left"},
      {"emboss", sq4, 1, 1, {{0, 0, 0, 1}, {0, 0, 0, 1}, {0, 0, 0, 1}, {1, 1, 1, 1}}, 0, 0, 0, "bottom, right"},
      {"bold", {{0, 1, 1, 0, 1, 1, 0}}, 1, 1, {{1, 1, 1, 0, 1, 1, 0}}, 0, 0, 0, "runs grow left, the gap stays"},
      {"bold", {{0, 1, 1, 0, 1, 1, 0}}, 1, 2, {{1, 1, 1, 0, 1, 1, 1}}, 0, 0, 0, "and right with width 2"},
      {"engrave", g255, 8, 1, {{255, 255, 255}, {255, 0, 0}, {255, 0, 0}}, 0, 0, 0, "engraved gray"},
      {"emboss", g255, 8, 1, {{0, 0, 255}, {0, 0, 255}, {255, 255, 255}}, 0, 0, 0, "embossed gray"},
      {"engrave", {{9, 200, 7}}, 8, 1, {{9, 200, 7}}, 0, 0, 0, "one row unchanged"},
      {"soften", {{255}}, 8, 1, {{2, 20, 2}, {20, 165, 20}, {2, 20, 2}}, -1, 1, 0, "25*25/256, 206*25, 206*205"},
      {"soften", {{0, 0}, {255, 0}}, 8, 1, {{0, 0, 0, 0}, {2, 20, 2, 0}, {20, 165, 20, 0}, {2, 20, 2, 0}}, -1, 1, 0,
       "nothing read past a row's end"},
      {"soften", {{255}}, 8, 0, Grid(5, std::vector<int>(5, 9)), -2, 2, 0, "48*48*255/65536"},
      {"soften", Grid(5, std::vector<int>(5, 255)), 8, 0, {}, -2, 2, 0, "solid: 240*255 -> 239, 240*239 -> 224 inside"},
      {"hollow", {{255}}, 8, 1, {{0, 0, 0, 0, 0}, {0, 0, 255, 0, 0}, {0, 255, 0, 255, 0}, {0, 0, 255, 0, 0}, {0, 0, 0, 0, 0}},
       -2, 2, 0, "hollow gray ring"},
      {"hollow", {{128}}, 8, 1, {{0, 0, 0, 0, 0}, {0, 0, 128, 0, 0}, {0, 128, 127, 128, 0}, {0, 0, 128, 0, 0}, {0, 0, 0, 0, 0}},
       -2, 2, 0, "rim keeps the edge's gray; the inside was raised to 255"},
      {"filled", {{255}}, 8, 1, {{0, 0, 0, 0, 0}, {0, 0, 127, 0, 0}, {0, 127, 127, 127, 0}, {0, 0, 127, 0, 0}, {0, 0, 0, 0, 0}},
       -2, 2, 0, "half opacity", 32768},
      // An embedded strike's glyph opens a blank column on the left first.
      {"embedded", {{0, 1, 1, 0, 1, 1, 0}}, 1, 1, {{0, 1, 1, 1, 0, 1, 1, 0}}, -1, 0, 0, "embedded 1-bit"},
      {"embedded", {{0, 0, 100, 255, 255, 100, 0, 0}}, 8, 2, {{0, 0, 100, 255, 255, 255, 255, 100, 0, 0}}, -1, 0, 0,
       "embedded gray, two wider"},
      // A diagonal's notch closes only with 12 or more left of it (the row
      // above was pulled left first).
      {"bold", {{0, 0, 255}, {12, 0, 255}, {0, 0, 255}}, 8, 1, {{0, 255, 255}, {12, 255, 255}, {0, 255, 255}}, 0, 0, 0, "notch"},
      {"bold", {{0, 0, 255}, {11, 0, 255}, {0, 0, 255}}, 8, 1, {{0, 255, 255}, {11, 0, 255}, {0, 255, 255}}, 0, 0, 0, "no notch"},
  };
  // One gray row at each depth, levels 255, 15, 3: the darkest pulls the slope out one place.
  for (int bpp : {8, 4, 2}) {
    int T = (1 << bpp) - 1, m = bpp == 8 ? 100 : bpp == 4 ? 6 : 1;
    table.push_back({"bold", {{0, 0, m, T, T, m, 0, 0}}, bpp, 1, {{0, m, T, T, T, m, 0, 0}}, 0, 0, 0, "gray bold 1"});
    table.push_back({"bold", {{0, 0, m, T, T, m, 0, 0}}, bpp, 2, {{0, m, T, T, T, T, m, 0}}, 0, 0, 0, "gray bold 2"});
  }
  for (auto& r : table) {
    FS_ULONG start = e.used();
    std::string ef = r.ef, why = r.why + (" at " + std::to_string(r.bpp));
    FS_GLYPHMAP* m = effect(st, ef, makeMap(st, r.in, r.bpp, 3, 3), r.n, r.opacity);
    if (r.bpp == 1 && !r.in.empty() && (ef == "dilate" || ef == "hollow")) m = trim_bitmap(st, m);
    ASSERT_NE(nullptr, m) << why;
    int count = 0;
    for (auto& row : levels(m)) count += (int)std::count_if(row.begin(), row.end(), [](int v) { return v != 0; });
    EXPECT_TRUE(r.count ? count == r.count : levels(m) == r.want || r.want.empty()) << why << ": " << count << " set";
    EXPECT_TRUE(m->lo_x == 3 + r.dx && m->hi_y == 3 + r.dy) << why << " moved to " << m->lo_x << ", " << m->hi_y;
    EXPECT_TRUE(why.rfind("solid", 0) || getPx(m, 4, 4) == 224) << why;
    FSS_free(st, m);
    st->flags = 0;
    EXPECT_EQ(start, e.used()) << why;
  }
  // Filters outside 0 to 4 don't exist: the same map, nothing allocated.
  FS_GLYPHMAP* m = makeMap(st, {{255}}, 8);
  FS_ULONG used = e.used();
  EXPECT_TRUE(Soften(st, 5, 1, m) == m && Soften(st, -1, 2, m) == m && e.used() == used);
  FSS_free(st, m);
}

// Every effect against the reference: DejaVu Sans letters and digits at four
// sizes as 1-bit and 8-, 4-, 2-bit maps, and built maps 1 to 17 pixels wide.
TEST(ImageEffects, MatchThePixelReferenceOnGlyphsAndEveryByteBoundary) {
  testsupport::TypesetFont f;
  ASSERT_EQ(0, f.open(enginetest::kDejaVuSansFile)) << enginetest::kDejaVuSansFile;
  FS_STATE* st = &f.st;
  ASSERT_EQ(0, FSS_set_cmap(st, 3, 1));
  std::string chars = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  for (int ppem : {12, 24, 48, 72}) {
    ASSERT_EQ(0, f.setPpem(ppem));
    for (char ch : chars)
      for (FS_USHORT type : {FS_MAP_BITMAP, FS_MAP_GRAYMAP8, FS_MAP_GRAYMAP4, FS_MAP_GRAYMAP2}) {
        FS_GLYPHMAP* m = FSS_get_glyphmap(st, (FS_ULONG)ch, type);
        ASSERT_NE(nullptr, m);
        checkAllEffects(st, m, std::string(1, ch) + " ppem " + std::to_string(ppem) + " type " + std::to_string(type));
        FSS_free_char(st, m);
      }
  }
  std::mt19937 rng(32);
  for (int bpp : {1, 2, 4, 8})
    for (int w = 1; w <= 17; w++) {
      Grid g(6, std::vector<int>(w));
      for (auto& r : g) for (int& v : r) v = rng() % 3 ? 0 : (int)(rng() % (1u << bpp));
      g[2].assign(w, (1 << bpp) - 1);  // a full row, so runs touch both ends
      FS_GLYPHMAP* m = makeMap(st, g, bpp, 3, 4);
      checkAllEffects(st, m, "built " + std::to_string(w) + " wide at " + std::to_string(bpp));
      FSS_free(st, m);
    }
}
// Through the requests: the styled maps are the routines on the plain
// ones, the cache keeps styles apart, and pixel boldness widens the map.
TEST(ImageEffects, RequestedStylesAreTheRoutinesOnThePlainMaps) {
  testsupport::TypesetFont f;
  ASSERT_EQ(0, f.open(enginetest::kDejaVuSansFile));
  FS_STATE* st = &f.st;
  ASSERT_EQ(0, FSS_set_cmap(st, 3, 1));
  ASSERT_EQ(0, f.setPpem(24));
  struct { FS_ULONG flag; FS_USHORT type; const char* ef; int n; } styles[] = {
      {FLAGS_OUTLINED_1PIXEL, FS_MAP_BITMAP, "hollow", 1}, {FLAGS_OUTLINED_1PIXEL, FS_MAP_GRAYMAP8, "hollow", 1},
      {FLAGS_ENGRAVED, FS_MAP_BITMAP, "engrave", 1}, {FLAGS_EMBOSSED, FS_MAP_GRAYMAP2, "emboss", 1},  // 2-bit: cut first
      {FLAGS_OUTLINED_SOFT, FS_MAP_GRAYMAP8, "soft", 1}, {FLAGS_SOFTENED, FS_MAP_GRAYMAP8, "soften", 2}};  // 24 ppem: filter 2
  for (auto& s : styles)
    for (int round = 0; round < 2; round++) {  // the second from the cache
      FS_GLYPHMAP* plain = FSS_get_glyphmap(st, 'g', s.type);
      ASSERT_EQ(0, FS_set_flags(st, s.flag));
      FS_GLYPHMAP* styled = FSS_get_glyphmap(st, 'g', s.type);
      ASSERT_NE(nullptr, styled);
      FS_GLYPHMAP* want = effect(st, s.ef, copyMap(st, plain), s.n);
      want = s.type == FS_MAP_BITMAP ? trim_bitmap(st, want) : s.type == FS_MAP_GRAYMAP8 ? trim_convert(st, want, s.type) : want;
      EXPECT_TRUE(levels(styled) == levels(want)) << s.ef << " " << s.type;
      EXPECT_TRUE(want->lo_x == styled->lo_x && want->hi_y == styled->hi_y && plain->dx == styled->dx) << "the same place and pen";
      ASSERT_EQ(0, FS_set_flags(st, s.flag == FLAGS_SOFTENED ? ~FLAGS_SOFTENED : ~FLAGS_EFFECTS));
      FS_GLYPHMAP* again = FSS_get_glyphmap(st, 'g', s.type);
      EXPECT_TRUE(levels(again) == levels(plain)) << "the plain map back, not the styled";
      for (FS_GLYPHMAP* m : {plain, styled, want, again}) FSS_free_char(st, m);
    }
  // 5% at 20 ppem is a bold width of 1: each run one pixel further left.
  // Refused setter values change nothing.
  ASSERT_EQ(0, f.setPpem(20));
  FS_GLYPHMAP* plain = FSS_get_glyphmap(st, 'm', FS_MAP_BITMAP);
  ASSERT_EQ(0, FS_set_bold_pct(st, 3277));
  ASSERT_EQ(0, FS_set_flags(st, FLAGS_ADD_WEIGHT));
  ASSERT_EQ(0, f.setPpem(20));
  ASSERT_EQ(1, st->cur_sfnt->senv->bold_width);
  FS_ULONG flags = st->flags;
  EXPECT_EQ(ERR_PCT_RANGE, FS_set_bold_pct(st, 65537));
  EXPECT_EQ(ERR_OUTLINE_WIDTH_RANGE, FS_set_outline_width(st, 11));
  EXPECT_EQ(ERR_OUTLINE_OPACITY_RANGE, FS_set_outline_opacity(st, 655361));
  EXPECT_TRUE(st->bold_pct == 3277 && st->outline_width == 1 && st->outline_opacity == 65536 && st->flags == flags);
  FS_GLYPHMAP* bold = FSS_get_glyphmap(st, 'm', FS_MAP_BITMAP);
  ASSERT_NE(nullptr, bold);
  Grid want = levels(plain);
  for (auto& r : want) r.insert(r.begin(), 0);
  EXPECT_TRUE(levels(bold) == refBoldBits(want, 1));
  EXPECT_EQ(plain->lo_x - 1, bold->lo_x);
  for (FS_GLYPHMAP* m : {plain, bold}) FSS_free_char(st, m);
  // The widest outline at 72 ppem, ten pixels a side.
  ASSERT_EQ(0, FS_set_outline_width(st, 10));
  ASSERT_EQ(0, f.setPpem(72));
  for (FS_ULONG flag : {FLAGS_OUTLINED_FILLED, FLAGS_OUTLINED_UNFILLED, FLAGS_OUTLINED_SOFT})
    for (FS_USHORT type : {FS_MAP_BITMAP, FS_MAP_GRAYMAP8, FS_MAP_GRAYMAP2}) {
      ASSERT_EQ(0, FS_set_flags(st, flag));
      FS_GLYPHMAP* m = FSS_get_glyphmap(st, 'g', type);
      ASSERT_TRUE(m && m->width >= 20 + 20) << flag << " " << type;
      FSS_free_char(st, m);
    }
}

// Odd sizes, and every allocation of every effect failed in turn: null with
// 201 and the source intact, or the map; the heap ends where it began.
TEST(ImageEffects, OddSizesAndASqueezedHeap) {
  enginetest::Engine e(64u << 20);
  FS_STATE* st = &e.st;
  const char* effects[] = {"emboss", "engrave", "hollow", "filled", "soft", "soften", "bold", "embedded"};
  st->outline_opacity = 40000;  // the soft outline's own table
  for (auto wh : std::vector<std::pair<int, int>>{{0, 0}, {1, 1}, {1, 200}, {200, 1}, {2000, 2000}})
    for (int bpp : {1, 8})
      for (const char* ef : effects) {
        FS_GLYPHMAP* m = effect(st, ef, makeMap(st, Grid(wh.second, std::vector<int>(wh.first, (1 << bpp) - 1)), bpp), 2, 30000);
        ASSERT_NE(nullptr, m) << ef << " " << wh.first << "x" << wh.second;
        FSS_free(st, m);
      }
  for (int bpp : {1, 2, 4, 8})
    for (const char* ef : effects) {
      Grid g = {{0, 9, 0, 3}, {7, 0, 1, 0}, {0, 2, 0, 5}};
      for (auto& r : g) for (int& v : r) v = std::min(v, (1 << bpp) - 1);
      for (FS_ULONG slack = 0;; slack += 8) {
        FS_ULONG start = e.used();
        FS_GLYPHMAP* src = makeMap(st, g, bpp);
        st->server->heap_size = st->server->allocated + slack;
        FS_GLYPHMAP* m = effect(st, ef, src, 2, 30000);
        st->server->heap_size = 64u << 20;
        EXPECT_TRUE(m || st->error == ERR_MALLOC_FAIL) << ef;
        FSS_free(st, m ? m : src);
        EXPECT_EQ(start, e.used()) << ef << " slack " << slack;
        if (m != nullptr) break;
        ASSERT_LT(slack, 4096u) << ef;
      }
    }
}
