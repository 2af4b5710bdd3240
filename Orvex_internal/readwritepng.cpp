// The PNG page record's life: libpng set-up, header, pixel block, the one
// write of all rows, and the teardown. Used by the page writer (display_png)
// on behalf of the script interpreter.
#include "Orvex_internal/readwritepng.h"

#include <cstdlib>
#include <cstring>

void user_error_fn(png_structp png_ptr, png_const_charp error_msg) {
  (void)png_ptr;
  printf("Error: %s\n", error_msg);
  exit(1);
}

void user_warning_fn(png_structp png_ptr, png_const_charp warning_msg) {
  (void)png_ptr;
  printf("Warning: %s\n", warning_msg);
}

int TsImagePNG_initPNG(TsImagePNG* pD) {
  // The version string is the one this build's libpng headers carry: libpng
  // refuses to create a write state for any other.
  pD->png_ptr = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr,
                                        user_error_fn, user_warning_fn);
  if (pD->png_ptr == nullptr) return -1;
  pD->info_ptr = png_create_info_struct(pD->png_ptr);
  if (pD->info_ptr == nullptr) {
    png_destroy_write_struct(&pD->png_ptr, nullptr);
    pD->png_ptr = nullptr;
    return -1;
  }
  png_init_io(pD->png_ptr, pD->fp);
  // Pages are written for speed, not size: they live in a working folder and
  // are read back by the measurements. Stored deflate blocks without
  // row filters write and read fastest of the choices measured (level 1
  // with or without filters, run-length strategy); the file stays an
  // ordinary PNG with the same pixels.
  png_set_compression_level(pD->png_ptr, 0);
  png_set_filter(pD->png_ptr, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE);
  return 0;
}

int TsImagePNG_initImage(TsImagePNG* pD, int width, int height, int bit_depth,
                         unsigned char* bg_color) {
  png_set_IHDR(pD->png_ptr, pD->info_ptr, (png_uint_32)width,
               (png_uint_32)height, bit_depth, pD->color_type,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_color_8 sig;
  memset(&sig, 0, sizeof sig);
  if (pD->color_type == PNG_COLOR_TYPE_RGB) {
    sig.red = sig.green = sig.blue = (png_byte)bit_depth;
  } else if (pD->color_type == PNG_COLOR_TYPE_RGB_ALPHA) {
    sig.red = sig.green = sig.blue = sig.alpha = (png_byte)bit_depth;
  } else {
    sig.gray = (png_byte)bit_depth;
  }
  png_set_sBIT(pD->png_ptr, pD->info_ptr, &sig);
  // The file states linear light whatever the values are.
  png_set_gAMA(pD->png_ptr, pD->info_ptr, 1.0);
  png_write_info(pD->png_ptr, pD->info_ptr);
  png_set_packing(pD->png_ptr);
  return TsImageBuffer_init(&pD->image, width, height, pD->color_type,
                            bg_color);
}

int TsImagePNG_writeImage(TsImagePNG* pD) {
  png_write_image(pD->png_ptr, pD->image.rows);
  png_write_end(pD->png_ptr, pD->info_ptr);
  return 0;
}

void TsImagePNG_doneImage(TsImagePNG* pD) {
  if (pD->image.rows != nullptr) {
    free(pD->image.rows[0]);
    free(pD->image.rows);
    pD->image.rows = nullptr;
  }
}

int TsImagePNG_finiPNG(TsImagePNG* pD) {
  if (pD->png_ptr != nullptr)
    png_destroy_write_struct(&pD->png_ptr, &pD->info_ptr);
  pD->png_ptr = nullptr;
  pD->info_ptr = nullptr;
  return 0;
}

int TsImageBuffer_init(TsImageBuffer* buf, int width, int height,
                       int color_type, unsigned char* bg_color) {
  buf->xSize = width;
  buf->ySize = height;
  buf->rows = nullptr;
  if (width <= 0 || height <= 0) return -1;
  size_t stride =
      (size_t)width * (color_type == PNG_COLOR_TYPE_RGB_ALPHA ? 4 : 3);
  png_bytepp rows = (png_bytepp)malloc(sizeof(png_bytep) * (size_t)height);
  if (rows == nullptr) return -1;
  png_bytep block = (png_bytep)malloc(stride * (size_t)height);
  if (block == nullptr) {
    free(rows);
    return -1;
  }
  for (int y = 0; y < height; y++) rows[y] = block + stride * (size_t)y;
  buf->rows = rows;
  if (color_type == PNG_COLOR_TYPE_RGB)
    TsImageBuffer_clear(buf, width, height, bg_color);
  else if (color_type == PNG_COLOR_TYPE_RGB_ALPHA)
    TsImageBuffer_clear_RGBA(buf, width, height, bg_color);
  else
    memset(block, 255, stride * (size_t)height);  // gray pages are white
  return 0;
}

int TsImageBuffer_clear(TsImageBuffer* buf, int width, int height,
                        unsigned char* bg_color) {
  for (int y = 0; y < height; y++) {
    png_bytep p = buf->rows[y];
    for (int x = 0; x < width; x++, p += 3) {
      p[0] = bg_color[0];
      p[1] = bg_color[1];
      p[2] = bg_color[2];
    }
  }
  return 0;
}

int TsImageBuffer_clear_RGBA(TsImageBuffer* buf, int width, int height,
                             unsigned char* bg_color) {
  for (int y = 0; y < height; y++) {
    png_bytep p = buf->rows[y];
    for (int x = 0; x < width; x++, p += 4) {
      p[0] = bg_color[0];
      p[1] = bg_color[1];
      p[2] = bg_color[2];
      p[3] = 255;
    }
  }
  return 0;
}
