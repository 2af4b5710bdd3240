// Tests of the glyph request calls on real fonts: the scale setter and its
// refusals, style setter ranges, type resolution, graymaps through the
// cache and back by FSS_free_char, the advance ladder, boxes, phases,
// strings and the error paths that leave the client usable.
#include <gtest/gtest.h>

#include <string>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const FS_FIXED kPx24 = 24 << 16;

// A root client that can add DejaVu Sans and make it current.
class Client {
 public:
  Client() { FSS_init(&st, 64u << 20); }
  ~Client() {
    if (st.server != nullptr) FSS_exit(&st);
  }
  FS_LONG open() {
    FS_LONG err = FSS_load_font(&st, enginetest::kDejaVuSansFile, nullptr, 0, sizeof name, name);
    return err ? err : FSS_set_font(&st, name);
  }
  FS_LONG scale(FS_FIXED s) { return FSS_set_scale(&st, s, 0, 0, s); }
  // Font, 24 ppem, Unicode cmap, unhinted.
  void ready() {
    ASSERT_EQ(0, open()) << "cannot load " << enginetest::kDejaVuSansFile;
    ASSERT_EQ(0, scale(kPx24));
    ASSERT_EQ(0, FSS_set_cmap(&st, 3, 1));
    st.flags |= FLAGS_NO_HINTS;
  }
  FS_LONG advance(FS_ULONG id, FS_SHORT* idx, FS_FIXED* dx) {
    FS_SHORT idy;
    FS_FIXED dy;
    FS_LONG err = FSS_get_advance(&st, id, 8, idx, &idy, dx, &dy);
    EXPECT_EQ(0, idy);
    EXPECT_EQ(0, dy);
    return err;
  }
  FS_STATE st;
  FILECHAR name[256];
};

TEST(GlyphRequest, ScaleSetterRefusesWithoutFontAndForBadMatricesAndTheClientGoesOn) {
  Client c;
  EXPECT_EQ(ERR_NO_CURRENT_FONT, c.scale(kPx24));
  ASSERT_EQ(0, c.open()) << "cannot load " << enginetest::kDejaVuSansFile;
  EXPECT_EQ(ERR_SCALE_DEGENERATE, c.scale(0));
  EXPECT_EQ(ERR_SCALE_LIMIT, FSS_set_scale(&c.st, kPx24, 0x40000000, 0, kPx24));
  EXPECT_EQ(ERR_SCALE_LIMIT, c.st.error);
  // Nothing was attached by the refusals: glyphs still want a scale.
  EXPECT_EQ(nullptr, c.st.cur_typeset.tfntarray[0].sfnt);
  FS_FIXED s[4];
  EXPECT_EQ(ERR_NO_CURRENT_SFNT, FSS_get_scale(&c.st, &s[0], &s[1], &s[2], &s[3]));
  EXPECT_EQ(0, c.scale(kPx24));
  EXPECT_EQ(0, FSS_get_scale(&c.st, &s[0], &s[1], &s[2], &s[3]));
  EXPECT_EQ(kPx24, s[0]);
  EXPECT_EQ(0, s[1]);
  EXPECT_EQ(kPx24, s[3]);
  EXPECT_EQ(24, c.st.lpm);
}

TEST(GlyphRequest, TheSameScaleFindsTheSameScaledFontAndCountsItOnce) {
  Client c;
  ASSERT_EQ(0, c.open()) << "cannot load " << enginetest::kDejaVuSansFile;
  ASSERT_EQ(0, c.scale(kPx24));
  SFNT* first = c.st.cur_sfnt;
  EXPECT_EQ(nullptr, first->senv);  // no scaling work until a glyph
  EXPECT_EQ(1, first->rtgah_suitable);
  ASSERT_EQ(0, c.scale(kPx24));
  EXPECT_EQ(first, c.st.cur_sfnt);
  EXPECT_EQ(1u, first->ref_count);
  ASSERT_EQ(0, c.scale(12 << 16));  // another size: a new record at the head
  SFNT* second = c.st.cur_sfnt;
  EXPECT_NE(first, second);
  EXPECT_EQ(second, c.st.server->scaled_fonts);
  EXPECT_EQ(0u, first->ref_count);
  ASSERT_EQ(0, c.scale(kPx24));  // back to 24: found again, moved to the head
  EXPECT_EQ(first, c.st.server->scaled_fonts);
  EXPECT_EQ(1u, first->ref_count);
  EXPECT_EQ(0u, second->ref_count);
  ASSERT_EQ(0, FS_set_bold_pct(&c.st, 0x1000));  // a bold weight: another font
  ASSERT_EQ(0, c.scale(kPx24));
  EXPECT_NE(first, c.st.cur_sfnt);
  EXPECT_EQ(0x1000, c.st.cur_sfnt->bold_pct);
}

