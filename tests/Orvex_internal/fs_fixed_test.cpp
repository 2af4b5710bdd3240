// Fixed-point helpers of the engine: the named rounding and saturation cases
// by hand, then a seeded sweep against exact 128-bit arithmetic.
#include "Orvex_internal/fs_fixed.h"

#include <gtest/gtest.h>
#include <math.h>

#include <random>

namespace {

typedef __int128 i128;

// The exact definitions, evaluated in 128 bits: a magnitude formula, its sign
// put back, then clamped to +-0x7FFFFFFF.
FS_LONG clampSigned(i128 mag, bool negative) {
  if (mag > 0x7FFFFFFF) mag = 0x7FFFFFFF;
  return negative ? -(FS_LONG)mag : (FS_LONG)mag;
}
i128 mag(FS_LONG v) { return v < 0 ? -(i128)v : (i128)v; }

FS_LONG refMul(FS_LONG a, FS_LONG b, int n) {
  if (a == 0 || b == 0) return 0;
  i128 p = mag(a) * mag(b);
  if (n > 0) p += (i128)1 << (n - 1);
  return clampSigned(p >> n, (a < 0) != (b < 0));
}
FS_LONG refDiv(FS_LONG a, FS_LONG b, int n, bool round) {
  if (b == 0) return a < 0 ? -0x7FFFFFFF : 0x7FFFFFFF;
  i128 num = mag(a) << n;
  if (round) num += mag(b) / 2;
  return clampSigned(num / mag(b), (a < 0) != (b < 0));
}
FS_LONG refMulDiv(FS_LONG a, FS_LONG b, FS_LONG c) {
  if (a == 0 || b == 0) return 0;
  if (c == 0) return ((a < 0) != (b < 0)) ? -0x7FFFFFFF : 0x7FFFFFFF;
  i128 num = mag(a) * mag(b) + mag(c) / 2;
  return clampSigned(num / mag(c), ((a < 0) != (b < 0)) != (c < 0));
}
// Largest r with r * r <= v.
i128 isqrt(i128 v) {
  i128 r = (i128)sqrtl((long double)v);
  while (r * r > v) r--;
  while ((r + 1) * (r + 1) <= v) r++;
  return r;
}

// Operands spread over all magnitudes: mostly random bit lengths, with the
// extremes and the 32-bit path's limits mixed in.
struct OperandSource {
  std::mt19937 rng{20261123};
  FS_LONG next() {
    static const FS_LONG specials[] = {0, 1, -1, 46339, 46340, -46340,
                                       176095, 176096, 65536, -65536,
                                       0x7FFFFFFF, (FS_LONG)0x80000000,
                                       0x40000000, 32768};
    unsigned pick = rng() % 16;
    if (pick == 0) return specials[rng() % (sizeof specials / sizeof *specials)];
    int bits = 1 + rng() % 32;
    FS_ULONG v = rng();
    if (bits < 32) v &= (1u << bits) - 1;
    return (FS_LONG)v;
  }
};

const int kSweep = 400000;

}  // namespace

TEST(FixedPoint, NamedRoundingAndSaturationCases) {
  EXPECT_EQ(0x7FFFFFFF, varmul_64(0x7FFFFFFF, 0x7FFFFFFF, 16));
  EXPECT_EQ(-0x7FFFFFFF, varmul_64(-0x7FFFFFFF, 0x7FFFFFFF, 16));
  EXPECT_EQ(0x7FFFFFFF, muldiv_64(1, 1, 0));
  EXPECT_EQ(-0x7FFFFFFF, muldiv_64(-1, 1, 0));
  // 65536 / 3 = 21845.33 rounds down; 131072 / 3 = 43690.67 rounds up.
  EXPECT_EQ(21845, vardiv_64(1, 3, 16));
  EXPECT_EQ(43690, vardiv_64NoRound(2, 3, 16));
  EXPECT_EQ(43691, vardiv_64(2, 3, 16));
  EXPECT_EQ(5, DistanceNorm(3, 4));  // 4 + 3 / 3
  // Division by zero saturates with the sign of the dividend.
  EXPECT_EQ(0x7FFFFFFF, vardiv_64(5, 0, 16));
  EXPECT_EQ(-0x7FFFFFFF, vardiv_64(-5, 0, 16));
  EXPECT_EQ(-0x7FFFFFFF, vardivNoRound(-5, 0, 16));
}

