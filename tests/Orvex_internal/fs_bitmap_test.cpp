// The bitmap scan converter on glyphs worked out by hand (1024 units per em
// at 16 ppem: 64 units a pixel), the request calls of type 1, and mutated
// glyphs of real fonts.
#include "Orvex_internal/fs_bitmap.h"

#include <gtest/gtest.h>

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

typedef std::vector<std::string> Picture;

std::vector<uint8_t> handFont() {
  auto box = [](int x0, int y0, int x1, int y1) {
    return glyffont::simple({3}, {{x0, y0, true}, {x0, y1, true}, {x1, y1, true}, {x1, y0, true}});
  };
  sfnt::Font f = glyffont::font({
      {},                     // 0 blank
      box(64, 64, 192, 192),  // 1 pixels 1 to 3 on both axes
      box(32, 32, 160, 160),  // 2 0.5 to 2.5: edges through centres
      glyffont::simple({2}, {{0, 40, true}, {96, 88, true}, {192, 40, true}}),  // 3 y 0.625..1.375
      box(104, 0, 142, 192),  // 4 stem x 1.625..2.22, its middle 1.92
      box(0, 104, 192, 142),  // 5 the same bar across
      // 6 x 0..3, y 0..2, a spike from x 1 to (1.2, 2.7) and back down at 1.4
      glyffont::simple({6}, {{0, 0, true}, {0, 128, true}, {64, 128, true}, {77, 173, true},
                             {90, 128, true}, {192, 128, true}, {192, 0, true}}),
      box(0, 0, 1024, 8)});  // 7 one em wide
  sfnt::Bytes head = sfnt::head(1024, 0, 0, 1024, 192);
  sfnt::putU16(head, 50, 1);  // long loca offsets
  return sfnt::build(f.set("head", head));
}

Picture picture(const FS_BITMAP* b) {
  Picture p(b->height, std::string(b->width, '.'));
  for (int r = 0; r < b->height; r++)
    for (int c = 0; c < b->width; c++)
      if (b->bits[r * b->bpl + (c >> 3)] & (0x80 >> (c & 7))) p[r][c] = '#';
  return p;
}

}  // namespace

