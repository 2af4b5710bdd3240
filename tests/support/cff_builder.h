// Test helper: writes `CFF ` tables byte by byte, so that tests can feed the
// CFF loader and charstring interpreter exactly the structure a case needs:
// charstrings written as text ("0 100 rlineto endchar"), subroutines, font
// dicts of a CID font, a chosen offset size or charstring type; and can
// overwrite a charstring of a real font's table, or find its parts.
#ifndef TESTS_SUPPORT_CFF_BUILDER_H
#define TESTS_SUPPORT_CFF_BUILDER_H

#include <math.h>
#include <stdint.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace cffw {

typedef std::vector<uint8_t> Bytes;

inline void append(Bytes& b, const Bytes& more) {
  b.insert(b.end(), more.begin(), more.end());
}

// A charstring integer in its shortest form.
inline void csInt(Bytes& b, long v) {
  if (v >= -107 && v <= 107) {
    b.push_back((uint8_t)(v + 139));
  } else if (v >= 108 && v <= 1131) {
    b.push_back((uint8_t)((v - 108) / 256 + 247));
    b.push_back((uint8_t)((v - 108) % 256));
  } else if (v <= -108 && v >= -1131) {
    b.push_back((uint8_t)((-v - 108) / 256 + 251));
    b.push_back((uint8_t)((-v - 108) % 256));
  } else {
    b.push_back(28);
    b.push_back((uint8_t)(v >> 8));
    b.push_back((uint8_t)v);
  }
}

// Type 2 operators by name; escaped ones as 1200 + their second byte.
inline const std::map<std::string, int>& operators() {
  static const std::map<std::string, int> ops = {
      {"hstem", 1},       {"vstem", 3},      {"vmoveto", 4},
      {"rlineto", 5},     {"hlineto", 6},    {"vlineto", 7},
      {"rrcurveto", 8},   {"callsubr", 10},  {"return", 11},
      {"endchar", 14},    {"hstemhm", 18},   {"hintmask", 19},
      {"cntrmask", 20},   {"rmoveto", 21},   {"hmoveto", 22},
      {"vstemhm", 23},    {"rcurveline", 24}, {"rlinecurve", 25},
      {"vvcurveto", 26},  {"hhcurveto", 27}, {"callgsubr", 29},
      {"vhcurveto", 30},  {"hvcurveto", 31}, {"and", 1203},
      {"or", 1204},       {"not", 1205},     {"abs", 1209},
      {"add", 1210},      {"sub", 1211},     {"div", 1212},
      {"neg", 1214},      {"eq", 1215},      {"drop", 1218},
      {"put", 1220},      {"get", 1221},     {"ifelse", 1222},
      {"mul", 1224},      {"sqrt", 1226},    {"dup", 1227},
      {"exch", 1228},     {"index", 1229},   {"roll", 1230},
      {"hflex", 1234},    {"flex", 1235},    {"hflex1", 1236},
      {"flex1", 1237}};
  return ops;
}

// A charstring from text: integers in their short forms, numbers with a
// point as 255-coded 16.16, operator names, and `x:HH` for a raw byte.
inline Bytes charstring(const std::string& text) {
  Bytes b;
  std::istringstream in(text);
  std::string w;
  while (in >> w) {
    auto op = operators().find(w);
    if (op != operators().end()) {
      if (op->second >= 1200) {
        b.push_back(12);
        b.push_back((uint8_t)(op->second - 1200));
      } else {
        b.push_back((uint8_t)op->second);
      }
    } else if (w.compare(0, 2, "x:") == 0) {
      b.push_back((uint8_t)strtol(w.c_str() + 2, nullptr, 16));
    } else if (w.find('.') != std::string::npos) {
      long v = lround(strtod(w.c_str(), nullptr) * 65536.0);
      b.push_back(255);
      for (int s = 24; s >= 0; s -= 8) b.push_back((uint8_t)((uint32_t)v >> s));
    } else {
      csInt(b, strtol(w.c_str(), nullptr, 10));
    }
  }
  return b;
}

// A dict entry: integer operands (written as 32-bit, so that a dict's size
// doesn't depend on its values) and its operator (1200 + n for 12 n).
struct DictEntry {
  std::vector<long> operands;
  int op;
};

inline Bytes dict(const std::vector<DictEntry>& entries) {
  Bytes b;
  for (const DictEntry& e : entries) {
    for (long v : e.operands) {
      b.push_back(29);
      for (int s = 24; s >= 0; s -= 8) b.push_back((uint8_t)((uint32_t)v >> s));
    }
    if (e.op >= 1200) b.push_back(12);
    b.push_back((uint8_t)(e.op >= 1200 ? e.op - 1200 : e.op));
  }
  return b;
}

