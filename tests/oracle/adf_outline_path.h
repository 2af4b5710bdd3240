// A libfreetype outline as the distance-field renderer's pen-command path:
// points in pixels (26.6 << 10), an em of ppem, the extent of the end points
// as the glue takes it. The commands live in `cmds`.
#ifndef TESTS_ORACLE_ADF_OUTLINE_PATH_H
#define TESTS_ORACLE_ADF_OUTLINE_PATH_H

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <algorithm>
#include <vector>

#include "Orvex_internal/adfgenerate.h"

namespace oracle {

inline int addPenCmd(void* cmds, ADF_U32 op, const FT_Vector* to, const FT_Vector* c, const FT_Vector* c2) {
  ((std::vector<ADFPenCmd>*)cmds)->push_back({op, (ADF_F32)(to->x * 1024), (ADF_F32)(to->y * 1024), (ADF_F32)(c->x * 1024),
                                              (ADF_F32)(c->y * 1024), (ADF_F32)(c2->x * 1024), (ADF_F32)(c2->y * 1024)});
  return 0;
}

inline ADFPath outlinePath(const FT_Outline& outline, int ppem, ADF_U32 gid, std::vector<ADFPenCmd>& cmds) {
  static const FT_Outline_Funcs decompose = {
      [](const FT_Vector* to, void* u) { return addPenCmd(u, 0, to, to, to); },
      [](const FT_Vector* to, void* u) { return addPenCmd(u, 1, to, to, to); },
      [](const FT_Vector* c, const FT_Vector* to, void* u) { return addPenCmd(u, 2, to, c, c); },
      [](const FT_Vector* c, const FT_Vector* c2, const FT_Vector* to, void* u) { return addPenCmd(u, 3, to, c, c2); },
      0, 0};
  FT_Outline_Decompose(const_cast<FT_Outline*>(&outline), &decompose, &cmds);
  ADFPath p = {0, 0, 0, 0, 0, 0, ppem << 16, gid, 0, (ADF_U32)cmds.size(), cmds.data(), nullptr};
  if (!cmds.empty()) p.glyphMinX = p.glyphMaxX = cmds[0].x, p.glyphMinY = p.glyphMaxY = cmds[0].y;
  for (const ADFPenCmd& m : cmds) {
    p.glyphMinX = std::min(p.glyphMinX, m.x), p.glyphMaxX = std::max(p.glyphMaxX, m.x);
    p.glyphMinY = std::min(p.glyphMinY, m.y), p.glyphMaxY = std::max(p.glyphMaxY, m.y);
  }
  return p;
}

}  // namespace oracle

#endif
