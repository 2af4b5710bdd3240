// The bitmap scan converter on glyphs worked out by hand: a font of 1024
// units per em at 16 pixels per em, 64 units a pixel, whose glyphs put
// edges on pixel boundaries, through centres and between centres; and the
// refusals, open contours and blank glyphs.
#include "Orvex_internal/fs_bitmap.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_tlist.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/glyf_font.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

namespace {

using glyffont::Pt;
typedef std::vector<std::string> Picture;

// Glyph 0 blank; the others closed contours, in font units.
std::vector<sfnt::Bytes> glyphs() {
  auto box = [](int x0, int y0, int x1, int y1) {
    return glyffont::simple({3}, {{x0, y0, true}, {x0, y1, true}, {x1, y1, true}, {x1, y0, true}});
  };
  return {
      {},
      box(64, 64, 192, 192),   // 1: pixels 1 to 3 on both axes
      box(32, 32, 160, 160),   // 2: 0.5 to 2.5, edges through centres
      glyffont::simple({2}, {{0, 40, true}, {96, 88, true}, {192, 40, true}}),  // 3: y 0.625..1.375
      box(104, 0, 142, 192),   // 4: a stem x 1.625..2.22, its middle at 1.92
      box(0, 104, 192, 142),   // 5: a bar, alike across
      // 6: x 0..3, y 0..2 with a spike from x 1 up to (1.2, 2.7) and back at 1.4
      glyffont::simple({6}, {{0, 0, true}, {0, 128, true}, {64, 128, true}, {77, 173, true},
                             {90, 128, true}, {192, 128, true}, {192, 0, true}}),
  };
}

std::vector<uint8_t> fontBytes() {
  sfnt::Font f = glyffont::font(glyphs());
  sfnt::Bytes head = sfnt::head(1024, 0, 0, 192, 192);
  sfnt::putU16(head, 50, 1);  // long loca offsets
  f.set("head", head);
  return sfnt::build(f);
}

Picture picture(const FS_BITMAP* b) {
  Picture p;
  for (int r = 0; r < b->height; r++) {
    std::string row;
    for (int c = 0; c < b->width; c++)
      row += b->bits[r * b->bpl + (c >> 3)] & (0x80 >> (c & 7)) ? '#' : '.';
    p.push_back(row);
  }
  return p;
}

// A hand-made outline of closed or open polygons in pixels, box set.
FS_OUTLINE* polygons(FS_STATE* st, const std::vector<std::vector<std::pair<double, double>>>& cs,
                     bool close) {
  FS_LONG n = 0, k = 0;
  for (auto& c : cs) n += (FS_LONG)c.size() + (close ? 1 : 0);
  FS_OUTLINE* o = setup_outline(st, (FS_SHORT)cs.size(), n, n);
  for (auto& c : cs)
    for (size_t i = 0; i < c.size() + (close ? 1 : 0); i++, k++) {
      o->type[k] = i == 0 ? FS_MOVETO : FS_LINETO;
      o->x[k] = (FS_FIXED)(c[i % c.size()].first * 65536);
      o->y[k] = (FS_FIXED)(c[i % c.size()].second * 65536);
    }
  o->type[0] |= 0x80;
  set_bbox(o->np, o);
  return o;
}

}  // namespace

