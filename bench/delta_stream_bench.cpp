// The same 500 corrections (a pixels-per-em from 9 to 56, a point, 1 to 8
// eighths of a pixel either way) on one glyph of 40 points, as a delta
// stream of AA 252 fetched by the engine, and as DELTAP1 to DELTAP3 pairs
// fetched by libfreetype's version 35 monochrome hinting (the yardstick
// only), in the same run at 20 pixels per em. The counters give
// microseconds of the thread's time a fetch of both, the engine's time as a multiple of
// libfreetype's, and the two programs' sizes in bytes; also the engine's
// own fetch of the DELTAP glyph, which is the check that both say the same.
#include <benchmark/benchmark.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_DRIVER_H
#include FT_MODULE_H

#include <string.h>
#include <time.h>

#include <random>
#include <set>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_font.h"
#include "Orvex_internal/fs_glue.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_scale.h"
#include "support/delta_stream.h"
#include "support/glyf_font.h"

namespace {

const int kPpem = 20, kPoints = 40;

// The two programs: glyph 0 the stream, glyph 1 the DELTAP pairs.
std::vector<sfnt::Bytes> programs() {
  std::mt19937 rng(252);
  std::set<std::pair<int, int>> used;  // (ppem, point)
  std::vector<std::vector<uint8_t>> pairs(3);
  std::vector<deltastream::Act> acts;
  while (used.size() < 500) {
    int ppem = 9 + (int)(rng() % 48), point = (int)(rng() % kPoints), s = 1 + (int)(rng() % 8);
    if (rng() & 1) s = -s;
    if (!used.insert({ppem, point}).second) continue;
    // DELTAP: size above base 9 (and 16, 32) in the high nibble, the
    // amount's selector -8..-1 as 0..7, 1..8 as 8..15; eighths of a pixel.
    int k = (ppem - 9) / 16;
    pairs[k].push_back((uint8_t)(((ppem - 9 - 16 * k) << 4) | (s < 0 ? s + 8 : s + 7)));
    pairs[k].push_back((uint8_t)point);
    // The stream: steps of an eighth (g 13) over a base of -8, zero skipped.
    acts.push_back({8, ppem, 1, point, s < 0 ? s + 8 : s + 7});
  }
  deltastream::Writer w;
  deltastream::deltaPart(w, 13, -8, acts);
  sfnt::Bytes stream = deltastream::program(w.stream(), 252), deltas;
  const uint8_t kOps[3] = {0x5D, 0x71, 0x72};
  for (int k = 0; k < 3; k++) {
    std::vector<std::pair<uint8_t, uint8_t>> sorted;  // ascending by the size byte
    for (size_t i = 0; i < pairs[k].size(); i += 2) sorted.push_back({pairs[k][i], pairs[k][i + 1]});
    std::sort(sorted.begin(), sorted.end());
    std::vector<uint8_t> values;
    for (auto& p : sorted) values.push_back(p.first), values.push_back(p.second);
    values.push_back((uint8_t)sorted.size());
    for (size_t at = 0; at < values.size(); at += 255) {
      size_t n = std::min<size_t>(255, values.size() - at);
      deltas.push_back(0x40), deltas.push_back((uint8_t)n);
      deltas.insert(deltas.end(), values.begin() + at, values.begin() + at + n);
    }
    deltas.push_back(kOps[k]);
  }
  return {stream, deltas};
}

// Ten squares of four points, 100 units apart.
sfnt::Bytes font(const std::vector<sfnt::Bytes>& pgms) {
  std::vector<int> ends;
  std::vector<glyffont::Pt> pts;
  for (int c = 0; c < kPoints / 4; c++) {
    int x = 100 * c;
    for (glyffont::Pt p : {glyffont::Pt{x, 0, true}, {x + 50, 0, true}, {x + 50, 700, true}, {x, 700, true}}) pts.push_back(p);
    ends.push_back(4 * c + 3);
  }
  sfnt::Font f = glyffont::font({glyffont::simple(ends, pts, pgms[0]), glyffont::simple(ends, pts, pgms[1])}, {}, kPoints,
                                kPoints / 4);
  sfnt::Bytes maxp = *f.find("maxp");
  sfnt::putU16(maxp, 24, 1000);  // maxStackElements
  glyffont::setPrograms(f, {}, {}, {}, maxp, kPoints, (uint32_t)std::max(pgms[0].size(), pgms[1].size()));
  return sfnt::build(f);
}

// The thread's own time: other work on the machine leaves it be.
double now() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return (double)t.tv_sec + t.tv_nsec * 1e-9;
}

}  // namespace

