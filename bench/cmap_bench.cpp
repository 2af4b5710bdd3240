// Character mapping over every mapped code of DejaVu Sans: the engine's
// client call FSS_map_char through the (3,10) map the renderer chooses, next
// to libfreetype's FT_Get_Char_Index on the same map and codes (libfreetype
// serves only as the yardstick here). One iteration maps all 5918 codes.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H

#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"

namespace {

const char kDejaVuSans[] = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

// libfreetype's face on the (3,10) map, and the codes it maps.
FT_Face freetypeFace(FT_Library lib, std::vector<FT_ULong>* codes) {
  FT_Face face = nullptr;
  if (FT_New_Face(lib, kDejaVuSans, 0, &face) != 0) return nullptr;
  for (int i = 0; i < face->num_charmaps; i++)
    if (face->charmaps[i]->platform_id == 3 &&
        face->charmaps[i]->encoding_id == 10)
      FT_Set_Charmap(face, face->charmaps[i]);
  FT_UInt gi = 0;
  for (FT_ULong c = FT_Get_First_Char(face, &gi); gi != 0;
       c = FT_Get_Next_Char(face, c, &gi))
    codes->push_back(c);
  return face;
}

}  // namespace

static void BM_FSS_map_char(benchmark::State& state) {
  FT_Library lib;
  FT_Init_FreeType(&lib);
  std::vector<FT_ULong> codes;
  FT_Face face = freetypeFace(lib, &codes);
  FS_STATE st;
  FILECHAR name[64];
  if (face == nullptr || FSS_init(&st, 16u << 20) != 0 ||
      FSS_load_font(&st, kDejaVuSans, nullptr, 0, sizeof name, name) != 0 ||
      FSS_set_font(&st, name) != 0 || FSS_set_cmap(&st, 3, 10) != 0) {
    state.SkipWithError("DejaVu Sans could not be set");
    return;
  }
  FS_ULONG sum = 0;
  for (auto _ : state) {
    for (FT_ULong c : codes) sum += FSS_map_char(&st, (FS_ULONG)c);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * (int64_t)codes.size());
  FSS_exit(&st);
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_FSS_map_char);

static void BM_FT_Get_Char_Index(benchmark::State& state) {
  FT_Library lib;
  FT_Init_FreeType(&lib);
  std::vector<FT_ULong> codes;
  FT_Face face = freetypeFace(lib, &codes);
  if (face == nullptr) {
    state.SkipWithError("DejaVu Sans could not be opened");
    return;
  }
  FT_ULong sum = 0;
  for (auto _ : state) {
    for (FT_ULong c : codes) sum += FT_Get_Char_Index(face, c);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * (int64_t)codes.size());
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
}
BENCHMARK(BM_FT_Get_Char_Index);
