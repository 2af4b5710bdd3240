// The image effects: hand-worked maps, every effect against a pixel-by-pixel
// reference on real glyphs at every depth and on built maps across byte
// boundaries, the effects asked through the client's flags and setters, and
// odd sizes and a squeezed heap.
#include "Orvex_internal/fs_effects.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "engine_fixture.h"
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
  if (h < 2 || w < 2) return g;
  Grid o = g;
  for (int r = 0; r < h; r++)
    for (int c = 0; c < w; c++)
      if (r + d >= 0 && r + d < h && c + d >= 0 && c + d < w)
        o[r][c] = std::max(0, g[r][c] - g[r + d][c + d]);
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
  if (hollow)
    for (int r = 0; r < h; r++)
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
    for (int r = 0; r < h; r++) {
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

struct BoldFont {  // a scaled font record carrying only `bold_width`
  SFNT sfnt{};
  SENV senv{};
  BoldFont(FS_STATE* st, int bw) { sfnt.senv = &senv, senv.bold_width = (FS_SHORT)bw, st->cur_sfnt = &sfnt; }
};

// Every effect on `m` against the reference; `m` stays the caller's.
void checkAllEffects(FS_STATE* st, const FS_GLYPHMAP* m, const std::string& what) {
  int bpp = m->bitsPerPixel, top = (1 << bpp) - 1;
  Grid g = levels(m);
  auto check = [&](FS_GLYPHMAP* got, const Grid& want, int dx, int dy, const std::string& e) {
    ASSERT_NE(nullptr, got) << what << e;
    EXPECT_TRUE(levels(got) == want) << what << e;
    EXPECT_EQ(m->lo_x - dx, got->lo_x) << what << e;
    EXPECT_EQ(m->hi_y + dy, got->hi_y) << what << e;
    if (got != m) FSS_free(st, got);
  };
  FS_GLYPHMAP* c = copyMap(st, m);
  check(bpp == 1 ? emboss_bitmap(c) : emboss_graymap(c), refRelief(g, 1), 0, 0, " emboss");
  c = copyMap(st, m);
  check(bpp == 1 ? engrave_bitmap(c) : engrave_graymap(c), refRelief(g, -1), 0, 0, " engrave");
  for (int n = 1; n <= 3; n++)
    for (int hollow = 0; hollow < 2; hollow++) {
      std::string e = " outline " + std::to_string(n) + (hollow ? " hollow" : " filled");
      st->flags = hollow ? FLAGS_OUTLINED_UNFILLED : FLAGS_OUTLINED_FILLED;
      c = copyMap(st, m);
      if (bpp == 1)
        check(outline_bitmap(st, c, (FS_USHORT)n, (FS_USHORT)!hollow),
              refOutline(g, n, 1, hollow, n + 1, n + 8), n + 8, n + 1, e);
      else
        check(outline_graymap(st, c, (FS_USHORT)n, 65536),
              refOutline(g, n, top, hollow, n + 1, n + 1), n + 1, n + 1, e);
    }
  st->flags = 0;
  for (int bw = 1; bw <= 2; bw++) {
    BoldFont bf(st, bw);
    c = copyMap(st, m);
    static const int quarter[9] = {0, 0, 2, 0, 4, 0, 0, 0, 16};
    FS_GLYPHMAP* got = bpp == 1 ? pixelbold_bitmap(st, c)
                       : bpp == 2 ? pixelbold_graymap2(st, c)
                       : bpp == 4 ? pixelbold_graymap4(st, c) : pixelbold_graymap8(st, c);
    check(got, bpp == 1 ? refBoldBits(g, bw) : refBoldGray(g, bw, top, quarter[bpp]), 0, 0,
          " bold " + std::to_string(bw));
    st->cur_sfnt = nullptr;
  }
}

Grid rows(std::initializer_list<std::vector<int>> r) { return Grid(r); }

}  // namespace

