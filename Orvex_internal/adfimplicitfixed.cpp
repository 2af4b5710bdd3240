// The implicit distance-field render: flattening into image samples, the
// distance buffer and the winding-number buffer, the boundary cells that
// fill the band with distances, and the order of a render's steps (the
// density mapping is adfdensityimage's).
#include "Orvex_internal/adfimplicitfixed.h"

#include <algorithm>

#include "Orvex_internal/fs_err.h"

// ---------------------------------------------------------------------------
// Flattening.

ADF_I32 CurveLineSegments(ADF_I2408 lenSqr) {
  if (lenSqr < 0) return 121;
  if (lenSqr > 8191)  // sqrt(5) * sqrt(d), d from its two reciprocal roots
    return (I1616_MUL(146542, I1616_RSQ(I2408_RSQ_I1616(lenSqr))) >> 16) + 1;
  return curvesToLinesTable[lenSqr >> 3];
}

namespace {

// The squared distance in 24.8 of (x, y) from the midpoint m: the 24.8
// squares are added in 64 bits and the sum's 32-bit word taken, so a sum
// past 24.8's range turns negative.
ADF_I2408 offsetSquared(ADF_I1616 x, ADF_I1616 y, ADF_I1616 mx, ADF_I1616 my) {
  const int64_t dx = I1616_SUB(x, mx), dy = I1616_SUB(y, my);
  const int64_t sum = ((dx * dx) >> 24) + ((dy * dy) >> 24);
  return (ADF_I2408)(ADF_U32)(uint64_t)sum;
}

// Arithmetic halving of a + b.
inline ADF_I1616 halfSum(ADF_I1616 a, ADF_I1616 b) {
  return (ADF_I1616)(((int64_t)a + b) >> 1);
}

inline ADF_I1616 times(ADF_I32 k, ADF_I1616 v) {
  return (ADF_I1616)((ADF_U32)k * (ADF_U32)v);
}

void transformPoint(const ADFRenderGlyphData* rgd, ADF_I1616 x, ADF_I1616 y,
                    ADF_I1616* xOut, ADF_I1616* yOut) {
  const ADF_F32(*m)[3] = rgd->xform;
  *xOut = I1616_ADD(I1616_ADD(I1616_MUL(x, m[0][0]), I1616_MUL(y, m[0][1])),
                    m[0][2]);
  *yOut = I1616_ADD(I1616_ADD(I1616_MUL(x, m[1][0]), I1616_MUL(y, m[1][1])),
                    m[1][2]);
}

ADFPenCmdFx lineTo(ADF_I1616 x, ADF_I1616 y) {
  ADFPenCmdFx c = {};
  c.opCode = ADF_LINETO;
  c.x = x;
  c.y = y;
  return c;
}

// Writes the curve's nLineSegs line commands at out; returns the count.
ADF_U32 flattenCurve(bool cubic, const CurveData& cd, ADFPenCmdFx* out) {
  const ADF_I32 n = cd.nLineSegs;
  ADF_U32 k = 0;
  if (n >= 2 && !cubic && n == 2) {
    out[k++] = lineTo(halfSum(halfSum(cd.px, cd.qx), cd.cx),
                      halfSum(halfSum(cd.py, cd.qy), cd.cy));
  } else if (n >= 2 && !cubic) {
    // x(t) = t (t ax + 2 bx) + px, ax = px + qx - 2 cx, bx = cx - px.
    const ADF_I1616 ax = I1616_SUB(I1616_ADD(cd.px, cd.qx), times(2, cd.cx));
    const ADF_I1616 ay = I1616_SUB(I1616_ADD(cd.py, cd.qy), times(2, cd.cy));
    const ADF_I1616 bx2 = times(2, I1616_SUB(cd.cx, cd.px));
    const ADF_I1616 by2 = times(2, I1616_SUB(cd.cy, cd.py));
    const ADF_I1616 dt = rcpTable[n];
    ADF_I1616 t = dt;
    for (ADF_I32 s = 1; s < n; s++, t += dt)
      out[k++] = lineTo(
          I1616_ADD(I1616_MUL(t, I1616_ADD(I1616_MUL(t, ax), bx2)), cd.px),
          I1616_ADD(I1616_MUL(t, I1616_ADD(I1616_MUL(t, ay), by2)), cd.py));
  } else if (n >= 2) {
    // x(t) = t (t (t A + B) + C) + px with A = qx + 3 cx - px - 3 cx2,
    // B = 3 (cx2 + px - 2 cx), C = 3 (cx - px); two segments alike.
    auto coefficients = [](ADF_I1616 p, ADF_I1616 c, ADF_I1616 c2, ADF_I1616 q,
                           ADF_I1616* a, ADF_I1616* b, ADF_I1616* cc) {
      *a = I1616_SUB(I1616_SUB(I1616_ADD(q, times(3, c)), p), times(3, c2));
      *b = times(3, I1616_SUB(I1616_ADD(c2, p), times(2, c)));
      *cc = times(3, I1616_SUB(c, p));
    };
    ADF_I1616 axc, bxc, cxc, ayc, byc, cyc;
    coefficients(cd.px, cd.cx, cd.cx2, cd.qx, &axc, &bxc, &cxc);
    coefficients(cd.py, cd.cy, cd.cy2, cd.qy, &ayc, &byc, &cyc);
    const ADF_I1616 dt = rcpTable[n];
    ADF_I1616 t = dt;
    auto at = [&t](ADF_I1616 a, ADF_I1616 b, ADF_I1616 c, ADF_I1616 p) {
      return I1616_ADD(
          I1616_MUL(t, I1616_ADD(I1616_MUL(t, I1616_ADD(I1616_MUL(t, a), b)), c)),
          p);
    };
    for (ADF_I32 s = 1; s < n; s++, t += dt)
      out[k++] = lineTo(at(axc, bxc, cxc, cd.px), at(ayc, byc, cyc, cd.py));
  }
  out[k++] = lineTo(cd.qx, cd.qy);  // the last segment ends exactly at q
  return k;
}

}  // namespace

