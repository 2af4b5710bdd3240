// Embedded strikes: when one serves, and damaged tables answered by maps or codes.
#include <gtest/gtest.h>
#include <math.h>

#include <random>
#include <set>

#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/ltt_builder.h"
#include "support/sbit_builder.h"
#include "support/typeset_font.h"

namespace {

using namespace testsupport;

#if defined(__SANITIZE_ADDRESS__)
const int kMutations = 60;  // of each font
#else
const int kMutations = 334;
#endif

// DejaVu Sans with a 1-bit strike (flags `flags`) at `ppem` of glyphs 10 and 12, 3 x 2
// at (1, 5), advance 4; `stroke`: glyphDataFormat 0x9654; location byte `at` set to `to`.
Bytes strikeFont(int ppem, int flags, bool stroke, size_t at = 0, uint8_t to = 0) {
  sfnt::Bytes eblc, ebdt;
  buildStrike({{10, 3, 2, 1, 5, 4, {1, 1, 1, 1, 0, 1}}, {12, 3, 2, 1, 5, 4, {1, 1, 1, 1, 0, 1}}}, ppem, 1,
              1, 1, &eblc, &ebdt);
  eblc[55] = (uint8_t)flags;
  if (at != 0) eblc[at] = to;
  sfnt::Font f = sfnt::read(fileBytes("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"));
  sfnt::Bytes head = *f.find("head");
  sfnt::putU16(head, 52, stroke ? 0x9654 : 0);
  return sfnt::build(f.set("head", head).set("EBLC", eblc).set("EBDT", ebdt));
}

TEST(EmbeddedStrikes, WhenAStrikeServesTheGlyph) {
  auto slant = [](double deg) { return (FS_FIXED)lround(tan(deg * M_PI / 180) * 20 * 65536); };
  const struct { const char* why; int ppem, flags; bool stroke; FS_FIXED s01; FS_ULONG flag;
                 FS_FIXED bold; FS_USHORT glyph; bool serves; size_t at; FS_ULONG error; } rows[] = {
      {"upright at the strike's size", 20, 1, false, 0, 0, 0, 10, true, 0, 0},
      {"a shear: no strike", 20, 1, false, slant(12), 0, 0, 10, false, 0, 0},
      {"in the strike's range but in no subtable", 20, 1, false, 0, 0, 0, 11, false, 0, 0},
      {"added weight below lpm 27", 26, 1, false, 0, FLAGS_ADD_WEIGHT, 0, 10, true, 0, 0},
      {"added weight at lpm 27", 27, 1, false, 0, FLAGS_ADD_WEIGHT, 0, 10, false, 0, 0},
      {"boldness set", 20, 1, false, 0, 0, 0x2000, 10, false, 0, 0},
      {"stroke font, 10.5 degrees: the italic strike", 20, 9, true, slant(10.5), 0, 0, 10, true, 0, 0},
      {"stroke font, 13.5 degrees: the italic strike", 20, 9, true, slant(13.5), 0, 0, 10, true, 0, 0},
      {"stroke font, 9.5 degrees: no bitmap", 20, 9, true, slant(9.5), 0, 0, 10, false, 0, 0},
      {"stroke font, 14.5 degrees: no bitmap", 20, 9, true, slant(14.5), 0, 0, 10, false, 0, 0},
      {"stroke font upright: not an italic strike", 20, 9, true, 0, 0, 0, 10, false, 0, 0},
      {"index format 6 in the first subtable", 20, 1, false, 0, 0, 0, 10, false, 56 + 16 + 1, ERR_SBIT_FORMAT},
  };
  for (const auto& r : rows) {
    TypesetFont c;
    ASSERT_EQ(c.open("", strikeFont(r.ppem, r.flags, r.stroke, r.at, 6)), 0) << r.why;
    c.st.flags |= FLAGS_CMAP_OFF | r.flag;
    FS_set_bold_pct(&c.st, r.bold);
    ASSERT_EQ(c.setScale(r.ppem << 16, r.s01, 0, r.ppem << 16), 0) << r.why;
    FS_GLYPHMAP* m = FSS_get_glyphmap(&c.st, r.glyph, FS_MAP_BITMAP);
    EXPECT_EQ(m && m->embedded && m->lo_x == 1 && m->hi_y == 5 && m->width == 3 && m->height == 2 &&
                  m->bits[0] == 0xE0 && m->bits[1] == 0xA0 && m->i_dx == 4, r.serves) << r.why;
    EXPECT_EQ(c.st.error, r.error) << r.why;
    FSS_free_char(&c.st, m);
  }
  TypesetFont none;
  EXPECT_EQ(none.open("", strikeFont(20, 1, false, 7, 0)), ERR_EBLC) << "numSizes 0 refuses the load";
}

// Random bytes of the bitmap tables changed, mostly the location table's head.
TEST(EmbeddedStrikes, DamagedBitmapTablesGiveMapsOrCodes) {
  const struct { const char* path; FS_ULONG index; FS_USHORT type; unsigned glyphs; } fonts[] = {
      {"/usr/share/fonts/opentype/terminus/terminus-normal.otb", 0, FS_MAP_BITMAP, 1326},
      {"/usr/share/fonts/truetype/wqy/wqy-zenhei.ttc", 2, FS_MAP_BITMAP, 30000},
      {"/usr/share/fonts/truetype/noto/NotoColorEmoji.ttf", 0, FS_MAP_GRAYMAP8 | FS_MAP_RASTER_ICON, 3930}};
  std::mt19937 rng(37);
  for (const auto& f : fonts) {
    Bytes font = fileBytes(f.path), keep = font;
    size_t dir = f.index ? sfnt::getU32(font, 12 + 4 * f.index) : 0, e[2];
    for (int t = 0; t < 2; t++)  // the location and data tables, colour or not
      e[t] = sfnt::entryOf(font, t ? "EBDT" : "EBLC", dir) | sfnt::entryOf(font, t ? "CBDT" : "CBLC", dir);
    ASSERT_TRUE(e[0] && e[1]) << f.path;
    for (int m = 0; m < kMutations; m++) {
      std::vector<size_t> changed;
      for (int k = 0; k < 6; k++) {
        size_t t = e[rng() % 4 == 0], len = sfnt::getU32(font, t + 12);
        changed.push_back(sfnt::getU32(font, t + 8) + rng() % std::min<size_t>(len, k < 3 ? 600 : len));
        font[changed.back()] = (uint8_t)rng();
      }
      TypesetFont c;  // the engine reads the font in place
      FILECHAR name[256];
      if (FSS_load_font_with_offset(&c.st, nullptr, font.data(), f.index, 0, (FS_ULONG)font.size(), sizeof name, name))
        EXPECT_EQ(c.st.error, (FS_ULONG)ERR_EBLC);
      else if (FSS_set_font(&c.st, name) == 0) {
        c.st.flags |= FLAGS_CMAP_OFF;
        for (int ppem : {12, 16, 109}) {
          FS_ULONG start = c.setPpem(ppem);
          for (int g = -1; g < 40; g++) {
            FS_GLYPHMAP* map = FSS_get_glyphmap(&c.st, g < 0 ? 1 : rng() % f.glyphs, f.type);
            EXPECT_TRUE(map || (std::set<FS_ULONG>{0, 407, 427, 428, 429, 464, 466}.count(c.st.error)))
                << c.st.error << " " << f.path << " at " << ppem;
            FSS_free_char(&c.st, map);
            delete_fs_cache(&c.st, c.st.cur_sfnt);
            kill_tlists(&c.st);  // the scan converter's kept work records
            if (g < 0) start = FS_get_heap_used(&c.st);  // the scaled font is made
          }
          EXPECT_EQ(FS_get_heap_used(&c.st), start) << f.path << " at " << ppem;
        }
      }
      for (size_t at : changed) font[at] = keep[at];
    }
  }
}

}  // namespace
