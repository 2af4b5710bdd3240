// The TrueType instruction interpreter. One process-global table of
// handlers, shared among instructions that read `opCode` to tell which one
// they are; the fetch loop calls one handler per byte. Values are 26.6 on
// the stack and 2.14 in unit vectors. Points move along the freedom vector
// so that their projection changes by the amount asked; every product of a
// vector and a distance rounds to nearest, halves away from zero.
#include "Orvex_internal/fs_fnt.h"

#include <string.h>

#include "Orvex_internal/fs_deltas.h"
#include "Orvex_internal/fs_rtgah.h"
#include "Orvex_internal/fs_scale.h"

namespace {

typedef fnt_LocalGraphicStateType GS;

const SHORTFRACT ONE_214 = 16384;

/* ---- Stack: pops of an empty stack read 0, a full one panics ---- */

inline FS_LONG depth(GS* gs) {
  return (FS_LONG)(gs->stackPointer - gs->globalGS->stackBase);
}

inline FS_LONG pop(GS* gs) {
  if (gs->stackPointer <= gs->globalGS->stackBase) return 0;
  return *--gs->stackPointer;
}

inline void push(GS* gs, FS_LONG v) {
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  if (gs->stackPointer >= g->stackBase + g->stackSize) fnt_Panic(gs, FNT_PANIC);
  *gs->stackPointer++ = v;
}

// Pops `n` values, as many as there are.
inline void drop(GS* gs, FS_LONG n) {
  FS_LONG d = depth(gs);
  gs->stackPointer -= n < d ? (n < 0 ? 0 : n) : d;
}

inline FS_LONG wrap_add(FS_LONG a, FS_LONG b) {
  return (FS_LONG)((FS_ULONG)a + (FS_ULONG)b);
}
inline FS_LONG wrap_sub(FS_LONG a, FS_LONG b) {
  return (FS_LONG)((FS_ULONG)a - (FS_ULONG)b);
}
inline FS_LONG wrap_neg(FS_LONG a) { return (FS_LONG)(0u - (FS_ULONG)a); }

/* ---- Points: a point or zone out of range is no point ---- */

inline bool point_ok(GS* gs, fnt_ElementType* el, FS_LONG p) {
  if (p < 0) return false;
  FS_LONG limit = el->np + (el == &gs->elements[0] ? 0 : 8);
  return p < limit;
}

/* ---- Projection and movement ---- */

// n / d rounded to nearest, halves away from zero, wrapped to 32 bits; a d
// of 0 gives 0.
inline FS_LONG div_round(FS_INT64 n, FS_INT64 d) {
  if (d == 0) return 0;
  bool neg = (n < 0) != (d < 0);
  FS_UINT64 an = n < 0 ? 0 - (FS_UINT64)n : (FS_UINT64)n;
  FS_UINT64 ad = d < 0 ? 0 - (FS_UINT64)d : (FS_UINT64)d;
  FS_UINT64 q = (an + ad / 2) / ad;
  return (FS_LONG)(FS_ULONG)(neg ? 0 - q : q);
}
// a x b / c, the product in 64 bits, rounded as div_round.
inline FS_LONG mul_div(FS_INT64 a, FS_INT64 b, FS_INT64 c) {
  return div_round(a * b, c);
}
// A 26.6 value times a 2.14 one.
inline F26DOT6 mul14(F26DOT6 v, SHORTFRACT f) { return mul_div(v, f, 16384); }
// A dot product of a 26.6 vector and a 2.14 unit vector.
inline F26DOT6 dot14(F26DOT6 dx, F26DOT6 dy, SHORT_UNIT_VECTOR v) {
  return div_round((FS_INT64)dx * v.x + (FS_INT64)dy * v.y, 16384);
}

F26DOT6 fnt_XProject(GS*, F26DOT6 dx, F26DOT6) { return dx; }
F26DOT6 fnt_YProject(GS*, F26DOT6, F26DOT6 dy) { return dy; }
F26DOT6 fnt_Project(GS* gs, F26DOT6 dx, F26DOT6 dy) {
  return dot14(dx, dy, gs->proj);
}
F26DOT6 fnt_OldProject(GS* gs, F26DOT6 dx, F26DOT6 dy) {
  return dot14(dx, dy, gs->oldProj);
}

void fnt_XMovePoint(GS*, fnt_ElementType* el, FS_LONG p, F26DOT6 delta) {
  el->x[p] = wrap_add(el->x[p], delta);
  el->f[p] |= XMOVED;
}
void fnt_YMovePoint(GS*, fnt_ElementType* el, FS_LONG p, F26DOT6 delta) {
  el->y[p] = wrap_add(el->y[p], delta);
  el->f[p] |= YMOVED;
}
// Along the freedom vector, so that the projection changes by `delta`;
// `touch` marks the point moved along each axis the freedom vector has.
inline void move_along_freedom(GS* gs, fnt_ElementType* el, FS_LONG p,
                               F26DOT6 delta, bool touch) {
  if (gs->freedom.x != 0) {
    el->x[p] = wrap_add(el->x[p], mul_div(delta, gs->freedom.x, gs->pfProj));
    if (touch) el->f[p] |= XMOVED;
  }
  if (gs->freedom.y != 0) {
    el->y[p] = wrap_add(el->y[p], mul_div(delta, gs->freedom.y, gs->pfProj));
    if (touch) el->f[p] |= YMOVED;
  }
}
void fnt_MovePoint(GS* gs, fnt_ElementType* el, FS_LONG p, F26DOT6 delta) {
  move_along_freedom(gs, el, p, delta, true);
}

// Picks the projection and move functions for the current vectors.
void fnt_ComputeAndCheck(GS* gs) {
  FS_LONG dot = ((FS_LONG)gs->proj.x * gs->freedom.x +
                 (FS_LONG)gs->proj.y * gs->freedom.y) >> 14;
  // Nearly perpendicular vectors would divide by almost nothing.
  if (dot > -0x400 && dot < 0x400) dot = ONE_214;
  gs->pfProj = (SHORTFRACT)(dot > 32767 ? 32767 : dot < -32768 ? -32768 : dot);
  if (gs->proj.x == ONE_214 && gs->proj.y == 0)
    gs->Project = fnt_XProject;
  else if (gs->proj.x == 0 && gs->proj.y == ONE_214)
    gs->Project = fnt_YProject;
  else
    gs->Project = fnt_Project;
  if (gs->oldProj.x == ONE_214 && gs->oldProj.y == 0)
    gs->OldProject = fnt_XProject;
  else if (gs->oldProj.x == 0 && gs->oldProj.y == ONE_214)
    gs->OldProject = fnt_YProject;
  else
    gs->OldProject = fnt_OldProject;
  if (gs->pfProj == ONE_214 && gs->freedom.x == ONE_214 && gs->freedom.y == 0)
    gs->MovePoint = fnt_XMovePoint;
  else if (gs->pfProj == ONE_214 && gs->freedom.x == 0 &&
           gs->freedom.y == ONE_214)
    gs->MovePoint = fnt_YMovePoint;
  else
    gs->MovePoint = fnt_MovePoint;
}

int bitcount(FS_UINT64 v) {
  int n = 0;
  while (v) v >>= 1, n++;
  return n;
}

// The integer square root of v, rounded down.
FS_UINT64 isqrt64(FS_UINT64 v) {
  FS_UINT64 r = 0, bit = (FS_UINT64)1 << 62;
  while (bit > v) bit >>= 2;
  while (bit != 0) {
    if (v >= r + bit) {
      v -= r + bit;
      r = (r >> 1) + bit;
    } else {
      r >>= 1;
    }
    bit >>= 2;
  }
  return r;
}

// (x, y) as a unit vector in 2.14: both shifted so that the larger has 30
// significant bits, each divided by the length into 2.30 and rounded into
// 2.14. A zero vector gives (1.0, 0).
void fnt_Normalize(F26DOT6 x, F26DOT6 y, SHORT_UNIT_VECTOR* v) {
  if (x == 0 && y == 0) {
    v->x = ONE_214, v->y = 0;
    return;
  }
  FS_INT64 ax = x < 0 ? -(FS_INT64)x : x, ay = y < 0 ? -(FS_INT64)y : y;
  int bits = bitcount((FS_UINT64)(ax > ay ? ax : ay));
  FS_INT64 sx = bits <= 30 ? (FS_INT64)x * ((FS_INT64)1 << (30 - bits))
                           : (FS_INT64)x / ((FS_INT64)1 << (bits - 30));
  FS_INT64 sy = bits <= 30 ? (FS_INT64)y * ((FS_INT64)1 << (30 - bits))
                           : (FS_INT64)y / ((FS_INT64)1 << (bits - 30));
  FS_INT64 len = (FS_INT64)isqrt64((FS_UINT64)(sx * sx) + (FS_UINT64)(sy * sy));
  if (len == 0) len = 1;
  FS_INT64 qx = sx * ((FS_INT64)1 << 30) / len;  // 2.30
  FS_INT64 qy = sy * ((FS_INT64)1 << 30) / len;
  v->x = (SHORTFRACT)((qx + 0x8000) >> 16);
  v->y = (SHORTFRACT)((qy + 0x8000) >> 16);
}

/* ---- Control values and the single width ---- */

// The CVT's scale along the projection: the stretch of the axis, or the
// root of cos^2 X^2 + sin^2 Y^2 (1.0 when that sum reaches 1.0). 16.16.
FS_FIXED fnt_GetCVTScale(GS* gs) {
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  if (gs->proj.y == 0) return g->cvtStretchX;
  if (gs->proj.x == 0) return g->cvtStretchY;
  // cos x X and sin x Y in 2.30, squared and summed in 2.30.
  FS_INT64 cx = (FS_INT64)gs->proj.x * g->cvtStretchX;
  FS_INT64 sy = (FS_INT64)gs->proj.y * g->cvtStretchY;
  FS_INT64 sum = ((cx * cx) >> 30) + ((sy * sy) >> 30);
  if (sum >= FRACT_ONE) return FIXED_ONE;
  return FracSqrt((FRACT)sum) >> 14;
}

inline bool cvt_ok(GS* gs, FS_LONG n) {
  return n >= 0 && n < gs->globalGS->cvtCount;
}
F26DOT6 fnt_GetCVTEntryFast(GS* gs, FS_LONG n) {
  return cvt_ok(gs, n) ? gs->globalGS->controlValueTable[n] : 0;
}
F26DOT6 fnt_GetCVTEntrySlow(GS* gs, FS_LONG n) {
  if (!cvt_ok(gs, n)) return 0;
  return varmul_64(gs->globalGS->controlValueTable[n], fnt_GetCVTScale(gs), 16);
}
F26DOT6 fnt_GetSingleWidthFast(GS* gs) {
  return gs->globalGS->localParBlock.scaledSW;
}
F26DOT6 fnt_GetSingleWidthSlow(GS* gs) {
  return varmul_64(gs->globalGS->localParBlock.scaledSW, fnt_GetCVTScale(gs),
                   16);
}

}  // namespace

