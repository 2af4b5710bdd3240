// The PNG display type: picture names with their one-step lag, page opening,
// and the three glyph writers that blend a map into the open page's rows.
// The interpreter (orvextxt) decides when pages open and where glyphs land.
#include "Orvex_internal/display_png.h"

#include <cstdio>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

const char* const targetFiles[PAGE_NAME_COUNT] = {
    "font_b", "font_s",
    "65-A", "66-B", "67-C", "68-D", "69-E", "70-F", "71-G", "72-H", "73-I",
    "74-J", "75-K", "76-L", "77-M", "78-N", "79-O", "80-P", "81-Q", "82-R",
    "83-S", "84-T", "85-U", "86-V", "87-W", "88-X", "89-Y", "90-Z",
    "97-a", "98-b", "99-c", "100-d", "101-e", "102-f", "103-g", "104-h",
    "105-i", "106-j", "107-k", "108-l", "109-m", "110-n", "111-o", "112-p",
    "113-q", "114-r", "115-s", "116-t", "117-u", "118-v", "119-w", "120-x",
    "121-y", "122-z",
    "46-.", "48-0", "104-hlar", "111-olar"};

// The page writer's own naming record: the font folder the driver names
// (SetImagePath) and the index of the next name.
char ImagePath[IMAGE_FOLDER_SIZE];
int ImageCount = 0;

void new_image_page(char* image_path) {
  std::string name = std::string(ImagePath) + "/Images/" +
                     targetFiles[ImageCount] + ".png";
  size_t n = std::min(name.size(), (size_t)IMAGE_PATH_SIZE - 1);
  memcpy(image_path, name.data(), n);
  image_path[n] = 0;
  ImageCount = (ImageCount + 1) % PAGE_NAME_COUNT;
}

FS_BOOLEAN new_PNG_image(char* image_path, int image_width, int image_height,
                         int image_bitDepth, int color_type,
                         unsigned char* bg_color, TsImagePNG* pD) {
  pD->png_ptr = nullptr;
  pD->info_ptr = nullptr;
  pD->image.rows = nullptr;
  // A page left by an earlier run is removed, not truncated: a file
  // system that writes a file rewritten in place back to disk at once
  // (ext4 does) would make every page of a run over an old folder wait for
  // the disk, some milliseconds a page.
  remove(image_path);
  pD->fp = fopen(image_path, "wb");
  if (pD->fp == nullptr) {
    fprintf(stderr, "Error: Cannot open output png file: %s\n", image_path);
    exit(-1);
  }
  if (color_type == 0)
    pD->color_type = PNG_COLOR_TYPE_RGB;
  else if (color_type == 2)
    pD->color_type = PNG_COLOR_TYPE_RGB_ALPHA;
  else
    pD->color_type = PNG_COLOR_TYPE_GRAY;
  if (TsImagePNG_initPNG(pD) != 0) {
    fprintf(stderr, "Error: TsImagePNG_initPNG failed.\n");
    exit(-1);
  }
  if (TsImagePNG_initImage(pD, image_width, image_height, image_bitDepth,
                           bg_color) != 0) {
    fprintf(stderr, "Error: Insufficient memory to create PNG image.\n");
    TsImagePNG_finiPNG(pD);
    exit(-1);
  }
  return 1;
}

namespace {

// Bytes a pixel in the page's rows for its colour type.
int pixel_bytes(const TsImagePNG* pD) {
  if (pD->color_type == PNG_COLOR_TYPE_RGB_ALPHA) return 4;
  if (pD->color_type == PNG_COLOR_TYPE_RGB) return 3;
  return 1;
}

// The strict fit rule: the whole map inside the page, never touching the
// last column or row.
bool fits(const TsImagePNG* pD, int xx, int yy, const FS_GLYPHMAP* map) {
  return xx >= 0 && yy >= 0 && xx + map->width < pD->image.xSize &&
         yy + map->height < pD->image.ySize;
}

// Moves channel c towards fg by coverage v (1..254).
unsigned char blend(int c, int fg, int v) {
  return (unsigned char)(c + ((v * (fg - c) + 128) >> 8));
}

// Stores coverage v at pixel p of a colour page (RGB or RGBA, by `bytes`).
void store_colour(png_bytep p, int bytes, int v, const unsigned char* fg) {
  if (v == 0) return;
  for (int ch = 0; ch < 3; ch++)
    p[ch] = v == 255 ? fg[ch] : blend(p[ch], fg[ch], v);
  if (bytes == 4) p[3] = 255;
}

// Stores coverage v at a gray pixel: later glyphs win where not white.
void store_gray(png_bytep p, int v) {
  if (255 - v < 255) *p = (png_byte)(255 - v);
}

const int intensities_16[16] = {0,   17,  34,  51,  68,  85,  102, 119,
                                136, 153, 170, 187, 204, 221, 238, 255};

}  // namespace

