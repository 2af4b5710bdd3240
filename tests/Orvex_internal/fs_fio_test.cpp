// File access with the engine's codes, on real files in a temporary folder,
// and the error table's lookups.
#include "Orvex_internal/fs_fio.h"

#include <gtest/gtest.h>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "support/test_support.h"

using enginetest::Engine;
using testsupport::TempDir;

TEST(EngineFiles, OpenReadSeekAndCloseReportTheirCodes) {
  Engine e(100000);
  TempDir dir;
  testsupport::writeBytes(dir.file("ten.bin"), "0123456789");
  std::string missing = dir.file("missing.ttf");
  EXPECT_EQ(nullptr, FS_open(&e.st, missing.c_str()));
  EXPECT_EQ((FS_ULONG)ERR_FILE_OPEN, e.st.error);
  FS_FILE* fp = FS_open(&e.st, dir.file("ten.bin").c_str());
  ASSERT_NE(nullptr, fp);
  FS_BYTE buf[32] = {0};
  EXPECT_EQ(4, FS_read(&e.st, fp, buf, 4));
  EXPECT_EQ(0, FS_seek(&e.st, fp, 8, SEEK_SET));
  EXPECT_EQ(2, FS_read(&e.st, fp, buf, 20));  // short read: the count and 106
  EXPECT_EQ((FS_ULONG)ERR_FILE_READ, e.st.error);
  EXPECT_EQ('9', buf[1]);
  EXPECT_EQ(ERR_FILE_SEEK, FS_seek(&e.st, fp, -5, SEEK_SET));
  EXPECT_EQ(0, FS_close(&e.st, fp));
  EXPECT_EQ(ERR_FILE_CLOSE, FS_close(&e.st, nullptr));
}

TEST(EngineErrors, CodesHaveNamesAndMessagesFromOneTable) {
  EXPECT_STREQ("ERR_CLIENT_HAS_CHILDREN", FS_error_name(508));
  EXPECT_STREQ("client still has child clients", FS_error_message(508));
  EXPECT_STREQ("no error", FS_error_message(0));
  EXPECT_STREQ("unknown error", FS_error_message(999));
  EXPECT_EQ(nullptr, FS_error_name(999));
}
