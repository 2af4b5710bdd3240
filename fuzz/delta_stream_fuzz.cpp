// Fuzz target: compressed delta streams, pushed by a glyph's own program
// (fuzz/delta_stream_font.h) and run through the glyph requests, hinted and
// unhinted, as any font's glyph program runs.
#include "fuzz/delta_stream_font.h"
#include "fuzz/fuzz_engine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  FS_USHORT ppem;
  sfnt::Bytes font = fuzz::deltaStreamFont(data, size, &ppem);
  fuzz::glyphs(font.data(), font.size(), &ppem, 1, 0, 0, 'a');
  return 0;
}
