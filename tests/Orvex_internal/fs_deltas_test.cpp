// The compressed delta streams: every code word at every phase, streams
// worked by hand, the tests' writer round-tripped over a glyph at every
// size from 5 to 40, and random streams over packaged glyphs.
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
typedef std::vector<uint16_t> Words;

FS_LONG (*const kReaders[CODES])(fnt_LocalGraphicStateType*) = {
    get_huffman_opcode_251, get_huffman_operand_251_0, get_huffman_operand_251_1, get_huffman_operand_251_2,
    get_huffman_operand_251_3, get_huffman_operand_251_5, get_huffman_operand_251_7, get_huffman_operand_251_8,
    get_huffman_operand_251_9, get_huffman_opcode_252, get_huffman_operand_252_0, get_huffman_operand_252_1,
    get_huffman_operand_252_2, get_huffman_operand_252_3, get_huffman_operand_252_4, get_huffman_operand_252_5,
    get_huffman_operand_252_6, get_huffman_operand_252_8, get_huffman_operand_252_9, get_huffman_opcode_3,
    get_huffman_operand_4, get_huffman_operand_6};

TEST(DeltaStreams, EveryCodeWordDecodesAloneAndAcrossWordsAtEveryPhase) {
  for (int c = 0; c < CODES; c++) {
    double kraft = 0;
    for (const auto& a : words(c)) {
      kraft += ldexp(1, -(int)a.second.size());
      for (const auto& b : words(c)) EXPECT_TRUE(a == b || b.second.rfind(a.second, 0) != 0) << c << " " << b.second;
      for (int phase = 0; phase < 16; phase++) {  // ones around the word, three stack words of 4
        Writer w;
        w.put(-1, phase), w.code(c, a.first), w.put(-1, 48 - (int)w.bits.size());
        std::vector<FS_LONG> stack = {w.stream()[2], w.stream()[1], w.stream()[0], 0};
        fnt_GlobalGraphicStateType g = {};
        fnt_LocalGraphicStateType gs = {};
        g.stackBase = stack.data(), g.stackSize = 4, gs.globalGS = &g, gs.stackPointer = &stack[3], gs.phase = phase;
        EXPECT_EQ(a.first, kReaders[c](&gs)) << c << " at phase " << phase;
        EXPECT_EQ(phase + (long)a.second.size(), 16 * (3 - (gs.stackPointer - &stack[0])) + gs.phase) << c;
      }
    }
    EXPECT_EQ(1.0, kraft) << "code " << c << " is not complete";
  }
}

// The glyph of the round trips: three contours of four points, on-curve
// points sharing x = 200 and y = 0, 200, 300; no instructions. Streams run
// as its program at one size after another, over its unhinted points.
const glyffont::Pt kPts[12] = {{0, 0, 1},     {200, 0, 1},   {200, 200, 1}, {0, 200, 1},
                               {300, 0, 1},   {400, 100, 0}, {500, 0, 1},   {400, -50, 0},
                               {200, 300, 1}, {600, 300, 1}, {600, 200, 0}, {300, 200, 1}};
struct Glyph {
  testsupport::ScaledFont sf;
  std::vector<F26DOT6> at[2];  // x, y as fetched
  Glyph() {
    sfnt::Font f = glyffont::font({glyffont::simple({3, 7, 11}, std::vector<glyffont::Pt>(kPts, kPts + 12))}, {}, 12, 3);
    Bytes maxp = *f.find("maxp");
    sfnt::putU16(maxp, 24, 1000);  // maxStackElements
    f.set("maxp", maxp);
    sf.setFont("", sfnt::build(f));
  }
  void size(int ppem) {
    ASSERT_TRUE(sf.setPpem(ppem) == 0 && sf.fetch(0) == 0);
    for (int a = 0; a < 2; a++) at[a].assign(a ? sf.element()->y : sf.element()->x, (a ? sf.element()->y : sf.element()->x) + 12);
  }
  // Runs a program from the fetched points; the points it leaves.
  std::vector<F26DOT6> run(const Bytes& pgm, std::vector<F26DOT6>* out) {
    fnt_ElementType* el = sf.element();
    memcpy(el->x, at[0].data(), 48), memcpy(el->y, at[1].data(), 48);
    memset(&sf.key()->globalGS.maz_data, 0, sizeof(fnt_MAZData));
    EXPECT_EQ(0, fsg_RunGlyphProgram(&sf.st, sf.key(), pgm.data(), (FS_ULONG)pgm.size(), 0));
    out[0].assign(el->x, el->x + 12), out[1].assign(el->y, el->y + 12);
    return out[0];
  }
};

