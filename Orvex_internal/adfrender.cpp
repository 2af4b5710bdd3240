// Set-up of a distance-field render: from the caller's request and the glyph
// record to the transform into image samples, the image box and the
// cut-offs. The render itself is in adfimplicitfixed.
#include "Orvex_internal/adfrender.h"

#include "Orvex_internal/adfimplicitfixed.h"

namespace {

const ADF_I1616 kMaxScale = 2048 << 16;
const ADF_I1616 kMaxCutoff = 20 << 16;
const ADF_I1616 kOneOver72 = 910;          // truncated: 12 pt is 11.9971 px
const ADF_I1616 kStripedExtra = 109226;    // 1 + 2/3: room for the filter
const ADF_I1616 kStripedRound = 10922;     // 1/6
const ADF_I1616 kHalf = 0x8000;

inline ADF_I1616 clampTo(ADF_I1616 v, ADF_I1616 lo, ADF_I1616 hi) {
  return v < lo ? lo : (v > hi ? hi : v);
}

// One axis of the image box: the unit square's corners on this axis are
// p1, p2, p1 + p2 and 0 (before the translation t). Gives the sample count
// and the whole-pixel origin, and makes t relative to that origin. Striped
// axes hold three samples a pixel and round to the sub-pixel.
void imageSpan(ADF_I1616 p1, ADF_I1616 p2, bool striped, ADF_I1616* t,
               ADF_I32* size, ADF_I1616* origin) {
  const ADF_I1616 p3 = I1616_ADD(p1, p2);
  ADF_I1616 lo = 0, hi = 0;
  for (ADF_I1616 p : {p1, p2, p3}) {
    if (p < lo) lo = p;
    if (p > hi) hi = p;
  }
  if (lo < hi)
    *size = I1616_TO_I32(
        I1616_ADD(I1616_SUB(hi, lo), striped ? kStripedExtra : I1616_CONST_ONE));
  else
    *size = 0;
  *origin = I1616_FLOOR(
      I1616_ADD(I1616_ADD(*t, lo), striped ? kStripedRound : kHalf));
  *t = I1616_SUB(*t, *origin);
}

}  // namespace

