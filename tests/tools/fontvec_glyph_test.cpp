// fontvec glyph as a person runs it: the real binary on a built font and a
// packaged one, its point lines, advance line, errors and exit codes.
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <string>

#include "support/glyf_font.h"
#include "support/test_support.h"

using testsupport::runFontvec;
using testsupport::ToolRun;

TEST(FontvecGlyph, PrintsPointsByContourAndTheRoundedAdvance) {
  testsupport::TempDir dir;
  std::vector<sfnt::Bytes> g = {
      {}, glyffont::triangle(),
      glyffont::composite({{0x2, 1, 0, 0}, {0x2, 1, 200, 0}})};
  std::string path = dir.file("t.ttf");
  testsupport::writeBytes(path, sfnt::asString(sfnt::build(glyffont::font(g))));

  // 10 ppem at 1000 units: 0.64 26.6 units per font unit; advance 500
  // units = 5 pixels = 320.
  ToolRun r = runFontvec("glyph " + path + " --glyph 1 --ppem 10 --points");
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("0 0 on\n64 0 on\n32 64 off\nadvance: 320\n", r.out);

  // Two contours with a blank line between; 200 units = 128.
  r = runFontvec("glyph " + path + " --glyph 2 --ppem 10 --points --no-hints");
  EXPECT_EQ(0, r.status);
  EXPECT_EQ("0 0 on\n64 0 on\n32 64 off\n\n128 0 on\n192 0 on\n160 64 off\n"
            "advance: 320\n",
            r.out);

  r = runFontvec("glyph " + path + " --glyph 0 --ppem 13 --points");
  EXPECT_EQ("advance: 448\n", r.out);  // 6.5 pixels round to 7
}

TEST(FontvecGlyph, ARealGlyphAndTheRefusals) {
  const std::string font = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  // Glyph 36 is "A": a contour of 3 points, a blank line, one of 8; then
  // the advance of 1401 units at 12 ppem, 8.2 -> 8 pixels.
  ToolRun r = runFontvec("glyph " + font + " --glyph 36 --ppem 12 --points");
  EXPECT_EQ(0, r.status);
  EXPECT_EQ(3u + 1 + 8 + 1, (size_t)std::count(r.out.begin(), r.out.end(), '\n'));
  const std::string tail = "advance: 512\n";
  ASSERT_GE(r.out.size(), tail.size());
  EXPECT_EQ(tail, r.out.substr(r.out.size() - tail.size()));

  EXPECT_EQ(1, runFontvec("glyph " + font + " --glyph 60000 --ppem 12 --points").status);
  EXPECT_EQ(1, runFontvec("glyph /nonexistent.ttf --glyph 1 --ppem 12").status);
  EXPECT_EQ(2, runFontvec("glyph " + font + " --ppem 12").status);
  EXPECT_EQ(2, runFontvec("glyph " + font + " --glyph 1").status);
  EXPECT_EQ(2, runFontvec("glyph " + font + " --glyph 1 --ppem 0").status);
}

TEST(FontvecGlyph, CharactersGoThroughTheCharacterMap) {
  const std::string font = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
  ToolRun byChar = runFontvec("glyph " + font + " --char U+0041 --ppem 12 --points");
  ToolRun byGlyph = runFontvec("glyph " + font + " --glyph 36 --ppem 12 --points");
  EXPECT_EQ(0, byChar.status);
  EXPECT_EQ(byGlyph.out, byChar.out);
  EXPECT_EQ(2, runFontvec("glyph " + font + " --char 41 --ppem 12").status);
  EXPECT_EQ(2, runFontvec("glyph " + font + " --char U+41 --glyph 36 --ppem 12").status);
}
