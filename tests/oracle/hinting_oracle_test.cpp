// Hinted glyphs against libfreetype (a test-only oracle) at interpreter
// version 35, monochrome target: every glyph of five packaged fonts in
// index order in both engines, a fresh scaled font per size. A glyph
// is plain when both engines' unhinted points agree; the other glyphs have
// a point on a negative half that our scaler rounds the other way, which a
// program may carry anywhere. The same measures refuse libfreetype's
// unhinted points and its version 40 points as the candidate.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_DRIVER_H
#include FT_MODULE_H
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "Orvex_internal/fs_glue.h"
#include "support/scaled_font.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
const unsigned kStride = 7;
#else
const unsigned kStride = 1;
#endif

const int kSizes[] = {12, 16, 24, 72};

// The bars of each font in percent: plain glyphs exact, all glyphs within
// 1/64, advances equal.
struct Bar {
  const char* path;
  double plainExact, within, advance;
};
const Bar kBars[] = {
    {"/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf", 97, 98.5, 99.5},
    {"/usr/share/fonts/truetype/dejavu/DejaVuSans-Oblique.ttf", 95, 96, 97.5},
    {"/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf", 99.8, 99.5, 100},
    {"/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf", 99.8, 99.5, 100},
    {"/usr/share/fonts/truetype/liberation2/LiberationMono-Regular.ttf", 99.8, 99.5, 100}};

// A glyph's points in 26.6 from its left phantom place, and its advance.
struct Glyph {
  bool ok = false;
  std::vector<long> x, y;
  long advance = 0;
};

Glyph theirs(FT_Face face, unsigned g, FT_Int32 flags) {
  Glyph r;
  if (FT_Load_Glyph(face, g, flags | FT_LOAD_NO_BITMAP) != 0) return r;
  const FT_Outline& o = face->glyph->outline;
  for (int i = 0; i < o.n_points; i++) r.x.push_back(o.points[i].x), r.y.push_back(o.points[i].y);
  r.advance = face->glyph->advance.x;
  r.ok = true;
  return r;
}

// Ours: hinted, the left place rounded as outline extraction rounds it.
// Our glyph programs' writes to the control values and the storage stay
// for later glyphs; libfreetype (since 2.8) keeps each glyph's writes to
// that glyph, so both are put back after each fetch here, lest one glyph's
// writes (DejaVu Sans glyph 4063 sets control value 3 to 180 pixels at 72
// ppem) move every later glyph that reads them.
Glyph ours(testsupport::ScaledFont& sf, unsigned g, bool hints) {
  Glyph r;
  fsg_SplineKey* key = sf.key();
  key->glyphIndex = (FS_USHORT)g;
  F26DOT6* cvt = (F26DOT6*)(key->memoryBases[3] + key->offset_controlValues);
  FS_LONG* store = (FS_LONG*)(key->memoryBases[3] + key->offset_storage);
  std::vector<FS_LONG> saved(cvt, cvt + key->cvtCount);
  saved.insert(saved.end(), store, store + key->globalGS.storeCount);
  FS_LONG err = fsg_GridFit(&sf.st, key, hints);
  memcpy(cvt, saved.data(), key->cvtCount * sizeof(F26DOT6));
  memcpy(store, saved.data() + key->cvtCount, key->globalGS.storeCount * sizeof(FS_LONG));
  if (err != 0) return r;
  fnt_ElementType* el = sf.element();
  F26DOT6 left = el->x[el->np], right = el->x[el->np + 1];
  if (hints) left = (left + 32) & -64, right = (right + 32) & -64;
  for (int i = 0; i < el->np; i++) r.x.push_back(el->x[i] - left), r.y.push_back(el->y[i]);
  r.advance = right - left;
  r.ok = true;
  return r;
}

// The largest difference of two glyphs' points; -1 when they can't be
// compared.
long largest(const Glyph& a, const Glyph& b) {
  if (!a.ok || !b.ok || a.x.size() != b.x.size()) return -1;
  long m = 0;
  for (size_t i = 0; i < a.x.size(); i++)
    m = std::max(m, std::max(labs(a.x[i] - b.x[i]), labs(a.y[i] - b.y[i])));
  return m;
}