Bytes with(Bytes prefix, const Bytes& pgm) { return prefix.insert(prefix.end(), pgm.begin(), pgm.end()), prefix; }

TEST(DeltaStreams, StreamsWorkedByHand) {
  struct Row {
    const char* why;
    int which;
    Words stream;
    long dx, dy;  // point 0's move at 5 ppem
    int records = 0;  // nXdelta, with (64, 3) the first
    FS_ULONG flags = 0;
  } rows[] = {
      // g 1010 (1/64), wide 1, base 00000000110|00011 (195), flag 0, op 8
      // 0100, n 1, end 01110|1.
      {"a 16-bit base delta starting at bit 5 joins two words", 252, {0xA806, 0x192E, 0x8000}, 195, 0},
      {"nothing happens under FLAGS_NO_HINTS", 252, {0xA806, 0x192E, 0x8000}, 0, 0, 0, FLAGS_NO_HINTS},
      // Maz 00000000; x part g 0000, wide 0, base 000|00010, flag 0, op 8, n 1,
      // end 011101; y part 1000 (absent).
      {"a maz base delta of 0 takes 8 bits: the delta part starts at bit 8", 250, {0x0000, 0x112E, 0xC000}, 128, 0},
      // g 0000, wide 0, base 11111111 (-1), flag 0, op 0 01|10 with 1 (0),
      // op 8 0100, n 1, end 011101.
      {"-pow2 plus one step is +pow2", 252, {0x07F9, 0x8974}, 64, 0},
      // Maz: base 1, g 0, ppem 5, point 3, op 4 four times, op 11 00001 ending
      // at phase 7, ones to the word's end; then a delta part of +64 on x.
      {"a maz part ending at phase 7 drops the rest of its word", 250, {0x0101, 0x40EA, 0x83FF, 0x0009, 0x2EC0}, 64, 0, 1},
      // Maz 00000000, x part 1000, y part g 0, base 1, op 8, n 1, end.
      {"g = 8 leaves an axis out", 250, {0x0080, 0x0092, 0xE800}, 0, 64},
      // Base 64, step 64, start ppem 5 with one word, no skip; op 1 111 run
      // 111 (1): 128; op 4 01 n 00 (1): contour 0; then op 0 run 0 to the end.
      {"253 shifts by a run of steps over its base", 253, {64, 64, 0x205, 0, 0xFD35}, 128, 0},
  };
  Glyph glyph;
  glyph.size(5);
  std::vector<F26DOT6> out[2];
  for (const Row& r : rows) {
    glyph.sf.st.flags = r.flags;
    glyph.run(program(r.stream, r.which), out);
    EXPECT_EQ(r.dx, out[0][0] - glyph.at[0][0]) << r.why;
    EXPECT_EQ(r.dy, out[1][0] - glyph.at[1][0]) << r.why;
    fnt_MAZData& m = glyph.sf.key()->globalGS.maz_data;
    EXPECT_TRUE(m.nXdelta == r.records && (!r.records || (m.Xdeltashift[0] == 64 && m.Xdeltapoint[0] == 3))) << r.why;
  }
}

