// fontvec info as a person runs it: the real binary on real and built fonts,
// its "key: value" lines, the engine's error on standard error, exit codes.
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <string>

#include "support/sfnt_builder.h"
#include "support/test_support.h"

using testsupport::runFontvec;
using testsupport::ToolRun;

TEST(FontvecInfo, PrintsWhatTheLoaderReadOfARealFont) {
  ToolRun r = runFontvec("info /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "faces: 1\n"
            "glyphs: 6253\n"
            "units_per_em: 2048\n"
            "bbox: -2090 -948 3673 2524\n"
            "ascender: 1901\n"
            "descender: -483\n"
            "outlines: glyf\n"
            "family: DejaVu Sans\n"
            "style: Regular\n"
            "full_name: DejaVu Sans\n");
}

TEST(FontvecInfo, CollectionMembersAndCffContainers) {
  testsupport::TempDir dir;
  sfnt::Font a = sfnt::minimalGlyfFont();
  sfnt::Font b = sfnt::minimalCffFont(7);
  b.set("head", sfnt::head(2048, -5, -6, 70, 80));
  std::string ttc = dir.file("pair.ttc");
  testsupport::writeBytes(ttc, sfnt::asString(sfnt::buildCollection({a, b})));

  ToolRun first = runFontvec("info " + ttc);
  EXPECT_EQ(first.status, 0);
  EXPECT_EQ(first.out,
            "faces: 2\nglyphs: 2\nunits_per_em: 1000\nbbox: -10 -200 600 800\n"
            "ascender: 800\ndescender: -200\noutlines: glyf\n"
            "family: Test\nstyle: Regular\nfull_name: Test Sans\n");
  ToolRun second = runFontvec("info --index 1 " + ttc);
  EXPECT_EQ(second.status, 0);
  EXPECT_EQ(second.out,
            "faces: 2\nglyphs: 7\nunits_per_em: 2048\nbbox: -5 -6 70 80\n"
            "ascender: 800\ndescender: -200\noutlines: CFF\n"
            "family: Test\nstyle: Regular\nfull_name: Test Sans\n");

  std::string otf = dir.file("one.otf");
  testsupport::writeBytes(otf, sfnt::asString(sfnt::build(b)));
  ToolRun cff = runFontvec("info " + otf);
  EXPECT_EQ(cff.status, 0);
  EXPECT_NE(cff.out.find("outlines: CFF\n"), std::string::npos);
}

TEST(FontvecInfo, StyleComesFromTheHeadStyleBits) {
  ToolRun r = runFontvec(
      "info /usr/share/fonts/truetype/dejavu/DejaVuSerif-BoldItalic.ttf");
  EXPECT_EQ(r.status, 0);
  // macStyle 3: bold and italic.
  EXPECT_NE(r.out.find("family: DejaVu Serif\nstyle: Bold Italic\n"
                       "full_name: DejaVu Serif Bold Italic\n"),
            std::string::npos);
}

TEST(FontvecInfo, KernListsEveryPairInTableOrder) {
  ToolRun r =
      runFontvec("info /usr/share/fonts/truetype/dejavu/DejaVuSans.ttf --kern");
  EXPECT_EQ(r.status, 0);
  // The first pairs of DejaVu Sans's format-0 subtable: glyph 16 is the
  // hyphen, 36 "A", 37 "B", 42 "G"; 2727 pairs in all.
  EXPECT_EQ(r.out.substr(0, 29), "16 36 -45\n16 37 -73\n16 42 75\n");
  EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2727);

  // A monospaced font has no kern table: no lines, success.
  ToolRun mono = runFontvec(
      "info /usr/share/fonts/truetype/dejavu/DejaVuSansMono.ttf --kern");
  EXPECT_EQ(mono.status, 0);
  EXPECT_EQ(mono.out, "");
  EXPECT_EQ(runFontvec("info --kern --cmap a.ttf").status, 2);
}

TEST(FontvecInfo, RefusedFontsGiveTheEngineErrorAndExitOne) {
  testsupport::TempDir dir;
  std::string err = dir.file("err.txt");
  std::string ttc = dir.file("pair.ttc");
  testsupport::writeBytes(ttc, sfnt::asString(sfnt::buildCollection(
                                   {sfnt::minimalGlyfFont(),
                                    sfnt::minimalGlyfFont()})));
  ToolRun past = runFontvec("info --index 2 " + ttc, err);
  EXPECT_EQ(past.status, 1);
  EXPECT_EQ(past.out, "");
  EXPECT_NE(testsupport::readBytes(err).find(
                "error 404: face index beyond the collection"),
            std::string::npos);

  std::string empty = dir.file("empty.ttf");
  testsupport::writeBytes(empty, "");
  EXPECT_EQ(runFontvec("info " + empty, err).status, 1);
  EXPECT_NE(testsupport::readBytes(err).find("error 403"), std::string::npos);

  EXPECT_EQ(runFontvec("info " + dir.file("absent.ttf"), err).status, 1);
  EXPECT_NE(testsupport::readBytes(err).find("error 102"), std::string::npos);
}

TEST(FontvecInfo, UsageErrorsExitTwo) {
  EXPECT_EQ(runFontvec("info").status, 2);
  EXPECT_EQ(runFontvec("info a.ttf b.ttf").status, 2);
  EXPECT_EQ(runFontvec("info --index x a.ttf").status, 2);
  EXPECT_EQ(runFontvec("info --index -1 a.ttf").status, 2);
  EXPECT_EQ(runFontvec("info --bogus a.ttf").status, 2);
  ToolRun help = runFontvec("--help");
  EXPECT_NE(help.out.find("info FONT [--index N]"), std::string::npos);
}
