// The bitmap scan converter on glyphs worked out by hand (1024 units per em
// at 16 ppem: 64 units a pixel) and on mutated glyphs of real fonts.
#include "Orvex_internal/fs_bitmap.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_tlist.h"
#include "support/glyf_font.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

namespace {

// Closed polygons of on-curve points; x0 y0 x1 y1 a box.
glyffont::Bytes poly(const std::vector<glyffont::Pt>& p) { return glyffont::simple({(int)p.size() - 1}, p); }
glyffont::Bytes box(int x0, int y0, int x1, int y1) { return poly({{x0, y0, 1}, {x0, y1, 1}, {x1, y1, 1}, {x1, y0, 1}}); }

// No grid fitting at any size (`gasp`). Glyphs in pixels: 0 blank; 1 x, y 1..3; 2 x, y 0.5..2.5; 3 a
// line from y 0.625 to 1.375 and back; 4 a stem x 1.625..2.22 (its middle 1.92), y 0..3; 5 the same
// bar across; 6 x 0..3, y 0..2, a spike from x 1 up to (1.2, 2.7), back down at 1.4; 7 one em wide.
std::vector<uint8_t> handFont() {
  sfnt::Font f = glyffont::font(
      {{}, box(64, 64, 192, 192), box(32, 32, 160, 160), poly({{0, 40, 1}, {96, 88, 1}, {192, 40, 1}}),
       box(104, 0, 142, 192), box(0, 104, 192, 142),
       poly({{0, 0, 1}, {0, 128, 1}, {64, 128, 1}, {77, 173, 1}, {90, 128, 1}, {192, 128, 1}, {192, 0, 1}}),
       box(0, 0, 1024, 8)});
  sfnt::Bytes head = sfnt::head(1024, 0, 0, 1024, 192);
  sfnt::putU16(head, 50, 1);  // long loca offsets
  return sfnt::build(f.set("head", head).set("gasp", {0, 0, 0, 1, 0xFF, 0xFF, 0, 0}));
}

// Rows top down, '#' for ink, each row ended by a space.
std::string picture(const FS_BITMAP* b) {
  std::string p;
  for (int r = 0; r < b->height; r++, p += ' ')
    for (int c = 0; c < b->width; c++) p += b->bits[r * b->bpl + (c >> 3)] & (0x80 >> (c & 7)) ? '#' : '.';
  return p;
}

}  // namespace

TEST(BitmapScan, HandWorkedGlyphs) {
  testsupport::TypesetFont f;
  ASSERT_EQ(0, f.open("", handFont()));
  FS_STATE* st = &f.st;
  // How: 'u' make_bitmap (untrimmed), 'd' with flag 1, 'o' an open contour by construct_bitmap; type 1
  // requests 'r', 'm' mirrored, 'w' at 16383 ppem; 'g' type 3. Box: lo_x, hi_y, width, height, i_dx.
  struct { char how; FS_ULONG glyph; std::vector<int> box; const char *want, *why; } rows[] = {
      {'u', 1, {1, 3, 3, 3, 8}, "... ##. ##. ", "on boundaries: exact, spare row and column"},
      {'u', 2, {0, 3, 4, 4, 8}, ".... .... .##. .##. ", "centres on a run's left end or a line's top: out"},
      {'u', 3, {0, 2, 4, 3, 8}, ".... .... .... ", "lines between centres leave nothing"},
      {'u', 4, {1, 3, 3, 4, 8}, "... ... ... ... ", "0.6 px stem: gone without flag 1"},
      {'d', 4, {1, 3, 3, 4, 8}, "... ... #.. #.. ", "with it at its middle's column; the top pair turns back"},
      {'u', 5, {0, 3, 4, 3, 8}, ".... .... .... ", "0.6 px bar: gone without flag 1"},
      {'d', 5, {0, 3, 4, 3, 8}, ".... .... ##.. ", "y_dropouts at its middle's row; the last pair turns back"},
      {'d', 6, {0, 3, 4, 4, 8}, ".... .... ###. ###. ", "a spike back within a row: no pair, no dropout"},
      {'o', 0, {0, 0, 2, 1, 0}, "## ", "open contour: 505, the rows that closed"},
      {'r', 0, {0, 0, 0, 0, 8}, "", "a blank glyph keeps its advance"},
      {'r', 3, {0, 2, 0, 0, 8}, "", "no ink: height 0, the advance kept"},
      {'r', 2, {1, 1, 2, 2, 8}, "## ## ", "trimmed"},
      {'m', 2, {-1, 1, 2, 2, -8}, "## ## ", "mirrored: ink x -2..-1, lo_x paid back 1"},
      {'w', 7, {}, "", "16383 pixels and the spare column: 16384, no map, no error"},
      {'g', 2, {1, 1, 2, 2, 8}, "## ## ", "no grid fitting: a bitmap, unhinted from then on"},
  };
  for (auto& r : rows) {
    st->flags = (r.how == 'g' ? 0 : FLAGS_NO_HINTS) | FLAGS_CMAP_OFF | (r.how == 'd' ? FLAGS_RESERVED_BIT0 : 0);
    FS_FIXED ppem = (r.how == 'w' ? 16383 : 16) * 65536;
    ASSERT_EQ(0, f.setScale(r.how == 'm' ? -ppem : ppem, 0, 0, ppem));
    FS_BITMAP* b;
    FS_ULONG err;
    if (r.how == 'o') {  // a closed rectangle x 0..2, y 0..1 and an open line x 4, y 1..2
      FS_OUTLINE* o = setup_outline(st, 2, 7, 7);
      const int pts[7][3] = {{0, 0, 0}, {1, 0, 1}, {1, 2, 1}, {1, 2, 0}, {1, 0, 0}, {0, 4, 1}, {1, 4, 2}};
      for (int k = 0; k < 7; k++)
        o->type[k] = (FS_BYTE)pts[k][0], o->x[k] = pts[k][1] << 16, o->y[k] = pts[k][2] << 16;
      set_bbox(o->np, o);
      b = construct_bitmap(st, nullptr, 1, o), err = st->error;
    } else if (r.how == 'u' || r.how == 'd') {
      FS_OUTLINE* o = FSS_get_outline(st, r.glyph);
      b = make_bitmap(st, o), err = st->error;  // null for a null outline
      FSS_free_char(st, o);
      TLIST* tl = st->server->tlist;  // a line between centres doesn't touch the turn state
      EXPECT_TRUE(r.glyph != 3 || tl->next_index + tl->hph_flag == 0) << r.why;
    } else {  // the map cached, and as the box request gives it
      FS_USHORT type = r.how == 'g' ? FS_MAP_BITMAP | FS_MAP_GRAYMAP2 : FS_MAP_BITMAP;
      b = FSS_get_glyphmap(st, r.glyph, type), err = st->error;
      FS_BOUNDINGBOX* box = FSS_get_boundingbox(st, r.glyph, type);
      FS_GLYPHMAP* again = FSS_get_glyphmap(st, r.glyph, type);
      EXPECT_TRUE((st->flags & FLAGS_NO_HINTS) &&
                  (!b || (b->cache_ptr && b == again && !memcmp(&b->lo_x, &box->lo_x, 20)))) << r.why;
      FSS_free_char(st, box), FSS_free_char(st, again);
    }
    EXPECT_EQ(r.how == 'o' ? ERR_RASTER_OVERFLOW : 0, err) << r.why;
    ASSERT_EQ(r.box.empty(), b == nullptr) << r.why;
    if (b == nullptr) continue;
    EXPECT_EQ(r.box, (std::vector<int>{b->lo_x, b->hi_y, b->width, b->height, b->i_dx})) << r.why;
    EXPECT_EQ(r.want, picture(b)) << r.why;
    FSS_free_char(st, b);
  }
}

