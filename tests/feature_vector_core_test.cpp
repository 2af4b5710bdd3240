// The vector's table, text and frame, and the validation of an image folder.
#include "feature_vector_core.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::Picture;
using testsupport::TempDir;

namespace {

struct FreeDeleter { void operator()(void* p) const { free(p); } };

std::string vectorText(const char* folder, int removeDuplicate = 0, double advance = 0.0) {
  std::unique_ptr<char, FreeDeleter> t(getFeatureVector(folder, removeDuplicate, advance));
  return t ? std::string(t.get()) : std::string("<null>");
}

std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> fields;
  std::stringstream s(line);
  std::string f;
  while (std::getline(s, f, ',')) fields.push_back(f);
  return fields;
}

}  // namespace

TEST(GetFeatureValue, OutOfRangeAndGlyphMeans) {
  FONT_DATA fd = {};
  for (int i = 0; i < GLYPH_IMAGE_COUNT; i++) fd.metrics[i].AvgGreyVal = i;  // mean 25.5
  for (int i = 0; i < TARGET_FILE_COUNT; i++) fd.featmatric[i].char_int_y = i;  // mean 4
  // No record: -1. Out of range: 0. 0 is a glyph mean, 12 a target mean.
  struct { FONT_DATA* record; int index; double expected; } rows[] = {
      {nullptr, 0, -1}, {&fd, 58, 0}, {&fd, -1, 0}, {&fd, 0, 25.5}, {&fd, 12, 4}};
  for (const auto& r : rows)
    EXPECT_EQ(GetFeatureValue(r.record, r.index), r.expected) << r.record << " " << r.index;
}

// The frozen order: each value's name is the field (or field mean) it reads.
TEST(GetFeatureValue, ValueNamesMatchTheFieldsTheyRead) {
#define F(n) {#n, &FONT_DATA::n}
  std::map<std::string, double FONT_DATA::*> fields = {
      F(str_width), F(sqrstr_width), F(corpusRatio), F(isSerifFont), F(isSymbolFont),
      F(strokwidth), F(SymbolContrast), F(skew), F(isMonoSpaced), F(XHeight), F(CapHeight),
      F(Contrast), F(AvgGreyString), F(isAllCaps), F(fillFactor), F(isStencilFont),
      F(isNotBlackLetter), F(isDigitalFont), F(getAvggreyStdDev), F(isHollow),
      F(isConnected), F(stressAngle), F(isTwostoryag), F(isFreeHand), F(isDarkPix),
      F(edginess), F(SelCurviness), F(x2AscenderHeight), F(Cap2AscHeight),
      F(counterOpenness), F(e_slantAngle), F(subSerifType), F(squareness_O),
      F(advancedWidth), F(roundness_of_dots), F(WedgeSerifStdDevTop),
      F(WedgeSerifStdDevBottom), F(WedgeSerifAngleTop), F(WedgeSerifAngleBottom),
      F(AscenderStddevSerif), F(CloseCounter), F(SubSerifGreyNess), F(FlareStemNess)};
#undef F
#define F(n) {#n, &_METRICS::n}
  std::map<std::string, double _METRICS::*> glyphFields = {
      F(AvgGreyVal), F(COGX), F(COGY), F(avgX), F(avgY), F(curviness), F(aspectRatio),
      F(dir0), F(dir45), F(dir90), F(dir135), F(WidthhistNumber), F(HeighthistNumber)};
#undef F
  std::map<std::string, double _FEATMETRIC::*> targetFields = {
      {"char_int_x", &_FEATMETRIC::char_int_x}, {"char_int_y", &_FEATMETRIC::char_int_y}};
  ASSERT_EQ(fields.size() + glyphFields.size() + targetFields.size(), 58u);

  // Every field a distinct value: 100 + its rank among the names.
  FONT_DATA fd = {};
  double v = 100.0;
  std::map<std::string, double> given;
  for (auto& f : fields) fd.*(f.second) = given[f.first] = v++;
  for (auto& f : glyphFields) {
    for (auto& m : fd.metrics) m.*(f.second) = v;
    given[f.first] = v++;
  }
  for (auto& f : targetFields) {
    for (auto& m : fd.featmatric) m.*(f.second) = v;
    given[f.first] = v++;
  }
  for (int i = 0; i < FEATURE_VECTOR_LENGTH; i++) {
    ASSERT_TRUE(given.count(FeatureValueNames[i])) << FeatureValueNames[i];
    EXPECT_DOUBLE_EQ(GetFeatureValue(&fd, i), given[FeatureValueNames[i]])
        << "index " << i << " " << FeatureValueNames[i];
  }
  // The ends of the frozen order, pinned by hand.
  EXPECT_STREQ(FeatureValueNames[0], "AvgGreyVal");
  EXPECT_STREQ(FeatureValueNames[57], "FlareStemNess");
}

