// fontvec info --cmap as a person runs it: the real binary on a real font
// and on built ones, one "U+XXXX GLYPH" line per mapped code in ascending
// order, and the refusal of a font without a Unicode map.
#include <gtest/gtest.h>
#include <stdio.h>

#include <sstream>
#include <string>

#include "support/sfnt_builder.h"
#include "support/test_support.h"

namespace {

// fontvec info FONT --cmap, with its standard error.
struct CmapRun {
  int status;
  std::string out;
  std::string err;
};

CmapRun fontvecCmap(const std::string& font) {
  testsupport::TempDir dir;
  std::string errFile = dir.file("err.txt");
  testsupport::ToolRun r = testsupport::runFontvec("info " + font + " --cmap", errFile);
  return CmapRun{r.status, r.out, testsupport::readBytes(errFile)};
}

}  // namespace

TEST(FontvecCmap, ListsEveryMappedCodeOfARealFontInOrder) {
  CmapRun r = fontvecCmap("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.compare(0, 18, "U+0020 3\nU+0021 4\n"), 0);
  EXPECT_NE(r.out.find("\nU+0041 36\n"), std::string::npos);
  EXPECT_NE(r.out.find("\nU+0416 939\n"), std::string::npos);
  EXPECT_NE(r.out.find("\nU+10300 5373\n"), std::string::npos);
  std::istringstream lines(r.out);
  std::string line;
  unsigned long previous = 0, count = 0;
  while (std::getline(lines, line)) {
    unsigned long code = 0;
    unsigned glyph = 0;
    ASSERT_EQ(sscanf(line.c_str(), "U+%lX %u", &code, &glyph), 2) << line;
    if (count++ > 0) {
      EXPECT_GT(code, previous) << line;
    }
    EXPECT_GT(glyph, 0u);
    previous = code;
  }
  EXPECT_EQ(count, 5918u);  // as many as libfreetype enumerates
}

TEST(FontvecCmap, ByteMapOfABuiltFont) {
  // The built font's only map is (3,1) of format 0: code c -> c & 1, so the
  // odd codes 1..255 map to glyph 1, 128 lines.
  testsupport::TempDir dir;
  std::string path = dir.file("two.ttf");
  testsupport::writeBytes(path, sfnt::asString(sfnt::build(sfnt::minimalGlyfFont())));
  CmapRun r = fontvecCmap(path);
  EXPECT_EQ(r.status, 0);
  std::string expected;
  for (int c = 1; c < 256; c += 2) {
    char line[16];
    snprintf(line, sizeof line, "U+%04X 1\n", c);
    expected += line;
  }
  EXPECT_EQ(r.out, expected);
}

TEST(FontvecCmap, AFontWithoutAUnicodeMapIsRefused) {
  // The same font with its map moved to (1,0), Macintosh Roman.
  testsupport::TempDir dir;
  sfnt::Font f = sfnt::minimalGlyfFont();
  sfnt::Bytes cmap = *f.find("cmap");
  sfnt::putU16(cmap, 4, 1);
  sfnt::putU16(cmap, 6, 0);
  std::string path = dir.file("roman.ttf");
  testsupport::writeBytes(path, sfnt::asString(sfnt::build(f.set("cmap", cmap))));
  CmapRun r = fontvecCmap(path);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("no Unicode character map"), std::string::npos) << r.err;
}