TEST(GlyphRequest, StyleSettersTakeTheirRangesInclusive) {
  Client c;
  FS_STATE* st = &c.st;
  struct {
    FS_LONG got, want;
    const char* why;
  } rows[] = {
      {FS_set_bold_pct(st, 65536), 0, "bold up to 1.0"},
      {FS_set_bold_pct(st, 65537), ERR_PCT_RANGE, "bold past 1.0"},
      {FS_set_bold_pct(st, -1), ERR_PCT_RANGE, "negative bold"},
      {st->bold_pct, 65536, "refusals leave the value"},
      {FS_set_stroke_pct(st, 32768), 0, "stroke up to 0.5"},
      {FS_set_stroke_pct(st, 32769), ERR_PCT_RANGE, "stroke past 0.5"},
      {FS_set_outline_width(st, 0), ERR_OUTLINE_WIDTH_RANGE, "outline width from 1"},
      {FS_set_outline_width(st, 1), 0, "outline width 1"},
      {FS_set_outline_width(st, 10), 0, "outline width to 10"},
      {FS_set_outline_width(st, 11), ERR_OUTLINE_WIDTH_RANGE, "outline width past 10"},
      {FS_set_outline_opacity(st, 0), 0, "opacity from 0"},
      {FS_set_outline_opacity(st, 10 << 16), 0, "opacity to 10.0"},
      {FS_set_outline_opacity(st, (10 << 16) + 1), ERR_OUTLINE_OPACITY_RANGE, "opacity past 10.0"},
  };
  for (auto& r : rows) EXPECT_EQ(r.want, r.got) << r.why;
}

TEST(GlyphRequest, TypesReduceToOneRasteriserByTheSizesBehaviour) {
  Client c;
  c.ready();
  ASSERT_EQ(0, check_sfnt(&c.st));
  SENV* senv = c.st.cur_sfnt->senv;
  struct {
    FS_USHORT type;
    FS_BYTE rbv;
    FS_USHORT wantType, wantRaster;
    bool setsNoHints;
  } cases[] = {
      {8, 3, 8, RASTER_GRAYMAP, false},
      {4 | 8, 3, 4, RASTER_GRAYMAP, false},   // 4 before 8
      {2 | 32, 3, 2, RASTER_GRAYMAP, false},  // no colour table: 32 dropped
      {1, 3, 1, RASTER_BITMAP, false},
      {3, 3, 2, RASTER_GRAYMAP, false},       // gridfit and gray: gray
      {3, 2, 2, RASTER_GRAYMAP, true},        // no gridfit bit: unhinted
      {3, 0, 1, RASTER_BITMAP, true},         // neither: bitmap
      {0x600, 3, 0x400, RASTER_ADF, false},   // 1024 before 512
      {0x200 | 8, 4, 0x200, RASTER_ADF, false},
      {0x200 | 8, 3, 8, RASTER_GRAYMAP, false},
      {0x88, 3, 0x80, RASTER_DISTANCE_FIELD, false},
      {0, 3, 0, RASTER_NONE, false},
      {0x40, 3, 0, RASTER_NONE, false},
  };
  for (const auto& k : cases) {
    c.st.flags = 0;
    senv->render_behavior = k.rbv;
    FS_USHORT type = k.type, r = 99;
    resolve_glyphmap_type(&c.st, &type, &r);
    EXPECT_EQ(k.wantType, type) << "type " << k.type;
    EXPECT_EQ(k.wantRaster, r) << "type " << k.type;
    EXPECT_EQ(k.setsNoHints, (c.st.flags & FLAGS_NO_HINTS) != 0) << "type " << k.type;
  }
}

