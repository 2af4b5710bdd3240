// The scaler's arithmetic and checks: the three scaling functions, the
// decomposition and italicising of a scale, the limits of check_scale, and
// the scaled environment a real font gets.
#include "Orvex_internal/fs_scale.h"

#include <gtest/gtest.h>

#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/scaled_font.h"

namespace {

const FS_FIXED ONE = 65536;
typedef std::vector<long> V;
using enginetest::kDejaVuSansFile;

TEST(ComputeScaling, EachEmGetsItsFunctionAndRoundsUnitsToTheNearest26Dot6) {
  // ppem << 16 over em << 16 loses their common low zeros but one; N is then
  // x 64. 12/2048: 17 go, N = 6 x 64 = 384, D = 1024 = 2^10: a rounded
  // shift. 10/1000: 16 go, N = 640, D = 1000: a rounded division on the
  // magnitude. 1500/1000: N = 750 x 64 = 48000 > 32767: a multiply by
  // scl = 96.0.
  struct {
    int ppem, em, fn, N, D, v, want;  // function 2 has scl in pixels for N
    const char* why;
  } rows[] = {
      {12, 2048, 0, 384, 1024, 4, 2, "4 x 0.375 = 1.5 rounds up"},
      {12, 2048, 0, 384, 1024, -4, -1, "-1.5: the shift rounds up"},
      {10, 1000, 1, 640, 1000, -3, -2, "-1.92 rounds on the magnitude"},
      {1500, 1000, 2, 96, 0, 3, 288, "3 x scl 96"},
  };
  for (auto& r : rows) {
    scale_rec s;
    compute_scaling(&s, r.ppem * ONE, r.em);
    EXPECT_EQ((V{r.fn, r.N, r.D, r.want}),
              (V{s.fn, r.fn < 2 ? s.N : s.scl / ONE, r.fn < 2 ? s.D : 0, scale_value(&s, r.v)}))
        << r.why;
  }
}

TEST(ScaleInputs, DiagonalRotatedSkewedAndRefusedScales) {
  struct {
    FS_FIXED m[4];
    FS_LONG err;
    FS_FIXED x, y, t;
    const char* why;
  } rows[] = {
      // (a, b) = (-1, 0): xppm = |0 - 12 x -1|, yppm = |-12 x -1 + 0|.
      {{0, -12 * ONE, 12 * ONE, 0}, 0, 12 * ONE, 12 * ONE, 0, "a quarter turn"},
      {{12 * ONE, 3 * ONE, 0, 12 * ONE}, 0, 12 * ONE, 12 * ONE, ONE / 4, "skew 3/12"},
      {{2 * ONE, 4 * ONE, ONE, 2 * ONE}, ERR_SCALE_DEGENERATE, 0, 0, 0, "parallel columns"},
      {{0, 5 * ONE, 0, 7 * ONE}, ERR_SCALE_DEGENERATE, 0, 0, 0, "a zero column"},
      {{0x40000000, ONE, 0, 5 * ONE}, ERR_SCALE_LIMIT, 0, 0, 0, "past the size limit"},
  };
  for (auto& r : rows) {
    FS_FIXED x = 0, y = 0, t = 0;
    EXPECT_EQ(r.err, get_scale_inputs(r.m, &x, &y, &t)) << r.why;
    if (r.err == 0) {
      EXPECT_EQ((V{r.x, r.y, r.t}), (V{x, y, t})) << r.why;
    }
  }
}

TEST(ModifyScale, ItalicisingAddsTheShearToTheYColumn) {
  // No shear yet: tan_x = 0.25, lambda = 12 x 0.25 / 12; s01 += 12 x 0.25.
  FS_FIXED s[4] = {12 * ONE, 0, 0, 12 * ONE};
  EXPECT_EQ(0, modify_scale(s, ONE / 4));
  EXPECT_EQ((V{12 * ONE, 3 * ONE, 0, 12 * ONE}), (V{s[0], s[1], s[2], s[3]}));
  // A second quarter: tan_x = 0.5 / (1 - 1/16) = 8/15, lambda = 8/15 - 1/4
  // = 17/60, so s01 = 3 + 12 x 17/60 = 6.4, within five steps' roundings.
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
  EXPECT_EQ(ERR_SCALE_LIMIT, check_scale(&st, &head, ONE, 0, 0, ONE - 1));
  EXPECT_EQ(ERR_FONT_NOT_LOADED, check_scale(&st, nullptr, ONE, 0, 0, ONE));
  // A corner of 2048 units at 0x20000000 per em reaches 0x10000000 pixels:
  // marked large; the mark is cleared at each check.
  st.flags = 0;
  EXPECT_EQ(0, check_scale(&st, &head, 0x20000000, 0, 0, ONE));
  EXPECT_EQ(FLAGS_LARGE_SCALE, st.flags);
  EXPECT_EQ(0, check_scale(&st, &head, ONE, 0, 0, ONE));
  EXPECT_EQ(0u, st.flags);
  head.xMax = 4096;  // twice the em at 0x30000000 is past the limit
  EXPECT_EQ(ERR_SCALE_LIMIT, check_scale(&st, &head, 0x30000000, 0, 0, ONE));
}

TEST(ScaleFont, ARealFontGetsItsEnvironmentAndSharedWorkspace) {
  testsupport::ScaledFont f;
  f.setFont(kDejaVuSansFile);
  ASSERT_EQ(0, f.setPpem(12)) << "cannot scale " << kDejaVuSansFile;
  SENV* senv = f.st.cur_sfnt->senv;
  EXPECT_EQ((V{12, 12, 1, 1}),
            (V{senv->xppm, senv->yppm, senv->vanilla, f.key()->identityTransformation}));
  FS_LONG size = f.st.server->workspaceSize;
  // A skewed second scale shares the workspace, which does not shrink.
  ASSERT_EQ(0, f.setScale(20 * ONE, 5 * ONE, 0, 20 * ONE));
  EXPECT_EQ((V{0, 0, size}), (V{f.st.cur_sfnt->senv->vanilla, f.key()->identityTransformation,
                                f.st.server->workspaceSize}));
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
  g.setFont(kDejaVuSansFile);
  ASSERT_EQ(0, g.setPpem(16)) << "cannot scale " << kDejaVuSansFile;
  g.key()->maxp = nullptr;  // what the reclaim ladder does to a key
  ASSERT_EQ(0, check_sfnt(&g.st));
  EXPECT_NE(nullptr, g.key()->maxp);
  EXPECT_EQ(0, g.fetch(36));
}

}  // namespace
