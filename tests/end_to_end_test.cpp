// A font file becomes its feature vector: the render driver with the shipped
// Script.scr on Debian fonts, the front door's codes, the lock.
#include <fcntl.h>
#include <stdlib.h>
#include <gtest/gtest.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Orvex_internal/orvextxt.h"
#include "feature_vector_core.h"
#include "feature_vector_library.h"
#include "support/test_support.h"

namespace fs = std::filesystem;

extern "C" sem_t* _named_semaphore_Orvex;  // the door's lock

namespace {

const std::string kFontDir = "/usr/share/fonts/truetype/";
const std::string kDejaVu = kFontDir + "dejavu/DejaVuSans.ttf";
const std::string kMono = kFontDir + "liberation2/LiberationMono-Regular.ttf";

// The shipped configuration folder of this source tree.
std::string configDir() {
  return (fs::path(__FILE__).parent_path().parent_path() / "config").string();
}

// A font folder as the door expects it: font.ttf (a copy of `font`) and an
// empty Images/ beside it; a missing font fails the calling test, named.
std::string fontFolder(const testsupport::TempDir& dir, const std::string& name,
                       const std::string& font) {
  std::string folder = dir.mkdir(name);
  if (!font.empty()) {  // "" makes a folder without a font
    EXPECT_TRUE(fs::is_regular_file(font)) << "missing packaged font " << font;
    if (fs::is_regular_file(font)) fs::copy_file(font, folder + "/font.ttf");
  }
  fs::create_directory(folder + "/Images");
  return folder;
}

std::string semaphoreName(const char* tag, pid_t owner = getpid()) {
  return std::string("/fontvec-e2e-") + tag + "-" + std::to_string(owner);
}

// The door's answer for a folder, as text, and its code in *code.
std::string vectorOf(const std::string& folder, int* code = nullptr) {
  char result[FEATURE_VECTOR_TEXT_SIZE] = {0};
  testing::internal::CaptureStdout();  // the renderer's engine reports
  int c = create_feature_vector(folder.c_str(), result);
  testing::internal::GetCapturedStdout();
  if (code != nullptr) *code = c;
  return result;
}

class Linked : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(link_library(semaphoreName("door").c_str(), configDir().c_str()), 0);
  }
  void TearDown() override { unlink_library(); }
  testsupport::TempDir dir;
};

TEST(RenderDriver, ACleanRunAnswersOneAndFillsImages) {
  testsupport::TempDir dir;
  std::string folder = fontFolder(dir, "f", kDejaVu);
  double spread = -1.0;
  // 1 is the clean answer: the font folder itself holds no pictures.
  EXPECT_EQ(create_images_from_font(configDir().c_str(), folder.c_str(), &spread), 1);
  EXPECT_EQ(GlyphCreationError, 0);
  EXPECT_EQ(err_FD, 0);
  // The 54 pictures validation asks for, of 59: font, font_b, font_s, 52
  // letters, ., 0 and the two large ones.
  EXPECT_EQ(validateImages((folder + "/Images").c_str()), 0);
  int count = 0;
  for (const auto& entry : fs::directory_iterator(folder + "/Images"))
    count += entry.path().extension() == ".png";
  EXPECT_EQ(count, 59);
}

TEST(RenderDriver, AMissingScriptOrFontIsReportedByValue) {
  testsupport::TempDir dir;
  std::string folder = fontFolder(dir, "f", kDejaVu);
  std::string noconfig = dir.mkdir("noconfig"), nofont = fontFolder(dir, "nofont", "");
  double spread = 7.0;
  EXPECT_EQ(create_images_from_font(noconfig.c_str(), folder.c_str(), &spread), 1);
  EXPECT_EQ(spread, 7.0);  // left as it was
  EXPECT_EQ(create_images_from_font(configDir().c_str(), nofont.c_str(), &spread), 102);
}

TEST_F(Linked, FoldersWithoutTheFontOrWithPicturesBesideItGiveErrorMinusOne) {
  dir.mkdir("Images");
  int code = 0;
  EXPECT_EQ(vectorOf(dir.path(), &code), "Error=-1");
  EXPECT_EQ(code, -5);
  // Validation looks at the font folder itself: finding all 54 pictures
  // there answers 0, and 0 is no licence to measure.
  std::string folder = fontFolder(dir, "f", kDejaVu);
  std::string line = vectorOf(folder);
  ASSERT_EQ(line.find("Error"), std::string::npos) << line;
  size_t at = 0;  // value 47, advancedWidth: the renderer's advance spread, handed on
  for (int i = 0; i < 47; i++) at = line.find(',', at) + 1;
  EXPECT_GT(atof(line.c_str() + at), 0.0);
  for (const auto& entry : fs::directory_iterator(folder + "/Images"))
    fs::copy_file(entry.path(), folder + "/" + entry.path().filename().string());
  code = 0;
  EXPECT_EQ(vectorOf(folder, &code), "Error=-1");
  EXPECT_EQ(code, -5);
}

// The values of a vector line by their names.
std::map<std::string, double> valuesOf(const std::string& line) {
  std::map<std::string, double> values;
  std::stringstream s(line);
  std::string field;
  for (int i = 0; std::getline(s, field, ',') && i < FEATURE_VECTOR_LENGTH; i++)
    values[FeatureValueNames[i]] = atof(field.c_str());
  return values;
}