// Simple glyphs' bytes set at random one at a time, asked for at 12 and 72 ppem with and without flag 1:
// a map with 0 or 505, or null with 0 or the fetch's own error; the lists made once and kept, the heap
// back at its start. Then glyphs on a budget tight enough to run the reclaim ladder.
TEST(BitmapScan, MutatedGlyphsGiveAMapOrAnErrorAndLeaveTheHeapAsItWas) {
  std::mt19937 rng(31);
  for (const char* path : {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
                           "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"}) {
    sfnt::Bytes b = sfnt::asBytes(testsupport::readBytes(path));
    testsupport::TypesetFont f;
    ASSERT_FALSE(f.open(path, b) || f.setPpem(12) || f.setPpem(72)) << path;  // both scaled fonts made
    FS_STATE* st = &f.st;
    auto table = [&](const char* tag) { return sfnt::getU32(b, sfnt::entryOf(b, tag) + 8); };
    size_t glyf = table("glyf"), loca = table("loca"), longLoca = sfnt::getU16(b, table("head") + 50);
    auto at = [&](size_t gi) { return glyf + (longLoca ? sfnt::getU32(b, loca + 4 * gi) : 2 * sfnt::getU16(b, loca + 2 * gi)); };
    FS_ULONG start = FS_get_heap_used(st);
    TLIST* lists[2] = {nullptr, nullptr};
    for (int m = 0; m < 1000; m++) {
      size_t gi, g0, g1;
      do gi = rng() % sfnt::getU16(b, table("maxp") + 4), g0 = at(gi), g1 = at(gi + 1);
      while (g1 <= g0 + 12 || (int16_t)sfnt::getU16(b, g0) <= 0);  // simple glyphs only
      size_t pos = g0 + 10 + rng() % (g1 - g0 - 10);
      f.data[pos] = (uint8_t)rng();  // the engine reads the glyphs in place
      for (int k = 0; k < 4; k++) {
        ASSERT_EQ(0, f.setPpem(k & 1 ? 72 : 12));
        st->flags = FLAGS_NO_HINTS | FLAGS_CMAP_OFF | (k & 2 ? FLAGS_RESERVED_BIT0 : 0);
        FS_BITMAP* map = FSS_get_bitmap(st, gi);
        FS_ULONG e = st->error;
        EXPECT_TRUE(map ? e == 0 || e == ERR_RASTER_OVERFLOW : e == 0 || e / 100 == 4) << gi << " " << e;
        FSS_free_char(st, map);
        delete_fs_cache(st, st->cur_sfnt);
        if (!lists[0] || !lists[1]) lists[0] = st->server->tlist, lists[1] = st->server->drop;
        EXPECT_TRUE(st->server->tlist == lists[0] && st->server->drop == lists[1]) << "lists are kept";
      }
      f.data[pos] = b[pos];
    }
    ASSERT_TRUE(lists[0] && lists[1] && lists[0]->ref_count + lists[1]->ref_count == 0);
    EXPECT_EQ(2, kill_tlists(st)) << path << ": idle lists are reclaimed";
    EXPECT_EQ(start, FS_get_heap_used(st)) << path;
    st->server->heap_size = st->server->allocated + 24000;
    st->flags = FLAGS_NO_HINTS | FLAGS_CMAP_OFF | FLAGS_RESERVED_BIT0;
    for (unsigned gi = 1; gi < 200; gi += 3) {
      FS_BITMAP* map = FSS_get_bitmap(st, gi);
      EXPECT_TRUE(map != nullptr || st->error == ERR_MALLOC_FAIL) << path << " " << gi;
      FSS_free_char(st, map);
    }
  }
}
