// Fixed-point helpers of the engine: the named rounding and saturation cases
// worked by hand, then a seeded sweep against exact 128-bit arithmetic.
#include "Orvex_internal/fs_fixed.h"

#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <random>

namespace {

typedef __int128 i128;
const FS_LONG SAT = 0x7FFFFFFF, MIN32 = (FS_LONG)0x80000000;

// The exact definitions in 128 bits: on magnitudes, clamped to +-0x7FFFFFFF.
FS_LONG clampSigned(i128 m, bool negative) {
  if (m > SAT) m = SAT;
  return negative ? -(FS_LONG)m : (FS_LONG)m;
}
i128 mag(FS_LONG v) { return v < 0 ? -(i128)v : (i128)v; }
FS_LONG refMul(FS_LONG a, FS_LONG b, int n) {
  if (a == 0 || b == 0) return 0;
  i128 p = mag(a) * mag(b);
  if (n > 0) p += (i128)1 << (n - 1);
  return clampSigned(p >> n, (a < 0) != (b < 0));
}
FS_LONG refDiv(FS_LONG a, FS_LONG b, int n, bool round) {
  if (b == 0) return a < 0 ? -SAT : SAT;
  i128 num = (mag(a) << n) + (round ? mag(b) / 2 : 0);
  return clampSigned(num / mag(b), (a < 0) != (b < 0));
}
FS_LONG refMulDiv(FS_LONG a, FS_LONG b, FS_LONG c) {
  if (a == 0 || b == 0) return 0;
  if (c == 0) return ((a < 0) != (b < 0)) ? -SAT : SAT;
  i128 num = mag(a) * mag(b) + mag(c) / 2;
  return clampSigned(num / mag(c), ((a < 0) != (b < 0)) != (c < 0));
}
i128 isqrt(i128 v) {  // largest r with r * r <= v
  i128 r = (i128)sqrtl((long double)v);
  while (r * r > v) r--;
  while ((r + 1) * (r + 1) <= v) r++;
  return r;
}

// Operands over all magnitudes: random bit lengths, with the extremes and
// the 32-bit path's limits mixed in.
struct OperandSource {
  std::mt19937 rng{20261123};
  FS_LONG next() {
    static const FS_LONG specials[] = {0,      1,     -1,     46339, 46340, -46340,     176095,
                                       176096, 65536, -65536, SAT,   MIN32, 0x40000000, 32768};
    if (rng() % 16 == 0) return specials[rng() % (sizeof specials / sizeof *specials)];
    int bits = 1 + rng() % 32;
    FS_ULONG v = rng();
    return (FS_LONG)(bits < 32 ? v & ((1u << bits) - 1) : v);
  }
};
const int kSweep = 400000;

}  // namespace

// One hand-worked case per rule and the edges a random sweep rarely hits.
TEST(FixedPoint, NamedRoundingSaturationAndEdgeCases) {
  struct {
    FS_LONG got, want;
    const char* why;
  } rows[] = {
      {varmul_64(98304, 98304, 16), 147456, "1.5 x 1.5 = 2.25 in 16.16"},
      {muldiv_64(7, 5, -2), -18, "17.5 rounds to 18 on the magnitude, the divisor's sign"},
      {vardivNoRound(-5, 0, 16), -SAT, "zero divisor: the dividend's sign"},
      {vardivNoRound(7, 3, -1), 0, "a negative exponent gives 0"},
      {vardivNoRound(-1, SAT, 32), -SAT, "an exponent above 31 saturates"},
      {FracSqrt(-1), -SAT, "negative input"},
      {FixSqrt(2 * 65536), 92682, "1.41421356 x 65536 = 92681.9 rounds up"},
      {FixSqrt(-65536), -SAT, "negative input"},
      {IDIV(5, 0) + IMOD(5, 0), 0, "a zero divisor gives 0"},
  };
  for (auto& r : rows) EXPECT_EQ(r.want, r.got) << r.why;
}

TEST(FixedPointSweep, EveryHelperAgreesWithExactArithmetic) {
  OperandSource src;
  for (int i = 0; i < kSweep; i++) {
    FS_LONG a = src.next(), b = src.next(), c = src.next();
    int n = src.rng() % 40;
    ASSERT_EQ(refMul(a, b, n), varmul_64(a, b, n)) << "mul " << a << " " << b << " " << n;
    ASSERT_EQ(refDiv(a, b, n, true), vardiv_64(a, b, n)) << "div " << a << " " << b << " " << n;
    ASSERT_EQ(refDiv(a, b, n, false), vardiv_64NoRound(a, b, n)) << a << " " << b << " " << n;
    if (n <= 31) {
      ASSERT_EQ(refDiv(a, b, n, false), vardivNoRound(a, b, n)) << a << " " << b << " " << n;
    }
    ASSERT_EQ(refMulDiv(a, b, c), muldiv_64(a, b, c)) << a << " " << b << " " << c;
    i128 big = std::max(mag(a), mag(b)), small = std::min(mag(a), mag(b));
    ASSERT_EQ((FS_LONG)std::min(big + small / 3, (i128)SAT), DistanceNorm(a, b));
    if (b > 0) {
      i128 q = (i128)floorl((long double)a / b);
      ASSERT_EQ((FS_LONG)q, IDIV(a, b)) << a << " " << b;
      ASSERT_EQ((FS_LONG)((i128)a - q * b), IMOD(a, b)) << a << " " << b;
    }
    if (a > 0) {
      // 2.30: the truncated root of a x 2^30. 16.16: the nearest root of
      // a x 2^16, give or take the 2^-7 the 2.30 truncation leaves at a half.
      ASSERT_EQ((FS_LONG)isqrt((i128)a << 30), FracSqrt(a)) << a;
      long double exact = sqrtl((long double)a * 65536.0L);
      ASSERT_LE(fabsl((long double)FixSqrt(a) - exact), 0.5L + 1.0L / 128) << a;
    }
    if (i % 4 != 0 || a == 0 || b == 0) continue;
    // Vectors divided down to 1.0 come within a few units of unit length;
    // shorter ones, squared coarsely, up to about 40% off; never a sign flip.
    FIXED_VECTOR v = {a, b};
    fixed_norm(&v);
    long double len = sqrtl((long double)v.x * v.x + (long double)v.y * v.y);
    ASSERT_NEAR(65536.0L, len, big > 65536 ? 16.0L : 65536.0L * 0.45L) << a << " " << b;
    ASSERT_FALSE((v.x != 0 && (v.x < 0) != (a < 0)) || (v.y != 0 && (v.y < 0) != (b < 0)))
        << a << " " << b;
  }
}
