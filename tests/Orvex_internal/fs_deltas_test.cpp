// The compressed delta streams: streams worked by hand, the tests' writer's delta parts coming back at every size from 5
// to 40, and random streams over DejaVu Sans glyphs.
#include <gtest/gtest.h>
#include <string.h>
#include <time.h>

#include <random>

#include "support/delta_stream.h"
#include "support/glyf_font.h"
#include "support/scaled_font.h"

namespace {

using namespace deltastream;
std::mt19937 rng(28);

// A glyph fetched unhinted at one size, programs run over its points: by default three contours of four, on-curve points
// sharing x = 200 and y = 0, 200, 300, no instructions.
const glyffont::Pt kPts[12] = {{0, 0, 1},   {200, 0, 1},   {200, 200, 1}, {0, 200, 1},   {300, 0, 1},   {400, 100, 0},
                               {500, 0, 1}, {400, -50, 0}, {200, 300, 1}, {600, 300, 1}, {600, 200, 0}, {300, 200, 1}};
struct Glyph {
  testsupport::ScaledFont sf;
  std::vector<F26DOT6> at[2], got[2];  // x, y as fetched and after a program
  explicit Glyph(const char* path = "") {
    sfnt::Font f = glyffont::font({glyffont::simple({3, 7, 11}, {kPts, kPts + 12})}, {}, 12, 3);
    sf.setFont(path, *path ? sfnt::Bytes() : sfnt::build(f));
  }
  void size(int ppem, unsigned glyph = 0) {
    ASSERT_TRUE(sf.setPpem(ppem) == 0 && sf.fetch(glyph) == 0) << "no glyph " << glyph;
    at[0].assign(sf.element()->x, sf.element()->x + 12), at[1].assign(sf.element()->y, sf.element()->y + 12);
  }
  fnt_MAZData& run(const sfnt::Bytes& pgm) {  // from the points as fetched
    fnt_ElementType* el = sf.element();
    memcpy(el->x, at[0].data(), 48), memcpy(el->y, at[1].data(), 48);
    memset(&sf.key()->globalGS.maz_data, 0, sizeof(fnt_MAZData));
    EXPECT_EQ(0, fsg_RunGlyphProgram(&sf.st, sf.key(), pgm.data(), (FS_ULONG)pgm.size(), 0));
    got[0].assign(el->x, el->x + 12), got[1].assign(el->y, el->y + 12);
    return sf.key()->globalGS.maz_data;
  }
};

// 251: base 2 steps of 64 (g 0), ppem 5, point 3; method 2 at 5 (op 7, 2; op 8, 1); bases (6); collapse at 5-6 (op 9,
// 2); point 4 (op 0, 1); a step (op 1, 1): 192 at 5-6 (op 5, 2); y (op 10): at 5 (op 4), 17 on (op 3, 1), at 24 (op 4);
// AA 6 (op 12). 253: base and step 64, ppem 5, two words, at 10 skip one; word 1: op 4 (01) n 1 (00), op 0 (110) run 5
// (000), op 0 run 0 (11010...); word 2: op 1 (111) run 1 (111), op 4, n 1. Rows: point 0's move; nXdelta,
// Xdeltashift[0], Xdeltapoint[0], MAZmethodVert, nVcollapse, nYdelta.
TEST(DeltaStreams, StreamsWorkedByHand) {
  const std::vector<uint16_t> s251 = {0x0201, 0x40F6, 0x76FD, 0xDBCF, 0x73C8, 0x21D6, 0x8000}, s253 = {64, 64, 0x405, 0x2801, 0x4C35, 0xFD35};
  struct Row { const char* why; int which, ppem; std::vector<uint16_t> stream; long dx, dy, maz[6]; } rows[] = {
      // g 1010 (1/64), wide 1, base 00000000110|00011 (195), flag 0, op 8 0100, n 1, end 01110|1.
      {"a 16-bit base delta starting at bit 5 joins two words", 252, 5, {0xA806, 0x192E, 0x8000}, 195, 0, {}},
      // No maz part 00000000; x: g 0000, wide 0, base 000|00010, flag 0, op 8, n 1, end; y: 1000, none.
      {"a maz base delta of 0 takes 8 bits: the delta part starts at bit 8", 250, 5, {0x0000, 0x112E, 0xC000}, 128, 0, {}},
      // g 0000, wide 0, base 11111111 (-1), flag 0, op 0 01|10 by 1 (0), op 8 0100, n 1, end 011101.
      {"-pow2 plus one step is +pow2", 252, 5, {0x07F9, 0x8974}, 64, 0, {}},
      // Maz: base 1, g 0, ppem 5, point 3, op 4 (10) four times, op 11 (00001) at phase 7, ones; then +64 along x.
      {"a maz part ending at phase 7 drops the rest of its word", 250, 5, {0x0101, 0x40EA, 0x83FF, 0x0009, 0x2EC0}, 64, 0, {1, 64, 3}},
      {"g = 8 leaves x out", 250, 5, {0x0080, 0x0092, 0xE800}, 0, 64, {}},  // no maz part; x 1000 (none); y g 0, base 1, op 8, n 1, end
      {"251 at 5", 251, 5, s251, 0, 0, {1, 192, 4, 2, 1, 1}},
      {"251 at 24", 251, 24, s251, 0, 0, {0, 0, 0, 0, 0, 1}},
      {"253 below its skip size", 253, 5, s253, 64, 0, {}},
      {"253 at its skip size drops a word", 253, 10, s253, 128, 0, {}},
  };
  Glyph glyph;
  for (const Row& r : rows) {
    glyph.size(r.ppem);
    fnt_MAZData& m = glyph.run(program(r.stream, r.which));
    long maz[6] = {m.nXdelta, m.Xdeltashift[0], m.Xdeltapoint[0], m.MAZmethodVert, m.nVcollapse, m.nYdelta};
    EXPECT_TRUE(glyph.got[0][0] - glyph.at[0][0] == r.dx && glyph.got[1][0] - glyph.at[1][0] == r.dy) << r.why;
    EXPECT_TRUE(std::equal(maz, maz + 6, r.maz) && m.MAZdeltaHorz == (r.which == 251 ? 4 : 0)) << r.why;  // AA 6 ran
  }
}

// 400 random lists of shifts as 252 streams along x or y: every opcode, granularities, 8- and 16-bit bases, runs across
// zero, gaps above 16. At every size from 5 to 40 exactly the points wanted move as wanted.
TEST(DeltaStreams, WrittenDeltaPartsComeBackAtEverySize) {
  auto any = [](int lo, int hi) { return lo + (int)(rng() % (unsigned)(hi - lo + 1)); };
  struct List { sfnt::Bytes pgm; std::vector<Act> acts; long base, unit; int g, axis; } lists[400];
  for (List& l : lists) {
    Writer w;
    l.g = any(0, 15), l.axis = any(0, 1), l.base = any(0, 1) ? any(-20, 20) : any(-2000, 2000);
    for (int k = any(1, 12), op; k > 0; k--)
      op = any(3, 9), l.acts.push_back({op, any(5, 40), any(1, 16), op == 4 || op == 5 ? any(0, 2) : any(0, 11), any(0, 30)});
    deltaPart(w, l.g, l.base, l.acts), l.unit = 1L << (l.g <= 9 ? l.g + 6 : l.g - 10);
    l.pgm = program(w.stream(), 252), l.pgm.insert(l.pgm.begin(), (uint8_t)(1 - l.axis));  // SVTCA
  }
  Glyph glyph;
  for (int P = 5; P <= 40; P++) {
    glyph.size(P);
    for (const List& l : lists) {
      std::vector<F26DOT6> want[2] = {glyph.at[0], glyph.at[1]};
      glyph.run(l.pgm);
      for (const Act& t : l.acts) {
        bool range = t.op == 3 || t.op == 4 || t.op == 6 || t.op == 8;
        std::vector<int> moved;  // chosen before any moves
        for (int p = 0, c = 0; p < 12 && (range ? P >= t.lo && P < t.lo + t.n : P == t.lo); c = ++p / 4)
          if (t.op == 3 || (t.op == 4 && c == t.index) || (t.op == 5 && c >= t.index && c < t.index + t.n) ||
              ((t.op == 6 || t.op == 7) && kPts[p].on && want[l.axis][p] == want[l.axis][t.index]) ||
              (t.op == 8 && p == t.index) || (t.op == 9 && p >= t.index && p < t.index + t.n))
            moved.push_back(p);
        for (int p : moved) want[l.axis][p] += stepped(l.base, 1, t.m) * l.unit;
      }
      ASSERT_TRUE(glyph.got[0] == want[0] && glyph.got[1] == want[1]) << "list " << &l - lists << " at " << P;
    }
  }
}

// 20,000 random streams of 0 to 64 words under each command over DejaVu Sans glyphs at 8 to 40 ppem, on a stack of its
// own (a read outside is the sanitizer's to report): each ends in 0 within 10 ms, the engine's heap where it was.
TEST(DeltaStreams, RandomStreamsStayInsideTheStack) {
  Glyph dejavu("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
  std::vector<FS_LONG> stack(72);
  clock_t slowest = 0;
  for (int ppem = 8, runs = 0; ppem <= 40; ppem++) {
    dejavu.size(ppem, 36 + ppem);
    fnt_GlobalGraphicStateType g = dejavu.sf.key()->globalGS;
    g.stackBase = stack.data(), g.stackSize = 72;
    FS_ULONG heap = dejavu.sf.st.server->allocated;
    for (int end = 80000 * (ppem - 7) / 33; runs < end; runs++) {
      std::vector<uint16_t> w(rng() % 65);
      for (uint16_t& v : w) v = (uint16_t)rng();
      sfnt::Bytes pgm = program(w, 250 + runs % 4);
      clock_t t0 = clock();
      EXPECT_EQ(0, fnt_Execute(dejavu.sf.element() - 1, pgm.data(), pgm.data() + pgm.size(), &g));
      slowest = std::max(slowest, clock() - t0);
    }
    EXPECT_EQ(heap, dejavu.sf.st.server->allocated);
  }
  EXPECT_LT(slowest, CLOCKS_PER_SEC / 100);
}

}  // namespace
