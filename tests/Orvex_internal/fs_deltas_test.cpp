// The compressed delta streams: every code word at every phase, streams
// worked by hand, delta parts of the tests' writer coming back at every size
// from 5 to 40, and random streams over DejaVu Sans glyphs.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>
#include <time.h>

#include <random>

#include "Orvex_internal/fs_deltas.h"
#include "support/delta_stream.h"
#include "support/glyf_font.h"
#include "support/scaled_font.h"

namespace {

using namespace deltastream;
using sfnt::Bytes;

TEST(DeltaStreams, EveryCodeIsCompleteAndEachWordDecodesAloneAndAcrossWordsAtEveryPhase) {
  FS_LONG (*const readers[CODES])(fnt_LocalGraphicStateType*) = {
      get_huffman_opcode_251, get_huffman_operand_251_0, get_huffman_operand_251_1, get_huffman_operand_251_2,
      get_huffman_operand_251_3, get_huffman_operand_251_5, get_huffman_operand_251_7, get_huffman_operand_251_8,
      get_huffman_operand_251_9, get_huffman_opcode_252, get_huffman_operand_252_0, get_huffman_operand_252_1,
      get_huffman_operand_252_2, get_huffman_operand_252_3, get_huffman_operand_252_4, get_huffman_operand_252_5,
      get_huffman_operand_252_6, get_huffman_operand_252_8, get_huffman_operand_252_9, get_huffman_opcode_3,
      get_huffman_operand_4, get_huffman_operand_6};
  for (int c = 0; c < CODES; c++) {
    double kraft = 0;
    for (const auto& a : words(c)) {
      kraft += ldexp(1, -(int)a.second.size());
      for (const auto& b : words(c)) EXPECT_TRUE(a == b || b.second.rfind(a.second, 0) != 0) << c << " " << b.second;
      for (int phase = 0; phase < 16; phase++) {  // ones around the word, over three stack words
        Writer w;
        w.put(-1, phase), w.code(c, a.first), w.put(-1, 48 - (int)w.bits.size());
        std::vector<FS_LONG> stack = {w.stream()[2], w.stream()[1], w.stream()[0]};
        fnt_GlobalGraphicStateType g = {};
        fnt_LocalGraphicStateType gs = {};
        g.stackBase = stack.data(), g.stackSize = 3, gs.globalGS = &g, gs.stackPointer = &stack[3], gs.phase = phase;
        EXPECT_EQ(a.first, readers[c](&gs)) << c << " at phase " << phase;
        EXPECT_EQ(phase + (long)a.second.size(), 16 * (3 - (gs.stackPointer - &stack[0])) + gs.phase) << c;
      }
    }
    EXPECT_EQ(1.0, kraft) << "code " << c << " is not complete";
  }
}

// A glyph fetched unhinted at one size, programs run over its points:
// by default three contours of four points with on-curve points sharing
// x = 200 and y = 0, 200, 300, and no instructions.
const glyffont::Pt kPts[12] = {{0, 0, 1},   {200, 0, 1},     {200, 200, 1},  {0, 200, 1},   {300, 0, 1},   {400, 100, 0},
                               {500, 0, 1}, {400, -50, 0},   {200, 300, 1},  {600, 300, 1}, {600, 200, 0}, {300, 200, 1}};
struct Glyph {
  testsupport::ScaledFont sf;
  std::vector<F26DOT6> at[2], got[2];  // x, y as fetched and after a program
  explicit Glyph(const char* path = "") {
    sfnt::Font f = glyffont::font({glyffont::simple({3, 7, 11}, {kPts, kPts + 12})}, {}, 12, 3);
    Bytes maxp = *f.find("maxp");
    sfnt::putU16(maxp, 24, 1000), f.set("maxp", maxp);  // maxStackElements
    sf.setFont(path, *path ? Bytes() : sfnt::build(f));
  }
  void size(int ppem, unsigned glyph = 0) {
    ASSERT_TRUE(sf.setPpem(ppem) == 0 && sf.fetch(glyph) == 0) << "no glyph " << glyph;
    at[0].assign(sf.element()->x, sf.element()->x + 12), at[1].assign(sf.element()->y, sf.element()->y + 12);
  }
  fnt_MAZData& run(const Bytes& pgm) {
    fnt_ElementType* el = sf.element();
    memcpy(el->x, at[0].data(), 48), memcpy(el->y, at[1].data(), 48);
    memset(&sf.key()->globalGS.maz_data, 0, sizeof(fnt_MAZData));
    EXPECT_EQ(0, fsg_RunGlyphProgram(&sf.st, sf.key(), pgm.data(), (FS_ULONG)pgm.size(), 0));
    got[0].assign(el->x, el->x + 12), got[1].assign(el->y, el->y + 12);
    return sf.key()->globalGS.maz_data;
  }
};

TEST(DeltaStreams, StreamsWorkedByHand) {
  struct Row {
    const char* why;
    int which, ppem;
    std::vector<uint16_t> stream;
    long dx, dy;      // point 0's move
    long maz[5];      // nXdelta, Xdeltashift[0], Xdeltapoint[0], MAZmethodVert, nVcollapse
    FS_ULONG flags;
  } rows[] = {
      // g 1010 (1/64), wide 1, base 00000000110|00011 (195), flag 0, op 8
      // 0100, n 1, end 01110|1.
      {"a 16-bit base delta starting at bit 5 joins two words", 252, 5, {0xA806, 0x192E, 0x8000}, 195, 0, {}, 0},
      {"nothing happens under FLAGS_NO_HINTS", 252, 5, {0xA806, 0x192E, 0x8000}, 0, 0, {}, FLAGS_NO_HINTS},
      // No maz part, 00000000; along x g 0000, wide 0, base 000|00010, flag
      // 0, op 8, n 1, end 011101; along y 1000 (none).
      {"a maz base delta of 0 takes 8 bits: the delta part starts at bit 8", 250, 5, {0x0000, 0x112E, 0xC000}, 128, 0, {}, 0},
      // g 0000, wide 0, base 11111111 (-1), flag 0, op 0 01|10 by 1 (0), op
      // 8 0100, n 1, end 011101.
      {"-pow2 plus one step is +pow2", 252, 5, {0x07F9, 0x8974}, 64, 0, {}, 0},
      // Maz: base 1, g 0, ppem 5, point 3; op 4 (10) four times; op 11
      // (00001) at phase 7, ones to the word's end; then +64 along x.
      {"a maz part ending at phase 7 drops the rest of its word", 250, 5, {0x0101, 0x40EA, 0x83FF, 0x0009, 0x2EC0}, 64, 0, {1, 64, 3}, 0},
      // No maz part; along x 1000 (none); along y g 0, base 1, op 8, n 1, end.
      {"g = 8 leaves an axis out", 250, 5, {0x0080, 0x0092, 0xE800}, 0, 64, {}, 0},
      // Base 2 steps of 64 (g 0), ppem 5, point 3. Method 2 at 5 (op 7, 2;
      // op 8, 1); back to the bases (6); collapse at 5-6 (op 9, 2); point 4
      // (op 0, 1); +1 step (op 1, 1): 192 at 5-6 (op 5, 2); y (op 10): at 5
      // (op 4), then 17 on (op 3, 1) at 24 (op 4); AA 6 (op 12).
      {"251 at 5", 251, 5, {0x0201, 0x40F6, 0x76FD, 0xDBCF, 0x73C8, 0x21D6, 0x8000}, 0, 0, {1, 192, 4, 2, 1}, 0},
      {"251 at 6", 251, 6, {0x0201, 0x40F6, 0x76FD, 0xDBCF, 0x73C8, 0x21D6, 0x8000}, 0, 0, {1, 192, 4, 0, 1}, 0},
      {"251 at 24", 251, 24, {0x0201, 0x40F6, 0x76FD, 0xDBCF, 0x73C8, 0x21D6, 0x8000}, 0, 0, {}, 0},
      // Base 64, step 64, ppem 5, two words, at 10 skip one. Word 1: op 4
      // (01) n 1 (00), op 0 (110) run 5 (000), then op 0 run 0 (11010...);
      // word 2: op 1 (111) run 1 (111), op 4, n 1, then op 0 run 0.
      {"253 below its skip ppem", 253, 5, {64, 64, 0x405, 0x2801, 0x4C35, 0xFD35}, 64, 0, {}, 0},
      {"253 below its skip ppem, out of range", 253, 6, {64, 64, 0x405, 0x2801, 0x4C35, 0xFD35}, 0, 0, {}, 0},
      {"253 at its skip ppem drops a word", 253, 10, {64, 64, 0x405, 0x2801, 0x4C35, 0xFD35}, 128, 0, {}, 0},
  };
  Glyph glyph;
  for (const Row& r : rows) {
    glyph.size(r.ppem);
    glyph.sf.st.flags = r.flags;
    fnt_MAZData& m = glyph.run(program(r.stream, r.which));
    EXPECT_EQ(r.dx, glyph.got[0][0] - glyph.at[0][0]) << r.why;
    EXPECT_EQ(r.dy, glyph.got[1][0] - glyph.at[1][0]) << r.why;
    long maz[5] = {m.nXdelta, m.nXdelta ? m.Xdeltashift[0] : 0, m.nXdelta ? m.Xdeltapoint[0] : 0, m.MAZmethodVert, m.nVcollapse};
    EXPECT_TRUE(std::equal(maz, maz + 5, r.maz)) << r.why;
    EXPECT_EQ(r.which == 251 ? 4 : 0, m.MAZdeltaHorz) << r.why;  // AA 6 ran
    EXPECT_EQ(r.which == 251 && r.ppem != 6 ? 1 : 0, m.nYdelta) << r.why;
  }
}

// 200 random lists of shifts as 252 streams along x or y, and 200 as 250's
// parts along both: every opcode, granularities 0 to 15, 8- and 16-bit
// bases, runs across zero, gaps above 16. At every size from 5 to 40
// exactly the points wanted move by the deltas wanted.
TEST(DeltaStreams, WrittenDeltaPartsComeBackAtEverySize) {
  std::mt19937 rng(28);
  auto any = [&rng](int lo, int hi) { return lo + (int)(rng() % (unsigned)(hi - lo + 1)); };
  struct List {
    Bytes pgm;
    std::vector<Act> acts[2];  // along x, y
    long base[2], unit[2];
  } lists[400];
  for (int i = 0; i < 400; i++) {
    List& l = lists[i];
    Writer w;
    int axis = any(0, 1), is250 = i >= 200;
    if (is250) w.put(0, 8);  // no alignment-zone part
    for (int a = 0; a < 2; a++) {
      int g = any(0, 15);
      g += is250 && g == 8;  // 8 says none in 250
      l.base[a] = any(0, 1) ? any(-20, 20) : any(-2000, 2000), l.unit[a] = 1L << (g <= 9 ? g + 6 : g - 10);
      if (is250 ? !any(0, 2) : a != axis) {
        if (is250) w.put(8, 4);  // none along this axis
        continue;
      }
      for (int k = any(1, 12), op; k > 0; k--)
        op = any(3, 9), l.acts[a].push_back({op, any(5, 40), any(1, 16), op == 4 || op == 5 ? any(0, 2) : any(0, 11), any(0, 30)});
      deltaPart(w, g, l.base[a], l.acts[a]);
    }
    l.pgm = program(w.stream(), is250 ? 250 : 252);
    if (!is250) l.pgm.insert(l.pgm.begin(), (uint8_t)(1 - axis));  // SVTCA
  }
  Glyph glyph;
  for (int P = 5; P <= 40; P++) {
    glyph.size(P);
    for (const List& l : lists) {
      glyph.run(l.pgm);
      std::vector<F26DOT6> want[2] = {glyph.at[0], glyph.at[1]};
      for (int a = 0; a < 2; a++)
        for (const Act& t : l.acts[a]) {
          bool range = t.op == 3 || t.op == 4 || t.op == 6 || t.op == 8;
          std::vector<int> moved;  // chosen before any moves
          for (int p = 0, c = 0; p < 12 && (range ? P >= t.lo && P < t.lo + t.n : P == t.lo); c = ++p / 4)
            if (t.op == 3 || (t.op == 4 && c == t.index) || (t.op == 5 && c >= t.index && c < t.index + t.n) ||
                ((t.op == 6 || t.op == 7) && kPts[p].on && want[a][p] == want[a][t.index]) || (t.op == 8 && p == t.index) ||
                (t.op == 9 && p >= t.index && p < t.index + t.n))
              moved.push_back(p);
          for (int p : moved) want[a][p] += stepped(l.base[a], 1, t.m) * l.unit[a];
        }
      ASSERT_TRUE(glyph.got[0] == want[0] && glyph.got[1] == want[1]) << "list " << &l - lists << " at " << P;
    }
  }
}

double threadSeconds() {  // the thread's own time, which other work leaves be
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return (double)t.tv_sec + t.tv_nsec * 1e-9;
}

// Random streams of 0 to 64 words, 20,000 under each command, over DejaVu
// Sans glyphs at 8 to 40 ppem, on a stack of exactly 72 values of its own
// (a read outside is the sanitizer's to report): each program ends in 0
// within 10 ms, and the engine's heap stays where it was.
TEST(DeltaStreams, RandomStreamsStayInsideTheStack) {
  Glyph dejavu("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
  std::mt19937 rng(253);
  std::vector<FS_LONG> stack(72);
  double slowest = 0;
  for (int ppem = 8, runs = 0; ppem <= 40; ppem++) {
    dejavu.size(ppem, 36 + ppem);
    fnt_GlobalGraphicStateType g = dejavu.sf.key()->globalGS;
    g.stackBase = stack.data(), g.stackSize = 72;
    FS_ULONG heap = dejavu.sf.st.server->allocated;
    for (int end = 80000 * (ppem - 7) / 33; runs < end; runs++) {
      std::vector<uint16_t> w(rng() % 65);
      for (uint16_t& v : w) v = (uint16_t)rng();
      Bytes pgm = program(w, 250 + runs % 4);
      double t0 = threadSeconds();
      EXPECT_EQ(0, fnt_Execute(dejavu.sf.element() - 1, pgm.data(), pgm.data() + pgm.size(), &g));
      slowest = std::max(slowest, threadSeconds() - t0);
    }
    EXPECT_EQ(heap, dejavu.sf.st.server->allocated);
  }
  EXPECT_LT(slowest, 0.010);
}

}  // namespace
