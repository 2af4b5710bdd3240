// The distance-field renderer's compound fixed-point operations: reciprocal
// roots, roots, reciprocal division, normalising, sine and cosine, and the
// gamma curve's log and exp. Straight-line integer code; only the angle
// reduction of sine and cosine branches on its argument.
#include "Orvex_internal/adffixedmath.h"

// Two Newton steps on a 9-bit table estimate.
ADF_U32 RSQ(ADF_U32 n) {
  const ADF_U32 x0 = (ADF_U32)rsqTable[(n >> 25) - 32] + 256;
  const ADF_U32 x1 = (0x18000u - UMUL64_MID32(n >> 17, x0 * x0)) * (x0 << 7);
  return UMUL64_HIGH32(x1, 0xC0000000u - UMUL64_HIGH32(UMUL64_HIGH32(n, x1), x1));
}

// The shift b is even so that the root of 2^b is exact.
static inline ADF_I32 evenLeadingZeroes(ADF_U32 n) {
  return CountLeadingZeroes(n) & ~1;
}

ADF_I1616 I2408_RSQ_I1616(ADF_I2408 n) {
  if (n <= 0) return 0;
  const ADF_I32 b = evenLeadingZeroes((ADF_U32)n);
  return (ADF_I1616)(RSQ((ADF_U32)n << b) >> (26 - b / 2));
}

ADF_I1616 I1616_RSQ(ADF_I1616 n) {
  if (n <= 0) return 0;
  const ADF_I32 b = evenLeadingZeroes((ADF_U32)n);
  return (ADF_I1616)(RSQ((ADF_U32)n << b) >> (22 - b / 2));
}

// The 64-bit product n * rsq shifted right by s over both words (s lies in
// 4..38 for the two shifts the renderer passes).
ADF_I1616 SQRT(ADF_U32 n, ADF_I32 shift) {
  if (n == 0) return 0;
  const ADF_I32 b = evenLeadingZeroes(n);
  const ADF_U32 rsq = RSQ(n << b);
  const uint64_t prod = (uint64_t)n * rsq;
  const ADF_I32 s = shift - b / 2;
  if (s <= 0) return (ADF_I1616)(ADF_U32)prod;
  if (s >= 64) return 0;
  return (ADF_I1616)(ADF_U32)(prod >> s);
}

ADF_I1616 I1616_SQRT(ADF_I1616 n) { return SQRT((ADF_U32)n, 38); }
ADF_I1616 I2408_SQRT_I1616(ADF_I2408 n) { return SQRT((ADF_U32)n, 34); }

// In terms of d' = d / 2^32: a table estimate, one Newton step to 2^16 / d',
// then a second step carried on the square to 2^31 / d'.
ADF_U32 DIV(ADF_U32 n, ADF_U32 d) {
  const ADF_U32 x0 = (ADF_U32)divTable[(d >> 24) - 128] + 256;
  const ADF_U32 x1 = (x0 << 9) - UMUL64_HIGH32(d, x0 * x0);
  ADF_U32 x2High, x2Low;
  UMUL64(x1, x1, &x2High, &x2Low);
  ADF_U32 x2 = (x2Low >> 1) + (x2High << 31) + (x2Low & 1);
  x2 = UMUL64_HIGH32(d, x2);
  if (x2High & 2) x2 += d;  // the halved square lost its bit 32
  x2 = (x1 << 16) - x2;
  return UMUL64_HIGH32(n, x2);
}

ADF_I1616 I1616_DIV(ADF_I1616 n, ADF_I1616 d, ADF_I32* status) {
  *status = I1616_DIV_OK;
  if (d == 0) {
    *status = I1616_DIV_BY_ZERO;
    return 0;
  }
  if (n == 0) return 0;
  if (d == I1616_CONST_ONE) return n;
  if (d == -1) return I1616_NEGATE(n);
  const ADF_U32 un = (ADF_U32)I1616_ABS(n), ud = (ADF_U32)I1616_ABS(d);
  const ADF_I32 dShift = CountLeadingZeroes(ud);
  // A numerator of 2^31 has no leading zero to spare: it moves right once.
  const ADF_I32 nShift = CountLeadingZeroes(un) - 1;
  const ADF_I32 s = nShift + 15 - dShift;
  if (s < -31) {
    *status = I1616_DIV_OVERFLOW;
    return 0;
  }
  if (s >= 32) {
    *status = I1616_DIV_UNDERFLOW;
    return 0;
  }
  const ADF_U32 q = DIV(nShift >= 0 ? un << nShift : un >> 1, ud << dShift);
  // The magnitude in 64 bits, so that whatever does not fit 31 bits shows as
  // an overflow of either sign; q is never 0, so only a right shift vanishes.
  const uint64_t mag = s >= 0 ? (uint64_t)(q >> s) : (uint64_t)q << -s;
  if (mag - 1 >= 0x7FFFFFFFu) {
    *status = mag == 0 ? I1616_DIV_UNDERFLOW : I1616_DIV_OVERFLOW;
    return 0;
  }
  const ADF_U32 sign = (ADF_U32)((n ^ d) >> 31);  // all ones when they differ
  return (ADF_I1616)(((ADF_U32)mag ^ sign) - sign);
}

// Shifts a 64-bit magnitude right by s and applies the sign, rounding toward
// minus infinity for a negative component.
static inline ADF_I1616 shiftSigned(uint64_t prod, ADF_I32 s, bool negative) {
  const ADF_U32 mag = s >= 64 ? 0 : (ADF_U32)(prod >> s);
  if (!negative) return (ADF_I1616)mag;
  const uint64_t lost = s >= 64 ? prod : prod & ((1ULL << s) - 1);
  return (ADF_I1616)(0u - mag - (lost != 0 ? 1u : 0u));
}

