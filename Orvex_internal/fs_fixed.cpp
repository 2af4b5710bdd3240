// Fixed-point arithmetic of the font engine: products, quotients and roots in
// 16.16, 2.30 and 26.6 with rounding on magnitudes and saturation at
// +-0x7FFFFFFF. Used by the heap's callers throughout the engine.
#include "Orvex_internal/fs_fixed.h"

namespace {

// Magnitude of a signed word as unsigned: -2^31 gives 2^31.
inline FS_ULONG magnitude(FS_LONG v) {
  return v < 0 ? 0u - (FS_ULONG)v : (FS_ULONG)v;
}

// A magnitude with its sign put back, saturating at 0x7FFFFFFF.
inline FS_LONG signed_saturated(FS_UINT64 mag, bool negative) {
  if (mag > (FS_UINT64)FS_SATURATED) mag = (FS_UINT64)FS_SATURATED;
  return negative ? -(FS_LONG)mag : (FS_LONG)mag;
}

// Below this magnitude two factors multiply without leaving 31 bits.
const FS_ULONG SMALL_FACTOR = 46340;
// With factors below SMALL_FACTOR, a divisor below this keeps the rounded
// dividend in 31 bits as well.
const FS_ULONG SMALL_DIVISOR = 176096;

// ((a << n) + round) / b on magnitudes, exact for any n of 0..95.
FS_UINT64 shifted_quotient(FS_ULONG a, FS_ULONG b, FS_LONG n, bool rounded) {
  if (n <= 32) {
    FS_UINT64 num = (FS_UINT64)a << n;  // at most 2^63
    if (rounded) num += b / 2;
    return num / b;
  }
  unsigned __int128 num = (unsigned __int128)a << n;
  if (rounded) num += b / 2;
  unsigned __int128 q = num / b;
  return q > (unsigned __int128)UINT64_MAX ? UINT64_MAX : (FS_UINT64)q;
}

FS_LONG vardiv_common(FS_LONG a, FS_LONG b, FS_LONG n, bool rounded) {
  if (b == 0) return a < 0 ? -FS_SATURATED : FS_SATURATED;
  if (a == 0) return 0;
  if (n < 0) n = 0;
  if (n > 95) n = 95;  // the quotient saturates long before this
  bool negative = (a < 0) != (b < 0);
  return signed_saturated(
      shifted_quotient(magnitude(a), magnitude(b), n, rounded), negative);
}

// Integer square root, the bit-by-bit method: the largest r with
// r * r <= v, trying each result bit from `top` (a power of 4's root) down.
FS_UINT64 bit_sqrt(FS_UINT64 v, FS_UINT64 top) {
  FS_UINT64 root = 0;
  for (FS_UINT64 bit = top; bit != 0; bit >>= 1) {
    FS_UINT64 trial = root + bit;
    if (trial * trial <= v) root = trial;
  }
  return root;
}

}  // namespace

FS_LONG varmul_64(FS_LONG a, FS_LONG b, FS_LONG n) {
  if (a == 0 || b == 0) return 0;
  if (n < 0) n = 0;
  if (n > 63) return 0;
  bool negative = (a < 0) != (b < 0);
  FS_ULONG ma = magnitude(a), mb = magnitude(b);
  if (ma < SMALL_FACTOR && mb < SMALL_FACTOR && n <= 31) {
    // The product stays below 2^31 and the rounding term below 2^31.
    FS_ULONG prod = ma * mb;
    if (n > 0) prod += (FS_ULONG)1 << (n - 1);
    return signed_saturated(prod >> n, negative);
  }
  FS_UINT64 prod = (FS_UINT64)ma * mb;  // at most 2^62
  if (n > 0) prod += (FS_UINT64)1 << (n - 1);
  return signed_saturated(prod >> n, negative);
}

FS_LONG vardiv_64(FS_LONG a, FS_LONG b, FS_LONG n) {
  return vardiv_common(a, b, n, true);
}

FS_LONG vardiv_64NoRound(FS_LONG a, FS_LONG b, FS_LONG n) {
  return vardiv_common(a, b, n, false);
}