struct Tally {
  int glyphs = 0, plain = 0, plainExact = 0, within = 0, advance = 0;
  std::string beyond;  // "glyph:difference" of the glyphs beyond 1/64
  double pct(int n, int of) const { return of ? 100.0 * n / of : 100; }
  void add(unsigned g, bool isPlain, const Glyph& cand, const Glyph& ref) {
    long d = largest(cand, ref);
    glyphs++;
    plain += isPlain;
    plainExact += isPlain && d == 0;
    within += d >= 0 && d <= 1;
    advance += cand.ok && ref.ok && cand.advance == ref.advance;
    if (d < 0 || d > 1) beyond += " " + std::to_string(g) + ":" + std::to_string(d);
  }
  bool passes(const Bar& b) const {
    return pct(plainExact, plain) >= b.plainExact && pct(within, glyphs) >= b.within &&
           pct(advance, glyphs) >= b.advance;
  }
};

struct Library {
  FT_Library lib = nullptr;
  explicit Library(unsigned version) {
    FT_Init_FreeType(&lib);
    FT_Property_Set(lib, "truetype", "interpreter-version", &version);
  }
  ~Library() { FT_Done_FreeType(lib); }
  FT_Face face(const char* path, int ppem) {
    FT_Face f = nullptr;
    if (FT_New_Face(lib, path, 0, &f) == 0) FT_Set_Pixel_Sizes(f, 0, (FT_UInt)ppem);
    return f;
  }
};

const FT_Int32 kHinted = FT_LOAD_TARGET_MONO | FT_LOAD_NO_AUTOHINT;

TEST(HintingOracle, GlyphProgramsMoveThePointsAsLibfreetypeVersion35Does) {
  Library v35(35), v40(40);
  for (const Bar& bar : kBars) {
    const char* name = strrchr(bar.path, '/') + 1;
    for (int ppem : kSizes) {
      FT_Face f35 = v35.face(bar.path, ppem), f40 = v40.face(bar.path, ppem);
      ASSERT_TRUE(f35 != nullptr && f40 != nullptr) << bar.path;
      testsupport::ScaledFont sf;
      sf.setFont(bar.path);
      ASSERT_EQ(0, sf.setPpem(ppem)) << name;
      Tally mine, unhinted, version40;
      std::vector<bool> letterOrDigit(f35->num_glyphs, false);
      for (const char* set : {"ABCDEFGHIJKLMNOPQRSTUVWXYZ", "abcdefghijklmnopqrstuvwxyz", "0123456789"})
        for (const char* c = set; *c; c++) letterOrDigit[FT_Get_Char_Index(f35, (FT_ULong)*c)] = true;
      std::string lettersBeyond;
      for (unsigned g = 0; g < (unsigned)f35->num_glyphs; g += kStride) {
        Glyph ref = theirs(f35, g, kHinted);
        Glyph flat = theirs(f35, g, FT_LOAD_NO_HINTING);
        Glyph cand = ours(sf, g, true);
        bool isPlain = largest(ours(sf, g, false), flat) == 0;
        mine.add(g, isPlain, cand, ref);
        unhinted.add(g, isPlain, flat, ref);
        version40.add(g, isPlain, theirs(f40, g, kHinted), ref);
        long d = largest(cand, ref);
        if (ppem == 72 && letterOrDigit[g] && (d < 0 || d > 1))
          lettersBeyond += " " + std::to_string(g) + ":" + std::to_string(d);
      }
      printf("%s %d ppem: %d glyphs, plain exact %.2f%% (%d of %d), within 1/64 %.2f%%, "
             "advances %.2f%%; libfreetype unhinted %.2f%%/%.2f%%, v40 %.2f%%/%.2f%%\n",
             name, ppem, mine.glyphs, mine.pct(mine.plainExact, mine.plain), mine.plainExact,
             mine.plain, mine.pct(mine.within, mine.glyphs), mine.pct(mine.advance, mine.glyphs),
             unhinted.pct(unhinted.plainExact, unhinted.plain),
             unhinted.pct(unhinted.within, unhinted.glyphs),
             version40.pct(version40.plainExact, version40.plain),
             version40.pct(version40.within, version40.glyphs));
      if (!mine.beyond.empty()) printf("  beyond 1/64 (glyph:largest):%s\n", mine.beyond.c_str());
      EXPECT_TRUE(mine.passes(bar)) << name << " " << ppem << " ppem";
      EXPECT_EQ("", lettersBeyond) << name << " letters and digits at 72 ppem";
      // The measures have teeth: neither other candidate passes.
      EXPECT_FALSE(unhinted.passes(bar)) << name << " " << ppem << " ppem";
      EXPECT_FALSE(version40.passes(bar)) << name << " " << ppem << " ppem";
      FT_Done_Face(f35);
      FT_Done_Face(f40);
    }
  }
}

}  // namespace
