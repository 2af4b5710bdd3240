// Drawing glyphs with the font engine for fontvec's commands: a font added,
// scaled and mapped as the renderer does it, a graymap's levels, and grey
// PNG files written through libpng. Used by `glyph` and `sheet`.
#ifndef TOOLS_FONTVEC_GLYPH_DRAW_H
#define TOOLS_FONTVEC_GLYPH_DRAW_H

#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>

#include <png.h>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_request.h"

// Character maps in the order the renderer tries them.
inline const FS_USHORT kCmapPreference[][2] = {{3, 10}, {0, 6}, {0, 4}, {3, 1},
                                        {1, 0},  {0, 3}, {0, 1}, {0, 0}};

// Adds and sets the font, scales it to `ppem` through the scale setter and
// chooses a character map (*mapped says whether one was accepted). Returns
// 0 or the engine's error.
inline FS_LONG setUp(FS_STATE* st, const char* path, FS_BYTE* image,
              unsigned long imageSize, FS_ULONG index, unsigned long ppem,
              bool* mapped) {
  FILECHAR name[256];
  if (FSS_load_font_with_offset(st, image ? NULL : path, image, index, 0,
                                (FS_ULONG)imageSize, sizeof name, name) != 0 ||
      FSS_set_font(st, name) != 0 ||
      FSS_set_scale(st, (FS_FIXED)(ppem << 16), 0, 0, (FS_FIXED)(ppem << 16)) != 0)
    return (FS_LONG)st->error;
  *mapped = false;
  for (const FS_USHORT* pair : kCmapPreference)
    if (FSS_set_cmap(st, pair[0], pair[1]) == 0) {
      *mapped = true;
      break;
    }
  st->error = 0;
  return 0;
}

// The level of pixel (x, y) of a graymap of 2, 4 or 8 bits, spread over
// 0 to 255.
inline unsigned grayLevel(const FS_GRAYMAP* g, int x, int y) {
  int d = g->bitsPerPixel;
  if (d != 2 && d != 4) return g->bits[y * g->bpl + x];
  int bit = x * d;
  unsigned v = (g->bits[y * g->bpl + (bit >> 3)] >> (8 - d - (bit & 7))) & ((1u << d) - 1);
  return v * 255 / ((1u << d) - 1);
}

// Writes a grey PNG of w by h pixels at `depth` bits, each row's bytes
// filled in by `fill` (row index, row buffer). False when the file can't
// be written.
template <class Fill>
bool writeGreyPng(const char* out, png_uint_32 w, png_uint_32 h, int depth,
                  Fill fill) {
  FILE* fp = fopen(out, "wb");
  if (fp == NULL) return false;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
  png_infop info = png ? png_create_info_struct(png) : NULL;
  png_bytep volatile row = NULL;
  if (info == NULL || setjmp(png_jmpbuf(png))) {
    free(row);
    png_destroy_write_struct(&png, &info);
    fclose(fp);
    return false;
  }
  png_init_io(png, fp);
  png_set_IHDR(png, info, w, h, depth, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  row = (png_bytep)malloc(((size_t)w * depth + 7) / 8);
  for (png_uint_32 y = 0; y < h; y++) {
    fill(y, (png_bytep)row);
    png_write_row(png, row);
  }
  free(row);
  row = NULL;
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return fclose(fp) == 0;
}

#endif