ADF_I32 I1616_NORMALIZE(ADF_I1616 nx, ADF_I1616 ny, ADF_I1616* nxOut,
                        ADF_I1616* nyOut) {
  if (nx == 0 && ny == 0) return 0;
  if (nx == 0) {
    *nxOut = 0;
    *nyOut = ny < 0 ? -I1616_CONST_ONE : I1616_CONST_ONE;
    return 1;
  }
  if (ny == 0) {
    *nxOut = nx < 0 ? -I1616_CONST_ONE : I1616_CONST_ONE;
    *nyOut = 0;
    return 1;
  }
  const ADF_U32 ax = (ADF_U32)I1616_ABS(nx), ay = (ADF_U32)I1616_ABS(ny);
  const uint64_t sum = (uint64_t)ax * ax + (uint64_t)ay * ay;  // below 2^63
  const ADF_U32 high = (ADF_U32)(sum >> 32), low = (ADF_U32)sum;
  ADF_I32 b;
  ADF_U32 lenSqr;
  if (high != 0) {
    b = evenLeadingZeroes(high);
    lenSqr = (ADF_U32)((sum << b) >> 32);
  } else {
    const ADF_I32 b2 = evenLeadingZeroes(low);
    lenSqr = low << b2;
    b = b2 + 32;
  }
  const ADF_U32 invLen = RSQ(lenSqr);
  const ADF_I32 s = 46 - b / 2;
  *nxOut = shiftSigned((uint64_t)ax * invLen, s, nx < 0);
  *nyOut = shiftSigned((uint64_t)ay * invLen, s, ny < 0);
  return 1;
}

// 2 pi, pi and pi / 2 in 16.16 as the reduction uses them, and 2 / pi.
static const ADF_U32 kTwoPi = 411774, kPiCut = 205886, kPiReflect = 205887,
                     kHalfPiCut = 102942;
static const ADF_I1616 kTwoOverPi = 41721;

// |x| brought into [0, 2 pi]: repeated subtraction of 2 pi, done at once.
static inline ADF_U32 reduceTurns(ADF_I1616 x) {
  ADF_U32 ax = (ADF_U32)I1616_ABS(x);
  if (ax > kTwoPi - 1) ax %= kTwoPi;
  return ax;
}

// Table position of an angle in [0, pi/2]: index and 16.16 fraction.
static inline void quarterWavePosition(ADF_U32 ax, ADF_I32* index,
                                       ADF_I1616* fraction) {
  const ADF_I1616 normX = I1616_MUL((ADF_I1616)ax, kTwoOverPi);
  *index = (normX >> 8) & 255;
  *fraction = (ADF_I1616)(((ADF_U32)normX << 8) & 0xFFFF);
}

ADF_I1616 I1616_SIN(ADF_I1616 x) {
  bool negative = x < 0;
  ADF_U32 ax = reduceTurns(x);
  if (ax > kPiCut) {
    ax = kTwoPi - ax;
    negative = !negative;
  }
  if (ax > kHalfPiCut) ax = kPiReflect - ax;
  ADF_I32 index;
  ADF_I1616 fraction;
  quarterWavePosition(ax, &index, &fraction);
  const ADF_I1616 s1 = k_sincosTable[index], s2 = k_sincosTable[index + 1];
  const ADF_I1616 r = s1 + I1616_MUL(fraction, s2 - s1);
  return negative ? -r : r;
}

ADF_I1616 I1616_COS(ADF_I1616 x) {
  bool negative = false;
  ADF_U32 ax = reduceTurns(x);
  if (ax > kPiCut) ax = kTwoPi - ax;
  if (ax > kHalfPiCut) {
    ax = kPiReflect - ax;
    negative = true;
  }
  ADF_I32 index;
  ADF_I1616 fraction;
  quarterWavePosition(ax, &index, &fraction);
  const ADF_I1616 s1 = k_sincosTable[256 - index],
                  s2 = k_sincosTable[255 - index];
  const ADF_I1616 r = s1 + I1616_MUL(fraction, s2 - s1);
  return negative ? -r : r;
}

// frac + 0.3466 (frac - frac^2) stands in for log2(1 + frac).
ADF_I1616 Log2Input01(ADF_I1616 f) {
  const ADF_I32 e = 15 - CountLeadingZeroes((ADF_U32)f);  // 0 or below in range
  const ADF_U32 m = e <= 0 ? (ADF_U32)f << -e : (ADF_U32)f >> e;
  const ADF_I1616 frac = (ADF_I1616)(m & 0xFFFF);
  return (ADF_I1616)m + I1616_MUL(frac - I1616_MUL(frac, frac), 22715) -
         I1616_CONST_ONE + e * 65536;
}

// 1 + frac - 0.3397 (frac - frac^2) stands in for 2^frac; the integer part is
// the top half of f sign-extended, and the shift is taken modulo 32, so a
// large negative exponent wraps around (the gamma ramp lives with it).
ADF_I1616 Exp2InputNeg(ADF_I1616 f) {
  const ADF_I1616 frac = f & 0xFFFF;
  const ADF_I1616 m =
      frac + I1616_CONST_ONE - I1616_MUL(frac - I1616_MUL(frac, frac), 22263);
  const ADF_I32 intPart = (int16_t)(uint16_t)((ADF_U32)f >> 16);
  return m >> ((-intPart) & 31);
}

ADF_I1616 I1616_POW01(ADF_I1616 x, ADF_I1616 y) {
  return Exp2InputNeg(I1616_MUL(y, Log2Input01(x)));
}