TEST(BitmapScan, HandWorkedGlyphs) {
  testsupport::TypesetFont f;
  ASSERT_EQ(0, f.open("", handFont()));
  FS_STATE* st = &f.st;
  // How: 'u' untrimmed, 'd' untrimmed with flag 1, 'r' requested (trimmed,
  // cached), 'm' requested mirrored (s00 -16), 'w' requested at 16383 ppem,
  // 'o' a hand-made outline with an open contour through construct_bitmap.
  struct {
    char how;
    FS_ULONG glyph, error;
    std::vector<int> box;  // lo_x, hi_y, width, height, i_dx; empty: null
    Picture want;
    const char* why;
  } rows[] = {
      {'u', 1, 0, {1, 3, 3, 3, 8}, {"...", "##.", "##."}, "on boundaries: exact, spare row and column"},
      {'u', 2, 0, {0, 3, 4, 4, 8}, {"....", "....", ".##.", ".##."},
       "a centre on a run's left end is out, right end in; on a line's lower end in, upper out"},
      {'u', 3, 0, {0, 2, 4, 3, 8}, {"....", "....", "...."}, "lines between centres leave nothing"},
      {'u', 4, 0, {1, 3, 3, 4, 8}, {"...", "...", "...", "..."}, "0.6 px stem: gone without flag 1"},
      {'d', 4, 0, {1, 3, 3, 4, 8}, {"...", "...", "#..", "#.."},
       "with it a pixel a row at its middle's column; the top row's pair goes to the turn-back "
       "test, both edges rounding to column 2"},
      {'u', 5, 0, {0, 3, 4, 3, 8}, {"....", "....", "...."}, "0.6 px bar: gone without flag 1"},
      {'d', 5, 0, {0, 3, 4, 3, 8}, {"....", "....", "##.."},
       "y_dropouts: a pixel a column at its middle's row; the last column's pair turns back"},
      {'d', 6, 0, {0, 3, 4, 4, 8}, {"....", "....", "###.", "###."},
       "a spike turning back within a row leaves no pair there, hence no dropout pixel"},
      {'r', 0, 0, {0, 0, 0, 0, 8}, {}, "a blank glyph keeps its advance"},
      {'r', 3, 0, {0, 2, 0, 0, 8}, {}, "no ink: height 0, the advance kept"},
      {'r', 2, 0, {1, 1, 2, 2, 8}, {"##", "##"}, "trimmed"},
      {'m', 2, 0, {-1, 1, 2, 2, -8}, {"##", "##"}, "mirrored: ink x -2..-1, lo_x paid back 1"},
      {'w', 7, 0, {}, {}, "16383 pixels and the spare column: 16384, no map, no error"},
      {'o', 0, ERR_RASTER_OVERFLOW, {0, 0, 2, 1, 0}, {"##"}, "open contour: 505, rows that closed"},
  };
  for (auto& r : rows) {
    st->flags = FLAGS_NO_HINTS | FLAGS_CMAP_OFF | (r.how == 'd' ? FLAGS_RESERVED_BIT0 : 0);
    FS_FIXED ppem = (r.how == 'w' ? 16383 : 16) * 65536;
    ASSERT_EQ(0, f.setScale(r.how == 'm' ? -ppem : ppem, 0, 0, ppem));
    FS_BITMAP* b;
    if (r.how == 'o') {
      // A closed rectangle x 0..2, y 0..1 and an open line x 4, y 1..2.
      FS_OUTLINE* o = setup_outline(st, 2, 7, 7);
      const int pts[7][3] = {{0, 0, 0}, {1, 0, 1}, {1, 2, 1}, {1, 2, 0}, {1, 0, 0}, {0, 4, 1}, {1, 4, 2}};
      for (int k = 0; k < 7; k++)
        o->type[k] = (FS_BYTE)pts[k][0], o->x[k] = pts[k][1] << 16, o->y[k] = pts[k][2] << 16;
      set_bbox(o->np, o);
      b = construct_bitmap(st, nullptr, 1, o);
    } else if (r.how == 'u' || r.how == 'd') {
      FS_OUTLINE* o = FSS_get_outline(st, r.glyph);
      ASSERT_NE(nullptr, o) << r.why;
      b = make_bitmap(st, o);
      FS_ULONG err = st->error;
      FSS_free_char(st, o);
      st->error = err;
      if (r.glyph == 3) {  // not even the turn state was touched
        EXPECT_EQ(0, st->server->tlist->next_index + st->server->tlist->hph_flag) << r.why;
      }
    } else {
      b = FSS_get_bitmap(st, r.glyph);
      EXPECT_TRUE(b == nullptr || b->cache_ptr != nullptr) << r.why;
    }
    EXPECT_EQ(r.error, st->error) << r.why;
    if (r.box.empty()) {
      EXPECT_EQ(nullptr, b) << r.why;
      continue;
    }
    ASSERT_NE(nullptr, b) << r.why;
    EXPECT_EQ(r.box, (std::vector<int>{b->lo_x, b->hi_y, b->width, b->height, b->i_dx})) << r.why;
    EXPECT_EQ(r.want, picture(b)) << r.why;
    FSS_free_char(st, b);
  }
}

TEST(BitmapScan, RequestsOfType1AreServedAndCached) {
  const char* dejavu = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  std::string file = testsupport::readBytes(dejavu);
  ASSERT_FALSE(file.empty()) << "cannot read " << dejavu;
  // The same font with a gasp table of neither grid fitting nor gray.
  sfnt::Font noGridfit = sfnt::read(sfnt::Bytes(file.begin(), file.end()));
  noGridfit.set("gasp", {0, 0, 0, 1, 0xFF, 0xFF, 0, 0});
  for (bool gasp : {false, true}) {
    testsupport::TypesetFont f;
    ASSERT_EQ(0, f.open(dejavu, gasp ? sfnt::build(noGridfit) : std::vector<uint8_t>()));
    ASSERT_EQ(0, f.setPpem(24));
    ASSERT_EQ(0, FSS_set_cmap(&f.st, 3, 1));
    // Type 3 at that size: a bitmap, unhinted from then on (gasp row).
    FS_USHORT type = gasp ? FS_MAP_BITMAP | FS_MAP_GRAYMAP2 : FS_MAP_BITMAP;
    f.st.flags = gasp ? 0 : FLAGS_NO_HINTS;
    FS_GLYPHMAP* g = FSS_get_glyphmap(&f.st, 'A', type);
    ASSERT_NE(nullptr, g) << gasp << ": error " << f.st.error;
    EXPECT_EQ(FLAGS_NO_HINTS, f.st.flags) << gasp;
    // 'A' at 24 ppem: 16 by 17 pixels from (0, 16), advance 1401/2048 em.
    EXPECT_EQ((std::vector<int>{1, 1, 0, 16, 16, 17, 16}),
              (std::vector<int>{g->bitsPerPixel, g->type, g->lo_x, g->hi_y, g->width,
                                g->height, g->i_dx}));
    FS_GLYPHMAP* again = FSS_get_glyphmap(&f.st, 'A', type);
    EXPECT_TRUE(g == again && g->cache_ptr != nullptr) << "a repeat comes from the cache";
    FS_BOUNDINGBOX* box = FSS_get_boundingbox(&f.st, 'A', type);
    ASSERT_NE(nullptr, box);
    EXPECT_EQ(0, memcmp(&g->lo_x, &box->lo_x, 20)) << "box, advance and size as the map's";
    FS_SHORT idx, idy;
    FS_FIXED dx, dy;
    EXPECT_EQ(0, FSS_get_advance(&f.st, 'A', type, &idx, &idy, &dx, &dy));
    EXPECT_EQ(g->i_dx, idx);
    for (void* p : {(void*)g, (void*)again, (void*)box}) FSS_free_char(&f.st, p);
  }
}

