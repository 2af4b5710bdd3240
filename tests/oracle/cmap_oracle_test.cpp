// Differential checks of character mapping against libfreetype, used here
// as a test-only oracle: for the Debian fonts, every code the chosen Unicode
// subtable covers maps, through the client call FSS_map_char, to the glyph
// libfreetype gives for the same subtable, and every code libfreetype finds
// mapped maps the same here. Hand-built subtables of the other published
// formats, and a variation-selector subtable added to a real font, are
// compared the same way.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_ttf.h"
#include "oracle/oracle_fonts.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

using sfnt::Bytes;

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const FS_ULONG kLastUnicode = 0x10FFFF;

void addRange(void* ctx, FS_ULONG first, FS_ULONG last) {
  ((std::vector<std::pair<FS_ULONG, FS_ULONG>>*)ctx)->push_back({first, last});
}

// The engine's side: a font added, set as the client's current font, and a
// cmap chosen; codes go through FSS_map_char, the client call.
class EngineMap {
 public:
  explicit EngineMap(FS_STATE* st) : st_(st) {}
  ~EngineMap() {
    if (name_[0]) FSS_delete_font(st_, name_);
  }

  // A font file, or `font` in memory when it is given.
  bool open(const std::string& path, const Bytes* font = nullptr) {
    FS_BYTE* bytes = font ? (FS_BYTE*)font->data() : nullptr;
    return FSS_load_font(st_, font ? nullptr : path.c_str(), bytes, 0, sizeof name_, name_) == 0 &&
           FSS_set_font(st_, name_) == 0;
  }
  // The Unicode subtable the renderer's preference list settles on: (3,10)
  // is asked first, and a font without it gets the first of the seven
  // Unicode pairs it holds. The pair found is given back for the oracle.
  bool chooseUnicode(FS_USHORT* platform, FS_USHORT* encoding) {
    if (FSS_set_cmap(st_, 3, 10) != 0) return false;
    return GetEncodingSubstitution(cmap(), ttf()->cmap_length, 3, 10, platform,
                                   encoding) == offset();
  }
  bool choose(FS_USHORT platform, FS_USHORT encoding) {
    return FSS_set_cmap(st_, platform, encoding) == 0 && offset() != 0;
  }
  FS_USHORT map(FS_ULONG code) { return FSS_map_char(st_, code); }
  FS_USHORT mapVariant(FS_ULONG code, FS_ULONG selector) {
    return FSS_map_char_variant(st_, code, selector);
  }
  std::vector<std::pair<FS_ULONG, FS_ULONG>> ranges() {
    std::vector<std::pair<FS_ULONG, FS_ULONG>> r;
    cmap_code_ranges(cmap(), ttf()->cmap_length, offset(), addRange, &r);
    return r;
  }
  FS_ULONG offset() { return st_->cur_typeset.tfntarray[0].cmap_offset; }

 private:
  TTF* ttf() { return (TTF*)st_->cur_typeset.fntset->metric_font->fnt; }
  const FS_BYTE* cmap() { return (const FS_BYTE*)ttf()->cmap; }
  FS_STATE* st_;
  FILECHAR name_[64] = {0};
};

