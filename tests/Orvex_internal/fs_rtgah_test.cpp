// The real-time autohinter: hand-built glyphs in 26.6 (1024 units/em at 16
// ppem, one unit a 64th of a pixel) run through a filled graphic state,
// the collision rules, real fonts forced through the glyph fetch, and
// mutated outlines.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_rtgah.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const int kMutations = 300;
const int kFontMutations = 150;
#else
const int kMutations = 1000;
const int kFontMutations = 500;
#endif

const char* const kFonts[] = {"/usr/share/fonts/truetype/dejavu/DejaVuSansCondensed.ttf",
                              "/usr/share/fonts/truetype/freefont/FreeSans.ttf",
                              "/usr/share/fonts/truetype/freefont/FreeSerif.ttf"};

typedef std::vector<std::vector<std::pair<int, int>>> Contours;

// A glyph element over its own arrays, and the state rtgah reads.
struct Glyph {
  std::vector<F26DOT6> x, y, ox, oy;
  std::vector<FS_LONG> oox, ooy;
  std::vector<FS_BYTE> on, f;
  std::vector<FS_SHORT> sp, ep;
  fnt_ElementType els[2] = {};
  std::unique_ptr<RTGAH_DATA> r{new RTGAH_DATA()};
  SFNT sfnt = {};
  fnt_GlobalGraphicStateType g = {};
  fnt_LocalGraphicStateType gs = {};

  Glyph(const Contours& cs, F26DOT6 advance, F26DOT6 slot7 = 64) {
    for (const auto& c : cs) {
      sp.push_back((FS_SHORT)x.size());
      for (auto p : c) x.push_back(p.first), y.push_back(p.second);
      ep.push_back((FS_SHORT)(x.size() - 1));
    }
    size_t np = x.size();
    x.resize(np + 8), y.resize(np + 8);
    x[np + 1] = advance;
    ox = x, oy = y, oox.assign(x.begin(), x.end()), ooy.assign(y.begin(), y.end());
    on.assign(np + 8, 1), f.assign(np + 8, 0);
    fnt_ElementType& el = els[1];
    el = {x.data(), y.data(), ox.data(), oy.data(), oox.data(), ooy.data(),
          on.data(), sp.data(), ep.data(), f.data(), (FS_SHORT)sp.size(), (FS_SHORT)np};
    sfnt.ref_lines[7] = slot7, sfnt.rtgah_suitable = 1;
    r->stateflags = 0x400000, r->rtgah_suitable = 1;
    g.rtgah_data = r.get(), g.sfnt = &sfnt, g.pixelsPerEm = 16;
    gs.elements = els, gs.CE0 = &els[1], gs.globalGS = &g;
  }
  void run(int script = 0) { r->script = (FS_SHORT)script, rtgah(&gs); }
};

std::vector<std::pair<int, int>> rect(int x0, int y0, int x1, int y1) {
  return {{x0, y0}, {x0, y1}, {x1, y1}, {x1, y0}};  // clockwise
}

