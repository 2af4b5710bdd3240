// The distance-field renderer's glyph record: the renderer instance and its
// allocation on the engine heap, the normalising transform, and the making
// of the ADFGlyph block from a path.
#include "Orvex_internal/adfgenerate.h"

#include <string.h>

#include "Orvex_internal/fs_err.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {
struct ADFLibInst {
  FS_STATE* appInst;
};
}  // namespace

void* ADFInitSystem(FS_STATE* appInst) {
  ADFLibInst* inst = (ADFLibInst*)FSS_malloc(appInst, sizeof(ADFLibInst));
  if (inst == nullptr) {
    appInst->error = ERR_MALLOC_FAIL;
    return nullptr;
  }
  inst->appInst = appInst;
  return inst;
}

void ADFTermSystem(void* libInst) {
  if (libInst == nullptr) return;
  FSS_free(ADFGetAppInst(libInst), libInst);
}

FS_STATE* ADFGetAppInst(void* libInst) {
  return ((ADFLibInst*)libInst)->appInst;
}

void* ADFAlloc(void* libInst, uint64_t n) {
  FS_STATE* state = ADFGetAppInst(libInst);
  if (n == 0) n = 1;
  void* p = n > 0xFFFFFFFFull ? nullptr : FSS_malloc(state, (FS_ULONG)n);
  if (p == nullptr) state->error = ERR_MALLOC_FAIL;
  return p;
}

void* ADFCalloc(void* libInst, uint64_t n) {
  void* p = ADFAlloc(libInst, n);
  if (p != nullptr) memset(p, 0, (size_t)(n == 0 ? 1 : n));
  return p;
}

void ADFFree(void* libInst, void* p) {
  if (p != nullptr) FSS_free(ADFGetAppInst(libInst), p);
}

// The path's extent, a stroke's grown by half its width on every side.
static void pathExtent(const ADFPath* path, ADF_F32* minX, ADF_F32* minY,
                       ADF_F32* maxX, ADF_F32* maxY) {
  ADF_F32 grow = path->pathType == ADF_PATH_STROKE ? path->pathWidth >> 1 : 0;
  *minX = I1616_SUB(path->glyphMinX, grow);
  *minY = I1616_SUB(path->glyphMinY, grow);
  *maxX = I1616_ADD(path->glyphMaxX, grow);
  *maxY = I1616_ADD(path->glyphMaxY, grow);
}

void ADFSetGlyphScaleAndOffset(const ADFPath* path, ADF_F32* FUToADFScale,
                               ADF_F32* glyphOffsetX, ADF_F32* glyphOffsetY,
                               ADF_F32* ADFUnitsPerEM) {
  ADF_F32 minX, minY, maxX, maxY;
  pathExtent(path, &minX, &minY, &maxX, &maxY);
  const ADF_I1616 width = I1616_SUB(maxX, minX), height = I1616_SUB(maxY, minY);
  ADF_I1616 maxExtent = width > height ? width : height;
  if (maxExtent == 0) maxExtent = I1616_CONST_ONE;
  maxExtent = I1616_MUL(maxExtent, 91750);  // the 1.4 shrink: the band's margin
  const ADF_I1616 xOffset = I1616_SUB(I1616_SUB(maxExtent, width) >> 1, minX);
  const ADF_I1616 yOffset = I1616_SUB(I1616_SUB(maxExtent, height) >> 1, minY);
  ADF_I32 status;
  const ADF_I1616 scale = I1616_DIV(I1616_CONST_ONE, maxExtent, &status);
  *FUToADFScale = scale;
  *glyphOffsetX = I1616_MUL(xOffset, scale);
  *glyphOffsetY = I1616_MUL(yOffset, scale);
  *ADFUnitsPerEM = I1616_MUL(path->fontUnitsPerEM, scale);
}

ADFGlyph* ADFGenerateADF(void* libInst, const ADFPath* path) {
  if (path == nullptr) return nullptr;
  return ADFGenerateADFImplicit(libInst, path);
}

ADFGlyph* ADFGenerateADFImplicit(void* libInst, const ADFPath* path) {
  ADF_F32 scale, originX, originY, unitsPerEM;
  ADFSetGlyphScaleAndOffset(path, &scale, &originX, &originY, &unitsPerEM);
  const uint64_t size =
      ADF_GLYPH_HEADER_SIZE + (uint64_t)sizeof(ADFPenCmd) * path->numPenCmds;
  ADFGlyph* adf = (ADFGlyph*)ADFAlloc(libInst, size);
  if (adf == nullptr) return nullptr;
  auto toADF = [&](ADF_F32 v, ADF_F32 origin) {
    return I1616_ADD(I1616_MUL(v, scale), origin);
  };
  adf->version = ADF_GLYPH_VERSION;
  adf->totalSizeBytes = (ADF_U32)size;
  adf->rootOffset = ADF_GLYPH_HEADER_SIZE;
  adf->numCells = path->numPenCmds;
  adf->charCode = path->charCode;
  adf->FUToADFScale = scale;
  adf->ADFUnitsPerEM = unitsPerEM;
  adf->pathType = path->pathType;
  adf->glyphOriginX = originX;
  adf->glyphOriginY = originY;
  const bool stroke = path->pathType == ADF_PATH_STROKE;
  adf->pathWidth = stroke ? I1616_MUL(path->pathWidth, scale) : 0;
  const ADF_F32 grow = adf->pathWidth >> 1;
  adf->glyphMinX = I1616_SUB(toADF(path->glyphMinX, originX), grow);
  adf->glyphMinY = I1616_SUB(toADF(path->glyphMinY, originY), grow);
  adf->glyphMaxX = I1616_ADD(toADF(path->glyphMaxX, originX), grow);
  adf->glyphMaxY = I1616_ADD(toADF(path->glyphMaxY, originY), grow);

  ADFPenCmd* out = ADFGlyphPenCmds(adf);
  for (ADF_U32 k = 0; k < path->numPenCmds; k++) {
    const ADFPenCmd& in = path->penCmds[k];
    ADFPenCmd c = {};
    c.opCode = in.opCode & 3;
    if (c.opCode >= ADF_CURVETO) {
      c.cx = toADF(in.cx, originX);
      c.cy = toADF(in.cy, originY);
    }
    if (c.opCode == ADF_CUBICTO) {
      c.cx2 = toADF(in.cx2, originX);
      c.cy2 = toADF(in.cy2, originY);
    }
    c.x = toADF(in.x, originX);
    c.y = toADF(in.y, originY);
    out[k] = c;
  }
  return adf;
}

void ADFDestroyADF(void* libInst, ADFGlyph* adf) { ADFFree(libInst, adf); }

ADF_U32 ADFGetADFSize(const ADFGlyph* adf) {
  return adf == nullptr ? 0 : adf->totalSizeBytes;
}
