// Contour walk and direction census on one 72-pixel glyph of a fixture font:
// curviness_borderPath (census into the border set, then the walk over every
// contour) and dirAttributes (the census alone). Each call reads its PNG
// afresh, as the measurement sequence does, so the PNG decode is included.
#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <string>

#include "image_operations/curviness_direction.h"

namespace {

std::string glyph(const char* font, const char* name) {
  return std::string(FIXTURES_DIR) + "/" + font + "/Images/" + name + ".png";
}

}  // namespace

static void BM_CurvinessBorderPath(benchmark::State& state, const char* font,
                                   const char* name, double skew) {
  const std::string path = glyph(font, name);
  for (auto _ : state)
    benchmark::DoNotOptimize(curviness_borderPath(path.c_str(), skew, 1));
  state.SetLabel(std::string(font) + " " + name);
}

static void BM_DirAttributes(benchmark::State& state, const char* font,
                             const char* name) {
  const std::string path = glyph(font, name);
  double dir0, dir45, dir90, dir135;
  for (auto _ : state) {
    dirAttributes(path.c_str(), &dir0, &dir45, &dir90, &dir135);
    benchmark::DoNotOptimize(dir0);
  }
  state.SetLabel(std::string(font) + " " + name);
}

// The PNG decode alone, the share of each call above that is not measuring.
static void BM_ReadPng(benchmark::State& state, const char* font,
                       const char* name) {
  const std::string path = glyph(font, name);
  for (auto _ : state) {
    unsigned int width = 0, height = 0;
    unsigned int* picture = ReadPngFile(path.c_str(), &width, &height, boBGRA);
    benchmark::DoNotOptimize(picture);
    free(picture);
  }
  state.SetLabel(std::string(font) + " " + name);
}

BENCHMARK_CAPTURE(BM_CurvinessBorderPath, o, "DejaVuSans", "111-o", 0.0)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_CurvinessBorderPath, O, "DejaVuSans", "79-O", 0.0)
    ->Unit(benchmark::kMicrosecond);
// With a skew angle the picture is sheared first and its rows widen.
BENCHMARK_CAPTURE(BM_CurvinessBorderPath, o_skew11, "DejaVuSans-Oblique",
                  "111-o", 11.0)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DirAttributes, o, "DejaVuSans", "111-o")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DirAttributes, O, "DejaVuSans", "79-O")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_ReadPng, o, "DejaVuSans", "111-o")
    ->Unit(benchmark::kMicrosecond);