FS_LONG vardivNoRound(FS_LONG x, FS_LONG y, FS_LONG n) {
  if (n < 0) return 0;
  if (y == 0) return x < 0 ? -FS_SATURATED : FS_SATURATED;
  if (x == 0) return 0;
  bool negative = (x < 0) != (y < 0);
  if (n > 31) return negative ? -FS_SATURATED : FS_SATURATED;
  FS_ULONG mx = magnitude(x), my = magnitude(y);
  FS_ULONG q = mx / my;
  FS_ULONG r = mx % my;
  if (q > (FS_ULONG)FS_SATURATED) return negative ? -FS_SATURATED : FS_SATURATED;
  // Long division, one quotient bit per step. r < my <= 2^31, so r << 1
  // still fits in 32 bits.
  for (FS_LONG i = 0; i < n; i++) {
    if (q > 0x3FFFFFFF) return negative ? -FS_SATURATED : FS_SATURATED;
    q <<= 1;
    r <<= 1;
    if (r >= my) {
      r -= my;
      q |= 1;
    }
  }
  return negative ? -(FS_LONG)q : (FS_LONG)q;
}

FS_LONG muldiv_64(FS_LONG a, FS_LONG b, FS_LONG c) {
  if (a == 0 || b == 0) return 0;
  bool negative = ((a < 0) != (b < 0)) != (c < 0);
  if (c == 0) {
    negative = (a < 0) != (b < 0);
    return negative ? -FS_SATURATED : FS_SATURATED;
  }
  FS_ULONG ma = magnitude(a), mb = magnitude(b), mc = magnitude(c);
  if (ma < SMALL_FACTOR && mb < SMALL_FACTOR && mc < SMALL_DIVISOR) {
    FS_ULONG num = ma * mb + mc / 2;  // below 2^31
    return signed_saturated(num / mc, negative);
  }
  FS_UINT64 num = (FS_UINT64)ma * mb + mc / 2;  // at most 2^62 + 2^30
  return signed_saturated(num / mc, negative);
}

FRACT FracSqrt(FRACT xf) {
  if (xf < 0) return -FS_SATURATED;
  if (xf == 0) return 0;
  // sqrt(x / 2^30) * 2^30 = sqrt(x * 2^30); x * 2^30 < 2^61, root < 2^31.
  return (FRACT)bit_sqrt((FS_UINT64)xf << 30, (FS_UINT64)1 << 30);
}

FS_FIXED FixSqrt(FS_FIXED x) {
  if (x < 0) return -FS_SATURATED;
  if (x == 0) return 0;
  // Raise x by four until it fills the 2.30 range; the 2.30 root of x * 4^k
  // is the 16.16 root times 2^(7 + k).
  FS_LONG shift = 7;
  FS_ULONG v = (FS_ULONG)x;
  while (v < 0x20000000) {
    v <<= 2;
    shift++;
  }
  FS_ULONG root = (FS_ULONG)FracSqrt((FRACT)v);
  return (FS_FIXED)((root + ((FS_ULONG)1 << (shift - 1))) >> shift);
}

FS_FIXED DistanceNorm(FS_FIXED dx, FS_FIXED dy) {
  FS_ULONG ax = magnitude(dx), ay = magnitude(dy);
  FS_UINT64 big = ax > ay ? ax : ay;
  FS_UINT64 small = ax > ay ? ay : ax;
  FS_UINT64 len = big + small / 3;
  return len > (FS_UINT64)FS_SATURATED ? FS_SATURATED : (FS_FIXED)len;
}

void fixed_norm(FIXED_VECTOR* p) {
  if (p == nullptr) return;
  FS_FIXED x = p->x, y = p->y;
  if (y == 0) {
    p->x = x < 0 ? -FIXED_ONE : FIXED_ONE;
    return;
  }
  if (x == 0) {
    p->y = y < 0 ? -FIXED_ONE : FIXED_ONE;
    return;
  }
  FS_ULONG ax = magnitude(x), ay = magnitude(y);
  FS_LONG m = (FS_LONG)(ax > ay ? ax : ay);
  if (ax > ay ? ax > 0x7FFFFFFF : ay > 0x7FFFFFFF) m = FS_SATURATED;
  if (m > FIXED_ONE) {
    x = vardiv_64(x, m, 16);
    y = vardiv_64(y, m, 16);
  } else if (m < 256) {
    x = muldiv_64(x, 256, m);
    y = muldiv_64(y, 256, m);
  }
  // Both components now lie within +-1.0, so the squared length is at most
  // 2.0 and its root below 2.0: the root's top bit is 65536.
  FS_FIXED s = varmul_64(x, x, 16) + varmul_64(y, y, 16);
  FS_FIXED root = (FS_FIXED)bit_sqrt((FS_UINT64)s << 16, FIXED_ONE);
  p->x = vardiv_64(x, root, 16);
  p->y = vardiv_64(y, root, 16);
}
