// The distance-field renderer's integer arithmetic: tables against their
// rules, the division's sweep against exact 64-bit quotients, and roots,
// sine, cosine, the gamma curve and normalising against long double.
#include "Orvex_internal/adffixedmath.h"

#include <gtest/gtest.h>
#include <math.h>

#include <random>

namespace {

const int kDivCases = 10000000;  // about 3 s under the sanitizer

// A 32-bit value of random size: random bits shifted right 0..31 places.
ADF_I32 anySize(std::mt19937& rng, bool sign) {
  ADF_I32 v = (ADF_I32)((rng() >> 1) >> (rng() % 31));
  return sign && (rng() & 1) ? -v : v;
}

TEST(AdfFixedMath, TablesFollowTheirRules) {
  EXPECT_TRUE(rsqTable[0] == 254 && rsqTable[1] == 246 && rsqTable[2] == 239 &&
              rsqTable[3] == 231 && rsqTable[95] == 1);
  EXPECT_TRUE(divTable[0] == 254 && divTable[1] == 250 && divTable[126] == 2 && divTable[127] == 1);
  for (int i = 0; i < 96; i++)
    EXPECT_EQ(rsqTable[i], lroundl(256 / sqrtl((i + 32.3L) / 128)) - 256) << i;
  for (int i = 0; i < 128; i++) EXPECT_EQ(divTable[i], lroundl(65536 / (i + 128.5L)) - 256);
  for (int i = 0; i < 256; i++) {
    EXPECT_EQ(k_sincosTable[i], (ADF_I32)floorl(65536 * sinl(i * M_PIl / 512))) << i;
    EXPECT_EQ(clzTable[i], i ? 7 - ilogb(i) : 8) << i;
  }
  EXPECT_EQ(k_sincosTable[256], 65536);
  EXPECT_EQ(CountLeadingZeroes(0), 32);
  for (ADF_U32 top = 1; top < 256; top++)  // the count agrees with the table's
    for (int byte = 0; byte < 4; byte++)
      ASSERT_EQ(CountLeadingZeroes((top << (8 * byte)) | (top >> 1)), clzTable[top] + 24 - 8 * byte);
}

// Status 0 lies -2..+1 of floor(|n| 65536 / |d|) with the sign of n d;
// overflow only past 2^31, underflow only below 2.
TEST(AdfFixedMath, DivisionSweepAgainstExactQuotients) {
  std::mt19937 rng(33);
  int64_t lowest = 0, highest = 0, minOverflow = INT64_MAX, maxUnderflow = -1;
  for (int k = 0; k < kDivCases; k++) {
    const ADF_I32 n = anySize(rng, true), d = anySize(rng, true);
    if (d == 0 || d == -1) continue;
    ADF_I32 status;
    const int64_t r = I1616_DIV(n, d, &status);
    const int64_t exact = ((int64_t)llabs(n) << 16) / llabs((int64_t)d);
    if (status == 1) minOverflow = std::min(minOverflow, exact);
    if (status == 2) maxUnderflow = std::max(maxUnderflow, exact);
    if (status != 0) continue;
    const int64_t got = ((n < 0) != (d < 0)) ? -r : r;
    ASSERT_TRUE(got - exact >= -2 && got - exact <= 1 && (got > 0 || n == 0)) << n << "/" << d;
    lowest = std::min(lowest, got - exact);
    highest = std::max(highest, got - exact);
  }
  EXPECT_GT(minOverflow, 1LL << 31);
  EXPECT_LT(maxUnderflow, 2);
  printf("I1616_DIV over %d cases: status 0 off by %lld..%+lld; overflow from floor %lld, underflow up to floor %lld\n",
         kDivCases, (long long)lowest, (long long)highest, (long long)minOverflow, (long long)maxUnderflow);
}

TEST(AdfFixedMath, NamedCasesWorkedByHand) {
  struct Row { ADF_I32 n, d, want, status; const char* why; } rows[] = {
      {7 << 16, 2 << 16, 0x37FFF, 0, "the reciprocal comes out a shade low"},
      {1 << 16, 3 << 16, 21845, 0, "1/3"},
      {1 << 16, 2 << 16, 0x7FFF, 0, "1/2, a shade low"},
      {5, -1, -5, 0, "raw -1 is the kept shortcut -n"},
      {5 << 16, 0, 0, 3, "division by zero"},
      {0x7FFFFFFF, 1, 0, 1, "quotient 2^47 does not fit"},
      {1, 0x7FFFFFFF, 0, 2, "quotient vanishes"},
      {0x7FFF0000, 0x8000, 0, 1, "quotient 2^32: the sign bit is not a result"},
      {(ADF_I32)0x80000000, 0x40000000, -0x1FFFF, 0, "numerator 2^31 shifts right"},
      {(ADF_I32)0x80000000, 0x10000, (ADF_I32)0x80000000, 0, "1.0 returns n"}};
  for (const Row& r : rows) {
    ADF_I32 status = -1;
    EXPECT_EQ(I1616_DIV(r.n, r.d, &status), r.want) << r.why;
    EXPECT_EQ(status, r.status) << r.why;
  }
  EXPECT_TRUE(I1616_MUL(-1, 1) == -1 && I1616_TO_I32(-1) == -1) << "toward minus infinity";
  EXPECT_TRUE(I1616_SQR((ADF_I32)0xFF800000) == 0x40000000 && SQRT(0, 38) == 0);
}

// Within max(1 unit of the exact floor, 1e-7 relative), over all sizes.
TEST(AdfFixedMath, RootsAgainstLongDouble) {
  struct Op { const char* name; ADF_I1616 (*f)(ADF_I32); long double (*ref)(long double); };
  const Op ops[] = {
      {"I1616_SQRT", I1616_SQRT, [](long double n) { return sqrtl(n * 65536); }},
      {"I2408_SQRT_I1616", I2408_SQRT_I1616, [](long double n) { return sqrtl(n) * 4096; }},
      {"I1616_RSQ", I1616_RSQ, [](long double n) { return 16777216 / sqrtl(n); }},
      {"I2408_RSQ_I1616", I2408_RSQ_I1616, [](long double n) { return 1048576 / sqrtl(n); }}};
  std::mt19937 rng(8);
  for (const Op& op : ops)
    for (int k = 0; k < 200000; k++) {
      const ADF_I32 n = k < 64 ? k + 1 : anySize(rng, false) | 1;
      const long double want = op.ref(n), tol = std::max(1.0L, want * 1e-7L);
      ASSERT_LE(fabsl(op.f(n) - floorl(want)), tol) << op.name << "(" << n << ")";
    }
}

TEST(AdfFixedMath, SineCosineGammaAndNormalizeAgainstLongDouble) {
  EXPECT_TRUE(I1616_SIN(0) == 0 && I1616_COS(0) == 0x10000);
  for (ADF_I32 x = -823548; x <= 823548; x += 7) {  // two turns each way
    ASSERT_LE(fabsl(I1616_SIN(x) - 65536 * sinl(x / 65536.0L)), 8) << x;
    ASSERT_LE(fabsl(I1616_COS(x) - 65536 * cosl(x / 65536.0L)), 8) << x;
  }
  EXPECT_EQ(I1616_POW01(0, 0x10000), 0);
  for (ADF_I32 y = 0x8000; y <= 0x18000; y += 0x800) {
    EXPECT_EQ(I1616_POW01(0x10000, y), 0x10000);
    for (ADF_I32 x = 1; x < 0x10000; x += 97)
      ASSERT_LE(fabsl(I1616_POW01(x, y) / 65536.0L - powl(x / 65536.0L, y / 65536.0L)),
                0.01L) << x << " ^ " << y;
  }
  ADF_I1616 ox = 7, oy = 7;
  EXPECT_TRUE(I1616_NORMALIZE(0, 0, &ox, &oy) == 0 && ox == 7) << "zero vector: 0, untouched";
  const ADF_I32 axis[][4] = {{3 << 16, 0, 0x10000, 0}, {0, -5, 0, -0x10000},
                             {-1, 0, -0x10000, 0}, {0, 0x7FFFFFFF, 0, 0x10000}};
  for (const auto& a : axis) {
    ASSERT_EQ(I1616_NORMALIZE(a[0], a[1], &ox, &oy), 1);
    EXPECT_TRUE(ox == a[2] && oy == a[3]) << a[0] << "," << a[1];
  }
  std::mt19937 rng(5);
  for (int k = 0; k < 300000; k++) {
    const ADF_I32 nx = anySize(rng, false) | 1, ny = anySize(rng, false) | 1;
    const long double len = hypotl(nx, ny);
    ADF_I1616 px, py, mx, my;
    I1616_NORMALIZE(nx, ny, &px, &py);
    I1616_NORMALIZE(-nx, -ny, &mx, &my);
    ASSERT_LE(fabsl(px - 65536.0L * nx / len), 1.01L) << nx << "," << ny;
    ASSERT_LE(fabsl(py - 65536.0L * ny / len), 1.01L) << nx << "," << ny;
    ASSERT_TRUE((mx == -px || mx == -px - 1) && (my == -py || my == -py - 1)) << nx << "," << ny;
  }
}

}  // namespace