InternPath* CreateInternPath(void* libInst, const ADFGlyph* adf,
                             const ADFRenderGlyphData* rgd) {
  const ADF_U32 num = adf->numCells;
  const ADFPenCmd* in = ADFGlyphPenCmds(adf);
  // Working copy in samples; HcollapsePriority carries a curve's count.
  ADFPenCmdFx* work =
      (ADFPenCmdFx*)ADFAlloc(libInst, (uint64_t)num * sizeof(ADFPenCmdFx));
  if (work == nullptr) return nullptr;
  uint64_t total = 0;
  ADF_I1616 px = 0, py = 0;
  for (ADF_U32 k = 0; k < num; k++) {
    ADFPenCmdFx c = {};
    c.opCode = in[k].opCode & 3;
    transformPoint(rgd, in[k].x, in[k].y, &c.x, &c.y);
    if (c.opCode >= ADF_CURVETO) transformPoint(rgd, in[k].cx, in[k].cy, &c.cx, &c.cy);
    if (c.opCode == ADF_CUBICTO)
      transformPoint(rgd, in[k].cx2, in[k].cy2, &c.cx2, &c.cy2);
    ADF_I32 segs = 1;
    if (c.opCode >= ADF_CURVETO) {
      const ADF_I1616 mx = halfSum(px, c.x), my = halfSum(py, c.y);
      ADF_I2408 lenSqr = offsetSquared(c.cx, c.cy, mx, my);
      if (c.opCode == ADF_CUBICTO) {
        const ADF_I2408 second = offsetSquared(c.cx2, c.cy2, mx, my);
        // Negative means overflowed: it outranks every length.
        if (lenSqr >= 0 && (second < 0 || second > lenSqr)) lenSqr = second;
      }
      segs = CurveLineSegments(lenSqr);
    }
    c.HcollapsePriority = (ADF_U32)segs;
    total += (ADF_U32)segs;
    work[k] = c;
    px = c.x;
    py = c.y;
  }

  const uint64_t size = sizeof(InternPath) + total * sizeof(ADFPenCmdFx);
  InternPath* path = (InternPath*)ADFAlloc(libInst, size);
  if (path == nullptr) {
    ADFFree(libInst, work);
    return nullptr;
  }
  path->pathType = adf->pathType;
  path->numPenCmds = (ADF_U32)total;
  path->penCmds = (ADFPenCmdFx*)(path + 1);
  path->pathWidth = 0;
  if (adf->pathType == ADF_PATH_STROKE) {
    const ADF_F32(*m)[3] = rgd->xform;
    ADF_I1616 scale;
    if (m[0][0] == m[1][1] && m[0][1] == 0 && m[1][0] == 0)
      scale = m[0][0];
    else
      scale = I2408_SQRT_I1616(I1616_MUL_I2408(m[0][0], m[1][1]) -
                               I1616_MUL_I2408(m[0][1], m[1][0]));
    path->pathWidth = I1616_MUL(adf->pathWidth, scale);
  }

  ADFPenCmdFx* out = path->penCmds;
  px = py = 0;
  for (ADF_U32 k = 0; k < num; k++) {
    const ADFPenCmdFx& c = work[k];
    if (c.opCode <= ADF_LINETO) {
      ADFPenCmdFx copy = c;
      copy.HcollapsePriority = 0;
      *out++ = copy;
    } else {
      CurveData cd;
      cd.nLineSegs = (ADF_I32)c.HcollapsePriority;
      cd.px = px;
      cd.py = py;
      cd.cx = c.cx;
      cd.cy = c.cy;
      cd.cx2 = c.cx2;
      cd.cy2 = c.cy2;
      cd.qx = c.x;
      cd.qy = c.y;
      out += flattenCurve(c.opCode == ADF_CUBICTO, cd, out);
    }
    px = c.x;
    py = c.y;
  }
  ADFFree(libInst, work);
  return path;
}

void DestroyInternPath(void* libInst, InternPath* path) { ADFFree(libInst, path); }

// ---------------------------------------------------------------------------
// Sample buffers.

DistBuffer* CreateDistBuffer(void* libInst, const ADFImage* image,
                             ADF_U32 displayMode) {
  if (displayMode > ADF_REND_MODE_VSTRIPES_NOREDUCE) return nullptr;
  const bool h3 = displayMode == ADF_REND_MODE_HSTRIPES ||
                  displayMode == ADF_REND_MODE_HSTRIPES_NOREDUCE;
  const bool v3 = displayMode >= ADF_REND_MODE_VSTRIPES;
  const ADF_U32 w = image->w * (h3 ? 3u : 1u), h = image->h * (v3 ? 3u : 1u);
  DistBuffer* buf = (DistBuffer*)ADFAlloc(
      libInst, sizeof(DistBuffer) + (uint64_t)w * h * sizeof(ADF_I1616));
  if (buf == nullptr) return nullptr;
  const ADF_I1616 third = 21845, three = 3 * I1616_CONST_ONE;
  buf->w = w;
  buf->h = h;
  buf->sampleSpacingX = h3 ? third : I1616_CONST_ONE;
  buf->invSampleSpacingX = h3 ? three : I1616_CONST_ONE;
  buf->sampleSpacingY = v3 ? third : I1616_CONST_ONE;
  buf->invSampleSpacingY = v3 ? three : I1616_CONST_ONE;
  buf->base = (ADF_I1616*)(buf + 1);
  return buf;
}

void DestroyDistBuffer(void* libInst, DistBuffer* distBuf) {
  ADFFree(libInst, distBuf);
}

ADF_I8* CreateWindingNumberBuffer(void* libInst, const DistBuffer* distBuf) {
  return (ADF_I8*)ADFCalloc(libInst, (uint64_t)distBuf->w * distBuf->h);
}

void DestroyWindingNumberBuffer(void* libInst, ADF_I8* wnb) { ADFFree(libInst, wnb); }

namespace {

inline void addCrossing(ADF_I8* cell, ADF_I32 dir) {
  *cell = (ADF_I8)(*cell + dir);
}

// Enters one edge's crossings: on each row j it passes (from at-or-below j
// to above), the first sample at or right of the edge gets the edge's
// direction. The error term is kept in 64 bits, and a run of steps is taken
// by one division, so absurd coordinates cost no more than sane ones.
void enterEdge(ADF_I1616 x0, ADF_I1616 y0, ADF_I1616 x1, ADF_I1616 y1,
               ADF_I8* wnb, int64_t w, int64_t h) {
  if (y0 < 0 && y1 < 0) return;
  if ((y0 >> 16) == (y1 >> 16)) return;
  const ADF_I32 dir = y1 > y0 ? 1 : -1;
  if (y1 < y0) {  // from the lower end
    ADF_I1616 t = x0;
    x0 = x1;
    x1 = t;
    t = y0;
    y0 = y1;
    y1 = t;
  }
  const int64_t jMin = y0 < 0 ? 0 : (int64_t)(y0 >> 16) + 1;
  const int64_t jMax = (y1 >> 16) < h - 1 ? (int64_t)(y1 >> 16) : h - 1;
  if (jMin > jMax) return;
  int64_t i = (int64_t)(x0 >> 16) + 1;
  if ((x0 >> 16) == (x1 >> 16)) {
    if (i < 0) i = 0;
    if (i < w)
      for (int64_t j = jMin; j <= jMax; j++) addCrossing(&wnb[j * w + i], dir);
    return;
  }
  const bool right = x1 > x0;
  const int64_t dx = right ? (int64_t)x1 - x0 : (int64_t)x0 - x1;
  const int64_t dy = (int64_t)y1 - y0;
  const int64_t startX = right ? (x0 & 0xFFFF) : i * 65536 - x0;
  int64_t err = ((dy * startX) >> 16) + ((dx * (jMin * 65536 - y0)) >> 16);
  for (int64_t j = jMin; j <= jMax; j++) {
    if (err > dy) {  // steps while err > dy, each taking dy off
      int64_t k = 1;
      err -= dy;
      if (err > dy) {
        const int64_t more = (err - 1) / dy;
        err -= more * dy;
        k += more;
      }
      i += right ? k : -k;
    }
    if (i < 0) i = 0;
    if (i < w)
      addCrossing(&wnb[j * w + i], dir);
    else if (right)
      return;  // i only grows: nothing more lands in the buffer
    err += dx;
  }
}

}  // namespace

