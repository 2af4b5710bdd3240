// Embedded strike glyphs: every strike glyph of Terminus at 16 ppem and of
// WenQuanYi Zen Hei (face 3) at 12 ppem through FSS_get_bitmap, fonts in
// memory, the glyph cache emptied (untimed) after each pass so that every
// glyph is read from its strike; next to libfreetype's bitmap load of the same
// glyphs (the yardstick only). The counters give the glyphs and glyphs a
// second of CPU time.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <stdio.h>

#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cache.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_request.h"

namespace {

const struct {
  const char* path;
  int index, ppem;
} kFonts[] = {{"/usr/share/fonts/opentype/terminus/terminus-normal.otb", 0, 16},
              {"/usr/share/fonts/truetype/wqy/wqy-zenhei.ttc", 2, 12}};

std::vector<FT_Byte> readAll(const char* path) {
  std::vector<FT_Byte> b;
  FILE* fp = fopen(path, "rb");
  if (fp == nullptr) return b;
  fseek(fp, 0, SEEK_END);
  b.resize((size_t)ftell(fp));
  fseek(fp, 0, SEEK_SET);
  if (fread(b.data(), 1, b.size(), fp) != b.size()) b.clear();
  fclose(fp);
  return b;
}

// The font in memory, open in both engines at the strike's size, and the
// glyphs libfreetype gives as bitmaps there.
struct Strike {
  std::vector<FT_Byte> bytes;
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  FS_STATE st;
  std::vector<FT_UInt> glyphs;
  bool ok = false;
  explicit Strike(int k) {
    bytes = readAll(kFonts[k].path);
    FILECHAR name[256];
    if (bytes.empty() || FT_Init_FreeType(&lib) != 0 ||
        FT_New_Memory_Face(lib, bytes.data(), (FT_Long)bytes.size(), kFonts[k].index, &face) != 0 ||
        FT_Set_Pixel_Sizes(face, 0, (FT_UInt)kFonts[k].ppem) != 0 || FSS_init(&st, 64u << 20) != 0)
      return;
    if (FSS_load_font_with_offset(&st, nullptr, bytes.data(), (FS_ULONG)kFonts[k].index, 0,
                                  (FS_ULONG)bytes.size(), sizeof name, name) != 0 ||
        FSS_set_font(&st, name) != 0 ||
        FSS_set_scale(&st, kFonts[k].ppem << 16, 0, 0, kFonts[k].ppem << 16) != 0)
      return;
    FSS_set_cmap(&st, 3, 1);
    FS_set_flags(&st, FLAGS_CMAP_OFF);
    for (FT_UInt g = 0; g < (FT_UInt)face->num_glyphs; g++)
      if (FT_Load_Glyph(face, g, FT_LOAD_DEFAULT) == 0 &&
          face->glyph->format == FT_GLYPH_FORMAT_BITMAP)
        glyphs.push_back(g);
    ok = !glyphs.empty();
  }
  ~Strike() {
    if (st.server != nullptr) FSS_exit(&st);
    if (face) FT_Done_Face(face);
    if (lib) FT_Done_FreeType(lib);
  }
};

void BM_EngineStrikeBitmap(benchmark::State& state) {
  Strike s((int)state.range(0));
  if (!s.ok) return state.SkipWithError("font not loaded");
  for (auto _ : state) {
    for (FT_UInt g : s.glyphs) {
      FS_BITMAP* b = FSS_get_bitmap(&s.st, g);
      benchmark::DoNotOptimize(b);
      FSS_free_char(&s.st, b);
    }
    state.PauseTiming();
    delete_fs_cache(&s.st, s.st.cur_sfnt);
    state.ResumeTiming();
  }
  state.counters["glyphs"] = (double)s.glyphs.size();
  state.counters["glyphs_per_s"] = benchmark::Counter(
      (double)s.glyphs.size(), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_FreetypeStrikeBitmap(benchmark::State& state) {
  Strike s((int)state.range(0));
  if (!s.ok) return state.SkipWithError("font not loaded");
  for (auto _ : state)
    for (FT_UInt g : s.glyphs) benchmark::DoNotOptimize(FT_Load_Glyph(s.face, g, FT_LOAD_DEFAULT));
  state.counters["glyphs"] = (double)s.glyphs.size();
  state.counters["glyphs_per_s"] = benchmark::Counter(
      (double)s.glyphs.size(), benchmark::Counter::kIsIterationInvariantRate);
}

BENCHMARK(BM_EngineStrikeBitmap)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FreetypeStrikeBitmap)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
