// The distance-field render up to the band: set-up of a 20x20 pixel square at
// (10.25, 10.25) worked by hand (pixels as font units, em 24.0, 24 pt at
// 72 dpi) and where its samples land; curves flattened at hand-worked
// points; winding of hand-drawn shapes; a fuzz of set-up and buffers on
// random pen lists; a heap budget sweep.
#include "Orvex_internal/adfimplicitfixed.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include "Orvex_internal/engine_fixture.h"
#include "Orvex_internal/fs_err.h"

namespace {

const ADF_I32 F = 65536;

// A path of closed polygons, (x, y) pairs in font units.
ADFPath polygons(std::vector<ADFPenCmd>& cmds, const std::vector<std::vector<ADF_I32>>& polys) {
  ADFPath path = {0, 0, INT32_MAX, INT32_MAX, INT32_MIN, INT32_MIN, 24 * F, 0, 0, 0, 0, 0};
  for (const auto& p : polys)
    for (size_t k = 0; k < p.size(); k += 2) {
      cmds.push_back({k ? 1u : 0u, p[k], p[k + 1], 0, 0, 0, 0});
      path.glyphMinX = std::min(path.glyphMinX, p[k]), path.glyphMaxX = std::max(path.glyphMaxX, p[k]);
      path.glyphMinY = std::min(path.glyphMinY, p[k + 1]), path.glyphMaxY = std::max(path.glyphMaxY, p[k + 1]);
    }
  path.numPenCmds = (ADF_U32)cmds.size(), path.penCmds = cmds.data();
  return path;
}

ADFRenderAttrs attrs(ADF_I32 ppem, ADF_U32 mode = 0) {
  ADFRenderAttrs a = {};
  a.pointSize = ppem * F, a.dpi = 72, a.scaleX = a.scaleY = F, a.displayMode = mode;
  return a;
}

TEST(AdfRenderSetup, SquareWorkedByHandAndSampledAtPixelCentres) {
  enginetest::Engine eng(1 << 20);
  void* inst = ADFInitSystem(&eng.st);
  const ADF_I32 a = 41 * F / 4, b = 121 * F / 4;
  std::vector<ADFPenCmd> c1, c2;
  const ADFPath sq = polygons(c1, {{a, a, a, b, b, b, b, a, a, a}});
  const ADFPath dot = polygons(c2, {{5 * F, 5 * F, 5 * F, 5 * F}});
  struct Row { const char* why; const ADFPath* shape; ADF_U32 mode; ADF_I32 scaleX, w, h, ox, oy; } rows[] = {
      // extent 20 * 1.4 = 28.0 (1835000 raw): scale 1/28 = 2340 raw; em
      // 24 * 2340 = 56160; ppem 24 * 910 * 72 = 1572480; a00 = ppem / em just
      // under 28.0; tx = 6.249 - 0.5 puts the origin at floor(6.249) = 6.
      {"grey", &sq, 0, F, 28, 28, 6, 5},
      {"horizontal stripes: 28 + 5/3 wide, origin floor(5.75 + 1/6)", &sq, 1, F, 29, 28, 5, 5},
      {"no extent counts as 1.0: 1.4 pixels", &dot, 0, F, 2, 2, 4, 3},
      {"scaleX 0", &sq, 0, 0, 0, 28, 0, 5}};
  for (const Row& r : rows) {
    ADFGlyph* adf = ADFGenerateADF(inst, r.shape);
    ADFRenderAttrs ra = attrs(24, r.mode);
    ra.scaleX = r.scaleX;
    ADFRenderGlyphData rgd; ADFRenderImageAttrs ria; ADFTypesetAttrs ta;
    ADFRenderSetup(adf, &ra, &rgd, &ria, &ta);
    EXPECT_TRUE(ria.imageW == r.w && ria.imageH == r.h && ria.imageOriginY == r.oy &&
                (ria.imageOriginX == r.ox || r.w == 0) && rgd.ppem == 1572480) << r.why;
    EXPECT_TRUE(r.shape != &sq || (adf->FUToADFScale == 2340 && adf->ADFUnitsPerEM == 56160));
    ADFImage image = {0, 0, ria.imageH, 0, nullptr, nullptr};
    ADFRenderGlyph(inst, adf, &rgd, &image);  // empty image: returns at once
    image.w = ria.imageW;
    if (r.mode == 0 && r.shape == &sq && r.w) {
      // Sample (i, j) is the centre of pixel column imageOriginX + i in the
      // pixel row with bottom edge imageOriginY + 1 + j: the square's
      // pixels 10..29 both ways, and only they, wind once.
      DistBuffer* dist = CreateDistBuffer(inst, &image, 0);
      InternPath* path = CreateInternPath(inst, adf, &rgd);
      ADF_I8* wnb = CreateWindingNumberBuffer(inst, dist);
      EXPECT_EQ(SetWindingNumberBuffer(path, dist, wnb), 0);
      for (ADF_U32 s = 0; s < dist->w * dist->h; s++) {
        const int col = ria.imageOriginX + s % dist->w, bottom = ria.imageOriginY + 1 + s / dist->w;
        const bool in = col >= 10 && col <= 29 && bottom >= 10 && bottom <= 29;
        ASSERT_EQ(wnb[s], in ? 1 : 0) << s;
        ASSERT_EQ(dist->base[s], in ? 128 * F : -128 * F) << s;
      }
      DestroyWindingNumberBuffer(inst, wnb), DestroyInternPath(inst, path), DestroyDistBuffer(inst, dist);
    }
    ADFDestroyADF(inst, adf);
  }
  ADFTermSystem(inst);
  EXPECT_EQ(eng.used(), enginetest::kInitCharge);
}

TEST(AdfFlattening, SegmentCountsAndPointsWorkedByHand) {
  const int runEnds[] = {1, 20, 103, 327, 799, 1023};  // the table's runs of 1..6
  for (int i = 0, v = 1; v <= 6; v++)
    for (; i <= runEnds[v - 1]; i++) ASSERT_EQ(curvesToLinesTable[i], v) << i;
  EXPECT_TRUE(rcpTable[0] == 0 && rcpTable[3] == 21845 && rcpTable[511] == 128);
  // A curve from (0, 0) to (20, 0) in samples (identity xform), controls
  // (cx, cy) and (cx2, cy2); the first segment's end.
  struct Row { const char* why; ADF_U32 op; ADF_I32 cx, cy, cx2, cy2; ADF_U32 segs; ADF_I32 x1, y1; } rows[] = {
      // d = 10: floor(sqrt(50)) + 1; point k is (2.5k, 0.3125 k (8 - k)).
      {"quadratic 10 off", 2, 10 * F, 10 * F, 0, 0, 8, 5 * F / 2, 35 * F / 16},
      // t = rcpTable[3] = 21845 stops short of 1/3: x = 20 t, y = t (2 - 2t).
      {"quadratic 1 off: table entry 32", 2, 10 * F, F, 0, 0, 3, 436900, 29126},
      {"quadratic 0.5 off: halving", 2, 10 * F, F / 2, 0, 0, 2, 10 * F, F / 4},
      {"control on the midpoint", 2, 10 * F, 0, 0, 0, 1, 20 * F, 0},
      // t = 541: x = 541 * 20, y = t (6000 - 6000 t) = 541 * 389970000 >> 16.
      {"3000 off: 24.8 overflows", 2, 10 * F, 3000 * F, 0, 0, 121, 10820, 3219204},
      {"cubic of 2: the cubic formula at t = 0.5", 3, 10 * F, F / 2, 10 * F, F / 2, 2, 10 * F, 3 * F / 8},
      // x = t (t (20 t - 30) + 30), each product floored (200/27 is 485451
      // raw); y = t (t (3 - 3t)).
      {"cubic, larger of two offsets", 3, 10 * F, 0, 10 * F, F, 3, 485446, 14563},
      {"opCode 6 is a quadratic", 6, 10 * F, F / 2, 0, 0, 2, 10 * F, F / 4}};
  enginetest::Engine eng(1 << 22);
  void* inst = ADFInitSystem(&eng.st);
  for (const Row& r : rows) {  // a glyph record by hand: move to (0, 0), the curve
    std::vector<char> block(60 + 2 * 28);
    ADFGlyph* g = (ADFGlyph*)block.data();
    *g = {ADF_GLYPH_VERSION, 116, 60, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    ADFGlyphPenCmds(g)[1] = {r.op, 20 * F, 0, r.cx, r.cy, r.cx2, r.cy2};
    ADFRenderGlyphData rgd = {{{F, 0, 0}, {0, F, 0}, {0, 0, F}}, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    InternPath* path = CreateInternPath(inst, g, &rgd);
    ASSERT_EQ(path->numPenCmds, 1 + r.segs) << r.why;
    const ADFPenCmdFx* p = path->penCmds;
    EXPECT_TRUE(p[1].x == r.x1 && p[1].y == r.y1 && p[r.segs].x == 20 * F && p[r.segs].y == 0 &&
                p[r.segs].opCode == 1) << r.why << ": " << p[1].x << "," << p[1].y;
    for (ADF_I32 k = 1; r.segs == 8 && k <= 8; k++)
      EXPECT_TRUE(p[k].x == 5 * F * k / 2 && p[k].y == 5 * F * k * (8 - k) / 16) << k;
    DestroyInternPath(inst, path);
  }
  ADFTermSystem(inst);
  EXPECT_EQ(eng.used(), enginetest::kInitCharge);
}

TEST(AdfWinding, HandDrawnShapes) {
  // Polygons in half samples: 3 is 1.5.
  const std::vector<int> sq = {3, 3, 3, 15, 15, 15, 15, 3, 3, 3}, sq2 = {9, 9, 9, 21, 21, 21, 21, 9, 9, 9},
                         rev = {3, 3, 15, 3, 15, 15, 3, 15, 3, 3}, outer = {3, 3, 3, 19, 19, 19, 19, 3, 3, 3},
                         hole = {7, 7, 11, 7, 11, 11, 7, 11, 7, 7};
  struct Row { const char* why; std::vector<std::vector<int>> polys; int ones, twos, overlap; bool rewound; } rows[] = {
      {"square: samples 2..7 both ways", {sq}, 36, 0, 0, false},
      {"like squares overlapping on 3x3", {sq, sq2}, 54, 9, 1, false},
      {"reversed square is rewound", {rev}, 36, 0, 0, true},
      {"square holding a reversed square", {outer, hole}, 60, 0, 0, false},
      // Sharing the side x = 1.5 at y = 4.0: row 4 is the lower one's only.
      {"triangles meeting at y = 4", {{3, 1, 3, 8, 15, 8, 3, 1}, {3, 8, 3, 15, 15, 8, 3, 8}}, 22, 0, 0, false}};
  enginetest::Engine eng(1 << 20);
  void* inst = ADFInitSystem(&eng.st);
  for (const Row& r : rows) {
    std::vector<ADFPenCmdFx> cmds;
    for (const auto& c : r.polys)
      for (size_t k = 0; k < c.size(); k += 2) cmds.push_back({k ? 1u : 0u, c[k] * F / 2, c[k + 1] * F / 2, 0, 0, 0, 0, 0, 0});
    const ADFPenCmdFx second = cmds[1];
    InternPath path = {0, 0, (ADF_U32)cmds.size(), cmds.data()};
    ADFImage image = {0, 12, 12, 0, nullptr, nullptr};
    DistBuffer* dist = CreateDistBuffer(inst, &image, 0);
    ADF_I8* wnb = CreateWindingNumberBuffer(inst, dist);
    EXPECT_EQ(SetWindingNumberBuffer(&path, dist, wnb), r.overlap) << r.why;
    int count[3] = {};  // samples winding 0, 1, 2 or more
    for (int s = 0; s < 144; s++) count[std::min<int>(wnb[s], 2)]++;
    EXPECT_TRUE(count[1] == r.ones && count[2] == r.twos) << r.why << ": " << count[1] << ", " << count[2];
    // Rewound, the move keeps its place and the old second point comes last.
    EXPECT_EQ(cmds[1].x != second.x || cmds[1].y != second.y, r.rewound) << r.why;
    EXPECT_TRUE(!r.rewound || (cmds[3].x == second.x && cmds[0].opCode == 0)) << r.why;
    DestroyWindingNumberBuffer(inst, wnb), DestroyDistBuffer(inst, dist);
  }
  ADFTermSystem(inst);
}

// One render of `path` on the client into an image of at most 300x300;
// returns the error left.
FS_ULONG renderOnce(FS_STATE* st, const ADFPath& path, ADFRenderAttrs a) {
  void* inst = ADFInitSystem(st);
  ADFGlyph* adf = inst ? ADFGenerateADF(inst, &path) : nullptr;
  FS_ULONG error = st->error;
  if (adf != nullptr) {
    ADFRenderGlyphData rgd; ADFRenderImageAttrs ria; ADFTypesetAttrs ta;
    ADFRenderSetup(adf, &a, &rgd, &ria, &ta);
    const ADF_U16 w = std::min<ADF_U16>(ria.imageW, 300), h = std::min<ADF_U16>(ria.imageH, 300);
    std::vector<ADF_U8> pixels((size_t)w * h * 4, 0xAB);
    ADFImage image = {1, w, h, 0, nullptr, pixels.data()};
    ADFRenderGlyph(inst, adf, &rgd, &image);
    error = st->error;
    ADFDestroyADF(inst, adf);
  }
  ADFTermSystem(inst);
  return error;
}

// Random opcodes and full 32-bit coordinates, empty, one-point and 100k-point
// lists, each mode, rotation, strokes, gamma and cut-offs 0, swapped or past
// +-20: errors only 201, the heap restored.
TEST(AdfRenderFuzz, RandomPenListsAllModes) {
  std::mt19937 rng(1933);
  enginetest::Engine eng(64 << 20);
  const ADF_U32 sizes[] = {0, 1, 2, 5, 40, 100000};
  for (int round = 0; round < 72; round++) {  // each mode with each size twice
    const bool wild = round % 12 < 6;        // full 32-bit or a 40-unit box
    auto coord = [&] { return wild ? (ADF_I32)rng() : (ADF_I32)(rng() % (40 * F)); };
    // Long lists of sane points draw a band over the whole image for every
    // segment: 400 of them say as much as 100k.
    std::vector<ADFPenCmd> cmds(!wild && round % 6 == 5 ? 400 : sizes[round % 6]);
    for (auto& c : cmds) c = {(ADF_U32)(rng() % 8), coord(), coord(), coord(), coord(), coord(), coord()};
    ADFPath path = {rng() % 3 == 0, (ADF_I32)(rng() % (8 * F)), wild ? coord() : 0, wild ? coord() : 0,
                    wild ? coord() : 40 * F, wild ? coord() : 40 * F, wild ? coord() : 48 * F,
                    0, 1, (ADF_U32)cmds.size(), cmds.data(), nullptr};
    ADFRenderAttrs a = attrs(0, round / 12);
    a.pointSize = (ADF_I32)(rng() % (200 * F)), a.penX = (ADF_I32)(rng() % (4 * F)), a.gridFitType = 3;
    a.rotationAngle = round % 5 == 0 ? (ADF_I32)rng() : 0, a.insideCutoff = (ADF_I32)rng(), a.outsideCutoff = (ADF_I32)rng();
    if (round % 4 == 1) a.insideCutoff = a.outsideCutoff = 0;
    a.gamma = round % 3 ? F : (ADF_I32)(rng() % (4 * F)), a.colorReductionAmt = (ADF_I32)rng();
    a.useColorReduction = round % 2;
    const FS_ULONG error = renderOnce(&eng.st, path, a);
    ASSERT_TRUE((error == 0 || error == ERR_MALLOC_FAIL) && eng.used() == enginetest::kInitCharge) << round;
  }
}

// Budgets grown from too small: each run succeeds or gives 201, and every
// byte comes back.
TEST(AdfRenderFuzz, HeapBudgetSweep) {
  std::vector<ADFPenCmd> cmds;
  ADFPath path = polygons(cmds, {{0, 0, 0, 20 * F, 20 * F, 0}, {5 * F, 5 * F, 5 * F, 15 * F, 15 * F, 5 * F, 5 * F, 5 * F}});
  cmds[2] = {2, 20 * F, 0, 30 * F, 30 * F, 0, 0};
  cmds.push_back({3, 0, 0, 10 * F, -9 * F, 5 * F, 5 * F});
  path.numPenCmds = (ADF_U32)cmds.size(), path.penCmds = cmds.data();
  int failures = 0;
  for (FS_ULONG budget = enginetest::kInitCharge + 8;; budget += 256, failures++) {
    enginetest::Engine eng(budget);
    const FS_ULONG error = renderOnce(&eng.st, path, attrs(48));
    ASSERT_TRUE((error == 0 || error == ERR_MALLOC_FAIL) && eng.used() == enginetest::kInitCharge) << budget;
    if (error == 0) break;
  }
  EXPECT_GT(failures, 10);
}

// A render of font-unit pen commands (em 24.0 at 24 pt, 72 dpi: a pixel is
// kS font units), through ADFRenderGlyph and again by its steps with the
// distances kept. Sample s stands at pixel-space (X(s), Y(s)).
const double kS = 65520.0 / 65536;
struct Render {
  std::vector<ADF_I1616> dist; std::vector<ADF_U8> pixels; ADFRenderImageAttrs ria; ADF_U32 dw, dh;
  double X(ADF_U32 s) const { return ria.imageOriginX + 0.5 + (double)(s % dw) * ria.imageW / dw; }
  double Y(ADF_U32 s) const { return ria.imageOriginY + 1.5 + (double)(s / dw) * ria.imageH / dh; }
};
Render renderKept(const ADFPath& path, double in, double out, ADF_U32 mode = 0, double penX = 0, double penY = 0,
                  ADF_U32 reduce = 0, ADF_I1616 amount = 0) {
  enginetest::Engine eng(16 << 20);
  void* inst = ADFInitSystem(&eng.st);
  ADFGlyph* adf = ADFGenerateADF(inst, &path);
  ADFRenderAttrs a = attrs(24, mode);
  a.insideCutoff = (ADF_I32)lround(in * F), a.outsideCutoff = (ADF_I32)lround(out * F), a.gamma = F;
  a.penX = (ADF_I32)lround(penX * F), a.penY = (ADF_I32)lround(penY * F), a.useColorReduction = reduce, a.colorReductionAmt = amount;
  Render r;
  ADFRenderGlyphData rgd; ADFTypesetAttrs ta;
  ADFRenderSetup(adf, &a, &rgd, &r.ria, &ta);
  ADFImage* image = ADFCreateImage(inst, mode ? 1 : 0, r.ria.imageW, r.ria.imageH, 0);
  ADFRenderGlyph(inst, adf, &rgd, image);
  r.pixels.assign(image->base, image->base + (size_t)image->w * image->h * (mode ? 4 : 1));
  DistBuffer* db = CreateDistBuffer(inst, image, mode);
  InternPath* ip = CreateInternPath(inst, adf, &rgd);
  ADF_I8* wnb = path.pathType ? nullptr : CreateWindingNumberBuffer(inst, db);
  ADF_I1616* bcell = wnb && SetWindingNumberBuffer(ip, db, wnb) ? (ADF_I1616*)ADFCalloc(inst, 4 * db->w * db->h) : nullptr;
  if (!wnb) std::fill(db->base, db->base + db->w * db->h, -128 * F), rgd.outsideCutoff -= ip->pathWidth / 2;
  (rgd.insideCutoff > F || rgd.outsideCutoff < -2 * F ? ProcessBoundaryCells_rect : ProcessBoundaryCells_trap)(ip, &rgd, db, wnb, bcell);
  r.dist.assign(db->base, db->base + db->w * db->h), r.dw = db->w, r.dh = db->h;
  ADFFree(inst, bcell), ADFFree(inst, wnb), DestroyInternPath(inst, ip), DestroyDistBuffer(inst, db);
  ADFDestroyImage(inst, image), ADFDestroyADF(inst, adf), ADFTermSystem(inst);
  EXPECT_EQ(eng.used(), enginetest::kInitCharge);
  return r;
}

// Distance of (x, y) from the segment (ax, ay)-(bx, by).
double segment(double x, double y, double ax, double ay, double bx, double by) {
  const double dx = bx - ax, dy = by - ay, t = std::max(0.0, std::min(1.0, ((x - ax) * dx + (y - ay) * dy) / (dx * dx + dy * dy)));
  return std::hypot(x - ax - t * dx, y - ay - t * dy);
}

ADFPath pathOf(std::vector<ADFPenCmd>& cmds, const std::vector<std::vector<double>>& polys) {
  std::vector<std::vector<ADF_I32>> fixed(polys.size());
  for (size_t k = 0; k < polys.size(); k++)
    for (double v : polys[k]) fixed[k].push_back((ADF_I32)lround(v * F));
  return polygons(cmds, fixed);
}

// A circle of radius R at (20.3, 20.3) in 16 quadratic arcs.
ADFPath circle(std::vector<ADFPenCmd>& cmds, double R) {
  const double c = 20.3, step = M_PI / 8, m = R / std::cos(step / 2);
  ADFPath path = pathOf(cmds, {{c + R, c}});
  auto at = [&](double r, double angle, int axis) { return (ADF_I32)lround((c + r * (axis ? std::sin(angle) : std::cos(angle))) * F); };
  for (int k = 1; k <= 16; k++)
    cmds.push_back({2, at(R, k * step, 0), at(R, k * step, 1), at(m, (k - 0.5) * step, 0), at(m, (k - 0.5) * step, 1), 0, 0});
  path.glyphMinX = path.glyphMinY = at(-R, 0, 0), path.glyphMaxX = path.glyphMaxY = at(R, 0, 0);
  path.numPenCmds = (ADF_U32)cmds.size(), path.penCmds = cmds.data();
  return path;
}

const std::vector<double> kSquare = {10.25, 10.25, 10.25, 30.25, 30.25, 30.25, 30.25, 10.25, 10.25, 10.25};

// Distances d in the band against the expected e, and densities within a
// level of the ramp of d. Outside, |d| lies in [low |e| - tol, |e| + tol]
// (low < 1 where squared corners read less than the Euclidean distance).
TEST(AdfBoundaryCells, DistancesOfShapesWorkedByHand) {
  auto square = [](double x, double y) {  // nearest side inside, minus Chebyshev outside
    return std::min(std::min(x - 10.25 * kS, 30.25 * kS - x), std::min(y - 10.25 * kS, 30.25 * kS - y));
  };
  auto round = [](double x, double y) { return 10 * kS - std::hypot(x - 20.3 * kS, y - 20.3 * kS); };
  auto capsule = [](double x, double y) { return 2 - kS * segment(x / kS, y / kS, 15.3, 20.3, 30.3, 25.3); };
  auto diamond = [](double x, double y) {  // folded onto the quarter from (30.3, 20.3) to (20.3, 35.3)
    const double u = std::fabs(x / kS - 20.3) + 20.3, v = std::fabs(y / kS - 20.3) + 20.3;
    return (1.5 * u + v < 65.75 ? kS : -kS) * segment(u, v, 30.3, 20.3, 20.3, 35.3);
  };
  std::vector<ADFPenCmd> c1, c2, c3, c4;
  const ADFPath sq = pathOf(c1, {kSquare}), rh = pathOf(c2, {{20.3, 5.3, 10.3, 20.3, 20.3, 35.3, 30.3, 20.3, 20.3, 5.3}}), ci = circle(c3, 10);
  ADFPath stroke = pathOf(c4, {{15.3, 20.3, 30.3, 25.3}});
  stroke.pathType = ADF_PATH_STROKE, stroke.pathWidth = 4 * F;
  struct Row { const char* why; const ADFPath* path; std::function<double(double, double)> e; double in, out, tol, low; } rows[] = {
      {"square, rectangle style", &sq, square, 4, -4, 0.004, 1},
      {"square, trapezoid style", &sq, square, 0.5, -0.5, 0.004, 1},
      {"square, trapezoid style at the default CSM", &sq, square, 0.4, -0.56, 0.004, 1},
      // Flattened circle points on a diagonal are squared (equal legs).
      {"circle, rectangle style", &ci, round, 3, -3, 0.12, 0.7},
      {"circle, trapezoid style", &ci, round, 0.5, -0.5, 0.12, 1},
      {"rhombus: round outer corners", &rh, diamond, 3, -3, 0.12, 1},
      {"stroke 4 wide: a capsule", &stroke, capsule, 0.5, -0.5, 0.004, 1}};
  for (const Row& row : rows) {
    const Render r = renderKept(*row.path, row.in, row.out);
    const double shift = row.path->pathType ? 2 : 0;  // a stroke's d counts from its centre line
    const double fr = std::max(std::fabs(row.in - shift), std::fabs(row.out - shift));
    int band = 0;
    for (ADF_U32 s = 0; s < r.dist.size(); s++) {
      const double e = row.e(r.X(s), r.Y(s)), d = r.dist[s] / 65536.0 + shift;
      ASSERT_NEAR(r.pixels[s], std::max(0.0, std::min(255.0, std::floor(255 * (d - row.out) / (row.in - row.out)))), 1)
          << row.why << " at " << r.X(s) << "," << r.Y(s);
      if (std::fabs(e - shift) > fr - 0.15) continue;
      band++;
      ASSERT_TRUE(e > 0 ? std::fabs(d - e) <= row.tol : -d >= row.low * -e - (row.low < 1 ? 0 : row.tol) && -d <= -e + row.tol)
          << row.why << " at " << r.X(s) << "," << r.Y(s) << ": " << d << " for " << e;
    }
    EXPECT_GT(band, 20) << row.why;
  }
}

// Two overlapping squares against their union's outline: the same in
// trapezoid style (at 1.0 the band reaches samples inside both); in
// rectangle style (no overlap rule at corners) away from the inner vertices
// and crossings.
TEST(AdfBoundaryCells, OverlapsRenderAsTheirUnion) {
  const std::vector<double> b = {20.3, 15.4, 20.3, 25.4, 40.3, 25.4, 40.3, 15.4, 20.3, 15.4},
                            u = {10.25, 10.25, 10.25, 30.25, 30.25, 30.25, 30.25, 25.4, 40.3, 25.4, 40.3, 15.4, 30.25, 15.4, 30.25, 10.25, 10.25, 10.25};
  const double inner[4][2] = {{20.3, 15.4}, {20.3, 25.4}, {30.25, 25.4}, {30.25, 15.4}};
  for (double cut : {0.5, 1.0, 4.0}) {
    std::vector<ADFPenCmd> c1, c2;
    const Render two = renderKept(pathOf(c1, {kSquare, b}), cut, -cut), one = renderKept(pathOf(c2, {u}), cut, -cut);
    ASSERT_EQ(two.pixels.size(), one.pixels.size());
    for (ADF_U32 s = 0; s < one.pixels.size(); s++) {
      bool near = false;
      for (const auto& p : inner) near = near || std::hypot(one.X(s) - p[0] * kS, one.Y(s) - p[1] * kS) <= std::sqrt(2) * cut;
      ASSERT_TRUE((cut > 1 && near) || two.pixels[s] == one.pixels[s]) << cut << " at " << one.X(s) << "," << one.Y(s);
    }
  }
}

// The stripes against grey renders with the pen moved a third of a pixel:
// horizontal stripes read red, green, blue at pen x +1/3, 0, -1/3, vertical
// ones at pen y -1/3, 0, +1/3; the first red (blue) of a row (column) is 0.
// Colour reduction at amount 1.0 gives every pixel its luminance; mode 2
// never reduces.
TEST(AdfDensityImage, StripesAreGreyRendersAThirdApart) {
  std::vector<ADFPenCmd> cmds;
  const ADFPath path = circle(cmds, 6);
  const double third = 21845.0 / F;
  for (ADF_U32 mode : {1u, 3u, 4u}) {
    const bool h = mode == 1;
    const Render lcd = renderKept(path, 0.5, -0.5, mode);
    Render grey[3];
    for (int k = 0; k < 3; k++) grey[k] = renderKept(path, 0.5, -0.5, 0, h ? third * (1 - k) : 0, h ? 0 : third * (k - 1));
    const int W = lcd.ria.imageW;
    for (int s = 0; s < W * lcd.ria.imageH; s++) {
      const ADF_U8* p = &lcd.pixels[4 * s];
      for (int k = 0; k < 3; k++) {
        const Render& g = grey[k];
        const int i = lcd.ria.imageOriginX + s % W - g.ria.imageOriginX, j = lcd.ria.imageOriginY + s / W - g.ria.imageOriginY;
        const bool first = h ? (k == 0 && s % W == 0) : (k == 2 && s < W);
        const int want = i >= 0 && j >= 0 && i < g.ria.imageW && j < g.ria.imageH && !first ? g.pixels[j * g.ria.imageW + i] : 0;
        ASSERT_NEAR(p[k], want, first ? 0 : 1) << "mode " << mode << " channel " << k << " at " << s;
      }
      ASSERT_EQ(p[3], std::max({p[0], p[1], p[2]}));
    }
  }
  const Render plain = renderKept(path, 0.5, -0.5, 1), toY = renderKept(path, 0.5, -0.5, 1, 0, 0, 1, F),
               two = renderKept(path, 0.5, -0.5, 2, 0, 0, 1, F);
  int coloured = 0;
  for (size_t s = 0; s < plain.pixels.size(); s += 4) {
    const ADF_U8* p = &plain.pixels[s];
    const bool grey = p[0] == p[1] && p[1] == p[2];
    coloured += !grey;
    for (int k = 0; k < 4; k++)
      ASSERT_TRUE(toY.pixels[s + k] == (grey ? p[k] : yuvRedTable[p[0]] + yuvGreenTable[p[1]] + yuvBlueTable[p[2]]) &&
                  two.pixels[s + k] == p[k]) << s;
  }
  EXPECT_GT(coloured, 20);
}

}  // namespace