// A random correction list, its stream, and what it should do.
struct List {
  Bytes pgm;
  std::vector<Act> acts[2];  // by axis, x first
  long base[2], step[2], unit[2];
  int skip = 0;  // 253: acts below this ppem are skipped at it and above
  std::vector<Maz> maz;
  long mazBase = 0, mazUnit = 0;
  int end = 11, which, axis;
};

std::mt19937 rng(28);
int any(int lo, int hi) { return lo + (int)(rng() % (unsigned)(hi - lo + 1)); }
long unitOf(int g) { return 1L << (g <= 9 ? g + 6 : g - 10); }

std::vector<Act> randomActs(int count, bool runs) {
  std::vector<Act> acts;
  for (int i = 0; i < count; i++) {
    int op = runs ? any(3, 7) : any(3, 9), lo = any(5, 40);
    acts.push_back({op, lo, runs ? any(0, 7) : any(1, 16), op == 4 || op == 5 ? any(0, 2) : any(0, 11), any(0, 30)});
  }
  return acts;
}

void randomMaz(List& l) {
  l.mazBase = any(-8, 7) | 1, l.end = any(11, 12);
  for (int i = any(0, 8); i > 0; i--) {
    Maz m = {any(0, 1), any(0, 2), any(0, 11), any(0, 20), {}};
    for (int k = any(1, 3); k > 0; k--)
      for (int s = any(5, 40), len = any(1, 20); len > 0 && s <= 40; s++, len--) m.sizes.insert(s);
    l.maz.push_back(m);
  }
}

List randomList(int which) {
  List l;
  l.which = which;
  Writer w;
  int axis = l.axis = any(0, 1), g[2] = {any(0, 15), any(0, 15)};
  for (int a = 0; a < 2; a++) {
    if (which == 250 && g[a] == 8) g[a] = 9;
    l.base[a] = any(0, 1) ? any(-20, 20) : any(-2000, 2000), l.step[a] = 1, l.unit[a] = unitOf(g[a]);
  }
  if (which == 252) {
    l.acts[axis] = randomActs(any(1, 12), false);
    deltaPart(w, g[axis], l.base[axis], l.acts[axis]);
  }
  if (which == 250 || which == 251) {
    int gm = any(0, 15), mazPresent = which == 251 || any(0, 1);
    randomMaz(l);
    l.mazUnit = unitOf(gm);
    if (mazPresent) mazPart(w, (int)l.mazBase, gm, 5, 0, l.maz, l.end), w.align();
    if (!mazPresent) w.put(0, 8), l.maz.clear(), l.end = 11;
    for (int a = 0; a < 2 && which == 250; a++) {
      if (any(0, 2)) l.acts[a] = randomActs(any(1, 10), false), deltaPart(w, g[a], l.base[a], l.acts[a]);
      else w.put(8, 4);
    }
  }
  if (which == 253) {  // at most 15 words; acts ascend in ppem and index
    Words s;
    l.base[axis] = any(-200, 200), l.step[axis] = any(-64, 64), l.unit[axis] = 1;
    auto pad = [](Writer& sw) {  // op 0 run 0 (11010) over the word's rest
      size_t to = (sw.bits.size() + 15) / 16 * 16;
      while (sw.bits.size() < to) sw.put(0x1A, 5);
      sw.bits.resize(to);
    };
    do {
      l.acts[axis] = randomActs(any(1, 5), true), l.skip = any(0, 1) ? any(10, 35) : 0;
      std::vector<int> lo, ix;
      for (Act& a : l.acts[axis]) lo.push_back(a.lo), ix.push_back(a.index);
      std::sort(lo.begin(), lo.end()), std::sort(ix.begin(), ix.end());
      Writer seg[2];
      int ppem = 5, m = 0, index = 0, part = 0;
      for (size_t i = 0; i < lo.size(); i++) {
        Act& a = l.acts[axis][i];
        a.lo = lo[i], a.index = ix[i];
        if (l.skip && !part && a.lo >= l.skip) {  // past the skip ppem, then a fresh word
          for (; ppem < l.skip; ppem += 7) seg[0].code(OP3, 0), seg[0].code(N4, 7);
          pad(seg[0]), part = 1, ppem = l.skip, m = 0, index = 0;
        }
        if (l.skip && !part && a.op != 5 && a.op != 7) a.n = std::min(a.n, l.skip - a.lo);
        Writer& w3 = seg[part];
        for (int first = a.lo > ppem || a.m < m; first || ppem < a.lo; first = 0, m = 0, ppem += std::min(7, a.lo - ppem))
          w3.code(OP3, 0), w3.code(N4, std::min(7, a.lo - ppem));
        for (; m < a.m; m += std::min(7, a.m - m)) w3.code(OP3, 1), w3.code(N4, std::min(7, a.m - m));
        for (; index < a.index; index += std::min(7, a.index - index)) w3.code(OP3, 2), w3.code(N6, std::min(7, a.index - index));
        w3.code(OP3, a.op), w3.code(N6, a.n);
      }
      if (!part) l.skip = 0;
      pad(seg[0]), pad(seg[1]);
      Words a = seg[0].stream(), b = seg[1].stream();
      s = {(uint16_t)l.base[axis], (uint16_t)l.step[axis], (uint16_t)(5 | (a.size() + b.size()) << 9),
           (uint16_t)(l.skip << 10 | (l.skip ? a.size() : 0))};
      s.insert(s.end(), a.begin(), a.end()), s.insert(s.end(), b.begin(), b.end());
    } while (s.size() > 19);
    // Point 11 lies beneath the stream, for SHPIX by 64 after it: the stream
    // ends with its counted words.
    l.pgm = with(with({(uint8_t)(1 - axis), 0xB0, 11}, program(s, 253)), {0xB8, 0, 64, 0x38});
    return l;
  }
  l.pgm = with({(uint8_t)(1 - axis)}, program(w.stream(), which));
  return l;
}

