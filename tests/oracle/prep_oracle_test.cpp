// The interpreter against libfreetype (version 35, monochrome), a test-only
// oracle: probe fonts with a real font's programs write every control value
// and storage slot into a point's y by SCFS; so do generated programs.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_DRIVER_H
#include FT_MODULE_H
#include <gtest/gtest.h>

#include <initializer_list>
#include <random>
#include <set>

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

// PUSHW of one or two words.
void pushW(Bytes& p, int v, int w = 0x10000) {
  p.push_back(w == 0x10000 ? 0xB8 : 0xB9);
  sfnt::u16(p, (uint32_t)(v & 0xFFFF));
  if (w != 0x10000) sfnt::u16(p, (uint32_t)(w & 0xFFFF));
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
    for (FS_LONG i = 0; i < key->cvtCount; i++)
      r.cvt.push_back(cvt[i]), r.scaled.push_back(scale_value(&key->scaleCVT, get_s16(raw + 2 * i)));
    fnt_ElementType* el = sf.element();
    el->np = (FS_SHORT)points;  // all at the origin, as the probe glyph's
    for (int i = 0; i < points + 8; i++) el->x[i] = el->y[i] = el->f[i] = 0;
    r.ourError = fsg_RunGlyphProgram(&sf.st, key, program.data(), (FS_ULONG)program.size());
    for (int i = 0; i < points; i++) r.ours.push_back(el->y[i]);
  }
  FT_Face face = nullptr;
  r.theirError = FT_New_Memory_Face(lib, font.data(), (FT_Long)font.size(), 0, &face);
  if (r.theirError == 0) r.theirError = FT_Set_Pixel_Sizes(face, 0, (FT_UInt)ppem);
  if (r.theirError == 0)
    r.theirError = FT_Load_Glyph(face, 0, FT_LOAD_TARGET_MONO | FT_LOAD_NO_AUTOHINT | FT_LOAD_NO_BITMAP);
  for (int i = 0; r.theirError == 0 && i < face->glyph->outline.n_points; i++)
    r.theirs.push_back(face->glyph->outline.points[i].y);
  FT_Done_Face(face);
  return r;
}

struct Library {  // at interpreter version 35
  FT_Library lib = nullptr;
  FT_UInt version = TT_INTERPRETER_VERSION_35;
  Library() { FT_Init_FreeType(&lib), FT_Property_Set(lib, "truetype", "interpreter-version", &version); }
  ~Library() { FT_Done_FreeType(lib); }
};