TEST(GetFeatureVector, RefusesNoFolder) {
  int error = 0;
  double checksum = 5.0;
  EXPECT_EQ(GetFontFeatureVector(nullptr, &error, &checksum, 0.0), nullptr);
  EXPECT_EQ(error, 1);
  EXPECT_EQ(vectorText(nullptr), "Error=1");
}

// A real font's picture folder, for the tests of the text's form.
class MeasuredFolder : public testing::Test {
 protected:
  void SetUp() override {
    REQUIRE_FIXTURES();
    folder_ = testsupport::fixturesDir() + "/LiberationSerif/Images";
  }
  const char* folder() const { return folder_.c_str(); }
  std::string folder_;
};

TEST_F(MeasuredFolder, LineIsFiftyEightFixedPointValuesAfterAnOptionalChecksum) {
  std::string line = vectorText(folder(), 0, 1.5);
  ASSERT_EQ(line.back(), '\n');
  std::vector<std::string> fields = split(line.substr(0, line.size() - 1));
  ASSERT_EQ(fields.size(), 58u);
  for (const std::string& f : fields) EXPECT_EQ(f.size() - f.find('.') - 1, 8u) << f;
  EXPECT_EQ(fields[47], "1.50000000");
  EXPECT_EQ(vectorText(folder(), 2, 1.5), line);  // RemoveDuplicateFont 2 is 0

  // With 1, a checksum column of ten decimals leads: the mean of the 58 values.
  std::string checked = vectorText(folder(), 1, 1.5);
  std::vector<std::string> all = split(checked);
  ASSERT_EQ(all.size(), 59u);
  EXPECT_EQ(all[0].size() - all[0].find('.') - 1, 10u);
  EXPECT_EQ(checked.substr(checked.find(',') + 1), line);
  double sum = 0.0;
  for (size_t i = 1; i < all.size(); i++) sum += atof(all[i].c_str());
  EXPECT_NEAR(atof(all[0].c_str()), sum / 58.0, 1e-8);

  // Infinity is printed; a not-a-number value refuses the font (blank letters).
  EXPECT_EQ(split(vectorText(folder(), 0, INFINITY))[47], "inf");
}

TEST(ValidateImages, AllFiftyFourPicturesMustHoldInk) {
  std::vector<std::string> names = {"104-hlar", "111-olar"};
  for (int c = 'A'; c <= 'z'; c = c == 'Z' ? 'a' : c + 1)
    names.push_back(std::to_string(c) + "-" + (char)c);
  ASSERT_EQ(names.size(), 54u);
  TempDir dir;
  Picture glyph(8, 8);
  glyph.fillRect(2, 2, 5, 5);
  for (const std::string& name : names) testsupport::writePicture(dir.file(name + ".png"), glyph);
  EXPECT_EQ(validateImages(dir.path().c_str()), 0);
  // The last name checked blank: the folder fails.
  testsupport::writePicture(dir.file("111-olar.png"), Picture(8, 8));
  EXPECT_EQ(validateImages(dir.path().c_str()), 1);
}
