// Differential checks of the instruction interpreter against libfreetype
// (interpreter version 35, monochrome target), a test-only oracle: a probe
// font carries a real font's `fpgm`, `prep`, `cvt ` and `maxp` and one
// glyph whose program writes every control value and storage slot into a
// point's y with SCFS, so both engines show what the font's programs left;
// and generated programs of stack, arithmetic, logic, rounding, storage and
// control-value instructions, their results written the same way.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_DRIVER_H
#include FT_MODULE_H
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <vector>

#include "Orvex_internal/fs_ttf.h"
#include "support/glyf_font.h"
#include "support/scaled_font.h"
#include "support/test_support.h"

namespace {

using sfnt::Bytes;

const char* const kFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/dejavu/DejaVuSans-Oblique.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationMono-Regular.ttf"};

/* ---- Program bytes ---- */

void pushW(Bytes& p, int v) {
  p.push_back(0xB8);
  sfnt::u16(p, (uint32_t)(v & 0xFFFF));
}
void pushW2(Bytes& p, int a, int b) {
  p.push_back(0xB9);
  sfnt::u16(p, (uint32_t)(a & 0xFFFF));
  sfnt::u16(p, (uint32_t)(b & 0xFFFF));
}
const uint8_t SVTCA_Y = 0x00, SWAP = 0x23, RS = 0x43, WS = 0x42, RCVT = 0x45,
              WCVTP = 0x44, SCFS = 0x48;

// A probe font: the glyph of `points` points on one contour at the origin
// running `program`, beside the given programs, control values and `maxp`.
Bytes probeFont(const Bytes& head, const Bytes& fpgm, const Bytes& prep,
                const Bytes& cvt, const Bytes& maxp, int points,
                const Bytes& program) {
  std::vector<glyffont::Pt> pts((size_t)points, glyffont::Pt{0, 0, true});
  sfnt::Font f = glyffont::font({glyffont::simple({points - 1}, pts, program)});
  Bytes h = head;
  sfnt::putU16(h, 50, 1);  // the builder's long `loca`
  f.set("head", h);
  glyffont::setPrograms(f, fpgm, prep, cvt, maxp, (uint32_t)points,
                        (uint32_t)program.size());
  return sfnt::build(f);
}

// Both engines' y of every point of glyph 0 after its program, with our
// control values as scaled before `prep` (in `scaled`) and after.
struct BothRuns {
  std::vector<long> ours, theirs, scaled, cvt;
  FS_LONG ourError = 0;
  FT_Error theirError = 0;
};

BothRuns runBoth(FT_Library lib, const Bytes& font, int ppem, int points,
            const Bytes& program) {
  BothRuns r;
  testsupport::ScaledFont sf;
  sf.setFont("", font);
  r.ourError = sf.setPpem(ppem);
  if (r.ourError == 0) {
    fsg_SplineKey* key = sf.key();
    const F26DOT6* cvt =
        (const F26DOT6*)(key->memoryBases[3] + key->offset_controlValues);
    const FS_BYTE* raw = (const FS_BYTE*)((TTF*)sf.lfnt->fnt)->cvt;
    for (FS_LONG i = 0; i < key->cvtCount; i++) {
      r.cvt.push_back(cvt[i]);
      r.scaled.push_back(scale_value(&key->scaleCVT, (FS_SHORT)((raw[2 * i] << 8) | raw[2 * i + 1])));
    }
    fnt_ElementType* el = sf.element();
    el->np = (FS_SHORT)points;
    el->nc = 1;
    for (int i = 0; i < points + 8; i++)
      el->x[i] = el->y[i] = el->ox[i] = el->oy[i] = el->oox[i] = el->ooy[i] = 0, el->f[i] = 0;
    r.ourError = fsg_RunGlyphProgram(&sf.st, key, program.data(), (FS_ULONG)program.size());
    for (int i = 0; i < points; i++) r.ours.push_back(el->y[i]);
  }
  FT_Face face = nullptr;
  r.theirError = FT_New_Memory_Face(lib, font.data(), (FT_Long)font.size(), 0, &face);
  if (r.theirError == 0) r.theirError = FT_Set_Pixel_Sizes(face, 0, (FT_UInt)ppem);
  if (r.theirError == 0)
    r.theirError = FT_Load_Glyph(face, 0, FT_LOAD_TARGET_MONO | FT_LOAD_NO_AUTOHINT |
                                              FT_LOAD_NO_BITMAP);
  if (r.theirError == 0)
    for (int i = 0; i < face->glyph->outline.n_points; i++)
      r.theirs.push_back(face->glyph->outline.points[i].y);
  if (face) FT_Done_Face(face);
  return r;
}

struct Library {
  FT_Library lib = nullptr;
  Library() {
    FT_Init_FreeType(&lib);
    FT_UInt version = TT_INTERPRETER_VERSION_35;
    FT_Property_Set(lib, "truetype", "interpreter-version", &version);
  }
  ~Library() { FT_Done_FreeType(lib); }
};

TEST(PrepOracle, ControlValuesAndStorageAfterBothProgramsMatchLibfreetype) {
  Library ft;
  const int kSizes[] = {9, 12, 16, 24, 72, 144};
  for (const char* path : kFonts) {
    std::string file = testsupport::readBytes(path);
    ASSERT_FALSE(file.empty()) << "missing packaged font " << path;
    sfnt::Font real = sfnt::read(Bytes(file.begin(), file.end()));
    const Bytes* cvt = real.find("cvt ");
    const Bytes* maxp = real.find("maxp");
    ASSERT_TRUE(cvt && maxp && real.find("fpgm") && real.find("prep")) << path;
    int cvtCount = (int)cvt->size() / 2;
    int storage = (int)sfnt::getU16(*maxp, 18);
    int points = cvtCount + storage;
    Bytes program = {SVTCA_Y};
    for (int k = 0; k < cvtCount; k++) pushW2(program, k, k), program.push_back(RCVT), program.push_back(SCFS);
    for (int j = 0; j < storage; j++)
      pushW2(program, cvtCount + j, j), program.push_back(RS), program.push_back(SCFS);
    Bytes font = probeFont(*real.find("head"), *real.find("fpgm"), *real.find("prep"),
                           *cvt, *maxp, points, program);
    for (int ppem : kSizes) {
      std::string at = std::string(path) + " at " + std::to_string(ppem) + " ppem";
      BothRuns r = runBoth(ft.lib, font, ppem, points, program);
      ASSERT_EQ(0, r.ourError) << at;
      ASSERT_EQ(0, r.theirError) << at;
      ASSERT_EQ((size_t)points, r.ours.size()) << at;
      ASSERT_EQ(r.ours.size(), r.theirs.size()) << at;
      // Our scaler rounds an exact negative half up, libfreetype away from
      // zero (2048 units per em: raw x ppem / 32 ends in .5). Such an entry,
      // or one the program copied from it, reads exactly 1/64 higher.
      auto half = [&](int k) {
        int raw = (int16_t)sfnt::getU16(*cvt, 2 * k);
        return raw < 0 && (-raw * ppem) % 32 == 16;
      };
      std::set<long> halfValues;
      for (int k = 0; k < cvtCount; k++)
        if (half(k)) halfValues.insert(r.scaled[k]);
      int halves = 0, changed = 0;
      for (int k = 0; k < cvtCount; k++) {
        long diff = r.ours[k] - r.theirs[k];
        bool mayDiffer = half(k) || halfValues.count(r.ours[k]) > 0;
        EXPECT_EQ(mayDiffer && diff == 1 ? 1 : 0, diff) << at << " cvt " << k;
        EXPECT_EQ(r.cvt[k], r.ours[k]) << at << " cvt " << k;
        halves += diff == 1;
        changed += r.cvt[k] != r.scaled[k];
      }
      for (int j = 0; j < storage; j++)
        EXPECT_EQ(r.theirs[cvtCount + j], r.ours[cvtCount + j]) << at << " storage " << j;
      EXPECT_LE(halves, 8) << at;
      // Teeth: the control-value program does change the table.
      EXPECT_GE(changed, 20) << at;
      printf("%s: %d cvt entries changed by prep, %d halves\n", at.c_str(), changed, halves);
    }
  }
}

/* ---- Generated programs ---- */

// A program of stack, arithmetic, logic, rounding, storage and control-value
// instructions. The stack depth is tracked so that nothing is popped from
// an empty stack, and a bound on each value's magnitude so that nothing
// leaves 31 bits (the oracle's values are 64-bit). Every value left, every
// storage slot and every control value is written to a point.
struct Generator {
  std::mt19937 rng;
  Bytes p;
  std::vector<long> bounds;  // of the stack's values, deepest first
  long store[16], cvt[16];
  bool gridRounding = true;  // ODD and EVEN read the round state in the oracle
  static const long kLimit = 1L << 26;