static void BM_DeltaStreamVsDeltapOfFreetype(benchmark::State& state) {
  std::vector<sfnt::Bytes> pgms = programs();
  sfnt::Bytes bytes = font(pgms);
  FS_STATE st;
  FILECHAR name[64];
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  unsigned version = 35;
  if (FSS_init(&st, 64u << 20) != 0) return state.SkipWithError("no engine");
  if (FSS_load_font_with_offset(&st, nullptr, bytes.data(), 0, 0, (FS_ULONG)bytes.size(), sizeof name, name) != 0 ||
      FSS_set_font(&st, name) != 0 || FSS_set_scale(&st, kPpem << 16, 0, 0, kPpem << 16) != 0 || check_sfnt(&st) != 0 ||
      FT_Init_FreeType(&lib) != 0 || FT_Property_Set(lib, "truetype", "interpreter-version", &version) != 0 ||
      FT_New_Memory_Face(lib, bytes.data(), (FT_Long)bytes.size(), 0, &face) != 0 ||
      FT_Set_Pixel_Sizes(face, 0, kPpem) != 0) {
    FSS_exit(&st);
    return state.SkipWithError("the font could not be scaled");
  }
  fsg_SplineKey* key = (fsg_SplineKey*)st.cur_sfnt->senv->ttkey;
  std::vector<F26DOT6> points[2];
  for (int g = 0; g < 2; g++) {
    key->glyphIndex = (FS_USHORT)g;
    fsg_GridFit(&st, key, 1);
    points[g].assign(fsg_glyph_element(key)->x, fsg_glyph_element(key)->x + kPoints);
  }
  if (points[0] != points[1]) state.SkipWithError("the stream and the DELTAP pairs disagree");
  double engine = 0, freetype = 0, engineDeltap = 0;
  long sum = 0;
  for (auto _ : state) {
    double t0 = now();
    key->glyphIndex = 0;
    sum += fsg_GridFit(&st, key, 1) + fsg_glyph_element(key)->x[0];
    double t1 = now();
    FT_Load_Glyph(face, 1, FT_LOAD_TARGET_MONO | FT_LOAD_NO_AUTOHINT | FT_LOAD_NO_BITMAP);
    sum += face->glyph->outline.points[0].x;
    double t2 = now();
    key->glyphIndex = 1;
    sum += fsg_GridFit(&st, key, 1) + fsg_glyph_element(key)->x[0];
    engine += t1 - t0;
    freetype += t2 - t1;
    engineDeltap += now() - t2;
    benchmark::DoNotOptimize(sum);
  }
  state.counters["engine_stream_us"] = 1e6 * engine / (double)state.iterations();
  state.counters["freetype_deltap_us"] = 1e6 * freetype / (double)state.iterations();
  state.counters["engine_to_freetype"] = engine / freetype;
  state.counters["engine_deltap_us"] = 1e6 * engineDeltap / (double)state.iterations();
  state.counters["stream_bytes"] = (double)pgms[0].size();
  state.counters["deltap_bytes"] = (double)pgms[1].size();
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
  FSS_exit(&st);
}
BENCHMARK(BM_DeltaStreamVsDeltapOfFreetype)->Unit(benchmark::kMicrosecond);