TEST(FixedPoint, ProductsRoundHalfAwayFromZeroOnMagnitudes) {
  // 1.5 * 1.5 = 2.25 in 16.16.
  EXPECT_EQ(147456, varmul_64(98304, 98304, 16));
  // 3 * 1 / 2 = 1.5 rounds to 2, and -1.5 to -2 (magnitude rounding).
  EXPECT_EQ(2, varmul_64(3, 1, 1));
  EXPECT_EQ(-2, varmul_64(-3, 1, 1));
  EXPECT_EQ(-2, varmul_64(3, -1, 1));
  EXPECT_EQ(6, varmul_64(2, 3, 0));
  // 7 * 5 / 2 = 17.5 rounds to 18; with a negative divisor the sign flips.
  EXPECT_EQ(18, muldiv_64(7, 5, 2));
  EXPECT_EQ(-18, muldiv_64(7, 5, -2));
  EXPECT_EQ(18, muldiv_64(-7, 5, -2));
  EXPECT_EQ(0, muldiv_64(0, 5, 0));
  // -2^31 has the magnitude 2^31: 2^31 * 2^31 >> 16 saturates positive.
  EXPECT_EQ(0x7FFFFFFF, varmul_64((FS_LONG)0x80000000, (FS_LONG)0x80000000, 16));
}

TEST(FixedPoint, ShiftAndSubtractDivisionLimits) {
  EXPECT_EQ(0, vardivNoRound(7, 3, -1));
  EXPECT_EQ(0x7FFFFFFF, vardivNoRound(1, 0x7FFFFFFF, 32));
  EXPECT_EQ(-0x7FFFFFFF, vardivNoRound(-1, 0x7FFFFFFF, 32));
  EXPECT_EQ(0, vardivNoRound(0, 7, 40));
  EXPECT_EQ(43690, vardivNoRound(2, 3, 16));
  EXPECT_EQ(-43690, vardivNoRound(2, -3, 16));
  EXPECT_EQ(0x7FFFFFFF, vardivNoRound((FS_LONG)0x80000000, -1, 0));
}

TEST(FixedPoint, RootsInTwoThirtyAndSixteenSixteen) {
  EXPECT_EQ(0x40000000, FracSqrt(0x40000000));      // sqrt(1.0)
  EXPECT_EQ(0x20000000, FracSqrt(0x10000000));      // sqrt(0.25) = 0.5
  EXPECT_EQ(-0x7FFFFFFF, FracSqrt(-1));
  EXPECT_EQ(0, FracSqrt(0));
  EXPECT_EQ(2 * 65536, FixSqrt(4 * 65536));
  EXPECT_EQ(3 * 65536, FixSqrt(9 * 65536));
  // sqrt(2) = 1.41421356 * 65536 = 92681.9 rounds to 92682.
  EXPECT_EQ(92682, FixSqrt(2 * 65536));
  // sqrt(1/65536) = 1/256 = 256 in 16.16.
  EXPECT_EQ(256, FixSqrt(1));
  EXPECT_EQ(-0x7FFFFFFF, FixSqrt(-65536));
  EXPECT_EQ(0, FixSqrt(0));
}

TEST(FixedPoint, FloorDivisionAndRemainder) {
  EXPECT_EQ(-1, IDIV(-1, 2));
  EXPECT_EQ(-2, IDIV(-4, 2));
  EXPECT_EQ(-3, IDIV(-5, 2));
  EXPECT_EQ(2, IDIV(5, 2));
  EXPECT_EQ(0, IDIV(5, 0));
  EXPECT_EQ(1, IMOD(-5, 2));
  EXPECT_EQ(3, IMOD(-1, 4));
  EXPECT_EQ(1, IMOD(5, 4));
  EXPECT_EQ(0, IMOD(5, 0));
}

TEST(FixedPoint, NormalisedVectors) {
  FIXED_VECTOR v = {0, 0};
  fixed_norm(&v);
  EXPECT_EQ(65536, v.x);
  EXPECT_EQ(0, v.y);
  v = {-5, 0};
  fixed_norm(&v);
  EXPECT_EQ(-65536, v.x);
  v = {0, -300000};
  fixed_norm(&v);
  EXPECT_EQ(0, v.x);
  EXPECT_EQ(-65536, v.y);
  // (3, 4) in 16.16: divided by the larger, (0.75, 1.0); squared length
  // 36864 + 65536 = 102400 (1.5625), root 81920 (1.25); then
  // 49152 / 1.25 = 39321.6 -> 39322 and 65536 / 1.25 = 52428.8 -> 52429.
  v = {3 * 65536, 4 * 65536};
  fixed_norm(&v);
  EXPECT_EQ(39322, v.x);
  EXPECT_EQ(52429, v.y);
  // A small vector is raised to 256 first: (3, -4) becomes (192, -256),
  // squared length 0.5625 + 1 in units of 1/65536 of 16.16:
  // 192*192/65536 = 0.5625 -> 1, 256*256/65536 = 1 -> 1; s = 2,
  // root = isqrt(2 << 16) = 362; (192 * 65536 + 181) / 362 = 34759.9 -> 34759,
  // (256 * 65536 + 181) / 362 = 46346.4 -> 46346. The coarse squares make
  // such a vector about 12% short of unit length.
  v = {3, -4};
  fixed_norm(&v);
  EXPECT_EQ(34759, v.x);
  EXPECT_EQ(-46346, v.y);
  fixed_norm(nullptr);
}

