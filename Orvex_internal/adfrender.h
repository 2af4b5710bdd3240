// Distance-field rendering of one glyph record: the caller's request, the
// set-up that turns it into a transform from ADF units to image samples,
// the image box and the clamped cut-offs. The density image rendered into
// is adfdensityimage's. The glue calls set-up, makes an image of the box
// and renders.
#ifndef ORVEX_INTERNAL_ADFRENDER_H
#define ORVEX_INTERNAL_ADFRENDER_H

#include "Orvex_internal/adfdensityimage.h"
#include "Orvex_internal/adfgenerate.h"

// displayMode: 0 grey; 1 and 2 horizontal stripes (LCD sub-pixels, three
// samples a pixel across), 3 and 4 vertical stripes.
enum {
  ADF_REND_MODE_GREY = 0,
  ADF_REND_MODE_HSTRIPES = 1,
  ADF_REND_MODE_HSTRIPES_NOREDUCE = 2,
  ADF_REND_MODE_VSTRIPES = 3,
  ADF_REND_MODE_VSTRIPES_NOREDUCE = 4
};
// gridFitType 3 snaps the pen to whole pixels.
const ADF_U32 ADF_GRID_FIT_PEN = 3;

// The caller's request, ADFRenderAttrs, lives with the font records
// (fs_state.h): each client font keeps one.

// What set-up hands to the render: xform maps ADF units to image samples
// (x' = xform[0][0] x + xform[0][1] y + xform[0][2], third row 0, 0, 1.0).
struct ADFRenderGlyphData {
  ADF_F32 xform[3][3];
  ADF_U32 displayMode;
  ADF_U32 gridFitType;
  ADF_F32 outsideCutoff, insideCutoff;  // clamped to [-20.0, 20.0], in order
  ADF_F32 gamma;
  ADF_F32 filterCutoffScale;  // always 1.0
  ADF_U32 useColorReduction;
  ADF_F32 colorReductionAmt;
  ADF_F32 ppem;
};

// The image box: image column i is pixel column imageOriginX + i, image row
// j the pixel row whose bottom edge is imageOriginY + 1 + j.
struct ADFRenderImageAttrs {
  ADF_I32 imageOriginX, imageOriginY;
  ADF_U16 imageW, imageH;
  ADF_U32 imageSubPixelType;  // the display mode the box was made for
  ADF_U32 displayMode;
};

// Font units to pixels, for the metrics.
struct ADFTypesetAttrs {
  ADF_F32 FUToPixelScaleX, FUToPixelScaleY;
  ADF_F32 adjFUToPixelScaleX, adjFUToPixelScaleY;
  ADF_F32 gridAlgnAdjX, gridAlgnAdjY;
};

// Set-up of one render, in the order the transform is built: ppem (with its
// kept 1/72 loss), scale, rotation, the pen at sample centres, the image box
// and its origin, pen snapping, the cut-offs swapped into order and clamped,
// the copied attributes and the font-unit scales. A null glyph only zeroes
// imageW and imageH.
void ADFRenderSetup(const ADFGlyph* adf, const ADFRenderAttrs* renderAttrs,
                    ADFRenderGlyphData* renderGlyphData,
                    ADFRenderImageAttrs* renderImageAttrs,
                    ADFTypesetAttrs* typesetAttrs);

// Renders the glyph into `image` (see ADFRenderGlyphImplicit).
void ADFRenderGlyph(void* libInst, const ADFGlyph* adf,
                    ADFRenderGlyphData* renderGlyphData, ADFImage* image);

#endif
