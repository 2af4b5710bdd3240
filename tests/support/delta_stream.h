// Test helper: writes the delta parts of compressed delta streams (AA 252,
// and 250's) from wanted shifts, with their prefix codes typed as "word =
// value" rows, and makes a glyph program of a stream.
#ifndef TESTS_SUPPORT_DELTA_STREAM_H
#define TESTS_SUPPORT_DELTA_STREAM_H

#include <stdio.h>

#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "support/sfnt_builder.h"

namespace deltastream {

enum Code { OP252, N252_0, N252_1, N252_2, N252_3, N252_4, N252_5, N252_6, N252_8, N252_9, CODES };
const char* const kCodes[CODES] = {
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
};
// A code's words by value.
inline const std::map<int, std::string>& words(int code) {
  static std::map<int, std::string> t[CODES];
  char w[16];
  int v, n;
  if (t[code].empty())
    for (const char* p = kCodes[code]; sscanf(p, " %15[01] = %d%n", w, &v, &n) == 2; p += n + (p[n] == ','))
      t[code].emplace(v, w);
  return t[code];
}

struct Writer {
  std::vector<bool> bits;
  void put(long v, int n) { while (n--) bits.push_back((v >> n) & 1); }
  void code(int c, int v) { for (char ch : words(c).at(v)) bits.push_back(ch == '1'); }
  // Opcode `op` with operands (1 to 16, 32, 48 ... 256) adding up to n.
  void sum(int opCode, int op, int arg, long n) {
    for (long t; n > 0; n -= t) t = n <= 16 ? n : std::min(256L, (n - 1) / 16 * 16), code(opCode, op), code(arg, (int)t);
  }
  std::vector<uint16_t> stream() const {
    std::vector<uint16_t> w((bits.size() + 15) / 16);
    for (size_t i = 0; i < bits.size(); i++) w[i / 16] |= (uint16_t)(bits[i] << (15 - i % 16));
    return w;
  }
};

// A program pushing the words last first (NPUSHW), then `which`, then AA.
inline sfnt::Bytes program(const std::vector<uint16_t>& w, int which) {
  sfnt::Bytes b;
  for (size_t end = w.size(), n; end > 0; end -= n) {
    n = std::min<size_t>(end, 255), b.push_back(0x41), b.push_back((uint8_t)n);
    for (size_t i = end; i > end - n; i--) sfnt::u16(b, w[i - 1]);
  }
  return b.insert(b.end(), {0xB0, (uint8_t)which, 0x7F}), b;
}

// The delta m steps above base: a step from below zero to zero or above takes one more.
inline long stepped(long base, long step, int m) {
  for (long e; m-- > 0; base = base < 0 && e >= 0 ? e + step : e) e = base + step;
  return base;
}

// A shift: opcode 3 to 9 at ppem `lo` (the first of n for 3, 4, 6, 8), operand n, the index, the delta m steps up.
struct Act { int op, lo, n, index, m; };

// A delta part of granularity g and base delta `base` steps; sorts `acts` as written.
inline void deltaPart(Writer& w, int g, long base, std::vector<Act>& acts) {
  std::stable_sort(acts.begin(), acts.end(),
                   [](const Act& a, const Act& b) { return std::tie(a.m, a.lo, a.index) < std::tie(b.m, b.lo, b.index); });
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

}  // namespace deltastream

#endif
