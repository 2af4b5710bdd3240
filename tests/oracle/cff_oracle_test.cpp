// The CFF interpreter against libfreetype (a test-only oracle) on the 78
// packaged CFF fonts and Noto Sans CJK, in font units (the engine at ppem =
// unitsPerEm gives 64 x units) and at four sizes, compared as drawings:
// contours turned back, on-curve points repeating their predecessor (which
// libfreetype drops, the closing point among them) dropped on both sides.
#include <ft2build.h>
#include FT_FREETYPE_H
#include <glob.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_cff.h"
#include "Orvex_internal/fs_ttf.h"
#include "support/scaled_font.h"

namespace {

struct Pt {
  long x, y;
  bool on;
};
typedef std::vector<std::vector<Pt>> Contours;

// The packaged CFF fonts, in folder order; a folder short of its count fails.
std::vector<std::string> packagedFonts() {
  const std::pair<const char*, size_t> kDirs[] = {
      {"/usr/share/fonts/opentype/urw-base35/*.otf", 35},
      {"/usr/share/texmf/fonts/opentype/public/tex-gyre/*.otf", 33},
      {"/usr/share/fonts/opentype/cantarell/*.otf", 5},
      {"/usr/share/fonts/opentype/ebgaramond/*.otf", 5}};
  std::vector<std::string> all;
  for (auto& d : kDirs) {
    glob_t g;
    size_t n = glob(d.first, 0, nullptr, &g) == 0 ? g.gl_pathc : 0;
    if (n != d.second) ADD_FAILURE() << d.first << ": " << n << " fonts";
    all.insert(all.end(), g.gl_pathv, g.gl_pathv + n);
    globfree(&g);
  }
  return all;
}

const char* kCjk = "/usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc";

std::string base(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// Adds a contour less the ends of lines no longer than `near`, the closing
// point among them, unless one point is left or it is no wider than `near`.
void addContour(Contours* cs, const std::vector<Pt>& in, long near) {
  auto same = [&](const Pt& a, const Pt& b) {
    return labs(a.x - b.x) <= near && labs(a.y - b.y) <= near;
  };
  std::vector<Pt> out;
  for (const Pt& p : in)
    if (out.empty() || !p.on || !out.back().on || !same(p, out.back())) out.push_back(p);
  while (out.size() > 1 && out.back().on && same(out.back(), out[0])) out.pop_back();
  bool wide = near == 0;
  for (const Pt& p : out) wide = wide || !same(p, out[0]);
  if (out.size() > 1 && wide) cs->push_back(out);
}

// The engine's glyph element back in drawing order, relative to its origin.
Contours ours(fnt_ElementType* el, long near) {
  Contours cs;
  for (int c = 0; c < el->nc; c++) {
    std::vector<Pt> v;
    for (int p = el->ep[c]; p >= el->sp[c]; p--)
      v.push_back({(long)(el->x[p] - el->x[el->np]), (long)(el->y[p] - el->y[el->np]),
                   el->onCurve[p] != 0});
    addContour(&cs, v, near);
  }
  return cs;
}

Contours theirs(const FT_Outline& o, long scale, long near) {
  Contours cs;
  for (int c = 0, s = 0; c < o.n_contours; s = o.contours[c++] + 1) {
    std::vector<Pt> v;
    for (int p = s; p <= o.contours[c]; p++)
      v.push_back({o.points[p].x * scale, o.points[p].y * scale, (o.tags[p] & 1) != 0});
    addContour(&cs, v, near);
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
bool sameContour(std::vector<Pt> a, std::vector<Pt> b, long tol, long flex, bool anyPoint) {
  // Both closed again, so that a flex that ends a contour compares alike.
  a.push_back(a[0]);
  b.push_back(b[0]);
  size_t i = 0, j = 0;
  auto skippable = [&](const std::vector<Pt>& v, size_t k) {
    return tol > 0 && k > 0 && k < v.size() && (anyPoint || v[k].on) &&
           labs(v[k].x - v[k - 1].x) <= tol && labs(v[k].y - v[k - 1].y) <= tol;
  };
  auto flexLine = [&] {
    if (flex == 0 || i == 0 || i >= a.size() || !a[i].on || j + 6 > b.size()) return false;
    bool line = close(a[i], b[j + 5], tol);
    for (int k = 0; k < 6 && line; k++)
      line = chordDistance(a[i - 1], a[i], b[j + k]) <= flex && b[j + k].on == (k == 2 || k == 5);
    return line;
  };
  while (i < a.size() || j < b.size()) {
    if (i < a.size() && j < b.size() && close(a[i], b[j], tol)) {
      i++, j++;
    } else if (flexLine()) {
      i++, j += 6;
    } else if (skippable(a, i)) {
      i++;
    } else if (skippable(b, j)) {
      j++;
    } else {
      return false;
    }
  }
  return true;
}

bool sameDrawing(const Contours& a, const Contours& b, long tol, long flex, bool anyPoint) {
  if (a.size() != b.size()) return false;
  for (size_t c = 0; c < a.size(); c++)
    if (!sameContour(a[c], b[c], tol, flex, anyPoint)) return false;
  return true;
}

// One font in libfreetype (face 0) and in the engine, at `ppem` or, for 0,
// at its unitsPerEm with libfreetype unscaled. EB Garamond has fractional
// operands, which the engine rounds to whole units first.
struct Both {
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  testsupport::ScaledFont sf;
  bool ok = false;
  int ppem;
  bool fractional;
  Both(const std::string& path, int size)
      : ppem(size), fractional(path.find("EBGaramond") != std::string::npos) {
    FT_Init_FreeType(&lib);
    if (FT_New_Face(lib, path.c_str(), 0, &face)) face = nullptr;
    sf.setFont(path);
    ok = face && sf.started && sf.setPpem(ppem ? ppem : face->units_per_EM) == 0;
    if (ok && ppem) FT_Set_Pixel_Sizes(face, 0, (FT_UInt)ppem);
  }
  ~Both() {
    if (face) FT_Done_Face(face);
    FT_Done_FreeType(lib);
  }
  // Glyph `g` from both: the engine's error, or libfreetype's as 1.
  FS_LONG load(long g) {
    sf.key()->glyphIndex = (FS_USHORT)g;
    FS_LONG err = cff_GridFit(&sf.st, sf.key(), 0);
    int flags = FT_LOAD_NO_HINTING | (ppem ? 0 : FT_LOAD_NO_SCALE);
    return err ? err : FT_Load_Glyph(face, (FT_UInt)g, flags) ? 1 : 0;
  }
};

// Every `step`-th glyph of a font in font units; the first difference or "".
std::string fontUnits(const std::string& font, int step, long* glyphs) {
  Both both(font, 0);
  if (!both.ok) return "libfreetype or the engine does not open it";
  long near = both.fractional ? 64 : 0;
  for (long g = 0; g < both.face->num_glyphs; g += step, ++*glyphs) {
    std::string at = base(font) + " glyph " + std::to_string(g);
    if (FS_LONG err = both.load(g)) return at + ": error " + std::to_string(err);
    fnt_ElementType* el = both.sf.element();
    Contours other = theirs(both.face->glyph->outline, 64, near);
    if (!sameDrawing(ours(el, near), other, near, 0, near > 0)) return at + ": drawings differ";
    long adv = (el->x[el->np + 1] - el->x[el->np]) / 64;
    long theirAdv = both.face->glyph->metrics.horiAdvance;
    // The charstring's width wins over `hmtx`, which libfreetype takes.
    bool knownWidth =
        g == 0 && (base(font) == "StandardSymbolsPS.otf" || base(font) == "D050000L.otf");
    if (adv != theirAdv && !knownWidth)
      return at + ": advance " + std::to_string(adv) + ", libfreetype " + std::to_string(theirAdv);
  }
  return "";
}

TEST(CffOracle, EveryGlyphInFontUnitsDrawsAsLibfreetypeDrawsIt) {
  std::vector<std::string> fonts = packagedFonts();
  long glyphs = 0;
  for (const std::string& font : fonts) EXPECT_EQ(fontUnits(font, 1, &glyphs), "") << font;
  EXPECT_EQ(glyphs, 84627);
}

TEST(CffOracle, CidKeyedNotoSansCjkEveryFifthGlyphDrawsAsLibfreetypeDrawsIt) {
  long glyphs = 0;
  EXPECT_EQ(fontUnits(kCjk, 5, &glyphs), "");
  EXPECT_EQ(glyphs, 13107);  // every 5th of 65,535
}

// At 9, 12, 24 and 72 ppem unhinted: within 1/64 pixel (EB Garamond: one
// unit's worth plus 1/64), a flex drawn as a line where libfreetype's two
// cubics lie within half a pixel of the chord. At most 0.1% of a font's
// glyph-sizes may differ.
TEST(CffOracle, FourSizesUnhintedWithinOneSixtyFourthOrAFlatFlex) {
  std::vector<std::string> fonts = packagedFonts();
  long total = 0, differing = 0, exact = 0;
  for (const std::string& font : fonts) {
    long bad = 0, count = 0;
    std::string first;
    for (int ppem : {9, 12, 24, 72}) {
      Both both(font, ppem);
      ASSERT_TRUE(both.ok) << font;
      long tol = both.fractional ? lround(ppem * 64.0 / both.face->units_per_EM) + 1 : 1;
      long near = both.fractional ? tol : 0;
      for (long g = 0; g < both.face->num_glyphs; g++, count++) {
        const FT_Outline& o = both.face->glyph->outline;
        bool same = both.load(g) == 0 &&
                    sameDrawing(ours(both.sf.element(), near), theirs(o, 1, near), tol, 32,
                                near > 0);
        if (same && sameDrawing(ours(both.sf.element(), 0), theirs(o, 1, 0), 0, 0, false))
          exact++;
        if (!same && bad++ == 0) first = std::to_string(ppem) + " ppem glyph " + std::to_string(g);
      }
    }
    total += count;
    differing += bad;
    if (bad > 0)
      printf("%s: %ld of %ld glyph-sizes differ (first %s)\n", base(font).c_str(), bad, count,
             first.c_str());
    EXPECT_LE(bad * 1000, count) << base(font) << ", first " << first;
  }
  printf("%ld of %ld glyph-sizes differ; %ld (%.1f%%) are exactly equal\n", differing, total,
         exact, 100.0 * exact / total);
  EXPECT_EQ(total, 338508);
}

}  // namespace
