// The implicit distance-field render of a glyph record: the path flattened
// into line segments in image samples, the distance buffer with its far
// sentinels, the winding-number buffer that gives every sample its inside
// or outside, and the boundary cells that fill the band around the outline
// with distances (adfdensityimage maps them to pixels). Nothing is stored
// between renders. Called by ADFRenderGlyph; allocates through the renderer
// instance.
#ifndef ORVEX_INTERNAL_ADFIMPLICITFIXED_H
#define ORVEX_INTERNAL_ADFIMPLICITFIXED_H

#include "Orvex_internal/adfrender.h"

// rcpTable: entry 0 is 0, entry i floor(65536 / i): the step in t of a curve
// cut into i segments.
namespace adftables {
constexpr std::array<ADF_I1616, 512> makeRcp() {
  std::array<ADF_I1616, 512> t{};
  for (int i = 1; i < 512; i++) t[i] = 65536 / i;
  return t;
}
// Entry i is floor(sqrt(5) * (i / 32)^(1/4)) + 1, that is 1 + the largest k
// with 32 k^4 <= 25 i, worked in integers so that entry 800 (exactly 5 + 1)
// is not at the mercy of rounding.
constexpr std::array<ADF_I8, 1024> makeCurvesToLines() {
  std::array<ADF_I8, 1024> t{};
  for (int i = 0; i < 1024; i++) {
    int k = 0;
    while (32LL * (k + 1) * (k + 1) * (k + 1) * (k + 1) <= 25LL * i) k++;
    t[i] = (ADF_I8)(k + 1);
  }
  return t;
}
}  // namespace adftables
inline constexpr std::array<ADF_I1616, 512> rcpTable = adftables::makeRcp();
// Line segments for a curve whose control point lies sqrt(8 i / 256) samples
// off its chord's midpoint: squared distances in 24.8 below 8192, by >> 3.
inline constexpr std::array<ADF_I8, 1024> curvesToLinesTable =
    adftables::makeCurvesToLines();

// A pen command in image samples. After flattening only opCode 0 and 1
// occur and only x, y are read.
struct ADFPenCmdFx {
  ADF_U32 opCode;
  ADF_I1616 x, y;
  ADF_I1616 cx, cy;
  ADF_I1616 cx2, cy2;
  ADF_U32 HcollapsePriority, VcollapsePriority;
};

// The flattened path, in one block with its commands.
struct InternPath {
  ADF_U32 pathType;
  ADF_I1616 pathWidth;  // in image samples; 0 for a filled path
  ADF_U32 numPenCmds;
  ADFPenCmdFx* penCmds;
};

// One curve being flattened: segment count, start p, controls, end q.
struct CurveData {
  ADF_I32 nLineSegs;
  ADF_I1616 px, py;
  ADF_I1616 cx, cy;
  ADF_I1616 cx2, cy2;
  ADF_I1616 qx, qy;
};

// A signed distance a sample, row-major w by h, in one block with its
// header. Striped modes hold three samples a pixel along the stripes.
struct DistBuffer {
  ADF_U32 w, h;
  ADF_I1616 sampleSpacingX, sampleSpacingY;
  ADF_I1616 invSampleSpacingX, invSampleSpacingY;
  ADF_I1616* base;
};

// Far sentinels: no sample of the band is farther than these.
const ADF_I1616 ADF_DIST_FAR_INSIDE = 0x800000;             // +128.0
const ADF_I1616 ADF_DIST_FAR_OUTSIDE = (ADF_I1616)0xFF800000;  // -128.0

// The segment count for a curve whose control point lies lenSqr (24.8,
// squared samples) off its chord's midpoint: floor(sqrt(5 d)) + 1; a negative
// (overflowed) lenSqr gives 121, the count at the largest 24.8 can hold.
ADF_I32 CurveLineSegments(ADF_I2408 lenSqr);

// The glyph's commands moved into image samples by the render's xform and
// its curves cut into line segments, the last ending exactly at the curve's
// end. Null with error 201 when the heap is out.
InternPath* CreateInternPath(void* libInst, const ADFGlyph* adf,
                             const ADFRenderGlyphData* renderGlyphData);
void DestroyInternPath(void* libInst, InternPath* path);

// A distance buffer for `image` in `displayMode` (contents unset). A mode
// above 4 gives null with no error; an exhausted heap null with 201.
DistBuffer* CreateDistBuffer(void* libInst, const ADFImage* image,
                             ADF_U32 displayMode);
void DestroyDistBuffer(void* libInst, DistBuffer* distBuf);

// One zeroed ADF_I8 a sample of distBuf; null with 201 when the heap is out.
ADF_I8* CreateWindingNumberBuffer(void* libInst, const DistBuffer* distBuf);
void DestroyWindingNumberBuffer(void* libInst, ADF_I8* wnb);

// Counts per sample how often the outline winds around it (absolute value)
// and sets every distance sample to +128.0 inside, -128.0 outside. Sample
// (i, j) stands at (i, j) in samples; an edge counts on row j when it passes
// from at-or-below j to above it. A path whose first winding is negative is
// rewound so that interiors lie on one side. Returns 1 when any sample
// winds more than once (the outline overlaps itself), else 0.
ADF_I32 SetWindingNumberBuffer(InternPath* path, DistBuffer* distBuf,
                               ADF_I8* wnb);

// Reverses the points of every contour in place; each opCode stays where it
// is, so a contour's move takes its last point.
void rewindPath(InternPath* path);

// ---------------------------------------------------------------------------
// Boundary cells: each line segment of the path offers every sample within
// the filter radius of it (its cell) the signed distance to its line,
// positive inside; a sample keeps the distance of smallest magnitude that
// fits its winding value. filterRad is the larger magnitude of the two
// cut-offs; 0 leaves the sentinels.

