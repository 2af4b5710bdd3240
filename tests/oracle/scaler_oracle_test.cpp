// Differential checks of the scaler against libfreetype, an independent
// engine used here as a test-only oracle: every glyph of three packaged
// fonts at six sizes, unhinted, point for point in 26.6 with the origin at
// the left phantom place, where the one difference allowed is an exact
// negative half that the scaler's shift rounds up and libfreetype away from
// zero; the linear and rounded advances; and scales with shear, rotation,
// mirroring and unequal axes, within 3/64 pixel.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <gtest/gtest.h>
#include <math.h>
#include <stdio.h>

#include <map>
#include <string>
#include <vector>

#include "support/scaled_font.h"
#include "support/test_support.h"

namespace {

const char* const kFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"};
const int kSizes[] = {9, 12, 16, 24, 48, 72};

// libfreetype's face on a font's bytes, which the scaler reads too.
struct Oracle {
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  std::vector<uint8_t> bytes;
  explicit Oracle(const char* path) {
    std::string b = testsupport::readBytes(path);
    bytes.assign(b.begin(), b.end());
    FT_Init_FreeType(&lib);
    if (FT_New_Memory_Face(lib, bytes.data(), (FT_Long)bytes.size(), 0, &face)) face = nullptr;
  }
  ~Oracle() {
    if (face) FT_Done_Face(face);
    FT_Done_FreeType(lib);
  }
};

// Differences of one font, by kind, with a first example of each.
struct Tally {
  std::map<std::string, long> count;
  std::map<std::string, std::string> example;
  long halves = 0;  // differences of rounding an exact half upwards
  void add(const std::string& kind, const std::string& where) {
    if (count[kind]++ == 0) example[kind] = where;
  }
  std::string report() const {
    std::string s;
    for (auto& k : count)
      s += k.first + ": " + std::to_string(k.second) + " (first: " +
           example.at(k.first) + ")\n";
    return s;
  }
};

std::string where(const char* font, int ppem, unsigned g, int p = -1) {
  std::string s = std::string(strrchr(font, '/') + 1) + " " +
                  std::to_string(ppem) + "ppem glyph " + std::to_string(g);
  if (p >= 0) s += " point " + std::to_string(p);
  return s;
}

// Compares one loaded glyph with libfreetype's outline; `tolerance` in
// 26.6 units. The oracle's outline is already shifted by its left phantom
// point; ours is shifted by our place 0 after the matrix.
void compareGlyph(testsupport::ScaledFont& ours, FT_Face face, const char* font,
                  int ppem, unsigned g, long tolerance, Tally* tally) {
  FS_LONG err = ours.fetch(g);
  FT_Error fterr = FT_Load_Glyph(face, g, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP);
  if (err != 0 || fterr != 0) {
    if ((err != 0) != (fterr != 0))
      tally->add("one engine refuses (ours " + std::to_string(err) + ")",
                 where(font, ppem, g));
    return;
  }
  FT_Outline& o = face->glyph->outline;
  fnt_ElementType* el = ours.element();
  if (el->np != o.n_points || el->nc != o.n_contours) {
    tally->add("point or contour count", where(font, ppem, g));
    return;
  }
  for (int c = 0; c < o.n_contours; c++)
    if (el->ep[c] != o.contours[c]) {
      tally->add("contour end", where(font, ppem, g));
      return;
    }
  F26DOT6 ox = el->x[el->np], oy = el->y[el->np];
  bool composite = ours.key()->num_comps > 0;
  for (int p = 0; p < o.n_points; p++) {
    long d[2] = {(long)(el->x[p] - ox) - o.points[p].x,
                 (long)(el->y[p] - oy) - o.points[p].y};
    FS_LONG raw[2] = {el->oox[p], el->ooy[p]};
    for (int axis = 0; axis < 2; axis++) {
      if (d[axis] == 0) continue;
      std::string at = where(font, ppem, g, p) + (axis ? " y" : " x");
      if (tolerance > 0) {
        if (labs(d[axis]) > tolerance)
          tally->add("off by " + std::to_string(d[axis]), at);
      } else if (!composite) {
        // The one difference a simple glyph may show: a negative font-unit
        // coordinate that scales to an exact half (v * ppem * 64 / 2048
        // ends in .5) is rounded up by the shift, away from zero by
        // libfreetype.
        // The left phantom place is shifted out, so its own half shows as -1.
        auto half = [ppem](FS_LONG v) { return v < 0 && ((-v * ppem) % 32) == 16; };
        long expect = (half(raw[axis]) ? 1 : 0) -
                      (axis == 0 && half(el->oox[el->np]) ? 1 : 0);
        if (d[axis] != expect)
          tally->add("simple glyph off by " + std::to_string(d[axis]), at);
        else
          tally->halves++;
      } else {
        // In a composite the component's offset is a second scaled value
        // that may round the same way.
        if (d[axis] < -1 || d[axis] > 2)
          tally->add("composite off by " + std::to_string(d[axis]), at);
        else
          tally->halves++;
      }
    }
    if ((el->onCurve[p] != 0) != ((o.tags[p] & 1) != 0))
      tally->add("on-curve flag", where(font, ppem, g, p));
  }
}

TEST(ScalerOracle, EveryGlyphAndAdvanceUnhintedMatchLibfreetypeSaveNegativeHalvesRoundedUp) {
  for (const char* font : kFonts) {
    Oracle oracle(font);
    ASSERT_NE(nullptr, oracle.face) << "missing or unreadable packaged font " << font;
    // The exact-half rule below is worked out for 2048 units per em.
    ASSERT_EQ(2048, oracle.face->units_per_EM) << font;
    testsupport::ScaledFont ours;
    ASSERT_TRUE(ours.started);
    ours.setFont(font, oracle.bytes);
    Tally tally;
    long glyphs = 0;
    for (int ppem : kSizes) {
      ASSERT_EQ(0, ours.setPpem(ppem)) << font;
      ASSERT_EQ(0, FT_Set_Pixel_Sizes(oracle.face, ppem, ppem));
      for (unsigned g = 0; g < (unsigned)oracle.face->num_glyphs; g++, glyphs++) {
        compareGlyph(ours, oracle.face, font, ppem, g, 0, &tally);
        // The linear advance in 16.16 exactly, and rounded to whole pixels.
        FS_FIXED dx, dy;
        FS_SHORT idx, idy;
        ASSERT_EQ(0, get_glyph_advance(&ours.st, ours.key(), g, &dx, &dy, &idx, &idy));
        ASSERT_EQ(0, FT_Load_Glyph(oracle.face, g, FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP));
        FT_Fixed linear = oracle.face->glyph->linearHoriAdvance;
        if (dx != linear) tally.add("linear advance", where(font, ppem, g));
        if (idx != (linear + 0x8000) >> 16) tally.add("rounded advance", where(font, ppem, g));
        if (dy != 0 || idy != 0) tally.add("vertical advance", where(font, ppem, g));
      }
    }
    EXPECT_GT(glyphs, 1000);
    EXPECT_TRUE(tally.count.empty()) << font << "\n" << tally.report();
    printf("%s: %ld glyph loads, %ld coordinates differ by an upward half\n",
           strrchr(font, '/') + 1, glyphs, tally.halves);
  }
}

// A scale given to our scaler as (s00, s01, s10, s11) and to libfreetype
// as pixel sizes and a matrix that together make the same map.
struct Plain {
  const char* name;
  double s00, s01, s10, s11;  // pixels per em
  int ftx, fty;              // libfreetype's pixel sizes
};

// Both engines round each scaled coordinate and each matrix product, in a
// different order: libfreetype scales by its pixels per em and applies the
// whole matrix; the scaler scales by the larger magnitude of each matrix
// row (rounded to whole pixels for fonts that ask for it) and applies what
// is left. Each is up to about 1.5/64 from the exact value, so they may
// differ by 3/64.
const long kNonPlainTolerance = 3;

TEST(ScalerOracle, SkewRotationAndUnequalAxesMatchLibfreetypeWithin3Of64) {
  const double c30 = cos(M_PI / 6), s30 = sin(M_PI / 6);
  const Plain scales[] = {
      {"skew", 24, 6, 0, 24, 24, 24},
      {"rotation", 24 * c30, -24 * s30, 24 * s30, 24 * c30, 24, 24},
      {"unequal", 20, 0, 0, 33, 20, 33},
      {"mirror", -18, 0, 0, 18, 18, 18},
  };
  const char* font = kFonts[0];
  Oracle oracle(font);
  ASSERT_NE(nullptr, oracle.face) << font;
  testsupport::ScaledFont ours;
  ours.setFont(font, oracle.bytes);
  for (const Plain& s : scales) {
    FS_FIXED f[4] = {(FS_FIXED)lround(s.s00 * 65536), (FS_FIXED)lround(s.s01 * 65536),
                     (FS_FIXED)lround(s.s10 * 65536), (FS_FIXED)lround(s.s11 * 65536)};
    ASSERT_EQ(0, ours.setScale(f[0], f[1], f[2], f[3])) << s.name;
    FT_Set_Pixel_Sizes(oracle.face, s.ftx, s.fty);
    FT_Matrix m;
    m.xx = lround(s.s00 / s.ftx * 65536);
    m.xy = lround(s.s01 / s.fty * 65536);
    m.yx = lround(s.s10 / s.ftx * 65536);
    m.yy = lround(s.s11 / s.fty * 65536);
    FT_Set_Transform(oracle.face, &m, nullptr);
    Tally tally;
    for (unsigned g = 0; g < (unsigned)oracle.face->num_glyphs; g++)
      compareGlyph(ours, oracle.face, font, s.ftx, g, kNonPlainTolerance, &tally);
    EXPECT_TRUE(tally.count.empty()) << s.name << "\n" << tally.report();
  }
  FT_Set_Transform(oracle.face, nullptr, nullptr);
}

}  // namespace
