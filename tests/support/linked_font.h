// Test helper: the three packaged fonts of the linked font tests and a
// linked font joining them, and the scaled points of a glyph as one vector,
// for comparing a set's glyphs with a file's own.
#ifndef TESTS_SUPPORT_LINKED_FONT_H
#define TESTS_SUPPORT_LINKED_FONT_H

#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_glyphmap.h"
#include "Orvex_internal/fs_request.h"
#include "Orvex_internal/fs_xmalloc.h"
#include "support/ltt_builder.h"

namespace testsupport {

// The components, in the set's order: their folders and files.
const char kLinkedDir[3][48] = {"/usr/share/fonts/truetype/liberation2",
                                "/usr/share/fonts/truetype/dejavu",
                                "/usr/share/fonts/truetype/noto"};
const char kLinkedFile[3][32] = {"LiberationSerif-Regular.ttf", "DejaVuSans.ttf",
                                 "NotoSansArmenian-Regular.ttf"};
// Their glyph counts, and so the set's numbering.
const unsigned kLinkedGlyphs[3] = {2602, 6253, 107};
const unsigned kLinkedStart[3] = {0, 2602, 8855};

inline std::string linkedPath(int i) {
  return std::string(kLinkedDir[i]) + "/" + kLinkedFile[i];
}

// Liberation Serif for U+0000 to U+03FF only, then DejaVu Sans and Noto Sans
// Armenian for all planes, each by its absolute folder.
inline LttComponentSpec linkedComponent(int i) {
  LttComponentSpec c;
  c.fontName = i == 0 ? "Liberation Serif" : i == 1 ? "DejaVu Sans" : "Noto Sans Armenian";
  c.fileName = kLinkedFile[i];
  c.numGlyphs = kLinkedGlyphs[i];
  c.keys = {std::string("targetdirectory=") + kLinkedDir[i]};
  if (i == 0) {
    c.bmp1 = "1";
    c.bmp2 = "0";
  } else {
    for (const char* k : {"plane1range1=", "plane1range2=", "plane2range1=", "plane2range2=",
                          "plane14range1=", "plane14range2="})
      c.keys.push_back(std::string(k) + "0xFFFFFFFF");
  }
  return c;
}

inline LttSpec linkedSet() {
  LttSpec s;
  s.name = "Linked Three";
  for (int i = 0; i < 3; i++) s.components.push_back(linkedComponent(i));
  return s;
}

// The points of `id` at the client's size: contour ends, then x, y and on
// per point; empty when the engine refuses (the error stays in the client).
inline std::vector<long> glyphPoints(FS_STATE* st, FS_ULONG id) {
  std::vector<long> v;
  FS_GLYPH_POINTS* p = FSS_get_points(st, id);
  if (p == nullptr) return v;
  for (FS_SHORT c = 0; c < p->nc; c++) v.push_back(p->ep[c]);
  for (FS_SHORT i = 0; i < p->np; i++) {
    v.push_back(p->x[i]);
    v.push_back(p->y[i]);
    v.push_back(p->onCurve[i]);
  }
  FSS_free(st, p);
  return v;
}

}  // namespace testsupport

#endif