FS_LONG fnt_ProjectedPPEM(fnt_LocalGraphicStateType* gs) {
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  if (g->identityTransformation) return g->pixelsPerEm;
  return varmul_64(g->pixelsPerEm, fnt_GetCVTScale(gs), 16);
}

namespace {

F26DOT6 scale_cvt_value(fnt_GlobalGraphicStateType* g, FS_LONG v) {
  return scale_value(&g->scaleCVT, v);
}

// A distance in font units scaled symmetrically: its magnitude through the
// record, the sign given back, so that halves go away from zero.
inline F26DOT6 scale_distance(const scale_rec* rec, FS_LONG v) {
  return v < 0 ? wrap_neg(scale_value(rec, wrap_neg(v))) : scale_value(rec, v);
}

inline bool same_scale(const scale_rec& a, const scale_rec& b) {
  return a.fn == b.fn && a.N == b.N && a.D == b.D && a.scl == b.scl &&
         a.shift == b.shift;
}
inline bool is_twilight(GS* gs, fnt_ElementType* el) {
  return el == &gs->elements[0];
}

// The original distance of point a (in ea) from point b (in eb) along the
// dual projection, in pixels: from the scaled originals when either lies
// in the twilight zone, which has no font units, else from the font units,
// projected and scaled symmetrically (each axis scaled first when the axes
// differ).
F26DOT6 old_distance(GS* gs, fnt_ElementType* ea, FS_LONG a,
                     fnt_ElementType* eb, FS_LONG b) {
  if (is_twilight(gs, ea) || is_twilight(gs, eb))
    return gs->OldProject(gs, wrap_sub(ea->ox[a], eb->ox[b]),
                          wrap_sub(ea->oy[a], eb->oy[b]));
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  FS_LONG dx = wrap_sub(ea->oox[a], eb->oox[b]);
  FS_LONG dy = wrap_sub(ea->ooy[a], eb->ooy[b]);
  if (same_scale(g->scaleX, g->scaleY))
    return scale_distance(&g->scaleX, gs->OldProject(gs, dx, dy));
  return gs->OldProject(gs, scale_distance(&g->scaleX, dx),
                        scale_distance(&g->scaleY, dy));
}

/* ---- Program bytes ---- */

inline FS_BYTE next_byte(GS* gs, const FS_BYTE* eptr) {
  if (gs->insPtr >= eptr) fnt_Panic(gs, FNT_PANIC);  // push data cut off
  return *gs->insPtr++;
}

// The number of push data bytes behind push opcode `op` at `p` (the opcode
// already read), or 0 for others.
FS_LONG push_data_length(FS_BYTE op, const FS_BYTE* p, const FS_BYTE* eptr) {
  if (op == 0x40) return p < eptr ? 1 + (FS_LONG)p[0] : 1;
  if (op == 0x41) return p < eptr ? 1 + 2 * (FS_LONG)p[0] : 1;
  if (op >= 0xB0 && op <= 0xB7) return op - 0xB0 + 1;
  if (op >= 0xB8 && op <= 0xBF) return 2 * (op - 0xB8 + 1);
  return 0;
}

// Steps over the push data of the opcode just read.
inline void fnt_SkipPushCrap(GS* gs, FS_BYTE op, const FS_BYTE* eptr) {
  FS_LONG n = push_data_length(op, gs->insPtr, eptr);
  gs->insPtr = eptr - gs->insPtr > n ? gs->insPtr + n : eptr;
}

// Where the program being run ends, for scans of definitions and IF.
const FS_BYTE* program_end(GS* gs);

/* ---- Graphic state setters and getters ---- */

void fnt_SVTCA(GS* gs) {  // 0x00-0x05
  SHORT_UNIT_VECTOR v = (gs->opCode & 1) ? SHORT_UNIT_VECTOR{ONE_214, 0}
                                         : SHORT_UNIT_VECTOR{0, ONE_214};
  if (gs->opCode < 4) gs->proj = gs->oldProj = v;
  if (gs->opCode < 2 || gs->opCode >= 4) gs->freedom = v;
  fnt_ComputeAndCheck(gs);
}

// The vector from p1 (in CE2) to p2 (in CE1), rotated a quarter turn for
// the odd opcode; `old` takes the unhinted positions.
bool line_vector(GS* gs, FS_LONG p1, FS_LONG p2, bool old,
                 SHORT_UNIT_VECTOR* v) {
  if (!point_ok(gs, gs->CE2, p1) || !point_ok(gs, gs->CE1, p2)) return false;
  F26DOT6 dx = old ? wrap_sub(gs->CE1->ox[p2], gs->CE2->ox[p1])
                   : wrap_sub(gs->CE1->x[p2], gs->CE2->x[p1]);
  F26DOT6 dy = old ? wrap_sub(gs->CE1->oy[p2], gs->CE2->oy[p1])
                   : wrap_sub(gs->CE1->y[p2], gs->CE2->y[p1]);
  if (gs->opCode & 1) {
    F26DOT6 t = dx;
    dx = wrap_neg(dy);
    dy = t;
  }
  fnt_Normalize(dx, dy, v);
  return true;
}

void fnt_SPVTL(GS* gs) {  // 0x06, 0x07
  FS_LONG p1 = pop(gs), p2 = pop(gs);
  if (line_vector(gs, p1, p2, false, &gs->proj)) gs->oldProj = gs->proj;
  fnt_ComputeAndCheck(gs);
}
void fnt_SFVTL(GS* gs) {  // 0x08, 0x09
  FS_LONG p1 = pop(gs), p2 = pop(gs);
  line_vector(gs, p1, p2, false, &gs->freedom);
  fnt_ComputeAndCheck(gs);
}
void fnt_SDPVTL(GS* gs) {  // 0x86, 0x87
  FS_LONG p1 = pop(gs), p2 = pop(gs);
  if (line_vector(gs, p1, p2, false, &gs->proj))
    line_vector(gs, p1, p2, true, &gs->oldProj);
  fnt_ComputeAndCheck(gs);
}
void fnt_SPVFS(GS* gs) {  // 0x0A
  FS_LONG y = pop(gs), x = pop(gs);
  fnt_Normalize(x, y, &gs->proj);
  gs->oldProj = gs->proj;
  fnt_ComputeAndCheck(gs);
}
void fnt_SFVFS(GS* gs) {  // 0x0B
  FS_LONG y = pop(gs), x = pop(gs);
  fnt_Normalize(x, y, &gs->freedom);
  fnt_ComputeAndCheck(gs);
}
void fnt_GPV(GS* gs) {  // 0x0C
  push(gs, gs->proj.x);
  push(gs, gs->proj.y);
}
void fnt_GFV(GS* gs) {  // 0x0D
  push(gs, gs->freedom.x);
  push(gs, gs->freedom.y);
}
void fnt_SFVTPV(GS* gs) {  // 0x0E
  gs->freedom = gs->proj;
  fnt_ComputeAndCheck(gs);
}

// SRP0-2, SLOOP, and POP (0x21), which pops and does nothing.
void fnt_SetLocalGraphicState(GS* gs) {
  FS_LONG v = pop(gs);
  switch (gs->opCode) {
    case 0x10: gs->Pt0 = v; break;
    case 0x11: gs->Pt1 = v; break;
    case 0x12: gs->Pt2 = v; break;
    case 0x17: gs->loop = wrap_sub(v, 1); break;
    default: break;
  }
}

void fnt_SetElementPtr(GS* gs) {  // 0x13-0x16
  FS_LONG z = pop(gs);
  if (z != 0 && z != 1) return;  // no such zone: the pointers stay
  fnt_ElementType* el = &gs->elements[z];
  switch (gs->opCode) {
    case 0x13: gs->CE0 = el; break;
    case 0x14: gs->CE1 = el; break;
    case 0x15: gs->CE2 = el; break;
    default: gs->CE0 = gs->CE1 = gs->CE2 = el; break;
  }
}

void fnt_SetRoundState(GS* gs) {  // RTG RTHG RTDG ROFF RUTG RDTG
  FS_SHORT* r = &gs->globalGS->localParBlock.RoundValue;
  switch (gs->opCode) {
    case 0x18: *r = RFI_fnt_RoundToGrid; break;
    case 0x19: *r = RFI_fnt_RoundToHalfGrid; break;
    case 0x3D: *r = RFI_fnt_RoundToDoubleGrid; break;
    case 0x7A: *r = RFI_fnt_RoundOff; break;
    case 0x7C: *r = RFI_fnt_RoundUpToGrid; break;
    default: *r = RFI_fnt_RoundDownToGrid; break;
  }
}

void fnt_SROUND(GS* gs) {  // 0x76, 0x77
  fnt_ParameterBlock* pb = &gs->globalGS->localParBlock;
  bool normal = gs->opCode == 0x76;
  fnt_SetRoundValues(pb, pop(gs), normal);
  pb->RoundValue = normal ? RFI_fnt_SuperRound : RFI_fnt_Super45Round;
}

void fnt_SMD(GS* gs) { gs->globalGS->localParBlock.minimumDistance = pop(gs); }
void fnt_SCVTCI(GS* gs) { gs->globalGS->localParBlock.wTCI = pop(gs); }
void fnt_SSWCI(GS* gs) { gs->globalGS->localParBlock.sWCI = pop(gs); }
void fnt_SSW(GS* gs) {  // font units, kept scaled too
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  g->localParBlock.sW = (FS_SHORT)pop(gs);
  g->localParBlock.scaledSW = scale_cvt_value(g, g->localParBlock.sW);
}
void fnt_FLIPON(GS* gs) { gs->globalGS->localParBlock.autoFlip = 1; }
void fnt_FLIPOFF(GS* gs) { gs->globalGS->localParBlock.autoFlip = 0; }
void fnt_SANGW(GS* gs) {
  gs->globalGS->localParBlock.angleWeight = (FS_SHORT)pop(gs);
}
void fnt_DEBUG(GS* gs) { pop(gs); }
void fnt_SDB(GS* gs) { gs->globalGS->localParBlock.deltaBase = (FS_SHORT)pop(gs); }
void fnt_SDS(GS* gs) {
  FS_LONG s = pop(gs);
  if (s >= 0 && s <= 6) gs->globalGS->localParBlock.deltaShift = (FS_SHORT)s;
}
void fnt_SCANCTRL(GS* gs) {  // 0x85: the low half
  FS_LONG* sc = &gs->globalGS->localParBlock.scanControl;
  *sc = (FS_LONG)(((FS_ULONG)*sc & 0xFFFF0000u) | ((FS_ULONG)pop(gs) & 0xFFFF));
}
void fnt_SCANTYPE(GS* gs) {  // 0x8D: the high half, 0 to 2
  FS_LONG v = pop(gs);
  FS_LONG* sc = &gs->globalGS->localParBlock.scanControl;
  if (v >= 0 && v <= 2) *sc = (FS_LONG)(((FS_ULONG)*sc & 0xFFFF) | ((FS_ULONG)v << 16));
}
void fnt_INSTCTRL(GS* gs) {  // 0x8E: only while the control-value program runs
  FS_LONG selector = pop(gs), value = pop(gs);
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  if (!g->init) return;
  if (selector == 1 || selector == 2) {
    FS_LONG bit = selector == 1 ? 1 : 2;
    g->localParBlock.instructControl =
        (g->localParBlock.instructControl & ~bit) | (value & bit);
  }
}

/* ---- Pushes and the stack ---- */

void fnt_PUSHB(GS* gs) {  // 0xB0-0xB7, and NPUSHB 0x40
  const FS_BYTE* eptr = program_end(gs);
  FS_LONG n = gs->opCode == 0x40 ? next_byte(gs, eptr) : gs->opCode - 0xB0 + 1;
  for (FS_LONG i = 0; i < n; i++) push(gs, next_byte(gs, eptr));
}
void fnt_PUSHW(GS* gs) {  // 0xB8-0xBF, and NPUSHW 0x41
  const FS_BYTE* eptr = program_end(gs);
  FS_LONG n = gs->opCode == 0x41 ? next_byte(gs, eptr) : gs->opCode - 0xB8 + 1;
  for (FS_LONG i = 0; i < n; i++) {
    FS_BYTE hi = next_byte(gs, eptr);
    FS_BYTE lo = next_byte(gs, eptr);
    push(gs, (FS_SHORT)((hi << 8) | lo));
  }
}

void fnt_DUP(GS* gs) {
  FS_LONG v = pop(gs);
  push(gs, v);
  push(gs, v);
}
void fnt_CLEAR(GS* gs) { gs->stackPointer = gs->globalGS->stackBase; }
void fnt_SWAP(GS* gs) {
  FS_LONG b = pop(gs), a = pop(gs);
  push(gs, b);
  push(gs, a);
}
void fnt_DEPTH(GS* gs) { push(gs, depth(gs)); }
void fnt_CINDEX(GS* gs) {  // copies the k-th value (0 when there is none)
  FS_LONG k = pop(gs);
  push(gs, k >= 1 && k <= depth(gs) ? gs->stackPointer[-k] : 0);
}
void fnt_MINDEX(GS* gs) {  // moves the k-th value to the top
  FS_LONG k = pop(gs);
  if (k < 1 || k > depth(gs)) return;
  FS_LONG* at = gs->stackPointer - k;
  FS_LONG v = *at;
  memmove(at, at + 1, (size_t)(k - 1) * sizeof(FS_LONG));
  gs->stackPointer[-1] = v;
}
void fnt_ROLL(GS* gs) {  // the third value comes to the top
  FS_LONG a = pop(gs), b = pop(gs), c = pop(gs);
  push(gs, b);
  push(gs, a);
  push(gs, c);
}

/* ---- Storage and control values ---- */

void fnt_WS(GS* gs) {
  FS_LONG v = pop(gs), i = pop(gs);
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  if (i >= 0 && i < g->storeCount) g->store[i] = v;
}
void fnt_RS(GS* gs) {
  FS_LONG i = pop(gs);
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  push(gs, i >= 0 && i < g->storeCount ? g->store[i] : 0);
}
// Stores a value in pixels so that a later read gives it back: under a
// stretch the read multiplies by the CVT's scale, so the stored value is
// value x (value / read value).
void fnt_WCVTP(GS* gs) {  // 0x44
  F26DOT6 v = pop(gs);
  FS_LONG i = pop(gs);
  if (!cvt_ok(gs, i)) return;
  F26DOT6* cvt = gs->globalGS->controlValueTable;
  cvt[i] = v;
  F26DOT6 back = gs->GetCVTEntry(gs, i);
  if (back != v && back != 0 && v != 0)
    cvt[i] = varmul_64(v, vardiv_64(v, back, 16), 16);
}
void fnt_WCVTF(GS* gs) {  // 0x70: font units
  FS_LONG v = pop(gs), i = pop(gs);
  if (cvt_ok(gs, i)) gs->globalGS->controlValueTable[i] = scale_cvt_value(gs->globalGS, v);
}
void fnt_RCVT(GS* gs) {
  FS_LONG i = pop(gs);
  push(gs, gs->GetCVTEntry(gs, i));
}

/* ---- Measurements ---- */

void fnt_MPPEM(GS* gs) { push(gs, fnt_ProjectedPPEM(gs)); }
void fnt_MPS(GS* gs) { push(gs, gs->globalGS->pixelsPerEm); }  // 72 dpi

// GETINFO: version 1, bit 8 rotated, bit 9 stretched.
void fnt_GETINFO(GS* gs) {
  FS_LONG sel = pop(gs), r = 0;
  FS_BYTE t = gs->globalGS->non90DegreeTransformation;
  if (sel & 1) r |= 1;
  if ((sel & 2) && (t & 1)) r |= 256;
  if ((sel & 4) && (t & 2)) r |= 512;
  push(gs, r);
}

void fnt_GC(GS* gs) {  // 0x46 current, 0x47 unhinted
  FS_LONG p = pop(gs);
  fnt_ElementType* el = gs->CE2;
  if (!point_ok(gs, el, p)) {
    push(gs, 0);
    return;
  }
  push(gs, gs->opCode == 0x46 ? gs->Project(gs, el->x[p], el->y[p])
                              : gs->OldProject(gs, el->ox[p], el->oy[p]));
}

void fnt_MD(GS* gs) {  // 0x49 current, 0x4A font units scaled
  if (depth(gs) < 2) fnt_Panic(gs, FNT_PANIC);
  FS_LONG p1 = pop(gs), p2 = pop(gs);
  fnt_ElementType *e0 = gs->CE0, *e1 = gs->CE1;
  if (!point_ok(gs, e0, p2) || !point_ok(gs, e1, p1)) {
    push(gs, 0);
    return;
  }
  if (gs->opCode & 1)
    push(gs, gs->Project(gs, wrap_sub(e0->x[p2], e1->x[p1]),
                         wrap_sub(e0->y[p2], e1->y[p1])));
  else
    push(gs, old_distance(gs, e0, p2, e1, p1));
}

// SCFS: moves the point so that its projection is the value; in the
// twilight zone the unhinted position follows.
void fnt_SCFS(GS* gs) {  // 0x48
  F26DOT6 v = pop(gs);
  FS_LONG p = pop(gs);
  fnt_ElementType* el = gs->CE2;
  if (!point_ok(gs, el, p)) return;
  gs->MovePoint(gs, el, p, wrap_sub(v, gs->Project(gs, el->x[p], el->y[p])));
  if (el == &gs->elements[0]) {
    el->ox[p] = el->x[p];
    el->oy[p] = el->y[p];
  }
}

// The glyph's advance in unhinted pixels: right minus left phantom place.
void fnt_RAW(GS* gs) {
  fnt_ElementType* el = &gs->elements[1];
  push(gs, wrap_sub(el->ox[el->np + 1], el->ox[el->np]));
}

/* ---- Flags of points that move nothing ---- */

void fnt_UTP(GS* gs) {  // 0x29
  FS_LONG p = pop(gs);
  fnt_ElementType* el = gs->CE0;
  if (!point_ok(gs, el, p)) return;
  if (gs->freedom.x != 0) el->f[p] &= (FS_BYTE)~XMOVED;
  if (gs->freedom.y != 0) el->f[p] &= (FS_BYTE)~YMOVED;
}

void fnt_FLIPPT(GS* gs) {  // 0x80: `loop` + 1 points
  FS_INT64 n = (FS_INT64)gs->loop + 1;
  gs->loop = 0;
  if (n > depth(gs)) return;
  fnt_ElementType* el = gs->CE0;
  while (n-- > 0) {
    FS_LONG p = pop(gs);
    if (point_ok(gs, el, p)) el->onCurve[p] ^= 1;
  }
}

void fnt_FLIPRG(GS* gs) {  // 0x81 on, 0x82 off
  FS_LONG hi = pop(gs), lo = pop(gs);
  fnt_ElementType* el = gs->CE0;
  if (lo > hi || !point_ok(gs, el, lo) || !point_ok(gs, el, hi)) return;
  for (FS_LONG p = lo; p <= hi; p++) el->onCurve[p] = gs->opCode == 0x81;
}

/* ---- Arithmetic and logic ---- */

void fnt_BinaryOperand(GS* gs) {
  FS_LONG b = pop(gs), a = pop(gs), r = 0;
  switch (gs->opCode) {
    case 0x50: r = a < b; break;
    case 0x51: r = a <= b; break;
    case 0x52: r = a > b; break;
    case 0x53: r = a >= b; break;
    case 0x54: r = a == b; break;
    case 0x55: r = a != b; break;
    case 0x5A: r = a && b; break;
    case 0x5B: r = a || b; break;
    case 0x60: r = wrap_add(a, b); break;
    case 0x61: r = wrap_sub(a, b); break;
    case 0x62: {  // a x 64 / b, truncated; by 0 gives 0
      if (b == 0) break;
      FS_INT64 q = (FS_INT64)a * 64 / (FS_INT64)b;
      r = (FS_LONG)(FS_ULONG)(FS_UINT64)q;
      break;
    }
    case 0x63: {  // a x b / 64, halves away from zero
      FS_INT64 m = (FS_INT64)a * b;
      FS_INT64 q = m < 0 ? -((-m + 32) / 64) : (m + 32) / 64;
      r = (FS_LONG)(FS_ULONG)(FS_UINT64)q;
      break;
    }
    case 0x8B: r = a > b ? a : b; break;
    default: r = a < b ? a : b; break;  // 0x8C MIN
  }
  push(gs, r);
}

void fnt_UnaryOperand(GS* gs) {
  FS_LONG a = pop(gs), r = 0;
  switch (gs->opCode) {
    case 0x56:  // ODD and EVEN round to the grid whatever the round state
      r = (RoundFuncCall(RFI_fnt_RoundToGrid, a, 0, nullptr) & 127) == 64;
      break;
    case 0x57:
      r = (RoundFuncCall(RFI_fnt_RoundToGrid, a, 0, nullptr) & 127) == 0;
      break;
    case 0x5C: r = !a; break;
    case 0x64: r = a < 0 ? wrap_neg(a) : a; break;
    case 0x65: r = wrap_neg(a); break;
    case 0x66: r = a & -64; break;
    default: r = (FS_LONG)(((FS_ULONG)a + 63) & ~63u); break;  // 0x67 CEILING
  }
  push(gs, r);
}

void fnt_ROUND(GS* gs) {  // 0x68-0x6B
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  push(gs, RoundFuncCall(g->localParBlock.RoundValue, pop(gs),
                         g->engine[gs->opCode & 3], &g->localParBlock));
}
void fnt_NROUND(GS* gs) {  // 0x6C-0x6F
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  push(gs, RoundFuncCall(RFI_fnt_RoundOff, pop(gs), g->engine[gs->opCode & 3],
                         &g->localParBlock));
}

/* ---- Flow control ---- */

// Skips to the ELSE or EIF that matches at this level (stopAtElse) or to
// the EIF, stepping over nested IFs and push data.
void skip_conditional(GS* gs, bool stopAtElse) {
  const FS_BYTE* eptr = program_end(gs);
  FS_LONG level = 0;
  while (gs->insPtr < eptr) {
    FS_BYTE op = *gs->insPtr++;
    if (op == 0x58) {
      level++;
    } else if (op == 0x59) {
      if (level-- == 0) return;
    } else if (op == 0x1B && level == 0 && stopAtElse) {
      return;
    } else {
      fnt_SkipPushCrap(gs, op, eptr);
    }
  }
}

void fnt_IF(GS* gs) {
  if (pop(gs) == 0) skip_conditional(gs, true);
}
void fnt_ELSE(GS* gs) { skip_conditional(gs, false); }
void fnt_EIF(GS*) {}

void jump(GS* gs, FS_LONG offset) {
  // insPtr stands beyond the instruction already.
  FS_INT64 at = (gs->insPtr - gs->pgmStart) + (FS_INT64)offset - 1;
  if (at < 0) fnt_Panic(gs, FNT_PANIC);
  const FS_BYTE* eptr = program_end(gs);
  gs->insPtr = at >= eptr - gs->pgmStart ? eptr : gs->pgmStart + at;
}
void fnt_JMPR(GS* gs) { jump(gs, pop(gs)); }
void fnt_JROT(GS* gs) {  // 0x78, JROF 0x79: the condition, then the offset
  FS_LONG cond = pop(gs), offset = pop(gs);
  if ((cond != 0) == (gs->opCode == 0x78)) jump(gs, offset);
}

/* ---- Definitions and calls ---- */

// Scans from insPtr to the ENDF that closes a definition: its length. A
// definition without one panics.
FS_LONG scan_definition(GS* gs) {
  const FS_BYTE* eptr = program_end(gs);
  const FS_BYTE* start = gs->insPtr;
  while (gs->insPtr < eptr) {
    FS_BYTE op = *gs->insPtr++;
    if (op == 0x2D) return (FS_LONG)(gs->insPtr - 1 - start);
    if (op == 0x2C || op == 0x89) break;  // a definition inside one
    fnt_SkipPushCrap(gs, op, eptr);
  }
  fnt_Panic(gs, FNT_PANIC);
}

void fnt_FDEF(GS* gs) {
  FS_LONG n = pop(gs);
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  if (g->funcDef == nullptr || n < 0 || n >= g->funcDefCount ||
      g->glyphProgram) {
    gs->error = 1;
    return;
  }
  FS_ULONG start = (FS_ULONG)(gs->insPtr - gs->pgmStart);
  FS_LONG length = scan_definition(gs);
  fnt_funcDef* d = &g->funcDef[n];
  d->start = start;
  d->length = (FS_USHORT)(length > 0xFFFF ? 0xFFFF : length);
  d->pgmIndex = g->pgmIndex;
}

void fnt_IDEF(GS* gs) {
  FS_LONG op = pop(gs);
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  if (g->glyphProgram) {
    gs->error = 1;
    return;
  }
  FS_ULONG start = (FS_ULONG)(gs->insPtr - gs->pgmStart);
  FS_LONG length = scan_definition(gs);
  if (g->instrDef == nullptr || op < 0 || op > 255) return;
  FS_LONG i = 0;
  while (i < g->instrDefCount && g->instrDef[i].opCode != op) i++;
  if (i == g->instrDefCount) {
    if (i >= g->instrDefMax) return;  // no room: the definition is lost
    g->instrDefCount++;
  }
  fnt_instrDef* d = &g->instrDef[i];
  d->start = start;
  d->length = (FS_USHORT)(length > 0xFFFF ? 0xFFFF : length);
  d->pgmIndex = (FS_BYTE)g->pgmIndex;
  d->opCode = (FS_BYTE)op;
  if (op >= 0xA2 && op <= 0xAF && g->udFuncType == 1) g->udFuncType = 2;
}

// Runs `length` bytes at `start` of program `pgmIndex`, `times` times.
void run_body(GS* gs, FS_LONG pgmIndex, FS_ULONG start, FS_LONG length,
              FS_LONG times) {
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  const FS_BYTE* base = g->pgmList[pgmIndex];
  FS_LONG plen = g->pgmLength[pgmIndex];
  if (base == nullptr || (FS_INT64)start + length > plen) {
    gs->error = 1;
    return;
  }
  if (++gs->callDepth > FNT_MAX_CALL_DEPTH) fnt_Panic(gs, FNT_PANIC);
  const FS_BYTE* savedStart = gs->pgmStart;
  gs->pgmStart = base;
  for (FS_LONG k = 0; k < times && gs->error == 0; k++)
    fnt_InnerExecute(gs, base + start, base + start + length);
  gs->pgmStart = savedStart;
  gs->callDepth--;
}

void call(GS* gs, FS_LONG n, FS_LONG times) {
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  if (g->funcDef == nullptr || n < 0 || n >= g->funcDefCount) {
    gs->error = 1;
    return;
  }
  fnt_funcDef* d = &g->funcDef[n];
  if (d->pgmIndex < 0 || d->pgmIndex >= MAXPREPROGRAMS) {
    gs->error = 1;
    return;
  }
  if (d->length == 0) return;  // undefined: runs nothing
  run_body(gs, d->pgmIndex, d->start, d->length, times);
}
void fnt_CALL(GS* gs) { call(gs, pop(gs), 1); }
void fnt_LOOPCALL(GS* gs) {
  FS_LONG n = pop(gs), times = pop(gs);
  if (times > 0) call(gs, n, times);
}

void fnt_IDefPatch(GS* gs) {
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  for (FS_LONG i = 0; g->instrDef != nullptr && i < g->instrDefCount; i++) {
    fnt_instrDef* d = &g->instrDef[i];
    if (d->opCode != gs->opCode) continue;
    if (d->pgmIndex >= MAXPREPROGRAMS) fnt_Panic(gs, FNT_PANIC);
    run_body(gs, d->pgmIndex, d->start, d->length, 1);
    return;
  }
  fnt_Panic(gs, FNT_PANIC);
}

void fnt_IllegalInstruction(GS* gs) { fnt_Panic(gs, FNT_PANIC); }

/* ---- Point instructions ---- */

inline F26DOT6 round_value(GS* gs, F26DOT6 v, int engineIndex) {
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  return RoundFuncCall(g->localParBlock.RoundValue, v, g->engine[engineIndex],
                       &g->localParBlock);
}
inline F26DOT6 abs26(F26DOT6 v) { return v < 0 ? wrap_neg(v) : v; }

// The projection of point a (in ea) minus point b (in eb), current places.
inline F26DOT6 cur_distance(GS* gs, fnt_ElementType* ea, FS_LONG a,
                            fnt_ElementType* eb, FS_LONG b) {
  return gs->Project(gs, wrap_sub(ea->x[a], eb->x[b]),
                     wrap_sub(ea->y[a], eb->y[b]));
}

// How many values a loop instruction pops: `loop` + 1, at most what the
// stack holds; the loop count goes back to 1.
FS_LONG loop_count(GS* gs) {
  FS_INT64 n = (FS_INT64)gs->loop + 1;
  gs->loop = 0;
  if (n < 0) n = 0;
  return n > depth(gs) ? depth(gs) : (FS_LONG)n;
}

// MDAP: touches the point, rounding its projection with the odd opcode.
void fnt_MDAP(GS* gs) {  // 0x2E, 0x2F
  FS_LONG p = pop(gs);
  fnt_ElementType* el = gs->CE0;
  if (!point_ok(gs, el, p)) return;
  F26DOT6 d = 0;
  if (gs->opCode & 1) {
    F26DOT6 cur = gs->Project(gs, el->x[p], el->y[p]);
    d = wrap_sub(round_value(gs, cur, 0), cur);
  }
  gs->MovePoint(gs, el, p, d);
  gs->Pt0 = gs->Pt1 = p;
}

// MIAP: moves the point to a control value along the projection, cut in
// and rounded with the odd opcode. A twilight point is created there first.
void fnt_MIAP(GS* gs) {  // 0x3E, 0x3F
  FS_LONG n = pop(gs), p = pop(gs);
  fnt_ElementType* el = gs->CE0;
  if (!point_ok(gs, el, p)) return;
  F26DOT6 dist = gs->GetCVTEntry(gs, n);
  if (is_twilight(gs, el)) {
    el->ox[p] = el->x[p] = mul14(dist, gs->proj.x);
    el->oy[p] = el->y[p] = mul14(dist, gs->proj.y);
  }
  F26DOT6 org = gs->Project(gs, el->x[p], el->y[p]);
  if (gs->opCode & 1) {
    if (abs26(wrap_sub(dist, org)) > gs->globalGS->localParBlock.wTCI) dist = org;
    dist = round_value(gs, dist, 0);
  }
  gs->MovePoint(gs, el, p, wrap_sub(dist, org));
  gs->Pt0 = gs->Pt1 = p;
}

// The single width replaces a distance within its cut-in, keeping the sign.
F26DOT6 single_width(GS* gs, F26DOT6 d) {
  F26DOT6 sw = gs->GetSingleWidth(gs);
  if (abs26(wrap_sub(d, sw)) < gs->globalGS->localParBlock.sWCI)
    return d >= 0 ? sw : wrap_neg(sw);
  return d;
}

// The low opcode bits of MDRP and MIRP: 4 round (else only the
// compensation), 8 keep the minimum distance on the original side.
F26DOT6 finish_distance(GS* gs, F26DOT6 d, F26DOT6 org, bool round) {
  int e = gs->opCode & 3;
  d = round ? round_value(gs, d, e)
            : RoundFuncCall(RFI_fnt_RoundOff, d, gs->globalGS->engine[e],
                            &gs->globalGS->localParBlock);
  if (gs->opCode & 8) {
    F26DOT6 m = gs->globalGS->localParBlock.minimumDistance;
    if (org >= 0) {
      if (d < m) d = m;
    } else if (d > wrap_neg(m)) {
      d = wrap_neg(m);
    }
  }
  return d;
}

// After MDRP, MIRP and MSIRP: rp1 takes rp0, rp2 the point, and rp0 the
// point when `setRp0`.
inline void relative_refs(GS* gs, FS_LONG p, bool setRp0) {
  gs->Pt1 = gs->Pt0;
  gs->Pt2 = p;
  if (setRp0) gs->Pt0 = p;
}

// MDRP: keeps the point's original distance from rp0, rounded and kept
// above the minimum as the opcode asks.
void fnt_MDRP(GS* gs) {  // 0xC0-0xDF
  FS_LONG p = pop(gs);
  fnt_ElementType *e0 = gs->CE0, *e1 = gs->CE1;
  FS_LONG r0 = gs->Pt0;
  if (point_ok(gs, e1, p) && point_ok(gs, e0, r0)) {
    F26DOT6 org = single_width(gs, old_distance(gs, e1, p, e0, r0));
    F26DOT6 d = finish_distance(gs, org, org, (gs->opCode & 4) != 0);
    gs->MovePoint(gs, e1, p, wrap_sub(d, cur_distance(gs, e1, p, e0, r0)));
  }
  relative_refs(gs, p, (gs->opCode & 16) != 0);
}

// MIRP: places the point at a control value's distance from rp0; the
// original distance decides the sign (auto flip) and, within the cut-in and
// in one zone, replaces the control value. In the twilight zone the point
// is created at that distance along the projection. A glyph element with
// no contours stops the program.
void fnt_MIRP(GS* gs) {  // 0xE0-0xFF
  FS_LONG n = pop(gs), p = pop(gs);
  fnt_ElementType *e0 = gs->CE0, *e1 = gs->CE1;
  FS_LONG r0 = gs->Pt0;
  if (e1->nc == 0) {
    gs->error = 1;
    return;
  }
  if (point_ok(gs, e1, p) && point_ok(gs, e0, r0)) {
    fnt_ParameterBlock* pb = &gs->globalGS->localParBlock;
    F26DOT6 cvt = single_width(gs, gs->GetCVTEntry(gs, n));
    if (is_twilight(gs, e1)) {
      e1->ox[p] = e1->x[p] = wrap_add(e0->ox[r0], mul14(cvt, gs->proj.x));
      e1->oy[p] = e1->y[p] = wrap_add(e0->oy[r0], mul14(cvt, gs->proj.y));
    }
    F26DOT6 org = old_distance(gs, e1, p, e0, r0);
    F26DOT6 cur = cur_distance(gs, e1, p, e0, r0);
    if (pb->autoFlip && (org ^ cvt) < 0) cvt = wrap_neg(cvt);
    if ((gs->opCode & 4) && e0 == e1 && abs26(wrap_sub(cvt, org)) > pb->wTCI)
      cvt = org;
    F26DOT6 d = finish_distance(gs, cvt, org, (gs->opCode & 4) != 0);
    gs->MovePoint(gs, e1, p, wrap_sub(d, cur));
  }
  relative_refs(gs, p, (gs->opCode & 16) != 0);
}

// MSIRP: the point at the popped distance from rp0.
void fnt_MSIRP(GS* gs) {  // 0x3A, 0x3B
  F26DOT6 d = pop(gs);
  FS_LONG p = pop(gs);
  fnt_ElementType *e0 = gs->CE0, *e1 = gs->CE1;
  FS_LONG r0 = gs->Pt0;
  if (!point_ok(gs, e1, p) || !point_ok(gs, e0, r0)) return;
  gs->MovePoint(gs, e1, p, wrap_sub(d, cur_distance(gs, e1, p, e0, r0)));
  relative_refs(gs, p, (gs->opCode & 1) != 0);
}

// How far the reference point has moved along the projection: rp2 in CE1
// for the even opcode, rp1 in CE0 for the odd one. False when it is no
// point.
bool displacement(GS* gs, fnt_ElementType** zone, FS_LONG* ref, F26DOT6* d) {
  bool odd = (gs->opCode & 1) != 0;
  fnt_ElementType* el = odd ? gs->CE0 : gs->CE1;
  FS_LONG p = odd ? gs->Pt1 : gs->Pt2;
  if (!point_ok(gs, el, p)) return false;
  *zone = el;
  *ref = p;
  *d = gs->Project(gs, wrap_sub(el->x[p], el->ox[p]), wrap_sub(el->y[p], el->oy[p]));
  return true;
}

void fnt_SHP(GS* gs) {  // 0x32, 0x33: `loop` + 1 points of CE2
  fnt_ElementType* zone;
  FS_LONG ref;
  F26DOT6 d = 0;
  bool ok = displacement(gs, &zone, &ref, &d);
  for (FS_LONG n = loop_count(gs); n > 0; n--) {
    FS_LONG p = pop(gs);
    if (ok && point_ok(gs, gs->CE2, p)) gs->MovePoint(gs, gs->CE2, p, d);
  }
}

void fnt_SHC(GS* gs) {  // 0x34, 0x35: a contour of CE2 but the reference
  FS_LONG c = pop(gs);
  fnt_ElementType* zone;
  FS_LONG ref;
  F26DOT6 d;
  fnt_ElementType* el = gs->CE2;
  if (!displacement(gs, &zone, &ref, &d) || c < 0 || c >= el->nc) return;
  for (FS_LONG i = el->sp[c]; i <= el->ep[c] && i < el->np; i++)
    if (i >= 0 && (zone != el || i != ref)) move_along_freedom(gs, el, i, d, true);
}

// SHZ: every point of the zone but the reference, untouched: a glyph's own
// points and never its phantom places, or all twilight points.
void fnt_SHZ(GS* gs) {  // 0x36, 0x37
  FS_LONG e = pop(gs);
  fnt_ElementType* zone;
  FS_LONG ref;
  F26DOT6 d;
  if ((e != 0 && e != 1) || !displacement(gs, &zone, &ref, &d)) return;
  fnt_ElementType* el = &gs->elements[e];
  for (FS_LONG i = 0; i < el->np; i++)
    if (zone != el || i != ref) move_along_freedom(gs, el, i, d, false);
}

// SHPIX: `loop` + 1 points of CE2 by the popped amount along the freedom
// vector itself.
void fnt_SHPIX(GS* gs) {  // 0x38
  F26DOT6 amount = pop(gs);
  F26DOT6 dx = mul14(amount, gs->freedom.x), dy = mul14(amount, gs->freedom.y);
  fnt_ElementType* el = gs->CE2;
  for (FS_LONG n = loop_count(gs); n > 0; n--) {
    FS_LONG p = pop(gs);
    if (!point_ok(gs, el, p)) continue;
    if (gs->freedom.x != 0) el->x[p] = wrap_add(el->x[p], dx), el->f[p] |= XMOVED;
    if (gs->freedom.y != 0) el->y[p] = wrap_add(el->y[p], dy), el->f[p] |= YMOVED;
  }
}

// The original projected distance of a from b for IP: in font units when
// both axes scale alike (only ratios matter), else scaled.
F26DOT6 ip_distance(GS* gs, fnt_ElementType* ea, FS_LONG a,
                    fnt_ElementType* eb, FS_LONG b, bool units) {
  if (!units) return old_distance(gs, ea, a, eb, b);
  return gs->OldProject(gs, wrap_sub(ea->oox[a], eb->oox[b]),
                        wrap_sub(ea->ooy[a], eb->ooy[b]));
}

// IP: `loop` + 1 points of CE2 keep their original place between rp1 (in
// CE0) and rp2 (in CE1).
void fnt_IP(GS* gs) {  // 0x39
  fnt_ElementType *e0 = gs->CE0, *e1 = gs->CE1, *e2 = gs->CE2;
  FS_LONG r1 = gs->Pt1, r2 = gs->Pt2;
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  bool units = !is_twilight(gs, e0) && !is_twilight(gs, e1) &&
               !is_twilight(gs, e2) && same_scale(g->scaleX, g->scaleY);
  bool refs = point_ok(gs, e0, r1) && point_ok(gs, e1, r2);
  F26DOT6 oldRange = 0, curRange = 0;
  if (refs) {
    oldRange = ip_distance(gs, e1, r2, e0, r1, units);
    curRange = cur_distance(gs, e1, r2, e0, r1);
  }
  for (FS_LONG n = loop_count(gs); n > 0; n--) {
    FS_LONG p = pop(gs);
    if (!refs || !point_ok(gs, e2, p)) continue;
    F26DOT6 org = ip_distance(gs, e2, p, e0, r1, units);
    F26DOT6 cur = cur_distance(gs, e2, p, e0, r1);
    F26DOT6 want = org == 0        ? 0
                   : oldRange != 0 ? mul_div(org, curRange, oldRange)
                                   : old_distance(gs, e2, p, e0, r1);
    gs->MovePoint(gs, e2, p, wrap_sub(want, cur));
  }
}

// ALIGNRP: `loop` + 1 points of CE1 onto rp0's projection.
void fnt_ALIGNRP(GS* gs) {  // 0x3C
  fnt_ElementType *e0 = gs->CE0, *e1 = gs->CE1;
  FS_LONG r0 = gs->Pt0;
  bool ref = point_ok(gs, e0, r0);
  for (FS_LONG n = loop_count(gs); n > 0; n--) {
    FS_LONG p = pop(gs);
    if (ref && point_ok(gs, e1, p))
      gs->MovePoint(gs, e1, p, wrap_neg(cur_distance(gs, e1, p, e0, r0)));
  }
}

// ALIGNPTS: both points to the middle of their projections.
void fnt_ALIGNPTS(GS* gs) {  // 0x27
  FS_LONG p2 = pop(gs), p1 = pop(gs);
  fnt_ElementType *e0 = gs->CE0, *e1 = gs->CE1;
  if (!point_ok(gs, e1, p1) || !point_ok(gs, e0, p2)) return;
  F26DOT6 d = cur_distance(gs, e0, p2, e1, p1) / 2;
  gs->MovePoint(gs, e1, p1, d);
  gs->MovePoint(gs, e0, p2, wrap_neg(d));
}

// ISECT: the point (in CE2) at the crossing of line a0-a1 (CE1) and line
// b0-b1 (CE0); lines within about 3 degrees of parallel give the middle of
// the four ends. Touched in both axes. Stops early when the stack runs out.
void fnt_ISECT(GS* gs) {  // 0x0F
  if (depth(gs) < 5) return drop(gs, depth(gs));
  FS_LONG b1 = pop(gs), b0 = pop(gs), a1 = pop(gs), a0 = pop(gs), p = pop(gs);
  fnt_ElementType *ea = gs->CE1, *eb = gs->CE0, *el = gs->CE2;
  if (!point_ok(gs, el, p) || !point_ok(gs, ea, a0) || !point_ok(gs, ea, a1) ||
      !point_ok(gs, eb, b0) || !point_ok(gs, eb, b1))
    return;
  FS_INT64 dbx = (FS_INT64)eb->x[b1] - eb->x[b0], dby = (FS_INT64)eb->y[b1] - eb->y[b0];
  FS_INT64 dax = (FS_INT64)ea->x[a1] - ea->x[a0], day = (FS_INT64)ea->y[a1] - ea->y[a0];
  FS_INT64 dx = (FS_INT64)eb->x[b0] - ea->x[a0], dy = (FS_INT64)eb->y[b0] - ea->y[a0];
  FS_INT64 disc = (FS_INT64)mul_div(dax, -dby, 64) + mul_div(day, dbx, 64);
  FS_INT64 dot = (FS_INT64)mul_div(dax, dbx, 64) + mul_div(day, dby, 64);
  if (19 * (disc < 0 ? -disc : disc) > (dot < 0 ? -dot : dot)) {
    FS_INT64 val = (FS_INT64)mul_div(dx, -dby, 64) + mul_div(dy, dbx, 64);
    el->x[p] = wrap_add(ea->x[a0], mul_div(val, dax, disc));
    el->y[p] = wrap_add(ea->y[a0], mul_div(val, day, disc));
  } else {
    el->x[p] = (F26DOT6)(((FS_INT64)ea->x[a0] + ea->x[a1] + eb->x[b0] + eb->x[b1]) / 4);
    el->y[p] = (F26DOT6)(((FS_INT64)ea->y[a0] + ea->y[a1] + eb->y[b0] + eb->y[b1]) / 4);
  }
  el->f[p] |= XMOVED | YMOVED;
}

/* ---- IUP ---- */

// One axis of the glyph element for IUP: current, scaled original and
// font-unit coordinates.
struct IupAxis {
  F26DOT6* cur;
  F26DOT6* org;
  FS_LONG* oo;
};

// Points p1..p2 between touched points r1 and r2: beyond either end they
// move as that end did; between, they take their font-unit place in the
// touched span (the ratio in 16.16, then applied).
void iup_interpolate(const IupAxis& v, FS_LONG p1, FS_LONG p2, FS_LONG r1,
                     FS_LONG r2) {
  if (p1 > p2) return;
  if (v.oo[r1] > v.oo[r2]) {
    FS_LONG t = r1;
    r1 = r2;
    r2 = t;
  }
  FS_LONG oo1 = v.oo[r1], oo2 = v.oo[r2];
  F26DOT6 org1 = v.org[r1], org2 = v.org[r2];
  F26DOT6 cur1 = v.cur[r1], cur2 = v.cur[r2];
  F26DOT6 d1 = wrap_sub(cur1, org1), d2 = wrap_sub(cur2, org2);
  bool flat = cur1 == cur2 || oo1 == oo2;
  FS_FIXED ratio = flat ? 0 : mul_div(wrap_sub(cur2, cur1), 65536, (FS_INT64)oo2 - oo1);
  for (FS_LONG i = p1; i <= p2; i++) {
    F26DOT6 x = v.org[i];
    if (x <= org1)
      x = wrap_add(x, d1);
    else if (x >= org2)
      x = wrap_add(x, d2);
    else
      x = flat ? cur1 : wrap_add(cur1, mul_div((FS_INT64)v.oo[i] - oo1, ratio, 65536));
    v.cur[i] = x;
  }
}

// Points p1..p2 but `ref` move as `ref` did.
void iup_shift(const IupAxis& v, FS_LONG p1, FS_LONG p2, FS_LONG ref) {
  F26DOT6 d = wrap_sub(v.cur[ref], v.org[ref]);
  for (FS_LONG i = p1; i <= p2; i++)
    if (i != ref) v.cur[i] = wrap_add(v.cur[i], d);
}

}  // namespace

