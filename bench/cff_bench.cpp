// CFF glyph outlines: make_outline_ttf (charstring interpretation, scaling
// and outline extraction) of every glyph of three CFF fonts at 12, 24 and 72
// pixels per em, unhinted, next to libfreetype's unhinted glyph load of the
// same glyphs (the yardstick only). The font is in memory for both; the
// engine is also timed on the font read from its file. Counters: engine and
// libfreetype microseconds a glyph, and their ratio.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include <stdio.h>

#include <chrono>
#include <vector>

#include "bench/bench_support.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const char* const kFonts[] = {
    "/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf",
    "/usr/share/texmf/fonts/opentype/public/tex-gyre/texgyrepagella-regular.otf",
    "/usr/share/fonts/opentype/ebgaramond/EBGaramond12-Regular.otf"};

std::vector<FS_BYTE> readFile(const char* path) {
  std::vector<FS_BYTE> bytes;
  FILE* f = fopen(path, "rb");
  if (f == nullptr) return bytes;
  FS_BYTE buf[65536];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) bytes.insert(bytes.end(), buf, buf + n);
  fclose(f);
  return bytes;
}

// An engine client with the font added (from `bytes`, or from its file
// when they are empty) and a scaled font made current by hand.
struct Engine {
  FS_STATE st;
  SFNT* sfnt = nullptr;
  unsigned glyphs = 0;
  Engine(const char* path, std::vector<FS_BYTE>* bytes, int ppem) {
    FILECHAR name[64];
    if (FSS_init(&st, 256u << 20) != 0) return;
    if (FSS_load_font_with_offset(&st, path, bytes->empty() ? nullptr : bytes->data(), 0,
                                  0, (FS_ULONG)bytes->size(), sizeof name, name) != 0 ||
        FSS_set_font(&st, name) != 0)
      return;
    TFNT* tfnt = &st.cur_typeset.tfntarray[0];
    SFNT* s = (SFNT*)FSS_calloc(&st, sizeof(SFNT));
    s->lfnt = tfnt->cfnt->lfnt;
    s->user_scale[0] = s->user_scale[3] = ppem << 16;
    s->ref_count = 1;
    s->next = st.server->scaled_fonts;
    st.server->scaled_fonts = s;
    tfnt->sfnt = s;
    st.cur_sfnt = s;
    st.cur_lfnt = s->lfnt;
    st.flags |= FLAGS_NO_HINTS;
    if (check_sfnt(&st) != 0) return;
    glyphs = ((fsg_SplineKey*)s->senv->ttkey)->maxp->numGlyphs;
    sfnt = s;
  }
  ~Engine() {
    if (st.server != nullptr) FSS_exit(&st);
  }
};

}  // namespace

// Args: font (0 Nimbus Sans, 1 Pagella, 2 EB Garamond), ppem.
static void BM_CffOutlineVsFreetype(benchmark::State& state) {
  const char* path = kFonts[state.range(0)];
  int ppem = (int)state.range(1);
  std::vector<FS_BYTE> bytes = readFile(path), none;
  Engine memory(path, &bytes, ppem), file(path, &none, ppem);
  FT_Library lib;
  FT_Face face;
  if (memory.sfnt == nullptr || file.sfnt == nullptr || FT_Init_FreeType(&lib) != 0 ||
      FT_New_Memory_Face(lib, bytes.data(), (FT_Long)bytes.size(), 0, &face) != 0) {
    state.SkipWithError("the font could not be scaled");
    return;
  }
  FT_Set_Pixel_Sizes(face, 0, (FT_UInt)ppem);
  double engine = 0, fromFile = 0, freetype = 0;
  long sum = 0;
  for (auto _ : state) {
    auto t0 = std::chrono::steady_clock::now();
    for (unsigned g = 0; g < memory.glyphs; g++) {
      FS_OUTLINE* o = make_outline_ttf(&memory.st, memory.sfnt, g);
      if (o != nullptr) sum += o->np;
      FSS_free(&memory.st, o);
    }
    auto t1 = std::chrono::steady_clock::now();
    for (unsigned g = 0; g < file.glyphs; g++) {
      FS_OUTLINE* o = make_outline_ttf(&file.st, file.sfnt, g);
      if (o != nullptr) sum += o->np;
      FSS_free(&file.st, o);
    }
    auto t2 = std::chrono::steady_clock::now();
    for (unsigned g = 0; g < memory.glyphs; g++)
      if (FT_Load_Glyph(face, g, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) == 0)
        sum += face->glyph->outline.n_points;
    auto t3 = std::chrono::steady_clock::now();
    engine += benchsupport::seconds(t0, t1);
    fromFile += benchsupport::seconds(t1, t2);
    freetype += benchsupport::seconds(t2, t3);
    benchmark::DoNotOptimize(sum);
  }
  double n = (double)state.iterations() * memory.glyphs;
  state.counters["glyphs"] = memory.glyphs;
  state.counters["engine_us"] = 1e6 * engine / n;
  state.counters["engine_file_us"] = 1e6 * fromFile / n;
  state.counters["freetype_us"] = 1e6 * freetype / n;
  state.counters["engine_to_freetype"] = engine / freetype;
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_CffOutlineVsFreetype)
    ->ArgsProduct({{0, 1, 2}, {12, 24, 72}})
    ->Unit(benchmark::kMillisecond);
