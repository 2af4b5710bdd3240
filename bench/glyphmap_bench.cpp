// The glyph request pipeline end to end: FSS_get_glyphmap (8-bit gray, the
// 8-bit distance-field map 0x800 and the distance map 0x80, unhinted) for
// every glyph of DejaVu Sans at 24 pixels per em, with the glyph cache
// emptied before each pass (cold) and kept full (warm), next to
// libfreetype's load-and-render of the same glyphs, unhinted, in the same
// run (the yardstick only). Counters give glyphs per second and the ratios.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <chrono>
#include <string>

#include "bench/bench_support.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_ttf.h"

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
const int kPpem = 24;

// A client with DejaVu Sans at 24 ppem, glyph indices as input, unhinted.
struct Client {
  FS_STATE st;
  bool ok = false;
  unsigned glyphs = 0;
  Client() {
    FILECHAR name[64];
    if (FSS_init(&st, 256u << 20) != 0) return;
    if (FSS_load_font(&st, kDejaVuSans, nullptr, 0, sizeof name, name) != 0 ||
        FSS_set_font(&st, name) != 0 ||
        FSS_set_scale(&st, kPpem << 16, 0, 0, kPpem << 16) != 0 ||
        FSS_set_cmap(&st, 3, 1) != 0)
      return;
    st.flags |= FLAGS_NO_HINTS | FLAGS_CMAP_OFF;
    FS_GLYPHMAP* m = FSS_get_glyphmap(&st, 0, FS_MAP_GRAYMAP8);
    if (m == nullptr) return;
    FSS_free_char(&st, m);
    glyphs = ((TTF*)st.cur_lfnt->fnt)->maxp->numGlyphs;
    ok = true;
  }
  ~Client() {
    if (st.server != nullptr) FSS_exit(&st);
  }
  // Every glyph once; false on a failed request.
  bool pass(long* sum, FS_USHORT type) {
    for (unsigned g = 0; g < glyphs; g++) {
      FS_GLYPHMAP* m = FSS_get_glyphmap(&st, g, type);
      if (m == nullptr) return false;
      *sum += m->width;
      FSS_free_char(&st, m);
    }
    return true;
  }
};

// libfreetype's load and render of every glyph, unhinted, 8-bit gray.
bool freetypePass(FT_Face face, unsigned glyphs, long* sum) {
  for (unsigned g = 0; g < glyphs; g++) {
    if (FT_Load_Glyph(face, g, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP |
                                   FT_LOAD_RENDER) != 0)
      return false;
    *sum += face->glyph->bitmap.width;
  }
  return true;
}

}  // namespace

static void BM_GlyphmapColdWarmVsFreetype(benchmark::State& state) {
  Client c;
  FT_Library lib;
  FT_Face face;
  if (!c.ok || FT_Init_FreeType(&lib) != 0) {
    state.SkipWithError("DejaVu Sans could not be scaled");
    return;
  }
  if (FT_New_Face(lib, kDejaVuSans, 0, &face) != 0) {
    FT_Done_FreeType(lib);
    state.SkipWithError("libfreetype could not open DejaVu Sans");
    return;
  }
  FT_Set_Pixel_Sizes(face, kPpem, kPpem);
  const FS_USHORT types[] = {FS_MAP_GRAYMAP8, FS_MAP_EDGE_GRAYMAP8, FS_MAP_DISTANCEFIELD};
  const char* names[] = {"gray", "adf", "field"};
  double cold[3] = {}, warm[3] = {}, freetype = 0;
  long sum = 0;
  bool ok = true;
  for (auto _ : state) {
    for (int k = 0; k < 3; k++) {
      delete_fs_cache(&c.st, c.st.cur_sfnt);  // every map given back: empties it
      auto t0 = std::chrono::steady_clock::now();
      ok = ok && c.pass(&sum, types[k]);
      auto t1 = std::chrono::steady_clock::now();
      ok = ok && c.pass(&sum, types[k]);
      auto t2 = std::chrono::steady_clock::now();
      cold[k] += benchsupport::seconds(t0, t1);
      warm[k] += benchsupport::seconds(t1, t2);
    }
    auto t2 = std::chrono::steady_clock::now();
    ok = ok && freetypePass(face, c.glyphs, &sum);
    auto t3 = std::chrono::steady_clock::now();
    freetype += benchsupport::seconds(t2, t3);
    benchmark::DoNotOptimize(sum);
  }
  if (!ok) state.SkipWithError("a glyph request failed");
  double n = (double)state.iterations() * (double)c.glyphs;
  state.counters["glyphs"] = (double)c.glyphs;
  state.counters["freetype_glyphs_per_s"] = n / freetype;
  for (int k = 0; k < 3; k++) {
    std::string t = names[k];
    state.counters[t + "_cold_glyphs_per_s"] = n / cold[k];
    state.counters[t + "_warm_glyphs_per_s"] = n / warm[k];
    state.counters[t + "_cold_to_freetype"] = freetype / cold[k];
    state.counters[t + "_warm_to_gray_warm"] = warm[0] / warm[k];
  }
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_GlyphmapColdWarmVsFreetype)->Unit(benchmark::kMillisecond);