void fnt_IUP(fnt_LocalGraphicStateType* gs) {  // 0x30 y, 0x31 x
  fnt_ElementType* el = &gs->elements[1];
  bool x = (gs->opCode & 1) != 0;
  FS_BYTE mask = x ? XMOVED : YMOVED;
  IupAxis v = x ? IupAxis{el->x, el->ox, el->oox} : IupAxis{el->y, el->oy, el->ooy};
  for (FS_LONG c = 0; c < el->nc; c++) {
    FS_LONG start = el->sp[c], end = el->ep[c];
    if (end >= el->np) end = el->np - 1;
    if (start < 0 || start > end) continue;
    FS_LONG p = start;
    while (p <= end && !(el->f[p] & mask)) p++;
    if (p > end) continue;
    FS_LONG first = p, last = p;
    for (p++; p <= end; p++) {
      if (!(el->f[p] & mask)) continue;
      iup_interpolate(v, last + 1, p - 1, last, p);
      last = p;
    }
    if (last == first) {
      iup_shift(v, start, end, last);
    } else {
      iup_interpolate(v, last + 1, end, last, first);
      if (first > start) iup_interpolate(v, start, first - 1, last, first);
    }
  }
}

namespace {

/* ---- Deltas ---- */

// The amount of delta spec s: its low nibble -8..-1, 1..8 steps of
// 1 / 2^deltaShift pixel.
inline F26DOT6 delta_amount(GS* gs, FS_LONG s) {
  s &= 15;
  return (F26DOT6)((s - (s < 8 ? 8 : 7)) * 64) >> gs->globalGS->localParBlock.deltaShift;
}

// Pops a count and that many groups of `per` values, the size-and-shift
// byte first in each group. The groups in push order are taken as ascending
// by that byte: the search halves to the first whose s & -16 reaches the
// aim for this size and base, and the matches run while equal, so an
// unsorted list loses groups. Gives the groups and the range [*lo, *hi) of matches.
FS_LONG* delta_matches(GS* gs, FS_LONG base, FS_LONG per, FS_LONG* lo,
                       FS_LONG* hi) {
  FS_LONG n = pop(gs);
  *lo = *hi = 0;
  FS_LONG have = depth(gs) / per;
  if (n <= 0) return gs->stackPointer;
  if (n > have) n = have;
  gs->stackPointer -= per * n;
  FS_LONG* groups = gs->stackPointer;
  FS_LONG aim = (FS_LONG)(((FS_INT64)fnt_ProjectedPPEM(gs) - base) * 16);
  FS_LONG a = 0, b = n;
  while (a < b) {
    FS_LONG mid = (a + b) / 2;
    if ((groups[per * mid] & -16) < aim)
      a = mid + 1;
    else
      b = mid;
  }
  FS_LONG e = a;
  while (e < n && (groups[per * e] & -16) == aim) e++;
  *lo = a;
  *hi = e;
  return groups;
}

inline FS_LONG delta_base(GS* gs, FS_BYTE first) {
  return gs->globalGS->localParBlock.deltaBase + 16 * (gs->opCode - first);
}

// Applies the delta pairs (spec, cvt index) below the count.
void fnt_DELTAC(GS* gs) {  // 0x73-0x75
  FS_LONG lo, hi;
  FS_LONG* pairs = delta_matches(gs, delta_base(gs, 0x73), 2, &lo, &hi);
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  for (FS_LONG i = lo; i < hi; i++) {
    F26DOT6 amount = delta_amount(gs, pairs[2 * i]);
    FS_LONG c = pairs[2 * i + 1];
    if (!cvt_ok(gs, c)) continue;
    F26DOT6* cvt = g->controlValueTable;
    if (g->identityTransformation)
      cvt[c] = wrap_add(cvt[c], amount);
    else
      cvt[c] = wrap_add(cvt[c], vardiv_64(amount, fnt_GetCVTScale(gs), 16));
  }
}

// Moves the points of the delta pairs (spec, point in CE0) below the count.
void fnt_DELTAP(GS* gs) {  // 0x5D, 0x71, 0x72
  FS_LONG lo, hi;
  FS_BYTE first = gs->opCode == 0x5D ? 0x5D : 0x70;  // DELTAP2, 3: 0x71, 0x72
  FS_LONG* pairs = delta_matches(gs, delta_base(gs, first), 2, &lo, &hi);
  for (FS_LONG i = lo; i < hi; i++) {
    FS_LONG p = pairs[2 * i + 1];
    if (point_ok(gs, gs->CE0, p))
      gs->MovePoint(gs, gs->CE0, p, delta_amount(gs, pairs[2 * i]));
  }
}

/* ---- The engine's own instructions ---- */

// Moves a point by `amount` times the freedom vector (2.14), touching it,
// without the projection's correction.
void engine_shift(GS* gs, fnt_ElementType* el, FS_LONG p, F26DOT6 amount) {
  if (gs->freedom.x != 0) {
    el->x[p] = wrap_add(el->x[p], mul14(amount, gs->freedom.x));
    el->f[p] |= XMOVED;
  }
  if (gs->freedom.y != 0) {
    el->y[p] = wrap_add(el->y[p], mul14(amount, gs->freedom.y));
    el->f[p] |= YMOVED;
  }
}

inline void append(FS_LONG* count, FS_LONG* list, FS_LONG v) {
  if (*count < MAZ_LIST_MAX) list[(*count)++] = v;
}

// MAZDELTA1-3: records the matching amounts for the point in the lists of
// the freedom vector's axes, for the alignment-zone hinter.
void fnt_MAZDELTA(GS* gs) {  // 0xA2-0xA4
  FS_LONG p = pop(gs), lo, hi;
  FS_LONG* specs = delta_matches(gs, delta_base(gs, 0xA2), 1, &lo, &hi);
  fnt_MAZData* m = &gs->globalGS->maz_data;
  for (FS_LONG i = lo; i < hi; i++) {
    F26DOT6 amount = delta_amount(gs, specs[i]);
    if (gs->freedom.x != 0 && m->nXdelta < MAZ_LIST_MAX) {
      m->Xdeltashift[m->nXdelta] = amount;
      m->Xdeltapoint[m->nXdelta++] = p;
    }
    if (gs->freedom.y != 0 && m->nYdelta < MAZ_LIST_MAX) {
      m->Ydeltashift[m->nYdelta] = amount;
      m->Ydeltapoint[m->nYdelta++] = p;
    }
  }
}

// Pops what MAZMODE and MAZSTROKE pop: value, ppem low, ppem high; whether
// this size lies in the range.
bool maz_in_range(GS* gs, FS_LONG* value) {
  *value = pop(gs);
  FS_LONG lo = pop(gs), hi = pop(gs);
  FS_LONG ppem = fnt_ProjectedPPEM(gs);
  return ppem >= lo && ppem <= hi;
}

void fnt_MAZMODE(GS* gs) {  // 0xA5
  FS_LONG mode;
  fnt_MAZData* m = &gs->globalGS->maz_data;
  if (!maz_in_range(gs, &mode) || (mode & 3) == 0) return;
  if (gs->freedom.y != 0) m->MAZmethodHorz = mode & 3;
  if (gs->freedom.x != 0) m->MAZmethodVert = mode & 3;
}

void fnt_MAZSTROKE(GS* gs) {  // 0xA6
  FS_LONG pt;
  fnt_MAZData* m = &gs->globalGS->maz_data;
  if (!maz_in_range(gs, &pt)) return;
  if (gs->freedom.y != 0) append(&m->nHcollapse, m->Hcollapse, pt);
  if (gs->freedom.x != 0) append(&m->nVcollapse, m->Vcollapse, pt);
}

// The contour of CE0 that holds point p, or -1.
FS_LONG contour_of(fnt_ElementType* el, FS_LONG p) {
  for (FS_LONG c = 0; c < el->nc; c++)
    if (p >= el->sp[c] && p <= el->ep[c]) return c;
  return -1;
}

// DELTAK1-3: a count and that many points, then a count and specs; each
// match moves every point of each given point's contour.
void fnt_DELTAK(GS* gs) {  // 0xA7-0xA9
  FS_LONG np = pop(gs);
  FS_LONG have = depth(gs);
  if (np < 0) np = 0;
  if (np > have) np = have;
  gs->stackPointer -= np;
  FS_LONG* points = gs->stackPointer;
  FS_LONG lo, hi;
  FS_LONG* specs = delta_matches(gs, delta_base(gs, 0xA7), 1, &lo, &hi);
  fnt_ElementType* el = gs->CE0;
  for (FS_LONG i = lo; i < hi; i++) {
    F26DOT6 amount = delta_amount(gs, specs[i]);
    for (FS_LONG k = 0; k < np; k++) {
      FS_LONG c = point_ok(gs, el, points[k]) ? contour_of(el, points[k]) : -1;
      if (c < 0) continue;
      for (FS_LONG q = el->sp[c]; q <= el->ep[c] && q < el->np; q++)
        engine_shift(gs, el, q, amount);
    }
  }
}

// DELTAL1-3 (a run of on-curve points along the contour around the point,
// projecting where it does) and DELTAS1-3 (every such on-curve point of the
// glyph): a point, then a count and specs.
void fnt_DELTALS(GS* gs) {  // 0xAA-0xAF
  bool run = gs->opCode <= 0xAC;
  FS_LONG p = pop(gs), lo, hi;
  FS_LONG* specs = delta_matches(gs, delta_base(gs, run ? 0xAA : 0xAD), 1, &lo, &hi);
  fnt_ElementType* el = gs->CE0;
  if (lo == hi || p < 0 || p >= el->np) return;
  if (run && !el->onCurve[p]) return;
  F26DOT6 at = gs->Project(gs, el->x[p], el->y[p]);
  auto same = [&](FS_LONG q) {
    return el->onCurve[q] && gs->Project(gs, el->x[q], el->y[q]) == at;
  };
  // The points to move, chosen before any moves.
  FS_LONG from = 0, to = el->np - 1;
  FS_LONG c = contour_of(el, p);
  if (run) {
    if (c < 0) return;
    FS_LONG s = el->sp[c], e = el->ep[c] < el->np ? el->ep[c] : el->np - 1;
    from = to = p;
    while (from > s && same(from - 1)) from--;
    while (to < e && same(to + 1)) to++;
  }
  const FS_BYTE CHOSEN = 4;  // a mark of this instruction's own
  for (FS_LONG q = from; q <= to; q++)
    if (same(q)) el->f[q] |= CHOSEN;
  for (FS_LONG i = lo; i < hi; i++) {
    F26DOT6 amount = delta_amount(gs, specs[i]);
    for (FS_LONG q = from; q <= to; q++)
      if (el->f[q] & CHOSEN) engine_shift(gs, el, q, amount);
  }
  for (FS_LONG q = from; q <= to; q++) el->f[q] &= (FS_BYTE)~CHOSEN;
}

// The engine's own instructions 0xA2-0xAF, unless the font defined them.
void fnt_EngineInstruction(GS* gs) {
  if (gs->globalGS->udFuncType == 2) return fnt_IDefPatch(gs);
  FS_BYTE op = gs->opCode;
  if (op <= 0xA4) return fnt_MAZDELTA(gs);
  if (op == 0xA5) return fnt_MAZMODE(gs);
  if (op == 0xA6) return fnt_MAZSTROKE(gs);
  if (op <= 0xA9) return fnt_DELTAK(gs);
  fnt_DELTALS(gs);
}

/* ---- The autohinter door ---- */

inline void set_axis(GS* gs, bool x) {
  SHORT_UNIT_VECTOR v = x ? SHORT_UNIT_VECTOR{ONE_214, 0} : SHORT_UNIT_VECTOR{0, ONE_214};
  gs->proj = gs->oldProj = gs->freedom = v;
  fnt_ComputeAndCheck(gs);
}

const FS_ULONG STATE_NO_HINTS = 2;       // the client's FLAGS_NO_HINTS
const FS_ULONG STATE_AUTOHINT = 0x400000;
const FS_ULONG FONT_STROKE = 2, FONT_STIK_64 = 64;

// AA (0x7F): the published instruction does nothing; here it pops which of
// the engine's hinters to run over the glyph element. All but the
// real-time autohinter stand down when the client asks for no hints.
void fnt_AA(GS* gs) {
  FS_LONG which = pop(gs);
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  if (which == 11) return fnt_rtgah_seam(gs);
  if (g->stateflags & STATE_NO_HINTS) return;
  switch (which) {
    case 5:
    case 6:
      g->maz_data.MAZdeltaHorz = g->maz_data.MAZdeltaVert = which == 5 ? 0 : 4;
      return fnt_alignment_zone_seam(gs, which);
    case 7:
      set_axis(gs, false);
      return fnt_alignment_zone_seam(gs, which);
    case 8: {
      bool wasX = gs->proj.x != 0;
      set_axis(gs, false);
      fnt_alignment_zone_seam(gs, which);
      if (wasX) set_axis(gs, true);
      return;
    }
    case 9:
      return fnt_alignment_zone_seam(gs, which);
    case 250: return do_deltas_250(gs);
    case 251: return do_deltas_251(gs);
    case 252: return do_deltas_252(gs);
    case 253: return do_deltas_253(gs);
    default: {
      if ((g->fontflags & (FONT_STIK_64 | FONT_STROKE)) != (FONT_STIK_64 | FONT_STROKE) ||
          (gs->CE0->f[0] & 0x80))
        return;
      FS_BOOLEAN flag = !(g->stateflags & STATE_AUTOHINT) ||
                        (g->fontflags & FONT_STIK_64) || (g->stateflags & 0xBC);
      return fnt_script_autohint_seam(gs, which, flag);
    }
  }
}

/* ---- The table ---- */

struct TableInit {
  TableInit() {
    for (int i = 0; i < 256; i++) interpFunc[i] = fnt_IDefPatch;
    auto set = [](int lo, int hi, FntFunc f) {
      for (int i = lo; i <= hi; i++) interpFunc[i] = f;
    };
    set(0x00, 0x05, fnt_SVTCA);
    set(0x06, 0x07, fnt_SPVTL);
    set(0x08, 0x09, fnt_SFVTL);
    interpFunc[0x0A] = fnt_SPVFS;
    interpFunc[0x0B] = fnt_SFVFS;
    interpFunc[0x0C] = fnt_GPV;
    interpFunc[0x0D] = fnt_GFV;
    interpFunc[0x0E] = fnt_SFVTPV;
    interpFunc[0x0F] = fnt_ISECT;
    set(0x10, 0x12, fnt_SetLocalGraphicState);
    set(0x13, 0x16, fnt_SetElementPtr);
    interpFunc[0x17] = fnt_SetLocalGraphicState;
    set(0x18, 0x19, fnt_SetRoundState);
    interpFunc[0x1A] = fnt_SMD;
    interpFunc[0x1B] = fnt_ELSE;
    interpFunc[0x1C] = fnt_JMPR;
    interpFunc[0x1D] = fnt_SCVTCI;
    interpFunc[0x1E] = fnt_SSWCI;
    interpFunc[0x1F] = fnt_SSW;
    interpFunc[0x20] = fnt_DUP;
    interpFunc[0x21] = fnt_SetLocalGraphicState;  // POP
    interpFunc[0x22] = fnt_CLEAR;
    interpFunc[0x23] = fnt_SWAP;
    interpFunc[0x24] = fnt_DEPTH;
    interpFunc[0x25] = fnt_CINDEX;
    interpFunc[0x26] = fnt_MINDEX;
    interpFunc[0x27] = fnt_ALIGNPTS;
    interpFunc[0x28] = fnt_RAW;
    interpFunc[0x29] = fnt_UTP;
    interpFunc[0x2A] = fnt_LOOPCALL;
    interpFunc[0x2B] = fnt_CALL;
    interpFunc[0x2C] = fnt_FDEF;
    interpFunc[0x2D] = fnt_IllegalInstruction;  // ENDF met in execution
    set(0x2E, 0x2F, fnt_MDAP);
    set(0x30, 0x31, fnt_IUP);
    set(0x32, 0x33, fnt_SHP);
    set(0x34, 0x35, fnt_SHC);
    set(0x36, 0x37, fnt_SHZ);
    interpFunc[0x38] = fnt_SHPIX;
    interpFunc[0x39] = fnt_IP;
    set(0x3A, 0x3B, fnt_MSIRP);
    interpFunc[0x3C] = fnt_ALIGNRP;
    interpFunc[0x3D] = fnt_SetRoundState;
    set(0x3E, 0x3F, fnt_MIAP);
    interpFunc[0x40] = fnt_PUSHB;
    interpFunc[0x41] = fnt_PUSHW;
    interpFunc[0x42] = fnt_WS;
    interpFunc[0x43] = fnt_RS;
    interpFunc[0x44] = fnt_WCVTP;
    interpFunc[0x45] = fnt_RCVT;
    set(0x46, 0x47, fnt_GC);
    interpFunc[0x48] = fnt_SCFS;
    set(0x49, 0x4A, fnt_MD);
    interpFunc[0x4B] = fnt_MPPEM;
    interpFunc[0x4C] = fnt_MPS;
    interpFunc[0x4D] = fnt_FLIPON;
    interpFunc[0x4E] = fnt_FLIPOFF;
    interpFunc[0x4F] = fnt_DEBUG;
    set(0x50, 0x55, fnt_BinaryOperand);
    set(0x56, 0x57, fnt_UnaryOperand);
    interpFunc[0x58] = fnt_IF;
    interpFunc[0x59] = fnt_EIF;
    set(0x5A, 0x5B, fnt_BinaryOperand);
    interpFunc[0x5C] = fnt_UnaryOperand;
    interpFunc[0x5D] = fnt_DELTAP;
    interpFunc[0x5E] = fnt_SDB;
    interpFunc[0x5F] = fnt_SDS;
    set(0x60, 0x63, fnt_BinaryOperand);
    set(0x64, 0x67, fnt_UnaryOperand);
    set(0x68, 0x6B, fnt_ROUND);
    set(0x6C, 0x6F, fnt_NROUND);
    interpFunc[0x70] = fnt_WCVTF;
    set(0x71, 0x72, fnt_DELTAP);
    set(0x73, 0x75, fnt_DELTAC);
    set(0x76, 0x77, fnt_SROUND);
    set(0x78, 0x79, fnt_JROT);
    interpFunc[0x7A] = fnt_SetRoundState;
    interpFunc[0x7B] = fnt_IllegalInstruction;
    set(0x7C, 0x7D, fnt_SetRoundState);
    interpFunc[0x7E] = fnt_SANGW;
    interpFunc[0x7F] = fnt_AA;  // the door to the engine's own hinters
    interpFunc[0x80] = fnt_FLIPPT;
    set(0x81, 0x82, fnt_FLIPRG);
    interpFunc[0x85] = fnt_SCANCTRL;
    set(0x86, 0x87, fnt_SDPVTL);
    interpFunc[0x88] = fnt_GETINFO;
    interpFunc[0x89] = fnt_IDEF;
    interpFunc[0x8A] = fnt_ROLL;
    set(0x8B, 0x8C, fnt_BinaryOperand);
    interpFunc[0x8D] = fnt_SCANTYPE;
    interpFunc[0x8E] = fnt_INSTCTRL;
    set(0xB0, 0xB7, fnt_PUSHB);
    set(0xB8, 0xBF, fnt_PUSHW);
    set(0xC0, 0xDF, fnt_MDRP);
    set(0xE0, 0xFF, fnt_MIRP);
  }
};

const FS_BYTE* program_end(GS* gs) { return gs->pgmEnd; }

}  // namespace

