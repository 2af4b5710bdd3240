// The feature vector's record, table and text, and the frame of the
// measurement run. getFeatureVector is exported; the rest serves the front
// door and the render driver.
#include "feature_vector_core.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <iostream>

#include "image_operations/image_access.h"
#include "image_operations/curviness_direction.h"
#include "image_operations/letterform.h"
#include "image_operations/serifs.h"
#include "image_operations/size_metrics.h"
#include "image_operations/slant_stroke.h"
#include "image_operations/style_classes.h"


const char* const GlyphImages[GLYPH_IMAGE_COUNT] = {
    "65-A",  "66-B",  "67-C",  "68-D",  "69-E",  "70-F",  "71-G",  "72-H",
    "73-I",  "74-J",  "75-K",  "76-L",  "77-M",  "78-N",  "79-O",  "80-P",
    "81-Q",  "82-R",  "83-S",  "84-T",  "85-U",  "86-V",  "87-W",  "88-X",
    "89-Y",  "90-Z",  "97-a",  "98-b",  "99-c",  "100-d", "101-e", "102-f",
    "103-g", "104-h", "105-i", "106-j", "107-k", "108-l", "109-m", "110-n",
    "111-o", "112-p", "113-q", "114-r", "115-s", "116-t", "117-u", "118-v",
    "119-w", "120-x", "121-y", "122-z"};

const char* const TargetSpecificFiles[TARGET_FILE_COUNT] = {
    "111-o", "101-e", "84-T", "97-a", "82-R", "87-W", "103-g", "104-h", "72-H"};

const char* const StringImages[STRING_IMAGE_COUNT] = {
    "84-T",  "97-a",  "98-b",  "99-c",  "100-d", "101-e", "101-e", "101-e",
    "102-f", "103-g", "104-h", "104-h", "105-i", "106-j", "107-k", "108-l",
    "109-m", "110-n", "111-o", "111-o", "111-o", "111-o", "112-p", "113-q",
    "114-r", "114-r", "115-s", "116-t", "117-u", "117-u", "118-v", "119-w",
    "120-x", "121-y", "122-z", "46-."};

// The pictures the renderer must leave for a run to count as good: the 52
// letters and the two large ones.
static const char* const isValidImages[VALID_IMAGE_COUNT] = {
    "65-A",  "66-B",  "67-C",  "68-D",  "69-E",  "70-F",  "71-G",
    "72-H",  "73-I",  "74-J",  "75-K",  "76-L",  "77-M",  "78-N",
    "79-O",  "80-P",  "81-Q",  "82-R",  "83-S",  "84-T",  "85-U",
    "86-V",  "87-W",  "88-X",  "89-Y",  "90-Z",  "97-a",  "98-b",
    "99-c",  "100-d", "101-e", "102-f", "103-g", "104-h", "105-i",
    "106-j", "107-k", "108-l", "109-m", "110-n", "111-o", "112-p",
    "113-q", "114-r", "115-s", "116-t", "117-u", "118-v", "119-w",
    "120-x", "121-y", "122-z", "104-hlar", "111-olar"};

const char* const FeatureValueNames[FEATURE_VECTOR_LENGTH] = {
    "AvgGreyVal",          "COGX",
    "COGY",                "aspectRatio",
    "avgX",                "avgY",
    "curviness",           "dir0",
    "dir45",               "dir90",
    "dir135",              "char_int_x",
    "char_int_y",          "HeighthistNumber",
    "WidthhistNumber",     "str_width",
    "sqrstr_width",        "isSerifFont",
    "CapHeight",           "corpusRatio",
    "isSymbolFont",        "isMonoSpaced",
    "skew",                "isStencilFont",
    "XHeight",             "strokwidth",
    "SymbolContrast",      "AvgGreyString",
    "Contrast",            "getAvggreyStdDev",
    "isAllCaps",           "fillFactor",
    "isNotBlackLetter",    "isDigitalFont",
    "isHollow",            "isConnected",
    "stressAngle",         "isTwostoryag",
    "x2AscenderHeight",    "isDarkPix",
    "isFreeHand",          "edginess",
    "SelCurviness",        "counterOpenness",
    "e_slantAngle",        "squareness_O",
    "roundness_of_dots",   "advancedWidth",
    "CloseCounter",        "subSerifType",
    "SubSerifGreyNess",    "WedgeSerifAngleTop",
    "WedgeSerifStdDevTop", "WedgeSerifStdDevBottom",
    "WedgeSerifAngleBottom", "Cap2AscHeight",
    "AscenderStddevSerif", "FlareStemNess"};