TEST(Rtgah, HandBuiltGlyphs) {
  // Stems 83-179: d0 -19, d1 +13, the upper edge moves; 90-166: a tie of
  // 26, the upper edge again. A point midway on the top edge follows by
  // interpolation: 96 + 48 * 96 / 96.
  const struct { int x0, x1, lo, hi; } stems[] = {{83, 179, 96, 192}, {90, 166, 116, 192}};
  for (const auto& s : stems) {
    Glyph gl({{{s.x0, 0}, {s.x0, 640}, {(s.x0 + s.x1) / 2, 640}, {s.x1, 640}, {s.x1, 0}}}, 320);
    gl.run();
    EXPECT_EQ(gl.x[0], s.lo);
    EXPECT_EQ(gl.x[1], s.lo);
    EXPECT_EQ(gl.x[3], s.hi);
    EXPECT_EQ(gl.x[2], (s.lo + s.hi) / 2) << s.x0;
  }
  // Three stems of width 100: each keeps its width with an edge on the grid.
  Glyph three({rect(10, 0, 110, 640), rect(150, 0, 250, 640), rect(300, 0, 400, 640)}, 500);
  three.run();
  for (int c = 0; c < 3; c++) {
    F26DOT6 lo = three.x[4 * c], hi = three.x[4 * c + 2];
    EXPECT_EQ(hi - lo, 100) << c;
    EXPECT_TRUE((lo & 63) == 0 || (hi & 63) == 0) << c;
  }
  // An H: the crossbar 356-441 (width 85) has an edge on the grid in y.
  Glyph h({{{101, 747}, {202, 747}, {202, 441}, {569, 441}, {569, 747}, {670, 747},
            {670, 0}, {569, 0}, {569, 356}, {202, 356}, {202, 0}, {101, 0}}}, 768);
  h.run();
  EXPECT_EQ(h.y[2] - h.y[9], 84);
  EXPECT_TRUE((h.y[2] & 63) == 0 || (h.y[9] & 63) == 0);
  EXPECT_EQ(h.x[0], 92);  // the stems: 101-202 becomes 92-192
  // Two strokes claim point 0 (lower edge at 10): the lower in sorted order,
  // 10-125 (centre 67 aligned to 71), places it at 14; the other, 10-180,
  // is skipped whole.
  Glyph two({{{10, 0}, {10, 600}, {125, 600}, {125, 400}, {180, 300}, {180, 0}}}, 300);
  STROKE* st = two.r->strokes;
  st[0] = {0, 1, 2, 3, nullptr, nullptr, 67, 67, 115, 0, 600};
  st[1] = {0, 1, 4, 5, nullptr, nullptr, 95, 95, 170, 0, 600};
  adjust_outline('x', 0, 2, st, &two.els[1], &two.gs);
  EXPECT_EQ(two.x[0], 14);
  EXPECT_EQ(two.x[2], 128);
  EXPECT_EQ(two.f[4] & XMOVED, 0);
  // A one-point contour is passed over; the stem beside it still aligns.
  Glyph dot({{{500, 500}}, rect(83, 0, 179, 640)}, 600);
  dot.run();
  EXPECT_EQ(dot.x[0], 500);
  EXPECT_EQ(dot.x[1], 96);
}

TEST(Rtgah, PieceOverlapAndStemWidthLimit) {
  // Opposing pieces at x 0 (y 0..top) and 200 (y 5..300): a stroke needs
  // an overlap of 200 >> 3 = 25 and a distance within max_sw.
  const struct { int top; F26DOT6 max_sw; int strokes; const char* why; } rows[] = {
      {10, 1000, 0, "overlap 5 below an eighth of 200"},
      {40, 1000, 1, "overlap 35"},
      {40, 150, 0, "further apart than max_sw"},
  };
  for (const auto& r : rows) {
    Glyph gl({{{0, 0}, {0, r.top}, {200, 300}, {200, 5}}}, 300);
    int cursor = 0;
    int n = find_pieces('x', gl.r->pieces, &gl.els[1], gl.r->plist, &cursor, RTGAH_MAX_PLIST);
    EXPECT_EQ(n, 2) << r.why;
    n = find_strokes('x', n, gl.r->pieces, gl.r->strokes, &gl.els[1], r.max_sw, gl.r->plist,
                     &cursor, RTGAH_MAX_PLIST);
    EXPECT_EQ(n, r.strokes) << r.why;
  }
}

