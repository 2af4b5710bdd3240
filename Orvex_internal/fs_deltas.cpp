// The compressed delta hint streams of AA 250 to 253. A stream lies on the
// interpreter's stack, its first 16-bit word on top; `phase` in the local
// state counts the bits used of the top word. Values are read through
// static prefix codes, one per kind of value, each walked bit by bit down
// a small tree built from its table of code words. Shifts go through the
// interpreter's own SHPIX along the freedom vector; alignment-zone records
// go into `maz_data` of the present axis.
#include "Orvex_internal/fs_deltas.h"

#include <stddef.h>

namespace {

typedef fnt_LocalGraphicStateType GS;

/* ---- The prefix codes: each code word, its bits left bit first ---- */

struct CodeWord {
  const char* bits;
  FS_SHORT value;
};

const CodeWord k_opcode_251[] = {{"01", 2}, {"10", 4}, {"001", 1}, {"111", 0},
    {"0001", 3}, {"1100", 5}, {"00000", 10}, {"00001", 11}, {"11010", 12},
    {"1101100", 7}, {"1101101", 8}, {"1101110", 6}, {"1101111", 9}};
const CodeWord k_operand_251_0[] = {{"001", 6}, {"110", 16}, {"0000", 11},
    {"0001", 3}, {"0101", 4}, {"0110", 7}, {"0111", 1}, {"1000", 5}, {"1010",
    32}, {"01001", 15}, {"10010", 48}, {"10011", 14}, {"10110", 10}, {"10111",
    2}, {"11100", 12}, {"11101", 13}, {"11110", 8}, {"11111", 9}, {"010001",
    64}, {"0100001", 80}, {"010000000", 96}, {"0100000010", 256}, {"0100000011",
    112}, {"01000001000", 128}, {"01000001001", 144}, {"01000001010", 160},
    {"01000001011", 176}, {"01000001100", 192}, {"01000001101", 208},
    {"01000001110", 224}, {"01000001111", 240}};
const CodeWord k_operand_251_1[] = {{"1", 1}, {"001", 7}, {"010", 15}, {"0001",
    3}, {"0111", 2}, {"01101", 8}, {"000000", 11}, {"000001", 4}, {"0000110",
    12}, {"0110010", 16}, {"00001001", 6}, {"00001010", 9}, {"01100111", 10},
    {"000010000", 5}, {"000010001", 13}, {"000010110", 14}, {"000010111", 32},
    {"000011100", 48}, {"000011101", 64}, {"000011110", 80}, {"000011111", 96},
    {"011000000", 112}, {"011000001", 128}, {"011000010", 144}, {"011000011",
    160}, {"011000100", 176}, {"011000101", 192}, {"011000110", 208},
    {"011000111", 224}, {"011001100", 240}, {"011001101", 256}};
const CodeWord k_operand_251_2[] = {{"010", 3}, {"100", 2}, {"111", 1}, {"0000",
    15}, {"0001", 7}, {"0010", 12}, {"0111", 6}, {"1010", 11}, {"1100", 4},
    {"1101", 5}, {"00110", 10}, {"00111", 9}, {"01100", 16}, {"01101", 8},
    {"10110", 14}, {"10111", 13}};
const CodeWord k_operand_251_3[] = {{"010", 2}, {"011", 4}, {"100", 3}, {"110",
    1}, {"0001", 11}, {"0010", 10}, {"0011", 8}, {"1010", 9}, {"1011", 7},
    {"1110", 6}, {"1111", 5}, {"00001", 12}, {"0000000", 13}, {"0000001", 14},
    {"0000010", 15}, {"0000011", 16}};
const CodeWord k_operand_251_5[] = {{"1", 2}, {"01", 3}, {"000", 4}, {"0011",
    5}, {"00100", 6}, {"00101000", 14}, {"00101001", 15}, {"00101010", 16},
    {"00101011", 17}, {"00101100", 7}, {"001011010", 8}, {"001011011", 9},
    {"001011100", 10}, {"001011101", 11}, {"001011110", 12}, {"001011111", 13}};
const CodeWord k_operand_251_7[] = {{"1", 2}, {"010", 1}, {"00000", 6},
    {"00001", 7}, {"00010", 8}, {"00011", 9}, {"00100", 10}, {"00101", 11},
    {"00110", 12}, {"00111", 13}, {"01100", 14}, {"01101", 15}, {"011100", 0},
    {"011101", 3}, {"011110", 4}, {"011111", 5}};
const CodeWord k_operand_251_8[] = {{"00", 12}, {"010", 2}, {"100", 16}, {"101",
    13}, {"111", 1}, {"0110", 15}, {"1100", 14}, {"01110", 3}, {"11011", 11},
    {"011110", 4}, {"0111110", 5}, {"0111111", 6}, {"1101000", 7}, {"1101001",
    8}, {"1101010", 9}, {"1101011", 10}};
const CodeWord k_operand_251_9[] = {{"000", 15}, {"001", 2}, {"011", 1}, {"100",
    16}, {"101", 14}, {"110", 13}, {"111", 12}, {"01011", 3}, {"010000", 11},
    {"010001", 5}, {"010100", 4}, {"010101", 7}, {"0100100", 6}, {"0100101", 8},
    {"0100110", 9}, {"0100111", 10}};
const CodeWord k_opcode_252[] = {{"10", 1}, {"11", 2}, {"000", 7}, {"0010", 4},
    {"0011", 5}, {"0100", 8}, {"0101", 9}, {"0110", 0}, {"01111", 3}, {"011100",
    6}, {"011101", 15}};
const CodeWord k_operand_252_0[] = {{"0", 1}, {"100", 3}, {"110", 2}, {"1011",
    5}, {"1111", 4}, {"11100", 6}, {"11101", 8}, {"101000", 10}, {"101010", 7},
    {"101011", 9}, {"10100110", 12}, {"101001110", 11}, {"101001111", 14},
    {"10100100000", 48}, {"10100100001", 64}, {"10100100010", 80},
    {"10100100011", 96}, {"10100100100", 112}, {"10100100101", 128},
    {"10100100110", 144}, {"10100100111", 160}, {"10100101000", 176},
    {"10100101001", 192}, {"10100101010", 208}, {"10100101011", 224},
    {"10100101100", 240}, {"10100101101", 256}, {"101001011100", 13},
    {"101001011101", 15}, {"101001011110", 16}, {"101001011111", 32}};
const CodeWord k_operand_252_1[] = {{"00", 1}, {"011", 7}, {"100", 2}, {"0100",
    9}, {"1010", 4}, {"1100", 16}, {"1101", 8}, {"1110", 3}, {"01010", 11},
    {"01011", 6}, {"10111", 10}, {"11111", 5}, {"101100", 14}, {"101101", 13},
    {"111100", 12}, {"1111010", 15}, {"11110111", 32}, {"11110110000", 240},
    {"11110110001", 256}, {"111101100100", 48}, {"111101100101", 64},
    {"111101100110", 80}, {"111101100111", 96}, {"111101101000", 112},
    {"111101101001", 128}, {"111101101010", 144}, {"111101101011", 160},
    {"111101101100", 176}, {"111101101101", 192}, {"111101101110", 208},
    {"111101101111", 224}};
const CodeWord k_operand_252_2[] = {{"010", 16}, {"011", 1}, {"0000", 6},
    {"0010", 5}, {"1000", 48}, {"1010", 4}, {"1101", 3}, {"1110", 32}, {"1111",
    2}, {"00011", 12}, {"00110", 14}, {"00111", 10}, {"10010", 9}, {"10011",
    64}, {"10110", 11}, {"10111", 7}, {"11000", 8}, {"000101", 80}, {"110010",
    13}, {"110011", 15}, {"0001001", 96}, {"00010001", 112}, {"00010000000",
    160}, {"00010000001", 176}, {"00010000010", 192}, {"00010000011", 208},
    {"00010000100", 224}, {"00010000101", 240}, {"00010000110", 256},
    {"000100001110", 128}, {"000100001111", 144}};
const CodeWord k_operand_252_3[] = {{"1", 1}, {"01", 2}, {"001", 3}, {"0000",
    4}, {"000101", 7}, {"000110", 6}, {"0001111", 5}, {"00010000", 16},
    {"00010010", 9}, {"00011101", 10}, {"000100010", 8}, {"000100011", 11},
    {"000100110", 12}, {"000100111", 13}, {"000111000", 14}, {"000111001", 15}};
const CodeWord k_operand_252_4[] = {{"1", 1}, {"01", 2}, {"001", 3}, {"0000",
    4}, {"000110", 6}, {"000111", 5}, {"0001000", 7}, {"00010010", 9},
    {"00010110", 8}, {"00010111", 10}, {"000100110", 11}, {"000100111", 12},
    {"000101000", 13}, {"000101001", 14}, {"000101010", 15}, {"000101011", 16}};
const CodeWord k_operand_252_5[] = {{"00", 4}, {"10", 3}, {"11", 2}, {"010", 5},
    {"0111", 6}, {"01101", 7}, {"011000", 9}, {"0110011", 8}, {"01100101", 10},
    {"0110010001", 11}, {"01100100000", 1}, {"01100100001", 12}, {"01100100100",
    13}, {"01100100101", 14}, {"01100100110", 15}, {"01100100111", 16}};
const CodeWord k_operand_252_6[] = {{"1", 2}, {"01", 3}, {"001", 4}, {"00001",
    6}, {"00011", 5}, {"000000", 8}, {"0000011", 7}, {"0001001", 11},
    {"00000100", 1}, {"00000101", 9}, {"00010000", 10}, {"00010001", 12},
    {"00010100", 13}, {"00010101", 14}, {"00010110", 15}, {"00010111", 16}};
const CodeWord k_operand_252_8[] = {{"1", 1}, {"01", 2}, {"001", 3}, {"00011",
    4}, {"000100", 5}, {"0000000", 8}, {"0000001", 9}, {"0000010", 10},
    {"0000011", 11}, {"0000100", 12}, {"0000101", 13}, {"0000110", 14},
    {"0000111", 15}, {"0001010", 16}, {"00010110", 6}, {"00010111", 7}};
const CodeWord k_operand_252_9[] = {{"1", 2}, {"010", 3}, {"011", 4}, {"0000",
    7}, {"0010", 5}, {"0011", 6}, {"000100", 9}, {"000111", 8}, {"0001010", 16},
    {"0001011", 11}, {"0001100", 10}, {"00011010", 12}, {"000110110", 14},
    {"0001101110", 15}, {"00011011110", 1}, {"00011011111", 13}};
const CodeWord k_opcode_3[] = {{"01", 4}, {"10", 5}, {"000", 3}, {"110", 0},
    {"111", 1}, {"0011", 2}, {"00100", 7}, {"00101", 6}};
const CodeWord k_operand_4[] = {{"10", 0}, {"000", 5}, {"001", 4}, {"010", 3},
    {"011", 2}, {"111", 1}, {"1100", 7}, {"1101", 6}};
const CodeWord k_operand_6[] = {{"00", 1}, {"11", 0}, {"011", 2}, {"101", 7},
    {"0100", 6}, {"0101", 5}, {"1000", 4}, {"1001", 3}};

// A prefix code as a tree walked one bit at a time: next[node][bit] is 0
// for no code word (a code with a hole), above 0 the next node, below 0
// the leaf of value -next - 1. Node 0 is the root. The walk's first 8 bits
// are looked up at once in `first`: a leaf with its word's length, or the
// node 8 bits down (length 0) from which the walk goes on bit by bit.
const int kMaxNodes = 64;
struct FirstByte {
  FS_SHORT next;
  FS_BYTE length;
};
struct PrefixTree {
  FS_SHORT next[kMaxNodes][2];
  FirstByte first[256];
};

template <size_t N>
PrefixTree build_tree(const CodeWord (&rows)[N]) {
  PrefixTree t = {};
  FS_SHORT used = 1;
  for (const CodeWord& row : rows) {
    FS_SHORT node = 0;
    for (const char* b = row.bits; *b; b++) {
      int bit = *b == '1';
      if (b[1] == '\0') {
        t.next[node][bit] = (FS_SHORT)(-row.value - 1);
      } else {
        if (t.next[node][bit] <= 0 && used < kMaxNodes) t.next[node][bit] = used++;
        node = t.next[node][bit] > 0 ? t.next[node][bit] : 0;
      }
    }
  }
  for (int byte = 0; byte < 256; byte++) {
    FS_SHORT node = 0;
    FS_BYTE depth = 0;
    while (depth < 8 && (depth == 0 || node > 0))
      node = t.next[node][(byte >> (7 - depth++)) & 1];
    t.first[byte] = {node, (FS_BYTE)(node < 0 ? depth : 0)};
  }
  return t;
}

// Moves the stream on by n bits (up to 16) that are known to be there.
inline void skip_bits(GS* gs, FS_LONG n) {
  gs->phase += n;
  if (gs->phase >= 16) gs->stackPointer--, gs->phase -= 16;
}

// The value of the next code word on the stream, or -1 when it is cut (or
// meets a hole, which none of the engine's codes has). With 8 bits or more
// left in the stream their lookup stands for the first 8 steps of the walk.
inline FS_LONG walk(const PrefixTree& t, GS* gs) {
  FS_SHORT node = 0;
  FS_LONG* floor = gs->streamFloor ? gs->streamFloor : gs->globalGS->stackBase;
  FS_LONG* sp = gs->stackPointer;
  if ((sp - floor) * 16 - gs->phase >= 8) {
    FS_ULONG window = ((FS_ULONG)sp[-1] & 0xFFFF) << 16;
    if (gs->phase > 8) window |= (FS_ULONG)sp[-2] & 0xFFFF;
    const FirstByte& e = t.first[(window >> (24 - gs->phase)) & 0xFF];
    if (e.next == 0) return -1;
    skip_bits(gs, e.length ? e.length : 8);
    if (e.next < 0) return -e.next - 1;
    node = e.next;
  }
  for (;;) {
    FS_LONG bit = get_bitfield(1, &gs->phase, gs);
    if (bit < 0) return -1;
    FS_SHORT next = t.next[node][bit];
    if (next < 0) return -next - 1;
    if (next == 0) return -1;
    node = next;
  }
}

}  // namespace

