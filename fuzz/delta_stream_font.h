// The delta-stream target's input as a font: the first byte picks the
// command (250 to 253) and the second a size (8 to 40 pixels per em); the
// rest, two bytes a word, is the stream a glyph program pushes before the
// command, on a glyph of three contours and 12 points.
#ifndef FUZZ_DELTA_STREAM_FONT_H
#define FUZZ_DELTA_STREAM_FONT_H

#include "Orvex_internal/fs_api.h"
#include "support/delta_stream.h"
#include "support/glyf_font.h"

namespace fuzz {

inline sfnt::Bytes deltaStreamFont(const uint8_t* data, size_t size,
                                   FS_USHORT* ppem) {
  std::vector<uint16_t> words;
  for (size_t i = 2; i + 1 < size && words.size() < 4096; i += 2)
    words.push_back((uint16_t)(data[i] << 8 | data[i + 1]));
  sfnt::Bytes pgm = deltastream::program(words, 250 + (size > 0 ? data[0] % 4 : 0));
  static const glyffont::Pt pts[12] = {
      {0, 0, 1},     {200, 0, 1},   {200, 200, 1}, {0, 200, 1},
      {300, 0, 1},   {400, 100, 0}, {500, 0, 1},   {400, -50, 0},
      {200, 300, 1}, {600, 300, 1}, {600, 200, 0}, {300, 200, 1}};
  sfnt::Font f = glyffont::font(
      {glyffont::simple({3, 7, 11}, {pts, pts + 12}, pgm)}, {}, 12, 3);
  sfnt::Bytes maxp = *f.find("maxp");
  sfnt::putU16(maxp, 24, (uint32_t)words.size() + 16);  // maxStackElements
  glyffont::setPrograms(f, {}, {}, {}, maxp, 12, (uint32_t)pgm.size());
  *ppem = (FS_USHORT)(8 + (size > 1 ? data[1] % 33 : 0));
  return sfnt::build(f);
}

}  // namespace fuzz

#endif