ADF_I32 SetWindingNumberBuffer(InternPath* path, DistBuffer* distBuf,
                               ADF_I8* wnb) {
  const int64_t w = distBuf->w, h = distBuf->h;
  ADF_I1616 px = 0, py = 0;
  for (ADF_U32 k = 0; k < path->numPenCmds; k++) {
    const ADFPenCmdFx& c = path->penCmds[k];
    const ADF_I1616 x = I1616_MUL(c.x, distBuf->invSampleSpacingX);
    const ADF_I1616 y = I1616_MUL(c.y, distBuf->invSampleSpacingY);
    if (c.opCode != ADF_MOVETO) enterEdge(px, py, x, y, wnb, w, h);
    px = x;
    py = y;
  }

  // Running sums along each row; the first sign seen decides the direction,
  // a positive one for good.
  enum { UNSEEN, POSITIVE, NEGATIVE } sign = UNSEEN;
  ADF_I32 overlap = 0;
  for (int64_t j = 0; j < h; j++) {
    ADF_I8 sum = 0;
    ADF_I8* cell = wnb + j * w;
    ADF_I1616* dist = distBuf->base + j * w;
    for (int64_t i = 0; i < w; i++) {
      sum = (ADF_I8)(sum + cell[i]);
      if (sum >= 1)
        sign = POSITIVE;
      else if (sum < 0 && sign != POSITIVE)
        sign = NEGATIVE;
      const ADF_I8 count = sum < 0 ? (ADF_I8)(-sum) : sum;
      cell[i] = count;
      if (count != 0 && count != 1) overlap = 1;
      dist[i] = sum != 0 ? ADF_DIST_FAR_INSIDE : ADF_DIST_FAR_OUTSIDE;
    }
  }
  if (sign == NEGATIVE) rewindPath(path);
  return overlap;
}

void rewindPath(InternPath* path) {
  ADFPenCmdFx* cmds = path->penCmds;
  const ADF_U32 n = path->numPenCmds;
  ADF_U32 start = 0;
  while (start < n && cmds[start].opCode != ADF_MOVETO) start++;
  while (start < n) {
    ADF_U32 end = start + 1;
    while (end < n && cmds[end].opCode != ADF_MOVETO) end++;
    for (ADF_U32 a = start, b = end - 1; a < b; a++, b--) {
      const ADF_I1616 x = cmds[a].x, y = cmds[a].y;
      cmds[a].x = cmds[b].x;
      cmds[a].y = cmds[b].y;
      cmds[b].x = x;
      cmds[b].y = y;
    }
    start = end;
  }
}

// ---------------------------------------------------------------------------
// Boundary cells.