TEST(PrepOracle, ControlValuesAndStorageAfterBothProgramsMatchLibfreetype) {
  Library ft;
  const int kSizes[] = {9, 12, 16, 24, 72, 144};
  for (const char* path : kFonts) {
    std::string file = testsupport::readBytes(path);
    ASSERT_FALSE(file.empty()) << "missing packaged font " << path;
    sfnt::Font real = sfnt::read(Bytes(file.begin(), file.end()));
    const Bytes *cvt = real.find("cvt "), *maxp = real.find("maxp");
    int cvtCount = (int)cvt->size() / 2, storage = (int)sfnt::getU16(*maxp, 18);
    int points = cvtCount + storage;
    Bytes program = {SVTCA_Y};
    for (int k = 0; k < points; k++)
      pushW(program, k, k < cvtCount ? k : k - cvtCount), program.push_back(k < cvtCount ? RCVT : RS),
          program.push_back(SCFS);
    Bytes font = probeFont(*real.find("head"), *real.find("fpgm"), *real.find("prep"),
                           *cvt, *maxp, points, program);
    for (int ppem : kSizes) {
      std::string at = std::string(path) + " at " + std::to_string(ppem) + " ppem";
      BothRuns r = runBoth(ft.lib, font, ppem, points, program);
      ASSERT_TRUE(r.ourError == 0 && r.theirError == 0) << at;
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
    for (int i = 0; i < 16; i++) store[i] = 0, cvt[i] = 64 * 64;  // above any CVT
  }
  int any(int n) { return (int)(rng() % (unsigned)n); }
  long top(int k = 0) { return bounds[bounds.size() - 1 - k]; }
  void emit(std::initializer_list<uint8_t> bytes) { p.insert(p.end(), bytes); }
  void replace(int popped, long bound) {
    bounds.resize(bounds.size() - popped);
    bounds.push_back(bound);
  }
  void value(int v) { pushW(p, v), bounds.push_back(std::abs(v)); }

  void step() {
    size_t d = bounds.size();
    int kind = any(11);
    if (kind == 0 || d < 3) return value(any(8193) - 4096);
    if (kind == 1) {  // unary
      static const uint8_t ops[] = {0x64, 0x65, 0x66, 0x67, 0x5C, 0x56, 0x57};
      uint8_t op = ops[any(7)];
      if ((op == 0x56 || op == 0x57) && !gridRounding) op = 0x5C;
      emit({op});
      replace(1, op == 0x66 || op == 0x67 ? top() + 64 : op >= 0x64 ? top() : 1);
    } else if (kind == 2) {  // ROUND or NROUND, each compensation number
      emit({(uint8_t)((any(2) ? 0x68 : 0x6C) + any(4))});
      replace(1, top() + 128);
    } else if (kind == 3) {  // a round state; SROUND with period bits 0 to 2
      static const uint8_t states[] = {0x18, 0x19, 0x3D, 0x7A, 0x7C, 0x7D, 0x76};
      uint8_t st = states[any(7)];
      if (st == 0x76) emit({0xB0, (uint8_t)(any(3) << 6 | any(64))});
      emit({st});
      gridRounding = st == 0x18;
    } else if (kind <= 5) {  // binary
      static const uint8_t ops[] = {0x60, 0x61, 0x63, 0x62, 0x8B, 0x8C, 0x50,
                                    0x51, 0x52, 0x53, 0x54, 0x55, 0x5A, 0x5B};
      uint8_t op = ops[any(14)];
      long a = top(1), b = top();
      long bound = op <= 0x61 ? a + b : op == 0x63 ? a * b / 64 + 1 : op >= 0x8B ? std::max(a, b) : 1;
      if (op == 0x62) {  // the divisor replaced by one that is not 0
        int c = any(4096) + 1;
        emit({0x21});
        bounds.pop_back();
        value(any(2) ? c : -c);
        bound = a * 64 / c + 1;
      }
      if (bound >= kLimit) return;
      emit({op});
      replace(2, bound);
    } else if (kind == 6) {  // DUP SWAP POP DEPTH CINDEX MINDEX ROLL
      int k = any((int)d) + 1, which = any(7);
      long b = bounds[d - k];
      if (which == 0) emit({0x20}), bounds.push_back(top());
      if (which == 1) emit({SWAP}), std::swap(bounds[d - 1], bounds[d - 2]);
      if (which == 2) emit({0x21}), bounds.pop_back();
      if (which == 3) emit({0x24}), bounds.push_back((long)d);
      if (which == 4) emit({0xB0, (uint8_t)k, 0x25}), bounds.push_back(b);
      if (which == 5) emit({0xB0, (uint8_t)k, 0x26}), bounds.erase(bounds.end() - k), bounds.push_back(b);
      if (which == 6) emit({0x8A}), b = bounds[d - 3], bounds.erase(bounds.end() - 3), bounds.push_back(b);
    } else if (kind <= 8) {  // WS or WCVTP of the top value
      int i = any(16);
      bool cv = kind == 8;
      emit({0xB0, (uint8_t)i, SWAP, cv ? WCVTP : WS});
      (cv ? cvt : store)[i] = top();
      bounds.pop_back();
    } else if (kind <= 10) {  // RS or RCVT
      int i = any(16);
      emit({0xB0, (uint8_t)i, kind == 10 ? RCVT : RS});
      bounds.push_back((kind == 10 ? cvt : store)[i]);
    }
    if (bounds.size() > 24) emit({0x21}), bounds.pop_back();
  }

  // The program; `points` is how many values it writes.
  Bytes make(int steps, int* points) {
    p = {SVTCA_Y};
    for (int i = 0; i < steps; i++) step();
    int n = 0;
    for (; !bounds.empty(); bounds.pop_back()) emit({0xB0, (uint8_t)n++, SWAP, SCFS});
    for (int i = 0; i < 32; i++) pushW(p, n++, i % 16), emit({i < 16 ? RS : RCVT, SCFS});
    *points = n;
    return p;
  }
};

TEST(PrepOracle, GeneratedArithmeticProgramsMatchLibfreetype) {
  Library ft;
  std::string file = testsupport::readBytes(kFonts[0]);
  ASSERT_FALSE(file.empty()) << "missing packaged font " << kFonts[0];
  sfnt::Font real = sfnt::read(Bytes(file.begin(), file.end()));
  Bytes cvt, maxp = *real.find("maxp");
  // Multiples of 8 units scale to whole 26.6 values at 12 and 24 ppem: no
  // halves, which the two scalers round apart.
  for (int i = 0; i < 16; i++) sfnt::u16(cvt, (uint32_t)(8 * (i * 13 - 90)));
  sfnt::putU16(maxp, 18, 16);   // maxStorage
  sfnt::putU16(maxp, 24, 128);  // maxStackElements
  for (int ppem : {12, 24}) {
    for (unsigned seed = 1; seed <= 300; seed++) {
      Generator g(seed * 7919 + (unsigned)ppem);
      int points = 0;
      Bytes program = g.make(60, &points);
      Bytes font = probeFont(*real.find("head"), {}, {}, cvt, maxp, points, program);
      BothRuns r = runBoth(ft.lib, font, ppem, points, program);
      std::string at = "seed " + std::to_string(seed) + " at " + std::to_string(ppem) + " ppem";
      ASSERT_TRUE(r.ourError == 0 && r.theirError == 0) << at;
      ASSERT_EQ(r.theirs, r.ours) << at;
    }
  }
}

}  // namespace