// The whole chain on four fonts whose designs are known: only the mono is
// monospaced, only the oblique leans (italic angle -11 degrees), the serif
// has the most serif, none is blackletter.
TEST_F(Linked, RealFontsGiveVectorsWithTheirKnownDesigns) {
  REQUIRE_FIXTURES();
  const struct { const char* name; std::string font; bool mono, oblique; const char* fixture; } fonts[] = {
      {"sans", kDejaVu, false, false, "DejaVuSans"},
      {"oblique", kFontDir + "dejavu/DejaVuSans-Oblique.ttf", false, true, "DejaVuSans-Oblique"},
      {"serif", kFontDir + "liberation2/LiberationSerif-Regular.ttf", false, false, "LiberationSerif"},
      {"mono", kMono, true, false, "LiberationMono"}};
  std::map<std::string, std::map<std::string, double>> v;
  for (const auto& f : fonts) {
    std::string line = vectorOf(fontFolder(dir, f.name, f.font));
    ASSERT_EQ(line.find("Error"), std::string::npos) << f.name << ": " << line;
    v[f.name] = valuesOf(line);
    ASSERT_EQ(v[f.name].size(), 58u);
    for (const auto& value : v[f.name])
      EXPECT_TRUE(std::isfinite(value.second)) << f.name << " " << value.first;
  }
  for (const auto& f : fonts) {
    std::map<std::string, double>& x = v[f.name];
    EXPECT_EQ(x["isNotBlackLetter"], 1.0) << f.name;
    if (f.mono) {
      EXPECT_GT(x["isMonoSpaced"], 0.95);
      EXPECT_EQ(x["advancedWidth"], 0.0);  // every advance equals the mean
    } else {
      EXPECT_LT(x["isMonoSpaced"], 0.5) << f.name;
    }
    if (f.oblique) { EXPECT_NEAR(x["skew"], 11.0, 3.0); }
    else { EXPECT_LE(fabs(x["skew"]), 2.0) << f.name; }
    if (std::string(f.name) != "serif") { EXPECT_GT(v["serif"]["isSerifFont"], x["isSerifFont"]) << f.name; }
    // Drawn hinted, heights are those of the fixture pictures, which
    // libfreetype's default hinting draws with y on the grid (unhinted
    // they stood a pixel taller).
    char* text = getFeatureVector((testsupport::fixturesDir() + "/" + f.fixture + "/Images").c_str(), 0, 0.0);
    std::map<std::string, double> fixture = valuesOf(text);
    free(text);
    for (const char* name : {"CapHeight", "XHeight"}) EXPECT_EQ(fixture[name], x[name]) << f.name << " " << name;
    for (const char* name : {"x2AscenderHeight", "Cap2AscHeight"})
      EXPECT_NEAR(fixture[name], x[name], 0.005) << f.name << " " << name;
  }
}

TEST_F(Linked, EightThreadsGiveTheSerialVectors) {
  const int kThreads = 8;
  std::vector<std::string> folders;
  for (int i = 0; i < kThreads; i++)
    folders.push_back(fontFolder(dir, "t" + std::to_string(i), kDejaVu));
  std::string serial = vectorOf(fontFolder(dir, "serial", kDejaVu));
  ASSERT_EQ(serial.find("Error"), std::string::npos) << serial;
  std::vector<std::string> results(kThreads);
  std::vector<int> codes(kThreads, 1);
  testing::internal::CaptureStdout();
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; i++)
    threads.emplace_back([&, i]() {
      char result[FEATURE_VECTOR_TEXT_SIZE];
      codes[i] = create_feature_vector(folders[i].c_str(), result);
      results[i] = result;
    });
  for (std::thread& t : threads) t.join();
  testing::internal::GetCapturedStdout();
  for (int i = 0; i < kThreads; i++) {
    EXPECT_EQ(codes[i], 0) << i;
    EXPECT_EQ(results[i], serial) << i;
  }
}

TEST(FrontDoorDeath, AFolderWithoutImagesEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  testsupport::TempDir dir;
  std::string folder = dir.mkdir("f");
  ASSERT_TRUE(fs::is_regular_file(kDejaVu)) << kDejaVu;
  fs::copy_file(kDejaVu, folder + "/font.ttf");
  auto run = [&]() {
    // Named after the test process (the death test's parent), which removes
    // the semaphore the ended child could not.
    link_library(semaphoreName("death", getppid()).c_str(), configDir().c_str());
    char result[FEATURE_VECTOR_TEXT_SIZE];
    create_feature_vector(folder.c_str(), result);
    unlink_library();
    exit(0);
  };
  // The first page cannot be opened: the page writer ends the process with
  // exit(-1), status 255 (a leak checker at exit may report its own status).
  EXPECT_EXIT(run(), [](int status) { return WIFEXITED(status) && WEXITSTATUS(status) != 0; },
              "Cannot open output png file");
  sem_unlink(semaphoreName("death").c_str());
}

TEST(FrontDoorLock, ASemaphoreLeftByAKilledHolderDoesNotBlock) {
  std::string name = semaphoreName("killed");
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // Link and take the lock, then die holding it.
    if (link_library(name.c_str(), configDir().c_str()) != 0) _exit(3);
    sem_wait(_named_semaphore_Orvex);
    kill(getpid(), SIGKILL);
    _exit(4);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
  sem_t* left = sem_open(name.c_str(), 0);  // the count is left at 0
  ASSERT_NE(left, SEM_FAILED);
  EXPECT_EQ(sem_trywait(left), -1);
  sem_close(left);

  testsupport::TempDir dir;
  std::string folder = fontFolder(dir, "f", kDejaVu);
  ASSERT_EQ(link_library(name.c_str(), configDir().c_str()), 0);
  int code = 1;
  std::string result = vectorOf(folder, &code);
  EXPECT_EQ(code, 0) << result;
  EXPECT_EQ(unlink_library(), 0);
}

}  // namespace
