// Glyph image access and pixel primitives: PNG in and out through libpng, and
// the small helpers every measurement family shares.
#include "image_operations/image_access.h"

#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

extern "C" const int FontSizePx = 72;

namespace {

// Largest side of a picture the reader accepts. Glyph pictures are a few
// hundred pixels; the cap keeps a forged header from asking for gigabytes,
// which xmalloc would answer by ending the host process.
const png_uint_32 MAX_PICTURE_SIDE = 16384;

// One decoded picture kept by a run (malloc'd, as the decoder gives it).
struct FreeDeleter {
  void operator()(unsigned int* p) const { free(p); }
};
struct KeptPicture {
  std::unique_ptr<unsigned int[], FreeDeleter> pixels;
  unsigned int width;
  unsigned int height;
};

// The calling thread's run: its depth of nesting and its pictures by path
// and byte order.
struct PictureRun {
  int depth = 0;
  std::unordered_map<std::string, KeptPicture> pictures;
  std::unordered_map<std::string, double> results;
};

thread_local PictureRun run;
std::atomic<bool> runCacheOn{true};

unsigned int* decodePngFile(const char* fileName, unsigned int* width,
                            unsigned int* height, bufferFormatId bufferFormat);

// Reads `fileName` for the caller: within a run, the run's kept decoding
// itself (decoded now if it is not kept yet), *owned false; otherwise, or
// when there is no room to keep it, a decoding of the caller's own, *owned
// true. Null when the file cannot be read (unreadable files are not kept:
// each read reports them again).
unsigned int* readShared(const char* fileName, unsigned int* width,
                         unsigned int* height, bufferFormatId bufferFormat,
                         bool* owned) {
  *owned = true;
  if (run.depth == 0 || !runCacheOn || fileName == NULL)
    return decodePngFile(fileName, width, height, bufferFormat);
  std::string key;
  try {
    key = std::string(fileName) + '\0' + (char)('0' + bufferFormat);
    auto found = run.pictures.find(key);
    if (found != run.pictures.end()) {
      *owned = false;
      *width = found->second.width;
      *height = found->second.height;
      return found->second.pixels.get();
    }
  } catch (const std::bad_alloc&) {
    return decodePngFile(fileName, width, height, bufferFormat);
  }
  unsigned int* picture = decodePngFile(fileName, width, height, bufferFormat);
  if (picture == NULL) return NULL;
  try {
    KeptPicture kept;
    kept.width = *width;
    kept.height = *height;
    auto placed = run.pictures.emplace(std::move(key), std::move(kept));
    placed.first->second.pixels.reset(picture);
    *owned = false;
  } catch (const std::bad_alloc&) {
    // No room to keep it: the caller owns it, later reads decode again.
  }
  return picture;
}

}  // namespace

void beginPictureRun(void) { run.depth++; }

void endPictureRun(void) {
  if (run.depth == 0) return;
  if (--run.depth == 0) {
    std::unordered_map<std::string, KeptPicture> none;
    run.pictures.swap(none);
    std::unordered_map<std::string, double> noResults;
    run.results.swap(noResults);
  }
}

bool findRunResult(const std::string& key, double* value) {
  if (run.depth == 0 || !runCacheOn) return false;
  auto found = run.results.find(key);
  if (found == run.results.end()) return false;
  *value = found->second;
  return true;
}

void keepRunResult(const std::string& key, double value) {
  if (run.depth == 0 || !runCacheOn) return;
  try {
    run.results[key] = value;
  } catch (const std::bad_alloc&) {
    // No room to keep it: a later ask measures again.
  }
}

void setPictureRunCache(bool on) { runCacheOn = on; }

unsigned int* ReadPngFile(const char* fileName, unsigned int* width,
                          unsigned int* height, bufferFormatId bufferFormat) {
  bool owned = true;
  unsigned int* picture =
      readShared(fileName, width, height, bufferFormat, &owned);
  if (picture == NULL || owned) return picture;
  // The caller may write into what it gets: a copy of the kept decoding.
  size_t count = (size_t)*width * *height;
  unsigned int* copy = (unsigned int*)xmalloc(count > 0 ? count * 4 : 1);
  if (count > 0) memcpy(copy, picture, count * 4);
  return copy;
}

bool PictureRead::read(const char* path) {
  release();
  unsigned int w = 0, h = 0;
  pixels = path != NULL ? readShared(path, &w, &h, boBGRA, &owned_) : NULL;
  if (pixels == NULL) return false;
  width = (int)w;
  height = (int)h;
  return true;
}