FntFunc interpFunc[256];
static TableInit tableInit;

static FS_SHORT udFunctionType = 0;

FS_SHORT get_UD_functions() { return udFunctionType; }

void set_UD_functions(FS_SHORT UD_function_type) {
  udFunctionType = UD_function_type == 1 ? 1 : 0;
  for (int op = 0xA2; op <= 0xAF; op++)
    interpFunc[op] =
        UD_function_type == 1 ? fnt_EngineInstruction : fnt_IDefPatch;
}

// SEAM: the real-time autohinter (AA 11), not built.
void fnt_rtgah_seam(fnt_LocalGraphicStateType* gs) { rtgah(gs); }
// SEAM: the alignment-zone hinters (AA 5 to 9), not specified further.
void fnt_alignment_zone_seam(fnt_LocalGraphicStateType*, FS_LONG) {}
// SEAM: the script autohinters (AA 1, 3, 4 and the rest), not specified
// further.
void fnt_script_autohint_seam(fnt_LocalGraphicStateType*, FS_LONG, FS_BOOLEAN) {}

void fnt_Panic(fnt_LocalGraphicStateType* gs, FS_LONG val) {
  longjmp(gs->env, (int)val);
}

void fnt_SetDefaultParBlock(fnt_ParameterBlock* pb) {
  memset(pb, 0, sizeof *pb);
  pb->wTCI = 68;  // 17/16 pixel
  pb->minimumDistance = 64;
  pb->RoundValue = RFI_fnt_RoundToGrid;
  pb->period = 64;
  pb->periodMask = -64;
  pb->deltaBase = 9;
  pb->deltaShift = 3;
  pb->angleWeight = 128;
  pb->autoFlip = 1;
}

