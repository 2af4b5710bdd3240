// The density image of a distance-field render and the mapping that fills
// it: each distance of the finished band becomes a byte through the contrast
// ramp between the outside and inside cut-offs (with optional gamma); in the
// LCD modes three distances give one pixel's red, green and blue, with
// optional reduction of colour fringes. Called by the render of
// adfimplicitfixed; allocates through the renderer instance.
#ifndef ORVEX_INTERNAL_ADFDENSITYIMAGE_H
#define ORVEX_INTERNAL_ADFDENSITYIMAGE_H

#include "Orvex_internal/adfgenerate.h"

// A density image: type 0 one byte a pixel, 1 four bytes (red, green, blue,
// then maxDensity, the largest of the three); rows from the lowest up.
enum { ADF_IMAGE_TYPE_GREY = 0, ADF_IMAGE_TYPE_RGBA = 1 };
struct ADFImage {
  ADF_U16 type;
  ADF_U16 w, h;
  ADF_U16 appDataLen;
  ADF_U32* appData;  // null when appDataLen is 0
  ADF_U8* base;
};

// One block: the header, appDataLen application words, then the pixels.
// Null with error 201 when the heap is out.
ADFImage* ADFCreateImage(void* libInst, ADF_U16 type, ADF_U16 w, ADF_U16 h,
                         ADF_U16 appDataLen);
// Frees the block; null is accepted.
void ADFDestroyImage(void* libInst, ADFImage* image);
// Zeroes every pixel.
void ClearADFImage(ADFImage* image);

// Luminance weights of ITU-R BT.601: entry i is floor(i * 0.299),
// floor(i * 0.587), floor(i * 0.114), worked in integers.
namespace adftables {
constexpr std::array<ADF_I32, 256> makeLuma(int perThousand) {
  std::array<ADF_I32, 256> t{};
  for (int i = 0; i < 256; i++) t[i] = i * perThousand / 1000;
  return t;
}
}  // namespace adftables
inline constexpr std::array<ADF_I32, 256> yuvRedTable = adftables::makeLuma(299);
inline constexpr std::array<ADF_I32, 256> yuvGreenTable = adftables::makeLuma(587);
inline constexpr std::array<ADF_I32, 256> yuvBlueTable = adftables::makeLuma(114);

// The contrast ramp from outside cut-off minDist to inside cut-off maxDist:
// at or below minDist 0, at or above maxDist 255, between them the fraction
// (Dist - minDist) / (maxDist - minDist) as a 32-bit fraction, taken through
// gamma unless it is exactly 1.0. Cut-offs within 2 raw units of each other
// meet at their mean: a hard threshold.
struct ADFDensityRamp {
  ADF_I1616 minDist, maxDist;
  ADF_U32 fScale, fOffset;  // modulo 2^32
  ADF_I1616 gamma;
};
void ADFSetDensityRamp(ADFDensityRamp* ramp, ADF_I1616 outsideCutoff,
                       ADF_I1616 insideCutoff, ADF_I1616 gamma);
ADF_U8 ADFDensity(const ADFDensityRamp* ramp, ADF_I1616 dist);

struct DistBuffer;
struct ADFRenderGlyphData;

// Maps the distance buffer into `image` by displayMode: 0 grey, a byte a
// sample; 1 and 2 horizontal stripes, three samples a pixel read as green,
// blue and the next pixel's red (the first red of a row is 0); 1 reduces
// colour fringes when the render asks, 2 never; 3 and 4 vertical stripes,
// green, red and blue from sample rows 3j, 3j + 1 and 3j - 1 (the first
// row's blue is at minDist), never reduced. An unknown mode, or a striped
// mode on a one-byte image, maps nothing.
void MapDistBufferToImage(const DistBuffer* dist,
                          const ADFRenderGlyphData* renderGlyphData,
                          ADF_U32 displayMode, ADFImage* image);

#endif
