// The implicit distance-field render of a glyph record, up to the band: the
// path flattened into line segments in image samples, the distance buffer
// with its far sentinels, and the winding-number buffer that gives every
// sample its inside or outside. Nothing is stored between renders. Called
// by ADFRenderGlyph; allocates through the renderer instance.
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

// Which boundary cells fill the band: rectangles with round corners for
// large filters and strokes, trapezoids meeting on corner bisectors else.
enum ADFCellStyle { ADF_CELLS_RECT = 0, ADF_CELLS_TRAP = 1 };

// The seam where the band is filled with distances by cells of `style` and
// the distance buffer is mapped into `image`. wnb and bcell are null for a
// stroke; bcell is present only for an overlapping outline. Until the cells
// and the mapping exist the image stays as cleared.
void ADFFillBandAndMap(ADFCellStyle style, InternPath* path,
                       ADFRenderGlyphData* renderGlyphData,
                       DistBuffer* distBuf, ADF_I8* wnb, ADF_I1616* bcell,
                       ADFImage* image);

// The render: returns at once for an empty image; clears the image; returns
// for a null or foreign glyph or an unknown display mode; flattens the path,
// sets the sentinels and winding numbers (a stroke is all outside, its
// cut-offs lowered by its radius for the render) and hands over to the band
// at the seam. An exhausted heap leaves error 201 and the image cleared.
void ADFRenderGlyphImplicit(void* libInst, const ADFGlyph* adf,
                            ADFRenderGlyphData* renderGlyphData,
                            ADFImage* image);

#endif