TEST(ImageEffects, HandWorkedMaps) {
  enginetest::Engine e(8u << 20);
  FS_STATE* st = &e.st;
  Grid dot = rows({{1}}), sq3 = rows({{1, 1, 1}, {1, 1, 1}, {1, 1, 1}});
  Grid sq4(4, std::vector<int>(4, 1)), g255 = rows({{255, 255, 255}, {255, 255, 255}, {255, 255, 255}});
  auto bits = [](const FS_GLYPHMAP* m) { int n = 0; for (auto& r : levels(m)) for (int v : r) n += v != 0; return n; };
  struct Row {
    std::function<FS_GLYPHMAP*()> make;
    Grid want;  // levels after trimming a 1-bit map; as they stand otherwise
    int lo_x, hi_y, count;  // count: set pixels, when `want` is empty
    const char* why;
  };
  auto trimB = [&](FS_GLYPHMAP* m) { return trim_bitmap(st, m); };
  auto dilate = [&](FS_GLYPHMAP* src, int n) {  // the source stays the caller's
    FS_GLYPHMAP* m = dilate_bitmap(st, src, n);
    FSS_free(st, src);
    return trimB(m);
  };
  std::vector<Row> table = {
      {[&] { return dilate(makeMap(st, dot, 1, 5, 5), 1); },
       rows({{0, 1, 0}, {1, 1, 1}, {0, 1, 0}}), 4, 6, 0, "n 1: the four edge neighbours"},
      {[&] { return dilate(makeMap(st, dot, 1), 2); }, {}, -2, 2, 21,
       "n 2: square then diamond, 5x5 less corners"},
      {[&] { return trimB(outline_bitmap(st, makeMap(st, sq3, 1), 1, 0)); }, {}, -1, 1, 12,
       "hollow ring of 12 round a 3x3"},
      {[&] { return trimB(outline_bitmap(st, makeMap(st, sq3, 1), 2, 0)); }, {}, -2, 2, 36,
       "two rings, 49 - 4 corners - 9"},
      {[&] { return outline_bitmap(st, makeMap(st, Grid(), 1), 3, 0); }, Grid(), 3, -3, 0,
       "an empty map moves only"},
      {[&] { return engrave_bitmap(makeMap(st, sq4, 1)); }, {}, 0, 0, 7, "engraved 4x4: top, left"},
      {[&] { return emboss_bitmap(makeMap(st, sq4, 1)); },
       rows({{0, 0, 0, 1}, {0, 0, 0, 1}, {0, 0, 0, 1}, {1, 1, 1, 1}}), 0, 0, 0, "bottom, right"},
      {[&] { BoldFont b(st, 1); auto m = pixelbold_bitmap(st, makeMap(st, rows({{0, 1, 1, 0, 1, 1, 0}}), 1)); st->cur_sfnt = nullptr; return m; },
       rows({{1, 1, 1, 0, 1, 1, 0}}), 0, 0, 0, "runs grow left, the gap stays"},
      {[&] { BoldFont b(st, 2); auto m = pixelbold_bitmap(st, makeMap(st, rows({{0, 1, 1, 0, 1, 1, 0}}), 1)); st->cur_sfnt = nullptr; return m; },
       rows({{1, 1, 1, 0, 1, 1, 1}}), 0, 0, 0, "and right with width 2"},
      {[&] { return engrave_graymap(makeMap(st, g255, 8)); },
       rows({{255, 255, 255}, {255, 0, 0}, {255, 0, 0}}), 0, 0, 0, "engraved gray"},
      {[&] { return emboss_graymap(makeMap(st, g255, 8)); },
       rows({{0, 0, 255}, {0, 0, 255}, {255, 255, 255}}), 0, 0, 0, "embossed gray"},
      {[&] { return engrave_graymap(makeMap(st, rows({{9, 200, 7}}), 8)); }, rows({{9, 200, 7}}), 0, 0, 0,
       "one row unchanged"},
      {[&] { return Soften(st, 1, 1, makeMap(st, rows({{255}}), 8)); },
       rows({{2, 20, 2}, {20, 165, 20}, {2, 20, 2}}), -1, 1, 0, "25*25/256, 206*25, 206*205"},
      {[&] { return Soften(st, 1, 1, makeMap(st, rows({{0, 0}, {255, 0}}), 8)); },
       rows({{0, 0, 0, 0}, {2, 20, 2, 0}, {20, 165, 20, 0}, {2, 20, 2, 0}}), -1, 1, 0,
       "nothing read past a row's end"},
      {[&] { return Soften(st, 0, 0, makeMap(st, rows({{255}}), 8)); },
       Grid(5, std::vector<int>(5, 9)), -2, 2, 0, "48*48*255/65536"},
      {[&] { return Soften(st, 0, 0, makeMap(st, Grid(5, std::vector<int>(5, 255)), 8)); }, {}, -2, 2, 0,
       "solid: 240*255 -> 239, 240*239 -> 224 (checked below)"},
      {[&] { st->flags = FLAGS_OUTLINED_1PIXEL; return outline_graymap(st, makeMap(st, rows({{255}}), 8), 1, 65536); },
       rows({{0, 0, 0, 0, 0}, {0, 0, 255, 0, 0}, {0, 255, 0, 255, 0}, {0, 0, 255, 0, 0}, {0, 0, 0, 0, 0}}), -2, 2, 0, "hollow gray ring"},
      {[&] { st->flags = FLAGS_OUTLINED_1PIXEL; return outline_graymap(st, makeMap(st, rows({{128}}), 8), 1, 65536); },
       rows({{0, 0, 0, 0, 0}, {0, 0, 128, 0, 0}, {0, 128, 127, 128, 0}, {0, 0, 128, 0, 0}, {0, 0, 0, 0, 0}}), -2, 2, 0,
       "rim keeps the edge's gray; the inside was raised to 255"},
      {[&] { st->flags = FLAGS_OUTLINED_FILLED; return outline_graymap(st, makeMap(st, rows({{255}}), 8), 1, 32768); },
       rows({{0, 0, 0, 0, 0}, {0, 0, 127, 0, 0}, {0, 127, 127, 127, 0}, {0, 0, 127, 0, 0}, {0, 0, 0, 0, 0}}), -2, 2, 0, "half opacity"},
  };
  // An embedded strike's glyph opens a blank column on the left first.
  table.push_back({[=] { BoldFont b(st, 1); auto m = pixelbold_embedded_bitmap(st, makeMap(st, rows({{0, 1, 1, 0, 1, 1, 0}}), 1));
                         st->cur_sfnt = nullptr; return m; }, rows({{0, 1, 1, 1, 0, 1, 1, 0}}), -1, 0, 0, "embedded 1-bit"});
  table.push_back({[=] { BoldFont b(st, 2); auto m = pixelbold_embedded_graymap(st, makeMap(st, rows({{0, 0, 100, 255, 255, 100, 0, 0}}), 8));
                         st->cur_sfnt = nullptr; return m; }, rows({{0, 0, 100, 255, 255, 255, 255, 100, 0, 0}}), -1, 0, 0, "embedded gray, two wider"});
  // A diagonal's notch: the gap closes only with 12 or more left of it
  // (the row above was pulled left first).
  for (int left2 : {12, 11})
    table.push_back({[=] { BoldFont b(st, 1); auto m = pixelbold_graymap8(st, makeMap(st, rows({{0, 0, 255}, {left2, 0, 255}, {0, 0, 255}}), 8));
                           st->cur_sfnt = nullptr; return m; },
                     rows({{0, 255, 255}, {left2, left2 == 12 ? 255 : 0, 255}, {0, 255, 255}}), 0, 0, 0, "notch"});
  // Pixel boldness of one gray row at each depth: levels 255, 15, 3.
  for (int bpp : {8, 4, 2}) {
    int T = (1 << bpp) - 1, m = bpp == 8 ? 100 : bpp == 4 ? 6 : 1;  // the slope level
    for (int bw = 1; bw <= 2; bw++) {
      Grid want = bw == 1 ? rows({{0, m, T, T, T, m, 0, 0}}) : rows({{0, m, T, T, T, T, m, 0}});
      table.push_back({[=] { BoldFont b(st, bw); auto r = bpp == 8 ? pixelbold_graymap8(st, makeMap(st, rows({{0, 0, m, T, T, m, 0, 0}}), bpp))
                           : bpp == 4 ? pixelbold_graymap4(st, makeMap(st, rows({{0, 0, m, T, T, m, 0, 0}}), bpp))
                                      : pixelbold_graymap2(st, makeMap(st, rows({{0, 0, m, T, T, m, 0, 0}}), bpp));
                         st->cur_sfnt = nullptr; return r; },
                       want, 0, 0, 0, "the darkest pulls the slope out one place"});
    }
  }
  for (auto& r : table) {
    FS_ULONG start = e.used();
    st->flags = 0;
    FS_GLYPHMAP* m = r.make();
    ASSERT_NE(nullptr, m) << r.why;
    if (r.count) {
      EXPECT_EQ(r.count, bits(m)) << r.why;
    } else if (!r.want.empty()) {
      EXPECT_TRUE(levels(m) == r.want) << r.why;
    }
    EXPECT_EQ(r.lo_x, m->lo_x) << r.why;
    EXPECT_EQ(r.hi_y, m->hi_y) << r.why;
    if (std::string(r.why).rfind("solid", 0) == 0) {
      EXPECT_EQ(224, getPx(m, 4, 4));
    }
    FSS_free(st, m);
    EXPECT_EQ(start, e.used()) << r.why;
  }
  // Filter 5 doesn't exist: the same map, nothing allocated.
  FS_GLYPHMAP* m = makeMap(st, rows({{255}}), 8);
  FS_ULONG used = e.used();
  EXPECT_EQ(m, Soften(st, 5, 1, m));
  EXPECT_EQ(m, Soften(st, -1, 2, m));
  EXPECT_EQ(used, e.used());
  FSS_free(st, m);
}