void ADFRenderSetup(const ADFGlyph* adf, const ADFRenderAttrs* renderAttrs,
                    ADFRenderGlyphData* renderGlyphData,
                    ADFRenderImageAttrs* renderImageAttrs,
                    ADFTypesetAttrs* typesetAttrs) {
  if (adf == nullptr) {
    renderImageAttrs->imageW = 0;
    renderImageAttrs->imageH = 0;
    return;
  }
  const ADFRenderAttrs& ra = *renderAttrs;
  const ADF_U32 mode = ra.displayMode;
  const bool hStripes = mode == ADF_REND_MODE_HSTRIPES ||
                        mode == ADF_REND_MODE_HSTRIPES_NOREDUCE;
  const bool vStripes = mode == ADF_REND_MODE_VSTRIPES ||
                        mode == ADF_REND_MODE_VSTRIPES_NOREDUCE;

  // Pixels per em; the truncated 1/72 loses a little and the box keeps it.
  const ADF_I1616 ppem =
      I1616_MUL(I1616_MUL(ra.pointSize, kOneOver72), U32_TO_I1616(ra.dpi));
  const ADF_I1616 sx = clampTo(I1616_MUL(ppem, ra.scaleX), 0, kMaxScale);
  const ADF_I1616 sy = clampTo(I1616_MUL(ppem, ra.scaleY), 0, kMaxScale);
  ADF_I32 status;  // a zero em gives a zero scale
  const ADF_I1616 invEm = I1616_DIV(I1616_CONST_ONE, adf->ADFUnitsPerEM, &status);
  const ADF_I1616 sxImg = I1616_MUL(sx, invEm), syImg = I1616_MUL(sy, invEm);

  // ADF units to image samples.
  const bool rotate = ra.rotationAngle != 0;
  ADF_I1616 a00, a01, a10, a11, tx, ty;
  if (!rotate) {
    a00 = sxImg;
    a01 = a10 = 0;
    a11 = syImg;
    tx = I1616_MUL(I1616_NEGATE(sxImg), adf->glyphOriginX);
    ty = I1616_MUL(I1616_NEGATE(syImg), adf->glyphOriginY);
  } else if (sxImg == 0 || syImg == 0) {
    a00 = a01 = a10 = a11 = tx = ty = 0;
  } else {
    const ADF_I1616 sinT = I1616_SIN(ra.rotationAngle);
    const ADF_I1616 cosT = I1616_COS(ra.rotationAngle);
    a00 = I1616_MUL(cosT, sxImg);
    a01 = I1616_NEGATE(I1616_MUL(sinT, syImg));
    a10 = I1616_MUL(sinT, sxImg);
    a11 = I1616_MUL(cosT, syImg);
    const ADF_I1616 rx = I1616_SUB(ra.rotationPtX, ra.penX);
    const ADF_I1616 ry = I1616_SUB(ra.rotationPtY, ra.penY);
    const ADF_I1616 ox = I1616_MUL(I1616_NEGATE(sxImg), adf->glyphOriginX);
    const ADF_I1616 oy = I1616_MUL(I1616_NEGATE(syImg), adf->glyphOriginY);
    const ADF_I1616 dox = I1616_SUB(ox, rx), doy = I1616_SUB(oy, ry);
    tx = I1616_SUB(I1616_ADD(rx, I1616_MUL(dox, cosT)), I1616_MUL(doy, sinT));
    ty = I1616_ADD(I1616_ADD(ry, I1616_MUL(doy, cosT)), I1616_MUL(dox, sinT));
  }
  // Samples stand at pixel centres.
  tx = I1616_ADD(tx, I1616_SUB(ra.penX, kHalf));
  ty = I1616_ADD(ty, I1616_SUB(ra.penY, kHalf));
  typesetAttrs->gridAlgnAdjX = 0;
  typesetAttrs->gridAlgnAdjY = 0;

  ADF_I32 w, h;
  ADF_I1616 ox, oy;
  imageSpan(a00, a01, hStripes, &tx, &w, &ox);
  imageSpan(a10, a11, vStripes, &ty, &h, &oy);
  renderImageAttrs->imageW = (ADF_U16)w;
  renderImageAttrs->imageH = (ADF_U16)h;
  renderImageAttrs->imageOriginX = ox >> 16;
  renderImageAttrs->imageOriginY = (oy >> 16) - 1;
  renderImageAttrs->imageSubPixelType = mode;
  renderImageAttrs->displayMode = mode;

  if (ra.gridFitType == ADF_GRID_FIT_PEN && !rotate) {
    tx = I1616_ADD(tx, I1616_SUB(I1616_FLOOR(I1616_ADD(ra.penX, kHalf)), ra.penX));
    ty = I1616_ADD(ty, I1616_SUB(I1616_FLOOR(I1616_ADD(ra.penY, kHalf)), ra.penY));
  }

  ADFRenderGlyphData& rgd = *renderGlyphData;
  rgd.xform[0][0] = a00;
  rgd.xform[0][1] = a01;
  rgd.xform[0][2] = tx;
  rgd.xform[1][0] = a10;
  rgd.xform[1][1] = a11;
  rgd.xform[1][2] = ty;
  rgd.xform[2][0] = 0;
  rgd.xform[2][1] = 0;
  rgd.xform[2][2] = I1616_CONST_ONE;

  ADF_I1616 inside = ra.insideCutoff, outside = ra.outsideCutoff;
  if (inside < outside) {
    const ADF_I1616 t = inside;
    inside = outside;
    outside = t;
  }
  rgd.outsideCutoff = clampTo(outside, -kMaxCutoff, kMaxCutoff);
  rgd.insideCutoff = clampTo(inside, -kMaxCutoff, kMaxCutoff);
  rgd.filterCutoffScale = I1616_CONST_ONE;
  rgd.gamma = ra.gamma;
  rgd.displayMode = mode;
  rgd.useColorReduction = ra.useColorReduction;
  rgd.colorReductionAmt = ra.colorReductionAmt;
  rgd.gridFitType = rotate ? 0 : ra.gridFitType;
  rgd.ppem = ppem;

  // Nothing in this system adjusts the scale between, so the adjusted
  // scales equal the plain ones.
  typesetAttrs->FUToPixelScaleX = I1616_MUL(adf->FUToADFScale, sxImg);
  typesetAttrs->FUToPixelScaleY = I1616_MUL(adf->FUToADFScale, syImg);
  typesetAttrs->adjFUToPixelScaleX = typesetAttrs->FUToPixelScaleX;
  typesetAttrs->adjFUToPixelScaleY = typesetAttrs->FUToPixelScaleY;
}

void ADFRenderGlyph(void* libInst, const ADFGlyph* adf,
                    ADFRenderGlyphData* renderGlyphData, ADFImage* image) {
  ADFRenderGlyphImplicit(libInst, adf, renderGlyphData, image);
}
