// The scaler's arithmetic and checks: the three scaling functions, the
// decomposition and italicising of a scale, the limits of check_scale, and
// the scaled environment a real font gets.
#include <gtest/gtest.h>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/scaled_font.h"

namespace {

const FS_FIXED ONE = 65536;

TEST(ComputeScaling, PowerOfTwoEmShiftsAndRoundsHalvesUp) {
  // 12 ppem at 2048 units: N = 12 << 16 and D = 2048 << 16 share 18 low
  // zeros; 17 go, leaving N = 6, D = 1024; N x 64 = 384. D is 2^10.
  scale_rec r;
  compute_scaling(&r, 12 * ONE, 2048);
  EXPECT_EQ(0, r.fn);
  EXPECT_EQ(384, r.N);
  EXPECT_EQ(1024, r.D);
  EXPECT_EQ(10, r.shift);
  EXPECT_EQ(2, scale_value(&r, 4));    // 1.5 -> 2
  EXPECT_EQ(-1, scale_value(&r, -4));  // -1.5 -> -1: the shift rounds up
  EXPECT_EQ(768, scale_value(&r, 2048));
}

TEST(ComputeScaling, OtherEmsDivideOnMagnitudesOrMultiply) {
  // 10 ppem at 1000 units: 17 common zeros, 16 go: N = 10, D = 1000;
  // N x 64 = 640, D no power of 2: (|v| 640 + 500) / 1000, signed.
  scale_rec r;
  compute_scaling(&r, 10 * ONE, 1000);
  EXPECT_EQ(1, r.fn);
  EXPECT_EQ(640, r.N);
  EXPECT_EQ(1000, r.D);
  EXPECT_EQ(64, scale_value(&r, 100));
  EXPECT_EQ(-2, scale_value(&r, -3));   // 1.92 + 0.5, truncated
  EXPECT_EQ(-16, scale_value(&r, -25)); // exactly -25 x 0.64

  // 1500 ppem at 1000 units: 18 common zeros, 17 go: N = 750, D = 500;
  // N x 64 = 48000 > 32767: scl = 96.0 and function 2.
  compute_scaling(&r, 1500 * ONE, 1000);
  EXPECT_EQ(2, r.fn);
  EXPECT_EQ(96 * ONE, r.scl);
  EXPECT_EQ(288, scale_value(&r, 3));
}

TEST(ScaleInputs, DiagonalRotatedSkewedAndRefusedScales) {
  FS_FIXED x, y, t;
  FS_FIXED plain[4] = {12 * ONE, 0, 0, -12 * ONE};
  EXPECT_EQ(0, get_scale_inputs(plain, &x, &y, &t));
  EXPECT_EQ(12 * ONE, x);
  EXPECT_EQ(12 * ONE, y);
  EXPECT_EQ(0, t);

  // A quarter turn: (a, b) = (-1, 0), so xppm = |0 - 12 x -1| and
  // yppm = |-12 x -1 + 0|, no shear.
  FS_FIXED turn[4] = {0, -12 * ONE, 12 * ONE, 0};
  EXPECT_EQ(0, get_scale_inputs(turn, &x, &y, &t));
  EXPECT_EQ(12 * ONE, x);
  EXPECT_EQ(12 * ONE, y);
  EXPECT_EQ(0, t);

  // Skew by a quarter: (a, b) = (0, 1), tan_s = 3 / 12.
  FS_FIXED skew[4] = {12 * ONE, 3 * ONE, 0, 12 * ONE};
  EXPECT_EQ(0, get_scale_inputs(skew, &x, &y, &t));
  EXPECT_EQ(12 * ONE, x);
  EXPECT_EQ(12 * ONE, y);
  EXPECT_EQ(ONE / 4, t);

  FS_FIXED parallel[4] = {2 * ONE, 4 * ONE, ONE, 2 * ONE};
  EXPECT_EQ(ERR_SCALE_DEGENERATE, get_scale_inputs(parallel, &x, &y, &t));
  FS_FIXED zeroColumn[4] = {0, 5 * ONE, 0, 7 * ONE};
  EXPECT_EQ(ERR_SCALE_DEGENERATE, get_scale_inputs(zeroColumn, &x, &y, &t));
  FS_FIXED huge[4] = {0x40000000, ONE, 0, 5 * ONE};
  EXPECT_EQ(ERR_SCALE_LIMIT, get_scale_inputs(huge, &x, &y, &t));
}

TEST(ModifyScale, ItalicisingAddsTheShearToTheYColumn) {
  // No shear yet: tan_x = 0.25, lambda = 12 x 0.25 / 12; s01 += 12 x 0.25.
  FS_FIXED s[4] = {12 * ONE, 0, 0, 12 * ONE};
  EXPECT_EQ(0, modify_scale(s, ONE / 4));
  EXPECT_EQ(12 * ONE, s[0]);
  EXPECT_EQ(3 * ONE, s[1]);
  EXPECT_EQ(0, s[2]);
  EXPECT_EQ(12 * ONE, s[3]);
  // A second quarter on top: tan_x = 0.5 / (1 - 1/16) = 8/15, and
  // lambda = 8/15 - 1/4 = 17/60, so s01 = 3 + 12 x 17/60 = 6.4, to within
  // the 16.16 roundings of five steps.
  EXPECT_EQ(0, modify_scale(s, ONE / 4));
  EXPECT_NEAR(6.4 * ONE, s[1], 8);
  EXPECT_EQ(12 * ONE, s[3]);
}

TEST(CheckScale, OnePixelPassesLessIsRefusedAndLargeGlyphsAreMarked) {
  FS_STATE st;
  memset(&st, 0, sizeof st);
  TTF_HEAD head;
  memset(&head, 0, sizeof head);
  head.unitsPerEm = 2048;
  head.xMin = -2048;
  head.yMin = -512;
  head.xMax = 2048;
  head.yMax = 2048;
  EXPECT_EQ(0, check_scale(&st, &head, ONE, 0, 0, ONE));
  EXPECT_EQ(ERR_SCALE_LIMIT, check_scale(&st, &head, ONE - 1, 0, 0, ONE));
  EXPECT_EQ(ERR_SCALE_LIMIT, st.error);
  EXPECT_EQ(ERR_SCALE_LIMIT, check_scale(&st, &head, ONE, 0, 0, ONE - 1));
  EXPECT_EQ(ERR_FONT_NOT_LOADED, check_scale(&st, nullptr, ONE, 0, 0, ONE));

  // A corner of 2048 units at 0x20000000 per em reaches 0x10000000 pixels.
  st.flags = 0;
  EXPECT_EQ(0, check_scale(&st, &head, 0x20000000, 0, 0, ONE));
  EXPECT_EQ(FLAGS_LARGE_SCALE, st.flags);
  EXPECT_EQ(0, check_scale(&st, &head, ONE, 0, 0, ONE));
  EXPECT_EQ(0u, st.flags);  // cleared at each check
  // Twice the em at 0x30000000 is past the limit.
  head.xMax = 4096;
  EXPECT_EQ(ERR_SCALE_LIMIT, check_scale(&st, &head, 0x30000000, 0, 0, ONE));
}

TEST(ScaleFont, ARealFontGetsItsEnvironmentAndSharedWorkspace) {
  testsupport::ScaledFont f;
  ASSERT_TRUE(f.started);
  f.setFont("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
  ASSERT_EQ(0, f.setPpem(12));
  SENV* senv = f.st.cur_sfnt->senv;
  ASSERT_NE(nullptr, senv);
  EXPECT_EQ(12, senv->xppm);
  EXPECT_EQ(12, senv->yppm);
  EXPECT_TRUE(senv->vanilla);
  fsg_SplineKey* key = f.key();
  EXPECT_EQ(2048, key->emResolution);
  EXPECT_TRUE(key->identityTransformation);
  EXPECT_EQ(f.st.cur_sfnt, f.st.server->workspace_sfnt);
  FS_LONG size = f.st.server->workspaceSize;
  EXPECT_GT(size, 0);

  // A second scale shares the workspace, which does not shrink.
  ASSERT_EQ(0, f.setScale(20 * ONE, 5 * ONE, 0, 20 * ONE));
  EXPECT_FALSE(f.st.cur_sfnt->senv->vanilla);
  EXPECT_FALSE(f.key()->identityTransformation);
  EXPECT_EQ(size, f.st.server->workspaceSize);

  EXPECT_EQ(ERR_SCALE_LIMIT, f.setScale(ONE / 2, 0, 0, ONE / 2));
  EXPECT_EQ(nullptr, f.st.cur_sfnt->senv);
}

TEST(CheckSfnt, RefusesMissingFontsAndRebuildsAReclaimedKey) {
  testsupport::ScaledFont f;
  EXPECT_EQ(ERR_NO_CURRENT_SFNT, check_sfnt(&f.st));
  f.setFont("/nonexistent/font.ttf");
  EXPECT_EQ(ERR_FONT_NOT_LOADED, f.setPpem(12));
  f.st.cur_sfnt->lfnt = nullptr;
  EXPECT_EQ(ERR_NO_CURRENT_LFNT, check_sfnt(&f.st));

  testsupport::ScaledFont g;
  g.setFont("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
  ASSERT_EQ(0, g.setPpem(16));
  g.key()->maxp = nullptr;  // what the reclaim ladder does to a key
  ASSERT_EQ(0, check_sfnt(&g.st));
  EXPECT_NE(nullptr, g.key()->maxp);
  EXPECT_EQ(0, g.fetch(36));
}

}  // namespace