class CmapAgainstFreetype : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(FT_Init_FreeType(&lib), 0);
    ASSERT_EQ(FSS_init(&st, 64u << 20), 0);
  }
  void TearDown() override {
    FSS_exit(&st);
    FT_Done_FreeType(lib);
  }

  // libfreetype's face on the subtable (platform, encoding) of a font file,
  // or of `font` in memory when it is given; null when it has none.
  FT_Face ftFace(const std::string& path, const Bytes* font, FS_USHORT platform,
                 FS_USHORT encoding) {
    FT_Face face = nullptr;
    if ((font ? FT_New_Memory_Face(lib, font->data(), (FT_Long)font->size(), 0, &face)
              : FT_New_Face(lib, path.c_str(), 0, &face)) != 0)
      return nullptr;
    for (int i = 0; i < face->num_charmaps; i++) {
      FT_CharMap m = face->charmaps[i];
      if (m->platform_id == platform && m->encoding_id == encoding) {
        FT_Set_Charmap(face, m);
        return face;
      }
    }
    FT_Done_Face(face);
    return nullptr;
  }

  // Compares both ways: each code of the engine's ranges (up to U+10FFFF),
  // then each code libfreetype enumerates. Returns the codes compared.
  size_t compareMaps(EngineMap& engine, FT_Face face, const std::string& what) {
    size_t compared = 0, mismatches = 0;
    for (auto r : engine.ranges()) {
      for (FS_ULONG c = r.first; c <= r.second && c <= kLastUnicode; c++) {
        FT_UInt expected = FT_Get_Char_Index(face, c);
        FS_USHORT got = engine.map(c);
        compared++;
        if (got != expected && mismatches++ < 5)
          ADD_FAILURE() << what << " U+" << std::hex << c << ": " << std::dec
                        << got << " where libfreetype gives " << expected;
      }
    }
    FT_UInt gi = 0;
    for (FT_ULong c = FT_Get_First_Char(face, &gi); gi != 0;
         c = FT_Get_Next_Char(face, c, &gi)) {
      FS_USHORT got = engine.map(c);
      compared++;
      if (got != gi && mismatches++ < 5)
        ADD_FAILURE() << what << " enumerated U+" << std::hex << c << ": "
                      << std::dec << got << " where libfreetype gives " << gi;
    }
    EXPECT_EQ(mismatches, 0u) << what;
    return compared;
  }

  FT_Library lib;
  FS_STATE st;
};

TEST_F(CmapAgainstFreetype, ChosenUnicodeMapOfEveryDebianFontAgrees) {
  // Every font of the three families and of Noto (the sweep walks the
  // covered ranges only, which keeps it quick).
  std::vector<std::string> fonts = oracle::fontsIn(
      {PACKAGED "dejavu", PACKAGED "liberation2", PACKAGED "freefont", PACKAGED "noto"},
      {".ttf", ".otf"});
  ASSERT_FALSE(fonts.empty()) << "no fonts under /usr/share/fonts: install fonts-dejavu-core, fonts-liberation2, fonts-freefont-ttf and fonts-noto-core";
  size_t notoCount = 0, compared = 0;
  for (const std::string& path : fonts) {
    if (path.find("/noto/") != std::string::npos) notoCount++;
    EngineMap engine(&st);
    ASSERT_TRUE(engine.open(path)) << path << ": " << st.error;
    FS_USHORT platform = 0, encoding = 0;
    ASSERT_TRUE(engine.chooseUnicode(&platform, &encoding)) << path;
    FT_Face face = ftFace(path, nullptr, platform, encoding);
    ASSERT_NE(face, nullptr) << path;
    compared += compareMaps(engine, face, path);
    FT_Done_Face(face);
  }
  EXPECT_GE(notoCount, 30u);
  EXPECT_GT(compared, 100000u);
  RecordProperty("codes_compared", (int)compared);
}

/* ---- Hand-built subtables in a real font ---- */

// DejaVu Sans with its `cmap` replaced by `records` (platform, encoding and
// subtable bytes), in the order given.
struct Record {
  FS_USHORT platform, encoding;
  Bytes subtable;
};

Bytes fontWithCmap(const std::vector<Record>& records) {
  Bytes file = sfnt::asBytes(testsupport::readBytes(kDejaVuSans));
  sfnt::Font font = sfnt::read(file);
  Bytes cmap;
  sfnt::u16(cmap, 0);
  sfnt::u16(cmap, (uint32_t)records.size());
  uint32_t offset = 4 + 8 * (uint32_t)records.size();
  for (const Record& r : records) {
    sfnt::u16(cmap, r.platform);
    sfnt::u16(cmap, r.encoding);
    sfnt::u32(cmap, offset);
    offset += (uint32_t)r.subtable.size();
  }
  for (const Record& r : records)
    cmap.insert(cmap.end(), r.subtable.begin(), r.subtable.end());
  font.set("cmap", cmap);
  return sfnt::build(font);
}

