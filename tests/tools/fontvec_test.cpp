// fontvec as a person runs it: the real binary, its output and exit codes.
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/wait.h>

#include <string>

#include "support/test_support.h"

namespace {

struct ToolRun {
  int status;
  std::string out;
};

// Runs fontvec with the given arguments; standard error goes to `errFile`
// when given, else is discarded.
ToolRun fontvec(const std::string& args, const std::string& errFile = "") {
  std::string command = std::string(FONTVEC_EXE) + " " + args + " 2>" +
                        (errFile.empty() ? "/dev/null" : errFile);
  FILE* p = popen(command.c_str(), "r");
  ToolRun r{-1, ""};
  if (p == nullptr) return r;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, p)) > 0) r.out.append(buffer, n);
  int status = pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

int countFields(const std::string& line) {
  int fields = 1;
  for (char c : line) fields += c == ',';
  return fields;
}

}  // namespace

TEST(FontvecMeasure, FixtureFoldersGiveTheLibraryLine) {
  if (!testsupport::haveFixtures()) GTEST_SKIP() << "no fixture folders";
  for (const char* font :
       {"DejaVuSans", "DejaVuSans-Oblique", "LiberationSerif", "LiberationMono"}) {
    std::string folder = testsupport::fixturesDir() + "/" + font + "/Images";
    ToolRun plain = fontvec("measure " + folder);
    EXPECT_EQ(plain.status, 0) << font;
    ASSERT_FALSE(plain.out.empty());
    EXPECT_EQ(countFields(plain.out), 58) << font;
    EXPECT_EQ(plain.out.back(), '\n');
    EXPECT_EQ(plain.out.find('\n'), plain.out.size() - 1);

    ToolRun sum = fontvec("measure --checksum " + folder);
    EXPECT_EQ(sum.status, 0);
    EXPECT_EQ(countFields(sum.out), 59) << font;
    EXPECT_EQ(sum.out.substr(sum.out.find(',') + 1), plain.out);
  }
}

TEST(FontvecMeasure, BadFoldersAndUsageFail) {
  testsupport::TempDir dir;
  std::string err = dir.file("err.txt");
  ToolRun missing = fontvec("measure " + dir.file("absent"), err);
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "");
  EXPECT_NE(testsupport::readBytes(err).find("not a folder"), std::string::npos);

  EXPECT_EQ(fontvec("measure").status, 2);
  EXPECT_EQ(fontvec("measure --bogus " + dir.path()).status, 2);
  EXPECT_EQ(fontvec("measure a b").status, 2);
  EXPECT_EQ(fontvec("no-such-command").status, 2);
}

TEST(FontvecHelp, ListsTheCommands) {
  ToolRun help = fontvec("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("usage: fontvec"), std::string::npos);
  EXPECT_NE(help.out.find("measure"), std::string::npos);
}