void fnt_SetRoundValues(fnt_ParameterBlock* pb, FS_LONG arg1,
                        FS_BOOLEAN normalRound) {
  FS_LONG bits = (arg1 >> 6) & 3;
  FS_LONG period;
  if (normalRound) {
    static const FS_LONG kPeriods[4] = {32, 64, 128, 999};  // 3: reserved
    period = kPeriods[bits];
    pb->periodMask = ~(period - 1);
  } else {
    static const FRACT kPeriods45[4] = {759250125 / 2, 759250125, 1518500250,
                                        999};
    pb->period45 = kPeriods45[bits];
    period = (FS_LONG)(((FS_INT64)0x800000 + pb->period45) >> 24);
  }
  pb->period = (FS_SHORT)period;
  switch ((arg1 >> 4) & 3) {
    case 0: pb->phase = 0; break;
    case 1: pb->phase = (FS_SHORT)((period + 2) >> 2); break;
    case 2: pb->phase = (FS_SHORT)((period + 1) >> 1); break;
    default: pb->phase = (FS_SHORT)((3 * period + 2) >> 2); break;
  }
  FS_LONG n = arg1 & 15;
  pb->threshold =
      (FS_SHORT)(n == 0 ? period - 1 : (((n - 4) * period + 4) >> 3));
}

