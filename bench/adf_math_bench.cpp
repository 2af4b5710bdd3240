// The distance-field renderer's arithmetic next to libfreetype's (the
// yardstick only) on the same 4096 random inputs: I1616_SIN and I1616_COS
// against FT_Sin and FT_Cos (angles of up to a turn each way, radians for
// ours, degrees for libfreetype's), I1616_NORMALIZE against FT_Vector_Length
// (vectors of glyph size), I1616_DIV against FT_DivFix (all sizes). Items
// per second give the ratios. Last, glyph preparation: every DejaVu Sans
// glyph at 24 ppem from its path to the winding buffer (generate, set-up,
// flattening, distance and winding buffers), in glyphs per second.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include FT_TRIGONOMETRY_H

#include <random>
#include <vector>

#include "Orvex_internal/adfimplicitfixed.h"
#include "Orvex_internal/fs_api.h"

namespace {

const int kInputs = 4096;

struct Inputs {
  std::vector<ADF_I32> radians, degrees, a, b;
  Inputs() {
    std::mt19937 rng(7);
    for (int k = 0; k < kInputs; k++) {
      const double turn = ((int32_t)rng() / 2147483648.0);  // -1..1 turns
      radians.push_back((ADF_I32)(turn * 6.283185307 * 65536));
      degrees.push_back((ADF_I32)(turn * 360 * 65536));
      a.push_back((ADF_I32)(rng() % (1 << 24)) - (1 << 23));
      b.push_back(((ADF_I32)(rng() % (1 << 24)) - (1 << 23)) | 1);
    }
  }
};
const Inputs& inputs() {
  static Inputs in;
  return in;
}

template <typename F>
void run(benchmark::State& state, F f) {
  for (auto _ : state)
    for (int k = 0; k < kInputs; k++) benchmark::DoNotOptimize(f(k));
  state.SetItemsProcessed(state.iterations() * kInputs);
}

void BM_I1616_SIN(benchmark::State& s) { run(s, [](int k) { return I1616_SIN(inputs().radians[k]); }); }
void BM_FT_Sin(benchmark::State& s) { run(s, [](int k) { return FT_Sin(inputs().degrees[k]); }); }
void BM_I1616_COS(benchmark::State& s) { run(s, [](int k) { return I1616_COS(inputs().radians[k]); }); }
void BM_FT_Cos(benchmark::State& s) { run(s, [](int k) { return FT_Cos(inputs().degrees[k]); }); }
void BM_I1616_NORMALIZE(benchmark::State& s) {
  run(s, [](int k) {
    ADF_I1616 x, y;
    I1616_NORMALIZE(inputs().a[k], inputs().b[k], &x, &y);
    return x + y;
  });
}
void BM_FT_Vector_Length(benchmark::State& s) {
  run(s, [](int k) {
    FT_Vector v = {inputs().a[k], inputs().b[k]};
    return FT_Vector_Length(&v);
  });
}
void BM_I1616_DIV(benchmark::State& s) {
  run(s, [](int k) {
    ADF_I32 status;
    return I1616_DIV(inputs().a[k], inputs().b[k] >> (k & 15), &status);
  });
}
void BM_FT_DivFix(benchmark::State& s) {
  run(s, [](int k) { return FT_DivFix(inputs().a[k], inputs().b[k] >> (k & 15)); });
}
BENCHMARK(BM_I1616_SIN);
BENCHMARK(BM_FT_Sin);
BENCHMARK(BM_I1616_COS);
BENCHMARK(BM_FT_Cos);
BENCHMARK(BM_I1616_NORMALIZE);
BENCHMARK(BM_FT_Vector_Length);
BENCHMARK(BM_I1616_DIV);
BENCHMARK(BM_FT_DivFix);

// Every glyph's path, from libfreetype's unhinted outline (26.6 << 10).
struct Paths {
  std::vector<std::vector<ADFPenCmd>> cmds;
  std::vector<ADFPath> paths;
  explicit Paths(int ppem) {
    FT_Library lib;
    FT_Face face;
    FT_Init_FreeType(&lib);
    if (FT_New_Face(lib, "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", 0, &face)) return;
    FT_Set_Pixel_Sizes(face, 0, ppem);
    FT_Outline_Funcs funcs = {
        [](const FT_Vector* to, void* u) { add(u, 0, to, to, to); return 0; },
        [](const FT_Vector* to, void* u) { add(u, 1, to, to, to); return 0; },
        [](const FT_Vector* c, const FT_Vector* to, void* u) { add(u, 2, to, c, c); return 0; },
        [](const FT_Vector* c, const FT_Vector* c2, const FT_Vector* to, void* u) {
          add(u, 3, to, c, c2);
          return 0;
        },
        0, 0};
    for (FT_Long g = 0; g < face->num_glyphs; g++) {
      if (FT_Load_Glyph(face, (FT_UInt)g, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) ||
          face->glyph->outline.n_points == 0)
        continue;
      std::vector<ADFPenCmd> c;
      FT_Outline_Decompose(&face->glyph->outline, &funcs, &c);
      cmds.push_back(c);
    }
    for (auto& c : cmds) {
      ADFPath p = {};
      p.glyphMinX = p.glyphMaxX = c[0].x;
      p.glyphMinY = p.glyphMaxY = c[0].y;
      for (const ADFPenCmd& m : c) {
        p.glyphMinX = std::min(p.glyphMinX, m.x), p.glyphMaxX = std::max(p.glyphMaxX, m.x);
        p.glyphMinY = std::min(p.glyphMinY, m.y), p.glyphMaxY = std::max(p.glyphMaxY, m.y);
      }
      p.fontUnitsPerEM = ppem << 16;
      p.numPenCmds = (ADF_U32)c.size();
      p.penCmds = c.data();
      paths.push_back(p);
    }
    FT_Done_Face(face);
    FT_Done_FreeType(lib);
  }
  static void add(void* u, ADF_U32 op, const FT_Vector* to, const FT_Vector* c,
                  const FT_Vector* c2) {
    ((std::vector<ADFPenCmd>*)u)->push_back(
        {op, (ADF_F32)(to->x * 1024), (ADF_F32)(to->y * 1024), (ADF_F32)(c->x * 1024),
         (ADF_F32)(c->y * 1024), (ADF_F32)(c2->x * 1024), (ADF_F32)(c2->y * 1024)});
  }
};

void BM_GlyphPreparation24(benchmark::State& state) {
  static Paths glyphs(24);
  FS_STATE st;
  FSS_init(&st, 64u << 20);
  void* inst = ADFInitSystem(&st);
  ADFRenderAttrs a = {};
  a.pointSize = 24 << 16, a.dpi = 72, a.scaleX = a.scaleY = 0x10000;
  for (auto _ : state)
    for (const ADFPath& p : glyphs.paths) {
      ADFGlyph* adf = ADFGenerateADF(inst, &p);
      ADFRenderGlyphData rgd;
      ADFRenderImageAttrs ria;
      ADFTypesetAttrs ta;
      ADFRenderSetup(adf, &a, &rgd, &ria, &ta);
      ADFImage image = {0, ria.imageW, ria.imageH, 0, nullptr, nullptr};
      DistBuffer* dist = CreateDistBuffer(inst, &image, 0);
      InternPath* path = CreateInternPath(inst, adf, &rgd);
      ADF_I8* wnb = CreateWindingNumberBuffer(inst, dist);
      benchmark::DoNotOptimize(SetWindingNumberBuffer(path, dist, wnb));
      DestroyWindingNumberBuffer(inst, wnb);
      DestroyInternPath(inst, path);
      DestroyDistBuffer(inst, dist);
      ADFDestroyADF(inst, adf);
    }
  state.SetItemsProcessed(state.iterations() * glyphs.paths.size());
  ADFTermSystem(inst);
  FSS_exit(&st);
}
BENCHMARK(BM_GlyphPreparation24)->Unit(benchmark::kMillisecond);

}  // namespace
