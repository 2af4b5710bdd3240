// The distance-field renderer's integer arithmetic: its number formats, the
// four constant tables (built at compile time from their rules) and every
// operation on 16.16 values it uses. No state, no allocation, no floating
// point at run time, so a glyph renders bit for bit alike everywhere. Used by
// the glyph record, set-up, sample buffers and everything after them.
#ifndef ORVEX_INTERNAL_ADFFIXEDMATH_H
#define ORVEX_INTERNAL_ADFFIXEDMATH_H

#include <stdint.h>

#include <array>

#include "Orvex_internal/fs_fixed.h"

typedef int32_t ADF_I1616;   // 16.16, the working format; 1.0 is 0x10000
typedef int32_t ADF_I2408;   // 24.8, squared lengths; 1.0 is 0x100
typedef uint32_t ADF_U0032;  // pure fraction in [0, 1), 32 fraction bits
typedef FS_LONG ADF_F32;     // record-level "real": the same 16.16
typedef int32_t ADF_R32;     // record-level "real": the same 16.16
typedef int8_t ADF_I8;
typedef uint8_t ADF_U8;
typedef uint16_t ADF_U16;
typedef int32_t ADF_I32;
typedef FS_ULONG ADF_U32;

const ADF_I1616 I1616_CONST_ONE = 0x10000;

// ---------------------------------------------------------------------------
// Tables, each from its rule, evaluated by the compiler.

namespace adftables {

constexpr std::array<ADF_I32, 256> makeClz() {
  std::array<ADF_I32, 256> t{};
  for (int i = 0; i < 256; i++) {
    int n = 8;
    for (int v = i; v != 0; v >>= 1) n--;
    t[i] = n;
  }
  return t;
}

// round(256 / sqrt((i + 32.3) / 128)) - 256 = round(sqrt(A / B)) - 256 with
// A = 65536 * 1280 and B = 10 i + 323: the k with (2k-1)^2 B <= 4A < (2k+1)^2 B.
constexpr std::array<ADF_U8, 96> makeRsq() {
  std::array<ADF_U8, 96> t{};
  for (int i = 0; i < 96; i++) {
    const int64_t fourA = 4LL * 65536 * 1280, b = 10LL * i + 323;
    int64_t k = 256;
    while ((2 * (k + 1) - 1) * (2 * (k + 1) - 1) * b <= fourA) k++;
    t[i] = (ADF_U8)(k - 256);
  }
  return t;
}

// round(65536 / (i + 128.5)) - 256 = floor((2 * 131072 + B) / (2B)) - 256
// with B = 2i + 257.
constexpr std::array<ADF_U8, 128> makeDiv() {
  std::array<ADF_U8, 128> t{};
  for (int i = 0; i < 128; i++) {
    const int64_t b = 2LL * i + 257;
    t[i] = (ADF_U8)((2 * 131072 + b) / (2 * b) - 256);
  }
  return t;
}

// sin by its series in long double, far past the 2^-16 the table keeps.
constexpr long double seriesSin(long double x) {
  long double term = x, sum = x;
  for (int n = 1; n < 30; n++) {
    term = -term * x * x / ((2 * n) * (2 * n + 1));
    sum += term;
  }
  return sum;
}

constexpr std::array<ADF_I1616, 257> makeSinCos() {
  std::array<ADF_I1616, 257> t{};
  const long double pi = 3.141592653589793238462643383279502884L;
  for (int i = 0; i < 256; i++) {
    const long double v = 65536.0L * seriesSin(i * pi / 512.0L);
    t[i] = (ADF_I1616)v;  // non-negative: truncation is floor
  }
  t[256] = 65536;
  return t;
}

}  // namespace adftables

// Leading zero bits of an 8-bit value; entry 0 is 8.
inline constexpr std::array<ADF_I32, 256> clzTable = adftables::makeClz();
// 9-bit reciprocal square root estimates for RSQ; offset 32.3 keeps the
// first Newton step below 2^32 at the low end.
inline constexpr std::array<ADF_U8, 96> rsqTable = adftables::makeRsq();
// 9-bit reciprocal estimates for DIV.
inline constexpr std::array<ADF_U8, 128> divTable = adftables::makeDiv();
// A quarter sine wave in 256 steps, floor of 65536 sin; entry 256 is 1.0.
inline constexpr std::array<ADF_I1616, 257> k_sincosTable =
    adftables::makeSinCos();

// ---------------------------------------------------------------------------
// Elementary operations.

// Leading zero bits of a 32-bit value, 32 for 0: the compiler's count where
// it has one (a single instruction; division and normalising lean on it),
// else two range tests and clzTable on the top byte. Both give the same.
inline ADF_I32 CountLeadingZeroes(ADF_U32 u) {
#if defined(__GNUC__)
  return u == 0 ? 32 : __builtin_clz(u);
#else
  ADF_I32 n = 0;
  if (u < 0x10000) {
    n += 16;
    u <<= 16;
  }
  if (u < 0x1000000) {
    n += 8;
    u <<= 8;
  }
  return n + clzTable[u >> 24];
#endif
}

inline ADF_U32 UMUL64_HIGH32(ADF_U32 x, ADF_U32 y) {
  return (ADF_U32)(((uint64_t)x * y) >> 32);
}
inline ADF_U32 UMUL64_MID32(ADF_U32 x, ADF_U32 y) {
  return (ADF_U32)(((uint64_t)x * y) >> 16);
}
inline void UMUL64(ADF_U32 x, ADF_U32 y, ADF_U32* zHighOut, ADF_U32* zLowOut) {
  const uint64_t z = (uint64_t)x * y;
  *zHighOut = (ADF_U32)(z >> 32);
  *zLowOut = (ADF_U32)z;
}