int sort(const void* x, const void* y) {
  return compareDoublesAscending(x, y);
}

// Mean of one field over the 52 glyph records, summed in glyph order.
static double meanOverGlyphs(const FONT_DATA* font,
                             double _METRICS::*field) {
  double sum = 0.0;
  for (int i = 0; i < GLYPH_IMAGE_COUNT; i++) sum += font->metrics[i].*field;
  return sum / 52.0;
}

// Mean of one field over the 9 intersection records.
static double meanOverTargets(const FONT_DATA* font,
                              double _FEATMETRIC::*field) {
  double sum = 0.0;
  for (int i = 0; i < TARGET_FILE_COUNT; i++)
    sum += font->featmatric[i].*field;
  return sum / 9.0;
}

// The order of this switch is the order of the vector text, which its readers
// depend on; it does not follow the order of the record's fields.
double GetFeatureValue(FONT_DATA* Font1, int index) {
  if (Font1 == NULL) return -1.0;
  switch (index) {
    case 0: return meanOverGlyphs(Font1, &_METRICS::AvgGreyVal);
    case 1: return meanOverGlyphs(Font1, &_METRICS::COGX);
    case 2: return meanOverGlyphs(Font1, &_METRICS::COGY);
    case 3: return meanOverGlyphs(Font1, &_METRICS::aspectRatio);
    case 4: return meanOverGlyphs(Font1, &_METRICS::avgX);
    case 5: return meanOverGlyphs(Font1, &_METRICS::avgY);
    case 6: return meanOverGlyphs(Font1, &_METRICS::curviness);
    case 7: return meanOverGlyphs(Font1, &_METRICS::dir0);
    case 8: return meanOverGlyphs(Font1, &_METRICS::dir45);
    case 9: return meanOverGlyphs(Font1, &_METRICS::dir90);
    case 10: return meanOverGlyphs(Font1, &_METRICS::dir135);
    case 11: return meanOverTargets(Font1, &_FEATMETRIC::char_int_x);
    case 12: return meanOverTargets(Font1, &_FEATMETRIC::char_int_y);
    case 13: return meanOverGlyphs(Font1, &_METRICS::HeighthistNumber);
    case 14: return meanOverGlyphs(Font1, &_METRICS::WidthhistNumber);
    case 15: return Font1->str_width;
    case 16: return Font1->sqrstr_width;
    case 17: return Font1->isSerifFont;
    case 18: return Font1->CapHeight;
    case 19: return Font1->corpusRatio;
    case 20: return Font1->isSymbolFont;
    case 21: return Font1->isMonoSpaced;
    case 22: return Font1->skew;
    case 23: return Font1->isStencilFont;
    case 24: return Font1->XHeight;
    case 25: return Font1->strokwidth;
    case 26: return Font1->SymbolContrast;
    case 27: return Font1->AvgGreyString;
    case 28: return Font1->Contrast;
    case 29: return Font1->getAvggreyStdDev;
    case 30: return Font1->isAllCaps;
    case 31: return Font1->fillFactor;
    case 32: return Font1->isNotBlackLetter;
    case 33: return Font1->isDigitalFont;
    case 34: return Font1->isHollow;
    case 35: return Font1->isConnected;
    case 36: return Font1->stressAngle;
    case 37: return Font1->isTwostoryag;
    case 38: return Font1->x2AscenderHeight;
    case 39: return Font1->isDarkPix;
    case 40: return Font1->isFreeHand;
    case 41: return Font1->edginess;
    case 42: return Font1->SelCurviness;
    case 43: return Font1->counterOpenness;
    case 44: return Font1->e_slantAngle;
    case 45: return Font1->squareness_O;
    case 46: return Font1->roundness_of_dots;
    case 47: return Font1->advancedWidth;
    case 48: return Font1->CloseCounter;
    case 49: return Font1->subSerifType;
    case 50: return Font1->SubSerifGreyNess;
    case 51: return Font1->WedgeSerifAngleTop;
    case 52: return Font1->WedgeSerifStdDevTop;
    case 53: return Font1->WedgeSerifStdDevBottom;
    case 54: return Font1->WedgeSerifAngleBottom;
    case 55: return Font1->Cap2AscHeight;
    case 56: return Font1->AscenderStddevSerif;
    case 57: return Font1->FlareStemNess;
    default: return 0.0;
  }
}

void freeFONTData(FONT_DATA* FD) {
  while (FD != NULL) {
    FONT_DATA* next = FD->next;
    free(FD);
    FD = next;
  }
}

