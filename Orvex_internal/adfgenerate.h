// The distance-field renderer's input and its glyph record: the pen-command
// path the glue builds from an outline, the normalising transform into the
// unit square, and the self-contained ADFGlyph block that set-up and render
// read. Also the renderer instance, through which every allocation of the
// renderer reaches the engine heap. Calls the fixed-point math and the heap.
#ifndef ORVEX_INTERNAL_ADFGENERATE_H
#define ORVEX_INTERNAL_ADFGENERATE_H

#include "Orvex_internal/adffixedmath.h"
#include "Orvex_internal/fs_state.h"

// ---------------------------------------------------------------------------
// The renderer instance: one word holding the owning client.

// Makes the instance of `appInst`; null with error 201 when the heap is out.
void* ADFInitSystem(FS_STATE* appInst);
// Frees it; a null instance is accepted.
void ADFTermSystem(void* libInst);
// The client the instance belongs to.
FS_STATE* ADFGetAppInst(void* libInst);

// Renderer allocation on the owner's heap: null with error 201 in the
// owner's `error` when the heap (or the 32-bit size) can't give n bytes.
// Sizes are counted in 64 bits so that no product wraps to a small block.
void* ADFAlloc(void* libInst, uint64_t n);
void* ADFCalloc(void* libInst, uint64_t n);
void ADFFree(void* libInst, void* p);

// ---------------------------------------------------------------------------
// The path.

enum { ADF_MOVETO = 0, ADF_LINETO = 1, ADF_CURVETO = 2, ADF_CUBICTO = 3 };
enum { ADF_PATH_FILLED = 0, ADF_PATH_STROKE = 1 };

// One pen command: the end point, the first control point (curves) and the
// second (cubics). An opCode above 3 is read modulo 4.
struct ADFPenCmd {
  ADF_U32 opCode;
  ADF_F32 x, y;
  ADF_F32 cx, cy;
  ADF_F32 cx2, cy2;
};

struct ADFPath {
  ADF_U32 pathType;   // ADF_PATH_FILLED or ADF_PATH_STROKE
  ADF_F32 pathWidth;  // stroke width in font units; 0 for a filled outline
  ADF_F32 glyphMinX, glyphMinY, glyphMaxX, glyphMaxY;  // pen points' extent
  ADF_F32 fontUnitsPerEM;
  ADF_U32 charCode;
  ADF_U32 numContours;
  ADF_U32 numPenCmds;
  ADFPenCmd* penCmds;
  void* appData;  // not read here
};

// ---------------------------------------------------------------------------
// The glyph record: a 60-byte header directly followed by numCells pen
// commands (28 bytes each), coordinates in ADF units, where the glyph with
// its margin fills the unit square.

const ADF_U32 ADF_GLYPH_VERSION = 0x494D5031;
const ADF_U32 ADF_GLYPH_HEADER_SIZE = 60;

struct ADFGlyph {
  ADF_U32 version;         // ADF_GLYPH_VERSION; renderers refuse others
  ADF_U32 totalSizeBytes;  // 60 + 28 * numCells
  ADF_U32 rootOffset;      // where the pen commands start: 60
  ADF_U32 numCells;        // pen commands (no cells are stored)
  ADF_U32 charCode;
  ADF_F32 FUToADFScale;
  ADF_F32 ADFUnitsPerEM;
  ADF_U32 pathType;
  ADF_F32 pathWidth;  // ADF units; 0 for a filled path
  ADF_F32 glyphOriginX, glyphOriginY;
  ADF_F32 glyphMinX, glyphMinY, glyphMaxX, glyphMaxY;  // stroke: grown by half
};                                                     // the width each side
static_assert(sizeof(ADFGlyph) == 60, "glyph header is 60 bytes");
static_assert(sizeof(ADFPenCmd) == 28, "pen command is 28 bytes");

// The glyph's pen commands.
inline ADFPenCmd* ADFGlyphPenCmds(const ADFGlyph* adf) {
  return (ADFPenCmd*)((char*)adf + adf->rootOffset);
}

// The transform that fits the path's extent (a stroke's grown by half its
// width), enlarged 1.4 times, centred into the unit square: ADF = font units
// * FUToADFScale + offset. A path with no extent counts as 1.0 wide.
void ADFSetGlyphScaleAndOffset(const ADFPath* path, ADF_F32* FUToADFScale,
                               ADF_F32* glyphOffsetX, ADF_F32* glyphOffsetY,
                               ADF_F32* ADFUnitsPerEM);

// The glyph record of a path; null for a null path, or with error 201 when
// the heap is out. Words of a pen command its opCode doesn't use are 0.
ADFGlyph* ADFGenerateADF(void* libInst, const ADFPath* path);
ADFGlyph* ADFGenerateADFImplicit(void* libInst, const ADFPath* path);
void ADFDestroyADF(void* libInst, ADFGlyph* adf);
// totalSizeBytes; 0 for null.
ADF_U32 ADFGetADFSize(const ADFGlyph* adf);

#endif
