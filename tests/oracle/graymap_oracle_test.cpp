// Differential check of the gray scan converter against libfreetype's
// smooth rasteriser, a test-only oracle, on the same unhinted outlines:
// every glyph of two packaged fonts at 12, 24, 48 and 72 pixels per em.
// Glyphs of straight lines only must agree pixel for pixel within 2 levels
// of 255 (both compute exact cell areas); for every glyph the ink box
// agrees within 1 pixel on each side and the total coverage within 2%,
// curves being flattened differently by the two: where libfreetype's
// coarser flattening at the size takes it past 2%, within 2.5% of its
// rendering of the outline 8 times larger, or within one pixel of ink. The largest
// differences found are printed.
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <gtest/gtest.h>
#include <stdio.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include <string>
#include <vector>

#include "Orvex_internal/fs_graymap.h"
#include "Orvex_internal/fs_outline.h"
#include "Orvex_internal/fs_ttf.h"
#include "oracle/ft_outline.h"
#include "support/scaled_font.h"

namespace {

const char* const kFonts[] = {
    "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf",
    "/usr/share/fonts/truetype/liberation2/LiberationSerif-Regular.ttf"};
const int kSizes[] = {12, 24, 48, 72};

struct Box {
  long x0 = 1 << 30, y0 = 1 << 30, x1 = -(1 << 30), y1 = -(1 << 30);
  bool empty() const { return x1 < x0; }
  void add(long x, long y) {
    if (x < x0) x0 = x;
    if (x > x1) x1 = x;
    if (y < y0) y0 = y;
    if (y > y1) y1 = y;
  }
};

// The oracle's rendering of the outline drawn k times larger, over its
// whole-pixel box (lower left at (ox, oy)), rows top down.
std::vector<unsigned char> ftRender(FT_Library lib, const FS_OUTLINE* o, long k, long* w,
                                    long* h) {
  long ox = o->lo_x >> 16, oy = o->lo_y >> 16;
  *w = (((o->hi_x + 0xFFFF) >> 16) - ox) * k;
  *h = (((o->hi_y + 0xFFFF) >> 16) - oy) * k;
  std::vector<unsigned char> buf((size_t)(*w * *h > 0 ? *w * *h : 1));
  FT_Bitmap bm;
  memset(&bm, 0, sizeof bm);
  bm.rows = (unsigned)*h;
  bm.width = (unsigned)*w;
  bm.pitch = (int)*w;
  bm.buffer = buf.data();
  bm.num_grays = 256;
  bm.pixel_mode = FT_PIXEL_MODE_GRAY;
  oracle::FtOutline fo(o, ox, oy, k);
  EXPECT_EQ(0, FT_Outline_Get_Bitmap(lib, &fo.ft, &bm));
  return buf;
}

// The oracle's total coverage of the outline drawn 8 times larger, over 64:
// the same rasteriser with its curves flattened 8 times finer for the
// pixel, used where its own flattening at the size is the coarser one.
double fineSum(FT_Library lib, const FS_OUTLINE* o) {
  long w, h;
  double sum = 0;
  for (unsigned char c : ftRender(lib, o, 8, &w, &h)) sum += c;
  return sum / 64;
}

// The largest difference of one kind and the glyph that showed it first.
struct Largest {
  double value = 0;
  std::string at = "-";
  void see(double v, const std::string& where) {
    if (v > value) value = v, at = where;
  }
};

struct Worst {
  Largest straightLevel, curvedLevel, boxSide, coverage, coverageFine;
  long finer = 0;  // glyphs checked against the finer rendering
  long glyphs = 0, straightGlyphs = 0;
};

}  // namespace