// Each code's tree, built when the library loads, and its reader.
#define FS_PREFIX_READER(name)                                              \
  namespace {                                                               \
  const PrefixTree tree_##name = build_tree(k_##name);                      \
  }                                                                         \
  FS_LONG get_huffman_##name(GS* gs) { return walk(tree_##name, gs); }
FS_PREFIX_READER(opcode_251)
FS_PREFIX_READER(operand_251_0)
FS_PREFIX_READER(operand_251_1)
FS_PREFIX_READER(operand_251_2)
FS_PREFIX_READER(operand_251_3)
FS_PREFIX_READER(operand_251_5)
FS_PREFIX_READER(operand_251_7)
FS_PREFIX_READER(operand_251_8)
FS_PREFIX_READER(operand_251_9)
FS_PREFIX_READER(opcode_252)
FS_PREFIX_READER(operand_252_0)
FS_PREFIX_READER(operand_252_1)
FS_PREFIX_READER(operand_252_2)
FS_PREFIX_READER(operand_252_3)
FS_PREFIX_READER(operand_252_4)
FS_PREFIX_READER(operand_252_5)
FS_PREFIX_READER(operand_252_6)
FS_PREFIX_READER(operand_252_8)
FS_PREFIX_READER(operand_252_9)
FS_PREFIX_READER(opcode_3)
FS_PREFIX_READER(operand_4)
FS_PREFIX_READER(operand_6)
#undef FS_PREFIX_READER