TEST(BitmapScan, HandWorkedGlyphs) {
  testsupport::TypesetFont f;
  ASSERT_EQ(0, f.open("", fontBytes()));
  FS_STATE* st = &f.st;
  // The map of glyph `gi` before trimming, with or without flag 1.
  auto untrimmed = [&](FS_ULONG gi, bool flag1) -> FS_BITMAP* {
    st->flags = FLAGS_NO_HINTS | FLAGS_CMAP_OFF | (flag1 ? FLAGS_RESERVED_BIT0 : 0);
    FS_OUTLINE* o = FSS_get_outline(st, gi);
    if (o == nullptr) return nullptr;
    FS_BITMAP* b = make_bitmap(st, o);
    FS_ULONG err = st->error;
    FSS_free_char(st, o);
    st->error = err;
    return b;
  };
  // The trimmed map through the request call at scale (s00, 0, 0, 16).
  auto requested = [&](FS_ULONG gi, FS_FIXED s00) -> FS_BITMAP* {
    st->flags = FLAGS_NO_HINTS | FLAGS_CMAP_OFF;
    if (f.setScale(s00, 0, 0, 16 << 16) != 0) return nullptr;
    FS_BITMAP* b = FSS_get_bitmap(st, gi);
    FS_ULONG err = st->error;
    FSS_free_char(st, b);  // still readable: the cache keeps it
    st->error = err;
    return b;
  };
  struct Row {
    std::function<FS_BITMAP*()> make;
    FS_ULONG error;
    std::vector<int> box;  // lo_x, hi_y, width, height, i_dx; empty: null
    Picture want;
    const char* why;
    std::function<bool()> also = nullptr;
  };
  const FS_FIXED px16 = 16 << 16;
  Row rows[] = {
      {[&] { return untrimmed(1, false); }, 0, {1, 3, 3, 3, 8}, {"...", "##.", "##."},
       "rectangle on boundaries fills exactly; spare top row and right column empty"},
      {[&] { return untrimmed(2, false); }, 0, {0, 3, 4, 4, 8}, {"....", "....", ".##.", ".##."},
       "centre on a run's left end out, right end in; a line's lower end in, upper out"},
      {[&] { return untrimmed(3, false); }, 0, {0, 2, 4, 3, 8}, {"....", "....", "...."},
       "lines between two row centres leave no crossing and no turn state",
       [&] { return st->server->tlist->next_index == 0 && st->server->tlist->hph_flag == 0; }},
      {[&] { return untrimmed(4, false); }, 0, {1, 3, 3, 4, 8}, {"...", "...", "...", "..."},
       "a 0.6 px stem between centres vanishes without dropout control"},
      {[&] { return untrimmed(4, true); }, 0, {1, 3, 3, 4, 8}, {"...", "...", "#..", "#.."},
       "with flag 1 one pixel a row, at the column of the stem's middle (1.92); the top "
       "row's pair went to the turn-back test (both edges round to column 2)"},
      {[&] { return untrimmed(5, false); }, 0, {0, 3, 4, 3, 8}, {"....", "....", "...."},
       "a 0.6 px bar between row centres vanishes without dropout control"},
      {[&] { return untrimmed(5, true); }, 0, {0, 3, 4, 3, 8}, {"....", "....", "##.."},
       "the column scan gives it one pixel a column, in the row of its middle; the last "
       "column's pair went to the turn-back test, as the stem's top row"},
      {[&] { return untrimmed(6, true); }, 0, {0, 3, 4, 4, 8}, {"....", "....", "###.", "###."},
       "a spike turning back within one row leaves no pair there, so no dropout pixel"},
      {[&] { return requested(0, px16); }, 0, {0, 0, 0, 0, 8}, {}, "a blank glyph keeps its advance"},
      {[&] { return requested(3, px16); }, 0, {0, 2, 0, 0, 8}, {},
       "ink-less lines trim to height 0, the advance kept"},
      {[&] { return requested(2, px16); }, 0, {1, 1, 2, 2, 8}, {"##", "##"}, "trimmed square"},
      {[&] { return requested(2, -px16); }, 0, {-1, 1, 2, 2, -8}, {"##", "##"},
       "mirrored: ink at x -2..-1, lo_x paid back one to the right"},
      {[&] {
         FS_OUTLINE* o = polygons(st, {{{0, 0}, {16383, 0}, {16383, 1}, {0, 1}}}, true);
         FS_BITMAP* b = make_bitmap(st, o);
         FSS_free(st, o);
         return b;
       },
       0, {}, {}, "16384 columns with the spare one: no map, no error"},
      {[&] {
         FS_OUTLINE* o = polygons(st, {{{0, 0}, {0, 1}, {2, 1}, {2, 0}}, {{4, 1}, {4, 2}}}, false);
         FS_BITMAP* b = construct_bitmap(st, nullptr, 1, o);
         return b;
       },
       ERR_RASTER_OVERFLOW, {0, 0, 2, 1, 0}, {"##"},
       "open contours: 505 and the rows that closed"},
  };
  ASSERT_EQ(0, f.setPpem(16));
  for (Row& r : rows) {
    st->error = 0;
    FS_BITMAP* b = r.make();
    EXPECT_EQ(r.error, st->error) << r.why;
    if (r.box.empty()) {
      EXPECT_EQ(nullptr, b) << r.why;
      continue;
    }
    ASSERT_NE(nullptr, b) << r.why;
    EXPECT_EQ(r.box, (std::vector<int>{b->lo_x, b->hi_y, b->width, b->height, b->i_dx}))
        << r.why << ": lo_x, hi_y, width, height, i_dx";
    EXPECT_EQ(r.want, picture(b)) << r.why;
    if (r.also) {
      EXPECT_TRUE(r.also()) << r.why;
    }
    if (b->cache_ptr == nullptr) FSS_free(st, b);
  }
}

