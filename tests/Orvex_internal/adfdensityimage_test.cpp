// The contrast ramp worked by hand: thresholds and sentinels, the gamma-1.0
// expression over all positions, gamma curves.
#include "Orvex_internal/adfdensityimage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

const ADF_I32 F = 65536;

// The density of dist on the ramp from cut-off out to in at gamma g.
int density(ADF_I32 in, ADF_I32 out, ADF_I32 g, ADF_I32 dist) {
  ADFDensityRamp ramp;
  return ADFSetDensityRamp(&ramp, out, in, g), ADFDensity(&ramp, dist);
}

TEST(AdfDensityRamp, CutoffsWorkedByHand) {
  struct Row { const char* why; ADF_I32 in, out, dist; int v; } rows[] = {
      {"equal cut-offs: a threshold, 0 at it", F / 4, F / 4, F / 4, 0},
      {"equal cut-offs: 255 one unit above", F / 4, F / 4, F / 4 + 1, 255},
      {"within 2 units they meet at their mean", 3, 1, 2, 0},
      {"far inside at the widest cut-offs", 20 * F, -20 * F, 128 * F, 255},
      {"far outside at the widest cut-offs", 20 * F, -20 * F, -128 * F, 0},
      {"inside below outside: a threshold at the mean", -20 * F, -20 * F + 3, -128 * F, 0},
      {"the middle of +-1: f = 1/2, (2^31 - 2^23) >> 24", F, -F, 0, 127}};
  for (const Row& r : rows) EXPECT_EQ(density(r.in, r.out, F, r.dist), r.v) << r.why;
}

// (f - (f >> 8)) >> 24 is 255 f / 2^32 or one level more (f >> 8 is
// floored) and does not wrap, up to f = 2^32 - 1 (f set directly as the
// offset); gamma 0.5 and 1.5 between cut-offs 0 and 1.0 stay within 3 levels
// of 255 x^gamma, fractions from 1/256.
TEST(AdfDensityRamp, LinearExpressionAndGammaCurves) {
  ADFDensityRamp ramp = {-F, F, 0, 0, F};
  for (uint64_t f = 0; f < (1ULL << 32); f = std::min<uint64_t>(f + 65521 + (f >> 20), f < 0xFFFFFFFF ? 0xFFFFFFFFULL : 1ULL << 32)) {
    ramp.fOffset = (ADF_U32)f;
    const double want = std::floor(255.0 * f / 4294967296.0);
    ASSERT_TRUE(ADFDensity(&ramp, 0) >= want && ADFDensity(&ramp, 0) <= want + 1) << f;
  }
  for (ADF_I32 gamma : {F / 2, 3 * F / 2})
    for (ADF_I32 d = 256; d < F; d += 7)
      ASSERT_NEAR(density(F, 0, gamma, d), 255 * std::pow(d / 65536.0, gamma / 65536.0), 3) << gamma << " at " << d;
}

}  // namespace
