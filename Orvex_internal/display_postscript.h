// The renderer's PostScript display type, as a stand-in: a header and one
// comment line per glyph on the PostScript stream. The real page output
// (images, prologue, error handler) is a subsystem of its own, not built.
#ifndef ORVEX_INTERNAL_DISPLAY_POSTSCRIPT_H
#define ORVEX_INTERNAL_DISPLAY_POSTSCRIPT_H

#include <cstdio>

// "%!PS-Adobe-3.0\n" and, with print_header, title and date comments.
void ps_header(FILE* psFp, unsigned long print_header, const char* fname,
               const char* timestr);
// One comment line naming the map's kind, pen and size.
void ps_bitmap(FILE* psFp, long fx, long fy, int width, int height);
void ps_graymap(FILE* psFp, long fx, long fy, int width, int height,
                int bitsPerPixel);

#endif