TEST(Rtgah, FirstGlyphSetsSideBearingsOrUnsuitable) {
  // No x strokes: lsb 0, rsb 10 from the phantom places: S 0, slot 6 0,
  // slot 7 at least 64.
  Glyph tri({{{0, 0}, {100, 300}, {200, 0}}}, 10, 0);
  tri.run();
  EXPECT_EQ(tri.sfnt.ref_lines[6], 0);
  EXPECT_EQ(tri.sfnt.ref_lines[7], 64);
  // 52 points, three stems: the font is unsuitable, the glyph unhinted.
  Contours cs = {rect(10, 0, 110, 640), rect(150, 0, 250, 640), rect(300, 0, 400, 640)};
  std::vector<std::pair<int, int>> zig;
  for (int i = 0; i < 40; i++) zig.push_back({1000 + 10 * i, 10 * i + (i & 1) * 5});
  cs.push_back(zig);
  Glyph big(cs, 1500, 0);
  std::vector<F26DOT6> x0 = big.x, y0 = big.y;
  big.run();
  EXPECT_EQ(big.r->rtgah_suitable, 0);
  EXPECT_EQ(big.x, x0);
  EXPECT_EQ(big.y, y0);
}

STROKE stroke(F26DOT6 center, F26DOT6 width) {
  return STROKE{0, 0, 0, 0, nullptr, nullptr, center, center, width, 0, 1000};
}

TEST(Rtgah, StrokesTooClose) {
  // a's top and b's bottom: a = (top - w/2, w), b = (bottom + w/2, w).
  const struct { F26DOT6 top, bottom; bool close; const char* why; } rows[] = {
      {100, 90, true, "touching"},
      {128, 128, true, "both on boundaries, gap 0"},
      {128, 192, false, "both on boundaries, gap 64"},
      {128, 176, false, "one aligned, gap 48"},
      {128, 175, true, "one aligned, gap 47"},
      {86, 166, true, "adjacent pixels, fractions 22 and 38"},
      {76, 136, false, "adjacent pixels, fractions 12 and 8"},
  };
  for (const auto& r : rows) {
    STROKE a = stroke(r.top - 32, 64), b = stroke(r.bottom + 32, 64);
    EXPECT_EQ(strokes_too_close(&a, &b) != 0, r.close) << r.why;
  }
  // Thinning: 60 becomes (7 * 60 + 4) >> 3 = 53 and 82 72: aligned, the
  // gap 64-110 (46) becomes 64-120.
  STROKE a = stroke(64, 60), b = stroke(128, 82);
  ASSERT_TRUE(strokes_too_close(&a, &b));
  EXPECT_TRUE(can_thin_strokes(&a, &b));
  EXPECT_EQ(a.width, 53);
  EXPECT_EQ(b.width, 72);
}

TEST(Rtgah, CollisionsKeepTwoBarsApart) {
  // Two bars 64 high, 30 apart, beside a tall stem; script 7.
  Glyph gl({rect(0, 200, 600, 264), rect(0, 294, 600, 358), rect(700, -200, 760, 1000)}, 800);
  gl.run(7);
  STROKE a = stroke((gl.y[0] + gl.y[1]) / 2, gl.y[1] - gl.y[0]);
  STROKE b = stroke((gl.y[4] + gl.y[5]) / 2, gl.y[5] - gl.y[4]);
  EXPECT_FALSE(strokes_too_close(&a, &b)) << gl.y[1] << " " << gl.y[4];
  EXPECT_LE(abs(a.adj_center - 232), 96);
  EXPECT_LE(abs(b.adj_center - 326), 96);
}