void PictureRead::adopt(uint32* own, int newWidth, int newHeight) {
  if (own == pixels) return;
  release();
  pixels = own;
  width = newWidth;
  height = newHeight;
  owned_ = true;
}

void PictureRead::release() {
  if (owned_) free(pixels);
  pixels = NULL;
  width = height = 0;
  owned_ = false;
}

int compareDoublesAscending(const void* x, const void* y) {
  double a = *(const double*)x;
  double b = *(const double*)y;
  if (b > a) return -1;
  if (a > b) return 1;
  return 0;
}

void* xmalloc(size_t size) {
  void* p = malloc(size);
  if (p == NULL) {
    fprintf(stderr, "Error: Out of memory. Exiting.\n");
    exit(1);
  }
  return p;
}

void* xcalloc(size_t nmemb, size_t size) {
  void* p = calloc(nmemb, size);
  if (p == NULL) {
    fprintf(stderr, "Error: Out of memory. Exiting\n");
    exit(1);
  }
  return p;
}

void premultiply_data(png_structp png, png_row_infop row_info,
                      png_bytep data) {
  if (row_info == NULL || data == NULL || row_info->channels != 4 ||
      row_info->bit_depth != 8)
    return;
  // Whoever installs the transform says through the user transform pointer
  // whether the alpha byte was swapped to the front; by default it is last.
  const int* swapAlpha = (const int*)png_get_user_transform_ptr(png);
  const bool alphaFirst = swapAlpha != NULL && *swapAlpha != 0;
  for (png_uint_32 i = 0; i < row_info->width; i++) {
    png_bytep p = data + 4 * i;
    png_bytep colour = alphaFirst ? p + 1 : p;
    unsigned alpha = alphaFirst ? p[0] : p[3];
    for (int c = 0; c < 3; c++)
      colour[c] = (png_byte)((colour[c] * alpha + 127) / 255);
  }
}