// Bytes of simple glyphs (contour ends, instructions, flags, coordinates)
// set at random one at a time, each glyph asked for at 12 and 72 ppem with
// and without flag 1: a map (0 or 505), or null with 0 or the fetch's own
// error. The lists are made once and kept; with the caches emptied and the
// idle lists reclaimed the heap is back at its start. Then a budget so
// tight that glyphs need the reclaim ladder, which must spare the lists of
// the glyph at work (the sanitizer build proves it).
TEST(BitmapScan, MutatedGlyphsGiveAMapOrAnErrorAndLeaveTheHeapAsItWas) {
  std::mt19937 rng(31);
  for (const char* path : {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                           "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"}) {
    std::string file = testsupport::readBytes(path);
    sfnt::Bytes b(file.begin(), file.end());
    testsupport::TypesetFont f;
    ASSERT_EQ(0, f.open(path, b)) << path;
    FS_STATE* st = &f.st;
    auto table = [&](const char* tag) { return sfnt::getU32(b, sfnt::entryOf(b, tag) + 8); };
    size_t glyf = table("glyf"), loca = table("loca");
    bool longLoca = sfnt::getU16(b, table("head") + 50) == 1;
    auto at = [&](unsigned gi) {
      return glyf + (longLoca ? sfnt::getU32(b, loca + 4 * gi) : 2 * sfnt::getU16(b, loca + 2 * gi));
    };
    SFNT* sfnts[2];
    for (int k = 0; k < 2; k++) {
      ASSERT_EQ(0, f.setPpem(k ? 72 : 12));
      sfnts[k] = st->cur_sfnt;
    }
    FS_ULONG start = FS_get_heap_used(st);
    TLIST* lists[2] = {nullptr, nullptr};
    for (int m = 0; m < 1000;) {
      unsigned gi = rng() % sfnt::getU16(b, table("maxp") + 4);
      size_t g0 = at(gi), g1 = at(gi + 1);
      if (g1 <= g0 + 12 || (int16_t)sfnt::getU16(b, g0) <= 0) continue;  // simple glyphs only
      size_t pos = g0 + 10 + rng() % (g1 - g0 - 10);
      f.data[pos] = (uint8_t)rng();  // the engine reads the glyphs in place
      for (int k = 0; k < 4; k++) {
        ASSERT_EQ(0, f.setPpem(k & 1 ? 72 : 12));
        st->flags = FLAGS_NO_HINTS | FLAGS_CMAP_OFF | (k & 2 ? FLAGS_RESERVED_BIT0 : 0);
        FS_BITMAP* map = FSS_get_bitmap(st, gi);
        FS_ULONG err = st->error;
        EXPECT_TRUE(map ? err == 0 || err == ERR_RASTER_OVERFLOW : err == 0 || err / 100 == 4)
            << path << " glyph " << gi << " byte " << pos - g0 << ": " << err;
        FSS_free_char(st, map);
        for (int l = 0; l < 2; l++) {
          TLIST* now = l ? st->server->drop : st->server->tlist;
          if (lists[l] == nullptr) lists[l] = now;
          EXPECT_TRUE(now == nullptr || now == lists[l]) << "lists are kept";
        }
      }
      f.data[pos] = b[pos];
      for (SFNT* s : sfnts) delete_fs_cache(st, s);
      m++;
    }
    ASSERT_TRUE(lists[0] && lists[1] && lists[0]->ref_count + lists[1]->ref_count == 0);
    EXPECT_EQ(2, kill_tlists(st)) << path << ": idle lists are reclaimed";
    EXPECT_EQ(start, FS_get_heap_used(st)) << path;
    st->server->heap_size = st->server->allocated + 24000;
    for (unsigned gi = 1; gi < 200; gi += 3) {
      st->flags = FLAGS_NO_HINTS | FLAGS_CMAP_OFF | FLAGS_RESERVED_BIT0;
      FS_BITMAP* map = FSS_get_bitmap(st, gi);
      EXPECT_TRUE(map != nullptr || st->error == ERR_MALLOC_FAIL) << path << " " << gi;
      FSS_free_char(st, map);
    }
  }
}
