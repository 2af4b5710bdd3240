// The implicit render up to the band: curves flattened at hand-worked
// points, winding buffers of hand-drawn shapes, a fuzz of set-up and buffers
// on random pen lists, and a heap budget sweep.
#include "Orvex_internal/adfimplicitfixed.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"

namespace {

const ADF_I32 F = 65536;

// A glyph record built by hand, whose ADF units are samples (identity xform).
struct HandGlyph {
  std::vector<char> block;
  ADFRenderGlyphData rgd = {};
  explicit HandGlyph(const std::vector<ADFPenCmd>& cmds) {
    block.resize(60 + 28 * cmds.size());
    ADFGlyph* g = glyph();
    g->version = ADF_GLYPH_VERSION;
    g->rootOffset = 60;
    g->numCells = (ADF_U32)cmds.size();
    std::copy(cmds.begin(), cmds.end(), ADFGlyphPenCmds(g));
    rgd.xform[0][0] = rgd.xform[1][1] = rgd.xform[2][2] = F;
  }
  ADFGlyph* glyph() { return (ADFGlyph*)block.data(); }
};

// A curve from (0, 0) to (20, 0) with controls (cx, cy), (cx2, cy2).
struct FlatRow {
  const char* why;
  ADF_U32 op;
  ADF_I32 cx, cy, cx2, cy2;
  ADF_U32 segs;
  ADF_I32 firstX, firstY;  // the first segment's end
};

TEST(AdfFlattening, SegmentCountsAndPointsWorkedByHand) {
  enginetest::Engine eng(1 << 22);
  void* inst = ADFInitSystem(&eng.st);
  const FlatRow rows[] = {
      // d = 10: floor(sqrt(50)) + 1; point k is (2.5k, 0.3125 k (8 - k)).
      {"quadratic 10 off", 2, 10 * F, 10 * F, 0, 0, 8, 5 * F / 2, 35 * F / 16},
      // t = rcpTable[3] = 21845 stops short of 1/3: x = 20 t, y = t (2 - 2t).
      {"quadratic 1 off: table entry 32", 2, 10 * F, F, 0, 0, 3, 436900, 29126},
      {"quadratic 0.5 off: halving", 2, 10 * F, F / 2, 0, 0, 2, 10 * F, F / 4},
      {"control on the midpoint", 2, 10 * F, 0, 0, 0, 1, 20 * F, 0},
      // t = 541: x = 541 * 20, y = t (6000 - 6000 t) = 541 * 389970000 >> 16.
      {"3000 off: 24.8 overflows", 2, 10 * F, 3000 * F, 0, 0, 121, 10820, 3219204},
      {"cubic of 2: the cubic formula at t = 0.5", 3, 10 * F, F / 2, 10 * F, F / 2,
       2, 10 * F, 3 * F / 8},
      // A = 20, B = -30, C = 30 in x: t (t (20 t - 30) + 30), each product
      // floored (exactly 200/27 = 485451 raw); y: t (t (3 - 3t)).
      {"cubic, larger of two offsets", 3, 10 * F, 0, 10 * F, F, 3, 485446, 14563},
      {"opCode 6 is a quadratic", 6, 10 * F, F / 2, 0, 0, 2, 10 * F, F / 4}};
  for (const FlatRow& r : rows) {
    HandGlyph g({{0, 0, 0, 0, 0, 0, 0}, {r.op, 20 * F, 0, r.cx, r.cy, r.cx2, r.cy2}});
    InternPath* path = CreateInternPath(inst, g.glyph(), &g.rgd);
    ASSERT_NE(path, nullptr) << r.why;
    ASSERT_EQ(path->numPenCmds, 1 + r.segs) << r.why;
    EXPECT_EQ(path->penCmds[1].x, r.firstX) << r.why;
    EXPECT_EQ(path->penCmds[1].y, r.firstY) << r.why;
    EXPECT_EQ(path->penCmds[r.segs].x, 20 * F) << r.why;
    EXPECT_EQ(path->penCmds[r.segs].y, 0) << r.why;
    for (ADF_U32 k = 1; k <= r.segs; k++) EXPECT_EQ(path->penCmds[k].opCode, 1u);
    if (r.segs == 8)
      for (ADF_I32 k = 1; k <= 8; k++) {
        EXPECT_EQ(path->penCmds[k].x, 5 * F * k / 2);
        EXPECT_EQ(path->penCmds[k].y, 5 * F * k * (8 - k) / 16);
      }
    DestroyInternPath(inst, path);
  }
  ADFTermSystem(inst);
  EXPECT_EQ(eng.used(), enginetest::kInitCharge);
}

// Closed polygons in samples, (x, y) pairs of halves: 3 is 1.5.
typedef std::vector<std::vector<int>> Shape;
struct WindRow {
  const char* why;
  Shape contours;
  int ones, twos, overlap;
  bool rewound;
};

TEST(AdfWinding, HandDrawnShapes) {
  const std::vector<int> sq = {3, 3, 3, 15, 15, 15, 15, 3, 3, 3};  // 6x6 samples
  const std::vector<int> sq2 = {9, 9, 9, 21, 21, 21, 21, 9, 9, 9};
  const std::vector<int> rev = {3, 3, 15, 3, 15, 15, 3, 15, 3, 3};
  const std::vector<int> outer = {3, 3, 3, 19, 19, 19, 19, 3, 3, 3};  // 8x8
  const std::vector<int> hole = {7, 7, 11, 7, 11, 11, 7, 11, 7, 7};   // 2x2
  const WindRow rows[] = {
      {"square: samples 2..7 both ways", {sq}, 36, 0, 0, false},
      {"like squares overlapping on 3x3", {sq, sq2}, 54, 9, 1, false},
      {"reversed square is rewound", {rev}, 36, 0, 0, true},
      {"square holding a reversed square", {outer, hole}, 60, 0, 0, false},
      // Triangles sharing (1.5, 4.0): row 4 is counted by the lower one only.
      {"triangles meeting at y = 4", {{3, 1, 3, 8, 15, 8, 3, 1}, {3, 8, 3, 15, 15, 8, 3, 8}},
       22, 0, 0, false}};
  enginetest::Engine eng(1 << 20);
  void* inst = ADFInitSystem(&eng.st);
  for (const WindRow& r : rows) {
    std::vector<ADFPenCmdFx> cmds;
    for (const auto& c : r.contours)
      for (size_t k = 0; k < c.size(); k += 2)
        cmds.push_back({k ? 1u : 0u, c[k] * F / 2, c[k + 1] * F / 2, 0, 0, 0, 0, 0, 0});
    const ADFPenCmdFx second = cmds[1];
    InternPath path = {0, 0, (ADF_U32)cmds.size(), cmds.data()};
    ADFImage image = {0, 12, 12, 0, nullptr, nullptr};
    DistBuffer* dist = CreateDistBuffer(inst, &image, 0);
    ADF_I8* wnb = CreateWindingNumberBuffer(inst, dist);
    EXPECT_EQ(SetWindingNumberBuffer(&path, dist, wnb), r.overlap) << r.why;
    int count[3] = {};
    for (int s = 0; s < 144; s++) count[std::min<int>(wnb[s], 2)]++;
    EXPECT_EQ(count[1], r.ones) << r.why;
    EXPECT_EQ(count[2], r.twos) << r.why;
    EXPECT_EQ(cmds[1].x != second.x || cmds[1].y != second.y, r.rewound) << r.why;
    if (r.rewound) {
      EXPECT_EQ(cmds[3].x, second.x) << "the move takes the last point";
    }
    DestroyWindingNumberBuffer(inst, wnb);
    DestroyDistBuffer(inst, dist);
  }
  ADFTermSystem(inst);
}

// One render of `path` in `mode` on the client; returns the error left.
FS_ULONG renderOnce(FS_STATE* st, const ADFPath& path, ADFRenderAttrs a) {
  void* inst = ADFInitSystem(st);
  if (inst == nullptr) return st->error;
  ADFGlyph* adf = ADFGenerateADF(inst, &path);
  FS_ULONG error = st->error;
  if (adf != nullptr) {
    ADFRenderGlyphData rgd;
    ADFRenderImageAttrs ria;
    ADFTypesetAttrs ta;
    ADFRenderSetup(adf, &a, &rgd, &ria, &ta);
    const ADF_U16 w = std::min<ADF_U16>(ria.imageW, 300), h = std::min<ADF_U16>(ria.imageH, 300);
    std::vector<ADF_U8> pixels((size_t)w * h * 4 + 1, 0xAB);
    ADFImage image = {1, w, h, 0, nullptr, pixels.data()};
    ADFRenderGlyph(inst, adf, &rgd, &image);
    error = st->error;
    for (size_t k = 0; k + 1 < pixels.size(); k++)
      if (pixels[k] != 0) return 999;  // the image stays cleared
    ADFDestroyADF(inst, adf);
  }
  ADFTermSystem(inst);
  return error;
}

// Random opcodes and full 32-bit coordinates, empty, one-point and 100k-point
// lists, all modes, rotation and strokes: errors only 201, the heap restored.
TEST(AdfRenderFuzz, RandomPenListsAllModes) {
  std::mt19937 rng(1933);
  enginetest::Engine eng(64 << 20);
  const FS_ULONG start = eng.used();
  const ADF_U32 sizes[] = {0, 1, 2, 5, 40, 100000};
  for (int round = 0; round < 72; round++) {  // each mode with each size twice
    std::vector<ADFPenCmd> cmds(sizes[round % 6]);
    const bool wild = round % 12 < 6;  // full 32-bit or within a small box
    auto coord = [&] { return wild ? (ADF_I32)rng() : (ADF_I32)(rng() % (40 * F)); };
    for (auto& c : cmds) c = {(ADF_U32)(rng() % 8), coord(), coord(), coord(), coord(), coord(), coord()};
    ADFPath path = {};
    path.pathType = rng() % 3 == 0;
    path.pathWidth = (ADF_I32)(rng() % (8 * F));
    path.glyphMinX = path.glyphMinY = wild ? coord() : 0;
    path.glyphMaxX = path.glyphMaxY = wild ? coord() : 40 * F;
    path.fontUnitsPerEM = wild ? coord() : 48 * F;
    path.numPenCmds = (ADF_U32)cmds.size();
    path.penCmds = cmds.data();
    ADFRenderAttrs a = {};
    a.pointSize = (ADF_I32)(rng() % (200 * F));
    a.dpi = 72;
    a.scaleX = a.scaleY = F;
    a.rotationAngle = round % 5 == 0 ? (ADF_I32)rng() : 0;
    a.penX = (ADF_I32)(rng() % (4 * F));
    a.displayMode = round / 12;
    a.gridFitType = 3;
    a.insideCutoff = (ADF_I32)rng();
    a.outsideCutoff = (ADF_I32)rng();
    const FS_ULONG error = renderOnce(&eng.st, path, a);
    ASSERT_TRUE(error == 0 || error == ERR_MALLOC_FAIL) << round << ": " << error;
    ASSERT_EQ(eng.used(), start) << round;
  }
}

// Budgets grown from too small: each run succeeds or gives 201, and every
// byte comes back.
TEST(AdfRenderFuzz, HeapBudgetSweep) {
  std::vector<ADFPenCmd> cmds = {{0, 0, 0, 0, 0, 0, 0}, {1, 0, 20 * F, 0, 0, 0, 0},
                                 {2, 20 * F, 0, 30 * F, 30 * F, 0, 0},
                                 {3, 0, 0, 10 * F, -9 * F, 5 * F, 5 * F},
                                 {0, 5 * F, 5 * F, 0, 0, 0, 0}, {1, 5 * F, 15 * F, 0, 0, 0, 0},
                                 {1, 15 * F, 5 * F, 0, 0, 0, 0}, {1, 5 * F, 5 * F, 0, 0, 0, 0}};
  ADFPath path = {0, 0, 0, -9 * F, 30 * F, 30 * F, 48 * F, 0, 2, 8, cmds.data(), nullptr};
  ADFRenderAttrs a = {};
  a.pointSize = 48 * F, a.dpi = 72, a.scaleX = a.scaleY = F;
  int failures = 0;
  for (FS_ULONG budget = enginetest::kInitCharge + 8;; budget += 256) {
    enginetest::Engine eng(budget);
    ASSERT_TRUE(eng.started);
    const FS_ULONG start = eng.used();
    const FS_ULONG error = renderOnce(&eng.st, path, a);
    ASSERT_TRUE(error == 0 || error == ERR_MALLOC_FAIL) << budget;
    ASSERT_EQ(eng.used(), start) << budget;
    if (error == 0) break;
    failures++;
  }
  EXPECT_GT(failures, 10);
}

}  // namespace