TEST(BitmapScan, RequestsOfType1AreServedAndCached) {
  const char* dejavu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  std::string file = testsupport::readBytes(dejavu);
  ASSERT_FALSE(file.empty()) << "cannot read " << dejavu;
  // The same font whose gasp table asks for neither grid fitting nor gray
  // at any size.
  sfnt::Font noGridfit = sfnt::read(sfnt::Bytes(file.begin(), file.end()));
  noGridfit.set("gasp", {0, 0, 0, 1, 0xFF, 0xFF, 0, 0});
  struct {
    std::vector<uint8_t> bytes;
    FS_USHORT type;
    FS_ULONG flags;
    bool setsNoHints;
    const char* why;
  } rows[] = {
      {{}, FS_MAP_BITMAP, FLAGS_NO_HINTS, false, "type 1"},
      {sfnt::build(noGridfit), FS_MAP_BITMAP | FS_MAP_GRAYMAP2, 0, true,
       "type 3 at a size without grid fitting or gray: a bitmap, unhinted"},
  };
  for (auto& r : rows) {
    testsupport::TypesetFont f;
    ASSERT_EQ(0, f.open(dejavu, r.bytes)) << r.why;
    ASSERT_EQ(0, f.setPpem(24)) << r.why;
    ASSERT_EQ(0, FSS_set_cmap(&f.st, 3, 1)) << r.why;
    f.st.flags = r.flags;
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, 'A', r.type);
    ASSERT_NE(nullptr, g) << r.why << ": error " << f.st.error;
    EXPECT_EQ(r.setsNoHints, (r.flags ^ f.st.flags) == FLAGS_NO_HINTS) << r.why;
    // 'A' of DejaVu Sans at 24 ppem: 16 by 17 pixels from (0, 16), its
    // advance 1401 / 2048 em, 16.4 pixels.
    EXPECT_EQ((std::vector<int>{1, 1, 0, 16, 16, 17, 16}),
              (std::vector<int>{g->bitsPerPixel, g->type, g->lo_x, g->hi_y, g->width, g->height,
                                g->i_dx}))
        << r.why;
    EXPECT_NE(nullptr, g->cache_ptr) << r.why;
    FS_GLYPHMAP* again = FSS_get_glyphmap(&f.st, 'A', r.type);
    EXPECT_EQ(g, again) << r.why << ": a repeat comes from the cache";
    FS_BOUNDINGBOX* box = FSS_get_boundingbox(&f.st, 'A', r.type);
    ASSERT_NE(nullptr, box) << r.why;
    EXPECT_EQ((std::vector<int>{g->lo_x, g->hi_y, g->width, g->height}),
              (std::vector<int>{box->lo_x, box->hi_y, box->width, box->height}))
        << r.why;
    FS_SHORT idx, idy;
    FS_FIXED dx, dy;
    EXPECT_EQ(0, FSS_get_advance(&f.st, 'A', r.type, &idx, &idy, &dx, &dy)) << r.why;
    EXPECT_EQ(g->i_dx, idx) << r.why;
    for (void* p : {(void*)g, (void*)again, (void*)box}) FSS_free_char(&f.st, p);
  }
}