/* ---- The bit reader ---- */

FS_LONG get_bitfield(FS_LONG bitCount, FS_LONG* phase, GS* gs) {
  FS_LONG* floor = gs->streamFloor ? gs->streamFloor : gs->globalGS->stackBase;
  FS_LONG* sp = gs->stackPointer;
  FS_LONG end = *phase + bitCount;
  if (sp - floor < (end > 16 ? 2 : 1)) {  // the stream is cut
    if (sp > floor) gs->stackPointer = floor;
    *phase = 0;
    return -1;
  }
  FS_ULONG window = (FS_ULONG)sp[-1] & 0xFFFF;
  if (end > 16) {  // across the word: join the next one and pop one
    window = (window << 16) | ((FS_ULONG)sp[-2] & 0xFFFF);
    end -= 16;
    gs->stackPointer--;
    *phase = end;
    return (FS_LONG)((window >> (16 - end)) & ((1u << bitCount) - 1));
  }
  FS_LONG value = (FS_LONG)((window >> (16 - end)) & ((1u << bitCount) - 1));
  *phase = end;
  if (end == 16) gs->stackPointer--, *phase = 0;
  return value;
}

namespace {

/* ---- What the commands share ---- */

inline FS_LONG wrap_add(FS_LONG a, FS_LONG b) {
  return (FS_LONG)((FS_ULONG)a + (FS_ULONG)b);
}
inline FS_LONG wrap_mul(FS_LONG a, FS_LONG b) {
  return (FS_LONG)((FS_ULONG)a * (FS_ULONG)b);
}

// A field of `bits` bits read as a signed number; -1 and *cut when cut.
FS_LONG get_signed(GS* gs, FS_LONG bits, bool* cut) {
  FS_LONG v = get_bitfield(bits, &gs->phase, gs);
  *cut = v < 0;
  return v >= (1L << (bits - 1)) ? v - (1L << bits) : v;
}

// The step of a granularity field g, 26.6: 1 << (g + 6) up to g = 9 (1 to
// 512 pixels), else 1 << (g - 10) (1/64 to 1/2 pixel).
inline FS_LONG step_of(FS_LONG g) { return 1L << (g <= 9 ? g + 6 : g - 10); }

// `times` steps added to a delta; zero is not a delta value, so a sum that
// carries the delta from below zero to zero or above takes one more step.
inline FS_LONG add_steps(FS_LONG delta, FS_LONG times, FS_LONG step) {
  FS_LONG d = wrap_add(delta, wrap_mul(times, step));
  return delta < 0 && d >= 0 ? wrap_add(d, step) : d;
}

inline void run_instruction(GS* gs, FS_BYTE op) {
  gs->opCode = op;
  interpFunc[op](gs);
}
const FS_BYTE OP_SVTCA_Y = 0x00, OP_SVTCA_X = 0x01, OP_CLEAR = 0x22,
              OP_SHPIX = 0x38, OP_AA = 0x7F;

inline FS_LONG room(GS* gs) {
  fnt_GlobalGraphicStateType* g = gs->globalGS;
  return (FS_LONG)(g->stackBase + g->stackSize - gs->stackPointer);
}

// Drops the rest of a half-used word: the stream's next value starts on a
// fresh word.
inline void drop_half_word(GS* gs) {
  if (gs->phase != 0 && gs->stackPointer > gs->globalGS->stackBase)
    gs->stackPointer--;
  gs->phase = 0;
}

// Points pushed above the stream and shifted by SHPIX, with `loop` set to
// their count, as many at a time as the stack has room for.
struct Shift {
  GS* gs;
  F26DOT6 amount;
  FS_LONG count;
};
void shift_flush(Shift* s) {
  if (s->count == 0) return;
  *s->gs->stackPointer++ = s->amount;
  s->gs->loop = s->count - 1;
  s->count = 0;
  run_instruction(s->gs, OP_SHPIX);
}
void shift_add(Shift* s, FS_LONG point) {
  if (room(s->gs) < 2) shift_flush(s);
  if (room(s->gs) < 2) return;  // no room even for one point
  *s->gs->stackPointer++ = point;
  s->count++;
}

/* ---- The delta parts (252, and 250's two) ---- */

// The registers of a delta part, and of 253's runs.
struct DeltaPart {
  FS_LONG size;   // P: the pixels per em along the projection
  FS_LONG ppem;   // c: the stream's current ppem
  FS_LONG index;  // a contour (opcodes 2, 4, 5) or a point (6 to 9)
  F26DOT6 delta;
};

// The points of SHPIX's zone in the contours [first, first + n).
void shift_contours(Shift* s, FS_LONG first, FS_LONG n) {
  fnt_ElementType* el = s->gs->CE2;
  for (FS_LONG c = first < 0 ? 0 : first; c < el->nc && (FS_INT64)c - first < n; c++)
    for (FS_LONG p = el->sp[c]; p <= el->ep[c] && p < el->np; p++)
      if (p >= 0) shift_add(s, p);
}

// Every on-curve point whose current projection equals point i's, chosen
// against i's projection before any of them moves.
void shift_same_projection(Shift* s, FS_LONG i) {
  GS* gs = s->gs;
  fnt_ElementType* el = gs->CE2;
  if (i < 0 || i >= el->np) return;
  F26DOT6 at = gs->Project(gs, el->x[i], el->y[i]);
  for (FS_LONG p = 0; p < el->np; p++)
    if (el->onCurve[p] && gs->Project(gs, el->x[p], el->y[p]) == at) shift_add(s, p);
}

// The acting opcodes 2 to 9 of a delta part with operand n; they change no
// register but the index (opcode 2). Range opcodes act at the n sizes from
// the current ppem on, the others at the current ppem alone.
void delta_act(GS* gs, DeltaPart* d, FS_LONG op, FS_LONG n) {
  if (op == 2) {
    d->index = wrap_add(d->index, n);
    return;
  }
  bool range = op == 3 || op == 4 || op == 6 || op == 8;
  FS_LONG above = d->size - d->ppem;
  if (range ? above < 0 || above > n - 1 : above != 0) return;
  Shift s = {gs, d->delta, 0};
  switch (op) {
    case 3: shift_contours(&s, 0, gs->CE2->nc); break;
    case 4: shift_contours(&s, d->index, 1); break;
    case 5: shift_contours(&s, d->index, n); break;
    case 6: case 7: shift_same_projection(&s, d->index); break;
    case 8: shift_add(&s, d->index); break;
    default:  // 9: n points from the index
      for (FS_LONG k = 0; k < n; k++) shift_add(&s, wrap_add(d->index, k));
  }
  shift_flush(&s);
}

const PrefixTree* const kOperand252[10] = {
    &tree_operand_252_0, &tree_operand_252_1, &tree_operand_252_2, &tree_operand_252_3,
    &tree_operand_252_4, &tree_operand_252_5, &tree_operand_252_6, nullptr,
    &tree_operand_252_8, &tree_operand_252_9};

// A delta part along the freedom vector: g (4), a flag for a 16-bit base
// delta, the base delta in steps, a flag of no meaning here, then opcodes
// to one above 9. False when the stream is cut. In 250 a g of 8 says the
// part is absent (4 bits read).
bool do_deltas_250_deltapart(GS* gs, bool absentAt8) {
  FS_LONG g = get_bitfield(4, &gs->phase, gs);
  if (g < 0) return false;
  if (absentAt8 && g == 8) return true;
  FS_LONG step = step_of(g);
  FS_LONG wide = get_bitfield(1, &gs->phase, gs);
  if (wide < 0) return false;
  bool cut;
  FS_LONG base = get_signed(gs, wide ? 16 : 8, &cut);
  if (cut || get_bitfield(1, &gs->phase, gs) < 0) return false;
  DeltaPart d = {fnt_ProjectedPPEM(gs), 5, 0, wrap_mul(base, step)};
  for (;;) {
    FS_LONG op = walk(tree_opcode_252, gs);
    if (op < 0) return false;
    if (op > 9) return true;
    FS_LONG n = op == 7 ? 0 : walk(*kOperand252[op], gs);
    if (n < 0) return false;
    if (op == 0) {
      d.delta = add_steps(d.delta, n, step);
      d.ppem = 5, d.index = 0;
    } else if (op == 1) {
      d.ppem += n, d.index = 0;
    } else {
      delta_act(gs, &d, op, n);
    }
  }
}

/* ---- The alignment-zone part (251, and 250's first) ---- */

inline void append(FS_LONG* count, FS_LONG* list, FS_LONG v) {
  if (*count < MAZ_LIST_MAX) list[(*count)++] = v;
}

struct MazPart {
  bool x;  // the present axis
  FS_LONG size, step;
  FS_LONG baseDelta, basePpem, basePoint;
  FS_LONG delta, ppem, point, method;
};

void maz_axis(GS* gs, MazPart* m, bool x) {
  run_instruction(gs, x ? OP_SVTCA_X : OP_SVTCA_Y);
  m->x = x;
  m->size = fnt_ProjectedPPEM(gs);
  m->delta = m->baseDelta, m->ppem = m->basePpem, m->point = m->basePoint;
}

// Whether the size lies in the n sizes from the current ppem on.
inline bool maz_in(MazPart* m, FS_LONG n) {
  return m->size >= m->ppem && m->size - m->ppem < n;
}

void maz_record(GS* gs, MazPart* m) {
  fnt_MAZData* z = &gs->globalGS->maz_data;
  FS_LONG* count = m->x ? &z->nXdelta : &z->nYdelta;
  if (*count >= MAZ_LIST_MAX) return;
  (m->x ? z->Xdeltashift : z->Ydeltashift)[*count] = m->delta;
  (m->x ? z->Xdeltapoint : z->Ydeltapoint)[(*count)++] = m->point;
}

// The header (base delta 8 signed, g 4, base ppem 6, base point 8) and the
// opcodes to an end. `optional`: a base delta of 0 says the part is absent
// (8 bits read). False when the stream is cut or ends in CLEAR.
bool do_deltas_250_mazpart(GS* gs, bool optional) {
  bool cut;
  MazPart m = {};
  m.baseDelta = get_signed(gs, 8, &cut);
  if (cut) return false;
  if (optional && m.baseDelta == 0) return true;
  FS_LONG g = get_bitfield(4, &gs->phase, gs);
  if (g < 0) return false;
  if ((m.basePpem = get_bitfield(6, &gs->phase, gs)) < 0) return false;
  if ((m.basePoint = get_bitfield(8, &gs->phase, gs)) < 0) return false;
  m.step = step_of(g);
  m.baseDelta = wrap_mul(m.baseDelta, m.step);
  maz_axis(gs, &m, true);
  fnt_MAZData* z = &gs->globalGS->maz_data;
  for (;;) {
    FS_LONG op = get_huffman_opcode_251(gs), n = 0;
    if (op < 0) return false;
    switch (op) {
      case 0:
        if ((n = get_huffman_operand_251_0(gs)) < 0) return false;
        m.point = wrap_add(m.point, n);
        m.delta = m.baseDelta, m.ppem = m.basePpem;
        break;
      case 1:
        if ((n = get_huffman_operand_251_1(gs)) < 0) return false;
        m.delta = add_steps(m.delta, n, m.step);
        m.ppem = m.basePpem;
        break;
      case 2:
        if ((n = get_huffman_operand_251_2(gs)) < 0) return false;
        m.ppem += n;
        break;
      case 3:
        if ((n = get_huffman_operand_251_3(gs)) < 0) return false;
        m.ppem += n + 16;
        break;
      case 4:
        if (maz_in(&m, 1)) maz_record(gs, &m);
        m.ppem += 2;
        break;
      case 5:  // 2 to 17 sizes; one more is skipped after a range short of 17
        if ((n = get_huffman_operand_251_5(gs)) < 0) return false;
        if (maz_in(&m, n)) maz_record(gs, &m);
        m.ppem += n + (n < 17);
        break;
      case 6:
        m.point = m.basePoint, m.delta = m.baseDelta, m.ppem = m.basePpem;
        break;
      case 7:
        if ((n = get_huffman_operand_251_7(gs)) < 0) return false;
        m.method = n & 3, m.ppem = m.basePpem;
        break;
      case 8:  // 1 to 16 sizes; one more is skipped after a range short of 16
        if ((n = get_huffman_operand_251_8(gs)) < 0) return false;
        if (maz_in(&m, n) && m.method != 0) *(m.x ? &z->MAZmethodVert : &z->MAZmethodHorz) = m.method;
        m.ppem += n + (n < 16);
        break;
      case 9:  // as 8
        if ((n = get_huffman_operand_251_9(gs)) < 0) return false;
        if (maz_in(&m, n) && m.x) append(&z->nVcollapse, z->Vcollapse, m.point);
        if (maz_in(&m, n) && !m.x) append(&z->nHcollapse, z->Hcollapse, m.point);
        m.ppem += n + (n < 16);
        break;
      case 10:
        maz_axis(gs, &m, false);
        break;
      case 11:
      case 12:  // the alignment-zone hinter takes over: AA 5 or 6
        drop_half_word(gs);
        if (room(gs) < 1) return true;
        *gs->stackPointer++ = op == 11 ? 5 : 6;
        run_instruction(gs, OP_AA);
        return true;
      default:
        run_instruction(gs, OP_CLEAR);
        return false;
    }
  }
}

}  // namespace

