// Test helper: one embedded strike from glyph pictures in index format 1-5 and image format 1, 2, 5-9,
// 17-19, a subtable per run of ids of equal metrics (and size, for index 2 and 5). Composites (8, 9)
// split each glyph into a top and a bottom part, stored in format 2 or 7 under ids past the last.
#ifndef TESTS_SUPPORT_SBIT_BUILDER_H
#define TESTS_SUPPORT_SBIT_BUILDER_H

#include <algorithm>
#include <vector>

#include "support/sfnt_builder.h"

namespace testsupport {

struct SbitGlyph {
  uint16_t id;
  int w, h, left, top, adv;
  std::vector<uint8_t> pix;  // w x h levels, top row first; a PNG at depth 32
  bool same(const SbitGlyph& o) const { return w == o.w && h == o.h && left == o.left && top == o.top && adv == o.adv; }
  bool operator==(const SbitGlyph& o) const { return same(o) && pix == o.pix; }
};

inline sfnt::Bytes sbitImage(const SbitGlyph& g, int depth, int im) {
  sfnt::Bytes b;
  bool small = im == 1 || im == 2 || im == 8 || im == 17, big = im == 6 || im == 7 || im == 9 || im == 18;
  if (small || big)
    for (int v : {g.h, g.w, g.left, g.top, g.adv, 0, 0, 0}) b.size() < (small ? 5u : 8u) ? sfnt::u8(b, v) : void();
  if (im == 8) sfnt::u8(b, 0);  // pad
  if (im >= 17) sfnt::u32(b, (uint32_t)g.pix.size());
  if (im == 8 || im == 9 || im >= 17) return b.insert(b.end(), g.pix.begin(), g.pix.end()), b;
  bool bitAligned = im == 2 || im == 5 || im == 7;
  size_t at = b.size(), bit = 0;
  for (int y = 0; y < g.h; y++, bit = bitAligned ? bit : (bit + 7) / 8 * 8)
    for (int x = 0; x < g.w; x++, bit += depth) {
      b.resize(std::max(b.size(), at + (bit + depth + 7) / 8));
      b[at + bit / 8] |= (uint8_t)(g.pix[y * g.w + x] << (8 - depth - bit % 8));
    }
  b.resize(at + (bit + 7) / 8);
  return b;
}

// The location table into *eblc and the data table into *ebdt.
inline void buildStrike(std::vector<SbitGlyph> glyphs, int ppem, int depth, int ix, int im,
                        sfnt::Bytes* eblc, sfnt::Bytes* ebdt) {
  uint32_t parts = 0x10000;  // the first part's id
  if (im == 8 || im == 9) {
    std::vector<SbitGlyph> extra;
    parts = glyphs.back().id + 1u;
    for (SbitGlyph& g : glyphs) {
      int half = g.h / 2, n = g.w * half;
      extra.push_back({(uint16_t)(parts + extra.size()), g.w, half, 0, 0, 0, {g.pix.begin(), g.pix.begin() + n}});
      extra.push_back({(uint16_t)(parts + extra.size()), g.w, g.h - half, 0, 0, 0, {g.pix.begin() + n, g.pix.end()}});
      g.pix = {0, 2};
      for (int k : {2, 1}) sfnt::u16(g.pix, extra[extra.size() - k].id), sfnt::u16(g.pix, k == 1 ? half : 0);
    }
    glyphs.insert(glyphs.end(), extra.begin(), extra.end());
  }
  sfnt::Bytes data, array, subs;
  sfnt::u32(data, depth == 32 ? 0x30000 : 0x20000);
  size_t runs = 0;
  for (size_t first = 0, last; first < glyphs.size(); first = last + 1, runs++) {
    const SbitGlyph& g0 = glyphs[first];
    for (last = first; last + 1 < glyphs.size(); last++) {
      const SbitGlyph &a = glyphs[last], &b = glyphs[last + 1];
      if (b.id != a.id + 1 || !b.same(a) || (b.id >= parts) != (a.id >= parts) ||
          ((ix == 2 || ix == 5) && b.pix.size() != a.pix.size()))
        break;
    }
    sfnt::u16(array, g0.id), sfnt::u16(array, glyphs[last].id), sfnt::u32(array, (uint32_t)subs.size());
    sfnt::u16(subs, ix), sfnt::u16(subs, g0.id < parts ? im : im == 8 ? 2 : 7);
    sfnt::u32(subs, (uint32_t)data.size());
    size_t start = data.size();
    for (size_t i = first; i <= last; i++) {
      sfnt::Bytes b = sbitImage(glyphs[i], depth, g0.id < parts ? im : im == 8 ? 2 : 7);
      if (ix == 1 || ix == 3) ix == 1 ? sfnt::u32(subs, data.size() - start) : sfnt::u16(subs, data.size() - start);
      if ((ix == 2 || ix == 5) && i == first) {
        sfnt::u32(subs, (uint32_t)b.size());
        for (int v : {g0.h, g0.w, g0.left, g0.top, g0.adv, 0, 0, 0}) sfnt::u8(subs, v);
      }
      if ((ix == 4 || ix == 5) && i == first) sfnt::u32(subs, (uint32_t)(last - first + 1));
      if (ix == 5) sfnt::u16(subs, glyphs[i].id);
      if (ix == 4) sfnt::u16(subs, glyphs[i].id), sfnt::u16(subs, data.size() - start);
      data.insert(data.end(), b.begin(), b.end());
    }
    if (ix == 1 || ix == 3) ix == 1 ? sfnt::u32(subs, data.size() - start) : sfnt::u16(subs, data.size() - start);
    if (ix == 4) sfnt::u16(subs, 0), sfnt::u16(subs, data.size() - start);
    while (subs.size() % 4) subs.push_back(0);
  }
  for (size_t r = 0; r < runs; r++) sfnt::putU32(array, 8 * r + 4, sfnt::getU32(array, 8 * r + 4) + 8 * runs);
  eblc->clear();
  for (uint32_t v : {depth == 32 ? 0x30000u : 0x20000u, 1u, 56u, (uint32_t)(array.size() + subs.size()),
                     (uint32_t)runs, 0u, 0u, 0u, 0u, 0u, 0u, 0u})
    sfnt::u32(*eblc, v);
  sfnt::u16(*eblc, glyphs.front().id), sfnt::u16(*eblc, glyphs.back().id);
  for (int v : {ppem, ppem, depth, 1}) sfnt::u8(*eblc, v);
  eblc->insert(eblc->end(), array.begin(), array.end());
  eblc->insert(eblc->end(), subs.begin(), subs.end());
  *ebdt = data;
}

}  // namespace testsupport

#endif
