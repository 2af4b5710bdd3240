// The feature vector: the per-font record of measurements, the frozen table
// that turns it into 58 values, the text form of the line, the error codes and
// the names of the image files the measurements read.
// Called by the front door and the render driver; calls the image
// measurements in image_operations/.
#ifndef FEATURE_VECTOR_CORE_H
#define FEATURE_VECTOR_CORE_H

#include "feature_vector_library.h"

// The fault codes of a measurement run (ERR_CASES) and the picture size
// FontSizePx come from the measurement layer.
#include "image_operations/image_access.h"

enum {
  GLYPH_IMAGE_COUNT = 52,
  TARGET_FILE_COUNT = 9,
  STRING_IMAGE_COUNT = 36,
  VALID_IMAGE_COUNT = 54
};

// Measurements of one glyph picture, indexed as GlyphImages. int_x and int_y
// are part of the record and are never written or read.
struct _METRICS {
  double AvgGreyVal, COGX, COGY, avgX, avgY, curviness, aspectRatio;
  double dir0, dir45, dir90, dir135;
  double WidthhistNumber, HeighthistNumber;
  double int_x, int_y;
};

// Intersection counts of one picture of TargetSpecificFiles.
struct _FEATMETRIC {
  double char_int_x, char_int_y;
};

// Everything measured of one font. Allocated zero-filled per run and freed
// before the vector is returned; `next` makes it a list node for
// freeFONTData, though only single nodes occur.
typedef struct _FONT_DATA {
  double str_width, sqrstr_width, corpusRatio, isSerifFont, isSymbolFont;
  double strokwidth, SymbolContrast, skew, isMonoSpaced, XHeight, CapHeight;
  double Contrast, AvgGreyString, isAllCaps, fillFactor, isStencilFont;
  double isNotBlackLetter, isDigitalFont, getAvggreyStdDev, isHollow;
  double isConnected, stressAngle, isTwostoryag, isFreeHand, isDarkPix;
  double edginess, SelCurviness, x2AscenderHeight, Cap2AscHeight;
  double counterOpenness, e_slantAngle, subSerifType, squareness_O;
  double advancedWidth, roundness_of_dots, WedgeSerifStdDevTop;
  double WedgeSerifStdDevBottom, WedgeSerifAngleTop, WedgeSerifAngleBottom;
  double AscenderStddevSerif, CloseCounter, SubSerifGreyNess, FlareStemNess;
  struct _METRICS metrics[GLYPH_IMAGE_COUNT];
  struct _FEATMETRIC featmatric[TARGET_FILE_COUNT];
  struct _FONT_DATA* next;
} FONT_DATA;

// Base names of the pictures: decimal character code, hyphen, the letter.
extern const char* const GlyphImages[GLYPH_IMAGE_COUNT];         // A-Z, a-z
extern const char* const TargetSpecificFiles[TARGET_FILE_COUNT];  // intersections
extern const char* const StringImages[STRING_IMAGE_COUNT];        // glyphs of font.png

// Names of the 58 values in the order of the vector text.
extern const char* const FeatureValueNames[FEATURE_VECTOR_LENGTH];

// Value `index` (0 to 57) of the vector: rows 0 to 14 are means over the
// glyph metrics formed at the call, the others read one field. A null record
// gives -1.0, an index out of range 0.0.
double GetFeatureValue(FONT_DATA* Font1, int index);

// Measures the image folder `fontFolder` and returns 58 heap doubles owned by
// the caller, with their mean in *checksumvalue. Null with *Error_code 1 for a
// null folder, 16 when the record cannot be allocated.
double* GetFontFeatureVector(const char* fontFolder, int* Error_code,
                             double* checksumvalue, double stdDevAdvWidth);

// Frees the record and every node after it.
void freeFONTData(FONT_DATA* FD);

// 0 if all 54 files the renderer must leave in `path` are readable PNGs with
// ink, else 1. Every file is checked.
int validateImages(const char* path);

// How much the glyphs of the sample line lose by touching: the ink of
// font.png over the summed ink of its 36 glyph pictures, capped at 1.0.
double isConnectedglyphs(const char* fontFolder);

// The arithmetic of the measurement steps that combine several results.

// Skew in whole degrees from the slants of nine stems: sorted (in place),
// lowest and highest dropped, the mean of the other seven rounded half away
// from zero.
double skewFromStems(double skews[9]);

// isSerifFont from the least serif value of L, T and I: below 0 gives 0,
// values above 2 are made coarse (2, 3 or 4), 0 to 2 stay as they are.
double serifClass(double MinSerif);

// isAllCaps: 1 distinct lower case (mean below 0.5), else 2, or 3 at a
// lower-to-capital height ratio strictly between 0.96 and 1.04, and 0 when
// the i still has its dot (smalliVal above 0).
double allCapsClass(double meanAllCaps, double corpusRatio, double smalliVal);

// isSymbolFont: 10 when every glyph has the same centre (isBoxesFont below
// 0.1) or look-alike letters are drawn alike (Diffpercent 0); otherwise the
// product of the signs, capped at 10.
double symbolFontValue(double isBoxesFont, double Diffpercent,
                       double intersection_Avg, double corpusRatio,
                       double t_avgX);

// The measured signs against blackletter, beside the record's fields.
struct BlackLetterSigns {
  double blackness, edginess, diagonalnessX;
  double skew;         // |skew|, at least 1
  double isConnected;  // the record's value, already to the fourth power
  double freeHand;     // isFreeHand, or 0.001 for 0
  double avggrey;      // mean grey of the 52 glyphs
};

// isNotBlackLetter once the T has passed its test: 1.0 if any sign against
// blackletter holds, otherwise the bowl's blackness.
double blackLetterValue(const FONT_DATA* FD, const BlackLetterSigns& signs);

// qsort comparator for doubles, ascending: the measurement layer's
// compareDoublesAscending under the sequence's name.
int sort(const void* x, const void* y);

#endif
