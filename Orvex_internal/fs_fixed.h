// The font engine's integer types, number formats and fixed-point helpers.
// Every engine unit computes in these formats; the helpers here give the
// rounding and saturation the loaders, scaler and rasterisers rely on.
// Depends on nothing but the C library.
#ifndef ORVEX_INTERNAL_FS_FIXED_H
#define ORVEX_INTERNAL_FS_FIXED_H

#include <stdint.h>

typedef uint8_t FS_BYTE;
typedef int8_t FS_TINY;
typedef int16_t FS_SHORT;
typedef uint16_t FS_USHORT;
typedef int32_t FS_LONG;
typedef uint32_t FS_ULONG;
typedef int64_t FS_INT64;
typedef uint64_t FS_UINT64;
typedef uint8_t FS_BOOLEAN;
typedef char FILECHAR;

// Number formats, all in a signed 32-bit word unless noted.
typedef FS_LONG FS_FIXED;    // 16.16: scale factors, matrix entries, outlines
typedef FS_LONG FRACT;       // 2.30: third diagonal entry, CFF matrix
typedef FS_LONG F26DOT6;     // 26.6: points and interpreter values
typedef FS_SHORT SHORTFRACT; // 2.14: unit vectors, component scales
typedef FS_SHORT FS_FIX88;   // 8.8: size adjustment scales of linked fonts

const FS_FIXED FIXED_ONE = 65536;
const FRACT FRACT_ONE = 0x40000000;
const FS_LONG FS_SATURATED = 0x7FFFFFFF;

typedef struct {
  FS_FIXED x;
  FS_FIXED y;
} FIXED_VECTOR;

// (a * b + 2^(n-1)) >> n on the magnitudes, sign restored; a magnitude above
// 0x7FFFFFFF saturates to +-0x7FFFFFFF. 0 when either operand is 0. n is taken
// in 0..63 (a negative n counts as 0, one above 63 shifts everything out).
FS_LONG varmul_64(FS_LONG a, FS_LONG b, FS_LONG n);

// ((a << n) + b / 2) / b on the magnitudes, sign of a and b, saturating as
// varmul_64. b of 0 gives 0x7FFFFFFF, or -0x7FFFFFFF for a negative a.
// A negative n counts as 0.
FS_LONG vardiv_64(FS_LONG a, FS_LONG b, FS_LONG n);

// vardiv_64 without the rounding term: the quotient truncated.
FS_LONG vardiv_64NoRound(FS_LONG a, FS_LONG b, FS_LONG n);

// vardiv_64NoRound by a 32-bit shift and subtract loop, for callers without a
// 64-bit type. An exponent below 0 gives 0. A y of 0 saturates with the sign
// of x; otherwise a zero x gives 0 and an exponent above 31 saturates.
FS_LONG vardivNoRound(FS_LONG x, FS_LONG y, FS_LONG n);

// (a * b + c / 2) / c on the magnitudes, sign of all three, saturating at
// +-0x7FFFFFFF. 0 when a or b is 0; c of 0 saturates with the sign of a * b.
FS_LONG muldiv_64(FS_LONG a, FS_LONG b, FS_LONG c);

// Square root in 2.30 of a 2.30 value, bit by bit, truncated. Negative input
// gives -0x7FFFFFFF, 0 gives 0.
FRACT FracSqrt(FRACT xf);

// Square root in 16.16 of a 16.16 value, rounded to the nearest. Negative
// input gives -0x7FFFFFFF, 0 gives 0.
FS_FIXED FixSqrt(FS_FIXED x);

// A cheap length: the larger magnitude plus a third (truncated) of the
// smaller. Saturates at 0x7FFFFFFF.
FS_FIXED DistanceNorm(FS_FIXED dx, FS_FIXED dy);

// Makes *p a 16.16 unit vector in its own direction. An axis vector becomes
// +-65536 on its axis; (0, 0) becomes (65536, 0). A null p is ignored.
void fixed_norm(FIXED_VECTOR* p);

// Floor division for a positive d: a negative n gives ~(~n / d). A d of 0
// gives 0.
inline FS_LONG IDIV(FS_LONG n, FS_LONG d) {
  if (d == 0) return 0;
  if (n < 0) return ~(~n / d);
  return n / d;
}

// Remainder in the range of d: a negative remainder has d added. A d of 0 or
// -1 gives 0.
inline FS_LONG IMOD(FS_LONG n, FS_LONG d) {
  if (d == 0 || d == -1) return 0;
  FS_LONG r = n % d;
  if (r < 0) r += d;
  return r;
}

#endif