TEST(GlyphRequest, ErrorPathsGiveTheirCodesAndLeaveTheClientUsable) {
  Client c;
  auto refused = [&](FS_USHORT type, FS_LONG err, const char* why) {
    EXPECT_EQ(nullptr, FSS_get_glyphmap(&c.st, 'A', type)) << why;
    EXPECT_EQ((FS_ULONG)err, c.st.error) << why;
  };
  refused(8, ERR_NO_CURRENT_FONT, "no font");
  ASSERT_EQ(0, c.open()) << "cannot load " << enginetest::kDejaVuSansFile;
  ASSERT_EQ(0, FSS_set_cmap(&c.st, 3, 1));
  refused(8, ERR_NO_CURRENT_SFNT, "no scale");
  FS_SHORT idx = 5;
  FS_FIXED dx;
  EXPECT_EQ(ERR_NO_CURRENT_SFNT, c.advance('A', &idx, &dx));
  EXPECT_EQ(0, idx);
  ASSERT_EQ(0, c.scale(kPx24));
  c.st.flags |= FLAGS_NO_HINTS;
  EXPECT_EQ(ERR_CMAP_NOT_FOUND, FSS_set_cmap(&c.st, 7, 7));
  refused(8, ERR_CMAP_NOT_FOUND, "an unknown cmap until a known one is set");
  ASSERT_EQ(0, FSS_set_cmap(&c.st, 3, 1));
  refused(0, ERR_BAD_TYPE, "type 0");
  refused(FS_MAP_BITMAP, ERR_BAD_TYPE, "rasterisers this build lacks: 519");
  refused(FS_MAP_DISTANCEFIELD, ERR_BAD_TYPE, "distance fields");
  refused(FS_MAP_EDGE_GRAYMAP8, ERR_BAD_TYPE, "edge graymaps");
  EXPECT_EQ(nullptr, FSS_get_bitmap(&c.st, 'A'));
  EXPECT_EQ((FS_ULONG)ERR_BAD_TYPE, c.st.error);
  FS_GLYPHMAP* a = FSS_get_glyphmap(&c.st, 'A', 8);  // and still a graymap
  ASSERT_NE(nullptr, a);
  EXPECT_EQ(0u, c.st.error);
  EXPECT_EQ(8, a->bitsPerPixel);
  FSS_free_char(&c.st, a);
}

TEST(GlyphRequest, ACodeTheFontLacksGivesTheMissingGlyphShape) {
  Client c;
  c.ready();
  // U+10FFFD (private use, plane 16) is not in DejaVu Sans.
  EXPECT_EQ(0, FSS_map_char(&c.st, 0x10FFFD));
  FS_GLYPHMAP* missing = FSS_get_glyphmap(&c.st, 0x10FFFD, 8);
  ASSERT_NE(nullptr, missing);
  EXPECT_EQ(0u, c.st.error);
  c.st.flags |= FLAGS_CMAP_OFF;  // ids are glyph indices
  FS_GLYPHMAP* notdef = FSS_get_glyphmap(&c.st, 0, 8);
  c.st.flags &= ~FLAGS_CMAP_OFF;
  EXPECT_EQ(notdef, missing);  // one cached record: glyph 0
  EXPECT_GT(missing->width, 0);
  EXPECT_GT(missing->height, 0);
  FSS_free_char(&c.st, missing);
  FSS_free_char(&c.st, notdef);
}

