// Glyph image access and pixel primitives.
// Every measurement reads its picture from one PNG file through ReadPngFile
// (decoded once per measurement run), works on the plain uint32 array and
// frees it; the helpers here
// (darkness, bounding boxes, border test, median, position keys) are shared by
// all measurement families. Calls libpng only.
#ifndef IMAGE_OPERATIONS_IMAGE_ACCESS_H
#define IMAGE_OPERATIONS_IMAGE_ACCESS_H

#include <png.h>
#include <stddef.h>
#include <stdint.h>

#include <string>

typedef uint32_t uint32;

// Faults of a measurement run; the values are bit-like. isValidImage answers
// with them, and the vector core reports INVALID_PATH, INVALID_FEAT and
// MEMORY_FULL in its text.
typedef enum _ERR_CASES {
  NO_ERROR_FD = 0,
  INVALID_PATH = 1,
  INVALID_GLYPH = 2,
  MISSING_GLYPH = 4,
  INVALID_FEAT = 8,
  MEMORY_FULL = 16
} ERR_CASES;

// Nominal pixel size of the glyph pictures, 72: lengths are normalised as
// value * 72 / FontSizePx. Defined here, beside the measurements that use
// it; the library's public header exports it too.
extern "C" const int FontSizePx;

// qsort comparator for doubles, ascending.
int compareDoublesAscending(const void* x, const void* y);

// Byte order of the pixels ReadPngFile delivers. Measurements all use boBGRA,
// which on a little-endian machine reads as the integer 0x00RRGGBB.
typedef enum {
  boARGB = 0,
  boRGBA = 1,
  boABGR = 2,
  boBGRA = 3
} bufferFormatId;

// White, the one pixel value without ink.
const uint32 WHITE_PIXEL = 0xFFFFFF;

// Darkness of a pixel: 0.0 for white, 1.0 for black, (255 - g) / 255 for a grey
// of byte value g. The subtraction is unsigned 32-bit, as every measurement
// does it, so a pixel with a non-zero top byte gives a value above 1.
inline double pixelDarkness(uint32 pixel) {
  return (double)(uint32)(WHITE_PIXEL - pixel) / 16777215.0;
}

// A pixel has ink when its darkness is not 0, which is exactly when it is not
// white: a non-zero 32-bit difference from white divided by 16777215 is at
// least 1 / 16777215, never 0. Tested as the integer comparison.
inline bool hasInk(uint32 pixel) { return pixel != WHITE_PIXEL; }

// Darkness of pixel (x, y), or 0.0 when (x, y) lies outside the picture:
// measurements whose walks can step past the picture's edge (the box of a
// blank picture, rays, rows below the box) see white there instead of
// reading past the pixels.
inline double darknessAt(const uint32* picture, int width, int height, int x,
                         int y) {
  if (picture == NULL || x < 0 || y < 0 || x >= width || y >= height)
    return 0.0;
  return pixelDarkness(picture[(size_t)y * width + x]);
}

// Whether pixel (x, y) has ink: exactly darknessAt(...) != 0.0, without the
// division.
inline bool inkAt(const uint32* picture, int width, int height, int x, int y) {
  if (picture == NULL || x < 0 || y < 0 || x >= width || y >= height)
    return false;
  return hasInk(picture[(size_t)y * width + x]);
}

// Singly linked list of doubles; nodes come from malloc one by one and are
// freed by the function that built the list.
struct GreyMapList {
  double value;
  struct GreyMapList* next;
};

// Reads a PNG file into a width * height array of 4-byte pixels in the asked
// byte order. Returns null when the file cannot be opened, is not a PNG, or
// libpng reports it damaged. The caller frees the picture with free().
// Only 8- or 16-bit RGB and RGBA files give meaningful pixels: the reader
// always takes the palette path of the transforms, so grey files come out as
// unexpanded bytes (without crashing).
unsigned int* ReadPngFile(const char* fileName, unsigned int* width,
                          unsigned int* height, bufferFormatId bufferFormat);

// One picture read in the measurement byte order for the span of a
// measurement, released on every way out. Within a run it is the run's kept
// decoding itself, shared and not copied: the measurement only reads it.
// Outside a run (or with the run cache off) it is a decoding of its own.
// `pixels` is null when the file cannot be read. A measurement that makes a
// new picture from it (a deskewed one) hands that over with adopt().
class PictureRead {
 public:
  uint32* pixels = NULL;  // read only: may be the run's kept decoding
  int width = 0;
  int height = 0;