// An INDEX of `items`; offSize 0 picks the smallest that holds the offsets.
inline Bytes index(const std::vector<Bytes>& items, int offSize = 0) {
  Bytes b;
  b.push_back((uint8_t)(items.size() >> 8));
  b.push_back((uint8_t)items.size());
  if (items.empty()) return b;
  uint32_t total = 1;
  for (const Bytes& it : items) total += (uint32_t)it.size();
  if (offSize == 0) offSize = total < 0x100 ? 1 : total < 0x10000 ? 2 : total < 0x1000000 ? 3 : 4;
  b.push_back((uint8_t)offSize);
  uint32_t off = 1;
  for (size_t i = 0; i <= items.size(); i++) {
    for (int k = offSize - 1; k >= 0; k--) b.push_back((uint8_t)((uint64_t)off >> (8 * k)));
    if (i < items.size()) off += (uint32_t)items[i].size();
  }
  for (const Bytes& it : items) append(b, it);
  return b;
}

// A Private dict's contents and its local subroutines.
struct Private {
  long defaultWidth = 0;
  long nominalWidth = 0;
  std::vector<Bytes> subrs;
};

// A whole table. Glyph charstrings in `glyphs`; `charset` holds the SIDs of
// glyphs 1 on (empty: the predefined charset, offset 0). A CID font has
// `fdSelect` (format 0, one font dict per glyph) and one Private per dict
// in `fds`; otherwise `priv` is the top Private dict.
struct Table {
  std::vector<Bytes> names = {{'T', 'e', 's', 't'}};
  std::vector<DictEntry> topExtra;  // more top dict entries, first
  std::vector<Bytes> gsubrs;
  std::vector<Bytes> glyphs;
  std::vector<uint16_t> charset;
  Private priv;
  std::vector<Private> fds;
  std::vector<uint8_t> fdSelect;
  int charstringsOffSize = 0;
};

inline Bytes privateDict(const Private& p) {
  std::vector<DictEntry> e = {{{p.defaultWidth}, 20}, {{p.nominalWidth}, 21}};
  if (!p.subrs.empty()) e.push_back({{0}, 19});
  Bytes d = dict(e);
  if (!p.subrs.empty()) {  // subroutines follow the dict at once
    e.back().operands[0] = (long)d.size();
    d = dict(e);
  }
  return d;
}

// The table: header, name, top dict, string and global subroutine
// INDEXes, then charset, charstrings, Private dicts with their subroutines,
// and a CID font's font dict array and FDSelect.
inline Bytes build(const Table& t) {
  bool cid = !t.fds.empty();
  Bytes tail;  // everything after the global subroutines, at `start`
  std::vector<DictEntry> top;
  for (int pass = 0; pass < 2; pass++) {
    Bytes head = {1, 0, 4, 4};
    append(head, index(t.names));
    Bytes topIndex = index({dict(top)});
    if (pass == 0) {
      // Sizes first: the top dict has the same size whatever its values.
      top = t.topExtra;
      if (cid) top.push_back({{391, 392, 0}, 1230});
      top.push_back({{0}, 15});
      top.push_back({{0}, 17});
      if (cid) {
        top.push_back({{0}, 1236});
        top.push_back({{0}, 1237});
      } else {
        top.push_back({{0, 0}, 18});
      }
      continue;
    }
    long start = (long)(head.size() + topIndex.size() + 2 + index(t.gsubrs).size());
    tail.clear();
    long charset = 0;
    if (!t.charset.empty()) {
      charset = start + (long)tail.size();
      tail.push_back(0);
      for (uint16_t sid : t.charset) {
        tail.push_back((uint8_t)(sid >> 8));
        tail.push_back((uint8_t)sid);
      }
    }
    long charstrings = start + (long)tail.size();
    append(tail, index(t.glyphs, t.charstringsOffSize));
    std::vector<Bytes> fontDicts;
    const std::vector<Private>& privs = cid ? t.fds : std::vector<Private>{t.priv};
    std::vector<std::pair<long, long>> where;
    for (const Private& p : privs) {
      Bytes d = privateDict(p);
      where.push_back({(long)d.size(), start + (long)tail.size()});
      append(tail, d);
      if (!p.subrs.empty()) append(tail, index(p.subrs));
    }
    long fdArray = 0, fdSelect = 0;
    if (cid) {
      for (auto& w : where) fontDicts.push_back(dict({{{w.first, w.second}, 18}}));
      fdArray = start + (long)tail.size();
      append(tail, index(fontDicts));
      fdSelect = start + (long)tail.size();
      tail.push_back(0);
      append(tail, Bytes(t.fdSelect.begin(), t.fdSelect.end()));
    }
    for (DictEntry& e : top) {
      if (e.op == 15) e.operands[0] = charset;
      if (e.op == 17) e.operands[0] = charstrings;
      if (e.op == 18) e.operands = {where[0].first, where[0].second};
      if (e.op == 1236) e.operands[0] = fdArray;
      if (e.op == 1237) e.operands[0] = fdSelect;
    }
    Bytes out = head;
    append(out, index({dict(top)}));
    append(out, index({}));  // strings
    append(out, index(t.gsubrs));
    append(out, tail);
    return out;
  }
  return Bytes();
}

/* ---- A real font's table with a charstring replaced ---- */

inline uint32_t be(const Bytes& b, size_t at, int n) {
  uint32_t v = 0;
  for (int i = 0; i < n; i++) v = (v << 8) | b[at + i];
  return v;
}