// One segment: its end points (image units), its unit normal (right of the
// direction of travel, toward the interior once the path is rewound) and
// those of the segments before and after it.
struct CellData {
  ADF_I1616 x0, y0, x1, y1;
  ADF_I1616 nx, ny;
  ADF_I1616 pre_nx, pre_ny;
  ADF_I1616 next_nx, next_ny;
};

// One side of a cell, in samples: the line through (x, y) with dxy samples
// of x a row, bounding the cell from the left (side +1: samples at or right
// of it) or the right (side -1: samples strictly left of it). A line too
// flat for a slope bounds rows instead: side +2 keeps rows at or above y,
// -2 rows below it. Neighbouring cells built from the same line take
// complementary samples.
struct LineEdge {
  ADF_I1616 x, y;
  ADF_I1616 dxy;
  ADF_I32 side;
};

// Rectangle style: a rectangle of half-width filterRad along each segment,
// then a corner cell at each vertex with the Euclidean distance to it
// (squared off outside at right angles). Strokes (wnb null) take this style.
void ProcessBoundaryCells_rect(InternPath* path, ADFRenderGlyphData* renderGlyphData,
                               DistBuffer* distBuf, ADF_I8* wnb, ADF_I1616* bcell);
void ProcessLineCell_rect(CellData* cell, DistBuffer* distBuf, ADF_I1616 filterRad,
                          ADF_I8* wnb, ADF_I1616* bcell);
void ProcessVerticalLineCell_rect(CellData* cell, DistBuffer* distBuf, ADF_I1616 filterRad,
                                  ADF_I8* wnb, ADF_I1616* bcell);
void ProcessHorizontalLineCell_rect(CellData* cell, DistBuffer* distBuf, ADF_I1616 filterRad,
                                    ADF_I8* wnb, ADF_I1616* bcell);
// The corner at (x0, y0) of the cell: samples of the box +-filterRad take
// the distance to the corner where it is nearer; with squarecorner an
// outside sample takes minus the larger axis offset instead.
void ProcessCornerCell(CellData* cell, DistBuffer* distBuf, ADF_I1616 filterRad,
                       ADF_I8* wnb, ADF_I32 squarecorner);

// Trapezoid style: neighbouring cells meet on the bisector of their corner,
// tiling the band around a contour; sharp corners (cos below 4608) fall
// back to a rectangle and square corner cells. p_cos_pre and p_xyt carry
// the shared end of one cell to the next (cos, x[3], x[2], y[3], y[2], the
// bisector and its x over y).
void ProcessBoundaryCells_trap(InternPath* path, ADFRenderGlyphData* renderGlyphData,
                               DistBuffer* distBuf, ADF_I8* wnb, ADF_I1616* bcell);
void ProcessLineCell_trap(CellData* cell, DistBuffer* distBuf, ADF_I1616 filterRad,
                          ADF_I8* wnb, ADF_I1616* bcell, ADF_I32 start,
                          ADF_I1616* p_cos_pre, ADF_I1616* p_xyt);
// A horizontal segment's cell: the band's rows, cut left and right by the
// two bisectors (x over y in image units; 0 is perpendicular). The corners
// x and y are not needed: the bisectors through the ends bound the rows.
void ProcessHorizontalLineCell_trap(CellData* cell, DistBuffer* distBuf, ADF_I1616 filterRad,
                                    ADF_I8* wnb, ADF_I1616* bcell, ADF_I1616 bi_pre_txy,
                                    ADF_I1616 bi_next_txy, const ADF_I1616* x,
                                    const ADF_I1616* y);
// The sides of a sloping segment's trapezoid: the two band lines at
// +-filterRad and the two bisectors through its ends (directions in image
// units), each facing the segment; and the rows its polygon spans. Where the
// bisectors cross inside the band the polygon is a triangle on that side,
// its apex from intersect. Returns the number of sides (4).
ADF_I32 Set_Left_Right_Edges(const CellData* cell, const DistBuffer* distBuf,
                             ADF_I1616 filterRad, ADF_I1616 bi_pre_tx, ADF_I1616 bi_pre_ty,
                             ADF_I1616 bi_next_tx, ADF_I1616 bi_next_ty, const ADF_I1616* x,
                             const ADF_I1616* y, LineEdge* edges, ADF_I32* jMin,
                             ADF_I32* jMax);
// The crossing of the line through (xs, ys) along t0 with the line through
// (xe, ye) along t1. Nearly parallel lines (det within +-2287) give the
// midpoint of the two points and 1; otherwise 1 when a coordinate came out
// at +-0x7FFFFFFF, else 0.
ADF_I32 intersect(ADF_I1616 xs, ADF_I1616 ys, ADF_I1616 xe, ADF_I1616 ye, ADF_I1616 t0x,
                  ADF_I1616 t0y, ADF_I1616 t1x, ADF_I1616 t1y, ADF_I1616* x, ADF_I1616* y);

// The render: returns at once for an empty image; clears the image; returns
// for a null or foreign glyph or an unknown display mode; flattens the path,
// sets the sentinels and winding numbers (a stroke is all outside, its
// cut-offs lowered by its radius for the render), fills the band by cells
// (rectangles for strokes and for an inside cut-off above 1.0 or an outside
// one below -2.0, trapezoids else) and maps it into the image. An exhausted
// heap leaves error 201 and the image cleared.
void ADFRenderGlyphImplicit(void* libInst, const ADFGlyph* adf,
                            ADFRenderGlyphData* renderGlyphData,
                            ADFImage* image);

#endif
