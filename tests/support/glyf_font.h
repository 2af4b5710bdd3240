// Test helper: a TrueType font of hand-made glyphs for the scaler's tests,
// built byte by byte on sfnt_builder. 1000 units per em; every glyph has
// advance 500 and a left side bearing equal to its xMin (0 for the empty
// and composite glyphs), so that the left phantom place is x = 0.
#ifndef TESTS_SUPPORT_GLYF_FONT_H
#define TESTS_SUPPORT_GLYF_FONT_H

#include <utility>
#include <vector>

#include "support/sfnt_builder.h"

namespace glyffont {

using sfnt::Bytes;

// A simple glyph: contour ends, then points as (x, y, on) absolute, and
// its instruction bytes.
struct Pt {
  int x, y;
  bool on;
};
inline Bytes simple(const std::vector<int>& ends, const std::vector<Pt>& pts,
                    const Bytes& instructions = {}) {
  Bytes b;
  int xMin = 0, yMin = 0, xMax = 0, yMax = 0;
  for (size_t i = 0; i < pts.size(); i++) {
    if (i == 0 || pts[i].x < xMin) xMin = pts[i].x;
    if (i == 0 || pts[i].y < yMin) yMin = pts[i].y;
    if (i == 0 || pts[i].x > xMax) xMax = pts[i].x;
    if (i == 0 || pts[i].y > yMax) yMax = pts[i].y;
  }
  sfnt::u16(b, (uint32_t)ends.size());
  for (int v : {xMin, yMin, xMax, yMax}) sfnt::u16(b, (uint32_t)v);
  for (int e : ends) sfnt::u16(b, (uint32_t)e);
  sfnt::u16(b, (uint32_t)instructions.size());
  b.insert(b.end(), instructions.begin(), instructions.end());
  for (const Pt& p : pts) sfnt::u8(b, p.on ? 1 : 0);  // word deltas
  int last = 0;
  for (const Pt& p : pts) sfnt::u16(b, (uint32_t)(p.x - last)), last = p.x;
  last = 0;
  for (const Pt& p : pts) sfnt::u16(b, (uint32_t)(p.y - last)), last = p.y;
  return b;
}

// One component: flags are added to ARG_1_AND_2_ARE_WORDS; `scale` in
// 2.14 units is written when flags ask for one (0x8).
struct Comp {
  uint32_t flags;
  uint32_t index;
  int arg1, arg2;
  int scale = 0x4000;
};
inline Bytes composite(const std::vector<Comp>& comps) {
  Bytes b;
  sfnt::u16(b, 0xFFFF);  // -1 contours
  for (int i = 0; i < 4; i++) sfnt::u16(b, 0);
  for (size_t i = 0; i < comps.size(); i++) {
    uint32_t flags = comps[i].flags | 0x1;
    if (i + 1 < comps.size()) flags |= 0x20;
    sfnt::u16(b, flags);
    sfnt::u16(b, comps[i].index);
    sfnt::u16(b, (uint32_t)comps[i].arg1);
    sfnt::u16(b, (uint32_t)comps[i].arg2);
    if (flags & 0x8) sfnt::u16(b, (uint32_t)comps[i].scale);
  }
  return b;
}

// A font whose glyphs are `glyphs` (empty bytes for an empty glyph), with
// long `loca` offsets; `loca` replaces the computed offsets when given.
inline sfnt::Font font(const std::vector<Bytes>& glyphs,
                       const std::vector<uint32_t>& loca = {},
                       uint32_t maxPoints = 10, uint32_t maxContours = 2) {
  sfnt::Font f = sfnt::minimalGlyfFont();
  Bytes head = sfnt::head(1000, -100, -200, 1000, 1000);
  sfnt::putU16(head, 50, 1);  // long loca offsets
  f.set("head", head);
  uint32_t n = (uint32_t)glyphs.size();
  f.set("hhea", sfnt::hhea(800, -200, n));
  Bytes maxp = sfnt::maxp10(n);
  sfnt::putU16(maxp, 6, maxPoints);
  sfnt::putU16(maxp, 8, maxContours);
  sfnt::putU16(maxp, 10, 40);  // maxCompositePoints
  sfnt::putU16(maxp, 12, 4);   // maxCompositeContours
  f.set("maxp", maxp);
  Bytes hmtx, glyf, offsets;
  for (const Bytes& g : glyphs) {
    sfnt::u32(offsets, (uint32_t)glyf.size());
    glyf.insert(glyf.end(), g.begin(), g.end());
    int xMin = g.size() >= 10 ? (int16_t)sfnt::getU16(g, 2) : 0;
    sfnt::u16(hmtx, 500);
    sfnt::u16(hmtx, (uint32_t)xMin);
  }
  sfnt::u32(offsets, (uint32_t)glyf.size());
  if (!loca.empty()) {
    offsets.clear();
    for (uint32_t v : loca) sfnt::u32(offsets, v);
  }
  f.set("hmtx", hmtx);
  f.set("glyf", glyf);
  f.set("loca", offsets);
  return f;
}

// The font programs and control values of a font (`fpgm`, `prep`, `cvt `:
// empty bytes leave a table out) with its `maxp` counts of points,
// contours and instruction bytes raised to what the glyphs of `f` need.
inline void setPrograms(sfnt::Font& f, const Bytes& fpgm, const Bytes& prep,
                        const Bytes& cvt, Bytes maxp, uint32_t points,
                        uint32_t instructionBytes) {
  sfnt::putU16(maxp, 4, sfnt::getU16(*f.find("maxp"), 4));  // numGlyphs
  for (auto raise : {std::pair<size_t, uint32_t>{6, points}, {8, 1}, {26, instructionBytes}})
    if (sfnt::getU16(maxp, raise.first) < raise.second) sfnt::putU16(maxp, raise.first, raise.second);
  f.set("maxp", maxp);
  for (const auto& t : {std::make_pair("fpgm", &fpgm), {"prep", &prep}, {"cvt ", &cvt}})
    t.second->empty() ? (void)f.remove(t.first) : (void)f.set(t.first, *t.second);
}

// The triangle used throughout: (0,0) on, (100,0) on, (50,100) off, with
// its instruction bytes.
inline Bytes triangle(const Bytes& instructions = {}) {
  return simple({2}, {{0, 0, true}, {100, 0, true}, {50, 100, false}}, instructions);
}

}  // namespace glyffont

#endif
