// Test helper: writes linked font files of any version (0 to 8 and beyond):
// the text head, one 512-byte block per component with any key lines, and a
// binary tail with size adjustment tables, group type tables, font-set tables
// copied from a real font and component fonts embedded whole, whose offsets
// the builder writes into the key lines. Also the three packaged fonts of the
// linked font tests, a set joining them, and a glyph's points as one vector.
#ifndef TESTS_SUPPORT_LTT_BUILDER_H
#define TESTS_SUPPORT_LTT_BUILDER_H

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Orvex_internal/fs_api.h"
#include "Orvex_internal/fs_cmap.h"
#include "support/sfnt_builder.h"
#include "support/test_support.h"
#include "support/typeset_font.h"

namespace testsupport {

using sfnt::Bytes;

inline Bytes fileBytes(const std::string& path) { return sfnt::asBytes(readBytes(path)); }

struct LttComponentSpec {
  std::string fontName = "Alpha", fileName = "a.ttf";
  std::string bmp1 = "0xFFFFFFFF", bmp2 = "0xFFFFFFFF";
  unsigned numGlyphs = 0, numIcons = 0;
  std::vector<std::string> keys;              // "key=value" lines, as given
  std::vector<std::vector<int>> adjustments;  // (ppem, scale, shift) records
  Bytes embedded;                             // a font kept in the linked file
  bool terminate = true;  // false: the block's last line has no newline
};

struct LttSpec {
  int version = 6;
  int legalCount = -1;  // the count line; -1: the number of legal lines
  std::vector<std::string> legal = {"Test linked font"};
  std::string name = "Linked";
  unsigned metric = 0;
  std::vector<std::string> headKeys;
  std::vector<LttComponentSpec> components;
  std::vector<int> groups;  // (group, type) pairs
  // Font-set tables copied from this font (head, maxp, hhea, OS/2, post,
  // name, cmap, kern, GSUB: those it has), with their offset keys.
  Bytes setTablesFrom;
  bool terminateHead = true;  // false: the last head line has no newline

  size_t headSize() const { return version >= 7 ? 1024 : 512; }

