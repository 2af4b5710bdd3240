// Whole vectors of real fonts: the fixture folders, drawn by an independent
// renderer, must come out as the fonts are known to be (monospaced or not,
// upright or oblique, serif or sans, never blackletter).
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "feature_vector_core.h"
#include "support/test_support.h"

namespace fs = std::filesystem;

namespace {

const char* const kFonts[] = {"DejaVuSans", "DejaVuSans-Oblique",
                              "LiberationSerif", "LiberationMono"};

std::string imagesOf(const std::string& font) {
  return testsupport::fixturesDir() + "/" + font + "/Images";
}

std::string lineOf(const std::string& folder) {
  char* text = getFeatureVector(folder.c_str(), 0, 0.0);
  std::string line = text ? text : "<null>";
  free(text);
  return line;
}

// The line's values by name; empty when the line is an error text.
std::map<std::string, double> valuesOf(const std::string& line) {
  std::map<std::string, double> values;
  if (line.find("Error") != std::string::npos) return values;
  std::stringstream s(line);
  std::string field;
  for (int i = 0; std::getline(s, field, ','); i++)
    if (i < FEATURE_VECTOR_LENGTH) values[FeatureValueNames[i]] = atof(field.c_str());
  return values;
}

class FixtureVectors : public testing::Test {
 protected:
  static void SetUpTestSuite() {
        for (const char* font : kFonts) vectors()[font] = valuesOf(lineOf(imagesOf(font)));
  }
  static std::map<std::string, std::map<std::string, double>>& vectors() {
    static std::map<std::string, std::map<std::string, double>> v;
    return v;
  }
  void SetUp() override {
    REQUIRE_FIXTURES();
  }
  static double value(const std::string& font, const std::string& name) {
    return vectors()[font][name];
  }
};

}  // namespace

TEST_F(FixtureVectors, EveryFixtureGivesFiftyEightFiniteValues) {
  for (const char* font : kFonts) {
    std::string line = lineOf(imagesOf(font));
    EXPECT_EQ(line.find("Error"), std::string::npos) << font << ": " << line;
    ASSERT_EQ(vectors()[font].size(), 58u) << font;
    for (auto& v : vectors()[font])
      EXPECT_TRUE(std::isfinite(v.second)) << font << " " << v.first;
  }
}

TEST_F(FixtureVectors, OnlyTheMonospacedFontIsMonospaced) {
  EXPECT_GT(value("LiberationMono", "isMonoSpaced"), 0.95);
  for (const char* font : {"DejaVuSans", "DejaVuSans-Oblique", "LiberationSerif"})
    EXPECT_LT(value(font, "isMonoSpaced"), 0.5) << font;
}

TEST_F(FixtureVectors, TheObliqueFontLeansRightByItsItalicAngle) {
  // The oblique face's italic angle is 11 degrees, leaning right.
  double skew = value("DejaVuSans-Oblique", "skew");
  EXPECT_GT(skew, 0.0);
  EXPECT_NEAR(skew, 11.0, 3.0);
  for (const char* font : {"DejaVuSans", "LiberationSerif", "LiberationMono"}) {
    EXPECT_GE(value(font, "skew"), -2.0) << font;
    EXPECT_LE(value(font, "skew"), 2.0) << font;
  }
}

TEST_F(FixtureVectors, TheSerifFontHasMoreSerifThanTheSansFonts) {
  for (const char* font : {"DejaVuSans", "DejaVuSans-Oblique"})
    EXPECT_GT(value("LiberationSerif", "isSerifFont"), value(font, "isSerifFont"))
        << font;
}

TEST_F(FixtureVectors, NoTextFontIsBlackletter) {
  for (const char* font : kFonts)
    EXPECT_EQ(value(font, "isNotBlackLetter"), 1.0) << font;
}

namespace {

// A copy of a fixture folder to spoil.
std::string copyOfFixture(const testsupport::TempDir& dir, const char* font) {
  std::string copy = dir.file("Images");
  fs::copy(imagesOf(font), copy);
  return copy;
}

}  // namespace

TEST_F(FixtureVectors, ABlankLetterRefusesTheFont) {
  testsupport::TempDir dir;
  std::string folder = copyOfFixture(dir, "DejaVuSans");
  testsupport::writePicture(folder + "/75-K.png", testsupport::Picture(40, 57));
  EXPECT_EQ(lineOf(folder), "Error=8");
}

TEST_F(FixtureVectors, AMissingNarrowStringOnlyZeroesMonospacing) {
  testsupport::TempDir dir;
  std::string folder = copyOfFixture(dir, "LiberationMono");
  fs::remove(folder + "/font_s.png");
  std::map<std::string, double> spoiled = valuesOf(lineOf(folder));
  ASSERT_EQ(spoiled.size(), 58u);
  EXPECT_EQ(spoiled["isMonoSpaced"], 0.0);
  EXPECT_EQ(spoiled["skew"], value("LiberationMono", "skew"));
  EXPECT_EQ(spoiled["XHeight"], value("LiberationMono", "XHeight"));
}