// Each rounder works on the magnitude with the compensation added, gives
// back the sign, and never lets the result cross zero.
F26DOT6 RoundFuncCall(FS_SHORT f, F26DOT6 xin, F26DOT6 engine,
                      fnt_ParameterBlock* pb) {
  FS_INT64 x = xin < 0 ? -(FS_INT64)xin : xin;
  x += engine;
  FS_INT64 r, floorValue = 0;
  switch (f) {
    case RFI_fnt_RoundToGrid: r = (x + 32) & -64; break;
    case RFI_fnt_RoundToHalfGrid: r = (x & -64) + 32; floorValue = 32; break;
    case RFI_fnt_RoundToDoubleGrid: r = (x + 16) & -32; break;
    case RFI_fnt_RoundDownToGrid: r = x & -64; break;
    case RFI_fnt_RoundUpToGrid: r = (x + 63) & -64; break;
    case RFI_fnt_SuperRound:
      r = ((x + pb->threshold - pb->phase) & (FS_INT64)pb->periodMask) +
          pb->phase;
      floorValue = pb->phase;
      break;
    case RFI_fnt_Super45Round: {
      FS_INT64 p = pb->period;
      FS_INT64 t = x + pb->threshold - pb->phase;
      r = (p > 0 ? t / p * p : 0) + pb->phase;  // a period of 0 gives phase
      floorValue = pb->phase;
      break;
    }
    default: r = x; break;  // RFI_fnt_RoundOff
  }
  if (r < 0) r = floorValue;  // never across zero
  if (xin < 0) r = -r;
  return (F26DOT6)(FS_ULONG)(FS_UINT64)r;
}

