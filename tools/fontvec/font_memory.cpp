// The --memory option of `info` and `glyph`: the font file read whole into
// memory, which the engine is then given instead of the path (the only way
// a compressed font loads).
#include <stdio.h>
#include <stdlib.h>

#include "tools/fontvec/commands.h"

unsigned char* fontvec_read_font(const char* path, unsigned long* size) {
  FILE* f = fopen(path, "rb");
  if (f == NULL) return NULL;
  unsigned char* bytes = NULL;
  long n = -1;
  if (fseek(f, 0, SEEK_END) == 0 && (n = ftell(f)) > 0 && fseek(f, 0, SEEK_SET) == 0) {
    bytes = (unsigned char*)malloc((size_t)n);
    if (bytes != NULL && fread(bytes, 1, (size_t)n, f) != (size_t)n) {
      free(bytes);
      bytes = NULL;
    }
  }
  fclose(f);
  *size = bytes ? (unsigned long)n : 0;
  return bytes;
}
