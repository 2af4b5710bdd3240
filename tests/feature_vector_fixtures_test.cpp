// Whole vectors of real fonts' fixture folders, drawn by an independent
// renderer, spoilt one picture at a time: the vector refuses the font or
// changes only the values the picture feeds.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>

#include "feature_vector_core.h"
#include "support/test_support.h"

namespace fs = std::filesystem;

namespace {

std::string imagesOf(const std::string& font) {
  return testsupport::fixturesDir() + "/" + font + "/Images";
}

// The vector of a folder by value name; empty when the line is an error text
// (which goes to `line` when given).
std::map<std::string, double> vectorOf(const std::string& folder, std::string* line = nullptr) {
  char* text = getFeatureVector(folder.c_str(), 0, 0.0);
  std::string s = text ? text : "<null>";
  free(text);
  if (line) *line = s;
  std::map<std::string, double> values;
  if (s.find("Error") != std::string::npos) return values;
  std::stringstream in(s);
  std::string field;
  for (int i = 0; std::getline(in, field, ',') && i < FEATURE_VECTOR_LENGTH; i++)
    values[FeatureValueNames[i]] = atof(field.c_str());
  return values;
}

}  // namespace

TEST(FixtureVectors, SpoiltFoldersRefuseOrChangeOnlyWhatTheyFeed) {
  REQUIRE_FIXTURES();
  // A blank letter gives a value that is not a number: the font is refused.
  testsupport::TempDir blankDir;
  std::string blank = blankDir.file("Images");
  fs::copy(imagesOf("DejaVuSans"), blank);
  testsupport::writePicture(blank + "/75-K.png", testsupport::Picture(40, 57));
  std::string line;
  EXPECT_TRUE(vectorOf(blank, &line).empty());
  EXPECT_EQ(line, "Error=8");
  // A missing narrow string zeroes the monospacing and nothing else it reads.
  testsupport::TempDir dir;
  std::string folder = dir.file("Images");
  fs::copy(imagesOf("LiberationMono"), folder);
  fs::remove(folder + "/font_s.png");
  std::map<std::string, double> whole = vectorOf(imagesOf("LiberationMono"));
  std::map<std::string, double> spoilt = vectorOf(folder);
  ASSERT_EQ(spoilt.size(), 58u);
  EXPECT_EQ(spoilt["isMonoSpaced"], 0.0);
  EXPECT_EQ(spoilt["skew"], whole["skew"]);
  EXPECT_EQ(spoilt["XHeight"], whole["XHeight"]);
  // The stroke width is the median of the t, u, l, i and T: solid bars of 3,
  // 9, 5, 11 and 7 give 7.
  const char* letters[5] = {"116-t", "117-u", "108-l", "105-i", "84-T"};
  const int widths[5] = {3, 9, 5, 11, 7};
  for (int i = 0; i < 5; i++) {
    testsupport::Picture bar(widths[i] + 5, 45);
    bar.fillRect(2, 2, widths[i] + 1, 41);
    testsupport::writePicture(folder + "/" + letters[i] + ".png", bar);
  }
  std::map<std::string, double> bars = vectorOf(folder, &line);
  ASSERT_EQ(bars.size(), 58u) << line;
  EXPECT_EQ(bars["strokwidth"], 7.0);
}
