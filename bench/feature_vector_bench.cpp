// End-to-end measurement of one fixture folder: getFeatureVector on the
// pictures of a real font. Reports the time per folder and, as the counter
// png_decodes, how many PNG files one folder costs: every measurement reads
// its picture afresh.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <png.h>
#include <stdlib.h>

#include <atomic>
#include <string>

#include "feature_vector_library.h"

namespace {
std::atomic<long> pngDecodes{0};
}

// Counts PNG decodes by standing in front of libpng's read-struct
// constructor: the library calls it once per picture it reads.
extern "C" png_structp png_create_read_struct(png_const_charp user_png_ver,
                                              png_voidp error_ptr,
                                              png_error_ptr error_fn,
                                              png_error_ptr warn_fn) {
  using Create = png_structp (*)(png_const_charp, png_voidp, png_error_ptr,
                                 png_error_ptr);
  static Create real = (Create)dlsym(RTLD_NEXT, "png_create_read_struct");
  pngDecodes++;
  return real(user_png_ver, error_ptr, error_fn, warn_fn);
}

static void BM_GetFeatureVector(benchmark::State& state, const char* font) {
  std::string folder = std::string(FIXTURES_DIR) + "/" + font + "/Images";
  long decodes = 0;
  for (auto _ : state) {
    long before = pngDecodes;
    char* line = getFeatureVector(folder.c_str(), 0, 0.0);
    decodes = pngDecodes - before;
    benchmark::DoNotOptimize(line);
    free(line);
  }
  state.counters["png_decodes"] = (double)decodes;
  state.SetLabel(font);
}

BENCHMARK_CAPTURE(BM_GetFeatureVector, DejaVuSans, "DejaVuSans")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_GetFeatureVector, LiberationSerif, "LiberationSerif")
    ->Unit(benchmark::kMillisecond);