// The (3,1) subtable of DejaVu Sans, as it stands in the file.
Bytes dejaVuUnicodeSubtable() {
  Bytes file = sfnt::asBytes(testsupport::readBytes(kDejaVuSans));
  sfnt::Font font = sfnt::read(file);
  const Bytes& cmap = *font.find("cmap");
  uint32_t n = sfnt::getU16(cmap, 2);
  for (uint32_t i = 0; i < n; i++) {
    size_t r = 4 + 8 * i;
    if (sfnt::getU16(cmap, r) == 3 && sfnt::getU16(cmap, r + 2) == 1) {
      uint32_t at = sfnt::getU32(cmap, r + 4);
      uint32_t len = sfnt::getU16(cmap, at + 2);
      return Bytes(cmap.begin() + at, cmap.begin() + at + len);
    }
  }
  return Bytes();
}

// Appends each value as a big-endian number of `bytes` bytes.
void put(Bytes& b, int bytes, std::initializer_list<uint32_t> values) {
  for (uint32_t v : values)
    for (int i = bytes - 1; i >= 0; i--) sfnt::u8(b, v >> (8 * i));
}

TEST_F(CmapAgainstFreetype, HandBuiltFormats0_6_8_12Agree) {
  // Format 0: code c maps to (c * 7) % 200.
  Bytes f0, f6, f8, f12;
  put(f0, 2, {0, 262, 0});
  for (int c = 0; c < 256; c++) sfnt::u8(f0, (c * 7) % 200);
  // Format 6: 300 codes from U+0400, glyph 1000 - i (some 0).
  put(f6, 2, {6, 10 + 600, 0, 0x400, 300});
  for (int i = 0; i < 300; i++) sfnt::u16(f6, i % 17 ? 1000 - i : 0);
  // Groups shared by formats 8 and 12, in both planes.
  const uint32_t groups[][3] = {{0x20, 0x7E, 3},        {0xA0, 0xFF, 100},
                                {0x1000, 0x1000, 1500}, {0x10000, 0x1002F, 2000},
                                {0x1F600, 0x1F64F, 2500}, {0x10FF00, 0x10FF0F, 3000}};
  put(f12, 2, {12, 0});
  put(f12, 4, {16 + 12 * 6, 0, 6});
  put(f8, 2, {8, 0});
  put(f8, 4, {8208 + 12 * 6, 0});
  Bytes is32(8192, 0);
  for (auto& g : groups)  // high halves of the 32-bit codes are marked
    for (uint32_t c = g[0]; c <= g[1]; c++)
      if (c > 0xFFFF) is32[(c >> 16) / 8] |= (uint8_t)(0x80 >> ((c >> 16) % 8));
  f8.insert(f8.end(), is32.begin(), is32.end());
  put(f8, 4, {6});
  for (auto& g : groups) {
    put(f12, 4, {g[0], g[1], g[2]});
    put(f8, 4, {g[0], g[1], g[2]});
  }
  const struct { FS_USHORT platform, encoding; Bytes* subtable; } cases[] = {{1, 0, &f0}, {3, 1, &f6}, {3, 10, &f12}, {3, 10, &f8}};
  for (auto& c : cases) {
    Bytes font = fontWithCmap({{c.platform, c.encoding, *c.subtable}});
    EngineMap engine(&st);
    ASSERT_TRUE(engine.open("", &font));
    ASSERT_TRUE(engine.choose(c.platform, c.encoding));
    FT_Face face = ftFace("", &font, c.platform, c.encoding);
    ASSERT_NE(face, nullptr) << "format " << sfnt::getU16(*c.subtable, 0);
    EXPECT_GT(compareMaps(engine, face,
                          "format " + std::to_string(sfnt::getU16(*c.subtable, 0))),
              100u);
    FT_Done_Face(face);
  }
}