// The points after the list's acts at ppem P, from the points as fetched.
void expectPoints(const List& l, int P, std::vector<F26DOT6>* c) {
  for (int axis = 0; axis < 2; axis++)
    for (const Act& a : l.acts[axis]) {
      bool range = a.op == 3 || a.op == 4 || a.op == 6 || a.op == 8;
      if ((range ? P < a.lo || P >= a.lo + a.n : P != a.lo) || (P < l.skip) != (a.lo < l.skip)) continue;
      std::vector<int> moved;
      for (int p = 0, cont; p < 12; p++)
        if ((cont = p / 4, a.op == 3) || (a.op == 4 && cont == a.index) || (a.op == 5 && cont >= a.index && cont < a.index + a.n) ||
            ((a.op == 6 || a.op == 7) && kPts[p].on && c[axis][p] == c[axis][a.index]) || (a.op == 8 && p == a.index) ||
            (a.op == 9 && p >= a.index && p < a.index + a.n))
          moved.push_back(p);
      for (int p : moved) c[axis][p] += stepped(l.base[axis], l.step[axis], a.m) * l.unit[axis];
    }
  if (l.which == 253) c[l.axis][11] += 64;  // the point beneath 253's stream
}

// The alignment-zone records of the list at ppem P.
fnt_MAZData expectMaz(const List& l, int P) {
  fnt_MAZData z = {};
  for (const Maz& m : l.maz) {
    if (!m.sizes.count(P)) continue;
    FS_LONG* n = m.kind == 0 ? (m.axis ? &z.nYdelta : &z.nXdelta) : (m.axis ? &z.nHcollapse : &z.nVcollapse);
    if (m.kind == 2 && (m.point & 3)) *(m.axis ? &z.MAZmethodHorz : &z.MAZmethodVert) = m.point & 3;
    if (m.kind == 2 || *n == MAZ_LIST_MAX) continue;
    if (m.kind == 0) (m.axis ? z.Ydeltashift : z.Xdeltashift)[*n] = stepped(l.mazBase, 1, m.m) * l.mazUnit;
    (m.kind == 1 ? (m.axis ? z.Hcollapse : z.Vcollapse) : (m.axis ? z.Ydeltapoint : z.Xdeltapoint))[(*n)++] = m.point;
  }
  if (l.end == 12) z.MAZdeltaHorz = z.MAZdeltaVert = 4;  // AA 6 ran
  return z;
}

