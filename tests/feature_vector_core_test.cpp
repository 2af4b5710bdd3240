// The vector's table, text and frame, and the validation of an image folder.
#include "feature_vector_core.h"

#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/test_support.h"

using testsupport::Picture;
using testsupport::TempDir;

namespace {

struct FreeDeleter {
  void operator()(void* p) const { free(p); }
};
using Text = std::unique_ptr<char, FreeDeleter>;

std::string vectorText(const char* folder, int removeDuplicate = 0,
                       double advance = 0.0) {
  Text t(getFeatureVector(folder, removeDuplicate, advance));
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

TEST(GetFeatureValue, NullRecordAndOutOfRangeIndices) {
  FONT_DATA fd = {};
  fd.skew = 3.0;
  EXPECT_EQ(GetFeatureValue(nullptr, 0), -1.0);
  EXPECT_EQ(GetFeatureValue(nullptr, 58), -1.0);
  EXPECT_EQ(GetFeatureValue(nullptr, -1), -1.0);
  EXPECT_EQ(GetFeatureValue(&fd, 58), 0.0);
  EXPECT_EQ(GetFeatureValue(&fd, -1), 0.0);
  EXPECT_EQ(GetFeatureValue(&fd, 22), 3.0);
}

TEST(GetFeatureValue, GlyphRowsAreMeansOverAllRecords) {
  FONT_DATA fd = {};
  for (int i = 0; i < GLYPH_IMAGE_COUNT; i++) {
    fd.metrics[i].AvgGreyVal = i;          // 0..51: mean 25.5
    fd.metrics[i].WidthhistNumber = 52.0 * (i == 7);  // one 52: mean 1
  }
  for (int i = 0; i < TARGET_FILE_COUNT; i++)
    fd.featmatric[i].char_int_y = i;      // 0..8: mean 4
  fd.metrics[0].int_x = 1e9;              // never part of the vector
  EXPECT_EQ(GetFeatureValue(&fd, 0), 25.5);
  EXPECT_EQ(GetFeatureValue(&fd, 14), 1.0);
  EXPECT_EQ(GetFeatureValue(&fd, 12), 4.0);
  EXPECT_EQ(GetFeatureValue(&fd, 11), 0.0);
  for (int i = 0; i < FEATURE_VECTOR_LENGTH; i++)
    EXPECT_LT(GetFeatureValue(&fd, i), 1e8) << i;
}

// The frozen order, field by field: every value name names the record field
// (or the glyph-record field whose mean it is) that the value comes from.
TEST(GetFeatureValue, ValueNamesMatchTheFieldsTheyRead) {
  FONT_DATA fd = {};
  std::map<std::string, double FONT_DATA::*> fields = {
      {"str_width", &FONT_DATA::str_width},
      {"sqrstr_width", &FONT_DATA::sqrstr_width},
      {"corpusRatio", &FONT_DATA::corpusRatio},
      {"isSerifFont", &FONT_DATA::isSerifFont},
      {"isSymbolFont", &FONT_DATA::isSymbolFont},
      {"strokwidth", &FONT_DATA::strokwidth},
      {"SymbolContrast", &FONT_DATA::SymbolContrast},
      {"skew", &FONT_DATA::skew},
      {"isMonoSpaced", &FONT_DATA::isMonoSpaced},
      {"XHeight", &FONT_DATA::XHeight},
      {"CapHeight", &FONT_DATA::CapHeight},
      {"Contrast", &FONT_DATA::Contrast},
      {"AvgGreyString", &FONT_DATA::AvgGreyString},
      {"isAllCaps", &FONT_DATA::isAllCaps},
      {"fillFactor", &FONT_DATA::fillFactor},
      {"isStencilFont", &FONT_DATA::isStencilFont},
      {"isNotBlackLetter", &FONT_DATA::isNotBlackLetter},
      {"isDigitalFont", &FONT_DATA::isDigitalFont},
      {"getAvggreyStdDev", &FONT_DATA::getAvggreyStdDev},
      {"isHollow", &FONT_DATA::isHollow},
      {"isConnected", &FONT_DATA::isConnected},
      {"stressAngle", &FONT_DATA::stressAngle},
      {"isTwostoryag", &FONT_DATA::isTwostoryag},
      {"isFreeHand", &FONT_DATA::isFreeHand},
      {"isDarkPix", &FONT_DATA::isDarkPix},
      {"edginess", &FONT_DATA::edginess},
      {"SelCurviness", &FONT_DATA::SelCurviness},
      {"x2AscenderHeight", &FONT_DATA::x2AscenderHeight},
      {"Cap2AscHeight", &FONT_DATA::Cap2AscHeight},
      {"counterOpenness", &FONT_DATA::counterOpenness},
      {"e_slantAngle", &FONT_DATA::e_slantAngle},
      {"subSerifType", &FONT_DATA::subSerifType},
      {"squareness_O", &FONT_DATA::squareness_O},
      {"advancedWidth", &FONT_DATA::advancedWidth},
      {"roundness_of_dots", &FONT_DATA::roundness_of_dots},
      {"WedgeSerifStdDevTop", &FONT_DATA::WedgeSerifStdDevTop},
      {"WedgeSerifStdDevBottom", &FONT_DATA::WedgeSerifStdDevBottom},
      {"WedgeSerifAngleTop", &FONT_DATA::WedgeSerifAngleTop},
      {"WedgeSerifAngleBottom", &FONT_DATA::WedgeSerifAngleBottom},
      {"AscenderStddevSerif", &FONT_DATA::AscenderStddevSerif},
      {"CloseCounter", &FONT_DATA::CloseCounter},
      {"SubSerifGreyNess", &FONT_DATA::SubSerifGreyNess},
      {"FlareStemNess", &FONT_DATA::FlareStemNess}};
  std::map<std::string, double _METRICS::*> glyphFields = {
      {"AvgGreyVal", &_METRICS::AvgGreyVal}, {"COGX", &_METRICS::COGX},
      {"COGY", &_METRICS::COGY}, {"avgX", &_METRICS::avgX},
      {"avgY", &_METRICS::avgY}, {"curviness", &_METRICS::curviness},
      {"aspectRatio", &_METRICS::aspectRatio}, {"dir0", &_METRICS::dir0},
      {"dir45", &_METRICS::dir45}, {"dir90", &_METRICS::dir90},
      {"dir135", &_METRICS::dir135},
      {"WidthhistNumber", &_METRICS::WidthhistNumber},
      {"HeighthistNumber", &_METRICS::HeighthistNumber}};
  std::map<std::string, double _FEATMETRIC::*> targetFields = {
      {"char_int_x", &_FEATMETRIC::char_int_x},
      {"char_int_y", &_FEATMETRIC::char_int_y}};
  ASSERT_EQ(fields.size() + glyphFields.size() + targetFields.size(), 58u);

  // Give every field a distinct value: 100 + its rank among the names.
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
  // A few places of the frozen order, pinned by hand.
  EXPECT_STREQ(FeatureValueNames[0], "AvgGreyVal");
  EXPECT_STREQ(FeatureValueNames[22], "skew");
  EXPECT_STREQ(FeatureValueNames[47], "advancedWidth");
  EXPECT_STREQ(FeatureValueNames[57], "FlareStemNess");
}

TEST(GetFontFeatureVector, NullFolderGivesNullAndErrorOne) {
  int error = 0;
  double checksum = 5.0;
  EXPECT_EQ(GetFontFeatureVector(nullptr, &error, &checksum, 0.0), nullptr);
  EXPECT_EQ(error, 1);
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

TEST_F(MeasuredFolder, ChecksumIsTheMeanAndTheAdvanceSpreadIsValue47) {
  int error = 0;
  double checksum = 123.0;
  std::unique_ptr<double, FreeDeleter> values(
      GetFontFeatureVector(folder(), &error, &checksum, 29.0));
  ASSERT_NE(values, nullptr);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(values.get()[47], 29.0);
  double sum = 0.0;
  for (int i = 0; i < 58; i++) sum += values.get()[i];
  EXPECT_DOUBLE_EQ(checksum, sum / 58.0);
}

TEST(GetFeatureVector, NullFolderIsErrorOne) {
  EXPECT_EQ(vectorText(nullptr), "Error=1");
}

TEST(GetFeatureVector, AFolderWithoutPicturesIsRefused) {
  // With no pictures the measurements give their failure values, and some
  // combinations of them (0 / 0 in the connectedness) are not numbers.
  TempDir dir;
  EXPECT_EQ(vectorText(dir.path().c_str()), "Error=8");
}

TEST_F(MeasuredFolder, LineIsFiftyEightFixedPointValues) {
  std::string line = vectorText(folder(), 0, 1.5);
  ASSERT_EQ(line.back(), '\n');
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  EXPECT_EQ(line.find(' '), std::string::npos);
  std::vector<std::string> fields = split(line.substr(0, line.size() - 1));
  ASSERT_EQ(fields.size(), 58u);
  for (const std::string& f : fields) {
    size_t point = f.find('.');
    ASSERT_NE(point, std::string::npos) << f;
    EXPECT_EQ(f.size() - point - 1, 8u) << f;  // eight decimals
  }
  EXPECT_EQ(fields[47], "1.50000000");
  // RemoveDuplicateFont other than 1 is like 0.
  EXPECT_EQ(vectorText(folder(), 2, 1.5), line);
}

TEST_F(MeasuredFolder, ChecksumColumnLeadsWhenAsked) {
  std::string plain = vectorText(folder());
  std::string line = vectorText(folder(), 1);
  std::vector<std::string> fields = split(line);
  ASSERT_EQ(fields.size(), 59u);
  size_t point = fields[0].find('.');
  EXPECT_EQ(fields[0].size() - point - 1, 10u);  // ten decimals
  EXPECT_EQ(line.substr(line.find(',') + 1), plain);
  // The column is the mean of the 58 printed values, to their precision.
  double sum = 0.0;
  for (size_t i = 1; i < fields.size(); i++) sum += atof(fields[i].c_str());
  EXPECT_NEAR(atof(fields[0].c_str()), sum / 58.0, 1e-8);
}

TEST_F(MeasuredFolder, NotANumberAnywhereGivesErrorEightAlone) {
  EXPECT_EQ(vectorText(folder(), 0, NAN), "Error=8");
  EXPECT_EQ(vectorText(folder(), 1, NAN), "Error=8");
}

TEST_F(MeasuredFolder, InfinityIsPrintedNotRefused) {
  std::vector<std::string> fields = split(vectorText(folder(), 0, INFINITY));
  ASSERT_EQ(fields.size(), 58u);
  EXPECT_EQ(fields[47], "inf");
}

TEST_F(MeasuredFolder, ThousandFoldersAnnounceThemselves) {
  TempDir dir;
  std::string numbered = dir.file("1000");
  std::filesystem::copy(folder_, numbered);
  testing::internal::CaptureStdout();
  std::string line = vectorText(numbered.c_str());
  std::string out = testing::internal::GetCapturedStdout();
  // The first value in the stream's default form (six significant digits).
  std::ostringstream first;
  first << atof(line.c_str());
  EXPECT_EQ(out, "\nGot Path: " + numbered + "\n\n" + first.str() + "FeatArray\n");

  testing::internal::CaptureStdout();
  vectorText(folder());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(ValidateImages, AllFiftyFourPicturesMustHoldInk) {
  static const char* const names[54] = {
      "65-A", "66-B", "67-C", "68-D", "69-E", "70-F", "71-G", "72-H", "73-I",
      "74-J", "75-K", "76-L", "77-M", "78-N", "79-O", "80-P", "81-Q", "82-R",
      "83-S", "84-T", "85-U", "86-V", "87-W", "88-X", "89-Y", "90-Z", "97-a",
      "98-b", "99-c", "100-d", "101-e", "102-f", "103-g", "104-h", "105-i",
      "106-j", "107-k", "108-l", "109-m", "110-n", "111-o", "112-p", "113-q",
      "114-r", "115-s", "116-t", "117-u", "118-v", "119-w", "120-x", "121-y",
      "122-z", "104-hlar", "111-olar"};
  TempDir dir;
  EXPECT_EQ(validateImages(dir.path().c_str()), 1);  // nothing there

  Picture glyph(8, 8);
  glyph.fillRect(2, 2, 5, 5);
  for (const char* name : names)
    testsupport::writePicture(dir.file(std::string(name) + ".png"), glyph);
  EXPECT_EQ(validateImages(dir.path().c_str()), 0);

  // The last name blank: still checked, and the folder fails.
  testsupport::writePicture(dir.file("111-olar.png"), Picture(8, 8));
  EXPECT_EQ(validateImages(dir.path().c_str()), 1);
}

TEST(Sort, OrdersDoublesAscending) {
  double values[] = {3.5, -1.0, 2.0, 2.0, 0.0};
  qsort(values, 5, sizeof(double), sort);
  EXPECT_EQ(values[0], -1.0);
  EXPECT_EQ(values[1], 0.0);
  EXPECT_EQ(values[2], 2.0);
  EXPECT_EQ(values[4], 3.5);
  double a = 1.0, b = 2.0;
  EXPECT_EQ(sort(&a, &b), -1);
  EXPECT_EQ(sort(&b, &a), 1);
  EXPECT_EQ(sort(&a, &a), 0);
}
