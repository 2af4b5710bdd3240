// Density images and the mapping of a finished distance buffer into one:
// the contrast ramp, grey and the two striped LCD layouts, and the reduction
// of colour fringes toward luminance.
#include "Orvex_internal/adfdensityimage.h"

#include <string.h>

#include "Orvex_internal/adfimplicitfixed.h"

ADFImage* ADFCreateImage(void* libInst, ADF_U16 type, ADF_U16 w, ADF_U16 h,
                         ADF_U16 appDataLen) {
  const uint64_t pixelBytes = (uint64_t)w * h * (type == ADF_IMAGE_TYPE_RGBA ? 4 : 1);
  ADFImage* image = (ADFImage*)ADFAlloc(
      libInst, sizeof(ADFImage) + (uint64_t)appDataLen * sizeof(ADF_U32) + pixelBytes);
  if (image == nullptr) return nullptr;
  image->type = type;
  image->w = w;
  image->h = h;
  image->appDataLen = appDataLen;
  ADF_U32* words = (ADF_U32*)(image + 1);
  image->appData = appDataLen != 0 ? words : nullptr;
  image->base = (ADF_U8*)(words + appDataLen);
  return image;
}

void ADFDestroyImage(void* libInst, ADFImage* image) { ADFFree(libInst, image); }

void ClearADFImage(ADFImage* image) {
  const size_t bytes = image->type == ADF_IMAGE_TYPE_RGBA ? 4 : 1;
  memset(image->base, 0, (size_t)image->w * image->h * bytes);
}

// ---------------------------------------------------------------------------
// The ramp.

void ADFSetDensityRamp(ADFDensityRamp* ramp, ADF_I1616 outsideCutoff,
                       ADF_I1616 insideCutoff, ADF_I1616 gamma) {
  ramp->gamma = gamma;
  const int64_t span = (int64_t)insideCutoff - outsideCutoff;
  if (span > 2) {
    ADF_I32 status;  // a span past 16.16 gives a zero scale
    const ADF_I1616 scale = I1616_DIV(I1616_CONST_ONE, I1616_SUB(insideCutoff, outsideCutoff), &status);
    ramp->minDist = outsideCutoff;
    ramp->maxDist = insideCutoff;
    ramp->fScale = (ADF_U32)scale;
    ramp->fOffset = 0u - (ADF_U32)outsideCutoff * (ADF_U32)scale;
  } else {
    const ADF_I1616 avg = (ADF_I1616)(((int64_t)insideCutoff + outsideCutoff) >> 1);
    ramp->minDist = ramp->maxDist = avg;
    ramp->fScale = ramp->fOffset = 0;
  }
}

ADF_U8 ADFDensity(const ADFDensityRamp* ramp, ADF_I1616 dist) {
  if (dist <= ramp->minDist) return 0;
  if (dist >= ramp->maxDist) return 255;
  // A 16.16 distance times a 16.16 scale keeps its fraction in the low 32
  // bits: f is the position between the cut-offs as a 32-bit fraction.
  const ADF_U32 f = ramp->fOffset + (ADF_U32)dist * ramp->fScale;
  if (ramp->gamma == I1616_CONST_ONE) return (ADF_U8)((f - (f >> 8)) >> 24);
  const ADF_I1616 d = I1616_POW01((ADF_I1616)(f >> 16), ramp->gamma);
  // The low byte is kept: the gamma curve's modulo shift can exceed 1.0.
  return (ADF_U8)(((ADF_U32)d * 255u) >> 16);
}

// ---------------------------------------------------------------------------
// The layouts.

