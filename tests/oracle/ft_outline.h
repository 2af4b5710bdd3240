// The engine's outlines handed to libfreetype, the test-only oracle of the
// scan converters' differential tests.
#ifndef TESTS_ORACLE_FT_OUTLINE_H
#define TESTS_ORACLE_FT_OUTLINE_H

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <vector>

#include "Orvex_internal/fs_outline.h"

namespace oracle {

// The engine's outline as a libfreetype outline in 26.6, moved by
// (-ox, -oy) whole pixels. The engine's points are 26.6 shifted left by 10
// (implied midpoints may carry half a 26.6 unit, which is rounded).
struct FtOutline {
  std::vector<FT_Vector> pts;
  std::vector<char> tags;
  std::vector<short> ends;
  FT_Outline ft;
  FtOutline(const FS_OUTLINE* o, long ox, long oy, long mul = 1) {
    long p = 0;
    auto add = [&](char tag) {
      FT_Vector v;
      v.x = ((o->x[p] * (FT_Pos)mul + 512) >> 10) - ox * 64 * mul;
      v.y = ((o->y[p] * (FT_Pos)mul + 512) >> 10) - oy * 64 * mul;
      pts.push_back(v);
      tags.push_back(tag);
      p++;
    };
    for (int k = 0; k < o->num; k++) {
      int t = o->type[k] & 0x7F;
      if (t == FS_MOVETO) {
        if (!pts.empty()) ends.push_back((short)(pts.size() - 1));
        add(FT_CURVE_TAG_ON);
      } else if (t == FS_LINETO) {
        add(FT_CURVE_TAG_ON);
      } else if (t == FS_QUADTO) {
        add(FT_CURVE_TAG_CONIC);
        add(FT_CURVE_TAG_ON);
      } else {
        add(FT_CURVE_TAG_CUBIC);
        add(FT_CURVE_TAG_CUBIC);
        add(FT_CURVE_TAG_ON);
      }
    }
    if (!pts.empty()) ends.push_back((short)(pts.size() - 1));
    ft.n_points = (short)pts.size();
    ft.n_contours = (short)ends.size();
    ft.points = pts.data();
    ft.tags = tags.data();
    ft.contours = ends.data();
    ft.flags = FT_OUTLINE_NONE;
  }
};

// Whether the outline has lines only.
inline bool straight(const FS_OUTLINE* o) {
  for (int k = 0; k < o->num; k++)
    if ((o->type[k] & 0x7F) > FS_LINETO) return false;
  return true;
}

}  // namespace oracle

#endif