TEST(FixedPointSweep, ProductsAgreeWithExactArithmetic) {
  OperandSource src;
  for (int i = 0; i < kSweep; i++) {
    FS_LONG a = src.next(), b = src.next();
    int n = src.rng() % 40;
    ASSERT_EQ(refMul(a, b, n), varmul_64(a, b, n)) << a << " " << b << " " << n;
  }
}

TEST(FixedPointSweep, QuotientsAgreeWithExactArithmetic) {
  OperandSource src;
  for (int i = 0; i < kSweep; i++) {
    FS_LONG a = src.next(), b = src.next();
    int n = src.rng() % 40;
    ASSERT_EQ(refDiv(a, b, n, true), vardiv_64(a, b, n))
        << a << " " << b << " " << n;
    ASSERT_EQ(refDiv(a, b, n, false), vardiv_64NoRound(a, b, n))
        << a << " " << b << " " << n;
    if (n <= 31) {
      ASSERT_EQ(refDiv(a, b, n, false), vardivNoRound(a, b, n))
          << a << " " << b << " " << n;
    }
  }
}

TEST(FixedPointSweep, ScaledProductsAgreeWithExactArithmetic) {
  OperandSource src;
  for (int i = 0; i < kSweep; i++) {
    FS_LONG a = src.next(), b = src.next(), c = src.next();
    ASSERT_EQ(refMulDiv(a, b, c), muldiv_64(a, b, c))
        << a << " " << b << " " << c;
  }
}

TEST(FixedPointSweep, RootsAgreeWithExactArithmetic) {
  OperandSource src;
  for (int i = 0; i < kSweep; i++) {
    FS_LONG x = src.next();
    if (x <= 0) continue;
    // 2.30: truncated root of x * 2^30.
    ASSERT_EQ((FS_LONG)isqrt((i128)x << 30), FracSqrt(x)) << x;
    // 16.16: nearest root of x * 2^16. The 2.30 root is truncated at 2^-7 of
    // a 16.16 unit or finer before the rounding shift, so the result is the
    // nearest integer to the exact root, give or take 2^-7 at a half.
    long double exact = sqrtl((long double)x * 65536.0L);
    FS_LONG got = FixSqrt(x);
    ASSERT_LE(fabsl((long double)got - exact), 0.5L + 1.0L / 128) << x;
  }
}

TEST(FixedPointSweep, LengthsAndFloorsAgreeWithExactArithmetic) {
  OperandSource src;
  for (int i = 0; i < kSweep; i++) {
    FS_LONG a = src.next(), b = src.next();
    i128 big = mag(a) > mag(b) ? mag(a) : mag(b);
    i128 small = mag(a) > mag(b) ? mag(b) : mag(a);
    i128 len = big + small / 3;
    ASSERT_EQ((FS_LONG)(len > 0x7FFFFFFF ? 0x7FFFFFFF : len), DistanceNorm(a, b));
    if (b > 0) {
      ASSERT_EQ((FS_LONG)floorl((long double)a / b), IDIV(a, b)) << a << " " << b;
      i128 r = (i128)a - (i128)floorl((long double)a / b) * b;
      ASSERT_EQ((FS_LONG)r, IMOD(a, b)) << a << " " << b;
    }
  }
}

TEST(FixedPointSweep, NormalisedVectorsHaveUnitLength) {
  OperandSource src;
  for (int i = 0; i < kSweep / 4; i++) {
    FIXED_VECTOR v = {src.next(), src.next()};
    if (v.x == 0 || v.y == 0) continue;
    FIXED_VECTOR orig = v;
    fixed_norm(&v);
    long double len = sqrtl((long double)v.x * v.x + (long double)v.y * v.y);
    // Vectors divided down to 1.0 come within a few units of 65536. Shorter
    // ones are squared in 16.16 at their own size (or raised only to 256),
    // which leaves their length up to about a third short.
    long double m = fmaxl(fabsl((long double)orig.x), fabsl((long double)orig.y));
    long double tolerance = m > 65536 ? 16.0L : 65536.0L * 0.35L;
    ASSERT_NEAR(65536.0L, len, tolerance) << orig.x << " " << orig.y;
    // A component far smaller than the other may round to 0, never to the
    // other sign.
    ASSERT_FALSE(v.x != 0 && (v.x < 0) != (orig.x < 0));
    ASSERT_FALSE(v.y != 0 && (v.y < 0) != (orig.y < 0));
  }
}