TEST(GraymapAgainstFreetype, EveryGlyphOfTwoFontsAtFourSizes) {
  FT_Library lib;
  ASSERT_EQ(0, FT_Init_FreeType(&lib));
  for (const char* path : kFonts) {
    Worst w;
    long failures = 0;
    for (int ppem : kSizes) {
      testsupport::ScaledFont f;
      ASSERT_TRUE(f.started);
      f.setFont(path);
      ASSERT_EQ(0, f.setPpem(ppem)) << path;
      f.st.cur_lfnt = f.lfnt;
      f.st.flags |= FLAGS_NO_HINTS;
      unsigned n = f.key()->maxp->numGlyphs;
      for (unsigned gi = 0; gi < n; gi++) {
        FS_OUTLINE* o = make_outline_ttf(&f.st, f.st.cur_sfnt, gi);
        ASSERT_NE(nullptr, o) << path << " glyph " << gi;
        if (o->num == 0) {
          FSS_free(&f.st, o);
          continue;
        }
        FS_GRAYMAP* g = make_graymap(&f.st, o, FS_MAP_GRAYMAP8);
        ASSERT_NE(nullptr, g) << path << " glyph " << gi;
        // The oracle renders over the outline's whole-pixel box.
        long ox = o->lo_x >> 16, oy = o->lo_y >> 16, w_, h_;
        std::vector<unsigned char> buf = ftRender(lib, o, 1, &w_, &h_);
        bool lines = oracle::straight(o);
        w.glyphs++;
        if (lines) w.straightGlyphs++;
        std::string where = std::to_string(ppem) + " ppem glyph " + std::to_string(gi);
        // Pixel by pixel over the oracle's box; the engine's map is the
        // trimmed part of the same box.
        Box fb, eb;
        long fsum = 0, esum = 0;
        int worst = 0;
        for (long r = 0; r < h_; r++) {
          long y = oy + h_ - 1 - r;  // pixel row, y up
          for (long x = ox; x < ox + w_; x++) {
            int fv = buf[(size_t)(r * w_ + (x - ox))];
            int ev = 0;
            long gx = x - g->lo_x, gy = g->hi_y - y;
            if (gx >= 0 && gx < g->width && gy >= 0 && gy < g->height)
              ev = g->bits[gy * g->bpl + gx];
            if (fv) fb.add(x, y);
            if (ev) eb.add(x, y);
            fsum += fv;
            esum += ev;
            int d = abs(fv - ev);
            if (d > worst) worst = d;
          }
        }
        if (lines) {
          w.straightLevel.see(worst, where);
          if (worst > 2) failures++;
          EXPECT_LE(worst, 2) << path << " " << where;
        } else {
          w.curvedLevel.see(worst, where);
        }
        if (fb.empty() || eb.empty()) {
          // Only slivers too thin to reach a level on one side may differ.
          EXPECT_LE(fsum + esum, 255) << path << " " << where;
        } else {
          int side = std::max(std::max(labs(fb.x0 - eb.x0), labs(fb.x1 - eb.x1)),
                              std::max(labs(fb.y0 - eb.y0), labs(fb.y1 - eb.y1)));
          w.boxSide.see(side, where);
          EXPECT_LE(side, 1) << path << " " << where;
          double rel = fsum > 0 ? fabs((double)esum - fsum) / fsum : 0;
          w.coverage.see(rel, where);
          // Beyond 2%, libfreetype's own flattening at this size is the
          // coarser one on thin curved strokes: its rendering 8 times
          // larger moves to the engine's figure. Such a glyph must be
          // within 2.5% of that (the engine's own flatness, 1/21 pixel at
          // 24 ppem, leaves 2.1% on a dotted ring of hairlines), or differ
          // by less than one pixel of ink.
          if (rel > 0.02 && labs(esum - fsum) > 255) {
            double fine = fineSum(lib, o);
            double relFine = fabs(esum - fine) / fine;
            w.finer++;
            w.coverageFine.see(relFine, where);
            EXPECT_LE(relFine, 0.025) << path << " " << where;
          }
        }
        FSS_free(&f.st, g);
        FSS_free(&f.st, o);
        if (failures > 20) FAIL() << "too many differences";
      }
    }
    printf("%s: %ld glyphs (%ld straight); straight: largest level difference "
           "%.0f (%s); curved: %.0f (%s); ink box side %.0f (%s); coverage %.3f%% (%s), "
           "%ld beyond 2%% against the 8x rendering: %.3f%% (%s)\n",
           path, w.glyphs, w.straightGlyphs, w.straightLevel.value, w.straightLevel.at.c_str(),
           w.curvedLevel.value, w.curvedLevel.at.c_str(), w.boxSide.value, w.boxSide.at.c_str(),
           100 * w.coverage.value, w.coverage.at.c_str(), w.finer,
           100 * w.coverageFine.value, w.coverageFine.at.c_str());
  }
  FT_Done_FreeType(lib);
}