// Wrapping sum and difference: the renderer's 32-bit words overflow on
// absurd input the way two's complement hardware does, never undefined.
inline ADF_I1616 I1616_ADD(ADF_I1616 a, ADF_I1616 b) {
  return (ADF_I1616)((ADF_U32)a + (ADF_U32)b);
}
inline ADF_I1616 I1616_SUB(ADF_I1616 a, ADF_I1616 b) {
  return (ADF_I1616)((ADF_U32)a - (ADF_U32)b);
}

// a * b in 16.16, truncated toward minus infinity; b of exactly 1.0 returns
// a without multiplying (the grey-mode inner loops lean on it).
inline ADF_I1616 I1616_MUL(ADF_I1616 a, ADF_I1616 b) {
  if (b == I1616_CONST_ONE) return a;
  return (ADF_I1616)(((int64_t)a * b) >> 16);
}

// 16.16 times 16.16 giving 24.8.
inline ADF_I2408 I1616_MUL_I2408(ADF_I1616 a, ADF_I1616 b) {
  return (ADF_I2408)(((int64_t)a * b) >> 24);
}

// a squared; -128.0, the far-outside sentinel, is answered without a multiply.
inline ADF_I1616 I1616_SQR(ADF_I1616 a) {
  if (a == (ADF_I1616)0xFF800000) return 0x40000000;
  return (ADF_I1616)(((int64_t)a * a) >> 16);
}

inline ADF_I1616 I1616_NEGATE(ADF_I1616 x) { return (ADF_I1616)(0u - (ADF_U32)x); }
inline ADF_I1616 I1616_ABS(ADF_I1616 x) { return x < 0 ? I1616_NEGATE(x) : x; }
inline ADF_I1616 I1616_NEGABS(ADF_I1616 x) { return x < 0 ? x : I1616_NEGATE(x); }
// The integer part as floor: -1 raw gives -1.
inline ADF_I32 I1616_TO_I32(ADF_I1616 f) { return f >> 16; }
inline ADF_I1616 I1616_FLOOR(ADF_I1616 x) {
  return (ADF_I1616)((ADF_U32)x & 0xFFFF0000u);
}
inline ADF_I1616 U32_TO_I1616(ADF_U32 u) { return (ADF_I1616)(u << 16); }

// ---------------------------------------------------------------------------
// Compound operations.

// 2^46 / sqrt(n) for n in [2^30, 2^32): 1/sqrt(n / 2^32) in 2.30. The caller
// guarantees one of the two top bits is set.
ADF_U32 RSQ(ADF_U32 n);
// 1/sqrt(n) in 16.16 for n in 24.8 or in 16.16. n must be positive; 0 or a
// negative n (never passed by the renderer) gives 0.
ADF_I1616 I2408_RSQ_I1616(ADF_I2408 n);
ADF_I1616 I1616_RSQ(ADF_I1616 n);
// sqrt(n) as n times its reciprocal root, shifted right by shift - b/2; 0 for
// 0. I1616_SQRT passes 38 for 16.16 input, I2408_SQRT_I1616 34 for 24.8.
ADF_I1616 SQRT(ADF_U32 n, ADF_I32 shift);
ADF_I1616 I1616_SQRT(ADF_I1616 n);
ADF_I1616 I2408_SQRT_I1616(ADF_I2408 n);
// n * 2^31 / d by reciprocal; d must have its top bit set.
ADF_U32 DIV(ADF_U32 n, ADF_U32 d);

enum {
  I1616_DIV_OK = 0,
  I1616_DIV_OVERFLOW = 1,   // the quotient does not fit 31 bits
  I1616_DIV_UNDERFLOW = 2,  // the quotient vanishes
  I1616_DIV_BY_ZERO = 3
};
// n / d in 16.16 by reciprocal, a shade low (7.0 / 2.0 gives 0x37FFF).
// *status 0, or a failure above with the result 0. d of raw -1 returns -n
// whatever the true quotient (a kept shortcut).
ADF_I1616 I1616_DIV(ADF_I1616 n, ADF_I1616 d, ADF_I32* status);

// The unit vector of (nx, ny), rounded toward minus infinity on both signs;
// an axis vector gives exactly +-1.0. Returns 0 with outputs untouched for
// the zero vector, else 1.
ADF_I32 I1616_NORMALIZE(ADF_I1616 nx, ADF_I1616 ny, ADF_I1616* nxOut,
                        ADF_I1616* nyOut);

// Sine and cosine of an angle in radians (16.16), by the quarter-wave table
// and linear interpolation; SIN(0) is 0 and COS(0) exactly 1.0.
ADF_I1616 I1616_SIN(ADF_I1616 x);
ADF_I1616 I1616_COS(ADF_I1616 x);

// log2 of f in (0, 1] by a parabola on the mantissa; 0 gives -18.0.
ADF_I1616 Log2Input01(ADF_I1616 f);
// 2^f for f at or below 0; the shift by the integer part is taken modulo 32.
ADF_I1616 Exp2InputNeg(ADF_I1616 f);
// x^y for x in [0, 1] and y above 0: the gamma curve.
ADF_I1616 I1616_POW01(ADF_I1616 x, ADF_I1616 y);

#endif
