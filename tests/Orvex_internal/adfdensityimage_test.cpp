// The contrast ramp worked by hand: thresholds, sentinels, the gamma-1.0
// expression over all positions, gamma curves.
#include "Orvex_internal/adfdensityimage.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

const ADF_I32 F = 65536;

TEST(AdfDensityRamp, CutoffsWorkedByHand) {
  struct Row { const char* why; ADF_I32 in, out, gamma, dist; int v; } rows[] = {
      {"equal cut-offs: a threshold, 0 at it", F / 4, F / 4, F, F / 4, 0},
      {"equal cut-offs: 255 one unit above", F / 4, F / 4, F, F / 4 + 1, 255},
      {"within 2 units they meet at their mean", 3, 1, F, 2, 0},
      {"far inside at the widest cut-offs", 20 * F, -20 * F, F, 128 * F, 255},
      {"far outside at the widest cut-offs", 20 * F, -20 * F, F, -128 * F, 0},
      {"inside below outside: a threshold at the mean", -20 * F, -20 * F + 3, F, -128 * F, 0},
      // f = 1/2: (2^31 - 2^23) >> 24.
      {"the middle of +-1", F, -F, F, 0, 127},
      // f = 1/4 at gamma 0.5: 255 * 1/2, less the curve's shade.
      {"gamma 0.5 at a quarter", F, 0, F / 2, F / 4, 127}};
  for (const Row& r : rows) {
    ADFDensityRamp ramp;
    ADFSetDensityRamp(&ramp, r.out, r.in, r.gamma);
    EXPECT_EQ(ADFDensity(&ramp, r.dist), r.v) << r.why;
  }
}

TEST(AdfDensityRamp, LinearExpressionAndGammaCurves) {
  // (f - (f >> 8)) >> 24 is 255 f / 2^32 or one level more (f >> 8 is
  // floored), and never wraps at the top: f is set directly as the offset.
  ADFDensityRamp ramp = {-F, F, 0, 0, F};
  for (uint64_t f = 0; f < (1ULL << 32); f += 65521 + (f >> 20)) {
    ramp.fOffset = (ADF_U32)f;
    const double want = std::floor(255.0 * f / 4294967296.0);
    ASSERT_TRUE(ADFDensity(&ramp, 0) >= want && ADFDensity(&ramp, 0) <= want + 1) << f;
  }
  ramp.fOffset = 0xFFFFFFFF;  // 0xFF000000 >> 24
  EXPECT_EQ(ADFDensity(&ramp, 0), 255);
  // Gamma 0.5 and 1.5 between cut-offs 0 and 1.0, fractions from 1/256.
  for (ADF_I32 gamma : {F / 2, 3 * F / 2}) {
    ADFSetDensityRamp(&ramp, 0, F, gamma);
    for (ADF_I32 d = 256; d < F; d += 7)
      ASSERT_NEAR(ADFDensity(&ramp, d), 255 * std::pow(d / 65536.0, gamma / 65536.0), 3) << gamma << " at " << d;
  }
}

}  // namespace