  explicit Generator(unsigned seed) : rng(seed) {
    for (long& b : store) b = 0;
    for (long& b : cvt) b = 64 * 64;  // raw values below 1000 units, 144 ppem
  }
  int any(int n) { return (int)(rng() % (unsigned)n); }
  long top(int k = 0) { return bounds[bounds.size() - 1 - k]; }
  void replace(int popped, long bound) {
    bounds.resize(bounds.size() - popped);
    bounds.push_back(bound);
  }
  void value(int v) { pushW(p, v), bounds.push_back(std::abs(v)); }

  void step() {
    size_t d = bounds.size();
    switch (any(12)) {
      case 0:
        value(any(8193) - 4096);
        break;
      case 1: {  // unary
        if (d < 1) return value(any(200) - 100);
        static const uint8_t ops[] = {0x64, 0x65, 0x66, 0x67, 0x5C, 0x56, 0x57};
        uint8_t op = ops[any(7)];
        if ((op == 0x56 || op == 0x57) && !gridRounding) op = 0x5C;
        p.push_back(op);
        replace(1, op >= 0x66 && op <= 0x67 ? top() + 64 : op >= 0x64 ? top() : 1);
        break;
      }
      case 2: {  // round and no-round, each compensation number
        if (d < 1) return;
        p.push_back((uint8_t)((any(2) ? 0x68 : 0x6C) + any(4)));
        replace(1, top() + 128);
        break;
      }
      case 3: {  // a round state
        static const uint8_t states[] = {0x18, 0x19, 0x3D, 0x7A, 0x7C, 0x7D, 0x76};
        uint8_t s = states[any(7)];
        if (s == 0x76) p.push_back(0xB0), p.push_back((uint8_t)(any(3) << 6 | any(64)));
        p.push_back(s);
        gridRounding = s == 0x18;
        break;
      }
      case 4:
      case 5: {  // binary
        if (d < 2) return value(any(2001) - 1000);
        static const uint8_t ops[] = {0x60, 0x61, 0x63, 0x62, 0x8B, 0x8C, 0x50, 0x51,
                                      0x52, 0x53, 0x54, 0x55, 0x5A, 0x5B};
        uint8_t op = ops[any(14)];
        long a = top(1), b = top();
        long bound = op <= 0x61 ? a + b : op == 0x63 ? a * b / 64 + 1 : op >= 0x8B ? std::max(a, b) : 1;
        if (op == 0x62) {  // a divisor that is not 0
          int c = any(4096) + 1;
          if (a * 64 / c + 1 >= kLimit) return;
          p.push_back(0x21);  // POP the old divisor
          bounds.pop_back();
          value(any(2) ? c : -c);
          bound = a * 64 / c + 1;
        }
        if (bound >= kLimit) return;
        p.push_back(op);
        replace(2, bound);
        break;
      }
      case 6: {  // stack shuffles
        if (d < 3) return value(any(100));
        switch (any(6)) {
          case 0: p.push_back(0x20), bounds.push_back(top()); break;  // DUP
          case 1: p.push_back(SWAP), std::swap(bounds[d - 1], bounds[d - 2]); break;
          case 2: p.push_back(0x21), bounds.pop_back(); break;  // POP
          case 3: p.push_back(0x24), bounds.push_back((long)d); break;  // DEPTH
          case 4: {  // CINDEX, MINDEX
            int k = any((int)d) + 1;
            bool move = any(2);
            p.push_back(0xB0), p.push_back((uint8_t)k), p.push_back(move ? 0x26 : 0x25);
            long b = bounds[d - k];
            if (move) bounds.erase(bounds.end() - k);
            bounds.push_back(b);
            break;
          }
          default: {  // ROLL
            p.push_back(0x8A);
            long c = bounds[d - 3];
            bounds.erase(bounds.end() - 3);
            bounds.push_back(c);
          }
        }
        break;
      }
      case 7: {  // WS
        if (d < 1) return;
        int i = any(16);
        p.push_back(0xB0), p.push_back((uint8_t)i), p.push_back(SWAP), p.push_back(WS);
        store[i] = top();
        bounds.pop_back();
        break;
      }
      case 8: {  // RS
        int i = any(16);
        p.push_back(0xB0), p.push_back((uint8_t)i), p.push_back(RS);
        bounds.push_back(store[i]);
        break;
      }
      case 9: {  // WCVTP
        if (d < 1) return;
        int i = any(16);
        p.push_back(0xB0), p.push_back((uint8_t)i), p.push_back(SWAP), p.push_back(WCVTP);
        cvt[i] = top();
        bounds.pop_back();
        break;
      }
      case 10: {  // RCVT
        int i = any(16);
        p.push_back(0xB0), p.push_back((uint8_t)i), p.push_back(RCVT);
        bounds.push_back(cvt[i]);
        break;
      }
      default:
        if (d > 24) p.push_back(0x21), bounds.pop_back();
        break;
    }
  }