TEST(GlyphRequest, ASecondRequestComesFromTheCacheAndEverythingGoesBack) {
  Client c;
  c.ready();
  FS_GLYPHMAP* one = FSS_get_glyphmap(&c.st, 'A', 4);
  ASSERT_NE(nullptr, one);
  ASSERT_NE(nullptr, one->cache_ptr);
  SFNT* sfnt = c.st.cur_sfnt;
  FS_ULONG cached = sfnt->cache_count;
  CACHE_ENTRY* entry = one->cache_ptr;
  EXPECT_EQ(4, one->bitsPerPixel);
  // A second request and the 4-bit getter share the record; nothing new.
  EXPECT_EQ(one, FSS_get_glyphmap(&c.st, 'A', 4));
  EXPECT_EQ(one, FSS_get_graymap(&c.st, 'A'));
  EXPECT_EQ(cached, sfnt->cache_count);
  EXPECT_EQ(3u, entry->ref_counter);
  EXPECT_EQ(1u, sfnt->active_count);
  for (int i = 0; i < 3; i++) EXPECT_EQ(0, FSS_free_char(&c.st, one));
  EXPECT_EQ(0u, entry->ref_counter);
  EXPECT_EQ(0u, sfnt->active_count);
  // Outlines and boxes too; then the font goes.
  FS_OUTLINE* o = FSS_get_outline(&c.st, 'A');
  ASSERT_NE(nullptr, o);
  EXPECT_GT(o->np, 0);
  FSS_free_char(&c.st, o);
  FSS_free_char(&c.st, FSS_get_boundingbox(&c.st, 'A', 8));
  EXPECT_EQ(0u, sfnt->active_count);
  EXPECT_EQ(0, FSS_delete_font(&c.st, c.name));
  // What stays is the server's scan-conversion work records, kept for the
  // next request: a second round leaves the heap as the first left it.
  EXPECT_NE(nullptr, c.st.server->workspace);
  EXPECT_NE(nullptr, c.st.server->raster);
  FS_ULONG warm = c.st.server->allocated;
  c.ready();
  FS_GLYPHMAP* again = FSS_get_glyphmap(&c.st, 'A', 4);
  ASSERT_NE(nullptr, again);
  FS_SHORT idx;
  FS_FIXED dx;
  ASSERT_EQ(0, c.advance('A', &idx, &dx));
  FSS_free_char(&c.st, again);
  EXPECT_EQ(0, FSS_delete_font(&c.st, c.name));
  EXPECT_EQ(warm, c.st.server->allocated);
}

TEST(GlyphRequest, TheBoxHasTheMapsPlaceWithoutPixelsAndIsCached) {
  Client c;
  c.ready();
  FS_GLYPHMAP* map = FSS_get_glyphmap(&c.st, 'H', 8);
  FS_BOUNDINGBOX* box = FSS_get_boundingbox(&c.st, 'H', 8);
  ASSERT_NE(nullptr, map);
  ASSERT_NE(nullptr, box);
  EXPECT_EQ(48, box->size);
  EXPECT_EQ(map->lo_x, box->lo_x);
  EXPECT_EQ(map->hi_y, box->hi_y);
  EXPECT_EQ(map->width, box->width);
  EXPECT_EQ(map->height, box->height);
  EXPECT_EQ(map->i_dx, box->i_dx);
  EXPECT_NE(nullptr, box->cache_ptr);
  EXPECT_EQ(box, FSS_get_boundingbox(&c.st, 'H', 8));
  FSS_free_char(&c.st, box);
  FSS_free_char(&c.st, box);
  FSS_free_char(&c.st, map);
}

TEST(GlyphRequest, PhasesAreTheQuarterPixelsOfTheLowHalf) {
  Client c;
  c.ready();
  FS_USHORT index = FSS_map_char(&c.st, 'o');
  ASSERT_EQ(0, check_sfnt(&c.st));
  // posx 0xC000 is phase 3, posy 0x14000 phase 1 (whole pixels dropped).
  FS_GRAYMAP* direct = get_graymap(&c.st, 'o', index, 8, 3, 1);
  ASSERT_NE(nullptr, direct);
  EXPECT_EQ(direct, FSS_get_phased(&c.st, 'o', 8, 0xC000, 0x14000));
  FS_GLYPHMAP* plain = FSS_get_glyphmap(&c.st, 'o', 8);
  EXPECT_NE(direct, plain);
  FSS_free_char(&c.st, direct);
  FSS_free_char(&c.st, direct);
  FSS_free_char(&c.st, plain);
}