// The reference-line steps on hand-built glyphs and strokes.
TEST(Rtgah, ReferenceLineSteps) {
  F26DOT6 ref[56] = {703, 720, 500, 510, 0, -10};
  // A flat top with no stroke there: a zero-width stroke for its first
  // point, the other top point on its edge, placed on round(703) = 704;
  // one for the bottom at 0 (the base shares its level, none for it).
  Glyph flat({{{0, 0}, {100, 700}, {300, 700}, {400, 0}}}, 500);
  STROKE* st = flat.r->strokes;
  int cursor = 0;
  int n = latin_ref_lines(0, st, ref, &flat.els[1], flat.r->plist, &cursor, RTGAH_MAX_PLIST);
  ASSERT_EQ(n, 2);
  EXPECT_TRUE(st[0].width == 0 && st[0].e1 && st[0].e1->pt == 2);
  EXPECT_EQ(st[0].adj_center, 704);
  EXPECT_EQ(st[1].adj_center, 0);
  // No small letters measured: slot 2 is 0 and matches nothing; the
  // stroke 0..20 goes to the base line (adj 10), not below it (-10).
  const F26DOT6 noSmall[56] = {703, 720, 0, 510, 0, -10};
  st[0] = stroke(10, 20);
  latin_ref_lines(1, st, noSmall, &flat.els[1], flat.r->plist, &cursor, RTGAH_MAX_PLIST);
  EXPECT_EQ(st[0].adj_center, 10);
  // A mark 100 tall 60 above its base (top 640): 64 above the base's
  // placed top, 128 tall: 704..832.
  Glyph acc({rect(0, 0, 300, 640), rect(100, 700, 160, 800)}, 400);
  const F26DOT6 lines[56] = {700, 720, 640, 650, 0, -10};
  cursor = 0;
  latin_accents(lines, 0, acc.r->strokes, &acc.els[1], acc.r->plist, &cursor, RTGAH_MAX_PLIST);
  EXPECT_EQ(*std::min_element(acc.y.begin() + 4, acc.y.begin() + 8), 704);
  EXPECT_EQ(*std::max_element(acc.y.begin() + 4, acc.y.begin() + 8), 832);
  // Indic lines: a top near the upper line 730 keeps the rounded gap
  // above the lower one, round(610) + round(120) - 10 = 758 (not
  // round(730) - 10 = 694); a bottom near -50 goes round(50) below 0.
  const F26DOT6 indic[4] = {730, 610, 0, -50};
  STROKE ind[2] = {stroke(720, 20), stroke(-40, 20)};
  Indic_ref_lines_4(indic, 2, ind);
  EXPECT_EQ(ind[0].adj_center, 758);
  EXPECT_EQ(ind[1].adj_center, -54);
  // Hangul and CJK stretch the glyph: 0..600 becomes 0..round(616) = 640.
  Glyph sq({rect(0, 0, 600, 600)}, 700);
  const F26DOT6 four[4] = {610, 500, 100, 0};
  snap_top_bottom_4(four, 0, sq.r->strokes, &sq.els[1], 1024);
  EXPECT_TRUE(sq.y[0] == 0 && sq.y[1] == 640 && sq.oy[1] == 640) << sq.y[1];
}

TEST(Rtgah, ScriptsPlaceTopsOnTheirLines) {
  // At 24 ppem a block 20..680 is no stroke: Latin puts its top on the
  // capitals' line (round(700)), its bottom on the base; Kannada has no
  // lines. A bar 20..300 is: Kannada aligns it alone (a tie: the upper
  // edge, 40..320); Arabic puts its bottom near slot 51 (10) on 0.
  const struct { int script; F26DOT6 y0, y1, bottom, top; } rows[] = {
      {1, 20, 680, 0, 704}, {12, 20, 680, 20, 680}, {12, 20, 300, 40, 320}, {5, 20, 300, 0, 280}};
  for (const auto& r : rows) {
    Glyph gl({rect(0, r.y0, 300, r.y1)}, 400);
    gl.g.pixelsPerEm = 24;
    const F26DOT6 lines[6] = {700, 720, 500, 510, 0, -10};
    memcpy(gl.sfnt.ref_lines, lines, sizeof lines), gl.sfnt.ref_lines[51] = 10;
    gl.run(r.script);
    EXPECT_TRUE(gl.y[1] == r.top && gl.y[0] == r.bottom) << r.script << " " << gl.y[0] << ".." << gl.y[1];
  }
}

