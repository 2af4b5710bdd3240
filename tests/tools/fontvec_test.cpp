// fontvec as a person runs it: the real binary, its output and exit codes.
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::runFontvec;
using testsupport::ToolRun;

namespace {

int countFields(const std::string& line) {
  int fields = 1;
  for (char c : line) fields += c == ',';
  return fields;
}

}  // namespace

TEST(FontvecMeasure, FixtureFoldersGiveTheLibraryLine) {
  REQUIRE_FIXTURES();
  for (const char* font :
       {"DejaVuSans", "DejaVuSans-Oblique", "LiberationSerif", "LiberationMono"}) {
    std::string folder = testsupport::fixturesDir() + "/" + font + "/Images";
    ToolRun plain = runFontvec("measure " + folder);
    EXPECT_EQ(plain.status, 0) << font;
    ASSERT_FALSE(plain.out.empty());
    EXPECT_EQ(countFields(plain.out), 58) << font;
    EXPECT_EQ(plain.out.back(), '\n');
    EXPECT_EQ(plain.out.find('\n'), plain.out.size() - 1);

    ToolRun sum = runFontvec("measure --checksum " + folder);
    EXPECT_EQ(sum.status, 0);
    EXPECT_EQ(countFields(sum.out), 59) << font;
    EXPECT_EQ(sum.out.substr(sum.out.find(',') + 1), plain.out);
  }
}

TEST(FontvecMeasure, BadFoldersAndUsageFail) {
  testsupport::TempDir dir;
  std::string err = dir.file("err.txt");
  ToolRun missing = runFontvec("measure " + dir.file("absent"), err);
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "");
  EXPECT_NE(testsupport::readBytes(err).find("not a folder"), std::string::npos);

  EXPECT_EQ(runFontvec("measure").status, 2);
  EXPECT_EQ(runFontvec("measure --bogus " + dir.path()).status, 2);
  EXPECT_EQ(runFontvec("measure a b").status, 2);
  // A first word that names no command is a font file: a missing one fails.
  EXPECT_EQ(runFontvec("no-such-command").status, 1);
  EXPECT_EQ(runFontvec("--bogus-option").status, 2);
}

TEST(FontvecHelp, ListsTheCommands) {
  ToolRun help = runFontvec("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: fontvec"), std::string::npos);
  EXPECT_NE(help.out.find("measure"), std::string::npos);
}

TEST(FontvecMeasure, NamesAndFormatsLayOutTheSameValues) {
  REQUIRE_FIXTURES();
  std::string folder = testsupport::fixturesDir() + "/LiberationSerif/Images";
  ToolRun line = runFontvec("measure " + folder);
  ASSERT_EQ(line.status, 0);
  std::vector<std::string> values;
  {
    std::string v;
    for (char c : line.out) {
      if (c == ',' || c == '\n') {
        values.push_back(v);
        v.clear();
      } else {
        v += c;
      }
    }
  }
  ASSERT_EQ(values.size(), 58u);

  // 58 lines "index name value", in the frozen order, with the line's digits.
  ToolRun names = runFontvec("measure --names " + folder);
  EXPECT_EQ(names.status, 0);
  int lines = 0;
  for (char c : names.out) lines += c == '\n';
  EXPECT_EQ(lines, 58);
  EXPECT_EQ(names.out.find("0 AvgGreyVal " + values[0] + "\n"), 0u);
  EXPECT_NE(names.out.find("\n22 skew " + values[22] + "\n"), std::string::npos);
  EXPECT_NE(names.out.find("\n57 FlareStemNess " + values[57] + "\n"),
            std::string::npos);

  ToolRun csv = runFontvec("measure --format csv " + folder);
  EXPECT_EQ(csv.status, 0);
  size_t header = csv.out.find('\n');
  ASSERT_NE(header, std::string::npos);
  EXPECT_EQ(countFields(csv.out.substr(0, header)), 58);
  EXPECT_EQ(csv.out.substr(0, 16), "AvgGreyVal,COGX,");
  EXPECT_EQ(csv.out.substr(header + 1), line.out);

  ToolRun json = runFontvec("measure --checksum --format json " + folder);
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(json.out.substr(0, 13), "{\"checksum\": ");
  EXPECT_NE(json.out.find(", \"AvgGreyVal\": " + values[0] + ", "), std::string::npos);
  EXPECT_NE(json.out.find("\"FlareStemNess\": " + values[57] + "}\n"),
            std::string::npos);

  EXPECT_EQ(runFontvec("measure --format xml " + folder).status, 2);
  EXPECT_EQ(runFontvec("measure --format").status, 2);
}

TEST(FontvecMeasure, ARefusedFolderPrintsTheErrorText) {
  testsupport::TempDir dir;
  std::string err = dir.file("err.txt");
  ToolRun empty = runFontvec("measure " + dir.path(), err);
  EXPECT_EQ(empty.status, 1);
  EXPECT_EQ(empty.out, "");
  EXPECT_EQ(testsupport::readBytes(err), "Error=8\n");
}
