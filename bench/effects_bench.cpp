// The image effects on the maps of DejaVu Sans's 52 letters at 24 and 72
// pixels per em, 1-bit and 8-bit, unhinted. BM_PixelBoldVsFreetype runs
// pixel boldness (bold width 1) next to libfreetype's FT_Bitmap_Embolden by
// one pixel in x (the yardstick only), both on the same maps in the same
// run, each copying the map first: counters give microseconds a map for
// both and their ratio (freetype_to_engine above 1: the engine is faster).
// BM_EffectsVsPlainMap gives each effect's time a map, copy included, as a
// multiple of rendering the plain map from its outline.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_BITMAP_H
#include <string.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "bench/bench_support.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_effects.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// The engine client with DejaVu Sans scaled, the letters' outlines and
// their plain maps (1-bit or 8-bit).
struct Maps {
  FS_STATE st;
  bool ok = false;
  bool mono;
  std::vector<FS_OUTLINE*> outlines;
  std::vector<FS_GLYPHMAP*> maps;
  Maps(int ppem, bool mono_) : mono(mono_) {
    FILECHAR name[64];
    if (FSS_init(&st, 256u << 20) != 0) return;
    if (FSS_load_font(&st, kDejaVuSans, nullptr, 0, sizeof name, name) != 0 ||
        FSS_set_font(&st, name) != 0 ||
        FSS_set_scale(&st, ppem << 16, 0, 0, ppem << 16) != 0 ||
        FSS_set_cmap(&st, 3, 1) != 0)
      return;
    FS_set_flags(&st, FLAGS_NO_HINTS);
    for (int c = 'A'; c <= 'z'; c++) {
      if (c > 'Z' && c < 'a') continue;
      FS_OUTLINE* o = FSS_get_outline(&st, (FS_ULONG)c);
      FS_GLYPHMAP* m = FSS_get_glyphmap(&st, (FS_ULONG)c, mono ? FS_MAP_BITMAP : FS_MAP_GRAYMAP8);
      if (o == nullptr || m == nullptr) return;
      outlines.push_back(o);
      maps.push_back(m);
    }
    ok = true;
  }
  ~Maps() {
    for (FS_OUTLINE* o : outlines) FSS_free_char(&st, o);
    for (FS_GLYPHMAP* m : maps) FSS_free_char(&st, m);
    if (st.server != nullptr) FSS_exit(&st);
  }
  FS_GLYPHMAP* copy(FS_GLYPHMAP* m) {
    return mono ? copy_bitmap(&st, m) : copy_graymap(&st, m);
  }
  // The plain map from its outline, trimmed.
  FS_GLYPHMAP* render(FS_OUTLINE* o) {
    return mono ? trim_bitmap(&st, make_bitmap(&st, o)) : make_graymap(&st, o, FS_MAP_GRAYMAP8);
  }
};

// Seconds for one pass of `f` over all maps.
double timeAll(Maps& g, const std::function<void(size_t)>& f) {
  auto t0 = std::chrono::steady_clock::now();
  for (size_t i = 0; i < g.maps.size(); i++) f(i);
  return benchsupport::seconds(t0, std::chrono::steady_clock::now());
}

}  // namespace

static void BM_PixelBoldVsFreetype(benchmark::State& state) {
  bool mono = state.range(1) == 1;
  Maps g((int)state.range(0), mono);
  FT_Library lib;
  if (!g.ok || FT_Init_FreeType(&lib) != 0) {
    state.SkipWithError("DejaVu Sans could not be scaled");
    return;
  }
  // The same maps in libfreetype's form.
  std::vector<FT_Bitmap> ft(g.maps.size());
  for (size_t i = 0; i < g.maps.size(); i++) {
    FS_GLYPHMAP* m = g.maps[i];
    FT_Bitmap_Init(&ft[i]);
    ft[i].rows = (unsigned)m->height;
    ft[i].width = (unsigned)m->width;
    ft[i].pitch = m->bpl;
    ft[i].buffer = m->bits;
    ft[i].num_grays = mono ? 2 : 256;
    ft[i].pixel_mode = mono ? FT_PIXEL_MODE_MONO : FT_PIXEL_MODE_GRAY;
  }
  SENV* senv = g.st.cur_sfnt->senv;
  senv->bold_width = 1;
  double engine = 0, freetype = 0;
  long sum = 0;
  for (auto _ : state) {
    engine += timeAll(g, [&](size_t i) {
      FS_GLYPHMAP* c = g.copy(g.maps[i]);
      c = mono ? pixelbold_bitmap(&g.st, c) : pixelbold_graymap8(&g.st, c);
      sum += c->bits[0];
      FSS_free(&g.st, c);
    });
    freetype += timeAll(g, [&](size_t i) {
      FT_Bitmap c;
      FT_Bitmap_Init(&c);
      FT_Bitmap_Copy(lib, &ft[i], &c);
      FT_Bitmap_Embolden(lib, &c, 64, 0);
      sum += c.width;
      FT_Bitmap_Done(lib, &c);
    });
    benchmark::DoNotOptimize(sum);
  }
  senv->bold_width = 0;
  double maps = (double)state.iterations() * (double)g.maps.size();
  state.counters["engine_us_per_map"] = 1e6 * engine / maps;
  state.counters["freetype_us_per_map"] = 1e6 * freetype / maps;
  state.counters["freetype_to_engine"] = freetype / engine;
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_PixelBoldVsFreetype)
    ->ArgNames({"ppem", "mono"})
    ->Args({24, 1})->Args({72, 1})->Args({24, 0})->Args({72, 0})
    ->Unit(benchmark::kMillisecond);

