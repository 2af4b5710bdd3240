// The exported front door: linking, unlinking and create_feature_vector's codes.
#include "feature_vector_library.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "support/test_support.h"

namespace {

std::string semaphoreName() {
  return "/fontvec-test-" + std::to_string(getpid());
}

class FrontDoor : public testing::Test {
 protected:
  void TearDown() override { unlink_library(); }
};

}  // namespace

TEST_F(FrontDoor, LinkRefusesEmptyArgumentsAndSecondLinks) {
  EXPECT_EQ(link_library(nullptr, "/tmp"), -4);
  EXPECT_EQ(link_library(semaphoreName().c_str(), ""), -4);
  EXPECT_EQ(unlink_library(), -2);

  ASSERT_EQ(link_library(semaphoreName().c_str(), "/tmp"), 0);
  EXPECT_EQ(link_library("/fontvec-other", "/elsewhere"), -1);
  EXPECT_EQ(unlink_library(), 0);
  EXPECT_EQ(unlink_library(), -2);
  // Linking again after an unlink works.
  EXPECT_EQ(link_library(semaphoreName().c_str(), "/tmp"), 0);
}

TEST_F(FrontDoor, BadSemaphoreNameFailsToLink) {
  // A name with an inner slash is no valid POSIX semaphore name.
  testing::internal::CaptureStderr();
  EXPECT_EQ(link_library("/no/such/semaphore", "/tmp"), -3);
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("named semaphore initialization error"), std::string::npos);
  EXPECT_EQ(unlink_library(), -2);
}

TEST_F(FrontDoor, CreateChecksThePathFirstThenTheLink) {
  char result[FEATURE_VECTOR_TEXT_SIZE] = "untouched";
  EXPECT_EQ(create_feature_vector("", result), -4);
  EXPECT_EQ(create_feature_vector("/tmp", result), -3);
  EXPECT_STREQ(result, "untouched");
}

TEST_F(FrontDoor, UnreadableScriptMeasuresWhateverTheFolderHolds) {
  // Without Script.scr the renderer answers 1 like a clean run: the empty
  // Images folder is measured and refused.
  testsupport::TempDir dir;
  dir.mkdir("Images");
  ASSERT_EQ(link_library(semaphoreName().c_str(), dir.path().c_str()), 0);
  char result[FEATURE_VECTOR_TEXT_SIZE] = "";
  testing::internal::CaptureStdout();
  EXPECT_EQ(create_feature_vector(dir.path().c_str(), result), -5);
  testing::internal::GetCapturedStdout();
  EXPECT_STREQ(result, "Error=8");
}
