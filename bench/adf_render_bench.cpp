// Distance-field glyph renders beside libfreetype's renderers (the yardstick
// only) on the same unhinted outlines of every DejaVu Sans glyph, prepared
// beforehand (our glyph records; libfreetype's outlines and outline glyphs):
// ADF grey at the default CSM (0.4, -0.56) against the smooth rasteriser
// (FT_Outline_Render), and distance mode (cut-offs +-(0.16 ppem + 1)) against
// the signed-distance renderer at spread 8; at 24 and 48 ppem. Items per
// second are glyphs per second; their quotients give the ratios.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_GLYPH_H
#include FT_MODULE_H
#include FT_OUTLINE_H

#include <algorithm>
#include <vector>

#include "Orvex_internal/adfimplicitfixed.h"
#include "Orvex_internal/fs_api.h"

namespace {

int addPenCmd(void* u, ADF_U32 op, const FT_Vector* to, const FT_Vector* c, const FT_Vector* c2) {
  ((std::vector<ADFPenCmd>*)u)->push_back({op, (ADF_F32)(to->x * 1024), (ADF_F32)(to->y * 1024), (ADF_F32)(c->x * 1024),
                                           (ADF_F32)(c->y * 1024), (ADF_F32)(c2->x * 1024), (ADF_F32)(c2->y * 1024)});
  return 0;
}
const FT_Outline_Funcs kDecompose = {
    [](const FT_Vector* to, void* u) { return addPenCmd(u, 0, to, to, to); },
    [](const FT_Vector* to, void* u) { return addPenCmd(u, 1, to, to, to); },
    [](const FT_Vector* c, const FT_Vector* to, void* u) { return addPenCmd(u, 2, to, c, c); },
    [](const FT_Vector* c, const FT_Vector* c2, const FT_Vector* to, void* u) { return addPenCmd(u, 3, to, c, c2); },
    0, 0};

// Every glyph with an outline at one size: our glyph records on an engine
// client, and libfreetype's outline glyphs.
struct Glyphs {
  FT_Library lib;
  FT_Face face;
  FS_STATE st;
  void* inst;
  int ppem;
  std::vector<ADFGlyph*> adf;
  std::vector<FT_Glyph> ft;
  explicit Glyphs(int size) : ppem(size) {
    FT_Init_FreeType(&lib);
    FT_New_Face(lib, "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", 0, &face);
    FT_Set_Pixel_Sizes(face, 0, ppem);
    FSS_init(&st, 256u << 20);
    inst = ADFInitSystem(&st);
    for (FT_UInt gid = 0; gid < (FT_UInt)face->num_glyphs; gid++) {
      if (FT_Load_Glyph(face, gid, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) || face->glyph->outline.n_points == 0) continue;
      std::vector<ADFPenCmd> cmds;
      FT_Outline_Decompose(&face->glyph->outline, &kDecompose, &cmds);
      ADFPath p = {0, 0, cmds[0].x, cmds[0].y, cmds[0].x, cmds[0].y, ppem << 16, gid, 0, (ADF_U32)cmds.size(), cmds.data(), nullptr};
      for (const ADFPenCmd& m : cmds) {
        p.glyphMinX = std::min(p.glyphMinX, m.x), p.glyphMaxX = std::max(p.glyphMaxX, m.x);
        p.glyphMinY = std::min(p.glyphMinY, m.y), p.glyphMaxY = std::max(p.glyphMaxY, m.y);
      }
      adf.push_back(ADFGenerateADF(inst, &p));
      FT_Glyph g;
      FT_Get_Glyph(face->glyph, &g);
      ft.push_back(g);
    }
  }
};
Glyphs& glyphs(int ppem) {
  static Glyphs g24(24), g48(48);
  return ppem == 24 ? g24 : g48;
}

void renderOurs(benchmark::State& state, int ppem, ADF_I1616 in, ADF_I1616 out) {
  Glyphs& g = glyphs(ppem);
  ADFRenderAttrs a = {};
  a.pointSize = ppem << 16, a.dpi = 72, a.scaleX = a.scaleY = a.gamma = 0x10000;
  a.insideCutoff = in, a.outsideCutoff = out;
  long ink = 0;
  for (auto _ : state)
    for (ADFGlyph* adf : g.adf) {
      ADFRenderGlyphData rgd; ADFRenderImageAttrs ria; ADFTypesetAttrs ta;
      ADFRenderSetup(adf, &a, &rgd, &ria, &ta);
      ADFImage* image = ADFCreateImage(g.inst, 0, ria.imageW, ria.imageH, 0);
      ADFRenderGlyph(g.inst, adf, &rgd, image);
      ink += image->base[(ria.imageW * ria.imageH) / 2];
      ADFDestroyImage(g.inst, image);
    }
  benchmark::DoNotOptimize(ink);
  state.SetItemsProcessed(state.iterations() * g.adf.size());
}

void BM_AdfGrey(benchmark::State& state) { renderOurs(state, (int)state.range(0), 26214, -36700); }
BENCHMARK(BM_AdfGrey)->Arg(24)->Arg(48)->Unit(benchmark::kMillisecond);

void BM_AdfDistanceMode(benchmark::State& state) {
  const int ppem = (int)state.range(0);
  const ADF_I1616 c = (ADF_I1616)((0.16 * ppem + 1) * 65536 + 0.5);
  renderOurs(state, ppem, c, -c);
}
BENCHMARK(BM_AdfDistanceMode)->Arg(24)->Arg(48)->Unit(benchmark::kMillisecond);

// libfreetype's smooth rasteriser into an 8-bit map of the outline's box.
void BM_FreetypeSmooth(benchmark::State& state) {
  Glyphs& g = glyphs((int)state.range(0));
  std::vector<unsigned char> pixels;
  for (auto _ : state)
    for (FT_Glyph glyph : g.ft) {
      FT_Outline* o = &((FT_OutlineGlyph)glyph)->outline;
      FT_BBox box;
      FT_Outline_Get_CBox(o, &box);
      const FT_Pos x0 = box.xMin & ~63, y0 = box.yMin & ~63;
      FT_Bitmap bm = {};
      bm.width = (unsigned)(((box.xMax + 63) & ~63) - x0) >> 6, bm.rows = (unsigned)(((box.yMax + 63) & ~63) - y0) >> 6;
      bm.pitch = (int)bm.width, bm.num_grays = 256, bm.pixel_mode = FT_PIXEL_MODE_GRAY;
      pixels.assign((size_t)bm.width * bm.rows, 0);
      bm.buffer = pixels.data();
      FT_Outline_Translate(o, -x0, -y0);
      FT_Raster_Params params = {};
      params.target = &bm, params.source = o, params.flags = FT_RASTER_FLAG_AA;
      FT_Outline_Render(g.lib, o, &params);
      FT_Outline_Translate(o, x0, y0);
      benchmark::DoNotOptimize(pixels.data());
    }
  state.SetItemsProcessed(state.iterations() * g.ft.size());
}
BENCHMARK(BM_FreetypeSmooth)->Arg(24)->Arg(48)->Unit(benchmark::kMillisecond);

// libfreetype's signed-distance renderer at spread 8.
void BM_FreetypeSdf8(benchmark::State& state) {
  Glyphs& g = glyphs((int)state.range(0));
  FT_Int spread = 8;
  FT_Property_Set(g.lib, "sdf", "spread", &spread);
  for (auto _ : state)
    for (FT_Glyph glyph : g.ft) {
      FT_Glyph bitmap = glyph;
      FT_Glyph_To_Bitmap(&bitmap, FT_RENDER_MODE_SDF, nullptr, 0);
      benchmark::DoNotOptimize(bitmap);
      FT_Done_Glyph(bitmap);
    }
  state.SetItemsProcessed(state.iterations() * g.ft.size());
}
BENCHMARK(BM_FreetypeSdf8)->Arg(24)->Arg(48)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
