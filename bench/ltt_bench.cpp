// Character mapping through a linked font: FSS_map_char of every mapped code
// of Liberation Serif (for U+0000 to U+03FF), DejaVu Sans and Noto Sans
// Armenian through the set, beside the same codes each on its own file, in
// the same run. Reports nanoseconds a code of both and their ratio
// (`set_to_alone`). libfreetype only lists the files' codes.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "Orvex_internal/fs_font.h"
#include "support/linked_font.h"

namespace {

// The codes a file maps, as libfreetype lists them.
std::vector<FS_ULONG> codesOf(FT_Library lib, const std::string& path) {
  std::vector<FS_ULONG> codes;
  FT_Face face = nullptr;
  if (FT_New_Face(lib, path.c_str(), 0, &face) != 0) return codes;
  FT_UInt gi = 0;
  for (FT_ULong c = FT_Get_First_Char(face, &gi); gi != 0; c = FT_Get_Next_Char(face, c, &gi))
    codes.push_back((FS_ULONG)c);
  FT_Done_Face(face);
  return codes;
}

// A client with the font at `path` current on its Unicode map.
bool open(FS_STATE* st, const std::string& path) {
  FILECHAR name[256];
  return FSS_init(st, 32u << 20) == 0 &&
         FSS_load_font(st, path.c_str(), nullptr, 0, sizeof name, name) == 0 &&
         FSS_set_font(st, name) == 0 && FSS_set_cmap(st, 3, 10) == 0;
}

double nanosSince(std::chrono::steady_clock::time_point t0) {
  return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count();
}

}  // namespace

static void BM_LinkedMapChar(benchmark::State& state) {
  char folder[] = "/tmp/ltt_bench-XXXXXX";
  if (mkdtemp(folder) == nullptr) {
    state.SkipWithError("no temporary folder");
    return;
  }
  std::string link = std::string(folder) + "/three.ltt";
  testsupport::writeFileBytes(link, testsupport::linkedSet().build());
  FT_Library lib;
  FT_Init_FreeType(&lib);
  std::vector<FS_ULONG> codes[3];
  size_t total = 0;
  for (int i = 0; i < 3; i++) {
    codes[i] = codesOf(lib, testsupport::linkedPath(i));
    total += codes[i].size();
  }
  FT_Done_FreeType(lib);
  FS_STATE set, alone[3];
  bool ok = open(&set, link);
  for (FS_STATE& a : alone) ok = ok && open(&a, testsupport::linkedPath((int)(&a - alone)));
  unlink(link.c_str());
  rmdir(folder);
  if (!ok || total == 0) {
    state.SkipWithError("the linked font or a component could not be set");
    return;
  }
  double setNs = 0, aloneNs = 0;
  FS_ULONG sum = 0;
  for (auto _ : state) {
    auto t0 = std::chrono::steady_clock::now();
    for (const auto& list : codes)
      for (FS_ULONG c : list) sum += FSS_map_char(&set, c);
    setNs += nanosSince(t0);
    t0 = std::chrono::steady_clock::now();
    for (int i = 0; i < 3; i++)
      for (FS_ULONG c : codes[i]) sum += FSS_map_char(&alone[i], c);
    aloneNs += nanosSince(t0);
    benchmark::DoNotOptimize(sum);
  }
  double n = (double)state.iterations() * (double)total;
  state.counters["codes"] = (double)total;
  state.counters["set_ns"] = setNs / n;
  state.counters["alone_ns"] = aloneNs / n;
  state.counters["set_to_alone"] = setNs / aloneNs;
  FSS_exit(&set);
  for (FS_STATE& a : alone) FSS_exit(&a);
}
BENCHMARK(BM_LinkedMapChar)->Unit(benchmark::kMillisecond);
