// Test helper: writes linked font files of any version (0 to 8 and beyond):
// the text head, one 512-byte block per component with any key lines, and a
// binary tail with size adjustment tables, group type tables, font-set tables
// copied from a real font, and component fonts embedded whole. Offsets of
// what the tail holds are written into the key lines by the builder.
#ifndef TESTS_SUPPORT_LTT_BUILDER_H
#define TESTS_SUPPORT_LTT_BUILDER_H

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <utility>
#include <vector>

namespace testsupport {

typedef std::vector<uint8_t> Bytes;

inline Bytes fileBytes(const std::string& path) {
  Bytes b;
  FILE* f = fopen(path.c_str(), "rb");
  if (f == nullptr) return b;
  fseek(f, 0, SEEK_END);
  long n = ftell(f);
  fseek(f, 0, SEEK_SET);
  b.resize(n > 0 ? (size_t)n : 0);
  if (n > 0 && fread(b.data(), 1, b.size(), f) != b.size()) b.clear();
  fclose(f);
  return b;
}

// The bytes of table `tag` of an sfnt font; empty when it has none.
inline Bytes sfntTable(const Bytes& font, const char* tag) {
  auto u16 = [&](size_t p) { return (uint32_t)(font[p] << 8 | font[p + 1]); };
  auto u32 = [&](size_t p) { return u16(p) << 16 | u16(p + 2); };
  if (font.size() < 12) return {};
  uint32_t n = u16(4);
  for (uint32_t i = 0; i < n && 12 + 16 * i + 16 <= font.size(); i++) {
    size_t rec = 12 + 16 * i;
    if (memcmp(&font[rec], tag, 4) != 0) continue;
    uint32_t off = u32(rec + 8), len = u32(rec + 12);
    if ((uint64_t)off + len > font.size()) return {};
    return Bytes(font.begin() + off, font.begin() + off + len);
  }
  return {};
}

struct LttComponentSpec {
  std::string fontName;
  std::string fileName;
  std::string bmp1 = "0xFFFFFFFF", bmp2 = "0xFFFFFFFF";
  unsigned numGlyphs = 0;
  unsigned numIcons = 0;
  std::vector<std::string> keys;  // "key=value" lines, written as given
  // Size adjustment records (ppem, scale, shift); the builder adds the
  // "adjustmentsoffset=" and "adjustmentscount=" lines.
  std::vector<std::vector<int>> adjustments;
  // A font embedded in the linked file; the builder adds "embeddedoffset="
  // and "embeddedsize=".
  Bytes embedded;
  bool terminate = true;  // false: the block's last line has no newline
};

struct LttSpec {
  int version = 6;
  int legalCount = -1;  // the count line; -1: the number of legal lines
  std::vector<std::string> legal = {"Test linked font"};
  std::string name = "Linked";
  std::string numComponents;  // the count line; empty: the real count
  unsigned metric = 0;
  std::vector<std::string> headKeys;
  std::vector<LttComponentSpec> components;
  std::vector<std::pair<uint16_t, uint16_t>> groups;  // (group, type)
  // Font-set tables copied from this font: head, maxp, hhea, OS/2, post,
  // name, cmap, kern, GSUB (those it has), with their offset keys.
  Bytes setTablesFrom;
  bool terminateHead = true;  // false: the last head line has no newline

  size_t headSize() const { return version >= 7 ? 1024 : 512; }

