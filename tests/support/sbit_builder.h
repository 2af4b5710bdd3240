// Test helper: writes one embedded strike (the bitmap location and data
// tables) from glyph pictures, in any index format 1-5 and image format 1,
// 2, 5-9, 17-19. Each run of consecutive glyph ids of equal metrics becomes
// one index subtable; composites (8, 9) split each glyph into a top and a
// bottom part stored under extra glyph ids (format 2, or 1 when deeper).
#ifndef TESTS_SUPPORT_SBIT_BUILDER_H
#define TESTS_SUPPORT_SBIT_BUILDER_H

#include <stdint.h>

#include <vector>

#include "support/sfnt_builder.h"

namespace testsupport {

struct SbitGlyph {
  uint16_t id;
  int w, h, left, top, adv;
  std::vector<uint8_t> pix;  // w * h levels, rows top first; PNG bytes at depth 32
  bool same(const SbitGlyph& o) const {
    return w == o.w && h == o.h && left == o.left && top == o.top && adv == o.adv;
  }
};

// The image of `g` in format `im` (no metrics in 5 and 19).
inline sfnt::Bytes sbitImage(const SbitGlyph& g, int depth, int im) {
  sfnt::Bytes b;
  if (im == 1 || im == 2 || im == 8 || im == 17)
    for (int v : {g.h, g.w, g.left, g.top, g.adv}) sfnt::u8(b, (uint32_t)v);
  if (im == 6 || im == 7 || im == 9 || im == 18)
    for (int v : {g.h, g.w, g.left, g.top, g.adv, 0, 0, 0}) sfnt::u8(b, (uint32_t)v);
  if (im == 8) sfnt::u8(b, 0);  // pad
  if (im == 8 || im == 9 || im >= 17) {  // component records, or a PNG
    if (im >= 17) sfnt::u32(b, (uint32_t)g.pix.size());
    b.insert(b.end(), g.pix.begin(), g.pix.end());
    return b;
  }
  bool bitAligned = im == 2 || im == 5 || im == 7;
  size_t at = b.size(), bit = 0;
  for (int y = 0; y < g.h; y++, bit = bitAligned ? bit : (bit + 7) / 8 * 8)
    for (int x = 0; x < g.w; x++, bit += depth) {
      while (b.size() <= at + (bit + depth - 1) / 8) b.push_back(0);
      b[at + bit / 8] |= (uint8_t)(g.pix[y * g.w + x] << (8 - depth - bit % 8));
    }
  while (b.size() < at + (bit + 7) / 8) b.push_back(0);
  return b;
}

// EBLC (or CBLC) and EBDT (CBDT) of one strike holding `glyphs`, sorted by id.
inline void buildStrike(std::vector<SbitGlyph> glyphs, int ppem, int depth, int ix, int im,
                        sfnt::Bytes* eblc, sfnt::Bytes* ebdt) {
  uint32_t partsFrom = 0x10000;  // the parts lie under ids above the last glyph
  if (im == 8 || im == 9) {
    size_t n = glyphs.size();
    uint16_t next = (uint16_t)(glyphs[n - 1].id + 1);
    partsFrom = next;
    std::vector<SbitGlyph> parts;
    for (size_t i = 0; i < n; i++) {
      SbitGlyph& g = glyphs[i];
      int half = g.h / 2;
      SbitGlyph top{next++, g.w, half, 0, 0, 0, {g.pix.begin(), g.pix.begin() + g.w * half}};
      SbitGlyph bottom{next++, g.w, g.h - half, 0, 0, 0, {g.pix.begin() + g.w * half, g.pix.end()}};
      g.pix.clear();
      sfnt::u16(g.pix, 2);
      for (const SbitGlyph* p : {&top, &bottom}) {
        sfnt::u16(g.pix, p->id), sfnt::u8(g.pix, 0), sfnt::u8(g.pix, p == &top ? 0 : half);
        parts.push_back(*p);
      }
    }
    glyphs.insert(glyphs.end(), parts.begin(), parts.end());
  }
  std::vector<std::pair<size_t, size_t>> runs;  // [first, last] places
  for (size_t i = 0; i < glyphs.size(); i++)
    if (!runs.empty() && glyphs[i].id == glyphs[i - 1].id + 1 && glyphs[i].same(glyphs[i - 1]) &&
        (glyphs[i].id >= partsFrom) == (glyphs[i - 1].id >= partsFrom) &&
        (glyphs[i].pix.size() == glyphs[i - 1].pix.size() || (ix != 2 && ix != 5)))
      runs.back().second = i;
    else
      runs.push_back({i, i});
  sfnt::Bytes data, array, subs;
  sfnt::u32(data, depth == 32 ? 0x30000 : 0x20000);
  for (auto r : runs) {
    const SbitGlyph& g0 = glyphs[r.first];
    int format = g0.id < partsFrom ? im : im == 8 ? 2 : 7;
    sfnt::u16(array, g0.id), sfnt::u16(array, glyphs[r.second].id), sfnt::u32(array, 0);
    sfnt::putU32(array, array.size() - 4, (uint32_t)(8 * runs.size() + subs.size()));
    sfnt::u16(subs, (uint32_t)ix), sfnt::u16(subs, (uint32_t)format);
    sfnt::u32(subs, (uint32_t)data.size());
    std::vector<sfnt::Bytes> images;
    for (size_t i = r.first; i <= r.second; i++) images.push_back(sbitImage(glyphs[i], depth, format));
    if (ix == 2 || ix == 5) {
      sfnt::u32(subs, (uint32_t)images[0].size());
      for (int v : {g0.h, g0.w, g0.left, g0.top, g0.adv, 0, 0, 0}) sfnt::u8(subs, (uint32_t)v);
      if (ix == 5) sfnt::u32(subs, (uint32_t)images.size());
    } else if (ix == 4) {
      sfnt::u32(subs, (uint32_t)images.size());
    }
    uint32_t off = 0;
    for (size_t i = 0; i <= images.size(); i++) {
      uint16_t id = i < images.size() ? glyphs[r.first + i].id : 0;
      if (ix == 1) sfnt::u32(subs, off);
      if (ix == 3) sfnt::u16(subs, off);
      if (ix == 4) sfnt::u16(subs, id), sfnt::u16(subs, off);
      if (ix == 5 && i < images.size()) sfnt::u16(subs, id);
      if (i < images.size()) data.insert(data.end(), images[i].begin(), images[i].end());
      if (i < images.size()) off += (uint32_t)images[i].size();
    }
    if (ix == 3 || ix == 5) while (subs.size() % 4) subs.push_back(0);
  }
  eblc->clear();
  sfnt::u32(*eblc, depth == 32 ? 0x30000 : 0x20000), sfnt::u32(*eblc, 1);
  sfnt::u32(*eblc, 56), sfnt::u32(*eblc, (uint32_t)(array.size() + subs.size()));
  sfnt::u32(*eblc, (uint32_t)runs.size()), sfnt::u32(*eblc, 0);
  for (int i = 0; i < 24; i++) sfnt::u8(*eblc, 0);
  sfnt::u16(*eblc, glyphs.front().id), sfnt::u16(*eblc, glyphs.back().id);
  for (int v : {ppem, ppem, depth, 1}) sfnt::u8(*eblc, (uint32_t)v);
  eblc->insert(eblc->end(), array.begin(), array.end());
  eblc->insert(eblc->end(), subs.begin(), subs.end());
  *ebdt = data;
}

}  // namespace testsupport

#endif
