// Test helper: builds sfnt font files and collections byte by byte, from
// small hand-made tables or from the tables of a real font, so that tests
// can feed the font loader exactly the structure a case needs (a missing
// table, a bad version, a directory pointing past the end...).
#ifndef TESTS_SUPPORT_SFNT_BUILDER_H
#define TESTS_SUPPORT_SFNT_BUILDER_H

#include <stdint.h>

#include <string>
#include <vector>

#include "support/cff_builder.h"

namespace sfnt {

typedef std::vector<uint8_t> Bytes;

inline void u8(Bytes& b, uint32_t v) { b.push_back((uint8_t)v); }
inline void u16(Bytes& b, uint32_t v) {
  b.push_back((uint8_t)(v >> 8));
  b.push_back((uint8_t)v);
}
inline void u32(Bytes& b, uint32_t v) {
  u16(b, v >> 16);
  u16(b, v & 0xFFFF);
}
inline uint32_t tagOf(const std::string& t) {
  return ((uint32_t)(uint8_t)t[0] << 24) | ((uint32_t)(uint8_t)t[1] << 16) |
         ((uint32_t)(uint8_t)t[2] << 8) | (uint32_t)(uint8_t)t[3];
}
inline uint32_t getU16(const Bytes& b, size_t at) {
  return ((uint32_t)b[at] << 8) | b[at + 1];
}
inline uint32_t getU32(const Bytes& b, size_t at) {
  return (getU16(b, at) << 16) | getU16(b, at + 2);
}
inline void putU16(Bytes& b, size_t at, uint32_t v) {
  b[at] = (uint8_t)(v >> 8);
  b[at + 1] = (uint8_t)v;
}
inline void putU32(Bytes& b, size_t at, uint32_t v) {
  putU16(b, at, v >> 16);
  putU16(b, at + 2, v & 0xFFFF);
}

struct Table {
  std::string tag;
  Bytes data;
};

struct Font {
  uint32_t version = 0x00010000;
  std::vector<Table> tables;  // directory order

