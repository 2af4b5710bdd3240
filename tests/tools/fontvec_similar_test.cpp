// fontvec similar on the vectors of packaged fonts: the nearest fonts make
// sense, ranks don't follow the rows' order, a copy is a duplicate, and
// a malformed table names its line.
#include <gtest/gtest.h>

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::runFontvec;
namespace {

#define DEJAVU "/usr/share/fonts/truetype/dejavu/"

TEST(FontvecSimilar, NearestFontsDuplicatesAndRowOrder) {
  testsupport::TempDir dir;
  // Folders stand for their sorted font files: DejaVu Serif and Sans copied, notes.txt no font.
  std::string copies = dir.mkdir("copies"), csv = dir.file("v.csv"), err = dir.file("err.txt");
  testsupport::writeBytes(copies + "/Copy.ttf", testsupport::readBytes(DEJAVU "DejaVuSerif.ttf"));
  testsupport::writeBytes(dir.mkdir("copies/sub") + "/Another.OTF", testsupport::readBytes(DEJAVU "DejaVuSans.ttf"));
  testsupport::writeBytes(copies + "/notes.txt", "not a font");
  std::string fonts = copies + " /usr/share/fonts/truetype/liberation2 /usr/share/fonts/truetype/freefont";
  for (const char* f : {"Sans", "Sans-Bold", "SansMono", "SansMono-Bold", "Serif", "Serif-Bold"})
    fonts += std::string(" " DEJAVU "DejaVu") + f + ".ttf";
  std::string table = runFontvec("--format csv " + fonts, err).out;
  ASSERT_EQ(std::count(table.begin(), table.end(), '\n'), 33) << testsupport::readBytes(err);
  EXPECT_EQ(table.find("\nCopy.ttf,"), table.find('\n'));
  EXPECT_LT(table.find("\nAnother.OTF,"), table.find("\nLiberationMono-Bold.ttf,"));
  testsupport::writeBytes(csv, table);
  // The same rows in reverse order.
  ASSERT_EQ(system(("(head -1 " + csv + "; tail -n +2 " + csv + " | sort -r) > " + csv + ".r").c_str()), 0);
  const struct {
    std::string query;
    std::vector<std::string> allowed;  // rank 1 is one of these
  } rows[] = {
      {"DejaVuSans-Bold.ttf", {"LiberationSans-Bold.ttf", "FreeSansBold.ttf"}},  // a bold sans
      {"LiberationMono-Regular.ttf", {"LiberationMono-Bold.ttf", "DejaVuSansMono.ttf", "FreeMono.ttf"}},
      {DEJAVU "DejaVuSans-Oblique.ttf", {"LiberationSans-Italic.ttf", "FreeSansOblique.ttf"}},  // worked first
  };
  for (const auto& row : rows) {
    testsupport::ToolRun r = runFontvec("similar --k 29 --to " + row.query + " " + csv, err);
    char first[256] = "";
    EXPECT_EQ(sscanf(r.out.c_str(), "1 %*f %255s", first) + r.status, 1) << row.query;
    EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 29) << row.query;
    EXPECT_NE(std::find(row.allowed.begin(), row.allowed.end(), first), row.allowed.end()) << r.out;
    EXPECT_EQ(runFontvec("similar --k 29 --to " + row.query + " " + csv + ".r").out, r.out) << row.query;
  }
  EXPECT_EQ(runFontvec("similar --duplicates " + csv).out, "Another.OTF DejaVuSans.ttf\nCopy.ttf DejaVuSerif.ttf\n");
}

TEST(FontvecSimilar, BadTablesNameTheLineAndBadQueriesTheirError) {
  testsupport::TempDir dir;
  const struct {
    std::string table, args;
    int status;
    std::string err;
  } rows[] = {
      {"file,a,b\nx.ttf,1\n", "--duplicates", 2, "t.csv:2: 2 fields where the header has 3"},
      {"file,a,b\nx.ttf,1,zz\n", "--duplicates", 2, "t.csv:2: b: \"zz\" is not a number"},
      {"file,a,b\n", "--duplicates", 2, "t.csv:2: no rows after the header"},
      {"", "--duplicates", 2, "t.csv:1: no header"},
      {"name,a\nx,1\n", "--duplicates", 2, "t.csv:1: the header"},
      {"file,a\n\"x,1\n", "--duplicates", 2, "t.csv:2: a quote is not closed"},
      {"file,a,b\nx.ttf,1,2\n", "--to /no/such.ttf", 1, "/no/such.ttf: Error="},
      {"file,a,b\nx.ttf,1,2\n", "--to " + dir.file("t.csv"), 1, "t.csv: Error=-1"},  // not a font
      // Constant and infinite columns are left out and named; on b alone
      // (5, 2, 9: mean 16/3, sd sqrt(74)/3) y is 3 / (sqrt(74)/3) = 1.0462 away.
      {"file,a,b,c\nx.ttf,1,5,inf\ny.ttf,1,2,0\nz.ttf,1,9,0\n", "--k 1 --to x.ttf", 0,
       "column a left out: constant\nfontvec: column c left out: not finite"},
      {"file,a\nx.ttf,1\n", "--to x.ttf --duplicates", 2, ""},
  };
  std::string csv = dir.file("t.csv"), err = dir.file("err.txt");
  for (const auto& row : rows) {
    testsupport::writeBytes(csv, row.table);
    testsupport::ToolRun r = runFontvec("similar " + row.args + " " + csv, err);
    EXPECT_EQ(r.status, row.status) << row.table;
    EXPECT_NE(testsupport::readBytes(err).find(row.err), std::string::npos)
        << row.table << testsupport::readBytes(err);
    if (row.status == 0) { EXPECT_EQ(r.out, "1 1.0462 y.ttf\n"); }
  }
}

}  // namespace
