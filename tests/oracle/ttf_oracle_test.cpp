// Differential checks of the font loader against libfreetype, an independent
// engine used here as a test-only oracle: for every TrueType and OpenType
// font of the Debian font packages, and for collections built from them,
// the loader must read the same face count, glyph count, units per em,
// `head` bounding box and `hhea` ascender and descender.
#include <dirent.h>
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
#include "support/sfnt_builder.h"
#include "support/test_support.h"

namespace {

const char* const kFontFolders[] = {
    "/usr/share/fonts/truetype/dejavu", "/usr/share/fonts/truetype/liberation2",
    "/usr/share/fonts/truetype/freefont", "/usr/share/fonts/truetype/noto"};

bool isSfntName(const std::string& name) {
  std::string lower = name;
  for (char& c : lower) c = (char)tolower((unsigned char)c);
  for (const char* ext : {".ttf", ".otf", ".ttc", ".otc"})
    if (lower.size() > 4 && lower.compare(lower.size() - 4, 4, ext) == 0)
      return true;
  return false;
}

std::vector<std::string> fontFiles() {
  std::vector<std::string> files;
  for (const char* folder : kFontFolders) {
    DIR* d = opendir(folder);
    if (d == nullptr) continue;
    while (dirent* e = readdir(d))
      if (isSfntName(e->d_name)) files.push_back(std::string(folder) + "/" + e->d_name);
    closedir(d);
  }
  std::sort(files.begin(), files.end());
  return files;
}

// What libfreetype reads from one face.
struct Reference {
  long faces = 0;
  long glyphs = 0;
  int upem = 0;
  long bbox[4] = {0, 0, 0, 0};
  int ascender = 0, descender = 0;
  bool cff = false;
};

bool freetypeReads(FT_Library lib, const std::string& path, long index,
                   Reference* r) {
  FT_Face face;
  if (FT_New_Face(lib, path.c_str(), index, &face) != 0) return false;
  r->faces = face->num_faces;
  r->glyphs = face->num_glyphs;
  TT_Header* head = (TT_Header*)FT_Get_Sfnt_Table(face, FT_SFNT_HEAD);
  TT_HoriHeader* hhea = (TT_HoriHeader*)FT_Get_Sfnt_Table(face, FT_SFNT_HHEA);
  bool ok = head != nullptr && hhea != nullptr;
  if (ok) {
    r->upem = head->Units_Per_EM;
    r->bbox[0] = head->xMin;
    r->bbox[1] = head->yMin;
    r->bbox[2] = head->xMax;
    r->bbox[3] = head->yMax;
    r->ascender = hhea->Ascender;
    r->descender = hhea->Descender;
  }
  r->cff = strcmp(FT_Get_Font_Format(face), "CFF") == 0;
  FT_Done_Face(face);
  return ok;
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
    Reference first;
    ASSERT_TRUE(freetypeReads(lib, path, 0, &first)) << path;
    for (long i = 0; i < first.faces; i++) {
      Reference ref;
      ASSERT_TRUE(freetypeReads(lib, path, i, &ref)) << path << " face " << i;
      FS_BYTE type = ref.cff ? FNT_TYPE_OTT : 0;
      TTF* ttf = load_ttf(&st, (FILECHAR*)path.c_str(), nullptr, (FS_ULONG)i,
                          0, 0, 0, type);
      ASSERT_NE(ttf, nullptr) << path << " face " << i << ": error " << st.error;
      long faces = ttf->ttc_header ? (long)ttf->ttc_header->numFonts : 1;
      EXPECT_EQ(faces, ref.faces) << path;
      EXPECT_EQ(ttf->maxp->numGlyphs, ref.glyphs) << path;
      EXPECT_EQ(ttf->head->unitsPerEm, ref.upem) << path;
      EXPECT_EQ(ttf->head->xMin, ref.bbox[0]) << path;
      EXPECT_EQ(ttf->head->yMin, ref.bbox[1]) << path;
      EXPECT_EQ(ttf->head->xMax, ref.bbox[2]) << path;
      EXPECT_EQ(ttf->head->yMax, ref.bbox[3]) << path;
      EXPECT_EQ(ttf->hhea->yAscender, ref.ascender) << path;
      EXPECT_EQ(ttf->hhea->yDescender, ref.descender) << path;
      EXPECT_EQ(ttf->cff != nullptr, ref.cff) << path;
      unload_ttf(&st, ttf);
    }
    // Everything the loads took went back to the heap: only the scratch
    // buffer of the engine's start stays charged.
    EXPECT_EQ(FS_get_heap_used(&st), 3008u) << path;
  }

  FT_Library lib;
  FS_STATE st;
};

}  // namespace

TEST_F(LoaderAgainstFreetype, EveryPackagedFontReadsAlike) {
  std::vector<std::string> files = fontFiles();
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
