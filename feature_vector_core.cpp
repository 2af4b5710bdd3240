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

extern "C" const int FontSizePx = 72;

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
  double a = *(const double*)x;
  double b = *(const double*)y;
  if (b > a) return -1;
  if (a > b) return 1;
  return 0;
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

// The measurement steps fill the record here, in their fixed order. Of the
// picture measurements none is in place yet, so those fields keep their
// zeros; the advance spread comes from the renderer, not from a picture.
static void measureFont(FONT_DATA* FD, const char* fontFolder,
                        double stdDevAdvWidth) {
  (void)fontFolder;
  FD->advancedWidth = stdDevAdvWidth;
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

  measureFont(FD, fontFolder, stdDevAdvWidth);

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
