// Fuzz target: glyph requests on the bytes as a font. The last three bytes
// (mostly a table's padding in a real font) choose a glyph index, a
// character and a second size, so that the fuzzer steers the requests
// without moving the font's own bytes.
#include "fuzz/fuzz_engine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FS_ULONG pick = size >= 3 ? (FS_ULONG)data[size - 3] << 16 |
                                  (FS_ULONG)data[size - 2] << 8 | data[size - 1]
                            : 0;
  const FS_USHORT sizes[2] = {12, (FS_USHORT)(5 + (pick >> 18) % 60)};
  fuzz::glyphs(data, size, sizes, 2, pick & 0xFFFF, (pick >> 4) & 0x3FF,
               0x20 + (pick & 0x7F));
  return 0;
}
