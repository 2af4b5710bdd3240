// Vectors of fixture folders with pictures replaced: refused, or following.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "feature_vector_core.h"
#include "image_operations/image_access.h"
#include "support/test_support.h"

namespace fs = std::filesystem;

namespace {

std::string imagesOf(const std::string& font) {
  return testsupport::fixturesDir() + "/" + font + "/Images";
}

// The vector by value name; empty for an error text (given back in `line`).
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

TEST(FixtureVectors, ABlankLetterRefusesTheFontAndStemBarsSetTheStrokeWidth) {
  REQUIRE_FIXTURES();
  // A blank letter gives a value that is not a number: the font is refused.
  testsupport::TempDir blankDir;
  std::string blank = blankDir.file("Images");
  fs::copy(imagesOf("DejaVuSans"), blank);
  testsupport::writePicture(blank + "/75-K.png", testsupport::Picture(40, 57));
  std::string line;
  EXPECT_TRUE(vectorOf(blank, &line).empty());
  EXPECT_EQ(line, "Error=8");
  // The stroke width is the median of t, u, l, i, T: bars 3, 9, 5, 11, 7 give 7.
  testsupport::TempDir dir;
  std::string folder = dir.file("Images");
  fs::copy(imagesOf("LiberationMono"), folder);
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

// A measurement run decodes each picture once; with that cache off every
// measurement decodes its own: the vector text is the same byte for byte.
TEST(FixtureVectors, TheRunCacheLeavesEveryVectorByteForByte) {
  REQUIRE_FIXTURES();
  for (const char* font :
       {"DejaVuSans", "DejaVuSans-Oblique", "LiberationMono", "LiberationSerif"}) {
    std::string cached, decoded;
    vectorOf(imagesOf(font) + "/", &cached);
    setPictureRunCache(false);
    vectorOf(imagesOf(font) + "/", &decoded);
    setPictureRunCache(true);
    EXPECT_EQ(cached.find("Error"), std::string::npos) << font << cached;
    EXPECT_EQ(cached, decoded) << font;
  }
}

// Measuring keeps its state local: eight threads measuring the four
// fixture folders side by side (two threads a folder) give the serial texts.
TEST(FixtureVectors, EightThreadsMeasureTheSerialVectors) {
  REQUIRE_FIXTURES();
  const char* const fonts[4] = {"DejaVuSans", "DejaVuSans-Oblique", "LiberationMono",
                                "LiberationSerif"};
  std::string serial[4], parallel[8];
  for (int f = 0; f < 4; f++) vectorOf(imagesOf(fonts[f]) + "/", &serial[f]);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; i++)
    threads.emplace_back([&, i]() { vectorOf(imagesOf(fonts[i % 4]) + "/", &parallel[i]); });
  for (std::thread& t : threads) t.join();
  for (int i = 0; i < 8; i++) EXPECT_EQ(parallel[i], serial[i % 4]) << fonts[i % 4];
}
