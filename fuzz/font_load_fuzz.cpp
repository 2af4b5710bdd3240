// Fuzz target: the bytes as a font added from memory, read as `fontvec
// info` reads it (loader record, CFF summary, strikes, metrics, kerning).
#include "fuzz/fuzz_engine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::fontInfo(data, size);
  return 0;
}
