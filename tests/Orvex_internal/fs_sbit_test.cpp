// Embedded strikes: when a strike may serve (scale, weight, stroke-font
// slant, subtable coverage), refusals of bad index data, and damaged bitmap
// tables answered by error codes with the heap left as it was.
#include <gtest/gtest.h>

#include <math.h>

#include <random>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/ltt_builder.h"
#include "support/sbit_builder.h"
#include "support/strike_client.h"

namespace {

using testsupport::SbitGlyph;
using testsupport::StrikeClient;

const char kDejaVu[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// DejaVu Sans with one 1-bit strike (flags `flags`) at `ppem` of glyphs 10
// and 12, each a 3x2 block; `edit` changes the location table.
std::vector<uint8_t> strikeFont(int ppem, int flags = 1, bool stroke = false,
                                void (*edit)(sfnt::Bytes&) = nullptr) {
  std::vector<SbitGlyph> g = {{10, 3, 2, 1, 5, 4, {1, 1, 1, 1, 0, 1}},
                              {12, 3, 2, 1, 5, 4, {1, 1, 1, 1, 0, 1}}};
  sfnt::Bytes eblc, ebdt;
  testsupport::buildStrike(g, ppem, 1, 1, 1, &eblc, &ebdt);
  eblc[8 + 47] = (uint8_t)flags;
  if (edit) edit(eblc);
  sfnt::Font f = sfnt::read(testsupport::fileBytes(kDejaVu));
  sfnt::Bytes head = *f.find("head");
  if (stroke) sfnt::putU16(head, 52, 0x9654);  // glyphDataFormat
  f.set("head", head).set("EBLC", eblc).set("EBDT", ebdt);
  return sfnt::build(f);
}

TEST(EmbeddedStrikes, WhenAStrikeServesTheGlyph) {
  auto tan16 = [](double deg) { return (FS_FIXED)lround(tan(deg * M_PI / 180) * 20 * 65536); };
  const struct {
    const char* why;
    int ppem, flags;
    bool stroke;
    FS_FIXED s01;
    FS_ULONG setFlag;
    FS_FIXED bold;
    FS_USHORT glyph;
    bool embedded;
  } rows[] = {
      {"upright at the strike's size", 20, 1, false, 0, 0, 0, 10, true},
      {"a shear: no strike", 20, 1, false, tan16(12), 0, 0, 10, false},
      {"in the strike's range but in no subtable", 20, 1, false, 0, 0, 0, 11, false},
      {"added weight below lpm 27", 26, 1, false, 0, FLAGS_ADD_WEIGHT, 0, 10, true},
      {"added weight at lpm 27", 27, 1, false, 0, FLAGS_ADD_WEIGHT, 0, 10, false},
      {"boldness set", 20, 1, false, 0, 0, 0x2000, 10, false},
      {"stroke font, 10.5 degrees: the italic strike", 20, 9, true, tan16(10.5), 0, 0, 10, true},
      {"stroke font, 13.5 degrees: the italic strike", 20, 9, true, tan16(13.5), 0, 0, 10, true},
      {"stroke font, 9.5 degrees: no bitmap", 20, 9, true, tan16(9.5), 0, 0, 10, false},
      {"stroke font, 14.5 degrees: no bitmap", 20, 9, true, tan16(14.5), 0, 0, 10, false},
      {"stroke font, upright: not the italic strike", 20, 9, true, 0, 0, 0, 10, false},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.why);
    StrikeClient c;
    ASSERT_EQ(c.load("", 0, strikeFont(r.ppem, r.flags, r.stroke)), 0);
    c.glyphIndexMode();
    if (r.setFlag) FS_set_flags(&c.st, r.setFlag);
    if (r.bold) FS_set_bold_pct(&c.st, r.bold);
    ASSERT_EQ(c.setScale(r.ppem << 16, r.s01, 0, r.ppem << 16), 0);
    FS_GLYPHMAP* m = FSS_get_glyphmap(&c.st, r.glyph, FS_MAP_BITMAP);
    EXPECT_EQ(m != nullptr && m->embedded, r.embedded);
    if (m != nullptr && r.embedded)  // 3x2 at (1, 5), advance 4
      EXPECT_TRUE(m->lo_x == 1 && m->hi_y == 5 && m->width == 3 && m->height == 2 &&
                  m->bits[0] == 0xE0 && m->bits[1] == 0xA0 && m->i_dx == 4);
    FSS_free_char(&c.st, m);
  }
}

TEST(EmbeddedStrikes, BadIndexDataIsRefused) {
  StrikeClient c;
  // Index format 6 in the first subtable's header (56 + 16 entries).
  ASSERT_EQ(c.load("", 0, strikeFont(20, 1, false, [](sfnt::Bytes& e) { e[56 + 16 + 1] = 6; })), 0);
  c.glyphIndexMode();
  c.setPpem(20);
  EXPECT_EQ(FSS_get_glyphmap(&c.st, 10, FS_MAP_BITMAP), nullptr);
  EXPECT_EQ(c.st.error, (FS_ULONG)ERR_SBIT_FORMAT);
  StrikeClient none;
  EXPECT_EQ(none.load("", 0, strikeFont(20, 1, false, [](sfnt::Bytes& e) { e[7] = 0; })),
            ERR_EBLC) << "numSizes 0 refuses the load";
}

#if defined(__SANITIZE_ADDRESS__)
const int kMutations = 200;
#else
const int kMutations = 334;
#endif

// Random bytes of the bitmap tables changed; every strike glyph asked at
// each strike's size must give a map or a refusal code.
TEST(EmbeddedStrikes, DamagedBitmapTablesGiveMapsOrCodes) {
  const struct { const char* path; FS_ULONG index; FS_USHORT type; unsigned glyphs; } fonts[] = {
      {"/usr/share/fonts/opentype/terminus/terminus-normal.otb", 0, FS_MAP_BITMAP, 1326},
      {"/usr/share/fonts/truetype/wqy/wqy-zenhei.ttc", 2, FS_MAP_BITMAP, 30000},
      {"/usr/share/fonts/truetype/noto/NotoColorEmoji.ttf", 0,
       FS_MAP_GRAYMAP8 | FS_MAP_RASTER_ICON, 3930}};
  std::mt19937 rng(37);
  for (const auto& f : fonts) {
    std::vector<uint8_t> font = testsupport::fileBytes(f.path);
    ASSERT_FALSE(font.empty()) << f.path;
    size_t dir = f.index ? sfnt::getU32(font, 12 + 4 * f.index) : 0;
    std::vector<std::pair<size_t, size_t>> spans;  // the bitmap tables
    for (const char* tag : {"EBLC", "EBDT", "CBLC", "CBDT"})
      if (size_t e = sfnt::entryOf(font, tag, dir))
        spans.push_back({sfnt::getU32(font, e + 8), sfnt::getU32(font, e + 12)});
    ASSERT_EQ(spans.size(), 2u);
    for (int m = 0; m < kMutations; m++) {
      std::vector<std::pair<size_t, uint8_t>> changed;
      for (int k = 0; k < 6; k++) {
        auto s = spans[rng() % 4 == 0];  // mostly the location table, its head most
        size_t at = s.first + rng() % std::min<size_t>(s.second, k < 3 ? 600 : s.second);
        changed.push_back({at, font[at]});
        font[at] = (uint8_t)rng();
      }
      StrikeClient c;  // reads the font in place
      FILECHAR name[256];
      if (FSS_load_font_with_offset(&c.st, nullptr, font.data(), f.index, 0,
                                    (FS_ULONG)font.size(), sizeof name, name) != 0) {
        EXPECT_EQ(c.st.error, (FS_ULONG)ERR_EBLC);
      } else {
        FSS_set_font(&c.st, name);
        c.glyphIndexMode();
        for (int ppem : {12, 16, 109}) {
          c.setPpem(ppem);
          FS_ULONG start = 0;
          for (int g = -1; g < 40; g++) {
            FS_GLYPHMAP* map = FSS_get_glyphmap(&c.st, g < 0 ? 1 : rng() % f.glyphs, f.type);
            FS_ULONG e = c.st.error;
            EXPECT_TRUE(map != nullptr || e == 0 || e == 407 || e == 427 || e == 428 ||
                        e == 429 || e == 464 || e == 466) << e << f.path << ppem;
            FSS_free_char(&c.st, map);
            delete_fs_cache(&c.st, c.st.cur_sfnt);
            kill_tlists(&c.st);  // the scan converter's kept work records
            if (g < 0) start = FS_get_heap_used(&c.st);  // the scaled font is made
          }
          EXPECT_EQ(FS_get_heap_used(&c.st), start) << f.path << ppem;
        }
      }
      for (auto it = changed.rbegin(); it != changed.rend(); ++it) font[it->first] = it->second;
    }
  }
}

}  // namespace
