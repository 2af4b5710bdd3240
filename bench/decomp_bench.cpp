// Compressed fonts: make_outline_ttf of every glyph of DejaVu Sans at 24
// pixels per em, unhinted, from its compressed image (spline `glyf`, token
// blocks of 128-byte units, written by the tests' encoder) and from the plain
// font, both in memory, in the same run, next to libfreetype's unhinted load
// of the plain font (the yardstick only). Counters: microseconds a glyph of
// each, the compressed over the plain fetch, and the image's size against
// the font's, all in processor time.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <time.h>

#include <fstream>
#include <sstream>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/zrp3_encoder.h"

namespace {

const char kSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// An engine client with the font added from `bytes` and a scaled font made
// current by hand.
struct Engine {
  FS_STATE st;
  SFNT* sfnt = nullptr;
  unsigned glyphs = 0;
  Engine(std::vector<FS_BYTE>* bytes, int ppem) {
    FILECHAR name[64];
    if (FSS_init(&st, 256u << 20) != 0) return;
    if (FSS_load_font_with_offset(&st, nullptr, bytes->data(), 0, 0, (FS_ULONG)bytes->size(),
                                  sizeof name, name) != 0 ||
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
  // Every glyph's outline; the points summed.
  long outlines() {
    long sum = 0;
    for (unsigned g = 0; g < glyphs; g++) {
      FS_OUTLINE* o = make_outline_ttf(&st, sfnt, g);
      if (o != nullptr) sum += o->np;
      FSS_free(&st, o);
    }
    return sum;
  }
};

// This thread's processor time in seconds: the three fetches are compared
// on the time they ran, whatever else the machine does meanwhile.
double now() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return t.tv_sec + 1e-9 * t.tv_nsec;
}

}  // namespace

static void BM_CompressedVsPlainOutlines(benchmark::State& state) {
  std::ifstream in(kSans, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  std::string file = text.str();
  std::vector<FS_BYTE> plain(file.begin(), file.end());
  zrp3::Compressed c = zrp3::compress(sfnt::read(plain), 128);
  std::vector<FS_BYTE> image = c.image;
  Engine packed(&image, 24), engine(&plain, 24);
  FT_Library lib;
  FT_Face face;
  if (plain.empty() || packed.sfnt == nullptr || engine.sfnt == nullptr ||
      FT_Init_FreeType(&lib) != 0 ||
      FT_New_Memory_Face(lib, plain.data(), (FT_Long)plain.size(), 0, &face) != 0) {
    state.SkipWithError("the font could not be scaled");
    return;
  }
  FT_Set_Pixel_Sizes(face, 0, 24);
  double fromImage = 0, fromPlain = 0, freetype = 0;
  long sum = 0;
  for (auto _ : state) {
    double t0 = now();
    sum += packed.outlines();
    double t1 = now();
    sum += engine.outlines();
    double t2 = now();
    for (unsigned g = 0; g < engine.glyphs; g++)
      if (FT_Load_Glyph(face, g, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) == 0)
        sum += face->glyph->outline.n_points;
    double t3 = now();
    fromImage += t1 - t0;
    fromPlain += t2 - t1;
    freetype += t3 - t2;
    benchmark::DoNotOptimize(sum);
  }
  double n = (double)state.iterations() * engine.glyphs;
  state.counters["glyphs"] = engine.glyphs;
  state.counters["compressed_us"] = 1e6 * fromImage / n;
  state.counters["plain_us"] = 1e6 * fromPlain / n;
  state.counters["freetype_us"] = 1e6 * freetype / n;
  state.counters["compressed_to_plain"] = fromImage / fromPlain;
  state.counters["image_bytes"] = (double)image.size();
  state.counters["font_bytes"] = (double)plain.size();
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_CompressedVsPlainOutlines)->Unit(benchmark::kMillisecond);