TEST(Rtgah, DotsStayApartAndKeepTheirTriangle) {
  // Two base dots 40 wide (80..120, 144..184) and an apex over them: the
  // base dots' hinted edges (116, 140) would light one pixel, so the
  // second moves a pixel right; the apex stays over the middle.
  Glyph gl({rect(80, 80, 120, 120), rect(144, 80, 184, 120), rect(112, 200, 152, 240)}, 300);
  multi_dot(&gl.els[1]);
  F26DOT6 c0 = (gl.x[0] + gl.x[2]) / 2, c1 = (gl.x[4] + gl.x[6]) / 2, c2 = (gl.x[8] + gl.x[10]) / 2;
  EXPECT_EQ(c0, 96);
  EXPECT_EQ(c1, 224);
  EXPECT_EQ(c2, (c0 + c1) / 2);
  EXPECT_TRUE(visually_separate(gl.x[2], gl.x[4]));
  // Separation by pixels: same pixel, adjacent pixels, apart.
  const struct { F26DOT6 a, b; bool apart; } rows[] = {{70, 120, true}, {80, 120, false},
      {90, 170, true}, {100, 170, false}, {90, 130, false}, {10, 300, true}, {90, 90, false}};
  for (const auto& r : rows) EXPECT_EQ(visually_separate(r.a, r.b) != 0, r.apart) << r.a << " " << r.b;
}