  PictureRead() = default;
  explicit PictureRead(const char* path) { read(path); }
  ~PictureRead() { release(); }
  PictureRead(const PictureRead&) = delete;
  PictureRead& operator=(const PictureRead&) = delete;

  // Reads `path` (null: nothing) in place of the picture held. False when
  // it cannot be read.
  bool read(const char* path);
  // Takes `own`, a malloc'd picture, in place of the one held.
  void adopt(uint32* own, int newWidth, int newHeight);

 private:
  void release();
  bool owned_ = false;
};

// A measurement run: between beginPictureRun and the matching endPictureRun
// on one thread, ReadPngFile decodes each file once (per byte order) and
// gives every later read of the same path a fresh malloc'd copy of that
// first decoding, which the caller may write into and frees as always. The
// kept pictures belong to the calling thread alone and are dropped by the
// outermost endPictureRun; runs nest. Outside a run every read decodes its
// file afresh. The pictures must not change on disk during a run.
void beginPictureRun(void);
void endPictureRun(void);

// Results kept by the calling thread's run, for a measurement that several
// steps ask for in exactly the same way on the same picture: findRunResult
// gives true and the kept value when `key` (naming the measurement, its
// file and its arguments) was kept earlier in the run; keepRunResult keeps
// one. Outside a run, or with the run cache off, nothing is kept or found.
bool findRunResult(const std::string& key, double* value);
void keepRunResult(const std::string& key, double value);

// Whether runs keep pictures at all (on by default), for every thread: off,
// every read decodes its file, as outside a run. For comparing the two.
void setPictureRunCache(bool on);

// Writes `height` rows lying `width * 4` bytes apart in `image` as an 8-bit RGB
// PNG. Returns 0 on success, 1 when the file cannot be made or libpng fails,
// 2 for a height of 0. Not re-entrant (the output stream is static).
int writePng(unsigned long width, unsigned long height, unsigned char* image,
             unsigned char* outFile);

// libpng read transform that premultiplies the colour channels by alpha.
// Kept for readers that install it; ReadPngFile does not.
void premultiply_data(png_structp png, png_row_infop row_info, png_bytep data);

// malloc and calloc that end the process with a message when memory runs out.
void* xmalloc(size_t size);
void* xcalloc(size_t nmemb, size_t size);

// NO_ERROR_FD for a readable PNG with ink; INVALID_PATH when the file cannot be
// opened, INVALID_GLYPH when it is no readable PNG, MISSING_GLYPH when blank.
ERR_CASES isValidImage(const char* filePath);

// Inclusive box of the ink. Returns 0 if ink was found, 1 if not; a blank
// picture gives the box minX = minY = 1, maxX = maxY = 0.
int getBoundingBox(uint32* png_buffer, int* minX, int* minY, int* maxX,
                   int* maxY, int width, int height);

// Same box in one pass, returning the number of ink pixels (1 for a null
// buffer, 0 for a blank picture).
int getBoundingBox_count(uint32* png_buffer, int* minX, int* minY, int* maxX,
                         int* maxY, int width, int height);

// Writes maxX - minX + 1 of the file's ink box into *Boundry_x; leaves it
// alone when the file cannot be read.
void getBoundryBoxDimension(const char* FilePath, int* Boundry_x);

// 1 if the ink pixel at `loc` touches the picture's edge or a white
// neighbour, else 0 (also 0 for white pixels and negative locations).
// Inline: the census and the walks ask it for every pixel they visit.
inline int isBorderPixel(const uint32* buffer, int loc, int width,
                         int height) {
  if (loc < 0) return 0;
  if (buffer[loc] == WHITE_PIXEL) return 0;
  if (loc < width || loc >= (height - 1) * width) return 1;
  int x = loc % width;
  if (x == 0 || x == width - 1) return 1;
  const uint32* above = buffer + (loc - width);
  const uint32* here = buffer + loc;
  const uint32* below = buffer + (loc + width);
  return above[-1] == WHITE_PIXEL || above[0] == WHITE_PIXEL ||
                 above[1] == WHITE_PIXEL || here[-1] == WHITE_PIXEL ||
                 here[1] == WHITE_PIXEL || below[-1] == WHITE_PIXEL ||
                 below[0] == WHITE_PIXEL || below[1] == WHITE_PIXEL
             ? 1
             : 0;
}

// Upper median of the list's values (index listcount / 2 after sorting).
double GetMedianWidth(struct GreyMapList* HeadStrkwidth, int listcount);

// Low 16 bits as a signed value.
short getShort(int a);

// Packs a pixel position into one ordered key: x high, y low.
int combine(short a, short b);

#endif