/* ---- The commands ---- */

void do_deltas_250(GS* gs) {
  gs->phase = 0;
  if (do_deltas_250_mazpart(gs, true)) {
    run_instruction(gs, OP_SVTCA_X);
    if (do_deltas_250_deltapart(gs, true)) {
      run_instruction(gs, OP_SVTCA_Y);
      do_deltas_250_deltapart(gs, true);
    }
  }
  run_instruction(gs, OP_CLEAR);
  gs->phase = 0;
}

void do_deltas_251(GS* gs) {
  gs->phase = 0;
  do_deltas_250_mazpart(gs, false);
  gs->phase = 0;
}

void do_deltas_252(GS* gs) {
  gs->phase = 0;
  if (do_deltas_250_deltapart(gs, false)) drop_half_word(gs);
  gs->phase = 0;
}

// Four whole words: base delta and step (signed 26.6), then the start ppem
// (low 8 bits) with the stream's word count (bits 9 to 12), then a skip: at
// the ppem of its high 6 bits or above, the number of words in its low 10
// bits (0: no skip) is dropped, the count less them remains, and decoding
// starts at that ppem. Opcodes 0 (ppem += run, delta back to base) and 1
// (delta += run steps) take a run of get_huffman_operand_4; 2 to 7 take
// get_huffman_operand_6 and act as a delta part's. Decoding ends when the
// counted words are used: a code word running past them ends it, and what
// lies beneath the stream stays on the stack.
void do_deltas_253(GS* gs) {
  gs->phase = 0;
  FS_LONG* base = gs->globalGS->stackBase;
  if (gs->stackPointer - base < 4) {
    gs->stackPointer = base;
    return;
  }
  FS_LONG* sp = gs->stackPointer;
  F26DOT6 baseDelta = (FS_SHORT)(sp[-1] & 0xFFFF), step = (FS_SHORT)(sp[-2] & 0xFFFF);
  FS_LONG packed = sp[-3] & 0xFFFF, skip = sp[-4] & 0xFFFF;
  gs->stackPointer -= 4;
  DeltaPart d = {fnt_ProjectedPPEM(gs), packed & 0xFF, 0, baseDelta};
  FS_LONG words = (packed >> 9) & 15, skipWords = skip & 0x3FF;
  if (skipWords > 0 && d.size >= (skip >> 10)) {
    if (gs->stackPointer - base < skipWords) {
      gs->stackPointer = base;
      return;
    }
    gs->stackPointer -= skipWords;
    words -= skipWords;
    d.ppem = skip >> 10;
  }
  if (words <= 0) return;
  gs->streamFloor = gs->stackPointer - base > words ? gs->stackPointer - words : base;
  for (;;) {
    FS_LONG op = get_huffman_opcode_3(gs);
    FS_LONG n = op < 0 ? -1 : op <= 1 ? get_huffman_operand_4(gs) : get_huffman_operand_6(gs);
    if (n < 0) break;
    if (op == 0)
      d.ppem += n, d.delta = baseDelta;
    else if (op == 1)
      d.delta = add_steps(d.delta, n, step);
    else
      delta_act(gs, &d, op, n);
  }
  gs->streamFloor = nullptr;
  drop_half_word(gs);
}