// The automatic route on gray output: glyphs with their own program keep
// it (the same points as with autohinting off); a glyph without one, and
// every CFF glyph, is autohinted.
TEST(Rtgah, OnlyGlyphsWithoutAProgramAreAutohinted) {
  const char* letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  const struct { const char* path; const char* chars; bool autohinted; } rows[] = {
      {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", letters, false},
      {"/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf", letters, false},
      {"/usr/share/fonts/truetype/liberation2/LiberationMono-Regular.ttf", "l", true},
      {"/usr/share/fonts/opentype/cantarell/Cantarell-Regular.otf", "Hx", true},
  };
  for (const auto& r : rows)
    for (int ppem : {12, 24}) {
      testsupport::TypesetFont on, off;
      for (auto* f : {&on, &off}) {
        ASSERT_TRUE(f->open(r.path) == 0 && f->setPpem(ppem) == 0) << "missing font " << r.path;
        ASSERT_EQ(FSS_set_cmap(&f->st, 3, 1), 0);
        f->st.flags |= FLAGS_GRAYSCALE | (f == &off ? FLAGS_NO_AUTOHINT : 0);
      }
      for (const char* c = r.chars; *c; c++) {
        FS_GLYPH_POINTS* a = FSS_get_points(&on.st, (FS_ULONG)*c);
        EXPECT_EQ((on.st.any_hints & 16) != 0, r.autohinted) << r.path << " " << *c;
        FS_GLYPH_POINTS* b = FSS_get_points(&off.st, (FS_ULONG)*c);
        ASSERT_TRUE(a && b && !(off.st.any_hints & 16));
        bool same = a->np == b->np && std::equal(a->x, a->x + a->np, b->x) &&
                    std::equal(a->y, a->y + a->np, b->y);
        EXPECT_EQ(same, !r.autohinted) << r.path << " " << *c << " " << ppem;
        FSS_free(&on.st, a);
        FSS_free(&off.st, b);
      }
    }
}

// The Latin path through the glyph fetch (forced on the instructed fonts,
// the automatic route's own program on CFF), A-Z a-z but i and j, per font
// over 9-14, 16, 18, 20, 24, 36, 72 ppem: (a) tops near a reference line
// and bottoms near slot 4 end on a whole pixel (99%); (b) no point moves
// more than 1.5 px; (c) x stems of the plain outline whose edges stay
// flat have an edge on the grid (98%); (d) at 20 ppem and above, stems of one scaled width keep one
// hinted width within 2/64 (sans) or 1/4 px (serif: level merging moves
// edges up to 1/8 px).
TEST(Rtgah, LatinPropertiesOnRealFonts) {
  const struct { const char* path; F26DOT6 spread; } fonts[] = {
      {"truetype/dejavu/DejaVuSansCondensed.ttf", 2}, {"truetype/freefont/FreeSans.ttf", 2},
      {"truetype/freefont/FreeSerif.ttf", 16}, {"opentype/cantarell/Cantarell-Regular.otf", 2},
      {"opentype/urw-base35/NimbusSans-Regular.otf", 2},
      {"opentype/urw-base35/NimbusRoman-Regular.otf", 16},
      {"opentype/ebgaramond/EBGaramond12-Regular.otf", 16}};
#if defined(__SANITIZE_ADDRESS__)
  const int ppems[] = {9, 12, 20, 72};
#else
  const int ppems[] = {9, 10, 11, 12, 13, 14, 16, 18, 20, 24, 36, 72};
#endif
  std::unique_ptr<RTGAH_DATA> r(new RTGAH_DATA());
  for (const auto& font : fonts) {
    int lines = 0, whole = 0, placed = 0, aligned = 0;
    F26DOT6 worst = 0, spread = 0, small = 0;
    for (int ppem : ppems) {
      testsupport::TypesetFont plain, hinted;
      for (auto* f : {&plain, &hinted}) {
        std::string path = std::string("/usr/share/fonts/") + font.path;
        ASSERT_TRUE(f->open(path) == 0 && f->setPpem(ppem) == 0) << "missing font " << path;
        ASSERT_EQ(FSS_set_cmap(&f->st, 3, 1), 0);
      }
      plain.st.flags |= FLAGS_NO_HINTS;
      hinted.st.flags |= FLAGS_FORCE_AUTOHINT | FLAGS_GRAYSCALE;
      std::map<F26DOT6, std::pair<F26DOT6, F26DOT6>> widths;  // raw: hinted min, max
      for (const char* c = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghklmnopqrstuvwxyz"; *c; c++) {
        FS_GLYPH_POINTS* u = FSS_get_points(&plain.st, (FS_ULONG)*c);
        FS_GLYPH_POINTS* h = FSS_get_points(&hinted.st, (FS_ULONG)*c);
        ASSERT_TRUE(u && h && u->np == h->np) << *c;
        ASSERT_TRUE(hinted.st.cur_sfnt->rtgah_suitable && (hinted.st.any_hints & 16)) << *c;
        const F26DOT6* ref = hinted.st.cur_sfnt->ref_lines;
        int top = 0, bottom = 0;
        for (int i = 0; i < u->np; i++) {
          if (u->y[i] > u->y[top]) top = i;
          if (u->y[i] < u->y[bottom]) bottom = i;
          worst = std::max({worst, std::abs(h->x[i] - u->x[i]), std::abs(h->y[i] - u->y[i])});
        }
        F26DOT6 hiTop = *std::max_element(h->y, h->y + h->np);
        F26DOT6 hiBottom = *std::min_element(h->y, h->y + h->np);
        bool nearTop = false;
        for (int k = 0; k < 4; k++) nearTop |= std::abs(u->y[top] - ref[k]) <= 31;
        if (nearTop) lines++, whole += (hiTop & 63) == 0;
        if (std::abs(u->y[bottom] - ref[4]) <= 31) lines++, whole += (hiBottom & 63) == 0;
        // The x stems over the plain outline, flattened as the hinter sees it.
        int np = u->np;
        std::vector<F26DOT6> sx(u->x, u->x + np), sy(u->y, u->y + np);
        std::vector<FS_BYTE> f(np, 0);
        fnt_ElementType s = {};
        s.x = s.ox = sx.data(), s.y = s.oy = sy.data(), s.f = f.data();
        s.onCurve = u->onCurve, s.sp = u->sp, s.ep = u->ep, s.nc = u->nc, s.np = (FS_SHORT)np;
        non_corner_extrema(&s);
        int cursor = 0, n = find_pieces('x', r->pieces, &s, r->plist, &cursor, RTGAH_MAX_PLIST);
        n = find_strokes('x', n, r->pieces, r->strokes, &s, (ppem * 1408 + 50) / 100, r->plist,
                         &cursor, RTGAH_MAX_PLIST);
        std::vector<bool> claimed(np, false);
        for (int i = 0; i < n; i++) {  // placed: edges flat, ends not claimed below
          const STROKE& t = r->strokes[i];
          if (h->x[t.p0] != h->x[t.p1] || h->x[t.p2] != h->x[t.p3] || claimed[t.p0] ||
              claimed[t.p1] || claimed[t.p2] || claimed[t.p3])
            continue;
          for (int p : {t.p0, t.p1, t.p2, t.p3}) claimed[p] = true;
          placed++;
          aligned += (h->x[t.p0] & 63) == 0 || (h->x[t.p2] & 63) == 0;
          F26DOT6 w = h->x[t.p2] - h->x[t.p0];
          auto& m = widths.emplace(t.width, std::make_pair(w, w)).first->second;
          m = {std::min(m.first, w), std::max(m.second, w)};
        }
        FSS_free(&plain.st, u);
        FSS_free(&hinted.st, h);
      }
      for (const auto& w : widths) {
        F26DOT6& m = ppem >= 20 ? spread : small;
        m = std::max(m, w.second.second - w.second.first);
      }
    }
    printf("%s: %d of %d lines whole, %d of %d x stems on the grid, worst move %ld/64, "
           "equal stems apart %ld/64 at 20 ppem and up, %ld/64 below\n",
           font.path, whole, lines, aligned, placed, (long)worst, (long)spread, (long)small);
    EXPECT_GE(whole * 100, lines * 99) << font.path;
    EXPECT_LE(worst, 96) << font.path;
    // Below 20 ppem the x-height boost and the side-bearing stretch move
    // a few serif feet that the plain outline shows as stems.
    EXPECT_GE(aligned * 100, placed * 98) << font.path;
    EXPECT_LE(spread, font.spread) << font.path;
  }
}

// Mutated real outlines (coordinates, contour ends, on-curve flags) and
// built extremes, forced at 9 and 72 ppem: nothing read or written outside
// the arrays (the sanitizer build checks), every point stays finite.
TEST(Rtgah, MalformedOutlinesStayInBounds) {
  std::mt19937 rng(29);
  Contours pieces200, stems100;
  for (int i = 0; i < 50; i++) pieces200.push_back(rect(i * 40, 0, i * 40 + 20, 300));
  for (int i = 0; i < 100; i++) stems100.push_back(rect(i * 100, 0, i * 100 + 60, 900));
  std::vector<Contours> shapes = {pieces200, stems100, {{{5, 5}, {5, 5}, {5, 5}, {5, 5}}},
                                  {{{1, 1}}, {{2, 2}, {2, 90}}, rect(0, 0, 100, 100)}};
  // Seeds: real letters of the three fonts, unhinted at 16 ppem.
  std::vector<Contours> seeds;
  for (const char* path : kFonts) {
    testsupport::TypesetFont font;
    ASSERT_EQ(font.open(path), 0) << "missing font " << path;
    ASSERT_EQ(font.setPpem(16), 0);
    ASSERT_EQ(FSS_set_cmap(&font.st, 3, 1), 0);
    font.st.flags |= FLAGS_NO_HINTS;
    for (const char* c = "aBgQ&m"; *c; c++) {
      FS_GLYPH_POINTS* pts = FSS_get_points(&font.st, (FS_ULONG)*c);
      ASSERT_NE(pts, nullptr);
      Contours cs(pts->nc);
      for (int k = 0; k < pts->nc; k++)
        for (int i = pts->sp[k]; i <= pts->ep[k]; i++) cs[k].push_back({pts->x[i], pts->y[i]});
      seeds.push_back(cs);
      FSS_free(&font.st, pts);
    }
  }
  for (int k = 0; k < kMutations; k++) {
    Contours cs = shapes[(k / 2) % shapes.size()];
    if (k % 2 == 0) {
      // A real letter with some coordinates moved, its first two contours
      // joined now and then.
      cs = seeds[(k / 2) % seeds.size()];
      for (int m = (int)(rng() % 6); m >= 0; m--) {
        auto& c = cs[rng() % cs.size()];
        auto& p = c[rng() % c.size()];
        (rng() & 1 ? p.first : p.second) += (int)(rng() % 129) - 64;
      }
      if (rng() % 3 == 0 && cs.size() > 1)
        cs[0].insert(cs[0].end(), cs[1].begin(), cs[1].end()), cs.erase(cs.begin() + 1);
    }
    Glyph gl(cs, 600, (k & 1) ? 0 : 64);
    gl.g.pixelsPerEm = (k & 2) ? 72 : 9;
    for (auto& o : gl.on) o = (FS_BYTE)(rng() & 1);
    if (k % 7 == 0 && !gl.ep.empty()) gl.ep.back() = (FS_SHORT)(gl.ep.back() + 5);  // past np
    gl.run(k % 11 == 0 ? 7 : 0);
    for (size_t i = 0; i < gl.x.size(); i++) ASSERT_LT(std::abs(gl.x[i]), 1 << 20) << k;
  }
}

// Fonts with mutated OS/2 ranges and panose, cmap and outline bytes,
// drawn as the shipped script has them (gray, hinted, autohinting on):
// reference lines, script choice and the autohinter meet the bad data with
// an error or an unhinted glyph, and read nothing outside the font (the
// sanitizer build checks).
TEST(Rtgah, MutatedFontsThroughTheAutohinter) {
  std::mt19937 rng(30);
  std::vector<sfnt::Bytes> bases;
  for (const char* path : {"/usr/share/fonts/truetype/freefont/FreeSans.ttf",
                           "/usr/share/fonts/opentype/cantarell/Cantarell-Regular.otf"}) {
    bases.push_back(sfnt::asBytes(testsupport::readBytes(path)));
    ASSERT_GT(bases.back().size(), 1000u) << "missing font " << path;
  }
  int drawn = 0;
  for (int k = 0; k < kFontMutations; k++) {
    sfnt::Bytes font = bases[k % 2];
    for (const char* tag : {"OS/2", "cmap", k % 2 ? "CFF " : "glyf"}) {
      size_t e = sfnt::entryOf(font, tag), at = sfnt::getU32(font, e + 8);
      size_t len = sfnt::getU32(font, e + 12);
      ASSERT_TRUE(e != 0 && len >= 54) << tag;
      for (int m = (int)(rng() % 8); tag[0] != 'O' && m >= 0; m--) font[at + rng() % len] = (uint8_t)rng();
      if (tag[0] != 'O') continue;  // Unicode ranges and panose family
      for (size_t i = 42; i < 54; i++) font[at + i] = rng() % 3 ? font[at + i] : (uint8_t)rng();
      font[at + 32] = (uint8_t)(rng() % 7);
    }
    testsupport::TypesetFont f;
    if (f.open("", font) != 0 || f.setPpem(k % 4 ? 12 : 40) != 0 ||
        FSS_set_cmap(&f.st, 3, 1) != 0)
      continue;
    f.st.flags |= FLAGS_GRAYSCALE;
    for (const char* c = "lHxoOi"; *c; c++) {
      FS_GLYPH_POINTS* p = FSS_get_points(&f.st, (FS_ULONG)*c);
      if (p == nullptr) continue;
      drawn++;
      for (int i = 0; i < p->np; i++) ASSERT_LT(std::abs(p->x[i]) + std::abs(p->y[i]), 1 << 24) << k;
      FSS_free(&f.st, p);
    }
  }
  EXPECT_GT(drawn, kFontMutations);
}

}  // namespace
