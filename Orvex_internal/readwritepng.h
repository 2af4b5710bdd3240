// The PNG page record of the scripted glyph renderer: one open output file,
// its libpng write state and its pixel rows in memory. The page writer fills
// the rows; the closing sequence writes the file in one go.
#ifndef ORVEX_INTERNAL_READWRITEPNG_H
#define ORVEX_INTERNAL_READWRITEPNG_H

#include <png.h>

#include <cstdio>

// The pixels of one page: `ySize` row pointers into one block; rows[0] is
// the block. Stride is 4 bytes a pixel for RGBA and 3 for RGB and gray (a
// gray page uses the first byte of each triple's worth: rows[y][x]).
struct TsImageBuffer {
  int xSize;
  int ySize;
  png_bytepp rows;
};

// One open page: file, libpng state, colour type in force (0 gray, 2 RGB,
// 6 RGBA) and the pixels.
struct TsImagePNG {
  FILE* fp;
  png_structp png_ptr;
  png_infop info_ptr;
  int color_type;
  TsImageBuffer image;
};

// libpng callbacks: an error prints "Error: %s\n" on standard output and
// exits with 1; a warning prints "Warning: %s\n" and returns.
void user_error_fn(png_structp png_ptr, png_const_charp error_msg);
void user_warning_fn(png_structp png_ptr, png_const_charp warning_msg);

// Creates the write and info structures on pD->fp. Returns 0, or -1 when
// either structure can't be made (nothing is left allocated then).
int TsImagePNG_initPNG(TsImagePNG* pD);
// Writes the header (linear gamma, significant bits) and allocates the page
// painted with bg_color (gray pages are always white). Returns 0 or -1 on
// memory failure.
int TsImagePNG_initImage(TsImagePNG* pD, int width, int height, int bit_depth,
                         unsigned char* bg_color);
// Writes all rows and the end of the file. Always returns 0.
int TsImagePNG_writeImage(TsImagePNG* pD);
// Frees the pixel block and the row pointers.
void TsImagePNG_doneImage(TsImagePNG* pD);
// Destroys the libpng structures. Returns 0.
int TsImagePNG_finiPNG(TsImagePNG* pD);

// Allocates `height` rows of `width` pixels for `color_type` and paints the
// background. Returns 0, or -1 with `rows` null when memory runs out.
int TsImageBuffer_init(TsImageBuffer* buf, int width, int height,
                       int color_type, unsigned char* bg_color);
// Stores bg_color in every pixel of an RGB buffer. Returns 0.
int TsImageBuffer_clear(TsImageBuffer* buf, int width, int height,
                        unsigned char* bg_color);
// Stores bg_color with alpha 255 in every pixel of an RGBA buffer. Returns 0.
int TsImageBuffer_clear_RGBA(TsImageBuffer* buf, int width, int height,
                             unsigned char* bg_color);

#endif
