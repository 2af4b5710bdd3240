// Test helper: writes the compressed delta streams of AA 250 to 253 from
// lists of wanted corrections, with the engine's prefix codes typed as
// "word = value" rows, and makes a glyph program of a stream (its words
// pushed last first, then the command and AA).
#ifndef TESTS_SUPPORT_DELTA_STREAM_H
#define TESTS_SUPPORT_DELTA_STREAM_H

#include <stdio.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "support/sfnt_builder.h"

namespace deltastream {

enum Code { OP251, N251_0, N251_1, N251_2, N251_3, N251_5, N251_7, N251_8, N251_9, OP252,
            N252_0, N252_1, N252_2, N252_3, N252_4, N252_5, N252_6, N252_8, N252_9, OP3, N4, N6, CODES };
const char* const kCodes[CODES] = {
    "01 = 2, 10 = 4, 001 = 1, 111 = 0, 0001 = 3, 1100 = 5, 00000 = 10, 00001 = 11, 11010 = 12, 1101100 = 7, 1101101 = 8, 1101110 = 6, 1101111 = 9",
    "001 = 6, 110 = 16, 0000 = 11, 0001 = 3, 0101 = 4, 0110 = 7, 0111 = 1, 1000 = 5, 1010 = 32, 01001 = 15, 10010 = 48, 10011 = 14, 10110 = 10, 10111 = 2, 11100 = 12, 11101 = 13, 11110 = 8, 11111 = 9, 010001 = 64, 0100001 = 80, 010000000 = 96, 0100000010 = 256, 0100000011 = 112, 01000001000 = 128, 01000001001 = 144, 01000001010 = 160, 01000001011 = 176, 01000001100 = 192, 01000001101 = 208, 01000001110 = 224, 01000001111 = 240",
    "1 = 1, 001 = 7, 010 = 15, 0001 = 3, 0111 = 2, 01101 = 8, 000000 = 11, 000001 = 4, 0000110 = 12, 0110010 = 16, 00001001 = 6, 00001010 = 9, 01100111 = 10, 000010000 = 5, 000010001 = 13, 000010110 = 14, 000010111 = 32, 000011100 = 48, 000011101 = 64, 000011110 = 80, 000011111 = 96, 011000000 = 112, 011000001 = 128, 011000010 = 144, 011000011 = 160, 011000100 = 176, 011000101 = 192, 011000110 = 208, 011000111 = 224, 011001100 = 240, 011001101 = 256",
    "010 = 3, 100 = 2, 111 = 1, 0000 = 15, 0001 = 7, 0010 = 12, 0111 = 6, 1010 = 11, 1100 = 4, 1101 = 5, 00110 = 10, 00111 = 9, 01100 = 16, 01101 = 8, 10110 = 14, 10111 = 13",
    "010 = 2, 011 = 4, 100 = 3, 110 = 1, 0001 = 11, 0010 = 10, 0011 = 8, 1010 = 9, 1011 = 7, 1110 = 6, 1111 = 5, 00001 = 12, 0000000 = 13, 0000001 = 14, 0000010 = 15, 0000011 = 16",
    "1 = 2, 01 = 3, 000 = 4, 0011 = 5, 00100 = 6, 00101000 = 14, 00101001 = 15, 00101010 = 16, 00101011 = 17, 00101100 = 7, 001011010 = 8, 001011011 = 9, 001011100 = 10, 001011101 = 11, 001011110 = 12, 001011111 = 13",
    "1 = 2, 010 = 1, 00000 = 6, 00001 = 7, 00010 = 8, 00011 = 9, 00100 = 10, 00101 = 11, 00110 = 12, 00111 = 13, 01100 = 14, 01101 = 15, 011100 = 0, 011101 = 3, 011110 = 4, 011111 = 5",
    "00 = 12, 010 = 2, 100 = 16, 101 = 13, 111 = 1, 0110 = 15, 1100 = 14, 01110 = 3, 11011 = 11, 011110 = 4, 0111110 = 5, 0111111 = 6, 1101000 = 7, 1101001 = 8, 1101010 = 9, 1101011 = 10",
    "000 = 15, 001 = 2, 011 = 1, 100 = 16, 101 = 14, 110 = 13, 111 = 12, 01011 = 3, 010000 = 11, 010001 = 5, 010100 = 4, 010101 = 7, 0100100 = 6, 0100101 = 8, 0100110 = 9, 0100111 = 10",
    "10 = 1, 11 = 2, 000 = 7, 0010 = 4, 0011 = 5, 0100 = 8, 0101 = 9, 0110 = 0, 01111 = 3, 011100 = 6, 011101 = 15",
    "0 = 1, 100 = 3, 110 = 2, 1011 = 5, 1111 = 4, 11100 = 6, 11101 = 8, 101000 = 10, 101010 = 7, 101011 = 9, 10100110 = 12, 101001110 = 11, 101001111 = 14, 10100100000 = 48, 10100100001 = 64, 10100100010 = 80, 10100100011 = 96, 10100100100 = 112, 10100100101 = 128, 10100100110 = 144, 10100100111 = 160, 10100101000 = 176, 10100101001 = 192, 10100101010 = 208, 10100101011 = 224, 10100101100 = 240, 10100101101 = 256, 101001011100 = 13, 101001011101 = 15, 101001011110 = 16, 101001011111 = 32",
    "00 = 1, 011 = 7, 100 = 2, 0100 = 9, 1010 = 4, 1100 = 16, 1101 = 8, 1110 = 3, 01010 = 11, 01011 = 6, 10111 = 10, 11111 = 5, 101100 = 14, 101101 = 13, 111100 = 12, 1111010 = 15, 11110111 = 32, 11110110000 = 240, 11110110001 = 256, 111101100100 = 48, 111101100101 = 64, 111101100110 = 80, 111101100111 = 96, 111101101000 = 112, 111101101001 = 128, 111101101010 = 144, 111101101011 = 160, 111101101100 = 176, 111101101101 = 192, 111101101110 = 208, 111101101111 = 224",
    "010 = 16, 011 = 1, 0000 = 6, 0010 = 5, 1000 = 48, 1010 = 4, 1101 = 3, 1110 = 32, 1111 = 2, 00011 = 12, 00110 = 14, 00111 = 10, 10010 = 9, 10011 = 64, 10110 = 11, 10111 = 7, 11000 = 8, 000101 = 80, 110010 = 13, 110011 = 15, 0001001 = 96, 00010001 = 112, 00010000000 = 160, 00010000001 = 176, 00010000010 = 192, 00010000011 = 208, 00010000100 = 224, 00010000101 = 240, 00010000110 = 256, 000100001110 = 128, 000100001111 = 144",
    "1 = 1, 01 = 2, 001 = 3, 0000 = 4, 000101 = 7, 000110 = 6, 0001111 = 5, 00010000 = 16, 00010010 = 9, 00011101 = 10, 000100010 = 8, 000100011 = 11, 000100110 = 12, 000100111 = 13, 000111000 = 14, 000111001 = 15",
    "1 = 1, 01 = 2, 001 = 3, 0000 = 4, 000110 = 6, 000111 = 5, 0001000 = 7, 00010010 = 9, 00010110 = 8, 00010111 = 10, 000100110 = 11, 000100111 = 12, 000101000 = 13, 000101001 = 14, 000101010 = 15, 000101011 = 16",
    "00 = 4, 10 = 3, 11 = 2, 010 = 5, 0111 = 6, 01101 = 7, 011000 = 9, 0110011 = 8, 01100101 = 10, 0110010001 = 11, 01100100000 = 1, 01100100001 = 12, 01100100100 = 13, 01100100101 = 14, 01100100110 = 15, 01100100111 = 16",
    "1 = 2, 01 = 3, 001 = 4, 00001 = 6, 00011 = 5, 000000 = 8, 0000011 = 7, 0001001 = 11, 00000100 = 1, 00000101 = 9, 00010000 = 10, 00010001 = 12, 00010100 = 13, 00010101 = 14, 00010110 = 15, 00010111 = 16",
    "1 = 1, 01 = 2, 001 = 3, 00011 = 4, 000100 = 5, 0000000 = 8, 0000001 = 9, 0000010 = 10, 0000011 = 11, 0000100 = 12, 0000101 = 13, 0000110 = 14, 0000111 = 15, 0001010 = 16, 00010110 = 6, 00010111 = 7",
    "1 = 2, 010 = 3, 011 = 4, 0000 = 7, 0010 = 5, 0011 = 6, 000100 = 9, 000111 = 8, 0001010 = 16, 0001011 = 11, 0001100 = 10, 00011010 = 12, 000110110 = 14, 0001101110 = 15, 00011011110 = 1, 00011011111 = 13",
    "01 = 4, 10 = 5, 000 = 3, 110 = 0, 111 = 1, 0011 = 2, 00100 = 7, 00101 = 6",
    "10 = 0, 000 = 5, 001 = 4, 010 = 3, 011 = 2, 111 = 1, 1100 = 7, 1101 = 6",
    "00 = 1, 11 = 0, 011 = 2, 101 = 7, 0100 = 6, 0101 = 5, 1000 = 4, 1001 = 3",
};
// A code's words by value.
inline const std::map<int, std::string>& words(int code) {
  static std::map<int, std::string> t[CODES];
  char w[16];
  int v, n;
  if (t[code].empty())
    for (const char* p = kCodes[code]; sscanf(p, "%15[01] = %d%n", w, &v, &n) == 2; p += n + (p[n] == ',') * 2)
      t[code][v] = w;
  return t[code];
}

struct Writer {
  std::vector<bool> bits;
  void put(long v, int n) { while (n--) bits.push_back((v >> n) & 1); }
  void code(int c, int v) { for (char ch : words(c).at(v)) bits.push_back(ch == '1'); }
  void align() { while (bits.size() % 16) bits.push_back(false); }
  // An opcode and its operand as often as it takes to add n, from operand
  // values 1 to 16, 32, 48 ... 256.
  void sum(int opCode, int op, int arg, long n) {
    for (long t; n > 0; n -= t) t = n <= 16 ? n : std::min(256L, (n - 1) / 16 * 16), code(opCode, op), code(arg, (int)t);
  }
  std::vector<uint16_t> stream() const {
    std::vector<uint16_t> w((bits.size() + 15) / 16);
    for (size_t i = 0; i < bits.size(); i++) w[i / 16] |= (uint16_t)(bits[i] << (15 - i % 16));
    return w;
  }
};

// The stream's words pushed last first (NPUSHW), then PUSHB `which`, AA.
inline sfnt::Bytes program(const std::vector<uint16_t>& w, int which) {
  sfnt::Bytes b;
  for (size_t end = w.size(); end > 0;) {
    size_t n = std::min<size_t>(end, 255);
    b.push_back(0x41), b.push_back((uint8_t)n);
    for (size_t i = end; i > end - n; i--) sfnt::u16(b, w[i - 1]);
    end -= n;
  }
  for (uint8_t x : {(uint8_t)0xB0, (uint8_t)which, (uint8_t)0x7F}) b.push_back(x);
  return b;
}

// A delta value m steps above base, zero skipped: a step carrying it from
// below zero to zero or above takes one more.
inline long stepped(long base, long step, int m) {
  for (long e; m-- > 0; base = base < 0 && e >= 0 ? e + step : e) e = base + step;
  return base;
}

// A shift of a delta part: opcode 3 to 9 at ppem `lo` (the first of n for
// 3, 4, 6, 8), operand n, the index, and the delta m steps above the base.
struct Act {
  int op, lo, n, index, m;
};

// A delta part (252, 250's) with granularity g and base delta `base`
// steps; sorts `acts` into the order they are written.
inline void deltaPart(Writer& w, int g, long base, std::vector<Act>& acts) {
  std::stable_sort(acts.begin(), acts.end(), [](const Act& a, const Act& b) {
    return std::tie(a.m, a.lo, a.index) < std::tie(b.m, b.lo, b.index);
  });
  bool wide = base < -128 || base > 127;
  w.put(g, 4), w.put(wide, 1), w.put(base, wide ? 16 : 8), w.put(1, 1);
  int m = 0, ppem = 5, index = 0;
  for (const Act& a : acts) {
    if (a.m > m) w.sum(OP252, 0, N252_0, a.m - m), m = a.m, ppem = 5, index = 0;
    if (a.lo > ppem) w.sum(OP252, 1, N252_1, a.lo - ppem), ppem = a.lo, index = 0;
    if (a.index > index) w.sum(OP252, 2, N252_2, a.index - index), index = a.index;
    w.code(OP252, a.op);
    if (a.op != 7) w.code(N252_0 + a.op - (a.op > 7), a.n);
  }
  w.code(OP252, 15);
}

// An alignment-zone item of an axis (0 x, 1 y) at a set of sizes: a delta
// record of a point m steps above the base (kind 0), a collapsing point
// (1), or a method (2, `point` the operand whose low bits are the method).
struct Maz {
  int axis, kind, point, m;
  std::set<int> sizes;
};

// An alignment-zone part (251, 250's) with its header; sorts `items` into
// the order they are written; ends with opcode `end`, 11 or 12.
inline void mazPart(Writer& w, int base, int g, int basePpem, int basePoint, std::vector<Maz>& items, int end) {
  std::stable_sort(items.begin(), items.end(), [](const Maz& a, const Maz& b) {
    auto key = [](const Maz& i) { return std::make_tuple(i.axis, i.kind != 2, i.kind == 2 ? 0 : i.point, i.kind == 0, i.m); };
    return key(a) < key(b);
  });
  w.put(base, 8), w.put(g, 4), w.put(basePpem, 6), w.put(basePoint, 8);
  int axis = 0, point = basePoint, m = 0, ppem = basePpem, first = 1;
  for (const Maz& it : items) {
    if (it.axis != axis) w.code(OP251, 10), axis = 1, point = basePoint, m = 0, ppem = basePpem, first = 1;
    if (it.kind == 2) w.code(OP251, 7), w.code(N251_7, it.point), ppem = basePpem;
    if (it.kind != 2 && first) w.code(OP251, 6), point = basePoint, m = 0, ppem = basePpem, first = 0;
    if (it.kind != 2 && it.point > point) w.sum(OP251, 0, N251_0, it.point - point), point = it.point, m = 0, ppem = basePpem;
    if (it.kind == 0 && it.m > m) w.sum(OP251, 1, N251_1, it.m - m), m = it.m, ppem = basePpem;
    if (*it.sizes.begin() < ppem) w.code(OP251, 7), w.code(N251_7, 0), ppem = basePpem;  // back to the base ppem
    int most = it.kind == 0 ? 17 : 16;
    for (auto s = it.sizes.begin(); s != it.sizes.end(); s = it.sizes.upper_bound(ppem - 1)) {
      int lo = *s, len = 1, gap = lo - ppem;
      while (len < most && it.sizes.count(lo + len)) len++;
      for (; gap > 16; gap -= std::min(gap, 32)) w.code(OP251, 3), w.code(N251_3, std::min(gap, 32) - 16);
      if (gap > 0) w.code(OP251, 2), w.code(N251_2, gap);
      if (it.kind == 0 && len == 1) { w.code(OP251, 4), ppem = lo + 2; continue; }
      w.code(OP251, it.kind == 0 ? 5 : it.kind == 1 ? 9 : 8);
      w.code(it.kind == 0 ? N251_5 : it.kind == 1 ? N251_9 : N251_8, len);
      ppem = lo + len + (len < most);
    }
  }
  w.code(OP251, end);
}

}  // namespace deltastream

#endif
