// The PNG display type of the scripted glyph renderer: the names of the
// measured picture files, opening a page, and laying glyph maps (bitmap,
// graymap, subpixel map) onto the open page. Called by the interpreter.
#ifndef ORVEX_INTERNAL_DISPLAY_PNG_H
#define ORVEX_INTERNAL_DISPLAY_PNG_H

#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/readwritepng.h"

// The picture names, in the order pages are named.
const int PAGE_NAME_COUNT = 58;
extern const char* const targetFiles[PAGE_NAME_COUNT];
// Size of the folder path below.
const int IMAGE_FOLDER_SIZE = 12800;
// The folder of the font in work: every picture name starts with it. The
// render driver sets it (SetImagePath) before a run.
extern char ImagePath[IMAGE_FOLDER_SIZE];
// Index into targetFiles of the next name.
extern int ImageCount;
// Size of the path buffers new_image_page writes into.
const int IMAGE_PATH_SIZE = 256;

// Writes "<ImagePath>/Images/<targetFiles[ImageCount]>.png" into image_path
// (a buffer of IMAGE_PATH_SIZE bytes; a longer path is cut short) and steps
// ImageCount on, wrapping after the last name.
void new_image_page(char* image_path);

// Opens image_path for writing and sets up a blank page of the given size.
// color_type is the script's: 0 colour (RGB), 2 RGBA, any other gray.
// Returns true; every failure prints its message and ends the process.
FS_BOOLEAN new_PNG_image(char* image_path, int image_width, int image_height,
                         int image_bitDepth, int color_type,
                         unsigned char* bg_color, TsImagePNG* pD);

// Lay a glyph map on the page with its top-left pixel at (x + left,
// y - top). A map that does not fit strictly inside the page is skipped
// whole, silently.
// 1 bit a pixel: set bits store gray 0, or fg_color (alpha 255).
void dump_bitmap_to_memory(TsImagePNG* pD, int x, int y, int left, int top,
                           FS_GLYPHMAP* bitmap, unsigned char* fg_color);
// 2, 4 or 8 bits of coverage a pixel, blended towards fg_color (RGB, RGBA)
// or stored as 255 - coverage (gray).
void dump_graymap_to_memory(TsImagePNG* pD, int x, int y, int left, int top,
                            FS_GLYPHMAP* bitmap, unsigned char* fg_color);
// Four coverages a pixel (red, green, blue, gray) of 8, 16 or 32 bits.
void dump_subpixelmap_to_memory(TsImagePNG* pD, int x, int y, int left,
                                int top, FS_GLYPHMAP* bitmap,
                                unsigned char* fg_color);

#endif