void dump_bitmap_to_memory(TsImagePNG* pD, int x, int y, int left, int top,
                           FS_GLYPHMAP* bitmap, unsigned char* fg_color) {
  int xx = x + left, yy = y - top;
  if (bitmap == nullptr || pD->image.rows == nullptr ||
      !fits(pD, xx, yy, bitmap))
    return;
  int bytes = pixel_bytes(pD);
  int bpl = abs((int)bitmap->bpl);
  for (int r = 0; r < bitmap->height; r++) {
    const FS_BYTE* src = bitmap->bits + (size_t)r * bpl;
    png_bytep dst = pD->image.rows[yy + r] + (size_t)xx * bytes;
    for (int c = 0; c < bitmap->width; c++, dst += bytes) {
      if (!(src[c >> 3] & (0x80 >> (c & 7)))) continue;
      if (bytes == 1) {
        *dst = 0;
      } else {
        dst[0] = fg_color[0];
        dst[1] = fg_color[1];
        dst[2] = fg_color[2];
        if (bytes == 4) dst[3] = 255;
      }
    }
  }
}

void dump_graymap_to_memory(TsImagePNG* pD, int x, int y, int left, int top,
                            FS_GLYPHMAP* bitmap, unsigned char* fg_color) {
  int xx = x + left, yy = y - top;
  if (bitmap == nullptr || pD->image.rows == nullptr ||
      !fits(pD, xx, yy, bitmap))
    return;
  int bytes = pixel_bytes(pD);
  int bpl = abs((int)bitmap->bpl);
  for (int r = 0; r < bitmap->height; r++) {
    const FS_BYTE* src = bitmap->bits + (size_t)r * bpl;
    png_bytep dst = pD->image.rows[yy + r] + (size_t)xx * bytes;
    int v = 0;  // an unknown depth keeps the row's last value
    for (int c = 0; c < bitmap->width; c++, dst += bytes) {
      switch (bitmap->bitsPerPixel) {
        case 8:
          v = src[c];
          break;
        case 4:
          v = intensities_16[(src[c >> 1] >> ((c & 1) ? 0 : 4)) & 15];
          break;
        case 2:
          v = ((src[c >> 2] >> (6 - 2 * (c & 3))) & 3) * 85;
          break;
        default:
          break;
      }
      if (bytes == 1)
        store_gray(dst, v);
      else
        store_colour(dst, bytes, v, fg_color);
    }
  }
}

void dump_subpixelmap_to_memory(TsImagePNG* pD, int x, int y, int left,
                                int top, FS_GLYPHMAP* bitmap,
                                unsigned char* fg_color) {
  int xx = x + left, yy = y - top;
  if (bitmap == nullptr || pD->image.rows == nullptr ||
      !fits(pD, xx, yy, bitmap))
    return;
  int bytes = pixel_bytes(pD);
  int bpl = abs((int)bitmap->bpl);
  for (int r = 0; r < bitmap->height; r++) {
    const FS_BYTE* src = bitmap->bits + (size_t)r * bpl;
    png_bytep dst = pD->image.rows[yy + r] + (size_t)xx * bytes;
    int v[4] = {0, 0, 0, 0};  // red, green, blue, gray coverages
    for (int c = 0; c < bitmap->width; c++, dst += bytes) {
      switch (bitmap->bitsPerPixel) {
        case 32:
          for (int k = 0; k < 4; k++) v[k] = src[4 * c + k];
          break;
        case 16:
          for (int k = 0; k < 4; k++) {
            int b = src[2 * c + (k >> 1)];
            v[k] = intensities_16[(k & 1) ? (b & 15) : (b >> 4)];
          }
          break;
        case 8:
          for (int k = 0; k < 4; k++) v[k] = ((src[c] >> (6 - 2 * k)) & 3) * 85;
          break;
        default:
          break;
      }
      if (bytes == 1) {
        store_gray(dst, v[3]);
        continue;
      }
      bool any = false;
      for (int ch = 0; ch < 3; ch++) {
        if (v[ch] == 0) continue;
        any = true;
        dst[ch] = v[ch] == 255 ? fg_color[ch] : blend(dst[ch], fg_color[ch], v[ch]);
      }
      if (bytes == 4 && any) dst[3] = 255;
    }
  }
}