// Bytes of simple glyphs of two real fonts (contour ends, instruction
// lengths, flags, coordinates) set to random values, one at a time, each
// glyph asked for as a bitmap at 12 and 72 ppem, with and without flag 1.
// Every answer is a map (0 or 505) or null with 0 (too large) or the
// fetch's own error of the font data; the transition lists are made once
// and kept through the sweep, and, with the caches emptied and the idle
// lists reclaimed, the heap is back at its start. Under a sanitizer this is
// the proof that no read strays.
TEST(BitmapScan, MutatedGlyphsGiveAMapOrAnErrorAndLeaveTheHeapAsItWas) {
  std::mt19937 rng(31);
  for (const char* path : {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                           "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"}) {
    std::string file = testsupport::readBytes(path);
    ASSERT_FALSE(file.empty()) << "cannot read " << path;
    testsupport::TypesetFont f;
    ASSERT_EQ(0, f.open(path, std::vector<uint8_t>(file.begin(), file.end())));
    std::vector<uint8_t>& bytes = f.data;  // the engine reads the glyphs here
    sfnt::Bytes b(file.begin(), file.end());
    size_t glyf = sfnt::getU32(b, sfnt::entryOf(b, "glyf") + 8);
    size_t loca = sfnt::getU32(b, sfnt::entryOf(b, "loca") + 8);
    size_t head = sfnt::getU32(b, sfnt::entryOf(b, "head") + 8);
    size_t maxp = sfnt::getU32(b, sfnt::entryOf(b, "maxp") + 8);
    bool longLoca = sfnt::getU16(b, head + 50) == 1;
    unsigned n = sfnt::getU16(b, maxp + 4);
    auto at = [&](unsigned gi) -> size_t {
      return longLoca ? sfnt::getU32(b, loca + 4 * gi) : 2 * sfnt::getU16(b, loca + 2 * gi);
    };
    FS_STATE* st = &f.st;
    SFNT* sfnts[2];
    for (int k = 0; k < 2; k++) {
      ASSERT_EQ(0, f.setPpem(k ? 72 : 12));
      sfnts[k] = st->cur_sfnt;
    }
    auto emptyCaches = [&] {
      for (SFNT* s : sfnts) delete_fs_cache(st, s);
    };
    FS_ULONG start = FS_get_heap_used(st);
    TLIST* lists[2] = {nullptr, nullptr};
    long maps = 0;
    for (int m = 0; m < 1000; m++) {
      unsigned gi = rng() % n;
      size_t g0 = glyf + at(gi), g1 = glyf + at(gi + 1);
      if (g1 <= g0 + 12 || (int16_t)sfnt::getU16(b, g0) <= 0) {
        m--;  // only simple glyphs with contours
        continue;
      }
      size_t pos = g0 + 10 + rng() % (g1 - g0 - 10);
      uint8_t old = bytes[pos];
      bytes[pos] = (uint8_t)rng();
      for (int k = 0; k < 4; k++) {
        ASSERT_EQ(0, f.setPpem(k & 1 ? 72 : 12));
        st->flags = FLAGS_NO_HINTS | FLAGS_CMAP_OFF | (k & 2 ? FLAGS_RESERVED_BIT0 : 0);
        FS_BITMAP* map = FSS_get_bitmap(st, gi);
        FS_ULONG err = st->error;
        std::string why = std::string(path) + " glyph " + std::to_string(gi) + " byte " +
                          std::to_string(pos - g0) + " request " + std::to_string(k);
        if (map != nullptr) {
          maps++;
          EXPECT_TRUE(err == 0 || err == ERR_RASTER_OVERFLOW) << why << ": " << err;
        } else {
          EXPECT_TRUE(err == 0 || (err >= 400 && err < 500)) << why << ": " << err;
        }
        FSS_free_char(st, map);
        // Made at the first glyph, then kept: never freed during the sweep.
        for (int l = 0; l < 2; l++) {
          TLIST* now = l ? st->server->drop : st->server->tlist;
          if (lists[l] == nullptr) lists[l] = now;
          if (now != nullptr) {
            EXPECT_EQ(lists[l], now) << why;
          }
        }
      }
      bytes[pos] = old;
      emptyCaches();
    }
    EXPECT_GT(maps, 2000) << path;
    ASSERT_TRUE(lists[0] && lists[1]) << path;
    EXPECT_EQ(0, lists[0]->ref_count + lists[1]->ref_count) << path << ": idle lists";
    EXPECT_EQ(2, kill_tlists(st)) << path << ": idle lists are reclaimed";
    EXPECT_EQ(start, FS_get_heap_used(st)) << path;
    // A budget so tight that glyphs need the reclaim ladder: it may take
    // cached glyphs and idle lists, never the lists of the glyph at work.
    st->server->heap_size = st->server->allocated + 24000;
    for (unsigned gi = 1; gi < 200; gi += 3) {
      st->flags = FLAGS_NO_HINTS | FLAGS_CMAP_OFF | FLAGS_RESERVED_BIT0;
      FS_BITMAP* map = FSS_get_bitmap(st, gi);
      EXPECT_TRUE(map != nullptr || st->error == ERR_MALLOC_FAIL) << path << " " << gi;
      FSS_free_char(st, map);
    }
  }
}
