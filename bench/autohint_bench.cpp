// Forced autohinted outline fetch of every glyph of DejaVu Sans Condensed
// at 12, 24 and 72 pixels per em, the font in memory: the engine's
// fsg_GridFit under FLAGS_FORCE_AUTOHINT on gray output next to
// libfreetype's FT_LOAD_FORCE_AUTOHINT | FT_LOAD_NO_BITMAP load (the
// yardstick only), and the engine's unhinted fetch, in the same run. The
// counters give microseconds a glyph of each and the engine's forced time
// as a multiple of libfreetype's. A second benchmark times the Latin path
// (reference lines measured, the x-height boost, lines, accents and side
// bearings) over the 52 letters: Cantarell's CFF glyphs by the automatic
// route, DejaVu Sans Condensed's forced.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <stdio.h>
#include <string.h>

#include <chrono>
#include <vector>

#include "bench/bench_support.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_metrics.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const char* const kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSansCondensed.ttf";
const char* const kCantarell = "/usr/share/fonts/opentype/cantarell/Cantarell-Regular.otf";

}  // namespace

static void BM_ForcedAutohintVsFreetype(benchmark::State& state) {
  int ppem = (int)state.range(0);
  benchsupport::MemoryEngine e(kFont, ppem);
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  if (e.key == nullptr || FT_Init_FreeType(&lib) != 0 || FT_New_Face(lib, kFont, 0, &face) != 0 ||
      FT_Set_Pixel_Sizes(face, 0, (FT_UInt)ppem) != 0) {
    state.SkipWithError("the font could not be scaled");
    return;
  }
  e.st.flags |= FLAGS_FORCE_AUTOHINT | FLAGS_GRAYSCALE;
  unsigned n = e.key->maxp->numGlyphs;
  double engine = 0, freetype = 0, plain = 0;
  long sum = 0, forced = 0;
  for (auto _ : state) {
    auto t0 = std::chrono::steady_clock::now();
    for (unsigned g = 0; g < n; g++) {
      e.key->glyphIndex = (FS_USHORT)g;
      sum += fsg_GridFit(&e.st, e.key, 1) + fsg_glyph_element(e.key)->x[0];
      forced += (e.st.any_hints & 16) != 0;
    }
    auto t1 = std::chrono::steady_clock::now();
    for (unsigned g = 0; g < n; g++) {
      FT_Load_Glyph(face, g, FT_LOAD_FORCE_AUTOHINT | FT_LOAD_NO_BITMAP);
      sum += face->glyph->outline.n_points ? face->glyph->outline.points[0].x : 0;
    }
    auto t2 = std::chrono::steady_clock::now();
    for (unsigned g = 0; g < n; g++) {
      e.key->glyphIndex = (FS_USHORT)g;
      sum += fsg_GridFit(&e.st, e.key, 0) + fsg_glyph_element(e.key)->x[0];
    }
    auto t3 = std::chrono::steady_clock::now();
    engine += benchsupport::seconds(t0, t1);
    freetype += benchsupport::seconds(t1, t2);
    plain += benchsupport::seconds(t2, t3);
    benchmark::DoNotOptimize(sum);
  }
  double glyphs = (double)state.iterations() * n;
  state.SetLabel(strrchr(kFont, '/') + 1);
  state.counters["glyphs"] = n;
  state.counters["forced_share"] = forced / glyphs;
  state.counters["engine_us_per_glyph"] = 1e6 * engine / glyphs;
  state.counters["unhinted_us_per_glyph"] = 1e6 * plain / glyphs;
  state.counters["freetype_us_per_glyph"] = 1e6 * freetype / glyphs;
  state.counters["engine_to_freetype"] = engine / freetype;
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_ForcedAutohintVsFreetype)->Arg(12)->Arg(24)->Arg(72)->Unit(benchmark::kMillisecond);

static void BM_LatinPathVsFreetype(benchmark::State& state) {
  bool cff = state.range(0) != 0;
  const char* path = cff ? kCantarell : kFont;
  int ppem = (int)state.range(1);
  benchsupport::MemoryEngine e(path, ppem);
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  if (e.key == nullptr || FSS_set_cmap(&e.st, 3, 1) != 0 || FT_Init_FreeType(&lib) != 0 ||
      FT_New_Face(lib, path, 0, &face) != 0 || FT_Set_Pixel_Sizes(face, 0, (FT_UInt)ppem) != 0) {
    state.SkipWithError("the font could not be scaled");
    return;
  }
  get_ref_lines(&e.st);
  std::vector<FS_USHORT> glyphs;
  for (const char* c = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"; *c; c++)
    glyphs.push_back(map_char(&e.st, (FS_ULONG)*c, 0));
  e.st.flags |= FLAGS_GRAYSCALE | (cff ? 0 : FLAGS_FORCE_AUTOHINT);
  double engine = 0, freetype = 0;
  long sum = 0, hinted = 0;
  for (auto _ : state) {
    auto t0 = std::chrono::steady_clock::now();
    for (FS_USHORT g : glyphs) {
      e.key->glyphIndex = g;
      sum += (cff ? cff_GridFit(&e.st, e.key, 1) : fsg_GridFit(&e.st, e.key, 1)) +
             fsg_glyph_element(e.key)->x[0];
      hinted += (e.st.any_hints & 16) != 0;
    }
    auto t1 = std::chrono::steady_clock::now();
    for (FS_USHORT g : glyphs) {
      FT_Load_Glyph(face, g, FT_LOAD_FORCE_AUTOHINT | FT_LOAD_NO_BITMAP);
      sum += face->glyph->outline.n_points ? face->glyph->outline.points[0].x : 0;
    }
    auto t2 = std::chrono::steady_clock::now();
    engine += benchsupport::seconds(t0, t1);
    freetype += benchsupport::seconds(t1, t2);
    benchmark::DoNotOptimize(sum);
  }
  double n = (double)state.iterations() * glyphs.size();
  state.SetLabel(strrchr(path, '/') + 1);
  state.counters["autohinted_share"] = hinted / n;
  state.counters["engine_us_per_glyph"] = 1e6 * engine / n;
  state.counters["freetype_us_per_glyph"] = 1e6 * freetype / n;
  state.counters["engine_to_freetype"] = engine / freetype;
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_LatinPathVsFreetype)
    ->Args({1, 12})->Args({1, 24})->Args({0, 12})->Args({0, 24})
    ->Unit(benchmark::kMillisecond);