// ---------------------------------------------------------------------------
// The measurement sequence. The steps run in their numbered order: later
// steps read fields written by earlier ones (skew, XHeight, isSerifFont,
// isSymbolFont, isAllCaps, Contrast, isConnected, SelCurviness, stressAngle,
// isDarkPix, isFreeHand). Every measurement reads its picture afresh.

// Image lists of the single steps.
static const char* const SkewImage[9] = {"72-H",  "73-I",  "77-M",
                                         "78-N",  "104-h", "105-i",
                                         "108-l", "109-m", "110-n"};
static const char* const strokeWidthImage[5] = {"116-t", "117-u", "108-l",
                                                "105-i", "84-T"};
static const char* const SelCurvinessImage[7] = {
    "70-F", "73-I", "76-L", "84-T", "105-i", "108-l", "116-t"};
static const char* const charImages[5] = {"98-b", "100-d", "102-f", "104-h",
                                          "116-t"};
static const char* const StencilImage[13] = {
    "66-B", "67-C", "68-D", "69-E",  "70-F",  "79-O", "111-o",
    "80-P", "99-c", "98-b", "100-d", "112-p", "113-q"};
static const char* const DarkImage[9] = {"72-H",  "73-I",  "77-M",
                                         "79-O",  "104-h", "105-i",
                                         "108-l", "109-m", "111-o"};
static const char* const DigitalImage[6] = {"67-C",  "99-c", "79-O",
                                            "111-o", "68-D", "69-E"};
static const char* const HollowImage[5] = {"73-I", "105-i", "108-l", "69-E",
                                           "70-F"};
static const char* const SymbolContrastImage[4] = {"84-T", "85-U", "76-L",
                                                   "73-I"};
static const char* const fillFactorImage[4] = {"66-B", "68-D", "79-O",
                                               "111-o"};

// "<folder>/<name>.png" in a 1024-byte buffer.
struct ImagePath {
  char filePath[1024];
  ImagePath(const char* folder, const char* name) {
    snprintf(filePath, sizeof filePath, "%s/%s.png", folder, name);
  }
  operator const char*() const { return filePath; }
};

// Locals that pass from one step to a later one.
struct SequenceState {
  const char* folder;
  double Avg_curviness = 0.0;
  double isBoxesFont = 0.0;
  double t_avgX = 0.0;
  double intersection_Avg = 0.0;
};

// Sum of one measurement over a list of images.
template <size_t N, typename Measure>
static double sumOver(const char* folder, const char* const (&names)[N],
                      Measure measure) {
  double sum = 0.0;
  for (size_t i = 0; i < N; i++) sum += measure(ImagePath(folder, names[i]));
  return sum;
}

// Step 1: the trimmed mean of nine stem slants, rounded half away from zero
// to whole degrees.
static void stepSkew(FONT_DATA* FD, SequenceState& st) {
  double skews[9];
  for (int i = 0; i < 9; i++)
    skews[i] = calculateSkew(ImagePath(st.folder, SkewImage[i]));
  FD->skew = skewFromStems(skews);
}

double skewFromStems(double skews[9]) {
  qsort(skews, 9, sizeof(double), sort);
  double sum = 0.0;
  for (int i = 1; i <= 7; i++) sum += skews[i];
  double mean = sum / 7.0;
  mean = mean > 0 ? mean + 0.5 : mean - 0.5;
  return (int)mean;
}

// Step 2: the median of five stroke widths.
static void stepStrokeWidth(FONT_DATA* FD, SequenceState& st) {
  double widths[5];
  for (int i = 0; i < 5; i++)
    widths[i] = getStrokeWidth(ImagePath(st.folder, strokeWidthImage[i]));
  qsort(widths, 5, sizeof(double), sort);
  FD->strokwidth = widths[2];
}

// Step 3: straight letters measured as drawn, not deskewed.
static void stepSelCurviness(FONT_DATA* FD, SequenceState& st) {
  FD->SelCurviness = sumOver(st.folder, SelCurvinessImage, [](const char* f) {
                       return curviness_borderPath(f, 0.0, 1);
                     }) /
                     7.0;
}

