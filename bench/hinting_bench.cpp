// Hinted glyph fetch of every glyph of DejaVu Sans and Liberation Serif at
// 12, 24 and 72 pixels per em, the font in memory: the engine's
// fsg_GridFit with the font's glyph programs next to libfreetype's version
// 35 monochrome hinted load (the yardstick only), in the same run. Each iteration fetches all glyphs
// with each; the counters give microseconds a glyph of both and the
// engine's time as a multiple of libfreetype's.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_DRIVER_H
#include FT_MODULE_H

#include <stdio.h>
#include <string.h>

#include <chrono>
#include <vector>

#include "bench/bench_support.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const char* const kFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"};

}  // namespace

static void BM_HintedFetchVsFreetype(benchmark::State& state) {
  const char* path = kFonts[state.range(0)];
  int ppem = (int)state.range(1);
  benchsupport::MemoryEngine e(path, ppem);
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  unsigned version = 35;
  if (e.key == nullptr || FT_Init_FreeType(&lib) != 0 ||
      FT_Property_Set(lib, "truetype", "interpreter-version", &version) != 0 ||
      FT_New_Face(lib, path, 0, &face) != 0 || FT_Set_Pixel_Sizes(face, 0, (FT_UInt)ppem) != 0) {
    state.SkipWithError("the font could not be scaled");
    return;
  }
  unsigned n = e.key->maxp->numGlyphs;
  double engine = 0, freetype = 0;
  long sum = 0;
  for (auto _ : state) {
    auto t0 = std::chrono::steady_clock::now();
    for (unsigned g = 0; g < n; g++) {
      e.key->glyphIndex = (FS_USHORT)g;
      sum += fsg_GridFit(&e.st, e.key, 1) + fsg_glyph_element(e.key)->x[0];
    }
    auto t1 = std::chrono::steady_clock::now();
    for (unsigned g = 0; g < n; g++) {
      FT_Load_Glyph(face, g, FT_LOAD_TARGET_MONO | FT_LOAD_NO_AUTOHINT | FT_LOAD_NO_BITMAP);
      sum += face->glyph->outline.n_points ? face->glyph->outline.points[0].x : 0;
    }
    auto t2 = std::chrono::steady_clock::now();
    engine += benchsupport::seconds(t0, t1);
    freetype += benchsupport::seconds(t1, t2);
    benchmark::DoNotOptimize(sum);
  }
  double glyphs = (double)state.iterations() * n;
  state.SetLabel(strrchr(path, '/') + 1);
  state.counters["glyphs"] = n;
  state.counters["engine_us_per_glyph"] = 1e6 * engine / glyphs;
  state.counters["freetype_us_per_glyph"] = 1e6 * freetype / glyphs;
  state.counters["engine_to_freetype"] = engine / freetype;
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_HintedFetchVsFreetype)
    ->ArgsProduct({{0, 1}, {12, 24, 72}})
    ->Unit(benchmark::kMillisecond);
