// A new scaled font per size, 8 to 72 pixels per em: the engine's scaler
// builds the key, runs the font program, scales the control values and
// runs the control-value program; beside it, in the same run, libfreetype's
// FT_Set_Pixel_Sizes and the first hinted load (interpreter version 35,
// monochrome target), where its control-value program runs (the yardstick
// only). Counters give sizes per second and the ratio, per font.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_DRIVER_H
#include FT_MODULE_H

#include <string.h>

#include <chrono>

#include "bench/bench_support.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const char* const kFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"};
const int kFirst = 8, kLast = 72;

// Every size once through the scaler, each a scaled font built afresh.
bool ourPass(FS_STATE* st) {
  for (int ppem = kFirst; ppem <= kLast; ppem++) {
    if (FSS_set_scale(st, ppem << 16, 0, 0, ppem << 16) != 0) return false;
    free_sfnt_senv(st, st->cur_sfnt);
    if (check_sfnt(st) != 0) return false;
  }
  return true;
}

// Every size once through libfreetype, with the first hinted load of
// glyph `g`.
bool freetypePass(FT_Face face, FT_UInt g) {
  for (int ppem = kFirst; ppem <= kLast; ppem++) {
    if (FT_Set_Pixel_Sizes(face, 0, (FT_UInt)ppem) != 0 ||
        FT_Load_Glyph(face, g, FT_LOAD_TARGET_MONO | FT_LOAD_NO_AUTOHINT |
                                   FT_LOAD_NO_BITMAP) != 0)
      return false;
  }
  return true;
}

}  // namespace

static void BM_NewSizeVsFreetype(benchmark::State& state) {
  const char* path = kFonts[state.range(0)];
  FS_STATE st;
  FILECHAR name[64];
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  bool ok = FSS_init(&st, 64u << 20) == 0 &&
            FSS_load_font(&st, path, nullptr, 0, sizeof name, name) == 0 &&
            FSS_set_font(&st, name) == 0 && FT_Init_FreeType(&lib) == 0;
  FT_UInt version = TT_INTERPRETER_VERSION_35;
  if (ok) FT_Property_Set(lib, "truetype", "interpreter-version", &version);
  ok = ok && FT_New_Face(lib, path, 0, &face) == 0;
  FT_UInt glyph = ok ? FT_Get_Char_Index(face, 'H') : 0;
  double ours = 0, freetype = 0;
  for (auto _ : state) {
    auto t0 = std::chrono::steady_clock::now();
    ok = ok && ourPass(&st);
    auto t1 = std::chrono::steady_clock::now();
    ok = ok && freetypePass(face, glyph);
    auto t2 = std::chrono::steady_clock::now();
    ours += benchsupport::seconds(t0, t1);
    freetype += benchsupport::seconds(t1, t2);
  }
  if (!ok) state.SkipWithError("a size could not be made");
  double n = (double)state.iterations() * (kLast - kFirst + 1);
  state.SetLabel(strrchr(path, '/') + 1);
  state.counters["sizes_per_s"] = n / ours;
  state.counters["freetype_sizes_per_s"] = n / freetype;
  state.counters["ours_to_freetype_time"] = ours / freetype;
  if (face) FT_Done_Face(face);
  if (lib) FT_Done_FreeType(lib);
  if (st.server != nullptr) FSS_exit(&st);
}
BENCHMARK(BM_NewSizeVsFreetype)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