// Steps 4 and 5: the per-glyph measurements, then the spread of the glyph
// centres around their mean (a plain root of the sum, not divided).
static void stepGlyphLoop(FONT_DATA* FD, SequenceState& st) {
  double isBoundryBox_X[GLYPH_IMAGE_COUNT], isBoundryBox_Y[GLYPH_IMAGE_COUNT];
  double Greyvalue_glyph[GLYPH_IMAGE_COUNT];
  double AvgBoundryBox_X = 0.0, AvgBoundryBox_Y = 0.0;
  for (int i = 0; i < GLYPH_IMAGE_COUNT; i++) {
    ImagePath file(st.folder, GlyphImages[i]);
    _METRICS& m = FD->metrics[i];
    m.aspectRatio = getAspectRatio(file);

    double COGX = 0, COGY = 0, avgX = 0, avgY = 0;
    GetCenterOfGravity(file, &COGX, &COGY, &avgX, &avgY);
    isBoundryBox_X[i] = COGX;
    isBoundryBox_Y[i] = COGY;
    AvgBoundryBox_X += COGX;
    AvgBoundryBox_Y += COGY;
    if (COGX != 0) {
      m.avgX = avgX;
      m.avgY = avgY;
      m.COGX = COGX;
      m.COGY = COGY;
    } else {
      m.avgX = m.avgY = m.COGX = m.COGY = 0;
    }
    st.t_avgX += avgX;

    m.curviness = curviness_borderPath(file, FD->skew, 1);
    st.Avg_curviness += getCurviness(file, 0.0, 0.0);

    double dir0 = 0, dir45 = 0, dir90 = 0, dir135 = 0;
    dirAttributes(file, &dir0, &dir45, &dir90, &dir135);
    if (dir0 != 0) {
      m.dir0 = dir0;
      m.dir45 = dir45;
      m.dir90 = dir90;
      m.dir135 = dir135;
    } else {
      m.dir0 = m.dir45 = m.dir90 = m.dir135 = 0;
    }

    m.AvgGreyVal = getAvgGrey(file);
    Greyvalue_glyph[i] = m.AvgGreyVal;
    m.HeighthistNumber = getHeightHistogramNumber(file);
    m.WidthhistNumber = getWidthHistogramNumber(file);
  }
  st.Avg_curviness /= 52.0;
  AvgBoundryBox_X /= 52.0;
  AvgBoundryBox_Y /= 52.0;

  double spread = 0.0;
  for (int i = 0; i < GLYPH_IMAGE_COUNT; i++)
    spread += (AvgBoundryBox_X - isBoundryBox_X[i]) *
                  (AvgBoundryBox_X - isBoundryBox_X[i]) +
              (AvgBoundryBox_Y - isBoundryBox_Y[i]) *
                  (AvgBoundryBox_Y - isBoundryBox_Y[i]);
  st.isBoxesFont = sqrt(spread);

  // Step 7 needs the grey values of this loop.
  FD->getAvggreyStdDev = getStdDev_Avggrey(Greyvalue_glyph, 52);
}

// Step 6: stroke crossings of the nine target letters.
static void stepIntersections(FONT_DATA* FD, SequenceState& st) {
  for (int i = 0; i < TARGET_FILE_COUNT; i++) {
    int int_x = 0, int_y = 0;
    getIntersections(ImagePath(st.folder, TargetSpecificFiles[i]), &int_x,
                     &int_y);
    if (int_x != 0) {
      FD->featmatric[i].char_int_x = int_x;
      FD->featmatric[i].char_int_y = int_y;
    } else {
      FD->featmatric[i].char_int_x = FD->featmatric[i].char_int_y = 0;
    }
    st.intersection_Avg += int_x;
  }
}

// Step 8: x-height, capital height and their ratio from u/U and x/X. Each
// sum is halved even when a pair was skipped.
static void stepHeights(FONT_DATA* FD, SequenceState& st) {
  static const char* const pairs[2][2] = {{"117-u", "85-U"}, {"120-x", "88-X"}};
  double xHeightAvg = 0.0, CapHeightAvg = 0.0, avgCorpusval = 0.0;
  for (const auto& pair : pairs) {
    double smallX = getHeight(ImagePath(st.folder, pair[0]));
    double capX = getHeight(ImagePath(st.folder, pair[1]));
    xHeightAvg += smallX;
    CapHeightAvg += capX;
    if (capX != 0) avgCorpusval += smallX / capX;
  }
  FD->XHeight = xHeightAvg / 2.0;
  FD->CapHeight = CapHeightAvg / 2.0;
  FD->corpusRatio = avgCorpusval / 2.0;
}