namespace {

inline ADF_U8 max3(ADF_I32 r, ADF_I32 g, ADF_I32 b) {
  ADF_I32 m = r > g ? r : g;
  return (ADF_U8)(m > b ? m : b);
}

inline void putPixel(ADF_U8* p, ADF_I32 r, ADF_I32 g, ADF_I32 b, ADF_U8 maxDensity) {
  p[0] = (ADF_U8)r;
  p[1] = (ADF_U8)g;
  p[2] = (ADF_U8)b;
  p[3] = maxDensity;
}

// Scales the colour difference from luminance Y down to the threshold when
// it exceeds it.
void reduceColour(ADF_I32* r, ADF_I32* g, ADF_I32* b, ADF_I32 threshold) {
  const ADF_I32 y = yuvRedTable[*r & 255] + yuvGreenTable[*g & 255] + yuvBlueTable[*b & 255];
  const ADF_I32 dr = *r - y, dg = *g - y, db = *b - y;
  const ADF_I32 difference = (dr < 0 ? -dr : dr) + (dg < 0 ? -dg : dg) + (db < 0 ? -db : db);
  if (difference <= threshold) return;
  const int64_t k = (int64_t)threshold * rcpTable[difference & 511];  // below 405
  *r = y + (ADF_I32)((dr * k) >> 16);
  *g = y + (ADF_I32)((dg * k) >> 16);
  *b = y + (ADF_I32)((db * k) >> 16);
}

void mapHorizontalStripes(const DistBuffer* dist, const ADFDensityRamp* ramp,
                          bool reduce, ADF_I32 threshold, ADFImage* image) {
  for (ADF_U32 j = 0; j < image->h; j++) {
    const ADF_I1616* row = dist->base + (size_t)j * dist->w;
    ADF_U8* out = image->base + (size_t)j * image->w * 4;
    ADF_I32 r = 0;  // the first pixel's red has no sample: the stripes are
                    // one sample to the right
    for (ADF_U32 x = 0; x < image->w; x++, out += 4) {
      const ADF_I1616 distG = row[3 * x], distB = row[3 * x + 1], distR = row[3 * x + 2];
      if (r == 0 && distG <= ramp->minDist && distB <= ramp->minDist) {
        // left as cleared
      } else if (r == 255 && distG >= ramp->maxDist && distB >= ramp->maxDist) {
        putPixel(out, 255, 255, 255, 255);
      } else {
        ADF_I32 g = ADFDensity(ramp, distG), b = ADFDensity(ramp, distB);
        if (r == g && g == b) {
          putPixel(out, r, g, b, (ADF_U8)r);
        } else {
          if (reduce) reduceColour(&r, &g, &b, threshold);
          putPixel(out, r, g, b, max3(r, g, b));
        }
      }
      r = ADFDensity(ramp, distR);
    }
  }
}

void mapVerticalStripes(const DistBuffer* dist, const ADFDensityRamp* ramp,
                        ADFImage* image) {
  for (ADF_U32 j = 0; j < image->h; j++) {
    const ADF_I1616* green = dist->base + (size_t)3 * j * dist->w;
    const ADF_I1616* red = green + dist->w;
    const ADF_I1616* blue = j > 0 ? green - dist->w : nullptr;
    ADF_U8* out = image->base + (size_t)j * image->w * 4;
    for (ADF_U32 x = 0; x < image->w; x++, out += 4) {
      const ADF_I1616 dG = green[x], dR = red[x], dB = blue ? blue[x] : ramp->minDist;
      if (dR <= ramp->minDist && dG <= ramp->minDist && dB <= ramp->minDist) continue;
      if (dR >= ramp->maxDist && dG >= ramp->maxDist && dB >= ramp->maxDist) {
        putPixel(out, 255, 255, 255, 255);
        continue;
      }
      const ADF_I32 r = ADFDensity(ramp, dR), g = ADFDensity(ramp, dG), b = ADFDensity(ramp, dB);
      putPixel(out, r, g, b, max3(r, g, b));
    }
  }
}

}  // namespace

void MapDistBufferToImage(const DistBuffer* dist, const ADFRenderGlyphData* rgd,
                          ADF_U32 displayMode, ADFImage* image) {
  ADFDensityRamp ramp;
  ADFSetDensityRamp(&ramp, rgd->outsideCutoff, rgd->insideCutoff, rgd->gamma);
  if (displayMode == ADF_REND_MODE_GREY) {
    const uint64_t n = (uint64_t)dist->w * dist->h;
    for (uint64_t s = 0; s < n; s++) image->base[s] = ADFDensity(&ramp, dist->base[s]);
    return;
  }
  if (displayMode > ADF_REND_MODE_VSTRIPES_NOREDUCE || image->type != ADF_IMAGE_TYPE_RGBA) return;
  if (displayMode <= ADF_REND_MODE_HSTRIPES_NOREDUCE) {
    const bool reduce = displayMode == ADF_REND_MODE_HSTRIPES && rgd->useColorReduction != 0;
    // 0 to 64 for amounts from 1.0 to 0.
    const ADF_I32 threshold = I1616_SUB(I1616_CONST_ONE, rgd->colorReductionAmt) >> 10;
    mapHorizontalStripes(dist, &ramp, reduce, threshold, image);
  } else {
    mapVerticalStripes(dist, &ramp, image);
  }
}