namespace {

// The sample-update rule of a cell routine: an inside sample (winding 1)
// takes d when d >= insideFrom and it is nearer; an outside one (winding 0)
// when d < outsideBelow. The small tolerances absorb rounding where an edge
// passes through a sample; they differ between the routines on purpose.
struct SampleRule {
  ADF_I1616 insideFrom, outsideBelow;
};
const SampleRule kRuleLineRect = {-1023, 1024};
const SampleRule kRuleVerticalRect = {0, 1};
const SampleRule kRuleHorizontalRect = {1, 1};
const SampleRule kRuleHorizontalTrap = {1, 0};

inline ADF_I1616 wrap(int64_t v) { return (ADF_I1616)(ADF_U32)(uint64_t)v; }

// Row and column bounds of 16.16 coordinates, in 64 bits so that no
// coordinate wraps: the first integer at or above v; the last integer below
// v (the integer part, less 1 when exact); the integer part.
inline int64_t ceilIndex(ADF_I1616 v) { return ((int64_t)v + 0xFFFF) >> 16; }
inline int64_t lastBelow(ADF_I1616 v) { return ((int64_t)v - 1) >> 16; }
inline int64_t intPart(ADF_I1616 v) { return (int64_t)v >> 16; }

inline ADF_I1616 toSampleX(const DistBuffer* db, ADF_I1616 v) {
  return I1616_MUL(v, db->invSampleSpacingX);
}
inline ADF_I1616 toSampleY(const DistBuffer* db, ADF_I1616 v) {
  return I1616_MUL(v, db->invSampleSpacingY);
}

// Image-unit position of sample column i and row j, in 64 bits.
inline int64_t sampleX(const DistBuffer* db, int64_t i) { return i * db->sampleSpacingX; }
inline int64_t sampleY(const DistBuffer* db, int64_t j) { return j * db->sampleSpacingY; }

// Offers d to the sample at s (see SampleRule); wn of 2 or more keeps the
// nearest distance in bcell and the second nearest in dist, so that the
// inner edge of an overlap is passed over. Without a winding buffer (a
// stroke) the distance is never positive.
inline void offer(ADF_I1616* dist, const ADF_I8* wnb, ADF_I1616* bcell, size_t s,
                  ADF_I1616 d, SampleRule rule) {
  if (wnb == nullptr) {
    const ADF_I1616 nd = I1616_NEGABS(d);
    if (dist[s] < nd) dist[s] = nd;
    return;
  }
  const ADF_I8 wn = wnb[s];
  if (wn == 1) {
    if (d >= rule.insideFrom && dist[s] > d) dist[s] = d;
  } else if (wn == 0) {
    if (d < rule.outsideBelow && dist[s] < d) dist[s] = d;
  } else if (bcell != nullptr && d >= 1) {
    const ADF_I1616 b = bcell[s];
    if (b == 0) {
      bcell[s] = d;
    } else if (b > 0 && b >= d) {
      dist[s] = b;
      bcell[s] = d;
    } else if (b > 0 && dist[s] > d) {
      dist[s] = d;
    }
  }
}

// Samples iMin..iMax of row j, d at the first and ddx more each step.
void offerRun(DistBuffer* db, const ADF_I8* wnb, ADF_I1616* bcell, int64_t j, int64_t iMin,
              int64_t iMax, ADF_I1616 d, ADF_I1616 ddx, SampleRule rule) {
  const size_t row = (size_t)j * db->w;
  for (int64_t i = iMin; i <= iMax; i++) {
    offer(db->base, wnb, bcell, row + (size_t)i, d, rule);
    d = I1616_ADD(d, ddx);
  }
}

// The signed distance of sample (i, j) from the segment's line.
inline ADF_I1616 planeDistance(const DistBuffer* db, const CellData* c, int64_t i, int64_t j) {
  const int64_t dx = sampleX(db, i) - c->x0, dy = sampleY(db, j) - c->y0;
  return wrap(((dx * c->nx) >> 16) + ((dy * c->ny) >> 16));
}

inline int64_t clampTo(int64_t v, int64_t lo, int64_t hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Rows farther than this from a side's reference point are clamped to it
// before the slope multiplies them, keeping the product inside 64 bits; a
// side is meaningless that far off anyway.
const int64_t kFarRows = ((int64_t)1 << 32) - 1;

// Fills the rows jMin..jMax (already within the buffer) of the cell bounded
// by `edges`: each row from the first sample at or right of every left side
// to the last strictly left of every right side.
void fillCell(DistBuffer* db, const ADF_I8* wnb, ADF_I1616* bcell, const CellData* c,
              const LineEdge* edges, ADF_I32 numEdges, int64_t jMin, int64_t jMax,
              SampleRule rule) {
  const ADF_I1616 ddx = I1616_MUL(c->nx, db->sampleSpacingX);
  const int64_t far = (int64_t)1 << 48;
  for (int64_t j = jMin; j <= jMax; j++) {
    const int64_t yj = j << 16;
    int64_t left = -far, right = far;
    bool inRows = true;
    for (ADF_I32 k = 0; k < numEdges; k++) {
      const LineEdge& e = edges[k];
      if (e.side == 2 || e.side == -2) {
        inRows = inRows && (e.side == 2 ? yj >= e.y : yj < e.y);
        continue;
      }
      const int64_t dy = clampTo(yj - e.y, -kFarRows, kFarRows);
      const int64_t x = e.x + ((dy * e.dxy) >> 16);
      if (e.side > 0 && x > left) left = x;
      if (e.side < 0 && x < right) right = x;
    }
    if (!inRows) continue;
    const int64_t iMin = clampTo((left + 0xFFFF) >> 16, 0, db->w);
    const int64_t iMax = clampTo((right - 1) >> 16, -1, (int64_t)db->w - 1);
    if (iMin > iMax) continue;
    offerRun(db, wnb, bcell, j, iMin, iMax, planeDistance(db, c, iMin, j), ddx, rule);
  }
}

// A side through (x, y) in samples with slope dxy (samples of x a row), or
// a row bound when the slope is missing; facing the point (qx, qy).
LineEdge sideFacing(ADF_I1616 x, ADF_I1616 y, ADF_I1616 dxy, bool flat, ADF_I1616 qx,
                    ADF_I1616 qy) {
  LineEdge e = {x, y, dxy, 0};
  if (flat) {
    e.side = qy >= y ? 2 : -2;
  } else {
    const int64_t dy = clampTo((int64_t)qy - y, -kFarRows, kFarRows);
    e.side = (int64_t)qx >= x + ((dy * dxy) >> 16) ? 1 : -1;
  }
  return e;
}

// x over y of a direction, exactly (truncated) in 64 bits: the
// reciprocal division's shortcut for a divisor of raw -1 would turn a
// nearly flat bisector steep. False when too flat for a slope.
bool slopeOf(int64_t x, int64_t y, ADF_I1616* xy) {
  if (y == 0) return false;
  const int64_t q = x * 65536 / y;
  if (q > INT32_MAX || q < -INT32_MAX) return false;
  *xy = (ADF_I1616)q;
  return true;
}

// A bisector's x over y in image units, then in samples a row; false when
// it is too flat for a slope.
bool bisectorSlope(const DistBuffer* db, ADF_I1616 txy, bool sloped, ADF_I1616* dxy) {
  if (!sloped) return false;
  const int64_t s =
      ((((int64_t)txy * db->invSampleSpacingX) >> 16) * db->sampleSpacingY) >> 16;
  if (s > INT32_MAX || s < INT32_MIN) return false;
  *dxy = (ADF_I1616)s;
  return true;
}

// The rows of the buffer between 16.16 rows lo and hi: from the first at
// or above lo to the last below hi. False when none.
bool rowsBetween(const DistBuffer* db, ADF_I1616 lo, ADF_I1616 hi, int64_t* jMin, int64_t* jMax) {
  if (hi < 0) return false;
  *jMin = clampTo(ceilIndex(lo), 0, db->h);
  *jMax = clampTo(lastBelow(hi), -1, (int64_t)db->h - 1);
  return *jMin <= *jMax;
}

}  // namespace

void ProcessVerticalLineCell_rect(CellData* c, DistBuffer* db, ADF_I1616 filterRad, ADF_I8* wnb,
                                  ADF_I1616* bcell) {
  const ADF_I1616 lo = toSampleY(db, c->y0 < c->y1 ? c->y0 : c->y1);
  const ADF_I1616 hi = toSampleY(db, c->y0 < c->y1 ? c->y1 : c->y0);
  int64_t jMin, jMax;
  if (!rowsBetween(db, lo, hi, &jMin, &jMax)) return;
  const int64_t iMin = std::max<int64_t>(intPart(toSampleX(db, I1616_SUB(c->x0, filterRad))) + 1, 0);
  const int64_t iMax =
      std::min<int64_t>(intPart(toSampleX(db, I1616_ADD(c->x0, filterRad))), (int64_t)db->w - 1);
  if (iMin > iMax) return;
  const bool up = c->y0 < c->y1;  // inside is to the right
  const int64_t off = c->x0 - sampleX(db, iMin);
  const ADF_I1616 d = wrap(up ? -off : off);
  const ADF_I1616 step = up ? db->sampleSpacingX : -db->sampleSpacingX;
  for (int64_t j = jMin; j <= jMax; j++) offerRun(db, wnb, bcell, j, iMin, iMax, d, step, kRuleVerticalRect);
}

void ProcessHorizontalLineCell_rect(CellData* c, DistBuffer* db, ADF_I1616 filterRad,
                                    ADF_I8* wnb, ADF_I1616* bcell) {
  const ADF_I1616 top = toSampleY(db, I1616_ADD(c->y0, filterRad));
  if (top < 0) return;
  const int64_t jMin = std::max<int64_t>(intPart(toSampleY(db, I1616_SUB(c->y0, filterRad))) + 1, 0);
  const int64_t jMax = std::min<int64_t>(intPart(top), (int64_t)db->h - 1);
  const ADF_I1616 left = toSampleX(db, c->x0 < c->x1 ? c->x0 : c->x1);
  const ADF_I1616 right = toSampleX(db, c->x0 < c->x1 ? c->x1 : c->x0);
  const int64_t iMin = clampTo(ceilIndex(left), 0, db->w);
  const int64_t iMax = clampTo(lastBelow(right), -1, (int64_t)db->w - 1);
  if (iMin > iMax) return;
  const bool rightward = c->x0 < c->x1;  // inside is below
  for (int64_t j = jMin; j <= jMax; j++) {
    const int64_t off = c->y0 - sampleY(db, j);
    offerRun(db, wnb, bcell, j, iMin, iMax, wrap(rightward ? off : -off), 0, kRuleHorizontalRect);
  }
}

void ProcessLineCell_rect(CellData* c, DistBuffer* db, ADF_I1616 filterRad, ADF_I8* wnb,
                          ADF_I1616* bcell) {
  if (c->x0 == c->x1) return ProcessVerticalLineCell_rect(c, db, filterRad, wnb, bcell);
  if (c->y0 == c->y1) return ProcessHorizontalLineCell_rect(c, db, filterRad, wnb, bcell);
  const ADF_I1616 ox = I1616_MUL(c->nx, filterRad), oy = I1616_MUL(c->ny, filterRad);
  const ADF_I1616 x[4] = {toSampleX(db, I1616_ADD(c->x0, ox)), toSampleX(db, I1616_SUB(c->x0, ox)),
                          toSampleX(db, I1616_SUB(c->x1, ox)), toSampleX(db, I1616_ADD(c->x1, ox))};
  const ADF_I1616 y[4] = {toSampleY(db, I1616_ADD(c->y0, oy)), toSampleY(db, I1616_SUB(c->y0, oy)),
                          toSampleY(db, I1616_SUB(c->y1, oy)), toSampleY(db, I1616_ADD(c->y1, oy))};
  // Too flat a side for a slope: the cell is taken as upright or level.
  ADF_I1616 dxyPara = 0, dxyPerp = 0;
  if (!slopeOf((int64_t)x[3] - x[0], (int64_t)y[3] - y[0], &dxyPara) ||
      !slopeOf((int64_t)x[1] - x[0], (int64_t)y[1] - y[0], &dxyPerp)) {
    if (I1616_ABS(c->nx) > I1616_ABS(c->ny))
      return ProcessVerticalLineCell_rect(c, db, filterRad, wnb, bcell);
    return ProcessHorizontalLineCell_rect(c, db, filterRad, wnb, bcell);
  }
  // The rectangle's four sides, each facing the opposite corner.
  const LineEdge edges[4] = {sideFacing(x[0], y[0], dxyPara, false, x[1], y[1]),
                             sideFacing(x[1], y[1], dxyPara, false, x[0], y[0]),
                             sideFacing(x[0], y[0], dxyPerp, false, x[3], y[3]),
                             sideFacing(x[3], y[3], dxyPerp, false, x[0], y[0])};
  ADF_I1616 lo = y[0], hi = y[0];
  for (ADF_I1616 v : y) lo = std::min(lo, v), hi = std::max(hi, v);
  int64_t jMin, jMax;
  if (!rowsBetween(db, lo, hi, &jMin, &jMax)) return;
  fillCell(db, wnb, bcell, c, edges, 4, jMin, jMax, kRuleLineRect);
}

void ProcessCornerCell(CellData* c, DistBuffer* db, ADF_I1616 filterRad, ADF_I8* wnb,
                       ADF_I32 squarecorner) {
  const ADF_I1616 top = toSampleY(db, I1616_ADD(c->y0, filterRad));
  if (top < 0) return;
  const int64_t jMin = std::max<int64_t>(intPart(toSampleY(db, I1616_SUB(c->y0, filterRad))) + 1, 0);
  const int64_t jMax = std::min<int64_t>(intPart(top), (int64_t)db->h - 1);
  const int64_t iMin = std::max<int64_t>(intPart(toSampleX(db, I1616_SUB(c->x0, filterRad))) + 1, 0);
  const int64_t iMax =
      std::min<int64_t>(intPart(toSampleX(db, I1616_ADD(c->x0, filterRad))), (int64_t)db->w - 1);
  for (int64_t j = jMin; j <= jMax; j++) {
    const ADF_I1616 dy = wrap(sampleY(db, j) - c->y0);
    ADF_I1616* row = db->base + (size_t)j * db->w;
    const ADF_I8* wrow = wnb ? wnb + (size_t)j * db->w : nullptr;
    for (int64_t i = iMin; i <= iMax; i++) {
      const ADF_I1616 dx = wrap(sampleX(db, i) - c->x0);
      ADF_I1616& dist = row[i];
      if (wrow == nullptr) {
        const ADF_I1616 s = I1616_ADD(I1616_SQR(dy), I1616_SQR(dx));
        if (I1616_SQR(dist) > s) dist = I1616_NEGATE(I1616_SQRT(s));
        continue;
      }
      const ADF_I8 wn = wrow[i];
      if (squarecorner && wn == 0) {  // a square outer corner
        const ADF_I1616 ax = I1616_ABS(dx), ay = I1616_ABS(dy);
        const ADF_I1616 v = I1616_NEGATE(ax > ay ? ax : ay);
        if (dist < v) dist = v;
        continue;
      }
      const ADF_I1616 a = I1616_ABS(dist);
      if (a <= I1616_ABS(dy) && I1616_ABS(dx) >= a) continue;  // cannot be nearer
      const ADF_I1616 s = I1616_ADD(I1616_SQR(dy), I1616_SQR(dx));
      if (I1616_SQR(a) > s) {
        const ADF_I1616 r = I1616_SQRT(s);
        dist = wn == 0 ? I1616_NEGATE(r) : r;
      }
    }
  }
}

namespace {

inline ADF_I1616 filterRadiusOf(const ADFRenderGlyphData* rgd) {
  const ADF_I1616 in = I1616_ABS(rgd->insideCutoff), out = I1616_ABS(rgd->outsideCutoff);
  return in > out ? in : out;
}

// The normal of the segment from (x0, y0) to (x1, y1); false for none.
inline bool segmentNormal(ADF_I1616 x0, ADF_I1616 y0, ADF_I1616 x1, ADF_I1616 y1, ADF_I1616* nx,
                          ADF_I1616* ny) {
  return I1616_NORMALIZE(I1616_SUB(y1, y0), I1616_SUB(x0, x1), nx, ny) != 0;
}

}  // namespace

void ProcessBoundaryCells_rect(InternPath* path, ADFRenderGlyphData* rgd, DistBuffer* db,
                               ADF_I8* wnb, ADF_I1616* bcell) {
  const ADF_I1616 filterRad = filterRadiusOf(rgd);
  if (filterRad == 0) return;
  const ADFPenCmdFx* cmds = path->penCmds;
  const ADF_U32 n = path->numPenCmds;
  // Pass one: a rectangle along each segment.
  ADF_I1616 px = 0, py = 0;
  for (ADF_U32 k = 0; k < n; k++) {
    const ADFPenCmdFx& c = cmds[k];
    if (c.opCode == ADF_MOVETO) {
      px = c.x, py = c.y;
      continue;
    }
    CellData cell = {px, py, c.x, c.y, 0, 0, 0, 0, 0, 0};
    if (!segmentNormal(px, py, c.x, c.y, &cell.nx, &cell.ny)) continue;
    ProcessLineCell_rect(&cell, db, filterRad, wnb, bcell);
    px = c.x, py = c.y;
  }
  // Pass two: a corner cell at each vertex; a stroke also at each
  // contour's start, for its round cap.
  const bool stroke = wnb == nullptr;
  bool seenLine = false;
  ADF_I1616 firstX = 0, firstY = 0;
  px = py = 0;
  for (ADF_U32 k = 0; k < n; k++) {
    const ADFPenCmdFx& c = cmds[k];
    if (c.opCode == ADF_MOVETO) {
      px = c.x, py = c.y;
      seenLine = false;
      continue;
    }
    if (c.x == px && c.y == py) continue;
    CellData cell = {px, py, 0, 0, 0, 0, 0, 0, 0, 0};
    if (stroke && !seenLine) ProcessCornerCell(&cell, db, filterRad, nullptr, 0);
    seenLine = true;
    if (k > 0 && cmds[k - 1].opCode == ADF_MOVETO) firstX = c.x, firstY = c.y;
    ADF_I32 square = 0;
    if (!stroke) {
      ADF_I1616 nextX = firstX, nextY = firstY;
      if (k + 1 < n && cmds[k + 1].opCode != ADF_MOVETO) nextX = cmds[k + 1].x, nextY = cmds[k + 1].y;
      // Every axis-aligned right angle, and any quarter turn with legs of
      // equal length (kept as it is: an equal-legged diamond is squared).
      square = I1616_ADD(I1616_SUB(nextY, c.y), I1616_SUB(c.x, px)) == 0 ||
               I1616_ADD(I1616_SUB(nextX, c.x), I1616_SUB(c.y, py)) == 0;
    }
    cell.x0 = c.x, cell.y0 = c.y;
    ProcessCornerCell(&cell, db, filterRad, wnb, square);
    px = c.x, py = c.y;
  }
}

ADF_I32 intersect(ADF_I1616 xs, ADF_I1616 ys, ADF_I1616 xe, ADF_I1616 ye, ADF_I1616 t0x,
                  ADF_I1616 t0y, ADF_I1616 t1x, ADF_I1616 t1y, ADF_I1616* x, ADF_I1616* y) {
  const ADF_I1616 det = I1616_SUB(I1616_MUL(t0x, t1y), I1616_MUL(t0y, t1x));
  if (det >= -2287 && det <= 2287) {  // parallel
    *x = wrap(((int64_t)xs + xe) / 2);
    *y = wrap(((int64_t)ys + ye) / 2);
    return 1;
  }
  ADF_I32 status;
  const ADF_I1616 s = I1616_DIV(I1616_SUB(I1616_MUL(t1y, I1616_SUB(xe, xs)),
                                          I1616_MUL(t1x, I1616_SUB(ye, ys))),
                                det, &status);
  *x = I1616_ADD(xs, I1616_MUL(s, t0x));
  *y = I1616_ADD(ys, I1616_MUL(s, t0y));
  return *x == INT32_MAX || *x == -INT32_MAX || *y == INT32_MAX || *y == -INT32_MAX;
}

ADF_I32 Set_Left_Right_Edges(const CellData* c, const DistBuffer* db, ADF_I1616 filterRad,
                             ADF_I1616 bi_pre_tx, ADF_I1616 bi_pre_ty, ADF_I1616 bi_next_tx,
                             ADF_I1616 bi_next_ty, const ADF_I1616* x, const ADF_I1616* y,
                             LineEdge* edges, ADF_I32* jMin, ADF_I32* jMax) {
  const ADF_I1616 sx = toSampleX(db, c->x0), sy = toSampleY(db, c->y0);
  const ADF_I1616 ex = toSampleX(db, c->x1), ey = toSampleY(db, c->y1);
  // The band lines at +-filterRad, parallel to the segment.
  ADF_I1616 dxyPara = 0;
  const bool flatPara = !slopeOf((int64_t)ex - sx, (int64_t)ey - sy, &dxyPara);
  const ADF_I1616 ox = I1616_MUL(c->nx, filterRad), oy = I1616_MUL(c->ny, filterRad);
  edges[0] = sideFacing(toSampleX(db, I1616_ADD(c->x0, ox)), toSampleY(db, I1616_ADD(c->y0, oy)),
                        dxyPara, flatPara, sx, sy);
  edges[1] = sideFacing(toSampleX(db, I1616_SUB(c->x0, ox)), toSampleY(db, I1616_SUB(c->y0, oy)),
                        dxyPara, flatPara, sx, sy);
  // The bisectors through the two ends, each facing the other end.
  ADF_I1616 dxyPre = 0, dxyNext = 0, txyPre = 0, txyNext = 0;
  const bool slopedPre = bisectorSlope(db, txyPre, slopeOf(bi_pre_tx, bi_pre_ty, &txyPre), &dxyPre);
  const bool slopedNext =
      bisectorSlope(db, txyNext, slopeOf(bi_next_tx, bi_next_ty, &txyNext), &dxyNext);
  edges[2] = sideFacing(sx, sy, dxyPre, !slopedPre, ex, ey);
  edges[3] = sideFacing(ex, ey, dxyNext, !slopedNext, sx, sy);

  // Rows: those of the corners, with the apex in place of the far corners
  // on a side where the bisectors cross inside the band (the corners come
  // in the reverse order along the segment there).
  ADF_I1616 vy[4] = {y[0], y[1], y[2], y[3]};
  const int64_t tx = (int64_t)ex - sx, ty = (int64_t)ey - sy;
  for (int side = 0; side < 2; side++) {
    const int a = side == 0 ? 0 : 1, b = side == 0 ? 3 : 2;
    // A sign only: quartered, the products stay inside 64 bits.
    if ((((int64_t)x[b] - x[a]) >> 2) * (tx >> 2) + (((int64_t)y[b] - y[a]) >> 2) * (ty >> 2) >= 0) continue;
    ADF_I1616 ax, ay;
    if (intersect(x[a], y[a], x[b], y[b], toSampleX(db, bi_pre_tx), toSampleY(db, bi_pre_ty),
                  toSampleX(db, bi_next_tx), toSampleY(db, bi_next_ty), &ax, &ay) == 0)
      vy[a] = vy[b] = ay;
  }
  ADF_I1616 lo = vy[0], hi = vy[0];
  for (ADF_I1616 v : vy) lo = std::min(lo, v), hi = std::max(hi, v);
  // A row either way: the sides, not the rows, bound the cell exactly.
  int64_t j0, j1;
  if (!rowsBetween(db, I1616_SUB(lo, I1616_CONST_ONE), I1616_ADD(hi, I1616_CONST_ONE), &j0, &j1)) {
    *jMin = 0, *jMax = -1;
  } else {
    *jMin = (ADF_I32)j0, *jMax = (ADF_I32)j1;
  }
  return 4;
}

void ProcessHorizontalLineCell_trap(CellData* c, DistBuffer* db, ADF_I1616 filterRad,
                                    ADF_I8* wnb, ADF_I1616* bcell, ADF_I1616 bi_pre_txy,
                                    ADF_I1616 bi_next_txy, const ADF_I1616*, const ADF_I1616*) {
  int64_t jMin, jMax;
  if (!rowsBetween(db, toSampleY(db, I1616_SUB(c->y0, filterRad)),
                   toSampleY(db, I1616_ADD(c->y0, filterRad)), &jMin, &jMax))
    return;
  const ADF_I1616 sx = toSampleX(db, c->x0), sy = toSampleY(db, c->y0);
  const ADF_I1616 ex = toSampleX(db, c->x1);
  ADF_I1616 dxyPre = 0, dxyNext = 0;
  bisectorSlope(db, bi_pre_txy, true, &dxyPre);
  bisectorSlope(db, bi_next_txy, true, &dxyNext);
  const LineEdge edges[2] = {sideFacing(sx, sy, dxyPre, false, ex, sy),
                             sideFacing(ex, sy, dxyNext, false, sx, sy)};
  fillCell(db, wnb, bcell, c, edges, 2, jMin, jMax, kRuleHorizontalTrap);
}

namespace {

// The bisector of normal n with its neighbour m (components halved
// arithmetically) and its cosine with n.
void bisector(ADF_I1616 nx, ADF_I1616 ny, ADF_I1616 mx, ADF_I1616 my, ADF_I1616* bx,
              ADF_I1616* by, ADF_I1616* cosine) {
  *bx = wrap(((int64_t)nx + mx) >> 1);
  *by = wrap(((int64_t)ny + my) >> 1);
  *cosine = I1616_ABS(I1616_ADD(I1616_MUL(*bx, nx), I1616_MUL(*by, ny)));
}

// The corner offset: a mitre of filterRad / cos along the bisector, or
// n * filterRad (and n for the bisector) where the neighbours nearly fold
// back (cos below 1025).
void cornerOffset(ADF_I1616 nx, ADF_I1616 ny, ADF_I1616* bx, ADF_I1616* by, ADF_I1616 cosine,
                  ADF_I1616 filterRad, ADF_I1616* ox, ADF_I1616* oy) {
  if (cosine < 1025) {
    *bx = nx, *by = ny;
    *ox = I1616_MUL(nx, filterRad), *oy = I1616_MUL(ny, filterRad);
    return;
  }
  ADF_I32 status;
  const ADF_I1616 scale = I1616_DIV(filterRad, cosine, &status);
  *ox = I1616_MUL(*bx, scale), *oy = I1616_MUL(*by, scale);
}

}  // namespace

void ProcessLineCell_trap(CellData* c, DistBuffer* db, ADF_I1616 filterRad, ADF_I8* wnb,
                          ADF_I1616* bcell, ADF_I32 start, ADF_I1616* p_cos_pre,
                          ADF_I1616* p_xyt) {
  ADF_I1616 x[4], y[4], bpx, bpy, cosPre, ox, oy, dxyPre;
  if (start) {
    bisector(c->nx, c->ny, c->pre_nx, c->pre_ny, &bpx, &bpy, &cosPre);
  } else {
    cosPre = *p_cos_pre;
    bpx = p_xyt[4], bpy = p_xyt[5];
  }
  if (!start && cosPre > 1024) {  // the previous cell's end, exactly
    x[0] = p_xyt[0], x[1] = p_xyt[1], y[0] = p_xyt[2], y[1] = p_xyt[3];
    dxyPre = p_xyt[6];
  } else {
    cornerOffset(c->nx, c->ny, &bpx, &bpy, cosPre, filterRad, &ox, &oy);
    x[0] = toSampleX(db, I1616_ADD(c->x0, ox)), x[1] = toSampleX(db, I1616_SUB(c->x0, ox));
    y[0] = toSampleY(db, I1616_ADD(c->y0, oy)), y[1] = toSampleY(db, I1616_SUB(c->y0, oy));
    dxyPre = 0;
    slopeOf(bpx, bpy, &dxyPre);
  }
  ADF_I1616 bnx, bny, cosNext;
  bisector(c->nx, c->ny, c->next_nx, c->next_ny, &bnx, &bny, &cosNext);
  cornerOffset(c->nx, c->ny, &bnx, &bny, cosNext, filterRad, &ox, &oy);
  x[2] = toSampleX(db, I1616_SUB(c->x1, ox)), x[3] = toSampleX(db, I1616_ADD(c->x1, ox));
  y[2] = toSampleY(db, I1616_SUB(c->y1, oy)), y[3] = toSampleY(db, I1616_ADD(c->y1, oy));
  ADF_I1616 dxyNext = 0;
  slopeOf(bnx, bny, &dxyNext);
  *p_cos_pre = cosNext;
  p_xyt[0] = x[3], p_xyt[1] = x[2], p_xyt[2] = y[3], p_xyt[3] = y[2];
  p_xyt[4] = bnx, p_xyt[5] = bny, p_xyt[6] = dxyNext;

  if (c->y0 == c->y1) {
    ProcessHorizontalLineCell_trap(c, db, filterRad, wnb, bcell, dxyPre, dxyNext, x, y);
  } else if (cosNext >= 4608 && cosPre > 4607) {
    // The tolerance grows with the image: the error of the stepped
    // distance grows with the run length.
    ADF_I32 tol = (ADF_I32)std::max(db->w, db->h);
    if (filterRad > I1616_CONST_ONE) tol = std::min<ADF_I32>(tol + ((tol >> 5) << 10), 4096);
    LineEdge edges[4];
    ADF_I32 jMin, jMax;
    const ADF_I32 n =
        Set_Left_Right_Edges(c, db, filterRad, bpx, bpy, bnx, bny, x, y, edges, &jMin, &jMax);
    fillCell(db, wnb, bcell, c, edges, n, jMin, jMax, SampleRule{-tol, tol + 1});
  } else {  // a sharp corner: rectangle and square corners
    ProcessLineCell_rect(c, db, filterRad, wnb, bcell);
    CellData end = *c;
    ProcessCornerCell(c, db, filterRad, wnb, 1);
    end.x0 = c->x1, end.y0 = c->y1;
    ProcessCornerCell(&end, db, filterRad, wnb, 1);
  }
}

void ProcessBoundaryCells_trap(InternPath* path, ADFRenderGlyphData* rgd, DistBuffer* db,
                               ADF_I8* wnb, ADF_I1616* bcell) {
  const ADF_I1616 filterRad = filterRadiusOf(rgd);
  if (filterRad == 0) return;
  const ADFPenCmdFx* cmds = path->penCmds;
  const ADF_U32 n = path->numPenCmds;
  ADF_I1616 cosPre = 0, xyt[7] = {};
  ADF_I1616 firstNx = 0, firstNy = 0, lastNx = 0, lastNy = 0;
  ADF_U32 lastLine = 0;  // the contour's last command
  CellData cell = {};
  bool start = true;
  ADF_I1616 px = 0, py = 0;
  for (ADF_U32 k = 0; k < n; k++) {
    const ADFPenCmdFx& c = cmds[k];
    if (c.opCode == ADF_MOVETO) {
      start = true;
      px = c.x, py = c.y;
      continue;
    }
    if (c.x == px && c.y == py && !start) continue;
    if (!start) {
      cell.pre_nx = cell.nx, cell.pre_ny = cell.ny;
      cell.nx = cell.next_nx, cell.ny = cell.next_ny;
    } else {
      if (!segmentNormal(px, py, c.x, c.y, &cell.nx, &cell.ny)) continue;
      firstNx = cell.nx, firstNy = cell.ny;
      // A contour of one segment makes no cell.
      if (k + 1 >= n || cmds[k + 1].opCode == ADF_MOVETO) {
        px = c.x, py = c.y;
        continue;
      }
      lastLine = k + 1;
      while (lastLine + 1 < n && cmds[lastLine + 1].opCode != ADF_MOVETO) lastLine++;
      // The last segment that has a length, walking back over coincident
      // points; this segment's own at worst.
      ADF_U32 m = lastLine;
      while (m > k && cmds[m].x == cmds[m - 1].x && cmds[m].y == cmds[m - 1].y) m--;
      if (!segmentNormal(cmds[m - 1].x, cmds[m - 1].y, cmds[m].x, cmds[m].y, &lastNx, &lastNy))
        lastNx = cell.nx, lastNy = cell.ny;
      cell.pre_nx = lastNx, cell.pre_ny = lastNy;
    }
    if (k + 1 >= n || cmds[k + 1].opCode == ADF_MOVETO) {
      cell.next_nx = firstNx, cell.next_ny = firstNy;
    } else if (k + 1 == lastLine) {
      cell.next_nx = lastNx, cell.next_ny = lastNy;
    } else {
      ADF_U32 m = k + 1;
      while (m < lastLine && cmds[m].x == c.x && cmds[m].y == c.y) m++;
      if (cmds[m].x == c.x && cmds[m].y == c.y)
        cell.next_nx = firstNx, cell.next_ny = firstNy;
      else if (m == lastLine)
        cell.next_nx = lastNx, cell.next_ny = lastNy;
      else
        segmentNormal(c.x, c.y, cmds[m].x, cmds[m].y, &cell.next_nx, &cell.next_ny);
    }
    cell.x0 = px, cell.y0 = py, cell.x1 = c.x, cell.y1 = c.y;
    ProcessLineCell_trap(&cell, db, filterRad, wnb, bcell, start, &cosPre, xyt);
    start = false;
    px = c.x, py = c.y;
  }
}

// ---------------------------------------------------------------------------
// The render.

void ADFRenderGlyphImplicit(void* libInst, const ADFGlyph* adf,
                            ADFRenderGlyphData* rgd, ADFImage* image) {
  if (image->w == 0 || image->h == 0) return;
  ClearADFImage(image);
  if (adf == nullptr || adf->version != ADF_GLYPH_VERSION) return;
  DistBuffer* dist = CreateDistBuffer(libInst, image, rgd->displayMode);
  if (dist == nullptr) return;
  InternPath* path = CreateInternPath(libInst, adf, rgd);
  if (path == nullptr) {
    DestroyDistBuffer(libInst, dist);
    return;
  }
  const uint64_t samples = (uint64_t)dist->w * dist->h;
  if (path->pathType == ADF_PATH_STROKE) {
    // Distances count from the centre line: the cut-offs move in by the
    // radius. 108.0 plus the largest cut-off stays inside the sentinel.
    const ADF_I1616 maxRadius = 108 << 16;
    const ADF_I1616 half = path->pathWidth >> 1;
    const ADF_I1616 radius = half < maxRadius ? half : maxRadius;
    const ADF_I1616 inside = rgd->insideCutoff, outside = rgd->outsideCutoff;
    rgd->insideCutoff = I1616_SUB(inside, radius);
    rgd->outsideCutoff = I1616_SUB(outside, radius);
    for (uint64_t s = 0; s < samples; s++) dist->base[s] = ADF_DIST_FAR_OUTSIDE;
    ProcessBoundaryCells_rect(path, rgd, dist, nullptr, nullptr);
    MapDistBufferToImage(dist, rgd, rgd->displayMode, image);
    rgd->insideCutoff = inside;
    rgd->outsideCutoff = outside;
  } else {
    ADF_I8* wnb = CreateWindingNumberBuffer(libInst, dist);
    if (wnb != nullptr) {
      ADF_I1616* bcell = nullptr;
      const bool overlap = SetWindingNumberBuffer(path, dist, wnb) != 0;
      if (overlap) bcell = (ADF_I1616*)ADFCalloc(libInst, samples * sizeof(ADF_I1616));
      const bool ready = !overlap || bcell != nullptr;
      if (ready && (rgd->insideCutoff > I1616_CONST_ONE || rgd->outsideCutoff < -2 * I1616_CONST_ONE))
        ProcessBoundaryCells_rect(path, rgd, dist, wnb, bcell);
      else if (ready)
        ProcessBoundaryCells_trap(path, rgd, dist, wnb, bcell);
      ADFFree(libInst, bcell);
      DestroyWindingNumberBuffer(libInst, wnb);
      if (ready) MapDistBufferToImage(dist, rgd, rgd->displayMode, image);
    }
  }
  DestroyDistBuffer(libInst, dist);
  DestroyInternPath(libInst, path);
}