// Step 9: x-height and capital height over the ascender height.
static void stepAscenders(FONT_DATA* FD, SequenceState& st) {
  double AscendarHeight =
      sumOver(st.folder, charImages, [](const char* f) { return getHeight(f); }) /
      5.0;
  if (AscendarHeight != 0) {
    FD->x2AscenderHeight = FD->XHeight / AscendarHeight;
    FD->Cap2AscHeight = FD->CapHeight / AscendarHeight;
  } else {
    FD->x2AscenderHeight = FD->XHeight;
    FD->Cap2AscHeight = FD->CapHeight;
  }
}

// Step 10: 1 distinct lower case, 2 lower case drawn like capitals, 3 the
// same at capital height, 0 such a font that still has a dotted i.
static void stepAllCaps(FONT_DATA* FD, SequenceState& st) {
  static const char* const pairs[5][2] = {{"98-b", "66-B"},
                                          {"100-d", "68-D"},
                                          {"103-g", "71-G"},
                                          {"104-h", "72-H"},
                                          {"114-r", "82-R"}};
  double sum = 0.0;
  for (const auto& pair : pairs)
    sum += getAllCaps(ImagePath(st.folder, pair[0]),
                      ImagePath(st.folder, pair[1]));
  double mean = sum / 5.0;
  // The i is looked at only when the lower case is drawn like capitals.
  double smalli =
      mean < 0.5 ? 0.0 : getsmalliFontVal(ImagePath(st.folder, "105-i"));
  FD->isAllCaps = allCapsClass(mean, FD->corpusRatio, smalli);
}

double allCapsClass(double meanAllCaps, double corpusRatio, double smalliVal) {
  if (meanAllCaps < 0.5) return 1.0;
  double result = 2.0;
  if (0.96 < corpusRatio && corpusRatio < 1.04) result = 3.0;
  if (smalliVal > 0) result = 0.0;
  return result;
}

// Step 11: the sample line.
static void stepSampleLine(FONT_DATA* FD, SequenceState& st) {
  ImagePath file(st.folder, "font");
  FD->str_width = getStringWidth(file);
  FD->AvgGreyString = getAvgGreyUsingHistogram(file, FD->XHeight);
  FD->sqrstr_width = getSquareStringWidth(file);
}

// Step 12: symbol fonts draw look-alike letters alike, or centre every glyph
// the same way.
static void stepSymbolFont(FONT_DATA* FD, SequenceState& st) {
  double Diffpercent =
      getSymbolFont(ImagePath(st.folder, "70-F"), ImagePath(st.folder, "69-E"),
                    0) +
      getSymbolFont(ImagePath(st.folder, "81-Q"), ImagePath(st.folder, "79-O"),
                    0);
  st.t_avgX /= 52.0;
  st.intersection_Avg /= 9.0;
  FD->isSymbolFont = symbolFontValue(st.isBoxesFont, Diffpercent,
                                     st.intersection_Avg, FD->corpusRatio,
                                     st.t_avgX);
}

double symbolFontValue(double isBoxesFont, double Diffpercent,
                       double intersection_Avg, double corpusRatio,
                       double t_avgX) {
  if (0.1 > isBoxesFont || Diffpercent == 0) return 10.0;
  double val =
      Diffpercent * intersection_Avg * pow(corpusRatio, 4) * t_avgX / 2.0;
  return val > 10.0 ? 10.0 : val;
}

double isConnectedglyphs(const char* fontFolder) {
  double totalGrey = 0.0;
  for (int i = 0; i < STRING_IMAGE_COUNT; i++)
    totalGrey += pixelCount(ImagePath(fontFolder, StringImages[i]));
  totalGrey /= 36.0;
  char filePath[1024];
  snprintf(filePath, sizeof filePath, "%s/font.png", fontFolder);
  double greyValue = pixelCount(filePath) / 36.0;
  double result = greyValue / totalGrey;
  return result > 1.0 ? 1.0 : result;
}

// Step 14: the least serif of L, T and I, made coarse above 2.
static void stepSerifFont(FONT_DATA* FD, SequenceState& st) {
  double serifL = getFontSerifInfo(ImagePath(st.folder, "76-L"), 1);
  double serifT = getFontSerifInfo(ImagePath(st.folder, "84-T"), 0);
  double serifI = getFontSerifInfo(ImagePath(st.folder, "73-I"), 0);
  double MinSerif = serifL < serifT ? serifL : serifT;
  if (serifI < MinSerif) MinSerif = serifI;
  FD->isSerifFont = serifClass(MinSerif);
}

double serifClass(double MinSerif) {
  if (MinSerif < 0) return 0.0;
  if (MinSerif > 4) return 4.0;
  if (MinSerif > 3) return 3.0;
  if (MinSerif > 2) return 2.0;
  return MinSerif;
}

