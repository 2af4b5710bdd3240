// Differential checks of the CFF charstring interpreter against libfreetype,
// a test-only oracle: every glyph of the 78 packaged OpenType fonts with CFF
// outlines, and of the CID-keyed Noto Sans CJK, in font units (the engine at
// ppem = unitsPerEm gives 64 x units exactly) and at four sizes. Contours
// are compared as drawings: the engine's reversed contours are turned back,
// and on-curve points that repeat their predecessor (libfreetype drops
// zero-length lines and the closing point) are dropped on both sides.
#include <dirent.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include <stdlib.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/cff_builder.h"
#include "support/scaled_font.h"
#include "support/sfnt_builder.h"

namespace {

struct Pt {
  long x, y;
  bool on;
};
typedef std::vector<std::vector<Pt>> Contours;

// The packaged CFF fonts, by folder, with how many each must hold.
std::vector<std::string> packagedFonts(std::string* missing) {
  const struct {
    const char* dir;
    size_t count;
  } kDirs[] = {{"/usr/share/fonts/opentype/urw-base35", 35},
               {"/usr/share/texmf/fonts/opentype/public/tex-gyre", 33},
               {"/usr/share/fonts/opentype/cantarell", 5},
               {"/usr/share/fonts/opentype/ebgaramond", 5}};
  std::vector<std::string> all;
  for (auto& d : kDirs) {
    std::vector<std::string> found;
    if (DIR* dir = opendir(d.dir)) {
      while (dirent* e = readdir(dir)) {
        std::string n = e->d_name;
        if (n.size() > 4 && n.compare(n.size() - 4, 4, ".otf") == 0)
          found.push_back(std::string(d.dir) + "/" + n);
      }
      closedir(dir);
    }
    if (found.size() != d.count)
      *missing += std::string(d.dir) + " holds " + std::to_string(found.size()) +
                  " .otf fonts, not " + std::to_string(d.count) + "\n";
    std::sort(found.begin(), found.end());
    all.insert(all.end(), found.begin(), found.end());
  }
  return all;
}

const char* kCjk = "/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc";

std::string base(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

bool fractional(const std::string& font) {
  return font.find("EBGaramond") != std::string::npos;
}

// Drops the ends of lines no longer than `near` (on-curve points that close
// to an on-curve predecessor), the closing point among them.
std::vector<Pt> dropRepeats(const std::vector<Pt>& in, long near) {
  auto same = [&](const Pt& a, const Pt& b) {
    return labs(a.x - b.x) <= near && labs(a.y - b.y) <= near;
  };
  std::vector<Pt> out;
  for (const Pt& p : in) {
    if (!out.empty() && p.on && out.back().on && same(p, out.back())) continue;
    out.push_back(p);
  }
  while (out.size() > 1 && out.back().on && same(out.back(), out[0])) out.pop_back();
  return out;
}

// A contour worth comparing: more than one point, and (with `near`) wider
// or taller than it.
bool keep(const std::vector<Pt>& v, long near) {
  if (v.size() < 2) return false;
  for (const Pt& p : v)
    if (labs(p.x - v[0].x) > near || labs(p.y - v[0].y) > near) return true;
  return near == 0;
}

// The engine's glyph element back in drawing order, relative to its origin.
Contours ours(fnt_ElementType* el, long near) {
  Contours cs;
  F26DOT6 ox = el->x[el->np], oy = el->y[el->np];
  for (int c = 0; c < el->nc; c++) {
    std::vector<Pt> v;
    for (int p = el->ep[c]; p >= el->sp[c]; p--)
      v.push_back({(long)(el->x[p] - ox), (long)(el->y[p] - oy), el->onCurve[p] != 0});
    v = dropRepeats(v, near);
    if (keep(v, near)) cs.push_back(v);
  }
  return cs;
}

Contours theirs(const FT_Outline& o, long scale, long near) {
  Contours cs;
  int s = 0;
  for (int c = 0; c < o.n_contours; c++) {
    std::vector<Pt> v;
    for (int p = s; p <= o.contours[c]; p++)
      v.push_back({o.points[p].x * scale, o.points[p].y * scale,
                   (o.tags[p] & 1) != 0});
    s = o.contours[c] + 1;
    v = dropRepeats(v, near);
    if (keep(v, near)) cs.push_back(v);
  }
  return cs;
}

bool close(const Pt& a, const Pt& b, long tol) {
  return a.on == b.on && labs(a.x - b.x) <= tol && labs(a.y - b.y) <= tol;
}

double chordDistance(const Pt& a, const Pt& b, const Pt& p) {
  double ex = b.x - a.x, ey = b.y - a.y, len = sqrt(ex * ex + ey * ey);
  double px = p.x - a.x, py = p.y - a.y;
  return len > 0 ? fabs(ex * py - ey * px) / len : sqrt(px * px + py * py);
}

// One contour of each, point for point within `tol`; with `flex` (in 26.6)
// an engine line may stand for libfreetype's two cubics lying that close to
// the chord. A point within `tol` of its predecessor may stand on one side
// only: an on-curve one (a line no longer than the tolerance), or with
// `anyPoint` any (a curve that short).
bool sameContour(std::vector<Pt> a, std::vector<Pt> b, long tol, long flex,
                 bool anyPoint) {
  // Both closed again on their start, so that a flex that ends a contour
  // compares like any other.
  a.push_back(a[0]);
  b.push_back(b[0]);
  auto skippable = [&](const std::vector<Pt>& v, size_t k) {
    return tol > 0 && k > 0 && k < v.size() && (anyPoint || v[k].on) &&
           labs(v[k].x - v[k - 1].x) <= tol && labs(v[k].y - v[k - 1].y) <= tol;
  };
  size_t i = 0, j = 0;
  while (i < a.size() || j < b.size()) {
    if (i < a.size() && j < b.size() && close(a[i], b[j], tol)) {
      i++, j++;
      continue;
    }
    if (flex > 0 && i > 0 && i < a.size() && a[i].on && j + 6 <= b.size()) {
      const Pt& from = a[i - 1];
      bool line = close(a[i], b[j + 5], tol);
      for (int k = 0; k < 6 && line; k++)
        line = chordDistance(from, a[i], b[j + k]) <= flex &&
               b[j + k].on == (k == 2 || k == 5);
      if (line) {
        i++, j += 6;
        continue;
      }
    }
    if (skippable(a, i)) {
      i++;
      continue;
    }
    if (skippable(b, j)) {
      j++;
      continue;
    }
    return false;
  }
  return true;
}

bool sameDrawing(const Contours& a, const Contours& b, long tol, long flex,
                 bool anyPoint = false) {
  if (a.size() != b.size()) return false;
  for (size_t c = 0; c < a.size(); c++)
    if (!sameContour(a[c], b[c], tol, flex, anyPoint)) return false;
  return true;
}

struct Face {
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  Face(const std::string& path, int index) {
    FT_Init_FreeType(&lib);
    if (FT_New_Face(lib, path.c_str(), index, &face)) face = nullptr;
  }
  ~Face() {
    if (face) FT_Done_Face(face);
    FT_Done_FreeType(lib);
  }
};

struct Engine {
  testsupport::ScaledFont sf;
  bool ok = false;
  Engine(const std::string& path, int ppem) {
    sf.setFont(path);
    ok = sf.started && sf.setPpem(ppem) == 0;
  }
  FS_LONG fetch(unsigned g) {
    sf.key()->glyphIndex = (FS_USHORT)g;
    return cff_GridFit(&sf.st, sf.key(), 0);
  }
};

// Every `step`-th glyph of one face at ppem = unitsPerEm against
// libfreetype's unscaled drawing; returns a description of the first
// difference, or "".
std::string fontUnits(const std::string& font, int step, long* glyphs) {
  Face ft(font, 0);
  if (ft.face == nullptr) return "libfreetype does not open it";
  int upem = ft.face->units_per_EM;
  Engine en(font, upem);
  if (!en.ok) return "the engine does not scale it";
  long near = fractional(font) ? 64 : 0;
  for (long g = 0; g < ft.face->num_glyphs; g += step) {
    ++*glyphs;
    std::string at = base(font) + " glyph " + std::to_string(g);
    FS_LONG err = en.fetch((unsigned)g);
    if (FT_Load_Glyph(ft.face, (FT_UInt)g, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING))
      return at + ": libfreetype refuses it";
    if (err) return at + ": engine error " + std::to_string(err);
    fnt_ElementType* el = en.sf.element();
    Contours mine = ours(el, near), other = theirs(ft.face->glyph->outline, 64, near);
    if (!sameDrawing(mine, other, near, 0, near > 0)) return at + ": drawings differ";
    long adv = (el->x[el->np + 1] - el->x[el->np]) / 64;
    // The charstring's width wins over `hmtx`, which libfreetype takes.
    bool knownWidth = (base(font) == "StandardSymbolsPS.otf" || base(font) == "D050000L.otf") && g == 0;
    if (adv != ft.face->glyph->metrics.horiAdvance && !knownWidth)
      return at + ": advance " + std::to_string(adv) + ", libfreetype " +
             std::to_string(ft.face->glyph->metrics.horiAdvance);
  }
  return "";
}

TEST(CffOracle, EveryGlyphInFontUnitsDrawsAsLibfreetypeDrawsIt) {
  std::string missing;
  std::vector<std::string> fonts = packagedFonts(&missing);
  EXPECT_EQ(missing, "");
  long glyphs = 0;
  for (const std::string& font : fonts) EXPECT_EQ(fontUnits(font, 1, &glyphs), "") << font;
  EXPECT_EQ(glyphs, 84627);
}

TEST(CffOracle, CidKeyedNotoSansCjkEveryFifthGlyphDrawsAsLibfreetypeDrawsIt) {
  long glyphs = 0;
  EXPECT_EQ(fontUnits(kCjk, 5, &glyphs), "");
  EXPECT_EQ(glyphs, 13107);  // every 5th of 65,535
}

// At 9, 12, 24 and 72 ppem unhinted: within 1/64 pixel (EB Garamond, whose
// fractional operands the engine rounds to whole units first, within one
// unit's worth plus 1/64), a flex drawn as a line where libfreetype's two
// cubics lie within half a pixel of the chord. At most 0.1% of a font's
// glyph-sizes may differ.
TEST(CffOracle, FourSizesUnhintedWithinOneSixtyFourthOrAFlatFlex) {
  std::string missing;
  std::vector<std::string> fonts = packagedFonts(&missing);
  EXPECT_EQ(missing, "");
  const int kSizes[] = {9, 12, 24, 72};
  long total = 0, differing = 0, exact = 0;
  for (const std::string& font : fonts) {
    Face ft(font, 0);
    ASSERT_NE(ft.face, nullptr) << font;
    int upem = ft.face->units_per_EM;
    long bad = 0, count = 0;
    std::string first;
    for (int ppem : kSizes) {
      Engine en(font, ppem);
      ASSERT_TRUE(en.ok) << font;
      FT_Set_Pixel_Sizes(ft.face, 0, (FT_UInt)ppem);
      long tol = fractional(font) ? lround(ppem * 64.0 / upem) + 1 : 1;
      long near = fractional(font) ? tol : 0;
      for (long g = 0; g < ft.face->num_glyphs; g++) {
        count++;
        bool same = en.fetch((unsigned)g) == 0 &&
                    FT_Load_Glyph(ft.face, (FT_UInt)g, FT_LOAD_NO_HINTING) == 0 &&
                    sameDrawing(ours(en.sf.element(), near),
                                theirs(ft.face->glyph->outline, 1, near), tol, 32,
                                near > 0);
        if (same && sameDrawing(ours(en.sf.element(), 0),
                                theirs(ft.face->glyph->outline, 1, 0), 0, 0))
          exact++;
        if (!same && bad++ == 0)
          first = std::to_string(ppem) + " ppem glyph " + std::to_string(g);
      }
    }
    total += count;
    differing += bad;
    if (bad > 0) printf("%s: %ld of %ld glyph-sizes differ (first %s)\n",
                        base(font).c_str(), bad, count, first.c_str());
    EXPECT_LE(bad * 1000, count) << base(font) << ", first " << first;
  }
  printf("%ld of %ld glyph-sizes differ; %ld (%.1f%%) are exactly equal\n",
         differing, total, exact, 100.0 * exact / total);
  EXPECT_EQ(total, 338508);
}

// Nimbus Sans with Aacute redrawn as a seac of A (code 65) and acute (code
// 194) 167 units right and 199 up, with a width of 52 over nominalWidthX:
// the same contours as libfreetype draws (which puts the accent first).
TEST(CffOracle, SeacAccentedLetterDrawsAsLibfreetypeDrawsIt) {
  const char* font = "/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf";
  Face original(font, 0);
  ASSERT_NE(original.face, nullptr) << font;
  FT_UInt g = FT_Get_Name_Index(original.face, (FT_String*)"Aacute");
  ASSERT_NE(g, 0u);
  FILE* f = fopen(font, "rb");
  ASSERT_NE(f, nullptr);
  sfnt::Bytes file;
  uint8_t buf[65536];
  for (size_t n; (n = fread(buf, 1, sizeof buf, f)) > 0;) file.insert(file.end(), buf, buf + n);
  fclose(f);
  sfnt::Font sf = sfnt::read(file);
  for (sfnt::Table& t : sf.tables)
    if (t.tag == "CFF ") {
      sfnt::Bytes seac = cffw::withCharstring(t.data, g, cffw::charstring("52 167 199 65 194 endchar"));
      ASSERT_NE(seac, t.data) << "the charstring has room for the seac";
      t.data = seac;
    }
  sfnt::Bytes built = sfnt::build(sf);

  FT_Library lib;
  FT_Face face;
  FT_Init_FreeType(&lib);
  ASSERT_EQ(FT_New_Memory_Face(lib, built.data(), (FT_Long)built.size(), 0, &face), 0);
  ASSERT_EQ(FT_Load_Glyph(face, g, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING), 0);
  Contours other = theirs(face->glyph->outline, 64, 0);
  testsupport::ScaledFont en;
  en.setFont("", built);
  ASSERT_EQ(en.setPpem(face->units_per_EM), 0);
  en.key()->glyphIndex = (FS_USHORT)g;
  ASSERT_EQ(cff_GridFit(&en.st, en.key(), 0), 0);
  Contours mine = ours(en.element(), 0);
  fnt_ElementType* el = en.element();
  EXPECT_EQ((el->x[el->np + 1] - el->x[el->np]) / 64, 615 + 52) << "nominalWidthX + 52";
  FT_Done_Face(face);
  FT_Done_FreeType(lib);
  EXPECT_GE(other.size(), 2u);
  auto byStart = [](const std::vector<Pt>& a, const std::vector<Pt>& b) {
    return a[0].x < b[0].x || (a[0].x == b[0].x && a[0].y < b[0].y);
  };
  std::sort(mine.begin(), mine.end(), byStart);
  std::sort(other.begin(), other.end(), byStart);
  EXPECT_TRUE(sameDrawing(mine, other, 0, 0));
}

}  // namespace
