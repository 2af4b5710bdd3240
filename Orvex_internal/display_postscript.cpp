// Stand-in for the PostScript display type: enough output for a script run
// under it to be traced, nothing drawn. Called by the interpreter only.
#include "Orvex_internal/display_postscript.h"

void ps_header(FILE* psFp, unsigned long print_header, const char* fname,
               const char* timestr) {
  if (psFp == nullptr) return;
  fprintf(psFp, "%%!PS-Adobe-3.0\n");
  if (print_header)
    fprintf(psFp, "%%%%Title: %s\n%%%%CreationDate: %s\n", fname ? fname : "",
            timestr ? timestr : "");
}

void ps_bitmap(FILE* psFp, long fx, long fy, int width, int height) {
  if (psFp == nullptr) return;
  fprintf(psFp, "%% bitmap at %ld %ld size %d %d\n", fx, fy, width, height);
}

void ps_graymap(FILE* psFp, long fx, long fy, int width, int height,
                int bitsPerPixel) {
  if (psFp == nullptr) return;
  fprintf(psFp, "%% graymap %d-bit at %ld %ld size %d %d\n", bitsPerPixel, fx,
          fy, width, height);
}