  // The file's bytes. `ok` goes false when a block overflows.
  Bytes build(bool* ok = nullptr) const {
    bool fine = true;
    size_t tailStart = headSize() + 512 * components.size();
    Bytes tail;
    auto place = [&](const Bytes& b) {
      while (tail.size() % 4) tail.push_back(0);
      size_t at = tailStart + tail.size();
      tail.insert(tail.end(), b.begin(), b.end());
      return at;
    };
    std::vector<std::string> hkeys;
    if (!setTablesFrom.empty()) {
      // maxp first: below version 6 the reader takes it right behind the
      // last block whatever the head says.
      static const char* const kTags[][3] = {
          {"maxp", "maxp_offset=", nullptr}, {"head", "head_offset=", nullptr},
          {"hhea", "hhea_offset=", nullptr}, {"OS/2", "os/2_offset=", nullptr},
          {"post", "post_offset=", nullptr}, {"name", "name_offset=", "name_size="},
          {"cmap", "cmap_offset=", "cmap_size="}, {"kern", "kern_offset=", "kern_size="},
          {"GSUB", "ot_gsub_offset=", "ot_gsub_size="}};
      for (const auto& t : kTags) {
        Bytes table = sfntTable(setTablesFrom, t[0]);
        if (table.empty()) continue;
        size_t at = place(table);
        hkeys.push_back(std::string(t[1]) + std::to_string(at));
        if (t[2]) hkeys.push_back(std::string(t[2]) + std::to_string(table.size()));
      }
    }
    if (!groups.empty()) {
      Bytes g;
      for (const auto& p : groups)
        g.insert(g.end(), {(uint8_t)(p.first >> 8), (uint8_t)p.first,
                           (uint8_t)(p.second >> 8), (uint8_t)p.second});
      hkeys.push_back("grouptypesoffset=" + std::to_string(place(g)));
      hkeys.push_back("grouptypescount=" + std::to_string(groups.size()));
    }
    std::vector<std::vector<std::string>> ckeys(components.size());
    for (size_t i = 0; i < components.size(); i++) {
      const LttComponentSpec& c = components[i];
      if (!c.adjustments.empty()) {
        Bytes a;
        for (const auto& r : c.adjustments)
          for (int v : r) a.insert(a.end(), {(uint8_t)(v >> 8), (uint8_t)v});
        ckeys[i].push_back("adjustmentsoffset=" + std::to_string(place(a)));
        ckeys[i].push_back("adjustmentscount=" + std::to_string(c.adjustments.size()));
      }
      if (!c.embedded.empty()) {
        ckeys[i].push_back("embeddedoffset=" + std::to_string(place(c.embedded)));
        ckeys[i].push_back("embeddedsize=" + std::to_string(c.embedded.size()));
      }
    }

    std::string head = "LTT\n" + std::to_string(version) + "\n";
    if (version > 1)
      head += std::to_string(legalCount >= 0 ? (size_t)legalCount : legal.size()) + "\n";
    for (const std::string& l : legal) head += l + "\n";
    head += name + "\n";
    head += (numComponents.empty() ? std::to_string(components.size()) : numComponents) + "\n";
    head += std::to_string(metric) + "\n";
    for (const std::string& k : headKeys) head += k + "\n";
    for (const std::string& k : hkeys) head += k + "\n";
    if (!terminateHead && !head.empty()) head.pop_back();
    Bytes out(head.begin(), head.end());
    if (out.size() > headSize()) fine = false;
    out.resize(headSize(), 0);
    for (size_t i = 0; i < components.size(); i++) {
      const LttComponentSpec& c = components[i];
      std::string b = c.fontName + "\n" + c.fileName + "\n" + c.bmp1 + "\n" +
                      c.bmp2 + "\n" + std::to_string(c.numGlyphs) + "\n";
      if (version > 3) b += std::to_string(c.numIcons) + "\n";
      for (const std::string& k : c.keys) b += k + "\n";
      for (const std::string& k : ckeys[i]) b += k + "\n";
      if (!c.terminate) b.pop_back();
      if (b.size() > 512) fine = false;
      b.resize(512, '\0');
      out.insert(out.end(), b.begin(), b.end());
    }
    out.insert(out.end(), tail.begin(), tail.end());
    if (ok) *ok = fine;
    return out;
  }
};

inline void writeFileBytes(const std::string& path, const Bytes& b) {
  FILE* f = fopen(path.c_str(), "wb");
  if (f == nullptr) return;
  fwrite(b.data(), 1, b.size(), f);
  fclose(f);
}

}  // namespace testsupport

#endif