// The INDEX at `at`: its count, offset size and end.
struct IndexAt {
  uint32_t count, offSize;
  size_t end;
  std::vector<Bytes> items;
};

inline IndexAt readIndex(const Bytes& b, size_t at) {
  IndexAt x = {be(b, at, 2), 0, at + 2, {}};
  if (x.count == 0) return x;
  x.offSize = b[at + 2];
  size_t base = at + 2 + (x.count + 1) * x.offSize;
  for (uint32_t i = 0; i < x.count; i++) {
    uint32_t a = be(b, at + 3 + i * x.offSize, (int)x.offSize);
    uint32_t c = be(b, at + 3 + (i + 1) * x.offSize, (int)x.offSize);
    x.items.push_back(Bytes(b.begin() + base + a, b.begin() + base + c));
  }
  x.end = base + be(b, at + 3 + x.count * x.offSize, (int)x.offSize);
  return x;
}

// A dict's integer operands by operator (reals read as 0).
inline std::map<int, std::vector<long>> readDict(const Bytes& d) {
  std::map<int, std::vector<long>> out;
  std::vector<long> args;
  for (size_t i = 0; i < d.size();) {
    uint8_t b0 = d[i];
    if (b0 <= 21) {
      int op = b0 == 12 && i + 1 < d.size() ? 1200 + d[i + 1] : b0;
      i += b0 == 12 ? 2 : 1;
      out[op] = args;
      args.clear();
    } else if (b0 == 30) {
      while (++i < d.size() && (d[i] & 0x0F) != 0x0F && (d[i] >> 4) != 0x0F) {
      }
      i++;
      args.push_back(0);
    } else if (b0 == 28 && i + 2 < d.size()) {
      args.push_back((int16_t)be(d, i + 1, 2));
      i += 3;
    } else if (b0 == 29 && i + 4 < d.size()) {
      args.push_back((int32_t)be(d, i + 1, 4));
      i += 5;
    } else if (b0 >= 32 && b0 <= 246) {
      args.push_back(b0 - 139);
      i++;
    } else if (b0 >= 247 && b0 <= 254 && i + 1 < d.size()) {
      args.push_back(b0 <= 250 ? (b0 - 247) * 256 + d[i + 1] + 108
                               : -(b0 - 251) * 256 - d[i + 1] - 108);
      i += 2;
    } else {
      break;
    }
  }
  return out;
}

// Where the parts of a table lie, for damaging them on purpose: each
// INDEX's start, the top dict's bytes, the Private dict's, the charstrings'
// data and a CID font's FDSelect (0 where there is none).
struct Layout {
  std::vector<size_t> indexes;  // name, top, string, global subrs, charstrings, local subrs
  size_t topDict = 0, topDictEnd = 0;
  size_t privateDict = 0, privateEnd = 0;
  size_t charstringData = 0, charstringEnd = 0;
  size_t fdSelect = 0;
};

inline Layout layout(const Bytes& cff) {
  Layout l;
  IndexAt names = readIndex(cff, cff[2]);
  IndexAt top = readIndex(cff, names.end);
  IndexAt strings = readIndex(cff, top.end);
  l.indexes = {cff[2], names.end, top.end, strings.end};
  l.topDict = top.end - top.items[0].size();
  l.topDictEnd = top.end;
  auto d = readDict(top.items[0]);
  if (d.count(17)) {
    size_t at = (size_t)d[17][0];
    l.indexes.push_back(at);
    IndexAt cs = readIndex(cff, at);
    l.charstringEnd = cs.end;
    size_t n = 0;
    for (auto& it : cs.items) n += it.size();
    l.charstringData = cs.end - n;
  }
  if (d.count(18) && d[18].size() == 2) {
    l.privateDict = (size_t)d[18][1];
    l.privateEnd = l.privateDict + (size_t)d[18][0];
    auto p = readDict(Bytes(cff.begin() + l.privateDict, cff.begin() + l.privateEnd));
    if (p.count(19)) l.indexes.push_back(l.privateDict + (size_t)p[19][0]);
  }
  if (d.count(1237)) l.fdSelect = (size_t)d[1237][0];
  return l;
}

// `cff` with glyph `g`'s charstring overwritten from its start by `cs`,
// which must not be longer: what follows its endchar is never read.
inline Bytes withCharstring(Bytes cff, size_t g, const Bytes& cs) {
  IndexAt top = readIndex(cff, readIndex(cff, cff[2]).end);
  size_t at = (size_t)readDict(top.items[0])[17][0];
  uint32_t count = be(cff, at, 2), offSize = cff[at + 2];
  size_t base = at + 2 + (count + 1) * offSize;
  size_t start = base + be(cff, at + 3 + g * offSize, (int)offSize);
  size_t end = base + be(cff, at + 3 + (g + 1) * offSize, (int)offSize);
  if (cs.size() <= end - start) std::copy(cs.begin(), cs.end(), cff.begin() + (long)start);
  return cff;
}

}  // namespace cffw

#endif