TEST(DeltaStreams, WrittenCorrectionsComeBackAtEverySize) {
  std::vector<List> lists;
  for (int which : {250, 251, 252, 253})
    for (int i = 0; i < 200; i++) lists.push_back(randomList(which));
  Glyph glyph;
  std::vector<F26DOT6> got[2], want[2];
  for (int P = 5; P <= 40; P++) {
    glyph.size(P);
    for (size_t i = 0; i < lists.size(); i++) {
      glyph.run(lists[i].pgm, got);
      want[0] = glyph.at[0], want[1] = glyph.at[1];
      expectPoints(lists[i], P, want);
      fnt_MAZData z = expectMaz(lists[i], P);
      ASSERT_TRUE(got[0] == want[0] && got[1] == want[1]) << "list " << i << " at " << P;
      ASSERT_EQ(0, memcmp(&z, &glyph.sf.key()->globalGS.maz_data, sizeof z)) << "list " << i << " at " << P;
    }
  }
}

// Random streams of 0 to 64 words, 20,000 under each command, over DejaVu
// Sans glyphs at 8 to 40 ppem, on a stack and points held in vectors of
// exactly their size, so that a read outside them is the sanitizer's to
// report: each program ends in 0 within 10 ms, and the engine's heap stays
// where it was.
// (The time is the thread's own, which other work on the machine leaves be.)
double cpuSeconds() {
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return (double)t.tv_sec + t.tv_nsec * 1e-9;
}

TEST(DeltaStreams, RandomStreamsStayInsideTheStackAndThePoints) {
  testsupport::ScaledFont sf;
  sf.setFont("/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf");
  double slowest = 0;
  for (int ppem = 8, runs = 0; ppem <= 40; ppem++) {
    ASSERT_TRUE(sf.setPpem(ppem) == 0 && sf.fetch(36 + ppem) == 0) << "DejaVu Sans missing";
    fnt_ElementType* e = sf.element();
    size_t n = (size_t)e->np + 8, nc = (size_t)e->nc;
    std::vector<F26DOT6> x(e->x, e->x + n), y(e->y, e->y + n), ox(e->ox, e->ox + n), oy(e->oy, e->oy + n);
    std::vector<FS_LONG> oox(e->oox, e->oox + n), ooy(e->ooy, e->ooy + n), stack(72);
    std::vector<FS_BYTE> on(e->onCurve, e->onCurve + n), f(e->f, e->f + n);
    std::vector<FS_SHORT> sp(e->sp, e->sp + nc), ep(e->ep, e->ep + nc);
    fnt_ElementType el[2] = {e[-1], {x.data(), y.data(), ox.data(), oy.data(), oox.data(), ooy.data(), on.data(),
                                      sp.data(), ep.data(), f.data(), e->nc, e->np}};
    fnt_GlobalGraphicStateType g = sf.key()->globalGS;
    g.stackBase = stack.data(), g.stackSize = 72;
    FS_ULONG heap = sf.st.server->allocated;
    for (int end = 80000 * (ppem - 7) / 33; runs < end; runs++) {
      Words w(rng() % 65);
      for (uint16_t& v : w) v = (uint16_t)rng();
      Bytes pgm = program(w, 250 + runs % 4);
      double t0 = cpuSeconds();
      EXPECT_EQ(0, fnt_Execute(el, pgm.data(), pgm.data() + pgm.size(), &g));
      slowest = std::max(slowest, cpuSeconds() - t0);
    }
    EXPECT_EQ(heap, sf.st.server->allocated);
  }
  EXPECT_LT(slowest, 0.010);
}

}  // namespace
