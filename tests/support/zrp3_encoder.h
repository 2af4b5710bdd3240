// Test helper: the writing side of the engine's compressed fonts and compact
// glyph formats, from a real TrueType font. `spline` turns a `glyf` entry
// into the spline form; `compress` lays out the uncompressed font (spline
// `glyf`, long `loca`, a `zrp3` table) and its image of raw and token blocks;
// `pack` makes a `ccc`/`ddd` font. Each is written from the format's rules
// alone, so that the engine's readers are checked against an independent
// writer.
#ifndef TESTS_SUPPORT_ZRP3_ENCODER_H
#define TESTS_SUPPORT_ZRP3_ENCODER_H

#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <numeric>
#include <queue>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/sfnt_builder.h"

namespace zrp3 {

using sfnt::Bytes;

inline int s16(const Bytes& b, size_t at) { return (int16_t)sfnt::getU16(b, at); }
inline int bitsFor(uint32_t v) { int n = 0; while (v) v >>= 1, n++; return n; }
inline void append(Bytes& b, const Bytes& more) { b.insert(b.end(), more.begin(), more.end()); }

// Appends numbers of any width (up to 32 bits) most significant bit first.
struct BitWriter {
  Bytes out;
  uint64_t bits = 0;
  void put(uint32_t v, int n) {
    for (int i = n - 1; i >= 0; i--, bits++) {
      if (bits % 8 == 0) out.push_back(0);
      if ((v >> i) & 1) out.back() |= (uint8_t)(0x80 >> (bits % 8));
    }
  }
};

/* ---- Compact numbers and the spline form ---- */

inline void put255UShort(Bytes& b, uint32_t v) {
  if (v < 253) sfnt::u8(b, v);
  else if (v < 506) sfnt::u8(b, 255), sfnt::u8(b, v - 253);
  else if (v < 762) sfnt::u8(b, 254), sfnt::u8(b, v - 506);
  else sfnt::u8(b, 253), sfnt::u16(b, v);
}
// Never starts with 251 or 252, which a push list reads as hops.
inline void put255Short(Bytes& b, int v) {
  if (v >= 0 && v < 250) sfnt::u8(b, v);
  else if (v >= -256 && v < 0) sfnt::u8(b, 250), sfnt::u8(b, -v - 1);
  else if (v >= 250 && v < 506) sfnt::u8(b, 255), sfnt::u8(b, v - 250);
  else if (v >= 506 && v < 762) sfnt::u8(b, 254), sfnt::u8(b, v - 506);
  else sfnt::u8(b, 253), sfnt::u16(b, (uint32_t)v);
}

// The values of the leading run of push instructions, and the rest.
inline void splitPushes(const uint8_t* p, size_t n, std::vector<int>& values, Bytes& rest) {
  size_t i = 0;
  while (i < n) {
    uint8_t op = p[i];
    size_t count, width, head = 1;
    if ((op == 0x40 || op == 0x41) && i + 1 < n) count = p[i + 1], width = op - 0x3F, head = 2;
    else if (op >= 0xB0 && op <= 0xBF) count = (op & 7) + 1, width = op < 0xB8 ? 1 : 2;
    else break;
    if (i + head + count * width > n) break;
    for (const uint8_t* v = p + i + head; v < p + i + head + count * width; v += width)
      values.push_back(width == 1 ? v[0] : (int16_t)((v[0] << 8) | v[1]));
    i += head + count * width;
  }
  rest.assign(p + i, p + n);
}

// The instructions as push values (hops where they fit) and the rest.
inline void putInstructions(Bytes& b, const uint8_t* p, size_t n) {
  std::vector<int> v;
  Bytes rest;
  splitPushes(p, n, v, rest);
  put255UShort(b, (uint32_t)v.size());
  for (size_t i = 0; i < v.size();) {
    bool hop = i >= 2 && i + 2 < v.size() && v[i] == v[i - 2] && v[i + 2] == v[i - 2];
    if (hop && i + 4 < v.size() && v[i + 4] == v[i - 2])
      sfnt::u8(b, 252), put255Short(b, v[i + 1]), put255Short(b, v[i + 3]), i += 5;
    else if (hop) sfnt::u8(b, 251), put255Short(b, v[i + 1]), i += 3;
    else put255Short(b, v[i++]);
  }
  put255UShort(b, (uint32_t)rest.size());
  append(b, rest);
}

// The point code and bytes of a delta (the smallest form that holds it).
inline void putPoint(Bytes& codes, Bytes& data, int dx, int dy, bool on) {
  int ax = abs(dx), ay = abs(dy), sign = (dx >= 0) + 2 * (dy >= 0), code, bytes;
  uint32_t v;
  if (dx == 0 && ay < 1280) code = 2 * (ay / 256) + (dy >= 0), v = ay % 256, bytes = 1;
  else if (dy == 0 && ax < 1280) code = 10 + 2 * (ax / 256) + (dx >= 0), v = ax % 256, bytes = 1;
  else if (ax >= 1 && ax <= 64 && ay >= 1 && ay <= 64)
    code = 20 + 4 * (4 * ((ax - 1) / 16) + (ay - 1) / 16) + sign,
    v = (((ax - 1) % 16) << 4) | ((ay - 1) % 16), bytes = 1;
  else if (ax >= 1 && ax <= 768 && ay >= 1 && ay <= 768)
    code = 84 + 4 * (3 * ((ax - 1) / 256) + (ay - 1) / 256) + sign,
    v = (((ax - 1) % 256) << 8) | ((ay - 1) % 256), bytes = 2;
  else if (ax < 4096 && ay < 4096) code = 120 + sign, v = (ax << 12) | ay, bytes = 3;
  else code = 124 + sign, v = (ax << 16) | ay, bytes = 4;
  codes.push_back((uint8_t)(code | (on ? 0 : 0x80)));
  for (int k = bytes - 1; k >= 0; k--) data.push_back((uint8_t)(v >> (8 * k)));
}

// A parsed simple glyph.
struct Simple {
  int nc = 0;
  std::vector<int> ends, x, y;
  std::vector<bool> on;
  size_t instrAt = 0, instrLen = 0;
  int box[4] = {0, 0, 0, 0};
};
inline Simple parseSimple(const Bytes& g) {
  Simple s;
  s.nc = s16(g, 0);
  for (int k = 0; k < 4; k++) s.box[k] = s16(g, 2 + 2 * k);
  size_t p = 10;
  for (int i = 0; i < s.nc; i++, p += 2) s.ends.push_back((int)sfnt::getU16(g, p));
  s.instrLen = sfnt::getU16(g, p), s.instrAt = p + 2, p += 2 + s.instrLen;
  size_t n = s.nc ? s.ends.back() + 1 : 0;
  std::vector<uint8_t> f;
  while (f.size() < n) {
    uint8_t fl = g[p++];
    f.push_back(fl);
    if (fl & 8) f.insert(f.end(), g[p++], fl);
  }
  for (int axis = 0; axis < 2; axis++) {
    int c = 0, shortBit = axis ? 4 : 2, sameBit = axis ? 32 : 16;
    for (size_t i = 0; i < n; i++) {
      if (f[i] & shortBit) c += (f[i] & sameBit) ? g[p] : -g[p], p++;
      else if (!(f[i] & sameBit)) c += s16(g, p), p += 2;
      (axis ? s.y : s.x).push_back(c);
    }
  }
  for (size_t i = 0; i < n; i++) s.on.push_back(f[i] & 1);
  return s;
}

// The size of a composite record with `flags`.
inline size_t recordSize(uint32_t flags) {
  return 4 + ((flags & 1) ? 4 : 2) + ((flags & 8) ? 2 : (flags & 0x40) ? 4 : (flags & 0x80) ? 8 : 0);
}
// Composite records of `g` from byte 10: their bytes' end and whether
// instructions follow; `at` gets each record's place.
inline size_t compositeEnd(const Bytes& g, bool* instructions, std::vector<size_t>* at = nullptr) {
  size_t p = 10;
  uint32_t flags;
  *instructions = false;
  do {
    if (at) at->push_back(p);
    flags = sfnt::getU16(g, p), p += recordSize(flags);
    *instructions |= (flags & 0x100) != 0;
  } while (flags & 0x20);
  return p;
}

// The spline form of a `glyf` entry; `keepBox` asks for the 32767 form,
// which is also taken whenever the stored box is not the points' box (each
// such glyph counted in `boxesDiffer`).
inline Bytes spline(const Bytes& g, bool keepBox, int* boxesDiffer = nullptr) {
  Bytes b;
  if (g.empty()) return b;
  if (s16(g, 0) < 0) {
    bool instr;
    size_t end = compositeEnd(g, &instr);
    b.assign(g.begin(), g.begin() + end);
    if (instr) putInstructions(b, g.data() + end + 2, sfnt::getU16(g, end));
    return b;
  }
  Simple s = parseSimple(g);
  int box[4] = {0, 0, 0, 0};
  if (!s.x.empty()) {
    auto x = std::minmax_element(s.x.begin(), s.x.end()), y = std::minmax_element(s.y.begin(), s.y.end());
    box[0] = *x.first, box[1] = *y.first, box[2] = *x.second, box[3] = *y.second;
  }
  bool differs = !std::equal(box, box + 4, s.box);
  if (boxesDiffer) *boxesDiffer += differs;
  if (keepBox || differs) sfnt::u16(b, 32767);
  sfnt::u16(b, s.nc);
  if (keepBox || differs) for (int v : s.box) sfnt::u16(b, (uint32_t)v);
  for (int i = 0; i < s.nc; i++) put255UShort(b, s.ends[i] - (i ? s.ends[i - 1] : -1));
  Bytes codes, data;
  for (size_t i = 0; i < s.x.size(); i++)
    putPoint(codes, data, s.x[i] - (i ? s.x[i - 1] : 0), s.y[i] - (i ? s.y[i - 1] : 0), s.on[i]);
  append(b, codes), append(b, data);
  putInstructions(b, g.data() + s.instrAt, s.instrLen);
  return b;
}

/* ---- Glyphs of a font ---- */

inline std::vector<Bytes> glyphsOf(const sfnt::Font& f) {
  const Bytes &loca = *f.find("loca"), &glyf = *f.find("glyf");
  bool longLoca = s16(*f.find("head"), 50) == 1;
  auto at = [&](size_t i) { return longLoca ? sfnt::getU32(loca, 4 * i) : 2 * sfnt::getU16(loca, 2 * i); };
  std::vector<Bytes> out;
  for (size_t i = 0; i < sfnt::getU16(*f.find("maxp"), 4); i++)
    out.push_back(Bytes(glyf.begin() + at(i), glyf.begin() + at(i + 1)));
  return out;
}

// `glyf` and long `loca` of `glyphs` (each padded to 4 bytes when `pad`).
inline void setGlyphs(sfnt::Font& f, const std::vector<Bytes>& glyphs, bool pad = true) {
  Bytes glyf, loca;
  for (const Bytes& g : glyphs) {
    sfnt::u32(loca, (uint32_t)glyf.size()), append(glyf, g);
    while (pad && glyf.size() % 4) glyf.push_back(0);
  }
  sfnt::u32(loca, (uint32_t)glyf.size());
  Bytes head = *f.find("head");
  sfnt::putU16(head, 50, 1);
  f.set("head", head).set("glyf", glyf).set("loca", loca);
}

/* ---- Token blocks ---- */

struct Block { uint32_t start, length, stored; };  // in the uncompressed font; in the image
// What the token blocks of an image hold: the longest code, and the units
// whose first symbol starts in the unit before.
struct TokenStats { int longestCode = 0, straddles = 0; };

// A token block's parts: the dictionary's lengths, 3-byte offsets (none for
// a block whose offsets follow from the lengths) and text in code order;
// groups (bits, first code, last code); a mark (stream bit) and a delta per
// unit; the code stream.
struct Parts {
  uint32_t size = 0, units = 0;
  Bytes lengths, offsets, text, marks, deltas, stream;
  std::vector<uint32_t> bits, firsts, lasts;
};
inline Bytes blockBytes(const Parts& p) {
  Bytes b;
  for (uint32_t v : {sfnt::tagOf("RAC\3"), 0u, p.size, (uint32_t)p.lengths.size()}) sfnt::u32(b, v);
  append(b, p.lengths), sfnt::u8(b, p.offsets.empty() ? 0 : 3), append(b, p.offsets);
  sfnt::u32(b, (uint32_t)p.text.size()), append(b, p.text);
  sfnt::u8(b, (uint32_t)p.bits.size());
  for (uint32_t v : p.bits) sfnt::u8(b, v);
  for (uint32_t v : p.firsts) sfnt::u32(b, v);
  for (uint32_t v : p.lasts) sfnt::u32(b, v);
  sfnt::u32(b, p.units), append(b, p.marks), append(b, p.deltas);
  sfnt::u32(b, (uint32_t)b.size() + 4), append(b, p.stream);
  sfnt::putU32(b, 4, (uint32_t)b.size());  // the block's size
  return b;
}

// A token block of `data`: the 256 bytes and the 200 most frequent 2 to 8
// byte strings, canonical codes of one group per length, a mark per unit.
inline Bytes tokenBlock(const Bytes& data, uint32_t unit, bool explicitOffsets,
                        TokenStats* stats = nullptr) {
  std::vector<Bytes> dict;
  for (int c = 0; c < 256; c++) dict.push_back(Bytes(1, (uint8_t)c));
  auto keyOf = [&](size_t at, size_t len) {  // the string's bytes as a number
    return std::accumulate(&data[at], &data[at] + len, (uint64_t)0, [](uint64_t k, uint8_t b) { return (k << 8) | b; });
  };
  std::vector<std::unordered_map<uint64_t, uint32_t>> count(9), index(9);
  // Under the sanitizer the strings are counted at every 4th place only,
  // which keeps the suite quick and still finds the frequent ones.
#if defined(__SANITIZE_ADDRESS__)
  const size_t step = 4;
#else
  const size_t step = 1;
#endif
  std::vector<std::pair<int64_t, std::pair<size_t, uint64_t>>> all;  // (-count, (length, key))
  for (size_t len = 2; len <= 8; len++) {
    for (size_t at = 0; at + len <= data.size(); at += step) count[len][keyOf(at, len)]++;
    for (auto& kv : count[len]) all.push_back({-(int64_t)kv.second, {len, kv.first}});
  }
  size_t keep = std::min<size_t>(200, all.size());
  std::partial_sort(all.begin(), all.begin() + keep, all.end());
  for (size_t i = 0; i < keep; i++) {
    size_t len = all[i].second.first;
    Bytes s;
    for (size_t j = len; j-- > 0;) s.push_back((uint8_t)(all[i].second.second >> (8 * j)));
    index[len][all[i].second.second] = (uint32_t)dict.size();
    dict.push_back(s);
  }
  // Greedy longest match, and the Huffman code lengths of the tokens used
  // (each merge of the two rarest sets lengthens their members' codes).
  std::vector<uint32_t> parse;
  std::vector<uint64_t> freq(dict.size(), 0);
  for (size_t at = 0; at < data.size(); at += dict[parse.back()].size()) {
    uint32_t t = data[at];
    for (size_t l = std::min<size_t>(8, data.size() - at); l >= 2 && t < 256; l--) {
      auto it = index[l].find(keyOf(at, l));
      if (it != index[l].end()) t = it->second;
    }
    parse.push_back(t), freq[t]++;
  }
  std::vector<int> length(dict.size(), 0);
  typedef std::pair<uint64_t, std::vector<uint32_t>> Set;
  std::priority_queue<Set, std::vector<Set>, std::greater<Set>> q;
  for (uint32_t t = 0; t < dict.size(); t++) if (freq[t]) q.push({freq[t], {t}});
  if (q.size() == 1) length[q.top().second[0]] = 1;
  while (q.size() > 1) {
    Set a = q.top(), b = (q.pop(), q.top());
    q.pop(), a.second.insert(a.second.end(), b.second.begin(), b.second.end());
    for (uint32_t t : a.second) length[t]++;
    q.push({a.first + b.first, a.second});
  }
  // Canonical order: by code length, then dictionary order; unused last.
  std::vector<uint32_t> order(dict.size()), code(dict.size());
  std::iota(order.begin(), order.end(), 0u);
  std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
    return (length[a] ? length[a] : 99) < (length[b] ? length[b] : 99);
  });
  Parts k;
  k.size = (uint32_t)data.size();
  uint32_t c = 0;
  for (uint32_t t : order) {
    if (explicitOffsets) sfnt::u8(k.offsets, (uint32_t)k.text.size() >> 16), sfnt::u16(k.offsets, (uint32_t)k.text.size());
    sfnt::u8(k.lengths, (uint32_t)dict[t].size()), append(k.text, dict[t]);
    if (!length[t]) continue;
    if (k.bits.empty() || k.bits.back() != (uint32_t)length[t]) {
      c <<= length[t] - (k.bits.empty() ? 0 : k.bits.back());
      k.bits.push_back(length[t]), k.firsts.push_back(c), k.lasts.push_back(c);
    }
    code[t] = c, k.lasts.back() = c++;
  }
  // The stream, and a mark per unit at the token that covers its start.
  BitWriter w;
  for (size_t at = 0, i = 0; i < parse.size(); at += dict[parse[i++]].size()) {
    for (; k.units * unit < at + dict[parse[i]].size(); k.units++)
      sfnt::u32(k.marks, (uint32_t)w.bits), k.deltas.push_back((uint8_t)(k.units * unit - at));
    w.put(code[parse[i]], length[parse[i]]);
  }
  k.stream = w.out;
  if (stats != nullptr) {
    for (uint32_t g : k.bits) stats->longestCode = std::max(stats->longestCode, (int)g);
    for (uint8_t d : k.deltas) stats->straddles += d != 0;
  }
  return blockBytes(k);
}