  Bytes build() const {
    Bytes tail;
    std::vector<std::string> hkeys;
    std::vector<std::vector<std::string>> ckeys(components.size());
    // Puts `b` 4-aligned in the tail, with the key lines of its offset and count.
    auto place = [&](std::vector<std::string>& keys, const Bytes& b, const std::string& off, const char* count, size_t n) {
      while (tail.size() % 4) tail.push_back(0);
      size_t at = headSize() + 512 * components.size() + tail.size();
      keys.push_back(off + "=" + std::to_string(at));
      if (count) keys.push_back(count + ("=" + std::to_string(n)));
      tail.insert(tail.end(), b.begin(), b.end());
    };
    auto words = [](const std::vector<int>& v) { Bytes b; for (int x : v) sfnt::u16(b, (uint32_t)x); return b; };
    // maxp first: below version 6 the reader takes it right behind the last
    // block whatever the head says.
    sfnt::Font source = setTablesFrom.empty() ? sfnt::Font() : sfnt::read(setTablesFrom);
    const char* const kTags[] = {"maxp", "head", "hhea", "OS/2", "post", "name", "cmap", "kern", "GSUB"};  // the last four sized
    for (int k = 0; k < 9; k++)
      if (const Bytes* t = source.find(kTags[k])) {
        std::string key = k == 8 ? "ot_gsub" : k == 3 ? "os/2" : kTags[k];
        place(hkeys, *t, key + "_offset", k >= 5 ? (key + "_size").c_str() : nullptr, t->size());
      }
    if (!groups.empty())
      place(hkeys, words(groups), "grouptypesoffset", "grouptypescount", groups.size() / 2);
    for (size_t i = 0; i < components.size(); i++) {
      const LttComponentSpec& c = components[i];
      std::vector<int> records;
      for (const auto& r : c.adjustments) records.insert(records.end(), r.begin(), r.end());
      if (!records.empty()) place(ckeys[i], words(records), "adjustmentsoffset", "adjustmentscount", c.adjustments.size());
      if (!c.embedded.empty()) place(ckeys[i], c.embedded, "embeddedoffset", "embeddedsize", c.embedded.size());
    }
    // A block: its fixed lines, the key lines, zeros to `size`.
    auto block = [](std::string s, const std::vector<std::string>& a, const std::vector<std::string>& b, bool terminate, size_t size) {
      for (const auto* v : {&a, &b})
        for (const std::string& k : *v) s += k + "\n";
      if (!terminate) s.pop_back();
      if (s.size() > size) throw std::length_error("a linked font block overflows");
      s.resize(size, '\0');
      return s;
    };
    std::string head = "LTT\n" + std::to_string(version) + "\n";
    if (version > 1) head += std::to_string(legalCount >= 0 ? (size_t)legalCount : legal.size()) + "\n";
    for (const std::string& l : legal) head += l + "\n";
    head += name + "\n" + std::to_string(components.size()) + "\n" + std::to_string(metric) + "\n";
    std::string out = block(head, headKeys, hkeys, terminateHead, headSize());
    for (size_t i = 0; i < components.size(); i++) {
      const LttComponentSpec& c = components[i];
      std::string b = c.fontName + "\n" + c.fileName + "\n" + c.bmp1 + "\n" + c.bmp2 + "\n" + std::to_string(c.numGlyphs) + "\n";
      if (version > 3) b += std::to_string(c.numIcons) + "\n";
      out += block(b, c.keys, ckeys[i], c.terminate, 512);
    }
    out.append(tail.begin(), tail.end());
    return sfnt::asBytes(out);
  }
  // Writes the file at `path`; returns the path.
  std::string write(const std::string& path) const {
    std::ofstream(path, std::ios::binary) << sfnt::asString(build());
    return path;
  }
};

// The components of the linked font tests, in the set's order: Liberation
// Serif for U+0000 to U+03FF only, then DejaVu Sans and Noto Sans Armenian
// for all planes, each by its absolute folder; their glyph counts and so the
// set's numbering.
const char* const kLinkedDir[3] = {"/usr/share/fonts/truetype/liberation2", "/usr/share/fonts/truetype/dejavu",
                                   "/usr/share/fonts/truetype/noto"};
const char* const kLinkedFile[3] = {"LiberationSerif-Regular.ttf", "DejaVuSans.ttf", "NotoSansArmenian-Regular.ttf"};
const unsigned kLinkedGlyphs[3] = {2602, 6253, 107}, kLinkedStart[3] = {0, 2602, 8855};

inline std::string linkedPath(int i) { return std::string(kLinkedDir[i]) + "/" + kLinkedFile[i]; }

inline LttSpec linkedSet(std::vector<int> which = {0, 1, 2}) {
  LttSpec s;
  s.name = "Linked Three";
  for (int i : which) {
    LttComponentSpec c;
    c.fontName = i == 0 ? "Liberation Serif" : i == 1 ? "DejaVu Sans" : "Noto Sans Armenian";
    c.fileName = kLinkedFile[i];
    c.numGlyphs = kLinkedGlyphs[i];
    c.keys = {std::string("targetdirectory=") + kLinkedDir[i]};
    if (i == 0) c.bmp1 = "1", c.bmp2 = "0";
    for (const char* k : {"1range1", "1range2", "2range1", "2range2", "14range1", "14range2"})
      if (i != 0) c.keys.push_back(std::string("plane") + k + "=0xFFFFFFFF");
    s.components.push_back(c);
  }
  return s;
}

// A client on a font (a file, or bytes), with the Unicode map, no hints, at
// `ppem`.
struct UnhintedFont : TypesetFont {
  FS_LONG start(const std::string& path, const Bytes& bytes = {}, int ppem = 20) {
    FS_LONG err = open(path, bytes);
    if (err == 0) err = FSS_set_cmap(&st, 3, 10);
    FS_set_flags(&st, FLAGS_NO_HINTS);
    return err ? err : setPpem(ppem);
  }
};

// The points of `id` at the client's size: contour ends, then x, y and on
// per point; empty when the engine refuses (the error stays in the client).
inline std::vector<long> glyphPoints(FS_STATE* st, FS_ULONG id) {
  FS_GLYPH_POINTS* p = FSS_get_points(st, id);
  if (p == nullptr) return {};
  std::vector<long> v(p->ep, p->ep + p->nc);
  for (FS_SHORT i = 0; i < p->np; i++)
    v.push_back(p->x[i]), v.push_back(p->y[i]), v.push_back(p->onCurve[i]);
  FSS_free(st, p);
  return v;
}

}  // namespace testsupport

#endif