TEST_F(CmapAgainstFreetype, VariationSelectorsAgreeOnTheirOwnGlyphs) {
  // No installed font has a (0,5) subtable, so one is added to DejaVu Sans:
  // U+FE00 with a default range and own glyphs, U+FE01 with a default range
  // only, U+E0100 with own glyphs only.
  Bytes f14;
  const uint32_t selectors = 3;
  uint32_t defaultFE00 = 10 + 11 * selectors;        // 2 ranges: 4 + 8
  uint32_t ownFE00 = defaultFE00 + 4 + 4 * 2;        // 4 mappings: 4 + 20
  uint32_t defaultFE01 = ownFE00 + 4 + 5 * 4;        // 1 range: 4 + 4
  uint32_t ownE0100 = defaultFE01 + 4 + 4 * 1;       // 3 mappings: 4 + 15
  uint32_t length = ownE0100 + 4 + 5 * 3;
  put(f14, 2, {14});
  put(f14, 4, {length, selectors});
  put(f14, 3, {0xFE00}), put(f14, 4, {defaultFE00, ownFE00});
  put(f14, 3, {0xFE01}), put(f14, 4, {defaultFE01, 0});
  put(f14, 3, {0xE0100}), put(f14, 4, {0, ownE0100});
  put(f14, 4, {2});  // default ranges of U+FE00: 0x30..0x39, 0x41..0x43
  put(f14, 3, {0x30}), put(f14, 1, {9}), put(f14, 3, {0x41}), put(f14, 1, {2});
  put(f14, 4, {4});  // own glyphs of U+FE00
  const uint32_t ownA[][2] = {{0x44, 70}, {0x45, 71}, {0x100, 72}, {0x2260, 73}};
  for (auto& m : ownA) put(f14, 3, {m[0]}), put(f14, 2, {m[1]});
  put(f14, 4, {1});  // default range of U+FE01: 0x61..0x7A
  put(f14, 3, {0x61}), put(f14, 1, {25});
  put(f14, 4, {3});  // own glyphs of U+E0100
  const uint32_t ownB[][2] = {{0x20, 80}, {0x4E00, 81}, {0x20000, 82}};
  for (auto& m : ownB) put(f14, 3, {m[0]}), put(f14, 2, {m[1]});
  ASSERT_EQ(f14.size(), length);
  Bytes unicode = dejaVuUnicodeSubtable();
  ASSERT_FALSE(unicode.empty());
  Bytes font = fontWithCmap({{0, 3, unicode}, {0, 5, f14}, {3, 1, unicode}});

  EngineMap engine(&st);
  ASSERT_TRUE(engine.open("", &font));
  ASSERT_TRUE(engine.choose(3, 1));
  FT_Face face = ftFace("", &font, 3, 1);
  ASSERT_NE(face, nullptr);
  std::vector<FT_ULong> codes;
  for (FT_ULong c = 0; c < 0x300; c++) codes.push_back(c);
  for (FT_ULong c : {0x2260ul, 0x4E00ul, 0x20000ul, 0x10FFFFul}) codes.push_back(c);
  int own = 0;
  for (FT_ULong selector : {0xFE00ul, 0xFE01ul, 0xE0100ul, 0xFE0Ful}) {
    for (FT_ULong c : codes) {
      FT_UInt expected = FT_Face_GetCharVariantIndex(face, c, selector);
      FT_Int isDefault = FT_Face_GetCharVariantIsDefault(face, c, selector);
      FS_USHORT got = engine.mapVariant(c, selector);
      // libfreetype also answers from the default table with the plain
      // glyph; the engine leaves that fallback to its caller.
      FT_UInt want = isDefault == 0 ? expected : 0;
      EXPECT_EQ(got, want) << std::hex << "U+" << c << " with U+" << selector;
      if (isDefault == 0) own++;
    }
  }
  EXPECT_EQ(own, 7);
  FT_Done_Face(face);
}

}  // namespace
