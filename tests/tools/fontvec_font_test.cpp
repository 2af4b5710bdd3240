// fontvec FONT...: font files to vectors through the real binary, its
// layouts, kept pictures and exit codes.
#include <gtest/gtest.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/test_support.h"

using testsupport::runFontvec;
using testsupport::ToolRun;

namespace fs = std::filesystem;

namespace {

const std::string kSans = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const std::string kMono =
    "/usr/share/fonts/truetype/liberation2/LiberationMono-Regular.ttf";

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

int countChar(const std::string& text, char c) {
  int n = 0;
  for (char x : text) n += x == c;
  return n;
}

class FontvecFont : public testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(kSans) || !fs::exists(kMono)) GTEST_SKIP() << "no fonts";
  }
  testsupport::TempDir dir;
  std::string err() const { return dir.path() + "/err.txt"; }
};

}  // namespace

TEST_F(FontvecFont, AFontFilePrintsTheLibraryLine) {
  ToolRun r = runFontvec(kSans, err());
  EXPECT_EQ(r.status, 0) << slurp(err());
  EXPECT_EQ(countChar(r.out, '\n'), 1);
  EXPECT_EQ(countChar(r.out, ','), 57);  // 58 values
  EXPECT_EQ(r.out.find("Error"), std::string::npos);
  EXPECT_EQ(r.out.back(), '\n');
}

TEST_F(FontvecFont, CsvHasOneRowPerFontWithItsFileNameFirst) {
  ToolRun r = runFontvec("--format csv " + kSans + " " + kMono, err());
  EXPECT_EQ(r.status, 0) << slurp(err());
  std::stringstream s(r.out);
  std::string header, first, second;
  std::getline(s, header);
  std::getline(s, first);
  std::getline(s, second);
  EXPECT_EQ(header.rfind("file,AvgGreyVal,", 0), 0u) << header;
  EXPECT_EQ(first.rfind("DejaVuSans.ttf,", 0), 0u) << first;
  EXPECT_EQ(second.rfind("LiberationMono-Regular.ttf,", 0), 0u) << second;
  EXPECT_EQ(countChar(first, ','), 58);  // file name and 58 values
}

TEST_F(FontvecFont, NamesAndJsonLayOutTheSameValues) {
  ToolRun line = runFontvec(kMono, err());
  ToolRun names = runFontvec(kMono + " --names", err());
  ToolRun json = runFontvec("--format json " + kMono, err());
  ASSERT_EQ(line.status, 0);
  std::string first = line.out.substr(0, line.out.find(','));
  EXPECT_EQ(names.out.rfind("0 AvgGreyVal " + first + "\n", 0), 0u) << names.out;
  EXPECT_EQ(countChar(names.out, '\n'), 58);
  EXPECT_NE(names.out.find("\n21 isMonoSpaced 1.00000000\n"), std::string::npos);
  EXPECT_EQ(json.out.rfind("{\"file\": \"" + kMono + "\", \"AvgGreyVal\": " + first, 0), 0u)
      << json.out;
}

TEST_F(FontvecFont, AFailingFontIsReportedAndTheRunGoesOn) {
  std::string bad = dir.path() + "/not-a-font.ttf";
  std::ofstream(bad) << "plain text, no font";
  ToolRun r = runFontvec(bad + " " + kSans + " /no/such.ttf", err());
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(countChar(r.out, '\n'), 1);  // the good font's line only
  std::string e = slurp(err());
  EXPECT_NE(e.find(bad + ": Error=-1"), std::string::npos) << e;
  EXPECT_NE(e.find("/no/such.ttf: Error="), std::string::npos) << e;
  EXPECT_NE(e.find("2 of 3 fonts failed"), std::string::npos) << e;
}

TEST_F(FontvecFont, KeepImagesKeepsTheFiftyNinePictures) {
  std::string keep = dir.path() + "/kept";
  ToolRun r = runFontvec(kSans + " --keep-images " + keep, err());
  EXPECT_EQ(r.status, 0) << slurp(err());
  int count = 0;
  for (const auto& e : fs::directory_iterator(keep)) count += e.path().extension() == ".png";
  EXPECT_EQ(count, 59);
  EXPECT_TRUE(fs::exists(keep + "/font.png"));
}

TEST_F(FontvecFont, ConfigFolderWithoutScriptIsRefused) {
  ToolRun r = runFontvec("--config " + dir.path() + " " + kSans, err());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(slurp(err()).find("no Script.scr"), std::string::npos);
  r = runFontvec("--format xml " + kSans, err());
  EXPECT_EQ(r.status, 2);
}