// Step 15: vertical stem width over the horizontal bar's thickness.
static void stepContrast(FONT_DATA* FD, SequenceState& st) {
  double strkwidth = getStrokeWidth(ImagePath(st.folder, "73-I"));
  ImagePath t(st.folder, "84-T");
  double avggrey = getAvgGrey(t);
  double vertStrWidth = getVerticalStrokeWidth(t, avggrey, FD->skew);
  FD->Contrast =
      vertStrWidth != 0 ? strkwidth / vertStrWidth : strkwidth / 0.1;
}

// Step 22: free-hand fonts are asymmetric, curvy and uneven in height.
static void stepFreeHand(FONT_DATA* FD, SequenceState& st) {
  static const char* const heightImages[5] = {"111-o", "97-a", "99-c",
                                              "101-e", "115-s"};
  double symmetryValue = getSymmetry(ImagePath(st.folder, "111-o"), FD->skew);
  double heightArr[6];
  heightArr[5] = 0.0;
  for (int i = 0; i < 5; i++) {
    heightArr[i] = getHeight(ImagePath(st.folder, heightImages[i]));
    heightArr[5] += heightArr[i];
  }
  heightArr[5] /= 5.0;
  double avgStdDev = 0.0;
  for (int i = 0; i < 5; i++) avgStdDev += fabs(heightArr[5] - heightArr[i]);
  avgStdDev /= 5.0;
  avgStdDev = (avgStdDev * 9.9 + 0.1 * heightArr[5]) / heightArr[5];
  FD->isFreeHand = (1.0 - symmetryValue) *
                   (st.Avg_curviness + st.Avg_curviness) * avgStdDev;
}

// Step 23: a font is blackletter only when its T is busy and none of the
// signs against it holds.
static void stepBlackLetter(FONT_DATA* FD, SequenceState& st) {
  double skew = fabs(FD->skew);
  if (skew < 1) skew = 1.0;
  double isConnected = FD->isConnected;
  double freeHand = FD->isFreeHand == 0 ? 0.001 : FD->isFreeHand;
  double avggrey = 0.0;
  for (int i = 0; i < GLYPH_IMAGE_COUNT; i++)
    avggrey += FD->metrics[i].AvgGreyVal;
  avggrey /= 52.0;

  double intersectsT = testTforBlackletter(ImagePath(st.folder, "84-T"), 0);
  if (!(intersectsT >= 2.4)) {
    FD->isNotBlackLetter = 1.0;
    return;
  }
  BlackLetterSigns signs;
  signs.blackness = getBlackletterness(ImagePath(st.folder, "111-olar"), 1);
  signs.edginess = getEdginess(ImagePath(st.folder, "111-olar"), 0.0);
  signs.diagonalnessX =
      (getDiagonalSerifs(ImagePath(st.folder, "120-x"), 0) +
       getDiagonalSerifs(ImagePath(st.folder, "110-n"), 0) +
       getDiagonalSerifs(ImagePath(st.folder, "101-e"), 1)) /
      3.0;
  signs.skew = skew;
  signs.isConnected = isConnected;
  signs.freeHand = freeHand;
  signs.avggrey = avggrey;
  FD->isNotBlackLetter = blackLetterValue(FD, signs);
}

double blackLetterValue(const FONT_DATA* FD, const BlackLetterSigns& s) {
  bool notBlackLetter =
      (s.edginess > 9.0 && s.blackness > 0.1) || s.edginess > 12.0 ||
      s.blackness > 0.5 || s.diagonalnessX > 0.725 || FD->Contrast > 12.0 ||
      FD->isSerifFont < 0.5 || FD->SelCurviness < 0.2 ||
      FD->SelCurviness > 0.4 || s.isConnected < 0.97 ||
      FD->stressAngle > -4.0 || s.skew > 13.0 || FD->isDarkPix < 0.6 ||
      (s.avggrey < 0.3 && s.freeHand > 0.175) ||
      (s.blackness > 0.1 && s.freeHand > 0.175) || FD->isSymbolFont > 1.5 ||
      FD->isAllCaps == 2.0 || FD->isAllCaps == 3.0;
  return notBlackLetter ? 1.0 : s.blackness;
}

// Step 27: 1 for a two-storey a, 2 for a two-storey g, 3 for both.
static void stepTwoStorey(FONT_DATA* FD, SequenceState& st) {
  double twoStoryvalg = isTowStoryag(ImagePath(st.folder, "103-g"), 1);
  double twoStoryvala = isTowStoryag(ImagePath(st.folder, "97-a"), 0);
  FD->isTwostoryag =
      (twoStoryvala > 0 ? 1.0 : 0.0) + (twoStoryvalg > 0 ? 2.0 : 0.0);
}

