// Fuzz target: every character map the bytes' `cmap` lists, and the
// renderer's preferred ones, mapped over a sweep of codes.
#include "fuzz/fuzz_engine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::characterMaps(data, size);
  return 0;
}
