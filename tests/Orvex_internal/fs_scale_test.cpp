// The scaler's arithmetic and checks: the three scaling functions, the
// decomposition of a scale, the limits of check_scale, and the scaled
// environment a real font gets.
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
  // ppem / em in lowest terms but one factor 2, N then x 64: 12/2048 gives
  // N = 384, D = 2^10, a rounded shift; 10/1000 N = 640, D = 1000, a rounded
  // division; 1500/1000 N = 48000 > 32767: a multiply by scl = 96.0.
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

TEST(ScaleInputs, DegenerateAndOversizedScalesAreRefused) {
  // Turns and skews decompose as the libfreetype comparisons show.
  FS_FIXED parallel[4] = {2 * ONE, 4 * ONE, ONE, 2 * ONE}, huge[4] = {0x40000000, ONE, 0, 5 * ONE};
  FS_FIXED x, y, t;
  EXPECT_EQ(ERR_SCALE_DEGENERATE, get_scale_inputs(parallel, &x, &y, &t));
  EXPECT_EQ(ERR_SCALE_LIMIT, get_scale_inputs(huge, &x, &y, &t));
}

TEST(CheckScale, OnePixelPassesLessOrAGlyphPastTheLimitIsRefused) {
  FS_STATE st = FS_STATE();
  TTF_HEAD head = TTF_HEAD();
  head.unitsPerEm = 2048;
  head.xMin = -2048;
  head.yMin = -512;
  head.xMax = 2048;
  head.yMax = 2048;
  EXPECT_EQ(0, check_scale(&st, &head, ONE, 0, 0, ONE));
  EXPECT_EQ(ERR_SCALE_LIMIT, check_scale(&st, &head, ONE - 1, 0, 0, ONE));
  EXPECT_EQ(ERR_SCALE_LIMIT, check_scale(&st, &head, ONE, 0, 0, ONE - 1));
  EXPECT_EQ(ERR_FONT_NOT_LOADED, check_scale(&st, nullptr, ONE, 0, 0, ONE));
  head.xMax = 4096;  // twice the em at 0x30000000 is past the limit
  EXPECT_EQ(ERR_SCALE_LIMIT, check_scale(&st, &head, 0x30000000, 0, 0, ONE));
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