// Steps 29 and 30: bracket and wedge of the large h's serifs. The wedge
// results are slopes and become angles in radians.
static void stepLargeSerifs(FONT_DATA* FD, SequenceState& st) {
  ImagePath file(st.folder, "104-hlar");
  double SubSerifStdDev = 0, BracketGreyVal = 0;
  subSerifType(file, FD->skew, &SubSerifStdDev, &BracketGreyVal);
  FD->subSerifType = SubSerifStdDev;
  FD->SubSerifGreyNess = BracketGreyVal;

  double SerifAngleTop = 0, SerifAngleBottom = 0, SerifStdDevTop = 0,
         SerifStdDevBottom = 0;
  WedgeSerifType(file, &SerifAngleTop, &SerifAngleBottom, &SerifStdDevTop,
                 &SerifStdDevBottom);
  FD->WedgeSerifAngleTop = atan(SerifAngleTop);
  FD->WedgeSerifStdDevTop = SerifStdDevTop;
  FD->WedgeSerifAngleBottom = atan(SerifAngleBottom);
  FD->WedgeSerifStdDevBottom = SerifStdDevBottom;
}

static void measureFont(FONT_DATA* FD, const char* fontFolder,
                        double stdDevAdvWidth) {
  SequenceState st;
  st.folder = fontFolder;
  const char* f = fontFolder;

  stepSkew(FD, st);                                        // 1
  stepStrokeWidth(FD, st);                                 // 2
  stepSelCurviness(FD, st);                                // 3
  stepGlyphLoop(FD, st);                                   // 4, 5, 7
  stepIntersections(FD, st);                               // 6
  stepHeights(FD, st);                                     // 8
  stepAscenders(FD, st);                                   // 9
  stepAllCaps(FD, st);                                     // 10
  stepSampleLine(FD, st);                                  // 11
  stepSymbolFont(FD, st);                                  // 12
  FD->isConnected = pow(isConnectedglyphs(f), 4);          // 13
  stepSerifFont(FD, st);                                   // 14
  stepContrast(FD, st);                                    // 15
  FD->SymbolContrast =                                     // 16
      sumOver(f, SymbolContrastImage,
              [](const char* p) { return getStrokeWidthToWidthRatio(p); }) /
      4.0;
  FD->fillFactor =                                         // 17
      sumOver(f, fillFactorImage,
              [](const char* p) { return getfillFactor(p); }) /
      4.0;
  FD->isStencilFont =                                      // 18
      sumOver(f, StencilImage,
              [](const char* p) { return getStencilsFont(p); }) /
      13.0;
  FD->stressAngle = getStressAngle(ImagePath(f, "111-olar"));       // 19
  FD->edginess = getEdginess(ImagePath(f, "111-o"), FD->skew);      // 20
  FD->isDarkPix =                                          // 21
      sumOver(f, DarkImage,
              [](const char* p) { return percentDarkPixels(p); }) /
      9.0;
  stepFreeHand(FD, st);                                    // 22
  stepBlackLetter(FD, st);                                 // 23
  FD->isMonoSpaced =                                       // 24
      isMonoSpaced(ImagePath(f, "font_b"), ImagePath(f, "font_s"));
  double skew = FD->skew;
  FD->isDigitalFont =                                      // 25
      sumOver(f, DigitalImage,
              [skew](const char* p) { return getDigitalFont(p, skew); }) /
      6.0;
  FD->isHollow =                                           // 26
      sumOver(f, HollowImage, [](const char* p) { return getHollowFont(p); }) /
      5.0;
  stepTwoStorey(FD, st);                                   // 27
  ImagePath e(f, "101-e");                                 // 28
  FD->counterOpenness = (double)getCounterOpenness(e) / FD->XHeight;
  FD->e_slantAngle = getESlant(e);
  stepLargeSerifs(FD, st);                                 // 29, 30
  FD->AscenderStddevSerif =                                // 31
      AscenderStdDvSerifness(ImagePath(f, "104-h"));
  FD->squareness_O = getAspectRatio(ImagePath(f, "111-o"));         // 32
  FD->roundness_of_dots = getCurviness(ImagePath(f, "46-."), 0.0, 5.0);  // 33
  if (FD->roundness_of_dots != FD->roundness_of_dots)
    FD->roundness_of_dots = 0.0;  // a font without a full stop stays acceptable
  FD->advancedWidth = stdDevAdvWidth;                      // 34
  FD->CloseCounter =                                       // 35
      (getCounterCloseness(ImagePath(f, "97-a"), 1) +
       getCounterCloseness(ImagePath(f, "101-e"), 0)) /
      2.0;
  FD->FlareStemNess = getFlaredStems(ImagePath(f, "97-a"), FD->skew);  // 36
}

