// Differential checks of the font loader against libfreetype, an independent
// engine used here as a test-only oracle: for every TrueType and OpenType
// font of the Debian font packages, and for collections built from them,
// the loader must read the same face count, glyph count, units per em,
// `head` bounding box and `hhea` ascender and descender.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H
#include FT_FONT_FORMATS_H
#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_ttf.h"
#include "oracle/oracle_fonts.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"

namespace {

// What libfreetype reads from one face: faces, glyphs, units per em, the
// head box (x and y minimum, x and y maximum), hhea ascender and descender
// and whether the outlines are CFF; empty when it refuses the face.
std::vector<long> freetypeReads(FT_Library lib, const std::string& path, long index) {
  FT_Face face;
  if (FT_New_Face(lib, path.c_str(), index, &face) != 0) return {};
  TT_Header* head = (TT_Header*)FT_Get_Sfnt_Table(face, FT_SFNT_HEAD);
  TT_HoriHeader* hhea = (TT_HoriHeader*)FT_Get_Sfnt_Table(face, FT_SFNT_HHEA);
  std::vector<long> r;
  if (head != nullptr && hhea != nullptr)
    r = {face->num_faces, face->num_glyphs, head->Units_Per_EM, head->xMin, head->yMin,
         head->xMax, head->yMax, hhea->Ascender, hhea->Descender,
         strcmp(FT_Get_Font_Format(face), "CFF") == 0};
  FT_Done_Face(face);
  return r;
}

class LoaderAgainstFreetype : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(FT_Init_FreeType(&lib), 0);
    ASSERT_EQ(FSS_init(&st, 64u << 20), 0);
  }
  void TearDown() override {
    FSS_exit(&st);
    FT_Done_FreeType(lib);
  }

  // Loads every face of `path` and compares it with libfreetype's reading.
  void compareFile(const std::string& path) {
    std::vector<long> first = freetypeReads(lib, path, 0);
    ASSERT_FALSE(first.empty()) << path;
    for (long i = 0; i < first[0]; i++) {
      std::vector<long> ref = freetypeReads(lib, path, i);
      ASSERT_FALSE(ref.empty()) << path << " face " << i;
      TTF* ttf = load_ttf(&st, (FILECHAR*)path.c_str(), nullptr, (FS_ULONG)i, 0, 0, 0,
                          ref[9] ? FNT_TYPE_OTT : 0);
      ASSERT_NE(ttf, nullptr) << path << " face " << i << ": error " << st.error;
      std::vector<long> ours = {ttf->ttc_header ? (long)ttf->ttc_header->numFonts : 1,
                                ttf->maxp->numGlyphs, ttf->head->unitsPerEm,
                                ttf->head->xMin, ttf->head->yMin, ttf->head->xMax,
                                ttf->head->yMax, ttf->hhea->yAscender,
                                ttf->hhea->yDescender, ttf->cff != nullptr};
      EXPECT_EQ(ours, ref) << path << " face " << i;
      unload_ttf(&st, ttf);
    }
    // Everything the loads took went back to the heap: only the scratch
    // buffer of the engine's start stays charged.
    EXPECT_EQ(FS_get_heap_used(&st), 3024u) << path;
  }

  FT_Library lib;
  FS_STATE st;
};

}  // namespace

TEST_F(LoaderAgainstFreetype, EveryPackagedFontReadsAlike) {
  std::vector<std::string> files = oracle::fontsIn(
      {PACKAGED "dejavu", PACKAGED "liberation2", PACKAGED "freefont", PACKAGED "noto"},
      {".ttf", ".otf", ".ttc", ".otc"});
  ASSERT_FALSE(files.empty()) << "no fonts under /usr/share/fonts: install the font packages of scripts/install-deps.sh";
  for (const std::string& path : files) compareFile(path);
  // dejavu-core, liberation2, freefont-ttf and noto-core hold hundreds.
  EXPECT_GT(files.size(), 100u);
}

TEST_F(LoaderAgainstFreetype, CollectionsOfPackagedFontsReadAlike) {
  const std::string dejavu = "/usr/share/fonts/truetype/dejavu/";
  const std::string liberation = "/usr/share/fonts/truetype/liberation2/";
  std::vector<std::string> members = {dejavu + "DejaVuSans.ttf",
                                      liberation + "LiberationSerif-Regular.ttf",
                                      dejavu + "DejaVuSansMono-Bold.ttf"};
  std::vector<sfnt::Font> fonts;
  for (const std::string& m : members) {
    std::string bytes = testsupport::readBytes(m);
    ASSERT_FALSE(bytes.empty()) << m << " is missing";
    fonts.push_back(sfnt::read(sfnt::asBytes(bytes)));
  }
  testsupport::TempDir dir;
  std::string two = dir.file("two.ttc"), three = dir.file("three.ttc");
  testsupport::writeBytes(two, sfnt::asString(sfnt::buildCollection(
                                   {fonts[0], fonts[1]})));
  testsupport::writeBytes(three, sfnt::asString(sfnt::buildCollection(fonts)));
  compareFile(two);
  compareFile(three);
}
