// The implicit distance-field render up to the band: flattening into image
// samples, the distance buffer and the winding-number buffer, and the order
// of a render's steps. The band's cells and the density mapping join at
// ADFFillBandAndMap.
#include "Orvex_internal/adfimplicitfixed.h"

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
// The render.

void ADFFillBandAndMap(ADFCellStyle, InternPath*, ADFRenderGlyphData*,
                       DistBuffer*, ADF_I8*, ADF_I1616*, ADFImage*) {
  // The band's cells and the density mapping are not built yet: the image
  // stays as cleared.
}

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
    ADFFillBandAndMap(ADF_CELLS_RECT, path, rgd, dist, nullptr, nullptr, image);
    rgd->insideCutoff = inside;
    rgd->outsideCutoff = outside;
  } else {
    ADF_I8* wnb = CreateWindingNumberBuffer(libInst, dist);
    if (wnb != nullptr) {
      ADF_I1616* bcell = nullptr;
      const bool overlap = SetWindingNumberBuffer(path, dist, wnb) != 0;
      if (overlap) bcell = (ADF_I1616*)ADFCalloc(libInst, samples * sizeof(ADF_I1616));
      if (!overlap || bcell != nullptr) {
        const ADFCellStyle style =
            rgd->insideCutoff > I1616_CONST_ONE || rgd->outsideCutoff < -2 * I1616_CONST_ONE
                ? ADF_CELLS_RECT
                : ADF_CELLS_TRAP;
        ADFFillBandAndMap(style, path, rgd, dist, wnb, bcell, image);
      }
      ADFFree(libInst, bcell);
      DestroyWindingNumberBuffer(libInst, wnb);
    }
  }
  DestroyDistBuffer(libInst, dist);
  DestroyInternPath(libInst, path);
}
