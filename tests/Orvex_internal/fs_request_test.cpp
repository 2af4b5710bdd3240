// The glyph request calls on a real font: setters, each call's refusals,
// type resolution, boxes, advances, phases and strings.
#include "Orvex_internal/fs_request.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_scale.h"

namespace {

const FS_FIXED kPx24 = 24 << 16;
typedef std::vector<long> V;

// A root client that adds DejaVu Sans and makes it current.
struct Client {
  Client() { FSS_init(&st, 64u << 20); }
  ~Client() { FSS_exit(&st); }
  FS_LONG open() {
    FS_LONG err = FSS_load_font(&st, enginetest::kDejaVuSansFile, nullptr, 0, sizeof name, name);
    EXPECT_EQ(0, err) << "cannot load " << enginetest::kDejaVuSansFile;
    return err ? err : FSS_set_font(&st, name);
  }
  FS_LONG scale(FS_FIXED s) { return FSS_set_scale(&st, s, 0, 0, s); }
  // The error a refused 'A' leaves, or 0 with the map given back.
  FS_LONG get(FS_USHORT type) {
    FS_GLYPHMAP* g = FSS_get_glyphmap(&st, 'A', type);
    FSS_free_char(&st, g);
    return g ? 0 : (FS_LONG)st.error;
  }
  void ready() {  // font, 24 ppem, Unicode cmap, unhinted
    ASSERT_EQ(0, open());
    ASSERT_EQ(0, scale(kPx24));
    ASSERT_EQ(0, FSS_set_cmap(&st, 3, 1));
    st.flags |= FLAGS_NO_HINTS;
  }
  FS_STATE st;
  FILECHAR name[256];
};

TEST(GlyphRequest, ScaleSetterRefusesBadScalesAndFindsTheSameScaledFontAgain) {
  Client c;
  EXPECT_EQ(ERR_NO_CURRENT_FONT, c.scale(kPx24));
  ASSERT_EQ(0, c.open());
  EXPECT_EQ(ERR_SCALE_DEGENERATE, c.scale(0));
  EXPECT_EQ(ERR_SCALE_LIMIT, FSS_set_scale(&c.st, kPx24, 0x40000000, 0, kPx24));
  FS_FIXED s[4];  // nothing was attached by the refusals
  EXPECT_EQ(ERR_NO_CURRENT_SFNT, FSS_get_scale(&c.st, &s[0], &s[1], &s[2], &s[3]));
  ASSERT_EQ(0, c.scale(kPx24));
  EXPECT_EQ(0, FSS_get_scale(&c.st, &s[0], &s[1], &s[2], &s[3]));
  EXPECT_EQ((V{kPx24, 0, 0, kPx24, 24}), (V{s[0], s[1], s[2], s[3], c.st.lpm}));
  // Another size is a new record; back to 24, the first again.
  SFNT* first = c.st.cur_sfnt;
  ASSERT_EQ(0, c.scale(12 << 16));
  EXPECT_NE(first, c.st.cur_sfnt);
  ASSERT_EQ(0, c.scale(kPx24));
  EXPECT_EQ(first, c.st.cur_sfnt);
}

TEST(GlyphRequest, SettersAndRequestsRefuseWithTheirCodes) {
  Client c;
  FS_STATE* st = &c.st;
  const FS_ULONG text[] = {'a'};
  FS_GLYPHMAP** maps = nullptr;
  // In order, each on the client the rows before it left; ranges inclusive.
  struct {
    std::function<FS_LONG()> call;
    FS_LONG err;
    const char* why;
  } rows[] = {
      {[&] { return FS_set_bold_pct(st, 65536); }, 0, "bold up to 1.0"},
      {[&] { return FS_set_bold_pct(st, 65537); }, ERR_PCT_RANGE, "bold past 1.0"},
      {[&] { return FS_set_outline_width(st, 0); }, ERR_OUTLINE_WIDTH_RANGE, "width 1 .. 10"},
      {[&] { return FS_set_outline_width(st, 10); }, 0, "width 10"},
      {[&] { return FS_set_outline_opacity(st, (10 << 16) + 1); }, ERR_OUTLINE_OPACITY_RANGE,
       "opacity past 10.0"},
      {[&] { return c.get(8); }, ERR_NO_CURRENT_FONT, "no font"},
      {[&] { return c.open() + FSS_set_cmap(st, 3, 1); }, 0, "a font"},
      {[&] { return c.get(8); }, ERR_NO_CURRENT_SFNT, "no scale"},
      {[&] { return c.scale(kPx24) + FSS_set_cmap(st, 7, 7); }, ERR_CMAP_NOT_FOUND, "cmap 7 7"},
      {[&] { return c.get(8); }, ERR_CMAP_NOT_FOUND, "an unknown cmap until a known one"},
      {[&] { return FSS_set_cmap(st, 3, 1); }, 0, "Unicode"},
      {[&] { return c.get(0); }, ERR_BAD_TYPE, "type 0"},
      {[&] { return c.get(0x40); }, ERR_BAD_TYPE, "a type of no class"},
      {[&] { return FS_get_string(st, 1, text, 8, nullptr); }, ERR_BAD_ARGUMENT, "no result"},
      {[&] { return FS_get_string(st, 1, text, 0x80, &maps); }, ERR_BAD_TYPE, "strings: type"},
      {[&] { return FSS_set_cmap(st, 1, 0) + FS_get_string(st, 1, text, 8, &maps); },
       ERR_UNICODE_CMAP_NEEDED, "strings want Unicode"},
  };
  for (auto& r : rows) EXPECT_EQ(r.err, r.call()) << r.why;
  EXPECT_EQ(nullptr, maps);
}

TEST(GlyphRequest, TypesReduceToOneRasteriserByTheSizesBehaviour) {
  Client c;
  c.ready();
  ASSERT_EQ(0, check_sfnt(&c.st));
  struct {
    FS_USHORT type;
    FS_BYTE rbv;
    FS_USHORT wantType, wantRaster;
    bool setsNoHints;
  } cases[] = {
      {4 | 8, 3, 4, RASTER_GRAYMAP, false},   // 4 before 8
      {3, 2, 2, RASTER_GRAYMAP, true},        // gray without gridfit: unhinted
      {3, 0, 1, RASTER_BITMAP, true},         // neither: bitmap
      {0x200 | 8, 3, 8, RASTER_GRAYMAP, false},  // no outline fields here
      {0x40, 3, 0, RASTER_NONE, false},
  };
  for (const auto& k : cases) {
    c.st.flags = 0;
    c.st.cur_sfnt->senv->render_behavior = k.rbv;
    FS_USHORT type = k.type, r = 99;
    resolve_glyphmap_type(&c.st, &type, &r);
    EXPECT_EQ((V{k.wantType, k.wantRaster, k.setsNoHints}),
              (V{type, r, (c.st.flags & FLAGS_NO_HINTS) != 0}))
        << "type " << k.type << ", behaviour " << (int)k.rbv;
  }
}

TEST(GlyphRequest, AMissingCharacterGivesGlyph0AndStringsGivePrivateCopies) {
  Client c;
  c.ready();
  // U+10FFFD (private use, plane 16) is not in the font: glyph 0's record.
  FS_GLYPHMAP* missing = FSS_get_glyphmap(&c.st, 0x10FFFD, 8);
  c.st.flags |= FLAGS_CMAP_OFF;  // ids are glyph indices
  EXPECT_EQ(missing, FSS_get_glyphmap(&c.st, 0, 8));
  c.st.flags &= ~FLAGS_CMAP_OFF;
  FS_GLYPHMAP** maps = nullptr;
  const FS_ULONG text[] = {'a', 'a'};
  ASSERT_EQ(0, FS_get_string(&c.st, 2, text, 8, &maps));
  EXPECT_TRUE(maps[0]->cache_ptr == nullptr && maps[0] != maps[1]);  // not the cache's
  for (int i = 0; i < 2; i++) FSS_free_char(&c.st, maps[i]);
  FSS_free(&c.st, maps);
  // Held records go back before the client ends: a held glyph would stop
  // its font's deletion there.
  FSS_free_char(&c.st, missing);
  FSS_free_char(&c.st, missing);
}

TEST(GlyphRequest, BoxesMatchTheirMapAndADeletedFontLeavesTheHeapWarm) {
  Client c;
  c.ready();
  // The box has the map's place and advance, without pixels.
  FS_GLYPHMAP* map = FSS_get_glyphmap(&c.st, 'H', 8);
  FS_BOUNDINGBOX* box = FSS_get_boundingbox(&c.st, 'H', 8);
  ASSERT_NE(nullptr, box);
  EXPECT_EQ((V{48, map->lo_x, map->hi_y, map->width, map->height, map->i_dx}),
            (V{box->size, box->lo_x, box->hi_y, box->width, box->height, box->i_dx}));
  FSS_free_char(&c.st, box);
  FSS_free_char(&c.st, map);
  FSS_free_char(&c.st, FSS_get_outline(&c.st, 'A'));
  // The font goes; the server keeps its scan-conversion work records for
  // the next request, so a second round leaves the heap as the first did.
  EXPECT_EQ(0, FSS_delete_font(&c.st, c.name));
  FS_ULONG warm = c.st.server->allocated;
  c.ready();
  FSS_free_char(&c.st, FSS_get_glyphmap(&c.st, 'A', 4));
  EXPECT_EQ(0, FSS_delete_font(&c.st, c.name));
  EXPECT_EQ(warm, c.st.server->allocated);
}

// Under the leak checker: a client that ends while it still holds a glyph,
// which keeps its font from being deleted, leaves nothing allocated.
TEST(GlyphRequest, EndingWhileHoldingAGlyphLeavesNothingBehind) {
  Client c;
  c.ready();
  EXPECT_NE(nullptr, FSS_get_glyphmap(&c.st, 'A', 8));
}

TEST(GlyphRequest, AdvancesAndPhases) {
  Client c;
  c.ready();
  // 'A' is 1401 units of 2048: at 24 ppem 1050.75 in 26.6, kept as 1051/64.
  FS_SHORT idx, idy;
  FS_FIXED dx, dy;
  ASSERT_EQ(0, FSS_get_advance(&c.st, 'A', 8, &idx, &idy, &dx, &dy));
  EXPECT_EQ((V{16, 1051 << 10, 0, 0}), (V{idx, dx, idy, dy}));
  // Phases are the quarter pixels of the low half: posx 0xC000 is phase 3,
  // posy 0x14000 phase 1 (whole pixels dropped).
  FS_GRAYMAP* direct = get_graymap(&c.st, 'o', FSS_map_char(&c.st, 'o'), 8, 3, 1);
  ASSERT_NE(nullptr, direct);
  EXPECT_EQ(direct, FSS_get_phased(&c.st, 'o', 8, 0xC000, 0x14000));
  FS_GLYPHMAP* unphased = FSS_get_glyphmap(&c.st, 'o', 8);
  EXPECT_NE((void*)direct, (void*)unphased);
  for (void* p : {(void*)direct, (void*)direct, (void*)unphased}) FSS_free_char(&c.st, p);
}

}  // namespace