/* ---- The compressed font ---- */

struct Compressed {
  Bytes plain, image;  // the uncompressed font (what every fragment must read); what the engine is given
  std::vector<Block> blocks;
  std::vector<bool> raw;
  uint32_t glyfStart = 0, glyfEnd = 0;
  int boxesKept = 0;  // glyphs whose stored box is not their points'
  TokenStats tokens;
};

// `src` with `glyf` in spline form (unless it is a compact font, whose
// glyph data passes as it stands) and long `loca`, compressed in units of
// `unit` bytes: header, directory, `zrp3` and `OS/2` raw, the rest tokens.
inline Compressed compress(sfnt::Font src, uint32_t unit, bool convertGlyphs = true) {
  Compressed out;
  if (convertGlyphs) {
    std::vector<Bytes> glyphs = glyphsOf(src);
    for (size_t i = 0; i < glyphs.size(); i++) glyphs[i] = spline(glyphs[i], i % 7 == 0, &out.boxesKept);
    setGlyphs(src, glyphs, false);
  }
  sfnt::Font f;
  f.version = src.version;
  f.set("zrp3", Bytes(20 + 14 * (src.tables.size() + 1), 0));  // an entry per block
  for (const sfnt::Table& t : src.tables) f.set(t.tag, t.data);
  out.plain = sfnt::build(f);
  std::vector<uint32_t> offs;
  for (size_t i = 0; i < f.tables.size(); i++) offs.push_back(sfnt::getU32(out.plain, 12 + 16 * i + 8));
  offs.push_back((uint32_t)out.plain.size());
  out.image.assign(out.plain.begin(), out.plain.begin() + offs[1]);
  Bytes zrp;
  sfnt::u16(zrp, 20), sfnt::u32(zrp, 0), sfnt::u32(zrp, (uint32_t)out.plain.size());
  sfnt::u32(zrp, 0), sfnt::u32(zrp, 0), sfnt::u16(zrp, (uint32_t)f.tables.size());  // `glyf`: below
  for (size_t i = 0; i < f.tables.size(); i++) {
    Block b = {i ? offs[i] : 0, i ? offs[i + 1] - offs[i] : offs[1], i ? (uint32_t)out.image.size() : 0};
    bool raw = i == 0 || f.tables[i].tag == "OS/2";
    if (f.tables[i].tag == "glyf") out.glyfStart = b.start, out.glyfEnd = b.start + b.length;
    out.blocks.push_back(b), out.raw.push_back(raw);
    for (uint32_t v : {b.start, b.length, b.stored}) sfnt::u32(zrp, v);
    sfnt::u16(zrp, raw ? 0 : unit == 128 ? 1 : unit);
    Bytes part(out.plain.begin() + b.start, out.plain.begin() + b.start + b.length);
    if (i) append(out.image, raw ? part : tokenBlock(part, unit, unit != 128, &out.tokens));
  }
  sfnt::putU32(zrp, 2, (uint32_t)out.image.size());
  sfnt::putU32(zrp, 10, out.glyfStart), sfnt::putU32(zrp, 14, out.glyfEnd);
  std::copy(zrp.begin(), zrp.end(), out.plain.begin() + offs[0]);
  std::copy(zrp.begin(), zrp.end(), out.image.begin() + offs[0]);
  return out;
}