TEST(GlyphRequest, AdvancesThroughTheOutlineAreCachedAndRounded) {
  Client c;
  c.ready();
  // DejaVu Sans says hints may move advances (head.flags bit 16), so the
  // outline answers. 'A' is 1401 units of 2048: at 24 ppem 16.418 pixels,
  // 1050.75 in 26.6, kept as 1051/64, 16 whole pixels. Space: 651 units,
  // 7.629 pixels, 488.25 -> 488/64, 8 whole pixels.
  FS_SHORT idx;
  FS_FIXED dx;
  ASSERT_EQ(0, c.advance('A', &idx, &dx));
  EXPECT_EQ(1051 << 10, dx);
  EXPECT_EQ(16, idx);
  FS_ULONG cached = c.st.cur_sfnt->cache_count;
  ASSERT_EQ(0, c.advance('A', &idx, &dx));  // from the cache
  EXPECT_EQ(cached, c.st.cur_sfnt->cache_count);
  EXPECT_EQ(16, idx);
  ASSERT_EQ(0, c.advance(' ', &idx, &dx));
  EXPECT_EQ(488 << 10, dx);
  EXPECT_EQ(8, idx);
  EXPECT_EQ(0u, c.st.cur_sfnt->active_count);
}

TEST(GlyphRequest, StringsNeedAUnicodeCmapAndGivePrivateCopies) {
  Client c;
  c.ready();
  FS_GLYPHMAP** maps = nullptr;
  const FS_ULONG text[] = {'a', 'b', 'a'};
  EXPECT_EQ(ERR_BAD_ARGUMENT, FS_get_string(&c.st, 3, text, 8, nullptr));
  EXPECT_EQ(0, FS_get_string(&c.st, 0, text, 8, &maps));
  EXPECT_EQ(nullptr, maps);
  EXPECT_EQ(ERR_BAD_TYPE, FS_get_string(&c.st, 3, text, 0x80, &maps));
  ASSERT_EQ(0, FS_get_string(&c.st, 3, text, 8, &maps));
  ASSERT_NE(nullptr, maps);
  for (int i = 0; i < 3; i++) {
    ASSERT_NE(nullptr, maps[i]);
    EXPECT_EQ(nullptr, maps[i]->cache_ptr);
  }
  EXPECT_NE(maps[0], maps[2]);
  EXPECT_EQ(maps[0]->width, maps[2]->width);
  EXPECT_EQ(0u, c.st.cur_sfnt->active_count);
  for (int i = 0; i < 3; i++) FSS_free_char(&c.st, maps[i]);
  FSS_free(&c.st, maps);
  ASSERT_EQ(0, FSS_set_cmap(&c.st, 1, 0));
  EXPECT_EQ(ERR_UNICODE_CMAP_NEEDED, FS_get_string(&c.st, 3, text, 8, &maps));
  EXPECT_EQ(nullptr, maps);
}

TEST(GlyphRequest, DesignUnitsAndLayoutScale) {
  Client c;
  EXPECT_EQ(0, FSS_get_design_units(&c.st));
  EXPECT_EQ((FS_ULONG)ERR_NO_CURRENT_FONT, c.st.error);
  c.ready();
  EXPECT_EQ(2048, FSS_get_design_units(&c.st));
  FS_USHORT du, xppm, yppm;
  FS_FIXED s[4];
  FS_ULONG first, end;
  ASSERT_EQ(0, FSS_get_gpos_scale(&c.st, 'A', &du, &s[0], &s[1], &s[2], &s[3], &xppm, &yppm,
                                  &first, &end));
  EXPECT_EQ(2048, du);
  EXPECT_EQ(kPx24, s[0]);
  EXPECT_EQ(24, xppm);
  EXPECT_EQ(24, yppm);
  EXPECT_EQ(0u, first);
  EXPECT_GT(end, 5000u);  // DejaVu Sans has some 6000 glyphs
}

}  // namespace