  // The program; `points` is how many values it writes.
  Bytes make(int steps, int* points) {
    p = {SVTCA_Y};
    for (int i = 0; i < steps; i++) step();
    int n = 0;
    while (!bounds.empty()) {  // value, then the point under it, SCFS
      p.push_back(0xB0), p.push_back((uint8_t)n++), p.push_back(SWAP), p.push_back(SCFS);
      bounds.pop_back();
    }
    for (int i = 0; i < 16; i++)
      pushW2(p, n++, i), p.push_back(RS), p.push_back(SCFS);
    for (int i = 0; i < 16; i++)
      pushW2(p, n++, i), p.push_back(RCVT), p.push_back(SCFS);
    *points = n;
    return p;
  }
};

TEST(PrepOracle, GeneratedArithmeticProgramsMatchLibfreetype) {
  Library ft;
  std::string file = testsupport::readBytes(kFonts[0]);
  ASSERT_FALSE(file.empty()) << "missing packaged font " << kFonts[0];
  sfnt::Font real = sfnt::read(Bytes(file.begin(), file.end()));
  Bytes cvt;
  // Multiples of 8 units scale to whole 26.6 values at 12 and 24 ppem: no
  // halves, which the two scalers round apart.
  for (int i = 0; i < 16; i++) sfnt::u16(cvt, (uint32_t)(8 * (i * 13 - 90)));
  Bytes maxp = *real.find("maxp");
  sfnt::putU16(maxp, 18, 16);   // maxStorage
  sfnt::putU16(maxp, 24, 128);  // maxStackElements
  int programs = 0;
  for (int ppem : {12, 24}) {
    for (unsigned seed = 1; seed <= 300; seed++) {
      Generator g(seed * 7919 + (unsigned)ppem);
      int points = 0;
      Bytes program = g.make(60, &points);
      Bytes font = probeFont(*real.find("head"), {}, {}, cvt, maxp, points, program);
      BothRuns r = runBoth(ft.lib, font, ppem, points, program);
      std::string at = "seed " + std::to_string(seed) + " at " + std::to_string(ppem) + " ppem";
      ASSERT_EQ(0, r.ourError) << at;
      ASSERT_EQ(0, r.theirError) << at;
      ASSERT_EQ(r.theirs, r.ours) << at;
      programs++;
    }
  }
  printf("%d generated programs equal\n", programs);
}

}  // namespace