namespace {

unsigned int* decodePngFile(const char* fileName, unsigned int* width,
                            unsigned int* height, bufferFormatId bufferFormat) {
  FILE* fp = fopen(fileName, "rb");
  if (fp == NULL) return NULL;

  png_byte sig[8];
  size_t sigBytes = fread(sig, 1, 8, fp);
  if (!png_check_sig(sig, sigBytes)) {
    fclose(fp);
    return NULL;
  }

  png_structp png =
      png_create_read_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
  if (png == NULL) {
    fclose(fp);
    return NULL;
  }
  png_infop info = png_create_info_struct(png);
  if (info == NULL) {
    png_destroy_read_struct(&png, NULL, NULL);
    fclose(fp);
    return NULL;
  }

  // A file damaged past its signature makes libpng print its message and jump
  // back here; the reader then gives null like any unreadable file instead of
  // letting libpng abort the host process.
  unsigned int* volatile picture = NULL;
  png_bytep* volatile rows = NULL;
  if (setjmp(png_jmpbuf(png))) {
    free(rows);
    free(picture);
    png_destroy_read_struct(&png, &info, NULL);
    fclose(fp);
    return NULL;
  }
  png_set_user_limits(png, MAX_PICTURE_SIDE, MAX_PICTURE_SIDE);

  png_init_io(png, fp);
  png_set_sig_bytes(png, (int)sigBytes);
  png_read_info(png, info);

  png_uint_32 w, h;
  int bit_depth, color_type, interlace_type;
  png_get_IHDR(png, info, &w, &h, &bit_depth, &color_type, &interlace_type,
               NULL, NULL);
  *width = w;
  *height = h;

  // The chunk check sums already guard every byte of the compressed image
  // data, so zlib's own sum over the same data is not worked out again.
#ifdef PNG_IGNORE_ADLER32
  png_set_option(png, PNG_IGNORE_ADLER32, PNG_OPTION_ON);
#endif

  // The files the page writer makes (8-bit RGB, not interlaced, no
  // transparency) are read in the measurements' byte order by spreading
  // each row's triples into 4-byte pixels in place, with a zero top byte:
  // the pixels the transforms below give, without their row passes.
  if (bit_depth == 8 && color_type == PNG_COLOR_TYPE_RGB &&
      interlace_type == PNG_INTERLACE_NONE && bufferFormat == boBGRA &&
      !png_get_valid(png, info, PNG_INFO_tRNS)) {
    png_read_update_info(png, info);
    picture = (unsigned int*)xmalloc((size_t)w * h * 4 + 1);
    for (png_uint_32 y = 0; y < h; y++) {
      png_bytep row = (png_bytep)picture + (size_t)y * 4 * w;
      png_read_row(png, row, NULL);
      unsigned int* out = picture + (size_t)y * w;
      for (png_uint_32 x = w; x-- > 0;) {
        const png_bytep rgb = row + 3 * (size_t)x;
        out[x] = (unsigned int)rgb[0] << 16 | (unsigned int)rgb[1] << 8 | rgb[2];
      }
    }
    png_read_end(png, NULL);
    fclose(fp);
    png_destroy_read_struct(&png, &info, NULL);
    return picture;
  }

  // The palette type is forced whatever the file declared: every transform
  // below that depends on the colour type takes the palette branch. The
  // measurements are built on the pixels this gives for RGB and RGBA files.
  color_type = PNG_COLOR_TYPE_PALETTE;

  if (color_type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (color_type == PNG_COLOR_TYPE_GRAY && bit_depth < 8)
    png_set_expand_gray_1_2_4_to_8(png);
  if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
  if (bit_depth == 16) png_set_strip_16(png);
  if (bit_depth < 8) png_set_packing(png);
  if (color_type == PNG_COLOR_TYPE_GRAY ||
      color_type == PNG_COLOR_TYPE_GRAY_ALPHA)
    png_set_gray_to_rgb(png);
  if (interlace_type != PNG_INTERLACE_NONE) png_set_interlace_handling(png);
  if (bufferFormat == boABGR || bufferFormat == boBGRA) png_set_bgr(png);
  if (color_type & PNG_COLOR_MASK_ALPHA) {
    png_set_read_user_transform_fn(png, premultiply_data);
    if (bufferFormat == boARGB || bufferFormat == boABGR)
      png_set_swap_alpha(png);
  }
  png_set_invert_alpha(png);
  if (bufferFormat == boARGB || bufferFormat == boABGR)
    png_set_filler(png, 0, PNG_FILLER_BEFORE);
  else
    png_set_filler(png, 0, PNG_FILLER_AFTER);

  png_read_update_info(png, info);

  // Zero-filled so that files whose rows come out narrower than 4 bytes a
  // pixel (grey ones) still give the same picture on every read.
  picture = (unsigned int*)xmalloc((size_t)w * h * 4);
  memset(picture, 0, (size_t)w * h * 4);
  rows = (png_bytep*)malloc(sizeof(png_bytep) * (h ? h : 1));
  for (png_uint_32 y = 0; y < h; y++)
    rows[y] = (png_bytep)picture + (size_t)y * 4 * w;

  png_read_image(png, rows);
  png_read_end(png, NULL);

  free(rows);
  fclose(fp);
  png_destroy_read_struct(&png, &info, NULL);
  return picture;
}

}  // namespace

static FILE* fpout;

int writePng(unsigned long width, unsigned long height, unsigned char* image,
             unsigned char* outFile) {
  if (height == 0) return 2;
  fpout = fopen((const char*)outFile, "wb");
  if (fpout == NULL) return 1;

  int errCode = 0;
  png_structp png =
      png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
  png_infop info = png ? png_create_info_struct(png) : NULL;
  png_infop endInfo = info ? png_create_info_struct(png) : NULL;
  png_bytep* volatile rows = NULL;
  if (png == NULL || info == NULL || endInfo == NULL) {
    errCode = 1;
  } else if (setjmp(png_jmpbuf(png))) {
    errCode = 1;
  } else {
    rows = (png_bytep*)malloc(sizeof(png_bytep) * height);
    if (rows == NULL) png_error(png, "no memory for row pointers");
    for (unsigned long y = 0; y < height; y++)
      rows[y] = image + y * width * 4;
    png_init_io(png, fpout);
    png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_IF_SAFE, NULL, 0);
    png_set_IHDR(png, info, (png_uint_32)width, (png_uint_32)height, 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_interlace_handling(png);
    png_write_rows(png, rows, (png_uint_32)height);
    png_write_end(png, endInfo);
  }
  if (png != NULL) {
    png_infop infos[2] = {info, endInfo};
    png_destroy_info_struct(png, &infos[1]);
    png_destroy_write_struct(&png, &infos[0]);
  }
  fclose(fpout);
  fpout = NULL;
  free(rows);
  return errCode;
}

ERR_CASES isValidImage(const char* filePath) {
  ERR_CASES result = NO_ERROR_FD;
  FILE* fp = fopen(filePath, "rb");
  if (fp == NULL) return INVALID_PATH;
  unsigned int width = 0, height = 0;
  uint32* picture = ReadPngFile(filePath, &width, &height, boBGRA);
  if (picture == NULL) {
    result = INVALID_GLYPH;
  } else {
    int minX, minY, maxX, maxY;
    if (getBoundingBox(picture, &minX, &minY, &maxX, &maxY, (int)width,
                       (int)height) == 1)
      result = MISSING_GLYPH;
    free(picture);
  }
  fclose(fp);
  return result;
}

int getBoundingBox(uint32* png_buffer, int* minX, int* minY, int* maxX,
                   int* maxY, int width, int height) {
  *minX = *minY = width + height;
  *maxX = *maxY = 0;
  if (png_buffer == NULL) return 1;
  int result = 1;

  // Four scans, each stopping at its first ink pixel: top, bottom, left,
  // right.
  bool found = false;
  for (int y = 0; y < height && !found; y++)
    for (int x = 0; x < width; x++)
      if (hasInk(png_buffer[y * width + x])) {
        *minY = y;
        result = 0;
        found = true;
        break;
      }
  found = false;
  for (int y = height - 1; y >= *minY && !found; y--)
    for (int x = 0; x < width; x++)
      if (hasInk(png_buffer[y * width + x])) {
        *maxY = y;
        found = true;
        break;
      }
  // The columns: ink lies only in rows minY..maxY, so the leftmost and
  // rightmost ink columns are found row by row there, each row scanned only
  // where it could still widen the span found so far.
  if (result == 0) {
    int left = width, right = -1;
    for (int y = *minY; y <= *maxY; y++) {
      const uint32* row = png_buffer + (size_t)y * width;
      for (int x = 0; x < left; x++)
        if (hasInk(row[x])) {
          left = x;
          break;
        }
      for (int x = width - 1; x > right; x--)
        if (hasInk(row[x])) {
          right = x;
          break;
        }
    }
    *minX = left;
    *maxX = right;
  }

  if (*minX > *maxX) {
    *minX = *minY = 1;
    *maxX = *maxY = 0;
    return 1;
  }
  return result;
}

int getBoundingBox_count(uint32* png_buffer, int* minX, int* minY, int* maxX,
                         int* maxY, int width, int height) {
  *minX = *minY = width + height;
  *maxX = *maxY = 0;
  if (png_buffer == NULL) return 1;
  int count = 0;
  for (int y = 0; y < height; y++)
    for (int x = 0; x < width; x++)
      if (hasInk(png_buffer[y * width + x])) {
        count++;
        *minX = std::min(*minX, x);
        *minY = std::min(*minY, y);
        *maxX = std::max(*maxX, x);
        *maxY = std::max(*maxY, y);
      }
  if (*minX > *maxX) {
    *minX = *minY = 1;
    *maxX = *maxY = 0;
  }
  return count;
}

void getBoundryBoxDimension(const char* FilePath, int* Boundry_x) {
  unsigned int width = 0, height = 0;
  uint32* picture = ReadPngFile(FilePath, &width, &height, boBGRA);
  if (picture == NULL) return;
  int minX, minY, maxX, maxY;
  getBoundingBox(picture, &minX, &minY, &maxX, &maxY, (int)width, (int)height);
  *Boundry_x = maxX - minX + 1;
  free(picture);
}

double GetMedianWidth(struct GreyMapList* HeadStrkwidth, int listcount) {
  std::vector<double> values;
  values.reserve(listcount > 0 ? listcount : 0);
  for (struct GreyMapList* node = HeadStrkwidth; node != NULL;
       node = node->next)
    values.push_back(node->value);
  qsort(values.data(), values.size(), sizeof(double), compareDoublesAscending);
  // The index comes from the caller's count; an empty or short list has no
  // element there and gives 0.0.
  size_t middle = (size_t)(listcount > 0 ? listcount : 0) / 2;
  return middle < values.size() ? values[middle] : 0.0;
}

short getShort(int a) { return (short)a; }

int combine(short a, short b) {
  return (int)((unsigned)(int)a << 16) | (int)b;
}