double* GetFontFeatureVector(const char* fontFolder, int* Error_code,
                             double* checksumvalue, double stdDevAdvWidth) {
  if (fontFolder == NULL) {
    *Error_code = INVALID_PATH;
    return NULL;
  }
  FONT_DATA* FD = (FONT_DATA*)malloc(sizeof(FONT_DATA));
  if (FD == NULL) {
    *Error_code = MEMORY_FULL;
    return NULL;
  }
  memset(FD, 0, sizeof(FONT_DATA));

  // Every picture is decoded once for the whole folder's measurements.
  beginPictureRun();
  measureFont(FD, fontFolder, stdDevAdvWidth);
  endPictureRun();

  FD->next = NULL;
  double* FeatureArray = (double*)xmalloc(FEATURE_VECTOR_LENGTH * sizeof(double));
  *checksumvalue = 0.0;
  for (int i = 0; i < FEATURE_VECTOR_LENGTH; i++) {
    FeatureArray[i] = GetFeatureValue(FD, i);
    *checksumvalue += FeatureArray[i];
  }
  *checksumvalue /= 58.0;
  freeFONTData(FD);
  return FeatureArray;
}

// Appends to the fixed-size vector text, never past its end.
static void appendText(char* text, const char* piece) {
  size_t used = strlen(text);
  snprintf(text + used, FEATURE_VECTOR_TEXT_SIZE - used, "%s", piece);
}

extern "C" char* getFeatureVector(const char* filePath,
                                  int RemoveDuplicateFont,
                                  double stdDevAdvWidth) {
  int error_code = 0;
  double checkSumValue = 0.0;
  double* FeatArray = GetFontFeatureVector(filePath, &error_code,
                                           &checkSumValue, stdDevAdvWidth);

  // Batch diagnostic: folders numbered from 1000 announce themselves.
  if (filePath != NULL && strstr(filePath, "/1000") != NULL) {
    std::cout << "\nGot Path: " << filePath << "\n";
    if (FeatArray != NULL)
      std::cout << "\n" << FeatArray[0] << "FeatArray\n";
    else
      std::cout << "\n\nNULL FVARRAY\n\n";
  }
  std::cout.flush();
  fflush(stdout);

  char* FeatStr = (char*)calloc(FEATURE_VECTOR_TEXT_SIZE, 1);
  if (FeatStr == NULL) {
    free(FeatArray);
    char* small = (char*)xmalloc(32);
    snprintf(small, 32, "Error=16\n");
    return small;
  }
  if (error_code != 0) {
    snprintf(FeatStr, FEATURE_VECTOR_TEXT_SIZE, "Error=%d", error_code);
    free(FeatArray);
    return FeatStr;
  }

  // Only not-a-number is refused; infinities print as the C library prints
  // them.
  for (int i = 0; i < FEATURE_VECTOR_LENGTH; i++)
    if (FeatArray[i] != FeatArray[i]) error_code = INVALID_FEAT;
  if (error_code == INVALID_FEAT) {
    snprintf(FeatStr, FEATURE_VECTOR_TEXT_SIZE, "Error=%d", error_code);
    free(FeatArray);
    return FeatStr;
  }

  char* buf = (char*)calloc(128, 1);
  if (RemoveDuplicateFont == 1) {
    snprintf(buf, 128, "%0.10f,", checkSumValue);
    appendText(FeatStr, buf);
  }
  for (int i = 0; i < FEATURE_VECTOR_LENGTH; i++) {
    snprintf(buf, 128, "%0.8f%s", FeatArray[i],
             i == FEATURE_VECTOR_LENGTH - 1 ? "\n" : ",");
    appendText(FeatStr, buf);
  }
  free(FeatArray);
  free(buf);
  return FeatStr;
}

int validateImages(const char* path) {
  int result = 0;
  char filePath[4096];
  for (int i = 0; i < VALID_IMAGE_COUNT; i++) {
    snprintf(filePath, sizeof filePath, "%s/%s.png", path, isValidImages[i]);
    if (isValidImage(filePath) != NO_ERROR_FD) result = 1;
  }
  return result;
}
