// Test helper: writes `CFF ` tables byte by byte: charstrings from text,
// INDEXes, dicts, local subroutines and a CID font's font dicts.
#ifndef TESTS_SUPPORT_CFF_BUILDER_H
#define TESTS_SUPPORT_CFF_BUILDER_H

#include <math.h>
#include <stdint.h>
#include <stdlib.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace cffw {

typedef std::vector<uint8_t> Bytes;

inline void append(Bytes& b, const Bytes& more) {
  b.insert(b.end(), more.begin(), more.end());
}

// `v` in `n` bytes, big-endian.
inline void put(Bytes& b, uint64_t v, int n) {
  for (int s = 8 * (n - 1); s >= 0; s -= 8) b.push_back((uint8_t)(v >> s));
}

// A charstring from text: integers, numbers with a point (255-coded 16.16)
// and operator names.
inline Bytes charstring(const std::string& text) {
  static const std::map<std::string, int> ops = {
      {"rlineto", 5}, {"rrcurveto", 8}, {"callsubr", 10}, {"return", 11}, {"endchar", 14},
      {"rmoveto", 21}};
  Bytes b;
  std::istringstream in(text);
  for (std::string w; in >> w;) {
    auto op = ops.find(w);
    long v = strtol(w.c_str(), nullptr, 10);
    if (op != ops.end()) {
      b.push_back((uint8_t)op->second);
    } else if (w.find('.') != std::string::npos) {
      b.push_back(255);
      put(b, (uint32_t)lround(strtod(w.c_str(), nullptr) * 65536.0), 4);
    } else if (v >= -107 && v <= 107) {
      b.push_back((uint8_t)(v + 139));
    } else {
      b.push_back(28);
      put(b, (uint16_t)v, 2);
    }
  }
  return b;
}

// A dict entry: 32-bit operands (a dict's size never depends on its values)
// and its operator (1200 + n for 12 n).
struct DictEntry {
  std::vector<long> operands;
  int op;
};

inline Bytes dict(const std::vector<DictEntry>& entries) {
  Bytes b;
  for (const DictEntry& e : entries) {
    for (long v : e.operands) {
      b.push_back(29);
      put(b, (uint32_t)v, 4);
    }
    if (e.op >= 1200) b.push_back(12);
    b.push_back((uint8_t)(e.op % 1200));
  }
  return b;
}

// An INDEX of `items`; offSize 0 picks the smallest that holds the offsets.
inline Bytes index(const std::vector<Bytes>& items, int offSize = 0) {
  Bytes b;
  put(b, items.size(), 2);
  if (items.empty()) return b;
  std::vector<uint32_t> offsets = {1};
  for (const Bytes& it : items) offsets.push_back(offsets.back() + (uint32_t)it.size());
  if (offSize == 0) offSize = offsets.back() < 0x100 ? 1 : offsets.back() < 0x10000 ? 2 : 3;
  b.push_back((uint8_t)offSize);
  for (uint32_t o : offsets) put(b, o, offSize);
  for (const Bytes& it : items) append(b, it);
  return b;
}

struct Private {
  long nominalWidth = 0;
  std::vector<Bytes> subrs;
};

// A table: `charset` holds the SIDs of glyphs 1 on (empty: predefined); a
// CID font has a Private per font dict in `fds`, else `priv` is the top's.
struct Table {
  std::vector<Bytes> names = {{'T', 'e', 's', 't'}};
  std::vector<DictEntry> topExtra;  // more top dict entries, first
  std::vector<Bytes> glyphs;
  std::vector<uint16_t> charset;
  Private priv;
  std::vector<Private> fds;
  std::vector<uint8_t> fdSelect;
  int charstringsOffSize = 0;
};

// Header, name, top dict, empty string and global subroutine INDEXes, then
// charset, charstrings, Private dicts with their subroutines, font dicts.
inline Bytes build(const Table& t) {
  bool cid = !t.fds.empty();
  // at: charset, charstrings, FDArray, FDSelect, Private size and place.
  auto top = [&](const std::vector<long>& at) {
    std::vector<DictEntry> e = t.topExtra;
    if (cid) e.push_back({{391, 392, 0}, 1230});
    e.push_back({{at[0]}, 15});
    e.push_back({{at[1]}, 17});
    if (cid) e.push_back({{at[2]}, 1236});
    if (cid) e.push_back({{at[3]}, 1237});
    if (!cid) e.push_back({{at[4], at[5]}, 18});
    return index({dict(e)});
  };
  Bytes head = {1, 0, 4, 4};
  append(head, index(t.names));
  size_t start = head.size() + top(std::vector<long>(6)).size() + 4;
  Bytes tail;
  auto here = [&] { return (long)(start + tail.size()); };
  std::vector<long> at = {t.charset.empty() ? 0 : here(), 0, 0, 0, 0, 0};
  if (!t.charset.empty()) tail.push_back(0);
  for (uint16_t sid : t.charset) put(tail, sid, 2);
  at[1] = here();
  append(tail, index(t.glyphs, t.charstringsOffSize));
  std::vector<Bytes> fontDicts;
  for (const Private& p : cid ? t.fds : std::vector<Private>{t.priv}) {
    std::vector<DictEntry> e = {{{p.nominalWidth}, 21}};
    if (!p.subrs.empty()) e.push_back({{12}, 19});  // at once: 2 entries of 6 bytes
    at[4] = (long)dict(e).size();
    at[5] = here();
    fontDicts.push_back(dict({{{at[4], at[5]}, 18}}));
    append(tail, dict(e));
    if (!p.subrs.empty()) append(tail, index(p.subrs));
  }
  at[2] = here();
  if (cid) append(tail, index(fontDicts));
  at[3] = here();
  if (cid) tail.push_back(0);
  append(tail, Bytes(t.fdSelect.begin(), t.fdSelect.end()));
  append(head, top(at));
  append(head, {0, 0, 0, 0});
  append(head, tail);
  return head;
}

}  // namespace cffw

#endif
