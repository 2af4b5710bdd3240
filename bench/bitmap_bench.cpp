// 1-bit glyph rendering of every glyph of DejaVu Sans at 12, 24 and 72
// pixels per em, cache off: the engine's make_bitmap and trim_bitmap next to
// libfreetype's mono rasteriser (the yardstick only) on the same unhinted
// outlines, taken once from the engine and handed to both, libfreetype
// rendering over the engine's untrimmed box with high precision and without
// dropout control, as the engine without flag 1. Each iteration renders all
// glyphs with each; the counters give glyphs per second of both and their
// ratio.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <vector>

#include "bench/bench_support.h"
#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_bitmap.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_scale.h"
#include "Orvex_internal/fs_ttf.h"
#include "Orvex_internal/fs_xmalloc.h"

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// One glyph's outline in libfreetype's form, 26.6, moved to its pixel box.
struct FtGlyph {
  std::vector<FT_Vector> pts;
  std::vector<char> tags;
  std::vector<short> ends;
  long width, rows;
};

FtGlyph toFreetype(const FS_OUTLINE* o) {
  FtGlyph g;
  // The engine's untrimmed box: floors to ceilings, both ends included.
  long ox = o->lo_x >> 16, oy = o->lo_y >> 16;
  g.width = ((o->hi_x + 0xFFFF) >> 16) - ox + 1;
  g.rows = ((o->hi_y + 0xFFFF) >> 16) - oy + 1;
  long p = 0;
  auto add = [&](char tag) {
    FT_Vector v;
    v.x = ((o->x[p] + 512) >> 10) - ox * 64;
    v.y = ((o->y[p] + 512) >> 10) - oy * 64;
    g.pts.push_back(v);
    g.tags.push_back(tag);
    p++;
  };
  for (int k = 0; k < o->num; k++) {
    int t = o->type[k] & 0x7F;
    if (t == FS_MOVETO && !g.pts.empty()) g.ends.push_back((short)(g.pts.size() - 1));
    if (t == FS_MOVETO || t == FS_LINETO) {
      add(FT_CURVE_TAG_ON);
    } else if (t == FS_QUADTO) {
      add(FT_CURVE_TAG_CONIC);
      add(FT_CURVE_TAG_ON);
    } else {
      add(FT_CURVE_TAG_CUBIC);
      add(FT_CURVE_TAG_CUBIC);
      add(FT_CURVE_TAG_ON);
    }
  }
  if (!g.pts.empty()) g.ends.push_back((short)(g.pts.size() - 1));
  return g;
}

// The engine client with DejaVu Sans scaled, and every glyph's outline.
struct Glyphs {
  FS_STATE st;
  bool ok = false;
  std::vector<FS_OUTLINE*> outlines;
  std::vector<FtGlyph> ft;
  explicit Glyphs(int ppem) {
    FILECHAR name[64];
    if (FSS_init(&st, 256u << 20) != 0) return;
    if (FSS_load_font(&st, kDejaVuSans, nullptr, 0, sizeof name, name) != 0 ||
        FSS_set_font(&st, name) != 0)
      return;
    // The scaled font the scale setter will make, built here by hand.
    TFNT* tfnt = &st.cur_typeset.tfntarray[0];
    SFNT* sfnt = (SFNT*)FSS_calloc(&st, sizeof(SFNT));
    sfnt->lfnt = tfnt->cfnt->lfnt;
    sfnt->user_scale[0] = sfnt->user_scale[3] = ppem << 16;
    sfnt->ref_count = 1;
    sfnt->next = st.server->scaled_fonts;
    st.server->scaled_fonts = sfnt;
    tfnt->sfnt = sfnt;
    st.cur_sfnt = sfnt;
    st.cur_lfnt = sfnt->lfnt;
    st.flags |= FLAGS_NO_HINTS;
    if (check_sfnt(&st) != 0) return;
    unsigned n = ((fsg_SplineKey*)sfnt->senv->ttkey)->maxp->numGlyphs;
    for (unsigned gi = 0; gi < n; gi++) {
      FS_OUTLINE* o = make_outline_ttf(&st, sfnt, gi);
      if (o == nullptr) return;
      if (o->num == 0) {
        FSS_free(&st, o);
        continue;
      }
      outlines.push_back(o);
      ft.push_back(toFreetype(o));
    }
    ok = true;
  }
  ~Glyphs() {
    for (FS_OUTLINE* o : outlines) FSS_free(&st, o);
    if (st.server != nullptr) FSS_exit(&st);
  }
};

}  // namespace

static void BM_BitmapVsFreetype(benchmark::State& state) {
  int ppem = (int)state.range(0);
  Glyphs g(ppem);
  FT_Library lib;
  if (!g.ok || FT_Init_FreeType(&lib) != 0) {
    state.SkipWithError("DejaVu Sans could not be scaled");
    return;
  }
  double engine = 0, freetype = 0;
  long sum = 0;
  for (auto _ : state) {
    auto t0 = std::chrono::steady_clock::now();
    for (FS_OUTLINE* o : g.outlines) {
      FS_BITMAP* m = trim_bitmap(&g.st, make_bitmap(&g.st, o));
      sum += m->width;
      FSS_free(&g.st, m);
    }
    auto t1 = std::chrono::steady_clock::now();
    for (FtGlyph& f : g.ft) {
      // A zeroed map of the engine's untrimmed box.
      long pitch = (f.width + 7) / 8;
      unsigned char* bits = (unsigned char*)calloc((size_t)(pitch * f.rows) + 1, 1);
      FT_Outline out;
      out.n_points = (short)f.pts.size();
      out.n_contours = (short)f.ends.size();
      out.points = f.pts.data();
      out.tags = f.tags.data();
      out.contours = f.ends.data();
      out.flags = FT_OUTLINE_HIGH_PRECISION | FT_OUTLINE_IGNORE_DROPOUTS;
      FT_Bitmap bm;
      memset(&bm, 0, sizeof bm);
      bm.rows = (unsigned)f.rows;
      bm.width = (unsigned)f.width;
      bm.pitch = (int)pitch;
      bm.buffer = bits;
      bm.num_grays = 2;
      bm.pixel_mode = FT_PIXEL_MODE_MONO;
      FT_Outline_Get_Bitmap(lib, &out, &bm);
      sum += bits[0];
      free(bits);
    }
    auto t2 = std::chrono::steady_clock::now();
    engine += benchsupport::seconds(t0, t1);
    freetype += benchsupport::seconds(t1, t2);
    benchmark::DoNotOptimize(sum);
  }
  double glyphs = (double)state.iterations() * (double)g.outlines.size();
  state.counters["glyphs"] = (double)g.outlines.size();
  state.counters["engine_glyphs_per_s"] = glyphs / engine;
  state.counters["freetype_glyphs_per_s"] = glyphs / freetype;
  state.counters["engine_to_freetype"] = freetype / engine;
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_BitmapVsFreetype)->Arg(12)->Arg(24)->Arg(72)->Unit(benchmark::kMillisecond);