void fnt_InnerExecute(fnt_LocalGraphicStateType* gs, const FS_BYTE* ptr,
                      const FS_BYTE* eptr) {
  const FS_BYTE* saved = gs->insPtr;
  const FS_BYTE* savedEnd = gs->pgmEnd;
  gs->insPtr = ptr;
  gs->pgmEnd = eptr;
  while (gs->insPtr < eptr && gs->error == 0) {
    if (++gs->instructionCount > FNT_MAX_INSTRUCTIONS) fnt_Panic(gs, FNT_PANIC);
    gs->opCode = *gs->insPtr++;
    interpFunc[gs->opCode](gs);
  }
  gs->insPtr = saved;
  gs->pgmEnd = savedEnd;
}

FS_LONG fnt_Execute(fnt_ElementType* elements, const FS_BYTE* ptr,
                    const FS_BYTE* eptr, fnt_GlobalGraphicStateType* globalGS) {
  fnt_LocalGraphicStateType gs;
  memset(&gs, 0, sizeof gs);
  gs.elements = elements;
  gs.globalGS = globalGS;
  gs.CE0 = gs.CE1 = gs.CE2 = &elements[1];
  gs.proj = gs.oldProj = gs.freedom = SHORT_UNIT_VECTOR{ONE_214, 0};
  gs.pfProj = ONE_214;
  gs.MovePoint = fnt_XMovePoint;
  gs.Project = gs.OldProject = fnt_XProject;
  if (globalGS->pgmIndex != FONTPROGRAM) {
    if (globalGS->pixelsPerEm < 2) return 0;
    if (globalGS->identityTransformation) {
      gs.GetCVTEntry = fnt_GetCVTEntryFast;
      gs.GetSingleWidth = fnt_GetSingleWidthFast;
    } else {
      gs.GetCVTEntry = fnt_GetCVTEntrySlow;
      gs.GetSingleWidth = fnt_GetSingleWidthSlow;
      if (varmul_64(globalGS->fpem, globalGS->xStretch, 16) <= FIXED_ONE ||
          varmul_64(globalGS->fpem, globalGS->yStretch, 16) <= FIXED_ONE)
        return 0;
    }
    if (!globalGS->init && globalGS->localParBlock.sW != 0)
      globalGS->localParBlock.scaledSW =
          scale_cvt_value(globalGS, globalGS->localParBlock.sW);
  } else {
    gs.GetCVTEntry = fnt_GetCVTEntryFast;
    gs.GetSingleWidth = fnt_GetSingleWidthFast;
  }
  gs.stackPointer = globalGS->stackBase;
  gs.pgmStart = ptr;
  gs.pgmEnd = eptr;
  if (globalGS->stackBase == nullptr || ptr == nullptr) return 0;
  int code = setjmp(gs.env);
  if (code != 0) return code;
  gs.error = 0;
  fnt_InnerExecute(&gs, ptr, eptr);
  return 0;
}