  Font& set(const std::string& tag, const Bytes& data) {
    for (Table& t : tables)
      if (t.tag == tag) {
        t.data = data;
        return *this;
      }
    tables.push_back({tag, data});
    return *this;
  }
  Font& remove(const std::string& tag) {
    for (size_t i = 0; i < tables.size(); i++)
      if (tables[i].tag == tag) tables.erase(tables.begin() + i--);
    return *this;
  }
  const Bytes* find(const std::string& tag) const {
    for (const Table& t : tables)
      if (t.tag == tag) return &t.data;
    return nullptr;
  }
};

// Writes the sfnt header and directory of `f` at out[at], with table
// offsets taken from `offsets` (counted from the file's start).
inline void putHeader(Bytes& out, size_t at, const Font& f,
                      const std::vector<uint32_t>& offsets) {
  uint32_t n = (uint32_t)f.tables.size();
  putU32(out, at, f.version);
  putU16(out, at + 4, n);
  uint32_t pow2 = 1, log2 = 0;
  while (pow2 * 2 <= n) pow2 *= 2, log2++;
  putU16(out, at + 6, n ? pow2 * 16 : 0);
  putU16(out, at + 8, log2);
  putU16(out, at + 10, n ? n * 16 - pow2 * 16 : 0);
  for (uint32_t i = 0; i < n; i++) {
    size_t e = at + 12 + 16 * i;
    putU32(out, e, tagOf(f.tables[i].tag));
    putU32(out, e + 4, 0);  // checksums are not checked by the loader
    putU32(out, e + 8, offsets[i]);
    putU32(out, e + 12, (uint32_t)f.tables[i].data.size());
  }
}

// Appends each table 4-aligned, returning their offsets.
inline std::vector<uint32_t> putTables(Bytes& out, const Font& f) {
  std::vector<uint32_t> offsets;
  for (const Table& t : f.tables) {
    while (out.size() % 4) out.push_back(0);
    offsets.push_back((uint32_t)out.size());
    out.insert(out.end(), t.data.begin(), t.data.end());
  }
  while (out.size() % 4) out.push_back(0);
  return offsets;
}

inline Bytes build(const Font& f) {
  Bytes out(12 + 16 * f.tables.size(), 0);
  std::vector<uint32_t> offsets = putTables(out, f);
  putHeader(out, 0, f, offsets);
  return out;
}

// A collection: the `ttcf` header, each member's header and directory, then
// all tables, each member keeping its own copies.
inline Bytes buildCollection(const std::vector<Font>& fonts) {
  size_t n = fonts.size();
  Bytes out(12 + 4 * n, 0);
  putU32(out, 0, tagOf("ttcf"));
  putU32(out, 4, 0x00010000);
  putU32(out, 8, (uint32_t)n);
  std::vector<size_t> headers;
  for (size_t i = 0; i < n; i++) {
    headers.push_back(out.size());
    putU32(out, 12 + 4 * i, (uint32_t)out.size());
    out.resize(out.size() + 12 + 16 * fonts[i].tables.size(), 0);
  }
  for (size_t i = 0; i < n; i++)
    putHeader(out, headers[i], fonts[i], putTables(out, fonts[i]));
  return out;
}

// The tables of the sfnt whose header is at `at` in a real file.
inline Font read(const Bytes& file, size_t at = 0) {
  Font f;
  f.version = getU32(file, at);
  uint32_t n = getU16(file, at + 4);
  for (uint32_t i = 0; i < n; i++) {
    size_t e = at + 12 + 16 * i;
    uint32_t tag = getU32(file, e), off = getU32(file, e + 8),
             len = getU32(file, e + 12);
    std::string name = {(char)(tag >> 24), (char)(tag >> 16), (char)(tag >> 8),
                        (char)tag};
    f.tables.push_back({name, Bytes(file.begin() + off,
                                    file.begin() + off + len)});
  }
  return f;
}

// Position of the directory entry of `tag` in a built file (header at `at`),
// or 0 when there is none.
inline size_t entryOf(const Bytes& file, const std::string& tag,
                      size_t at = 0) {
  uint32_t n = getU16(file, at + 4);
  for (uint32_t i = 0; i < n; i++)
    if (getU32(file, at + 12 + 16 * i) == tagOf(tag)) return at + 12 + 16 * i;
  return 0;
}

/* ---- Small tables ---- */

inline Bytes head(uint32_t upem, int xMin, int yMin, int xMax, int yMax,
                  uint32_t glyphDataFormat = 0,
                  uint32_t magic = 0x5F0F3CF5) {
  Bytes b;
  u32(b, 0x00010000);  // version
  u32(b, 0x00010000);  // fontRevision
  u32(b, 0);           // checkSumAdjustment
  u32(b, magic);
  u16(b, 0);  // flags
  u16(b, upem);
  for (int i = 0; i < 4; i++) u32(b, 0);  // created, modified
  u16(b, xMin);
  u16(b, yMin);
  u16(b, xMax);
  u16(b, yMax);
  u16(b, 0);  // macStyle
  u16(b, 8);  // lowestRecPPEM
  u16(b, 2);  // fontDirectionHint
  u16(b, 0);  // indexToLocFormat: short
  u16(b, glyphDataFormat);
  return b;  // 54 bytes
}

inline Bytes hhea(int ascender, int descender, uint32_t numberOfHMetrics = 1,
                  int caretSlopeRun = 0) {
  Bytes b;
  u32(b, 0x00010000);
  u16(b, ascender);
  u16(b, descender);
  u16(b, 0);    // lineGap
  u16(b, 500);  // advanceWidthMax
  u16(b, 0);
  u16(b, 0);
  u16(b, 500);  // xMaxExtent
  u16(b, 1);    // caretSlopeRise
  u16(b, caretSlopeRun);
  u16(b, 0);
  for (int i = 0; i < 4; i++) u16(b, 0);
  u16(b, 0);  // metricDataFormat
  u16(b, numberOfHMetrics);
  return b;  // 36 bytes
}

// vhea has the layout of hhea.
inline Bytes vhea(int ascent, int descent) { return hhea(ascent, descent); }

inline Bytes maxp10(uint32_t numGlyphs, uint32_t maxFunctionDefs = 0,
                    uint32_t maxInstructionDefs = 0,
                    uint32_t maxComponentElements = 0,
                    uint32_t version = 0x00010000) {
  Bytes b;
  u32(b, version);
  u16(b, numGlyphs);
  u16(b, 10);  // maxPoints
  u16(b, 2);   // maxContours
  u16(b, 0);
  u16(b, 0);
  u16(b, 2);   // maxZones
  u16(b, 0);
  u16(b, 0);
  u16(b, maxFunctionDefs);
  u16(b, maxInstructionDefs);
  u16(b, 64);  // maxStackElements
  u16(b, 0);
  u16(b, maxComponentElements);
  u16(b, 0);
  return b;  // 32 bytes
}

inline Bytes maxp05(uint32_t numGlyphs, uint32_t version = 0x00005000) {
  Bytes b;
  u32(b, version);
  u16(b, numGlyphs);
  return b;
}

// One format 0 subtable (3, 1) at `subtableOffset` (4 + 8 at the least;
// an odd value makes an odd-placed subtable), mapping code c to glyph c & 1.
inline Bytes cmap(uint32_t subtableOffset = 12) {
  Bytes b;
  u16(b, 0);
  u16(b, 1);
  u16(b, 3);
  u16(b, 1);
  u32(b, subtableOffset);
  while (b.size() < subtableOffset) b.push_back(0xEE);
  u16(b, 0);    // format
  u16(b, 262);  // length
  u16(b, 0);    // language
  for (int c = 0; c < 256; c++) u8(b, c & 1);
  return b;
}

struct NameRecord {
  uint32_t platform, encoding, language, nameID;
  std::string text;  // platform 3: each character becomes a 16-bit unit
};

inline Bytes name(const std::vector<NameRecord>& records) {
  Bytes strings;
  Bytes b;
  u16(b, 0);
  u16(b, (uint32_t)records.size());
  u16(b, 6 + 12 * (uint32_t)records.size());
  for (const NameRecord& r : records) {
    size_t start = strings.size();
    for (char ch : r.text) {
      if (r.platform == 3) u8(strings, 0x01);  // a high byte the loader drops
      u8(strings, (uint8_t)ch);
    }
    u16(b, r.platform);
    u16(b, r.encoding);
    u16(b, r.language);
    u16(b, r.nameID);
    u16(b, (uint32_t)(strings.size() - start));
    u16(b, (uint32_t)start);
  }
  b.insert(b.end(), strings.begin(), strings.end());
  return b;
}

// A font of two glyphs with every table the loader demands of a `glyf`
// font: head, hhea, maxp, hmtx, cmap, name, glyf and loca.
inline Font minimalGlyfFont() {
  Font f;
  f.set("head", head(1000, -10, -200, 600, 800));
  f.set("hhea", hhea(800, -200, 2));
  f.set("maxp", maxp10(2));
  Bytes hmtx;
  u16(hmtx, 500);
  u16(hmtx, 0);
  u16(hmtx, 600);
  u16(hmtx, 10);
  f.set("hmtx", hmtx);
  f.set("cmap", cmap());
  f.set("name", name({{3, 1, 1033, 4, "Test Sans"},
                      {3, 1, 1033, 1, "Test"},
                      {3, 1, 1033, 0, "(c) nobody"}}));
  // Glyph 0 empty; glyph 1 a header-only glyph of 0 contours, 10 bytes.
  Bytes glyf;
  u16(glyf, 0);
  for (int i = 0; i < 4; i++) u16(glyf, 0);
  f.set("glyf", glyf);
  Bytes loca;  // short offsets, halved
  u16(loca, 0);
  u16(loca, 0);
  u16(loca, 5);
  f.set("loca", loca);
  return f;
}

// A CFF OpenType font of `numGlyphs` empty glyphs (each charstring a lone
// endchar): glyf and loca give way to CFF, maxp is 0.5.
inline Font minimalCffFont(uint32_t numGlyphs = 3) {
  Font f = minimalGlyfFont();
  f.version = tagOf("OTTO");
  f.remove("glyf").remove("loca");
  f.set("maxp", maxp05(numGlyphs));
  cffw::Table t;
  t.glyphs.assign(numGlyphs, cffw::charstring("endchar"));
  f.set("CFF ", cffw::build(t));
  return f;
}

inline std::string asString(const Bytes& b) {
  return std::string(b.begin(), b.end());
}
inline Bytes asBytes(const std::string& s) { return Bytes(s.begin(), s.end()); }

}  // namespace sfnt

#endif