// Every effect against the reference: DejaVu Sans letters and digits at four
// sizes as 1-bit and 8-, 4-, 2-bit maps, and built maps 1 to 17 pixels wide.
TEST(ImageEffects, MatchThePixelReferenceOnGlyphsAndEveryByteBoundary) {
  testsupport::TypesetFont f;
  ASSERT_EQ(0, f.open(enginetest::kDejaVuSansFile)) << enginetest::kDejaVuSansFile;
  FS_STATE* st = &f.st;
  ASSERT_EQ(0, FSS_set_cmap(st, 3, 1));
  std::string chars;
  for (char c = 'A'; c <= 'Z'; c++) chars += c, chars += (char)(c + 32);
  for (char c = '0'; c <= '9'; c++) chars += c;
  for (int ppem : {12, 24, 48, 72}) {
    ASSERT_EQ(0, f.setPpem(ppem));
    for (size_t i = 0; i < chars.size(); i++)
      for (FS_USHORT type : {FS_MAP_BITMAP, FS_MAP_GRAYMAP8, FS_MAP_GRAYMAP4, FS_MAP_GRAYMAP2}) {
        FS_GLYPHMAP* m = FSS_get_glyphmap(st, (FS_ULONG)chars[i], type);
        ASSERT_NE(nullptr, m);
        SFNT* keep = st->cur_sfnt;
        checkAllEffects(st, m, std::string(1, chars[i]) + " ppem " + std::to_string(ppem) +
                                   " type " + std::to_string(type));
        st->cur_sfnt = keep;
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
  typedef std::function<FS_GLYPHMAP*(FS_GLYPHMAP*)> Apply;
  auto trim8 = [&](FS_GLYPHMAP* m) { return trim_convert(st, m, FS_MAP_GRAYMAP8); };
  struct {
    FS_ULONG flag;
    FS_USHORT type;
    Apply apply;  // on a copy of the plain map
  } styles[] = {
      {FLAGS_OUTLINED_1PIXEL, FS_MAP_BITMAP, [&](FS_GLYPHMAP* m) { return trim_bitmap(st, outline_bitmap(st, m, 1, 0)); }},
      {FLAGS_OUTLINED_1PIXEL, FS_MAP_GRAYMAP8, [&](FS_GLYPHMAP* m) { return trim8(outline_graymap(st, m, 1, 65536)); }},
      {FLAGS_ENGRAVED, FS_MAP_BITMAP, [&](FS_GLYPHMAP* m) { return trim_bitmap(st, engrave_bitmap(m)); }},
      {FLAGS_EMBOSSED, FS_MAP_GRAYMAP2, [&](FS_GLYPHMAP* m) { return emboss_graymap(m); }},  // cut first
      {FLAGS_OUTLINED_SOFT, FS_MAP_GRAYMAP8, [&](FS_GLYPHMAP* m) { return trim8(soft_outline_graymap(st, m, 1, 0)); }},
      {FLAGS_SOFTENED, FS_MAP_GRAYMAP8, [&](FS_GLYPHMAP* m) { return trim8(Soften(st, 2, 2, m)); }},  // 24 ppem
  };
  for (auto& s : styles) {
    for (int round = 0; round < 2; round++) {  // the second from the cache
      FS_GLYPHMAP* plain = FSS_get_glyphmap(st, 'g', s.type);
      ASSERT_EQ(0, FS_set_flags(st, s.flag));
      FS_GLYPHMAP* styled = FSS_get_glyphmap(st, 'g', s.type);
      FS_GLYPHMAP* want = s.apply(copyMap(st, plain));
      ASSERT_NE(nullptr, styled);
      EXPECT_TRUE(levels(styled) == levels(want)) << s.flag << " " << s.type;
      EXPECT_EQ(want->lo_x, styled->lo_x);
      EXPECT_EQ(want->hi_y, styled->hi_y);
      EXPECT_EQ(plain->dx, styled->dx) << "the same pen";
      ASSERT_EQ(0, FS_set_flags(st, s.flag == FLAGS_SOFTENED ? ~FLAGS_SOFTENED : ~FLAGS_EFFECTS));
      FS_GLYPHMAP* again = FSS_get_glyphmap(st, 'g', s.type);
      EXPECT_TRUE(levels(again) == levels(plain)) << "the plain map back, not the styled";
      for (FS_GLYPHMAP* m : {plain, styled, want, again}) FSS_free_char(st, m);
    }
  }
  // 5% at 20 ppem is a bold width of 1: each run one pixel further left.
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
  EXPECT_EQ(3277, st->bold_pct);
  EXPECT_EQ(1, st->outline_width);
  EXPECT_EQ(65536, st->outline_opacity);
  EXPECT_EQ(flags, st->flags);
  FS_GLYPHMAP* bold = FSS_get_glyphmap(st, 'm', FS_MAP_BITMAP);
  ASSERT_NE(nullptr, bold);
  Grid want = levels(plain);
  for (auto& r : want) r.insert(r.begin(), 0);
  EXPECT_TRUE(levels(bold) == refBoldBits(want, 1));
  EXPECT_EQ(plain->lo_x - 1, bold->lo_x);
  EXPECT_EQ(plain->width + 1, bold->width);
  FSS_free_char(st, plain);
  FSS_free_char(st, bold);
  // The widest outline at 72 ppem, ten pixels a side.
  ASSERT_EQ(0, FS_set_outline_width(st, 10));
  ASSERT_EQ(0, f.setPpem(72));
  for (FS_ULONG flag : {FLAGS_OUTLINED_FILLED, FLAGS_OUTLINED_UNFILLED, FLAGS_OUTLINED_SOFT})
    for (FS_USHORT type : {FS_MAP_BITMAP, FS_MAP_GRAYMAP8, FS_MAP_GRAYMAP2}) {
      ASSERT_EQ(0, FS_set_flags(st, flag));
      FS_GLYPHMAP* m = FSS_get_glyphmap(st, 'g', type);
      ASSERT_NE(nullptr, m) << flag << " " << type;
      EXPECT_GE(m->width, 20 + 20) << flag << " " << type;
      FSS_free_char(st, m);
    }
}

// Odd sizes, a wide outline, and every allocation of every effect failed in
// turn: null with 201 and the source intact, or the map; the heap ends
// where it began.
TEST(ImageEffects, OddSizesAndASqueezedHeap) {
  enginetest::Engine e(64u << 20);
  FS_STATE* st = &e.st;
  BoldFont bf(st, 2);
  typedef std::function<FS_GLYPHMAP*(FS_GLYPHMAP*)> Effect;  // takes over its source
  std::vector<std::pair<const char*, Effect>> effects = {
      {"emboss", [&](FS_GLYPHMAP* m) { return m->bitsPerPixel == 1 ? emboss_bitmap(m) : emboss_graymap(m); }},
      {"engrave", [&](FS_GLYPHMAP* m) { return m->bitsPerPixel == 1 ? engrave_bitmap(m) : engrave_graymap(m); }},
      {"outline", [&](FS_GLYPHMAP* m) { return m->bitsPerPixel == 1 ? outline_bitmap(st, m, 3, 0) : outline_graymap(st, m, 3, 30000); }},
      {"soft", [&](FS_GLYPHMAP* m) { return m->bitsPerPixel == 1 ? outline_bitmap(st, m, 2, 1) : soft_outline_graymap(st, m, 2, 0); }},
      {"soften", [&](FS_GLYPHMAP* m) { return m->bitsPerPixel == 1 ? m : Soften(st, 0, 2, m); }},
      {"bold", [&](FS_GLYPHMAP* m) { return m->bitsPerPixel == 1 ? pixelbold_bitmap(st, m) : pixelbold_graymap8(st, m); }},
      {"embedded bold", [&](FS_GLYPHMAP* m) { return m->bitsPerPixel == 1 ? pixelbold_embedded_bitmap(st, m) : pixelbold_embedded_graymap(st, m); }},
  };
  st->outline_opacity = 40000;  // the soft outline's own table
  std::vector<std::pair<int, int>> sizes = {{0, 0}, {1, 1}, {1, 200}, {200, 1}, {2000, 2000}};
  for (auto& wh : sizes)
    for (int bpp : {1, 8})
      for (auto& ef : effects) {
        Grid g(wh.second, std::vector<int>(wh.first, (1 << bpp) - 1));
        FS_GLYPHMAP* m = ef.second(makeMap(st, g, bpp));
        ASSERT_NE(nullptr, m) << ef.first << " " << wh.first << "x" << wh.second;
        FSS_free(st, m);
      }
  // Every allocation refused in turn, on a small glyph of each depth.
  Grid small = rows({{0, 9, 0, 3}, {7, 0, 1, 0}, {0, 2, 0, 5}});
  for (int bpp : {1, 2, 4, 8})
    for (auto& ef : effects) {
      Grid g = small;
      for (auto& r : g) for (int& v : r) v = std::min(v, (1 << bpp) - 1);
      for (FS_ULONG slack = 0;; slack += 8) {
        FS_ULONG start = e.used();
        FS_GLYPHMAP* src = makeMap(st, g, bpp);
        st->server->heap_size = st->server->allocated + slack;
        FS_GLYPHMAP* m = ef.second(src);
        st->server->heap_size = 64u << 20;
        if (m == nullptr) {
          EXPECT_EQ(ERR_MALLOC_FAIL, st->error) << ef.first;
        }
        FSS_free(st, m ? m : src);
        EXPECT_EQ(start, e.used()) << ef.first << " slack " << slack;
        if (m != nullptr) break;
        ASSERT_LT(slack, 4096u) << ef.first;
      }
    }
  st->cur_sfnt = nullptr;
}
