// The glyph request calls on a real font: the scale and style setters and
// their refusals, type resolution, boxes, advances, phases, strings and the
// error paths that leave the client usable.
#include "Orvex_internal/fs_request.h"

#include <gtest/gtest.h>

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
  void ready() {  // font, 24 ppem, Unicode cmap, unhinted
    ASSERT_EQ(0, open());
    ASSERT_EQ(0, scale(kPx24));
    ASSERT_EQ(0, FSS_set_cmap(&st, 3, 1));
    st.flags |= FLAGS_NO_HINTS;
  }
  // {error, whole pixels, 16.16} of an 8-bit graymap's advance; no vertical.
  V advance(FS_ULONG id) {
    FS_SHORT idx = 5, idy = 5;
    FS_FIXED dx = 5, dy = 5;
    FS_LONG err = FSS_get_advance(&st, id, 8, &idx, &idy, &dx, &dy);
    EXPECT_EQ(0, idy + dy);
    return V{err, idx, dx};
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
  ASSERT_EQ(0, FS_set_bold_pct(&c.st, 0x1000));  // a bold weight: another font
  ASSERT_EQ(0, c.scale(kPx24));
  EXPECT_NE(first, c.st.cur_sfnt);
}

TEST(GlyphRequest, StyleSettersTakeTheirRangesInclusive) {
  Client c;
  FS_STATE* st = &c.st;
  // Set in order: a refusal leaves the value as it was.
  EXPECT_EQ((V{0, ERR_PCT_RANGE, 65536}),
            (V{FS_set_bold_pct(st, 65536), FS_set_bold_pct(st, 65537), st->bold_pct}))
      << "bold 0 .. 1.0";
  EXPECT_EQ((V{0, ERR_PCT_RANGE}), (V{FS_set_stroke_pct(st, 32768), FS_set_stroke_pct(st, 32769)}))
      << "stroke to 0.5";
  EXPECT_EQ((V{ERR_OUTLINE_WIDTH_RANGE, 0, 0, ERR_OUTLINE_WIDTH_RANGE}),
            (V{FS_set_outline_width(st, 0), FS_set_outline_width(st, 1),
               FS_set_outline_width(st, 10), FS_set_outline_width(st, 11)}))
      << "outline width 1 .. 10";
  EXPECT_EQ((V{0, 0, ERR_OUTLINE_OPACITY_RANGE}),
            (V{FS_set_outline_opacity(st, 0), FS_set_outline_opacity(st, 10 << 16),
               FS_set_outline_opacity(st, (10 << 16) + 1)}))
      << "outline opacity 0 .. 10.0";
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
      {2 | 32, 3, 2, RASTER_GRAYMAP, false},  // no colour table: 32 dropped
      {1, 3, 1, RASTER_BITMAP, false},
      {3, 3, 2, RASTER_GRAYMAP, false},      // gridfit and gray: gray
      {3, 2, 2, RASTER_GRAYMAP, true},       // no gridfit bit: unhinted
      {3, 0, 1, RASTER_BITMAP, true},        // neither: bitmap
      {0x600, 3, 0x400, RASTER_ADF, false},  // 1024 before 512
      {0x200 | 8, 4, 0x200, RASTER_ADF, false},
      {0x200 | 8, 3, 8, RASTER_GRAYMAP, false},
      {0x88, 3, 0x80, RASTER_DISTANCE_FIELD, false},
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

TEST(GlyphRequest, ErrorPathsGiveTheirCodesAndLeaveTheClientUsable) {
  Client c;
  auto refused = [&](FS_USHORT type, FS_LONG err, const char* why) {
    EXPECT_EQ(nullptr, FSS_get_glyphmap(&c.st, 'A', type)) << why;
    EXPECT_EQ((FS_ULONG)err, c.st.error) << why;
  };
  refused(8, ERR_NO_CURRENT_FONT, "no font");
  ASSERT_EQ(0, c.open());
  ASSERT_EQ(0, FSS_set_cmap(&c.st, 3, 1));
  refused(8, ERR_NO_CURRENT_SFNT, "no scale");
  ASSERT_EQ(0, c.scale(kPx24));
  c.st.flags |= FLAGS_NO_HINTS;
  EXPECT_EQ(ERR_CMAP_NOT_FOUND, FSS_set_cmap(&c.st, 7, 7));
  refused(8, ERR_CMAP_NOT_FOUND, "an unknown cmap until a known one is set");
  ASSERT_EQ(0, FSS_set_cmap(&c.st, 3, 1));
  refused(0, ERR_BAD_TYPE, "type 0");
  refused(FS_MAP_BITMAP, ERR_BAD_TYPE, "rasterisers this build lacks");
  // U+10FFFD (private use, plane 16) is not in the font: glyph 0's record.
  EXPECT_EQ(0, FSS_map_char(&c.st, 0x10FFFD));
  FS_GLYPHMAP* missing = FSS_get_glyphmap(&c.st, 0x10FFFD, 8);
  c.st.flags |= FLAGS_CMAP_OFF;  // ids are glyph indices
  EXPECT_EQ(missing, FSS_get_glyphmap(&c.st, 0, 8));
  ASSERT_NE(nullptr, missing);
  EXPECT_GT(missing->width * missing->height, 0);
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

TEST(GlyphRequest, AdvancesPhasesAndTheLayoutScale) {
  Client c;
  c.ready();
  // 'A' is 1401 units of 2048: at 24 ppem 1050.75 in 26.6, kept as 1051/64.
  EXPECT_EQ((V{0, 16, 1051 << 10}), c.advance('A'));
  // Phases are the quarter pixels of the low half: posx 0xC000 is phase 3,
  // posy 0x14000 phase 1 (whole pixels dropped).
  FS_GRAYMAP* direct = get_graymap(&c.st, 'o', FSS_map_char(&c.st, 'o'), 8, 3, 1);
  ASSERT_NE(nullptr, direct);
  EXPECT_EQ(direct, FSS_get_phased(&c.st, 'o', 8, 0xC000, 0x14000));
  EXPECT_NE(direct, FSS_get_glyphmap(&c.st, 'o', 8));
  // Design units and the layout scale.
  EXPECT_EQ(2048, FSS_get_design_units(&c.st));
  FS_USHORT du, xppm, yppm;
  FS_FIXED s[4];
  FS_ULONG first, end;
  ASSERT_EQ(0, FSS_get_gpos_scale(&c.st, 'A', &du, &s[0], &s[1], &s[2], &s[3], &xppm, &yppm, &first,
                                  &end));
  EXPECT_EQ((V{2048, kPx24, 24, 24, 0}), (V{du, s[0], xppm, yppm, first}));
  Client none;
  EXPECT_EQ(0, FSS_get_design_units(&none.st));
  EXPECT_EQ((FS_ULONG)ERR_NO_CURRENT_FONT, none.st.error);
}

TEST(GlyphRequest, StringsNeedAUnicodeCmapAndGivePrivateCopies) {
  Client c;
  c.ready();
  FS_GLYPHMAP** maps = nullptr;
  const FS_ULONG text[] = {'a', 'b', 'a'};
  EXPECT_EQ(ERR_BAD_ARGUMENT, FS_get_string(&c.st, 3, text, 8, nullptr));
  EXPECT_EQ(ERR_BAD_TYPE, FS_get_string(&c.st, 3, text, 0x80, &maps));
  ASSERT_EQ(0, FS_get_string(&c.st, 3, text, 8, &maps));
  ASSERT_TRUE(maps[0] && maps[1] && maps[2]);
  EXPECT_EQ(nullptr, maps[0]->cache_ptr);  // not the cache's records
  EXPECT_NE(maps[0], maps[2]);
  for (int i = 0; i < 3; i++) FSS_free_char(&c.st, maps[i]);
  FSS_free(&c.st, maps);
  ASSERT_EQ(0, FSS_set_cmap(&c.st, 1, 0));
  EXPECT_EQ(ERR_UNICODE_CMAP_NEEDED, FS_get_string(&c.st, 3, text, 8, &maps));
  EXPECT_EQ(nullptr, maps);
}

}  // namespace