static void BM_EffectsVsPlainMap(benchmark::State& state) {
  bool mono = state.range(1) == 1;
  Maps g((int)state.range(0), mono);
  if (!g.ok) {
    state.SkipWithError("DejaVu Sans could not be scaled");
    return;
  }
  FS_STATE* st = &g.st;
  SENV* senv = st->cur_sfnt->senv;
  typedef std::function<FS_GLYPHMAP*(FS_GLYPHMAP*)> Effect;
  std::vector<std::pair<std::string, Effect>> effects = {
      {"emboss", [&](FS_GLYPHMAP* m) { return mono ? emboss_bitmap(m) : emboss_graymap(m); }},
      {"engrave", [&](FS_GLYPHMAP* m) { return mono ? engrave_bitmap(m) : engrave_graymap(m); }},
      {"outline1", [&](FS_GLYPHMAP* m) {
         st->flags |= FLAGS_OUTLINED_1PIXEL;
         FS_GLYPHMAP* r = mono ? outline_bitmap(st, m, 1, 0) : outline_graymap(st, m, 1, 65536);
         st->flags &= ~FLAGS_OUTLINED_1PIXEL;
         return r;
       }},
      {"outline2", [&](FS_GLYPHMAP* m) {
         st->flags |= FLAGS_OUTLINED_2PIXEL;
         FS_GLYPHMAP* r = mono ? outline_bitmap(st, m, 2, 0) : outline_graymap(st, m, 2, 65536);
         st->flags &= ~FLAGS_OUTLINED_2PIXEL;
         return r;
       }},
      {"outline_filled", [&](FS_GLYPHMAP* m) {
         return mono ? outline_bitmap(st, m, 1, 1) : outline_graymap(st, m, 1, 65536);
       }},
      {"soft_outline", [&](FS_GLYPHMAP* m) {
         return mono ? m : soft_outline_graymap(st, m, 1, 65536);
       }},
      {"soften", [&](FS_GLYPHMAP* m) { return mono ? m : Soften(st, 3, 3, m); }},
      {"pixelbold2", [&](FS_GLYPHMAP* m) {
         senv->bold_width = 2;
         FS_GLYPHMAP* r = mono ? pixelbold_bitmap(st, m) : pixelbold_graymap8(st, m);
         senv->bold_width = 0;
         return r;
       }},
  };
  std::vector<double> spent(effects.size());
  double plain = 0;
  long sum = 0;
  for (auto _ : state) {
    plain += timeAll(g, [&](size_t i) {
      FS_GLYPHMAP* m = g.render(g.outlines[i]);
      sum += m->width;
      FSS_free(st, m);
    });
    for (size_t e = 0; e < effects.size(); e++)
      spent[e] += timeAll(g, [&](size_t i) {
        FS_GLYPHMAP* m = effects[e].second(g.copy(g.maps[i]));
        sum += m->width;
        FSS_free(st, m);
      });
    benchmark::DoNotOptimize(sum);
  }
  double maps = (double)state.iterations() * (double)g.maps.size();
  state.counters["plain_us_per_map"] = 1e6 * plain / maps;
  for (size_t e = 0; e < effects.size(); e++)
    if (!(mono && (effects[e].first == "soft_outline" || effects[e].first == "soften")))
      state.counters[effects[e].first] = spent[e] / plain;
}
BENCHMARK(BM_EffectsVsPlainMap)
    ->ArgNames({"ppem", "mono"})
    ->Args({24, 1})->Args({72, 1})->Args({24, 0})->Args({72, 0})
    ->Unit(benchmark::kMillisecond);