/* ---- The compact formats ---- */

// The compact `ccc` (`format` 0x02xx) or `ddd` (0x05xx) font of `src`:
// bit-packed `loca`, packed `hmtx`, simple glyphs without their box,
// composites bit-packed. Stores `lsb - xMin`, so that glyphs read with a
// zero box keep their places. A `ddd` font gets an `ADFH` table.
inline sfnt::Font pack(sfnt::Font src, uint32_t format) {
  bool ddd = (format >> 8) == 5, v8 = format == 0x0202, v7 = !ddd && !v8 && format != 0x0200;
  int nbSF = (ddd || v8) ? 16 : 10;
  std::vector<Bytes> glyphs = glyphsOf(src);
  uint32_t numGlyphs = (uint32_t)glyphs.size();
  int nbGlyf = bitsFor(sfnt::getU16(*src.find("maxp"), 28));
  Bytes glyf;
  std::vector<uint32_t> offsets;
  for (const Bytes& g : glyphs) {
    offsets.push_back((uint32_t)glyf.size());
    if (g.empty() || s16(g, 0) >= 0) {
      glyf.insert(glyf.end(), g.begin(), g.begin() + std::min<size_t>(2, g.size()));
      if (g.size() > 10) glyf.insert(glyf.end(), g.begin() + 10, g.end());
      continue;
    }
    bool instr;
    std::vector<size_t> at;
    size_t end = compositeEnd(g, &instr, &at);
    BitWriter w;
    w.put(1, 1), w.put((uint32_t)at.size(), nbGlyf);
    for (size_t p : at) {
      uint32_t fl = sfnt::getU16(g, p);
      w.put(fl & 1, 1);
      if (!ddd) w.put((fl >> 2) & 1, 1);
      w.put((fl & 0x40) ? 0 : (fl & 8) ? 6 : (fl & 0x80) ? 7 : 2, (fl & 0x40) ? 1 : (fl & 0x88) ? 3 : 2);
      w.put(sfnt::getU16(g, p + 2), ddd ? bitsFor(numGlyphs) : 16);
      if (fl & 1) w.put(sfnt::getU16(g, p + 4), 16), w.put(sfnt::getU16(g, p + 6), 16);
      else w.put(g[p + 4], 8), w.put(g[p + 5], 8);
      for (size_t q = p + ((fl & 1) ? 8 : 6); q < p + recordSize(fl); q += 2)
        w.put(sfnt::getU16(g, q) >> (16 - nbSF), nbSF);
      if (v8) w.put((fl >> 9) & 1, 1);
    }
    w.put(instr, 1);
    if (instr) w.out.insert(w.out.end(), g.begin() + end, g.begin() + end + 2 + sfnt::getU16(g, end));
    append(glyf, w.out);
  }
  offsets.push_back((uint32_t)glyf.size());
  BitWriter loca;
  for (uint32_t o : offsets) loca.put(o, bitsFor((uint32_t)glyf.size() + 1));
  // Metrics: long entries (advance, bearing), then trailing bearings.
  const Bytes& hmtx = *src.find("hmtx");
  uint32_t nlong = sfnt::getU16(*src.find("hhea"), 34);
  std::vector<int> aw, lsb;
  for (uint32_t i = 0; i < numGlyphs; i++) {
    int xMin = glyphs[i].size() >= 10 ? s16(glyphs[i], 2) : 0;
    aw.push_back(sfnt::getU16(hmtx, 4 * std::min(i, nlong - 1)));
    lsb.push_back((i < nlong ? s16(hmtx, 4 * i + 2) : s16(hmtx, 4 * nlong + 2 * (i - nlong))) - xMin);
  }
  Bytes table;
  BitWriter w;
  if (ddd) {
    std::vector<int> advances;
    auto indexOf = [&](int a) { return (uint32_t)(std::find(advances.begin(), advances.end(), a) - advances.begin()); };
    for (uint32_t i = 0; i < nlong; i++) if (indexOf(aw[i]) == advances.size()) advances.push_back(aw[i]);
    int nb = bitsFor((uint32_t)advances.size() - 1);
    sfnt::u8(table, (uint32_t)advances.size()), sfnt::u8(table, nb);
    for (int a : advances) sfnt::u8(table, a == 256 ? 255 : a);
    for (uint32_t i = 0; i < nlong; i++) w.put(indexOf(aw[i]), nb);
    src.set("ADFH", Bytes(16, 0));
  } else {
    auto l = std::minmax_element(lsb.begin(), lsb.end());
    auto a = std::minmax_element(aw.begin(), aw.begin() + nlong);
    int minL = *l.first, nbL = bitsFor(*l.second - minL), minA = (v7 || v8) ? *a.first : 0;
    int nbA = (v7 || v8) ? bitsFor(*a.second - minA) : 16;
    sfnt::u16(table, (uint32_t)minL), sfnt::u16(table, nbL);
    if (v7 || v8) sfnt::u16(table, (uint32_t)minA), sfnt::u16(table, nbA);
    for (uint32_t i = 0; i < numGlyphs; i++) {
      if (i < nlong) w.put(aw[i] - minA, nbA);
      w.put(lsb[i] - minL, nbL);
    }
  }
  append(table, w.out);
  Bytes head = *src.find("head");
  sfnt::putU16(head, 52, format);
  src.set("head", head).set("glyf", glyf).set("loca", loca.out).set("hmtx", table);
  return src;
}

}  // namespace zrp3

#endif
